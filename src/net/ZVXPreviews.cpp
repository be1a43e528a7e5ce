#include "ZVXPreviews.h"

#include "ZVXClock.h"
#include "ZVXJSON.h"
#include "ZVXLocalization.h"
#include "ZVXLogging.h"
#include "ZVXMainThread.h"
#include "ZVXMapSnapshotter.h"
#include "ZVXMapTileCache.h"
#include "ZVXURLCache.h"
#include "ZVXURLSession.h"
#include "ZuveroConnection_p.h"
#include "ZuveroNotificationCenter.h"

#include <QGuiApplication>
#include <QUrlQuery>

#include <cmath>

namespace {

// The request's URL as a log line may show it: without the token.
QString describeURL(const QUrl &url)
{
    QUrlQuery query(url);
    if (query.hasQueryItem(QStringLiteral("jwt"))) {
        query.removeAllQueryItems(QStringLiteral("jwt"));
        query.addQueryItem(QStringLiteral("jwt"), QStringLiteral("(hidden)"));
    }
    QUrl shown = url;
    shown.setQuery(query);
    return shown.toString();
}

QString describeError(const ZuveroError &error)
{
    return error.isNull() ? QStringLiteral("(null)") : error.localizedDescription();
}

// Memory a decoded preview holds, or its file's size when that is larger: the budget of the
// caches is meant to bound memory, and a small file can decode to a large picture.
qint64 costOf(const ZuveroImagePtr &record)
{
    return std::max<qint64>(record->raw().size(), record->image().sizeInBytes());
}

ZuveroError documentError(const char *description)
{
    return ZuveroError::withDescription(
        QString(ZuveroErrorDomain), ZuveroErrorAttachmentCannotBeOpened,
        ZVXLocalization::hostString(QString::fromUtf8(description)));
}

} // namespace

ZuveroImagePtr ZVXPreviews::decodedPreview(const std::optional<QByteArray> &bytes)
{
    if (!bytes || bytes->isEmpty())
        return nullptr;
    ZuveroImagePtr record
        = ZuveroImage::initWithRawData(bytes, QSize(LargestPreviewSize), PreviewMaximumPixelCount);
    return record && !record->image().isNull() ? record : nullptr;
}

// --- The memory cache ------------------------------------------------------------

ZVXPreviews::MemoryCache::MemoryCache()
    : m_cache(CacheCostLimit)
{ }

std::optional<ZVXPreviews::Cached> ZVXPreviews::MemoryCache::object(const QString &key) const
{
    if (const Cached *cached = m_cache.object(key))
        return *cached;
    return std::nullopt;
}

void ZVXPreviews::MemoryCache::insert(const QString &key, const Cached &value, qint64 cost)
{
    std::erase(m_order, key);
    // QCache refuses (and deletes) what costs more than its whole budget.
    if (!m_cache.insert(key, new Cached(value), cost))
        return;
    m_order.push_back(key);
    while (m_order.size() > size_t(MemoryCacheCountLimit)) {
        m_cache.remove(m_order.front());
        m_order.pop_front();
    }
    // Entries QCache dropped for their cost leave their place in the order.
    std::erase_if(m_order, [this](const QString &k) { return !m_cache.contains(k); });
}

void ZVXPreviews::MemoryCache::clear()
{
    m_cache.clear();
    m_order.clear();
}

// --- Bookkeeping ---------------------------------------------------------------------

ZVXPreviews::ZVXPreviews(ZuveroConnectionPrivate *connection)
    : m_connection(connection)
    , m_tiles(std::make_unique<ZVXMapTileCache>())
{ }

ZVXPreviews::~ZVXPreviews() = default;

std::optional<ZVXPreviews::Cached> ZVXPreviews::lookUp(const QString &key) const
{
    const QVariant kept = m_lruCache.objectForKey(key);
    if (kept.isValid())
        return kept.value<Cached>();
    return m_memoryCache.object(key);
}

bool ZVXPreviews::mayLoad(const QString &key) const
{
    if (m_loading.contains(key))
        return false;
    const QDateTime failed = m_failed.value(key, QDateTime::fromSecsSinceEpoch(0, Qt::UTC));
    return failed.msecsTo(ZVXClock::currentTime())
        >= std::chrono::milliseconds(FailureBackOff).count();
}

quint64 ZVXPreviews::beginLoad(const QString &key)
{
    m_failed.remove(key);
    const quint64 ticket = m_nextTicket++;
    m_loading.insert(key, ticket);
    return ticket;
}

bool ZVXPreviews::endLoad(const QString &key, quint64 ticket)
{
    if (m_loading.value(key) != ticket)
        return false;
    m_loading.remove(key);
    return true;
}

void ZVXPreviews::store(const QString &key, const Cached &value, qint64 memoryCost, qint64 lruCost)
{
    m_memoryCache.insert(key, value, memoryCost);
    m_lruCache.setObject(QVariant::fromValue(value), key, lruCost);
}

void ZVXPreviews::removeAll()
{
    m_memoryCache.clear();
    m_lruCache.removeAllObjects();
    m_loading.clear();
    m_failed.clear();
    m_tiles->clear();
}

// --- Attachments -------------------------------------------------------------------

ZuveroImagePtr ZVXPreviews::cachedAttachmentPreview(const ZuveroChatAttachmentPtr &attachment)
{
    if (!attachment || attachment->uuid().isEmpty())
        return nullptr;
    const QString key = attachment->uuid();

    if (!attachment->image().isNull()) {
        // Picked on this device: the record is made here once and kept.
        if (const Cached kept = m_lruCache.objectForKey(key).value<Cached>(); kept.record)
            return kept.record;
        const std::optional<QByteArray> data = attachment->data();
        const QImage image = attachment->image();
        const qint64 cost = data
            ? data->size()
            : qint64(std::llround(double(image.width()) * image.height() * image.devicePixelRatio()
                                  * image.devicePixelRatio()));
        ZuveroImagePtr record
            = data ? ZuveroImage::initWithRawData(data) : ZuveroImage::initWithImage(image);
        if (!record)
            return nullptr;
        m_lruCache.setObject(QVariant::fromValue(Cached{record, {}}), key, cost);
        return record;
    }

    if (attachment->previewURL().isEmpty() && attachment->data()) {
        ZuveroImagePtr record = ZuveroImage::initWithRawData(attachment->data());
        if (record && !record->image().isNull()) {
            attachment->setImage(record->image());
            return record;
        }
    }
    if (const std::optional<Cached> cached = lookUp(key); cached && cached->record)
        return cached->record;
    if (attachment->previewURL().isEmpty())
        return nullptr;
    return cachedPreviewImageIfNeeded(attachment->previewURL());
}

ZuveroImagePtr ZVXPreviews::cachedPreviewImageIfNeeded(const QUrl &url) const
{
    const std::optional<ZVXURLRequest> request = m_connection->cacheableRequestWithURL(url);
    ZVXURLCache *cache = m_connection->fileLoadingSession->urlCache();
    if (!request || !cache)
        return nullptr;
    const std::optional<ZVXCachedURLResponse> cached = cache->cachedResponse(request->url());
    if (!cached)
        return nullptr;
    if (ZuveroImagePtr record = decodedPreview(cached->data))
        return record;
    ZVXLogError(
        QStringLiteral("WARNING: cached data cannot be decoded in attachment preview image!"));
    return nullptr;
}

ZuveroImagePtr ZVXPreviews::loadAttachmentPreview(const ZuveroChatAttachmentPtr &attachment)
{
    if (!attachment || attachment->uuid().isEmpty())
        return nullptr;
    if (ZuveroImagePtr cached = cachedAttachmentPreview(attachment))
        return cached;
    const QString key = attachment->uuid();
    if (attachment->previewURL().isEmpty() || !mayLoad(key))
        return nullptr;
    const std::optional<ZVXURLRequest> request
        = m_connection->cacheableRequestWithURL(attachment->previewURL());
    if (!request)
        return nullptr;

    const quint64 ticket = beginLoad(key);
    QPointer<ZuveroConnection> connection = m_connection->q;
    const QUrl url = request->url();
    auto task = m_connection->fileLoadingSession->dataTask(
        *request, [connection, attachment, key, ticket, url](const ZVXURLSessionResult &result) {
            // Off the main thread: decode here, then hand the record over.
            const int status = result.response ? result.response->statusCode : 0;
            ZuveroImagePtr record
                = status >= 200 && status < 300 ? decodedPreview(result.data) : nullptr;
            if (!record) {
                ZVXLog(QStringLiteral("ZuveroConnection: failed to load image: %1 Response code: "
                                      "%2 Error: %3")
                           .arg(describeURL(url))
                           .arg(status)
                           .arg(describeError(result.error)));
            }
            return [connection, attachment, key, ticket, record] {
                if (!connection)
                    return;
                ZVXPreviews *self = ZuveroConnectionPrivate::get(connection)->previews.get();
                if (!self->endLoad(key, ticket))
                    return;
                if (!record) {
                    self->m_failed.insert(key, ZVXClock::currentTime());
                    return;
                }
                const qint64 cost = costOf(record);
                self->store(key, Cached{record, {}}, cost, cost);
                ZuveroNotificationCenter::defaultCenter()->post(
                    ZuveroAttachmentPreviewDidLoadNotification, attachment,
                    {{ZuveroPreviewImageKey, QVariant::fromValue(record)}});
            };
        });
    task->resume();
    return nullptr;
}

void ZVXPreviews::loadAttachmentDocument(const ZuveroChatAttachmentPtr &attachment,
                                         ZuveroConnection::DocumentCompletion completion)
{
    const auto finish = [&completion](const ZuveroImagePtr &record, const ZuveroError &error) {
        if (completion)
            completion(record, error);
    };
    if (!attachment || (!attachment->isImage() && !attachment->isValidDocument())) {
        finish(nullptr, documentError("Attachment is not an valid document."));
        return;
    }
    if (!attachment->image().isNull()) {
        finish(ZuveroImage::initWithImage(attachment->image()), {});
        return;
    }
    if (const std::optional<QByteArray> data = attachment->data()) {
        if (ZuveroImagePtr record = ZuveroImage::initWithRawData(data);
            record && !record->image().isNull()) {
            finish(record, {});
            return;
        }
    }
    const std::optional<ZVXURLRequest> request
        = m_connection->cacheableRequestWithURL(attachment->dataURL());
    if (!request) {
        finish(nullptr, documentError("Missing dataURL for attachment."));
        return;
    }

    std::function<void()> end = m_connection->beginNetworkActivity();
    const QUrl url = request->url();
    auto task = m_connection->fileLoadingSession->dataTask(
        *request, [completion, end, url](const ZVXURLSessionResult &result) {
            ZuveroImagePtr record;
            ZuveroError error;
            const int status = result.response ? result.response->statusCode : 0;
            if (result.data && !result.data->isEmpty() && result.error.isNull()) {
                record = ZuveroImage::initWithRawData(result.data);
                if (!record || record->image().isNull()) {
                    record = nullptr;
                    error = documentError(
                        "Cannot decode an image from downloaded data for the attachment.");
                }
            } else {
                ZVXLog(QStringLiteral("ZuveroConnection: failed to load full image: %1 Response "
                                      "code: %2 Error: %3")
                           .arg(describeURL(url))
                           .arg(status)
                           .arg(describeError(result.error)));
                error = result.error;
            }
            return [completion, end, record, error] {
                end();
                if (completion)
                    completion(record, error);
            };
        });
    task->resume();
}

// --- Locations ---------------------------------------------------------------------

QImage ZVXPreviews::cachedLocationPreview(const ZuveroChatMessagePtr &message)
{
    if (!message || message->uuid().isEmpty())
        return {};
    const std::optional<Cached> cached = lookUp(message->uuid());
    return cached ? cached->image : QImage();
}

QImage ZVXPreviews::loadLocationPreview(const ZuveroChatMessagePtr &message, const QSize &size)
{
    if (!message || message->uuid().isEmpty() || !message->locationDictionary())
        return {};
    const QImage cached = cachedLocationPreview(message);
    if (!cached.isNull())
        return cached;
    const QString key = message->uuid();
    if (!mayLoad(key))
        return {};
    const QVariantMap location = *message->locationDictionary();
    const double latitude = location.value(QStringLiteral("lat")).toDouble();
    const double longitude = location.value(QStringLiteral("lng")).toDouble();
    // A span that is not a positive number of metres is taken as none.
    bool isNumber = false;
    const double span = location.value(QStringLiteral("d")).toDouble(&isNumber);
    const double metres = isNumber && span > 0 ? span : DefaultLocationSpan;

    const quint64 ticket = beginLoad(key);
    QPointer<ZuveroConnection> connection = m_connection->q;
    snapshot(latitude, longitude, metres, size,
             [connection, message, location, key, ticket](const QImage &image,
                                                          const ZuveroError &error) {
                 if (!connection)
                     return;
                 ZVXPreviews *self = ZuveroConnectionPrivate::get(connection)->previews.get();
                 if (image.isNull()) {
                     ZVXLog(QStringLiteral("ZuveroConnection: failed to load snapshot for "
                                           "message: %1 location: %2 Error: %3")
                                .arg(key, ZVXJSON::describe(location), describeError(error)));
                 }
                 if (!self->endLoad(key, ticket))
                     return;
                 if (image.isNull()) {
                     self->m_failed.insert(key, ZVXClock::currentTime());
                     return;
                 }
                 self->store(key, Cached{nullptr, image}, 0, 1);
                 ZuveroNotificationCenter::defaultCenter()->post(
                     ZuveroLocationPreviewDidLoadNotification, message,
                     {{ZuveroPreviewImageKey, image}});
             });
    return {};
}

void ZVXPreviews::snapshot(double latitude, double longitude, double metres, const QSize &size,
                           std::function<void(const QImage &, const ZuveroError &)> done)
{
    ZVXConnectionAPI *api = m_connection->api();
    ZVXMapSnapshotOptions options;
    options.centre = {latitude, longitude};
    options.setSpan(metres);
    options.size = size;
    options.devicePixelRatio = qGuiApp ? qGuiApp->devicePixelRatio() : 1.0;
    if (api)
        options.attribution = api->mapTileAttribution();
    const QString urlTemplate = api ? api->mapTileURLTemplate() : QString();
    auto *snapshotter = new ZVXMapSnapshotter(m_connection->fileLoadingSession, m_tiles.get(),
                                              urlTemplate, options, m_connection->q);
    snapshotter->start([snapshotter, done](const QImage &image, const ZuveroError &error) {
        snapshotter->deleteLater();
        done(image, error);
    });
}
