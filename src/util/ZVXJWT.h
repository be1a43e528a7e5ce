#pragma once

#include "ZuveroError.h"

#include <QByteArray>
#include <QString>
#include <QVariantMap>

#include <memory>
#include <optional>

/*!
    A compact JSON Web Token (RFC 7519) signed with HMAC: "HS256" or
    "HS512", no other algorithm. It is how every request proves the user's
    identity.

    Signing and verifying never throw: any failure gives no token (or no
    object) and, where noted, one log line.
*/
class ZUVERO_EXPORT ZVXJWT
{
public:
    ZVXJWT() = default;

    //! A token with \a payload and the default header; nothing without a payload.
    static std::shared_ptr<ZVXJWT> initWithPayload(const std::optional<QVariantMap> &payload);

    /*!
        Parses \a jwt and, when a \a secret is given, verifies its signature
        (in constant time) with the algorithm its header names. Nothing when
        the text is malformed, the algorithm unknown or the signature wrong.
    */
    static std::shared_ptr<ZVXJWT> initWithJWT(const std::optional<QString> &jwt,
                                               const std::optional<QByteArray> &secret = {});

    //! The header; {"alg": "HS256", "typ": "JWT"} when read while unset (and kept from then on).
    QVariantMap header() const;
    void setHeader(const QVariantMap &header) { m_header = header; }
    QVariantMap payload() const { return m_payload; }
    void setPayload(const QVariantMap &payload) { m_payload = payload; }

    /*!
        The token text signed with \a secret. The header always gets
        "typ": "JWT", and "alg": "HS256" unless it names an algorithm. Nothing
        without a secret or for an unknown algorithm; when the header or the
        payload cannot be written as JSON, nothing and that \a error.
    */
    std::optional<QString> signedTokenWithSecret(const std::optional<QByteArray> &secret,
                                                 ZuveroError *error = nullptr) const;

    //! HMAC of \a data under \a key for "HS256" or "HS512"; nothing for any other name.
    static std::optional<QByteArray> signatureForData(const QByteArray &data, const QByteArray &key,
                                                      const std::optional<QString> &algorithm);

    // Reading a token without verifying it.

    //! The payload part of \a jwt; logs "JWT is nil" or "Bad JWT format" when there is none.
    static std::optional<QString> extractJWTPayload(const std::optional<QString> &jwt);
    //! The JSON value in \a json, or an invalid QVariant.
    static QVariant jsonStringToNSDict(const std::optional<QString> &json);
    //! The claims of \a jwt (whatever JSON value its payload holds), or an invalid QVariant.
    static QVariant getPayloadNSDict(const std::optional<QString> &jwt);

private:
    mutable std::optional<QVariantMap> m_header;
    QVariantMap m_payload;
};
