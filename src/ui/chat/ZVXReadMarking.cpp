#include "ZVXReadMarking.h"

#include "ZVXClock.h"
#include "ZVXGenerationCounter.h"
#include "ZVXLogging.h"
#include "ZVXMainThread.h"
#include "Zuvero.h"
#include "ZuveroConnection.h"
#include "ZuveroUserDefaults.h"

#include <utility>

using namespace std::chrono_literals;

namespace {

const QString MarkedAsReadUUIDsKey = QStringLiteral("ZuveroMarkedAsReadMessageUUIDs");
const QString LastMarkAsReadDateKey = QStringLiteral("ZuveroLastMarkAsReadDate");
// Enough to know a message was reported without letting the list grow with the conversation.
constexpr qsizetype MaxMarkedAsReadUUIDs = 100;
// A message this much older than the last report was read long ago, on this or another device.
constexpr double TooOldSeconds = 30 * 24 * 60 * 60;
constexpr std::chrono::milliseconds DispatchDelay = 1s;

// One wait for every chat list: marks made in quick succession anywhere go out together.
ZVXGenerationCounter &dispatchGeneration()
{
    static ZVXGenerationCounter counter;
    return counter;
}

QStringList storedUUIDs()
{
    QStringList uuids;
    const QVariantList stored
        = ZuveroUserDefaults::standardUserDefaults().arrayForKey(MarkedAsReadUUIDsKey);
    uuids.reserve(stored.size());
    for (const QVariant &uuid : stored)
        uuids.append(uuid.toString());
    return uuids;
}

void storeDate(const QDateTime &date)
{
    ZuveroUserDefaults::standardUserDefaults().setObject(date, LastMarkAsReadDateKey);
}

} // namespace

ZVXReadMarking::ZVXReadMarking(QObject *parent)
    : QObject(parent)
{ }

ZVXReadMarking::~ZVXReadMarking() = default;

Zuvero *ZVXReadMarking::apiInstance() const
{
    return m_apiInstance;
}

void ZVXReadMarking::setApiInstance(Zuvero *instance)
{
    m_apiInstance = instance;
}

void ZVXReadMarking::markAsRead(const ZuveroChatMessagePtr &message)
{
    ZVXMainThread::assertMainThread();
    // One's own messages are never reported.
    if (!message || message->isUserMessage())
        return;
    if (const QDateTime date = message->date(); date.isValid()) {
        const double sinceLastReport = double(lastMarkAsReadDate().msecsTo(date)) / 1000.0;
        if (sinceLastReport < -TooOldSeconds) {
            ZVXLog(QStringLiteral("WARNING: too old message, not marking as read!"));
            return;
        }
    }
    for (const ZuveroChatMessagePtr &pending : std::as_const(m_pendingReadMessages)) {
        if (pending == message || pending->isEqual(*message))
            return;
    }
    if (markedAsReadUUIDs().contains(message->uuid()))
        return;
    // The facade hears of it now, so that what it shows can change before the server answers.
    if (m_apiInstance)
        m_apiInstance->markMessageAsRead(message);
    m_pendingReadMessages.append(message);
    dispatchGeneration().scheduleLast(DispatchDelay, this, [this] { dispatchMarkAsRead(); });
}

void ZVXReadMarking::dispatchMarkAsRead()
{
    ZVXMainThread::assertMainThread();
    if (m_pendingReadMessages.isEmpty())
        return;
    // Without a facade there is nowhere to send them: they wait for the next dispatch.
    ZuveroConnection *connection = m_apiInstance ? m_apiInstance->connection() : nullptr;
    if (!connection)
        return;
    const ZuveroChatMessageList batch = std::exchange(m_pendingReadMessages, {});
    connection->markReadMessages(
        batch, [self = QPointer(this), batch](bool success, const ZuveroError &error) {
            if (!success) {
                // No retry of its own: the batch goes with the next one, which a new mark starts.
                if (self)
                    self->m_pendingReadMessages.append(batch);
                ZVXLog(QStringLiteral("ZuveroChatView: failed to mark %1 messages as read: %2")
                           .arg(batch.size())
                           .arg(error.localizedDescription()));
                return;
            }
            // What is stored wins over what this list loaded: other lists may have saved since.
            QStringList uuids = storedUUIDs();
            for (const ZuveroChatMessagePtr &message : batch)
                uuids.append(message->uuid());
            if (uuids.size() > MaxMarkedAsReadUUIDs)
                uuids.remove(0, uuids.size() - MaxMarkedAsReadUUIDs);
            ZuveroUserDefaults::standardUserDefaults().setObject(uuids, MarkedAsReadUUIDsKey);
            ZVXLog(QStringLiteral("ZuveroChatView: marked %1 messages as read.").arg(batch.size()));
            // The server has them even when the list that sent them is gone.
            if (self) {
                self->m_markedAsReadUUIDs = uuids;
                self->setLastMarkAsReadDate(ZVXClock::currentTime());
            } else {
                storeDate(ZVXClock::currentTime());
            }
        });
}

QDateTime ZVXReadMarking::lastMarkAsReadDate() const
{
    if (!m_lastMarkAsReadDate) {
        const QVariant stored
            = ZuveroUserDefaults::standardUserDefaults().objectForKey(LastMarkAsReadDateKey);
        // Before the first report no message is too old.
        m_lastMarkAsReadDate
            = stored.metaType().id() == QMetaType::QDateTime && stored.toDateTime().isValid()
            ? stored.toDateTime()
            : QDateTime::fromSecsSinceEpoch(0, Qt::UTC);
    }
    return *m_lastMarkAsReadDate;
}

void ZVXReadMarking::setLastMarkAsReadDate(const QDateTime &date)
{
    if (!date.isValid())
        return;
    m_lastMarkAsReadDate = date;
    storeDate(date);
}

const QStringList &ZVXReadMarking::markedAsReadUUIDs()
{
    if (!m_markedAsReadUUIDs)
        m_markedAsReadUUIDs = storedUUIDs();
    return *m_markedAsReadUUIDs;
}
