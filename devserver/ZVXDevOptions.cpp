#include "ZVXDevOptions.h"

#include "ZVXDevTokens.h"

#include <QCommandLineParser>
#include <QHostAddress>
#include <QStandardPaths>

#include <cmath>
#include <type_traits>

namespace {

bool isHex(const QString &text)
{
    if (text.isEmpty() || text.size() % 2)
        return false;
    for (const QChar c : text) {
        if (!c.isDigit() && !QStringLiteral("abcdefABCDEF").contains(c))
            return false;
    }
    return true;
}

template<typename Number>
bool readNumber(const QCommandLineParser &parser, const QString &name, Number minimum,
                Number maximum, Number *value, QString *error)
{
    if (!parser.isSet(name))
        return true;
    bool ok = false;
    const double number = parser.value(name).toDouble(&ok);
    const bool fraction = std::is_integral_v<Number> && number != std::floor(number);
    if (!ok || fraction || number < double(minimum) || number > double(maximum)) {
        *error = QStringLiteral("--%1 must be a number from %2 to %3")
                     .arg(name)
                     .arg(minimum)
                     .arg(maximum);
        return false;
    }
    *value = Number(number);
    return true;
}

} // namespace

std::optional<ZVXDevOptions> ZVXDevOptions::parse(const QStringList &arguments, QString *error,
                                                  bool *helpShown)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("A local HTTPS chat server for developing, demonstrating and testing "
                       "applications that use Zuvero."));
    const auto option
        = [&](const QString &name, const QString &description, const QString &valueName = {}) {
              parser.addOption(QCommandLineOption(name, description, valueName));
          };
    option(QStringLiteral("bind"), QStringLiteral("Address to listen on (default 127.0.0.1)."),
           QStringLiteral("address"));
    option(QStringLiteral("port"),
           QStringLiteral("Port to listen on; 0 picks a free one (default 8443)."),
           QStringLiteral("port"));
    option(QStringLiteral("data"),
           QStringLiteral("Directory of the database, the files and the certificates."),
           QStringLiteral("dir"));
    option(QStringLiteral("gazetteer"),
           QStringLiteral("Directory of the geocoder's zone1970.tab and iso3166.tab "
                          "(default /usr/share/zoneinfo)."),
           QStringLiteral("dir"));
    option(QStringLiteral("api-key"), QStringLiteral("The API key that tokens must name."),
           QStringLiteral("key"));
    option(QStringLiteral("api-secret"),
           QStringLiteral("Hexadecimal secret that tokens are signed with."),
           QStringLiteral("hex"));
    option(QStringLiteral("open"), QStringLiteral("Accept any well-formed token."));
    option(QStringLiteral("welcome-message"), QStringLiteral("Welcome text sent at registration."),
           QStringLiteral("text"));
    option(QStringLiteral("polling-interval"),
           QStringLiteral("Seconds between the client's polls (default 5)."),
           QStringLiteral("seconds"));
    option(QStringLiteral("agent-name"),
           QStringLiteral("Name shown on agent replies (default Support)."),
           QStringLiteral("name"));
    option(QStringLiteral("bot"), QStringLiteral("Answer every user message automatically."));
    option(QStringLiteral("bot-delay"),
           QStringLiteral("Milliseconds before the bot answers (default 1500)."),
           QStringLiteral("ms"));
    option(QStringLiteral("admin"),
           QStringLiteral("Offer fault injection, request counters and upload receipts to "
                          "loopback clients."));
    option(QStringLiteral("max-receipts"),
           QStringLiteral("Message uuids the upload receipts remember (default 100000)."),
           QStringLiteral("count"));
    option(QStringLiteral("max-upload-mb"),
           QStringLiteral("Largest request body in MiB (default 32)."), QStringLiteral("mib"));
    option(QStringLiteral("threads"), QStringLiteral("Connections served at once (default 128)."),
           QStringLiteral("count"));
    option(QStringLiteral("header-timeout"),
           QStringLiteral("Seconds a client has for its TLS handshake, and for each request's "
                          "line and headers (default 10)."),
           QStringLiteral("seconds"));
    option(QStringLiteral("body-timeout"),
           QStringLiteral("Seconds a client has for each request's body (default 60)."),
           QStringLiteral("seconds"));
    option(QStringLiteral("max-push-streams"),
           QStringLiteral("Push streams open at once (default 32; 4 per device)."),
           QStringLiteral("count"));
    option(QStringLiteral("no-tcp-nodelay"),
           QStringLiteral("Leave Nagle's algorithm on (only to measure what it costs)."));
    parser.addHelpOption();

    if (!parser.parse(arguments)) {
        *error = parser.errorText();
        return std::nullopt;
    }
    if (parser.isSet(QStringLiteral("help"))) {
        *error = parser.helpText();
        if (helpShown)
            *helpShown = true;
        return std::nullopt;
    }
    if (!parser.positionalArguments().isEmpty()) {
        *error
            = QStringLiteral("unexpected argument: %1").arg(parser.positionalArguments().first());
        return std::nullopt;
    }

    ZVXDevOptions options;
    if (parser.isSet(QStringLiteral("bind"))) {
        options.bindAddress = parser.value(QStringLiteral("bind"));
        if (QHostAddress(options.bindAddress).isNull()) {
            *error
                = QStringLiteral("--bind must be an IP address, not %1").arg(options.bindAddress);
            return std::nullopt;
        }
    }
    options.dataDirectory = parser.isSet(QStringLiteral("data"))
        ? parser.value(QStringLiteral("data"))
        : QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation)
            + QStringLiteral("/zuvero-devserver");
    if (parser.isSet(QStringLiteral("gazetteer")))
        options.gazetteerDirectory = parser.value(QStringLiteral("gazetteer"));

    options.open = parser.isSet(QStringLiteral("open"));
    if (parser.isSet(QStringLiteral("api-secret"))) {
        const QString hex = parser.value(QStringLiteral("api-secret"));
        if (!isHex(hex)) {
            *error = QStringLiteral("--api-secret must be an even number of hexadecimal digits");
            return std::nullopt;
        }
        options.apiSecret = QByteArray::fromHex(hex.toLatin1());
        // The key a client derives from the same secret.
        options.apiKey = ZVXDevTokens::apiKeyForSecret(*options.apiSecret);
    }
    if (parser.isSet(QStringLiteral("api-key"))) {
        options.apiKey = parser.value(QStringLiteral("api-key"));
        if (options.apiKey->isEmpty()) {
            *error = QStringLiteral("--api-key must not be empty");
            return std::nullopt;
        }
    }
    if (!options.apiKey && !options.open) {
        *error = QStringLiteral("give --api-key, --api-secret or both, or --open");
        return std::nullopt;
    }

    if (parser.isSet(QStringLiteral("welcome-message")))
        options.welcomeMessage = parser.value(QStringLiteral("welcome-message"));
    if (parser.isSet(QStringLiteral("agent-name")))
        options.agentName = parser.value(QStringLiteral("agent-name"));
    options.bot = parser.isSet(QStringLiteral("bot"));
    options.admin = parser.isSet(QStringLiteral("admin"));
    options.tcpNoDelay = !parser.isSet(QStringLiteral("no-tcp-nodelay"));

    int port = options.port;
    int botDelay = int(options.botDelay.count());
    int uploadMiB = int(options.maxUploadBytes / (1024 * 1024));
    double headerSeconds = double(options.headerTimeout.count()) / 1000.0;
    double bodySeconds = double(options.bodyTimeout.count()) / 1000.0;
    if (!readNumber(parser, QStringLiteral("port"), 0, 65535, &port, error)
        || !readNumber(parser, QStringLiteral("polling-interval"), 0.0, 3600.0,
                       &options.pollingInterval, error)
        || !readNumber(parser, QStringLiteral("bot-delay"), 0, 600000, &botDelay, error)
        || !readNumber(parser, QStringLiteral("max-upload-mb"), 1, 1024, &uploadMiB, error)
        || !readNumber(parser, QStringLiteral("threads"), 8, 512, &options.threads, error)
        || !readNumber(parser, QStringLiteral("header-timeout"), 0.5, 600.0, &headerSeconds, error)
        || !readNumber(parser, QStringLiteral("body-timeout"), 0.5, 3600.0, &bodySeconds, error)
        || !readNumber(parser, QStringLiteral("max-push-streams"), 1, 100000,
                       &options.maxPushStreams, error)
        || !readNumber(parser, QStringLiteral("max-receipts"), 1, 10000000, &options.maxReceipts,
                       error))
        return std::nullopt;
    options.port = quint16(port);
    options.botDelay = std::chrono::milliseconds(botDelay);
    options.maxUploadBytes = qint64(uploadMiB) * 1024 * 1024;
    options.headerTimeout = std::chrono::milliseconds(qint64(headerSeconds * 1000.0));
    options.bodyTimeout = std::chrono::milliseconds(qint64(bodySeconds * 1000.0));
    // Streams hold a connection each: at most half of them, so that requests always find room.
    if (options.maxPushStreams > options.threads / 2) {
        *error = QStringLiteral("--max-push-streams must be at most half of --threads (%1)")
                     .arg(options.threads / 2);
        return std::nullopt;
    }
    return options;
}
