#include "ZVXOperationQueue.h"

#include "ZuveroException.h"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <thread>
#include <unordered_map>

namespace {

// Concurrent operations hold a worker only while they start, so a few threads go a long way;
// this bounds how many synchronous ones run at once in a queue without a limit of its own.
constexpr int MaxWorkerThreads = 64;

using Key = ZVXOperationKey;

} // namespace

/*
    Everything here is guarded by the operations' class-wide lock: the queue
    learns of readiness and ends through the operations' notices, which
    arrive with that lock held, and a worker checks readiness and starts an
    operation under one hold of it.
*/
class ZVXOperationQueue::Private final : public ZVXOperationObserver,
                                         public std::enable_shared_from_this<Private>
{
public:
    struct Entry
    {
        std::shared_ptr<ZVXOperation> operation;
        quint64 order = 0;
        bool started = false;
        bool listed = false;
    };

    void operationDidChangeValue(ZVXOperation &operation, Key key) override;
    void listIfReady(Entry &entry);
    bool hasRoom() const { return maxConcurrent < 0 || executing < maxConcurrent; }
    void wakeWorker();
    void run();
    std::vector<Entry> sortedEntries() const;

    std::unordered_map<const ZVXOperation *, Entry> entries;
    std::deque<std::shared_ptr<ZVXOperation>> ready;
    quint64 nextOrder = 0;
    int maxConcurrent = DefaultMaxConcurrentOperationCount;
    int executing = 0;
    int busyWorkers = 0;
    bool stopping = false;
    std::vector<std::thread> workers;
    std::condition_variable_any wake;
};

void ZVXOperationQueue::Private::operationDidChangeValue(ZVXOperation &operation, Key key)
{
    const auto it = entries.find(&operation);
    if (it == entries.end())
        return;
    if (key == Key::IsReady) {
        listIfReady(it->second);
    } else if (operation.isFinished()) {
        if (it->second.started)
            --executing;
        entries.erase(it);
        wakeWorker();
    }
}

void ZVXOperationQueue::Private::listIfReady(Entry &entry)
{
    if (entry.started || entry.listed || !entry.operation->isReady())
        return;
    entry.listed = true;
    ready.push_back(entry.operation);
    wakeWorker();
}

void ZVXOperationQueue::Private::wakeWorker()
{
    if (stopping || ready.empty() || !hasRoom())
        return;
    if (busyWorkers < int(workers.size())) {
        wake.notify_one();
        return;
    }
    const int limit
        = maxConcurrent > 0 ? std::min(maxConcurrent, MaxWorkerThreads) : MaxWorkerThreads;
    if (int(workers.size()) < limit)
        workers.emplace_back([self = shared_from_this()] { self->run(); });
}

void ZVXOperationQueue::Private::run()
{
    std::unique_lock locker(ZVXOperation::propagationRecursiveLock());
    for (;;) {
        wake.wait(locker, [this] { return stopping || (!ready.empty() && hasRoom()); });
        if (stopping)
            return;
        const std::shared_ptr<ZVXOperation> operation = std::move(ready.front());
        ready.pop_front();
        const auto it = entries.find(operation.get());
        if (it == entries.end() || it->second.started)
            continue;
        it->second.listed = false;
        // A dependency added since it was listed: it is listed again when that one ends.
        if (!operation->isReady())
            continue;
        it->second.started = true;
        ++executing;
        ++busyWorkers;
        // Someone else looks at what is left while this worker is busy.
        wakeWorker();
        if (operation->startLocked()) {
            locker.unlock();
            operation->startedWork();
            locker.lock();
        }
        --busyWorkers;
    }
}

std::vector<ZVXOperationQueue::Private::Entry> ZVXOperationQueue::Private::sortedEntries() const
{
    std::vector<Entry> sorted;
    for (const auto &[key, entry] : entries)
        sorted.push_back(entry);
    std::sort(sorted.begin(), sorted.end(),
              [](const Entry &a, const Entry &b) { return a.order < b.order; });
    return sorted;
}

ZVXOperationQueue::ZVXOperationQueue()
    : d(std::make_shared<Private>())
{ }

ZVXOperationQueue::~ZVXOperationQueue()
{
    std::vector<Private::Entry> left;
    std::vector<std::thread> workers;
    {
        std::lock_guard locker(ZVXOperation::propagationRecursiveLock());
        d->stopping = true;
        left = d->sortedEntries();
        d->entries.clear();
        d->ready.clear();
        workers = std::move(d->workers);
        d->wake.notify_all();
    }
    for (const Private::Entry &entry : left)
        entry.operation->cancel();
    // Cancelled, they are ready and end as soon as they are started.
    for (const Private::Entry &entry : left) {
        if (!entry.started)
            entry.operation->start();
    }
    for (std::thread &worker : workers) {
        if (worker.get_id() == std::this_thread::get_id())
            worker.detach();
        else
            worker.join();
    }
}

void ZVXOperationQueue::addOperation(const std::shared_ptr<ZVXOperation> &operation)
{
    if (!operation)
        return;
    const auto refuse = [&](const char *reason) {
        throw ZuveroException(ZVXInvalidArgumentException,
                              QStringLiteral("ZVXOperationQueue: operation %1: %2")
                                  .arg(QLatin1String(reason), operation->description()));
    };
    std::lock_guard locker(ZVXOperation::propagationRecursiveLock());
    if (operation->isFinished())
        refuse("is finished and cannot be enqueued");
    if (operation->isExecuting())
        refuse("is executing and cannot be enqueued");
    if (operation->m_enqueued.exchange(true))
        refuse("is already enqueued on a queue");
    Private::Entry &entry = d->entries[operation.get()];
    entry.operation = operation;
    entry.order = d->nextOrder++;
    operation->addObserver(d, Key::IsReady | Key::IsFinished);
    d->listIfReady(entry);
}

QList<std::shared_ptr<ZVXOperation>> ZVXOperationQueue::operations() const
{
    std::lock_guard locker(ZVXOperation::propagationRecursiveLock());
    QList<std::shared_ptr<ZVXOperation>> operations;
    for (const Private::Entry &entry : d->sortedEntries())
        operations.append(entry.operation);
    return operations;
}

int ZVXOperationQueue::operationCount() const
{
    std::lock_guard locker(ZVXOperation::propagationRecursiveLock());
    return int(d->entries.size());
}

int ZVXOperationQueue::maxConcurrentOperationCount() const
{
    std::lock_guard locker(ZVXOperation::propagationRecursiveLock());
    return d->maxConcurrent;
}

void ZVXOperationQueue::setMaxConcurrentOperationCount(int count)
{
    std::lock_guard locker(ZVXOperation::propagationRecursiveLock());
    d->maxConcurrent = count;
    d->wakeWorker();
}

void ZVXOperationQueue::cancelAllOperations()
{
    // In one hold of the lock, so that no worker starts one of them in between.
    std::lock_guard locker(ZVXOperation::propagationRecursiveLock());
    for (const auto &operation : operations())
        operation->cancel();
}
