#pragma once

#include "ZVXURLRequest.h"

#include <QObject>
#include <QSslConfiguration>

class QSslSocket;

//! How much of a reply a connection takes before it gives up on it.
struct ZVXHTTPLimits
{
    //! The status line and header fields together (and a chunked body's trailers).
    qint64 maximumHeaderSize = 64 * 1024;
    //! The body as it arrives (before any content decoding).
    qint64 maximumBodySize = 16 * 1024 * 1024;
};

/*!
    One HTTP/1.1 connection to one origin, over TLS for "https", carrying
    one exchange at a time and kept open between them when the server
    allows.

    It exists because Qt 6.4's network access has no bound on a reply's
    head (a server that sends header fields without end fills the memory;
    seen at 700 MB in 25 s on loopback) and sends a request again by itself
    when a connection closes before the answer. Here the head and the body
    are bounded (ZVXHTTPLimits), redirects are not followed, and nothing is
    sent twice: a failure is reported as it happened.

    Main thread only.
*/
class ZUVERO_EXPORT ZVXHTTPConnection : public QObject
{
    Q_OBJECT

public:
    ZVXHTTPConnection(const QUrl &origin, const QSslConfiguration &tls, const ZVXHTTPLimits &limits,
                      QObject *parent = nullptr);
    ~ZVXHTTPConnection() override;

    //! Starts an exchange; the connection must be idle (new, or reusable after the last one).
    void send(const ZVXURLRequest &request);
    //! Ends the exchange under way without a signal, and closes.
    void abort();

    //! Open, idle, and allowed by the server to carry another exchange.
    bool isReusable() const;
    //! Part of the reply's head came, and not its end. Bytes of a head are no sign of progress.
    bool isInsideHead() const;

Q_SIGNALS:
    //! The request went out, or bytes of the reply's body came.
    void activity();
    void uploadProgress(qint64 sent, qint64 total);
    //! \a total is ZVXTransferCounters::UnknownSize until the server says.
    void downloadProgress(qint64 received, qint64 total);
    /*!
        The exchange ended. \a closedBeforeAnswer: on a connection that had
        carried exchanges before, it closed before a byte of the answer
        came (the server had let it go); a request without side effects
        may then be sent again on a new connection.
    */
    void finished(const ZVXURLSessionResult &result, bool closedBeforeAnswer);

private:
    struct Private;
    std::unique_ptr<Private> d;
};
