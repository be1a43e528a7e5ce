// The library against the golden wire fixtures: what it reads from a server's replies and push
// payloads, and the requests it sends, captured by a TLS server on loopback. Only the public
// headers: the library is seen as a host and a server see it.

#include "ZVXManualClock.h"
#include "ZVXTemporaryUserDefaults.h"
#include "ZVXTestCertificates.h"
#include "ZVXTestServer.h"
#include "ZVXWireFixtures.h"

#include <Zuvero/Zuvero.h>
#include <Zuvero/ZuveroCertificateAuthorities.h>

#include <QGuiApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const QString SecretHex = u"00112233445566778899aabbccddeeff"_s;

QJsonObject jsonOf(const QByteArray &bytes)
{
    return QJsonDocument::fromJson(bytes).object();
}

// The keys only a client's cache holds, which the wire never carries.
QJsonObject wireForm(QVariantMap dictionary)
{
    dictionary.remove(u"offline"_s);
    QVariantList attachments = dictionary.value(u"attachments"_s).toList();
    for (QVariant &attachment : attachments) {
        QVariantMap map = attachment.toMap();
        map.remove(u"icon"_s);
        attachment = map;
    }
    if (!attachments.isEmpty())
        dictionary.insert(u"attachments"_s, attachments);
    return QJsonObject::fromVariantMap(dictionary);
}

QString joined(const QStringList &lines)
{
    return lines.join(u"\n"_s);
}

} // namespace

class TestWireLibrary : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase() { ZuveroRemoveTrustedCertificateAuthorities(); }
    void init();
    void cleanup();
    void messageListReadsToItsValues();
    void messagesWriteBackTheWireKeys();
    void messageQueries();
    void pushPayloadReads();
    void registrationAndStatus();
    void sendBodyIsTheFixture();
    void markBodyIsTheFixture();
    void requestHeaders();

private:
    //! The requests that reached \a path ("/register"), in order.
    QList<ZVXTestRequest> requestsTo(const QString &path) const;
    ZuveroChatMessageList loadFixtureList();

    ZVXTestCertificates m_certificates;
    std::unique_ptr<ZVXTestServer> m_server;
    std::unique_ptr<ZVXTemporaryUserDefaults> m_defaults;
    std::unique_ptr<ZVXManualClock> m_clock;
    std::shared_ptr<ZuveroDelegate> m_delegate;
    std::unique_ptr<Zuvero> m_zuvero;
};

void TestWireLibrary::initTestCase()
{
    QVERIFY2(m_certificates.isValid(), qPrintable(m_certificates.errorString()));
    QCOMPARE(ZuveroAddTrustedCertificateAuthorities(m_certificates.trusted.authorityPem), 1);
    // What the register body names the host application by.
    QGuiApplication::setDesktopFileName(u"com.example.shop"_s);
    QCoreApplication::setApplicationVersion(u"2.4.1"_s);
}

void TestWireLibrary::init()
{
    m_server = std::make_unique<ZVXTestServer>(m_certificates.trusted.certificate,
                                               m_certificates.trusted.key);
    QVERIFY(m_server->isListening());
    // Each call answers with its fixture, so that the library reads those too.
    m_server->setHandler([](const ZVXTestRequest &request) {
        const QByteArray path = request.target.split('?').first();
        QString reply = u"status-reply.json"_s;
        if (path == "/api/1.0/register")
            reply = u"register-reply.json"_s;
        else if (path == "/api/1.0/messages" && request.method == "GET")
            reply = u"messages-reply.json"_s;
        return ZVXTestReply{
            200, {{"Content-Type", "application/json"}}, ZVXWire::fixtureBytes(reply)};
    });
    m_defaults = std::make_unique<ZVXTemporaryUserDefaults>();
    m_clock = std::make_unique<ZVXManualClock>(QDateTime::currentDateTimeUtc());
    // No chat screen and no banner: a push is only read.
    m_delegate = std::make_shared<ZuveroDelegate>();
    m_delegate->zuveroDisplayChatViewController = [](Zuvero *) {};
    m_delegate->zuveroShouldDisplayNotificationWithText
        = [](Zuvero *, const QString &) { return false; };
    m_zuvero.reset(
        Zuvero::initWithApiSecret(SecretHex, m_server->url(u""_s).authority(), m_delegate));
    m_zuvero->setUserIdentifier(u"ana"_s);
    m_zuvero->setUserName(u"Ana"_s);
    m_zuvero->setLanguage(u"de"_s);
    m_zuvero->setSdkVersion(u"2.4.1-shop"_s);
    m_zuvero->setDeviceToken(QByteArray::fromHex("0a1b2c3d4e5f60718293a4b5c6d7e8f9"));
}

void TestWireLibrary::cleanup()
{
    m_zuvero.reset();
    m_clock.reset();
    m_defaults.reset();
    m_server.reset();
}

QList<ZVXTestRequest> TestWireLibrary::requestsTo(const QString &path) const
{
    QList<ZVXTestRequest> found;
    for (const ZVXTestRequest &request : m_server->requests()) {
        if (request.target.split('?').first() == "/api/1.0" + path.toUtf8())
            found.append(request);
    }
    return found;
}

ZuveroChatMessageList TestWireLibrary::loadFixtureList()
{
    std::optional<ZuveroChatMessageList> messages;
    bool more = true, done = false;
    m_zuvero->connection()->loadMessageSinceDate(
        QDateTime(), 50,
        [&](const std::optional<ZuveroChatMessageList> &list, bool moreMessages,
            const ZuveroError &error) {
            messages = list;
            more = moreMessages;
            done = error.isNull();
        });
    if (!QTest::qWaitFor([&] { return done; }, 20000) || more)
        return {};
    return messages.value_or(ZuveroChatMessageList());
}

void TestWireLibrary::messageListReadsToItsValues()
{
    const ZuveroChatMessageList messages = loadFixtureList();
    const QJsonArray listed = ZVXWire::fixture(u"messages-reply.json"_s)[u"messages"_s].toArray();
    QCOMPARE(messages.size(), listed.size());
    QCOMPARE(m_zuvero->unreadCount(), 2);

    for (qsizetype i = 0; i < listed.size(); ++i) {
        const QJsonObject entry = listed.at(i).toObject();
        const ZuveroChatMessagePtr message = messages.at(i);
        QCOMPARE(message->uuid(), entry[u"uuid"_s].toString());
        QCOMPARE(message->sender(), entry[u"sender"_s].toString());
        QCOMPARE(message->date(),
                 QDateTime::fromSecsSinceEpoch(entry[u"date"_s].toInteger(), Qt::UTC));
        QCOMPARE(message->text().has_value(), entry.contains(u"text"_s));
        QCOMPARE(message->text().value_or(QString()), entry[u"text"_s].toString());
        QCOMPARE(message->userName().has_value(), entry.contains(u"userName"_s));
        QCOMPARE(message->userName().value_or(QString()), entry[u"userName"_s].toString());
        QCOMPARE(QJsonObject::fromVariantMap(message->locationDictionary().value_or(QVariantMap())),
                 entry[u"location"_s].toObject());
        QVERIFY(!message->isOffline());

        const QJsonArray files = entry[u"attachments"_s].toArray();
        QCOMPARE(message->attachments()->size(), files.size());
        for (qsizetype j = 0; j < files.size(); ++j) {
            const QJsonObject file = files.at(j).toObject();
            const ZuveroChatAttachmentPtr attachment = message->attachments()->at(j);
            QCOMPARE(attachment->uuid(), file[u"uuid"_s].toString());
            QCOMPARE(attachment->contentType(), file[u"contentType"_s].toString());
            QCOMPARE(attachment->filename(), file[u"filename"_s].toString());
            QCOMPARE(attachment->length(), quint64(file[u"length"_s].toInteger()));
            QCOMPARE(attachment->dataURL(), QUrl(file[u"dataURL"_s].toString()));
            QCOMPARE(attachment->previewURL(), QUrl(file[u"previewURL"_s].toString()));
            const QJsonArray size = file[u"imageSize"_s].toArray();
            QCOMPARE(attachment->imageSize(), QSizeF(size.at(0).toDouble(), size.at(1).toDouble()));
            QVERIFY(!attachment->data().has_value());
        }
    }

    // What the loop cannot see: a date read from its own spelling, and the kinds the senders and
    // content types make.
    QVERIFY(messages.at(0)->isUserMessage());
    QCOMPARE(messages.at(0)->date(), QDateTime(QDate(2023, 11, 14), QTime(22, 13, 20), Qt::UTC));
    QVERIFY(messages.at(1)->isAgentMessage());
    QVERIFY(messages.at(1)->attachments()->first()->isImage());
    QVERIFY(messages.at(2)->attachments()->first()->isValidDocument());
    QVERIFY(messages.at(4)->isSystemMessage());
}

void TestWireLibrary::messagesWriteBackTheWireKeys()
{
    const ZuveroChatMessageList messages = loadFixtureList();
    const QJsonArray listed = ZVXWire::fixture(u"messages-reply.json"_s)[u"messages"_s].toArray();
    QCOMPARE(messages.size(), listed.size());
    for (qsizetype i = 0; i < listed.size(); ++i) {
        const QJsonObject written = wireForm(messages.at(i)->propertyList());
        QVERIFY2(ZVXWire::differences(listed.at(i), written).isEmpty(),
                 qPrintable(joined(
                     ZVXWire::differences(listed.at(i), written, u"messages[%1]"_s.arg(i)))));
        // And what it wrote reads back as the same message.
        const ZuveroChatMessagePtr again
            = ZuveroChatMessage::initWithPropertyList(messages.at(i)->propertyList());
        QVERIFY(again && again->isEqual(*messages.at(i)));
        QCOMPARE(wireForm(again->propertyList()), written);
    }
}

void TestWireLibrary::messageQueries()
{
    const auto date = [](const QJsonValue &seconds) {
        return seconds.isNull()
            ? QDateTime()
            : QDateTime::fromMSecsSinceEpoch(qint64(seconds.toDouble() * 1000), Qt::UTC);
    };
    const QJsonArray queries = ZVXWire::fixture(u"message-queries.json"_s)[u"queries"_s].toArray();
    QVERIFY(!queries.isEmpty());
    for (const QJsonValue query : queries) {
        bool done = false;
        m_zuvero->connection()->loadMessageSinceDate(
            date(query[u"since"_s]), date(query[u"until"_s]), quint32(query[u"limit"_s].toInt()),
            [&](const std::optional<ZuveroChatMessageList> &, bool, const ZuveroError &) {
                done = true;
            });
        QTRY_VERIFY(done);
        QCOMPARE(QString::fromUtf8(requestsTo(u"/messages"_s).last().target),
                 query[u"target"_s].toString());
    }
}

void TestWireLibrary::pushPayloadReads()
{
    const QJsonObject payload = ZVXWire::fixture(u"push-payload.json"_s);
    const ZuveroChatMessagePtr message
        = ZuveroChatMessage::initWithRemoteNotificationPayload(payload.toVariantMap());
    QVERIFY(message);
    QCOMPARE(message->uuid(), u"3d2c1b0a-9f8e-4d7c-b6a5-948372615041"_s);
    QVERIFY(message->isAgentMessage());
    QCOMPARE(message->text(), payload[u"alert"_s].toString());
    // The payload's time keeps its fraction.
    QCOMPARE(message->date().toMSecsSinceEpoch(), 1700000060250);
    QVERIFY(message->hasAttachments());
    QVERIFY(!message->isTruncated());
    QVERIFY(message->attachments() && message->attachments()->isEmpty());

    // It is meant for this user, and its badge becomes the unread count.
    QVERIFY(m_zuvero->consumeReceivedRemoteNotification(payload.toVariantMap()));
    QCOMPARE(m_zuvero->unreadCount(), 1);
    m_zuvero->setUserIdentifier(u"bob"_s);
    QVERIFY(!m_zuvero->consumeReceivedRemoteNotification(payload.toVariantMap()));
}

void TestWireLibrary::registrationAndStatus()
{
    bool registered = false;
    m_zuvero->connection()->registerApp(
        [&](bool success, const ZuveroError &) { registered = success; });
    QTRY_VERIFY(registered);
    QVERIFY(!requestsTo(u"/register"_s).isEmpty());
    const ZVXTestRequest request = requestsTo(u"/register"_s).last();
    QCOMPARE(request.method, QByteArray("POST"));

    // Key for key; the device's own description varies, its form does not.
    const QJsonObject expected = ZVXWire::fixture(u"register-body.json"_s);
    QJsonObject body = jsonOf(request.body);
    static const QRegularExpression deviceInfo(u"^.+ \\(.+\\); .+ .+$"_s);
    QVERIFY2(deviceInfo.match(body[u"deviceInfo"_s].toString()).hasMatch(),
             qPrintable(body[u"deviceInfo"_s].toString()));
    body[u"deviceInfo"_s] = expected[u"deviceInfo"_s];
    QVERIFY2(ZVXWire::differences(expected, body).isEmpty(),
             qPrintable(joined(ZVXWire::differences(expected, body))));

    // What the reply held.
    QCOMPARE(m_zuvero->pollingInterval(), 5.0);
    QCOMPARE(m_zuvero->welcomeMessage(), u"Hello! How can we help you today?"_s);
    QCOMPARE(m_zuvero->unreadCount(), 0);

    qint64 count = -1;
    m_zuvero->connection()->loadUserStatus(
        [&](qint64 unread, const ZuveroError &) { count = unread; });
    QTRY_COMPARE(count, 1);
}

void TestWireLibrary::sendBodyIsTheFixture()
{
    const QJsonObject expected = ZVXWire::fixture(u"send-message.json"_s);
    const QByteArray file = ZVXWire::fixtureBytes(u"receipt.txt"_s);
    auto attachment = ZuveroChatAttachment::init();
    attachment->setUuid(expected[u"attachments"_s][0][u"uuid"_s].toString());
    attachment->setContentType(u"text/plain"_s);
    attachment->setData(file);
    // An attachment without its bytes is not sent, nor listed.
    auto unsent = ZuveroChatAttachment::init();
    unsent->setContentType(u"image/png"_s);
    const ZuveroChatMessagePtr message = ZuveroChatMessage::initWithText(
        expected[u"text"_s].toString(), ZuveroChatAttachmentList{attachment, unsent});
    message->setUuid(expected[u"uuid"_s].toString());
    m_zuvero->setMessageContextInfo(expected[u"context"_s].toObject().toVariantMap());

    bool sent = false;
    m_zuvero->connection()->sendChatMessage(
        message, [&](bool success, const ZuveroError &) { sent = success; });
    QTRY_VERIFY(sent);
    QCOMPARE(requestsTo(u"/messages"_s).size(), 1);
    const ZVXTestRequest request = requestsTo(u"/messages"_s).first();
    QCOMPARE(request.method, QByteArray("POST"));
    QCOMPARE(request.headers.value("content-type"),
             ZVXWire::fixtureBytes(u"send-content-type.txt"_s));

    // Byte for byte, but for the JSON's key order and spacing.
    const std::optional<ZVXWire::SplitBody> sentBody = ZVXWire::splitMessagePart(request.body);
    const std::optional<ZVXWire::SplitBody> fixtureBody
        = ZVXWire::splitMessagePart(ZVXWire::fixtureBytes(u"send-body.multipart"_s));
    QVERIFY(sentBody && fixtureBody);
    QCOMPARE(sentBody->withoutMessage, fixtureBody->withoutMessage);
    QVERIFY(fixtureBody->withoutMessage.contains(file));
    QCOMPARE(jsonOf(fixtureBody->message), expected);
    QVERIFY2(ZVXWire::differences(expected, jsonOf(sentBody->message)).isEmpty(),
             qPrintable(joined(ZVXWire::differences(expected, jsonOf(sentBody->message)))));
    // A context goes with one message only.
    QVERIFY(!m_zuvero->messageContextInfo());
}

void TestWireLibrary::markBodyIsTheFixture()
{
    const ZuveroChatMessageList messages = loadFixtureList();
    QCOMPARE(messages.size(), 5);
    bool marked = false;
    m_zuvero->connection()->markReadMessages(
        {messages.at(1)}, [&](bool success, const ZuveroError &) { marked = success; });
    QTRY_VERIFY(marked);
    QCOMPARE(requestsTo(u"/mark_messages"_s).size(), 1);
    const ZVXTestRequest request = requestsTo(u"/mark_messages"_s).first();
    QCOMPARE(request.method, QByteArray("POST"));
    const QJsonObject expected = ZVXWire::fixture(u"mark-body.json"_s);
    QVERIFY2(ZVXWire::differences(expected, jsonOf(request.body)).isEmpty(),
             qPrintable(joined(ZVXWire::differences(expected, jsonOf(request.body)))));
}

void TestWireLibrary::requestHeaders()
{
    // One call of each kind; registration comes first by itself.
    loadFixtureList();
    bool done = false;
    m_zuvero->connection()->markReadMessages({ZuveroChatMessage::initWithAgentText(u"x"_s)},
                                             [&](bool, const ZuveroError &) { done = true; });
    QTRY_VERIFY(done);
    done = false;
    m_zuvero->connection()->sendChatMessage(ZuveroChatMessage::initWithText(u"x"_s),
                                            [&](bool, const ZuveroError &) { done = true; });
    QTRY_VERIFY(done);
    done = false;
    m_zuvero->connection()->loadUserStatus([&](qint64, const ZuveroError &) { done = true; });
    QTRY_VERIFY(done);

    const QJsonObject expected = ZVXWire::fixture(u"api-request-headers.json"_s);
    QSet<QByteArray> paths;
    for (const ZVXTestRequest &request : m_server->requests()) {
        const QByteArray path = request.target.split('?').first();
        paths.insert(request.method + ' ' + path);
        for (auto it = expected.begin(); it != expected.end(); ++it) {
            const QByteArray name = it.key().toLatin1();
            QVERIFY2(request.headers.contains(name.toLower()),
                     qPrintable(u"%1 %2 has no %3"_s.arg(QString::fromLatin1(request.method),
                                                         QString::fromLatin1(path), it.key())));
            QByteArray wanted = it.value().toString().toUtf8();
            if (name == "X-ZVL-JWT")
                wanted = m_zuvero->jwt()->toUtf8();
            else if (name == "Content-Type" && request.method == "POST"
                     && path.endsWith("/messages"))
                wanted = ZVXWire::fixtureBytes(u"send-content-type.txt"_s);
            QCOMPARE(request.headers.value(name.toLower()), wanted);
        }
    }
    QCOMPARE(paths,
             (QSet<QByteArray>{"POST /api/1.0/register", "GET /api/1.0/messages",
                               "POST /api/1.0/mark_messages", "POST /api/1.0/messages",
                               "GET /api/1.0/status"}));
}

QTEST_MAIN(TestWireLibrary)
#include "tst_wire_library.moc"
