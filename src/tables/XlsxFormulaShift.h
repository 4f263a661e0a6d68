#pragma once

#include <QByteArray>

// Moves the relative references of a formula the way filling it down or across does: the
// formula "A2*2" of B2 reads "A3*2" in B3, while "$A$2" stays where it is. Workbooks store
// a formula filled over a range once, at its first cell; the others name it by number.
//
// References are found token by token: text between double quotes, quoted sheet names
// and bracketed parts (structured and external references) are left as they are; a name
// followed by "(" is a function and one followed by "!" a sheet. A reference is one to
// three column letters and a row number inside the sheet's bounds ("B12", "$C$4"), or a
// whole-column or whole-row range ("A:C", "3:5"). A reference moved out of the sheet
// becomes "#REF!".
class XlsxFormulaShift
{
public:
    // The formula (UTF-8, without the leading "=") moved by `rows` and `cols`.
    static QByteArray shifted(const char* formula, int len, int rows, int cols);
    static QByteArray shifted(const QByteArray& formula, int rows, int cols)
    {
        return shifted(formula.constData(), formula.size(), rows, cols);
    }

    static constexpr int kMaxRows = 1048576;
    static constexpr int kMaxColumns = 16384;
};
