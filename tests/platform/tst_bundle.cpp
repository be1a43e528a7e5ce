#include "ZVXLocalization.h"
#include "ZVXResources.h"

#include <QFile>
#include <QGuiApplication>
#include <QTest>
#include <QTranslator>

using namespace Qt::StringLiterals;

namespace {
const QStringList libraryKeys = {u"zuveroChatTitle"_s,
                                 u"zuveroSendButtonTitle"_s,
                                 u"zuveroLoadMoreMessagesButtonTitle"_s,
                                 u"zuveroCancelButtonTitle"_s,
                                 u"zuveroTakePhotoButtonTitle"_s,
                                 u"zuveroChoosePhotoButtonTitle"_s,
                                 u"zuveroLocationButtonTitle"_s};
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
    QCOMPARE(ZVXLocalization::localizeString(u"zuveroChatTitle"_s), u"Support"_s);
    QCOMPARE(ZVXLocalization::localizeString(u"no such key"_s), u"no such key"_s);
    // Texts the host alone may translate fall back to themselves, not to the library.
    QCOMPARE(ZVXLocalization::hostString(u"zuveroChatTitle"_s), u"zuveroChatTitle"_s);
}

void TestBundle::hostTableComesFirst()
{
    QTranslator host;
    QVERIFY(host.load(u":/host/host_de.qm"_s));
    QCoreApplication::installTranslator(&host);
    QCOMPARE(ZVXLocalization::localizeString(u"zuveroChatTitle"_s), u"Kundendienst"_s);
    QCOMPARE(ZVXLocalization::localizeString(u"zuveroSendButtonTitle"_s), u"Send"_s);
    QCOMPARE(ZVXLocalization::hostString(u"Error"_s), u"Fehler"_s);
    QCoreApplication::removeTranslator(&host);
    QCOMPARE(ZVXLocalization::hostString(u"Error"_s), u"Error"_s);
}

void TestBundle::images_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QSize>("size");
    for (const char *bubble : {"ZuveroUserBubble", "ZuveroAgentBubble", "ZuveroSystemBubble"})
        QTest::newRow(bubble) << u"Zuvero.bundle/"_s + QLatin1String(bubble) << QSize(58, 37);
    QTest::newRow("attachment") << u"Zuvero.bundle/ZuveroAttachmentIcon"_s << QSize(24, 24);
    QTest::newRow("error") << u"Zuvero.bundle/ZuveroError"_s << QSize(22, 22);
    QTest::newRow("placeholder") << u"Zuvero.bundle/placeholder"_s << QSize(64, 64);
    QTest::newRow("pin") << u"Zuvero.bundle/ZuveroLocationAnnotation"_s << QSize(32, 40);
    QTest::newRow("grid") << u"Zuvero.bundle/ZuveroLocationGrid"_s << QSize(64, 64);
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
    QVERIFY(ZVXResources::image(name + u"_missing"_s).isNull());
}

void TestBundle::configurationListsTheVersion()
{
    QFile plist(ZVXResources::path(u"ZuveroConfig.plist"_s));
    QVERIFY(plist.open(QIODevice::ReadOnly));
    const QByteArray content = plist.readAll();
    QVERIFY(content.contains("<key>sdkVersion</key>"));
    QVERIFY(content.contains("<string>" ZUVERO_TEST_VERSION "</string>"));
}

QTEST_MAIN(TestBundle)
#include "tst_bundle.moc"
