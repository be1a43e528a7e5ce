#pragma once

#include "ZVXDevServerProcess.h"
#include "ZVXReachabilityFlagSource.h"
#include "Zuvero.h"

#include <memory>

/*!
    What the library's suites against a dev server share: the server, with
    the API secret below and its admin routes; its authority trusted by the
    library; an admin client; and the network's presence in the suite's
    hands (online unless a test says otherwise).
*/
class ZVXDevServerSuite
{
public:
    static const QString SecretHex;

    //! Starts it all, once per suite; false when the server did not come up.
    bool start(const QStringList &extraArguments = {});

    ZVXDevServerProcess &server() { return m_server; }
    ZVXDevClient &admin() { return *m_admin; }
    void setOnline(bool online);

    //! Forgets the faults still waiting and the request counters.
    bool reset();
    //! A facade of the server for a new user named after \a user, not yet registered.
    std::unique_ptr<Zuvero> facade(const QString &user, const Zuvero::DelegatePtr &delegate = {});
    //! Registers \a zuvero now, so that its conversation exists on the server; false on failure.
    static bool registered(Zuvero *zuvero);
    //! The console's id of \a zuvero's conversation.
    qint64 conversationId(Zuvero *zuvero);

private:
    ZVXDevServerProcess m_server;
    std::unique_ptr<ZVXDevClient> m_admin;
    std::shared_ptr<ZVXSettableReachabilitySource> m_network;
};
