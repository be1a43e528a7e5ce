#include "ZVXJWT.h"
#include "ZVXLogCapture.h"
#include "ZVXManualClock.h"
#include "ZVXReachability.h"
#include "ZVXTemporaryUserDefaults.h"
#include "Zuvero.h"
#include "ZuveroApplication.h"
#include "ZuveroConnection_p.h"
#include "ZuveroData.h"
#include "ZuveroException.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <thread>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {
// A port nobody listens on: registrations fail at once, without waiting on a name lookup.
const QString ClosedHost = u"127.0.0.1:9"_s;
const QString Secret = u"74657374"_s; // "test"
const QString SecretKey = u"9f86d081884c7d659a2feaa0c55ad015a3bf4f1b2b0b822cd15d6c15b0f00a08"_s;
} // namespace

class TestFacade : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { m_defaults = std::make_unique<ZVXTemporaryUserDefaults>(); }
    void cleanup() { m_defaults.reset(); }
    void credentials();
    void tokenClaimsBecomeTheIdentity();
    void unreadCountWaitsWhileTheChatShows();
    void networkActivityBursts();
    void copiesStartSomeSettingsAfresh();
    void requestsAndBodies();
    void oldCacheFilesAreRemoved();
    void sharedInstanceReadsTheHostsConfiguration();
    void offlineMessagesOutliveTheProcess();

private:
    std::unique_ptr<ZVXTemporaryUserDefaults> m_defaults;
};

void TestFacade::credentials()
{
    std::unique_ptr<Zuvero> signing(Zuvero::initWithApiSecret(Secret, ClosedHost, {}));
    QCOMPARE(signing->apiKey(), SecretKey);
    const std::optional<QString> token = signing->jwt();
    QVERIFY(token);
    const auto verified = ZVXJWT::initWithJWT(token, QByteArray("test"));
    QVERIFY(verified);
    QCOMPARE(verified->payload().value(u"apiKey"_s), QVariant(SecretKey));
    QCOMPARE(verified->payload().value(u"installationId"_s),
             QVariant(signing->installationIdentifier()));
    QCOMPARE(signing->installationIdentifier(), signing->installationIdentifier().toUpper());
    QCOMPARE(signing->sdkVersion(), QStringLiteral(ZUVERO_TEST_VERSION));

    // A key alone makes no token; an empty secret falls back to the key; a bad secret makes no
    // facade.
    std::unique_ptr<Zuvero> keyed(Zuvero::initWithConfigurationDictionary(
        QVariantMap{{u"apiSecret"_s, QString()}, {u"apiKey"_s, u"k"_s}}));
    QCOMPARE(keyed->apiKey(), u"k"_s);
    QVERIFY(!keyed->jwt());
    QCOMPARE(keyed->hostname(), QString(ZuveroDefaultHostname));
    QVERIFY(!Zuvero::initWithConfigurationDictionary(QVariantMap{{u"apiSecret"_s, u"abc"_s}}));
    QVERIFY_THROWS_EXCEPTION(ZuveroException, keyed->chatViewController());

    // Off the main thread, creation is a programming error.
    QString name;
    std::thread worker([&] {
        try {
            Zuvero::initWithApiKey(u"k"_s);
        } catch (const ZuveroException &e) {
            name = e.name();
        }
    });
    worker.join();
    QCOMPARE(name, u"Must run on main thread"_s);
}

void TestFacade::tokenClaimsBecomeTheIdentity()
{
    std::unique_ptr<Zuvero> zuvero(Zuvero::initWithApiKey(u"k"_s, ClosedHost, {}));
    ZVXJWT token;
    token.setPayload(
        {{u"userId"_s, u"u1"_s}, {u"userName"_s, u"Ana"_s}, {u"extra"_s, u"not a dictionary"_s}});
    zuvero->saveCachedMessages({ZuveroChatMessage::init()}, true);
    zuvero->setJwt(token.signedTokenWithSecret(QByteArray("server's secret")));
    QCOMPARE(zuvero->userIdentifier(), u"u1"_s);
    QCOMPARE(zuvero->userName(), u"Ana"_s);
    QVERIFY(!zuvero->authenticationInfo());
    // A new identity starts a new conversation.
    QVERIFY(zuvero->cachedConversation()
                .value(ZuveroCachedConversationMessagesKey)
                .value<ZuveroChatMessageList>()
                .isEmpty());
}

void TestFacade::unreadCountWaitsWhileTheChatShows()
{
    auto delegate = std::make_shared<ZuveroDelegate>();
    QStringList events;
    delegate->zuveroUnreadCountDidChange
        = [&](const ZuveroNotification &n) { events << u"delegate:"_s + n.name(); };
    std::unique_ptr<Zuvero> zuvero(Zuvero::initWithApiKey(u"k"_s, ClosedHost, delegate));
    auto observer = ZuveroNotificationCenter::defaultCenter()->addObserver(
        ZuveroChatUnreadCountDidChangeNotification, zuvero.get(),
        [&](const ZuveroNotification &) { events << u"notification"_s; });

    zuvero->updateUnreadCount(3);
    QCOMPARE(
        events,
        (QStringList{u"notification"_s, u"delegate:ZuveroChatUnreadCountDidChangeNotification"_s}));
    QCOMPARE(ZuveroApplication::sharedApplication()->applicationIconBadgeNumber(), 3);

    // Two screens: the count held back applies when the last one goes.
    QObject screen, other;
    ZuveroChatScreenVisibility shown = zuvero->chatViewControllerDidAppear(&screen);
    ZuveroChatScreenVisibility alsoShown = zuvero->chatViewControllerDidAppear(&other);
    zuvero->updateUnreadCount(5);
    QCOMPARE(zuvero->unreadCount(), 3);
    zuvero->chatViewControllerDidDisappear(shown);
    QVERIFY(!shown.isActive());
    zuvero->chatViewControllerDidDisappear(shown); // twice is once
    QCOMPARE(zuvero->unreadCount(), 3);
    zuvero->chatViewControllerDidDisappear(alsoShown);
    QCOMPARE(zuvero->unreadCount(), 5);
    QCOMPARE(events.size(), 4);

    {
        const ZuveroChatScreenVisibility visible = zuvero->chatViewControllerDidAppear(&screen);
        zuvero->updateUnreadCount(2); // a falling count applies at once
        QCOMPARE(zuvero->unreadCount(), 2);
        zuvero->updateUnreadCount(2); // unchanged, and the badge already shows it
        QCOMPARE(events.size(), 6);
        zuvero->updateUnreadCount(7);
        QCOMPARE(zuvero->unreadCount(), 2);
    }
    // A screen destroyed without saying it disappeared ends its visibility all the same.
    QCOMPARE(zuvero->unreadCount(), 7);

    // A visibility may outlive its facade.
    ZuveroChatScreenVisibility orphan = zuvero->chatViewControllerDidAppear(&screen);
    zuvero.reset();
    QVERIFY(!orphan.isActive());
}

void TestFacade::networkActivityBursts()
{
    ZVXManualClock clock;
    auto delegate = std::make_shared<ZuveroDelegate>();
    int begun = 0, ended = 0;
    delegate->zuveroDidBeginNetworkActivity = [&](Zuvero *) { ++begun; };
    delegate->zuveroDidEndNetworkActivity = [&](Zuvero *) { ++ended; };
    std::unique_ptr<Zuvero> zuvero(Zuvero::initWithApiKey(u"k"_s, ClosedHost, delegate));

    zuvero->beginNetworkActivity();
    zuvero->endNetworkActivity();
    clock.advance(200ms);
    zuvero->beginNetworkActivity(); // within 0.3 s of the last end: the same burst
    clock.advance(100ms);
    zuvero->endNetworkActivity();
    QCOMPARE(begun, 1);
    clock.advance(299ms);
    QCOMPARE(ended, 0);
    clock.advance(1ms);
    QCOMPARE(ended, 1);
}

void TestFacade::copiesStartSomeSettingsAfresh()
{
    std::unique_ptr<Zuvero> zuvero(Zuvero::initWithApiSecret(Secret, ClosedHost, {}));
    zuvero->setLanguage(u"xx-YY"_s);
    zuvero->setUpdateAppBadgeNumber(false);
    zuvero->setPollingInterval(42);
    zuvero->appearance().tintColor = Qt::red;
    zuvero->appearance().inputBarTintColor = Qt::green;
    zuvero->setMessageContextInfo(QVariantMap{{u"page"_s, 1}});
    std::unique_ptr<Zuvero> copy(zuvero->copyWithZone());
    QCOMPARE(copy->jwt(), zuvero->jwt());
    QCOMPARE(copy->apiKey(), SecretKey);
    QCOMPARE(copy->appearance().tintColor, QColor(Qt::red));
    QVERIFY(!copy->appearance().inputBarTintColor.isValid());
    QVERIFY(copy->language() != u"xx-YY"_s);
    QVERIFY(copy->updateAppBadgeNumber());
    QCOMPARE(copy->pollingInterval(), 5.0);
    QVERIFY(!copy->messageContextInfo());
}

void TestFacade::requestsAndBodies()
{
    std::unique_ptr<Zuvero> keyed(Zuvero::initWithApiKey(u"k"_s, ClosedHost, {}));
    ZuveroConnectionPrivate *connection = ZuveroConnectionPrivate::get(keyed->connection());
    // Without a token there is no token header at all, and file URLs stay as they are.
    ZVXURLRequest request = connection->requestWithPath(u"/status"_s);
    QCOMPARE(request.url().toString(), u"https://127.0.0.1:9/api/1.0/status"_s);
    for (const auto &[name, value] : request.allHTTPHeaderFields())
        QVERIFY2(name != "X-ZVL-JWT", value.constData());
    const QUrl file(u"https://files.example.com/a.png?a=1"_s);
    QCOMPARE(connection->cacheableRequestWithURL(file)->url(), file);
    QVERIFY(!connection->cacheableRequestWithURL(QUrl()));

    std::unique_ptr<Zuvero> signing(Zuvero::initWithApiSecret(Secret, ClosedHost, {}));
    connection = ZuveroConnectionPrivate::get(signing->connection());
    const QString token = *signing->jwt();
    QCOMPARE(connection->requestWithPath(u"/status"_s).valueForHTTPHeaderField("X-ZVL-JWT"),
             token.toUtf8());
    // The token rides in the query of the API host's own files, and goes nowhere else.
    const QUrl ours(u"https://127.0.0.1:9/files/a.png?a=1"_s);
    const ZVXURLRequest fileRequest = *connection->cacheableRequestWithURL(ours);
    QCOMPARE(fileRequest.url().query(QUrl::FullyEncoded), u"a=1&jwt="_s + token);
    QVERIFY(fileRequest.valueForHTTPHeaderField("X-ZVL-JWT").isEmpty());
    QCOMPARE(connection->cacheableRequestWithURL(file)->url(), file);
    QUrl plain = ours;
    plain.setScheme(u"http"_s);
    QCOMPARE(connection->cacheableRequestWithURL(plain)->url(), plain);

    // The read mark names the latest whole second of its messages (the queries and the bodies
    // themselves are pinned by the wire fixtures).
    auto late = ZuveroChatMessage::init(), early = ZuveroChatMessage::init();
    late->setDate(QDateTime::fromMSecsSinceEpoch(1000900, Qt::UTC));
    early->setDate(QDateTime::fromMSecsSinceEpoch(999000, Qt::UTC));
    QCOMPARE(ZuveroConnectionPrivate::markBody({late, early})
                 .value(u"lastReadMessageDate"_s)
                 .toLongLong(),
             1000);
}

void TestFacade::oldCacheFilesAreRemoved()
{
    const QDir cache(QStandardPaths::writableLocation(QStandardPaths::CacheLocation));
    QVERIFY(cache.mkpath(u"ZVXFileCache/inner"_s));
    QVERIFY(cache.mkpath(u"keep"_s));
    for (const char *name :
         {"ZVXFileCache/inner/blob", "keep/ZVXCachedMessages-42.plist", "keep/mine.txt"}) {
        QFile file(cache.filePath(QLatin1String(name)));
        QVERIFY(file.open(QIODevice::WriteOnly));
    }
    ZVXLogCapture log;
    std::unique_ptr<Zuvero> zuvero(Zuvero::initWithApiKey(u"k"_s, ClosedHost, {}));
    QVERIFY(!cache.exists(u"ZVXFileCache"_s));
    QVERIFY(!cache.exists(u"keep/ZVXCachedMessages-42.plist"_s));
    QVERIFY(cache.exists(u"keep/mine.txt"_s));
    QCOMPARE(log.lines().filter(u"ZVX: Cache file deleted : "_s).size(), 2);
    QDir(cache.filePath(u"keep"_s)).removeRecursively();
}

void TestFacade::sharedInstanceReadsTheHostsConfiguration()
{
    // A host's "ZuveroConfig.json" in its configuration folder.
    const QDir folder(QStandardPaths::writableLocation(QStandardPaths::AppConfigLocation));
    QVERIFY(folder.mkpath(u"."_s));
    QFile file(folder.filePath(u"ZuveroConfig.json"_s));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(
        R"({"apiKey": "from-file", "hostname": "127.0.0.1:9", "tintColor": "#FF0000", "title": "Help"})");
    file.close();
    Zuvero *shared = Zuvero::sharedInstance();
    QVERIFY(shared);
    QCOMPARE(Zuvero::sharedInstance(), shared);
    QCOMPARE(shared->apiKey(), u"from-file"_s);
    QCOMPARE(shared->appearance().sendTintColor, QColor(Qt::red));
    QCOMPARE(shared->title(), u"Help"_s);
    file.remove();
}

void TestFacade::offlineMessagesOutliveTheProcess()
{
    auto network = std::make_shared<ZVXSettableReachabilitySource>(ZVXReachabilityFlags::Reachable);
    ZVXReachability::setSourceFactory([network](const QHostAddress &) { return network; });
    const auto restoreSource = qScopeGuard([] { ZVXReachability::setSourceFactory({}); });
    QTemporaryDir folder;
    const auto make = [&](const QString &user) {
        std::unique_ptr<Zuvero> zuvero(Zuvero::initWithApiSecret(Secret, ClosedHost, {}));
        zuvero->setOfflineMessagesDirectory(folder.path());
        zuvero->setPersistsOfflineMessages(true);
        zuvero->setUserIdentifier(user);
        return zuvero;
    };
    const auto files
        = [&] { return QDir(folder.path()).entryList({u"offline-*.json"_s}, QDir::Files); };

    // A text is in the file from the moment it is accepted: while it is being sent (nobody
    // listens on this host), and then in the queue.
    std::unique_ptr<Zuvero> ana = make(u"ana"_s);
    QVERIFY(files().isEmpty());
    ana->sendMessage(u"one"_s);
    QCOMPARE(files().size(), 1);
    const QString anaFile = folder.filePath(files().first());
    QCOMPARE(QFileInfo(anaFile).permissions()
                 & (QFile::ReadGroup | QFile::WriteGroup | QFile::ReadOther | QFile::WriteOther),
             QFile::Permissions());
    QTRY_COMPARE(ana->offlineMessages().size(), 1);
    network->setFlags(0);
    auto photo = ZuveroChatAttachment::init();
    photo->setContentType(u"image/png"_s);
    photo->setFilename(u"a.png"_s);
    photo->setData(QByteArray("\x89PNG\r\n\x1a\n\0\xff", 10));
    const ZuveroChatMessagePtr withFile = ZuveroChatMessage::initWithText(std::nullopt, photo);
    ana->addOfflineMessage(withFile);
    ana->sendMessage(u"three"_s);
    QTRY_COMPARE(ana->offlineMessages().size(), 3);
    const ZuveroChatMessageList written = ana->offlineMessages();

    // Another user's queue is another file; the first stays for its owner's return.
    ana->setUserIdentifier(u"bob"_s);
    QVERIFY(ana->offlineMessages().isEmpty());
    ana->sendMessage(u"bob's"_s);
    QTRY_COMPARE(files().size(), 2);
    ana.reset();

    // A new process finds each queue, in order, with the files' bytes, and announces it.
    int announced = 0;
    auto added = ZuveroNotificationCenter::defaultCenter()->addObserver(
        ZuveroChatDidAddOfflineMessageNotification, nullptr,
        [&](const ZuveroNotification &) { ++announced; });
    std::unique_ptr<Zuvero> again = make(u"ana"_s);
    const ZuveroChatMessageList restored = again->offlineMessages();
    QCOMPARE(restored.size(), 3);
    QCOMPARE(announced, 3);
    for (qsizetype i = 0; i < restored.size(); ++i) {
        QCOMPARE(restored[i]->uuid(), written[i]->uuid());
        QCOMPARE(restored[i]->text(), written[i]->text());
        QVERIFY(restored[i]->isOffline());
    }
    QCOMPARE(restored[1]->attachments()->first()->data(), photo->data());
    QCOMPARE(restored[1]->attachments()->first()->uuid(), photo->uuid());
    again->setUserIdentifier(u"bob"_s);
    QCOMPARE(again->offlineMessages().size(), 1);
    QCOMPARE(again->offlineMessages().first()->text(), u"bob's"_s);
    again.reset();

    // A file that cannot be read is set aside, never overwritten, and said so.
    QFile garbage(anaFile);
    QVERIFY(garbage.open(QIODevice::WriteOnly));
    garbage.write("{\"version\": 1, \"messages\": [");
    garbage.close();
    ZVXLogCapture log;
    std::unique_ptr<Zuvero> third = make(u"ana"_s);
    QVERIFY(third->offlineMessages().isEmpty());
    QVERIFY2(!log.lines().filter(u"ZVX ERROR: ZVXOfflineStore: cannot read"_s).isEmpty(),
             qPrintable(log.lines().join(u'\n')));
    QVERIFY(!QFile::exists(anaFile));
    QCOMPARE(QDir(folder.path()).entryList({u"offline-*.unreadable-*"_s}).size(), 1);

    // Emptied, the queue leaves no file behind.
    third->setUserIdentifier(u"bob"_s);
    third->saveOfflineMessages({});
    QVERIFY(files().isEmpty());
}

QTEST_MAIN(TestFacade)
#include "tst_facade.moc"
