#include "CliArguments.h"

#include <QCommandLineParser>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>

namespace {

// The options each command takes beside the common ones.
const QHash<QString, QSet<QString>> commandOptions = {
    {QStringLiteral("register"), {}},
    {QStringLiteral("status"), {}},
    {QStringLiteral("send"),
     {QStringLiteral("file"), QStringLiteral("location"), QStringLiteral("context")}},
    {QStringLiteral("history"),
     {QStringLiteral("since"), QStringLiteral("until"), QStringLiteral("limit")}},
    {QStringLiteral("mark-read"), {}},
    {QStringLiteral("push"), {}},
    {QStringLiteral("token"), {}},
    {QStringLiteral("queue"), {QStringLiteral("wait")}},
    {QStringLiteral("chat"), {}},
};

std::optional<QVariantMap> jsonObject(const QString &text)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(text.toUtf8(), &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        return std::nullopt;
    return document.object().toVariantMap();
}

std::optional<QDateTime> epoch(const QString &text)
{
    bool ok = false;
    const double seconds = text.toDouble(&ok);
    if (!ok)
        return std::nullopt;
    return QDateTime::fromMSecsSinceEpoch(qint64(seconds * 1000), Qt::UTC);
}

std::optional<CliLocation> parseLocation(const QString &text)
{
    // LAT,LNG[,SPAN[,ADDRESS]]; the address may itself hold commas.
    const QStringList parts = text.split(QLatin1Char(','));
    if (parts.size() < 2)
        return std::nullopt;
    CliLocation place;
    bool latitude = false, longitude = false;
    place.latitude = parts.at(0).trimmed().toDouble(&latitude);
    place.longitude = parts.at(1).trimmed().toDouble(&longitude);
    if (!latitude || !longitude || qAbs(place.latitude) > 90 || qAbs(place.longitude) > 180)
        return std::nullopt;
    if (parts.size() > 2 && !parts.at(2).trimmed().isEmpty()) {
        bool ok = false;
        place.span = parts.at(2).trimmed().toDouble(&ok);
        if (!ok || *place.span < 0)
            return std::nullopt;
    }
    if (parts.size() > 3)
        place.address = parts.mid(3).join(QLatin1Char(',')).trimmed();
    return place;
}

} // namespace

QString CliArguments::usage()
{
    return QStringLiteral(
        "Usage: zuvero-cli [options] COMMAND [arguments]\n"
        "\n"
        "Options:\n"
        "  --host HOST[:PORT]       the chat server\n"
        "  --api-key KEY | --api-secret HEX | --jwt TOKEN\n"
        "                           credentials (a secret signs the tokens here)\n"
        "  --config FILE            a property list or JSON file with the configuration keys\n"
        "  --user-id ID  --user-name NAME  --auth-info JSON\n"
        "                           the user's identity\n"
        "  --device-token HEX  --development-apns\n"
        "                           where the server pushes\n"
        "  --language TAG           the language of the server's texts\n"
        "  --ca-file PEM            an extra trusted certificate authority\n"
        "  --state DIR              where the library keeps its settings and the messages\n"
        "                           waiting to be sent, which a later run sends\n"
        "  --verbose                the library's log lines on standard error\n"
        "\n"
        "Commands:\n"
        "  register                         register now\n"
        "  status                           print the unread count\n"
        "  send TEXT [--file PATH]... [--location LAT,LNG[,SPAN[,ADDRESS]]] [--context JSON]\n"
        "                                   send one message; print its uuid\n"
        "  history [--since EPOCH] [--until EPOCH] [--limit N]\n"
        "                                   print each message as a line of JSON, then \"more: "
        "yes|no\"\n"
        "  mark-read UUID[@EPOCH]...        mark these messages read\n"
        "  push FILE|-                      hand a push payload (JSON) to the library\n"
        "  token                            print the token the library would send\n"
        "  queue [TEXT...] [--wait SECONDS] send through the offline queue (with what waits\n"
        "                                   there) and wait for it\n"
        "  chat                             chat in the terminal\n"
        "\n"
        "Exit status: 0 success, 1 server or network error, 2 usage error.\n");
}

std::optional<CliArguments> CliArguments::parse(const QStringList &arguments, QString *error)
{
    QCommandLineParser parser;
    parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
    const auto value = [&parser](const char *name, const char *valueName) {
        parser.addOption(QCommandLineOption(QString::fromLatin1(name), QString(),
                                            QString::fromLatin1(valueName)));
    };
    const auto flag = [&parser](const char *name) {
        parser.addOption(QCommandLineOption(QString::fromLatin1(name)));
    };
    for (const char *name :
         {"host", "api-key", "api-secret", "jwt", "config", "user-id", "user-name", "auth-info",
          "device-token", "language", "ca-file", "state", "file", "location", "context", "since",
          "until", "limit", "wait"})
        value(name, "value");
    for (const char *name : {"development-apns", "verbose", "help"})
        flag(name);

    if (!parser.parse(arguments)) {
        *error = parser.errorText();
        return std::nullopt;
    }
    const QStringList positional = parser.positionalArguments();
    if (parser.isSet(QStringLiteral("help")) || positional.isEmpty()) {
        *error = positional.isEmpty() && !parser.isSet(QStringLiteral("help"))
            ? QStringLiteral("no command given")
            : QString();
        return std::nullopt;
    }

    CliArguments result;
    result.command = positional.first();
    result.operands = positional.mid(1);
    if (!commandOptions.contains(result.command)) {
        *error = QStringLiteral("unknown command \"%1\"").arg(result.command);
        return std::nullopt;
    }
    for (const QString &option : parser.optionNames()) {
        static const QSet<QString> common
            = {QStringLiteral("host"),         QStringLiteral("api-key"),
               QStringLiteral("api-secret"),   QStringLiteral("jwt"),
               QStringLiteral("config"),       QStringLiteral("user-id"),
               QStringLiteral("user-name"),    QStringLiteral("auth-info"),
               QStringLiteral("device-token"), QStringLiteral("development-apns"),
               QStringLiteral("language"),     QStringLiteral("ca-file"),
               QStringLiteral("state"),        QStringLiteral("verbose")};
        if (!common.contains(option) && !commandOptions.value(result.command).contains(option)) {
            *error = QStringLiteral("--%1 does not go with %2").arg(option, result.command);
            return std::nullopt;
        }
    }

    const auto optional = [&parser](const char *name) -> std::optional<QString> {
        const QString option = QString::fromLatin1(name);
        return parser.isSet(option) ? std::optional<QString>(parser.value(option)) : std::nullopt;
    };
    result.host = parser.value(QStringLiteral("host"));
    result.apiKey = optional("api-key");
    result.apiSecret = optional("api-secret");
    result.jwt = optional("jwt");
    if (int(bool(result.apiKey)) + int(bool(result.apiSecret)) + int(bool(result.jwt)) > 1) {
        *error = QStringLiteral("give one of --api-key, --api-secret and --jwt");
        return std::nullopt;
    }
    if (result.apiSecret
        && QByteArray::fromHex(result.apiSecret->toLatin1()).toHex()
            != result.apiSecret->toLower().toLatin1()) {
        *error = QStringLiteral("--api-secret must be hexadecimal");
        return std::nullopt;
    }
    result.configFile = optional("config");
    result.userId = optional("user-id");
    result.userName = optional("user-name");
    if (const auto info = optional("auth-info")) {
        result.authInfo = jsonObject(*info);
        if (!result.authInfo) {
            *error = QStringLiteral("--auth-info must be a JSON object");
            return std::nullopt;
        }
    }
    if (const auto token = optional("device-token")) {
        const QByteArray bytes = QByteArray::fromHex(token->toLatin1());
        if (token->isEmpty() || bytes.toHex() != token->toLower().toLatin1()) {
            *error = QStringLiteral("--device-token must be hexadecimal");
            return std::nullopt;
        }
        result.deviceToken = bytes;
    }
    result.developmentAPNS = parser.isSet(QStringLiteral("development-apns"));
    result.language = optional("language");
    result.caFile = optional("ca-file");
    result.stateDirectory = optional("state");
    result.verbose = parser.isSet(QStringLiteral("verbose"));

    result.files = parser.values(QStringLiteral("file"));
    if (const auto place = optional("location")) {
        result.location = parseLocation(*place);
        if (!result.location) {
            *error = QStringLiteral("--location must be LAT,LNG[,SPAN[,ADDRESS]]");
            return std::nullopt;
        }
    }
    if (const auto context = optional("context")) {
        result.context = jsonObject(*context);
        if (!result.context) {
            *error = QStringLiteral("--context must be a JSON object");
            return std::nullopt;
        }
    }
    for (const auto &[name, date] :
         {std::pair{"since", &result.since}, std::pair{"until", &result.until}}) {
        if (const auto text = optional(name)) {
            const std::optional<QDateTime> parsed = epoch(*text);
            if (!parsed) {
                *error = QStringLiteral("--%1 must be seconds since 1970").arg(QLatin1String(name));
                return std::nullopt;
            }
            *date = *parsed;
        }
    }
    if (const auto limit = optional("limit")) {
        bool ok = false;
        result.limit = limit->toUInt(&ok);
        if (!ok) {
            *error = QStringLiteral("--limit must be a whole number");
            return std::nullopt;
        }
    }
    if (const auto wait = optional("wait")) {
        bool ok = false;
        result.waitSeconds = wait->toDouble(&ok);
        if (!ok || result.waitSeconds < 0) {
            *error = QStringLiteral("--wait must be a number of seconds");
            return std::nullopt;
        }
    }

    // The commands' own arguments.
    const qsizetype operands = result.operands.size();
    const QString &command = result.command;
    const bool none = command == QLatin1String("register") || command == QLatin1String("status")
        || command == QLatin1String("token") || command == QLatin1String("chat")
        || command == QLatin1String("history");
    if ((none && operands != 0) || (command == QLatin1String("send") && operands != 1)
        || (command == QLatin1String("push") && operands != 1)
        || (command == QLatin1String("mark-read") && operands == 0)) {
        *error = QStringLiteral("wrong number of arguments for %1").arg(command);
        return std::nullopt;
    }
    return result;
}
