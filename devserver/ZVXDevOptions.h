#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <chrono>
#include <optional>

/*!
    The development server's settings, read from its command line. Anything
    that cannot be used gives a message for the user and no settings.
*/
struct ZVXDevOptions
{
    QString bindAddress = QStringLiteral("127.0.0.1");
    quint16 port = 8443;
    QString dataDirectory;
    //! Where the geocoder's tables (tzdata's zone1970.tab and iso3166.tab) are read from.
    QString gazetteerDirectory = QStringLiteral("/usr/share/zoneinfo");

    //! The key every token must name; derived from the secret when only that is given.
    std::optional<QString> apiKey;
    //! Tokens are verified with it; without it only their "apiKey" claim is checked.
    std::optional<QByteArray> apiSecret;
    //! Any well-formed token is accepted, under whatever key it names.
    bool open = false;

    QString welcomeMessage = QStringLiteral("Hello! How can we help you today?");
    double pollingInterval = 5.0;
    QString agentName = QStringLiteral("Support");

    bool bot = false;
    std::chrono::milliseconds botDelay{1500};

    bool admin = false;
    //! Message uuids GET /admin/receipts remembers; more only add to a count.
    int maxReceipts = 100000;
    qint64 maxUploadBytes = 32 * 1024 * 1024;
    //! Connections served at once: enough that push streams and slow clients leave room.
    int threads = 128;
    //! For a TLS handshake, and for each request's line and headers.
    std::chrono::milliseconds headerTimeout{10000};
    //! For each request's body.
    std::chrono::milliseconds bodyTimeout{60000};
    //! Push streams open at once, and per device.
    int maxPushStreams = 32;
    int maxPushStreamsPerDevice = 4;
    //! Only for measuring what Nagle's algorithm costs.
    bool tcpNoDelay = true;

    //! The settings in \a arguments (argv, program name first), or nothing and \a error.
    static std::optional<ZVXDevOptions> parse(const QStringList &arguments, QString *error,
                                              bool *helpShown = nullptr);
};
