#pragma once

//! \file
//! A file attached to a message.

#include "ZuveroImage.h"

#include <QSizeF>
#include <QUrl>
#include <QVariantMap>

class QJsonValue;
class ZuveroChatAttachment;
//! How attachments are held: "the same attachment" is the same pointer.
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

    //! A new empty attachment with a fresh identifier.
    static ZuveroChatAttachmentPtr init();
    //! An attachment for a picked picture; nothing without one.
    static ZuveroChatAttachmentPtr initWithImage(const ZuveroImagePtr &image);
    //! From the dictionary form; nothing, and one log line, when it is not usable.
    static ZuveroChatAttachmentPtr initWithPropertyList(const QVariant &propertyList);
    //! From the dictionary form as JSON, read by the same rules; a JSON null reads as absent.
    static ZuveroChatAttachmentPtr initWithJSON(const QJsonValue &propertyList);

    //! The dictionary form, without the file's contents.
    QVariantMap propertyList() const;

    //! The attachment's identifier; attachments are told apart by it.
    QString uuid() const { return m_uuid; }
    //! Sets the identifier to \a uuid.
    void setUuid(const QString &uuid) { m_uuid = uuid; }
    //! The file's media type, such as "image/jpeg"; none when the server gave none.
    std::optional<QString> contentType() const { return m_contentType; }
    //! Sets the media type to \a contentType.
    void setContentType(const std::optional<QString> &contentType) { m_contentType = contentType; }
    //! Where the server keeps a small picture of the file; empty when it has none.
    QUrl previewURL() const { return m_previewURL; }
    //! Sets the preview's address to \a url.
    void setPreviewURL(const QUrl &url) { m_previewURL = url; }
    //! Where the server keeps the file itself; empty until it has been uploaded.
    QUrl dataURL() const { return m_dataURL; }
    //! Sets the file's address to \a url.
    void setDataURL(const QUrl &url) { m_dataURL = url; }
    //! The file's bytes while they are local (picked, not yet uploaded); none otherwise.
    std::optional<QByteArray> data() const { return m_data; }
    //! Sets the local bytes to \a data.
    void setData(const std::optional<QByteArray> &data) { m_data = data; }
    //! The picture while it is local; a null image otherwise.
    QImage image() const { return m_image; }
    //! Sets the local picture to \a image.
    void setImage(const QImage &image) { m_image = image; }
    //! Size of the file in bytes; 0 when unknown.
    quint64 length() const { return m_length; }
    //! Sets the file's size to \a length bytes.
    void setLength(quint64 length) { m_length = length; }
    //! Size of the picture; 0 x 0 when unknown or not a picture.
    QSizeF imageSize() const { return m_imageSize; }
    //! Sets the picture's size to \a size.
    void setImageSize(const QSizeF &size) { m_imageSize = size; }
    //! The file's name as the sender gave it; none when unknown.
    std::optional<QString> filename() const { return m_filename; }
    //! Sets the file's name to \a filename.
    void setFilename(const std::optional<QString> &filename) { m_filename = filename; }
    //! The name of the icon image drawn for a file that is not shown as a picture.
    QString icon() const { return m_icon; }
    //! Sets the icon's name to \a icon.
    void setIcon(const QString &icon) { m_icon = icon; }

    // The families of media type that are drawn differently.

    //! Any "image/" type: shown as a picture.
    bool isImage() const;
    //! A PDF document.
    bool isPdf() const;
    //! A video (MP4, FLV, M4V, Matroska, QuickTime, MPEG, WMV).
    bool isVideo() const;
    //! A word-processing document (Word, Pages, OpenDocument text).
    bool isDoc() const;
    //! Sound (AAC, MPEG audio).
    bool isAudio() const;
    //! A spreadsheet (Excel and its Office Open XML forms).
    bool isSpreadsheet() const;
    //! A presentation (PowerPoint, Keynote).
    bool isPresentation() const;
    //! Plain text or comma-separated values.
    bool isText() const;
    //! A document of one of the known kinds: PDF, video, or isDocumentNotPdfOrVideo().
    bool isValidDocument() const;
    //! A word-processing document, sound, spreadsheet, presentation or text.
    bool isDocumentNotPdfOrVideo() const;
    //! Neither a picture nor a known kind of document.
    bool isUnknown() const;

    //! The icon name for the current media type.
    QString iconForContentType() const;

    //! Same identifier and same data location (or neither has one).
    bool isEqual(const ZuveroChatAttachment &other) const;
    //! isEqual().
    friend bool operator==(const ZuveroChatAttachment &a, const ZuveroChatAttachment &b)
    {
        return a.isEqual(b);
    }
    //! A hash of the identifier, consistent with isEqual().
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

//! ZuveroChatAttachment::hash(), for QHash and QSet.
inline size_t qHash(const ZuveroChatAttachment &attachment, size_t seed = 0)
{
    return attachment.hash() ^ seed;
}
