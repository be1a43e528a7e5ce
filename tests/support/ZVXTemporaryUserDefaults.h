#pragma once

#include "ZuveroUserDefaults.h"

#include <QStandardPaths>
#include <QTemporaryDir>

//! Points the standard user defaults at a fresh file for as long as it exists.
class ZVXTemporaryUserDefaults
{
public:
    ZVXTemporaryUserDefaults()
    {
        // Anything that still reaches the default location stays out of the user's own files.
        QStandardPaths::setTestModeEnabled(true);
        ZuveroUserDefaults::setStandardLocation(m_directory.filePath(QStringLiteral("Zuvero.ini")));
    }
    ~ZVXTemporaryUserDefaults() { ZuveroUserDefaults::setStandardLocation({}); }

    QString fileName() const { return ZuveroUserDefaults::standardLocation(); }
    QString directory() const { return m_directory.path(); }

private:
    QTemporaryDir m_directory;
};
