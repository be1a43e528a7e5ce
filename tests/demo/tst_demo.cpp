// The demo playing itself offscreen against a real dev server that answers by itself: the
// conversation it reports, and the screenshots it takes, which must show something.

#include "ZVXDevServerProcess.h"

#include <QDir>
#include <QFile>
#include <QImage>
#include <QProcess>
#include <QRegularExpression>
#include <QSet>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

class tst_demo : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void scriptedRun();
};

namespace {

const QString Secret = u"5a757665726f2064656d6f2073656372657420666f722074657374732121212121"_s;

// Distinct colours in a grid of samples: a blank or one-colour picture has one or two.
int coloursSampled(const QImage &image)
{
    QSet<QRgb> colours;
    for (int y = 0; y < image.height(); y += 7)
        for (int x = 0; x < image.width(); x += 7)
            colours.insert(image.pixel(x, y));
    return int(colours.size());
}

} // namespace

void tst_demo::scriptedRun()
{
    ZVXDevServerProcess server(ZVXDevServerProcess::Log::ToFile);
    QVERIFY(server.start({u"--api-secret"_s, Secret, u"--bot"_s, u"--bot-delay"_s, u"200"_s}));
    QTemporaryDir output;
    QVERIFY(output.isValid());

    QProcess demo;
    demo.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    demo.start(QStringLiteral(ZUVERO_DEMO),
               {u"--server"_s, server.origin(), u"--api-secret"_s, Secret, u"--ca-file"_s,
                server.authorityPath(), u"--language"_s, u"en"_s, u"--script"_s, output.path()});
    // Each step may take its own 30 s; a whole run takes about ten.
    QVERIFY(demo.waitForFinished(180 * 1000));
    QFile transcriptFile(QDir(output.path()).filePath(u"transcript.txt"_s));
    QVERIFY(transcriptFile.open(QIODevice::ReadOnly));
    const QString transcript = QString::fromUtf8(transcriptFile.readAll());
    QVERIFY2(demo.exitStatus() == QProcess::NormalExit && demo.exitCode() == 0,
             qPrintable(transcript));

    // What the user did and what came back, in the order of the script.
    const QStringList expected{
        u"first window "_s,
        u"user types: Hello! My order #1042 has not arrived yet."_s,
        u"user pastes a picture of the lamp"_s,
        u"push received (consumed by the library): You wrote: “One more thing"_s,
        u"unread count on the support button: 1"_s,
        u"user chooses “Share Location”"_s,
        u"user types: Paris"_s,
        u"user sends the place: Paris"_s,
        u"memory with the chat open: "_s,
        u"| Support: You wrote: “This is the lamp I ordered.” Thanks for the picture."_s,
        u"| You: Location"_s,
        u"| Support: Thanks for sharing your location."_s,
        u"user types: second-user"_s,
        u"signed in as Sam: 0 messages in the chat"_s,
        u"done: 14 screenshots"_s,
    };
    qsizetype from = 0;
    for (const QString &line : expected) {
        const qsizetype at = transcript.indexOf(line, from);
        QVERIFY2(at >= 0,
                 qPrintable(u"missing, or out of order: "_s + line + u"\n"_s + transcript));
        from = at + line.size();
    }

    // Every screenshot the transcript names is there, of the size it says (the shop's and the
    // chat's windows are the sizes the demo gives them), and shows more than a blank page.
    const QDir folder(output.path());
    static const QRegularExpression shot(u"screenshot (\\S+\\.png) \\((\\d+) x (\\d+)\\)"_s);
    qsizetype shots = 0;
    for (auto match = shot.globalMatch(transcript); match.hasNext(); ++shots) {
        const QRegularExpressionMatch found = match.next();
        const QString name = found.captured(1);
        const QImage image(folder.filePath(name));
        QVERIFY2(!image.isNull(), qPrintable(name));
        QCOMPARE(image.size(), QSize(found.captured(2).toInt(), found.captured(3).toInt()));
        if (name.contains(u"chat"_s) || name.contains(u"conversation"_s))
            QCOMPARE(image.size(), QSize(480, 720));
        else if (name.contains(u"shop"_s) || name.contains(u"banner"_s))
            QCOMPARE(image.size(), QSize(800, 600));
        QVERIFY2(coloursSampled(image) > 20, qPrintable(name));
    }
    QCOMPARE(shots, 14);
    QCOMPARE(folder.entryList({u"*.png"_s}, QDir::Files).size(), 14);
}

QTEST_GUILESS_MAIN(tst_demo)
#include "tst_demo.moc"
