#pragma once

#include <httplib.h>

struct ZVXDevServices;

/*
    The client's calls under "/api/1.0": "/register", "/status",
    "/messages" (list and send) and "/mark_messages".
*/
namespace ZVXDevApiRoutes {

//! Most messages one page holds, and the page size when the client names none.
inline constexpr int MaxPage = 1000;

void install(httplib::Server &server, const ZVXDevServices &services);

} // namespace ZVXDevApiRoutes
