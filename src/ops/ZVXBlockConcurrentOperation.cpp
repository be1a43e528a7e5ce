#include "ZVXBlockConcurrentOperation.h"

#include "ZuveroException.h"

std::shared_ptr<ZVXBlockConcurrentOperation> ZVXBlockConcurrentOperation::init()
{
    return std::make_shared<ZVXBlockConcurrentOperation>();
}

std::shared_ptr<ZVXBlockConcurrentOperation>
ZVXBlockConcurrentOperation::blockConcurrentOperationWithBlock(ExecutionBlock block)
{
    auto operation = init();
    operation->addExecutionBlock(std::move(block));
    return operation;
}

void ZVXBlockConcurrentOperation::addExecutionBlock(ExecutionBlock block)
{
    std::lock_guard locker(m_blocksMutex);
    if (isFinished())
        throw ZuveroException(
            ZVXInvalidArgumentException,
            QStringLiteral("Can't add block to finished ZVXBlockConcurrentOperation"));
    if (isExecuting())
        throw ZuveroException(
            ZVXInvalidArgumentException,
            QStringLiteral("Can't add block to executing ZVXBlockConcurrentOperation"));
    if (block)
        m_blocks.append(std::move(block));
}

QList<ZVXBlockConcurrentOperation::ExecutionBlock>
ZVXBlockConcurrentOperation::executionBlocks() const
{
    std::lock_guard locker(m_blocksMutex);
    return m_blocks;
}

void ZVXBlockConcurrentOperation::main()
{
    const auto self = std::static_pointer_cast<ZVXBlockConcurrentOperation>(shared_from_this());
    // No block can join once the operation executes, so the copy is the whole list; running the
    // blocks without the mutex keeps it out of the way of the class-wide lock they end up taking.
    for (const ExecutionBlock &block : executionBlocks())
        block(self);
}
