#pragma once

#include <QJsonObject>
#include <QJsonValue>
#include <QList>
#include <QSize>
#include <QString>

#include <optional>

/*
    What the server keeps: users known by "userId" (else "installationId")
    within an API key, their devices, messages with their attachments and
    read marks. Dates are milliseconds since 1970.
*/

//! Who a token says the caller is.
struct ZVXDevIdentity
{
    QString apiKey;
    std::optional<QString> userId;
    //! Empty when the token names none (a token made by the host's own back end).
    QString installationId;
    std::optional<QString> userName;
    //! The host's "extra" claims, when they are an object.
    std::optional<QJsonObject> extra;
};

//! A user as stored: the identity last seen, with the name and extra claims it brought.
struct ZVXDevUser : ZVXDevIdentity
{
    qint64 id = 0;
};

struct ZVXDevDevice
{
    QString installationId;
    std::optional<QString> deviceToken;
    std::optional<QString> apns;
    std::optional<QString> appId;
    std::optional<QString> appVersion;
    std::optional<QString> deviceInfo;
};

struct ZVXDevAttachmentRecord
{
    QString uuid;
    QString contentType;
    QString filename;
    qint64 length = 0;
    //! Empty when the file is not a picture that could be decoded.
    QSize imageSize;
    bool hasPreview = false;
    //! The user whose conversation holds it.
    qint64 user = 0;
};

struct ZVXDevMessageRecord
{
    //! The row; 0 until stored.
    qint64 id = 0;
    qint64 user = 0;
    QString uuid;
    QString sender;
    std::optional<QString> text;
    std::optional<QString> userName;
    std::optional<QJsonObject> location;
    //! What the host attached to the message for the agents ("context"); undefined when none.
    QJsonValue context{QJsonValue::Undefined};
    qint64 dateMs = 0;
    //! Seen by the other side: the user for agent messages, an agent for user messages.
    bool read = false;
    QList<ZVXDevAttachmentRecord> attachments;
};

//! A page of one conversation: "since" pages forward from a date, otherwise backward.
struct ZVXDevMessageQuery
{
    std::optional<qint64> sinceSeconds;
    std::optional<qint64> untilSeconds;
    int limit = 0;
    //! What the page's messages may weigh, as stored (at least one comes); 0 for no limit.
    qint64 maxBytes = 0;
};

struct ZVXDevMessagePage
{
    //! Oldest first.
    QList<ZVXDevMessageRecord> messages;
    //! Older messages exist than the first one of the page.
    bool moreMessages = false;
};

//! A window of one conversation by row, for the console: what came after a row, or before one.
struct ZVXDevConsoleQuery
{
    std::optional<qint64> afterId;
    //! Without either: the latest page.
    std::optional<qint64> beforeId;
    int limit = 0;
    qint64 maxBytes = 0;
};

struct ZVXDevConsolePage
{
    //! Oldest first.
    QList<ZVXDevMessageRecord> messages;
    //! Messages exist before the first of the page (for "before" and the latest page).
    bool earlier = false;
    //! The page stopped before the last message (for "after").
    bool later = false;
    //! The most recent agent and system messages the user has not read, by row, newest first.
    QList<qint64> unseen;
    //! More of them exist, all older than the last one listed.
    bool unseenMore = false;
};

struct ZVXDevConversationSummary
{
    ZVXDevUser user;
    std::optional<ZVXDevMessageRecord> lastMessage;
    int unreadByAgent = 0;
    int devices = 0;
};
