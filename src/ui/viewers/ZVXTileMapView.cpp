#include "ZVXTileMapView.h"

#include "ZVXMapSnapshotter.h"
#include "ZVXMapTileCache.h"
#include "ZVXURLSession.h"

#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QWheelEvent>

#include <algorithm>
#include <cmath>

namespace {

const QColor Background(0xdd, 0xdd, 0xdd);
constexpr auto TileTimeout = std::chrono::seconds(30);
// Tiles kept here at most; those of other zoom levels go first.
constexpr int HeldTileLimit = 256;
// How far one press of an arrow key moves the map.
constexpr qreal KeyStep = 64;
const QColor UserDot(0x1a, 0x73, 0xe8);

} // namespace

using ZVXMapTiles::TileSize;

ZVXTileMapView::ZVXTileMapView(ZVXURLSession *session, ZVXMapTileCache *cache,
                               const QString &urlTemplate, QWidget *parent)
    : QWidget(parent)
    , m_session(session)
    , m_cache(cache)
    , m_urlTemplate(urlTemplate)
{
    setMinimumSize(64, 64);
    setFocusPolicy(Qt::StrongFocus);
    m_centre = ZVXMapTiles::worldPixel({}, m_zoom);
}

ZVXTileMapView::~ZVXTileMapView()
{
    for (const auto &task : std::as_const(m_requests))
        task->cancel();
}

void ZVXTileMapView::setRegion(ZVXMapTiles::Coordinate centre, double metres)
{
    // Until the view is laid out its size is not the one it will show.
    if (width() <= 0 || height() <= 0 || !isVisible())
        m_pendingRegion = std::make_pair(centre, metres);
    centre.latitude = ZVXMapTiles::clampLatitude(centre.latitude);
    centre.longitude = ZVXMapTiles::wrapLongitude(centre.longitude);
    const QSizeF area = width() > 0 && height() > 0 ? QSizeF(size()) : QSizeF(256, 256);
    m_zoom = std::max(1, ZVXMapTiles::zoomForSpan(centre.latitude, metres, metres, area));
    m_centre = ZVXMapTiles::worldPixel(centre, m_zoom);
    update();
    Q_EMIT regionChanged();
}

ZVXMapTiles::Coordinate ZVXTileMapView::centre() const
{
    return ZVXMapTiles::coordinate(m_centre, m_zoom);
}

void ZVXTileMapView::setZoom(int zoom)
{
    zoomAbout(zoom, rect().center());
}

void ZVXTileMapView::zoomIn()
{
    setZoom(m_zoom + 1);
}

void ZVXTileMapView::zoomOut()
{
    setZoom(m_zoom - 1);
}

void ZVXTileMapView::zoomAbout(int zoom, QPointF anchor)
{
    zoom = std::clamp(zoom, 0, ZVXMapTiles::MaxZoom);
    if (zoom == m_zoom)
        return;
    m_pendingRegion.reset();
    // The ground under the anchor stays under it.
    const QPointF fromCentre = anchor - QPointF(width(), height()) / 2;
    const qreal factor = std::ldexp(1.0, zoom - m_zoom);
    m_centre = (m_centre + fromCentre) * factor - fromCentre;
    m_zoom = zoom;
    update();
    Q_EMIT regionChanged();
}

void ZVXTileMapView::setPin(const std::optional<ZVXMapTiles::Coordinate> &pin)
{
    m_pin = pin;
    update();
}

void ZVXTileMapView::setCentrePinned(bool pinned)
{
    m_centrePinned = pinned;
    update();
}

void ZVXTileMapView::setUserLocation(const std::optional<ZVXMapTiles::Coordinate> &location)
{
    m_userLocation = location;
    update();
}

double ZVXTileMapView::eastWestMetres() const
{
    return width() * ZVXMapTiles::metresPerPixel(centre().latitude, m_zoom);
}

void ZVXTileMapView::setAttribution(const QString &attribution)
{
    m_attribution = attribution;
    update();
}

void ZVXTileMapView::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    if (m_pendingRegion && width() > 0 && height() > 0) {
        const auto [centre, metres] = *m_pendingRegion;
        m_pendingRegion.reset();
        setRegion(centre, metres);
    }
}

QImage ZVXTileMapView::tile(int zoom, qint64 column, qint64 row)
{
    const QString url = ZVXMapSnapshotter::tileURL(m_urlTemplate, zoom,
                                                   ZVXMapTiles::wrapColumn(column, zoom), int(row));
    if (const QImage held = m_tiles.value(url); !held.isNull())
        return held;
    if (m_cache) {
        if (const QImage cached = m_cache->tile(url); !cached.isNull()) {
            m_tiles.insert(url, cached);
            return cached;
        }
    }
    if (!m_requests.contains(url) && !m_failed.contains(url))
        fetch(url);
    return {};
}

void ZVXTileMapView::fetch(const QString &url)
{
    if (!m_session)
        return;
    const QPointer<ZVXTileMapView> self(this);
    const auto task = m_session->dataTask(
        ZVXMapSnapshotter::tileRequest(url, TileTimeout),
        [self, url](const ZVXURLSessionResult &result) -> ZVXURLSession::Completion {
            const QImage image = ZVXMapSnapshotter::decodeTile(result, url);
            return [self, url, image] {
                if (!self)
                    return;
                self->m_requests.remove(url);
                if (image.isNull()) {
                    // Not asked again while the map is open: a broken tile stays grey.
                    self->m_failed.insert(url);
                    return;
                }
                if (self->m_tiles.size() >= HeldTileLimit)
                    self->m_tiles.clear();
                self->m_tiles.insert(url, image);
                if (self->m_cache)
                    self->m_cache->insert(url, image);
                self->update();
            };
        });
    m_requests.insert(url, task);
    task->resume();
}

void ZVXTileMapView::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.fillRect(rect(), Background);
    const QPointF topLeft = m_centre - QPointF(width(), height()) / 2;
    const qint64 firstColumn = qint64(std::floor(topLeft.x() / TileSize));
    const qint64 lastColumn = qint64(std::floor((topLeft.x() + width()) / TileSize));
    const qint64 rows = ZVXMapTiles::tileCount(m_zoom);
    const qint64 firstRow = std::max<qint64>(0, qint64(std::floor(topLeft.y() / TileSize)));
    const qint64 lastRow
        = std::min<qint64>(rows - 1, qint64(std::floor((topLeft.y() + height()) / TileSize)));
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    for (qint64 row = firstRow; row <= lastRow; ++row) {
        for (qint64 column = firstColumn; column <= lastColumn; ++column) {
            const QImage image = tile(m_zoom, column, row);
            if (image.isNull())
                continue;
            const QPointF origin = QPointF(column * TileSize, row * TileSize) - topLeft;
            painter.drawImage(QRectF(origin, QSizeF(TileSize, TileSize)), image);
        }
    }
    // Marks are drawn on the copy of the world nearest to the view's centre.
    const qreal world = qreal(rows) * TileSize;
    const auto onScreen = [&](ZVXMapTiles::Coordinate place) {
        QPointF at = ZVXMapTiles::worldPixel(place, m_zoom);
        at.setX(at.x() + world * std::round((m_centre.x() - at.x()) / world));
        return at - topLeft;
    };
    painter.setRenderHint(QPainter::Antialiasing);
    if (m_userLocation) {
        const QPointF at = onScreen(*m_userLocation);
        painter.setPen(QPen(Qt::white, 2));
        painter.setBrush(UserDot);
        painter.drawEllipse(at, 7, 7);
    }
    if (m_centrePinned)
        ZVXMapSnapshotter::drawPin(painter, QPointF(width(), height()) / 2, 1);
    else if (m_pin)
        ZVXMapSnapshotter::drawPin(painter, onScreen(*m_pin), 1);
    if (!m_attribution.isEmpty()) {
        QFont font = painter.font();
        font.setPixelSize(10);
        painter.setFont(font);
        const QRect text = painter.fontMetrics().boundingRect(m_attribution).adjusted(-3, -1, 3, 1);
        QRect box(QPoint(width() - text.width(), height() - text.height()), text.size());
        painter.fillRect(box, QColor(255, 255, 255, 200));
        painter.setPen(Qt::black);
        painter.drawText(box, Qt::AlignCenter, m_attribution);
    }
}

void ZVXTileMapView::wheelEvent(QWheelEvent *event)
{
    const int notches = event->angleDelta().y() / 120;
    if (notches == 0) {
        event->ignore();
        return;
    }
    zoomAbout(m_zoom + notches, event->position());
    event->accept();
}

void ZVXTileMapView::mousePressEvent(QMouseEvent *event)
{
    if (!m_drag.press(event))
        QWidget::mousePressEvent(event);
}

void ZVXTileMapView::mouseMoveEvent(QMouseEvent *event)
{
    const std::optional<QPointF> moved = m_drag.move(event);
    if (!moved)
        return;
    moveBy(*moved);
}

void ZVXTileMapView::moveBy(QPointF pixels)
{
    m_pendingRegion.reset();
    m_centre -= pixels;
    // North and south end at the world's edges; east and west go round.
    const qreal world = qreal(ZVXMapTiles::tileCount(m_zoom)) * TileSize;
    m_centre.setY(std::clamp(m_centre.y(), 0.0, world));
    m_centre.setX(std::fmod(std::fmod(m_centre.x(), world) + world, world));
    update();
    Q_EMIT regionChanged();
}

void ZVXTileMapView::keyPressEvent(QKeyEvent *event)
{
    // An arrow looks further its way: the map moves the other.
    switch (event->key()) {
    case Qt::Key_Left:
        moveBy({KeyStep, 0});
        break;
    case Qt::Key_Right:
        moveBy({-KeyStep, 0});
        break;
    case Qt::Key_Up:
        moveBy({0, KeyStep});
        break;
    case Qt::Key_Down:
        moveBy({0, -KeyStep});
        break;
    case Qt::Key_Plus:
    case Qt::Key_Equal:
        zoomIn();
        break;
    case Qt::Key_Minus:
        zoomOut();
        break;
    default:
        QWidget::keyPressEvent(event);
        return;
    }
    event->accept();
}

void ZVXTileMapView::mouseReleaseEvent(QMouseEvent *event)
{
    m_drag.release(event);
}
