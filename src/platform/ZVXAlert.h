#pragma once

#include <QString>
#include <QStringList>

#include <functional>

//! An alert with a title, a message and buttons; \c completion receives the pressed button's index.
struct ZVXAlert
{
    QString title;
    QString message;
    QStringList buttons;
    std::function<void(int buttonIndex)> completion;
};
