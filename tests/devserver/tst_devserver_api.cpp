#include "ZVXDevServerProcess.h"
#include "ZVXMultipart.h"
#include "ZuveroChatMessage.h"
#include "ZuveroData.h"

#include <QBuffer>
#include <QImage>
#include <QTemporaryFile>
#include <QTest>
#include <QUuid>

using namespace Qt::StringLiterals;

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
    void cleanupTestCase() { QVERIFY2(m_server.stop(), "the server ends cleanly"); }
    void conversationRoundTrip();
    void pagesByDate();
    void tokensAreChecked_data();
    void tokensAreChecked();
    void openAndKeyOnlyModes();
    void sendingIsIdempotent();
    void badInputIsRefused_data();
    void badInputIsRefused();
    void curlSpeaksToo();
    void systemMessagesFromTheConsole();
    void restartKeepsData();

private:
    QVariantMap claims(const QString &installationId, const QString &userId = {}) const;
    std::unique_ptr<ZVXDevClient> newUser(const QString &userId = {});

    QByteArray m_secret = ZuveroRandomDataWithLength(32);
    QString m_apiKey = *ZuveroHexStringFromData(ZuveroSHA256(m_secret));
    ZVXDevServerProcess m_server;
    QString m_lastInstallation;
};

void TestDevServerAPI::initTestCase()
{
    QVERIFY(m_server.start({u"--api-secret"_s, QString::fromLatin1(m_secret.toHex()),
                            u"--max-upload-mb"_s, u"1"_s, u"--welcome-message"_s, u"Hi there!"_s,
                            u"--polling-interval"_s, u"7.5"_s}));
}

QVariantMap TestDevServerAPI::claims(const QString &installationId, const QString &userId) const
{
    QVariantMap claims{
        {u"apiKey"_s, m_apiKey}, {u"installationId"_s, installationId}, {u"userName"_s, u"Zoë"_s}};
    if (!userId.isEmpty())
        claims.insert(u"userId"_s, userId);
    return claims;
}

std::unique_ptr<ZVXDevClient> TestDevServerAPI::newUser(const QString &userId)
{
    m_lastInstallation = newUUID().toUpper();
    return std::make_unique<ZVXDevClient>(m_server,
                                          ZVXDevSign(claims(m_lastInstallation, userId), m_secret));
}

void TestDevServerAPI::conversationRoundTrip()
{
    auto user = newUser(u"user-42"_s);
    const QString installation = m_lastInstallation;

    ZVXDevReply reply = user->postJSON(u"/api/1.0/register"_s,
                                       {{u"deviceToken"_s, u"0a1b2c3d"_s},
                                        {u"apns"_s, u"development"_s},
                                        {u"appId"_s, u"org.example.Host"_s},
                                        {u"appVersion"_s, u"17"_s},
                                        {u"deviceInfo"_s, u"Desktop (Desktop); Linux 6.1"_s}});
    QCOMPARE(reply.status, 200);
    QVariantMap json = reply.json();
    QCOMPARE(json.value(u"unreadCount"_s), QVariant(0));
    QCOMPARE(json.value(u"pollingInterval"_s).toDouble(), 7.5);
    QCOMPARE(json.value(u"sourceInfo"_s).toMap().value(u"welcomeMessage"_s),
             QVariant(u"Hi there!"_s));

    // One message with two files, in the library's exact multipart form.
    const QByteArray png = pngOf(1000, 500);
    const QByteArray notes = "Printer model: LX-100\n";
    const QString uuid = newUUID(), picture = newUUID(), document = newUUID();
    reply = user->send(
        {{u"uuid"_s, uuid},
         {u"sender"_s, u"user"_s},
         {u"text"_s, u"It smokes ☹"_s},
         {u"location"_s, QVariantMap{{u"lat"_s, 48.85}, {u"lng"_s, 2.35}}},
         {u"context"_s, QVariantMap{{u"screen"_s, 3}}},
         {u"attachments"_s,
          QVariantList{QVariantMap{{u"uuid"_s, picture}}, QVariantMap{{u"uuid"_s, document}}}}},
        {{picture, "image/png", png}, {document, "text/plain", notes}});
    QCOMPARE(reply.status, 200);
    QCOMPARE(reply.json().value(u"unreadCount"_s), QVariant(0));

    // The listing, read by the library's own parser.
    json = user->get(u"/api/1.0/messages?"_s).json();
    QCOMPARE(json.value(u"moreMessages"_s), QVariant(false));
    const QVariantList messages = json.value(u"messages"_s).toList();
    QCOMPARE(messages.size(), 1);
    QVERIFY2(!messages.first().toMap().contains(u"context"_s), "the context is for agents only");
    const ZuveroChatMessagePtr message = ZuveroChatMessage::initWithPropertyList(messages.first());
    QVERIFY(message);
    QCOMPARE(message->uuid(), uuid);
    QVERIFY(message->isUserMessage());
    QCOMPARE(message->text(), u"It smokes ☹"_s);
    QCOMPARE(message->userName(), u"Zoë"_s);
    QCOMPARE(message->locationDictionary()->value(u"lat"_s), QVariant(48.85));
    QVERIFY(qAbs(message->date().secsTo(QDateTime::currentDateTimeUtc())) < 60);
    QCOMPARE(message->attachments()->size(), 2);
    const ZuveroChatAttachmentPtr image = message->attachments()->at(0);
    const ZuveroChatAttachmentPtr text = message->attachments()->at(1);
    QCOMPARE(image->uuid(), picture);
    QCOMPARE(image->contentType(), u"image/png"_s);
    QCOMPARE(image->length(), quint64(png.size()));
    QCOMPARE(image->imageSize(), QSizeF(1000, 500));
    QCOMPARE(text->contentType(), u"text/plain"_s);
    QVERIFY2(text->previewURL().isEmpty(), "only pictures have previews");

    // Files come from absolute https URLs, with the token in the query.
    const QString dataURL = image->dataURL().toString();
    QCOMPARE(dataURL, m_server.origin() + u"/api/1.0/files/"_s + picture);
    ZVXDevClient files(m_server, {});
    QCOMPARE(files.get(dataURL + u"?jwt="_s + user->token).body, png);
    QCOMPARE(files.get(text->dataURL().toString() + u"?a=1&jwt="_s + user->token).body, notes);
    QCOMPARE(files.get(dataURL).status, 401);
    const QString previewURL = image->previewURL().toString() + u"?jwt="_s + user->token;
    QCOMPARE(QImage::fromData(files.get(previewURL).body).size(), QSize(480, 240));
    // Another user cannot fetch them.
    QCOMPARE(files.get(dataURL + u"?jwt="_s + newUser()->token).status, 404);

    // Two agent replies: unread until the user marks them read.
    const qint64 id = user->conversationId(u"installationId"_s, installation);
    QVERIFY(id > 0);
    QCOMPARE(user->agentReply(id, u"On it."_s).status, 200);
    QCOMPARE(user->agentReply(id, u"Unplug it, please."_s).status, 200);
    QCOMPARE(user->get(u"/api/1.0/status"_s).json().value(u"unreadCount"_s), QVariant(2));
    const QVariantList all = user->get(u"/api/1.0/messages"_s).json().value(u"messages"_s).toList();
    QCOMPARE(all.size(), 3);
    QCOMPARE(all.at(1).toMap().value(u"sender"_s).toString(), u"agent"_s);
    QCOMPARE(all.at(1).toMap().value(u"userName"_s).toString(), u"Support"_s);
    reply = user->postJSON(
        u"/api/1.0/mark_messages"_s,
        {{u"readMessageUUIDs"_s, QVariantList{all.at(1).toMap().value(u"uuid"_s), uuid}},
         {u"lastReadMessageDate"_s, all.at(1).toMap().value(u"date"_s)}});
    QCOMPARE(reply.status, 200);
    QCOMPARE(reply.json().value(u"unreadCount"_s), QVariant(1));
    QCOMPARE(user->get(u"/api/1.0/status"_s).json().value(u"unreadCount"_s), QVariant(1));
}

void TestDevServerAPI::pagesByDate()
{
    auto user = newUser();
    QStringList sent;
    for (int i = 0; i < 6; ++i) {
        sent.append(newUUID());
        QCOMPARE(user->send({{u"uuid"_s, sent.last()},
                             {u"sender"_s, u"user"_s},
                             {u"text"_s, QString::number(i)}})
                     .status,
                 200);
    }
    const auto page = [&](const QString &query) {
        const QVariantMap json = user->get(u"/api/1.0/messages?"_s + query).json();
        QStringList uuids;
        QList<qint64> dates;
        for (const QVariant &message : json.value(u"messages"_s).toList()) {
            uuids.append(message.toMap().value(u"uuid"_s).toString());
            dates.append(message.toMap().value(u"date"_s).toLongLong());
        }
        return std::make_tuple(uuids, dates, json.value(u"moreMessages"_s).toBool());
    };

    // No date: the newest page, oldest first, and whether older ones exist.
    const auto [all, dates, allMore] = page(QString());
    QCOMPARE(all, sent);
    QVERIFY(!allMore);
    QCOMPARE(page(u"limit=2"_s), std::make_tuple(sent.mid(4), dates.mid(4), true));
    QCOMPARE(page(u"limit=6&"_s), std::make_tuple(sent, dates, false));

    // The dates are the server's clock: check the windows against the dates it gave.
    const qint64 first = dates.first(), last = dates.last();
    for (const qint64 date : {first, last}) {
        const auto [since, sinceDates, sinceMore] = page(u"since=%1&"_s.arg(date));
        QCOMPARE(sinceDates, QList<qint64>(dates.begin() + dates.indexOf(date), dates.end()));
        QCOMPARE(sinceMore, date > first);
        const auto [until, untilDates, untilMore] = page(u"until=%1&"_s.arg(date));
        QCOMPARE(untilDates,
                 QList<qint64>(dates.begin(), dates.begin() + dates.lastIndexOf(date) + 1));
        QVERIFY(!untilMore);
    }
    // "since" pages forward from its date: a client catching up walks through in order.
    QCOMPARE(std::get<0>(page(u"since=%1&limit=2"_s.arg(first))), sent.mid(0, 2));
    QCOMPARE(std::get<0>(page(u"until=%1&limit=2"_s.arg(last))), sent.mid(4));
    const auto [after, afterDates, afterMore] = page(u"since=%1&"_s.arg(last + 1));
    QVERIFY(after.isEmpty());
    QVERIFY(afterMore);
    QVERIFY(std::get<0>(page(u"until=%1&"_s.arg(first - 1))).isEmpty());
}

void TestDevServerAPI::tokensAreChecked_data()
{
    QTest::addColumn<QString>("token");
    QTest::addColumn<int>("status");
    const QString installation = newUUID().toUpper();
    QVariantMap wrongKey = claims(installation);
    wrongKey.insert(u"apiKey"_s, u"0123"_s);
    QVariantMap anonymous = claims(installation);
    anonymous.remove(u"installationId"_s);
    const QString good = ZVXDevSign(claims(installation), m_secret);

    QTest::newRow("HS256") << good << 200;
    QTest::newRow("HS512") << ZVXDevSign(claims(installation), m_secret, u"HS512"_s) << 200;
    QTest::newRow("user id only") << ZVXDevSign({{u"apiKey"_s, m_apiKey}, {u"userId"_s, u"u"_s}},
                                                m_secret)
                                  << 200;
    QTest::newRow("missing") << QString() << 401;
    QTest::newRow("garbage") << u"not.a.token"_s << 401;
    QTest::newRow("other secret") << ZVXDevSign(claims(installation), "other secret") << 401;
    QTest::newRow("changed signature")
        << good.left(good.size() - 2) + (good.endsWith(QLatin1String("AA")) ? u"BB"_s : u"AA"_s)
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
         {client.get(u"/api/1.0/status"_s), client.postJSON(u"/api/1.0/register"_s, {}),
          client.get(u"/api/1.0/messages?limit=1"_s),
          client.postJSON(u"/api/1.0/mark_messages"_s,
                          {{u"readMessageUUIDs"_s, QVariantList{}}})}) {
        QCOMPARE(reply.status, status);
        if (status == 401) {
            QVERIFY(reply.json()
                        .value(u"error"_s)
                        .toString()
                        .startsWith(QLatin1String("unauthorized")));
            QVERIFY(!reply.json().value(u"localizedError"_s).toString().isEmpty());
        }
    }
}

void TestDevServerAPI::openAndKeyOnlyModes()
{
    const QVariantMap someone{{u"apiKey"_s, u"any key"_s}, {u"installationId"_s, u"I-1"_s}};
    ZVXDevServerProcess open;
    QVERIFY(open.start({u"--open"_s}));
    QCOMPARE(ZVXDevClient(open, ZVXDevSign(someone, "whatever")).get(u"/api/1.0/status"_s).status,
             200);
    QCOMPARE(ZVXDevClient(open, u"a.b.c"_s).get(u"/api/1.0/status"_s).status, 401);

    ZVXDevServerProcess keyOnly;
    QVERIFY(keyOnly.start({u"--api-key"_s, u"any key"_s}));
    QCOMPARE(
        ZVXDevClient(keyOnly, ZVXDevSign(someone, "whatever")).get(u"/api/1.0/status"_s).status,
        200);
    QVariantMap other = someone;
    other.insert(u"apiKey"_s, u"another key"_s);
    QCOMPARE(ZVXDevClient(keyOnly, ZVXDevSign(other, "whatever")).get(u"/api/1.0/status"_s).status,
             401);

    // A server with nothing to check tokens against refuses to start.
    ZVXDevServerProcess nothing;
    QVERIFY(!nothing.start({}));
}

void TestDevServerAPI::sendingIsIdempotent()
{
    auto user = newUser();
    const QString uuid = newUUID(), file = newUUID();
    const QVariantMap message{{u"uuid"_s, uuid},
                              {u"sender"_s, u"user"_s},
                              {u"text"_s, u"once"_s},
                              {u"attachments"_s, QVariantList{QVariantMap{{u"uuid"_s, file}}}}};
    const QList<ZVXDevClient::File> files{{file, "application/pdf", "%PDF-1.4 ..."}};
    QCOMPARE(user->send(message, files).status, 200);

    // A retry, and several at once: all succeed, one message stays.
    QList<QNetworkReply *> replies;
    for (int i = 0; i < 5; ++i) {
        QNetworkRequest request = user->request(u"/api/1.0/messages"_s);
        request.setHeader(QNetworkRequest::ContentTypeHeader,
                          ZVXMultipart().contentType().toLatin1());
        replies.append(user->manager().post(request, ZVXDevClient::multipartBody(message, files)));
    }
    for (QNetworkReply *reply : replies)
        QCOMPARE(ZVXDevClient::wait(reply).status, 200);
    const QVariantList messages
        = user->get(u"/api/1.0/messages"_s).json().value(u"messages"_s).toList();
    QCOMPARE(messages.size(), 1);
    QCOMPARE(messages.first().toMap().value(u"attachments"_s).toList().size(), 1);

    // The same uuid from someone else is a conflict, not a success.
    auto other = newUser();
    const ZVXDevReply conflict = other->send(message, files);
    QCOMPARE(conflict.status, 409);
    QVERIFY(conflict.json().contains(u"error"_s));
    QVERIFY(other->get(u"/api/1.0/messages"_s).json().value(u"messages"_s).toList().isEmpty());
}

void TestDevServerAPI::badInputIsRefused_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QByteArray>("contentType");
    QTest::addColumn<int>("status");
    const QByteArray multipart = ZVXMultipart().contentType().toLatin1();
    const auto message
        = [](const QVariantMap &object) { return ZVXDevClient::multipartBody(object, {}); };
    const QString messages = u"/api/1.0/messages"_s;
    QTest::newRow("register: not JSON") << u"/api/1.0/register"_s << QByteArray("{\"appId\":")
                                        << QByteArray("application/json") << 400;
    QTest::newRow("register: not an object")
        << u"/api/1.0/register"_s << QByteArray("[1]") << QByteArray("application/json") << 400;
    QTest::newRow("register: wrong type") << u"/api/1.0/register"_s << QByteArray("{\"appId\":5}")
                                          << QByteArray("application/json") << 400;
    QTest::newRow("register: token not hex")
        << u"/api/1.0/register"_s << QByteArray("{\"deviceToken\":\"xyz\"}")
        << QByteArray("application/json") << 400;
    QTest::newRow("mark: not a list")
        << u"/api/1.0/mark_messages"_s << QByteArray("{\"readMessageUUIDs\":\"a\"}")
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
        << messages << message({{u"text"_s, u"a"_s}}) << multipart << 400;
    QTest::newRow("send: uuid with a slash")
        << messages << message({{u"uuid"_s, u"../x"_s}}) << multipart << 400;
    QTest::newRow("send: as an agent")
        << messages << message({{u"uuid"_s, u"m1"_s}, {u"sender"_s, u"agent"_s}}) << multipart
        << 400;
    QTest::newRow("send: missing file part")
        << messages
        << message({{u"uuid"_s, u"m2"_s},
                    {u"attachments"_s, QVariantList{QVariantMap{{u"uuid"_s, u"f"_s}}}}})
        << multipart << 400;
    QTest::newRow("send: too large")
        << messages
        << ZVXDevClient::multipartBody(
               {{u"uuid"_s, u"m3"_s},
                {u"attachments"_s, QVariantList{QVariantMap{{u"uuid"_s, u"f"_s}}}}},
               {{u"f"_s, "application/zip", QByteArray(1100 * 1024, 'z')}})
        << multipart << 413;
    QTest::newRow("no such call") << u"/api/1.0/nothing"_s << QByteArray("{}")
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
    QVERIFY2(!reply.json().value(u"error"_s).toString().isEmpty(), reply.body.constData());
    // Nothing was stored, and the server carries on.
    const ZVXDevReply after = user->get(u"/api/1.0/messages"_s);
    QCOMPARE(after.status, 200);
    QVERIFY(after.json().value(u"messages"_s).toList().isEmpty());
    for (const char *query : {"since=abc", "until=1e400", "limit=-1", "limit=ten"})
        QCOMPARE(user->get(u"/api/1.0/messages?"_s + QLatin1String(query)).status, 400);
}

void TestDevServerAPI::curlSpeaksToo()
{
    auto user = newUser();
    const QStringList token{u"--header"_s, u"X-ZVL-JWT: "_s + user->token};
    const QString api = m_server.origin() + u"/api/1.0"_s;
    ZVXDevCurl curl = ZVXDevRunCurl(
        m_server,
        token + QStringList{u"--json"_s, u"{\"appId\":\"curl\"}"_s, api + u"/register"_s});
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
                u"--form"_s,
                QStringLiteral(
                    R"(message={"uuid":"curl-1","sender":"user","text":"from curl","attachments":[{"uuid":"curl-a","filename":"a.txt"},{"uuid":"curl-b"}]};type=application/json)"),
                u"--form"_s, u"curl-a=@%1;type=text/plain"_s.arg(a.fileName()), u"--form"_s,
                u"curl-b=@%1;filename=b.txt;type=text/plain"_s.arg(b.fileName()),
                api + u"/messages"_s});
    QCOMPARE(curl.exitCode, 0);
    curl = ZVXDevRunCurl(m_server, token + QStringList{api + u"/messages?since=0&limit=5&"_s});
    const QVariantList attachments = ZVXDevReply{QNetworkReply::NoError, 200, curl.output, {}}
                                         .json()
                                         .value(u"messages"_s)
                                         .toList()
                                         .value(0)
                                         .toMap()
                                         .value(u"attachments"_s)
                                         .toList();
    QCOMPARE(attachments.size(), 2);
    QCOMPARE(attachments.at(0).toMap().value(u"filename"_s).toString(), u"a.txt"_s);
    QCOMPARE(attachments.at(1).toMap().value(u"filename"_s).toString(), u"b.txt"_s);
    curl = ZVXDevRunCurl(
        m_server,
        {attachments.at(1).toMap().value(u"dataURL"_s).toString() + u"?jwt="_s + user->token});
    QCOMPARE(curl.output, QByteArray("second file"));

    // Verification stays on: without the server's authority curl refuses it.
    QProcess untrusting;
    untrusting.start(u"curl"_s, {u"--silent"_s, api + u"/status"_s});
    QVERIFY(untrusting.waitForFinished(60000));
    QCOMPARE(untrusting.exitCode(), 60);
}

void TestDevServerAPI::systemMessagesFromTheConsole()
{
    auto user = newUser();
    const QString installation = m_lastInstallation;
    QCOMPARE(user->send({{u"uuid"_s, newUUID()}, {u"text"_s, u"Hello?"_s}}).status, 200);
    const qint64 id = user->conversationId(u"installationId"_s, installation);
    const auto post = [&](const QByteArray &sender) {
        const QByteArray body = "--B\r\nContent-Disposition: form-data; name=\"sender\"\r\n\r\n"
            + sender
            + "\r\n--B\r\nContent-Disposition: form-data; name=\"text\"\r\n\r\nPassed on to "
              "billing.\r\n--B--\r\n";
        return user->post(u"/console/api/conversations/%1/messages"_s.arg(id), body,
                          "multipart/form-data; boundary=B");
    };
    QCOMPARE(post("system").status, 200);
    // The console speaks for agents and the system, never for the user.
    QCOMPARE(post("user").status, 400);
    QCOMPARE(post("System").status, 400);

    const QVariantList messages
        = user->get(u"/api/1.0/messages"_s).json().value(u"messages"_s).toList();
    QCOMPARE(messages.size(), 2);
    const ZuveroChatMessagePtr notice = ZuveroChatMessage::initWithPropertyList(messages.last());
    QVERIFY(notice && notice->isSystemMessage());
    QCOMPARE(notice->text(), u"Passed on to billing."_s);
    QVERIFY2(!notice->userName(), "the system is nobody");
    QCOMPARE(user->get(u"/api/1.0/status"_s).json().value(u"unreadCount"_s), QVariant(1));
}

void TestDevServerAPI::restartKeepsData()
{
    auto user = newUser();
    const QString uuid = newUUID(), file = newUUID();
    QCOMPARE(user->send({{u"uuid"_s, uuid},
                         {u"sender"_s, u"user"_s},
                         {u"attachments"_s, QVariantList{QVariantMap{{u"uuid"_s, file}}}}},
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
    const QVariantList messages
        = client.get(u"/api/1.0/messages"_s).json().value(u"messages"_s).toList();
    QCOMPARE(messages.size(), 1);
    QCOMPARE(messages.first().toMap().value(u"uuid"_s).toString(), uuid);
    const QString preview = messages.first()
                                .toMap()
                                .value(u"attachments"_s)
                                .toList()
                                .first()
                                .toMap()
                                .value(u"previewURL"_s)
                                .toString();
    QCOMPARE(QImage::fromData(client.get(preview + u"?jwt="_s + user->token).body).size(),
             QSize(20, 10));
}

QTEST_MAIN(TestDevServerAPI)
#include "tst_devserver_api.moc"
