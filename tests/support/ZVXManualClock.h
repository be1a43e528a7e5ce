#pragma once

#include "ZVXClock.h"

#include <QMutex>
#include <QPointer>

#include <vector>

/*!
    A clock that only moves when a test moves it. Installed on construction
    and uninstalled on destruction. Steps scheduled on it run, in the order
    of their due times, inside advance(), on the calling (main) thread.
*/
class ZVXManualClock final : public ZVXClock
{
public:
    explicit ZVXManualClock(const QDateTime &start
                            = QDateTime::fromSecsSinceEpoch(1'700'000'000, Qt::UTC));
    ~ZVXManualClock() override;

    QDateTime now() const override;
    void schedule(std::chrono::milliseconds delay, const QObject *context, Step step) override;

    //! Moves time forward by \a duration, running every step that falls due on the way.
    void advance(std::chrono::milliseconds duration);
    //! Steps waiting to run.
    int pendingSteps() const;

private:
    struct Pending
    {
        QDateTime due;
        quint64 sequence;
        QPointer<const QObject> context;
        bool hasContext;
        Step step;
    };

    mutable QMutex m_mutex;
    QDateTime m_now;
    quint64 m_sequence = 0;
    std::vector<Pending> m_pending;
};
