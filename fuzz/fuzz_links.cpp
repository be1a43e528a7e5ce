// Chat text, read as UTF-8 and as UTF-16, to the link detector.

#include "ZVXFuzz.h"
#include "ZVXLinkDetector.h"

#include <QString>

#include <algorithm>

ZVX_FUZZ_APPLICATION(ZVXFuzz::Application::Core)

namespace {

using Kind = ZVXLinkDetector::Kind;

void check(const QString &text)
{
    const QList<ZVXLinkDetector::Link> links = ZVXLinkDetector::detect(text);
    qsizetype previousEnd = 0;
    for (const ZVXLinkDetector::Link &link : links) {
        // In the text, in order, apart.
        ZVX_FUZZ_CHECK(link.start >= previousEnd && link.length > 0 && link.end() <= text.size());
        previousEnd = link.end();
        // Whole characters only.
        ZVX_FUZZ_CHECK(!text.at(link.start).isLowSurrogate());
        ZVX_FUZZ_CHECK(!text.at(link.end() - 1).isHighSurrogate());

        ZVX_FUZZ_CHECK(link.url.isValid());
        const QString scheme = link.url.scheme();
        const QStringView shown = QStringView(text).mid(link.start, link.length);
        switch (link.kind) {
        case Kind::Web:
            ZVX_FUZZ_CHECK(scheme == u"http" || scheme == u"https");
            ZVX_FUZZ_CHECK(!link.url.host().isEmpty());
            ZVX_FUZZ_CHECK(
                std::none_of(shown.begin(), shown.end(), [](QChar c) { return c.isSpace(); }));
            break;
        case Kind::Email:
            ZVX_FUZZ_CHECK(scheme == u"mailto" && shown.count(u'@') == 1);
            ZVX_FUZZ_CHECK(link.url.path(QUrl::FullyDecoded) == shown);
            break;
        case Kind::Phone: {
            ZVX_FUZZ_CHECK(scheme == u"tel");
            const qsizetype digits
                = std::count_if(shown.begin(), shown.end(), [](QChar c) { return c.isDigit(); });
            ZVX_FUZZ_CHECK(digits >= 7 && digits <= 15);
            break;
        }
        }
    }
    // Asking for one kind gives exactly the links of that kind.
    for (const Kind kind : {Kind::Web, Kind::Email, Kind::Phone}) {
        QList<ZVXLinkDetector::Link> expected;
        std::copy_if(links.begin(), links.end(), std::back_inserter(expected),
                     [kind](const ZVXLinkDetector::Link &link) { return link.kind == kind; });
        ZVX_FUZZ_CHECK(ZVXLinkDetector::detect(text, kind) == expected);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes = ZVXFuzz::view(data, size);
    check(QString::fromUtf8(bytes));
    check(QString(reinterpret_cast<const QChar *>(bytes.constData()), bytes.size() / 2));
    return 0;
}
