#pragma once

#include <QHash>
#include <QString>

#include <functional>

struct zip;
struct zip_file;

// Read access to the parts of a workbook package. Each part is streamed in small blocks
// and never held whole; a part that inflates past its declared size, past a sane ratio
// to its compressed size or past an absolute ceiling is refused as a zip bomb.
class XlsxZipArchive
{
public:
    XlsxZipArchive() = default;
    ~XlsxZipArchive();

    bool open(const QString& fileName, QString& err);
    bool contains(const QString& partName) const;
    // The size the part declares once inflated; -1 when absent or not declared.
    qint64 partSize(const QString& partName) const;
    // Passes the part's bytes to `sink` block by block; `sink` returns false to stop
    // (the call then returns false without touching `err`).
    bool readPart(const QString& partName, const std::function<bool(const char*, int)>& sink, QString& err) const;

    // Ceilings, exposed for tests.
    static constexpr qint64 kMaxPartBytes = qint64(2) << 30;
    static constexpr qint64 kRatioFloorBytes = qint64(64) << 20;
    static constexpr qint64 kMaxRatio = 200;
    // Parts at least this large are inflated on a second thread, a few blocks ahead.
    static constexpr qint64 kReadAheadBytes = 4 << 20;
    static constexpr int kBlockBytes = 64 * 1024;

    XlsxZipArchive(const XlsxZipArchive&) = delete;
    XlsxZipArchive& operator=(const XlsxZipArchive&) = delete;

private:
    qint64 locate(const QString& partName) const;
    static QString partKey(QString name);
    static bool inflate(zip_file* file, const QString& partName, qint64 ceiling,
                        const std::function<bool(const char*, int)>& sink, QString& err);
    static bool inflateAhead(zip_file* file, const QString& partName, qint64 ceiling,
                             const std::function<bool(const char*, int)>& sink, QString& err);

    zip* m_zip = nullptr;
    QHash<QString, qint64> m_otherNames; // entries stored under a variant of their part name, by partKey
};
