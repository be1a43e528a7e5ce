#pragma once

#include "zuvero_export.h"

#include <QObject>
#include <QString>
#include <QVariantMap>

#include <functional>
#include <memory>

//! One posted notification: a name, the object that posted it, and further information.
class ZUVERO_EXPORT ZuveroNotification
{
public:
    ZuveroNotification() = default;
    ZuveroNotification(const QString &name, QObject *object, const QVariantMap &userInfo = {})
        : m_name(name)
        , m_object(object)
        , m_userInfo(userInfo)
    { }

    QString name() const { return m_name; }
    QObject *object() const { return m_object; }
    QVariantMap userInfo() const { return m_userInfo; }

private:
    QString m_name;
    QObject *m_object = nullptr;
    QVariantMap m_userInfo;
};

class ZuveroNotificationCenterPrivate;
struct ZuveroNotificationObserverEntry;

/*!
    The registration of one observer. It stops the observation when it is
    destroyed or when remove() is called; keep it as long as the
    notifications are wanted. Move-only.
*/
class ZUVERO_EXPORT ZuveroNotificationObserver
{
public:
    ZuveroNotificationObserver() = default;
    ZuveroNotificationObserver(ZuveroNotificationObserver &&other) noexcept = default;
    ZuveroNotificationObserver &operator=(ZuveroNotificationObserver &&other) noexcept;
    ~ZuveroNotificationObserver();

    void remove();
    bool isActive() const;

private:
    friend class ZuveroNotificationCenter;
    explicit ZuveroNotificationObserver(std::shared_ptr<ZuveroNotificationObserverEntry> entry);

    std::shared_ptr<ZuveroNotificationObserverEntry> m_entry;
};

/*!
    Named notifications, posted by the library and observed by the host (and
    by the library itself). A notification is delivered synchronously, on
    the posting thread, to every matching observer in the order in which
    they were added. Posting and observing are thread-safe.
*/
class ZUVERO_EXPORT ZuveroNotificationCenter
{
public:
    using Block = std::function<void(const ZuveroNotification &)>;

    ZuveroNotificationCenter();
    ~ZuveroNotificationCenter();
    ZuveroNotificationCenter(const ZuveroNotificationCenter &) = delete;
    ZuveroNotificationCenter &operator=(const ZuveroNotificationCenter &) = delete;

    //! The center on which the library posts its notifications.
    static ZuveroNotificationCenter *defaultCenter();

    /*!
        Calls \a block for every notification named \a name (any name when
        empty) posted by \a object (any object when null).
    */
    [[nodiscard]] ZuveroNotificationObserver addObserver(const QString &name, const QObject *object,
                                                         Block block);

    void post(const ZuveroNotification &notification);
    void post(const QString &name, QObject *object, const QVariantMap &userInfo = {});

private:
    std::shared_ptr<ZuveroNotificationCenterPrivate> d;
};
