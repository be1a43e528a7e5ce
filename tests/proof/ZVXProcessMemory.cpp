#include "ZVXProcessMemory.h"

#include <QFile>

using namespace Qt::StringLiterals;

qint64 ZVXProcessMemoryKiB(qint64 pid, const char *field)
{
    QFile status(u"/proc/%1/status"_s.arg(pid));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    const QByteArray prefix = QByteArray(field) + ':';
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith(prefix))
            return line.mid(prefix.size()).trimmed().split(' ').first().toLongLong();
    }
    return -1;
}

bool ZVXResetPeakMemory(qint64 pid)
{
    QFile clear(u"/proc/%1/clear_refs"_s.arg(pid));
    return clear.open(QIODevice::WriteOnly) && clear.write("5") == 1 && clear.flush();
}
