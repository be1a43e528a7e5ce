#include "ZVXDevTiles.h"

#include "ZVXDevHttp.h"

#include <QBuffer>
#include <QImage>
#include <QPainter>

#include <cmath>
#include <numbers>

namespace ZVXDevTiles {

namespace {

// Latitude of the top edge of row \a y at zoom \a z (Web Mercator).
double latitude(int z, double y)
{
    const double n = std::numbers::pi * (1.0 - 2.0 * y / double(1LL << z));
    return std::atan(std::sinh(n)) * 180.0 / std::numbers::pi;
}

double longitude(int z, double x)
{
    return x / double(1LL << z) * 360.0 - 180.0;
}

} // namespace

std::optional<QByteArray> render(int z, int x, int y)
{
    if (z < 0 || z > MaxZoom || x < 0 || y < 0 || x >= (1LL << z) || y >= (1LL << z))
        return std::nullopt;
    QImage tile(TileSize, TileSize, QImage::Format_RGB32);
    // Neighbouring tiles differ a little in shade, so their edges show.
    tile.fill((x + y) % 2 ? QColor(0xe8, 0xee, 0xe4) : QColor(0xe2, 0xea, 0xdd));
    QPainter painter(&tile);
    painter.setPen(QPen(QColor(0xc4, 0xcf, 0xbd), 1));
    for (int i = TileSize / 8; i < TileSize; i += TileSize / 8) {
        painter.drawLine(i, 0, i, TileSize);
        painter.drawLine(0, i, TileSize, i);
    }
    painter.setPen(QPen(QColor(0x7f, 0x8c, 0x79), 2));
    painter.drawRect(QRect(0, 0, TileSize, TileSize).adjusted(1, 1, -1, -1));

    painter.setPen(QColor(0x3b, 0x44, 0x37));
    QFont font = painter.font();
    font.setPixelSize(18);
    font.setBold(true);
    painter.setFont(font);
    painter.drawText(QRect(0, 88, TileSize, 30), Qt::AlignCenter,
                     QStringLiteral("%1 / %2 / %3").arg(z).arg(x).arg(y));
    font.setPixelSize(13);
    font.setBold(false);
    painter.setFont(font);
    painter.drawText(QRect(0, 124, TileSize, 40), Qt::AlignCenter,
                     QStringLiteral("%1\u00b0, %2\u00b0\nto %3\u00b0, %4\u00b0")
                         .arg(latitude(z, y), 0, 'f', 4)
                         .arg(longitude(z, x), 0, 'f', 4)
                         .arg(latitude(z, y + 1), 0, 'f', 4)
                         .arg(longitude(z, x + 1), 0, 'f', 4));
    painter.end();

    QByteArray png;
    QBuffer buffer(&png);
    buffer.open(QIODevice::WriteOnly);
    tile.save(&buffer, "PNG");
    return png;
}

Painter::Painter()
    : m_thread([this] { run(); })
{ }

Painter::~Painter()
{
    {
        std::lock_guard lock(m_mutex);
        m_stopping = true;
    }
    m_wake.notify_all();
    m_thread.join();
}

std::optional<QByteArray> Painter::tile(int z, int x, int y)
{
    std::future<std::optional<QByteArray>> result;
    {
        std::lock_guard lock(m_mutex);
        m_jobs.push_back({z, x, y, {}});
        result = m_jobs.back().result.get_future();
    }
    m_wake.notify_one();
    return result.get();
}

void Painter::run()
{
    // Fonts load on first use: now, rather than in the first request for a tile.
    render(0, 0, 0);
    std::unique_lock lock(m_mutex);
    for (;;) {
        m_wake.wait(lock, [this] { return m_stopping || !m_jobs.empty(); });
        if (m_jobs.empty())
            return;
        Job job = std::move(m_jobs.front());
        m_jobs.pop_front();
        lock.unlock();
        job.result.set_value(render(job.z, job.x, job.y));
        lock.lock();
    }
}

void install(httplib::Server &server, Painter &painter)
{
    server.Get(R"(/tiles/(\d{1,2})/(\d{1,8})/(\d{1,8})\.png)",
               [&painter](const httplib::Request &req, httplib::Response &res) {
                   const std::optional<QByteArray> png
                       = painter.tile(std::stoi(req.matches[1]), std::stoi(req.matches[2]),
                                      std::stoi(req.matches[3]));
                   if (!png) {
                       ZVXDevHttp::replyError(res, 404, QStringLiteral("no such tile"));
                       return;
                   }
                   res.set_header("Cache-Control", "public, max-age=86400");
                   res.set_content(png->constData(), size_t(png->size()), "image/png");
               });
}

} // namespace ZVXDevTiles
