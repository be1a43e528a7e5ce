#include "ZuveroChatInputAccessoryView.h"

#include "ZVXLocalization.h"
#include "ZVXMessageTextView.h"
#include "ZVXResources.h"
#include "ui_ZuveroChatInputAccessoryView.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QMimeData>
#include <QPainter>

namespace {

// Beyond this height of text the field scrolls; a staged picture takes all of it.
constexpr double MaxTextViewHeight = 100.0;
// The bar is never lower than a comfortable touch target.
constexpr double MinimumBarHeight = 44.0;
// Heights closer than this are the same height: no relayout for rounding noise.
constexpr double HeightTolerance = 0.1;

// Hidden widgets get their resize events only when shown, so their layouts wait; the bar
// measures its text at the width it will have, shown or not.
void layOutNow(QWidget *widget)
{
    if (QLayout *layout = widget->layout())
        layout->setGeometry(widget->contentsRect());
    const QList<QWidget *> children = widget->findChildren<QWidget *>(Qt::FindDirectChildrenOnly);
    for (QWidget *child : children) {
        if (!child->isWindow())
            layOutNow(child);
    }
}

QIcon greyIcon(const QString &name)
{
    QIcon icon;
    for (const qreal ratio : {1.0, 2.0}) {
        QImage image = ZVXResources::image(name, ratio);
        QPainter painter(&image);
        painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
        painter.fillRect(image.rect(), QColor(Qt::gray));
        painter.end();
        icon.addPixmap(QPixmap::fromImage(image));
    }
    return icon;
}

} // namespace

class ZuveroChatInputAccessoryViewPrivate
{
public:
    using View = ZuveroChatInputAccessoryView;
    using Delegate = ZuveroChatInputAccessoryViewDelegate;

    View *q = nullptr;
    QWidget *containerView = nullptr;
    Ui::ZuveroChatInputAccessoryView ui;
    View::DelegatePtr delegate;
    QString text;
    QImage image;
    double fittingHeight = 0;
    double minTextViewHeight = 0;
    double textViewVerticalMargins = 0;
    QColor enabledSendButtonColor;
    QColor disabledSendButtonColor;
    QString placeholder;
    // The field's text when its last change was handled: formatting alone changes nothing.
    QString shownText;
    bool editing = false;
    bool settingField = false;
    // Whether what is dragged over the bar may be a picture, known once it enters.
    bool dragHoldsPicture = false;

    void tell(std::function<void(View *)> Delegate::*member)
    {
        if (const auto target = delegate.lock(); target && (target.get()->*member))
            (target.get()->*member)(q);
    }

    void build()
    {
        containerView = new QWidget(q);
        ui.setupUi(containerView);
        // The form's own size, laid out, gives the field's height for one line and the
        // margins around it.
        layOutNow(containerView);
        minTextViewHeight = ui.textView->height();
        textViewVerticalMargins = containerView->height() - ui.textView->height();

        retranslate();
        QFont bold = ui.sendButton->font();
        bold.setBold(true);
        ui.sendButton->setFont(bold);
        ui.attachmentButton->setIcon(
            greyIcon(QStringLiteral("Zuvero.bundle/ZuveroAttachmentIcon")));
        ui.attachmentImageView->setAlignment(Qt::AlignLeading | Qt::AlignVCenter);
        // Clicks and drops reach the field under the picture.
        ui.attachmentImageView->setAttribute(Qt::WA_TransparentForMouseEvents);
        ui.attachmentImageView->hide();

        ui.toolbar->installEventFilter(q);
        ui.textView->installEventFilter(q);
        ui.attachmentImageView->installEventFilter(q);
        ui.textView->pictureGiven = [this](const QImage &picture) { stagePictureByUser(picture); };
        QObject::connect(ui.textView, &QTextEdit::textChanged, q, [this] { fieldChanged(); });
        QObject::connect(ui.sendButton, &QToolButton::clicked, q, [this] { q->send(); });
        QObject::connect(ui.attachmentButton, &QToolButton::clicked, q,
                         [this] { q->addAttachment(); });

        // No focus proxy: in the tab chain a proxy stands where the bar is, before the attachment
        // button, and Tab would jump from the list straight into the field past the button.
        q->setAcceptDrops(true);
        q->setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
        applySendButtonColors();
        q->updateSendButton();
        q->updateFittingSize();
    }

    void retranslate()
    {
        using ZVXLocalization::localizeString;
        placeholder = localizeString(QStringLiteral("zuveroMessageFieldTitle"));
        ui.textView->setAccessibleName(placeholder);
        if (image.isNull())
            ui.textView->setPlaceholderText(placeholder);
        const QString send = localizeString(QStringLiteral("zuveroSendButtonTitle"));
        ui.sendButton->setText(send);
        ui.sendButton->setAccessibleName(send);
        const QString attach = localizeString(QStringLiteral("zuveroAttachmentButtonTitle"));
        ui.attachmentButton->setAccessibleName(attach);
        ui.attachmentButton->setToolTip(attach);
        ui.attachmentImageView->setAccessibleName(
            localizeString(QStringLiteral("zuveroAttachmentImageTitle")));
    }

    void setField(const QString &plain)
    {
        settingField = true;
        ui.textView->setPlainText(plain);
        // Whoever stages a text goes on writing after it.
        ui.textView->moveCursor(QTextCursor::End);
        settingField = false;
        shownText = plain;
    }

    // The user edited the field.
    void fieldChanged()
    {
        if (settingField)
            return;
        const QString plain = ui.textView->toPlainText();
        if (plain == shownText)
            return;
        shownText = plain;
        text = plain.trimmed();
        q->updateSendButton();
        const bool resized = q->updateFittingSize();
        tell(&Delegate::chatInputAccessoryViewDidChangeText);
        if (resized)
            tell(&Delegate::chatInputAccessoryViewDidChangeSize);
    }

    // A change of the message by the user other than typing: told as typing is.
    void changeByUser(const std::function<void()> &change)
    {
        const double before = fittingHeight;
        change();
        tell(&Delegate::chatInputAccessoryViewDidChangeText);
        if (std::abs(fittingHeight - before) > HeightTolerance)
            tell(&Delegate::chatInputAccessoryViewDidChangeSize);
    }

    void stagePictureByUser(const QImage &picture)
    {
        changeByUser([&] { q->setImage(picture); });
    }

    // The picture stands over the field, which takes no typing meanwhile: what would be
    // typed could not be seen.
    void showPicture()
    {
        const bool staged = !image.isNull();
        ui.attachmentImageView->setVisible(staged);
        ui.textView->setReadOnly(staged);
        ui.textView->setPlaceholderText(staged ? QString() : placeholder);
        scalePicture();
    }

    void scalePicture()
    {
        QLabel *view = ui.attachmentImageView;
        if (image.isNull()) {
            view->clear();
            return;
        }
        const int margin = view->margin();
        const QSize room = view->contentsRect().size() - QSize(2 * margin, 2 * margin);
        if (room.isEmpty())
            return;
        const qreal ratio = view->devicePixelRatioF();
        const QSize pixels = room * ratio;
        QImage shown = image.width() > pixels.width() || image.height() > pixels.height()
            ? image.scaled(pixels, Qt::KeepAspectRatio, Qt::SmoothTransformation)
            : image;
        shown.setDevicePixelRatio(ratio);
        view->setPixmap(QPixmap::fromImage(shown));
    }

    void applySendButtonColors()
    {
        QPalette palette = q->palette();
        const QColor enabled = enabledSendButtonColor.isValid()
            ? enabledSendButtonColor
            : palette.color(QPalette::Active, QPalette::Highlight);
        palette.setColor(QPalette::Active, QPalette::ButtonText, enabled);
        palette.setColor(QPalette::Inactive, QPalette::ButtonText, enabled);
        if (disabledSendButtonColor.isValid())
            palette.setColor(QPalette::Disabled, QPalette::ButtonText, disabledSendButtonColor);
        ui.sendButton->setPalette(palette);
    }

    bool fieldKeyPress(QKeyEvent *event)
    {
        const bool enter = event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter;
        if (enter && (event->modifiers() & Qt::ShiftModifier)) {
            ZVXMessageTextView *field = ui.textView;
            const QTextCursor cursor = field->textCursor();
            if (!field->isReadOnly()
                && field->allowsReplacing(cursor.selectionEnd() - cursor.selectionStart(), 1)) {
                // A new paragraph, as the field's text reads back with "\n".
                field->insertPlainText(QStringLiteral("\n"));
                field->ensureCursorVisible();
            }
            return true;
        }
        if (enter) {
            // Never a new line: either it sends, or there is nothing to send.
            q->send();
            return true;
        }
        if (event->matches(QKeySequence::Paste)) {
            const QImage picture
                = ZVXMessageTextView::pictureFrom(QGuiApplication::clipboard()->mimeData());
            if (!picture.isNull()) {
                stagePictureByUser(picture);
                return true;
            }
            return false;
        }
        if (!image.isNull()
            && (event->key() == Qt::Key_Backspace || event->key() == Qt::Key_Delete)) {
            // The picture goes; the text it covered comes back.
            changeByUser([this] { q->setText(text); });
            return true;
        }
        return false;
    }

    // Focus is editing; a menu opened over the field is not the end of it.
    bool fieldFocusIn(QFocusEvent *event)
    {
        if (editing || event->reason() == Qt::PopupFocusReason)
            return false;
        if (const auto target = delegate.lock(); target
            && target->chatInputAccessoryViewShouldBeginEditing
            && !target->chatInputAccessoryViewShouldBeginEditing(q)) {
            ui.textView->clearFocus();
            return true;
        }
        editing = true;
        tell(&Delegate::chatInputAccessoryViewDidBeginEditing);
        return false;
    }

    void fieldFocusOut(QFocusEvent *event)
    {
        // Another window taking the keyboard leaves the field where it was.
        if (!editing || event->reason() == Qt::PopupFocusReason
            || event->reason() == Qt::ActiveWindowFocusReason)
            return;
        editing = false;
        tell(&Delegate::chatInputAccessoryViewDidEndEditing);
    }

    void paintToolbarEdge()
    {
        QPainter painter(ui.toolbar);
        painter.setPen(QPen(ui.toolbar->palette().color(QPalette::Mid), 0));
        painter.drawLine(QPointF(0, 0.5), QPointF(ui.toolbar->width(), 0.5));
    }
};

ZuveroChatInputAccessoryView::ZuveroChatInputAccessoryView(QWidget *parent)
    : QWidget(parent)
    , d(std::make_unique<ZuveroChatInputAccessoryViewPrivate>())
{
    d->q = this;
    d->build();
}

ZuveroChatInputAccessoryView::~ZuveroChatInputAccessoryView()
{
    // The children outlive this body (QWidget deletes them later): what they do while going
    // must not reach a bar that is half gone.
    d->ui.toolbar->removeEventFilter(this);
    d->ui.textView->removeEventFilter(this);
    d->ui.attachmentImageView->removeEventFilter(this);
    d->ui.textView->pictureGiven = nullptr;
    disconnect(d->ui.textView, nullptr, this, nullptr);
}

ZuveroChatInputAccessoryView *ZuveroChatInputAccessoryView::viewFromNib(QWidget *parent)
{
    return new ZuveroChatInputAccessoryView(parent);
}

ZuveroChatInputAccessoryView::DelegatePtr ZuveroChatInputAccessoryView::delegate() const
{
    return d->delegate;
}

void ZuveroChatInputAccessoryView::setDelegate(const DelegatePtr &delegate)
{
    d->delegate = delegate;
}

QString ZuveroChatInputAccessoryView::text() const
{
    return d->text;
}

void ZuveroChatInputAccessoryView::setText(const QString &text)
{
    d->text = text.trimmed();
    d->setField(d->text);
    d->image = QImage();
    d->showPicture();
    updateFittingSize();
    updateSendButton();
}

QImage ZuveroChatInputAccessoryView::image() const
{
    return d->image;
}

void ZuveroChatInputAccessoryView::setImage(const QImage &image)
{
    d->image = image;
    d->setField(QString());
    d->showPicture();
    updateFittingSize();
    updateSendButton();
}

bool ZuveroChatInputAccessoryView::validMessage() const
{
    return !d->text.isEmpty() || !d->image.isNull();
}

void ZuveroChatInputAccessoryView::updateSendButton()
{
    const bool wasEnabled = d->ui.sendButton->isEnabled();
    d->ui.sendButton->setEnabled(validMessage());
    if (d->ui.sendButton->isEnabled() != wasEnabled)
        d->tell(&ZuveroChatInputAccessoryViewDelegate::chatInputAccessoryViewButtonDidChangeState);
}

bool ZuveroChatInputAccessoryView::updateFittingSize()
{
    if (!isVisible()) {
        d->containerView->setGeometry(rect());
        layOutNow(d->containerView);
    }
    ZVXMessageTextView *field = d->ui.textView;
    double content = MaxTextViewHeight;
    bool scrolls = false;
    if (d->image.isNull()) {
        const double wanted = field->contentHeight();
        scrolls = wanted > MaxTextViewHeight;
        content = std::clamp(wanted, d->minTextViewHeight, MaxTextViewHeight);
    }
    // A scroll bar only where the text is taller than the field can grow: one that came and
    // went while the bar grows would reflow the text under the user's eyes.
    field->setVerticalScrollBarPolicy(scrolls ? Qt::ScrollBarAsNeeded : Qt::ScrollBarAlwaysOff);
    const double height = std::max(content + d->textViewVerticalMargins, MinimumBarHeight);
    if (std::abs(height - d->fittingHeight) <= HeightTolerance)
        return false;
    d->fittingHeight = height;
    updateGeometry();
    return true;
}

double ZuveroChatInputAccessoryView::fittingHeight() const
{
    return d->fittingHeight;
}

double ZuveroChatInputAccessoryView::minTextViewHeight() const
{
    return d->minTextViewHeight;
}

double ZuveroChatInputAccessoryView::maxTextViewHeight() const
{
    return MaxTextViewHeight;
}

double ZuveroChatInputAccessoryView::textViewVerticalMargins() const
{
    return d->textViewVerticalMargins;
}

void ZuveroChatInputAccessoryView::send()
{
    if (validMessage())
        d->tell(&ZuveroChatInputAccessoryViewDelegate::chatInputAccessoryViewDidSend);
}

void ZuveroChatInputAccessoryView::addAttachment()
{
    d->tell(&ZuveroChatInputAccessoryViewDelegate::chatInputAccessoryViewSelectAttachment);
}

QWidget *ZuveroChatInputAccessoryView::responder() const
{
    return d->ui.textView;
}

void ZuveroChatInputAccessoryView::setEnabledSendButtonColor(const QColor &color)
{
    d->enabledSendButtonColor = color;
    d->applySendButtonColors();
}

void ZuveroChatInputAccessoryView::setDisabledSendButtonColor(const QColor &color)
{
    if (!color.isValid())
        return;
    d->disabledSendButtonColor = color;
    d->applySendButtonColors();
}

void ZuveroChatInputAccessoryView::setMessageFieldFont(const std::optional<QFont> &font)
{
    if (!font)
        return;
    d->ui.textView->setFont(*font);
    updateFittingSize();
}

QSize ZuveroChatInputAccessoryView::sizeHint() const
{
    return QSize(d->containerView->sizeHint().width(), int(std::ceil(d->fittingHeight)));
}

QSize ZuveroChatInputAccessoryView::minimumSizeHint() const
{
    return QSize(d->containerView->minimumSizeHint().width(), int(std::ceil(d->fittingHeight)));
}

bool ZuveroChatInputAccessoryView::event(QEvent *event)
{
    // The tint is the palette's highlight: the send button follows it.
    if (event->type() == QEvent::PaletteChange)
        d->applySendButtonColors();
    const bool result = QWidget::event(event);
    // The send button's new title may take another width, and the field the rest: its text
    // may wrap otherwise.
    if (event->type() == QEvent::LanguageChange) {
        d->retranslate();
        layOutNow(d->containerView);
        if (updateFittingSize())
            d->tell(&ZuveroChatInputAccessoryViewDelegate::chatInputAccessoryViewDidChangeSize);
    }
    return result;
}

bool ZuveroChatInputAccessoryView::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == d->ui.textView) {
        switch (event->type()) {
        case QEvent::KeyPress:
            if (d->fieldKeyPress(static_cast<QKeyEvent *>(event)))
                return true;
            break;
        case QEvent::FocusIn:
            if (d->fieldFocusIn(static_cast<QFocusEvent *>(event)))
                return true;
            break;
        case QEvent::FocusOut:
            d->fieldFocusOut(static_cast<QFocusEvent *>(event));
            break;
        case QEvent::Resize:
            updateFittingSize();
            break;
        default:
            break;
        }
    } else if (watched == d->ui.attachmentImageView && event->type() == QEvent::Resize) {
        d->scalePicture();
    } else if (watched == d->ui.toolbar && event->type() == QEvent::Paint) {
        d->paintToolbarEdge();
    }
    return QWidget::eventFilter(watched, event);
}

void ZuveroChatInputAccessoryView::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    d->containerView->setGeometry(rect());
    updateFittingSize();
}

void ZuveroChatInputAccessoryView::dragEnterEvent(QDragEnterEvent *event)
{
    d->dragHoldsPicture = ZVXMessageTextView::mayHoldPicture(event->mimeData());
    if (d->dragHoldsPicture)
        event->acceptProposedAction();
}

void ZuveroChatInputAccessoryView::dragMoveEvent(QDragMoveEvent *event)
{
    if (d->dragHoldsPicture)
        event->acceptProposedAction();
}

void ZuveroChatInputAccessoryView::dropEvent(QDropEvent *event)
{
    const QImage picture = ZVXMessageTextView::pictureFrom(event->mimeData());
    if (picture.isNull())
        return;
    event->acceptProposedAction();
    d->stagePictureByUser(picture);
}
