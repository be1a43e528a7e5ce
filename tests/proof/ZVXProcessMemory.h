#pragma once

#include <QtGlobal>

//! A figure of /proc/<pid>/status in KiB ("VmRSS", "VmHWM"); -1 when it cannot be read.
qint64 ZVXProcessMemoryKiB(qint64 pid, const char *field);

//! Lowers the peak (VmHWM) of \a pid to what it holds now, so that the next peak is measured on
//! its own; false if the kernel refused.
bool ZVXResetPeakMemory(qint64 pid);
