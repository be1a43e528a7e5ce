#pragma once

#include <chrono>
#include <cstddef>

#include <openssl/ssl.h>

/*
    The TLS connections the server holds open, watched from their handshake
    to their end: a thread serves one connection throughout.

    cpp-httplib (0.11) reads a request's line and headers a byte at a time
    with no limit on their length or on the time they take, only on each
    read, so a client sending a byte a second, or an endless line, would
    hold a worker for ever or grow its memory without end. Here the
    handshake and each request head must arrive within a time and a number
    of bytes, counted on the TLS records as they are read; a watchdog
    closes connections that miss the time. Nor does cpp-httplib expose a
    request's socket (needed to drop a connection on purpose, a test fault,
    or after a refusal whose body stays unread) or a way to end idle
    keep-alive connections (without which stopping waits for every client).
*/
namespace ZVXDevConnections {

struct Limits
{
    //! From the handshake's start, or from a request's first byte, to its last header.
    std::chrono::milliseconds headerTimeout{10000};
    //! How long cpp-httplib waits for the next request on an idle connection.
    std::chrono::milliseconds keepAlive{5000};
    //! TLS record bytes a request head may take, with what comes with its last record.
    std::size_t headerBytes = 64 * 1024;
};

//! Watches the connections made with \a context, within \a limits.
void track(SSL_CTX &context, const Limits &limits);

//! Closes connections whose request head is late, until stopWatchdog().
void startWatchdog();
void stopWatchdog();

//! The request head on this thread's connection has been read.
void requestHeadRead();
//! The answer on this thread's connection has been written; the next request head may come.
void responseWritten();
//! Ends this thread's connection once its answer is written (its body is left unread).
void closeAfterResponse();

//! Closes the connection whose request this thread is serving.
void dropCurrent();

//! Closes every open connection, for stopping.
void closeAll();

} // namespace ZVXDevConnections
