#include "ZVXDevConnections.h"

#include <mutex>
#include <set>

#include <sys/socket.h>

namespace ZVXDevConnections {

namespace {

std::mutex mutex;
std::set<int> open;
thread_local int current = -1;
int index = -1;

void handshakeDone(const SSL *ssl, int where, int)
{
    if (!(where & SSL_CB_HANDSHAKE_DONE))
        return;
    current = SSL_get_fd(ssl);
    // Marks the connection, so that it is forgotten when its SSL object goes.
    SSL_set_ex_data(const_cast<SSL *>(ssl), index, &open);
    std::lock_guard lock(mutex);
    open.insert(current);
}

// Called from SSL_free(), which the server library calls before it closes the socket.
void forget(void *parent, void *marker, CRYPTO_EX_DATA *, int, long, void *)
{
    if (!marker)
        return;
    std::lock_guard lock(mutex);
    open.erase(SSL_get_fd(static_cast<SSL *>(parent)));
}

} // namespace

void track(SSL_CTX &context)
{
    static std::once_flag once;
    std::call_once(once,
                   [] { index = SSL_get_ex_new_index(0, nullptr, nullptr, nullptr, forget); });
    SSL_CTX_set_info_callback(&context, handshakeDone);
}

void dropCurrent()
{
    if (current >= 0)
        ::shutdown(current, SHUT_RDWR);
}

void closeAll()
{
    std::lock_guard lock(mutex);
    for (const int socket : open)
        ::shutdown(socket, SHUT_RDWR);
}

} // namespace ZVXDevConnections
