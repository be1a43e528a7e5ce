// Message dictionaries as the server lists them and the cache keeps them, attachments inside. A
// server's entry is read in place from its JSON; the same entry as variants, nulls removed, must
// read as the same message with the same log lines.

#include "ZVXFuzz.h"
#include "ZVXJSON.h"
#include "ZuveroChatMessage.h"
#include "ZuveroData.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace {

QStringList *capturedLines = nullptr;

void capture(QtMsgType, const QMessageLogContext &, const QString &message)
{
    capturedLines->append(message);
}

struct Reading
{
    ZuveroChatMessagePtr message;
    QStringList lines;
};

template<typename Read>
Reading logged(Read read)
{
    Reading reading;
    capturedLines = &reading.lines;
    const QtMessageHandler previous = qInstallMessageHandler(capture);
    reading.message = read();
    qInstallMessageHandler(previous);
    capturedLines = nullptr;
    return reading;
}

bool sameAttachment(const ZuveroChatAttachment &a, const ZuveroChatAttachment &b)
{
    return a.uuid() == b.uuid() && a.contentType() == b.contentType()
        && a.previewURL() == b.previewURL() && a.dataURL() == b.dataURL() && a.data() == b.data()
        && a.length() == b.length() && a.imageSize() == b.imageSize()
        && a.filename() == b.filename() && a.icon() == b.icon();
}

bool sameMessage(const ZuveroChatMessage &a, const ZuveroChatMessage &b)
{
    const ZuveroChatAttachmentList first = a.attachments().value_or(ZuveroChatAttachmentList());
    const ZuveroChatAttachmentList second = b.attachments().value_or(ZuveroChatAttachmentList());
    return a.uuid() == b.uuid() && a.sender() == b.sender() && a.date() == b.date()
        && a.text() == b.text() && a.userName() == b.userName()
        && a.locationDictionary() == b.locationDictionary() && a.isOffline() == b.isOffline()
        && a.attachments().has_value() == b.attachments().has_value()
        && std::equal(first.cbegin(), first.cend(), second.cbegin(), second.cend(),
                      [](const ZuveroChatAttachmentPtr &x, const ZuveroChatAttachmentPtr &y) {
                          return sameAttachment(*x, *y);
                      });
}

// Invariants of any message read: what the cache writes reads back as the same message.
void checkMessage(const ZuveroChatMessagePtr &message)
{
    if (!message)
        return;
    ZVX_FUZZ_CHECK(message->isUserMessage() || message->isAgentMessage()
                   || message->isSystemMessage());
    ZVX_FUZZ_CHECK(message->attachments().has_value());

    const QVariantMap written = message->propertyList();
    const ZuveroChatMessagePtr again = ZuveroChatMessage::initWithPropertyList(written);
    ZVX_FUZZ_CHECK(again);
    ZVX_FUZZ_CHECK(again->propertyList() == written);
    ZVX_FUZZ_CHECK(message->isEqual(*again));
    ZVX_FUZZ_CHECK(ZVXJSON::serialize(written).has_value());
    (void)message->description();
}

// One entry of a server's listing, read both ways.
void readEntry(const QJsonValue &entry)
{
    const Reading json = logged([&entry] { return ZuveroChatMessage::initWithJSON(entry); });
    const Reading variants = logged([&entry] {
        return ZuveroChatMessage::initWithPropertyList(
            ZuveroSkipNSNullRecursively(entry.toVariant()));
    });
    ZVX_FUZZ_CHECK(json.lines == variants.lines);
    ZVX_FUZZ_CHECK(bool(json.message) == bool(variants.message));
    if (json.message)
        ZVX_FUZZ_CHECK(sameMessage(*json.message, *variants.message));
    checkMessage(json.message);
}

} // namespace

ZVX_FUZZ_APPLICATION(ZVXFuzz::Application::Core)

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QJsonDocument document = QJsonDocument::fromJson(ZVXFuzz::view(data, size));
    if (document.isNull())
        return 0;
    const QJsonValue value
        = document.isObject() ? QJsonValue(document.object()) : QJsonValue(document.array());
    readEntry(value);
    // As the cache hands it over, nulls and all.
    checkMessage(ZuveroChatMessage::initWithPropertyList(value.toVariant()));
    // A whole page of the listing.
    for (const QJsonValue &entry : value.toObject().value(QLatin1String("messages")).toArray())
        readEntry(entry);
    return 0;
}
