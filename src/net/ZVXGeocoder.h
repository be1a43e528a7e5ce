#pragma once

#include "ZVXMapTiles.h"
#include "ZuveroError.h"

#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>

#include <functional>
#include <memory>

class ZVXURLSession;
class ZVXURLSessionTask;

//! One place a geocoder knows: where it is and what it is called.
struct ZVXGeocodedPlace
{
    ZVXMapTiles::Coordinate coordinate;
    //! The geocoder's name for it, e.g. "Paris, France".
    QString address;
};

/*!
    Address search and reverse geocoding against an HTTP geocoder in the
    manner of the common open ones (Nominatim and those that copy it):

        <endpoint>/search?q=TEXT&limit=N&format=json   a JSON array of places
        <endpoint>/reverse?lat=DEG&lon=DEG&format=json  one place

    each place an object with "lat" and "lon" (decimal text or numbers) and
    "display_name". The requests go through the session given (the
    connection's file session: the trust and limits of the map tiles) and,
    like tiles, carry no token.

    One question of each kind at a time: a newer search supersedes the
    search under way, which is cancelled and never completes; likewise for
    reverse(). Completions run on the main thread.
*/
class ZUVERO_EXPORT ZVXGeocoder : public QObject
{
    Q_OBJECT

public:
    //! Places best first; empty with a null error when the geocoder knows none.
    using Completion
        = std::function<void(const QList<ZVXGeocodedPlace> &places, const ZuveroError &error)>;

    inline static constexpr int DefaultLimit = 10;

    //! Asks \a endpoint through \a session (not owned; may go first, failing what is asked after).
    ZVXGeocoder(ZVXURLSession *session, const QString &endpoint, QObject *parent = nullptr);
    ~ZVXGeocoder() override;

    QString endpoint() const { return m_endpoint; }

    //! The places \a text names, at most \a limit.
    void search(const QString &text, Completion completion, int limit = DefaultLimit);
    //! The place at or nearest to \a coordinate: one place, or none.
    void reverse(ZVXMapTiles::Coordinate coordinate, Completion completion);
    //! Forgets both questions under way; neither completes.
    void cancel();

private:
    struct Question
    {
        std::shared_ptr<ZVXURLSessionTask> task;
        quint64 generation = 0;
    };
    enum class Kind { Search, Reverse };
    void ask(Kind kind, Question &question, const QString &path,
             const QList<std::pair<QString, QString>> &parameters, Completion completion);

    QPointer<ZVXURLSession> m_session;
    QString m_endpoint;
    Question m_search;
    Question m_reverse;
};
