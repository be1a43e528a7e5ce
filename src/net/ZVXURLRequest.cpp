#include "ZVXURLRequest.h"

namespace {

QByteArray findField(const ZVXHTTPHeaderFields &fields, const QByteArray &field)
{
    for (const auto &[name, value] : fields) {
        if (name.compare(field, Qt::CaseInsensitive) == 0)
            return value;
    }
    return {};
}

} // namespace

QByteArray ZVXURLRequest::valueForHTTPHeaderField(const QByteArray &field) const
{
    return findField(m_headers, field);
}

void ZVXURLRequest::setValue(const QByteArray &value, const QByteArray &field)
{
    for (auto &[name, old] : m_headers) {
        if (name.compare(field, Qt::CaseInsensitive) == 0) {
            old = value;
            return;
        }
    }
    m_headers.append({field, value});
}

QByteArray ZVXURLResponse::valueForHTTPHeaderField(const QByteArray &field) const
{
    return findField(headerFields, field);
}
