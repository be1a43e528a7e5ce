#include "ZVXChatController.h"

#include "ZVXClock.h"
#include "ZVXGenerationCounter.h"
#include "ZVXLogging.h"
#include "ZVXMainThread.h"
#include "ZVXReachability.h"
#include "Zuvero.h"
#include "ZuveroApplication.h"
#include "ZuveroChatAttachment.h"
#include "ZuveroConnection.h"

#include <algorithm>
#include <chrono>
#include <cmath>

using namespace std::chrono_literals;

namespace {

// A reload starts this far before the newest message it has, so that nothing written meanwhile
// on a clock a little behind is missed.
constexpr qint64 ReloadOverlapSeconds = 60;
// After a send, the conversation is reloaded once this long after the last send ended.
constexpr auto ReloadAfterSendDelay = 1s;
// Earlier messages fetched ahead are shown a frame after the press.
constexpr auto ApplyPreloadedDelay = 20ms;
// Polling: none at or below the first, otherwise clamped to the other two.
constexpr double PollingOffBelow = 0.5;
constexpr double ShortestPollingPeriod = 2.0;
constexpr double LongestPollingPeriod = 600.0;
// Changes of the content height below this keep the reader's place as it is.
constexpr double KeepInViewThreshold = 1.0;

// One for the whole process: the last send to end decides when the conversation is reloaded.
ZVXGenerationCounter &sendReloadGeneration()
{
    static ZVXGenerationCounter counter;
    return counter;
}

QString uuidKey(const ZuveroChatMessagePtr &message)
{
    return message ? message->uuid() : QString();
}

// Lists are equal when their messages are, one by one.
bool sameMessages(const ZuveroChatMessageList &a, const ZuveroChatMessageList &b)
{
    return std::equal(a.cbegin(), a.cend(), b.cbegin(), b.cend(),
                      [](const ZuveroChatMessagePtr &x, const ZuveroChatMessagePtr &y) {
                          return x == y || (x && y && *x == *y);
                      });
}

bool containsEqual(const ZuveroChatMessageList &list, const ZuveroChatMessagePtr &message)
{
    return std::any_of(list.cbegin(), list.cend(), [&message](const ZuveroChatMessagePtr &m) {
        return m == message || (m && message && *m == *message);
    });
}

ZuveroChatMessagePtr messageOf(const ZuveroNotification &notification)
{
    return notification.userInfo().value(QStringLiteral("message")).value<ZuveroChatMessagePtr>();
}

} // namespace

ZVXChatControllerView::~ZVXChatControllerView() = default;

ZVXChatController::ZVXChatController(Zuvero *facade, ZVXChatControllerView *view, QObject *parent)
    : QObject(parent)
    , m_facade(facade)
    , m_view(view)
    , m_screen(this)
{
    observeFacade();
}

ZVXChatController::~ZVXChatController()
{
    stopPolling();
    if (m_facade && m_visibility)
        m_facade->chatViewControllerDidDisappear(*m_visibility);
}

Zuvero *ZVXChatController::apiInstance() const
{
    return m_facade;
}

void ZVXChatController::setScreen(QObject *screen)
{
    m_screen = screen ? screen : this;
}

ZuveroChatMessageList ZVXChatController::messages() const
{
    return m_conversation.messages();
}

ZuveroChatMessageList ZVXChatController::offlineMessages() const
{
    return m_conversation.offlineMessages();
}

ZuveroChatMessagePtr ZVXChatController::welcomeMessage() const
{
    return m_conversation.welcomeMessage();
}

QDateTime ZVXChatController::lastDownloadDate() const
{
    return m_lastDownloadDate;
}

void ZVXChatController::observeFacade()
{
    if (!m_facade)
        return;
    ZuveroNotificationCenter *center = ZuveroNotificationCenter::defaultCenter();
    const ZuveroNotificationObject facade(m_facade.data());
    const auto scrollIfChanged = [this](bool didChange) {
        if (didChange)
            m_view->scrollToLastMessage(true);
    };

    // A pushed message: shown at once unless messages wait to be sent, then the conversation.
    m_observers.push_back(center->addObserver(
        ZuveroChatDidReceiveMessageNotification, facade,
        [this, scrollIfChanged](const ZuveroNotification &notification) {
            if (!m_conversation.offlineMessages().isEmpty())
                return;
            if (const ZuveroChatMessagePtr message = messageOf(notification)) {
                const ZuveroChatMessageList shown = m_conversation.messages();
                const bool known = std::any_of(shown.cbegin(), shown.cend(),
                                               [&message](const ZuveroChatMessagePtr &m) {
                                                   return uuidKey(m) == message->uuid();
                                               });
                if (!known)
                    m_view->addMessage(message, true);
            }
            reloadChatAnimated(true, scrollIfChanged);
        }));

    m_observers.push_back(center->addObserver(
        ZuveroChatDidAddOfflineMessageNotification, facade,
        [this](const ZuveroNotification &notification) {
            const ZuveroChatMessagePtr message = messageOf(notification);
            if (!message)
                return;
            ZuveroChatMessageList offline = m_conversation.offlineMessages();
            if (!containsEqual(offline, message)) {
                message->setIsOffline(true);
                m_conversation.setOfflineMessages(
                    ZVXConversation::combineExistingMessages(offline, {message}));
            }
            const ZuveroChatMessageList shown = m_conversation.messages();
            const auto found = std::find_if(shown.cbegin(), shown.cend(),
                                            [&message](const ZuveroChatMessagePtr &m) {
                                                return m == message || (m && *m == *message);
                                            });
            if (found != shown.cend()) {
                (*found)->setIsOffline(true);
                m_view->reloadData();
            } else {
                setMessages(ZVXConversation::combineExistingMessages(
                    shown, m_conversation.offlineMessages()));
            }
        }));

    m_observers.push_back(center->addObserver(
        ZuveroChatDidFinishSendingOfflineMessagesNotification, facade,
        [this, scrollIfChanged](const ZuveroNotification &) {
            const ZuveroChatMessageList before = m_conversation.offlineMessages();
            loadCachedConversation();
            if (!sameMessages(before, m_conversation.offlineMessages())) {
                m_view->reloadData();
                // The reload that waited for the queue: the server's copies of what went out.
                if (m_conversation.offlineMessages().isEmpty())
                    reloadChatAnimated(true, scrollIfChanged);
            }
        }));

    m_observers.push_back(center->addObserver(
        ZuveroChatOfflineMessageUploadProgressNotification, facade,
        [this](const ZuveroNotification &notification) {
            if (const ZuveroChatMessagePtr message = messageOf(notification))
                m_view->setUploadProgress(
                    notification.userInfo().value(QStringLiteral("uploadProgress")).toDouble(),
                    message);
        }));

    m_observers.push_back(center->addObserver(ZuveroApplicationWillEnterForegroundNotification,
                                              nullptr,
                                              [this, scrollIfChanged](const ZuveroNotification &) {
                                                  reloadChatAnimated(true, scrollIfChanged);
                                              }));
}

ZuveroChatMessageList ZVXChatController::withoutWelcome(const ZuveroChatMessageList &messages) const
{
    ZuveroChatMessageList result = messages;
    if (const ZuveroChatMessagePtr welcome = m_conversation.welcomeMessage())
        result.removeAll(welcome);
    return result;
}

void ZVXChatController::loadCachedConversation()
{
    if (!m_facade)
        return;
    const QVariantMap cached = m_facade->cachedConversation();
    m_view->setHasMoreMessages(cached.value(ZuveroCachedConversationHasMoreMessagesKey).toBool());
    m_conversation.setOfflineMessages(
        cached.value(ZuveroCachedConversationOfflineMessagesKey).value<ZuveroChatMessageList>());
    setMessages(ZVXConversation::combineExistingMessages(
        cached.value(ZuveroCachedConversationMessagesKey).value<ZuveroChatMessageList>(),
        m_conversation.offlineMessages()));
    toggleWelcomeMessage();
}

void ZVXChatController::setMessages(const ZuveroChatMessageList &messages)
{
    const ZuveroChatMessageList previous = m_conversation.messages();
    m_conversation.setMessages(messages);
    if (!(sameMessages(previous, messages) && sameMessages(m_view->listMessages(), messages))) {
        m_view->setListMessages(messages);
        if (m_enabledScrollingToBottom)
            m_view->scrollToLastMessage(false);
    }
    toggleWelcomeMessage();
}

void ZVXChatController::toggleWelcomeMessage(bool force)
{
    const ZuveroChatMessagePtr current = m_conversation.welcomeMessage();
    const ZuveroChatMessageList shown = m_conversation.messages();
    const bool empty
        = shown.isEmpty() || (shown.size() == 1 && current && shown.first() == current);
    if ((empty == bool(current) && !force) || !m_hasFetchedMessages)
        return;
    ZuveroChatMessageList messages = withoutWelcome(shown);
    m_conversation.setWelcomeMessage(nullptr);
    const std::optional<QString> text = m_facade ? m_facade->welcomeMessage() : std::nullopt;
    if (empty && text) {
        const ZuveroChatMessagePtr welcome = ZuveroChatMessage::initWithSystemText(*text);
        messages.append(welcome);
        m_conversation.setWelcomeMessage(welcome);
    }
    m_conversation.setMessages(messages);
    m_view->setListMessages(messages);
}

void ZVXChatController::saveConversation()
{
    if (m_facade)
        m_facade->saveCachedMessages(m_conversation.messagesToSave(), m_view->hasMoreMessages());
}

void ZVXChatController::reloadChatAnimated(bool, std::function<void(bool)> completion)
{
    if (!m_facade)
        return;
    // Messages waiting go first; the reload follows the end of their pass.
    if (!m_conversation.offlineMessages().isEmpty()) {
        m_facade->sendOfflineMessages();
        return;
    }
    QDateTime since;
    if (m_lastDownloadDate.isValid()) {
        since = m_lastDownloadDate.addSecs(-ReloadOverlapSeconds);
    } else if (const ZuveroChatMessageList shown = withoutWelcome(m_conversation.messages());
               !shown.isEmpty() && shown.first()) {
        // The oldest message shown, on purpose: the first reload fetches everything after it.
        m_lastDownloadDate = shown.first()->date();
        if (m_lastDownloadDate.isValid())
            since = m_lastDownloadDate.addSecs(-ReloadOverlapSeconds);
    }
    ++m_reloadingChat;
    const QPointer<ZVXChatController> self(this);
    m_facade->connection()->loadMessageSinceDate(
        since, PageSize,
        [self,
         completion = std::move(completion)](const std::optional<ZuveroChatMessageList> &received,
                                             bool hasMore, const ZuveroError &error) {
            if (self)
                self->finishReload(received, hasMore, error, completion);
        });
}

void ZVXChatController::finishReload(const std::optional<ZuveroChatMessageList> &received,
                                     bool hasMore, const ZuveroError &error,
                                     const std::function<void(bool)> &completion)
{
    --m_reloadingChat;
    m_hasFetchedMessages = true;
    if (!received) {
        ZVXLog(QStringLiteral("ZuveroChatViewController:reloadChatAnimated: error during "
                              "download of latest messages: %1")
                   .arg(error.localizedDescription()));
        toggleWelcomeMessage();
        return;
    }
    m_didChangeMessages = hasMore && !m_view->hasMoreMessages();
    // A reload never takes the load-more row away.
    m_view->setHasMoreMessages(m_view->hasMoreMessages() || hasMore);

    const ZuveroChatMessageList shownOnline
        = ZVXConversation::combineExistingMessagesWithDeletedMessages(
            m_conversation.messages(), m_conversation.offlineMessages());
    const ZuveroChatMessageList stillOffline
        = ZVXConversation::combineExistingMessagesWithDeletedMessages(
            m_conversation.offlineMessages(), *received);
    const ZuveroChatMessageList merged = ZVXConversation::combineExistingMessages(
        ZVXConversation::combineExistingMessages(shownOnline, *received), stillOffline);
    const ZuveroChatMessageList shown = m_conversation.messages();
    if (shown.isEmpty() || merged.isEmpty() || !sameMessages(merged, shown))
        m_didChangeMessages = true;
    if (m_didChangeMessages) {
        if (m_facade)
            m_facade->notifyChatDidReceiveNewMessagesNotification();
        m_conversation.setOfflineMessages(stillOffline);
        setMessages(merged);
        saveConversation();
    }
    if (!received->isEmpty() && received->last() && received->last()->date().isValid())
        m_lastDownloadDate = received->last()->date();
    if (m_needReloadChatAfterReloadFinished && m_reloadingChat == 0) {
        m_needReloadChatAfterReloadFinished = false;
        reloadChatAnimated(true);
    }
    if (completion)
        completion(m_didChangeMessages);
}

void ZVXChatController::loadMoreChatMessagesWithCompletion(EarlierCompletion completion)
{
    const ZuveroChatMessageList shown = m_conversation.messages();
    if (shown.isEmpty() || !shown.first()) {
        completion(std::nullopt, false);
        return;
    }
    if (!m_conversation.offlineMessages().isEmpty()) {
        if (m_facade)
            m_facade->sendOfflineMessages();
        return;
    }
    if (!m_facade) {
        completion(std::nullopt, false);
        return;
    }
    m_facade->connection()->loadMessageUntilDate(
        shown.first()->date(), PageSize,
        [completion = std::move(completion)](const std::optional<ZuveroChatMessageList> &received,
                                             bool hasMore, const ZuveroError &error) {
            if (!received) {
                ZVXLog(
                    QStringLiteral("ZuveroChatViewController:loadMoreChatMessagesWithCompletion: "
                                   "error during download earlier messages: %1")
                        .arg(error.localizedDescription()));
                completion(std::nullopt, false);
                return;
            }
            completion(received, hasMore);
        });
}

void ZVXChatController::chatViewDidOverscroll()
{
    if (m_loadingMoreMessages || m_preloadedMessages || !m_facade
        || !m_facade->reachability()->isReachable() || !m_conversation.offlineMessages().isEmpty())
        return;
    m_loadingMoreMessages = true;
    const QPointer<ZVXChatController> self(this);
    loadMoreChatMessagesWithCompletion(
        [self](const std::optional<ZuveroChatMessageList> &received, bool hasMore) {
            if (!self)
                return;
            self->m_preloadedMessages = received.value_or(ZuveroChatMessageList());
            self->m_preloadedHasMoreMessages = hasMore;
            self->m_loadingMoreMessages = false;
            if (self->m_applyPreloadedMessagesOnCompletion) {
                self->m_applyPreloadedMessagesOnCompletion = false;
                self->chatViewLoadEarlierMessages();
            }
        });
}

void ZVXChatController::chatViewLoadEarlierMessages()
{
    if (m_loadingMoreMessages) {
        m_applyPreloadedMessagesOnCompletion = true;
        return;
    }
    if (!m_facade
        || !m_facade->reachability()->isReachableOrShowAlert(
            [this](const ZVXAlert &alert) { m_view->showAlert(alert); })
        || !m_conversation.offlineMessages().isEmpty())
        return;
    m_applyPreloadedMessagesOnCompletion = false;
    m_loadingMoreMessages = true;
    if (m_preloadedMessages) {
        const ZuveroChatMessageList preloaded = *m_preloadedMessages;
        const bool hasMore = m_preloadedHasMoreMessages;
        m_preloadedMessages.reset();
        ZVXClock::after(ApplyPreloadedDelay, this,
                        [this, preloaded, hasMore] { applyEarlierMessages(preloaded, hasMore); });
        return;
    }
    const QPointer<ZVXChatController> self(this);
    loadMoreChatMessagesWithCompletion(
        [self](const std::optional<ZuveroChatMessageList> &received, bool hasMore) {
            if (self)
                self->applyEarlierMessages(received, hasMore);
        });
}

void ZVXChatController::applyEarlierMessages(const std::optional<ZuveroChatMessageList> &received,
                                             bool hasMore)
{
    // The reader's place: how far the view was from the bottom of the content.
    const double height = m_view->contentHeight();
    const double fromBottom = height - m_view->contentOffset();
    // A failed load takes the load-more row away.
    m_view->setHasMoreMessages(hasMore);
    setMessages(ZVXConversation::combineExistingMessages(
        m_conversation.messages(), received.value_or(ZuveroChatMessageList())));
    m_loadingMoreMessages = false;
    const double newHeight = m_view->contentHeight();
    if (std::abs(newHeight - height) >= KeepInViewThreshold)
        m_view->setContentOffset(newHeight - fromBottom);
}

void ZVXChatController::sendMessage(const QString &text, const ZuveroImagePtr &image)
{
    const ZuveroChatAttachmentPtr attachment
        = image ? ZuveroChatAttachment::initWithImage(image) : nullptr;
    sendMessage(ZuveroChatMessage::initWithText(text, attachment));
}

void ZVXChatController::sendMessage(const ZuveroChatMessagePtr &message)
{
    if (!message || !m_facade)
        return;
    const QPointer<ZVXChatController> self(this);
    if (m_facade->reachability()->isReachable() && m_conversation.offlineMessages().isEmpty()) {
        m_conversation.setMessages(
            ZVXConversation::combineExistingMessages(m_conversation.messages(), {message}));
        m_view->addMessage(message, true);
        toggleWelcomeMessage();
        m_facade->notifyChatDidSendMessageNotification();
        m_facade->connection()->sendChatMessage(
            message,
            [self, message](bool success, const ZuveroError &) {
                if (!self)
                    return;
                if (success) {
                    message->setIsOffline(false);
                    sendReloadGeneration().scheduleLast(ReloadAfterSendDelay, self, [self] {
                        self->reloadChatAnimated(
                            true, [self](bool) { self->m_view->scrollToLastMessage(true); });
                        self->registerForNotifications();
                    });
                } else {
                    message->setIsOffline(true);
                    self->m_conversation.setOfflineMessages(
                        ZVXConversation::combineExistingMessages(
                            self->m_conversation.offlineMessages(), {message}));
                    ZVXMainThread::async(
                        [self, message] {
                            if (!self)
                                return;
                            self->m_view->updateViewWithOfflineMessages(
                                self->m_conversation.offlineMessages());
                            if (self->m_facade)
                                self->m_facade->addOfflineMessage(message);
                            self->m_view->scrollToLastMessage(true);
                        },
                        self);
                }
                self->saveConversation();
            },
            [self, message](double upload, double) {
                if (self)
                    self->m_view->setUploadProgress(upload, message);
            });
        return;
    }
    // Offline, or older messages still wait: this one waits behind them, in order.
    message->setIsOffline(true);
    m_conversation.setOfflineMessages(
        ZVXConversation::combineExistingMessages(m_conversation.offlineMessages(), {message}));
    m_conversation.setMessages(ZVXConversation::combineExistingMessages(
        m_conversation.messages(), m_conversation.offlineMessages()));
    m_view->addMessage(message, true);
    toggleWelcomeMessage();
    // Saved with the rest, so that the conversation read back after the queue's pass still
    // holds it.
    saveConversation();
    ZVXMainThread::async(
        [self, message] {
            if (self && self->m_facade)
                self->m_facade->addOfflineMessage(message);
        },
        this);
}

void ZVXChatController::registerForNotifications()
{
    ZuveroApplication *application = ZuveroApplication::sharedApplication();
    if (!m_facade || m_facade->deviceToken() || !application->canRegisterForRemoteNotifications())
        return;
    const ZuveroNotificationTypes types = ZuveroNotificationType::Badge
        | ZuveroNotificationType::Sound | ZuveroNotificationType::Alert;
    QList<ZuveroNotificationCategory> categories;
    if (m_facade->interactiveNotification()) {
        ZuveroNotificationAction send;
        send.identifier = ZuveroNotificationActionSend;
        send.activatesInBackground = true;
        send.textInput = true;
        categories.append({ZuveroInteractiveNotificationCategory, {send}});
    }
    application->registerUserNotificationSettings(types, categories);
    application->registerForRemoteNotifications();
}

void ZVXChatController::viewWillAppear()
{
    if (m_facade)
        m_facade->notifyChatWillAppearNotification(m_screen);
    startPolling();
}

void ZVXChatController::viewDidAppear()
{
    if (m_facade) {
        m_visibility = std::make_unique<ZuveroChatScreenVisibility>(
            m_facade->chatViewControllerDidAppear(m_screen));
        m_facade->notifyChatDidAppearNotification(m_screen);
    }
    if (!m_alreadyAppeared) {
        m_alreadyAppeared = true;
        m_view->scrollToLastMessage(false);
        m_enabledScrollingToBottom = true;
    }
}

void ZVXChatController::viewWillDisappear()
{
    stopPolling();
    if (m_facade)
        m_facade->notifyChatWillDisappearNotification(m_screen);
}

void ZVXChatController::viewDidDisappear()
{
    if (m_facade) {
        if (m_visibility)
            m_facade->chatViewControllerDidDisappear(*m_visibility);
        m_facade->notifyChatDidDisappearNotification(m_screen);
    }
    m_visibility.reset();
}

void ZVXChatController::startPolling()
{
    stopPolling();
    const double interval = m_facade ? m_facade->pollingInterval() : 0;
    if (!(interval > PollingOffBelow))
        return;
    m_pollingPeriod = std::clamp(interval, ShortestPollingPeriod, LongestPollingPeriod);
    schedulePollingTick(m_pollingGeneration);
}

void ZVXChatController::stopPolling()
{
    // Ticks already scheduled find a newer generation and stop there.
    ++m_pollingGeneration;
    m_pollingPeriod = 0;
}

void ZVXChatController::schedulePollingTick(quint64 generation)
{
    const auto period = std::chrono::milliseconds(qint64(std::llround(m_pollingPeriod * 1000)));
    ZVXClock::after(period, this, [this, generation] {
        if (generation != m_pollingGeneration)
            return;
        if (m_view->isInWindow())
            reloadChatAnimated(true, [this](bool didChange) {
                if (didChange)
                    m_view->scrollToLastMessage(true);
            });
        schedulePollingTick(generation);
    });
}
