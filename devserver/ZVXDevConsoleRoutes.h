#pragma once

#include <httplib.h>

struct ZVXDevServices;

/*
    The agents' side, for clients on this machine that know the key the
    server made at start: the page "/console" (plain HTML and JavaScript;
    "/console?key=KEY" turns the key into the page's cookie) and the calls
    it makes under "/console/api": the latest conversations, a window of one
    conversation's messages, a reply with text or files (an agent's, or with
    "sender" "system" the system's), and marking a conversation read.
    Scripts give the key in "X-Zuvero-Console".
*/
namespace ZVXDevConsoleRoutes {

void install(httplib::Server &server, const ZVXDevServices &services);

} // namespace ZVXDevConsoleRoutes
