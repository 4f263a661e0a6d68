#pragma once

#include "VantorTypes.h"
#include "XlsxWorkbookReader.h"

#include <QList>
#include <QStringList>

#include <vector>

// Builds the rows of one sheet as its cells stream past: every row from the first to the
// last, every column from the first to the last, missing cells as empty texts. Cells
// normally come row by row; once a cell comes for a row already passed, it and every cell
// after it are held aside as text and put in their places when the sheet ends.
class XlsxTableCollector : public XlsxCellVisitor
{
public:
    XlsxTableCollector(const XlsxWorkbookReader& book, ReadTableCfg cfg, QList<QStringList>& rows);

    int lastRow = 0;
    int lastCol = 0;
    QString formulaError;

    void cell(const XlsxCell& c) override;
    // Ends the sheet; false when it would take unbounded memory.
    bool finish();

    // A sheet larger than this many cells (rows times columns) is refused rather than
    // padded out in memory; as many cells held aside are refused too.
    static constexpr qint64 kMaxSheetCells = qint64(1) << 26;

private:
    struct HeldCell {
        int row;
        int col;
        QString text;
        bool filled;
    };

    // The cell's text; `filled` is set when the cell makes its row non-empty.
    QString convert(const XlsxCell& c, bool& filled);
    void hold(const XlsxCell& c);
    void finishRow();
    void placeHeldCells();
    static void place(QStringList& row, int col, const QString& text);

    const XlsxStyles& m_styles;
    bool m_1904;
    ReadTableCfg m_cfg;
    QList<QStringList>& m_rows;
    QVector<int> m_rowNumbers; // sheet row of each row kept, when empty rows are skipped
    QStringList m_current;
    std::vector<HeldCell> m_held;
    int m_row = 0;
    int m_emitted = 0;
    int m_width = 0;
    bool m_empty = true;
    bool m_holding = false;
    bool m_overflow = false;
};
