#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>

#include <optional>

/*
    JSON Web Tokens as clients send them: three Base64URL segments (header,
    claims, signature) joined by dots. Verified with HMAC-SHA256 or
    HMAC-SHA512 ("HS256", "HS512"), never anything else.
*/
namespace ZVXDevTokens {

/*!
    The claims of \a token: nothing unless it is well formed (its header and
    claims are JSON objects) and, when \a secret is given, signed with it.
*/
std::optional<QJsonObject> claims(const QString &token, const std::optional<QByteArray> &secret);

//! The signature of \a signingInput with \a secret under \a algorithm; nothing for another name.
std::optional<QByteArray> signature(const QByteArray &signingInput, const QByteArray &secret,
                                    const QString &algorithm);

//! The API key that goes with \a secret: its SHA-256 in lower-case hexadecimal.
QString apiKeyForSecret(const QByteArray &secret);

} // namespace ZVXDevTokens
