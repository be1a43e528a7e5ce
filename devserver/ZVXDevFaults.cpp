#include "ZVXDevFaults.h"

#include "ZVXDevConnections.h"

#include <QRegularExpression>

#include <cmath>
#include <thread>

namespace {

const QHash<QString, ZVXDevFaults::Kind> Kinds{
    {QStringLiteral("status"), ZVXDevFaults::Kind::Status},
    {QStringLiteral("nonJSON"), ZVXDevFaults::Kind::NonJSON},
    {QStringLiteral("empty"), ZVXDevFaults::Kind::Empty},
    {QStringLiteral("delay"), ZVXDevFaults::Kind::Delay},
    {QStringLiteral("drop"), ZVXDevFaults::Kind::Drop},
};

bool readInteger(const QJsonObject &object, const char *key, qint64 minimum, qint64 maximum,
                 qint64 *value, QString *error)
{
    const QJsonValue found = object.value(QLatin1String(key));
    if (found.isUndefined())
        return true;
    const double number = found.toDouble();
    if (!found.isDouble() || number != std::floor(number) || number < double(minimum)
        || number > double(maximum)) {
        *error = QStringLiteral("\"%1\" must be a whole number from %2 to %3")
                     .arg(QLatin1String(key))
                     .arg(minimum)
                     .arg(maximum);
        return false;
    }
    *value = qint64(number);
    return true;
}

} // namespace

std::optional<ZVXDevFaults::Fault> ZVXDevFaults::fromJSON(const QJsonObject &object, QString *error)
{
    Fault fault;
    fault.path = object.value(QStringLiteral("path")).toString();
    if (!fault.path.startsWith(QLatin1Char('/'))) {
        *error = QStringLiteral("\"path\" must be a path such as /api/1.0/status");
        return std::nullopt;
    }
    fault.method = object.value(QStringLiteral("method")).toString().toUpper();
    const QString kind = object.value(QStringLiteral("kind")).toString();
    if (!Kinds.contains(kind)) {
        *error = QStringLiteral("\"kind\" must be one of status, nonJSON, empty, delay, drop");
        return std::nullopt;
    }
    fault.kind = Kinds.value(kind);
    // Proxies answer with HTML on success statuses too; other kinds default to a server error.
    qint64 remaining = 1;
    qint64 status = fault.kind == Kind::NonJSON || fault.kind == Kind::Empty ? 200 : 500;
    qint64 delay = 0;
    if (!readInteger(object, "count", 1, 100000, &remaining, error)
        || !readInteger(object, "status", 100, 599, &status, error)
        || !readInteger(object, "delayMs", 0, 60000, &delay, error))
        return std::nullopt;
    if (fault.kind == Kind::Delay && delay == 0) {
        *error = QStringLiteral("a delay needs \"delayMs\"");
        return std::nullopt;
    }
    fault.remaining = int(remaining);
    fault.status = int(status);
    fault.delay = std::chrono::milliseconds(delay);

    if (fault.kind == Kind::Status) {
        fault.body = object.contains(QStringLiteral("body"))
            ? object.value(QStringLiteral("body")).toString().toUtf8()
            : QByteArrayLiteral("{\"error\":\"injected fault\","
                                "\"localizedError\":\"The server is having trouble.\"}");
        fault.contentType = "application/json";
    } else if (fault.kind == Kind::NonJSON) {
        fault.body = "<html><body><h1>Bad Gateway</h1><p>Injected fault.</p></body></html>";
        fault.contentType = "text/html";
    }
    return fault;
}

bool ZVXDevFaults::add(const Fault &fault)
{
    std::lock_guard lock(m_mutex);
    if (m_faults.size() >= MaxFaults)
        return false;
    m_faults.append(fault);
    return true;
}

void ZVXDevFaults::clear()
{
    std::lock_guard lock(m_mutex);
    m_faults.clear();
}

std::optional<ZVXDevFaults::Fault> ZVXDevFaults::take(const QString &method, const QString &path)
{
    std::lock_guard lock(m_mutex);
    for (auto it = m_faults.begin(); it != m_faults.end(); ++it) {
        if (it->path != path || (!it->method.isEmpty() && it->method != method))
            continue;
        const Fault fault = *it;
        if (--it->remaining == 0)
            m_faults.erase(it);
        return fault;
    }
    return std::nullopt;
}

QString ZVXDevFaults::route(const QString &path)
{
    static const QStringList exact{
        QStringLiteral("/api/1.0/register"),
        QStringLiteral("/api/1.0/status"),
        QStringLiteral("/api/1.0/messages"),
        QStringLiteral("/api/1.0/mark_messages"),
        QStringLiteral("/api/1.0/push"),
        QStringLiteral("/console"),
        QStringLiteral("/console/console.js"),
        QStringLiteral("/console/console.css"),
        QStringLiteral("/console/api/conversations"),
    };
    // A prefix, then one segment or more: what the routes' patterns take.
    static const QList<std::pair<QRegularExpression, QString>> templates{
        {QRegularExpression(QStringLiteral("^/api/1\\.0/files/[^/]+$")),
         QStringLiteral("/api/1.0/files/{uuid}")},
        {QRegularExpression(QStringLiteral("^/api/1\\.0/previews/[^/]+$")),
         QStringLiteral("/api/1.0/previews/{uuid}")},
        {QRegularExpression(QStringLiteral("^/tiles/[^/]+/[^/]+/[^/]+$")),
         QStringLiteral("/tiles/{z}/{x}/{y}.png")},
        {QRegularExpression(QStringLiteral("^/console/api/conversations/[^/]+/messages$")),
         QStringLiteral("/console/api/conversations/{id}/messages")},
        {QRegularExpression(QStringLiteral("^/console/api/conversations/[^/]+/read$")),
         QStringLiteral("/console/api/conversations/{id}/read")},
        {QRegularExpression(QStringLiteral("^/console/api/files/[^/]+$")),
         QStringLiteral("/console/api/files/{uuid}")},
        {QRegularExpression(QStringLiteral("^/console/api/previews/[^/]+$")),
         QStringLiteral("/console/api/previews/{uuid}")},
    };
    if (exact.contains(path))
        return path;
    for (const auto &[pattern, name] : templates) {
        if (pattern.match(path).hasMatch())
            return name;
    }
    return QStringLiteral("other");
}

void ZVXDevFaults::count(const QString &method, const QString &path)
{
    const QString key = method + QLatin1Char(' ') + route(path);
    std::lock_guard lock(m_mutex);
    ++m_counters[key];
}

QJsonObject ZVXDevFaults::counters() const
{
    std::lock_guard lock(m_mutex);
    QJsonObject counters;
    for (auto it = m_counters.cbegin(); it != m_counters.cend(); ++it)
        counters.insert(it.key(), it.value());
    return counters;
}

void ZVXDevFaults::resetCounters()
{
    std::lock_guard lock(m_mutex);
    m_counters.clear();
}

bool ZVXDevFaults::apply(const Fault &fault, httplib::Response &res)
{
    if (fault.delay.count() > 0)
        std::this_thread::sleep_for(fault.delay);
    switch (fault.kind) {
    case Kind::Delay:
        return false;
    case Kind::Drop:
        ZVXDevConnections::dropCurrent();
        break;
    case Kind::Status:
    case Kind::NonJSON:
    case Kind::Empty:
        res.status = fault.status;
        res.set_header(Header, "1");
        // The request's body may be left unread, so the connection cannot carry another request.
        res.set_header("Connection", "close");
        if (!fault.body.isEmpty())
            res.set_content(fault.body.constData(), size_t(fault.body.size()),
                            fault.contentType.constData());
        break;
    }
    return true;
}
