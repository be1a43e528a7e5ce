#pragma once

#include "ZVXConcurrentOperation.h"

/*!
    A concurrent operation whose work is a list of blocks, run in order of
    addition, each given the operation. The blocks do not end it: one of
    them, or work it starts, must call finishWithSuccess() or cancel(), or
    the operation stays executing.
*/
class ZUVERO_EXPORT ZVXBlockConcurrentOperation : public ZVXConcurrentOperation
{
public:
    using ExecutionBlock
        = std::function<void(const std::shared_ptr<ZVXBlockConcurrentOperation> &)>;

    static std::shared_ptr<ZVXBlockConcurrentOperation> init();
    static std::shared_ptr<ZVXBlockConcurrentOperation>
    blockConcurrentOperationWithBlock(ExecutionBlock block);

    //! Raises once the operation executes or has finished.
    void addExecutionBlock(ExecutionBlock block);
    QList<ExecutionBlock> executionBlocks() const;

protected:
    void main() override;

private:
    mutable std::mutex m_blocksMutex;
    QList<ExecutionBlock> m_blocks;
};
