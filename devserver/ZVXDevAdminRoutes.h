#pragma once

#include <httplib.h>

struct ZVXDevServices;

/*
    For tests, only with --admin and only for loopback clients:
    POST /admin/faults {"path", "method"?, "kind", "count"?, "status"?,
    "body"?, "delayMs"?} makes the next requests on a path misbehave;
    DELETE /admin/faults forgets them; GET /admin/counters tells how many
    requests each "METHOD /route" received; DELETE /admin/counters resets them;
    GET /admin/receipts tells how many uploads named each message uuid
    (ZVXDevReceipts); DELETE /admin/receipts forgets them.
*/
namespace ZVXDevAdminRoutes {

void install(httplib::Server &server, const ZVXDevServices &services);

} // namespace ZVXDevAdminRoutes
