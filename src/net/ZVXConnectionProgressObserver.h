#pragma once

#include "ZVXTransferCounters.h"

#include <QDateTime>
#include <QObject>

#include <functional>
#include <memory>
#include <vector>

/*!
    Turns the byte counters of running uploads into smooth upload and
    download fractions for the progress bar of a message being sent.

    Byte counts alone jump from 0 to 1 for small bodies and stand still
    while the server works, so each fraction blends the real one with an
    estimate that rises by itself (1 - e^(-t/15 s)), weighted by the idle
    fractions. Every task is reported once when added and then every 0.3 s
    until it is removed. Main thread only.
*/
class ZUVERO_EXPORT ZVXConnectionProgressObserver : public QObject
{
    Q_OBJECT

public:
    using Task = std::shared_ptr<const ZVXTransferCounters>;
    //! Upload and download fractions, each in 0..1.
    using ProgressBlock = std::function<void(double upload, double download)>;

    explicit ZVXConnectionProgressObserver(QObject *parent = nullptr);
    ~ZVXConnectionProgressObserver() override;

    //! Ignored when either is empty.
    void addTask(const Task &task, ProgressBlock progressBlock);
    //! Without a final report.
    void removeTask(const Task &task);
    //! With a final report of the given fractions.
    void removeTask(const Task &task, double uploadProgress, double downloadProgress);
    void removeTask(const Task &task, bool notify, double uploadProgress, double downloadProgress);

    double idleUploadProgressFraction() const { return m_idleUploadProgressFraction; }
    void setIdleUploadProgressFraction(double fraction) { m_idleUploadProgressFraction = fraction; }
    double idleDownloadProgressFraction() const { return m_idleDownloadProgressFraction; }
    void setIdleDownloadProgressFraction(double fraction)
    {
        m_idleDownloadProgressFraction = fraction;
    }

private:
    struct Entry
    {
        Task task;
        ProgressBlock progressBlock;
        QDateTime startDate;
    };

    void scheduleTimer(quint64 generation);
    void timerDidFire();
    void notifyAboutTask(const Entry &entry) const;

    std::vector<Entry> m_tasksAndBlocks;
    bool m_timerActive = false;
    // Steps of a stopped timer may still be pending on the clock; they check this.
    quint64 m_timerGeneration = 0;
    double m_idleUploadProgressFraction = 0.5;
    double m_idleDownloadProgressFraction = 0.5;
};
