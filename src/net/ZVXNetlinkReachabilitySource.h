#pragma once

#include "ZVXReachabilityFlagSource.h"

#include <QHostAddress>

class QSocketNotifier;

/*!
    Reachability flags from the kernel's routing table, read over rtnetlink.

    An address is reachable when a unicast route covers it over a link that
    is up and has a carrier; of several, the longest prefix and then the
    lowest metric wins. The zero address stands for the Internet: any
    default route, IPv4 or IPv6. A route without a gateway sets IsDirect, a
    route over a cellular (wwan) link IsCellular.

    The route, link and address events of the kernel wake it up, and every
    event re-reads the whole table: a link that goes down drops its routes
    without a route event of its own.

    Its sockets belong to the network namespace in which they are opened:
    the query socket on construction, the event socket in start().
*/
class ZUVERO_EXPORT ZVXNetlinkReachabilitySource final : public ZVXReachabilityFlagSource
{
    Q_OBJECT

public:
    explicit ZVXNetlinkReachabilitySource(const QHostAddress &target, QObject *parent = nullptr);
    ~ZVXNetlinkReachabilitySource() override;

    std::optional<quint32> flags() const override;
    bool start() override;
    void stop() override;

private:
    void drainEvents();

    QHostAddress m_target;
    int m_querySocket = -1;
    int m_eventSocket = -1;
    QSocketNotifier *m_notifier = nullptr;
    mutable quint32 m_sequence = 0;
};
