#pragma once

#include "ZVXOperationDependencyPropagation.h"

//! Cancels the target, a dependant, when its dependency is cancelled.
class ZUVERO_EXPORT ZVXForwardCancellationPropagation final
    : public ZVXOperationDependencyPropagation
{
public:
    static std::shared_ptr<ZVXForwardCancellationPropagation>
    propagationWithSourceOperation(std::shared_ptr<ZVXOperation> source,
                                   std::shared_ptr<ZVXOperation> target);

    void propagateIfNeeded() override;

private:
    friend class ZVXOperationDependencyPropagation;
    ZVXForwardCancellationPropagation() = default;
};
