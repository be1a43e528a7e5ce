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
#include <QUrl>
#include <QUuid>

#include <openssl/crypto.h>

using ZVXDevHttp::replyError;
using ZVXDevHttp::replyJSON;
using ZVXDevHttp::text;

namespace ZVXDevConsoleRoutes {

namespace {

constexpr int MaxConversations = 100;
constexpr int LastMessageLength = 200;
constexpr int PageSize = 100;
constexpr qint64 MaxPageBytes = 512 * 1024;

// No script, style, picture or connection from anywhere else; no frame around it.
constexpr const char *PagePolicy
    = "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; "
      "connect-src 'self'; form-action 'self'; base-uri 'none'; frame-ancestors 'none'";

using Handler = httplib::Server::Handler;

// Per port: cookies do not tell ports apart, and two servers may run side by side.
std::string cookieName(const ZVXDevServices &services)
{
    return "zuvero-console-" + std::to_string(QUrl(services.origin).port());
}

bool isKey(const ZVXDevServices &services, const std::string &given)
{
    const QByteArray &key = services.consoleKey;
    return !key.isEmpty() && given.size() == std::size_t(key.size())
        && CRYPTO_memcmp(given.data(), key.constData(), given.size()) == 0;
}

bool hasKeyCookie(const ZVXDevServices &services, const httplib::Request &req)
{
    const std::string prefix = cookieName(services) + '=';
    for (std::size_t i = 0; i < req.get_header_value_count("Cookie"); ++i) {
        const QList<QByteArray> cookies
            = QByteArray::fromStdString(req.get_header_value("Cookie", i)).split(';');
        for (const QByteArray &cookie : cookies) {
            const std::string pair = cookie.trimmed().toStdString();
            if (pair.rfind(prefix, 0) == 0 && isKey(services, pair.substr(prefix.size())))
                return true;
        }
    }
    return false;
}

enum class Change { No, Yes };

/*
    Only the agent drives the console: its requests carry the key the server
    made at start, either in the cookie its page got (strict: no other site's
    page sends it) or, from a script, in "X-Zuvero-Console". Cookies do not
    tell one port of 127.0.0.1 from another, so a request that changes
    anything must also come from one of the console's own origins when a
    browser names one, and name one when the key comes as a cookie.
*/
bool allowed(const ZVXDevServices &services, const httplib::Request &req, httplib::Response &res,
             Change change)
{
    if (!ZVXDevHttp::isLoopbackPeer(req)) {
        replyError(res, 403, QStringLiteral("only for clients on this machine"));
        return false;
    }
    const bool byHeader = isKey(services, req.get_header_value("X-Zuvero-Console"));
    if (!byHeader && !hasKeyCookie(services, req)) {
        replyError(res, 403,
                   QStringLiteral("the console needs its key: open the address zuvero-devserver "
                                  "printed when it started (/console?key=...)"));
        return false;
    }
    if (change == Change::Yes) {
        const QString origin = text(req.get_header_value("Origin"));
        if (origin.isEmpty() ? !byHeader : !services.origins.contains(origin)) {
            replyError(res, 403, QStringLiteral("only the console's own page may change anything"));
            return false;
        }
    }
    // No other origin may embed what the console serves, even a picture.
    res.set_header("Cross-Origin-Resource-Policy", "same-origin");
    return true;
}

Handler guarded(const ZVXDevServices &services, Change change, Handler handler)
{
    return [&services, change, handler](const httplib::Request &req, httplib::Response &res) {
        if (allowed(services, req, res, change))
            handler(req, res);
    };
}

void serveAsset(const QString &name, const char *type, httplib::Response &res)
{
    QFile file(QStringLiteral(":/console/") + name);
    if (!file.open(QIODevice::ReadOnly)) {
        replyError(res, 404, QStringLiteral("no such page"));
        return;
    }
    const QByteArray bytes = file.readAll();
    res.set_header("Cache-Control", "no-cache");
    res.set_header("Content-Security-Policy", PagePolicy);
    res.set_header("X-Frame-Options", "DENY");
    res.set_header("Referrer-Policy", "no-referrer");
    res.set_header("Cross-Origin-Opener-Policy", "same-origin");
    res.set_content(bytes.constData(), size_t(bytes.size()), type);
}

// The address printed at start: its key becomes the page's cookie, and leaves the address bar.
void page(const ZVXDevServices &services, const httplib::Request &req, httplib::Response &res)
{
    if (req.has_param("key")) {
        if (!ZVXDevHttp::isLoopbackPeer(req) || !isKey(services, req.get_param_value("key"))) {
            replyError(res, 403, QStringLiteral("this is not the console's key"));
            return;
        }
        res.set_header("Set-Cookie",
                       cookieName(services) + '=' + services.consoleKey.toStdString()
                           + "; Path=/console; Secure; HttpOnly; SameSite=Strict");
        res.set_header("Referrer-Policy", "no-referrer");
        res.set_redirect("/console", 303);
        return;
    }
    if (!allowed(services, req, res, Change::No)) {
        // A person reads this one.
        const QByteArray explanation
            = "This console is for the agent who started zuvero-devserver: open the address it "
              "printed (console: https://.../console?key=...).\n";
        res.set_content(explanation.constData(), size_t(explanation.size()),
                        "text/plain; charset=utf-8");
        return;
    }
    serveAsset(QStringLiteral("index.html"), "text/html; charset=utf-8", res);
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
    dictionary.insert(QStringLiteral("id"), message.id);
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

// A row id from the query into \a value; false after replying 400.
bool readId(const httplib::Request &req, const char *name, std::optional<qint64> *value,
            httplib::Response &res)
{
    if (!req.has_param(name))
        return true;
    bool ok = false;
    const qint64 id = text(req.get_param_value(name)).toLongLong(&ok);
    if (!ok || id < 0) {
        replyError(res, 400,
                   QStringLiteral("\"%1\" must be a message id").arg(QLatin1String(name)));
        return false;
    }
    *value = id;
    return true;
}

/*
    A window of the conversation, so that the page fetches only what it
    lacks: without a query the latest messages, with "after" those that came
    after the last one it has, with "before" earlier ones. Each reply holds
    at most PageSize messages and about MaxPageBytes of them.
*/
void messages(const ZVXDevServices &services, const httplib::Request &req, httplib::Response &res)
{
    const std::optional<ZVXDevUser> user = userOf(services, req, res);
    if (!user)
        return;
    ZVXDevConsoleQuery query;
    if (!readId(req, "after", &query.afterId, res) || !readId(req, "before", &query.beforeId, res))
        return;
    query.limit = PageSize;
    query.maxBytes = MaxPageBytes;
    const ZVXDevConsolePage page = services.storage.consoleMessages(user->id, query);
    const QString base = consoleBase(services, req);
    QJsonArray list;
    for (const ZVXDevMessageRecord &message : page.messages)
        list.append(consoleMessage(message, base));
    QJsonArray unseen;
    for (const qint64 id : page.unseen)
        unseen.append(id);
    res.set_header("Cache-Control", "no-store");
    replyJSON(res,
              {{QStringLiteral("messages"), list},
               {QStringLiteral("earlier"), page.earlier},
               {QStringLiteral("later"), page.later},
               {QStringLiteral("unseen"), unseen},
               {QStringLiteral("unseenMore"), page.unseenMore}});
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
    server.Get("/console", [&services](const httplib::Request &req, httplib::Response &res) {
        page(services, req, res);
    });
    server.Get("/console/console.js",
               guarded(services, Change::No, [](const httplib::Request &, httplib::Response &res) {
                   serveAsset(QStringLiteral("console.js"), "text/javascript; charset=utf-8", res);
               }));
    server.Get("/console/console.css",
               guarded(services, Change::No, [](const httplib::Request &, httplib::Response &res) {
                   serveAsset(QStringLiteral("console.css"), "text/css; charset=utf-8", res);
               }));

    server.Get("/console/api/conversations",
               guarded(services, Change::No,
                       [&services](const httplib::Request &req, httplib::Response &res) {
                           const QString base = consoleBase(services, req);
                           QJsonArray list;
                           for (const ZVXDevConversationSummary &summary :
                                services.storage.conversations(MaxConversations, LastMessageLength))
                               list.append(conversation(summary, base));
                           res.set_header("Cache-Control", "no-store");
                           replyJSON(res, {{QStringLiteral("conversations"), list}});
                       }));
    server.Get(R"(/console/api/conversations/(\d{1,18})/messages)",
               guarded(services, Change::No,
                       [&services](const httplib::Request &req, httplib::Response &res) {
                           messages(services, req, res);
                       }));
    ZVXDevBodies &bodies = services.bodies;
    server.Post(
        R"(/console/api/conversations/(\d{1,18})/messages)",
        bodies.read(guarded(services, Change::Yes,
                            [&services](const httplib::Request &req, httplib::Response &res) {
                                reply(services, req, res);
                            })));
    server.Post(R"(/console/api/conversations/(\d{1,18})/read)",
                bodies.read(guarded(
                    services, Change::Yes,
                    [&services](const httplib::Request &req, httplib::Response &res) {
                        if (const std::optional<ZVXDevUser> user = userOf(services, req, res)) {
                            services.storage.markReadByAgent(user->id);
                            replyJSON(res, {});
                        }
                    })));
    const auto file = [&services](bool preview) {
        return guarded(services, Change::No,
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
