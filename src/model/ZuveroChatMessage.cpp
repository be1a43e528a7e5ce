#include "ZuveroChatMessage.h"

#include "ZVXClock.h"
#include "ZVXDictionaryForm.h"
#include "ZVXJSON.h"
#include "ZVXLogging.h"
#include "ZVXModelValues.h"
#include "ZuveroData.h"
#include "ZuveroException.h"

#include <QHash>
#include <QJsonValue>

namespace {

const ZVXDictionaryKey UUIDKey("uuid");
const ZVXDictionaryKey SenderKey("sender");
const ZVXDictionaryKey TextKey("text");
const ZVXDictionaryKey UserNameKey("userName");
const ZVXDictionaryKey DateKey("date");
const ZVXDictionaryKey LocationKey("location");
const ZVXDictionaryKey OfflineKey("offline");
const ZVXDictionaryKey AttachmentsKey("attachments");

bool isKnownSender(const QString &sender)
{
    return sender == ZuveroChatMessageSenderUser || sender == ZuveroChatMessageSenderAgent
        || sender == ZuveroChatMessageSenderSystem;
}

// Identifiers are text; a number is taken in its text form. Anything else is no identifier.
std::optional<QString> identifierFrom(const QVariant &value)
{
    switch (value.metaType().id()) {
    case QMetaType::QString:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Double:
        return value.toString();
    default:
        return std::nullopt;
    }
}

// A location is kept exactly as it came, extra keys included, when it is a dictionary.
std::optional<QVariantMap> locationFrom(const QVariant &value)
{
    if (!value.isValid() || ZuveroIsJSONNull(value))
        return std::nullopt;
    if (value.metaType().id() != QMetaType::QVariantMap) {
        ZVXLog(QStringLiteral("ZuveroChatMessage: ignoring a location that is not a dictionary: %1")
                   .arg(ZVXJSON::describe(value)));
        return std::nullopt;
    }
    return value.toMap();
}

// The notification's text: its own "alert", else the one under "aps"; an alert
// in dictionary form contributes its "body".
std::optional<QString> alertText(const QVariant &alert)
{
    if (alert.metaType().id() == QMetaType::QVariantMap)
        return ZVXModelValues::text(alert.toMap().value(QStringLiteral("body")));
    return ZVXModelValues::text(alert);
}

QString describeDate(const QDateTime &date)
{
    return date.isValid()
        ? date.toUTC().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss")) + QStringLiteral(" +0000")
        : QStringLiteral("(null)");
}

} // namespace

ZuveroChatMessage::ZuveroChatMessage()
    : m_uuid(ZVXModelValues::newUUID())
{ }

ZuveroChatMessagePtr ZuveroChatMessage::init()
{
    return std::make_shared<ZuveroChatMessage>();
}

ZuveroChatMessagePtr ZuveroChatMessage::userMessage()
{
    auto message = init();
    message->m_date = ZVXClock::currentTime();
    message->m_sender = ZuveroChatMessageSenderUser;
    return message;
}

ZuveroChatMessagePtr ZuveroChatMessage::initWithText(const std::optional<QString> &text)
{
    return initWithText(text, std::optional<ZuveroChatAttachmentList>());
}

ZuveroChatMessagePtr ZuveroChatMessage::initWithText(const std::optional<QString> &text,
                                                     const ZuveroChatAttachmentPtr &attachment)
{
    return initWithText(
        text, attachment ? ZuveroChatAttachmentList{attachment} : ZuveroChatAttachmentList{});
}

ZuveroChatMessagePtr
ZuveroChatMessage::initWithText(const std::optional<QString> &text,
                                const std::optional<ZuveroChatAttachmentList> &attachments)
{
    auto message = userMessage();
    message->m_text = text;
    message->m_attachments = attachments;
    return message;
}

ZuveroChatMessagePtr ZuveroChatMessage::initWithLocationDictionary(const QVariantMap &location)
{
    auto message = userMessage();
    message->m_location = location;
    return message;
}

ZuveroChatMessagePtr ZuveroChatMessage::initWithAgentText(const std::optional<QString> &text,
                                                          const ZuveroChatAttachmentPtr &attachment)
{
    auto message = init();
    message->m_text = text;
    message->m_date = ZVXClock::currentTime();
    message->m_sender = ZuveroChatMessageSenderAgent;
    if (attachment)
        message->m_attachments = ZuveroChatAttachmentList{attachment};
    return message;
}

ZuveroChatMessagePtr ZuveroChatMessage::initWithSystemText(const std::optional<QString> &text)
{
    auto message = init();
    message->m_text = text;
    message->m_date = ZVXClock::currentTime();
    message->m_sender = ZuveroChatMessageSenderSystem;
    return message;
}

template<typename Form>
ZuveroChatMessagePtr ZuveroChatMessage::fromPropertyList(const typename Form::Value &propertyList)
{
    const std::optional<typename Form::Object> dictionary = Form::object(propertyList);
    if (!dictionary) {
        const QVariant value = Form::variant(propertyList);
        ZVXLog(QStringLiteral("ZuveroChatMessage: property list is not a dictionary: %1 %2")
                   .arg(ZVXJSON::typeName(value), ZVXJSON::describe(value)));
        return nullptr;
    }
    ZVXDictionaryMembers<Form> members(*dictionary);
    const auto value
        = [&members](const ZVXDictionaryKey &key) { return Form::variant(members[key]); };
    const std::optional<QString> uuid = identifierFrom(value(UUIDKey));
    if (!uuid) {
        ZVXLog(QStringLiteral("ZuveroChatMessage: missing 'uuid' value in property list: %1")
                   .arg(ZVXJSON::describe(Form::variant(*dictionary))));
        return nullptr;
    }
    const QVariant sender = value(SenderKey);
    if (!sender.isValid() || ZuveroIsJSONNull(sender)) {
        ZVXLog(QStringLiteral("ZuveroChatMessage: missing 'sender' value in property list: %1")
                   .arg(ZVXJSON::describe(Form::variant(*dictionary))));
        return nullptr;
    }
    const std::optional<QString> senderText = ZVXModelValues::text(sender);
    if (!senderText || !isKnownSender(*senderText)) {
        ZVXLog(QStringLiteral("ZuveroChatMessage: unknown 'sender' value in property list: %1")
                   .arg(senderText.value_or(ZVXJSON::describe(sender))));
        return nullptr;
    }

    // The identifier a new message would draw is overwritten at once: none is drawn. The members
    // every entry has come first, those that only some have last.
    auto message = std::make_shared<ZuveroChatMessage>(Unidentified{});
    message->m_uuid = *uuid;
    message->m_sender = *senderText;
    message->m_text = ZVXModelValues::text(value(TextKey));
    message->m_date = ZVXModelValues::date(value(DateKey));
    message->m_isOffline = ZVXModelValues::flag(value(OfflineKey));
    message->m_userName = ZVXModelValues::text(value(UserNameKey));
    message->m_location = locationFrom(value(LocationKey));
    // A broken attachment is dropped (it logs why); the message keeps the others.
    ZuveroChatAttachmentList attachments;
    if (const auto list = Form::array(members[AttachmentsKey])) {
        attachments.reserve(list->size());
        for (qsizetype i = 0; i < list->size(); ++i) {
            const typename Form::Value &entry = list->at(i);
            if (Form::skipped(entry))
                continue;
            if (auto attachment = ZuveroChatAttachment::fromPropertyList<Form>(entry))
                attachments.append(attachment);
        }
    }
    message->m_attachments = attachments;
    return message;
}

ZuveroChatMessagePtr ZuveroChatMessage::initWithPropertyList(const QVariant &propertyList)
{
    return fromPropertyList<ZVXVariantForm>(propertyList);
}

ZuveroChatMessagePtr ZuveroChatMessage::initWithJSON(const QJsonValue &propertyList)
{
    return fromPropertyList<ZVXJSONForm>(QCborValue::fromJsonValue(propertyList));
}

ZuveroChatMessagePtr
ZuveroChatMessage::initWithRemoteNotificationPayload(const QVariantMap &payload)
{
    const QVariant appData = payload.value(QStringLiteral("appdata"));
    if (appData.metaType().id() != QMetaType::QVariantMap) {
        ZVXLog(QStringLiteral(
                   "ZuveroChatMessage: remote notification payload is not a dictionary: %1 %2")
                   .arg(ZVXJSON::typeName(appData), ZVXJSON::describe(appData)));
        return nullptr;
    }
    const QVariantMap data = appData.toMap();
    // Other kinds of notification are not messages: refused without a word.
    if (data.value(QStringLiteral("t")) != QVariant(QStringLiteral("m")))
        return nullptr;
    const std::optional<QString> uuid = identifierFrom(data.value(UUIDKey.text));
    if (!uuid) {
        ZVXLog(QStringLiteral(
                   "ZuveroChatMessage: missing 'uuid' value in remote notification payload: %1")
                   .arg(ZVXJSON::describe(data)));
        return nullptr;
    }
    // No sender code means an agent wrote it.
    const QVariant code = data.value(QStringLiteral("s"), QStringLiteral("a"));
    QString sender = ZVXModelValues::text(code).value_or(ZVXJSON::describe(code));
    if (sender == QLatin1String("a"))
        sender = ZuveroChatMessageSenderAgent;
    else if (sender == QLatin1String("u"))
        sender = ZuveroChatMessageSenderUser;
    else if (sender == QLatin1String("s"))
        sender = ZuveroChatMessageSenderSystem;
    if (!isKnownSender(sender)) {
        ZVXLog(QStringLiteral(
                   "ZuveroChatMessage: unknown sender 's' value in remote notification payload: %1")
                   .arg(sender));
        return nullptr;
    }

    auto message = init();
    message->m_uuid = *uuid;
    message->m_sender = sender;
    std::optional<QString> text = alertText(payload.value(QStringLiteral("alert")));
    if (!text)
        text = alertText(
            payload.value(QStringLiteral("aps")).toMap().value(QStringLiteral("alert")));
    message->m_text = text.value_or(QStringLiteral(""));
    message->m_isTruncated = ZVXModelValues::flag(data.value(QStringLiteral("tr")));
    message->m_isOffline = false;
    message->m_date = ZVXModelValues::date(data.value(QStringLiteral("d")));
    message->m_hasAttachments = ZVXModelValues::flag(data.value(QStringLiteral("a")));
    message->m_attachments = ZuveroChatAttachmentList{};
    message->m_location = locationFrom(data.value(QStringLiteral("l")));
    return message;
}

QVariantMap ZuveroChatMessage::propertyList() const
{
    QVariantMap dictionary;
    if (!m_uuid.isNull())
        dictionary.insert(UUIDKey.text, m_uuid);
    if (!m_sender.isNull())
        dictionary.insert(SenderKey.text, m_sender);
    if (m_text)
        dictionary.insert(TextKey.text, *m_text);
    if (m_userName)
        dictionary.insert(UserNameKey.text, *m_userName);
    if (m_date.isValid())
        dictionary.insert(DateKey.text, ZVXModelValues::wholeSeconds(m_date));
    if (m_location)
        dictionary.insert(LocationKey.text, *m_location);
    dictionary.insert(OfflineKey.text, m_isOffline);
    if (m_attachments && !m_attachments->isEmpty()) {
        QVariantList attachments;
        for (const ZuveroChatAttachmentPtr &attachment : *m_attachments)
            attachments.append(attachment->propertyList());
        dictionary.insert(AttachmentsKey.text, attachments);
    }
    return dictionary;
}

QVariantMap ZuveroChatMessage::propertyListIncludingData() const
{
    if (m_attachments && !m_attachments->isEmpty())
        throw ZuveroException(
            QStringLiteral("Unsupported operation"),
            QStringLiteral("propertyListIncludingData is defined only for messages without "
                           "attachments: attachments have no form that includes their contents."));
    return propertyList();
}

bool ZuveroChatMessage::isEqual(const ZuveroChatMessage &other) const
{
    if (m_uuid != other.m_uuid || m_attachments.has_value() != other.m_attachments.has_value())
        return false;
    if (!m_attachments)
        return true;
    return std::equal(m_attachments->cbegin(), m_attachments->cend(), other.m_attachments->cbegin(),
                      other.m_attachments->cend(),
                      [](const ZuveroChatAttachmentPtr &a, const ZuveroChatAttachmentPtr &b) {
                          return a == b || (a && b && *a == *b);
                      });
}

size_t ZuveroChatMessage::hash() const
{
    return qHash(m_uuid);
}

QString ZuveroChatMessage::description() const
{
    return QStringLiteral(
               "----------\n<ZuveroChatMessage: 0x%1>\nuuid = %2\ntext = %3\nisOffline = "
               "%4\ndate = %5\n----------")
        .arg(QString::number(quintptr(this), 16), m_uuid, m_text.value_or(QStringLiteral("(null)")),
             QString::number(int(m_isOffline)), describeDate(m_date));
}
