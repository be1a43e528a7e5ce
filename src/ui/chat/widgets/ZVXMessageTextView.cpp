#include "ZVXMessageTextView.h"

#include <QAbstractTextDocumentLayout>
#include <QImageReader>
#include <QInputMethodEvent>
#include <QKeyEvent>
#include <QMimeData>
#include <QPainter>
#include <QTextBlock>

namespace {

constexpr qreal CornerRadius = 5.0;
// Space between the text and the border, at every side.
constexpr qreal TextInset = 4.0;

// Whether the text field would type the key's text, as Qt's own text controls decide: a
// shortcut such as Ctrl+A carries a letter too.
bool insertsText(const QKeyEvent *event)
{
    const QString text = event->text();
    if (text.isEmpty())
        return false;
    const QChar c = text.at(0);
    if (c.category() == QChar::Other_Format)
        return true;
    if (event->modifiers() == Qt::ControlModifier
        || event->modifiers() == (Qt::ShiftModifier | Qt::ControlModifier))
        return false;
    return c.isPrint() || c.category() == QChar::Other_PrivateUse
        || (c.isHighSurrogate() && text.size() > 1 && text.at(1).isLowSurrogate());
}

} // namespace

ZVXMessageTextView::ZVXMessageTextView(QWidget *parent)
    : QTextEdit(parent)
{
    setAcceptRichText(false);
    // A frame one pixel wide keeps the text and the scroll bar inside the border, which the
    // field draws itself (rounded).
    setFrameStyle(QFrame::Box | QFrame::Plain);
    setLineWidth(1);
    setLineWrapMode(QTextEdit::WidgetWidth);
    setWordWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setTabChangesFocus(true);
    document()->setDocumentMargin(TextInset);
    // The rounded box is drawn by the field itself, behind the text.
    setAutoFillBackground(false);
    viewport()->setAutoFillBackground(false);
    connect(document()->documentLayout(), &QAbstractTextDocumentLayout::documentSizeChanged, this,
            [this] { centreContent(); });
}

bool ZVXMessageTextView::allowsReplacing(qsizetype replaced, qsizetype inserted) const
{
    if (inserted <= replaced)
        return true;
    return toPlainText().size() - replaced + inserted <= MaximumLength;
}

qreal ZVXMessageTextView::contentHeight() const
{
    // Measured apart from the field, so that neither a scroll bar nor a width not yet
    // applied (while hidden) bends the answer.
    QTextDocument measure;
    measure.setDocumentMargin(TextInset);
    measure.setDefaultFont(document()->defaultFont());
    measure.setDefaultTextOption(document()->defaultTextOption());
    measure.setPlainText(toPlainText());
    measure.setTextWidth(std::max(0, contentsRect().width()));
    return measure.size().height() + height() - contentsRect().height();
}

QImage ZVXMessageTextView::pictureFrom(const QMimeData *mime)
{
    if (!mime)
        return {};
    if (mime->hasImage()) {
        const QImage image = qvariant_cast<QImage>(mime->imageData());
        if (!image.isNull())
            return image;
    }
    const QStringList formats = mime->formats();
    for (const QString &format : formats) {
        if (format.startsWith(QLatin1String("image/"))) {
            const QImage image = QImage::fromData(mime->data(format));
            if (!image.isNull())
                return image;
        }
    }
    const QList<QUrl> urls = mime->urls();
    for (const QUrl &url : urls) {
        if (!url.isLocalFile())
            continue;
        QImageReader reader(url.toLocalFile());
        reader.setAutoTransform(true);
        const QImage image = reader.read();
        if (!image.isNull())
            return image;
    }
    return {};
}

bool ZVXMessageTextView::mayHoldPicture(const QMimeData *mime)
{
    if (!mime)
        return false;
    if (mime->hasImage())
        return true;
    const QStringList formats = mime->formats();
    for (const QString &format : formats) {
        if (format.startsWith(QLatin1String("image/")))
            return true;
    }
    const QList<QUrl> urls = mime->urls();
    for (const QUrl &url : urls) {
        if (url.isLocalFile() && !QImageReader::imageFormat(url.toLocalFile()).isEmpty())
            return true;
    }
    return false;
}

qsizetype ZVXMessageTextView::selectionLength() const
{
    const QTextCursor cursor = textCursor();
    return cursor.selectionEnd() - cursor.selectionStart();
}

bool ZVXMessageTextView::event(QEvent *event)
{
    // The field's own area (the text has its own, the viewport, on top): the rounded box.
    if (event->type() == QEvent::Paint) {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        // A cosmetic pen is one device pixel wide at any scale.
        QPen border(QColor(0, 0, 0, 102), 0);
        painter.setPen(border);
        painter.setBrush(palette().brush(QPalette::Base));
        painter.drawRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), CornerRadius,
                                CornerRadius);
        return true;
    }
    return QTextEdit::event(event);
}

void ZVXMessageTextView::keyPressEvent(QKeyEvent *event)
{
    qsizetype inserted = 0;
    if (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter)
        inserted = 1;
    else if (insertsText(event))
        inserted = event->text().size();
    if (inserted > 0 && !isReadOnly() && !allowsReplacing(selectionLength(), inserted)) {
        event->accept();
        return;
    }
    QTextEdit::keyPressEvent(event);
}

void ZVXMessageTextView::inputMethodEvent(QInputMethodEvent *event)
{
    const qsizetype inserted = event->commitString().size();
    if (inserted > 0
        && !allowsReplacing(selectionLength() + event->replacementLength(), inserted)) {
        // The composition ends without its text.
        QInputMethodEvent withoutCommit(QString(), event->attributes());
        QTextEdit::inputMethodEvent(&withoutCommit);
        event->accept();
        return;
    }
    QTextEdit::inputMethodEvent(event);
}

bool ZVXMessageTextView::canInsertFromMimeData(const QMimeData *source) const
{
    return mayHoldPicture(source) || QTextEdit::canInsertFromMimeData(source);
}

void ZVXMessageTextView::insertFromMimeData(const QMimeData *source)
{
    if (mayHoldPicture(source)) {
        const QImage picture = pictureFrom(source);
        if (!picture.isNull()) {
            if (pictureGiven)
                pictureGiven(picture);
            return;
        }
    }
    if (!source || !source->hasText() || isReadOnly())
        return;
    // Refused whole rather than cut: the user sees nothing pasted and knows why.
    if (!allowsReplacing(selectionLength(), source->text().size()))
        return;
    QTextEdit::insertFromMimeData(source);
}

void ZVXMessageTextView::resizeEvent(QResizeEvent *event)
{
    QTextEdit::resizeEvent(event);
    centreContent();
}

// A text shorter than the field stands in the middle of its height, as one line of it does.
void ZVXMessageTextView::centreContent()
{
    const qreal text = document()->size().height();
    const int free = std::max(0, contentsRect().height() - int(std::ceil(text)));
    const int top = free / 2;
    const QMargins margins(0, top, 0, free - top);
    if (viewportMargins() != margins)
        setViewportMargins(margins);
}
