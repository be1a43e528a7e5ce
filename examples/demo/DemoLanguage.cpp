#include "DemoLanguage.h"

#include <QApplication>
#include <QLocale>
#include <QTranslator>

#include <cstdio>
#include <memory>

namespace {

std::unique_ptr<QTranslator> installed;
QString currentCode;

} // namespace

namespace DemoLanguage {

QStringList codes()
{
    return {QStringLiteral("en"), QStringLiteral("fr"), QStringLiteral("ar")};
}

QString nativeName(const QString &code)
{
    const QLocale locale(code);
    QString name = locale.nativeLanguageName();
    if (!name.isEmpty())
        name[0] = locale.toUpper(name.left(1)).at(0);
    return name;
}

bool apply(const QString &code)
{
    if (!codes().contains(code))
        return false;
    auto translator = std::make_unique<QTranslator>();
    if (!translator->load(QStringLiteral(":/demo/translations/demo_%1.qm").arg(code))) {
        std::fprintf(stderr, "zuvero-demo: the %s translation is missing from the build\n",
                     qPrintable(code));
        return false;
    }
    // The default locale first: the library reloads its texts for it when the translators
    // change, which sends every widget a LanguageChange.
    QLocale::setDefault(QLocale(code));
    QApplication::setLayoutDirection(QLocale(code).textDirection());
    if (installed)
        QCoreApplication::removeTranslator(installed.get());
    installed = std::move(translator);
    QCoreApplication::installTranslator(installed.get());
    currentCode = code;
    return true;
}

QString current()
{
    return currentCode;
}

} // namespace DemoLanguage
