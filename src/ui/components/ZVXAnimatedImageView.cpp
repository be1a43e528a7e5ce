#include "ZVXAnimatedImageView.h"

#include <QPainter>

ZVXAnimatedImageView::ZVXAnimatedImageView(QWidget *parent)
    : QWidget(parent)
{
    QSizePolicy policy(QSizePolicy::Preferred, QSizePolicy::Preferred);
    policy.setHeightForWidth(true);
    setSizePolicy(policy);
}

void ZVXAnimatedImageView::setImage(const ZVXAnimatedImage &image)
{
    m_image = image;
    m_frame = 0;
    m_loopsDone = 0;
    m_finished = false;
    m_steps.advance();
    scheduleNextFrame();
    updateGeometry();
    update();
}

void ZVXAnimatedImageView::startAnimating()
{
    if (m_animating)
        return;
    m_animating = true;
    if (m_finished) {
        m_finished = false;
        m_frame = 0;
        update();
        Q_EMIT frameChanged(m_frame);
    }
    m_loopsDone = 0;
    scheduleNextFrame();
}

void ZVXAnimatedImageView::stopAnimating()
{
    m_animating = false;
    m_steps.advance();
}

bool ZVXAnimatedImageView::canPlay() const
{
    // A minimised window's widgets get a hide event but stay "visible".
    return m_animating && m_image.isAnimated() && m_shown && !window()->isMinimized();
}

void ZVXAnimatedImageView::scheduleNextFrame()
{
    if (!canPlay())
        return;
    m_steps.scheduleLast(m_image.delay(m_frame), this, [this] { showNextFrame(); });
}

void ZVXAnimatedImageView::showNextFrame()
{
    if (!canPlay())
        return;
    int next = m_frame + 1;
    if (next == m_image.frameCount()) {
        const int loops = m_image.loopCount();
        if (loops >= 0 && m_loopsDone >= loops) {
            m_animating = false;
            m_finished = true;
            return;
        }
        ++m_loopsDone;
        next = 0;
    }
    m_frame = next;
    update();
    Q_EMIT frameChanged(m_frame);
    scheduleNextFrame();
}

QSize ZVXAnimatedImageView::sizeHint() const
{
    return m_image.isNull() ? QSize() : m_image.size();
}

bool ZVXAnimatedImageView::hasHeightForWidth() const
{
    return !m_image.isNull();
}

int ZVXAnimatedImageView::heightForWidth(int width) const
{
    const QSize size = m_image.size();
    if (size.isEmpty())
        return -1;
    return int(qint64(width) * size.height() / size.width());
}

void ZVXAnimatedImageView::paintEvent(QPaintEvent *)
{
    const QImage frame = m_image.frame(m_frame);
    if (frame.isNull())
        return;
    const QRect area = contentsRect();
    QSize fitted = frame.size().scaled(area.size(), Qt::KeepAspectRatio);
    QRect target(QPoint(), fitted);
    target.moveCenter(area.center());
    QPainter painter(this);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.drawImage(target, frame);
}

void ZVXAnimatedImageView::showEvent(QShowEvent *event)
{
    m_shown = true;
    m_steps.advance();
    scheduleNextFrame();
    QWidget::showEvent(event);
}

void ZVXAnimatedImageView::hideEvent(QHideEvent *event)
{
    m_shown = false;
    m_steps.advance();
    QWidget::hideEvent(event);
}
