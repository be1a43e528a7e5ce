#pragma once

#include "ZuveroError.h"

#include <QByteArray>
#include <QList>
#include <QPair>
#include <QUrl>

#include <chrono>
#include <optional>

using ZVXHTTPHeaderFields = QList<QPair<QByteArray, QByteArray>>;

//! One HTTP request as the connection builds it: URL, method, header fields, body.
class ZUVERO_EXPORT ZVXURLRequest
{
public:
    enum class CachePolicy {
        UseProtocolCachePolicy = 0,
        //! Cached bytes whatever their age; the network only when nothing is cached.
        ReturnCacheDataElseLoad = 2,
    };

    ZVXURLRequest() = default;
    explicit ZVXURLRequest(const QUrl &url)
        : m_url(url)
    { }

    QUrl url() const { return m_url; }
    void setURL(const QUrl &url) { m_url = url; }
    QByteArray httpMethod() const { return m_method; }
    void setHTTPMethod(const QByteArray &method) { m_method = method; }
    QByteArray httpBody() const { return m_body; }
    void setHTTPBody(const QByteArray &body) { m_body = body; }

    //! In the order first set.
    ZVXHTTPHeaderFields allHTTPHeaderFields() const { return m_headers; }
    //! Case-insensitive; empty when the field is not set.
    QByteArray valueForHTTPHeaderField(const QByteArray &field) const;
    //! Replaces the value of a field already set, in its place.
    void setValue(const QByteArray &value, const QByteArray &field);

    //! Absent: the session's policy and time-out apply.
    std::optional<CachePolicy> cachePolicy() const { return m_cachePolicy; }
    void setCachePolicy(CachePolicy policy) { m_cachePolicy = policy; }
    std::optional<std::chrono::milliseconds> timeoutInterval() const { return m_timeout; }
    void setTimeoutInterval(std::chrono::milliseconds timeout) { m_timeout = timeout; }

private:
    QUrl m_url;
    QByteArray m_method = QByteArrayLiteral("GET");
    QByteArray m_body;
    ZVXHTTPHeaderFields m_headers;
    std::optional<CachePolicy> m_cachePolicy;
    std::optional<std::chrono::milliseconds> m_timeout;
};

//! The HTTP head of a reply.
struct ZUVERO_EXPORT ZVXURLResponse
{
    QUrl url;
    int statusCode = 0;
    ZVXHTTPHeaderFields headerFields;

    QByteArray valueForHTTPHeaderField(const QByteArray &field) const;
};

/*!
    What a finished task hands to its check. A server that answered gives a
    response and a body (empty or not) and no error, whatever its status;
    a transport failure (no connection, failed verification, time-out,
    damaged body) gives an error, no body, and a response only if the head
    had arrived.
*/
struct ZVXURLSessionResult
{
    std::optional<QByteArray> data;
    std::optional<ZVXURLResponse> response;
    ZuveroError error;
};
