#include "ZVXLocalization.h"
#include "ZVXResources.h"

#include <QFile>
#include <QGuiApplication>
#include <QTest>
#include <QTranslator>

namespace {
const QStringList libraryKeys = {QStringLiteral("zuveroChatTitle"),
                                 QStringLiteral("zuveroSendButtonTitle"),
                                 QStringLiteral("zuveroLoadMoreMessagesButtonTitle"),
                                 QStringLiteral("zuveroCancelButtonTitle"),
                                 QStringLiteral("zuveroTakePhotoButtonTitle"),
                                 QStringLiteral("zuveroChoosePhotoButtonTitle"),
                                 QStringLiteral("zuveroLocationButtonTitle")};
}

class TestBundle : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void libraryTextsAreEnglish();
    void hostTableComesFirst();
    void images_data();
    void images();
    void configurationListsTheVersion();
};

void TestBundle::libraryTextsAreEnglish()
{
    for (const QString &key : libraryKeys) {
        const QString text = ZVXLocalization::localizeString(key);
        QVERIFY2(!text.isEmpty() && text != key, qPrintable(key));
    }
    QCOMPARE(ZVXLocalization::localizeString(QStringLiteral("zuveroChatTitle")),
             QStringLiteral("Support"));
    QCOMPARE(ZVXLocalization::localizeString(QStringLiteral("no such key")),
             QStringLiteral("no such key"));
    // Texts the host alone may translate fall back to themselves, not to the library.
    QCOMPARE(ZVXLocalization::hostString(QStringLiteral("zuveroChatTitle")),
             QStringLiteral("zuveroChatTitle"));
}

void TestBundle::hostTableComesFirst()
{
    QTranslator host;
    QVERIFY(host.load(QStringLiteral(":/host/host_de.qm")));
    QCoreApplication::installTranslator(&host);
    QCOMPARE(ZVXLocalization::localizeString(QStringLiteral("zuveroChatTitle")),
             QStringLiteral("Kundendienst"));
    QCOMPARE(ZVXLocalization::localizeString(QStringLiteral("zuveroSendButtonTitle")),
             QStringLiteral("Send"));
    QCOMPARE(ZVXLocalization::hostString(QStringLiteral("Error")), QStringLiteral("Fehler"));
    QCoreApplication::removeTranslator(&host);
    QCOMPARE(ZVXLocalization::hostString(QStringLiteral("Error")), QStringLiteral("Error"));
}

void TestBundle::images_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QSize>("size");
    for (const char *bubble : {"ZuveroUserBubble", "ZuveroAgentBubble", "ZuveroSystemBubble"})
        QTest::newRow(bubble) << QStringLiteral("Zuvero.bundle/") + QLatin1String(bubble)
                              << QSize(58, 37);
    QTest::newRow("attachment") << QStringLiteral("Zuvero.bundle/ZuveroAttachmentIcon")
                                << QSize(24, 24);
    QTest::newRow("error") << QStringLiteral("Zuvero.bundle/ZuveroError") << QSize(22, 22);
    QTest::newRow("placeholder") << QStringLiteral("Zuvero.bundle/placeholder") << QSize(64, 64);
    QTest::newRow("pin") << QStringLiteral("Zuvero.bundle/ZuveroLocationAnnotation")
                         << QSize(32, 40);
    QTest::newRow("grid") << QStringLiteral("Zuvero.bundle/ZuveroLocationGrid") << QSize(64, 64);
    for (const char *icon : {"video_icon", "pdf_icon", "doc_icon", "audio_icon", "spreadsheet_icon",
                             "presentation_icon", "unknown_icon"})
        QTest::newRow(icon) << QString::fromLatin1(icon) << QSize(40, 48);
}

void TestBundle::images()
{
    QFETCH(QString, name);
    QFETCH(QSize, size);
    const QImage image = ZVXResources::image(name);
    QCOMPARE(image.size(), size);
    const QImage sharp = ZVXResources::image(name, 2.0);
    QCOMPARE(sharp.size(), size * 2);
    QCOMPARE(sharp.deviceIndependentSize().toSize(), size);
    QVERIFY(ZVXResources::image(name + QStringLiteral("_missing")).isNull());
}

void TestBundle::configurationListsTheVersion()
{
    QFile plist(ZVXResources::path(QStringLiteral("ZuveroConfig.plist")));
    QVERIFY(plist.open(QIODevice::ReadOnly));
    const QByteArray content = plist.readAll();
    QVERIFY(content.contains("<key>sdkVersion</key>"));
    QVERIFY(content.contains("<string>" ZUVERO_TEST_VERSION "</string>"));
}

QTEST_MAIN(TestBundle)
#include "tst_bundle.moc"
