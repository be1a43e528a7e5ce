#include "ZVXUserPosition.h"

#include "ZVXLogging.h"

#include <QGeoPositionInfoSource>

ZVXUserPosition::ZVXUserPosition(QObject *parent)
    : QObject(parent)
{ }

ZVXUserPosition::~ZVXUserPosition()
{
    if (m_source)
        m_source->stopUpdates();
}

void ZVXUserPosition::setSource(QGeoPositionInfoSource *source)
{
    if (m_source && m_source != source)
        m_source->stopUpdates();
    m_source = source;
    m_sourceSet = true;
    if (source)
        source->setParent(this);
}

void ZVXUserPosition::start()
{
    if (m_started)
        return;
    m_started = true;
    if (!m_sourceSet)
        m_source = QGeoPositionInfoSource::createDefaultSource(this);
    if (!m_source) {
        ZVXLog(QStringLiteral("ZVXUserPosition: no position source on this system"));
        return;
    }
    connect(m_source, &QGeoPositionInfoSource::positionUpdated, this,
            [this](const QGeoPositionInfo &info) {
                if (!info.isValid())
                    return;
                m_position = ZVXMapTiles::Coordinate{info.coordinate().latitude(),
                                                     info.coordinate().longitude()};
                Q_EMIT positionUpdated(*m_position);
            });
    connect(
        m_source, &QGeoPositionInfoSource::errorOccurred, this,
        [](QGeoPositionInfoSource::Error error) {
            ZVXLog(
                QStringLiteral("ZVXUserPosition: no position (source error %1)").arg(int(error)));
        });
    m_source->startUpdates();
}
