// The dev server against the golden wire fixtures: it takes a client's requests as the fixtures
// hold them, and its replies and push payloads have the fixtures' keys and value types, with only
// what varies from run to run (uuids it makes, dates, its address) in their place.

#include "ZVXDevServerProcess.h"
#include "ZVXWireFixtures.h"

#include <QCryptographicHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const QByteArray Secret = QByteArray::fromHex("5a757665726f2077697265207465737421");
const QByteArray FormBoundary = "wire-test-form-7d1f";

QString tokenFor(const QString &installationId, const QString &userId = {})
{
    const QByteArray apiKey = QCryptographicHash::hash(Secret, QCryptographicHash::Sha256).toHex();
    QVariantMap claims{{u"apiKey"_s, QString::fromLatin1(apiKey)},
                       {u"installationId"_s, installationId}};
    if (!userId.isEmpty())
        claims.insert(u"userId"_s, userId);
    return ZVXDevSign(claims, Secret);
}

QJsonObject jsonOf(const QByteArray &bytes)
{
    return QJsonDocument::fromJson(bytes).object();
}

// A reply to an agent's console, as its page's form sends it.
QByteArray consoleForm(const QList<QPair<QByteArray, QByteArray>> &fields,
                       const QByteArray &filename = {}, const QByteArray &file = {})
{
    QByteArray body;
    for (const auto &[name, value] : fields)
        body += "--" + FormBoundary + "\r\nContent-Disposition: form-data; name=\"" + name
            + "\"\r\n\r\n" + value + "\r\n";
    if (!filename.isEmpty())
        body += "--" + FormBoundary
            + "\r\nContent-Disposition: form-data; name=\"file\"; filename=\"" + filename
            + "\"\r\nContent-Type: image/png\r\n\r\n" + file + "\r\n";
    return body + "--" + FormBoundary + "--\r\n";
}

} // namespace

class TestWireServer : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase() { QVERIFY2(m_server.stop(), "the server ends cleanly"); }
    void aConversationInFixtures();
    void messageQueries();

private:
    //! Whether \a reply is a JSON object matching the fixture \a name.
    bool matches(ZVXWire::Matcher &matcher, const QString &name, const ZVXDevReply &reply);

    ZVXDevServerProcess m_server;
};

void TestWireServer::initTestCase()
{
    QVERIFY(m_server.start({u"--api-secret"_s, QString::fromLatin1(Secret.toHex())}));
}

bool TestWireServer::matches(ZVXWire::Matcher &matcher, const QString &name,
                             const ZVXDevReply &reply)
{
    const QStringList differences = matcher.compare(ZVXWire::fixture(name), jsonOf(reply.body));
    if (reply.status == 200 && differences.isEmpty())
        return true;
    qWarning("%s (HTTP %d) differs from %s:\n%s\n%s", qPrintable(name), reply.status,
             qPrintable(name), qPrintable(differences.join(u"\n"_s)), reply.body.constData());
    return false;
}

void TestWireServer::aConversationInFixtures()
{
    const QJsonObject push = ZVXWire::fixture(u"push-payload.json"_s);
    const QJsonArray listed = ZVXWire::fixture(u"messages-reply.json"_s)[u"messages"_s].toArray();
    QCOMPARE(listed.size(), 5);
    const QJsonObject appData = push[u"appdata"_s].toObject();
    ZVXDevClient ana(m_server, tokenFor(appData[u"i"_s].toString(), appData[u"uid"_s].toString()));
    ZVXWire::Matcher matcher(m_server.origin());

    // The device registers with the fixture's body, as it stands.
    QVERIFY(
        matches(matcher, u"register-reply.json"_s,
                ana.post(u"/api/1.0/register"_s, ZVXWire::fixtureBytes(u"register-body.json"_s))));
    ZVXDevPushStream stream(ana);
    QTRY_VERIFY(stream.connected());

    // The user asks; an agent answers from the console with a picture.
    const QJsonObject question = listed.at(0).toObject();
    QCOMPARE(ana.send({{u"uuid"_s, question[u"uuid"_s].toString()},
                       {u"sender"_s, u"user"_s},
                       {u"text"_s, question[u"text"_s].toString()}})
                 .status,
             200);
    const qint64 conversation = ana.conversationId(u"userId"_s, u"ana"_s);
    QVERIFY(conversation > 0);
    const QString console = u"/console/api/conversations/%1/messages"_s.arg(conversation);
    const QByteArray formType = "multipart/form-data; boundary=" + FormBoundary;
    const QJsonObject answer = listed.at(1).toObject();
    const QByteArray label = ZVXWire::fixtureBytes(u"label.png"_s);
    QCOMPARE(
        ana.post(console,
                 consoleForm({{"text", answer[u"text"_s].toString().toUtf8()}}, "label.png", label),
                 formType)
            .status,
        200);
    QTRY_COMPARE(stream.eventData().size(), 1);
    const QStringList pushed = matcher.compare(push, jsonOf(stream.eventData().first()));
    QVERIFY2(pushed.isEmpty(), qPrintable(pushed.join(u"\n"_s)));

    // The receipt, in the fixture's multipart body; then a place, and a word from the system.
    QVERIFY(
        matches(matcher, u"status-reply.json"_s,
                ana.post(u"/api/1.0/messages"_s, ZVXWire::fixtureBytes(u"send-body.multipart"_s),
                         ZVXWire::fixtureBytes(u"send-content-type.txt"_s))));
    const QJsonObject place = listed.at(3).toObject();
    QCOMPARE(ana.send({{u"uuid"_s, place[u"uuid"_s].toString()},
                       {u"sender"_s, u"user"_s},
                       {u"location"_s, place[u"location"_s].toObject().toVariantMap()}})
                 .status,
             200);
    QCOMPARE(ana.post(console,
                      consoleForm({{"sender", "system"},
                                   {"text", listed.at(4)[u"text"_s].toString().toUtf8()}}),
                      formType)
                 .status,
             200);

    QVERIFY(matches(matcher, u"messages-reply.json"_s, ana.get(u"/api/1.0/messages?limit=50"_s)));
    // The URLs it gave lead to the files.
    const QString dataURL
        = matcher.substituted(answer[u"attachments"_s][0][u"dataURL"_s].toString());
    QCOMPARE(ana.get(dataURL + u"?jwt="_s + ana.token).body, label);

    // The agent's answer is read, with the fixture's body in the server's uuid and date.
    const std::optional<QString> answerUUID = matcher.actualUUID(answer[u"uuid"_s].toString());
    QVERIFY(answerUUID);
    const QJsonObject listing = jsonOf(ana.get(u"/api/1.0/messages?limit=50"_s).body);
    QJsonObject mark = ZVXWire::fixture(u"mark-body.json"_s);
    QCOMPARE(mark[u"readMessageUUIDs"_s].toArray(), QJsonArray{answer[u"uuid"_s]});
    mark[u"readMessageUUIDs"_s] = QJsonArray{*answerUUID};
    mark[u"lastReadMessageDate"_s] = listing[u"messages"_s][1][u"date"_s];
    QVERIFY(matches(
        matcher, u"status-reply.json"_s,
        ana.post(u"/api/1.0/mark_messages"_s, QJsonDocument(mark).toJson(QJsonDocument::Compact))));
    QVERIFY(matches(matcher, u"status-reply.json"_s, ana.get(u"/api/1.0/status"_s)));
}

void TestWireServer::messageQueries()
{
    // The queries the library makes, trailing "&" and all.
    ZVXDevClient client(m_server, tokenFor(u"1E5F5A60-2B4C-4D6E-8F90-A1B2C3D4E5F6"_s));
    const QStringList keys = ZVXWire::fixture(u"messages-reply.json"_s).keys();
    for (const QJsonValue query :
         ZVXWire::fixture(u"message-queries.json"_s)[u"queries"_s].toArray()) {
        const ZVXDevReply reply = client.get(query[u"target"_s].toString());
        QCOMPARE(reply.status, 200);
        QCOMPARE(jsonOf(reply.body).keys(), keys);
    }
}

QTEST_MAIN(TestWireServer)
#include "tst_wire_server.moc"
