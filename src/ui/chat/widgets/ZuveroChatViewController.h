#pragma once

//! \file
//! The chat screen.

#include "ZuveroChatMessage.h"
#include "ZuveroImage.h"

#include <QWidget>

#include <memory>

class Zuvero;
class ZuveroChatInputAccessoryView;
class ZuveroChatView;
class ZuveroChatViewControllerPrivate;

/*!
    The chat screen: the conversation's list over the input bar.

    It opens with the conversation its facade keeps, reloads it from the
    server when it first appears, sends what the user writes (at once, or
    through the offline queue when the network is down or older messages
    wait), loads earlier history when the user pulls past the top or
    presses the load-more row, and polls the server while it is shown. It
    tells its facade when it appears and disappears, so that a rising unread
    count waits while the user reads.

    The facade's chatViewController() makes one inside a
    ZuveroNavigationController; a host may also make one itself and give it
    its facade with setApiInstance().
*/
class ZUVERO_EXPORT ZuveroChatViewController : public QWidget
{
    Q_OBJECT

public:
    //! A screen without a facade: empty until setApiInstance().
    explicit ZuveroChatViewController(QWidget *parent = nullptr);
    ~ZuveroChatViewController() override;

    //! The facade whose conversation the screen shows.
    Zuvero *apiInstance() const;
    //! Ties the screen to \a facade (not owned) and shows its cached conversation.
    void setApiInstance(Zuvero *facade);

    //! The list of messages.
    ZuveroChatView *chatView() const;
    //! The bar the user writes in.
    ZuveroChatInputAccessoryView *inputAccessoryView() const;
    //! The screen's background, behind the list; the facade's backgroundView() goes in it.
    QWidget *backgroundView() const;

    //! The messages shown and the ones waiting to be sent.
    ZuveroChatMessageList messages() const;
    //! The messages waiting to be sent, oldest first.
    ZuveroChatMessageList offlineMessages() const;

    //! Asks the server for what is new and shows it, scrolling down when anything changed.
    void reloadChatAnimated(bool animated);
    //! Shows \a message at once and sends it, or queues it while the network is down.
    void sendMessage(const ZuveroChatMessagePtr &message);
    //! Sends a user's message of \a text and \a image (either may be empty).
    void sendMessage(const QString &text, const ZuveroImagePtr &image);

Q_SIGNALS:
    /*!
        The user asked to open an attachment's bubble. Inside a
        ZuveroNavigationController the screen pushes a
        ZuveroChatAttachmentViewController itself; a host that places the
        screen elsewhere opens the attachment from here.
    */
    void attachmentActivated(const ZuveroChatAttachmentPtr &attachment);
    //! The user asked to open a shared place; \a radius in metres. Inside a
    //! ZuveroNavigationController the screen pushes a ZuveroChatLocationViewController itself.
    void locationActivated(double latitude, double longitude, double radius);

protected:
    //! The screen appears: the facade hears of it, and polling starts.
    void showEvent(QShowEvent *event) override;
    //! The screen disappears: polling stops, and the facade hears of it.
    void hideEvent(QHideEvent *event) override;
    //! Follows palette and style changes (the input bar's colours) and the language (the title).
    void changeEvent(QEvent *event) override;
    //! Keeps the views behind the list as large as the background.
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    std::unique_ptr<ZuveroChatViewControllerPrivate> d;
};
