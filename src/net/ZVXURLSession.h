#pragma once

#include "ZVXTransferCounters.h"
#include "ZVXURLRequest.h"

#include <QObject>

#include <chrono>
#include <functional>
#include <memory>

class ZVXURLCache;
class ZVXURLSession;

struct ZUVERO_EXPORT ZVXURLSessionConfiguration
{
    //! Requests in flight per scheme, host and port; the rest wait in order.
    int httpMaximumConnectionsPerHost = 6;
    //! Longest wait for the next byte once a request is under way.
    std::chrono::milliseconds timeoutIntervalForRequest = std::chrono::seconds(60);
    //! Longest time from resume() to the end, waiting in the queue included.
    std::chrono::milliseconds timeoutIntervalForResource = std::chrono::seconds(300);
    ZVXURLRequest::CachePolicy requestCachePolicy
        = ZVXURLRequest::CachePolicy::UseProtocolCachePolicy;
    //! 0: no cache.
    qint64 urlCacheMemoryCapacity = 0;
    //! The largest reply body taken, as it arrives and once decoded; larger ones fail.
    qint64 maximumReplySize = 16 * 1024 * 1024;
    //! The largest head of a reply (status line and header fields) taken.
    qint64 maximumHeaderSize = 64 * 1024;
    //! How long a connection is kept open, unused, for the next request.
    std::chrono::milliseconds idleConnectionTimeout = std::chrono::seconds(30);

    //! API calls: one at a time per host, no cache, replies up to 16 MiB.
    static ZVXURLSessionConfiguration apiConfiguration();
    //! Files and previews: four per host, cached bytes first, a 4 MiB memory cache, files up to
    //! 64 MiB.
    static ZVXURLSessionConfiguration fileConfiguration();
};

/*!
    One request of a session. Created suspended; resume() starts it (or
    queues it behind the host's running requests). Its byte counters are
    those of the transfer.
*/
class ZUVERO_EXPORT ZVXURLSessionTask final : public ZVXTransferCounters,
                                              public std::enable_shared_from_this<ZVXURLSessionTask>
{
public:
    enum class State { Suspended, Running, Completed };

    ~ZVXURLSessionTask() override;

    quint64 taskIdentifier() const;
    ZVXURLRequest originalRequest() const;
    State state() const;

    //! Main thread.
    void resume();
    //! Ends the task with OperationCanceledError unless it has ended; resumed or not. Main thread.
    void cancel();

private:
    friend class ZVXURLSession;
    struct Private;
    explicit ZVXURLSessionTask(std::unique_ptr<Private> d);
    void endUnstarted();
    std::unique_ptr<Private> d;
};

/*!
    HTTP/1.1 over connections of its own (ZVXHTTPConnection), shaped by a
    configuration: a limit of requests in flight per host, a request and a
    resource time-out on the library's clock, bounds on a reply's head and
    body, an optional memory cache, the library's trusted certificate
    authorities, and gzip or deflate bodies decoded. Redirects are not followed (a reply with a
    3xx status is a reply like any other), and no request is sent twice but
    one without a body whose kept connection turned out closed.

    Each finished task's check runs on the session's own thread, one at a
    time; the step it returns then runs on the main thread. Every task that
    is resumed ends exactly once this way: with a reply, a transport error,
    a time-out, a cancellation, or the destruction of the session, which
    cancels what is left.

    Requests are made on the main thread.
*/
class ZUVERO_EXPORT ZVXURLSession : public QObject
{
    Q_OBJECT

public:
    using Completion = std::function<void()>;
    //! Runs off the main thread; the returned step (if any) runs next on the main thread.
    using ReplyCheck = std::function<Completion(const ZVXURLSessionResult &result)>;

    explicit ZVXURLSession(const ZVXURLSessionConfiguration &configuration,
                           QObject *parent = nullptr);
    ~ZVXURLSession() override;

    ZVXURLSessionConfiguration configuration() const;
    //! Null without a cache.
    ZVXURLCache *urlCache() const;
    //! For requests started from now on.
    void setMaximumReplySize(qint64 bytes);

    std::shared_ptr<ZVXURLSessionTask> dataTask(const ZVXURLRequest &request, ReplyCheck check);

private:
    friend class ZVXURLSessionTask;
    struct Private;
    std::unique_ptr<Private> d;
};
