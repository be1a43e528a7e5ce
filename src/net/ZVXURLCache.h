#pragma once

#include "ZVXURLRequest.h"

#include <QCache>
#include <QMutex>

struct ZVXCachedURLResponse
{
    ZVXURLResponse response;
    QByteArray data;
};

/*!
    Downloaded replies kept in memory only, by URL, least recently used
    first out. A reply larger than a twentieth of the capacity is not kept,
    so that one big document cannot push out every preview. Thread-safe:
    the session stores from its check thread, the connection looks up from
    the main thread.
*/
class ZUVERO_EXPORT ZVXURLCache
{
public:
    explicit ZVXURLCache(qint64 memoryCapacity);

    std::optional<ZVXCachedURLResponse> cachedResponse(const QUrl &url) const;
    void storeCachedResponse(const ZVXCachedURLResponse &cachedResponse, const QUrl &url);
    void removeAllCachedResponses();

    qint64 memoryCapacity() const { return m_capacity; }
    qint64 currentMemoryUsage() const;

private:
    mutable QMutex m_mutex;
    mutable QCache<QByteArray, ZVXCachedURLResponse> m_entries;
    const qint64 m_capacity;
};
