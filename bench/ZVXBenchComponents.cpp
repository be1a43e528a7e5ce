// The chat screen's components: the library's own functions are timed, beside Qt's way of doing
// the same.

#include "ZVXBenchComponents.h"
#include "ZVXImageBlur.h"

#include <QApplication>
#include <QGraphicsBlurEffect>
#include <QGraphicsPixmapItem>
#include <QGraphicsScene>
#include <QPainter>

#include <cstdio>
#include <memory>

namespace ZVXBench {

namespace {

const QSize ScreenSize(1280, 800);
// QGraphicsBlurEffect fades a pixel to a tenth at its radius; the light effect's blur (sigma
// about 30) does so at about twice that.
constexpr qreal QtBlurRadius = 60;

// Keeps results alive so the optimiser cannot drop the work.
volatile int sink = 0;

// What an overlay would blur: a window with a gradient, panels and lines of text.
QImage snapshot()
{
    QImage image(ScreenSize, QImage::Format_ARGB32_Premultiplied);
    QPainter painter(&image);
    QLinearGradient gradient(0, 0, ScreenSize.width(), ScreenSize.height());
    gradient.setColorAt(0, QColor(0x2d, 0x6c, 0xdf));
    gradient.setColorAt(1, QColor(0xf2, 0xa6, 0x5a));
    painter.fillRect(image.rect(), gradient);
    for (int i = 0; i < 12; ++i) {
        painter.fillRect(40 + i * 100, 60 + (i % 3) * 200, 80, 160,
                         QColor::fromHsv(i * 30, 160, 230));
        painter.setPen(Qt::black);
        painter.drawText(40, 700 + (i % 4) * 20,
                         QStringLiteral("Line of chat text number %1").arg(i));
    }
    return image;
}

} // namespace

QList<Case> componentCases()
{
    const QImage picture = snapshot();
    QList<Case> cases;
    cases << Case{QStringLiteral("blur: ZVXImageBlur 1280x800 light"),
                  [picture] { sink = ZVXImageBlur::applyLightEffect(picture).constBits()[0]; }};

    if (!qobject_cast<QApplication *>(QCoreApplication::instance())) {
        std::fprintf(stderr, "blur: QGraphicsBlurEffect needs a QApplication; left out\n");
        return cases;
    }
    auto scene = std::make_shared<QGraphicsScene>(QRectF(QPointF(), ScreenSize));
    auto *item = scene->addPixmap(QPixmap::fromImage(picture));
    auto *effect = new QGraphicsBlurEffect;
    effect->setBlurRadius(QtBlurRadius);
    item->setGraphicsEffect(effect);
    cases << Case{QStringLiteral("blur: QGraphicsBlurEffect 1280x800"), [scene] {
                      QImage target(ScreenSize, QImage::Format_ARGB32_Premultiplied);
                      QPainter painter(&target);
                      scene->render(&painter);
                      painter.end();
                      sink = target.constBits()[0];
                  }};
    return cases;
}

} // namespace ZVXBench
