#pragma once

#include "ZuveroChatMessage.h"
#include "zuvero_export.h"

#include <QHash>
#include <QObject>
#include <QPointer>

#include <functional>

class QDBusConnection;
class Zuvero;

/*!
    Pushed messages that arrive while the user is in another application,
    shown by the desktop's notification service (org.freedesktop.Notifications
    on the session bus) so that they are seen at all: the in-app banner only
    shows over the application's own windows.

    A notification carries the application's name and icon, the agent's name
    and the text. Activating it opens the chat through the facade's
    displayChatView(). Where the facade's interactiveNotification() is on it
    also offers "Reply": typed into the notification where the service lists
    "inline-reply", and then sent as the interactive answer
    (handleRemoteNotificationWithIdentifier with ZuveroNotificationActionSend);
    else it opens the chat to answer there. Only the signals about the
    notifications sent from here are acted on.
*/
class ZUVERO_EXPORT ZVXDesktopNotifications : public QObject
{
    Q_OBJECT

public:
    explicit ZVXDesktopNotifications(QObject *parent = nullptr);
    ~ZVXDesktopNotifications() override;

    //! True when no window of the application has the user's attention.
    static bool applicationInBackground();

    /*!
        Shows \a message of \a facade as a desktop notification, replacing the facade's one still
        on screen. Runs \a otherwise instead, once, when no notification service answers.
    */
    void show(const ZuveroChatMessagePtr &message, Zuvero *facade,
              const std::function<void()> &otherwise);

    //! The icon a notification names: the desktop file's, else the window icon's theme name.
    static QString iconName();

private Q_SLOTS:
    void actionInvoked(uint id, const QString &action);
    void notificationReplied(uint id, const QString &text);
    void notificationClosed(uint id, uint reason);

private:
    void listen(QDBusConnection &bus);
    void notify(QDBusConnection &bus, const ZuveroChatMessagePtr &message, Zuvero *facade,
                const QStringList &capabilities, const std::function<void()> &otherwise);
    void openChat(uint id);

    bool m_listening = false;
    // What was sent from here and is still on screen, with the facade it speaks for.
    QHash<uint, QPointer<Zuvero>> m_shown;
};
