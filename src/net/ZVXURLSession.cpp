#include "ZVXURLSession.h"

#include "ZVXClock.h"
#include "ZVXContentDecoding.h"
#include "ZVXLogging.h"
#include "ZVXMainThread.h"
#include "ZVXURLCache.h"
#include "ZuveroCertificateAuthorities_p.h"

#include <QHash>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QPointer>
#include <QThreadPool>

#include <cstring>
#include <deque>

using namespace std::chrono_literals;

using TaskPointer = std::shared_ptr<ZVXURLSessionTask>;
using WeakTask = std::weak_ptr<ZVXURLSessionTask>;

namespace {

ZuveroError transportError(QNetworkReply::NetworkError code, const QString &description)
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

// Qt turns these HTTP statuses into errors; for us a server that answered is no transport failure.
bool isHTTPStatusError(QNetworkReply::NetworkError code)
{
    return (code >= QNetworkReply::ContentAccessDenied
            && code <= QNetworkReply::UnknownContentError)
        || code == QNetworkReply::ProtocolInvalidOperationError
        || (code >= QNetworkReply::InternalServerError
            && code <= QNetworkReply::UnknownServerError);
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
void prepareResult(ZVXURLSessionResult &result, const ZVXURLRequest &request, ZVXURLCache *cache)
{
    if (!result.data || !result.response)
        return;
    // Qt decodes by itself only when it chose "Accept-Encoding".
    if (!request.valueForHTTPHeaderField("Accept-Encoding").isEmpty()) {
        const QByteArray encoding = result.response->valueForHTTPHeaderField("Content-Encoding");
        std::optional<QByteArray> decoded = ZVXContentDecoding::decode(encoding, *result.data);
        if (!decoded) {
            ZVXLogError(QStringLiteral("ZVXURLSession: cannot decode a %1 byte reply in \"%2\".")
                            .arg(result.data->size())
                            .arg(QString::fromLatin1(encoding)));
            result.data.reset();
            result.error = transportError(QNetworkReply::ProtocolFailure,
                                          QStringLiteral("The reply's body could not be decoded."));
            return;
        }
        result.data = std::move(decoded);
    }
    if (cache && request.httpMethod() == "GET" && result.response->statusCode == 200
        && !forbidsStoring(*result.response))
        cache->storeCachedResponse({*result.response, *result.data}, request.url());
}

/*
    A request body that can be read once. Qt sends a request again by itself when the server
    closes the connection before answering it, and for a body it can rewind it does so silently:
    an upload the server had already taken would arrive twice, with the client none the wiser.
    Given a body it cannot rewind, Qt reports the failure instead, and whether to send again is
    decided where every retry is decided, in the offline queue.
*/
class OneShotBody final : public QIODevice
{
public:
    OneShotBody(const QByteArray &body, QObject *parent)
        : QIODevice(parent)
        , m_body(body)
    {
        open(QIODevice::ReadOnly);
    }

    bool isSequential() const override { return true; }
    qint64 bytesAvailable() const override
    {
        return m_body.size() - m_position + QIODevice::bytesAvailable();
    }
    bool reset() override { return false; }

protected:
    qint64 readData(char *data, qint64 maxSize) override
    {
        const qint64 count = std::min(maxSize, qint64(m_body.size()) - m_position);
        std::memcpy(data, m_body.constData() + m_position, size_t(count));
        m_position += count;
        return count;
    }
    qint64 writeData(const char *, qint64) override { return -1; }

private:
    const QByteArray m_body;
    qint64 m_position = 0;
};

void deliver(QThreadPool &pool, ZVXURLSession::ReplyCheck check, ZVXURLSessionResult result,
             const ZVXURLRequest &request, ZVXURLCache *cache, bool fromNetwork)
{
    pool.start([check = std::move(check), result = std::move(result), request, cache,
                fromNetwork]() mutable {
        if (fromNetwork)
            prepareResult(result, request, cache);
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
    QPointer<QNetworkReply> reply;
    QNetworkAccessManager *manager = nullptr;
    QDateTime lastActivity;
    // Why we aborted the reply ourselves: a time-out or a cancellation.
    std::optional<QNetworkReply::NetworkError> endReason;
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

    QNetworkAccessManager *manager = nullptr;
    quint64 trustGeneration = 0;
    QSslConfiguration sslConfiguration;
    QHash<QNetworkAccessManager *, int> repliesPerManager;

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
    void replyFinished(const TaskPointer &task);
    void end(const TaskPointer &task, ZVXURLSessionResult result, bool fromNetwork);
    void stop(const TaskPointer &task, QNetworkReply::NetworkError reason);
    void scheduleIdleCheck(const WeakTask &task, std::chrono::milliseconds delay);
    QNetworkAccessManager *currentManager();
    void releaseManager(QNetworkAccessManager *manager);
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
    // The managers go before the state their replies' handlers use.
    const QList<QNetworkAccessManager *> managers = findChildren<QNetworkAccessManager *>();
    qDeleteAll(managers);
}

ZVXURLSessionConfiguration ZVXURLSession::configuration() const
{
    return d->configuration;
}

ZVXURLCache *ZVXURLSession::urlCache() const
{
    return d->cache.get();
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
            nullptr, false);
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
                    request, nullptr, false);
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
    QNetworkAccessManager *network = currentManager();
    ++repliesPerManager[network];

    QNetworkRequest networkRequest(request.url());
    for (const auto &[field, value] : request.allHTTPHeaderFields())
        networkRequest.setRawHeader(field, value);
    networkRequest.setSslConfiguration(sslConfiguration);
    const QByteArray body = request.httpBody();
    QNetworkReply *reply = nullptr;
    if (request.httpMethod() == "GET" && body.isEmpty()) {
        reply = network->get(networkRequest);
    } else {
        // Otherwise Qt reports only a few steps of an upload.
        networkRequest.setAttribute(QNetworkRequest::EmitAllUploadProgressSignalsAttribute, true);
        // Read straight from the one-shot body, which Qt must not copy into a buffer it could
        // send again.
        networkRequest.setAttribute(QNetworkRequest::DoNotBufferUploadDataAttribute, true);
        networkRequest.setHeader(QNetworkRequest::ContentLengthHeader, body.size());
        auto *device = new OneShotBody(body, nullptr);
        reply = network->sendCustomRequest(networkRequest, request.httpMethod(), device);
        device->setParent(reply);
    }
    task->d->reply = reply;
    task->d->manager = network;
    task->d->lastActivity = ZVXClock::currentTime();
    task->setSendCounts(0, body.size());
    task->setReceiveCounts(0, ZVXTransferCounters::UnknownSize);

    ZVXURLSessionTask *t = task.get();
    auto touch = [t] { t->d->lastActivity = ZVXClock::currentTime(); };
    // Qt ends every upload with a (0, 0) signal; the counts stay at what was sent.
    QObject::connect(reply, &QNetworkReply::uploadProgress, q,
                     [t, touch](qint64 sent, qint64 total) {
                         touch();
                         if (total > 0)
                             t->setSendCounts(sent, total);
                     });
    QObject::connect(
        reply, &QNetworkReply::downloadProgress, q, [t, touch](qint64 received, qint64 total) {
            touch();
            if (received == 0 && total == 0 && t->countOfBytesReceived() > 0)
                return;
            t->setReceiveCounts(received, total < 0 ? ZVXTransferCounters::UnknownSize : total);
        });
    QObject::connect(reply, &QNetworkReply::metaDataChanged, q, [t, touch, reply] {
        touch();
        const QVariant length = reply->header(QNetworkRequest::ContentLengthHeader);
        if (length.isValid() && t->countOfBytesReceived() == 0)
            t->setReceiveCounts(0, length.toLongLong());
    });
    const WeakTask weak = task;
    QObject::connect(reply, &QNetworkReply::finished, q, [this, weak] {
        if (TaskPointer task = weak.lock())
            replyFinished(task);
    });
    scheduleIdleCheck(weak,
                      request.timeoutInterval().value_or(configuration.timeoutIntervalForRequest));
}

void ZVXURLSession::Private::scheduleIdleCheck(const WeakTask &weak,
                                               std::chrono::milliseconds delay)
{
    // One check per period rather than a timer reset by every byte.
    ZVXClock::after(delay, q, [this, weak] {
        TaskPointer task = weak.lock();
        if (!task || task->d->state != ZVXURLSessionTask::State::Running || !task->d->reply)
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

void ZVXURLSession::Private::replyFinished(const TaskPointer &task)
{
    QNetworkReply *reply = task->d->reply;
    if (task->d->state != ZVXURLSessionTask::State::Running || !reply)
        return;
    task->d->reply = nullptr;
    reply->disconnect(q);
    reply->deleteLater();

    ZVXURLSessionResult result;
    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (status.isValid())
        result.response = ZVXURLResponse{reply->url(), status.toInt(), reply->rawHeaderPairs()};
    if (const auto reason = task->d->endReason) {
        result.error = transportError(*reason, describe(*reason));
    } else if (reply->error() == QNetworkReply::NoError
               || (status.isValid() && isHTTPStatusError(reply->error()))) {
        result.data = reply->readAll();
    } else {
        result.error = transportError(reply->error(), reply->errorString());
    }

    releaseManager(task->d->manager);
    const QString key = task->d->hostKey;
    if (auto it = hosts.find(key); it != hosts.end())
        --it->running;
    end(task, std::move(result), true);
    startWaiting(key);
}

void ZVXURLSession::Private::end(const TaskPointer &task, ZVXURLSessionResult result,
                                 bool fromNetwork)
{
    task->d->state = ZVXURLSessionTask::State::Completed;
    active.remove(task.get());
    deliver(checks, std::move(task->d->check), std::move(result), task->d->request, cache.get(),
            fromNetwork);
}

void ZVXURLSession::Private::stop(const TaskPointer &task, QNetworkReply::NetworkError reason)
{
    if (task->d->state != ZVXURLSessionTask::State::Running)
        return;
    task->d->endReason = reason;
    if (QNetworkReply *reply = task->d->reply) {
        reply->abort();
        replyFinished(task); // in case Qt did not finish the reply at once
        return;
    }
    if (auto it = hosts.find(task->d->hostKey); it != hosts.end())
        std::erase(it->waiting, task);
    end(task, {std::nullopt, std::nullopt, transportError(reason, describe(reason))}, false);
}

QNetworkAccessManager *ZVXURLSession::Private::currentManager()
{
    quint64 generation = 0;
    QSslConfiguration configuration = ZVXTrustStore::configuration(&generation);
    if (manager && generation == trustGeneration)
        return manager;
    // Qt reuses a verified connection whatever a request's own TLS settings say, so each
    // trust setup gets its own manager; the old one goes with its connections when idle.
    if (manager && repliesPerManager.value(manager) == 0) {
        manager->clearConnectionCache();
        manager->deleteLater();
    }
    manager = new QNetworkAccessManager(q);
    trustGeneration = generation;
    sslConfiguration = configuration;
    return manager;
}

void ZVXURLSession::Private::releaseManager(QNetworkAccessManager *network)
{
    auto it = repliesPerManager.find(network);
    if (it == repliesPerManager.end() || --it.value() > 0)
        return;
    repliesPerManager.erase(it);
    if (network != manager) {
        network->clearConnectionCache();
        network->deleteLater();
    }
}
