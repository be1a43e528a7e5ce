#include "ZuveroData_p.h"

#include "ZVXLogging.h"
#include "ZuveroException.h"

#include <QStringDecoder>

#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/sha.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <cstring>

namespace {

constexpr char DefaultRandomDevice[] = "/dev/urandom";
std::atomic<const char *> randomDevicePath{DefaultRandomDevice};

void readRandomBytes(unsigned char *buffer, std::size_t count)
{
    const char *path = randomDevicePath.load();
    std::FILE *device = std::fopen(path, "r");
    if (!device) {
        ZVXLog(QStringLiteral("ZVXData: cannot fopen /dev/urandom"));
        throw ZuveroException(QStringLiteral("Failed to open /dev/urandom"),
                              QStringLiteral("fopen('/dev/urandom', 'r') failed."));
    }
    const std::size_t read = count ? std::fread(buffer, 1, count, device) : 0;
    std::fclose(device);
    // A short read would leave predictable bytes behind: never hand those out.
    if (read != count) {
        ZuveroSecureMemset(buffer, 0, count);
        ZVXLog(QStringLiteral("ZVXData: cannot read /dev/urandom"));
        throw ZuveroException(QStringLiteral("Failed to read /dev/urandom"),
                              QStringLiteral("fread('/dev/urandom') returned too few bytes."));
    }
}

// 0-15 for hexadecimal digits, -1 for every other byte (the terminator included).
constexpr std::array<signed char, 256> hexDigitTable = [] {
    std::array<signed char, 256> table{};
    for (auto &entry : table)
        entry = -1;
    for (int c = '0'; c <= '9'; ++c)
        table[c] = static_cast<signed char>(c - '0');
    for (int c = 'a'; c <= 'f'; ++c)
        table[c] = static_cast<signed char>(c - 'a' + 10);
    for (int c = 'A'; c <= 'F'; ++c)
        table[c] = static_cast<signed char>(c - 'A' + 10);
    return table;
}();

bool isWhiteSpace(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

std::optional<QByteArray> hmac(const EVP_MD *digest, const std::optional<QByteArray> &key,
                               const std::optional<QByteArray> &data)
{
    if (!key || !data)
        return std::nullopt;
    std::array<unsigned char, EVP_MAX_MD_SIZE> mac;
    unsigned int length = 0;
    // HMAC() wants a non-null key pointer even for an empty key.
    static const char emptyKey = 0;
    const char *keyBytes = key->isEmpty() ? &emptyKey : key->constData();
    if (!HMAC(digest, keyBytes, int(key->size()),
              reinterpret_cast<const unsigned char *>(data->constData()), size_t(data->size()),
              mac.data(), &length))
        return std::nullopt;
    QByteArray result(reinterpret_cast<const char *>(mac.data()), qsizetype(length));
    ZuveroSecureMemset(mac.data(), 0, mac.size());
    return result;
}

bool isBase64Character(char16_t c)
{
    return (c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z') || (c >= u'0' && c <= u'9')
        || c == u'+' || c == u'/' || c == u'=';
}

QVariantList withoutNulls(const QVariantList &list)
{
    QVariantList cleaned;
    cleaned.reserve(list.size());
    for (const QVariant &element : list) {
        if (!ZuveroIsJSONNull(element))
            cleaned.append(ZuveroSkipNSNullRecursively(element));
    }
    return cleaned;
}

template<typename Map>
Map withoutNulls(const Map &map)
{
    Map cleaned;
    for (auto it = map.cbegin(); it != map.cend(); ++it) {
        if (!ZuveroIsJSONNull(it.value()))
            cleaned.insert(it.key(), ZuveroSkipNSNullRecursively(it.value()));
    }
    return cleaned;
}

} // namespace

void ZVXSetRandomDevicePath(const char *path)
{
    randomDevicePath.store(path ? path : DefaultRandomDevice);
}

bool ZVXConstantTimeEquals(const QByteArray &a, const QByteArray &b)
{
    if (a.size() != b.size())
        return false;
    volatile unsigned char difference = 0;
    for (qsizetype i = 0; i < a.size(); ++i)
        difference = difference | static_cast<unsigned char>(a.at(i) ^ b.at(i));
    return difference == 0;
}

void *ZuveroSecureMemset(void *pointer, int value, std::size_t count)
{
    if (!pointer || count == 0)
        return pointer;
    // Writes through a volatile pointer are observable behaviour and cannot be elided.
    volatile unsigned char *bytes = static_cast<volatile unsigned char *>(pointer);
    for (std::size_t i = 0; i < count; ++i)
        bytes[i] = static_cast<unsigned char>(value);
    return pointer;
}

void ZuveroSecureClearCString(char *text)
{
    if (!text)
        return;
    volatile char *bytes = text;
    for (; *bytes; ++bytes)
        *bytes = 0;
}

std::unique_ptr<unsigned char[]> ZuveroCreateRandomBytesOfLength(std::size_t count)
{
    auto buffer = std::make_unique_for_overwrite<unsigned char[]>(count);
    readRandomBytes(buffer.get(), count);
    return buffer;
}

QByteArray ZuveroRandomDataWithLength(std::size_t count)
{
    QByteArray data(qsizetype(count), Qt::Uninitialized);
    readRandomBytes(reinterpret_cast<unsigned char *>(data.data()), count);
    return data;
}

std::optional<QByteArray> ZuveroDataWithUTF8String(const char *text)
{
    if (!text)
        return std::nullopt;
    return QByteArray(text);
}

std::optional<QByteArray> ZuveroDataWithHexCString(const char *text)
{
    if (!text)
        return std::nullopt;
    while (isWhiteSpace(*text))
        ++text;
    if (text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        text += 2;
        while (isWhiteSpace(*text))
            ++text;
    }
    const std::size_t length = std::strlen(text);
    if (length % 2)
        return std::nullopt;

    QByteArray bytes(qsizetype(length / 2), '\0');
    for (std::size_t i = 0; i < length / 2; ++i) {
        const signed char high = hexDigitTable[static_cast<unsigned char>(text[2 * i])];
        const signed char low = hexDigitTable[static_cast<unsigned char>(text[2 * i + 1])];
        if (high < 0 || low < 0)
            break; // the rest stays zero, deliberately: only odd lengths are rejected
        bytes[qsizetype(i)] = static_cast<char>((high << 4) | low);
    }
    return bytes;
}

std::optional<QByteArray> ZuveroDataWithHexString(const std::optional<QString> &text)
{
    if (!text)
        return std::nullopt;
    for (const QChar c : *text) {
        if (c.unicode() > 0x7f)
            return std::nullopt;
    }
    return ZuveroDataWithHexCString(text->toLatin1().constData());
}

std::optional<QString> ZuveroHexStringFromDataWithFormat(const std::optional<QByteArray> &data,
                                                         const char *format)
{
    if (!data)
        return std::nullopt;
    QString text;
    text.reserve(data->size() * 2);
    for (const char byte : *data)
        text += QString::asprintf(format,
                                  static_cast<unsigned int>(static_cast<unsigned char>(byte)));
    return text;
}

std::optional<QString> ZuveroHexStringFromData(const std::optional<QByteArray> &data)
{
    if (!data)
        return std::nullopt;
    return QString::fromLatin1(data->toHex());
}

std::optional<QString> ZuveroUppercaseHexStringFromData(const std::optional<QByteArray> &data)
{
    if (!data)
        return std::nullopt;
    return QString::fromLatin1(data->toHex().toUpper());
}

std::optional<QByteArray> ZuveroReversedData(const std::optional<QByteArray> &data)
{
    return ZuveroReversedMutableData(data);
}

std::optional<QByteArray> ZuveroReversedMutableData(const std::optional<QByteArray> &data)
{
    if (!data)
        return std::nullopt;
    QByteArray copy = *data;
    ZuveroDataReverse(copy);
    return copy;
}

void ZuveroDataReverse(QByteArray &data)
{
    if (data.size() > 1)
        ZuveroReverseBytesLength(data.data(), std::size_t(data.size()));
}

void ZuveroReverseBytesLength(void *bytes, std::size_t length)
{
    if (!bytes || length < 2)
        return;
    auto *begin = static_cast<unsigned char *>(bytes);
    auto *end = begin + length - 1;
    while (begin < end)
        std::swap(*begin++, *end--);
}

bool ZuveroDataClear(QByteArray *data)
{
    if (!data)
        return false;
    ZuveroSecureMemset(data->data(), 0, std::size_t(data->size()));
    return true;
}

bool ZuveroDataClear(QVariant *value)
{
    if (!value || value->metaType().id() != QMetaType::QByteArray)
        return false;
    return ZuveroDataClear(static_cast<QByteArray *>(value->data()));
}

std::optional<QByteArray> ZuveroSHA256(const std::optional<QByteArray> &data)
{
    if (!data)
        return std::nullopt;
    std::array<unsigned char, SHA256_DIGEST_LENGTH> digest;
    SHA256(reinterpret_cast<const unsigned char *>(data->constData()), size_t(data->size()),
           digest.data());
    QByteArray result(reinterpret_cast<const char *>(digest.data()), qsizetype(digest.size()));
    ZuveroSecureMemset(digest.data(), 0, digest.size());
    return result;
}

std::optional<QByteArray> ZuveroHMACSHA256(const std::optional<QByteArray> &key,
                                           const std::optional<QByteArray> &data)
{
    return hmac(EVP_sha256(), key, data);
}

std::optional<QByteArray> ZuveroHMACSHA512(const std::optional<QByteArray> &key,
                                           const std::optional<QByteArray> &data)
{
    return hmac(EVP_sha512(), key, data);
}

std::optional<QByteArray> ZuveroDataFromBase64URL(const std::optional<QString> &text)
{
    if (!text)
        return std::nullopt;
    // The padding follows from the length of the whole text, as received.
    QByteArray standard;
    switch (text->size() % 4) {
    case 1:
        return std::nullopt;
    case 2:
        standard = "==";
        break;
    case 3:
        standard = "=";
        break;
    default:
        break;
    }
    QByteArray filtered;
    filtered.reserve(text->size() + 2);
    for (const QChar c : *text) {
        char16_t u = c.unicode();
        if (u == u'-')
            u = u'+';
        else if (u == u'_')
            u = u'/';
        if (isBase64Character(u))
            filtered.append(char(u));
    }
    filtered.append(standard);
    if (filtered.size() % 4)
        return std::nullopt;
    auto decoded
        = QByteArray::fromBase64Encoding(filtered, QByteArray::AbortOnBase64DecodingErrors);
    if (!decoded)
        return std::nullopt;
    return *decoded;
}

std::optional<QString> ZuveroBase64URLWithData(const std::optional<QByteArray> &data)
{
    if (!data)
        return std::nullopt;
    return QString::fromLatin1(
        data->toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals));
}

std::optional<QString> decodeBase64String(const std::optional<QString> &text)
{
    const std::optional<QByteArray> bytes = ZuveroDataFromBase64URL(text);
    if (!bytes)
        return std::nullopt;
    QStringDecoder decoder(QStringDecoder::Utf8,
                           QStringDecoder::Flag::Stateless
                               | QStringDecoder::Flag::ConvertInitialBom);
    QString decoded = decoder.decode(*bytes);
    if (decoder.hasError())
        return std::nullopt;
    return decoded;
}

bool ZuveroIsJSONNull(const QVariant &value)
{
    return value.metaType().id() == QMetaType::Nullptr;
}

QVariant ZuveroSkipNSNull(const QVariant &value)
{
    return ZuveroIsJSONNull(value) ? QVariant() : value;
}

QVariant ZuveroSkipNSNullRecursively(const QVariant &value)
{
    switch (value.metaType().id()) {
    case QMetaType::Nullptr:
        return {};
    case QMetaType::QVariantList:
        return withoutNulls(value.toList());
    case QMetaType::QVariantMap:
        return withoutNulls(value.toMap());
    case QMetaType::QVariantHash:
        return withoutNulls(value.toHash());
    default:
        return value;
    }
}
