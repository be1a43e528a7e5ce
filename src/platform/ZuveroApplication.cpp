#include "ZuveroApplication.h"

#include "ZVXLogging.h"
#include "ZVXMainThread.h"
#include "ZuveroNotificationCenter.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QGuiApplication>
#include <QHash>

#include <mutex>

struct ZuveroApplication::Private
{
    qint64 badgeNumber = 0;

    // Worker threads of operations begin and end tasks: a std::mutex keeps that
    // synchronisation visible to ThreadSanitizer, which cannot see into Qt.
    mutable std::mutex tasksMutex;
    ZuveroBackgroundTaskIdentifier lastTask = ZuveroBackgroundTaskInvalid;
    QHash<ZuveroBackgroundTaskIdentifier, std::function<void()>> tasks;

    Qt::ApplicationState lastState = Qt::ApplicationInactive;
    bool hasBeenActive = false;

    ZuveroPushChannel pushChannel;
};

ZuveroApplication *ZuveroApplication::sharedApplication()
{
    static ZuveroApplication application;
    return &application;
}

ZuveroApplication::ZuveroApplication()
    : d(std::make_unique<Private>())
{
    if (QCoreApplication *app = QCoreApplication::instance()) {
        // Background-task calls may arrive first from a worker thread.
        if (thread() != app->thread())
            moveToThread(app->thread());
        watchApplicationState();
    }
}

ZuveroApplication::~ZuveroApplication() = default;

void ZuveroApplication::watchApplicationState()
{
    auto *gui = qobject_cast<QGuiApplication *>(QCoreApplication::instance());
    if (!gui)
        return;
    d->lastState = QGuiApplication::applicationState();
    d->hasBeenActive = d->lastState == Qt::ApplicationActive;
    // The first activation is the launch, not a return to the foreground.
    connect(gui, &QGuiApplication::applicationStateChanged, this,
            [this](Qt::ApplicationState state) {
                const bool returning = state == Qt::ApplicationActive
                    && d->lastState != Qt::ApplicationActive && d->hasBeenActive;
                d->lastState = state;
                d->hasBeenActive = d->hasBeenActive || state == Qt::ApplicationActive;
                if (returning)
                    notifyWillEnterForeground();
            });
}

qint64 ZuveroApplication::applicationIconBadgeNumber() const
{
    return d->badgeNumber;
}

void ZuveroApplication::setApplicationIconBadgeNumber(qint64 number)
{
    if (d->badgeNumber == number)
        return;
    d->badgeNumber = number;
    sendLauncherEntryUpdate(number);
    Q_EMIT applicationIconBadgeNumberChanged(number);
}

void ZuveroApplication::sendLauncherEntryUpdate(qint64 number) const
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return;
    QString desktopFile = QGuiApplication::desktopFileName();
    if (desktopFile.isEmpty())
        desktopFile = QCoreApplication::applicationName();
    if (desktopFile.isEmpty())
        return;
    if (!desktopFile.endsWith(QLatin1String(".desktop")))
        desktopFile += QLatin1String(".desktop");

    QDBusMessage update = QDBusMessage::createSignal(
        QStringLiteral("/com/zuvero/LauncherEntry"),
        QStringLiteral("com.canonical.Unity.LauncherEntry"), QStringLiteral("Update"));
    update << QStringLiteral("application://") + desktopFile
           << QVariantMap{{QStringLiteral("count"), number},
                          {QStringLiteral("count-visible"), number > 0}};
    bus.send(update);
}

ZuveroBackgroundTaskIdentifier
ZuveroApplication::beginBackgroundTask(std::function<void()> expirationHandler)
{
    // Linux does not suspend an application that leaves the screen, so there
    // is no grant of extra time to ask for: every request is granted at once
    // and the work simply goes on. The host may still end the tasks early
    // (before the system sleeps, say) with expireBackgroundTasks().
    int count;
    ZuveroBackgroundTaskIdentifier identifier;
    {
        std::lock_guard locker(d->tasksMutex);
        identifier = ++d->lastTask;
        d->tasks.insert(identifier, std::move(expirationHandler));
        count = int(d->tasks.size());
    }
    Q_EMIT backgroundTaskCountChanged(count);
    return identifier;
}

void ZuveroApplication::endBackgroundTask(ZuveroBackgroundTaskIdentifier identifier)
{
    int count;
    {
        std::lock_guard locker(d->tasksMutex);
        if (!d->tasks.remove(identifier))
            return;
        count = int(d->tasks.size());
    }
    Q_EMIT backgroundTaskCountChanged(count);
}

int ZuveroApplication::backgroundTaskCount() const
{
    std::lock_guard locker(d->tasksMutex);
    return int(d->tasks.size());
}

void ZuveroApplication::expireBackgroundTasks()
{
    QList<std::function<void()>> handlers;
    {
        std::lock_guard locker(d->tasksMutex);
        for (const auto &handler : std::as_const(d->tasks)) {
            if (handler)
                handlers.append(handler);
        }
    }
    // Handlers end their tasks, which takes the lock again.
    for (const auto &handler : std::as_const(handlers))
        handler();
}

void ZuveroApplication::notifyWillEnterForeground()
{
    ZuveroNotificationCenter::defaultCenter()->post(
        ZuveroApplicationWillEnterForegroundNotification, this);
}

void ZuveroApplication::setPushChannel(const ZuveroPushChannel &channel)
{
    d->pushChannel = channel;
}

bool ZuveroApplication::canRegisterForRemoteNotifications() const
{
    return bool(d->pushChannel.registerForRemoteNotifications);
}

void ZuveroApplication::registerUserNotificationSettings(
    ZuveroNotificationTypes types, const QList<ZuveroNotificationCategory> &categories)
{
    if (d->pushChannel.registerUserNotificationSettings)
        d->pushChannel.registerUserNotificationSettings(types, categories);
}

void ZuveroApplication::registerForRemoteNotifications()
{
    if (d->pushChannel.registerForRemoteNotifications)
        d->pushChannel.registerForRemoteNotifications();
    else
        ZVXLog(QStringLiteral("ZuveroApplication: no push channel, remote notifications are off."));
}
