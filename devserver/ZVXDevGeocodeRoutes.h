#pragma once

#include <httplib.h>

class ZVXDevGazetteer;

/*
    Geocoding in the manner of the common open geocoders, answered from the
    server's gazetteer, without the internet and without a token:

        GET /geocode/search?q=TEXT[&limit=N]   a JSON array of places, best first
        GET /geocode/reverse?lat=DEG&lon=DEG   the nearest place, one JSON object

    A place is {"lat": "48.86667", "lon": "2.33333", "display_name": "Paris,
    France", "name": "Paris", "country": "France", "country_code": "fr",
    "timezone": "Europe/Paris"}, coordinates as decimal text as those
    geocoders write them; the reverse answer adds "distance", the metres
    from the point asked about. Bad parameters get 400, a reverse question
    with no place at all 404, both with {"error": ...}.
*/
namespace ZVXDevGeocodeRoutes {

inline constexpr int DefaultLimit = 10;
//! A larger "limit" is taken as this one.
inline constexpr int MaxLimit = 50;

void install(httplib::Server &server, const ZVXDevGazetteer &gazetteer);

} // namespace ZVXDevGeocodeRoutes
