#pragma once

#include "ZVXBench.h"

namespace ZVXBench {

/*!
    The chat screen's drawing components beside what Qt offers for the same
    job: the frosted-glass blur of a 1280x800 snapshot against a
    QGraphicsBlurEffect drawing the same picture. The Qt case needs a
    QApplication (QGraphicsScene does); without one it is left out, with a
    line on stderr.
*/
QList<Case> componentCases();

} // namespace ZVXBench
