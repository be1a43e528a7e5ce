#pragma once

#include "ZuveroChatMessage.h"

#include <QDateTime>
#include <QVariantMap>

#include <optional>

//! What push handling needs from its facade.
class ZVXPushHandlerAPI
{
public:
    virtual ~ZVXPushHandlerAPI() = default;

    // Who a payload must be meant for.
    virtual std::optional<QString> userIdentifier() const = 0;
    virtual QString installationIdentifier() const = 0;

    virtual qint64 unreadCount() const = 0;
    virtual void updateUnreadCount(qint64 count) = 0;
    //! The new-messages event: the notification, then the delegate.
    virtual void notifyChatDidReceiveNewMessages() = 0;
    //! Posts \a name with the facade as its object.
    virtual void post(const QString &name, const QVariantMap &userInfo) = 0;

    virtual bool isChatScreenVisible() const = 0;
    //! When the facade was made, and when the application last became active.
    virtual QDateTime launchDate() const = 0;
    virtual QDateTime activationDate() const = 0;
    virtual void displayChatView() = 0;
    //! Shows \a message in the in-app banner, unless the host's delegate declines its text.
    virtual void showBanner(const ZuveroChatMessagePtr &message) = 0;

    //! Sends a text as the facade's postMessage() does.
    virtual void postMessage(const QString &text) = 0;
};

/*!
    What the facade does with the push payloads a host hands it: checks that
    a payload is for this service and this user, takes its badge, announces
    its message, and opens the chat (when the payload's tap opened the
    application) or shows the in-app banner; and it sends the answers typed
    into an interactive notification.
*/
class ZVXPushHandler
{
public:
    explicit ZVXPushHandler(ZVXPushHandlerAPI *facade);

    //! False when the payload is not for this service, format, user or installation.
    bool consumeReceivedRemoteNotification(const QVariantMap &payload);
    void handleRemoteNotificationWithIdentifier(const QString &identifier,
                                                const QVariantMap &response);

    //! A message that should be read when shown; cleared when a push is consumed.
    QString clearUnreadCountForMessageUUIDWhenRead() const { return m_clearUnreadCountForMessage; }
    void setClearUnreadCountForMessageUUIDWhenRead(const QString &uuid)
    {
        m_clearUnreadCountForMessage = uuid;
    }

private:
    ZVXPushHandlerAPI *m_facade;
    QString m_clearUnreadCountForMessage;
};
