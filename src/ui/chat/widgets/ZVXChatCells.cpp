#include "ZVXChatCells.h"

#include "ZVXLocalization.h"
#include "ZVXResources.h"

#include <QCache>
#include <QFontMetricsF>
#include <QLocale>
#include <QPainter>
#include <QPainterPath>
#include <QPixmap>
#include <QTextOption>
#include <QtWidgets/qdrawutil.h>

namespace {

// A bubble takes at most this part of the row's width.
constexpr qreal BubbleWidthRatio = 0.78;
constexpr qreal ErrorIconSize = 22.0;
constexpr qreal ErrorIconGap = 4.0;
constexpr QSizeF LocationSize(220.0, 140.0);
constexpr QSizeF DocumentSize(240.0, 64.0);
constexpr qreal DocumentIconSize = 36.0;
// Pictures are shown within this box and never thinner than the minimum.
constexpr qreal MaximumPictureSide = 240.0;
constexpr qreal MinimumPictureSide = 48.0;
constexpr QSizeF PlaceholderPictureSize(180.0, 135.0);
constexpr qreal MediaCornerRadius = 14.0;
// How much wider than its body a bubble image is on its tail's side.
constexpr qreal TailOverhang = 6.0;

QMarginsF mirrored(const QMarginsF &m)
{
    return QMarginsF(m.right(), m.top(), m.left(), m.bottom());
}

QImage tinted(const QImage &image, const QColor &color)
{
    QImage result = image.convertToFormat(QImage::Format_ARGB32_Premultiplied);
    QPainter painter(&result);
    painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
    painter.fillRect(result.rect(), color);
    return result;
}

// Tinting and mirroring a bubble costs more than drawing it: done once per look.
QPixmap bubblePixmap(const ZuveroResizableImage &image, const QColor &color, bool mirror)
{
    static QCache<QString, QPixmap> cache(64);
    const QString key = QStringLiteral("%1/%2/%3")
                            .arg(image.image.cacheKey())
                            .arg(image.isTemplate ? color.rgba() : 0u)
                            .arg(mirror);
    if (QPixmap *found = cache.object(key))
        return *found;
    QImage source = image.isTemplate ? tinted(image.image, color) : image.image;
    if (mirror)
        source = source.mirrored(true, false);
    auto *pixmap = new QPixmap(QPixmap::fromImage(source));
    cache.insert(key, pixmap);
    return *pixmap;
}

QImage resourceImage(const QString &name)
{
    static QHash<QString, QImage> images;
    auto found = images.find(name);
    if (found == images.end())
        found = images.insert(name, ZVXResources::image(name));
    return *found;
}

/*
    Draws \a image stretched over \a rect between its fixed corners. Without
    a tail, a template bubble is drawn as its body alone: a rounded
    rectangle that leaves out the tail's overhang.
*/
void drawBubble(QPainter *painter, const QRectF &rect, const ZuveroResizableImage &image,
                const QColor &color, bool tailAtRight, bool showTail)
{
    if (rect.isEmpty())
        return;
    if (image.isNull() || (!showTail && image.isTemplate)) {
        QRectF body = rect;
        if (!image.isNull())
            body = tailAtRight ? body.adjusted(0, 0, -TailOverhang, 0)
                               : body.adjusted(TailOverhang, 0, 0, 0);
        const qreal radius = std::min<qreal>(17.0, body.height() / 2);
        QPainterPath path;
        path.addRoundedRect(body, radius, radius);
        painter->fillPath(path, color);
        return;
    }
    // The picture is drawn with its tail at the right; the agent's at the left.
    const bool imageTailAtRight = image.capInsets.right() > image.capInsets.left();
    const bool mirror = imageTailAtRight != tailAtRight;
    QMarginsF caps = mirror ? mirrored(image.capInsets) : image.capInsets;
    // Corners never overlap in a bubble smaller than them.
    const qreal sx
        = std::min<qreal>(1.0, rect.width() / std::max<qreal>(1, caps.left() + caps.right()));
    const qreal sy
        = std::min<qreal>(1.0, rect.height() / std::max<qreal>(1, caps.top() + caps.bottom()));
    const QMargins source = caps.toMargins();
    caps = QMarginsF(caps.left() * sx, caps.top() * sy, caps.right() * sx, caps.bottom() * sy);
    qDrawBorderPixmap(painter, rect.toRect(), caps.toMargins(), bubblePixmap(image, color, mirror),
                      QRect(QPoint(), image.image.size()), source, QTileRules(Qt::StretchTile));
}

// A picture's size in the bubble: its own proportions within bounds, whatever the data claims.
QSizeF pictureSize(const QSizeF &imageSize, qreal maximumWidth)
{
    const qreal side = std::min(MaximumPictureSide, maximumWidth);
    if (!(imageSize.width() > 0 && imageSize.height() > 0) || !qIsFinite(imageSize.width())
        || !qIsFinite(imageSize.height()))
        return PlaceholderPictureSize.boundedTo(QSizeF(side, side));
    QSizeF size = imageSize.scaled(side, side, Qt::KeepAspectRatio);
    return QSizeF(std::clamp(size.width(), std::min(MinimumPictureSide, side), side),
                  std::clamp(size.height(), MinimumPictureSide, side));
}

void drawCovering(QPainter *painter, const QRectF &rect, const QImage &image)
{
    const QSizeF size = QSizeF(image.size()).scaled(rect.size(), Qt::KeepAspectRatioByExpanding);
    const QRectF target(rect.center() - QPointF(size.width() / 2, size.height() / 2), size);
    painter->drawImage(target, image);
}

} // namespace

ZuveroChatBaseCell::~ZuveroChatBaseCell() = default;

const ZuveroChatBaseCell &ZuveroChatBaseCell::forKind(QLatin1String kind)
{
    static const ZuveroUserMessageCell user;
    static const ZuveroAgentMessageCell agent;
    static const ZuveroSystemMessageCell system;
    static const ZuveroChatDateCell date;
    static const ZuveroChatUnsentCell unsent;
    static const ZuveroChatLoadMoreMessagesCell loadMore;
    static const ZVXChatSpacerCell spacer;
    if (kind == ZuveroChatViewItemKindUserMessage
        || kind == ZuveroChatViewItemKindUserMessageLocation
        || kind == ZuveroChatViewItemKindUserMessageAttachment)
        return user;
    if (kind == ZuveroChatViewItemKindAgentMessage
        || kind == ZuveroChatViewItemKindAgentMessageLocation
        || kind == ZuveroChatViewItemKindAgentMessageAttachment)
        return agent;
    if (kind == ZuveroChatViewItemKindSystemMessage)
        return system;
    if (kind == ZuveroChatViewItemKindDate)
        return date;
    if (kind == ZuveroChatViewItemKindUserMessageUnsentLabel)
        return unsent;
    if (kind == ZuveroChatViewItemKindLoadMoreMessages)
        return loadMore;
    return spacer;
}

// --- Bubbles ------------------------------------------------------------------

QFont ZuveroChatBaseMessageCell::messageFont(const ZVXCellStyle &style) const
{
    const auto &font = m_side == Side::System ? style.appearance.systemMessageFont
                                              : style.appearance.messageFont;
    return font.value_or(QFont());
}

QColor ZuveroChatBaseMessageCell::messageTextColor(const ZVXCellStyle &style) const
{
    const ZuveroAppearance &a = style.appearance;
    switch (m_side) {
    case Side::User:
        return a.userMessageTextColor.isValid() ? a.userMessageTextColor : QColor(Qt::black);
    case Side::Agent:
        return a.agentMessageTextColor.isValid() ? a.agentMessageTextColor : QColor(Qt::black);
    case Side::System:
        break;
    }
    return a.systemMessageTextColor.isValid() ? a.systemMessageTextColor : QColor(Qt::gray);
}

ZuveroResizableImage ZuveroChatBaseMessageCell::messageBubbleImage(const ZVXCellStyle &style) const
{
    switch (m_side) {
    case Side::User:
        return style.appearance.userMessageBubbleImage;
    case Side::Agent:
        return style.appearance.agentMessageBubbleImage;
    case Side::System:
        break;
    }
    return style.appearance.systemMessageBubbleImage;
}

QColor ZuveroChatBaseMessageCell::messageBackgroundColor(const ZVXCellStyle &style) const
{
    switch (m_side) {
    case Side::User:
        return style.appearance.userMessageBackgroundColor;
    case Side::Agent:
        return style.appearance.agentMessageBackgroundColor;
    case Side::System:
        break;
    }
    return style.appearance.systemMessageBackgroundColor;
}

QMarginsF ZuveroChatBaseMessageCell::messageBubbleInsets(const ZVXCellStyle &style) const
{
    switch (m_side) {
    case Side::User:
        return style.appearance.userMessageBubbleInsets;
    case Side::Agent:
        return style.appearance.agentMessageBubbleInsets;
    case Side::System:
        break;
    }
    return style.appearance.systemMessageBubbleInsets;
}

QMarginsF ZuveroChatBaseMessageCell::attachmentBubbleInsets(const ZVXCellStyle &style) const
{
    return m_side == Side::User ? style.appearance.userAttachmentBubbleInsets
                                : style.appearance.agentAttachmentBubbleInsets;
}

QColor ZuveroChatBaseMessageCell::errorIconColor(const ZVXCellStyle &style)
{
    return style.appearance.errorIconColor.isValid() ? style.appearance.errorIconColor
                                                     : QColor::fromRgbF(0.97f, 0.38f, 0.38f);
}

QString ZuveroChatBaseMessageCell::sizeLabel(quint64 length)
{
    const bool megabytes = length >= 1'048'576;
    const double value = double(length) / (megabytes ? 1'048'576.0 : 1024.0);
    const QLocale locale;
    QString number = locale.toString(value, 'f', 2);
    // At most two fraction digits: "2", "2.5", "2.25" (in the locale's own digits).
    const QString point = locale.decimalPoint();
    const QString zero = locale.zeroDigit();
    if (number.contains(point)) {
        while (number.endsWith(zero))
            number.chop(zero.size());
        if (number.endsWith(point))
            number.chop(point.size());
    }
    return ZVXLocalization::localizeString(megabytes ? QStringLiteral("zuveroMegabytesSize")
                                                     : QStringLiteral("zuveroKilobytesSize"))
        .arg(number);
}

ZVXCellLayout ZuveroChatBaseMessageCell::layout(const ZuveroChatViewItem &item,
                                                const ZVXCellStyle &style, qreal width) const
{
    ZVXCellLayout layout;
    const ZuveroChatMessagePtr &message = item.message();
    const bool rtl = style.direction == Qt::RightToLeft;
    // The user's bubbles stand at the trailing edge, the others at the leading one.
    layout.atRight = (m_side == Side::User) != rtl;
    const bool errored = message && message->isErrored();
    const qreal errorSpace = errored ? ErrorIconSize + ErrorIconGap : 0.0;
    const qreal maximumWidth
        = std::max<qreal>(60.0, std::floor(width * BubbleWidthRatio) - errorSpace);

    qreal y = 0;
    if (m_side == Side::Agent && item.showUserName() && message) {
        const QString name = message->userName().value_or(QString());
        if (!name.isEmpty()) {
            const QMarginsF insets = style.appearance.agentNameInsets;
            const QFont font = style.appearance.agentNameFont.value_or(QFont());
            const QFontMetricsF metrics(font);
            layout.label = metrics.elidedText(name, Qt::ElideRight,
                                              maximumWidth - insets.left() - insets.right());
            const qreal nameWidth = metrics.horizontalAdvance(layout.label);
            const qreal x = rtl ? width - insets.right() - nameWidth : insets.left();
            layout.nameRect = QRectF(x, insets.top(), nameWidth, metrics.height());
            y = insets.top() + metrics.height() + insets.bottom();
        }
    }

    const QLatin1String kind = item.kind();
    QSizeF bubble;
    if (kind == ZuveroChatViewItemKindUserMessage || kind == ZuveroChatViewItemKindAgentMessage
        || kind == ZuveroChatViewItemKindSystemMessage) {
        QMarginsF insets = messageBubbleInsets(style);
        if (rtl)
            insets = mirrored(insets);
        QString text = message ? message->text().value_or(QString()) : QString();
        if (text.size() > MaximumLaidOutLength)
            text.truncate(MaximumLaidOutLength);
        layout.text.setFont(messageFont(style));
        layout.text.setTextColor(messageTextColor(style));
        // Links are underlined in the text's own colour: the bubble's colour is the host's,
        // and a palette's link colour is not made to stand on it.
        layout.text.setLinkColor(messageTextColor(style));
        layout.text.setMaximumLineCount(MaximumLineCount);
        layout.text.setWidth(std::max<qreal>(10.0, maximumWidth - insets.left() - insets.right()));
        layout.text.setText(text);
        const QSizeF textSize = layout.text.size();
        // Lines align within the layout's width: narrowed to the widest line, right-to-left
        // text ends at the bubble's edge rather than beyond it.
        layout.text.setWidth(std::max<qreal>(1.0, textSize.width()));
        const ZuveroResizableImage image = messageBubbleImage(style);
        const QMarginsF caps = image.capInsets;
        bubble = QSizeF(
            std::max(textSize.width() + insets.left() + insets.right(), caps.left() + caps.right()),
            std::max(textSize.height() + insets.top() + insets.bottom(),
                     caps.top() + caps.bottom()));
        layout.textRect = QRectF(QPointF(insets.left(), y + insets.top()), textSize);
    } else {
        QMarginsF insets = attachmentBubbleInsets(style);
        if (rtl)
            insets = mirrored(insets);
        const qreal inner = maximumWidth - insets.left() - insets.right();
        QSizeF media;
        if (item.locationDictionary()) {
            media = LocationSize.boundedTo(QSizeF(inner, LocationSize.height()));
        } else if (const ZuveroChatAttachmentPtr &attachment = item.attachment();
                   attachment && !attachment->isImage()) {
            layout.isDocument = true;
            media = DocumentSize.boundedTo(QSizeF(inner, DocumentSize.height()));
            layout.footer = attachment->filename().value_or(QString());
            if (attachment->length() > 0)
                layout.footerSize = sizeLabel(attachment->length());
        } else {
            media = pictureSize(attachment ? attachment->imageSize() : QSizeF(), inner);
        }
        layout.mediaRect = QRectF(QPointF(insets.left(), y + insets.top()), media);
        bubble = QSizeF(media.width() + insets.left() + insets.right(),
                        media.height() + insets.top() + insets.bottom());
        if (layout.isDocument) {
            const QRectF box = layout.mediaRect;
            const qreal pad = 12.0;
            const qreal iconX = rtl ? box.right() - pad - DocumentIconSize : box.left() + pad;
            layout.iconRect = QRectF(iconX, box.center().y() - DocumentIconSize / 2,
                                     DocumentIconSize, DocumentIconSize);
            const qreal footerLeft = rtl ? box.left() + pad : layout.iconRect.right() + 8.0;
            const qreal footerRight = rtl ? layout.iconRect.left() - 8.0 : box.right() - pad;
            layout.footerRect = QRectF(footerLeft, box.top(),
                                       std::max<qreal>(0, footerRight - footerLeft), box.height());
            // A long name gives way before the size does.
            const QFontMetricsF metrics(messageFont(style));
            const QString suffix = layout.footerSize.isEmpty()
                ? QString()
                : QStringLiteral(" - ") + layout.footerSize;
            layout.footer
                = metrics.elidedText(layout.footer, Qt::ElideMiddle,
                                     layout.footerRect.width() - metrics.horizontalAdvance(suffix))
                + suffix;
        }
    }

    const qreal bubbleX = layout.atRight ? width - bubble.width() : 0.0;
    const qreal shift = bubbleX; // the inner rectangles were placed from the bubble's left
    layout.bubbleRect = QRectF(QPointF(bubbleX, y), bubble);
    layout.textRect.translate(shift, 0);
    layout.mediaRect.translate(shift, 0);
    layout.iconRect.translate(shift, 0);
    layout.footerRect.translate(shift, 0);
    if (errored) {
        const qreal iconX = layout.atRight ? bubbleX - ErrorIconGap - ErrorIconSize
                                           : layout.bubbleRect.right() + ErrorIconGap;
        layout.errorIconRect = QRectF(iconX, layout.bubbleRect.center().y() - ErrorIconSize / 2,
                                      ErrorIconSize, ErrorIconSize);
    }
    layout.height = std::max<qreal>(24.0, std::ceil(layout.bubbleRect.bottom()));
    return layout;
}

void ZuveroChatBaseMessageCell::paint(QPainter *painter, const ZVXCellLayout &layout,
                                      const ZVXCellPaintState &state) const
{
    const ZVXCellStyle &style = state.style;
    painter->setRenderHint(QPainter::Antialiasing);
    painter->setRenderHint(QPainter::SmoothPixmapTransform);
    if (!layout.nameRect.isEmpty()) {
        painter->setFont(style.appearance.agentNameFont.value_or(QFont()));
        painter->setPen(style.appearance.agentNameColor.isValid() ? style.appearance.agentNameColor
                                                                  : QColor(Qt::gray));
        painter->drawText(layout.nameRect, Qt::AlignLeft | Qt::AlignVCenter, layout.label);
    }
    const bool textBubble = !layout.text.text().isEmpty() || layout.isDocument;
    if (textBubble) {
        drawBubble(painter, layout.bubbleRect, messageBubbleImage(style),
                   messageBackgroundColor(style), layout.atRight, state.item.showTail());
        layout.text.draw(painter, layout.textRect.topLeft());
    }
    if (!layout.mediaRect.isNull())
        paintMedia(painter, layout, state);
    if (!layout.errorIconRect.isNull()) {
        const QImage icon
            = tinted(resourceImage(QStringLiteral("ZuveroError")), errorIconColor(style));
        painter->drawImage(layout.errorIconRect, icon);
    }
    if (state.hasFocus) {
        QPen pen(style.palette.color(QPalette::Highlight), 2.0);
        painter->setPen(pen);
        painter->setBrush(Qt::NoBrush);
        painter->drawRoundedRect(layout.bubbleRect.adjusted(1, 1, -1, -1), 8, 8);
    }
}

void ZuveroChatBaseMessageCell::paintMedia(QPainter *painter, const ZVXCellLayout &layout,
                                           const ZVXCellPaintState &state) const
{
    const QRectF media = layout.mediaRect;
    if (layout.isDocument) {
        const QString iconName
            = state.item.attachment() ? state.item.attachment()->icon() : QString();
        QImage icon = resourceImage(iconName.isEmpty() ? QStringLiteral("unknown_icon") : iconName);
        if (icon.isNull())
            icon = resourceImage(QStringLiteral("unknown_icon"));
        painter->drawImage(layout.iconRect, icon);
        painter->setPen(messageTextColor(state.style));
        painter->setFont(messageFont(state.style));
        painter->drawText(layout.footerRect, Qt::AlignVCenter | Qt::AlignLeading, layout.footer);
        return;
    }
    painter->save();
    QPainterPath clip;
    clip.addRoundedRect(media, MediaCornerRadius, MediaCornerRadius);
    painter->setClipPath(clip);
    painter->fillRect(media, state.style.palette.color(QPalette::Midlight));
    const bool isLocation = state.item.locationDictionary().has_value();
    if (state.preview.isNull()) {
        const QImage placeholder = resourceImage(isLocation ? QStringLiteral("ZuveroLocationGrid")
                                                            : QStringLiteral("placeholder"));
        if (isLocation) {
            drawCovering(painter, media, placeholder);
        } else if (!placeholder.isNull()) {
            const QSizeF size = QSizeF(placeholder.size()).boundedTo(media.size() * 0.6);
            painter->drawImage(
                QRectF(media.center() - QPointF(size.width() / 2, size.height() / 2), size),
                placeholder);
        }
    } else if (state.uploadProgress < 1.0 && !state.blurredPreview.isNull()) {
        // The sharp picture is uncovered from the leading edge as the upload goes on.
        drawCovering(painter, media, state.blurredPreview);
        const qreal shown = media.width() * std::clamp(state.uploadProgress, 0.0, 1.0);
        const bool rtl = state.style.direction == Qt::RightToLeft;
        painter->setClipRect(rtl ? QRectF(media.right() - shown, media.top(), shown, media.height())
                                 : QRectF(media.left(), media.top(), shown, media.height()),
                             Qt::IntersectClip);
        drawCovering(painter, media, state.preview);
    } else {
        drawCovering(painter, media, state.preview);
    }
    painter->restore();
    if (state.isGif) {
        QFont font(QStringLiteral("TrebuchetMS"), 11, QFont::Bold);
        painter->setFont(font);
        const QFontMetricsF metrics(font);
        const QSizeF size(metrics.horizontalAdvance(QStringLiteral("GIF")) + 10,
                          metrics.height() + 4);
        const QRectF badge(media.left() + 8, media.bottom() - 8 - size.height(), size.width(),
                           size.height());
        painter->setPen(Qt::NoPen);
        painter->setBrush(QColor(0, 0, 0, 140));
        painter->drawRoundedRect(badge, 4, 4);
        painter->setPen(Qt::white);
        painter->drawText(badge, Qt::AlignCenter, QStringLiteral("GIF"));
    }
}

// --- Captions ---------------------------------------------------------------------

ZVXCellLayout ZVXChatCaptionCell::captionLayout(const QString &text, qreal width) const
{
    ZVXCellLayout layout;
    layout.height = Height;
    layout.label = text;
    layout.textRect = QRectF(0, 0, width, Height);
    return layout;
}

void ZVXChatCaptionCell::paint(QPainter *painter, const ZVXCellLayout &layout,
                               const ZVXCellPaintState &state) const
{
    const ZuveroAppearance &a = state.style.appearance;
    painter->setFont(a.dateFont.value_or(QFont()));
    painter->setPen(a.dateTextColor.isValid() ? a.dateTextColor : QColor(Qt::lightGray));
    const QFontMetricsF metrics(painter->font());
    // A caption reads in its own direction: a date keeps its order in a right-to-left screen.
    QTextOption option(Qt::AlignCenter);
    option.setTextDirection(layout.label.isRightToLeft() ? Qt::RightToLeft : Qt::LeftToRight);
    painter->drawText(layout.textRect,
                      metrics.elidedText(layout.label, Qt::ElideRight, layout.textRect.width()),
                      option);
}

ZVXCellLayout ZuveroChatDateCell::layout(const ZuveroChatViewItem &item, const ZVXCellStyle &style,
                                         qreal width) const
{
    const QDateTime date = item.date();
    return captionLayout(
        date.isValid() ? style.appearance.dateFormatter.stringFromDate(date) : QString(), width);
}

ZVXCellLayout ZuveroChatUnsentCell::layout(const ZuveroChatViewItem &, const ZVXCellStyle &,
                                           qreal width) const
{
    return captionLayout(
        ZVXLocalization::localizeString(QStringLiteral("zuveroWaitingForConnectionLabel"),
                                        QStringLiteral("Waiting for connection")),
        width);
}

// --- Load more ----------------------------------------------------------------------

namespace {
QFont loadMoreFont()
{
    QFont font;
    font.setPixelSize(16);
    return font;
}
} // namespace

ZVXCellLayout ZuveroChatLoadMoreMessagesCell::layout(const ZuveroChatViewItem &,
                                                     const ZVXCellStyle &, qreal width) const
{
    ZVXCellLayout layout;
    layout.height = Height;
    layout.label
        = ZVXLocalization::localizeString(QStringLiteral("zuveroLoadMoreMessagesButtonTitle"));
    const QFontMetricsF metrics(loadMoreFont());
    const qreal w = std::min(width, metrics.horizontalAdvance(layout.label) + 24.0);
    layout.buttonRect = QRectF((width - w) / 2, 4, w, Height - 8);
    return layout;
}

void ZuveroChatLoadMoreMessagesCell::paint(QPainter *painter, const ZVXCellLayout &layout,
                                           const ZVXCellPaintState &state) const
{
    const ZuveroAppearance &a = state.style.appearance;
    const QColor color = a.loadMoreMessagesButtonTextColor.isValid()
        ? a.loadMoreMessagesButtonTextColor
        : a.tintColor.isValid() ? a.tintColor
                                : state.style.palette.color(QPalette::Link);
    painter->setRenderHint(QPainter::Antialiasing);
    if (state.busy) {
        // The button gives way to a busy mark while earlier messages load.
        const QRectF ring(layout.buttonRect.center() - QPointF(9, 9), QSizeF(18, 18));
        painter->setPen(QPen(color, 2.5, Qt::SolidLine, Qt::RoundCap));
        painter->drawArc(ring, 90 * 16, 270 * 16);
        return;
    }
    painter->setFont(loadMoreFont());
    painter->setPen(color);
    painter->drawText(layout.buttonRect, Qt::AlignCenter, layout.label);
    if (state.hasFocus) {
        painter->setPen(QPen(state.style.palette.color(QPalette::Highlight), 1.5));
        painter->drawRoundedRect(layout.buttonRect, 6, 6);
    }
}

ZVXCellLayout ZVXChatSpacerCell::layout(const ZuveroChatViewItem &, const ZVXCellStyle &,
                                        qreal) const
{
    ZVXCellLayout layout;
    layout.height = Height;
    return layout;
}
