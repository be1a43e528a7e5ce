#include "ZVXBackwardCancellationPropagation.h"

#include "ZVXConcurrentOperation.h"
#include "ZuveroException.h"

std::shared_ptr<ZVXBackwardCancellationPropagation>
ZVXBackwardCancellationPropagation::propagationWithSourceOperation(
    std::shared_ptr<ZVXConcurrentOperation> source, std::shared_ptr<ZVXOperation> target)
{
    if (source == target)
        throw ZuveroException(ZVXInvalidArgumentException, QStringLiteral("WTF"));
    return make<ZVXBackwardCancellationPropagation>(std::move(source), std::move(target),
                                                    ZVXOperationKey::IsScheduledForFinish);
}

void ZVXBackwardCancellationPropagation::propagateIfNeeded()
{
    std::lock_guard locker(ZVXOperation::propagationRecursiveLock());
    const auto source = std::static_pointer_cast<ZVXConcurrentOperation>(sourceOperation());
    const auto target = targetOperation();
    if (source && target && source->isScheduledForFinish()) {
        invalidate();
        target->cancel();
    }
    invalidateIfNeeded();
}
