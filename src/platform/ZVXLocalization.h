#pragma once

#include "zuvero_export.h"

#include <QString>

/*
    User-visible texts are looked up by key. The host's own table comes
    first: the translators it installed in its QCoreApplication, under the
    context "Localizable". The library's table "ZuveroLocalizable" comes
    second; it ships as Qt translations in ":/Zuvero.bundle/translations"
    (English is always there) and is chosen by the default QLocale's UI
    languages, looked at again whenever that locale changes. A key found in
    neither comes back as itself.
*/
namespace ZVXLocalization {

inline constexpr char HostContext[] = "Localizable";
inline constexpr char LibraryContext[] = "ZuveroLocalizable";

//! The host's translation of \a key, or \a key itself.
ZUVERO_EXPORT QString hostString(const QString &key);

//! The host's translation of \a key, else the library's, else \a key itself.
ZUVERO_EXPORT QString localizeString(const QString &key);

/*!
    For texts that hosts translate by their English wording (\a hostText,
    "Error" say): the host's translation of \a key, else its translation of
    \a hostText, else the library's translation of \a key.
*/
ZUVERO_EXPORT QString localizeString(const QString &key, const QString &hostText);

//! The library's own translation of \a key, or \a key itself.
ZUVERO_EXPORT QString libraryString(const QString &key);

} // namespace ZVXLocalization
