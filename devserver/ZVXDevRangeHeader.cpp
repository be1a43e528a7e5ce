/*
    cpp-httplib 0.11 reads a request's Range header with std::regex before
    any hook of the server sees the request, and libstdc++'s std::regex
    recurses once per character it matches (GCC bug 86164): a header of
    8 KB, the longest cpp-httplib takes, costs each worker thread that
    reads one megabytes of stack, 300 MB for a burst of them. The library
    calls this function of its own through the dynamic linker, so the
    definition here, exported by the executable (CMakeLists.txt), takes its
    place: the same grammar and result, read in one pass.
*/

#include <httplib.h>

#include <cctype>
#include <cstdint>
#include <limits>

namespace httplib::detail {

namespace {

// Digits from \a at (none is fine): -1 for none, or false when they do not fit.
bool readNumber(const std::string &s, std::size_t &at, ssize_t &value)
{
    value = -1;
    while (at < s.size() && std::isdigit(static_cast<unsigned char>(s[at]))) {
        const int digit = s[at++] - '0';
        const ssize_t before = value < 0 ? 0 : value;
        if (before > (std::numeric_limits<ssize_t>::max() - digit) / 10)
            return false;
        value = before * 10 + digit;
    }
    return true;
}

} // namespace

// "bytes=" then ranges "first-last" (either may be missing) separated by commas, each but the
// first after optional white space; a range whose first byte comes after its last is refused.
__attribute__((visibility("default"))) bool parse_range_header(const std::string &s, Ranges &ranges)
{
    static const std::string unit = "bytes=";
    if (s.compare(0, unit.size(), unit) != 0)
        return false;
    Ranges found;
    std::size_t at = unit.size();
    for (;;) {
        if (!found.empty()) {
            while (at < s.size() && std::isspace(static_cast<unsigned char>(s[at])))
                ++at;
        }
        ssize_t first = -1, last = -1;
        if (!readNumber(s, at, first) || at >= s.size() || s[at] != '-')
            return false;
        ++at;
        if (!readNumber(s, at, last))
            return false;
        if (first != -1 && last != -1 && first > last)
            return false;
        found.emplace_back(first, last);
        if (at == s.size())
            break;
        if (s[at] != ',')
            return false;
        ++at;
    }
    ranges.insert(ranges.end(), found.begin(), found.end());
    return true;
}

} // namespace httplib::detail
