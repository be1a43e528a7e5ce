#include "ZVXOfflineStore.h"

#include "ZVXClock.h"
#include "ZVXJSON.h"
#include "ZVXLogging.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

namespace {

constexpr int FormatVersion = 1;
const QString VersionKey = QStringLiteral("version");
const QString HostnameKey = QStringLiteral("hostname");
const QString UserKey = QStringLiteral("userIdentifier");
const QString MessagesKey = QStringLiteral("messages");
const QString MessageKey = QStringLiteral("message");
//! Attachment identifier to Base64 of its bytes: the dictionary form has no place for them.
const QString FilesKey = QStringLiteral("files");

constexpr QFileDevice::Permissions OwnerOnly = QFileDevice::ReadOwner | QFileDevice::WriteOwner;

} // namespace

ZVXOfflineStore::ZVXOfflineStore(const QString &folder, const QString &hostname,
                                 const std::optional<QString> &userIdentifier)
    : m_hostname(hostname)
    , m_userIdentifier(userIdentifier.value_or(QString()))
{
    // The names are hashed: they may hold anything, and the file name need not show them.
    const QByteArray identity = hostname.toUtf8() + '\n'
        + (userIdentifier ? QByteArray("u:") + userIdentifier->toUtf8() : QByteArray("-"));
    const QByteArray digest = QCryptographicHash::hash(identity, QCryptographicHash::Sha256);
    m_path = QDir(folder).filePath(
        QStringLiteral("offline-%1.json").arg(QString::fromLatin1(digest.toHex().left(24))));
}

ZuveroChatMessageList ZVXOfflineStore::load() const
{
    QFile file(m_path);
    if (!file.exists())
        return {};
    QString problem;
    std::optional<QVariant> document;
    if (!file.open(QIODevice::ReadOnly)) {
        problem = file.errorString();
    } else {
        ZuveroError error;
        document = ZVXJSON::parse(file.readAll(), &error);
        file.close();
        if (!document)
            problem = error.localizedDescription();
        else if (document->toMap().value(VersionKey).toInt() != FormatVersion)
            problem = QStringLiteral("format %1 is not %2")
                          .arg(ZVXJSON::describe(document->toMap().value(VersionKey)))
                          .arg(FormatVersion);
    }
    if (!problem.isEmpty()) {
        // Kept for whoever can read it: messages the user wrote are never thrown away.
        const QString aside = m_path + QStringLiteral(".unreadable-")
            + QString::number(ZVXClock::currentTime().toSecsSinceEpoch());
        QFile::rename(m_path, aside);
        ZVXLogError(QStringLiteral("ZVXOfflineStore: cannot read %1 (%2); set aside as %3")
                        .arg(m_path, problem, aside));
        return {};
    }

    ZuveroChatMessageList messages;
    for (const QVariant &entry : document->toMap().value(MessagesKey).toList()) {
        const QVariantMap stored = entry.toMap();
        const ZuveroChatMessagePtr message
            = ZuveroChatMessage::initWithPropertyList(stored.value(MessageKey));
        if (!message)
            continue; // logged by the message
        const QVariantMap files = stored.value(FilesKey).toMap();
        for (const ZuveroChatAttachmentPtr &attachment :
             message->attachments().value_or(ZuveroChatAttachmentList())) {
            const QVariant bytes = files.value(attachment->uuid());
            if (bytes.metaType().id() == QMetaType::QString)
                attachment->setData(QByteArray::fromBase64(bytes.toString().toLatin1()));
        }
        message->setIsOffline(true);
        messages.append(message);
    }
    return messages;
}

bool ZVXOfflineStore::save(const ZuveroChatMessageList &messages) const
{
    if (messages.isEmpty()) {
        if (QFile::exists(m_path) && !QFile::remove(m_path)) {
            ZVXLogError(QStringLiteral("ZVXOfflineStore: cannot remove %1").arg(m_path));
            return false;
        }
        return true;
    }
    QVariantList entries;
    for (const ZuveroChatMessagePtr &message : messages) {
        QVariantMap files;
        for (const ZuveroChatAttachmentPtr &attachment :
             message->attachments().value_or(ZuveroChatAttachmentList())) {
            if (attachment->data())
                files.insert(attachment->uuid(),
                             QString::fromLatin1(attachment->data()->toBase64()));
        }
        QVariantMap entry{{MessageKey, message->propertyList()}};
        if (!files.isEmpty())
            entry.insert(FilesKey, files);
        entries.append(entry);
    }
    ZuveroError error;
    const std::optional<QByteArray> json
        = ZVXJSON::serialize(QVariantMap{{VersionKey, FormatVersion},
                                         {HostnameKey, m_hostname},
                                         {UserKey, m_userIdentifier},
                                         {MessagesKey, entries}},
                             &error);
    QString problem = error.localizedDescription();
    const QString folder = QFileInfo(m_path).absolutePath();
    if (json) {
        QSaveFile file(m_path);
        // A folder made here is the owner's only; a folder the host chose keeps its own modes.
        const bool made = !QFileInfo::exists(folder);
        if (made && !QDir().mkpath(folder)) {
            problem = QStringLiteral("cannot make the folder");
        } else {
            if (made)
                QFile(folder).setPermissions(OwnerOnly | QFileDevice::ExeOwner);
            if (file.open(QIODevice::WriteOnly) && file.setPermissions(OwnerOnly)
                && file.write(*json) == json->size() && file.commit())
                return true;
            problem = file.errorString();
        }
    }
    ZVXLogError(QStringLiteral("ZVXOfflineStore: cannot write %1: %2").arg(m_path, problem));
    return false;
}
