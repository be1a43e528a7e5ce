#pragma once

#include <QObject>

#include <chrono>

class ZVXDevConversations;
struct ZVXDevMessageRecord;

/*!
    For demos: answers every message a user sends, as an agent, after a
    short delay.
*/
class ZVXDevBot : public QObject
{
public:
    ZVXDevBot(ZVXDevConversations &conversations, const QString &agentName,
              std::chrono::milliseconds delay);

    //! What the bot says to \a message.
    static QString replyTo(const ZVXDevMessageRecord &message);

private:
    void answer(const ZVXDevMessageRecord &message);

    ZVXDevConversations &m_conversations;
    QString m_agentName;
    std::chrono::milliseconds m_delay;
};
