#pragma once

#include <QMouseEvent>
#include <QWidget>

#include <optional>

/*!
    A left-button drag that moves what a widget shows: the hand cursor, open
    over the widget and closed while dragging, and each move as the distance
    from the one before. The widget forwards its mouse events.
*/
class ZVXDragPan
{
public:
    explicit ZVXDragPan(QWidget *widget)
        : m_widget(widget)
    {
        widget->setCursor(Qt::OpenHandCursor);
    }

    //! Starts a drag on a left press; false for any other press.
    bool press(const QMouseEvent *event)
    {
        if (event->button() != Qt::LeftButton)
            return false;
        m_dragging = true;
        m_from = event->position();
        m_widget->setCursor(Qt::ClosedHandCursor);
        return true;
    }

    //! How far the pointer moved since the last event of the drag; nothing outside one.
    std::optional<QPointF> move(const QMouseEvent *event)
    {
        if (!m_dragging)
            return std::nullopt;
        const QPointF moved = event->position() - m_from;
        m_from = event->position();
        return moved;
    }

    void release(const QMouseEvent *event)
    {
        if (event->button() != Qt::LeftButton)
            return;
        m_dragging = false;
        m_widget->setCursor(Qt::OpenHandCursor);
    }

private:
    QWidget *m_widget;
    QPointF m_from;
    bool m_dragging = false;
};
