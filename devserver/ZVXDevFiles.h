#pragma once

#include <QByteArray>
#include <QSize>
#include <QString>

#include <optional>

/*!
    Attachment files and their previews on disk, named by attachment uuid.
    A file is first staged under a temporary name and becomes visible only
    when committed, so a message that is refused or sent twice leaves
    nothing behind.
*/
class ZVXDevFiles
{
public:
    explicit ZVXDevFiles(const QString &directory);

    bool prepare(QString *error);

    struct Staged
    {
        QString uuid;
        QString dataPath;
        //! Empty when there is no preview.
        QString previewPath;
        //! Size of the decoded picture; empty when it is not one.
        QSize imageSize;
    };
    //! Writes \a bytes (and a preview, for a picture) under temporary names.
    std::optional<Staged> stage(const QString &uuid, const QByteArray &bytes,
                                const QString &contentType);
    bool commit(const Staged &staged);
    void discard(const Staged &staged);

    QString dataPath(const QString &uuid) const;
    QString previewPath(const QString &uuid) const;

    //! Largest side of a preview, in pixels.
    static constexpr int PreviewSize = 480;
    //! The largest picture decoded for a preview (at 4 bytes a pixel, 64 MiB); larger ones get
    //! none.
    static constexpr qint64 MaxDecodedPixels = 4096 * 4096;

private:
    QString m_directory;
};
