#pragma once

#include "ZVXLinkDetector.h"

#include <QColor>
#include <QFont>
#include <QRectF>
#include <QSizeF>
#include <QString>

#include <memory>
#include <optional>
#include <utility>

class QPainter;
class QTextLayout;

/*!
    A paragraph of chat text laid out for painting without widgets (item
    delegates paint message cells with it): the links the detector finds
    are underlined in the link colour, lines wrap at the width, at most the
    maximum number of lines is shown and the last shown line then ends in
    "…". The text's first strong character sets its direction; right-to-
    left text is aligned to the right of the width, mixed text is ordered
    by Qt's bidi algorithm, and every link reads left to right as a unit
    (so "+33 1 23 45 67 89" in Arabic text keeps its order).

    Coordinates are relative to the layout's top-left corner, the point
    given to draw(). Lays out lazily, again only after a change. Copies are
    independent. Main thread only (fonts).
*/
class ZUVERO_EXPORT ZVXTextLayout
{
public:
    ZVXTextLayout();
    ZVXTextLayout(const ZVXTextLayout &other);
    ZVXTextLayout &operator=(const ZVXTextLayout &other);
    ~ZVXTextLayout();

    QString text() const { return m_text; }
    //! Sets the text and finds its links; "\n" breaks lines.
    void setText(const QString &text);
    ZVXLinkDetector::Kinds linkKinds() const { return m_linkKinds; }
    void setLinkKinds(ZVXLinkDetector::Kinds kinds);

    QFont font() const { return m_font; }
    void setFont(const QFont &font);
    QColor textColor() const { return m_textColor; }
    void setTextColor(const QColor &color) { m_textColor = color; }
    QColor linkColor() const { return m_linkColor; }
    void setLinkColor(const QColor &color);

    //! The width lines wrap at and align in; 0 or less: no wrapping.
    qreal width() const { return m_width; }
    void setWidth(qreal width);
    //! 0: as many lines as the text needs.
    int maximumLineCount() const { return m_maximumLineCount; }
    void setMaximumLineCount(int count);

    Qt::LayoutDirection textDirection() const;

    //! The size the shown lines take: the widest line's width and their height, rounded up.
    QSizeF size() const;
    int lineCount() const;
    //! Whether text was left out to keep to the maximum line count.
    bool isTruncated() const;
    //! The text as shown: cut short and ended with "…" when truncated.
    QString shownText() const;

    //! Every link found, in text order (also those truncation hides).
    QList<ZVXLinkDetector::Link> links() const { return m_links; }
    //! The index in links() of the link drawn under \a point, if any.
    std::optional<int> linkAt(const QPointF &point) const;
    //! The rectangles the shown part of link \a index covers, one per line.
    QList<QRectF> linkRects(int index) const;

    //! Paints the shown lines with their top-left corner at \a position.
    void draw(QPainter *painter, const QPointF &position) const;

private:
    void invalidate();
    // Where the marks that open link \a index are in the laid-out text.
    qsizetype openingMarksAt(int index) const;
    // Where link \a index is in the laid-out text, as far as it is shown.
    std::pair<qsizetype, qsizetype> shownRange(int index) const;
    void ensureLayout() const;
    bool placesAllText() const;
    void layOut(const QString &shown) const;

    QString m_text;
    ZVXLinkDetector::Kinds m_linkKinds = ZVXLinkDetector::AllKinds;
    QList<ZVXLinkDetector::Link> m_links;
    QFont m_font;
    QColor m_textColor = Qt::black;
    QColor m_linkColor = QColor(0x0b, 0x57, 0xd0);
    qreal m_width = 0;
    int m_maximumLineCount = 0;

    // The laid-out state, made on demand.
    mutable std::unique_ptr<QTextLayout> m_layout;
    mutable bool m_truncated = false;
    // Of the laid-out text, which has marks around the links; the ellipsis not included.
    mutable qsizetype m_shownLength = 0;
    mutable QSizeF m_size;
};
