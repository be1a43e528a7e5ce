#pragma once

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
    explicit ZuveroChatViewController(QWidget *parent = nullptr);
    ~ZuveroChatViewController() override;

    Zuvero *apiInstance() const;
    //! Ties the screen to \a facade (not owned) and shows its cached conversation.
    void setApiInstance(Zuvero *facade);

    ZuveroChatView *chatView() const;
    ZuveroChatInputAccessoryView *inputAccessoryView() const;
    //! The screen's background, behind the list; the facade's backgroundView() goes in it.
    QWidget *backgroundView() const;

    //! The messages shown and the ones waiting to be sent.
    ZuveroChatMessageList messages() const;
    ZuveroChatMessageList offlineMessages() const;

    void reloadChatAnimated(bool animated);
    void sendMessage(const ZuveroChatMessagePtr &message);
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
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;
    void changeEvent(QEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    std::unique_ptr<ZuveroChatViewControllerPrivate> d;
};
