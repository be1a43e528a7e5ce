#pragma once

#include "ZVXBench.h"

#include <QList>

namespace ZVXBench {

/*!
    The map picture of a shared location, 600 x 300 from tiles already
    decoded in the tile cache: the snapshotter's renderer (tiles, pin),
    beside QPainter compositing the same tiles and nothing else.
*/
QList<Case> mapCases();

} // namespace ZVXBench
