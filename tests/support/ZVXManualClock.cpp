#include "ZVXManualClock.h"

#include <algorithm>

ZVXManualClock::ZVXManualClock(const QDateTime &start)
    : m_now(start)
{
    ZVXClock::setCurrent(this);
}

ZVXManualClock::~ZVXManualClock()
{
    ZVXClock::setCurrent(nullptr);
}

QDateTime ZVXManualClock::now() const
{
    QMutexLocker locker(&m_mutex);
    return m_now;
}

void ZVXManualClock::schedule(std::chrono::milliseconds delay, const QObject *context, Step step)
{
    QMutexLocker locker(&m_mutex);
    m_pending.push_back({m_now.addMSecs(delay.count()), m_sequence++, context, context != nullptr,
                         std::move(step)});
}

void ZVXManualClock::advance(std::chrono::milliseconds duration)
{
    QDateTime target;
    {
        QMutexLocker locker(&m_mutex);
        target = m_now.addMSecs(duration.count());
    }
    for (;;) {
        Pending next;
        {
            QMutexLocker locker(&m_mutex);
            auto earliest = std::min_element(
                m_pending.begin(), m_pending.end(), [](const Pending &a, const Pending &b) {
                    return a.due != b.due ? a.due < b.due : a.sequence < b.sequence;
                });
            if (earliest == m_pending.end() || earliest->due > target) {
                m_now = target;
                return;
            }
            next = std::move(*earliest);
            m_pending.erase(earliest);
            m_now = next.due;
        }
        // Run without the lock: a step may schedule further steps.
        if (!next.hasContext || next.context)
            next.step();
    }
}

int ZVXManualClock::pendingSteps() const
{
    QMutexLocker locker(&m_mutex);
    return int(m_pending.size());
}
