#include "ZVXAnimatedImageView.h"
#include "ZVXLogCapture.h"
#include "ZVXManualClock.h"

#include <QApplication>
#include <QBuffer>
#include <QImageWriter>
#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

// Writes GIFs Qt can read but not write. Codes are 8 bits wide: 7-bit colour indices, and a clear
// code before the table would grow to 9 bits, so every code is one whole byte.
class GifWriter
{
public:
    static constexpr int Colors = 128;

    GifWriter(QSize size, std::optional<int> loops)
        : m_size(size)
    {
        m_bytes = "GIF89a";
        word(size.width());
        word(size.height());
        m_bytes += char(0xf6); // a global table of 128 colours
        m_bytes += char(0);
        m_bytes += char(0);
        for (int i = 0; i < Colors; ++i) { // a spread of colours: index i is (2i, 255-2i, i)
            m_bytes += char(2 * i);
            m_bytes += char(255 - 2 * i);
            m_bytes += char(i);
        }
        if (loops) {
            m_bytes += "\x21\xff\x0bNETSCAPE2.0\x03\x01";
            word(*loops);
            m_bytes += char(0);
        }
    }
    static QRgb color(int index) { return qRgb(2 * index, 255 - 2 * index, index); }

    //! A frame of one colour shown for \a centiseconds.
    void frame(int index, int centiseconds)
    {
        m_bytes += "\x21\xf9\x04";
        m_bytes += char(0x04); // keep the frame in place, no transparency
        word(centiseconds);
        m_bytes += char(0);
        m_bytes += char(0);
        m_bytes += char(0x2c);
        word(0);
        word(0);
        word(m_size.width());
        word(m_size.height());
        m_bytes += char(0);
        m_bytes += char(7); // minimum code size
        QByteArray codes;
        const int pixels = m_size.width() * m_size.height();
        for (int i = 0; i < pixels; ++i) {
            if (i % 100 == 0)
                codes += char(Colors); // clear
            codes += char(index);
        }
        codes += char(Colors + 1); // end
        for (qsizetype at = 0; at < codes.size(); at += 255) {
            const QByteArray block = codes.mid(at, 255);
            m_bytes += char(block.size());
            m_bytes += block;
        }
        m_bytes += char(0);
    }
    QByteArray finish() const { return m_bytes + ';'; }

private:
    void word(int value)
    {
        m_bytes += char(value & 0xff);
        m_bytes += char((value >> 8) & 0xff);
    }

    QSize m_size;
    QByteArray m_bytes;
};

QByteArray gif(QSize size, const QList<int> &centiseconds, std::optional<int> loops)
{
    GifWriter writer(size, loops);
    for (int i = 0; i < centiseconds.size(); ++i)
        writer.frame(i, centiseconds[i]);
    return writer.finish();
}

QByteArray encoded(QSize size, const char *format)
{
    QImage image(size, QImage::Format_ARGB32);
    image.fill(Qt::red);
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    QImageWriter(&buffer, format).write(image);
    return bytes;
}

} // namespace

Q_DECLARE_METATYPE(ZVXAnimatedImage::Limits)

class TestAnimatedImage : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void framesAndDelays();
    void refusedInputs_data();
    void refusedInputs();
    void playsFrameByFrameAndLoops();
    void stopsAfterItsLoops();
    void pausesWhileHidden();
    void pausesWhileMinimised();
    void scalesToFit();
};

void TestAnimatedImage::framesAndDelays()
{
    const ZVXAnimatedImage image(gif(QSize(6, 4), {0, 1, 2, 5, 30}, 0));
    QCOMPARE(image.frameCount(), 5);
    QCOMPARE(image.size(), QSize(6, 4));
    QCOMPARE(image.loopCount(), -1); // 0 in the file: forever
    const QList<std::chrono::milliseconds> delays{100ms, 100ms, 20ms, 50ms, 300ms};
    for (int i = 0; i < 5; ++i) {
        QCOMPARE(image.delay(i), delays[i]);
        QCOMPARE(image.frame(i).pixel(3, 2), GifWriter::color(i));
    }
    QCOMPARE(image.duration(), 570ms);
    QCOMPARE(image.byteCount(), 5 * 6 * 4 * 4);
    QVERIFY(image.frame(5).isNull());

    QCOMPARE(ZVXAnimatedImage(gif(QSize(2, 2), {10, 10}, 3)).loopCount(), 3);
    QCOMPARE(ZVXAnimatedImage(gif(QSize(2, 2), {10, 10}, std::nullopt)).loopCount(), 0);

    // A still picture is one frame; a copy shares the frames.
    const ZVXAnimatedImage still(encoded(QSize(9, 7), "png"));
    QCOMPARE(still.frameCount(), 1);
    QVERIFY(!still.isAnimated());
    QCOMPARE(still.size(), QSize(9, 7));
    const ZVXAnimatedImage copy = still;
    QCOMPARE(copy.frame(0).constBits(), still.frame(0).constBits());

    // A file cut short keeps the frames before the cut.
    const QByteArray full = gif(QSize(6, 4), {10, 10, 10}, 0);
    const ZVXAnimatedImage cut(full.left(full.lastIndexOf("\x21\xf9\x04") + 5));
    QCOMPARE(cut.frameCount(), 2);
}

void TestAnimatedImage::refusedInputs_data()
{
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<ZVXAnimatedImage::Limits>("limits");
    QTest::addColumn<QString>("logged");

    const ZVXAnimatedImage::Limits standard;
    QTest::newRow("nothing") << QByteArray() << standard
                             << u"ZVX ERROR: ZVXAnimatedImage: no bytes to decode"_s;
    QTest::newRow("garbage") << QByteArray("this is not a picture at all") << standard
                             << u"ZVX ERROR: ZVXAnimatedImage: not an image (28 bytes)"_s;
    QTest::newRow("format chats do not send")
        << encoded(QSize(4, 4), "tiff") << standard
        << u"ZVX ERROR: ZVXAnimatedImage: tiff pictures are not shown"_s;
    QTest::newRow("header only") << QByteArray("GIF89a\x10\x00\x10\x00\x00\x00\x00;", 14)
                                 << standard << u"ZVX ERROR: ZVXAnimatedImage: cannot decode"_s;

    // A tiny file that declares a huge canvas.
    QByteArray huge = gif(QSize(2, 2), {10}, 0);
    huge[6] = huge[7] = huge[8] = huge[9] = char(0xff);
    QTest::newRow("huge canvas")
        << huge << standard
        << u"ZVX ERROR: ZVXAnimatedImage: 65535x65535 pixels are over the budget of 134217728 bytes"_s;
    QTest::newRow("too many frames") << gif(QSize(1, 1), QList<int>(1001, 2), 0) << standard
                                     << u"ZVX ERROR: ZVXAnimatedImage: more than 1000 frames"_s;
    QTest::newRow("frames over the budget")
        << gif(QSize(50, 50), QList<int>(20, 2), 0)
        << ZVXAnimatedImage::Limits{100, 10 * 50 * 50 * 4}
        << u"ZVX ERROR: ZVXAnimatedImage: frames are over the budget of 100000 bytes"_s;
}

void TestAnimatedImage::refusedInputs()
{
    QFETCH(QByteArray, data);
    QFETCH(ZVXAnimatedImage::Limits, limits);
    QFETCH(QString, logged);

    ZVXLogCapture log;
    const ZVXAnimatedImage image(data, limits);
    QVERIFY(image.isNull());
    QCOMPARE(image.frameCount(), 0);
    QCOMPARE(image.size(), QSize());
    QCOMPARE(log.lines().size(), 1);
    QVERIFY2(log.lines()[0].startsWith(logged), qPrintable(log.lines()[0]));
}

void TestAnimatedImage::playsFrameByFrameAndLoops()
{
    ZVXManualClock clock;
    ZVXAnimatedImageView view;
    view.setImage(ZVXAnimatedImage(gif(QSize(4, 4), {10, 20, 5}, 0)));
    view.show();
    QVERIFY(QTest::qWaitForWindowExposed(&view));
    QSignalSpy changes(&view, &ZVXAnimatedImageView::frameChanged);

    // Nothing moves before it is started.
    clock.advance(1s);
    QCOMPARE(view.currentFrame(), 0);
    view.startAnimating();
    QVERIFY(view.isAnimating());

    const QList<std::pair<std::chrono::milliseconds, int>> steps{
        {99ms, 0}, {1ms, 1}, {199ms, 1}, {1ms, 2}, {50ms, 0}, {100ms, 1}, {200ms, 2}};
    for (const auto &[advance, frame] : steps) {
        clock.advance(advance);
        QCOMPARE(view.currentFrame(), frame);
    }
    QCOMPARE(changes.size(), 5);

    view.stopAnimating();
    QVERIFY(!view.isAnimating());
    clock.advance(10s);
    QCOMPARE(view.currentFrame(), 2);
    view.startAnimating();
    clock.advance(50ms);
    QCOMPARE(view.currentFrame(), 0);

    // A new image starts from its first frame; the old image's pending step does nothing.
    clock.advance(60ms);
    view.setImage(ZVXAnimatedImage(gif(QSize(4, 4), {30, 30}, 0)));
    QCOMPARE(view.currentFrame(), 0);
    clock.advance(40ms); // the old frame's 100 ms are over
    QCOMPARE(view.currentFrame(), 0);
    clock.advance(260ms);
    QCOMPARE(view.currentFrame(), 1);
    QCOMPARE(clock.pendingSteps(), 1);
}

void TestAnimatedImage::stopsAfterItsLoops()
{
    ZVXManualClock clock;
    ZVXAnimatedImageView view;
    view.setImage(ZVXAnimatedImage(gif(QSize(4, 4), {10, 10}, 1))); // shown twice
    view.show();
    view.startAnimating();
    QList<int> frames;
    for (int i = 0; i < 6; ++i) {
        frames << view.currentFrame();
        clock.advance(100ms);
    }
    QCOMPARE(frames, (QList<int>{0, 1, 0, 1, 1, 1}));
    QVERIFY(!view.isAnimating());
    QCOMPARE(clock.pendingSteps(), 0);

    // Started again, it plays again from the start.
    view.startAnimating();
    QCOMPARE(view.currentFrame(), 0);
    clock.advance(100ms);
    QCOMPARE(view.currentFrame(), 1);
}

void TestAnimatedImage::pausesWhileHidden()
{
    ZVXManualClock clock;
    QWidget window;
    auto *view = new ZVXAnimatedImageView(&window);
    view->setImage(ZVXAnimatedImage(gif(QSize(4, 4), {10, 10, 10}, 0)));
    view->startAnimating(); // before it is shown: waits
    clock.advance(1s);
    QCOMPARE(view->currentFrame(), 0);
    window.show();
    clock.advance(100ms);
    QCOMPARE(view->currentFrame(), 1);

    view->hide();
    clock.advance(10s);
    QCOMPARE(view->currentFrame(), 1);
    QVERIFY(view->isAnimating());
    view->show();
    clock.advance(100ms);
    QCOMPARE(view->currentFrame(), 2);

    window.hide(); // a hidden parent hides it too
    clock.advance(10s);
    QCOMPARE(view->currentFrame(), 2);
}

void TestAnimatedImage::pausesWhileMinimised()
{
    ZVXManualClock clock;
    ZVXAnimatedImageView view;
    view.setImage(ZVXAnimatedImage(gif(QSize(4, 4), {10, 10, 10}, 0)));
    view.show();
    QVERIFY(QTest::qWaitForWindowExposed(&view));
    view.startAnimating();
    view.setWindowState(Qt::WindowMinimized);
    QTRY_VERIFY(view.isMinimized());
    clock.advance(10s);
    QCOMPARE(view.currentFrame(), 0);
    view.setWindowState(Qt::WindowNoState);
    QTRY_VERIFY(!view.isMinimized());
    clock.advance(100ms);
    QCOMPARE(view.currentFrame(), 1);
}

void TestAnimatedImage::scalesToFit()
{
    ZVXAnimatedImageView view;
    view.setImage(ZVXAnimatedImage(gif(QSize(40, 20), {10}, 0)));
    QCOMPARE(view.sizeHint(), QSize(40, 20));
    QCOMPARE(view.heightForWidth(100), 50);
    view.resize(100, 100);
    const QImage shown = view.grab().toImage();
    // Letterboxed: the picture fills the width, centred, with bands above and below.
    const QRgb picture = GifWriter::color(0);
    QCOMPARE(shown.pixel(50, 50), picture);
    QCOMPARE(shown.pixel(1, 30), picture);
    QCOMPARE(shown.pixel(98, 70), picture);
    QVERIFY(shown.pixel(50, 10) != picture);
    QVERIFY(shown.pixel(50, 90) != picture);
}

QTEST_MAIN(TestAnimatedImage)
#include "tst_animatedimage.moc"
