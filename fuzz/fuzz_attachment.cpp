// Attachment dictionaries, alone (a message holds a list of them). Read in place from JSON and as
// variants with the nulls removed, an entry must give the same attachment and the same log line.

#include "ZVXFuzz.h"
#include "ZVXJSON.h"
#include "ZuveroChatAttachment.h"
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

template<typename Read>
std::pair<ZuveroChatAttachmentPtr, QStringList> logged(Read read)
{
    QStringList lines;
    capturedLines = &lines;
    const QtMessageHandler previous = qInstallMessageHandler(capture);
    ZuveroChatAttachmentPtr attachment = read();
    qInstallMessageHandler(previous);
    capturedLines = nullptr;
    return {attachment, lines};
}

void checkAttachment(const ZuveroChatAttachmentPtr &attachment)
{
    if (!attachment)
        return;
    ZVX_FUZZ_CHECK(!attachment->icon().isEmpty());

    // The cache's form reads back as the same attachment and writes the same again.
    const QVariantMap written = attachment->propertyList();
    const ZuveroChatAttachmentPtr again = ZuveroChatAttachment::initWithPropertyList(written);
    ZVX_FUZZ_CHECK(again);
    ZVX_FUZZ_CHECK(*again == *attachment);
    ZVX_FUZZ_CHECK(again->previewURL() == attachment->previewURL());
    ZVX_FUZZ_CHECK(again->propertyList() == written);
    ZVX_FUZZ_CHECK(ZVXJSON::serialize(written).has_value());
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

    const auto [fromJSON, jsonLines]
        = logged([&value] { return ZuveroChatAttachment::initWithJSON(value); });
    const auto [fromVariants, variantLines] = logged([&value] {
        return ZuveroChatAttachment::initWithPropertyList(
            ZuveroSkipNSNullRecursively(value.toVariant()));
    });
    ZVX_FUZZ_CHECK(jsonLines == variantLines);
    ZVX_FUZZ_CHECK(bool(fromJSON) == bool(fromVariants));
    if (fromJSON) {
        ZVX_FUZZ_CHECK(fromJSON->uuid() == fromVariants->uuid());
        ZVX_FUZZ_CHECK(fromJSON->contentType() == fromVariants->contentType());
        ZVX_FUZZ_CHECK(fromJSON->previewURL() == fromVariants->previewURL());
        ZVX_FUZZ_CHECK(fromJSON->dataURL() == fromVariants->dataURL());
        ZVX_FUZZ_CHECK(fromJSON->data() == fromVariants->data());
        ZVX_FUZZ_CHECK(fromJSON->length() == fromVariants->length());
        ZVX_FUZZ_CHECK(fromJSON->imageSize() == fromVariants->imageSize());
        ZVX_FUZZ_CHECK(fromJSON->filename() == fromVariants->filename());
        ZVX_FUZZ_CHECK(fromJSON->propertyList() == fromVariants->propertyList());
    }
    checkAttachment(fromJSON);
    // As the cache hands it over, nulls and all.
    checkAttachment(ZuveroChatAttachment::initWithPropertyList(value.toVariant()));
    return 0;
}
