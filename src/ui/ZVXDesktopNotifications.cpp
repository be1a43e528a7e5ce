#include "ZVXDesktopNotifications.h"

#include "ZVXLocalization.h"
#include "ZVXLogging.h"
#include "Zuvero.h"
#include "ZuveroException.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QFile>
#include <QGuiApplication>
#include <QIcon>
#include <QStandardPaths>
#include <QWindow>

namespace {

const QString Service = QStringLiteral("org.freedesktop.Notifications");
const QString Path = QStringLiteral("/org/freedesktop/Notifications");
// The key the service reports when the notification itself is clicked.
const QString DefaultAction = QStringLiteral("default");
// With a text field in the notification; the text comes back as NotificationReplied.
const QString InlineReplyAction = QStringLiteral("inline-reply");
// Without one: a button that opens the chat, to answer there.
const QString ReplyAction = QStringLiteral("reply");

QString desktopFileName()
{
    QString name = QGuiApplication::desktopFileName();
    if (!name.isEmpty() && !name.endsWith(QLatin1String(".desktop")))
        name += QLatin1String(".desktop");
    return name;
}

// The "Icon" key of the file's main group; localised variants ("Icon[de]") are other keys.
QString desktopEntryIcon(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return {};
    bool inMainGroup = false;
    while (!file.atEnd()) {
        const QString line = QString::fromUtf8(file.readLine()).trimmed();
        if (line.startsWith(u'[')) {
            inMainGroup = line == QLatin1String("[Desktop Entry]");
            continue;
        }
        const qsizetype equals = line.indexOf(u'=');
        if (inMainGroup && equals > 0 && line.left(equals).trimmed() == QLatin1String("Icon"))
            return line.mid(equals + 1).trimmed();
    }
    return {};
}

} // namespace

ZVXDesktopNotifications::ZVXDesktopNotifications(QObject *parent)
    : QObject(parent)
{ }

ZVXDesktopNotifications::~ZVXDesktopNotifications()
{
    if (m_listening) {
        QDBusConnection bus = QDBusConnection::sessionBus();
        const QString interface = Service;
        bus.disconnect(Service, Path, interface, QStringLiteral("ActionInvoked"), this,
                       SLOT(actionInvoked(uint, QString)));
        bus.disconnect(Service, Path, interface, QStringLiteral("NotificationReplied"), this,
                       SLOT(notificationReplied(uint, QString)));
        bus.disconnect(Service, Path, interface, QStringLiteral("NotificationClosed"), this,
                       SLOT(notificationClosed(uint, uint)));
    }
}

bool ZVXDesktopNotifications::applicationInBackground()
{
    return QGuiApplication::applicationState() != Qt::ApplicationActive
        || !QGuiApplication::focusWindow();
}

QString ZVXDesktopNotifications::iconName()
{
    const QString desktopFile = desktopFileName();
    if (!desktopFile.isEmpty()) {
        const QString path
            = QStandardPaths::locate(QStandardPaths::ApplicationsLocation, desktopFile);
        if (!path.isEmpty()) {
            if (const QString icon = desktopEntryIcon(path); !icon.isEmpty())
                return icon;
        }
    }
    return QGuiApplication::windowIcon().name();
}

void ZVXDesktopNotifications::listen(QDBusConnection &bus)
{
    if (m_listening)
        return;
    // Named by the service, so that Qt passes on only what its present owner emits.
    const QString interface = Service;
    m_listening = bus.connect(Service, Path, interface, QStringLiteral("ActionInvoked"), this,
                              SLOT(actionInvoked(uint, QString)))
        && bus.connect(Service, Path, interface, QStringLiteral("NotificationReplied"), this,
                       SLOT(notificationReplied(uint, QString)))
        && bus.connect(Service, Path, interface, QStringLiteral("NotificationClosed"), this,
                       SLOT(notificationClosed(uint, uint)));
}

void ZVXDesktopNotifications::show(const ZuveroChatMessagePtr &message, Zuvero *facade,
                                   const std::function<void()> &otherwise)
{
    if (!message || !facade || message->text().value_or(QString()).isEmpty())
        return;
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        ZVXLog(QStringLiteral("ZVXDesktopNotifications: no session bus, the message shows in the "
                              "application."));
        otherwise();
        return;
    }
    listen(bus);
    // Asked each time: the service may have been replaced by one that can do more, or less.
    const QDBusMessage ask
        = QDBusMessage::createMethodCall(Service, Path, Service, QStringLiteral("GetCapabilities"));
    auto *watcher = new QDBusPendingCallWatcher(bus.asyncCall(ask), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, message, target = QPointer<Zuvero>(facade),
             otherwise](QDBusPendingCallWatcher *call) {
                call->deleteLater();
                const QDBusPendingReply<QStringList> capabilities = *call;
                if (capabilities.isError()) {
                    ZVXLog(QStringLiteral("ZVXDesktopNotifications: no notification service "
                                          "(%1), the message shows in the application.")
                               .arg(capabilities.error().name()));
                    otherwise();
                    return;
                }
                if (!target)
                    return;
                QDBusConnection bus = QDBusConnection::sessionBus();
                notify(bus, message, target, capabilities.value(), otherwise);
            });
}

void ZVXDesktopNotifications::notify(QDBusConnection &bus, const ZuveroChatMessagePtr &message,
                                     Zuvero *facade, const QStringList &capabilities,
                                     const std::function<void()> &otherwise)
{
    // Who wrote it, as the in-app banner names them.
    QString summary = message->userName().value_or(QString());
    if (summary.isEmpty())
        summary = facade->title().value_or(QString());
    if (summary.isEmpty())
        summary = ZVXLocalization::localizeString(QStringLiteral("zuveroChatTitle"));
    QString body = message->text().value_or(QString());
    // A service that reads markup would take an agent's "<b>" or "&" for its own.
    if (capabilities.contains(QLatin1String("body-markup")))
        body = body.toHtmlEscaped();

    QStringList actions{DefaultAction,
                        ZVXLocalization::localizeString(QStringLiteral("zuveroNotificationOpen"))};
    if (facade->interactiveNotification()) {
        actions << (capabilities.contains(InlineReplyAction) ? InlineReplyAction : ReplyAction)
                << ZVXLocalization::localizeString(QStringLiteral("zuveroNotificationReply"));
    }
    QVariantMap hints{{QStringLiteral("category"), QStringLiteral("im.received")}};
    if (const QString desktopFile = desktopFileName(); !desktopFile.isEmpty())
        hints.insert(QStringLiteral("desktop-entry"), desktopFile.chopped(8));

    // One notification per facade: a newer message takes the older one's place.
    uint replaces = 0;
    for (auto it = m_shown.cbegin(); it != m_shown.cend(); ++it) {
        if (it.value() == facade)
            replaces = it.key();
    }

    QDBusMessage call
        = QDBusMessage::createMethodCall(Service, Path, Service, QStringLiteral("Notify"));
    call << QGuiApplication::applicationDisplayName() << replaces << iconName() << summary << body
         << actions << hints << qint32(-1);
    auto *watcher = new QDBusPendingCallWatcher(bus.asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, replaces, target = QPointer<Zuvero>(facade),
             otherwise](QDBusPendingCallWatcher *pending) {
                pending->deleteLater();
                const QDBusPendingReply<uint> id = *pending;
                if (id.isError()) {
                    ZVXLog(QStringLiteral("ZVXDesktopNotifications: the notification service "
                                          "refused the message (%1), it shows in the application.")
                               .arg(id.error().name()));
                    otherwise();
                    return;
                }
                m_shown.remove(replaces);
                m_shown.insert(id.value(), target);
            });
}

void ZVXDesktopNotifications::openChat(uint id)
{
    const QPointer<Zuvero> facade = m_shown.value(id);
    if (!facade)
        return;
    try {
        facade->displayChatView();
    } catch (const ZuveroException &error) {
        // A signal from the bus has no caller to throw to.
        ZVXLogError(QStringLiteral("ZVXDesktopNotifications: cannot open the chat: %1")
                        .arg(error.reason()));
    }
}

void ZVXDesktopNotifications::actionInvoked(uint id, const QString &action)
{
    // Another application's notification, or an action this one did not offer.
    if (!m_shown.contains(id))
        return;
    if (action == DefaultAction || action == ReplyAction || action == InlineReplyAction)
        openChat(id);
}

void ZVXDesktopNotifications::notificationReplied(uint id, const QString &text)
{
    const QPointer<Zuvero> facade = m_shown.value(id);
    if (!facade)
        return;
    facade->handleRemoteNotificationWithIdentifier(
        ZuveroNotificationActionSend, {{ZuveroNotificationActionResponseTypedTextKey, text}});
}

void ZVXDesktopNotifications::notificationClosed(uint id, uint)
{
    m_shown.remove(id);
}
