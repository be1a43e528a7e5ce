#include "ZVXDevHttp.h"

#include "ZVXDevJSON.h"

#include <QHostAddress>
#include <QRegularExpression>
#include <QUrlQuery>

namespace ZVXDevHttp {

namespace {

constexpr const char *RawFormContentType = "X-Zuvero-Form-Content-Type";

} // namespace

void replyJSON(httplib::Response &res, const QJsonObject &object, int status)
{
    res.status = status;
    const QByteArray json = ZVXDevJSON::text(object);
    res.set_content(json.constData(), size_t(json.size()), "application/json; charset=utf-8");
}

void replyError(httplib::Response &res, int status, const QString &error,
                const QString &localizedError)
{
    QJsonObject object{{QStringLiteral("error"), error}};
    if (!localizedError.isEmpty())
        object.insert(QStringLiteral("localizedError"), localizedError);
    replyJSON(res, object, status);
}

std::optional<QJsonObject> parseObject(const QByteArray &body, httplib::Response &res)
{
    if (qsizetype(body.size()) > MaxJSONBody) {
        replyError(res, 413, QStringLiteral("JSON body larger than %1 bytes").arg(MaxJSONBody));
        return std::nullopt;
    }
    QString error;
    const std::optional<QJsonValue> value = ZVXDevJSON::parse(body, &error);
    if (!value) {
        replyError(res, 400, QStringLiteral("malformed JSON: %1").arg(error));
        return std::nullopt;
    }
    if (!value->isObject()) {
        replyError(res, 400, QStringLiteral("the JSON body must be an object"));
        return std::nullopt;
    }
    return value->toObject();
}

std::optional<QJsonObject> jsonBody(const httplib::Request &req, httplib::Response &res)
{
    return parseObject(QByteArray(req.body.data(), qsizetype(req.body.size())), res);
}

void takeRawForm(const httplib::Request &req)
{
    const std::string type = req.get_header_value("Content-Type");
    if (type.rfind("multipart/form-data", 0) != 0)
        return;
    // Only the headers change, before the body is read; the request is not really const.
    auto &headers = const_cast<httplib::Request &>(req).headers;
    headers.erase("Content-Type");
    headers.emplace("Content-Type", "application/octet-stream");
    headers.emplace(RawFormContentType, type);
}

std::optional<ZVXDevMultipart::Form> form(const httplib::Request &req)
{
    if (!req.has_header(RawFormContentType))
        return std::nullopt;
    const QByteArray type = QByteArray::fromStdString(req.get_header_value(RawFormContentType));
    const std::optional<QByteArray> boundary = ZVXDevMultipart::boundary(type);
    if (!boundary)
        return std::nullopt;
    // No copy of what may be the largest body allowed: the request outlives its form.
    return ZVXDevMultipart::parse(
        QByteArray::fromRawData(req.body.data(), qsizetype(req.body.size())), *boundary);
}

bool readText(const QJsonObject &object, const QString &key, std::optional<QString> *value,
              httplib::Response &res, qsizetype maxLength)
{
    const QJsonValue found = object.value(key);
    if (found.isUndefined() || found.isNull()) {
        *value = std::nullopt;
        return true;
    }
    if (!found.isString()) {
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
    QString target = text(req.target);
    const qsizetype question = target.indexOf(QLatin1Char('?'));
    if (question >= 0 && (req.has_param("jwt") || req.has_param("key"))) {
        QUrlQuery query(target.mid(question + 1));
        for (const QString &secret : {QStringLiteral("jwt"), QStringLiteral("key")}) {
            if (query.hasQueryItem(secret)) {
                query.removeAllQueryItems(secret);
                query.addQueryItem(secret, QStringLiteral("hidden"));
            }
        }
        target = target.left(question + 1) + query.toString(QUrl::FullyEncoded);
    }
    // A line per request, whatever length of target a client makes up.
    constexpr qsizetype MaxLength = 300;
    if (target.size() > MaxLength)
        target = target.left(MaxLength) + QStringLiteral("... (%1 characters)").arg(target.size());
    return target;
}

bool isIdentifier(const QString &text)
{
    static const QRegularExpression identifier(
        QStringLiteral("^[A-Za-z0-9][A-Za-z0-9._-]{0,127}$"));
    return identifier.match(text).hasMatch();
}

} // namespace ZVXDevHttp
