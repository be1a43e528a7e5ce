#pragma once

#include "ZVXLRUCache.h"
#include "ZuveroChatMessage.h"
#include "ZuveroConnection.h"

#include <QCache>
#include <QDateTime>
#include <QHash>
#include <QImage>
#include <QPointer>
#include <QSize>

#include <deque>

class ZVXMapTileCache;
class ZuveroConnectionPrivate;

/*!
    The pictures a chat shows before the files themselves: attachment
    previews, keyed by the attachment's uuid, and map pictures of shared
    locations, keyed by the message's uuid.

    Both kinds share two memory caches: one the system may empty at any time
    (20 entries, 4 MiB), and a ZVXLRUCache of 4 MiB that keeps what was
    stored last. A picture is loaded once at a time, and not again for 10
    seconds after a failure; when it arrives, a notification says so. All
    of it runs on the main thread; only the decoding and the drawing of maps
    happen elsewhere.
*/
class ZUVERO_EXPORT ZVXPreviews
{
public:
    //! Costs are bytes; the budget of each cache.
    static constexpr qint64 CacheCostLimit = 4 * 1024 * 1024;
    static constexpr int MemoryCacheCountLimit = 20;
    static constexpr std::chrono::seconds FailureBackOff{10};
    //! Previews are decoded to fit in this size: the chat shows them small, and a file of a few
    //! kilobytes may declare an enormous picture.
    static constexpr QSize LargestPreviewSize{1600, 1600};
    //! Previews declaring more pixels than this are not decoded at all.
    static constexpr qint64 PreviewMaximumPixelCount = qint64(4096) * 4096;
    //! The span of a location that does not give one, in metres.
    static constexpr double DefaultLocationSpan = 2000;

    //! The preview in \a bytes, decoded within the limits above; null when there is none. Any
    //! thread.
    static ZuveroImagePtr decodedPreview(const std::optional<QByteArray> &bytes);

    explicit ZVXPreviews(ZuveroConnectionPrivate *connection);
    ~ZVXPreviews();

    ZuveroImagePtr cachedAttachmentPreview(const ZuveroChatAttachmentPtr &attachment);
    ZuveroImagePtr loadAttachmentPreview(const ZuveroChatAttachmentPtr &attachment);
    ZuveroImagePtr cachedPreviewImageIfNeeded(const QUrl &url) const;
    void loadAttachmentDocument(const ZuveroChatAttachmentPtr &attachment,
                                ZuveroConnection::DocumentCompletion completion);
    QImage cachedLocationPreview(const ZuveroChatMessagePtr &message);
    QImage loadLocationPreview(const ZuveroChatMessagePtr &message, const QSize &size);

    //! The map tiles the pictures of locations were made of, for the location viewer to reuse.
    ZVXMapTileCache *tileCache() const { return m_tiles.get(); }

    //! Forgets every cached picture, failure and load under way (which then report nothing).
    void removeAll();

private:
    //! A value of either cache: a record for an attachment, an image for a location.
    struct Cached
    {
        ZuveroImagePtr record;
        QImage image;
    };

    /*!
        The system's kind of cache: dropped entries are simply gone. QCache
        bounds the cost; the count is bounded here, oldest stored first out.
    */
    class MemoryCache
    {
    public:
        MemoryCache();
        std::optional<Cached> object(const QString &key) const;
        void insert(const QString &key, const Cached &value, qint64 cost);
        void clear();

    private:
        QCache<QString, Cached> m_cache;
        std::deque<QString> m_order;
    };

    std::optional<Cached> lookUp(const QString &key) const;
    //! Whether a load of \a key may start now: none is running, and no failure is recent.
    bool mayLoad(const QString &key) const;
    //! Marks \a key as loading and returns the ticket of this load.
    quint64 beginLoad(const QString &key);
    //! Ends the load of \a ticket; false when it no longer owns \a key.
    bool endLoad(const QString &key, quint64 ticket);
    void store(const QString &key, const Cached &value, qint64 memoryCost, qint64 lruCost);
    //! Draws the map around a place, off the main thread; \a done runs on the main thread.
    void snapshot(double latitude, double longitude, double metres, const QSize &size,
                  std::function<void(const QImage &image, const ZuveroError &error)> done);

    ZuveroConnectionPrivate *m_connection;
    MemoryCache m_memoryCache;
    ZVXLRUCache m_lruCache{CacheCostLimit};
    //! Decoded tiles, so that the pictures of nearby places share their downloads.
    std::unique_ptr<ZVXMapTileCache> m_tiles;
    QHash<QString, quint64> m_loading;
    QHash<QString, QDateTime> m_failed;
    quint64 m_nextTicket = 1;
};
