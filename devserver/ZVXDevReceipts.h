#pragma once

#include <QHash>
#include <QJsonObject>
#include <QString>

#include <mutex>

/*!
    How many times each message uuid arrived in an upload, whatever became
    of the request: tests compare it with what the client meant to send
    (a retry shows as 2, a message never sent as none). Bounded: beyond
    \a limit uuids, new ones are only counted as not remembered.
*/
class ZVXDevReceipts
{
public:
    static constexpr qsizetype MaxUUIDLength = 128;

    explicit ZVXDevReceipts(int limit)
        : m_limit(limit)
    { }

    void note(const QString &uuid);
    void clear();

    /*!
        {"receipts": {uuid: count}}; "notRemembered" counts the others when
        there were any, and "limit" is there once it was reached.
    */
    QJsonObject toJSON() const;

private:
    mutable std::mutex m_mutex;
    QHash<QString, qint64> m_counts;
    qint64 m_notRemembered = 0;
    bool m_full = false;
    int m_limit;
};
