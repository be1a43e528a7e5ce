#include "ZuveroChatViewController.h"

#include "AttachmentsState.h"
#include "Toast.h"
#include "ZVXAttachmentPickerController.h"
#include "ZVXChatController.h"
#include "ZVXClock.h"
#include "ZVXLocalization.h"
#include "ZVXMainThread.h"
#include "ZVXWidgetUserInterface.h"
#include "Zuvero.h"
#include "ZuveroChatAttachmentViewController.h"
#include "ZuveroChatInputAccessoryView.h"
#include "ZuveroChatLocationViewController.h"
#include "ZuveroChatView.h"
#include "ZuveroNavigationController.h"

#include <QEvent>
#include <QListView>
#include <QPointer>
#include <QScrollBar>
#include <QVBoxLayout>

#include <chrono>

using namespace std::chrono_literals;

namespace {

// What the input bar hands over is sent a frame later, once the bar has been cleared.
constexpr auto SendDelay = 20ms;

} // namespace

class ZuveroChatViewControllerPrivate : public ZVXChatControllerView
{
public:
    explicit ZuveroChatViewControllerPrivate(ZuveroChatViewController *q)
        : q(q)
    { }

    // --- What the rules ask of the screen ---------------------------------

    ZuveroChatMessageList listMessages() const override { return chatView->messages(); }
    void setListMessages(const ZuveroChatMessageList &messages) override
    {
        chatView->setMessages(messages);
    }
    void addMessage(const ZuveroChatMessagePtr &message, bool animated) override
    {
        chatView->addMessage(message, animated);
    }
    void reloadData() override { chatView->reloadDataAnimated(false); }
    void updateViewWithOfflineMessages(const ZuveroChatMessageList &offlineMessages) override
    {
        chatView->updateViewWithOfflineMessages(offlineMessages, true);
    }
    bool hasMoreMessages() const override { return chatView->hasMoreMessages(); }
    void setHasMoreMessages(bool hasMoreMessages) override
    {
        chatView->setHasMoreMessages(hasMoreMessages);
    }
    void setUploadProgress(double progress, const ZuveroChatMessagePtr &message) override
    {
        chatView->setUploadProgress(progress, message, true);
    }
    void scrollToLastMessage(bool animated) override
    {
        chatView->scrollToLastMessageAnimated(animated);
    }
    double contentHeight() const override
    {
        const QScrollBar *bar = chatView->scrollView()->verticalScrollBar();
        return double(bar->maximum() + bar->pageStep());
    }
    double contentOffset() const override
    {
        return double(chatView->scrollView()->verticalScrollBar()->value());
    }
    void setContentOffset(double offset) override
    {
        chatView->scrollView()->verticalScrollBar()->setValue(int(offset));
    }
    bool isInWindow() const override { return q->isVisible(); }
    void showAlert(const ZVXAlert &alert) override { ZVXWidgetUserInterface().showAlert(alert); }

    // --- Plumbing ----------------------------------------------------------

    void applyAppearance()
    {
        if (!facade)
            return;
        const ZuveroAppearance &look = facade->appearance();
        inputBar->setEnabledSendButtonColor(look.sendTintColor);
        inputBar->setDisabledSendButtonColor(look.disabledSendButtonColor);
        if (look.messageFieldFont)
            inputBar->setMessageFieldFont(*look.messageFieldFont);
    }

    // The facade's title, else the library's own in the user's language; a title the host
    // gave the screen itself stays.
    void updateTitle()
    {
        if (!facade || q->windowTitle() != ownTitle)
            return;
        ownTitle = facade->title().value_or(
            ZVXLocalization::localizeString(QStringLiteral("zuveroChatTitle")));
        q->setWindowTitle(ownTitle);
    }

    void sendFromInputBar()
    {
        const QString text = inputBar->text();
        const QImage image = inputBar->image();
        // The picked file goes out as it is (format, quality, metadata) while the bar still shows
        // it; a picture pasted or dropped since is encoded afresh.
        ZuveroImagePtr record = std::exchange(pickedImage, nullptr);
        if (image.isNull())
            record = nullptr;
        else if (!record || record->image().cacheKey() != image.cacheKey())
            record = ZuveroImage::initWithImage(image);
        inputBar->setText(QString());
        inputBar->setImage(QImage());
        chatView->scrollToLastMessageAnimated(false);
        const QPointer<ZuveroChatViewController> screen(q);
        ZVXClock::after(SendDelay, q, [screen, text, record] {
            if (screen)
                screen->sendMessage(text, record);
        });
    }

    QWidget *attachmentButton() const
    {
        return inputBar->findChild<QWidget *>(QStringLiteral("attachmentButton"));
    }

    // A button that could offer nothing is not shown; the switches may change while we live.
    void updateAttachmentButton()
    {
        if (QWidget *attach = attachmentButton())
            attach->setVisible(AttachmentsState::isAttachmentsEnabled()
                               && !ZVXAttachmentPickerController::offeredChoices(false).isEmpty());
    }

    void chooseAttachment()
    {
        if (currentPickerController)
            return;
        currentPickerController = new ZVXAttachmentPickerController(q);
        currentPickerController->setApiInstance(facade);
        const QPointer<ZuveroChatViewController> screen(q);
        currentPickerController->showActionSheetFromView(
            attachmentButton(), !inputBar->image().isNull(),
            [this, screen](bool success, ZVXAttachmentKind kind, const ZuveroImagePtr &image,
                           const QVariantMap &location) {
                if (!screen)
                    return;
                // Done, though it deletes itself only later: the next press opens a new one.
                currentPickerController = nullptr;
                if (!success)
                    return;
                // Staged, not sent: the user adds a caption or thinks again, then presses send.
                if (kind == ZVXAttachmentKind::Picture && image) {
                    pickedImage = image;
                    inputBar->setImage(image->image());
                } else if (kind == ZVXAttachmentKind::Removal) {
                    pickedImage = nullptr;
                    inputBar->setImage(QImage());
                } else if (kind == ZVXAttachmentKind::Location) {
                    // A place goes at once: there is nothing to add to it.
                    if (const ZuveroChatMessagePtr message
                        = ZuveroChatMessage::initWithLocationDictionary(location))
                        screen->sendMessage(message);
                }
                inputBar->responder()->setFocus();
            });
    }

    //! The container the screen is shown in, if it is in one.
    ZuveroNavigationController *navigationController() const
    {
        for (QWidget *up = q->parentWidget(); up; up = up->parentWidget())
            if (auto *navigation = qobject_cast<ZuveroNavigationController *>(up))
                return navigation;
        return nullptr;
    }

    void endEditing()
    {
        if (QWidget *focus = q->focusWidget())
            focus->clearFocus();
    }

    ZuveroChatViewController *q;
    QPointer<Zuvero> facade;
    // The title the screen gave itself, as long as nobody changed it since.
    QString ownTitle;
    QWidget *background = nullptr;
    ZuveroChatView *chatView = nullptr;
    ZuveroChatInputAccessoryView *inputBar = nullptr;
    std::unique_ptr<ZVXChatController> rules;
    std::shared_ptr<ZuveroChatViewDelegate> listDelegate;
    std::shared_ptr<ZuveroChatInputAccessoryViewDelegate> barDelegate;
    QPointer<ZVXAttachmentPickerController> currentPickerController;
    ZuveroImagePtr pickedImage;
    bool appeared = false;
    bool visible = false;
};

ZuveroChatViewController::ZuveroChatViewController(QWidget *parent)
    : QWidget(parent)
    , d(std::make_unique<ZuveroChatViewControllerPrivate>(this))
{
    setObjectName(QStringLiteral("chatViewController"));
    d->background = new QWidget(this);
    d->background->setObjectName(QStringLiteral("backgroundView"));
    d->chatView = new ZuveroChatView(d->background);
    d->inputBar = new ZuveroChatInputAccessoryView(this);

    auto *backgroundLayout = new QVBoxLayout(d->background);
    backgroundLayout->setContentsMargins(0, 0, 0, 0);
    backgroundLayout->addWidget(d->chatView);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(d->background, 1);
    layout->addWidget(d->inputBar);

    d->listDelegate = std::make_shared<ZuveroChatViewDelegate>();
    d->listDelegate->chatViewLoadEarlierMessages = [this](ZuveroChatView *) {
        if (d->rules)
            d->rules->chatViewLoadEarlierMessages();
    };
    d->listDelegate->chatViewDidOverscroll = [this](ZuveroChatView *) {
        if (d->rules)
            d->rules->chatViewDidOverscroll();
    };
    d->listDelegate->chatViewOpenAttachment
        = [this](ZuveroChatView *, const ZuveroChatAttachmentPtr &attachment) {
              Q_EMIT attachmentActivated(attachment);
              ZuveroNavigationController *navigation = d->navigationController();
              if (!navigation || !attachment)
                  return;
              d->endEditing();
              auto *viewer = new ZuveroChatAttachmentViewController;
              viewer->setApiInstance(d->facade);
              viewer->setAttachment(attachment);
              navigation->pushViewController(viewer);
          };
    d->listDelegate->chatViewOpenLocation
        = [this](ZuveroChatView *, double latitude, double longitude, double radius) {
              Q_EMIT locationActivated(latitude, longitude, radius);
              ZuveroNavigationController *navigation = d->navigationController();
              if (!navigation)
                  return;
              d->endEditing();
              auto *viewer = new ZuveroChatLocationViewController;
              viewer->setApiInstance(d->facade);
              viewer->setRadius(radius);
              viewer->setLocation(ZuveroLocationCoordinate{latitude, longitude});
              navigation->pushViewController(viewer);
          };
    d->chatView->setDelegate(d->listDelegate);
    connect(d->chatView, &ZuveroChatView::erroredMessageClicked, this, [] {
        using ZVXLocalization::localizeString;
        Toast::display(localizeString(QStringLiteral("zuveroErrorTitle"), QStringLiteral("Error")),
                       localizeString(QStringLiteral("zuveroSendFailedMessage"),
                                      QStringLiteral("Could not send the message")));
    });

    // A view put behind the list follows the background's size.
    d->background->installEventFilter(this);

    d->barDelegate = std::make_shared<ZuveroChatInputAccessoryViewDelegate>();
    d->barDelegate->chatInputAccessoryViewDidSend
        = [this](ZuveroChatInputAccessoryView *) { d->sendFromInputBar(); };
    d->barDelegate->chatInputAccessoryViewSelectAttachment
        = [this](ZuveroChatInputAccessoryView *) { d->chooseAttachment(); };
    d->inputBar->setDelegate(d->barDelegate);
    d->updateAttachmentButton();
}

ZuveroChatViewController::~ZuveroChatViewController()
{
    // The rules hold the screen's visibility: it ends with them.
    d->rules.reset();
}

Zuvero *ZuveroChatViewController::apiInstance() const
{
    return d->facade;
}

void ZuveroChatViewController::setApiInstance(Zuvero *facade)
{
    if (d->facade == facade)
        return;
    d->facade = facade;
    d->chatView->setApiInstance(facade);
    d->rules.reset();
    if (!facade)
        return;
    if (windowTitle().isEmpty())
        d->updateTitle();
    d->rules = std::make_unique<ZVXChatController>(facade, d.get());
    d->rules->setScreen(this);
    d->applyAppearance();
    d->rules->loadCachedConversation();
}

ZuveroChatView *ZuveroChatViewController::chatView() const
{
    return d->chatView;
}

ZuveroChatInputAccessoryView *ZuveroChatViewController::inputAccessoryView() const
{
    return d->inputBar;
}

QWidget *ZuveroChatViewController::backgroundView() const
{
    return d->background;
}

ZuveroChatMessageList ZuveroChatViewController::messages() const
{
    return d->rules ? d->rules->messages() : ZuveroChatMessageList();
}

ZuveroChatMessageList ZuveroChatViewController::offlineMessages() const
{
    return d->rules ? d->rules->offlineMessages() : ZuveroChatMessageList();
}

void ZuveroChatViewController::reloadChatAnimated(bool animated)
{
    if (d->rules)
        d->rules->reloadChatAnimated(animated, [this](bool didChange) {
            if (didChange)
                d->chatView->scrollToLastMessageAnimated(true);
        });
}

void ZuveroChatViewController::sendMessage(const ZuveroChatMessagePtr &message)
{
    if (d->rules)
        d->rules->sendMessage(message);
}

void ZuveroChatViewController::sendMessage(const QString &text, const ZuveroImagePtr &image)
{
    if (d->rules)
        d->rules->sendMessage(text, image);
}

void ZuveroChatViewController::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    d->updateAttachmentButton();
    if (d->visible || !d->rules)
        return;
    d->visible = true;
    d->applyAppearance();
    d->rules->viewWillAppear();
    if (!d->appeared)
        reloadChatAnimated(false);
    d->appeared = true;
    // Appeared once the window is up: after the events that show it.
    const QPointer<ZuveroChatViewController> self(this);
    ZVXMainThread::async(
        [self] {
            if (self && self->d->visible && self->d->rules)
                self->d->rules->viewDidAppear();
        },
        this);
}

void ZuveroChatViewController::hideEvent(QHideEvent *event)
{
    QWidget::hideEvent(event);
    if (!d->visible || !d->rules)
        return;
    d->visible = false;
    d->rules->viewWillDisappear();
    d->rules->viewDidDisappear();
}

bool ZuveroChatViewController::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == d->background && event->type() == QEvent::Resize) {
        for (QWidget *child :
             d->background->findChildren<QWidget *>(QString(), Qt::FindDirectChildrenOnly)) {
            if (child != d->chatView)
                child->setGeometry(d->background->rect());
        }
    }
    return QWidget::eventFilter(watched, event);
}

void ZuveroChatViewController::changeEvent(QEvent *event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::PaletteChange || event->type() == QEvent::StyleChange)
        d->applyAppearance();
    else if (event->type() == QEvent::LanguageChange)
        d->updateTitle();
}
