#include "ZVXWidgetUserInterface.h"

#include "Toast.h"
#include "ZVXDesktopNotifications.h"
#include "ZVXLocalization.h"
#include "Zuvero.h"
#include "ZuveroChatNotificationWindow.h"
#include "ZuveroChatViewController.h"
#include "ZuveroNavigationController.h"

#include <QApplication>
#include <QMessageBox>
#include <QPushButton>

namespace {

QMessageBox *makeBox(const QString &title, const QString &text)
{
    auto *box = new QMessageBox(QApplication::activeWindow());
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setWindowTitle(title);
    box->setText(title);
    box->setInformativeText(text);
    box->setWindowModality(box->parentWidget() ? Qt::WindowModal : Qt::ApplicationModal);
    return box;
}

} // namespace

// The core of the library declares this and leaves it to the user interface: widgets only in an
// application that has them.
std::unique_ptr<ZVXUserInterface> ZVXUserInterface::make()
{
    if (qobject_cast<QApplication *>(QCoreApplication::instance()))
        return std::make_unique<ZVXWidgetUserInterface>();
    return std::make_unique<ZVXHeadlessUserInterface>();
}

ZVXWidgetUserInterface::ZVXWidgetUserInterface() = default;

ZVXWidgetUserInterface::~ZVXWidgetUserInterface()
{
    // No screen took it: it is ours to delete.
    if (m_backgroundView && !m_backgroundView->parent())
        delete m_backgroundView;
    delete m_banner;
}

QWidget *ZVXWidgetUserInterface::makeChatScreen(Zuvero *facade)
{
    auto *screen = new ZuveroChatViewController;
    // Titled by the facade's title, else the library's own title in the user's language.
    screen->setApiInstance(facade);
    auto *navigation = new ZuveroNavigationController(screen);
    const ZuveroAppearance &look = facade->appearance();
    navigation->setBarColors(look.navigationBarItemTintColor, look.navigationBarTintColor,
                             look.navigationBarColor, look.navigationBarTitleColor);
    if (auto *titleView = qobject_cast<QWidget *>(facade->titleView()))
        navigation->setTitleView(titleView);
    if (QWidget *background = facade->backgroundView()) {
        // Behind the list, as large as the screen's background whatever its size.
        background->setParent(screen->backgroundView());
        background->setGeometry(screen->backgroundView()->rect());
        background->lower();
        background->show();
    }
    return navigation;
}

void ZVXWidgetUserInterface::presentChatScreen(Zuvero *facade)
{
    QWidget *screen = makeChatScreen(facade);
    // Over the window the user is in, as a window of its own that Done closes.
    screen->setParent(QApplication::activeWindow(), Qt::Window);
    screen->setAttribute(Qt::WA_DeleteOnClose);
    screen->resize(PresentedSize);
    screen->show();
    screen->raise();
    screen->activateWindow();
}

QWidget *ZVXWidgetUserInterface::backgroundView()
{
    if (!m_backgroundView) {
        m_backgroundView = new QWidget;
        m_backgroundView->setObjectName(QStringLiteral("hostBackgroundView"));
        m_backgroundView->setGeometry(0, 0, 100, 100);
        // The page colour of the desktop's theme: white in a light one, and dark in a dark one,
        // where white behind grey dates and light bubbles would glare.
        m_backgroundView->setAutoFillBackground(true);
        m_backgroundView->setBackgroundRole(QPalette::Base);
    }
    return m_backgroundView;
}

void ZVXWidgetUserInterface::showBanner(const ZuveroChatMessagePtr &message, Zuvero *facade)
{
    // The log line stays: a host reading its log sees the message whether or not it was seen.
    ZVXHeadlessUserInterface::showBanner(message, facade);
    if (!ZVXDesktopNotifications::applicationInBackground()) {
        showInAppBanner(message, facade);
        return;
    }
    // The banner shows over the application's own windows only: behind another one, unseen.
    if (!m_desktopNotifications)
        m_desktopNotifications = std::make_unique<ZVXDesktopNotifications>();
    m_desktopNotifications->show(message, facade,
                                 [this, message, target = QPointer<Zuvero>(facade)] {
                                     if (target)
                                         showInAppBanner(message, target);
                                 });
}

void ZVXWidgetUserInterface::showInAppBanner(const ZuveroChatMessagePtr &message, Zuvero *facade)
{
    if (!m_banner)
        m_banner = new ZuveroChatNotificationWindow;
    m_banner->presentMessage(message, facade);
}

void ZVXWidgetUserInterface::showAlert(const ZVXAlert &alert)
{
    QMessageBox *box = makeBox(alert.title, alert.message);
    const QStringList buttons = alert.buttons.isEmpty()
        ? QStringList{ZVXLocalization::localizeString(QStringLiteral("zuveroOKButtonTitle"),
                                                      QStringLiteral("OK"))}
        : alert.buttons;
    QList<QAbstractButton *> added;
    for (const QString &title : buttons)
        added.append(box->addButton(title, QMessageBox::AcceptRole));
    QObject::connect(box, &QMessageBox::buttonClicked, box,
                     [added, completion = alert.completion](QAbstractButton *button) {
                         if (completion)
                             completion(int(added.indexOf(button)));
                     });
    box->open();
}

void ZVXWidgetUserInterface::showToast(const QString &title, const QString &text, double seconds)
{
    Toast::display(title, text, seconds);
}
