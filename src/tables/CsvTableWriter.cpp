#include "CsvTableWriter.h"

#include <QIODevice>
#include <QTextCodec>
#include <QVector>

namespace {
constexpr int kFlushChars = 1 << 19;
}

struct CsvTableWriter::State {
    QTextCodec::ConverterState state{QTextCodec::IgnoreHeader}; // never a byte-order mark
};

CsvTableWriter::CsvTableWriter(QIODevice* device, const QByteArray& codecName, bool quoteFields,
                               const QMap<int, ExportFormat>& formats)
    : m_device(device)
    , m_codec(codecName.isEmpty() ? nullptr : QTextCodec::codecForName(codecName))
    , m_quote(quoteFields ? QStringLiteral("\"") : QString())
    , m_state(new State)
{
    if (!m_codec)
        m_codec = QTextCodec::codecForName("UTF-8");
    for (auto it = formats.cbegin(); it != formats.cend(); ++it) {
        if (it.value() != ExportFormatNumber || it.key() < 0)
            continue;
        if (it.key() >= m_numeric.size())
            m_numeric.resize(it.key() + 1);
        m_numeric[it.key()] = true;
    }
    m_buffer.reserve(kFlushChars + 4096);
}

CsvTableWriter::~CsvTableWriter()
{
    delete m_state;
}

void CsvTableWriter::appendLine(QString& out, const QStringList& row, const QString& quote,
                                const QVector<bool>& numeric)
{
    const int n = row.size();
    for (int i = 0; i < n; ++i) {
        if (i > 0)
            out += QLatin1Char(',');
        const QString& given = row.at(i);
        QString numberText;
        const QString* cell = &given;
        if (i < numeric.size() && numeric.at(i)) {
            numberText = given;
            numberText.remove(QLatin1Char(',')).remove(QLatin1Char(' '));
            cell = &numberText;
        }
        bool comma = false;
        bool crlf = false;
        bool dquote = false;
        const QChar* p = cell->constData();
        const int len = cell->size();
        for (int k = 0; k < len; ++k) {
            const ushort u = p[k].unicode();
            if (u == ',')
                comma = true;
            else if (u == '"')
                dquote = true;
            else if (u == '\r' && k + 1 < len && p[k + 1].unicode() == '\n')
                crlf = true;
        }
        if (comma || crlf) {
            out += quote;
            out += *cell;
            out += quote;
        } else if (dquote) {
            const int at = out.size();
            out += *cell;
            QChar* w = out.data() + at;
            for (int k = 0; k < len; ++k) {
                if (w[k].unicode() == '"')
                    w[k] = QLatin1Char('`');
            }
        } else {
            out += quote;
            out += *cell;
            out += quote;
        }
    }
    out += QLatin1String("\r\n");
}

bool CsvTableWriter::writeRow(const QStringList& row)
{
    appendLine(m_buffer, row, m_quote, m_numeric);
    if (m_buffer.size() >= kFlushChars)
        return flush();
    return true;
}

bool CsvTableWriter::flush()
{
    if (m_buffer.isEmpty())
        return true;
    const QByteArray bytes = m_codec->fromUnicode(m_buffer.constData(), m_buffer.size(), &m_state->state);
    m_buffer.resize(0);
    return m_device->write(bytes) == bytes.size();
}
