#pragma once

#include "ZVXDevRecords.h"

#include <QJsonObject>

/*
    Stored messages in the forms clients read: the message dictionary of a
    message list, and the push payload announcing a message to a device.
    Only keys the wire carries: what a client adds for its own cache (such
    as "offline" or an attachment's "icon") is never sent.
*/
namespace ZVXDevDictionaries {

/*!
    The message dictionary, with absolute "dataURL" and (for pictures)
    "previewURL" under \a filesBase ("https://host:port/api/1.0").
*/
QJsonObject message(const ZVXDevMessageRecord &message, const QString &filesBase);

//! Longest text a push payload carries; longer texts are cut and marked truncated.
inline constexpr int PushTextLength = 160;

//! The payload announcing \a message to the device \a installationId of \a user.
QJsonObject pushPayload(const ZVXDevMessageRecord &message, const ZVXDevUser &user,
                        const QString &installationId, int badge);

} // namespace ZVXDevDictionaries
