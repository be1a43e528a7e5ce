#include "ZVXDevLog.h"

#include <QDateTime>

#include <cstdio>
#include <mutex>

namespace ZVXDevLog {

void line(const QString &text)
{
    static std::mutex mutex;
    const QByteArray bytes = (QDateTime::currentDateTime().toString(QStringLiteral("HH:mm:ss.zzz "))
                              + text + QLatin1Char('\n'))
                                 .toUtf8();
    std::lock_guard lock(mutex);
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stderr);
    std::fflush(stderr);
}

} // namespace ZVXDevLog
