#pragma once

#include "ZuveroError.h"

#include <QColor>
#include <QStringList>
#include <QVariantMap>

#include <optional>

/*
    The configuration dictionary a host writes in "ZuveroConfig.plist" (or a
    JSON file with the same keys): credentials, language and the look of the
    chat screen. Normalising turns its texts and numbers into typed values
    (QColor, QFont, QMarginsF, ZuveroResizableImage, translated text); every
    value that cannot be used is logged with a "Could not configure" line and
    left out, and the rest still applies.
*/
namespace ZVXConfiguration {

ZUVERO_EXPORT QStringList requiredConfigurationKeys();
//! The map tiles' URL template and attribution text and the geocoder's URL, kept as they are.
ZUVERO_EXPORT QStringList mapConfigurationKeys();
/*!
    The reasons a host gives for using the photo library, the camera and the
    location ("NSPhotoLibraryUsageDescription", "NSCameraUsageDescription",
    "NSLocationWhenInUseUsageDescription"), kept as they are. The chat screen
    offers a source only when its reason is declared.
*/
ZUVERO_EXPORT QStringList usageDescriptionKeys();
ZUVERO_EXPORT QStringList localizableStringCustomizationKeys();
ZUVERO_EXPORT QStringList colorCustomizationKeys();
ZUVERO_EXPORT QStringList fontCustomizationKeys();
ZUVERO_EXPORT QStringList insetsCustomizationKeys();
ZUVERO_EXPORT QStringList imageCustomizationKeys();
//! The customisation lists joined: localisable, colour, font, insets, image.
ZUVERO_EXPORT QStringList allCustomizationKeys();

//! "#0F80F0" or "0f80f0" as a colour; nothing for any other length.
ZUVERO_EXPORT std::optional<QColor> zuveroColorWithHexCode(const QString &text);

ZUVERO_EXPORT QVariantMap normalizeConfigurationDictionary(const QVariantMap &raw);

/*!
    The dictionary in the configuration file at \a path: an XML property list,
    or a JSON object when the file starts with "{". Nothing and an \a error
    when it cannot be read or is not a dictionary.
*/
ZUVERO_EXPORT std::optional<QVariantMap> readConfigurationFile(const QString &path,
                                                               ZuveroError *error = nullptr);

} // namespace ZVXConfiguration
