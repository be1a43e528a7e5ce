#pragma once

//! \file
//! The bar the user writes in, and its delegate.

#include "zuvero_export.h"

#include <QColor>
#include <QFont>
#include <QImage>
#include <QWidget>

#include <functional>
#include <memory>
#include <optional>

class ZuveroChatInputAccessoryView;
class ZuveroChatInputAccessoryViewPrivate;

/*!
    What the input bar tells the screen that shows it. Every member is
    optional: an empty one is simply not called. The bar holds it weakly:
    whoever shows the bar keeps it alive.
*/
struct ZuveroChatInputAccessoryViewDelegate
{
    //! The text field is about to take the keyboard; false keeps it from doing so.
    std::function<bool(ZuveroChatInputAccessoryView *view)>
        chatInputAccessoryViewShouldBeginEditing;
    //! The text field took the keyboard.
    std::function<void(ZuveroChatInputAccessoryView *view)> chatInputAccessoryViewDidBeginEditing;
    //! The text field gave the keyboard up.
    std::function<void(ZuveroChatInputAccessoryView *view)> chatInputAccessoryViewDidEndEditing;
    //! The user changed the message: typed, pasted, or staged or dropped a picture.
    std::function<void(ZuveroChatInputAccessoryView *view)> chatInputAccessoryViewDidChangeText;
    //! After chatInputAccessoryViewDidChangeText, when the change altered fittingHeight().
    std::function<void(ZuveroChatInputAccessoryView *view)> chatInputAccessoryViewDidChangeSize;
    //! The send button went from enabled to disabled or back.
    std::function<void(ZuveroChatInputAccessoryView *view)>
        chatInputAccessoryViewButtonDidChangeState;
    //! Send was pressed (button or Enter) with something to send.
    std::function<void(ZuveroChatInputAccessoryView *view)> chatInputAccessoryViewDidSend;
    //! The attachment button was pressed.
    std::function<void(ZuveroChatInputAccessoryView *view)> chatInputAccessoryViewSelectAttachment;
};

/*!
    The bar under the conversation in which the user writes a message or
    stages one picture, with an attachment button and a send button.

    Built from the form "ZuveroChatInputAccessoryView.ui"; its children are
    found by object name: "containerView", "toolbar", "textView" (plain text,
    at most 1000 characters typed or pasted), "attachmentButton",
    "sendButton" and "attachmentImageView" (the staged picture). The bar is
    as tall as its text up to a text height of 100 pixels, and scrolls
    beyond; it is never lower than 44 pixels. Sizes are device-independent
    pixels.

    Keyboard: Enter sends when there is something to send, Shift+Enter
    starts a new line. A picture pasted (its data or an image file) or
    dropped on the bar is staged, as by setImage(); Backspace or Delete
    takes a staged picture away again.

    Colours come from the bar's palette (Window behind the bar, Base and
    Text in the field, Highlight as the tint that the send button takes
    unless given its own colours).
*/
class ZUVERO_EXPORT ZuveroChatInputAccessoryView : public QWidget
{
    Q_OBJECT

public:
    //! The delegate as the bar holds it: weakly.
    using DelegatePtr = std::weak_ptr<ZuveroChatInputAccessoryViewDelegate>;

    //! An empty bar, built from its form.
    explicit ZuveroChatInputAccessoryView(QWidget *parent = nullptr);
    ~ZuveroChatInputAccessoryView() override;
    //! A bar built from its form; the same as the constructor.
    static ZuveroChatInputAccessoryView *viewFromNib(QWidget *parent = nullptr);

    //! Who hears of the user's changes and presses.
    DelegatePtr delegate() const;
    //! Tells \a delegate from now on.
    void setDelegate(const DelegatePtr &delegate);

    //! The message written, without white space or line breaks at its ends.
    QString text() const;
    /*!
        Stages \a text: keeps it trimmed, shows it in the field, takes away
        any staged picture, refits and updates the send button.
    */
    void setText(const QString &text);
    //! The staged picture; a null image when there is none.
    QImage image() const;
    /*!
        Stages \a image (a null image: none): empties the field while text()
        stays what it was, shows the picture, refits and updates the send
        button.
    */
    void setImage(const QImage &image);
    //! Whether there is anything to send: text, or a picture.
    bool validMessage() const;

    //! Enables the send button exactly when validMessage(), telling the delegate of a change.
    void updateSendButton();
    //! Computes fittingHeight() again; true when it changed.
    bool updateFittingSize();
    //! The height the bar wants: its content's height plus margins, at least 44.
    double fittingHeight() const;
    //! The field's height in the form: the content height of one line.
    double minTextViewHeight() const;
    //! 100: beyond that content height the field scrolls.
    double maxTextViewHeight() const;
    //! The bar's height in the form less the field's.
    double textViewVerticalMargins() const;

    //! What the send button does: tells the delegate, when there is something to send.
    void send();
    //! What the attachment button does.
    void addAttachment();
    //! The text field, to give the keyboard to.
    QWidget *responder() const;

    //! The send button's title colour while enabled; an invalid colour: the tint.
    void setEnabledSendButtonColor(const QColor &color);
    //! The send button's title colour while disabled; an invalid colour is ignored.
    void setDisabledSendButtonColor(const QColor &color);
    //! The field's font; no font is ignored.
    void setMessageFieldFont(const std::optional<QFont> &font);

    //! Any width; fittingHeight() tall.
    QSize sizeHint() const override;
    //! The form's narrowest width; fittingHeight() tall.
    QSize minimumSizeHint() const override;

protected:
    //! Follows palette changes (the send button's tint) and language changes (its texts).
    bool event(QEvent *event) override;
    //! The field's keys (Enter, paste, Backspace on a picture) and focus, and the picture's size.
    bool eventFilter(QObject *watched, QEvent *event) override;
    //! Measures the text again at the new width.
    void resizeEvent(QResizeEvent *event) override;
    //! Accepts what may be a picture.
    void dragEnterEvent(QDragEnterEvent *event) override;
    //! Accepts what may be a picture.
    void dragMoveEvent(QDragMoveEvent *event) override;
    //! Stages the dropped picture.
    void dropEvent(QDropEvent *event) override;

private:
    std::unique_ptr<ZuveroChatInputAccessoryViewPrivate> d;
};
