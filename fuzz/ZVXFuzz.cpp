#include "ZVXFuzz.h"

#include <QGuiApplication>

#include <cstdio>
#include <cstdlib>

namespace ZVXFuzz {

namespace {

// The library logs a line for most inputs it refuses: formatting them is
// exercised, printing them would only slow the fuzzer down.
void quiet(QtMsgType type, const QMessageLogContext &, const QString &message)
{
    if (type == QtFatalMsg) {
        std::fprintf(stderr, "%s\n", qPrintable(message));
        std::abort();
    }
}

} // namespace

void setUp(Application application)
{
    // Never destroyed: at exit it would outlive the statics it uses.
    static QCoreApplication *instance = nullptr;
    if (instance)
        return;
    qInstallMessageHandler(quiet);
    static int argc = 1;
    static char name[] = "zuvero-fuzz";
    static char *argv[] = {name, nullptr};
    if (application == Application::Gui) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
        instance = new QGuiApplication(argc, argv);
    } else {
        instance = new QCoreApplication(argc, argv);
    }
}

void fail(const char *condition, const char *file, int line)
{
    std::fprintf(stderr, "%s:%d: invariant broken: %s\n", file, line, condition);
    std::abort();
}

QByteArray Reader::bytes(size_t count)
{
    const size_t available = std::min(count, m_size - m_position);
    QByteArray taken(reinterpret_cast<const char *>(m_data + m_position), qsizetype(available));
    m_position += available;
    return taken;
}

} // namespace ZVXFuzz
