// Work against a real dev server on loopback: the library beside a bare QNetworkAccessManager and
// curl, each on its own kept-alive TLS connection, measured in turns.

#include "ZVXBench.h"
#include "ZVXDevServerProcess.h"
#include "ZVXHTTPConnection.h"
#include "ZVXJSON.h"
#include "ZVXMainThread.h"
#include "ZVXMultipart.h"
#include "ZVXURLSession.h"
#include "Zuvero.h"
#include "ZuveroCertificateAuthorities.h"
#include "ZuveroChatView.h"
#include "ZuveroChatViewController.h"
#include "ZuveroConnection_p.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QListView>
#include <QProcess>
#include <QTemporaryDir>
#include <QThreadPool>

#include <atomic>

namespace ZVXBench {

namespace {

const QString SecretHex = QStringLiteral("7a757665726f2d7365637265742d3432");
constexpr int HistoryPage = 50;

bool waitUntil(const std::function<bool()> &condition, int milliseconds = 30000)
{
    const QDeadlineTimer deadline(milliseconds);
    while (!condition()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 5);
    }
    return true;
}

double elapsedMs(const QElapsedTimer &timer)
{
    return double(timer.nsecsElapsed()) / 1e6;
}

// The TCP connections of this process to \a port, by socket inode.
QSet<QString> connectionsTo(quint16 port)
{
    QSet<QString> ours;
    const QDir fds(QStringLiteral("/proc/self/fd"));
    for (const QFileInfo &fd : fds.entryInfoList(QDir::System | QDir::NoDotAndDotDot)) {
        const QString target = fd.symLinkTarget().section(QLatin1Char('/'), -1);
        if (target.startsWith(QLatin1String("socket:[")))
            ours.insert(target.mid(8).chopped(1));
    }
    QSet<QString> connected;
    for (const char *table : {"/proc/net/tcp", "/proc/net/tcp6"}) {
        QFile file(QString::fromLatin1(table));
        if (!file.open(QIODevice::ReadOnly))
            continue;
        for (const QByteArray &line : file.readAll().split('\n').mid(1)) {
            const QList<QByteArray> fields = line.simplified().split(' ');
            if (fields.size() < 10 || fields.at(3) != "01") // established
                continue;
            const quint16 remotePort = fields.at(2).split(':').value(1).toUShort(nullptr, 16);
            const QString inode = QString::fromLatin1(fields.at(9));
            if (remotePort == port && ours.contains(inode))
                connected.insert(inode);
        }
    }
    return connected;
}

class Bench
{
public:
    bool start(QString *problem)
    {
        if (!m_server.start({QStringLiteral("--api-secret"), SecretHex}))
            return fail(
                problem,
                QStringLiteral("the dev server did not start (see %1)").arg(m_server.logPath()));
        QFile authority(m_server.authorityPath());
        if (!authority.open(QIODevice::ReadOnly)
            || ZuveroAddTrustedCertificateAuthorities(authority.readAll()) != 1)
            return fail(problem, QStringLiteral("cannot trust the dev server's authority"));
        m_port = quint16(QUrl(m_server.origin()).port());
        m_sender.reset(facade(m_server, QStringLiteral("bench-send")));
        m_reader.reset(facade(m_server, QStringLiteral("bench-history")));
        if (!m_sender || !m_reader)
            return fail(problem, QStringLiteral("the facade did not register"));
        m_bare = std::make_unique<ZVXDevClient>(m_server, *m_sender->jwt());
        // The history: fifty messages, every fifth with a file.
        for (int i = 0; i < HistoryPage; ++i) {
            if (!librarySend(m_reader.get(), i % 5 == 4))
                return fail(problem, QStringLiteral("cannot fill the history"));
        }
        m_page = ZVXDevClient(m_server, *m_reader->jwt()).get(historyPath()).body;
        return true;
    }

    QByteArray page() const { return m_page; }

    QList<Row> rows(int repetitions)
    {
        QList<Row> rows;
        // Warm both connections (and their TLS sessions) before measuring.
        for (int i = 0; i < 3; ++i) {
            librarySend(m_sender.get(), false);
            bareSend();
        }
        Runs library, bare;
        QSet<QString> known = connectionsTo(m_port);
        int libraryConnections = 0, bareConnections = 0;
        const auto opened = [&known, this] {
            const QSet<QString> now = connectionsTo(m_port);
            const int count = int((now - known).size());
            known += now;
            return count;
        };
        // In turns, each side first every other time, so that neither pays for what the other
        // left behind.
        for (int i = 0; i < repetitions; ++i) {
            const auto sendLibrary = [&] {
                QElapsedTimer timer;
                timer.start();
                librarySend(m_sender.get(), false);
                library << elapsedMs(timer);
                libraryConnections += opened();
            };
            const auto sendBare = [&] {
                QElapsedTimer timer;
                timer.start();
                bareSend();
                bare << elapsedMs(timer);
                bareConnections += opened();
            };
            inTurn(i, sendLibrary, sendBare);
        }
        rows << compareRuns(QStringLiteral("send a text: library vs bare QNAM POST"), library, bare,
                            QStringLiteral("ms"), 1.3);
        if (const std::optional<Runs> curl = curlSend(repetitions))
            rows << compareRuns(QStringLiteral("send a text: library vs curl (one connection)"),
                                library, *curl, QStringLiteral("ms"));
        rows << Row{QStringLiteral("send a text: connections opened by %1 sends, vs bare QNAM")
                        .arg(repetitions),
                    QString::number(libraryConnections),
                    QString::number(bareConnections),
                    0,
                    QString(),
                    QStringLiteral("0 new"),
                    libraryConnections == 0};

        // A message typed into the chat screen, until its bubble is painted, beside the bare POST
        // of the same text: the bubble must not wait for the server.
        {
            ZuveroChatViewController screen;
            screen.setApiInstance(m_sender.get());
            screen.resize(420, 640);
            screen.show();
            Runs bubble, post;
            bool shown = true;
            for (int i = 0; i < repetitions; ++i) {
                const auto typed = [&] {
                    QElapsedTimer timer;
                    timer.start();
                    screen.sendMessage(QStringLiteral("Where is my order? %1").arg(i), nullptr);
                    screen.chatView()->scrollView()->viewport()->repaint();
                    bubble << elapsedMs(timer);
                    const ZuveroChatMessagePtr sent = screen.chatView()->messages().last();
                    shown = shown && sent->text()->endsWith(QString::number(i));
                    // Then the send ends before the next one, as the user would see it end.
                    waitUntil([&] {
                        return m_sender->cachedConversation()
                            .value(ZuveroCachedConversationMessagesKey)
                            .value<ZuveroChatMessageList>()
                            .contains(sent);
                    });
                };
                const auto bareTimed = [&] {
                    QElapsedTimer timer;
                    timer.start();
                    bareSend();
                    post << elapsedMs(timer);
                };
                inTurn(i, typed, bareTimed);
            }
            Row row
                = compareRuns(QStringLiteral("typed message to its bubble painted vs bare POST"),
                              bubble, post, QStringLiteral("ms"));
            row.goal = QStringLiteral("< 1x, before the answer");
            row.met = shown && row.ratio < 1;
            row.enforced = false;
            rows << row;
        }

        // Each page also split where the reply has arrived on the main thread: before it, the
        // request and the wire; after it, what each side does with the reply.
        Runs libraryPages, barePages, libraryWire, bareWire, libraryAfter, bareAfter;
        for (int i = 0; i < repetitions; ++i) {
            const auto readLibrary = [&] {
                const auto [total, arrived] = libraryPage();
                libraryPages << total;
                libraryWire << arrived;
                libraryAfter << total - arrived;
            };
            const auto readBare = [&] {
                const auto [total, arrived] = barePage();
                barePages << total;
                bareWire << arrived;
                bareAfter << total - arrived;
            };
            inTurn(i, readLibrary, readBare);
        }
        rows << compareRuns(QStringLiteral("history page of 50: library vs GET + QJsonDocument"),
                            libraryPages, barePages, QStringLiteral("ms"), 1.2);
        rows << compareRuns(QStringLiteral("  of which request and reply, until it arrives"),
                            libraryWire, bareWire, QStringLiteral("ms"));
        rows << compareRuns(QStringLiteral("  of which after it arrives (library: checks, build"
                                           ", hops)"),
                            libraryAfter, bareAfter, QStringLiteral("ms"));
        rows << singleRuns(QStringLiteral("  a hop to a worker thread and back, nothing done"),
                           threadHops(repetitions, false), QStringLiteral("ms"));
        rows << singleRuns(QStringLiteral("  the same when the worker thread must start"),
                           threadHops(repetitions, true), QStringLiteral("ms"));
        return rows;
    }

private:
    static void inTurn(int round, const std::function<void()> &library,
                       const std::function<void()> &baseline)
    {
        if (round % 2 == 0) {
            library();
            baseline();
        } else {
            baseline();
            library();
        }
    }

    static bool fail(QString *problem, const QString &what)
    {
        *problem = what;
        return false;
    }

    static Zuvero *facade(const ZVXDevServerProcess &server, const QString &user)
    {
        Zuvero *zuvero
            = Zuvero::initWithApiSecret(SecretHex, QUrl(server.origin()).authority(), {});
        zuvero->setUserIdentifier(user);
        bool registered = false;
        zuvero->registerIfNeeded(
            [&registered](bool success, const ZuveroError &) { registered = success; });
        if (!waitUntil([&] { return registered; })) {
            delete zuvero;
            return nullptr;
        }
        return zuvero;
    }

    QString historyPath() const
    {
        return QStringLiteral("/api/1.0/messages?limit=%1").arg(HistoryPage);
    }

    bool librarySend(Zuvero *zuvero, bool withFile)
    {
        ZuveroChatAttachmentPtr file;
        if (withFile) {
            file = ZuveroChatAttachment::init();
            file->setContentType(QStringLiteral("text/plain"));
            file->setData(QByteArray(2048, 'x'));
        }
        bool done = false, sent = false;
        zuvero->connection()->sendChatMessage(
            ZuveroChatMessage::initWithText(QStringLiteral("Where is my order?"), file),
            [&](bool success, const ZuveroError &) {
                sent = success;
                done = true;
            });
        return waitUntil([&] { return done; }) && sent;
    }

    // The body the library uploads for a text message, with an identifier of its own.
    static QByteArray body()
    {
        const QVariantMap message{{QStringLiteral("uuid"), ZuveroChatMessage::init()->uuid()},
                                  {QStringLiteral("sender"), QStringLiteral("user")},
                                  {QStringLiteral("text"), QStringLiteral("Where is my order?")}};
        ZVXMultipart multipart;
        multipart.addData(ZVXJSON::serialize(message), QStringLiteral("message"),
                          QStringLiteral("application/json"));
        return multipart.data();
    }

    void bareSend()
    {
        const QByteArray content = body();
        QNetworkRequest request = m_bare->request(QStringLiteral("/api/1.0/messages"));
        request.setHeader(QNetworkRequest::ContentTypeHeader, ZVXMultipart().contentType());
        bareWait(m_bare->manager().post(request, content));
    }

    // The body of \a reply, waited for as the library's calls are, so that both sides spin the
    // same event loop.
    static QByteArray bareWait(QNetworkReply *reply)
    {
        waitUntil([reply] { return reply->isFinished(); });
        const QByteArray body = reply->readAll();
        reply->deleteLater();
        return body;
    }

    // Milliseconds until the completion, and until the reply arrived on the main thread (the
    // moment the session's connection reports the exchange finished).
    std::pair<double, double> libraryPage()
    {
        QList<QMetaObject::Connection> watches;
        QElapsedTimer timer;
        double arrived = 0;
        const ZVXURLSession *session
            = ZuveroConnectionPrivate::get(m_reader->connection())->session;
        for (ZVXHTTPConnection *connection : session->findChildren<ZVXHTTPConnection *>())
            watches << QObject::connect(connection, &ZVXHTTPConnection::finished,
                                        [&] { arrived = elapsedMs(timer); });
        bool done = false;
        timer.start();
        m_reader->connection()->loadMessageSinceDate(
            QDateTime(), HistoryPage,
            [&](const std::optional<ZuveroChatMessageList> &messages, bool, const ZuveroError &) {
                m_sink = messages ? messages->size() : -1;
                done = true;
            });
        waitUntil([&] { return done; });
        const double total = elapsedMs(timer);
        for (const QMetaObject::Connection &watch : watches)
            QObject::disconnect(watch);
        return {total, arrived > 0 ? arrived : total};
    }

    std::pair<double, double> barePage()
    {
        ZVXDevClient &client = reader();
        QElapsedTimer timer;
        double arrived = 0;
        timer.start();
        QNetworkReply *reply = client.manager().get(client.request(historyPath()));
        QObject::connect(reply, &QNetworkReply::finished, [&] { arrived = elapsedMs(timer); });
        const QByteArray page = bareWait(reply);
        m_sink = QJsonDocument::fromJson(page)
                     .object()
                     .value(QLatin1String("messages"))
                     .toArray()
                     .size();
        return {elapsedMs(timer), arrived};
    }

    // What handing the reply to a worker thread and the result back costs by itself: the session
    // checks replies on a pool of one thread and posts their ends to the main thread. A pool's
    // thread ends after some idle time, and the next reply then waits for a new one.
    static Runs threadHops(int repetitions, bool startingThread)
    {
        Runs runs;
        QThreadPool kept;
        kept.setMaxThreadCount(1);
        for (int i = 0; i < repetitions + 1; ++i) {
            QThreadPool fresh;
            QThreadPool &pool = startingThread ? fresh : kept;
            pool.setMaxThreadCount(1);
            QElapsedTimer timer;
            timer.start();
            std::atomic<bool> done = false;
            pool.start([&done] { ZVXMainThread::async([&done] { done = true; }); });
            waitUntil([&] { return done.load(); });
            if (i > 0 || startingThread) // the kept pool's first hop starts its thread
                runs << elapsedMs(timer);
        }
        return runs;
    }

    ZVXDevClient &reader()
    {
        if (!m_bareReader)
            m_bareReader = std::make_unique<ZVXDevClient>(m_server, *m_reader->jwt());
        return *m_bareReader;
    }

    // curl sending the same bodies, every transfer of one run on one connection.
    std::optional<Runs> curlSend(int repetitions)
    {
        QTemporaryDir folder;
        QFile config(folder.filePath(QStringLiteral("curl.config")));
        if (!config.open(QIODevice::WriteOnly))
            return std::nullopt;
        const QByteArray contentType = ZVXMultipart().contentType().toLatin1();
        for (int i = 0; i < repetitions + 1; ++i) {
            const QString path = folder.filePath(QStringLiteral("body-%1").arg(i));
            QFile file(path);
            if (!file.open(QIODevice::WriteOnly) || file.write(body()) < 0)
                return std::nullopt;
            if (i)
                config.write("next\n");
            config.write("silent\ncacert = \"" + m_server.authorityPath().toUtf8()
                         + "\"\noutput = \"/dev/null\"\nwrite-out = \"%{time_total}\\n\"\n"
                           "url = \""
                         + m_server.origin().toUtf8()
                         + "/api/1.0/messages\"\nheader = \"X-ZVL-JWT: " + m_sender->jwt()->toUtf8()
                         + "\"\nheader = \"Content-Type: " + contentType + "\"\ndata-binary = \"@"
                         + path.toUtf8() + "\"\n");
        }
        config.close();
        QProcess curl;
        curl.start(QStringLiteral("curl"), {QStringLiteral("--config"), config.fileName()});
        if (!curl.waitForFinished(120000) || curl.exitCode() != 0)
            return std::nullopt;
        Runs times;
        const QList<QByteArray> lines = curl.readAllStandardOutput().trimmed().split('\n');
        for (qsizetype i = 1; i < lines.size(); ++i) // the first pays for the handshake
            times << lines.at(i).toDouble() * 1000;
        return times;
    }

    // The server's request log would bury the table.
    ZVXDevServerProcess m_server{ZVXDevServerProcess::Log::ToFile};
    quint16 m_port = 0;
    std::unique_ptr<Zuvero> m_sender;
    std::unique_ptr<Zuvero> m_reader;
    std::unique_ptr<ZVXDevClient> m_bare;
    std::unique_ptr<ZVXDevClient> m_bareReader;
    QByteArray m_page;
    qsizetype m_sink = 0;
};

} // namespace

QList<Row> networkRows(int repetitions, QByteArray *page, QString *problem)
{
    Bench bench;
    if (!bench.start(problem))
        return {};
    *page = bench.page();
    return bench.rows(repetitions);
}

} // namespace ZVXBench
