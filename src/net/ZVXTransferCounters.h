#pragma once

#include "zuvero_export.h"

#include <QtGlobal>

#include <atomic>

/*!
    The byte counters of one transfer: written by the transport as bytes
    move, read by whoever shows progress. Each counter is atomic on its own;
    a reader may see one counter a step ahead of another.
*/
class ZUVERO_EXPORT ZVXTransferCounters
{
public:
    //! An expected count the transport does not know (no Content-Length yet).
    static constexpr qint64 UnknownSize = -1;

    ZVXTransferCounters() = default;
    ZVXTransferCounters(const ZVXTransferCounters &) = delete;
    ZVXTransferCounters &operator=(const ZVXTransferCounters &) = delete;
    virtual ~ZVXTransferCounters() = default;

    qint64 countOfBytesExpectedToSend() const { return m_expectedToSend.load(); }
    qint64 countOfBytesSent() const { return m_sent.load(); }
    qint64 countOfBytesExpectedToReceive() const { return m_expectedToReceive.load(); }
    qint64 countOfBytesReceived() const { return m_received.load(); }

    void setSendCounts(qint64 sent, qint64 expected)
    {
        m_expectedToSend = expected;
        m_sent = sent;
    }
    void setReceiveCounts(qint64 received, qint64 expected)
    {
        m_expectedToReceive = expected;
        m_received = received;
    }

private:
    std::atomic<qint64> m_expectedToSend{0};
    std::atomic<qint64> m_sent{0};
    std::atomic<qint64> m_expectedToReceive{UnknownSize};
    std::atomic<qint64> m_received{0};
};
