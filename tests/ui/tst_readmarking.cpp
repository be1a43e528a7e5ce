#include "ZVXDevServerSuite.h"
#include "ZVXLogCapture.h"
#include "ZVXManualClock.h"
#include "ZVXReadMarking.h"
#include "ZVXTemporaryUserDefaults.h"
#include "Zuvero.h"
#include "ZuveroChatView.h"
#include "ZuveroConnection.h"

#include <QListView>
#include <QScrollBar>
#include <QTest>

using namespace std::chrono_literals;
using namespace Qt::StringLiterals;

namespace {

const QString MarkRequest = QStringLiteral("POST /api/1.0/mark_messages");
const QString MarkedKey = QStringLiteral("ZuveroMarkedAsReadMessageUUIDs");
const QString DateKey = QStringLiteral("ZuveroLastMarkAsReadDate");

ZuveroChatMessagePtr message(const QString &uuid, const QString &sender = u"agent"_s,
                             const QDateTime &date = {})
{
    auto message = std::make_shared<ZuveroChatMessage>();
    message->setUuid(uuid);
    message->setSender(sender);
    message->setText(QStringLiteral("text of %1").arg(uuid));
    message->setDate(date);
    return message;
}

QStringList storedUUIDs()
{
    QStringList uuids;
    for (const QVariant &uuid : ZuveroUserDefaults::standardUserDefaults().arrayForKey(MarkedKey))
        uuids << uuid.toString();
    return uuids;
}

QString markedLine(int count)
{
    return QStringLiteral("ZVX: ZuveroChatView: marked %1 messages as read.").arg(count);
}

} // namespace

class TestReadMarking : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void whatIsMarked_data();
    void whatIsMarked();
    void marksWithinASecondGoTogether();
    void tooOldForTheLastReport_data();
    void tooOldForTheLastReport();
    void newestHundredKept();
    void failedBatchGoesWithTheNextMark();
    void rowsOnScreenAreMarked();

private:
    std::unique_ptr<Zuvero> facade(const QString &user);
    //! \a count agent answers written on the server, as the user's device lists them.
    ZuveroChatMessageList conversation(Zuvero *zuvero, int count, int userEvery = 0);
    //! The server's "read" flag of each agent and system message of \a zuvero's conversation.
    QHash<QString, bool> readOnServer(Zuvero *zuvero);
    qint64 markRequests() { return m_suite.admin().requestCount(MarkRequest); }
    /*!
        The same, once a request that \a zuvero makes now has been answered: a report it had
        started before has reached the server by then.
    */
    qint64 markRequestsAfterAnother(Zuvero *zuvero);
    //! Lets the one-second wait pass; true once the report's answer has logged \a logged.
    bool dispatched(const QString &logged);

    ZVXDevServerSuite m_suite;
    std::unique_ptr<ZVXTemporaryUserDefaults> m_defaults;
    std::unique_ptr<ZVXManualClock> m_clock;
    std::unique_ptr<ZVXLogCapture> m_log;
};

void TestReadMarking::initTestCase()
{
    QVERIFY(m_suite.start());
}

void TestReadMarking::init()
{
    m_defaults = std::make_unique<ZVXTemporaryUserDefaults>();
    m_clock = std::make_unique<ZVXManualClock>(QDateTime::currentDateTimeUtc());
    m_log = std::make_unique<ZVXLogCapture>();
    QVERIFY(m_suite.reset());
}

void TestReadMarking::cleanup()
{
    m_log.reset();
    m_clock.reset();
    m_defaults.reset();
}

std::unique_ptr<Zuvero> TestReadMarking::facade(const QString &user)
{
    return m_suite.facade(user);
}

ZuveroChatMessageList TestReadMarking::conversation(Zuvero *zuvero, int count, int userEvery)
{
    bool registered = false;
    zuvero->registerIfNeeded([&](bool success, const ZuveroError &) { registered = success; });
    if (!QTest::qWaitFor([&] { return registered; }, 10000))
        return {};
    const qint64 id = m_suite.conversationId(zuvero);
    for (int i = 0; i < count; ++i) {
        if (userEvery && i % userEvery == 0) {
            bool sent = false;
            zuvero->connection()->sendChatMessage(
                ZuveroChatMessage::initWithText(QStringLiteral("question %1").arg(i)),
                [&](bool success, const ZuveroError &) { sent = success; });
            if (!QTest::qWaitFor([&] { return sent; }, 10000))
                return {};
        }
        if (m_suite.admin().agentReply(id, QStringLiteral("answer %1").arg(i)).status != 200)
            return {};
    }
    std::optional<ZuveroChatMessageList> listed;
    zuvero->connection()->loadMessageSinceDate(
        QDateTime(), 0,
        [&](const std::optional<ZuveroChatMessageList> &messages, bool, const ZuveroError &) {
            listed = messages.value_or(ZuveroChatMessageList());
        });
    if (!QTest::qWaitFor([&] { return listed.has_value(); }, 10000))
        return {};
    return *listed;
}

QHash<QString, bool> TestReadMarking::readOnServer(Zuvero *zuvero)
{
    const qint64 id = m_suite.conversationId(zuvero);
    QHash<QString, bool> read;
    const QVariantList messages = m_suite.admin()
                                      .get(u"/console/api/conversations/%1/messages"_s.arg(id))
                                      .json()
                                      .value(u"messages"_s)
                                      .toList();
    for (const QVariant &message : messages) {
        const QVariantMap fields = message.toMap();
        if (fields.value(u"sender"_s) != u"user"_s)
            read.insert(fields.value(u"uuid"_s).toString(), fields.value(u"read"_s).toBool());
    }
    return read;
}

bool TestReadMarking::dispatched(const QString &logged)
{
    m_clock->advance(1s);
    if (QTest::qWaitFor([&] { return m_log->contains(logged); }, 10000))
        return true;
    qWarning().noquote() << m_log->lines().join(u'\n');
    return false;
}

qint64 TestReadMarking::markRequestsAfterAnother(Zuvero *zuvero)
{
    bool answered = false;
    zuvero->connection()->fetchUnreadCountWithCompletion(
        [&](qint64, const ZuveroError &) { answered = true; });
    if (!QTest::qWaitFor([&] { return answered; }, 10000))
        return -1;
    return markRequests();
}

void TestReadMarking::whatIsMarked_data()
{
    // A message is shown some times, maybe as another object with its uuid; a new agent message
    // is shown after it and the batch that goes out is compared with what was expected of both.
    QTest::addColumn<QString>("sender");
    QTest::addColumn<int>("shown");
    QTest::addColumn<bool>("asCopies");
    QTest::addColumn<bool>("confirmedBefore");
    QTest::addColumn<bool>("marked");

    QTest::newRow("the user's own") << u"user"_s << 1 << false << false << false;
    QTest::newRow("an agent's") << u"agent"_s << 1 << false << false << true;
    QTest::newRow("the system's") << u"system"_s << 1 << false << false << true;
    QTest::newRow("an agent's, shown twice") << u"agent"_s << 2 << false << false << true;
    QTest::newRow("an agent's, shown twice as two objects")
        << u"agent"_s << 2 << true << false << true;
    QTest::newRow("confirmed in an earlier session") << u"agent"_s << 1 << false << true << false;
}

void TestReadMarking::whatIsMarked()
{
    QFETCH(QString, sender);
    QFETCH(int, shown);
    QFETCH(bool, asCopies);
    QFETCH(bool, confirmedBefore);
    QFETCH(bool, marked);
    auto zuvero = facade(u"what"_s);
    if (confirmedBefore)
        ZuveroUserDefaults::standardUserDefaults().setObject(QStringList{u"seen"_s}, MarkedKey);

    ZVXReadMarking marking;
    marking.setApiInstance(zuvero.get());
    const ZuveroChatMessagePtr seen = message(u"seen"_s, sender);
    for (int i = 0; i < shown; ++i)
        marking.markAsRead(asCopies && i > 0 ? message(u"seen"_s, sender) : seen);
    marking.markAsRead(nullptr);
    marking.markAsRead(message(u"next"_s));
    QVERIFY(dispatched(markedLine(marked ? 2 : 1)));

    QCOMPARE(markRequests(), 1);
    QStringList expected;
    if (confirmedBefore || marked)
        expected << u"seen"_s;
    expected << u"next"_s;
    QCOMPARE(storedUUIDs(), expected);
}

void TestReadMarking::marksWithinASecondGoTogether()
{
    auto zuvero = facade(u"ten"_s);
    const ZuveroChatMessageList answers = conversation(zuvero.get(), 10);
    QCOMPARE(answers.size(), 10);
    qint64 unread = -1;
    zuvero->fetchUnreadCountWithCompletionHandler(
        [&](qint64 count, const ZuveroError &) { unread = count; });
    QTRY_COMPARE(unread, 10);

    ZVXReadMarking marking;
    marking.setApiInstance(zuvero.get());
    for (const ZuveroChatMessagePtr &answer : answers) {
        m_clock->advance(90ms);
        marking.markAsRead(answer);
    }
    // Each mark started the wait again: nothing goes until a whole second after the last.
    m_clock->advance(999ms);
    QCOMPARE(markRequestsAfterAnother(zuvero.get()), 0);
    m_clock->advance(1ms);
    QTRY_VERIFY(m_log->contains(markedLine(10)));
    QCOMPARE(markRequests(), 1);

    // The server has them all as read, and says so in the count it answers with.
    QCOMPARE(zuvero->unreadCount(), 0);
    const QHash<QString, bool> read = readOnServer(zuvero.get());
    QCOMPARE(read.size(), 10);
    for (const ZuveroChatMessagePtr &answer : answers)
        QVERIFY2(read.value(answer->uuid()), qPrintable(answer->uuid()));
    QCOMPARE(marking.lastMarkAsReadDate(), m_clock->now());
}

void TestReadMarking::tooOldForTheLastReport_data()
{
    QTest::addColumn<QDateTime>("date");
    QTest::addColumn<bool>("marked");

    QTest::newRow("30 days and 1 s earlier")
        << QDateTime(QDate(2024, 3, 1), QTime(11, 59, 59), Qt::UTC) << false;
    QTest::newRow("30 days earlier") << QDateTime(QDate(2024, 3, 1), QTime(12, 0), Qt::UTC) << true;
    QTest::newRow("after the report") << QDateTime(QDate(2024, 4, 2), QTime(8, 0), Qt::UTC) << true;
    QTest::newRow("no date") << QDateTime() << true;
}

void TestReadMarking::tooOldForTheLastReport()
{
    QFETCH(QDateTime, date);
    QFETCH(bool, marked);
    auto zuvero = facade(u"old"_s);
    const QDateTime lastReport(QDate(2024, 3, 31), QTime(12, 0), Qt::UTC);
    {
        // Kept on the device: another list, later, reads the same date.
        ZVXReadMarking before;
        QCOMPARE(before.lastMarkAsReadDate(), QDateTime::fromSecsSinceEpoch(0, Qt::UTC));
        before.setLastMarkAsReadDate(lastReport);
        before.setLastMarkAsReadDate(QDateTime());
    }
    ZVXReadMarking marking;
    marking.setApiInstance(zuvero.get());
    QCOMPARE(marking.lastMarkAsReadDate(), lastReport);

    marking.markAsRead(message(u"dated"_s, u"agent"_s, date));
    QCOMPARE(m_log->contains(u"ZVX: WARNING: too old message, not marking as read!"_s), !marked);
    marking.markAsRead(message(u"undated"_s));
    QVERIFY(dispatched(markedLine(marked ? 2 : 1)));
    QCOMPARE(storedUUIDs(),
             marked ? QStringList({u"dated"_s, u"undated"_s}) : QStringList{u"undated"_s});

    // The report moves the date on, for this list and the next.
    QCOMPARE(marking.lastMarkAsReadDate(), m_clock->now());
    QCOMPARE(ZVXReadMarking().lastMarkAsReadDate(), m_clock->now());
}

void TestReadMarking::newestHundredKept()
{
    auto zuvero = facade(u"hundred"_s);
    ZVXReadMarking first;
    ZVXReadMarking second;
    first.setApiInstance(zuvero.get());
    second.setApiInstance(zuvero.get());
    const auto named = [](QChar list, int i) {
        return QStringLiteral("%1%2").arg(list).arg(i, 3, 10, QLatin1Char('0'));
    };

    // The second list loads what is stored (nothing) with its first mark; the first list's
    // marks restart the one wait they share, so only the first list reports now.
    second.markAsRead(message(named(u'b', 0)));
    for (int i = 0; i < 100; ++i)
        first.markAsRead(message(named(u'a', i)));
    QVERIFY(dispatched(markedLine(100)));
    QCOMPARE(markRequests(), 1);

    // What the second list stores keeps the first list's marks, the newest 100 of all.
    for (int i = 1; i < 50; ++i)
        second.markAsRead(message(named(u'b', i)));
    QVERIFY(dispatched(markedLine(50)));
    QCOMPARE(markRequests(), 2);
    QStringList expected;
    for (int i = 50; i < 100; ++i)
        expected << named(u'a', i);
    for (int i = 0; i < 50; ++i)
        expected << named(u'b', i);
    QCOMPARE(storedUUIDs(), expected);

    // One still listed is not reported again; one that fell out is.
    second.markAsRead(message(named(u'a', 99)));
    second.markAsRead(message(named(u'a', 0)));
    QVERIFY(dispatched(markedLine(1)));
    QCOMPARE(storedUUIDs().size(), 100);
    QCOMPARE(storedUUIDs().last(), named(u'a', 0));
}

void TestReadMarking::failedBatchGoesWithTheNextMark()
{
    auto zuvero = facade(u"failed"_s);
    QCOMPARE(m_suite.admin()
                 .postJSON(u"/admin/faults"_s,
                           {{u"path"_s, u"/api/1.0/mark_messages"_s},
                            {u"kind"_s, u"status"_s},
                            {u"status"_s, 500},
                            {u"body"_s, uR"({"error":"boom"})"_s}})
                 .status,
             200);
    ZVXReadMarking marking;
    marking.setApiInstance(zuvero.get());
    const ZuveroChatMessagePtr one = message(u"one"_s);
    marking.markAsRead(one);
    marking.markAsRead(message(u"two"_s));
    QVERIFY(dispatched(u"ZVX: ZuveroChatView: failed to mark 2 messages as read: boom"_s));
    QCOMPARE(markRequests(), 1);
    QVERIFY(storedUUIDs().isEmpty());

    // No retry of its own, and a message still waiting starts nothing when shown again.
    m_clock->advance(10s);
    marking.markAsRead(one);
    m_clock->advance(1s);
    QCOMPARE(markRequestsAfterAnother(zuvero.get()), 1);

    marking.markAsRead(message(u"three"_s));
    QVERIFY(dispatched(markedLine(3)));
    QCOMPARE(markRequests(), 2);
    QCOMPARE(storedUUIDs(), QStringList({u"one"_s, u"two"_s, u"three"_s}));
}

void TestReadMarking::rowsOnScreenAreMarked()
{
    auto zuvero = facade(u"view"_s);
    // Questions and answers, more than one screen of them.
    const ZuveroChatMessageList messages = conversation(zuvero.get(), 30, 5);
    QCOMPARE(messages.size(), 36);

    ZuveroChatView view;
    view.setApiInstance(zuvero.get());
    view.resize(420, 600);
    view.setMessages(messages);
    QListView *list = view.scrollView();
    const QAbstractItemModel *model = list->model();
    const int uuidRole = model->roleNames().key("uuid");
    const int kindRole = model->roleNames().key("kind");
    // The agents' messages with a bubble at least partly in sight.
    const auto agentsOnScreen = [&] {
        QSet<QString> uuids;
        for (int row = 0; row < model->rowCount(); ++row) {
            const QModelIndex index = model->index(row, 0);
            if (list->visualRect(index).intersects(list->viewport()->rect())
                && index.data(kindRole).toString().startsWith(u"ZuveroChatViewItemKindAgent"_s))
                uuids.insert(index.data(uuidRole).toString());
        }
        return uuids;
    };
    const auto stored = [] {
        const QStringList uuids = storedUUIDs();
        return QSet<QString>(uuids.cbegin(), uuids.cend());
    };

    view.show();
    QVERIFY(QTest::qWaitForWindowExposed(&view));
    QSet<QString> seen = agentsOnScreen();
    QVERIFY(!seen.isEmpty());
    // Each round lets a second pass; the marks made by the drawing go out after the first.
    QTRY_COMPARE((m_clock->advance(1s), stored()), seen);
    QCOMPARE(markRequests(), 1);

    // A page further down: only the answers that came into sight are reported.
    list->verticalScrollBar()->triggerAction(QAbstractSlider::SliderPageStepAdd);
    const QSet<QString> secondPage = agentsOnScreen();
    const QSet<QString> cameIntoSight = secondPage - seen;
    QVERIFY(!cameIntoSight.isEmpty());
    QTRY_COMPARE((m_clock->advance(1s), stored()), seen | secondPage);
    QCOMPARE(markRequests(), 2);
    QVERIFY(m_log->contains(markedLine(int(cameIntoSight.size()))));
    seen |= secondPage;

    // Hidden, the list may be scrolled and pictured: nobody reads it.
    view.hide();
    list->verticalScrollBar()->triggerAction(QAbstractSlider::SliderToMaximum);
    QVERIFY(!view.grab().isNull());
    const QSet<QString> lastPage = agentsOnScreen();
    QVERIFY(!(lastPage - seen).isEmpty());
    m_clock->advance(1s);
    QCOMPARE(markRequestsAfterAnother(zuvero.get()), 2);
    // Shown again, what it shows is read.
    view.show();
    QVERIFY(QTest::qWaitForWindowExposed(&view));
    QTRY_COMPARE((m_clock->advance(1s), stored()), seen | lastPage);
    QCOMPARE(markRequests(), 3);
    seen |= lastPage;

    // The server agrees: those read, the answers never in sight not.
    const QHash<QString, bool> read = readOnServer(zuvero.get());
    QCOMPARE(read.size(), 30);
    for (auto it = read.cbegin(); it != read.cend(); ++it)
        QCOMPARE(it.value(), seen.contains(it.key()));
}

QTEST_MAIN(TestReadMarking)
#include "tst_readmarking.moc"
