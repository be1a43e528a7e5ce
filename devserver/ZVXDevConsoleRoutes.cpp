#include "ZVXDevConsoleRoutes.h"

#include "ZVXDevBodies.h"
#include "ZVXDevConversations.h"
#include "ZVXDevDictionaries.h"
#include "ZVXDevFileRoutes.h"
#include "ZVXDevOptions.h"
#include "ZVXDevServices.h"

#include <QDateTime>
#include <QFile>
#include <QJsonArray>
#include <QUuid>

using ZVXDevHttp::loopbackOnly;
using ZVXDevHttp::replyError;
using ZVXDevHttp::replyJSON;
using ZVXDevHttp::text;

namespace ZVXDevConsoleRoutes {

namespace {

void serveAsset(const QString &name, const char *type, httplib::Response &res)
{
    QFile file(QStringLiteral(":/console/") + name);
    if (!file.open(QIODevice::ReadOnly)) {
        replyError(res, 404, QStringLiteral("no such page"));
        return;
    }
    const QByteArray bytes = file.readAll();
    res.set_header("Cache-Control", "no-cache");
    res.set_content(bytes.constData(), size_t(bytes.size()), type);
}

QString consoleBase(const ZVXDevServices &services, const httplib::Request &req)
{
    return ZVXDevHttp::origin(req, services.origin) + QStringLiteral("/console/api");
}

QString newUUID()
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces);
}

QJsonObject consoleMessage(const ZVXDevMessageRecord &message, const QString &base)
{
    QJsonObject dictionary = ZVXDevDictionaries::message(message, base);
    dictionary.insert(QStringLiteral("read"), message.read);
    if (!message.context.isUndefined())
        dictionary.insert(QStringLiteral("context"), message.context);
    return dictionary;
}

QJsonObject conversation(const ZVXDevConversationSummary &summary, const QString &base)
{
    const ZVXDevUser &user = summary.user;
    QJsonObject object{{QStringLiteral("id"), user.id},
                       {QStringLiteral("apiKey"), user.apiKey},
                       {QStringLiteral("installationId"), user.installationId},
                       {QStringLiteral("unread"), summary.unreadByAgent},
                       {QStringLiteral("devices"), summary.devices}};
    if (user.userId)
        object.insert(QStringLiteral("userId"), *user.userId);
    if (user.userName)
        object.insert(QStringLiteral("userName"), *user.userName);
    if (user.extra)
        object.insert(QStringLiteral("extra"), *user.extra);
    if (summary.lastMessage)
        object.insert(QStringLiteral("lastMessage"), consoleMessage(*summary.lastMessage, base));
    return object;
}

std::optional<ZVXDevUser> userOf(const ZVXDevServices &services, const httplib::Request &req,
                                 httplib::Response &res)
{
    const std::optional<ZVXDevUser> user = services.storage.user(text(req.matches[1]).toLongLong());
    if (!user)
        replyError(res, 404, QStringLiteral("no such conversation"));
    return user;
}

void reply(const ZVXDevServices &services, const httplib::Request &req, httplib::Response &res)
{
    const std::optional<ZVXDevUser> user = userOf(services, req, res);
    if (!user)
        return;
    const std::optional<ZVXDevMultipart::Form> form = ZVXDevHttp::form(req);
    if (!form) {
        replyError(res, 400, QStringLiteral("expected a multipart/form-data body"));
        return;
    }
    const auto field = [&form](const QString &name) {
        const ZVXDevMultipart::Part *part = form->part(name);
        return part ? QString::fromUtf8(part->content).trimmed() : QString();
    };
    ZVXDevMessageRecord message;
    message.user = user->id;
    message.uuid = newUUID();
    // Agents answer; the system announces (a transfer, the end of a conversation) and is nobody.
    message.sender = field(QStringLiteral("sender"));
    if (message.sender.isEmpty())
        message.sender = QStringLiteral("agent");
    if (message.sender != QLatin1String("agent") && message.sender != QLatin1String("system")) {
        replyError(res, 400, QStringLiteral("\"sender\" must be \"agent\" or \"system\""));
        return;
    }
    if (const QString written = field(QStringLiteral("text")); !written.isEmpty())
        message.text = written;
    const QString agentName = field(QStringLiteral("agentName"));
    if (message.sender == QLatin1String("agent"))
        message.userName = agentName.isEmpty() ? services.options.agentName : agentName;
    message.dateMs = QDateTime::currentMSecsSinceEpoch();

    QList<ZVXDevConversations::Upload> uploads;
    for (const ZVXDevMultipart::Part &part : form->parts) {
        if (part.name != QLatin1String("file") || part.filename.isEmpty())
            continue;
        uploads.append({newUUID(), part.content,
                        part.contentType.isEmpty() ? QStringLiteral("application/octet-stream")
                                                   : part.contentType,
                        part.filename});
    }
    if (!message.text && uploads.isEmpty()) {
        replyError(res, 400, QStringLiteral("a reply needs text or a file"));
        return;
    }
    if (!services.conversations.post(message, uploads)) {
        replyError(res, 500, QStringLiteral("cannot store the files"));
        return;
    }
    replyJSON(res, {{QStringLiteral("uuid"), message.uuid}});
}

} // namespace

void install(httplib::Server &server, const ZVXDevServices &services)
{
    server.Get("/console", loopbackOnly([](const httplib::Request &, httplib::Response &res) {
                   serveAsset(QStringLiteral("index.html"), "text/html; charset=utf-8", res);
               }));
    server.Get("/console/console.js",
               loopbackOnly([](const httplib::Request &, httplib::Response &res) {
                   serveAsset(QStringLiteral("console.js"), "text/javascript; charset=utf-8", res);
               }));
    server.Get("/console/console.css",
               loopbackOnly([](const httplib::Request &, httplib::Response &res) {
                   serveAsset(QStringLiteral("console.css"), "text/css; charset=utf-8", res);
               }));

    server.Get("/console/api/conversations",
               loopbackOnly([&services](const httplib::Request &req, httplib::Response &res) {
                   const QString base = consoleBase(services, req);
                   QJsonArray list;
                   for (const ZVXDevConversationSummary &summary : services.storage.conversations())
                       list.append(conversation(summary, base));
                   replyJSON(res, {{QStringLiteral("conversations"), list}});
               }));
    server.Get(R"(/console/api/conversations/(\d{1,18})/messages)",
               loopbackOnly([&services](const httplib::Request &req, httplib::Response &res) {
                   const std::optional<ZVXDevUser> user = userOf(services, req, res);
                   if (!user)
                       return;
                   ZVXDevMessageQuery everything;
                   everything.limit = std::numeric_limits<int>::max();
                   const QString base = consoleBase(services, req);
                   QJsonArray list;
                   for (const ZVXDevMessageRecord &message :
                        services.storage.messages(user->id, everything).messages)
                       list.append(consoleMessage(message, base));
                   replyJSON(res, {{QStringLiteral("messages"), list}});
               }));
    ZVXDevBodies &bodies = services.bodies;
    server.Post(
        R"(/console/api/conversations/(\d{1,18})/messages)",
        bodies.read(loopbackOnly([&services](const httplib::Request &req, httplib::Response &res) {
            reply(services, req, res);
        })));
    server.Post(
        R"(/console/api/conversations/(\d{1,18})/read)",
        bodies.read(loopbackOnly([&services](const httplib::Request &req, httplib::Response &res) {
            if (const std::optional<ZVXDevUser> user = userOf(services, req, res)) {
                services.storage.markReadByAgent(user->id);
                replyJSON(res, {});
            }
        })));
    const auto file = [&services](bool preview) {
        return loopbackOnly(
            [&services, preview](const httplib::Request &req, httplib::Response &res) {
                const std::optional<ZVXDevAttachmentRecord> attachment
                    = services.storage.attachment(text(req.matches[1]));
                if (!attachment) {
                    replyError(res, 404, QStringLiteral("no such file"));
                    return;
                }
                ZVXDevFileRoutes::serve(services.files, *attachment, preview, req, res);
            });
    };
    server.Get(R"(/console/api/files/([A-Za-z0-9._-]+))", file(false));
    server.Get(R"(/console/api/previews/([A-Za-z0-9._-]+))", file(true));
}

} // namespace ZVXDevConsoleRoutes
