#pragma once

#include "ZuveroChatMessage.h"

#include <QDateTime>
#include <QHashFunctions>
#include <QLatin1String>
#include <QMetaType>
#include <QSharedDataPointer>
#include <QVariantMap>

#include <optional>

//! \file
//! The rows of the chat list. Each kind of row is also the name of the cell that draws it.

//! The text bubble of a user's message.
inline constexpr QLatin1String ZuveroChatViewItemKindUserMessage{
    "ZuveroChatViewItemKindUserMessage"};
//! The map of a place the user shared.
inline constexpr QLatin1String ZuveroChatViewItemKindUserMessageLocation{
    "ZuveroChatViewItemKindUserMessageLocation"};
//! One attachment of a user's message.
inline constexpr QLatin1String ZuveroChatViewItemKindUserMessageAttachment{
    "ZuveroChatViewItemKindUserMessageAttachment"};
//! "Waiting for connection", before the first message not sent yet.
inline constexpr QLatin1String ZuveroChatViewItemKindUserMessageUnsentLabel{
    "ZuveroChatViewItemKindUserMessageUnsentLabel"};
//! The text bubble of an agent's message.
inline constexpr QLatin1String ZuveroChatViewItemKindAgentMessage{
    "ZuveroChatViewItemKindAgentMessage"};
//! The map of a place an agent (or the service) shared.
inline constexpr QLatin1String ZuveroChatViewItemKindAgentMessageLocation{
    "ZuveroChatViewItemKindAgentMessageLocation"};
//! One attachment of an agent's (or the service's) message.
inline constexpr QLatin1String ZuveroChatViewItemKindAgentMessageAttachment{
    "ZuveroChatViewItemKindAgentMessageAttachment"};
//! The date and time before a message that comes after a pause.
inline constexpr QLatin1String ZuveroChatViewItemKindDate{"ZuveroChatViewItemKindDate"};
//! The text of a message of the service itself, such as the welcome text.
inline constexpr QLatin1String ZuveroChatViewItemKindSystemMessage{
    "ZuveroChatViewItemKindSystemMessage"};
//! "Load earlier messages", always the first row when there are older messages.
inline constexpr QLatin1String ZuveroChatViewItemKindLoadMoreMessages{
    "ZuveroChatViewItemKindLoadMoreMessages"};
//! A gap where the sender changes.
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
        QLatin1String kind; //!< the row's kind
        QString messageUuid; //!< its message's uuid, or the uuid it stands before
        QString attachmentUuid; //!< its attachment's uuid; empty for other rows
        int occurrence = 0; //!< equal identities before it in the list

        //! The same row of two builds.
        friend bool operator==(const Identity &a, const Identity &b)
        {
            return a.kind == b.kind && a.messageUuid == b.messageUuid
                && a.attachmentUuid == b.attachmentUuid && a.occurrence == b.occurrence;
        }
    };

    //! A row of no kind.
    ZuveroChatViewItem();
    //! A row of \a kind, one of the ZuveroChatViewItemKind constants, showing nothing yet.
    explicit ZuveroChatViewItem(QLatin1String kind);
    //! A copy of \a other.
    ZuveroChatViewItem(const ZuveroChatViewItem &other);
    //! Takes \a other's fields.
    ZuveroChatViewItem(ZuveroChatViewItem &&other) noexcept;
    //! Makes this row a copy of \a other.
    ZuveroChatViewItem &operator=(const ZuveroChatViewItem &other);
    //! Takes \a other's fields.
    ZuveroChatViewItem &operator=(ZuveroChatViewItem &&other) noexcept;
    ~ZuveroChatViewItem();

    //! One of the ZuveroChatViewItemKind constants.
    QLatin1String kind() const;
    //! Makes the row one of \a kind.
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
    //! Makes the row show \a attachment of its message.
    void setAttachment(const ZuveroChatAttachmentPtr &attachment);

    //! A location row's place: "lat", "lng" and optionally "d" (metres).
    std::optional<QVariantMap> locationDictionary() const;
    //! Makes the row show the place \a location.
    void setLocationDictionary(const std::optional<QVariantMap> &location);

    //! A date row's date, or a bubble's message date; invalid when there is none.
    QDateTime date() const;
    //! Sets the row's date to \a date.
    void setDate(const QDateTime &date);

    //! The bubble is the last of its group and is drawn with a tail.
    bool showTail() const;
    //! Draws the bubble with a tail, or not.
    void setShowTail(bool showTail);
    //! The sender's name is drawn above the bubble.
    bool showUserName() const;
    //! Draws the sender's name above the bubble, or not.
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
    //! Places the row before the message \a uuid.
    void setAnchorUuid(const QString &uuid);
    //! The rows of the same list with an equal identity before this one.
    int occurrence() const;
    //! Sets how many equal identities come before it.
    void setOccurrence(int occurrence);

    /*!
        Taken when the row's kind, message, attachment, anchor or occurrence
        is set: a message whose uuid changes afterwards does not rename rows
        made before.
    */
    const Identity &identity() const;

    //! Same fields; the message and the attachment are compared as objects, not by value.
    bool operator==(const ZuveroChatViewItem &other) const;
    //! The opposite of operator==().
    bool operator!=(const ZuveroChatViewItem &other) const { return !(*this == other); }

    //! The kind, message, anchor, attachment and occurrence, on one line for tests and logs.
    QString description() const;

private:
    QSharedDataPointer<ZuveroChatViewItemData> d;
};

Q_DECLARE_METATYPE(ZuveroChatViewItem)

//! A hash of \a identity, for QHash and QSet.
inline size_t qHash(const ZuveroChatViewItem::Identity &identity, size_t seed = 0)
{
    return qHashMulti(seed, identity.kind, identity.messageUuid, identity.attachmentUuid,
                      identity.occurrence);
}
