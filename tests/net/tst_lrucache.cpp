#include "ZVXLRUCache.h"

#include <QTest>

using namespace Qt::StringLiterals;

class TestLRUCache : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void evictsInStoringOrderNotUseOrder();
    void keepsTheEntryJustStoredOverBudget();
    void removalAndOddInput();
};

void TestLRUCache::evictsInStoringOrderNotUseOrder()
{
    ZVXLRUCache cache(10);
    cache.setObject(u"A"_s, u"a"_s, 6);
    cache.setObject(u"B"_s, u"b"_s, 6);
    QVERIFY(!cache.objectForKey(u"a"_s).isValid());
    QCOMPARE(cache.currentCost(), 6);

    // A read does not protect an entry; storing it again does, with its new cost.
    cache.removeAllObjects();
    cache.setObject(u"A"_s, u"a"_s, 4);
    cache.setObject(u"B"_s, u"b"_s, 4);
    cache.setObject(u"C"_s, u"c"_s, 2);
    QVERIFY(cache.objectForKey(u"a"_s).isValid());
    cache.setObject(u"B2"_s, u"b"_s, 3);
    cache.setObject(u"D"_s, u"d"_s, 6);
    QVERIFY(!cache.objectForKey(u"a"_s).isValid());
    QVERIFY(!cache.objectForKey(u"c"_s).isValid());
    QCOMPARE(cache.objectForKey(u"b"_s), QVariant(u"B2"_s));
    QCOMPARE(cache.currentCost(), 9);
}

void TestLRUCache::keepsTheEntryJustStoredOverBudget()
{
    ZVXLRUCache cache(10);
    cache.setObject(u"small"_s, u"s"_s, 3);
    cache.setObject(u"A"_s, u"a"_s, 20);
    QCOMPARE(cache.count(), 1);
    QCOMPARE(cache.currentCost(), 20);
    cache.setObject(u"B"_s, u"b"_s, 1);
    QVERIFY(!cache.objectForKey(u"a"_s).isValid());
    QCOMPARE(cache.currentCost(), 1);
}

void TestLRUCache::removalAndOddInput()
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

    cache.setTotalCost(10);
    cache.setObject(u"N"_s, QString(), 5); // a null key is ignored
    cache.setObject(u"E"_s, u""_s, 0); // the empty text is a key like any other
    cache.setObject(u"M"_s, u"m"_s, -7); // costs below 1 count as 1
    QCOMPARE(cache.count(), 2);
    QCOMPARE(cache.currentCost(), 2);
    QVERIFY(!cache.objectForKey(QString()).isValid());
    QCOMPARE(cache.objectForKey(u""_s), QVariant(u"E"_s));
}

QTEST_GUILESS_MAIN(TestLRUCache)
#include "tst_lrucache.moc"
