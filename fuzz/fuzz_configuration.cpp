// A host's configuration, as a property list or JSON, normalised into typed values.

#include "ZVXConfiguration.h"
#include "ZVXFuzz.h"
#include "ZVXJSON.h"
#include "ZVXPropertyList.h"

#include <QSet>

namespace {

QSet<QString> knownKeys()
{
    const QStringList keys = ZVXConfiguration::requiredConfigurationKeys()
        + ZVXConfiguration::allCustomizationKeys() + QStringList{QStringLiteral("language")};
    return QSet<QString>(keys.cbegin(), keys.cend());
}

} // namespace

// Fonts need a GUI application.
ZVX_FUZZ_APPLICATION(ZVXFuzz::Application::Gui)

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray input = ZVXFuzz::view(data, size);
    const std::optional<QVariant> value
        = input.trimmed().startsWith('{') ? ZVXJSON::parse(input) : ZVXPropertyList::parse(input);
    if (!value || value->metaType().id() != QMetaType::QVariantMap)
        return 0;
    const QVariantMap raw = value->toMap();
    const QVariantMap typed = ZVXConfiguration::normalizeConfigurationDictionary(raw);
    static const QSet<QString> known = knownKeys();
    for (auto it = typed.cbegin(); it != typed.cend(); ++it) {
        ZVX_FUZZ_CHECK(known.contains(it.key()));
        ZVX_FUZZ_CHECK(it.value().isValid());
    }
    return 0;
}
