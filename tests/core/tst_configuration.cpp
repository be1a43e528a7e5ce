#include "ZVXConfiguration.h"
#include "ZVXLogCapture.h"
#include "ZVXPropertyList.h"
#include "ZuveroAppearance.h"

#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

class TestConfiguration : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void normalisesAPropertyListFile();
    void colours_data();
    void colours();
    void fontSizesOutOfRange();
    void readsJSONAndRefusesBrokenFiles();
    void appearanceTakesTypedValues();
};

void TestConfiguration::normalisesAPropertyListFile()
{
    // A host's configuration file, with a bad value of every kind.
    const QString path = QFINDTESTDATA("data/ZuveroConfig.plist");
    const std::optional<QVariantMap> raw = ZVXConfiguration::readConfigurationFile(path);
    QVERIFY(raw);
    QCOMPARE(raw->value(u"extra"_s).toList().at(1), QVariant(QByteArray("\x00\x01\x02", 3)));

    ZVXLogCapture log;
    const QVariantMap typed = ZVXConfiguration::normalizeConfigurationDictionary(*raw);
    QCOMPARE(
        log.lines(),
        (QStringList{
            QStringLiteral(
                "ZVX: Could not configure agentNameFont with name = No Such Font & size = 12."),
            u"ZVX: Could not configure dateFont, you must provide name & size."_s,
            u"ZVX: Could not configure dateTextColor, format of #FFF is not valid."_s,
            QStringLiteral(
                "ZVX: Could not configure userMessageBubbleInsets, you must provide top & "
                "left & bottom & right."),
            QStringLiteral(
                "ZVX: Could not configure agentMessageBubbleImage, you must provide top & "
                "left & bottom & right & imgName.")}));

    const QColor blue(0x0f, 0x80, 0xf0);
    QCOMPARE(typed.value(u"tintColor"_s).value<QColor>(), blue);
    QCOMPARE(typed.value(u"userMessageTextColor"_s).value<QColor>(), blue);
    // The three tints follow the main one; misspelt and empty keys are gone without a word.
    QCOMPARE(typed.value(u"sendTintColor"_s).value<QColor>(), blue);
    QCOMPARE(typed.value(u"cursorTintColor"_s).value<QColor>(), blue);
    QVERIFY(!typed.contains(u"tintColour"_s) && !typed.contains(u"errorIconColor"_s));
    QCOMPARE(typed.value(u"interactiveNotification"_s), QVariant(true));
    QCOMPARE(typed.value(u"title"_s), QVariant(u"Help & Support"_s));
    QCOMPARE(typed.value(u"language"_s), QVariant(u"fr-FR"_s));
    // The map settings pass as they are.
    QCOMPARE(typed.value(u"mapTileURLTemplate"_s),
             QVariant(u"https://tiles.example.org/{z}/{x}/{y}.png"_s));
    QCOMPARE(typed.value(u"mapTileAttribution"_s), QVariant(u"\u00a9 Example Maps"_s));

    const QFont font = typed.value(u"messageFont"_s).value<QFont>();
    QCOMPARE(font.family(), u"DejaVu Sans"_s);
    QVERIFY(font.bold());
    QCOMPARE(font.pixelSize(), 16);
    QCOMPARE(typed.value(u"agentNameInsets"_s).value<QMarginsF>(), QMarginsF(2, 1, 0, 3));
    const auto bubble = typed.value(u"userMessageBubbleImage"_s).value<ZuveroResizableImage>();
    QVERIFY(!bubble.isNull() && bubble.isTemplate);
    QCOMPARE(bubble.capInsets, QMarginsF(19, 18, 36, 18));
}

void TestConfiguration::colours_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QColor>("colour"); // invalid: none
    QTest::newRow("hash") << "#0F80F0" << QColor(0x0f, 0x80, 0xf0);
    QTest::newRow("lower case") << "0f80f0" << QColor(0x0f, 0x80, 0xf0);
    QTest::newRow("three digits") << "#FFF" << QColor();
    QTest::newRow("two hashes") << "##0F80F0" << QColor();
    QTest::newRow("stops at a non-digit") << "12ZZ34" << QColor(0, 0, 0x12);
    QTest::newRow("empty") << "" << QColor();
}

void TestConfiguration::colours()
{
    QFETCH(QString, text);
    QFETCH(QColor, colour);
    QCOMPARE(ZVXConfiguration::zuveroColorWithHexCode(text).value_or(QColor()), colour);
}

// A size beyond a pixel size's range (or not a number) was rounded into an int: undefined.
void TestConfiguration::fontSizesOutOfRange()
{
    ZVXLogCapture log;
    const QVariantMap typed = ZVXConfiguration::normalizeConfigurationDictionary(
        {{u"messageFont"_s, QVariantMap{{u"name"_s, u"DejaVu Sans"_s}, {u"size"_s, 1e300}}},
         {u"dateFont"_s, QVariantMap{{u"name"_s, u"DejaVu Sans"_s}, {u"size"_s, qQNaN()}}},
         {u"defaultFont"_s, QVariantMap{{u"name"_s, u"DejaVu Sans"_s}, {u"size"_s, 1000}}}});
    QCOMPARE(typed.keys(), QStringList{u"defaultFont"_s});
    QCOMPARE(log.lines().filter(u"Could not configure"_s).size(), 2);
    QVERIFY(log.contains(QStringLiteral(
        "ZVX: Could not configure messageFont with name = DejaVu Sans & size = 1e+300.")));
}

void TestConfiguration::readsJSONAndRefusesBrokenFiles()
{
    QTemporaryDir dir;
    auto write = [&](const char *name, const QByteArray &content) {
        QFile file(dir.filePath(QLatin1String(name)));
        file.open(QIODevice::WriteOnly);
        file.write(content);
        return file.fileName();
    };
    const auto json = ZVXConfiguration::readConfigurationFile(
        write("config.json", R"(  {"apiKey": "k", "tintColor": "#000000"})"));
    QCOMPARE(json.value_or(QVariantMap()).value(u"apiKey"_s), QVariant(u"k"_s));

    const QList<QByteArray> broken = {
        "<plist><dict><key>a</key></dict></plist>", // a key without a value
        "<plist><dict><string>a</string></dict></plist>", // a value without a key
        "<plist><integer>twelve</integer></plist>", // not a number
        "<plist><array><string>a</string></plist>", // not well-formed
        "<plist><string>a</string><string>b</string></plist>", // two values
        "<plist><array><unknown/></array></plist>", // unknown element
        QByteArray("<plist>") + QByteArray(300, '<').replace('<', "<array>")
            + "</plist>", // too deep
    };
    for (const QByteArray &content : broken) {
        ZuveroError error;
        QVERIFY2(!ZVXPropertyList::parse(content, &error), content.constData());
        QVERIFY(
            error.localizedDescription().startsWith(QLatin1String("Property list error at line")));
    }
    ZuveroError error;
    QVERIFY(!ZVXConfiguration::readConfigurationFile(write("list.plist", "<plist><array/></plist>"),
                                                     &error));
    QVERIFY(error.localizedDescription().contains(QLatin1String("does not hold a dictionary")));
    QVERIFY(!ZVXConfiguration::readConfigurationFile(dir.filePath(u"missing"_s), &error));
}

void TestConfiguration::appearanceTakesTypedValues()
{
    // The defaults' relations, not their figures: system bubbles are drawn as the agent's, and
    // only the plain bubbles take a tint.
    ZuveroAppearance appearance = ZuveroAppearance::defaults();
    QCOMPARE(appearance.systemMessageBubbleImage.capInsets,
             appearance.agentMessageBubbleImage.capInsets);
    QVERIFY(!appearance.userAttachmentBubbleImage.isTemplate
            && appearance.userMessageBubbleImage.isTemplate);

    QVERIFY(appearance.setValue(u"tintColor"_s, QColor(Qt::red)));
    QCOMPARE(appearance.tintColor, QColor(Qt::red));
    QVERIFY(!appearance.setValue(u"tintColor"_s, 5)); // a number is no colour
    QVERIFY(!appearance.setValue(u"noSuchKey"_s, QColor(Qt::red)));
    QCOMPARE(appearance.tintColor, QColor(Qt::red));

    QFont serif(u"DejaVu Serif"_s);
    QVERIFY(appearance.setValue(u"defaultFont"_s, QVariant::fromValue(serif)));
    appearance.fillFonts();
    QCOMPARE(appearance.messageFont->family(), u"DejaVu Serif"_s);
    ZuveroAppearance plain;
    plain.fillFonts();
    QVERIFY(plain.messageFont && plain.agentNameFont->bold());
}

QTEST_MAIN(TestConfiguration)
#include "tst_configuration.moc"
