#pragma once

#include "XlsxWorkbookReader.h"

#include <QString>

#include <vector>

// One cell of a sheet as its workbook held it, kept to be written again when rows are
// appended to the workbook.
struct XlsxOldCell {
    int row = 0;
    int col = 0;
    XlsxCell::Type type = XlsxCell::Empty;
    QString text;
    double number = 0;
    QString formula;
    int style = -1;
    // The cell named no format: it shows the workbook's first format, whatever its
    // column's format (which style holds, for reading).
    bool styleFromColumn = false;
    int arrayLastRow = 0; // an array formula: the far corner of the range it fills
    int arrayLastCol = 0;
};

// Collects the cells of one sheet that are worth writing again: those with a value, a
// formula or a format of their own. The writer has no cell type for a date stored as ISO
// text, so such a cell in a date format becomes the day number that stands for it.
class XlsxOldCells : public XlsxCellVisitor
{
public:
    explicit XlsxOldCells(const XlsxStyles& styles);

    void cell(const XlsxCell& c) override;

    // The cells in row and column order (as stored within a cell position). The writer
    // counts dates from 1900 only: for a workbook that counts from 1904, its date cells are
    // moved by the 1462 days between the two, so they show the same dates; times of day
    // (below one day) and elapsed times ([h]:mm) need no move.
    std::vector<XlsxOldCell> take(bool is1904);

    // The day number (from 1900, with its missing leap day) of an ISO date or time; false
    // for a date before 1900, which no day number stands for.
    static bool serialFromIso(const QString& text, double& serial);

private:
    static bool isElapsedTime(const QString& code);

    const XlsxStyles& m_styles;
    std::vector<XlsxOldCell> m_cells;
};
