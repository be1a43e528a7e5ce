#include "ZVXLocalization.h"

#include "ZVXLogging.h"

#include <QCoreApplication>
#include <QLocale>
#include <QMutex>
#include <QTranslator>

#include <optional>

namespace {

// The library's table is never installed in the application, so that it cannot shadow the
// host's own translations. It follows the default locale: a host that switches language calls
// QLocale::setDefault(), and the next lookup loads the table of the new language. A key
// missing from the user's language falls back to English.
class LibraryTable
{
public:
    LibraryTable()
    {
        // English is built in; a library without it is a build fault worth a line in the log.
        if (!m_english.load(name() + QStringLiteral("_en"), directory()))
            qCWarning(lcZuvero, "ZVX ERROR: ZVXLocalization: the English table is missing");
    }

    QString translate(const QString &key)
    {
        const QByteArray source = key.toUtf8();
        QMutexLocker lock(&m_mutex);
        const QLocale locale;
        if (!m_chosen || *m_chosen != locale)
            choose(locale);
        QString text;
        if (m_localeLoaded)
            text = m_locale.translate(ZVXLocalization::LibraryContext, source.constData());
        if (text.isEmpty())
            text = m_english.translate(ZVXLocalization::LibraryContext, source.constData());
        return text;
    }

private:
    static QString name() { return QString::fromLatin1(ZVXLocalization::LibraryContext); }
    static QString directory() { return QStringLiteral(":/Zuvero.bundle/translations"); }

    void choose(const QLocale &locale)
    {
        m_chosen = locale;
        m_localeLoaded = m_locale.load(locale, name(), QStringLiteral("_"), directory());
        // The C locale speaks the English the table falls back to anyway.
        if (!m_localeLoaded && locale.language() != QLocale::C)
            ZVXLog(QStringLiteral("ZVXLocalization: no texts for %1, English ones instead")
                       .arg(locale.name()));
    }

    QMutex m_mutex;
    std::optional<QLocale> m_chosen;
    QTranslator m_locale;
    QTranslator m_english;
    bool m_localeLoaded = false;
};

LibraryTable &libraryTable()
{
    static LibraryTable table;
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

QString localizeString(const QString &key, const QString &hostText)
{
    if (const QString host = hostString(key); host != key)
        return host;
    if (const QString host = hostString(hostText); host != hostText)
        return host;
    return libraryString(key);
}

} // namespace ZVXLocalization
