#pragma once

#include "ZVXOperationDependencyPropagation.h"

class ZVXConcurrentOperation;

/*!
    Gives the target the outcome of the source: its cancellation, or its
    success or error once settled. A source that is not a
    ZVXConcurrentOperation passes its cancellation, or success once it has
    finished.
*/
class ZUVERO_EXPORT ZVXForwardCompletionPropagation final : public ZVXOperationDependencyPropagation
{
public:
    static std::shared_ptr<ZVXForwardCompletionPropagation>
    propagationWithSourceOperation(std::shared_ptr<ZVXOperation> source,
                                   std::shared_ptr<ZVXConcurrentOperation> target);

    void propagateIfNeeded() override;

private:
    friend class ZVXOperationDependencyPropagation;
    ZVXForwardCompletionPropagation() = default;
};
