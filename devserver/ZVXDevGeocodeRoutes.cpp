#include "ZVXDevGeocodeRoutes.h"

#include "ZVXDevGazetteer.h"
#include "ZVXDevHttp.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cmath>

using ZVXDevHttp::replyError;
using ZVXDevHttp::text;

namespace ZVXDevGeocodeRoutes {

namespace {

QJsonObject placeObject(const ZVXDevGazetteer::Place &place)
{
    return {
        {QStringLiteral("lat"), QString::number(place.latitude, 'f', 5)},
        {QStringLiteral("lon"), QString::number(place.longitude, 'f', 5)},
        {QStringLiteral("display_name"), place.displayName()},
        {QStringLiteral("name"), place.city},
        {QStringLiteral("country"), place.country},
        {QStringLiteral("country_code"), place.countryCode.toLower()},
        {QStringLiteral("timezone"), place.zone},
    };
}

// The parameter \a name as a number within [minimum, maximum]; nothing after replying 400.
std::optional<double> degrees(const httplib::Request &req, httplib::Response &res, const char *name,
                              double maximum)
{
    if (!req.has_param(name)) {
        replyError(res, 400, QStringLiteral("missing parameter \"%1\"").arg(QLatin1String(name)));
        return std::nullopt;
    }
    bool ok = false;
    const double value = text(req.get_param_value(name)).trimmed().toDouble(&ok);
    if (!ok || !std::isfinite(value) || std::abs(value) > maximum) {
        replyError(res, 400,
                   QStringLiteral("\"%1\" must be a number of degrees from -%2 to %2")
                       .arg(QLatin1String(name))
                       .arg(maximum));
        return std::nullopt;
    }
    return value;
}

} // namespace

void install(httplib::Server &server, const ZVXDevGazetteer &gazetteer)
{
    server.Get(
        "/geocode/search", [&gazetteer](const httplib::Request &req, httplib::Response &res) {
            if (!req.has_param("q")) {
                replyError(res, 400, QStringLiteral("missing parameter \"q\""));
                return;
            }
            const QString query = text(req.get_param_value("q")).trimmed();
            if (query.isEmpty()) {
                replyError(res, 400, QStringLiteral("\"q\" is empty"));
                return;
            }
            if (query.size() > ZVXDevGazetteer::MaxQueryLength) {
                replyError(res, 400,
                           QStringLiteral("\"q\" is longer than %1 characters")
                               .arg(ZVXDevGazetteer::MaxQueryLength));
                return;
            }
            int limit = DefaultLimit;
            if (req.has_param("limit")) {
                bool ok = false;
                const qlonglong asked
                    = text(req.get_param_value("limit")).trimmed().toLongLong(&ok);
                if (!ok || asked < 1) {
                    replyError(res, 400, QStringLiteral("\"limit\" must be a whole number from 1"));
                    return;
                }
                limit = int(std::min<qlonglong>(asked, MaxLimit));
            }
            QJsonArray places;
            for (const ZVXDevGazetteer::Place &place : gazetteer.search(query, limit))
                places.append(placeObject(place));
            const QByteArray json = QJsonDocument(places).toJson(QJsonDocument::Compact);
            res.set_content(json.constData(), size_t(json.size()),
                            "application/json; charset=utf-8");
        });

    server.Get(
        "/geocode/reverse", [&gazetteer](const httplib::Request &req, httplib::Response &res) {
            const std::optional<double> latitude = degrees(req, res, "lat", 90);
            if (!latitude)
                return;
            const std::optional<double> longitude = degrees(req, res, "lon", 180);
            if (!longitude)
                return;
            const std::optional<ZVXDevGazetteer::Place> place
                = gazetteer.nearest({*latitude, *longitude});
            if (!place) {
                replyError(res, 404, QStringLiteral("Unable to geocode"));
                return;
            }
            QJsonObject object = placeObject(*place);
            object.insert(QStringLiteral("distance"),
                          std::round(ZVXDevGazetteer::distance(
                              {*latitude, *longitude}, {place->latitude, place->longitude})));
            ZVXDevHttp::replyJSON(res, object);
        });
}

} // namespace ZVXDevGeocodeRoutes
