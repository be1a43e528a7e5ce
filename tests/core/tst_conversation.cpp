#include "ZVXConversation.h"

#include <QTest>

using namespace Qt::StringLiterals;

namespace {

ZuveroChatMessagePtr message(const char *uuid, int minute, const char *text = "")
{
    auto m = ZuveroChatMessage::init();
    m->setUuid(uuid ? QString::fromLatin1(uuid) : QString());
    m->setDate(QDateTime(QDate(2024, 5, 1), QTime(10, minute), Qt::UTC));
    m->setText(QString::fromLatin1(text));
    return m;
}

// The texts of the messages, joined by spaces.
QString texts(const ZuveroChatMessageList &messages)
{
    QStringList list;
    for (const auto &m : messages)
        list << m->text().value_or(QString());
    return list.join(QLatin1Char(' '));
}

} // namespace

class TestConversation : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void newCopiesReplaceAndDatesOrder();
    void equalDates();
    void existingOutOfOrder();
    void manyEqualDatesKeepTheirOrder();
    void missingIdentifiersShareOne();
    void savingKeepsTheNewestWithoutWelcome();
};

void TestConversation::newCopiesReplaceAndDatesOrder()
{
    const auto a = message("1", 0, "A"), b = message("2", 5, "B");
    const auto b2 = message("2", 5, "B'"), c = message("3", 1, "C");
    const auto merged = ZVXConversation::combineExistingMessages({a, b}, {b2, c});
    QCOMPARE(texts(merged), QLatin1String("A C B'"));
    QCOMPARE(merged.last(), b2); // the very object of the new list

    // Of several existing copies of one identifier, the last one survives.
    const auto old = message("4", 2, "old"), newer = message("4", 3, "newer");
    QCOMPARE(texts(ZVXConversation::combineExistingMessages({old, newer}, {})),
             QLatin1String("newer"));
    QCOMPARE(texts(ZVXConversation::combineExistingMessagesWithDeletedMessages({a, b, c}, {b2})),
             QLatin1String("A C"));
}

void TestConversation::equalDates()
{
    // At one time: existing ones first in their order, then new ones in theirs.
    const auto e1 = message("e1", 7, "e1"), e2 = message("e2", 7, "e2");
    const auto n1 = message("n1", 7, "n1"), n2 = message("n2", 7, "n2");
    const auto early = message("n0", 6, "n0");
    QCOMPARE(texts(ZVXConversation::combineExistingMessages({e1, e2}, {n2, early, n1})),
             QLatin1String("n0 e1 e2 n2 n1"));
}

void TestConversation::existingOutOfOrder()
{
    // A list in date order is merged as it stands; any other is sorted, ties keeping their order.
    const auto late = message("l", 9, "late"), tieA = message("a", 4, "a"),
               tieB = message("b", 4, "b"), early = message("e", 1, "early");
    const auto fresh = message("n", 4, "new");
    QCOMPARE(texts(ZVXConversation::combineExistingMessages({late, tieA, early, tieB}, {fresh})),
             QLatin1String("early a b new late"));
}

void TestConversation::manyEqualDatesKeepTheirOrder()
{
    // Long enough runs of equal dates, in both lists out of date order, that a sort which is not
    // stable reorders them: each date must hold the existing messages, then the new ones, each in
    // the order of its own list.
    ZuveroChatMessageList existing, fresh;
    for (int i = 0; i < 60; ++i) {
        const QByteArray e = "e" + QByteArray::number(i), n = "n" + QByteArray::number(i);
        existing << message(e.constData(), 1 + i % 3, e.constData());
        fresh << message(n.constData(), 1 + (i * 7 + i / 5) % 3, n.constData());
    }
    QStringList expected;
    for (int minute = 1; minute <= 3; ++minute) {
        for (const ZuveroChatMessageList &list : {existing, fresh}) {
            for (const auto &m : list) {
                if (m->date().time().minute() == minute)
                    expected << *m->text();
            }
        }
    }
    QCOMPARE(texts(ZVXConversation::combineExistingMessages(existing, fresh)),
             expected.join(QLatin1Char(' ')));
}

void TestConversation::missingIdentifiersShareOne()
{
    const auto x = message(nullptr, 1, "x"), y = message("", 2, "y"), z = message(nullptr, 3, "z");
    // Existing ones without an identifier: only the last survives...
    QCOMPARE(texts(ZVXConversation::combineExistingMessages({x, y}, {})), QLatin1String("y"));
    // ...and none when a new one has no identifier either; new ones all stay.
    QCOMPARE(texts(ZVXConversation::combineExistingMessages({x}, {y, z})), QLatin1String("y z"));
}

void TestConversation::savingKeepsTheNewestWithoutWelcome()
{
    ZVXConversation conversation;
    ZuveroChatMessageList many;
    for (int i = 0; i < 120; ++i)
        many << message(QByteArray::number(i).constData(), i % 60,
                        QByteArray::number(i).constData());
    conversation.setMessages(many);
    const auto welcome = ZuveroChatMessage::initWithSystemText(u"Welcome"_s);
    conversation.setWelcomeMessage(welcome);
    conversation.addMessages({welcome});
    const ZuveroChatMessageList saved = conversation.messagesToSave();
    QCOMPARE(saved.size(), 99); // the newest 100, less the welcome message among them
    QVERIFY(!saved.contains(welcome));
    QCOMPARE(saved.last()->text(), u"119"_s);
}

QTEST_GUILESS_MAIN(TestConversation)
#include "tst_conversation.moc"
