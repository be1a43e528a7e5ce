#include "ZVXDevDictionaries.h"

#include "ZuveroChatMessage.h"

#include <QDateTime>
#include <QUrl>

namespace ZVXDevDictionaries {

QVariantMap message(const ZVXDevMessageRecord &record, const QString &filesBase)
{
    ZuveroChatMessage message;
    message.setUuid(record.uuid);
    message.setSender(record.sender);
    message.setDate(QDateTime::fromMSecsSinceEpoch(record.dateMs, Qt::UTC));
    message.setText(record.text);
    message.setUserName(record.userName);
    message.setLocationDictionary(record.location);
    ZuveroChatAttachmentList attachments;
    for (const ZVXDevAttachmentRecord &file : record.attachments) {
        auto attachment = ZuveroChatAttachment::init();
        attachment->setUuid(file.uuid);
        attachment->setContentType(file.contentType);
        attachment->setFilename(file.filename);
        attachment->setLength(quint64(file.length));
        if (!file.imageSize.isEmpty())
            attachment->setImageSize(file.imageSize);
        attachment->setDataURL(QUrl(filesBase + QStringLiteral("/files/") + file.uuid));
        if (file.hasPreview)
            attachment->setPreviewURL(QUrl(filesBase + QStringLiteral("/previews/") + file.uuid));
        attachments.append(attachment);
    }
    message.setAttachments(attachments);
    return message.propertyList();
}

QVariantMap pushPayload(const ZVXDevMessageRecord &message, const ZVXDevUser &user,
                        const QString &installationId, int badge)
{
    static const QHash<QString, QString> senderCodes{
        {QStringLiteral("agent"), QStringLiteral("a")},
        {QStringLiteral("user"), QStringLiteral("u")},
        {QStringLiteral("system"), QStringLiteral("s")}};
    QVariantMap appData{
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
