#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

#include <httplib.h>

/*!
    Request bodies, read within limits whatever their framing: a length,
    chunks or a compressed encoding (gzip, deflate, br), decoded as they
    come. cpp-httplib (0.11) checks its size limit only against a declared
    length: a chunked or compressed body, or one that runs until the
    connection closes, would be buffered or inflated whole before any
    check. So every route that takes a body reads it here, through
    cpp-httplib's content reader, counting what has been decoded: no body
    grows beyond the largest allowed, takes longer than its time, or joins
    the bodies already held when they fill the server's budget.
*/
class ZVXDevBodies
{
public:
    struct Limits
    {
        //! The largest body, once decoded.
        std::int64_t maxBytes = 32 * 1024 * 1024;
        //! Bodies held in memory at once, for every request together.
        std::int64_t heldBytes = 128 * 1024 * 1024;
        //! From the end of the request's head to the end of its body.
        std::chrono::milliseconds timeout{60000};
    };

    explicit ZVXDevBodies(const Limits &limits)
        : m_limits(limits)
    { }

    /*!
        Checks what the headers of \a req say about its body before any of
        it is read; false after a refusal in \a res (and the connection is
        then closed). A request that declares no body gets a length of 0.
    */
    bool admit(const httplib::Request &req, httplib::Response &res) const;

    /*!
        A route that reads the body into req.body, then runs \a handler;
        bodies that break a limit are refused (413, 408, 503) and their
        connection closed.
    */
    httplib::Server::HandlerWithContentReader read(httplib::Server::Handler handler);

    //! For paths no route takes: 404, the body left unread.
    static httplib::Server::HandlerWithContentReader notFound();

private:
    class Hold;

    Limits m_limits;
    std::atomic<std::int64_t> m_held{0};
};
