#include "ZVXOperationDependencyPropagation.h"

#include "ZVXConcurrentOperation.h"

ZVXOperationDependencyPropagation::~ZVXOperationDependencyPropagation()
{
    invalidate();
}

void ZVXOperationDependencyPropagation::attach(const std::shared_ptr<ZVXOperationObserver> &self,
                                               std::shared_ptr<ZVXOperation> source,
                                               std::shared_ptr<ZVXOperation> target,
                                               ZVXOperationKeys keys)
{
    std::lock_guard locker(ZVXOperation::propagationRecursiveLock());
    m_source = std::move(source);
    m_target = std::move(target);
    m_keys = keys;
    m_source->addObserver(self, keys);
}

void ZVXOperationDependencyPropagation::invalidate()
{
    std::lock_guard locker(ZVXOperation::propagationRecursiveLock());
    if (m_source)
        m_source->removeObserver(this, m_keys);
    m_source.reset();
    m_target.reset();
}

bool ZVXOperationDependencyPropagation::concernsOperation(const ZVXOperation *operation) const
{
    std::lock_guard locker(ZVXOperation::propagationRecursiveLock());
    return operation && (m_source.get() == operation || m_target.get() == operation);
}

std::shared_ptr<ZVXOperation> ZVXOperationDependencyPropagation::sourceOperation() const
{
    std::lock_guard locker(ZVXOperation::propagationRecursiveLock());
    return m_source;
}

std::shared_ptr<ZVXOperation> ZVXOperationDependencyPropagation::targetOperation() const
{
    std::lock_guard locker(ZVXOperation::propagationRecursiveLock());
    return m_target;
}

void ZVXOperationDependencyPropagation::operationDidChangeValue(ZVXOperation &, ZVXOperationKey)
{
    propagateIfNeeded();
}

bool ZVXOperationDependencyPropagation::hasEnded(const ZVXOperation &operation)
{
    if (operation.isFinished())
        return true;
    const auto *concurrent = dynamic_cast<const ZVXConcurrentOperation *>(&operation);
    return concurrent && concurrent->isScheduledForFinish();
}

void ZVXOperationDependencyPropagation::invalidateIfNeeded()
{
    std::lock_guard locker(ZVXOperation::propagationRecursiveLock());
    if (m_source && m_target && (hasEnded(*m_source) || hasEnded(*m_target)))
        invalidate();
}
