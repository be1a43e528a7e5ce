#include "ZVXLinkDetector.h"

#include <QTest>

using namespace Qt::StringLiterals;
using Kind = ZVXLinkDetector::Kind;

namespace {

struct Expected
{
    QString text; //!< as it appears, once, in the message
    QString url;
};

} // namespace

Q_DECLARE_METATYPE(QList<Expected>)

class TestLinks : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void detection_data();
    void detection();
    void kindsAreFilteredAfterPrecedence();
};

void TestLinks::detection_data()
{
    QTest::addColumn<QString>("message");
    QTest::addColumn<QList<Expected>>("expected");

    const auto row = [](const char *name, const QString &message, QList<Expected> expected) {
        QTest::newRow(name) << message << expected;
    };
    const auto none = QList<Expected>();

    // Web addresses.
    row("scheme, query, fragment", u"see https://example.com/a?b=1#c now"_s,
        {{u"https://example.com/a?b=1#c"_s, u"https://example.com/a?b=1#c"_s}});
    row("scheme in capitals", u"HTTP://Example.com"_s,
        {{u"HTTP://Example.com"_s, u"http://example.com"_s}});
    row("www opens as https", u"go to www.example.org/path."_s,
        {{u"www.example.org/path"_s, u"https://www.example.org/path"_s}});
    row("www in capitals", u"WWW.EXAMPLE.COM"_s,
        {{u"WWW.EXAMPLE.COM"_s, u"https://www.example.com"_s}});
    row("bare name with path", u"example.com/path"_s,
        {{u"example.com/path"_s, u"https://example.com/path"_s}});
    row("bare name, country under a second level", u"news on bbc.co.uk!"_s,
        {{u"bbc.co.uk"_s, u"https://bbc.co.uk"_s}});
    row("bare name with port", u"example.com:8080/x"_s,
        {{u"example.com:8080/x"_s, u"https://example.com:8080/x"_s}});
    row("balanced parentheses stay, the sentence's go",
        u"(see https://en.wikipedia.org/wiki/Pipe_(unit))."_s,
        {{u"https://en.wikipedia.org/wiki/Pipe_(unit)"_s,
          u"https://en.wikipedia.org/wiki/Pipe_(unit)"_s}});
    row("unbalanced closing bracket", u"[https://example.com/a]"_s,
        {{u"https://example.com/a"_s, u"https://example.com/a"_s}});
    row("quotes around", u"\"https://example.com/q\" and 'example.org'"_s,
        {{u"https://example.com/q"_s, u"https://example.com/q"_s},
         {u"example.org"_s, u"https://example.org"_s}});
    row("trailing question mark and colon", u"Is it https://example.com/? or example.org:"_s,
        {{u"https://example.com/"_s, u"https://example.com/"_s},
         {u"example.org"_s, u"https://example.org"_s}});
    row("user info is no mail address", u"https://user@example.com/u/bob@example.com"_s,
        {{u"https://user@example.com/u/bob@example.com"_s,
          u"https://user@example.com/u/bob@example.com"_s}});
    row("international name", u"https://пример.рф/путь"_s,
        {{u"https://пример.рф/путь"_s, u"https://пример.рф/путь"_s}});
    row("Arabic around, Arabic path", u"راجع الموقع https://example.com/مسار للمزيد"_s,
        {{u"https://example.com/مسار"_s, u"https://example.com/مسار"_s}});
    row("Arabic around a bare name", u"زوروا example.com، اليوم"_s,
        {{u"example.com"_s, u"https://example.com"_s}});
    row("Chinese without spaces", u"请访问example.com了解"_s,
        {{u"example.com"_s, u"https://example.com"_s}});
    row("after an emoji (offsets in UTF-16)", u"😀 example.com"_s,
        {{u"example.com"_s, u"https://example.com"_s}});

    // Mail addresses.
    row("mail address", u"mail jane.doe+chat@example.co.uk, thanks"_s,
        {{u"jane.doe+chat@example.co.uk"_s, u"mailto:jane.doe+chat@example.co.uk"_s}});
    row("mail address ending a sentence", u"Write to help@example.io."_s,
        {{u"help@example.io"_s, u"mailto:help@example.io"_s}});

    // Telephone numbers.
    row("international", u"call +33 1 23 45 67 89 today"_s,
        {{u"+33 1 23 45 67 89"_s, u"tel:+33123456789"_s}});
    row("area code in parentheses", u"(555) 123-4567"_s,
        {{u"(555) 123-4567"_s, u"tel:5551234567"_s}});
    row("hyphens, full stop after", u"Dial 555-123-4567."_s,
        {{u"555-123-4567"_s, u"tel:5551234567"_s}});
    row("dots, 3-3-4", u"555.123.4567"_s, {{u"555.123.4567"_s, u"tel:5551234567"_s}});
    row("spaces after a trunk zero", u"020 7946 0958"_s,
        {{u"020 7946 0958"_s, u"tel:02079460958"_s}});
    row("international with hyphens", u"+1-800-555-0199"_s,
        {{u"+1-800-555-0199"_s, u"tel:+18005550199"_s}});
    row("seven digits", u"ext. 555-1234"_s, {{u"555-1234"_s, u"tel:5551234"_s}});

    row("one of each, in order", u"a@b.io, https://x.dev or 555-123-4567"_s,
        {{u"a@b.io"_s, u"mailto:a@b.io"_s},
         {u"https://x.dev"_s, u"https://x.dev"_s},
         {u"555-123-4567"_s, u"tel:5551234567"_s}});

    // Text that stays text.
    row("date and time", u"due 2026-11-23 at 10:30, or 23-11-2026"_s, none);
    row("versions", u"version 1.2.3 and 10.15.7.12345"_s, none);
    row("plain numbers", u"order 12345, order 1234567890, #5551234567"_s, none);
    row("abbreviations", u"e.g. this, i.e. that, etc."_s, none);
    row("file names", u"open file.txt, readme.md, setup.py or archive.zip"_s, none);
    row("script names", u"node.js and Vue.js"_s, none);
    row("missing space after a full stop", u"I went home.It was late."_s, none);
    row("IP address", u"ping 192.168.100.200"_s, none);
    row("year range", u"the 2020-2021 season"_s, none);
    row("amounts", u"pay $1 234 567 or 1 234 567 € or 3.14159265"_s, none);
    row("ISBN and card", u"ISBN 978-3-16-148410-0, card 4111 1111 1111 1111"_s, none);
    row("scheme glued to a word", u"xhttp://example.com"_s, none);
    row("scheme without host", u"http:// and https://."_s, none);
    row("mail without a domain", u"user@localhost, @handle, a@b"_s, none);
    row("name inside a path", u"/usr/share/example.com"_s, none);
    row("empty", QString(), none);
}

void TestLinks::detection()
{
    QFETCH(QString, message);
    QFETCH(QList<Expected>, expected);

    const QList<ZVXLinkDetector::Link> links = ZVXLinkDetector::detect(message);
    QStringList found;
    for (const auto &link : links)
        found << message.mid(link.start, link.length) + u" -> "_s + link.url.toString();
    QStringList wanted;
    for (const Expected &e : expected)
        wanted << e.text + u" -> "_s + QUrl(e.url).toString();
    QCOMPARE(found, wanted);

    for (qsizetype i = 0; i < links.size(); ++i) {
        QCOMPARE(links[i].start, message.indexOf(expected[i].text));
        const Kind kind = links[i].url.scheme() == u"mailto"_s ? Kind::Email
            : links[i].url.scheme() == u"tel"_s                ? Kind::Phone
                                                               : Kind::Web;
        QCOMPARE(links[i].kind, kind);
    }
}

void TestLinks::kindsAreFilteredAfterPrecedence()
{
    // A number inside an address stays part of the address, even when only numbers are asked for.
    const QString message = u"https://example.com/555-123-4567 or 555-765-4321, a@b.io"_s;
    const QList<ZVXLinkDetector::Link> phones = ZVXLinkDetector::detect(message, Kind::Phone);
    QCOMPARE(phones.size(), 1);
    QCOMPARE(message.mid(phones[0].start, phones[0].length), u"555-765-4321"_s);
    const auto mail = ZVXLinkDetector::detect(message, Kind::Email);
    QCOMPARE(mail.size(), 1);
    QCOMPARE(mail[0].url, QUrl(u"mailto:a@b.io"_s));
    QVERIFY(ZVXLinkDetector::detect(message, {}).isEmpty());
}

QTEST_GUILESS_MAIN(TestLinks)
#include "tst_links.moc"
