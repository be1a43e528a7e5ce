#pragma once

#include "zuvero_export.h"

#include <QObject>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>

/*!
    Last caller wins: a delayed step acts only if no step of its kind was
    scheduled after it. Each kind of step (read marking, reload after a send,
    hiding the banner...) has one counter for the whole process; scheduling
    increments it, and a step that fires compares the value it was scheduled
    with to the current one. The counter is unsigned 32-bit and wraps.
*/
class ZUVERO_EXPORT ZVXGenerationCounter
{
public:
    explicit ZVXGenerationCounter(quint32 start = 0);

    //! Starts a new generation and returns it.
    quint32 advance() noexcept;
    quint32 current() const noexcept;
    bool isCurrent(quint32 generation) const noexcept { return current() == generation; }

    /*!
        Starts a new generation and runs \a step after \a delay on the main
        thread, on the current clock, only if no later generation has started
        by then (and \a context, when given, still exists).
    */
    void scheduleLast(std::chrono::milliseconds delay, const QObject *context,
                      std::function<void()> step);

private:
    // Shared with pending steps, so that a step may outlive a counter that is a member.
    std::shared_ptr<std::atomic<quint32>> m_value;
};
