#pragma once

#include "ZVXDevGazetteer.h"
#include "ZVXDevServices.h"
#include "ZVXDevTiles.h"

#include <QString>

#include <memory>
#include <thread>

class ZVXDevCertificates;

/*!
    The HTTPS server: TLS with the development certificate, no-delay
    sockets, a pool of threads so that clients do not wait for each other,
    size limits, JSON bodies on every error, one log line per request, the
    test faults, and the routes.
*/
class ZVXDevServer
{
public:
    ZVXDevServer(ZVXDevServices &services, const ZVXDevCertificates &certificates);
    ~ZVXDevServer();

    //! Listens on the address and port of the options; the port (chosen when 0), or 0 and \a error.
    int start(QString *error);
    //! Stops listening and waits for the requests under way.
    void stop();

private:
    void installHooks();

    ZVXDevServices &m_services;
    ZVXDevTiles::Painter m_tiles;
    const ZVXDevGazetteer m_gazetteer;
    std::unique_ptr<httplib::SSLServer> m_server;
    int m_listener = -1;
    std::thread m_thread;
};
