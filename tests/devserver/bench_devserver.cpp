// How fast the development server answers on loopback, as ratios against a
// baseline measured in the same run (the machine is shared: absolute times vary).

#include "ZVXDevServerProcess.h"

#include <QElapsedTimer>
#include <QTest>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

const QString Token = ZVXDevSign({{u"installationId"_s, u"bench"_s}}, "any");

// Median milliseconds of \a count requests one after another on one connection.
double medianLatency(const ZVXDevServerProcess &server, int count)
{
    ZVXDevClient client(server, Token);
    client.get(u"/api/1.0/status"_s); // the connection and its handshake
    QList<double> times;
    for (int i = 0; i < count; ++i) {
        QElapsedTimer timer;
        timer.start();
        const ZVXDevReply reply = client.get(u"/api/1.0/messages?limit=50"_s);
        times.append(double(timer.nsecsElapsed()) / 1e6);
        if (reply.status != 200)
            return -1;
    }
    std::sort(times.begin(), times.end());
    return times.at(times.size() / 2);
}

// Milliseconds until \a clients requests sent at once, each held 200 ms by the server, are
// answered.
double concurrentWait(const ZVXDevServerProcess &server, int clients)
{
    ZVXDevClient admin(server, {});
    admin.postJSON(u"/admin/faults"_s,
                   {{u"path"_s, u"/api/1.0/status"_s},
                    {u"kind"_s, u"delay"_s},
                    {u"delayMs"_s, 200},
                    {u"count"_s, clients}});
    // One manager each, so that Qt's limit of connections per host plays no part.
    std::vector<std::unique_ptr<ZVXDevClient>> all;
    for (int i = 0; i < clients; ++i)
        all.push_back(std::make_unique<ZVXDevClient>(server, Token));
    QElapsedTimer timer;
    timer.start();
    QList<QNetworkReply *> replies;
    for (const auto &client : all)
        replies.append(client->manager().get(client->request(u"/api/1.0/status"_s)));
    for (QNetworkReply *reply : replies) {
        if (ZVXDevClient::wait(reply).status != 200)
            return -1;
    }
    return double(timer.nsecsElapsed()) / 1e6;
}

} // namespace

class BenchDevServer : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void noDelaySockets();
    void clientsDoNotWaitForEachOther();
};

void BenchDevServer::noDelaySockets()
{
    ZVXDevServerProcess nagle, noDelay;
    QVERIFY(nagle.start({u"--open"_s, u"--no-tcp-nodelay"_s}));
    QVERIFY(noDelay.start({u"--open"_s}));
    const double baseline = medianLatency(nagle, 30);
    const double measured = medianLatency(noDelay, 30);
    QVERIFY(baseline > 0 && measured > 0);
    qInfo("median request: %.2f ms with no-delay sockets, %.2f ms with Nagle's algorithm: %.1fx "
          "faster",
          measured, baseline, baseline / measured);
}

void BenchDevServer::clientsDoNotWaitForEachOther()
{
    ZVXDevServerProcess server;
    QVERIFY(server.start({u"--open"_s, u"--admin"_s}));
    const double one = concurrentWait(server, 1);
    const double many = concurrentWait(server, 16);
    QVERIFY(one > 0 && many > 0);
    qInfo("16 clients at once, each held 200 ms: %.0f ms against %.0f ms for one (%.2fx; 16x if "
          "served "
          "one by one)",
          many, one, many / one);
}

QTEST_MAIN(BenchDevServer)
#include "bench_devserver.moc"
