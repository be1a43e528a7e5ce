#pragma once

#include <httplib.h>

struct ZVXDevServices;

/*
    "/api/1.0/push": the push payloads for one device as a stream of
    Server-Sent Events, since Linux has no vendor push service. The device is
    the installation the token names; it must have registered. Each event's
    data is one payload (JSON) and its id the message's uuid; a comment
    ": connected" opens the stream and ": keep-alive" lines follow when
    nothing happens for a while.
*/
namespace ZVXDevPushRoutes {

void install(httplib::Server &server, const ZVXDevServices &services);

} // namespace ZVXDevPushRoutes
