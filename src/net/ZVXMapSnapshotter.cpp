#include "ZVXMapSnapshotter.h"

#include "ZVXLogging.h"
#include "ZVXMainThread.h"
#include "ZVXMapTileCache.h"
#include "ZVXOperation.h"
#include "ZVXResources.h"
#include "ZVXURLSession.h"
#include "ZuveroException.h"

#include <QBuffer>
#include <QCoreApplication>
#include <QFontMetricsF>
#include <QImageReader>
#include <QNetworkReply>
#include <QPainter>
#include <QPointer>
#include <QSvgRenderer>
#include <QThreadPool>
#include <QUrl>

#include <cmath>

namespace {

// Where the ground shows through: beyond the poles, or under a tile that is missing.
const QColor Background(0xdd, 0xdd, 0xdd);
// The point of the pin's path in its drawing (whose view box is its size): it marks the place.
constexpr QPointF PinTip(16, 38.5);

ZuveroError mapError(ZuveroMapErrorCode code, const QString &description)
{
    return ZuveroError::withDescription(ZuveroMapErrorDomain, code, description);
}

// Tile URLs may carry a server's key in their query; log lines never do.
QString loggable(const QString &url)
{
    return QUrl(url).adjusted(QUrl::RemoveQuery | QUrl::RemoveUserInfo).toString();
}

// Tile servers ask to be told which application fetches their tiles.
QByteArray userAgent()
{
    QByteArray agent = "Zuvero/" ZUVERO_VERSION_STRING;
    const QString name = QCoreApplication::applicationName();
    if (!name.isEmpty()) {
        QString host = name;
        if (!QCoreApplication::applicationVersion().isEmpty())
            host += QLatin1Char('/') + QCoreApplication::applicationVersion();
        agent = host.toUtf8().replace(' ', '-') + ' ' + agent;
    }
    return agent;
}

struct DecodedTile
{
    QImage image;
    ZuveroError error;
    //! For the log: what came instead of a tile.
    QString detail;
};

// Off the main thread, in the session's reply check.
DecodedTile decodeTile(const ZVXURLSessionResult &result, const QString &url)
{
    if (result.error)
        return {{}, result.error, result.error.localizedDescription()};
    if (!result.response || !result.data) {
        return {{},
                ZuveroError::withDescription(ZuveroErrorDomain, ZuveroErrorNoHTTPResponse,
                                             QStringLiteral("The tile server did not answer.")),
                QStringLiteral("no HTTP reply")};
    }
    const int status = result.response->statusCode;
    if (status != 200) {
        const QString description
            = QStringLiteral("The tile server answered with HTTP status %1.").arg(status);
        return {{},
                ZuveroError(ZuveroMapErrorDomain, ZuveroMapErrorTileRefused,
                            {{ZuveroLocalizedDescriptionKey, description},
                             {ZuveroHTTPStatusCodeKey, status}}),
                QStringLiteral("HTTP status %1").arg(status)};
    }

    const QByteArray &bytes = *result.data;
    const auto notAnImage = [&](const QString &why) {
        return DecodedTile{
            {},
            mapError(
                ZuveroMapErrorTileNotAnImage,
                QStringLiteral("The map tile at %1 is not a usable image.").arg(loggable(url))),
            QStringLiteral("%1: %2 (%3 bytes)")
                .arg(why, ZVXDescribeBytes(bytes.left(16)))
                .arg(bytes.size())};
    };
    if (bytes.size() > ZVXMapSnapshotter::MaximumTileBytes)
        return notAnImage(
            QStringLiteral("larger than %1 bytes").arg(ZVXMapSnapshotter::MaximumTileBytes));

    QBuffer buffer;
    buffer.setData(bytes);
    buffer.open(QIODevice::ReadOnly);
    QImageReader reader(&buffer);
    reader.setDecideFormatFromContent(true);
    // Tile servers send these; other decoders (SVG among them) have no business here.
    static const QList<QByteArray> formats{"png", "jpeg", "webp"};
    if (!formats.contains(reader.format()))
        return notAnImage(QStringLiteral("not a PNG, JPEG or WebP image"));
    // The header alone tells the size: nothing larger is decoded.
    const QSize size = reader.size();
    if (!size.isValid() || size.width() > ZVXMapSnapshotter::MaximumTileSide
        || size.height() > ZVXMapSnapshotter::MaximumTileSide)
        return notAnImage(QStringLiteral("%1 x %2 pixels").arg(size.width()).arg(size.height()));
    QImage image;
    if (!reader.read(&image))
        return notAnImage(reader.errorString());
    // The formats QPainter copies fastest.
    image.convertTo(image.hasAlphaChannel() ? QImage::Format_ARGB32_Premultiplied
                                            : QImage::Format_RGB32);
    return {image, {}, {}};
}

void drawPin(QPainter &painter, QPointF tip, qreal devicePixelRatio)
{
    // One renderer per picture: QSvgRenderer is not to be shared between threads.
    QSvgRenderer pin(ZVXResources::path(QStringLiteral("ZuveroLocationAnnotation.svg")));
    const QSizeF size = QSizeF(pin.defaultSize()) * devicePixelRatio;
    pin.render(&painter, QRectF(tip - PinTip * devicePixelRatio, size));
}

void drawAttribution(QPainter &painter, const QString &attribution, QSize image, qreal ratio)
{
    QFont font;
    font.setPixelSize(std::max(1, qRound(10 * ratio)));
    const QFontMetricsF metrics(font);
    const qreal padding = 3 * ratio;
    const qreal room = image.width() - 2 * padding;
    const QString text = metrics.elidedText(attribution, Qt::ElideRight, room);
    const qreal width = std::min(metrics.horizontalAdvance(text), room);
    const QRectF box(image.width() - width - 2 * padding,
                     image.height() - metrics.height() - padding, width + 2 * padding,
                     metrics.height() + padding);
    painter.fillRect(box, QColor(255, 255, 255, 200));
    painter.setFont(font);
    painter.setPen(QColor(0x33, 0x33, 0x33));
    painter.drawText(box.adjusted(padding, 0, -padding, 0), Qt::AlignRight | Qt::AlignVCenter,
                     text);
}

} // namespace

struct ZVXMapSnapshotter::Private
{
    ZVXMapSnapshotter *q = nullptr;
    QPointer<ZVXURLSession> session;
    QPointer<ZVXMapTileCache> cache;
    QString urlTemplate;
    ZVXMapSnapshotOptions options;

    bool started = false;
    Completion completion;
    ZVXMapTiles::View view;
    qsizetype needed = 0;
    QHash<QPoint, QImage> tiles;
    QHash<QPoint, std::shared_ptr<ZVXURLSessionTask>> requests;

    void fetch(QPoint tile, const QString &url);
    void arrived(QPoint tile, const QString &url, const DecodedTile &decoded);
    void renderOffMainThread();
    void failLater(const ZuveroError &error);
    //! Ends the picture: the remaining requests cancelled, then the completion called last.
    void finish(const QImage &image, const ZuveroError &error);
};

ZVXMapSnapshotter::ZVXMapSnapshotter(ZVXURLSession *session, ZVXMapTileCache *cache,
                                     const QString &urlTemplate,
                                     const ZVXMapSnapshotOptions &options, QObject *parent)
    : QObject(parent)
    , d(std::make_unique<Private>())
{
    d->q = this;
    d->session = session;
    d->cache = cache;
    d->urlTemplate = urlTemplate;
    d->options = options;
}

ZVXMapSnapshotter::~ZVXMapSnapshotter()
{
    cancel();
}

ZVXMapSnapshotOptions ZVXMapSnapshotter::options() const
{
    return d->options;
}

QString ZVXMapSnapshotter::urlTemplate() const
{
    return d->urlTemplate;
}

bool ZVXMapSnapshotter::isRunning() const
{
    return bool(d->completion);
}

QString ZVXMapSnapshotter::defaultURLTemplate(const QString &hostname)
{
    return QStringLiteral("https://%1/tiles/{z}/{x}/{y}.png").arg(hostname);
}

QString ZVXMapSnapshotter::tileURL(const QString &urlTemplate, int zoom, int x, int y)
{
    QString url = urlTemplate;
    url.replace(QLatin1String("{z}"), QString::number(zoom));
    url.replace(QLatin1String("{x}"), QString::number(x));
    url.replace(QLatin1String("{y}"), QString::number(y));
    return url;
}

ZuveroError ZVXMapSnapshotter::checkURLTemplate(const QString &urlTemplate)
{
    const auto refuse = [&](const char *why) {
        return mapError(ZuveroMapErrorInvalidURLTemplate,
                        QStringLiteral("The map tile URL template \"%1\" %2.")
                            .arg(loggable(urlTemplate), QLatin1String(why)));
    };
    for (const char *placeholder : {"{z}", "{x}", "{y}"}) {
        if (!urlTemplate.contains(QLatin1String(placeholder)))
            return refuse("lacks one of {z}, {x} and {y}");
    }
    const QString example = tileURL(urlTemplate, 0, 0, 0);
    if (example.contains(QLatin1Char('{')) || example.contains(QLatin1Char('}')))
        return refuse("has a placeholder other than {z}, {x} and {y}");
    const QUrl url(example, QUrl::StrictMode);
    const QString scheme = url.scheme().toLower();
    if (!url.isValid() || (scheme != QLatin1String("https") && scheme != QLatin1String("http"))
        || url.host().isEmpty())
        return refuse("is not an http or https URL");
    return {};
}

ZuveroError ZVXMapSnapshotter::checkOptions(const ZVXMapSnapshotOptions &options)
{
    const auto refuse = [](const QString &why) {
        return mapError(ZuveroMapErrorInvalidOptions,
                        QStringLiteral("No map picture can be made %1.").arg(why));
    };
    const ZVXMapTiles::Coordinate centre = options.centre;
    if (!std::isfinite(centre.latitude) || !std::isfinite(centre.longitude)
        || std::abs(centre.latitude) > 90)
        return refuse(QStringLiteral("of latitude %1, longitude %2")
                          .arg(centre.latitude)
                          .arg(centre.longitude));
    if (!std::isfinite(options.northSouthMetres) || !std::isfinite(options.eastWestMetres)
        || options.northSouthMetres <= 0 || options.eastWestMetres <= 0)
        return refuse(QStringLiteral("of a span of %1 by %2 metres")
                          .arg(options.northSouthMetres)
                          .arg(options.eastWestMetres));
    const qreal ratio = options.devicePixelRatio;
    const QSize size = options.size;
    if (!std::isfinite(ratio) || ratio <= 0 || size.width() <= 0 || size.height() <= 0
        || size.width() * ratio > MaximumImageSide || size.height() * ratio > MaximumImageSide
        || qRound(size.width() * ratio) < 1 || qRound(size.height() * ratio) < 1)
        return refuse(QStringLiteral("of %1 x %2 points at a pixel ratio of %3")
                          .arg(size.width())
                          .arg(size.height())
                          .arg(ratio));
    return {};
}

void ZVXMapSnapshotter::start(Completion completion)
{
    ZVXMainThread::assertMainThread();
    if (d->started)
        throw ZuveroException(ZVXInvalidArgumentException,
                              QStringLiteral("ZVXMapSnapshotter: start() called twice"));
    d->started = true;
    d->completion = std::move(completion);

    ZuveroError refusal = checkURLTemplate(d->urlTemplate);
    if (!refusal)
        refusal = checkOptions(d->options);
    if (!refusal && !d->session) {
        refusal = ZuveroError::withDescription(ZuveroErrorDomain, ZuveroErrorNoHTTPResponse,
                                               QStringLiteral("The connection is gone."));
    }
    if (refusal) {
        ZVXLogError(QStringLiteral("ZVXMapSnapshotter: %1").arg(refusal.localizedDescription()));
        d->failLater(refusal);
        return;
    }

    const ZVXMapSnapshotOptions &options = d->options;
    d->view = ZVXMapTiles::view(options.centre, options.northSouthMetres, options.eastWestMetres,
                                options.size, options.devicePixelRatio);
    const QList<QPoint> tiles = d->view.tiles();
    d->needed = tiles.size();
    for (const QPoint tile : tiles) {
        const QString url = tileURL(d->urlTemplate, d->view.zoom, tile.x(), tile.y());
        const QImage cached = d->cache ? d->cache->tile(url) : QImage();
        if (!cached.isNull())
            d->tiles.insert(tile, cached);
        else
            d->fetch(tile, url);
    }
    if (d->requests.isEmpty())
        d->renderOffMainThread();
}

void ZVXMapSnapshotter::cancel()
{
    ZVXMainThread::assertMainThread();
    if (!d->completion)
        return;
    const auto reason = QNetworkReply::OperationCanceledError;
    d->finish({},
              ZuveroError::withDescription(ZuveroURLErrorDomain, reason,
                                           QStringLiteral("The map picture was cancelled.")));
}

ZVXURLRequest ZVXMapSnapshotter::tileRequest(const QString &url, std::chrono::milliseconds timeout)
{
    ZVXURLRequest request{QUrl(url)};
    request.setValue(userAgent(), "User-Agent");
    request.setValue("image/png,image/jpeg;q=0.9,image/webp;q=0.9", "Accept");
    request.setTimeoutInterval(timeout);
    return request;
}

QImage ZVXMapSnapshotter::decodeTile(const ZVXURLSessionResult &result, const QString &url,
                                     ZuveroError *error)
{
    DecodedTile decoded = ::decodeTile(result, url);
    if (decoded.error) {
        ZVXLogError(QStringLiteral("ZVXMapSnapshotter: tile %1 failed: %2")
                        .arg(loggable(url), decoded.detail));
        if (error)
            *error = decoded.error;
    }
    return decoded.image;
}

void ZVXMapSnapshotter::drawPin(QPainter &painter, QPointF tip, qreal devicePixelRatio)
{
    ::drawPin(painter, tip, devicePixelRatio);
}

void ZVXMapSnapshotter::Private::fetch(QPoint tile, const QString &url)
{
    const ZVXURLRequest request = tileRequest(url, options.timeout);
    const QPointer<ZVXMapSnapshotter> self(q);
    const auto task = session->dataTask(
        request, [self, tile, url](const ZVXURLSessionResult &result) -> ZVXURLSession::Completion {
            DecodedTile decoded = ::decodeTile(result, url);
            return [self, tile, url, decoded = std::move(decoded)] {
                if (self)
                    self->d->arrived(tile, url, decoded);
            };
        });
    requests.insert(tile, task);
    task->resume();
}

void ZVXMapSnapshotter::Private::arrived(QPoint tile, const QString &url,
                                         const DecodedTile &decoded)
{
    requests.remove(tile);
    // A tile that comes after the end (its request cancelled, or not in time) changes nothing.
    if (!completion)
        return;
    if (decoded.error) {
        ZVXLogError(QStringLiteral("ZVXMapSnapshotter: tile %1 failed: %2")
                        .arg(loggable(url), decoded.detail));
        finish({}, decoded.error);
        return;
    }
    if (cache)
        cache->insert(url, decoded.image);
    tiles.insert(tile, decoded.image);
    if (tiles.size() == needed)
        renderOffMainThread();
}

void ZVXMapSnapshotter::Private::renderOffMainThread()
{
    // Only values cross over: the tiles are shared images nobody writes to.
    QThreadPool::globalInstance()->start([self = QPointer<ZVXMapSnapshotter>(q), view = view,
                                          tiles = tiles, attribution = options.attribution] {
        const QImage image = render(view, tiles, attribution);
        ZVXMainThread::async([self, image] {
            if (self)
                self->d->finish(image, {});
        });
    });
}

void ZVXMapSnapshotter::Private::failLater(const ZuveroError &error)
{
    ZVXMainThread::async([this, error] { finish({}, error); }, q);
}

void ZVXMapSnapshotter::Private::finish(const QImage &image, const ZuveroError &error)
{
    const Completion done = std::exchange(completion, {});
    if (!done)
        return;
    const QList<std::shared_ptr<ZVXURLSessionTask>> pending = requests.values();
    requests.clear();
    tiles.clear();
    for (const auto &task : pending)
        task->cancel();
    // Last: the completion may destroy the snapshotter.
    done(image, error);
}

QImage ZVXMapSnapshotter::render(const ZVXMapTiles::View &view, const QHash<QPoint, QImage> &tiles,
                                 const QString &attribution)
{
    QImage image(view.pixelSize, QImage::Format_ARGB32_Premultiplied);
    if (image.isNull())
        return image;
    image.fill(Background);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    for (qint64 row = view.firstRow; row <= view.lastRow; ++row) {
        for (qint64 column = view.firstColumn; column <= view.lastColumn; ++column) {
            const QImage tile
                = tiles.value(QPoint(ZVXMapTiles::wrapColumn(column, view.zoom), int(row)));
            if (tile.isNull())
                continue;
            // Each edge rounded once, so that neighbours meet without a seam or an overlap.
            const QPointF from = view.tileOrigin(column, row);
            const QPointF to = view.tileOrigin(column + 1, row + 1);
            const QRect cell(QPoint(qRound(from.x()), qRound(from.y())),
                             QPoint(qRound(to.x()) - 1, qRound(to.y()) - 1));
            if (tile.size() == cell.size())
                painter.drawImage(cell.topLeft(), tile);
            else
                painter.drawImage(cell, tile);
        }
    }
    const QPointF centre(view.pixelSize.width() / 2.0, view.pixelSize.height() / 2.0);
    drawPin(painter, centre, view.devicePixelRatio);
    if (!attribution.isEmpty())
        drawAttribution(painter, attribution, view.pixelSize, view.devicePixelRatio);
    painter.end();
    image.setDevicePixelRatio(view.devicePixelRatio);
    return image;
}
