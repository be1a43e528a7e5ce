// What a process on the same machine can do to the dev server: each attack replayed on loopback
// against the real server, with the bound the server must keep. Memory is the server's own,
// read from /proc: its peak (VmHWM) during an attack against what it held before (VmRSS).

#include "ZVXDevServerProcess.h"
#include "ZVXMultipart.h"
#include "ZVXProcessMemory.h"
#include "ZVXTestServer.h"

#include <QBuffer>
#include <QDir>
#include <QElapsedTimer>
#include <QImage>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QSslKey>
#include <QSslSocket>
#include <QTest>
#include <QTimer>
#include <QUrlQuery>
#include <QUuid>

#include <deque>

#include <sys/stat.h>
#include <zlib.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int MaxUploadMiB = 4;
constexpr int HeaderTimeoutSeconds = 2;
constexpr int BodyTimeoutSeconds = 5;

QString newUUID()
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces);
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
// The server is built with the same sanitizer, whose shadow memory and quarantine dwarf what an
// attack costs: the figures are printed, not held to their bounds.
constexpr bool MemoryIsMeasured = false;
#else
constexpr bool MemoryIsMeasured = true;
#endif

/*
    How much the server's peak memory grows during one attack. The peak is
    reset first (clear_refs), so that each attack is measured on its own.
*/
class PeakGrowth
{
public:
    explicit PeakGrowth(qint64 pid)
        : m_pid(pid)
        , m_reset(ZVXResetPeakMemory(pid))
        , m_before(double(ZVXProcessMemoryKiB(pid, "VmRSS")) / 1024)
    { }
    bool valid() const { return m_reset && m_before > 0; }
    //! Prints the figures; true when the growth stays under \a boundMiB.
    bool within(const char *attack, double boundMiB) const
    {
        const double peak = double(ZVXProcessMemoryKiB(m_pid, "VmHWM")) / 1024;
        qInfo("%s: VmRSS %.1f MiB before, peak %.1f MiB during (+%.1f MiB; bound +%.0f MiB)",
              attack, m_before, peak, peak - m_before, boundMiB);
        return valid() && (!MemoryIsMeasured || peak - m_before < boundMiB);
    }

private:
    qint64 m_pid;
    bool m_reset;
    double m_before;
};

struct RawReply
{
    int status = 0;
    //! Names in lower case.
    QHash<QByteArray, QByteArray> headers;
    QByteArray body;
};

/*
    A TLS connection that says exactly what the test writes, as an attacker's
    client would: no framing, no limits of its own. Blocking.
*/
class RawClient
{
public:
    explicit RawClient(const ZVXDevServerProcess &server)
    {
        QSslConfiguration ssl = QSslConfiguration::defaultConfiguration();
        ssl.setCaCertificates(QSslCertificate::fromPath(server.authorityPath()));
        ssl.setPeerVerifyMode(QSslSocket::VerifyPeer);
        m_socket.setSslConfiguration(ssl);
        const QUrl origin(server.origin());
        m_socket.connectToHostEncrypted(origin.host(), quint16(origin.port()));
        m_socket.waitForEncrypted(10000);
    }

    bool isEncrypted() const { return m_socket.isEncrypted(); }

    //! False once the connection has gone.
    bool send(const QByteArray &bytes)
    {
        if (m_socket.state() != QAbstractSocket::ConnectedState)
            return false;
        m_socket.write(bytes);
        while (m_socket.bytesToWrite() > 0) {
            if (!m_socket.waitForBytesWritten(10000))
                return false;
        }
        return true;
    }

    //! The next answer, whole (by its Content-Length, or to the connection's end).
    std::optional<RawReply> reply(int timeoutMs = 30000)
    {
        QDeadlineTimer deadline(timeoutMs);
        qsizetype end = -1;
        while ((end = m_buffer.indexOf("\r\n\r\n")) < 0) {
            if (!readMore(deadline))
                return std::nullopt;
        }
        RawReply reply;
        const QList<QByteArray> lines = m_buffer.left(end).split('\n');
        reply.status = lines.first().split(' ').value(1).toInt();
        for (const QByteArray &line : lines.mid(1)) {
            const qsizetype colon = line.indexOf(':');
            reply.headers.insert(line.left(colon).trimmed().toLower(),
                                 line.mid(colon + 1).trimmed());
        }
        m_buffer.remove(0, end + 4);
        const qsizetype length = reply.headers.value("content-length", "-1").toLongLong();
        while (length < 0 ? readMore(deadline) : m_buffer.size() < length) {
            if (length >= 0 && !readMore(deadline))
                return std::nullopt;
        }
        reply.body = length < 0 ? m_buffer : m_buffer.left(length);
        m_buffer.remove(0, reply.body.size());
        return reply;
    }

    //! True when the server closes the connection within \a timeoutMs, whatever it said first.
    bool closedByServer(int timeoutMs)
    {
        QDeadlineTimer deadline(timeoutMs);
        while (readMore(deadline)) { }
        return m_socket.state() != QAbstractSocket::ConnectedState;
    }

private:
    bool readMore(const QDeadlineTimer &deadline)
    {
        if (m_socket.bytesAvailable() == 0
            && !m_socket.waitForReadyRead(int(std::max<qint64>(deadline.remainingTime(), 1))))
            return false;
        m_buffer += m_socket.readAll();
        return true;
    }

    QSslSocket m_socket;
    QByteArray m_buffer;
};

QByteArray bigEndian(quint32 value)
{
    const char bytes[] = {char(value >> 24), char(value >> 16), char(value >> 8), char(value)};
    return QByteArray(bytes, sizeof bytes);
}

// What zlib makes of \a rows rows of \a rowLength zero bytes, in the wrapper \a windowBits says.
QByteArray deflatedZeros(qint64 rows, qint64 rowLength, int windowBits)
{
    z_stream stream{};
    if (deflateInit2(&stream, 9, Z_DEFLATED, windowBits, 9, Z_DEFAULT_STRATEGY) != Z_OK)
        return {};
    QByteArray row(rowLength, '\0');
    QByteArray out;
    char buffer[65536];
    for (qint64 i = 0; i < rows; ++i) {
        stream.next_in = reinterpret_cast<Bytef *>(row.data());
        stream.avail_in = uInt(row.size());
        const int flush = i + 1 == rows ? Z_FINISH : Z_NO_FLUSH;
        do {
            stream.next_out = reinterpret_cast<Bytef *>(buffer);
            stream.avail_out = sizeof buffer;
            deflate(&stream, flush);
            out.append(buffer, qsizetype(sizeof buffer - stream.avail_out));
        } while (stream.avail_out == 0);
    }
    deflateEnd(&stream);
    return out;
}

// A PNG of \a width x \a height black pixels: a few kilobytes that decode to width*height*4 bytes.
QByteArray blackPNG(int width, int height)
{
    const auto chunk = [](const QByteArray &type, const QByteArray &data) {
        const QByteArray typed = type + data;
        return bigEndian(quint32(data.size())) + typed
            + bigEndian(quint32(
                crc32(0, reinterpret_cast<const Bytef *>(typed.constData()), uInt(typed.size()))));
    };
    const QByteArray header = bigEndian(quint32(width)) + bigEndian(quint32(height))
        + QByteArray("\x08\x02\x00\x00\x00", 5); // 8-bit RGB
    return QByteArray("\x89PNG\r\n\x1a\n", 8) + chunk("IHDR", header)
        + chunk("IDAT", deflatedZeros(height, 1 + 3 * qint64(width), 15)) + chunk("IEND", {});
}

QString part(const QVariantMap &map, const QString &key)
{
    return map.value(key).toString();
}

bool runOpenssl(const QStringList &arguments)
{
    QProcess openssl;
    openssl.start(u"openssl"_s, arguments);
    return openssl.waitForFinished(30000) && openssl.exitStatus() == QProcess::NormalExit
        && openssl.exitCode() == 0;
}

struct Issued
{
    QSslCertificate certificate;
    QSslKey key;
};

// A server certificate for \a names (subjectAltName), signed with the authority in \a tls.
Issued issue(const QString &tls, const QString &directory, const QString &names)
{
    const QString base = directory + u"/"_s + newUUID();
    QFile extensions(base + u".ext"_s);
    if (!extensions.open(QIODevice::WriteOnly))
        return Issued();
    extensions.write("subjectAltName=" + names.toLatin1()
                     + "\nbasicConstraints=CA:FALSE\nextendedKeyUsage=serverAuth\n");
    extensions.close();
    const bool made
        = runOpenssl({u"req"_s, u"-newkey"_s, u"ec"_s, u"-pkeyopt"_s,
                      u"ec_paramgen_curve:prime256v1"_s, u"-nodes"_s, u"-keyout"_s,
                      base + u".key"_s, u"-out"_s, base + u".csr"_s, u"-subj"_s, u"/CN=rogue"_s})
        && runOpenssl({u"x509"_s, u"-req"_s, u"-in"_s, base + u".csr"_s, u"-CA"_s,
                       tls + u"/ca.pem"_s, u"-CAkey"_s, tls + u"/ca-key.pem"_s, u"-days"_s, u"2"_s,
                       u"-extfile"_s, base + u".ext"_s, u"-out"_s, base + u".pem"_s});
    if (!made)
        return Issued();
    QFile certificate(base + u".pem"_s), key(base + u".key"_s);
    if (!certificate.open(QIODevice::ReadOnly) || !key.open(QIODevice::ReadOnly))
        return Issued();
    return {QSslCertificate(certificate.readAll()), QSslKey(key.readAll(), QSsl::Ec)};
}

/*
    Whether a client that trusts the authority in \a tls accepts \a issued,
    presented by a TLS server on loopback, as \a peerName: a stolen
    authority key at work.
*/
bool trustedAs(const QString &tls, const Issued &issued, const QString &peerName)
{
    ZVXTestServer server(issued.certificate, issued.key);
    QSslSocket client;
    QSslConfiguration ssl = QSslConfiguration::defaultConfiguration();
    ssl.setCaCertificates(QSslCertificate::fromPath(tls + u"/ca.pem"_s));
    ssl.setPeerVerifyMode(QSslSocket::VerifyPeer);
    client.setSslConfiguration(ssl);
    const QUrl url = server.url(u"/"_s);
    client.connectToHostEncrypted(url.host(), quint16(url.port()), peerName);
    bool encrypted = false, failed = false;
    QObject::connect(&client, &QSslSocket::encrypted, [&] { encrypted = true; });
    QObject::connect(&client, &QSslSocket::sslErrors, [&] { failed = true; });
    QObject::connect(&client, &QAbstractSocket::errorOccurred, [&] { failed = true; });
    return QTest::qWaitFor([&] { return encrypted || failed; }, 10000) && encrypted;
}

mode_t modeOf(const QString &path)
{
    struct stat status;
    return stat(QFile::encodeName(path).constData(), &status) == 0 ? status.st_mode & 0777
                                                                   : mode_t(07777);
}

} // namespace

class TestHostileServer : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase() { QVERIFY2(m_server.stop(), "the server ends cleanly"); }
    void rangesAreServedOnce();
    void bodiesStopAtTheLimit_data();
    void bodiesStopAtTheLimit();
    void countersNameRoutesNotPaths();
    void picturesDecodeWithinABound();
    void longConversationsComeInPages();
    void consoleTakesOnlyItsAgent();
    void filesNeverRunInABrowser();
    void authorityCanSignOnlyForThisServer();
    void tokensHoldOnlyInTheirTime_data();
    void tokensHoldOnlyInTheirTime();
    void installationCannotTakeOverAnotherUsersDevice();
    void dataIsPrivate();
    void slowClientsAndStreamsLeaveRoom();

private:
    QString tokenFor(const QString &userId, const QString &installationId = newUUID(),
                     const QVariantMap &more = {}) const;
    //! A request head to the server; \a headers end with "\r\n" each.
    QByteArray head(const QByteArray &method, const QByteArray &target,
                    const QByteArray &headers = {}) const;
    //! Whether the server answers an ordinary request, right now.
    bool stillServes();

    ZVXDevServerProcess m_server{ZVXDevServerProcess::Log::ToFile};
    std::unique_ptr<ZVXDevClient> m_user;
};

void TestHostileServer::initTestCase()
{
    QVERIFY(m_server.start({u"--open"_s, u"--admin"_s, u"--max-upload-mb"_s,
                            QString::number(MaxUploadMiB), u"--header-timeout"_s,
                            QString::number(HeaderTimeoutSeconds), u"--body-timeout"_s,
                            QString::number(BodyTimeoutSeconds)}));
    m_user = std::make_unique<ZVXDevClient>(m_server, tokenFor(u"ada"_s));
    QCOMPARE(m_user->postJSON(u"/api/1.0/register"_s, {}).status, 200);
    QVERIFY(PeakGrowth(m_server.pid()).valid());
}

QString TestHostileServer::tokenFor(const QString &userId, const QString &installationId,
                                    const QVariantMap &more) const
{
    QVariantMap claims{{u"apiKey"_s, u"key"_s}, {u"installationId"_s, installationId}};
    if (!userId.isEmpty())
        claims.insert(u"userId"_s, userId);
    claims.insert(more);
    return ZVXDevSign(claims, "any");
}

QByteArray TestHostileServer::head(const QByteArray &method, const QByteArray &target,
                                   const QByteArray &headers) const
{
    return method + ' ' + target + " HTTP/1.1\r\nHost: "
        + QUrl(m_server.origin()).authority().toLatin1() + "\r\n" + headers + "\r\n";
}

bool TestHostileServer::stillServes()
{
    return m_user->get(u"/api/1.0/status"_s).status == 200;
}

void TestHostileServer::rangesAreServedOnce()
{
    const QByteArray tile = m_user->get(u"/tiles/0/0/0.png"_s).body;
    const QByteArray document(1024 * 1024, 'd');
    const QString file = newUUID();
    QCOMPARE(m_user
                 ->send({{u"uuid"_s, newUUID()},
                         {u"attachments"_s, QVariantList{QVariantMap{{u"uuid"_s, file}}}}},
                        {{file, "application/pdf", document}})
                 .status,
             200);
    const QByteArray fileTarget
        = "/api/1.0/files/" + file.toLatin1() + "?jwt=" + m_user->token.toLatin1();

    // As many whole-file ranges as one header holds: before, one reply held each of them.
    QByteArrayList ranges(2600, "0-");
    const QByteArray many = "Range: bytes=" + ranges.join(',') + "\r\n";
    PeakGrowth growth(m_server.pid());
    std::vector<std::unique_ptr<RawClient>> clients;
    for (int i = 0; i < 16; ++i) {
        clients.push_back(std::make_unique<RawClient>(m_server));
        QVERIFY(clients.back()->send(head("GET", i % 2 ? fileTarget : "/tiles/0/0/0.png", many)));
    }
    for (int i = 0; i < 16; ++i) {
        const std::optional<RawReply> reply = clients.at(size_t(i))->reply();
        QVERIFY(reply);
        QCOMPARE(reply->status, 200);
        QCOMPARE(reply->body, i % 2 ? document : tile);
    }
    QVERIFY(growth.within("2600 ranges in each of 16 requests", 24));

    // One range is served as asked, within the file.
    RawClient client(m_server);
    QVERIFY(client.send(head("GET", fileTarget, "Range: bytes=100-199\r\n")));
    std::optional<RawReply> reply = client.reply();
    QVERIFY(reply);
    QCOMPARE(reply->status, 206);
    QCOMPARE(reply->headers.value("content-range"), QByteArray("bytes 100-199/1048576"));
    QCOMPARE(reply->body, document.mid(100, 100));
    QVERIFY(client.send(head("GET", fileTarget, "Range: bytes=-10\r\n")));
    reply = client.reply();
    QVERIFY(reply && reply->status == 206 && reply->body == document.right(10));
    QVERIFY(client.send(head("GET", fileTarget, "Range: bytes=2000000-\r\n")));
    reply = client.reply();
    QVERIFY(reply);
    QCOMPARE(reply->status, 416);
    QCOMPARE(reply->headers.value("content-range"), QByteArray("bytes */1048576"));
    QVERIFY(stillServes());
}

void TestHostileServer::bodiesStopAtTheLimit_data()
{
    QTest::addColumn<QByteArray>("target");
    QTest::addColumn<QByteArray>("headers");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("status");

    const QByteArray megabyte(1024 * 1024, 'z');
    QByteArray chunks;
    for (int i = 0; i < 64; ++i)
        chunks += QByteArray::number(megabyte.size(), 16) + "\r\n" + megabyte + "\r\n";
    const QByteArray form = "Content-Type: multipart/form-data; boundary=B\r\n";
    // Chunks without end, no token: the limit holds before anything else is checked.
    QTest::newRow("chunked upload, 64 MiB")
        << QByteArray("/api/1.0/messages") << form + "Transfer-Encoding: chunked\r\n"
        << chunks << 413;
    QTest::newRow("chunked to no route")
        << QByteArray("/nowhere") << QByteArray("Transfer-Encoding: chunked\r\n") << chunks << 404;
    // 128 MiB of zeros in 127 KiB of gzip.
    const QByteArray bomb = deflatedZeros(128, 1024 * 1024, 31);
    QTest::newRow("gzip, 128 MiB once inflated")
        << QByteArray("/api/1.0/register")
        << "Content-Encoding: gzip\r\nContent-Length: " + QByteArray::number(bomb.size()) + "\r\n"
        << bomb << 413;
    QTest::newRow("gzip and chunks") << QByteArray("/api/1.0/mark_messages")
                                     << QByteArray("Content-Encoding: gzip\r\n"
                                                   "Transfer-Encoding: chunked\r\n")
                                     << QByteArray::number(bomb.size(), 16) + "\r\n" + bomb + "\r\n"
                                     << 413;
    QTest::newRow("a length of 10 GB")
        << QByteArray("/api/1.0/messages") << form + "Content-Length: 10000000000\r\n"
        << megabyte.repeated(8) << 413;
    QTest::newRow("10 GB, asking first")
        << QByteArray("/api/1.0/messages")
        << form + "Content-Length: 10000000000\r\nExpect: 100-continue\r\n"
        << QByteArray() << 413;
    QTest::newRow("unknown encoding")
        << QByteArray("/api/1.0/register")
        << QByteArray("Content-Encoding: zstd\r\nContent-Length: 4\r\n") << QByteArray("abcd")
        << 415;
    QTest::newRow("length and chunks")
        << QByteArray("/api/1.0/register")
        << QByteArray("Content-Length: 4\r\nTransfer-Encoding: chunked\r\n")
        << QByteArray("4\r\nabcd\r\n0\r\n\r\n") << 400;
    QTest::newRow("HTTP/2 preface") << QByteArray("*") << QByteArray() << megabyte << 405;
}

void TestHostileServer::bodiesStopAtTheLimit()
{
    QFETCH(QByteArray, target);
    QFETCH(QByteArray, headers);
    QFETCH(QByteArray, body);
    QFETCH(int, status);

    PeakGrowth growth(m_server.pid());
    RawClient client(m_server);
    QVERIFY(client.isEncrypted());
    const QByteArray method = target == "*" ? "PRI" : "POST";
    QVERIFY(client.send(head(method, target, headers)));
    // Sent in pieces as long as the server takes them; it stops reading at its limit.
    qint64 sent = 0;
    for (qsizetype at = 0; at < body.size(); at += 256 * 1024) {
        if (!client.send(body.mid(at, 256 * 1024)))
            break;
        sent += std::min<qsizetype>(256 * 1024, body.size() - at);
    }
    const std::optional<RawReply> reply = client.reply();
    QVERIFY(reply);
    QCOMPARE(reply->status, status);
    QVERIFY2(!QJsonDocument::fromJson(reply->body).object().value(u"error"_s).toString().isEmpty(),
             reply->body.constData());
    QVERIFY2(client.closedByServer(10000), "the rest of the body is never read");
    qInfo("sent %lld of %lld bytes before the refusal", sent, qint64(body.size()));
    // What no socket buffer could take: the server stopped reading it.
    if (body.size() > 32 * 1024 * 1024)
        QVERIFY(sent < body.size());
    // The limit is 4 MiB: at most that much is held, and once more while a form is read.
    QVERIFY(growth.within(QTest::currentDataTag(), 3 * MaxUploadMiB + 8));
    QVERIFY(stillServes());
}

void TestHostileServer::countersNameRoutesNotPaths()
{
    QCOMPARE(m_user->wait(m_user->manager().deleteResource(m_user->request(u"/admin/counters"_s)))
                 .status,
             200);
    // 4,800 paths of 7 KB, each made up once: before, every one was kept for ever. They are
    // refused as too long, and counted as "other".
    constexpr int Connections = 8, PerConnection = 600;
    const QByteArray filler(7000, 'p');
    PeakGrowth growth(m_server.pid());
    for (int c = 0; c < Connections; ++c) {
        RawClient client(m_server);
        for (int i = 0; i < PerConnection; ++i) {
            QVERIFY(client.send(
                head("GET", "/made-up/" + QByteArray::number(c * PerConnection + i) + filler)));
            const std::optional<RawReply> reply = client.reply();
            QVERIFY(reply && reply->status == 414);
        }
    }
    QVERIFY(growth.within("4,800 distinct paths of 7 KB", 16));
    const QVariantMap counters
        = m_user->get(u"/admin/counters"_s).json().value(u"counters"_s).toMap();
    QCOMPARE(counters.value(u"GET other"_s).toInt(), Connections * PerConnection);
    for (const QString &key : counters.keys())
        QVERIFY2(!key.contains(u"made-up"_s), qPrintable(key));
    QCOMPARE(m_user->requestCount(u"GET /api/1.0/status"_s), 0);
    QVERIFY(stillServes());
    QCOMPARE(m_user->requestCount(u"GET /api/1.0/status"_s), 1);
}

void TestHostileServer::picturesDecodeWithinABound()
{
    const auto upload = [this](const QByteArray &png, int count) {
        // Two clients: each opens six connections at most.
        ZVXDevClient first(m_server, m_user->token), second(m_server, m_user->token);
        QList<QNetworkReply *> replies;
        QStringList files;
        for (int i = 0; i < count; ++i) {
            files.append(newUUID());
            const QVariantMap message{
                {u"uuid"_s, newUUID()},
                {u"attachments"_s, QVariantList{QVariantMap{{u"uuid"_s, files.last()}}}}};
            ZVXDevClient &client = i % 2 ? second : first;
            QNetworkRequest request = client.request(u"/api/1.0/messages"_s);
            request.setHeader(QNetworkRequest::ContentTypeHeader,
                              ZVXMultipart().contentType().toLatin1());
            replies.append(client.manager().post(
                request, ZVXDevClient::multipartBody(message, {{files.last(), "image/png", png}})));
        }
        bool stored = true;
        for (QNetworkReply *reply : replies)
            stored = ZVXDevClient::wait(reply).status == 200 && stored;
        return stored ? files : QStringList();
    };
    const auto attachment = [this](const QString &uuid) {
        for (const QVariant &message :
             m_user->get(u"/api/1.0/messages?limit=50"_s).json().value(u"messages"_s).toList()) {
            const QVariantMap first
                = message.toMap().value(u"attachments"_s).toList().value(0).toMap();
            if (part(first, u"uuid"_s) == uuid)
                return first;
        }
        return QVariantMap();
    };

    // 31 megapixels each: 125 MB to decode, a few hundred bytes of PNG. Before, all at once.
    const QByteArray huge = blackPNG(5600, 5600);
    PeakGrowth growth(m_server.pid());
    const QStringList hugeFiles = upload(huge, 8);
    QCOMPARE(hugeFiles.size(), 8);
    QVERIFY(growth.within("8 pictures of 5600 x 5600 at once", 16));
    const QVariantMap listed = attachment(hugeFiles.first());
    QCOMPARE(listed.value(u"imageSize"_s).toList(), (QVariantList{5600, 5600}));
    QVERIFY2(!listed.contains(u"previewURL"_s), "too large to decode for a preview");

    // At the limit (16 megapixels, 64 MiB decoded): previewed, one at a time.
    const QByteArray largest = blackPNG(4096, 4096);
    PeakGrowth atLimit(m_server.pid());
    const QStringList largestFiles = upload(largest, 4);
    QCOMPARE(largestFiles.size(), 4);
    QVERIFY(atLimit.within("4 pictures of 4096 x 4096 at once", 64 + 32));
    const QString preview = part(attachment(largestFiles.last()), u"previewURL"_s);
    QVERIFY(!preview.isEmpty());
    QCOMPARE(QImage::fromData(m_user->get(preview + u"?jwt="_s + m_user->token).body).size(),
             QSize(480, 480));
    QVERIFY(stillServes());
}

void TestHostileServer::longConversationsComeInPages()
{
    // A flood of the longest messages allowed: 20 MB of text in one conversation.
    ZVXDevClient flood(m_server, tokenFor(u"flood"_s));
    const QString text(100000, u'w');
    for (int i = 0; i < 200; ++i)
        QCOMPARE(flood.send({{u"uuid"_s, newUUID()}, {u"text"_s, text}}).status, 200);
    const qint64 id = flood.conversationId(u"userId"_s, u"flood"_s);
    QVERIFY(id > 0);

    // The console's first look: the latest messages, half a megabyte of them at most.
    const ZVXDevReply latest = flood.get(u"/console/api/conversations/%1/messages"_s.arg(id));
    QCOMPARE(latest.status, 200);
    const QVariantList page = latest.json().value(u"messages"_s).toList();
    QVERIFY(!page.isEmpty() && page.size() < 20);
    QVERIFY(latest.json().value(u"earlier"_s).toBool());
    QVERIFY2(latest.body.size() < 768 * 1024, QByteArray::number(latest.body.size()).constData());
    // Each poll after it: only what came since.
    const qint64 last = page.last().toMap().value(u"id"_s).toLongLong();
    const ZVXDevReply poll
        = flood.get(u"/console/api/conversations/%1/messages?after=%2"_s.arg(id).arg(last));
    QCOMPARE(poll.status, 200);
    QVERIFY(poll.json().value(u"messages"_s).toList().isEmpty());
    QVERIFY2(poll.body.size() < 200, poll.body.constData());
    const QVariantList earlier
        = flood
              .get(u"/console/api/conversations/%1/messages?before=%2"_s.arg(id).arg(
                  page.first().toMap().value(u"id"_s).toLongLong()))
              .json()
              .value(u"messages"_s)
              .toList();
    QCOMPARE(earlier.last().toMap().value(u"id"_s).toLongLong() + 1,
             page.first().toMap().value(u"id"_s).toLongLong());

    // The client's own list, asked for 1,000 messages at once, sixteen times at once.
    PeakGrowth growth(m_server.pid());
    QList<QNetworkReply *> replies;
    std::vector<std::unique_ptr<ZVXDevClient>> clients;
    for (int i = 0; i < 16; ++i) {
        clients.push_back(std::make_unique<ZVXDevClient>(m_server, flood.token));
        replies.append(clients.back()->manager().get(
            clients.back()->request(u"/api/1.0/messages?limit=1000"_s)));
    }
    for (QNetworkReply *reply : replies) {
        const ZVXDevReply listed = ZVXDevClient::wait(reply);
        QCOMPARE(listed.status, 200);
        QVERIFY(listed.json().value(u"moreMessages"_s).toBool());
        QVERIFY2(listed.body.size() < 768 * 1024,
                 QByteArray::number(listed.body.size()).constData());
    }
    QVERIFY(growth.within("16 lists of 1,000 messages of 100,000 characters", 64));
    QVERIFY(stillServes());
}

void TestHostileServer::consoleTakesOnlyItsAgent()
{
    const qint64 id = m_user->conversationId(u"userId"_s, u"ada"_s);
    QVERIFY(id > 0);
    const QByteArray read = "/console/api/conversations/" + QByteArray::number(id) + "/read";
    const QByteArray cookie = "Cookie: zuvero-console-"
        + QByteArray::number(QUrl(m_server.origin()).port()) + '='
        + m_server.consoleKey().toLatin1() + "\r\n";
    const QByteArray own = "Origin: " + m_server.origin().toLatin1() + "\r\n";
    const QByteArray none = "Content-Length: 0\r\n";
    struct Attempt
    {
        const char *what;
        QByteArray headers;
        int status;
    };
    // A page of another port of 127.0.0.1 is the same site: the agent's cookie goes with it.
    const QList<Attempt> attempts{
        {"no key", own + none, 403},
        {"the cookie, from another origin", cookie + "Origin: https://127.0.0.1:1\r\n" + none, 403},
        {"the cookie, from a page that names none", cookie + none, 403},
        {"a wrong key", "X-Zuvero-Console: " + QByteArray(43, 'A') + "\r\n" + none, 403},
        {"the cookie, from the console's page", cookie + own + none, 200},
        {"the key, from a script",
         "X-Zuvero-Console: " + m_server.consoleKey().toLatin1() + "\r\n" + none, 200},
    };
    RawClient client(m_server);
    for (const Attempt &attempt : attempts) {
        QVERIFY(client.send(head("POST", read, attempt.headers)));
        const std::optional<RawReply> reply = client.reply();
        QVERIFY(reply);
        QVERIFY2(reply->status == attempt.status, attempt.what);
    }

    // The printed address turns the key into a cookie for the console alone, then leaves it.
    QVERIFY(client.send(head("GET", "/console?key=" + m_server.consoleKey().toLatin1())));
    std::optional<RawReply> reply = client.reply();
    QVERIFY(reply);
    QCOMPARE(reply->status, 303);
    QCOMPARE(reply->headers.value("location"), QByteArray("/console"));
    const QByteArray setCookie = reply->headers.value("set-cookie");
    for (const char *attribute : {"Path=/console", "Secure", "HttpOnly", "SameSite=Strict"})
        QVERIFY2(setCookie.contains(attribute), setCookie.constData());
    QVERIFY(client.send(head("GET", "/console", cookie)));
    reply = client.reply();
    QVERIFY(reply && reply->status == 200);
    const QByteArray policy = reply->headers.value("content-security-policy");
    QVERIFY2(policy.contains("frame-ancestors 'none'") && policy.contains("script-src 'self'"),
             policy.constData());
    QCOMPARE(reply->headers.value("cross-origin-resource-policy"), QByteArray("same-origin"));

    // Never the key in the log, whichever way it came.
    QFile log(m_server.logPath());
    QVERIFY(log.open(QIODevice::ReadOnly));
    QVERIFY(!log.readAll().contains(m_server.consoleKey().toLatin1()));
}

void TestHostileServer::filesNeverRunInABrowser()
{
    struct Sent
    {
        QByteArray type;
        QByteArray disposition;
    };
    const QList<Sent> sent{{"text/html", "attachment"},
                           {"image/svg+xml", "attachment"},
                           {"application/xhtml+xml", "attachment"},
                           {"image/png", "inline"}};
    QVariantList attachments;
    QList<ZVXDevClient::File> files;
    for (const Sent &file : sent) {
        files.append(
            {newUUID(), file.type, "<html><script>alert(document.cookie)</script></html>"});
        attachments.append(QVariantMap{{u"uuid"_s, files.last().uuid}});
    }
    QCOMPARE(m_user->send({{u"uuid"_s, newUUID()}, {u"attachments"_s, attachments}}, files).status,
             200);
    RawClient client(m_server);
    for (int i = 0; i < files.size(); ++i) {
        const QByteArray uuid = files.at(i).uuid.toLatin1();
        for (const QByteArray &target :
             {"/api/1.0/files/" + uuid + "?jwt=" + m_user->token.toLatin1(),
              "/console/api/files/" + uuid}) {
            QVERIFY(client.send(head(
                "GET", target, "X-Zuvero-Console: " + m_server.consoleKey().toLatin1() + "\r\n")));
            const std::optional<RawReply> reply = client.reply();
            QVERIFY(reply && reply->status == 200);
            QVERIFY(reply->headers.value("content-disposition").startsWith(sent.at(i).disposition));
            QCOMPARE(reply->headers.value("x-content-type-options"), QByteArray("nosniff"));
            QCOMPARE(reply->headers.value("content-security-policy"),
                     QByteArray("default-src 'none'; sandbox"));
            QCOMPARE(reply->body, files.at(i).bytes);
        }
    }
}

void TestHostileServer::authorityCanSignOnlyForThisServer()
{
    QTemporaryDir scratch;
    QVERIFY(scratch.isValid());
    const QString tls = QFileInfo(m_server.authorityPath()).path();

    // Whoever reads the authority's key signs what it likes; only this server's names pass.
    QVERIFY(trustedAs(tls, issue(tls, scratch.path(), u"IP:127.0.0.1,DNS:localhost"_s),
                      u"localhost"_s));
    QVERIFY(!trustedAs(tls, issue(tls, scratch.path(), u"DNS:bank.example"_s), u"bank.example"_s));
    QVERIFY(
        !trustedAs(tls, issue(tls, scratch.path(), u"IP:10.1.2.3,DNS:localhost"_s), u"10.1.2.3"_s));

    // An authority without constraints, as servers made before: it gives way at the next start.
    ZVXDevServerProcess older(ZVXDevServerProcess::Log::ToFile);
    const QString olderTls = older.dataDirectory() + u"/tls"_s;
    QVERIFY(QDir().mkpath(olderTls));
    QVERIFY(runOpenssl({u"req"_s, u"-x509"_s, u"-newkey"_s, u"ec"_s, u"-pkeyopt"_s,
                        u"ec_paramgen_curve:prime256v1"_s, u"-nodes"_s, u"-keyout"_s,
                        olderTls + u"/ca-key.pem"_s, u"-out"_s, olderTls + u"/ca.pem"_s, u"-days"_s,
                        u"3650"_s, u"-subj"_s, u"/CN=Zuvero Development CA"_s, u"-addext"_s,
                        u"basicConstraints=critical,CA:TRUE,pathlen:0"_s, u"-addext"_s,
                        u"keyUsage=critical,keyCertSign,cRLSign"_s}));
    QVERIFY2(trustedAs(olderTls, issue(olderTls, scratch.path(), u"DNS:bank.example"_s),
                       u"bank.example"_s),
             "the attack the constraints stop");
    QFile before(olderTls + u"/ca.pem"_s);
    QVERIFY(before.open(QIODevice::ReadOnly));
    const QByteArray unconstrained = before.readAll();
    QVERIFY(older.start({u"--open"_s}));
    QVERIFY2(older.printed().join(u'\n').contains(u"replaced the certificate authority"_s),
             qPrintable(older.printed().join(u'\n')));
    QFile after(older.authorityPath());
    QVERIFY(after.open(QIODevice::ReadOnly));
    QVERIFY(after.readAll() != unconstrained);
    QVERIFY(!trustedAs(olderTls, issue(olderTls, scratch.path(), u"DNS:bank.example"_s),
                       u"bank.example"_s));
    QCOMPARE(ZVXDevClient(older, tokenFor(u"u"_s)).get(u"/api/1.0/status"_s).status, 200);
    // Kept from then on.
    QVERIFY(older.restart());
    QVERIFY(!older.printed().join(u'\n').contains(u"replaced"_s));
}

void TestHostileServer::tokensHoldOnlyInTheirTime_data()
{
    QTest::addColumn<QVariantMap>("claims");
    QTest::addColumn<int>("status");
    const qint64 now = QDateTime::currentSecsSinceEpoch();
    QTest::newRow("no times") << QVariantMap() << 200;
    QTest::newRow("expired two minutes ago") << QVariantMap{{u"exp"_s, now - 120}} << 401;
    QTest::newRow("expired within the minute allowed") << QVariantMap{{u"exp"_s, now - 20}} << 200;
    QTest::newRow("valid for an hour") << QVariantMap{{u"exp"_s, now + 3600}} << 200;
    QTest::newRow("valid in two minutes") << QVariantMap{{u"nbf"_s, now + 120}} << 401;
    QTest::newRow("valid within the minute allowed") << QVariantMap{{u"nbf"_s, now + 20}} << 200;
    QTest::newRow("exp as text") << QVariantMap{{u"exp"_s, QString::number(now + 3600)}} << 401;
}

void TestHostileServer::tokensHoldOnlyInTheirTime()
{
    QFETCH(QVariantMap, claims);
    QFETCH(int, status);
    ZVXDevClient client(m_server, tokenFor(u"timely"_s, newUUID(), claims));
    const ZVXDevReply reply = client.get(u"/api/1.0/status"_s);
    QCOMPARE(reply.status, status);
    // Files and streams take the token from the query, under the same rule.
    ZVXDevClient query(m_server, {});
    QCOMPARE(query.get(u"/api/1.0/files/x?jwt="_s + client.token).status,
             status == 200 ? 404 : 401);
}

void TestHostileServer::installationCannotTakeOverAnotherUsersDevice()
{
    const QString installation = newUUID();
    ZVXDevClient victim(m_server, tokenFor(u"victim"_s, installation));
    QCOMPARE(victim.postJSON(u"/api/1.0/register"_s, {{u"deviceToken"_s, u"a1b2c3"_s}}).status,
             200);
    const auto devicesOf = [this](const QString &userId) {
        for (const QVariant &conversation : m_user->get(u"/console/api/conversations"_s)
                                                .json()
                                                .value(u"conversations"_s)
                                                .toList()) {
            if (part(conversation.toMap(), u"userId"_s) == userId)
                return conversation.toMap().value(u"devices"_s).toInt();
        }
        return -1;
    };
    QCOMPARE(devicesOf(u"victim"_s), 1);

    // Another user who learnt the installation's identifier registers with it.
    ZVXDevClient intruder(m_server, tokenFor(u"intruder"_s, installation));
    QCOMPARE(intruder.postJSON(u"/api/1.0/register"_s, {{u"deviceToken"_s, u"ffff"_s}}).status,
             200);
    QCOMPARE(devicesOf(u"victim"_s), 1);
    QCOMPARE(devicesOf(u"intruder"_s), 1);

    // The device itself, its push token in hand, moving to another user takes its registration.
    ZVXDevClient successor(m_server, tokenFor(u"successor"_s, installation));
    QCOMPARE(successor.postJSON(u"/api/1.0/register"_s, {{u"deviceToken"_s, u"a1b2c3"_s}}).status,
             200);
    QCOMPARE(devicesOf(u"victim"_s), 0);
    QCOMPARE(devicesOf(u"successor"_s), 1);
}

void TestHostileServer::dataIsPrivate()
{
    const QString file = newUUID();
    QCOMPARE(m_user
                 ->send({{u"uuid"_s, newUUID()},
                         {u"attachments"_s, QVariantList{QVariantMap{{u"uuid"_s, file}}}}},
                        {{file, "image/png", blackPNG(64, 64)}})
                 .status,
             200);
    const QString data = m_server.dataDirectory();
    QCOMPARE(modeOf(data), mode_t(0700));
    for (const QString &file :
         {u"devserver.sqlite"_s, u"devserver.sqlite-wal"_s, u"tls/ca-key.pem"_s, u"tls/ca.pem"_s})
        QVERIFY2(modeOf(data + u'/' + file) == 0600, qPrintable(file));
    for (const QString &stored : {u"files/data/"_s + file, u"files/previews/"_s + file}) {
        QCOMPARE(modeOf(QFileInfo(data + u'/' + stored).path()), mode_t(0700));
        QVERIFY2(modeOf(data + u'/' + stored) == 0600, qPrintable(stored));
    }

    // A data directory an earlier version left open to every user is closed at start.
    ZVXDevServerProcess older(ZVXDevServerProcess::Log::ToFile);
    const QString olderData = older.dataDirectory();
    QVERIFY(QDir().mkpath(olderData + u"/files/data"_s));
    QFile leftOver(olderData + u"/files/data/left-over"_s);
    QVERIFY(leftOver.open(QIODevice::WriteOnly));
    leftOver.close();
    QVERIFY(chmod(QFile::encodeName(olderData).constData(), 0755) == 0);
    QVERIFY(chmod(QFile::encodeName(olderData + u"/files"_s).constData(), 0755) == 0);
    QVERIFY(chmod(QFile::encodeName(leftOver.fileName()).constData(), 0644) == 0);
    QVERIFY(older.start({u"--open"_s}));
    QVERIFY(older.printed().join(u'\n').contains(u"made the data directory private"_s));
    QCOMPARE(modeOf(olderData), mode_t(0700));
    QCOMPARE(modeOf(olderData + u"/files"_s), mode_t(0700));
    QCOMPARE(modeOf(leftOver.fileName()), mode_t(0600));
}

void TestHostileServer::slowClientsAndStreamsLeaveRoom()
{
    struct Slow
    {
        std::unique_ptr<QSslSocket> socket;
        QByteArray received;
    };
    const auto open = [this](std::deque<Slow> &list, int count) {
        QSslConfiguration ssl = QSslConfiguration::defaultConfiguration();
        ssl.setCaCertificates(QSslCertificate::fromPath(m_server.authorityPath()));
        const QUrl origin(m_server.origin());
        for (int i = 0; i < count; ++i) {
            list.push_back({std::make_unique<QSslSocket>(), {}});
            Slow &slow = list.back();
            slow.socket->setSslConfiguration(ssl);
            QObject::connect(slow.socket.get(), &QIODevice::readyRead, slow.socket.get(),
                             [&slow] { slow.received += slow.socket->readAll(); });
            slow.socket->connectToHostEncrypted(origin.host(), quint16(origin.port()));
        }
    };
    const auto all = [](const std::deque<Slow> &list, auto predicate) {
        return std::all_of(list.begin(), list.end(), predicate);
    };
    const auto encrypted = [](const Slow &slow) { return slow.socket->isEncrypted(); };
    const auto closed = [](const Slow &slow) {
        return slow.socket->state() == QAbstractSocket::UnconnectedState;
    };

    PeakGrowth growth(m_server.pid());
    std::deque<Slow> heads, bodies, streams;

    // As many push streams as the server keeps, four of them for one device.
    const int maxStreams = 32;
    std::vector<std::unique_ptr<ZVXDevClient>> devices;
    for (int i = 0; i < maxStreams - 3; ++i) {
        devices.push_back(
            std::make_unique<ZVXDevClient>(m_server, tokenFor(u"listener-%1"_s.arg(i))));
        QCOMPARE(devices.back()->postJSON(u"/api/1.0/register"_s, {}).status, 200);
    }
    const auto streamOf = [this](const ZVXDevClient &device) {
        return head("GET", "/api/1.0/push", "X-ZVL-JWT: " + device.token.toLatin1() + "\r\n");
    };
    open(streams, maxStreams + 2);
    QTRY_VERIFY_WITH_TIMEOUT(all(streams, encrypted), 30000);
    for (int i = 0; i < maxStreams; ++i)
        streams.at(size_t(i)).socket->write(streamOf(*devices.at(size_t(std::max(0, i - 3)))));
    QTRY_VERIFY_WITH_TIMEOUT(
        std::all_of(streams.begin(), streams.begin() + maxStreams,
                    [](const Slow &stream) { return stream.received.contains(": connected"); }),
        20000);
    // One more device, and a fifth stream for the device that has four: both refused, clearly.
    devices.push_back(std::make_unique<ZVXDevClient>(m_server, tokenFor(u"one-too-many"_s)));
    QCOMPARE(devices.back()->postJSON(u"/api/1.0/register"_s, {}).status, 200);
    streams.at(maxStreams).socket->write(streamOf(*devices.back()));
    streams.at(maxStreams + 1).socket->write(streamOf(*devices.front()));
    QTRY_VERIFY(streams.at(maxStreams).received.startsWith("HTTP/1.1 503"));
    QTRY_VERIFY(streams.at(maxStreams + 1).received.startsWith("HTTP/1.1 429"));
    QVERIFY(streams.at(maxStreams).received.contains("push streams open"));

    // Twice as many slow clients as the server used to serve at once, a header byte at a time,
    // and a few that send their body so.
    open(heads, 64);
    open(bodies, 4);
    QTRY_VERIFY_WITH_TIMEOUT(all(heads, encrypted) && all(bodies, encrypted), 30000);
    for (Slow &slow : heads)
        slow.socket->write(head("GET", "/api/1.0/status").chopped(2) + "X-Slow: ");
    for (Slow &slow : bodies)
        slow.socket->write(head("POST", "/api/1.0/register", "Content-Length: 1000\r\n"));
    QElapsedTimer since;
    since.start();
    QTimer drip;
    QObject::connect(&drip, &QTimer::timeout, [&] {
        for (std::deque<Slow> *list : {&heads, &bodies}) {
            for (Slow &slow : *list) {
                if (slow.socket->state() == QAbstractSocket::ConnectedState)
                    slow.socket->write("x");
            }
        }
    });
    drip.start(250);

    // Meanwhile, everybody else is served at once.
    QElapsedTimer served;
    served.start();
    QVERIFY(stillServes());
    qInfo("an ordinary request took %lld ms beside 64 slow heads, 4 slow bodies and %d streams",
          served.elapsed(), maxStreams);
    QVERIFY(served.elapsed() < 5000);

    // Slow heads are closed at their deadline, without an answer; slow bodies are told why.
    QTRY_VERIFY_WITH_TIMEOUT(all(heads, closed), (HeaderTimeoutSeconds + 5) * 1000);
    qInfo("64 slow heads closed after %lld ms", since.elapsed());
    QVERIFY(since.elapsed() >= HeaderTimeoutSeconds * 1000);
    QVERIFY(all(heads, [](const Slow &slow) { return slow.received.isEmpty(); }));
    QTRY_VERIFY_WITH_TIMEOUT(all(bodies, closed), (BodyTimeoutSeconds + 8) * 1000);
    QVERIFY(all(bodies, [](const Slow &slow) { return slow.received.startsWith("HTTP/1.1 408"); }));
    QVERIFY(growth.within("64 slow heads, 4 slow bodies, 34 streams", 48));
    QVERIFY(stillServes());
}

QTEST_MAIN(TestHostileServer)
#include "tst_hostile_server.moc"
