#include "ZVXGenerationCounter.h"

#include "ZVXClock.h"

ZVXGenerationCounter::ZVXGenerationCounter(quint32 start)
    : m_value(std::make_shared<std::atomic<quint32>>(start))
{ }

quint32 ZVXGenerationCounter::advance() noexcept
{
    // Unsigned arithmetic wraps from 0xffffffff to 0.
    return m_value->fetch_add(1, std::memory_order_acq_rel) + 1;
}

quint32 ZVXGenerationCounter::current() const noexcept
{
    return m_value->load(std::memory_order_acquire);
}

void ZVXGenerationCounter::scheduleLast(std::chrono::milliseconds delay, const QObject *context,
                                        std::function<void()> step)
{
    const quint32 generation = advance();
    ZVXClock::after(delay, context, [value = m_value, generation, step = std::move(step)] {
        if (value->load(std::memory_order_acquire) == generation)
            step();
    });
}
