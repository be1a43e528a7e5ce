#include "Zuvero_p.h"

#include "ZVXAttachmentSwitches.h"
#include "ZVXBlockConcurrentOperation.h"
#include "ZVXClock.h"
#include "ZVXConfiguration.h"
#include "ZVXJSON.h"
#include "ZVXJWT.h"
#include "ZVXLocalization.h"
#include "ZVXLogging.h"
#include "ZVXMainThread.h"
#include "ZVXModelValues.h"
#include "ZVXPropertyList.h"
#include "ZVXResources.h"
#include "ZuveroApplication.h"
#include "ZuveroData.h"
#include "ZuveroException.h"
#include "ZuveroUserDefaults.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QLocale>
#include <QMutex>
#include <QStandardPaths>
#include <QUuid>

using namespace std::chrono_literals;

namespace {

const QString InstallationIdentifierKey = QStringLiteral("Zuvero_installationIdentifier");
const QString DeviceTokenKey = QStringLiteral("Zuvero_deviceToken");
constexpr auto NetworkActivityMergeDelay = 300ms;

const QString NotConfigured = QStringLiteral("Zuvero is not properly configured.");

// The version written into the library's own "ZuveroConfig.plist" when it was built.
QString librarySdkVersion()
{
    static const QString version = [] {
        QFile file(ZVXResources::path(QStringLiteral("ZuveroConfig.plist")));
        if (!file.open(QIODevice::ReadOnly))
            return QString();
        const std::optional<QVariant> plist = ZVXPropertyList::parse(file.readAll());
        return plist ? plist->toMap().value(QStringLiteral("sdkVersion")).toString() : QString();
    }();
    return version;
}

// Where a host keeps "ZuveroConfig": its resources, beside the program, its configuration folder.
std::optional<QVariantMap> hostConfiguration()
{
    const QStringList folders
        = {QStringLiteral(":"), QCoreApplication::applicationDirPath(),
           QStandardPaths::writableLocation(QStandardPaths::AppConfigLocation)};
    for (const QString &folder : folders) {
        for (const char *name : {"ZuveroConfig.plist", "ZuveroConfig.json"}) {
            const QString path = QDir(folder).filePath(QLatin1String(name));
            if (!QFile::exists(path))
                continue;
            ZuveroError error;
            if (std::optional<QVariantMap> dictionary
                = ZVXConfiguration::readConfigurationFile(path, &error))
                return dictionary;
            ZVXLogError(QStringLiteral("Zuvero: ignoring the configuration file %1: %2")
                            .arg(path, error.localizedDescription()));
            return std::nullopt;
        }
    }
    return std::nullopt;
}

} // namespace

// --- The facade as the connection reads it -----------------------------------

QString ZVXFacadeConnectionAPI::hostname() const
{
    return m_facade ? m_facade->hostname() : QString();
}

QString ZVXFacadeConnectionAPI::language() const
{
    return m_facade ? m_facade->language() : QString();
}

QString ZVXFacadeConnectionAPI::mapTileURLTemplate() const
{
    return m_facade ? m_facade->mapTileURLTemplate() : QString();
}

QString ZVXFacadeConnectionAPI::mapTileAttribution() const
{
    return m_facade ? m_facade->mapTileAttribution() : QString();
}

QString ZVXFacadeConnectionAPI::sdkVersion() const
{
    return m_facade ? m_facade->sdkVersion() : QString();
}

std::optional<QString> ZVXFacadeConnectionAPI::jwt()
{
    return m_facade ? m_facade->jwt() : std::nullopt;
}

std::optional<QByteArray> ZVXFacadeConnectionAPI::deviceToken()
{
    return m_facade ? m_facade->deviceToken() : std::nullopt;
}

std::optional<QString> ZVXFacadeConnectionAPI::userName() const
{
    return m_facade ? m_facade->userName() : std::nullopt;
}

bool ZVXFacadeConnectionAPI::developmentAPNS() const
{
    return m_facade && m_facade->developmentAPNS();
}

ZVXConnectionAPI::MessageContext ZVXFacadeConnectionAPI::messageContext() const
{
    return m_facade ? ZuveroPrivate::get(m_facade)->messageContext : nullptr;
}

void ZVXFacadeConnectionAPI::clearMessageContext()
{
    if (m_facade)
        m_facade->setMessageContextInfo(std::nullopt);
}

qint64 ZVXFacadeConnectionAPI::unreadCount() const
{
    return m_facade ? m_facade->unreadCount() : 0;
}

void ZVXFacadeConnectionAPI::registerIfNeeded(RegistrationCompletion completion)
{
    if (m_facade)
        m_facade->registerIfNeeded(std::move(completion));
}

void ZVXFacadeConnectionAPI::beginNetworkActivity()
{
    if (m_facade)
        m_facade->beginNetworkActivity();
}

void ZVXFacadeConnectionAPI::endNetworkActivity()
{
    if (m_facade)
        m_facade->endNetworkActivity();
}

void ZVXFacadeConnectionAPI::updateUnreadCount(qint64 count)
{
    if (m_facade)
        m_facade->updateUnreadCount(count);
}

void ZVXFacadeConnectionAPI::setPollingInterval(double seconds)
{
    if (m_facade)
        m_facade->setPollingInterval(seconds);
}

void ZVXFacadeConnectionAPI::updateWelcomeMessage(const QString &message)
{
    if (m_facade)
        m_facade->updateWelcomeMessage(message);
}

// --- Private ------------------------------------------------------------------

ZuveroPrivate::ZuveroPrivate(Zuvero *q)
    : q(q)
    , connectionAPI(q)
    , m_launchDate(ZVXClock::currentTime())
    , m_activationDate(m_launchDate)
    , userInterface(ZVXUserInterface::make())
    , fetchUnreadCountQueue(std::make_unique<ZVXOperationQueue>())
    , offlineQueue(std::make_unique<ZVXOfflineQueue>(this))
    , registration(std::make_unique<ZVXRegistration>(this))
    , pushHandler(std::make_unique<ZVXPushHandler>(this))
{
    fetchUnreadCountQueue->setMaxConcurrentOperationCount(1);
    reachability = ZVXReachability::reachabilityForInternetConnection(q);
    if (reachability) {
        reachability->startNotifier();
        reachabilityObserver = ZuveroNotificationCenter::defaultCenter()->addObserver(
            ZuveroNetworkReachabilityChangedNotification, reachability,
            [this](const ZuveroNotification &) { offlineQueue->reachabilityDidChange(); });
    }
    sdkVersion = librarySdkVersion();
}

ZuveroPrivate::~ZuveroPrivate() = default;

std::optional<QString> ZuveroPrivate::signedToken()
{
    const std::shared_ptr<ZVXJWT> token = ZVXJWT::initWithPayload(q->jwtDictionary());
    // A token that cannot be signed is no token; the server will say so.
    return token->signedTokenWithSecret(apiSecret);
}

void ZuveroPrivate::setUserInterface(std::unique_ptr<ZVXUserInterface> replacement)
{
    userInterface = std::move(replacement);
}

// --- The facade as its helpers see it -------------------------------------------

bool ZuveroPrivate::isNetworkReachable() const
{
    return reachability && reachability->isReachable();
}

bool ZuveroPrivate::isChatScreenVisible() const
{
    return !visibleChatViewControllers.isEmpty();
}

void ZuveroPrivate::sendChatMessage(const ZuveroChatMessagePtr &message,
                                    ZuveroConnection::Completion completion,
                                    ZuveroConnection::Progress progress)
{
    connection->sendChatMessage(message, std::move(completion), std::move(progress));
}

void ZuveroPrivate::post(const QString &name, const QVariantMap &userInfo)
{
    ZuveroNotificationCenter::defaultCenter()->post(name, q, userInfo);
}

void ZuveroPrivate::notifyChatDidSendMessage()
{
    q->notifyChatDidSendMessageNotification();
}

void ZuveroPrivate::showToast(const QString &title, const QString &text, double seconds)
{
    userInterface->showToast(title, text, seconds);
}

bool ZuveroPrivate::hasToken()
{
    return q->jwt().has_value();
}

void ZuveroPrivate::registerApp(ZuveroConnection::Completion completion)
{
    connection->registerApp(std::move(completion));
}

void ZuveroPrivate::didRegister()
{
    offlineQueue->sendOfflineMessagesIfWaiting();
}

QString ZuveroPrivate::installationIdentifier() const
{
    return q->installationIdentifier();
}

void ZuveroPrivate::updateUnreadCount(qint64 count)
{
    q->updateUnreadCount(count);
}

void ZuveroPrivate::notifyChatDidReceiveNewMessages()
{
    q->notifyChatDidReceiveNewMessagesNotification();
}

void ZuveroPrivate::displayChatView()
{
    q->displayChatView();
}

void ZuveroPrivate::showBanner(const ZuveroChatMessagePtr &message)
{
    const std::shared_ptr<ZuveroDelegate> host = delegate.lock();
    if (host && host->zuveroShouldDisplayNotificationWithText
        && !host->zuveroShouldDisplayNotificationWithText(q, message->text().value_or(QString())))
        return;
    userInterface->showBanner(message, q);
}

void ZuveroPrivate::postMessage(const QString &text)
{
    q->postMessage(text);
}

void ZuveroPrivate::chatScreenDidDisappear(quint64 identity)
{
    if (!visibleChatViewControllers.remove(identity))
        return;
    if (visibleChatViewControllers.isEmpty() && deferredUnreadCount)
        q->updateUnreadCount(*deferredUnreadCount);
}

// --- Creation -----------------------------------------------------------------

Zuvero::Zuvero(QObject *parent)
    : QObject(parent)
    , d(std::make_unique<ZuveroPrivate>(this))
{ }

Zuvero::~Zuvero()
{
    d->fetchUnreadCountQueue->cancelAllOperations();
    if (d->reachability)
        d->reachability->stopNotifier();
}

void Zuvero::postInit()
{
    cleanDiskCacheIfNeeded();
    d->connection = ZuveroConnection::initWithAPI(&d->connectionAPI, this);
    if (d->language.isEmpty())
        d->language = QLocale().name().replace(QLatin1Char('_'), QLatin1Char('-'));
    setupDefaultCustomization();
    d->foregroundObserver = ZuveroNotificationCenter::defaultCenter()->addObserver(
        ZuveroApplicationWillEnterForegroundNotification, nullptr,
        [this](const ZuveroNotification &) { d->m_activationDate = ZVXClock::currentTime(); });
}

Zuvero *Zuvero::sharedInstance()
{
    ZVXMainThread::assertMainThread();
    static QMutex mutex;
    static bool made = false;
    static QPointer<Zuvero> shared;
    QMutexLocker locker(&mutex);
    if (!made) {
        made = true;
        const std::optional<QVariantMap> raw = hostConfiguration();
        shared = initWithConfigurationDictionary(
            raw ? std::optional<QVariantMap>(normalizeConfigurationDictionary(*raw)) : std::nullopt,
            QCoreApplication::instance());
    }
    return shared;
}

Zuvero *Zuvero::initWithApiKey(const QString &apiKey, const DelegatePtr &delegate, QObject *parent)
{
    return initWithApiKey(apiKey, QString(), delegate, parent);
}

Zuvero *Zuvero::initWithApiKey(const QString &apiKey, const QString &hostname,
                               const DelegatePtr &delegate, QObject *parent)
{
    ZVXMainThread::assertMainThread();
    auto *zuvero = new Zuvero(parent);
    zuvero->d->apiKey = apiKey;
    zuvero->d->hostname = hostname.isEmpty() ? QString(ZuveroDefaultHostname) : hostname;
    zuvero->d->delegate = delegate;
    zuvero->postInit();
    return zuvero;
}

Zuvero *Zuvero::initWithApiSecret(const QString &apiSecret, const DelegatePtr &delegate,
                                  QObject *parent)
{
    return initWithApiSecret(apiSecret, QString(), delegate, parent);
}

Zuvero *Zuvero::initWithApiSecret(const QString &apiSecret, const QString &hostname,
                                  const DelegatePtr &delegate, QObject *parent)
{
    ZVXMainThread::assertMainThread();
    auto *zuvero = new Zuvero(parent);
    zuvero->setApiSecret(apiSecret);
    zuvero->d->hostname = hostname.isEmpty() ? QString(ZuveroDefaultHostname) : hostname;
    zuvero->d->delegate = delegate;
    zuvero->postInit();
    return zuvero;
}

Zuvero *Zuvero::initWithConfigurationDictionary(const std::optional<QVariantMap> &dictionary,
                                                QObject *parent)
{
    ZVXMainThread::assertMainThread();
    const QVariantMap configuration = dictionary.value_or(QVariantMap());
    auto zuvero = std::unique_ptr<Zuvero>(new Zuvero(parent));
    zuvero->d->hostname = ZVXModelValues::text(configuration.value(QStringLiteral("hostname")))
                              .value_or(QString(ZuveroDefaultHostname));
    zuvero->d->language
        = ZVXModelValues::text(configuration.value(QStringLiteral("language"))).value_or(QString());
    zuvero->d->mapTileURLTemplate
        = ZVXModelValues::text(configuration.value(QStringLiteral("mapTileURLTemplate")))
              .value_or(QString());
    zuvero->d->mapTileAttribution
        = ZVXModelValues::text(configuration.value(QStringLiteral("mapTileAttribution")))
              .value_or(QString());
    zuvero->d->geocoderURL
        = ZVXModelValues::text(configuration.value(QStringLiteral("geocoderURL")))
              .value_or(QString());
    const std::optional<QString> secret
        = ZVXModelValues::text(configuration.value(QStringLiteral("apiSecret")));
    if (secret && !secret->isEmpty()) {
        const std::optional<QByteArray> decoded = ZuveroDataWithHexString(*secret);
        if (!decoded)
            return nullptr;
        zuvero->d->apiSecret = decoded;
        zuvero->d->apiKey = ZuveroHexStringFromData(ZuveroSHA256(decoded));
    } else {
        zuvero->d->apiKey = ZVXModelValues::text(configuration.value(QStringLiteral("apiKey")));
    }
    zuvero->postInit();
    zuvero->fetchCustomizationValues(configuration);
    // The reasons for the photo library, camera and location hold for the whole process.
    ZVXAttachmentSwitches::declareUsageDescriptions(configuration);
    return zuvero.release();
}

Zuvero *Zuvero::copyWithZone(QObject *parent)
{
    auto *copy = new Zuvero(parent);
    ZuveroPrivate *c = copy->d.get();
    c->apiSecret = d->apiSecret;
    c->apiKey = d->apiKey;
    c->hostname = d->hostname;
    c->mapTileURLTemplate = d->mapTileURLTemplate;
    c->mapTileAttribution = d->mapTileAttribution;
    c->geocoderURL = d->geocoderURL;
    c->delegate = d->delegate;
    c->jwt = jwt();
    copy->postInit();
    // The identity is copied as it is: the copy neither resets nor registers for it.
    c->m_userIdentifier = d->m_userIdentifier;
    c->authenticationInfo = d->authenticationInfo;
    c->userName = d->userName;
    c->developmentAPNS = d->developmentAPNS;
    c->title = d->title;
    c->titleView = d->titleView;
    c->sdkVersion = d->sdkVersion;
    // The whole look, but for the input bar and the title colour, which start afresh.
    ZuveroAppearance look = d->appearance;
    look.inputBarTintColor = c->appearance.inputBarTintColor;
    look.inputBarBackgroundColor = c->appearance.inputBarBackgroundColor;
    look.navigationBarTitleColor = c->appearance.navigationBarTitleColor;
    c->appearance = look;
    return copy;
}

// --- Credentials and identity -------------------------------------------------

std::optional<QString> Zuvero::apiKey() const
{
    return d->apiKey;
}

void Zuvero::setApiKey(const std::optional<QString> &apiKey)
{
    d->apiKey = apiKey;
}

void Zuvero::setApiSecret(const QString &hexadecimalSecret)
{
    // Deliberately nothing else: a token already made stays, so set the secret before the identity.
    d->apiSecret = ZuveroDataWithHexString(hexadecimalSecret);
    d->apiKey = ZuveroHexStringFromData(ZuveroSHA256(d->apiSecret));
}

QString Zuvero::hostname() const
{
    return d->hostname;
}

void Zuvero::setHostname(const QString &hostname)
{
    if (hostname == d->hostname)
        return;
    d->hostname = hostname;
    reRegister(true);
}

QString Zuvero::installationIdentifier() const
{
    static QMutex mutex;
    static QString identifier;
    QMutexLocker locker(&mutex);
    if (identifier.isEmpty()) {
        ZuveroUserDefaults &defaults = ZuveroUserDefaults::standardUserDefaults();
        identifier = defaults.stringForKey(InstallationIdentifierKey);
        if (identifier.isEmpty()) {
            identifier = QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
            defaults.setObject(identifier, InstallationIdentifierKey);
            defaults.synchronize();
        }
    }
    return identifier;
}

std::optional<QString> Zuvero::userIdentifier() const
{
    return d->m_userIdentifier;
}

void Zuvero::setUserIdentifier(const std::optional<QString> &identifier)
{
    // Always, even for the same value: the conversation belongs to the identity.
    d->m_userIdentifier = identifier;
    d->jwt.reset();
    reRegister(true);
}

std::optional<QString> Zuvero::userName() const
{
    return d->userName;
}

void Zuvero::setUserName(const std::optional<QString> &name)
{
    d->userName = name;
    d->jwt.reset();
    reRegister(true);
}

std::optional<QVariantMap> Zuvero::authenticationInfo() const
{
    return d->authenticationInfo;
}

void Zuvero::setAuthenticationInfo(const std::optional<QVariantMap> &info)
{
    d->authenticationInfo = info;
    d->jwt.reset();
    reRegister(true);
}

std::optional<QString> Zuvero::jwt()
{
    if (!d->jwt && d->apiSecret)
        d->jwt = d->signedToken();
    return d->jwt;
}

void Zuvero::setJwt(const std::optional<QString> &jwt)
{
    if (jwt == d->jwt)
        return;
    d->jwt = jwt;
    // The token's claims are the identity; it is not verified here (the server is the judge).
    const QVariantMap claims = ZVXJWT::getPayloadNSDict(jwt).toMap();
    d->m_userIdentifier = ZVXModelValues::text(claims.value(QStringLiteral("userId")));
    d->userName = ZVXModelValues::text(claims.value(QStringLiteral("userName")));
    const QVariant extra = claims.value(QStringLiteral("extra"));
    d->authenticationInfo = extra.metaType().id() == QMetaType::QVariantMap
        ? std::optional<QVariantMap>(extra.toMap())
        : std::nullopt;
    reRegister(true);
}

QVariantMap Zuvero::jwtDictionary() const
{
    QVariantMap claims;
    if (d->authenticationInfo)
        claims.insert(QStringLiteral("extra"), *d->authenticationInfo);
    if (d->m_userIdentifier)
        claims.insert(QStringLiteral("userId"), *d->m_userIdentifier);
    if (d->userName)
        claims.insert(QStringLiteral("userName"), *d->userName);
    if (d->apiKey)
        claims.insert(QStringLiteral("apiKey"), *d->apiKey);
    claims.insert(QStringLiteral("installationId"), installationIdentifier());
    return claims;
}

std::optional<QVariantMap> Zuvero::messageContextInfo() const
{
    return d->messageContext ? std::optional<QVariantMap>(*d->messageContext) : std::nullopt;
}

void Zuvero::setMessageContextInfo(const std::optional<QVariantMap> &context)
{
    // A new object each time: a send clears only the very context it carried.
    d->messageContext = context ? std::make_shared<const QVariantMap>(*context) : nullptr;
}

std::optional<QByteArray> Zuvero::deviceToken()
{
    if (!d->deviceToken && !d->deviceTokenLoaded) {
        d->deviceTokenLoaded = true;
        d->deviceToken = ZuveroUserDefaults::standardUserDefaults().dataForKey(DeviceTokenKey);
    }
    return d->deviceToken;
}

void Zuvero::setDeviceToken(const std::optional<QByteArray> &token)
{
    const bool changed = token != deviceToken();
    d->deviceToken = token;
    d->deviceTokenLoaded = true;
    if (!changed)
        return;
    ZuveroUserDefaults &defaults = ZuveroUserDefaults::standardUserDefaults();
    if (token)
        defaults.setObject(*token, DeviceTokenKey);
    else
        defaults.removeObjectForKey(DeviceTokenKey);
    defaults.synchronize();
    reRegister(false);
}

bool Zuvero::developmentAPNS() const
{
    return d->developmentAPNS;
}

void Zuvero::setDevelopmentAPNS(bool development)
{
    if (development == d->developmentAPNS)
        return;
    d->developmentAPNS = development;
    reRegister(false);
}

void Zuvero::reRegister(bool reset)
{
    if (reset)
        resetInMemoryMessages();
    d->m_needsRegistration = true;
    const QPointer<Zuvero> self(this);
    registerIfNeeded([self](bool success, const ZuveroError &) {
        if (success && self)
            self->sendOfflineMessages();
    });
}

// --- Settings -----------------------------------------------------------------

QString Zuvero::mapTileURLTemplate() const
{
    return d->mapTileURLTemplate.isEmpty()
        ? QStringLiteral("https://%1/tiles/{z}/{x}/{y}.png").arg(d->hostname)
        : d->mapTileURLTemplate;
}

void Zuvero::setMapTileURLTemplate(const QString &urlTemplate)
{
    d->mapTileURLTemplate = urlTemplate;
}

QString Zuvero::geocoderURL() const
{
    return d->geocoderURL.isEmpty() ? QStringLiteral("https://%1/geocode").arg(d->hostname)
                                    : d->geocoderURL;
}

void Zuvero::setGeocoderURL(const QString &url)
{
    d->geocoderURL = url;
}

QString Zuvero::mapTileAttribution() const
{
    return d->mapTileAttribution;
}

void Zuvero::setMapTileAttribution(const QString &attribution)
{
    d->mapTileAttribution = attribution;
}

QString Zuvero::language() const
{
    return d->language;
}

void Zuvero::setLanguage(const QString &language)
{
    d->language = language;
}

bool Zuvero::updateAppBadgeNumber() const
{
    return d->updateAppBadgeNumber;
}

void Zuvero::setUpdateAppBadgeNumber(bool update)
{
    d->updateAppBadgeNumber = update;
}

double Zuvero::pollingInterval() const
{
    return d->pollingInterval;
}

void Zuvero::setPollingInterval(double seconds)
{
    d->pollingInterval = seconds;
}

bool Zuvero::interactiveNotification() const
{
    return d->interactiveNotification;
}

void Zuvero::setInteractiveNotification(bool interactive)
{
    d->interactiveNotification = interactive;
}

bool Zuvero::needsRegistration() const
{
    return d->m_needsRegistration;
}

void Zuvero::setNeedsRegistration(bool needs)
{
    d->m_needsRegistration = needs;
}

QString Zuvero::sdkVersion() const
{
    return d->sdkVersion;
}

void Zuvero::setSdkVersion(const QString &version)
{
    d->sdkVersion = version;
}

ZuveroAppearance &Zuvero::appearance()
{
    return d->appearance;
}

const ZuveroAppearance &Zuvero::appearance() const
{
    return d->appearance;
}

std::optional<QString> Zuvero::title() const
{
    return d->title;
}

void Zuvero::setTitle(const std::optional<QString> &title)
{
    d->title = title;
}

QObject *Zuvero::titleView() const
{
    return d->titleView;
}

void Zuvero::setTitleView(QObject *view)
{
    d->titleView = view;
}

// --- Connection and events ----------------------------------------------------

ZuveroConnection *Zuvero::connection() const
{
    return d->connection;
}

ZVXReachability *Zuvero::reachability() const
{
    return d->reachability;
}

std::shared_ptr<ZuveroDelegate> Zuvero::delegate() const
{
    return d->delegate.lock();
}

void Zuvero::setDelegate(const DelegatePtr &delegate)
{
    d->delegate = delegate;
}

void Zuvero::postEvent(const QString &name, const QVariantMap &userInfo,
                       std::function<void(ZuveroDelegate &, const ZuveroNotification &)> call)
{
    // The notification first, then the delegate with that very notification.
    const ZuveroNotification notification(name, this, userInfo);
    ZuveroNotificationCenter::defaultCenter()->post(notification);
    if (const std::shared_ptr<ZuveroDelegate> delegate = d->delegate.lock(); delegate && call)
        call(*delegate, notification);
}

qint64 Zuvero::unreadCount() const
{
    return d->m_unreadCount;
}

void Zuvero::setUnreadCount(qint64 count)
{
    d->m_unreadCount = count;
}

void Zuvero::updateUnreadCount(qint64 count)
{
    // A rising count is not shown while the user is looking at the chat.
    if (count > d->m_unreadCount && !d->visibleChatViewControllers.isEmpty()) {
        d->deferredUnreadCount = count;
        return;
    }
    d->deferredUnreadCount.reset();
    // An unchanged count is announced again only to repair the badge.
    if (count == d->m_unreadCount
        && (ZuveroApplication::sharedApplication()->applicationIconBadgeNumber() == count
            || !d->updateAppBadgeNumber))
        return;
    d->m_unreadCount = count;
    noteUnreadCountDidChange();
}

void Zuvero::noteUnreadCountDidChange()
{
    postEvent(ZuveroChatUnreadCountDidChangeNotification, {},
              [](ZuveroDelegate &delegate, const ZuveroNotification &notification) {
                  if (delegate.zuveroUnreadCountDidChange)
                      delegate.zuveroUnreadCountDidChange(notification);
              });
    if (d->updateAppBadgeNumber)
        ZuveroApplication::sharedApplication()->setApplicationIconBadgeNumber(d->m_unreadCount);
}

void Zuvero::fetchUnreadCountWithCompletionHandler(CountCompletion handler)
{
    // One fetch at a time, in order; each operation ends when its answer has been handed over.
    const QPointer<Zuvero> self(this);
    auto operation = ZVXBlockConcurrentOperation::blockConcurrentOperationWithBlock(
        [self, handler](const std::shared_ptr<ZVXBlockConcurrentOperation> &operation) {
            ZVXMainThread::async([self, handler, operation] {
                const auto answer = [handler, operation](qint64 count, const ZuveroError &error) {
                    ZVXMainThread::async([handler, operation, count, error] {
                        if (handler)
                            handler(count, error);
                        operation->finishWithSuccess(true);
                    });
                };
                if (self)
                    self->connection()->fetchUnreadCountWithCompletion(answer);
                else
                    answer(ZuveroNotFound,
                           ZuveroError::withDescription(QString(ZuveroErrorDomain),
                                                        ZuveroErrorNoHTTPResponse,
                                                        QStringLiteral("The facade is gone.")));
            });
        });
    d->fetchUnreadCountQueue->addOperation(operation);
}

std::optional<QString> Zuvero::welcomeMessage() const
{
    return d->welcomeMessage;
}

void Zuvero::setWelcomeMessage(const std::optional<QString> &message)
{
    d->welcomeMessage = message;
}

void Zuvero::updateWelcomeMessage(const QString &message)
{
    d->welcomeMessage = message;
    postEvent(ZuveroWelcomeMessageDidChangeNotification, {},
              [](ZuveroDelegate &delegate, const ZuveroNotification &notification) {
                  if (delegate.zuveroWelcomeMessageDidChange)
                      delegate.zuveroWelcomeMessageDidChange(notification);
              });
}

void Zuvero::beginNetworkActivity()
{
    ZVXMainThread::assertMainThread();
    if (d->networkActivityCounter++ != 0)
        return;
    if (const auto delegate = d->delegate.lock();
        delegate && delegate->zuveroDidBeginNetworkActivity)
        delegate->zuveroDidBeginNetworkActivity(this);
}

void Zuvero::endNetworkActivity()
{
    ZVXMainThread::assertMainThread();
    // Requests that follow each other closely make one burst.
    ZVXClock::after(NetworkActivityMergeDelay, this, [this] {
        if (d->networkActivityCounter == 0 || --d->networkActivityCounter != 0)
            return;
        if (const auto delegate = d->delegate.lock();
            delegate && delegate->zuveroDidEndNetworkActivity)
            delegate->zuveroDidEndNetworkActivity(this);
    });
}

// --- The chat screen ----------------------------------------------------------

void Zuvero::displayChatView()
{
    if (!jwt())
        throw ZuveroException(NotConfigured,
                              QStringLiteral("Please provide either an apiKey, jwt or apiSecret "
                                             "programmaticaly or through ZuveroConfig.plist."));
    const std::shared_ptr<ZuveroDelegate> delegate = d->delegate.lock();
    if (delegate && delegate->zuveroDisplayChatViewController)
        delegate->zuveroDisplayChatViewController(this);
    else
        d->userInterface->presentChatScreen(this);
    if (const auto current = d->delegate.lock(); current && current->onOpen)
        current->onOpen(this);
}

QWidget *Zuvero::backgroundView()
{
    return d->userInterface->backgroundView();
}

QWidget *Zuvero::chatViewController()
{
    ZVXMainThread::assertMainThread();
    if (!jwt())
        throw ZuveroException(NotConfigured,
                              QStringLiteral("Please provide either an apiKey, jwt or apiSecret."));
    return d->userInterface->makeChatScreen(this);
}

ZuveroChatScreenVisibility Zuvero::chatViewControllerDidAppear(QObject *)
{
    const quint64 identity = ++d->lastScreenIdentity;
    d->visibleChatViewControllers.insert(identity);
    return ZuveroChatScreenVisibility(this, identity);
}

void Zuvero::chatViewControllerDidDisappear(ZuveroChatScreenVisibility &visibility)
{
    visibility.end();
}

ZuveroChatScreenVisibility::ZuveroChatScreenVisibility(Zuvero *facade, quint64 identity)
    : m_facade(facade)
    , m_identity(identity)
{ }

ZuveroChatScreenVisibility::ZuveroChatScreenVisibility(ZuveroChatScreenVisibility &&other) noexcept
    : m_facade(std::exchange(other.m_facade, nullptr))
    , m_identity(std::exchange(other.m_identity, 0))
{ }

ZuveroChatScreenVisibility &
ZuveroChatScreenVisibility::operator=(ZuveroChatScreenVisibility &&other) noexcept
{
    if (this != &other) {
        end();
        m_facade = std::exchange(other.m_facade, nullptr);
        m_identity = std::exchange(other.m_identity, 0);
    }
    return *this;
}

ZuveroChatScreenVisibility::~ZuveroChatScreenVisibility()
{
    end();
}

bool ZuveroChatScreenVisibility::isActive() const
{
    return m_facade && m_identity != 0;
}

void ZuveroChatScreenVisibility::end()
{
    const QPointer<Zuvero> facade = std::exchange(m_facade, nullptr);
    const quint64 identity = std::exchange(m_identity, 0);
    if (facade && identity != 0)
        ZuveroPrivate::get(facade)->chatScreenDidDisappear(identity);
}

namespace {
QVariantMap screenInfo(QObject *viewController)
{
    return viewController
        ? QVariantMap{{QStringLiteral("viewController"), QVariant::fromValue(viewController)}}
        : QVariantMap();
}
} // namespace

void Zuvero::notifyChatWillAppearNotification(QObject *viewController)
{
    postEvent(ZuveroChatWillAppearNotification, screenInfo(viewController),
              [](ZuveroDelegate &delegate, const ZuveroNotification &notification) {
                  if (delegate.zuveroChatWillAppear)
                      delegate.zuveroChatWillAppear(notification);
              });
}

void Zuvero::notifyChatDidAppearNotification(QObject *viewController)
{
    postEvent(ZuveroChatDidAppearNotification, screenInfo(viewController),
              [](ZuveroDelegate &delegate, const ZuveroNotification &notification) {
                  if (delegate.zuveroChatDidAppear)
                      delegate.zuveroChatDidAppear(notification);
              });
}

void Zuvero::notifyChatWillDisappearNotification(QObject *viewController)
{
    postEvent(ZuveroChatWillDisappearNotification, screenInfo(viewController),
              [](ZuveroDelegate &delegate, const ZuveroNotification &notification) {
                  if (delegate.zuveroChatWillDisappear)
                      delegate.zuveroChatWillDisappear(notification);
              });
}

void Zuvero::notifyChatDidDisappearNotification(QObject *viewController)
{
    postEvent(ZuveroChatDidDisappearNotification, screenInfo(viewController),
              [this](ZuveroDelegate &delegate, const ZuveroNotification &notification) {
                  if (delegate.zuveroChatDidDisappear)
                      delegate.zuveroChatDidDisappear(notification);
                  if (delegate.onClose)
                      delegate.onClose(this);
              });
}

void Zuvero::notifyChatDidSendMessageNotification()
{
    postEvent(ZuveroChatDidSendMessageNotification, {},
              [](ZuveroDelegate &delegate, const ZuveroNotification &notification) {
                  if (delegate.zuveroChatDidSendMessage)
                      delegate.zuveroChatDidSendMessage(notification);
              });
}

void Zuvero::notifyChatDidReceiveNewMessagesNotification()
{
    postEvent(ZuveroChatDidReceiveNewMessagesNotification, {},
              [](ZuveroDelegate &delegate, const ZuveroNotification &notification) {
                  if (delegate.zuveroChatDidReceiveNewMessages)
                      delegate.zuveroChatDidReceiveNewMessages(notification);
              });
}

void Zuvero::markMessageAsRead(const ZuveroChatMessagePtr &)
{
    // Read marks reach the server through the connection; nothing changes here before it answers.
}

// --- Conversation cache and offline queue -------------------------------------

QVariantMap Zuvero::cachedConversation() const
{
    return d->offlineQueue->cachedConversation();
}

bool Zuvero::saveCachedMessages(const ZuveroChatMessageList &messages, bool hasMoreMessages)
{
    d->offlineQueue->saveCachedMessages(messages, hasMoreMessages);
    return true;
}

ZuveroChatMessageList Zuvero::offlineMessages() const
{
    return d->offlineQueue->offlineMessages();
}

bool Zuvero::saveOfflineMessages(const ZuveroChatMessageList &messages)
{
    d->offlineQueue->saveOfflineMessages(messages);
    return true;
}

void Zuvero::resetInMemoryMessages()
{
    d->offlineQueue->reset();
    d->attachOfflineStore();
}

bool Zuvero::persistsOfflineMessages() const
{
    return d->persistsOfflineMessages;
}

void Zuvero::setPersistsOfflineMessages(bool persists)
{
    if (persists == d->persistsOfflineMessages)
        return;
    d->persistsOfflineMessages = persists;
    if (!persists) {
        d->offlineQueue->setStore(std::nullopt);
        return;
    }
    d->attachOfflineStore();
    d->offlineQueue->sendOfflineMessagesIfWaiting();
}

QString Zuvero::offlineMessagesDirectory() const
{
    if (!d->offlineMessagesDirectory.isEmpty())
        return d->offlineMessagesDirectory;
    return QDir(QStandardPaths::writableLocation(QStandardPaths::AppDataLocation))
        .filePath(QStringLiteral("Zuvero"));
}

void Zuvero::setOfflineMessagesDirectory(const QString &folder)
{
    if (folder == d->offlineMessagesDirectory)
        return;
    d->offlineMessagesDirectory = folder;
    d->attachOfflineStore();
}

void ZuveroPrivate::attachOfflineStore()
{
    if (persistsOfflineMessages)
        offlineQueue->setStore(
            ZVXOfflineStore(q->offlineMessagesDirectory(), hostname, m_userIdentifier));
}

void Zuvero::addOfflineMessage(const ZuveroChatMessagePtr &message)
{
    d->offlineQueue->addOfflineMessage(message);
}

void Zuvero::sendOfflineMessages()
{
    d->offlineQueue->sendOfflineMessages(false);
}

void Zuvero::postMessage(const QString &text, Completion completion)
{
    d->offlineQueue->postMessage(text, completion);
}

void Zuvero::sendMessage(const QString &text)
{
    if (!text.trimmed().isEmpty())
        postMessage(text, [](bool, const ZuveroError &) {});
}

void Zuvero::cleanDiskCacheIfNeeded()
{
    ZVXOfflineQueue::cleanDiskCacheIfNeeded();
}

// --- Registration and push ----------------------------------------------------

void Zuvero::registerIfNeeded(Completion completion)
{
    d->registration->registerIfNeeded(completion);
}

bool Zuvero::consumeReceivedRemoteNotification(const QVariantMap &payload)
{
    return d->pushHandler->consumeReceivedRemoteNotification(payload);
}

void Zuvero::handleRemoteNotificationWithIdentifier(const QString &identifier,
                                                    const QVariantMap &responseInfo)
{
    d->pushHandler->handleRemoteNotificationWithIdentifier(identifier, responseInfo);
}

QString Zuvero::localizeString(const QString &key)
{
    return ZVXLocalization::localizeString(key);
}

// --- Configuration ------------------------------------------------------------

QVariantMap Zuvero::normalizeConfigurationDictionary(const QVariantMap &raw)
{
    return ZVXConfiguration::normalizeConfigurationDictionary(raw);
}

QStringList Zuvero::requiredConfigurationKeys()
{
    return ZVXConfiguration::requiredConfigurationKeys();
}

QStringList Zuvero::mapConfigurationKeys()
{
    return ZVXConfiguration::mapConfigurationKeys();
}

QStringList Zuvero::localizableStringCustomizationKeys()
{
    return ZVXConfiguration::localizableStringCustomizationKeys();
}

QStringList Zuvero::colorCustomizationKeys()
{
    return ZVXConfiguration::colorCustomizationKeys();
}

QStringList Zuvero::fontCustomizationKeys()
{
    return ZVXConfiguration::fontCustomizationKeys();
}

QStringList Zuvero::insetsCustomizationKeys()
{
    return ZVXConfiguration::insetsCustomizationKeys();
}

QStringList Zuvero::imageCustomizationKeys()
{
    return ZVXConfiguration::imageCustomizationKeys();
}

QStringList Zuvero::allCustomizationKeys()
{
    return ZVXConfiguration::allCustomizationKeys();
}

std::optional<QColor> Zuvero::zuveroColorWithHexCode(const QString &text)
{
    return ZVXConfiguration::zuveroColorWithHexCode(text);
}

std::optional<QVariantMap> Zuvero::configurationDictionaryWithContentsOfFile(const QString &path,
                                                                             ZuveroError *error)
{
    return ZVXConfiguration::readConfigurationFile(path, error);
}

void Zuvero::fetchCustomizationValues(const QVariantMap &values)
{
    for (const QString &key : ZVXConfiguration::allCustomizationKeys()) {
        const auto value = values.constFind(key);
        if (value == values.cend())
            continue;
        bool applied = false;
        if (key == QLatin1String("title")) {
            if ((applied = value->metaType().id() == QMetaType::QString))
                d->title = value->toString();
        } else if (key == QLatin1String("interactiveNotification")) {
            if ((applied = value->metaType().id() == QMetaType::Bool))
                d->interactiveNotification = value->toBool();
        } else {
            applied = d->appearance.setValue(key, *value);
        }
        if (!applied)
            ZVXLog(QStringLiteral("Could not configure %1, format of %2 is not valid.")
                       .arg(key, ZVXJSON::describe(*value)));
    }
    d->appearance.fillFonts();
}

void Zuvero::setupDefaultCustomization()
{
    d->appearance = ZuveroAppearance::defaults();
    d->interactiveNotification = true;
}

void Zuvero::disableLibraryAttachment()
{
    ZVXAttachmentSwitches::set(ZVXAttachmentSwitches::Switch::Library, false);
}

void Zuvero::disableCameraAttachment()
{
    ZVXAttachmentSwitches::set(ZVXAttachmentSwitches::Switch::Camera, false);
}

void Zuvero::disableLocationAttachment()
{
    ZVXAttachmentSwitches::set(ZVXAttachmentSwitches::Switch::Location, false);
}

void Zuvero::disableAttachments()
{
    disableLibraryAttachment();
    disableCameraAttachment();
    disableLocationAttachment();
}

bool Zuvero::isLibraryAttachmentEnabled()
{
    return ZVXAttachmentSwitches::isOn(ZVXAttachmentSwitches::Switch::Library);
}

bool Zuvero::isCameraAttachmentEnabled()
{
    return ZVXAttachmentSwitches::isOn(ZVXAttachmentSwitches::Switch::Camera);
}

bool Zuvero::isLocationAttachmentEnabled()
{
    return ZVXAttachmentSwitches::isOn(ZVXAttachmentSwitches::Switch::Location);
}

bool Zuvero::isAttachmentsEnabled()
{
    return isLibraryAttachmentEnabled() || isCameraAttachmentEnabled()
        || isLocationAttachmentEnabled();
}
