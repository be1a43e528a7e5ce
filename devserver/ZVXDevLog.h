#pragma once

#include <QString>

//! The server's log: one line at a time on standard error, from any thread.
namespace ZVXDevLog {

void line(const QString &text);

} // namespace ZVXDevLog
