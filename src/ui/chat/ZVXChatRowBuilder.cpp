#include "ZVXChatRowBuilder.h"

#include <QHash>
#include <QSet>

namespace {

// Within both of these of the previous message and of the last date row, no new date row.
constexpr qint64 MessageGapMSecs = 600 * 1000;
constexpr qint64 DateRowSpanMSecs = 3600 * 1000;

bool hasText(const ZuveroChatMessage &message)
{
    return message.text() && !message.text()->isEmpty();
}

// At most \a limit after \a since; never when there is nothing to compare with.
bool isWithin(const QDateTime &since, const QDateTime &date, qint64 limit)
{
    return since.isValid() && since.msecsTo(date) <= limit;
}

ZuveroChatViewItem bubble(QLatin1String kind, const ZuveroChatMessagePtr &message, bool withTail)
{
    ZuveroChatViewItem item(kind);
    item.setDate(message->date());
    item.setMessage(message);
    item.setShowTail(withTail);
    item.setShowUserName(withTail);
    return item;
}

// Rows are named after their message and attachment: two of those with one
// uuid would give two rows one name.
class UuidClashes
{
public:
    explicit UuidClashes(qsizetype messages) { m_messages.reserve(messages); }

    void add(const ZuveroChatMessage &message)
    {
        const qsizetype before = m_messages.size();
        m_messages.insert(message.uuid());
        m_found = m_found || m_messages.size() == before;
        const std::optional<ZuveroChatAttachmentList> attachments = message.attachments();
        for (qsizetype i = 1; attachments && i < attachments->size() && !m_found; ++i) {
            for (qsizetype k = 0; k < i; ++k) {
                const ZuveroChatAttachmentPtr &a = attachments->at(i);
                const ZuveroChatAttachmentPtr &b = attachments->at(k);
                m_found = m_found || (a ? a->uuid() : QString()) == (b ? b->uuid() : QString());
            }
        }
    }
    bool found() const { return m_found; }

private:
    QSet<QString> m_messages;
    bool m_found = false;
};

// Numbers each row after the rows of the same name before it.
void numberOccurrences(QList<ZuveroChatViewItem> &rows)
{
    QHash<ZuveroChatViewItem::Identity, int> seen;
    seen.reserve(rows.size());
    for (ZuveroChatViewItem &row : rows) {
        ZuveroChatViewItem::Identity name = row.identity();
        name.occurrence = 0;
        const int count = seen[name]++;
        if (count != row.occurrence())
            row.setOccurrence(count);
    }
}

} // namespace

ZVXChatRowBuilder::DateText ZVXChatRowBuilder::dateText(const ZuveroDateFormatter &formatter)
{
    return [formatter](const QDateTime &date) { return formatter.stringFromDate(date); };
}

QList<ZuveroChatViewItem> ZVXChatRowBuilder::buildRows(const ZuveroChatMessageList &messages,
                                                       bool hasMoreMessages,
                                                       const DateText &dateText)
{
    QList<ZuveroChatViewItem> rows;
    rows.reserve(messages.size() * 2 + 1);
    if (hasMoreMessages)
        rows.append(ZuveroChatViewItem(ZuveroChatViewItemKindLoadMoreMessages));

    // The previous item is the bubble that the next message's tail rule looks at.
    qsizetype previousItem = -1;
    ZuveroChatMessagePtr previousMessage;
    QDateTime previousMessageDate;
    QDateTime lastDateRowDate;
    std::optional<QString> lastDateRowText;
    int labels = 0;
    UuidClashes clashes(messages.size());

    for (const ZuveroChatMessagePtr &message : messages) {
        // A list may hold no message where one was expected; it makes no row.
        if (!message)
            continue;
        clashes.add(*message);
        const bool isUser = message->isUserMessage();
        const bool isAgent = message->isAgentMessage();

        const bool sameSide = previousItem >= 0
            && ((rows[previousItem].isUserSide() && isUser)
                || (rows[previousItem].isAgentSide() && isAgent));
        if (!sameSide && previousMessage) {
            ZuveroChatViewItem spacer(ZuveroChatViewItemKindSpacer);
            spacer.setAnchorUuid(message->uuid());
            rows.append(spacer);
        }

        const QDateTime date = message->date();
        if (date.isValid()) {
            const bool recent = lastDateRowDate.isValid()
                && isWithin(previousMessageDate, date, MessageGapMSecs)
                && isWithin(lastDateRowDate, date, DateRowSpanMSecs);
            if (!recent) {
                const QString text = dateText(date);
                // A second separator printing the same minute says nothing new.
                if (text != lastDateRowText) {
                    ZuveroChatViewItem row(ZuveroChatViewItemKindDate);
                    row.setDate(date);
                    row.setAnchorUuid(message->uuid());
                    rows.append(row);
                    lastDateRowDate = date;
                    lastDateRowText = text;
                    // The date row stands between the earlier bubble and this one.
                    previousItem = -1;
                }
            }
        }

        const bool previousIsOffline
            = previousItem >= 0 && rows[previousItem].message()->isOffline();
        bool labelAdded = false;
        if (!previousIsOffline && isUser && message->isOffline()) {
            ZuveroChatViewItem label(ZuveroChatViewItemKindUserMessageUnsentLabel);
            // Labels are named by their order alone.
            label.setOccurrence(labels++);
            rows.append(label);
            previousItem = -1;
            labelAdded = true;
        }

        if (!labelAdded && previousItem >= 0) {
            ZuveroChatViewItem &previous = rows[previousItem];
            const ZuveroChatMessage &before = *previous.message();
            // A system message has neither side, and so joins the group of either
            // neighbour here: the bubble next to it loses its tail.
            if (before.isUserMessage() == isUser || before.isAgentMessage() == isAgent) {
                previous.setShowTail(false);
                previous.setShowUserName(false);
            }
        }

        const bool withText = hasText(*message);
        if (withText) {
            const QLatin1String kind = isUser ? ZuveroChatViewItemKindUserMessage
                : isAgent                     ? ZuveroChatViewItemKindAgentMessage
                                              : ZuveroChatViewItemKindSystemMessage;
            rows.append(bubble(kind, message, true));
            previousItem = rows.size() - 1;
        }

        if (const std::optional<QVariantMap> location = message->locationDictionary()) {
            ZuveroChatViewItem row = bubble(isUser ? ZuveroChatViewItemKindUserMessageLocation
                                                   : ZuveroChatViewItemKindAgentMessageLocation,
                                            message, !withText);
            row.setLocationDictionary(location);
            rows.append(row);
            previousItem = rows.size() - 1;
        }

        if (const std::optional<ZuveroChatAttachmentList> attachments = message->attachments()) {
            for (const ZuveroChatAttachmentPtr &attachment : *attachments) {
                ZuveroChatViewItem row
                    = bubble(isUser ? ZuveroChatViewItemKindUserMessageAttachment
                                    : ZuveroChatViewItemKindAgentMessageAttachment,
                             message, !withText);
                row.setAttachment(attachment);
                rows.append(row);
                previousItem = rows.size() - 1;
            }
        }

        previousMessage = message;
        previousMessageDate = date;
    }

    if (clashes.found())
        numberOccurrences(rows);
    return rows;
}

ZVXChatRowBuilder::UnsentLabelChange
ZVXChatRowBuilder::updateWithOfflineMessages(const QList<ZuveroChatViewItem> &rows,
                                             const ZuveroChatMessageList &offlineMessages)
{
    QMultiHash<QString, ZuveroChatMessagePtr> offline;
    offline.reserve(offlineMessages.size());
    for (const ZuveroChatMessagePtr &message : offlineMessages) {
        if (message)
            offline.insert(message->uuid(), message);
    }
    const auto isQueued = [&offline](const ZuveroChatMessage &message) {
        for (auto it = offline.constFind(message.uuid());
             it != offline.cend() && it.key() == message.uuid(); ++it) {
            if (**it == message)
                return true;
        }
        return false;
    };

    UnsentLabelChange change;
    change.rows = rows;

    qsizetype labelRow = -1;
    qsizetype firstOfflineRow = -1;
    for (qsizetype i = 0; i < rows.size(); ++i) {
        const ZuveroChatViewItem &row = rows[i];
        if (row.kind() == ZuveroChatViewItemKindUserMessageUnsentLabel) {
            labelRow = i;
        } else if (row.kind() == ZuveroChatViewItemKindUserMessage && row.message()
                   && isQueued(*row.message())) {
            if (!row.message()->isOffline()) {
                row.message()->setIsOffline(true);
                change.markedOffline.append(row.message());
            }
            if (firstOfflineRow < 0)
                firstOfflineRow = i;
        }
    }

    if (labelRow >= 0) {
        if (!offlineMessages.isEmpty() && firstOfflineRow < 0)
            return change;
        const ZuveroChatViewItem label = change.rows.takeAt(labelRow);
        // Unsigned on purpose, and against the shortened count: a label whose
        // offline row ends the list is dropped rather than put back.
        if (!offlineMessages.isEmpty()
            && size_t(firstOfflineRow) < size_t(change.rows.size()) - 1) {
            change.rows.insert(firstOfflineRow, label);
            change.kind = UnsentLabelChange::Kind::Move;
            change.from = int(labelRow);
            change.to = int(firstOfflineRow);
        } else {
            change.kind = UnsentLabelChange::Kind::Remove;
            change.at = int(labelRow);
        }
        return change;
    }

    if (offlineMessages.isEmpty())
        return change;
    const qsizetype defaultRow = rows.isEmpty() ? 0 : rows.size() - 1;
    const qsizetype at = firstOfflineRow >= 0 ? firstOfflineRow : defaultRow;
    change.rows.insert(at, ZuveroChatViewItem(ZuveroChatViewItemKindUserMessageUnsentLabel));
    change.kind = UnsentLabelChange::Kind::Insert;
    change.at = int(at);
    return change;
}
