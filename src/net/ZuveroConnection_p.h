#pragma once

#include "ZVXConnectionAPI.h"
#include "ZVXURLRequest.h"
#include "ZuveroConnection.h"

#include <QPointer>
#include <QUrl>

class ZVXConnectionProgressObserver;
class ZVXURLSession;
class ZVXURLSessionTask;

/*
    The connection's request building, reply checking and bookkeeping, kept
    out of its public header.
*/
class ZUVERO_EXPORT ZuveroConnectionPrivate
{
public:
    using Failure = std::function<void(const ZuveroError &error)>;

    ZuveroConnectionPrivate(ZuveroConnection *q, ZVXConnectionAPI *api);
    ~ZuveroConnectionPrivate();

    static ZuveroConnectionPrivate *get(ZuveroConnection *connection)
    {
        return connection->d.get();
    }

    //! The facade, or null once it is gone.
    ZVXConnectionAPI *api() const;

    //! "https://<host>/api/1.0<path>", the path taken as written (it may carry a query).
    QUrl apiURLWithPath(const QString &path) const;
    //! A request on that URL with the standard headers, in their order.
    ZVXURLRequest requestWithPath(const QString &path) const;
    //! A GET for a file the server named, the token in its query; nothing without a URL.
    std::optional<ZVXURLRequest> cacheableRequestWithURL(const QUrl &url) const;

    /*!
        The JSON value of a reply, or nothing after \a failure has been
        called (exactly once) with what went wrong. Runs off the main thread.
    */
    static std::optional<QVariant> handleReceivedJSON(const ZVXURLSessionResult &result,
                                                      const Failure &failure);

    // Values the server hands back, taken over on the main thread.
    void consumeUnreadCount(const QVariant &value);
    void consumePollingInterval(const QVariant &value);
    void consumeSourceInfo(const QVariant &value);
    void consumeSourceInfoWelcomeMessage(const QVariant &value);
    void consumeRegistrationReply(const QVariantMap &reply);

    //! The query of the message list: "since=...&until=...&limit=...".
    static QString messagesPath(const QDateTime &since, const QDateTime &until, quint32 limit);
    //! The "message" part of a send.
    QVariantMap messageBody(const ZuveroChatMessage &message) const;
    //! The body of a read mark.
    static QVariantMap markBody(const ZuveroChatMessageList &messages);
    //! "model (machine); system version" of this computer.
    static QString deviceInfo();

    /*!
        Registers when needed, then runs \a send on the main thread; a
        failed registration (or a facade that is gone) ends in \a failed.
    */
    void afterRegistration(std::function<void()> send, Failure failed);

    /*!
        Tells the facade that a request begins, and returns the step that
        tells it that the request has ended (harmless once the connection is gone).
    */
    std::function<void()> beginNetworkActivity();

    //! Turns a JSON reply into the step that runs next on the main thread. Runs off the main
    //! thread.
    using ReplyStep = std::function<std::function<void()>(const QVariant &reply)>;
    /*!
        A task on the API session whose reply passes handleReceivedJSON():
        a JSON value goes to \a onReply, any failure to \a failed on the
        main thread.
    */
    std::shared_ptr<ZVXURLSessionTask> jsonTask(const ZVXURLRequest &request, ReplyStep onReply,
                                                Failure failed);

    ZVXURLSession *session = nullptr;
    ZVXURLSession *fileLoadingSession = nullptr;
    ZVXConnectionProgressObserver *progressObserver = nullptr;

private:
    ZuveroConnection *q;
    ZVXConnectionAPI *m_api;
    QPointer<QObject> m_apiObject;
    bool m_apiIsObject;
};
