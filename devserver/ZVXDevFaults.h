#pragma once

#include <QByteArray>
#include <QHash>
#include <QJsonObject>
#include <QList>
#include <QString>

#include <chrono>
#include <mutex>
#include <optional>

#include <httplib.h>

/*!
    Faults that tests ask for ("the next 2 requests on /api/1.0/status
    answer 503") and the number of requests seen per method and route.
    Both are bounded: a route is one of the server's own, named by its
    template ("GET /api/1.0/files/{uuid}"), or "other", whatever the
    paths clients make up; and at most MaxFaults faults wait at once.
*/
class ZVXDevFaults
{
public:
    enum class Kind {
        //! A given status and body.
        Status,
        //! A body that is not JSON (an HTML page, as proxies send).
        NonJSON,
        //! A given status with no body at all.
        Empty,
        //! The usual answer, late.
        Delay,
        //! The connection closes before any answer.
        Drop,
    };

    struct Fault
    {
        //! Empty for any method.
        QString method;
        QString path;
        int remaining = 1;
        Kind kind = Kind::Status;
        int status = 500;
        QByteArray body;
        QByteArray contentType;
        std::chrono::milliseconds delay{0};
    };

    //! The fault described by \a object (as POSTed to /admin/faults), or nothing and \a error.
    static std::optional<Fault> fromJSON(const QJsonObject &object, QString *error);

    //! Marks answers made by a fault, which must reach the client exactly as asked.
    static constexpr const char *Header = "X-Zuvero-Fault";
    /*!
        Makes \a res what \a fault asks for, after its delay; false when the
        request is to be answered as usual (a delay only).
    */
    static bool apply(const Fault &fault, httplib::Response &res);

    static constexpr int MaxFaults = 1000;
    //! False when MaxFaults are waiting already.
    bool add(const Fault &fault);
    void clear();
    //! The fault for this request, if one is pending; counts it down.
    std::optional<Fault> take(const QString &method, const QString &path);

    //! The route \a path belongs to, as counted: "/api/1.0/files/{uuid}", or "other".
    static QString route(const QString &path);
    void count(const QString &method, const QString &path);
    //! "METHOD /route" to the number of requests.
    QJsonObject counters() const;
    void resetCounters();

private:
    mutable std::mutex m_mutex;
    QList<Fault> m_faults;
    QHash<QString, qint64> m_counters;
};
