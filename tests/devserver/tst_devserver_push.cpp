#include "ZVXDevServerProcess.h"
#include "ZVXJSON.h"
#include "ZVXJWT.h"
#include "ZuveroChatMessage.h"

#include <QImage>
#include <QTest>
#include <QUuid>

namespace {

// The push stream of one device, read as it arrives.
class PushStream
{
public:
    PushStream(ZVXDevClient &client)
        : m_reply(client.manager().get(client.request(QStringLiteral("/api/1.0/push"))))
    {
        QObject::connect(m_reply, &QIODevice::readyRead, m_reply,
                         [this] { m_received += m_reply->readAll(); });
    }
    ~PushStream()
    {
        m_reply->abort();
        m_reply->deleteLater();
    }

    bool connected() const { return m_received.contains(": connected\n\n"); }
    int status() const
    {
        return m_reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    }
    QNetworkReply *reply() const { return m_reply; }

    //! The payloads of the events received so far, with their ids.
    QList<QPair<QString, QVariantMap>> events() const
    {
        QList<QPair<QString, QVariantMap>> events;
        for (const QByteArray &block : m_received.split('\n')) {
            if (block.startsWith("id: "))
                events.append({QString::fromUtf8(block.mid(4)), {}});
            else if (block.startsWith("data: ") && !events.isEmpty())
                events.last().second = ZVXJSON::parse(block.mid(6)).value_or(QVariant()).toMap();
        }
        return events;
    }

private:
    QNetworkReply *m_reply;
    QByteArray m_received;
};

QString installationOf(const QString &token)
{
    return ZVXJWT::getPayloadNSDict(token)
        .toMap()
        .value(QStringLiteral("installationId"))
        .toString();
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
    void agentRepliesArePushedToEachDevice();
    void streamsAreForRegisteredDevices();
    void theBotAnswers();
    void tilesAreDrawn();

private:
    std::unique_ptr<ZVXDevClient> registeredDevice(const QString &userId);
    qint64 conversationOf(const QString &userId);

    ZVXDevServerProcess m_server;
};

void TestDevServerPush::initTestCase()
{
    QVERIFY(m_server.start({QStringLiteral("--open")}));
}

std::unique_ptr<ZVXDevClient> TestDevServerPush::registeredDevice(const QString &userId)
{
    auto client = std::make_unique<ZVXDevClient>(
        m_server,
        ZVXDevSign({{QStringLiteral("apiKey"), QStringLiteral("k")},
                    {QStringLiteral("userId"), userId},
                    {QStringLiteral("installationId"), newUUID().toUpper()}},
                   "any"));
    client->postJSON(QStringLiteral("/api/1.0/register"),
                     {{QStringLiteral("deviceToken"), QStringLiteral("00ff")}});
    return client;
}

qint64 TestDevServerPush::conversationOf(const QString &userId)
{
    ZVXDevClient console(m_server, {});
    for (const QVariant &entry : console.get(QStringLiteral("/console/api/conversations"))
                                     .json()
                                     .value(QStringLiteral("conversations"))
                                     .toList()) {
        if (entry.toMap().value(QStringLiteral("userId")) == userId)
            return entry.toMap().value(QStringLiteral("id")).toLongLong();
    }
    return 0;
}

void TestDevServerPush::agentRepliesArePushedToEachDevice()
{
    auto phone = registeredDevice(QStringLiteral("ann"));
    auto laptop = registeredDevice(QStringLiteral("ann"));
    PushStream phoneStream(*phone), laptopStream(*laptop);
    QTRY_VERIFY(phoneStream.connected() && laptopStream.connected());

    // The user's own message is not pushed back; the agent's answer is.
    QCOMPARE(phone
                 ->send({{QStringLiteral("uuid"), newUUID()},
                         {QStringLiteral("text"), QStringLiteral("Hello?")}})
                 .status,
             200);
    const qint64 conversation = conversationOf(QStringLiteral("ann"));
    QCOMPARE(phone->agentReply(conversation, QStringLiteral("Hello Ann!")).status, 200);
    QTRY_COMPARE(phoneStream.events().size(), 1);
    QTRY_COMPARE(laptopStream.events().size(), 1);

    const auto [id, payload] = phoneStream.events().first();
    const QVariantMap appData = payload.value(QStringLiteral("appdata")).toMap();
    QCOMPARE(appData.value(QStringLiteral("uid")).toString(), QStringLiteral("ann"));
    QCOMPARE(appData.value(QStringLiteral("i")).toString(), installationOf(phone->token));
    QCOMPARE(laptopStream.events()
                 .first()
                 .second.value(QStringLiteral("appdata"))
                 .toMap()
                 .value(QStringLiteral("i"))
                 .toString(),
             installationOf(laptop->token));
    QCOMPARE(payload.value(QStringLiteral("badge")), QVariant(1));
    QCOMPARE(appData.value(QStringLiteral("zuvero")).toString(), QStringLiteral("1.0"));
    QVERIFY(qAbs(appData.value(QStringLiteral("d")).toDouble() - QDateTime::currentSecsSinceEpoch())
            < 60);

    // What the library makes of it: the agent's message, as the message list has it.
    const ZuveroChatMessagePtr message
        = ZuveroChatMessage::initWithRemoteNotificationPayload(payload);
    QVERIFY(message);
    QCOMPARE(message->uuid(), id);
    QCOMPARE(message->text(), QStringLiteral("Hello Ann!"));
    QVERIFY(message->isAgentMessage());
    QVERIFY(!message->isTruncated());
    const QVariantList listed = phone->get(QStringLiteral("/api/1.0/messages"))
                                    .json()
                                    .value(QStringLiteral("messages"))
                                    .toList();
    QCOMPARE(listed.last().toMap().value(QStringLiteral("uuid")).toString(), id);

    // A long reply is cut in the payload and marked so; the badge counts both replies.
    QCOMPARE(phone->agentReply(conversation, QString(300, QLatin1Char('x'))).status, 200);
    QTRY_COMPARE(phoneStream.events().size(), 2);
    const QVariantMap second = phoneStream.events().last().second;
    const ZuveroChatMessagePtr truncated
        = ZuveroChatMessage::initWithRemoteNotificationPayload(second);
    QVERIFY(truncated && truncated->isTruncated());
    QCOMPARE(truncated->text()->size(), 160);
    QCOMPARE(second.value(QStringLiteral("badge")), QVariant(2));
}

void TestDevServerPush::streamsAreForRegisteredDevices()
{
    ZVXDevClient stranger(
        m_server,
        ZVXDevSign({{QStringLiteral("installationId"), QStringLiteral("never-registered")}},
                   "any"));
    PushStream unregistered(stranger);
    QTRY_VERIFY(unregistered.reply()->isFinished());
    QCOMPARE(unregistered.status(), 404);
    ZVXDevClient anonymous(m_server, {});
    PushStream withoutToken(anonymous);
    QTRY_VERIFY(withoutToken.reply()->isFinished());
    QCOMPARE(withoutToken.status(), 401);

    // Browsers' EventSource cannot set headers: the token may come in the query.
    auto device = registeredDevice(QStringLiteral("bob"));
    ZVXDevClient viaQuery(m_server, {});
    QNetworkReply *reply = viaQuery.manager().get(
        viaQuery.request(QStringLiteral("/api/1.0/push?jwt=") + device->token));
    QByteArray received;
    QObject::connect(reply, &QIODevice::readyRead, reply, [&] { received += reply->readAll(); });
    QTRY_VERIFY(received.startsWith(": connected"));
    reply->abort();
    reply->deleteLater();
}

void TestDevServerPush::theBotAnswers()
{
    ZVXDevServerProcess server;
    QVERIFY(server.start({QStringLiteral("--open"), QStringLiteral("--bot"),
                          QStringLiteral("--bot-delay"), QStringLiteral("10"),
                          QStringLiteral("--agent-name"), QStringLiteral("Robo")}));
    ZVXDevClient user(
        server, ZVXDevSign({{QStringLiteral("installationId"), QStringLiteral("B-1")}}, "any"));
    QCOMPARE(user.send({{QStringLiteral("uuid"), newUUID()},
                        {QStringLiteral("text"), QStringLiteral("Is anyone there?")}})
                 .status,
             200);
    QVariantList messages;
    QTRY_VERIFY((messages = user.get(QStringLiteral("/api/1.0/messages"))
                                .json()
                                .value(QStringLiteral("messages"))
                                .toList())
                    .size()
                == 2);
    const QVariantMap answer = messages.last().toMap();
    QCOMPARE(answer.value(QStringLiteral("sender")).toString(), QStringLiteral("agent"));
    QCOMPARE(answer.value(QStringLiteral("userName")).toString(), QStringLiteral("Robo"));
    QVERIFY(answer.value(QStringLiteral("text"))
                .toString()
                .contains(QStringLiteral("Is anyone there?")));
    QCOMPARE(
        user.get(QStringLiteral("/api/1.0/status")).json().value(QStringLiteral("unreadCount")),
        QVariant(1));
}

void TestDevServerPush::tilesAreDrawn()
{
    ZVXDevClient client(m_server, {});
    const ZVXDevReply tile = client.get(QStringLiteral("/tiles/3/7/0.png"));
    QCOMPARE(tile.status, 200);
    QCOMPARE(tile.contentType, QByteArray("image/png"));
    const QImage image = QImage::fromData(tile.body, "PNG");
    QCOMPARE(image.size(), QSize(256, 256));
    // Each tile is labelled, so two tiles differ.
    QVERIFY(image != QImage::fromData(client.get(QStringLiteral("/tiles/3/7/1.png")).body, "PNG"));
    for (const char *missing : {"/tiles/3/8/0.png", "/tiles/23/0/0.png", "/tiles/a/0/0.png"})
        QCOMPARE(client.get(QLatin1String(missing)).status, 404);
}

QTEST_MAIN(TestDevServerPush)
#include "tst_devserver_push.moc"
