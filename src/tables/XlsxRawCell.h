#pragma once

// One cell as the sheet's XML gives it, before any text is converted. The bytes it
// points at are valid only during the call that passes it, and each is followed by a NUL.
struct XlsxRawCell {
    enum Kind : char {
        Empty = 0,
        Number = 'n',
        Boolean = 'b',
        Error = 'e',
        Text = 't',    // UTF-8 text held in the cell (t="str"), still holding its _xHHHH_ escapes
        Inline = 'i',  // an inline string, still holding its _xHHHH_ escapes
        IsoDate = 'd', // a date, a time or both written as ISO 8601 text
        Shared = 's',  // an entry of the shared strings (sharedIndex; -1 when out of range)
    };
    int row = 0; // 1-based
    int col = 0; // 1-based
    int style = -1;
    bool styleFromColumn = false; // the cell names no format: style is its column's
    int sharedIndex = -1;
    Kind kind = Empty;
    bool hasFormula = false;
    // An array formula: the last row and column of the range it fills, which starts at
    // this cell; 0 for any other cell.
    int arrayLastRow = 0;
    int arrayLastCol = 0;
    const char* value = "";
    int valueLen = 0;
    const char* formula = "";
    int formulaLen = 0;
};

// Receives a sheet's raw cells in the order the sheet stores them.
class XlsxRawCellSink
{
public:
    virtual ~XlsxRawCellSink() = default;
    virtual void cell(const XlsxRawCell& cell) = 0;
    virtual void columnWidth(int firstCol, int lastCol, double width) = 0;
};
