#pragma once

#include "zuvero_export.h"

#include <QImage>
#include <QString>

/*
    The library's own resources under ":/Zuvero.bundle/": images (drawn as
    SVG, rasterised on demand), the translations of its texts and its
    "ZuveroConfig.plist". Images scale to any pixel density, so each is
    stored once.
*/
namespace ZVXResources {

/*!
    The image called \a name, written with or without the "Zuvero.bundle/"
    prefix and without an extension ("Zuvero.bundle/ZuveroError"), rendered
    at its natural size times \a devicePixelRatio. Null when there is no such
    image.
*/
ZUVERO_EXPORT QImage image(const QString &name, qreal devicePixelRatio = 1.0);

//! The resource path of a file of the bundle, e.g. ":/Zuvero.bundle/ZuveroConfig.plist".
ZUVERO_EXPORT QString path(const QString &fileName);

} // namespace ZVXResources
