#include "ZVXMultipart.h"

namespace {

// Header text is 7-bit ASCII; anything else becomes one '?' per character.
QByteArray lossyASCII(const QString &text)
{
    QByteArray bytes;
    bytes.reserve(text.size());
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text.at(i);
        if (c.isHighSurrogate() && i + 1 < text.size() && text.at(i + 1).isLowSurrogate())
            ++i;
        bytes.append(c.unicode() < 0x80 ? char(c.unicode()) : '?');
    }
    return bytes;
}

const QString CRLF = QStringLiteral("\r\n");

} // namespace

void ZVXMultipart::setBoundary(const QString &boundary)
{
    if (!boundary.isEmpty())
        m_boundary = boundary;
}

QString ZVXMultipart::contentType() const
{
    return QStringLiteral("multipart/form-data; boundary=") + m_boundary;
}

void ZVXMultipart::appendHeader(const QString &header)
{
    // The CRLF that ends the previous part's content is written here.
    const QString leadIn = m_started ? CRLF : QString();
    m_data += lossyASCII(leadIn + QStringLiteral("--") + m_boundary + CRLF + header
                         + QStringLiteral("Content-Transfer-Encoding: binary") + CRLF + CRLF);
}

void ZVXMultipart::addString(const std::optional<QString> &value, const QString &key)
{
    if (!value || key.isEmpty())
        return;
    appendHeader(QStringLiteral("Content-Disposition: form-data; name=\"%1\"").arg(key) + CRLF);
    m_data += value->toUtf8();
    m_started = true;
}

void ZVXMultipart::addDictionary(const QMap<QString, QString> &dictionary)
{
    for (auto it = dictionary.cbegin(); it != dictionary.cend(); ++it)
        addString(it.value(), it.key());
}

void ZVXMultipart::addData(const std::optional<QByteArray> &data, const std::optional<QString> &key,
                           const std::optional<QString> &mimeType, const QString &filename)
{
    QString header = QStringLiteral("Content-Disposition: form-data; name=\"%1\"")
                         .arg(key.value_or(QStringLiteral("file")));
    if (!filename.isEmpty())
        header += QStringLiteral("; filename=\"%1\"").arg(filename);
    header += CRLF + QStringLiteral("Content-Type: ") + mimeType.value_or(QStringLiteral("(null)"))
        + CRLF;
    appendHeader(header);
    if (data)
        m_data += *data;
    m_started = true;
}

QByteArray ZVXMultipart::data()
{
    if (m_started && !m_finished) {
        m_data += lossyASCII(CRLF + QStringLiteral("--") + m_boundary + QStringLiteral("--"));
        m_finished = true;
    }
    return m_data;
}
