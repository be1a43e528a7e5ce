#include "ZVXDevServerProcess.h"
#include "ZVXJSON.h"

#include <QElapsedTimer>
#include <QTest>

using namespace Qt::StringLiterals;

class TestDevServerFaults : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase() { QVERIFY2(m_server.stop(), "the server ends cleanly"); }
    void init();
    void faultsHitTheNextRequests_data();
    void faultsHitTheNextRequests();
    void aRefusedUploadLeavesNoTrace();
    void curlSeesTheFaultsToo();
    void faultsAreChecked();
    void receiptsCountEveryUpload();
    void receiptsAreBounded();
    void administrationIsOptIn();

private:
    ZVXDevReply addFault(const QVariantMap &fault);
    qint64 counter(const QString &request);
    //! An upload by curl, which never sends a request again: its exit code.
    int curlUpload(const QString &uuid, const QString &token);

    ZVXDevServerProcess m_server;
    std::unique_ptr<ZVXDevClient> m_client;
};

void TestDevServerFaults::initTestCase()
{
    QVERIFY(m_server.start({u"--open"_s, u"--admin"_s}));
    m_client = std::make_unique<ZVXDevClient>(m_server,
                                              ZVXDevSign({{u"installationId"_s, u"F-1"_s}}, "any"));
}

void TestDevServerFaults::init()
{
    QCOMPARE(
        m_client->wait(m_client->manager().deleteResource(m_client->request(u"/admin/faults"_s)))
            .status,
        200);
    QCOMPARE(
        m_client->wait(m_client->manager().deleteResource(m_client->request(u"/admin/counters"_s)))
            .status,
        200);
    QCOMPARE(
        m_client->wait(m_client->manager().deleteResource(m_client->request(u"/admin/receipts"_s)))
            .status,
        200);
}

int TestDevServerFaults::curlUpload(const QString &uuid, const QString &token)
{
    return ZVXDevRunCurl(
               m_server,
               {u"--header"_s, u"X-ZVL-JWT: "_s + token, u"--form"_s,
                uR"(message={"uuid":"%1","text":"by curl"};type=application/json)"_s.arg(uuid),
                m_server.origin() + u"/api/1.0/messages"_s})
        .exitCode;
}

ZVXDevReply TestDevServerFaults::addFault(const QVariantMap &fault)
{
    return m_client->postJSON(u"/admin/faults"_s, fault);
}

qint64 TestDevServerFaults::counter(const QString &request)
{
    return m_client->get(u"/admin/counters"_s)
        .json()
        .value(u"counters"_s)
        .toMap()
        .value(request)
        .toLongLong();
}

void TestDevServerFaults::faultsHitTheNextRequests_data()
{
    QTest::addColumn<QVariantMap>("fault");
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QByteArray>("contentType");
    QTest::addColumn<QNetworkReply::NetworkError>("error");
    // Qt sends a request again, a few times, when its connection closes before any answer.
    QTest::addColumn<bool>("retried");
    const auto fault = [](const char *kind, QVariantMap more = {}) {
        more.insert(u"path"_s, u"/api/1.0/status"_s);
        more.insert(u"kind"_s, QLatin1String(kind));
        // Enough drops for every attempt Qt makes.
        more.insert(u"count"_s, kind == QByteArray("drop") ? 100 : 2);
        return more;
    };
    QTest::newRow("status and body")
        << fault("status",
                 {{u"status"_s, 503},
                  {u"body"_s, uR"({"error":"busy","localizedError":"Try later."})"_s}})
        << 503 << QByteArray(R"({"error":"busy","localizedError":"Try later."})")
        << QByteArray("application/json") << QNetworkReply::ServiceUnavailableError << false;
    QTest::newRow("default status")
        << fault("status") << 500
        << QByteArray(
               R"({"error":"injected fault","localizedError":"The server is having trouble."})")
        << QByteArray("application/json") << QNetworkReply::InternalServerError << false;
    QTest::newRow("not JSON")
        << fault("nonJSON") << 200
        << QByteArray("<html><body><h1>Bad Gateway</h1><p>Injected fault.</p></body></html>")
        << QByteArray("text/html") << QNetworkReply::NoError << false;
    QTest::newRow("empty") << fault("empty", {{u"status"_s, 502}}) << 502 << QByteArray()
                           << QByteArray() << QNetworkReply::UnknownServerError << false;
    QTest::newRow("dropped") << fault("drop") << 0 << QByteArray() << QByteArray()
                             << QNetworkReply::RemoteHostClosedError << true;
    QTest::newRow("delayed") << fault("delay", {{u"delayMs"_s, 300}}) << 200
                             << QByteArray(R"({"unreadCount":0})")
                             << QByteArray("application/json; charset=utf-8")
                             << QNetworkReply::NoError << false;
}

void TestDevServerFaults::faultsHitTheNextRequests()
{
    QFETCH(QVariantMap, fault);
    QFETCH(int, status);
    QFETCH(QByteArray, body);
    QFETCH(QByteArray, contentType);
    QFETCH(QNetworkReply::NetworkError, error);
    QFETCH(bool, retried);
    QCOMPARE(addFault(fault).status, 200);
    // A fault on another method of the same path does not interfere.
    QCOMPARE(
        addFault(
            {{u"path"_s, u"/api/1.0/status"_s}, {u"method"_s, u"post"_s}, {u"kind"_s, u"drop"_s}})
            .status,
        200);

    for (int i = 0; i < 2; ++i) {
        // A fresh client each time: a dropped connection must not be the one reused.
        ZVXDevClient client(m_server, m_client->token);
        QElapsedTimer elapsed;
        elapsed.start();
        const ZVXDevReply reply = client.get(u"/api/1.0/status"_s);
        QCOMPARE(reply.error, error);
        QCOMPARE(reply.status, status);
        QCOMPARE(reply.body, body);
        QCOMPARE(reply.contentType, contentType);
        // Not a measure of speed: the answer cannot come before the delay asked for.
        QVERIFY(elapsed.elapsed() >= fault.value(u"delayMs"_s).toLongLong());
    }
    if (retried) {
        QVERIFY(counter(u"GET /api/1.0/status"_s) > 2);
        init();
    }
    const ZVXDevReply after = m_client->get(u"/api/1.0/status"_s);
    QCOMPARE(after.status, 200);
    QCOMPARE(after.json().value(u"unreadCount"_s), QVariant(0));
    if (!retried)
        QCOMPARE(counter(u"GET /api/1.0/status"_s), 3);
}

void TestDevServerFaults::aRefusedUploadLeavesNoTrace()
{
    QCOMPARE(addFault({{u"path"_s, u"/api/1.0/messages"_s},
                       {u"method"_s, u"POST"_s},
                       {u"kind"_s, u"status"_s},
                       {u"status"_s, 503}})
                 .status,
             200);
    const QVariantMap message{{u"uuid"_s, u"upload-1"_s}, {u"text"_s, u"try again"_s}};
    QCOMPARE(m_client->send(message).status, 503);
    // The retry goes through, on the same client, and is stored once.
    QCOMPARE(m_client->send(message).status, 200);
    QCOMPARE(m_client->get(u"/api/1.0/messages"_s).json().value(u"messages"_s).toList().size(), 1);
}

void TestDevServerFaults::curlSeesTheFaultsToo()
{
    const QStringList request{u"--header"_s, u"X-ZVL-JWT: "_s + m_client->token, u"--write-out"_s,
                              u" %{http_code}"_s,
                              m_server.origin() + u"/api/1.0/messages?limit=5"_s};
    QCOMPARE(addFault({{u"path"_s, u"/api/1.0/messages"_s}, {u"kind"_s, u"drop"_s}}).status, 200);
    QCOMPARE(ZVXDevRunCurl(m_server, request).exitCode, 52); // empty reply from server
    QCOMPARE(addFault({{u"path"_s, u"/api/1.0/messages"_s},
                       {u"kind"_s, u"status"_s},
                       {u"status"_s, 429},
                       {u"body"_s, u"{\"error\":\"slow down\"}"_s}})
                 .status,
             200);
    QCOMPARE(ZVXDevRunCurl(m_server, request).output, QByteArray("{\"error\":\"slow down\"} 429"));
    const ZVXDevCurl normal = ZVXDevRunCurl(m_server, request);
    QVERIFY(normal.output.endsWith(" 200"));
    QCOMPARE(counter(u"GET /api/1.0/messages"_s), 3);
}

void TestDevServerFaults::faultsAreChecked()
{
    for (const QVariantMap &fault :
         {QVariantMap{{u"path"_s, u"/api/1.0/status"_s}, {u"kind"_s, u"explode"_s}},
          QVariantMap{{u"path"_s, u"api/1.0/status"_s}, {u"kind"_s, u"drop"_s}},
          QVariantMap{{u"path"_s, u"/x"_s}, {u"kind"_s, u"status"_s}, {u"status"_s, 99}},
          QVariantMap{{u"path"_s, u"/x"_s}, {u"kind"_s, u"delay"_s}},
          QVariantMap{{u"path"_s, u"/x"_s}, {u"kind"_s, u"drop"_s}, {u"count"_s, u"2"_s}}}) {
        const ZVXDevReply reply = addFault(fault);
        QCOMPARE(reply.status, 400);
        QVERIFY(!reply.json().value(u"error"_s).toString().isEmpty());
    }
    QCOMPARE(m_client->get(u"/api/1.0/status"_s).status, 200);
}

void TestDevServerFaults::receiptsCountEveryUpload()
{
    const QVariantMap message{{u"uuid"_s, u"receipt-1"_s}, {u"text"_s, u"again and again"_s}};
    QCOMPARE(m_client->send(message).status, 200);
    // Refused, dropped or late, an upload arrived all the same.
    QCOMPARE(addFault({{u"path"_s, u"/api/1.0/messages"_s},
                       {u"method"_s, u"POST"_s},
                       {u"kind"_s, u"status"_s},
                       {u"status"_s, 503}})
                 .status,
             200);
    QCOMPARE(m_client->send(message).status, 503);
    QCOMPARE(addFault({{u"path"_s, u"/api/1.0/messages"_s}, {u"kind"_s, u"drop"_s}}).status, 200);
    QCOMPARE(curlUpload(u"receipt-1"_s, m_client->token), 52); // empty reply from server
    QCOMPARE(
        addFault(
            {{u"path"_s, u"/api/1.0/messages"_s}, {u"kind"_s, u"delay"_s}, {u"delayMs"_s, 100}})
            .status,
        200);
    QCOMPARE(m_client->send(message).status, 200);
    // So did one without a valid token, and one that is no message at all.
    QCOMPARE(curlUpload(u"receipt-1"_s, u"not.a.token"_s), 0);
    QCOMPARE(m_client->send({{u"uuid"_s, u"receipt-2"_s}, {u"sender"_s, u"agent"_s}}).status, 400);
    // Not one that names no uuid.
    QCOMPARE(m_client->send({{u"text"_s, u"who am I?"_s}}).status, 400);
    QCOMPARE(m_client->post(u"/api/1.0/messages"_s, "{\"uuid\":\"receipt-3\"}").status, 400);

    const QVariantMap receipts = m_client->get(u"/admin/receipts"_s).json();
    QCOMPARE(receipts,
             (QVariantMap{{u"receipts"_s, QVariantMap{{u"receipt-1"_s, 5}, {u"receipt-2"_s, 1}}}}));
    QCOMPARE(counter(u"POST /api/1.0/messages"_s), 8);
    // The faults were spent on those uploads; the message is stored once.
    QCOMPARE(m_client->send(message).status, 200);
    int stored = 0;
    for (const QVariant &listed :
         m_client->get(u"/api/1.0/messages"_s).json().value(u"messages"_s).toList())
        stored += listed.toMap().value(u"uuid"_s) == u"receipt-1"_s;
    QCOMPARE(stored, 1);

    QCOMPARE(
        m_client->wait(m_client->manager().deleteResource(m_client->request(u"/admin/receipts"_s)))
            .status,
        200);
    QCOMPARE(m_client->get(u"/admin/receipts"_s).json(),
             (QVariantMap{{u"receipts"_s, QVariantMap()}}));
}

void TestDevServerFaults::receiptsAreBounded()
{
    ZVXDevServerProcess bounded;
    QVERIFY(bounded.start({u"--open"_s, u"--admin"_s, u"--max-receipts"_s, u"2"_s}));
    ZVXDevClient client(bounded, m_client->token);
    for (const QString &uuid : {u"a"_s, u"b"_s, u"c"_s, u"a"_s, u"d"_s, QString(129, u'x')})
        client.send({{u"uuid"_s, uuid}});
    // The first two are counted on; the rest only say that there were more.
    QCOMPARE(client.get(u"/admin/receipts"_s).json(),
             (QVariantMap{{u"receipts"_s, QVariantMap{{u"a"_s, 2}, {u"b"_s, 1}}},
                          {u"limit"_s, 2},
                          {u"notRemembered"_s, 3}}));
    QVERIFY(!ZVXDevServerProcess().start({u"--open"_s, u"--max-receipts"_s, u"0"_s}));
}

void TestDevServerFaults::administrationIsOptIn()
{
    ZVXDevServerProcess plain;
    QVERIFY(plain.start({u"--open"_s}));
    ZVXDevClient client(plain, m_client->token);
    QCOMPARE(client
                 .postJSON(u"/admin/faults"_s,
                           {{u"path"_s, u"/api/1.0/status"_s}, {u"kind"_s, u"drop"_s}})
                 .status,
             404);
    QCOMPARE(client.get(u"/admin/counters"_s).status, 404);
    QCOMPARE(client.get(u"/admin/receipts"_s).status, 404);
    QCOMPARE(client.get(u"/api/1.0/status"_s).status, 200);
}

QTEST_MAIN(TestDevServerFaults)
#include "tst_devserver_faults.moc"
