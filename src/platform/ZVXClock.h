#pragma once

#include "zuvero_export.h"

#include <QDateTime>
#include <QObject>

#include <chrono>
#include <functional>

/*!
    The one source of time and of delayed steps in the library.

    Every delay the library waits for (0.02 s, 0.3 s, 1 s, 10 s, 30 days...)
    goes through the current clock, so a test can install a clock it drives by
    hand and check a 10-second back-off in a millisecond. The system clock is
    current unless another one has been installed.
*/
class ZUVERO_EXPORT ZVXClock
{
public:
    using Step = std::function<void()>;

    virtual ~ZVXClock();

    //! The clock in use. Thread-safe.
    static ZVXClock &current();
    //! Installs \a clock (not owned); nullptr restores the system clock.
    static void setCurrent(ZVXClock *clock);

    //! Wall-clock time in UTC.
    virtual QDateTime now() const = 0;

    /*!
        Runs \a step on the main thread once \a delay has passed, unless
        \a context (when given) has been destroyed by then. Callable from any
        thread.
    */
    virtual void schedule(std::chrono::milliseconds delay, const QObject *context, Step step) = 0;

    //! Shorthands for the current clock.
    static QDateTime currentTime() { return current().now(); }
    static void after(std::chrono::milliseconds delay, const QObject *context, Step step)
    {
        current().schedule(delay, context, std::move(step));
    }
};

//! Real time: QDateTime and QTimer on the main thread.
class ZUVERO_EXPORT ZVXSystemClock final : public ZVXClock
{
public:
    QDateTime now() const override;
    void schedule(std::chrono::milliseconds delay, const QObject *context, Step step) override;
};
