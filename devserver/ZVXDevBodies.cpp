#include "ZVXDevBodies.h"

#include "ZVXDevConnections.h"
#include "ZVXDevHttp.h"

#include <QString>

#include <optional>
#include <set>

using ZVXDevHttp::replyError;

namespace {

using Clock = std::chrono::steady_clock;

bool equalsIgnoringCase(const std::string &a, const char *b)
{
    return QString::fromStdString(a).compare(QLatin1String(b), Qt::CaseInsensitive) == 0;
}

bool takesBody(const std::string &method)
{
    return method == "POST" || method == "PUT" || method == "PATCH" || method == "DELETE";
}

// A Content-Length of digits only; cpp-httplib would read "12abc" as 12 and "x" as 0.
std::optional<std::int64_t> declaredLength(const httplib::Request &req)
{
    const std::string value = req.get_header_value("Content-Length");
    if (value.empty() || value.size() > 18)
        return std::nullopt;
    for (const char c : value) {
        if (c < '0' || c > '9')
            return std::nullopt;
    }
    return std::stoll(value);
}

// What cpp-httplib decodes as it reads: gzip, deflate and br (identity needs nothing).
bool isDecoded(const httplib::Request &req)
{
    const std::string encoding = req.get_header_value("Content-Encoding");
    return !encoding.empty() && !equalsIgnoringCase(encoding, "identity");
}

bool refuse(httplib::Response &res, int status, const QString &error)
{
    replyError(res, status, error);
    // The body, if any, stays unread: the connection cannot carry another request.
    ZVXDevConnections::closeAfterResponse();
    return false;
}

} // namespace

class ZVXDevBodies::Hold
{
public:
    Hold(std::atomic<std::int64_t> &held, std::int64_t budget)
        : m_held(held)
        , m_budget(budget)
    { }
    ~Hold() { m_held -= m_taken; }
    Hold(const Hold &) = delete;
    Hold &operator=(const Hold &) = delete;

    bool take(std::int64_t bytes)
    {
        if (m_held.fetch_add(bytes) + bytes > m_budget) {
            m_held -= bytes;
            return false;
        }
        m_taken += bytes;
        return true;
    }
    std::int64_t taken() const { return m_taken; }

private:
    std::atomic<std::int64_t> &m_held;
    std::int64_t m_budget;
    std::int64_t m_taken = 0;
};

bool ZVXDevBodies::admit(const httplib::Request &req, httplib::Response &res) const
{
    // cpp-httplib also takes CONNECT, TRACE and PRI; PRI it reads to the end of the connection.
    static const std::set<std::string> methods{"GET",   "HEAD",   "POST",   "PUT",
                                               "PATCH", "DELETE", "OPTIONS"};
    if (!methods.contains(req.method))
        return refuse(res, 405, QStringLiteral("method not allowed"));

    const std::size_t lengths = req.get_header_value_count("Content-Length");
    const std::size_t codings = req.get_header_value_count("Transfer-Encoding");
    // Two ways to tell where the body ends is how requests are smuggled past a proxy.
    if (lengths > 1 || codings > 1 || (lengths && codings))
        return refuse(res, 400, QStringLiteral("the request says twice where its body ends"));
    const bool chunked = codings == 1;
    if (chunked && !equalsIgnoringCase(req.get_header_value("Transfer-Encoding"), "chunked"))
        return refuse(res, 501, QStringLiteral("only the chunked transfer coding is understood"));
    std::optional<std::int64_t> declared;
    if (lengths) {
        declared = declaredLength(req);
        if (!declared)
            return refuse(res, 400, QStringLiteral("Content-Length must be a number of bytes"));
    }

    if (!takesBody(req.method)) {
        // cpp-httplib never reads it, and would take it for the next request.
        if (chunked || declared.value_or(0) > 0)
            return refuse(
                res, 400,
                QStringLiteral("a %1 request has no body").arg(QString::fromStdString(req.method)));
        return true;
    }
    if (!chunked && !declared) {
        // No length and no chunks: no body (RFC 9112, 6.3), where cpp-httplib would read
        // until the connection closes.
        const_cast<httplib::Request &>(req).headers.emplace("Content-Length", "0");
        return true;
    }
    // A body a little too large is read and thrown away, so that its client sees the answer.
    if (declared && *declared > 2 * m_limits.maxBytes)
        return refuse(res, 413,
                      QStringLiteral("request body larger than %1 bytes").arg(m_limits.maxBytes));

    const std::size_t encodings = req.get_header_value_count("Content-Encoding");
    const std::string encoding = req.get_header_value("Content-Encoding");
    const bool known = encoding.empty() || equalsIgnoringCase(encoding, "identity")
        || equalsIgnoringCase(encoding, "gzip") || equalsIgnoringCase(encoding, "deflate")
        || equalsIgnoringCase(encoding, "br");
    if (encodings > 1 || !known)
        return refuse(res, 415,
                      QStringLiteral("a request body may be sent as it is, or in gzip, deflate "
                                     "or br"));
    return true;
}

httplib::Server::HandlerWithContentReader ZVXDevBodies::read(httplib::Server::Handler handler)
{
    return [this, handler](const httplib::Request &req, httplib::Response &res,
                           const httplib::ContentReader &reader) {
        // The request is the server's own, not really const: the body goes where routes look.
        std::string &body = const_cast<httplib::Request &>(req).body;
        const std::int64_t declared = declaredLength(req).value_or(-1);
        const bool decoded = isDecoded(req);
        const bool discard = declared > m_limits.maxBytes;
        Hold hold(m_held, m_limits.heldBytes);
        const auto busy = [&] {
            res.set_header("Retry-After", "1");
            refuse(res, 503,
                   QStringLiteral("the server holds as many request bodies as it may; try again"));
        };
        if (!discard && !decoded && declared > 0) {
            if (!hold.take(declared)) {
                busy();
                return;
            }
            body.reserve(std::size_t(declared));
        }

        enum class Stop { None, TooLarge, Busy, Late } stop = Stop::None;
        const Clock::time_point deadline = Clock::now() + m_limits.timeout;
        std::int64_t received = 0;
        const bool complete = reader([&](const char *data, std::size_t size) {
            if (Clock::now() > deadline) {
                stop = Stop::Late;
                return false;
            }
            received += std::int64_t(size);
            if (discard)
                return true;
            if (received > m_limits.maxBytes) {
                stop = Stop::TooLarge;
                return false;
            }
            if (received > hold.taken() && !hold.take(received - hold.taken())) {
                stop = Stop::Busy;
                return false;
            }
            body.append(data, size);
            return true;
        });

        if (stop == Stop::Busy) {
            busy();
        } else if (stop == Stop::TooLarge || (complete && discard)) {
            const QString error = decoded
                ? QStringLiteral("request body larger than %1 bytes once decoded")
                : QStringLiteral("request body larger than %1 bytes");
            replyError(res, 413, error.arg(m_limits.maxBytes),
                       QStringLiteral("The message is too large to send."));
            if (!complete)
                ZVXDevConnections::closeAfterResponse();
        } else if (stop == Stop::Late || (!complete && Clock::now() > deadline)) {
            refuse(res, 408,
                   QStringLiteral("the request body did not arrive within %1 s")
                       .arg(double(m_limits.timeout.count()) / 1000.0));
        } else if (!complete) {
            refuse(res, 400,
                   decoded ? QStringLiteral("the request body could not be read or decoded")
                           : QStringLiteral("the request body could not be read"));
        } else {
            handler(req, res);
        }
    };
}

httplib::Server::HandlerWithContentReader ZVXDevBodies::notFound()
{
    return [](const httplib::Request &req, httplib::Response &res, const httplib::ContentReader &) {
        replyError(res, 404, QStringLiteral("not found"));
        if (req.get_header_value("Content-Length") != "0")
            ZVXDevConnections::closeAfterResponse();
    };
}
