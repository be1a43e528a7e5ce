#pragma once

#include "ZVXChatCells.h"

#include <QCache>
#include <QHash>
#include <QPointer>
#include <QStyledItemDelegate>
#include <QUrl>

#include <vector>

class ZuveroConnection;

/*!
    Paints the rows of the chat list (a ZVXChatListModel) and answers their
    heights, by handing each row to the painter of its kind.

    A row is laid out once for its identity, the width and the look; the
    layout serves measuring, painting and hit-testing alike, so appending
    to a long conversation measures the new rows only. A row whose model
    data changes is forgotten and laid out again (forget()).
*/
class ZUVERO_EXPORT ZVXChatItemDelegate : public QStyledItemDelegate
{
    Q_OBJECT

public:
    //! What a point of a row is over.
    enum class Hit { None, Bubble, Media, Link, ErrorIcon, LoadMore };
    struct HitResult
    {
        Hit hit = Hit::None;
        QUrl link;
    };

    //! Space between the rows and the list's sides.
    static constexpr int SideInset = 8;

    explicit ZVXChatItemDelegate(QObject *parent = nullptr);
    ~ZVXChatItemDelegate() override;

    //! The width rows are laid out at, inside the side insets; a change lays them out again.
    qreal rowWidth() const { return m_width; }
    void setRowWidth(qreal width);
    const ZVXCellStyle &cellStyle() const { return m_style; }
    //! A different look lays every row out again.
    void setCellStyle(const ZVXCellStyle &style);
    //! Where previews come from; none: placeholders.
    void setConnection(ZuveroConnection *connection);
    /*!
        Draws \a message's uploads at \a progress instead of the model's value,
        while the view eases towards that value.
    */
    void setShownUploadProgress(const ZuveroChatMessage *message, double progress);
    void clearShownUploadProgress(const ZuveroChatMessage *message);
    //! The load-more row shows that earlier messages are on their way.
    void setLoadingEarlierMessages(bool loading) { m_loadingEarlier = loading; }

    /*!
        Keeps the heights of \a model's rows by position, in step with its
        changes: the list asks for every row's size at each layout, and a
        long conversation must not pay a layout lookup per row for it. Call
        it before the list view is given the model.
    */
    void watch(const QAbstractItemModel *model);

    //! The layout of the row at \a index, made now if there is none for its width and look.
    const ZVXCellLayout &layoutFor(const QModelIndex &index) const;
    //! Lays the rows out again from \a first to \a last.
    void forget(const QModelIndex &parentModel, int first, int last);
    //! Drops the layouts of rows no longer in \a rows.
    void keepOnly(const QList<ZuveroChatViewItem> &rows);
    //! How many times a row was laid out, for those who watch the cost of a change.
    int layoutCount() const { return m_layoutCount; }

    //! What \a point (relative to the row's top-left corner, side inset included) is over.
    HitResult hitTest(const QModelIndex &index, const QPointF &point) const;

    QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const override;
    void paint(QPainter *painter, const QStyleOptionViewItem &option,
               const QModelIndex &index) const override;
    bool editorEvent(QEvent *event, QAbstractItemModel *model, const QStyleOptionViewItem &option,
                     const QModelIndex &index) override;

Q_SIGNALS:
    void mediaClicked(const QModelIndex &index);
    void loadMoreClicked();
    void errorIconClicked(const QModelIndex &index);
    void linkClicked(const QUrl &url);

private:
    struct Entry
    {
        ZuveroChatViewItem item;
        qreal width = 0;
        quint64 generation = 0;
        ZVXCellLayout layout;
    };

    QImage previewFor(const ZuveroChatViewItem &item, const ZVXCellLayout &layout,
                      bool *isGif) const;
    QImage blurred(const QString &key, const QImage &image) const;

    void forgetHeights(int first, int last) const;

    mutable QHash<ZuveroChatViewItem::Identity, Entry> m_layouts;
    // The height of each row of the watched model, by position; -1 when not known.
    mutable std::vector<int> m_heights;
    mutable int m_layoutCount = 0;
    mutable QCache<QString, QImage> m_blurred;
    ZVXCellStyle m_style;
    quint64 m_generation = 1;
    qreal m_width = 0;
    QPointer<ZuveroConnection> m_connection;
    bool m_loadingEarlier = false;
    QHash<const ZuveroChatMessage *, double> m_shownProgress;
};
