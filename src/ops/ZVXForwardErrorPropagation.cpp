#include "ZVXForwardErrorPropagation.h"

#include "ZVXConcurrentOperation.h"

std::shared_ptr<ZVXForwardErrorPropagation>
ZVXForwardErrorPropagation::propagationWithSourceOperation(
    std::shared_ptr<ZVXConcurrentOperation> source, std::shared_ptr<ZVXConcurrentOperation> target)
{
    return make<ZVXForwardErrorPropagation>(std::move(source), std::move(target),
                                            ZVXOperationKey::IsScheduledForFinish);
}

void ZVXForwardErrorPropagation::propagateIfNeeded()
{
    std::lock_guard locker(ZVXOperation::propagationRecursiveLock());
    const auto source = std::static_pointer_cast<ZVXConcurrentOperation>(sourceOperation());
    const auto target = std::static_pointer_cast<ZVXConcurrentOperation>(targetOperation());
    if (source && target && source->isScheduledForError()) {
        invalidate();
        target->finishWithSuccess(false, source->error());
    }
    invalidateIfNeeded();
}
