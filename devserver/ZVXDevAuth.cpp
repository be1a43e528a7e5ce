#include "ZVXDevAuth.h"

#include "ZVXDevOptions.h"
#include "ZVXJWT.h"

namespace {

std::optional<QString> claim(const QVariantMap &claims, const char *name)
{
    const QVariant value = claims.value(QLatin1String(name));
    if (value.metaType().id() != QMetaType::QString || value.toString().isEmpty())
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
    const std::shared_ptr<ZVXJWT> jwt
        = ZVXJWT::initWithJWT(*token, verify ? m_secret : std::nullopt);
    if (!jwt)
        return Refusal{verify ? QStringLiteral("malformed token or wrong signature")
                              : QStringLiteral("malformed token")};

    const QVariantMap claims = jwt->payload();
    ZVXDevIdentity identity;
    identity.apiKey = claim(claims, "apiKey").value_or(QString());
    if (!m_open && identity.apiKey != m_apiKey)
        return Refusal{QStringLiteral("the token names another API key")};
    identity.userId = claim(claims, "userId");
    identity.installationId = claim(claims, "installationId").value_or(QString());
    if (!identity.userId && identity.installationId.isEmpty())
        return Refusal{QStringLiteral("the token names neither a userId nor an installationId")};
    identity.userName = claim(claims, "userName");
    const QVariant extra = claims.value(QStringLiteral("extra"));
    if (extra.metaType().id() == QMetaType::QVariantMap)
        identity.extra = extra;
    return identity;
}
