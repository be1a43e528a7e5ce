#pragma once

//! \file
//! The facade a host talks to, with the names of its notifications and its constants.

#include "ZVXReachability.h"
#include "ZuveroAppearance.h"
#include "ZuveroChatMessage.h"
#include "ZuveroConnection.h"
#include "ZuveroDelegate.h"

#include <QObject>
#include <QPointer>

#include <memory>
#include <optional>

class QWidget;
class ZuveroChatScreenVisibility;
class ZuveroPrivate;

//! The library's version in the form what(1) finds in a binary.
inline constexpr char ZuveroVersionString[] = "@(#)PROGRAM:Zuvero  PROJECT:Zuvero-1\n";
//! The library's version as a number.
inline constexpr double ZuveroVersionNumber = 1.0;

//! The server used when the host names none.
inline constexpr QLatin1String ZuveroDefaultHostname{"chat.zuvero.com"};

// Posted on the default notification center with the facade as object.

//! The unread count changed; Zuvero::unreadCount() has the new one.
inline constexpr QLatin1String ZuveroChatUnreadCountDidChangeNotification{
    "ZuveroChatUnreadCountDidChangeNotification"};
//! Zuvero::updateWelcomeMessage() changed the greeting.
inline constexpr QLatin1String ZuveroWelcomeMessageDidChangeNotification{
    "ZuveroWelcomeMessageDidChangeNotification"};
//! The user sent a message.
inline constexpr QLatin1String ZuveroChatDidSendMessageNotification{
    "ZuveroChatDidSendMessageNotification"};
//! New messages arrived, by a push or a reload.
inline constexpr QLatin1String ZuveroChatDidReceiveNewMessagesNotification{
    "ZuveroChatDidReceiveNewMessagesNotification"};
//! User info: "message", the queued message.
inline constexpr QLatin1String ZuveroChatDidAddOfflineMessageNotification{
    "ZuveroChatDidAddOfflineMessageNotification"};
//! User info: "message", "uploadProgress" and "downloadProgress" (0 to 1).
inline constexpr QLatin1String ZuveroChatOfflineMessageUploadProgressNotification{
    "ZuveroChatOfflineMessageUploadProgressNotification"};
//! User info: "message", the last message sent.
inline constexpr QLatin1String ZuveroChatDidFinishSendingOfflineMessagesNotification{
    "ZuveroChatDidFinishSendingOfflineMessagesNotification"};
//! The four screen events carry "viewController", the screen, when there is one.
inline constexpr QLatin1String ZuveroChatWillAppearNotification{"ZuveroChatWillAppearNotification"};
//! The chat screen shows; see ZuveroChatWillAppearNotification.
inline constexpr QLatin1String ZuveroChatDidAppearNotification{"ZuveroChatDidAppearNotification"};
//! The chat screen is about to go; see ZuveroChatWillAppearNotification.
inline constexpr QLatin1String ZuveroChatWillDisappearNotification{
    "ZuveroChatWillDisappearNotification"};
//! The chat screen went; see ZuveroChatWillAppearNotification.
inline constexpr QLatin1String ZuveroChatDidDisappearNotification{
    "ZuveroChatDidDisappearNotification"};

// The keys of cachedConversation().

//! The cached messages, a ZuveroChatMessageList, oldest first.
inline constexpr QLatin1String ZuveroCachedConversationMessagesKey{"messages"};
//! The messages waiting to be sent, a ZuveroChatMessageList, oldest first.
inline constexpr QLatin1String ZuveroCachedConversationOfflineMessagesKey{"offlineMessages"};
//! Whether the server has older messages than the cached ones, a bool.
inline constexpr QLatin1String ZuveroCachedConversationHasMoreMessagesKey{"hasMoreMessages"};

//! The key of the text a user typed into an interactive notification, in its response.
inline constexpr QLatin1String ZuveroNotificationActionResponseTypedTextKey{"typedText"};
//! The category and action of an interactive notification answered with typed text.
inline constexpr QLatin1String ZuveroInteractiveNotificationCategory{"interactive"};
//! The action of that category that sends the typed text.
inline constexpr QLatin1String ZuveroNotificationActionSend{"ACTION_SEND"};

Q_DECLARE_METATYPE(ZuveroChatMessageList)
Q_DECLARE_METATYPE(ZuveroChatMessagePtr)

/*!
    The one object a host application talks to: it holds the credentials and
    the user's identity, keeps the conversation and the messages waiting to
    be sent, registers with the server, consumes push payloads, and tells
    the host what happens through notifications and an optional delegate.

    Credentials are an API key, an API secret (from which the facade signs
    its own tokens), or a ready-made token. Everything runs on the main
    thread; creating the facade elsewhere raises "Must run on main thread".
*/
class ZUVERO_EXPORT Zuvero : public QObject
{
    Q_OBJECT

public:
    //! Called once an operation ends: success, or the error that stopped it.
    using Completion = ZuveroConnection::Completion;
    //! Called with a count, or ZuveroNotFound and the error.
    using CountCompletion = ZuveroConnection::CountCompletion;
    //! The delegate as the facade holds it: weakly, the host keeping it alive.
    using DelegatePtr = std::weak_ptr<ZuveroDelegate>;

    // --- Creation ---------------------------------------------------------

    /*!
        The process's facade, made once from the host's "ZuveroConfig.plist"
        (or "ZuveroConfig.json"): looked up in the host's Qt resources (":/"),
        then beside the executable, then in its configuration folder. Null
        when that file holds an API secret that is not hexadecimal.
    */
    static Zuvero *sharedInstance();
    //! A facade of the default server that authenticates with \a apiKey.
    static Zuvero *initWithApiKey(const QString &apiKey, const DelegatePtr &delegate = {},
                                  QObject *parent = nullptr);
    //! A facade of the server \a hostname that authenticates with \a apiKey.
    static Zuvero *initWithApiKey(const QString &apiKey, const QString &hostname,
                                  const DelegatePtr &delegate, QObject *parent = nullptr);
    //! \a apiSecret is hexadecimal text.
    static Zuvero *initWithApiSecret(const QString &apiSecret, const DelegatePtr &delegate = {},
                                     QObject *parent = nullptr);
    //! A facade of the server \a hostname that signs its tokens with \a apiSecret.
    static Zuvero *initWithApiSecret(const QString &apiSecret, const QString &hostname,
                                     const DelegatePtr &delegate, QObject *parent = nullptr);
    /*!
        From a configuration dictionary (see normalizeConfigurationDictionary()):
        "apiKey" or "apiSecret", "hostname", "language" and the look of the
        chat screen. Null when "apiSecret" is not hexadecimal. The reasons it
        gives for using the photo library, the camera and the location
        ("NSPhotoLibraryUsageDescription"...) are declared for the whole
        process (see AttachmentsState).
    */
    static Zuvero *initWithConfigurationDictionary(const std::optional<QVariantMap> &dictionary,
                                                   QObject *parent = nullptr);
    /*!
        A new facade with the same credentials, identity and look. The push
        token comes again from the user defaults; the language, badge,
        polling and notification settings, the welcome message, the unread
        count and the conversation start afresh.
    */
    Zuvero *copyWithZone(QObject *parent = nullptr);
    ~Zuvero() override;

    // --- Credentials and identity ----------------------------------------

    //! The key that identifies the host's account to the server.
    std::optional<QString> apiKey() const;
    //! Sets the key to \a apiKey; the facade registers again.
    void setApiKey(const std::optional<QString> &apiKey);
    //! Keeps the decoded secret (never exposed) and derives the API key from it.
    void setApiSecret(const QString &hexadecimalSecret);
    //! The chat server's host name (and port), ZuveroDefaultHostname unless set.
    QString hostname() const;
    //! Talks to \a hostname from now on.
    void setHostname(const QString &hostname);
    //! This installation's identifier, the same for every facade of the process.
    QString installationIdentifier() const;
    //! Who the user is in the host's own records; none for an anonymous user.
    std::optional<QString> userIdentifier() const;
    //! Switches to the user \a identifier: their own conversation, after registering again.
    void setUserIdentifier(const std::optional<QString> &identifier);
    //! The user's name as agents see it.
    std::optional<QString> userName() const;
    //! Sets the user's name to \a name; the facade registers again.
    void setUserName(const std::optional<QString> &name);
    //! Further claims about the user signed into the token (an e-mail address, a plan...).
    std::optional<QVariantMap> authenticationInfo() const;
    //! Sets those claims to \a info; the token is signed again and the facade registers again.
    void setAuthenticationInfo(const std::optional<QVariantMap> &info);
    //! The token sent with every request: the one set, or one signed with the secret.
    std::optional<QString> jwt();
    //! A ready-made token; its claims become the identity (they are not verified here).
    void setJwt(const std::optional<QString> &jwt);
    //! The claims signed into the token.
    QVariantMap jwtDictionary() const;
    //! Sent with the next message only.
    std::optional<QVariantMap> messageContextInfo() const;
    //! Sets what goes with the next message to \a context.
    void setMessageContextInfo(const std::optional<QVariantMap> &context);
    //! The push token of this device, kept in the user defaults; none before the first one.
    std::optional<QByteArray> deviceToken();
    //! Keeps \a token; a new one is registered with the server.
    void setDeviceToken(const std::optional<QByteArray> &token);
    //! Whether pushes come from the push service's development environment.
    bool developmentAPNS() const;
    //! Switches the push environment; the facade registers again.
    void setDevelopmentAPNS(bool development);

    // --- Settings ----------------------------------------------------------

    //! The language the server answers in (Accept-Language): the locale's when the facade was made.
    QString language() const;
    //! Asks for answers in \a language, such as "fr-FR".
    void setLanguage(const QString &language);
    /*!
        Where the map pictures of shared locations get their tiles: a URL
        with "{z}", "{x}" and "{y}" for the zoom level and the tile's column
        and row in the usual Web Mercator tiling (configuration key
        "mapTileURLTemplate"). Unset, the chat server's own tiles,
        "https://<hostname>/tiles/{z}/{x}/{y}.png". The library's token is never
        sent to it.
    */
    QString mapTileURLTemplate() const;
    //! Takes the tiles from \a urlTemplate; empty returns to the chat server's.
    void setMapTileURLTemplate(const QString &urlTemplate);
    /*!
        The credit a tile server asks for, drawn small in a corner of every
        map picture ("mapTileAttribution"); none unless set.
    */
    QString mapTileAttribution() const;
    //! Draws \a attribution on map pictures.
    void setMapTileAttribution(const QString &attribution);
    /*!
        Where the location picker looks addresses up: a geocoder in the
        manner of the open ones, asked at "<url>/search" and "<url>/reverse"
        (configuration key "geocoderURL"). Unset, the chat server's own,
        "https://<hostname>/geocode". The library's token is never sent to it.
    */
    QString geocoderURL() const;
    //! Sends address questions to \a url; empty returns to the chat server's own.
    void setGeocoderURL(const QString &url);
    //! Whether the application's badge follows the unread count.
    bool updateAppBadgeNumber() const;
    //! Lets the badge follow the unread count, or not.
    void setUpdateAppBadgeNumber(bool update);
    //! Seconds between two reloads of a visible chat screen, as the server asks; 0: no polling.
    double pollingInterval() const;
    //! Reloads a visible chat screen every \a seconds.
    void setPollingInterval(double seconds);
    //! Whether notifications of new messages offer a typed reply.
    bool interactiveNotification() const;
    //! Offers a typed reply in notifications, or not.
    void setInteractiveNotification(bool interactive);
    //! Whether the next request registers with the server first.
    bool needsRegistration() const;
    //! Makes the next request register first (or not).
    void setNeedsRegistration(bool needs);
    //! The library's version as sent to the server (X-Zuvero-Sdk-Version).
    QString sdkVersion() const;
    //! Sends \a version as the library's version.
    void setSdkVersion(const QString &version);

    // --- Look of the chat screen -------------------------------------------

    //! The look of chat screens made from now on; change it in place.
    ZuveroAppearance &appearance();
    //! The look of chat screens.
    const ZuveroAppearance &appearance() const;
    //! The chat screen's title; the localised "zuveroChatTitle" when unset.
    std::optional<QString> title() const;
    //! Titles chat screens made from now on \a title.
    void setTitle(const std::optional<QString> &title);
    //! A widget shown in place of the title (not owned).
    QObject *titleView() const;
    //! Shows \a view in place of the title on chat screens made from now on.
    void setTitleView(QObject *view);
    /*!
        The view behind the chat screen's list, made when first asked (the
        theme's page colour: white in a light theme),
        for a host that draws its own background there; null in an
        application without widgets. The screen shown last holds it.
    */
    QWidget *backgroundView();

    // --- Connection and events ---------------------------------------------

    //! The connection to the chat server, owned by the facade.
    ZuveroConnection *connection() const;
    //! The facade's monitor of the route to the Internet; it posts
    //! ZuveroNetworkReachabilityChangedNotification.
    ZVXReachability *reachability() const;
    //! The delegate, while the host keeps it alive; null otherwise.
    std::shared_ptr<ZuveroDelegate> delegate() const;
    //! Tells \a delegate what happens from now on.
    void setDelegate(const DelegatePtr &delegate);

    //! The messages of agents the user has not seen yet, as last known.
    qint64 unreadCount() const;
    //! Sets the count to \a count at once, and announces it when it changed.
    void setUnreadCount(qint64 count);
    /*!
        Takes a count from the server or a push. A rising count is held back
        while a chat screen is visible and applied when the last one goes.
    */
    void updateUnreadCount(qint64 count);
    //! Announces the count (notification, delegate) and puts it on the badge if asked to.
    void noteUnreadCountDidChange();
    //! Asks the server; fetches run one at a time, in order.
    void fetchUnreadCountWithCompletionHandler(CountCompletion handler = {});

    //! The text the service greets the user with, shown first in the chat; none unless set.
    std::optional<QString> welcomeMessage() const;
    //! Sets the greeting to \a message quietly.
    void setWelcomeMessage(const std::optional<QString> &message);
    //! Sets the greeting to \a message and announces it
    //! (ZuveroWelcomeMessageDidChangeNotification).
    void updateWelcomeMessage(const QString &message);

    //! A request began; the first of a burst tells the delegate (zuveroDidBeginNetworkActivity).
    void beginNetworkActivity();
    //! A request ended; the last of a burst tells the delegate (zuveroDidEndNetworkActivity).
    void endNetworkActivity();

    // --- The chat screen ---------------------------------------------------

    /*!
        Shows the chat: through the delegate's zuveroDisplayChatViewController
        when it has one, else the library's own way; then tells the delegate
        (onOpen). Raises "Zuvero is not properly configured." without credentials.
    */
    void displayChatView();
    /*!
        A new chat screen in its navigation container, configured from this
        facade, for a host that presents it itself; null in an application
        without widgets. Raises "Zuvero is not properly configured." without
        credentials.
    */
    QWidget *chatViewController();

    // --- Plumbing of the chat screen ------------------------------------------
    //
    // The chat screen reports to its facade through these. A host that builds its own screen
    // around the library's chat list calls them in the same way; other hosts need none of them.

    /*!
        \a screen is on screen from now until the returned visibility ends
        (chatViewControllerDidDisappear(), or its destruction). While any
        visibility lasts, a rising unread count is held back.
    */
    [[nodiscard]] ZuveroChatScreenVisibility chatViewControllerDidAppear(QObject *screen);
    //! Ends \a visibility; the count held back applies when the last one ends.
    void chatViewControllerDidDisappear(ZuveroChatScreenVisibility &visibility);
    //! The four screen events, with the screen under "viewController" when given.
    void notifyChatWillAppearNotification(QObject *viewController);
    //! See notifyChatWillAppearNotification().
    void notifyChatDidAppearNotification(QObject *viewController);
    //! See notifyChatWillAppearNotification().
    void notifyChatWillDisappearNotification(QObject *viewController);
    //! See notifyChatWillAppearNotification().
    void notifyChatDidDisappearNotification(QObject *viewController);
    //! Announces that the user sent a message (notification, then delegate).
    void notifyChatDidSendMessageNotification();
    //! Announces that new messages arrived (notification, then delegate).
    void notifyChatDidReceiveNewMessagesNotification();
    /*!
        The chat list has just seen \a message and will report it to the
        server shortly. Deliberately does nothing: the unread count follows
        the server's answer to that report. It is the one place where local
        state could change at once, before the answer.
    */
    void markMessageAsRead(const ZuveroChatMessagePtr &message);

    // --- Conversation cache and offline queue ------------------------------

    //! The cached conversation: messages, queued messages and whether more exist (see the keys
    //! above).
    QVariantMap cachedConversation() const;
    //! Keeps \a messages (and whether older ones exist) as the cached conversation.
    bool saveCachedMessages(const ZuveroChatMessageList &messages, bool hasMoreMessages);
    //! The messages waiting to be sent, oldest first.
    ZuveroChatMessageList offlineMessages() const;
    //! Replaces the waiting messages with \a messages.
    bool saveOfflineMessages(const ZuveroChatMessageList &messages);
    //! Forgets the cached conversation and the queue (another user, another server).
    void resetInMemoryMessages();
    //! Puts \a message at the end of the queue, marked offline.
    void addOfflineMessage(const ZuveroChatMessagePtr &message);
    //! Starts a pass that sends the queued messages, oldest first, unless one runs.
    void sendOfflineMessages();
    /*!
        Sends \a text without a chat screen, now or, when the network is down
        or older messages wait, through the queue. \a completion is told at
        once that the text was accepted.
    */
    void postMessage(const QString &text, Completion completion = {});
    //! postMessage() for a text that is not blank.
    void sendMessage(const QString &text);
    /*!
        Whether the messages waiting to be sent are also kept in a file, so
        that they outlive the process (a crash, a power cut) and go out when
        the same user on the same server is back. Off by default: the queue
        lives in memory only. Turning it on takes in what the file holds.
        Each user has a file of their own in offlineMessagesDirectory();
        switching users leaves the previous user's file for their return.
    */
    bool persistsOfflineMessages() const;
    //! Keeps the queue in a file, or in memory only.
    void setPersistsOfflineMessages(bool persists);
    //! Where those files live: "Zuvero" in the host's data folder unless set.
    QString offlineMessagesDirectory() const;
    //! Keeps those files in \a folder; empty returns to the default.
    void setOfflineMessagesDirectory(const QString &folder);
    //! Removes cache files that older releases left in the user's cache folder.
    void cleanDiskCacheIfNeeded();

    // --- Registration and push ---------------------------------------------

    /*!
        Registers with the server unless that is done; requests made
        meanwhile wait for the same registration.
    */
    void registerIfNeeded(Completion completion = {});
    /*!
        Handles a push payload meant for this service and user: the badge,
        the message, and the chat or the in-app banner. False when the
        payload is not for it; the host handles it then.
    */
    bool consumeReceivedRemoteNotification(const QVariantMap &payload);
    //! The user's answer to an interactive notification ("ACTION_SEND" with typed text).
    void handleRemoteNotificationWithIdentifier(const QString &identifier,
                                                const QVariantMap &responseInfo);
    //! A text of the library: the host's translation first, then the library's own.
    static QString localizeString(const QString &key);

    // --- Configuration -----------------------------------------------------

    /*!
        A configuration file's raw dictionary with typed values: colours,
        fonts, insets, images and translated texts. Each value that cannot be
        used is logged ("Could not configure ...") and left out.
    */
    static QVariantMap normalizeConfigurationDictionary(const QVariantMap &raw);
    //! The keys a configuration dictionary is read for, by kind.
    static QStringList requiredConfigurationKeys();
    //! "mapTileURLTemplate", "mapTileAttribution" and "geocoderURL": where maps and addresses
    //! come from.
    static QStringList mapConfigurationKeys();
    //! "title": a text the host's translations translate.
    static QStringList localizableStringCustomizationKeys();
    //! The colours of ZuveroAppearance, as "#RRGGBB" texts.
    static QStringList colorCustomizationKeys();
    //! The fonts of ZuveroAppearance, as dictionaries of "name" and "size".
    static QStringList fontCustomizationKeys();
    //! The insets of ZuveroAppearance, as dictionaries of "top", "left", "bottom", "right".
    static QStringList insetsCustomizationKeys();
    //! The bubble images of ZuveroAppearance, as an "imgName" and its insets.
    static QStringList imageCustomizationKeys();
    //! The customisation lists joined: localisable, colour, font, insets, image.
    static QStringList allCustomizationKeys();
    //! "#0F80F0" or "0f80f0" as a colour; nothing for any other length.
    static std::optional<QColor> zuveroColorWithHexCode(const QString &text);
    /*!
        The dictionary in a configuration file: an XML property list, or a
        JSON object. Nothing, and an \a error saying why, when it cannot be read.
    */
    static std::optional<QVariantMap>
    configurationDictionaryWithContentsOfFile(const QString &path, ZuveroError *error = nullptr);
    //! Applies a normalised dictionary's look and settings.
    void fetchCustomizationValues(const QVariantMap &values);
    //! Puts the library's own look in appearance().
    void setupDefaultCustomization();

    /*
        Process-wide switches of the attachment sources; there is no way back
        on here. The chat screen's AttachmentsState shares them, and offers a
        source only when the host also declared why it uses it (and, for the
        camera, when there is one).
    */
    //! No more pictures from files, for the rest of the process.
    static void disableLibraryAttachment();
    //! No more photos from the camera.
    static void disableCameraAttachment();
    //! No more shared places.
    static void disableLocationAttachment();
    //! No attachments at all: the input bar drops its button.
    static void disableAttachments();
    //! Whether pictures from files are still allowed.
    static bool isLibraryAttachmentEnabled();
    //! Whether photos from the camera are still allowed.
    static bool isCameraAttachmentEnabled();
    //! Whether shared places are still allowed.
    static bool isLocationAttachmentEnabled();
    //! Whether attachments are allowed at all.
    static bool isAttachmentsEnabled();

private:
    explicit Zuvero(QObject *parent);
    void postInit();
    void reRegister(bool reset);
    void postEvent(const QString &name, const QVariantMap &userInfo,
                   std::function<void(ZuveroDelegate &, const ZuveroNotification &)> call);

    friend class ZuveroPrivate;
    std::unique_ptr<ZuveroPrivate> d;
};

/*!
    That a chat screen is on screen, for as long as this object lives: made
    by Zuvero::chatViewControllerDidAppear(), ended by
    Zuvero::chatViewControllerDidDisappear() or by its destruction, so that
    a screen destroyed without saying it disappeared ends it all the same.
    Move-only; a default-constructed one is already ended.
*/
class ZUVERO_EXPORT ZuveroChatScreenVisibility
{
public:
    //! An ended visibility.
    ZuveroChatScreenVisibility() = default;
    //! Takes over \a other, which ends up ended.
    ZuveroChatScreenVisibility(ZuveroChatScreenVisibility &&other) noexcept;
    //! Ends this visibility and takes over \a other.
    ZuveroChatScreenVisibility &operator=(ZuveroChatScreenVisibility &&other) noexcept;
    //! Ends the visibility if it has not ended.
    ~ZuveroChatScreenVisibility();

    //! True until end(), while the facade lives.
    bool isActive() const;
    //! Says that the screen went; a second call does nothing.
    void end();

private:
    friend class Zuvero;
    ZuveroChatScreenVisibility(Zuvero *facade, quint64 identity);

    QPointer<Zuvero> m_facade;
    quint64 m_identity = 0;
};
