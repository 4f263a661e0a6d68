#pragma once

#include <QString>
#include <QVector>

class XlsxTheme;
class XlsxZipArchive;

// How a cell looks, as far as a rewrite of the workbook can carry it over. Colours are
// 0xRRGGBB with any theme colour and tint worked out, or -1 when not given or not known
// (automatic colours, the system's colours, malformed values).
struct XlsxCellLook {
    enum Edge { Left, Right, Top, Bottom, Diagonal, EdgeCount };

    QString fontName;
    bool italic = false;
    bool strike = false;
    quint8 underline = 0;  // 0 none, 1 single, 2 double, 3 single accounting, 4 double accounting
    quint8 script = 0;     // 0 none, 1 superscript, 2 subscript
    bool outline = false;
    bool shadow = false;
    int fontColor = -1;

    quint8 pattern = 0;    // fill pattern in the file's order: 0 none, 1 solid, 2 mediumGray ...
    int fgColor = -1;
    int bgColor = -1;

    quint8 border[EdgeCount] = {};  // line style in the file's order: 0 none, 1 thin, 2 medium ...
    int borderColor[EdgeCount] = {-1, -1, -1, -1, -1};
    bool diagonalUp = false;
    bool diagonalDown = false;

    quint8 horizontal = 0; // 0 general, 1 left, 2 center, 3 right, 4 fill, 5 justify, 6 centerContinuous, 7 distributed
    quint8 vertical = 0;   // 0 not given (bottom), 1 top, 2 center, 3 bottom, 4 justify, 5 distributed
    bool wrap = false;
    bool shrink = false;
    quint8 indent = 0;
    quint8 rotation = 0;   // as stored: 0-90 up, 91-180 down by (value - 90), 255 stacked
    quint8 readingOrder = 0; // 0 from the text, 1 left to right, 2 right to left
    bool unlocked = false;
    bool formulaHidden = false;
};

// What the reader needs of one cell format (an entry of the workbook's cell formats).
struct XlsxCellStyle {
    int numFmtId = 0;
    QString numFmt;        // the format code, custom or built-in
    bool customNumFmt = false;
    bool isDateTime = false;
    bool bold = false;
    double fontSize = 0;   // 0: not given
    XlsxCellLook look;     // kept for rewriting the workbook; the reader does not use it
};

// The cell formats of a workbook, indexed by the cells' style number.
class XlsxStyles
{
public:
    // Theme colours that the formats name are looked up in `theme`.
    bool load(const XlsxZipArchive& zip, const QString& partName, const XlsxTheme& theme, QString& err);
    // The style of index `xf`; a default style for indexes out of range.
    const XlsxCellStyle& style(int xf) const;
    int count() const { return m_styles.size(); }

    // True when a number shown with this custom format code is a date or a time: it holds
    // date/time letters outside quoted text, escapes and brackets, or an elapsed-time
    // bracket such as [h]. Only the first section counts.
    static bool isDateTimeFormatCode(const QString& code);
    static bool isBuiltInDateTimeId(int id);
    static QString builtInFormat(int id);
    // The colour of an entry of the default 64-colour palette, -1 outside it (64 and 65
    // are the system's foreground and background, which follow the viewer's settings).
    static int paletteColor(int index);
    // "FFRRGGBB" (alpha first, ignored) or "RRGGBB" as 0xRRGGBB; -1 when absent or malformed.
    static int parseRgb(const char* value);

    void addStyle(const XlsxCellStyle& s) { m_styles.append(s); }

private:
    QVector<XlsxCellStyle> m_styles;
    XlsxCellStyle m_default;
};
