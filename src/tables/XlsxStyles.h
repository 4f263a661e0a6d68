#pragma once

#include <QString>
#include <QVector>

class XlsxZipArchive;

// What the reader needs of one cell format (an entry of the workbook's cell formats).
struct XlsxCellStyle {
    int numFmtId = 0;
    QString numFmt;        // the format code, custom or built-in
    bool customNumFmt = false;
    bool isDateTime = false;
    bool bold = false;
    double fontSize = 0;   // 0: not given
};

// The cell formats of a workbook, indexed by the cells' style number.
class XlsxStyles
{
public:
    bool load(const XlsxZipArchive& zip, const QString& partName, QString& err);
    // The style of index `xf`; a default style for indexes out of range.
    const XlsxCellStyle& style(int xf) const;
    int count() const { return m_styles.size(); }

    // True when a number shown with this custom format code is a date or a time: it holds
    // date/time letters outside quoted text, escapes and brackets, or an elapsed-time
    // bracket such as [h]. Only the first section counts.
    static bool isDateTimeFormatCode(const QString& code);
    static bool isBuiltInDateTimeId(int id);
    static QString builtInFormat(int id);

    void addStyle(const XlsxCellStyle& s) { m_styles.append(s); }

private:
    QVector<XlsxCellStyle> m_styles;
    XlsxCellStyle m_default;
};
