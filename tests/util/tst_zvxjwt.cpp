#include "ZVXJWT.h"
#include "ZVXLogCapture.h"
#include "ZuveroData.h"

#include <QDateTime>
#include <QProcess>
#include <QStandardPaths>
#include <QTest>

namespace {

// RFC 7515, appendix A.1: an HS256 token and its key.
const QString rfcToken = QStringLiteral("eyJ0eXAiOiJKV1QiLA0KICJhbGciOiJIUzI1NiJ9"
                                        ".eyJpc3MiOiJqb2UiLA0KICJleHAiOjEzMDA4MTkzODAsDQogImh0dHA6L"
                                        "y9leGFtcGxlLmNvbS9pc19yb290Ijp0cnVlfQ"
                                        ".dBjftJeZ4CVP-mB92K27uhbUJU1p1r_wW1gFWFOEjXk");
const QString rfcKey = QStringLiteral(
    "AyM1SysPpbyDfgZld3umj1qzKObwVMkoqQ-EstJQLr_T-1qS0gZH75aKtMN3Yj0iPS4hcgUuTwjAzZr1Z9CAow");

QByteArray rfcSecret()
{
    return *ZuveroDataFromBase64URL(rfcKey);
}

QVariantMap claims()
{
    return {
        {QStringLiteral("apiKey"), QStringLiteral("9f86d081884c7d65")},
        {QStringLiteral("installationId"), QStringLiteral("4E8C8D2A-1B77-4C5A-9D7E-0F3A1B2C3D4E")},
        {QStringLiteral("userName"), QStringLiteral("Zoë ✓")},
        {QStringLiteral("extra"),
         QVariantMap{{QStringLiteral("plan"), QStringLiteral("gold")},
                     {QStringLiteral("seats"), 12}}}};
}

} // namespace

class TestZVXJWT : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void verifiesTheRFCExample();
    void signedTokensReadBack();
    void signaturesMatchOpenSSL_data();
    void signaturesMatchOpenSSL();
    void onlyHMACAlgorithmsAreKnown();
    void serialisationErrorsAreReported();
    void malformedTokens();
    void readingWithoutVerification();
};

void TestZVXJWT::verifiesTheRFCExample()
{
    const auto token = ZVXJWT::initWithJWT(rfcToken, rfcSecret());
    QVERIFY(token);
    QCOMPARE(token->payload().value(QStringLiteral("iss")), QVariant(QStringLiteral("joe")));
    QCOMPARE(token->header().value(QStringLiteral("alg")), QVariant(QStringLiteral("HS256")));

    // One changed character of the signature: refused with the key, accepted without one.
    QString tampered = rfcToken;
    tampered[tampered.size() - 2] = tampered.at(tampered.size() - 2) == u'X' ? u'Y' : u'X';
    QVERIFY(!ZVXJWT::initWithJWT(tampered, rfcSecret()));
    QVERIFY(ZVXJWT::initWithJWT(tampered));
    QVERIFY(!ZVXJWT::initWithJWT(rfcToken, QByteArray("another key")));
}

void TestZVXJWT::signedTokensReadBack()
{
    const auto token = ZVXJWT::initWithPayload(claims());
    QVERIFY(token);
    QVERIFY(!ZVXJWT::initWithPayload(std::nullopt));
    QVERIFY(!token->signedTokenWithSecret(std::nullopt));

    const std::optional<QString> text = token->signedTokenWithSecret(QByteArray("s3cr3t"));
    QVERIFY(text);
    QCOMPARE(ZVXJWT::getPayloadNSDict(text), QVariant(claims()));
    const auto verified = ZVXJWT::initWithJWT(text, QByteArray("s3cr3t"));
    QVERIFY(verified);
    QCOMPARE(verified->payload(), claims());
    QCOMPARE(verified->header(),
             (QVariantMap{{QStringLiteral("alg"), QStringLiteral("HS256")},
                          {QStringLiteral("typ"), QStringLiteral("JWT")}}));
}

void TestZVXJWT::signaturesMatchOpenSSL_data()
{
    QTest::addColumn<QString>("algorithm");
    QTest::addColumn<QString>("digest");
    QTest::newRow("HS256") << QStringLiteral("HS256") << QStringLiteral("sha256");
    QTest::newRow("HS512") << QStringLiteral("HS512") << QStringLiteral("sha512");
}

void TestZVXJWT::signaturesMatchOpenSSL()
{
    QFETCH(QString, algorithm);
    QFETCH(QString, digest);
    const QString openssl = QStandardPaths::findExecutable(QStringLiteral("openssl"));
    QVERIFY2(!openssl.isEmpty(), "the openssl command is installed by scripts/setup.sh");

    const QByteArray secret = ZuveroRandomDataWithLength(48);
    ZVXJWT token;
    token.setHeader({{QStringLiteral("alg"), algorithm}});
    token.setPayload(claims());
    const QString text = *token.signedTokenWithSecret(secret);
    const QString signingInput = text.section(QLatin1Char('.'), 0, 1);

    QProcess process;
    process.start(openssl,
                  {QStringLiteral("dgst"), QLatin1Char('-') + digest, QStringLiteral("-mac"),
                   QStringLiteral("HMAC"), QStringLiteral("-macopt"),
                   QStringLiteral("hexkey:") + *ZuveroHexStringFromData(secret),
                   QStringLiteral("-binary")});
    QVERIFY(process.waitForStarted());
    process.write(signingInput.toLatin1());
    process.closeWriteChannel();
    QVERIFY(process.waitForFinished());
    QCOMPARE(process.exitCode(), 0);
    QCOMPARE(ZuveroBase64URLWithData(process.readAllStandardOutput()),
             text.section(QLatin1Char('.'), 2));

    // The header names the algorithm and always gets its "typ".
    const auto parsed = ZVXJWT::initWithJWT(text, secret);
    QVERIFY(parsed);
    QCOMPARE(parsed->header(),
             (QVariantMap{{QStringLiteral("alg"), algorithm},
                          {QStringLiteral("typ"), QStringLiteral("JWT")}}));
}

void TestZVXJWT::onlyHMACAlgorithmsAreKnown()
{
    for (const QString &alg : {QStringLiteral("none"), QStringLiteral("RS256"),
                               QStringLiteral("hs256"), QStringLiteral("HS384")}) {
        ZVXJWT token;
        token.setHeader({{QStringLiteral("alg"), alg}});
        ZuveroError error;
        QVERIFY2(!token.signedTokenWithSecret(QByteArray("k"), &error), qPrintable(alg));
        QVERIFY(error.isNull());
        QVERIFY(!ZVXJWT::signatureForData("data", "k", alg));
    }
    QVERIFY(!ZVXJWT::signatureForData("data", "k", std::nullopt));

    // Tokens that name another algorithm are refused by the verifier, whatever their signature.
    const QString payload = *ZuveroBase64URLWithData(QByteArray(R"({"userId":"u"})"));
    for (const QByteArray &header : {QByteArray(R"({"alg":"none","typ":"JWT"})"),
                                     QByteArray(R"({"alg":"RS256","typ":"JWT"})")}) {
        const QString unsigned_ = *ZuveroBase64URLWithData(header) + QLatin1Char('.') + payload;
        const QString hmac
            = *ZuveroBase64URLWithData(*ZuveroHMACSHA256(QByteArray("k"), unsigned_.toLatin1()));
        QVERIFY(!ZVXJWT::initWithJWT(unsigned_ + QLatin1Char('.'), QByteArray("k")));
        QVERIFY(!ZVXJWT::initWithJWT(unsigned_ + QLatin1Char('.') + hmac, QByteArray("k")));
    }
}

void TestZVXJWT::serialisationErrorsAreReported()
{
    ZVXJWT token;
    token.setPayload({{QStringLiteral("when"), QDateTime::currentDateTimeUtc()}});
    ZuveroError error;
    QVERIFY(!token.signedTokenWithSecret(QByteArray("k"), &error));
    QVERIFY(!error.isNull());
    QVERIFY(error.localizedDescription().contains(QLatin1String("QDateTime")));
}

void TestZVXJWT::malformedTokens()
{
    ZVXLogCapture log;
    const QString valid = *ZVXJWT::initWithPayload(claims())->signedTokenWithSecret("secret");
    const QStringList parts = valid.split(QLatin1Char('.'));
    QVERIFY(!ZVXJWT::initWithJWT(parts.mid(0, 2).join(QLatin1Char('.')), QByteArray("secret")));
    QVERIFY(!ZVXJWT::initWithJWT(valid + QStringLiteral(".x"), QByteArray("secret")));
    QVERIFY(!ZVXJWT::initWithJWT(QStringLiteral("a.") + parts.at(1) + QStringLiteral(".x")));
    QVERIFY(!ZVXJWT::initWithJWT(std::nullopt));
    QVERIFY(log.lines().isEmpty());

    // A header that decodes but is not JSON is worth a log line.
    const QString notJSON = *ZuveroBase64URLWithData(QByteArray("{oops"));
    QVERIFY(!ZVXJWT::initWithJWT(notJSON + QLatin1Char('.') + parts.at(1) + QLatin1Char('.')
                                 + parts.at(2)));
    QCOMPARE(log.lines().size(), 1);
    QVERIFY(log.lines().first().startsWith(QStringLiteral(
        "ZVX ERROR: ZVXJWT: failed to parse JSON from data: <7b6f6f70 73> Error: ")));

    // A payload that is not an object gives no token.
    const QString array = *ZuveroBase64URLWithData(QByteArray("[1]"));
    QVERIFY(!ZVXJWT::initWithJWT(parts.at(0) + QLatin1Char('.') + array + QStringLiteral(".x")));
}

void TestZVXJWT::readingWithoutVerification()
{
    ZVXLogCapture log;
    QVERIFY(!ZVXJWT::getPayloadNSDict(std::nullopt).isValid());
    QVERIFY(!ZVXJWT::getPayloadNSDict(QStringLiteral("a.b")).isValid());
    QVERIFY(!ZVXJWT::getPayloadNSDict(QStringLiteral("a.b.c.d")).isValid());
    QCOMPARE(log.lines(),
             (QStringList{QStringLiteral("ZVX: JWT is nil"), QStringLiteral("ZVX: Bad JWT format"),
                          QStringLiteral("ZVX: Bad JWT format")}));
    log.clear();

    // A payload that does not decode is a fault; one that decodes but does not parse is not.
    QVERIFY(!ZVXJWT::getPayloadNSDict(QStringLiteral("a.b.c")).isValid());
    QCOMPARE(log.lines(), QStringList{QStringLiteral("ZVX: Incorrect payload JSON structure")});
    log.clear();
    const QString garbage = *ZuveroBase64URLWithData(QByteArray("not json"));
    QVERIFY(
        !ZVXJWT::getPayloadNSDict(QStringLiteral("a.") + garbage + QStringLiteral(".c")).isValid());
    QVERIFY(log.lines().isEmpty());

    // The claims of the RFC example are read although its header has line breaks.
    const QVariantMap payload = ZVXJWT::getPayloadNSDict(rfcToken).toMap();
    QCOMPARE(payload.value(QStringLiteral("exp")).toLongLong(), 1300819380);
    QCOMPARE(payload.value(QStringLiteral("http://example.com/is_root")), QVariant(true));
}

QTEST_GUILESS_MAIN(TestZVXJWT)
#include "tst_zvxjwt.moc"
