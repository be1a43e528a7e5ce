#pragma once

#include "ZuveroChatViewItem.h"

#include <QList>

/*!
    The few steps that turn one list of row identities into another, for a
    list model that must say what changed rather than reset.

    Rows whose identities are in both lists and already in order stay (the
    longest such run, found as a longest increasing subsequence: exact,
    since identities are unique within a list); the others are removed,
    moved or inserted. Common ends are matched first, so appending to or
    prepending before a long list costs one pass over it.
*/
class ZUVERO_EXPORT ZVXChatRowDiff
{
public:
    using Identity = ZuveroChatViewItem::Identity;

    struct Step
    {
        enum class Kind { Remove, Move, Insert };

        Kind kind;
        //! Remove and Insert: the first row; Move: the row before the move.
        int row;
        //! Remove and Insert: how many rows.
        int count;
        //! Move: the row after the move.
        int to;

        friend bool operator==(const Step &, const Step &) = default;
    };

    /*!
        Steps that, applied in order to \a from, give \a to: removals from
        the last row back, then moves one row at a time, then insertions from
        the first row on, each inserting the rows of \a to at that place.
        An identity that comes twice in a list is matched once; its other
        copies are removed and inserted.
    */
    static QList<Step> steps(const QList<Identity> &from, const QList<Identity> &to);
    //! The same, over the identities of rows.
    static QList<Step> steps(const QList<ZuveroChatViewItem> &from,
                             const QList<ZuveroChatViewItem> &to);
};
