#pragma once

#include <QByteArray>
#include <QHash>
#include <QJsonObject>
#include <QJsonValue>
#include <QStringList>

#include <optional>

/*
    The golden wire fixtures (tests/fixtures/wire), written by hand from the
    format rather than captured from either side, and the comparisons both
    sides' tests make with them.
*/
namespace ZVXWire {

//! The bytes of the fixture file \a name; empty (and a warning) when it cannot be read.
QByteArray fixtureBytes(const QString &name);
//! The JSON object in the fixture file \a name.
QJsonObject fixture(const QString &name);

//! Where the fixtures' URLs point; the tests put their server's origin in its place.
inline constexpr char FixtureOrigin[] = "https://127.0.0.1:8443";

//! The differences between two JSON values, as "path: what" lines; empty when equal.
QStringList differences(const QJsonValue &expected, const QJsonValue &actual,
                        const QString &path = {});

/*!
    Compares a server's JSON with a fixture: the same keys and the same JSON
    types everywhere, and the same values except those that vary from run
    to run. A fixture's "uuid" stands for whatever the server made, but
    always for the same one; "date" and a push's "d" are any time near now; "dataURL"
    and "previewURL" are the fixture's with the server's origin and uuids.
*/
class Matcher
{
public:
    explicit Matcher(const QString &origin)
        : m_origin(origin)
    { }

    QStringList compare(const QJsonValue &expected, const QJsonValue &actual,
                        const QString &path = {});
    //! The server's uuid for the fixture's \a uuid, once a comparison has paired them.
    std::optional<QString> actualUUID(const QString &uuid) const;
    //! \a value with the fixture's origin and uuids replaced by the server's.
    QString substituted(const QString &value) const;

private:
    QStringList pairUUIDs(const QJsonValue &expected, const QJsonValue &actual,
                          const QString &path);

    QString m_origin;
    QHash<QString, QString> m_uuids;
};

/*!
    \a body with the content of its first part (the "message" JSON) cut
    out, and that content; nothing when \a body has no such part. Lets a
    multipart body be compared byte for byte except for the JSON's key
    order and spacing.
*/
struct SplitBody
{
    QByteArray withoutMessage;
    QByteArray message;
};
std::optional<SplitBody> splitMessagePart(const QByteArray &body);

} // namespace ZVXWire
