#include "ZVXDevConversations.h"

#include "ZVXDevDictionaries.h"
#include "ZVXDevFiles.h"
#include "ZVXDevPushHub.h"

ZVXDevConversations::ZVXDevConversations(ZVXDevStorage &storage, ZVXDevFiles &files,
                                         ZVXDevPushHub &push)
    : m_storage(storage)
    , m_files(files)
    , m_push(push)
{ }

std::optional<ZVXDevStorage::Insert> ZVXDevConversations::post(ZVXDevMessageRecord message,
                                                               const QList<Upload> &uploads)
{
    QList<ZVXDevFiles::Staged> staged;
    const auto discardAll = [&] {
        for (const ZVXDevFiles::Staged &file : std::as_const(staged))
            m_files.discard(file);
    };
    message.attachments.clear();
    for (const Upload &upload : uploads) {
        const std::optional<ZVXDevFiles::Staged> file
            = m_files.stage(upload.uuid, upload.bytes, upload.contentType);
        if (!file) {
            discardAll();
            return std::nullopt;
        }
        staged.append(*file);
        ZVXDevAttachmentRecord attachment;
        attachment.uuid = upload.uuid;
        attachment.contentType = upload.contentType;
        attachment.filename = upload.filename;
        attachment.length = upload.bytes.size();
        attachment.imageSize = file->imageSize;
        attachment.hasPreview = !file->previewPath.isEmpty();
        attachment.user = message.user;
        message.attachments.append(attachment);
    }

    const ZVXDevStorage::Insert result = m_storage.insertMessage(message, [&] {
        for (const ZVXDevFiles::Staged &file : std::as_const(staged)) {
            if (!m_files.commit(file))
                return false;
        }
        return true;
    });
    if (result != ZVXDevStorage::Insert::Stored) {
        discardAll();
        return result;
    }
    if (message.sender == QLatin1String("user")) {
        if (m_userMessageObserver)
            m_userMessageObserver(message);
    } else {
        pushToDevices(message);
    }
    return result;
}

void ZVXDevConversations::pushToDevices(const ZVXDevMessageRecord &message)
{
    const std::optional<ZVXDevUser> user = m_storage.user(message.user);
    if (!user)
        return;
    const int badge = m_storage.unreadCount(message.user);
    m_push.publish(message.user, [&](const QString &installationId) {
        return ZVXDevDictionaries::pushPayload(message, *user, installationId, badge);
    });
}
