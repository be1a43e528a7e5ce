#pragma once

#include "zuvero_export.h"

#include <QList>
#include <QPoint>
#include <QPointF>
#include <QSize>
#include <QSizeF>

/*
    Web Mercator (EPSG:3857) arithmetic for slippy-map tiles of 256 pixels:
    the world at zoom z is a square of 256 * 2^z "world pixels", tile (x, y)
    covering columns x * 256 up to (x + 1) * 256, x growing eastwards from
    180° W and y southwards from 85.0511° N.
*/
namespace ZVXMapTiles {

inline constexpr int TileSize = 256;
inline constexpr int MaxZoom = 19;
//! atan(sinh(pi)) in degrees: the latitude at which the square world ends.
inline constexpr double MaxLatitude = 85.0511287798066;
//! Ground metres per world pixel at the equator, at zoom 0.
inline constexpr double EquatorMetresPerPixel = 156543.03392;

struct Coordinate
{
    double latitude = 0;
    double longitude = 0;
};

//! \a latitude within ±MaxLatitude.
ZUVERO_EXPORT double clampLatitude(double latitude);
//! \a longitude in [-180, 180).
ZUVERO_EXPORT double wrapLongitude(double longitude);
//! Tiles per side at \a zoom.
inline qint64 tileCount(int zoom)
{
    return qint64(1) << zoom;
}

//! Where \a coordinate lies at \a zoom, in [0, 256 * 2^zoom) on both axes.
ZUVERO_EXPORT QPointF worldPixel(Coordinate coordinate, int zoom);
//! The coordinate of \a pixel at \a zoom; the inverse of worldPixel() within the square world.
ZUVERO_EXPORT Coordinate coordinate(QPointF pixel, int zoom);
//! The tile holding \a coordinate at \a zoom.
ZUVERO_EXPORT QPoint tile(Coordinate coordinate, int zoom);
//! \a column brought into [0, 2^zoom): columns repeat around the antimeridian.
ZUVERO_EXPORT int wrapColumn(qint64 column, int zoom);

//! Ground metres one world pixel covers at \a latitude and \a zoom.
ZUVERO_EXPORT double metresPerPixel(double latitude, int zoom);
/*!
    The largest zoom, 0 to MaxZoom, at which \a northSouthMetres and
    \a eastWestMetres around \a latitude fit in \a size pixels; 0 when they
    fit at none.
*/
ZUVERO_EXPORT int zoomForSpan(double latitude, double northSouthMetres, double eastWestMetres,
                              QSizeF size);

/*!
    What a map picture shows: the tiles it is made of and where they go.
    Positions are in the image's own (device) pixels; the centre of the
    image is the centre coordinate.
*/
struct ZUVERO_EXPORT View
{
    //! The tiles' zoom: the span's zoom, one more for each doubling of the pixel ratio.
    int zoom = 0;
    //! The centre coordinate in world pixels at zoom.
    QPointF centre;
    //! The image in device pixels.
    QSize pixelSize;
    qreal devicePixelRatio = 1;
    //! Image pixels per tile pixel.
    qreal scale = 1;
    //! Tile columns as they lie, not wrapped (below 0 or past 2^zoom - 1 around the antimeridian).
    qint64 firstColumn = 0;
    qint64 lastColumn = -1;
    //! Rows within the world only: beyond the poles there is nothing.
    qint64 firstRow = 0;
    qint64 lastRow = -1;

    //! The image pixel where the top-left corner of tile (\a column, \a row) lies.
    QPointF tileOrigin(qint64 column, qint64 row) const;
    //! Every tile needed, columns wrapped, each once, row by row.
    QList<QPoint> tiles() const;
};

/*!
    The view of \a size points at \a devicePixelRatio, centred on \a centre
    (latitude clamped, longitude wrapped), at the zoom at which the spans fit.
*/
ZUVERO_EXPORT View view(Coordinate centre, double northSouthMetres, double eastWestMetres,
                        QSize size, qreal devicePixelRatio);

} // namespace ZVXMapTiles
