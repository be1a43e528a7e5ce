#pragma once

#include "ZVXConversation.h"
#include "ZVXOfflineStore.h"
#include "ZuveroConnection.h"

#include <QObject>

/*!
    What the offline queue needs from its facade: a way to send, whether the
    network and a chat screen are there, and a voice to tell the host and
    the user what happened.
*/
class ZVXOfflineQueueAPI
{
public:
    virtual ~ZVXOfflineQueueAPI() = default;

    //! The facade's own reachability monitor says the network can be reached.
    virtual bool isNetworkReachable() const = 0;
    virtual bool isChatScreenVisible() const = 0;
    //! The connection's send, with its completion and progress on the main thread.
    virtual void sendChatMessage(const ZuveroChatMessagePtr &message,
                                 ZuveroConnection::Completion completion,
                                 ZuveroConnection::Progress progress)
        = 0;
    //! Posts \a name with the facade as its object.
    virtual void post(const QString &name, const QVariantMap &userInfo) = 0;
    //! The did-send event: the notification, then the delegate.
    virtual void notifyChatDidSendMessage() = 0;
    //! A notice that closes by itself after \a seconds.
    virtual void showToast(const QString &title, const QString &text, double seconds) = 0;
};

/*!
    The conversation as last shown and the queue of messages waiting to be
    sent, both in memory for the life of the facade, and the send pass that
    empties the queue oldest first. Nothing given to it is dropped: a
    message is sent, stays queued, or is marked errored and announced.
*/
class ZVXOfflineQueue : public QObject
{
    Q_OBJECT

public:
    //! How many server refusals the first sends may meet before a message is given up.
    static constexpr qint32 InitialRetries = 3;

    explicit ZVXOfflineQueue(ZVXOfflineQueueAPI *facade);

    QVariantMap cachedConversation() const;
    void saveCachedMessages(const ZuveroChatMessageList &messages, bool hasMoreMessages);
    ZuveroChatMessageList offlineMessages() const { return m_offlineMessages; }
    void saveOfflineMessages(const ZuveroChatMessageList &messages);
    //! Forgets the conversation and the queue: they belonged to the previous identity.
    void reset();
    /*!
        Keeps the queue in \a store from now on, or in memory only without
        one. The messages the store holds join the queue (each announced as
        added) and the queue is written back whole.
    */
    void setStore(const std::optional<ZVXOfflineStore> &store);

    void addOfflineMessage(const ZuveroChatMessagePtr &message);
    bool isSending() const { return m_sending; }
    qint32 remainingRetries() const { return m_remainingRetries; }
    //! Starts a pass, unless one runs (\a fromLoop: the pass goes on with its next message).
    void sendOfflineMessages(bool fromLoop);
    //! Starts a pass when the network is there, messages wait and none runs (after a
    //! registration).
    void sendOfflineMessagesIfWaiting();
    //! The network changed: when it is back and messages wait, a pass starts a second later.
    void reachabilityDidChange();

    void postMessage(const QString &text, const ZuveroConnection::Completion &completion);

    //! Removes the cache files that older releases left in the user's cache folder.
    static void cleanDiskCacheIfNeeded();

private:
    void handleSendingSuccess(ZuveroChatMessageList queue, const ZuveroChatMessagePtr &message);
    void handleSendingFailure(const ZuveroChatMessagePtr &message, const ZuveroError &error);
    void finishPass(const ZuveroChatMessagePtr &last);
    //! Writes what waits to the store, if there is one.
    void persist();

    ZVXOfflineQueueAPI *m_facade;
    ZuveroChatMessageList m_messages;
    bool m_hasMoreMessages = false;
    ZuveroChatMessageList m_offlineMessages;
    bool m_sending = false;
    qint32 m_remainingRetries = InitialRetries;
    // The conversation a chat screen would keep, for texts sent without one.
    ZVXConversation m_backgroundConversation;
    std::optional<ZVXOfflineStore> m_store;
    // Texts accepted by postMessage() that are neither acknowledged nor queued yet: kept in the
    // store with the queue.
    ZuveroChatMessageList m_accepted;
};
