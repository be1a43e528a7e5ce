#pragma once

#include "ZVXDevAuth.h"
#include "ZVXDevHttp.h"

#include <QStringList>

class ZVXDevBodies;
class ZVXDevConversations;
class ZVXDevFaults;
class ZVXDevFiles;
class ZVXDevPushHub;
class ZVXDevReceipts;
class ZVXDevStorage;
struct ZVXDevOptions;

//! What the routes work with, owned by the process.
struct ZVXDevServices
{
    const ZVXDevOptions &options;
    const ZVXDevAuth &auth;
    ZVXDevStorage &storage;
    ZVXDevFiles &files;
    ZVXDevConversations &conversations;
    ZVXDevPushHub &push;
    ZVXDevFaults &faults;
    //! Kept only with --admin.
    ZVXDevReceipts &receipts;
    //! Every route that takes a body reads it through these limits.
    ZVXDevBodies &bodies;
    //! What the agent console asks of whoever uses it, made afresh at every start.
    QByteArray consoleKey;
    //! "https://address:port" for requests that name no host; set once the port is known.
    QString origin;
    //! Every origin the server's certificate answers for (127.0.0.1, localhost, ::1 and the bound
    //! address, with the port): pages of no other origin may change anything in the console.
    QStringList origins;

    //! Where the API's files and previews are, as the client of \a req reaches them.
    QString apiBase(const httplib::Request &req) const
    {
        return ZVXDevHttp::origin(req, origin) + QStringLiteral("/api/1.0");
    }
};

/*!
    A handler that runs \a handler(req, res, identity) for the caller the
    token names, and answers 401 otherwise. \a queryToo also takes the token
    from the "jwt" query parameter.
*/
template<typename Handler>
httplib::Server::Handler authenticated(const ZVXDevServices &services, bool queryToo,
                                       Handler handler)
{
    return [&services, queryToo, handler](const httplib::Request &req, httplib::Response &res) {
        auto result = services.auth.identify(ZVXDevHttp::token(req, queryToo));
        if (const auto *refusal = std::get_if<ZVXDevAuth::Refusal>(&result)) {
            ZVXDevHttp::replyError(res, 401, QStringLiteral("unauthorized: ") + refusal->error,
                                   QStringLiteral("Your session could not be verified."));
            return;
        }
        handler(req, res, std::get<ZVXDevIdentity>(result));
    };
}
