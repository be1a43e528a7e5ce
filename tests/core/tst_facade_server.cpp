#include "Toast.h"
#include "ZVXDevServerProcess.h"
#include "ZVXJSON.h"
#include "ZVXLogCapture.h"
#include "ZVXManualClock.h"
#include "ZVXReachability.h"
#include "ZVXTemporaryUserDefaults.h"
#include "Zuvero.h"
#include "ZuveroCertificateAuthorities.h"

#include <QFile>
#include <QNetworkReply>
#include <QPointer>
#include <QTest>

using namespace std::chrono_literals;
using namespace Qt::StringLiterals;

namespace {

const QString SecretHex = u"0a1b2c3d4e5f60718293a4b5c6d7e8f9"_s;
constexpr quint32 Online = ZVXReachabilityFlags::Reachable;

QVariantMap payload(const char *json)
{
    return ZVXJSON::parse(QByteArray(json)).value_or(QVariant()).toMap();
}

} // namespace

class TestFacadeServer : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void conversationEndToEnd();
    void registrationsMerge();
    void queuedWhileOfflineSentInOrder();
    void retriesCountServerRefusalsOnly();
    void replyChecks_data();
    void replyChecks();
    void pushPayloads();

private:
    //! A facade for a user of its own, on the test server.
    std::unique_ptr<Zuvero> facade(const QString &user, const Zuvero::DelegatePtr &delegate = {});
    void addFault(const QVariantMap &fault);
    qint64 counter(const QString &request);
    ZuveroChatMessageList listing(Zuvero *zuvero);
    //! The texts of the server's list, oldest first.
    QStringList texts(Zuvero *zuvero);

    ZVXDevServerProcess m_server;
    std::unique_ptr<ZVXDevClient> m_admin;
    std::unique_ptr<ZVXTemporaryUserDefaults> m_defaults;
    std::shared_ptr<ZVXSettableReachabilitySource> m_network;
    std::unique_ptr<ZVXManualClock> m_clock;
};

void TestFacadeServer::initTestCase()
{
    QVERIFY(m_server.start({u"--api-secret"_s, SecretHex, u"--admin"_s}));
    QFile authority(m_server.authorityPath());
    QVERIFY(authority.open(QIODevice::ReadOnly));
    QCOMPARE(ZuveroAddTrustedCertificateAuthorities(authority.readAll()), 1);
    m_admin = std::make_unique<ZVXDevClient>(
        m_server,
        ZVXDevSign({{u"installationId"_s, u"admin"_s}}, QByteArray::fromHex(SecretHex.toLatin1())));
    // The tests say when the network is there.
    m_network = std::make_shared<ZVXSettableReachabilitySource>(Online);
    ZVXReachability::setSourceFactory([this](const QHostAddress &) { return m_network; });
}

void TestFacadeServer::init()
{
    m_defaults = std::make_unique<ZVXTemporaryUserDefaults>();
    m_clock = std::make_unique<ZVXManualClock>(QDateTime::currentDateTimeUtc());
    m_network->setFlags(Online);
    for (const QString &path : {u"/admin/faults"_s, u"/admin/counters"_s})
        QCOMPARE(m_admin->wait(m_admin->manager().deleteResource(m_admin->request(path))).status,
                 200);
}

void TestFacadeServer::cleanup()
{
    m_clock.reset();
    m_defaults.reset();
}

std::unique_ptr<Zuvero> TestFacadeServer::facade(const QString &user,
                                                 const Zuvero::DelegatePtr &delegate)
{
    const QString host = QUrl(m_server.origin()).authority();
    std::unique_ptr<Zuvero> zuvero(Zuvero::initWithApiSecret(SecretHex, host, delegate));
    zuvero->setUserIdentifier(u"%1-%2"_s.arg(user, QString::number(quintptr(zuvero.get()), 16)));
    return zuvero;
}

void TestFacadeServer::addFault(const QVariantMap &fault)
{
    QCOMPARE(m_admin->postJSON(u"/admin/faults"_s, fault).status, 200);
}

qint64 TestFacadeServer::counter(const QString &request)
{
    return m_admin->requestCount(request);
}

ZuveroChatMessageList TestFacadeServer::listing(Zuvero *zuvero)
{
    std::optional<ZuveroChatMessageList> result;
    bool done = false;
    zuvero->connection()->loadMessageSinceDate(
        QDateTime(), 50,
        [&](const std::optional<ZuveroChatMessageList> &messages, bool, const ZuveroError &) {
            result = messages;
            done = true;
        });
    if (!QTest::qWaitFor([&] { return done; }, 10000))
        return {};
    return result.value_or(ZuveroChatMessageList());
}

QStringList TestFacadeServer::texts(Zuvero *zuvero)
{
    QStringList texts;
    for (const auto &message : listing(zuvero))
        texts << message->text().value_or(QString());
    return texts;
}

void TestFacadeServer::conversationEndToEnd()
{
    auto zuvero = facade(u"e2e"_s);
    int welcomes = 0;
    auto welcome = ZuveroNotificationCenter::defaultCenter()->addObserver(
        ZuveroWelcomeMessageDidChangeNotification, zuvero.get(),
        [&](const ZuveroNotification &) { ++welcomes; });
    bool registered = false;
    zuvero->registerIfNeeded([&](bool success, const ZuveroError &error) {
        QVERIFY2(success, qPrintable(error.localizedDescription()));
        registered = true;
    });
    QTRY_VERIFY(registered);
    // The server's welcome text and polling interval come with the registration.
    QTRY_VERIFY(welcomes >= 1);
    QVERIFY(!zuvero->welcomeMessage().value_or(QString()).isEmpty());

    // A message with a picture goes up as a multipart body and comes back with its files.
    QImage picture(64, 48, QImage::Format_RGB32);
    picture.fill(Qt::darkCyan);
    auto message = ZuveroChatMessage::initWithText(
        u"Grüße ✓"_s, ZuveroChatAttachment::initWithImage(ZuveroImage::initWithImage(picture)));
    QList<double> uploads;
    bool sent = false;
    zuvero->connection()->sendChatMessage(
        message,
        [&](bool success, const ZuveroError &error) {
            QVERIFY2(success, qPrintable(error.localizedDescription()));
            sent = true;
        },
        [&](double upload, double) { uploads << upload; });
    QTRY_VERIFY(sent);
    QCOMPARE(uploads.last(), 1.0);

    const ZuveroChatMessageList messages = listing(zuvero.get());
    QCOMPARE(messages.size(), 1);
    QCOMPARE(messages.first()->uuid(), message->uuid());
    QCOMPARE(messages.first()->text(), u"Grüße ✓"_s);
    const ZuveroChatAttachmentPtr attachment = messages.first()->attachments()->first();
    QVERIFY(attachment->dataURL().scheme() == QLatin1String("https") && attachment->isImage());

    // An agent answers; the unread count rises, and falls again once the answer is marked read.
    QCOMPARE(m_admin
                 ->agentReply(m_admin->conversationId(u"userId"_s, *zuvero->userIdentifier()),
                              u"Hello!"_s)
                 .status,
             200);
    qint64 count = -1;
    zuvero->fetchUnreadCountWithCompletionHandler(
        [&](qint64 unread, const ZuveroError &) { count = unread; });
    QTRY_COMPARE(count, 1);
    QCOMPARE(zuvero->unreadCount(), 1);
    const ZuveroChatMessageList withAnswer = listing(zuvero.get());
    QCOMPARE(withAnswer.size(), 2);
    QVERIFY(withAnswer.last()->isAgentMessage());
    bool marked = false;
    zuvero->connection()->markReadMessages(
        {withAnswer.last()}, [&](bool success, const ZuveroError &) { marked = success; });
    QTRY_VERIFY(marked);
    QCOMPARE(zuvero->unreadCount(), 0);
}

void TestFacadeServer::registrationsMerge()
{
    auto zuvero = facade(u"merge"_s);
    QTRY_COMPARE(counter(u"POST /api/1.0/register"_s), 1); // the identity's own
    QTRY_VERIFY(!zuvero->needsRegistration());

    // Without completions, calls in one turn of the event loop make one request: the last.
    for (int i = 0; i < 3; ++i) {
        zuvero->setNeedsRegistration(true);
        zuvero->registerIfNeeded();
    }
    QTRY_COMPARE(counter(u"POST /api/1.0/register"_s), 2);
    // With completions, each goes out.
    int answered = 0;
    for (int i = 0; i < 3; ++i) {
        zuvero->setNeedsRegistration(true);
        zuvero->registerIfNeeded([&](bool success, const ZuveroError &) { answered += success; });
    }
    QTRY_COMPARE(answered, 3);
    QCOMPARE(counter(u"POST /api/1.0/register"_s), 5);

    // Requests asked for while a registration is under way wait for it and keep their order: a
    // text does not overtake the one before it, which waits for the registration it started.
    zuvero->setNeedsRegistration(true);
    for (const char *text : {"one", "two", "three"})
        zuvero->sendMessage(QString::fromLatin1(text));
    QTRY_COMPARE(texts(zuvero.get()).size(), 3);
    QCOMPARE(texts(zuvero.get()), (QStringList{u"one"_s, u"two"_s, u"three"_s}));
    QCOMPARE(counter(u"POST /api/1.0/register"_s), 6);

    // When that registration fails, the next request registers again, once; the text that met
    // the failure waits in the queue and follows.
    addFault({{u"path"_s, u"/api/1.0/register"_s}, {u"kind"_s, u"status"_s}, {u"status"_s, 503}});
    zuvero->setNeedsRegistration(true);
    for (const char *text : {"four", "five"})
        zuvero->sendMessage(QString::fromLatin1(text));
    QTRY_COMPARE(texts(zuvero.get()).size(), 5);
    QCOMPARE(texts(zuvero.get()).mid(3), (QStringList{u"five"_s, u"four"_s}));
    QCOMPARE(counter(u"POST /api/1.0/register"_s), 8);
    QVERIFY(zuvero->offlineMessages().isEmpty());
}

void TestFacadeServer::queuedWhileOfflineSentInOrder()
{
    auto zuvero = facade(u"offline"_s);
    QTRY_VERIFY(!zuvero->needsRegistration());
    m_network->setFlags(0);
    QList<ZuveroChatMessagePtr> finished;
    int progress = 0;
    auto finish = ZuveroNotificationCenter::defaultCenter()->addObserver(
        ZuveroChatDidFinishSendingOfflineMessagesNotification, zuvero.get(),
        [&](const ZuveroNotification &n) {
            finished << n.userInfo().value(u"message"_s).value<ZuveroChatMessagePtr>();
        });
    auto uploads = ZuveroNotificationCenter::defaultCenter()->addObserver(
        ZuveroChatOfflineMessageUploadProgressNotification, zuvero.get(),
        [&](const ZuveroNotification &) { ++progress; });

    bool accepted = false;
    zuvero->postMessage(u"one"_s, [&](bool success, const ZuveroError &) { accepted = success; });
    QVERIFY(accepted); // told at once, though nothing can be sent
    zuvero->sendMessage(u"two"_s);
    zuvero->sendMessage(u"   "_s); // blank: nothing
    zuvero->sendMessage(u"three"_s);
    QTRY_COMPARE(zuvero->offlineMessages().size(), 3);
    QVERIFY(zuvero->offlineMessages().first()->isOffline());

    // The network comes back: a second later one pass sends all three, oldest first.
    m_network->setFlags(Online);
    m_clock->advance(999ms);
    QCOMPARE(counter(u"POST /api/1.0/messages"_s), 0);
    m_clock->advance(1ms);
    QTRY_VERIFY(zuvero->offlineMessages().isEmpty());
    QVERIFY(finished.isEmpty());
    m_clock->advance(200ms);
    QCOMPARE(finished.size(), 1);
    QCOMPARE(finished.first()->text(), u"three"_s);
    QVERIFY(progress >= 3);

    QCOMPARE(texts(zuvero.get()).join(u' '), u"one two three"_s);
}

void TestFacadeServer::retriesCountServerRefusalsOnly()
{
    auto zuvero = facade(u"retries"_s);
    QTRY_VERIFY(!zuvero->needsRegistration());
    int passes = 0;
    auto finish = ZuveroNotificationCenter::defaultCenter()->addObserver(
        ZuveroChatDidFinishSendingOfflineMessagesNotification, zuvero.get(),
        [&](const ZuveroNotification &) { ++passes; });
    const auto runPass = [&] {
        const int before = passes;
        zuvero->sendOfflineMessages();
        // The pass ends 0.2 s (on the test clock) after its last answer.
        QTRY_VERIFY((m_clock->advance(20ms), passes > before));
    };
    const auto refuse = [&](int count) {
        addFault(
            {{u"path"_s, u"/api/1.0/messages"_s}, {u"kind"_s, u"status"_s}, {u"count"_s, count}});
    };
    const auto first = ZuveroChatMessage::initWithText(u"first"_s);
    zuvero->addOfflineMessage(first);

    // A dropped connection is no refusal: three refusals after it still leave the message queued.
    addFault({{u"path"_s, u"/api/1.0/messages"_s}, {u"kind"_s, u"drop"_s}, {u"count"_s, 10}});
    runPass();
    m_admin->wait(m_admin->manager().deleteResource(m_admin->request(u"/admin/faults"_s)));
    refuse(3);
    for (int i = 0; i < 3; ++i)
        runPass();
    QCOMPARE(zuvero->offlineMessages(), ZuveroChatMessageList{first});
    QVERIFY(!first->isErrored());

    // The fourth refusal gives it up: marked errored, a notice that closes by itself, out of
    // the queue.
    refuse(1);
    runPass();
    QVERIFY(first->isErrored());
    QVERIFY(zuvero->offlineMessages().isEmpty());
    QPointer<Toast> toast = Toast::current();
    QVERIFY(toast && toast->isVisible());
    QCOMPARE(toast->text(), u"Could not send the message"_s);
    m_clock->advance(3s);
    QTRY_VERIFY(!toast);

    // After a success, the next refusal gives its message up at once and the pass goes on.
    const auto a = ZuveroChatMessage::initWithText(u"a"_s);
    zuvero->addOfflineMessage(a);
    runPass();
    const auto b = ZuveroChatMessage::initWithText(u"b"_s);
    const auto c = ZuveroChatMessage::initWithText(u"c"_s);
    zuvero->addOfflineMessage(b);
    zuvero->addOfflineMessage(b); // the same message twice is queued once
    zuvero->addOfflineMessage(c);
    QCOMPARE(zuvero->offlineMessages().size(), 2);
    refuse(1);
    runPass();
    QVERIFY(b->isErrored() && !c->isErrored() && !c->isOffline());
    QCOMPARE(texts(zuvero.get()).join(u' '), u"a c"_s);
}

void TestFacadeServer::replyChecks_data()
{
    // Each fault meets two requests: the status call, checked as every call is, and the unread
    // count fetch, with its own order (the status before the JSON, and "unreadCount" required).
    QTest::addColumn<QVariantMap>("fault");
    QTest::addColumn<QString>("domain");
    QTest::addColumn<qint64>("code"); // 0: any
    QTest::addColumn<QString>("description");
    QTest::addColumn<QString>("logged"); // the start of the line logged, if any
    QTest::addColumn<QString>("fetchDomain"); // empty: the fetch succeeds
    QTest::addColumn<qint64>("fetchCode");

    const QString json = QString(ZuveroJSONErrorDomain);
    const QString http = QString(ZuveroHTTPErrorDomain);
    const QString errors = QString(ZuveroErrorDomain);
    auto fault = [](const char *kind, int status, const char *body = nullptr) {
        QVariantMap f{{u"path"_s, u"/api/1.0/status"_s},
                      {u"kind"_s, QString::fromLatin1(kind)},
                      {u"status"_s, status},
                      {u"count"_s, 2}};
        if (body)
            f.insert(u"body"_s, QString::fromLatin1(body));
        return f;
    };
    QTest::newRow("204 without a body")
        << fault("empty", 204) << json << qint64(ZuveroJSONErrorParse) << QString()
        << "ZVX: EXPECTED JSON, GOT THIS:  (<>) [http status code: 204]" << json
        << qint64(ZuveroJSONErrorParse);
    QTest::newRow("500 with an error")
        << fault("status", 500, R"({"error":"boom"})") << errors << qint64(500) << "boom"
        << "ZVX: ZuveroConnection: received HTTP code 500: boom" << http << qint64(500);
    QTest::newRow("503 with both texts and a count")
        << fault("status", 503, R"({"localizedError":"A","error":"B","unreadCount":3})") << errors
        << qint64(503) << "A"
        << "ZVX: ZuveroConnection: received HTTP code 503: A" << http << qint64(503);
    QTest::newRow("500 with nothing")
        << fault("status", 500, "{}") << errors << qint64(500) << "Server Error"
        << "ZVX: ZuveroConnection: received HTTP code 500: Server Error" << http << qint64(500);
    QTest::newRow("500 not JSON") << fault("nonJSON", 500) << json << qint64(ZuveroJSONErrorParse)
                                  << QString() << "ZVX: EXPECTED JSON, GOT THIS: <html>" << http
                                  << qint64(500);
    QTest::newRow("200 not JSON") << fault("nonJSON", 200) << json << qint64(ZuveroJSONErrorParse)
                                  << QString() << "ZVX: EXPECTED JSON, GOT THIS: <html>" << json
                                  << qint64(ZuveroJSONErrorParse);
    QTest::newRow("200 without a count")
        << fault("status", 200, "{}") << QString() << qint64(0) << QString() << QString()
        << QString(ZuveroURLErrorDomain) << qint64(ZuveroURLErrorBadServerResponse);
    QVariantMap dropped = fault("drop", 500);
    dropped.insert(u"count"_s, 10);
    QTest::newRow("dropped connection")
        << dropped << QString(ZuveroURLErrorDomain) << qint64(0) << QString() << QString()
        << QString(ZuveroURLErrorDomain) << qint64(0);
}

void TestFacadeServer::replyChecks()
{
    QFETCH(QVariantMap, fault);
    QFETCH(QString, domain);
    QFETCH(qint64, code);
    QFETCH(QString, description);
    QFETCH(QString, logged);
    QFETCH(QString, fetchDomain);
    QFETCH(qint64, fetchCode);
    auto zuvero = facade(u"checks"_s);
    QTRY_VERIFY(!zuvero->needsRegistration());
    addFault(fault);

    ZVXLogCapture log;
    std::optional<ZuveroError> failure;
    qint64 count = -1;
    zuvero->connection()->loadUserStatus([&](qint64 unread, const ZuveroError &error) {
        count = unread;
        failure = error;
    });
    QTRY_VERIFY(failure);
    if (domain.isEmpty()) {
        QVERIFY2(failure->isNull(), qPrintable(failure->localizedDescription()));
    } else {
        QCOMPARE(count, ZuveroNotFound);
        QCOMPARE(failure->domain(), domain);
        if (code)
            QCOMPARE(failure->code(), code);
    }
    if (!description.isEmpty()) {
        QCOMPARE(failure->localizedDescription(), description);
        const QString debug = failure->userInfo().value(u"debugMessage"_s).toString();
        QCOMPARE(debug,
                 fault.value(u"body"_s).toString().contains(QLatin1String("\"error\""))
                     ? (description == QLatin1String("A") ? u"B"_s : description)
                     : u"unknown error from backend"_s);
    }
    const QStringList lines = log.lines();
    if (logged.isEmpty())
        QVERIFY2(lines.filter(u"EXPECTED"_s).isEmpty(), qPrintable(lines.join(u'\n')));
    else
        QVERIFY2(std::any_of(lines.cbegin(), lines.cend(),
                             [&](const QString &l) { return l.startsWith(logged); }),
                 qPrintable(lines.join(u'\n')));

    // The fetch logs nothing of its own, and its errors carry no further information.
    log.clear();
    std::optional<ZuveroError> fetchFailure;
    zuvero->fetchUnreadCountWithCompletionHandler([&](qint64 unread, const ZuveroError &error) {
        count = unread;
        fetchFailure = error;
    });
    QTRY_VERIFY(fetchFailure);
    if (fetchDomain.isEmpty()) {
        QVERIFY2(fetchFailure->isNull(), qPrintable(fetchFailure->localizedDescription()));
        return;
    }
    QCOMPARE(count, ZuveroNotFound);
    QCOMPARE(fetchFailure->domain(), fetchDomain);
    if (fetchCode)
        QCOMPARE(fetchFailure->code(), fetchCode);
    if (fetchDomain == ZuveroHTTPErrorDomain)
        QVERIFY(fetchFailure->userInfo().isEmpty());
    QVERIFY2(log.lines().filter(u"EXPECTED"_s).isEmpty()
                 && log.lines().filter(u"received HTTP code"_s).isEmpty(),
             qPrintable(log.lines().join(u'\n')));
}

void TestFacadeServer::pushPayloads()
{
    auto delegate = std::make_shared<ZuveroDelegate>();
    int opened = 0;
    bool allowBanner = true;
    delegate->zuveroDisplayChatViewController = [&](Zuvero *) { ++opened; };
    delegate->zuveroShouldDisplayNotificationWithText
        = [&](Zuvero *, const QString &) { return allowBanner; };
    auto zuvero = facade(u"push"_s, delegate);
    QTRY_VERIFY(!zuvero->needsRegistration());
    ZVXLogCapture log;

    // Another service's, a newer format's, or another user's payload is not ours.
    QVERIFY(!zuvero->consumeReceivedRemoteNotification(payload(R"({"aps": {"alert": "x"}})")));
    QVERIFY(!zuvero->consumeReceivedRemoteNotification(
        payload(R"({"zuvero": "2.0", "appdata": {"t": "m", "uuid": "1"}})")));
    QVERIFY(!zuvero->consumeReceivedRemoteNotification(
        payload(R"({"zuvero": "1.10", "badge": 9, "appdata": {"uid": "someone else"}})")));
    QCOMPARE(zuvero->unreadCount(), 0);

    // Within two seconds of the start, a push is the tap that opened the application: show the
    // chat.
    m_clock->advance(1s);
    QVERIFY(zuvero->consumeReceivedRemoteNotification(payload(
        R"({"aps": {"badge": 4, "alert": "Hi"}, "appdata": {"zuvero": "1.5", "t": "m", "uuid": "p1"}})")));
    QCOMPARE(zuvero->unreadCount(), 4);
    QCOMPARE(opened, 1);

    // Later, it is a banner, unless the host declines it.
    m_clock->advance(10s);
    allowBanner = false;
    QVERIFY(zuvero->consumeReceivedRemoteNotification(
        payload(R"({"zuvero": "1", "alert": "Quiet", "appdata": {"t": "m", "uuid": "p2"}})")));
    QVERIFY(log.lines().filter(u"new message"_s).isEmpty());
    allowBanner = true;

    // A real payload, from the server's push stream after an agent's answer.
    const QByteArray token = QByteArray::fromHex("aabbccdd");
    zuvero->setDeviceToken(token);
    bool registered = false;
    zuvero->setNeedsRegistration(true);
    zuvero->registerIfNeeded([&](bool success, const ZuveroError &) { registered = success; });
    QTRY_VERIFY(registered);
    ZVXDevClient device(m_server, *zuvero->jwt());
    QNetworkReply *stream = device.manager().get(device.request(u"/api/1.0/push"_s));
    QByteArray events;
    connect(stream, &QIODevice::readyRead, this, [&] { events += stream->readAll(); });
    QTRY_VERIFY(events.contains(": connected"));
    QCOMPARE(m_admin
                 ->agentReply(m_admin->conversationId(u"userId"_s, *zuvero->userIdentifier()),
                              u"An answer"_s)
                 .status,
             200);
    QTRY_VERIFY(events.contains("\ndata: "));
    const qsizetype start = events.indexOf("\ndata: ") + 7;
    const QVariantMap pushed
        = payload(events.mid(start, events.indexOf('\n', start) - start).constData());
    stream->abort();
    QVERIFY(zuvero->consumeReceivedRemoteNotification(pushed));
    QCOMPARE(zuvero->unreadCount(), 1);

    // Answers typed into a notification: the send action sends even an empty one, others only text.
    m_network->setFlags(0);
    zuvero->handleRemoteNotificationWithIdentifier(
        u"OTHER"_s, {{ZuveroNotificationActionResponseTypedTextKey, u"  "_s}});
    zuvero->handleRemoteNotificationWithIdentifier(ZuveroNotificationActionSend, {});
    QTRY_COMPARE(zuvero->offlineMessages().size(), 1);
    QVERIFY(!zuvero->offlineMessages().first()->text().value_or(u"x"_s).size());
    QVERIFY(!log.lines().filter(u"Zuvero: new message from"_s).filter(u"An answer"_s).isEmpty());
}

QTEST_MAIN(TestFacadeServer)
#include "tst_facade_server.moc"
