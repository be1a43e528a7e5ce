#pragma once

#include "ZVXDragPan.h"

#include "ZVXMapTiles.h"

#include <QHash>
#include <QPointer>
#include <QSet>
#include <QWidget>

#include <memory>
#include <optional>

class ZVXMapTileCache;
class ZVXURLSession;
class ZVXURLSessionTask;

/*!
    An interactive map of slippy-map tiles: dragging moves it, the wheel and
    zoomIn() / zoomOut() zoom it by whole levels, about the point under the
    pointer (the view's centre for the buttons); with the focus, the arrow
    keys move it and + / − zoom it. Tiles come from the shared cache when
    there, otherwise through the session, and go into the cache for the
    pictures of locations to reuse. An optional pin marks a place, or stays
    at the centre while the map moves under it (choosing a place); a blue
    dot marks the user's own position where it is known.
*/
class ZUVERO_EXPORT ZVXTileMapView : public QWidget
{
    Q_OBJECT

public:
    //! Tiles from \a urlTemplate; \a session and \a cache are not owned and may go first.
    ZVXTileMapView(ZVXURLSession *session, ZVXMapTileCache *cache, const QString &urlTemplate,
                   QWidget *parent = nullptr);
    ~ZVXTileMapView() override;

    /*!
        Centres the map on \a centre at the largest zoom at which \a metres
        north to south and east to west fit in the view (its current size,
        or its size when it is first laid out).
    */
    void setRegion(ZVXMapTiles::Coordinate centre, double metres);
    ZVXMapTiles::Coordinate centre() const;
    int zoom() const { return m_zoom; }
    void setZoom(int zoom);
    void zoomIn();
    void zoomOut();

    std::optional<ZVXMapTiles::Coordinate> pin() const { return m_pin; }
    void setPin(const std::optional<ZVXMapTiles::Coordinate> &pin);
    //! The pin drawn at the view's centre whatever the map shows, instead of pin().
    void setCentrePinned(bool pinned);
    //! The user's own position, drawn as a dot; none when unknown.
    std::optional<ZVXMapTiles::Coordinate> userLocation() const { return m_userLocation; }
    void setUserLocation(const std::optional<ZVXMapTiles::Coordinate> &location);
    //! Ground metres the view spans from west to east, at its centre's latitude.
    double eastWestMetres() const;
    //! The tile server's credit, drawn in the bottom-right corner.
    void setAttribution(const QString &attribution);

Q_SIGNALS:
    //! The centre or the zoom changed: by the user, or by a call.
    void regionChanged();

protected:
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void wheelEvent(QWheelEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;

private:
    void zoomAbout(int zoom, QPointF anchor);
    QImage tile(int zoom, qint64 column, qint64 row);
    void fetch(const QString &url);
    void moveBy(QPointF pixels);

    QPointer<ZVXURLSession> m_session;
    QPointer<ZVXMapTileCache> m_cache;
    QString m_urlTemplate;
    QString m_attribution;
    // The centre in world pixels at m_zoom.
    QPointF m_centre;
    int m_zoom = 2;
    // A region asked for before the view had a size.
    std::optional<std::pair<ZVXMapTiles::Coordinate, double>> m_pendingRegion;
    std::optional<ZVXMapTiles::Coordinate> m_pin;
    bool m_centrePinned = false;
    std::optional<ZVXMapTiles::Coordinate> m_userLocation;
    // Tiles held here too: the shared cache may drop them while they are on screen.
    QHash<QString, QImage> m_tiles;
    QHash<QString, std::shared_ptr<ZVXURLSessionTask>> m_requests;
    QSet<QString> m_failed;
    ZVXDragPan m_drag{this};
};
