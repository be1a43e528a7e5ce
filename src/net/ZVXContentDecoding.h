#pragma once

#include "zuvero_export.h"

#include <QByteArray>

#include <optional>

/*
    Reply bodies in a "Content-Encoding" of gzip or deflate, decoded by the
    session before any check reads them.
*/
namespace ZVXContentDecoding {

//! Decoded bodies larger than this are refused rather than filling memory.
inline constexpr qsizetype DefaultLimit = 64 * 1024 * 1024;

/*!
    \a body decoded from \a contentEncoding (a header value, case ignored;
    empty or "identity" leaves the body as it is). Nothing when the
    encoding is unknown, the body is damaged or cut short, or it would
    exceed \a limit bytes (then \a exceeded, when given, is set).
*/
ZUVERO_EXPORT std::optional<QByteArray> decode(const QByteArray &contentEncoding,
                                               const QByteArray &body,
                                               qsizetype limit = DefaultLimit,
                                               bool *exceeded = nullptr);

} // namespace ZVXContentDecoding
