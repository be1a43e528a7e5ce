#include "ZVXBackwardCancellationPropagation.h"
#include "ZVXBlockConcurrentOperation.h"
#include "ZVXForwardCancellationPropagation.h"
#include "ZVXForwardCompletionPropagation.h"
#include "ZVXForwardErrorPropagation.h"
#include "ZVXMainThread.h"
#include "ZVXOperationQueue.h"
#include "ZuveroException.h"

#include <QScopeGuard>
#include <QTest>

#include <future>
#include <random>
#include <thread>

using namespace Qt::StringLiterals;

namespace {

const ZuveroError failure = ZuveroError::withDescription(u"test"_s, 42, {});
using Operation = std::shared_ptr<ZVXOperation>;
using Concurrent = std::shared_ptr<ZVXConcurrentOperation>;

//! Records its hooks and callbacks; its work does nothing, so it runs until ended.
class Probe : public ZVXConcurrentOperation
{
public:
    Probe()
    {
        onReady([this] { note("ready"); });
        onCancel([this] { note("cancel"); });
        onSuccess([this] { note("success"); });
        onError([this](const ZuveroError &e) { note(e == failure ? "error" : "other error"); });
        onFinish([this] { note("finish"); });
    }
    void note(const char *event) { events << QLatin1String(event); }
    QStringList events;

protected:
    void willExecute() override { note("willExecute"); }
    void main() override { note("main"); }
    void didFinish() override { note("didFinish"); }
};

//! Every change notice, and the thread of the last one.
class NoticeRecorder : public ZVXOperationObserver
{
public:
    void operationWillChangeValue(ZVXOperation &, ZVXOperationKey key) override
    {
        notices << QLatin1String("will ") + ZVXOperationKeyName(key);
    }
    void operationDidChangeValue(ZVXOperation &, ZVXOperationKey key) override
    {
        notices << QLatin1String("did ") + ZVXOperationKeyName(key);
        thread = std::this_thread::get_id();
    }
    QStringList notices;
    std::thread::id thread;
};

QString outcome(const ZVXConcurrentOperation &op)
{
    if (op.isCancelled())
        return u"cancelled"_s;
    if (!op.isScheduledForFinish())
        return u"open"_s;
    return op.success() ? u"success"_s : u"error %1"_s.arg(op.error().code());
}

void expectRaise(const std::function<void()> &call, const QString &reason)
{
    try {
        call();
        QFAIL("no exception");
    } catch (const ZuveroException &e) {
        QCOMPARE(e.name(), u"NSInvalidArgumentException"_s);
        QCOMPARE(e.reason(), reason);
    }
}

//! Lines written from any thread.
struct Log
{
    void add(const QString &line)
    {
        std::lock_guard locker(mutex);
        lines << line;
    }
    QString text() const
    {
        std::lock_guard locker(mutex);
        return lines.join(u", ");
    }
    mutable std::mutex mutex;
    QStringList lines;
};

//! Started, it logs and runs until cancelled.
std::shared_ptr<ZVXBlockConcurrentOperation> logging(Log &log, int index)
{
    const auto op = ZVXBlockConcurrentOperation::blockConcurrentOperationWithBlock(
        [&log, index](const auto &) { log.add(u"started %1"_s.arg(index)); });
    op->onCancel([&log, index] { log.add(u"cancelled %1"_s.arg(index)); });
    return op;
}

} // namespace

class TestOperations : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void transitions();
    void outcomeCallbacks_data();
    void outcomeCallbacks();
    void outcomes();
    void misuseRaises();
    void allDependenciesDidSucceed();
    void backgroundTask();
    void links_data();
    void links();
    void dependencyLinks();
    void chainSettlesOnTheChangingThread();
    void queueOrdersByDependencies();
    void queueOneAtATimeThroughTheMainThread();
    void queueCancelling();
    void stress();
};

void TestOperations::transitions()
{
    const auto dependency = ZVXOperation::operationWithBlock({});
    const auto start = [](Probe &op) { op.start(); };
    static const auto succeed = [](Probe &op) { op.finishWithSuccess(true); };
    static const auto fail = [](Probe &op) { op.finishWithSuccess(false, failure); };
    const auto cancel = [](Probe &op) { op.cancel(); };
    struct Row
    {
        const char *from;
        std::function<void(Probe &)> arrange, event;
        const char *callbacks, *notices, *state;
    };
    // clang-format off
    const Row rows[] = {
        {"new, not ready", [&](Probe &op) { op.addDependency(dependency); }, [&](Probe &) { dependency->start(); },
         "", "will isReady, did isReady", "ready"},
        {"new; finish", [](Probe &) { }, succeed, "",
         "will isScheduledForFinish, will isScheduledForError, will isReady, "
         "did isScheduledForFinish, did isScheduledForError, did isReady", "ready scheduledForFinish"},
        {"new; cancel", [](Probe &) { }, cancel, "",
         "will isScheduledForFinish, will isScheduledForCancellation, will isCancelled, will isReady, "
         "did isScheduledForFinish, did isScheduledForCancellation, did isCancelled, did isReady",
         "ready cancelled scheduledForFinish scheduledForCancellation"},
        {"ready; start", [](Probe &) { }, start, "ready, willExecute, main",
         "will isExecuting, did isExecuting", "ready executing"},
        {"settled by an error; start", fail, start, "didFinish, error, finish",
         "will isFinished, did isFinished", "ready finished scheduledForFinish scheduledForError"},
        {"settled by cancel; start", cancel, start, "didFinish, cancel, finish",
         "will isFinished, did isFinished", "ready finished cancelled scheduledForFinish scheduledForCancellation"},
        {"executing; finish", start, succeed, "didFinish, success, finish",
         "will isScheduledForFinish, will isScheduledForError, will isExecuting, will isFinished, "
         "did isScheduledForFinish, did isScheduledForError, did isExecuting, did isFinished",
         "ready finished scheduledForFinish"},
        {"executing; cancel", start, cancel, "didFinish, cancel, finish",
         "will isScheduledForFinish, will isScheduledForCancellation, will isCancelled, will isFinished, "
         "did isScheduledForFinish, did isScheduledForCancellation, did isCancelled, did isFinished",
         "ready executing finished cancelled scheduledForFinish scheduledForCancellation"},
        {"finished; finish, cancel, start", [](Probe &op) { op.start(); succeed(op); },
         [](Probe &op) { fail(op); op.cancel(); op.start(); }, "", "", "ready finished scheduledForFinish"},
        {"settled; cancel, finish", succeed, [](Probe &op) { op.cancel(); fail(op); },
         "", "", "ready scheduledForFinish"},
    };
    // clang-format on
    for (const Row &row : rows) {
        auto op = std::make_shared<Probe>();
        row.arrange(*op);
        op->events.clear();
        auto recorder = std::make_shared<NoticeRecorder>();
        op->addObserver(recorder, ZVXOperationKeys(0x7f));
        row.event(*op);
        QStringList state;
        const auto flag = [&state](bool set, const char *name) {
            if (set)
                state << QLatin1String(name);
        };
        flag(op->isReady(), "ready");
        flag(op->isExecuting(), "executing");
        flag(op->isFinished(), "finished");
        flag(op->isCancelled(), "cancelled");
        flag(op->isScheduledForFinish(), "scheduledForFinish");
        flag(op->isScheduledForError(), "scheduledForError");
        flag(op->isScheduledForCancellation(), "scheduledForCancellation");
        const QString seen
            = u"%1: [%2] [%3] [%4]"_s.arg(QLatin1String(row.from), op->events.join(u", "),
                                          recorder->notices.join(u", "), state.join(u' '));
        QCOMPARE(seen,
                 u"%1: [%2] [%3] [%4]"_s.arg(QLatin1String(row.from), QLatin1String(row.callbacks),
                                             QLatin1String(row.notices), QLatin1String(row.state)));
        op->cancel(); // a running operation keeps itself alive until it ends
    }
}

void TestOperations::outcomeCallbacks_data()
{
    QTest::addColumn<std::function<void(ZVXConcurrentOperation &)>>("settle");
    QTest::addColumn<QString>("expected");
    QTest::newRow("success") << std::function([](ZVXConcurrentOperation &) {})
                             << u"s1 elseC elseE s2 f1 f2"_s;
    QTest::newRow("error") << std::function([](ZVXConcurrentOperation &op) {
        op.finishWithSuccess(false, failure);
    }) << u"elseS elseC e42 f1 f2"_s;
    QTest::newRow("cancel") << std::function([](ZVXConcurrentOperation &op) { op.cancel(); })
                            << u"elseS c elseE f1 f2"_s;
}

void TestOperations::outcomeCallbacks()
{
    QFETCH(std::function<void(ZVXConcurrentOperation &)>, settle);
    QFETCH(QString, expected);
    QStringList log;
    const auto note
        = [&log](const char *text) { return [&log, text] { log << QLatin1String(text); }; };
    const auto op = ZVXConcurrentOperation::init();
    op->onSuccess(note("s1"), note("elseS"));
    op->onCancel(note("c"), note("elseC"));
    op->onError([&](const ZuveroError &e) { log << u"e%1"_s.arg(e.code()); }, note("elseE"));
    op->onSuccess(note("s2"));
    op->onFinish(note("f1"));
    op->onFinish(note("f2"));

    // Settled before start, or by the default work: one group, then the finish callbacks, once.
    settle(*op);
    QVERIFY(log.isEmpty());
    op->start();
    QCOMPARE(log.join(u' '), expected);
    QVERIFY(!op->readyBlocks() && !op->cancelBlocks() && !op->successBlocks() && !op->errorBlocks()
            && !op->finishBlocks());

    // The first outcome stays; nothing runs again, late callbacks never.
    const QString settled = outcome(*op);
    op->finishWithSuccess(true);
    op->finishWithSuccess(false);
    op->cancel();
    op->start();
    op->onSuccess(note("late"), note("late"));
    op->onFinish(note("late"));
    QCOMPARE(log.join(u' '), expected);
    QCOMPARE(outcome(*op), settled);
}

void TestOperations::outcomes()
{
    const auto unknown = ZVXConcurrentOperation::init();
    unknown->finishWithSuccess(false);
    QCOMPARE(
        unknown->error(),
        ZuveroError::withDescription(ZVXConcurrentOperationErrorDomain, 0, u"Unknown error"_s));
    const auto succeeded = ZVXConcurrentOperation::init();
    succeeded->finishWithSuccess(true, failure);
    QVERIFY(succeeded->success() && succeeded->error().isNull());
    // The error is typed: no other kind of value can be handed over as one.
    using Finish = decltype(&ZVXConcurrentOperation::finishWithSuccess);
    static_assert(!std::is_invocable_v<Finish, ZVXConcurrentOperation &, bool, QString>);
    static_assert(!std::is_invocable_v<Finish, ZVXConcurrentOperation &, bool, QVariant>);

    // A ready callback that ends the operation stops the others and the work.
    auto op = std::make_shared<Probe>();
    op->onReady([&op] { op->finishWithSuccess(true); });
    op->onReady([&op] { op->note("second ready"); });
    op->start();
    QCOMPARE(op->events.join(u", "), u"ready, didFinish, success, finish"_s);
}

void TestOperations::misuseRaises()
{
    const auto waiting = ZVXConcurrentOperation::init();
    waiting->addDependency(ZVXOperation::operationWithBlock({}));
    expectRaise([&] { waiting->start(); },
                u"ZVXConcurrentOperation is not ready: "_s + waiting->description());
    expectRaise(
        [&] {
            ZVXBackwardCancellationPropagation::propagationWithSourceOperation(waiting, waiting);
        },
        u"WTF"_s);

    // The blocks run in order, given the operation, and do not end it.
    QStringList log;
    const auto running = ZVXBlockConcurrentOperation::blockConcurrentOperationWithBlock(
        [&](const auto &self) { log << self->description(); });
    running->addExecutionBlock([&](const auto &) { log << u"second"_s; });
    running->start();
    QCOMPARE(log, QStringList({running->description(), u"second"_s}));
    QVERIFY(running->isExecuting() && !running->isFinished());
    expectRaise([&] { running->start(); },
                u"ZVXConcurrentOperation is already executing: "_s + running->description());
    expectRaise([&] { running->addExecutionBlock({}); },
                u"Can't add block to executing ZVXBlockConcurrentOperation"_s);
    // The lock was released on the way out: another thread still ends it.
    std::thread([&] { running->finishWithSuccess(true); }).join();
    expectRaise([&] { running->addExecutionBlock({}); },
                u"Can't add block to finished ZVXBlockConcurrentOperation"_s);
    QCOMPARE(running->executionBlocks().size(), 2);
}

void TestOperations::allDependenciesDidSucceed()
{
    // Cancelled and plain dependencies count as succeeded; the first error is reported.
    const auto op = ZVXConcurrentOperation::init();
    op->addDependency(ZVXOperation::operationWithBlock({}));
    op->addDependency(ZVXConcurrentOperation::init());
    op->dependencies().last()->cancel();
    ZuveroError error;
    QVERIFY(op->allDependenciesDidSucceed(&error) && error.isNull());
    for (const ZuveroError &cause : {failure, ZuveroError()}) {
        op->addDependency(ZVXConcurrentOperation::init());
        static_cast<ZVXConcurrentOperation &>(*op->dependencies().last())
            .finishWithSuccess(false, cause);
    }
    QVERIFY(!op->allDependenciesDidSucceed());
    QVERIFY(!op->allDependenciesDidSucceed(&error));
    QCOMPARE(error, failure);
}

void TestOperations::backgroundTask()
{
    ZuveroApplication *app = ZuveroApplication::sharedApplication();
    const int tasks = app->backgroundTaskCount();
    auto op = std::make_shared<Probe>();
    op->start();
    bool expired = false;
    op->beginApplicationBackgroundTaskWithExpirationHandler([&] { expired = true; });
    QVERIFY(op->backgroundTaskIdentifier() != ZuveroBackgroundTaskInvalid);
    QCOMPARE(app->backgroundTaskCount(), tasks + 1);

    // The host running out of time cancels the work, which ends the task.
    op->events.clear();
    app->expireBackgroundTasks();
    QVERIFY(expired);
    QCOMPARE(op->events.join(u", "), u"didFinish, cancel, finish"_s);
    op->beginApplicationBackgroundTask();
    QCOMPARE(op->backgroundTaskIdentifier(), ZuveroBackgroundTaskInvalid);
    QCOMPARE(app->backgroundTaskCount(), tasks);
}

void TestOperations::links_data()
{
    QTest::addColumn<QString>("link");
    QTest::addColumn<bool>("plainSource");
    QTest::addColumn<QString>("sourceEvents");
    QTest::addColumn<QString>("target");
    QTest::addColumn<bool>("released");
    // clang-format off
    QTest::newRow("forward cancellation, cancel") << "cancellation" << false << "cancel" << "cancelled" << true;
    QTest::newRow("forward cancellation, fail") << "cancellation" << false << "fail" << "open" << true;
    QTest::newRow("forward cancellation, plain cancel") << "cancellation" << true << "cancel" << "cancelled" << true;
    QTest::newRow("forward error, fail") << "error" << false << "fail" << "error 42" << true;
    QTest::newRow("forward error, cancel") << "error" << false << "cancel" << "open" << true;
    QTest::newRow("backward cancellation, succeed") << "backward" << false << "succeed" << "cancelled" << true;
    QTest::newRow("forward completion, succeed") << "completion" << false << "succeed" << "success" << true;
    QTest::newRow("forward completion, fail") << "completion" << false << "fail" << "error 42" << true;
    QTest::newRow("forward completion, cancel") << "completion" << false << "cancel" << "cancelled" << true;
    QTest::newRow("forward completion, plain run") << "completion" << true << "run" << "success" << true;
    // A plain source passes its cancellation once it has finished.
    QTest::newRow("forward completion, plain cancel") << "completion" << true << "cancel" << "open" << false;
    QTest::newRow("forward completion, plain cancel, run") << "completion" << true << "cancel run" << "cancelled" << true;
    // clang-format on
}

void TestOperations::links()
{
    QFETCH(QString, link);
    QFETCH(bool, plainSource);
    QFETCH(QString, sourceEvents);
    QFETCH(QString, target);
    QFETCH(bool, released);
    Operation source = plainSource ? ZVXOperation::operationWithBlock({})
                                   : Operation(ZVXConcurrentOperation::init());
    const auto concurrent
        = [&source] { return std::static_pointer_cast<ZVXConcurrentOperation>(source); };
    const Concurrent other = ZVXConcurrentOperation::init();
    std::shared_ptr<ZVXOperationDependencyPropagation> propagation;
    if (link == QLatin1String("cancellation"))
        propagation
            = ZVXForwardCancellationPropagation::propagationWithSourceOperation(source, other);
    else if (link == QLatin1String("error"))
        propagation
            = ZVXForwardErrorPropagation::propagationWithSourceOperation(concurrent(), other);
    else if (link == QLatin1String("backward"))
        propagation = ZVXBackwardCancellationPropagation::propagationWithSourceOperation(
            concurrent(), other);
    else
        propagation
            = ZVXForwardCompletionPropagation::propagationWithSourceOperation(source, other);
    propagation->propagateIfNeeded();
    QVERIFY(propagation->concernsOperation(source.get())
            && propagation->concernsOperation(other.get()));

    for (const QString &event : sourceEvents.split(u' ')) {
        if (event == QLatin1String("cancel"))
            source->cancel();
        else if (event == QLatin1String("run"))
            source->start();
        else
            concurrent()->finishWithSuccess(event == QLatin1String("succeed"), failure);
    }
    QCOMPARE(outcome(*other), target);
    // Done with, the link holds and observes nothing.
    QCOMPARE(!propagation->sourceOperation() && !propagation->targetOperation(), released);
    QCOMPARE(source.use_count(), released ? 1 : 2);
}

void TestOperations::dependencyLinks()
{
    // A dependency that failed already settles the dependant at once.
    const auto failed = ZVXConcurrentOperation::init();
    failed->finishWithSuccess(false, failure);
    const auto dependant = ZVXConcurrentOperation::init();
    dependant->addDependency(failed, true, false);
    QCOMPARE(outcome(*dependant), u"error 42"_s);

    // An exclusive dependant that ends first takes its dependency with it.
    const auto owned = ZVXConcurrentOperation::init();
    const auto owner = ZVXConcurrentOperation::init();
    owner->addDependency(owned, false, true);
    owner->cancel();
    QCOMPARE(outcome(*owned), u"cancelled"_s);

    // Removing a dependency drops its links with the wait.
    const auto inherited = ZVXConcurrentOperation::init(),
               exclusive = ZVXConcurrentOperation::init();
    const auto freed = ZVXConcurrentOperation::init();
    freed->addDependency(inherited, true, false);
    freed->addDependency(exclusive, false, true);
    freed->removeDependency(inherited);
    freed->removeDependency(exclusive);
    inherited->cancel();
    freed->start();
    QCOMPARE(outcome(*freed), u"success"_s);
    QCOMPARE(outcome(*exclusive), u"open"_s);
}

void TestOperations::chainSettlesOnTheChangingThread()
{
    // first <- second <- third, each inheriting failure; all settle inside the first's finish.
    const auto first = std::make_shared<Probe>();
    const auto second = ZVXConcurrentOperation::init();
    const auto third = std::make_shared<Probe>();
    second->addDependency(first, true, false);
    third->addDependency(second, true, false);
    auto recorder = std::make_shared<NoticeRecorder>();
    third->addObserver(recorder, ZVXOperationKey::IsScheduledForError);
    first->start();

    std::thread::id worker;
    QString seen;
    std::thread([&] {
        worker = std::this_thread::get_id();
        first->finishWithSuccess(false, failure);
        seen = outcome(*third);
    }).join();
    QCOMPARE(seen, u"error 42"_s);
    QCOMPARE(recorder->thread, worker);
    third->start();
    QCOMPARE(third->events.join(u", "), u"didFinish, error, finish"_s);
}

void TestOperations::queueOrdersByDependencies()
{
    Log log;
    ZVXOperationQueue queue;
    const auto step = [&log](const char *name) {
        return ZVXOperation::operationWithBlock([&log, name] { log.add(QLatin1String(name)); });
    };
    const auto a = step("a"), b = step("b"), c = step("c");
    c->addDependency(b);
    b->addDependency(a);
    queue.addOperation(c);
    queue.addOperation(b);
    QCOMPARE(queue.operations(), (QList<std::shared_ptr<ZVXOperation>>{c, b}));
    queue.addOperation(a);
    QTRY_COMPARE(log.text(), u"a, b, c"_s);
    QTRY_COMPARE(queue.operationCount(), 0);
    QVERIFY_THROWS_EXCEPTION(ZuveroException, queue.addOperation(a));
}

void TestOperations::queueOneAtATimeThroughTheMainThread()
{
    // Each operation hops to the main thread and ends there; the next starts only then.
    ZVXOperationQueue queue;
    queue.setMaxConcurrentOperationCount(1);
    std::atomic<int> running{0};
    std::atomic<bool> overlapped{false};
    QStringList ended;
    bool endedOnMain = true;
    for (int i = 0; i < 4; ++i) {
        const auto op = ZVXBlockConcurrentOperation::blockConcurrentOperationWithBlock(
            [&, i](const std::shared_ptr<ZVXBlockConcurrentOperation> &self) {
                if (++running > 1)
                    overlapped = true;
                ZVXMainThread::async([&, i, self] {
                    --running;
                    ended << QString::number(i);
                    self->finishWithSuccess(true);
                });
            });
        op->onFinish([&] { endedOnMain = endedOnMain && ZVXMainThread::isMainThread(); });
        queue.addOperation(op);
    }
    QTRY_COMPARE(ended.join(u' '), u"0 1 2 3"_s);
    QVERIFY(!overlapped && endedOnMain);
}

void TestOperations::queueCancelling()
{
    // The running one ends at once; the others are started only to end, in order.
    Log log;
    ZVXOperationQueue queue;
    queue.setMaxConcurrentOperationCount(1);
    for (int i = 0; i < 3; ++i)
        queue.addOperation(logging(log, i));
    QTRY_COMPARE(log.text(), u"started 0"_s);
    queue.cancelAllOperations();
    QTRY_COMPARE(queue.operationCount(), 0);
    QCOMPARE(log.text(), u"started 0, cancelled 0, cancelled 1, cancelled 2"_s);

    // A queue that goes away ends what it still holds, started or not.
    Log left;
    auto doomed = std::make_unique<ZVXOperationQueue>();
    const auto waiting = logging(left, 1);
    waiting->addDependency(ZVXConcurrentOperation::init());
    doomed->addOperation(logging(left, 0));
    doomed->addOperation(waiting);
    QTRY_COMPARE(left.text(), u"started 0"_s);
    doomed.reset();
    QCOMPARE(left.text(), u"started 0, cancelled 0, cancelled 1"_s);
}

void TestOperations::stress()
{
    // Operations created, linked, cancelled and finished from several threads at once, some
    // ending on another queue's thread. ZUVERO_STRESS_SEED=<n> replays a seed's choices.
    constexpr int Count = 10000, Drivers = 4;
    const QByteArray seedText = qgetenv("ZUVERO_STRESS_SEED");
    const quint32 seed = seedText.isEmpty() ? std::random_device()() : seedText.toUInt();
    qInfo("seed %u", seed);
    // A deadlock fails the run instead of hanging it.
    std::promise<void> done;
    std::thread watchdog([ended = done.get_future(), seed] {
        if (ended.wait_for(std::chrono::minutes(4)) == std::future_status::timeout)
            qFatal("Operations still running after 4 minutes, seed %u", seed);
    });
    const auto stopWatchdog = qScopeGuard([&] {
        done.set_value();
        watchdog.join();
    });

    struct Record
    {
        std::shared_ptr<ZVXOperation> op;
        std::shared_ptr<ZVXConcurrentOperation> concurrent;
        std::atomic<bool> published{false};
        std::atomic<int> ends[4] = {}; // cancel, success and error callbacks; finish callbacks
    };
    std::vector<Record> records(Count);
    ZVXOperationQueue queues[4];
    queues[1].setMaxConcurrentOperationCount(4);
    queues[2].setMaxConcurrentOperationCount(1);
    ZVXOperationQueue &replies = queues[3];

    const auto create = [&](Record &record, unsigned kind) {
        if (kind == 0) {
            record.op = ZVXOperation::operationWithBlock({});
            return;
        }
        const auto op = ZVXBlockConcurrentOperation::blockConcurrentOperationWithBlock(
            [&replies, kind](const std::shared_ptr<ZVXBlockConcurrentOperation> &self) {
                if (kind == 1)
                    self->finishWithSuccess(true);
                else if (kind == 2)
                    self->finishWithSuccess(false, failure);
                else if (kind == 3)
                    self->cancel();
                else {
                    // Ends later on another queue's thread, as a reply would.
                    self->beginApplicationBackgroundTask();
                    replies.addOperation(ZVXOperation::operationWithBlock(
                        [self, kind] { self->finishWithSuccess(kind == 4, failure); }));
                }
            });
        op->onCancel([&record] { ++record.ends[0]; });
        op->onSuccess([&record] { ++record.ends[1]; });
        op->onError([&record](const ZuveroError &) { ++record.ends[2]; });
        op->onFinish([&record] { ++record.ends[3]; });
        record.op = record.concurrent = op;
    };

    const auto drive = [&](int driver) {
        std::mt19937 random(seed + driver);
        const auto pick = [&](int below) -> Record * {
            Record &record = records[random() % below];
            return record.published.load(std::memory_order_acquire) ? &record : nullptr;
        };
        for (int i = driver; i < Count; i += Drivers) {
            Record &record = records[i];
            create(record, random() % 6);
            for (int links = i ? random() % 3 : 0; links > 0; --links) {
                if (const Record *dependency = pick(i); !dependency)
                    continue;
                else if (!record.concurrent)
                    record.op->addDependency(dependency->op);
                else if (random() % 4)
                    record.concurrent->addDependency(dependency->op, random() % 2,
                                                     random() % 4 == 0);
                else
                    record.concurrent->deferToOperation(dependency->op, random() % 4 == 0);
            }
            queues[i % 3].addOperation(record.op);
            record.published.store(true, std::memory_order_release);

            const unsigned action = random() % 100;
            Record *other = pick(i + 1);
            if (!other)
                continue;
            if (action < 5) {
                other->op->cancel();
            } else if (action < 10 && other->concurrent) {
                other->concurrent->finishWithSuccess(random() % 2, failure);
            } else if (action < 13) {
                const auto dependencies = other->op->dependencies();
                if (!dependencies.isEmpty())
                    other->op->removeDependency(dependencies.at(random() % dependencies.size()));
            }
        }
    };
    std::vector<std::thread> threads;
    for (int driver = 0; driver < Drivers; ++driver)
        threads.emplace_back(drive, driver);
    for (std::thread &thread : threads)
        thread.join();
    for (ZVXOperationQueue &queue : queues)
        QTRY_COMPARE_WITH_TIMEOUT(queue.operationCount(), 0, 120000);

    int outcomes[3] = {};
    for (const Record &record : records) {
        QVERIFY(record.op->isFinished());
        if (!record.concurrent)
            continue;
        const int how = record.concurrent->isCancelled() ? 0 : record.concurrent->success() ? 1 : 2;
        const auto &ends = record.ends;
        QVERIFY(ends[how] == 1 && ends[0] + ends[1] + ends[2] == 1 && ends[3] == 1);
        ++outcomes[how];
    }
    // Every ending was reached, or the run proved less than it seems to.
    QVERIFY2(outcomes[0] && outcomes[1] && outcomes[2],
             qPrintable(u"cancelled %1, succeeded %2, failed %3"_s.arg(outcomes[0])
                            .arg(outcomes[1])
                            .arg(outcomes[2])));
}

QTEST_GUILESS_MAIN(TestOperations)
#include "tst_operations.moc"
