#include "ZuveroNotificationCenter.h"

#include <QTest>

#include <thread>

using namespace Qt::StringLiterals;

class TestNotificationCenter : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void deliversToMatchingObserversInOrder();
    void sharedObjectsMatchByIdentity();
    void observersEndWithTheirToken();
    void observersMayChangeTheCenterWhileNotified();
    void postsFromOtherThreads();
};

void TestNotificationCenter::deliversToMatchingObserversInOrder()
{
    ZuveroNotificationCenter center;
    QObject facade, other;
    QStringList seen;
    auto record = [&](const QString &observer) {
        return [&seen, observer](const ZuveroNotification &n) {
            seen << observer + QLatin1Char(':') + n.name() + n.userInfo().value(u"n"_s).toString();
        };
    };
    auto byName = center.addObserver(u"Changed"_s, nullptr, record(u"name"_s));
    auto byObject = center.addObserver(u"Changed"_s, &facade, record(u"object"_s));
    auto everything = center.addObserver({}, nullptr, record(u"any"_s));

    center.post(u"Changed"_s, &facade, {{u"n"_s, 1}});
    center.post(u"Changed"_s, &other);
    center.post(u"Other"_s, &facade);
    QCOMPARE(seen,
             (QStringList{u"name:Changed1"_s, u"object:Changed1"_s, u"any:Changed1"_s,
                          u"name:Changed"_s, u"any:Changed"_s, u"any:Other"_s}));
}

void TestNotificationCenter::sharedObjectsMatchByIdentity()
{
    struct Item
    {
        int n;
    };
    struct Other
    { };
    ZuveroNotificationCenter center;
    auto item = std::make_shared<Item>(Item{7});
    auto equalButAnother = std::make_shared<Item>(Item{7});
    std::weak_ptr<Item> watched = item;
    QList<std::shared_ptr<Item>> seen;
    auto token = center.addObserver(u"Loaded"_s, item, [&](const ZuveroNotification &n) {
        seen << n.object().value<Item>();
        // The object is typed: asking for another type gives nothing, and it is no QObject.
        QVERIFY(!n.object().value<Other>());
        QVERIFY(!n.object().qobject());
    });
    center.post(u"Loaded"_s, equalButAnother);
    center.post(u"Loaded"_s, std::shared_ptr<const Item>(item));
    QCOMPARE(seen, QList<std::shared_ptr<Item>>{item});
    QCOMPARE(seen.first()->n, 7);

    // Observing does not keep the object alive.
    seen.clear();
    item.reset();
    QVERIFY(watched.expired());
}

void TestNotificationCenter::observersEndWithTheirToken()
{
    ZuveroNotificationCenter center;
    int calls = 0;
    {
        auto token
            = center.addObserver(u"N"_s, nullptr, [&](const ZuveroNotification &) { ++calls; });
        center.post(u"N"_s, nullptr);
        ZuveroNotificationObserver moved = std::move(token); // still observing
        center.post(u"N"_s, nullptr);
    }
    center.post(u"N"_s, nullptr);
    QCOMPARE(calls, 2);

    // A token may outlive its center.
    auto orphan = std::make_unique<ZuveroNotificationCenter>();
    ZuveroNotificationObserver survivor
        = orphan->addObserver(u"N"_s, nullptr, [](const ZuveroNotification &) {});
    orphan.reset();
    QVERIFY(!survivor.isActive());
}

void TestNotificationCenter::observersMayChangeTheCenterWhileNotified()
{
    ZuveroNotificationCenter center;
    QStringList seen;
    ZuveroNotificationObserver second;
    ZuveroNotificationObserver added;
    auto first = center.addObserver(u"N"_s, nullptr, [&](const ZuveroNotification &) {
        seen << u"first"_s;
        second.remove(); // removed during the post: not called any more
        added = center.addObserver(u"N"_s, nullptr,
                                   [&](const ZuveroNotification &) { seen << u"added"_s; });
        center.post(u"Nested"_s, nullptr);
    });
    second = center.addObserver(u"N"_s, nullptr,
                                [&](const ZuveroNotification &) { seen << u"second"_s; });
    auto nested = center.addObserver(u"Nested"_s, nullptr,
                                     [&](const ZuveroNotification &) { seen << u"nested"_s; });

    center.post(u"N"_s, nullptr);
    QCOMPARE(seen, (QStringList{u"first"_s, u"nested"_s}));
    first.remove();
    seen.clear();
    center.post(u"N"_s, nullptr);
    QCOMPARE(seen, QStringList{u"added"_s});
}

void TestNotificationCenter::postsFromOtherThreads()
{
    ZuveroNotificationCenter center;
    std::atomic<int> calls{0};
    auto token = center.addObserver(u"N"_s, nullptr, [&](const ZuveroNotification &) { ++calls; });
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 1000; ++i) {
                center.post(u"N"_s, nullptr);
                auto transient
                    = center.addObserver(u"M"_s, nullptr, [](const ZuveroNotification &) {});
            }
        });
    }
    for (auto &thread : threads)
        thread.join();
    QCOMPARE(calls.load(), 4000);
}

QTEST_GUILESS_MAIN(TestNotificationCenter)
#include "tst_notificationcenter.moc"
