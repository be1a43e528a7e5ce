#pragma once

#include "ZuveroImage.h"

#include <QSizeF>
#include <QUrl>
#include <QVariantMap>

class QJsonValue;
class ZuveroChatAttachment;
using ZuveroChatAttachmentPtr = std::shared_ptr<ZuveroChatAttachment>;

/*!
    One file attached to a message: where its preview and contents are
    fetched, its media type, size and name, and while it is still local its
    bytes and picture. Shared and changed in place: hold it by
    ZuveroChatAttachmentPtr.

    Its dictionary form (propertyList()) is the one the server sends and the
    cache keeps; it never carries the file's contents.
*/
class ZUVERO_EXPORT ZuveroChatAttachment
{
    struct Unidentified
    { };

public:
    //! An empty attachment with a fresh identifier.
    ZuveroChatAttachment();
    //! The same without an identifier, for the readers that set one at once.
    explicit ZuveroChatAttachment(Unidentified) { }

    static ZuveroChatAttachmentPtr init();
    //! An attachment for a picked picture; nothing without one.
    static ZuveroChatAttachmentPtr initWithImage(const ZuveroImagePtr &image);
    //! From the dictionary form; nothing, and one log line, when it is not usable.
    static ZuveroChatAttachmentPtr initWithPropertyList(const QVariant &propertyList);
    //! From the dictionary form as JSON, read by the same rules; a JSON null reads as absent.
    static ZuveroChatAttachmentPtr initWithJSON(const QJsonValue &propertyList);

    QVariantMap propertyList() const;

    QString uuid() const { return m_uuid; }
    void setUuid(const QString &uuid) { m_uuid = uuid; }
    std::optional<QString> contentType() const { return m_contentType; }
    void setContentType(const std::optional<QString> &contentType) { m_contentType = contentType; }
    QUrl previewURL() const { return m_previewURL; }
    void setPreviewURL(const QUrl &url) { m_previewURL = url; }
    QUrl dataURL() const { return m_dataURL; }
    void setDataURL(const QUrl &url) { m_dataURL = url; }
    std::optional<QByteArray> data() const { return m_data; }
    void setData(const std::optional<QByteArray> &data) { m_data = data; }
    QImage image() const { return m_image; }
    void setImage(const QImage &image) { m_image = image; }
    //! Size of the file in bytes; 0 when unknown.
    quint64 length() const { return m_length; }
    void setLength(quint64 length) { m_length = length; }
    //! Size of the picture; 0 x 0 when unknown or not a picture.
    QSizeF imageSize() const { return m_imageSize; }
    void setImageSize(const QSizeF &size) { m_imageSize = size; }
    std::optional<QString> filename() const { return m_filename; }
    void setFilename(const std::optional<QString> &filename) { m_filename = filename; }
    //! The name of the icon image drawn for a file that is not shown as a picture.
    QString icon() const { return m_icon; }
    void setIcon(const QString &icon) { m_icon = icon; }

    // The families of media type that are drawn differently.
    bool isImage() const;
    bool isPdf() const;
    bool isVideo() const;
    bool isDoc() const;
    bool isAudio() const;
    bool isSpreadsheet() const;
    bool isPresentation() const;
    bool isText() const;
    bool isValidDocument() const;
    bool isDocumentNotPdfOrVideo() const;
    bool isUnknown() const;

    //! The icon name for the current media type.
    QString iconForContentType() const;

    //! Same identifier and same data location (or neither has one).
    bool isEqual(const ZuveroChatAttachment &other) const;
    friend bool operator==(const ZuveroChatAttachment &a, const ZuveroChatAttachment &b)
    {
        return a.isEqual(b);
    }
    size_t hash() const;

private:
    friend class ZuveroChatMessage;
    template<typename Form>
    static ZuveroChatAttachmentPtr fromPropertyList(const typename Form::Value &propertyList);
    bool contentTypeIsOneOf(std::initializer_list<const char *> types) const;

    QString m_uuid;
    std::optional<QString> m_contentType;
    QUrl m_previewURL;
    QUrl m_dataURL;
    std::optional<QByteArray> m_data;
    QImage m_image;
    quint64 m_length = 0;
    QSizeF m_imageSize{0, 0};
    std::optional<QString> m_filename;
    QString m_icon;
};

inline size_t qHash(const ZuveroChatAttachment &attachment, size_t seed = 0)
{
    return attachment.hash() ^ seed;
}
