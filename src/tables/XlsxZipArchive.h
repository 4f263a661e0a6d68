#pragma once

#include <QString>

#include <functional>

struct zip;

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
    // Passes the part's bytes to `sink` block by block; `sink` returns false to stop
    // (the call then returns false without touching `err`).
    bool readPart(const QString& partName, const std::function<bool(const char*, int)>& sink, QString& err) const;

    // Ceilings, exposed for tests.
    static constexpr qint64 kMaxPartBytes = qint64(2) << 30;
    static constexpr qint64 kRatioFloorBytes = qint64(64) << 20;
    static constexpr qint64 kMaxRatio = 200;

    XlsxZipArchive(const XlsxZipArchive&) = delete;
    XlsxZipArchive& operator=(const XlsxZipArchive&) = delete;

private:
    qint64 locate(const QString& partName) const;

    zip* m_zip = nullptr;
};
