#include "ZVXTemporaryUserDefaults.h"
#include "ZuveroUserDefaults.h"

#include <QCoreApplication>
#include <QProcess>
#include <QTest>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

const QByteArray token = QByteArray::fromHex("00ff7f80deadbeef00");

void writeSample(ZuveroUserDefaults &defaults)
{
    defaults.setObject(u"4E8C8D2A-1B77-4C5A-9D7E-0F3A1B2C3D4E"_s,
                       u"Zuvero_installationIdentifier"_s);
    defaults.setObject(token, u"Zuvero_deviceToken"_s);
    defaults.setObject(QStringList{u"one-uuid"_s}, u"ZuveroMarkedAsReadMessageUUIDs"_s);
    defaults.setObject(1700000000.25, u"ZuveroLastMarkAsReadDate"_s);
    defaults.setObject(QVariantList(), u"empty"_s);
}

// The values as another process reads them back: one line each.
QStringList describe(const ZuveroUserDefaults &defaults)
{
    return {defaults.stringForKey(u"Zuvero_installationIdentifier"_s),
            QString::fromLatin1(
                defaults.dataForKey(u"Zuvero_deviceToken"_s).value_or(QByteArray("none")).toHex()),
            defaults.arrayForKey(u"ZuveroMarkedAsReadMessageUUIDs"_s).value(0).toString(),
            QString::number(defaults.arrayForKey(u"ZuveroMarkedAsReadMessageUUIDs"_s).size()),
            QString::number(defaults.doubleForKey(u"ZuveroLastMarkAsReadDate"_s), 'f', 2),
            QString::number(defaults.arrayForKey(u"empty"_s).size())};
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
        (QStringList{u"4E8C8D2A-1B77-4C5A-9D7E-0F3A1B2C3D4E"_s, QString::fromLatin1(token.toHex()),
                     u"one-uuid"_s, u"1"_s, u"1700000000.25"_s, u"0"_s}));

    QProcess child;
    child.start(QCoreApplication::applicationFilePath(), {u"--read-back"_s, temporary.fileName()});
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
