#pragma once

#include <QNetworkAccessManager>
#include <QObject>
#include <QPointer>
#include <QSslConfiguration>
#include <QUrl>

class QNetworkReply;
class QTimer;
#include <Zuvero/Zuvero.h>

/*
    The demo's push channel: the development server's event stream
    (GET /api/1.0/push, one "data:" line of JSON per payload), each payload
    handed to the facade as a host hands what its push service delivered.
    A stream that ends or fails is opened again after a pause.
*/
class DemoPushStream : public QObject
{
    Q_OBJECT

public:
    DemoPushStream(Zuvero *zuvero, const QUrl &origin, const QSslConfiguration &tls,
                   QObject *parent = nullptr);
    ~DemoPushStream() override;

    //! Opens the stream (again, for the facade's current user).
    void restart();
    void stop();

Q_SIGNALS:
    //! A payload arrived; \a consumed says whether the library took it.
    void payloadReceived(const QVariantMap &payload, bool consumed);
    void connectedChanged(bool connected);

private:
    void readLines();
    void dispatch(const QByteArray &data);
    void finished();

    QPointer<Zuvero> m_zuvero;
    QUrl m_origin;
    QSslConfiguration m_tls;
    QNetworkAccessManager m_network;
    QPointer<QNetworkReply> m_reply;
    QTimer *m_retry = nullptr;
    QByteArray m_pending;
    QByteArray m_data;
};
