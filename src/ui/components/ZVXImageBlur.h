#pragma once

#include "zuvero_export.h"

#include <QColor>
#include <QImage>

/*!
    Frosted-glass backgrounds: a picture blurred, its colours made more
    vivid and tinted, as behind a sheet or an overlay. Fast enough to run
    on a full-screen snapshot for every overlay shown.

    The blur is three box blurs in a row (close to a Gaussian whose sigma
    is about the radius), each a running sum over the raw scanlines. Large
    radii blur a copy reduced by 2, 4 or 8 first, which the result cannot
    tell apart, and scale it back up. Edges repeat their last pixel, so a
    flat picture stays exactly flat. Radii are in device-independent
    pixels: a picture with a device pixel ratio of 2 is blurred twice as
    many pixels. Results are ARGB32_Premultiplied, the size and device
    pixel ratio of the picture. Thread-safe.
*/
class ZUVERO_EXPORT ZVXImageBlur
{
public:
    //! Radius 30, white at 30 %, saturation 1.8.
    static QImage applyLightEffect(const QImage &image);
    //! Radius 20, 97 % white at 82 %, saturation 1.8.
    static QImage applyExtraLightEffect(const QImage &image);
    //! Radius 20, 11 % white at 73 %, saturation 1.8.
    static QImage applyDarkEffect(const QImage &image);
    //! Radius 10, \a tintColor at 60 % opacity, saturation unchanged.
    static QImage applyTintEffect(const QImage &image, const QColor &tintColor);

    /*!
        \a image blurred by \a radius, its saturation scaled by
        \a saturationDeltaFactor (1: unchanged, 0: grey, below 0: inverted
        hues; taken within -64 to 64), then \a tintColor (when valid and not transparent) painted
        over it. Where \a maskImage is given, the blurred picture shows in
        proportion to the mask's alpha channel, or its grey level when it
        has none (white: blurred), and the original elsewhere; the mask is
        scaled to the picture. A radius of 0 does not blur. A null \a image
        gives a null image and a log line.
    */
    static QImage applyBlur(const QImage &image, qreal radius, const QColor &tintColor,
                            qreal saturationDeltaFactor, const QImage &maskImage = {});
};
