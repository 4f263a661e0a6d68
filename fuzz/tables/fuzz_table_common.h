#pragma once

#include <QByteArray>
#include <QCoreApplication>
#include <QFile>
#include <QLoggingCategory>
#include <QString>

#include <unistd.h>

// Puts the fuzzer's input into a file the readers can open, once per process.
inline QString fuzzInputFile(const char* suffix, const uint8_t* data, size_t size)
{
    static const QString path = [suffix] {
        QLoggingCategory::setFilterRules(QStringLiteral("vantor.*=false"));
        const char* shm = "/dev/shm";
        return QString::fromLatin1(access(shm, W_OK) == 0 ? shm : "/tmp") + QStringLiteral("/vantor-fuzz-%1%2")
            .arg(getpid())
            .arg(QString::fromLatin1(suffix));
    }();
    QFile f(path);
    if (f.open(QIODevice::WriteOnly | QIODevice::Truncate))
        f.write(reinterpret_cast<const char*>(data), qint64(size));
    return path;
}
