#include "DemoPushStream.h"

#include <Zuvero/Zuvero.h>

#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkReply>
#include <QTimer>

#include <cstdio>

namespace {

constexpr int RetryMilliseconds = 2000;
// A line longer than this is no event of ours; the stream is dropped and opened again.
constexpr qsizetype MaximumLine = 1 << 20;

} // namespace

DemoPushStream::DemoPushStream(Zuvero *zuvero, const QUrl &origin, const QSslConfiguration &tls,
                               QObject *parent)
    : QObject(parent)
    , m_zuvero(zuvero)
    , m_origin(origin)
    , m_tls(tls)
    , m_retry(new QTimer(this))
{
    m_retry->setSingleShot(true);
    m_retry->setInterval(RetryMilliseconds);
    connect(m_retry, &QTimer::timeout, this, &DemoPushStream::restart);
}

DemoPushStream::~DemoPushStream()
{
    stop();
}

void DemoPushStream::restart()
{
    stop();
    if (!m_zuvero)
        return;
    const std::optional<QString> token = m_zuvero->jwt();
    if (!token)
        return;
    QUrl url = m_origin;
    url.setPath(QStringLiteral("/api/1.0/push"));
    QNetworkRequest request(url);
    request.setSslConfiguration(m_tls);
    request.setRawHeader("Accept", "text/event-stream");
    request.setRawHeader("X-ZVL-JWT", token->toUtf8());
    request.setAttribute(QNetworkRequest::CacheLoadControlAttribute,
                         QNetworkRequest::AlwaysNetwork);
    m_reply = m_network.get(request);
    connect(m_reply, &QNetworkReply::readyRead, this, &DemoPushStream::readLines);
    connect(m_reply, &QNetworkReply::finished, this, &DemoPushStream::finished);
    connect(m_reply, &QNetworkReply::metaDataChanged, this, [this] {
        if (m_reply && m_reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt() == 200)
            Q_EMIT connectedChanged(true);
    });
}

void DemoPushStream::stop()
{
    m_retry->stop();
    m_pending.clear();
    m_data.clear();
    if (QNetworkReply *reply = m_reply) {
        m_reply = nullptr;
        reply->disconnect(this);
        reply->abort();
        reply->deleteLater();
        Q_EMIT connectedChanged(false);
    }
}

void DemoPushStream::readLines()
{
    m_pending += m_reply->readAll();
    for (;;) {
        const qsizetype end = m_pending.indexOf('\n');
        if (end < 0)
            break;
        QByteArray line = m_pending.left(end);
        m_pending.remove(0, end + 1);
        if (line.endsWith('\r'))
            line.chop(1);
        if (line.isEmpty()) {
            // A blank line ends an event.
            if (!m_data.isEmpty())
                dispatch(m_data);
            m_data.clear();
        } else if (line.startsWith("data:")) {
            QByteArray value = line.mid(5);
            if (value.startsWith(' '))
                value.remove(0, 1);
            if (!m_data.isEmpty())
                m_data += '\n';
            m_data += value;
        }
        // Comments (": keep-alive"), "id:" and other fields carry nothing the demo needs.
    }
    if (m_pending.size() > MaximumLine || m_data.size() > MaximumLine) {
        std::fprintf(stderr, "zuvero-demo: the push stream sent an over-long line; reconnecting\n");
        finished();
    }
}

void DemoPushStream::dispatch(const QByteArray &data)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(data, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject()) {
        std::fprintf(stderr,
                     "zuvero-demo: the push stream sent an event that is not a JSON "
                     "object (%s); skipped\n",
                     qPrintable(error.errorString()));
        return;
    }
    const QVariantMap payload = document.object().toVariantMap();
    const bool consumed = m_zuvero && m_zuvero->consumeReceivedRemoteNotification(payload);
    Q_EMIT payloadReceived(payload, consumed);
}

void DemoPushStream::finished()
{
    if (QNetworkReply *reply = m_reply) {
        const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
        if (reply->error() != QNetworkReply::NoError
            && reply->error() != QNetworkReply::OperationCanceledError)
            std::fprintf(stderr, "zuvero-demo: push stream: %s (HTTP %d); again in %d s\n",
                         qPrintable(reply->errorString()), status, RetryMilliseconds / 1000);
    }
    stop();
    m_retry->start();
}
