// zuvero-bench: the library beside the tools a developer would otherwise use, as ratios measured
// in one run. Wall times are medians of repeated runs taken in turns; in-process work is also
// counted in instructions under valgrind's callgrind, which a noisy machine does not disturb.
//
//   zuvero-bench [--repetitions N] [--quick]

#include "ZVXBench.h"

#include <QCommandLineParser>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QGuiApplication>
#include <QHash>
#include <QLoggingCategory>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <valgrind/callgrind.h>

#include <cstdio>

using namespace ZVXBench;

namespace {

const QString InstructionsOption = QStringLiteral("instructions");

// Under callgrind: each case once to warm up, then once counted, each in a dump of its own.
int countInstructions(const QString &pagePath)
{
    QFile file(pagePath);
    if (!file.open(QIODevice::ReadOnly))
        return 1;
    const InProcess work(file.readAll());
    for (const Case &c : work.cases()) {
        c.run();
        CALLGRIND_TOGGLE_COLLECT;
        c.run();
        CALLGRIND_TOGGLE_COLLECT;
        CALLGRIND_DUMP_STATS_AT(c.name.toUtf8().constData());
    }
    return 0;
}

// Instructions per operation of each case, from callgrind's dumps; empty when valgrind is missing.
QHash<QString, double> instructionsPerOperation(const InProcess &work, const QByteArray &page,
                                                QString *problem)
{
    QHash<QString, double> counts;
    if (QStandardPaths::findExecutable(QStringLiteral("valgrind")).isEmpty()) {
        *problem = QStringLiteral("valgrind is not installed: no instruction counts");
        return counts;
    }
    QTemporaryDir folder;
    QFile pageFile(folder.filePath(QStringLiteral("page.json")));
    if (!pageFile.open(QIODevice::WriteOnly) || pageFile.write(page) != page.size())
        return counts;
    pageFile.close();
    QProcess valgrind;
    valgrind.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    valgrind.start(QStringLiteral("valgrind"),
                   {QStringLiteral("--quiet"), QStringLiteral("--tool=callgrind"),
                    QStringLiteral("--collect-atstart=no"),
                    QStringLiteral("--callgrind-out-file=") + folder.filePath(QStringLiteral("cg")),
                    QCoreApplication::applicationFilePath(),
                    QStringLiteral("--") + InstructionsOption, pageFile.fileName()});
    valgrind.closeWriteChannel();
    if (!valgrind.waitForFinished(30 * 60 * 1000) || valgrind.exitCode() != 0) {
        *problem = QStringLiteral("callgrind failed: %1").arg(valgrind.errorString());
        return counts;
    }
    QHash<QString, int> operations;
    for (const Case &c : work.cases())
        operations.insert(c.name, c.operations);
    const QDir dumps(folder.path());
    for (const QString &name : dumps.entryList({QStringLiteral("cg.*")}, QDir::Files)) {
        QFile dump(dumps.filePath(name));
        if (!dump.open(QIODevice::ReadOnly))
            continue;
        QString trigger;
        for (const QByteArray &line : dump.readAll().split('\n')) {
            if (line.startsWith("desc: Trigger: Client Request: "))
                trigger = QString::fromUtf8(line.mid(31));
            else if (line.startsWith("totals: ") && operations.contains(trigger))
                counts.insert(trigger, line.mid(8).toDouble() / operations.value(trigger));
        }
    }
    return counts;
}

// Milliseconds per operation of each case: medians of runs taken in turns.
QHash<QString, double> timesPerOperation(const InProcess &work, int repetitions)
{
    QHash<QString, QList<double>> samples;
    for (const Case &c : work.cases())
        c.run(); // warm up
    for (int i = 0; i < repetitions; ++i) {
        for (const Case &c : work.cases()) {
            QElapsedTimer timer;
            timer.start();
            c.run();
            samples[c.name] << double(timer.nsecsElapsed()) / 1e6 / c.operations;
        }
    }
    QHash<QString, double> medians;
    for (auto it = samples.cbegin(); it != samples.cend(); ++it)
        medians.insert(it.key(), median(it.value()));
    return medians;
}

QString formatted(double value, const QString &unit)
{
    if (unit == QLatin1String("ms"))
        return value >= 0.1 ? QStringLiteral("%1 ms").arg(value, 0, 'f', 3)
                            : QStringLiteral("%1 us").arg(value * 1000, 0, 'f', 2);
    return QStringLiteral("%1 %2").arg(value, 0, 'f', value < 100 ? 1 : 0).arg(unit);
}

Row compare(const QString &name, double measured, double baseline, const QString &unit,
            double goal = 0)
{
    const double ratio = baseline > 0 ? measured / baseline : 0;
    return Row{name,
               formatted(measured, unit),
               formatted(baseline, unit),
               ratio,
               goal > 0 ? QStringLiteral("<= %1x").arg(goal) : QString(),
               goal > 0 ? std::optional<bool>(ratio <= goal) : std::nullopt};
}

void print(const QString &title, const QList<Row> &rows)
{
    std::printf("\n%s\n", qPrintable(title));
    std::printf("  %-64s %12s %14s %7s  %s\n", "", "measured", "baseline", "ratio", "goal");
    for (const Row &row : rows) {
        const QString ratio
            = row.ratio > 0 ? QStringLiteral("%1x").arg(row.ratio, 0, 'f', 2) : QString();
        const QString goal = row.goal.isEmpty() ? QString()
                                                : row.goal
                + (row.met ? (*row.met ? QStringLiteral("  met") : QStringLiteral("  MISSED"))
                           : QString());
        std::printf("  %-64s %12s %14s %7s  %s\n", qPrintable(row.name), qPrintable(row.measured),
                    qPrintable(row.baseline), qPrintable(ratio), qPrintable(goal));
    }
}

// The in-process rows of one measure: wall time ("ms") or instructions ("Ir").
QList<Row> inProcessRows(const QHash<QString, double> &v, const QString &unit)
{
    const bool instructions = unit == QLatin1String("Ir");
    const auto at = [&v](const char *name) { return v.value(QLatin1String(name)); };
    QList<Row> rows;
    rows << compare(QStringLiteral("token: sign vs HMAC-SHA256 (Qt)"), at("token: sign"),
                    at("token: HMAC-SHA256, Qt"), unit);
    rows << compare(QStringLiteral("token: sign vs HMAC-SHA256 (OpenSSL)"), at("token: sign"),
                    at("token: HMAC-SHA256, OpenSSL"), unit);
    rows << compare(QStringLiteral("page of 50: build the messages vs parse the text"),
                    at("page: build the messages"), at("page: parse the text"), unit,
                    instructions ? 1.2 : 0);
    rows << compare(QStringLiteral("page of 50: checks+parse+build vs QJsonDocument"),
                    at("page: library (checks, parse, build)"), at("page: QJsonDocument::fromJson"),
                    unit);
    const QString perMessage = instructions ? QStringLiteral("Ir") : unit;
    for (const char *data : {"100000 + 50", "10000 + 1000"}) {
        const QString library = QStringLiteral("merge %1: library").arg(QLatin1String(data));
        const QString literal = QStringLiteral("merge %1: literal rule").arg(QLatin1String(data));
        rows << compare(QStringLiteral("merge %1, per cached message: library vs literal rule")
                            .arg(QLatin1String(data)),
                        v.value(library), v.value(literal), perMessage);
        if (instructions)
            rows << Row{
                QStringLiteral("merge %1, per cached message: library").arg(QLatin1String(data)),
                formatted(v.value(library), perMessage),
                QString(),
                0,
                QStringLiteral("<= 600 Ir"),
                v.value(library) <= 600};
    }
    rows << compare(QStringLiteral("merge, per cached message: 1000 new vs 50 new, library"),
                    at("merge 10000 + 1000: library"), at("merge 100000 + 50: library"), perMessage,
                    2);
    rows << compare(QStringLiteral("merge, per cached message: 1000 new vs 50 new, literal"),
                    at("merge 10000 + 1000: literal rule"), at("merge 100000 + 50: literal rule"),
                    perMessage);
    return rows;
}

} // namespace

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    // Outside a login session (a CI job, a root shell) Qt wants a private runtime directory.
    QTemporaryDir runtime;
    if (qEnvironmentVariableIsEmpty("XDG_RUNTIME_DIR") && runtime.isValid())
        qputenv("XDG_RUNTIME_DIR", QFile::encodeName(runtime.path()));
    QGuiApplication app(argc, argv);
    // The library's lines for every send would bury the table.
    QLoggingCategory::setFilterRules(QStringLiteral("zuvero.info=false"));
    QCommandLineParser parser;
    parser.addHelpOption();
    parser.addOption({QStringLiteral("repetitions"),
                      QStringLiteral("Runs of each measure (default 40)."), QStringLiteral("n"),
                      QStringLiteral("40")});
    parser.addOption({QStringLiteral("quick"),
                      QStringLiteral("A few runs and no callgrind: checks that it all works.")});
    parser.addOption({InstructionsOption, QStringLiteral("(internal) Run under callgrind."),
                      QStringLiteral("page")});
    parser.process(app);
    if (parser.isSet(InstructionsOption))
        return countInstructions(parser.value(InstructionsOption));
    const bool quick = parser.isSet(QStringLiteral("quick"));
    const int repetitions
        = quick ? 5 : std::max(5, parser.value(QStringLiteral("repetitions")).toInt());

    QString problem;
    QByteArray page;
    const QList<Row> network = networkRows(repetitions, &page, &problem);
    if (network.isEmpty()) {
        std::fprintf(stderr, "zuvero-bench: %s\n", qPrintable(problem));
        return 1;
    }
    const InProcess work(page);
    std::printf("zuvero-bench: %d runs of each measure, taken in turns; ratios are library / "
                "baseline\n",
                repetitions);
    print(QStringLiteral("Against the dev server on loopback (wall time, medians)"), network);
    print(QStringLiteral("In the process (wall time per operation, medians)"),
          inProcessRows(timesPerOperation(work, quick ? 3 : 15), QStringLiteral("ms")));
    if (!quick) {
        const QHash<QString, double> instructions = instructionsPerOperation(work, page, &problem);
        if (instructions.isEmpty())
            std::printf("\n%s\n", qPrintable(problem));
        else
            print(QStringLiteral("In the process (instructions per operation, callgrind)"),
                  inProcessRows(instructions, QStringLiteral("Ir")));
    }
    const QString mergeCheck = work.mergeCheck();
    std::printf("\nmerge results identical to the literal rule: %s\n",
                mergeCheck.isEmpty() ? "yes (both data sets)" : qPrintable(mergeCheck));
    return mergeCheck.isEmpty() ? 0 : 1;
}
