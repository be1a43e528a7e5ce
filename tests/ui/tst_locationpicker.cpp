#include "AttachmentsState.h"
#include "ZVXAttachmentPickerController.h"
#include "ZVXDevServerSuite.h"
#include "ZVXLocationPickerController.h"
#include "ZVXManualClock.h"
#include "ZVXTemporaryUserDefaults.h"
#include "ZVXTileMapView.h"
#include "Zuvero.h"
#include "ZuveroChatLocationViewController.h"
#include "ZuveroChatViewController.h"

#include <QApplication>
#include <QBuffer>
#include <QDir>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QNmeaPositionInfoSource>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

// Saves \a widget as <name>.png in the folder ZUVERO_SCREENSHOT_DIR names, if any.
void keepScreenshot(QWidget *widget, const QString &name)
{
    const QString folder = qEnvironmentVariable("ZUVERO_SCREENSHOT_DIR");
    if (!folder.isEmpty())
        widget->grab().toImage().save(QDir(folder).filePath(name + u".png"_s));
}

// A receiver's report of a fix at 48°51.396' N 2°21.132' E (Paris), one second apart.
QByteArray nmeaNearParis()
{
    QByteArray text;
    for (const char *time : {"120000.00", "120001.00"}) {
        const QByteArray body = "GPRMC,"_ba + time + ",A,4851.396,N,00221.132,E,0.0,0.0,010125,,";
        char sum = 0;
        for (char c : body)
            sum ^= c;
        text += '$' + body + '*'
            + QByteArray::number(uchar(sum), 16).toUpper().rightJustified(2, '0') + "\r\n";
    }
    return text;
}

QNmeaPositionInfoSource *parisReceiver()
{
    auto *source = new QNmeaPositionInfoSource(QNmeaPositionInfoSource::SimulationMode);
    auto *device = new QBuffer(source);
    device->setData(nmeaNearParis());
    source->setDevice(device);
    return source;
}

bool near(double a, double b, double within = 0.01)
{
    return std::abs(a - b) < within;
}

void darken(QWidget *widget)
{
    QPalette dark;
    dark.setColor(QPalette::Window, QColor(0x20, 0x22, 0x25));
    dark.setColor(QPalette::WindowText, QColor(0xe8, 0xea, 0xed));
    dark.setColor(QPalette::Base, QColor(0x2b, 0x2d, 0x31));
    dark.setColor(QPalette::Text, QColor(0xe8, 0xea, 0xed));
    dark.setColor(QPalette::Button, QColor(0x35, 0x37, 0x3b));
    dark.setColor(QPalette::ButtonText, QColor(0xe8, 0xea, 0xed));
    dark.setColor(QPalette::PlaceholderText, QColor(0x9a, 0xa0, 0xa6));
    widget->setPalette(dark);
}

struct Outcome
{
    bool success = false;
    ZVXAttachmentKind kind = ZVXAttachmentKind::None;
    QVariantMap location;
};

} // namespace

/*
    The location picker as a user works it, against a real dev server (its
    tiles and its geocoder), with a real position source replaying a
    receiver's NMEA sentences, and time on the manual clock.
*/
class TestLocationPicker : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void opensOnThePositionAndSendsItsAddress();
    void searchOverlayFindsAPlaceByKeyboard();
    void searchWithNothingFoundOrAFailingGeocoder();
    void outcomesThroughTheAttachmentPicker_data();
    void outcomesThroughTheAttachmentPicker();
    void chatScreenSendsTheChosenPlace();
    void locationViewerShowsTheUserAsADot();

private:
    ZVXLocationPickerController *picker(QGeoPositionInfoSource *source = nullptr);
    bool fault(const QString &path, int status);
    void search(ZVXLocationPickerController *shown, const QString &text);

    ZVXDevServerSuite m_suite;
    std::unique_ptr<Zuvero> m_facade;
    std::unique_ptr<ZVXTemporaryUserDefaults> m_defaults;
    std::unique_ptr<ZVXManualClock> m_clock;
};

void TestLocationPicker::initTestCase()
{
    QVERIFY(m_suite.start());
    m_facade = m_suite.facade(u"explorer"_s);
    QVERIFY(ZVXDevServerSuite::registered(m_facade.get()));
}

void TestLocationPicker::init()
{
    QVERIFY(m_suite.reset());
    m_defaults = std::make_unique<ZVXTemporaryUserDefaults>();
    m_clock = std::make_unique<ZVXManualClock>(QDateTime::currentDateTimeUtc());
}

void TestLocationPicker::cleanup()
{
    for (QWidget *widget : QApplication::topLevelWidgets())
        widget->close();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    m_clock.reset();
    m_defaults.reset();
    AttachmentsState::setUsageDescriptions({});
}

ZVXLocationPickerController *TestLocationPicker::picker(QGeoPositionInfoSource *source)
{
    auto *made = new ZVXLocationPickerController(m_facade.get());
    made->setPositionSource(source);
    made->resize(420, 560);
    made->show();
    return made;
}

bool TestLocationPicker::fault(const QString &path, int status)
{
    return m_suite.admin()
               .postJSON(u"/admin/faults"_s,
                         {{u"path"_s, path},
                          {u"kind"_s, u"status"_s},
                          {u"status"_s, status},
                          {u"count"_s, 100}})
               .status
        == 200;
}

void TestLocationPicker::search(ZVXLocationPickerController *shown, const QString &text)
{
    auto *field = shown->findChild<QLineEdit *>(u"searchField"_s);
    field->setFocus();
    QTest::keyClicks(field, text);
    m_clock->advance(ZVXLocationPickerController::SearchDelay);
}

void TestLocationPicker::opensOnThePositionAndSendsItsAddress()
{
    ZVXLocationPickerController *shown = picker(parisReceiver());
    QTRY_VERIFY_WITH_TIMEOUT(near(shown->centre().latitude, 48.8566), 5000);
    QVERIFY(near(shown->centre().longitude, 2.3522));
    auto *address = shown->findChild<QLabel *>(u"addressLabel"_s);
    QVERIFY(!shown->address());
    QVERIFY(shown->findChild<QPushButton *>(u"myPositionButton"_s)->isEnabled());

    // Once the map rests the address comes.
    m_clock->advance(ZVXLocationPickerController::ReverseGeocodingDelay);
    QTRY_COMPARE(shown->address().value_or(QString()), u"Paris, France"_s);
    QCOMPARE(address->text(), u"Paris, France"_s);
    QVERIFY(QTest::qWaitForWindowExposed(shown));
    auto *map = shown->findChild<ZVXTileMapView *>(u"mapView"_s);
    QTRY_VERIFY_WITH_TIMEOUT(map->grab().toImage().pixelColor(2, 2) != QColor(0xdd, 0xdd, 0xdd),
                             10000);
    keepScreenshot(shown, u"location-picker-light"_s);

    // Moved by a key, the address goes until the next rest.
    map->setFocus();
    QTest::keyClick(map, Qt::Key_Right);
    QVERIFY(!shown->address());
    QVERIFY(address->text().contains(u'\n'));

    QSignalSpy sent(shown, &ZVXLocationPickerController::didFinishPickingLocation);
    QTest::keyClick(map, Qt::Key_Return);
    QCOMPARE(sent.size(), 1);
    const auto at = sent.first().at(0).value<ZVXMapTiles::Coordinate>();
    QVERIFY(near(at.latitude, 48.8566) && at.longitude > 2.3522);
    // About 2 km shown across a view of 420 pixels: between one and two zoom steps of it.
    const double metres = sent.first().at(1).toDouble();
    QVERIFY2(metres > 1000 && metres < 4500, qPrintable(QString::number(metres)));
    QVERIFY(!sent.first().at(2).value<std::optional<QString>>());
}

void TestLocationPicker::searchOverlayFindsAPlaceByKeyboard()
{
    ZVXLocationPickerController *shown = picker();
    auto *overlay = shown->findChild<QWidget *>(u"searchOverlay"_s);
    auto *results = shown->findChild<QListWidget *>(u"searchResults"_s);
    for (const QString &name :
         {u"searchField"_s, u"mapView"_s, u"searchResults"_s, u"addressLabel"_s, u"zoomInButton"_s,
          u"zoomOutButton"_s, u"myPositionButton"_s, u"cancelButton"_s, u"sendButton"_s}) {
        auto *control = shown->findChild<QWidget *>(name);
        QVERIFY2(control && !control->accessibleName().isEmpty(), qPrintable(name));
    }
    search(shown, u"new"_s);
    QVERIFY(overlay->isVisible());
    QTRY_VERIFY(results->count() > 1);
    // Cities that begin with the text, in order: North Dakota's New Salem, then New York.
    QCOMPARE(results->item(0)->text(), u"New Salem, United States"_s);
    QCOMPARE(results->item(1)->text(), u"New York, United States"_s);
    QCOMPARE(results->currentRow(), 0);
    keepScreenshot(shown, u"location-picker-search"_s);

    // Arrows move through the list while typing goes on in the field.
    auto *typing = shown->findChild<QLineEdit *>(u"searchField"_s);
    QTest::keyClick(typing, Qt::Key_Down);
    QTest::keyClick(typing, Qt::Key_Down);
    QCOMPARE(results->currentRow(), 2);
    QTest::keyClick(typing, Qt::Key_Up);
    QCOMPARE(results->currentRow(), 1);
    QSignalSpy sent(shown, &ZVXLocationPickerController::didFinishPickingLocation);
    QTest::keyClick(shown->findChild<QLineEdit *>(u"searchField"_s), Qt::Key_Return);
    QVERIFY(!overlay->isVisible());
    QVERIFY(sent.isEmpty());
    QVERIFY(near(shown->centre().latitude, 40.714));
    // Known from the search: no need to ask again.
    QCOMPARE(shown->address().value_or(QString()), u"New York, United States"_s);

    // Dark and right to left, the list open over the frosted map.
    darken(shown);
    shown->setLayoutDirection(Qt::RightToLeft);
    auto *field = shown->findChild<QLineEdit *>(u"searchField"_s);
    field->clear();
    search(shown, u"pari"_s);
    QTRY_VERIFY(results->count() > 0);
    QVERIFY(results->item(0)->text().startsWith(u"Paris"_s));
    auto *send = shown->findChild<QPushButton *>(u"sendButton"_s);
    auto *cancel = shown->findChild<QPushButton *>(u"cancelButton"_s);
    QVERIFY(send->mapTo(shown, QPoint()).x() < cancel->mapTo(shown, QPoint()).x());
    keepScreenshot(shown, u"location-picker-dark-rtl"_s);

    // Escape closes the list first, then the window.
    QSignalSpy cancelled(shown, &ZVXLocationPickerController::didCancel);
    QTest::keyClick(field, Qt::Key_Escape);
    QVERIFY(!overlay->isVisible());
    QVERIFY(cancelled.isEmpty());
    QTest::keyClick(field, Qt::Key_Escape);
    QCOMPARE(cancelled.size(), 1);
}

void TestLocationPicker::searchWithNothingFoundOrAFailingGeocoder()
{
    ZVXLocationPickerController *shown = picker();
    auto *results = shown->findChild<QListWidget *>(u"searchResults"_s);
    auto *status = shown->findChild<QLabel *>(u"searchStatus"_s);
    search(shown, u"xyzzy"_s);
    QTRY_COMPARE(status->text(), u"No places found"_s);
    QCOMPARE(results->count(), 0);
    keepScreenshot(shown, u"location-picker-no-results"_s);

    QVERIFY(fault(u"/geocode/search"_s, 503));
    QVERIFY(fault(u"/geocode/reverse"_s, 503));
    auto *field = shown->findChild<QLineEdit *>(u"searchField"_s);
    field->clear();
    search(shown, u"paris"_s);
    QTRY_VERIFY(status->text().contains(u"did not work"_s));
    QCOMPARE(results->count(), 0);
    m_clock->advance(ZVXLocationPickerController::ReverseGeocodingDelay);
    QTRY_VERIFY(shown->findChild<QLabel *>(u"addressLabel"_s)->text().contains(u"unavailable"_s));
    keepScreenshot(shown, u"location-picker-search-failed"_s);
}

void TestLocationPicker::outcomesThroughTheAttachmentPicker_data()
{
    QTest::addColumn<QString>("how");
    QTest::addColumn<bool>("success");
    QTest::addColumn<QStringList>("keys");

    QTest::newRow("found, with its address")
        << u"search"_s << true << QStringList{u"address"_s, u"d"_s, u"lat"_s, u"lng"_s};
    QTest::newRow("no address known")
        << u"no address"_s << true << QStringList{u"d"_s, u"lat"_s, u"lng"_s};
    QTest::newRow("cancelled") << u"cancel"_s << false << QStringList{};
}

void TestLocationPicker::outcomesThroughTheAttachmentPicker()
{
    QFETCH(QString, how);
    QFETCH(bool, success);
    QFETCH(QStringList, keys);

    QWidget host;
    host.resize(300, 200);
    host.show();
    std::optional<Outcome> outcome;
    QPointer<ZVXAttachmentPickerController> controller = new ZVXAttachmentPickerController(&host);
    controller->presentLocationPickerFromView(&host, m_facade.get(),
                                              [&](bool ok, ZVXAttachmentKind kind,
                                                  const ZuveroImagePtr &image,
                                                  const QVariantMap &place) {
                                                  QVERIFY(!image);
                                                  outcome = Outcome{ok, kind, place};
                                              });
    ZVXLocationPickerController *shown = controller->locationPickerController();
    QVERIFY(shown && shown->isVisible());
    QVERIFY(shown->isWindow());

    if (how == u"search"_s) {
        search(shown, u"paris"_s);
        QTRY_VERIFY(shown->findChild<QListWidget *>(u"searchResults"_s)->count() > 0);
        QTest::keyClick(shown->findChild<QListWidget *>(u"searchResults"_s), Qt::Key_Return);
        QTest::mouseClick(shown->findChild<QPushButton *>(u"sendButton"_s), Qt::LeftButton);
    } else if (how == u"no address"_s) {
        QVERIFY(fault(u"/geocode/reverse"_s, 503));
        m_clock->advance(ZVXLocationPickerController::ReverseGeocodingDelay);
        QTRY_VERIFY(
            shown->findChild<QLabel *>(u"addressLabel"_s)->text().contains(u"unavailable"_s));
        QTest::mouseClick(shown->findChild<QPushButton *>(u"sendButton"_s), Qt::LeftButton);
    } else {
        QTest::keyClick(shown, Qt::Key_Escape);
    }

    QTRY_VERIFY(outcome);
    QCOMPARE(outcome->success, success);
    QCOMPARE(outcome->kind, success ? ZVXAttachmentKind::Location : ZVXAttachmentKind::None);
    QStringList got = outcome->location.keys();
    got.sort();
    QCOMPARE(got, keys);
    if (how == u"search"_s) {
        QCOMPARE(outcome->location.value(u"address"_s).toString(), u"Paris, France"_s);
        QVERIFY(near(outcome->location.value(u"lat"_s).toDouble(), 48.8667));
        QCOMPARE(outcome->location.value(u"lat"_s).typeId(), QMetaType::Double);
        QVERIFY(outcome->location.value(u"d"_s).toDouble() > 0);
    }
    QTRY_VERIFY(!controller);
}

void TestLocationPicker::chatScreenSendsTheChosenPlace()
{
    AttachmentsState::setUsageDescriptions(
        {{u"NSLocationWhenInUseUsageDescription"_s, u"To share where you are"_s}});
    AttachmentsState::setCameraAvailability([] { return false; });
    auto zuvero = m_suite.facade(u"sharer"_s);
    QVERIFY(ZVXDevServerSuite::registered(zuvero.get()));
    ZuveroChatViewController screen;
    screen.setApiInstance(zuvero.get());
    screen.resize(400, 560);
    screen.show();
    QVERIFY(QTest::qWaitForWindowExposed(&screen));

    auto *attach = screen.findChild<QWidget *>(u"attachmentButton"_s);
    QVERIFY(attach && attach->isVisible());
    QTest::mouseClick(attach, Qt::LeftButton);
    QMenu *sheet = nullptr;
    QTRY_VERIFY((sheet = qobject_cast<QMenu *>(QApplication::activePopupWidget())));
    QStringList titles;
    for (QAction *action : sheet->actions())
        if (!action->isSeparator())
            titles << action->text();
    QCOMPARE(titles, (QStringList{u"Share Location"_s, u"Cancel"_s}));
    QTest::mouseClick(sheet, Qt::LeftButton, {},
                      sheet->actionGeometry(sheet->actions().first()).center());

    ZVXLocationPickerController *shown = nullptr;
    QTRY_VERIFY((shown = screen.window()->findChild<ZVXLocationPickerController *>()));
    search(shown, u"tokyo"_s);
    QTRY_VERIFY(shown->findChild<QListWidget *>(u"searchResults"_s)->count() > 0);
    QTest::keyClick(shown->findChild<QLineEdit *>(u"searchField"_s), Qt::Key_Return);
    QTest::keyClick(shown->findChild<ZVXTileMapView *>(u"mapView"_s), Qt::Key_Return);
    // Whatever the screen puts off runs on the clock.
    m_clock->advance(2s);

    ZVXDevClient user(m_suite.server(), zuvero->jwt().value_or(QString()));
    QVariantMap place;
    QTRY_VERIFY_WITH_TIMEOUT(
        [&] {
            for (const QVariant &sent :
                 user.get(u"/api/1.0/messages"_s).json().value(u"messages"_s).toList())
                if (sent.toMap().contains(u"location"_s))
                    place = sent.toMap().value(u"location"_s).toMap();
            return !place.isEmpty();
        }(),
        10000);
    QCOMPARE(place.value(u"address"_s).toString(), u"Tokyo, Japan"_s);
    QVERIFY(near(place.value(u"lat"_s).toDouble(), 35.65));
    QVERIFY(place.value(u"d"_s).toDouble() > 0);
}

void TestLocationPicker::locationViewerShowsTheUserAsADot()
{
    ZuveroChatLocationViewController viewer;
    viewer.setApiInstance(m_facade.get());
    viewer.setPositionSource(parisReceiver());
    viewer.setLocation(ZuveroLocationCoordinate{48.8566, 2.3622});
    viewer.setRadius(2000);
    viewer.resize(400, 480);
    viewer.show();
    auto *map = viewer.findChild<ZVXTileMapView *>(u"mapView"_s);
    QTRY_VERIFY_WITH_TIMEOUT(map->userLocation().has_value(), 5000);
    QVERIFY(near(map->userLocation()->latitude, 48.8566));

    // Without a source there is no dot, and none is made up.
    ZuveroChatLocationViewController alone;
    alone.setApiInstance(m_facade.get());
    alone.setPositionSource(nullptr);
    alone.show();
    QVERIFY(!alone.findChild<ZVXTileMapView *>(u"mapView"_s)->userLocation());
}

QTEST_MAIN(TestLocationPicker)
#include "tst_locationpicker.moc"
