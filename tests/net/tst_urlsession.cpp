#include "ZVXLogCapture.h"
#include "ZVXMainThread.h"
#include "ZVXManualClock.h"
#include "ZVXTestCertificates.h"
#include "ZVXTestServer.h"
#include "ZVXURLCache.h"
#include "ZVXURLSession.h"
#include "ZuveroCertificateAuthorities.h"

#include <QNetworkReply>
#include <QProcess>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

struct Outcome
{
    int finishedAs = 0;
    bool checkedOffMainThread = false;
    ZVXURLSessionResult result;
};

int finishedCount = 0;

std::shared_ptr<Outcome> start(ZVXURLSession &session, const ZVXURLRequest &request,
                               std::shared_ptr<ZVXURLSessionTask> *task = nullptr)
{
    auto outcome = std::make_shared<Outcome>();
    auto made = session.dataTask(request, [outcome](const ZVXURLSessionResult &result) {
        const bool offMain = !ZVXMainThread::isMainThread();
        return [outcome, result, offMain] {
            outcome->result = result;
            outcome->checkedOffMainThread = offMain;
            outcome->finishedAs = ++finishedCount;
        };
    });
    made->resume();
    if (task)
        *task = made;
    return outcome;
}

// Python's zlib: wbits 31 writes gzip, 15 deflate in zlib form, -15 bare deflate.
QByteArray compress(int wbits, const QByteArray &data)
{
    QProcess python;
    python.start(u"/usr/bin/python3"_s,
                 {u"-c"_s,
                  u"import sys, zlib; c = zlib.compressobj(wbits=int(sys.argv[1])); "
                  "sys.stdout.buffer.write(c.compress(sys.stdin.buffer.read()) + c.flush())"_s,
                  QString::number(wbits)});
    python.write(data);
    python.closeWriteChannel();
    python.waitForFinished(30000);
    return python.readAllStandardOutput();
}

} // namespace

class TestURLSession : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase() { ZuveroRemoveTrustedCertificateAuthorities(); }
    void requestsInFlightPerHost_data();
    void requestsInFlightPerHost();
    void untrustedCertificateFailsUntilTrusted();
    void fileCacheAnswersWithoutTheNetwork();
    void encodedRepliesAreDecoded_data();
    void encodedRepliesAreDecoded();
    void timeOutsAndCancellation();
    void uploadCountersFollowTheTransfer();
    void aBodyIsNeverSentTwiceBehindOurBack();

private:
    std::unique_ptr<ZVXTestCertificates> m_certificates;
    std::unique_ptr<ZVXTestServer> m_server;
};

void TestURLSession::initTestCase()
{
    m_certificates = std::make_unique<ZVXTestCertificates>();
    QVERIFY2(m_certificates->isValid(), qPrintable(m_certificates->errorString()));
    QCOMPARE(ZuveroAddTrustedCertificateAuthorities(m_certificates->trusted.authorityPem), 1);
    m_server = std::make_unique<ZVXTestServer>(m_certificates->trusted.certificate,
                                               m_certificates->trusted.key);
    QVERIFY(m_server->isListening());
}

void TestURLSession::requestsInFlightPerHost_data()
{
    QTest::addColumn<bool>("api");
    QTest::addColumn<int>("delay");
    QTest::addColumn<int>("limit");
    // The server holds each answer long enough for requests to overlap if they may.
    QTest::newRow("api") << true << 30 << 1;
    // Qt alone would open six connections.
    QTest::newRow("files") << false << 400 << 4;
}

void TestURLSession::requestsInFlightPerHost()
{
    QFETCH(bool, api);
    QFETCH(int, delay);
    QFETCH(int, limit);
    ZVXTestServer server(m_certificates->trusted.certificate, m_certificates->trusted.key);
    server.setHandler([delay](const ZVXTestRequest &request) {
        return ZVXTestReply{200, {}, request.target, std::chrono::milliseconds(delay)};
    });
    ZVXURLSession session(api ? ZVXURLSessionConfiguration::apiConfiguration()
                              : ZVXURLSessionConfiguration::fileConfiguration());
    std::vector<std::shared_ptr<Outcome>> outcomes;
    for (int i = 0; i < 2 * limit + 2; ++i)
        outcomes.push_back(start(session, ZVXURLRequest(server.url(u"/r%1"_s.arg(i)))));
    QTRY_VERIFY(
        std::all_of(outcomes.begin(), outcomes.end(), [](auto &o) { return o->finishedAs; }));

    QCOMPARE(server.maxConcurrentRequests(), limit);
    QVERIFY(server.maxConcurrentConnections() <= limit);
    for (size_t i = 0; i < outcomes.size(); ++i) {
        QVERIFY(outcomes[i]->checkedOffMainThread);
        QCOMPARE(outcomes[i]->result.data, "/r" + QByteArray::number(i));
        // One at a time means in order.
        if (api && i > 0)
            QVERIFY(outcomes[i]->finishedAs > outcomes[i - 1]->finishedAs);
    }
}

void TestURLSession::untrustedCertificateFailsUntilTrusted()
{
    ZVXTestServer untrusted(m_certificates->untrusted.certificate, m_certificates->untrusted.key);
    ZVXURLSession session(ZVXURLSessionConfiguration::apiConfiguration());
    const ZVXURLRequest request(untrusted.url(u"/status"_s));

    auto failed = start(session, request);
    QTRY_VERIFY(failed->finishedAs);
    QCOMPARE(failed->result.error.domain(), ZuveroURLErrorDomain);
    QCOMPARE(failed->result.error.code(), QNetworkReply::SslHandshakeFailedError);
    QVERIFY(!failed->result.data && !failed->result.response);

    // Trusting its authority takes effect at the next request, after a failure too.
    QCOMPARE(ZuveroAddTrustedCertificateAuthorities(m_certificates->untrusted.authorityPem), 1);
    auto trusted = start(session, request);
    QTRY_VERIFY(trusted->finishedAs);
    QCOMPARE(trusted->result.data, QByteArray("{}"));

    // Withdrawn trust is not bypassed by the connection verified under it.
    ZuveroRemoveTrustedCertificateAuthorities();
    QCOMPARE(ZuveroAddTrustedCertificateAuthorities(m_certificates->trusted.authorityPem), 1);
    auto again = start(session, request);
    QTRY_VERIFY(again->finishedAs);
    QCOMPARE(again->result.error.code(), QNetworkReply::SslHandshakeFailedError);
    QCOMPARE(untrusted.requestCount(), 1);

    ZVXLogCapture log;
    QCOMPARE(ZuveroAddTrustedCertificateAuthorities("no certificate here"), 0);
    QCOMPARE(log.lines(),
             QStringList(u"ZVX ERROR: ZuveroAddTrustedCertificateAuthorities: no PEM "
                         "certificate in the 19 bytes given; nothing added."_s));
}

void TestURLSession::fileCacheAnswersWithoutTheNetwork()
{
    ZVXTestServer server(m_certificates->trusted.certificate, m_certificates->trusted.key);
    server.setHandler([](const ZVXTestRequest &request) {
        if (request.target == "/missing")
            return ZVXTestReply{404, {}, "gone"};
        if (request.target == "/private")
            return ZVXTestReply{200, {{"Cache-Control", "no-store"}}, "p"};
        if (request.target == "/big") // above a twentieth of the 4 MiB
            return ZVXTestReply{200, {}, QByteArray(300 * 1024, 'b')};
        return ZVXTestReply{200, {{"Content-Type", "image/png"}}, "preview bytes"};
    });
    ZVXURLSession session(ZVXURLSessionConfiguration::fileConfiguration());
    for (const char *path : {"/preview", "/missing", "/private", "/big"}) {
        for (int round = 0; round < 2; ++round) {
            auto outcome = start(session, ZVXURLRequest(server.url(QString::fromLatin1(path))));
            QTRY_VERIFY(outcome->finishedAs);
            QVERIFY(outcome->result.data);
        }
    }
    // Only the second preview came from memory.
    QCOMPARE(server.requestCount(), 7);
    const auto cached = session.urlCache()->cachedResponse(server.url(u"/preview"_s));
    QVERIFY(cached);
    QCOMPARE(cached->data, QByteArray("preview bytes"));
    QCOMPARE(cached->response.valueForHTTPHeaderField("content-type"), QByteArray("image/png"));
    QVERIFY(!ZVXURLSession(ZVXURLSessionConfiguration::apiConfiguration()).urlCache());
}

void TestURLSession::encodedRepliesAreDecoded_data()
{
    QTest::addColumn<QByteArray>("encoding");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<bool>("setAcceptEncoding");
    QTest::addColumn<int>("error");

    const QByteArray json = R"({"unreadCount":3,"text":")" + QByteArray(2000, 'z') + "\"}";
    // Encoded bodies are decoded whether the request asked for an encoding or not.
    QTest::newRow("gzip, asked by hand") << QByteArray("gzip") << compress(31, json) << true << 0;
    QTest::newRow("deflate") << QByteArray("deflate") << compress(15, json) << true << 0;
    QTest::newRow("bare deflate") << QByteArray("deflate") << compress(-15, json) << true << 0;
    QTest::newRow("gzip, not asked for") << QByteArray("gzip") << compress(31, json) << false << 0;
    QTest::newRow("damaged gzip") << QByteArray("gzip") << compress(31, json).left(40) << true
                                  << int(QNetworkReply::ProtocolFailure);
    QTest::newRow("unknown encoding")
        << QByteArray("br") << QByteArray("xx") << true << int(QNetworkReply::ProtocolFailure);
}

void TestURLSession::encodedRepliesAreDecoded()
{
    QFETCH(QByteArray, encoding);
    QFETCH(QByteArray, body);
    QFETCH(bool, setAcceptEncoding);
    QFETCH(int, error);
    QVERIFY(!body.isEmpty());

    m_server->setHandler([encoding, body](const ZVXTestRequest &) {
        return ZVXTestReply{500, {{"Content-Encoding", encoding}}, body};
    });
    ZVXLogCapture log;
    ZVXURLSession session(ZVXURLSessionConfiguration::apiConfiguration());
    ZVXURLRequest request(m_server->url(u"/status"_s));
    if (setAcceptEncoding)
        request.setValue("gzip,deflate", "Accept-Encoding");
    auto outcome = start(session, request);
    QTRY_VERIFY(outcome->finishedAs);

    // A server that answered is no transport failure, whatever the status.
    const ZVXURLSessionResult &result = outcome->result;
    QCOMPARE(result.response->statusCode, 500);
    QCOMPARE(result.error.code(), error);
    if (error) {
        QVERIFY(!result.data);
        QCOMPARE(log.lines(),
                 QStringList(u"ZVX ERROR: ZVXURLSession: cannot decode a %1 byte reply in \"%2\"."_s
                                 .arg(body.size())
                                 .arg(QLatin1String(encoding))));
    } else {
        QVERIFY(result.data->startsWith("{\"unreadCount\":3,\"text\":\"zzz"));
        QVERIFY(log.lines().isEmpty());
    }
}

void TestURLSession::timeOutsAndCancellation()
{
    ZVXManualClock clock;
    m_server->setHandler([](const ZVXTestRequest &request) {
        return ZVXTestReply{200, {}, "{}", 0ms, request.target != "/ok"};
    });
    const int received = m_server->requestCount();

    // 60 s without a byte ends a request; the one queued behind it goes ahead.
    ZVXURLSession api(ZVXURLSessionConfiguration::apiConfiguration());
    auto hanging = start(api, ZVXURLRequest(m_server->url(u"/hang"_s)));
    auto queued = start(api, ZVXURLRequest(m_server->url(u"/ok"_s)));
    QTRY_COMPARE(m_server->requestCount(), received + 1);
    clock.advance(59s);
    QCoreApplication::processEvents();
    QVERIFY(!hanging->finishedAs);
    clock.advance(1s);
    QTRY_VERIFY(queued->finishedAs);
    QCOMPARE(hanging->result.error.domain(), ZuveroURLErrorDomain);
    QCOMPARE(hanging->result.error.code(), QNetworkReply::TimeoutError);
    QVERIFY(queued->result.error.isNull());

    // The resource time-out counts from resume(), however lively the transfer.
    ZVXURLSessionConfiguration configuration;
    configuration.timeoutIntervalForRequest = 600s;
    configuration.timeoutIntervalForResource = 300s;
    ZVXURLSession slow(configuration);
    auto longOne = start(slow, ZVXURLRequest(m_server->url(u"/hang"_s)));
    std::shared_ptr<ZVXURLSessionTask> task;
    auto cancelled = start(slow, ZVXURLRequest(m_server->url(u"/hang"_s)), &task);
    QTRY_COMPARE(m_server->requestCount(), received + 4);
    task->cancel();
    clock.advance(300s);
    QTRY_VERIFY(longOne->finishedAs);
    QCOMPARE(longOne->result.error.code(), QNetworkReply::TimeoutError);
    QCOMPARE(cancelled->result.error.code(), QNetworkReply::OperationCanceledError);

    // Destroying a session ends what it still runs, once.
    auto orphan = std::make_unique<ZVXURLSession>(configuration);
    auto left = start(*orphan, ZVXURLRequest(m_server->url(u"/hang"_s)));
    orphan.reset();
    QTRY_VERIFY(left->finishedAs);
    QCOMPARE(left->result.error.code(), QNetworkReply::OperationCanceledError);
}

void TestURLSession::uploadCountersFollowTheTransfer()
{
    m_server->setHandler([](const ZVXTestRequest &request) {
        return ZVXTestReply{200, {}, QByteArray::number(request.body.size())};
    });
    ZVXURLSession session(ZVXURLSessionConfiguration::apiConfiguration());
    ZVXURLRequest request(m_server->url(u"/messages"_s));
    request.setHTTPMethod("POST");
    request.setValue("application/octet-stream", "Content-Type");
    request.setHTTPBody(QByteArray(700 * 1024, 'u'));
    std::shared_ptr<ZVXURLSessionTask> task;
    auto outcome = start(session, request, &task);
    QCOMPARE(task->countOfBytesExpectedToReceive(), ZVXTransferCounters::UnknownSize);
    QTRY_VERIFY(outcome->finishedAs);

    QCOMPARE(outcome->result.data, QByteArray::number(700 * 1024));
    // Qt's closing (0, 0) upload signal does not reset what was sent.
    QCOMPARE(task->countOfBytesSent(), 700 * 1024);
    QCOMPARE(task->countOfBytesExpectedToSend(), 700 * 1024);
    QCOMPARE(task->countOfBytesReceived(), 6);
    QCOMPARE(task->countOfBytesExpectedToReceive(), 6);
}

void TestURLSession::aBodyIsNeverSentTwiceBehindOurBack()
{
    // Each request opens with one answered on the same kept connection; then the server reads
    // the next one and closes without answering, as a server that lets a connection go does.
    ZVXURLSession session(ZVXURLSessionConfiguration::apiConfiguration());
    const auto exchange = [&](const QByteArray &method, const QByteArray &body) {
        int seen = 0;
        m_server->setHandler([&seen](const ZVXTestRequest &) {
            ZVXTestReply reply{200, {}, "{}"};
            reply.drop = ++seen == 2;
            return reply;
        });
        ZVXURLRequest request(m_server->url(u"/messages"_s));
        auto first = start(session, request);
        [&] { QTRY_VERIFY(first->finishedAs); }();
        request.setHTTPMethod(method);
        request.setHTTPBody(body);
        auto second = start(session, request);
        [&] { QTRY_VERIFY(second->finishedAs); }();
        return std::pair(second->result, seen);
    };

    // An upload reaches the server once, and the caller learns that it failed: whether to send
    // it again is the offline queue's decision, not the transport's.
    const auto [upload, uploads] = exchange("POST", "{\"uuid\": \"once\"}");
    QVERIFY(!upload.data);
    QCOMPARE(upload.error.domain(), ZuveroURLErrorDomain);
    QCOMPARE(upload.error.code(), QNetworkReply::RemoteHostClosedError);
    QCOMPARE(uploads, 2);

    // A request that changes nothing goes again, once, on a new connection.
    const auto [read, reads] = exchange("GET", {});
    QVERIFY2(read.error.isNull(), qPrintable(read.error.localizedDescription()));
    QCOMPARE(read.data, QByteArray("{}"));
    QCOMPARE(reads, 3);
}

QTEST_GUILESS_MAIN(TestURLSession)
#include "tst_urlsession.moc"
