#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QString>

#include <optional>

/*
    The server reads and writes JSON with Qt's own classes and nothing of
    the library's: both sides of the wire format are written independently,
    so that golden fixtures can tell when one of them drifts.
*/
namespace ZVXDevJSON {

//! The compact text of \a object.
QByteArray text(const QJsonObject &object);

//! The object or array in \a text; nothing, and \a error saying why, when it is neither.
std::optional<QJsonValue> parse(const QByteArray &text, QString *error = nullptr);

//! The object in \a text, or nothing (also for an array).
std::optional<QJsonObject> parseObject(const QByteArray &text, QString *error = nullptr);

//! Any one value as text, scalars included (the database keeps it so); nothing when undefined.
std::optional<QString> valueText(const QJsonValue &value);
//! The value written by valueText(); undefined when there is none or it does not read.
QJsonValue valueFromText(const std::optional<QString> &text);

} // namespace ZVXDevJSON
