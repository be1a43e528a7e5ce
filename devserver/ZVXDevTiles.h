#pragma once

#include <QByteArray>

#include <condition_variable>
#include <deque>
#include <future>
#include <mutex>
#include <optional>
#include <thread>

#include <httplib.h>

/*
    Map tiles at "/tiles/{z}/{x}/{y}.png" (the usual Web Mercator tiling),
    drawn here rather than fetched, so location previews work without the
    internet: a grid with the tile's coordinates written on it.
*/
namespace ZVXDevTiles {

inline constexpr int TileSize = 256;
inline constexpr int MaxZoom = 22;

//! The PNG of tile (z, x, y), or nothing when there is no such tile.
std::optional<QByteArray> render(int z, int x, int y);

/*!
    Draws tiles one at a time, on a thread of its own. Qt keeps fonts and
    glyphs per thread: drawn by whichever worker serves the request, each
    of them would keep its own copy, about a megabyte, for good.
*/
class Painter
{
public:
    Painter();
    ~Painter();
    Painter(const Painter &) = delete;
    Painter &operator=(const Painter &) = delete;

    //! render(z, x, y), on the painter's thread.
    std::optional<QByteArray> tile(int z, int x, int y);

private:
    struct Job
    {
        int z, x, y;
        std::promise<std::optional<QByteArray>> result;
    };
    void run();

    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::deque<Job> m_jobs;
    bool m_stopping = false;
    std::thread m_thread;
};

void install(httplib::Server &server, Painter &painter);

} // namespace ZVXDevTiles
