#include "ZVXChatRowBuilder.h"

#include <QHash>

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

// Whether two attachments of \a message share a uuid.
bool attachmentsClash(const ZuveroChatMessage &message)
{
    const std::optional<ZuveroChatAttachmentList> attachments = message.attachments();
    for (qsizetype i = 1; attachments && i < attachments->size(); ++i) {
        for (qsizetype k = 0; k < i; ++k) {
            const ZuveroChatAttachmentPtr &a = attachments->at(i);
            const ZuveroChatAttachmentPtr &b = attachments->at(k);
            if ((a ? a->uuid() : QString()) == (b ? b->uuid() : QString()))
                return true;
        }
    }
    return false;
}

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
    Build build(hasMoreMessages, dateText);
    for (const ZuveroChatMessagePtr &message : messages)
        build.append(message);
    return build.rows();
}

ZVXChatRowBuilder::Build::Build(bool hasMoreMessages, DateText dateText)
    : m_hasMoreMessages(hasMoreMessages)
    , m_dateText(std::move(dateText))
{
    if (hasMoreMessages)
        m_rows.append(ZuveroChatViewItem(ZuveroChatViewItemKindLoadMoreMessages));
}

QList<ZuveroChatViewItem> ZVXChatRowBuilder::Build::rows() const
{
    if (!m_clash)
        return m_rows;
    QList<ZuveroChatViewItem> numbered = m_rows;
    numberOccurrences(numbered);
    return numbered;
}

bool ZVXChatRowBuilder::Build::continuesWith(const ZuveroChatMessageList &messages) const
{
    if (messages.size() < m_messages.size())
        return false;
    for (qsizetype i = 0; i < m_messages.size(); ++i) {
        const ZuveroChatMessagePtr &built = m_messages.at(i);
        if (messages.at(i) != built || (built && built->isOffline() != m_offline[size_t(i)]))
            return false;
    }
    return true;
}

void ZVXChatRowBuilder::Build::append(const ZuveroChatMessagePtr &message)
{
    m_messages.append(message);
    m_offline.push_back(message && message->isOffline());
    // A list may hold no message where one was expected; it makes no row.
    if (!message)
        return;
    const qsizetype uuids = m_uuids.size();
    m_uuids.insert(message->uuid());
    m_clash = m_clash || m_uuids.size() == uuids || attachmentsClash(*message);
    QList<ZuveroChatViewItem> &rows = m_rows;
    const bool isUser = message->isUserMessage();
    const bool isAgent = message->isAgentMessage();

    const bool sameSide = m_previousItem >= 0
        && ((rows[m_previousItem].isUserSide() && isUser)
            || (rows[m_previousItem].isAgentSide() && isAgent));
    if (!sameSide && m_previousMessage) {
        ZuveroChatViewItem spacer(ZuveroChatViewItemKindSpacer);
        spacer.setAnchorUuid(message->uuid());
        rows.append(spacer);
    }

    const QDateTime date = message->date();
    if (date.isValid()) {
        const bool recent = m_lastDateRowDate.isValid()
            && isWithin(m_previousMessageDate, date, MessageGapMSecs)
            && isWithin(m_lastDateRowDate, date, DateRowSpanMSecs);
        if (!recent) {
            const QString text = m_dateText(date);
            // A second separator printing the same minute says nothing new.
            if (text != m_lastDateRowText) {
                ZuveroChatViewItem row(ZuveroChatViewItemKindDate);
                row.setDate(date);
                row.setAnchorUuid(message->uuid());
                rows.append(row);
                m_lastDateRowDate = date;
                m_lastDateRowText = text;
                // The date row stands between the earlier bubble and this one.
                m_previousItem = -1;
            }
        }
    }

    const bool previousIsOffline
        = m_previousItem >= 0 && rows[m_previousItem].message()->isOffline();
    bool labelAdded = false;
    if (!previousIsOffline && isUser && message->isOffline()) {
        ZuveroChatViewItem label(ZuveroChatViewItemKindUserMessageUnsentLabel);
        // Labels are named by their order alone.
        label.setOccurrence(m_labels++);
        rows.append(label);
        m_previousItem = -1;
        labelAdded = true;
    }

    if (!labelAdded && m_previousItem >= 0) {
        ZuveroChatViewItem &previous = rows[m_previousItem];
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
        m_previousItem = rows.size() - 1;
    }

    if (const std::optional<QVariantMap> location = message->locationDictionary()) {
        ZuveroChatViewItem row = bubble(isUser ? ZuveroChatViewItemKindUserMessageLocation
                                               : ZuveroChatViewItemKindAgentMessageLocation,
                                        message, !withText);
        row.setLocationDictionary(location);
        rows.append(row);
        m_previousItem = rows.size() - 1;
    }

    if (const std::optional<ZuveroChatAttachmentList> attachments = message->attachments()) {
        for (const ZuveroChatAttachmentPtr &attachment : *attachments) {
            ZuveroChatViewItem row = bubble(isUser ? ZuveroChatViewItemKindUserMessageAttachment
                                                   : ZuveroChatViewItemKindAgentMessageAttachment,
                                            message, !withText);
            row.setAttachment(attachment);
            rows.append(row);
            m_previousItem = rows.size() - 1;
        }
    }

    m_previousMessage = message;
    m_previousMessageDate = date;
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
