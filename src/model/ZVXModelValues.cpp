#include "ZVXModelValues.h"

#include <QRegularExpression>
#include <QUuid>

#include <algorithm>
#include <cmath>
#include <limits>

namespace ZVXModelValues {

std::optional<QString> text(const QVariant &value)
{
    if (value.metaType().id() != QMetaType::QString)
        return std::nullopt;
    return value.toString();
}

double seconds(const QVariant &value)
{
    switch (value.metaType().id()) {
    case QMetaType::QString: {
        // As much of a leading number as there is, the rest ignored; no number reads as 0.
        static const QRegularExpression number(
            QStringLiteral(R"(^\s*[+-]?(\d+\.?\d*|\.\d+)([eE][+-]?\d+)?)"));
        const QRegularExpressionMatch match = number.match(value.toString());
        return match.hasMatch() ? match.captured().trimmed().toDouble() : 0.0;
    }
    default:
        if (!isNumber(value))
            return 0.0;
        const double number = value.toDouble();
        return std::isfinite(number) ? number : 0.0;
    }
}

bool isNumber(const QVariant &value)
{
    switch (value.metaType().id()) {
    case QMetaType::Bool:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Double:
    case QMetaType::Float:
        return true;
    default:
        return false;
    }
}

QDateTime date(const QVariant &value)
{
    // Beyond some 30,000 years either way a date is noise; kept in range, it still sorts.
    constexpr double Limit = 1e12;
    const double clamped = std::clamp(seconds(value), -Limit, Limit);
    return QDateTime::fromMSecsSinceEpoch(qint64(std::llround(clamped * 1000.0)), Qt::UTC);
}

qint32 wholeSeconds(const QDateTime &date)
{
    // Integer division truncates toward zero, before and after 1970 alike.
    const qint64 whole = date.toMSecsSinceEpoch() / 1000;
    return qint32(std::clamp<qint64>(whole, std::numeric_limits<qint32>::min(),
                                     std::numeric_limits<qint32>::max()));
}

bool flag(const QVariant &value)
{
    return (isNumber(value) || value.metaType().id() == QMetaType::QString) && value.toBool();
}

quint64 count(const QVariant &value)
{
    bool ok = false;
    const double number = value.toDouble(&ok);
    if (!ok || !std::isfinite(number) || number < 0)
        return 0;
    if (value.metaType().id() == QMetaType::ULongLong)
        return value.toULongLong();
    if (value.metaType().id() == QMetaType::LongLong || value.metaType().id() == QMetaType::Int)
        return quint64(value.toLongLong());
    return number >= 18446744073709551615.0 ? std::numeric_limits<quint64>::max() : quint64(number);
}

QString newUUID()
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces);
}

} // namespace ZVXModelValues
