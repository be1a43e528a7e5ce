#pragma once

#include "zuvero_export.h"

#include <QLoggingCategory>

/*
    Every line the library logs goes through the category "zuvero", so that a
    host can silence or redirect it ("zuvero.info=false" in QT_LOGGING_RULES).
    Ordinary lines read "ZVX: <message>" at info level, errors
    "ZVX ERROR: <message>" at warning level. Messages start with the class, or
    class and method, and a colon. Never log a secret.
*/
ZUVERO_EXPORT Q_DECLARE_LOGGING_CATEGORY(lcZuvero)

ZUVERO_EXPORT void ZVXLog(const QString &message);
ZUVERO_EXPORT void ZVXLogError(const QString &message);

//! Byte strings in log lines: "<0a1b2c3d 4e>", as raw bytes are shown elsewhere in the library.
ZUVERO_EXPORT QString ZVXDescribeBytes(const QByteArray &bytes);
