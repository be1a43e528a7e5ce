// Messages written through zuvero-cli while the server is slow and drops a connection, the
// process killed with SIGKILL in the middle of sending, three times over: each next run sends what
// the last one left, and the server ends with every message exactly once.

#include "ZVXDevServerProcess.h"
#include "ZVXStoredMessages.h"

#include <QElapsedTimer>
#include <QHash>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const QString SecretHex = u"5a7576657230536563726574"_s;
const QString SendPath = u"/api/1.0/messages"_s;
constexpr int Cycles = 3;
constexpr int TextsPerCycle = 10;

} // namespace

class TestKillRecovery : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void everyMessageOnceAfterKills();

private:
    qint64 sendsSeen();
    void addFault(const QVariantMap &fault);
    QStringList cli(const QStringList &command) const;

    ZVXDevServerProcess m_server;
    std::unique_ptr<ZVXDevClient> m_admin;
    QTemporaryDir m_state;
};

void TestKillRecovery::initTestCase()
{
    QVERIFY(m_server.start({u"--api-secret"_s, SecretHex, u"--admin"_s}));
    m_admin = std::make_unique<ZVXDevClient>(
        m_server,
        ZVXDevSign({{u"installationId"_s, u"admin"_s}}, QByteArray::fromHex(SecretHex.toLatin1())));
}

qint64 TestKillRecovery::sendsSeen()
{
    return m_admin->requestCount(u"POST "_s + SendPath);
}

void TestKillRecovery::addFault(const QVariantMap &fault)
{
    QCOMPARE(m_admin->postJSON(u"/admin/faults"_s, fault).status, 200);
}

QStringList TestKillRecovery::cli(const QStringList &command) const
{
    return QStringList{u"--host"_s,       QUrl(m_server.origin()).authority(),
                       u"--api-secret"_s, SecretHex,
                       u"--ca-file"_s,    m_server.authorityPath(),
                       u"--state"_s,      m_state.path(),
                       u"--user-id"_s,    u"survivor"_s}
    + command;
}

void TestKillRecovery::everyMessageOnceAfterKills()
{
    QStringList written;
    int killedWhileSending = 0;
    QElapsedTimer wall;
    wall.start();
    for (int cycle = 0; cycle < Cycles; ++cycle) {
        // The first send of the run loses its connection; every one answers late, so that the
        // kill finds sends under way, some of them stored but not yet acknowledged.
        QCOMPARE(
            m_admin->wait(m_admin->manager().deleteResource(m_admin->request(u"/admin/faults"_s)))
                .status,
            200);
        addFault({{u"path"_s, SendPath}, {u"kind"_s, u"drop"_s}});
        addFault({{u"path"_s, SendPath},
                  {u"kind"_s, u"delay"_s},
                  {u"delayMs"_s, 250},
                  {u"count"_s, 1000}});
        QStringList texts;
        for (int i = 0; i < TextsPerCycle; ++i)
            texts << u"kill %1-%2"_s.arg(cycle).arg(i);
        written += texts;

        const qint64 before = sendsSeen();
        QProcess run;
        run.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        run.start(QStringLiteral(ZUVERO_CLI),
                  cli(QStringList{u"queue"_s} + texts + QStringList{u"--wait"_s, u"120"_s}));
        QVERIFY(run.waitForStarted());
        // Killed after a few sends, a different number each time.
        QTRY_VERIFY_WITH_TIMEOUT(sendsSeen() >= before + 3 + 2 * cycle, 60000);
        QCOMPARE(run.state(), QProcess::Running);
        run.kill();
        QVERIFY(run.waitForFinished());
        QCOMPARE(run.exitStatus(), QProcess::CrashExit);
        ++killedWhileSending;
    }

    // A run on a healthy server sends what the killed ones left.
    QCOMPARE(m_admin->wait(m_admin->manager().deleteResource(m_admin->request(u"/admin/faults"_s)))
                 .status,
             200);
    QProcess last;
    last.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    last.start(QStringLiteral(ZUVERO_CLI), cli({u"queue"_s, u"--wait"_s, u"60"_s}));
    QVERIFY(last.waitForFinished(90000));
    const QString report = QString::fromUtf8(last.readAllStandardOutput()).trimmed();
    QCOMPARE(last.exitCode(), 0);
    QVERIFY2(report.endsWith(u", queued 0, errored 0"_s), qPrintable(report));

    // Each text was written once, under one identifier: a second copy would be a message
    // restored under a new one.
    QHash<QString, int> copies;
    for (const ZVXStoredMessage &message :
         ZVXStoredUserMessages(m_server.dataDirectory() + u"/devserver.sqlite"_s))
        ++copies[message.text];
    QStringList missing, doubled;
    for (const QString &text : std::as_const(written)) {
        if (copies.value(text) == 0)
            missing << text;
        else if (copies.value(text) > 1)
            doubled << text;
    }
    qInfo("kill and recover: %d messages written over %d runs killed while sending; the server "
          "received %lld sends and stores each message %s; the last run reported \"%s\" "
          "(%.1f s)",
          int(written.size()), killedWhileSending, sendsSeen(),
          missing.isEmpty() && doubled.isEmpty() ? "once" : "NOT once", qPrintable(report),
          double(wall.elapsed()) / 1000);
    QVERIFY2(missing.isEmpty(), qPrintable(u"lost: "_s + missing.join(u", "_s)));
    QVERIFY2(doubled.isEmpty(), qPrintable(u"stored twice: "_s + doubled.join(u", "_s)));
    QCOMPARE(copies.size(), written.size());
}

QTEST_MAIN(TestKillRecovery)
#include "tst_kill_recovery.moc"
