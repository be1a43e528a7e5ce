#include "ZVXDevAdminRoutes.h"

#include "ZVXDevBodies.h"
#include "ZVXDevFaults.h"
#include "ZVXDevReceipts.h"
#include "ZVXDevServices.h"

namespace ZVXDevAdminRoutes {

namespace {

using Handler = httplib::Server::Handler;

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
