#include "ZVXDevServerProcess.h"
#include "ZVXJWT.h"

#include <QCryptographicHash>
#include <QImage>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const QString SecretHex = u"00112233445566778899aabbccddeeff"_s;

struct Run
{
    int status = -1;
    QString out;
    QString err;
};

} // namespace

class TestCli : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void commands();
    void usageErrors_data();
    void usageErrors();
    void serverAndTokenFailures();
    void registerReportsItsOwnAnswer();
    void queueWaitsForTheServer();
    void chatInTheTerminal();

private:
    QStringList common(const QString &user) const;
    Run run(const QStringList &arguments, const QByteArray &input = {});

    ZVXDevServerProcess m_server;
    std::unique_ptr<ZVXDevClient> m_admin;
    QTemporaryDir m_state;
    QString m_host;
};

void TestCli::initTestCase()
{
    // A port of our own, so that the server can come back on it.
    QVERIFY(m_server.start({u"--api-secret"_s, SecretHex, u"--port"_s, u"0"_s}));
    m_host = QUrl(m_server.origin()).authority();
    QVERIFY(m_server.stop());
    QVERIFY(m_server.start({u"--api-secret"_s, SecretHex, u"--port"_s,
                            QString::number(QUrl(m_server.origin()).port()), u"--admin"_s}));
    m_admin = std::make_unique<ZVXDevClient>(
        m_server,
        ZVXDevSign({{u"installationId"_s, u"admin"_s}}, QByteArray::fromHex(SecretHex.toLatin1())));
}

QStringList TestCli::common(const QString &user) const
{
    return {u"--host"_s,  m_host,         u"--api-secret"_s,
            SecretHex,    u"--ca-file"_s, m_server.authorityPath(),
            u"--state"_s, m_state.path(), u"--user-id"_s,
            user};
}

Run TestCli::run(const QStringList &arguments, const QByteArray &input)
{
    QProcess process;
    process.start(QStringLiteral(ZUVERO_CLI), arguments);
    if (!process.waitForStarted())
        return {};
    process.write(input);
    process.closeWriteChannel();
    process.waitForFinished(60000);
    return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
            QString::fromUtf8(process.readAllStandardError())};
}

void TestCli::commands()
{
    const QStringList ana = common(u"ana"_s);
    QCOMPARE(run(ana + QStringList{u"register"_s}).out, u"registered\n"_s);

    QTemporaryDir files;
    QImage photo(3000, 2000, QImage::Format_RGB32);
    photo.fill(Qt::darkGreen);
    const QString photoPath = files.filePath(u"photo.png"_s);
    QVERIFY(photo.save(photoPath));
    const Run sent
        = run(ana
              + QStringList{u"send"_s, u"Hi ✓"_s, u"--file"_s, photoPath, u"--location"_s,
                            u"48.8584,2.2945,800,Champ de Mars, Paris"_s});
    QCOMPARE(sent.status, 0);
    const QString uuid = sent.out.trimmed();
    QCOMPARE(uuid.size(), 36);

    const Run history = run(ana + QStringList{u"history"_s, u"--limit"_s, u"10"_s});
    QCOMPARE(history.status, 0);
    const QStringList lines = history.out.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    QCOMPARE(lines.last(), u"more: no"_s);
    const QVariantMap message
        = QJsonDocument::fromJson(lines.first().toUtf8()).object().toVariantMap();
    QCOMPARE(message.value(u"uuid"_s).toString(), uuid);
    QCOMPARE(message.value(u"location"_s).toMap().value(u"address"_s),
             QVariant(u"Champ de Mars, Paris"_s));
    const QVariantMap attachment = message.value(u"attachments"_s).toList().first().toMap();
    // The picture went up shrunk, as JPEG.
    QCOMPARE(attachment.value(u"contentType"_s), QVariant(u"image/jpeg"_s));
    QVERIFY(attachment.value(u"imageSize"_s).toList().first().toDouble() < 3000);

    QCOMPARE(run(ana + QStringList{u"mark-read"_s, uuid + u"@1700000000"_s}).out, u"marked 1\n"_s);
    QCOMPARE(run(ana + QStringList{u"status"_s}).out, u"0\n"_s);

    const Run token = run(ana + QStringList{u"token"_s});
    const auto verified
        = ZVXJWT::initWithJWT(token.out.trimmed(), QByteArray::fromHex(SecretHex.toLatin1()));
    QVERIFY(verified);
    QCOMPARE(verified->payload().value(u"userId"_s), QVariant(u"ana"_s));

    // A payload for someone else is ignored; one for this user is consumed, from standard input.
    QCOMPARE(run(ana + QStringList{u"push"_s, u"-"_s},
                 R"({"zuvero":"1","appdata":{"uid":"bob","t":"m","uuid":"x"}})")
                 .out,
             u"ignored\n"_s);
    QCOMPARE(
        run(ana + QStringList{u"push"_s, u"-"_s},
            R"({"zuvero":"1","badge":3,"appdata":{"uid":"ana","t":"m","uuid":"y"},"alert":"Hello"})")
            .out,
        u"consumed\n"_s);
}

void TestCli::usageErrors_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("message");
    QTest::newRow("no command") << QStringList() << "no command given";
    QTest::newRow("unknown command") << QStringList{u"dance"_s} << "unknown command \"dance\"";
    QTest::newRow("two credentials")
        << QStringList{u"--api-key"_s, u"k"_s, u"--jwt"_s, u"t"_s, u"status"_s} << "give one of";
    QTest::newRow("option of another command")
        << QStringList{u"status"_s, u"--limit"_s, u"3"_s} << "--limit does not go with status";
    QTest::newRow("bad limit") << QStringList{u"history"_s, u"--limit"_s, u"x"_s}
                               << "--limit must be a whole number";
    QTest::newRow("bad location") << QStringList{u"send"_s, u"t"_s, u"--location"_s, u"91,0"_s}
                                  << "--location must be";
    QTest::newRow("send without text") << QStringList{u"send"_s} << "wrong number of arguments";
    QTest::newRow("no token") << QStringList{u"--api-key"_s, u"k"_s, u"token"_s} << "no token";
    QTest::newRow("payload not JSON")
        << QStringList{u"--api-key"_s, u"k"_s, u"push"_s, u"/nonexistent.json"_s}
        << "cannot read /nonexistent.json";
}

void TestCli::usageErrors()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, message);
    const Run result = run(QStringList{u"--state"_s, m_state.path()} + arguments);
    QCOMPARE(result.status, 2);
    QVERIFY2(result.err.contains(message), qPrintable(result.err));
}

void TestCli::serverAndTokenFailures()
{
    // Nobody listens: a network error, said plainly.
    QStringList down = common(u"ana"_s);
    down[1] = u"127.0.0.1:9"_s;
    const Run refused = run(down + QStringList{u"status"_s});
    QCOMPARE(refused.status, 1);
    QVERIFY2(refused.err.startsWith(QLatin1String("zuvero-cli: com.zuvero.url ")),
             qPrintable(refused.err));

    // A token signed with another secret: the server's 401.
    ZVXJWT forged;
    forged.setPayload({{u"apiKey"_s, u"x"_s}, {u"installationId"_s, u"I"_s}});
    const QStringList forger{
        u"--host"_s,    m_host,
        u"--jwt"_s,     *forged.signedTokenWithSecret(QByteArray("not the secret")),
        u"--ca-file"_s, m_server.authorityPath(),
        u"--state"_s,   m_state.path()};
    const Run unauthorized = run(forger + QStringList{u"status"_s});
    QCOMPARE(unauthorized.status, 1);
    QVERIFY2(unauthorized.err.startsWith(QLatin1String("zuvero-cli: com.zuvero.errors 401: ")),
             qPrintable(unauthorized.err));
}

void TestCli::registerReportsItsOwnAnswer()
{
    const auto registrations
        = [this] { return m_admin->requestCount(u"POST /api/1.0/register"_s); };
    const auto fault = [this](const char *kind) {
        QCOMPARE(m_admin
                     ->postJSON(u"/admin/faults"_s,
                                {{u"path"_s, u"/api/1.0/register"_s},
                                 {u"kind"_s, QString::fromLatin1(kind)},
                                 {u"status"_s, 200}})
                     .status,
                 200);
    };

    // Identity options make no registration of their own: the command's one request is the one
    // it reports.
    QStringList options = common(u"reg"_s)
        + QStringList{u"--user-name"_s, u"Reg"_s, u"--device-token"_s, u"a1b2"_s};
    qint64 before = registrations();
    fault("nonJSON");
    const Run refused = run(options + QStringList{u"register"_s});
    QCOMPARE(refused.status, 1);
    QVERIFY2(refused.err.startsWith(QLatin1String("zuvero-cli: com.zuvero.json ")),
             qPrintable(refused.err));
    QCOMPARE(registrations(), before + 1);
    before = registrations();
    QCOMPARE(run(options + QStringList{u"register"_s}).out, u"registered\n"_s);
    QCOMPARE(registrations(), before + 1);

    // A token registers as soon as it is set; when that fails, so does the command.
    ZVXJWT token;
    token.setPayload(
        {{u"apiKey"_s,
          QString::fromLatin1(QCryptographicHash::hash(QByteArray::fromHex(SecretHex.toLatin1()),
                                                       QCryptographicHash::Sha256)
                                  .toHex())},
         {u"installationId"_s, u"T"_s},
         {u"userId"_s, u"tokened"_s}});
    const QStringList tokened{
        u"--host"_s,    m_host,
        u"--jwt"_s,     *token.signedTokenWithSecret(QByteArray::fromHex(SecretHex.toLatin1())),
        u"--ca-file"_s, m_server.authorityPath(),
        u"--state"_s,   m_state.path()};
    fault("nonJSON");
    const Run refused2 = run(tokened + QStringList{u"register"_s});
    QCOMPARE(refused2.status, 1);
    QVERIFY2(refused2.err.contains(QLatin1String("earlier registration")),
             qPrintable(refused2.err));
    QCOMPARE(run(tokened + QStringList{u"register"_s}).status, 0);
}

void TestCli::queueWaitsForTheServer()
{
    QVERIFY(m_server.stop());
    QProcess queue;
    queue.start(QStringLiteral(ZUVERO_CLI),
                common(u"queued"_s)
                    + QStringList{u"queue"_s, u"first"_s, u"second"_s, u"--wait"_s, u"60"_s});
    QVERIFY(queue.waitForStarted());
    QTest::qWait(1500); // the queue meets a server that is down at least once
    QVERIFY(m_server.restart());
    QVERIFY(queue.waitForFinished(60000));
    QCOMPARE(queue.exitCode(), 0);
    QCOMPARE(QString::fromUtf8(queue.readAllStandardOutput()), u"sent 2, queued 0, errored 0\n"_s);

    const Run history = run(common(u"queued"_s) + QStringList{u"history"_s});
    QStringList texts;
    for (const QString &line : history.out.split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
        const QVariantMap message = QJsonDocument::fromJson(line.toUtf8()).object().toVariantMap();
        if (message.contains(u"text"_s))
            texts << message.value(u"text"_s).toString();
    }
    QCOMPARE(texts, (QStringList{u"first"_s, u"second"_s}));
}

void TestCli::chatInTheTerminal()
{
    const QStringList bea = common(u"bea"_s);
    QCOMPARE(run(bea + QStringList{u"send"_s, u"Is anyone there?"_s}).status, 0);
    ZVXDevClient console(m_server, QString());
    QCOMPARE(
        console.agentReply(console.conversationId(u"userId"_s, u"bea"_s), u"Yes, how can I help?"_s)
            .status,
        200);
    // Typed lines are sent; at the end of input the conversation is printed in order, agent and
    // user apart.
    const Run chat = run(bea + QStringList{u"chat"_s}, "My parcel is late.\n");
    QCOMPARE(chat.status, 0);
    const QStringList lines = chat.out.split(QLatin1Char('\n'), Qt::SkipEmptyParts).mid(1);
    QCOMPARE(lines.size(), 3);
    QVERIFY(lines.at(0).endsWith(QLatin1String(" you: Is anyone there?")));
    QVERIFY2(lines.at(1).endsWith(QLatin1String(": Yes, how can I help?"))
                 && !lines.at(1).contains(QLatin1String(" you: ")),
             qPrintable(lines.at(1)));
    QVERIFY(lines.at(2).endsWith(QLatin1String(" you: My parcel is late.")));
}

QTEST_MAIN(TestCli)
#include "tst_cli.moc"
