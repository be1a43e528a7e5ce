// zuvero-devserver: a real local chat server for development, demos and tests.

#include "ZVXDevAuth.h"
#include "ZVXDevBodies.h"
#include "ZVXDevBot.h"
#include "ZVXDevCertificates.h"
#include "ZVXDevConversations.h"
#include "ZVXDevFaults.h"
#include "ZVXDevFiles.h"
#include "ZVXDevLog.h"
#include "ZVXDevOptions.h"
#include "ZVXDevPushHub.h"
#include "ZVXDevReceipts.h"
#include "ZVXDevServer.h"
#include "ZVXDevStorage.h"

#include <QDir>
#include <QDirIterator>
#include <QGuiApplication>
#include <QSocketNotifier>

#include <csignal>
#include <cstdio>
#include <openssl/rand.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Request bodies held in memory at once, in largest uploads.
constexpr qint64 BodiesHeld = 4;

void print(const QString &line)
{
    std::fputs(qPrintable(QStringLiteral("zuvero-devserver: ") + line + QLatin1Char('\n')), stdout);
    std::fflush(stdout);
}

int fail(const QString &message)
{
    std::fputs(qPrintable(QStringLiteral("zuvero-devserver: ") + message + QLatin1Char('\n')),
               stderr);
    return 1;
}

/*
    SIGINT and SIGTERM end the server cleanly; they are read from a signalfd
    on the main thread. They must be blocked before any thread starts, so
    that every thread inherits the mask.
*/
int blockTerminationSignals()
{
    sigset_t mask;
    sigemptyset(&mask);
    sigaddset(&mask, SIGINT);
    sigaddset(&mask, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &mask, nullptr);
    // Writing to a connection the client has closed must not end the process.
    std::signal(SIGPIPE, SIG_IGN);
    return signalfd(-1, &mask, SFD_CLOEXEC | SFD_NONBLOCK);
}

/*
    Everything the server writes is its user's alone: the database holds the
    conversations, the files what users sent, and the authority's key signs
    certificates the user's browser trusts. A data directory that an earlier
    version left readable by others is closed up.
*/
bool makePrivate(const QString &data, QString *error)
{
    struct stat status;
    if (stat(QFile::encodeName(data).constData(), &status) != 0) {
        *error = QStringLiteral("cannot read the data directory %1").arg(data);
        return false;
    }
    if ((status.st_mode & 077) == 0)
        return true;
    const auto restrict = [](const QString &path, bool directory) {
        return chmod(QFile::encodeName(path).constData(), directory ? 0700 : 0600) == 0;
    };
    bool closed = restrict(data, true);
    QDirIterator entries(data,
                         QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                         QDirIterator::Subdirectories);
    while (entries.hasNext()) {
        const QFileInfo entry = entries.nextFileInfo();
        if (!entry.isSymLink())
            closed = restrict(entry.filePath(), entry.isDir()) && closed;
    }
    if (!closed) {
        *error = QStringLiteral("cannot make the data directory %1 private").arg(data);
        return false;
    }
    print(QStringLiteral("made the data directory private: other users could read it"));
    return true;
}

// A key for the agent console, new at every start: whoever has it drives the console.
QByteArray newConsoleKey()
{
    unsigned char random[32];
    if (RAND_bytes(random, sizeof random) != 1)
        return {};
    return QByteArray(reinterpret_cast<const char *>(random), sizeof random)
        .toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals);
}

} // namespace

int main(int argc, char *argv[])
{
    // Files and directories for the user alone, from the first one on.
    umask(077);
    const int signalFd = blockTerminationSignals();
    // Tiles are drawn with fonts, which need a GUI application but no display.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("zuvero-devserver"));

    QString error;
    bool helpShown = false;
    const std::optional<ZVXDevOptions> options
        = ZVXDevOptions::parse(QCoreApplication::arguments(), &error, &helpShown);
    if (!options) {
        if (helpShown) {
            std::fputs(qPrintable(error), stdout);
            return 0;
        }
        return fail(error + QStringLiteral("\n(see --help)"));
    }
    const QString data = QDir(options->dataDirectory).absolutePath();
    if (!QDir().mkpath(data))
        return fail(QStringLiteral("cannot create the data directory %1").arg(data));
    if (!makePrivate(data, &error))
        return fail(error);

    ZVXDevCertificates certificates(data + QStringLiteral("/tls"));
    if (!certificates.prepare(options->bindAddress, &error))
        return fail(error);
    ZVXDevStorage storage;
    if (!storage.open(data + QStringLiteral("/devserver.sqlite"), &error))
        return fail(error);
    ZVXDevFiles files(data + QStringLiteral("/files"));
    if (!files.prepare(&error))
        return fail(error);

    ZVXDevAuth auth(*options);
    ZVXDevPushHub push(options->maxPushStreams, options->maxPushStreamsPerDevice);
    ZVXDevFaults faults;
    ZVXDevReceipts receipts(options->maxReceipts);
    ZVXDevConversations conversations(storage, files, push);
    std::unique_ptr<ZVXDevBot> bot;
    if (options->bot)
        bot = std::make_unique<ZVXDevBot>(conversations, options->agentName, options->botDelay);
    ZVXDevBodies bodies({.maxBytes = options->maxUploadBytes,
                         .heldBytes = BodiesHeld * options->maxUploadBytes,
                         .timeout = options->bodyTimeout});
    ZVXDevServices services{.options = *options,
                            .auth = auth,
                            .storage = storage,
                            .files = files,
                            .conversations = conversations,
                            .push = push,
                            .faults = faults,
                            .receipts = receipts,
                            .bodies = bodies,
                            .consoleKey = newConsoleKey(),
                            .origin = {},
                            .origins = {}};
    if (services.consoleKey.isEmpty())
        return fail(QStringLiteral("cannot make a key for the console"));
    ZVXDevServer server(services, certificates);
    const int port = server.start(&error);
    if (!port)
        return fail(error);

    if (certificates.createdAuthority())
        print(QStringLiteral("created a new certificate authority"));
    if (certificates.replacedAuthority())
        print(QStringLiteral("replaced the certificate authority, which could sign for other "
                             "sites than this server: trust the new one below wherever you "
                             "trusted the old one, and remove the old one there"));
    print(QStringLiteral("certificate authority: %1").arg(certificates.authorityPath()));
    print(QStringLiteral("data: %1").arg(data));
    if (!options->apiSecret && !options->open)
        print(QStringLiteral("no --api-secret: token signatures are not checked, only their "
                             "apiKey"));
    print(QStringLiteral("console: %1/console?key=%2")
              .arg(services.origin, QString::fromLatin1(services.consoleKey)));
    print(QStringLiteral("listening on %1").arg(services.origin));

    QSocketNotifier terminate(signalFd, QSocketNotifier::Read);
    QObject::connect(&terminate, &QSocketNotifier::activated, &app, [signalFd] {
        signalfd_siginfo info;
        if (read(signalFd, &info, sizeof info) > 0)
            QCoreApplication::quit();
    });
    const int status = QCoreApplication::exec();
    ZVXDevLog::line(QStringLiteral("stopping"));
    server.stop();
    close(signalFd);
    return status;
}
