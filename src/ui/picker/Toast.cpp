#include "Toast.h"

#include "ZVXClock.h"
#include "ZVXLocalization.h"

#include <QApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QPointer>
#include <QPushButton>
#include <QScreen>
#include <QVBoxLayout>

#include <chrono>
#include <cmath>

namespace {

// One notice on screen at a time, application-wide: a burst of failures shows the latest.
QPointer<Toast> s_current;

constexpr int BottomMargin = 32;

} // namespace

Toast::Toast(const QString &title, const QString &text, QWidget *window)
    : QFrame(window,
             Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint
                 | Qt::WindowDoesNotAcceptFocus)
{
    setObjectName(QStringLiteral("toast"));
    setAttribute(Qt::WA_DeleteOnClose);
    setAttribute(Qt::WA_ShowWithoutActivating);
    setFrameShape(QFrame::StyledPanel);
    setAutoFillBackground(true);
    setBackgroundRole(QPalette::ToolTipBase);
    setForegroundRole(QPalette::ToolTipText);
    setAccessibleName(title);
    setAccessibleDescription(text);

    m_title = new QLabel(title, this);
    QFont bold = m_title->font();
    bold.setBold(true);
    m_title->setFont(bold);
    m_text = new QLabel(text, this);
    m_text->setWordWrap(true);
    m_text->setTextFormat(Qt::PlainText);
    m_title->setTextFormat(Qt::PlainText);
    for (QLabel *label : {m_title, m_text})
        label->setForegroundRole(QPalette::ToolTipText);

    auto *ok = new QPushButton(ZVXLocalization::localizeString(
                                   QStringLiteral("zuveroOKButtonTitle"), QStringLiteral("OK")),
                               this);
    ok->setFocusPolicy(Qt::NoFocus);
    connect(ok, &QPushButton::clicked, this, &QWidget::close);

    auto *texts = new QVBoxLayout;
    texts->addWidget(m_title);
    texts->addWidget(m_text);
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(16, 10, 10, 10);
    layout->setSpacing(16);
    layout->addLayout(texts, 1);
    layout->addWidget(ok, 0, Qt::AlignVCenter);
    setMaximumWidth(480);
}

Toast *Toast::display(const QString &title, const QString &text)
{
    return display(title, text, 0);
}

Toast *Toast::display(const QString &title, const QString &text, double seconds)
{
    if (s_current)
        s_current->close();
    auto *toast = new Toast(title, text, QApplication::activeWindow());
    s_current = toast;
    toast->adjustSize();
    toast->place();
    toast->show();
    const double whole = std::isfinite(seconds) ? std::floor(seconds) : 0;
    if (whole >= 1) {
        // Far-off times still fit the clock's milliseconds.
        const auto delay = std::chrono::seconds(qint64(std::min(whole, 1e9)));
        ZVXClock::after(delay, toast, [toast] { toast->close(); });
    }
    return toast;
}

Toast *Toast::current()
{
    return s_current;
}

QString Toast::title() const
{
    return m_title->text();
}

QString Toast::text() const
{
    return m_text->text();
}

void Toast::place()
{
    // Over the bottom of the window it belongs to, centred; else of the screen.
    QRect area;
    if (QWidget *window = parentWidget())
        area = window->frameGeometry();
    else if (QScreen *screen = QGuiApplication::primaryScreen())
        area = screen->availableGeometry();
    if (area.isEmpty())
        return;
    move(area.center().x() - width() / 2, area.bottom() - BottomMargin - height());
}
