#include "ZVXLRUCache.h"

#include <QTest>

using namespace Qt::StringLiterals;

class TestLRUCache : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void evictsInStoringOrderNotUseOrder();
    void keepsTheEntryJustStoredOverBudget();
    void storingAgainMovesToTheNewestEnd();
    void removalEvictsAfterTheBudgetWasLowered();
    void nullKeysAndCosts();
};

void TestLRUCache::evictsInStoringOrderNotUseOrder()
{
    ZVXLRUCache cache(10);
    cache.setObject(u"A"_s, u"a"_s, 6);
    cache.setObject(u"B"_s, u"b"_s, 6);
    QVERIFY(!cache.objectForKey(u"a"_s).isValid());
    QCOMPARE(cache.objectForKey(u"b"_s), QVariant(u"B"_s));
    QCOMPARE(cache.currentCost(), 6);

    // A read does not protect an entry.
    cache.removeAllObjects();
    QCOMPARE(cache.currentCost(), 0);
    cache.setObject(u"A"_s, u"a"_s, 5);
    cache.setObject(u"B"_s, u"b"_s, 5);
    QVERIFY(cache.objectForKey(u"a"_s).isValid());
    cache.setObject(u"C"_s, u"c"_s, 5);
    QVERIFY(!cache.objectForKey(u"a"_s).isValid());
    QVERIFY(cache.objectForKey(u"b"_s).isValid());
    QVERIFY(cache.objectForKey(u"c"_s).isValid());
    QCOMPARE(cache.currentCost(), 10);
}

void TestLRUCache::keepsTheEntryJustStoredOverBudget()
{
    ZVXLRUCache cache(10);
    cache.setObject(u"small"_s, u"s"_s, 3);
    cache.setObject(u"A"_s, u"a"_s, 20);
    QCOMPARE(cache.count(), 1);
    QCOMPARE(cache.objectForKey(u"a"_s), QVariant(u"A"_s));
    QCOMPARE(cache.currentCost(), 20);
    // Until the next store.
    cache.setObject(u"B"_s, u"b"_s, 1);
    QVERIFY(!cache.objectForKey(u"a"_s).isValid());
    QCOMPARE(cache.currentCost(), 1);
}

void TestLRUCache::storingAgainMovesToTheNewestEnd()
{
    ZVXLRUCache cache(10);
    cache.setObject(u"A"_s, u"a"_s, 4);
    cache.setObject(u"B"_s, u"b"_s, 4);
    cache.setObject(u"A2"_s, u"a"_s, 2);
    QCOMPARE(cache.currentCost(), 6);
    cache.setObject(u"C"_s, u"c"_s, 5);
    QVERIFY(!cache.objectForKey(u"b"_s).isValid());
    QCOMPARE(cache.objectForKey(u"a"_s), QVariant(u"A2"_s));
    QCOMPARE(cache.currentCost(), 7);
}

void TestLRUCache::removalEvictsAfterTheBudgetWasLowered()
{
    ZVXLRUCache cache(10);
    cache.setObject(u"A"_s, u"a"_s, 4);
    cache.setObject(u"B"_s, u"b"_s, 4);
    cache.setObject(u"C"_s, u"c"_s, 2);
    cache.setTotalCost(3);
    QCOMPARE(cache.count(), 3); // no eviction until the next store
    cache.setObject(QVariant(), u"c"_s);
    QCOMPARE(cache.count(), 0);
    QCOMPARE(cache.currentCost(), 0);
    // Removing from an empty cache is harmless.
    cache.setObject(QVariant(), u"c"_s);
    QCOMPARE(cache.count(), 0);
}

void TestLRUCache::nullKeysAndCosts()
{
    ZVXLRUCache cache(10);
    cache.setObject(u"A"_s, QString(), 5);
    QCOMPARE(cache.count(), 0);
    QVERIFY(!cache.objectForKey(QString()).isValid());
    // The empty text is a key like any other.
    cache.setObject(u"E"_s, u""_s, 0);
    QCOMPARE(cache.objectForKey(u""_s), QVariant(u"E"_s));
    cache.setObject(u"N"_s, u"n"_s, -7);
    QCOMPARE(cache.currentCost(), 2); // costs below 1 count as 1
}

QTEST_GUILESS_MAIN(TestLRUCache)
#include "tst_lrucache.moc"
