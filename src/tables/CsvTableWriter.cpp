#include "CsvTableWriter.h"

#include "TableTextEncoder.h"

#include <QIODevice>
#include <QVector>

namespace {
constexpr int kFlushChars = 1 << 19;
// The longest line: held once as text and once encoded (up to four bytes a character),
// it stays well inside what one string and one byte array can take.
constexpr qint64 kMaxLineChars = 1 << 28;
}

CsvTableWriter::CsvTableWriter(QIODevice* device, const QByteArray& codecName, bool quoteFields,
                               const QVector<bool>& numeric)
    : m_device(device)
    , m_encoder(new TableTextEncoder(codecName))
    , m_quote(quoteFields ? QStringLiteral("\"") : QString())
    , m_numeric(numeric)
{
    m_buffer.reserve(kFlushChars + 4096);
}

CsvTableWriter::~CsvTableWriter() = default;

void CsvTableWriter::appendLine(QString& out, const QStringList& row, const QString& quote,
                                const QVector<bool>& numeric)
{
    const int n = row.size();
    // Room for every cell with its quotes and separator, then written in place.
    int need = out.size() + 2;
    for (int i = 0; i < n; ++i)
        need += row.at(i).size() + 2 * quote.size() + 1;
    const int start = out.size();
    if (out.capacity() < need)
        out.reserve(qMax(need, 2 * out.capacity()));
    out.resize(need);
    QChar* w = out.data() + start;
    const QChar* q = quote.constData();
    const int qn = quote.size();
    for (int i = 0; i < n; ++i) {
        if (i > 0)
            *w++ = QLatin1Char(',');
        const QString& cell = row.at(i);
        const QChar* p = cell.constData();
        const int len = cell.size();
        const bool number = i < numeric.size() && numeric.at(i);
        bool comma = false;
        bool crlf = false;
        bool dquote = false;
        bool cr = false; // the last character kept was a carriage return
        for (int k = 0; k < len; ++k) {
            const ushort u = p[k].unicode();
            if (number && (u == ',' || u == ' '))
                continue; // thousands separators and spaces leave numeric cells
            if (u == ',')
                comma = true;
            else if (u == '"')
                dquote = true;
            else if (u == '\n' && cr)
                crlf = true; // also where a removed separator stood between the two
            cr = u == '\r';
        }
        const bool quoted = comma || crlf || !dquote;
        if (quoted) {
            for (int k = 0; k < qn; ++k)
                *w++ = q[k];
        }
        for (int k = 0; k < len; ++k) {
            const ushort u = p[k].unicode();
            if (number && (u == ',' || u == ' '))
                continue;
            // Without a comma or CRLF, double quotes become backquotes.
            *w++ = (u == '"' && !comma && !crlf) ? QChar(QLatin1Char('`')) : p[k];
        }
        if (quoted) {
            for (int k = 0; k < qn; ++k)
                *w++ = q[k];
        }
    }
    *w++ = QLatin1Char('\r');
    *w++ = QLatin1Char('\n');
    out.resize(int(w - out.constData()));
}

bool CsvTableWriter::lineFits(const QStringList& row, bool quoteFields)
{
    qint64 need = 2;
    for (const QString& cell : row)
        need += cell.size() + (quoteFields ? 3 : 1);
    return need <= kMaxLineChars;
}

bool CsvTableWriter::writeRow(const QStringList& row)
{
    if (!lineFits(row, !m_quote.isEmpty()))
        return false;
    appendLine(m_buffer, row, m_quote, m_numeric);
    if (m_buffer.size() >= kFlushChars)
        return flush();
    return true;
}

bool CsvTableWriter::flush()
{
    if (m_buffer.isEmpty())
        return true;
    const QByteArray& bytes = m_encoder->encode(m_buffer.constData(), m_buffer.size());
    m_buffer.resize(0);
    return m_device->write(bytes) == bytes.size();
}
