#include "ZVXConcurrentOperation.h"

#include "ZVXBackwardCancellationPropagation.h"
#include "ZVXForwardCancellationPropagation.h"
#include "ZVXForwardCompletionPropagation.h"
#include "ZVXForwardErrorPropagation.h"

namespace {

using Key = ZVXOperationKey;

template<typename T>
void append(std::optional<QList<T>> &list, T block)
{
    if (!list)
        list.emplace();
    list->append(std::move(block));
}

} // namespace

ZVXConcurrentOperation::ZVXConcurrentOperation() = default;

ZVXConcurrentOperation::~ZVXConcurrentOperation() = default;

std::shared_ptr<ZVXConcurrentOperation> ZVXConcurrentOperation::init()
{
    return std::make_shared<ZVXConcurrentOperation>();
}

bool ZVXConcurrentOperation::startLocked()
{
    if (!mayStart(QLatin1String("ZVXConcurrentOperation")))
        return false;
    if (isScheduledForFinish()) {
        willChangeValueForKey(Key::IsFinished);
        setFinished(true);
        performFinishHandlers();
        didChangeValueForKey(Key::IsFinished);
        cleanup();
        return false;
    }
    willChangeValueForKey(Key::IsExecuting);
    setExecuting(true);
    didChangeValueForKey(Key::IsExecuting);
    propagateAll();
    return true;
}

void ZVXConcurrentOperation::startedWork()
{
    const auto self = std::static_pointer_cast<ZVXConcurrentOperation>(weak_from_this().lock());
    if (isFinished())
        return;
    std::optional<QList<Block>> readyBlocks;
    {
        std::lock_guard locker(propagationRecursiveLock());
        readyBlocks = std::exchange(m_readyBlocks, std::nullopt);
    }
    for (const Block &block : readyBlocks.value_or(QList<Block>())) {
        block();
        if (isFinished())
            return;
    }
    willExecute();
    {
        // Checked and taken together: an end on another thread between the two would leak it.
        std::lock_guard locker(propagationRecursiveLock());
        if (isFinished())
            return;
        m_retainedSelf = self;
    }
    main();
}

void ZVXConcurrentOperation::main()
{
    finishWithSuccess(true);
}

void ZVXConcurrentOperation::finishWithSuccess(bool success, const ZuveroError &error)
{
    const auto self = weak_from_this().lock();
    std::lock_guard locker(propagationRecursiveLock());
    if (isScheduledForFinish())
        return;
    if (success) {
        m_error = ZuveroError();
    } else {
        m_error = error.isNull() ? ZuveroError::withDescription(ZVXConcurrentOperationErrorDomain,
                                                                ZVXConcurrentOperationErrorUnknown,
                                                                QStringLiteral("Unknown error"))
                                 : error;
    }
    m_success = success;

    if (isExecuting()) {
        const Key keys[] = {Key::IsScheduledForFinish, Key::IsScheduledForError, Key::IsExecuting,
                            Key::IsFinished};
        for (Key key : keys)
            willChangeValueForKey(key);
        setExecuting(false);
        setFinished(true);
        performFinishHandlers();
        for (Key key : keys)
            didChangeValueForKey(key);
        cleanup();
    } else {
        const Key keys[] = {Key::IsScheduledForFinish, Key::IsScheduledForError, Key::IsReady};
        for (Key key : keys)
            willChangeValueForKey(key);
        m_readyForFinish = true;
        for (Key key : keys)
            didChangeValueForKey(key);
    }
}

void ZVXConcurrentOperation::cancel()
{
    const auto self = weak_from_this().lock();
    std::lock_guard locker(propagationRecursiveLock());
    if (isScheduledForFinish())
        return;
    m_success = false;
    m_error = ZuveroError();

    // A running operation stays flagged as executing: it reports both executing and finished.
    const bool executing = isExecuting();
    const Key keys[] = {Key::IsScheduledForFinish, Key::IsScheduledForCancellation,
                        Key::IsCancelled, executing ? Key::IsFinished : Key::IsReady};
    for (Key key : keys)
        willChangeValueForKey(key);
    setCancelled(true);
    if (executing) {
        setFinished(true);
        performFinishHandlers();
    }
    for (Key key : keys)
        didChangeValueForKey(key);
    if (executing)
        cleanup();
}

void ZVXConcurrentOperation::cancelFromNotification(const ZuveroNotification &)
{
    cancel();
}

bool ZVXConcurrentOperation::isReady() const
{
    return m_readyForFinish || ZVXOperation::isReady();
}

bool ZVXConcurrentOperation::isScheduledForFinish() const
{
    return isFinished() || isCancelled() || m_readyForFinish;
}

bool ZVXConcurrentOperation::isScheduledForError() const
{
    return (isFinished() || m_readyForFinish) && !isCancelled() && !success();
}

ZuveroError ZVXConcurrentOperation::error() const
{
    std::lock_guard locker(propagationRecursiveLock());
    return m_error;
}

QString ZVXConcurrentOperation::localizedDescription() const
{
    std::lock_guard locker(propagationRecursiveLock());
    return m_localizedDescription;
}

void ZVXConcurrentOperation::setLocalizedDescription(const QString &description)
{
    std::lock_guard locker(propagationRecursiveLock());
    m_localizedDescription = description;
}

void ZVXConcurrentOperation::performFinishHandlers()
{
    didFinish();
    // Emptied before they run: a callback registered from a callback goes to a list that never
    // runs.
    m_readyBlocks.reset();
    const auto cancelBlocks = std::exchange(m_cancelBlocks, std::nullopt);
    const auto successBlocks = std::exchange(m_successBlocks, std::nullopt);
    const auto errorBlocks = std::exchange(m_errorBlocks, std::nullopt);
    const auto finishBlocks = std::exchange(m_finishBlocks, std::nullopt);

    if (isCancelled()) {
        for (const Block &block : cancelBlocks.value_or(QList<Block>()))
            block();
    } else if (success()) {
        for (const Block &block : successBlocks.value_or(QList<Block>()))
            block();
    } else {
        const ZuveroError error = m_error;
        for (const ErrorBlock &block : errorBlocks.value_or(QList<ErrorBlock>()))
            block(error);
    }
    for (const Block &block : finishBlocks.value_or(QList<Block>()))
        block();
}

void ZVXConcurrentOperation::cleanup()
{
    cleanupBackgroundTask();
    m_propagations.reset();
    // May be the last reference: nothing of this object is touched after it.
    m_retainedSelf.reset();
}

void ZVXConcurrentOperation::onReady(Block block)
{
    if (!block)
        return;
    std::lock_guard locker(propagationRecursiveLock());
    append(m_readyBlocks, std::move(block));
}

void ZVXConcurrentOperation::onCancel(Block block, Block elseBlock)
{
    std::lock_guard locker(propagationRecursiveLock());
    if (block)
        append(m_cancelBlocks, std::move(block));
    if (elseBlock) {
        append(m_successBlocks, elseBlock);
        append(m_errorBlocks, ErrorBlock([elseBlock](const ZuveroError &) { elseBlock(); }));
    }
}

void ZVXConcurrentOperation::onSuccess(Block block, Block elseBlock)
{
    std::lock_guard locker(propagationRecursiveLock());
    if (block)
        append(m_successBlocks, std::move(block));
    if (elseBlock) {
        append(m_cancelBlocks, elseBlock);
        append(m_errorBlocks, ErrorBlock([elseBlock](const ZuveroError &) { elseBlock(); }));
    }
}

void ZVXConcurrentOperation::onError(ErrorBlock block, Block elseBlock)
{
    std::lock_guard locker(propagationRecursiveLock());
    if (block)
        append(m_errorBlocks, std::move(block));
    if (elseBlock) {
        append(m_cancelBlocks, elseBlock);
        append(m_successBlocks, std::move(elseBlock));
    }
}

void ZVXConcurrentOperation::onFinish(Block block)
{
    if (!block)
        return;
    std::lock_guard locker(propagationRecursiveLock());
    append(m_finishBlocks, std::move(block));
}

std::optional<QList<ZVXConcurrentOperation::Block>> ZVXConcurrentOperation::readyBlocks() const
{
    std::lock_guard locker(propagationRecursiveLock());
    return m_readyBlocks;
}

std::optional<QList<ZVXConcurrentOperation::Block>> ZVXConcurrentOperation::cancelBlocks() const
{
    std::lock_guard locker(propagationRecursiveLock());
    return m_cancelBlocks;
}

std::optional<QList<ZVXConcurrentOperation::Block>> ZVXConcurrentOperation::successBlocks() const
{
    std::lock_guard locker(propagationRecursiveLock());
    return m_successBlocks;
}

std::optional<QList<ZVXConcurrentOperation::ErrorBlock>> ZVXConcurrentOperation::errorBlocks() const
{
    std::lock_guard locker(propagationRecursiveLock());
    return m_errorBlocks;
}

std::optional<QList<ZVXConcurrentOperation::Block>> ZVXConcurrentOperation::finishBlocks() const
{
    std::lock_guard locker(propagationRecursiveLock());
    return m_finishBlocks;
}

void ZVXConcurrentOperation::addDependency(const std::shared_ptr<ZVXOperation> &operation,
                                           bool inheritFailure, bool exclusive)
{
    if (!operation)
        return;
    const auto self = std::static_pointer_cast<ZVXConcurrentOperation>(shared_from_this());
    std::lock_guard locker(propagationRecursiveLock());
    ZVXOperation::addDependency(operation);
    if (inheritFailure) {
        addPropagation(
            ZVXForwardCancellationPropagation::propagationWithSourceOperation(operation, self));
        if (auto concurrent = std::dynamic_pointer_cast<ZVXConcurrentOperation>(operation))
            addPropagation(ZVXForwardErrorPropagation::propagationWithSourceOperation(
                std::move(concurrent), self));
    }
    if (exclusive)
        addPropagation(
            ZVXBackwardCancellationPropagation::propagationWithSourceOperation(self, operation));
    propagateAll();
}

void ZVXConcurrentOperation::deferToOperation(const std::shared_ptr<ZVXOperation> &operation,
                                              bool exclusive)
{
    if (!operation)
        return;
    const auto self = std::static_pointer_cast<ZVXConcurrentOperation>(shared_from_this());
    std::lock_guard locker(propagationRecursiveLock());
    addPropagation(
        ZVXForwardCompletionPropagation::propagationWithSourceOperation(operation, self));
    if (exclusive)
        addPropagation(
            ZVXBackwardCancellationPropagation::propagationWithSourceOperation(self, operation));
    propagateAll();
}

void ZVXConcurrentOperation::removeDependency(const std::shared_ptr<ZVXOperation> &operation)
{
    std::lock_guard locker(propagationRecursiveLock());
    ZVXOperation::removeDependency(operation);
    if (!m_propagations || !operation)
        return;
    const Propagations links = *m_propagations;
    for (const auto &link : links) {
        if (!link->concernsOperation(operation.get()))
            continue;
        link->invalidate();
        std::erase(*m_propagations, link);
    }
}

void ZVXConcurrentOperation::addPropagation(
    std::shared_ptr<ZVXOperationDependencyPropagation> propagation)
{
    if (!m_propagations)
        m_propagations.emplace();
    m_propagations->push_back(std::move(propagation));
}

void ZVXConcurrentOperation::propagateAll()
{
    if (!m_propagations)
        return;
    // A link that acts may end this operation, and cleanup() drops the list.
    const Propagations links = *m_propagations;
    for (const auto &link : links)
        link->propagateIfNeeded();
}

void ZVXConcurrentOperation::beginApplicationBackgroundTaskWithExpirationHandler(
    Block expirationHandler)
{
    std::lock_guard locker(m_backgroundTaskMutex);
    if (isFinished())
        return;
    endBackgroundTaskLocked();
    // Linux suspends no process that leaves the screen, so the adapter grants every request with
    // a valid identifier and the work goes on; only a host that expires its tasks ends it early.
    m_backgroundTaskIdentifier = ZuveroApplication::sharedApplication()->beginBackgroundTask(
        [operation = weak_from_this(), handler = std::move(expirationHandler)] {
            if (handler)
                handler();
            if (const auto strong = operation.lock())
                strong->cancel();
        });
}

void ZVXConcurrentOperation::cleanupBackgroundTask()
{
    std::lock_guard locker(m_backgroundTaskMutex);
    endBackgroundTaskLocked();
}

void ZVXConcurrentOperation::endBackgroundTaskLocked()
{
    const ZuveroBackgroundTaskIdentifier identifier
        = m_backgroundTaskIdentifier.exchange(ZuveroBackgroundTaskInvalid);
    if (identifier != ZuveroBackgroundTaskInvalid)
        ZuveroApplication::sharedApplication()->endBackgroundTask(identifier);
}
