#pragma once

#include "Zuvero.h"

/*!
    The conversation as last shown and the queue of messages waiting to be
    sent, both in memory for the life of the process, and the send pass that
    empties the queue oldest first. Nothing given to it is dropped: a
    message is sent, stays queued, or is marked errored and announced.
*/
class ZVXOfflineQueue
{
public:
    //! How many server refusals the first sends may meet before a message is given up.
    static constexpr qint32 InitialRetries = 3;

    explicit ZVXOfflineQueue(Zuvero *facade);

    QVariantMap cachedConversation() const;
    void saveCachedMessages(const ZuveroChatMessageList &messages, bool hasMoreMessages);
    ZuveroChatMessageList offlineMessages() const { return m_offlineMessages; }
    void saveOfflineMessages(const ZuveroChatMessageList &messages)
    {
        m_offlineMessages = messages;
    }
    void reset();

    void addOfflineMessage(const ZuveroChatMessagePtr &message);
    bool isSending() const { return m_sending; }
    qint32 remainingRetries() const { return m_remainingRetries; }
    void sendOfflineMessages(bool fromLoop);

    void postMessage(const QString &text, const Zuvero::Completion &completion);

    static void cleanDiskCacheIfNeeded();

private:
    void handleSendingSuccess(ZuveroChatMessageList queue, const ZuveroChatMessagePtr &message);
    void handleSendingFailure(const ZuveroChatMessagePtr &message, const ZuveroError &error);
    void finishPass(const ZuveroChatMessagePtr &last);
    bool isChatScreenVisible() const;

    Zuvero *q;
    ZuveroChatMessageList m_messages;
    bool m_hasMoreMessages = false;
    ZuveroChatMessageList m_offlineMessages;
    bool m_sending = false;
    qint32 m_remainingRetries = InitialRetries;
};
