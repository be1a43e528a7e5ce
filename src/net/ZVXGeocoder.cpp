#include "ZVXGeocoder.h"

#include "ZVXLogging.h"
#include "ZVXMainThread.h"
#include "ZVXMapSnapshotter.h"
#include "ZVXURLSession.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QUrl>

#include <cmath>

namespace {

constexpr auto Timeout = std::chrono::seconds(20);

ZuveroError geocoderError(ZuveroGeocoderErrorCode code, const QString &description)
{
    return ZuveroError::withDescription(ZuveroGeocoderErrorDomain, code, description);
}

// A geocoder's address may carry a key in its query; log lines never do.
QString loggable(const QUrl &url)
{
    return url.adjusted(QUrl::RemoveQuery | QUrl::RemoveUserInfo).toString();
}

std::optional<double> degrees(const QJsonValue &value, double maximum)
{
    bool ok = value.isDouble();
    double number = value.toDouble();
    if (value.isString())
        number = value.toString().trimmed().toDouble(&ok);
    if (!ok || !std::isfinite(number) || std::abs(number) > maximum)
        return std::nullopt;
    return number;
}

std::optional<ZVXGeocodedPlace> place(const QJsonValue &value)
{
    const QJsonObject object = value.toObject();
    const std::optional<double> latitude = degrees(object.value(QLatin1String("lat")), 90);
    const std::optional<double> longitude = degrees(object.value(QLatin1String("lon")), 180);
    const QString name = object.value(QLatin1String("display_name")).toString().trimmed();
    if (!latitude || !longitude || name.isEmpty())
        return std::nullopt;
    return ZVXGeocodedPlace{{*latitude, *longitude}, name};
}

struct Answer
{
    QList<ZVXGeocodedPlace> places;
    ZuveroError error;
    //! For the log: what came instead of places.
    QString detail;
};

// Off the main thread, in the session's reply check.
Answer read(const ZVXURLSessionResult &result, bool reverse)
{
    if (result.error)
        return {{}, result.error, result.error.localizedDescription()};
    if (!result.response || !result.data) {
        return {{},
                ZuveroError::withDescription(ZuveroErrorDomain, ZuveroErrorNoHTTPResponse,
                                             QStringLiteral("The address search did not answer.")),
                QStringLiteral("no HTTP reply")};
    }
    const int status = result.response->statusCode;
    // Nothing near the point: no address, which is no failure.
    if (reverse && status == 404)
        return {};
    if (status != 200) {
        const QString description
            = QStringLiteral("The address search answered with HTTP status %1.").arg(status);
        return {{},
                ZuveroError(ZuveroGeocoderErrorDomain, ZuveroGeocoderErrorRefused,
                            {{ZuveroLocalizedDescriptionKey, description},
                             {ZuveroHTTPStatusCodeKey, status}}),
                QStringLiteral("HTTP status %1").arg(status)};
    }
    const auto bad = [](const QString &detail) {
        return Answer{{},
                      geocoderError(ZuveroGeocoderErrorBadReply,
                                    QStringLiteral("The address search gave an answer that "
                                                   "could not be read.")),
                      detail};
    };
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(*result.data, &parseError);
    if (document.isNull())
        return bad(QStringLiteral("not JSON: %1").arg(parseError.errorString()));

    Answer answer;
    if (reverse) {
        if (!document.isObject())
            return bad(QStringLiteral("not a JSON object"));
        // The open geocoders say "nothing here" with 200 and an error text.
        if (document.object().contains(QLatin1String("error")))
            return {};
        const std::optional<ZVXGeocodedPlace> found = place(document.object());
        if (!found)
            return bad(QStringLiteral("no \"lat\", \"lon\" and \"display_name\""));
        answer.places.append(*found);
        return answer;
    }
    if (!document.isArray())
        return bad(QStringLiteral("not a JSON array"));
    const QJsonArray array = document.array();
    int skipped = 0;
    for (const QJsonValue &value : array) {
        if (const std::optional<ZVXGeocodedPlace> found = place(value))
            answer.places.append(*found);
        else
            ++skipped;
    }
    if (skipped > 0 && answer.places.isEmpty())
        return bad(QStringLiteral("no place with \"lat\", \"lon\" and \"display_name\""));
    if (skipped > 0)
        answer.detail = QStringLiteral("skipped %1 of %2 places without \"lat\", \"lon\" and "
                                       "\"display_name\"")
                            .arg(skipped)
                            .arg(array.size());
    return answer;
}

} // namespace

ZVXGeocoder::ZVXGeocoder(ZVXURLSession *session, const QString &endpoint, QObject *parent)
    : QObject(parent)
    , m_session(session)
    , m_endpoint(endpoint)
{ }

ZVXGeocoder::~ZVXGeocoder()
{
    cancel();
}

void ZVXGeocoder::search(const QString &text, Completion completion, int limit)
{
    ask(Kind::Search, m_search, QStringLiteral("/search"),
        {{QStringLiteral("q"), text.trimmed()},
         {QStringLiteral("limit"), QString::number(std::max(1, limit))}},
        std::move(completion));
}

void ZVXGeocoder::reverse(ZVXMapTiles::Coordinate coordinate, Completion completion)
{
    ask(Kind::Reverse, m_reverse, QStringLiteral("/reverse"),
        {{QStringLiteral("lat"), QString::number(coordinate.latitude, 'f', 6)},
         {QStringLiteral("lon"),
          QString::number(ZVXMapTiles::wrapLongitude(coordinate.longitude), 'f', 6)}},
        std::move(completion));
}

void ZVXGeocoder::cancel()
{
    for (Question *question : {&m_search, &m_reverse}) {
        ++question->generation;
        if (const auto task = std::exchange(question->task, nullptr))
            task->cancel();
    }
}

void ZVXGeocoder::ask(Kind kind, Question &question, const QString &path,
                      const QList<std::pair<QString, QString>> &parameters, Completion completion)
{
    const quint64 generation = ++question.generation;
    if (const auto task = std::exchange(question.task, nullptr))
        task->cancel();

    QString base = m_endpoint;
    while (base.endsWith(QLatin1Char('/')))
        base.chop(1);
    QUrl url(base + path);
    const QString scheme = url.scheme().toLower();
    if (!url.isValid() || url.host().isEmpty()
        || (scheme != QLatin1String("https") && scheme != QLatin1String("http")) || !m_session) {
        const ZuveroError error = !m_session
            ? ZuveroError::withDescription(ZuveroErrorDomain, ZuveroErrorNoHTTPResponse,
                                           QStringLiteral("The address search is not available."))
            : geocoderError(ZuveroGeocoderErrorInvalidURL,
                            QStringLiteral("The address search is not set up."));
        ZVXLogError(QStringLiteral("ZVXGeocoder: cannot ask \"%1\": %2")
                        .arg(loggable(url), error.localizedDescription()));
        // Still after the caller returns, as any other answer.
        ZVXMainThread::async(
            [&question, generation, completion, error] {
                if (question.generation == generation && completion)
                    completion({}, error);
            },
            this);
        return;
    }
    // Encoded by hand: "+" and "&" in a typed address must reach the server as themselves.
    QByteArray query = url.query(QUrl::FullyEncoded).toLatin1();
    for (const auto &[key, value] : parameters)
        query
            += (query.isEmpty() ? "" : "&") + key.toLatin1() + '=' + QUrl::toPercentEncoding(value);
    query += "&format=json";
    url.setQuery(QString::fromLatin1(query), QUrl::StrictMode);

    ZVXURLRequest request = ZVXMapSnapshotter::tileRequest(url.toString(), Timeout);
    request.setValue("application/json", "Accept");
    const QPointer<ZVXGeocoder> self(this);
    const bool reverse = kind == Kind::Reverse;
    question.task = m_session->dataTask(
        request,
        [self, &question, generation, completion, reverse,
         url](const ZVXURLSessionResult &result) -> ZVXURLSession::Completion {
            Answer answer = read(result, reverse);
            return [self, &question, generation, completion, url, answer = std::move(answer)] {
                // Superseded or cancelled: the newer question answers instead.
                if (!self || question.generation != generation)
                    return;
                question.task = nullptr;
                if (answer.error)
                    ZVXLogError(QStringLiteral("ZVXGeocoder: %1 failed: %2")
                                    .arg(loggable(url), answer.detail));
                else if (!answer.detail.isEmpty())
                    ZVXLog(QStringLiteral("ZVXGeocoder: %1: %2").arg(loggable(url), answer.detail));
                if (completion)
                    completion(answer.places, answer.error);
            };
        });
    question.task->resume();
}
