#include "ZVXMapTileCache.h"

#include "ZVXMainThread.h"

ZVXMapTileCache::ZVXMapTileCache(qint64 capacity, QObject *parent)
    : QObject(parent)
    , m_tiles(capacity)
{ }

ZVXMapTileCache::~ZVXMapTileCache() = default;

QImage ZVXMapTileCache::tile(const QString &url) const
{
    ZVXMainThread::assertMainThread();
    const QImage *found = m_tiles.object(url);
    return found ? *found : QImage();
}

void ZVXMapTileCache::insert(const QString &url, const QImage &tile)
{
    ZVXMainThread::assertMainThread();
    if (tile.isNull())
        return;
    // QCache takes the copy, or deletes it at once when it alone is over the capacity.
    m_tiles.insert(url, new QImage(tile), std::max<qsizetype>(1, tile.sizeInBytes()));
}

void ZVXMapTileCache::clear()
{
    ZVXMainThread::assertMainThread();
    m_tiles.clear();
}

qint64 ZVXMapTileCache::capacity() const
{
    return m_tiles.maxCost();
}

qint64 ZVXMapTileCache::size() const
{
    return m_tiles.totalCost();
}

int ZVXMapTileCache::count() const
{
    return int(m_tiles.count());
}
