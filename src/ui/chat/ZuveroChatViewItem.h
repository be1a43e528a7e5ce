#pragma once

#include "ZuveroChatMessage.h"

#include <QDateTime>
#include <QHashFunctions>
#include <QLatin1String>
#include <QMetaType>
#include <QSharedDataPointer>
#include <QVariantMap>

#include <optional>

// The kinds of row. Each is also the name of the cell that draws the row.
inline constexpr QLatin1String ZuveroChatViewItemKindUserMessage{
    "ZuveroChatViewItemKindUserMessage"};
inline constexpr QLatin1String ZuveroChatViewItemKindUserMessageLocation{
    "ZuveroChatViewItemKindUserMessageLocation"};
inline constexpr QLatin1String ZuveroChatViewItemKindUserMessageAttachment{
    "ZuveroChatViewItemKindUserMessageAttachment"};
inline constexpr QLatin1String ZuveroChatViewItemKindUserMessageUnsentLabel{
    "ZuveroChatViewItemKindUserMessageUnsentLabel"};
inline constexpr QLatin1String ZuveroChatViewItemKindAgentMessage{
    "ZuveroChatViewItemKindAgentMessage"};
inline constexpr QLatin1String ZuveroChatViewItemKindAgentMessageLocation{
    "ZuveroChatViewItemKindAgentMessageLocation"};
inline constexpr QLatin1String ZuveroChatViewItemKindAgentMessageAttachment{
    "ZuveroChatViewItemKindAgentMessageAttachment"};
inline constexpr QLatin1String ZuveroChatViewItemKindDate{"ZuveroChatViewItemKindDate"};
inline constexpr QLatin1String ZuveroChatViewItemKindSystemMessage{
    "ZuveroChatViewItemKindSystemMessage"};
inline constexpr QLatin1String ZuveroChatViewItemKindLoadMoreMessages{
    "ZuveroChatViewItemKindLoadMoreMessages"};
inline constexpr QLatin1String ZuveroChatViewItemKindSpacer{"ZuveroChatViewItemKindSpacer"};

class ZuveroChatViewItemData;

/*!
    One row of the chat list: a bubble (the text, the location or one
    attachment of a message) or what stands between bubbles (a spacer, a
    date, the unsent label, the load-more button).

    A value, implicitly shared: copies are cheap and independent of each
    other. The message and the attachment it shows are shared objects.
*/
class ZUVERO_EXPORT ZuveroChatViewItem
{
public:
    /*!
        What names a row from one build of the list to the next, so that a
        view keeps its scroll position and the heights it measured: the
        kind, the message's uuid (for a spacer or a date, the uuid of the
        message it stands before), the attachment's uuid, and how many rows
        with those three equal come before it in the same list. The unsent
        and load-more rows are named by kind and order alone, so that a
        label moving to another message stays the same row.
    */
    struct Identity
    {
        QLatin1String kind;
        QString messageUuid;
        QString attachmentUuid;
        int occurrence = 0;

        friend bool operator==(const Identity &a, const Identity &b)
        {
            return a.kind == b.kind && a.messageUuid == b.messageUuid
                && a.attachmentUuid == b.attachmentUuid && a.occurrence == b.occurrence;
        }
    };

    ZuveroChatViewItem();
    explicit ZuveroChatViewItem(QLatin1String kind);
    ZuveroChatViewItem(const ZuveroChatViewItem &other);
    ZuveroChatViewItem(ZuveroChatViewItem &&other) noexcept;
    ZuveroChatViewItem &operator=(const ZuveroChatViewItem &other);
    ZuveroChatViewItem &operator=(ZuveroChatViewItem &&other) noexcept;
    ~ZuveroChatViewItem();

    //! One of the ZuveroChatViewItemKind constants.
    QLatin1String kind() const;
    void setKind(QLatin1String kind);

    //! The message of a bubble; null for the other rows.
    const ZuveroChatMessagePtr &message() const;
    /*!
        A non-null \a message also clears the attachment: a row is pointed
        at its message first and given its attachment afterwards.
    */
    void setMessage(const ZuveroChatMessagePtr &message);

    //! The one attachment an attachment row shows.
    const ZuveroChatAttachmentPtr &attachment() const;
    void setAttachment(const ZuveroChatAttachmentPtr &attachment);

    //! A location row's place: "lat", "lng" and optionally "d" (metres).
    std::optional<QVariantMap> locationDictionary() const;
    void setLocationDictionary(const std::optional<QVariantMap> &location);

    //! A date row's date, or a bubble's message date; invalid when there is none.
    QDateTime date() const;
    void setDate(const QDateTime &date);

    //! The bubble is the last of its group and is drawn with a tail.
    bool showTail() const;
    void setShowTail(bool showTail);
    //! The sender's name is drawn above the bubble.
    bool showUserName() const;
    void setShowUserName(bool showUserName);

    //! A bubble of the user's: text, location or attachment.
    bool isUserSide() const;
    //! A bubble of an agent's (or a system message's location or attachment).
    bool isAgentSide() const;

    /*!
        For a row without a message, the uuid of the message it stands
        before; it names the row in identity().
    */
    QString anchorUuid() const;
    void setAnchorUuid(const QString &uuid);
    //! The rows of the same list with an equal identity before this one.
    int occurrence() const;
    void setOccurrence(int occurrence);

    /*!
        Taken when the row's kind, message, attachment, anchor or occurrence
        is set: a message whose uuid changes afterwards does not rename rows
        made before.
    */
    const Identity &identity() const;

    //! Same fields; the message and the attachment are compared as objects, not by value.
    bool operator==(const ZuveroChatViewItem &other) const;
    bool operator!=(const ZuveroChatViewItem &other) const { return !(*this == other); }

    QString description() const;

private:
    QSharedDataPointer<ZuveroChatViewItemData> d;
};

Q_DECLARE_METATYPE(ZuveroChatViewItem)

inline size_t qHash(const ZuveroChatViewItem::Identity &identity, size_t seed = 0)
{
    return qHashMulti(seed, identity.kind, identity.messageUuid, identity.attachmentUuid,
                      identity.occurrence);
}
