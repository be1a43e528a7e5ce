#include "ZVXHTTPConnection.h"

#include "ZVXTransferCounters.h"

#include <QNetworkReply>
#include <QSslSocket>

namespace {

constexpr qint64 ReadBufferSize = 256 * 1024;

// A chunk-size line is a hexadecimal number and perhaps extensions; anything longer is abuse.
constexpr qsizetype MaximumChunkLine = 1024;

ZuveroError failure(qint64 code, const QString &description)
{
    return ZuveroError::withDescription(QString(ZuveroURLErrorDomain), code, description);
}

QNetworkReply::NetworkError networkError(QAbstractSocket::SocketError error)
{
    switch (error) {
    case QAbstractSocket::ConnectionRefusedError:
        return QNetworkReply::ConnectionRefusedError;
    case QAbstractSocket::RemoteHostClosedError:
        return QNetworkReply::RemoteHostClosedError;
    case QAbstractSocket::HostNotFoundError:
        return QNetworkReply::HostNotFoundError;
    case QAbstractSocket::SocketTimeoutError:
        return QNetworkReply::TimeoutError;
    case QAbstractSocket::SslHandshakeFailedError:
        return QNetworkReply::SslHandshakeFailedError;
    case QAbstractSocket::ProxyConnectionRefusedError:
    case QAbstractSocket::ProxyConnectionClosedError:
    case QAbstractSocket::ProxyNotFoundError:
        return QNetworkReply::ProxyConnectionRefusedError;
    default:
        return QNetworkReply::UnknownNetworkError;
    }
}

bool hasToken(const QByteArray &list, const QByteArray &token)
{
    for (const QByteArray &item : list.split(',')) {
        if (item.trimmed().compare(token, Qt::CaseInsensitive) == 0)
            return true;
    }
    return false;
}

} // namespace

struct ZVXHTTPConnection::Private
{
    enum class Stage { Idle, Connecting, Head, Body, Chunks, ChunkData, Trailers, Closed };
    enum class Framing { None, Length, Chunked, UntilClose };

    ZVXHTTPConnection *q;
    QUrl origin;
    bool secure = true;
    QSslConfiguration tls;
    ZVXHTTPLimits limits;
    QSslSocket *socket = nullptr;

    Stage stage = Stage::Closed;
    bool exchanged = false; // an exchange has ended on this connection
    bool keepAlive = false;
    ZVXURLRequest request;
    QByteArray outgoing; // the request, until the connection is ready for it
    qint64 headLength = 0;
    qint64 bodyLength = 0;
    qint64 written = 0;

    QByteArray buffer;
    bool answered = false; // a byte of the answer came
    std::optional<ZVXURLResponse> response;
    Framing framing = Framing::None;
    qint64 expected = ZVXTransferCounters::UnknownSize;
    qint64 chunkLeft = 0;
    QByteArray body;
    QList<QSslError> sslErrors;

    void open();
    void write();
    void read();
    void parse();
    bool parseHead();
    bool parseChunks();
    void socketError(QAbstractSocket::SocketError error);
    void finish(const ZuveroError &error = {});
};

ZVXHTTPConnection::ZVXHTTPConnection(const QUrl &origin, const QSslConfiguration &tls,
                                     const ZVXHTTPLimits &limits, QObject *parent)
    : QObject(parent)
    , d(std::make_unique<Private>())
{
    d->q = this;
    d->origin = origin;
    d->secure = origin.scheme().compare(QLatin1String("http"), Qt::CaseInsensitive) != 0;
    d->tls = tls;
    d->limits = limits;
}

ZVXHTTPConnection::~ZVXHTTPConnection()
{
    abort();
}

bool ZVXHTTPConnection::isInsideHead() const
{
    return d->stage == Private::Stage::Head && d->answered;
}

bool ZVXHTTPConnection::isReusable() const
{
    return d->stage == Private::Stage::Idle && d->keepAlive && d->socket
        && d->socket->state() == QAbstractSocket::ConnectedState;
}

void ZVXHTTPConnection::abort()
{
    d->stage = Private::Stage::Closed;
    if (QSslSocket *socket = std::exchange(d->socket, nullptr)) {
        socket->disconnect(this);
        socket->abort();
        socket->deleteLater();
    }
}

void ZVXHTTPConnection::send(const ZVXURLRequest &request)
{
    d->request = request;
    d->response.reset();
    d->answered = false;
    d->buffer.clear();
    d->body.clear();
    d->framing = Private::Framing::None;
    d->expected = ZVXTransferCounters::UnknownSize;
    d->written = 0;

    const QUrl url = request.url();
    QByteArray target = url.path(QUrl::FullyEncoded).toLatin1();
    if (target.isEmpty())
        target = "/";
    if (url.hasQuery())
        target += '?' + url.query(QUrl::FullyEncoded).toLatin1();
    QByteArray host = url.host(QUrl::FullyEncoded).toLatin1();
    if (host.contains(':'))
        host = '[' + host + ']';
    const int defaultPort = d->secure ? 443 : 80;
    if (url.port(defaultPort) != defaultPort)
        host += ':' + QByteArray::number(url.port());

    const QByteArray payload = request.httpBody();
    QByteArray head = request.httpMethod() + ' ' + target + " HTTP/1.1\r\nHost: " + host + "\r\n";
    for (const auto &[name, value] : request.allHTTPHeaderFields()) {
        if (name.compare("Host", Qt::CaseInsensitive) == 0
            || name.compare("Content-Length", Qt::CaseInsensitive) == 0
            || name.compare("Connection", Qt::CaseInsensitive) == 0)
            continue;
        head += name + ": " + value + "\r\n";
    }
    if (!payload.isEmpty() || request.httpMethod() != "GET")
        head += "Content-Length: " + QByteArray::number(payload.size()) + "\r\n";
    head += "\r\n";
    d->headLength = head.size();
    d->bodyLength = payload.size();
    d->outgoing = head + payload;

    if (d->stage == Private::Stage::Idle && d->socket
        && d->socket->state() == QAbstractSocket::ConnectedState) {
        d->stage = Private::Stage::Head;
        d->write();
    } else {
        d->open();
    }
}

void ZVXHTTPConnection::Private::open()
{
    if (socket)
        q->abort();
    exchanged = false;
    stage = Stage::Connecting;
    socket = new QSslSocket(q);
    socket->setSslConfiguration(tls);
    // What the socket holds between two reads stays small however fast the server sends and
    // however late this thread comes round to it; the rest waits in the kernel.
    socket->setReadBufferSize(ReadBufferSize);
    sslErrors.clear();
    QObject::connect(socket, &QSslSocket::sslErrors, q,
                     [this](const QList<QSslError> &errors) { sslErrors = errors; });
    QObject::connect(socket, &QAbstractSocket::errorOccurred, q,
                     [this](QAbstractSocket::SocketError error) { socketError(error); });
    QObject::connect(socket, &QIODevice::readyRead, q, [this] { read(); });
    QObject::connect(socket, &QIODevice::bytesWritten, q, [this](qint64 count) {
        if (stage == Stage::Closed || stage == Stage::Idle)
            return;
        written += count;
        Q_EMIT q->activity();
        if (bodyLength > 0)
            Q_EMIT q->uploadProgress(std::clamp<qint64>(written - headLength, 0, bodyLength),
                                     bodyLength);
    });
    const auto ready = [this] {
        stage = Stage::Head;
        Q_EMIT q->activity();
        write();
    };
    const quint16 port = quint16(origin.port(secure ? 443 : 80));
    if (secure) {
        QObject::connect(socket, &QSslSocket::encrypted, q, ready);
        socket->connectToHostEncrypted(origin.host(), port);
    } else {
        QObject::connect(socket, &QAbstractSocket::connected, q, ready);
        socket->connectToHost(origin.host(), port);
    }
}

void ZVXHTTPConnection::Private::write()
{
    socket->write(std::exchange(outgoing, {}));
}

void ZVXHTTPConnection::Private::read()
{
    if (!socket)
        return;
    const QByteArray data = socket->readAll();
    if (data.isEmpty())
        return;
    if (stage == Stage::Idle || stage == Stage::Closed || stage == Stage::Connecting) {
        // Bytes nobody asked for: the connection cannot be trusted with another exchange.
        keepAlive = false;
        return;
    }
    answered = true;
    buffer += data;
    // A head that trickles in without end must not keep the request alive.
    const bool inHead = stage == Stage::Head;
    parse();
    if (!inHead || (stage != Stage::Head && stage != Stage::Closed))
        Q_EMIT q->activity();
}

void ZVXHTTPConnection::Private::parse()
{
    while (stage != Stage::Closed && stage != Stage::Idle) {
        if (stage == Stage::Head) {
            if (!parseHead())
                return;
            continue;
        }
        if (stage == Stage::Body) {
            // Checked before taking the bytes in: a body past its bound is never grown, so
            // memory stays within twice the bound whatever the server sends at once.
            if (body.size() + buffer.size() > limits.maximumBodySize)
                return finish(failure(ZuveroURLErrorReplyTooLarge,
                                      QStringLiteral("The reply is larger than %1 bytes.")
                                          .arg(limits.maximumBodySize)));
            body += buffer;
            buffer.clear();
            if (framing == Framing::Length && body.size() >= expected) {
                // A server that sends more than it announced is not trusted with another exchange.
                if (body.size() > expected)
                    keepAlive = false;
                body.truncate(expected);
                Q_EMIT q->downloadProgress(body.size(), expected);
                return finish();
            }
            Q_EMIT q->downloadProgress(body.size(), expected);
            return;
        }
        if (!parseChunks())
            return;
    }
}

bool ZVXHTTPConnection::Private::parseHead()
{
    const qsizetype end = buffer.indexOf("\r\n\r\n");
    if (end < 0 || end + 4 > limits.maximumHeaderSize) {
        if (buffer.size() > limits.maximumHeaderSize || end >= 0) {
            finish(failure(ZuveroURLErrorHeadersTooLong,
                           QStringLiteral("The reply's header fields go on beyond %1 bytes.")
                               .arg(limits.maximumHeaderSize)));
        }
        return false;
    }
    const QList<QByteArray> lines = buffer.left(end).split('\n');
    buffer.remove(0, end + 4);
    const QList<QByteArray> statusLine = lines.first().trimmed().split(' ');
    bool numeric = false;
    const int status = statusLine.value(1).toInt(&numeric);
    if (!statusLine.first().startsWith("HTTP/1.") || !numeric || status < 100 || status > 999) {
        finish(failure(ZuveroURLErrorBadServerResponse,
                       QStringLiteral("The server did not answer in HTTP/1.1.")));
        return false;
    }
    if (status < 200) // "100 Continue" and the like: the answer comes after
        return true;

    ZVXHTTPHeaderFields fields;
    for (qsizetype i = 1; i < lines.size(); ++i) {
        const QByteArray line = lines[i].trimmed();
        const qsizetype colon = line.indexOf(':');
        if (colon > 0)
            fields.append({line.left(colon).trimmed(), line.mid(colon + 1).trimmed()});
    }
    response = ZVXURLResponse{request.url(), status, fields};
    const QByteArray connection = response->valueForHTTPHeaderField("Connection");
    keepAlive = statusLine.first() == "HTTP/1.1" ? !hasToken(connection, "close")
                                                 : hasToken(connection, "keep-alive");

    const QByteArray length = response->valueForHTTPHeaderField("Content-Length");
    if (request.httpMethod() == "HEAD" || status == 204 || status == 304) {
        finish();
        return false;
    }
    if (hasToken(response->valueForHTTPHeaderField("Transfer-Encoding"), "chunked")) {
        framing = Framing::Chunked;
        stage = Stage::Chunks;
    } else if (!length.isEmpty()) {
        bool valid = false;
        expected = length.toLongLong(&valid);
        if (!valid || expected < 0) {
            finish(failure(ZuveroURLErrorBadServerResponse,
                           QStringLiteral("The reply's length is not a number.")));
            return false;
        }
        if (expected > limits.maximumBodySize) {
            finish(failure(ZuveroURLErrorReplyTooLarge,
                           QStringLiteral("The reply announces %1 bytes, more than %2.")
                               .arg(expected)
                               .arg(limits.maximumBodySize)));
            return false;
        }
        framing = Framing::Length;
        stage = Stage::Body;
        if (expected == 0) {
            finish();
            return false;
        }
    } else {
        framing = Framing::UntilClose;
        keepAlive = false;
        stage = Stage::Body;
    }
    Q_EMIT q->downloadProgress(0, expected);
    return true;
}

bool ZVXHTTPConnection::Private::parseChunks()
{
    if (stage == Stage::Chunks) {
        const qsizetype end = buffer.indexOf("\r\n");
        if (end < 0) {
            if (buffer.size() > MaximumChunkLine)
                finish(failure(ZuveroURLErrorBadServerResponse,
                               QStringLiteral("A chunk of the reply has no size.")));
            return false;
        }
        bool valid = false;
        const QByteArray size = buffer.left(end).split(';').first().trimmed();
        chunkLeft = size.toLongLong(&valid, 16);
        buffer.remove(0, end + 2);
        if (!valid || chunkLeft < 0) {
            finish(failure(ZuveroURLErrorBadServerResponse,
                           QStringLiteral("A chunk of the reply has no size.")));
            return false;
        }
        if (chunkLeft > limits.maximumBodySize - body.size()) {
            finish(failure(
                ZuveroURLErrorReplyTooLarge,
                QStringLiteral("The reply is larger than %1 bytes.").arg(limits.maximumBodySize)));
            return false;
        }
        stage = chunkLeft == 0 ? Stage::Trailers : Stage::ChunkData;
        return true;
    }
    if (stage == Stage::ChunkData) {
        // The data, then its line end.
        if (buffer.size() < chunkLeft + 2)
            return false;
        body += buffer.left(chunkLeft);
        buffer.remove(0, chunkLeft + 2);
        Q_EMIT q->downloadProgress(body.size(), ZVXTransferCounters::UnknownSize);
        stage = Stage::Chunks;
        return true;
    }
    // Trailers end with an empty line; they are read and dropped.
    const qsizetype end = buffer.indexOf("\r\n");
    if (end < 0) {
        if (buffer.size() > limits.maximumHeaderSize)
            finish(failure(ZuveroURLErrorHeadersTooLong,
                           QStringLiteral("The reply's trailing fields go on beyond %1 bytes.")
                               .arg(limits.maximumHeaderSize)));
        return false;
    }
    buffer.remove(0, end + 2);
    if (end == 0)
        finish();
    return true;
}

void ZVXHTTPConnection::Private::socketError(QAbstractSocket::SocketError error)
{
    if (stage == Stage::Closed)
        return;
    if (stage == Stage::Idle) {
        // The server let an idle connection go: nothing to report.
        keepAlive = false;
        return;
    }
    if (error == QAbstractSocket::RemoteHostClosedError && stage == Stage::Body
        && framing == Framing::UntilClose) {
        read(); // what is left before the end
        return finish();
    }
    const QNetworkReply::NetworkError code = networkError(error);
    QString description = socket ? socket->errorString() : QString();
    if (code == QNetworkReply::SslHandshakeFailedError && !sslErrors.isEmpty()) {
        QStringList reasons;
        for (const QSslError &sslError : std::as_const(sslErrors))
            reasons << sslError.errorString();
        description = QStringLiteral("SSL handshake failed: ") + reasons.join(QStringLiteral("; "));
    } else if (code == QNetworkReply::RemoteHostClosedError) {
        description = QStringLiteral("The server closed the connection before its reply ended.");
    }
    finish(failure(code, description));
}

void ZVXHTTPConnection::Private::finish(const ZuveroError &error)
{
    ZVXURLSessionResult result;
    result.response = response;
    result.error = error;
    const bool closedBeforeAnswer = !error.isNull() && exchanged && !answered
        && error.code() == QNetworkReply::RemoteHostClosedError;
    if (error.isNull()) {
        result.data = std::exchange(body, {});
        exchanged = true;
        stage = Stage::Idle;
        if (!keepAlive || !buffer.isEmpty())
            q->abort();
    } else {
        q->abort();
    }
    body.clear();
    buffer.clear();
    Q_EMIT q->finished(result, closedBeforeAnswer);
}
