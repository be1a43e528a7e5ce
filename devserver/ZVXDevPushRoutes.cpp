#include "ZVXDevPushRoutes.h"

#include "ZVXDevJSON.h"
#include "ZVXDevOptions.h"
#include "ZVXDevPushHub.h"
#include "ZVXDevServices.h"
#include "ZVXDevStorage.h"

namespace ZVXDevPushRoutes {

namespace {

constexpr std::chrono::seconds KeepAliveInterval{15};

bool write(httplib::DataSink &sink, const QByteArray &text)
{
    return sink.write(text.constData(), size_t(text.size()));
}

QByteArray event(const QJsonObject &payload)
{
    const QString uuid = payload.value(QStringLiteral("appdata"))
                             .toObject()
                             .value(QStringLiteral("uuid"))
                             .toString();
    return "id: " + uuid.toUtf8() + "\ndata: " + ZVXDevJSON::text(payload) + "\n\n";
}

void stream(const ZVXDevServices &services, httplib::Response &res, const ZVXDevIdentity &identity)
{
    const std::optional<ZVXDevUser> user = services.storage.findUser(identity);
    if (!user || !services.storage.hasDevice(user->id, identity.installationId)) {
        ZVXDevHttp::replyError(res, 404, QStringLiteral("this device has not registered"));
        return;
    }
    ZVXDevPushHub &hub = services.push;
    ZVXDevPushHub::Refusal refusal = ZVXDevPushHub::Refusal::None;
    const ZVXDevPushHub::SubscriptionPtr subscription
        = hub.subscribe(user->id, identity.installationId, &refusal);
    if (!subscription) {
        // A stream lives until its client goes: by then, or at the next keep-alive, there is room.
        res.set_header("Retry-After", std::to_string(KeepAliveInterval.count()));
        if (refusal == ZVXDevPushHub::Refusal::DeviceFull)
            ZVXDevHttp::replyError(res, 429,
                                   QStringLiteral("this device has %1 push streams open already")
                                       .arg(services.options.maxPushStreamsPerDevice));
        else
            ZVXDevHttp::replyError(res, 503,
                                   QStringLiteral("the server has %1 push streams open, as many "
                                                  "as it serves")
                                       .arg(services.options.maxPushStreams));
        return;
    }
    res.set_header("Cache-Control", "no-cache");
    const auto provider
        = [&hub, subscription, connected = false](size_t, httplib::DataSink &sink) mutable {
              if (!connected) {
                  connected = true;
                  return write(sink, ": connected\n\n");
              }
              QJsonObject payload;
              switch (hub.next(*subscription, &payload, KeepAliveInterval)) {
              case ZVXDevPushHub::Wait::Payload:
                  return write(sink, event(payload));
              case ZVXDevPushHub::Wait::Idle:
                  return write(sink, ": keep-alive\n\n");
              case ZVXDevPushHub::Wait::Stopped:
                  sink.done();
                  return true;
              }
              return false;
          };
    res.set_chunked_content_provider("text/event-stream", provider,
                                     [&hub, subscription](bool) { hub.unsubscribe(subscription); });
}

} // namespace

void install(httplib::Server &server, const ZVXDevServices &services)
{
    server.Get("/api/1.0/push",
               authenticated(services, true,
                             [&services](const httplib::Request &, httplib::Response &res,
                                         const ZVXDevIdentity &identity) {
                                 stream(services, res, identity);
                             }));
}

} // namespace ZVXDevPushRoutes
