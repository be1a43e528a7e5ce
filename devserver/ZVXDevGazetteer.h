#pragma once

#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

/*
    A small real gazetteer for the geocoding routes: the principal cities of
    the time zones in tzdata's zone1970.tab (one per zone, with the zone's
    coordinates), named after the zone ("America/New_York" is New York) and
    placed in the country iso3166.tab names. About 300 places, enough to
    search for a city by name and to name the nearest one to a point,
    without the internet. Read once at start; immutable after, so any
    thread may search it.
*/
class ZVXDevGazetteer
{
public:
    struct Place
    {
        QString city;
        QString country;
        //! Two letters, upper case, as tzdata writes them.
        QString countryCode;
        //! The zone the city is named after, e.g. "Europe/Paris".
        QString zone;
        double latitude = 0;
        double longitude = 0;

        //! "City, Country".
        QString displayName() const;
    };

    struct Coordinate
    {
        double latitude = 0;
        double longitude = 0;
    };

    //! A query longer than this is refused rather than searched.
    static constexpr qsizetype MaxQueryLength = 200;

    ZVXDevGazetteer() = default;

    /*!
        The places of \a zones (zone1970.tab's text) named with the countries
        of \a countries (iso3166.tab's). Lines that cannot be read are left
        out, each described in \a problems ("zone1970.tab line 12: ...").
    */
    static ZVXDevGazetteer parse(const QByteArray &zones, const QByteArray &countries,
                                 QStringList *problems);
    /*!
        The gazetteer of \a directory's zone1970.tab and iso3166.tab, with a
        log line for what it holds and for each problem; an empty one when
        the zone table cannot be read.
    */
    static ZVXDevGazetteer load(const QString &directory);

    //! ±DDMM±DDDMM or ±DDMMSS±DDDMMSS (ISO 6709, as tzdata writes it); nothing when malformed.
    static std::optional<Coordinate> parseISO6709(QStringView text);
    //! "America/Argentina/Buenos_Aires" → "Buenos Aires".
    static QString cityOfZone(QStringView zone);
    //! Lower case, accents taken off, punctuation as spaces: what searching compares.
    static QString fold(const QString &text);
    //! Great-circle distance in metres on a spherical Earth.
    static double distance(Coordinate from, Coordinate to);

    const QList<Place> &places() const { return m_places; }

    /*!
        Up to \a limit places whose words begin with every word of \a query,
        case and accents aside: the city named exactly first, then cities
        that begin with the query, then the rest (a country's name finds its
        cities), alphabetically within each.
    */
    QList<Place> search(const QString &query, int limit) const;
    //! The place nearest to \a point; nothing when there are no places.
    std::optional<Place> nearest(Coordinate point) const;

private:
    struct Entry
    {
        Place place;
        QString foldedCity;
        QStringList cityWords;
        QStringList allWords;
    };
    QList<Place> m_places;
    QList<Entry> m_entries;
};
