#include "ZVXDevServerProcess.h"
#include "ZVXLogCapture.h"
#include "ZVXManualClock.h"
#include "ZVXMapSnapshotter.h"
#include "ZVXMapTileCache.h"
#include "ZVXMapTiles.h"
#include "ZVXURLSession.h"
#include "ZuveroCertificateAuthorities.h"

#include <QNetworkReply>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using ZVXMapTiles::Coordinate;

namespace {

const Coordinate Paris{48.8566, 2.3522};
// The fill of ZuveroLocationAnnotation.svg, and of the circle inside it.
const QColor PinRed(0xe5, 0x39, 0x35);

struct Outcome
{
    int calls = 0;
    QImage image;
    ZuveroError error;
};

std::shared_ptr<Outcome> start(ZVXMapSnapshotter &snapshotter)
{
    auto outcome = std::make_shared<Outcome>();
    snapshotter.start([outcome](const QImage &image, const ZuveroError &error) {
        ++outcome->calls;
        outcome->image = image;
        outcome->error = error;
    });
    return outcome;
}

ZVXMapSnapshotOptions parisOptions(qreal devicePixelRatio = 1)
{
    ZVXMapSnapshotOptions options;
    options.centre = Paris;
    options.setSpan(2000);
    options.size = QSize(600, 300);
    options.devicePixelRatio = devicePixelRatio;
    return options;
}

// The dev server's tiles are greenish grey in every shade they use; the background is plain grey.
bool isTile(QRgb pixel)
{
    return qAlpha(pixel) == 255 && qGreen(pixel) > qRed(pixel) && qRed(pixel) > qBlue(pixel);
}

bool isPin(QRgb pixel)
{
    return qAbs(qRed(pixel) - PinRed.red()) < 8 && qAbs(qGreen(pixel) - PinRed.green()) < 8
        && qAbs(qBlue(pixel) - PinRed.blue()) < 8;
}

} // namespace

Q_DECLARE_METATYPE(Coordinate)
Q_DECLARE_METATYPE(ZVXMapSnapshotOptions)

class TestMapSnapshotter : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void init();
    void knownTiles_data();
    void knownTiles();
    void zoomForSpan_data();
    void zoomForSpan();
    void viewTiles_data();
    void viewTiles();
    void tilesLandWhereTheyBelong_data();
    void tilesLandWhereTheyBelong();
    void attributionInTheCorner();
    void snapshotFromTheDevServer_data();
    void snapshotFromTheDevServer();
    void aSecondSnapshotNeedsNoRequests();
    void refusedBeforeAnyRequest_data();
    void refusedBeforeAnyRequest();
    void aBadTileFailsTheSnapshot_data();
    void aBadTileFailsTheSnapshot();
    void aSilentTileServerTimesOut();
    void cancelEndsItOnce();

private:
    qint64 requestCount();
    QString tilePath(const ZVXMapSnapshotOptions &options, int index) const;

    ZVXDevServerProcess m_server;
    std::unique_ptr<ZVXDevClient> m_admin;
    QString m_template;
};

void TestMapSnapshotter::initTestCase()
{
    QVERIFY(m_server.start({u"--open"_s, u"--admin"_s}));
    QFile authority(m_server.authorityPath());
    QVERIFY(authority.open(QIODevice::ReadOnly));
    QCOMPARE(ZuveroAddTrustedCertificateAuthorities(authority.readAll()), 1);
    m_admin = std::make_unique<ZVXDevClient>(m_server, QString());
    m_template = ZVXMapSnapshotter::defaultURLTemplate(QUrl(m_server.origin()).authority());
}

void TestMapSnapshotter::cleanupTestCase()
{
    ZuveroRemoveTrustedCertificateAuthorities();
    QVERIFY2(m_server.stop(), "the server ends cleanly");
}

void TestMapSnapshotter::init()
{
    for (const QString &path : {u"/admin/faults"_s, u"/admin/counters"_s})
        QCOMPARE(m_admin->wait(m_admin->manager().deleteResource(m_admin->request(path))).status,
                 200);
}

qint64 TestMapSnapshotter::requestCount()
{
    qint64 total = 0;
    const QVariantMap counters = m_admin->get(u"/admin/counters"_s).json()[u"counters"_s].toMap();
    for (const QVariant &count : counters)
        total += count.toLongLong();
    return total;
}

QString TestMapSnapshotter::tilePath(const ZVXMapSnapshotOptions &options, int index) const
{
    const ZVXMapTiles::View view
        = ZVXMapTiles::view(options.centre, options.northSouthMetres, options.eastWestMetres,
                            options.size, options.devicePixelRatio);
    const QPoint tile = view.tiles().at(index);
    return u"/tiles/%1/%2/%3.png"_s.arg(view.zoom).arg(tile.x()).arg(tile.y());
}

// Expected values from x = floor((lon + 180) / 360 * 2^z), y = floor((1 - ln(tan φ + sec φ) / π)
// / 2 * 2^z), computed apart.
void TestMapSnapshotter::knownTiles_data()
{
    QTest::addColumn<double>("latitude");
    QTest::addColumn<double>("longitude");
    QTest::addColumn<int>("zoom");
    QTest::addColumn<QPoint>("tile");
    QTest::newRow("origin, zoom 0") << 0.0 << 0.0 << 0 << QPoint(0, 0);
    QTest::newRow("origin, zoom 1") << 0.0 << 0.0 << 1 << QPoint(1, 1);
    QTest::newRow("just south-west of the origin") << -0.0001 << -0.0001 << 5 << QPoint(15, 16);
    QTest::newRow("Paris") << 48.8566 << 2.3522 << 10 << QPoint(518, 352);
    QTest::newRow("Sydney") << -33.8688 << 151.2093 << 11 << QPoint(1884, 1228);
    QTest::newRow("New York") << 40.7128 << -74.0060 << 15 << QPoint(9647, 12320);
    QTest::newRow("180 E is 180 W") << 10.0 << 180.0 << 3 << QPoint(0, 3);
    QTest::newRow("longitude past a full turn") << 10.0 << 540.0 << 3 << QPoint(0, 3);
    QTest::newRow("north pole, clamped") << 90.0 << 179.999 << 3 << QPoint(7, 0);
    QTest::newRow("south pole, clamped") << -90.0 << -180.0 << 3 << QPoint(0, 7);
}

void TestMapSnapshotter::knownTiles()
{
    QFETCH(double, latitude);
    QFETCH(double, longitude);
    QFETCH(int, zoom);
    QFETCH(QPoint, tile);
    const Coordinate place{latitude, longitude};
    QCOMPARE(ZVXMapTiles::tile(place, zoom), tile);

    // And back: the world pixel names the same place, within the square world.
    const QPointF pixel = ZVXMapTiles::worldPixel(place, zoom);
    const Coordinate back = ZVXMapTiles::coordinate(pixel, zoom);
    QVERIFY(qAbs(back.latitude - ZVXMapTiles::clampLatitude(latitude)) < 1e-9);
    QVERIFY(qAbs(ZVXMapTiles::wrapLongitude(back.longitude - longitude)) < 1e-9);
    QVERIFY((ZVXMapTiles::worldPixel(back, zoom) - pixel).manhattanLength() < 1e-6);
}

void TestMapSnapshotter::zoomForSpan_data()
{
    QTest::addColumn<double>("latitude");
    QTest::addColumn<double>("northSouth");
    QTest::addColumn<double>("eastWest");
    QTest::addColumn<QSize>("size");
    QTest::addColumn<int>("zoom");
    // 13.3 m a pixel needed: 25.1 at zoom 12, 12.6 at zoom 13.
    QTest::newRow("2 km at 48.85 N") << 48.85 << 2000.0 << 2000.0 << QSize(300, 150) << 12;
    QTest::newRow("1 km at 48.85 N") << 48.85 << 1000.0 << 1000.0 << QSize(300, 150) << 13;
    QTest::newRow("2 km at the equator") << 0.0 << 2000.0 << 2000.0 << QSize(300, 150) << 13;
    QTest::newRow("wide and flat") << 0.0 << 100.0 << 10000.0 << QSize(300, 150) << 12;
    QTest::newRow("near the pole, clamped") << 89.0 << 2000.0 << 2000.0 << QSize(300, 150) << 9;
    QTest::newRow("a metre: the deepest zoom") << 0.0 << 1.0 << 1.0 << QSize(600, 300) << 19;
    QTest::newRow("the whole earth: zoom 0") << 0.0 << 4e7 << 4e7 << QSize(256, 256) << 0;
}

void TestMapSnapshotter::zoomForSpan()
{
    QFETCH(double, latitude);
    QFETCH(double, northSouth);
    QFETCH(double, eastWest);
    QFETCH(QSize, size);
    QFETCH(int, zoom);
    QCOMPARE(ZVXMapTiles::zoomForSpan(latitude, northSouth, eastWest, size), zoom);
}

void TestMapSnapshotter::viewTiles_data()
{
    QTest::addColumn<Coordinate>("centre");
    QTest::addColumn<double>("span");
    QTest::addColumn<qreal>("ratio");
    QTest::addColumn<int>("zoom");
    QTest::addColumn<qreal>("scale");
    QTest::addColumn<int>("count");
    QTest::addColumn<QList<QPoint>>("includes");
    // All of them 600 x 300 points.
    QTest::newRow("across the antimeridian")
        << Coordinate{0, 179.999} << 200000.0 << 1.0 << 7 << 1.0 << 8
        << QList<QPoint>{{126, 63}, {127, 63}, {0, 63}, {1, 64}};
    QTest::newRow("north pole: row 0 only") << Coordinate{89, 0} << 2000.0 << 1.0 << 10 << 1.0 << 4
                                            << QList<QPoint>{{510, 0}, {513, 0}};
    QTest::newRow("south pole, antimeridian") << Coordinate{-89, -179.999} << 2000.0 << 1.0 << 10
                                              << 1.0 << 4 << QList<QPoint>{{1023, 1023}, {0, 1023}};
    QTest::newRow("the world once")
        << Coordinate{0, 0} << 4e7 << 1.0 << 0 << 1.0 << 1 << QList<QPoint>{{0, 0}};
    QTest::newRow("Paris") << Paris << 2000.0 << 1.0 << 13 << 1.0 << 6
                           << QList<QPoint>{{4148, 2817}, {4150, 2818}};
    QTest::newRow("Paris, twice the pixels: one zoom deeper")
        << Paris << 2000.0 << 2.0 << 14 << 1.0 << 18 << QList<QPoint>{{8296, 5635}, {8301, 5637}};
    QTest::newRow("Paris, 1.5: deeper tiles drawn smaller")
        << Paris << 2000.0 << 1.5 << 14 << 0.75 << 18 << QList<QPoint>{{8296, 5635}, {8301, 5637}};
}

void TestMapSnapshotter::viewTiles()
{
    QFETCH(Coordinate, centre);
    QFETCH(double, span);
    QFETCH(qreal, ratio);
    QFETCH(int, zoom);
    QFETCH(qreal, scale);
    QFETCH(int, count);
    QFETCH(QList<QPoint>, includes);
    const ZVXMapTiles::View view = ZVXMapTiles::view(centre, span, span, QSize(600, 300), ratio);
    QCOMPARE(view.zoom, zoom);
    QCOMPARE(view.scale, scale);
    QCOMPARE(view.pixelSize, QSize(600, 300) * ratio);
    const QList<QPoint> tiles = view.tiles();
    QCOMPARE(tiles.size(), count);
    for (const QPoint tile : includes)
        QVERIFY2(tiles.contains(tile), qPrintable(u"%1/%2"_s.arg(tile.x()).arg(tile.y())));
}

void TestMapSnapshotter::tilesLandWhereTheyBelong_data()
{
    QTest::addColumn<Coordinate>("centre");
    QTest::addColumn<qreal>("ratio");
    QTest::newRow("Paris") << Paris << 1.0;
    QTest::newRow("Paris, 2x") << Paris << 2.0;
    QTest::newRow("Paris, 1.5x") << Paris << 1.5;
    QTest::newRow("across the antimeridian") << Coordinate{0, 179.999} << 1.0;
}

// Each tile a colour of its own: every pixel must show the tile its world position falls in.
void TestMapSnapshotter::tilesLandWhereTheyBelong()
{
    QFETCH(Coordinate, centre);
    QFETCH(qreal, ratio);
    const ZVXMapTiles::View view = ZVXMapTiles::view(centre, 2000, 2000, QSize(600, 300), ratio);
    const auto colour = [](QPoint tile) {
        return QColor::fromHsv((tile.x() * 37 + tile.y() * 91) % 360, 220, 220).rgb();
    };
    QHash<QPoint, QImage> tiles;
    for (const QPoint tile : view.tiles()) {
        QImage image(256, 256, QImage::Format_RGB32);
        image.fill(colour(tile));
        tiles.insert(tile, image);
    }
    const QImage image = ZVXMapSnapshotter::render(view, tiles, {});
    QCOMPARE(image.size(), view.pixelSize);
    QCOMPARE(image.devicePixelRatio(), ratio);
    const QSize size = image.size();
    for (const QPoint pixel :
         {QPoint(0, 0), QPoint(size.width() - 1, 0), QPoint(0, size.height() - 1),
          QPoint(size.width() - 1, size.height() - 1), QPoint(7, size.height() / 2)}) {
        const QPointF world = view.centre
            + (QPointF(pixel) + QPointF(0.5, 0.5) - QPointF(size.width(), size.height()) / 2)
                / view.scale;
        const QPoint tile(ZVXMapTiles::wrapColumn(qint64(std::floor(world.x() / 256)), view.zoom),
                          int(std::floor(world.y() / 256)));
        QCOMPARE(QColor(image.pixel(pixel)), QColor(colour(tile)));
    }
}

void TestMapSnapshotter::attributionInTheCorner()
{
    const ZVXMapTiles::View view = ZVXMapTiles::view(Paris, 2000, 2000, QSize(300, 150), 2);
    const QImage plain = ZVXMapSnapshotter::render(view, {}, {});
    const QImage credited = ZVXMapSnapshotter::render(view, {}, u"© OpenStreetMap contributors"_s);
    const QRect corner(plain.width() - 40, plain.height() - 16, 40, 16);
    QVERIFY(plain.copy(corner) != credited.copy(corner));
    QCOMPARE(credited.copy(0, 0, 200, 200), plain.copy(0, 0, 200, 200));
}

void TestMapSnapshotter::snapshotFromTheDevServer_data()
{
    QTest::addColumn<qreal>("ratio");
    QTest::newRow("1x") << 1.0;
    QTest::newRow("2x") << 2.0;
}

void TestMapSnapshotter::snapshotFromTheDevServer()
{
    QFETCH(qreal, ratio);
    ZVXURLSession session(ZVXURLSessionConfiguration::fileConfiguration());
    ZVXMapTileCache cache;
    ZVXMapSnapshotter snapshotter(&session, &cache, m_template, parisOptions(ratio));
    const auto outcome = start(snapshotter);
    QCOMPARE(outcome->calls, 0);
    QTRY_COMPARE_WITH_TIMEOUT(outcome->calls, 1, 20000);
    QVERIFY2(!outcome->error, qPrintable(outcome->error.localizedDescription()));

    const QImage &image = outcome->image;
    QCOMPARE(image.size(), QSize(600, 300) * ratio);
    QCOMPARE(image.devicePixelRatio(), ratio);
    const int x = qRound(300 * ratio);
    const int tip = qRound(150 * ratio);
    // The pin's body just above the centre, its white ring higher up, the map just below.
    QVERIFY(isPin(image.pixel(x, tip - qRound(3 * ratio))));
    QVERIFY(isPin(image.pixel(x, tip - qRound(12 * ratio))));
    QCOMPARE(QColor(image.pixel(x, tip - qRound(23 * ratio))), QColor(Qt::white));
    QVERIFY(isTile(image.pixel(x, tip + qRound(2 * ratio))));
    for (const QPoint corner :
         {QPoint(1, 1), QPoint(image.width() - 2, 1), QPoint(1, image.height() - 2),
          QPoint(image.width() - 2, image.height() - 2)})
        QVERIFY(isTile(image.pixel(corner)));
    QCOMPARE(requestCount(), qint64(cache.count()));
    QVERIFY(!snapshotter.isRunning());
}

void TestMapSnapshotter::aSecondSnapshotNeedsNoRequests()
{
    // Without the session's own cache of bytes, only the tile cache can spare the requests.
    ZVXURLSessionConfiguration configuration = ZVXURLSessionConfiguration::fileConfiguration();
    configuration.urlCacheMemoryCapacity = 0;
    ZVXURLSession session(configuration);
    ZVXMapTileCache cache;
    QList<QImage> images;
    QList<qint64> requests;
    for (ZVXMapTileCache *used : {&cache, &cache, static_cast<ZVXMapTileCache *>(nullptr)}) {
        ZVXMapSnapshotter snapshotter(&session, used, m_template, parisOptions());
        const auto outcome = start(snapshotter);
        QTRY_COMPARE_WITH_TIMEOUT(outcome->calls, 1, 20000);
        QVERIFY(!outcome->error);
        images << outcome->image;
        requests << requestCount();
    }
    QCOMPARE(requests, (QList<qint64>{6, 6, 12}));
    QCOMPARE(cache.count(), 6);
    QCOMPARE(images[1], images[0]);
    QCOMPARE(images[2], images[0]);
}

void TestMapSnapshotter::refusedBeforeAnyRequest_data()
{
    const QString origin = m_server.origin();
    QTest::addColumn<QString>("urlTemplate");
    QTest::addColumn<ZVXMapSnapshotOptions>("options");
    QTest::addColumn<qint64>("code");
    const ZVXMapSnapshotOptions paris = parisOptions();
    const qint64 badTemplate = ZuveroMapErrorInvalidURLTemplate;
    QTest::newRow("no {y}") << origin + u"/tiles/{z}/{x}.png"_s << paris << badTemplate;
    QTest::newRow("{s} as well") << origin + u"/tiles/{s}/{z}/{x}/{y}.png"_s << paris
                                 << badTemplate;
    QTest::newRow("not http") << u"ftp://127.0.0.1/{z}/{x}/{y}.png"_s << paris << badTemplate;
    QTest::newRow("no host") << u"https:///{z}/{x}/{y}.png"_s << paris << badTemplate;

    const qint64 badOptions = ZuveroMapErrorInvalidOptions;
    ZVXMapSnapshotOptions options = paris;
    options.setSpan(0);
    QTest::newRow("no span") << m_template << options << badOptions;
    options = paris;
    options.centre.latitude = qQNaN();
    QTest::newRow("no latitude") << m_template << options << badOptions;
    options = paris;
    options.size = QSize(600, 0);
    QTest::newRow("no height") << m_template << options << badOptions;
    options = paris;
    options.devicePixelRatio = 8;
    QTest::newRow("too many pixels") << m_template << options << badOptions;
}

void TestMapSnapshotter::refusedBeforeAnyRequest()
{
    QFETCH(QString, urlTemplate);
    QFETCH(ZVXMapSnapshotOptions, options);
    QFETCH(qint64, code);
    ZVXURLSession session(ZVXURLSessionConfiguration::fileConfiguration());
    ZVXLogCapture log;
    ZVXMapSnapshotter snapshotter(&session, nullptr, urlTemplate, options);
    const auto outcome = start(snapshotter);
    QCOMPARE(outcome->calls, 0);
    QTRY_COMPARE(outcome->calls, 1);
    QCOMPARE(outcome->error.domain(), ZuveroMapErrorDomain);
    QCOMPARE(outcome->error.code(), code);
    QVERIFY(outcome->image.isNull());
    QCOMPARE(
        log.lines(),
        QStringList(u"ZVX ERROR: ZVXMapSnapshotter: "_s + outcome->error.localizedDescription()));
    QCOMPARE(requestCount(), 0);
}

void TestMapSnapshotter::aBadTileFailsTheSnapshot_data()
{
    QTest::addColumn<QString>("urlTemplate");
    QTest::addColumn<QVariantMap>("fault");
    QTest::addColumn<QString>("domain");
    QTest::addColumn<qint64>("code");
    QTest::addColumn<QString>("logged");
    const QString path = tilePath(parisOptions(), 2);
    QTest::newRow("404") << m_server.origin() + u"/maps/{z}/{x}/{y}.png"_s << QVariantMap()
                         << QString(ZuveroMapErrorDomain) << qint64(ZuveroMapErrorTileRefused)
                         << u"failed: HTTP status 404"_s;
    QTest::newRow("a page, not an image")
        << m_template << QVariantMap{{u"path"_s, path}, {u"kind"_s, u"nonJSON"_s}}
        << QString(ZuveroMapErrorDomain) << qint64(ZuveroMapErrorTileNotAnImage)
        << u"failed: not a PNG, JPEG or WebP image: <3c68746d 6c3e3c62 6f64793e 3c68313e>"_s;
    QTest::newRow("connection dropped")
        << m_template << QVariantMap{{u"path"_s, path}, {u"kind"_s, u"drop"_s}, {u"count"_s, 2}}
        << QString(ZuveroURLErrorDomain) << qint64(QNetworkReply::RemoteHostClosedError)
        << u"failed: "_s;
}

void TestMapSnapshotter::aBadTileFailsTheSnapshot()
{
    QFETCH(QString, urlTemplate);
    QFETCH(QVariantMap, fault);
    QFETCH(QString, domain);
    QFETCH(qint64, code);
    QFETCH(QString, logged);
    if (!fault.isEmpty())
        QCOMPARE(m_admin->postJSON(u"/admin/faults"_s, fault).status, 200);
    ZVXURLSession session(ZVXURLSessionConfiguration::fileConfiguration());
    ZVXMapTileCache cache;
    ZVXLogCapture log;
    ZVXMapSnapshotter snapshotter(&session, &cache, urlTemplate, parisOptions());
    const auto outcome = start(snapshotter);
    QTRY_COMPARE_WITH_TIMEOUT(outcome->calls, 1, 20000);
    QVERIFY(outcome->image.isNull());
    QCOMPARE(outcome->error.domain(), domain);
    QCOMPARE(outcome->error.code(), code);
    const QStringList lines = log.lines().filter(u"ZVX ERROR: ZVXMapSnapshotter: tile "_s);
    QCOMPARE(lines.size(), 1);
    QVERIFY2(lines[0].contains(logged), qPrintable(lines[0]));
    QVERIFY(cache.count() < 6);
}

void TestMapSnapshotter::aSilentTileServerTimesOut()
{
    ZVXManualClock clock;
    const ZVXMapSnapshotOptions options = parisOptions();
    QCOMPARE(
        m_admin
            ->postJSON(
                u"/admin/faults"_s,
                {{u"path"_s, tilePath(options, 0)}, {u"kind"_s, u"delay"_s}, {u"delayMs"_s, 3000}})
            .status,
        200);
    ZVXURLSession session(ZVXURLSessionConfiguration::fileConfiguration());
    ZVXMapTileCache cache;
    ZVXLogCapture log;
    ZVXMapSnapshotter snapshotter(&session, &cache, m_template, options);
    const auto outcome = start(snapshotter);
    QTRY_COMPARE_WITH_TIMEOUT(cache.count(), 5, 20000);
    QCOMPARE(outcome->calls, 0);
    clock.advance(options.timeout);
    QTRY_COMPARE(outcome->calls, 1);
    QCOMPARE(outcome->error.domain(), ZuveroURLErrorDomain);
    QCOMPARE(outcome->error.code(), qint64(QNetworkReply::TimeoutError));
    QCOMPARE(
        log.lines(),
        QStringList(u"ZVX ERROR: ZVXMapSnapshotter: tile %1%2 failed: The request timed out."_s.arg(
            m_server.origin(), tilePath(options, 0))));
}

void TestMapSnapshotter::cancelEndsItOnce()
{
    ZVXURLSession session(ZVXURLSessionConfiguration::fileConfiguration());
    ZVXMapTileCache cache;
    auto snapshotter
        = std::make_unique<ZVXMapSnapshotter>(&session, &cache, m_template, parisOptions());
    const auto cancelled = start(*snapshotter);
    snapshotter->cancel();
    QCOMPARE(cancelled->calls, 1);
    QCOMPARE(cancelled->error.code(), qint64(QNetworkReply::OperationCanceledError));
    QVERIFY(!snapshotter->isRunning());

    // Destroyed under way: the completion still comes, once.
    snapshotter = std::make_unique<ZVXMapSnapshotter>(&session, &cache, m_template, parisOptions());
    const auto destroyed = start(*snapshotter);
    ZVXMapSnapshotter last(&session, &cache, m_template, parisOptions());
    const auto finished = start(last);
    snapshotter.reset();
    QCOMPARE(destroyed->calls, 1);
    QTRY_COMPARE_WITH_TIMEOUT(finished->calls, 1, 20000);
    QVERIFY(!finished->error);
    // The cancelled requests' answers, in line before the last ones, changed nothing.
    QCOMPARE(cancelled->calls, 1);
    QCOMPARE(destroyed->calls, 1);
}

QTEST_MAIN(TestMapSnapshotter)
#include "tst_mapsnapshotter.moc"
