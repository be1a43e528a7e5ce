#pragma once

//! \file
//! The map of a shared place.

#include "zuvero_export.h"

#include <QWidget>

#include <memory>
#include <optional>

class QGeoPositionInfoSource;
class Zuvero;
class ZuveroChatLocationViewControllerPrivate;

//! A place on Earth, in degrees.
struct ZuveroLocationCoordinate
{
    double latitude = 0; //!< degrees north of the equator; negative south of it
    double longitude = 0; //!< degrees east of Greenwich; negative west of it
};

/*!
    A shared place on an interactive map, as the chat screen opens it: the
    map is centred on the place, \c radius metres fitting north to south
    and east to west, with a pin on it. Dragging moves the map; the wheel
    and the − / + buttons zoom it. Without a place the map shows the whole
    world and no pin.

    The user's own position shows as a blue dot where the system gives one
    (Qt Positioning's default source, or the one set), never otherwise.

    The tiles are the facade's (Zuvero::mapTileURLTemplate()), shared with
    the pictures of locations in the chat.
*/
class ZUVERO_EXPORT ZuveroChatLocationViewController : public QWidget
{
    Q_OBJECT

public:
    //! A map of the whole world until a place is set.
    explicit ZuveroChatLocationViewController(QWidget *parent = nullptr);
    ~ZuveroChatLocationViewController() override;

    //! The facade whose tiles the map shows.
    Zuvero *apiInstance() const;
    //! The facade whose tiles and connection the map uses (not owned); set it first.
    void setApiInstance(Zuvero *facade);
    //! The place shown; none for the whole world.
    std::optional<ZuveroLocationCoordinate> location() const;
    //! Centres the map on \a location with a pin; none shows the whole world.
    void setLocation(const std::optional<ZuveroLocationCoordinate> &location);
    //! Metres of the first view's span; 2000 unless set.
    double radius() const;
    //! Shows \a metres around the place; 0 or less restores 2000.
    void setRadius(double metres);
    /*!
        Where the user's position comes from, instead of the system's
        default source; the viewer takes it over. Set it before the viewer
        is shown; null means no position.
    */
    void setPositionSource(QGeoPositionInfoSource *source);

protected:
    //! Starts following the user's position, once the screen is seen.
    void showEvent(QShowEvent *event) override;
    //! Titles the screen and names its buttons again in a new language.
    void changeEvent(QEvent *event) override;

private:
    friend class ZuveroChatLocationViewControllerPrivate;
    std::unique_ptr<ZuveroChatLocationViewControllerPrivate> d;
};
