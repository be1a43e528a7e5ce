#include "ZVXDevBot.h"

#include "ZVXDevConversations.h"
#include "ZVXDevLog.h"

#include <QDateTime>
#include <QTimer>
#include <QUuid>

ZVXDevBot::ZVXDevBot(ZVXDevConversations &conversations, const QString &agentName,
                     std::chrono::milliseconds delay)
    : m_conversations(conversations)
    , m_agentName(agentName)
    , m_delay(delay)
{
    m_conversations.setUserMessageObserver([this](const ZVXDevMessageRecord &message) {
        // Called on a server thread, where a timer never fires: the main thread keeps the delay.
        QMetaObject::invokeMethod(
            this,
            [this, message] {
                QTimer::singleShot(m_delay, this, [this, message] { answer(message); });
            },
            Qt::QueuedConnection);
    });
}

QString ZVXDevBot::replyTo(const ZVXDevMessageRecord &message)
{
    QStringList parts;
    if (message.text && !message.text->trimmed().isEmpty())
        parts.append(QStringLiteral("You wrote: \u201c%1\u201d").arg(message.text->trimmed()));
    if (!message.attachments.isEmpty()) {
        // Pictures picked in the chat are named after their identifier: no name to repeat.
        qsizetype pictures = 0;
        QStringList names;
        for (const ZVXDevAttachmentRecord &attachment : message.attachments) {
            if (attachment.contentType.startsWith(QLatin1String("image/")))
                ++pictures;
            else
                names.append(QStringLiteral("\u201c%1\u201d").arg(attachment.filename));
        }
        if (pictures > 0)
            parts.append(pictures == 1 ? QStringLiteral("Thanks for the picture.")
                                       : QStringLiteral("Thanks for the pictures."));
        if (!names.isEmpty())
            parts.append(QStringLiteral("Thanks for %1.").arg(names.join(QStringLiteral(", "))));
    }
    if (message.location)
        parts.append(QStringLiteral("Thanks for sharing your location."));
    if (parts.isEmpty())
        parts.append(QStringLiteral("Hello! How can I help?"));
    // The quote ends a sentence only when another follows it.
    else if (parts.size() > 1 && parts.first().endsWith(QChar(0x201d))) {
        const QString quoted = parts.first().chopped(1);
        if (!quoted.endsWith(QLatin1Char('.')) && !quoted.endsWith(QLatin1Char('!'))
            && !quoted.endsWith(QLatin1Char('?')))
            parts.first().append(QLatin1Char('.'));
    }
    return parts.join(QLatin1Char(' '));
}

void ZVXDevBot::answer(const ZVXDevMessageRecord &message)
{
    ZVXDevMessageRecord reply;
    reply.user = message.user;
    reply.uuid = QUuid::createUuid().toString(QUuid::WithoutBraces);
    reply.sender = QStringLiteral("agent");
    reply.text = replyTo(message);
    reply.userName = m_agentName;
    reply.dateMs = QDateTime::currentMSecsSinceEpoch();
    // This runs on the main thread, where nothing else would catch a failure to store it.
    try {
        m_conversations.post(reply, {});
    } catch (const std::exception &e) {
        ZVXDevLog::line(
            QStringLiteral("the bot could not answer: %1").arg(QString::fromUtf8(e.what())));
    }
}
