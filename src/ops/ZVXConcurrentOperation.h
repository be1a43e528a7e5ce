#pragma once

#include "ZVXOperation.h"
#include "ZuveroApplication.h"
#include "ZuveroNotificationCenter.h"

#include <optional>

class ZVXOperationDependencyPropagation;

/*!
    An operation that runs for as long as its work needs and ends only when
    it is finished with an outcome (success, or an error) or cancelled, from
    any thread. The first outcome wins; it may be settled before the
    operation starts, which then ends as soon as it is started, without
    running main().

    At the end, on the thread that settles it and with the class-wide lock
    held, exactly one group of callbacks runs (cancel, success or error),
    then the finish callbacks. Links to other operations carry cancellation,
    errors and outcomes between them (addDependency(), deferToOperation()).

    States: new -> ready -> executing -> finished, or new -> settled
    (cancelled or finished before start) -> finished at start. A cancelled
    running operation reports both executing and finished.

    Once main() runs, the operation keeps itself alive until it ends, and
    its links hold the operations at both ends until either can no longer
    change: every operation must be ended (or dropped before it has links).
*/
class ZUVERO_EXPORT ZVXConcurrentOperation : public ZVXOperation
{
public:
    using Block = std::function<void()>;
    using ErrorBlock = std::function<void(const ZuveroError &error)>;

    ZVXConcurrentOperation();
    ~ZVXConcurrentOperation() override;

    static std::shared_ptr<ZVXConcurrentOperation> init();

    /*!
        Sets the outcome, unless one is settled already. A failure without
        an error gets one in ZVXConcurrentOperationErrorDomain, code 0,
        "Unknown error"; an error given with success is dropped.
    */
    void finishWithSuccess(bool success, const ZuveroError &error = {});
    void cancel() override;
    //! A target for notification observers: cancels.
    void cancelFromNotification(const ZuveroNotification &notification);

    //! Also ready once its outcome is settled, so that a queue starts it and lets it end.
    bool isReady() const override;
    bool isAsynchronous() const override { return true; }
    bool isScheduledForFinish() const;
    bool isScheduledForError() const;
    bool isScheduledForCancellation() const { return isCancelled(); }

    bool success() const { return m_success.load(); }
    //! Null on success and on cancellation.
    ZuveroError error() const;
    //! Free text for logs and messages; not used by the operation itself.
    QString localizedDescription() const;
    void setLocalizedDescription(const QString &description);

    /*!
        Callbacks, run in order of registration. An "else" callback is
        registered for the two other outcomes. Callbacks registered after
        the end are kept but never run; absent ones are ignored.
    */
    void onReady(Block block);
    void onCancel(Block block, Block elseBlock = {});
    void onSuccess(Block block, Block elseBlock = {});
    void onError(ErrorBlock block, Block elseBlock = {});
    void onFinish(Block block);

    std::optional<QList<Block>> readyBlocks() const;
    std::optional<QList<Block>> cancelBlocks() const;
    std::optional<QList<Block>> successBlocks() const;
    std::optional<QList<ErrorBlock>> errorBlocks() const;
    std::optional<QList<Block>> finishBlocks() const;

    using ZVXOperation::addDependency;
    /*!
        Adds \a operation as a dependency. With \a inheritFailure its
        cancellation (and, for a ZVXConcurrentOperation, its error) settles
        this operation; with \a exclusive the end of this operation cancels
        \a operation. A dependency that has failed already takes effect at once.
    */
    void addDependency(const std::shared_ptr<ZVXOperation> &operation, bool inheritFailure,
                       bool exclusive);
    /*!
        Takes the outcome of \a operation when it is settled, without
        waiting for it; with \a exclusive the end of this operation cancels
        \a operation.
    */
    void deferToOperation(const std::shared_ptr<ZVXOperation> &operation, bool exclusive);
    //! Also drops every link to or from \a operation.
    void removeDependency(const std::shared_ptr<ZVXOperation> &operation) override;

    /*!
        Holds a background task of the application until the operation
        ends; when the host expires it, \a expirationHandler runs and the
        operation is cancelled.
    */
    void beginApplicationBackgroundTask()
    {
        beginApplicationBackgroundTaskWithExpirationHandler({});
    }
    void beginApplicationBackgroundTaskWithExpirationHandler(Block expirationHandler);
    void cleanupBackgroundTask();
    ZuveroBackgroundTaskIdentifier backgroundTaskIdentifier() const
    {
        return m_backgroundTaskIdentifier.load();
    }

protected:
    //! Finishes with success at once; subclasses do their work here and settle the outcome later.
    void main() override;
    //! Called just before main().
    virtual void willExecute() { }
    //! Called first thing when the end callbacks run.
    virtual void didFinish() { }
    virtual void performFinishHandlers();
    //! Ends the background task, drops the links and the self-reference taken at main().
    virtual void cleanup();

    bool startLocked() override;
    void startedWork() override;

private:
    using Propagations = std::vector<std::shared_ptr<ZVXOperationDependencyPropagation>>;

    void addPropagation(std::shared_ptr<ZVXOperationDependencyPropagation> propagation);
    void propagateAll();
    void endBackgroundTaskLocked();

    std::atomic<bool> m_readyForFinish{false};
    std::atomic<bool> m_success{false};
    // Guarded by propagationRecursiveLock().
    ZuveroError m_error;
    QString m_localizedDescription;
    std::shared_ptr<ZVXConcurrentOperation> m_retainedSelf;
    std::optional<Propagations> m_propagations;
    std::optional<QList<Block>> m_readyBlocks;
    std::optional<QList<Block>> m_cancelBlocks;
    std::optional<QList<Block>> m_successBlocks;
    std::optional<QList<ErrorBlock>> m_errorBlocks;
    std::optional<QList<Block>> m_finishBlocks;

    // Never held while the class-wide lock is taken, so cleanup() may take it under that lock.
    std::mutex m_backgroundTaskMutex;
    std::atomic<ZuveroBackgroundTaskIdentifier> m_backgroundTaskIdentifier{
        ZuveroBackgroundTaskInvalid};
};
