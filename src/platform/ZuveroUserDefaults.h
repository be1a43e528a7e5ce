#pragma once

//! \file
//! The small key-value store the library keeps its values in.

#include "zuvero_export.h"

#include <QString>
#include <QVariant>

#include <memory>
#include <optional>

class ZuveroUserDefaultsPrivate;

/*!
    A small persistent key-value store: the library keeps the installation
    identifier, the push token and its read marks here.

    Values live in an INI file. The standard store is
    "<config>/<organization>/<application>/Zuvero.ini" (QStandardPaths'
    AppConfigLocation) unless the host chooses another file with
    setStandardLocation(), which it should do before creating the facade.
    All members are thread-safe.
*/
class ZUVERO_EXPORT ZuveroUserDefaults
{
public:
    //! A store of its own in the INI file \a fileName, made when first written.
    explicit ZuveroUserDefaults(const QString &fileName);
    ~ZuveroUserDefaults();
    ZuveroUserDefaults(const ZuveroUserDefaults &) = delete;
    ZuveroUserDefaults &operator=(const ZuveroUserDefaults &) = delete;

    //! The store the library keeps its values in.
    static ZuveroUserDefaults &standardUserDefaults();
    //! Moves the standard store to \a fileName; an empty name restores the default location.
    static void setStandardLocation(const QString &fileName);
    //! The file of the standard store.
    static QString standardLocation();

    //! The INI file this store reads and writes.
    QString fileName() const;

    //! The stored value, or an invalid QVariant when there is none.
    QVariant objectForKey(const QString &key) const;
    //! The text stored under \a key; null when there is none or it is not text.
    QString stringForKey(const QString &key) const;
    //! The bytes stored under \a key; none when there are none or they are not bytes.
    std::optional<QByteArray> dataForKey(const QString &key) const;
    //! The list stored under \a key; empty when there is none.
    QVariantList arrayForKey(const QString &key) const;
    //! The number stored under \a key; 0 when there is none.
    double doubleForKey(const QString &key) const;
    //! The whole number stored under \a key; 0 when there is none.
    qint64 integerForKey(const QString &key) const;
    //! The flag stored under \a key; false when there is none.
    bool boolForKey(const QString &key) const;

    //! Stores \a value; an invalid QVariant removes the key.
    void setObject(const QVariant &value, const QString &key);
    //! Removes \a key and its value.
    void removeObjectForKey(const QString &key);

    //! Writes pending changes to disk now; false if the file cannot be written.
    bool synchronize();

private:
    std::unique_ptr<ZuveroUserDefaultsPrivate> d;
};
