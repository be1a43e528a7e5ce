// Preview bytes from a server: whatever they hold, decoding ends, within its limits, with a
// picture no larger than a preview may be or with none.

#include "ZVXFuzz.h"
#include "ZVXPreviews.h"

ZVX_FUZZ_APPLICATION(ZVXFuzz::Application::Gui)

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes = ZVXFuzz::view(data, size);

    const ZuveroImagePtr preview = ZVXPreviews::decodedPreview(bytes);
    if (preview) {
        const QSize largest(ZVXPreviews::LargestPreviewSize);
        const QImage image = preview->image();
        ZVX_FUZZ_CHECK(!image.isNull());
        // Turned by its orientation, a picture may lie either way round.
        ZVX_FUZZ_CHECK(std::max(image.width(), image.height())
                       <= std::max(largest.width(), largest.height()));
        ZVX_FUZZ_CHECK(preview->raw() == bytes);
    }

    return 0;
}
