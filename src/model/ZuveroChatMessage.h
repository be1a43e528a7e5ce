#pragma once

#include "ZuveroChatAttachment.h"

#include <QDateTime>
#include <QList>
#include <QVariantMap>

class QJsonValue;

inline constexpr QLatin1String ZuveroChatMessageSenderUser{"user"};
inline constexpr QLatin1String ZuveroChatMessageSenderAgent{"agent"};
inline constexpr QLatin1String ZuveroChatMessageSenderSystem{"system"};

//! Posted with the received message under "message", or with no user info when it must be fetched.
inline constexpr QLatin1String ZuveroChatDidReceiveMessageNotification{
    "ZuveroChatDidReceiveMessageNotification"};

class ZuveroChatMessage;
using ZuveroChatMessagePtr = std::shared_ptr<ZuveroChatMessage>;
using ZuveroChatMessageList = QList<ZuveroChatMessagePtr>;
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

    static ZuveroChatMessagePtr init();
    //! A user's message written now.
    static ZuveroChatMessagePtr initWithText(const std::optional<QString> &text);
    static ZuveroChatMessagePtr initWithText(const std::optional<QString> &text,
                                             const ZuveroChatAttachmentPtr &attachment);
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

    QVariantMap propertyList() const;
    /*!
        Attachments have no form that includes their contents, so this is
        defined only for a message without attachments, where it equals
        propertyList(); otherwise it raises rather than leave the contents out.
    */
    QVariantMap propertyListIncludingData() const;

    QString uuid() const { return m_uuid; }
    void setUuid(const QString &uuid) { m_uuid = uuid; }
    QString sender() const { return m_sender; }
    void setSender(const QString &sender) { m_sender = sender; }
    //! When it was written; invalid when unknown.
    QDateTime date() const { return m_date; }
    void setDate(const QDateTime &date) { m_date = date; }
    bool hasAttachments() const { return m_hasAttachments; }
    void setHasAttachments(bool hasAttachments) { m_hasAttachments = hasAttachments; }
    bool isTruncated() const { return m_isTruncated; }
    void setIsTruncated(bool truncated) { m_isTruncated = truncated; }
    std::optional<QString> text() const { return m_text; }
    void setText(const std::optional<QString> &text) { m_text = text; }
    std::optional<QVariantMap> locationDictionary() const { return m_location; }
    void setLocationDictionary(const std::optional<QVariantMap> &location)
    {
        m_location = location;
    }
    std::optional<QString> userName() const { return m_userName; }
    void setUserName(const std::optional<QString> &userName) { m_userName = userName; }
    std::optional<ZuveroChatAttachmentList> attachments() const { return m_attachments; }
    void setAttachments(const std::optional<ZuveroChatAttachmentList> &attachments)
    {
        m_attachments = attachments;
    }
    bool isOffline() const { return m_isOffline; }
    void setIsOffline(bool offline) { m_isOffline = offline; }
    bool isErrored() const { return m_isErrored; }
    void setIsErrored(bool errored) { m_isErrored = errored; }
    //! 0.0 to 1.0; 1.0 unless an upload is under way.
    double uploadProgress() const { return m_uploadProgress; }
    void setUploadProgress(double progress) { m_uploadProgress = progress; }

    bool isUserMessage() const { return m_sender == ZuveroChatMessageSenderUser; }
    bool isAgentMessage() const { return m_sender == ZuveroChatMessageSenderAgent; }
    bool isSystemMessage() const { return m_sender == ZuveroChatMessageSenderSystem; }

    /*!
        Same identifier and equal attachment lists, element by element; an
        absent list equals only an absent list.
    */
    bool isEqual(const ZuveroChatMessage &other) const;
    friend bool operator==(const ZuveroChatMessage &a, const ZuveroChatMessage &b)
    {
        return a.isEqual(b);
    }
    size_t hash() const;
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

inline size_t qHash(const ZuveroChatMessage &message, size_t seed = 0)
{
    return message.hash() ^ seed;
}
