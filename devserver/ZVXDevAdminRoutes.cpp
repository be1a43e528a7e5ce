#include "ZVXDevAdminRoutes.h"

#include "ZVXDevBodies.h"
#include "ZVXDevFaults.h"
#include "ZVXDevReceipts.h"
#include "ZVXDevServices.h"
#include "ZVXDevStorage.h"

#include <QUuid>

#include <cmath>

namespace ZVXDevAdminRoutes {

namespace {

using Handler = httplib::Server::Handler;

// Messages one history request may write.
constexpr int MaxHistory = 10'000;

/*
    For scripts and tests on this machine. Browsers name the page a request
    comes from: no page, of any site, may inject faults through a
    developer's browser.
*/
Handler forScripts(Handler handler)
{
    return ZVXDevHttp::loopbackOnly([handler](const httplib::Request &req, httplib::Response &res) {
        if (req.has_header("Origin")) {
            ZVXDevHttp::replyError(res, 403, QStringLiteral("not for web pages"));
            return;
        }
        handler(req, res);
    });
}

} // namespace

void install(httplib::Server &server, const ZVXDevServices &services)
{
    ZVXDevFaults &faults = services.faults;
    ZVXDevBodies &bodies = services.bodies;
    server.Post(
        "/admin/faults",
        bodies.read(forScripts([&faults](const httplib::Request &req, httplib::Response &res) {
            const std::optional<QJsonObject> body = ZVXDevHttp::jsonBody(req, res);
            if (!body)
                return;
            QString error;
            const std::optional<ZVXDevFaults::Fault> fault = ZVXDevFaults::fromJSON(*body, &error);
            if (!fault) {
                ZVXDevHttp::replyError(res, 400, error);
                return;
            }
            if (!faults.add(*fault)) {
                ZVXDevHttp::replyError(
                    res, 400,
                    QStringLiteral("%1 faults are waiting already").arg(ZVXDevFaults::MaxFaults));
                return;
            }
            ZVXDevHttp::replyJSON(res, {});
        })));
    server.Delete(
        "/admin/faults",
        bodies.read(forScripts([&faults](const httplib::Request &, httplib::Response &res) {
            faults.clear();
            ZVXDevHttp::replyJSON(res, {});
        })));
    server.Get("/admin/counters",
               forScripts([&faults](const httplib::Request &, httplib::Response &res) {
                   ZVXDevHttp::replyJSON(res, {{QStringLiteral("counters"), faults.counters()}});
               }));
    server.Delete(
        "/admin/counters",
        bodies.read(forScripts([&faults](const httplib::Request &, httplib::Response &res) {
            faults.resetCounters();
            ZVXDevHttp::replyJSON(res, {});
        })));
    // A conversation's past, written at once: agent messages at the dates given, so that tests
    // and demos have history to page through without waiting for it to happen.
    ZVXDevStorage &storage = services.storage;
    server.Post(
        "/admin/history",
        bodies.read(forScripts([&storage](const httplib::Request &req, httplib::Response &res) {
            const std::optional<QJsonObject> body = ZVXDevHttp::jsonBody(req, res);
            if (!body)
                return;
            const std::optional<ZVXDevUser> user
                = storage.user(qint64(body->value(QStringLiteral("conversation")).toDouble()));
            const int count = body->value(QStringLiteral("count")).toInt(-1);
            const double from = body->value(QStringLiteral("from")).toDouble(NAN);
            const double step = body->value(QStringLiteral("step")).toDouble(60);
            if (!user || count < 0 || count > MaxHistory || !std::isfinite(from)
                || !std::isfinite(step) || std::abs(from) > 1e11 || std::abs(step) > 1e7) {
                ZVXDevHttp::replyError(
                    res, 400,
                    QStringLiteral("expected a \"conversation\", a \"count\" (at most %1), "
                                   "\"from\" and \"step\" in seconds")
                        .arg(MaxHistory));
                return;
            }
            for (int i = 0; i < count; ++i) {
                ZVXDevMessageRecord message;
                message.user = user->id;
                message.uuid = QUuid::createUuid().toString(QUuid::WithoutBraces);
                message.sender = QStringLiteral("agent");
                message.userName = QStringLiteral("Archive");
                message.text = QStringLiteral("Message %1 of %2").arg(i + 1).arg(count);
                message.dateMs = qint64(std::llround((from + step * i) * 1000));
                storage.insertMessage(message);
            }
            ZVXDevHttp::replyJSON(res, {{QStringLiteral("count"), count}});
        })));

    ZVXDevReceipts &receipts = services.receipts;
    server.Get("/admin/receipts",
               forScripts([&receipts](const httplib::Request &, httplib::Response &res) {
                   ZVXDevHttp::replyJSON(res, receipts.toJSON());
               }));
    server.Delete(
        "/admin/receipts",
        bodies.read(forScripts([&receipts](const httplib::Request &, httplib::Response &res) {
            receipts.clear();
            ZVXDevHttp::replyJSON(res, {});
        })));
}

} // namespace ZVXDevAdminRoutes
