#include "ZVXResources.h"

#include <QFile>
#include <QPainter>
#include <QSvgRenderer>

namespace ZVXResources {

namespace {
constexpr QLatin1String BundlePrefix{"Zuvero.bundle/"};
}

QString path(const QString &fileName)
{
    const QString relative
        = fileName.startsWith(BundlePrefix) ? fileName.mid(BundlePrefix.size()) : fileName;
    return QStringLiteral(":/Zuvero.bundle/") + relative;
}

QImage image(const QString &name, qreal devicePixelRatio)
{
    const QString file = path(name) + QStringLiteral(".svg");
    if (!QFile::exists(file))
        return {};
    QSvgRenderer renderer(file);
    if (!renderer.isValid())
        return {};
    const QSize size = renderer.defaultSize();
    QImage image(size * devicePixelRatio, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    {
        QPainter painter(&image);
        renderer.render(&painter);
    }
    image.setDevicePixelRatio(devicePixelRatio);
    return image;
}

} // namespace ZVXResources
