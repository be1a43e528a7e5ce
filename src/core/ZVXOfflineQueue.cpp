#include "ZVXOfflineQueue.h"

#include "ZVXClock.h"
#include "ZVXConversation.h"
#include "ZVXLocalization.h"
#include "ZVXLogging.h"
#include "ZVXMainThread.h"
#include "ZVXReachability.h"
#include "ZuveroApplication.h"
#include "Zuvero_p.h"

#include <QDirIterator>
#include <QStandardPaths>

using namespace std::chrono_literals;

namespace {

constexpr auto FinishNoticeDelay = 200ms;

// The conversation a chat screen would keep, for sends made without one.
ZVXConversation &backgroundConversation()
{
    static ZVXConversation conversation;
    return conversation;
}

} // namespace

ZVXOfflineQueue::ZVXOfflineQueue(Zuvero *facade)
    : q(facade)
{ }

QVariantMap ZVXOfflineQueue::cachedConversation() const
{
    return {{ZuveroCachedConversationMessagesKey, QVariant::fromValue(m_messages)},
            {ZuveroCachedConversationOfflineMessagesKey, QVariant::fromValue(m_offlineMessages)},
            {ZuveroCachedConversationHasMoreMessagesKey, m_hasMoreMessages}};
}

void ZVXOfflineQueue::saveCachedMessages(const ZuveroChatMessageList &messages,
                                         bool hasMoreMessages)
{
    m_messages = messages;
    m_hasMoreMessages = hasMoreMessages;
}

void ZVXOfflineQueue::reset()
{
    m_messages.clear();
    m_offlineMessages.clear();
    m_hasMoreMessages = false;
}

void ZVXOfflineQueue::addOfflineMessage(const ZuveroChatMessagePtr &message)
{
    message->setIsOffline(true);
    if (m_offlineMessages.contains(message))
        return;
    m_offlineMessages.append(message);
    ZuveroNotificationCenter::defaultCenter()->post(
        ZuveroChatDidAddOfflineMessageNotification, q,
        {{QStringLiteral("message"), QVariant::fromValue(message)}});
}

void ZVXOfflineQueue::sendOfflineMessages(bool fromLoop)
{
    if (!fromLoop && m_sending)
        return; // one pass at a time
    if (!ZVXReachability::checkNetworkIsReachable() || m_offlineMessages.isEmpty()) {
        m_sending = false;
        return;
    }
    m_sending = true;
    const ZuveroChatMessagePtr message = m_offlineMessages.first();
    const QPointer<Zuvero> facade(q);
    q->connection()->sendChatMessage(
        message,
        [this, facade, message](bool success, const ZuveroError &error) {
            if (!facade)
                return;
            if (success) {
                handleSendingSuccess(m_offlineMessages, message);
            } else if (m_remainingRetries != 0) {
                handleSendingFailure(message, error);
            } else {
                // Given up: marked errored, shown to the user, and out of the queue.
                message->setIsErrored(true);
                ZuveroApplication::sharedApplication()->showToast(
                    ZVXLocalization::hostString(QStringLiteral("Error")),
                    ZVXLocalization::hostString(QStringLiteral("Could not send the message")));
                handleSendingSuccess(m_offlineMessages, message);
            }
        },
        [facade, message](double upload, double download) {
            if (facade)
                ZuveroNotificationCenter::defaultCenter()->post(
                    ZuveroChatOfflineMessageUploadProgressNotification, facade,
                    {{QStringLiteral("message"), QVariant::fromValue(message)},
                     {QStringLiteral("uploadProgress"), upload},
                     {QStringLiteral("downloadProgress"), download}});
        });
}

void ZVXOfflineQueue::handleSendingSuccess(ZuveroChatMessageList queue,
                                           const ZuveroChatMessagePtr &message)
{
    // After any success the next failure gives its message up at once, deliberately.
    m_remainingRetries = 0;
    message->setIsOffline(false);
    // The queue as it is now, not as it was when the pass began: messages
    // added during the send stay queued.
    queue.removeOne(message);
    m_offlineMessages = queue;
    if (!m_offlineMessages.isEmpty())
        sendOfflineMessages(true);
    else
        finishPass(message);
}

void ZVXOfflineQueue::handleSendingFailure(const ZuveroChatMessagePtr &message,
                                           const ZuveroError &error)
{
    // Only the server's refusals count against the retries; transport failures wait for the
    // network.
    if (error.domain() == ZuveroErrorDomain && error.code() >= 400)
        --m_remainingRetries;
    finishPass(message);
}

void ZVXOfflineQueue::finishPass(const ZuveroChatMessagePtr &last)
{
    ZVXClock::after(FinishNoticeDelay, q, [this, last] {
        m_sending = false;
        ZuveroNotificationCenter::defaultCenter()->post(
            ZuveroChatDidFinishSendingOfflineMessagesNotification, q,
            {{QStringLiteral("message"), QVariant::fromValue(last)}});
    });
}

bool ZVXOfflineQueue::isChatScreenVisible() const
{
    return !ZuveroPrivate::get(q)->visibleChatViewControllers.isEmpty();
}

void ZVXOfflineQueue::postMessage(const QString &text, const Zuvero::Completion &completion)
{
    // The caller learns only that the text was accepted for delivery.
    if (completion)
        completion(true, {});

    // The background conversation starts from the cache, so that saving it keeps what was there.
    ZVXConversation &conversation = backgroundConversation();
    conversation.setMessages(
        ZVXConversation::combineExistingMessages(m_messages, m_offlineMessages));
    conversation.setHasMoreMessages(m_hasMoreMessages);

    const ZuveroChatMessagePtr message
        = ZuveroChatMessage::initWithText(text, ZuveroChatAttachmentPtr());
    const QPointer<Zuvero> facade(q);
    if (ZVXReachability::checkNetworkIsReachable() && m_offlineMessages.isEmpty()) {
        q->notifyChatDidSendMessageNotification();
        q->connection()->sendChatMessage(
            message, [this, facade, message](bool success, const ZuveroError &) {
                if (!facade)
                    return;
                ZVXConversation &conversation = backgroundConversation();
                message->setIsOffline(!success);
                if (!success) {
                    if (!isChatScreenVisible())
                        conversation.addMessages({message});
                    ZVXMainThread::async([this, message] { addOfflineMessage(message); }, facade);
                }
                saveCachedMessages(conversation.messagesToSave(), conversation.hasMoreMessages());
            });
        return;
    }
    // Offline, or older messages still wait: behind them, in the order of writing.
    message->setIsOffline(true);
    if (!isChatScreenVisible())
        conversation.addMessages(m_offlineMessages + ZuveroChatMessageList{message});
    ZVXMainThread::async([this, message] { addOfflineMessage(message); }, facade);
}

void ZVXOfflineQueue::cleanDiskCacheIfNeeded()
{
    const QString folder = QStandardPaths::writableLocation(QStandardPaths::CacheLocation);
    // No cache folder yet is not a fault: there is nothing to clean.
    if (!QFileInfo(folder).exists())
        return;
    if (!QFileInfo(folder).isReadable()) {
        ZVXLogError(QStringLiteral("Cannot access cache files: %1 is not readable").arg(folder));
        return;
    }
    QStringList stale;
    QDirIterator it(folder, QDir::Files | QDir::Dirs | QDir::NoDotAndDotDot | QDir::Hidden,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        const QString name = it.fileName();
        if (name.contains(QLatin1String("ZVXFileCache"))
            || name.contains(QLatin1String("ZVXCachedMessages-")))
            stale.append(path);
    }
    for (const QString &path : std::as_const(stale)) {
        const QFileInfo info(path);
        if (!info.exists())
            continue; // inside a folder removed before it
        const bool removed = info.isDir() ? QDir(path).removeRecursively() : QFile::remove(path);
        if (removed)
            ZVXLog(QStringLiteral("Cache file deleted : %1").arg(path));
        else
            ZVXLogError(QStringLiteral("Cannot remove cache file: %1").arg(path));
    }
}
