#include "ZVXDevReceipts.h"

void ZVXDevReceipts::note(const QString &uuid)
{
    std::lock_guard lock(m_mutex);
    if (uuid.size() > MaxUUIDLength) {
        ++m_notRemembered;
        return;
    }
    if (const auto found = m_counts.find(uuid); found != m_counts.end()) {
        ++found.value();
        return;
    }
    if (m_counts.size() >= m_limit) {
        m_full = true;
        ++m_notRemembered;
        return;
    }
    m_counts.insert(uuid, 1);
}

void ZVXDevReceipts::clear()
{
    std::lock_guard lock(m_mutex);
    m_counts.clear();
    m_notRemembered = 0;
    m_full = false;
}

QJsonObject ZVXDevReceipts::toJSON() const
{
    std::lock_guard lock(m_mutex);
    QJsonObject counts;
    for (auto it = m_counts.cbegin(); it != m_counts.cend(); ++it)
        counts.insert(it.key(), it.value());
    QJsonObject reply{{QStringLiteral("receipts"), counts}};
    if (m_notRemembered > 0)
        reply.insert(QStringLiteral("notRemembered"), m_notRemembered);
    if (m_full)
        reply.insert(QStringLiteral("limit"), m_limit);
    return reply;
}
