#include "ZuveroNotificationCenter.h"

#include <QList>
#include <QMutex>

#include <atomic>

struct ZuveroNotificationObserverEntry
{
    QString name;
    // Only the identity: an observer does not keep what it watches alive.
    const void *object = nullptr;
    ZuveroNotificationCenter::Block block;
    std::atomic<bool> active{true};
    std::weak_ptr<ZuveroNotificationCenterPrivate> center;
};

class ZuveroNotificationCenterPrivate
{
public:
    void remove(const ZuveroNotificationObserverEntry *entry)
    {
        QMutexLocker locker(&mutex);
        entries.removeIf([entry](const auto &e) { return e.get() == entry; });
    }

    QMutex mutex;
    QList<std::shared_ptr<ZuveroNotificationObserverEntry>> entries;
};

ZuveroNotificationObserver::ZuveroNotificationObserver(
    std::shared_ptr<ZuveroNotificationObserverEntry> entry)
    : m_entry(std::move(entry))
{ }

ZuveroNotificationObserver &
ZuveroNotificationObserver::operator=(ZuveroNotificationObserver &&other) noexcept
{
    if (this != &other) {
        remove();
        m_entry = std::move(other.m_entry);
    }
    return *this;
}

ZuveroNotificationObserver::~ZuveroNotificationObserver()
{
    remove();
}

void ZuveroNotificationObserver::remove()
{
    if (!m_entry)
        return;
    m_entry->active = false;
    if (auto center = m_entry->center.lock())
        center->remove(m_entry.get());
    m_entry.reset();
}

bool ZuveroNotificationObserver::isActive() const
{
    return m_entry && m_entry->active && !m_entry->center.expired();
}

ZuveroNotificationCenter::ZuveroNotificationCenter()
    : d(std::make_shared<ZuveroNotificationCenterPrivate>())
{ }

ZuveroNotificationCenter::~ZuveroNotificationCenter() = default;

ZuveroNotificationCenter *ZuveroNotificationCenter::defaultCenter()
{
    static ZuveroNotificationCenter center;
    return &center;
}

ZuveroNotificationObserver
ZuveroNotificationCenter::addObserver(const QString &name, const ZuveroNotificationObject &object,
                                      Block block)
{
    auto entry = std::make_shared<ZuveroNotificationObserverEntry>();
    entry->name = name;
    entry->object = object.identity();
    entry->block = std::move(block);
    entry->center = d;
    QMutexLocker locker(&d->mutex);
    d->entries.append(entry);
    return ZuveroNotificationObserver(std::move(entry));
}

void ZuveroNotificationCenter::post(const ZuveroNotification &notification)
{
    // Observers run without the lock held, so that they may post, add and remove observers.
    QList<std::shared_ptr<ZuveroNotificationObserverEntry>> matching;
    {
        QMutexLocker locker(&d->mutex);
        for (const auto &entry : std::as_const(d->entries)) {
            if ((entry->name.isEmpty() || entry->name == notification.name())
                && (!entry->object || entry->object == notification.object().identity()))
                matching.append(entry);
        }
    }
    for (const auto &entry : std::as_const(matching)) {
        // An observer removed by an earlier one during this post is not called.
        if (entry->active)
            entry->block(notification);
    }
}

void ZuveroNotificationCenter::post(const QString &name, const ZuveroNotificationObject &object,
                                    const QVariantMap &userInfo)
{
    post(ZuveroNotification(name, object, userInfo));
}
