#pragma once

//! \file
//! Whether a server or the Internet can be reached, and when that changes.

#include "ZVXAlert.h"
#include "ZVXReachabilityFlagSource.h"

#include <QObject>

#include <functional>
#include <memory>
#include <optional>

class QHostAddress;

//! Posted on the default notification center with the ZVXReachability as object.
inline constexpr QLatin1String ZuveroNetworkReachabilityChangedNotification{
    "ZuveroNetworkReachabilityChangedNotification"};

/*!
    Whether the network can be reached, and a notification when that
    changes, so that the library can poll again and send what waited
    offline when the network comes back.

    The flags come from a source: the kernel's routing table by default
    (ZVXNetlinkReachabilitySource), or one installed with
    setSourceFactory(). Changes are announced from startNotifier() on, on
    the main thread, each time the flags differ from the last ones seen.
*/
class ZUVERO_EXPORT ZVXReachability : public QObject
{
    Q_OBJECT

public:
    //! How the monitored network can be reached.
    enum NetworkStatus {
        NotReachable = 0, //!< not at all
        //! Any link that is not cellular.
        ReachableViaWiFi = 1,
        ReachableViaWWAN = 2, //!< over a cellular (wwan) link
    };

    //! Makes the source of a monitor for \a address; null refuses the monitor.
    using SourceFactory
        = std::function<std::shared_ptr<ZVXReachabilityFlagSource>(const QHostAddress &address)>;

    /*!
        A monitor for a server: the route to an address given as text, or
        the route to the Internet for a name (resolving it is the request's
        business). Null for an empty or malformed name.
    */
    static ZVXReachability *reachabilityWithHostName(const QString &hostName,
                                                     QObject *parent = nullptr);
    //! Null for a null address.
    static ZVXReachability *reachabilityWithAddress(const QHostAddress &address,
                                                    QObject *parent = nullptr);
    //! The zero address: any default route.
    static ZVXReachability *reachabilityForInternetConnection(QObject *parent = nullptr);
    //! The link-local network 169.254.0.0, reachable only over a direct link.
    static ZVXReachability *reachabilityForLocalWiFi(QObject *parent = nullptr);

    ~ZVXReachability() override;

    /*!
        Starts announcing changes (ZuveroNetworkReachabilityChangedNotification);
        false when the source cannot watch. Starting twice is harmless.
    */
    bool startNotifier();
    //! Stops announcing changes.
    void stopNotifier();

    //! How the network can be reached now, from the source's current flags.
    NetworkStatus currentReachabilityStatus() const;
    //! Whether a link must first be brought up (a dial-up or VPN connection) to reach it.
    bool connectionRequired() const;

    //! Whether this monitor's network can be reached now.
    bool isReachable() const { return currentReachabilityStatus() != NotReachable; }
    //! The same, telling the user through \a showAlert when it cannot.
    bool isReachableOrShowAlert(const std::function<void(const ZVXAlert &)> &showAlert) const;

    //! Whether the Internet can be reached now, asked of a new monitor.
    static bool checkNetworkIsReachable();
    /*!
        When the Internet cannot be reached, tells the user so through \a showAlert
        (the screen's alerts) and returns false.
    */
    static bool
    checkNetworkIsReachableOrShowAlert(const std::function<void(const ZVXAlert &)> &showAlert);

    //! The status that the ZVXReachabilityFlags \a flags give for a server or the Internet.
    static NetworkStatus networkStatusForFlags(quint32 flags);
    //! The status they give for the link-local network: reachable only over a direct link.
    static NetworkStatus localWiFiStatusForFlags(quint32 flags);

    //! Replaces the source of monitors made from now on; an empty factory restores the default.
    static void setSourceFactory(SourceFactory factory);

private:
    ZVXReachability(std::shared_ptr<ZVXReachabilityFlagSource> source, QObject *parent);
    static ZVXReachability *create(const QHostAddress &address, QObject *parent);
    void sourceChanged();

    std::shared_ptr<ZVXReachabilityFlagSource> m_source;
    bool m_localWiFi = false;
    QMetaObject::Connection m_connection;
    std::optional<quint32> m_lastFlags;
};
