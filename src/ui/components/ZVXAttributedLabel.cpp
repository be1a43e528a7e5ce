#include "ZVXAttributedLabel.h"

#include <QDesktopServices>
#include <QHelpEvent>
#include <QKeyEvent>
#include <QPainter>
#include <QStyle>
#include <QStyleOptionFocusRect>
#include <QToolTip>

#include <cmath>

namespace {
// A label without a width of its own wraps at about this many average characters.
constexpr int PreferredCharacters = 60;
} // namespace

ZVXAttributedLabel::ZVXAttributedLabel(QWidget *parent)
    : QWidget(parent)
{
    setMouseTracking(true);
    QSizePolicy policy(QSizePolicy::Preferred, QSizePolicy::Preferred);
    policy.setHeightForWidth(true);
    setSizePolicy(policy);
    setFocusPolicy(Qt::NoFocus);
    m_layout.setFont(font());
    updateColors();
}

ZVXAttributedLabel::ZVXAttributedLabel(const QString &text, QWidget *parent)
    : ZVXAttributedLabel(parent)
{
    setText(text);
}

void ZVXAttributedLabel::setText(const QString &text)
{
    m_layout.setText(text);
    setAccessibleName(text);
    m_pressedLink.reset();
    m_focusedLink.reset();
    // Only a label with links takes part in the Tab chain.
    setFocusPolicy(m_layout.links().isEmpty() ? Qt::NoFocus : Qt::StrongFocus);
    updateGeometry();
    update();
}

void ZVXAttributedLabel::setMaximumLineCount(int count)
{
    m_layout.setMaximumLineCount(count);
    updateGeometry();
    update();
}

QSize ZVXAttributedLabel::sizeHint() const
{
    ZVXTextLayout unwrapped(m_layout);
    unwrapped.setWidth(0);
    const QMargins margins = contentsMargins();
    const int width = std::min(int(std::ceil(unwrapped.size().width())),
                               fontMetrics().averageCharWidth() * PreferredCharacters);
    return QSize(width + margins.left() + margins.right(),
                 heightForWidth(width + margins.left() + margins.right()));
}

QSize ZVXAttributedLabel::minimumSizeHint() const
{
    const QMargins margins = contentsMargins();
    return QSize(fontMetrics().averageCharWidth() * 4 + margins.left() + margins.right(),
                 fontMetrics().height() + margins.top() + margins.bottom());
}

int ZVXAttributedLabel::heightForWidth(int width) const
{
    const QMargins margins = contentsMargins();
    ZVXTextLayout measured(m_layout);
    measured.setWidth(std::max(1, width - margins.left() - margins.right()));
    return int(std::ceil(measured.size().height())) + margins.top() + margins.bottom();
}

const ZVXTextLayout &ZVXAttributedLabel::layout() const
{
    m_layout.setWidth(std::max(1, contentsRect().width()));
    return m_layout;
}

std::optional<int> ZVXAttributedLabel::linkAt(const QPointF &position) const
{
    return layout().linkAt(position - contentsRect().topLeft());
}

void ZVXAttributedLabel::activate(int index)
{
    const QUrl url = m_layout.links().at(index).url;
    Q_EMIT linkActivated(url);
    QDesktopServices::openUrl(url);
}

void ZVXAttributedLabel::setFocusedLink(std::optional<int> index)
{
    if (index == m_focusedLink)
        return;
    m_focusedLink = index;
    update();
}

void ZVXAttributedLabel::updateColors()
{
    m_layout.setTextColor(palette().color(QPalette::WindowText));
    m_layout.setLinkColor(palette().color(QPalette::Link));
}

bool ZVXAttributedLabel::event(QEvent *event)
{
    if (event->type() == QEvent::ToolTip) {
        auto *help = static_cast<QHelpEvent *>(event);
        if (const std::optional<int> link = linkAt(help->pos())) {
            QToolTip::showText(help->globalPos(), m_layout.links().at(*link).url.toDisplayString(),
                               this);
        } else {
            QToolTip::hideText();
            event->ignore();
        }
        return true;
    }
    return QWidget::event(event);
}

void ZVXAttributedLabel::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    const ZVXTextLayout &text = layout();
    const QPointF origin = contentsRect().topLeft();
    if (m_focusedLink && hasFocus()) {
        QColor highlight = palette().color(QPalette::Highlight);
        highlight.setAlphaF(0.25f);
        for (const QRectF &rect : text.linkRects(*m_focusedLink)) {
            const QRect area = rect.translated(origin).toAlignedRect();
            painter.fillRect(area, highlight);
            QStyleOptionFocusRect option;
            option.initFrom(this);
            option.rect = area;
            option.backgroundColor = palette().color(QPalette::Window);
            style()->drawPrimitive(QStyle::PE_FrameFocusRect, &option, &painter, this);
        }
    }
    text.draw(&painter, origin);
}

void ZVXAttributedLabel::mouseMoveEvent(QMouseEvent *event)
{
    if (linkAt(event->position()))
        setCursor(Qt::PointingHandCursor);
    else
        unsetCursor();
    QWidget::mouseMoveEvent(event);
}

void ZVXAttributedLabel::mousePressEvent(QMouseEvent *event)
{
    m_pressedLink.reset();
    if (event->button() == Qt::LeftButton)
        m_pressedLink = linkAt(event->position());
    // A press beside the links belongs to the parent (a cell may be selected by it).
    if (!m_pressedLink)
        QWidget::mousePressEvent(event);
}

void ZVXAttributedLabel::mouseReleaseEvent(QMouseEvent *event)
{
    const std::optional<int> pressed = std::exchange(m_pressedLink, std::nullopt);
    // Only a release over the link pressed opens it, as with a button.
    if (event->button() == Qt::LeftButton && pressed && linkAt(event->position()) == pressed) {
        activate(*pressed);
        return;
    }
    QWidget::mouseReleaseEvent(event);
}

void ZVXAttributedLabel::leaveEvent(QEvent *event)
{
    unsetCursor();
    QWidget::leaveEvent(event);
}

void ZVXAttributedLabel::keyPressEvent(QKeyEvent *event)
{
    switch (event->key()) {
    case Qt::Key_Return:
    case Qt::Key_Enter:
    case Qt::Key_Space:
        if (m_focusedLink) {
            activate(*m_focusedLink);
            return;
        }
        break;
    default:
        break;
    }
    QWidget::keyPressEvent(event);
}

void ZVXAttributedLabel::focusInEvent(QFocusEvent *event)
{
    // Links hidden by truncation cannot be reached.
    int shown = 0;
    while (shown < m_layout.links().size() && !layout().linkRects(shown).isEmpty())
        ++shown;
    if (shown == 0)
        setFocusedLink(std::nullopt);
    else if (event->reason() == Qt::BacktabFocusReason)
        setFocusedLink(shown - 1);
    else if (!m_focusedLink || event->reason() == Qt::TabFocusReason)
        setFocusedLink(0);
    QWidget::focusInEvent(event);
}

void ZVXAttributedLabel::focusOutEvent(QFocusEvent *event)
{
    // Coming back to the window finds the same link.
    if (event->reason() != Qt::ActiveWindowFocusReason && event->reason() != Qt::PopupFocusReason)
        setFocusedLink(std::nullopt);
    update();
    QWidget::focusOutEvent(event);
}

bool ZVXAttributedLabel::focusNextPrevChild(bool next)
{
    if (hasFocus() && m_focusedLink) {
        const int candidate = *m_focusedLink + (next ? 1 : -1);
        if (candidate >= 0 && candidate < m_layout.links().size()
            && !layout().linkRects(candidate).isEmpty()) {
            setFocusedLink(candidate);
            return true;
        }
    }
    return QWidget::focusNextPrevChild(next);
}

void ZVXAttributedLabel::changeEvent(QEvent *event)
{
    switch (event->type()) {
    case QEvent::FontChange:
        m_layout.setFont(font());
        updateGeometry();
        break;
    case QEvent::PaletteChange:
    case QEvent::EnabledChange:
        updateColors();
        break;
    default:
        break;
    }
    update();
    QWidget::changeEvent(event);
}
