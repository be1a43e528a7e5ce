#pragma once

#include "ZVXOperation.h"

/*!
    A link that watches one operation, its source, and settles another, its
    target, when the source reaches a given state. It acts inside the
    source's change notices, on the thread that changed the source and with
    the class-wide lock held, so that a chain of links settles in one go.

    A link always invalidates itself before it acts, and whenever either end
    can no longer change the outcome. Invalidated, it observes nothing and
    holds neither operation.
*/
class ZUVERO_EXPORT ZVXOperationDependencyPropagation : public ZVXOperationObserver
{
public:
    ~ZVXOperationDependencyPropagation() override;

    //! Acts if the source's state calls for it, then invalidateIfNeeded().
    virtual void propagateIfNeeded() = 0;
    //! Invalidates the link once either end can no longer change.
    virtual void invalidateIfNeeded();
    void invalidate();
    //! True when \a operation is the source or the target (the same object).
    bool concernsOperation(const ZVXOperation *operation) const;

    std::shared_ptr<ZVXOperation> sourceOperation() const;
    std::shared_ptr<ZVXOperation> targetOperation() const;

    void operationDidChangeValue(ZVXOperation &operation, ZVXOperationKey key) override;

protected:
    ZVXOperationDependencyPropagation() = default;

    template<typename Link>
    static std::shared_ptr<Link> make(std::shared_ptr<ZVXOperation> source,
                                      std::shared_ptr<ZVXOperation> target, ZVXOperationKeys keys)
    {
        std::shared_ptr<Link> link(new Link);
        link->attach(link, std::move(source), std::move(target), keys);
        return link;
    }

    //! Finished, or a concurrent operation with its outcome settled.
    static bool hasEnded(const ZVXOperation &operation);

private:
    void attach(const std::shared_ptr<ZVXOperationObserver> &self,
                std::shared_ptr<ZVXOperation> source, std::shared_ptr<ZVXOperation> target,
                ZVXOperationKeys keys);

    // Guarded by ZVXOperation::propagationRecursiveLock().
    std::shared_ptr<ZVXOperation> m_source;
    std::shared_ptr<ZVXOperation> m_target;
    ZVXOperationKeys m_keys;
};
