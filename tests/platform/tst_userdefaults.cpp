#include "ZVXTemporaryUserDefaults.h"
#include "ZuveroUserDefaults.h"

#include <QCoreApplication>
#include <QProcess>
#include <QTest>

#include <cstdio>

namespace {

const QByteArray token = QByteArray::fromHex("00ff7f80deadbeef00");

void writeSample(ZuveroUserDefaults &defaults)
{
    defaults.setObject(QStringLiteral("4E8C8D2A-1B77-4C5A-9D7E-0F3A1B2C3D4E"),
                       QStringLiteral("Zuvero_installationIdentifier"));
    defaults.setObject(token, QStringLiteral("Zuvero_deviceToken"));
    defaults.setObject(QStringList{QStringLiteral("one-uuid")},
                       QStringLiteral("ZuveroMarkedAsReadMessageUUIDs"));
    defaults.setObject(1700000000.25, QStringLiteral("ZuveroLastMarkAsReadDate"));
    defaults.setObject(QVariantList(), QStringLiteral("empty"));
}

// The values as another process reads them back: one line each.
QStringList describe(const ZuveroUserDefaults &defaults)
{
    return {
        defaults.stringForKey(QStringLiteral("Zuvero_installationIdentifier")),
        QString::fromLatin1(defaults.dataForKey(QStringLiteral("Zuvero_deviceToken"))
                                .value_or(QByteArray("none"))
                                .toHex()),
        defaults.arrayForKey(QStringLiteral("ZuveroMarkedAsReadMessageUUIDs")).value(0).toString(),
        QString::number(
            defaults.arrayForKey(QStringLiteral("ZuveroMarkedAsReadMessageUUIDs")).size()),
        QString::number(defaults.doubleForKey(QStringLiteral("ZuveroLastMarkAsReadDate")), 'f', 2),
        QString::number(defaults.arrayForKey(QStringLiteral("empty")).size())};
}

} // namespace

class TestUserDefaults : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void valuesSurviveAnotherProcess();
};

void TestUserDefaults::valuesSurviveAnotherProcess()
{
    ZVXTemporaryUserDefaults temporary;
    ZuveroUserDefaults &defaults = ZuveroUserDefaults::standardUserDefaults();
    writeSample(defaults);
    QVERIFY(defaults.synchronize());

    // A second instance on the same file, in this process and in a fresh one.
    ZuveroUserDefaults second(temporary.fileName());
    const QStringList expected = describe(second);
    QCOMPARE(
        expected,
        (QStringList{QStringLiteral("4E8C8D2A-1B77-4C5A-9D7E-0F3A1B2C3D4E"),
                     QString::fromLatin1(token.toHex()), QStringLiteral("one-uuid"),
                     QStringLiteral("1"), QStringLiteral("1700000000.25"), QStringLiteral("0")}));

    QProcess child;
    child.start(QCoreApplication::applicationFilePath(),
                {QStringLiteral("--read-back"), temporary.fileName()});
    QVERIFY(child.waitForFinished());
    QCOMPARE(child.exitCode(), 0);
    QCOMPARE(QString::fromUtf8(child.readAllStandardOutput())
                 .split(QLatin1Char('\n'), Qt::SkipEmptyParts),
             expected);
}

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    if (argc == 3 && qstrcmp(argv[1], "--read-back") == 0) {
        ZuveroUserDefaults defaults(QString::fromLocal8Bit(argv[2]));
        for (const QString &line : describe(defaults))
            std::printf("%s\n", qPrintable(line));
        return 0;
    }
    TestUserDefaults test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_userdefaults.moc"
