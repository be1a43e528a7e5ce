#include "ZVXDevPushHub.h"

ZVXDevPushHub::SubscriptionPtr ZVXDevPushHub::subscribe(qint64 user, const QString &installationId)
{
    auto subscription = std::make_shared<Subscription>();
    subscription->user = user;
    subscription->installationId = installationId;
    std::lock_guard lock(m_mutex);
    m_subscriptions.push_back(subscription);
    return subscription;
}

void ZVXDevPushHub::unsubscribe(const SubscriptionPtr &subscription)
{
    std::lock_guard lock(m_mutex);
    m_subscriptions.remove(subscription);
}

void ZVXDevPushHub::publish(qint64 user,
                            const std::function<QJsonObject(const QString &)> &payloadFor)
{
    {
        std::lock_guard lock(m_mutex);
        for (const SubscriptionPtr &subscription : m_subscriptions) {
            if (subscription->user == user)
                subscription->pending.push_back(payloadFor(subscription->installationId));
        }
    }
    m_changed.notify_all();
}

ZVXDevPushHub::Wait ZVXDevPushHub::next(Subscription &subscription, QJsonObject *payload,
                                        std::chrono::milliseconds timeout)
{
    std::unique_lock lock(m_mutex);
    m_changed.wait_for(lock, timeout, [&] { return m_stopped || !subscription.pending.empty(); });
    if (m_stopped)
        return Wait::Stopped;
    if (subscription.pending.empty())
        return Wait::Idle;
    *payload = subscription.pending.front();
    subscription.pending.pop_front();
    return Wait::Payload;
}

void ZVXDevPushHub::stop()
{
    {
        std::lock_guard lock(m_mutex);
        m_stopped = true;
    }
    m_changed.notify_all();
}
