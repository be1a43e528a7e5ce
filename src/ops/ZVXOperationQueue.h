#pragma once

#include "ZVXOperation.h"

/*!
    Runs operations on worker threads of its own as they become ready, in
    the order in which they became ready, with at most
    maxConcurrentOperationCount() executing at once. An operation counts as
    executing from its start until it has finished, also after start() has
    returned, as a concurrent operation's does.

    Destroying the queue cancels what it still holds: operations not yet
    started end at once, on the destroying thread. It must not be destroyed
    from inside an operation's end callbacks.
*/
class ZUVERO_EXPORT ZVXOperationQueue
{
public:
    //! No limit but the number of worker threads.
    static constexpr int DefaultMaxConcurrentOperationCount = -1;

    ZVXOperationQueue();
    ~ZVXOperationQueue();
    ZVXOperationQueue(const ZVXOperationQueue &) = delete;
    ZVXOperationQueue &operator=(const ZVXOperationQueue &) = delete;

    //! Raises for an operation that is finished, executing or already in a queue.
    void addOperation(const std::shared_ptr<ZVXOperation> &operation);
    //! The operations not yet finished, in the order they were added.
    QList<std::shared_ptr<ZVXOperation>> operations() const;
    int operationCount() const;

    int maxConcurrentOperationCount() const;
    void setMaxConcurrentOperationCount(int count);

    void cancelAllOperations();

private:
    class Private;
    std::shared_ptr<Private> d;
};
