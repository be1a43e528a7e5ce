#include "ZVXDevFiles.h"

#include <QBuffer>
#include <QDir>
#include <QImage>
#include <QImageReader>
#include <QRandomGenerator>

#include <cstdio>
#include <mutex>

namespace {

bool writeFile(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() && file.flush();
}

// Raster formats only: a vector picture (SVG) can cost any time to draw.
bool isPreviewed(const QByteArray &format)
{
    static const QList<QByteArray> formats{"png", "jpeg", "gif", "bmp", "webp", "tiff"};
    return formats.contains(format);
}

/*
    The pixels decoding a picture of \a size takes. JPEG decodes straight to
    a smaller size, by a half, a quarter or an eighth, the largest that is
    still at least \a target; the others decode whole.
*/
qint64 decodedPixels(const QByteArray &format, QSize size, QSize target)
{
    if (format == "jpeg" && target.isValid()) {
        const int ratio = std::min(size.width() / std::max(target.width(), 1),
                                   size.height() / std::max(target.height(), 1));
        const int scale = ratio >= 8 ? 8 : ratio >= 4 ? 4 : ratio >= 2 ? 2 : 1;
        size = QSize((size.width() + scale - 1) / scale, (size.height() + scale - 1) / scale);
    }
    return qint64(size.width()) * size.height();
}

/*
    A picture no larger than PreviewSize on its longest side, as JPEG (PNG
    when it has transparency), or nothing when \a bytes are not a picture,
    or one whose decoding would take more than MaxDecodedPixels. Its size
    comes from its header, decoded or not.
*/
std::optional<QByteArray> makePreview(const QByteArray &bytes, QSize *imageSize)
{
    QBuffer buffer;
    buffer.setData(bytes);
    buffer.open(QIODevice::ReadOnly);
    QImageReader reader(&buffer);
    reader.setAutoTransform(true);
    const QSize size = reader.size();
    if (!size.isValid() || size.isEmpty() || !isPreviewed(reader.format()))
        return std::nullopt;
    *imageSize = reader.transformation() & QImageIOHandler::TransformationRotate90
        ? size.transposed()
        : size;
    const QSize target
        = size.scaled(ZVXDevFiles::PreviewSize, ZVXDevFiles::PreviewSize, Qt::KeepAspectRatio)
              .boundedTo(size);
    if (decodedPixels(reader.format(), size, target) > ZVXDevFiles::MaxDecodedPixels)
        return std::nullopt;
    if (reader.format() == "jpeg")
        reader.setScaledSize(target);

    // One picture at a time: several large ones at once would multiply the cost.
    static std::mutex decoding;
    std::lock_guard lock(decoding);
    QImage image = reader.read();
    if (image.isNull())
        return std::nullopt;
    if (image.width() > ZVXDevFiles::PreviewSize || image.height() > ZVXDevFiles::PreviewSize)
        image = image.scaled(ZVXDevFiles::PreviewSize, ZVXDevFiles::PreviewSize,
                             Qt::KeepAspectRatio, Qt::SmoothTransformation);
    QByteArray preview;
    QBuffer out(&preview);
    out.open(QIODevice::WriteOnly);
    const bool saved
        = image.hasAlphaChannel() ? image.save(&out, "PNG") : image.save(&out, "JPEG", 80);
    return saved ? std::optional<QByteArray>(preview) : std::nullopt;
}

} // namespace

ZVXDevFiles::ZVXDevFiles(const QString &directory)
    : m_directory(directory)
{
    // The last guard, should a format's header promise less than it decodes to.
    QImageReader::setAllocationLimit(int(MaxDecodedPixels * 4 / (1024 * 1024)) + 1);
}

bool ZVXDevFiles::prepare(QString *error)
{
    if (!QDir().mkpath(m_directory + QStringLiteral("/data"))
        || !QDir().mkpath(m_directory + QStringLiteral("/previews"))
        || !QDir().mkpath(m_directory + QStringLiteral("/staging"))) {
        *error = QStringLiteral("cannot create %1").arg(m_directory);
        return false;
    }
    // Whatever a crash left half-staged.
    QDir staging(m_directory + QStringLiteral("/staging"));
    for (const QString &name : staging.entryList(QDir::Files))
        staging.remove(name);
    return true;
}

QString ZVXDevFiles::dataPath(const QString &uuid) const
{
    return m_directory + QStringLiteral("/data/") + uuid;
}

QString ZVXDevFiles::previewPath(const QString &uuid) const
{
    return m_directory + QStringLiteral("/previews/") + uuid;
}

std::optional<ZVXDevFiles::Staged> ZVXDevFiles::stage(const QString &uuid, const QByteArray &bytes,
                                                      const QString &contentType)
{
    const QString base = m_directory + QStringLiteral("/staging/")
        + QString::number(QRandomGenerator::global()->generate64(), 16);
    Staged staged{uuid, base + QStringLiteral(".data"), {}, {}};
    if (!writeFile(staged.dataPath, bytes))
        return std::nullopt;
    if (contentType.startsWith(QLatin1String("image/"))) {
        if (const std::optional<QByteArray> preview = makePreview(bytes, &staged.imageSize)) {
            staged.previewPath = base + QStringLiteral(".preview");
            if (!writeFile(staged.previewPath, *preview)) {
                discard(staged);
                return std::nullopt;
            }
        }
    }
    return staged;
}

bool ZVXDevFiles::commit(const Staged &staged)
{
    // rename() replaces atomically; QFile::rename() would refuse an existing target.
    if (std::rename(QFile::encodeName(staged.dataPath).constData(),
                    QFile::encodeName(dataPath(staged.uuid)).constData())
        != 0)
        return false;
    return staged.previewPath.isEmpty()
        || std::rename(QFile::encodeName(staged.previewPath).constData(),
                       QFile::encodeName(previewPath(staged.uuid)).constData())
        == 0;
}

void ZVXDevFiles::discard(const Staged &staged)
{
    QFile::remove(staged.dataPath);
    if (!staged.previewPath.isEmpty())
        QFile::remove(staged.previewPath);
}
