#pragma once

//! \file
//! Where reachability flags come from, and a source set by hand.

#include "zuvero_export.h"

#include <QObject>

#include <optional>

//! The reachability flag word, bit for bit as hosts know it from other platforms.
namespace ZVXReachabilityFlags {
enum : quint32 {
    Reachable = 0x2,
    ConnectionRequired = 0x4,
    ConnectionOnTraffic = 0x8,
    InterventionRequired = 0x10,
    ConnectionOnDemand = 0x20,
    IsDirect = 0x20000,
    IsCellular = 0x40000,
};
} // namespace ZVXReachabilityFlags

/*!
    Where a reachability monitor gets its flags: the system's routing
    table on Linux, or whatever a host or a test puts in its place.
    changed() says that the flags may have changed; it is emitted on the
    source's thread. A source need not emit it before start() or after
    stop().
*/
class ZUVERO_EXPORT ZVXReachabilityFlagSource : public QObject
{
    Q_OBJECT

public:
    using QObject::QObject;

    //! The current flags; nothing when they cannot be read.
    virtual std::optional<quint32> flags() const = 0;
    //! Starts watching; false when the flags cannot be watched.
    virtual bool start() = 0;
    //! Stops watching.
    virtual void stop() = 0;

Q_SIGNALS:
    //! The flags may have changed; read flags() to know.
    void changed();
};

/*!
    Flags set by hand: for a host that knows its connectivity better than
    the routing table does (a modem manager of its own, say), and for tests.
    One source may serve several monitors.
*/
class ZUVERO_EXPORT ZVXSettableReachabilitySource final : public ZVXReachabilityFlagSource
{
    Q_OBJECT

public:
    //! A source whose flags are \a flags until setFlags() is called.
    explicit ZVXSettableReachabilitySource(std::optional<quint32> flags = {},
                                           QObject *parent = nullptr)
        : ZVXReachabilityFlagSource(parent)
        , m_flags(flags)
    { }

    std::optional<quint32> flags() const override { return m_flags; }
    //! Replaces the flags with \a flags and emits changed().
    void setFlags(std::optional<quint32> flags)
    {
        m_flags = flags;
        Q_EMIT changed();
    }
    //! Always succeeds: changes come from setFlags().
    bool start() override { return true; }
    //! Nothing to stop.
    void stop() override { }

private:
    std::optional<quint32> m_flags;
};
