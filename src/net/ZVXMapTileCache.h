#pragma once

#include "zuvero_export.h"

#include <QCache>
#include <QImage>
#include <QObject>
#include <QString>

/*!
    Decoded map tiles by URL, shared by the snapshots of one connection, so
    that a second picture of the same place needs neither the network nor a
    decoder. Bounded by the bytes of the decoded images; the least recently
    used go first, and a tile larger than the whole capacity is not kept.
    Main thread only.
*/
class ZUVERO_EXPORT ZVXMapTileCache : public QObject
{
    Q_OBJECT

public:
    //! Room for 32 tiles of 256 x 256: a 600 x 300 picture at twice the pixel density, and more.
    static constexpr qint64 DefaultCapacity = 8 * 1024 * 1024;

    explicit ZVXMapTileCache(qint64 capacity = DefaultCapacity, QObject *parent = nullptr);
    ~ZVXMapTileCache() override;

    //! The tile stored for \a url; a null image when there is none.
    QImage tile(const QString &url) const;
    //! Stores \a tile for \a url; a null image is ignored.
    void insert(const QString &url, const QImage &tile);
    void clear();

    qint64 capacity() const;
    //! Bytes of the decoded tiles held now.
    qint64 size() const;
    int count() const;

private:
    mutable QCache<QString, QImage> m_tiles;
};
