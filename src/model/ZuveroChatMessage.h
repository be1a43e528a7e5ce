#pragma once

//! \file
//! A message of the conversation and the values of its sender.

#include "ZuveroChatAttachment.h"

#include <QDateTime>
#include <QList>
#include <QVariantMap>

class QJsonValue;

//! ZuveroChatMessage::sender() of what the user wrote.
inline constexpr QLatin1String ZuveroChatMessageSenderUser{"user"};
//! ZuveroChatMessage::sender() of what a support agent wrote.
inline constexpr QLatin1String ZuveroChatMessageSenderAgent{"agent"};
//! ZuveroChatMessage::sender() of the welcome text and other notices of the service.
inline constexpr QLatin1String ZuveroChatMessageSenderSystem{"system"};

//! Posted with the received message under "message", or with no user info when it must be fetched.
inline constexpr QLatin1String ZuveroChatDidReceiveMessageNotification{
    "ZuveroChatDidReceiveMessageNotification"};

class ZuveroChatMessage;
//! How messages are held: "the same message" is the same pointer.
using ZuveroChatMessagePtr = std::shared_ptr<ZuveroChatMessage>;
//! Messages in order, oldest first.
using ZuveroChatMessageList = QList<ZuveroChatMessagePtr>;
//! A message's attachments, in the order they were attached.
using ZuveroChatAttachmentList = QList<ZuveroChatAttachmentPtr>;

/*!
    One message of the conversation: written by the user, an agent or the
    system. Shared and changed in place (the offline queue and the screen
    set its flags): hold it by ZuveroChatMessagePtr.

    Its dictionary form (propertyList()) is at once an entry of the
    server's message list and what the cache keeps. Dates are read with
    fractions and written as whole seconds.
*/
class ZUVERO_EXPORT ZuveroChatMessage
{
    struct Unidentified
    { };

public:
    //! A message with a fresh lower-case identifier, fully uploaded, and nothing else.
    ZuveroChatMessage();
    //! The same without an identifier, for the readers that set one at once.
    explicit ZuveroChatMessage(Unidentified) { }

    //! A new message with a fresh identifier and nothing else.
    static ZuveroChatMessagePtr init();
    //! A user's message written now.
    static ZuveroChatMessagePtr initWithText(const std::optional<QString> &text);
    //! A user's message written now, with \a attachment when there is one.
    static ZuveroChatMessagePtr initWithText(const std::optional<QString> &text,
                                             const ZuveroChatAttachmentPtr &attachment);
    //! A user's message written now, with \a attachments.
    static ZuveroChatMessagePtr
    initWithText(const std::optional<QString> &text,
                 const std::optional<ZuveroChatAttachmentList> &attachments);
    //! A user's message sharing a place.
    static ZuveroChatMessagePtr initWithLocationDictionary(const QVariantMap &location);
    //! An agent's message written now; it has an attachment list only when given an attachment.
    static ZuveroChatMessagePtr initWithAgentText(const std::optional<QString> &text,
                                                  const ZuveroChatAttachmentPtr &attachment = {});
    //! A system message (the welcome text) written now.
    static ZuveroChatMessagePtr initWithSystemText(const std::optional<QString> &text);
    //! From the dictionary form; nothing, and one log line, when it is not usable.
    static ZuveroChatMessagePtr initWithPropertyList(const QVariant &propertyList);
    /*!
        From the dictionary form as JSON (an entry of the server's message
        list), read by the same rules; a JSON null reads as an absent value.
    */
    static ZuveroChatMessagePtr initWithJSON(const QJsonValue &propertyList);
    /*!
        From a push payload whose "appdata" describes a message; nothing for
        a payload of another kind (silently) or a malformed one (with a log line).
    */
    static ZuveroChatMessagePtr initWithRemoteNotificationPayload(const QVariantMap &payload);

    //! The dictionary form, as the server sends it and the cache keeps it.
    QVariantMap propertyList() const;
    /*!
        Attachments have no form that includes their contents, so this is
        defined only for a message without attachments, where it equals
        propertyList(); otherwise it raises rather than leave the contents out.
    */
    QVariantMap propertyListIncludingData() const;

    //! The message's identifier, a lower-case UUID; messages are told apart by it.
    QString uuid() const { return m_uuid; }
    //! Sets the identifier to \a uuid.
    void setUuid(const QString &uuid) { m_uuid = uuid; }
    //! Who wrote it: ZuveroChatMessageSenderUser, ZuveroChatMessageSenderAgent or
    //! ZuveroChatMessageSenderSystem.
    QString sender() const { return m_sender; }
    //! Sets who wrote it to \a sender.
    void setSender(const QString &sender) { m_sender = sender; }
    //! When it was written; invalid when unknown.
    QDateTime date() const { return m_date; }
    //! Sets when it was written to \a date.
    void setDate(const QDateTime &date) { m_date = date; }
    //! Whether the server said the message has attachments, which a push payload leaves out.
    bool hasAttachments() const { return m_hasAttachments; }
    //! Sets whether the message has attachments.
    void setHasAttachments(bool hasAttachments) { m_hasAttachments = hasAttachments; }
    //! Whether the text is cut short (in a push payload); the whole message is on the server.
    bool isTruncated() const { return m_isTruncated; }
    //! Sets whether the text is cut short.
    void setIsTruncated(bool truncated) { m_isTruncated = truncated; }
    //! What was written; none for a message that only shares a file or a place.
    std::optional<QString> text() const { return m_text; }
    //! Sets what was written to \a text.
    void setText(const std::optional<QString> &text) { m_text = text; }
    //! A shared place: "lat" and "lng" in degrees, "d" the span in metres; none otherwise.
    std::optional<QVariantMap> locationDictionary() const { return m_location; }
    //! Sets the shared place to \a location.
    void setLocationDictionary(const std::optional<QVariantMap> &location)
    {
        m_location = location;
    }
    //! The name of the agent who wrote it, as the chat shows it; none when not given.
    std::optional<QString> userName() const { return m_userName; }
    //! Sets the writer's name to \a userName.
    void setUserName(const std::optional<QString> &userName) { m_userName = userName; }
    //! The attached files; none and empty differ in the dictionary form.
    std::optional<ZuveroChatAttachmentList> attachments() const { return m_attachments; }
    //! Sets the attached files to \a attachments.
    void setAttachments(const std::optional<ZuveroChatAttachmentList> &attachments)
    {
        m_attachments = attachments;
    }
    //! Waiting in the offline queue: the server does not have it yet.
    bool isOffline() const { return m_isOffline; }
    //! Sets whether the message waits in the offline queue.
    void setIsOffline(bool offline) { m_isOffline = offline; }
    //! Given up on after its last try; the chat marks it as not sent.
    bool isErrored() const { return m_isErrored; }
    //! Sets whether sending was given up.
    void setIsErrored(bool errored) { m_isErrored = errored; }
    //! 0.0 to 1.0; 1.0 unless an upload is under way.
    double uploadProgress() const { return m_uploadProgress; }
    //! Sets the upload's progress to \a progress.
    void setUploadProgress(double progress) { m_uploadProgress = progress; }

    //! Written by the user.
    bool isUserMessage() const { return m_sender == ZuveroChatMessageSenderUser; }
    //! Written by a support agent.
    bool isAgentMessage() const { return m_sender == ZuveroChatMessageSenderAgent; }
    //! Sent by the service itself, such as the welcome text.
    bool isSystemMessage() const { return m_sender == ZuveroChatMessageSenderSystem; }

    /*!
        Same identifier and equal attachment lists, element by element; an
        absent list equals only an absent list.
    */
    bool isEqual(const ZuveroChatMessage &other) const;
    //! isEqual().
    friend bool operator==(const ZuveroChatMessage &a, const ZuveroChatMessage &b)
    {
        return a.isEqual(b);
    }
    //! A hash of the identifier, consistent with isEqual().
    size_t hash() const;
    //! A few lines for debugging: address, identifier, text, offline flag and date.
    QString description() const;

private:
    static ZuveroChatMessagePtr userMessage();
    template<typename Form>
    static ZuveroChatMessagePtr fromPropertyList(const typename Form::Value &propertyList);

    QString m_uuid;
    QString m_sender;
    QDateTime m_date;
    bool m_hasAttachments = false;
    bool m_isTruncated = false;
    std::optional<QString> m_text;
    std::optional<QVariantMap> m_location;
    std::optional<QString> m_userName;
    std::optional<ZuveroChatAttachmentList> m_attachments;
    bool m_isOffline = false;
    bool m_isErrored = false;
    double m_uploadProgress = 1.0;
};

//! ZuveroChatMessage::hash(), for QHash and QSet.
inline size_t qHash(const ZuveroChatMessage &message, size_t seed = 0)
{
    return message.hash() ^ seed;
}
