#include "ZVXDevDictionaries.h"

#include <QHash>
#include <QJsonArray>

namespace ZVXDevDictionaries {

namespace {

QJsonObject attachment(const ZVXDevAttachmentRecord &file, const QString &filesBase)
{
    QJsonObject attachment{
        {QStringLiteral("uuid"), file.uuid},
        {QStringLiteral("contentType"), file.contentType},
        {QStringLiteral("filename"), file.filename},
        {QStringLiteral("dataURL"), filesBase + QStringLiteral("/files/") + file.uuid},
    };
    // Clients take 0 for unknown: an empty file goes without one.
    if (file.length > 0)
        attachment.insert(QStringLiteral("length"), file.length);
    if (file.hasPreview)
        attachment.insert(QStringLiteral("previewURL"),
                          filesBase + QStringLiteral("/previews/") + file.uuid);
    if (!file.imageSize.isEmpty())
        attachment.insert(QStringLiteral("imageSize"),
                          QJsonArray{file.imageSize.width(), file.imageSize.height()});
    return attachment;
}

} // namespace

QJsonObject message(const ZVXDevMessageRecord &record, const QString &filesBase)
{
    QJsonObject message{
        {QStringLiteral("uuid"), record.uuid},
        {QStringLiteral("sender"), record.sender},
        // Whole seconds: clients write dates back so, and page by them.
        {QStringLiteral("date"), record.dateMs / 1000},
    };
    if (record.text)
        message.insert(QStringLiteral("text"), *record.text);
    if (record.userName)
        message.insert(QStringLiteral("userName"), *record.userName);
    if (record.location)
        message.insert(QStringLiteral("location"), *record.location);
    if (!record.attachments.isEmpty()) {
        QJsonArray attachments;
        for (const ZVXDevAttachmentRecord &file : record.attachments)
            attachments.append(attachment(file, filesBase));
        message.insert(QStringLiteral("attachments"), attachments);
    }
    return message;
}

QJsonObject pushPayload(const ZVXDevMessageRecord &message, const ZVXDevUser &user,
                        const QString &installationId, int badge)
{
    static const QHash<QString, QString> senderCodes{
        {QStringLiteral("agent"), QStringLiteral("a")},
        {QStringLiteral("user"), QStringLiteral("u")},
        {QStringLiteral("system"), QStringLiteral("s")}};
    QJsonObject appData{
        {QStringLiteral("zuvero"), QStringLiteral("1.0")},
        {QStringLiteral("t"), QStringLiteral("m")},
        {QStringLiteral("uuid"), message.uuid},
        {QStringLiteral("s"), senderCodes.value(message.sender, QStringLiteral("a"))},
        // Seconds with their fraction: the client keeps it.
        {QStringLiteral("d"), double(message.dateMs) / 1000.0},
        {QStringLiteral("i"), installationId},
    };
    if (user.userId)
        appData.insert(QStringLiteral("uid"), *user.userId);
    if (!message.attachments.isEmpty())
        appData.insert(QStringLiteral("a"), true);
    if (message.location)
        appData.insert(QStringLiteral("l"), *message.location);

    QString alert = message.text.value_or(QString());
    if (alert.size() > PushTextLength) {
        qsizetype cut = PushTextLength - 1;
        if (alert.at(cut - 1).isHighSurrogate())
            --cut;
        alert = alert.left(cut) + QChar(0x2026);
        appData.insert(QStringLiteral("tr"), true);
    }
    return {{QStringLiteral("appdata"), appData},
            {QStringLiteral("alert"), alert},
            {QStringLiteral("badge"), badge}};
}

} // namespace ZVXDevDictionaries
