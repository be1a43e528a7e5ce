#include "ZuveroNavigationController.h"

#include "ZVXLocalization.h"

#include <QAction>
#include <QApplication>
#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QStackedWidget>
#include <QVBoxLayout>

#include <functional>

namespace {

// Follows the window titles of the screens it shows.
class TitleWatcher : public QObject
{
public:
    TitleWatcher(QObject *parent, std::function<void()> changed)
        : QObject(parent)
        , m_changed(std::move(changed))
    { }

protected:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (event->type() == QEvent::WindowTitleChange)
            m_changed();
        return QObject::eventFilter(watched, event);
    }

private:
    std::function<void()> m_changed;
};

} // namespace

ZuveroNavigationController::ZuveroNavigationController(QWidget *root, QWidget *parent)
    : QWidget(parent)
{
    setObjectName(QStringLiteral("navigationController"));
    m_bar = new QWidget(this);
    m_bar->setObjectName(QStringLiteral("navigationBar"));
    m_bar->setAutoFillBackground(true);
    m_back = new QPushButton(m_bar);
    m_back->setObjectName(QStringLiteral("backButton"));
    m_back->setFlat(true);
    m_title = new QLabel(m_bar);
    m_title->setObjectName(QStringLiteral("titleLabel"));
    m_title->setAlignment(Qt::AlignCenter);
    m_title->setTextFormat(Qt::PlainText);
    QFont bold = m_title->font();
    bold.setBold(true);
    m_title->setFont(bold);
    m_done = new QPushButton(m_bar);
    m_done->setObjectName(QStringLiteral("doneButton"));
    m_done->setFlat(true);
    retranslate();

    auto *bar = new QHBoxLayout(m_bar);
    bar->setContentsMargins(8, 6, 8, 6);
    bar->addWidget(m_back);
    bar->addWidget(m_title, 1);
    bar->addWidget(m_done);

    m_stack = new QStackedWidget(this);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(m_bar);
    layout->addWidget(m_stack, 1);

    connect(m_back, &QPushButton::clicked, this, &ZuveroNavigationController::popViewController);
    connect(m_done, &QPushButton::clicked, this, [this] {
        Q_EMIT doneClicked();
        window()->close();
    });
    // The keyboard's way to the same buttons: the desktop's Back (Alt+Left) while a screen is
    // pushed, and its Close (Ctrl+W) for Done, anywhere in the container.
    const auto addShortcut = [this](QKeySequence::StandardKey key, QPushButton *button) {
        auto *action = new QAction(this);
        action->setShortcuts(key);
        action->setShortcutContext(Qt::WidgetWithChildrenShortcut);
        connect(action, &QAction::triggered, button, [button] {
            if (button->isVisible() && button->isEnabled())
                button->click();
        });
        addAction(action);
    };
    addShortcut(QKeySequence::Back, m_back);
    addShortcut(QKeySequence::Close, m_done);
    pushViewController(root);
}

ZuveroNavigationController::~ZuveroNavigationController()
{
    // The title view is the host's: it outlives the screens that showed it.
    if (m_titleView) {
        m_titleView->hide();
        m_titleView->setParent(nullptr);
    }
}

QWidget *ZuveroNavigationController::rootViewController() const
{
    return m_stack->widget(0);
}

QWidget *ZuveroNavigationController::topViewController() const
{
    return m_stack->currentWidget();
}

void ZuveroNavigationController::pushViewController(QWidget *screen)
{
    if (!screen)
        return;
    screen->installEventFilter(new TitleWatcher(screen, [this] { updateBar(); }));
    // Where the keyboard was goes under the new screen with the one it covers, and the
    // keyboard goes into the new screen, so that its keys and Back work at once.
    QWidget *focused = QApplication::focusWidget();
    m_returnFocus.append(focused && isAncestorOf(focused) ? focused : nullptr);
    m_stack->addWidget(screen);
    m_stack->setCurrentWidget(screen);
    updateBar();
    if (m_stack->count() > 1)
        focusInto(screen);
}

void ZuveroNavigationController::focusInto(QWidget *screen)
{
    for (QWidget *next = screen->nextInFocusChain(); next && next != screen;
         next = next->nextInFocusChain()) {
        if (screen->isAncestorOf(next) && (next->focusPolicy() & Qt::TabFocus)
            && next->isVisibleTo(screen) && next->isEnabled()) {
            next->setFocus(Qt::OtherFocusReason);
            return;
        }
    }
    m_back->setFocus(Qt::OtherFocusReason);
}

void ZuveroNavigationController::popViewController()
{
    if (m_stack->count() <= 1)
        return;
    QWidget *top = m_stack->currentWidget();
    const bool hadFocus = top->isAncestorOf(QApplication::focusWidget()) || m_back->hasFocus()
        || m_done->hasFocus();
    m_stack->removeWidget(top);
    top->deleteLater();
    m_stack->setCurrentIndex(m_stack->count() - 1);
    updateBar();
    const QPointer<QWidget> returnTo = m_returnFocus.takeLast();
    if (hadFocus && returnTo)
        returnTo->setFocus(Qt::OtherFocusReason);
}

void ZuveroNavigationController::setTitleView(QWidget *view)
{
    if (m_titleView == view)
        return;
    auto *bar = static_cast<QHBoxLayout *>(m_bar->layout());
    if (m_titleView)
        bar->removeWidget(m_titleView);
    m_titleView = view;
    if (view) {
        view->setParent(m_bar);
        bar->insertWidget(1, view, 1);
    }
    updateBar();
}

QWidget *ZuveroNavigationController::titleView() const
{
    return m_titleView;
}

void ZuveroNavigationController::setBarColors(const QColor &itemTint, const QColor &barTint,
                                              const QColor &background, const QColor &title)
{
    QPalette palette = m_bar->palette();
    const QColor fill = barTint.isValid() ? barTint : background;
    if (fill.isValid())
        palette.setColor(QPalette::Window, fill);
    if (itemTint.isValid()) {
        palette.setColor(QPalette::ButtonText, itemTint);
        palette.setColor(QPalette::Highlight, itemTint);
    }
    if (title.isValid())
        palette.setColor(QPalette::WindowText, title);
    m_bar->setPalette(palette);
}

QPushButton *ZuveroNavigationController::doneButton() const
{
    return m_done;
}

void ZuveroNavigationController::updateBar()
{
    QWidget *top = m_stack->currentWidget();
    const bool root = m_stack->currentIndex() <= 0;
    m_back->setVisible(!root);
    // The title view stands for the root's title only; a pushed screen shows its own.
    const bool custom = m_titleView && root;
    if (m_titleView)
        m_titleView->setVisible(custom);
    m_title->setVisible(!custom);
    m_title->setText(top ? top->windowTitle() : QString());
    // Shown as a window of its own, the window says the same.
    setWindowTitle(m_title->text());
}

void ZuveroNavigationController::changeEvent(QEvent *event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::LanguageChange)
        retranslate();
}

void ZuveroNavigationController::retranslate()
{
    m_back->setText(ZVXLocalization::localizeString(QStringLiteral("zuveroBackButtonTitle")));
    m_back->setAccessibleName(m_back->text());
    m_done->setText(ZVXLocalization::localizeString(QStringLiteral("zuveroDoneButtonTitle")));
    m_done->setAccessibleName(m_done->text());
}
