#include "ZVXConnectionProgressObserver.h"
#include "ZVXManualClock.h"

#include <QTest>

using namespace std::chrono_literals;

namespace {

struct Report
{
    double upload;
    double download;
};

struct Recorder
{
    std::vector<Report> reports;
    ZVXConnectionProgressObserver::ProgressBlock block()
    {
        return [this](double upload, double download) { reports.push_back({upload, download}); };
    }
};

std::shared_ptr<ZVXTransferCounters> counters(qint64 expectedToSend, qint64 sent,
                                              qint64 expectedToReceive, qint64 received)
{
    auto task = std::make_shared<ZVXTransferCounters>();
    task->setSendCounts(sent, expectedToSend);
    task->setReceiveCounts(received, expectedToReceive);
    return task;
}

} // namespace

class TestProgressObserver : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void fractions_data();
    void fractions();
    void reportsEveryThreeTenthsUntilRemoved();
    void ignoresMissingTaskOrBlock();
};

void TestProgressObserver::fractions_data()
{
    QTest::addColumn<qint64>("expectedToSend");
    QTest::addColumn<qint64>("sent");
    QTest::addColumn<qint64>("expectedToReceive");
    QTest::addColumn<qint64>("received");
    QTest::addColumn<int>("seconds");
    QTest::addColumn<double>("uploadWeight");
    QTest::addColumn<double>("downloadWeight");
    QTest::addColumn<double>("upload");
    QTest::addColumn<double>("download");

    // Unknown counts as done for sending and as not started for receiving; zero the other way.
    QTest::newRow("unknown sizes at start")
        << -1LL << 0LL << -1LL << 0LL << 0 << 0.5 << 0.5 << 0.5 << 0.0;
    QTest::newRow("nothing to send") << 0LL << 0LL << -1LL << 0LL << 0 << 0.5 << 0.5 << 0.0 << 0.0;
    QTest::newRow("empty answer") << 100LL << 100LL << 0LL << 0LL << 0 << 0.5 << 0.5 << 0.5 << 0.5;
    QTest::newRow("half sent after 15 s") << 100LL << 50LL << -1LL << 0LL << 15 << 0.5 << 0.5
                                          << 0.5660602794142788 << 0.31606027941427883;
    // Once the answer is past 0.001 of its size, the upload is over.
    QTest::newRow("answer begun") << 100LL << 10LL << 1000LL << 2LL << 3 << 0.5 << 0.5 << 1.0
                                  << 0.09163462346100909;
    QTest::newRow("answer at 0.001")
        << 100LL << 10LL << 1000LL << 1LL << 0 << 0.5 << 0.5 << 0.05 << 0.0005;
    QTest::newRow("other weights") << 10LL << 4LL << 0LL << 0LL << 15 << 0.25 << 0.9
                                   << 0.45803013970713946 << 0.6689085029457019;
    QTest::newRow("clamped") << 100LL << 150LL << -1LL << 0LL << 0 << 0.0 << 0.5 << 1.0 << 0.0;
}

void TestProgressObserver::fractions()
{
    QFETCH(qint64, expectedToSend);
    QFETCH(qint64, sent);
    QFETCH(qint64, expectedToReceive);
    QFETCH(qint64, received);
    QFETCH(int, seconds);
    QFETCH(double, uploadWeight);
    QFETCH(double, downloadWeight);
    QFETCH(double, upload);
    QFETCH(double, download);

    ZVXManualClock clock;
    ZVXConnectionProgressObserver observer;
    observer.setIdleUploadProgressFraction(uploadWeight);
    observer.setIdleDownloadProgressFraction(downloadWeight);
    Recorder recorder;
    const auto task = counters(expectedToSend, sent, expectedToReceive, received);
    observer.addTask(task, recorder.block());
    clock.advance(std::chrono::seconds(seconds));

    QCOMPARE(recorder.reports.size(), size_t(1 + seconds * 10 / 3));
    QCOMPARE(recorder.reports.back().upload, upload);
    QCOMPARE(recorder.reports.back().download, download);
}

void TestProgressObserver::reportsEveryThreeTenthsUntilRemoved()
{
    ZVXManualClock clock;
    ZVXConnectionProgressObserver observer;
    Recorder first, second;
    const auto firstTask = counters(-1, 0, -1, 0);
    const auto secondTask = counters(-1, 0, -1, 0);
    observer.addTask(firstTask, first.block());
    clock.advance(600ms);
    observer.addTask(secondTask, second.block());
    QCOMPARE(first.reports.size(), 3u);
    QCOMPARE(second.reports.size(), 1u);
    clock.advance(299ms);
    QCOMPARE(first.reports.size(), 3u);
    clock.advance(1ms);
    QCOMPARE(first.reports.size(), 4u);
    QCOMPARE(second.reports.size(), 2u);

    // Removal by identity, with a final report that is the last call.
    observer.removeTask(counters(-1, 0, -1, 0), 1.0, 1.0);
    observer.removeTask(firstTask, 1.0, 1.0);
    QCOMPARE(first.reports.size(), 5u);
    QCOMPARE(first.reports.back().upload, 1.0);
    QCOMPARE(first.reports.back().download, 1.0);
    clock.advance(900ms);
    QCOMPARE(first.reports.size(), 5u);
    QCOMPARE(second.reports.size(), 5u);

    observer.removeTask(secondTask);
    clock.advance(900ms);
    QCOMPARE(second.reports.size(), 5u);
    QCOMPARE(clock.pendingSteps(), 0);

    // A new task starts the timer again, once.
    observer.addTask(firstTask, first.block());
    observer.addTask(secondTask, second.block());
    clock.advance(300ms);
    QCOMPARE(first.reports.size(), 7u);
    QCOMPARE(clock.pendingSteps(), 1);
}

void TestProgressObserver::ignoresMissingTaskOrBlock()
{
    ZVXManualClock clock;
    ZVXConnectionProgressObserver observer;
    Recorder recorder;
    observer.addTask(nullptr, recorder.block());
    observer.addTask(counters(-1, 0, -1, 0), {});
    observer.removeTask(nullptr, 1.0, 1.0);
    QCOMPARE(clock.pendingSteps(), 0);
    QVERIFY(recorder.reports.empty());
}

QTEST_GUILESS_MAIN(TestProgressObserver)
#include "tst_progressobserver.moc"
