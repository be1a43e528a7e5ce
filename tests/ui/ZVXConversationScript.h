#pragma once

#include "ZuveroChatViewItem.h"

#include <QRegularExpression>
#include <QStringList>

/*
    Conversations and rows written as short words, so that a table row of a
    test reads as the chat it stands for.

    A message is <sender><seconds><contents>: sender u(ser), a(gent),
    s(ystem) or x (unknown); seconds after a whole minute, or "-" for no
    date; contents any of t (a text), e (an empty text), l (a location), p
    (one attachment, a picture, each; f one named after its identifier, F a file
    "invoice.pdf"), o (offline). "u0t a60to" is a user's text,
    then a minute later an agent's text marked offline. Message i has the
    uuid "m<i>"; its attachments "m<i>a<k>".

    A row is M (load more), L (unsent label), D<i> or _<i> (date or spacer
    before message i), or a bubble: U, UL, UA, A, AL, AA, S (text, location,
    attachment; user, agent; system) with its message's index and + (tail and
    name) or - (neither); "?" marks a tail without a name or the reverse.
*/
namespace ZVXConversationScript {

inline const QDateTime Start = QDateTime::fromSecsSinceEpoch(1'700'000'040, Qt::UTC);

inline ZuveroChatMessagePtr message(int index, const QString &word)
{
    static const QRegularExpression grammar(
        QStringLiteral("^([uasx])(-|\\d+(?:\\.\\d+)?)([telpfFo]*)$"));
    const QRegularExpressionMatch match = grammar.match(word);
    if (!match.hasMatch())
        qFatal("unreadable message word %s", qPrintable(word));
    auto message = std::make_shared<ZuveroChatMessage>();
    message->setUuid(QStringLiteral("m%1").arg(index));
    const QChar sender = match.captured(1).at(0);
    message->setSender(sender == QLatin1Char('u')       ? QStringLiteral("user")
                           : sender == QLatin1Char('a') ? QStringLiteral("agent")
                           : sender == QLatin1Char('s') ? QStringLiteral("system")
                                                        : QStringLiteral("bot"));
    if (match.captured(2) != QLatin1String("-"))
        message->setDate(Start.addMSecs(qint64(match.captured(2).toDouble() * 1000)));
    if (message->isAgentMessage())
        message->setUserName(QStringLiteral("Anna"));
    for (const QChar c : match.captured(3)) {
        if (c == QLatin1Char('t'))
            message->setText(QStringLiteral("text %1").arg(index));
        else if (c == QLatin1Char('e'))
            message->setText(QString());
        else if (c == QLatin1Char('l'))
            message->setLocationDictionary(
                QVariantMap{{QStringLiteral("lat"), 48.85}, {QStringLiteral("lng"), 2.29}});
        else if (c == QLatin1Char('o'))
            message->setIsOffline(true);
        else if (c == QLatin1Char('p') || c == QLatin1Char('f') || c == QLatin1Char('F')) {
            ZuveroChatAttachmentList attachments
                = message->attachments().value_or(ZuveroChatAttachmentList());
            attachments.append(std::make_shared<ZuveroChatAttachment>());
            const QString uuid = QStringLiteral("m%1a%2").arg(index).arg(attachments.size() - 1);
            attachments.last()->setUuid(uuid);
            // f: named after its identifier, as a pasted picture goes out; F: a named file.
            if (c == QLatin1Char('f'))
                attachments.last()->setFilename(uuid + QStringLiteral(".jpg"));
            else if (c == QLatin1Char('F'))
                attachments.last()->setFilename(QStringLiteral("invoice.pdf"));
            message->setAttachments(attachments);
        }
    }
    return message;
}

inline ZuveroChatMessageList conversation(const QString &words)
{
    ZuveroChatMessageList messages;
    for (const QString &word : words.split(QLatin1Char(' '), Qt::SkipEmptyParts))
        messages.append(message(int(messages.size()), word));
    return messages;
}

inline QString describe(const QList<ZuveroChatViewItem> &rows)
{
    static const QStringList kinds = {ZuveroChatViewItemKindLoadMoreMessages,
                                      ZuveroChatViewItemKindUserMessageUnsentLabel,
                                      ZuveroChatViewItemKindDate,
                                      ZuveroChatViewItemKindSpacer,
                                      ZuveroChatViewItemKindUserMessage,
                                      ZuveroChatViewItemKindUserMessageLocation,
                                      ZuveroChatViewItemKindUserMessageAttachment,
                                      ZuveroChatViewItemKindAgentMessage,
                                      ZuveroChatViewItemKindAgentMessageLocation,
                                      ZuveroChatViewItemKindAgentMessageAttachment,
                                      ZuveroChatViewItemKindSystemMessage};
    static const QStringList names
        = QStringLiteral("M L D _ U UL UA A AL AA S").split(QLatin1Char(' '));
    QStringList words;
    for (const ZuveroChatViewItem &row : rows) {
        QString word = names.value(kinds.indexOf(QString(row.kind())), QStringLiteral("?"));
        if (const ZuveroChatMessagePtr &message = row.message())
            word += message->uuid().mid(1)
                + (row.showTail() != row.showUserName() ? QLatin1Char('?')
                       : row.showTail()                 ? QLatin1Char('+')
                                                        : QLatin1Char('-'));
        else
            word += row.anchorUuid().mid(1);
        words << word;
    }
    return words.join(QLatin1Char(' '));
}

//! Prints the minute: two dates in the same minute print the same.
inline QString minute(const QDateTime &date)
{
    return QString::number(date.toSecsSinceEpoch() / 60);
}

} // namespace ZVXConversationScript
