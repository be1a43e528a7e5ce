#include "ZVXChatRowBuilder.h"
#include "ZVXConversationScript.h"

#include <QTest>

using namespace ZVXConversationScript;
using Change = ZVXChatRowBuilder::UnsentLabelChange;

Q_DECLARE_METATYPE(Change::Kind)

namespace {

QString day(const QDateTime &date)
{
    return date.toUTC().date().toString(Qt::ISODate);
}

QList<ZuveroChatViewItem> build(const ZuveroChatMessageList &messages, bool hasMore = false)
{
    return ZVXChatRowBuilder::buildRows(messages, hasMore, minute);
}

// The queue holds copies: a message is in it when an equal one is.
ZuveroChatMessageList queued(const ZuveroChatMessageList &messages, const QString &indexes)
{
    ZuveroChatMessageList queue;
    for (const QString &index : indexes.split(QLatin1Char(' '), Qt::SkipEmptyParts)) {
        if (index == QLatin1String("x")) {
            queue.append(std::make_shared<ZuveroChatMessage>());
            continue;
        }
        auto copy = std::make_shared<ZuveroChatMessage>(
            *messages[QString(index).remove(QLatin1Char('!')).toInt()]);
        // "2!" is message 2 without its attachments, which makes it another message.
        if (index.endsWith(QLatin1Char('!')))
            copy->setAttachments(std::nullopt);
        queue.append(copy);
    }
    return queue;
}

QString offlineIndexes(const ZuveroChatMessageList &messages)
{
    QStringList indexes;
    for (int i = 0; i < messages.size(); ++i) {
        if (messages[i]->isOffline())
            indexes << QString::number(i);
    }
    return indexes.join(QLatin1Char(' '));
}

} // namespace

class TestChatRowBuilder : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void rows_data();
    void rows();
    void continuation();
    void identities();
    void unsentLabel_data();
    void unsentLabel();
};

void TestChatRowBuilder::rows_data()
{
    QTest::addColumn<QString>("messages");
    QTest::addColumn<bool>("hasMore");
    QTest::addColumn<bool>("byDay");
    QTest::addColumn<QString>("rows");

    auto row = [](const char *name, const char *messages, const char *rows, bool hasMore = false,
                  bool byDay = false) {
        QTest::newRow(name) << QString::fromUtf8(messages) << hasMore << byDay
                            << QString::fromUtf8(rows);
    };
    row("nothing", "", "");
    row("nothing, more to load", "", "M", true);
    row("load-more row first", "u0t", "M D0 U0+", true);
    row("5 minutes apart", "u0t u300t", "D0 U0- U1+");
    row("user then agent", "u0t a60t", "D0 U0+ _1 A1+");
    row("11 minutes apart", "u0t u660t", "D0 U0+ D1 U1+");
    row("exactly 600 s", "u0t u600t", "D0 U0- U1+");
    row("just over 600 s", "u0t u600.5t", "D0 U0+ D1 U1+");
    row("exactly 3600 s after the date", "u0t u600t u1200t u1800t u2400t u3000t u3600t",
        "D0 U0- U1- U2- U3- U4- U5- U6+");
    row("every 9 minutes", "u0t u540t u1080t u1620t u2160t u2700t u3240t u3780t",
        "D0 U0- U1- U2- U3- U4- U5- U6+ D7 U7+");
    row("going back in time", "u3600t u0t", "D0 U0- U1+");
    row("no previous date, same minute", "u0t u-t u30t", "D0 U0- U1- U2+");
    row("same printed day", "u0t u3700t", "D0 U0- U1+", false, true);
    row("no date, no date row", "a-t", "A0+");
    row("unsent run", "a0t u60to u120to u180to", "D0 A0+ _1 L U1- U2- U3+");
    row("sent then unsent keeps its tail", "u0t u60to", "D0 U0+ L U1+");
    row("date row splits an unsent run", "u0to u700to", "D0 L U0+ D1 L U1+");
    row("offline agent before offline user: no label", "a0to u60to", "D0 A0+ _1 U1+");
    row("system after user", "u0t s60t", "D0 U0- _1 S1+");
    row("agent after system", "s0t a60t", "D0 S0- _1 A1+");
    row("unknown sender is system", "x0t a10t", "D0 S0- _1 A1+");
    row("text and two attachments", "u0tpp u60t", "D0 U0+ UA0- UA0- U1+");
    row("text and location", "u0tl", "D0 U0+ UL0-");
    row("location alone", "a0l", "D0 AL0+");
    row("system location and attachment", "s0lp", "D0 AL0+ AA0+");
    row("empty text is no text", "u0e u10el", "D0 _1 UL1+");
    row("empty message between agent texts", "a0t u60 a120t", "D0 A0- _1 A2+");
    row("empty message after a gap", "u0t u700", "D0 U0+ D1");
    // A day with the helpdesk: welcome, questions, a picture with a caption, a
    // shared place a quarter of an hour later, and two sends that wait.
    row("support chat", "s0t u20t u40t a100t a130tp u1000l a1090t u5000to u5010op",
        "D0 S0- _1 U1- U2+ _3 A3- A4+ AA4- _5 D5 UL5+ _6 A6+ _7 D7 L U7- UA8+");
    row("earlier history, then a reply after lunch",
        "a0t a30t u50tp u55t a3000t a3020l s3100t u3200to",
        "M D0 A0- A1+ _2 U2+ UA2- U3+ _4 D4 A4- AL5- _6 S6+ _7 L U7+", true);
}

void TestChatRowBuilder::rows()
{
    QFETCH(QString, messages);
    QFETCH(bool, hasMore);
    QFETCH(bool, byDay);
    QFETCH(QString, rows);

    const ZuveroChatMessageList conversation = ZVXConversationScript::conversation(messages);
    const QList<ZuveroChatViewItem> built
        = ZVXChatRowBuilder::buildRows(conversation, hasMore, byDay ? day : minute);
    QCOMPARE(describe(built), rows);

    QCOMPARE(ZVXChatRowBuilder::buildRows(conversation, hasMore, byDay ? day : minute), built);

    // A build that goes on after any message gives the same rows.
    for (qsizetype split = 0; split <= conversation.size(); ++split) {
        ZVXChatRowBuilder::Build build(hasMore, byDay ? day : minute);
        for (qsizetype i = 0; i < split; ++i)
            build.append(conversation[i]);
        QVERIFY(build.continuesWith(conversation));
        for (qsizetype i = split; i < conversation.size(); ++i)
            build.append(conversation[i]);
        QCOMPARE(describe(build.rows()), rows);
    }
}

void TestChatRowBuilder::continuation()
{
    // Only the same messages, as they were, followed by new ones, continue a build.
    const ZuveroChatMessageList conversation
        = ZVXConversationScript::conversation(QStringLiteral("u0t u5t a9t"));
    ZVXChatRowBuilder::Build build(false, minute);
    build.append(conversation[0]);
    build.append(conversation[1]);
    QVERIFY(build.continuesWith(conversation.mid(0, 2)));
    QVERIFY(!build.continuesWith(conversation.mid(0, 1)));
    ZuveroChatMessageList replaced = conversation;
    replaced[1] = std::make_shared<ZuveroChatMessage>(*conversation[1]);
    QVERIFY(!build.continuesWith(replaced));
    // Gone offline: its unsent label is not in the rows built.
    conversation[1]->setIsOffline(true);
    QVERIFY(!build.continuesWith(conversation));
}

void TestChatRowBuilder::identities()
{
    // A uuid that comes twice still gives rows of distinct names.
    ZuveroChatMessageList twice = conversation(QStringLiteral("u0tp a60t u120t"));
    twice[2]->setUuid(twice[0]->uuid());
    twice[2]->setAttachments(twice[0]->attachments());
    const QList<ZuveroChatViewItem> rows = build(twice);
    QSet<ZuveroChatViewItem::Identity> names;
    for (const ZuveroChatViewItem &row : rows)
        names.insert(row.identity());
    QCOMPARE(names.size(), rows.size());
    QCOMPARE(rows.last().occurrence(), 1);

    // A message set on a row drops the attachment of the row's earlier message.
    ZuveroChatViewItem row = rows[2];
    QVERIFY(row.attachment());
    row.setMessage(rows[4].message());
    QVERIFY(!row.attachment());
    QVERIFY(rows[2].attachment());
}

void TestChatRowBuilder::unsentLabel_data()
{
    QTest::addColumn<QString>("messages");
    QTest::addColumn<QString>("queue");
    QTest::addColumn<Change::Kind>("kind");
    QTest::addColumn<QList<int>>("where");
    QTest::addColumn<QString>("rows");
    QTest::addColumn<QString>("offline");

    using K = Change::Kind;
    auto row = [](const char *name, const char *messages, const char *queue, K kind,
                  QList<int> where, const char *rows, const char *offline) {
        QTest::newRow(name) << QString::fromUtf8(messages) << QString::fromUtf8(queue) << kind
                            << where << QString::fromUtf8(rows) << QString::fromUtf8(offline);
    };
    // The label goes back at the index the offline row had with the label still
    // there: below that row when the label stood above it.
    row("move down", "u0t u60to u120t u180t u240t", "2", K::Move, {2, 4},
        "D0 U0+ U1- U2- L U3- U4+", "1 2");
    row("move up", "u0t u60t u120to u180t u240t", "1", K::Move, {3, 2}, "D0 U0- L U1+ U2- U3- U4+",
        "1 2");
    row("insert at the first offline text", "u0t u60t u120t", "2 1", K::Insert, {2},
        "D0 U0- L U1- U2+", "1 2");
    row("insert above the last row", "u0t u60t", "x", K::Insert, {2}, "D0 U0- L U1+", "");
    row("attachment rows are not looked at", "u0t u60p", "1", K::Insert, {2}, "D0 U0- L UA1+", "");
    row("an unequal copy is not queued", "u0t u60tp", "1!", K::Insert, {3}, "D0 U0- U1+ L UA1-",
        "");
    row("insert into no rows", "", "x", K::Insert, {0}, "L", "");
    row("remove when the queue empties", "u0t u60to u120t", "", K::Remove, {2}, "D0 U0+ U1- U2+",
        "1");
    row("nothing without label or queue", "u0t u60t", "", K::None, {}, "D0 U0- U1+", "");
    row("nothing without an offline text row", "u0t u60to u120t", "x", K::None, {},
        "D0 U0+ L U1- U2+", "1");
    row("last row: dropped", "u0t u60to", "1", K::Remove, {2}, "D0 U0+ U1+", "1");
    row("one before the last row: dropped", "u0t u60to u120t", "1", K::Remove, {2},
        "D0 U0+ U1- U2+", "1");
}

void TestChatRowBuilder::unsentLabel()
{
    QFETCH(QString, messages);
    QFETCH(QString, queue);
    QFETCH(Change::Kind, kind);
    QFETCH(QList<int>, where);
    QFETCH(QString, rows);
    QFETCH(QString, offline);

    const ZuveroChatMessageList conversation = ZVXConversationScript::conversation(messages);
    const QList<ZuveroChatViewItem> before = build(conversation);
    const QString offlineBefore = offlineIndexes(conversation);
    const Change change
        = ZVXChatRowBuilder::updateWithOfflineMessages(before, queued(conversation, queue));
    QCOMPARE(change.kind, kind);
    const QList<int> reported = kind == Change::Kind::Move ? QList<int>{change.from, change.to}
        : kind == Change::Kind::None                       ? QList<int>{}
                                                           : QList<int>{change.at};
    QCOMPARE(reported, where);
    QCOMPARE(describe(change.rows), rows);
    QCOMPARE(offlineIndexes(conversation), offline);
    QCOMPARE(change.markedOffline.size(),
             offline.split(QLatin1Char(' '), Qt::SkipEmptyParts).size()
                 - offlineBefore.split(QLatin1Char(' '), Qt::SkipEmptyParts).size());
}

QTEST_GUILESS_MAIN(TestChatRowBuilder)
#include "tst_chatrowbuilder.moc"
