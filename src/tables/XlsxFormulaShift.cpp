#include "XlsxFormulaShift.h"

namespace {

inline bool isLetter(char c)
{
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

inline bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

// Characters a name, a number or a reference is made of. Bytes of multi-byte UTF-8
// sequences count too, so that a name such as "名称A1" stays one token.
inline bool isWordChar(char c)
{
    return isLetter(c) || isDigit(c) || c == '_' || c == '.' || c == '$' || c == '\\' || c == '?'
        || (static_cast<unsigned char>(c) & 0x80);
}

// One end of a reference: a column, a row, or both, each possibly anchored by "$".
struct RefPart {
    int col = 0; // 0: no column
    int row = 0; // 0: no row
    bool colFixed = false;
    bool rowFixed = false;
};

// Reads a column part ("$AB") at the front of [p, end); the letters it took, 0 if none.
int readColumn(const char* p, const char* end, RefPart& part)
{
    const char* s = p;
    if (s < end && *s == '$') {
        part.colFixed = true;
        ++s;
    }
    const char* letters = s;
    int col = 0;
    while (s < end && isLetter(*s) && s - letters < 4) {
        col = col * 26 + ((*s | 0x20) - 'a' + 1);
        ++s;
    }
    const int count = int(s - letters);
    if (count < 1 || count > 3 || col > XlsxFormulaShift::kMaxColumns)
        return 0;
    part.col = col;
    return int(s - p);
}

int readRow(const char* p, const char* end, RefPart& part)
{
    const char* s = p;
    if (s < end && *s == '$') {
        part.rowFixed = true;
        ++s;
    }
    const char* digits = s;
    long row = 0;
    while (s < end && isDigit(*s) && s - digits < 8) {
        row = row * 10 + (*s - '0');
        ++s;
    }
    if (s == digits || row < 1 || row > XlsxFormulaShift::kMaxRows)
        return 0;
    part.row = int(row);
    return int(s - p);
}

enum class Kind { None, Cell, Column, Row };

// What the whole word [p, end) is as a reference.
Kind parseWord(const char* p, const char* end, RefPart& part)
{
    part = RefPart();
    if (const int n = readColumn(p, end, part)) {
        if (p + n == end)
            return Kind::Column;
        const int m = readRow(p + n, end, part);
        return m && p + n + m == end ? Kind::Cell : Kind::None;
    }
    part = RefPart();
    const int m = readRow(p, end, part);
    return m && p + m == end ? Kind::Row : Kind::None;
}

// Moves one end; false when it leaves the sheet.
bool move(RefPart& part, int rows, int cols)
{
    if (part.col && !part.colFixed) {
        part.col += cols;
        if (part.col < 1 || part.col > XlsxFormulaShift::kMaxColumns)
            return false;
    }
    if (part.row && !part.rowFixed) {
        part.row += rows;
        if (part.row < 1 || part.row > XlsxFormulaShift::kMaxRows)
            return false;
    }
    return true;
}

void write(QByteArray& out, const RefPart& part)
{
    if (part.col) {
        if (part.colFixed)
            out += '$';
        char letters[4];
        int n = 0;
        for (int c = part.col; c > 0; c = (c - 1) / 26)
            letters[n++] = char('A' + (c - 1) % 26);
        while (n > 0)
            out += letters[--n];
    }
    if (part.row) {
        if (part.rowFixed)
            out += '$';
        out += QByteArray::number(part.row);
    }
}

// The end of the quoted text that starts at p (a doubled quote stays inside).
const char* skipQuoted(const char* p, const char* end, char quote)
{
    for (++p; p < end; ++p) {
        if (*p == quote) {
            if (p + 1 < end && p[1] == quote)
                ++p;
            else
                return p + 1;
        }
    }
    return end;
}

// The end of the bracketed part that starts at p; brackets nest and "'" escapes the
// character after it.
const char* skipBracketed(const char* p, const char* end)
{
    int depth = 0;
    for (; p < end; ++p) {
        if (*p == '\'') {
            ++p;
        } else if (*p == '[') {
            ++depth;
        } else if (*p == ']' && --depth == 0) {
            return p + 1;
        }
    }
    return end;
}

const char* wordEnd(const char* p, const char* end)
{
    while (p < end && isWordChar(*p))
        ++p;
    return p;
}

} // namespace

QByteArray XlsxFormulaShift::shifted(const char* formula, int len, int rows, int cols)
{
    if ((rows == 0 && cols == 0) || len <= 0)
        return QByteArray(formula, qMax(len, 0));
    QByteArray out;
    out.reserve(len + 16);
    const char* p = formula;
    const char* const end = formula + len;
    while (p < end) {
        const char c = *p;
        if (c == '"' || c == '\'') {
            const char* q = skipQuoted(p, end, c);
            out.append(p, int(q - p));
            p = q;
            continue;
        }
        if (c == '[') {
            const char* q = skipBracketed(p, end);
            out.append(p, int(q - p));
            p = q;
            continue;
        }
        if (!isWordChar(c)) {
            out += c;
            ++p;
            continue;
        }
        const char* q = wordEnd(p, end);
        RefPart first;
        const Kind kind = q < end && (*q == '(' || *q == '!') ? Kind::None : parseWord(p, q, first);
        if (q + 1 < end && *q == ':' && isWordChar(q[1])) {
            // A range: both ends move together, and leave the sheet together.
            const char* r = wordEnd(q + 1, end);
            RefPart second;
            const Kind other = r < end && (*r == '(' || *r == '!') ? Kind::None : parseWord(q + 1, r, second);
            if (kind != Kind::None && other == kind) {
                if (move(first, rows, cols) && move(second, rows, cols)) {
                    write(out, first);
                    out += ':';
                    write(out, second);
                } else {
                    out += "#REF!";
                }
                p = r;
                continue;
            }
            if (r < end && *r == '!' && !(p > formula && p[-1] == '!')) {
                // Sheet1:Sheet3!A1 names sheets, not cells.
                out.append(p, int(r - p));
                p = r;
                continue;
            }
        }
        if (kind == Kind::Cell) {
            if (move(first, rows, cols))
                write(out, first);
            else
                out += "#REF!";
        } else {
            out.append(p, int(q - p));
        }
        p = q;
    }
    return out;
}
