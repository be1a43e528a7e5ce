#pragma once

#include "ZuveroData.h"

#include <QCborArray>
#include <QCborMap>
#include <QCborValue>
#include <QVariant>

#include <optional>

/*
    The two shapes in which message and attachment dictionaries arrive, for
    readers written once over both: variant trees (the cache, the offline
    queue, a host) and the JSON objects of a server reply, read in place so
    that a page of messages is not first copied into variants.

    A JSON value reads exactly as its variant tree with the nulls removed
    would: a null member or array element is absent. Scalars are handed to
    the lenient readers of ZVXModelValues as variants either way; only the
    containers are walked in their own shape.
*/

//! A dictionary key, ready for either shape's lookup without a conversion each time.
struct ZVXDictionaryKey
{
    explicit ZVXDictionaryKey(const char *name)
        : latin1(name)
        , text(QString::fromLatin1(name))
    { }

    QLatin1StringView latin1;
    QString text;
};

struct ZVXVariantForm
{
    using Value = QVariant;
    using Object = QVariantMap;
    using Array = QVariantList;

    static std::optional<Object> object(const Value &value)
    {
        if (value.metaType().id() != QMetaType::QVariantMap)
            return std::nullopt;
        return value.toMap();
    }
    static Value member(const Object &object, const ZVXDictionaryKey &key)
    {
        return object.value(key.text);
    }
    static Value absent() { return {}; }
    //! Whether a looked-up member was there (a stored invalid variant is not counted).
    static bool found(const Value &member) { return member.isValid(); }
    static std::optional<Array> array(const Value &value)
    {
        if (value.metaType().id() != QMetaType::QVariantList)
            return std::nullopt;
        return value.toList();
    }
    //! Elements of an array that are not there at all. A variant list holds what it was given.
    static bool skipped(const Value &) { return false; }
    static QVariant variant(const Value &value) { return value; }
    static QVariant variant(const Object &object) { return object; }
};

/*
    JSON is walked through the CBOR classes: QCborMap and QCborArray share
    the storage of the QJsonObject and QJsonArray they come from, and a
    short map finds a key faster than QJsonObject's ordered search does.
*/
struct ZVXJSONForm
{
    using Value = QCborValue;
    using Object = QCborMap;
    using Array = QCborArray;

    static std::optional<Object> object(const Value &value)
    {
        if (!value.isMap())
            return std::nullopt;
        return value.toMap();
    }
    static Value member(const Object &object, const ZVXDictionaryKey &key)
    {
        return object.value(key.latin1);
    }
    static Value absent() { return {}; }
    static bool found(const Value &member) { return !member.isUndefined(); }
    static std::optional<Array> array(const Value &value)
    {
        if (!value.isArray())
            return std::nullopt;
        return value.toArray();
    }
    static bool skipped(const Value &value) { return value.isNull(); }
    static QVariant variant(const Value &value)
    {
        switch (value.type()) {
        case QCborValue::Null:
        case QCborValue::Undefined:
            return {};
        case QCborValue::Map:
        case QCborValue::Array:
            // Only where a reader keeps a container (a location) or logs it.
            return ZuveroSkipNSNullRecursively(value.toVariant());
        default:
            return value.toVariant();
        }
    }
    static QVariant variant(const Object &object)
    {
        return ZuveroSkipNSNullRecursively(object.toVariantMap());
    }
};

/*!
    The members of one dictionary, each key looked up at most once. Once as
    many members have been found as the dictionary holds, every further key
    is known to be absent without a lookup: a server's entry usually has
    fewer members than a reader asks for, so readers ask for the usual ones
    first.
*/
template<typename Form>
class ZVXDictionaryMembers
{
public:
    explicit ZVXDictionaryMembers(const typename Form::Object &object)
        : m_object(object)
        , m_unread(object.size())
    { }

    typename Form::Value operator[](const ZVXDictionaryKey &key)
    {
        if (m_unread == 0)
            return Form::absent();
        typename Form::Value member = Form::member(m_object, key);
        if (Form::found(member))
            --m_unread;
        return member;
    }

private:
    const typename Form::Object &m_object;
    qsizetype m_unread;
};
