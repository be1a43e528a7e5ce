// Attachment dictionaries, alone (a message holds a list of them).

#include "ZVXFuzz.h"
#include "ZVXJSON.h"
#include "ZuveroChatAttachment.h"

ZVX_FUZZ_APPLICATION(ZVXFuzz::Application::Core)

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::optional<QVariant> value = ZVXJSON::parse(ZVXFuzz::view(data, size));
    if (!value)
        return 0;
    const ZuveroChatAttachmentPtr attachment = ZuveroChatAttachment::initWithPropertyList(*value);
    if (!attachment)
        return 0;
    ZVX_FUZZ_CHECK(!attachment->icon().isEmpty());

    // The cache's form reads back as the same attachment and writes the same again.
    const QVariantMap written = attachment->propertyList();
    const ZuveroChatAttachmentPtr again = ZuveroChatAttachment::initWithPropertyList(written);
    ZVX_FUZZ_CHECK(again);
    ZVX_FUZZ_CHECK(*again == *attachment);
    ZVX_FUZZ_CHECK(again->propertyList() == written);
    ZVX_FUZZ_CHECK(ZVXJSON::serialize(written).has_value());
    return 0;
}
