#pragma once

#include "zuvero_export.h"

#include <QByteArray>
#include <QString>
#include <QVariant>

#include <cstddef>
#include <memory>
#include <optional>

/*!
    \file
    Functions over bytes and text used for credentials and tokens:
    hexadecimal, URL-safe Base64, random bytes, SHA-256 and HMAC, secure
    clearing, and the removal of JSON nulls from parsed replies.

    An absent value (std::nullopt, or an invalid QVariant) is distinct from an
    empty one: most functions give nothing for nothing and an empty result for
    empty input. Every function is stateless and thread-safe, and none throws
    except when the system's random device cannot be opened.
*/

//! Fills \a count bytes at \a pointer with \a value in a way the optimiser cannot remove. Returns
//! \a pointer.
ZUVERO_EXPORT void *ZuveroSecureMemset(void *pointer, int value, std::size_t count);
//! Zeroes every byte of \a text before its terminator.
ZUVERO_EXPORT void ZuveroSecureClearCString(char *text);

/*!
    \a count bytes read from "/dev/urandom", owned by the caller. Raises the
    ZuveroException "Failed to open /dev/urandom" when the device cannot be
    opened or read.
*/
ZUVERO_EXPORT std::unique_ptr<unsigned char[]> ZuveroCreateRandomBytesOfLength(std::size_t count);
//! \a count random bytes, read straight into the returned buffer.
ZUVERO_EXPORT QByteArray ZuveroRandomDataWithLength(std::size_t count);

//! The bytes of \a text without its terminator; nothing for a null pointer.
ZUVERO_EXPORT std::optional<QByteArray> ZuveroDataWithUTF8String(const char *text);

/*!
    Decodes hexadecimal text, optionally prefixed with "0x" and surrounded by
    leading white space. An odd number of characters gives nothing; decoding
    stops at the first character that is not a hexadecimal digit, and the
    bytes from there on are zero (the result always has half the length).
*/
ZUVERO_EXPORT std::optional<QByteArray> ZuveroDataWithHexCString(const char *text);
//! As ZuveroDataWithHexCString(); text that is not ASCII gives nothing.
ZUVERO_EXPORT std::optional<QByteArray> ZuveroDataWithHexString(const std::optional<QString> &text);

//! Each byte printed with the printf \a format (two characters, e.g. "%02x"); "" for empty bytes.
ZUVERO_EXPORT std::optional<QString>
ZuveroHexStringFromDataWithFormat(const std::optional<QByteArray> &data, const char *format);
//! Lower-case hexadecimal, two digits a byte.
ZUVERO_EXPORT std::optional<QString> ZuveroHexStringFromData(const std::optional<QByteArray> &data);
//! Upper-case hexadecimal, two digits a byte.
ZUVERO_EXPORT std::optional<QString>
ZuveroUppercaseHexStringFromData(const std::optional<QByteArray> &data);

//! \a data with its bytes in the opposite order.
ZUVERO_EXPORT std::optional<QByteArray> ZuveroReversedData(const std::optional<QByteArray> &data);
//! The same as ZuveroReversedData(): a copy the caller may change.
ZUVERO_EXPORT std::optional<QByteArray>
ZuveroReversedMutableData(const std::optional<QByteArray> &data);
//! Reverses the order of the bytes of \a data in place.
ZUVERO_EXPORT void ZuveroDataReverse(QByteArray &data);
//! Reverses the order of the \a length bytes at \a bytes in place.
ZUVERO_EXPORT void ZuveroReverseBytesLength(void *bytes, std::size_t length);

/*!
    Zeroes a byte buffer over its whole length and returns true; returns
    false, changing nothing, for anything that is not bytes.
*/
ZUVERO_EXPORT bool ZuveroDataClear(QByteArray *data);
//! The same for the bytes a QVariant holds; false for a value of another type.
ZUVERO_EXPORT bool ZuveroDataClear(QVariant *value);

//! The SHA-256 digest of \a data (32 bytes).
ZUVERO_EXPORT std::optional<QByteArray> ZuveroSHA256(const std::optional<QByteArray> &data);
//! HMAC-SHA256 of \a data under \a key (note the order: key first).
ZUVERO_EXPORT std::optional<QByteArray> ZuveroHMACSHA256(const std::optional<QByteArray> &key,
                                                         const std::optional<QByteArray> &data);
//! HMAC-SHA512 of \a data under \a key (key first, as for ZuveroHMACSHA256()).
ZUVERO_EXPORT std::optional<QByteArray> ZuveroHMACSHA512(const std::optional<QByteArray> &key,
                                                         const std::optional<QByteArray> &data);

/*!
    Decodes URL-safe Base64 (RFC 4648, section 5) with or without padding.
    Characters outside the alphabet are ignored; a length of 1 modulo 4 or a
    malformed text gives nothing.
*/
ZUVERO_EXPORT std::optional<QByteArray> ZuveroDataFromBase64URL(const std::optional<QString> &text);
//! URL-safe Base64 without padding.
ZUVERO_EXPORT std::optional<QString> ZuveroBase64URLWithData(const std::optional<QByteArray> &data);
//! URL-safe Base64 decoded and read as UTF-8; nothing if either step fails.
ZUVERO_EXPORT std::optional<QString> decodeBase64String(const std::optional<QString> &text);

//! True for the JSON null marker, QVariant::fromValue(nullptr).
ZUVERO_EXPORT bool ZuveroIsJSONNull(const QVariant &value);
//! Nothing (an invalid QVariant) for the JSON null marker, else \a value.
ZUVERO_EXPORT QVariant ZuveroSkipNSNull(const QVariant &value);
/*!
    \a value with every JSON null removed: from lists (the element is left
    out) and from maps (the key is left out), at every depth. A null itself
    gives nothing. The input is not changed.
*/
ZUVERO_EXPORT QVariant ZuveroSkipNSNullRecursively(const QVariant &value);
