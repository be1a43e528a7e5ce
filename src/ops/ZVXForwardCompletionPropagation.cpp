#include "ZVXForwardCompletionPropagation.h"

#include "ZVXConcurrentOperation.h"

std::shared_ptr<ZVXForwardCompletionPropagation>
ZVXForwardCompletionPropagation::propagationWithSourceOperation(
    std::shared_ptr<ZVXOperation> source, std::shared_ptr<ZVXConcurrentOperation> target)
{
    return make<ZVXForwardCompletionPropagation>(std::move(source), std::move(target),
                                                 ZVXOperationKey::IsScheduledForFinish
                                                     | ZVXOperationKey::IsCancelled
                                                     | ZVXOperationKey::IsFinished);
}

void ZVXForwardCompletionPropagation::propagateIfNeeded()
{
    std::lock_guard locker(ZVXOperation::propagationRecursiveLock());
    const auto source = sourceOperation();
    const auto target = std::static_pointer_cast<ZVXConcurrentOperation>(targetOperation());
    if (source && target) {
        const auto *concurrent = dynamic_cast<const ZVXConcurrentOperation *>(source.get());
        const bool settled = concurrent ? concurrent->isScheduledForFinish() : source->isFinished();
        if (settled) {
            invalidate();
            if (source->isCancelled())
                target->cancel();
            else if (concurrent)
                target->finishWithSuccess(concurrent->success(), concurrent->error());
            else
                target->finishWithSuccess(true);
        }
    }
    invalidateIfNeeded();
}
