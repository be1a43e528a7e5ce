#pragma once

#include "ZVXOperationDependencyPropagation.h"

class ZVXConcurrentOperation;

//! Finishes the target, a dependant, with the error its dependency failed with.
class ZUVERO_EXPORT ZVXForwardErrorPropagation final : public ZVXOperationDependencyPropagation
{
public:
    static std::shared_ptr<ZVXForwardErrorPropagation>
    propagationWithSourceOperation(std::shared_ptr<ZVXConcurrentOperation> source,
                                   std::shared_ptr<ZVXConcurrentOperation> target);

    void propagateIfNeeded() override;

private:
    friend class ZVXOperationDependencyPropagation;
    ZVXForwardErrorPropagation() = default;
};
