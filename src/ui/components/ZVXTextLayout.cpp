#include "ZVXTextLayout.h"

#include <QFontMetricsF>
#include <QPainter>
#include <QTextBoundaryFinder>
#include <QTextLayout>

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

constexpr QChar Ellipsis(0x2026);
// Links are laid out in isolates of their own: an address or a number reads left to right
// whatever the text around it, and Arabic in a path stays after the host.
constexpr QStringView OpeningMarks = u"\u2066"; // left-to-right isolate
constexpr QStringView ClosingMarks = u"\u2069"; // pop directional isolate
constexpr qsizetype MarksPerLink = OpeningMarks.size() + ClosingMarks.size();
// A width for lines that do not wrap; QTextLine keeps widths in 26.6 fixed point.
constexpr qreal UnlimitedWidth = 1e6;

// QTextLayout breaks lines only at U+2028. Same length, so the links' ranges stay put.
QString prepared(const QString &text)
{
    QString result = text;
    for (qsizetype i = 0; i < result.size(); ++i) {
        if (result[i] == u'\n')
            result[i] = QChar::LineSeparator;
        else if (result[i] == u'\r')
            result[i] = i + 1 < result.size() && result[i + 1] == u'\n' ? QChar(0x200b)
                                                                        : QChar::LineSeparator;
    }
    return result;
}

} // namespace

ZVXTextLayout::ZVXTextLayout() = default;
ZVXTextLayout::~ZVXTextLayout() = default;

ZVXTextLayout::ZVXTextLayout(const ZVXTextLayout &other)
    : m_text(other.m_text)
    , m_linkKinds(other.m_linkKinds)
    , m_links(other.m_links)
    , m_font(other.m_font)
    , m_textColor(other.m_textColor)
    , m_linkColor(other.m_linkColor)
    , m_width(other.m_width)
    , m_maximumLineCount(other.m_maximumLineCount)
{ }

ZVXTextLayout &ZVXTextLayout::operator=(const ZVXTextLayout &other)
{
    if (this != &other) {
        ZVXTextLayout copy(other);
        std::swap(m_text, copy.m_text);
        m_linkKinds = copy.m_linkKinds;
        std::swap(m_links, copy.m_links);
        m_font = copy.m_font;
        m_textColor = copy.m_textColor;
        m_linkColor = copy.m_linkColor;
        m_width = copy.m_width;
        m_maximumLineCount = copy.m_maximumLineCount;
        invalidate();
    }
    return *this;
}

void ZVXTextLayout::setText(const QString &text)
{
    m_text = text;
    m_links = ZVXLinkDetector::detect(m_text, m_linkKinds);
    invalidate();
}

void ZVXTextLayout::setLinkKinds(ZVXLinkDetector::Kinds kinds)
{
    if (kinds == m_linkKinds)
        return;
    m_linkKinds = kinds;
    setText(m_text);
}

void ZVXTextLayout::setFont(const QFont &font)
{
    m_font = font;
    invalidate();
}

void ZVXTextLayout::setLinkColor(const QColor &color)
{
    // The colour is part of the layout's formats.
    m_linkColor = color;
    invalidate();
}

void ZVXTextLayout::setWidth(qreal width)
{
    width = std::max<qreal>(width, 0);
    if (width == m_width)
        return;
    m_width = width;
    invalidate();
}

void ZVXTextLayout::setMaximumLineCount(int count)
{
    count = std::max(count, 0);
    if (count == m_maximumLineCount)
        return;
    m_maximumLineCount = count;
    invalidate();
}

Qt::LayoutDirection ZVXTextLayout::textDirection() const
{
    return m_text.isRightToLeft() ? Qt::RightToLeft : Qt::LeftToRight;
}

QSizeF ZVXTextLayout::size() const
{
    ensureLayout();
    return m_size;
}

int ZVXTextLayout::lineCount() const
{
    ensureLayout();
    return m_layout->lineCount();
}

bool ZVXTextLayout::isTruncated() const
{
    ensureLayout();
    return m_truncated;
}

QString ZVXTextLayout::shownText() const
{
    ensureLayout();
    if (!m_truncated)
        return m_text;
    // The shown length counts the links' marks; the text has none.
    qsizetype marks = 0;
    for (int index = 0; index < m_links.size(); ++index) {
        const qsizetype opening = openingMarksAt(index);
        const qsizetype closing = opening + OpeningMarks.size() + m_links.at(index).length;
        marks += std::clamp(m_shownLength - opening, qsizetype(0), OpeningMarks.size())
            + std::clamp(m_shownLength - closing, qsizetype(0), ClosingMarks.size());
    }
    return m_text.left(m_shownLength - marks) + Ellipsis;
}

void ZVXTextLayout::invalidate()
{
    m_layout.reset();
}

qsizetype ZVXTextLayout::openingMarksAt(int index) const
{
    // After the text before link \a index and the marks of every link before it.
    return m_links.at(index).start + MarksPerLink * index;
}

std::pair<qsizetype, qsizetype> ZVXTextLayout::shownRange(int index) const
{
    const qsizetype start = openingMarksAt(index) + OpeningMarks.size();
    return {std::min(start, m_shownLength),
            std::min(start + m_links.at(index).length, m_shownLength)};
}

void ZVXTextLayout::ensureLayout() const
{
    if (m_layout)
        return;
    const QString text = prepared(m_text);
    QString display;
    display.reserve(text.size() + MarksPerLink * m_links.size());
    qsizetype copied = 0;
    for (const ZVXLinkDetector::Link &link : std::as_const(m_links)) {
        display += QStringView(text).mid(copied, link.start - copied);
        display += OpeningMarks;
        display += QStringView(text).mid(link.start, link.length);
        display += ClosingMarks;
        copied = link.end();
    }
    display += QStringView(text).mid(copied);

    m_truncated = false;
    m_shownLength = display.size();
    layOut(display);
    if (m_maximumLineCount <= 0 || m_layout->lineCount() < m_maximumLineCount || placesAllText())
        return;
    const QTextLine last = m_layout->lineAt(m_layout->lineCount() - 1);

    // The last shown line keeps what fits of its paragraph before an ellipsis.
    const qsizetype start = last.textStart();
    qsizetype paragraphEnd = display.indexOf(QChar::LineSeparator, start);
    if (paragraphEnd < 0)
        paragraphEnd = display.size();
    const QString paragraph = display.mid(start, paragraphEnd - start);
    const QFontMetricsF metrics(m_font);
    const qreal available = m_width > 0 ? m_width : UnlimitedWidth;
    // Cut between grapheme clusters only; the widths grow with the prefix, so search.
    QList<qsizetype> cuts{0};
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, paragraph);
    for (qsizetype cut = finder.toNextBoundary(); cut > 0; cut = finder.toNextBoundary())
        cuts.append(cut);
    const auto fits = [&](qsizetype cut) {
        return metrics.horizontalAdvance(paragraph.left(cut) + Ellipsis) <= available;
    };
    qsizetype candidate = std::partition_point(cuts.cbegin(), cuts.cend(), fits) - cuts.cbegin();
    m_truncated = true;
    // The layout may shape the line a little wider than the metrics measured: then the ellipsis
    // would wrap out of sight, and a shorter start is tried.
    do {
        candidate = std::max<qsizetype>(candidate - 1, 0);
        qsizetype keep = cuts.at(candidate);
        while (keep > 0 && paragraph.at(keep - 1).isSpace())
            --keep;
        m_shownLength = start + keep;
        QString shown = display.left(m_shownLength);
        // A link cut short is closed, so that the ellipsis follows the text's direction.
        for (int index = 0; index < m_links.size(); ++index) {
            const qsizetype closing
                = openingMarksAt(index) + OpeningMarks.size() + m_links.at(index).length;
            if (openingMarksAt(index) < m_shownLength
                && m_shownLength < closing + ClosingMarks.size())
                shown += ClosingMarks.mid(std::max<qsizetype>(0, m_shownLength - closing));
        }
        layOut(shown + Ellipsis);
    } while (candidate > 0 && !placesAllText());
}

bool ZVXTextLayout::placesAllText() const
{
    const QTextLine last = m_layout->lineAt(m_layout->lineCount() - 1);
    return last.textStart() + last.textLength() >= m_layout->text().size();
}

void ZVXTextLayout::layOut(const QString &shown) const
{
    m_layout = std::make_unique<QTextLayout>(shown, m_font);
    QTextOption option;
    option.setWrapMode(m_width > 0 ? QTextOption::WrapAtWordBoundaryOrAnywhere
                                   : QTextOption::NoWrap);
    const Qt::LayoutDirection direction = textDirection();
    option.setTextDirection(direction);
    // Lines are placed by hand below, within the width or the widest line.
    option.setAlignment(Qt::AlignLeft | Qt::AlignAbsolute);
    m_layout->setTextOption(option);

    QTextCharFormat linkFormat;
    linkFormat.setForeground(m_linkColor);
    linkFormat.setFontUnderline(true);
    QList<QTextLayout::FormatRange> formats;
    for (int index = 0; index < m_links.size(); ++index) {
        const auto [start, end] = shownRange(index);
        if (start < end)
            formats.append({int(start), int(end - start), linkFormat});
    }
    m_layout->setFormats(formats);
    m_layout->setCacheEnabled(true);

    m_layout->beginLayout();
    qreal y = 0;
    qreal widest = 0;
    while (m_maximumLineCount <= 0 || m_layout->lineCount() < m_maximumLineCount) {
        QTextLine line = m_layout->createLine();
        if (!line.isValid())
            break;
        line.setLineWidth(m_width > 0 ? m_width : UnlimitedWidth);
        line.setPosition(QPointF(0, y));
        y += line.height();
        widest = std::max(widest, line.naturalTextWidth());
    }
    m_layout->endLayout();

    if (direction == Qt::RightToLeft) {
        const qreal box = m_width > 0 ? m_width : widest;
        for (int i = 0; i < m_layout->lineCount(); ++i) {
            QTextLine line = m_layout->lineAt(i);
            line.setPosition(QPointF(box - line.naturalTextWidth(), line.y()));
        }
    }
    m_size = QSizeF(std::ceil(widest), std::ceil(y));
}

std::optional<int> ZVXTextLayout::linkAt(const QPointF &point) const
{
    ensureLayout();
    for (int i = 0; i < m_layout->lineCount(); ++i) {
        const QTextLine line = m_layout->lineAt(i);
        if (!line.naturalTextRect().contains(point))
            continue;
        const int position = line.xToCursor(point.x(), QTextLine::CursorOnCharacter);
        for (int index = 0; index < m_links.size(); ++index) {
            const auto [start, end] = shownRange(index);
            if (position >= start && position < end)
                return index;
        }
        return std::nullopt;
    }
    return std::nullopt;
}

QList<QRectF> ZVXTextLayout::linkRects(int index) const
{
    QList<QRectF> rects;
    if (index < 0 || index >= m_links.size())
        return rects;
    ensureLayout();
    const auto [start, end] = shownRange(index);
    for (int i = 0; i < m_layout->lineCount(); ++i) {
        const QTextLine line = m_layout->lineAt(i);
        const qsizetype from = std::max<qsizetype>(start, line.textStart());
        const qsizetype to = std::min<qsizetype>(end, line.textStart() + line.textLength());
        if (from >= to)
            continue;
        // Glyph runs, not cursor positions: a right-to-left run inside a link starts at its right.
        qreal left = std::numeric_limits<qreal>::max();
        qreal right = std::numeric_limits<qreal>::lowest();
        for (const QGlyphRun &run : line.glyphRuns(int(from), int(to - from))) {
            const QRectF bounds = run.boundingRect();
            left = std::min(left, bounds.left());
            right = std::max(right, bounds.right());
        }
        if (left < right)
            rects.append(QRectF(left, line.y(), right - left, line.height()));
    }
    return rects;
}

void ZVXTextLayout::draw(QPainter *painter, const QPointF &position) const
{
    ensureLayout();
    painter->save();
    painter->setPen(m_textColor);
    m_layout->draw(painter, position);
    painter->restore();
}
