#include "ZVXDevPushHub.h"

#include <algorithm>

ZVXDevPushHub::SubscriptionPtr ZVXDevPushHub::subscribe(qint64 user, const QString &installationId,
                                                        Refusal *refusal)
{
    auto subscription = std::make_shared<Subscription>();
    subscription->user = user;
    subscription->installationId = installationId;
    std::lock_guard lock(m_mutex);
    const auto sameDevice = std::count_if(
        m_subscriptions.cbegin(), m_subscriptions.cend(), [&](const SubscriptionPtr &other) {
            return other->user == user && other->installationId == installationId;
        });
    *refusal = sameDevice >= m_maxPerDevice                            ? Refusal::DeviceFull
        : qsizetype(m_subscriptions.size()) >= qsizetype(m_maxStreams) ? Refusal::ServerFull
                                                                       : Refusal::None;
    if (*refusal != Refusal::None)
        return nullptr;
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
