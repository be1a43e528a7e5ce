#pragma once

#include "ZVXConnectionAPI.h"
#include "ZVXURLRequest.h"
#include "ZuveroConnection.h"

#include <QJsonObject>
#include <QJsonValue>
#include <QPointer>
#include <QUrl>

class ZVXConnectionProgressObserver;
class ZVXPreviews;
class ZVXURLSession;
class ZVXURLSessionTask;

/*
    The connection's request pipeline, reply checks and bookkeeping, kept
    out of its public header.

    Every API call is a ZuveroConnectionPrivate::Call: what to send and what
    to make of the answer. run() takes each one through the same steps, in
    this order: the network-activity bracket opens; registration runs first
    (for every call but the registration itself); the request is built with
    the standard headers at that moment (so it carries the token registration
    may just have made); the reply is checked off the main thread; and the
    call ends exactly once, on the main thread, with its success step or its
    failure, after which the bracket closes.
*/
class ZUVERO_EXPORT ZuveroConnectionPrivate
{
public:
    using Failure = std::function<void(const ZuveroError &error)>;
    //! Runs off the main thread with a reply that passed its checks; returns the step that ends
    //! the call on the main thread. It captures values made for it, never shared objects.
    using ReplyStep = std::function<std::function<void()>(const QJsonObject &reply)>;

    //! The two orders in which a reply is checked.
    enum class ReplyChecks {
        //! Every call's: the transport, an HTTP reply, JSON, then the status with the server's
        //! reason (handleReceivedJSON()).
        Standard,
        //! The unread-count fetch's own: the status comes before the JSON, and a reply without
        //! "unreadCount" is a bad server response (checkUnreadCountReply()).
        UnreadCount,
    };

    //! One API call, described.
    struct Call
    {
        //! After "/api/1.0"; it may carry a query.
        QString path{};
        QByteArray method = "GET";
        //! False only for the registration itself.
        bool registersFirst = true;
        ReplyChecks checks = ReplyChecks::Standard;
        //! Sets the body (and its type) once registration is done; an error ends the call.
        std::function<ZuveroError(ZVXURLRequest &request)> body{};
        //! Reports the upload of the body through the progress observer.
        ZuveroConnection::Progress progress{};
        //! Off the main thread, when the reply arrives, before it is checked.
        std::function<void(const ZVXURLSessionResult &result)> arrived{};
        //! Off the main thread, after a reply failed its checks.
        std::function<void(const ZVXURLSessionResult &result)> refused{};
        ReplyStep succeeded{};
        //! Every failure ends here, on the main thread: no facade, registration, body, transport,
        //! reply.
        Failure failed{};
    };

    ZuveroConnectionPrivate(ZuveroConnection *q, ZVXConnectionAPI *api);
    ~ZuveroConnectionPrivate();

    static ZuveroConnectionPrivate *get(ZuveroConnection *connection)
    {
        return connection->d.get();
    }

    //! The facade, or null once it is gone.
    ZVXConnectionAPI *api() const;

    //! Takes \a call through the pipeline. Main thread.
    void run(Call call);

    //! "https://<host>/api/1.0<path>", the path taken as written (it may carry a query).
    QUrl apiURLWithPath(const QString &path) const;
    //! A request on that URL with the standard headers, in their order.
    ZVXURLRequest requestWithPath(const QString &path) const;
    //! A GET for a file the server named, the token in its query; nothing without a URL.
    std::optional<ZVXURLRequest> cacheableRequestWithURL(const QUrl &url) const;
    //! A GET for a whole file: "?jwt=<token>" appended to the address as written.
    std::optional<ZVXURLRequest> fileRequestWithURL(const QUrl &url) const;
    //! Whether the token may go to \a url: the chat server itself, over HTTPS.
    bool isServerURL(const QUrl &url) const;

    /*!
        The JSON value (an object or an array) of a reply, or nothing after
        \a failure has been called (exactly once) with what went wrong.
        Touches nothing but the log, so it runs off the main thread.
    */
    static std::optional<QJsonValue> handleReceivedJSON(const ZVXURLSessionResult &result,
                                                        const Failure &failure);
    //! The unread-count fetch's reply object, or nothing after \a failure (called exactly once).
    static std::optional<QJsonObject> checkUnreadCountReply(const ZVXURLSessionResult &result,
                                                            const Failure &failure);

    // Values the server hands back, taken over on the main thread.
    void consumeUnreadCount(const QJsonValue &value);
    void consumePollingInterval(const QJsonValue &value);
    void consumeSourceInfo(const QJsonValue &value);
    void consumeSourceInfoWelcomeMessage(const QJsonValue &value);
    void consumeRegistrationReply(const QJsonObject &reply);

    //! The path and query of the message list: "/messages?since=...&until=...&limit=...".
    static QString messagesPath(const QDateTime &since, const QDateTime &until, quint32 limit);
    //! The messages of a message list reply, in its order. Runs off the main thread.
    static ZuveroChatMessageList messagesFromReply(const QJsonObject &reply);
    //! The "message" part of a send.
    QVariantMap messageBody(const ZuveroChatMessage &message) const;
    //! The body of a read mark.
    static QVariantMap markBody(const ZuveroChatMessageList &messages);
    //! The body of the registration.
    QVariantMap registrationBody() const;
    //! "model (machine); system version" of this computer.
    static QString deviceInfo();

    /*!
        Tells the facade that a request begins, and returns the step that
        tells it that the request has ended (harmless once the connection is gone).
    */
    std::function<void()> beginNetworkActivity();

    ZuveroConnection *const q;
    ZVXURLSession *session = nullptr;
    ZVXURLSession *fileLoadingSession = nullptr;
    ZVXConnectionProgressObserver *progressObserver = nullptr;
    std::unique_ptr<ZVXPreviews> previews;

private:
    void send(const std::shared_ptr<const Call> &call, const Failure &fail,
              const std::function<void()> &end);

    ZVXConnectionAPI *m_api;
    QPointer<QObject> m_apiObject;
    bool m_apiIsObject;
};
