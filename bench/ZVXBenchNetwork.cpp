// Work against a real dev server on loopback: the library beside a bare QNetworkAccessManager and
// curl, each on its own kept-alive TLS connection, measured in turns.

#include "ZVXBench.h"
#include "ZVXDevServerProcess.h"
#include "ZVXJSON.h"
#include "ZVXMultipart.h"
#include "Zuvero.h"
#include "ZuveroCertificateAuthorities.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>

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

QString ms(double value)
{
    return QStringLiteral("%1 ms").arg(value, 0, 'f', value < 10 ? 2 : 1);
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
        QList<double> library, bare;
        QSet<QString> known = connectionsTo(m_port);
        int libraryConnections = 0;
        for (int i = 0; i < repetitions; ++i) {
            QElapsedTimer timer;
            timer.start();
            librarySend(m_sender.get(), false);
            library << elapsedMs(timer);
            const QSet<QString> now = connectionsTo(m_port);
            libraryConnections += int((now - known).size());
            known += now;
            timer.start();
            bareSend();
            bare << elapsedMs(timer);
            known += connectionsTo(m_port);
        }
        const double librarySendMs = median(library);
        rows << ratioRow(QStringLiteral("send a text: library vs bare QNAM POST"), librarySendMs,
                         median(bare), 1.3);
        const std::optional<double> curl = curlSend(repetitions);
        if (curl)
            rows << ratioRow(QStringLiteral("send a text: library vs curl"), librarySendMs, *curl,
                             0);
        // The same sends to a server that leaves Nagle's algorithm on: what a stall looks like.
        const std::optional<double> stalled = nagleSend();
        rows << Row{QStringLiteral("send a text: loopback median vs server without TCP_NODELAY"),
                    ms(librarySendMs),
                    stalled ? ms(*stalled) : QStringLiteral("-"),
                    stalled ? librarySendMs / *stalled : 0,
                    QStringLiteral("< 5 ms"),
                    librarySendMs < 5};
        rows << Row{QStringLiteral("send a text: connections opened by %1 sends").arg(repetitions),
                    QString::number(libraryConnections),
                    QStringLiteral("1 kept alive"),
                    0,
                    QStringLiteral("0 new"),
                    libraryConnections == 0};

        QList<double> libraryPages, barePages;
        for (int i = 0; i < repetitions; ++i) {
            QElapsedTimer timer;
            timer.start();
            libraryPage();
            libraryPages << elapsedMs(timer);
            timer.start();
            barePage();
            barePages << elapsedMs(timer);
        }
        rows << ratioRow(QStringLiteral("history page of 50: library vs GET + QJsonDocument"),
                         median(libraryPages), median(barePages), 1.5);
        return rows;
    }

private:
    static bool fail(QString *problem, const QString &what)
    {
        *problem = what;
        return false;
    }

    static Row ratioRow(const QString &name, double measured, double baseline, double goal)
    {
        const double ratio = measured / baseline;
        return Row{name,
                   ms(measured),
                   ms(baseline),
                   ratio,
                   goal > 0 ? QStringLiteral("<= %1x").arg(goal) : QString(),
                   goal > 0 ? std::optional<bool>(ratio <= goal) : std::nullopt};
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
        ZVXDevClient::wait(m_bare->manager().post(request, content));
    }

    void libraryPage()
    {
        bool done = false;
        m_reader->connection()->loadMessageSinceDate(
            QDateTime(), HistoryPage,
            [&](const std::optional<ZuveroChatMessageList> &, bool, const ZuveroError &) {
                done = true;
            });
        waitUntil([&] { return done; });
    }

    void barePage()
    {
        ZVXDevClient &client = reader();
        const QByteArray page
            = ZVXDevClient::wait(client.manager().get(client.request(historyPath()))).body;
        m_sink = QJsonDocument::fromJson(page)
                     .object()
                     .value(QLatin1String("messages"))
                     .toArray()
                     .size();
    }

    ZVXDevClient &reader()
    {
        if (!m_bareReader)
            m_bareReader = std::make_unique<ZVXDevClient>(m_server, *m_reader->jwt());
        return *m_bareReader;
    }

    // curl sending the same bodies, every transfer of one run on one connection.
    std::optional<double> curlSend(int repetitions)
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
        QList<double> times;
        const QList<QByteArray> lines = curl.readAllStandardOutput().trimmed().split('\n');
        for (qsizetype i = 1; i < lines.size(); ++i) // the first pays for the handshake
            times << lines.at(i).toDouble() * 1000;
        return median(times);
    }

    std::optional<double> nagleSend()
    {
        ZVXDevServerProcess nagle(ZVXDevServerProcess::Log::ToFile);
        if (!nagle.start(
                {QStringLiteral("--api-secret"), SecretHex, QStringLiteral("--no-tcp-nodelay")}))
            return std::nullopt;
        QFile authority(nagle.authorityPath());
        if (!authority.open(QIODevice::ReadOnly)
            || ZuveroAddTrustedCertificateAuthorities(authority.readAll()) != 1)
            return std::nullopt;
        std::unique_ptr<Zuvero> zuvero(facade(nagle, QStringLiteral("bench-nagle")));
        if (!zuvero)
            return std::nullopt;
        QList<double> times;
        for (int i = 0; i < 8; ++i) {
            QElapsedTimer timer;
            timer.start();
            librarySend(zuvero.get(), false);
            times << elapsedMs(timer);
        }
        return median(times);
    }

    // The servers' request logs would bury the table.
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
