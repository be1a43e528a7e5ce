#pragma once

#include "zuvero_export.h"

#include <QList>
#include <QObject>

#include <functional>
#include <memory>

using ZuveroBackgroundTaskIdentifier = quint64;
//! Never handed out by beginBackgroundTask(); "no task".
inline constexpr ZuveroBackgroundTaskIdentifier ZuveroBackgroundTaskInvalid = 0;

//! Posted on the default notification center, with the ZuveroApplication as object.
inline constexpr QLatin1String ZuveroApplicationWillEnterForegroundNotification{
    "ZuveroApplicationWillEnterForegroundNotification"};

enum class ZuveroNotificationType {
    None = 0,
    Badge = 1,
    Sound = 2,
    Alert = 4,
};
Q_DECLARE_FLAGS(ZuveroNotificationTypes, ZuveroNotificationType)
Q_DECLARE_OPERATORS_FOR_FLAGS(ZuveroNotificationTypes)

//! An action the user can take on a delivered notification, such as a typed reply.
struct ZuveroNotificationAction
{
    QString identifier;
    QString title;
    bool activatesInBackground = true;
    bool destructive = false;
    bool textInput = false;
    bool authenticationRequired = false;
};

struct ZuveroNotificationCategory
{
    QString identifier;
    QList<ZuveroNotificationAction> actions;
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
    std::function<void(ZuveroNotificationTypes types,
                       const QList<ZuveroNotificationCategory> &categories)>
        registerUserNotificationSettings;
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
    void setApplicationIconBadgeNumber(qint64 number);

    /*!
        Marks the start of work that should be allowed to finish. Always
        returns a valid identifier; \a expirationHandler runs if the host calls
        expireBackgroundTasks() before the task ends. Thread-safe.
    */
    ZuveroBackgroundTaskIdentifier beginBackgroundTask(std::function<void()> expirationHandler
                                                       = {});
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

    void setPushChannel(const ZuveroPushChannel &channel);
    //! True once the host has plugged in a push channel.
    bool canRegisterForRemoteNotifications() const;
    void registerUserNotificationSettings(ZuveroNotificationTypes types,
                                          const QList<ZuveroNotificationCategory> &categories);
    void registerForRemoteNotifications();

Q_SIGNALS:
    void applicationIconBadgeNumberChanged(qint64 number);
    void backgroundTaskCountChanged(int count);

private:
    ZuveroApplication();
    void watchApplicationState();
    void sendLauncherEntryUpdate(qint64 number) const;

    struct Private;
    std::unique_ptr<Private> d;
};
