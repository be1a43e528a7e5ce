#pragma once

#include "ZVXGenerationCounter.h"
#include "Zuvero.h"

/*!
    When the facade registers with the server, how repeated requests
    merge, and what follows from registration, from the network coming
    back and from a push payload.
*/
class ZVXRegistration
{
public:
    explicit ZVXRegistration(Zuvero *facade);

    void registerIfNeeded(const Zuvero::Completion &completion);
    //! The network came back: queued messages go out a second later.
    void reachabilityDidChange();
    bool consumeReceivedRemoteNotification(const QVariantMap &payload);
    void handleRemoteNotificationWithIdentifier(const QString &identifier,
                                                const QVariantMap &response);

    //! A message that should be read when shown; cleared when a push is consumed.
    QString clearUnreadCountForMessageUUIDWhenRead() const { return m_clearUnreadCountForMessage; }
    void setClearUnreadCountForMessageUUIDWhenRead(const QString &uuid)
    {
        m_clearUnreadCountForMessage = uuid;
    }

    /*!
        Shows a pushed message in the in-app banner. The widgets layer
        installs its banner; without one (a headless host) the message is
        written to the log.
    */
    using BannerPresenter = void (*)(const ZuveroChatMessagePtr &message, Zuvero *facade);
    static void setBannerPresenter(BannerPresenter presenter);

private:
    Zuvero *q;
    ZVXGenerationCounter m_cycle;
    QString m_clearUnreadCountForMessage;
    ZuveroNotificationObserver m_reachabilityObserver;
};
