#pragma once

#include "zuvero_export.h"

#include <QList>
#include <QStringView>
#include <QUrl>

/*!
    Finds what a reader would tap in a chat message: web addresses, mail
    addresses and telephone numbers. Pure and thread-safe.

    What counts:
    \list
    \li \c http:// and \c https:// addresses, with any host QUrl accepts;
    \li \c www.-prefixed names ("www.example.com/a"), opened as https;
    \li bare names ("example.com/path") whose last label is a common
        top-level domain, all lower or all upper case. Endings that are
        also common file extensions (.md, .py, .rs, .sh, .pl, .cc, .so,
        .zip, .mov...) are not on that list: "readme.md" and "file.txt"
        stay text. "e.g." and version numbers have no such ending;
    \li mail addresses ("name@example.com"), but not inside a web address;
    \li telephone numbers of 7 to 15 ASCII digits in a shape people write
        them: international ("+33 1 23 45 67 89"), an area code in
        parentheses ("(555) 123-4567"), groups joined by hyphens
        ("555-123-4567", "555-1234"), spaces after a trunk zero or in a
        3-3-4 shape ("020 7946 0958", "555 123 4567"), or dots in a 3-3-4
        or two-digit shape ("555.123.4567", "01.23.45.67.89"). Dates,
        times, versions, IP addresses and runs of digits without
        separators ("order 1234567") are not numbers to call.
    \endlist

    An address ends before trailing punctuation (.,;:!?*' and quotes) and
    before a closing bracket it did not open, so "(see example.com/a_(b))."
    links "example.com/a_(b)". Text written without spaces (Han, Kana,
    Thai...) ends an address, so that "访问example.com了解" links
    "example.com". Ranges never overlap: a web address takes precedence
    over a mail address, which takes precedence over a bare name, which
    takes precedence over a telephone number.
*/
class ZUVERO_EXPORT ZVXLinkDetector
{
public:
    enum class Kind { Web = 0x1, Email = 0x2, Phone = 0x4 };
    Q_DECLARE_FLAGS(Kinds, Kind)
    static constexpr Kinds AllKinds{Kind::Web, Kind::Email, Kind::Phone};

    //! One link: a range of the text, in UTF-16 units, and what to open.
    struct Link
    {
        qsizetype start = 0;
        qsizetype length = 0;
        Kind kind = Kind::Web;
        //! https://..., mailto:..., or tel: with digits and a leading +.
        QUrl url;

        qsizetype end() const { return start + length; }
        friend bool operator==(const Link &, const Link &) = default;
    };

    //! The links of \a text of the \a kinds asked for, in text order.
    static QList<Link> detect(QStringView text, Kinds kinds = AllKinds);
};

Q_DECLARE_OPERATORS_FOR_FLAGS(ZVXLinkDetector::Kinds)
