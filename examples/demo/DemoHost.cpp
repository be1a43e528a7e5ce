#include "DemoHost.h"

#include "DemoPushStream.h"

#include <Zuvero/Zuvero.h>
#include <Zuvero/ZuveroApplication.h>
#include <Zuvero/ZuveroCertificateAuthorities.h>
#include <Zuvero/ZuveroData.h>

#include <QFile>
#include <QSslCertificate>
#include <QWidget>

namespace {

constexpr QSize ChatWindowSize{480, 720};

} // namespace

std::unique_ptr<DemoHost> DemoHost::create(const DemoSettings &settings, QString *error)
{
    if (!settings.origin.isValid() || settings.origin.scheme() != QLatin1String("https")
        || settings.origin.host().isEmpty()) {
        *error = QStringLiteral("the server must be an https:// address with a host name");
        return nullptr;
    }

    QSslConfiguration tls = QSslConfiguration::defaultConfiguration();
    if (!settings.authorityFile.isEmpty()) {
        QFile file(settings.authorityFile);
        if (!file.open(QIODevice::ReadOnly)) {
            *error = QStringLiteral("cannot read %1: %2")
                         .arg(settings.authorityFile, file.errorString());
            return nullptr;
        }
        const QByteArray pem = file.readAll();
        const QList<QSslCertificate> authorities = QSslCertificate::fromData(pem);
        // The library and the demo's own push stream trust the same authority.
        if (authorities.isEmpty() || ZuveroAddTrustedCertificateAuthorities(pem) == 0) {
            *error
                = QStringLiteral("%1 holds no certificate authority").arg(settings.authorityFile);
            return nullptr;
        }
        tls.addCaCertificates(authorities);
    }

    ZuveroError readError;
    const std::optional<QVariantMap> raw
        = Zuvero::configurationDictionaryWithContentsOfFile(settings.configurationFile, &readError);
    if (!raw) {
        *error = QStringLiteral("cannot read the configuration %1: %2")
                     .arg(settings.configurationFile, readError.localizedDescription());
        return nullptr;
    }
    QVariantMap configuration = Zuvero::normalizeConfigurationDictionary(*raw);
    const int port = settings.origin.port(443);
    configuration.insert(QStringLiteral("hostname"),
                         port == 443
                             ? settings.origin.host()
                             : QStringLiteral("%1:%2").arg(settings.origin.host()).arg(port));
    configuration.insert(QStringLiteral("apiSecret"), settings.apiSecret);

    std::unique_ptr<DemoHost> host(new DemoHost);
    host->m_zuvero = Zuvero::initWithConfigurationDictionary(configuration, host.get());
    if (!host->m_zuvero) {
        *error = QStringLiteral("the API secret must be hexadecimal");
        return nullptr;
    }
    Zuvero *zuvero = host->m_zuvero;
    zuvero->setUserIdentifier(settings.userIdentifier);
    zuvero->setUserName(settings.userName);

    DemoHost *self = host.get();
    host->m_delegate = std::make_shared<ZuveroDelegate>();
    // The chat opens in a window of the demo's own, whoever asks for it: the support button,
    // a tap on the in-app banner, or the desktop notification.
    host->m_delegate->zuveroDisplayChatViewController = [self](Zuvero *) { self->presentChat(); };
    host->m_delegate->zuveroUnreadCountDidChange = [self](const ZuveroNotification &) {
        Q_EMIT self->unreadCountChanged(self->m_zuvero->unreadCount());
    };
    zuvero->setDelegate(host->m_delegate);

    host->m_push = new DemoPushStream(zuvero, settings.origin, tls, host.get());
    // The push token names this installation; the event stream is what delivers.
    ZuveroApplication::sharedApplication()->setPushChannel(
        {[](ZuveroNotificationTypes, const QList<ZuveroNotificationCategory> &) {},
         [self] {
             if (self->m_zuvero && !self->m_zuvero->deviceToken())
                 self->m_zuvero->setDeviceToken(
                     ZuveroSHA256(self->m_zuvero->installationIdentifier().toUtf8()));
         }});
    return host;
}

DemoHost::~DemoHost()
{
    delete m_chatWindow;
}

void DemoHost::start()
{
    registerThenListen();
}

void DemoHost::registerThenListen()
{
    const QPointer<DemoHost> self(this);
    m_zuvero->registerIfNeeded([self](bool success, const ZuveroError &) {
        if (!self)
            return;
        Q_EMIT self->registered(success);
        if (!success)
            return;
        self->m_push->restart();
        self->m_zuvero->fetchUnreadCountWithCompletionHandler();
    });
}

void DemoHost::openChat()
{
    m_zuvero->displayChatView();
}

void DemoHost::presentChat()
{
    if (m_chatWindow) {
        m_chatWindow->raise();
        m_chatWindow->activateWindow();
        return;
    }
    QWidget *chat = m_zuvero->chatViewController();
    if (!chat)
        return;
    // A window of its own over the shop, closed by its Done button.
    chat->setParent(m_mainWindow, Qt::Window);
    chat->setAttribute(Qt::WA_DeleteOnClose);
    chat->resize(ChatWindowSize);
    m_chatWindow = chat;
    connect(chat, &QObject::destroyed, this, [this] { Q_EMIT chatClosed(); });
    chat->show();
    chat->raise();
    chat->activateWindow();
    Q_EMIT chatOpened(chat);
}

void DemoHost::closeChat()
{
    if (m_chatWindow)
        m_chatWindow->close();
}

void DemoHost::switchUser(const QString &identifier, const QString &name)
{
    closeChat();
    m_push->stop();
    m_zuvero->setUserIdentifier(identifier);
    m_zuvero->setUserName(name.isEmpty() ? std::nullopt : std::optional<QString>(name));
    m_zuvero->setUnreadCount(0);
    Q_EMIT userChanged();
    registerThenListen();
}
