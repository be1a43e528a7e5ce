// The dev server's multipart/form-data reader: message uploads and the console's replies.
//
// An input is either a request as it arrives (its Content-Type header, a line break, the body)
// or, after a leading 0x01 byte, choices for a correct writer whose body must read back as the
// parts it wrote.

#include "ZVXDevMultipart.h"
#include "ZVXFuzz.h"

using ZVXDevMultipart::Form;
using ZVXDevMultipart::Part;

namespace {

struct Layout
{
    bool preamble = false;
    bool epilogue = false;
    //! Spaces after a delimiter, which RFC 2046 allows.
    bool padding = false;
    bool typeFirst = false;
    bool lowerCaseNames = false;
    bool transferEncoding = true;
};

QByteArray quoted(const QByteArray &text)
{
    QByteArray out = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\')
            out += '\\';
        out += c;
    }
    return out + '"';
}

// A correct writer, for any boundary that none of the contents holds.
QByteArray write(const QList<Part> &parts, const QByteArray &boundary, const Layout &layout)
{
    QByteArray body = layout.preamble ? "This is the preamble.\r\n" : "";
    const QByteArray disposition
        = layout.lowerCaseNames ? "content-disposition: " : "Content-Disposition: ";
    const QByteArray type = layout.lowerCaseNames ? "content-type: " : "Content-Type: ";
    for (qsizetype i = 0; i < parts.size(); ++i) {
        const Part &part = parts.at(i);
        if (i > 0)
            body += "\r\n";
        body += "--" + boundary + (layout.padding ? " \t " : "") + "\r\n";
        QByteArray typeLine;
        if (!part.contentType.isEmpty())
            typeLine = type + part.contentType.toLatin1() + "\r\n";
        if (layout.typeFirst)
            body += typeLine;
        body += disposition + "form-data; name=" + quoted(part.name.toUtf8());
        if (!part.filename.isEmpty())
            body += "; filename=" + quoted(part.filename.toUtf8());
        body += "\r\n";
        if (!layout.typeFirst)
            body += typeLine;
        if (layout.transferEncoding)
            body += "Content-Transfer-Encoding: binary\r\n";
        body += "\r\n" + part.content;
    }
    body += (parts.isEmpty() ? "--" : "\r\n--") + boundary + "--";
    if (layout.epilogue)
        body += "\r\nThis is the epilogue.\r\n";
    return body;
}

bool sameParts(const QList<Part> &a, const QList<Part> &b)
{
    if (a.size() != b.size())
        return false;
    for (qsizetype i = 0; i < a.size(); ++i) {
        if (a[i].name != b[i].name || a[i].filename != b[i].filename
            || a[i].contentType != b[i].contentType || a[i].content != b[i].content)
            return false;
    }
    return true;
}

// Whether a delimiter would show inside a part: within its content, or opening its first line.
bool holdsSeparator(const QList<Part> &parts, const QByteArray &boundary)
{
    const QByteArray separator = "\r\n--" + boundary;
    for (const Part &part : parts) {
        if (("\r\n" + part.content).contains(separator))
            return true;
    }
    return false;
}

// What every form read from any body must be.
void checkForm(const QByteArray &body, const QByteArray &boundary, const Form &form)
{
    ZVX_FUZZ_CHECK(form.parts.size() <= ZVXDevMultipart::MaxParts);
    const QByteArray separator = "\r\n--" + boundary;
    qsizetype previousEnd = -1;
    for (const Part &part : form.parts) {
        const qsizetype end = part.offset + part.content.size();
        // Its bytes lie inside the input, after the previous part's...
        ZVX_FUZZ_CHECK(part.offset > previousEnd && end <= body.size());
        ZVX_FUZZ_CHECK(QByteArrayView(body).sliced(part.offset, part.content.size())
                       == part.content);
        // ...and the first separator after its header's end is the one that ends it.
        ZVX_FUZZ_CHECK(body.indexOf(separator, std::max<qsizetype>(0, part.offset - 2)) == end);
        previousEnd = end;
    }

    // What follows the closing delimiter is the epilogue, whatever it holds.
    const std::optional<Form> longer = ZVXDevMultipart::parse(body + "\r\n--" + boundary, boundary);
    ZVX_FUZZ_CHECK(longer && sameParts(longer->parts, form.parts));

    // The same parts, written again by a correct writer, read back the same.
    ZVX_FUZZ_CHECK(!holdsSeparator(form.parts, boundary));
    const std::optional<Form> again
        = ZVXDevMultipart::parse(write(form.parts, boundary, {}), boundary);
    ZVX_FUZZ_CHECK(again && sameParts(again->parts, form.parts));
}

void readRequest(const QByteArray &input)
{
    const qsizetype lineEnd = input.indexOf('\n');
    if (lineEnd < 0)
        return;
    const std::optional<QByteArray> boundary = ZVXDevMultipart::boundary(input.left(lineEnd));
    if (!boundary)
        return;
    const QByteArray body = input.mid(lineEnd + 1);
    if (const std::optional<Form> form = ZVXDevMultipart::parse(body, *boundary))
        checkForm(body, *boundary, *form);
}

QString textFrom(ZVXFuzz::Reader &reader, qsizetype length)
{
    // Names as clients send them, quotes, backslashes and non-ASCII letters included.
    static const QString alphabet = QStringLiteral("abcXYZ019 _-.;=:/\"\\\u00e9\u00fc\u2639");
    QString text;
    for (qsizetype i = 0; i < length; ++i)
        text += alphabet.at(reader.byte() % alphabet.size());
    return text;
}

void writeAndRead(ZVXFuzz::Reader &reader)
{
    // RFC 2046's characters of a boundary, without the space (allowed only inside).
    static const QByteArray boundaryCharacters
        = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ'()+_,-./:=?";
    static const QStringList types{{},
                                   QStringLiteral("application/json"),
                                   QStringLiteral("image/png"),
                                   QStringLiteral("text/plain; charset=utf-8"),
                                   QStringLiteral("application/octet-stream")};
    const uint8_t flags = reader.byte();
    const Layout layout{bool(flags & 1), bool(flags & 2),  bool(flags & 4),
                        bool(flags & 8), bool(flags & 16), !(flags & 32)};
    QByteArray boundary;
    for (int length = 1 + reader.byte() % ZVXDevMultipart::MaxBoundaryLength; length > 0; --length)
        boundary += boundaryCharacters.at(reader.byte() % boundaryCharacters.size());

    QList<Part> parts(reader.byte() % 6);
    for (Part &part : parts) {
        part.name = textFrom(reader, reader.byte() % 12);
        if (reader.byte() % 2)
            part.filename = textFrom(reader, reader.byte() % 12);
        part.contentType = types.at(reader.byte() % types.size());
        part.content = reader.bytes(reader.word() % 1024);
    }
    const QByteArray body = write(parts, boundary, layout);
    const std::optional<Form> form = ZVXDevMultipart::parse(body, boundary);
    if (holdsSeparator(parts, boundary)) {
        // No correct writer uses this boundary; whatever is read must still be sound.
        if (form)
            checkForm(body, boundary, *form);
        return;
    }
    ZVX_FUZZ_CHECK(form && sameParts(form->parts, parts));
    checkForm(body, boundary, *form);
}

} // namespace

ZVX_FUZZ_APPLICATION(ZVXFuzz::Application::Core)

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size > 0 && data[0] == 0x01) {
        ZVXFuzz::Reader reader(data + 1, size - 1);
        writeAndRead(reader);
        return 0;
    }
    readRequest(ZVXFuzz::view(data, size));
    return 0;
}
