#pragma once

#include "ZuveroChatMessage.h"
#include "ZuveroError.h"

#include <QDateTime>
#include <QObject>

#include <functional>
#include <limits>
#include <memory>
#include <optional>

//! The count reported when none could be read.
inline constexpr qint64 ZuveroNotFound = std::numeric_limits<qint64>::max();

class ZVXConnectionAPI;
class ZuveroConnectionPrivate;

/*!
    The one client of the chat server. Every call registers first when
    needed, sends one HTTPS request and reports exactly once through its
    completion, on the main thread. Calls must be made on the main thread.

    The facade creates the connection and owns it; a host reaches it through
    Zuvero::connection().
*/
class ZUVERO_EXPORT ZuveroConnection : public QObject
{
    Q_OBJECT

public:
    using Completion = std::function<void(bool success, const ZuveroError &error)>;
    using CountCompletion = std::function<void(qint64 count, const ZuveroError &error)>;
    using MessagesCompletion
        = std::function<void(const std::optional<ZuveroChatMessageList> &messages,
                             bool moreMessages, const ZuveroError &error)>;
    //! Upload and download fractions, 0 to 1.
    using Progress = std::function<void(double upload, double download)>;

    //! A connection reading its settings from \a api, which it does not own.
    static ZuveroConnection *initWithAPI(ZVXConnectionAPI *api, QObject *parent = nullptr);
    ~ZuveroConnection() override;

    static QString serverApiVersion();

    //! Tells the server who the user is and where to push.
    void registerApp(Completion completion);
    //! The unread count, after the facade has taken it over.
    void loadUserStatus(CountCompletion completion);
    void fetchUnreadCountWithCompletion(CountCompletion completion);

    /*!
        Messages written after \a since (the newest page without a date),
        oldest first, at most \a limit of them (no limit at 0).
    */
    void loadMessageSinceDate(const QDateTime &since, quint32 limit, MessagesCompletion completion);
    void loadMessageSinceDate(const QDateTime &since, const QDateTime &until, quint32 limit,
                              MessagesCompletion completion);
    //! Messages written before \a until.
    void loadMessageUntilDate(const QDateTime &until, quint32 limit, MessagesCompletion completion);

    //! Sends \a message with the attachments that have their bytes.
    void sendChatMessage(const ZuveroChatMessagePtr &message, Completion completion,
                         Progress progress = {});
    void markReadMessages(const ZuveroChatMessageList &messages, Completion completion);

    /*!
        The largest reply an API call takes, as it arrives and decoded: 16 MiB
        unless set. A larger one ends the call with ZuveroURLErrorReplyTooLarge
        (ZuveroURLErrorDomain) as soon as it is seen to be larger.
    */
    void setMaximumReplySize(qint64 bytes);
    //! The same for files and previews: 64 MiB unless set.
    void setMaximumFileSize(qint64 bytes);

private:
    explicit ZuveroConnection(ZVXConnectionAPI *api, QObject *parent);
    friend class ZuveroConnectionPrivate;
    std::unique_ptr<ZuveroConnectionPrivate> d;
};
