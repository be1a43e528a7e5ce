#pragma once

#include "ZVXMapTiles.h"
#include "zuvero_export.h"

#include <QObject>
#include <QPointer>

#include <optional>

class QGeoPositionInfoSource;

/*!
    The user's own position for a map, from Qt Positioning: the system's
    default source, or one given in its place (a receiver, a replay). Where
    there is no source, or it never reports, there is no position; none is
    ever made up. Updates run while the owner lives.
*/
class ZUVERO_EXPORT ZVXUserPosition : public QObject
{
    Q_OBJECT

public:
    explicit ZVXUserPosition(QObject *parent = nullptr);
    ~ZVXUserPosition() override;

    //! Replaces the default source (taken over); null means no position at all. Before start().
    void setSource(QGeoPositionInfoSource *source);
    //! Starts the updates, once; the default source unless one was set.
    void start();
    std::optional<ZVXMapTiles::Coordinate> position() const { return m_position; }

Q_SIGNALS:
    void positionUpdated(ZVXMapTiles::Coordinate position);

private:
    QPointer<QGeoPositionInfoSource> m_source;
    bool m_sourceSet = false;
    bool m_started = false;
    std::optional<ZVXMapTiles::Coordinate> m_position;
};
