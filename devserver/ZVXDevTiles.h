#pragma once

#include <QByteArray>

#include <optional>

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

void install(httplib::Server &server);

} // namespace ZVXDevTiles
