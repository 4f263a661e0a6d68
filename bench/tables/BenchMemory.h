// Memory figures of the running process, from /proc/self/status.
#pragma once

#include <QByteArray>
#include <QFile>
#include <QList>

namespace BenchMemory {

// The figure of `key` ("VmRSS:", "VmHWM:") in KB; -1 when it cannot be read.
inline qint64 statusKb(const char* key)
{
    QFile f(QStringLiteral("/proc/self/status"));
    if (!f.open(QIODevice::ReadOnly))
        return -1;
    const QList<QByteArray> lines = f.readAll().split('\n');
    for (const QByteArray& line : lines) {
        if (line.startsWith(key))
            return line.mid(int(qstrlen(key))).trimmed().split(' ').first().toLongLong();
    }
    return -1;
}

} // namespace BenchMemory
