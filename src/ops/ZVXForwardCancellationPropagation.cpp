#include "ZVXForwardCancellationPropagation.h"

std::shared_ptr<ZVXForwardCancellationPropagation>
ZVXForwardCancellationPropagation::propagationWithSourceOperation(
    std::shared_ptr<ZVXOperation> source, std::shared_ptr<ZVXOperation> target)
{
    return make<ZVXForwardCancellationPropagation>(std::move(source), std::move(target),
                                                   ZVXOperationKey::IsScheduledForFinish
                                                       | ZVXOperationKey::IsCancelled
                                                       | ZVXOperationKey::IsFinished);
}

void ZVXForwardCancellationPropagation::propagateIfNeeded()
{
    std::lock_guard locker(ZVXOperation::propagationRecursiveLock());
    const auto source = sourceOperation();
    const auto target = targetOperation();
    if (source && target && source->isCancelled()) {
        invalidate();
        target->cancel();
    }
    invalidateIfNeeded();
}
