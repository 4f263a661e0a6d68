#pragma once

#include "XlsxStyles.h"
#include "XlsxZipArchive.h"

#include <QString>
#include <QStringList>
#include <QVariant>
#include <QVector>

// One cell as the sheet holds it.
struct XlsxCell {
    enum Type { Empty, Number, String, Boolean, Error };
    int row = 0; // 1-based
    int col = 0; // 1-based
    Type type = Empty;
    QString text;        // String and Error: the value; Number: empty (see rawNumber)
    // Number: the stored digits; Boolean: "0" or "1". Valid only during the visit.
    const char* raw = "";
    int rawLen = 0;
    QByteArray rawNumber() const { return QByteArray(raw, rawLen); }
    bool hasFormula = false;
    QString formula;     // a cell of a formula filled over a range gets its own, moved, text
    // An array formula: the last row and column of the range it fills, which starts at
    // this cell; 0 for any other cell (the other cells of the range hold plain values).
    int arrayLastRow = 0;
    int arrayLastCol = 0;
    int style = -1;      // cell format index; -1 when neither the cell nor its column has one
    bool styleFromColumn = false; // the cell names no format of its own: style is its column's
    bool isoDate = false; // String: the text is an ISO 8601 date and/or time (see dateTimeFromIso)
};

// Receives a sheet's cells in the order the sheet stores them.
class XlsxSheetLayout;

class XlsxCellVisitor
{
public:
    virtual ~XlsxCellVisitor() = default;
    virtual void cell(const XlsxCell& cell) = 0;
    // Column widths as stored (character units), for writers that rewrite the sheet.
    virtual void columnWidth(int /*firstCol*/, int /*lastCol*/, double /*width*/) {}
};

// Reads a workbook package: its sheets in workbook order, the date system, the cell
// formats and shared strings, and each sheet's cells streamed to a visitor. Dimensions
// are what the cells present make them, whatever the sheet claims.
class XlsxWorkbookReader
{
public:
    struct SheetInfo {
        enum Visibility { Visible, Hidden, VeryHidden };
        QString name;
        QString part;     // package part, empty when the workbook names none
        bool chart = false;
        Visibility visibility = Visible;
    };
    // A name the workbook defines, as it is stored.
    struct DefinedName {
        QString name;    // "_xlnm.Print_Area" and the like for the built-in ones
        QString formula; // without a leading '='
        int sheet = -1;  // the sheet (index into sheets()) a local name belongs to; -1: the whole workbook
        bool hidden = false;
    };

    bool open(const QString& fileName, QString& err);

    const QVector<SheetInfo>& sheets() const { return m_sheets; }
    QStringList sheetNames() const;
    // The sheet the workbook opens on (a worksheet), or -1.
    int currentSheet() const { return m_current; }
    // The sheet whose tab comes first in the tab bar as the workbook opens (index into sheets()).
    int firstTab() const { return m_firstTab; }
    const QVector<DefinedName>& definedNames() const { return m_names; }
    bool is1904() const { return m_1904; }
    // Shared strings made of differently formatted runs, once a sheet has been read.
    int richSharedStrings() const { return m_richSharedStrings; }
    const XlsxStyles& styles() const { return m_styles; }

    // With a layout, also collects what the sheet holds besides its cells (for rewriting).
    bool readSheet(int index, XlsxCellVisitor& visitor, QString& err, XlsxSheetLayout* layout = nullptr);

    // Value of a number cell as text, the way a variant holding the double prints it.
    static QString numberText(const char* raw, int len);
    static QString numberText(const QByteArray& raw) { return numberText(raw.constData(), raw.size()); }
    // The number stored digits stand for, whatever the process's locale. Leading white
    // space and a plus sign are allowed; `ok` is false unless every byte was taken.
    static double toDouble(const char* raw, int len, bool* ok = nullptr);
    static double toDouble(const QByteArray& raw, bool* ok = nullptr) { return toDouble(raw.constData(), raw.size(), ok); }
    // The date, time or date-time a number stands for: a time below 1, a date when there
    // is no fraction, otherwise both. Invalid when negative or out of range.
    static QVariant dateTimeFromNumber(double number, bool is1904);
    // The text of such a value: "2024-01-02", "13:30:00.000" or "2024-01-02T13:30:00.000".
    static QString dateTimeText(const QVariant& value);
    // The same for ISO 8601 text ("2023-03-15", "2023-03-15T12:00:00", "12:00:00"): a date
    // at midnight is a date. The time is taken as written, whatever zone it names.
    // Invalid when the text is no such date or time.
    static QVariant dateTimeFromIso(const QString& text);
    // Text with its _xHHHH_ escapes (one UTF-16 unit each, as control characters are
    // stored) turned back into characters; "_x005F_" keeps a literal underscore.
    static QString decodeEscapes(const QString& text);

    // Sheets whose part inflates to at least this many bytes are parsed on a second thread.
    static constexpr qint64 kPipelineBytes = 4 << 20;

    static constexpr int kMaxRows = 1048576;
    static constexpr int kMaxColumns = 16384;
    // Defined names beyond these bounds are left out. (A rewrite's writer takes longer for
    // each name the more there are: ten thousand cost it about half a second.)
    static constexpr int kMaxDefinedNames = 10000;
    static constexpr int kMaxDefinedNameBytes = 32767;

private:
    bool loadSharedStrings(QString& err);
    bool readSheetCells(int index, XlsxCellVisitor& visitor, QString& err, XlsxSheetLayout* layout);

    XlsxZipArchive m_zip;
    QVector<SheetInfo> m_sheets;
    QVector<QString> m_sharedStrings;
    QString m_sharedStringsPart;
    bool m_sharedStringsLoaded = false;
    int m_richSharedStrings = 0;
    XlsxStyles m_styles;
    int m_current = -1;
    int m_firstTab = 0;
    QVector<DefinedName> m_names;
    bool m_1904 = false;
};
