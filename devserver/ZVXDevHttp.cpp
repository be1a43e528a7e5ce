#include "ZVXDevHttp.h"

#include "ZVXJSON.h"

#include <QHostAddress>
#include <QRegularExpression>
#include <QUrlQuery>

namespace ZVXDevHttp {

void replyJSON(httplib::Response &res, const QVariantMap &object, int status)
{
    res.status = status;
    const QByteArray json = ZVXJSON::serialize(object).value_or(QByteArrayLiteral("{}"));
    res.set_content(json.constData(), size_t(json.size()), "application/json; charset=utf-8");
}

void replyError(httplib::Response &res, int status, const QString &error,
                const QString &localizedError)
{
    QVariantMap object{{QStringLiteral("error"), error}};
    if (!localizedError.isEmpty())
        object.insert(QStringLiteral("localizedError"), localizedError);
    replyJSON(res, object, status);
}

std::optional<QVariantMap> parseObject(const QByteArray &body, httplib::Response &res)
{
    if (qsizetype(body.size()) > MaxJSONBody) {
        replyError(res, 413, QStringLiteral("JSON body larger than %1 bytes").arg(MaxJSONBody));
        return std::nullopt;
    }
    ZuveroError error;
    const std::optional<QVariant> value = ZVXJSON::parse(body, &error);
    if (!value) {
        replyError(res, 400,
                   QStringLiteral("malformed JSON: %1").arg(error.localizedDescription()));
        return std::nullopt;
    }
    if (value->metaType().id() != QMetaType::QVariantMap) {
        replyError(res, 400, QStringLiteral("the JSON body must be an object"));
        return std::nullopt;
    }
    return value->toMap();
}

std::optional<QVariantMap> jsonBody(const httplib::Request &req, httplib::Response &res)
{
    return parseObject(QByteArray(req.body.data(), qsizetype(req.body.size())), res);
}

bool readText(const QVariantMap &object, const QString &key, std::optional<QString> *value,
              httplib::Response &res, qsizetype maxLength)
{
    const QVariant found = object.value(key);
    if (!found.isValid() || found.metaType().id() == QMetaType::Nullptr) {
        *value = std::nullopt;
        return true;
    }
    if (found.metaType().id() != QMetaType::QString) {
        replyError(res, 400, QStringLiteral("\"%1\" must be text").arg(key));
        return false;
    }
    if (found.toString().size() > maxLength) {
        replyError(res, 400,
                   QStringLiteral("\"%1\" is longer than %2 characters").arg(key).arg(maxLength));
        return false;
    }
    *value = found.toString();
    return true;
}

std::optional<QString> token(const httplib::Request &req, bool queryToo)
{
    if (req.has_header("X-ZVL-JWT"))
        return text(req.get_header_value("X-ZVL-JWT"));
    if (queryToo && req.has_param("jwt"))
        return text(req.get_param_value("jwt"));
    return std::nullopt;
}

QString origin(const httplib::Request &req, const QString &fallback)
{
    // Only a plain host name or address with a port: anything else could steer clients elsewhere.
    static const QRegularExpression hostAndPort(
        QStringLiteral("^(\\[[0-9A-Fa-f:.]+\\]|[A-Za-z0-9.-]+)(:[0-9]{1,5})?$"));
    const QString host = text(req.get_header_value("Host"));
    if (!host.isEmpty() && hostAndPort.match(host).hasMatch())
        return QStringLiteral("https://") + host;
    return fallback;
}

bool isLoopbackPeer(const httplib::Request &req)
{
    return QHostAddress(text(req.remote_addr)).isLoopback();
}

httplib::Server::Handler loopbackOnly(httplib::Server::Handler handler)
{
    return [handler](const httplib::Request &req, httplib::Response &res) {
        if (!isLoopbackPeer(req)) {
            replyError(res, 403, QStringLiteral("only for clients on this machine"));
            return;
        }
        handler(req, res);
    };
}

QString loggableTarget(const httplib::Request &req)
{
    const QString target = text(req.target);
    const qsizetype question = target.indexOf(QLatin1Char('?'));
    if (question < 0 || !req.has_param("jwt"))
        return target;
    QUrlQuery query(target.mid(question + 1));
    query.removeAllQueryItems(QStringLiteral("jwt"));
    query.addQueryItem(QStringLiteral("jwt"), QStringLiteral("hidden"));
    return target.left(question + 1) + query.toString(QUrl::FullyEncoded);
}

bool isIdentifier(const QString &text)
{
    static const QRegularExpression identifier(
        QStringLiteral("^[A-Za-z0-9][A-Za-z0-9._-]{0,127}$"));
    return identifier.match(text).hasMatch();
}

} // namespace ZVXDevHttp
