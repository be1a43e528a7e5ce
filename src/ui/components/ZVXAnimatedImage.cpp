#include "ZVXAnimatedImage.h"

#include "ZVXLogging.h"

#include <QBuffer>
#include <QImageReader>

#include <numeric>

namespace {

constexpr qint64 BytesPerPixel = 4;
// What chats send. Other decoders (MNG, TIFF, TGA...) are rarely used, and less tried by hostile
// files: they are not offered to one.
const QList<QByteArray> DecodedFormats{"gif", "png", "jpeg", "webp"};

qint64 pixelBytes(QSize size)
{
    return qint64(size.width()) * size.height() * BytesPerPixel;
}

// GIF frames are decoded onto the file's logical screen, which QImageReader does not report.
QSize canvasSize(const QByteArray &data, QSize declared)
{
    if (!data.startsWith("GIF8") || data.size() < 10)
        return declared;
    const auto word = [&](int at) { return uchar(data[at]) | uchar(data[at + 1]) << 8; };
    return declared.expandedTo(QSize(word(6), word(8)));
}

} // namespace

ZVXAnimatedImage::ZVXAnimatedImage()
    : m_data(std::make_shared<const Data>())
{ }

ZVXAnimatedImage::ZVXAnimatedImage(const QByteArray &data)
    : ZVXAnimatedImage(data, Limits())
{ }

ZVXAnimatedImage::ZVXAnimatedImage(const QByteArray &data, const Limits &limits)
    : ZVXAnimatedImage()
{
    if (data.isEmpty()) {
        ZVXLogError(QStringLiteral("ZVXAnimatedImage: no bytes to decode"));
        return;
    }
    QBuffer buffer;
    buffer.setData(data);
    buffer.open(QIODevice::ReadOnly);
    QImageReader reader(&buffer);
    reader.setDecideFormatFromContent(true);
    if (!reader.canRead()) {
        ZVXLogError(QStringLiteral("ZVXAnimatedImage: not an image (%1 bytes)").arg(data.size()));
        return;
    }
    if (!DecodedFormats.contains(reader.format())) {
        ZVXLogError(QStringLiteral("ZVXAnimatedImage: %1 pictures are not shown")
                        .arg(QString::fromLatin1(reader.format())));
        return;
    }
    // The declared size is known before any pixel is decoded: refuse a bomb there.
    const QSize declared = canvasSize(data, reader.size());
    if (declared.isValid() && pixelBytes(declared) > limits.maximumTotalBytes) {
        ZVXLogError(QStringLiteral("ZVXAnimatedImage: %1x%2 pixels are over the budget of %3 bytes")
                        .arg(declared.width())
                        .arg(declared.height())
                        .arg(limits.maximumTotalBytes));
        return;
    }

    auto decoded = std::make_shared<Data>();
    decoded->loopCount = reader.supportsAnimation() ? reader.loopCount() : 0;
    for (;;) {
        if (!decoded->frames.isEmpty() && (!reader.supportsAnimation() || !reader.canRead()))
            break;
        if (decoded->frames.size() >= limits.maximumFrames) {
            ZVXLogError(
                QStringLiteral("ZVXAnimatedImage: more than %1 frames").arg(limits.maximumFrames));
            return;
        }
        QImage image;
        // Some decoders report success with nothing decoded.
        if (!reader.read(&image) || image.isNull()) {
            if (decoded->frames.isEmpty()) {
                ZVXLogError(QStringLiteral("ZVXAnimatedImage: cannot decode: %1")
                                .arg(reader.errorString()));
                return;
            }
            // A file cut short keeps the frames it had, as browsers show them.
            ZVXLog(QStringLiteral("ZVXAnimatedImage: frames after %1 do not decode: %2")
                       .arg(decoded->frames.size())
                       .arg(reader.errorString()));
            break;
        }
        image = std::move(image).convertToFormat(
            image.hasAlphaChannel() ? QImage::Format_ARGB32_Premultiplied : QImage::Format_RGB32);
        decoded->byteCount += image.sizeInBytes();
        if (decoded->byteCount > limits.maximumTotalBytes) {
            ZVXLogError(QStringLiteral("ZVXAnimatedImage: frames are over the budget of %1 bytes")
                            .arg(limits.maximumTotalBytes));
            return;
        }
        std::chrono::milliseconds delay(reader.nextImageDelay());
        if (delay < MinimumDelay)
            delay = ShortDelayReplacement;
        decoded->frames.append({std::move(image), delay});
    }
    m_data = std::move(decoded);
}

int ZVXAnimatedImage::frameCount() const
{
    return int(m_data->frames.size());
}

QImage ZVXAnimatedImage::frame(int index) const
{
    return index >= 0 && index < frameCount() ? m_data->frames.at(index).image : QImage();
}

std::chrono::milliseconds ZVXAnimatedImage::delay(int index) const
{
    return index >= 0 && index < frameCount() ? m_data->frames.at(index).delay
                                              : std::chrono::milliseconds(0);
}

std::chrono::milliseconds ZVXAnimatedImage::duration() const
{
    return std::accumulate(m_data->frames.cbegin(), m_data->frames.cend(),
                           std::chrono::milliseconds(0),
                           [](auto total, const Frame &frame) { return total + frame.delay; });
}

int ZVXAnimatedImage::loopCount() const
{
    return m_data->loopCount;
}

QSize ZVXAnimatedImage::size() const
{
    return isNull() ? QSize() : m_data->frames.constFirst().image.size();
}

qint64 ZVXAnimatedImage::byteCount() const
{
    return m_data->byteCount;
}
