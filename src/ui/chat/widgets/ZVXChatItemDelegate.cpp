#include "ZVXChatItemDelegate.h"

#include "ZVXChatListModel.h"
#include "ZVXImageBlur.h"
#include "ZuveroConnection.h"
#include "ZuveroImage.h"

#include <QAbstractItemView>
#include <QMouseEvent>
#include <QPainter>
#include <QSet>

ZVXChatItemDelegate::ZVXChatItemDelegate(QObject *parent)
    : QStyledItemDelegate(parent)
    , m_blurred(16)
{
    m_style.appearance = ZuveroAppearance::defaults();
    m_style.appearance.fillFonts();
}

ZVXChatItemDelegate::~ZVXChatItemDelegate() = default;

void ZVXChatItemDelegate::setRowWidth(qreal width)
{
    if (width != m_width)
        std::fill(m_heights.begin(), m_heights.end(), -1);
    m_width = width;
}

void ZVXChatItemDelegate::setCellStyle(const ZVXCellStyle &style)
{
    if (style == m_style)
        return;
    m_style = style;
    ++m_generation;
    m_blurred.clear();
    std::fill(m_heights.begin(), m_heights.end(), -1);
}

void ZVXChatItemDelegate::watch(const QAbstractItemModel *model)
{
    m_heights.assign(size_t(model->rowCount()), -1);
    const auto unknown = [this](int first, int last) {
        m_heights.insert(m_heights.begin() + first, size_t(last - first + 1), -1);
    };
    connect(model, &QAbstractItemModel::rowsInserted, this,
            [unknown](const QModelIndex &, int first, int last) { unknown(first, last); });
    connect(model, &QAbstractItemModel::rowsRemoved, this,
            [this](const QModelIndex &, int first, int last) {
                m_heights.erase(m_heights.begin() + first, m_heights.begin() + last + 1);
            });
    connect(model, &QAbstractItemModel::rowsMoved, this,
            [this](const QModelIndex &, int first, int last, const QModelIndex &, int before) {
                // Qt names the destination as the row the rows are put before, counted before
                // the move.
                const std::vector<int> moved(m_heights.begin() + first,
                                             m_heights.begin() + last + 1);
                m_heights.erase(m_heights.begin() + first, m_heights.begin() + last + 1);
                const int to = before > last ? before - int(moved.size()) : before;
                m_heights.insert(m_heights.begin() + to, moved.begin(), moved.end());
            });
    connect(model, &QAbstractItemModel::dataChanged, this,
            [this](const QModelIndex &topLeft, const QModelIndex &bottomRight) {
                forgetHeights(topLeft.row(), bottomRight.row());
            });
    const auto all = [this, model] { m_heights.assign(size_t(model->rowCount()), -1); };
    connect(model, &QAbstractItemModel::modelReset, this, all);
    connect(model, &QAbstractItemModel::layoutChanged, this, all);
}

void ZVXChatItemDelegate::forgetHeights(int first, int last) const
{
    for (int row = std::max(first, 0); row <= last && size_t(row) < m_heights.size(); ++row)
        m_heights[size_t(row)] = -1;
}

void ZVXChatItemDelegate::setConnection(ZuveroConnection *connection)
{
    m_connection = connection;
}

void ZVXChatItemDelegate::setShownUploadProgress(const ZuveroChatMessage *message, double progress)
{
    m_shownProgress.insert(message, progress);
}

void ZVXChatItemDelegate::clearShownUploadProgress(const ZuveroChatMessage *message)
{
    m_shownProgress.remove(message);
}

const ZVXCellLayout &ZVXChatItemDelegate::layoutFor(const QModelIndex &index) const
{
    const ZuveroChatViewItem item
        = index.data(ZVXChatListModel::ItemRole).value<ZuveroChatViewItem>();
    auto found = m_layouts.find(item.identity());
    if (found != m_layouts.end() && found->width == m_width && found->generation == m_generation
        && found->item == item)
        return found->layout;
    ++m_layoutCount;
    Entry entry{item, m_width, m_generation,
                ZuveroChatBaseCell::forKind(item.kind()).layout(item, m_style, m_width)};
    return m_layouts.insert(item.identity(), std::move(entry))->layout;
}

void ZVXChatItemDelegate::forget(const QModelIndex &parentModel, int first, int last)
{
    const auto *model = qobject_cast<const ZVXChatListModel *>(parentModel.model());
    if (!model)
        return;
    for (int row = first; row <= last; ++row)
        m_layouts.remove(model->item(row).identity());
    forgetHeights(first, last);
}

void ZVXChatItemDelegate::keepOnly(const QList<ZuveroChatViewItem> &rows)
{
    if (m_layouts.size() <= rows.size())
        return;
    QSet<ZuveroChatViewItem::Identity> kept;
    kept.reserve(rows.size());
    for (const ZuveroChatViewItem &row : rows)
        kept.insert(row.identity());
    for (auto it = m_layouts.begin(); it != m_layouts.end();)
        it = kept.contains(it.key()) ? std::next(it) : m_layouts.erase(it);
}

QSize ZVXChatItemDelegate::sizeHint(const QStyleOptionViewItem &, const QModelIndex &index) const
{
    const size_t row = size_t(index.row());
    if (row < m_heights.size() && m_heights[row] >= 0)
        return QSize(int(m_width) + 2 * SideInset, m_heights[row]);
    const int height = int(std::ceil(layoutFor(index).height));
    if (row < m_heights.size())
        m_heights[row] = height;
    return QSize(int(m_width) + 2 * SideInset, height);
}

QImage ZVXChatItemDelegate::blurred(const QString &key, const QImage &image) const
{
    if (QImage *found = m_blurred.object(key); found && found->size() == image.size())
        return *found;
    // A small copy blurs as well as the whole picture, and fast.
    const QImage small = image.width() > 160 || image.height() > 160
        ? image.scaled(160, 160, Qt::KeepAspectRatio, Qt::SmoothTransformation)
        : image;
    QImage result = ZVXImageBlur::applyBlur(small, 8.0, QColor(255, 255, 255, 70), 1.8);
    m_blurred.insert(key, new QImage(result));
    return result;
}

QImage ZVXChatItemDelegate::previewFor(const ZuveroChatViewItem &item, const ZVXCellLayout &layout,
                                       bool *isGif) const
{
    *isGif = false;
    if (item.locationDictionary()) {
        if (!m_connection || !item.message())
            return {};
        return m_connection->loadLocationPreview(item.message(), layout.mediaRect.size().toSize());
    }
    const ZuveroChatAttachmentPtr &attachment = item.attachment();
    if (!attachment || layout.isDocument)
        return {};
    *isGif = attachment->contentType() == QStringLiteral("image/gif");
    ZuveroImagePtr preview;
    if (m_connection) {
        preview = m_connection->loadAttachmentPreview(attachment);
        if (!preview && attachment->previewURL().isValid())
            preview = m_connection->cachedPreviewImageIfNeeded(attachment->previewURL());
    }
    if (preview) {
        *isGif = *isGif || preview->isGif();
        return preview->image();
    }
    return attachment->image();
}

void ZVXChatItemDelegate::paint(QPainter *painter, const QStyleOptionViewItem &option,
                                const QModelIndex &index) const
{
    const ZuveroChatViewItem item
        = index.data(ZVXChatListModel::ItemRole).value<ZuveroChatViewItem>();
    const ZVXCellLayout &layout = layoutFor(index);
    ZVXCellPaintState state{item, m_style, QImage(), QImage()};
    state.busy = m_loadingEarlier;
    state.hasFocus = option.state.testFlag(QStyle::State_HasFocus);
    if (!layout.mediaRect.isNull() && !layout.isDocument) {
        state.preview = previewFor(item, layout, &state.isGif);
        const QVariant progress = index.data(ZVXChatListModel::UploadProgressRole);
        state.uploadProgress = progress.isValid() ? progress.toDouble() : 1.0;
        if (item.message())
            state.uploadProgress
                = m_shownProgress.value(item.message().get(), state.uploadProgress);
        if (!state.preview.isNull() && state.uploadProgress < 1.0 && item.attachment())
            state.blurredPreview = blurred(item.attachment()->uuid(), state.preview);
    }
    painter->save();
    painter->setClipRect(option.rect);
    painter->translate(option.rect.topLeft() + QPoint(SideInset, 0));
    ZuveroChatBaseCell::forKind(item.kind()).paint(painter, layout, state);
    painter->restore();
}

ZVXChatItemDelegate::HitResult ZVXChatItemDelegate::hitTest(const QModelIndex &index,
                                                            const QPointF &rowPoint) const
{
    if (!index.isValid())
        return {};
    const ZVXCellLayout &layout = layoutFor(index);
    const QPointF point = rowPoint - QPointF(SideInset, 0);
    if (layout.buttonRect.contains(point))
        return {Hit::LoadMore, {}};
    if (layout.errorIconRect.contains(point))
        return {Hit::ErrorIcon, {}};
    if (layout.mediaRect.contains(point))
        return {Hit::Media, {}};
    if (!layout.text.text().isEmpty() && layout.textRect.contains(point)) {
        if (const auto link = layout.text.linkAt(point - layout.textRect.topLeft()))
            return {Hit::Link, layout.text.links().at(*link).url};
    }
    if (layout.bubbleRect.contains(point))
        return {Hit::Bubble, {}};
    return {};
}

bool ZVXChatItemDelegate::editorEvent(QEvent *event, QAbstractItemModel *,
                                      const QStyleOptionViewItem &option, const QModelIndex &index)
{
    if (event->type() != QEvent::MouseButtonRelease)
        return false;
    auto *mouse = static_cast<QMouseEvent *>(event);
    if (mouse->button() != Qt::LeftButton)
        return false;
    const HitResult result = hitTest(index, mouse->position() - QPointF(option.rect.topLeft()));
    switch (result.hit) {
    case Hit::LoadMore:
        Q_EMIT loadMoreClicked();
        return true;
    case Hit::ErrorIcon:
        Q_EMIT errorIconClicked(index);
        return true;
    case Hit::Media:
        Q_EMIT mediaClicked(index);
        return true;
    case Hit::Link:
        Q_EMIT linkClicked(result.link);
        return true;
    case Hit::Bubble:
    case Hit::None:
        break;
    }
    return false;
}
