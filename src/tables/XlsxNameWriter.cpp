#include "XlsxNameWriter.h"

#include "VantorLogging.h"

#include <QRegularExpression>
#include <QStringList>

#include <xlsxwriter.h>

namespace {

// The areas of a reference list, split at the commas outside quoted sheet names.
QStringList splitAreas(const QString& formula)
{
    QStringList areas;
    bool quoted = false;
    int from = 0;
    for (int i = 0; i < formula.size(); ++i) {
        const QChar c = formula.at(i);
        if (c == QLatin1Char('\''))
            quoted = !quoted; // a doubled apostrophe inside a name flips twice
        else if (c == QLatin1Char(',') && !quoted) {
            areas.append(formula.mid(from, i - from));
            from = i + 1;
        }
    }
    areas.append(formula.mid(from));
    return areas;
}

// "B12" as column 2, row 12; "B" alone leaves the row 0, "12" alone the column.
bool parsePoint(const QString& text, int& row, int& col)
{
    row = 0;
    col = 0;
    int i = 0;
    for (; i < text.size() && text.at(i).unicode() < 128 && text.at(i).isLetter(); ++i) {
        col = col * 26 + (text.at(i).toUpper().unicode() - 'A' + 1);
        if (col > XlsxWorkbookReader::kMaxColumns)
            return false;
    }
    const int digits = i;
    for (; i < text.size() && text.at(i).unicode() < 128 && text.at(i).isDigit(); ++i) {
        row = row * 10 + (text.at(i).unicode() - '0');
        if (row > XlsxWorkbookReader::kMaxRows)
            return false;
    }
    if (i > digits && row == 0)
        return false; // row 0
    return i == text.size() && i > 0;
}

// One area, its sheet name left aside: a cell, a range of cells, of whole columns or of
// whole rows.
bool parseOneArea(const QString& given, XlsxNameWriter::Area& area)
{
    const QString text = given.trimmed();
    const int bang = text.lastIndexOf(QLatin1Char('!'));
    QString ref = bang >= 0 ? text.mid(bang + 1) : text;
    ref.remove(QLatin1Char('$'));
    const QStringList ends = ref.split(QLatin1Char(':'));
    if (ends.size() > 2)
        return false;
    int r1 = 0, c1 = 0;
    if (!parsePoint(ends.first(), r1, c1))
        return false;
    int r2 = r1, c2 = c1;
    if (ends.size() == 2 && !parsePoint(ends.last(), r2, c2))
        return false;
    if ((r1 == 0) != (r2 == 0) || (c1 == 0) != (c2 == 0))
        return false; // "A1:3" and the like
    if (c1 == 0) { // whole rows
        if (ends.size() != 2)
            return false;
        c1 = 1;
        c2 = XlsxWorkbookReader::kMaxColumns;
    } else if (r1 == 0) { // whole columns
        if (ends.size() != 2)
            return false;
        r1 = 1;
        r2 = XlsxWorkbookReader::kMaxRows;
    }
    area.firstRow = qMin(r1, r2);
    area.lastRow = qMax(r1, r2);
    area.firstCol = qMin(c1, c2);
    area.lastCol = qMax(c1, c2);
    return true;
}

} // namespace

bool XlsxNameWriter::parseArea(const QString& formula, Area& area)
{
    const QStringList areas = splitAreas(formula);
    return areas.size() == 1 && parseOneArea(areas.first(), area);
}

bool XlsxNameWriter::parseTitles(const QString& formula, Area& rows, Area& cols)
{
    rows = Area();
    cols = Area();
    const QStringList areas = splitAreas(formula);
    if (areas.size() > 2)
        return false;
    for (const QString& text : areas) {
        Area a;
        if (!parseOneArea(text, a))
            return false;
        const bool wholeRows = a.firstCol == 1 && a.lastCol == XlsxWorkbookReader::kMaxColumns;
        const bool wholeCols = a.firstRow == 1 && a.lastRow == XlsxWorkbookReader::kMaxRows;
        if (wholeRows && rows.firstRow == 0)
            rows = a;
        else if (wholeCols && cols.firstCol == 0)
            cols = a;
        else
            return false;
    }
    return true;
}

bool XlsxNameWriter::isAcceptableName(const QString& name)
{
    if (name.isEmpty())
        return false;
    const QChar first = name.at(0);
    if (!first.isLetter() && first != QLatin1Char('_') && first != QLatin1Char('\\'))
        return false;
    for (const QChar c : name) {
        if (!c.isLetterOrNumber() && c != QLatin1Char('_') && c != QLatin1Char('.') && c != QLatin1Char('\\')
            && c != QLatin1Char('?'))
            return false;
    }
    // Nothing a formula would take for a cell: "B12", "R", "C", "R1C1", "RC3".
    static const QRegularExpression r1c1(QStringLiteral("^[Rr][0-9]*([Cc][0-9]*)?$|^[Cc][0-9]*$"));
    if (r1c1.match(name).hasMatch())
        return false;
    static const QRegularExpression a1(QStringLiteral("^[A-Za-z]{1,3}[0-9]+$"));
    if (a1.match(name).hasMatch()) {
        int row = 0, col = 0;
        if (parsePoint(name, row, col))
            return false;
    }
    return true;
}

bool XlsxNameWriter::needsQuotesTheWriterLeavesOut(const QString& sheetName)
{
    for (const QChar c : sheetName) {
        const ushort u = c.unicode();
        const bool plain = (u >= 'a' && u <= 'z') || (u >= 'A' && u <= 'Z') || (u >= '0' && u <= '9') || u == '_' || u == '.';
        if (!plain)
            return false; // the writer quotes it itself
    }
    return !sheetName.isEmpty()
        && (!isAcceptableName(sheetName) || sheetName.compare(QLatin1String("TRUE"), Qt::CaseInsensitive) == 0
            || sheetName.compare(QLatin1String("FALSE"), Qt::CaseInsensitive) == 0);
}

XlsxNameWriter::Outcome XlsxNameWriter::define(lxw_workbook* workbook, lxw_worksheet* sheet, const QString& sheetName,
                                               const XlsxWorkbookReader::DefinedName& name, QString& why)
{
    static const QLatin1String builtIn("_xlnm.");
    if (name.name.startsWith(builtIn, Qt::CaseInsensitive)) {
        const QString what = name.name.mid(builtIn.size());
        // The writer names a sheet in a print area without quotes unless the name holds
        // other characters than letters, digits, "_" and "."; a sheet named "2020", "A1"
        // or "TRUE" needs them all the same. Its range goes over as the file wrote it.
        const bool printArea = what.compare(QLatin1String("Print_Area"), Qt::CaseInsensitive) == 0;
        const bool printTitles = what.compare(QLatin1String("Print_Titles"), Qt::CaseInsensitive) == 0;
        if (sheet && (printArea || printTitles) && needsQuotesTheWriterLeavesOut(sheetName)) {
            const QByteArray full =
                (sheetName + QLatin1Char('!') + builtIn + QLatin1String(printArea ? "Print_Area" : "Print_Titles")).toUtf8();
            const QByteArray formula = name.formula.toUtf8();
            if (name.formula.startsWith(QLatin1Char('\''))
                && workbook_define_name(workbook, full.constData(), formula.constData()) == LXW_NO_ERROR)
                return Defined;
        }
        Area area;
        Area cols;
        if (sheet && printArea && parseArea(name.formula, area)) {
            if (worksheet_print_area(sheet, lxw_row_t(area.firstRow - 1), lxw_col_t(area.firstCol - 1),
                                     lxw_row_t(area.lastRow - 1), lxw_col_t(area.lastCol - 1))
                == LXW_NO_ERROR)
                return Defined;
        } else if (sheet && printTitles && parseTitles(name.formula, area, cols)) {
            bool ok = true;
            if (area.firstRow > 0)
                ok = worksheet_repeat_rows(sheet, lxw_row_t(area.firstRow - 1), lxw_row_t(area.lastRow - 1)) == LXW_NO_ERROR;
            if (cols.firstCol > 0)
                ok = worksheet_repeat_columns(sheet, lxw_col_t(cols.firstCol - 1), lxw_col_t(cols.lastCol - 1)) == LXW_NO_ERROR
                    && ok;
            if (ok)
                return Defined;
        }
        const bool print = what.startsWith(QLatin1String("Print_"), Qt::CaseInsensitive);
        why = print ? QStringLiteral("the writer takes a print area of one range, and whole rows and columns as print titles")
                    : QStringLiteral("the writer has nothing for it");
        return BuiltInLeftOut;
    }
    if (!isAcceptableName(name.name) || name.formula.trimmed().isEmpty()) {
        why = QStringLiteral("malformed");
        return Refused;
    }
    // The writer finds the sheet by its name as it stands, without quotes, up to the first "!".
    if (sheet && sheetName.contains(QLatin1Char('!'))) {
        why = QStringLiteral("the writer cannot give a name to a sheet whose name holds \"!\"");
        return Refused;
    }
    const QByteArray full = (sheet ? sheetName + QLatin1Char('!') + name.name : name.name).toUtf8();
    const QByteArray formula = name.formula.toUtf8();
    const lxw_error e = workbook_define_name(workbook, full.constData(), formula.constData());
    if (e != LXW_NO_ERROR) {
        why = QString::fromUtf8(lxw_strerror(e));
        return Refused;
    }
    if (name.hidden)
        qCDebug(lcTables).noquote() << "XlsxNameWriter::define" << "hidden name kept as a visible one:" << name.name;
    return Defined;
}
