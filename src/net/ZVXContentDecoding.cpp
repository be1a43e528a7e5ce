#include "ZVXContentDecoding.h"

#include <zlib.h>

namespace {

enum class Format { GzipOrZlib, RawDeflate };

std::optional<QByteArray> inflateBody(const QByteArray &body, Format format, qsizetype limit,
                                      bool *exceeded)
{
    z_stream stream{};
    // 15 + 32 reads a gzip or a zlib header; -15 reads a bare deflate stream.
    const int windowBits = format == Format::GzipOrZlib ? 15 + 32 : -15;
    if (inflateInit2(&stream, windowBits) != Z_OK)
        return std::nullopt;

    QByteArray out;
    char chunk[16384];
    stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(body.constData()));
    stream.avail_in = uInt(body.size());
    int status = Z_OK;
    for (;;) {
        stream.next_out = reinterpret_cast<Bytef *>(chunk);
        stream.avail_out = sizeof chunk;
        status = inflate(&stream, Z_NO_FLUSH);
        if (status != Z_OK && status != Z_STREAM_END)
            break;
        out.append(chunk, qsizetype(sizeof chunk - stream.avail_out));
        if (out.size() > limit) {
            if (exceeded)
                *exceeded = true;
            status = Z_MEM_ERROR;
            break;
        }
        if (status == Z_STREAM_END) {
            // A gzip body may hold several members one after another.
            if (stream.avail_in == 0 || format == Format::RawDeflate)
                break;
            if (inflateReset(&stream) != Z_OK) {
                status = Z_DATA_ERROR;
                break;
            }
            continue;
        }
        if (stream.avail_in == 0 && stream.avail_out != 0) {
            status = Z_BUF_ERROR; // cut short
            break;
        }
    }
    inflateEnd(&stream);
    if (status != Z_STREAM_END)
        return std::nullopt;
    return out;
}

} // namespace

namespace ZVXContentDecoding {

std::optional<QByteArray> decode(const QByteArray &contentEncoding, const QByteArray &body,
                                 qsizetype limit, bool *exceeded)
{
    if (exceeded)
        *exceeded = false;
    const QByteArray encoding = contentEncoding.trimmed().toLower();
    if (encoding.isEmpty() || encoding == "identity" || body.isEmpty())
        return body;
    if (encoding == "gzip" || encoding == "x-gzip")
        return inflateBody(body, Format::GzipOrZlib, limit, exceeded);
    if (encoding == "deflate") {
        // "deflate" is zlib-wrapped by the standard, bare in some servers.
        if (auto decoded = inflateBody(body, Format::GzipOrZlib, limit, exceeded))
            return decoded;
        return inflateBody(body, Format::RawDeflate, limit, exceeded);
    }
    return std::nullopt;
}

} // namespace ZVXContentDecoding
