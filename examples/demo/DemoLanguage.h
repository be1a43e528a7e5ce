#pragma once

#include <QString>
#include <QStringList>

/*
    The demo's languages, switched while it runs: its own texts come from
    its translations, the library's follow the default locale, and the
    layout turns right-to-left for Arabic.
*/
namespace DemoLanguage {

//! "en", "fr", "ar".
QStringList codes();
//! The language's name in that language, as a language menu shows it.
QString nativeName(const QString &code);
//! Switches to \a code; false (nothing changed) for a language the demo does not have.
bool apply(const QString &code);
QString current();

} // namespace DemoLanguage
