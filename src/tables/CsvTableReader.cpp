#include "CsvTableReader.h"

#include "TableTextDecoder.h"

#include <QFile>

namespace {

constexpr qint64 kChunkBytes = 1 << 20;

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

bool allEmpty(const QStringList& row)
{
    for (const QString& cell : row) {
        if (!cell.isEmpty())
            return false;
    }
    return true;
}

} // namespace

QStringList CsvTableReader::splitLine(const QChar* begin, const QChar* end, int sizeHint)
{
    QStringList row;
    row.reserve(sizeHint);
    const QChar* start = begin;
    for (const QChar* p = begin; p != end; ++p) {
        if (p->unicode() == ',') {
            row.append(makeCell(start, p));
            start = p + 1;
        }
    }
    row.append(makeCell(start, end));
    return row;
}

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
        if (hasCr) {
            lineBuf.clear();
            for (const QChar* p = b; p != e; ++p) {
                if (p->unicode() != '\r')
                    lineBuf.append(*p);
            }
            row = splitLine(lineBuf.constData(), lineBuf.constData() + lineBuf.size(), width);
        } else {
            row = splitLine(b, e, width);
        }
        width = row.size();
        if (cfg == SkipEmptyRows && allEmpty(row))
            return;
        result.rows.append(row);
    };

    for (;;) {
        const qint64 got = file.read(chunk.data(), kChunkBytes);
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
