#pragma once

#include "ZVXConnectionAPI.h"
#include "ZVXOfflineQueue.h"
#include "ZVXOperationQueue.h"
#include "ZVXPushHandler.h"
#include "ZVXRegistration.h"
#include "ZVXUserInterface.h"
#include "Zuvero.h"

#include <QDateTime>
#include <QPointer>
#include <QSet>

//! The facade as the connection reads it; it answers for a facade that is gone with nothing.
class ZVXFacadeConnectionAPI final : public ZVXConnectionAPI
{
public:
    explicit ZVXFacadeConnectionAPI(Zuvero *facade)
        : m_facade(facade)
    { }

    QString hostname() const override;
    QString language() const override;
    QString mapTileURLTemplate() const override;
    QString mapTileAttribution() const override;
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

/*
    The facade's state, and the facade as each of its helpers sees it: the
    offline queue, registration and push handling each talk to it through
    an interface of their own, which this class answers from the state.
    The helpers belong to it and go before it does.
*/
class ZuveroPrivate final : public ZVXOfflineQueueAPI,
                            public ZVXRegistrationAPI,
                            public ZVXPushHandlerAPI
{
public:
    explicit ZuveroPrivate(Zuvero *q);
    ~ZuveroPrivate() override;

    static ZuveroPrivate *get(Zuvero *facade) { return facade->d.get(); }

    //! Signs a token from the claims when a secret is held.
    std::optional<QString> signedToken();
    //! Replaces the user interface (tests record what it is asked to show).
    void setUserInterface(std::unique_ptr<ZVXUserInterface> userInterface);
    //! A screen's visibility ended (ZuveroChatScreenVisibility).
    void chatScreenDidDisappear(quint64 identity);
    //! Gives the queue the file of the current identity, when queues are kept in files.
    void attachOfflineStore();

    // The offline queue's view.
    bool isNetworkReachable() const override;
    bool isChatScreenVisible() const override;
    void sendChatMessage(const ZuveroChatMessagePtr &message,
                         ZuveroConnection::Completion completion,
                         ZuveroConnection::Progress progress) override;
    void post(const QString &name, const QVariantMap &userInfo) override;
    void notifyChatDidSendMessage() override;
    void showToast(const QString &title, const QString &text, double seconds) override;

    // Registration's view.
    bool needsRegistration() const override { return m_needsRegistration; }
    void setNeedsRegistration(bool needs) override { m_needsRegistration = needs; }
    bool hasToken() override;
    void registerApp(ZuveroConnection::Completion completion) override;
    void didRegister() override;

    // Push handling's view.
    std::optional<QString> userIdentifier() const override { return m_userIdentifier; }
    QString installationIdentifier() const override;
    qint64 unreadCount() const override { return m_unreadCount; }
    void updateUnreadCount(qint64 count) override;
    void notifyChatDidReceiveNewMessages() override;
    QDateTime launchDate() const override { return m_launchDate; }
    QDateTime activationDate() const override { return m_activationDate; }
    void displayChatView() override;
    void showBanner(const ZuveroChatMessagePtr &message) override;
    void postMessage(const QString &text) override;

    Zuvero *q;
    ZVXFacadeConnectionAPI connectionAPI;

    // Credentials and identity.
    std::optional<QString> apiKey;
    std::optional<QByteArray> apiSecret;
    QString hostname = QString(ZuveroDefaultHostname);
    std::optional<QString> m_userIdentifier;
    std::optional<QVariantMap> authenticationInfo;
    std::optional<QString> userName;
    std::optional<QString> jwt;
    ZVXConnectionAPI::MessageContext messageContext;
    std::optional<QByteArray> deviceToken;
    bool deviceTokenLoaded = false;
    bool developmentAPNS = false;

    // Settings.
    QString language;
    //! Empty: the server's own tiles.
    QString mapTileURLTemplate;
    QString mapTileAttribution;
    QString geocoderURL;
    bool updateAppBadgeNumber = true;
    double pollingInterval = 5.0;
    bool interactiveNotification = true;
    bool m_needsRegistration = true;
    QString sdkVersion;
    bool persistsOfflineMessages = false;
    QString offlineMessagesDirectory;

    ZuveroAppearance appearance;
    std::optional<QString> title;
    QPointer<QObject> titleView;

    ZuveroConnection *connection = nullptr;
    ZVXReachability *reachability = nullptr;
    Zuvero::DelegatePtr delegate;

    qint64 m_unreadCount = 0;
    std::optional<qint64> deferredUnreadCount;
    std::optional<QString> welcomeMessage;
    quint32 networkActivityCounter = 0;
    //! The visibilities of the chat screens on screen now.
    QSet<quint64> visibleChatViewControllers;
    quint64 lastScreenIdentity = 0;
    QDateTime m_launchDate;
    QDateTime m_activationDate;

    std::unique_ptr<ZVXUserInterface> userInterface;
    std::unique_ptr<ZVXOperationQueue> fetchUnreadCountQueue;
    std::unique_ptr<ZVXOfflineQueue> offlineQueue;
    std::unique_ptr<ZVXRegistration> registration;
    std::unique_ptr<ZVXPushHandler> pushHandler;
    ZuveroNotificationObserver foregroundObserver;
    ZuveroNotificationObserver reachabilityObserver;
};
