#pragma once

#include <QList>
#include <QString>

//! A user's message as the dev server stored it.
struct ZVXStoredMessage
{
    QString uuid;
    QString text;
};

//! The users' messages in the dev server's database at \a path, in the order they arrived.
QList<ZVXStoredMessage> ZVXStoredUserMessages(const QString &path);
