#include "ZVXDevServerSuite.h"
#include "ZVXLogCapture.h"
#include "ZVXManualClock.h"
#include "ZVXTemporaryUserDefaults.h"
#include "Zuvero.h"
#include "ZuveroDelegate.h"

#include <QApplication>
#include <QDBusAbstractAdaptor>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusPendingReply>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QWidget>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

const QString ServiceName = u"org.freedesktop.Notifications"_s;
const QString ServicePath = u"/org/freedesktop/Notifications"_s;

struct Notification
{
    QString appName;
    uint replacesId = 0;
    QString icon;
    QString summary;
    QString body;
    QStringList actions;
    QVariantMap hints;
    uint id = 0;
};

bool bannerShown()
{
    for (QWidget *widget : QApplication::topLevelWidgets()) {
        if (widget->objectName() == QLatin1String("notificationBanner") && widget->isVisible())
            return true;
    }
    return false;
}

QVariantMap payload(const QString &text, const QString &uuid)
{
    return {{u"zuvero"_s, u"1"_s},
            {u"alert"_s, text},
            {u"appdata"_s, QVariantMap{{u"t"_s, u"m"_s}, {u"uuid"_s, uuid}}}};
}

} // namespace

// The desktop's notification service as the freedesktop.org interface describes it: it records
// what it is asked to show and, when the test says so, emits what a user's clicks would.
class NotificationServer : public QDBusAbstractAdaptor
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")

public:
    explicit NotificationServer(QObject *parent)
        : QDBusAbstractAdaptor(parent)
    { }

    QStringList capabilities;
    QList<Notification> received;

public Q_SLOTS:
    QStringList GetCapabilities() { return capabilities; }

    uint Notify(const QString &appName, uint replacesId, const QString &icon,
                const QString &summary, const QString &body, const QStringList &actions,
                const QVariantMap &hints, int)
    {
        const uint id = replacesId ? replacesId : ++m_lastId;
        received.append({appName, replacesId, icon, summary, body, actions, hints, id});
        return id;
    }

    void CloseNotification(uint id) { Q_EMIT NotificationClosed(id, 3); }

Q_SIGNALS:
    void ActionInvoked(uint id, const QString &action);
    void NotificationReplied(uint id, const QString &text);
    void NotificationClosed(uint id, uint reason);

private:
    uint m_lastId = 100;
};

class TestDesktopNotifications : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void cleanupTestCase();
    void notifiesWhileInTheBackground();
    void activatingOpensOnlyItsOwnChat();
    void inlineReplyReachesTheServer();
    void actionsFollowTheServiceAndTheFacade_data();
    void actionsFollowTheServiceAndTheFacade();
    void bannerWhileInFrontOrWithoutService();

private:
    std::unique_ptr<Zuvero> facade(const QString &user);
    // Consumes a pushed message the way the host hands it over, late enough not to open the chat.
    void push(Zuvero *zuvero, const QString &text, const QString &uuid);

    QProcess m_bus;
    QString m_busAddress;
    QTemporaryDir m_home;
    QObject m_serviceObject;
    NotificationServer *m_server = nullptr;
    ZVXDevServerSuite m_suite;
    std::unique_ptr<ZVXTemporaryUserDefaults> m_defaults;
    std::unique_ptr<ZVXManualClock> m_clock;
    std::shared_ptr<ZuveroDelegate> m_delegate;
    QList<Zuvero *> m_chatsShown;
};

void TestDesktopNotifications::initTestCase()
{
    // A private session bus, as tst_application gets one, for a notification service of ours.
    m_bus.start(u"dbus-daemon"_s, {u"--session"_s, u"--nofork"_s, u"--print-address=1"_s});
    QVERIFY2(m_bus.waitForStarted(), "dbus-daemon is installed by scripts/setup.sh");
    QTRY_VERIFY(m_bus.canReadLine());
    m_busAddress = QString::fromLatin1(m_bus.readLine().trimmed());
    qputenv("DBUS_SESSION_BUS_ADDRESS", m_busAddress.toLatin1());

    // The host's desktop file names its icon; the suite's standard paths are under a home of
    // its own.
    QVERIFY(m_home.isValid());
    qputenv("HOME", m_home.path().toLocal8Bit());
    QStandardPaths::setTestModeEnabled(true);
    const QString applications
        = QStandardPaths::writableLocation(QStandardPaths::ApplicationsLocation);
    QVERIFY(applications.startsWith(m_home.path()));
    QVERIFY(QDir().mkpath(applications));
    QFile entry(applications + u"/org.example.Host.desktop"_s);
    QVERIFY(entry.open(QIODevice::WriteOnly));
    entry.write("[Desktop Entry]\nType=Application\nName=Host\nIcon[de]=wrong\n"
                "Icon = org.example.host-icon\n\n[Desktop Action New]\nIcon=wrong-too\n");
    entry.close();
    QGuiApplication::setDesktopFileName(u"org.example.Host"_s);
    QGuiApplication::setApplicationDisplayName(u"Example Host"_s);

    // The service on a connection of its own, as a separate process would have it.
    QDBusConnection service = QDBusConnection::connectToBus(m_busAddress, u"service"_s);
    QVERIFY(service.isConnected());
    m_server = new NotificationServer(&m_serviceObject);
    QVERIFY(service.registerObject(ServicePath, &m_serviceObject));
    QVERIFY(service.registerService(ServiceName));

    QVERIFY(m_suite.start());
}

void TestDesktopNotifications::init()
{
    m_defaults = std::make_unique<ZVXTemporaryUserDefaults>();
    m_clock = std::make_unique<ZVXManualClock>(QDateTime::currentDateTimeUtc());
    QVERIFY(m_suite.reset());
    m_server->capabilities = {u"actions"_s, u"body"_s, u"body-markup"_s, u"inline-reply"_s};
    m_server->received.clear();
    m_chatsShown.clear();
    m_delegate = std::make_shared<ZuveroDelegate>();
    m_delegate->zuveroDisplayChatViewController
        = [this](Zuvero *zuvero) { m_chatsShown.append(zuvero); };
}

void TestDesktopNotifications::cleanup()
{
    m_clock.reset();
    m_defaults.reset();
}

void TestDesktopNotifications::cleanupTestCase()
{
    QDBusConnection::disconnectFromBus(u"service"_s);
    m_bus.kill();
    m_bus.waitForFinished();
}

std::unique_ptr<Zuvero> TestDesktopNotifications::facade(const QString &user)
{
    auto zuvero = m_suite.facade(user, m_delegate);
    if (!ZVXDevServerSuite::registered(zuvero.get()))
        qWarning("the facade did not register");
    return zuvero;
}

void TestDesktopNotifications::push(Zuvero *zuvero, const QString &text, const QString &uuid)
{
    m_clock->advance(10s);
    QVERIFY(zuvero->consumeReceivedRemoteNotification(payload(text, uuid)));
}

void TestDesktopNotifications::notifiesWhileInTheBackground()
{
    QVERIFY(!QGuiApplication::focusWindow());
    auto zuvero = facade(u"background"_s);
    zuvero->setTitle(u"Ada at Example"_s);
    push(zuvero.get(), u"Size <M> & <L> are back"_s, u"n1"_s);
    QTRY_COMPARE(m_server->received.size(), 1);
    const Notification shown = m_server->received.first();
    QCOMPARE(shown.appName, u"Example Host"_s);
    QCOMPARE(shown.icon, u"org.example.host-icon"_s);
    QCOMPARE(shown.summary, u"Ada at Example"_s);
    // The service reads markup: the agent's text is shown as typed.
    QCOMPARE(shown.body, u"Size &lt;M&gt; &amp; &lt;L&gt; are back"_s);
    QCOMPARE(shown.replacesId, 0u);
    QCOMPARE(shown.hints.value(u"desktop-entry"_s).toString(), u"org.example.Host"_s);
    QVERIFY(!bannerShown());

    // A newer message takes the place of the one still on screen; once closed, a new one.
    push(zuvero.get(), u"And in blue"_s, u"n2"_s);
    QTRY_COMPARE(m_server->received.size(), 2);
    QCOMPARE(m_server->received.at(1).replacesId, shown.id);
    Q_EMIT m_server->NotificationClosed(shown.id, 2);
    // Without markup the text goes as it is.
    m_server->capabilities.removeAll(u"body-markup"_s);
    push(zuvero.get(), u"<3"_s, u"n3"_s);
    QTRY_COMPARE(m_server->received.size(), 3);
    QCOMPARE(m_server->received.at(2).replacesId, 0u);
    QCOMPARE(m_server->received.at(2).body, u"<3"_s);
}

void TestDesktopNotifications::activatingOpensOnlyItsOwnChat()
{
    auto zuvero = facade(u"activate"_s);
    push(zuvero.get(), u"Your refund is on its way"_s, u"a1"_s);
    QTRY_COMPARE(m_server->received.size(), 1);
    const uint ours = m_server->received.first().id;

    // Another application's notification, on the same service.
    QDBusConnection other = QDBusConnection::connectToBus(m_busAddress, u"other"_s);
    QDBusMessage notify
        = QDBusMessage::createMethodCall(ServiceName, ServicePath, ServiceName, u"Notify"_s);
    notify << u"Mail"_s << 0u << QString() << u"New mail"_s << QString() << QStringList()
           << QVariantMap() << -1;
    // Asynchronously: the service answers from this very thread.
    QDBusPendingReply<uint> answer = other.asyncCall(notify);
    QTRY_VERIFY(answer.isFinished());
    QVERIFY2(answer.isValid(), qPrintable(answer.error().message()));
    const uint theirs = answer.value();
    QVERIFY(theirs != ours);

    // A client that does not own the service claims a click on ours; its signal reaches the
    // bus first (the call after it returns only once the bus has passed it on).
    other.send(QDBusMessage::createSignal(ServicePath, ServiceName, u"ActionInvoked"_s)
               << ours << u"default"_s);
    QVERIFY(other.interface()->isServiceRegistered(ServiceName).value());
    QDBusConnection::disconnectFromBus(u"other"_s);

    // The service's signals arrive in order: the other application's click first.
    Q_EMIT m_server->ActionInvoked(theirs, u"default"_s);
    Q_EMIT m_server->ActionInvoked(ours, u"default"_s);
    QTRY_COMPARE(m_chatsShown.size(), 1);
    QCOMPARE(m_chatsShown.first(), zuvero.get());
    // An action it did not offer opens nothing; closing forgets it, a reply included (kept
    // offline, it would wait in the queue).
    auto second = facade(u"activate-second"_s);
    m_suite.setOnline(false);
    Q_EMIT m_server->ActionInvoked(ours, u"delete"_s);
    Q_EMIT m_server->NotificationClosed(ours, 2);
    Q_EMIT m_server->ActionInvoked(ours, u"default"_s);
    Q_EMIT m_server->NotificationReplied(ours, u"late"_s);
    // A second facade's notification, clicked after all that, proves they were handled.
    push(second.get(), u"Hello"_s, u"a2"_s);
    QTRY_COMPARE(m_server->received.size(), 3);
    Q_EMIT m_server->ActionInvoked(m_server->received.last().id, u"default"_s);
    QTRY_COMPARE(m_chatsShown.size(), 2);
    QCOMPARE(m_chatsShown.last(), second.get());
    QVERIFY(zuvero->offlineMessages().isEmpty());
    m_suite.setOnline(true);
}

void TestDesktopNotifications::inlineReplyReachesTheServer()
{
    auto zuvero = facade(u"reply"_s);
    push(zuvero.get(), u"Which size do you need?"_s, u"r1"_s);
    QTRY_COMPARE(m_server->received.size(), 1);
    QVERIFY(m_server->received.first().actions.contains(u"inline-reply"_s));

    Q_EMIT m_server->NotificationReplied(m_server->received.first().id, u"Medium, please"_s);
    const qint64 conversation = m_suite.conversationId(zuvero.get());
    const auto userTexts = [&] {
        QStringList texts;
        const QVariantList messages
            = m_suite.admin()
                  .get(u"/console/api/conversations/%1/messages"_s.arg(conversation))
                  .json()
                  .value(u"messages"_s)
                  .toList();
        for (const QVariant &message : messages) {
            const QVariantMap fields = message.toMap();
            if (fields.value(u"sender"_s) == u"user"_s)
                texts << fields.value(u"text"_s).toString();
        }
        return texts;
    };
    QTRY_COMPARE_WITH_TIMEOUT(userTexts(), QStringList{u"Medium, please"_s}, 10000);
    QVERIFY(m_chatsShown.isEmpty());
}

void TestDesktopNotifications::actionsFollowTheServiceAndTheFacade_data()
{
    QTest::addColumn<bool>("inlineReply");
    QTest::addColumn<bool>("interactive");
    QTest::addColumn<QStringList>("actions");
    QTest::newRow("inline reply") << true << true
                                  << QStringList{u"default"_s, u"Open"_s, u"inline-reply"_s,
                                                 u"Reply"_s};
    QTest::newRow("reply opens the chat")
        << false << true << QStringList{u"default"_s, u"Open"_s, u"reply"_s, u"Reply"_s};
    QTest::newRow("not interactive") << true << false << QStringList{u"default"_s, u"Open"_s};
}

void TestDesktopNotifications::actionsFollowTheServiceAndTheFacade()
{
    QFETCH(bool, inlineReply);
    QFETCH(bool, interactive);
    QFETCH(QStringList, actions);
    if (!inlineReply)
        m_server->capabilities.removeAll(u"inline-reply"_s);
    auto zuvero = facade(u"actions"_s);
    zuvero->setInteractiveNotification(interactive);
    push(zuvero.get(), u"We are open until six"_s, u"x1"_s);
    QTRY_COMPARE(m_server->received.size(), 1);
    QCOMPARE(m_server->received.first().actions, actions);
    if (actions.size() > 2) {
        // Whichever way the service offers Reply, pressing it opens the chat to answer in.
        Q_EMIT m_server->ActionInvoked(m_server->received.first().id, actions.at(2));
        QTRY_COMPARE(m_chatsShown.size(), 1);
    }
}

void TestDesktopNotifications::bannerWhileInFrontOrWithoutService()
{
    ZVXLogCapture log;
    {
        // The user is in the host's window: the banner there, not the desktop's.
        auto zuvero = facade(u"front"_s);
        QWidget window;
        window.show();
        window.activateWindow();
        QTRY_VERIFY(QGuiApplication::focusWindow());
        QTRY_COMPARE(QGuiApplication::applicationState(), Qt::ApplicationActive);
        push(zuvero.get(), u"Seen in the window"_s, u"b1"_s);
        QVERIFY(bannerShown());
    }
    QTRY_VERIFY(!QGuiApplication::focusWindow());
    QVERIFY(!bannerShown());

    // No notification service on the bus: the banner after all, and one line saying why.
    QDBusConnection service(u"service"_s);
    QVERIFY(service.unregisterService(ServiceName));
    auto zuvero = facade(u"without"_s);
    push(zuvero.get(), u"Nobody else shows this"_s, u"b2"_s);
    QTRY_VERIFY(bannerShown());
    QCOMPARE(log.lines().filter(u"no notification service"_s).size(), 1);
    QVERIFY(m_server->received.isEmpty());
    QVERIFY(service.registerService(ServiceName));
}

QTEST_MAIN(TestDesktopNotifications)
#include "tst_desktopnotifications.moc"
