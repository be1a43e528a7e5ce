#include "ZuveroChatAttachment.h"

#include "ZVXDictionaryForm.h"
#include "ZVXJSON.h"
#include "ZVXLogging.h"
#include "ZVXModelValues.h"

#include <QHash>
#include <QJsonValue>

#include <algorithm>
#include <cmath>

namespace {

const ZVXDictionaryKey UUIDKey("uuid");
const ZVXDictionaryKey ContentTypeKey("contentType");
const ZVXDictionaryKey PreviewURLKey("previewURL");
const ZVXDictionaryKey DataURLKey("dataURL");
const ZVXDictionaryKey DataKey("data");
const ZVXDictionaryKey LengthKey("length");
const ZVXDictionaryKey FilenameKey("filename");
const ZVXDictionaryKey IconKey("icon");
const ZVXDictionaryKey ImageSizeKey("imageSize");

bool isPlainURLCharacter(QChar c)
{
    const char16_t u = c.unicode();
    return (u >= u'a' && u <= u'z') || (u >= u'A' && u <= u'Z') || (u >= u'0' && u <= u'9')
        || u == u'-' || u == u'.' || u == u'_' || u == u'~' || u == u'/' || u == u':';
}

QUrl urlFrom(const QVariant &value)
{
    const std::optional<QString> text = ZVXModelValues::text(value);
    if (!text)
        return {};
    const QUrl url(*text, QUrl::StrictMode);
    if (!url.isValid())
        return QUrl();
    // QUrl keeps some characters as given ("#" inside a fragment) and compares them unequal to
    // their encoded form: read the encoded form, so that an address and its written copy are equal.
    // An address made only of letters, digits, "-._~", "/" and ":" (the usual case), or one that
    // is already its own encoded form, would read the same again: it needs no second parse.
    if (std::all_of(text->cbegin(), text->cend(), isPlainURLCharacter))
        return url;
    const QString encoded = url.toString(QUrl::FullyEncoded);
    return encoded == *text ? url : QUrl(encoded, QUrl::StrictMode);
}

// At least two numbers: width and height, read with single precision.
template<typename Form>
QSizeF sizeFrom(const typename Form::Value &value)
{
    const std::optional<typename Form::Array> numbers = Form::array(value);
    if (!numbers)
        return QSizeF(0, 0);
    double sides[2] = {0, 0};
    int found = 0;
    for (qsizetype i = 0; i < numbers->size() && found < 2; ++i) {
        const typename Form::Value &number = numbers->at(i);
        if (Form::skipped(number))
            continue;
        sides[found++] = Form::variant(number).toDouble();
    }
    if (found < 2)
        return QSizeF(0, 0);
    const float width = float(sides[0]);
    const float height = float(sides[1]);
    // Beyond single precision a size becomes infinite, which no dictionary could hold again.
    if (!std::isfinite(width) || !std::isfinite(height))
        return QSizeF(0, 0);
    return QSizeF(width, height);
}

} // namespace

ZuveroChatAttachment::ZuveroChatAttachment()
    : m_uuid(ZVXModelValues::newUUID())
{ }

ZuveroChatAttachmentPtr ZuveroChatAttachment::init()
{
    return std::make_shared<ZuveroChatAttachment>();
}

ZuveroChatAttachmentPtr ZuveroChatAttachment::initWithImage(const ZuveroImagePtr &image)
{
    if (!image)
        return nullptr;
    auto attachment = init();
    attachment->m_contentType = image->contentType();
    attachment->m_data = image->raw();
    attachment->m_image = image->image();
    attachment->m_imageSize = image->image().deviceIndependentSize();
    return attachment;
}

template<typename Form>
ZuveroChatAttachmentPtr
ZuveroChatAttachment::fromPropertyList(const typename Form::Value &propertyList)
{
    const std::optional<typename Form::Object> dictionary = Form::object(propertyList);
    if (!dictionary) {
        const QVariant value = Form::variant(propertyList);
        ZVXLog(QStringLiteral("ZuveroChatAttachment: property list is not a dictionary: %1 %2")
                   .arg(ZVXJSON::typeName(value), ZVXJSON::describe(value)));
        return nullptr;
    }
    ZVXDictionaryMembers<Form> members(*dictionary);
    const auto value
        = [&members](const ZVXDictionaryKey &key) { return Form::variant(members[key]); };
    const std::optional<QString> uuid = ZVXModelValues::text(value(UUIDKey));
    if (!uuid) {
        ZVXLog(QStringLiteral("ZuveroChatAttachment: missing 'uuid' value in property list: %1")
                   .arg(ZVXJSON::describe(Form::variant(*dictionary))));
        return nullptr;
    }
    const std::optional<QString> contentType = ZVXModelValues::text(value(ContentTypeKey));
    if (!contentType) {
        ZVXLog(
            QStringLiteral("ZuveroChatAttachment: missing 'contentType' value in property list: %1")
                .arg(ZVXJSON::describe(Form::variant(*dictionary))));
        return nullptr;
    }

    auto attachment = std::make_shared<ZuveroChatAttachment>(Unidentified{});
    attachment->m_uuid = *uuid;
    attachment->m_contentType = contentType;
    attachment->m_previewURL = urlFrom(value(PreviewURLKey));
    attachment->m_dataURL = urlFrom(value(DataURLKey));
    const QVariant data = value(DataKey);
    if (data.metaType().id() == QMetaType::QByteArray)
        attachment->m_data = data.toByteArray();
    attachment->m_length = ZVXModelValues::count(value(LengthKey));
    attachment->m_filename = ZVXModelValues::text(value(FilenameKey)).value_or(QStringLiteral(""));
    attachment->m_icon = attachment->iconForContentType();
    attachment->m_imageSize = sizeFrom<Form>(members[ImageSizeKey]);
    return attachment;
}

ZuveroChatAttachmentPtr ZuveroChatAttachment::initWithPropertyList(const QVariant &propertyList)
{
    return fromPropertyList<ZVXVariantForm>(propertyList);
}

ZuveroChatAttachmentPtr ZuveroChatAttachment::initWithJSON(const QJsonValue &propertyList)
{
    return fromPropertyList<ZVXJSONForm>(QCborValue::fromJsonValue(propertyList));
}

// A message reads its attachments in the shape it is read in.
template ZuveroChatAttachmentPtr
ZuveroChatAttachment::fromPropertyList<ZVXVariantForm>(const QVariant &propertyList);
template ZuveroChatAttachmentPtr
ZuveroChatAttachment::fromPropertyList<ZVXJSONForm>(const QCborValue &propertyList);

QVariantMap ZuveroChatAttachment::propertyList() const
{
    QVariantMap dictionary;
    dictionary.insert(UUIDKey.text, m_uuid);
    dictionary.insert(ContentTypeKey.text,
                      m_contentType.value_or(QStringLiteral("application/octet-stream")));
    if (m_previewURL.isValid())
        dictionary.insert(PreviewURLKey.text, m_previewURL.toString(QUrl::FullyEncoded));
    if (m_dataURL.isValid())
        dictionary.insert(DataURLKey.text, m_dataURL.toString(QUrl::FullyEncoded));
    if (m_length != 0)
        dictionary.insert(LengthKey.text, m_length);
    if (m_filename)
        dictionary.insert(FilenameKey.text, *m_filename);
    dictionary.insert(IconKey.text, iconForContentType());
    if (!m_imageSize.isNull())
        dictionary.insert(ImageSizeKey.text,
                          QVariantList{m_imageSize.width(), m_imageSize.height()});
    return dictionary;
}

bool ZuveroChatAttachment::contentTypeIsOneOf(std::initializer_list<const char *> types) const
{
    if (!m_contentType)
        return false;
    for (const char *type : types) {
        if (*m_contentType == QLatin1String(type))
            return true;
    }
    return false;
}

bool ZuveroChatAttachment::isImage() const
{
    return m_contentType && m_contentType->startsWith(QLatin1String("image/"));
}

bool ZuveroChatAttachment::isPdf() const
{
    return contentTypeIsOneOf({"application/pdf"});
}

bool ZuveroChatAttachment::isVideo() const
{
    // "audio/x-ms-wmv" is a video container, whatever its name says.
    return contentTypeIsOneOf({"video/mp4", "video/x-flv", "video/x-m4v", "video/x-matroska",
                               "video/quicktime", "video/mpeg", "audio/x-ms-wmv"});
}

bool ZuveroChatAttachment::isDoc() const
{
    return contentTypeIsOneOf(
        {"application/msword", "application/vnd.ms-word.document.macroEnabled.12",
         "application/vnd.openxmlformats-officedocument.wordprocessingml.document",
         "application/vnd.ms-word.template.macroEnabled.12",
         "application/vnd.openxmlformats-officedocument.wordprocessingml.template",
         "application/x-iwork-pages", "application/vnd.oasis.opendocument.text",
         "application/vnd.oasis.opendocument.text-template"});
}

bool ZuveroChatAttachment::isAudio() const
{
    return contentTypeIsOneOf({"audio/x-aac", "audio/mpeg"});
}

bool ZuveroChatAttachment::isSpreadsheet() const
{
    return contentTypeIsOneOf(
               {"application/excel", "application/vnd.ms-excel.template.macroEnabled.12"})
        || (m_contentType
            && m_contentType->contains(
                QLatin1String("application/vnd.openxmlformats-officedocument.spreadsheetml")));
}

bool ZuveroChatAttachment::isPresentation() const
{
    return contentTypeIsOneOf(
        {"application/vnd.openxmlformats-officedocument.presentationml.presentation",
         "application/powerpoint", "application/x-iwork-keynote"});
}

bool ZuveroChatAttachment::isText() const
{
    return contentTypeIsOneOf({"text/plain", "text/comma-separated-values"});
}

bool ZuveroChatAttachment::isValidDocument() const
{
    return isPdf() || isVideo() || isDocumentNotPdfOrVideo();
}

bool ZuveroChatAttachment::isDocumentNotPdfOrVideo() const
{
    return isDoc() || isAudio() || isSpreadsheet() || isPresentation() || isText();
}

bool ZuveroChatAttachment::isUnknown() const
{
    return !isValidDocument() && !isImage();
}

QString ZuveroChatAttachment::iconForContentType() const
{
    if (isVideo())
        return QStringLiteral("video_icon");
    if (isPdf())
        return QStringLiteral("pdf_icon");
    if (isDoc() || isText())
        return QStringLiteral("doc_icon");
    if (isAudio())
        return QStringLiteral("audio_icon");
    if (isSpreadsheet())
        return QStringLiteral("spreadsheet_icon");
    if (isPresentation())
        return QStringLiteral("presentation_icon");
    return QStringLiteral("unknown_icon");
}

bool ZuveroChatAttachment::isEqual(const ZuveroChatAttachment &other) const
{
    // A data location that is set on one side only makes them differ.
    return m_uuid == other.m_uuid && m_dataURL == other.m_dataURL;
}

size_t ZuveroChatAttachment::hash() const
{
    return qHash(m_uuid);
}
