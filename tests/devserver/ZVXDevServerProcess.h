#pragma once

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QProcess>
#include <QSslCertificate>
#include <QTemporaryDir>
#include <QVariantMap>

#include <memory>

/*!
    A zuvero-devserver process on a free port of 127.0.0.1, with its data in
    a temporary directory (kept across restart()).
*/
class ZVXDevServerProcess
{
public:
    //! Where the server's request log goes: the caller's standard error, or a file.
    enum class Log { Forwarded, ToFile };

    explicit ZVXDevServerProcess(Log log = Log::Forwarded);
    ~ZVXDevServerProcess();

    //! Starts the server with \a arguments; false when it did not come up.
    bool start(const QStringList &arguments);
    //! Stops it with SIGTERM; true when it ended cleanly.
    bool stop();
    bool restart() { return stop() && start(m_arguments); }

    QString origin() const { return m_origin; }
    QString authorityPath() const { return m_authorityPath; }
    //! The agent console's key, from the address the server printed.
    QString consoleKey() const { return m_consoleKey; }
    //! The address it printed for the console, key included.
    QString consoleURL() const { return m_consoleURL; }
    qint64 pid() const { return m_process.processId(); }
    //! What it printed on its standard output before it listened.
    QStringList printed() const { return m_printed; }
    QString dataDirectory() const { return m_data.path(); }
    //! The file that holds the server's log with Log::ToFile.
    QString logPath() const;

private:
    QTemporaryDir m_data;
    QProcess m_process;
    QStringList m_arguments;
    QString m_origin;
    QString m_authorityPath;
    QString m_consoleKey;
    QString m_consoleURL;
    QStringList m_printed;
};

//! A reply read whole.
struct ZVXDevReply
{
    QNetworkReply::NetworkError error = QNetworkReply::NoError;
    int status = 0;
    QByteArray body;
    QByteArray contentType;
    QVariantMap json() const;
};

/*!
    A client of the server with verification on, trusting only the server's
    own authority, speaking as one user (the token it was given), and to the
    console as a script with its key.
*/
class ZVXDevClient
{
public:
    ZVXDevClient(const ZVXDevServerProcess &server, const QString &token);

    QNetworkAccessManager &manager() { return m_manager; }
    QNetworkRequest request(const QString &pathOrURL) const;
    static ZVXDevReply wait(QNetworkReply *reply);

    ZVXDevReply get(const QString &path);
    ZVXDevReply post(const QString &path, const QByteArray &body,
                     const QByteArray &contentType = "application/json");
    ZVXDevReply postJSON(const QString &path, const QVariantMap &object);

    struct File
    {
        QString uuid;
        QByteArray contentType;
        QByteArray bytes;
    };
    //! Sends \a message with \a files as the library uploads them (ZVXMultipart).
    ZVXDevReply send(const QVariantMap &message, const QList<File> &files = {});
    static QByteArray multipartBody(const QVariantMap &message, const QList<File> &files);

    //! The console's id of the conversation whose \a key ("userId", "installationId") is \a value.
    qint64 conversationId(const QString &key, const QString &value);
    //! How many "METHOD /path" requests the server received (its --admin counters).
    qint64 requestCount(const QString &request);
    //! An agent's reply from the console to the conversation \a id.
    ZVXDevReply agentReply(qint64 id, const QString &text);

    QString token;

private:
    QString m_origin;
    QString m_consoleKey;
    QSslConfiguration m_ssl;
    QNetworkAccessManager m_manager;
};

//! The push stream of one device, read as it arrives.
class ZVXDevPushStream
{
public:
    explicit ZVXDevPushStream(ZVXDevClient &client);
    ~ZVXDevPushStream();

    bool connected() const { return m_received.contains(": connected\n\n"); }
    int status() const;
    QNetworkReply *reply() const { return m_reply; }
    //! The payloads of the events received so far, with their ids.
    QList<QPair<QString, QVariantMap>> events() const;
    //! The same payloads as the JSON text that came.
    QList<QByteArray> eventData() const;

private:
    QNetworkReply *m_reply;
    QByteArray m_received;
};

//! A token signed with \a secret (HS256 unless \a algorithm says otherwise).
QString ZVXDevSign(const QVariantMap &claims, const QByteArray &secret,
                   const QString &algorithm = QStringLiteral("HS256"));

//! curl with the server's authority; its standard output, or nothing when it failed.
struct ZVXDevCurl
{
    int exitCode = -1;
    QByteArray output;
};
ZVXDevCurl ZVXDevRunCurl(const ZVXDevServerProcess &server, const QStringList &arguments);
