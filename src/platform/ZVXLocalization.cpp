#include "ZVXLocalization.h"

#include "ZVXLogging.h"

#include <QCoreApplication>
#include <QLocale>
#include <QTranslator>

namespace {

// The library's table is loaded once and never installed in the
// application, so that it cannot shadow the host's own translations. A key
// missing from the user's language falls back to English.
class LibraryTable
{
public:
    LibraryTable()
    {
        const QString directory = QStringLiteral(":/Zuvero.bundle/translations");
        const QString name = QString::fromLatin1(ZVXLocalization::LibraryContext);
        m_localeLoaded = m_locale.load(QLocale(), name, QStringLiteral("_"), directory);
        // English is built in; a library without it is a build fault worth a line in the log.
        if (!m_english.load(name + QStringLiteral("_en"), directory))
            qCWarning(lcZuvero, "ZVX ERROR: ZVXLocalization: the English table is missing");
    }

    QString translate(const QString &key) const
    {
        const QByteArray source = key.toUtf8();
        QString text;
        if (m_localeLoaded)
            text = m_locale.translate(ZVXLocalization::LibraryContext, source.constData());
        if (text.isEmpty())
            text = m_english.translate(ZVXLocalization::LibraryContext, source.constData());
        return text;
    }

private:
    QTranslator m_locale;
    QTranslator m_english;
    bool m_localeLoaded = false;
};

const LibraryTable &libraryTable()
{
    static const LibraryTable table;
    return table;
}

} // namespace

namespace ZVXLocalization {

QString hostString(const QString &key)
{
    const QByteArray source = key.toUtf8();
    return QCoreApplication::translate(HostContext, source.constData());
}

QString libraryString(const QString &key)
{
    const QString text = libraryTable().translate(key);
    return text.isEmpty() ? key : text;
}

QString localizeString(const QString &key)
{
    const QString host = hostString(key);
    return host == key ? libraryString(key) : host;
}

} // namespace ZVXLocalization
