#pragma once

#include "zuvero_export.h"

#include <QWidget>

#include <memory>
#include <optional>

class Zuvero;
class ZuveroChatLocationViewControllerPrivate;

//! A place on Earth, in degrees.
struct ZuveroLocationCoordinate
{
    double latitude = 0;
    double longitude = 0;
};

/*!
    A shared place on an interactive map, as the chat screen opens it: the
    map is centred on the place, \c radius metres fitting north to south
    and east to west, with a pin on it. Dragging moves the map; the wheel
    and the − / + buttons zoom it. Without a place the map shows the whole
    world and no pin.

    The tiles are the facade's (Zuvero::mapTileURLTemplate()), shared with
    the pictures of locations in the chat.
*/
class ZUVERO_EXPORT ZuveroChatLocationViewController : public QWidget
{
    Q_OBJECT

public:
    explicit ZuveroChatLocationViewController(QWidget *parent = nullptr);
    ~ZuveroChatLocationViewController() override;

    Zuvero *apiInstance() const;
    //! The facade whose tiles and connection the map uses (not owned); set it first.
    void setApiInstance(Zuvero *facade);
    std::optional<ZuveroLocationCoordinate> location() const;
    void setLocation(const std::optional<ZuveroLocationCoordinate> &location);
    //! Metres of the first view's span; 2000 unless set.
    double radius() const;
    void setRadius(double metres);

protected:
    void changeEvent(QEvent *event) override;

private:
    friend class ZuveroChatLocationViewControllerPrivate;
    std::unique_ptr<ZuveroChatLocationViewControllerPrivate> d;
};
