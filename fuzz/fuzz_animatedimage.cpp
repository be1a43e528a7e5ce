// Picture files (GIF, WebP, PNG... whatever QImageReader takes) to the animated image, within
// budgets taken from the input's first bytes.

#include "ZVXAnimatedImage.h"
#include "ZVXFuzz.h"

ZVX_FUZZ_APPLICATION(ZVXFuzz::Application::Gui)

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    ZVXFuzz::Reader reader(data, size);
    ZVXAnimatedImage::Limits limits;
    limits.maximumFrames = 1 + reader.byte() % 64;
    limits.maximumTotalBytes = (1 + qint64(reader.word())) * 256;
    const ZVXAnimatedImage image(reader.rest(), limits);

    ZVX_FUZZ_CHECK(image.frameCount() <= limits.maximumFrames);
    ZVX_FUZZ_CHECK(image.byteCount() <= limits.maximumTotalBytes);
    ZVX_FUZZ_CHECK(image.isNull() == (image.frameCount() == 0));
    ZVX_FUZZ_CHECK(image.isNull() || image.size() == image.frame(0).size());
    qint64 bytes = 0;
    for (int i = 0; i < image.frameCount(); ++i) {
        const QImage frame = image.frame(i);
        ZVX_FUZZ_CHECK(!frame.isNull());
        ZVX_FUZZ_CHECK(frame.format() == QImage::Format_ARGB32_Premultiplied
                       || frame.format() == QImage::Format_RGB32);
        ZVX_FUZZ_CHECK(image.delay(i) >= ZVXAnimatedImage::MinimumDelay);
        bytes += frame.sizeInBytes();
    }
    ZVX_FUZZ_CHECK(bytes == image.byteCount());
    ZVX_FUZZ_CHECK(image.loopCount() >= -1);
    return 0;
}
