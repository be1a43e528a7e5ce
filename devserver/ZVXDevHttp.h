#pragma once

#include "ZVXDevMultipart.h"

#include <QJsonObject>
#include <QString>

#include <optional>

#include <httplib.h>

/*
    Small pieces every route uses: JSON replies and error replies in the
    form clients check ({"error", "localizedError"}), reading a JSON body or
    a multipart form, finding the token, and the address clients reached
    the server at.
*/
namespace ZVXDevHttp {

inline QString text(const std::string &s)
{
    return QString::fromUtf8(s.data(), qsizetype(s.size()));
}
inline std::string bytes(const QString &s)
{
    return s.toStdString();
}

//! Bodies of JSON requests are small; files come as multipart parts.
inline constexpr qsizetype MaxJSONBody = 1024 * 1024;

void replyJSON(httplib::Response &res, const QJsonObject &object, int status = 200);
//! \a error says what went wrong for a developer; \a localizedError is a sentence for the user.
void replyError(httplib::Response &res, int status, const QString &error,
                const QString &localizedError = {});

//! The object in the body, or nothing after replying 400 or 413.
std::optional<QJsonObject> jsonBody(const httplib::Request &req, httplib::Response &res);
std::optional<QJsonObject> parseObject(const QByteArray &body, httplib::Response &res);

/*!
    Called before the body of \a req is read: a multipart request is marked
    so that cpp-httplib hands its body over unparsed. Its own parser (0.11)
    refuses a body whose closing delimiter is not followed by a line break,
    which RFC 2046 allows and which clients send.
*/
void takeRawForm(const httplib::Request &req);
//! The form in \a req (marked by takeRawForm()), or nothing when it is not a well-formed one.
std::optional<ZVXDevMultipart::Form> form(const httplib::Request &req);

/*!
    The text under \a key of \a object into \a value (nothing when absent or
    null); false after replying 400 when it is something else or longer
    than \a maxLength.
*/
bool readText(const QJsonObject &object, const QString &key, std::optional<QString> *value,
              httplib::Response &res, qsizetype maxLength = 4096);

//! "X-ZVL-JWT", or with \a queryToo the "jwt" query parameter (for files, previews and streams).
std::optional<QString> token(const httplib::Request &req, bool queryToo);

//! "https://host:port" as the client addressed the server, for absolute URLs in replies.
QString origin(const httplib::Request &req, const QString &fallback);

bool isLoopbackPeer(const httplib::Request &req);
//! \a handler for loopback clients; others get 403.
httplib::Server::Handler loopbackOnly(httplib::Server::Handler handler);

//! The request target without the secrets a query may carry (a token, the console's key), for
//! the log.
QString loggableTarget(const httplib::Request &req);

//! An identifier that is safe in a path and a file name: letters, digits, ".", "_", "-".
bool isIdentifier(const QString &text);

} // namespace ZVXDevHttp
