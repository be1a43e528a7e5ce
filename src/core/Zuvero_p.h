#pragma once

#include "ZVXConnectionAPI.h"
#include "ZVXOperationQueue.h"
#include "Zuvero.h"

#include <QDateTime>
#include <QList>
#include <QPointer>

class ZVXOfflineQueue;
class ZVXRegistration;

//! The facade as the connection reads it; it answers for a facade that is gone with nothing.
class ZVXFacadeConnectionAPI final : public ZVXConnectionAPI
{
public:
    explicit ZVXFacadeConnectionAPI(Zuvero *facade)
        : m_facade(facade)
    { }

    QString hostname() const override;
    QString language() const override;
    QString sdkVersion() const override;
    std::optional<QString> jwt() override;
    std::optional<QByteArray> deviceToken() override;
    std::optional<QString> userName() const override;
    bool developmentAPNS() const override;
    MessageContext messageContext() const override;
    void clearMessageContext() override;
    qint64 unreadCount() const override;
    void registerIfNeeded(RegistrationCompletion completion) override;
    void beginNetworkActivity() override;
    void endNetworkActivity() override;
    void updateUnreadCount(qint64 count) override;
    void setPollingInterval(double seconds) override;
    void updateWelcomeMessage(const QString &message) override;

private:
    QPointer<Zuvero> m_facade;
};

class ZuveroPrivate
{
public:
    explicit ZuveroPrivate(Zuvero *q);
    ~ZuveroPrivate();

    static ZuveroPrivate *get(Zuvero *facade) { return facade->d.get(); }

    //! Signs a token from the claims when a secret is held.
    std::optional<QString> signedToken();

    Zuvero *q;
    ZVXFacadeConnectionAPI connectionAPI;

    // Credentials and identity.
    std::optional<QString> apiKey;
    std::optional<QByteArray> apiSecret;
    QString hostname = QString(ZuveroDefaultHostname);
    std::optional<QString> userIdentifier;
    std::optional<QVariantMap> authenticationInfo;
    std::optional<QString> userName;
    std::optional<QString> jwt;
    ZVXConnectionAPI::MessageContext messageContext;
    std::optional<QByteArray> deviceToken;
    bool deviceTokenLoaded = false;
    bool developmentAPNS = false;

    // Settings.
    QString language;
    bool updateAppBadgeNumber = true;
    double pollingInterval = 5.0;
    bool interactiveNotification = true;
    bool needsRegistration = true;
    QString sdkVersion;

    ZuveroAppearance appearance;
    std::optional<QString> title;
    QPointer<QObject> titleView;

    ZuveroConnection *connection = nullptr;
    ZVXReachability *reachability = nullptr;
    Zuvero::DelegatePtr delegate;

    qint64 unreadCount = 0;
    std::optional<qint64> deferredUnreadCount;
    std::optional<QString> welcomeMessage;
    quint32 networkActivityCounter = 0;
    QList<quintptr> visibleChatViewControllers;
    QDateTime launchDate;
    QDateTime activationDate;

    std::unique_ptr<ZVXOperationQueue> fetchUnreadCountQueue;
    std::unique_ptr<ZVXOfflineQueue> offlineQueue;
    std::unique_ptr<ZVXRegistration> registration;
    ZuveroNotificationObserver foregroundObserver;
};
