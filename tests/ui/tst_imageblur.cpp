#include "ZVXImageBlur.h"
#include "ZVXLogCapture.h"

#include <QPainter>
#include <QTest>

#include <functional>

using namespace Qt::StringLiterals;

namespace {

using Effect = std::function<QImage(const QImage &)>;

QImage flat(QSize size, QColor color)
{
    QImage image(size, QImage::Format_ARGB32_Premultiplied);
    image.fill(color);
    return image;
}

// A picture with edges and colours everywhere.
QImage busy(QSize size)
{
    QImage image(size, QImage::Format_RGB32);
    QPainter painter(&image);
    QLinearGradient gradient(0, 0, size.width(), size.height());
    gradient.setColorAt(0, Qt::red);
    gradient.setColorAt(0.5, Qt::yellow);
    gradient.setColorAt(1, Qt::blue);
    painter.fillRect(image.rect(), gradient);
    for (int x = 0; x < size.width(); x += 7)
        painter.fillRect(x, 0, 2, size.height(), Qt::black);
    return image;
}

QList<int> channelTotals(const QImage &image)
{
    QList<int> totals(4, 0);
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            const QRgb pixel = image.pixel(x, y);
            totals[0] += qAlpha(pixel);
            totals[1] += qRed(pixel);
            totals[2] += qGreen(pixel);
            totals[3] += qBlue(pixel);
        }
    }
    return totals;
}

Effect blurOf(qreal radius)
{
    return [radius](const QImage &image) {
        return ZVXImageBlur::applyBlur(image, radius, QColor(), 1);
    };
}

} // namespace

class TestImageBlur : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void effectsKeepShape_data();
    void effectsKeepShape();
    void flatStaysFlat_data();
    void flatStaysFlat();
    void spotSpreadsSymmetrically_data();
    void spotSpreadsSymmetrically();
    void maskLimitsTheEffect();
    void nullImage();
};

void TestImageBlur::effectsKeepShape_data()
{
    QTest::addColumn<Effect>("effect");
    QTest::addColumn<QSize>("size");
    QTest::addColumn<qreal>("ratio");

    const Effect light = &ZVXImageBlur::applyLightEffect;
    const Effect extraLight = &ZVXImageBlur::applyExtraLightEffect;
    const Effect dark = &ZVXImageBlur::applyDarkEffect;
    const Effect tint
        = [](const QImage &image) { return ZVXImageBlur::applyTintEffect(image, Qt::darkCyan); };
    QTest::newRow("light") << light << QSize(301, 203) << 1.0;
    QTest::newRow("light at 2x") << light << QSize(301, 203) << 2.0;
    QTest::newRow("extra light, 1x1") << extraLight << QSize(1, 1) << 1.0;
    QTest::newRow("dark, one row") << dark << QSize(97, 1) << 1.0;
    QTest::newRow("tint, one column") << tint << QSize(1, 50) << 1.5;
    QTest::newRow("large radius, small picture") << blurOf(400) << QSize(9, 13) << 1.0;
    QTest::newRow("radius 0") << blurOf(0) << QSize(40, 30) << 1.0;
}

void TestImageBlur::effectsKeepShape()
{
    QFETCH(Effect, effect);
    QFETCH(QSize, size);
    QFETCH(qreal, ratio);

    QImage input = busy(size);
    input.setDevicePixelRatio(ratio);
    const QImage output = effect(input);
    QCOMPARE(output.size(), size);
    QCOMPARE(output.devicePixelRatio(), ratio);
    // An opaque picture stays opaque: blur, saturation and tint never make holes.
    QCOMPARE(channelTotals(output)[0], 255 * size.width() * size.height());
    QImage untouched = busy(size);
    untouched.setDevicePixelRatio(ratio);
    QCOMPARE(input, untouched);
}

void TestImageBlur::flatStaysFlat_data()
{
    QTest::addColumn<QSize>("size");
    QTest::addColumn<QColor>("color");
    QTest::addColumn<qreal>("radius");
    QTest::addColumn<qreal>("saturation");

    const QColor teal(20, 140, 130);
    QTest::newRow("small radius") << QSize(50, 40) << teal << 3.0 << 1.0;
    QTest::newRow("reduced blur") << QSize(333, 211) << teal << 30.0 << 1.0;
    QTest::newRow("most reduced") << QSize(200, 150) << teal << 200.0 << 1.0;
    QTest::newRow("translucent") << QSize(64, 64) << QColor(200, 30, 60, 100) << 20.0 << 1.0;
    QTest::newRow("grey keeps its colour under saturation")
        << QSize(64, 48) << QColor(90, 90, 90) << 20.0 << 1.8;
    QTest::newRow("radius 0, saturation 1") << QSize(5, 5) << teal << 0.0 << 1.0;
    QTest::newRow("1x1") << QSize(1, 1) << teal << 30.0 << 1.0;
}

void TestImageBlur::flatStaysFlat()
{
    QFETCH(QSize, size);
    QFETCH(QColor, color);
    QFETCH(qreal, radius);
    QFETCH(qreal, saturation);

    const QImage input = flat(size, color);
    const QImage output = ZVXImageBlur::applyBlur(input, radius, QColor(), saturation);
    QCOMPARE(output, input);
}

void TestImageBlur::spotSpreadsSymmetrically_data()
{
    QTest::addColumn<qreal>("radius");
    QTest::addColumn<int>("spotSize");
    QTest::addColumn<int>("percentLost"); // results are 8-bit: faint tails round away or up

    QTest::newRow("single pixel, radius 2") << 2.0 << 1 << 10;
    QTest::newRow("single pixel, radius 4") << 4.0 << 1 << 10;
    QTest::newRow("block, reduced blur") << 12.0 << 8 << 3;
    QTest::newRow("block, radius 20") << 20.0 << 16 << 3;
}

void TestImageBlur::spotSpreadsSymmetrically()
{
    QFETCH(qreal, radius);
    QFETCH(int, spotSize);
    QFETCH(int, percentLost);

    // The spot sits in the middle of a black picture, far enough from the edges.
    const int side = 2 * int(radius) * 6 + spotSize;
    QImage input = flat(QSize(side, side), Qt::black);
    const int from = (side - spotSize) / 2;
    QPainter(&input).fillRect(from, from, spotSize, spotSize, Qt::white);
    const QImage output = ZVXImageBlur::applyBlur(input, radius, QColor(), 1);

    const QList<int> before = channelTotals(input);
    const QList<int> after = channelTotals(output);
    QCOMPARE(after[0], before[0]);
    QVERIFY2(qAbs(after[1] - before[1]) * 100 <= before[1] * percentLost,
             qPrintable(u"%1 -> %2"_s.arg(before[1]).arg(after[1])));
    // Spread out: the middle is dimmer and its neighbourhood lit.
    const int middle = side / 2;
    QVERIFY(qRed(output.pixel(middle, middle)) < 255);
    QVERIFY(qRed(output.pixel(middle + spotSize / 2 + 1, middle)) > 0);
    QVERIFY(qRed(output.pixel(middle, middle + spotSize / 2 + 1)) > 0);
    // The same each way: left and right, up and down, across.
    for (int y = 0; y < side; ++y) {
        for (int x = 0; x < side; ++x) {
            const int value = qRed(output.pixel(x, y));
            const int mirroredX = qRed(output.pixel(side - 1 - x, y));
            const int mirroredY = qRed(output.pixel(x, side - 1 - y));
            const int transposed = qRed(output.pixel(y, x));
            if (qAbs(value - mirroredX) > 1 || qAbs(value - mirroredY) > 1
                || qAbs(value - transposed) > 1)
                QFAIL(qPrintable(u"asymmetric at %1,%2"_s.arg(x).arg(y)));
        }
    }
}

void TestImageBlur::maskLimitsTheEffect()
{
    const QImage input = busy(QSize(120, 80));
    // Left half opaque: blurred there, untouched on the right.
    QImage mask(QSize(60, 40), QImage::Format_ARGB32);
    mask.fill(Qt::transparent);
    QPainter(&mask).fillRect(0, 0, 30, 40, Qt::black);
    const QImage output = ZVXImageBlur::applyBlur(input, 8, QColor(), 1, mask);
    const QImage blurred = ZVXImageBlur::applyBlur(input, 8, QColor(), 1);
    const QImage original = input.convertToFormat(QImage::Format_ARGB32_Premultiplied);
    QCOMPARE(output.copy(70, 0, 50, 80), original.copy(70, 0, 50, 80));
    QCOMPARE(output.copy(0, 0, 50, 80), blurred.copy(0, 0, 50, 80));

    // A tint covers the whole picture, masked or not.
    const QImage tinted = ZVXImageBlur::applyBlur(input, 8, Qt::white, 1, mask);
    QVERIFY(qGray(tinted.pixel(100, 40)) == 255);
    QVERIFY(qGray(tinted.pixel(10, 40)) == 255);
}

void TestImageBlur::nullImage()
{
    ZVXLogCapture log;
    QVERIFY(ZVXImageBlur::applyLightEffect(QImage()).isNull());
    QCOMPARE(log.lines(), QStringList{u"ZVX ERROR: ZVXImageBlur: no image to blur"_s});
}

QTEST_GUILESS_MAIN(TestImageBlur)
#include "tst_imageblur.moc"
