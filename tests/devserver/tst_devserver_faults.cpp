#include "ZVXDevServerProcess.h"
#include "ZVXJSON.h"

#include <QElapsedTimer>
#include <QTest>

class TestDevServerFaults : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void faultsHitTheNextRequests_data();
    void faultsHitTheNextRequests();
    void curlSeesTheFaultsToo();
    void faultsAreChecked();
    void administrationIsOptIn();

private:
    ZVXDevReply addFault(const QVariantMap &fault);
    qint64 counter(const QString &request);

    ZVXDevServerProcess m_server;
    std::unique_ptr<ZVXDevClient> m_client;
};

void TestDevServerFaults::initTestCase()
{
    QVERIFY(m_server.start({QStringLiteral("--open"), QStringLiteral("--admin")}));
    m_client = std::make_unique<ZVXDevClient>(
        m_server, ZVXDevSign({{QStringLiteral("installationId"), QStringLiteral("F-1")}}, "any"));
}

void TestDevServerFaults::init()
{
    QCOMPARE(m_client
                 ->wait(m_client->manager().deleteResource(
                     m_client->request(QStringLiteral("/admin/faults"))))
                 .status,
             200);
    QCOMPARE(m_client
                 ->wait(m_client->manager().deleteResource(
                     m_client->request(QStringLiteral("/admin/counters"))))
                 .status,
             200);
}

ZVXDevReply TestDevServerFaults::addFault(const QVariantMap &fault)
{
    return m_client->postJSON(QStringLiteral("/admin/faults"), fault);
}

qint64 TestDevServerFaults::counter(const QString &request)
{
    return m_client->get(QStringLiteral("/admin/counters"))
        .json()
        .value(QStringLiteral("counters"))
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
        more.insert(QStringLiteral("path"), QStringLiteral("/api/1.0/status"));
        more.insert(QStringLiteral("kind"), QLatin1String(kind));
        // Enough drops for every attempt Qt makes.
        more.insert(QStringLiteral("count"), kind == QByteArray("drop") ? 100 : 2);
        return more;
    };
    QTest::newRow("status and body")
        << fault("status",
                 {{QStringLiteral("status"), 503},
                  {QStringLiteral("body"),
                   QStringLiteral(R"({"error":"busy","localizedError":"Try later."})")}})
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
    QTest::newRow("empty") << fault("empty", {{QStringLiteral("status"), 502}}) << 502
                           << QByteArray() << QByteArray() << QNetworkReply::UnknownServerError
                           << false;
    QTest::newRow("dropped") << fault("drop") << 0 << QByteArray() << QByteArray()
                             << QNetworkReply::RemoteHostClosedError << true;
    QTest::newRow("delayed") << fault("delay", {{QStringLiteral("delayMs"), 300}}) << 200
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
    QCOMPARE(addFault({{QStringLiteral("path"), QStringLiteral("/api/1.0/status")},
                       {QStringLiteral("method"), QStringLiteral("post")},
                       {QStringLiteral("kind"), QStringLiteral("drop")}})
                 .status,
             200);

    for (int i = 0; i < 2; ++i) {
        // A fresh client each time: a dropped connection must not be the one reused.
        ZVXDevClient client(m_server, m_client->token);
        QElapsedTimer elapsed;
        elapsed.start();
        const ZVXDevReply reply = client.get(QStringLiteral("/api/1.0/status"));
        QCOMPARE(reply.error, error);
        QCOMPARE(reply.status, status);
        QCOMPARE(reply.body, body);
        QCOMPARE(reply.contentType, contentType);
        // Not a measure of speed: the answer cannot come before the delay asked for.
        QVERIFY(elapsed.elapsed() >= fault.value(QStringLiteral("delayMs")).toLongLong());
    }
    if (retried) {
        QVERIFY(counter(QStringLiteral("GET /api/1.0/status")) > 2);
        init();
    }
    const ZVXDevReply after = m_client->get(QStringLiteral("/api/1.0/status"));
    QCOMPARE(after.status, 200);
    QCOMPARE(after.json().value(QStringLiteral("unreadCount")), QVariant(0));
    if (!retried)
        QCOMPARE(counter(QStringLiteral("GET /api/1.0/status")), 3);
}

void TestDevServerFaults::curlSeesTheFaultsToo()
{
    const QStringList request{QStringLiteral("--header"),
                              QStringLiteral("X-ZVL-JWT: ") + m_client->token,
                              QStringLiteral("--write-out"), QStringLiteral(" %{http_code}"),
                              m_server.origin() + QStringLiteral("/api/1.0/messages?limit=5")};
    QCOMPARE(addFault({{QStringLiteral("path"), QStringLiteral("/api/1.0/messages")},
                       {QStringLiteral("kind"), QStringLiteral("drop")}})
                 .status,
             200);
    QCOMPARE(ZVXDevRunCurl(m_server, request).exitCode, 52); // empty reply from server
    QCOMPARE(addFault({{QStringLiteral("path"), QStringLiteral("/api/1.0/messages")},
                       {QStringLiteral("kind"), QStringLiteral("status")},
                       {QStringLiteral("status"), 429},
                       {QStringLiteral("body"), QStringLiteral("{\"error\":\"slow down\"}")}})
                 .status,
             200);
    QCOMPARE(ZVXDevRunCurl(m_server, request).output, QByteArray("{\"error\":\"slow down\"} 429"));
    const ZVXDevCurl normal = ZVXDevRunCurl(m_server, request);
    QVERIFY(normal.output.endsWith(" 200"));
    QCOMPARE(counter(QStringLiteral("GET /api/1.0/messages")), 3);
}

void TestDevServerFaults::faultsAreChecked()
{
    for (const QVariantMap &fault :
         {QVariantMap{{QStringLiteral("path"), QStringLiteral("/api/1.0/status")},
                      {QStringLiteral("kind"), QStringLiteral("explode")}},
          QVariantMap{{QStringLiteral("path"), QStringLiteral("api/1.0/status")},
                      {QStringLiteral("kind"), QStringLiteral("drop")}},
          QVariantMap{{QStringLiteral("path"), QStringLiteral("/x")},
                      {QStringLiteral("kind"), QStringLiteral("status")},
                      {QStringLiteral("status"), 99}},
          QVariantMap{{QStringLiteral("path"), QStringLiteral("/x")},
                      {QStringLiteral("kind"), QStringLiteral("delay")}},
          QVariantMap{{QStringLiteral("path"), QStringLiteral("/x")},
                      {QStringLiteral("kind"), QStringLiteral("drop")},
                      {QStringLiteral("count"), QStringLiteral("2")}}}) {
        const ZVXDevReply reply = addFault(fault);
        QCOMPARE(reply.status, 400);
        QVERIFY(!reply.json().value(QStringLiteral("error")).toString().isEmpty());
    }
    QCOMPARE(m_client->get(QStringLiteral("/api/1.0/status")).status, 200);
}

void TestDevServerFaults::administrationIsOptIn()
{
    ZVXDevServerProcess plain;
    QVERIFY(plain.start({QStringLiteral("--open")}));
    ZVXDevClient client(plain, m_client->token);
    QCOMPARE(client
                 .postJSON(QStringLiteral("/admin/faults"),
                           {{QStringLiteral("path"), QStringLiteral("/api/1.0/status")},
                            {QStringLiteral("kind"), QStringLiteral("drop")}})
                 .status,
             404);
    QCOMPARE(client.get(QStringLiteral("/admin/counters")).status, 404);
    QCOMPARE(client.get(QStringLiteral("/api/1.0/status")).status, 200);
}

QTEST_MAIN(TestDevServerFaults)
#include "tst_devserver_faults.moc"
