#include "ZuveroImage.h"

#include "ZVXLogging.h"

#include <QBuffer>
#include <QImageReader>
#include <QImageWriter>
#include <QPainter>

#include <cmath>

namespace {

constexpr int JPEGQuality = 70; // 0.7 on a 0-1 scale
constexpr double OptimalLinearSize = 1920.0;

QByteArray encodeJPEG(const QImage &image)
{
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    QImageWriter writer(&buffer, "jpeg");
    writer.setQuality(JPEGQuality);
    writer.write(image);
    return bytes;
}

// Bytes to a picture, or a null image. The declared size is checked before anything is
// allocated; Qt's own allocation limit (process-wide, the host's to set) stops a format that
// declares none.
QImage decode(const QByteArray &raw, const QSize &largestSize, qint64 maximumPixelCount)
{
    QBuffer buffer;
    buffer.setData(raw);
    buffer.open(QIODevice::ReadOnly);
    QImageReader reader(&buffer);
    // Photos carry their orientation in EXIF; Qt ignores it unless asked.
    reader.setAutoTransform(true);
    const QSize declared = reader.size();
    if (declared.isValid() && qint64(declared.width()) * declared.height() > maximumPixelCount) {
        ZVXLog(QStringLiteral("ZuveroImage: not decoding a picture of %1 x %2 pixels.")
                   .arg(declared.width())
                   .arg(declared.height()));
        return {};
    }
    if (declared.isValid() && largestSize.isValid()
        && (declared.width() > largestSize.width() || declared.height() > largestSize.height())) {
        // Decoders that can (JPEG) then skip the detail instead of making and dropping it.
        reader.setScaledSize(declared.scaled(largestSize, Qt::KeepAspectRatio).expandedTo({1, 1}));
    }
    QImage image = reader.read();
    // Not every decoder scales as it reads (GIF's does not): what still exceeds the size is
    // brought to it here, within the pixel count checked above.
    if (largestSize.isValid() && !image.isNull()
        && (image.width() > largestSize.width() || image.height() > largestSize.height()))
        image
            = image.scaled(image.size().scaled(largestSize, Qt::KeepAspectRatio).expandedTo({1, 1}),
                           Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    return image;
}

} // namespace

ZuveroImagePtr ZuveroImage::initWithImage(const QImage &image)
{
    if (image.isNull())
        return nullptr;
    auto record = std::make_shared<ZuveroImage>();
    record->m_image = image;
    record->m_raw = encodeJPEG(image);
    record->m_type = ZuveroImageType::JPEG;
    return record;
}

ZuveroImagePtr ZuveroImage::initWithRawData(const std::optional<QByteArray> &raw)
{
    return initWithRawData(raw, QSize());
}

ZuveroImagePtr ZuveroImage::initWithRawData(const std::optional<QByteArray> &raw,
                                            const QSize &largestSize, qint64 maximumPixelCount)
{
    if (!raw)
        return nullptr;
    auto record = std::make_shared<ZuveroImage>();
    record->m_raw = *raw;
    record->m_type = contentTypeForImageData(*raw);
    record->m_image = decode(*raw, largestSize, std::min(maximumPixelCount, MaximumPixelCount));
    return record;
}

ZuveroImageType ZuveroImage::contentTypeForImageData(const QByteArray &data)
{
    if (data.isEmpty())
        return ZuveroImageType::Unknown;
    switch (static_cast<unsigned char>(data.at(0))) {
    case 0x47:
        return ZuveroImageType::GIF;
    case 0x4d:
        return ZuveroImageType::TIFF;
    case 0x89:
        return ZuveroImageType::PNG;
    case 0xff:
        return ZuveroImageType::JPEG;
    default:
        // Little-endian TIFF (0x49, "II") stays unknown, as it always has.
        return ZuveroImageType::Unknown;
    }
}

std::optional<QString> ZuveroImage::stringContentTypeForImageData(const QByteArray &data)
{
    switch (contentTypeForImageData(data)) {
    case ZuveroImageType::GIF:
        return QStringLiteral("image/gif");
    case ZuveroImageType::TIFF:
        return QStringLiteral("image/tiff");
    case ZuveroImageType::PNG:
        return QStringLiteral("image/png");
    case ZuveroImageType::JPEG:
        return QStringLiteral("image/jpeg");
    case ZuveroImageType::Unknown:
        break;
    }
    return std::nullopt;
}

std::optional<QString> ZuveroImage::contentType() const
{
    switch (m_type) {
    case ZuveroImageType::PNG:
        return QStringLiteral("image/png");
    case ZuveroImageType::JPEG:
        return QStringLiteral("image/jpeg");
    case ZuveroImageType::GIF:
        return QStringLiteral("image/gif");
    case ZuveroImageType::TIFF:
        // Not "image/tiff": servers and caches already hold attachments of this type.
        return QStringLiteral("image/ttif");
    case ZuveroImageType::Unknown:
        break;
    }
    return std::nullopt;
}

void ZuveroImage::restrictSizeToOptimal()
{
    if (isGif() || m_image.isNull())
        return;
    const double scale = m_image.devicePixelRatio();
    const QSizeF points = m_image.deviceIndependentSize();
    const double linear = std::sqrt(points.width() * points.height()) * scale;
    double ratio = std::min(OptimalLinearSize / linear, 1.0);
    if (ratio > 0.9 && ratio < 1.0)
        ratio = 0.9;

    const QSize pixels(qRound(points.width() * scale * ratio),
                       qRound(points.height() * scale * ratio));
    QImage shrunk(pixels, QImage::Format_RGB32);
    shrunk.fill(Qt::white); // what shows through transparent parts in a JPEG
    {
        QImage source = m_image;
        source.setDevicePixelRatio(1.0);
        QPainter painter(&shrunk);
        painter.drawImage(0, 0,
                          source.scaled(pixels, Qt::IgnoreAspectRatio, Qt::SmoothTransformation));
    }
    m_image = shrunk;
    m_raw = encodeJPEG(shrunk);
    m_type = ZuveroImageType::JPEG;
}
