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

/*!
    A network namespace of the test's own, made and removed with the ip
    command: nothing the test does there touches the machine's own network.
*/
class NetworkNamespace
{
public:
    NetworkNamespace()
        : m_name(u"zvx-test-%1"_s.arg(QCoreApplication::applicationPid()))
        , m_ip(QStandardPaths::findExecutable(u"ip"_s, {u"/usr/sbin"_s, u"/sbin"_s, u"/usr/bin"_s}))
    {
        if (m_ip.isEmpty())
            m_error = u"the ip command is not installed"_s;
        else
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
        for (int fd : {target, home}) {
            if (fd >= 0)
                close(fd);
        }
        return entered;
    }

private:
    bool run(const QStringList &arguments)
    {
        QProcess process;
        process.start(m_ip, arguments);
        const bool ok = process.waitForFinished(30000)
            && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
        if (!ok)
            m_error = u"ip %1: %2"_s.arg(arguments.join(u' '),
                                         QString::fromLocal8Bit(process.readAllStandardError()));
        return ok;
    }

    QString m_name;
    QString m_ip;
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

    QTest::newRow("nothing") << 0u << 0 << 0;
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
    QTest::newRow("cellular") << quint32(Reachable | IsCellular) << 2 << 0;
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
    std::unique_ptr<ZVXReachability> local(ZVXReachability::reachabilityForLocalWiFi());
    QVERIFY(!ZVXReachability::reachabilityWithAddress(QHostAddress()));
    QVERIFY(!ZVXReachability::reachabilityWithHostName(QString()));
    NotificationCounter changes(internet.get());
    QVERIFY(internet->startNotifier());

    source->setFlags(Reachable | ConnectionRequired);
    QCOMPARE(changes.count, 1);
    QCOMPARE(internet->currentReachabilityStatus(), ZVXReachability::NotReachable);
    QVERIFY(internet->connectionRequired());
    source->setFlags(Reachable | IsDirect);
    source->setFlags(Reachable | IsDirect); // the same flags again are no change
    QCOMPARE(changes.count, 2);
    QCOMPARE(internet->currentReachabilityStatus(), ZVXReachability::ReachableViaWiFi);
    QCOMPARE(local->currentReachabilityStatus(), ZVXReachability::ReachableViaWiFi);
    source->setFlags(std::nullopt); // unreadable flags count as none
    QCOMPARE(changes.count, 3);
    QCOMPARE(internet->currentReachabilityStatus(), ZVXReachability::NotReachable);
    internet->stopNotifier();
    source->setFlags(Reachable);
    QCOMPARE(changes.count, 3);

    // The alert goes through the application: a log line in a headless host.
    ZVXLogCapture log;
    QVERIFY(ZVXReachability::checkNetworkIsReachableOrShowAlert());
    source->setFlags(0);
    QVERIFY(!ZVXReachability::checkNetworkIsReachable());
    QVERIFY(!ZVXReachability::checkNetworkIsReachableOrShowAlert());
    QCOMPARE(log.lines(),
             QStringList({u"ZVX: ZuveroApplication: alert \"Error\": The Internet "
                          "connection appears to be offline."_s}));

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
    for (const QString &link : {u"eth0"_s, u"wwan0"_s})
        QVERIFY(ns.ip({u"link"_s, u"add"_s, link, u"type"_s, u"veth"_s, u"peer"_s, u"name"_s,
                       link + u"p"_s}));
    for (const QString &link : {u"eth0"_s, u"eth0p"_s, u"wwan0"_s, u"wwan0p"_s})
        QVERIFY(ns.ip({u"link"_s, u"set"_s, link, u"up"_s}));
    QVERIFY(ns.ip({u"addr"_s, u"add"_s, u"10.77.0.2/24"_s, u"dev"_s, u"eth0"_s}));

    std::unique_ptr<ZVXReachability> internet, local;
    QVERIFY(ns.runInside([&] {
        internet.reset(ZVXReachability::reachabilityForInternetConnection());
        local.reset(ZVXReachability::reachabilityForLocalWiFi());
        internet->startNotifier();
        local->startNotifier();
    }));
    NotificationCounter internetChanges(internet.get()), localChanges(local.get());
    QCOMPARE(internet->currentReachabilityStatus(), ZVXReachability::NotReachable);

    // Each monitor announces every change of its flags, whether or not its status changes.
    QVERIFY(ns.ip({u"route"_s, u"add"_s, u"default"_s, u"via"_s, u"10.77.0.1"_s}));
    QTRY_COMPARE(internetChanges.count, 1);
    QTRY_COMPARE(localChanges.count, 1);
    QCOMPARE(internet->currentReachabilityStatus(), ZVXReachability::ReachableViaWiFi);
    // Through a gateway: not a direct link.
    QCOMPARE(local->currentReachabilityStatus(), ZVXReachability::NotReachable);

    // The kernel drops the route of a link going down without a route event.
    QVERIFY(ns.ip({u"link"_s, u"set"_s, u"eth0"_s, u"down"_s}));
    QTRY_COMPARE(internetChanges.count, 2);
    QTRY_COMPARE(localChanges.count, 2);
    QCOMPARE(internet->currentReachabilityStatus(), ZVXReachability::NotReachable);

    QVERIFY(ns.ip({u"route"_s, u"add"_s, u"default"_s, u"dev"_s, u"wwan0"_s}));
    QTRY_COMPARE(internetChanges.count, 3);
    QTRY_COMPARE(localChanges.count, 3);
    QCOMPARE(internet->currentReachabilityStatus(), ZVXReachability::ReachableViaWWAN);
    QVERIFY(ns.ip({u"route"_s, u"del"_s, u"default"_s, u"dev"_s, u"wwan0"_s}));
    QTRY_COMPARE(internetChanges.count, 4);
    QTRY_COMPARE(localChanges.count, 4);
    QCOMPARE(internet->currentReachabilityStatus(), ZVXReachability::NotReachable);

    QVERIFY(ns.ip({u"link"_s, u"set"_s, u"eth0"_s, u"up"_s}));
    QVERIFY(ns.ip({u"route"_s, u"add"_s, u"169.254.0.0/16"_s, u"dev"_s, u"eth0"_s}));
    QTRY_COMPARE(localChanges.count, 5);
    QCOMPARE(local->currentReachabilityStatus(), ZVXReachability::ReachableViaWiFi);
    QCOMPARE(internet->currentReachabilityStatus(), ZVXReachability::NotReachable);
    QCOMPARE(internetChanges.count, 4);
}

QTEST_GUILESS_MAIN(TestReachability)
#include "tst_reachability.moc"
