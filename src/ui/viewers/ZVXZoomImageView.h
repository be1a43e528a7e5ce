#pragma once

#include "ZVXDragPan.h"

#include "zuvero_export.h"

#include <QImage>
#include <QWidget>

/*!
    A still picture on white, fitted to the view until the user zooms: with
    the wheel, a pinch or zoomIn() / zoomOut(), about the point under the
    pointer; dragging moves it. fitToView() goes back to the fitted size.
*/
class ZUVERO_EXPORT ZVXZoomImageView : public QWidget
{
    Q_OBJECT

public:
    static constexpr qreal MaximumScale = 8;

    explicit ZVXZoomImageView(QWidget *parent = nullptr);

    QImage image() const { return m_image; }
    //! Shows \a image fitted; a picture of the same shape (the full one after its preview) keeps
    //! the user's zoom and position.
    void setImage(const QImage &image);
    //! Display pixels per picture pixel.
    qreal scale() const;

    void zoomIn();
    void zoomOut();
    void fitToView();

protected:
    bool event(QEvent *event) override;
    void paintEvent(QPaintEvent *event) override;
    void wheelEvent(QWheelEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;

private:
    qreal fittedScale() const;
    void zoomBy(qreal factor, QPointF anchor);
    //! Keeps the picture from leaving the view: centred on an axis where it is smaller.
    void clampOffset();
    QRectF imageRect() const;

    QImage m_image;
    // The zoom relative to the fitted size, and the picture's centre relative to the view's.
    qreal m_zoom = 1;
    QPointF m_offset;
    ZVXDragPan m_drag{this};
};
