#pragma once

#include "ZVXMapTiles.h"
#include "zuvero_export.h"

#include <QWidget>

#include <chrono>
#include <memory>
#include <optional>

class QGeoPositionInfoSource;
class Zuvero;
class ZVXLocationPickerControllerPrivate;

/*!
    The window in which the user chooses a place to share: a map under a
    fixed pin at its centre, moved and zoomed until the pin is on the place,
    and sent with "Send".

    - It opens on the user's position where the system gives one (the
      position source, by default Qt Positioning's own), otherwise on the
      last place chosen, otherwise on the whole world; the position shows as
      a dot, and "My Position" goes back to it.
    - Once the map rests for ReverseGeocodingDelay, the address under the pin
      is looked up (the facade's geocoderURL()) and shown below the map.
    - Typing in the search field opens a list of the places the text names
      over a blurred picture of the map, searched once typing pauses for
      SearchDelay; choosing one (click, or arrows and Enter) centres the map
      on it.
    - Enter sends, Escape closes the list, then the window (a cancel).

    It ends once, with didFinishPickingLocation() or didCancel(), and
    deletes itself when closed. Accessible names on every control; the
    layout follows the application's direction.
*/
class ZUVERO_EXPORT ZVXLocationPickerController : public QWidget
{
    Q_OBJECT

public:
    static constexpr std::chrono::milliseconds ReverseGeocodingDelay{600};
    static constexpr std::chrono::milliseconds SearchDelay{300};
    //! The span shown around the user's position or a place found.
    static constexpr double PlaceSpan = 2000;
    //! Where the last place chosen is kept, to open on it next time without a position.
    static constexpr QLatin1String LastLocationKey{"ZuveroLastPickedLocation"};

    //! Tiles, geocoder and connection of \a facade (not owned).
    explicit ZVXLocationPickerController(Zuvero *facade, QWidget *parent = nullptr);
    ~ZVXLocationPickerController() override;

    /*!
        Where the user's position comes from, instead of the system's
        default source; the picker takes it over. Set it before the window
        is shown; null means no position at all.
    */
    void setPositionSource(QGeoPositionInfoSource *source);

    //! The place under the pin.
    ZVXMapTiles::Coordinate centre() const;
    //! The address of the place under the pin; none until looked up, or when none is known.
    std::optional<QString> address() const;

Q_SIGNALS:
    //! The user sent \a location, the map \a longitudinalMeters wide, with its \a address if known.
    void didFinishPickingLocation(ZVXMapTiles::Coordinate location, double longitudinalMeters,
                                  const std::optional<QString> &address);
    //! The user closed the window without sending.
    void didCancel();

protected:
    void showEvent(QShowEvent *event) override;
    void closeEvent(QCloseEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    friend class ZVXLocationPickerControllerPrivate;
    std::unique_ptr<ZVXLocationPickerControllerPrivate> d;
};
