#include "XlsxCellPipe.h"

#include <QMutexLocker>

#include <cstring>

XlsxCellPipe::XlsxCellPipe()
{
    m_batch.reserve(kBatchBytes + 4096);
}

void XlsxCellPipe::append(const Header& h, const char* value, const char* formula)
{
    const int start = m_batch.size();
    m_batch.resize(start + int(sizeof h) + h.valueLen + 1 + h.formulaLen + 1);
    char* w = m_batch.data() + start;
    std::memcpy(w, &h, sizeof h);
    w += sizeof h;
    std::memcpy(w, value, size_t(h.valueLen));
    w += h.valueLen;
    *w++ = '\0';
    std::memcpy(w, formula, size_t(h.formulaLen));
    w += h.formulaLen;
    *w = '\0';
    if (m_batch.size() >= kBatchBytes)
        flushBatch();
}

void XlsxCellPipe::cell(const XlsxRawCell& c)
{
    Header h;
    h.row = c.row;
    h.col = c.col;
    h.style = c.style;
    h.sharedIndex = c.sharedIndex;
    h.valueLen = c.valueLen;
    h.formulaLen = c.hasFormula ? c.formulaLen : 0;
    h.array.lastRow = c.arrayLastRow;
    h.array.lastCol = c.arrayLastCol;
    h.kind = char(c.kind);
    h.hasFormula = c.hasFormula;
    h.styleFromColumn = c.styleFromColumn;
    append(h, c.value, c.hasFormula ? c.formula : "");
}

void XlsxCellPipe::columnWidth(int firstCol, int lastCol, double width)
{
    Header h;
    h.row = firstCol;
    h.col = lastCol;
    h.style = -1;
    h.sharedIndex = -1;
    h.valueLen = 0;
    h.formulaLen = 0;
    h.width = width;
    h.kind = 'w';
    h.hasFormula = false;
    h.styleFromColumn = false;
    append(h, "", "");
}

void XlsxCellPipe::flushBatch()
{
    QMutexLocker locker(&m_mutex);
    while (m_full.size() >= kBatchesInFlight)
        m_emptied.wait(&m_mutex);
    m_full.append(m_batch);
    m_filled.wakeOne();
    if (!m_spare.isEmpty()) {
        m_batch = m_spare.takeLast();
    } else {
        m_batch = QByteArray();
        m_batch.reserve(kBatchBytes + 4096);
    }
    m_batch.resize(0);
}

void XlsxCellPipe::close(bool ok, const QString& err)
{
    if (!m_batch.isEmpty())
        flushBatch();
    QMutexLocker locker(&m_mutex);
    m_closed = true;
    m_ok = ok;
    m_err = err;
    m_filled.wakeAll();
}

bool XlsxCellPipe::drain(XlsxRawCellSink& out, QString& err)
{
    QByteArray batch;
    for (;;) {
        {
            QMutexLocker locker(&m_mutex);
            if (!batch.isNull()) {
                batch.resize(0);
                m_spare.append(batch);
                batch = QByteArray();
            }
            while (m_full.isEmpty() && !m_closed)
                m_filled.wait(&m_mutex);
            if (m_full.isEmpty()) {
                if (!m_ok)
                    err = m_err;
                return m_ok;
            }
            batch = m_full.takeFirst();
            m_emptied.wakeOne();
        }
        const char* p = batch.constData();
        const char* const end = p + batch.size();
        XlsxRawCell c;
        while (p < end) {
            Header h;
            std::memcpy(&h, p, sizeof h);
            p += sizeof h;
            const char* value = p;
            p += h.valueLen + 1;
            const char* formula = p;
            p += h.formulaLen + 1;
            if (h.kind == 'w') {
                out.columnWidth(h.row, h.col, h.width);
                continue;
            }
            c.row = h.row;
            c.col = h.col;
            c.style = h.style;
            c.styleFromColumn = h.styleFromColumn;
            c.sharedIndex = h.sharedIndex;
            c.kind = XlsxRawCell::Kind(h.kind);
            c.hasFormula = h.hasFormula;
            c.arrayLastRow = h.array.lastRow;
            c.arrayLastCol = h.array.lastCol;
            c.value = value;
            c.valueLen = h.valueLen;
            c.formula = formula;
            c.formulaLen = h.formulaLen;
            out.cell(c);
        }
    }
}
