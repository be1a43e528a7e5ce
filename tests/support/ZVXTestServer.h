#pragma once

#include <QHash>
#include <QList>
#include <QObject>
#include <QSslServer>
#include <QUrl>

#include <chrono>
#include <functional>

struct ZVXTestRequest
{
    QByteArray method;
    QByteArray target;
    //! Names in lower case.
    QHash<QByteArray, QByteArray> headers;
    QByteArray body;
};

struct ZVXTestReply
{
    int status = 200;
    QList<QPair<QByteArray, QByteArray>> headers;
    QByteArray body;
    //! Answer only after this much real time: lets requests overlap visibly.
    std::chrono::milliseconds delay{0};
    //! Never answer.
    bool hold = false;
    //! Close the connection without an answer, once the request has been read.
    bool drop = false;
};

/*!
    An HTTPS/1.1 server on 127.0.0.1 (a free port) for tests, answering
    through a handler the test sets. It keeps the connection open between
    requests and counts requests, and how many requests and connections were
    open at once at most.
*/
class ZVXTestServer : public QObject
{
    Q_OBJECT

public:
    using Handler = std::function<ZVXTestReply(const ZVXTestRequest &request)>;

    ZVXTestServer(const QSslCertificate &certificate, const QSslKey &key,
                  QObject *parent = nullptr);

    bool isListening() const { return m_server.isListening(); }
    QUrl url(const QString &path) const;
    //! The default answers 200 with "{}".
    void setHandler(Handler handler) { m_handler = std::move(handler); }

    QList<ZVXTestRequest> requests() const { return m_requests; }
    int requestCount() const { return int(m_requests.size()); }
    int maxConcurrentRequests() const { return m_maxRequests; }
    int maxConcurrentConnections() const { return m_maxConnections; }

private:
    struct Connection
    {
        QByteArray buffer;
        bool answering = false;
    };

    void accept();
    void process(QSslSocket *socket);
    void answer(QSslSocket *socket, const ZVXTestReply &reply);

    QSslServer m_server;
    Handler m_handler;
    QHash<QSslSocket *, Connection> m_connections;
    QList<ZVXTestRequest> m_requests;
    int m_openRequests = 0;
    int m_maxRequests = 0;
    int m_maxConnections = 0;
};
