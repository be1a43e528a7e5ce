// Previews and documents as the chat loads them: from a TLS server on loopback, on a clock the
// test moves, through the connection's public calls and the notifications a screen waits for.

#include "ZVXLogCapture.h"
#include "ZVXManualClock.h"
#include "ZVXMapTiles.h"
#include "ZVXTemporaryUserDefaults.h"
#include "ZVXTestCertificates.h"
#include "ZVXTestServer.h"

#include <Zuvero/Zuvero.h>
#include <Zuvero/ZuveroCertificateAuthorities.h>
#include <Zuvero/ZuveroNotificationCenter.h>

#include <QBuffer>
#include <QGuiApplication>
#include <QImageWriter>
#include <QTest>
#include <QtEndian>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

QByteArray encoded(const QImage &image, const char *format = "png")
{
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    QImageWriter(&buffer, format).write(image);
    return bytes;
}

QImage filled(int width, int height, QColor colour)
{
    QImage image(width, height, QImage::Format_RGB32);
    image.fill(colour);
    return image;
}

// A PNG whose header declares \a width x \a height: a few bytes that would cost gigabytes.
QByteArray declaredPNG(quint32 width, quint32 height)
{
    QByteArray png = encoded(filled(1, 1, Qt::red));
    qToBigEndian(width, png.data() + 16);
    qToBigEndian(height, png.data() + 20);
    // The header's checksum must hold, or the decoder stops before reading the size.
    const quint32 crc = [&] {
        quint32 c = 0xffffffffu;
        for (qsizetype i = 12; i < 29; ++i) {
            c ^= quint8(png.at(i));
            for (int k = 0; k < 8; ++k)
                c = (c >> 1) ^ (0xedb88320u & (0u - (c & 1u)));
        }
        return ~c;
    }();
    qToBigEndian(crc, png.data() + 29);
    return png;
}

ZuveroChatAttachmentPtr remoteAttachment(const QString &uuid, const QUrl &preview,
                                         const QUrl &data = {})
{
    auto attachment = ZuveroChatAttachment::init();
    attachment->setUuid(uuid);
    attachment->setContentType(u"image/png"_s);
    attachment->setPreviewURL(preview);
    attachment->setDataURL(data);
    return attachment;
}

} // namespace

class TestPreviews : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase() { ZuveroRemoveTrustedCertificateAuthorities(); }
    void init();
    void cleanup();
    void oneDownloadThenCached();
    void failureBacksOffTenSeconds();
    void badBytesFailWithTheirLogLine_data();
    void badBytesFailWithTheirLogLine();
    void largePreviewIsDecodedSmall();
    void localPictureIsCachedAtOnce();
    void documents_data();
    void documents();
    void locationPreviews();

private:
    //! Requests whose path is \a path.
    int requestsTo(const QByteArray &path) const;
    //! Lets the event loop run until \a done, for network events; false if they never come.
    static bool waitFor(const std::function<bool()> &done) { return QTest::qWaitFor(done, 20000); }

    ZVXTestCertificates m_certificates;
    std::unique_ptr<ZVXTestServer> m_server;
    QHash<QByteArray, ZVXTestReply> m_replies;
    //! The answer to every map tile request.
    ZVXTestReply m_tile;
    std::unique_ptr<ZVXTemporaryUserDefaults> m_defaults;
    std::unique_ptr<ZVXManualClock> m_clock;
    std::unique_ptr<Zuvero> m_zuvero;
    ZuveroConnection *m_connection = nullptr;
    QList<ZuveroNotification> m_loaded;
    ZuveroNotificationObserver m_observer;
};

void TestPreviews::initTestCase()
{
    QVERIFY2(m_certificates.isValid(), qPrintable(m_certificates.errorString()));
    QCOMPARE(ZuveroAddTrustedCertificateAuthorities(m_certificates.trusted.authorityPem), 1);
}

void TestPreviews::init()
{
    m_server = std::make_unique<ZVXTestServer>(m_certificates.trusted.certificate,
                                               m_certificates.trusted.key);
    QVERIFY(m_server->isListening());
    m_replies.clear();
    // Setting the user registers it; the rest of the traffic is files.
    m_replies.insert("/api/1.0/register", {200, {{"Content-Type", "application/json"}}, "{}"});
    m_server->setHandler([this](const ZVXTestRequest &request) {
        const QByteArray path = request.target.split('?').first();
        if (path.startsWith("/tiles/"))
            return m_tile;
        return m_replies.value(path, ZVXTestReply{404, {}, {}});
    });
    m_defaults = std::make_unique<ZVXTemporaryUserDefaults>();
    m_clock = std::make_unique<ZVXManualClock>(QDateTime::currentDateTimeUtc());
    m_zuvero.reset(Zuvero::initWithApiSecret(u"00112233445566778899aabbccddeeff"_s,
                                             m_server->url(u""_s).authority(), {}));
    m_zuvero->setUserIdentifier(u"ana"_s);
    m_connection = m_zuvero->connection();
    m_loaded.clear();
    m_observer = ZuveroNotificationCenter::defaultCenter()->addObserver(
        ZuveroAttachmentPreviewDidLoadNotification, nullptr,
        [this](const ZuveroNotification &n) { m_loaded << n; });
}

void TestPreviews::cleanup()
{
    m_observer.remove();
    m_zuvero.reset();
    m_clock.reset();
    m_defaults.reset();
    m_server.reset();
}

int TestPreviews::requestsTo(const QByteArray &path) const
{
    int count = 0;
    for (const ZVXTestRequest &request : m_server->requests())
        count += request.target.split('?').first() == path;
    return count;
}

void TestPreviews::oneDownloadThenCached()
{
    m_replies.insert("/p/1",
                     {200, {{"Content-Type", "image/png"}}, encoded(filled(40, 30, Qt::blue))});
    const auto attachment = remoteAttachment(u"a-1"_s, m_server->url(u"/p/1"_s));
    // Another attachment's notification must not be taken for this one's.
    int forThisOne = 0;
    ZuveroNotificationObserver own = ZuveroNotificationCenter::defaultCenter()->addObserver(
        ZuveroAttachmentPreviewDidLoadNotification, attachment,
        [&](const ZuveroNotification &) { ++forThisOne; });

    QVERIFY(!m_connection->loadAttachmentPreview(attachment));
    QVERIFY(!m_connection->loadAttachmentPreview(attachment));
    QVERIFY(waitFor([&] { return !m_loaded.isEmpty(); }));
    QCOMPARE(requestsTo("/p/1"), 1);
    QCOMPARE(forThisOne, 1);

    const ZuveroNotification &n = m_loaded.first();
    QCOMPARE(n.object().value<ZuveroChatAttachment>(), attachment);
    const auto record = n.userInfo().value(ZuveroPreviewImageKey).value<ZuveroImagePtr>();
    QVERIFY(record);
    QCOMPARE(record->image().size(), QSize(40, 30));
    QCOMPARE(record->type(), ZuveroImageType::PNG);
    QCOMPARE(m_connection->cachedAttachmentPreview(attachment), record);
    QCOMPARE(m_connection->loadAttachmentPreview(attachment), record);

    // The token rides in the query of file requests, never in a header a redirect could carry.
    const ZVXTestRequest request = m_server->requests().first();
    QVERIFY(request.target.contains("jwt=" + m_zuvero->jwt()->toUtf8()));
    QVERIFY(!request.headers.contains("x-zvl-jwt"));

    // A second attachment with the same preview URL reads the downloaded bytes.
    const auto twin = remoteAttachment(u"a-2"_s, m_server->url(u"/p/1"_s));
    const ZuveroImagePtr fromURLCache = m_connection->cachedAttachmentPreview(twin);
    QVERIFY(fromURLCache);
    QCOMPARE(fromURLCache->image().size(), QSize(40, 30));
    QCOMPARE(m_connection->cachedPreviewImageIfNeeded(m_server->url(u"/p/1"_s))->raw(),
             record->raw());
    QCOMPARE(requestsTo("/p/1"), 1);
    QCOMPARE(m_loaded.size(), 1);

    // Only to the server it was made for: the same machine under another name is a stranger.
    QUrl elsewhere = m_server->url(u"/p/1"_s);
    elsewhere.setHost(u"localhost"_s);
    QVERIFY(!m_connection->loadAttachmentPreview(remoteAttachment(u"a-4"_s, elsewhere)));
    QVERIFY(waitFor([&] { return m_loaded.size() == 2; }));
    QCOMPARE(requestsTo("/p/1"), 2);
    QVERIFY(!m_server->requests().last().target.contains("jwt"));
}

void TestPreviews::failureBacksOffTenSeconds()
{
    const auto attachment = remoteAttachment(u"a-3"_s, m_server->url(u"/p/missing"_s));
    ZVXLogCapture log;
    QVERIFY(!m_connection->loadAttachmentPreview(attachment));
    QVERIFY(waitFor([&] { return log.lines().join(u'\n').contains(u"failed to load image"_s); }));
    QCoreApplication::processEvents(); // the failure is recorded on the main thread
    QCOMPARE(requestsTo("/p/missing"), 1);

    m_clock->advance(5s);
    QVERIFY(!m_connection->loadAttachmentPreview(attachment));
    m_clock->advance(4999ms);
    QVERIFY(!m_connection->loadAttachmentPreview(attachment));
    QTest::qWait(50); // a request would have reached the server by now
    QCOMPARE(requestsTo("/p/missing"), 1);

    // Ten seconds after the failure a load goes ahead, and this time it works.
    m_replies.insert("/p/missing", {200, {}, encoded(filled(8, 8, Qt::green))});
    m_clock->advance(1ms);
    QVERIFY(!m_connection->loadAttachmentPreview(attachment));
    QVERIFY(waitFor([&] { return !m_loaded.isEmpty(); }));
    QCOMPARE(requestsTo("/p/missing"), 2);
}

void TestPreviews::badBytesFailWithTheirLogLine_data()
{
    QTest::addColumn<ZVXTestReply>("reply");
    QTest::addColumn<QString>("line");
    const QString failed = u"ZVX: ZuveroConnection: failed to load image: "_s;
    QTest::newRow("not found") << ZVXTestReply{404, {}, "<html>gone</html>"} << failed;
    QTest::newRow("not a picture") << ZVXTestReply{200, {}, "%PDF-1.4 not a picture"} << failed;
    QTest::newRow("truncated picture")
        << ZVXTestReply{200, {}, encoded(filled(64, 64, Qt::red)).left(40)} << failed;
    QTest::newRow("declares 100000 x 100000")
        << ZVXTestReply{200, {}, declaredPNG(100000, 100000)}
        << u"ZVX: ZuveroImage: not decoding a picture of 100000 x 100000 pixels."_s;
}

void TestPreviews::badBytesFailWithTheirLogLine()
{
    QFETCH(ZVXTestReply, reply);
    QFETCH(QString, line);
    m_replies.insert("/p/bad", reply);
    const auto attachment = remoteAttachment(u"a-4"_s, m_server->url(u"/p/bad"_s));
    ZVXLogCapture log;
    QVERIFY(!m_connection->loadAttachmentPreview(attachment));
    QVERIFY(waitFor([&] {
        return std::any_of(log.lines().cbegin(), log.lines().cend(),
                           [](const QString &l) { return l.contains(u"failed to load image"_s); });
    }));
    const QStringList lines = log.lines();
    QVERIFY2(std::any_of(lines.cbegin(), lines.cend(),
                         [&](const QString &l) { return l.startsWith(line); }),
             qPrintable(lines.join(u'\n')));
    // The line names the request without its token.
    QVERIFY(!lines.join(u'\n').contains(*m_zuvero->jwt()));
    QCoreApplication::processEvents();
    QVERIFY(m_loaded.isEmpty());
    QVERIFY(!m_connection->cachedAttachmentPreview(attachment) || reply.status != 200);
}

void TestPreviews::largePreviewIsDecodedSmall()
{
    m_replies.insert("/p/big", {200, {}, encoded(filled(4000, 2000, Qt::darkCyan), "jpeg")});
    const auto attachment = remoteAttachment(u"a-5"_s, m_server->url(u"/p/big"_s));
    QVERIFY(!m_connection->loadAttachmentPreview(attachment));
    QVERIFY(waitFor([&] { return !m_loaded.isEmpty(); }));
    const ZuveroImagePtr record = m_connection->cachedAttachmentPreview(attachment);
    QVERIFY(record);
    QCOMPARE(record->image().size(), QSize(1600, 800));
}

void TestPreviews::localPictureIsCachedAtOnce()
{
    const ZuveroImagePtr picked = ZuveroImage::initWithRawData(encoded(filled(30, 20, Qt::red)));
    const auto attachment = ZuveroChatAttachment::initWithImage(picked);
    QVERIFY(attachment);
    const ZuveroImagePtr record = m_connection->loadAttachmentPreview(attachment);
    QVERIFY(record);
    QCOMPARE(record->image().size(), QSize(30, 20));
    QCOMPARE(record->raw(), picked->raw());
    QCOMPARE(m_connection->cachedAttachmentPreview(attachment), record);
    QCOMPARE(m_server->requestCount(), 0);
}

void TestPreviews::documents_data()
{
    QTest::addColumn<QString>("contentType");
    QTest::addColumn<QString>("path");
    QTest::addColumn<ZVXTestReply>("reply");
    QTest::addColumn<QSize>("size");
    QTest::addColumn<QString>("error");

    const ZVXTestReply picture{200, {}, encoded(filled(3000, 10, Qt::gray))};
    QTest::newRow("picture, whole")
        << u"image/png"_s << u"/d/1"_s << picture << QSize(3000, 10) << QString();
    QTest::newRow("not a picture")
        << u"image/png"_s << u"/d/2"_s << ZVXTestReply{200, {}, "garbage"} << QSize()
        << u"Cannot decode an image from downloaded data for the "
           "attachment."_s;
    QTest::newRow("no address") << u"image/png"_s << QString() << ZVXTestReply{} << QSize()
                                << u"Missing dataURL for attachment."_s;
    QTest::newRow("not a document") << u"application/x-shockwave-flash"_s << u"/d/3"_s << picture
                                    << QSize() << u"Attachment is not an valid document."_s;
    QTest::newRow("connection dropped")
        << u"image/png"_s << u"/d/4"_s << ZVXTestReply{200, {}, {}, 0ms, false, true} << QSize()
        << u"*"_s;
}

void TestPreviews::documents()
{
    QFETCH(QString, contentType);
    QFETCH(QString, path);
    QFETCH(ZVXTestReply, reply);
    QFETCH(QSize, size);
    QFETCH(QString, error);
    if (!path.isEmpty())
        m_replies.insert(path.toUtf8(), reply);
    auto attachment = remoteAttachment(u"d"_s, {}, path.isEmpty() ? QUrl() : m_server->url(path));
    attachment->setContentType(contentType);

    int calls = 0;
    ZuveroImagePtr document;
    ZuveroError failure;
    m_connection->loadAttachmentDocument(attachment,
                                         [&](const ZuveroImagePtr &d, const ZuveroError &e) {
                                             ++calls;
                                             document = d;
                                             failure = e;
                                         });
    QVERIFY(waitFor([&] { return calls > 0; }));
    QCoreApplication::processEvents();
    QCOMPARE(calls, 1);
    if (size.isValid()) {
        QVERIFY(failure.isNull());
        QCOMPARE(document->image().size(), size);
        return;
    }
    QVERIFY(!document);
    QVERIFY(!failure.isNull());
    if (error != u"*"_s) {
        QCOMPARE(failure.domain(), QString(ZuveroErrorDomain));
        QCOMPARE(failure.code(), ZuveroErrorAttachmentCannotBeOpened);
        QCOMPARE(failure.localizedDescription(), error);
    }
}

void TestPreviews::locationPreviews()
{
    // Tiles come from the chat server unless the configuration names a tile server.
    QCOMPARE(m_zuvero->mapTileURLTemplate(),
             u"https://%1/tiles/{z}/{x}/{y}.png"_s.arg(m_server->url(u""_s).authority()));
    const std::unique_ptr<Zuvero> configured(Zuvero::initWithConfigurationDictionary(
        QVariantMap{{u"apiKey"_s, u"k"_s},
                    {u"mapTileURLTemplate"_s, u"https://tiles.example.org/{z}/{x}/{y}.png"_s},
                    {u"mapTileAttribution"_s, u"\u00a9 Example"_s}}));
    QCOMPARE(configured->mapTileURLTemplate(), u"https://tiles.example.org/{z}/{x}/{y}.png"_s);
    QCOMPARE(configured->mapTileAttribution(), u"\u00a9 Example"_s);

    m_tile = {200, {{"Content-Type", "image/png"}}, encoded(filled(256, 256, Qt::darkGreen))};
    QList<ZuveroNotification> drawn;
    ZuveroNotificationObserver observer = ZuveroNotificationCenter::defaultCenter()->addObserver(
        ZuveroLocationPreviewDidLoadNotification, nullptr,
        [&](const ZuveroNotification &n) { drawn << n; });
    const auto located = [](const QString &uuid, QVariantMap location) {
        auto message = ZuveroChatMessage::init();
        message->setUuid(uuid);
        message->setLocationDictionary(location);
        return message;
    };
    const QSize size(300, 150);
    const qreal ratio = qApp->devicePixelRatio();
    const QVariantMap paris{{u"lat"_s, 48.8566}, {u"lng"_s, 2.3522}};
    const int tileRequests = [this] {
        int n = 0;
        for (const ZVXTestRequest &request : m_server->requests())
            n += request.target.startsWith("/tiles/");
        return n;
    }();
    QCOMPARE(tileRequests, 0);

    // Without "d" the map spans 2000 m; one drawing at a time.
    const auto message = located(u"m-1"_s, paris);
    QVERIFY(m_connection->loadLocationPreview(message, size).isNull());
    QVERIFY(m_connection->loadLocationPreview(message, size).isNull());
    QVERIFY(waitFor([&] { return !drawn.isEmpty(); }));
    QCoreApplication::processEvents();
    QCOMPARE(drawn.size(), 1);
    QCOMPARE(drawn.first().object().value<ZuveroChatMessage>(), message);
    const QImage picture = drawn.first().userInfo().value(ZuveroPreviewImageKey).value<QImage>();
    QCOMPARE(picture.size(), size * ratio);
    QCOMPARE(m_connection->cachedLocationPreview(message), picture);
    QCOMPARE(m_connection->loadLocationPreview(message, size), picture);

    const int zoom = ZVXMapTiles::view({48.8566, 2.3522}, 2000, 2000, size, ratio).zoom;
    QList<ZVXTestRequest> tiles;
    for (const ZVXTestRequest &request : m_server->requests()) {
        if (request.target.startsWith("/tiles/"))
            tiles << request;
    }
    QVERIFY(!tiles.isEmpty());
    for (const ZVXTestRequest &request : std::as_const(tiles)) {
        QVERIFY2(request.target.startsWith("/tiles/" + QByteArray::number(zoom) + '/'),
                 request.target.constData());
        // Tile servers are strangers: they never see the token.
        QVERIFY(!request.target.contains("jwt"));
        QVERIFY(!request.headers.contains("x-zvl-jwt"));
    }

    // Another message at the same place is drawn from the tiles already decoded.
    const qsizetype before = m_server->requestCount();
    QVERIFY(m_connection->loadLocationPreview(located(u"m-2"_s, paris), size).isNull());
    QVERIFY(waitFor([&] { return drawn.size() == 2; }));
    QCOMPARE(m_server->requestCount(), before);

    // Tiles that fail fail the picture, which is not tried again for ten seconds.
    m_tile = {404, {}, "no such tile"};
    const auto elsewhere
        = located(u"m-3"_s, {{u"lat"_s, -33.86}, {u"lng"_s, 151.21}, {u"d"_s, 500}});
    ZVXLogCapture log;
    QVERIFY(m_connection->loadLocationPreview(elsewhere, size).isNull());
    QVERIFY(waitFor([&] {
        return log.lines().join(u'\n').contains(
            u"ZVX: ZuveroConnection: failed to load snapshot for message: m-3 location: "_s);
    }));
    QCoreApplication::processEvents();
    const qsizetype failedRequests = m_server->requestCount();
    m_clock->advance(9s);
    QVERIFY(m_connection->loadLocationPreview(elsewhere, size).isNull());
    QCOMPARE(m_server->requestCount(), failedRequests);
    m_tile = {200, {}, encoded(filled(256, 256, Qt::darkGreen))};
    m_clock->advance(1s);
    QVERIFY(m_connection->loadLocationPreview(elsewhere, size).isNull());
    QVERIFY(waitFor([&] { return drawn.size() == 3; }));
    QCOMPARE(drawn.last().object().value<ZuveroChatMessage>(), elsewhere);
}

QTEST_MAIN(TestPreviews)
#include "tst_previews.moc"
