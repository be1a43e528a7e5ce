#include "ZVXURLCache.h"

#include <algorithm>

ZVXURLCache::ZVXURLCache(qint64 memoryCapacity)
    : m_entries(qsizetype(memoryCapacity))
    , m_capacity(memoryCapacity)
{ }

std::optional<ZVXCachedURLResponse> ZVXURLCache::cachedResponse(const QUrl &url) const
{
    QMutexLocker locker(&m_mutex);
    if (const ZVXCachedURLResponse *entry = m_entries.object(url.toEncoded()))
        return *entry;
    return std::nullopt;
}

void ZVXURLCache::storeCachedResponse(const ZVXCachedURLResponse &cachedResponse, const QUrl &url)
{
    const qint64 cost = std::max<qint64>(cachedResponse.data.size(), 1);
    QMutexLocker locker(&m_mutex);
    if (cost > m_capacity / 20) {
        m_entries.remove(url.toEncoded());
        return;
    }
    m_entries.insert(url.toEncoded(), new ZVXCachedURLResponse(cachedResponse), qsizetype(cost));
}

void ZVXURLCache::removeAllCachedResponses()
{
    QMutexLocker locker(&m_mutex);
    m_entries.clear();
}

qint64 ZVXURLCache::currentMemoryUsage() const
{
    QMutexLocker locker(&m_mutex);
    return m_entries.totalCost();
}
