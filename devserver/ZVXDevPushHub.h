#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <list>
#include <memory>
#include <mutex>

/*!
    The devices listening for push payloads, each on its own event stream.
    Publishing hands a payload to every stream of the user; a stream takes
    them one by one, in order, from whichever thread serves it. A stream
    holds a connection, and its thread, for as long as it is open: there
    are at most \a maxStreams of them, and \a maxPerDevice per device.
*/
class ZVXDevPushHub
{
public:
    ZVXDevPushHub(int maxStreams, int maxPerDevice)
        : m_maxStreams(maxStreams)
        , m_maxPerDevice(maxPerDevice)
    { }

    struct Subscription
    {
        qint64 user = 0;
        QString installationId;
        std::deque<QJsonObject> pending;
    };
    using SubscriptionPtr = std::shared_ptr<Subscription>;

    enum class Refusal { None, DeviceFull, ServerFull };
    //! A new stream, or null and why when there is no room for it.
    SubscriptionPtr subscribe(qint64 user, const QString &installationId, Refusal *refusal);
    void unsubscribe(const SubscriptionPtr &subscription);

    //! Queues \a payloadFor(installationId) on every stream of \a user.
    void publish(qint64 user, const std::function<QJsonObject(const QString &)> &payloadFor);

    enum class Wait { Payload, Idle, Stopped };
    /*!
        The next payload of \a subscription, waiting up to \a timeout for one
        (Idle when none came); Stopped once the hub stops.
    */
    Wait next(Subscription &subscription, QJsonObject *payload, std::chrono::milliseconds timeout);

    //! Ends every wait, for shutting down.
    void stop();

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::list<SubscriptionPtr> m_subscriptions;
    bool m_stopped = false;
    int m_maxStreams;
    int m_maxPerDevice;
};
