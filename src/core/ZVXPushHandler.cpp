#include "ZVXPushHandler.h"

#include "ZVXClock.h"
#include "ZVXJSON.h"
#include "ZVXLogging.h"
#include "ZVXModelValues.h"
#include "Zuvero.h"

namespace {

// A payload of format version 2 or later is not ours to read.
const QString NewestFormatVersion = QStringLiteral("1.999999");
// A push consumed this soon after launch or activation opened the application: show the chat.
constexpr qint64 OpenedByNotificationWindowMs = 2000;

// Compares texts the way version numbers read: runs of digits by their value, the rest by
// character.
int compareNumerically(const QString &a, const QString &b)
{
    qsizetype i = 0, j = 0;
    while (i < a.size() && j < b.size()) {
        if (a.at(i).isDigit() && b.at(j).isDigit()) {
            qsizetype endA = i, endB = j;
            while (endA < a.size() && a.at(endA).isDigit())
                ++endA;
            while (endB < b.size() && b.at(endB).isDigit())
                ++endB;
            // Leading zeros do not count; then the longer run is the larger number.
            QStringView runA = QStringView(a).mid(i, endA - i),
                        runB = QStringView(b).mid(j, endB - j);
            while (runA.size() > 1 && runA.front() == u'0')
                runA = runA.mid(1);
            while (runB.size() > 1 && runB.front() == u'0')
                runB = runB.mid(1);
            if (runA.size() != runB.size())
                return runA.size() < runB.size() ? -1 : 1;
            if (const int order = runA.compare(runB))
                return order < 0 ? -1 : 1;
            i = endA;
            j = endB;
            continue;
        }
        if (a.at(i) != b.at(j))
            return a.at(i) < b.at(j) ? -1 : 1;
        ++i;
        ++j;
    }
    return i < a.size() ? 1 : (j < b.size() ? -1 : 0);
}

} // namespace

ZVXPushHandler::ZVXPushHandler(ZVXPushHandlerAPI *facade)
    : m_facade(facade)
{ }

bool ZVXPushHandler::consumeReceivedRemoteNotification(const QVariantMap &payload)
{
    const QVariant appData = payload.value(QStringLiteral("appdata"));
    if (appData.metaType().id() != QMetaType::QVariantMap)
        return false;
    const QVariantMap data = appData.toMap();

    const QVariant version = payload.contains(QStringLiteral("zuvero"))
        ? payload.value(QStringLiteral("zuvero"))
        : data.value(QStringLiteral("zuvero"));
    const std::optional<QString> versionText = ZVXModelValues::text(version);
    if (!versionText || compareNumerically(*versionText, NewestFormatVersion) > 0)
        return false;

    // Meant for another user, or for another installation when no user is named.
    const QVariant uid = data.value(QStringLiteral("uid"));
    if (uid.isValid()) {
        if (m_facade->userIdentifier() && uid.toString() != *m_facade->userIdentifier())
            return false;
    } else if (data.contains(QStringLiteral("i"))
               && data.value(QStringLiteral("i")).toString()
                   != m_facade->installationIdentifier()) {
        return false;
    }

    m_clearUnreadCountForMessage.clear();
    ZVXLog(QStringLiteral("Received a notification: badge = %1 (unreadCount = %2)")
               .arg(ZVXJSON::describe(payload.value(QStringLiteral("badge"))),
                    QString::number(m_facade->unreadCount())));
    QVariant badge = payload.value(QStringLiteral("badge"));
    if (!badge.isValid())
        badge = payload.value(QStringLiteral("aps")).toMap().value(QStringLiteral("badge"));
    if (badge.isValid())
        m_facade->updateUnreadCount(badge.toLongLong());

    const ZuveroChatMessagePtr message
        = ZuveroChatMessage::initWithRemoteNotificationPayload(payload);
    if (message && !message->hasAttachments() && !message->isTruncated()) {
        m_facade->notifyChatDidReceiveNewMessages();
        m_facade->post(ZuveroChatDidReceiveMessageNotification,
                       {{QStringLiteral("message"), QVariant::fromValue(message)}});
    } else {
        // The screen fetches what the payload could not carry.
        m_facade->post(ZuveroChatDidReceiveMessageNotification, {});
    }

    if (!m_facade->isChatScreenVisible()) {
        const QDateTime now = ZVXClock::currentTime();
        const bool openedByTap
            = qAbs(m_facade->launchDate().msecsTo(now)) < OpenedByNotificationWindowMs
            || qAbs(m_facade->activationDate().msecsTo(now)) < OpenedByNotificationWindowMs;
        if (openedByTap)
            m_facade->displayChatView();
        else if (message)
            m_facade->showBanner(message);
    }
    return true;
}

void ZVXPushHandler::handleRemoteNotificationWithIdentifier(const QString &identifier,
                                                            const QVariantMap &response)
{
    const QString text = response.value(ZuveroNotificationActionResponseTypedTextKey).toString();
    // The send action sends even an empty answer; any other sends only a real one, deliberately.
    if (identifier == ZuveroNotificationActionSend || !text.trimmed().isEmpty())
        m_facade->postMessage(text);
}
