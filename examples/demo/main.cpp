// zuvero-demo: a pretend shop that gives its users a chat with support.
//
//   zuvero-demo --server https://127.0.0.1:8443 --api-secret HEX --ca-file ca.pem
//   zuvero-demo ... --script FOLDER     (plays itself, writing screenshots and a transcript)
//
// `make demo` starts a development server that answers by itself and runs this against it.

#include "DemoHost.h"
#include "DemoLanguage.h"
#include "DemoScript.h"
#include "DemoShopWindow.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QDir>
#include <QFile>
#include <QLocale>

#include <Zuvero/ZuveroUserDefaults.h>

#include <cstdio>
#include <ctime>
#include <unistd.h>

namespace {

// How long ago the process started, from the kernel's record of it: what the user waited
// includes loading the libraries, before main().
qint64 processAgeMilliseconds()
{
    QFile stat(QStringLiteral("/proc/self/stat"));
    if (!stat.open(QIODevice::ReadOnly))
        return -1;
    const QByteArray text = stat.readAll();
    // The fields after the command name, which is in parentheses and may hold spaces.
    const QList<QByteArray> fields = text.mid(text.lastIndexOf(')') + 2).split(' ');
    // starttime is field 22 of the line, the 20th after the name.
    if (fields.size() < 20)
        return -1;
    const double started = fields.at(19).toDouble() / double(sysconf(_SC_CLK_TCK));
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return qint64((now.tv_sec + now.tv_nsec / 1e9 - started) * 1000);
}

// Notes when the shop window first paints.
class FirstPaint : public QObject
{
public:
    using QObject::QObject;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (event->type() == QEvent::Paint) {
            const qint64 age = processAgeMilliseconds();
            qApp->setProperty("demoFirstWindowMs", age);
            std::fprintf(stderr, "zuvero-demo: first window %lld ms after the process started\n",
                         static_cast<long long>(age));
            watched->removeEventFilter(this);
            deleteLater();
        }
        return QObject::eventFilter(watched, event);
    }
};

// The offscreen platform says, each time, that it cannot fade or size a window the way a
// desktop would; a scripted run hears it dozens of times and it tells nothing.
QtMessageHandler defaultHandler = nullptr;
void quietOffscreenNotes(QtMsgType type, const QMessageLogContext &context, const QString &text)
{
    if (type == QtWarningMsg && text.startsWith(QLatin1String("This plugin does not support")))
        return;
    defaultHandler(type, context, text);
}

int usage(const QCommandLineParser &parser, const QString &problem)
{
    std::fprintf(stderr, "zuvero-demo: %s\n\n%s", qPrintable(problem),
                 qPrintable(parser.helpText()));
    return 2;
}

} // namespace

int main(int argc, char *argv[])
{
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("zuvero-demo"));
    QApplication::setApplicationDisplayName(QStringLiteral("Lumen & Co."));
    QApplication::setDesktopFileName(QStringLiteral("zuvero-demo"));
    QApplication::setWindowIcon(QIcon(QStringLiteral(":/demo/zuvero-demo.svg")));

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("A pretend shop with a chat to its support team."));
    parser.addHelpOption();
    const QCommandLineOption server(QStringLiteral("server"),
                                    QStringLiteral("The chat server, https://HOST[:PORT]."),
                                    QStringLiteral("url"));
    const QCommandLineOption secret(QStringLiteral("api-secret"),
                                    QStringLiteral("The API secret, hexadecimal."),
                                    QStringLiteral("hex"));
    const QCommandLineOption authority(
        QStringLiteral("ca-file"),
        QStringLiteral("A certificate authority to trust besides the system's (PEM)."),
        QStringLiteral("file"));
    const QCommandLineOption config(
        QStringLiteral("config"),
        QStringLiteral("The chat screen's look, a ZuveroConfig property list (default: the "
                       "demo's own)."),
        QStringLiteral("file"), QStringLiteral(":/demo/ZuveroConfig.plist"));
    const QCommandLineOption user(QStringLiteral("user-id"), QStringLiteral("The user's id."),
                                  QStringLiteral("id"), QStringLiteral("demo-user"));
    const QCommandLineOption name(QStringLiteral("user-name"), QStringLiteral("The user's name."),
                                  QStringLiteral("name"), QStringLiteral("Demo User"));
    const QCommandLineOption language(QStringLiteral("language"),
                                      QStringLiteral("en, fr or ar (default: the system's, "
                                                     "else en)."),
                                      QStringLiteral("code"));
    const QCommandLineOption state(QStringLiteral("state"),
                                   QStringLiteral("Where the library keeps its settings."),
                                   QStringLiteral("folder"));
    const QCommandLineOption script(
        QStringLiteral("script"),
        QStringLiteral("Play a scripted conversation and write screenshots and a transcript "
                       "into the folder, then quit (for machines without a display)."),
        QStringLiteral("folder"));
    parser.addOptions({server, secret, authority, config, user, name, language, state, script});
    parser.process(app);

    if (!parser.isSet(server) || !parser.isSet(secret))
        return usage(parser, QStringLiteral("--server and --api-secret are needed"));
    QString code = parser.value(language);
    if (code.isEmpty()) {
        const QString system = QLocale::system().name().left(2);
        code = DemoLanguage::codes().contains(system) ? system : QStringLiteral("en");
    }
    if (!DemoLanguage::codes().contains(code))
        return usage(parser, QStringLiteral("no language \"%1\"").arg(code));
    DemoLanguage::apply(code);

    QString stateFolder = parser.value(state);
    if (stateFolder.isEmpty() && parser.isSet(script))
        stateFolder = QDir(parser.value(script)).filePath(QStringLiteral("state"));
    if (!stateFolder.isEmpty()) {
        QDir().mkpath(stateFolder);
        ZuveroUserDefaults::setStandardLocation(
            QDir(stateFolder).filePath(QStringLiteral("Zuvero.ini")));
    }

    DemoSettings settings;
    settings.origin = QUrl(parser.value(server));
    settings.apiSecret = parser.value(secret);
    settings.authorityFile = parser.value(authority);
    settings.configurationFile = parser.value(config);
    settings.userIdentifier = parser.value(user);
    settings.userName = parser.value(name);
    QString error;
    const std::unique_ptr<DemoHost> host = DemoHost::create(settings, &error);
    if (!host)
        return usage(parser, error);

    DemoShopWindow window(host.get());
    host->setMainWindow(&window);
    window.installEventFilter(new FirstPaint(&window));
    window.resize(800, 600);
    window.move(0, 0);

    std::unique_ptr<DemoScript> player;
    if (parser.isSet(script)) {
        if (QGuiApplication::platformName() == QLatin1String("offscreen"))
            defaultHandler = qInstallMessageHandler(quietOffscreenNotes);
        player = std::make_unique<DemoScript>(host.get(), &window, parser.value(script));
        QObject::connect(player.get(), &DemoScript::finished, &app,
                         [](bool success) { QCoreApplication::exit(success ? 0 : 1); });
        if (!player->start(&error)) {
            std::fprintf(stderr, "zuvero-demo: %s\n", qPrintable(error));
            return 2;
        }
    }
    window.show();
    window.activateWindow();
    host->start();
    return app.exec();
}
