#pragma once

#include "ZuveroError.h"

#include <QByteArray>
#include <QVariant>

#include <optional>

/*
    JSON text to and from QVariant trees: objects are QVariantMap, arrays
    QVariantList, null is QVariant::fromValue(nullptr). Unlike QJsonDocument
    on its own, writing refuses values that JSON cannot hold (a date, an
    image, a non-finite number...) with an error instead of writing null.
*/
namespace ZVXJSON {

//! Compact JSON text of an object or array.
ZUVERO_EXPORT std::optional<QByteArray> serialize(const QVariant &value,
                                                  ZuveroError *error = nullptr);

//! The object or array in \a text.
ZUVERO_EXPORT std::optional<QVariant> parse(const QByteArray &text, ZuveroError *error = nullptr);

/*!
    \a value as one line of text for a log: compact JSON where JSON can hold
    it, "(null)" for nothing, Qt's debug form otherwise.
*/
ZUVERO_EXPORT QString describe(const QVariant &value);

//! The name of \a value's type for a log line, "(null)" for nothing.
ZUVERO_EXPORT QString typeName(const QVariant &value);

} // namespace ZVXJSON
