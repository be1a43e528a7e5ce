#include "ZVXImageBlur.h"

#include "ZVXLogging.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <numbers>
#include <vector>

namespace {

constexpr qreal MaximumRadius = 1000; // device pixels; a larger blur shows one flat colour anyway
constexpr qreal MaximumSaturation = 64; // beyond it every colour is at an extreme anyway
constexpr int SumShift = 23; // fixed point of the box averages: exact for flat runs up to 32k wide
// A reduced copy is blurred once the box is at least this wide there.
constexpr int MinimumReducedBox = 8;
constexpr int MaximumReduction = 8;

// Premultiplied ARGB32 as it is in memory, one quint32 per pixel.
struct Pixels
{
    explicit Pixels(QImage &image)
        : bits(image.bits())
        , stride(image.bytesPerLine())
        , width(image.width())
        , height(image.height())
    { }
    quint32 *row(int y) const { return reinterpret_cast<quint32 *>(bits + y * stride); }

    uchar *bits;
    qsizetype stride;
    int width;
    int height;
};

// The box of each of the three passes that approximate a Gaussian of sigma ~ radius (the
// usual 3 * sqrt(2 pi) / 4 rule), odd so that it is centred on its pixel.
int boxSize(qreal radius)
{
    const int size = int(std::floor(radius * 3 * std::sqrt(2 * std::numbers::pi) / 4 + 0.5));
    return size % 2 ? size : size + 1;
}

int reductionFor(int box)
{
    int factor = 1;
    while (factor < MaximumReduction && box / (factor * 2) >= MinimumReducedBox)
        factor *= 2;
    return factor;
}

constexpr quint32 Half = 1u << (SumShift - 1);

quint32 multiplierFor(int box)
{
    return quint32(std::lround(double(1u << SumShift) / box));
}

quint32 average(quint32 b, quint32 g, quint32 r, quint32 a, quint32 multiplier)
{
    return ((b * multiplier + Half) >> SumShift) | ((g * multiplier + Half) >> SumShift) << 8
        | ((r * multiplier + Half) >> SumShift) << 16 | ((a * multiplier + Half) >> SumShift) << 24;
}

// x * a / 255 on the four channels at once, rounded.
inline quint32 multiply255(quint32 x, quint32 a)
{
    quint32 low = (x & 0xff00ff) * a;
    low = ((low + ((low >> 8) & 0xff00ff) + 0x800080) >> 8) & 0xff00ff;
    quint32 high = ((x >> 8) & 0xff00ff) * a;
    high = (high + ((high >> 8) & 0xff00ff) + 0x800080) & 0xff00ff00;
    return high | low;
}

// One box pass along a row of \a n pixels. The row is copied with its end pixels repeated
// \a box / 2 times each side into \a padded, so that the loop needs no bounds.
void boxRow(const quint32 *in, quint32 *out, int n, int box, std::vector<quint32> &padded)
{
    const int half = box / 2;
    padded.resize(size_t(n + box));
    std::fill_n(padded.begin(), half, in[0]);
    std::copy_n(in, n, padded.begin() + half);
    std::fill(padded.begin() + half + n, padded.end(), in[n - 1]);
    const quint32 *p = padded.data();
    const quint32 multiplier = multiplierFor(box);
    quint32 b = 0, g = 0, r = 0, a = 0;
    for (int i = 0; i < box; ++i) {
        b += p[i] & 0xff;
        g += (p[i] >> 8) & 0xff;
        r += (p[i] >> 16) & 0xff;
        a += p[i] >> 24;
    }
    for (int x = 0; x < n; ++x) {
        out[x] = average(b, g, r, a, multiplier);
        const quint32 incoming = p[x + box];
        const quint32 outgoing = p[x];
        // Unsigned wrap-around cancels out: the sums themselves never go below zero.
        b += (incoming & 0xff) - (outgoing & 0xff);
        g += ((incoming >> 8) & 0xff) - ((outgoing >> 8) & 0xff);
        r += ((incoming >> 16) & 0xff) - ((outgoing >> 16) & 0xff);
        a += (incoming >> 24) - (outgoing >> 24);
    }
}

// One box pass down the columns, a row at a time so that memory is read in order. Every byte
// of a row is a channel with a sum of its own: the loops are plain and vectorise.
void boxColumns(const Pixels &in, const Pixels &out, int box, std::vector<quint32> &sums)
{
    const int half = box / 2;
    const int bytes = in.width * 4;
    const int last = in.height - 1;
    const quint32 multiplier = multiplierFor(box);
    sums.assign(size_t(bytes), 0);
    quint32 *sum = sums.data();
    const auto bytesOf = [](const Pixels &pixels, int y) {
        return reinterpret_cast<const uchar *>(pixels.row(y));
    };
    for (int i = -half; i <= half; ++i) {
        const uchar *row = bytesOf(in, std::clamp(i, 0, last));
        for (int x = 0; x < bytes; ++x)
            sum[x] += row[x];
    }
    for (int y = 0; y <= last; ++y) {
        auto *target = reinterpret_cast<uchar *>(out.row(y));
        const uchar *incoming = bytesOf(in, std::min(y + half + 1, last));
        const uchar *outgoing = bytesOf(in, std::max(y - half, 0));
        for (int x = 0; x < bytes; ++x) {
            target[x] = uchar((sum[x] * multiplier + Half) >> SumShift);
            // Unsigned wrap-around cancels out: the sums themselves never go below zero.
            sum[x] += quint32(incoming[x]) - quint32(outgoing[x]);
        }
    }
}

// Three box passes each way: close to a Gaussian.
void blur(QImage &image, int box)
{
    Pixels pixels(image);
    std::vector<quint32> row(size_t(pixels.width));
    std::vector<quint32> padded;
    for (int y = 0; y < pixels.height; ++y) {
        quint32 *line = pixels.row(y);
        boxRow(line, row.data(), pixels.width, box, padded);
        boxRow(row.data(), line, pixels.width, box, padded);
        boxRow(line, row.data(), pixels.width, box, padded);
        std::copy(row.begin(), row.end(), line);
    }
    QImage spare(image.size(), QImage::Format_ARGB32_Premultiplied);
    Pixels other(spare);
    std::vector<quint32> sums;
    boxColumns(pixels, other, box, sums);
    boxColumns(other, pixels, box, sums);
    boxColumns(pixels, other, box, sums);
    image = std::move(spare);
}

// Each pixel of the result the average of a \a factor x \a factor block (edges repeated).
QImage reduced(const QImage &source, int factor)
{
    const int sourceWidth = source.width();
    const int sourceHeight = source.height();
    const int width = (sourceWidth + factor - 1) / factor;
    const int height = (sourceHeight + factor - 1) / factor;
    QImage result(width, height, QImage::Format_ARGB32_Premultiplied);
    Pixels out(result);
    const int shift = 2 * std::countr_zero(unsigned(factor));
    const quint32 rounding = (1u << shift) >> 1;
    // Column sums of two channels each, 16 bits apiece: at most 8 x 8 x 255 in a lane.
    std::vector<quint32> blueRed(size_t(width) * factor);
    std::vector<quint32> greenAlpha(size_t(width) * factor);
    for (int y = 0; y < height; ++y) {
        std::fill(blueRed.begin(), blueRed.end(), 0);
        std::fill(greenAlpha.begin(), greenAlpha.end(), 0);
        for (int j = 0; j < factor; ++j) {
            const auto *row = reinterpret_cast<const quint32 *>(
                source.constScanLine(std::min(y * factor + j, sourceHeight - 1)));
            for (int x = 0; x < sourceWidth; ++x) {
                blueRed[size_t(x)] += row[x] & 0xff00ff;
                greenAlpha[size_t(x)] += (row[x] >> 8) & 0xff00ff;
            }
            // The last block repeats the last column.
            for (int x = sourceWidth; x < width * factor; ++x) {
                blueRed[size_t(x)] += row[sourceWidth - 1] & 0xff00ff;
                greenAlpha[size_t(x)] += (row[sourceWidth - 1] >> 8) & 0xff00ff;
            }
        }
        quint32 *target = out.row(y);
        for (int x = 0; x < width; ++x) {
            quint32 br = 0;
            quint32 ga = 0;
            for (int i = 0; i < factor; ++i) {
                br += blueRed[size_t(x * factor + i)];
                ga += greenAlpha[size_t(x * factor + i)];
            }
            const auto lane = [&](quint32 lanes, int at) {
                return (((lanes >> at) & 0xffff) + rounding) >> shift;
            };
            target[x] = lane(br, 0) | lane(ga, 0) << 8 | lane(br, 16) << 16 | lane(ga, 16) << 24;
        }
    }
    return result;
}

// (x * (256 - w) + y * w) / 256 on the four channels at once, rounded.
inline quint32 interpolate256(quint32 x, quint32 y, quint32 w)
{
    const quint32 v = 256 - w;
    const quint32 low = (((x & 0xff00ff) * v + (y & 0xff00ff) * w + 0x800080) >> 8) & 0xff00ff;
    const quint32 high
        = (((x >> 8) & 0xff00ff) * v + ((y >> 8) & 0xff00ff) * w + 0x800080) & 0xff00ff00;
    return high | low;
}

// Where the centre of output pixel \a i falls in a copy reduced by \a factor, in 256ths of a
// reduced pixel: ((i + 0.5) / factor - 0.5) * 256, exact because factor divides 128.
int samplePosition(int i, int factor)
{
    return (2 * i + 1) * 128 / factor - 128;
}

// Reduced row \a row brought to the output's width, bilinearly.
void widen(const quint32 *row, int smallWidth, int factor, quint32 *target, int width,
           const std::vector<quint32> &weights)
{
    // Reduced column c lies under output column (c + 0.5) * factor - 0.5: the first run between
    // two reduced pixels starts half a reduced pixel in, the columns before it repeat the edge.
    const int lead = std::min(factor / 2, width);
    std::fill_n(target, lead, row[0]);
    int x = lead;
    for (int c = 0; c + 1 < smallWidth && x < width; ++c) {
        const int run = std::min(factor, width - x);
        for (int j = 0; j < run; ++j)
            target[x + j] = interpolate256(row[c], row[c + 1], weights[size_t(j)]);
        x += run;
    }
    std::fill_n(target + x, width - x, row[smallWidth - 1]);
}

// The reduced copy brought back to \a size, bilinearly with pixel centres aligned and the edges
// repeated: each reduced row is widened once, and output rows mix the two widened rows about
// them, byte by byte (a plain loop that vectorises).
QImage enlarged(const QImage &small, int factor, QSize size)
{
    QImage result(size, QImage::Format_ARGB32_Premultiplied);
    Pixels out(result);
    const int smallWidth = small.width();
    const int smallHeight = small.height();
    const int width = size.width();
    std::vector<quint32> weights(static_cast<size_t>(factor));
    for (int j = 0; j < factor; ++j)
        weights[size_t(j)] = quint32(samplePosition(factor / 2 + j, factor) & 0xff);
    std::vector<quint32> upperRow(static_cast<size_t>(width));
    std::vector<quint32> lowerRow(static_cast<size_t>(width));
    int upperIndex = -1;
    int lowerIndex = -1;
    const auto widened = [&](int index, std::vector<quint32> &buffer, int &bufferIndex) {
        if (bufferIndex != index) {
            widen(reinterpret_cast<const quint32 *>(small.constScanLine(index)), smallWidth, factor,
                  buffer.data(), width, weights);
            bufferIndex = index;
        }
    };
    for (int y = 0; y < size.height(); ++y) {
        const int position = std::max(0, samplePosition(y, factor));
        const int upper = std::min(position >> 8, smallHeight - 1);
        const int lower = std::min(upper + 1, smallHeight - 1);
        const quint32 weight = upper == lower ? 0 : quint32(position & 0xff);
        // Moving down one reduced row, the lower row becomes the upper one.
        if (upper == lowerIndex && upper != upperIndex) {
            std::swap(upperRow, lowerRow);
            std::swap(upperIndex, lowerIndex);
        }
        widened(upper, upperRow, upperIndex);
        auto *target = reinterpret_cast<uchar *>(out.row(y));
        const auto *top = reinterpret_cast<const uchar *>(upperRow.data());
        if (weight == 0) {
            std::copy_n(top, width * 4, target);
            continue;
        }
        widened(lower, lowerRow, lowerIndex);
        const auto *bottom = reinterpret_cast<const uchar *>(lowerRow.data());
        const quint16 over = quint16(256 - weight);
        const quint16 under = quint16(weight);
        for (int x = 0; x < width * 4; ++x)
            target[x] = uchar((top[x] * over + bottom[x] * under + 128) >> 8);
    }
    return result;
}

// Saturation about the Rec. 709 luminance, on premultiplied values (the mix is linear), in
// 16.16 fixed point.
void saturate(QImage &image, qreal factor)
{
    const qreal weights[3] = {0.2126, 0.7152, 0.0722};
    qint64 matrix[3][3];
    for (int row = 0; row < 3; ++row) {
        for (int column = 0; column < 3; ++column) {
            matrix[row][column] = qint64(std::llround(
                ((1 - factor) * weights[column] + (row == column ? factor : 0)) * 65536));
        }
    }
    Pixels pixels(image);
    for (int y = 0; y < pixels.height; ++y) {
        quint32 *row = pixels.row(y);
        for (int x = 0; x < pixels.width; ++x) {
            const quint32 pixel = row[x];
            const qint64 alpha = qAlpha(pixel);
            const qint64 red = qRed(pixel);
            const qint64 green = qGreen(pixel);
            const qint64 blue = qBlue(pixel);
            const auto channel = [&](const qint64 *m) {
                return int(std::clamp<qint64>(
                    (m[0] * red + m[1] * green + m[2] * blue + 32768) >> 16, 0, alpha));
            };
            row[x] = qRgba(channel(matrix[0]), channel(matrix[1]), channel(matrix[2]), int(alpha));
        }
    }
}

// \a tint (premultiplied) painted over every pixel.
void tint(QImage &image, QRgb tint)
{
    const quint32 remaining = 255 - qAlpha(tint);
    Pixels pixels(image);
    for (int y = 0; y < pixels.height; ++y) {
        quint32 *row = pixels.row(y);
        for (int x = 0; x < pixels.width; ++x)
            row[x] = tint + multiply255(row[x], remaining);
    }
}

// \a effect where \a mask is set, \a source elsewhere.
QImage masked(const QImage &source, const QImage &effect, const QImage &mask)
{
    QImage result(source.size(), QImage::Format_ARGB32_Premultiplied);
    Pixels out(result);
    for (int y = 0; y < out.height; ++y) {
        const auto *original = reinterpret_cast<const quint32 *>(source.constScanLine(y));
        const auto *changed = reinterpret_cast<const quint32 *>(effect.constScanLine(y));
        const uchar *strength = mask.constScanLine(y);
        quint32 *target = out.row(y);
        for (int x = 0; x < out.width; ++x) {
            target[x] = multiply255(changed[x], strength[x])
                + multiply255(original[x], 255u - strength[x]);
        }
    }
    return result;
}

QImage preparedMask(const QImage &mask, QSize size)
{
    QImage scaled = mask.size() == size
        ? mask
        : mask.scaled(size, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    return scaled.convertToFormat(mask.hasAlphaChannel() ? QImage::Format_Alpha8
                                                         : QImage::Format_Grayscale8);
}

} // namespace

QImage ZVXImageBlur::applyLightEffect(const QImage &image)
{
    return applyBlur(image, 30, QColor::fromRgbF(1, 1, 1, 0.3f), 1.8);
}

QImage ZVXImageBlur::applyExtraLightEffect(const QImage &image)
{
    return applyBlur(image, 20, QColor::fromRgbF(0.97f, 0.97f, 0.97f, 0.82f), 1.8);
}

QImage ZVXImageBlur::applyDarkEffect(const QImage &image)
{
    return applyBlur(image, 20, QColor::fromRgbF(0.11f, 0.11f, 0.11f, 0.73f), 1.8);
}

QImage ZVXImageBlur::applyTintEffect(const QImage &image, const QColor &tintColor)
{
    QColor effect = tintColor;
    if (effect.isValid())
        effect.setAlphaF(0.6f);
    return applyBlur(image, 10, effect, 1);
}

QImage ZVXImageBlur::applyBlur(const QImage &image, qreal radius, const QColor &tintColor,
                               qreal saturationDeltaFactor, const QImage &maskImage)
{
    if (image.isNull()) {
        ZVXLogError(QStringLiteral("ZVXImageBlur: no image to blur"));
        return {};
    }
    const qreal ratio = image.devicePixelRatio();
    const QImage source = image.convertToFormat(QImage::Format_ARGB32_Premultiplied);
    const qreal pixels = std::isfinite(radius) ? std::clamp(radius * ratio, 0.0, MaximumRadius) : 0;
    const int box = boxSize(pixels);
    const bool blurs = box > 1;
    saturationDeltaFactor = std::isfinite(saturationDeltaFactor)
        ? std::clamp(saturationDeltaFactor, -MaximumSaturation, MaximumSaturation)
        : 1;
    const bool saturates = std::abs(saturationDeltaFactor - 1) > 1e-4;
    QRgb tintPixel = tintColor.isValid() ? qPremultiply(tintColor.rgba()) : 0;
    const QImage mask = !maskImage.isNull() && (blurs || saturates)
        ? preparedMask(maskImage, source.size())
        : QImage();

    QImage effect = source;
    if (blurs) {
        const int factor = reductionFor(box);
        QImage small = factor > 1 ? reduced(source, factor) : source.copy();
        blur(small, factor > 1 ? boxSize(pixels / factor) : box);
        if (saturates)
            saturate(small, saturationDeltaFactor);
        // Without a mask the tint covers the blur alone: cheaper on the reduced copy.
        if (mask.isNull() && qAlpha(tintPixel)) {
            tint(small, tintPixel);
            tintPixel = 0;
        }
        effect = factor > 1 ? enlarged(small, factor, source.size()) : std::move(small);
    } else if (saturates) {
        effect = source.copy();
        saturate(effect, saturationDeltaFactor);
    }

    QImage result = mask.isNull() ? std::move(effect) : masked(source, effect, mask);
    if (qAlpha(tintPixel))
        tint(result, tintPixel);
    result.setDevicePixelRatio(ratio);
    return result;
}
