#include "ZVXTestServer.h"

#include <QSslSocket>
#include <QTimer>

ZVXTestServer::ZVXTestServer(const QSslCertificate &certificate, const QSslKey &key,
                             QObject *parent)
    : QObject(parent)
    , m_handler([](const ZVXTestRequest &) {
        return ZVXTestReply{200, {}, "{}"};
    })
{
    QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
    configuration.setLocalCertificate(certificate);
    configuration.setPrivateKey(key);
    m_server.setSslConfiguration(configuration);
    // Without no-delay every loopback answer waits 40 ms for the client's acknowledgement.
    connect(&m_server, &QSslServer::startedEncryptionHandshake, this, [](QSslSocket *socket) {
        socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    });
    connect(&m_server, &QTcpServer::pendingConnectionAvailable, this, &ZVXTestServer::accept);
    m_server.listen(QHostAddress::LocalHost, 0);
}

QUrl ZVXTestServer::url(const QString &path) const
{
    return QUrl(QStringLiteral("https://127.0.0.1:%1%2").arg(m_server.serverPort()).arg(path));
}

void ZVXTestServer::accept()
{
    while (auto *socket = qobject_cast<QSslSocket *>(m_server.nextPendingConnection())) {
        socket->setParent(this);
        m_connections.insert(socket, {});
        m_maxConnections = std::max(m_maxConnections, int(m_connections.size()));
        connect(socket, &QIODevice::readyRead, this, [this, socket] {
            m_connections[socket].buffer += socket->readAll();
            process(socket);
        });
        connect(socket, &QAbstractSocket::disconnected, this, [this, socket] {
            if (m_connections.take(socket).answering)
                --m_openRequests;
            socket->deleteLater();
        });
        if (socket->bytesAvailable())
            Q_EMIT socket->readyRead();
    }
}

void ZVXTestServer::process(QSslSocket *socket)
{
    Connection &connection = m_connections[socket];
    const qsizetype headEnd = connection.buffer.indexOf("\r\n\r\n");
    if (connection.answering || headEnd < 0)
        return;
    ZVXTestRequest request;
    const QList<QByteArray> lines = connection.buffer.left(headEnd).split('\n');
    const QList<QByteArray> requestLine = lines.value(0).trimmed().split(' ');
    request.method = requestLine.value(0);
    request.target = requestLine.value(1);
    for (qsizetype i = 1; i < lines.size(); ++i) {
        const qsizetype colon = lines[i].indexOf(':');
        if (colon > 0)
            request.headers.insert(lines[i].left(colon).trimmed().toLower(),
                                   lines[i].mid(colon + 1).trimmed());
    }
    const qsizetype length = request.headers.value("content-length").toLongLong();
    if (connection.buffer.size() < headEnd + 4 + length)
        return;
    request.body = connection.buffer.mid(headEnd + 4, length);
    connection.buffer.remove(0, headEnd + 4 + length);
    connection.answering = true;
    m_maxRequests = std::max(m_maxRequests, ++m_openRequests);
    m_requests.append(request);

    const ZVXTestReply reply = m_handler(request);
    if (reply.hold)
        return;
    if (reply.drop) {
        --m_openRequests;
        socket->disconnectFromHost();
        return;
    }
    if (reply.delay.count() > 0)
        QTimer::singleShot(reply.delay, socket, [this, socket, reply] { answer(socket, reply); });
    else
        answer(socket, reply);
}

void ZVXTestServer::answer(QSslSocket *socket, const ZVXTestReply &reply)
{
    QByteArray head = "HTTP/1.1 " + QByteArray::number(reply.status) + " Test\r\n";
    for (const auto &[name, value] : reply.headers)
        head += name + ": " + value + "\r\n";
    head += "Content-Length: " + QByteArray::number(reply.body.size()) + "\r\n\r\n";
    --m_openRequests;
    m_connections[socket].answering = false;
    socket->write(head + reply.body);
    process(socket);
}
