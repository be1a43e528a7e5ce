#include "ZVXJSON.h"

#include <QDebug>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>

#include <cmath>
#include <limits>

namespace ZVXJSON {

namespace {

ZuveroError invalidValue(const QVariant &value)
{
    return ZuveroError::withDescription(
        QString(ZuveroJSONErrorDomain), ZuveroJSONErrorInvalidValue,
        QStringLiteral("Invalid type in JSON write (%1)")
            .arg(QString::fromLatin1(value.metaType().name() ? value.metaType().name()
                                                             : "invalid")));
}

std::optional<QJsonValue> toJson(const QVariant &value, ZuveroError *error);

template<typename Map>
std::optional<QJsonValue> objectToJson(const Map &map, ZuveroError *error)
{
    QJsonObject object;
    for (auto it = map.cbegin(); it != map.cend(); ++it) {
        std::optional<QJsonValue> member = toJson(it.value(), error);
        if (!member)
            return std::nullopt;
        object.insert(it.key(), *member);
    }
    return object;
}

std::optional<QJsonValue> toJson(const QVariant &value, ZuveroError *error)
{
    switch (value.metaType().id()) {
    case QMetaType::Nullptr:
        return QJsonValue(QJsonValue::Null);
    case QMetaType::Bool:
        return QJsonValue(value.toBool());
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::Long:
    case QMetaType::LongLong:
    case QMetaType::Short:
    case QMetaType::UShort:
    case QMetaType::Char:
    case QMetaType::SChar:
    case QMetaType::UChar:
        return QJsonValue(value.toLongLong());
    case QMetaType::ULong:
    case QMetaType::ULongLong:
        if (value.toULongLong() <= quint64(std::numeric_limits<qint64>::max()))
            return QJsonValue(value.toLongLong());
        return QJsonValue(value.toDouble());
    case QMetaType::Float:
    case QMetaType::Double: {
        const double number = value.toDouble();
        if (!std::isfinite(number))
            break;
        return QJsonValue(number);
    }
    case QMetaType::QString:
        return QJsonValue(value.toString());
    case QMetaType::QStringList:
        return QJsonValue(QJsonArray::fromStringList(value.toStringList()));
    case QMetaType::QVariantList: {
        QJsonArray array;
        const QVariantList list = value.toList();
        for (const QVariant &element : list) {
            std::optional<QJsonValue> item = toJson(element, error);
            if (!item)
                return std::nullopt;
            array.append(*item);
        }
        return QJsonValue(array);
    }
    case QMetaType::QVariantMap:
        return objectToJson(value.toMap(), error);
    case QMetaType::QVariantHash:
        return objectToJson(value.toHash(), error);
    default:
        break;
    }
    if (error)
        *error = invalidValue(value);
    return std::nullopt;
}

} // namespace

std::optional<QByteArray> serialize(const QVariant &value, ZuveroError *error)
{
    const std::optional<QJsonValue> json = toJson(value, error);
    if (!json)
        return std::nullopt;
    if (json->isObject())
        return QJsonDocument(json->toObject()).toJson(QJsonDocument::Compact);
    if (json->isArray())
        return QJsonDocument(json->toArray()).toJson(QJsonDocument::Compact);
    if (error)
        *error = ZuveroError::withDescription(
            QString(ZuveroJSONErrorDomain), ZuveroJSONErrorInvalidValue,
            QStringLiteral("Invalid top-level type in JSON write"));
    return std::nullopt;
}

std::optional<QVariant> parse(const QByteArray &text, ZuveroError *error)
{
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(text, &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        if (error)
            *error = ZuveroError::withDescription(
                QString(ZuveroJSONErrorDomain), ZuveroJSONErrorParse,
                QStringLiteral("JSON text did not parse: %1 at offset %2")
                    .arg(parseError.errorString())
                    .arg(parseError.offset));
        return std::nullopt;
    }
    return document.toVariant();
}

QString describe(const QVariant &value)
{
    if (!value.isValid())
        return QStringLiteral("(null)");
    // Wrapping in an array lets scalars through the document writer too.
    if (const std::optional<QByteArray> json = serialize(QVariantList{value})) {
        const QByteArray text = *json;
        return QString::fromUtf8(text.mid(1, text.size() - 2));
    }
    QString text;
    QDebug(&text).noquote() << value;
    return text;
}

QString typeName(const QVariant &value)
{
    return value.isValid() ? QString::fromLatin1(value.metaType().name())
                           : QStringLiteral("(null)");
}

} // namespace ZVXJSON
