#include "ZuveroNotificationCenter.h"

#include <QTest>

#include <thread>

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
            seen << observer + QLatin1Char(':') + n.name()
                    + n.userInfo().value(QStringLiteral("n")).toString();
        };
    };
    auto byName
        = center.addObserver(QStringLiteral("Changed"), nullptr, record(QStringLiteral("name")));
    auto byObject
        = center.addObserver(QStringLiteral("Changed"), &facade, record(QStringLiteral("object")));
    auto everything = center.addObserver({}, nullptr, record(QStringLiteral("any")));

    center.post(QStringLiteral("Changed"), &facade, {{QStringLiteral("n"), 1}});
    center.post(QStringLiteral("Changed"), &other);
    center.post(QStringLiteral("Other"), &facade);
    QCOMPARE(seen,
             (QStringList{QStringLiteral("name:Changed1"), QStringLiteral("object:Changed1"),
                          QStringLiteral("any:Changed1"), QStringLiteral("name:Changed"),
                          QStringLiteral("any:Changed"), QStringLiteral("any:Other")}));
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
    auto token
        = center.addObserver(QStringLiteral("Loaded"), item, [&](const ZuveroNotification &n) {
              seen << n.object().value<Item>();
              // The object is typed: asking for another type gives nothing, and it is no QObject.
              QVERIFY(!n.object().value<Other>());
              QVERIFY(!n.object().qobject());
          });
    center.post(QStringLiteral("Loaded"), equalButAnother);
    center.post(QStringLiteral("Loaded"), std::shared_ptr<const Item>(item));
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
        auto token = center.addObserver(QStringLiteral("N"), nullptr,
                                        [&](const ZuveroNotification &) { ++calls; });
        center.post(QStringLiteral("N"), nullptr);
        ZuveroNotificationObserver moved = std::move(token); // still observing
        center.post(QStringLiteral("N"), nullptr);
    }
    center.post(QStringLiteral("N"), nullptr);
    QCOMPARE(calls, 2);

    // A token may outlive its center.
    auto orphan = std::make_unique<ZuveroNotificationCenter>();
    ZuveroNotificationObserver survivor
        = orphan->addObserver(QStringLiteral("N"), nullptr, [](const ZuveroNotification &) {});
    orphan.reset();
    QVERIFY(!survivor.isActive());
}

void TestNotificationCenter::observersMayChangeTheCenterWhileNotified()
{
    ZuveroNotificationCenter center;
    QStringList seen;
    ZuveroNotificationObserver second;
    ZuveroNotificationObserver added;
    auto first = center.addObserver(QStringLiteral("N"), nullptr, [&](const ZuveroNotification &) {
        seen << QStringLiteral("first");
        second.remove(); // removed during the post: not called any more
        added = center.addObserver(QStringLiteral("N"), nullptr, [&](const ZuveroNotification &) {
            seen << QStringLiteral("added");
        });
        center.post(QStringLiteral("Nested"), nullptr);
    });
    second = center.addObserver(QStringLiteral("N"), nullptr, [&](const ZuveroNotification &) {
        seen << QStringLiteral("second");
    });
    auto nested
        = center.addObserver(QStringLiteral("Nested"), nullptr,
                             [&](const ZuveroNotification &) { seen << QStringLiteral("nested"); });

    center.post(QStringLiteral("N"), nullptr);
    QCOMPARE(seen, (QStringList{QStringLiteral("first"), QStringLiteral("nested")}));
    first.remove();
    seen.clear();
    center.post(QStringLiteral("N"), nullptr);
    QCOMPARE(seen, QStringList{QStringLiteral("added")});
}

void TestNotificationCenter::postsFromOtherThreads()
{
    ZuveroNotificationCenter center;
    std::atomic<int> calls{0};
    auto token = center.addObserver(QStringLiteral("N"), nullptr,
                                    [&](const ZuveroNotification &) { ++calls; });
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 1000; ++i) {
                center.post(QStringLiteral("N"), nullptr);
                auto transient = center.addObserver(QStringLiteral("M"), nullptr,
                                                    [](const ZuveroNotification &) {});
            }
        });
    }
    for (auto &thread : threads)
        thread.join();
    QCOMPARE(calls.load(), 4000);
}

QTEST_GUILESS_MAIN(TestNotificationCenter)
#include "tst_notificationcenter.moc"
