#include "ZVXDevJSON.h"

#include <QJsonArray>
#include <QJsonDocument>

namespace ZVXDevJSON {

QByteArray text(const QJsonObject &object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

std::optional<QJsonValue> parse(const QByteArray &text, QString *error)
{
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(text, &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        if (error)
            *error = QStringLiteral("%1 at offset %2")
                         .arg(parseError.errorString())
                         .arg(parseError.offset);
        return std::nullopt;
    }
    if (document.isObject())
        return QJsonValue(document.object());
    return QJsonValue(document.array());
}

std::optional<QJsonObject> parseObject(const QByteArray &text, QString *error)
{
    const std::optional<QJsonValue> value = parse(text, error);
    if (!value)
        return std::nullopt;
    if (!value->isObject()) {
        if (error)
            *error = QStringLiteral("not an object");
        return std::nullopt;
    }
    return value->toObject();
}

std::optional<QString> valueText(const QJsonValue &value)
{
    if (value.isUndefined())
        return std::nullopt;
    // A document holds only containers: the value is the one element of an array.
    return QString::fromUtf8(QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact));
}

QJsonValue valueFromText(const std::optional<QString> &text)
{
    if (!text)
        return QJsonValue(QJsonValue::Undefined);
    const std::optional<QJsonValue> array = parse(text->toUtf8());
    if (!array || !array->isArray() || array->toArray().isEmpty())
        return QJsonValue(QJsonValue::Undefined);
    return array->toArray().first();
}

} // namespace ZVXDevJSON
