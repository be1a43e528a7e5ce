// The map picture's rendering, with its tiles in the cache: what a second preview of the same
// place costs, all of it off the main thread.

#include "ZVXBenchMaps.h"

#include "ZVXMapSnapshotter.h"
#include "ZVXMapTileCache.h"
#include "ZVXMapTiles.h"

#include <QImage>
#include <QPainter>

#include <memory>

namespace ZVXBench {

namespace {

constexpr int Snapshots = 20;
volatile qint64 sink = 0;

// A tile as a tile server draws one: a plain ground with lines across it.
QImage drawnTile(QPoint tile)
{
    QImage image(ZVXMapTiles::TileSize, ZVXMapTiles::TileSize, QImage::Format_RGB32);
    image.fill((tile.x() + tile.y()) % 2 ? QColor(0xe8, 0xee, 0xe4) : QColor(0xe2, 0xea, 0xdd));
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(QColor(0xc4, 0xcf, 0xbd), 3));
    for (int i = 0; i < ZVXMapTiles::TileSize; i += 32)
        painter.drawLine(i, 0, ZVXMapTiles::TileSize - i, ZVXMapTiles::TileSize);
    return image;
}

} // namespace

QList<Case> mapCases()
{
    ZVXMapSnapshotOptions options;
    options.centre = {48.8566, 2.3522};
    options.setSpan(2000);
    options.size = QSize(600, 300);
    const ZVXMapTiles::View view
        = ZVXMapTiles::view(options.centre, options.northSouthMetres, options.eastWestMetres,
                            options.size, options.devicePixelRatio);
    const QString urlTemplate = ZVXMapSnapshotter::defaultURLTemplate(QStringLiteral("localhost"));
    const auto url = [view, urlTemplate](QPoint tile) {
        return ZVXMapSnapshotter::tileURL(urlTemplate, view.zoom, tile.x(), tile.y());
    };
    // Shared by the cases' copies; made and read on the main thread.
    const auto cache = std::make_shared<ZVXMapTileCache>();
    for (const QPoint tile : view.tiles())
        cache->insert(url(tile), drawnTile(tile));

    QList<Case> cases;
    cases << Case{
        QStringLiteral("snapshot: 600x300 from cached tiles"),
        [=] {
            for (int i = 0; i < Snapshots; ++i) {
                QHash<QPoint, QImage> tiles;
                for (const QPoint tile : view.tiles())
                    tiles.insert(tile, cache->tile(url(tile)));
                sink = ZVXMapSnapshotter::render(view, tiles, options.attribution).sizeInBytes();
            }
        },
        Snapshots};
    cases << Case{QStringLiteral("snapshot: QPainter drawImage of the same tiles"),
                  [=] {
                      for (int i = 0; i < Snapshots; ++i) {
                          QImage image(view.pixelSize, QImage::Format_ARGB32_Premultiplied);
                          QPainter painter(&image);
                          for (const QPoint tile : view.tiles()) {
                              const QPointF at = view.tileOrigin(tile.x(), tile.y());
                              painter.drawImage(at.toPoint(), cache->tile(url(tile)));
                          }
                          painter.end();
                          sink = image.sizeInBytes();
                      }
                  },
                  Snapshots};
    return cases;
}

} // namespace ZVXBench
