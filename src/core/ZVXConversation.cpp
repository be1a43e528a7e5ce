#include "ZVXConversation.h"

#include <QSet>

#include <algorithm>
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

ZuveroChatMessageList ZVXConversation::combineExistingMessages(const ZuveroChatMessageList &existing,
                                                               const ZuveroChatMessageList &newMessages)
{
    // Every new message is kept, in its order; an existing one only if no
    // message met before it (walking from the end) had its identifier.
    // Walking the existing list from its end means that of several with one
    // identifier the last survives.
    QSet<QString> seen;
    seen.reserve(existing.size() + newMessages.size());
    for (const ZuveroChatMessagePtr &message : newMessages)
        seen.insert(key(message));
    ZuveroChatMessageList kept;
    kept.reserve(existing.size());
    for (auto it = existing.crbegin(); it != existing.crend(); ++it) {
        const QString identifier = key(*it);
        if (seen.contains(identifier))
            continue;
        seen.insert(identifier);
        kept.append(*it);
    }
    std::reverse(kept.begin(), kept.end());

    struct Entry
    {
        qint64 time;
        int group; // existing before new on equal dates
        qsizetype position; // the new list's order; existing ones keep theirs (stable sort)
        ZuveroChatMessagePtr message;
    };
    std::vector<Entry> entries;
    entries.reserve(size_t(kept.size() + newMessages.size()));
    for (const ZuveroChatMessagePtr &message : std::as_const(kept))
        entries.push_back({sortTime(message), 0, 0, message});
    for (qsizetype i = 0; i < newMessages.size(); ++i)
        entries.push_back({sortTime(newMessages.at(i)), 1, i, newMessages.at(i)});
    std::stable_sort(entries.begin(), entries.end(), [](const Entry &a, const Entry &b) {
        return std::tie(a.time, a.group, a.position) < std::tie(b.time, b.group, b.position);
    });

    ZuveroChatMessageList result;
    result.reserve(qsizetype(entries.size()));
    for (Entry &entry : entries)
        result.append(std::move(entry.message));
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
