#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QStringList>
#include <QVariantMap>

#include <optional>

//! A place to share: latitude and longitude, and optionally the span shown (metres) and an address.
struct CliLocation
{
    double latitude = 0;
    double longitude = 0;
    std::optional<double> span;
    std::optional<QString> address;
};

//! What the command line asked for, checked.
struct CliArguments
{
    QString command;
    QStringList operands;

    QString host;
    std::optional<QString> apiKey;
    std::optional<QString> apiSecret;
    std::optional<QString> jwt;
    std::optional<QString> configFile;
    std::optional<QString> userId;
    std::optional<QString> userName;
    std::optional<QVariantMap> authInfo;
    std::optional<QByteArray> deviceToken;
    bool developmentAPNS = false;
    std::optional<QString> language;
    std::optional<QString> caFile;
    std::optional<QString> stateDirectory;
    bool verbose = false;

    QStringList files;
    std::optional<CliLocation> location;
    std::optional<QVariantMap> context;
    QDateTime since;
    QDateTime until;
    quint32 limit = 0;
    double waitSeconds = 30;

    /*!
        The arguments of \a arguments (argv as text, the program first), or
        nothing and a message in \a error for a usage error.
    */
    static std::optional<CliArguments> parse(const QStringList &arguments, QString *error);
    static QString usage();
};
