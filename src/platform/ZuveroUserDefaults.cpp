#include "ZuveroUserDefaults.h"

#include <QDir>
#include <QMutex>
#include <QSettings>
#include <QStandardPaths>

#include <vector>

class ZuveroUserDefaultsPrivate
{
public:
    explicit ZuveroUserDefaultsPrivate(const QString &fileName)
        : settings(fileName, QSettings::IniFormat)
    { }

    mutable QMutex mutex;
    QSettings settings;
};

namespace {

QString defaultLocation()
{
    return QDir(QStandardPaths::writableLocation(QStandardPaths::AppConfigLocation))
        .filePath(QStringLiteral("Zuvero.ini"));
}

struct StandardStore
{
    QMutex mutex;
    QString location;
    std::unique_ptr<ZuveroUserDefaults> defaults;
    // Stores replaced by setStandardLocation(); references handed out earlier stay valid.
    std::vector<std::unique_ptr<ZuveroUserDefaults>> retired;
};

StandardStore &standardStore()
{
    static StandardStore store;
    return store;
}

} // namespace

ZuveroUserDefaults::ZuveroUserDefaults(const QString &fileName)
    : d(std::make_unique<ZuveroUserDefaultsPrivate>(fileName))
{ }

ZuveroUserDefaults::~ZuveroUserDefaults() = default;

ZuveroUserDefaults &ZuveroUserDefaults::standardUserDefaults()
{
    StandardStore &store = standardStore();
    QMutexLocker locker(&store.mutex);
    if (!store.defaults) {
        if (store.location.isEmpty())
            store.location = defaultLocation();
        store.defaults = std::make_unique<ZuveroUserDefaults>(store.location);
    }
    return *store.defaults;
}

void ZuveroUserDefaults::setStandardLocation(const QString &fileName)
{
    StandardStore &store = standardStore();
    QMutexLocker locker(&store.mutex);
    const QString location = fileName.isEmpty() ? defaultLocation() : fileName;
    if (store.defaults && store.defaults->fileName() == location)
        return;
    if (store.defaults)
        store.defaults->synchronize();
    store.location = location;
    if (store.defaults)
        store.retired.push_back(std::move(store.defaults));
    store.defaults = std::make_unique<ZuveroUserDefaults>(location);
}

QString ZuveroUserDefaults::standardLocation()
{
    return standardUserDefaults().fileName();
}

QString ZuveroUserDefaults::fileName() const
{
    return d->settings.fileName();
}

QVariant ZuveroUserDefaults::objectForKey(const QString &key) const
{
    QMutexLocker locker(&d->mutex);
    return d->settings.value(key);
}

QString ZuveroUserDefaults::stringForKey(const QString &key) const
{
    const QVariant value = objectForKey(key);
    return value.metaType().id() == QMetaType::QString ? value.toString() : QString();
}

std::optional<QByteArray> ZuveroUserDefaults::dataForKey(const QString &key) const
{
    const QVariant value = objectForKey(key);
    if (value.metaType().id() != QMetaType::QByteArray)
        return std::nullopt;
    return value.toByteArray();
}

QVariantList ZuveroUserDefaults::arrayForKey(const QString &key) const
{
    const QVariant value = objectForKey(key);
    switch (value.metaType().id()) {
    case QMetaType::QVariantList:
        return value.toList();
    case QMetaType::QStringList: {
        QVariantList list;
        for (const QString &item : value.toStringList())
            list.append(item);
        return list;
    }
    default:
        return {};
    }
}

double ZuveroUserDefaults::doubleForKey(const QString &key) const
{
    return objectForKey(key).toDouble();
}

qint64 ZuveroUserDefaults::integerForKey(const QString &key) const
{
    return objectForKey(key).toLongLong();
}

bool ZuveroUserDefaults::boolForKey(const QString &key) const
{
    return objectForKey(key).toBool();
}

void ZuveroUserDefaults::setObject(const QVariant &value, const QString &key)
{
    if (!value.isValid()) {
        removeObjectForKey(key);
        return;
    }
    QVariant stored = value;
    // QSettings writes a QStringList of one element as a plain string; a
    // QVariantList keeps its type in the file.
    if (value.metaType().id() == QMetaType::QStringList)
        stored = QVariant(value.toList());
    QMutexLocker locker(&d->mutex);
    d->settings.setValue(key, stored);
}

void ZuveroUserDefaults::removeObjectForKey(const QString &key)
{
    QMutexLocker locker(&d->mutex);
    d->settings.remove(key);
}

bool ZuveroUserDefaults::synchronize()
{
    QMutexLocker locker(&d->mutex);
    d->settings.sync();
    return d->settings.status() == QSettings::NoError;
}
