#pragma once

#include "ZVXUserInterface.h"

#include <QPointer>
#include <QSize>
#include <QWidget>

#include <memory>

class ZVXDesktopNotifications;
class ZuveroChatNotificationWindow;

/*!
    The user interface of a host with Qt Widgets. Alerts are message boxes,
    window-modal over the active window (application-modal when there is
    none), that never block the caller and delete themselves when closed;
    toasts are notices that take no focus and replace each other (Toast).
    The chat screen is a ZuveroChatViewController in a
    ZuveroNavigationController, presented as a window of its own over the
    active window. A pushed message shows in the facade's own banner
    (ZuveroChatNotificationWindow) while the application is in front, and
    as a desktop notification (ZVXDesktopNotifications) while it is not, or
    in the banner when the desktop has no notification service; its log
    line as without widgets.
*/
class ZUVERO_EXPORT ZVXWidgetUserInterface final : public ZVXHeadlessUserInterface
{
public:
    ZVXWidgetUserInterface();
    ~ZVXWidgetUserInterface() override;
    QWidget *makeChatScreen(Zuvero *facade) override;
    void presentChatScreen(Zuvero *facade) override;
    QWidget *backgroundView() override;
    void showBanner(const ZuveroChatMessagePtr &message, Zuvero *facade) override;
    void showAlert(const ZVXAlert &alert) override;
    void showToast(const QString &title, const QString &text, double seconds) override;

    //! The size a presented chat window opens at.
    static constexpr QSize PresentedSize{420, 640};

private:
    void showInAppBanner(const ZuveroChatMessagePtr &message, Zuvero *facade);

    QPointer<QWidget> m_backgroundView;
    QPointer<ZuveroChatNotificationWindow> m_banner;
    std::unique_ptr<ZVXDesktopNotifications> m_desktopNotifications;
};
