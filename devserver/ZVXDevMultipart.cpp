#include "ZVXDevMultipart.h"

namespace ZVXDevMultipart {

namespace {

// The value of parameter \a name in a header such as `form-data; name="a"; filename="b"`.
std::optional<QByteArray> parameter(const QByteArray &header, const QByteArray &name)
{
    qsizetype i = header.indexOf(';');
    while (i >= 0 && i < header.size()) {
        ++i;
        while (i < header.size() && (header.at(i) == ' ' || header.at(i) == '\t'))
            ++i;
        const qsizetype equals = header.indexOf('=', i);
        if (equals < 0)
            return std::nullopt;
        const QByteArray key = header.mid(i, equals - i).trimmed().toLower();
        QByteArray value;
        i = equals + 1;
        if (i < header.size() && header.at(i) == '"') {
            for (++i; i < header.size() && header.at(i) != '"'; ++i) {
                if (header.at(i) == '\\' && i + 1 < header.size())
                    ++i;
                value += header.at(i);
            }
            i = header.indexOf(';', i);
        } else {
            const qsizetype end = header.indexOf(';', i);
            value = header.mid(i, end < 0 ? -1 : end - i).trimmed();
            i = end;
        }
        if (key == name)
            return value;
    }
    return std::nullopt;
}

// Reads the header lines of one part into \a part; false when they are malformed.
bool readHeaders(const QByteArray &block, Part *part)
{
    bool named = false;
    for (const QByteArray &line : block.split('\n')) {
        const QByteArray trimmed = line.trimmed();
        if (trimmed.isEmpty())
            continue;
        const qsizetype colon = trimmed.indexOf(':');
        if (colon <= 0)
            return false;
        const QByteArray name = trimmed.left(colon).trimmed().toLower();
        const QByteArray value = trimmed.mid(colon + 1).trimmed();
        if (name == "content-disposition") {
            if (!value.toLower().startsWith("form-data"))
                return false;
            const std::optional<QByteArray> field = parameter(value, "name");
            if (!field)
                return false;
            part->name = QString::fromUtf8(*field);
            part->filename = QString::fromUtf8(parameter(value, "filename").value_or(QByteArray()));
            named = true;
        } else if (name == "content-type") {
            part->contentType = QString::fromLatin1(value);
        }
    }
    return named;
}

} // namespace

const Part *Form::part(const QString &name) const
{
    for (const Part &part : parts) {
        if (part.name == name)
            return &part;
    }
    return nullptr;
}

std::optional<QByteArray> boundary(const QByteArray &contentType)
{
    return parameter(contentType, "boundary");
}

std::optional<Form> parse(const QByteArray &body, const QByteArray &boundary)
{
    if (boundary.isEmpty() || boundary.size() > MaxBoundaryLength)
        return std::nullopt;
    const QByteArray delimiter = "--" + boundary;
    const QByteArray separator = "\r\n" + delimiter;
    // A preamble before the first delimiter is allowed and ignored.
    qsizetype position = body.startsWith(delimiter) ? 0 : body.indexOf(separator);
    if (position < 0)
        return std::nullopt;
    position += body.startsWith(delimiter) ? delimiter.size() : separator.size();

    Form form;
    for (;;) {
        // "--" closes the form; what follows (a line break or not) is the epilogue.
        if (body.mid(position, 2) == "--")
            return form;
        while (position < body.size() && (body.at(position) == ' ' || body.at(position) == '\t'))
            ++position;
        if (body.mid(position, 2) != "\r\n" || form.parts.size() == MaxParts)
            return std::nullopt;
        position += 2;
        // Content never holds the separator, so the next one ends this part, headers included.
        const qsizetype end = body.indexOf(separator, position);
        if (end < 0)
            return std::nullopt;
        const qsizetype blank = body.indexOf("\r\n\r\n", position);
        qsizetype headersEnd = 0, contentStart = 0;
        if (blank >= 0 && blank + 4 <= end) {
            headersEnd = blank;
            contentStart = blank + 4;
        } else if (blank >= position && blank == end - 2) {
            // The last header line's break is the separator's: a part with no content at all.
            headersEnd = end;
            contentStart = end;
        } else {
            return std::nullopt;
        }
        Part part;
        // Every part has headers: at least the Content-Disposition naming it.
        if (!readHeaders(body.mid(position, headersEnd - position), &part))
            return std::nullopt;
        part.offset = contentStart;
        part.content = body.mid(contentStart, end - contentStart);
        form.parts.append(part);
        position = end + separator.size();
    }
}

} // namespace ZVXDevMultipart
