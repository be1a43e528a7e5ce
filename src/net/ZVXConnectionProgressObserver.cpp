#include "ZVXConnectionProgressObserver.h"

#include "ZVXClock.h"

#include <algorithm>
#include <cmath>

using namespace std::chrono_literals;

namespace {
constexpr auto TimerInterval = 300ms;
// The time estimate reaches about 0.5 after 10 s and 0.86 after 30 s.
constexpr double EstimateTimeConstant = 15.0;
} // namespace

ZVXConnectionProgressObserver::ZVXConnectionProgressObserver(QObject *parent)
    : QObject(parent)
{ }

ZVXConnectionProgressObserver::~ZVXConnectionProgressObserver() = default;

void ZVXConnectionProgressObserver::addTask(const Task &task, ProgressBlock progressBlock)
{
    if (!task || !progressBlock)
        return;
    m_tasksAndBlocks.push_back({task, std::move(progressBlock), ZVXClock::currentTime()});
    if (!m_timerActive) {
        m_timerActive = true;
        scheduleTimer(++m_timerGeneration);
    }
    notifyAboutTask(m_tasksAndBlocks.back());
}

void ZVXConnectionProgressObserver::removeTask(const Task &task)
{
    removeTask(task, false, 0, 0);
}

void ZVXConnectionProgressObserver::removeTask(const Task &task, double uploadProgress,
                                               double downloadProgress)
{
    removeTask(task, true, uploadProgress, downloadProgress);
}

void ZVXConnectionProgressObserver::removeTask(const Task &task, bool notify, double uploadProgress,
                                               double downloadProgress)
{
    if (!task)
        return;
    auto it = std::find_if(m_tasksAndBlocks.begin(), m_tasksAndBlocks.end(),
                           [&](const Entry &entry) { return entry.task == task; });
    if (it != m_tasksAndBlocks.end()) {
        const ProgressBlock block = std::move(it->progressBlock);
        m_tasksAndBlocks.erase(it);
        if (notify)
            block(uploadProgress, downloadProgress);
    }
    if (m_tasksAndBlocks.empty())
        m_timerActive = false;
}

void ZVXConnectionProgressObserver::scheduleTimer(quint64 generation)
{
    ZVXClock::after(TimerInterval, this, [this, generation] {
        if (!m_timerActive || generation != m_timerGeneration)
            return;
        timerDidFire();
        if (m_timerActive && generation == m_timerGeneration)
            scheduleTimer(generation);
    });
}

void ZVXConnectionProgressObserver::timerDidFire()
{
    // A callback may remove tasks; walk a copy.
    const std::vector<Entry> entries = m_tasksAndBlocks;
    for (const Entry &entry : entries)
        notifyAboutTask(entry);
}

void ZVXConnectionProgressObserver::notifyAboutTask(const Entry &entry) const
{
    const double elapsed = double(entry.startDate.msecsTo(ZVXClock::currentTime())) / 1000.0;
    const double estimate = std::clamp(1.0 - std::exp(-elapsed / EstimateTimeConstant), 0.0, 1.0);
    const ZVXTransferCounters &counters = *entry.task;

    // Unknown counts as done for sending and as not started for receiving; zero the other way.
    const qint64 expectedToSend = counters.countOfBytesExpectedToSend();
    double sent;
    if (expectedToSend == ZVXTransferCounters::UnknownSize)
        sent = 1.0;
    else if (expectedToSend == 0)
        sent = 0.0;
    else
        sent = double(counters.countOfBytesSent()) / double(expectedToSend);
    double upload = std::clamp(m_idleUploadProgressFraction * estimate
                                   + (1.0 - m_idleUploadProgressFraction) * sent,
                               0.0, 1.0);

    const qint64 expectedToReceive = counters.countOfBytesExpectedToReceive();
    double received;
    if (expectedToReceive == ZVXTransferCounters::UnknownSize) {
        received = 0.0;
    } else if (expectedToReceive == 0) {
        received = 1.0;
    } else {
        received = double(counters.countOfBytesReceived()) / double(expectedToReceive);
        // The answer has begun, so the upload is over.
        if (received > 0.001)
            upload = 1.0;
    }
    const double download = std::clamp(m_idleDownloadProgressFraction * estimate
                                           + (1.0 - m_idleDownloadProgressFraction) * received,
                                       0.0, 1.0);
    entry.progressBlock(upload, download);
}
