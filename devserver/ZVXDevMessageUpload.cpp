#include "ZVXDevMessageUpload.h"

#include "ZVXDevHttp.h"
#include "ZVXDevMultipart.h"

#include <QSet>

using ZVXDevHttp::replyError;

namespace ZVXDevMessageUpload {

namespace {

bool isA(const QVariant &value, QMetaType::Type type)
{
    return value.metaType().id() == type;
}

// The attachments listed in the message, each with its file part.
bool readFiles(const ZVXDevMultipart::Form &form, const QVariant &listed,
               QList<ZVXDevConversations::Upload> *files, httplib::Response &res)
{
    if (!listed.isValid())
        return true;
    if (!isA(listed, QMetaType::QVariantList)) {
        replyError(res, 400, QStringLiteral("\"attachments\" must be an array"));
        return false;
    }
    const QVariantList list = listed.toList();
    if (list.size() > MaxAttachments) {
        replyError(res, 400, QStringLiteral("more than %1 attachments").arg(MaxAttachments));
        return false;
    }
    QSet<QString> seen;
    for (const QVariant &entry : list) {
        const QVariantMap object = entry.toMap();
        const QString uuid = object.value(QStringLiteral("uuid")).toString();
        if (!isA(entry, QMetaType::QVariantMap) || !ZVXDevHttp::isIdentifier(uuid)
            || seen.contains(uuid)) {
            replyError(res, 400,
                       QStringLiteral("each attachment must be an object with its own \"uuid\" "
                                      "of letters, digits, '.', '_' or '-'"));
            return false;
        }
        seen.insert(uuid);
        std::optional<QString> filename;
        if (!ZVXDevHttp::readText(object, QStringLiteral("filename"), &filename, res, 255))
            return false;
        const ZVXDevMultipart::Part *part = form.part(uuid);
        if (!part) {
            replyError(res, 400, QStringLiteral("no file part for attachment %1").arg(uuid));
            return false;
        }
        ZVXDevConversations::Upload file;
        file.uuid = uuid;
        file.bytes = part->content;
        file.contentType = part->contentType.isEmpty() ? QStringLiteral("application/octet-stream")
                                                       : part->contentType;
        file.filename = filename.value_or(part->filename.isEmpty() ? uuid : part->filename);
        files->append(file);
    }
    return true;
}

} // namespace

std::optional<Upload> read(const httplib::Request &req, httplib::Response &res)
{
    const std::optional<ZVXDevMultipart::Form> form = ZVXDevMultipart::read(req);
    const ZVXDevMultipart::Part *json = form ? form->part(QStringLiteral("message")) : nullptr;
    if (!json) {
        replyError(res, 400,
                   QStringLiteral("expected a well-formed multipart/form-data body with a part "
                                  "\"message\""));
        return std::nullopt;
    }
    const std::optional<QVariantMap> object = ZVXDevHttp::parseObject(json->content, res);
    if (!object)
        return std::nullopt;

    Upload upload;
    ZVXDevMessageRecord &message = upload.message;
    message.uuid = object->value(QStringLiteral("uuid")).toString();
    if (!isA(object->value(QStringLiteral("uuid")), QMetaType::QString)
        || !ZVXDevHttp::isIdentifier(message.uuid)) {
        replyError(res, 400,
                   QStringLiteral("\"uuid\" must be text of letters, digits, '.', '_' or '-'"));
        return std::nullopt;
    }
    std::optional<QString> sender;
    if (!ZVXDevHttp::readText(*object, QStringLiteral("sender"), &sender, res))
        return std::nullopt;
    if (sender.value_or(QStringLiteral("user")) != QLatin1String("user")) {
        replyError(res, 400, QStringLiteral("a user can only send messages as \"user\""));
        return std::nullopt;
    }
    message.sender = QStringLiteral("user");
    if (!ZVXDevHttp::readText(*object, QStringLiteral("text"), &message.text, res, MaxTextLength))
        return std::nullopt;
    QVariant location = object->value(QStringLiteral("location"));
    if (isA(location, QMetaType::Nullptr))
        location = QVariant();
    if (location.isValid() && !isA(location, QMetaType::QVariantMap)) {
        replyError(res, 400, QStringLiteral("\"location\" must be an object"));
        return std::nullopt;
    }
    if (location.isValid())
        message.location = location.toMap();
    message.context = object->value(QStringLiteral("context"));
    if (!readFiles(*form, object->value(QStringLiteral("attachments")), &upload.files, res))
        return std::nullopt;
    return upload;
}

} // namespace ZVXDevMessageUpload
