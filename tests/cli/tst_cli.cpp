#include "ZVXDevServerProcess.h"
#include "ZVXJWT.h"

#include <QCryptographicHash>
#include <QImage>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

namespace {

const QString SecretHex = QStringLiteral("00112233445566778899aabbccddeeff");

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
    QVERIFY(m_server.start({QStringLiteral("--api-secret"), SecretHex, QStringLiteral("--port"),
                            QStringLiteral("0")}));
    m_host = QUrl(m_server.origin()).authority();
    QVERIFY(m_server.stop());
    QVERIFY(m_server.start({QStringLiteral("--api-secret"), SecretHex, QStringLiteral("--port"),
                            QString::number(QUrl(m_server.origin()).port()),
                            QStringLiteral("--admin")}));
    m_admin = std::make_unique<ZVXDevClient>(
        m_server,
        ZVXDevSign({{QStringLiteral("installationId"), QStringLiteral("admin")}},
                   QByteArray::fromHex(SecretHex.toLatin1())));
}

QStringList TestCli::common(const QString &user) const
{
    return {QStringLiteral("--host"),       m_host,
            QStringLiteral("--api-secret"), SecretHex,
            QStringLiteral("--ca-file"),    m_server.authorityPath(),
            QStringLiteral("--state"),      m_state.path(),
            QStringLiteral("--user-id"),    user};
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
    const QStringList ana = common(QStringLiteral("ana"));
    QCOMPARE(run(ana + QStringList{QStringLiteral("register")}).out,
             QStringLiteral("registered\n"));

    QTemporaryDir files;
    QImage photo(3000, 2000, QImage::Format_RGB32);
    photo.fill(Qt::darkGreen);
    const QString photoPath = files.filePath(QStringLiteral("photo.png"));
    QVERIFY(photo.save(photoPath));
    const Run sent
        = run(ana
              + QStringList{QStringLiteral("send"), QStringLiteral("Hi ✓"),
                            QStringLiteral("--file"), photoPath, QStringLiteral("--location"),
                            QStringLiteral("48.8584,2.2945,800,Champ de Mars, Paris")});
    QCOMPARE(sent.status, 0);
    const QString uuid = sent.out.trimmed();
    QCOMPARE(uuid.size(), 36);

    const Run history = run(
        ana
        + QStringList{QStringLiteral("history"), QStringLiteral("--limit"), QStringLiteral("10")});
    QCOMPARE(history.status, 0);
    const QStringList lines = history.out.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    QCOMPARE(lines.last(), QStringLiteral("more: no"));
    const QVariantMap message
        = QJsonDocument::fromJson(lines.first().toUtf8()).object().toVariantMap();
    QCOMPARE(message.value(QStringLiteral("uuid")).toString(), uuid);
    QCOMPARE(message.value(QStringLiteral("location")).toMap().value(QStringLiteral("address")),
             QVariant(QStringLiteral("Champ de Mars, Paris")));
    const QVariantMap attachment
        = message.value(QStringLiteral("attachments")).toList().first().toMap();
    // The picture went up shrunk, as JPEG.
    QCOMPARE(attachment.value(QStringLiteral("contentType")),
             QVariant(QStringLiteral("image/jpeg")));
    QVERIFY(attachment.value(QStringLiteral("imageSize")).toList().first().toDouble() < 3000);

    QCOMPARE(
        run(ana + QStringList{QStringLiteral("mark-read"), uuid + QStringLiteral("@1700000000")})
            .out,
        QStringLiteral("marked 1\n"));
    QCOMPARE(run(ana + QStringList{QStringLiteral("status")}).out, QStringLiteral("0\n"));

    const Run token = run(ana + QStringList{QStringLiteral("token")});
    const auto verified
        = ZVXJWT::initWithJWT(token.out.trimmed(), QByteArray::fromHex(SecretHex.toLatin1()));
    QVERIFY(verified);
    QCOMPARE(verified->payload().value(QStringLiteral("userId")), QVariant(QStringLiteral("ana")));

    // A payload for someone else is ignored; one for this user is consumed, from standard input.
    QCOMPARE(run(ana + QStringList{QStringLiteral("push"), QStringLiteral("-")},
                 R"({"zuvero":"1","appdata":{"uid":"bob","t":"m","uuid":"x"}})")
                 .out,
             QStringLiteral("ignored\n"));
    QCOMPARE(
        run(ana + QStringList{QStringLiteral("push"), QStringLiteral("-")},
            R"({"zuvero":"1","badge":3,"appdata":{"uid":"ana","t":"m","uuid":"y"},"alert":"Hello"})")
            .out,
        QStringLiteral("consumed\n"));
}

void TestCli::usageErrors_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("message");
    QTest::newRow("no command") << QStringList() << "no command given";
    QTest::newRow("unknown command")
        << QStringList{QStringLiteral("dance")} << "unknown command \"dance\"";
    QTest::newRow("two credentials")
        << QStringList{QStringLiteral("--api-key"), QStringLiteral("k"), QStringLiteral("--jwt"),
                       QStringLiteral("t"), QStringLiteral("status")}
        << "give one of";
    QTest::newRow("option of another command")
        << QStringList{QStringLiteral("status"), QStringLiteral("--limit"), QStringLiteral("3")}
        << "--limit does not go with status";
    QTest::newRow("bad limit") << QStringList{QStringLiteral("history"), QStringLiteral("--limit"),
                                              QStringLiteral("x")}
                               << "--limit must be a whole number";
    QTest::newRow("bad location") << QStringList{
        QStringLiteral("send"), QStringLiteral("t"), QStringLiteral("--location"),
        QStringLiteral("91,0")} << "--location must be";
    QTest::newRow("send without text")
        << QStringList{QStringLiteral("send")} << "wrong number of arguments";
    QTest::newRow("no token") << QStringList{QStringLiteral("--api-key"), QStringLiteral("k"),
                                             QStringLiteral("token")}
                              << "no token";
    QTest::newRow("payload not JSON")
        << QStringList{QStringLiteral("--api-key"), QStringLiteral("k"), QStringLiteral("push"),
                       QStringLiteral("/nonexistent.json")}
        << "cannot read /nonexistent.json";
}

void TestCli::usageErrors()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, message);
    const Run result = run(QStringList{QStringLiteral("--state"), m_state.path()} + arguments);
    QCOMPARE(result.status, 2);
    QVERIFY2(result.err.contains(message), qPrintable(result.err));
}

void TestCli::serverAndTokenFailures()
{
    // Nobody listens: a network error, said plainly.
    QStringList down = common(QStringLiteral("ana"));
    down[1] = QStringLiteral("127.0.0.1:9");
    const Run refused = run(down + QStringList{QStringLiteral("status")});
    QCOMPARE(refused.status, 1);
    QVERIFY2(refused.err.startsWith(QLatin1String("zuvero-cli: com.zuvero.url ")),
             qPrintable(refused.err));

    // A token signed with another secret: the server's 401.
    ZVXJWT forged;
    forged.setPayload({{QStringLiteral("apiKey"), QStringLiteral("x")},
                       {QStringLiteral("installationId"), QStringLiteral("I")}});
    const QStringList forger{
        QStringLiteral("--host"),    m_host,
        QStringLiteral("--jwt"),     *forged.signedTokenWithSecret(QByteArray("not the secret")),
        QStringLiteral("--ca-file"), m_server.authorityPath(),
        QStringLiteral("--state"),   m_state.path()};
    const Run unauthorized = run(forger + QStringList{QStringLiteral("status")});
    QCOMPARE(unauthorized.status, 1);
    QVERIFY2(unauthorized.err.startsWith(QLatin1String("zuvero-cli: com.zuvero.errors 401: ")),
             qPrintable(unauthorized.err));
}

void TestCli::registerReportsItsOwnAnswer()
{
    const auto registrations
        = [this] { return m_admin->requestCount(QStringLiteral("POST /api/1.0/register")); };
    const auto fault = [this](const char *kind) {
        QCOMPARE(m_admin
                     ->postJSON(QStringLiteral("/admin/faults"),
                                {{QStringLiteral("path"), QStringLiteral("/api/1.0/register")},
                                 {QStringLiteral("kind"), QString::fromLatin1(kind)},
                                 {QStringLiteral("status"), 200}})
                     .status,
                 200);
    };

    // Identity options make no registration of their own: the command's one request is the one
    // it reports.
    QStringList options = common(QStringLiteral("reg"))
        + QStringList{QStringLiteral("--user-name"), QStringLiteral("Reg"),
                      QStringLiteral("--device-token"), QStringLiteral("a1b2")};
    qint64 before = registrations();
    fault("nonJSON");
    const Run refused = run(options + QStringList{QStringLiteral("register")});
    QCOMPARE(refused.status, 1);
    QVERIFY2(refused.err.startsWith(QLatin1String("zuvero-cli: com.zuvero.json ")),
             qPrintable(refused.err));
    QCOMPARE(registrations(), before + 1);
    before = registrations();
    QCOMPARE(run(options + QStringList{QStringLiteral("register")}).out,
             QStringLiteral("registered\n"));
    QCOMPARE(registrations(), before + 1);

    // A token registers as soon as it is set; when that fails, so does the command.
    ZVXJWT token;
    token.setPayload(
        {{QStringLiteral("apiKey"),
          QString::fromLatin1(QCryptographicHash::hash(QByteArray::fromHex(SecretHex.toLatin1()),
                                                       QCryptographicHash::Sha256)
                                  .toHex())},
         {QStringLiteral("installationId"), QStringLiteral("T")},
         {QStringLiteral("userId"), QStringLiteral("tokened")}});
    const QStringList tokened{
        QStringLiteral("--host"),
        m_host,
        QStringLiteral("--jwt"),
        *token.signedTokenWithSecret(QByteArray::fromHex(SecretHex.toLatin1())),
        QStringLiteral("--ca-file"),
        m_server.authorityPath(),
        QStringLiteral("--state"),
        m_state.path()};
    fault("nonJSON");
    const Run refused2 = run(tokened + QStringList{QStringLiteral("register")});
    QCOMPARE(refused2.status, 1);
    QVERIFY2(refused2.err.contains(QLatin1String("earlier registration")),
             qPrintable(refused2.err));
    QCOMPARE(run(tokened + QStringList{QStringLiteral("register")}).status, 0);
}

void TestCli::queueWaitsForTheServer()
{
    QVERIFY(m_server.stop());
    QProcess queue;
    queue.start(QStringLiteral(ZUVERO_CLI),
                common(QStringLiteral("queued"))
                    + QStringList{QStringLiteral("queue"), QStringLiteral("first"),
                                  QStringLiteral("second"), QStringLiteral("--wait"),
                                  QStringLiteral("60")});
    QVERIFY(queue.waitForStarted());
    QTest::qWait(1500); // the queue meets a server that is down at least once
    QVERIFY(m_server.restart());
    QVERIFY(queue.waitForFinished(60000));
    QCOMPARE(queue.exitCode(), 0);
    QCOMPARE(QString::fromUtf8(queue.readAllStandardOutput()),
             QStringLiteral("sent 2, queued 0, errored 0\n"));

    const Run history
        = run(common(QStringLiteral("queued")) + QStringList{QStringLiteral("history")});
    QStringList texts;
    for (const QString &line : history.out.split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
        const QVariantMap message = QJsonDocument::fromJson(line.toUtf8()).object().toVariantMap();
        if (message.contains(QStringLiteral("text")))
            texts << message.value(QStringLiteral("text")).toString();
    }
    QCOMPARE(texts, (QStringList{QStringLiteral("first"), QStringLiteral("second")}));
}

void TestCli::chatInTheTerminal()
{
    const QStringList bea = common(QStringLiteral("bea"));
    QCOMPARE(
        run(bea + QStringList{QStringLiteral("send"), QStringLiteral("Is anyone there?")}).status,
        0);
    ZVXDevClient console(m_server, QString());
    QCOMPARE(
        console
            .agentReply(console.conversationId(QStringLiteral("userId"), QStringLiteral("bea")),
                        QStringLiteral("Yes, how can I help?"))
            .status,
        200);
    // Typed lines are sent; at the end of input the conversation is printed in order, agent and
    // user apart.
    const Run chat = run(bea + QStringList{QStringLiteral("chat")}, "My parcel is late.\n");
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
