#include "ZVXDevApiRoutes.h"

#include "ZVXDevBodies.h"
#include "ZVXDevConversations.h"
#include "ZVXDevDictionaries.h"
#include "ZVXDevFaults.h"
#include "ZVXDevMessageUpload.h"
#include "ZVXDevOptions.h"
#include "ZVXDevReceipts.h"
#include "ZVXDevServices.h"

#include <QDateTime>
#include <QJsonArray>
#include <QRegularExpression>

#include <cmath>

using ZVXDevHttp::replyError;
using ZVXDevHttp::replyJSON;

namespace ZVXDevApiRoutes {

namespace {

const QString UnreadCountKey = QStringLiteral("unreadCount");
const QString MessagesPath = QStringLiteral("/api/1.0/messages");

void registerDevice(const ZVXDevServices &services, const httplib::Request &req,
                    httplib::Response &res, ZVXDevIdentity identity)
{
    const std::optional<QJsonObject> body = ZVXDevHttp::jsonBody(req, res);
    if (!body)
        return;
    ZVXDevDevice device;
    device.installationId = identity.installationId;
    std::optional<QString> userName;
    if (!ZVXDevHttp::readText(*body, QStringLiteral("deviceToken"), &device.deviceToken, res)
        || !ZVXDevHttp::readText(*body, QStringLiteral("apns"), &device.apns, res)
        || !ZVXDevHttp::readText(*body, QStringLiteral("appId"), &device.appId, res)
        || !ZVXDevHttp::readText(*body, QStringLiteral("appVersion"), &device.appVersion, res)
        || !ZVXDevHttp::readText(*body, QStringLiteral("deviceInfo"), &device.deviceInfo, res)
        || !ZVXDevHttp::readText(*body, QStringLiteral("userName"), &userName, res))
        return;
    static const QRegularExpression hex(QStringLiteral("^(?:[0-9A-Fa-f]{2})*$"));
    if (device.deviceToken && !hex.match(*device.deviceToken).hasMatch()) {
        replyError(res, 400, QStringLiteral("\"deviceToken\" must be hexadecimal"));
        return;
    }
    if (device.apns && *device.apns != QLatin1String("development")
        && *device.apns != QLatin1String("production")) {
        replyError(res, 400, QStringLiteral("\"apns\" must be \"development\" or \"production\""));
        return;
    }
    if (userName)
        identity.userName = userName;

    const ZVXDevUser user = services.storage.userFor(identity);
    services.storage.registerDevice(user.id, device);
    replyJSON(res,
              {{UnreadCountKey, services.storage.unreadCount(user.id)},
               {QStringLiteral("pollingInterval"), services.options.pollingInterval},
               {QStringLiteral("sourceInfo"),
                QJsonObject{{QStringLiteral("welcomeMessage"), services.options.welcomeMessage}}}});
}

void status(const ZVXDevServices &services, const httplib::Request &, httplib::Response &res,
            const ZVXDevIdentity &identity)
{
    const ZVXDevUser user = services.storage.userFor(identity);
    replyJSON(res, {{UnreadCountKey, services.storage.unreadCount(user.id)}});
}

// A whole number of seconds from the query; false after replying 400.
bool readSeconds(const httplib::Request &req, const char *name, std::optional<qint64> *value,
                 httplib::Response &res)
{
    if (!req.has_param(name))
        return true;
    bool ok = false;
    const double number = ZVXDevHttp::text(req.get_param_value(name)).toDouble(&ok);
    if (!ok || !std::isfinite(number) || std::abs(number) > 1e11) {
        replyError(res, 400,
                   QStringLiteral("\"%1\" must be a number of seconds since 1970")
                       .arg(QLatin1String(name)));
        return false;
    }
    *value = qint64(std::floor(number));
    return true;
}

void listMessages(const ZVXDevServices &services, const httplib::Request &req,
                  httplib::Response &res, const ZVXDevIdentity &identity)
{
    ZVXDevMessageQuery query;
    if (!readSeconds(req, "since", &query.sinceSeconds, res)
        || !readSeconds(req, "until", &query.untilSeconds, res))
        return;
    query.limit = MaxPage;
    query.maxBytes = MaxPageBytes;
    if (req.has_param("limit")) {
        bool ok = false;
        const qint64 limit = ZVXDevHttp::text(req.get_param_value("limit")).toLongLong(&ok);
        if (!ok || limit < 0) {
            replyError(res, 400, QStringLiteral("\"limit\" must be a whole number"));
            return;
        }
        if (limit > 0)
            query.limit = int(std::min<qint64>(limit, MaxPage));
    }

    const ZVXDevUser user = services.storage.userFor(identity);
    const ZVXDevMessagePage page = services.storage.messages(user.id, query);
    const QString base = services.apiBase(req);
    QJsonArray messages;
    for (const ZVXDevMessageRecord &message : page.messages)
        messages.append(ZVXDevDictionaries::message(message, base));
    replyJSON(res,
              {{QStringLiteral("messages"), messages},
               {QStringLiteral("moreMessages"), page.moreMessages},
               {UnreadCountKey, services.storage.unreadCount(user.id)}});
}

void sendMessage(const ZVXDevServices &services, const std::optional<ZVXDevMultipart::Form> &form,
                 httplib::Response &res, const ZVXDevIdentity &identity)
{
    std::optional<ZVXDevMessageUpload::Upload> upload = ZVXDevMessageUpload::read(form, res);
    if (!upload)
        return;
    const ZVXDevUser user = services.storage.userFor(identity);
    upload->message.user = user.id;
    upload->message.userName = user.userName;
    upload->message.dateMs = QDateTime::currentMSecsSinceEpoch();
    const std::optional<ZVXDevStorage::Insert> result
        = services.conversations.post(upload->message, upload->files);
    if (!result) {
        replyError(res, 500, QStringLiteral("cannot store the attachment files"),
                   QStringLiteral("The server could not store the message."));
        return;
    }
    if (*result == ZVXDevStorage::Insert::Conflict) {
        replyError(res, 409,
                   QStringLiteral("the uuid of the message or of an attachment is used "
                                  "by another conversation"));
        return;
    }
    // A message sent again (a retry) is already there: that is a success too.
    replyJSON(res, {{UnreadCountKey, services.storage.unreadCount(user.id)}});
}

void markMessages(const ZVXDevServices &services, const httplib::Request &req,
                  httplib::Response &res, const ZVXDevIdentity &identity)
{
    const std::optional<QJsonObject> body = ZVXDevHttp::jsonBody(req, res);
    if (!body)
        return;
    const QJsonValue listed = body->value(QStringLiteral("readMessageUUIDs"));
    QStringList uuids;
    bool valid = listed.isArray();
    for (const QJsonValue uuid : listed.toArray()) {
        valid = valid && uuid.isString();
        uuids.append(uuid.toString());
    }
    if (!valid || uuids.size() > MaxPage) {
        replyError(res, 400,
                   QStringLiteral("\"readMessageUUIDs\" must be an array of at most %1 "
                                  "texts")
                       .arg(MaxPage));
        return;
    }
    const ZVXDevUser user = services.storage.userFor(identity);
    services.storage.markReadByUser(user.id, uuids);
    replyJSON(res, {{UnreadCountKey, services.storage.unreadCount(user.id)}});
}

} // namespace

void install(httplib::Server &server, const ZVXDevServices &services)
{
    const auto route = [&services](auto function) {
        return authenticated(services, false,
                             [&services, function](const httplib::Request &req,
                                                   httplib::Response &res,
                                                   const ZVXDevIdentity &identity) {
                                 function(services, req, res, identity);
                             });
    };
    ZVXDevBodies &bodies = services.bodies;
    server.Post("/api/1.0/register", bodies.read(route(registerDevice)));
    server.Get("/api/1.0/status", route(status));
    server.Get(MessagesPath.toStdString(), route(listMessages));
    server.Post(
        MessagesPath.toStdString(),
        bodies.read([&services](const httplib::Request &req, httplib::Response &res) {
            const std::optional<ZVXDevMultipart::Form> form = ZVXDevHttp::form(req);
            // Counted before anything can refuse it: a receipt is what arrived.
            if (services.options.admin) {
                if (const std::optional<QString> uuid = ZVXDevMessageUpload::namedUUID(form))
                    services.receipts.note(*uuid);
            }
            if (const std::optional<ZVXDevFaults::Fault> fault
                = services.faults.take(QStringLiteral("POST"), MessagesPath)) {
                if (ZVXDevFaults::apply(*fault, res))
                    return;
            }
            authenticated(services, false,
                          [&services, &form](const httplib::Request &, httplib::Response &res,
                                             const ZVXDevIdentity &identity) {
                              sendMessage(services, form, res, identity);
                          })(req, res);
        }));
    server.Post("/api/1.0/mark_messages", bodies.read(route(markMessages)));
}

bool appliesFaultsItself(const QString &method, const QString &path)
{
    return method == QLatin1String("POST") && path == MessagesPath;
}

} // namespace ZVXDevApiRoutes
