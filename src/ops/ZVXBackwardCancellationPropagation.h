#pragma once

#include "ZVXOperationDependencyPropagation.h"

class ZVXConcurrentOperation;

/*!
    Cancels the target, a dependency the source owns, as soon as the
    source's outcome is settled, whatever it is.
*/
class ZUVERO_EXPORT ZVXBackwardCancellationPropagation final
    : public ZVXOperationDependencyPropagation
{
public:
    //! Raises "WTF" when \a source and \a target are the same: the link would cancel its own
    //! source.
    static std::shared_ptr<ZVXBackwardCancellationPropagation>
    propagationWithSourceOperation(std::shared_ptr<ZVXConcurrentOperation> source,
                                   std::shared_ptr<ZVXOperation> target);

    void propagateIfNeeded() override;

private:
    friend class ZVXOperationDependencyPropagation;
    ZVXBackwardCancellationPropagation() = default;
};
