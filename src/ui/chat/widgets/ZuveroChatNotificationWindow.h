#pragma once

//! \file
//! The in-app banner of pushed messages.

#include "ZuveroChatMessage.h"
#include "zuvero_export.h"

#include <QPointer>
#include <QWidget>

#include <chrono>
#include <memory>

class QScreen;
class ZVXGenerationCounter;
class Zuvero;

/*!
    The in-app banner: a pushed message shown along the top edge of the
    screen of the window the user is in (the primary screen when there is
    none), over everything and with the screen's full width.

    It is a frameless window that stays on top and never takes the focus.
    A banner slides down into place (0.35 s, after 0.1 s, easing out) while
    the window fades in (0.25 s), stays for duration() seconds and slides
    back up while the window fades out. A message that arrives while a banner
    is on screen replaces it at once, without sliding, and stays a full
    duration() from its own arrival; there is no queue. Clicking the banner
    dismisses it and asks the facade to show the chat (displayChatView()).
    Every frame and delay runs on ZVXClock.

    The window's object name is "notificationBanner"; its accessible name is
    who wrote the message and its accessible description the text, as are
    those of the banner inside it ("notificationContent").
*/
class ZUVERO_EXPORT ZuveroChatNotificationWindow final : public QWidget
{
    Q_OBJECT

public:
    //! A hidden window; it shows with the first banner.
    explicit ZuveroChatNotificationWindow(QWidget *parent = nullptr);
    ~ZuveroChatNotificationWindow() override;

    /*!
        Shows \a message's text from \a apiInstance, whose chat a click opens;
        nothing when there is no message or its text is empty.
    */
    void presentMessage(const ZuveroChatMessagePtr &message, Zuvero *apiInstance);
    /*!
        Puts \a view (owned from now on) into the banner: slid in when nothing
        is on screen, in place of the banner on screen otherwise. Null removes
        the banner on screen at once.
    */
    void presentView(QWidget *view);
    //! Slides the banner on screen away; nothing when none is.
    void dismissView();
    //! Dismisses the banner after duration() unless another is presented meanwhile.
    void hideAfterDelay();
    //! Dismisses the banner and asks the facade to show the chat.
    void tap();

    //! The banner on screen, null while none is (or it is sliding away).
    QWidget *presentedView() const;
    //! The transparent area along the top of the screen the banner slides in.
    QWidget *containerView() const;
    //! The facade of the message on screen, whose chat a click opens.
    Zuvero *apiInstance() const;

    //! How long a banner stays, in seconds: 2 by default.
    double duration() const;
    //! Lets banners presented from now on stay \a seconds.
    void setDuration(double seconds);

    //! Places the window along the top edge of the current screen.
    void layoutContainer();

protected:
    //! A click on the banner: tap().
    void mouseReleaseEvent(QMouseEvent *event) override;

private:
    void fadeTo(qreal opacity, std::chrono::milliseconds delay, std::chrono::milliseconds length);
    void fitToViews();
    QScreen *targetScreen() const;

    QWidget *m_container = nullptr;
    QPointer<QWidget> m_presented;
    QPointer<Zuvero> m_apiInstance;
    double m_duration = 2.0;
    qreal m_opacity = 0;
    // Per window, not per process: each facade's banner keeps its own stay.
    std::unique_ptr<ZVXGenerationCounter> m_hideTimers;
    // A newer fade of the window stops the one running.
    std::shared_ptr<quint32> m_fade;
    QMetaObject::Connection m_screenChanged;
};
