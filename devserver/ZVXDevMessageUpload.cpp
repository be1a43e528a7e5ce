#include "ZVXDevMessageUpload.h"

#include "ZVXDevHttp.h"
#include "ZVXDevJSON.h"

#include <QJsonArray>
#include <QSet>

using ZVXDevHttp::replyError;

namespace ZVXDevMessageUpload {

namespace {

// The attachments listed in the message, each with its file part.
bool readFiles(const ZVXDevMultipart::Form &form, const QJsonValue &listed,
               QList<ZVXDevConversations::Upload> *files, httplib::Response &res)
{
    if (listed.isUndefined())
        return true;
    if (!listed.isArray()) {
        replyError(res, 400, QStringLiteral("\"attachments\" must be an array"));
        return false;
    }
    const QJsonArray list = listed.toArray();
    if (list.size() > MaxAttachments) {
        replyError(res, 400, QStringLiteral("more than %1 attachments").arg(MaxAttachments));
        return false;
    }
    QSet<QString> seen;
    for (const QJsonValue entry : list) {
        const QJsonObject object = entry.toObject();
        const QString uuid = object.value(QStringLiteral("uuid")).toString();
        if (!entry.isObject() || !ZVXDevHttp::isIdentifier(uuid) || seen.contains(uuid)) {
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

std::optional<Upload> read(const std::optional<ZVXDevMultipart::Form> &form, httplib::Response &res)
{
    const ZVXDevMultipart::Part *json = form ? form->part(QStringLiteral("message")) : nullptr;
    if (!json) {
        replyError(res, 400,
                   QStringLiteral("expected a well-formed multipart/form-data body with a part "
                                  "\"message\""));
        return std::nullopt;
    }
    const std::optional<QJsonObject> object = ZVXDevHttp::parseObject(json->content, res);
    if (!object)
        return std::nullopt;

    Upload upload;
    ZVXDevMessageRecord &message = upload.message;
    message.uuid = object->value(QStringLiteral("uuid")).toString();
    if (!object->value(QStringLiteral("uuid")).isString()
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
    const QJsonValue location = object->value(QStringLiteral("location"));
    if (!location.isUndefined() && !location.isNull() && !location.isObject()) {
        replyError(res, 400, QStringLiteral("\"location\" must be an object"));
        return std::nullopt;
    }
    if (location.isObject())
        message.location = location.toObject();
    message.context = object->value(QStringLiteral("context"));
    if (!readFiles(*form, object->value(QStringLiteral("attachments")), &upload.files, res))
        return std::nullopt;
    return upload;
}

std::optional<QString> namedUUID(const std::optional<ZVXDevMultipart::Form> &form)
{
    const ZVXDevMultipart::Part *json = form ? form->part(QStringLiteral("message")) : nullptr;
    if (!json || json->content.size() > ZVXDevHttp::MaxJSONBody)
        return std::nullopt;
    const QJsonValue uuid = ZVXDevJSON::parseObject(json->content)
                                .value_or(QJsonObject())
                                .value(QStringLiteral("uuid"));
    if (!uuid.isString())
        return std::nullopt;
    return uuid.toString();
}

} // namespace ZVXDevMessageUpload
