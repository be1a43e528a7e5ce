// XML property lists: the format of a host's configuration file.

#include "ZVXFuzz.h"
#include "ZVXPropertyList.h"

ZVX_FUZZ_APPLICATION(ZVXFuzz::Application::Core)

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    ZuveroError error;
    const std::optional<QVariant> value = ZVXPropertyList::parse(ZVXFuzz::view(data, size), &error);
    // Either a value or an error saying where it went wrong, never both, never neither.
    ZVX_FUZZ_CHECK(value.has_value() == error.isNull());
    if (!value)
        ZVX_FUZZ_CHECK(
            error.localizedDescription().startsWith(QLatin1String("Property list error at line ")));
    return 0;
}
