#pragma once

#include <QByteArray>
#include <QCoreApplication>
#include <QFile>
#include <QLoggingCategory>
#include <QString>

#include <unistd.h>

// Puts the fuzzer's input into a file the readers can open. The file is removed when the
// input is done, so that a run that ends (or is stopped at its time limit) leaves nothing
// behind in /dev/shm; a crash keeps it for a look.
class FuzzInputFile
{
public:
    FuzzInputFile(const char* suffix, const uint8_t* data, size_t size)
        : m_path(QString::fromLatin1(access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp")
                 + QStringLiteral("/vantor-fuzz-%1%2").arg(getpid()).arg(QString::fromLatin1(suffix)))
    {
        static const bool quiet = [] {
            QLoggingCategory::setFilterRules(QStringLiteral("vantor.*=false"));
            return true;
        }();
        Q_UNUSED(quiet);
        QFile f(m_path);
        if (f.open(QIODevice::WriteOnly | QIODevice::Truncate))
            f.write(reinterpret_cast<const char*>(data), qint64(size));
    }
    ~FuzzInputFile() { QFile::remove(m_path); }
    FuzzInputFile(const FuzzInputFile&) = delete;
    FuzzInputFile& operator=(const FuzzInputFile&) = delete;

    const QString& path() const { return m_path; }

private:
    const QString m_path;
};
