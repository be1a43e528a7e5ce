#include "ZVXJSON.h"
#include "ZVXLogCapture.h"
#include "ZVXManualClock.h"
#include "ZuveroChatMessage.h"
#include "ZuveroException.h"

#include <QRegularExpression>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

// Parses JSON text as the server or the cache would hand it over.
QVariant json(const char *text)
{
    return ZVXJSON::parse(QByteArray(text)).value_or(QVariant());
}

// Writes the message as JSON text and reads it back, as a cache round trip does.
ZuveroChatMessagePtr throughJSONText(const ZuveroChatMessage &message)
{
    const QByteArray text = *ZVXJSON::serialize(message.propertyList());
    return ZuveroChatMessage::initWithPropertyList(ZVXJSON::parse(text).value_or(QVariant()));
}

} // namespace

class TestChatMessage : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void roundTripThroughJSONText();
    void rejectedDictionaries_data();
    void rejectedDictionaries();
    void absentAndEmptyValues();
    void localMessages();
    void payloads_data();
    void payloads();
};

void TestChatMessage::roundTripThroughJSONText()
{
    ZVXLogCapture log;
    const auto message = ZuveroChatMessage::initWithPropertyList(json(R"({
        "uuid": "5b0f6a0e-3c1d-4e8f-9a2b-7c6d5e4f3a21", "sender": "agent",
        "text": "Grüße 👋 — «ok»?", "userName": "Zoë", "date": 1700000000.75, "offline": 1,
        "location": {"lat": 48.8584, "lng": 2.2945, "d": 1200.5, "address": "Champ de Mars",
                     "floor": 3, "tags": ["a", null]},
        "attachments": [
            {"uuid": "a1", "contentType": "image/png", "previewURL": "https://h/p?jwt=x&s=1",
             "dataURL": "https://h/d/%C3%BC.png", "length": 12345, "filename": "ü.png",
             "icon": "bogus", "imageSize": [640, 480, 3]},
            {"uuid": "broken"},
            {"uuid": "a3", "contentType": "application/pdf"}]})"));
    QVERIFY(message);
    QCOMPARE(log.lines(),
             QStringList{QStringLiteral(
                 "ZVX: ZuveroChatAttachment: missing 'contentType' value in property "
                 "list: {\"uuid\":\"broken\"}")});
    QCOMPARE(message->text(), u"Grüße 👋 — «ok»?"_s);
    QCOMPARE(message->date().toMSecsSinceEpoch(), 1700000000750);
    QVERIFY(message->isOffline() && message->isAgentMessage());
    QCOMPARE(message->attachments()->size(), 2);

    const auto again = throughJSONText(*message);
    QVERIFY(again);
    QCOMPARE(*again, *message);
    QCOMPARE(again->propertyList(), message->propertyList());
    // The fraction of a second is dropped on writing; the location is kept whole.
    QCOMPARE(again->date().toSecsSinceEpoch(), 1700000000);
    QCOMPARE(message->propertyList().value(u"date"_s), QVariant(qint32(1700000000)));
    QCOMPARE(again->locationDictionary(), message->locationDictionary());
    QCOMPARE(again->locationDictionary()->value(u"floor"_s), QVariant(3));
    const ZuveroChatAttachmentPtr first = again->attachments()->first();
    QCOMPARE(first->imageSize(), QSizeF(640, 480));
    QCOMPARE(first->dataURL().toString(QUrl::FullyEncoded), u"https://h/d/%C3%BC.png"_s);
    QCOMPARE(first->icon(), u"unknown_icon"_s);
    QCOMPARE(first->filename(), u"ü.png"_s);
}

void TestChatMessage::rejectedDictionaries_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QString>("line");
    QTest::newRow("list") << json(
        "[1, 2]") << "ZuveroChatMessage: property list is not a dictionary: QVariantList [1,2]";
    QTest::newRow("no uuid")
        << json(R"({"sender": "user"})")
        << R"(ZuveroChatMessage: missing 'uuid' value in property list: {"sender":"user"})";
    QTest::newRow("no sender")
        << json(R"({"uuid": "u"})")
        << R"(ZuveroChatMessage: missing 'sender' value in property list: {"uuid":"u"})";
    QTest::newRow("sender case")
        << json(R"({"uuid": "u", "sender": "Agent"})")
        << "ZuveroChatMessage: unknown 'sender' value in property list: Agent";
}

void TestChatMessage::rejectedDictionaries()
{
    QFETCH(QVariant, value);
    QFETCH(QString, line);
    ZVXLogCapture log;
    QVERIFY(!ZuveroChatMessage::initWithPropertyList(value));
    QCOMPARE(log.lines(), QStringList{u"ZVX: "_s + line});
}

void TestChatMessage::absentAndEmptyValues()
{
    // No date reads as 1970, not as now; an empty list is written as no list and read as empty.
    const auto read = ZuveroChatMessage::initWithPropertyList(
        json(R"({"uuid": "u", "sender": "system", "date": "12.5 seconds", "attachments": []})"));
    QCOMPARE(read->date().toMSecsSinceEpoch(), 12500);
    const auto undated
        = ZuveroChatMessage::initWithPropertyList(json(R"({"uuid": "u", "sender": "user"})"));
    QCOMPARE(undated->date().toMSecsSinceEpoch(), 0);
    QVERIFY(!read->propertyList().contains(u"attachments"_s));
    QCOMPARE(undated->attachments(), ZuveroChatAttachmentList());
    QVERIFY(!undated->text() && !undated->propertyList().contains(u"text"_s));

    // Equality: identifiers and attachment lists, with an absent list unlike an empty one.
    ZuveroChatMessage a, b;
    b.setUuid(a.uuid());
    a.setText(u"one"_s);
    b.setText(u"two"_s);
    QCOMPARE(a, b);
    QCOMPARE(qHash(a), qHash(b));
    b.setAttachments(ZuveroChatAttachmentList());
    QVERIFY(!(a == b));
    auto attachment = ZuveroChatAttachment::init();
    a.setAttachments(ZuveroChatAttachmentList{attachment});
    b.setAttachments(ZuveroChatAttachmentList{std::make_shared<ZuveroChatAttachment>(*attachment)});
    QCOMPARE(a, b);
}

void TestChatMessage::localMessages()
{
    ZVXManualClock clock;
    const auto message = ZuveroChatMessage::initWithText(u"hi"_s);
    QVERIFY(QRegularExpression(u"^[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}$"_s)
                .match(message->uuid())
                .hasMatch());
    QCOMPARE(message->uploadProgress(), 1.0);
    QVERIFY(message->isUserMessage() && !message->isOffline());
    QCOMPARE(message->date(), clock.now());
    QVERIFY(ZuveroChatMessage::initWithText(std::nullopt, ZuveroChatAttachmentPtr())
                ->attachments()
                ->isEmpty());
    QVERIFY(!ZuveroChatMessage::initWithAgentText(u"a"_s)->attachments());
    QCOMPARE(ZuveroChatMessage::initWithSystemText(u"Welcome"_s)->sender(), u"system"_s);
    QCOMPARE(message->propertyListIncludingData(), message->propertyList());
    const auto withFile = ZuveroChatMessage::initWithText(u"f"_s, ZuveroChatAttachment::init());
    QVERIFY_THROWS_EXCEPTION(ZuveroException, withFile->propertyListIncludingData());

    message->setIsOffline(true);
    const QString expected = QStringLiteral("uuid = %1\ntext = hi\nisOffline = 1\ndate = "
                                            "2023-11-14 22:13:20 +0000\n----------")
                                 .arg(message->uuid());
    QVERIFY(message->description().startsWith(u"----------\n<ZuveroChatMessage: 0x"_s));
    QVERIFY(message->description().endsWith(expected));
}

void TestChatMessage::payloads_data()
{
    QTest::addColumn<QVariant>("payload");
    QTest::addColumn<QString>("sender"); // empty: no message
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("line"); // empty: nothing logged

    QTest::newRow("no code is an agent") << json(
        R"({"alert": "top", "aps": {"alert": "inner"}, "appdata": {"t": "m", "uuid": "1"}})")
                                         << "agent"
                                         << "top"
                                         << "";
    QTest::newRow("user, alert under aps")
        << json(R"({"aps": {"alert": "inner"}, "appdata": {"t": "m", "uuid": "1", "s": "u",
                    "tr": true, "a": 1, "d": 1700000000.5, "l": {"lat": 1.5, "lng": 2}}})")
        << "user"
        << "inner"
        << "";
    QTest::newRow("system, no alert")
        << json(R"({"appdata": {"t": "m", "uuid": "1", "s": "s"}})") << "system"
        << ""
        << "";
    QTest::newRow("unknown code")
        << json(R"({"appdata": {"t": "m", "uuid": "1", "s": "x"}})") << ""
        << ""
        << "ZuveroChatMessage: unknown sender 's' value in remote notification payload: x";
    QTest::newRow("another kind") << json(R"({"appdata": {"t": "b", "uuid": "1"}})") << ""
                                  << ""
                                  << "";
    QTest::newRow("no app data")
        << json(R"({"aps": {}})") << ""
        << ""
        << "ZuveroChatMessage: remote notification payload is not a dictionary: (null) (null)";
    QTest::newRow("no uuid")
        << json(R"({"appdata": {"t": "m"}})") << ""
        << ""
        << R"(ZuveroChatMessage: missing 'uuid' value in remote notification payload: {"t":"m"})";
}

void TestChatMessage::payloads()
{
    QFETCH(QVariant, payload);
    QFETCH(QString, sender);
    QFETCH(QString, text);
    QFETCH(QString, line);
    ZVXLogCapture log;
    const auto message = ZuveroChatMessage::initWithRemoteNotificationPayload(payload.toMap());
    QCOMPARE(log.lines(), line.isEmpty() ? QStringList() : QStringList{u"ZVX: "_s + line});
    QCOMPARE(bool(message), !sender.isEmpty());
    if (!message)
        return;
    QCOMPARE(message->sender(), sender);
    QCOMPARE(message->text(), text);
    QCOMPARE(message->attachments(), ZuveroChatAttachmentList());
    const QVariantMap data = payload.toMap().value(u"appdata"_s).toMap();
    QCOMPARE(message->isTruncated(), data.value(u"tr"_s).toBool());
    QCOMPARE(message->hasAttachments(), data.value(u"a"_s).toBool());
    QCOMPARE(message->date().toMSecsSinceEpoch(), qint64(data.value(u"d"_s).toDouble() * 1000));
    QCOMPARE(message->locationDictionary().value_or(QVariantMap()), data.value(u"l"_s).toMap());
}

QTEST_GUILESS_MAIN(TestChatMessage)
#include "tst_chatmessage.moc"
