#pragma once

#include "zuvero_export.h"

#include <QByteArray>
#include <QImage>
#include <QList>

#include <chrono>
#include <memory>

/*!
    A picture as a list of decoded frames with the time each is shown:
    an animated GIF or WebP (what QImageReader can animate), or a still
    PNG or JPEG as one frame; other formats are refused. Every frame is
    decoded once, when the image is made, so that playing it costs no
    decoding.

    Hostile files are bounded: decoding stops at a number of frames and at
    a total size of decoded pixels; over either the image is empty and a
    line is logged, as it is for bytes that do not decode. (Qt's own
    allocation limit is process-wide and the host's: the declared size is
    checked here against the budget before anything is decoded.) A file
    that breaks off after some frames keeps those.

    Delays under 20 ms are shown for 100 ms, as browsers do. Copies share
    the frames. Thread-safe: an image may be made on a worker thread.
*/
class ZUVERO_EXPORT ZVXAnimatedImage
{
public:
    struct Limits
    {
        int maximumFrames = 1000;
        //! Decoded pixels of all frames together, at 4 bytes a pixel.
        qint64 maximumTotalBytes = 128 * 1024 * 1024;
    };

    static constexpr std::chrono::milliseconds MinimumDelay{20};
    static constexpr std::chrono::milliseconds ShortDelayReplacement{100};

    //! An empty image.
    ZVXAnimatedImage();
    //! \a data decoded in full, within \a limits.
    explicit ZVXAnimatedImage(const QByteArray &data, const Limits &limits);
    explicit ZVXAnimatedImage(const QByteArray &data);

    bool isNull() const { return frameCount() == 0; }
    int frameCount() const;
    bool isAnimated() const { return frameCount() > 1; }
    //! Frame \a index, ARGB32_Premultiplied or RGB32; null out of range.
    QImage frame(int index) const;
    //! How long frame \a index is shown; 0 out of range.
    std::chrono::milliseconds delay(int index) const;
    //! All delays added up.
    std::chrono::milliseconds duration() const;
    //! Times the animation repeats after it is first shown; -1: forever, 0: shown once.
    int loopCount() const;
    //! The size of the first frame, in pixels; animated formats give every frame that size.
    QSize size() const;
    //! Decoded bytes held.
    qint64 byteCount() const;

private:
    struct Frame
    {
        QImage image;
        std::chrono::milliseconds delay;
    };
    struct Data
    {
        QList<Frame> frames;
        int loopCount = 0;
        qint64 byteCount = 0;
    };

    std::shared_ptr<const Data> m_data;
};
