#pragma once

#include "ZVXAlert.h"
#include "ZuveroChatMessage.h"

#include <memory>

class QWidget;
class Zuvero;

/*!
    What only a user interface can do for the facade: make the chat screen
    and present it, show a pushed message in the in-app banner, and show
    alerts and toasts. It is the one way from the facade up to the screen:
    each facade holds one and calls nothing else upward.

    The library's widgets fill it in (src/ui), and make(), defined there,
    chooses them when the application has widgets (a QApplication). A
    headless host (a QCoreApplication) gets ZVXHeadlessUserInterface, which
    writes what it would have shown to the log.
*/
class ZUVERO_EXPORT ZVXUserInterface
{
public:
    virtual ~ZVXUserInterface();

    //! A new, configured chat screen of \a facade in its navigation container; null without
    //! screens.
    virtual QWidget *makeChatScreen(Zuvero *facade) = 0;
    //! Shows \a facade's chat screen the built-in way.
    virtual void presentChatScreen(Zuvero *facade) = 0;
    //! The view behind every chat screen of the facade, made when first asked; null without
    //! screens.
    virtual QWidget *backgroundView() = 0;
    //! Announces a pushed message while no chat screen is visible.
    virtual void showBanner(const ZuveroChatMessagePtr &message, Zuvero *facade) = 0;
    virtual void showAlert(const ZVXAlert &alert) = 0;
    //! A notice with a title and a text, closed by itself after \a seconds when above 0.
    virtual void showToast(const QString &title, const QString &text, double seconds) = 0;

    //! The user interface for this application, widgets or headless.
    static std::unique_ptr<ZVXUserInterface> make();
};

//! The user interface of a host without widgets: one log line for each thing it would show.
class ZUVERO_EXPORT ZVXHeadlessUserInterface : public ZVXUserInterface
{
public:
    QWidget *makeChatScreen(Zuvero *facade) override;
    void presentChatScreen(Zuvero *facade) override;
    QWidget *backgroundView() override;
    void showBanner(const ZuveroChatMessagePtr &message, Zuvero *facade) override;
    void showAlert(const ZVXAlert &alert) override;
    void showToast(const QString &title, const QString &text, double seconds) override;
};
