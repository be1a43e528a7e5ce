// Tokens: reading and verifying any text, and signing any claims.

#include "ZVXFuzz.h"
#include "ZVXJSON.h"
#include "ZVXJWT.h"

namespace {

const QByteArray Secret("fuzzing secret");
const QByteArray OtherSecret("fuzzing secret.");

QByteArray json(const QVariant &value)
{
    return ZVXJSON::serialize(value).value_or(QByteArray());
}

} // namespace

ZVX_FUZZ_APPLICATION(ZVXFuzz::Application::Core)

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    ZVXFuzz::Reader input(data, size);
    const uint8_t choice = input.byte();
    const QByteArray rest = input.rest();
    const QString text = QString::fromUtf8(rest);

    const auto unverified = ZVXJWT::initWithJWT(text);
    const auto verified = ZVXJWT::initWithJWT(text, Secret);
    if (verified) {
        ZVX_FUZZ_CHECK(unverified);
        ZVX_FUZZ_CHECK(verified->payload() == unverified->payload());
        const QVariant algorithm = verified->header().value(QStringLiteral("alg"));
        ZVX_FUZZ_CHECK(algorithm == QStringLiteral("HS256")
                       || algorithm == QStringLiteral("HS512"));
    }
    (void)ZVXJWT::getPayloadNSDict(text);

    // Claims from the input, signed: the token verifies with its secret and no other.
    const std::optional<QVariant> claims = ZVXJSON::parse(rest);
    if (!claims || claims->metaType().id() != QMetaType::QVariantMap)
        return 0;
    const char *const algorithms[] = {"HS256", "HS512", "none", "RS256"};
    const QString algorithm = QLatin1String(algorithms[choice % 4]);
    ZVXJWT token;
    token.setPayload(claims->toMap());
    token.setHeader({{QStringLiteral("alg"), algorithm}});
    const std::optional<QString> signedToken = token.signedTokenWithSecret(Secret);
    if (!algorithm.startsWith(QLatin1String("HS"))) {
        ZVX_FUZZ_CHECK(!signedToken);
        return 0;
    }
    ZVX_FUZZ_CHECK(signedToken);
    const auto back = ZVXJWT::initWithJWT(signedToken, Secret);
    ZVX_FUZZ_CHECK(back);
    ZVX_FUZZ_CHECK(json(back->payload()) == json(*claims));
    ZVX_FUZZ_CHECK(json(ZVXJWT::getPayloadNSDict(signedToken)) == json(*claims));
    ZVX_FUZZ_CHECK(!ZVXJWT::initWithJWT(signedToken, OtherSecret));
    return 0;
}
