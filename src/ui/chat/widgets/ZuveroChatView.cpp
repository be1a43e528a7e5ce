#include "ZuveroChatView.h"

#include "ZVXChatItemDelegate.h"
#include "ZVXChatListModel.h"
#include "ZVXChatRowBuilder.h"
#include "ZVXClock.h"
#include "ZVXLocalization.h"
#include "ZVXMainThread.h"
#include "ZVXReadMarking.h"
#include "Zuvero.h"
#include "ZuveroConnection.h"
#include "ZuveroNotificationCenter.h"

#include <QApplication>
#include <QClipboard>
#include <QContextMenuEvent>
#include <QDesktopServices>
#include <QKeyEvent>
#include <QListView>
#include <QMenu>
#include <QMimeData>
#include <QMouseEvent>
#include <QPointer>
#include <QScrollBar>
#include <QVBoxLayout>

#include <algorithm>
#include <vector>

namespace {
// A scroll that ends nearer the top than this asks for earlier messages.
constexpr int OverscrollDistance = 40;
// An upload's progress eases linearly to its new value over this time.
constexpr std::chrono::milliseconds ProgressAnimationDuration(330);
constexpr std::chrono::milliseconds AnimationFrame(16);
} // namespace

class ZuveroChatViewPrivate
{
public:
    ZuveroChatView *q = nullptr;
    QListView *list = nullptr;
    ZVXChatListModel *model = nullptr;
    ZVXChatItemDelegate *cells = nullptr;
    ZVXReadMarking *readMarking = nullptr;
    // The messages of the bubbles on screen at the last frame, and the ones of this frame
    // (two buffers, so that a frame allocates nothing).
    std::vector<ZuveroChatMessagePtr> onScreen;
    std::vector<ZuveroChatMessagePtr> nowOnScreen;
    ZuveroChatMessageList messages;
    // The rows of messages, kept going while the conversation only grows at its end; with the
    // date formatter it was made with.
    std::optional<ZVXChatRowBuilder::Build> build;
    ZuveroDateFormatter buildFormatter;
    QPointer<Zuvero> apiInstance;
    ZuveroChatView::DelegatePtr delegate;
    double dateInsertionInterval = 300.0;
    bool hasMoreMessages = false;
    bool shouldRasterizeCells = false;
    // Uploads easing towards their latest progress, by message.
    struct ProgressAnimation
    {
        double from = 0;
        double to = 0;
        QDateTime start;
    };
    QHash<const ZuveroChatMessage *, ProgressAnimation> progressAnimations;
    bool progressStepScheduled = false;
    ZuveroNotificationObserver attachmentPreviews;
    ZuveroNotificationObserver locationPreviews;

    ZuveroAppearance appearance() const
    {
        ZuveroAppearance appearance
            = apiInstance ? apiInstance->appearance() : ZuveroAppearance::defaults();
        appearance.fillFonts();
        return appearance;
    }

    void updateStyle()
    {
        ZVXCellStyle style;
        style.appearance = appearance();
        style.palette = q->palette();
        style.direction = q->layoutDirection();
        cells->setCellStyle(style);
        model->setDateFormatter(style.appearance.dateFormatter);
        cells->setConnection(apiInstance ? apiInstance->connection() : nullptr);
    }

    // Rows are as wide as the list's viewport less the side insets; a new width lays them out
    // again.
    void updateWidth()
    {
        const qreal width
            = std::max(0, list->viewport()->width() - 2 * ZVXChatItemDelegate::SideInset);
        if (std::abs(width - cells->rowWidth()) > 0.1) {
            cells->setRowWidth(width);
            list->doItemsLayout();
        }
    }

    void relayout()
    {
        updateStyle();
        updateWidth();
        list->doItemsLayout();
        list->viewport()->update();
    }

    // Dates, labels and sizes are written anew; date rows too, as two dates that read the same
    // in one language may differ in another.
    void retranslate()
    {
        build.reset();
        if (!messages.isEmpty())
            q->setMessages(messages, false, true);
        model->retranslate();
        relayout();
    }

    // One frame of every running upload animation; the next is scheduled while any runs.
    void stepProgressAnimations()
    {
        progressStepScheduled = false;
        const QDateTime now = ZVXClock::currentTime();
        for (auto it = progressAnimations.begin(); it != progressAnimations.end();) {
            const double t
                = double(it->start.msecsTo(now)) / double(ProgressAnimationDuration.count());
            if (t >= 1.0) {
                cells->clearShownUploadProgress(it.key());
                it = progressAnimations.erase(it);
            } else {
                cells->setShownUploadProgress(it.key(),
                                              it->from + (it->to - it->from) * std::max(0.0, t));
                ++it;
            }
        }
        list->viewport()->update();
        scheduleProgressStep();
    }

    void scheduleProgressStep()
    {
        if (progressStepScheduled || progressAnimations.isEmpty())
            return;
        progressStepScheduled = true;
        ZVXClock::after(AnimationFrame, q, [this] { stepProgressAnimations(); });
    }

    /*
        A message is seen when its bubble is drawn while the view is visible. It is marked when
        the bubble comes on screen, not at every frame it stays there: marking is cheap, but a
        message too old to mark would log its warning at every frame of a scroll.
    */
    void markRowsOnScreen()
    {
        nowOnScreen.clear();
        const QList<ZuveroChatViewItem> &rows = model->rows();
        const QRect visible = list->viewport()->rect();
        // Rows touch each other, so the one at the top edge is the first drawn.
        const QModelIndex top = list->indexAt(QPoint(visible.center().x(), visible.top()));
        for (int row = top.isValid() ? top.row() : 0; row < rows.size(); ++row) {
            const QRect rect = list->visualRect(model->index(row));
            if (rect.top() > visible.bottom())
                break;
            const ZuveroChatViewItem &item = rows.at(row);
            const ZuveroChatMessagePtr &message = item.message();
            if (!message || !rect.intersects(visible)
                || !(item.isUserSide() || item.isAgentSide()
                     || item.kind() == ZuveroChatViewItemKindSystemMessage))
                continue;
            // A message's bubbles follow each other.
            if (!nowOnScreen.empty() && nowOnScreen.back() == message)
                continue;
            nowOnScreen.push_back(message);
            if (std::find(onScreen.cbegin(), onScreen.cend(), message) == onScreen.cend())
                readMarking->markAsRead(message);
        }
        onScreen.swap(nowOnScreen);
    }

    template<typename F, typename... Args>
    void tell(F ZuveroChatViewDelegate::*member, Args &&...args)
    {
        if (const auto target = delegate.lock(); target && (target.get()->*member))
            (target.get()->*member)(q, std::forward<Args>(args)...);
    }

    QString textOfRow(int row) const
    {
        const ZuveroChatViewItem item = model->item(row);
        const QLatin1String kind = item.kind();
        if (!item.message()
            || (kind != ZuveroChatViewItemKindUserMessage
                && kind != ZuveroChatViewItemKindAgentMessage
                && kind != ZuveroChatViewItemKindSystemMessage))
            return {};
        return item.message()->text().value_or(QString());
    }

    static void copyToClipboard(const QString &text)
    {
        auto *mime = new QMimeData;
        mime->setData(QStringLiteral("text/plain;charset=utf-8"), text.toUtf8());
        mime->setText(text);
        QGuiApplication::clipboard()->setMimeData(mime);
    }

    void openRow(const QModelIndex &index)
    {
        const ZuveroChatViewItem item = model->item(index.row());
        if (item.attachment()) {
            tell(&ZuveroChatViewDelegate::chatViewOpenAttachment, item.attachment());
        } else if (const auto location = item.locationDictionary()) {
            const double latitude = location->value(QStringLiteral("lat")).toDouble();
            const double longitude = location->value(QStringLiteral("lng")).toDouble();
            const QVariant d = location->value(QStringLiteral("d"));
            tell(&ZuveroChatViewDelegate::chatViewOpenLocation, latitude, longitude,
                 d.isValid() ? d.toDouble() : 2000.0);
        }
    }

    // The load-more row turns busy until the earlier messages are shown.
    void loadEarlierMessages()
    {
        cells->setLoadingEarlierMessages(true);
        list->viewport()->update();
        tell(&ZuveroChatViewDelegate::chatViewLoadEarlierMessages);
    }

    void showCopyMenu(const QPoint &viewportPosition)
    {
        const QModelIndex index = list->indexAt(viewportPosition);
        const QString text = index.isValid() ? textOfRow(index.row()) : QString();
        if (text.isEmpty())
            return;
        auto *menu = new QMenu(q);
        menu->setAttribute(Qt::WA_DeleteOnClose);
        menu->setObjectName(QStringLiteral("copy_menu"));
        QAction *copy = menu->addAction(
            ZVXLocalization::localizeString(QStringLiteral("zuveroCopyButtonTitle")));
        QObject::connect(copy, &QAction::triggered, q, [text] { copyToClipboard(text); });
        menu->popup(list->viewport()->mapToGlobal(viewportPosition));
    }
};

ZuveroChatView::ZuveroChatView(QWidget *parent)
    : QWidget(parent)
    , d(std::make_unique<ZuveroChatViewPrivate>())
{
    d->q = this;
    d->list = new QListView(this);
    d->list->setObjectName(QStringLiteral("messages_list"));
    d->list->setAccessibleName(QStringLiteral("messages_list"));
    d->list->setFrameShape(QFrame::NoFrame);
    d->list->setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    d->list->verticalScrollBar()->setSingleStep(20);
    // A scroll bar that comes and goes would lay every row out twice.
    d->list->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOn);
    d->list->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    d->list->setSelectionMode(QAbstractItemView::NoSelection);
    d->list->setEditTriggers(QAbstractItemView::NoEditTriggers);
    d->list->setUniformItemSizes(false);
    d->list->setResizeMode(QListView::Fixed);
    d->list->setSpacing(0);
    d->list->setFocusPolicy(Qt::StrongFocus);
    d->list->setContextMenuPolicy(Qt::DefaultContextMenu);
    d->list->viewport()->setAutoFillBackground(false);
    d->list->setAutoFillBackground(false);

    d->model = new ZVXChatListModel(this);
    d->cells = new ZVXChatItemDelegate(this);
    d->readMarking = new ZVXReadMarking(this);
    d->list->setItemDelegate(d->cells);
    d->cells->watch(d->model);
    d->list->setModel(d->model);
    d->list->viewport()->setMouseTracking(true);
    d->list->installEventFilter(this);
    d->list->viewport()->installEventFilter(this);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(d->list);

    connect(d->model, &QAbstractItemModel::dataChanged, this,
            [this](const QModelIndex &from, const QModelIndex &to) {
                d->cells->forget(from, from.row(), to.row());
            });
    connect(d->cells, &ZVXChatItemDelegate::loadMoreClicked, this,
            [this] { d->loadEarlierMessages(); });
    connect(d->cells, &ZVXChatItemDelegate::mediaClicked, this,
            [this](const QModelIndex &index) { d->openRow(index); });
    connect(d->cells, &ZVXChatItemDelegate::linkClicked, this,
            [](const QUrl &url) { QDesktopServices::openUrl(url); });
    connect(d->cells, &ZVXChatItemDelegate::errorIconClicked, this,
            [this](const QModelIndex &index) {
                Q_EMIT erroredMessageClicked(d->model->item(index.row()).message());
            });
    connect(d->list->verticalScrollBar(), &QScrollBar::valueChanged, this, [this](int value) {
        if (value < OverscrollDistance)
            d->tell(&ZuveroChatViewDelegate::chatViewDidOverscroll);
        d->tell(&ZuveroChatViewDelegate::chatViewDidScroll);
    });

    // A preview that arrives is drawn in the rows that wait for it.
    auto repaint = [this](const ZuveroNotification &) { d->list->viewport()->update(); };
    d->attachmentPreviews = ZuveroNotificationCenter::defaultCenter()->addObserver(
        ZuveroAttachmentPreviewDidLoadNotification, nullptr, repaint);
    d->locationPreviews = ZuveroNotificationCenter::defaultCenter()->addObserver(
        ZuveroLocationPreviewDidLoadNotification, nullptr, repaint);
    d->updateStyle();
}

ZuveroChatView::~ZuveroChatView()
{
    // The list outlives this body (QWidget deletes it later): its events must not reach a
    // view that is half gone.
    d->list->viewport()->removeEventFilter(this);
    d->list->removeEventFilter(this);
    d->attachmentPreviews.remove();
    d->locationPreviews.remove();
}

Zuvero *ZuveroChatView::apiInstance() const
{
    return d->apiInstance;
}

void ZuveroChatView::setApiInstance(Zuvero *instance)
{
    d->apiInstance = instance;
    d->readMarking->setApiInstance(instance);
    d->relayout();
}

ZuveroChatView::DelegatePtr ZuveroChatView::delegate() const
{
    return d->delegate;
}

void ZuveroChatView::setDelegate(const DelegatePtr &delegate)
{
    d->delegate = delegate;
}

ZuveroChatMessageList ZuveroChatView::messages() const
{
    return d->messages;
}

void ZuveroChatView::setMessages(const ZuveroChatMessageList &messages, bool, bool dataOnly)
{
    d->messages = messages;
    d->updateStyle();
    const ZuveroDateFormatter &formatter = d->cells->cellStyle().appearance.dateFormatter;
    if (!d->build || d->build->hasMoreMessages() != d->hasMoreMessages
        || !(d->buildFormatter == formatter) || !d->build->continuesWith(messages)) {
        d->build.emplace(d->hasMoreMessages, ZVXChatRowBuilder::dateText(formatter));
        d->buildFormatter = formatter;
    }
    for (qsizetype i = d->build->messageCount(); i < messages.size(); ++i)
        d->build->append(messages.at(i));
    const QList<ZuveroChatViewItem> rows = d->build->rows();
    d->model->setRows(rows);
    d->cells->keepOnly(rows);
    d->cells->setLoadingEarlierMessages(false);
    if (!dataOnly) {
        d->updateWidth();
        d->list->doItemsLayout();
    }
}

void ZuveroChatView::reloadDataAnimated(bool)
{
    // From the messages as they are now, whatever changed in them.
    d->build.reset();
    setMessages(d->messages);
}

void ZuveroChatView::addMessage(const ZuveroChatMessagePtr &message, bool animated)
{
    if (!message)
        return;
    ZuveroChatMessageList messages = d->messages;
    messages.append(message);
    setMessages(messages, animated, true);
    d->updateWidth();
    d->list->doItemsLayout();
    if (animated) {
        ZVXMainThread::async([this] { scrollToLastMessageAnimated(true); }, this);
    } else {
        scrollToLastMessageAnimated(false);
    }
}

void ZuveroChatView::updateViewWithOfflineMessages(const ZuveroChatMessageList &offlineMessages,
                                                   bool)
{
    d->model->applyUnsentLabelChange(
        ZVXChatRowBuilder::updateWithOfflineMessages(d->model->rows(), offlineMessages));
    // The rows moved apart from the build: the next change builds them all again.
    d->build.reset();
    d->list->doItemsLayout();
}

bool ZuveroChatView::hasMoreMessages() const
{
    return d->hasMoreMessages;
}

void ZuveroChatView::setHasMoreMessages(bool hasMoreMessages)
{
    d->hasMoreMessages = hasMoreMessages;
}

void ZuveroChatView::setUploadProgress(double progress, const ZuveroChatMessagePtr &message,
                                       bool animated)
{
    if (!message)
        return;
    const ZuveroChatMessage *key = message.get();
    // Where the picture is uncovered now: mid-animation, that is not the model's value.
    double shown = message->uploadProgress();
    if (const auto running = d->progressAnimations.constFind(key);
        running != d->progressAnimations.cend()) {
        const double t = double(running->start.msecsTo(ZVXClock::currentTime()))
            / double(ProgressAnimationDuration.count());
        shown = running->from + (running->to - running->from) * std::clamp(t, 0.0, 1.0);
    }
    d->model->setUploadProgress(message, progress);
    // Progress that goes back is drawn at once: an upload is never seen undoing itself.
    if (animated && progress >= shown) {
        d->progressAnimations.insert(key, {shown, progress, ZVXClock::currentTime()});
        d->cells->setShownUploadProgress(key, shown);
        d->scheduleProgressStep();
    } else {
        d->progressAnimations.remove(key);
        d->cells->clearShownUploadProgress(key);
    }
    d->list->viewport()->update();
}

void ZuveroChatView::scrollToLastMessageAnimated(bool)
{
    const int count = d->model->rowCount();
    if (count == 0)
        return;
    d->list->scrollTo(d->model->index(count - 1), QAbstractItemView::PositionAtBottom);
}

void ZuveroChatView::scrollToLastMessageIfVisibleAnimated(bool animated)
{
    const int count = d->model->rowCount();
    const QRect visible = d->list->viewport()->rect();
    for (int row = std::max(0, count - 3); row < count; ++row) {
        if (d->list->visualRect(d->model->index(row)).intersects(visible)) {
            scrollToLastMessageAnimated(animated);
            return;
        }
    }
}

double ZuveroChatView::dateInsertionInterval() const
{
    return d->dateInsertionInterval;
}

void ZuveroChatView::setDateInsertionInterval(double seconds)
{
    d->dateInsertionInterval = seconds;
}

bool ZuveroChatView::shouldRasterizeCells() const
{
    return d->shouldRasterizeCells;
}

void ZuveroChatView::setShouldRasterizeCells(bool rasterize)
{
    d->shouldRasterizeCells = rasterize;
}

QListView *ZuveroChatView::scrollView() const
{
    return d->list;
}

QDateTime ZuveroChatView::lastMarkAsReadDate() const
{
    return d->readMarking->lastMarkAsReadDate();
}

void ZuveroChatView::setLastMarkAsReadDate(const QDateTime &date)
{
    d->readMarking->setLastMarkAsReadDate(date);
}

bool ZuveroChatView::event(QEvent *event)
{
    switch (event->type()) {
    case QEvent::PaletteChange:
    case QEvent::FontChange:
    case QEvent::LayoutDirectionChange:
    case QEvent::StyleChange:
        d->relayout();
        break;
    case QEvent::LanguageChange:
        d->retranslate();
        break;
    case QEvent::Hide:
        // Whatever is on screen when the view shows again counts as seen again.
        d->onScreen.clear();
        break;
    default:
        break;
    }
    return QWidget::event(event);
}

bool ZuveroChatView::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == d->list->viewport()) {
        if (event->type() == QEvent::Resize) {
            d->updateWidth();
        } else if (event->type() == QEvent::Paint) {
            // A hidden view is drawn only for a picture of it (grab()): nobody saw that.
            if (isVisible())
                d->markRowsOnScreen();
        } else if (event->type() == QEvent::MouseMove) {
            // A hand over what a click opens: links, pictures, maps, the buttons.
            const QPoint position = static_cast<QMouseEvent *>(event)->position().toPoint();
            const QModelIndex index = d->list->indexAt(position);
            const auto hit
                = d->cells->hitTest(index, position - d->list->visualRect(index).topLeft()).hit;
            const bool active = hit == ZVXChatItemDelegate::Hit::Link
                || hit == ZVXChatItemDelegate::Hit::Media
                || hit == ZVXChatItemDelegate::Hit::LoadMore
                || hit == ZVXChatItemDelegate::Hit::ErrorIcon;
            if (active)
                d->list->viewport()->setCursor(Qt::PointingHandCursor);
            else
                d->list->viewport()->unsetCursor();
        } else if (event->type() == QEvent::ContextMenu)
            d->showCopyMenu(static_cast<QContextMenuEvent *>(event)->pos());
    } else if (watched == d->list && event->type() == QEvent::KeyPress) {
        auto *key = static_cast<QKeyEvent *>(event);
        const QModelIndex current = d->list->currentIndex();
        // Enter and Space do what a click on the focused row's picture or button does.
        if (current.isValid() && key->modifiers() == Qt::NoModifier
            && (key->key() == Qt::Key_Return || key->key() == Qt::Key_Enter
                || key->key() == Qt::Key_Space)) {
            const ZuveroChatViewItem item = d->model->item(current.row());
            if (item.kind() == ZuveroChatViewItemKindLoadMoreMessages) {
                d->loadEarlierMessages();
                return true;
            }
            if (item.attachment() || item.locationDictionary()) {
                d->openRow(current);
                return true;
            }
        }
        if (key->matches(QKeySequence::Copy)) {
            const QString text = current.isValid() ? d->textOfRow(current.row()) : QString();
            if (!text.isEmpty())
                ZuveroChatViewPrivate::copyToClipboard(text);
            return true;
        }
    }
    return QWidget::eventFilter(watched, event);
}
