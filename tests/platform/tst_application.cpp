#include "ZVXLogCapture.h"
#include "ZuveroApplication.h"
#include "ZuveroNotificationCenter.h"

#include <QDBusConnection>
#include <QGuiApplication>
#include <QProcess>
#include <QSignalSpy>
#include <QTest>
#include <QWindow>

#include <set>
#include <thread>

using namespace Qt::StringLiterals;

class TestApplication : public QObject
{
    Q_OBJECT

public Q_SLOTS:
    void launcherEntryUpdated(const QString &uri, const QVariantMap &properties)
    {
        m_updates.append({uri, properties});
    }

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void badgeReachesTheLauncher();
    void backgroundTasks();
    void returningToTheForeground();

private:
    QProcess m_bus;
    QList<QPair<QString, QVariantMap>> m_updates;
};

void TestApplication::initTestCase()
{
    // A private session bus, so that the launcher-entry signal can be watched.
    m_bus.start(u"dbus-daemon"_s, {u"--session"_s, u"--nofork"_s, u"--print-address=1"_s});
    QVERIFY2(m_bus.waitForStarted(), "dbus-daemon is installed by scripts/setup.sh");
    QTRY_VERIFY(m_bus.canReadLine());
    const QByteArray address = m_bus.readLine().trimmed();
    qputenv("DBUS_SESSION_BUS_ADDRESS", address);

    QDBusConnection listener
        = QDBusConnection::connectToBus(QString::fromLatin1(address), u"listener"_s);
    QVERIFY(listener.isConnected());
    QVERIFY(listener.connect({}, {}, u"com.canonical.Unity.LauncherEntry"_s, u"Update"_s, this,
                             SLOT(launcherEntryUpdated(QString, QVariantMap))));
}

void TestApplication::cleanupTestCase()
{
    QDBusConnection::disconnectFromBus(u"listener"_s);
    m_bus.kill();
    m_bus.waitForFinished();
}

void TestApplication::badgeReachesTheLauncher()
{
    QGuiApplication::setDesktopFileName(u"org.example.Host"_s);
    ZuveroApplication *app = ZuveroApplication::sharedApplication();
    QSignalSpy changed(app, &ZuveroApplication::applicationIconBadgeNumberChanged);

    app->setApplicationIconBadgeNumber(5);
    app->setApplicationIconBadgeNumber(5);
    QCOMPARE(app->applicationIconBadgeNumber(), 5);
    QCOMPARE(changed.size(), 1);
    QTRY_COMPARE(m_updates.size(), 1);
    QCOMPARE(m_updates.at(0).first, u"application://org.example.Host.desktop"_s);
    QCOMPARE(m_updates.at(0).second.value(u"count"_s), QVariant(qint64(5)));
    QCOMPARE(m_updates.at(0).second.value(u"count-visible"_s), QVariant(true));

    app->setApplicationIconBadgeNumber(0);
    QTRY_COMPARE(m_updates.size(), 2);
    QCOMPARE(m_updates.at(1).second.value(u"count-visible"_s), QVariant(false));
}

void TestApplication::backgroundTasks()
{
    ZuveroApplication *app = ZuveroApplication::sharedApplication();
    QCOMPARE(app->backgroundTaskCount(), 0);

    // Begun from several threads at once: every identifier valid and distinct.
    std::mutex mutex;
    std::set<ZuveroBackgroundTaskIdentifier> identifiers;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 250; ++i) {
                const auto id = app->beginBackgroundTask();
                std::lock_guard lock(mutex);
                identifiers.insert(id);
            }
        });
    }
    for (auto &thread : threads)
        thread.join();
    QCOMPARE(identifiers.size(), size_t(1000));
    QVERIFY(!identifiers.count(ZuveroBackgroundTaskInvalid));
    QCOMPARE(app->backgroundTaskCount(), 1000);
    for (const auto id : identifiers)
        app->endBackgroundTask(id);
    app->endBackgroundTask(*identifiers.begin()); // ending twice is harmless
    QCOMPARE(app->backgroundTaskCount(), 0);

    // Expiring runs each handler, which ends its own task.
    int expired = 0;
    ZuveroBackgroundTaskIdentifier first = app->beginBackgroundTask([&] {
        ++expired;
        app->endBackgroundTask(first);
    });
    const auto second = app->beginBackgroundTask();
    app->expireBackgroundTasks();
    QCOMPARE(expired, 1);
    QCOMPARE(app->backgroundTaskCount(), 1);
    app->endBackgroundTask(second);
}

void TestApplication::returningToTheForeground()
{
    ZuveroApplication *app = ZuveroApplication::sharedApplication();
    int notices = 0;
    auto observer = ZuveroNotificationCenter::defaultCenter()->addObserver(
        ZuveroApplicationWillEnterForegroundNotification, app,
        [&](const ZuveroNotification &) { ++notices; });

    QWindow window;
    window.show();
    window.requestActivate();
    QTRY_COMPARE(QGuiApplication::applicationState(), Qt::ApplicationActive);
    QCOMPARE(notices, 0); // the first activation is the launch

    // Offscreen windows never lose activation, so the platform's later
    // transitions are replayed through the application's own signal.
    auto *gui = qGuiApp;
    Q_EMIT gui->applicationStateChanged(Qt::ApplicationInactive);
    Q_EMIT gui->applicationStateChanged(Qt::ApplicationActive);
    QCOMPARE(notices, 1);
    Q_EMIT gui->applicationStateChanged(Qt::ApplicationActive); // no change, no notice
    QCOMPARE(notices, 1);
    Q_EMIT gui->applicationStateChanged(Qt::ApplicationHidden);
    Q_EMIT gui->applicationStateChanged(Qt::ApplicationActive);
    QCOMPARE(notices, 2);

    app->notifyWillEnterForeground();
    QCOMPARE(notices, 3);
}

QTEST_MAIN(TestApplication)
#include "tst_application.moc"
