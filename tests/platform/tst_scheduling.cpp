#include "ZVXClock.h"
#include "ZVXGenerationCounter.h"
#include "ZVXMainThread.h"
#include "ZVXManualClock.h"
#include "ZuveroException.h"

#include <QTest>
#include <QThread>

#include <thread>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

class TestScheduling : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void mainThreadCheck();
    void asyncRunsOnTheMainThread();
    void systemClockFromAWorkerThread();
    void manualClockRunsStepsInOrder();
    void lastCallerWins();
    void generationsWrap();
};

void TestScheduling::mainThreadCheck()
{
    QVERIFY(ZVXMainThread::isMainThread());
    ZVXMainThread::assertMainThread();

    QString name, reason;
    bool onMain = true;
    std::thread worker([&] {
        onMain = ZVXMainThread::isMainThread();
        try {
            ZVXMainThread::assertMainThread();
        } catch (const ZuveroException &e) {
            name = e.name();
            reason = e.reason();
        }
    });
    worker.join();
    QVERIFY(!onMain);
    QCOMPARE(name, u"Must run on main thread"_s);
    QVERIFY(!reason.isEmpty());
}

void TestScheduling::asyncRunsOnTheMainThread()
{
    QThread *ranOn = nullptr;
    std::thread worker([&] { ZVXMainThread::async([&] { ranOn = QThread::currentThread(); }); });
    worker.join();
    QTRY_COMPARE(ranOn, QThread::currentThread());

    // Queued, even when asked for on the main thread; dropped with its context.
    bool ran = false;
    ZVXMainThread::async([&] { ran = true; });
    QVERIFY(!ran);
    QTRY_VERIFY(ran);

    bool contextRan = false;
    auto *context = new QObject;
    ZVXMainThread::async([&] { contextRan = true; }, context);
    delete context;
    bool after = false;
    ZVXMainThread::async([&] { after = true; });
    QTRY_VERIFY(after);
    QVERIFY(!contextRan);
}

void TestScheduling::systemClockFromAWorkerThread()
{
    // Qt timers need a thread with an event loop; the clock must hop to the main thread.
    QThread *ranOn = nullptr;
    std::thread worker(
        [&] { ZVXClock::after(20ms, nullptr, [&] { ranOn = QThread::currentThread(); }); });
    worker.join();
    QTRY_COMPARE(ranOn, QThread::currentThread());

    const QDateTime before = QDateTime::currentDateTimeUtc();
    QVERIFY(qAbs(ZVXClock::currentTime().msecsTo(before)) < 5000);
}

void TestScheduling::manualClockRunsStepsInOrder()
{
    ZVXManualClock clock;
    const QDateTime start = clock.now();
    QStringList order;
    ZVXClock::after(300ms, nullptr, [&] { order << u"0.3"_s; });
    ZVXClock::after(20ms, nullptr, [&] {
        order << u"0.02"_s;
        // A step scheduled by a step runs in the same advance when it falls due.
        ZVXClock::after(100ms, nullptr, [&] { order << u"0.12"_s; });
    });
    ZVXClock::after(300ms, nullptr, [&] { order << u"0.3 second"_s; });
    auto *gone = new QObject;
    ZVXClock::after(10ms, gone, [&] { order << u"gone"_s; });
    delete gone;

    clock.advance(299ms);
    QCOMPARE(order, (QStringList{u"0.02"_s, u"0.12"_s}));
    clock.advance(1ms);
    QCOMPARE(order.mid(2), (QStringList{u"0.3"_s, u"0.3 second"_s}));
    QCOMPARE(clock.now(), start.addMSecs(300));
    QCOMPARE(clock.pendingSteps(), 0);

    // A 30-day age limit takes no time either.
    clock.advance(std::chrono::days(30));
    QCOMPARE(start.daysTo(ZVXClock::currentTime()), 30);
}

void TestScheduling::lastCallerWins()
{
    ZVXManualClock clock;
    static ZVXGenerationCounter reload;
    QStringList fired;
    reload.scheduleLast(1s, nullptr, [&] { fired << u"first"_s; });
    clock.advance(500ms);
    reload.scheduleLast(1s, nullptr, [&] { fired << u"second"_s; });
    clock.advance(600ms);
    QVERIFY(fired.isEmpty()); // the first was superseded
    clock.advance(400ms);
    QCOMPARE(fired, QStringList{u"second"_s});

    // Counters are independent per kind of step, and a step may outlive a member counter.
    auto other = std::make_unique<ZVXGenerationCounter>();
    other->scheduleLast(1s, nullptr, [&] { fired << u"other"_s; });
    reload.scheduleLast(1s, nullptr, [&] { fired << u"third"_s; });
    other.reset();
    clock.advance(1s);
    QCOMPARE(fired.mid(1), (QStringList{u"other"_s, u"third"_s}));
}

void TestScheduling::generationsWrap()
{
    ZVXManualClock clock;
    ZVXGenerationCounter counter(0xffff'fffeU);
    QStringList fired;
    counter.scheduleLast(1s, nullptr, [&] { fired << u"at max"_s; });
    QCOMPARE(counter.current(), 0xffff'ffffU);
    counter.scheduleLast(1s, nullptr, [&] { fired << u"wrapped"_s; });
    QCOMPARE(counter.current(), 0u);
    clock.advance(1s);
    QCOMPARE(fired, QStringList{u"wrapped"_s});
}

QTEST_GUILESS_MAIN(TestScheduling)
#include "tst_scheduling.moc"
