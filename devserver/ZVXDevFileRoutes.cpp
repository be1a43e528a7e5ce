#include "ZVXDevFileRoutes.h"

#include "ZVXDevFiles.h"
#include "ZVXDevServices.h"
#include "ZVXDevStorage.h"

#include <QFile>
#include <QUrl>

#include <memory>

namespace ZVXDevFileRoutes {

namespace {

// Served as pictures; a browser shows these, never runs them. Anything else is downloaded.
bool isPlainPicture(const QString &contentType)
{
    static const QStringList pictures{QStringLiteral("image/png"), QStringLiteral("image/jpeg"),
                                      QStringLiteral("image/gif"), QStringLiteral("image/webp"),
                                      QStringLiteral("image/bmp")};
    return pictures.contains(contentType.section(QLatin1Char(';'), 0, 0).trimmed().toLower());
}

constexpr qint64 Chunk = 64 * 1024;

} // namespace

void serve(const ZVXDevFiles &files, const ZVXDevAttachmentRecord &attachment, bool preview,
           const httplib::Request &req, httplib::Response &res)
{
    auto file = std::make_shared<QFile>(preview ? files.previewPath(attachment.uuid)
                                                : files.dataPath(attachment.uuid));
    if ((preview && !attachment.hasPreview) || !file->open(QIODevice::ReadOnly)) {
        ZVXDevHttp::replyError(res, 404, QStringLiteral("no such file"));
        return;
    }
    std::string type = ZVXDevHttp::bytes(attachment.contentType);
    if (preview)
        type = file->peek(4) == "\x89PNG" ? "image/png" : "image/jpeg";
    // Files never change once stored.
    res.set_header("Cache-Control", "private, max-age=86400, immutable");
    // Whatever a file holds and claims to be, a browser that opens it runs nothing and reads
    // nothing of the page's origin.
    res.set_header("Content-Security-Policy", "default-src 'none'; sandbox");
    if (!preview) {
        QString name = attachment.filename;
        name.replace(QLatin1Char('"'), QLatin1Char('_'));
        const std::string disposition
            = isPlainPicture(attachment.contentType) ? "inline" : "attachment";
        res.set_header("Content-Disposition",
                       disposition + "; filename*=UTF-8''"
                           + QUrl::toPercentEncoding(name).toStdString());
    }

    const qint64 size = file->size();
    auto &ranges = const_cast<httplib::Request &>(req).ranges;
    if (size == 0) {
        ranges.clear();
        res.set_content("", 0, type.c_str());
        return;
    }
    // One range at most reaches here: cpp-httplib trusts a range's ends, so they are fitted to
    // the file first.
    if (ranges.size() == 1) {
        auto [first, last] = ranges.front();
        if (first < 0) {
            first = std::max<ssize_t>(0, ssize_t(size) - last);
            last = ssize_t(size) - 1;
        } else if (last < 0 || last >= ssize_t(size)) {
            last = ssize_t(size) - 1;
        }
        if (first >= ssize_t(size)) {
            ranges.clear();
            res.set_header("Content-Range", "bytes */" + std::to_string(size));
            ZVXDevHttp::replyError(res, 416, QStringLiteral("range not satisfiable"));
            return;
        }
        ranges.front() = {first, last};
    }
    // Read as it is sent: a large file costs a chunk of memory, not its size.
    res.set_content_provider(
        std::size_t(size), type.c_str(),
        [file](std::size_t offset, std::size_t length, httplib::DataSink &sink) {
            if (!file->seek(qint64(offset)))
                return false;
            const QByteArray chunk = file->read(std::min<qint64>(qint64(length), Chunk));
            return !chunk.isEmpty() && sink.write(chunk.constData(), std::size_t(chunk.size()));
        });
}

void install(httplib::Server &server, const ZVXDevServices &services)
{
    const auto route = [&services](bool preview) {
        return authenticated(
            services, true,
            [&services, preview](const httplib::Request &req, httplib::Response &res,
                                 const ZVXDevIdentity &identity) {
                const QString uuid = ZVXDevHttp::text(req.matches[1]);
                const std::optional<ZVXDevUser> user = services.storage.findUser(identity);
                const std::optional<ZVXDevAttachmentRecord> attachment
                    = services.storage.attachment(uuid);
                // Another user's file is "not found" too: its existence is nobody else's business.
                if (!user || !attachment || attachment->user != user->id) {
                    ZVXDevHttp::replyError(res, 404, QStringLiteral("no such file"));
                    return;
                }
                serve(services.files, *attachment, preview, req, res);
            });
    };
    server.Get(R"(/api/1\.0/files/([A-Za-z0-9._-]+))", route(false));
    server.Get(R"(/api/1\.0/previews/([A-Za-z0-9._-]+))", route(true));
}

} // namespace ZVXDevFileRoutes
