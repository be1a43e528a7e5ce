#pragma once

#include "ZuveroChatMessage.h"

#include <QDateTime>
#include <QObject>
#include <QPointer>
#include <QStringList>

#include <optional>

class Zuvero;

/*!
    Tells the server which agent and system messages the user has seen.

    A chat list calls markAsRead() for each message whose bubble comes on
    screen. Marks are collected and sent in one request one second after the
    last new one; one wait is shared by every chat list of the process, so a
    mark anywhere restarts it. The uuids the server confirmed (the newest
    100) and the time of the last confirmation are kept in the standard
    user defaults, so that no message is reported twice across restarts and
    none much older than the last report is reported at all. Marks not yet
    confirmed live as long as this object; a failed report keeps them for
    the next one, which the next new mark triggers.

    Main thread only.
*/
class ZUVERO_EXPORT ZVXReadMarking : public QObject
{
    Q_OBJECT

public:
    explicit ZVXReadMarking(QObject *parent = nullptr);
    ~ZVXReadMarking() override;

    //! The facade told of each new mark and whose connection reports them (not owned).
    Zuvero *apiInstance() const;
    void setApiInstance(Zuvero *instance);

    /*!
        \a message was seen. Ignored for the user's own messages, for those
        more than 30 days older than lastMarkAsReadDate() (with a warning in
        the log), and for those already waiting or confirmed.
    */
    void markAsRead(const ZuveroChatMessagePtr &message);
    //! Sends the marks waiting, if any; the one-second wait calls it.
    void dispatchMarkAsRead();

    //! When the server last confirmed marks; the start of 1970 before the first time.
    QDateTime lastMarkAsReadDate() const;
    //! Stores \a date; an invalid one is ignored.
    void setLastMarkAsReadDate(const QDateTime &date);

private:
    const QStringList &markedAsReadUUIDs();

    // The facade as the chat list has it, weakly: both calls go to it (its hook and its
    // connection), a host may replace or delete it while marks wait, and an interface of our
    // own would only forward those two calls.
    QPointer<Zuvero> m_apiInstance;
    ZuveroChatMessageList m_pendingReadMessages;
    // Loaded on first use and again after each confirmation, when another list may have
    // stored its own.
    std::optional<QStringList> m_markedAsReadUUIDs;
    mutable std::optional<QDateTime> m_lastMarkAsReadDate;
};
