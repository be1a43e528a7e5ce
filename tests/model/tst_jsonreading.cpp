#include "ZVXLogCapture.h"
#include "ZuveroChatMessage.h"
#include "ZuveroData.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonParseError>
#include <QTest>

using namespace Qt::StringLiterals;

/*
    A server's JSON is read in place (initWithJSON); the cache's variants
    through initWithPropertyList. Both must give the same message, or the
    same refusal with the same log lines, for every entry: the JSON reading
    counts as right when it matches the variant reading of the same text
    with its nulls removed, which is what the connection used to hand over.
*/

namespace {

QJsonValue jsonValue(const QByteArray &text)
{
    QJsonParseError error;
    // Wrapped in an array so that scalars and null parse too.
    const QJsonDocument document = QJsonDocument::fromJson("[" + text + "]", &error);
    if (error.error != QJsonParseError::NoError)
        qFatal("test data does not parse: %s", text.constData());
    return document.array().at(0);
}

QString describe(const ZuveroChatAttachmentPtr &attachment)
{
    if (!attachment)
        return u"no attachment"_s;
    // The written form, and what it cannot show: the exact addresses and the bytes.
    return QString::fromUtf8(QJsonDocument::fromVariant(attachment->propertyList()).toJson())
        + u" preview=%1 data=%2 bytes=%3 size=%4x%5"_s
              .arg(attachment->previewURL().toString(QUrl::FullyEncoded),
                   attachment->dataURL().toString(QUrl::FullyEncoded),
                   attachment->data() ? QString::fromLatin1(attachment->data()->toHex())
                                      : u"none"_s)
              .arg(attachment->imageSize().width())
              .arg(attachment->imageSize().height());
}

QString describe(const ZuveroChatMessagePtr &message)
{
    if (!message)
        return u"no message"_s;
    QString text = QString::fromUtf8(QJsonDocument::fromVariant(message->propertyList()).toJson())
        + u" ms=%1 text=%2 userName=%3 progress=%4 attachments:"_s
              .arg(message->date().toMSecsSinceEpoch())
              .arg(message->text() ? *message->text() : u"none"_s,
                   message->userName() ? *message->userName() : u"none"_s)
              .arg(message->uploadProgress());
    const ZuveroChatAttachmentList attachments
        = message->attachments().value_or(ZuveroChatAttachmentList());
    for (const ZuveroChatAttachmentPtr &attachment : attachments)
        text += QLatin1Char('\n') + describe(attachment);
    return text;
}

// What a reading gives, described, with the lines it logged.
template<typename Read>
auto reading(Read read)
{
    ZVXLogCapture log;
    const auto result = read();
    return std::tuple(result, describe(result), log.lines());
}

} // namespace

class TestJSONReading : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void messagesReadAlike_data();
    void messagesReadAlike();
    void attachmentsReadAlike_data();
    void attachmentsReadAlike();
};

void TestJSONReading::messagesReadAlike_data()
{
    QTest::addColumn<QByteArray>("entry");
    QTest::addColumn<int>("attachments"); // -1: no message
    QTest::addColumn<int>("lines");

    // Good entries, as the dev server writes them.
    QTest::newRow("user text") << QByteArray(R"({"date": 1795392398, "offline": false,
        "sender": "user", "text": "Grüße ✓", "uuid": "318606c4-8c0e-4301-8da9-c880fff4b199"})")
                               << 0 << 0;
    QTest::newRow("agent with name") << QByteArray(R"({"date": 1700000000.75, "offline": true,
        "sender": "agent", "text": "Hi", "userName": "Zoë", "uuid": "u"})")
                                     << 0 << 0;
    QTest::newRow("location kept whole, nulls inside removed")
        << QByteArray(R"({"uuid": "u", "sender": "user", "location": {"lat": 48.8584,
            "lng": 2.2945, "d": 350, "address": null, "tags": ["a", null, {"x": null}]}})")
        << 0 << 0;
    QTest::newRow("attachments") << QByteArray(R"({"uuid": "u", "sender": "user",
        "attachments": [{"uuid": "a1", "contentType": "image/png", "imageSize": [4, 3],
            "previewURL": "https://h/p?jwt=x&s=1", "dataURL": "https://h/files/%C3%BC.png",
            "length": 73, "filename": "ü.png", "icon": "bogus"},
          {"uuid": "a2", "contentType": "text/plain", "dataURL": "https://127.0.0.1:8443/f/a2"}]})")
                                 << 2 << 0;

    // JSON null is an absent value, wherever it stands.
    QTest::newRow("null entry") << QByteArray("null") << -1 << 1;
    QTest::newRow("null optional members")
        << QByteArray(R"({"uuid": "u", "sender": "system", "text": null, "userName": null,
            "date": null, "offline": null, "location": null, "attachments": null})")
        << 0 << 0;
    QTest::newRow("null uuid") << QByteArray(R"({"uuid": null, "sender": "user"})") << -1 << 1;
    QTest::newRow("null sender") << QByteArray(R"({"uuid": "u", "sender": null, "text": null})")
                                 << -1 << 1;
    QTest::newRow("null attachment elements")
        << QByteArray(R"({"uuid": "u", "sender": "user", "attachments": [null,
            {"uuid": "a", "contentType": "image/png", "imageSize": [null, 640, null, 480],
             "dataURL": null, "length": null, "filename": null}, null]})")
        << 1 << 0;

    // Values of the wrong type.
    QTest::newRow("not an object") << QByteArray(R"([1, {"uuid": "u"}])") << -1 << 1;
    QTest::newRow("text entry") << QByteArray(R"("message")") << -1 << 1;
    QTest::newRow("number entry") << QByteArray("42") << -1 << 1;
    QTest::newRow("uuid a number") << QByteArray(R"({"uuid": 1234, "sender": "user"})") << 0 << 0;
    QTest::newRow("uuid a fraction") << QByteArray(R"({"uuid": 12.5, "sender": "user"})") << 0 << 0;
    QTest::newRow("uuid a flag") << QByteArray(R"({"uuid": true, "sender": "user"})") << -1 << 1;
    QTest::newRow("uuid an object")
        << QByteArray(R"({"uuid": {"id": null}, "sender": "user"})") << -1 << 1;
    QTest::newRow("sender a number") << QByteArray(R"({"uuid": "u", "sender": 7})") << -1 << 1;
    QTest::newRow("sender an object")
        << QByteArray(R"({"uuid": "u", "sender": {"who": "user", "x": null}})") << -1 << 1;
    QTest::newRow("sender in capitals")
        << QByteArray(R"({"uuid": "u", "sender": "Agent"})") << -1 << 1;
    QTest::newRow("scalars of other types")
        << QByteArray(R"({"uuid": "u", "sender": "agent", "text": 5, "userName": ["n"],
            "date": {"s": 1}, "offline": [true]})")
        << 0 << 0;
    QTest::newRow("location not an object")
        << QByteArray(R"({"uuid": "u", "sender": "user", "location": [48.8, null, 2.3]})") << 0
        << 1;
    QTest::newRow("location text") << QByteArray(R"({"uuid": "u", "sender": "user",
        "location": "Paris"})") << 0
                                   << 1;
    QTest::newRow("attachments an object")
        << QByteArray(R"({"uuid": "u", "sender": "user", "attachments": {"uuid": "a"}})") << 0 << 0;
    QTest::newRow("attachments of other kinds")
        << QByteArray(R"({"uuid": "u", "sender": "user", "attachments": ["a", 3, [], true]})") << 0
        << 4;

    // Numbers written as text, and text that is only partly a number.
    QTest::newRow("date as text") << QByteArray(R"({"uuid": "u", "sender": "user",
        "date": "1700000000.5"})") << 0
                                  << 0;
    QTest::newRow("date text then words") << QByteArray(R"({"uuid": "u", "sender": "user",
        "date": " -12.5e1 seconds"})") << 0
                                          << 0;
    QTest::newRow("date words only") << QByteArray(R"({"uuid": "u", "sender": "user",
        "date": "soon"})") << 0 << 0;
    QTest::newRow("offline as text and number")
        << QByteArray(R"({"uuid": "u", "sender": "user", "offline": "0"})") << 0 << 0;
    QTest::newRow("offline a number") << QByteArray(R"({"uuid": "u", "sender": "user",
        "offline": 2})") << 0 << 0;

    // Required members missing.
    QTest::newRow("no uuid") << QByteArray(R"({"sender": "user", "text": "x", "n": null})") << -1
                             << 1;
    QTest::newRow("no sender") << QByteArray(R"({"uuid": "u", "text": "x", "n": null})") << -1 << 1;
    QTest::newRow("empty object") << QByteArray("{}") << -1 << 1;

    // Attachments with bad members: each dropped with its line, the rest kept in order.
    QTest::newRow("bad attachments among good ones")
        << QByteArray(R"({"uuid": "u", "sender": "agent", "attachments": [
            {"uuid": "a1", "contentType": "application/pdf"},
            {"uuid": "a2"},
            {"contentType": "image/png", "z": null},
            {"uuid": 7, "contentType": "image/png"},
            {"uuid": "a5", "contentType": 5},
            {"uuid": "a6", "contentType": "video/mp4", "dataURL": 12, "previewURL": "::not a url",
             "length": "2048", "imageSize": ["640", "480"], "filename": 3},
            {"uuid": "a7", "contentType": "text/plain", "length": -5, "imageSize": [640],
             "dataURL": "https://h/files/a##1", "previewURL": "HTTPS://H/p#x#y"}]})")
        << 3 << 4;
}

void TestJSONReading::messagesReadAlike()
{
    QFETCH(QByteArray, entry);
    QFETCH(int, attachments);
    QFETCH(int, lines);
    const QJsonValue json = jsonValue(entry);
    const auto [message, fromJSON, jsonLines]
        = reading([&json] { return ZuveroChatMessage::initWithJSON(json); });
    const auto [_, fromVariants, variantLines] = reading([&json] {
        return ZuveroChatMessage::initWithPropertyList(
            ZuveroSkipNSNullRecursively(json.toVariant()));
    });
    QCOMPARE(fromJSON, fromVariants);
    QCOMPARE(jsonLines, variantLines);

    QCOMPARE(jsonLines.size(), lines);
    QCOMPARE(bool(message), attachments >= 0);
    if (message)
        QCOMPARE(message->attachments()->size(), attachments);
}

void TestJSONReading::attachmentsReadAlike_data()
{
    QTest::addColumn<QByteArray>("entry");
    QTest::addColumn<bool>("read");

    QTest::newRow("image") << QByteArray(R"({"uuid": "a", "contentType": "image/jpeg",
        "previewURL": "https://h/p/a?jwt=t", "dataURL": "https://h/f/a", "length": 1e3,
        "filename": "a.jpg", "icon": "pdf_icon", "imageSize": [1920.5, 1080, 3]})")
                           << true;
    QTest::newRow("document, plain address") << QByteArray(R"({"uuid": "b",
        "contentType": "application/vnd.openxmlformats-officedocument.spreadsheetml.sheet",
        "dataURL": "https://127.0.0.1:8443/api/1.0/files/b-1_2.x~y", "length": 4})")
                                             << true;
    QTest::newRow("plain addresses that QUrl normalises") << QByteArray(R"({"uuid": "b2",
        "contentType": "text/plain", "dataURL": "HTTPS://H.Example.COM:0443/Files/A-1",
        "previewURL": "http://0x7f.1/a/../b"})") << true;
    QTest::newRow("addresses that encoding changes") << QByteArray(R"({"uuid": "c",
        "contentType": "text/plain", "dataURL": "https://h/files/a##1",
        "previewURL": "HTTPS://H/x/%7e/p?q=%C3%A9&r=é#f#2"})")
                                                     << true;
    QTest::newRow("addresses QUrl refuses") << QByteArray(R"({"uuid": "c2",
        "contentType": "text/plain", "dataURL": "https://h/a b", "previewURL": "::"})")
                                            << true;
    QTest::newRow("nulls") << QByteArray(R"({"uuid": "d", "contentType": "image/png",
        "previewURL": null, "dataURL": null, "length": null, "filename": null,
        "imageSize": [null, 2, null, 3, 4]})")
                           << true;
    QTest::newRow("wrong types") << QByteArray(R"({"uuid": "e", "contentType": "image/png",
        "previewURL": 5, "dataURL": ["https://h/f"], "data": "AAEC", "length": "12 kB",
        "filename": true, "imageSize": {"w": 1, "h": 2}})")
                                 << true;
    QTest::newRow("size beyond single precision") << QByteArray(R"({"uuid": "f",
        "contentType": "image/png", "imageSize": [4.6e56, 3], "length": 1e30})")
                                                  << true;
    QTest::newRow("size of text and containers") << QByteArray(R"({"uuid": "g",
        "contentType": "image/png", "imageSize": ["640", {"x": null}]})")
                                                 << true;
    QTest::newRow("no uuid") << QByteArray(R"({"contentType": "image/png", "x": null})") << false;
    QTest::newRow("uuid a number")
        << QByteArray(R"({"uuid": 1, "contentType": "image/png"})") << false;
    QTest::newRow("no content type")
        << QByteArray(R"({"uuid": "h", "contentType": null})") << false;
    QTest::newRow("array") << QByteArray(R"([{"uuid": "i", "contentType": "image/png"}])") << false;
    QTest::newRow("null") << QByteArray("null") << false;
}

void TestJSONReading::attachmentsReadAlike()
{
    QFETCH(QByteArray, entry);
    QFETCH(bool, read);
    const QJsonValue json = jsonValue(entry);
    const auto [attachment, fromJSON, jsonLines]
        = reading([&json] { return ZuveroChatAttachment::initWithJSON(json); });
    const auto [_, fromVariants, variantLines] = reading([&json] {
        return ZuveroChatAttachment::initWithPropertyList(
            ZuveroSkipNSNullRecursively(json.toVariant()));
    });
    QCOMPARE(fromJSON, fromVariants);
    QCOMPARE(jsonLines, variantLines);
    QCOMPARE(jsonLines.size(), read ? 0 : 1);

    // An address read either way reads back equal from the written form.
    QCOMPARE(bool(attachment), read);
    if (attachment) {
        const ZuveroChatAttachmentPtr again
            = ZuveroChatAttachment::initWithPropertyList(attachment->propertyList());
        QCOMPARE(again->dataURL(), attachment->dataURL());
        QCOMPARE(again->previewURL(), attachment->previewURL());
    }
}

QTEST_GUILESS_MAIN(TestJSONReading)
#include "tst_jsonreading.moc"
