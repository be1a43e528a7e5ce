#include "ZVXDevTokens.h"

#include "ZVXDevJSON.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>

namespace ZVXDevTokens {

namespace {

// Unpadded Base64URL only: a token with padding or other characters is not one a client made.
std::optional<QByteArray> decodeSegment(const QByteArray &segment)
{
    if (segment.size() % 4 == 1)
        return std::nullopt;
    for (const char c : segment) {
        const bool allowed = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z')
            || (c >= '0' && c <= '9') || c == '-' || c == '_';
        if (!allowed)
            return std::nullopt;
    }
    auto decoded = QByteArray::fromBase64Encoding(
        segment, QByteArray::Base64UrlEncoding | QByteArray::AbortOnBase64DecodingErrors);
    if (!decoded)
        return std::nullopt;
    return *decoded;
}

} // namespace

std::optional<QByteArray> signature(const QByteArray &signingInput, const QByteArray &secret,
                                    const QString &algorithm)
{
    const EVP_MD *digest = nullptr;
    if (algorithm == QLatin1String("HS256"))
        digest = EVP_sha256();
    else if (algorithm == QLatin1String("HS512"))
        digest = EVP_sha512();
    else
        return std::nullopt;
    unsigned char out[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    static const unsigned char noKey = 0;
    const auto *key
        = secret.isEmpty() ? &noKey : reinterpret_cast<const unsigned char *>(secret.constData());
    if (!HMAC(digest, key, int(secret.size()),
              reinterpret_cast<const unsigned char *>(signingInput.constData()),
              size_t(signingInput.size()), out, &length))
        return std::nullopt;
    return QByteArray(reinterpret_cast<const char *>(out), qsizetype(length));
}

std::optional<QJsonObject> claims(const QString &token, const std::optional<QByteArray> &secret)
{
    const QByteArray text = token.toUtf8();
    const QList<QByteArray> segments = text.split('.');
    if (segments.size() != 3)
        return std::nullopt;
    const std::optional<QByteArray> headerBytes = decodeSegment(segments.at(0));
    const std::optional<QByteArray> claimBytes = decodeSegment(segments.at(1));
    if (!headerBytes || !claimBytes)
        return std::nullopt;
    const std::optional<QJsonObject> header = ZVXDevJSON::parseObject(*headerBytes);
    const std::optional<QJsonObject> claims = ZVXDevJSON::parseObject(*claimBytes);
    if (!header || !claims)
        return std::nullopt;

    if (secret) {
        const QJsonValue algorithm = header->value(QStringLiteral("alg"));
        // The signing input is the text as received, never a re-encoding of it.
        const std::optional<QByteArray> expected
            = signature(segments.at(0) + '.' + segments.at(1), *secret, algorithm.toString());
        const std::optional<QByteArray> given = decodeSegment(segments.at(2));
        if (!algorithm.isString() || !expected || !given || given->size() != expected->size()
            || CRYPTO_memcmp(given->constData(), expected->constData(), size_t(given->size())) != 0)
            return std::nullopt;
    }
    return claims;
}

QString apiKeyForSecret(const QByteArray &secret)
{
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (!EVP_Digest(secret.constData(), size_t(secret.size()), digest, &length, EVP_sha256(),
                    nullptr))
        return {};
    return QString::fromLatin1(
        QByteArray(reinterpret_cast<const char *>(digest), qsizetype(length)).toHex());
}

} // namespace ZVXDevTokens
