#include "DemoArtwork.h"

#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>
#include <QRadialGradient>

QImage demoLampPicture(const QColor &shade, const QSize &size)
{
    QImage image(size, QImage::Format_ARGB32_Premultiplied);
    const qreal w = size.width(), h = size.height();
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);

    // A warm wall with the lamp's glow on it.
    QRadialGradient glow(QPointF(w / 2, h * 0.42), std::max(w, h) * 0.7);
    glow.setColorAt(0, QColor(0xfb, 0xee, 0xd5));
    glow.setColorAt(1, QColor(0xd8, 0xc7, 0xb0));
    painter.fillRect(image.rect(), glow);
    painter.fillRect(QRectF(0, h * 0.86, w, h * 0.14), QColor(0x7a, 0x5a, 0x43));

    // Base and stem.
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(0x3b, 0x2f, 0x2a));
    painter.drawRoundedRect(QRectF(w * 0.36, h * 0.80, w * 0.28, h * 0.06), 4, 4);
    painter.drawRect(QRectF(w * 0.485, h * 0.48, w * 0.03, h * 0.33));

    // The shade: a trapezium, lighter at the top.
    QPainterPath path;
    path.moveTo(w * 0.38, h * 0.18);
    path.lineTo(w * 0.62, h * 0.18);
    path.lineTo(w * 0.74, h * 0.50);
    path.lineTo(w * 0.26, h * 0.50);
    path.closeSubpath();
    QLinearGradient light(0, h * 0.18, 0, h * 0.5);
    light.setColorAt(0, shade.lighter(135));
    light.setColorAt(1, shade);
    painter.setBrush(light);
    painter.drawPath(path);
    return image;
}
