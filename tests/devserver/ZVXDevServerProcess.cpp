#include "ZVXDevServerProcess.h"

#include "ZVXJSON.h"
#include "ZVXJWT.h"
#include "ZVXMultipart.h"

#include <QDeadlineTimer>
#include <QSignalSpy>
#include <QUrlQuery>

using namespace Qt::StringLiterals;

ZVXDevServerProcess::ZVXDevServerProcess(Log log)
{
    // By default its log goes to the test's output, where a failure shows it.
    if (log == Log::Forwarded)
        m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    else
        m_process.setStandardErrorFile(logPath(), QIODevice::Append);
}

QString ZVXDevServerProcess::logPath() const
{
    return m_data.filePath(u"devserver.log"_s);
}

ZVXDevServerProcess::~ZVXDevServerProcess()
{
    stop();
}

bool ZVXDevServerProcess::start(const QStringList &arguments)
{
    m_arguments = arguments;
    m_origin.clear();
    m_printed.clear();
    m_process.start(QStringLiteral(ZUVERO_DEVSERVER),
                    QStringList{u"--data"_s, m_data.path(), u"--port"_s, u"0"_s} + arguments);
    const QDeadlineTimer deadline(30000);
    while (m_origin.isEmpty() && !deadline.hasExpired()) {
        if (!m_process.canReadLine() && !m_process.waitForReadyRead(int(deadline.remainingTime())))
            break;
        while (m_process.canReadLine()) {
            const QString line = QString::fromUtf8(m_process.readLine()).trimmed();
            m_printed.append(line);
            const QString prefix = u"zuvero-devserver: "_s;
            if (line.startsWith(prefix + u"certificate authority: "_s)) {
                m_authorityPath = line.section(u": "_s, 2);
            } else if (line.startsWith(prefix + u"console: "_s)) {
                m_consoleURL = line.section(u": "_s, 2);
                m_consoleKey = QUrlQuery(QUrl(m_consoleURL)).queryItemValue(u"key"_s);
            } else if (line.startsWith(prefix + u"listening on "_s)) {
                m_origin = line.section(QLatin1Char(' '), 3);
            }
        }
    }
    return !m_origin.isEmpty();
}

bool ZVXDevServerProcess::stop()
{
    if (m_process.state() == QProcess::NotRunning)
        return true;
    m_process.terminate();
    if (!m_process.waitForFinished(30000)) {
        m_process.kill();
        m_process.waitForFinished();
        return false;
    }
    return m_process.exitStatus() == QProcess::NormalExit && m_process.exitCode() == 0;
}

QVariantMap ZVXDevReply::json() const
{
    return ZVXJSON::parse(body).value_or(QVariant()).toMap();
}

ZVXDevClient::ZVXDevClient(const ZVXDevServerProcess &server, const QString &token)
    : token(token)
    , m_origin(server.origin())
    , m_consoleKey(server.consoleKey())
    , m_ssl(QSslConfiguration::defaultConfiguration())
{
    m_ssl.setCaCertificates(QSslCertificate::fromPath(server.authorityPath()));
    m_ssl.setPeerVerifyMode(QSslSocket::VerifyPeer);
}

QNetworkRequest ZVXDevClient::request(const QString &pathOrURL) const
{
    const QString url
        = pathOrURL.startsWith(QLatin1String("https://")) ? pathOrURL : m_origin + pathOrURL;
    QNetworkRequest request{QUrl(url)};
    request.setSslConfiguration(m_ssl);
    if (!token.isEmpty())
        request.setRawHeader("X-ZVL-JWT", token.toUtf8());
    if (request.url().path().startsWith(QLatin1String("/console")))
        request.setRawHeader("X-Zuvero-Console", m_consoleKey.toLatin1());
    return request;
}

ZVXDevReply ZVXDevClient::wait(QNetworkReply *reply)
{
    if (!reply->isFinished())
        QSignalSpy(reply, &QNetworkReply::finished).wait(60000);
    ZVXDevReply result;
    result.error = reply->error();
    result.status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    result.body = reply->readAll();
    result.contentType = reply->header(QNetworkRequest::ContentTypeHeader).toByteArray();
    reply->deleteLater();
    return result;
}

ZVXDevReply ZVXDevClient::get(const QString &path)
{
    return wait(m_manager.get(request(path)));
}

ZVXDevReply ZVXDevClient::post(const QString &path, const QByteArray &body,
                               const QByteArray &contentType)
{
    QNetworkRequest req = request(path);
    req.setHeader(QNetworkRequest::ContentTypeHeader, contentType);
    return wait(m_manager.post(req, body));
}

ZVXDevReply ZVXDevClient::postJSON(const QString &path, const QVariantMap &object)
{
    return post(path, *ZVXJSON::serialize(object));
}

QByteArray ZVXDevClient::multipartBody(const QVariantMap &message, const QList<File> &files)
{
    // The library's own body builder, exactly as it uploads a message.
    ZVXMultipart body;
    body.addData(ZVXJSON::serialize(message), u"message"_s, u"application/json"_s);
    for (const File &file : files)
        body.addData(file.bytes, file.uuid, QString::fromLatin1(file.contentType), file.uuid);
    return body.data();
}

ZVXDevReply ZVXDevClient::send(const QVariantMap &message, const QList<File> &files)
{
    return post(u"/api/1.0/messages"_s, multipartBody(message, files),
                ZVXMultipart().contentType().toLatin1());
}

qint64 ZVXDevClient::requestCount(const QString &request)
{
    return get(u"/admin/counters"_s)
        .json()
        .value(u"counters"_s)
        .toMap()
        .value(request)
        .toLongLong();
}

qint64 ZVXDevClient::conversationId(const QString &key, const QString &value)
{
    const QVariantList all
        = get(u"/console/api/conversations"_s).json().value(u"conversations"_s).toList();
    for (const QVariant &conversation : all) {
        if (conversation.toMap().value(key) == value)
            return conversation.toMap().value(u"id"_s).toLongLong();
    }
    return 0;
}

ZVXDevReply ZVXDevClient::agentReply(qint64 id, const QString &text)
{
    const QByteArray body
        = QByteArray("--B\r\nContent-Disposition: form-data; name=\"text\"\r\n\r\n") + text.toUtf8()
        + "\r\n--B--\r\n";
    return post(u"/console/api/conversations/%1/messages"_s.arg(id), body,
                "multipart/form-data; boundary=B");
}

ZVXDevPushStream::ZVXDevPushStream(ZVXDevClient &client)
    : m_reply(client.manager().get(client.request(u"/api/1.0/push"_s)))
{
    QObject::connect(m_reply, &QIODevice::readyRead, m_reply,
                     [this] { m_received += m_reply->readAll(); });
}

ZVXDevPushStream::~ZVXDevPushStream()
{
    m_reply->abort();
    m_reply->deleteLater();
}

int ZVXDevPushStream::status() const
{
    return m_reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
}

QList<QPair<QString, QVariantMap>> ZVXDevPushStream::events() const
{
    QList<QPair<QString, QVariantMap>> events;
    for (const QByteArray &block : m_received.split('\n')) {
        if (block.startsWith("id: "))
            events.append({QString::fromUtf8(block.mid(4)), {}});
        else if (block.startsWith("data: ") && !events.isEmpty())
            events.last().second = ZVXJSON::parse(block.mid(6)).value_or(QVariant()).toMap();
    }
    return events;
}

QList<QByteArray> ZVXDevPushStream::eventData() const
{
    QList<QByteArray> data;
    for (const QByteArray &line : m_received.split('\n')) {
        if (line.startsWith("data: "))
            data.append(line.mid(6));
    }
    return data;
}

QString ZVXDevSign(const QVariantMap &claims, const QByteArray &secret, const QString &algorithm)
{
    auto jwt = ZVXJWT::initWithPayload(claims);
    jwt->setHeader({{u"alg"_s, algorithm}});
    return jwt->signedTokenWithSecret(secret).value_or(QString());
}

ZVXDevCurl ZVXDevRunCurl(const ZVXDevServerProcess &server, const QStringList &arguments)
{
    QProcess curl;
    curl.start(u"curl"_s,
               QStringList{u"--silent"_s, u"--cacert"_s, server.authorityPath()} + arguments);
    ZVXDevCurl result;
    if (!curl.waitForFinished(60000))
        return result;
    result.exitCode = curl.exitStatus() == QProcess::NormalExit ? curl.exitCode() : -1;
    result.output = curl.readAllStandardOutput();
    return result;
}
