#include "ZVXOfflineQueue.h"

#include "ZVXClock.h"
#include "ZVXLocalization.h"
#include "ZVXLogging.h"
#include "ZVXMainThread.h"
#include "Zuvero.h"

#include <QDirIterator>
#include <QPointer>
#include <QSet>
#include <QStandardPaths>

using namespace std::chrono_literals;

namespace {

constexpr auto FinishNoticeDelay = 200ms;
// The network's return is followed by a pass this much later.
constexpr auto NetworkReturnDelay = 1s;
// A message given up is announced briefly: the chat shows it as errored for good.
constexpr double GiveUpNoticeSeconds = 3;

} // namespace

ZVXOfflineQueue::ZVXOfflineQueue(ZVXOfflineQueueAPI *facade)
    : m_facade(facade)
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

void ZVXOfflineQueue::saveOfflineMessages(const ZuveroChatMessageList &messages)
{
    m_offlineMessages = messages;
    persist();
}

void ZVXOfflineQueue::persist()
{
    if (m_store)
        m_store->save(m_accepted + m_offlineMessages);
}

void ZVXOfflineQueue::setStore(const std::optional<ZVXOfflineStore> &store)
{
    m_store = store;
    if (!m_store)
        return;
    QSet<QString> queued;
    for (const ZuveroChatMessagePtr &message : m_accepted + m_offlineMessages)
        queued.insert(message->uuid());
    ZuveroChatMessageList restored;
    for (const ZuveroChatMessagePtr &message : m_store->load()) {
        if (!queued.contains(message->uuid()))
            restored.append(message);
    }
    // What was kept waited longer than what this process queued: it goes first.
    saveOfflineMessages(restored + m_offlineMessages);
    for (const ZuveroChatMessagePtr &message : std::as_const(restored))
        m_facade->post(ZuveroChatDidAddOfflineMessageNotification,
                       {{QStringLiteral("message"), QVariant::fromValue(message)}});
}

void ZVXOfflineQueue::reset()
{
    m_messages.clear();
    m_offlineMessages.clear();
    m_accepted.clear();
    m_hasMoreMessages = false;
    m_backgroundConversation = ZVXConversation();
    // The file stays: it is the previous identity's, for when it comes back.
    m_store.reset();
}

void ZVXOfflineQueue::addOfflineMessage(const ZuveroChatMessagePtr &message)
{
    message->setIsOffline(true);
    m_accepted.removeOne(message); // it is kept as a queued one now
    if (m_offlineMessages.contains(message))
        return persist();
    saveOfflineMessages(m_offlineMessages + ZuveroChatMessageList{message});
    m_facade->post(ZuveroChatDidAddOfflineMessageNotification,
                   {{QStringLiteral("message"), QVariant::fromValue(message)}});
}

void ZVXOfflineQueue::sendOfflineMessages(bool fromLoop)
{
    if (!fromLoop && m_sending)
        return; // one pass at a time
    if (!m_facade->isNetworkReachable() || m_offlineMessages.isEmpty()) {
        m_sending = false;
        return;
    }
    m_sending = true;
    const ZuveroChatMessagePtr message = m_offlineMessages.first();
    const QPointer<ZVXOfflineQueue> self(this);
    m_facade->sendChatMessage(
        message,
        [self, message](bool success, const ZuveroError &error) {
            if (!self)
                return;
            if (success) {
                self->handleSendingSuccess(self->m_offlineMessages, message);
            } else if (self->m_remainingRetries != 0) {
                self->handleSendingFailure(message, error);
            } else {
                // Given up: marked errored, shown to the user, and out of the queue.
                message->setIsErrored(true);
                self->m_facade->showToast(
                    ZVXLocalization::localizeString(QStringLiteral("zuveroErrorTitle"),
                                                    QStringLiteral("Error")),
                    ZVXLocalization::localizeString(QStringLiteral("zuveroSendFailedMessage"),
                                                    QStringLiteral("Could not send the message")),
                    GiveUpNoticeSeconds);
                self->handleSendingSuccess(self->m_offlineMessages, message);
            }
        },
        [self, message](double upload, double download) {
            if (self)
                self->m_facade->post(ZuveroChatOfflineMessageUploadProgressNotification,
                                     {{QStringLiteral("message"), QVariant::fromValue(message)},
                                      {QStringLiteral("uploadProgress"), upload},
                                      {QStringLiteral("downloadProgress"), download}});
        });
}

void ZVXOfflineQueue::sendOfflineMessagesIfWaiting()
{
    if (m_facade->isNetworkReachable() && !m_offlineMessages.isEmpty() && !m_sending)
        sendOfflineMessages(false);
}

void ZVXOfflineQueue::reachabilityDidChange()
{
    if (!m_facade->isNetworkReachable() || m_offlineMessages.isEmpty() || m_sending)
        return;
    ZVXClock::after(NetworkReturnDelay, this, [this] { sendOfflineMessages(false); });
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
    saveOfflineMessages(queue);
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
    if (error.domain() == ZuveroErrorDomain && error.code() >= ZuveroErrorFirstServerRefusal)
        --m_remainingRetries;
    finishPass(message);
}

void ZVXOfflineQueue::finishPass(const ZuveroChatMessagePtr &last)
{
    ZVXClock::after(FinishNoticeDelay, this, [this, last] {
        m_sending = false;
        m_facade->post(ZuveroChatDidFinishSendingOfflineMessagesNotification,
                       {{QStringLiteral("message"), QVariant::fromValue(last)}});
    });
}

void ZVXOfflineQueue::postMessage(const QString &text,
                                  const ZuveroConnection::Completion &completion)
{
    // The caller learns only that the text was accepted for delivery.
    if (completion)
        completion(true, {});

    // The background conversation starts from the cache, so that saving it keeps what was there.
    m_backgroundConversation.setMessages(
        ZVXConversation::combineExistingMessages(m_messages, m_offlineMessages));
    m_backgroundConversation.setHasMoreMessages(m_hasMoreMessages);

    const ZuveroChatMessagePtr message
        = ZuveroChatMessage::initWithText(text, ZuveroChatAttachmentPtr());
    // Kept with the queue from now until the server has it or it is queued, so that a process
    // that ends meanwhile still finds it.
    m_accepted.append(message);
    persist();
    const QPointer<ZVXOfflineQueue> self(this);
    if (m_facade->isNetworkReachable() && m_offlineMessages.isEmpty()) {
        m_facade->notifyChatDidSendMessage();
        m_facade->sendChatMessage(
            message,
            [self, message](bool success, const ZuveroError &) {
                if (!self)
                    return;
                message->setIsOffline(!success);
                if (success && self->m_accepted.removeOne(message))
                    self->persist();
                if (!success) {
                    if (!self->m_facade->isChatScreenVisible())
                        self->m_backgroundConversation.addMessages({message});
                    ZVXMainThread::async([self, message] { self->addOfflineMessage(message); },
                                         self);
                }
                self->saveCachedMessages(self->m_backgroundConversation.messagesToSave(),
                                         self->m_backgroundConversation.hasMoreMessages());
            },
            {});
        return;
    }
    // Offline, or older messages still wait: behind them, in the order of writing.
    message->setIsOffline(true);
    if (!m_facade->isChatScreenVisible())
        m_backgroundConversation.addMessages(m_offlineMessages + ZuveroChatMessageList{message});
    ZVXMainThread::async([this, message] { addOfflineMessage(message); }, this);
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
