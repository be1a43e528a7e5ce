// Message dictionaries as the server lists them and the cache keeps them, attachments inside.

#include "ZVXFuzz.h"
#include "ZVXJSON.h"
#include "ZuveroChatMessage.h"
#include "ZuveroData.h"

namespace {

void readMessage(const QVariant &dictionary)
{
    const ZuveroChatMessagePtr message = ZuveroChatMessage::initWithPropertyList(dictionary);
    if (!message)
        return;
    ZVX_FUZZ_CHECK(message->isUserMessage() || message->isAgentMessage()
                   || message->isSystemMessage());
    ZVX_FUZZ_CHECK(message->attachments().has_value());

    // What the cache writes reads back as the same message, and writes the same again.
    const QVariantMap written = message->propertyList();
    const ZuveroChatMessagePtr again = ZuveroChatMessage::initWithPropertyList(written);
    ZVX_FUZZ_CHECK(again);
    ZVX_FUZZ_CHECK(again->propertyList() == written);
    ZVX_FUZZ_CHECK(message->isEqual(*again));
    ZVX_FUZZ_CHECK(ZVXJSON::serialize(written).has_value());
    (void)message->description();
}

} // namespace

ZVX_FUZZ_APPLICATION(ZVXFuzz::Application::Core)

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::optional<QVariant> value = ZVXJSON::parse(ZVXFuzz::view(data, size));
    if (!value)
        return 0;
    readMessage(*value);
    // A whole page of the listing, nulls removed as the connection does.
    const QVariant messages = value->toMap().value(QStringLiteral("messages"));
    for (const QVariant &entry : ZuveroSkipNSNullRecursively(messages).toList())
        readMessage(entry);
    return 0;
}
