#pragma once

//! \file
//! The list of messages, and its delegate.

#include "ZuveroChatMessage.h"

#include <QDateTime>
#include <QWidget>

#include <functional>
#include <memory>

class QListView;
class Zuvero;
class ZuveroChatView;
class ZuveroChatViewPrivate;

/*!
    What a chat view tells the screen that shows it. Every member is
    optional: an empty one is simply not called. The view holds it weakly:
    whoever shows the view keeps it alive, and the view never calls back
    into a delegate that is gone.
*/
struct ZuveroChatViewDelegate
{
    //! The load-more row was pressed.
    std::function<void(ZuveroChatView *chatView)> chatViewLoadEarlierMessages;
    //! The list was scrolled to less than 40 pixels from its top.
    std::function<void(ZuveroChatView *chatView)> chatViewDidOverscroll;
    //! The list was scrolled; after chatViewDidOverscroll.
    std::function<void(ZuveroChatView *chatView)> chatViewDidScroll;
    //! An attachment's bubble was clicked.
    std::function<void(ZuveroChatView *chatView, const ZuveroChatAttachmentPtr &attachment)>
        chatViewOpenAttachment;
    //! A location's bubble was clicked; \a radius in metres ("d", else 2000).
    std::function<void(ZuveroChatView *chatView, double latitude, double longitude, double radius)>
        chatViewOpenLocation;
};

/*!
    The scrolling list of the chat screen: the conversation's messages as
    bubbles, with date separators, the unsent label and the load-more row.

    One list view ("messages_list") over the rows of the messages given;
    its rows are not selectable, but the list takes keyboard focus: Up and
    Down move between rows, Enter or Space opens the focused row's
    attachment or location (or loads earlier messages), Ctrl+C copies the
    text of the row with focus, and a text bubble's context menu offers
    "Copy". Every row has a text for assistive technologies.

    The agent and system messages whose bubbles come on screen while the
    view is visible are reported to the server as read, through the
    facade's connection, a second after the last one seen.
*/
class ZUVERO_EXPORT ZuveroChatView : public QWidget
{
    Q_OBJECT

public:
    //! The delegate as the list holds it: weakly.
    using DelegatePtr = std::weak_ptr<ZuveroChatViewDelegate>;

    //! An empty list in the library's own look until a facade is set.
    explicit ZuveroChatView(QWidget *parent = nullptr);
    ~ZuveroChatView() override;

    //! The facade whose look, date format and previews the list uses (not owned).
    Zuvero *apiInstance() const;
    //! Takes the look of \a instance and reports read messages through it.
    void setApiInstance(Zuvero *instance);
    //! Who hears of scrolls and of the rows the user opens.
    DelegatePtr delegate() const;
    //! Tells \a delegate from now on.
    void setDelegate(const DelegatePtr &delegate);

    //! The messages shown, oldest first.
    ZuveroChatMessageList messages() const;
    /*!
        Shows \a messages, oldest first. Rows that stay keep their place and
        their measured height. With \a dataOnly the list is not told yet:
        the caller reloads it. \a animated is accepted for symmetry and not used.
    */
    void setMessages(const ZuveroChatMessageList &messages, bool animated = false,
                     bool dataOnly = false);
    //! Builds the rows again from the messages shown.
    void reloadDataAnimated(bool animated);
    //! Appends \a message and scrolls to it; a null message is ignored.
    void addMessage(const ZuveroChatMessagePtr &message, bool animated);
    //! Moves, adds or removes the unsent label for the messages now waiting to be sent.
    void updateViewWithOfflineMessages(const ZuveroChatMessageList &offlineMessages, bool animated);
    //! Whether the load-more row is shown; applies at the next setMessages().
    bool hasMoreMessages() const;
    //! Shows the load-more row from the next setMessages() on, or not.
    void setHasMoreMessages(bool hasMoreMessages);
    /*!
        Shows the upload progress (0 to 1) of \a message's attachments. With
        \a animated, a higher value is eased to over a third of a second; a
        lower one is always shown at once.
    */
    void setUploadProgress(double progress, const ZuveroChatMessagePtr &message,
                           bool animated = false);
    //! Scrolls to the newest message; \a animated is accepted and not used.
    void scrollToLastMessageAnimated(bool animated);
    //! Scrolls to the last message only when one of the last three rows is on screen.
    void scrollToLastMessageIfVisibleAnimated(bool animated);

    /*!
        Seconds between messages that would warrant a date row. Kept for
        hosts that set it; the date rows follow their own fixed thresholds.
    */
    double dateInsertionInterval() const;
    //! Keeps \a seconds; see dateInsertionInterval().
    void setDateInsertionInterval(double seconds);
    //! Kept for hosts that set it; Qt paints only what is visible anyway.
    bool shouldRasterizeCells() const;
    //! Keeps \a rasterize; see shouldRasterizeCells().
    void setShouldRasterizeCells(bool rasterize);

    //! The list widget itself.
    QListView *scrollView() const;

    /*!
        When the server last confirmed messages as read (kept in the standard
        user defaults). A message shown more than 30 days before it is not
        reported; the start of 1970 until the first report.
    */
    QDateTime lastMarkAsReadDate() const;
    //! Stores \a date; an invalid one is ignored.
    void setLastMarkAsReadDate(const QDateTime &date);

Q_SIGNALS:
    /*!
        The failed-message icon of \a message was clicked: the screen tells
        the user "Could not send the message".
    */
    void erroredMessageClicked(const ZuveroChatMessagePtr &message);

protected:
    //! Lays the rows out again for a new palette, font, style, direction or language.
    bool event(QEvent *event) override;
    //! The list's clicks, keys, pointer shapes and context menu.
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    std::unique_ptr<ZuveroChatViewPrivate> d;
};
