#include "ZVXLocationPickerController.h"

#include "ZVXGenerationCounter.h"
#include "ZVXGeocoder.h"
#include "ZVXImageBlur.h"
#include "ZVXLocalization.h"
#include "ZVXLogging.h"
#include "ZVXPreviews.h"
#include "ZVXTileMapView.h"
#include "ZVXUserPosition.h"
#include "Zuvero.h"
#include "ZuveroConnection_p.h"
#include "ZuveroUserDefaults.h"

#include <QCloseEvent>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPainter>
#include <QPointer>
#include <QPushButton>
#include <QVBoxLayout>

#include <cmath>

namespace {

QString text(const char *key)
{
    return ZVXLocalization::localizeString(QLatin1String(key));
}

// Two centres this close are the same place: the map's own round trip through pixels.
bool samePlace(ZVXMapTiles::Coordinate a, ZVXMapTiles::Coordinate b)
{
    return std::abs(a.latitude - b.latitude) < 1e-7
        && std::abs(ZVXMapTiles::wrapLongitude(a.longitude - b.longitude)) < 1e-7;
}

QString coordinateText(ZVXMapTiles::Coordinate at)
{
    return QStringLiteral("%1, %2")
        .arg(at.latitude, 0, 'f', 5)
        .arg(ZVXMapTiles::wrapLongitude(at.longitude), 0, 'f', 5);
}

// The search list's backdrop: the map as it was when the list opened, frosted.
class BlurredBackdrop : public QWidget
{
public:
    using QWidget::QWidget;

    void setPicture(const QImage &picture)
    {
        const bool dark = palette().color(QPalette::Window).lightness() < 128;
        m_picture = picture.isNull() ? QImage()
                                     : (dark ? ZVXImageBlur::applyDarkEffect(picture)
                                             : ZVXImageBlur::applyExtraLightEffect(picture));
        update();
    }

protected:
    void paintEvent(QPaintEvent *) override
    {
        QPainter painter(this);
        if (m_picture.isNull())
            painter.fillRect(rect(), palette().color(QPalette::Window));
        else
            painter.drawImage(rect(), m_picture);
    }

private:
    QImage m_picture;
};

} // namespace

class ZVXLocationPickerControllerPrivate
{
public:
    explicit ZVXLocationPickerControllerPrivate(ZVXLocationPickerController *q)
        : q(q)
    { }

    void build();
    void showRegion(ZVXMapTiles::Coordinate centre, double metres);
    void regionChanged();
    void lookUpAddress();
    void showAddress(const QString &fallback = {});
    void positionUpdated(ZVXMapTiles::Coordinate at);
    void searchEdited(const QString &typed);
    void runSearch();
    void showResults(const QString &asked, const QList<ZVXGeocodedPlace> &places,
                     const ZuveroError &error);
    void choose(QListWidgetItem *item);
    void openOverlay();
    void closeOverlay();
    void moveSelection(int step);
    void send();
    void cancel();

    ZVXLocationPickerController *const q;
    QPointer<Zuvero> facade;
    ZVXGeocoder *geocoder = nullptr;
    QLineEdit *searchField = nullptr;
    QWidget *mapArea = nullptr;
    ZVXTileMapView *map = nullptr;
    BlurredBackdrop *overlay = nullptr;
    QListWidget *results = nullptr;
    QLabel *searchStatus = nullptr;
    QLabel *addressLabel = nullptr;
    QPushButton *myPositionButton = nullptr;

    ZVXUserPosition *userPosition = nullptr;
    //! The user moved the map, or chose a place: a position that comes later leaves it.
    bool userPlaced = false;

    std::optional<QString> knownAddress;
    ZVXMapTiles::Coordinate addressCentre;
    ZVXGenerationCounter restSteps;
    ZVXGenerationCounter searchSteps;
    bool finished = false;
};

ZVXLocationPickerController::ZVXLocationPickerController(Zuvero *facade, QWidget *parent)
    : QWidget(parent, Qt::Window)
    , d(std::make_unique<ZVXLocationPickerControllerPrivate>(this))
{
    d->facade = facade;
    setObjectName(QStringLiteral("locationPicker"));
    setAttribute(Qt::WA_DeleteOnClose);
    setWindowTitle(text("zuveroLocationButtonTitle"));
    resize(480, 640);
    d->build();

    // Where to open before any position comes: the last place chosen, else the whole world.
    const QVariantMap last
        = ZuveroUserDefaults::standardUserDefaults().objectForKey(LastLocationKey).toMap();
    bool hasLast = false;
    const double latitude = last.value(QStringLiteral("lat")).toDouble(&hasLast);
    bool ok = false;
    const double longitude = last.value(QStringLiteral("lng")).toDouble(&ok);
    hasLast = hasLast && ok && std::abs(latitude) <= 90 && std::abs(longitude) <= 180;
    const double span = last.value(QStringLiteral("d")).toDouble(&ok);
    if (hasLast)
        d->showRegion({latitude, longitude}, ok && span > 0 ? span : PlaceSpan);
    else
        d->showRegion({20, 0}, 20'000'000);
}

ZVXLocationPickerController::~ZVXLocationPickerController() = default;

void ZVXLocationPickerControllerPrivate::build()
{
    auto *layout = new QVBoxLayout(q);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);

    searchField = new QLineEdit(q);
    searchField->setObjectName(QStringLiteral("searchField"));
    searchField->setAccessibleName(text("zuveroLocationSearchTitle"));
    searchField->setPlaceholderText(text("zuveroLocationSearchTitle"));
    searchField->setClearButtonEnabled(true);
    searchField->installEventFilter(q);
    auto *searchBar = new QWidget(q);
    auto *searchLayout = new QHBoxLayout(searchBar);
    searchLayout->setContentsMargins(8, 8, 8, 8);
    searchLayout->addWidget(searchField);
    layout->addWidget(searchBar);

    mapArea = new QWidget(q);
    auto *mapLayout = new QVBoxLayout(mapArea);
    mapLayout->setContentsMargins(0, 0, 0, 0);
    ZuveroConnectionPrivate *connection
        = facade ? ZuveroConnectionPrivate::get(facade->connection()) : nullptr;
    ZVXURLSession *session = connection ? connection->fileLoadingSession : nullptr;
    map = new ZVXTileMapView(session, connection ? connection->previews->tileCache() : nullptr,
                             facade ? facade->mapTileURLTemplate() : QString(), mapArea);
    map->setObjectName(QStringLiteral("mapView"));
    map->setAccessibleName(text("zuveroLocationMapTitle"));
    map->setCentrePinned(true);
    if (facade)
        map->setAttribution(facade->mapTileAttribution());
    map->installEventFilter(q);
    mapLayout->addWidget(map);
    mapArea->installEventFilter(q);
    layout->addWidget(mapArea, 1);
    geocoder = new ZVXGeocoder(session, facade ? facade->geocoderURL() : QString(), q);
    QObject::connect(map, &ZVXTileMapView::regionChanged, q, [this] { regionChanged(); });

    overlay = new BlurredBackdrop(mapArea);
    overlay->setObjectName(QStringLiteral("searchOverlay"));
    overlay->hide();
    auto *overlayLayout = new QVBoxLayout(overlay);
    overlayLayout->setContentsMargins(8, 8, 8, 8);
    searchStatus = new QLabel(overlay);
    searchStatus->setObjectName(QStringLiteral("searchStatus"));
    searchStatus->setWordWrap(true);
    searchStatus->setAlignment(Qt::AlignCenter);
    results = new QListWidget(overlay);
    results->setObjectName(QStringLiteral("searchResults"));
    results->setAccessibleName(text("zuveroLocationResultsTitle"));
    results->setFrameShape(QFrame::NoFrame);
    results->setAttribute(Qt::WA_TranslucentBackground);
    results->viewport()->setAutoFillBackground(false);
    results->setStyleSheet(QStringLiteral("QListWidget { background: transparent; }"
                                          "QListWidget::item { padding: 8px 4px; }"));
    results->installEventFilter(q);
    QObject::connect(results, &QListWidget::itemClicked, q,
                     [this](QListWidgetItem *item) { choose(item); });
    overlayLayout->addWidget(searchStatus);
    overlayLayout->addWidget(results, 1);
    QObject::connect(searchField, &QLineEdit::textEdited, q,
                     [this](const QString &typed) { searchEdited(typed); });
    // The clear button changes the text without an edit.
    QObject::connect(searchField, &QLineEdit::textChanged, q, [this](const QString &now) {
        if (now.trimmed().isEmpty())
            searchEdited(now);
    });

    addressLabel = new QLabel(q);
    addressLabel->setObjectName(QStringLiteral("addressLabel"));
    addressLabel->setAccessibleName(text("zuveroLocationAddressTitle"));
    addressLabel->setWordWrap(true);
    addressLabel->setTextInteractionFlags(Qt::TextSelectableByMouse);
    addressLabel->setContentsMargins(12, 8, 12, 4);
    addressLabel->setMinimumHeight(addressLabel->fontMetrics().lineSpacing() * 2 + 12);
    layout->addWidget(addressLabel);

    auto *bar = new QWidget(q);
    auto *barLayout = new QHBoxLayout(bar);
    barLayout->setContentsMargins(8, 4, 8, 8);
    const auto button
        = [bar, barLayout](const char *name, const QString &label, const QString &accessible) {
              auto *made = new QPushButton(label, bar);
              made->setObjectName(QLatin1String(name));
              made->setAccessibleName(accessible);
              made->setAutoDefault(false);
              barLayout->addWidget(made);
              return made;
          };
    QObject::connect(button("zoomOutButton", QStringLiteral("−"), text("zuveroZoomOutTitle")),
                     &QPushButton::clicked, map, &ZVXTileMapView::zoomOut);
    QObject::connect(button("zoomInButton", QStringLiteral("+"), text("zuveroZoomInTitle")),
                     &QPushButton::clicked, map, &ZVXTileMapView::zoomIn);
    myPositionButton
        = button("myPositionButton", text("zuveroMyPositionTitle"), text("zuveroMyPositionTitle"));
    myPositionButton->setEnabled(false);
    QObject::connect(myPositionButton, &QPushButton::clicked, q, [this] {
        if (const std::optional<ZVXMapTiles::Coordinate> at = userPosition->position()) {
            userPlaced = true;
            showRegion(*at, ZVXLocationPickerController::PlaceSpan);
        }
    });
    userPosition = new ZVXUserPosition(q);
    QObject::connect(userPosition, &ZVXUserPosition::positionUpdated, q,
                     [this](ZVXMapTiles::Coordinate at) { positionUpdated(at); });
    barLayout->addStretch(1);
    QObject::connect(
        button("cancelButton", text("zuveroCancelButtonTitle"), text("zuveroCancelButtonTitle")),
        &QPushButton::clicked, q, [this] { cancel(); });
    QPushButton *sendButton = button("sendButton", text("zuveroSendLocationButtonTitle"),
                                     text("zuveroSendLocationButtonTitle"));
    sendButton->setDefault(true);
    QObject::connect(sendButton, &QPushButton::clicked, q, [this] { send(); });
    layout->addWidget(bar);
    map->setFocus();
}

void ZVXLocationPickerControllerPrivate::showRegion(ZVXMapTiles::Coordinate centre, double metres)
{
    map->setRegion(centre, metres);
}

void ZVXLocationPickerControllerPrivate::regionChanged()
{
    // The address holds for the place it was found for; a move asks again once the map rests.
    showAddress();
    if (knownAddress && samePlace(map->centre(), addressCentre))
        return;
    const QPointer<ZVXLocationPickerController> self(q);
    restSteps.scheduleLast(ZVXLocationPickerController::ReverseGeocodingDelay, q, [this, self] {
        if (self)
            lookUpAddress();
    });
}

void ZVXLocationPickerControllerPrivate::lookUpAddress()
{
    const ZVXMapTiles::Coordinate asked = map->centre();
    geocoder->reverse(
        asked, [this, asked](const QList<ZVXGeocodedPlace> &places, const ZuveroError &error) {
            // Moved since: the next rest asks for the new place.
            if (!samePlace(map->centre(), asked))
                return;
            if (!places.isEmpty()) {
                knownAddress = places.first().address;
                addressCentre = asked;
                showAddress();
            } else {
                showAddress(error ? text("zuveroLocationAddressFailed")
                                  : text("zuveroLocationNoAddress"));
            }
        });
}

void ZVXLocationPickerControllerPrivate::showAddress(const QString &fallback)
{
    const ZVXMapTiles::Coordinate at = map->centre();
    if (const std::optional<QString> known = q->address()) {
        addressLabel->setText(*known);
        return;
    }
    const QString line = fallback.isEmpty() ? text("zuveroLocationLookingUp") : fallback;
    addressLabel->setText(line + u'\n' + coordinateText(at));
}

void ZVXLocationPickerControllerPrivate::positionUpdated(ZVXMapTiles::Coordinate at)
{
    const bool first = !map->userLocation();
    map->setUserLocation(at);
    myPositionButton->setEnabled(true);
    if (first && !userPlaced)
        showRegion(at, ZVXLocationPickerController::PlaceSpan);
}

void ZVXLocationPickerControllerPrivate::searchEdited(const QString &typed)
{
    if (typed.trimmed().isEmpty()) {
        searchSteps.advance();
        closeOverlay();
        return;
    }
    openOverlay();
    const QPointer<ZVXLocationPickerController> self(q);
    searchSteps.scheduleLast(ZVXLocationPickerController::SearchDelay, q, [this, self] {
        if (self)
            runSearch();
    });
}

void ZVXLocationPickerControllerPrivate::runSearch()
{
    const QString asked = searchField->text().trimmed();
    if (asked.isEmpty())
        return;
    if (results->count() == 0)
        searchStatus->setText(text("zuveroLocationSearching"));
    searchStatus->setVisible(results->count() == 0);
    geocoder->search(
        asked, [this, asked](const QList<ZVXGeocodedPlace> &places, const ZuveroError &error) {
            showResults(asked, places, error);
        });
}

void ZVXLocationPickerControllerPrivate::showResults(const QString &asked,
                                                     const QList<ZVXGeocodedPlace> &places,
                                                     const ZuveroError &error)
{
    if (searchField->text().trimmed() != asked || overlay->isHidden())
        return;
    results->clear();
    for (const ZVXGeocodedPlace &place : places) {
        auto *item = new QListWidgetItem(place.address, results);
        item->setData(Qt::UserRole, place.coordinate.latitude);
        item->setData(Qt::UserRole + 1, place.coordinate.longitude);
    }
    if (!places.isEmpty())
        results->setCurrentRow(0);
    searchStatus->setText(error ? text("zuveroLocationSearchFailed")
                                : text("zuveroLocationNoResults"));
    searchStatus->setVisible(places.isEmpty());
}

void ZVXLocationPickerControllerPrivate::choose(QListWidgetItem *item)
{
    if (!item)
        return;
    const ZVXMapTiles::Coordinate at{item->data(Qt::UserRole).toDouble(),
                                     item->data(Qt::UserRole + 1).toDouble()};
    userPlaced = true;
    // Known before the map moves, so that the move keeps it.
    knownAddress = item->text();
    closeOverlay();
    map->setRegion(at, ZVXLocationPickerController::PlaceSpan);
    addressCentre = map->centre();
    showAddress();
    map->setFocus();
}

void ZVXLocationPickerControllerPrivate::openOverlay()
{
    if (!overlay->isHidden())
        return;
    overlay->setGeometry(mapArea->rect());
    overlay->setPicture(map->grab().toImage());
    results->clear();
    searchStatus->setText(text("zuveroLocationSearching"));
    searchStatus->show();
    overlay->show();
    overlay->raise();
}

void ZVXLocationPickerControllerPrivate::closeOverlay()
{
    overlay->hide();
    results->clear();
}

void ZVXLocationPickerControllerPrivate::moveSelection(int step)
{
    if (results->count() == 0)
        return;
    const int row = std::clamp(results->currentRow() + step, 0, results->count() - 1);
    results->setCurrentRow(row);
}

void ZVXLocationPickerControllerPrivate::send()
{
    if (finished)
        return;
    finished = true;
    const ZVXMapTiles::Coordinate at = map->centre();
    const double metres = map->eastWestMetres();
    ZuveroUserDefaults::standardUserDefaults().setObject(
        QVariantMap{{QStringLiteral("lat"), at.latitude},
                    {QStringLiteral("lng"), at.longitude},
                    {QStringLiteral("d"), metres}},
        ZVXLocationPickerController::LastLocationKey);
    Q_EMIT q->didFinishPickingLocation(at, metres, q->address());
    q->close();
}

void ZVXLocationPickerControllerPrivate::cancel()
{
    if (finished)
        return;
    finished = true;
    Q_EMIT q->didCancel();
    q->close();
}

void ZVXLocationPickerController::setPositionSource(QGeoPositionInfoSource *source)
{
    d->userPosition->setSource(source);
}

ZVXMapTiles::Coordinate ZVXLocationPickerController::centre() const
{
    return d->map->centre();
}

std::optional<QString> ZVXLocationPickerController::address() const
{
    if (d->knownAddress && samePlace(d->map->centre(), d->addressCentre))
        return d->knownAddress;
    return std::nullopt;
}

void ZVXLocationPickerController::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    d->userPosition->start();
}

void ZVXLocationPickerController::closeEvent(QCloseEvent *event)
{
    // Closed by its window's button: a cancel.
    if (!d->finished) {
        d->finished = true;
        Q_EMIT didCancel();
    }
    QWidget::closeEvent(event);
}

void ZVXLocationPickerController::keyPressEvent(QKeyEvent *event)
{
    switch (event->key()) {
    case Qt::Key_Escape:
        if (!d->overlay->isHidden())
            d->closeOverlay();
        else
            d->cancel();
        break;
    case Qt::Key_Return:
    case Qt::Key_Enter:
        d->send();
        break;
    default:
        QWidget::keyPressEvent(event);
        return;
    }
    event->accept();
}

bool ZVXLocationPickerController::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == d->mapArea && event->type() == QEvent::Resize && !d->overlay->isHidden()) {
        d->overlay->setGeometry(d->mapArea->rect());
        d->overlay->setPicture(d->map->grab().toImage());
    } else if (watched == d->map
               && (event->type() == QEvent::MouseButtonPress || event->type() == QEvent::Wheel
                   || event->type() == QEvent::KeyPress)) {
        // The user has the map in hand: a position that comes later does not move it.
        d->userPlaced = true;
    } else if (watched == d->results && event->type() == QEvent::KeyPress) {
        // The list would pass Enter on after acting on it, and Enter on the window sends.
        const int key = static_cast<QKeyEvent *>(event)->key();
        if (key == Qt::Key_Return || key == Qt::Key_Enter) {
            d->choose(d->results->currentItem());
            return true;
        }
    } else if (watched == d->searchField && event->type() == QEvent::KeyPress) {
        const auto *key = static_cast<QKeyEvent *>(event);
        switch (key->key()) {
        case Qt::Key_Down:
            d->moveSelection(1);
            return true;
        case Qt::Key_Up:
            d->moveSelection(-1);
            return true;
        case Qt::Key_Return:
        case Qt::Key_Enter:
            if (d->results->currentItem())
                d->choose(d->results->currentItem());
            else if (!d->searchField->text().trimmed().isEmpty()) {
                // No waiting for the pause: the user asked.
                d->searchSteps.advance();
                d->openOverlay();
                d->runSearch();
            }
            return true;
        default:
            break;
        }
    }
    return QWidget::eventFilter(watched, event);
}
