#pragma once

#include <httplib.h>

struct ZVXDevServices;

/*
    The agents' side, for clients on this machine: the page "/console"
    (plain HTML and JavaScript) and the calls it makes under
    "/console/api": the conversations, one conversation's messages, a reply
    with text or files (an agent's, or with "sender" "system" the system's),
    and marking a conversation read.
*/
namespace ZVXDevConsoleRoutes {

void install(httplib::Server &server, const ZVXDevServices &services);

} // namespace ZVXDevConsoleRoutes
