#include "ZVXPropertyList.h"

#include <QDateTime>
#include <QXmlStreamReader>

namespace ZVXPropertyList {

namespace {

// Deeper nesting than any configuration needs; a guard against hostile files.
constexpr int MaximumDepth = 256;

class Reader
{
public:
    explicit Reader(const QByteArray &xml)
        : m_xml(xml)
    { }

    std::optional<QVariant> read(ZuveroError *error)
    {
        std::optional<QVariant> value;
        if (nextElement()) {
            if (m_xml.name() == QLatin1String("plist")) {
                if (nextElement())
                    value = readValue(0);
                else
                    fail(QStringLiteral("an empty <plist>"));
            } else {
                value = readValue(0); // a bare value without the <plist> wrapper
            }
        } else if (!m_failed) {
            fail(QStringLiteral("no value"));
        }
        if (value && !m_failed) {
            // Nothing but the closing tags may follow the value.
            while (!m_xml.atEnd()) {
                m_xml.readNext();
                if (m_xml.isStartElement()) {
                    fail(QStringLiteral("more than one value"));
                    break;
                }
            }
            if (m_xml.hasError() && !m_failed)
                fail(m_xml.errorString());
        }
        if (m_failed) {
            if (error)
                *error = m_error;
            return std::nullopt;
        }
        return value;
    }

private:
    // Moves to the next start element; false at the end of the enclosing element or on errors.
    bool nextElement()
    {
        while (!m_xml.atEnd()) {
            switch (m_xml.readNext()) {
            case QXmlStreamReader::StartElement:
                return true;
            case QXmlStreamReader::EndElement:
                return false;
            case QXmlStreamReader::Characters:
                if (!m_xml.isWhitespace()) {
                    fail(QStringLiteral("text outside of a value"));
                    return false;
                }
                break;
            default:
                break;
            }
        }
        if (m_xml.hasError())
            fail(m_xml.errorString());
        return false;
    }

    std::optional<QVariant> readValue(int depth)
    {
        if (depth > MaximumDepth)
            return fail(QStringLiteral("values nested too deeply"));
        const auto name = m_xml.name();
        if (name == QLatin1String("dict"))
            return readDictionary(depth);
        if (name == QLatin1String("array"))
            return readArray(depth);
        if (name == QLatin1String("true") || name == QLatin1String("false")) {
            const bool value = name == QLatin1String("true");
            if (!readText())
                return std::nullopt;
            return QVariant(value);
        }
        const QString elementName = name.toString();
        const std::optional<QString> text = readText();
        if (!text)
            return std::nullopt;
        if (elementName == QLatin1String("string"))
            return QVariant(*text);
        if (elementName == QLatin1String("integer")) {
            bool ok = false;
            const qlonglong number = text->trimmed().toLongLong(&ok);
            if (!ok)
                return fail(
                    QStringLiteral("an <integer> that is not a whole number: %1").arg(*text));
            return QVariant(number);
        }
        if (elementName == QLatin1String("real")) {
            bool ok = false;
            const double number = text->trimmed().toDouble(&ok);
            if (!ok)
                return fail(QStringLiteral("a <real> that is not a number: %1").arg(*text));
            return QVariant(number);
        }
        if (elementName == QLatin1String("data")) {
            QByteArray base64 = text->toLatin1();
            base64.replace(' ', "").replace('\n', "").replace('\t', "").replace('\r', "");
            auto decoded
                = QByteArray::fromBase64Encoding(base64, QByteArray::AbortOnBase64DecodingErrors);
            if (!decoded)
                return fail(QStringLiteral("<data> that is not Base64"));
            return QVariant(*decoded);
        }
        if (elementName == QLatin1String("date")) {
            const QDateTime date = QDateTime::fromString(text->trimmed(), Qt::ISODate);
            if (!date.isValid())
                return fail(QStringLiteral("a <date> that is not an ISO 8601 date: %1").arg(*text));
            return QVariant(date);
        }
        return fail(QStringLiteral("an unknown element <%1>").arg(elementName));
    }

    std::optional<QVariant> readDictionary(int depth)
    {
        QVariantMap dictionary;
        while (nextElement()) {
            if (m_xml.name() != QLatin1String("key"))
                return fail(QStringLiteral("a <dict> entry without its <key>"));
            const std::optional<QString> key = readText();
            if (!key)
                return std::nullopt;
            if (!nextElement())
                return m_failed ? std::nullopt
                                : fail(QStringLiteral("a <key> without a value: %1").arg(*key));
            std::optional<QVariant> value = readValue(depth + 1);
            if (!value)
                return std::nullopt;
            dictionary.insert(*key, *value);
        }
        if (m_failed)
            return std::nullopt;
        return QVariant(dictionary);
    }

    std::optional<QVariant> readArray(int depth)
    {
        QVariantList array;
        while (nextElement()) {
            std::optional<QVariant> value = readValue(depth + 1);
            if (!value)
                return std::nullopt;
            array.append(*value);
        }
        if (m_failed)
            return std::nullopt;
        return QVariant(array);
    }

    std::optional<QString> readText()
    {
        QString text = m_xml.readElementText(QXmlStreamReader::ErrorOnUnexpectedElement);
        if (m_xml.hasError()) {
            fail(m_xml.errorString());
            return std::nullopt;
        }
        return text;
    }

    std::optional<QVariant> fail(const QString &what)
    {
        if (!m_failed) {
            m_failed = true;
            m_error = ZuveroError::withDescription(
                QString(ZuveroPropertyListErrorDomain), ZuveroPropertyListErrorParse,
                QStringLiteral("Property list error at line %1, column %2: %3")
                    .arg(m_xml.lineNumber())
                    .arg(m_xml.columnNumber())
                    .arg(what));
        }
        return std::nullopt;
    }

    QXmlStreamReader m_xml;
    bool m_failed = false;
    ZuveroError m_error;
};

} // namespace

std::optional<QVariant> parse(const QByteArray &xml, ZuveroError *error)
{
    return Reader(xml).read(error);
}

} // namespace ZVXPropertyList
