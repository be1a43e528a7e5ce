#pragma once

#include "zuvero_export.h"

#include <QDateTime>
#include <QString>
#include <QVariant>

#include <optional>

/*
    Lenient readings of the values found in message and attachment
    dictionaries. Servers and old caches are not always exact about types:
    a date may come as a number or as text holding one, a flag as a number.
*/
namespace ZVXModelValues {

//! Text, or nothing for anything that is not text (JSON null included).
ZUVERO_EXPORT std::optional<QString> text(const QVariant &value);

//! Seconds since 1970 with fractions, from a number or from text that starts with one; 0 otherwise.
ZUVERO_EXPORT double seconds(const QVariant &value);

//! The date \a value stands for; 1970-01-01 when there is none.
ZUVERO_EXPORT QDateTime date(const QVariant &value);

//! Whole seconds since 1970, truncated toward zero and kept within 32 bits.
ZUVERO_EXPORT qint32 wholeSeconds(const QDateTime &date);

//! A number (a flag counts as one), as opposed to text or a container.
ZUVERO_EXPORT bool isNumber(const QVariant &value);

ZUVERO_EXPORT bool flag(const QVariant &value);

//! A non-negative whole number; 0 for anything else.
ZUVERO_EXPORT quint64 count(const QVariant &value);

//! A fresh random identifier in lower-case canonical form.
ZUVERO_EXPORT QString newUUID();

} // namespace ZVXModelValues
