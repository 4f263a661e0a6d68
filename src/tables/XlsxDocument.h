#pragma once

#include <QMap>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <memory>
#include <vector>

// The format of written cells: a number format (a code, or a built-in id when the code
// is empty and the id is not negative), bold and a font size (0: the default size).
struct XlsxWriteFormat {
    QString numFmt;
    int numFmtId = -1;
    bool bold = false;
    double fontSize = 0;

    bool isValid() const { return !numFmt.isEmpty() || numFmtId >= 0 || bold || fontSize > 0; }
    QString key() const;
};

// A workbook being written. Rows stream straight into the file (memory does not grow
// with them), so rows must arrive in ascending order per sheet. Opening an existing file
// loads its sheets; saving rewrites the workbook with those sheets kept in their order and
// the new rows merged in. Kept of each sheet: its cells with their formats (number format,
// font, fill, borders, alignment), formulas (array formulas over their ranges), row heights
// and hidden rows, column widths, formats and hidden columns, merged ranges, the frozen
// pane, hyperlinks, the print area and print titles. Kept of the workbook: hidden sheets
// (a very hidden one becomes an ordinary hidden one), the sheet it opens on and the first
// tab, and its defined names. The result is written beside the target and renamed over it.
class XlsxDocument
{
public:
    // `loadExisting` false starts an empty workbook whatever the file holds now: a fresh
    // write whose old file was removed must not take in one another writer saved since.
    explicit XlsxDocument(const QString& fileName, bool loadExisting = true);
    ~XlsxDocument();

    // An existing file that could not be read: nothing may be saved over it.
    bool loadFailed() const { return !m_loadError.isEmpty(); }
    QString loadError() const { return m_loadError; }
    QString filePath() const { return m_fileName; }

    QStringList sheetNames() const;
    // False when a sheet of that name (compared without case) already exists.
    // The name is made acceptable first: / \ ? * [ ] :, control characters and an
    // apostrophe at either end become spaces, and it is cut to 31 characters. Sheets are
    // found by either form.
    bool addSheet(const QString& name);
    bool selectSheet(const QString& name);
    bool deleteSheet(const QString& name);
    QString currentSheetName() const;

    // Row span of the cells present in the current sheet; first > last when it has none.
    int firstRow() const;
    int lastRow() const;

    void setColumnFormat(int col, const XlsxWriteFormat& format);
    // The width as the file stores it (Excel shows a little less: the cell padding).
    void setColumnWidth(int col, double width);
    // Writes a QString as text, any number type as a number. Row and column are 1-based.
    bool write(int row, int col, const QVariant& value, const XlsxWriteFormat& format);
    // Keeps what is written to the current sheet until the save, so that its rows may come
    // in any order and a cell written again replaces what it held. Costs memory for every
    // cell: for a sheet that takes more than one table. Call it before writing to the sheet.
    void holdCurrentSheet();

    bool save();

    XlsxDocument(const XlsxDocument&) = delete;
    XlsxDocument& operator=(const XlsxDocument&) = delete;

private:
    struct Private;
    std::unique_ptr<Private> d;
    QString m_fileName;
    QString m_loadError;
};
