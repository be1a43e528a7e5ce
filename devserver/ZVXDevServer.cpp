#include "ZVXDevServer.h"

#include "ZVXDevAdminRoutes.h"
#include "ZVXDevApiRoutes.h"
#include "ZVXDevBodies.h"
#include "ZVXDevCertificates.h"
#include "ZVXDevConnections.h"
#include "ZVXDevConsoleRoutes.h"
#include "ZVXDevFaults.h"
#include "ZVXDevFileRoutes.h"
#include "ZVXDevGeocodeRoutes.h"
#include "ZVXDevLog.h"
#include "ZVXDevOptions.h"
#include "ZVXDevPushHub.h"
#include "ZVXDevPushRoutes.h"
#include "ZVXDevTiles.h"

#include <QHostAddress>

#include <chrono>

#include <sys/socket.h>

using ZVXDevHttp::text;

namespace {

thread_local std::chrono::steady_clock::time_point requestStart;

// How long an idle connection waits for its next request.
constexpr std::chrono::seconds KeepAlive{5};
constexpr std::size_t MaxPath = 512;

QString statusReason(int status)
{
    switch (status) {
    case 400:
        return QStringLiteral("bad request");
    case 404:
        return QStringLiteral("not found");
    case 405:
        return QStringLiteral("method not allowed");
    case 413:
        return QStringLiteral("request body too large");
    case 414:
        return QStringLiteral("request target too long");
    case 416:
        return QStringLiteral("range not satisfiable");
    case 417:
        return QStringLiteral("expectation failed");
    default:
        return QStringLiteral("HTTP status %1").arg(status);
    }
}

} // namespace

ZVXDevServer::ZVXDevServer(ZVXDevServices &services, const ZVXDevCertificates &certificates)
    : m_services(services)
    , m_gazetteer(ZVXDevGazetteer::load(services.options.gazetteerDirectory))
    , m_server(std::make_unique<httplib::SSLServer>([&](SSL_CTX &context) {
        ZVXDevConnections::track(
            context, {.headerTimeout = services.options.headerTimeout, .keepAlive = KeepAlive});
        return certificates.apply(context);
    }))
{
    const ZVXDevOptions &options = services.options;
    const int threads = options.threads;
    m_server->new_task_queue = [threads] { return new httplib::ThreadPool(size_t(threads)); };
    m_server->set_tcp_nodelay(options.tcpNoDelay);
    // The listening socket, kept to widen its backlog once bound (start()). SO_REUSEADDR rather
    // than cpp-httplib's SO_REUSEPORT, with which another process could listen on the same port.
    m_server->set_socket_options([this](socket_t listener) {
        const int yes = 1;
        setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
        m_listener = listener;
    });
    // Bodies are measured as they are read (ZVXDevBodies), where cpp-httplib measures only a
    // declared length: its own limit stays off.
    m_server->set_keep_alive_max_count(1000);
    m_server->set_keep_alive_timeout(KeepAlive.count());
    // A browser takes every answer for what it says it is, never for what it looks like.
    m_server->set_default_headers({{"X-Content-Type-Options", "nosniff"}});
    installHooks();
    ZVXDevApiRoutes::install(*m_server, services);
    ZVXDevFileRoutes::install(*m_server, services);
    ZVXDevPushRoutes::install(*m_server, services);
    ZVXDevConsoleRoutes::install(*m_server, services);
    ZVXDevTiles::install(*m_server, m_tiles);
    ZVXDevGeocodeRoutes::install(*m_server, m_gazetteer);
    if (options.admin)
        ZVXDevAdminRoutes::install(*m_server, services);
    // Whatever no route takes is refused unread: cpp-httplib would read it whole first.
    m_server->Post(".*", ZVXDevBodies::notFound());
    m_server->Put(".*", ZVXDevBodies::notFound());
    m_server->Patch(".*", ZVXDevBodies::notFound());
    m_server->Delete(".*", ZVXDevBodies::notFound());
}

ZVXDevServer::~ZVXDevServer()
{
    stop();
}

void ZVXDevServer::installHooks()
{
    ZVXDevFaults &faults = m_services.faults;
    const ZVXDevBodies &bodies = m_services.bodies;
    const bool admin = m_services.options.admin;
    const qint64 maxBody = m_services.options.maxUploadBytes;
    // A client that waits for a go-ahead before sending a body too large is told at once.
    m_server->set_expect_100_continue_handler(
        [maxBody](const httplib::Request &req, httplib::Response &res) {
            if (req.get_header_value<uint64_t>("Content-Length") <= quint64(maxBody))
                return 100;
            res.status = 413;
            // Should the client send its body all the same, it is not read.
            ZVXDevConnections::closeAfterResponse();
            return 413;
        });
    m_server->set_pre_routing_handler([&faults, &bodies, admin](const httplib::Request &req,
                                                                httplib::Response &res) {
        requestStart = std::chrono::steady_clock::now();
        ZVXDevConnections::requestHeadRead();
        // cpp-httplib answers several ranges with a body holding each of them, overlapping or
        // not: from one header, hundreds of copies of a file in memory. One range is served;
        // several get the whole file, as RFC 9110 (14.2) allows.
        if (req.ranges.size() > 1)
            const_cast<httplib::Request &>(req).ranges.clear();
        const QString method = text(req.method);
        const QString path = text(req.path);
        const bool adminPath = path.startsWith(QLatin1String("/admin/"));
        if (admin && !adminPath)
            faults.count(method, path);
        // No route takes a long path, and cpp-httplib matches routes with std::regex, whose
        // recursion goes as deep as the path is long (GCC bug 86164).
        if (req.path.size() > MaxPath) {
            ZVXDevHttp::replyError(res, 414, QStringLiteral("request path too long"));
            // A body left unread ends the connection.
            if (req.has_header("Transfer-Encoding")
                || (req.has_header("Content-Length")
                    && req.get_header_value("Content-Length") != "0"))
                ZVXDevConnections::closeAfterResponse();
            return httplib::Server::HandlerResponse::Handled;
        }
        if (!bodies.admit(req, res))
            return httplib::Server::HandlerResponse::Handled;
        ZVXDevHttp::takeRawForm(req);
        if (adminPath)
            return httplib::Server::HandlerResponse::Unhandled;
        // The body is not read yet: routes that look into it first apply their faults later.
        if (ZVXDevApiRoutes::appliesFaultsItself(method, path))
            return httplib::Server::HandlerResponse::Unhandled;
        if (const std::optional<ZVXDevFaults::Fault> fault = faults.take(method, path))
            return ZVXDevFaults::apply(*fault, res) ? httplib::Server::HandlerResponse::Handled
                                                    : httplib::Server::HandlerResponse::Unhandled;
        return httplib::Server::HandlerResponse::Unhandled;
    });
    // Errors found by the library itself (no route, a body too large, a malformed
    // request) come without a body: give them the JSON form clients read.
    m_server->set_error_handler([](const httplib::Request &, httplib::Response &res) {
        if (!res.body.empty() || res.has_header(ZVXDevFaults::Header))
            return;
        ZVXDevHttp::replyError(
            res, res.status, statusReason(res.status),
            res.status == 413 ? QStringLiteral("The message is too large to send.") : QString());
    });
    m_server->set_exception_handler(
        [](const httplib::Request &req, httplib::Response &res, std::exception_ptr exception) {
            QString what = QStringLiteral("unknown error");
            try {
                std::rethrow_exception(exception);
            } catch (const std::exception &e) {
                what = QString::fromUtf8(e.what());
            } catch (...) { }
            ZVXDevLog::line(
                QStringLiteral("error in %1 %2: %3").arg(text(req.method), text(req.path), what));
            ZVXDevHttp::replyError(res, 500, what, QStringLiteral("The server could not do that."));
        });
    m_server->set_logger([](const httplib::Request &req, const httplib::Response &res) {
        ZVXDevConnections::responseWritten();
        const auto elapsed = std::chrono::steady_clock::now() - requestStart;
        ZVXDevLog::line(
            QStringLiteral("%1 %2 %3 %4 %5 B %6 ms")
                .arg(text(req.remote_addr), text(req.method), ZVXDevHttp::loggableTarget(req))
                .arg(res.status)
                // Files are streamed: their length is the provider's.
                .arg(res.body.empty() ? res.content_length_ : res.body.size())
                .arg(std::chrono::duration<double, std::milli>(elapsed).count(), 0, 'f', 1));
    });
}

int ZVXDevServer::start(QString *error)
{
    const ZVXDevOptions &options = m_services.options;
    if (!m_server->is_valid()) {
        *error = QStringLiteral("cannot set up TLS with the server certificate");
        return 0;
    }
    const std::string address = ZVXDevHttp::bytes(options.bindAddress);
    int port = options.port;
    if (port == 0)
        port = m_server->bind_to_any_port(address);
    else if (!m_server->bind_to_port(address, port))
        port = -1;
    // cpp-httplib 0.11 listens with a backlog of 5: a burst of clients would wait for their
    // connection attempts to be sent again, a second and more later.
    if (port > 0)
        ::listen(m_listener, SOMAXCONN);
    if (port <= 0) {
        *error = QStringLiteral("cannot listen on %1 port %2")
                     .arg(options.bindAddress)
                     .arg(options.port);
        return 0;
    }
    QString host = options.bindAddress;
    if (QHostAddress(host).protocol() == QAbstractSocket::IPv6Protocol)
        host = QLatin1Char('[') + host + QLatin1Char(']');
    m_services.origin = QStringLiteral("https://%1:%2").arg(host).arg(port);
    m_services.origins = QStringList{QStringLiteral("https://127.0.0.1:%1").arg(port),
                                     QStringLiteral("https://localhost:%1").arg(port),
                                     QStringLiteral("https://[::1]:%1").arg(port)};
    if (!m_services.origins.contains(m_services.origin))
        m_services.origins.append(m_services.origin);
    ZVXDevConnections::startWatchdog();
    m_thread = std::thread([this] { m_server->listen_after_bind(); });
    // Until the loop runs, stop() has nothing to stop and the join would wait forever; nor
    // should "listening" be printed before it is true.
    for (int i = 0; i < 5000 && !m_server->is_running(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    if (!m_server->is_running()) {
        *error = QStringLiteral("the server did not start listening");
        ZVXDevConnections::stopWatchdog();
        m_server->stop();
        m_thread.detach();
        return 0;
    }
    return port;
}

void ZVXDevServer::stop()
{
    if (!m_thread.joinable())
        return;
    // Streams wait for payloads; wake them so their threads can finish.
    m_services.push.stop();
    m_server->stop();
    // Idle keep-alive connections would hold their threads until the clients let go.
    ZVXDevConnections::closeAll();
    m_thread.join();
    ZVXDevConnections::stopWatchdog();
}
