#include "ZVXDevConnections.h"

#include "ZVXDevLog.h"

#include <QString>

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <set>
#include <thread>

#include <pthread.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

namespace ZVXDevConnections {

namespace {

using Clock = std::chrono::steady_clock;

enum class Phase {
    //! The handshake, then a request's line and headers: both have a deadline.
    Head,
    //! Reading the body, answering, streaming: the routes keep their own time.
    Handling,
    //! Closed by the watchdog or for its size; waiting for its thread to notice.
    Closed,
};

struct Connection
{
    int socket = -1;
    Phase phase = Phase::Head;
    Clock::time_point deadline;
    std::size_t headBytes = 0;
    bool closeAfterResponse = false;
};

// Guards every Connection's phase, deadline and byte count, and the set.
std::mutex mutex;
std::set<Connection *> open;
Limits limits;
thread_local Connection *current = nullptr;
int index = -1;

std::thread watchdog;
std::condition_variable wake;
bool watching = false;

Connection *connectionOf(const SSL *ssl)
{
    return static_cast<Connection *>(SSL_get_ex_data(ssl, index));
}

void close(Connection &connection, const QString &why)
{
    connection.phase = Phase::Closed;
    ::shutdown(connection.socket, SHUT_RDWR);
    ZVXDevLog::line(QStringLiteral("closed a connection: ") + why);
}

// Runs on the thread that serves the connection, from SSL_accept() on.
void info(const SSL *ssl, int where, int)
{
    if (where & SSL_CB_HANDSHAKE_START) {
        // TLS 1.3 reports post-handshake messages as handshakes too: one record per connection.
        if (connectionOf(ssl))
            return;
        auto *connection = new Connection;
        connection->socket = SSL_get_fd(ssl);
        connection->deadline = Clock::now() + limits.headerTimeout;
        SSL_set_ex_data(const_cast<SSL *>(ssl), index, connection);
        current = connection;
        std::lock_guard lock(mutex);
        open.insert(connection);
    } else if (where & SSL_CB_HANDSHAKE_DONE) {
        Connection *connection = connectionOf(ssl);
        std::lock_guard lock(mutex);
        if (connection && connection->phase == Phase::Head && connection->headBytes == 0)
            connection->deadline = Clock::now() + limits.keepAlive + limits.headerTimeout;
    }
}

// Sees each TLS record header as it is read: what a request head costs before it is parsed.
void message(int written, int, int contentType, const void *buffer, size_t length, SSL *ssl, void *)
{
    if (written || contentType != SSL3_RT_HEADER || length < SSL3_RT_HEADER_LENGTH
        || !SSL_is_init_finished(ssl))
        return;
    Connection *connection = connectionOf(ssl);
    if (!connection)
        return;
    const auto *header = static_cast<const unsigned char *>(buffer);
    const std::size_t record = (std::size_t(header[3]) << 8) | header[4];
    std::lock_guard lock(mutex);
    if (connection->phase != Phase::Head)
        return;
    // The clock of a request starts with its first byte; an idle connection is cpp-httplib's.
    if (connection->headBytes == 0)
        connection->deadline = Clock::now() + limits.headerTimeout;
    connection->headBytes += record;
    if (connection->headBytes > limits.headerBytes)
        close(*connection,
              QStringLiteral("its request head was larger than %1 bytes").arg(limits.headerBytes));
}

// Called from SSL_free(), which the server library calls before it closes the socket.
void forget(void *, void *record, CRYPTO_EX_DATA *, int, long, void *)
{
    auto *connection = static_cast<Connection *>(record);
    if (!connection)
        return;
    if (current == connection)
        current = nullptr;
    {
        std::lock_guard lock(mutex);
        open.erase(connection);
    }
    delete connection;
}

/*
    libstdc++'s std::regex recurses once per character it matches (GCC bug
    86164), and cpp-httplib matches the Range header with one before any
    hook of ours can look at it: an 8 KB header takes megabytes of stack.
    The stack pages a request touched would stay with its thread for good,
    up to the whole stack of each of them; here they go back once the
    answer is written. What stays below the current frame is unused.
*/
void releaseStack()
{
    pthread_attr_t attributes;
    if (pthread_getattr_np(pthread_self(), &attributes) != 0)
        return;
    void *base = nullptr;
    std::size_t size = 0;
    pthread_attr_getstack(&attributes, &base, &size);
    pthread_attr_destroy(&attributes);
    const auto page = std::uintptr_t(sysconf(_SC_PAGESIZE));
    const char here = 0;
    // Well clear of this frame, the calls still to come and a signal handler.
    const std::uintptr_t end = (std::uintptr_t(&here) - 256 * 1024) & ~(page - 1);
    const std::uintptr_t start = (std::uintptr_t(base) + page - 1) & ~(page - 1);
    if (end > start)
        madvise(reinterpret_cast<void *>(start), end - start, MADV_DONTNEED);
}

void watch()
{
    std::unique_lock lock(mutex);
    while (watching) {
        wake.wait_for(lock, std::chrono::milliseconds(200));
        const Clock::time_point now = Clock::now();
        for (Connection *connection : open) {
            if (connection->phase == Phase::Head && connection->deadline < now)
                close(*connection,
                      QStringLiteral("its request did not arrive within %1 s")
                          .arg(double(limits.headerTimeout.count()) / 1000.0));
        }
    }
}

} // namespace

void track(SSL_CTX &context, const Limits &connectionLimits)
{
    static std::once_flag once;
    std::call_once(once,
                   [] { index = SSL_get_ex_new_index(0, nullptr, nullptr, nullptr, forget); });
    {
        std::lock_guard lock(mutex);
        limits = connectionLimits;
    }
    SSL_CTX_set_info_callback(&context, info);
    SSL_CTX_set_msg_callback(&context, message);
}

void startWatchdog()
{
    std::lock_guard lock(mutex);
    if (watching)
        return;
    watching = true;
    watchdog = std::thread(watch);
}

void stopWatchdog()
{
    {
        std::lock_guard lock(mutex);
        if (!watching)
            return;
        watching = false;
    }
    wake.notify_all();
    watchdog.join();
}

void requestHeadRead()
{
    std::lock_guard lock(mutex);
    if (current && current->phase == Phase::Head)
        current->phase = Phase::Handling;
}

void responseWritten()
{
    releaseStack();
    std::lock_guard lock(mutex);
    if (!current || current->phase == Phase::Closed)
        return;
    if (current->closeAfterResponse) {
        // The answer is in the socket's buffer: the client reads it, then the end.
        ::shutdown(current->socket, SHUT_RDWR);
        current->phase = Phase::Closed;
        return;
    }
    current->phase = Phase::Head;
    current->headBytes = 0;
    current->deadline = Clock::now() + limits.keepAlive + limits.headerTimeout;
}

void closeAfterResponse()
{
    std::lock_guard lock(mutex);
    if (current)
        current->closeAfterResponse = true;
}

void dropCurrent()
{
    std::lock_guard lock(mutex);
    if (current)
        ::shutdown(current->socket, SHUT_RDWR);
}

void closeAll()
{
    std::lock_guard lock(mutex);
    for (const Connection *connection : open)
        ::shutdown(connection->socket, SHUT_RDWR);
}

} // namespace ZVXDevConnections
