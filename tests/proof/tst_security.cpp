// What an attacker on the network, a careless log or a forged token can get out of the library.

#include "ZVXDevServerProcess.h"
#include "ZVXJWT.h"
#include "ZVXLogCapture.h"
#include "ZVXReachability.h"
#include "ZVXTemporaryUserDefaults.h"
#include "ZVXTestCertificates.h"
#include "ZVXTestServer.h"
#include "ZVXURLSession.h"
#include "Zuvero.h"
#include "ZuveroCertificateAuthorities.h"
#include "ZuveroData.h"

#include <QFile>
#include <QLoggingCategory>
#include <QNetworkReply>
#include <QProcess>
#include <QSslConfiguration>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <sys/mount.h>

using namespace Qt::StringLiterals;

namespace {

// "zuvero-secret-42": printable, so that a raw leak would show in a line too.
const QString SecretHex = u"7a757665726f2d7365637265742d3432"_s;
const QByteArray Secret = QByteArray::fromHex(SecretHex.toLatin1());
constexpr quint32 Online = ZVXReachabilityFlags::Reachable;
// Set in the copy of this test that runs in a mount namespace of its own.
const char SystemStoreChild[] = "ZUVERO_TEST_SYSTEM_STORE_CHILD";

// Every form in which a secret could slip into a line.
QStringList formsOf(const QByteArray &secret)
{
    return {QString::fromLatin1(secret.toHex()), QString::fromLatin1(secret.toHex().toUpper()),
            QString::fromLatin1(secret), QString::fromLatin1(secret.toBase64()),
            *ZuveroBase64URLWithData(secret)};
}

QString part(const QString &token, int index)
{
    return token.section(u'.', index, index);
}

} // namespace

class TestSecurity : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init() { m_defaults = std::make_unique<ZVXTemporaryUserDefaults>(); }
    void cleanup() { m_defaults.reset(); }
    void cleanupTestCase() { ZuveroRemoveTrustedCertificateAuthorities(); }
    void certificates_data();
    void certificates();
    void systemAuthoritiesStayTrusted();
    void verifierRefusesOtherAlgorithms_data();
    void verifierRefusesOtherAlgorithms();
    void secretsStayOutOfTheLog();

private:
    std::unique_ptr<ZVXTestCertificates> m_certificates;
    std::unique_ptr<ZVXTemporaryUserDefaults> m_defaults;
    std::shared_ptr<ZVXSettableReachabilitySource> m_network;
};

void TestSecurity::initTestCase()
{
    m_certificates = std::make_unique<ZVXTestCertificates>();
    QVERIFY2(m_certificates->isValid(), qPrintable(m_certificates->errorString()));
    m_certificates->expired();
    m_certificates->wrongHost();
    QVERIFY2(m_certificates->isValid(), qPrintable(m_certificates->errorString()));
    QCOMPARE(ZuveroAddTrustedCertificateAuthorities(m_certificates->trusted.authorityPem), 1);
    m_network = std::make_shared<ZVXSettableReachabilitySource>(Online);
    ZVXReachability::setSourceFactory([this](const QHostAddress &) { return m_network; });
}

void TestSecurity::certificates_data()
{
    QTest::addColumn<QSslCertificate>("certificate");
    QTest::addColumn<QSslKey>("key");
    QTest::addColumn<QString>("reason"); // empty: accepted
    const auto &c = *m_certificates;
    QTest::newRow("trusted") << c.trusted.certificate << c.trusted.key << QString();
    QTest::newRow("untrusted") << c.untrusted.certificate << c.untrusted.key
                               << u"issuer certificate"_s;
    QTest::newRow("expired") << m_certificates->expired().certificate
                             << m_certificates->expired().key << u"expired"_s;
    QTest::newRow("wrong host") << m_certificates->wrongHost().certificate
                                << m_certificates->wrongHost().key << u"host name"_s;
}

void TestSecurity::certificates()
{
    QFETCH(QSslCertificate, certificate);
    QFETCH(QSslKey, key);
    QFETCH(QString, reason);
    QVERIFY(!certificate.isNull());
    ZVXTestServer server(certificate, key);
    QVERIFY(server.isListening());
    const QString host = server.url({}).authority();
    std::unique_ptr<Zuvero> zuvero(Zuvero::initWithApiSecret(SecretHex, host, {}));
    zuvero->setUserIdentifier(u"tls"_s);

    std::optional<ZuveroError> outcome;
    zuvero->connection()->sendChatMessage(ZuveroChatMessage::initWithText(u"card 4242"_s),
                                          [&](bool, const ZuveroError &error) { outcome = error; });
    QTRY_VERIFY(outcome);
    zuvero->sendMessage(u"second try"_s);
    if (reason.isEmpty()) {
        QVERIFY2(outcome->isNull(), qPrintable(outcome->localizedDescription()));
        QTRY_COMPARE(server.requestCount(), 3); // registration and both messages
        return;
    }
    QCOMPARE(outcome->domain(), ZuveroURLErrorDomain);
    QCOMPARE(outcome->code(), QNetworkReply::SslHandshakeFailedError);
    QVERIFY2(outcome->localizedDescription().contains(reason, Qt::CaseInsensitive),
             qPrintable(outcome->localizedDescription()));
    // The text written is kept for later, and not one request reached the server.
    QTRY_COMPARE(zuvero->offlineMessages().size(), 1);
    QCOMPARE(zuvero->offlineMessages().first()->text(), u"second try"_s);
    QCOMPARE(server.requestCount(), 0);
}

// A host that adds the authority of its own development server still reaches servers with public
// certificates: the system's authorities stay trusted beside the added ones. The system's store
// is replaced, in a user and mount namespace of a copy of this test, by one that holds only the
// authority no other test trusts.
void TestSecurity::systemAuthoritiesStayTrusted()
{
    if (!qEnvironmentVariableIsSet(SystemStoreChild)) {
        const QString unshare = QStandardPaths::findExecutable(u"unshare"_s);
        if (unshare.isEmpty())
            QSKIP("unshare is not installed");
        QProcess child;
        child.setProcessChannelMode(QProcess::MergedChannels);
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QString::fromLatin1(SystemStoreChild), u"1"_s);
        child.setProcessEnvironment(environment);
        child.start(unshare,
                    {u"--user"_s, u"--map-root-user"_s, u"--mount"_s,
                     QCoreApplication::applicationFilePath(), u"systemAuthoritiesStayTrusted"_s});
        QVERIFY(child.waitForFinished(60000));
        const QString output = QString::fromUtf8(child.readAll());
        if (output.startsWith(u"unshare:"_s))
            QSKIP(qPrintable(u"no user namespaces here: "_s + output.trimmed()));
        QVERIFY2(child.exitStatus() == QProcess::NormalExit && child.exitCode() == 0,
                 qPrintable(output));
        return;
    }

    const ZVXTestCertificates::Identity &system = m_certificates->untrusted;
    QTemporaryDir store;
    QFile authority(store.filePath(u"zuvero-system.pem"_s));
    QVERIFY(authority.open(QIODevice::WriteOnly));
    QVERIFY(authority.write(system.authorityPem) == system.authorityPem.size());
    authority.close();
    QCOMPARE(QProcess::execute(u"openssl"_s, {u"rehash"_s, store.path()}), 0);
    QVERIFY2(::mount(QFile::encodeName(store.path()).constData(), "/etc/ssl/certs", nullptr,
                     MS_BIND, nullptr)
                 == 0,
             strerror(errno));
    QVERIFY(
        QSslConfiguration::systemCaCertificates().contains(QSslCertificate(system.authorityPem)));

    // initTestCase() has added the test authority: the system's must count all the same.
    ZVXTestServer server(system.certificate, system.key);
    QVERIFY(server.isListening());
    std::unique_ptr<Zuvero> zuvero(
        Zuvero::initWithApiSecret(SecretHex, server.url({}).authority(), {}));
    zuvero->setUserIdentifier(u"public"_s);
    std::optional<ZuveroError> outcome;
    zuvero->connection()->sendChatMessage(ZuveroChatMessage::initWithText(u"hello"_s),
                                          [&](bool, const ZuveroError &error) { outcome = error; });
    QTRY_VERIFY(outcome);
    QVERIFY2(outcome->isNull(), qPrintable(outcome->localizedDescription()));
}

void TestSecurity::verifierRefusesOtherAlgorithms_data()
{
    QTest::addColumn<QString>("token");
    QTest::addColumn<bool>("verifies");
    const QVariantMap claims{{u"userId"_s, u"admin"_s}, {u"apiKey"_s, u"key"_s}};
    const auto encode = [](const QByteArray &json) { return *ZuveroBase64URLWithData(json); };
    const QString payload = encode(R"({"apiKey":"key","userId":"admin"})");
    // A signature over the right bytes, with the right secret: only the header's algorithm varies.
    const auto withHeader = [&](const QByteArray &header, const char *algorithm) {
        const QString input = encode(header) + u'.' + payload;
        const QByteArray signature = QByteArray(algorithm) == "HS512"
            ? *ZuveroHMACSHA512(Secret, input.toLatin1())
            : *ZuveroHMACSHA256(Secret, input.toLatin1());
        return input + u'.' + encode(signature);
    };

    auto hs256 = ZVXJWT::initWithPayload(claims);
    QTest::newRow("HS256") << *hs256->signedTokenWithSecret(Secret) << true;
    QTest::newRow("alg none, no signature")
        << encode(R"({"alg":"none","typ":"JWT"})") + u'.' + payload + u'.' << false;
    QTest::newRow("alg none, HS256 signature")
        << withHeader(R"({"alg":"none","typ":"JWT"})", "HS256") << false;
    QTest::newRow("alg RS256, HS256 signature")
        << withHeader(R"({"alg":"RS256","typ":"JWT"})", "HS256") << false;
    QTest::newRow("alg hs256 in lower case")
        << withHeader(R"({"alg":"hs256","typ":"JWT"})", "HS256") << false;
    QTest::newRow("no alg") << withHeader(R"({"typ":"JWT"})", "HS256") << false;
    QTest::newRow("alg HS512, HS256 signature")
        << withHeader(R"({"alg":"HS512","typ":"JWT"})", "HS256") << false;
    QTest::newRow("HS512") << withHeader(R"({"alg":"HS512","typ":"JWT"})", "HS512") << true;
}

void TestSecurity::verifierRefusesOtherAlgorithms()
{
    QFETCH(QString, token);
    QFETCH(bool, verifies);
    const auto verified = ZVXJWT::initWithJWT(token, Secret);
    QCOMPARE(bool(verified), verifies);
    if (verified)
        QCOMPARE(verified->payload().value(u"userId"_s), QVariant(u"admin"_s));
}

void TestSecurity::secretsStayOutOfTheLog()
{
    ZVXDevServerProcess server;
    QVERIFY(server.start({u"--api-secret"_s, SecretHex, u"--admin"_s}));
    QFile authority(server.authorityPath());
    QVERIFY(authority.open(QIODevice::ReadOnly));
    QCOMPARE(ZuveroAddTrustedCertificateAuthorities(authority.readAll()), 1);
    ZVXDevClient admin(server, ZVXDevSign({{u"installationId"_s, u"admin"_s}}, Secret));
    const QString host = QUrl(server.origin()).authority();

    // Every line of every category, Qt's network and TLS debugging included.
    QLoggingCategory::setFilterRules(u"*=true"_s);
    const auto restoreRules = qScopeGuard([] { QLoggingCategory::setFilterRules({}); });
    auto log = std::make_unique<ZVXLogCapture>(ZVXLogCapture::Categories::All);

    std::unique_ptr<Zuvero> zuvero(Zuvero::initWithApiSecret(SecretHex, host, {}));
    zuvero->setDeviceToken(QByteArray::fromHex("00aa11bb22cc33dd"));
    zuvero->setUserName(u"Ana"_s);
    zuvero->setUserIdentifier(u"secrecy"_s);
    const QString token = *zuvero->jwt();
    bool done = false;
    const auto settled = [&] {
        const bool answered = QTest::qWaitFor([&] { return done; }, 20000);
        done = false;
        return answered;
    };
    zuvero->registerIfNeeded([&](bool, const ZuveroError &) { done = true; });
    QVERIFY2(settled(), "registration");

    // Register, send (text and a file), list, mark read, counts.
    zuvero->sendMessage(u"Where is my parcel?"_s);
    QImage picture(8, 8, QImage::Format_RGB32);
    picture.fill(Qt::red);
    zuvero->connection()->sendChatMessage(
        ZuveroChatMessage::initWithText(
            u"photo"_s, ZuveroChatAttachment::initWithImage(ZuveroImage::initWithImage(picture))),
        [&](bool success, const ZuveroError &) { done = success; });
    QVERIFY2(settled(), "a file sent");
    ZuveroChatMessageList listed;
    zuvero->connection()->loadMessageSinceDate(
        QDateTime(), 50, [&](const std::optional<ZuveroChatMessageList> &messages, bool, auto) {
            listed = messages.value_or(ZuveroChatMessageList());
            done = true;
        });
    QVERIFY2(settled(), "the listing");
    QCOMPARE(listed.size(), 2);
    zuvero->connection()->markReadMessages(listed, [&](bool, const ZuveroError &) { done = true; });
    QVERIFY2(settled(), "the read mark");
    zuvero->fetchUnreadCountWithCompletionHandler(
        [&](qint64, const ZuveroError &) { done = true; });
    QVERIFY2(settled(), "the unread count");

    // A push, as the server sends it after an agent's answer.
    ZVXDevClient device(server, token);
    QNetworkReply *stream = device.manager().get(device.request(u"/api/1.0/push"_s));
    QByteArray events;
    connect(stream, &QIODevice::readyRead, this, [&] { events += stream->readAll(); });
    QTRY_VERIFY(events.contains(": connected"));
    QCOMPARE(
        admin.agentReply(admin.conversationId(u"userId"_s, u"secrecy"_s), u"On its way"_s).status,
        200);
    QTRY_VERIFY(events.contains("\ndata: "));
    const qsizetype start = events.indexOf("\ndata: ") + 7;
    stream->abort();
    QVERIFY(zuvero->consumeReceivedRemoteNotification(ZVXDevReply{
        QNetworkReply::NoError, 200, events.mid(start, events.indexOf('\n', start) - start), {}}
                                                          .json()));

    // Failures: refusals, a page that is not JSON, a dropped connection, a refused token.
    for (const char *kind : {"status", "nonJSON", "drop"}) {
        QCOMPARE(admin
                     .postJSON(u"/admin/faults"_s,
                               {{u"path"_s, u"/api/1.0/status"_s},
                                {u"kind"_s, QString::fromLatin1(kind)},
                                {u"count"_s, 5}})
                     .status,
                 200);
        zuvero->connection()->loadUserStatus([&](qint64, const ZuveroError &) { done = true; });
        QVERIFY2(settled(), kind);
        admin.wait(admin.manager().deleteResource(admin.request(u"/admin/faults"_s)));
    }
    const QByteArray otherSecret = "another secret!";
    std::unique_ptr<Zuvero> impostor(
        Zuvero::initWithApiSecret(QString::fromLatin1(otherSecret.toHex()), host, {}));
    impostor->setUserIdentifier(u"secrecy"_s);
    const QString impostorToken = *impostor->jwt();
    // Its first registration, refused, leaves it needing one; the second is asked for by hand.
    QTRY_VERIFY(impostor->needsRegistration());
    impostor->registerIfNeeded([&](bool success, const ZuveroError &) { done = !success; });
    QVERIFY2(settled(), "the impostor's registration");

    const QStringList lines = log->lines();
    log.reset();
    // The capture did see the run: the library's lines, and Qt's own debugging.
    QVERIFY(!lines.filter(u"zuvero: ZVX: ZuveroConnection: Uploaded message"_s).isEmpty());
    QVERIFY(!lines.filter(u"zuvero: ZVX: Failed registering"_s).isEmpty());
    QVERIFY(std::any_of(lines.cbegin(), lines.cend(),
                        [](const QString &line) { return line.startsWith(u"qt."_s); }));
    QStringList secrets = formsOf(Secret) + formsOf(otherSecret);
    secrets << token << part(token, 2) << impostorToken << part(impostorToken, 2);
    for (const QString &secret : std::as_const(secrets)) {
        for (const QString &line : lines)
            QVERIFY2(!line.contains(secret), qPrintable(u"\"%1\" in: %2"_s.arg(secret, line)));
    }
    qInfo("searched %lld log lines for %lld secrets", qint64(lines.size()), qint64(secrets.size()));
}

QTEST_MAIN(TestSecurity)
#include "tst_security.moc"
