#include "ZVXChatController.h"
#include "ZVXDevServerSuite.h"
#include "ZVXManualClock.h"
#include "ZVXTemporaryUserDefaults.h"
#include "Zuvero.h"
#include "ZuveroApplication.h"
#include "ZuveroConnection.h"

#include <QScopeGuard>
#include <QTest>

using namespace std::chrono_literals;
using namespace Qt::StringLiterals;

namespace {

const QString GetMessages = u"GET /api/1.0/messages"_s;

// The screen's side, recorded: what the rules asked of the list, in order.
class RecordingView : public ZVXChatControllerView
{
public:
    ZuveroChatMessageList shown;
    bool more = false;
    double offset = 0;
    bool inWindow = true;
    QStringList calls;
    QStringList alerts;

    ZuveroChatMessageList listMessages() const override { return shown; }
    void setListMessages(const ZuveroChatMessageList &messages) override
    {
        shown = messages;
        calls << u"set %1"_s.arg(messages.size());
    }
    void addMessage(const ZuveroChatMessagePtr &message, bool) override
    {
        shown.append(message);
        calls << u"add %1"_s.arg(message->text().value_or(QString()));
    }
    void reloadData() override { calls << u"reload"_s; }
    void updateViewWithOfflineMessages(const ZuveroChatMessageList &offline) override
    {
        calls << u"unsent %1"_s.arg(offline.size());
    }
    bool hasMoreMessages() const override { return more; }
    void setHasMoreMessages(bool hasMore) override { more = hasMore; }
    void setUploadProgress(double, const ZuveroChatMessagePtr &) override { }
    void scrollToLastMessage(bool) override { calls << u"scroll"_s; }
    // Rows of 30 pixels, and the load-more row.
    double contentHeight() const override { return 30.0 * double(shown.size()) + (more ? 40 : 0); }
    double contentOffset() const override { return offset; }
    void setContentOffset(double value) override { offset = value; }
    bool isInWindow() const override { return inWindow; }
    void showAlert(const ZVXAlert &alert) override { alerts << alert.message; }

    QStringList texts() const
    {
        QStringList texts;
        for (const auto &message : shown)
            texts << message->text().value_or(QString());
        return texts;
    }
};

} // namespace

class TestChatController : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void reloadAndEarlierHistory();
    void earlierHistoryPrefetchedAndFailed();
    void openWithTheCachedConversation();
    void sendingKeepsTheOrderWritten();
    void twoSendsGiveOneReload();
    void sendRegistersForNotifications_data();
    void sendRegistersForNotifications();
    void pollingIntervals_data();
    void pollingIntervals();
    void welcomeMessageOnlyInAnEmptyChat();

private:
    //! A facade of the server, registered.
    std::unique_ptr<Zuvero> facade();
    void writeHistory(Zuvero *zuvero, int count, const QDateTime &from, int step);
    qint64 counter(const QString &request) { return m_suite.admin().requestCount(request); }

    ZVXDevServerSuite m_suite;
    std::unique_ptr<ZVXTemporaryUserDefaults> m_defaults;
    std::unique_ptr<ZVXManualClock> m_clock;
};

void TestChatController::initTestCase()
{
    QVERIFY(m_suite.start());
}

void TestChatController::init()
{
    m_defaults = std::make_unique<ZVXTemporaryUserDefaults>();
    m_clock = std::make_unique<ZVXManualClock>(QDateTime::currentDateTimeUtc());
    QVERIFY(m_suite.reset());
}

void TestChatController::cleanup()
{
    m_clock.reset();
    m_defaults.reset();
}

std::unique_ptr<Zuvero> TestChatController::facade()
{
    auto zuvero = m_suite.facade(u"screen"_s);
    if (!ZVXDevServerSuite::registered(zuvero.get()))
        qWarning("the facade did not register");
    return zuvero;
}

void TestChatController::writeHistory(Zuvero *zuvero, int count, const QDateTime &from, int step)
{
    const ZVXDevReply reply
        = m_suite.admin().postJSON(u"/admin/history"_s,
                                   {{u"conversation"_s, m_suite.conversationId(zuvero)},
                                    {u"count"_s, count},
                                    {u"from"_s, from.toSecsSinceEpoch()},
                                    {u"step"_s, step}});
    QVERIFY2(reply.status == 200, reply.body.constData());
}

void TestChatController::reloadAndEarlierHistory()
{
    auto zuvero = facade();
    writeHistory(zuvero.get(), 120, QDateTime::currentDateTimeUtc().addSecs(-4 * 3600), 60);
    RecordingView view;
    ZVXChatController controller(zuvero.get(), &view);
    controller.loadCachedConversation();
    QVERIFY(view.shown.isEmpty());

    // The newest page, with the load-more row, saved for the next opening.
    bool changed = false;
    controller.reloadChatAnimated(true, [&](bool didChange) { changed = didChange; });
    QTRY_COMPARE(view.shown.size(), 50);
    QVERIFY(changed && view.more);
    QCOMPARE(view.shown.last()->text(), u"Message 120 of 120"_s);
    QCOMPARE(zuvero->cachedConversation()
                 .value(ZuveroCachedConversationMessagesKey)
                 .value<ZuveroChatMessageList>()
                 .size(),
             50);

    // Nothing new: nothing rebuilt.
    view.calls.clear();
    const qint64 before = counter(GetMessages);
    controller.reloadChatAnimated(true, [&](bool didChange) { changed = didChange; });
    QTRY_COMPARE(counter(GetMessages), before + 1);
    QTRY_VERIFY(!changed);
    QVERIFY2(view.calls.filter(u"set"_s).isEmpty(), qPrintable(view.calls.join(u", "_s)));
    QVERIFY(view.more);

    // Earlier history keeps the reader where they were: as far from the bottom as before.
    view.offset = 500;
    const double fromBottom = view.contentHeight() - view.offset;
    controller.chatViewLoadEarlierMessages();
    // "Until" takes in the whole second of the first message shown: 49 new ones.
    QTRY_COMPARE(view.shown.size(), 99);
    QVERIFY(view.more);
    QCOMPARE(view.contentHeight() - view.offset, fromBottom);
    QCOMPARE(view.shown.first()->text(), u"Message 22 of 120"_s);
    QVERIFY(std::is_sorted(view.shown.cbegin(), view.shown.cend(),
                           [](auto &a, auto &b) { return a->date() < b->date(); }));
}

void TestChatController::earlierHistoryPrefetchedAndFailed()
{
    auto zuvero = facade();
    writeHistory(zuvero.get(), 70, QDateTime::currentDateTimeUtc().addSecs(-3 * 3600), 60);
    RecordingView view;
    ZVXChatController controller(zuvero.get(), &view);
    controller.reloadChatAnimated(true);
    QTRY_COMPARE(view.shown.size(), 50);

    // Pulled past the top: the page comes ahead of the press, and is shown a frame after it.
    const qint64 before = counter(GetMessages);
    controller.chatViewDidOverscroll();
    controller.chatViewDidOverscroll(); // one fetch ahead at a time
    QTRY_COMPARE(counter(GetMessages), before + 1);
    QTest::qWait(50);
    QCOMPARE(view.shown.size(), 50);
    controller.chatViewLoadEarlierMessages();
    QCOMPARE(view.shown.size(), 50);
    m_clock->advance(20ms);
    QCOMPARE(view.shown.size(), 70);
    QVERIFY(!view.more);
    QCOMPARE(counter(GetMessages), before + 1);

    // A failed page takes the load-more row away; without the network, the user is told.
    view.more = true;
    m_suite.admin().postJSON(u"/admin/faults"_s,
                             {{u"path"_s, u"/api/1.0/messages"_s},
                              {u"kind"_s, u"status"_s},
                              {u"status"_s, 500},
                              {u"count"_s, 1}});
    controller.chatViewLoadEarlierMessages();
    QTRY_VERIFY(!view.more);
    QCOMPARE(view.shown.size(), 70);
    m_suite.setOnline(false);
    view.more = true;
    controller.chatViewLoadEarlierMessages();
    QCOMPARE(view.alerts, QStringList{u"The Internet connection appears to be offline."_s});
    QVERIFY(view.more);
}

void TestChatController::openWithTheCachedConversation()
{
    auto zuvero = facade();
    auto a = ZuveroChatMessage::initWithAgentText(u"a"_s, nullptr);
    a->setDate(QDateTime::currentDateTimeUtc().addSecs(-120));
    auto b = ZuveroChatMessage::initWithText(u"b"_s);
    b->setDate(QDateTime::currentDateTimeUtc().addSecs(-60));
    zuvero->saveCachedMessages({a, b}, true);
    m_suite.setOnline(false);
    const auto waiting = ZuveroChatMessage::initWithText(u"waiting"_s);
    zuvero->addOfflineMessage(waiting);

    RecordingView view;
    ZVXChatController controller(zuvero.get(), &view);
    controller.loadCachedConversation();
    QCOMPARE(view.texts(), (QStringList{u"a"_s, u"b"_s, u"waiting"_s}));
    QVERIFY(view.more);
    QCOMPARE(controller.offlineMessages(), ZuveroChatMessageList{waiting});

    // While messages wait, a reload sends them first and asks the server nothing.
    const qint64 before = counter(GetMessages);
    controller.reloadChatAnimated(true);
    QTest::qWait(50);
    QCOMPARE(counter(GetMessages), before);
}

void TestChatController::sendingKeepsTheOrderWritten()
{
    auto zuvero = facade();
    RecordingView view;
    ZVXChatController controller(zuvero.get(), &view);
    int sentNotices = 0;
    auto observer = ZuveroNotificationCenter::defaultCenter()->addObserver(
        ZuveroChatDidSendMessageNotification, zuvero.get(),
        [&](const ZuveroNotification &) { ++sentNotices; });

    // Online: on screen at once, before the server answers.
    controller.sendMessage(u"one"_s, nullptr);
    QCOMPARE(view.calls.last(), u"add one"_s);
    QCOMPARE(sentNotices, 1);
    const ZuveroChatMessagePtr one = view.shown.last();
    QVERIFY(one->isUserMessage() && one->uuid() == one->uuid().toLower());
    QTRY_VERIFY(!one->isOffline() && counter(u"POST /api/1.0/messages"_s) >= 1);

    // Offline: under the unsent label and into the facade's queue.
    m_suite.setOnline(false);
    controller.sendMessage(u"two"_s, nullptr);
    const ZuveroChatMessagePtr two = view.shown.last();
    QVERIFY(two->isOffline());
    QTRY_COMPARE(zuvero->offlineMessages(), ZuveroChatMessageList{two});
    // Back online, a later message still waits behind the older one.
    m_suite.setOnline(true);
    controller.sendMessage(u"three"_s, nullptr);
    QVERIFY(view.shown.last()->isOffline());
    QTRY_COMPARE(zuvero->offlineMessages().size(), 2);

    // The queue's pass sends both, in order, and the screen takes its lists from the facade.
    zuvero->sendOfflineMessages();
    QTRY_VERIFY((m_clock->advance(50ms), controller.offlineMessages().isEmpty()));
    QStringList stored;
    bool done = false;
    zuvero->connection()->loadMessageSinceDate(
        QDateTime(), 50, [&](const std::optional<ZuveroChatMessageList> &messages, bool, auto &) {
            for (const auto &message : messages.value_or(ZuveroChatMessageList()))
                stored << message->text().value_or(QString());
            done = true;
        });
    QTRY_VERIFY(done);
    QCOMPARE(stored, (QStringList{u"one"_s, u"two"_s, u"three"_s}));
    QCOMPARE(view.texts().mid(view.texts().size() - 3),
             (QStringList{u"one"_s, u"two"_s, u"three"_s}));
}

void TestChatController::twoSendsGiveOneReload()
{
    auto zuvero = facade();
    RecordingView view;
    ZVXChatController controller(zuvero.get(), &view);
    // A send has ended once the screen has saved its conversation with it.
    const auto saved = [&zuvero](const QString &text) {
        const auto messages = zuvero->cachedConversation()
                                  .value(ZuveroCachedConversationMessagesKey)
                                  .value<ZuveroChatMessageList>();
        return !messages.isEmpty() && messages.last()->text() == text;
    };
    const qint64 before = counter(GetMessages);
    controller.sendMessage(u"first"_s, nullptr);
    QTRY_VERIFY(saved(u"first"_s));
    m_clock->advance(600ms);
    controller.sendMessage(u"second"_s, nullptr);
    QTRY_VERIFY(saved(u"second"_s));
    // The first send's reload would have come now: the second's end put it off.
    m_clock->advance(400ms);
    QTest::qWait(50);
    QCOMPARE(counter(GetMessages), before);
    m_clock->advance(600ms);
    QTRY_COMPARE(counter(GetMessages), before + 1);
    QTest::qWait(50);
    QCOMPARE(counter(GetMessages), before + 1);
    QVERIFY(view.calls.contains(u"scroll"_s));
}

void TestChatController::sendRegistersForNotifications_data()
{
    QTest::addColumn<bool>("interactive");
    QTest::addColumn<bool>("hasToken");
    QTest::addColumn<QString>("asked");
    QTest::newRow("plain") << false << false << u"types 7, categories: ; remote"_s;
    QTest::newRow("interactive") << true << false
                                 << u"types 7, categories: interactive ACTION_SEND text; remote"_s;
    QTest::newRow("a token already") << true << true << QString();
}

void TestChatController::sendRegistersForNotifications()
{
    QFETCH(bool, interactive);
    QFETCH(bool, hasToken);
    QFETCH(QString, asked);
    // The host's push channel, as it is asked.
    QStringList calls;
    ZuveroPushChannel channel;
    channel.registerUserNotificationSettings
        = [&](ZuveroNotificationTypes types, const QList<ZuveroNotificationCategory> &categories) {
              QStringList named;
              for (const auto &category : categories) {
                  for (const auto &action : category.actions)
                      named << u"%1 %2%3"_s.arg(category.identifier, action.identifier,
                                                action.textInput ? u" text"_s : QString());
              }
              calls << u"types %1, categories: %2"_s.arg(int(types)).arg(named.join(u','));
          };
    channel.registerForRemoteNotifications = [&] { calls << u"remote"_s; };
    ZuveroApplication::sharedApplication()->setPushChannel(channel);
    const auto unplug = qScopeGuard(
        [] { ZuveroApplication::sharedApplication()->setPushChannel(ZuveroPushChannel()); });

    auto zuvero = facade();
    zuvero->setInteractiveNotification(interactive);
    if (hasToken)
        zuvero->setDeviceToken(QByteArray::fromHex("aabbccdd"));
    RecordingView view;
    ZVXChatController controller(zuvero.get(), &view);
    const qint64 before = counter(GetMessages);
    controller.sendMessage(u"hello"_s, nullptr);
    // Asked with the reload that follows a send.
    QTRY_VERIFY((m_clock->advance(100ms), counter(GetMessages) > before));
    QCOMPARE(calls.join(u"; "_s), asked);
}

void TestChatController::pollingIntervals_data()
{
    QTest::addColumn<double>("interval");
    QTest::addColumn<double>("period");
    QTest::newRow("0.4 s: none") << 0.4 << 0.0;
    QTest::newRow("0.5 s: none") << 0.5 << 0.0;
    QTest::newRow("1 s: every 2 s") << 1.0 << 2.0;
    QTest::newRow("30 s") << 30.0 << 30.0;
    QTest::newRow("3600 s: every 600 s") << 3600.0 << 600.0;
}

void TestChatController::pollingIntervals()
{
    QFETCH(double, interval);
    QFETCH(double, period);
    auto zuvero = facade();
    zuvero->setPollingInterval(interval);
    RecordingView view;
    ZVXChatController controller(zuvero.get(), &view);
    controller.viewWillAppear();
    QCOMPARE(controller.pollingPeriod(), period);
    if (period == 0)
        return;

    // A tick reloads only while the screen is in a window, and none come once it has gone.
    const auto step = std::chrono::milliseconds(qint64(period * 1000));
    const qint64 before = counter(GetMessages);
    m_clock->advance(step);
    QTRY_COMPARE(counter(GetMessages), before + 1);
    view.inWindow = false;
    m_clock->advance(step);
    QTest::qWait(50);
    QCOMPARE(counter(GetMessages), before + 1);
    view.inWindow = true;
    controller.viewWillDisappear();
    m_clock->advance(step * 3);
    QTest::qWait(50);
    QCOMPARE(counter(GetMessages), before + 1);
    QCOMPARE(controller.pollingPeriod(), 0.0);
}

void TestChatController::welcomeMessageOnlyInAnEmptyChat()
{
    auto zuvero = facade();
    RecordingView view;
    ZVXChatController controller(zuvero.get(), &view);
    controller.loadCachedConversation();
    // Not before the server has been asked: an empty cache is no empty conversation.
    QVERIFY(view.shown.isEmpty());
    controller.reloadChatAnimated(true);
    // The server's own, taken by the facade from its status reply.
    QTRY_VERIFY(!view.shown.isEmpty());
    QCOMPARE(view.texts(), QStringList{*zuvero->welcomeMessage()});
    QVERIFY(!view.shown.first()->isUserMessage() && !view.shown.first()->isAgentMessage());
    controller.saveConversation();
    QVERIFY(zuvero->cachedConversation()
                .value(ZuveroCachedConversationMessagesKey)
                .value<ZuveroChatMessageList>()
                .isEmpty());

    // The first real message takes its place.
    QCOMPARE(m_suite.admin().agentReply(m_suite.conversationId(zuvero.get()), u"Hello"_s).status,
             200);
    controller.reloadChatAnimated(true);
    QTRY_COMPARE(view.texts(), QStringList{u"Hello"_s});
    QVERIFY(!controller.welcomeMessage());
}

QTEST_MAIN(TestChatController)
#include "tst_chatcontroller.moc"
