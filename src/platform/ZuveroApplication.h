#pragma once

//! \file
//! The application as the library sees it: badge, background work, foreground, push.

#include "zuvero_export.h"

#include <QList>
#include <QObject>

#include <functional>
#include <memory>

//! Identifies a task begun with ZuveroApplication::beginBackgroundTask().
using ZuveroBackgroundTaskIdentifier = quint64;
//! Never handed out by beginBackgroundTask(); "no task".
inline constexpr ZuveroBackgroundTaskIdentifier ZuveroBackgroundTaskInvalid = 0;

//! Posted on the default notification center, with the ZuveroApplication as object.
inline constexpr QLatin1String ZuveroApplicationWillEnterForegroundNotification{
    "ZuveroApplicationWillEnterForegroundNotification"};

//! The kinds of notification the library asks a push channel to deliver.
enum class ZuveroNotificationType {
    None = 0, //!< none
    Badge = 1, //!< a count on the application's icon
    Sound = 2, //!< a sound
    Alert = 4, //!< a visible message
};
Q_DECLARE_FLAGS(ZuveroNotificationTypes, ZuveroNotificationType)
Q_DECLARE_OPERATORS_FOR_FLAGS(ZuveroNotificationTypes)

//! An action the user can take on a delivered notification, such as a typed reply.
struct ZuveroNotificationAction
{
    QString identifier; //!< what the payload's handler is told, e.g. "ACTION_SEND"
    QString title; //!< the button's title
    bool activatesInBackground = true; //!< handled without bringing the application forward
    bool destructive = false; //!< shown as an action that deletes or discards
    bool textInput = false; //!< the user types a text with it (a reply)
    bool authenticationRequired = false; //!< only once the user has unlocked the session
};

//! A kind of notification, named by the payload, with the actions it offers.
struct ZuveroNotificationCategory
{
    QString identifier; //!< the category a payload names, e.g. "interactive"
    QList<ZuveroNotificationAction> actions; //!< in the order they are offered
};

/*!
    The host's push-notification channel. Linux has no single push service,
    so the host brings its own: the library asks it to register the kinds of
    notification it wants and to register for remote notifications, and the
    host hands the resulting device token to the facade and each received
    payload to consumeReceivedRemoteNotification().
*/
struct ZuveroPushChannel
{
    //! Asked to deliver notifications of \a types, with the actions of \a categories.
    std::function<void(ZuveroNotificationTypes types,
                       const QList<ZuveroNotificationCategory> &categories)>
        registerUserNotificationSettings;
    //! Asked to register the device with the push service; the token goes to the facade.
    std::function<void()> registerForRemoteNotifications;
};

/*!
    What the library needs from the application it runs in: the badge
    number, background work, the return to the foreground, push
    registration. One instance per process,
    living on the main thread.
*/
class ZUVERO_EXPORT ZuveroApplication : public QObject
{
    Q_OBJECT
    Q_PROPERTY(qint64 applicationIconBadgeNumber READ applicationIconBadgeNumber WRITE
                   setApplicationIconBadgeNumber NOTIFY applicationIconBadgeNumberChanged)
    Q_PROPERTY(int backgroundTaskCount READ backgroundTaskCount NOTIFY backgroundTaskCountChanged)

public:
    //! The process's instance, made on first use on the main thread.
    static ZuveroApplication *sharedApplication();
    ~ZuveroApplication() override;

    /*!
        The number on the application's launcher icon. Setting it emits
        applicationIconBadgeNumberChanged() and, where a session bus is
        available, sends the launcher-entry "Update" signal that docks and
        task bars show as a count (for the desktop file named by
        QGuiApplication::desktopFileName(), else the application name).
    */
    qint64 applicationIconBadgeNumber() const;
    //! Shows \a number on the launcher icon; see applicationIconBadgeNumber().
    void setApplicationIconBadgeNumber(qint64 number);

    /*!
        Marks the start of work that should be allowed to finish. Always
        returns a valid identifier; \a expirationHandler runs if the host calls
        expireBackgroundTasks() before the task ends. Thread-safe.
    */
    ZuveroBackgroundTaskIdentifier beginBackgroundTask(std::function<void()> expirationHandler
                                                       = {});
    //! Marks the task \a identifier as finished; an unknown or ended identifier is ignored.
    void endBackgroundTask(ZuveroBackgroundTaskIdentifier identifier);
    //! Tasks begun and not yet ended; a host may keep the system awake while it is above 0.
    int backgroundTaskCount() const;
    //! Calls the expiration handler of every running task, e.g. before the system suspends.
    void expireBackgroundTasks();

    /*!
        Posts ZuveroApplicationWillEnterForegroundNotification. Called by
        the library whenever a GUI application becomes active again after
        having been active before; a headless host calls it itself when it
        returns to the user.
    */
    void notifyWillEnterForeground();

    //! Plugs in the host's push service; the library registers through \a channel.
    void setPushChannel(const ZuveroPushChannel &channel);
    //! True once the host has plugged in a push channel.
    bool canRegisterForRemoteNotifications() const;
    //! Hands \a types and \a categories to the push channel, if there is one.
    void registerUserNotificationSettings(ZuveroNotificationTypes types,
                                          const QList<ZuveroNotificationCategory> &categories);
    //! Asks the push channel, if there is one, to register the device.
    void registerForRemoteNotifications();

Q_SIGNALS:
    //! The badge now shows \a number.
    void applicationIconBadgeNumberChanged(qint64 number);
    //! \a count tasks are running now.
    void backgroundTaskCountChanged(int count);

private:
    ZuveroApplication();
    void watchApplicationState();
    void sendLauncherEntryUpdate(qint64 number) const;

    struct Private;
    std::unique_ptr<Private> d;
};
