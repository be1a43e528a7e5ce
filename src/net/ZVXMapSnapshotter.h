#pragma once

#include "ZVXMapTiles.h"
#include "ZVXURLRequest.h"
#include "ZuveroError.h"

#include <QHash>
#include <QImage>
#include <QObject>
#include <QSize>
#include <QString>

#include <chrono>
#include <functional>
#include <memory>

class QPainter;
class ZVXMapTileCache;
struct ZVXURLSessionResult;
class ZVXURLSession;

//! What a map picture shows and how large it is.
struct ZUVERO_EXPORT ZVXMapSnapshotOptions
{
    ZVXMapTiles::Coordinate centre;
    //! Ground metres the picture shows at least, north to south and east to west.
    double northSouthMetres = 1000;
    double eastWestMetres = 1000;
    //! In points: the image has size * devicePixelRatio pixels.
    QSize size = QSize(300, 150);
    qreal devicePixelRatio = 1;
    //! The tile server's credit, drawn small in the bottom-right corner; nothing when empty.
    QString attribution;
    //! The longest wait for the next byte of each tile.
    std::chrono::milliseconds timeout = std::chrono::seconds(30);

    //! The same span both ways.
    void setSpan(double metres) { northSouthMetres = eastWestMetres = metres; }
};

/*!
    Makes the picture of a shared location from slippy-map tiles: the tiles
    around the centre, fetched through a session (or taken from a tile
    cache), decoded off the main thread, and drawn off the main thread with
    the location pin's tip on the centre.

    Tile requests carry nothing but the URL, a User-Agent naming the host
    application and the library, and an Accept field: never a token. A tile
    that fails (a status other than 200, a body that is not an image, a
    transport error or a time-out) fails the whole picture and cancels the
    other requests.

    One snapshotter makes one picture. Main thread only.
*/
class ZUVERO_EXPORT ZVXMapSnapshotter : public QObject
{
    Q_OBJECT

public:
    //! A null image and an error, or an image and a null error.
    using Completion = std::function<void(const QImage &image, const ZuveroError &error)>;

    //! A tile larger than this, either way, or in bytes, is refused.
    static constexpr int MaximumTileSide = 512;
    static constexpr qint64 MaximumTileBytes = 1024 * 1024;
    //! The largest picture, either way, in device pixels.
    static constexpr int MaximumImageSide = 4096;

    /*!
        Tiles come from \a urlTemplate ("https://host/tiles/{z}/{x}/{y}.png")
        through \a session, and go to and come from \a cache; neither is
        owned, and either may be destroyed first (without a cache nothing is
        kept; without a session the picture fails).
    */
    ZVXMapSnapshotter(ZVXURLSession *session, ZVXMapTileCache *cache, const QString &urlTemplate,
                      const ZVXMapSnapshotOptions &options, QObject *parent = nullptr);
    //! Cancels a picture under way.
    ~ZVXMapSnapshotter() override;

    ZVXMapSnapshotOptions options() const;
    QString urlTemplate() const;

    /*!
        Starts the picture. \a completion is called exactly once, on the main
        thread and never from within start(): with the image (of the
        options' size and pixel ratio), or with an error. A template or
        options that cannot be used fail before any request. A second call
        raises ZVXInvalidArgumentException.
    */
    void start(Completion completion);
    /*!
        Stops the requests and calls the completion at once with
        OperationCanceledError (ZuveroURLErrorDomain), unless it has been
        called already.
    */
    void cancel();
    //! Started and not yet completed.
    bool isRunning() const;

    //! The dev server's tiles on \a hostname ("host" or "host:port"), over HTTPS.
    static QString defaultURLTemplate(const QString &hostname);
    //! \a urlTemplate with its placeholders replaced.
    static QString tileURL(const QString &urlTemplate, int zoom, int x, int y);
    //! Why \a urlTemplate cannot be used; a null error when it can.
    static ZuveroError checkURLTemplate(const QString &urlTemplate);
    //! Why \a options cannot make a picture; a null error when they can.
    static ZuveroError checkOptions(const ZVXMapSnapshotOptions &options);

    /*!
        The picture of \a view from decoded \a tiles, keyed by their wrapped
        column and row at the view's zoom: each tile in its place around the
        centre (a missing one leaves the background), the pin's tip on the
        centre, and \a attribution in the bottom-right corner when not empty.
        Any thread.
    */
    static QImage render(const ZVXMapTiles::View &view, const QHash<QPoint, QImage> &tiles,
                         const QString &attribution);

    // What an interactive map shares with the pictures: its tiles fetched, checked and decoded
    // the same way, and the same pin.

    //! The request for one tile: its URL, a User-Agent and an Accept field, never a token.
    static ZVXURLRequest tileRequest(const QString &url, std::chrono::milliseconds timeout);
    //! The tile in \a result, checked as above; a null image and \a error when it is unusable. Any
    //! thread.
    static QImage decodeTile(const ZVXURLSessionResult &result, const QString &url,
                             ZuveroError *error = nullptr);
    //! Draws the location pin with the point of its needle at \a tip.
    static void drawPin(QPainter &painter, QPointF tip, qreal devicePixelRatio);

private:
    struct Private;
    std::unique_ptr<Private> d;
};
