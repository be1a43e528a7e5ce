#pragma once

#include "ZuveroAppearance.h"
#include "ZuveroChatViewItem.h"

#include <QList>
#include <QSet>

#include <functional>
#include <vector>

/*!
    Turns the conversation into the rows of the chat list, and moves the
    unsent label when the offline queue changes. Pure logic over the
    messages' fields: no view is involved, so a widget list and a QML one
    read the same rows.
*/
class ZUVERO_EXPORT ZVXChatRowBuilder
{
public:
    //! The printed text of a date: what a date row shows, and what decides that two are one.
    using DateText = std::function<QString(const QDateTime &)>;

    //! The text that \a formatter prints, as a DateText.
    static DateText dateText(const ZuveroDateFormatter &formatter);

    /*!
        The rows for \a messages (oldest first), starting with the
        load-more row when \a hasMoreMessages. Carries nothing over from an
        earlier build: the same input gives equal rows, with equal
        identities.
    */
    static QList<ZuveroChatViewItem> buildRows(const ZuveroChatMessageList &messages,
                                               bool hasMoreMessages, const DateText &dateText);

    /*!
        A build that can go on: the rows of the messages given so far, and
        what the rules of the next message look at. Appending to it gives
        the rows that one build of all the messages would give, so a long
        conversation that grows at its end costs only its new messages.
    */
    class ZUVERO_EXPORT Build
    {
    public:
        Build(bool hasMoreMessages, DateText dateText);

        void append(const ZuveroChatMessagePtr &message);
        //! The rows so far.
        QList<ZuveroChatViewItem> rows() const;
        bool hasMoreMessages() const { return m_hasMoreMessages; }
        //! How many messages were appended.
        qsizetype messageCount() const { return m_messages.size(); }
        /*!
            Whether \a messages are the messages built so far, still as they
            were built (the same objects, none gone offline or back), followed
            by any number of new ones: then appending those continues this build.
        */
        bool continuesWith(const ZuveroChatMessageList &messages) const;

    private:
        bool m_hasMoreMessages;
        DateText m_dateText;
        QList<ZuveroChatViewItem> m_rows;
        // The messages built, with what each said of itself then.
        ZuveroChatMessageList m_messages;
        std::vector<bool> m_offline;
        // The bubble that the next message's tail rule looks at.
        qsizetype m_previousItem = -1;
        ZuveroChatMessagePtr m_previousMessage;
        QDateTime m_previousMessageDate;
        QDateTime m_lastDateRowDate;
        std::optional<QString> m_lastDateRowText;
        int m_labels = 0;
        // Rows are named after their message and attachment: two of those with one uuid would
        // give two rows one name, and are then numbered.
        QSet<QString> m_uuids;
        bool m_clash = false;
    };

    //! What updateWithOfflineMessages() did to the rows.
    struct UnsentLabelChange
    {
        enum class Kind { None, Move, Remove, Insert };

        Kind kind = Kind::None;
        //! Move: the label's row before and after the move.
        int from = -1;
        int to = -1;
        //! Remove: the label's old row; Insert: its new row.
        int at = -1;
        //! The rows after the change (the rows given, for None).
        QList<ZuveroChatViewItem> rows;
        //! The messages whose isOffline() this update turned on, in row order.
        ZuveroChatMessageList markedOffline;
    };

    /*!
        Keeps the unsent label in step with the messages now in the offline
        queue, \a offlineMessages (compared with ZuveroChatMessage::isEqual),
        without a rebuild: the one label of \a rows moves to the first
        offline text row, goes when the queue is empty, or is inserted when
        there was none. Turns isOffline() on for the messages of offline
        text rows; it never turns it off.

        The positions follow the list view this replaced, quirks included:
        the label is put back at the offline row's index taken before the
        label was removed (one row lower when the label stood above it),
        and not at all when that index is not below the shortened row count
        minus one.
    */
    static UnsentLabelChange
    updateWithOfflineMessages(const QList<ZuveroChatViewItem> &rows,
                              const ZuveroChatMessageList &offlineMessages);
};
