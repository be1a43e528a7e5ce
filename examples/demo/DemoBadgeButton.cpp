#include "DemoBadgeButton.h"

#include <QPainter>
#include <QStyleOptionButton>

DemoBadgeButton::DemoBadgeButton(QWidget *parent)
    : QPushButton(parent)
{
    setObjectName(QStringLiteral("contactSupportButton"));
    setCursor(Qt::PointingHandCursor);
}

void DemoBadgeButton::setCount(qint64 count)
{
    count = std::max<qint64>(count, 0);
    if (count == m_count)
        return;
    m_count = count;
    updateAccessibleName();
    updateGeometry();
    update();
}

void DemoBadgeButton::setTitle(const QString &title)
{
    setText(title);
    updateAccessibleName();
}

void DemoBadgeButton::updateAccessibleName()
{
    setAccessibleName(m_count > 0 ? tr("%1, %n unread", nullptr, int(m_count)).arg(text())
                                  : text());
}

QSize DemoBadgeButton::sizeHint() const
{
    // Room for the disc, which overhangs the button's corner by half its size.
    const QSize button = QPushButton::sizeHint();
    const int disc = fontMetrics().height() + 4;
    return {button.width() + disc / 2, button.height() + disc / 2};
}

QRect DemoBadgeButton::badgeRect() const
{
    const QString label = m_count > 99 ? QStringLiteral("99+") : QString::number(m_count);
    const int height = fontMetrics().height() + 4;
    const int width = std::max(height, fontMetrics().horizontalAdvance(label) + height / 2);
    // The leading edge is the right one in a right-to-left layout.
    const int x = layoutDirection() == Qt::RightToLeft ? 0 : this->width() - width;
    return {x, 0, width, height};
}

void DemoBadgeButton::paintEvent(QPaintEvent *)
{
    // The button is drawn below and beside the disc's overhang, so that it stays put whether
    // or not there is a count.
    const int disc = fontMetrics().height() + 4;
    const bool rtl = layoutDirection() == Qt::RightToLeft;
    QPainter painter(this);
    QStyleOptionButton option;
    initStyleOption(&option);
    option.rect = rect().adjusted(rtl ? disc / 2 : 0, disc / 2, rtl ? 0 : -disc / 2, 0);
    style()->drawControl(QStyle::CE_PushButton, &option, &painter, this);
    if (m_count <= 0)
        return;

    painter.setRenderHint(QPainter::Antialiasing);
    const QRect badge = badgeRect();
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(0xd9, 0x30, 0x25));
    painter.drawRoundedRect(badge, badge.height() / 2.0, badge.height() / 2.0);
    QFont bold = font();
    bold.setBold(true);
    painter.setFont(bold);
    painter.setPen(Qt::white);
    painter.drawText(badge, Qt::AlignCenter,
                     m_count > 99 ? QStringLiteral("99+") : QString::number(m_count));
}
