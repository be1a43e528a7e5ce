#include "ZuveroChatLocationViewController.h"

#include "ZVXLocalization.h"
#include "ZVXPreviews.h"
#include "ZVXTileMapView.h"
#include "ZVXUserPosition.h"
#include "Zuvero.h"
#include "ZuveroConnection_p.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QPointer>
#include <QPushButton>
#include <QVBoxLayout>

class ZuveroChatLocationViewControllerPrivate
{
public:
    explicit ZuveroChatLocationViewControllerPrivate(ZuveroChatLocationViewController *q)
        : q(q)
    { }

    //! The map for the facade now set, in place of the last one.
    void makeMap();
    void showRegion();
    void retranslate();

    ZuveroChatLocationViewController *const q;
    QPointer<Zuvero> facade;
    std::optional<ZuveroLocationCoordinate> location;
    double radius = ZVXPreviews::DefaultLocationSpan;
    QVBoxLayout *layout = nullptr;
    ZVXTileMapView *map = nullptr;
    ZVXUserPosition *userPosition = nullptr;
};

ZuveroChatLocationViewController::ZuveroChatLocationViewController(QWidget *parent)
    : QWidget(parent)
    , d(std::make_unique<ZuveroChatLocationViewControllerPrivate>(this))
{
    setObjectName(QStringLiteral("locationViewer"));
    d->userPosition = new ZVXUserPosition(this);
    connect(d->userPosition, &ZVXUserPosition::positionUpdated, this,
            [this](ZVXMapTiles::Coordinate at) { d->map->setUserLocation(at); });
    d->layout = new QVBoxLayout(this);
    d->layout->setContentsMargins(0, 0, 0, 0);
    d->layout->setSpacing(0);
    d->makeMap();

    auto *bar = new QWidget(this);
    auto *barLayout = new QHBoxLayout(bar);
    barLayout->setContentsMargins(8, 4, 8, 4);
    barLayout->addStretch(1);
    const auto button = [this, bar, barLayout](const char *name, const QString &text,
                                               void (ZVXTileMapView::*step)()) {
        auto *pressed = new QPushButton(text, bar);
        pressed->setObjectName(QString::fromLatin1(name));
        connect(pressed, &QPushButton::clicked, this, [this, step] { (d->map->*step)(); });
        barLayout->addWidget(pressed);
    };
    button("zoomOutButton", QStringLiteral("−"), &ZVXTileMapView::zoomOut);
    button("zoomInButton", QStringLiteral("+"), &ZVXTileMapView::zoomIn);
    d->layout->addWidget(bar);
    d->retranslate();
}

void ZuveroChatLocationViewControllerPrivate::retranslate()
{
    using ZVXLocalization::localizeString;
    q->setWindowTitle(localizeString(QStringLiteral("zuveroLocationViewTitle")));
    // The buttons show signs; their names say what they do.
    const std::pair<const char *, const char *> buttons[] = {
        {"zoomOutButton", "zuveroZoomOutButtonTitle"}, {"zoomInButton", "zuveroZoomInButtonTitle"}};
    for (const auto &[name, key] : buttons) {
        if (auto *button = q->findChild<QPushButton *>(QLatin1String(name))) {
            button->setAccessibleName(localizeString(QLatin1String(key)));
            button->setToolTip(button->accessibleName());
        }
    }
}

void ZuveroChatLocationViewController::changeEvent(QEvent *event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::LanguageChange)
        d->retranslate();
}

ZuveroChatLocationViewController::~ZuveroChatLocationViewController() = default;

void ZuveroChatLocationViewControllerPrivate::makeMap()
{
    ZuveroConnectionPrivate *connection
        = facade ? ZuveroConnectionPrivate::get(facade->connection()) : nullptr;
    auto *made = new ZVXTileMapView(connection ? connection->fileLoadingSession : nullptr,
                                    connection ? connection->previews->tileCache() : nullptr,
                                    facade ? facade->mapTileURLTemplate() : QString(), q);
    made->setObjectName(QStringLiteral("mapView"));
    if (facade)
        made->setAttribution(facade->mapTileAttribution());
    if (map) {
        // The layout hands back the replaced item: ours to delete.
        delete layout->replaceWidget(map, made);
        delete map;
    } else {
        layout->insertWidget(0, made, 1);
    }
    map = made;
    map->setUserLocation(userPosition->position());
    showRegion();
}

void ZuveroChatLocationViewControllerPrivate::showRegion()
{
    if (location) {
        map->setPin(ZVXMapTiles::Coordinate{location->latitude, location->longitude});
        map->setRegion({location->latitude, location->longitude}, radius);
    } else {
        // The whole world, for want of a place.
        map->setPin(std::nullopt);
        map->setRegion({0, 0}, 20'000'000);
    }
}

Zuvero *ZuveroChatLocationViewController::apiInstance() const
{
    return d->facade;
}

void ZuveroChatLocationViewController::setApiInstance(Zuvero *facade)
{
    if (d->facade == facade)
        return;
    d->facade = facade;
    d->makeMap();
}

std::optional<ZuveroLocationCoordinate> ZuveroChatLocationViewController::location() const
{
    return d->location;
}

void ZuveroChatLocationViewController::setLocation(
    const std::optional<ZuveroLocationCoordinate> &location)
{
    d->location = location;
    d->showRegion();
}

double ZuveroChatLocationViewController::radius() const
{
    return d->radius;
}

void ZuveroChatLocationViewController::setRadius(double metres)
{
    d->radius = metres > 0 ? metres : ZVXPreviews::DefaultLocationSpan;
    d->showRegion();
}

void ZuveroChatLocationViewController::setPositionSource(QGeoPositionInfoSource *source)
{
    d->userPosition->setSource(source);
}

void ZuveroChatLocationViewController::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    d->userPosition->start();
}
