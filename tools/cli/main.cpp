// zuvero-cli: drives the Zuvero library from the command line.

#include "CliArguments.h"
#include "CliSession.h"

#include <QCoreApplication>
#include <QLoggingCategory>

#include <cstdio>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("zuvero-cli"));
    QCoreApplication::setApplicationVersion(QStringLiteral(ZUVERO_CLI_VERSION));

    QString error;
    const std::optional<CliArguments> arguments
        = CliArguments::parse(QCoreApplication::arguments(), &error);
    if (!arguments) {
        if (!error.isEmpty())
            std::fprintf(stderr, "zuvero-cli: %s\n\n", error.toUtf8().constData());
        std::fprintf(error.isEmpty() ? stdout : stderr, "%s",
                     CliArguments::usage().toUtf8().constData());
        return error.isEmpty() ? 0 : 2;
    }
    // The library's log lines only when asked for.
    if (!arguments->verbose)
        QLoggingCategory::setFilterRules(QStringLiteral("zuvero=false"));

    CliSession session(*arguments);
    int status = 0;
    QObject::connect(&session, &CliSession::finished, &app, [&status](int exitStatus) {
        status = exitStatus;
        QCoreApplication::exit(exitStatus);
    });
    if (!session.start())
        return status;
    return app.exec();
}
