#include "ZVXConversation.h"

#include <QSet>

#include <algorithm>
#include <iterator>
#include <limits>

namespace {

QString key(const ZuveroChatMessagePtr &message)
{
    const QString uuid = message->uuid();
    return uuid.isNull() ? QStringLiteral("") : uuid;
}

qint64 sortTime(const ZuveroChatMessagePtr &message)
{
    // A message without a date goes before every dated one.
    const QDateTime date = message->date();
    return date.isValid() ? date.toMSecsSinceEpoch() : std::numeric_limits<qint64>::min();
}

} // namespace

ZuveroChatMessageList
ZVXConversation::combineExistingMessages(const ZuveroChatMessageList &existing,
                                         const ZuveroChatMessageList &newMessages)
{
    struct Entry
    {
        qint64 time;
        const ZuveroChatMessagePtr *message;
    };
    const auto earlier = [](const Entry &a, const Entry &b) { return a.time < b.time; };

    // Every new message is kept, in its order; an existing one only if no
    // message met before it (walking from the end) had its identifier.
    // Walking the existing list from its end means that of several with one
    // identifier the last survives.
    QSet<QString> seen;
    seen.reserve(existing.size() + newMessages.size());
    std::vector<Entry> fresh;
    fresh.reserve(size_t(newMessages.size()));
    for (const ZuveroChatMessagePtr &message : newMessages) {
        seen.insert(key(message));
        fresh.push_back({sortTime(message), &message});
    }
    std::vector<Entry> kept;
    kept.reserve(size_t(existing.size()));
    for (auto it = existing.crbegin(); it != existing.crend(); ++it) {
        const qsizetype before = seen.size();
        seen.insert(key(*it)); // one lookup: the set grows only for an identifier not seen yet
        if (seen.size() != before)
            kept.push_back({sortTime(*it), &*it});
    }
    std::reverse(kept.begin(), kept.end());

    // New messages keep their own order on equal dates; a conversation is
    // already in date order, so its messages are sorted only when they are
    // not, and the two lists are merged with existing ones first on equal dates.
    std::stable_sort(fresh.begin(), fresh.end(), earlier);
    if (!std::is_sorted(kept.begin(), kept.end(), earlier))
        std::stable_sort(kept.begin(), kept.end(), earlier);
    std::vector<Entry> merged;
    merged.reserve(kept.size() + fresh.size());
    std::merge(kept.begin(), kept.end(), fresh.begin(), fresh.end(), std::back_inserter(merged),
               earlier);

    ZuveroChatMessageList result;
    result.reserve(qsizetype(merged.size()));
    for (const Entry &entry : merged)
        result.append(*entry.message);
    return result;
}

ZuveroChatMessageList
ZVXConversation::combineExistingMessagesWithDeletedMessages(const ZuveroChatMessageList &existing,
                                                            const ZuveroChatMessageList &deleted)
{
    QSet<QString> removed;
    for (const ZuveroChatMessagePtr &message : deleted)
        removed.insert(key(message));
    ZuveroChatMessageList result;
    for (const ZuveroChatMessagePtr &message : existing) {
        if (!removed.contains(key(message)))
            result.append(message);
    }
    return result;
}

void ZVXConversation::addMessages(const ZuveroChatMessageList &messages)
{
    m_messages = combineExistingMessages(m_messages, messages);
}

ZuveroChatMessageList ZVXConversation::messagesToSave() const
{
    ZuveroChatMessageList saved = m_messages.size() > SavedMessagesLimit
        ? m_messages.mid(m_messages.size() - SavedMessagesLimit)
        : m_messages;
    if (m_welcomeMessage)
        saved.removeAll(m_welcomeMessage);
    return saved;
}
