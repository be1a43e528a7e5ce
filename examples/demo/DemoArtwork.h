#pragma once

#include <QColor>
#include <QImage>

//! The shop's pictures, drawn rather than shipped: a table lamp with a shade of \a shade.
QImage demoLampPicture(const QColor &shade, const QSize &size);
