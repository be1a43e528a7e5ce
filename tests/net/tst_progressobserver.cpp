#include "ZVXConnectionProgressObserver.h"
#include "ZVXManualClock.h"

#include <QTest>

using namespace std::chrono_literals;

namespace {

struct Recorder
{
    std::vector<std::pair<double, double>> reports;
    ZVXConnectionProgressObserver::ProgressBlock block()
    {
        return [this](double upload, double download) { reports.emplace_back(upload, download); };
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
};

void TestProgressObserver::fractions_data()
{
    QTest::addColumn<QList<qint64>>(
        "counts"); // expected to send, sent, expected to receive, received
    QTest::addColumn<int>("seconds");
    QTest::addColumn<double>("uploadWeight");
    QTest::addColumn<double>("downloadWeight");
    QTest::addColumn<double>("upload");
    QTest::addColumn<double>("download");

    using Counts = QList<qint64>;
    // Unknown counts as done for sending and as not started for receiving; zero the other way.
    QTest::newRow("unknown sizes") << Counts{-1, 0, -1, 0} << 0 << 0.5 << 0.5 << 0.5 << 0.0;
    QTest::newRow("nothing to send") << Counts{0, 0, -1, 0} << 0 << 0.5 << 0.5 << 0.0 << 0.0;
    QTest::newRow("empty answer") << Counts{100, 100, 0, 0} << 0 << 0.5 << 0.5 << 0.5 << 0.5;
    QTest::newRow("half sent after 15 s")
        << Counts{100, 50, -1, 0} << 15 << 0.5 << 0.5 << 0.5660602794142788 << 0.31606027941427883;
    // Once the answer is past 0.001 of its size, the upload is over.
    QTest::newRow("answer begun") << Counts{100, 10, 1000, 2} << 3 << 0.5 << 0.5 << 1.0
                                  << 0.09163462346100909;
    QTest::newRow("answer at 0.001")
        << Counts{100, 10, 1000, 1} << 0 << 0.5 << 0.5 << 0.05 << 0.0005;
    QTest::newRow("other weights")
        << Counts{10, 4, 0, 0} << 15 << 0.25 << 0.9 << 0.45803013970713946 << 0.6689085029457019;
    QTest::newRow("clamped") << Counts{100, 150, -1, 0} << 0 << 0.0 << 0.5 << 1.0 << 0.0;
}

void TestProgressObserver::fractions()
{
    QFETCH(QList<qint64>, counts);
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
    observer.addTask(counters(counts[0], counts[1], counts[2], counts[3]), recorder.block());
    clock.advance(std::chrono::seconds(seconds));

    QCOMPARE(recorder.reports.size(), size_t(1 + seconds * 10 / 3));
    QCOMPARE(recorder.reports.back().first, upload);
    QCOMPARE(recorder.reports.back().second, download);
}

void TestProgressObserver::reportsEveryThreeTenthsUntilRemoved()
{
    ZVXManualClock clock;
    ZVXConnectionProgressObserver observer;
    Recorder first, second, ignored;
    observer.addTask(nullptr, ignored.block());
    observer.addTask(counters(-1, 0, -1, 0), {});
    QCOMPARE(clock.pendingSteps(), 0);

    const auto firstTask = counters(-1, 0, -1, 0);
    const auto secondTask = counters(-1, 0, -1, 0);
    observer.addTask(firstTask, first.block());
    clock.advance(600ms);
    observer.addTask(secondTask, second.block());
    clock.advance(299ms);
    QCOMPARE(first.reports.size(), 3u);
    QCOMPARE(second.reports.size(), 1u);
    clock.advance(1ms);
    QCOMPARE(first.reports.size(), 4u);
    QCOMPARE(second.reports.size(), 2u);

    // Removal by identity, with a final report that is the last call.
    observer.removeTask(counters(-1, 0, -1, 0), 1.0, 1.0);
    observer.removeTask(firstTask, 1.0, 1.0);
    QCOMPARE(first.reports.back(), std::make_pair(1.0, 1.0));
    observer.removeTask(secondTask);
    clock.advance(900ms);
    QCOMPARE(first.reports.size(), 5u);
    QCOMPARE(second.reports.size(), 2u);
    QCOMPARE(clock.pendingSteps(), 0);
    QVERIFY(ignored.reports.empty());

    // A new task starts the timer again, once.
    observer.addTask(firstTask, first.block());
    observer.addTask(secondTask, second.block());
    clock.advance(300ms);
    QCOMPARE(first.reports.size(), 7u);
    QCOMPARE(clock.pendingSteps(), 1);
}

QTEST_GUILESS_MAIN(TestProgressObserver)
#include "tst_progressobserver.moc"
