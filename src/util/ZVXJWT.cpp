#include "ZVXJWT.h"

#include "ZVXJSON.h"
#include "ZVXLogging.h"
#include "ZuveroData_p.h"

namespace {

const QString AlgorithmKey = QStringLiteral("alg");
const QString TypeKey = QStringLiteral("typ");

std::optional<QString> base64URLOfJSON(const QVariantMap &object, ZuveroError *error)
{
    const std::optional<QByteArray> json = ZVXJSON::serialize(object, error);
    if (!json)
        return std::nullopt;
    return ZuveroBase64URLWithData(*json);
}

std::optional<QString> algorithmName(const QVariantMap &header)
{
    const QVariant algorithm = header.value(AlgorithmKey);
    if (algorithm.metaType().id() != QMetaType::QString)
        return std::nullopt;
    return algorithm.toString();
}

} // namespace

std::shared_ptr<ZVXJWT> ZVXJWT::initWithPayload(const std::optional<QVariantMap> &payload)
{
    if (!payload)
        return nullptr;
    auto token = std::make_shared<ZVXJWT>();
    token->m_payload = *payload;
    return token;
}

QVariantMap ZVXJWT::header() const
{
    if (!m_header)
        m_header = QVariantMap{{AlgorithmKey, QStringLiteral("HS256")},
                               {TypeKey, QStringLiteral("JWT")}};
    return *m_header;
}

std::optional<QString> ZVXJWT::signedTokenWithSecret(const std::optional<QByteArray> &secret,
                                                     ZuveroError *error) const
{
    if (!secret)
        return std::nullopt;
    QVariantMap signingHeader = header();
    signingHeader.insert(TypeKey, QStringLiteral("JWT"));
    if (!signingHeader.contains(AlgorithmKey))
        signingHeader.insert(AlgorithmKey, QStringLiteral("HS256"));

    const std::optional<QString> encodedHeader = base64URLOfJSON(signingHeader, error);
    if (!encodedHeader)
        return std::nullopt;
    const std::optional<QString> encodedPayload = base64URLOfJSON(m_payload, error);
    if (!encodedPayload)
        return std::nullopt;

    const QString signingInput = *encodedHeader + QLatin1Char('.') + *encodedPayload;
    // An unknown algorithm gives no token and, deliberately, no error.
    const std::optional<QByteArray> signature
        = signatureForData(signingInput.toLatin1(), *secret, algorithmName(signingHeader));
    if (!signature)
        return std::nullopt;
    return signingInput + QLatin1Char('.') + *ZuveroBase64URLWithData(*signature);
}

std::optional<QByteArray> ZVXJWT::signatureForData(const QByteArray &data, const QByteArray &key,
                                                   const std::optional<QString> &algorithm)
{
    if (algorithm == QLatin1String("HS256"))
        return ZuveroHMACSHA256(key, data);
    if (algorithm == QLatin1String("HS512"))
        return ZuveroHMACSHA512(key, data);
    return std::nullopt;
}

std::shared_ptr<ZVXJWT> ZVXJWT::initWithJWT(const std::optional<QString> &jwt,
                                            const std::optional<QByteArray> &secret)
{
    if (!jwt)
        return nullptr;
    const QStringList parts = jwt->split(QLatin1Char('.'));
    if (parts.size() != 3)
        return nullptr;
    const std::optional<QByteArray> headerBytes = ZuveroDataFromBase64URL(parts.at(0));
    const std::optional<QByteArray> payloadBytes = ZuveroDataFromBase64URL(parts.at(1));
    if (!headerBytes || !payloadBytes)
        return nullptr;

    ZuveroError parseError;
    const std::optional<QVariant> header = ZVXJSON::parse(*headerBytes, &parseError);
    if (!header || header->metaType().id() != QMetaType::QVariantMap) {
        if (parseError.isNull())
            parseError
                = ZuveroError::withDescription(QString(ZuveroJSONErrorDomain), ZuveroJSONErrorParse,
                                               QStringLiteral("JSON text is not an object"));
        ZVXLogError(QStringLiteral("ZVXJWT: failed to parse JSON from data: %1 Error: %2")
                        .arg(ZVXDescribeBytes(*headerBytes), parseError.localizedDescription()));
        return nullptr;
    }
    const QVariantMap headerMap = header->toMap();

    if (secret) {
        const std::optional<QByteArray> signature = ZuveroDataFromBase64URL(parts.at(2));
        // The signing input is the text as received, not a re-encoding of it.
        const QString signingInput = parts.at(0) + QLatin1Char('.') + parts.at(1);
        const std::optional<QByteArray> expected
            = signatureForData(signingInput.toLatin1(), *secret, algorithmName(headerMap));
        if (!signature || !expected || !ZVXConstantTimeEquals(*expected, *signature))
            return nullptr;
    }

    const std::optional<QVariant> payload = ZVXJSON::parse(*payloadBytes);
    if (!payload || payload->metaType().id() != QMetaType::QVariantMap)
        return nullptr;

    auto token = std::make_shared<ZVXJWT>();
    token->m_header = headerMap;
    token->m_payload = payload->toMap();
    return token;
}

std::optional<QString> ZVXJWT::extractJWTPayload(const std::optional<QString> &jwt)
{
    if (!jwt) {
        ZVXLog(QStringLiteral("JWT is nil"));
        return std::nullopt;
    }
    const QStringList parts = jwt->split(QLatin1Char('.'));
    if (parts.size() != 3) {
        ZVXLog(QStringLiteral("Bad JWT format"));
        return std::nullopt;
    }
    return parts.at(1);
}

QVariant ZVXJWT::jsonStringToNSDict(const std::optional<QString> &json)
{
    if (!json) {
        ZVXLog(QStringLiteral("Incorrect payload JSON structure"));
        return {};
    }
    return ZVXJSON::parse(json->toUtf8()).value_or(QVariant());
}

QVariant ZVXJWT::getPayloadNSDict(const std::optional<QString> &jwt)
{
    const std::optional<QString> payload = extractJWTPayload(jwt);
    if (!payload)
        return {};
    return jsonStringToNSDict(decodeBase64String(payload));
}
