#include "ZVXTextLayout.h"

#include <QFontMetricsF>
#include <QGuiApplication>
#include <QPainter>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const QString LongText = u"Thanks for writing to us. An agent will answer in a few minutes; in the "
                         "meantime, the answers to common questions are at example.com/help and "
                         "you can write to help@example.com at any time."_s;
const QString Arabic = u"شكراً لتواصلك معنا، سيرد عليك أحد الموظفين قريباً"_s;

// The columns holding ink, when \a layout is drawn black on white at the origin.
std::pair<int, int> inkColumns(const ZVXTextLayout &layout, int width)
{
    QImage image(width, int(layout.size().height()) + 2, QImage::Format_RGB32);
    image.fill(Qt::white);
    QPainter painter(&image);
    layout.draw(&painter, QPointF(0, 0));
    painter.end();
    int left = width;
    int right = -1;
    for (int y = 0; y < image.height(); ++y) {
        const auto *row = reinterpret_cast<const QRgb *>(image.constScanLine(y));
        for (int x = 0; x < width; ++x) {
            if (qGray(row[x]) < 128) {
                left = std::min(left, x);
                right = std::max(right, x);
            }
        }
    }
    return {left, right};
}

// How much ink each column of \a layout's link \a index holds, from its first inked column, in
// bins a few pixels wide: a shape that subpixel placement hardly changes.
QList<int> linkInk(const ZVXTextLayout &layout, int index)
{
    constexpr int Bin = 6;
    QImage image(layout.size().toSize() + QSize(2, 2), QImage::Format_RGB32);
    image.fill(Qt::white);
    QPainter painter(&image);
    layout.draw(&painter, QPointF(0, 0));
    painter.end();
    const QRect area = layout.linkRects(index).first().toAlignedRect() & image.rect();
    QList<int> columns;
    for (int x = area.left(); x <= area.right(); ++x) {
        int ink = 0;
        for (int y = area.top(); y <= area.bottom(); ++y)
            ink += 255 - qGray(image.pixel(x, y));
        columns.append(ink);
    }
    while (!columns.isEmpty() && columns.first() == 0)
        columns.removeFirst();
    QList<int> bins;
    for (qsizetype x = 0; x < columns.size(); ++x) {
        if (x % Bin == 0)
            bins.append(0);
        bins.last() += columns[x];
    }
    return bins;
}

} // namespace

class TestTextLayout : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void truncation_data();
    void truncation();
    void cutInsideALink_data();
    void cutInsideALink();
    void hitTesting();
    void alignmentFollowsDirection_data();
    void alignmentFollowsDirection();
    void linksReadLeftToRight_data();
    void linksReadLeftToRight();
};

void TestTextLayout::truncation_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("width");
    QTest::addColumn<int>("maximumLines");
    QTest::addColumn<bool>("truncated");

    QTest::newRow("empty") << QString() << 300 << 1 << false;
    QTest::newRow("fits") << u"Short answer."_s << 300 << 2 << false;
    QTest::newRow("no limit") << LongText << 200 << 0 << false;
    QTest::newRow("two of many lines") << LongText << 200 << 2 << true;
    QTest::newRow("one line") << LongText << 200 << 1 << true;
    QTest::newRow("hidden paragraph") << u"First line\nsecond line"_s << 300 << 1 << true;
    QTest::newRow("paragraphs that fit") << u"First line\nsecond line"_s << 300 << 2 << false;
    QTest::newRow("right to left") << Arabic + u" "_s + Arabic << 150 << 2 << true;
    QTest::newRow("one word too long")
        << u"Supercalifragilisticexpialidocious"_s << 40 << 1 << true;
}

void TestTextLayout::truncation()
{
    QFETCH(QString, text);
    QFETCH(int, width);
    QFETCH(int, maximumLines);
    QFETCH(bool, truncated);

    ZVXTextLayout layout;
    layout.setText(text);
    layout.setWidth(width);
    ZVXTextLayout unlimited(layout);
    layout.setMaximumLineCount(maximumLines);

    QCOMPARE(layout.isTruncated(), truncated);
    QVERIFY(maximumLines == 0 || layout.lineCount() <= maximumLines);
    QVERIFY(layout.size().width() <= width);
    const QString shown = layout.shownText();
    if (!truncated) {
        QCOMPARE(shown, text);
        QCOMPARE(layout.size(), unlimited.size());
        return;
    }
    QVERIFY(layout.lineCount() < unlimited.lineCount() || text.contains(u'\n'));
    QVERIFY(layout.size().height() < unlimited.size().height());
    QVERIFY2(shown.endsWith(QChar(0x2026)), qPrintable(shown));
    QVERIFY(text.startsWith(shown.chopped(1)));
    // The ellipsis is on the last line, not pushed onto another.
    QCOMPARE(layout.lineCount(), maximumLines);
}

void TestTextLayout::cutInsideALink_data()
{
    QTest::addColumn<QString>("text");

    const QString path = u"https://example.com/"_s + QString(60, u'a');
    QTest::newRow("left to right") << u"See "_s + path + u" now"_s;
    QTest::newRow("right to left") << u"راجع "_s + path + u" الآن"_s;
}

void TestTextLayout::cutInsideALink()
{
    QFETCH(QString, text);

    constexpr int Width = 250;
    ZVXTextLayout layout;
    layout.setText(text);
    layout.setWidth(Width);
    layout.setMaximumLineCount(1);
    QVERIFY(layout.isTruncated());
    QCOMPARE(layout.lineCount(), 1);

    // The longest start of the text that fits before the ellipsis, counted in the text's units.
    const QString shown = layout.shownText();
    const qsizetype kept = shown.size() - 1;
    QCOMPARE(shown, text.left(kept) + QChar(0x2026));
    const QFontMetricsF metrics(layout.font());
    QVERIFY(metrics.horizontalAdvance(shown) <= Width);
    QVERIFY(metrics.horizontalAdvance(text.left(kept + 1) + QChar(0x2026)) > Width);

    // What is shown of the link is still the link.
    const QList<QRectF> rects = layout.linkRects(0);
    QCOMPARE(rects.size(), 1);
    QCOMPARE(layout.linkAt(rects[0].center()), std::optional<int>(0));
    QVERIFY(rects[0].right() <= Width);
}

void TestTextLayout::hitTesting()
{
    QFont font = QGuiApplication::font();
    font.setPixelSize(16);
    ZVXTextLayout layout;
    layout.setFont(font);
    layout.setText(u"Visit example.com/help or call 555-123-4567 today"_s);
    QCOMPARE(layout.links().size(), 2);

    // Where the glyphs are, measured apart from the layout.
    const QFontMetricsF metrics(font);
    const qreal linkStart = metrics.horizontalAdvance(u"Visit "_s);
    const qreal linkEnd = metrics.horizontalAdvance(u"Visit example.com/help"_s);
    const qreal middle = metrics.height() / 2;
    const QList<QRectF> rects = layout.linkRects(0);
    QCOMPARE(rects.size(), 1);
    QVERIFY(qAbs(rects[0].left() - linkStart) < 1);
    QVERIFY(qAbs(rects[0].right() - linkEnd) < 1);

    QCOMPARE(layout.linkAt(QPointF(linkStart + 2, middle)), std::optional<int>(0));
    QCOMPARE(layout.linkAt(QPointF(linkEnd - 2, middle)), std::optional<int>(0));
    QCOMPARE(layout.linkAt(layout.linkRects(1).first().center()), std::optional<int>(1));
    QCOMPARE(layout.linkAt(QPointF(linkStart / 2, middle)), std::nullopt); // "Visit"
    QCOMPARE(layout.linkAt(QPointF(linkEnd + 4, middle)), std::nullopt); // " or"
    QCOMPARE(layout.linkAt(QPointF(linkStart + 2, layout.size().height() + 2)), std::nullopt);
    QCOMPARE(layout.linkAt(QPointF(layout.size().width() + 20, middle)), std::nullopt);

    // Wrapped onto several lines, each link is still found where it is drawn.
    layout.setWidth(linkEnd + 2);
    QVERIFY(layout.lineCount() > 1);
    for (int index = 0; index < 2; ++index) {
        for (const QRectF &rect : layout.linkRects(index))
            QCOMPARE(layout.linkAt(rect.center()), std::optional<int>(index));
    }

    // A truncated layout finds no link it does not show.
    layout.setMaximumLineCount(1);
    QVERIFY(layout.isTruncated());
    QVERIFY(layout.linkRects(1).isEmpty());
}

void TestTextLayout::alignmentFollowsDirection_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<Qt::LayoutDirection>("direction");

    QTest::newRow("left to right") << u"Hello, how can we help?"_s << Qt::LeftToRight;
    QTest::newRow("right to left") << Arabic << Qt::RightToLeft;
    QTest::newRow("right to left with a link") << u"راجع example.com للمزيد"_s << Qt::RightToLeft;
    QTest::newRow("left to right with Arabic inside")
        << u"The word شكراً means thanks"_s << Qt::LeftToRight;
}

void TestTextLayout::alignmentFollowsDirection()
{
    QFETCH(QString, text);
    QFETCH(Qt::LayoutDirection, direction);

    constexpr int Width = 600;
    ZVXTextLayout layout;
    layout.setText(text);
    layout.setWidth(Width);
    QCOMPARE(layout.textDirection(), direction);
    QVERIFY(layout.size().width() < Width / 2);

    const auto [left, right] = inkColumns(layout, Width);
    QVERIFY(right > left);
    if (direction == Qt::RightToLeft) {
        QVERIFY2(right >= Width - 4, qPrintable(QString::number(right)));
        QVERIFY(left >= Width - layout.size().width() - 4);
    } else {
        QVERIFY2(left <= 4, qPrintable(QString::number(left)));
        QVERIFY(right <= layout.size().width() + 4);
    }
}

void TestTextLayout::linksReadLeftToRight_data()
{
    QTest::addColumn<QString>("link");
    QTest::addColumn<QString>("before");
    QTest::addColumn<QString>("after");

    QTest::newRow("number in Arabic") << u"+33 1 23 45 67 89"_s << u"اتصل على "_s << u" الآن"_s;
    QTest::newRow("Arabic path in Arabic")
        << u"https://example.com/مساعدة"_s << u"راجع "_s << u" للمزيد"_s;
    QTest::newRow("Arabic path in English")
        << u"https://example.com/مساعدة/1"_s << u"See "_s << u" please"_s;
}

void TestTextLayout::linksReadLeftToRight()
{
    QFETCH(QString, link);
    QFETCH(QString, before);
    QFETCH(QString, after);

    // Drawn inside other text, a link looks as it does alone, left to right.
    QFont font = QGuiApplication::font();
    font.setPixelSize(18);
    ZVXTextLayout alone;
    alone.setFont(font);
    alone.setText(link);
    ZVXTextLayout inside;
    inside.setFont(font);
    inside.setText(before + link + after);
    QCOMPARE(inside.links().size(), 1);
    QCOMPARE(inside.linkRects(0).size(), 1);

    const QList<int> expected = linkInk(alone, 0);
    const QList<int> actual = linkInk(inside, 0);
    QVERIFY(qAbs(actual.size() - expected.size()) <= 1);
    int differing = 0;
    int inked = 0;
    for (qsizetype bin = 0; bin < std::min(actual.size(), expected.size()); ++bin) {
        inked += expected[bin];
        differing += qAbs(actual[bin] - expected[bin]);
    }
    QVERIFY2(differing * 8 < inked, qPrintable(u"%1 of %2"_s.arg(differing).arg(inked)));
}

QTEST_MAIN(TestTextLayout)
#include "tst_textlayout.moc"
