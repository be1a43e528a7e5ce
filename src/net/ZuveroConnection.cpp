#include "ZuveroConnection_p.h"

#include "ZVXClock.h"
#include "ZVXConnectionProgressObserver.h"
#include "ZVXJSON.h"
#include "ZVXLocalization.h"
#include "ZVXLogging.h"
#include "ZVXMainThread.h"
#include "ZVXModelValues.h"
#include "ZVXMultipart.h"
#include "ZVXURLSession.h"
#include "ZuveroData.h"

#include <QCoreApplication>
#include <QFile>
#include <QGuiApplication>
#include <QSysInfo>

namespace {

constexpr int NonHTTPResponseCode = 1;
// The URL domain's "bad server response", for the unread-count fetch.
constexpr int BadServerResponseCode = -1011;

// The longest body quoted in a log line; a server page can be large.
constexpr qsizetype LoggedBodyLimit = 2048;

ZuveroError facadeGone()
{
    return ZuveroError::withDescription(QString(ZuveroErrorDomain), NonHTTPResponseCode,
                                        QStringLiteral("The connection's facade is gone."));
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

ZuveroError badServerResponse()
{
    return ZuveroError::withDescription(QStringLiteral("com.zuvero.url"), BadServerResponseCode,
                                        QStringLiteral("The server returned a bad response."));
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
}

ZuveroConnectionPrivate::~ZuveroConnectionPrivate() = default;

ZVXConnectionAPI *ZuveroConnectionPrivate::api() const
{
    // The facade is held weakly: once it is destroyed, nothing is read from it.
    return !m_apiIsObject || m_apiObject ? m_api : nullptr;
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
    if (const std::optional<QString> jwt = api() ? api()->jwt() : std::nullopt) {
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

std::optional<QVariant>
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
        failure(!result.error.isNull()
                    ? result.error
                    : ZuveroError::withDescription(QString(ZuveroErrorDomain), NonHTTPResponseCode,
                                                   ZVXLocalization::hostString(QStringLiteral(
                                                       "Non-HTTP response received."))));
        return std::nullopt;
    }
    const int status = result.response->statusCode;
    ZuveroError parseError;
    const std::optional<QVariant> json = ZVXJSON::parse(*result.data, &parseError);
    if (!json) {
        const QByteArray body = result.data->left(LoggedBodyLimit);
        ZVXLog(QStringLiteral(
                   "EXPECTED JSON, GOT THIS: %1 (%2) [http status code: %3] response headers: %4")
                   .arg(QString::fromUtf8(body), ZVXDescribeBytes(body), QString::number(status),
                        describeHeaders(result.response->headerFields)));
        failure(parseError);
        return std::nullopt;
    }
    if (status >= 200 && status < 300)
        return json;

    const QVariantMap reply = json->toMap();
    const std::optional<QString> localizedError
        = ZVXModelValues::text(reply.value(QStringLiteral("localizedError")));
    const std::optional<QString> error = ZVXModelValues::text(reply.value(QStringLiteral("error")));
    const QString reason = localizedError.value_or(error.value_or(QStringLiteral("Server Error")));
    ZVXLog(QStringLiteral("ZuveroConnection: received HTTP code %1: %2")
               .arg(QString::number(status), reason));
    failure(ZuveroError(QString(ZuveroErrorDomain), status,
                        {{ZuveroLocalizedDescriptionKey, reason},
                         {QStringLiteral("debugMessage"),
                          error.value_or(QStringLiteral("unknown error from backend"))}}));
    return std::nullopt;
}

void ZuveroConnectionPrivate::consumeUnreadCount(const QVariant &value)
{
    // Numbers only: a count sent as text is ignored.
    if (ZVXModelValues::isNumber(value) && api())
        api()->updateUnreadCount(value.toLongLong());
}

void ZuveroConnectionPrivate::consumePollingInterval(const QVariant &value)
{
    if (!ZVXModelValues::isNumber(value) || !api())
        return;
    api()->setPollingInterval(value.toDouble());
    ZVXLog(QStringLiteral("Set polling interval: %1 sec").arg(value.toDouble(), 0, 'f', 1));
}

void ZuveroConnectionPrivate::consumeSourceInfo(const QVariant &value)
{
    if (value.metaType().id() == QMetaType::QVariantMap)
        consumeSourceInfoWelcomeMessage(value.toMap().value(QStringLiteral("welcomeMessage")));
}

void ZuveroConnectionPrivate::consumeSourceInfoWelcomeMessage(const QVariant &value)
{
    if (value.metaType().id() == QMetaType::QString && api())
        api()->updateWelcomeMessage(value.toString());
}

void ZuveroConnectionPrivate::consumeRegistrationReply(const QVariantMap &reply)
{
    consumeUnreadCount(reply.value(QStringLiteral("unreadCount")));
    consumePollingInterval(reply.value(QStringLiteral("pollingInterval")));
    consumeSourceInfo(reply.value(QStringLiteral("sourceInfo")));
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

void ZuveroConnection::registerApp(Completion completion)
{
    ZVXMainThread::assertMainThread();
    ZVXConnectionAPI *api = d->api();
    if (!api) {
        completion(false, facadeGone());
        return;
    }
    QVariantMap body;
    if (const std::optional<QByteArray> token = api->deviceToken())
        body.insert(QStringLiteral("deviceToken"), *ZuveroHexStringFromData(*token));
    if (const std::optional<QString> userName = api->userName())
        body.insert(QStringLiteral("userName"), *userName);
    body.insert(QStringLiteral("deviceInfo"), ZuveroConnectionPrivate::deviceInfo());
    const QString desktopFile = QGuiApplication::desktopFileName();
    body.insert(QStringLiteral("appId"),
                desktopFile.isEmpty() ? QCoreApplication::applicationName() : desktopFile);
    body.insert(QStringLiteral("appVersion"), QCoreApplication::applicationVersion());
    body.insert(QStringLiteral("apns"),
                api->developmentAPNS() ? QStringLiteral("development")
                                       : QStringLiteral("production"));

    ZuveroError encodingError;
    const std::optional<QByteArray> json = ZVXJSON::serialize(body, &encodingError);
    if (!json) {
        completion(false, encodingError);
        return;
    }
    ZVXURLRequest request = d->requestWithPath(QStringLiteral("/register"));
    request.setHTTPMethod("POST");
    request.setHTTPBody(*json);
    const QPointer<ZuveroConnection> self(this);
    d->session
        ->dataTask(
            request,
            [self, completion](const ZVXURLSessionResult &result) -> ZVXURLSession::Completion {
                ZuveroError error;
                const std::optional<QVariant> reply = ZuveroConnectionPrivate::handleReceivedJSON(
                    result, [&error](const ZuveroError &e) { error = e; });
                if (!reply) {
                    ZVXLog(QStringLiteral("Failed registering: %1 (%2)")
                               .arg(QString::fromUtf8(
                                        result.data.value_or(QByteArray()).left(LoggedBodyLimit)),
                                    describeError(result.error)));
                    return [completion, error] { completion(false, error); };
                }
                return [self, completion, reply = reply->toMap()] {
                    if (self)
                        self->d->consumeRegistrationReply(reply);
                    completion(true, {});
                };
            })
        ->resume();
}

void ZuveroConnectionPrivate::afterRegistration(std::function<void()> send, Failure failed)
{
    ZVXConnectionAPI *facade = api();
    if (!facade) {
        failed(facadeGone());
        return;
    }
    facade->registerIfNeeded([send = std::move(send),
                              failed = std::move(failed)](bool success, const ZuveroError &error) {
        ZVXMainThread::assertMainThread();
        if (success)
            send();
        else
            failed(error);
    });
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

std::shared_ptr<ZVXURLSessionTask>
ZuveroConnectionPrivate::jsonTask(const ZVXURLRequest &request, ReplyStep onReply, Failure failed)
{
    return session->dataTask(request,
                             [onReply = std::move(onReply), failed = std::move(failed)](
                                 const ZVXURLSessionResult &result) -> ZVXURLSession::Completion {
                                 ZuveroError error;
                                 const std::optional<QVariant> reply = handleReceivedJSON(
                                     result, [&error](const ZuveroError &e) { error = e; });
                                 if (!reply)
                                     return [failed, error] { failed(error); };
                                 return onReply(*reply);
                             });
}

void ZuveroConnection::loadUserStatus(CountCompletion completion)
{
    ZVXMainThread::assertMainThread();
    const QPointer<ZuveroConnection> self(this);
    const auto failed
        = [completion](const ZuveroError &error) { completion(ZuveroNotFound, error); };
    d->afterRegistration(
        [self, completion, failed] {
            if (!self)
                return failed(facadeGone());
            ZVXURLRequest request = self->d->requestWithPath(QStringLiteral("/status"));
            request.setHTTPMethod("GET");
            self->d
                ->jsonTask(
                    request,
                    [self, completion](const QVariant &reply) -> std::function<void()> {
                        return [self, completion,
                                count = reply.toMap().value(QStringLiteral("unreadCount"))] {
                            ZVXConnectionAPI *api = self ? self->d->api() : nullptr;
                            if (api)
                                self->d->consumeUnreadCount(count);
                            // The facade's count after the update, not the raw reply.
                            completion(api ? api->unreadCount() : ZuveroNotFound, {});
                        };
                    },
                    failed)
                ->resume();
        },
        failed);
}

void ZuveroConnection::fetchUnreadCountWithCompletion(CountCompletion completion)
{
    ZVXMainThread::assertMainThread();
    ZVXConnectionAPI *api = d->api();
    if (!api) {
        completion(ZuveroNotFound, facadeGone());
        return;
    }
    const std::function<void()> end = d->beginNetworkActivity();
    const QPointer<ZuveroConnection> self(this);
    d->afterRegistration(
        [self, completion, end] {
            if (!self) {
                completion(ZuveroNotFound, facadeGone());
                return;
            }
            ZVXURLRequest request = self->d->requestWithPath(QStringLiteral("/status"));
            request.setHTTPMethod("GET");
            // This fetch has checks of its own, made on the main thread, and logs nothing.
            self->d->session
                ->dataTask(request,
                           [self, completion,
                            end](const ZVXURLSessionResult &result) -> ZVXURLSession::Completion {
                               return [self, completion, end, result] {
                                   end();
                                   if (!result.data)
                                       return completion(ZuveroNotFound, result.error);
                                   if (result.data->isEmpty() && !result.response
                                       && !result.error.isNull())
                                       return completion(ZuveroNotFound, result.error);
                                   if (!result.response)
                                       return completion(ZuveroNotFound, badServerResponse());
                                   const int status = result.response->statusCode;
                                   if (status < 200 || status >= 300)
                                       return completion(
                                           ZuveroNotFound,
                                           ZuveroError(QString(ZuveroHTTPErrorDomain), status));
                                   ZuveroError parseError;
                                   const std::optional<QVariant> json
                                       = ZVXJSON::parse(*result.data, &parseError);
                                   if (!json)
                                       return completion(ZuveroNotFound, parseError);
                                   const QVariantMap reply = json->toMap();
                                   if (!reply.contains(QStringLiteral("unreadCount")))
                                       return completion(ZuveroNotFound, badServerResponse());
                                   const QVariant count
                                       = reply.value(QStringLiteral("unreadCount"));
                                   if (self)
                                       self->d->consumeUnreadCount(count);
                                   completion(count.toLongLong(), {});
                               };
                           })
                ->resume();
        },
        [completion, end](const ZuveroError &error) {
            end();
            completion(ZuveroNotFound, error);
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
    ZVXMainThread::assertMainThread();
    ZVXConnectionAPI *api = d->api();
    if (!api) {
        completion(std::nullopt, false, facadeGone());
        return;
    }
    // Every ending (registration failure, request failure, success) ends the activity once.
    const std::function<void()> end = d->beginNetworkActivity();
    const QPointer<ZuveroConnection> self(this);
    const auto failed = [end, completion](const ZuveroError &error) {
        end();
        completion(std::nullopt, false, error);
    };
    const QString path = ZuveroConnectionPrivate::messagesPath(since, until, limit);
    d->afterRegistration(
        [self, completion, failed, end, path] {
            if (!self)
                return failed(facadeGone());
            ZVXURLRequest request = self->d->requestWithPath(path);
            request.setHTTPMethod("GET");
            self->d
                ->jsonTask(
                    request,
                    [self, completion, end](const QVariant &json) -> std::function<void()> {
                        // Built here, off the main thread; entries that do not parse are dropped.
                        const QVariantMap reply = json.toMap();
                        const bool more
                            = ZVXModelValues::flag(reply.value(QStringLiteral("moreMessages")));
                        ZuveroChatMessageList messages;
                        const QVariant list
                            = ZuveroSkipNSNullRecursively(reply.value(QStringLiteral("messages")));
                        for (const QVariant &entry : list.toList()) {
                            if (ZuveroChatMessagePtr message
                                = ZuveroChatMessage::initWithPropertyList(entry))
                                messages.append(message);
                        }
                        return [self, completion, end, messages, more,
                                count = reply.value(QStringLiteral("unreadCount"))] {
                            if (self)
                                self->d->consumeUnreadCount(count);
                            end();
                            completion(messages, more, {});
                        };
                    },
                    failed)
                ->resume();
        },
        failed);
}

void ZuveroConnection::sendChatMessage(const ZuveroChatMessagePtr &message, Completion completion,
                                       Progress progress)
{
    ZVXMainThread::assertMainThread();
    ZVXConnectionAPI *api = d->api();
    if (!message || message->uuid().isEmpty() || !api) {
        completion(false, api ? ZuveroError() : facadeGone());
        return;
    }
    const std::function<void()> end = d->beginNetworkActivity();
    const QPointer<ZuveroConnection> self(this);
    d->afterRegistration(
        [self, message, completion, progress, end] {
            if (!self) {
                completion(false, facadeGone());
                return;
            }
            ZuveroConnectionPrivate *d = self->d.get();
            ZuveroError encodingError;
            const std::optional<QByteArray> json
                = ZVXJSON::serialize(d->messageBody(*message), &encodingError);
            if (!json) {
                end();
                completion(false, encodingError);
                return;
            }
            ZVXMultipart multipart;
            multipart.addData(*json, QStringLiteral("message"), QStringLiteral("application/json"));
            const ZuveroChatAttachmentList attachments
                = message->attachments().value_or(ZuveroChatAttachmentList());
            for (const ZuveroChatAttachmentPtr &attachment : attachments) {
                if (!attachment->uuid().isEmpty() && attachment->data())
                    multipart.addData(attachment->data(), attachment->uuid(),
                                      attachment->contentType(), attachment->uuid());
            }
            ZVXURLRequest request = d->requestWithPath(QStringLiteral("/messages"));
            request.setHTTPMethod("POST");
            request.setValue(multipart.contentType().toLatin1(), "Content-Type");
            request.setHTTPBody(multipart.data());
            // A context goes with exactly one message: the one it was sent with.
            const ZVXConnectionAPI::MessageContext context
                = d->api() ? d->api()->messageContext() : nullptr;
            const QDateTime start = ZVXClock::currentTime();
            const qsizetype jsonSize = json->size();

            auto task = std::make_shared<std::shared_ptr<ZVXURLSessionTask>>();
            const auto finish
                = [self, task, end, completion](bool success, const ZuveroError &error) {
                      if (self && *task)
                          self->d->progressObserver->removeTask(*task, success ? 1.0 : 0.0,
                                                                success ? 1.0 : 0.0);
                      end();
                      completion(success, error);
                  };
            *task = d->session->dataTask(
                request,
                [self, message, context, start, jsonSize,
                 finish](const ZVXURLSessionResult &result) -> ZVXURLSession::Completion {
                    ZVXLog(
                        QStringLiteral("ZuveroConnection: Uploaded message %1 Kb in %2 sec :\n%3")
                            .arg(QString::number(double(jsonSize) / 1024.0, 'f', 2),
                                 QString::number(start.msecsTo(ZVXClock::currentTime()) / 1000.0,
                                                 'f', 3),
                                 message->description()));
                    ZuveroError error;
                    const std::optional<QVariant> reply
                        = ZuveroConnectionPrivate::handleReceivedJSON(
                            result, [&error](const ZuveroError &e) { error = e; });
                    if (!reply)
                        return [finish, error] { finish(false, error); };
                    return [self, context, finish,
                            count = reply->toMap().value(QStringLiteral("unreadCount"))] {
                        if (ZVXConnectionAPI *facade = self ? self->d->api() : nullptr) {
                            self->d->consumeUnreadCount(count);
                            if (facade->messageContext() == context)
                                facade->clearMessageContext();
                        }
                        finish(true, {});
                    };
                });
            if (progress)
                d->progressObserver->addTask(*task, progress);
            (*task)->resume();
        },
        [completion, end](const ZuveroError &error) {
            end();
            completion(false, error);
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
    const QPointer<ZuveroConnection> self(this);
    const auto failed = [completion](const ZuveroError &error) { completion(false, error); };
    const QVariantMap body = ZuveroConnectionPrivate::markBody(messages);
    d->afterRegistration(
        [self, completion, failed, body] {
            if (!self)
                return failed(facadeGone());
            ZuveroError encodingError;
            const std::optional<QByteArray> json = ZVXJSON::serialize(body, &encodingError);
            if (!json)
                return failed(encodingError);
            ZVXURLRequest request = self->d->requestWithPath(QStringLiteral("/mark_messages"));
            request.setHTTPMethod("POST");
            request.setHTTPBody(*json);
            self->d
                ->jsonTask(
                    request,
                    [self, completion](const QVariant &reply) -> std::function<void()> {
                        return [self, completion,
                                count = reply.toMap().value(QStringLiteral("unreadCount"))] {
                            if (self)
                                self->d->consumeUnreadCount(count);
                            completion(true, {});
                        };
                    },
                    failed)
                ->resume();
        },
        failed);
}
