#include "ZVXMultipart.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const QByteArray Boundary = "ZVXMultipart83c4lq15a4Snje4na2h5kqt8lqr97sp219";

// Python's own multipart reader: each part's name, filename, type and bytes (hex).
const char ParserScript[] = R"(
import email.parser, email.policy, json, sys
head = b"Content-Type: " + sys.argv[1].encode() + b"\r\n\r\n"
message = email.parser.BytesParser(policy=email.policy.HTTP).parsebytes(head + sys.stdin.buffer.read())
parts = list(message.iter_parts())
print(json.dumps({"defects": len(message.defects) + sum(len(p.defects) for p in parts),
                  "parts": [[p.get_param("name", header="content-disposition"), p.get_filename(),
                             p.get("Content-Type") and str(p.get("Content-Type")),
                             p.get_payload(decode=True).hex()] for p in parts]}))
)";

QJsonObject parseWithPython(const QString &contentType, const QByteArray &body)
{
    QProcess python;
    python.start(u"/usr/bin/python3"_s, {u"-c"_s, QString::fromUtf8(ParserScript), contentType});
    python.write(body);
    python.closeWriteChannel();
    python.waitForFinished(30000);
    return QJsonDocument::fromJson(python.readAllStandardOutput()).object();
}

QJsonArray part(const QString &name, const QJsonValue &filename, const QJsonValue &type,
                const QByteArray &data)
{
    return {name, filename, type, QString::fromLatin1(data.toHex())};
}

} // namespace

class TestMultipart : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void independentParserReadsEveryPart();
    void partsThatAddNothing();
};

// The framing of a message body, byte for byte, is the wire fixtures' (send-body.multipart).
void TestMultipart::independentParserReadsEveryPart()
{
    ZVXMultipart multipart;
    multipart.addString(u"Grüße 😀"_s, u"Grüße"_s);
    multipart.addDictionary({{u"b"_s, u"2"_s}, {u"a"_s, u"1"_s}});
    const QByteArray binary("\0\x01\r\n--\xff", 7);
    multipart.addData(binary, std::nullopt, std::nullopt, u"ß😀.bin"_s);
    multipart.addData(QByteArray("%PDF"), u"doc"_s, u"application/pdf"_s, QString());

    const QJsonObject parsed = parseWithPython(multipart.contentType(), multipart.data());
    QCOMPARE(multipart.data(), multipart.data()); // the closing is written once
    QCOMPARE(parsed.value(u"defects"_s).toInt(-1), 0);
    const QJsonArray expected{
        // Header text is ASCII with one substitute per character; values stay UTF-8.
        part(u"Gr??e"_s, QJsonValue::Null, QJsonValue::Null, u"Grüße 😀"_s.toUtf8()),
        part(u"a"_s, QJsonValue::Null, QJsonValue::Null, "1"),
        part(u"b"_s, QJsonValue::Null, QJsonValue::Null, "2"),
        // No key gives "file"; no type is written as "(null)", not guessed.
        part(u"file"_s, u"??.bin"_s, u"(null)"_s, binary),
        part(u"doc"_s, QJsonValue::Null, u"application/pdf"_s, "%PDF"),
    };
    QCOMPARE(parsed.value(u"parts"_s).toArray(), expected);
}

void TestMultipart::partsThatAddNothing()
{
    ZVXMultipart multipart;
    multipart.addString(std::nullopt, u"key"_s);
    multipart.addString(u"value"_s, QString());
    multipart.setBoundary(QString());
    QCOMPARE(multipart.boundary(), QLatin1String(Boundary));
    // An empty body is not closed by reading it.
    QCOMPARE(multipart.data(), QByteArray());

    // Nothing has started, so the first real part has no leading CRLF.
    multipart.setBoundary(u"b"_s);
    multipart.addData(std::nullopt, u"k"_s, u"text/plain"_s);
    QCOMPARE(multipart.data(),
             "--b\r\nContent-Disposition: form-data; name=\"k\"\r\n"
             "Content-Type: text/plain\r\n"
             "Content-Transfer-Encoding: binary\r\n\r\n\r\n--b--");
}

QTEST_GUILESS_MAIN(TestMultipart)
#include "tst_multipart.moc"
