#pragma once

#include "XlsxWorkbookReader.h"

#include <QString>

struct lxw_workbook;
struct lxw_worksheet;

// Hands the names a workbook defines to the writer. A name local to a sheet is given
// with that sheet; the built-in print area and print titles become the sheet's own print
// settings. What the writer cannot hold is left out: the other built-in names and any
// name it refuses.
class XlsxNameWriter
{
public:
    enum Outcome {
        Defined,
        BuiltInLeftOut, // a built-in name the writer has nothing for
        Refused,        // malformed, or refused by the writer
    };
    // A span of rows and columns, 1-based and inclusive.
    struct Area {
        int firstRow = 0;
        int firstCol = 0;
        int lastRow = 0;
        int lastCol = 0;
    };

    // `sheet` and `sheetName` are null and empty for a name of the whole workbook. For a
    // name left out, `why` tells why.
    static Outcome define(lxw_workbook* workbook, lxw_worksheet* sheet, const QString& sheetName,
                          const XlsxWorkbookReader::DefinedName& name, QString& why);

    // Whether a spreadsheet program takes `name` as a defined name: a letter, "_" or "\"
    // first, then letters, digits, "_", ".", "\" and "?", and nothing that reads as a cell.
    static bool isAcceptableName(const QString& name);
    // Whether a sheet name must be quoted in a formula ("2020", "A1", "TRUE") although the
    // writer, which quotes only names with other characters, would leave it bare.
    static bool needsQuotesTheWriterLeavesOut(const QString& sheetName);
    // The one area of a print area ("Sheet1!$A$1:$D$20", "'My data'!$A:$D", "Sheet1!$1:$5");
    // false for several areas or anything else.
    static bool parseArea(const QString& formula, Area& area);
    // The rows and columns repeated on each printed page ("Sheet1!$1:$2",
    // "Sheet1!$A:$A,Sheet1!$1:$1"); a part that is not given is left at 0.
    static bool parseTitles(const QString& formula, Area& rows, Area& cols);
};
