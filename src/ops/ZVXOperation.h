#pragma once

#include "ZuveroError.h"
#include "zuvero_export.h"

#include <QFlags>
#include <QList>
#include <QString>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

//! The name of the exceptions raised when an operation, a link or a queue is misused.
inline constexpr QLatin1String ZVXInvalidArgumentException{"NSInvalidArgumentException"};

//! The observable properties of an operation.
enum class ZVXOperationKey : unsigned {
    IsReady = 0x01,
    IsExecuting = 0x02,
    IsFinished = 0x04,
    IsCancelled = 0x08,
    IsScheduledForFinish = 0x10,
    IsScheduledForError = 0x20,
    IsScheduledForCancellation = 0x40,
};
Q_DECLARE_FLAGS(ZVXOperationKeys, ZVXOperationKey)
Q_DECLARE_OPERATORS_FOR_FLAGS(ZVXOperationKeys)

//! "isReady", "isExecuting", ..., "isScheduledForCancellation".
ZUVERO_EXPORT QLatin1String ZVXOperationKeyName(ZVXOperationKey key);

class ZVXOperation;

/*!
    Told of the changes of an operation's properties: a will-change notice
    before and a did-change notice after each change, on the thread that
    makes it and with ZVXOperation::propagationRecursiveLock() held.
*/
class ZUVERO_EXPORT ZVXOperationObserver
{
public:
    virtual ~ZVXOperationObserver();
    virtual void operationWillChangeValue(ZVXOperation &operation, ZVXOperationKey key);
    virtual void operationDidChangeValue(ZVXOperation &operation, ZVXOperationKey key) = 0;
};

/*!
    A unit of work: it becomes ready when every dependency has finished (or
    when it is cancelled), runs main() once when started and then is
    finished. Operations are shared between queues, links and callers:
    create them with std::make_shared (or a factory) and hold them by
    std::shared_ptr.

    Every change of state of every operation happens under one recursive
    lock, propagationRecursiveLock(), so that a change may settle further
    operations from inside its notices without any chance of deadlock.
*/
class ZUVERO_EXPORT ZVXOperation : public std::enable_shared_from_this<ZVXOperation>
{
public:
    //! \a work is what main() does; without it the operation does nothing.
    explicit ZVXOperation(std::function<void()> work = {});
    virtual ~ZVXOperation();
    ZVXOperation(const ZVXOperation &) = delete;
    ZVXOperation &operator=(const ZVXOperation &) = delete;

    static std::shared_ptr<ZVXOperation> operationWithBlock(std::function<void()> work);

    //! Runs the operation on this thread; raises when it is not ready or already executing.
    void start();
    virtual void cancel();

    virtual bool isReady() const;
    bool isExecuting() const { return m_executing.load(); }
    bool isFinished() const { return m_finished.load(); }
    bool isCancelled() const { return m_cancelled.load(); }
    //! True for operations that may still be running when start() returns.
    virtual bool isAsynchronous() const { return false; }
    bool isConcurrent() const { return isAsynchronous(); }

    //! The operation becomes ready only once \a operation has finished.
    void addDependency(const std::shared_ptr<ZVXOperation> &operation);
    virtual void removeDependency(const std::shared_ptr<ZVXOperation> &operation);
    QList<std::shared_ptr<ZVXOperation>> dependencies() const;

    /*!
        False, with that error in \a error when given, at the first
        dependency that is a ZVXConcurrentOperation holding an error. Other
        dependencies, cancelled ones included, count as succeeded.
    */
    bool allDependenciesDidSucceed(ZuveroError *error = nullptr) const;

    //! Observers are held weakly; an observer gone is simply not told.
    void addObserver(const std::shared_ptr<ZVXOperationObserver> &observer, ZVXOperationKeys keys);
    void removeObserver(const ZVXOperationObserver *observer, ZVXOperationKeys keys);

    //! "<ClassName: 0x...>", for log lines and exception reasons.
    QString description() const;

    static std::recursive_mutex &propagationRecursiveLock();

protected:
    //! The work. Runs on the thread that called start(), without the lock.
    virtual void main();

    /*!
        Called by start() with the lock held: checks that the operation may
        start and changes its state. True when startedWork() must follow,
        after the lock is released.
    */
    virtual bool startLocked();
    virtual void startedWork();

    void willChangeValueForKey(ZVXOperationKey key);
    void didChangeValueForKey(ZVXOperationKey key);
    //! Plain setters of the state; the caller holds the lock and announces the changes.
    void setExecuting(bool executing) { m_executing.store(executing); }
    void setFinished(bool finished) { m_finished.store(finished); }
    void setCancelled(bool cancelled) { m_cancelled.store(cancelled); }

    /*!
        False for a finished operation (starting it again is harmless);
        raises, naming \a className, for one that is not ready or already
        executing; true otherwise.
    */
    bool mayStart(QLatin1String className) const;

private:
    friend class ZVXOperationQueue;
    class DependencyObserver;
    struct ObserverEntry
    {
        std::weak_ptr<ZVXOperationObserver> observer;
        const ZVXOperationObserver *identity;
        ZVXOperationKeys keys;
    };

    void notifyObservers(ZVXOperationKey key, bool didChange);

    std::function<void()> m_work;
    std::atomic<bool> m_executing{false};
    std::atomic<bool> m_finished{false};
    std::atomic<bool> m_cancelled{false};
    std::atomic<bool> m_enqueued{false};
    // Guarded by propagationRecursiveLock().
    QList<std::shared_ptr<ZVXOperation>> m_dependencies;
    std::shared_ptr<DependencyObserver> m_dependencyObserver;
    std::vector<ObserverEntry> m_observers;
};
