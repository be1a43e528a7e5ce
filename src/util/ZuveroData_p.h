#pragma once

#include "ZuveroData.h"

//! Reads random bytes from \a path instead of "/dev/urandom"; nullptr restores it. For tests.
ZUVERO_EXPORT void ZVXSetRandomDevicePath(const char *path);

//! Compares two byte strings in time that depends on their length only.
ZUVERO_EXPORT bool ZVXConstantTimeEquals(const QByteArray &a, const QByteArray &b);
