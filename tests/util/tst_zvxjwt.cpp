#include "ZVXJWT.h"
#include "ZVXLogCapture.h"
#include "ZuveroData.h"

#include <QDateTime>
#include <QProcess>
#include <QStandardPaths>
#include <QTest>

using namespace Qt::StringLiterals;

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
    return {{u"apiKey"_s, u"9f86d081884c7d65"_s},
            {u"installationId"_s, u"4E8C8D2A-1B77-4C5A-9D7E-0F3A1B2C3D4E"_s},
            {u"userName"_s, u"Zoë ✓"_s},
            {u"extra"_s, QVariantMap{{u"plan"_s, u"gold"_s}, {u"seats"_s, 12}}}};
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
    QCOMPARE(token->payload().value(u"iss"_s), QVariant(u"joe"_s));
    QCOMPARE(token->header().value(u"alg"_s), QVariant(u"HS256"_s));

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
    QCOMPARE(verified->header(), (QVariantMap{{u"alg"_s, u"HS256"_s}, {u"typ"_s, u"JWT"_s}}));
}

void TestZVXJWT::signaturesMatchOpenSSL_data()
{
    QTest::addColumn<QString>("algorithm");
    QTest::addColumn<QString>("digest");
    QTest::newRow("HS256") << u"HS256"_s << u"sha256"_s;
    QTest::newRow("HS512") << u"HS512"_s << u"sha512"_s;
}

void TestZVXJWT::signaturesMatchOpenSSL()
{
    QFETCH(QString, algorithm);
    QFETCH(QString, digest);
    const QString openssl = QStandardPaths::findExecutable(u"openssl"_s);
    QVERIFY2(!openssl.isEmpty(), "the openssl command is installed by scripts/setup.sh");

    const QByteArray secret = ZuveroRandomDataWithLength(48);
    ZVXJWT token;
    token.setHeader({{u"alg"_s, algorithm}});
    token.setPayload(claims());
    const QString text = *token.signedTokenWithSecret(secret);
    const QString signingInput = text.section(QLatin1Char('.'), 0, 1);

    QProcess process;
    process.start(openssl,
                  {u"dgst"_s, QLatin1Char('-') + digest, u"-mac"_s, u"HMAC"_s, u"-macopt"_s,
                   u"hexkey:"_s + *ZuveroHexStringFromData(secret), u"-binary"_s});
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
    QCOMPARE(parsed->header(), (QVariantMap{{u"alg"_s, algorithm}, {u"typ"_s, u"JWT"_s}}));
}

void TestZVXJWT::onlyHMACAlgorithmsAreKnown()
{
    for (const QString &alg : {u"none"_s, u"RS256"_s, u"hs256"_s, u"HS384"_s}) {
        ZVXJWT token;
        token.setHeader({{u"alg"_s, alg}});
        ZuveroError error;
        QVERIFY2(!token.signedTokenWithSecret(QByteArray("k"), &error), qPrintable(alg));
        QVERIFY(error.isNull());
        QVERIFY(!ZVXJWT::signatureForData("data", "k", alg));
    }
    QVERIFY(!ZVXJWT::signatureForData("data", "k", std::nullopt));
    // The verifier's side, token by token, is in the security suite.
}

void TestZVXJWT::serialisationErrorsAreReported()
{
    ZVXJWT token;
    token.setPayload({{u"when"_s, QDateTime::currentDateTimeUtc()}});
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
    QVERIFY(!ZVXJWT::initWithJWT(valid + u".x"_s, QByteArray("secret")));
    QVERIFY(!ZVXJWT::initWithJWT(u"a."_s + parts.at(1) + u".x"_s));
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
    QVERIFY(!ZVXJWT::initWithJWT(parts.at(0) + QLatin1Char('.') + array + u".x"_s));
}

void TestZVXJWT::readingWithoutVerification()
{
    ZVXLogCapture log;
    QVERIFY(!ZVXJWT::getPayloadNSDict(std::nullopt).isValid());
    QVERIFY(!ZVXJWT::getPayloadNSDict(u"a.b"_s).isValid());
    QVERIFY(!ZVXJWT::getPayloadNSDict(u"a.b.c.d"_s).isValid());
    QCOMPARE(
        log.lines(),
        (QStringList{u"ZVX: JWT is nil"_s, u"ZVX: Bad JWT format"_s, u"ZVX: Bad JWT format"_s}));
    log.clear();

    // A payload that does not decode is a fault; one that decodes but does not parse is not.
    QVERIFY(!ZVXJWT::getPayloadNSDict(u"a.b.c"_s).isValid());
    QCOMPARE(log.lines(), QStringList{u"ZVX: Incorrect payload JSON structure"_s});
    log.clear();
    const QString garbage = *ZuveroBase64URLWithData(QByteArray("not json"));
    QVERIFY(!ZVXJWT::getPayloadNSDict(u"a."_s + garbage + u".c"_s).isValid());
    QVERIFY(log.lines().isEmpty());

    // The claims of the RFC example are read although its header has line breaks.
    const QVariantMap payload = ZVXJWT::getPayloadNSDict(rfcToken).toMap();
    QCOMPARE(payload.value(u"exp"_s).toLongLong(), 1300819380);
    QCOMPARE(payload.value(u"http://example.com/is_root"_s), QVariant(true));
}

QTEST_GUILESS_MAIN(TestZVXJWT)
#include "tst_zvxjwt.moc"
