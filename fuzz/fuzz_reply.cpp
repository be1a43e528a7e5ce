// The connection's reply checks: body bytes (maybe compressed), status, headers, transport error.

#include "ZVXContentDecoding.h"
#include "ZVXFuzz.h"
#include "ZVXURLSession.h"
#include "ZuveroConnection_p.h"

#include <QNetworkReply>

namespace {

enum Flags : uint8_t {
    HasBody = 0x1,
    HasResponse = 0x2,
    HasError = 0x4,
    Gzip = 0x8,
    Deflate = 0x10,
};

} // namespace

ZVX_FUZZ_APPLICATION(ZVXFuzz::Application::Core)

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    ZVXFuzz::Reader input(data, size);
    const uint8_t flags = input.byte();
    const int status = input.word() % 1000;
    ZVXURLResponse response{QUrl(QStringLiteral("https://127.0.0.1/api/1.0/status")), status, {}};
    for (int count = input.byte() % 8; count > 0; --count) {
        const QByteArray name = input.bytes(input.byte() % 32);
        response.headerFields.append({name, input.bytes(input.byte() % 64)});
    }

    ZVXURLSessionResult result;
    if (flags & HasResponse)
        result.response = response;
    if (flags & HasError)
        result.error = ZuveroError::withDescription(QString(ZuveroURLErrorDomain),
                                                    QNetworkReply::RemoteHostClosedError,
                                                    QStringLiteral("closed"));
    if (flags & HasBody) {
        // Compressed bodies are decoded before the checks, as the session does.
        const QByteArray encoding
            = flags & Gzip ? "gzip" : (flags & Deflate ? "deflate" : QByteArray());
        result.data = ZVXContentDecoding::decode(encoding, input.rest(), 1 << 20);
    }

    // Both orders of checks: each fails exactly once or passes a 2xx reply with a JSON body.
    int failures = 0;
    const std::optional<QJsonValue> json = ZuveroConnectionPrivate::handleReceivedJSON(
        result, [&failures](const ZuveroError &) { ++failures; });
    ZVX_FUZZ_CHECK(failures == (json ? 0 : 1));
    if (json)
        ZVX_FUZZ_CHECK(result.response && result.data && status >= 200 && status < 300);

    failures = 0;
    const std::optional<QJsonObject> reply = ZuveroConnectionPrivate::checkUnreadCountReply(
        result, [&failures](const ZuveroError &) { ++failures; });
    ZVX_FUZZ_CHECK(failures == (reply ? 0 : 1));
    if (reply)
        ZVX_FUZZ_CHECK(json && reply->contains(QLatin1String("unreadCount")));
    return 0;
}
