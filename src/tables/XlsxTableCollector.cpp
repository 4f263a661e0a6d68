#include "XlsxTableCollector.h"

#include "VantorLogging.h"

#include <algorithm>
#include <climits>

namespace {

QString cleanCellText(QString text)
{
    const int n = text.size();
    if (n == 0)
        return text;
    const QChar* p = text.constData();
    // Most cells have neither tabs nor white space at their ends: nothing to copy.
    if (!p[0].isSpace() && !p[n - 1].isSpace()) {
        bool tab = false;
        for (int i = 0; i < n && !tab; ++i)
            tab = p[i].unicode() == '\t';
        if (!tab)
            return text;
    }
    text.remove(QLatin1Char('\t'));
    return text.trimmed();
}

} // namespace

XlsxTableCollector::XlsxTableCollector(const XlsxWorkbookReader& book, ReadTableCfg cfg, QList<QStringList>& rows)
    : m_styles(book.styles())
    , m_1904(book.is1904())
    , m_cfg(cfg)
    , m_rows(rows)
{
}

inline void XlsxTableCollector::place(QStringList& row, int col, const QString& text)
{
    const int index = col - 1;
    if (index < row.size()) {
        row[index] = text;
        return;
    }
    while (row.size() < index)
        row.append(QString());
    row.append(text);
}

Q_ALWAYS_INLINE QString XlsxTableCollector::convert(const XlsxCell& c, bool& filled)
{
    const XlsxCellStyle& style = m_styles.style(c.style);
    QString text;
    // A number shown as a date or time reads as one; a negative number never is one. A
    // cell with a date format and no value at all (formatted but left blank, or a formula
    // never calculated) is the number 0: it reads as midnight, yet leaves its row empty.
    double number = -1;
    if (style.isDateTime && c.type == XlsxCell::Number)
        number = XlsxWorkbookReader::toDouble(c.raw, c.rawLen);
    else if (style.isDateTime && c.type == XlsxCell::Empty)
        number = 0;
    if (number >= 0 || c.isoDate) {
        const QVariant value = c.isoDate ? XlsxWorkbookReader::dateTimeFromIso(c.text)
                                         : XlsxWorkbookReader::dateTimeFromNumber(number, m_1904);
        if (value.isValid()) {
            text = cleanCellText(XlsxWorkbookReader::dateTimeText(value));
            filled = c.isoDate || !c.rawNumber().trimmed().isEmpty();
        } else {
            text = cleanCellText(c.isoDate ? c.text : XlsxWorkbookReader::numberText(c.raw, c.rawLen));
            filled = c.isoDate && !text.isEmpty();
        }
        qCDebug(lcTables).noquote() << "TableFileAssist::readSheet" << "date cell valid:" << value.isValid()
                                    << "null:" << value.isNull() << "text:" << text
                                    << "raw:" << (c.isoDate ? c.text.toUtf8() : c.rawNumber());
        return text;
    }
    if (c.hasFormula) {
        qCWarning(lcTables).noquote() << "TableFileAssist::readSheet"
                                      << QStringLiteral("Korvo目前不支持Excel公式的导入，公式：%1").arg(c.formula);
        formulaError = QStringLiteral("Excel文件中存在公式，Korvo目前不支持Excel公式的导入，请检查！");
        filled = false;
        return text;
    }
    switch (c.type) {
    case XlsxCell::Number: // digits only: nothing to clean
        text = XlsxWorkbookReader::numberText(c.raw, c.rawLen);
        break;
    case XlsxCell::Boolean:
        text = (c.rawNumber() == "1" || c.rawNumber() == "true") ? QStringLiteral("true") : QStringLiteral("false");
        break;
    case XlsxCell::String:
    case XlsxCell::Error:
        text = cleanCellText(c.text);
        break;
    case XlsxCell::Empty:
        break;
    }
    filled = !text.isEmpty();
    if (lcTables().isDebugEnabled() && style.numFmt.contains(QLatin1Char('%'))) {
        qCDebug(lcTables).noquote() << "TableFileAssist::readSheet" << "number format:" << style.numFmt
                                    << "raw:" << c.rawNumber() << "text:" << text;
    }
    return text;
}

void XlsxTableCollector::cell(const XlsxCell& c)
{
    if (c.row < 1 || c.col < 1)
        return;
    lastRow = qMax(lastRow, c.row);
    lastCol = qMax(lastCol, c.col);
    if (c.row != m_row) {
        if (c.row < m_row || m_holding) {
            hold(c);
            return;
        }
        finishRow();
        m_row = c.row;
        m_empty = true;
        m_current.reserve(m_width);
    }
    bool filled = false;
    const QString text = convert(c, filled);
    if (filled)
        m_empty = false;
    place(m_current, c.col, text);
}

void XlsxTableCollector::hold(const XlsxCell& c)
{
    if (!m_holding) {
        qCDebug(lcTables).noquote() << "TableFileAssist::readSheet" << "row" << c.row << "stored after row" << m_row
                                    << ": the rows are put in order at the end";
        finishRow();
        m_row = 0;
        m_holding = true;
    }
    if (qint64(m_held.size()) >= kMaxSheetCells) {
        m_overflow = true;
        return;
    }
    bool filled = false;
    QString text = convert(c, filled);
    m_held.push_back({c.row, c.col, std::move(text), filled});
}

bool XlsxTableCollector::finish()
{
    finishRow();
    m_row = 0;
    if (m_overflow || qint64(lastRow) * qint64(lastCol) > kMaxSheetCells)
        return false;
    if (m_holding)
        placeHeldCells();
    QStringList emptyRow;
    emptyRow.reserve(lastCol);
    for (int i = 0; i < lastCol; ++i)
        emptyRow.append(QString());
    for (QStringList& row : m_rows) {
        if (row.isEmpty()) {
            row = emptyRow;
            continue;
        }
        if (row.size() < lastCol) {
            row.reserve(lastCol);
            while (row.size() < lastCol)
                row.append(QString());
        }
    }
    return true;
}

void XlsxTableCollector::placeHeldCells()
{
    // In sheet order; of two cells at one place the one stored later wins, as it does
    // for cells that come in order.
    std::stable_sort(m_held.begin(), m_held.end(), [](const HeldCell& a, const HeldCell& b) {
        return a.row < b.row || (a.row == b.row && a.col < b.col);
    });
    if (m_cfg != SkipEmptyRows) {
        // Every row is there, the first sheet row first.
        const int last = m_held.empty() ? 0 : m_held.back().row;
        while (m_rows.size() < last)
            m_rows.append(QStringList());
        for (const HeldCell& h : m_held)
            place(m_rows[h.row - 1], h.col, h.text);
    } else {
        // Only rows with something in them are there; merge the held ones in by row.
        QList<QStringList> merged;
        merged.reserve(m_rows.size());
        int kept = 0;
        size_t held = 0;
        while (kept < m_rows.size() || held < m_held.size()) {
            const int keptRow = kept < m_rows.size() ? m_rowNumbers.at(kept) : INT_MAX;
            const int row = held < m_held.size() ? qMin(keptRow, m_held[held].row) : keptRow;
            QStringList cells;
            bool filled = false;
            if (keptRow == row) {
                cells = m_rows.at(kept++);
                filled = true;
            }
            for (; held < m_held.size() && m_held[held].row == row; ++held) {
                place(cells, m_held[held].col, m_held[held].text);
                filled = filled || m_held[held].filled;
            }
            if (filled)
                merged.append(cells);
            else
                qCDebug(lcTables).noquote() << "TableFileAssist::readSheet" << "empty row" << row << "skipped";
        }
        m_rows.swap(merged);
    }
    m_held.clear();
    m_held.shrink_to_fit();
}

void XlsxTableCollector::finishRow()
{
    if (m_row == 0)
        return;
    // Rows without any cell are empty rows.
    if (m_cfg != SkipEmptyRows) {
        for (int r = m_emitted + 1; r < m_row; ++r)
            m_rows.append(QStringList());
    }
    if (m_empty && m_cfg == SkipEmptyRows) {
        qCDebug(lcTables).noquote() << "TableFileAssist::readSheet" << "empty row" << m_row << "skipped";
    } else {
        if (lcTables().isDebugEnabled()) {
            qCDebug(lcTables).noquote() << "TableFileAssist::readSheet" << "row empty:" << m_empty
                                        << m_current.join(QLatin1Char(','));
        }
        m_rows.append(m_current);
        if (m_cfg == SkipEmptyRows)
            m_rowNumbers.append(m_row);
    }
    m_width = qMax(m_width, m_current.size());
    m_current = QStringList();
    m_emitted = m_row;
}
