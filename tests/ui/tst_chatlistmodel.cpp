#include "ZVXChatListModel.h"
#include "ZVXChatRowDiff.h"
#include "ZVXConversationScript.h"

#include <QAbstractItemModelTester>
#include <QRandomGenerator>
#include <QTest>

#include <utility>

using namespace ZVXConversationScript;
using Step = ZVXChatRowDiff::Step;

namespace {

// The accessible texts print times of day; the same ones wherever the suite runs.
const bool inUTC = qputenv("TZ", "UTC");

QList<ZuveroChatViewItem::Identity> letters(const QString &text)
{
    QList<ZuveroChatViewItem::Identity> identities;
    for (QChar c : text)
        identities.append({ZuveroChatViewItemKindSpacer, QString(c), QString(), 0});
    return identities;
}

QList<ZuveroChatViewItem> build(const ZuveroChatMessageList &messages, bool hasMore = false)
{
    return ZVXChatRowBuilder::buildRows(messages, hasMore, minute);
}

// n messages from index first on, 50 s apart, in turns of three per side.
ZuveroChatMessageList chat(int first, int count, int seconds)
{
    ZuveroChatMessageList messages;
    for (int i = first; i < first + count; ++i) {
        const QString contents = i % 7 == 6 ? QStringLiteral("tp") : QStringLiteral("t");
        messages.append(message(i,
                                QLatin1String((i / 3) % 2 ? "a" : "u")
                                    + QString::number(seconds + 50 * (i - first)) + contents));
    }
    return messages;
}

// What a view hears from the model, one line per signal.
struct SignalLog : QStringList
{
    explicit SignalLog(ZVXChatListModel *model)
    {
        const auto rows = [this](char sign) {
            return [this, sign](const QModelIndex &, int first, int last) {
                append(QStringLiteral("%1%2..%3").arg(QLatin1Char(sign)).arg(first).arg(last));
            };
        };
        QObject::connect(model, &QAbstractItemModel::rowsInserted, model, rows('+'));
        QObject::connect(model, &QAbstractItemModel::rowsRemoved, model, rows('-'));
        QObject::connect(model, &QAbstractItemModel::rowsMoved, model,
                         [this](const QModelIndex &, int first, int, const QModelIndex &, int row) {
                             append(QStringLiteral("m%1>%2").arg(first).arg(row));
                         });
        QObject::connect(model, &QAbstractItemModel::dataChanged, model,
                         [this, names = model->roleNames()](
                             const QModelIndex &from, const QModelIndex &to, QList<int> roles) {
                             QStringList changed;
                             for (int role : roles)
                                 changed << QString::fromLatin1(names.value(role));
                             append(QStringLiteral("~%1..%2 %3")
                                        .arg(from.row())
                                        .arg(to.row())
                                        .arg(changed.join(QLatin1Char(','))));
                         });
        QObject::connect(model, &QAbstractItemModel::modelReset, model,
                         [this] { append(QStringLiteral("reset")); });
        QObject::connect(model, &QAbstractItemModel::layoutChanged, model,
                         [this] { append(QStringLiteral("layout")); });
    }
    QStringList take() { return std::exchange(static_cast<QStringList &>(*this), {}); }
};

} // namespace

class TestChatListModel : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void diff_data();
    void diff();
    void appending_data();
    void appending();
    void prepending();
    void unsentLabel();
    void messagesChangedInPlace();
    void roles_data();
    void roles();
    void randomRebuilds();
};

void TestChatListModel::diff_data()
{
    QTest::addColumn<QString>("from");
    QTest::addColumn<QString>("to");
    QTest::addColumn<QString>("steps");
    auto row = [](const char *name, const char *from, const char *to, const char *steps) {
        QTest::newRow(name) << QString::fromLatin1(from) << QString::fromLatin1(to)
                            << QString::fromLatin1(steps);
    };
    row("same", "abc", "abc", "");
    row("append", "abc", "abcde", "+3x2");
    row("prepend", "abc", "xyabc", "+0x2");
    row("remove", "abcde", "abe", "-2x2");
    row("move down", "abcde", "acdbe", "m1>3");
    row("move up", "abcde", "adbce", "m3>1");
    row("swap", "ab", "ba", "m0>1");
    row("replace", "abc", "xyz", "-0x3 +0x3");
    row("everything", "abcdef", "xbdfey", "-2x1 -0x1 m2>3 +0x1 +5x1");
    row("twice in the new list", "ab", "abb", "+2x1");
    row("twice in the old list", "aab", "ba", "-1x1 m0>1");
}

void TestChatListModel::diff()
{
    QFETCH(QString, from);
    QFETCH(QString, to);
    QFETCH(QString, steps);

    QList<ZuveroChatViewItem::Identity> rows = letters(from);
    const QList<ZuveroChatViewItem::Identity> target = letters(to);
    QStringList described;
    for (const Step &step : ZVXChatRowDiff::steps(rows, target)) {
        if (step.kind == Step::Kind::Remove) {
            described << QStringLiteral("-%1x%2").arg(step.row).arg(step.count);
            rows.remove(step.row, step.count);
        } else if (step.kind == Step::Kind::Move) {
            described << QStringLiteral("m%1>%2").arg(step.row).arg(step.to);
            rows.move(step.row, step.to);
        } else {
            described << QStringLiteral("+%1x%2").arg(step.row).arg(step.count);
            for (int i = step.row; i < step.row + step.count; ++i)
                rows.insert(i, target[i]);
        }
    }
    QCOMPARE(described.join(QLatin1Char(' ')), steps);
    QCOMPARE(rows, target);
}

void TestChatListModel::appending_data()
{
    QTest::addColumn<int>("count");
    QTest::addColumn<int>("added");
    QTest::newRow("1 to 1") << 1 << 1;
    QTest::newRow("50 to 1000") << 1000 << 50;
}

void TestChatListModel::appending()
{
    QFETCH(int, count);
    QFETCH(int, added);

    ZVXChatListModel model;
    QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::Fatal);
    // The first new message is on the side of the last old one, a minute later.
    ZuveroChatMessageList messages = chat(0, count, 0);
    model.setRows(build(messages));
    SignalLog log(&model);
    const int oldRows = model.rowCount();
    messages += chat(count, added, 50 * count + 10);
    QVERIFY(messages[count - 1]->isUserMessage() == messages[count]->isUserMessage());

    const QList<ZuveroChatViewItem> rows = build(messages);
    model.setRows(rows);
    QVERIFY(model.rows() == rows);
    QCOMPARE(log.take(),
             (QStringList{QStringLiteral("+%1..%2").arg(oldRows).arg(rows.size() - 1),
                          QStringLiteral("~%1..%1 showTail,showUserName,item").arg(oldRows - 1)}));
}

void TestChatListModel::prepending()
{
    ZVXChatListModel model;
    QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::Fatal);
    ZuveroChatMessageList messages = chat(100, 40, 10'000);
    model.setRows(build(messages, true));
    SignalLog log(&model);

    // An older page that ended a while before: the rows below it stay as they were.
    int before = model.rowCount();
    messages = chat(60, 40, 7'000) + messages;
    QList<ZuveroChatViewItem> rows = build(messages, true);
    model.setRows(rows);
    QVERIFY(model.rows() == rows);
    QCOMPARE(log.take(), QStringList{QStringLiteral("+1..%1").arg(rows.size() - before)});

    // The last page: the load-more row goes.
    before = model.rowCount();
    messages = chat(20, 40, 4'000) + messages;
    rows = build(messages, false);
    model.setRows(rows);
    QVERIFY(model.rows() == rows);
    QCOMPARE(
        log.take(),
        (QStringList{QStringLiteral("-0..0"), QStringLiteral("+0..%1").arg(rows.size() - before)}));
}

void TestChatListModel::unsentLabel()
{
    ZVXChatListModel model;
    QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::Fatal);
    const ZuveroChatMessageList messages = conversation(QStringLiteral("u0t u60to u120to a180t"));
    model.setRows(build(messages));
    QCOMPARE(describe(model.rows()), QStringLiteral("D0 U0+ L U1- U2+ _3 A3+"));
    SignalLog log(&model);

    // The first one was sent: the label moves down past it in a rebuild.
    messages[1]->setIsOffline(false);
    model.setRows(build(messages));
    QCOMPARE(describe(model.rows()), QStringLiteral("D0 U0- U1+ L U2+ _3 A3+"));
    QCOMPARE(
        log.take(),
        (QStringList{QStringLiteral("m2>4"), QStringLiteral("~1..1 showTail,showUserName,item"),
                     QStringLiteral("~2..2 showTail,showUserName,isOffline,item")}));

    // The queue empties, then message 1 waits again: the label goes, then comes back.
    using Builder = ZVXChatRowBuilder;
    model.applyUnsentLabelChange(Builder::updateWithOfflineMessages(model.rows(), {}));
    QCOMPARE(log.take(), QStringList{QStringLiteral("-3..3")});
    model.applyUnsentLabelChange(Builder::updateWithOfflineMessages(model.rows(), {messages[1]}));
    QCOMPARE(describe(model.rows()), QStringLiteral("D0 U0- L U1+ U2+ _3 A3+"));
    QCOMPARE(log.take(),
             (QStringList{QStringLiteral("+2..2"), QStringLiteral("~3..3 isOffline,item")}));
    // And moves (the list's way: one row lower) when only message 2 waits.
    model.applyUnsentLabelChange(Builder::updateWithOfflineMessages(model.rows(), {messages[2]}));
    QCOMPARE(describe(model.rows()), QStringLiteral("D0 U0- U1+ U2+ L _3 A3+"));
    QCOMPARE(log.take(), QStringList{QStringLiteral("m2>5")});

    // A change worked out on other rows is applied as a rebuild.
    const Builder::UnsentLabelChange stale
        = Builder::updateWithOfflineMessages(build(messages), {});
    model.applyUnsentLabelChange(stale);
    QVERIFY(model.rows() == stale.rows);
    QVERIFY(!log.contains(QStringLiteral("reset")));
}

void TestChatListModel::messagesChangedInPlace()
{
    ZVXChatListModel model;
    QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::Fatal);
    const ZuveroChatMessageList messages = conversation(QStringLiteral("a0t u60tpp u70t"));
    model.setRows(build(messages));
    SignalLog log(&model);

    // A copy of the message (the offline queue's, say) finds the same rows.
    const auto copy = std::make_shared<ZuveroChatMessage>(*messages[1]);
    QCOMPARE(model.rowsForMessage(copy), (QList<int>{3, 4, 5}));
    model.setUploadProgress(copy, 0.4);
    QCOMPARE(messages[1]->uploadProgress(), 0.4);
    QCOMPARE(model.data(model.index(4), ZVXChatListModel::UploadProgressRole), QVariant(0.4));
    QCOMPARE(log.take(), QStringList{QStringLiteral("~3..5 uploadProgress,item")});

    // A failed send, noticed at the next rebuild.
    messages[2]->setIsErrored(true);
    model.setRows(build(messages));
    QCOMPARE(log.take(), QStringList{QStringLiteral("~6..6 isErrored,item")});
    model.setRows(build(messages));
    QCOMPARE(log.take(), QStringList());
}

void TestChatListModel::roles_data()
{
    QTest::addColumn<QString>("messages");
    QTest::addColumn<int>("row");
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("accessible");
    auto row = [](const char *name, const char *messages, int row, const char *kind,
                  const char *accessible) {
        QTest::newRow(name) << QString::fromLatin1(messages) << row << QString::fromLatin1(kind)
                            << QString::fromLatin1(accessible);
    };
    row("user text", "u0t", 1, "UserMessage", "You: text 0, 22:14");
    row("agent picture", "a0tp", 2, "AgentMessageAttachment", "Anna: Picture, 22:14");
    row("pasted picture", "u0tf", 2, "UserMessageAttachment", "You: Picture, 22:14");
    row("named file", "u0tF", 2, "UserMessageAttachment", "You: invoice.pdf, 22:14");
    row("system location", "s0l", 1, "AgentMessageLocation", "System: Location, 22:14");
    row("no date", "u-t", 0, "UserMessage", "You: text 0");
    row("date", "u0t", 0, "Date", "14/11/2023 22:14");
    row("label", "u0to", 1, "UserMessageUnsentLabel", "Waiting for connection");
    row("spacer", "u0t a9t", 2, "Spacer", "");
}

void TestChatListModel::roles()
{
    QFETCH(QString, messages);
    QFETCH(int, row);
    QFETCH(QString, kind);
    QFETCH(QString, accessible);

    ZVXChatListModel model;
    model.setDateFormatter({QLocale(QLocale::English, QLocale::UnitedKingdom)});
    const QList<ZuveroChatViewItem> rows = build(conversation(messages));
    model.setRows(rows);
    const QModelIndex index = model.index(row);
    QCOMPARE(index.data(ZVXChatListModel::KindRole).toString(),
             QStringLiteral("ZuveroChatViewItemKind") + kind);
    QCOMPARE(index.data(Qt::AccessibleTextRole).toString(), accessible);
    QCOMPARE(index.data().toString(), accessible);
    QCOMPARE(index.data(ZVXChatListModel::ItemRole).value<ZuveroChatViewItem>(), rows[row]);
    const QList<QByteArray> names = model.roleNames().values();
    for (const char *name : {"kind", "uuid", "date", "showTail", "showUserName", "attachmentUuid",
                             "uploadProgress", "isOffline", "isErrored", "item"})
        QVERIFY2(names.contains(name), name);
}

void TestChatListModel::randomRebuilds()
{
    ZVXChatListModel model;
    QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::Fatal);
    SignalLog log(&model);
    QRandomGenerator random(20240611);
    int next = 0;
    auto randomMessage = [&](int seconds) {
        QString word = QStringLiteral("uuuaas").at(random.bounded(6));
        word += random.bounded(12) ? QString::number(seconds) : QStringLiteral("-");
        for (const char *part : {"t", "e", "l", "p", "p", "o"}) {
            if (random.bounded(4) == 0 || (part[0] == 't' && random.bounded(3)))
                word += QLatin1String(part);
        }
        return message(next++, word);
    };

    ZuveroChatMessageList messages;
    bool hasMore = false;
    for (int round = 0; round < 200; ++round) {
        const int seconds = messages.isEmpty() || !messages.last()->date().isValid()
            ? 0
            : int(Start.secsTo(messages.last()->date()));
        switch (random.bounded(8)) {
        case 0: // another conversation
            messages.clear();
            for (int i = random.bounded(30); i > 0; --i)
                messages.append(randomMessage(random.bounded(20'000)));
            break;
        case 1: // older messages
            for (int i = random.bounded(1, 10); i > 0; --i)
                messages.prepend(randomMessage(random.bounded(5'000)));
            hasMore = random.bounded(2);
            break;
        case 2: // one gone
            if (!messages.isEmpty())
                messages.removeAt(random.bounded(messages.size()));
            break;
        case 3: // a message replaced by a newer copy
            if (!messages.isEmpty()) {
                auto &message = messages[random.bounded(messages.size())];
                message = std::make_shared<ZuveroChatMessage>(*message);
                message->setText(QStringLiteral("edited"));
            }
            break;
        case 4: // sent or failed
            for (const ZuveroChatMessagePtr &message : std::as_const(messages)) {
                if (random.bounded(5) == 0)
                    message->setIsOffline(!message->isOffline());
            }
            break;
        default: // newer messages
            for (int i = random.bounded(1, 4); i > 0; --i)
                messages.append(randomMessage(seconds + random.bounded(1'000)));
        }
        const QList<ZuveroChatViewItem> rows = build(messages, hasMore);
        model.setRows(rows);
        QCOMPARE(describe(model.rows()), describe(rows));
        QVERIFY(model.rows() == rows);

        ZuveroChatMessageList queue;
        for (const ZuveroChatMessagePtr &message : std::as_const(messages)) {
            if (message->isUserMessage() && random.bounded(3) == 0)
                queue.append(message);
        }
        const auto change = ZVXChatRowBuilder::updateWithOfflineMessages(model.rows(), queue);
        model.applyUnsentLabelChange(change);
        QVERIFY(model.rows() == change.rows);
    }
    QVERIFY(!log.contains(QStringLiteral("reset")) && !log.contains(QStringLiteral("layout")));
}

QTEST_GUILESS_MAIN(TestChatListModel)
#include "tst_chatlistmodel.moc"
