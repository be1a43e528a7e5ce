#pragma once

#include "zuvero_export.h"

#include <QByteArray>
#include <QImage>
#include <QString>

#include <memory>
#include <optional>

enum class ZuveroImageType {
    PNG = 0,
    JPEG = 1,
    GIF = 2,
    TIFF = 3,
    Unknown = 4,
};

class ZuveroImage;
using ZuveroImagePtr = std::shared_ptr<ZuveroImage>;

/*!
    A picture the user picked to send: the encoded file, the decoded image
    and the file's format as told by its first byte.
*/
class ZUVERO_EXPORT ZuveroImage
{
public:
    //! \a image encoded as JPEG at quality 0.7; nothing for a null image.
    static ZuveroImagePtr initWithImage(const QImage &image);
    /*!
        \a raw as it is, decoded (with its EXIF orientation applied); nothing
        without bytes. Bytes that do not decode give a record without an image.
    */
    static ZuveroImagePtr initWithRawData(const std::optional<QByteArray> &raw);
    /*!
        The same, decoded to fit within \a largestSize (keeping its proportions)
        when it is larger, and only when it declares \a maximumPixelCount
        pixels at most: what a preview needs, at a fraction of the memory.
    */
    static ZuveroImagePtr initWithRawData(const std::optional<QByteArray> &raw,
                                          const QSize &largestSize,
                                          qint64 maximumPixelCount = MaximumPixelCount);

    /*!
        The most pixels a picture may declare to be decoded at all: 32 million
        (8192 x 4096), 128 MiB once decoded, which is also Qt's own default
        allocation limit. A larger one gives a record without an image and a
        log line, without trying: a small file can declare a picture of gigabytes.
    */
    static constexpr qint64 MaximumPixelCount = qint64(8192) * 4096;

    //! The format by the first byte; only big-endian TIFF ("MM") is recognised.
    static ZuveroImageType contentTypeForImageData(const QByteArray &data);
    //! The media type by the first byte: "image/gif", "image/tiff", "image/png", "image/jpeg".
    static std::optional<QString> stringContentTypeForImageData(const QByteArray &data);

    QImage image() const { return m_image; }
    void setImage(const QImage &image) { m_image = image; }
    QByteArray raw() const { return m_raw; }
    void setRaw(const QByteArray &raw) { m_raw = raw; }
    ZuveroImageType type() const { return m_type; }
    void setType(ZuveroImageType type) { m_type = type; }

    //! The media type attachments made from this record carry; TIFF is "image/ttif".
    std::optional<QString> contentType() const;
    bool isPng() const { return m_type == ZuveroImageType::PNG; }
    bool isJpeg() const { return m_type == ZuveroImageType::JPEG; }
    bool isGif() const { return m_type == ZuveroImageType::GIF; }
    bool isTtif() const { return m_type == ZuveroImageType::TIFF; }

    /*!
        Shrinks the picture to at most about 1920 pixels on the geometric
        mean of its sides (by at least a tenth when it is only slightly
        larger) and re-encodes it as JPEG, also when it was small enough
        already. A GIF is left alone, so that it keeps its animation.
    */
    void restrictSizeToOptimal();

private:
    QImage m_image;
    QByteArray m_raw;
    ZuveroImageType m_type = ZuveroImageType::Unknown;
};
