#include "ZuveroConnection_p.h"

#include "ZVXClock.h"
#include "ZVXConnectionProgressObserver.h"
#include "ZVXJSON.h"
#include "ZVXLocalization.h"
#include "ZVXLogging.h"
#include "ZVXMainThread.h"
#include "ZVXModelValues.h"
#include "ZVXMultipart.h"
#include "ZVXPreviews.h"
#include "ZVXURLSession.h"
#include "ZuveroData.h"

#include <QCoreApplication>
#include <QFile>
#include <QGuiApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSysInfo>

#include <cmath>

namespace {

// The longest body quoted in a log line; a server page can be large.
constexpr qsizetype LoggedBodyLimit = 2048;

ZuveroError facadeGone()
{
    return ZuveroError::withDescription(QString(ZuveroErrorDomain), ZuveroErrorNoHTTPResponse,
                                        QStringLiteral("The connection's facade is gone."));
}

ZuveroError badServerResponse()
{
    return ZuveroError::withDescription(QString(ZuveroURLErrorDomain),
                                        ZuveroURLErrorBadServerResponse,
                                        QStringLiteral("The server returned a bad response."));
}

QString describeHeaders(const ZVXHTTPHeaderFields &fields)
{
    QVariantMap headers;
    for (const auto &[name, value] : fields)
        headers.insert(QString::fromLatin1(name), QString::fromLatin1(value));
    return ZVXJSON::describe(headers);
}

QString describeError(const ZuveroError &error)
{
    return error.isNull()
        ? QStringLiteral("(null)")
        : QStringLiteral("%1 %2: %3")
              .arg(error.domain(), QString::number(error.code()), error.localizedDescription());
}

// JSON text of an object or an array; the parser's error otherwise.
std::optional<QJsonValue> parseJSON(const QByteArray &body, ZuveroError *error)
{
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(body, &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        *error = ZuveroError::withDescription(QString(ZuveroJSONErrorDomain), ZuveroJSONErrorParse,
                                              QStringLiteral("JSON text did not parse: %1 at "
                                                             "offset %2")
                                                  .arg(parseError.errorString())
                                                  .arg(parseError.offset));
        return std::nullopt;
    }
    return document.isObject() ? QJsonValue(document.object()) : QJsonValue(document.array());
}

// A count the server sends: a whole number a double holds exactly (a flag counts as one).
std::optional<qint64> countOf(const QJsonValue &value)
{
    if (value.isBool())
        return value.toBool() ? 1 : 0;
    if (!value.isDouble())
        return std::nullopt;
    const double number = value.toDouble();
    constexpr double Largest = 9007199254740992.0; // 2^53
    if (!(number >= 0 && number <= Largest) || number != std::floor(number))
        return std::nullopt;
    return qint64(number);
}

std::optional<QString> textOf(const QJsonValue &value)
{
    return value.isString() ? std::optional<QString>(value.toString()) : std::nullopt;
}

// JSON bodies are written by the library's own writer, which refuses what JSON cannot hold.
std::function<ZuveroError(ZVXURLRequest &)> jsonBody(const QVariantMap &body)
{
    return [body](ZVXURLRequest &request) {
        ZuveroError error;
        const std::optional<QByteArray> json = ZVXJSON::serialize(body, &error);
        if (json)
            request.setHTTPBody(*json);
        return error;
    };
}

// The step of a call whose reply only brings the unread count.
ZuveroConnectionPrivate::ReplyStep takeUnreadCount(QPointer<ZuveroConnection> self,
                                                   std::function<void()> then)
{
    return [self, then](const QJsonObject &reply) -> std::function<void()> {
        return [self, then, count = reply.value(QLatin1String("unreadCount"))] {
            if (self)
                ZuveroConnectionPrivate::get(self)->consumeUnreadCount(count);
            then();
        };
    };
}

} // namespace

// --- Private ------------------------------------------------------------------

ZuveroConnectionPrivate::ZuveroConnectionPrivate(ZuveroConnection *q, ZVXConnectionAPI *api)
    : q(q)
    , m_api(api)
    , m_apiObject(dynamic_cast<QObject *>(api))
    , m_apiIsObject(m_apiObject != nullptr)
{
    session = new ZVXURLSession(ZVXURLSessionConfiguration::apiConfiguration(), q);
    fileLoadingSession = new ZVXURLSession(ZVXURLSessionConfiguration::fileConfiguration(), q);
    progressObserver = new ZVXConnectionProgressObserver(q);
    previews = std::make_unique<ZVXPreviews>(this);
}

ZuveroConnectionPrivate::~ZuveroConnectionPrivate() = default;

ZVXConnectionAPI *ZuveroConnectionPrivate::api() const
{
    // The facade is held weakly: once it is destroyed, nothing is read from it.
    return !m_apiIsObject || m_apiObject ? m_api : nullptr;
}

std::function<void()> ZuveroConnectionPrivate::beginNetworkActivity()
{
    if (ZVXConnectionAPI *facade = api())
        facade->beginNetworkActivity();
    return [self = QPointer<ZuveroConnection>(q)] {
        if (ZVXConnectionAPI *facade = self ? self->d->api() : nullptr)
            facade->endNetworkActivity();
    };
}

void ZuveroConnectionPrivate::run(Call description)
{
    ZVXMainThread::assertMainThread();
    const auto call = std::make_shared<const Call>(std::move(description));
    ZVXConnectionAPI *facade = api();
    if (!facade) {
        call->failed(facadeGone());
        return;
    }
    const std::function<void()> end = beginNetworkActivity();
    const Failure fail = [call, end](const ZuveroError &error) {
        end();
        call->failed(error);
    };
    if (!call->registersFirst) {
        send(call, fail, end);
        return;
    }
    facade->registerIfNeeded([self = QPointer<ZuveroConnection>(q), call, fail,
                              end](bool success, const ZuveroError &error) {
        // Registration answers on the main thread; anything else is a fault of ours.
        ZVXMainThread::assertMainThread();
        if (!success)
            fail(error);
        else if (!self)
            fail(facadeGone());
        else
            self->d->send(call, fail, end);
    });
}

void ZuveroConnectionPrivate::send(const std::shared_ptr<const Call> &call, const Failure &fail,
                                   const std::function<void()> &end)
{
    ZVXURLRequest request = requestWithPath(call->path);
    request.setHTTPMethod(call->method);
    if (call->body) {
        if (const ZuveroError error = call->body(request))
            return fail(error);
    }

    // The observer's last report comes before the call's end: 1.0 after a success, 0.0 after a
    // failure.
    auto task = std::make_shared<std::shared_ptr<ZVXURLSessionTask>>();
    const QPointer<ZuveroConnection> self(q);
    const auto stopProgress = [self, task, observed = bool(call->progress)](double fraction) {
        if (observed && self && *task)
            self->d->progressObserver->removeTask(*task, fraction, fraction);
    };
    const Failure failed = [stopProgress, fail](const ZuveroError &error) {
        stopProgress(0.0);
        fail(error);
    };

    *task = session->dataTask(
        request,
        [call, failed, stopProgress,
         end](const ZVXURLSessionResult &result) -> ZVXURLSession::Completion {
            if (call->arrived)
                call->arrived(result);
            ZuveroError error;
            const Failure note = [&error](const ZuveroError &e) { error = e; };
            std::optional<QJsonObject> reply;
            if (call->checks == ReplyChecks::UnreadCount) {
                reply = checkUnreadCountReply(result, note);
            } else if (const std::optional<QJsonValue> json = handleReceivedJSON(result, note)) {
                // Nothing but the status is checked: a reply that is no object reads as an empty
                // one.
                reply = json->toObject();
            }
            if (!reply) {
                if (call->refused)
                    call->refused(result);
                return [failed, error] { failed(error); };
            }
            std::function<void()> step = call->succeeded(*reply);
            return [stopProgress, end, step] {
                stopProgress(1.0);
                end();
                step();
            };
        });
    if (call->progress)
        progressObserver->addTask(*task, call->progress);
    (*task)->resume();
}

QUrl ZuveroConnectionPrivate::apiURLWithPath(const QString &path) const
{
    const QString host = api() ? api()->hostname() : QString();
    return QUrl(
        QStringLiteral("https://%1/api/%2%3").arg(host, ZuveroConnection::serverApiVersion(), path),
        QUrl::StrictMode);
}

ZVXURLRequest ZuveroConnectionPrivate::requestWithPath(const QString &path) const
{
    ZVXURLRequest request(apiURLWithPath(path));
    ZVXConnectionAPI *facade = api();
    request.setValue("gzip,deflate", "Accept-Encoding");
    request.setValue(facade ? facade->language().toUtf8() : QByteArray(), "Accept-Language");
    request.setValue("application/json", "Accept");
    request.setValue("utf-8", "Accept-Charset");
    request.setValue("application/json", "Content-Type");
    // The server's protocol knows its clients by this name.
    request.setValue("iOS", "X-Zuvero-Platform");
    request.setValue(facade ? facade->sdkVersion().toUtf8() : QByteArray(), "X-Zuvero-Sdk-Version");
    // The token is the only credential, and it is left out entirely when there is none.
    if (const std::optional<QString> jwt = facade ? facade->jwt() : std::nullopt)
        request.setValue(jwt->toUtf8(), "X-ZVL-JWT");
    return request;
}

std::optional<ZVXURLRequest> ZuveroConnectionPrivate::cacheableRequestWithURL(const QUrl &url) const
{
    if (url.isEmpty())
        return std::nullopt;
    ZVXURLRequest request(url);
    request.setCachePolicy(ZVXURLRequest::CachePolicy::ReturnCacheDataElseLoad);
    request.setTimeoutInterval(std::chrono::seconds(60));
    // The token goes only to the server it was made for, over TLS: a file address names any
    // host the server (or whoever wrote the message) chose.
    const std::optional<QString> jwt = isServerURL(url) && api() ? api()->jwt() : std::nullopt;
    if (jwt) {
        QString query = url.query(QUrl::FullyEncoded);
        if (!query.isEmpty())
            query += QLatin1Char('&');
        query += QStringLiteral("jwt=") + *jwt;
        QUrl withToken = url;
        withToken.setQuery(query, QUrl::StrictMode);
        // A plain request: the file session's own policy and time-out apply.
        request = ZVXURLRequest(withToken);
    }
    request.setHTTPMethod("GET");
    return request;
}

bool ZuveroConnectionPrivate::isServerURL(const QUrl &url) const
{
    const QUrl server = apiURLWithPath(QString());
    return url.scheme() == QLatin1String("https")
        && url.host().compare(server.host(), Qt::CaseInsensitive) == 0
        && url.port(443) == server.port(443);
}

std::optional<ZVXURLRequest> ZuveroConnectionPrivate::fileRequestWithURL(const QUrl &url) const
{
    if (url.isEmpty())
        return std::nullopt;
    QUrl address = url;
    // The server reads the token from whatever follows the address as written, so it is
    // appended rather than merged into a query the address may already have.
    if (const std::optional<QString> jwt = isServerURL(url) && api() ? api()->jwt() : std::nullopt)
        address = QUrl(url.toString(QUrl::FullyEncoded) + QStringLiteral("?jwt=") + *jwt,
                       QUrl::StrictMode);
    ZVXURLRequest request(address);
    request.setHTTPMethod("GET");
    return request;
}

std::optional<QJsonValue>
ZuveroConnectionPrivate::handleReceivedJSON(const ZVXURLSessionResult &result,
                                            const Failure &failure)
{
    if (!result.data) {
        failure(result.error);
        return std::nullopt;
    }
    if (result.data->isEmpty() && !result.error.isNull() && !result.response) {
        ZVXLog(QStringLiteral("Timeout-like error: %1").arg(describeError(result.error)));
        failure(result.error);
        return std::nullopt;
    }
    if (!result.response) {
        ZVXLog(QStringLiteral("EXPECTED HTTP RESPONSE, GOT THIS: (null) Error: %1")
                   .arg(describeError(result.error)));
        failure(!result.error.isNull() ? result.error
                                       : ZuveroError::withDescription(
                                           QString(ZuveroErrorDomain), ZuveroErrorNoHTTPResponse,
                                           ZVXLocalization::hostString(
                                               QStringLiteral("Non-HTTP response received."))));
        return std::nullopt;
    }
    const int status = result.response->statusCode;
    ZuveroError parseError;
    const std::optional<QJsonValue> json = parseJSON(*result.data, &parseError);
    if (!json) {
        const QByteArray body = result.data->left(LoggedBodyLimit);
        ZVXLog(QStringLiteral(
                   "EXPECTED JSON, GOT THIS: %1 (%2) [http status code: %3] response headers: %4")
                   .arg(QString::fromUtf8(body), ZVXDescribeBytes(body), QString::number(status),
                        describeHeaders(result.response->headerFields)));
        // The parser's error, as the callers know it, with what the server said it was.
        failure(ZuveroError(parseError.domain(), parseError.code(),
                            {{ZuveroLocalizedDescriptionKey,
                              QStringLiteral("The server answered with HTTP status %1 and a body "
                                             "that is not JSON (%2).")
                                  .arg(status)
                                  .arg(parseError.localizedDescription())},
                             {ZuveroHTTPStatusCodeKey, status}}));
        return std::nullopt;
    }
    if (status >= 200 && status < 300)
        return json;

    const QJsonObject reply = json->toObject();
    const std::optional<QString> localizedError
        = textOf(reply.value(QLatin1String("localizedError")));
    const std::optional<QString> error = textOf(reply.value(QLatin1String("error")));
    const QString reason = localizedError.value_or(error.value_or(QStringLiteral("Server Error")));
    ZVXLog(QStringLiteral("ZuveroConnection: received HTTP code %1: %2")
               .arg(QString::number(status), reason));
    failure(ZuveroError(QString(ZuveroErrorDomain), status,
                        {{ZuveroLocalizedDescriptionKey, reason},
                         {QStringLiteral("debugMessage"),
                          error.value_or(QStringLiteral("unknown error from backend"))}}));
    return std::nullopt;
}

std::optional<QJsonObject>
ZuveroConnectionPrivate::checkUnreadCountReply(const ZVXURLSessionResult &result,
                                               const Failure &failure)
{
    // Nothing is logged on this path.
    const auto fail = [&failure](const ZuveroError &error) {
        failure(error);
        return std::nullopt;
    };
    if (!result.data)
        return fail(result.error);
    if (result.data->isEmpty() && !result.response && !result.error.isNull())
        return fail(result.error);
    if (!result.response)
        return fail(badServerResponse());
    const int status = result.response->statusCode;
    if (status < 200 || status >= 300)
        return fail(ZuveroError(QString(ZuveroHTTPErrorDomain), status));
    ZuveroError parseError;
    const std::optional<QJsonValue> json = parseJSON(*result.data, &parseError);
    if (!json)
        return fail(parseError);
    const QJsonObject reply = json->toObject();
    if (!reply.contains(QLatin1String("unreadCount"))
        || !countOf(reply.value(QLatin1String("unreadCount"))))
        return fail(badServerResponse());
    return reply;
}

void ZuveroConnectionPrivate::consumeUnreadCount(const QJsonValue &value)
{
    // Numbers only (a flag counts as one): a count sent as text is ignored, and so is one that is
    // no count at all.
    if (!value.isDouble() && !value.isBool())
        return;
    const std::optional<qint64> count = countOf(value);
    if (!count) {
        ZVXLog(QStringLiteral("ZuveroConnection: ignoring an unread count that is not a whole "
                              "number from 0 to 2^53: %1")
                   .arg(value.toDouble()));
        return;
    }
    if (api())
        api()->updateUnreadCount(*count);
}

void ZuveroConnectionPrivate::consumePollingInterval(const QJsonValue &value)
{
    if (!(value.isDouble() || value.isBool()) || !api())
        return;
    const double seconds = value.toVariant().toDouble();
    if (seconds < 0) {
        ZVXLog(QStringLiteral("ZuveroConnection: ignoring a negative polling interval: %1")
                   .arg(seconds));
        return;
    }
    api()->setPollingInterval(seconds);
    ZVXLog(QStringLiteral("Set polling interval: %1 sec").arg(seconds, 0, 'f', 1));
}

void ZuveroConnectionPrivate::consumeSourceInfo(const QJsonValue &value)
{
    if (value.isObject())
        consumeSourceInfoWelcomeMessage(value.toObject().value(QLatin1String("welcomeMessage")));
}

void ZuveroConnectionPrivate::consumeSourceInfoWelcomeMessage(const QJsonValue &value)
{
    if (value.isString() && api())
        api()->updateWelcomeMessage(value.toString());
}

void ZuveroConnectionPrivate::consumeRegistrationReply(const QJsonObject &reply)
{
    consumeUnreadCount(reply.value(QLatin1String("unreadCount")));
    consumePollingInterval(reply.value(QLatin1String("pollingInterval")));
    consumeSourceInfo(reply.value(QLatin1String("sourceInfo")));
}

QString ZuveroConnectionPrivate::messagesPath(const QDateTime &since, const QDateTime &until,
                                              quint32 limit)
{
    // Without a limit the query keeps its trailing "&" (or is a bare "?"); the server expects it.
    QString path = QStringLiteral("/messages?");
    if (since.isValid())
        path += QStringLiteral("since=%1&").arg(ZVXModelValues::wholeSeconds(since));
    if (until.isValid())
        path += QStringLiteral("until=%1&").arg(ZVXModelValues::wholeSeconds(until));
    if (limit != 0)
        path += QStringLiteral("limit=%1").arg(limit);
    return path;
}

ZuveroChatMessageList ZuveroConnectionPrivate::messagesFromReply(const QJsonObject &reply)
{
    // Entries that do not read as messages are dropped (each logs why).
    ZuveroChatMessageList messages;
    const QJsonArray list = reply.value(QLatin1String("messages")).toArray();
    messages.reserve(list.size());
    for (const QJsonValue &entry : list) {
        if (ZuveroChatMessagePtr message = ZuveroChatMessage::initWithJSON(entry))
            messages.append(message);
    }
    return messages;
}

QVariantMap ZuveroConnectionPrivate::messageBody(const ZuveroChatMessage &message) const
{
    QVariantMap body;
    body.insert(QStringLiteral("uuid"), message.uuid());
    body.insert(QStringLiteral("sender"), message.sender());
    if (message.text() && !message.text()->isEmpty())
        body.insert(QStringLiteral("text"), *message.text());
    if (message.locationDictionary())
        body.insert(QStringLiteral("location"), *message.locationDictionary());
    if (const ZVXConnectionAPI::MessageContext context = api() ? api()->messageContext() : nullptr)
        body.insert(QStringLiteral("context"), *context);
    const ZuveroChatAttachmentList attached
        = message.attachments().value_or(ZuveroChatAttachmentList());
    if (!attached.isEmpty()) {
        QVariantList attachments;
        for (const ZuveroChatAttachmentPtr &attachment : attached) {
            if (!attachment->uuid().isEmpty() && attachment->data())
                attachments.append(QVariantMap{{QStringLiteral("uuid"), attachment->uuid()}});
        }
        body.insert(QStringLiteral("attachments"), attachments);
    }
    return body;
}

QVariantMap ZuveroConnectionPrivate::markBody(const ZuveroChatMessageList &messages)
{
    QVariantList uuids;
    qint64 lastRead = 0;
    for (const ZuveroChatMessagePtr &message : messages) {
        uuids.append(message->uuid());
        if (message->date().isValid())
            lastRead = std::max(lastRead, message->date().toMSecsSinceEpoch() / 1000);
    }
    return {{QStringLiteral("readMessageUUIDs"), uuids},
            {QStringLiteral("lastReadMessageDate"), lastRead}};
}

QVariantMap ZuveroConnectionPrivate::registrationBody() const
{
    QVariantMap body;
    ZVXConnectionAPI *facade = api();
    if (const std::optional<QByteArray> token = facade ? facade->deviceToken() : std::nullopt)
        body.insert(QStringLiteral("deviceToken"), *ZuveroHexStringFromData(*token));
    if (const std::optional<QString> userName = facade ? facade->userName() : std::nullopt)
        body.insert(QStringLiteral("userName"), *userName);
    body.insert(QStringLiteral("deviceInfo"), deviceInfo());
    const QString desktopFile = QGuiApplication::desktopFileName();
    body.insert(QStringLiteral("appId"),
                desktopFile.isEmpty() ? QCoreApplication::applicationName() : desktopFile);
    body.insert(QStringLiteral("appVersion"), QCoreApplication::applicationVersion());
    body.insert(QStringLiteral("apns"),
                facade && facade->developmentAPNS() ? QStringLiteral("development")
                                                    : QStringLiteral("production"));
    return body;
}

QString ZuveroConnectionPrivate::deviceInfo()
{
    // The computer's model as its firmware names it, where it is readable.
    QString model;
    QFile product(QStringLiteral("/sys/devices/virtual/dmi/id/product_name"));
    if (product.open(QIODevice::ReadOnly))
        model = QString::fromUtf8(product.readAll()).trimmed();
    if (model.isEmpty())
        model = QStringLiteral("Computer");
    return QStringLiteral("%1 (%2); %3 %4")
        .arg(model, QSysInfo::currentCpuArchitecture(), QSysInfo::productType(),
             QSysInfo::productVersion());
}

// --- Connection ---------------------------------------------------------------

ZuveroConnection::ZuveroConnection(ZVXConnectionAPI *api, QObject *parent)
    : QObject(parent)
    , d(std::make_unique<ZuveroConnectionPrivate>(this, api))
{ }

ZuveroConnection::~ZuveroConnection() = default;

ZuveroConnection *ZuveroConnection::initWithAPI(ZVXConnectionAPI *api, QObject *parent)
{
    return new ZuveroConnection(api, parent);
}

QString ZuveroConnection::serverApiVersion()
{
    return QStringLiteral("1.0");
}

// Each call below is a description for ZuveroConnectionPrivate::run(): its request and what its
// reply gives.

void ZuveroConnection::registerApp(Completion completion)
{
    const QPointer<ZuveroConnection> self(this);
    d->run({
        .path = QStringLiteral("/register"),
        .method = "POST",
        .registersFirst = false, // this is the registration
        .body = jsonBody(d->registrationBody()),
        .refused =
            [](const ZVXURLSessionResult &result) {
                ZVXLog(QStringLiteral("Failed registering: %1 (%2)")
                           .arg(QString::fromUtf8(
                                    result.data.value_or(QByteArray()).left(LoggedBodyLimit)),
                                describeError(result.error)));
            },
        .succeeded = [self, completion](const QJsonObject &reply) -> std::function<void()> {
            return [self, completion, reply] {
                if (self)
                    self->d->consumeRegistrationReply(reply);
                completion(true, {});
            };
        },
        .failed = [completion](const ZuveroError &error) { completion(false, error); },
    });
}

void ZuveroConnection::loadUserStatus(CountCompletion completion)
{
    const QPointer<ZuveroConnection> self(this);
    d->run({
        .path = QStringLiteral("/status"),
        // The facade's count after the update, not the raw reply.
        .succeeded = takeUnreadCount(self,
                                     [self, completion] {
                                         ZVXConnectionAPI *api = self ? self->d->api() : nullptr;
                                         completion(api ? api->unreadCount() : ZuveroNotFound, {});
                                     }),
        .failed = [completion](const ZuveroError &error) { completion(ZuveroNotFound, error); },
    });
}

void ZuveroConnection::fetchUnreadCountWithCompletion(CountCompletion completion)
{
    const QPointer<ZuveroConnection> self(this);
    d->run({
        .path = QStringLiteral("/status"),
        .checks = ZuveroConnectionPrivate::ReplyChecks::UnreadCount,
        .succeeded = [self, completion](const QJsonObject &reply) -> std::function<void()> {
            return [self, completion, count = reply.value(QLatin1String("unreadCount"))] {
                if (self)
                    self->d->consumeUnreadCount(count);
                completion(*countOf(count), {});
            };
        },
        .failed = [completion](const ZuveroError &error) { completion(ZuveroNotFound, error); },
    });
}

void ZuveroConnection::loadMessageSinceDate(const QDateTime &since, quint32 limit,
                                            MessagesCompletion completion)
{
    loadMessageSinceDate(since, QDateTime(), limit, std::move(completion));
}

void ZuveroConnection::loadMessageUntilDate(const QDateTime &until, quint32 limit,
                                            MessagesCompletion completion)
{
    loadMessageSinceDate(QDateTime(), until, limit, std::move(completion));
}

void ZuveroConnection::loadMessageSinceDate(const QDateTime &since, const QDateTime &until,
                                            quint32 limit, MessagesCompletion completion)
{
    const QPointer<ZuveroConnection> self(this);
    d->run({
        .path = ZuveroConnectionPrivate::messagesPath(since, until, limit),
        .succeeded = [self, completion](const QJsonObject &reply) -> std::function<void()> {
            // Built here, off the main thread.
            const bool more
                = ZVXModelValues::flag(reply.value(QLatin1String("moreMessages")).toVariant());
            const ZuveroChatMessageList messages
                = ZuveroConnectionPrivate::messagesFromReply(reply);
            return [self, completion, messages, more,
                    count = reply.value(QLatin1String("unreadCount"))] {
                if (self)
                    self->d->consumeUnreadCount(count);
                completion(messages, more, {});
            };
        },
        .failed
        = [completion](const ZuveroError &error) { completion(std::nullopt, false, error); },
    });
}

void ZuveroConnection::sendChatMessage(const ZuveroChatMessagePtr &message, Completion completion,
                                       Progress progress)
{
    ZVXMainThread::assertMainThread();
    if (!message || message->uuid().isEmpty()) {
        completion(false, {});
        return;
    }
    const QPointer<ZuveroConnection> self(this);
    // Made now, on the main thread: the message itself may change while the upload runs.
    const QString description = message->description();
    // What the body was built with, filled in once before the request starts: the context (which
    // goes with exactly one message) and the size of the JSON part.
    struct SentBody
    {
        ZVXConnectionAPI::MessageContext context;
        qsizetype jsonSize = 0;
    };
    auto sent = std::make_shared<SentBody>();
    const QDateTime start = ZVXClock::currentTime();
    d->run({
        .path = QStringLiteral("/messages"),
        .method = "POST",
        .body =
            [self, message, sent](ZVXURLRequest &request) {
                ZuveroConnectionPrivate *d = ZuveroConnectionPrivate::get(self);
                ZuveroError error;
                const std::optional<QByteArray> json
                    = ZVXJSON::serialize(d->messageBody(*message), &error);
                if (!json)
                    return error;
                ZVXMultipart multipart;
                multipart.addData(*json, QStringLiteral("message"),
                                  QStringLiteral("application/json"));
                for (const ZuveroChatAttachmentPtr &attachment :
                     message->attachments().value_or(ZuveroChatAttachmentList())) {
                    if (!attachment->uuid().isEmpty() && attachment->data())
                        multipart.addData(attachment->data(), attachment->uuid(),
                                          attachment->contentType(), attachment->uuid());
                }
                request.setValue(multipart.contentType().toLatin1(), "Content-Type");
                request.setHTTPBody(multipart.data());
                *sent = {d->api() ? d->api()->messageContext() : nullptr, json->size()};
                return ZuveroError();
            },
        .progress = progress,
        // Failures too are logged with the size of the message's JSON part.
        .arrived =
            [description, start,
             body = std::shared_ptr<const SentBody>(sent)](const ZVXURLSessionResult &) {
                ZVXLog(QStringLiteral("ZuveroConnection: Uploaded message %1 Kb in %2 sec :\n%3")
                           .arg(QString::number(double(body->jsonSize) / 1024.0, 'f', 2),
                                QString::number(start.msecsTo(ZVXClock::currentTime()) / 1000.0,
                                                'f', 3),
                                description));
            },
        .succeeded = [self, sent, completion](const QJsonObject &reply) -> std::function<void()> {
            return [self, sent, completion, count = reply.value(QLatin1String("unreadCount"))] {
                if (ZVXConnectionAPI *facade = self ? self->d->api() : nullptr) {
                    self->d->consumeUnreadCount(count);
                    // Only the very context that was sent; a newer one waits for the next message.
                    if (facade->messageContext() == sent->context)
                        facade->clearMessageContext();
                }
                completion(true, {});
            };
        },
        .failed = [completion](const ZuveroError &error) { completion(false, error); },
    });
}

void ZuveroConnection::markReadMessages(const ZuveroChatMessageList &messages,
                                        Completion completion)
{
    ZVXMainThread::assertMainThread();
    if (messages.isEmpty()) {
        completion(true, {});
        return;
    }
    d->run({
        .path = QStringLiteral("/mark_messages"),
        .method = "POST",
        .body = jsonBody(ZuveroConnectionPrivate::markBody(messages)),
        .succeeded = takeUnreadCount(this, [completion] { completion(true, {}); }),
        .failed = [completion](const ZuveroError &error) { completion(false, error); },
    });
}

ZuveroImagePtr ZuveroConnection::cachedAttachmentPreview(const ZuveroChatAttachmentPtr &attachment)
{
    ZVXMainThread::assertMainThread();
    return d->previews->cachedAttachmentPreview(attachment);
}

ZuveroImagePtr ZuveroConnection::loadAttachmentPreview(const ZuveroChatAttachmentPtr &attachment)
{
    ZVXMainThread::assertMainThread();
    return d->previews->loadAttachmentPreview(attachment);
}

ZuveroImagePtr ZuveroConnection::cachedPreviewImageIfNeeded(const QUrl &url)
{
    ZVXMainThread::assertMainThread();
    return d->previews->cachedPreviewImageIfNeeded(url);
}

void ZuveroConnection::loadAttachmentDocument(const ZuveroChatAttachmentPtr &attachment,
                                              DocumentCompletion completion)
{
    ZVXMainThread::assertMainThread();
    d->previews->loadAttachmentDocument(attachment, std::move(completion));
}

void ZuveroConnection::loadAttachmentFile(const ZuveroChatAttachmentPtr &attachment,
                                          FileCompletion completion)
{
    ZVXMainThread::assertMainThread();
    const auto cannotOpen = [](const QString &description) {
        return ZuveroError::withDescription(QString(ZuveroErrorDomain),
                                            ZuveroErrorAttachmentCannotBeOpened,
                                            ZVXLocalization::hostString(description));
    };
    if (!attachment) {
        if (completion)
            completion(std::nullopt, cannotOpen(QStringLiteral("There is no attachment.")));
        return;
    }
    if (const std::optional<QByteArray> data = attachment->data()) {
        if (completion)
            completion(data, {});
        return;
    }
    const std::optional<ZVXURLRequest> request = d->fileRequestWithURL(attachment->dataURL());
    if (!request) {
        if (completion)
            completion(std::nullopt, cannotOpen(QStringLiteral("Missing dataURL for attachment.")));
        return;
    }
    std::function<void()> end = d->beginNetworkActivity();
    const QUrl url = attachment->dataURL();
    auto task = d->fileLoadingSession->dataTask(
        *request, [completion, end, url, cannotOpen](const ZVXURLSessionResult &result) {
            const int status = result.response ? result.response->statusCode : 0;
            std::optional<QByteArray> bytes;
            ZuveroError error = result.error;
            if (result.data && error.isNull() && status >= 200 && status < 300) {
                bytes = result.data;
            } else {
                ZVXLog(QStringLiteral("ZuveroConnection: failed to load file: %1 Response code: "
                                      "%2 Error: %3")
                           .arg(url.toDisplayString(QUrl::RemoveQuery))
                           .arg(status)
                           .arg(describeError(result.error)));
                if (error.isNull())
                    error = cannotOpen(
                        QStringLiteral("The file could not be downloaded (HTTP status %1).")
                            .arg(status));
            }
            return [completion, end, bytes, error] {
                end();
                if (completion)
                    completion(bytes, error);
            };
        });
    task->resume();
}

QImage ZuveroConnection::cachedLocationPreview(const ZuveroChatMessagePtr &message)
{
    ZVXMainThread::assertMainThread();
    return d->previews->cachedLocationPreview(message);
}

QImage ZuveroConnection::loadLocationPreview(const ZuveroChatMessagePtr &message, const QSize &size)
{
    ZVXMainThread::assertMainThread();
    return d->previews->loadLocationPreview(message, size);
}

void ZuveroConnection::setMaximumReplySize(qint64 bytes)
{
    d->session->setMaximumReplySize(bytes);
}

void ZuveroConnection::setMaximumFileSize(qint64 bytes)
{
    d->fileLoadingSession->setMaximumReplySize(bytes);
}
