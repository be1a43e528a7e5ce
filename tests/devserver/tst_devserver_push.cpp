#include "ZVXDevServerProcess.h"
#include "ZVXJSON.h"
#include "ZVXJWT.h"
#include "ZuveroChatMessage.h"

#include <QImage>
#include <QTest>
#include <QUuid>

using namespace Qt::StringLiterals;

namespace {

QString installationOf(const QString &token)
{
    return ZVXJWT::getPayloadNSDict(token).toMap().value(u"installationId"_s).toString();
}

QString newUUID()
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces);
}

} // namespace

class TestDevServerPush : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase() { QVERIFY2(m_server.stop(), "the server ends cleanly"); }
    void agentRepliesArePushedToEachDevice();
    void streamsAreForRegisteredDevices();
    void theBotAnswers();
    void tilesAreDrawn();

private:
    std::unique_ptr<ZVXDevClient> registeredDevice(const QString &userId);

    ZVXDevServerProcess m_server;
};

void TestDevServerPush::initTestCase()
{
    QVERIFY(m_server.start({u"--open"_s}));
}

std::unique_ptr<ZVXDevClient> TestDevServerPush::registeredDevice(const QString &userId)
{
    auto client
        = std::make_unique<ZVXDevClient>(m_server,
                                         ZVXDevSign({{u"apiKey"_s, u"k"_s},
                                                     {u"userId"_s, userId},
                                                     {u"installationId"_s, newUUID().toUpper()}},
                                                    "any"));
    client->postJSON(u"/api/1.0/register"_s, {{u"deviceToken"_s, u"00ff"_s}});
    return client;
}

void TestDevServerPush::agentRepliesArePushedToEachDevice()
{
    auto phone = registeredDevice(u"ann"_s);
    auto laptop = registeredDevice(u"ann"_s);
    ZVXDevPushStream phoneStream(*phone), laptopStream(*laptop);
    QTRY_VERIFY(phoneStream.connected() && laptopStream.connected());

    // The user's own message is not pushed back; the agent's answer is.
    QCOMPARE(phone->send({{u"uuid"_s, newUUID()}, {u"text"_s, u"Hello?"_s}}).status, 200);
    const qint64 conversation = phone->conversationId(u"userId"_s, u"ann"_s);
    QCOMPARE(phone->agentReply(conversation, u"Hello Ann!"_s).status, 200);
    QTRY_COMPARE(phoneStream.events().size(), 1);
    QTRY_COMPARE(laptopStream.events().size(), 1);

    const auto [id, payload] = phoneStream.events().first();
    const QVariantMap appData = payload.value(u"appdata"_s).toMap();
    QCOMPARE(appData.value(u"uid"_s).toString(), u"ann"_s);
    QCOMPARE(appData.value(u"i"_s).toString(), installationOf(phone->token));
    QCOMPARE(
        laptopStream.events().first().second.value(u"appdata"_s).toMap().value(u"i"_s).toString(),
        installationOf(laptop->token));
    QCOMPARE(payload.value(u"badge"_s), QVariant(1));
    QCOMPARE(appData.value(u"zuvero"_s).toString(), u"1.0"_s);
    QVERIFY(qAbs(appData.value(u"d"_s).toDouble() - QDateTime::currentSecsSinceEpoch()) < 60);

    // What the library makes of it: the agent's message, as the message list has it.
    const ZuveroChatMessagePtr message
        = ZuveroChatMessage::initWithRemoteNotificationPayload(payload);
    QVERIFY(message);
    QCOMPARE(message->uuid(), id);
    QCOMPARE(message->text(), u"Hello Ann!"_s);
    QVERIFY(message->isAgentMessage());
    QVERIFY(!message->isTruncated());
    const QVariantList listed
        = phone->get(u"/api/1.0/messages"_s).json().value(u"messages"_s).toList();
    QCOMPARE(listed.last().toMap().value(u"uuid"_s).toString(), id);

    // A long reply is cut in the payload and marked so; the badge counts both replies.
    QCOMPARE(phone->agentReply(conversation, QString(300, QLatin1Char('x'))).status, 200);
    QTRY_COMPARE(phoneStream.events().size(), 2);
    const QVariantMap second = phoneStream.events().last().second;
    const ZuveroChatMessagePtr truncated
        = ZuveroChatMessage::initWithRemoteNotificationPayload(second);
    QVERIFY(truncated && truncated->isTruncated());
    QCOMPARE(truncated->text()->size(), 160);
    QCOMPARE(second.value(u"badge"_s), QVariant(2));
}

void TestDevServerPush::streamsAreForRegisteredDevices()
{
    ZVXDevClient stranger(m_server,
                          ZVXDevSign({{u"installationId"_s, u"never-registered"_s}}, "any"));
    ZVXDevPushStream unregistered(stranger);
    QTRY_VERIFY(unregistered.reply()->isFinished());
    QCOMPARE(unregistered.status(), 404);
    ZVXDevClient anonymous(m_server, {});
    ZVXDevPushStream withoutToken(anonymous);
    QTRY_VERIFY(withoutToken.reply()->isFinished());
    QCOMPARE(withoutToken.status(), 401);

    // Browsers' EventSource cannot set headers: the token may come in the query.
    auto device = registeredDevice(u"bob"_s);
    ZVXDevClient viaQuery(m_server, {});
    QNetworkReply *reply
        = viaQuery.manager().get(viaQuery.request(u"/api/1.0/push?jwt="_s + device->token));
    QByteArray received;
    QObject::connect(reply, &QIODevice::readyRead, reply, [&] { received += reply->readAll(); });
    QTRY_VERIFY(received.startsWith(": connected"));
    reply->abort();
    reply->deleteLater();
}

void TestDevServerPush::theBotAnswers()
{
    ZVXDevServerProcess server;
    QVERIFY(server.start(
        {u"--open"_s, u"--bot"_s, u"--bot-delay"_s, u"10"_s, u"--agent-name"_s, u"Robo"_s}));
    ZVXDevClient user(server, ZVXDevSign({{u"installationId"_s, u"B-1"_s}}, "any"));
    QCOMPARE(user.send({{u"uuid"_s, newUUID()}, {u"text"_s, u"Is anyone there?"_s}}).status, 200);
    QVariantList messages;
    QTRY_VERIFY(
        (messages = user.get(u"/api/1.0/messages"_s).json().value(u"messages"_s).toList()).size()
        == 2);
    const QVariantMap answer = messages.last().toMap();
    QCOMPARE(answer.value(u"sender"_s).toString(), u"agent"_s);
    QCOMPARE(answer.value(u"userName"_s).toString(), u"Robo"_s);
    QVERIFY(answer.value(u"text"_s).toString().contains(u"Is anyone there?"_s));
    QCOMPARE(user.get(u"/api/1.0/status"_s).json().value(u"unreadCount"_s), QVariant(1));
}

void TestDevServerPush::tilesAreDrawn()
{
    ZVXDevClient client(m_server, {});
    const ZVXDevReply tile = client.get(u"/tiles/3/7/0.png"_s);
    QCOMPARE(tile.status, 200);
    QCOMPARE(tile.contentType, QByteArray("image/png"));
    const QImage image = QImage::fromData(tile.body, "PNG");
    QCOMPARE(image.size(), QSize(256, 256));
    // Each tile is labelled, so two tiles differ.
    QVERIFY(image != QImage::fromData(client.get(u"/tiles/3/7/1.png"_s).body, "PNG"));
    for (const char *missing : {"/tiles/3/8/0.png", "/tiles/23/0/0.png", "/tiles/a/0/0.png"})
        QCOMPARE(client.get(QLatin1String(missing)).status, 404);
}

QTEST_MAIN(TestDevServerPush)
#include "tst_devserver_push.moc"
