#include "ZVXMapTiles.h"

#include <QSet>

#include <algorithm>
#include <cmath>
#include <numbers>

namespace ZVXMapTiles {

namespace {

double radians(double degrees)
{
    return degrees * std::numbers::pi / 180.0;
}

double degrees(double radians)
{
    return radians * 180.0 / std::numbers::pi;
}

double worldSize(int zoom)
{
    return double(TileSize) * double(tileCount(zoom));
}

} // namespace

double clampLatitude(double latitude)
{
    return std::clamp(latitude, -MaxLatitude, MaxLatitude);
}

double wrapLongitude(double longitude)
{
    const double wrapped = std::fmod(longitude + 180.0, 360.0);
    return (wrapped < 0 ? wrapped + 360.0 : wrapped) - 180.0;
}

QPointF worldPixel(Coordinate coordinate, int zoom)
{
    const double size = worldSize(zoom);
    const double phi = radians(clampLatitude(coordinate.latitude));
    const double x = (wrapLongitude(coordinate.longitude) + 180.0) / 360.0 * size;
    const double y
        = (1.0 - std::log(std::tan(phi) + 1.0 / std::cos(phi)) / std::numbers::pi) / 2.0 * size;
    // At the clamped latitudes rounding may step a hair outside the square.
    return {std::clamp(x, 0.0, size), std::clamp(y, 0.0, size)};
}

Coordinate coordinate(QPointF pixel, int zoom)
{
    const double size = worldSize(zoom);
    const double n = std::numbers::pi * (1.0 - 2.0 * pixel.y() / size);
    return {degrees(std::atan(std::sinh(n))), pixel.x() / size * 360.0 - 180.0};
}

QPoint tile(Coordinate coordinate, int zoom)
{
    const QPointF pixel = worldPixel(coordinate, zoom);
    // The southern edge (y = 2^zoom * 256) still belongs to the last row.
    const qint64 last = tileCount(zoom) - 1;
    return {wrapColumn(qint64(std::floor(pixel.x() / TileSize)), zoom),
            int(std::clamp(qint64(std::floor(pixel.y() / TileSize)), qint64(0), last))};
}

int wrapColumn(qint64 column, int zoom)
{
    const qint64 count = tileCount(zoom);
    const qint64 wrapped = column % count;
    return int(wrapped < 0 ? wrapped + count : wrapped);
}

double metresPerPixel(double latitude, int zoom)
{
    return EquatorMetresPerPixel * std::cos(radians(clampLatitude(latitude)))
        / double(tileCount(zoom));
}

int zoomForSpan(double latitude, double northSouthMetres, double eastWestMetres, QSizeF size)
{
    if (size.width() <= 0 || size.height() <= 0)
        return 0;
    const double needed = std::max(northSouthMetres / size.height(), eastWestMetres / size.width());
    for (int zoom = MaxZoom; zoom > 0; --zoom) {
        if (metresPerPixel(latitude, zoom) >= needed)
            return zoom;
    }
    return 0;
}

QPointF View::tileOrigin(qint64 column, qint64 row) const
{
    return {(double(column) * TileSize - centre.x()) * scale + pixelSize.width() / 2.0,
            (double(row) * TileSize - centre.y()) * scale + pixelSize.height() / 2.0};
}

QList<QPoint> View::tiles() const
{
    QList<QPoint> tiles;
    QSet<QPoint> seen;
    for (qint64 row = firstRow; row <= lastRow; ++row) {
        for (qint64 column = firstColumn; column <= lastColumn; ++column) {
            const QPoint tile(wrapColumn(column, zoom), int(row));
            if (!seen.contains(tile)) {
                seen.insert(tile);
                tiles.append(tile);
            }
        }
    }
    return tiles;
}

View view(Coordinate centre, double northSouthMetres, double eastWestMetres, QSize size,
          qreal devicePixelRatio)
{
    const Coordinate clamped{clampLatitude(centre.latitude), wrapLongitude(centre.longitude)};
    const int spanZoom = zoomForSpan(clamped.latitude, northSouthMetres, eastWestMetres, size);
    const int step = devicePixelRatio > 0 ? int(std::lround(std::log2(devicePixelRatio))) : 0;

    View view;
    view.zoom = std::clamp(spanZoom + step, 0, MaxZoom);
    view.devicePixelRatio = devicePixelRatio;
    view.scale = devicePixelRatio * std::exp2(spanZoom - view.zoom);
    view.pixelSize
        = QSize(qRound(size.width() * devicePixelRatio), qRound(size.height() * devicePixelRatio));
    view.centre = worldPixel(clamped, view.zoom);

    const double halfWidth = view.pixelSize.width() / 2.0 / view.scale;
    const double halfHeight = view.pixelSize.height() / 2.0 / view.scale;
    // A tile whose edge only touches the image's edge is not needed.
    view.firstColumn = qint64(std::floor((view.centre.x() - halfWidth) / TileSize));
    view.lastColumn = qint64(std::ceil((view.centre.x() + halfWidth) / TileSize)) - 1;
    view.firstRow
        = std::max<qint64>(0, qint64(std::floor((view.centre.y() - halfHeight) / TileSize)));
    view.lastRow = std::min(tileCount(view.zoom) - 1,
                            qint64(std::ceil((view.centre.y() + halfHeight) / TileSize)) - 1);
    return view;
}

} // namespace ZVXMapTiles
