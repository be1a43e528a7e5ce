#include "ZVXDevGazetteer.h"

#include "ZVXDevLog.h"

#include <QDir>
#include <QFile>
#include <QHash>

#include <algorithm>
#include <cmath>
#include <numbers>

namespace {

constexpr double EarthRadius = 6371008.8;

QList<QByteArray> lines(const QByteArray &text)
{
    QList<QByteArray> result = text.split('\n');
    for (QByteArray &line : result)
        if (line.endsWith('\r'))
            line.chop(1);
    return result;
}

bool isCountryCode(QStringView code)
{
    return code.size() == 2 && code[0] >= u'A' && code[0] <= u'Z' && code[1] >= u'A'
        && code[1] <= u'Z';
}

// Degrees from "DD[D]MM[SS]" of \a digits digits for the degrees; nothing when out of range.
std::optional<double> angle(QStringView text, int degreeDigits, double maximum)
{
    for (QChar c : text)
        if (c < u'0' || c > u'9')
            return std::nullopt;
    const int degrees = text.left(degreeDigits).toInt();
    const int minutes = text.mid(degreeDigits, 2).toInt();
    const int seconds = text.size() > degreeDigits + 2 ? text.mid(degreeDigits + 2, 2).toInt() : 0;
    if (minutes >= 60 || seconds >= 60)
        return std::nullopt;
    const double value = degrees + minutes / 60.0 + seconds / 3600.0;
    if (value > maximum)
        return std::nullopt;
    return value;
}

} // namespace

QString ZVXDevGazetteer::Place::displayName() const
{
    return city + QStringLiteral(", ") + country;
}

std::optional<ZVXDevGazetteer::Coordinate> ZVXDevGazetteer::parseISO6709(QStringView text)
{
    // Minutes: ±DDMM±DDDMM (11 characters); seconds: ±DDMMSS±DDDMMSS (15).
    const qsizetype latitudeLength = text.size() == 11 ? 5 : text.size() == 15 ? 7 : 0;
    if (latitudeLength == 0)
        return std::nullopt;
    const auto sign = [](QChar c) -> std::optional<double> {
        if (c == u'+')
            return 1.0;
        if (c == u'-')
            return -1.0;
        return std::nullopt;
    };
    const std::optional<double> latitudeSign = sign(text[0]);
    const std::optional<double> longitudeSign = sign(text[latitudeLength]);
    if (!latitudeSign || !longitudeSign)
        return std::nullopt;
    const std::optional<double> latitude = angle(text.mid(1, latitudeLength - 1), 2, 90);
    const std::optional<double> longitude = angle(text.mid(latitudeLength + 1), 3, 180);
    if (!latitude || !longitude)
        return std::nullopt;
    return Coordinate{*latitudeSign * *latitude, *longitudeSign * *longitude};
}

QString ZVXDevGazetteer::cityOfZone(QStringView zone)
{
    const qsizetype slash = zone.lastIndexOf(u'/');
    if (slash < 0)
        return {};
    return zone.mid(slash + 1).toString().replace(u'_', u' ');
}

QString ZVXDevGazetteer::fold(const QString &text)
{
    QString folded;
    folded.reserve(text.size());
    for (QChar c : text.normalized(QString::NormalizationForm_KD)) {
        if (c.category() == QChar::Mark_NonSpacing || c.category() == QChar::Mark_SpacingCombining
            || c.category() == QChar::Mark_Enclosing)
            continue;
        folded.append(c.isLetterOrNumber() ? c : QChar(u' '));
    }
    return folded.toCaseFolded().simplified();
}

double ZVXDevGazetteer::distance(Coordinate from, Coordinate to)
{
    const auto radians = [](double degrees) { return degrees * std::numbers::pi / 180.0; };
    const double phi1 = radians(from.latitude);
    const double phi2 = radians(to.latitude);
    const double dPhi = phi2 - phi1;
    const double dLambda = radians(to.longitude - from.longitude);
    const double a = std::sin(dPhi / 2) * std::sin(dPhi / 2)
        + std::cos(phi1) * std::cos(phi2) * std::sin(dLambda / 2) * std::sin(dLambda / 2);
    return 2 * EarthRadius * std::asin(std::min(1.0, std::sqrt(a)));
}

ZVXDevGazetteer ZVXDevGazetteer::parse(const QByteArray &zones, const QByteArray &countries,
                                       QStringList *problems)
{
    const auto problem = [problems](const char *file, int line, const QString &what) {
        if (problems)
            problems->append(
                QStringLiteral("%1 line %2: %3").arg(QLatin1String(file)).arg(line).arg(what));
    };

    QHash<QString, QString> countryNames;
    int number = 0;
    for (const QByteArray &line : lines(countries)) {
        ++number;
        if (line.isEmpty() || line.startsWith('#'))
            continue;
        const QString text = QString::fromUtf8(line);
        const qsizetype tab = text.indexOf(u'\t');
        const QString code = text.left(tab);
        const QString name = tab < 0 ? QString() : text.mid(tab + 1).trimmed();
        if (!isCountryCode(code) || name.isEmpty()) {
            problem("iso3166.tab", number, QStringLiteral("not a country code and a name"));
            continue;
        }
        countryNames.insert(code, name);
    }

    ZVXDevGazetteer gazetteer;
    number = 0;
    for (const QByteArray &line : lines(zones)) {
        ++number;
        if (line.isEmpty() || line.startsWith('#'))
            continue;
        const QStringList fields = QString::fromUtf8(line).split(u'\t');
        if (fields.size() < 3) {
            problem("zone1970.tab", number, QStringLiteral("fewer than three fields"));
            continue;
        }
        const QStringList codes = fields[0].split(u',');
        if (!std::all_of(codes.begin(), codes.end(), isCountryCode)) {
            problem("zone1970.tab", number,
                    QStringLiteral("country codes \"%1\" are not two capital letters each")
                        .arg(fields[0]));
            continue;
        }
        const std::optional<Coordinate> at = parseISO6709(fields[1]);
        if (!at) {
            problem("zone1970.tab", number,
                    QStringLiteral("coordinates \"%1\" are not ±DDMM±DDDMM or ±DDMMSS±DDDMMSS")
                        .arg(fields[1]));
            continue;
        }
        const QString city = cityOfZone(fields[2]);
        if (city.trimmed().isEmpty()) {
            problem("zone1970.tab", number,
                    QStringLiteral("zone \"%1\" names no city").arg(fields[2]));
            continue;
        }
        Entry entry;
        // The first country is the one of the city the zone is named after.
        entry.place = {city,          countryNames.value(codes.first(), codes.first()),
                       codes.first(), fields[2],
                       at->latitude,  at->longitude};
        entry.foldedCity = fold(city);
        entry.cityWords = entry.foldedCity.split(u' ', Qt::SkipEmptyParts);
        entry.allWords
            = entry.cityWords + fold(entry.place.country).split(u' ', Qt::SkipEmptyParts);
        gazetteer.m_places.append(entry.place);
        gazetteer.m_entries.append(std::move(entry));
    }
    return gazetteer;
}

ZVXDevGazetteer ZVXDevGazetteer::load(const QString &directory)
{
    const QDir dir(directory);
    QFile zones(dir.filePath(QStringLiteral("zone1970.tab")));
    if (!zones.open(QIODevice::ReadOnly)) {
        ZVXDevLog::line(QStringLiteral("gazetteer: cannot read %1 (%2): geocoding finds no places")
                            .arg(zones.fileName(), zones.errorString()));
        return {};
    }
    QFile countries(dir.filePath(QStringLiteral("iso3166.tab")));
    QByteArray countryText;
    if (countries.open(QIODevice::ReadOnly))
        countryText = countries.readAll();
    else
        ZVXDevLog::line(
            QStringLiteral("gazetteer: cannot read %1 (%2): countries go by their codes")
                .arg(countries.fileName(), countries.errorString()));
    // tzdata's tables are a few kilobytes; a larger file is not one of them.
    constexpr qint64 MaxTable = 1024 * 1024;
    if (zones.size() > MaxTable || countryText.size() > MaxTable) {
        ZVXDevLog::line(QStringLiteral("gazetteer: %1 is larger than a zone table can be: "
                                       "geocoding finds no places")
                            .arg(zones.fileName()));
        return {};
    }
    QStringList problems;
    ZVXDevGazetteer gazetteer = parse(zones.readAll(), countryText, &problems);
    for (const QString &problem : std::as_const(problems))
        ZVXDevLog::line(QStringLiteral("gazetteer: skipped %1").arg(problem));
    ZVXDevLog::line(QStringLiteral("gazetteer: %1 places from %2")
                        .arg(gazetteer.m_places.size())
                        .arg(zones.fileName()));
    return gazetteer;
}

QList<ZVXDevGazetteer::Place> ZVXDevGazetteer::search(const QString &query, int limit) const
{
    const QString folded = fold(query.left(MaxQueryLength));
    const QStringList words = folded.split(u' ', Qt::SkipEmptyParts);
    if (words.isEmpty() || limit <= 0)
        return {};
    const auto prefixesOneOf = [](const QString &word, const QStringList &of) {
        return std::any_of(of.begin(), of.end(),
                           [&word](const QString &w) { return w.startsWith(word); });
    };
    struct Match
    {
        int rank;
        const Entry *entry;
    };
    QList<Match> matches;
    for (const Entry &entry : m_entries) {
        const bool all = std::all_of(words.begin(), words.end(), [&](const QString &word) {
            return prefixesOneOf(word, entry.allWords);
        });
        if (!all)
            continue;
        int rank = 3;
        if (entry.foldedCity == folded)
            rank = 0;
        else if (entry.foldedCity.startsWith(folded))
            rank = 1;
        else if (std::all_of(words.begin(), words.end(), [&](const QString &word) {
                     return prefixesOneOf(word, entry.cityWords);
                 }))
            rank = 2;
        matches.append({rank, &entry});
    }
    std::stable_sort(matches.begin(), matches.end(), [](const Match &a, const Match &b) {
        if (a.rank != b.rank)
            return a.rank < b.rank;
        if (a.entry->foldedCity != b.entry->foldedCity)
            return a.entry->foldedCity < b.entry->foldedCity;
        return a.entry->place.country < b.entry->place.country;
    });
    QList<Place> places;
    for (const Match &match : std::as_const(matches)) {
        if (places.size() >= limit)
            break;
        places.append(match.entry->place);
    }
    return places;
}

std::optional<ZVXDevGazetteer::Place> ZVXDevGazetteer::nearest(Coordinate point) const
{
    std::optional<Place> best;
    double bestDistance = 0;
    for (const Place &place : m_places) {
        const double d = distance(point, {place.latitude, place.longitude});
        if (!best || d < bestDistance) {
            best = place;
            bestDistance = d;
        }
    }
    return best;
}
