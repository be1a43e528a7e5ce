#include "ZVXZoomImageView.h"

#include <QGestureEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QPinchGesture>
#include <QWheelEvent>

#include <algorithm>
#include <cmath>

namespace {

constexpr qreal ButtonStep = 1.5;
// One notch of a wheel (120 eighths of a degree) zooms by this much.
constexpr qreal NotchStep = 1.25;

} // namespace

ZVXZoomImageView::ZVXZoomImageView(QWidget *parent)
    : QWidget(parent)
{
    setAutoFillBackground(true);
    QPalette white = palette();
    white.setColor(QPalette::Window, Qt::white);
    setPalette(white);
    grabGesture(Qt::PinchGesture);
}

void ZVXZoomImageView::setImage(const QImage &image)
{
    const bool sameShape = !m_image.isNull() && !image.isNull()
        && std::abs(m_image.width() * qreal(image.height())
                    - m_image.height() * qreal(image.width()))
            < qreal(m_image.width()) * image.height() * 0.01;
    m_image = image;
    if (!sameShape) {
        m_zoom = 1;
        m_offset = {};
    }
    update();
}

qreal ZVXZoomImageView::fittedScale() const
{
    if (m_image.isNull() || width() <= 0 || height() <= 0)
        return 1;
    return std::min(width() / qreal(m_image.width()), height() / qreal(m_image.height()));
}

qreal ZVXZoomImageView::scale() const
{
    return fittedScale() * m_zoom;
}

QRectF ZVXZoomImageView::imageRect() const
{
    const QSizeF size = QSizeF(m_image.size()) * scale();
    const QPointF centre = QPointF(width(), height()) / 2 + m_offset;
    return QRectF(centre - QPointF(size.width(), size.height()) / 2, size);
}

void ZVXZoomImageView::zoomIn()
{
    zoomBy(ButtonStep, rect().center());
}

void ZVXZoomImageView::zoomOut()
{
    zoomBy(1 / ButtonStep, rect().center());
}

void ZVXZoomImageView::fitToView()
{
    m_zoom = 1;
    m_offset = {};
    update();
}

void ZVXZoomImageView::zoomBy(qreal factor, QPointF anchor)
{
    if (m_image.isNull())
        return;
    const qreal fitted = fittedScale();
    // Never smaller than fitted, never beyond MaximumScale picture pixels (or the fit, if larger).
    const qreal largest = std::max<qreal>(1, MaximumScale / fitted);
    const qreal zoom = std::clamp(m_zoom * factor, qreal(1), largest);
    const qreal applied = zoom / m_zoom;
    // The picture point under the anchor stays under it.
    const QPointF centre = QPointF(width(), height()) / 2;
    m_offset = anchor - (anchor - (centre + m_offset)) * applied - centre;
    m_zoom = zoom;
    clampOffset();
    update();
}

void ZVXZoomImageView::clampOffset()
{
    const QSizeF size = QSizeF(m_image.size()) * scale();
    const qreal slackX = std::max<qreal>(0, (size.width() - width()) / 2);
    const qreal slackY = std::max<qreal>(0, (size.height() - height()) / 2);
    m_offset.setX(std::clamp(m_offset.x(), -slackX, slackX));
    m_offset.setY(std::clamp(m_offset.y(), -slackY, slackY));
}

bool ZVXZoomImageView::event(QEvent *event)
{
    if (event->type() == QEvent::Gesture) {
        auto *gestures = static_cast<QGestureEvent *>(event);
        if (auto *pinch = static_cast<QPinchGesture *>(gestures->gesture(Qt::PinchGesture))) {
            zoomBy(pinch->scaleFactor(), mapFromGlobal(pinch->centerPoint()));
            gestures->accept(pinch);
            return true;
        }
    } else if (event->type() == QEvent::Resize) {
        clampOffset();
    }
    return QWidget::event(event);
}

void ZVXZoomImageView::paintEvent(QPaintEvent *)
{
    if (m_image.isNull())
        return;
    QPainter painter(this);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.drawImage(imageRect(), m_image);
}

void ZVXZoomImageView::wheelEvent(QWheelEvent *event)
{
    const qreal notches = event->angleDelta().y() / 120.0;
    if (notches == 0) {
        event->ignore();
        return;
    }
    zoomBy(std::pow(NotchStep, notches), event->position());
    event->accept();
}

void ZVXZoomImageView::mousePressEvent(QMouseEvent *event)
{
    if (!m_drag.press(event))
        QWidget::mousePressEvent(event);
}

void ZVXZoomImageView::mouseMoveEvent(QMouseEvent *event)
{
    const std::optional<QPointF> moved = m_drag.move(event);
    if (!moved)
        return;
    m_offset += *moved;
    clampOffset();
    update();
}

void ZVXZoomImageView::mouseReleaseEvent(QMouseEvent *event)
{
    m_drag.release(event);
}
