#pragma once

#include <openssl/ssl.h>

/*
    The TLS connections the server holds open. cpp-httplib exposes neither
    a request's socket (needed to drop a connection on purpose, a test
    fault) nor a way to end idle keep-alive connections (without which
    stopping waits for every client to let go). Both come from watching the
    TLS handshakes: a thread serves one connection from its handshake to
    its end.
*/
namespace ZVXDevConnections {

//! Watches the connections made with \a context.
void track(SSL_CTX &context);

//! Closes the connection whose request this thread is serving.
void dropCurrent();

//! Closes every open connection, for stopping.
void closeAll();

} // namespace ZVXDevConnections
