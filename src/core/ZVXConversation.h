#pragma once

#include "ZuveroChatMessage.h"

using ZuveroChatMessageList = QList<ZuveroChatMessagePtr>;

/*!
    The conversation as a chat screen keeps it: the messages shown (server
    confirmed or written here), the ones still waiting to be sent, whether
    older ones exist, and the synthetic welcome message. It owns the rule by
    which every download and every sent message is merged into the lists.
*/
class ZUVERO_EXPORT ZVXConversation
{
public:
    /*!
        \a newMessages merged into \a existing: one message per identifier,
        the new copy winning, ordered by date. On equal dates new messages
        keep their own order and existing ones come before new ones.
        Messages without an identifier share one (the empty text), so only
        one of them survives. Runs in O(n log n).
    */
    static ZuveroChatMessageList combineExistingMessages(const ZuveroChatMessageList &existing,
                                                         const ZuveroChatMessageList &newMessages);
    //! \a existing, in order, without the messages whose identifiers \a deleted holds.
    static ZuveroChatMessageList
    combineExistingMessagesWithDeletedMessages(const ZuveroChatMessageList &existing,
                                               const ZuveroChatMessageList &deleted);

    //! The most messages a saved conversation keeps: the newest.
    static constexpr qsizetype SavedMessagesLimit = 100;

    ZuveroChatMessageList messages() const { return m_messages; }
    void setMessages(const ZuveroChatMessageList &messages) { m_messages = messages; }
    ZuveroChatMessageList offlineMessages() const { return m_offlineMessages; }
    void setOfflineMessages(const ZuveroChatMessageList &messages) { m_offlineMessages = messages; }
    bool hasMoreMessages() const { return m_hasMoreMessages; }
    void setHasMoreMessages(bool hasMore) { m_hasMoreMessages = hasMore; }
    ZuveroChatMessagePtr welcomeMessage() const { return m_welcomeMessage; }
    void setWelcomeMessage(const ZuveroChatMessagePtr &message) { m_welcomeMessage = message; }

    //! Merges \a messages into the shown ones.
    void addMessages(const ZuveroChatMessageList &messages);

    //! What to save: the newest messages up to the limit, without the welcome message.
    ZuveroChatMessageList messagesToSave() const;

private:
    ZuveroChatMessageList m_messages;
    ZuveroChatMessageList m_offlineMessages;
    bool m_hasMoreMessages = false;
    ZuveroChatMessagePtr m_welcomeMessage;
};
