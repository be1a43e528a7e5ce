// Hexadecimal text (API secrets arrive in it) to bytes.

#include "ZVXFuzz.h"
#include "ZuveroData.h"

#include <algorithm>
#include <cstring>

ZVX_FUZZ_APPLICATION(ZVXFuzz::Application::Core)

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray raw(reinterpret_cast<const char *>(data), qsizetype(size));
    // As a C string: up to the first zero byte.
    if (const std::optional<QByteArray> bytes = ZuveroDataWithHexCString(raw.constData()))
        ZVX_FUZZ_CHECK(size_t(bytes->size()) * 2 <= std::strlen(raw.constData()));

    const QString text = QString::fromUtf8(raw);
    const std::optional<QByteArray> fromText = ZuveroDataWithHexString(text);
    const bool ascii
        = std::all_of(text.cbegin(), text.cend(), [](QChar c) { return c.unicode() < 0x80; });
    if (!ascii)
        ZVX_FUZZ_CHECK(!fromText);

    // Any bytes survive encoding and decoding, in either case, with a prefix or without.
    const std::optional<QString> hex = ZuveroHexStringFromData(raw);
    ZVX_FUZZ_CHECK(hex && hex->size() == 2 * raw.size());
    ZVX_FUZZ_CHECK(ZuveroHexStringFromDataWithFormat(raw, "%02x") == hex);
    ZVX_FUZZ_CHECK(ZuveroDataWithHexString(hex) == raw);
    ZVX_FUZZ_CHECK(
        ZuveroDataWithHexString(QStringLiteral(" 0X ") + *ZuveroUppercaseHexStringFromData(raw))
        == raw);
    return 0;
}
