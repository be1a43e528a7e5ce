#pragma once

#include "zuvero_export.h"

#include <QString>
#include <QVariant>

#include <vector>

/*!
    A small cost-bounded cache of decoded previews, held strongly beside the
    memory cache that may drop entries at any time.

    Entries are kept in the order in which they were stored, oldest first:
    reading does not refresh an entry, storing it again does. When the costs
    exceed the budget the oldest entries go, but never the one just stored,
    even if it alone is over the budget. Lookups are linear: the cache holds
    a few large entries. Main thread only.
*/
class ZUVERO_EXPORT ZVXLRUCache
{
public:
    explicit ZVXLRUCache(qint64 totalCost);

    //! The object stored under \a key; invalid when there is none (or \a key is null).
    QVariant objectForKey(const QString &key) const;

    /*!
        Stores \a object under \a key as the newest entry; a cost below 1
        counts as 1. An invalid \a object removes the key. A null \a key is
        ignored.
    */
    void setObject(const QVariant &object, const QString &key, qint64 cost = 1);
    void removeAllObjects();

    qint64 totalCost() const { return m_totalCost; }
    //! Takes effect at the next store.
    void setTotalCost(qint64 totalCost) { m_totalCost = totalCost; }
    qint64 currentCost() const { return m_currentCost; }
    qsizetype count() const { return qsizetype(m_entries.size()); }

private:
    struct Entry
    {
        QString key;
        QVariant object;
        qint64 cost;
    };

    std::vector<Entry> m_entries;
    qint64 m_totalCost;
    qint64 m_currentCost = 0;
};
