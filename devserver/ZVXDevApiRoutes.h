#pragma once

#include <QString>

#include <httplib.h>

struct ZVXDevServices;

/*
    The client's calls under "/api/1.0": "/register", "/status",
    "/messages" (list and send) and "/mark_messages".
*/
namespace ZVXDevApiRoutes {

//! Most messages one page holds, and the page size when the client names none.
inline constexpr int MaxPage = 1000;
/*!
    What the messages of one page may weigh (their text, location and
    context, as stored): a page of long messages stops earlier, and says
    that there is more, so that no reply grows with what a user wrote.
*/
inline constexpr qint64 MaxPageBytes = 512 * 1024;

void install(httplib::Server &server, const ZVXDevServices &services);

/*!
    True for the upload, whose faults wait until its body is read: with
    --admin the server counts the uuid each upload names, whatever the fault
    then does to it.
*/
bool appliesFaultsItself(const QString &method, const QString &path);

} // namespace ZVXDevApiRoutes
