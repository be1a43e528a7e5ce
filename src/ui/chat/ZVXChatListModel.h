#pragma once

#include "ZVXChatRowBuilder.h"
#include "ZuveroAppearance.h"
#include "ZuveroChatViewItem.h"

#include <QAbstractListModel>

#include <memory>

class ZVXChatListModelPrivate;

/*!
    The rows of the chat list as a list model, for a widget list or a QML
    one. It never resets: each new list of rows is applied as the removals,
    moves and insertions that lead to it, keyed by row identity, and as
    dataChanged for the rows that stay but show something else (a tail
    gone, a message now sent), so that views keep their scroll position and
    what they measured.

    Rows are not selectable. Every row has a text for assistive
    technologies (Qt::DisplayRole and Qt::AccessibleTextRole).
*/
class ZUVERO_EXPORT ZVXChatListModel : public QAbstractListModel
{
    Q_OBJECT

public:
    enum Role {
        KindRole = Qt::UserRole + 1, //!< the kind constant, as a QString
        UuidRole, //!< the message's uuid; empty for rows without one
        DateRole, //!< QDateTime
        ShowTailRole,
        ShowUserNameRole,
        AttachmentUuidRole, //!< empty for rows without an attachment
        UploadProgressRole, //!< the message's, 0.0 to 1.0; none for rows without a message
        IsOfflineRole,
        IsErroredRole,
        ItemRole, //!< the ZuveroChatViewItem itself
    };
    Q_ENUM(Role)

    explicit ZVXChatListModel(QObject *parent = nullptr);
    ~ZVXChatListModel() override;

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;
    QHash<int, QByteArray> roleNames() const override;

    const QList<ZuveroChatViewItem> &rows() const;
    //! An empty row when \a row is out of range.
    ZuveroChatViewItem item(int row) const;

    //! Shows \a rows, announcing the difference from the rows shown so far.
    void setRows(const QList<ZuveroChatViewItem> &rows);
    /*!
        Applies an unsent-label update computed from the rows shown now: one
        row moved, removed or inserted, and the rows whose message it marked
        offline changed. A change computed from other rows is applied as
        setRows() of its rows.
    */
    void applyUnsentLabelChange(const ZVXChatRowBuilder::UnsentLabelChange &change);

    /*!
        Sets the upload progress of \a message (0.0 to 1.0) on the message
        of each of its rows, and announces it for those rows.
    */
    void setUploadProgress(const ZuveroChatMessagePtr &message, double progress);
    //! The rows showing \a message (or a message equal to it), in order.
    QList<int> rowsForMessage(const ZuveroChatMessagePtr &message) const;

    //! Prints the dates and times of the accessible texts.
    ZuveroDateFormatter dateFormatter() const;
    void setDateFormatter(const ZuveroDateFormatter &formatter);

    //! Who, what and when, for a bubble; what the row says for the others.
    QString accessibleText(int row) const;
    //! Announces every row's texts as changed: the language changed.
    void retranslate();

private:
    std::unique_ptr<ZVXChatListModelPrivate> d;
};
