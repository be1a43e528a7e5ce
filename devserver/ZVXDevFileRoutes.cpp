#include "ZVXDevFileRoutes.h"

#include "ZVXDevFiles.h"
#include "ZVXDevServices.h"
#include "ZVXDevStorage.h"

#include <QFile>
#include <QUrl>

namespace ZVXDevFileRoutes {

void serve(const ZVXDevFiles &files, const ZVXDevAttachmentRecord &attachment, bool preview,
           httplib::Response &res)
{
    QFile file(preview ? files.previewPath(attachment.uuid) : files.dataPath(attachment.uuid));
    if ((preview && !attachment.hasPreview) || !file.open(QIODevice::ReadOnly)) {
        ZVXDevHttp::replyError(res, 404, QStringLiteral("no such file"));
        return;
    }
    const QByteArray bytes = file.readAll();
    std::string type = ZVXDevHttp::bytes(attachment.contentType);
    if (preview)
        type = bytes.startsWith("\x89PNG") ? "image/png" : "image/jpeg";
    // Files never change once stored.
    res.set_header("Cache-Control", "private, max-age=86400, immutable");
    if (!preview) {
        QString name = attachment.filename;
        name.replace(QLatin1Char('"'), QLatin1Char('_'));
        res.set_header("Content-Disposition",
                       "inline; filename*=UTF-8''" + QUrl::toPercentEncoding(name).toStdString());
    }
    res.set_content(bytes.constData(), size_t(bytes.size()), type);
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
                serve(services.files, *attachment, preview, res);
            });
    };
    server.Get(R"(/api/1\.0/files/([A-Za-z0-9._-]+))", route(false));
    server.Get(R"(/api/1\.0/previews/([A-Za-z0-9._-]+))", route(true));
}

} // namespace ZVXDevFileRoutes
