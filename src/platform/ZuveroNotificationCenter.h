#pragma once

//! \file
//! Named notifications, posted and observed.

#include "zuvero_export.h"

#include <QObject>
#include <QString>
#include <QVariantMap>

#include <functional>
#include <memory>
#include <type_traits>
#include <typeinfo>

/*!
    What a notification is about: a service object (the facade, a monitor)
    or a shared model object (a message, an attachment). Observers match it
    by identity: two values are the same object when they point at the same
    thing. A notification keeps a shared object alive while it is delivered;
    an observer's filter only remembers its identity.
*/
class ZUVERO_EXPORT ZuveroNotificationObject
{
public:
    //! No object: as a filter, any object.
    ZuveroNotificationObject() = default;
    //! No object, written as \c nullptr.
    ZuveroNotificationObject(std::nullptr_t) { }
    //! The service object \a object, which must outlive the notification's delivery.
    ZuveroNotificationObject(const QObject *object)
        : m_identity(object)
        , m_object(const_cast<QObject *>(object))
    { }
    //! The shared \a object, kept alive by the notification and told apart by its type.
    template<typename T>
    ZuveroNotificationObject(const std::shared_ptr<T> &object)
        : m_identity(object.get())
        , m_shared(std::const_pointer_cast<std::remove_const_t<T>>(object))
        , m_type(&typeid(std::remove_const_t<T>))
    { }

    //! True when there is no object.
    bool isNull() const { return m_identity == nullptr; }
    //! The address that identifies the object.
    const void *identity() const { return m_identity; }
    //! The service object; null for a shared one.
    QObject *qobject() const { return m_object; }
    //! The shared object when it is a  T; null otherwise.
    template<typename T>
    std::shared_ptr<T> value() const
    {
        if (!m_type || *m_type != typeid(T))
            return nullptr;
        return std::static_pointer_cast<T>(m_shared);
    }

    //! The same object: the same address, whatever the kind of reference.
    friend bool operator==(const ZuveroNotificationObject &a, const ZuveroNotificationObject &b)
    {
        return a.m_identity == b.m_identity;
    }

private:
    const void *m_identity = nullptr;
    QObject *m_object = nullptr;
    std::shared_ptr<void> m_shared;
    const std::type_info *m_type = nullptr;
};

//! One posted notification: a name, the object that posted it or that it is about, and further
//! information.
class ZUVERO_EXPORT ZuveroNotification
{
public:
    //! A notification without name, object or information.
    ZuveroNotification() = default;
    //! The notification \a name about \a object, with the information \a userInfo.
    ZuveroNotification(const QString &name, const ZuveroNotificationObject &object,
                       const QVariantMap &userInfo = {})
        : m_name(name)
        , m_object(object)
        , m_userInfo(userInfo)
    { }

    //! What happened, such as ZuveroChatDidSendMessageNotification.
    QString name() const { return m_name; }
    //! The object that posted the notification or that it is about; may be null.
    ZuveroNotificationObject object() const { return m_object; }
    //! Further information, under keys each notification names.
    QVariantMap userInfo() const { return m_userInfo; }

private:
    QString m_name;
    ZuveroNotificationObject m_object;
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
    //! An observer that observes nothing.
    ZuveroNotificationObserver() = default;
    //! Takes over \a other's observation.
    ZuveroNotificationObserver(ZuveroNotificationObserver &&other) noexcept = default;
    //! Ends this observation and takes over \a other's.
    ZuveroNotificationObserver &operator=(ZuveroNotificationObserver &&other) noexcept;
    ~ZuveroNotificationObserver();

    //! Ends the observation now; a notification being delivered on another thread may still come.
    void remove();
    //! True until remove() or the end of the center.
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
    //! What an observer runs for each notification it matches.
    using Block = std::function<void(const ZuveroNotification &)>;

    ZuveroNotificationCenter();
    ~ZuveroNotificationCenter();
    ZuveroNotificationCenter(const ZuveroNotificationCenter &) = delete;
    ZuveroNotificationCenter &operator=(const ZuveroNotificationCenter &) = delete;

    //! The center on which the library posts its notifications.
    static ZuveroNotificationCenter *defaultCenter();

    /*!
        Calls \a block for every notification named \a name (any name when
        empty) about \a object (any object when null).
    */
    [[nodiscard]] ZuveroNotificationObserver
    addObserver(const QString &name, const ZuveroNotificationObject &object, Block block);

    //! Delivers \a notification to its observers before returning.
    void post(const ZuveroNotification &notification);
    //! Delivers the notification \a name about \a object with \a userInfo.
    void post(const QString &name, const ZuveroNotificationObject &object,
              const QVariantMap &userInfo = {});

private:
    std::shared_ptr<ZuveroNotificationCenterPrivate> d;
};
