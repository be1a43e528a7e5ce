#include "ZVXLinkDetector.h"

#include <QString>

#include <algorithm>
#include <iterator>
#include <string_view>
#include <vector>

namespace {

using Link = ZVXLinkDetector::Link;
using Kind = ZVXLinkDetector::Kind;

// Longer runs are not addresses anyone types; the cap also keeps the scan linear.
constexpr qsizetype MaximumUrlLength = 4096;
constexpr qsizetype MaximumLocalPartLength = 64;
constexpr qsizetype MaximumDomainLength = 253;
constexpr qsizetype MaximumLabelLength = 63;
constexpr int MinimumPhoneDigits = 7;
constexpr int MaximumPhoneDigits = 15; // E.164

// Sorted, for binary search. See the header for why some country codes are missing.
constexpr std::string_view BareTopLevelDomains[] = {
    "ae",   "africa", "ai",   "app",  "ar",   "at",    "au",      "be",    "bg",     "biz",
    "blog", "br",     "ca",   "cat",  "ch",   "chat",  "cl",      "cloud", "cn",     "co",
    "com",  "cz",     "de",   "dev",  "dk",   "edu",   "ee",      "eg",    "email",  "es",
    "eu",   "fi",     "fm",   "fr",   "gg",   "gov",   "gr",      "help",  "hk",     "hr",
    "hu",   "ie",     "il",   "in",   "info", "io",    "ir",      "it",    "jp",     "ke",
    "kr",   "kz",     "live", "lt",   "lu",   "lv",    "ly",      "ma",    "me",     "mil",
    "mx",   "my",     "name", "net",  "news", "ng",    "nl",      "nz",    "online", "org",
    "page", "pe",     "ph",   "pk",   "pro",  "pt",    "qa",      "ro",    "ru",     "sa",
    "se",   "sg",     "shop", "site", "sk",   "store", "support", "tech",  "th",     "tn",
    "tr",   "tv",     "tw",   "ua",   "uk",   "us",    "uy",      "vn",    "xyz",    "za",
};
static_assert(std::is_sorted(std::begin(BareTopLevelDomains), std::end(BareTopLevelDomains)));

bool isAsciiLetter(char16_t c)
{
    return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z');
}

bool isAsciiDigit(char16_t c)
{
    return c >= u'0' && c <= u'9';
}

bool isAsciiAlnum(char16_t c)
{
    return isAsciiLetter(c) || isAsciiDigit(c);
}

bool isOneOf(char16_t c, std::u16string_view set)
{
    return set.find(c) != std::u16string_view::npos;
}

// Scripts written without spaces between words: an address cannot tell where it ends in them.
bool isWrittenWithoutSpaces(char32_t codePoint)
{
    switch (QChar::script(codePoint)) {
    case QChar::Script_Han:
    case QChar::Script_Hiragana:
    case QChar::Script_Katakana:
    case QChar::Script_Bopomofo:
    case QChar::Script_Thai:
    case QChar::Script_Lao:
    case QChar::Script_Khmer:
    case QChar::Script_Myanmar:
        return true;
    default:
        return false;
    }
}

class Scanner
{
public:
    explicit Scanner(QStringView text)
        : m_text(text)
        , m_taken(size_t(text.size()), false)
    { }

    void scanWebAddresses();
    void scanMailAddresses();
    void scanNames();
    void scanPhoneNumbers();

    QList<Link> links(ZVXLinkDetector::Kinds kinds) const
    {
        QList<Link> links;
        for (const Link &link : m_links) {
            if (kinds.testFlag(link.kind))
                links.append(link);
        }
        std::sort(links.begin(), links.end(),
                  [](const Link &a, const Link &b) { return a.start < b.start; });
        return links;
    }

private:
    char16_t at(qsizetype i) const
    {
        return i >= 0 && i < m_text.size() ? m_text[i].unicode() : char16_t(0);
    }
    // The code point at \a i and the units it takes (0 at the end).
    char32_t codePointAt(qsizetype i, qsizetype *width) const;
    bool isHostCharacter(qsizetype i, qsizetype *width) const;
    bool isUrlCharacter(qsizetype i, qsizetype *width) const;

    bool isTaken(qsizetype start, qsizetype end) const
    {
        return std::any_of(m_taken.begin() + start, m_taken.begin() + end,
                           [](bool b) { return b; });
    }
    void accept(qsizetype start, qsizetype end, Kind kind, const QUrl &url)
    {
        std::fill(m_taken.begin() + start, m_taken.begin() + end, true);
        m_links.push_back({start, end - start, kind, url});
    }

    qsizetype consumeUrlCharacters(qsizetype from, qsizetype limit) const;
    qsizetype trimEnd(qsizetype start, qsizetype end, qsizetype minimumEnd) const;
    // Dot-separated ASCII labels from \a from; their end (== from when none) and last label's
    // start.
    qsizetype consumeLabels(qsizetype from, qsizetype *lastLabel, int *labelCount) const;
    static bool isPhoneShape(const std::vector<int> &groups, std::u16string_view separators,
                             bool international, bool areaCode, bool trunkZero);

    QStringView m_text;
    std::vector<bool> m_taken;
    std::vector<Link> m_links;
};

char32_t Scanner::codePointAt(qsizetype i, qsizetype *width) const
{
    if (i >= m_text.size()) {
        *width = 0;
        return 0;
    }
    const QChar c = m_text[i];
    if (c.isHighSurrogate() && i + 1 < m_text.size() && m_text[i + 1].isLowSurrogate()) {
        *width = 2;
        return QChar::surrogateToUcs4(c, m_text[i + 1]);
    }
    *width = 1;
    return c.unicode();
}

bool Scanner::isHostCharacter(qsizetype i, qsizetype *width) const
{
    const char32_t c = codePointAt(i, width);
    if (c < 0x80)
        return c && (isAsciiAlnum(char16_t(c)) || c == u'-' || c == u'.');
    // Internationalised names: letters, digits and marks of scripts that use spaces.
    return (QChar::isLetterOrNumber(c) || QChar::isMark(c)) && !isWrittenWithoutSpaces(c);
}

bool Scanner::isUrlCharacter(qsizetype i, qsizetype *width) const
{
    const char32_t c = codePointAt(i, width);
    if (c < 0x80)
        return c && (isAsciiAlnum(char16_t(c)) || isOneOf(char16_t(c), u"-._~:/?#[]@!$&'()*+,;=%"));
    return (QChar::isLetterOrNumber(c) || QChar::isMark(c)) && !isWrittenWithoutSpaces(c);
}

qsizetype Scanner::consumeUrlCharacters(qsizetype from, qsizetype limit) const
{
    qsizetype i = from;
    qsizetype width = 0;
    while (i < limit && isUrlCharacter(i, &width))
        i += width;
    return std::min(i, limit);
}

qsizetype Scanner::trimEnd(qsizetype start, qsizetype end, qsizetype minimumEnd) const
{
    const auto count = [&](char16_t c) {
        return std::count(m_text.begin() + start, m_text.begin() + end, QChar(c));
    };
    while (end > minimumEnd) {
        const char16_t last = at(end - 1);
        if (isOneOf(last, u".,;:!?*'\"")) {
            --end;
            continue;
        }
        // A closing bracket belongs to the address only when the address opened it (Wikipedia).
        const char16_t open = last == u')' ? u'(' : last == u']' ? u'[' : last == u'}' ? u'{' : 0;
        if (open && count(last) > count(open)) {
            --end;
            continue;
        }
        break;
    }
    return end;
}

qsizetype Scanner::consumeLabels(qsizetype from, qsizetype *lastLabel, int *labelCount) const
{
    qsizetype i = from;
    qsizetype end = from;
    *labelCount = 0;
    *lastLabel = from;
    while (i - from <= MaximumDomainLength) {
        qsizetype label = i;
        while (isAsciiAlnum(at(i)) || at(i) == u'-')
            ++i;
        const qsizetype length = i - label;
        if (length == 0 || length > MaximumLabelLength || at(label) == u'-' || at(i - 1) == u'-')
            break;
        end = i;
        *lastLabel = label;
        ++*labelCount;
        if (at(i) != u'.' || !isAsciiAlnum(at(i + 1)))
            break;
        ++i;
    }
    return end;
}

void Scanner::scanWebAddresses()
{
    for (qsizetype i = 0; i < m_text.size(); ++i) {
        const char16_t c = at(i);
        if ((c != u'h' && c != u'H') || isAsciiAlnum(at(i - 1)))
            continue;
        qsizetype hostStart = 0;
        if (m_text.mid(i).startsWith(u"http://", Qt::CaseInsensitive))
            hostStart = i + 7;
        else if (m_text.mid(i).startsWith(u"https://", Qt::CaseInsensitive))
            hostStart = i + 8;
        else
            continue;
        qsizetype width = 0;
        if (!isHostCharacter(hostStart, &width) || at(hostStart) == u'.' || at(hostStart) == u'-') {
            // An IPv6 literal is the one host that starts otherwise.
            if (at(hostStart) != u'[')
                continue;
        }
        const qsizetype limit = std::min(m_text.size(), i + MaximumUrlLength);
        const qsizetype run = consumeUrlCharacters(hostStart, limit);
        const qsizetype end = trimEnd(i, run, hostStart + 1);
        const QUrl url(m_text.mid(i, end - i).toString(), QUrl::TolerantMode);
        if (url.isValid() && !url.host().isEmpty())
            accept(i, end, Kind::Web, url);
        // Nothing in the run starts another address.
        i = run - 1;
    }
}

void Scanner::scanMailAddresses()
{
    for (qsizetype sign = 0; sign < m_text.size(); ++sign) {
        if (at(sign) != u'@')
            continue;
        qsizetype start = sign;
        while (start > 0 && sign - start <= MaximumLocalPartLength
               && (isAsciiAlnum(at(start - 1)) || isOneOf(at(start - 1), u"._+-")))
            --start;
        while (start < sign && at(start) == u'.')
            ++start;
        if (start == sign || sign - start > MaximumLocalPartLength || at(sign - 1) == u'.'
            || at(start - 1) == u'@' || m_text.mid(start, sign - start).contains(u".."))
            continue;
        qsizetype lastLabel = 0;
        int labels = 0;
        const qsizetype end = consumeLabels(sign + 1, &lastLabel, &labels);
        if (labels < 2 || end - lastLabel < 2
            || !std::all_of(m_text.begin() + lastLabel, m_text.begin() + end,
                            [](QChar c) { return isAsciiLetter(c.unicode()); }))
            continue;
        if (isAsciiAlnum(at(end)) || isOneOf(at(end), u"@-_") || isTaken(start, end))
            continue;
        const QUrl url(QStringLiteral("mailto:") + m_text.mid(start, end - start).toString());
        if (url.isValid())
            accept(start, end, Kind::Email, url);
        sign = end - 1;
    }
}

void Scanner::scanNames()
{
    for (qsizetype i = 0; i < m_text.size(); ++i) {
        if (!isAsciiAlnum(at(i)))
            continue;
        // Only at the start of a word: not inside a path, a number, an address or a file name.
        const char16_t before = at(i - 1);
        if (isAsciiAlnum(before) || isOneOf(before, u"-_.@/\\:%+=&#~$")
            || QChar::category(before) == QChar::Symbol_Currency)
            continue;
        const qsizetype start = i;
        qsizetype runEnd = start;
        while (isAsciiAlnum(at(runEnd)) || at(runEnd) == u'-' || at(runEnd) == u'.')
            ++runEnd;
        // Nothing inside this run starts a name, whatever becomes of it.
        i = runEnd - 1;

        qsizetype lastLabel = 0;
        int labels = 0;
        const qsizetype domainEnd = consumeLabels(start, &lastLabel, &labels);
        if (labels < 2)
            continue;
        const QStringView tld = m_text.mid(lastLabel, domainEnd - lastLabel);
        const bool lower = std::all_of(tld.begin(), tld.end(), [](QChar c) {
            return c.unicode() >= u'a' && c.unicode() <= u'z';
        });
        const bool upper = std::all_of(tld.begin(), tld.end(), [](QChar c) {
            return c.unicode() >= u'A' && c.unicode() <= u'Z';
        });
        if (!lower && !upper)
            continue;
        const bool www
            = labels >= 3 && m_text.mid(start, 4).compare(u"www.", Qt::CaseInsensitive) == 0;
        if (!www) {
            const QByteArray ending = tld.toLatin1().toLower();
            if (!std::binary_search(std::begin(BareTopLevelDomains), std::end(BareTopLevelDomains),
                                    std::string_view(ending.constData(), size_t(ending.size()))))
                continue;
        }

        qsizetype end = domainEnd;
        if (at(end) == u':' && isAsciiDigit(at(end + 1))) {
            qsizetype port = end + 1;
            while (isAsciiDigit(at(port)))
                ++port;
            if (port - end - 1 <= 5 && !isAsciiAlnum(at(port)))
                end = port;
        }
        if (isOneOf(at(end), u"/?#")) {
            const qsizetype limit = std::min(m_text.size(), start + MaximumUrlLength);
            end = trimEnd(start, consumeUrlCharacters(end, limit), domainEnd);
        }
        if (isAsciiAlnum(at(end)) || isOneOf(at(end), u"@_-") || isTaken(start, end))
            continue;
        const QUrl url(QStringLiteral("https://") + m_text.mid(start, end - start).toString(),
                       QUrl::TolerantMode);
        if (!url.isValid() || url.host().isEmpty())
            continue;
        accept(start, end, Kind::Web, url);
        i = std::max(i, end - 1);
    }
}

bool Scanner::isPhoneShape(const std::vector<int> &groups, std::u16string_view separators,
                           bool international, bool areaCode, bool trunkZero)
{
    if (international)
        return true;
    if (groups.size() < 2)
        return false; // a plain number: an order, an amount, a time stamp
    const auto largest = *std::max_element(groups.begin(), groups.end());
    if (areaCode)
        return *std::max_element(groups.begin() + 1, groups.end()) <= 4;
    const auto all = [&](char16_t s) {
        return std::all_of(separators.begin(), separators.end(),
                           [s](char16_t c) { return c == s; });
    };
    const auto shape = [&](std::initializer_list<int> sizes) {
        return std::equal(groups.begin(), groups.end(), sizes.begin(), sizes.end());
    };
    if (all(u'.')) {
        // Versions, addresses and dates use dots too; only the usual telephone shapes pass.
        return shape({3, 3, 4})
            || (trunkZero && groups.size() >= 4
                && std::all_of(groups.begin(), groups.end(), [](int g) { return g == 2; }));
    }
    if (separators.find(u'.') != std::u16string_view::npos)
        return false;
    if (all(u' '))
        return trunkZero ? largest <= 6 : shape({3, 3, 4});
    // Hyphens, perhaps with spaces.
    const int firstLimit = trunkZero ? 5 : 4;
    if (groups.front() > firstLimit || *std::max_element(groups.begin() + 1, groups.end()) > 4)
        return false;
    if (groups.size() == 3
        && ((groups[0] == 4 && groups[1] <= 2 && groups[2] <= 2)
            || (groups[0] <= 2 && groups[1] <= 2 && groups[2] == 4)))
        return false; // 2026-11-23, 23-11-2026
    return !shape({4, 4}); // 2020-2021
}

void Scanner::scanPhoneNumbers()
{
    for (qsizetype i = 0; i < m_text.size(); ++i) {
        const char16_t c = at(i);
        if (!isAsciiDigit(c) && c != u'+' && c != u'(')
            continue;
        const char16_t before = at(i - 1);
        if (isAsciiAlnum(before) || isOneOf(before, u".,-/+_:#@$%&=(")
            || QChar::category(before) == QChar::Symbol_Currency)
            continue;

        qsizetype p = i;
        const bool international = c == u'+';
        if (international)
            ++p;
        if (!isAsciiDigit(at(p)) && at(p) != u'(')
            continue;
        std::vector<int> groups;
        std::u16string separators;
        QString digits;
        bool areaCode = false;
        bool tooLong = false;
        qsizetype end = p;
        for (;;) {
            bool parenthesised = false;
            qsizetype q = p;
            if (at(p) == u'(') {
                q = p + 1;
                while (isAsciiDigit(at(q)) && q - p <= 5)
                    ++q;
                if (q == p + 1 || at(q) != u')')
                    break;
                parenthesised = true;
                areaCode = areaCode || groups.empty();
                digits += m_text.mid(p + 1, q - p - 1);
                groups.push_back(int(q - p - 1));
                ++q;
            } else if (isAsciiDigit(at(p))) {
                while (isAsciiDigit(at(q)))
                    ++q;
                digits += m_text.mid(p, q - p);
                groups.push_back(int(q - p));
            } else {
                break;
            }
            end = p = q;
            if (digits.size() > MaximumPhoneDigits) {
                tooLong = true;
                break;
            }
            const char16_t separator = at(p);
            const bool groupFollows = isAsciiDigit(at(p + 1)) || at(p + 1) == u'(';
            if (isOneOf(separator, u" -.") && groupFollows) {
                separators.push_back(separator);
                ++p;
            } else if (parenthesised && isAsciiDigit(separator)) {
                separators.push_back(u' '); // "(555)123-4567"
            } else {
                break;
            }
        }
        if (tooLong || groups.empty() || digits.size() < MinimumPhoneDigits)
            continue;
        // Part of something longer: a word, a decimal, a time, a date, a percentage.
        const char16_t after = at(end);
        if (isAsciiAlnum(after) || isOneOf(after, u"_@%")
            || (isOneOf(after, u".,:/-") && isAsciiDigit(at(end + 1))))
            continue;
        if (!isPhoneShape(groups, separators, international, areaCode, digits.front() == u'0')
            || isTaken(i, end))
            continue;
        const QUrl url(QStringLiteral("tel:") + (international ? QStringLiteral("+") : QString())
                       + digits);
        accept(i, end, Kind::Phone, url);
        i = end - 1;
    }
}

} // namespace

QList<ZVXLinkDetector::Link> ZVXLinkDetector::detect(QStringView text, Kinds kinds)
{
    if (!kinds || text.isEmpty())
        return {};
    // Every kind is scanned whatever is asked for: a number inside an address is not a number.
    Scanner scanner(text);
    scanner.scanWebAddresses();
    scanner.scanMailAddresses();
    scanner.scanNames();
    scanner.scanPhoneNumbers();
    return scanner.links(kinds);
}
