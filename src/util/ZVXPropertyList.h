#pragma once

#include "ZuveroError.h"

#include <QByteArray>
#include <QVariant>

#include <optional>

/*
    Reads XML property lists, the format of configuration files such as
    "ZuveroConfig.plist": dict, array, string, integer, real, true, false,
    data (Base64) and date (ISO 8601) become QVariantMap, QVariantList,
    QString, qint64, double, bool, QByteArray and QDateTime.
*/
namespace ZVXPropertyList {

//! The value of the property list in \a xml; nothing and an \a error describing where it went
//! wrong.
ZUVERO_EXPORT std::optional<QVariant> parse(const QByteArray &xml, ZuveroError *error = nullptr);

} // namespace ZVXPropertyList
