#include "ZuveroChatViewItem.h"

class ZuveroChatViewItemData : public QSharedData
{
public:
    QLatin1String kind;
    ZuveroChatMessagePtr message;
    ZuveroChatAttachmentPtr attachment;
    std::optional<QVariantMap> location;
    QDateTime date;
    QString anchorUuid;
    int occurrence = 0;
    bool showTail = false;
    bool showUserName = false;
    // Kept up to date by the setters: a list model compares many of them at each change.
    ZuveroChatViewItem::Identity identity;

    void identify();
};

void ZuveroChatViewItemData::identify()
{
    identity.kind = kind;
    identity.messageUuid.clear();
    if (message)
        identity.messageUuid = message->uuid();
    else if (kind != ZuveroChatViewItemKindUserMessageUnsentLabel
             && kind != ZuveroChatViewItemKindLoadMoreMessages)
        identity.messageUuid = anchorUuid;
    identity.attachmentUuid = attachment ? attachment->uuid() : QString();
    identity.occurrence = occurrence;
}

ZuveroChatViewItem::ZuveroChatViewItem()
    : d(new ZuveroChatViewItemData)
{ }

ZuveroChatViewItem::ZuveroChatViewItem(QLatin1String kind)
    : d(new ZuveroChatViewItemData)
{
    d->kind = kind;
    d->identify();
}

ZuveroChatViewItem::ZuveroChatViewItem(const ZuveroChatViewItem &other) = default;
ZuveroChatViewItem::ZuveroChatViewItem(ZuveroChatViewItem &&other) noexcept = default;
ZuveroChatViewItem &ZuveroChatViewItem::operator=(const ZuveroChatViewItem &other) = default;
ZuveroChatViewItem &ZuveroChatViewItem::operator=(ZuveroChatViewItem &&other) noexcept = default;
ZuveroChatViewItem::~ZuveroChatViewItem() = default;

QLatin1String ZuveroChatViewItem::kind() const
{
    return d->kind;
}

void ZuveroChatViewItem::setKind(QLatin1String kind)
{
    d->kind = kind;
    d->identify();
}

const ZuveroChatMessagePtr &ZuveroChatViewItem::message() const
{
    return d->message;
}

void ZuveroChatViewItem::setMessage(const ZuveroChatMessagePtr &message)
{
    d->message = message;
    if (message)
        d->attachment.reset();
    d->identify();
}

const ZuveroChatAttachmentPtr &ZuveroChatViewItem::attachment() const
{
    return d->attachment;
}

void ZuveroChatViewItem::setAttachment(const ZuveroChatAttachmentPtr &attachment)
{
    d->attachment = attachment;
    d->identify();
}

std::optional<QVariantMap> ZuveroChatViewItem::locationDictionary() const
{
    return d->location;
}

void ZuveroChatViewItem::setLocationDictionary(const std::optional<QVariantMap> &location)
{
    d->location = location;
}

QDateTime ZuveroChatViewItem::date() const
{
    return d->date;
}

void ZuveroChatViewItem::setDate(const QDateTime &date)
{
    d->date = date;
}

bool ZuveroChatViewItem::showTail() const
{
    return d->showTail;
}

void ZuveroChatViewItem::setShowTail(bool showTail)
{
    d->showTail = showTail;
}

bool ZuveroChatViewItem::showUserName() const
{
    return d->showUserName;
}

void ZuveroChatViewItem::setShowUserName(bool showUserName)
{
    d->showUserName = showUserName;
}

bool ZuveroChatViewItem::isUserSide() const
{
    const QLatin1String kind = d->kind;
    return kind == ZuveroChatViewItemKindUserMessage
        || kind == ZuveroChatViewItemKindUserMessageLocation
        || kind == ZuveroChatViewItemKindUserMessageAttachment;
}

bool ZuveroChatViewItem::isAgentSide() const
{
    const QLatin1String kind = d->kind;
    return kind == ZuveroChatViewItemKindAgentMessage
        || kind == ZuveroChatViewItemKindAgentMessageLocation
        || kind == ZuveroChatViewItemKindAgentMessageAttachment;
}

QString ZuveroChatViewItem::anchorUuid() const
{
    return d->anchorUuid;
}

void ZuveroChatViewItem::setAnchorUuid(const QString &uuid)
{
    d->anchorUuid = uuid;
    d->identify();
}

int ZuveroChatViewItem::occurrence() const
{
    return d->occurrence;
}

void ZuveroChatViewItem::setOccurrence(int occurrence)
{
    d->occurrence = occurrence;
    d->identify();
}

const ZuveroChatViewItem::Identity &ZuveroChatViewItem::identity() const
{
    return d->identity;
}

bool ZuveroChatViewItem::operator==(const ZuveroChatViewItem &other) const
{
    if (d == other.d)
        return true;
    return d->kind == other.d->kind && d->message == other.d->message
        && d->attachment == other.d->attachment && d->location == other.d->location
        && d->date == other.d->date && d->anchorUuid == other.d->anchorUuid
        && d->occurrence == other.d->occurrence && d->showTail == other.d->showTail
        && d->showUserName == other.d->showUserName;
}

QString ZuveroChatViewItem::description() const
{
    QString text = QString(d->kind).mid(QLatin1String("ZuveroChatViewItemKind").size());
    if (d->message)
        text += QLatin1Char(' ') + d->message->uuid();
    else if (!d->anchorUuid.isEmpty())
        text += QStringLiteral(" before ") + d->anchorUuid;
    if (d->attachment)
        text += QStringLiteral(" attachment ") + d->attachment->uuid();
    if (d->occurrence)
        text += QStringLiteral(" #") + QString::number(d->occurrence);
    if (d->message) {
        text += d->showTail ? QStringLiteral(" tail") : QStringLiteral(" no-tail");
        text += d->showUserName ? QStringLiteral(" name") : QStringLiteral(" no-name");
    }
    return text;
}
