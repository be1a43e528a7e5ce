#include "ZVXNetlinkReachabilitySource.h"

#include "ZVXLogging.h"

#include <QFile>
#include <QHash>
#include <QSocketNotifier>
#include <QtEndian>

#include <cerrno>
#include <cstring>
#include <functional>
#include <vector>

#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

struct Link
{
    QString name;
    unsigned flags = 0;
};

struct Route
{
    int family = AF_INET;
    int prefixLength = 0;
    QByteArray destination;
    bool hasGateway = false;
    int interfaceIndex = 0;
    quint32 priority = 0;
};

using MessageHandler = std::function<void(const nlmsghdr *)>;

// Sends one dump request and hands each reply message to \a handle; false on any failure.
bool dump(int socket, quint16 type, quint32 sequence, const MessageHandler &handle)
{
    struct
    {
        nlmsghdr header;
        union
        {
            ifinfomsg link;
            rtmsg route;
        };
    } request{};
    request.header.nlmsg_len
        = NLMSG_LENGTH(type == RTM_GETLINK ? sizeof(ifinfomsg) : sizeof(rtmsg));
    request.header.nlmsg_type = type;
    request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    request.header.nlmsg_seq = sequence;
    sockaddr_nl kernel{};
    kernel.nl_family = AF_NETLINK;
    if (sendto(socket, &request, request.header.nlmsg_len, 0,
               reinterpret_cast<const sockaddr *>(&kernel), sizeof kernel)
        < 0)
        return false;

    std::vector<char> buffer(64 * 1024);
    for (;;) {
        const ssize_t received = recv(socket, buffer.data(), buffer.size(), MSG_TRUNC);
        if (received < 0 && errno == EINTR)
            continue;
        if (received <= 0 || size_t(received) > buffer.size())
            return false;
        auto length = unsigned(received);
        for (auto *message = reinterpret_cast<const nlmsghdr *>(buffer.data());
             NLMSG_OK(message, length); message = NLMSG_NEXT(message, length)) {
            if (message->nlmsg_seq != sequence)
                continue;
            if (message->nlmsg_type == NLMSG_DONE)
                return true;
            if (message->nlmsg_type == NLMSG_ERROR)
                return false;
            handle(message);
        }
    }
}

void readLink(const nlmsghdr *message, QHash<int, Link> &links)
{
    if (message->nlmsg_type != RTM_NEWLINK || message->nlmsg_len < NLMSG_LENGTH(sizeof(ifinfomsg)))
        return;
    const auto *info = static_cast<const ifinfomsg *>(NLMSG_DATA(message));
    Link link;
    link.flags = info->ifi_flags;
    int length = int(IFLA_PAYLOAD(message));
    for (const rtattr *attribute = IFLA_RTA(info); RTA_OK(attribute, length);
         attribute = RTA_NEXT(attribute, length)) {
        if (attribute->rta_type == IFLA_IFNAME)
            link.name = QString::fromUtf8(
                static_cast<const char *>(RTA_DATA(attribute)),
                qstrnlen(static_cast<const char *>(RTA_DATA(attribute)), RTA_PAYLOAD(attribute)));
    }
    links.insert(info->ifi_index, link);
}

void readRoute(const nlmsghdr *message, std::vector<Route> &routes)
{
    if (message->nlmsg_type != RTM_NEWROUTE || message->nlmsg_len < NLMSG_LENGTH(sizeof(rtmsg)))
        return;
    const auto *info = static_cast<const rtmsg *>(NLMSG_DATA(message));
    // Unreachable, blackhole and prohibit routes lead nowhere; the local table holds our own
    // addresses.
    if (info->rtm_type != RTN_UNICAST
        || (info->rtm_family != AF_INET && info->rtm_family != AF_INET6))
        return;
    Route route;
    route.family = info->rtm_family;
    route.prefixLength = info->rtm_dst_len;
    quint32 table = info->rtm_table;
    std::vector<std::pair<int, bool>> nexthops; // interface, has gateway
    int length = int(RTM_PAYLOAD(message));
    for (const rtattr *attribute = RTM_RTA(info); RTA_OK(attribute, length);
         attribute = RTA_NEXT(attribute, length)) {
        const auto *data = static_cast<const char *>(RTA_DATA(attribute));
        const size_t size = RTA_PAYLOAD(attribute);
        switch (attribute->rta_type) {
        case RTA_DST:
            route.destination = QByteArray(data, qsizetype(size));
            break;
        case RTA_GATEWAY:
        case RTA_VIA:
            route.hasGateway = true;
            break;
        case RTA_OIF:
            if (size >= sizeof(int))
                std::memcpy(&route.interfaceIndex, data, sizeof(int));
            break;
        case RTA_PRIORITY:
            if (size >= sizeof(quint32))
                std::memcpy(&route.priority, data, sizeof(quint32));
            break;
        case RTA_TABLE:
            if (size >= sizeof(quint32))
                std::memcpy(&table, data, sizeof(quint32));
            break;
        case RTA_MULTIPATH: {
            // Equal-cost routes: one next hop per entry, each with its own link.
            size_t left = size;
            const auto *hop = reinterpret_cast<const rtnexthop *>(data);
            while (left >= sizeof(rtnexthop) && hop->rtnh_len >= sizeof(rtnexthop)
                   && hop->rtnh_len <= left) {
                bool gateway = false;
                int hopLength = int(hop->rtnh_len - RTNH_LENGTH(0));
                for (const auto *nested = reinterpret_cast<const rtattr *>(RTNH_DATA(hop));
                     RTA_OK(nested, hopLength); nested = RTA_NEXT(nested, hopLength)) {
                    gateway
                        = gateway || nested->rta_type == RTA_GATEWAY || nested->rta_type == RTA_VIA;
                }
                nexthops.emplace_back(hop->rtnh_ifindex, gateway);
                const size_t step = RTNH_ALIGN(hop->rtnh_len);
                if (step >= left)
                    break;
                left -= step;
                hop = reinterpret_cast<const rtnexthop *>(reinterpret_cast<const char *>(hop)
                                                          + step);
            }
            break;
        }
        default:
            break;
        }
    }
    if (table == RT_TABLE_LOCAL)
        return;
    if (nexthops.empty()) {
        routes.push_back(route);
        return;
    }
    for (const auto &[interfaceIndex, gateway] : nexthops) {
        Route hop = route;
        hop.interfaceIndex = interfaceIndex;
        hop.hasGateway = gateway;
        routes.push_back(hop);
    }
}

bool covers(const Route &route, const QByteArray &address)
{
    if (route.prefixLength == 0)
        return true;
    if (route.destination.size() != address.size() || route.prefixLength > address.size() * 8)
        return false;
    const int whole = route.prefixLength / 8;
    if (std::memcmp(route.destination.constData(), address.constData(), size_t(whole)) != 0)
        return false;
    const int bits = route.prefixLength % 8;
    if (bits == 0)
        return true;
    const auto mask = quint8(0xff << (8 - bits));
    return (quint8(route.destination[whole]) & mask) == (quint8(address[whole]) & mask);
}

bool isCellular(const QString &name)
{
    // wwan0 (the kernel's WWAN and qmi_wwan names), wwp0s20u4 (systemd's predictable names)
    if (name.startsWith(QLatin1String("ww")))
        return true;
    QFile uevent(QStringLiteral("/sys/class/net/%1/uevent").arg(name));
    return uevent.open(QIODevice::ReadOnly) && uevent.readAll().contains("\nDEVTYPE=wwan");
}

int openSocket(unsigned groups, int extraType)
{
    const int fd = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | extraType, NETLINK_ROUTE);
    if (fd < 0)
        return -1;
    sockaddr_nl local{};
    local.nl_family = AF_NETLINK;
    local.nl_groups = groups;
    if (bind(fd, reinterpret_cast<const sockaddr *>(&local), sizeof local) < 0) {
        close(fd);
        return -1;
    }
    return fd;
}

} // namespace

ZVXNetlinkReachabilitySource::ZVXNetlinkReachabilitySource(const QHostAddress &target,
                                                           QObject *parent)
    : ZVXReachabilityFlagSource(parent)
    , m_target(target)
{
    m_querySocket = openSocket(0, 0);
    if (m_querySocket < 0) {
        ZVXLogError(QStringLiteral("ZVXReachability: cannot open a routing socket: %1")
                        .arg(QString::fromLocal8Bit(strerror(errno))));
        return;
    }
    // A dump never takes long; this only keeps a wedged kernel from freezing the caller.
    timeval timeout{2, 0};
    setsockopt(m_querySocket, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
}

ZVXNetlinkReachabilitySource::~ZVXNetlinkReachabilitySource()
{
    stop();
    if (m_querySocket >= 0)
        close(m_querySocket);
}

std::optional<quint32> ZVXNetlinkReachabilitySource::flags() const
{
    if (m_querySocket < 0)
        return std::nullopt;
    QHash<int, Link> links;
    std::vector<Route> routes;
    if (!dump(m_querySocket, RTM_GETLINK, ++m_sequence,
              [&](const nlmsghdr *message) { readLink(message, links); })
        || !dump(m_querySocket, RTM_GETROUTE, ++m_sequence,
                 [&](const nlmsghdr *message) { readRoute(message, routes); }))
        return std::nullopt;

    bool isZero = false;
    QByteArray address;
    int family = AF_INET;
    if (m_target.protocol() == QAbstractSocket::IPv4Protocol) {
        const quint32 v4 = qToBigEndian(m_target.toIPv4Address());
        address = QByteArray(reinterpret_cast<const char *>(&v4), 4);
        isZero = v4 == 0;
    } else {
        const Q_IPV6ADDR v6 = m_target.toIPv6Address();
        address = QByteArray(reinterpret_cast<const char *>(v6.c), 16);
        family = AF_INET6;
        isZero = address.count('\0') == 16;
    }

    const Route *best = nullptr;
    const Link *bestLink = nullptr;
    for (const Route &route : routes) {
        if (isZero ? route.prefixLength != 0 : (route.family != family || !covers(route, address)))
            continue;
        auto link = links.constFind(route.interfaceIndex);
        if (link == links.cend() || (link->flags & (IFF_UP | IFF_RUNNING)) != (IFF_UP | IFF_RUNNING)
            || (link->flags & IFF_LOOPBACK))
            continue;
        if (!best || route.prefixLength > best->prefixLength
            || (route.prefixLength == best->prefixLength && route.priority < best->priority)) {
            best = &route;
            bestLink = &*link;
        }
    }
    if (!best)
        return 0;
    quint32 flags = ZVXReachabilityFlags::Reachable;
    if (!best->hasGateway)
        flags |= ZVXReachabilityFlags::IsDirect;
    if (isCellular(bestLink->name))
        flags |= ZVXReachabilityFlags::IsCellular;
    return flags;
}

bool ZVXNetlinkReachabilitySource::start()
{
    if (m_eventSocket >= 0)
        return true;
    m_eventSocket = openSocket(RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR
                                   | RTMGRP_IPV4_ROUTE | RTMGRP_IPV6_ROUTE,
                               SOCK_NONBLOCK);
    if (m_eventSocket < 0) {
        ZVXLogError(QStringLiteral("ZVXReachability: cannot listen to routing events: %1")
                        .arg(QString::fromLocal8Bit(strerror(errno))));
        return false;
    }
    m_notifier = new QSocketNotifier(m_eventSocket, QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this,
            &ZVXNetlinkReachabilitySource::drainEvents);
    return true;
}

void ZVXNetlinkReachabilitySource::stop()
{
    delete m_notifier;
    m_notifier = nullptr;
    if (m_eventSocket >= 0)
        close(m_eventSocket);
    m_eventSocket = -1;
}

void ZVXNetlinkReachabilitySource::drainEvents()
{
    // Whatever the events say, the table is read afresh: one change for the whole burst.
    char buffer[8192];
    for (;;) {
        const ssize_t received = recv(m_eventSocket, buffer, sizeof buffer, 0);
        if (received > 0 || (received < 0 && (errno == EINTR || errno == ENOBUFS)))
            continue;
        break;
    }
    Q_EMIT changed();
}
