#include "ZVXClock.h"

#include "ZVXMainThread.h"

#include <QCoreApplication>
#include <QPointer>
#include <QTimer>

#include <atomic>

namespace {
ZVXSystemClock systemClock;
std::atomic<ZVXClock *> installedClock{nullptr};
} // namespace

ZVXClock::~ZVXClock()
{
    // A clock destroyed while installed must not be used afterwards.
    ZVXClock *expected = this;
    installedClock.compare_exchange_strong(expected, nullptr);
}

ZVXClock &ZVXClock::current()
{
    ZVXClock *clock = installedClock.load(std::memory_order_acquire);
    return clock ? *clock : systemClock;
}

void ZVXClock::setCurrent(ZVXClock *clock)
{
    installedClock.store(clock, std::memory_order_release);
}

QDateTime ZVXSystemClock::now() const
{
    return QDateTime::currentDateTimeUtc();
}

void ZVXSystemClock::schedule(std::chrono::milliseconds delay, const QObject *context, Step step)
{
    auto arm = [delay, guard = QPointer<const QObject>(context), hasContext = context != nullptr,
                step = std::move(step)]() mutable {
        if (hasContext && !guard)
            return;
        auto fire = [guard, hasContext, step = std::move(step)] {
            if (!hasContext || guard)
                step();
        };
        // Short delays (0.02 s) need precision; coarse timers may slip by 5 %.
        const auto type = delay < std::chrono::seconds(2) ? Qt::PreciseTimer : Qt::CoarseTimer;
        QTimer::singleShot(delay, type, QCoreApplication::instance(), std::move(fire));
    };
    // Timers only fire on a thread with an event loop: arm them on the main thread.
    if (ZVXMainThread::isMainThread())
        arm();
    else
        ZVXMainThread::async(std::move(arm));
}
