#pragma once

#include "ZuveroAppearance.h"
#include "ZuveroChatViewItem.h"

#include <QList>

#include <functional>

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
