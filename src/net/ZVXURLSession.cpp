#include "ZVXURLSession.h"

#include "ZVXClock.h"
#include "ZVXContentDecoding.h"
#include "ZVXHTTPConnection.h"
#include "ZVXLogging.h"
#include "ZVXMainThread.h"
#include "ZVXURLCache.h"
#include "ZuveroCertificateAuthorities_p.h"

#include <QHash>
#include <QNetworkReply>
#include <QPointer>
#include <QThreadPool>

#include <deque>

using namespace std::chrono_literals;

using TaskPointer = std::shared_ptr<ZVXURLSessionTask>;
using WeakTask = std::weak_ptr<ZVXURLSessionTask>;

namespace {

ZuveroError transportError(qint64 code, const QString &description)
{
    return ZuveroError::withDescription(ZuveroURLErrorDomain, code, description);
}

QString describe(QNetworkReply::NetworkError code)
{
    switch (code) {
    case QNetworkReply::TimeoutError:
        return QStringLiteral("The request timed out.");
    case QNetworkReply::OperationCanceledError:
        return QStringLiteral("The request was cancelled.");
    default:
        return QStringLiteral("The request failed.");
    }
}

QString hostKey(const QUrl &url)
{
    const QString scheme = url.scheme().toLower();
    const int port = url.port(scheme == QLatin1String("http") ? 80 : 443);
    return scheme + QLatin1String("://") + url.host().toLower() + QLatin1Char(':')
        + QString::number(port);
}

bool forbidsStoring(const ZVXURLResponse &response)
{
    return response.valueForHTTPHeaderField("Cache-Control").toLower().contains("no-store");
}

// Off the main thread: decodes what Qt left encoded and keeps cacheable replies.
void prepareResult(ZVXURLSessionResult &result, const ZVXURLRequest &request, ZVXURLCache *cache,
                   qint64 limit)
{
    if (!result.data || !result.response)
        return;
    // Whatever the request asked for: a body is usable only decoded.
    if (const QByteArray encoding = result.response->valueForHTTPHeaderField("Content-Encoding");
        !encoding.isEmpty()) {
        bool exceeded = false;
        std::optional<QByteArray> decoded
            = ZVXContentDecoding::decode(encoding, *result.data, qsizetype(limit), &exceeded);
        if (!decoded) {
            ZVXLogError(
                QStringLiteral("ZVXURLSession: cannot decode a %1 byte reply in \"%2\"%3.")
                    .arg(result.data->size())
                    .arg(QString::fromLatin1(encoding),
                         exceeded ? QStringLiteral(" within %1 bytes").arg(limit) : QString()));
            result.data.reset();
            result.error = exceeded
                ? transportError(
                    ZuveroURLErrorReplyTooLarge,
                    QStringLiteral("The reply decodes to more than %1 bytes.").arg(limit))
                : transportError(QNetworkReply::ProtocolFailure,
                                 QStringLiteral("The reply's body could not be decoded."));
            return;
        }
        result.data = std::move(decoded);
    }
    if (cache && request.httpMethod() == "GET" && result.response->statusCode == 200
        && !forbidsStoring(*result.response))
        cache->storeCachedResponse({*result.response, *result.data}, request.url());
}

void deliver(QThreadPool &pool, ZVXURLSession::ReplyCheck check, ZVXURLSessionResult result,
             const ZVXURLRequest &request, ZVXURLCache *cache, bool fromNetwork, qint64 limit)
{
    pool.start([check = std::move(check), result = std::move(result), request, cache, fromNetwork,
                limit]() mutable {
        if (fromNetwork)
            prepareResult(result, request, cache, limit);
        if (!check)
            return;
        if (ZVXURLSession::Completion step = check(result))
            ZVXMainThread::async(std::move(step));
    });
}

} // namespace

// --- Configuration -----------------------------------------------------------

ZVXURLSessionConfiguration ZVXURLSessionConfiguration::apiConfiguration()
{
    ZVXURLSessionConfiguration configuration;
    // API calls to the server are serialised by the transport on purpose.
    configuration.httpMaximumConnectionsPerHost = 1;
    return configuration;
}

ZVXURLSessionConfiguration ZVXURLSessionConfiguration::fileConfiguration()
{
    ZVXURLSessionConfiguration configuration;
    configuration.httpMaximumConnectionsPerHost = 4;
    configuration.maximumReplySize = 64 * 1024 * 1024;
    configuration.requestCachePolicy = ZVXURLRequest::CachePolicy::ReturnCacheDataElseLoad;
    configuration.urlCacheMemoryCapacity = 4 * 1024 * 1024;
    return configuration;
}

// --- Task --------------------------------------------------------------------

struct ZVXURLSessionTask::Private
{
    QPointer<ZVXURLSession> session;
    quint64 identifier = 0;
    ZVXURLRequest request;
    ZVXURLSession::ReplyCheck check;
    State state = State::Suspended;
    QString hostKey;
    QPointer<ZVXHTTPConnection> connection;
    QDateTime lastActivity;
    // A request without a body is sent again once when a kept connection turns out closed.
    bool sentAgain = false;
};

ZVXURLSessionTask::ZVXURLSessionTask(std::unique_ptr<Private> d)
    : d(std::move(d))
{ }

ZVXURLSessionTask::~ZVXURLSessionTask() = default;

quint64 ZVXURLSessionTask::taskIdentifier() const
{
    return d->identifier;
}

ZVXURLRequest ZVXURLSessionTask::originalRequest() const
{
    return d->request;
}

ZVXURLSessionTask::State ZVXURLSessionTask::state() const
{
    return d->state;
}

// --- Session -----------------------------------------------------------------

struct ZVXURLSession::Private
{
    struct HostQueue
    {
        int running = 0;
        std::deque<TaskPointer> waiting;
    };

    ZVXURLSession *q;
    ZVXURLSessionConfiguration configuration;
    std::unique_ptr<ZVXURLCache> cache;

    // Connections kept open between exchanges, by host; all made with this trust setup.
    QHash<QString, QList<QPointer<ZVXHTTPConnection>>> idle;
    std::optional<quint64> trustGeneration;
    QSslConfiguration sslConfiguration;

    // Resumed and not yet ended; the session keeps them alive.
    QHash<ZVXURLSessionTask *, TaskPointer> active;
    QHash<QString, HostQueue> hosts;
    quint64 lastIdentifier = 0;
    bool invalidated = false;

    // One check at a time, in the order the tasks end. Destroyed first: waits for running checks.
    QThreadPool checks;

    void enqueue(const TaskPointer &task);
    void startWaiting(const QString &key);
    void start(const TaskPointer &task);
    void exchangeFinished(const TaskPointer &task, const ZVXURLSessionResult &result,
                          bool closedBeforeAnswer);
    void end(const TaskPointer &task, ZVXURLSessionResult result, bool fromNetwork);
    void stop(const TaskPointer &task, QNetworkReply::NetworkError reason);
    void scheduleIdleCheck(const WeakTask &task, std::chrono::milliseconds delay);
    //! A kept connection to the task's host, or a new one, for the current trust setup.
    ZVXHTTPConnection *connectionFor(const ZVXURLRequest &request, const QString &key, bool fresh);
    void keep(ZVXHTTPConnection *connection, const QString &key);
};

ZVXURLSession::ZVXURLSession(const ZVXURLSessionConfiguration &configuration, QObject *parent)
    : QObject(parent)
    , d(std::make_unique<Private>())
{
    d->q = this;
    d->configuration = configuration;
    d->configuration.httpMaximumConnectionsPerHost
        = std::max(1, configuration.httpMaximumConnectionsPerHost);
    if (configuration.urlCacheMemoryCapacity > 0)
        d->cache = std::make_unique<ZVXURLCache>(configuration.urlCacheMemoryCapacity);
    d->checks.setMaxThreadCount(1);
    // The checking thread stays: otherwise, after 30 s without a reply (a poll interval longer
    // than that), every reply would wait for a thread to start.
    d->checks.setExpiryTimeout(-1);
}

ZVXURLSession::~ZVXURLSession()
{
    d->invalidated = true;
    const QList<TaskPointer> tasks = d->active.values();
    for (const TaskPointer &task : tasks)
        d->stop(task, QNetworkReply::OperationCanceledError);
    d->checks.waitForDone();
    // The connections go before the state their handlers use.
    const QList<ZVXHTTPConnection *> connections = findChildren<ZVXHTTPConnection *>();
    qDeleteAll(connections);
}

ZVXURLSessionConfiguration ZVXURLSession::configuration() const
{
    return d->configuration;
}

ZVXURLCache *ZVXURLSession::urlCache() const
{
    return d->cache.get();
}

void ZVXURLSession::setMaximumReplySize(qint64 bytes)
{
    d->configuration.maximumReplySize = bytes;
}

std::shared_ptr<ZVXURLSessionTask> ZVXURLSession::dataTask(const ZVXURLRequest &request,
                                                           ReplyCheck check)
{
    ZVXMainThread::assertMainThread();
    auto p = std::make_unique<ZVXURLSessionTask::Private>();
    p->session = this;
    p->identifier = ++d->lastIdentifier;
    p->request = request;
    p->check = std::move(check);
    p->hostKey = hostKey(request.url());
    TaskPointer task(new ZVXURLSessionTask(std::move(p)));
    task->setSendCounts(0, request.httpBody().size());
    return task;
}

void ZVXURLSessionTask::resume()
{
    if (d->state != State::Suspended)
        return;
    d->state = State::Running;
    if (d->session)
        d->session->d->enqueue(shared_from_this());
    else
        endUnstarted();
}

void ZVXURLSessionTask::cancel()
{
    if (d->state == State::Suspended)
        endUnstarted();
    else if (d->session && d->state == State::Running)
        d->session->d->stop(shared_from_this(), QNetworkReply::OperationCanceledError);
}

void ZVXURLSessionTask::endUnstarted()
{
    d->state = State::Completed;
    const auto reason = QNetworkReply::OperationCanceledError;
    deliver(d->session ? d->session->d->checks : *QThreadPool::globalInstance(),
            std::move(d->check),
            {std::nullopt, std::nullopt, transportError(reason, describe(reason))}, d->request,
            nullptr, false, 0);
}

void ZVXURLSession::Private::enqueue(const TaskPointer &task)
{
    const ZVXURLRequest &request = task->d->request;
    const auto policy = request.cachePolicy().value_or(configuration.requestCachePolicy);
    if (policy == ZVXURLRequest::CachePolicy::ReturnCacheDataElseLoad && cache
        && request.httpMethod() == "GET") {
        if (std::optional<ZVXCachedURLResponse> cached = cache->cachedResponse(request.url())) {
            task->d->state = ZVXURLSessionTask::State::Completed;
            deliver(checks, std::move(task->d->check), {cached->data, cached->response, {}},
                    request, nullptr, false, 0);
            return;
        }
    }

    active.insert(task.get(), task);
    const WeakTask weak = task;
    ZVXClock::after(configuration.timeoutIntervalForResource, q, [this, weak] {
        if (TaskPointer task = weak.lock())
            stop(task, QNetworkReply::TimeoutError);
    });
    hosts[task->d->hostKey].waiting.push_back(task);
    startWaiting(task->d->hostKey);
}

void ZVXURLSession::Private::startWaiting(const QString &key)
{
    auto it = hosts.find(key);
    if (it == hosts.end())
        return;
    while (!invalidated && it->running < configuration.httpMaximumConnectionsPerHost
           && !it->waiting.empty()) {
        TaskPointer next = std::move(it->waiting.front());
        it->waiting.pop_front();
        ++it->running;
        start(next);
        it = hosts.find(key); // start() may have ended a task and touched the table
    }
    if (it != hosts.end() && it->running == 0 && it->waiting.empty())
        hosts.erase(it);
}

void ZVXURLSession::Private::start(const TaskPointer &task)
{
    const ZVXURLRequest &request = task->d->request;
    ZVXHTTPConnection *connection = connectionFor(request, task->d->hostKey, task->d->sentAgain);
    task->d->connection = connection;
    task->d->lastActivity = ZVXClock::currentTime();
    task->setSendCounts(0, request.httpBody().size());
    task->setReceiveCounts(0, ZVXTransferCounters::UnknownSize);

    ZVXURLSessionTask *t = task.get();
    QObject::connect(connection, &ZVXHTTPConnection::activity, q,
                     [t] { t->d->lastActivity = ZVXClock::currentTime(); });
    QObject::connect(connection, &ZVXHTTPConnection::uploadProgress, q,
                     [t](qint64 sent, qint64 total) { t->setSendCounts(sent, total); });
    QObject::connect(connection, &ZVXHTTPConnection::downloadProgress, q,
                     [t](qint64 received, qint64 total) { t->setReceiveCounts(received, total); });
    const WeakTask weak = task;
    QObject::connect(connection, &ZVXHTTPConnection::finished, q,
                     [this, weak](const ZVXURLSessionResult &result, bool closedBeforeAnswer) {
                         if (TaskPointer task = weak.lock())
                             exchangeFinished(task, result, closedBeforeAnswer);
                     });
    connection->send(request);
    scheduleIdleCheck(weak,
                      request.timeoutInterval().value_or(configuration.timeoutIntervalForRequest));
}

ZVXHTTPConnection *ZVXURLSession::Private::connectionFor(const ZVXURLRequest &request,
                                                         const QString &key, bool fresh)
{
    quint64 generation = 0;
    QSslConfiguration tls = ZVXTrustStore::configuration(&generation);
    if (generation != trustGeneration) {
        // Connections verified under other trust are not reused.
        for (const auto &connections : std::as_const(idle)) {
            for (ZVXHTTPConnection *connection : connections)
                delete connection;
        }
        idle.clear();
        trustGeneration = generation;
        sslConfiguration = tls;
    }
    QList<QPointer<ZVXHTTPConnection>> &kept = idle[key];
    while (!fresh && !kept.isEmpty()) {
        ZVXHTTPConnection *connection = kept.takeLast();
        if (connection && connection->isReusable()) {
            connection->disconnect(q);
            return connection;
        }
        delete connection;
    }
    QUrl origin = request.url();
    origin.setPath({});
    origin.setQuery(QString());
    origin.setFragment({});
    return new ZVXHTTPConnection(origin, sslConfiguration,
                                 {configuration.maximumHeaderSize, configuration.maximumReplySize},
                                 q);
}

void ZVXURLSession::Private::keep(ZVXHTTPConnection *connection, const QString &key)
{
    connection->disconnect(q);
    if (invalidated || !connection->isReusable()) {
        connection->deleteLater();
        return;
    }
    idle[key].append(connection);
    // A connection left unused for a while is let go; the server would close it anyway.
    const QPointer<ZVXHTTPConnection> weak(connection);
    ZVXClock::after(configuration.idleConnectionTimeout, connection, [this, weak, key] {
        auto it = idle.find(key);
        if (!weak || it == idle.end() || !it->contains(weak))
            return;
        it->removeAll(weak);
        weak->deleteLater();
    });
}

void ZVXURLSession::Private::scheduleIdleCheck(const WeakTask &weak,
                                               std::chrono::milliseconds delay)
{
    // One check per period rather than a timer reset by every byte.
    ZVXClock::after(delay, q, [this, weak] {
        TaskPointer task = weak.lock();
        if (!task || task->d->state != ZVXURLSessionTask::State::Running || !task->d->connection)
            return;
        const auto timeout
            = task->d->request.timeoutInterval().value_or(configuration.timeoutIntervalForRequest);
        const std::chrono::milliseconds idle{
            task->d->lastActivity.msecsTo(ZVXClock::currentTime())};
        if (idle >= timeout)
            stop(task, QNetworkReply::TimeoutError);
        else
            scheduleIdleCheck(weak, timeout - idle);
    });
}

void ZVXURLSession::Private::exchangeFinished(const TaskPointer &task,
                                              const ZVXURLSessionResult &result,
                                              bool closedBeforeAnswer)
{
    ZVXHTTPConnection *connection = task->d->connection;
    if (task->d->state != ZVXURLSessionTask::State::Running || !connection)
        return;
    task->d->connection = nullptr;
    const QString key = task->d->hostKey;
    const ZVXURLRequest &request = task->d->request;
    // A kept connection the server had let go: a request that changes nothing goes again, once,
    // on a new one. One with a body never does: only the offline queue decides to send again.
    if (closedBeforeAnswer && !task->d->sentAgain && request.httpBody().isEmpty()
        && (request.httpMethod() == "GET" || request.httpMethod() == "HEAD")) {
        connection->disconnect(q);
        connection->deleteLater();
        task->d->sentAgain = true;
        start(task);
        return;
    }
    keep(connection, key);
    if (auto it = hosts.find(key); it != hosts.end())
        --it->running;
    end(task, result, true);
    startWaiting(key);
}

void ZVXURLSession::Private::end(const TaskPointer &task, ZVXURLSessionResult result,
                                 bool fromNetwork)
{
    task->d->state = ZVXURLSessionTask::State::Completed;
    active.remove(task.get());
    deliver(checks, std::move(task->d->check), std::move(result), task->d->request, cache.get(),
            fromNetwork, configuration.maximumReplySize);
}

void ZVXURLSession::Private::stop(const TaskPointer &task, QNetworkReply::NetworkError reason)
{
    if (task->d->state != ZVXURLSessionTask::State::Running)
        return;
    if (ZVXHTTPConnection *connection = task->d->connection) {
        task->d->connection = nullptr;
        QString description = describe(reason);
        if (reason == QNetworkReply::TimeoutError && connection->isInsideHead())
            description = QStringLiteral("The reply's header fields did not end in time.");
        connection->disconnect(q);
        connection->abort();
        connection->deleteLater();
        const QString key = task->d->hostKey;
        if (auto it = hosts.find(key); it != hosts.end())
            --it->running;
        end(task, {std::nullopt, std::nullopt, transportError(reason, description)}, false);
        startWaiting(key);
        return;
    }
    if (auto it = hosts.find(task->d->hostKey); it != hosts.end())
        std::erase(it->waiting, task);
    end(task, {std::nullopt, std::nullopt, transportError(reason, describe(reason))}, false);
}
