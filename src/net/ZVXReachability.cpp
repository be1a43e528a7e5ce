#include "ZVXReachability.h"

#include "ZVXLocalization.h"
#include "ZVXMainThread.h"
#include "ZVXNetlinkReachabilitySource.h"
#include "ZuveroNotificationCenter.h"

#include <QHostAddress>
#include <QMutex>
#include <QUrl>

namespace {

QMutex factoryMutex;
ZVXReachability::SourceFactory installedFactory;

std::shared_ptr<ZVXReachabilityFlagSource> makeSource(const QHostAddress &address)
{
    ZVXReachability::SourceFactory factory;
    {
        QMutexLocker locker(&factoryMutex);
        factory = installedFactory;
    }
    if (factory)
        return factory(address);
    return std::make_shared<ZVXNetlinkReachabilitySource>(address);
}

} // namespace

ZVXReachability::ZVXReachability(std::shared_ptr<ZVXReachabilityFlagSource> source, QObject *parent)
    : QObject(parent)
    , m_source(std::move(source))
{ }

ZVXReachability::~ZVXReachability()
{
    stopNotifier();
}

ZVXReachability *ZVXReachability::create(const QHostAddress &address, QObject *parent)
{
    if (address.isNull())
        return nullptr;
    std::shared_ptr<ZVXReachabilityFlagSource> source = makeSource(address);
    return source ? new ZVXReachability(std::move(source), parent) : nullptr;
}

ZVXReachability *ZVXReachability::reachabilityWithHostName(const QString &hostName, QObject *parent)
{
    QHostAddress address;
    if (address.setAddress(hostName))
        return create(address, parent);
    if (QUrl::toAce(hostName).isEmpty())
        return nullptr;
    return create(QHostAddress(QHostAddress::AnyIPv4), parent);
}

ZVXReachability *ZVXReachability::reachabilityWithAddress(const QHostAddress &address,
                                                          QObject *parent)
{
    return create(address, parent);
}

ZVXReachability *ZVXReachability::reachabilityForInternetConnection(QObject *parent)
{
    return create(QHostAddress(QHostAddress::AnyIPv4), parent);
}

ZVXReachability *ZVXReachability::reachabilityForLocalWiFi(QObject *parent)
{
    ZVXReachability *reachability = create(QHostAddress(QStringLiteral("169.254.0.0")), parent);
    if (reachability)
        reachability->m_localWiFi = true;
    return reachability;
}

bool ZVXReachability::startNotifier()
{
    if (m_connection)
        return true;
    if (!m_source->start())
        return false;
    m_lastFlags = m_source->flags();
    m_connection = connect(m_source.get(), &ZVXReachabilityFlagSource::changed, this,
                           &ZVXReachability::sourceChanged);
    return true;
}

void ZVXReachability::stopNotifier()
{
    if (!m_connection)
        return;
    disconnect(m_connection);
    m_connection = {};
    m_source->stop();
}

void ZVXReachability::sourceChanged()
{
    const std::optional<quint32> flags = m_source->flags();
    if (flags == m_lastFlags)
        return;
    m_lastFlags = flags;
    auto post = [this] {
        ZuveroNotificationCenter::defaultCenter()->post(
            ZuveroNetworkReachabilityChangedNotification, this);
    };
    if (ZVXMainThread::isMainThread())
        post();
    else
        ZVXMainThread::async(post, this);
}

ZVXReachability::NetworkStatus ZVXReachability::currentReachabilityStatus() const
{
    const quint32 flags = m_source->flags().value_or(0);
    return m_localWiFi ? localWiFiStatusForFlags(flags) : networkStatusForFlags(flags);
}

bool ZVXReachability::connectionRequired() const
{
    return m_source->flags().value_or(0) & ZVXReachabilityFlags::ConnectionRequired;
}

ZVXReachability::NetworkStatus ZVXReachability::networkStatusForFlags(quint32 flags)
{
    using namespace ZVXReachabilityFlags;
    if (!(flags & Reachable))
        return NotReachable;
    if (flags & IsCellular)
        return ReachableViaWWAN;
    if ((flags & (ConnectionOnDemand | ConnectionOnTraffic)) && !(flags & InterventionRequired))
        return ReachableViaWiFi;
    if (!(flags & ConnectionRequired))
        return ReachableViaWiFi;
    return NotReachable;
}

ZVXReachability::NetworkStatus ZVXReachability::localWiFiStatusForFlags(quint32 flags)
{
    using namespace ZVXReachabilityFlags;
    return (flags & Reachable) && (flags & IsDirect) ? ReachableViaWiFi : NotReachable;
}

bool ZVXReachability::checkNetworkIsReachable()
{
    std::unique_ptr<ZVXReachability> reachability(reachabilityForInternetConnection());
    return reachability && reachability->currentReachabilityStatus() != NotReachable;
}

bool ZVXReachability::checkNetworkIsReachableOrShowAlert(
    const std::function<void(const ZVXAlert &)> &showAlert)
{
    std::unique_ptr<ZVXReachability> reachability(reachabilityForInternetConnection());
    return reachability && reachability->isReachableOrShowAlert(showAlert);
}

bool ZVXReachability::isReachableOrShowAlert(
    const std::function<void(const ZVXAlert &)> &showAlert) const
{
    if (isReachable())
        return true;
    using ZVXLocalization::localizeString;
    if (showAlert)
        showAlert({localizeString(QStringLiteral("zuveroErrorTitle"), QStringLiteral("Error")),
                   localizeString(QStringLiteral("zuveroOfflineAlertMessage"),
                                  QStringLiteral("The Internet connection appears to be offline.")),
                   {localizeString(QStringLiteral("zuveroOKButtonTitle"), QStringLiteral("OK"))},
                   {}});
    return false;
}

void ZVXReachability::setSourceFactory(SourceFactory factory)
{
    QMutexLocker locker(&factoryMutex);
    installedFactory = std::move(factory);
}
