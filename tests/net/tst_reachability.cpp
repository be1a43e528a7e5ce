#include "ZVXLogCapture.h"
#include "ZVXReachability.h"
#include "ZuveroNotificationCenter.h"

#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTest>

#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace ZVXReachabilityFlags;

namespace {

//! A network namespace of the test's own: nothing done there touches the machine's network.
class NetworkNamespace
{
public:
    NetworkNamespace()
        : m_name(u"zvx-test-%1"_s.arg(QCoreApplication::applicationPid()))
    {
        m_created = run({u"netns"_s, u"add"_s, m_name});
    }
    ~NetworkNamespace()
    {
        if (m_created)
            run({u"netns"_s, u"delete"_s, m_name});
    }

    bool isValid() const { return m_created; }
    QString errorString() const { return m_error; }
    bool ip(const QStringList &arguments) { return run(QStringList{u"-n"_s, m_name} + arguments); }

    //! Runs \a step with the calling thread inside the namespace: sockets it opens stay there.
    bool runInside(const std::function<void()> &step)
    {
        const int target = open(qPrintable(u"/run/netns/"_s + m_name), O_RDONLY | O_CLOEXEC);
        const int home = open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC);
        const bool entered = target >= 0 && home >= 0 && setns(target, CLONE_NEWNET) == 0;
        if (entered) {
            step();
            if (setns(home, CLONE_NEWNET) != 0)
                qFatal("cannot return to the test's own network namespace");
        }
        close(target);
        close(home);
        return entered;
    }

private:
    bool run(const QStringList &arguments)
    {
        QProcess process;
        const QString ip = QStandardPaths::findExecutable(u"ip"_s, {u"/usr/sbin"_s, u"/sbin"_s});
        process.start(ip.isEmpty() ? u"ip"_s : ip, arguments);
        const bool ok = process.waitForFinished(30000) && process.exitCode() == 0;
        const QString output = QString::fromLocal8Bit(process.readAllStandardError()).trimmed();
        if (!ok)
            m_error = u"ip %1: %2"_s.arg(arguments.join(u' '),
                                         output.isEmpty() ? process.errorString() : output);
        return ok;
    }

    QString m_name;
    QString m_error;
    bool m_created = false;
};

//! Counts the change notifications of one monitor.
struct NotificationCounter
{
    explicit NotificationCounter(ZVXReachability *reachability)
        : observer(ZuveroNotificationCenter::defaultCenter()->addObserver(
            ZuveroNetworkReachabilityChangedNotification, reachability,
            [this](const ZuveroNotification &) { ++count; }))
    { }
    int count = 0;
    ZuveroNotificationObserver observer;
};

} // namespace

class TestReachability : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void statusForFlags_data();
    void statusForFlags();
    void settableSourceDrivesMonitors();
    void followsRoutesInANetworkNamespace();
};

void TestReachability::statusForFlags_data()
{
    QTest::addColumn<quint32>("flags");
    QTest::addColumn<int>("status");
    QTest::addColumn<int>("localWiFiStatus");

    QTest::newRow("reachable") << quint32(Reachable) << 1 << 0;
    QTest::newRow("direct") << quint32(Reachable | IsDirect) << 1 << 1;
    QTest::newRow("direct, not reachable") << quint32(IsDirect) << 0 << 0;
    QTest::newRow("connection required") << quint32(Reachable | ConnectionRequired) << 0 << 0;
    QTest::newRow("on demand") << quint32(Reachable | ConnectionRequired | ConnectionOnDemand) << 1
                               << 0;
    QTest::newRow("on traffic") << quint32(Reachable | ConnectionRequired | ConnectionOnTraffic)
                                << 1 << 0;
    QTest::newRow("on demand, intervention")
        << quint32(Reachable | ConnectionRequired | ConnectionOnDemand | InterventionRequired) << 0
        << 0;
    QTest::newRow("cellular whatever else")
        << quint32(Reachable | IsCellular | ConnectionRequired | InterventionRequired | IsDirect)
        << 2 << 1;
    QTest::newRow("cellular, not reachable") << quint32(IsCellular) << 0 << 0;
}

void TestReachability::statusForFlags()
{
    QFETCH(quint32, flags);
    QFETCH(int, status);
    QFETCH(int, localWiFiStatus);
    QCOMPARE(int(ZVXReachability::networkStatusForFlags(flags)), status);
    QCOMPARE(int(ZVXReachability::localWiFiStatusForFlags(flags)), localWiFiStatus);
}

void TestReachability::settableSourceDrivesMonitors()
{
    auto source = std::make_shared<ZVXSettableReachabilitySource>(0);
    ZVXReachability::setSourceFactory([source](const QHostAddress &) { return source; });
    std::unique_ptr<ZVXReachability> internet(ZVXReachability::reachabilityForInternetConnection());
    QVERIFY(!ZVXReachability::reachabilityWithAddress(QHostAddress()));
    NotificationCounter changes(internet.get());
    QVERIFY(internet->startNotifier());

    source->setFlags(Reachable | ConnectionRequired);
    source->setFlags(Reachable | ConnectionRequired); // the same flags again are no change
    QCOMPARE(changes.count, 1);
    QVERIFY(internet->connectionRequired());
    source->setFlags(std::nullopt); // unreadable flags count as none
    QCOMPARE(changes.count, 2);
    internet->stopNotifier();
    source->setFlags(Reachable);
    QCOMPARE(changes.count, 2);

    // Only an unreachable network shows the alert, with its localised texts.
    QList<ZVXAlert> alerts;
    const auto show = [&alerts](const ZVXAlert &alert) { alerts << alert; };
    QVERIFY(ZVXReachability::checkNetworkIsReachableOrShowAlert(show));
    QVERIFY(alerts.isEmpty());
    source->setFlags(0);
    QVERIFY(!internet->isReachable());
    QVERIFY(!ZVXReachability::checkNetworkIsReachableOrShowAlert(show));
    QCOMPARE(alerts.size(), 1);
    QCOMPARE(alerts[0].title, u"Error"_s);
    QCOMPARE(alerts[0].message, u"The Internet connection appears to be offline."_s);
    QCOMPARE(alerts[0].buttons, QStringList{u"OK"_s});
    ZVXReachability::setSourceFactory({});
}

void TestReachability::followsRoutesInANetworkNamespace()
{
    NetworkNamespace ns;
    if (!ns.isValid())
        QSKIP(qPrintable(u"cannot make a network namespace here ("_s + ns.errorString() + u")"_s));
    // Without IPv6 no address or route event of its own comes with a link going down.
    QVERIFY(ns.runInside([] {
        for (const char *path : {"/proc/sys/net/ipv6/conf/all/disable_ipv6",
                                 "/proc/sys/net/ipv6/conf/default/disable_ipv6"}) {
            QFile file(QString::fromLatin1(path));
            if (file.open(QIODevice::WriteOnly))
                file.write("1");
        }
    }));
    for (const QString &command :
         {u"link add eth0 type veth peer name eth0p"_s,
          u"link add wwan0 type veth peer name wwan0p"_s, u"link set eth0 up"_s,
          u"link set eth0p up"_s, u"link set wwan0 up"_s, u"link set wwan0p up"_s,
          u"addr add 10.77.0.2/24 dev eth0"_s})
        QVERIFY2(ns.ip(command.split(u' ')), qPrintable(ns.errorString()));

    std::unique_ptr<ZVXReachability> internet, local;
    QVERIFY(ns.runInside([&] {
        internet.reset(ZVXReachability::reachabilityForInternetConnection());
        local.reset(ZVXReachability::reachabilityForLocalWiFi());
        internet->startNotifier();
        local->startNotifier();
    }));
    NotificationCounter internetChanges(internet.get()), localChanges(local.get());
    QCOMPARE(internet->currentReachabilityStatus(), ZVXReachability::NotReachable);

    using enum ZVXReachability::NetworkStatus;
    struct Step
    {
        QString command;
        int internetChanges, localChanges;
        ZVXReachability::NetworkStatus internetStatus, localStatus;
    };
    // Each monitor announces every change of its flags, whether or not its status changes.
    const Step steps[] = {
        // Through a gateway: reachable, but not over a direct link.
        {u"route add default via 10.77.0.1"_s, 1, 1, ReachableViaWiFi, NotReachable},
        // The kernel drops the routes of a link going down without a route event.
        {u"link set eth0 down"_s, 2, 2, NotReachable, NotReachable},
        {u"route add default dev wwan0"_s, 3, 3, ReachableViaWWAN, ReachableViaWiFi},
        {u"route del default dev wwan0"_s, 4, 4, NotReachable, NotReachable},
        {u"link set eth0 up"_s, 4, 4, NotReachable, NotReachable},
        {u"route add 169.254.0.0/16 dev eth0"_s, 4, 5, NotReachable, ReachableViaWiFi},
    };
    for (const Step &step : steps) {
        QVERIFY2(ns.ip(step.command.split(u' ')), qPrintable(ns.errorString()));
        QTRY_COMPARE(localChanges.count, step.localChanges);
        QTRY_COMPARE(internetChanges.count, step.internetChanges);
        QCOMPARE(internet->currentReachabilityStatus(), step.internetStatus);
        QCOMPARE(local->currentReachabilityStatus(), step.localStatus);
    }
}

QTEST_GUILESS_MAIN(TestReachability)
#include "tst_reachability.moc"
