#include "CsvTableReader.h"

#include "TableTextDecoder.h"

#include <QFile>

#include <algorithm>
#include <memory>

namespace {

constexpr qint64 kChunkBytes = 1 << 20;
// The first block is small: a codec that does not fit usually fails on it, early.
constexpr qint64 kFirstChunkBytes = 64 << 10;

inline bool isSpace(QChar c)
{
    const ushort u = c.unicode();
    if (u < 0x80)
        return u == ' ' || (u >= '\t' && u <= '\r');
    return c.isSpace();
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

    TableTextDecoder decoder(codec, strict);
    QByteArray chunk(int(kChunkBytes), Qt::Uninitialized);
    QString text;
    QString lineBuf;
    int width = 1;
    std::unique_ptr<CellBuilder> cells = std::make_unique<CellBuilder>();

    auto takeLine = [&](const QChar* b, const QChar* e) {
        ++result.linesRead;
        // Carriage returns never reach a line, wherever they stand; the usual one at the
        // end of the line costs no copy.
        while (e != b && (e - 1)->unicode() == '\r')
            --e;
        bool hasCr = false;
        for (const QChar* p = b; p != e; ++p) {
            if (p->unicode() == '\r') {
                hasCr = true;
                break;
            }
        }
        QStringList row;
        row.reserve(width);
        if (hasCr) {
            lineBuf.clear();
            for (const QChar* p = b; p != e; ++p) {
                if (p->unicode() != '\r')
                    lineBuf.append(*p);
            }
            splitInto(row, *cells, lineBuf.constData(), lineBuf.constData() + lineBuf.size());
        } else {
            splitInto(row, *cells, b, e);
        }
        width = row.size();
        if (cfg == SkipEmptyRows && allEmpty(row))
            return;
        result.rows.append(row);
    };

    for (qint64 blockBytes = kFirstChunkBytes;; blockBytes = kChunkBytes) {
        const qint64 got = file.read(chunk.data(), blockBytes);
        if (got < 0)
            break;
        if (got == 0)
            break;
        if (!decoder.decode(chunk.constData(), int(got), text)) {
            result = Result();
            return BadEncoding;
        }
        const QChar* data = text.constData();
        const int size = text.size();
        int lineStart = 0;
        for (int i = 0; i < size; ++i) {
            if (data[i].unicode() == '\n') {
                takeLine(data + lineStart, data + i);
                lineStart = i + 1;
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
    if (!text.isEmpty() && !onlyCr)
        takeLine(text.constData(), text.constData() + text.size());
    return Ok;
}
