#pragma once

//! \file
//! A picture the user picked to send.

#include "zuvero_export.h"

#include <QByteArray>
#include <QImage>
#include <QString>

#include <memory>
#include <optional>

//! The file formats of a picked picture, as told by the file's first byte.
enum class ZuveroImageType {
    PNG = 0, //!< a PNG file
    JPEG = 1, //!< a JPEG file
    GIF = 2, //!< a GIF file, perhaps animated
    TIFF = 3, //!< a big-endian TIFF file
    Unknown = 4, //!< anything else
};

class ZuveroImage;
//! How picked pictures are held.
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

    //! The decoded picture; null when the bytes did not decode.
    QImage image() const { return m_image; }
    //! Sets the decoded picture to \a image.
    void setImage(const QImage &image) { m_image = image; }
    //! The encoded file, as it is uploaded.
    QByteArray raw() const { return m_raw; }
    //! Sets the encoded file to \a raw.
    void setRaw(const QByteArray &raw) { m_raw = raw; }
    //! The file's format.
    ZuveroImageType type() const { return m_type; }
    //! Sets the file's format to \a type.
    void setType(ZuveroImageType type) { m_type = type; }

    //! The media type attachments made from this record carry; TIFF is "image/ttif".
    std::optional<QString> contentType() const;
    //! The file is a PNG.
    bool isPng() const { return m_type == ZuveroImageType::PNG; }
    //! The file is a JPEG.
    bool isJpeg() const { return m_type == ZuveroImageType::JPEG; }
    //! The file is a GIF, shown animated.
    bool isGif() const { return m_type == ZuveroImageType::GIF; }
    //! The file is a TIFF (the name keeps the media type's spelling, "image/ttif").
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
