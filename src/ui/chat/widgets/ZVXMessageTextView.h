#pragma once

#include <QImage>
#include <QTextEdit>

#include <functional>

class QMimeData;

/*!
    The input bar's text field: plain text in a rounded box with a hairline
    border, one line centred in its height.

    It takes no edit that would make a text longer than MaximumLength
    characters, whether typed, pasted, dropped or composed; an edit that
    shortens the text or keeps its length always goes through, so that a
    longer text put in by the program can still be cut down. A picture
    pasted or dropped on it goes to pictureGiven instead of the text.
*/
class ZVXMessageTextView : public QTextEdit
{
    Q_OBJECT

public:
    static constexpr int MaximumLength = 1000;

    explicit ZVXMessageTextView(QWidget *parent = nullptr);

    //! Whether replacing \a replaced characters by \a inserted ones is allowed.
    bool allowsReplacing(qsizetype replaced, qsizetype inserted) const;
    //! The height the whole text needs at the field's width, insets included.
    qreal contentHeight() const;

    //! The picture \a mime carries: image data, or the first image file it names.
    static QImage pictureFrom(const QMimeData *mime);
    //! Whether \a mime may carry a picture, without decoding it.
    static bool mayHoldPicture(const QMimeData *mime);

    //! Receives a picture pasted or dropped on the field.
    std::function<void(const QImage &)> pictureGiven;

protected:
    bool event(QEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void inputMethodEvent(QInputMethodEvent *event) override;
    bool canInsertFromMimeData(const QMimeData *source) const override;
    void insertFromMimeData(const QMimeData *source) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    qsizetype selectionLength() const;
    void centreContent();
};
