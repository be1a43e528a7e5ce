#include "ZVXAttachmentSwitches.h"

#include "ZVXConfiguration.h"

#include <QMutex>

#include <atomic>

namespace ZVXAttachmentSwitches {

namespace {

struct State
{
    std::atomic<bool> library{true};
    std::atomic<bool> camera{true};
    std::atomic<bool> location{true};
    std::atomic<bool> removal{false};
    std::atomic<bool> editing{false};
    QMutex mutex;
    QVariantMap usageDescriptions;

    std::atomic<bool> &at(Switch which)
    {
        switch (which) {
        case Switch::Library:
            return library;
        case Switch::Camera:
            return camera;
        case Switch::Location:
            return location;
        case Switch::Removal:
            return removal;
        case Switch::Editing:
            break;
        }
        return editing;
    }
};

State &state()
{
    static State shared;
    return shared;
}

// A declaration is a reason given to the user: text that is not blank.
bool declares(const QVariant &value)
{
    return value.metaType().id() == QMetaType::QString && !value.toString().trimmed().isEmpty();
}

} // namespace

bool isOn(Switch which)
{
    return state().at(which).load();
}

void set(Switch which, bool on)
{
    state().at(which).store(on);
}

QVariantMap usageDescriptions()
{
    QMutexLocker locker(&state().mutex);
    return state().usageDescriptions;
}

void setUsageDescriptions(const QVariantMap &declarations)
{
    QVariantMap kept;
    for (const QString &key : ZVXConfiguration::usageDescriptionKeys()) {
        if (const QVariant value = declarations.value(key); declares(value))
            kept.insert(key, value);
    }
    QMutexLocker locker(&state().mutex);
    state().usageDescriptions = kept;
}

void declareUsageDescriptions(const QVariantMap &configuration)
{
    QMutexLocker locker(&state().mutex);
    for (const QString &key : ZVXConfiguration::usageDescriptionKeys()) {
        if (const QVariant value = configuration.value(key); declares(value))
            state().usageDescriptions.insert(key, value);
    }
}

} // namespace ZVXAttachmentSwitches
