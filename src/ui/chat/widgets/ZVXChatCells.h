#pragma once

#include "ZVXTextLayout.h"
#include "ZuveroAppearance.h"
#include "ZuveroChatViewItem.h"

#include <QImage>
#include <QPalette>
#include <QRectF>

class QPainter;

/*
    The painters of the chat list's rows, one per cell kind. A painter keeps
    no state: it lays a row out for a width (the geometry that measuring,
    painting and hit-testing share) and paints a laid-out row. The item
    delegate keeps the layouts and hands the painters what has to be
    fetched (previews).
*/

//! The look every cell is drawn with.
struct ZVXCellStyle
{
    ZuveroAppearance appearance; //!< fonts filled
    QPalette palette;
    Qt::LayoutDirection direction = Qt::LeftToRight;

    friend bool operator==(const ZVXCellStyle &, const ZVXCellStyle &) = default;
};

//! One row laid out at one width; coordinates relative to the row's top-left corner.
struct ZVXCellLayout
{
    qreal height = 0;
    QRectF bubbleRect;
    QRectF nameRect;
    QRectF textRect;
    //! The picture of an attachment or a location, or a document's box.
    QRectF mediaRect;
    QRectF iconRect;
    QRectF footerRect;
    QRectF errorIconRect;
    //! The load-more row's button.
    QRectF buttonRect;
    ZVXTextLayout text;
    //! The agent's name, the date, the unsent text, the button's title.
    QString label;
    //! A document's "name - size" line, its name shortened to fit.
    QString footer;
    QString footerSize;
    bool isDocument = false;
    //! The bubble stands at the right of the row.
    bool atRight = false;
};

//! What a cell paints besides its layout.
struct ZVXCellPaintState
{
    const ZuveroChatViewItem &item;
    const ZVXCellStyle &style;
    QImage preview; //!< an attachment's or a location's picture; null: placeholder
    QImage blurredPreview; //!< shown while uploading, uncovered as the upload goes on
    double uploadProgress = 1.0;
    bool isGif = false;
    bool busy = false; //!< the load-more row waits for earlier messages
    bool hasFocus = false;
};

class ZUVERO_EXPORT ZuveroChatBaseCell
{
public:
    virtual ~ZuveroChatBaseCell();
    virtual ZVXCellLayout layout(const ZuveroChatViewItem &item, const ZVXCellStyle &style,
                                 qreal width) const = 0;
    virtual void paint(QPainter *painter, const ZVXCellLayout &layout,
                       const ZVXCellPaintState &state) const = 0;

    //! The painter of rows of \a kind; an unknown kind is painted as a spacer.
    static const ZuveroChatBaseCell &forKind(QLatin1String kind);
};

//! A bubble: text, location or one attachment of a message.
class ZUVERO_EXPORT ZuveroChatBaseMessageCell : public ZuveroChatBaseCell
{
public:
    enum class Side { User, Agent, System };

    //! Texts longer than this are cut before they are laid out; the copy menu still has all.
    static constexpr qsizetype MaximumLaidOutLength = 20'000;
    //! A bubble shows at most this many lines of text, the last ending in "…".
    static constexpr int MaximumLineCount = 60;

    explicit ZuveroChatBaseMessageCell(Side side)
        : m_side(side)
    { }

    ZVXCellLayout layout(const ZuveroChatViewItem &item, const ZVXCellStyle &style,
                         qreal width) const override;
    void paint(QPainter *painter, const ZVXCellLayout &layout,
               const ZVXCellPaintState &state) const override;

    //! "2 Ko", "3 Mo": a file's size as its footer shows it.
    static QString sizeLabel(quint64 length);

    QFont messageFont(const ZVXCellStyle &style) const;
    QColor messageTextColor(const ZVXCellStyle &style) const;
    ZuveroResizableImage messageBubbleImage(const ZVXCellStyle &style) const;
    QColor messageBackgroundColor(const ZVXCellStyle &style) const;
    QMarginsF messageBubbleInsets(const ZVXCellStyle &style) const;
    QMarginsF attachmentBubbleInsets(const ZVXCellStyle &style) const;
    static QColor errorIconColor(const ZVXCellStyle &style);

private:
    void paintMedia(QPainter *painter, const ZVXCellLayout &layout,
                    const ZVXCellPaintState &state) const;

    Side m_side;
};

class ZuveroUserMessageCell : public ZuveroChatBaseMessageCell
{
public:
    ZuveroUserMessageCell()
        : ZuveroChatBaseMessageCell(Side::User)
    { }
};

class ZuveroAgentMessageCell : public ZuveroChatBaseMessageCell
{
public:
    ZuveroAgentMessageCell()
        : ZuveroChatBaseMessageCell(Side::Agent)
    { }
};

class ZuveroSystemMessageCell : public ZuveroChatBaseMessageCell
{
public:
    ZuveroSystemMessageCell()
        : ZuveroChatBaseMessageCell(Side::System)
    { }
};

//! A line of small centred text: the date and unsent cells.
class ZVXChatCaptionCell : public ZuveroChatBaseCell
{
public:
    static constexpr qreal Height = 26.0;
    void paint(QPainter *painter, const ZVXCellLayout &layout,
               const ZVXCellPaintState &state) const override;

protected:
    ZVXCellLayout captionLayout(const QString &text, qreal width) const;
};

class ZuveroChatDateCell : public ZVXChatCaptionCell
{
public:
    ZVXCellLayout layout(const ZuveroChatViewItem &item, const ZVXCellStyle &style,
                         qreal width) const override;
};

class ZuveroChatUnsentCell : public ZVXChatCaptionCell
{
public:
    ZVXCellLayout layout(const ZuveroChatViewItem &item, const ZVXCellStyle &style,
                         qreal width) const override;
};

class ZuveroChatLoadMoreMessagesCell : public ZuveroChatBaseCell
{
public:
    static constexpr qreal Height = 40.0;
    ZVXCellLayout layout(const ZuveroChatViewItem &item, const ZVXCellStyle &style,
                         qreal width) const override;
    void paint(QPainter *painter, const ZVXCellLayout &layout,
               const ZVXCellPaintState &state) const override;
};

//! The gap between two senders' bubbles.
class ZVXChatSpacerCell : public ZuveroChatBaseCell
{
public:
    static constexpr qreal Height = 10.0;
    ZVXCellLayout layout(const ZuveroChatViewItem &item, const ZVXCellStyle &style,
                         qreal width) const override;
    void paint(QPainter *, const ZVXCellLayout &, const ZVXCellPaintState &) const override { }
};
