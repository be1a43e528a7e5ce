#include "ZVXDevAuth.h"

#include "ZVXDevOptions.h"
#include "ZVXDevTokens.h"

#include <QDateTime>

namespace {

// Clocks of the client, its back end and the server may differ a little.
constexpr qint64 LeewaySeconds = 60;

/*
    "exp" and "nbf" (RFC 7519), when present: a number of seconds since
    1970. Nothing when the token is valid now, else why not.
*/
std::optional<QString> outsideItsTime(const QJsonObject &claims)
{
    const qint64 now = QDateTime::currentSecsSinceEpoch();
    const QJsonValue expires = claims.value(QStringLiteral("exp"));
    const QJsonValue notBefore = claims.value(QStringLiteral("nbf"));
    if ((!expires.isUndefined() && !expires.isDouble())
        || (!notBefore.isUndefined() && !notBefore.isDouble()))
        return QStringLiteral("\"exp\" and \"nbf\" must be numbers of seconds");
    if (expires.isDouble() && double(now) > expires.toDouble() + double(LeewaySeconds))
        return QStringLiteral("the token has expired");
    if (notBefore.isDouble() && double(now) + double(LeewaySeconds) < notBefore.toDouble())
        return QStringLiteral("the token is not valid yet");
    return std::nullopt;
}

std::optional<QString> claim(const QJsonObject &claims, const char *name)
{
    const QJsonValue value = claims.value(QLatin1String(name));
    if (!value.isString() || value.toString().isEmpty())
        return std::nullopt;
    return value.toString();
}

} // namespace

ZVXDevAuth::ZVXDevAuth(const ZVXDevOptions &options)
    : m_apiKey(options.apiKey)
    , m_secret(options.apiSecret)
    , m_open(options.open)
{ }

std::variant<ZVXDevIdentity, ZVXDevAuth::Refusal>
ZVXDevAuth::identify(const std::optional<QString> &token) const
{
    if (!token || token->isEmpty())
        return Refusal{QStringLiteral("missing token")};
    const bool verify = !m_open && m_secret;
    const std::optional<QJsonObject> claims
        = ZVXDevTokens::claims(*token, verify ? m_secret : std::nullopt);
    if (!claims)
        return Refusal{verify ? QStringLiteral("malformed token or wrong signature")
                              : QStringLiteral("malformed token")};

    if (const std::optional<QString> late = outsideItsTime(*claims))
        return Refusal{*late};

    ZVXDevIdentity identity;
    identity.apiKey = claim(*claims, "apiKey").value_or(QString());
    if (!m_open && identity.apiKey != m_apiKey)
        return Refusal{QStringLiteral("the token names another API key")};
    identity.userId = claim(*claims, "userId");
    identity.installationId = claim(*claims, "installationId").value_or(QString());
    if (!identity.userId && identity.installationId.isEmpty())
        return Refusal{QStringLiteral("the token names neither a userId nor an installationId")};
    identity.userName = claim(*claims, "userName");
    const QJsonValue extra = claims->value(QStringLiteral("extra"));
    if (extra.isObject())
        identity.extra = extra.toObject();
    return identity;
}
