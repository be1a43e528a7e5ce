#pragma once

//! \file
//! An alert the library asks the screen to show.

#include <QString>
#include <QStringList>

#include <functional>

//! An alert with a title, a message and buttons; \c completion receives the pressed button's index.
struct ZVXAlert
{
    QString title; //!< the alert's heading
    QString message; //!< the text under the heading
    QStringList buttons; //!< the button titles, left to right; "OK" when empty
    //! Called with the index in \c buttons of the button pressed; may be empty.
    std::function<void(int buttonIndex)> completion;
};
