#include "ZVXDevGazetteer.h"
#include "ZVXDevServerSuite.h"
#include "ZVXGeocoder.h"
#include "ZVXLogCapture.h"
#include "ZuveroConnection_p.h"

#include <QFile>
#include <QJsonDocument>
#include <QTest>
#include <QUrl>

using namespace Qt::StringLiterals;

namespace {

struct Answer
{
    bool done = false;
    QList<ZVXGeocodedPlace> places;
    ZuveroError error;
};

ZVXGeocoder::Completion into(Answer *answer)
{
    return [answer](const QList<ZVXGeocodedPlace> &places, const ZuveroError &error) {
        answer->done = true;
        answer->places = places;
        answer->error = error;
    };
}

const QByteArray Countries = "# comment\n"
                             "FR\tFrance\n"
                             "US\tUnited States\n"
                             "BR\tBrazil\n"
                             "CW\tCuraçao\n"
                             "xx\tlower case is no code\n";

} // namespace

/*
    The dev server's geocoder: its gazetteer read from tzdata's tables, and
    its two routes asked through the library's own client, the way the
    location picker asks them.
*/
class TestDevServerGeocoder : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void zoneLines_data();
    void zoneLines();
    void searchIsCaseAndAccentBlindBestFirst();
    void roundTripsThroughTheLibrary();
    void badQuestionsGetAClearRefusal();
    void badAnswersAreErrorsAndOldQuestionsStaySilent();
    void missingTablesLeaveAnEmptyGazetteer();

private:
    ZVXGeocoder *geocoder(const QString &endpoint = {});

    ZVXDevServerSuite m_suite;
    std::unique_ptr<Zuvero> m_facade;
};

void TestDevServerGeocoder::initTestCase()
{
    QVERIFY(m_suite.start());
    m_facade = m_suite.facade(u"geocoding"_s);
}

void TestDevServerGeocoder::init()
{
    QVERIFY(m_suite.reset());
}

ZVXGeocoder *TestDevServerGeocoder::geocoder(const QString &endpoint)
{
    ZuveroConnectionPrivate *connection = ZuveroConnectionPrivate::get(m_facade->connection());
    return new ZVXGeocoder(connection->fileLoadingSession,
                           endpoint.isEmpty() ? m_facade->geocoderURL() : endpoint, this);
}

void TestDevServerGeocoder::zoneLines_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<QString>("display"); // empty: the line is skipped with a problem
    QTest::addColumn<double>("latitude");
    QTest::addColumn<double>("longitude");

    QTest::newRow("minutes") << "FR\t+4852+00220\tEurope/Paris"_ba << u"Paris, France"_s
                             << 48 + 52 / 60.0 << 2 + 20 / 60.0;
    QTest::newRow("seconds, west and several countries")
        << "US,CA\t+404251-0740023\tAmerica/New_York\tEastern (most areas)"_ba
        << u"New York, United States"_s << 40 + 42 / 60.0 + 51 / 3600.0
        << -(74 + 0 / 60.0 + 23 / 3600.0);
    QTest::newRow("south, deeper zone name")
        << "BR\t-2332-04637\tAmerica/Argentina/Sao_Paulo\r"_ba << u"Sao Paulo, Brazil"_s
        << -(23 + 32 / 60.0) << -(46 + 37 / 60.0);
    QTest::newRow("country unknown to iso3166.tab keeps its code")
        << "ZZ\t+0000+00000\tEtc/Nowhere"_ba << u"Nowhere, ZZ"_s << 0.0 << 0.0;
    QTest::newRow("two fields") << "FR\t+4852+00220"_ba << QString() << 0.0 << 0.0;
    QTest::newRow("lower-case code")
        << "fr\t+4852+00220\tEurope/Paris"_ba << QString() << 0.0 << 0.0;
    QTest::newRow("minutes past 59")
        << "FR\t+4860+00220\tEurope/Paris"_ba << QString() << 0.0 << 0.0;
    QTest::newRow("latitude past 90")
        << "FR\t+9100+00220\tEurope/Paris"_ba << QString() << 0.0 << 0.0;
    QTest::newRow("no sign before the longitude")
        << "FR\t+4852000220\tEurope/Paris"_ba << QString() << 0.0 << 0.0;
    QTest::newRow("mixed precision")
        << "FR\t+4852+0022000\tEurope/Paris"_ba << QString() << 0.0 << 0.0;
    QTest::newRow("zone without a city") << "FR\t+4852+00220\tUTC"_ba << QString() << 0.0 << 0.0;
}

void TestDevServerGeocoder::zoneLines()
{
    QFETCH(QByteArray, line);
    QFETCH(QString, display);
    QFETCH(double, latitude);
    QFETCH(double, longitude);

    QStringList problems;
    const ZVXDevGazetteer gazetteer
        = ZVXDevGazetteer::parse("# header\n\n"_ba + line + '\n', Countries, &problems);
    // The lower-case line of the country table is always one problem.
    QCOMPARE(problems.filter(u"iso3166.tab line 6"_s).size(), 1);
    if (display.isEmpty()) {
        QVERIFY(gazetteer.places().isEmpty());
        QCOMPARE(problems.filter(u"zone1970.tab line 3: "_s).size(), 1);
        return;
    }
    QCOMPARE(problems.size(), 1);
    QCOMPARE(gazetteer.places().size(), 1);
    const ZVXDevGazetteer::Place &place = gazetteer.places().first();
    QCOMPARE(place.displayName(), display);
    QVERIFY(qAbs(place.latitude - latitude) < 1e-9);
    QVERIFY(qAbs(place.longitude - longitude) < 1e-9);
}

void TestDevServerGeocoder::searchIsCaseAndAccentBlindBestFirst()
{
    const QByteArray zones = "FR\t+4852+00220\tEurope/Paris\n"
                             "US\t+404251-0740023\tAmerica/New_York\n"
                             "US\t+340308-1181434\tAmerica/Los_Angeles\n"
                             "BR\t-2332-04637\tAmerica/Sao_Paulo\n"
                             "CW\t+1211-06900\tAmerica/Curacao\n"
                             "US\t+3927-07434\tAmerica/Atlantic_City\n"_ba;
    const ZVXDevGazetteer gazetteer = ZVXDevGazetteer::parse(zones, Countries, nullptr);
    const auto names = [&](const QString &query, int limit = 10) {
        QStringList found;
        for (const ZVXDevGazetteer::Place &place : gazetteer.search(query, limit))
            found << place.city;
        return found;
    };
    QCOMPARE(names(u"PARIS"_s), QStringList{u"Paris"_s});
    QCOMPARE(names(u"  são   paulo "_s), QStringList{u"Sao Paulo"_s});
    QCOMPARE(names(u"curaçao"_s), QStringList{u"Curacao"_s});
    QCOMPARE(names(u"new y"_s), QStringList{u"New York"_s});
    // A country's name finds its cities; a city named by the words comes before the others.
    QCOMPARE(names(u"united"_s),
             (QStringList{u"Atlantic City"_s, u"Los Angeles"_s, u"New York"_s}));
    QCOMPARE(names(u"city"_s), QStringList{u"Atlantic City"_s});
    QCOMPARE(names(u"united"_s, 2), (QStringList{u"Atlantic City"_s, u"Los Angeles"_s}));
    QVERIFY(names(u"paris texas"_s).isEmpty());
    QVERIFY(names(u"  ,. "_s).isEmpty());

    // Nearest by great circle: across the antimeridian too.
    QCOMPARE(gazetteer.nearest({48.7, 2.5})->city, u"Paris"_s);
    QCOMPARE(gazetteer.nearest({34, -118})->city, u"Los Angeles"_s);
    QVERIFY(!ZVXDevGazetteer().nearest({0, 0}));
    QVERIFY(qAbs(ZVXDevGazetteer::distance({0, 179.5}, {0, -179.5}) - 111195) < 100);
}

void TestDevServerGeocoder::roundTripsThroughTheLibrary()
{
    ZVXGeocoder *asked = geocoder();
    QCOMPARE(asked->endpoint(), m_suite.server().origin() + u"/geocode"_s);

    Answer found;
    asked->search(u"paris"_s, into(&found));
    QTRY_VERIFY(found.done);
    QVERIFY2(!found.error, qPrintable(found.error.localizedDescription()));
    QVERIFY(!found.places.isEmpty());
    QCOMPARE(found.places.first().address, u"Paris, France"_s);
    QVERIFY(qAbs(found.places.first().coordinate.latitude - 48.8667) < 0.01);
    QVERIFY(qAbs(found.places.first().coordinate.longitude - 2.3333) < 0.01);

    // Letters beyond ASCII reach the server as typed.
    Answer accented;
    asked->search(u"São Paulo"_s, into(&accented));
    QTRY_VERIFY(accented.done);
    QVERIFY(!accented.error);
    QCOMPARE(accented.places.value(0).address, u"Sao Paulo, Brazil"_s);

    Answer near;
    asked->reverse({40.6, -73.9}, into(&near));
    QTRY_VERIFY(near.done);
    QVERIFY(!near.error);
    QCOMPARE(near.places.size(), 1);
    QCOMPARE(near.places.first().address, u"New York, United States"_s);

    // The limit reaches the server.
    Answer few;
    asked->search(u"united"_s, into(&few), 3);
    QTRY_VERIFY(few.done);
    QCOMPARE(few.places.size(), 3);
}

void TestDevServerGeocoder::badQuestionsGetAClearRefusal()
{
    ZVXDevClient client(m_suite.server(), QString());
    const auto refused = [&](const QString &target, const QString &why) {
        const ZVXDevReply reply = client.get(target);
        if (reply.status != 400)
            qWarning() << target << reply.status << reply.body;
        return reply.status == 400 && reply.json().value(u"error"_s).toString().contains(why);
    };
    QVERIFY(refused(u"/geocode/search"_s, u"missing parameter \"q\""_s));
    QVERIFY(refused(u"/geocode/search?q=%20%20"_s, u"\"q\" is empty"_s));
    QVERIFY(refused(u"/geocode/search?q="_s + QString(201, u'a'), u"longer than 200"_s));
    QVERIFY(refused(u"/geocode/search?q=paris&limit=abc"_s, u"\"limit\""_s));
    QVERIFY(refused(u"/geocode/search?q=paris&limit=0"_s, u"\"limit\""_s));
    QVERIFY(refused(u"/geocode/reverse?lon=2"_s, u"missing parameter \"lat\""_s));
    QVERIFY(refused(u"/geocode/reverse?lat=91&lon=2"_s, u"\"lat\" must be"_s));
    QVERIFY(refused(u"/geocode/reverse?lat=1&lon=nan"_s, u"\"lon\" must be"_s));

    // A large limit is taken as the largest; places come in the open geocoders' form.
    const ZVXDevReply many = client.get(u"/geocode/search?q=a&limit=100000"_s);
    QCOMPARE(many.status, 200);
    const QVariantList places = QJsonDocument::fromJson(many.body).toVariant().toList();
    QCOMPARE(places.size(), 50);
    const QVariantMap first = places.first().toMap();
    QCOMPARE(first.value(u"lat"_s).typeId(), QMetaType::QString);
    QVERIFY(first.value(u"display_name"_s).toString().contains(u", "_s));
}

void TestDevServerGeocoder::badAnswersAreErrorsAndOldQuestionsStaySilent()
{
    ZVXGeocoder *asked = geocoder();
    ZVXLogCapture log;
    QCOMPARE(
        m_suite.admin()
            .postJSON(
                u"/admin/faults"_s,
                {{u"path"_s, u"/geocode/search"_s}, {u"kind"_s, u"status"_s}, {u"status"_s, 503}})
            .status,
        200);
    // Questions not asked before: the file session keeps answers it had.
    Answer refused;
    asked->search(u"lisbon"_s, into(&refused));
    QTRY_VERIFY(refused.done);
    QCOMPARE(refused.error.domain(), QString(ZuveroGeocoderErrorDomain));
    QCOMPARE(refused.error.code(), qint64(ZuveroGeocoderErrorRefused));
    QCOMPARE(refused.error.userInfo().value(ZuveroHTTPStatusCodeKey).toInt(), 503);

    QCOMPARE(m_suite.admin()
                 .postJSON(u"/admin/faults"_s,
                           {{u"path"_s, u"/geocode/reverse"_s}, {u"kind"_s, u"nonJSON"_s}})
                 .status,
             200);
    Answer garbled;
    asked->reverse({10.5, 20.5}, into(&garbled));
    QTRY_VERIFY(garbled.done);
    QCOMPARE(garbled.error.code(), qint64(ZuveroGeocoderErrorBadReply));
    QVERIFY(!log.lines().filter(u"ZVX ERROR: ZVXGeocoder: "_s).filter(u"not JSON"_s).isEmpty());

    // A question superseded while the server holds it never answers; the newer one does.
    QCOMPARE(
        m_suite.admin()
            .postJSON(
                u"/admin/faults"_s,
                {{u"path"_s, u"/geocode/search"_s}, {u"kind"_s, u"delay"_s}, {u"delayMs"_s, 300}})
            .status,
        200);
    Answer old, latest;
    asked->search(u"berlin"_s, into(&old));
    asked->search(u"madrid"_s, into(&latest));
    QTRY_VERIFY(latest.done);
    QCOMPARE(latest.places.first().address, u"Madrid, Spain"_s);
    // The cancelled one ended long before this next answer.
    Answer after;
    asked->search(u"rome"_s, into(&after));
    QTRY_VERIFY(after.done);
    QVERIFY(!old.done);

    // An address that is no web address fails at once, and says so.
    Answer nowhere;
    geocoder(u"ftp://example.org/geocode"_s)->search(u"paris"_s, into(&nowhere));
    QTRY_VERIFY(nowhere.done);
    QCOMPARE(nowhere.error.code(), qint64(ZuveroGeocoderErrorInvalidURL));
}

void TestDevServerGeocoder::missingTablesLeaveAnEmptyGazetteer()
{
    ZVXDevServerProcess bare(ZVXDevServerProcess::Log::ToFile);
    QVERIFY(bare.start({u"--open"_s, u"--gazetteer"_s, u"/nonexistent/zoneinfo"_s}));
    ZVXDevClient client(bare, QString());
    const ZVXDevReply search = client.get(u"/geocode/search?q=paris"_s);
    QCOMPARE(search.status, 200);
    QCOMPARE(search.body, "[]"_ba);
    QCOMPARE(client.get(u"/geocode/reverse?lat=0&lon=0"_s).status, 404);
    QFile log(bare.logPath());
    QVERIFY(log.open(QIODevice::ReadOnly));
    QVERIFY(log.readAll().contains("gazetteer: cannot read /nonexistent/zoneinfo/zone1970.tab"));
}

QTEST_MAIN(TestDevServerGeocoder)
#include "tst_devserver_geocoder.moc"
