#include "ZVXDevAdminRoutes.h"

#include "ZVXDevFaults.h"
#include "ZVXDevReceipts.h"
#include "ZVXDevServices.h"

namespace ZVXDevAdminRoutes {

using ZVXDevHttp::loopbackOnly;

void install(httplib::Server &server, const ZVXDevServices &services)
{
    ZVXDevFaults &faults = services.faults;
    server.Post("/admin/faults",
                loopbackOnly([&faults](const httplib::Request &req, httplib::Response &res) {
                    const std::optional<QJsonObject> body = ZVXDevHttp::jsonBody(req, res);
                    if (!body)
                        return;
                    QString error;
                    const std::optional<ZVXDevFaults::Fault> fault
                        = ZVXDevFaults::fromJSON(*body, &error);
                    if (!fault) {
                        ZVXDevHttp::replyError(res, 400, error);
                        return;
                    }
                    faults.add(*fault);
                    ZVXDevHttp::replyJSON(res, {});
                }));
    server.Delete("/admin/faults",
                  loopbackOnly([&faults](const httplib::Request &, httplib::Response &res) {
                      faults.clear();
                      ZVXDevHttp::replyJSON(res, {});
                  }));
    server.Get("/admin/counters",
               loopbackOnly([&faults](const httplib::Request &, httplib::Response &res) {
                   ZVXDevHttp::replyJSON(res, {{QStringLiteral("counters"), faults.counters()}});
               }));
    server.Delete("/admin/counters",
                  loopbackOnly([&faults](const httplib::Request &, httplib::Response &res) {
                      faults.resetCounters();
                      ZVXDevHttp::replyJSON(res, {});
                  }));
    ZVXDevReceipts &receipts = services.receipts;
    server.Get("/admin/receipts",
               loopbackOnly([&receipts](const httplib::Request &, httplib::Response &res) {
                   ZVXDevHttp::replyJSON(res, receipts.toJSON());
               }));
    server.Delete("/admin/receipts",
                  loopbackOnly([&receipts](const httplib::Request &, httplib::Response &res) {
                      receipts.clear();
                      ZVXDevHttp::replyJSON(res, {});
                  }));
}

} // namespace ZVXDevAdminRoutes
