#include "ZVXLRUCache.h"

#include <algorithm>

ZVXLRUCache::ZVXLRUCache(qint64 totalCost)
    : m_totalCost(totalCost)
{ }

QVariant ZVXLRUCache::objectForKey(const QString &key) const
{
    if (key.isNull())
        return {};
    auto it = std::find_if(m_entries.cbegin(), m_entries.cend(),
                           [&](const Entry &entry) { return entry.key == key; });
    return it != m_entries.cend() ? it->object : QVariant();
}

void ZVXLRUCache::setObject(const QVariant &object, const QString &key, qint64 cost)
{
    if (key.isNull())
        return;
    cost = std::max<qint64>(cost, 1);

    auto it = std::find_if(m_entries.begin(), m_entries.end(),
                           [&](const Entry &entry) { return entry.key == key; });
    if (it != m_entries.end()) {
        m_currentCost -= it->cost;
        m_entries.erase(it);
    }
    const bool stored = object.isValid();
    if (stored) {
        m_entries.push_back({key, object, cost});
        m_currentCost += cost;
    }

    // The entry just stored stays, even alone over the budget.
    const size_t keep = stored ? 1 : 0;
    while (m_currentCost > m_totalCost && m_entries.size() > keep) {
        m_currentCost -= m_entries.front().cost;
        m_entries.erase(m_entries.begin());
    }
}

void ZVXLRUCache::removeAllObjects()
{
    m_entries.clear();
    m_currentCost = 0;
}
