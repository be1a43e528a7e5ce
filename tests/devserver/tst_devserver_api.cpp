#include "ZVXDevServerProcess.h"
#include "ZuveroData.h"

#include <QBuffer>
#include <QImage>
#include <QTemporaryFile>
#include <QTest>
#include <QUuid>

namespace {

QByteArray pngOf(int width, int height)
{
    QImage image(width, height, QImage::Format_RGB32);
    image.fill(Qt::darkCyan);
    QByteArray png;
    QBuffer buffer(&png);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return png;
}

QString newUUID()
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces);
}

} // namespace

class TestDevServerAPI : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void conversationRoundTrip();
    void pagesByDate();
    void tokensAreChecked_data();
    void tokensAreChecked();
    void openAndKeyOnlyModes();
    void sendingIsIdempotent();
    void badInputIsRefused_data();
    void badInputIsRefused();
    void curlSpeaksToo();
    void restartKeepsData();

private:
    QVariantMap claims(const QString &installationId, const QString &userId = {}) const;
    std::unique_ptr<ZVXDevClient> newUser(const QString &userId = {});
    qint64 conversationId(ZVXDevClient &client, const QString &installationId);

    QByteArray m_secret = ZuveroRandomDataWithLength(32);
    QString m_apiKey = *ZuveroHexStringFromData(ZuveroSHA256(m_secret));
    ZVXDevServerProcess m_server;
    QString m_lastInstallation;
};

void TestDevServerAPI::initTestCase()
{
    QVERIFY(m_server.start({QStringLiteral("--api-secret"), QString::fromLatin1(m_secret.toHex()),
                            QStringLiteral("--max-upload-mb"), QStringLiteral("1"),
                            QStringLiteral("--welcome-message"), QStringLiteral("Hi there!"),
                            QStringLiteral("--polling-interval"), QStringLiteral("7.5")}));
}

QVariantMap TestDevServerAPI::claims(const QString &installationId, const QString &userId) const
{
    QVariantMap claims{{QStringLiteral("apiKey"), m_apiKey},
                       {QStringLiteral("installationId"), installationId},
                       {QStringLiteral("userName"), QStringLiteral("Zoë")}};
    if (!userId.isEmpty())
        claims.insert(QStringLiteral("userId"), userId);
    return claims;
}

std::unique_ptr<ZVXDevClient> TestDevServerAPI::newUser(const QString &userId)
{
    m_lastInstallation = newUUID().toUpper();
    return std::make_unique<ZVXDevClient>(m_server,
                                          ZVXDevSign(claims(m_lastInstallation, userId), m_secret));
}

qint64 TestDevServerAPI::conversationId(ZVXDevClient &client, const QString &installationId)
{
    const QVariantList list = client.get(QStringLiteral("/console/api/conversations"))
                                  .json()
                                  .value(QStringLiteral("conversations"))
                                  .toList();
    for (const QVariant &entry : list) {
        if (entry.toMap().value(QStringLiteral("installationId")) == installationId)
            return entry.toMap().value(QStringLiteral("id")).toLongLong();
    }
    return 0;
}

void TestDevServerAPI::conversationRoundTrip()
{
    auto user = newUser(QStringLiteral("user-42"));
    const QString installation = m_lastInstallation;

    ZVXDevReply reply = user->postJSON(
        QStringLiteral("/api/1.0/register"),
        {{QStringLiteral("deviceToken"), QStringLiteral("0a1b2c3d")},
         {QStringLiteral("apns"), QStringLiteral("development")},
         {QStringLiteral("appId"), QStringLiteral("org.example.Host")},
         {QStringLiteral("appVersion"), QStringLiteral("17")},
         {QStringLiteral("deviceInfo"), QStringLiteral("Desktop (Desktop); Linux 6.1")}});
    QCOMPARE(reply.status, 200);
    QVariantMap json = reply.json();
    QCOMPARE(json.value(QStringLiteral("unreadCount")), QVariant(0));
    QCOMPARE(json.value(QStringLiteral("pollingInterval")).toDouble(), 7.5);
    QCOMPARE(
        json.value(QStringLiteral("sourceInfo")).toMap().value(QStringLiteral("welcomeMessage")),
        QVariant(QStringLiteral("Hi there!")));

    // One message with two files, in the library's exact multipart form.
    const QByteArray png = pngOf(1000, 500);
    const QByteArray notes = "Printer model: LX-100\n";
    const QString uuid = newUUID(), picture = newUUID(), document = newUUID();
    reply
        = user->send({{QStringLiteral("uuid"), uuid},
                      {QStringLiteral("sender"), QStringLiteral("user")},
                      {QStringLiteral("text"), QStringLiteral("It smokes ☹")},
                      {QStringLiteral("location"),
                       QVariantMap{{QStringLiteral("lat"), 48.85}, {QStringLiteral("lng"), 2.35}}},
                      {QStringLiteral("context"), QVariantMap{{QStringLiteral("screen"), 3}}},
                      {QStringLiteral("attachments"),
                       QVariantList{QVariantMap{{QStringLiteral("uuid"), picture}},
                                    QVariantMap{{QStringLiteral("uuid"), document}}}}},
                     {{picture, "image/png", png}, {document, "text/plain", notes}});
    QCOMPARE(reply.status, 200);
    QCOMPARE(reply.json().value(QStringLiteral("unreadCount")), QVariant(0));

    reply = user->get(QStringLiteral("/api/1.0/messages?"));
    QCOMPARE(reply.status, 200);
    json = reply.json();
    QCOMPARE(json.value(QStringLiteral("moreMessages")), QVariant(false));
    const QVariantList messages = json.value(QStringLiteral("messages")).toList();
    QCOMPARE(messages.size(), 1);
    const QVariantMap message = messages.first().toMap();
    QCOMPARE(message.value(QStringLiteral("uuid")).toString(), uuid);
    QCOMPARE(message.value(QStringLiteral("sender")).toString(), QStringLiteral("user"));
    QCOMPARE(message.value(QStringLiteral("text")).toString(), QStringLiteral("It smokes ☹"));
    QCOMPARE(message.value(QStringLiteral("userName")).toString(), QStringLiteral("Zoë"));
    QCOMPARE(message.value(QStringLiteral("location")).toMap().value(QStringLiteral("lat")),
             QVariant(48.85));
    QVERIFY(qAbs(message.value(QStringLiteral("date")).toLongLong()
                 - QDateTime::currentSecsSinceEpoch())
            < 60);
    QVERIFY2(!message.contains(QStringLiteral("context")), "the context is for agents only");

    const QVariantList attachments = message.value(QStringLiteral("attachments")).toList();
    QCOMPARE(attachments.size(), 2);
    const QVariantMap image = attachments.at(0).toMap(), text = attachments.at(1).toMap();
    QCOMPARE(image.value(QStringLiteral("uuid")).toString(), picture);
    QCOMPARE(image.value(QStringLiteral("contentType")).toString(), QStringLiteral("image/png"));
    QCOMPARE(image.value(QStringLiteral("length")).toLongLong(), png.size());
    QCOMPARE(image.value(QStringLiteral("imageSize")), QVariant(QVariantList{1000.0, 500.0}));
    QCOMPARE(text.value(QStringLiteral("contentType")).toString(), QStringLiteral("text/plain"));
    QVERIFY2(!text.contains(QStringLiteral("previewURL")), "only pictures have previews");

    // Files come back from absolute https URLs, with the token in the query.
    const QString dataURL = image.value(QStringLiteral("dataURL")).toString();
    QCOMPARE(dataURL, m_server.origin() + QStringLiteral("/api/1.0/files/") + picture);
    ZVXDevClient files(m_server, {});
    QCOMPARE(files.get(dataURL + QStringLiteral("?jwt=") + user->token).body, png);
    QCOMPARE(files
                 .get(text.value(QStringLiteral("dataURL")).toString() + QStringLiteral("?a=1&jwt=")
                      + user->token)
                 .body,
             notes);
    QCOMPARE(files.get(dataURL).status, 401);
    const QImage preview
        = QImage::fromData(files
                               .get(image.value(QStringLiteral("previewURL")).toString()
                                    + QStringLiteral("?jwt=") + user->token)
                               .body);
    QCOMPARE(preview.size(), QSize(480, 240));
    // Another user cannot fetch them.
    auto stranger = newUser();
    QCOMPARE(files.get(dataURL + QStringLiteral("?jwt=") + stranger->token).status, 404);

    // Two agent replies: unread until the user marks them read.
    const qint64 id = conversationId(*user, installation);
    QVERIFY(id > 0);
    QCOMPARE(user->agentReply(id, QStringLiteral("On it.")).status, 200);
    QCOMPARE(user->agentReply(id, QStringLiteral("Unplug it, please.")).status, 200);
    QCOMPARE(
        user->get(QStringLiteral("/api/1.0/status")).json().value(QStringLiteral("unreadCount")),
        QVariant(2));
    const QVariantList all = user->get(QStringLiteral("/api/1.0/messages"))
                                 .json()
                                 .value(QStringLiteral("messages"))
                                 .toList();
    QCOMPARE(all.size(), 3);
    QCOMPARE(all.at(1).toMap().value(QStringLiteral("sender")).toString(), QStringLiteral("agent"));
    QCOMPARE(all.at(1).toMap().value(QStringLiteral("userName")).toString(),
             QStringLiteral("Support"));
    reply = user->postJSON(
        QStringLiteral("/api/1.0/mark_messages"),
        {{QStringLiteral("readMessageUUIDs"),
          QVariantList{all.at(1).toMap().value(QStringLiteral("uuid")), uuid}},
         {QStringLiteral("lastReadMessageDate"), all.at(1).toMap().value(QStringLiteral("date"))}});
    QCOMPARE(reply.status, 200);
    QCOMPARE(reply.json().value(QStringLiteral("unreadCount")), QVariant(1));
    QCOMPARE(
        user->get(QStringLiteral("/api/1.0/status")).json().value(QStringLiteral("unreadCount")),
        QVariant(1));
}

void TestDevServerAPI::pagesByDate()
{
    auto user = newUser();
    QStringList sent;
    for (int i = 0; i < 6; ++i) {
        sent.append(newUUID());
        QCOMPARE(user->send({{QStringLiteral("uuid"), sent.last()},
                             {QStringLiteral("sender"), QStringLiteral("user")},
                             {QStringLiteral("text"), QString::number(i)}})
                     .status,
                 200);
    }
    const auto page = [&](const QString &query) {
        const QVariantMap json = user->get(QStringLiteral("/api/1.0/messages?") + query).json();
        QStringList uuids;
        QList<qint64> dates;
        for (const QVariant &message : json.value(QStringLiteral("messages")).toList()) {
            uuids.append(message.toMap().value(QStringLiteral("uuid")).toString());
            dates.append(message.toMap().value(QStringLiteral("date")).toLongLong());
        }
        return std::make_tuple(uuids, dates, json.value(QStringLiteral("moreMessages")).toBool());
    };

    // No date: the newest page, oldest first, and whether older ones exist.
    const auto [all, dates, allMore] = page(QString());
    QCOMPARE(all, sent);
    QVERIFY(!allMore);
    QCOMPARE(page(QStringLiteral("limit=2")), std::make_tuple(sent.mid(4), dates.mid(4), true));
    QCOMPARE(page(QStringLiteral("limit=6&")), std::make_tuple(sent, dates, false));

    // The dates are the server's clock: check the windows against the dates it gave.
    const qint64 first = dates.first(), last = dates.last();
    for (const qint64 date : {first, last}) {
        const auto [since, sinceDates, sinceMore] = page(QStringLiteral("since=%1&").arg(date));
        QCOMPARE(sinceDates, QList<qint64>(dates.begin() + dates.indexOf(date), dates.end()));
        QCOMPARE(sinceMore, date > first);
        const auto [until, untilDates, untilMore] = page(QStringLiteral("until=%1&").arg(date));
        QCOMPARE(untilDates,
                 QList<qint64>(dates.begin(), dates.begin() + dates.lastIndexOf(date) + 1));
        QVERIFY(!untilMore);
    }
    // "since" pages forward from its date: a client catching up walks through in order.
    QCOMPARE(std::get<0>(page(QStringLiteral("since=%1&limit=2").arg(first))), sent.mid(0, 2));
    QCOMPARE(std::get<0>(page(QStringLiteral("until=%1&limit=2").arg(last))), sent.mid(4));
    const auto [after, afterDates, afterMore] = page(QStringLiteral("since=%1&").arg(last + 1));
    QVERIFY(after.isEmpty());
    QVERIFY(afterMore);
    QVERIFY(std::get<0>(page(QStringLiteral("until=%1&").arg(first - 1))).isEmpty());
}

void TestDevServerAPI::tokensAreChecked_data()
{
    QTest::addColumn<QString>("token");
    QTest::addColumn<int>("status");
    const QString installation = newUUID().toUpper();
    QVariantMap wrongKey = claims(installation);
    wrongKey.insert(QStringLiteral("apiKey"), QStringLiteral("0123"));
    QVariantMap anonymous = claims(installation);
    anonymous.remove(QStringLiteral("installationId"));
    const QString good = ZVXDevSign(claims(installation), m_secret);

    QTest::newRow("HS256") << good << 200;
    QTest::newRow("HS512") << ZVXDevSign(claims(installation), m_secret, QStringLiteral("HS512"))
                           << 200;
    QTest::newRow("user id only") << ZVXDevSign(
        {{QStringLiteral("apiKey"), m_apiKey}, {QStringLiteral("userId"), QStringLiteral("u")}},
        m_secret) << 200;
    QTest::newRow("missing") << QString() << 401;
    QTest::newRow("garbage") << QStringLiteral("not.a.token") << 401;
    QTest::newRow("other secret") << ZVXDevSign(claims(installation), "other secret") << 401;
    QTest::newRow("changed signature") << good.left(good.size() - 2)
            + (good.endsWith(QLatin1String("AA")) ? QStringLiteral("BB") : QStringLiteral("AA"))
                                       << 401;
    QTest::newRow("other API key") << ZVXDevSign(wrongKey, m_secret) << 401;
    QTest::newRow("nobody") << ZVXDevSign(anonymous, m_secret) << 401;
    const QString unsigned_ = QString::fromLatin1(
        QByteArray(R"({"alg":"none","typ":"JWT"})")
            .toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals)
        + '.'
        + ZVXDevSign(claims(installation), m_secret).section(QLatin1Char('.'), 1, 1).toLatin1()
        + '.');
    QTest::newRow("alg none") << unsigned_ << 401;
}

void TestDevServerAPI::tokensAreChecked()
{
    QFETCH(QString, token);
    QFETCH(int, status);
    ZVXDevClient client(m_server, token);
    for (const ZVXDevReply &reply :
         {client.get(QStringLiteral("/api/1.0/status")),
          client.postJSON(QStringLiteral("/api/1.0/register"), {}),
          client.get(QStringLiteral("/api/1.0/messages?limit=1")),
          client.postJSON(QStringLiteral("/api/1.0/mark_messages"),
                          {{QStringLiteral("readMessageUUIDs"), QVariantList{}}})}) {
        QCOMPARE(reply.status, status);
        if (status == 401) {
            QVERIFY(reply.json()
                        .value(QStringLiteral("error"))
                        .toString()
                        .startsWith(QLatin1String("unauthorized")));
            QVERIFY(!reply.json().value(QStringLiteral("localizedError")).toString().isEmpty());
        }
    }
}

void TestDevServerAPI::openAndKeyOnlyModes()
{
    const QVariantMap someone{{QStringLiteral("apiKey"), QStringLiteral("any key")},
                              {QStringLiteral("installationId"), QStringLiteral("I-1")}};
    ZVXDevServerProcess open;
    QVERIFY(open.start({QStringLiteral("--open")}));
    QCOMPARE(ZVXDevClient(open, ZVXDevSign(someone, "whatever"))
                 .get(QStringLiteral("/api/1.0/status"))
                 .status,
             200);
    QCOMPARE(
        ZVXDevClient(open, QStringLiteral("a.b.c")).get(QStringLiteral("/api/1.0/status")).status,
        401);

    ZVXDevServerProcess keyOnly;
    QVERIFY(keyOnly.start({QStringLiteral("--api-key"), QStringLiteral("any key")}));
    QCOMPARE(ZVXDevClient(keyOnly, ZVXDevSign(someone, "whatever"))
                 .get(QStringLiteral("/api/1.0/status"))
                 .status,
             200);
    QVariantMap other = someone;
    other.insert(QStringLiteral("apiKey"), QStringLiteral("another key"));
    QCOMPARE(ZVXDevClient(keyOnly, ZVXDevSign(other, "whatever"))
                 .get(QStringLiteral("/api/1.0/status"))
                 .status,
             401);

    // A server with nothing to check tokens against refuses to start.
    ZVXDevServerProcess nothing;
    QVERIFY(!nothing.start({}));
}

void TestDevServerAPI::sendingIsIdempotent()
{
    auto user = newUser();
    const QString uuid = newUUID(), file = newUUID();
    const QVariantMap message{
        {QStringLiteral("uuid"), uuid},
        {QStringLiteral("sender"), QStringLiteral("user")},
        {QStringLiteral("text"), QStringLiteral("once")},
        {QStringLiteral("attachments"), QVariantList{QVariantMap{{QStringLiteral("uuid"), file}}}}};
    const QList<ZVXDevClient::File> files{{file, "application/pdf", "%PDF-1.4 ..."}};
    QCOMPARE(user->send(message, files).status, 200);

    // A retry, and several at once: all succeed, one message stays.
    QList<QNetworkReply *> replies;
    for (int i = 0; i < 5; ++i) {
        QNetworkRequest request = user->request(QStringLiteral("/api/1.0/messages"));
        request.setHeader(QNetworkRequest::ContentTypeHeader,
                          QByteArray("multipart/form-data; boundary=") + ZVXDevClient::Boundary);
        replies.append(user->manager().post(request, ZVXDevClient::multipartBody(message, files)));
    }
    for (QNetworkReply *reply : replies)
        QCOMPARE(ZVXDevClient::wait(reply).status, 200);
    const QVariantList messages = user->get(QStringLiteral("/api/1.0/messages"))
                                      .json()
                                      .value(QStringLiteral("messages"))
                                      .toList();
    QCOMPARE(messages.size(), 1);
    QCOMPARE(messages.first().toMap().value(QStringLiteral("attachments")).toList().size(), 1);

    // The same uuid from someone else is a conflict, not a success.
    auto other = newUser();
    const ZVXDevReply conflict = other->send(message, files);
    QCOMPARE(conflict.status, 409);
    QVERIFY(conflict.json().contains(QStringLiteral("error")));
    QVERIFY(other->get(QStringLiteral("/api/1.0/messages"))
                .json()
                .value(QStringLiteral("messages"))
                .toList()
                .isEmpty());
}

void TestDevServerAPI::badInputIsRefused_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QByteArray>("contentType");
    QTest::addColumn<int>("status");
    const QByteArray multipart
        = QByteArray("multipart/form-data; boundary=") + ZVXDevClient::Boundary;
    const auto message
        = [](const QVariantMap &object) { return ZVXDevClient::multipartBody(object, {}); };
    const QString messages = QStringLiteral("/api/1.0/messages");
    QTest::newRow("register: not JSON")
        << QStringLiteral("/api/1.0/register") << QByteArray("{\"appId\":")
        << QByteArray("application/json") << 400;
    QTest::newRow("register: not an object")
        << QStringLiteral("/api/1.0/register") << QByteArray("[1]")
        << QByteArray("application/json") << 400;
    QTest::newRow("register: wrong type")
        << QStringLiteral("/api/1.0/register") << QByteArray("{\"appId\":5}")
        << QByteArray("application/json") << 400;
    QTest::newRow("register: token not hex")
        << QStringLiteral("/api/1.0/register") << QByteArray("{\"deviceToken\":\"xyz\"}")
        << QByteArray("application/json") << 400;
    QTest::newRow("mark: not a list")
        << QStringLiteral("/api/1.0/mark_messages") << QByteArray("{\"readMessageUUIDs\":\"a\"}")
        << QByteArray("application/json") << 400;
    QTest::newRow("send: JSON body")
        << messages << QByteArray("{}") << QByteArray("application/json") << 400;
    QTest::newRow("send: no boundary")
        << messages << QByteArray("--X\r\n\r\n--X--") << QByteArray("multipart/form-data") << 400;
    QTest::newRow("send: unterminated")
        << messages << ZVXDevClient::multipartBody({}, {}).chopped(40) << multipart << 400;
    QTest::newRow("send: malformed JSON")
        << messages << ZVXDevClient::multipartBody({}, {}).replace("{}", "{]") << multipart << 400;
    QTest::newRow("send: no uuid")
        << messages << message({{QStringLiteral("text"), QStringLiteral("a")}}) << multipart << 400;
    QTest::newRow("send: uuid with a slash")
        << messages << message({{QStringLiteral("uuid"), QStringLiteral("../x")}}) << multipart
        << 400;
    QTest::newRow("send: as an agent")
        << messages
        << message({{QStringLiteral("uuid"), QStringLiteral("m1")},
                    {QStringLiteral("sender"), QStringLiteral("agent")}})
        << multipart << 400;
    QTest::newRow("send: missing file part")
        << messages
        << message({{QStringLiteral("uuid"), QStringLiteral("m2")},
                    {QStringLiteral("attachments"),
                     QVariantList{QVariantMap{{QStringLiteral("uuid"), QStringLiteral("f")}}}}})
        << multipart << 400;
    QTest::newRow("send: too large")
        << messages
        << ZVXDevClient::multipartBody(
               {{QStringLiteral("uuid"), QStringLiteral("m3")},
                {QStringLiteral("attachments"),
                 QVariantList{QVariantMap{{QStringLiteral("uuid"), QStringLiteral("f")}}}}},
               {{QStringLiteral("f"), "application/zip", QByteArray(1100 * 1024, 'z')}})
        << multipart << 413;
    QTest::newRow("no such call") << QStringLiteral("/api/1.0/nothing") << QByteArray("{}")
                                  << QByteArray("application/json") << 404;
}

void TestDevServerAPI::badInputIsRefused()
{
    QFETCH(QString, path);
    QFETCH(QByteArray, body);
    QFETCH(QByteArray, contentType);
    QFETCH(int, status);
    auto user = newUser();
    const ZVXDevReply reply = user->post(path, body, contentType);
    QCOMPARE(reply.status, status);
    QVERIFY2(!reply.json().value(QStringLiteral("error")).toString().isEmpty(),
             reply.body.constData());
    // Nothing was stored, and the server carries on.
    const ZVXDevReply after = user->get(QStringLiteral("/api/1.0/messages"));
    QCOMPARE(after.status, 200);
    QVERIFY(after.json().value(QStringLiteral("messages")).toList().isEmpty());
    for (const char *query : {"since=abc", "until=1e400", "limit=-1", "limit=ten"})
        QCOMPARE(user->get(QStringLiteral("/api/1.0/messages?") + QLatin1String(query)).status,
                 400);
}

void TestDevServerAPI::curlSpeaksToo()
{
    auto user = newUser();
    const QStringList token{QStringLiteral("--header"),
                            QStringLiteral("X-ZVL-JWT: ") + user->token};
    const QString api = m_server.origin() + QStringLiteral("/api/1.0");
    ZVXDevCurl curl = ZVXDevRunCurl(m_server,
                                    token
                                        + QStringList{QStringLiteral("--json"),
                                                      QStringLiteral("{\"appId\":\"curl\"}"),
                                                      api + QStringLiteral("/register")});
    QCOMPARE(curl.exitCode, 0);
    QVERIFY(curl.output.contains("\"unreadCount\":0"));

    // curl's own multipart form, which ends with a line break.
    QTemporaryFile a, b;
    QVERIFY(a.open() && b.open());
    a.write("first file");
    b.write("second file");
    a.flush();
    b.flush();
    curl = ZVXDevRunCurl(
        m_server,
        token
            + QStringList{
                QStringLiteral("--form"),
                QStringLiteral(
                    R"(message={"uuid":"curl-1","sender":"user","text":"from curl","attachments":[{"uuid":"curl-a","filename":"a.txt"},{"uuid":"curl-b"}]};type=application/json)"),
                QStringLiteral("--form"),
                QStringLiteral("curl-a=@%1;type=text/plain").arg(a.fileName()),
                QStringLiteral("--form"),
                QStringLiteral("curl-b=@%1;filename=b.txt;type=text/plain").arg(b.fileName()),
                api + QStringLiteral("/messages")});
    QCOMPARE(curl.exitCode, 0);
    curl = ZVXDevRunCurl(m_server,
                         token + QStringList{api + QStringLiteral("/messages?since=0&limit=5&")});
    const QVariantList attachments = ZVXDevReply{QNetworkReply::NoError, 200, curl.output, {}}
                                         .json()
                                         .value(QStringLiteral("messages"))
                                         .toList()
                                         .value(0)
                                         .toMap()
                                         .value(QStringLiteral("attachments"))
                                         .toList();
    QCOMPARE(attachments.size(), 2);
    QCOMPARE(attachments.at(0).toMap().value(QStringLiteral("filename")).toString(),
             QStringLiteral("a.txt"));
    QCOMPARE(attachments.at(1).toMap().value(QStringLiteral("filename")).toString(),
             QStringLiteral("b.txt"));
    curl = ZVXDevRunCurl(m_server,
                         {attachments.at(1).toMap().value(QStringLiteral("dataURL")).toString()
                          + QStringLiteral("?jwt=") + user->token});
    QCOMPARE(curl.output, QByteArray("second file"));

    // Verification stays on: without the server's authority curl refuses it.
    QProcess untrusting;
    untrusting.start(QStringLiteral("curl"),
                     {QStringLiteral("--silent"), api + QStringLiteral("/status")});
    QVERIFY(untrusting.waitForFinished(60000));
    QCOMPARE(untrusting.exitCode(), 60);
}

void TestDevServerAPI::restartKeepsData()
{
    auto user = newUser();
    const QString uuid = newUUID(), file = newUUID();
    QCOMPARE(user->send({{QStringLiteral("uuid"), uuid},
                         {QStringLiteral("sender"), QStringLiteral("user")},
                         {QStringLiteral("attachments"),
                          QVariantList{QVariantMap{{QStringLiteral("uuid"), file}}}}},
                        {{file, "image/png", pngOf(20, 10)}})
                 .status,
             200);
    QFile authority(m_server.authorityPath());
    QVERIFY(authority.open(QIODevice::ReadOnly));
    const QByteArray before = authority.readAll();

    QVERIFY2(m_server.restart(), "the server stops cleanly and starts again");
    QFile again(m_server.authorityPath());
    QVERIFY(again.open(QIODevice::ReadOnly));
    QCOMPARE(again.readAll(), before);

    // A fresh client that trusts the same authority finds everything.
    ZVXDevClient client(m_server, user->token);
    const QVariantList messages = client.get(QStringLiteral("/api/1.0/messages"))
                                      .json()
                                      .value(QStringLiteral("messages"))
                                      .toList();
    QCOMPARE(messages.size(), 1);
    QCOMPARE(messages.first().toMap().value(QStringLiteral("uuid")).toString(), uuid);
    const QString preview = messages.first()
                                .toMap()
                                .value(QStringLiteral("attachments"))
                                .toList()
                                .first()
                                .toMap()
                                .value(QStringLiteral("previewURL"))
                                .toString();
    QCOMPARE(
        QImage::fromData(client.get(preview + QStringLiteral("?jwt=") + user->token).body).size(),
        QSize(20, 10));
}

QTEST_MAIN(TestDevServerAPI)
#include "tst_devserver_api.moc"
