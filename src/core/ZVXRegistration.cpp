#include "ZVXRegistration.h"

#include "ZVXClock.h"
#include "ZVXJSON.h"
#include "ZVXLocalization.h"
#include "ZVXLogging.h"
#include "ZVXMainThread.h"
#include "ZVXModelValues.h"
#include "ZVXOfflineQueue.h"
#include "ZVXReachability.h"
#include "Zuvero_p.h"

#include <atomic>

using namespace std::chrono_literals;

namespace {

constexpr int NoTokenCode = 3;
// A payload of format version 2 or later is not ours to read.
const QString NewestFormatVersion = QStringLiteral("1.999999");
// A push consumed this soon after launch or activation opened the application: show the chat.
constexpr qint64 OpenedByNotificationWindowMs = 2000;

std::atomic<ZVXRegistration::BannerPresenter> bannerPresenter{nullptr};

void logBanner(const ZuveroChatMessagePtr &message, Zuvero *)
{
    ZVXLog(QStringLiteral("Zuvero: new message from %1: %2")
               .arg(message->userName().value_or(message->sender()),
                    message->text().value_or(QString())));
}

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

ZVXRegistration::ZVXRegistration(Zuvero *facade)
    : q(facade)
{
    m_reachabilityObserver = ZuveroNotificationCenter::defaultCenter()->addObserver(
        ZuveroNetworkReachabilityChangedNotification, facade->reachability(),
        [this](const ZuveroNotification &) { reachabilityDidChange(); });
}

void ZVXRegistration::setBannerPresenter(BannerPresenter presenter)
{
    bannerPresenter = presenter;
}

void ZVXRegistration::registerIfNeeded(const Zuvero::Completion &completion)
{
    ZVXMainThread::assertMainThread();
    if (!q->needsRegistration()) {
        if (completion)
            completion(true, {});
        return;
    }
    if (!q->jwt()) {
        if (completion)
            completion(false,
                       ZuveroError::withDescription(QString(ZuveroErrorDomain), NoTokenCode,
                                                    ZVXLocalization::hostString(QStringLiteral(
                                                        "JWT token is not provided."))));
        return;
    }
    q->setNeedsRegistration(false);
    const quint32 cycle = m_cycle.advance();
    const QPointer<Zuvero> facade(q);
    ZVXMainThread::async(
        [this, facade, cycle, completion] {
            // Calls without a completion in one turn of the event loop make one request: the last.
            if (!completion && !m_cycle.isCurrent(cycle))
                return;
            facade->connection()->registerApp(
                [facade, completion](bool success, const ZuveroError &error) {
                    ZVXMainThread::assertMainThread();
                    if (facade) {
                        ZVXOfflineQueue &queue = *ZuveroPrivate::get(facade)->offlineQueue;
                        if (success) {
                            if (ZVXReachability::checkNetworkIsReachable()
                                && !queue.offlineMessages().isEmpty() && !queue.isSending())
                                facade->sendOfflineMessages();
                        } else {
                            ZVXLog(QStringLiteral("Failed to register app: %1")
                                       .arg(error.localizedDescription()));
                            facade->setNeedsRegistration(true);
                        }
                    }
                    if (completion)
                        completion(success, error);
                });
        },
        q);
}

void ZVXRegistration::reachabilityDidChange()
{
    const ZVXOfflineQueue &queue = *ZuveroPrivate::get(q)->offlineQueue;
    if (!ZVXReachability::checkNetworkIsReachable() || queue.offlineMessages().isEmpty()
        || queue.isSending())
        return;
    ZVXClock::after(1s, q, [this] { q->sendOfflineMessages(); });
}

bool ZVXRegistration::consumeReceivedRemoteNotification(const QVariantMap &payload)
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
        if (q->userIdentifier() && uid.toString() != *q->userIdentifier())
            return false;
    } else if (data.contains(QStringLiteral("i"))
               && data.value(QStringLiteral("i")).toString() != q->installationIdentifier()) {
        return false;
    }

    m_clearUnreadCountForMessage.clear();
    ZVXLog(QStringLiteral("Received a notification: badge = %1 (unreadCount = %2)")
               .arg(ZVXJSON::describe(payload.value(QStringLiteral("badge"))),
                    QString::number(q->unreadCount())));
    QVariant badge = payload.value(QStringLiteral("badge"));
    if (!badge.isValid())
        badge = payload.value(QStringLiteral("aps")).toMap().value(QStringLiteral("badge"));
    if (badge.isValid())
        q->updateUnreadCount(badge.toLongLong());

    const ZuveroChatMessagePtr message
        = ZuveroChatMessage::initWithRemoteNotificationPayload(payload);
    if (message && !message->hasAttachments() && !message->isTruncated()) {
        q->notifyChatDidReceiveNewMessagesNotification();
        ZuveroNotificationCenter::defaultCenter()->post(
            ZuveroChatDidReceiveMessageNotification, q,
            {{QStringLiteral("message"), QVariant::fromValue(message)}});
    } else {
        // The screen fetches what the payload could not carry.
        ZuveroNotificationCenter::defaultCenter()->post(ZuveroChatDidReceiveMessageNotification, q);
    }

    ZuveroPrivate *facade = ZuveroPrivate::get(q);
    if (facade->visibleChatViewControllers.isEmpty()) {
        const QDateTime now = ZVXClock::currentTime();
        const bool openedByTap
            = qAbs(facade->launchDate.msecsTo(now)) < OpenedByNotificationWindowMs
            || qAbs(facade->activationDate.msecsTo(now)) < OpenedByNotificationWindowMs;
        if (openedByTap) {
            q->displayChatView();
        } else if (message) {
            const std::shared_ptr<ZuveroDelegate> delegate = q->delegate();
            const bool declined = delegate && delegate->zuveroShouldDisplayNotificationWithText
                && !delegate->zuveroShouldDisplayNotificationWithText(
                    q, message->text().value_or(QString()));
            if (!declined) {
                const BannerPresenter present = bannerPresenter.load();
                (present ? present : &logBanner)(message, q);
            }
        }
    }
    return true;
}

void ZVXRegistration::handleRemoteNotificationWithIdentifier(const QString &identifier,
                                                             const QVariantMap &response)
{
    const QString text = response.value(ZuveroNotificationActionResponseTypedTextKey).toString();
    // The send action sends even an empty answer; any other sends only a real one, deliberately.
    if (identifier == QLatin1String("ACTION_SEND") || !text.trimmed().isEmpty())
        q->postMessage(text);
}
