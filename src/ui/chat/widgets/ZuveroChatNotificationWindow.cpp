#include "ZuveroChatNotificationWindow.h"

#include "ZVXClock.h"
#include "ZVXGenerationCounter.h"
#include "ZVXLocalization.h"
#include "ZVXLogging.h"
#include "Zuvero.h"
#include "ZuveroException.h"

#include <QApplication>
#include <QEasingCurve>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QScreen>
#include <QTextLayout>

#include <algorithm>
#include <cmath>

using namespace std::chrono_literals;

namespace {

constexpr auto SlideDelay = 100ms;
constexpr auto SlideLength = 350ms;
constexpr auto FadeInLength = 250ms;
constexpr auto FadeOutDelay = 100ms;
constexpr auto FadeOutLength = 250ms;
// About 60 frames a second.
constexpr auto FrameInterval = 16ms;

constexpr int VerticalMargin = 12;
constexpr int HorizontalMargin = 16;
constexpr int IconSize = 36;
constexpr int IconGap = 12;
constexpr int NameGap = 2;
// On a wide screen the words stay together in the middle rather than run across it.
constexpr int MaximumColumnWidth = 680;
constexpr int MaximumTextLines = 3;

const char SlideProperty[] = "zvxSlide";

qreal easeOut(qreal progress)
{
    // The usual ease-out: a cubic Bézier from (0, 0) to (1, 1) through (0.58, 1).
    static const QEasingCurve curve = [] {
        QEasingCurve c(QEasingCurve::BezierSpline);
        c.addCubicBezierSegment(QPointF(0, 0), QPointF(0.58, 1), QPointF(1, 1));
        return c;
    }();
    return curve.valueForProgress(progress);
}

// One animation: frames from start to start + length, as long as it is the latest of its kind.
struct Frames
{
    QDateTime start;
    qint64 length = 0;
    std::function<bool()> isCurrent;
    std::function<void(qreal)> frame;
    std::function<void()> done;
};

void runFrames(const QObject *context, const std::shared_ptr<Frames> &frames)
{
    if (!frames->isCurrent())
        return;
    const qint64 elapsed = frames->start.msecsTo(ZVXClock::currentTime());
    if (elapsed < 0) {
        ZVXClock::after(std::chrono::milliseconds(-elapsed), context,
                        [context, frames] { runFrames(context, frames); });
        return;
    }
    const qreal progress
        = frames->length > 0 ? std::min(1.0, qreal(elapsed) / qreal(frames->length)) : 1.0;
    frames->frame(easeOut(progress));
    if (progress >= 1) {
        if (frames->done)
            frames->done();
        return;
    }
    // The last frame falls exactly on the end, so the animation ends on time.
    const qint64 next = std::min<qint64>(FrameInterval.count(), frames->length - elapsed);
    ZVXClock::after(std::chrono::milliseconds(next), context,
                    [context, frames] { runFrames(context, frames); });
}

void animate(const QObject *context, std::chrono::milliseconds delay,
             std::chrono::milliseconds length, std::function<bool()> isCurrent,
             std::function<void(qreal)> frame, std::function<void()> done = {})
{
    auto frames = std::make_shared<Frames>();
    frames->start = ZVXClock::currentTime().addMSecs(delay.count());
    frames->length = length.count();
    frames->isCurrent = std::move(isCurrent);
    frames->frame = std::move(frame);
    frames->done = std::move(done);
    runFrames(context, frames);
}

// Moves \a view vertically from \a from to \a to, telling \a moved at each frame; a later slide
// of the same view stops this one.
void slide(QWidget *view, std::chrono::milliseconds delay, int from, int to,
           std::function<void()> moved, std::function<void()> done)
{
    const quint32 id = view->property(SlideProperty).toUInt() + 1;
    view->setProperty(SlideProperty, id);
    animate(
        view, delay, SlideLength,
        [view, id] { return view->property(SlideProperty).toUInt() == id; },
        [view, from, to, moved](qreal t) {
            view->move(view->x(), int(std::lround(from + (to - from) * t)));
            moved();
        },
        std::move(done));
}

// What a banner shows: who wrote, with a round initial as an icon, and the first lines of the text.
class BannerContent final : public QWidget
{
public:
    // Without a \a name, the banner names the chat by the library's title.
    BannerContent(const QString &name, const QString &text)
        : m_name(name)
        , m_text(text)
        , m_ourName(name.isEmpty())
    {
        if (m_ourName)
            m_name = ourName();
        setObjectName(QStringLiteral("notificationContent"));
        setAccessibleName(name);
        setAccessibleDescription(text);
        setAttribute(Qt::WA_OpaquePaintEvent);
        QSizePolicy policy(QSizePolicy::Expanding, QSizePolicy::Fixed);
        policy.setHeightForWidth(true);
        setSizePolicy(policy);
    }

    bool hasHeightForWidth() const override { return true; }

    void changeEvent(QEvent *event) override
    {
        QWidget::changeEvent(event);
        if (event->type() != QEvent::LanguageChange || !m_ourName)
            return;
        m_name = ourName();
        setAccessibleName(m_name);
        if (QWidget *banner = window(); banner != this)
            banner->setAccessibleName(m_name);
        update();
    }

    int heightForWidth(int width) const override
    {
        const int lines = int(textLines(columnRect(width).width() - IconSize - IconGap).size());
        const int words = QFontMetrics(nameFont()).lineSpacing() + NameGap
            + lines * QFontMetrics(font()).lineSpacing();
        return VerticalMargin + std::max(IconSize, words) + VerticalMargin;
    }

    QSize sizeHint() const override { return {MaximumColumnWidth, heightForWidth(width())}; }

protected:
    void paintEvent(QPaintEvent *) override
    {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        const QPalette &colors = palette();
        // The page colour, not the window's: the banner stands out from the window under it, in a
        // light theme and a dark one, and a hairline closes it at the bottom.
        painter.fillRect(rect(), colors.color(QPalette::Base));
        painter.fillRect(QRect(0, height() - 1, width(), 1), colors.color(QPalette::Mid));

        const QRect column = columnRect(width());
        const QRect icon(column.left(), VerticalMargin, IconSize, IconSize);
        painter.setPen(Qt::NoPen);
        painter.setBrush(colors.color(QPalette::Highlight));
        painter.drawEllipse(icon);
        QFont initialFont = nameFont();
        initialFont.setPixelSize(IconSize / 2);
        painter.setFont(initialFont);
        painter.setPen(colors.color(QPalette::HighlightedText));
        painter.drawText(icon, Qt::AlignCenter, m_name.left(1).toUpper());

        const int left = icon.right() + 1 + IconGap;
        const int textWidth = column.right() + 1 - left;
        const QFontMetrics nameMetrics(nameFont());
        painter.setFont(nameFont());
        painter.setPen(colors.color(QPalette::Text));
        painter.drawText(QPoint(left, VerticalMargin + nameMetrics.ascent()),
                         nameMetrics.elidedText(m_name, Qt::ElideRight, textWidth));

        painter.setFont(font());
        const QFontMetrics metrics(font());
        int baseline = VerticalMargin + nameMetrics.lineSpacing() + NameGap + metrics.ascent();
        for (const QString &line : textLines(textWidth)) {
            painter.drawText(QPoint(left, baseline), line);
            baseline += metrics.lineSpacing();
        }
    }

private:
    static QString ourName()
    {
        return ZVXLocalization::localizeString(QStringLiteral("zuveroChatTitle"));
    }

    QFont nameFont() const
    {
        QFont bold = font();
        bold.setBold(true);
        return bold;
    }

    static QRect columnRect(int width)
    {
        const int column = std::max(0, std::min(width - 2 * HorizontalMargin, MaximumColumnWidth));
        return {(width - column) / 2, 0, column, 0};
    }

    // The text wrapped to \a width, the last line that fits ending in an ellipsis when more follow.
    QStringList textLines(int width) const
    {
        QString text = m_text;
        text.replace(u'\n', QChar::LineSeparator);
        QTextLayout layout(text, font());
        QStringList lines;
        const QFontMetrics metrics(font());
        layout.beginLayout();
        for (QTextLine line = layout.createLine(); line.isValid(); line = layout.createLine()) {
            line.setLineWidth(std::max(1, width));
            if (lines.size() == MaximumTextLines - 1) {
                const QString rest = text.mid(line.textStart()).replace(QChar::LineSeparator, u' ');
                lines.append(metrics.elidedText(rest, Qt::ElideRight, std::max(1, width)));
                break;
            }
            lines.append(text.mid(line.textStart(), line.textLength()).trimmed());
        }
        layout.endLayout();
        return lines;
    }

    QString m_name;
    QString m_text;
    bool m_ourName = false;
};

} // namespace

ZuveroChatNotificationWindow::ZuveroChatNotificationWindow(QWidget *parent)
    // A tool tip's kind of window, not a tool window: the window manager leaves it where it is
    // put, over the desktop's top panel too, and never gives it the focus, which a tool window
    // takes when shown on some platforms whatever its hints.
    : QWidget(parent,
              Qt::ToolTip | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint
                  | Qt::WindowDoesNotAcceptFocus)
    , m_hideTimers(std::make_unique<ZVXGenerationCounter>())
    , m_fade(std::make_shared<quint32>(0))
{
    setObjectName(QStringLiteral("notificationBanner"));
    setAttribute(Qt::WA_ShowWithoutActivating);
    setFocusPolicy(Qt::NoFocus);
    setWindowOpacity(0);
    m_container = new QWidget(this);
    m_container->setObjectName(QStringLiteral("notificationContainer"));
}

ZuveroChatNotificationWindow::~ZuveroChatNotificationWindow() = default;

void ZuveroChatNotificationWindow::presentMessage(const ZuveroChatMessagePtr &message,
                                                  Zuvero *apiInstance)
{
    if (!message)
        return;
    const QString text = message->text().value_or(QString());
    if (text.isEmpty())
        return;
    // Who wrote it: the agent by name, else the chat the host named, else ours.
    QString name = message->userName().value_or(QString());
    if (name.isEmpty() && apiInstance)
        name = apiInstance->title().value_or(QString());
    m_apiInstance = apiInstance;
    presentView(new BannerContent(name, text));
}

void ZuveroChatNotificationWindow::presentView(QWidget *view)
{
    if (!view) {
        delete m_presented;
        ++*m_fade;
        m_opacity = 0;
        setWindowOpacity(0);
        hide();
        return;
    }
    if (view == m_presented)
        return;
    view->setParent(m_container);
    setAccessibleName(view->accessibleName());
    setAccessibleDescription(view->accessibleDescription());
    if (m_presented) {
        // No queue and no second slide: the newer message takes the older one's place.
        delete m_presented;
        m_presented = view;
        layoutContainer();
        view->setGeometry(m_container->rect());
        view->show();
        fitToViews();
        hideAfterDelay();
        return;
    }
    m_presented = view;
    layoutContainer();
    show();
    raise();
    fadeTo(1, 0ms, FadeInLength);
    const QRect place = m_container->rect();
    view->setGeometry(place.translated(0, -place.height()));
    view->show();
    fitToViews();
    slide(
        view, SlideDelay, -place.height(), place.top(), [this] { fitToViews(); },
        [this] { hideAfterDelay(); });
}

void ZuveroChatNotificationWindow::dismissView()
{
    if (!m_presented)
        return;
    // Forgotten at once, so that a second dismissal finds nothing to do.
    QWidget *view = m_presented;
    m_presented = nullptr;
    slide(
        view, 0ms, view->y(), -view->height(), [this] { fitToViews(); },
        [view] { view->deleteLater(); });
    fadeTo(0, FadeOutDelay, FadeOutLength);
}

void ZuveroChatNotificationWindow::hideAfterDelay()
{
    // Far-off stays still fit the clock's milliseconds.
    const double seconds = std::isfinite(m_duration) ? std::clamp(m_duration, 0.0, 1e9) : 0.0;
    m_hideTimers->scheduleLast(std::chrono::milliseconds(std::llround(seconds * 1000)), this,
                               [this] { dismissView(); });
}

void ZuveroChatNotificationWindow::tap()
{
    const QPointer<Zuvero> facade = m_apiInstance;
    dismissView();
    if (!facade)
        return;
    // A click is no place for an exception to leave from.
    try {
        facade->displayChatView();
    } catch (const ZuveroException &error) {
        ZVXLogError(QStringLiteral("ZuveroChatNotificationWindow: cannot show the chat: %1")
                        .arg(error.reason()));
    }
}

QWidget *ZuveroChatNotificationWindow::presentedView() const
{
    return m_presented;
}

QWidget *ZuveroChatNotificationWindow::containerView() const
{
    return m_container;
}

Zuvero *ZuveroChatNotificationWindow::apiInstance() const
{
    return m_apiInstance;
}

double ZuveroChatNotificationWindow::duration() const
{
    return m_duration;
}

void ZuveroChatNotificationWindow::setDuration(double seconds)
{
    m_duration = seconds;
}

void ZuveroChatNotificationWindow::layoutContainer()
{
    QScreen *screen = targetScreen();
    if (!screen)
        return;
    // Follow the screen when it turns or changes size under the banner.
    disconnect(m_screenChanged);
    m_screenChanged = connect(screen, &QScreen::geometryChanged, this,
                              &ZuveroChatNotificationWindow::layoutContainer);
    const QRect area = screen->geometry();
    int height = m_container->height();
    if (m_presented) {
        height = m_presented->hasHeightForWidth() ? m_presented->heightForWidth(area.width())
                                                  : m_presented->sizeHint().height();
    }
    move(area.topLeft());
    m_container->setGeometry(0, 0, area.width(), std::max(1, height));
    if (m_presented)
        m_presented->resize(m_container->size());
    fitToViews();
}

void ZuveroChatNotificationWindow::fitToViews()
{
    // The window ends where the banners do: while one slides, what it has not covered yet is the
    // host's, not an empty strip of ours.
    int bottom = 1;
    for (QWidget *view : m_container->findChildren<QWidget *>(Qt::FindDirectChildrenOnly)) {
        if (!view->isHidden())
            bottom = std::max(bottom, view->geometry().bottom() + 1);
    }
    resize(m_container->width(), std::min(bottom, std::max(1, m_container->height())));
}

void ZuveroChatNotificationWindow::mouseReleaseEvent(QMouseEvent *event)
{
    const QPoint at = m_container->mapFrom(this, event->position().toPoint());
    if (event->button() == Qt::LeftButton && m_presented && m_presented->geometry().contains(at)) {
        event->accept();
        tap();
        return;
    }
    QWidget::mouseReleaseEvent(event);
}

void ZuveroChatNotificationWindow::fadeTo(qreal opacity, std::chrono::milliseconds delay,
                                          std::chrono::milliseconds length)
{
    const quint32 id = ++*m_fade;
    const qreal from = m_opacity;
    const auto fade = m_fade;
    animate(
        this, delay, length, [fade, id] { return *fade == id; },
        [this, from, opacity](qreal t) {
            m_opacity = from + (opacity - from) * t;
            setWindowOpacity(m_opacity);
        },
        [this, opacity] {
            // An invisible window along the top of the screen would still catch clicks.
            if (opacity <= 0 && !m_presented)
                hide();
        });
}

QScreen *ZuveroChatNotificationWindow::targetScreen() const
{
    if (QWidget *window = QApplication::activeWindow(); window && window != this)
        return window->screen();
    return QGuiApplication::primaryScreen();
}
