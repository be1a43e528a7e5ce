#pragma once

#include "ZVXAlert.h"
#include "ZVXConversation.h"
#include "ZuveroChatMessage.h"
#include "ZuveroError.h"
#include "ZuveroImage.h"
#include "ZuveroNotificationCenter.h"

#include <QDateTime>
#include <QObject>
#include <QPointer>

#include <functional>
#include <optional>
#include <vector>

class Zuvero;
class ZuveroChatScreenVisibility;

/*!
    What the chat screen's rules ask of the screen: the list of messages
    and a few things around it. The widgets answer it; tests answer it with
    a recorder, so that the rules run without a window.
*/
class ZUVERO_EXPORT ZVXChatControllerView
{
public:
    virtual ~ZVXChatControllerView();

    //! The messages the list shows.
    virtual ZuveroChatMessageList listMessages() const = 0;
    //! Shows \a messages; rows that stay keep their place.
    virtual void setListMessages(const ZuveroChatMessageList &messages) = 0;
    virtual void addMessage(const ZuveroChatMessagePtr &message, bool animated) = 0;
    //! Builds the rows again from the messages shown, as they are now.
    virtual void reloadData() = 0;
    virtual void updateViewWithOfflineMessages(const ZuveroChatMessageList &offlineMessages) = 0;
    virtual bool hasMoreMessages() const = 0;
    virtual void setHasMoreMessages(bool hasMoreMessages) = 0;
    virtual void setUploadProgress(double progress, const ZuveroChatMessagePtr &message) = 0;
    virtual void scrollToLastMessage(bool animated) = 0;
    //! The height of everything the list holds, and how far it is scrolled, in pixels.
    virtual double contentHeight() const = 0;
    virtual double contentOffset() const = 0;
    virtual void setContentOffset(double offset) = 0;
    //! Whether the screen is in a window on screen: polling reloads only then.
    virtual bool isInWindow() const = 0;
    virtual void showAlert(const ZVXAlert &alert) = 0;
};

/*!
    The chat screen's rules, apart from its widgets: the conversation as two
    lists (the messages shown, the ones waiting to be sent), the reload that
    merges every download into them, earlier history with its prefetch,
    sending online and offline in the order written, the welcome message,
    saving, polling while visible, and what the screen tells its facade.

    Every change of the lists goes through the one merge rule
    (ZVXConversation::combineExistingMessages). Every delay runs on the
    library's clock.
*/
class ZUVERO_EXPORT ZVXChatController : public QObject
{
    Q_OBJECT

public:
    //! The page size of every download.
    static constexpr quint32 PageSize = 50;

    //! \a facade and \a view are not owned; the view must outlive this object.
    ZVXChatController(Zuvero *facade, ZVXChatControllerView *view, QObject *parent = nullptr);
    ~ZVXChatController() override;

    Zuvero *apiInstance() const;
    //! The object the screen's notifications name ("viewController"); this object when unset.
    void setScreen(QObject *screen);

    ZuveroChatMessageList messages() const;
    ZuveroChatMessageList offlineMessages() const;
    ZuveroChatMessagePtr welcomeMessage() const;
    QDateTime lastDownloadDate() const;
    //! Whether the last reload changed the lists.
    bool didChangeMessages() const { return m_didChangeMessages; }
    //! Seconds between two polling reloads; 0 when not polling.
    double pollingPeriod() const { return m_pollingPeriod; }

    //! The conversation the facade keeps, shown at once.
    void loadCachedConversation();

    void viewWillAppear();
    void viewDidAppear();
    void viewWillDisappear();
    void viewDidDisappear();

    /*!
        Merges the newest messages into the lists. \a completion is called
        with whether anything changed, except when the reload does not take
        place (messages wait to be sent: they go first, and the reload
        follows their end) or fails.
    */
    void reloadChatAnimated(bool animated, std::function<void(bool didChange)> completion = {});
    using EarlierCompletion
        = std::function<void(const std::optional<ZuveroChatMessageList> &messages, bool hasMore)>;
    //! The page before the first message shown.
    void loadMoreChatMessagesWithCompletion(EarlierCompletion completion);

    //! Sends \a message: at once when the network is there and nothing waits, else queued.
    void sendMessage(const ZuveroChatMessagePtr &message);
    //! Sends a message of \a text and, when given, \a image.
    void sendMessage(const QString &text, const ZuveroImagePtr &image);

    //! The list was pulled past its top: earlier messages are fetched ahead of the press.
    void chatViewDidOverscroll();
    //! The load-more row was pressed.
    void chatViewLoadEarlierMessages();

    //! Saves the newest messages shown to the facade's conversation.
    void saveConversation();
    //! Adds or removes the welcome message as the list is empty or not.
    void toggleWelcomeMessage(bool force = false);

private:
    void setMessages(const ZuveroChatMessageList &messages);
    void finishReload(const std::optional<ZuveroChatMessageList> &received, bool hasMore,
                      const ZuveroError &error, const std::function<void(bool)> &completion);
    void applyEarlierMessages(const std::optional<ZuveroChatMessageList> &received, bool hasMore);
    void startPolling();
    void stopPolling();
    void schedulePollingTick(quint64 generation);
    void registerForNotifications();
    void observeFacade();
    ZuveroChatMessageList withoutWelcome(const ZuveroChatMessageList &messages) const;

    QPointer<Zuvero> m_facade;
    ZVXChatControllerView *m_view;
    QObject *m_screen;
    ZVXConversation m_conversation;
    QDateTime m_lastDownloadDate;
    int m_reloadingChat = 0;
    bool m_needReloadChatAfterReloadFinished = false;
    bool m_loadingMoreMessages = false;
    bool m_applyPreloadedMessagesOnCompletion = false;
    std::optional<ZuveroChatMessageList> m_preloadedMessages;
    bool m_preloadedHasMoreMessages = false;
    bool m_enabledScrollingToBottom = false;
    bool m_alreadyAppeared = false;
    bool m_didChangeMessages = false;
    bool m_hasFetchedMessages = false;
    double m_pollingPeriod = 0;
    quint64 m_pollingGeneration = 0;
    std::unique_ptr<ZuveroChatScreenVisibility> m_visibility;
    std::vector<ZuveroNotificationObserver> m_observers;
};
