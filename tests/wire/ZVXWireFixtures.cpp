#include "ZVXWireFixtures.h"

#include <QDateTime>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>

#include <cmath>

using namespace Qt::StringLiterals;

namespace ZVXWire {

namespace {

QString typeName(const QJsonValue &value)
{
    switch (value.type()) {
    case QJsonValue::Null:
        return u"null"_s;
    case QJsonValue::Bool:
        return u"boolean"_s;
    case QJsonValue::Double:
        return u"number"_s;
    case QJsonValue::String:
        return u"text"_s;
    case QJsonValue::Array:
        return u"array"_s;
    case QJsonValue::Object:
        return u"object"_s;
    case QJsonValue::Undefined:
        break;
    }
    return u"nothing"_s;
}

QString show(const QJsonValue &value)
{
    const QByteArray json = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
    return QString::fromUtf8(json.mid(1, json.size() - 2));
}

QString member(const QString &path, const QString &key)
{
    return path.isEmpty() ? key : path + QLatin1Char('.') + key;
}

QString element(const QString &path, qsizetype index)
{
    return u"%1[%2]"_s.arg(path).arg(index);
}

// How the two sides of a comparison walk the same tree.
template<typename Leaf>
QStringList walk(const QJsonValue &expected, const QJsonValue &actual, const QString &path,
                 Leaf leaf)
{
    if (expected.type() != actual.type())
        return {u"%1: %2 expected, %3 found (%4)"_s.arg(path, typeName(expected), typeName(actual),
                                                        show(actual))};
    QStringList found;
    if (expected.isObject()) {
        const QJsonObject e = expected.toObject(), a = actual.toObject();
        for (auto it = e.begin(); it != e.end(); ++it) {
            if (!a.contains(it.key()))
                found.append(u"%1: missing"_s.arg(member(path, it.key())));
        }
        for (auto it = a.begin(); it != a.end(); ++it) {
            if (!e.contains(it.key()))
                found.append(
                    u"%1: not in the fixture (%2)"_s.arg(member(path, it.key()), show(it.value())));
            else
                found += walk(e.value(it.key()), it.value(), member(path, it.key()), leaf);
        }
        return found;
    }
    if (expected.isArray()) {
        const QJsonArray e = expected.toArray(), a = actual.toArray();
        if (e.size() != a.size())
            return {u"%1: %2 elements expected, %3 found"_s.arg(path).arg(e.size()).arg(a.size())};
        for (qsizetype i = 0; i < e.size(); ++i)
            found += walk(e.at(i), a.at(i), element(path, i), leaf);
        return found;
    }
    return leaf(expected, actual, path);
}

} // namespace

QByteArray fixtureBytes(const QString &name)
{
    QFile file(QStringLiteral(ZUVERO_WIRE_FIXTURES "/") + name);
    if (!file.open(QIODevice::ReadOnly)) {
        qWarning("cannot read the fixture %s", qPrintable(file.fileName()));
        return {};
    }
    return file.readAll();
}

QJsonObject fixture(const QString &name)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(fixtureBytes(name), &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        qWarning("the fixture %s is not a JSON object: %s", qPrintable(name),
                 qPrintable(error.errorString()));
    return document.object();
}

QStringList differences(const QJsonValue &expected, const QJsonValue &actual, const QString &path)
{
    return walk(expected, actual, path,
                [](const QJsonValue &e, const QJsonValue &a, const QString &at) -> QStringList {
                    // QJsonValue compares whole numbers and fractions alike, as JSON does.
                    if (e == a)
                        return {};
                    return {u"%1: %2 expected, %3 found"_s.arg(at, show(e), show(a))};
                });
}

QStringList Matcher::pairUUIDs(const QJsonValue &expected, const QJsonValue &actual,
                               const QString &path)
{
    QStringList found;
    if (expected.isObject() && actual.isObject()) {
        const QJsonObject e = expected.toObject(), a = actual.toObject();
        const QJsonValue fixtureUUID = e.value(u"uuid"_s);
        const QJsonValue actualUUID = a.value(u"uuid"_s);
        if (fixtureUUID.isString() && actualUUID.isString()) {
            const QString mine = fixtureUUID.toString(), theirs = actualUUID.toString();
            const QString paired = m_uuids.value(mine, theirs);
            const QString other = m_uuids.key(theirs, mine);
            if (paired != theirs || other != mine)
                found.append(u"%1: %2 stands for %3 elsewhere, here for %4"_s.arg(
                    member(path, u"uuid"_s), mine, paired, theirs));
            else
                m_uuids.insert(mine, theirs);
        }
        for (auto it = e.begin(); it != e.end(); ++it)
            found += pairUUIDs(it.value(), a.value(it.key()), member(path, it.key()));
    } else if (expected.isArray() && actual.isArray()) {
        const QJsonArray e = expected.toArray(), a = actual.toArray();
        for (qsizetype i = 0; i < std::min(e.size(), a.size()); ++i)
            found += pairUUIDs(e.at(i), a.at(i), element(path, i));
    }
    return found;
}

QStringList Matcher::compare(const QJsonValue &expected, const QJsonValue &actual,
                             const QString &path)
{
    // URLs name the uuids of their objects, which may come later in the walk: pair them first.
    QStringList found = pairUUIDs(expected, actual, path);
    const qint64 now = QDateTime::currentSecsSinceEpoch();
    found += walk(expected, actual, path,
                  [&](const QJsonValue &e, const QJsonValue &a, const QString &at) -> QStringList {
                      const QString key = at.section(QLatin1Char('.'), -1);
                      if (key == QLatin1String("uuid"))
                          return {};
                      // A location's "d" is a span in metres, not a time.
                      if (key == QLatin1String("date") || at.endsWith(QLatin1String("appdata.d"))) {
                          if (std::abs(a.toDouble() - double(now)) > 24 * 3600)
                              return {u"%1: %2 is not a time near now"_s.arg(at, show(a))};
                          return {};
                      }
                      QJsonValue wanted = e;
                      if (key == QLatin1String("dataURL") || key == QLatin1String("previewURL"))
                          wanted = substituted(e.toString());
                      if (wanted == a)
                          return {};
                      return {u"%1: %2 expected, %3 found"_s.arg(at, show(wanted), show(a))};
                  });
    return found;
}

std::optional<QString> Matcher::actualUUID(const QString &uuid) const
{
    if (!m_uuids.contains(uuid))
        return std::nullopt;
    return m_uuids.value(uuid);
}

QString Matcher::substituted(const QString &value) const
{
    QString result = value;
    result.replace(QLatin1String(FixtureOrigin), m_origin);
    for (auto it = m_uuids.cbegin(); it != m_uuids.cend(); ++it)
        result.replace(it.key(), it.value());
    return result;
}

std::optional<SplitBody> splitMessagePart(const QByteArray &body)
{
    const qsizetype lineEnd = body.indexOf("\r\n");
    if (!body.startsWith("--") || lineEnd < 0)
        return std::nullopt;
    const QByteArray separator = "\r\n" + body.left(lineEnd);
    const qsizetype start = body.indexOf("\r\n\r\n", lineEnd);
    const qsizetype end = start < 0 ? -1 : body.indexOf(separator, start + 4);
    if (end < 0)
        return std::nullopt;
    return SplitBody{body.left(start + 4) + body.mid(end), body.mid(start + 4, end - start - 4)};
}

} // namespace ZVXWire
