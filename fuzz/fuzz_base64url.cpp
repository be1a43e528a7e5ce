// URL-safe Base64 (the parts of a token) to bytes and to text.

#include "ZVXFuzz.h"
#include "ZuveroData.h"

ZVX_FUZZ_APPLICATION(ZVXFuzz::Application::Core)

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray raw(reinterpret_cast<const char *>(data), qsizetype(size));

    // Any bytes survive encoding and decoding; the encoding is the URL-safe, unpadded alphabet.
    const std::optional<QString> encoded = ZuveroBase64URLWithData(raw);
    ZVX_FUZZ_CHECK(encoded);
    for (const QChar c : *encoded)
        ZVX_FUZZ_CHECK(c.isLetterOrNumber() || c == u'-' || c == u'_');
    ZVX_FUZZ_CHECK(ZuveroDataFromBase64URL(encoded) == raw);

    // Any text: what decodes, encodes and decodes to the same bytes.
    for (const QString &text : {QString::fromUtf8(raw), QString::fromLatin1(raw)}) {
        if (const std::optional<QByteArray> decoded = ZuveroDataFromBase64URL(text))
            ZVX_FUZZ_CHECK(ZuveroDataFromBase64URL(ZuveroBase64URLWithData(*decoded)) == decoded);
        if (const std::optional<QString> decodedText = decodeBase64String(text))
            ZVX_FUZZ_CHECK(decodedText->toUtf8() == ZuveroDataFromBase64URL(text));
    }
    return 0;
}
