#include "ZVXJSON.h"
#include "ZVXLogCapture.h"
#include "ZuveroChatAttachment.h"

#include <QBuffer>
#include <QDataStream>
#include <QImageWriter>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

QByteArray encoded(const QImage &image, const char *format)
{
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    QImageWriter writer(&buffer, format);
    if (!writer.write(image))
        qFatal("cannot write %s: %s", format, qPrintable(writer.errorString()));
    return bytes;
}

// The smallest GIF: Qt reads GIF but cannot write it.
const QByteArray gif
    = QByteArray::fromHex("47494638396101000100800000ffffff0000002c000000000100010000"
                          "02024401003b");

// A 1x1 grey picture as a big-endian ("MM") TIFF; Qt itself writes little-endian ones.
QByteArray bigEndianTIFF()
{
    QByteArray bytes;
    QDataStream out(&bytes, QIODevice::WriteOnly);
    out.setByteOrder(QDataStream::BigEndian);
    const quint16 entries[][2] = {{256, 1},   {257, 1}, {258, 8}, {259, 1}, {262, 1},
                                  {273, 122}, {277, 1}, {278, 1}, {279, 1}};
    out.writeRawData("MM", 2);
    out << quint16(42) << quint32(8) << quint16(std::size(entries));
    for (const auto &[tag, value] : entries) {
        const bool isLong = tag == 273 || tag == 279;
        out << tag << quint16(isLong ? 4 : 3) << quint32(1);
        if (isLong)
            out << quint32(value);
        else
            out << value << quint16(0);
    }
    out << quint32(0) << quint8(0x80);
    return bytes;
}

QImage filled(int width, int height, qreal scale = 1.0)
{
    QImage image(width, height, QImage::Format_ARGB32);
    image.fill(QColor(30, 120, 200, 128));
    image.setDevicePixelRatio(scale);
    return image;
}

} // namespace

class TestChatAttachment : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void classification_data();
    void classification();
    void dictionaryForm();
    void writtenFormReadsBackEqual();
    void imageKinds_data();
    void imageKinds();
    void shrinking_data();
    void shrinking();
};

void TestChatAttachment::classification_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<QString>("icon");
    QTest::addColumn<bool>("image");
    QTest::addColumn<bool>("document");

    QTest::newRow("svg") << "image/svg+xml"
                         << "unknown_icon" << true << false;
    QTest::newRow("zip") << "application/zip"
                         << "unknown_icon" << false << false;
    QTest::newRow("pdf") << "application/pdf"
                         << "pdf_icon" << false << true;
    QTest::newRow("PDF is exact") << "APPLICATION/PDF"
                                  << "unknown_icon" << false << false;
    QTest::newRow("xlsx contains")
        << "application/vnd.openxmlformats-officedocument.spreadsheetml.sheet"
        << "spreadsheet_icon" << false << true;
    QTest::newRow("wmv is video") << "audio/x-ms-wmv"
                                  << "video_icon" << false << true;
    QTest::newRow("text") << "text/plain"
                          << "doc_icon" << false << true;
    QTest::newRow("odt") << "application/vnd.oasis.opendocument.text"
                         << "doc_icon" << false << true;
    QTest::newRow("mp3") << "audio/mpeg"
                         << "audio_icon" << false << true;
    QTest::newRow("keynote") << "application/x-iwork-keynote"
                             << "presentation_icon" << false << true;
}

void TestChatAttachment::classification()
{
    QFETCH(QString, type);
    QFETCH(QString, icon);
    QFETCH(bool, image);
    QFETCH(bool, document);
    ZuveroChatAttachment attachment;
    attachment.setContentType(type);
    QCOMPARE(attachment.iconForContentType(), icon);
    QCOMPARE(attachment.isImage(), image);
    QCOMPARE(attachment.isValidDocument(), document);
    QCOMPARE(attachment.isUnknown(), !image && !document);
}

void TestChatAttachment::dictionaryForm()
{
    ZVXLogCapture log;
    auto read = [](const char *text) {
        return ZuveroChatAttachment::initWithPropertyList(
            ZVXJSON::parse(text).value_or(QVariant()));
    };
    const auto sized = read(R"({"uuid": "u", "contentType": "image/png", "imageSize": [640]})");
    QCOMPARE(sized->imageSize(), QSizeF(0, 0));
    QCOMPARE(sized->filename(), u""_s);
    QCOMPARE(sized->propertyList(),
             (QVariantMap{{u"uuid"_s, u"u"_s},
                          {u"contentType"_s, u"image/png"_s},
                          {u"filename"_s, u""_s},
                          {u"icon"_s, u"unknown_icon"_s}}));
    QCOMPARE(ZuveroChatAttachment().propertyList().value(u"contentType"_s),
             QVariant(u"application/octet-stream"_s));
    QVERIFY(log.lines().isEmpty());

    QVERIFY(!read(R"([])"));
    QVERIFY(!read(R"({"contentType": "image/png"})"));
    QVERIFY(!read(R"({"uuid": "u"})"));
    QCOMPARE(
        log.lines(),
        (QStringList{QStringLiteral("ZVX: ZuveroChatAttachment: property list is not a dictionary: "
                                    "QVariantList []"),
                     QStringLiteral("ZVX: ZuveroChatAttachment: missing 'uuid' value in property "
                                    "list: {\"contentType\":\"image/png\"}"),
                     QStringLiteral("ZVX: ZuveroChatAttachment: missing 'contentType' value in "
                                    "property list: {\"uuid\":\"u\"}")}));

    // Equal by identifier and data location, a location on one side only included.
    ZuveroChatAttachment copy = *sized;
    QCOMPARE(copy, *sized);
    copy.setDataURL(QUrl(u"https://h/d"_s));
    QVERIFY(!(copy == *sized));
}

// Inputs the fuzzer found: the dictionary an attachment writes must read back as that attachment.
void TestChatAttachment::writtenFormReadsBackEqual()
{
    const auto read
        = [](const QVariant &value) { return ZuveroChatAttachment::initWithPropertyList(value); };
    // QUrl keeps "#" inside a fragment as given but writes it encoded, and the two forms differed.
    const auto linked = read(ZVXJSON::parse(R"({"uuid": "u", "contentType": "image/png",
        "dataURL": "https://h/files/a##1", "previewURL": "https://h/p#x#y"})")
                                 .value_or(QVariant()));
    const auto linkedAgain = read(linked->propertyList());
    QCOMPARE(*linkedAgain, *linked);
    QCOMPARE(linkedAgain->previewURL(), linked->previewURL());
    QCOMPARE(linkedAgain->propertyList(), linked->propertyList());

    // A size beyond single precision was read as infinite, which JSON cannot hold: it is unknown.
    const auto huge = read(ZVXJSON::parse(R"({"uuid": "u", "contentType": "image/png",
        "imageSize": [4.6e56, 3]})")
                               .value_or(QVariant()));
    QCOMPARE(huge->imageSize(), QSizeF(0, 0));
    QVERIFY(ZVXJSON::serialize(huge->propertyList()));
}

void TestChatAttachment::imageKinds_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<ZuveroImageType>("type");
    QTest::addColumn<QString>("mediaType"); // by the first byte
    QTest::addColumn<QString>("recordType"); // what an attachment made from it carries
    QTest::addColumn<bool>("decodes");

    const QImage picture = filled(8, 6);
    QTest::newRow("png") << encoded(picture, "png") << ZuveroImageType::PNG << "image/png"
                         << "image/png" << true;
    QTest::newRow("jpeg") << encoded(picture, "jpeg") << ZuveroImageType::JPEG << "image/jpeg"
                          << "image/jpeg" << true;
    QTest::newRow("gif") << gif << ZuveroImageType::GIF << "image/gif"
                         << "image/gif" << true;
    QTest::newRow("tiff MM") << bigEndianTIFF() << ZuveroImageType::TIFF << "image/tiff"
                             << "image/ttif" << true;
    QTest::newRow("tiff II") << encoded(picture, "tiff") << ZuveroImageType::Unknown << QString()
                             << QString() << true;
    QTest::newRow("not a picture")
        << QByteArray("\x89 not a png") << ZuveroImageType::PNG << "image/png"
        << "image/png" << false;
}

void TestChatAttachment::imageKinds()
{
    QFETCH(QByteArray, bytes);
    QFETCH(ZuveroImageType, type);
    QFETCH(QString, mediaType);
    QFETCH(QString, recordType);
    QFETCH(bool, decodes);
    QCOMPARE(ZuveroImage::contentTypeForImageData(bytes), type);
    QCOMPARE(ZuveroImage::stringContentTypeForImageData(bytes).value_or(QString()), mediaType);
    const auto record = ZuveroImage::initWithRawData(bytes);
    QCOMPARE(record->raw(), bytes);
    QCOMPARE(!record->image().isNull(), decodes);
    const auto attachment = ZuveroChatAttachment::initWithImage(record);
    QCOMPARE(attachment->contentType().value_or(QString()), recordType);
    QCOMPARE(attachment->data(), bytes);
    QCOMPARE(attachment->imageSize(), record->image().deviceIndependentSize());
}

void TestChatAttachment::shrinking_data()
{
    QTest::addColumn<QByteArray>("raw");
    QTest::addColumn<QSize>("pixels");

    QTest::newRow("4000x3000") << encoded(filled(4000, 3000), "png") << QSize(2217, 1663);
    QTest::newRow("slightly large") << encoded(filled(1950, 1950), "png") << QSize(1755, 1755);
    QTest::newRow("small is re-encoded") << encoded(filled(100, 80), "png") << QSize(100, 80);
    QTest::newRow("gif is left alone") << gif << QSize(1, 1);
}

void TestChatAttachment::shrinking()
{
    QFETCH(QByteArray, raw);
    QFETCH(QSize, pixels);
    const auto record = ZuveroImage::initWithRawData(raw);
    record->restrictSizeToOptimal();
    QCOMPARE(record->image().size(), pixels);
    if (record->isGif()) {
        QCOMPARE(record->raw(), gif);
        return;
    }
    QVERIFY(record->isJpeg());
    QVERIFY(record->raw().startsWith("\xff\xd8"));
    QCOMPARE(QImage::fromData(record->raw()).size(), pixels);
}

QTEST_MAIN(TestChatAttachment)
#include "tst_chatattachment.moc"
