#include "CsvTableReader.h"

#include "TableFileSeam.h"
#include "TableTextDecoder.h"

#include <QFile>
#include <QThread>
#include <QVector>

#include <cerrno>

#include <algorithm>
#include <atomic>
#include <memory>
#include <system_error>
#include <thread>
#include <vector>

#include <unistd.h>

namespace {

constexpr qint64 kChunkBytes = 1 << 20;
// The first block is small: a codec that does not fit usually fails on it, early.
constexpr qint64 kFirstChunkBytes = 64 << 10;

inline bool isSpace(QChar c)
{
    const ushort u = c.unicode();
    if (u < 0x80)
        return u == ' ' || (u >= '\t' && u <= '\r');
    return u <= 0x3000 && c.isSpace(); // no white space lies beyond the ideographic space
}

// The cell between begin and end with every double quote removed, then trimmed; done in
// one pass: quotes and white space at either end are skipped together, inner quotes are
// left out while copying.
QString makeCell(const QChar* begin, const QChar* end)
{
    while (begin != end && (begin->unicode() == '"' || isSpace(*begin)))
        ++begin;
    while (end != begin && ((end - 1)->unicode() == '"' || isSpace(*(end - 1))))
        --end;
    if (begin == end)
        return QString();
    int quotes = 0;
    for (const QChar* p = begin; p != end; ++p)
        quotes += p->unicode() == '"';
    if (quotes == 0)
        return QString(begin, int(end - begin));
    QString cell(int(end - begin) - quotes, Qt::Uninitialized);
    QChar* w = cell.data();
    for (const QChar* p = begin; p != end; ++p) {
        if (p->unicode() != '"')
            *w++ = *p;
    }
    return cell;
}

// Builds the cells of a row. Columns that repeat a few values (codes, names, states)
// share one string per value instead of one per cell: a small per-column table keyed by
// the text remembers recent values. A column whose values do not repeat stops being
// looked up after a while.
class CellBuilder
{
public:
    QString cell(int column, const QChar* begin, const QChar* end)
    {
        while (begin != end && (begin->unicode() == '"' || isSpace(*begin)))
            ++begin;
        while (end != begin && ((end - 1)->unicode() == '"' || isSpace(*(end - 1))))
            --end;
        const int len = int(end - begin);
        if (len == 0)
            return QString();
        if (len > kMaxSharedChars || column >= kMaxSharedColumns)
            return makeCell(begin, end);
        Column& col = m_columns[column];
        if (col.lookups >= kTrialCells && col.hits * 8 < col.lookups)
            return makeCell(begin, end);
        uint h = uint(len);
        for (const QChar* p = begin; p != end; ++p)
            h = h * 31u + p->unicode();
        QString& slot = col.recent[(h ^ (h >> 7)) & (kSlots - 1)];
        if (col.lookups < kTrialCells)
            ++col.lookups;
        if (slot.size() == len && std::equal(begin, end, slot.constData())) {
            if (col.hits < kTrialCells)
                ++col.hits;
            return slot;
        }
        slot = makeCell(begin, end);
        return slot;
    }

private:
    static constexpr int kMaxSharedChars = 24;
    static constexpr int kMaxSharedColumns = 64;
    static constexpr int kSlots = 32;
    static constexpr int kTrialCells = 512;

    struct Column {
        QString recent[kSlots];
        int lookups = 0;
        int hits = 0;
    };
    Column m_columns[kMaxSharedColumns];
};

bool allEmpty(const QStringList& row)
{
    for (const QString& cell : row) {
        if (!cell.isEmpty())
            return false;
    }
    return true;
}

} // namespace

namespace {

void splitInto(QStringList& row, CellBuilder& cells, const QChar* begin, const QChar* end)
{
    int column = 0;
    const QChar* start = begin;
    for (const QChar* p = begin; p != end; ++p) {
        if (p->unicode() == ',') {
            row.append(cells.cell(column++, start, p));
            start = p + 1;
        }
    }
    row.append(cells.cell(column, start, end));
}

} // namespace

CsvTableReader::Status CsvTableReader::read(const QString& fileName, const QByteArray& codec, bool strict,
                                            ReadTableCfg cfg, Result& result)
{
    result = Result();
    QFile file(fileName);
    if (!file.open(QIODevice::ReadOnly))
        return OpenFailed;
    const qint64 size = file.size();
    const int threads = qBound(1, QThread::idealThreadCount(), kMaxThreads);
    // Large files in a codec that may be cut at line ends are read in pieces, each starting
    // after the first line feed past its share of the bytes. The threads take the pieces
    // one after another, so that a thread held up for a while leaves its share to the
    // others; the rows are put back together in the file's order.
    QVector<qint64> starts{0};
    // The pieces read the file through its descriptor, which a file kept in the program's
    // resources does not have: such a file is read whole.
    const bool positioned = file.handle() >= 0;
    if (size >= kSplitBytes && threads > 1 && positioned && TableTextDecoder(codec, strict).cutsAtLineFeed()) {
        const int pieces = int(qBound<qint64>(2, size / kPieceBytes, qint64(threads) * kPiecesPerThread));
        for (int k = 1; k < pieces && file.seek(size * k / pieces); ++k) {
            const QByteArray probe = file.read(1 << 20);
            const int lf = probe.indexOf('\n');
            const qint64 start = size * k / pieces + lf + 1;
            if (lf >= 0 && start > starts.last() && start < size)
                starts.append(start);
        }
    }
    TableFileSeam::reach(TableFileSeam::CsvSizeTaken, fileName);
    // Every piece is read from the file opened here, never by its name again: a writer
    // may rename a new file over the name meanwhile, whose bytes would not fit the size
    // and the line starts taken from this one.
    starts.append(size);
    const int count = starts.size() - 1;
    if (count == 1) {
        const ReadAt readAt = [&file](qint64 offset, char* data, qint64 bytes) -> qint64 {
            return file.seek(offset) ? file.read(data, bytes) : -1;
        };
        return readRange(readAt, 0, size, codec, strict, cfg, result);
    }
    // The pieces share the file's descriptor; positioned reads leave its offset alone.
    const int fd = file.handle();
    const ReadAt readAt = [fd](qint64 offset, char* data, qint64 bytes) -> qint64 {
        qint64 done = 0;
        while (done < bytes) {
            const ssize_t got = ::pread(fd, data + done, size_t(bytes - done), off_t(offset + done));
            if (got < 0 && errno == EINTR)
                continue;
            if (got <= 0)
                return done > 0 ? done : qint64(got);
            done += got;
        }
        return done;
    };

    std::vector<Result> parts(static_cast<size_t>(count));
    std::vector<Status> statuses(size_t(count), OpenFailed);
    std::atomic<int> next{0};
    auto work = [&] {
        for (int i = next.fetch_add(1); i < count; i = next.fetch_add(1))
            statuses[size_t(i)] = readRange(readAt, starts.at(i), starts.at(i + 1), codec, strict, cfg,
                                            parts[size_t(i)]);
    };
    std::vector<std::thread> workers;
    for (int t = 1; t < qMin(threads, count); ++t) {
        try {
            workers.emplace_back(work);
        } catch (const std::system_error&) {
            break; // no more threads to be had: the others take the pieces
        }
    }
    work();
    for (std::thread& worker : workers)
        worker.join();
    for (const Status status : statuses) {
        if (status != Ok)
            return status;
    }
    int rows = 0;
    for (const Result& part : parts)
        rows += part.rows.size();
    result.rows.reserve(rows);
    for (Result& part : parts) {
        result.rows.append(part.rows);
        result.linesRead += part.linesRead;
        part = Result();
    }
    return Ok;
}

CsvTableReader::Status CsvTableReader::readRange(const ReadAt& readAt, qint64 begin, qint64 end,
                                                 const QByteArray& codec, bool strict, ReadTableCfg cfg,
                                                 Result& result)
{
    result = Result();
    qint64 position = begin;
    qint64 left = end - begin;

    TableTextDecoder decoder(codec, strict, begin > 0);
    QByteArray chunk(int(kChunkBytes), Qt::Uninitialized);
    QString text;
    QString lineBuf;
    int width = 1;
    std::unique_ptr<CellBuilder> cells = std::make_unique<CellBuilder>();

    // The line being scanned: where its commas stand and how many carriage returns it has.
    QVector<int> commas;
    commas.reserve(256);
    int crs = 0;

    auto takeLine = [&](const QChar* data, int b, int e) {
        ++result.linesRead;
        // Carriage returns never reach a line, wherever they stand; the usual one at the
        // end of the line costs no copy.
        while (e > b && data[e - 1].unicode() == '\r') {
            --e;
            --crs;
        }
        QStringList row;
        row.reserve(width);
        if (crs > 0) {
            lineBuf.clear();
            for (int i = b; i < e; ++i) {
                if (data[i].unicode() != '\r')
                    lineBuf.append(data[i]);
            }
            splitInto(row, *cells, lineBuf.constData(), lineBuf.constData() + lineBuf.size());
        } else {
            int start = b;
            int column = 0;
            for (int comma : qAsConst(commas)) {
                row.append(cells->cell(column++, data + start, data + comma));
                start = comma + 1;
            }
            row.append(cells->cell(column, data + start, data + e));
        }
        width = row.size();
        if (cfg == SkipEmptyRows && allEmpty(row))
            return;
        result.rows.append(row);
    };

    for (qint64 blockBytes = kFirstChunkBytes; left > 0; blockBytes = kChunkBytes) {
        const qint64 got = readAt(position, chunk.data(), qMin(blockBytes, left));
        if (got <= 0)
            break;
        position += got;
        left -= got;
        if (!decoder.decode(chunk.constData(), int(got), text)) {
            result = Result();
            return BadEncoding;
        }
        // One pass finds the line ends, the commas and the carriage returns; every other
        // character lies above the comma and is passed over at once.
        const QChar* data = text.constData();
        const int size = text.size();
        int lineStart = 0;
        commas.resize(0);
        crs = 0;
        for (int i = 0; i < size; ++i) {
            const ushort u = data[i].unicode();
            if (u > ',')
                continue;
            if (u == ',') {
                commas.append(i);
            } else if (u == '\n') {
                takeLine(data, lineStart, i);
                lineStart = i + 1;
                commas.resize(0);
                crs = 0;
            } else if (u == '\r') {
                ++crs;
            }
        }
        text.remove(0, lineStart);
    }
    if (!decoder.finish()) {
        result = Result();
        return BadEncoding;
    }
    // The last line may lack its terminator; a trailing lone "\r" is no line.
    bool onlyCr = true;
    for (QChar c : qAsConst(text)) {
        if (c.unicode() != '\r') {
            onlyCr = false;
            break;
        }
    }
    if (!text.isEmpty() && !onlyCr) {
        commas.resize(0);
        crs = 0;
        for (int i = 0; i < text.size(); ++i) {
            if (text.at(i).unicode() == ',')
                commas.append(i);
            else if (text.at(i).unicode() == '\r')
                ++crs;
        }
        takeLine(text.constData(), 0, text.size());
    }
    // A file that has bytes but no character besides carriage returns (a byte-order mark
    // alone, say) still reads as one empty line. A later piece of a file begins after a
    // line feed: carriage returns alone there end the file and are no line.
    if (result.linesRead == 0 && end > begin && begin == 0) {
        commas.resize(0);
        crs = 0;
        takeLine(text.constData(), 0, 0);
    }
    return Ok;
}
