#include "ZVXLocalization.h"
#include "ZVXResources.h"

#include <QDirIterator>
#include <QFile>
#include <QGuiApplication>
#include <QRegularExpression>
#include <QTest>
#include <QTranslator>
#include <QXmlStreamReader>

using namespace Qt::StringLiterals;

using namespace Qt::StringLiterals;

namespace {
const QStringList libraryKeys = {QStringLiteral("zuveroChatTitle"),
                                 QStringLiteral("zuveroSendButtonTitle"),
                                 QStringLiteral("zuveroLoadMoreMessagesButtonTitle"),
                                 QStringLiteral("zuveroCancelButtonTitle"),
                                 QStringLiteral("zuveroTakePhotoButtonTitle"),
                                 QStringLiteral("zuveroChoosePhotoButtonTitle"),
                                 QStringLiteral("zuveroLocationButtonTitle")};

const QString sourceDir = QStringLiteral(ZUVERO_TEST_SOURCE_DIR);

struct Table
{
    QMap<QString, QString> texts;
    QStringList faults;
};

// A translation source as lrelease reads it, with what would make a text missing or wrong.
Table readTable(const QString &language)
{
    Table table;
    QFile file(sourceDir + QStringLiteral("/resources/translations/ZuveroLocalizable_") + language
               + QStringLiteral(".ts"));
    if (!file.open(QIODevice::ReadOnly)) {
        table.faults << file.errorString();
        return table;
    }
    QXmlStreamReader xml(&file);
    QString source;
    while (!xml.atEnd()) {
        if (xml.readNext() != QXmlStreamReader::StartElement)
            continue;
        if (xml.name() == QLatin1String("source")) {
            source = xml.readElementText();
        } else if (xml.name() == QLatin1String("translation")) {
            const QString type = xml.attributes().value(QLatin1String("type")).toString();
            const QString text = xml.readElementText();
            if (!type.isEmpty())
                table.faults << source + QStringLiteral(" is ") + type;
            else if (text.isEmpty())
                table.faults << source + QStringLiteral(" has no text");
            if (table.texts.contains(source))
                table.faults << source + QStringLiteral(" comes twice");
            table.texts.insert(source, text);
        }
    }
    if (xml.hasError())
        table.faults << xml.errorString();
    return table;
}

QStringList placeholders(const QString &text)
{
    static const QRegularExpression marker(QStringLiteral("%[1-9]"));
    QStringList found;
    for (const auto &match : marker.globalMatch(text))
        found << match.captured();
    found.sort();
    return found;
}

// Restores the language of the process whatever a test left.
struct LanguageGuard
{
    ~LanguageGuard() { QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates)); }
};
} // namespace

class TestBundle : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void libraryTextsAreEnglish();
    void hostTableComesFirst();
    void tablesHoldTheSameKeys_data();
    void tablesHoldTheSameKeys();
    void everyKeyInTheCodeIsInTheTable();
    void libraryFollowsTheDefaultLocale();
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

void TestBundle::tablesHoldTheSameKeys_data()
{
    QTest::addColumn<QString>("language");
    QTest::newRow("fr") << QStringLiteral("fr");
    QTest::newRow("ar") << QStringLiteral("ar");
}

void TestBundle::tablesHoldTheSameKeys()
{
    QFETCH(QString, language);
    const Table english = readTable(QStringLiteral("en"));
    const Table other = readTable(language);
    QVERIFY2(english.faults.isEmpty(), qPrintable(english.faults.join(u", ")));
    QVERIFY2(other.faults.isEmpty(), qPrintable(other.faults.join(u", ")));
    QVERIFY(english.texts.size() >= libraryKeys.size());
    QStringList onlyOne;
    for (const QString &key : english.texts.keys() + other.texts.keys()) {
        if (english.texts.contains(key) != other.texts.contains(key))
            onlyOne << key;
    }
    QVERIFY2(onlyOne.isEmpty(), qPrintable(u"in one table only: "_s + onlyOne.join(u", ")));
    // A translation that drops or adds a placeholder loses a name or shows "%2".
    for (auto it = english.texts.cbegin(); it != english.texts.cend(); ++it)
        QVERIFY2(placeholders(other.texts.value(it.key())) == placeholders(it.value()),
                 qPrintable(it.key()));
}

void TestBundle::everyKeyInTheCodeIsInTheTable()
{
    // A misspelt key would show itself to the user.
    const Table english = readTable(QStringLiteral("en"));
    static const QRegularExpression key(QStringLiteral("\"(zuvero[A-Z]\\w*)\""));
    QStringList missing;
    int seen = 0;
    QDirIterator sources(sourceDir + QStringLiteral("/src"), {QStringLiteral("*.cpp")}, QDir::Files,
                         QDirIterator::Subdirectories);
    while (sources.hasNext()) {
        QFile file(sources.next());
        QVERIFY(file.open(QIODevice::ReadOnly));
        for (const auto &match : key.globalMatch(QString::fromUtf8(file.readAll()))) {
            ++seen;
            if (!english.texts.contains(match.captured(1)))
                missing << match.captured(1);
        }
    }
    QVERIFY(seen > 20);
    QVERIFY2(missing.isEmpty(), qPrintable(u"not in the table: "_s + missing.join(u", ")));
}

void TestBundle::libraryFollowsTheDefaultLocale()
{
    LanguageGuard guard;
    const auto title = [] { return ZVXLocalization::localizeString(u"zuveroChatTitle"_s); };
    QLocale::setDefault(QLocale(QLocale::French, QLocale::Canada));
    QCOMPARE(title(), QStringLiteral("Assistance"));
    QLocale::setDefault(QLocale(QLocale::Arabic, QLocale::Egypt));
    QCOMPARE(title(), QStringLiteral("الدعم"));
    // A language the library does not speak: English.
    QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
    QCOMPARE(title(), QStringLiteral("Support"));

    // The host still wins, by key, and by the English wording of the texts it always had.
    QLocale::setDefault(QLocale(QLocale::French, QLocale::France));
    const auto error
        = [] { return ZVXLocalization::localizeString(u"zuveroErrorTitle"_s, u"Error"_s); };
    QCOMPARE(error(), QStringLiteral("Erreur"));
    QTranslator host;
    QVERIFY(host.load(QStringLiteral(":/host/host_de.qm")));
    QCoreApplication::installTranslator(&host);
    QCOMPARE(title(), QStringLiteral("Kundendienst"));
    QCOMPARE(error(), QStringLiteral("Fehler"));
    QCOMPARE(ZVXLocalization::localizeString(u"zuveroSendButtonTitle"_s),
             QStringLiteral("Envoyer"));
    QCoreApplication::removeTranslator(&host);
    QCOMPARE(title(), QStringLiteral("Assistance"));
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
