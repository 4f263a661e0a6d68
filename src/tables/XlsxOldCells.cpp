#include "XlsxOldCells.h"

#include "VantorLogging.h"

#include <QDateTime>
#include <QRegularExpression>

#include <algorithm>

XlsxOldCells::XlsxOldCells(const XlsxStyles& styles)
    : m_styles(styles)
{
}

void XlsxOldCells::cell(const XlsxCell& c)
{
    XlsxOldCell o;
    o.row = c.row;
    o.col = c.col;
    o.type = c.type;
    o.style = c.style;
    o.styleFromColumn = c.styleFromColumn;
    if (c.hasFormula) {
        o.formula = c.formula;
        o.arrayLastRow = c.arrayLastRow;
        o.arrayLastCol = c.arrayLastCol;
    }
    if (c.type == XlsxCell::Number || c.type == XlsxCell::Boolean) {
        o.number = XlsxWorkbookReader::toDouble(c.rawNumber());
    } else if (c.isoDate && m_styles.style(c.style).isDateTime && serialFromIso(c.text, o.number)) {
        o.type = XlsxCell::Number;
    } else {
        o.text = c.text;
    }
    m_cells.push_back(std::move(o));
}

std::vector<XlsxOldCell> XlsxOldCells::take(bool is1904)
{
    const auto before = [](const XlsxOldCell& a, const XlsxOldCell& b) {
        return a.row < b.row || (a.row == b.row && a.col < b.col);
    };
    // Sheets nearly always store their cells in order; sorting them anyway would cost a
    // buffer of half their size.
    if (!std::is_sorted(m_cells.begin(), m_cells.end(), before))
        std::stable_sort(m_cells.begin(), m_cells.end(), before);
    if (is1904) {
        bool moved = false;
        for (XlsxOldCell& c : m_cells) {
            if (c.type != XlsxCell::Number || c.number < 1)
                continue;
            const XlsxCellStyle& look = m_styles.style(c.style);
            if (!look.isDateTime || isElapsedTime(look.numFmt))
                continue;
            c.number += 1462;
            moved = true;
        }
        if (moved)
            qCInfo(lcTables).noquote() << "XlsxDocument::XlsxDocument" << "dates counted from 1904 are now counted from 1900";
    }
    return std::move(m_cells);
}

bool XlsxOldCells::serialFromIso(const QString& text, double& serial)
{
    const QVariant v = XlsxWorkbookReader::dateTimeFromIso(text);
    QDate date;
    QTime time;
    switch (v.userType()) {
    case QMetaType::QDate:
        date = v.toDate();
        break;
    case QMetaType::QTime:
        time = v.toTime();
        break;
    case QMetaType::QDateTime:
        date = v.toDateTime().date();
        time = v.toDateTime().time();
        break;
    default:
        return false;
    }
    serial = 0;
    if (date.isValid()) {
        if (date.year() < 1900)
            return false;
        const bool beforeLeapDay = date < QDate(1900, 3, 1);
        serial = double((beforeLeapDay ? QDate(1899, 12, 31) : QDate(1899, 12, 30)).daysTo(date));
    }
    if (time.isValid())
        serial += time.msecsSinceStartOfDay() / 86400000.0;
    return true;
}

bool XlsxOldCells::isElapsedTime(const QString& code)
{
    static const QRegularExpression elapsed(QStringLiteral("\\[(h+|m+|s+)\\]"), QRegularExpression::CaseInsensitiveOption);
    return elapsed.match(code).hasMatch();
}
