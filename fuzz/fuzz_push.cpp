// Push payloads: the message they carry, and the facade consuming them.

#include "ZVXFuzz.h"
#include "ZVXJSON.h"
#include "ZVXManualClock.h"
#include "Zuvero.h"
#include "ZuveroApplication.h"

#include <QCoreApplication>
#include <QDeadlineTimer>

using namespace std::chrono_literals;

namespace {

Zuvero *facade = nullptr;
ZVXManualClock *manualClock = nullptr;

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    ZVXFuzz::setUp();
    manualClock = new ZVXManualClock(QDateTime::currentDateTimeUtc());
    static auto delegate = std::make_shared<ZuveroDelegate>();
    delegate->zuveroDisplayChatViewController = [](Zuvero *) {};
    // Nothing listens on port 9: the facade's own requests fail at once.
    facade = Zuvero::initWithApiSecret(QStringLiteral("00112233445566778899aabbccddeeff"),
                                       QStringLiteral("127.0.0.1:9"), delegate);
    facade->setUserIdentifier(QStringLiteral("seed-user"));
    // Its registration fails at once; wait for it, so no request is under way when the run ends.
    const QDeadlineTimer deadline(10000);
    while (!facade->needsRegistration() && !deadline.hasExpired())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 10);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::optional<QVariant> value = ZVXJSON::parse(ZVXFuzz::view(data, size));
    if (!value)
        return 0;
    const QVariantMap payload = value->toMap();
    if (const ZuveroChatMessagePtr message
        = ZuveroChatMessage::initWithRemoteNotificationPayload(payload)) {
        ZVX_FUZZ_CHECK(message->isUserMessage() || message->isAgentMessage()
                       || message->isSystemMessage());
        ZVX_FUZZ_CHECK(message->attachments() && message->attachments()->isEmpty());
        ZVX_FUZZ_CHECK(message->text().has_value());
    }

    // Both ways a push is shown: as the tap that opened the application, and later as a banner.
    if (size % 2)
        ZuveroApplication::sharedApplication()->notifyWillEnterForeground();
    else
        manualClock->advance(3s);
    const bool consumed = facade->consumeReceivedRemoteNotification(payload);
    ZVX_FUZZ_CHECK(!consumed
                   || payload.value(QStringLiteral("appdata")).metaType().id()
                       == QMetaType::QVariantMap);
    QCoreApplication::processEvents();
    return 0;
}
