#include "XlsxDocument.h"

#include "SiblingTempFile.h"
#include "XlsxOldCells.h"
#include "VantorLogging.h"
#include "XlsxNameWriter.h"
#include "XlsxSheetLayout.h"
#include "XlsxStyleWriter.h"
#include "XlsxWorkbookReader.h"

#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QMutex>
#include <QMutexLocker>
#include <QRegularExpression>
#include <QVector>

#include <xlsxwriter.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <map>
#include <utility>

#include <locale.h>

namespace {

// libxlsxwriter prints its numbers with the C library, in the calling thread's locale: under
// a locale with a decimal comma a workbook would hold "10,02", which no reader takes. Its
// calls run with the numbers of the C locale on this thread, the rest of the locale kept.
class CNumbersOnThisThread
{
public:
    CNumbersOnThisThread()
        : m_old(cNumbers() ? uselocale(cNumbers()) : nullptr)
    {
    }
    ~CNumbersOnThisThread()
    {
        if (m_old)
            uselocale(m_old);
    }
    CNumbersOnThisThread(const CNumbersOnThisThread&) = delete;
    CNumbersOnThisThread& operator=(const CNumbersOnThisThread&) = delete;

private:
    static locale_t cNumbers()
    {
        static const locale_t numbers = [] {
            const locale_t base = duplocale(LC_GLOBAL_LOCALE);
            const locale_t made = base ? newlocale(LC_NUMERIC_MASK, "C", base) : locale_t(nullptr);
            if (base && !made)
                freelocale(base);
            return made;
        }();
        return numbers;
    }
    const locale_t m_old;
};

// Column widths are stored with the cell padding added; this is the width a writer is
// given to store the same value again.
double givenWidthFromStored(double stored)
{
    if (stored <= 1.0)
        return stored;
    return (stored * 7.0 - 5.0) / 7.0;
}

// The name a sheet is given for a proposed one: the characters a sheet name cannot hold
// (/ \ ? * [ ] : and control characters) become spaces, so does an apostrophe at either
// end, and it is cut to 31 characters. A name given in apostrophes ('name') loses them first.
QString safeSheetName(const QString& proposal)
{
    QString name = proposal;
    if (name.size() > 2 && name.startsWith(QLatin1Char('\'')) && name.endsWith(QLatin1Char('\''))) {
        name = name.mid(1, name.size() - 2);
        name.replace(QLatin1String("''"), QLatin1String("'"));
    }
    for (QChar& c : name) {
        switch (c.unicode()) {
        case '/':
        case '\\':
        case '?':
        case '*':
        case '[':
        case ']':
        case ':':
            c = QLatin1Char(' ');
            break;
        default:
            // Control characters: a NUL would end the name, the others no XML may hold
            // or its readers turn into spaces anyway.
            if (c.unicode() < 0x20 || c.unicode() == 0xFFFE || c.unicode() == 0xFFFF)
                c = QLatin1Char(' ');
            break;
        }
    }
    int length = 0;
    for (int i = 0; i < name.size(); ++i) {
        if (length == 31) {
            name.truncate(i);
            break;
        }
        if (name.at(i).isHighSurrogate() && i + 1 < name.size() && name.at(i + 1).isLowSurrogate())
            ++i;
        ++length;
    }
    if (name.startsWith(QLatin1Char('\'')))
        name[0] = QLatin1Char(' ');
    if (name.endsWith(QLatin1Char('\'')))
        name[name.size() - 1] = QLatin1Char(' ');
    return name;
}

using OldCell = XlsxOldCell;

// Orders the cells of one row by column, and finds a column among them.
struct ColumnOrder {
    bool operator()(const OldCell& a, int col) const { return a.col < col; }
    bool operator()(int col, const OldCell& a) const { return col < a.col; }
};

} // namespace

QString XlsxWriteFormat::key() const
{
    return numFmt + QLatin1Char('\x1f') + QString::number(numFmtId) + QLatin1Char('\x1f') + QString::number(bold)
        + QLatin1Char('\x1f') + QString::number(fontSize);
}

struct XlsxDocument::Private {
    struct Sheet {
        QString name;
        std::vector<OldCell> oldCells;
        size_t oldNext = 0;
        XlsxSheetLayout layout; // of the sheet as it was read
        size_t rowNext = 0;     // next entry of layout.rows() to hand to the writer
        size_t linkNext = 0;    // next entry of layout.hyperlinks()
        int layoutFailures = 0;
        int errorsAsText = 0;   // old error values written as their text
        QMap<int, double> widths;
        QMap<int, XlsxWriteFormat> columnFormats;
        lxw_worksheet* ws = nullptr;
        bool materialized = false;
        int currentRow = 0; // last row handed to the writer
        bool rowFormatted = false; // the old row being handed over has a format of its own
        int minRow = 0;
        int maxRow = -1;
        QVector<lxw_format*> columnFormatCache; // resolved column formats, by column - 1
        bool columnFormatCacheValid = false;
        // A held sheet keeps what is written to it until the save, by row and column.
        struct HeldCell {
            QVariant value;
            XlsxWriteFormat format;
        };
        bool held = false;
        std::map<std::pair<int, int>, HeldCell> heldCells;
        // How the workbook showed the sheet.
        XlsxWorkbookReader::SheetInfo::Visibility visibility = XlsxWorkbookReader::SheetInfo::Visible;
        bool opensOn = false;  // the workbook opened on this sheet
        bool firstTab = false; // its tab came first in the tab bar
        std::vector<XlsxWorkbookReader::DefinedName> names; // local to the sheet
    };

    std::vector<Sheet> sheets;
    std::vector<XlsxWorkbookReader::DefinedName> names; // of the whole workbook
    XlsxStyles oldStyles;
    std::vector<lxw_format*> oldFormats; // made on first use, by style index; notMade() until then
    lxw_format* plain = nullptr;
    int current = -1;
    std::unique_ptr<SiblingTempFile> temp;
    lxw_workbook* wb = nullptr;
    bool failed = false;
    QHash<QString, lxw_format*> formats;

    ~Private()
    {
        if (wb) {
            // An unsaved workbook is dropped; its temporary file goes away with `temp`.
            lxw_workbook_free(wb);
            wb = nullptr;
        }
    }

    int indexOf(const QString& proposal) const
    {
        const QString name = safeSheetName(proposal);
        for (size_t i = 0; i < sheets.size(); ++i) {
            if (sheets[i].name.compare(name, Qt::CaseInsensitive) == 0 || sheets[i].name.compare(proposal, Qt::CaseInsensitive) == 0)
                return int(i);
        }
        return -1;
    }

    bool ensureWorkbook(const QString& target)
    {
        if (wb)
            return true;
        if (failed)
            return false;
        temp = std::make_unique<SiblingTempFile>(target);
        if (!temp->create()) {
            qCWarning(lcTables).noquote() << "XlsxDocument::save"
                                          << (temp->readOnly() ? "the file is read-only:" : "cannot create a file beside") << target;
            failed = true;
            return false;
        }
        lxw_workbook_options options = {};
        options.constant_memory = LXW_TRUE;
        options.use_zip64 = LXW_TRUE;
        const QByteArray path = QFile::encodeName(temp->path()); // the name the temporary file was made under
        wb = workbook_new_opt(path.constData(), &options);
        if (!wb) {
            failed = true;
            return false;
        }
        return true;
    }

    lxw_format* format(const XlsxWriteFormat& f)
    {
        if (!f.isValid() || !wb)
            return nullptr;
        const QString key = f.key();
        auto it = formats.constFind(key);
        if (it != formats.constEnd())
            return it.value();
        lxw_format* fmt = workbook_add_format(wb);
        if (!f.numFmt.isEmpty())
            format_set_num_format(fmt, f.numFmt.toUtf8().constData());
        else if (f.numFmtId >= 0)
            format_set_num_format_index(fmt, uint8_t(qBound(0, f.numFmtId, 255)));
        if (f.bold)
            format_set_bold(fmt);
        if (f.fontSize > 0)
            format_set_font_size(fmt, f.fontSize);
        formats.insert(key, fmt);
        return fmt;
    }

    // A format with nothing set: lets the writer keep a cell that is empty.
    lxw_format* plainFormat()
    {
        if (!plain)
            plain = workbook_add_format(wb);
        return plain;
    }

    static lxw_format* notMade()
    {
        static char marker;
        return reinterpret_cast<lxw_format*>(&marker);
    }

    // The writer's format for a cell format of the workbook as it was read; null for
    // one that looks like no format at all.
    lxw_format* oldFormat(int style)
    {
        if (style < 0 || style >= oldStyles.count() || !wb)
            return nullptr;
        if (oldFormats.empty())
            oldFormats.resize(size_t(oldStyles.count()), notMade());
        lxw_format*& fmt = oldFormats[size_t(style)];
        if (fmt == notMade()) {
            const XlsxCellStyle& look = oldStyles.style(style);
            fmt = nullptr;
            if (!XlsxStyleWriter::isPlain(look)) {
                fmt = workbook_add_format(wb);
                XlsxStyleWriter::apply(look, fmt);
            }
        }
        return fmt;
    }

    bool writeOld(Sheet& s, const OldCell& c)
    {
        const lxw_row_t r = lxw_row_t(c.row - 1);
        const lxw_col_t col = lxw_col_t(c.col - 1);
        // A cell that names no format shows the workbook's first one, whatever its row's
        // or column's format; given no format, the writer would dress it in those.
        // Where neither has a format, no format is the plain one and spares the writer a
        // look for it at every cell.
        const bool ownFormat = c.style >= 0 && !c.styleFromColumn;
        lxw_format* fmt = oldFormat(ownFormat ? c.style : 0);
        if (!fmt && (s.rowFormatted || columnFormat(s, c.col)))
            fmt = plainFormat();
        if (!c.formula.isEmpty() && c.arrayLastRow > 0) {
            // The writer keeps a number as the result only; a text result shows once the
            // workbook is calculated again. The other cells of the range come with their
            // own values.
            const QByteArray f = QByteArray("{=") + c.formula.toUtf8() + '}';
            const double result = c.type == XlsxCell::Number || c.type == XlsxCell::Boolean ? writable(c.number, c.row) : 0;
            if (worksheet_write_array_formula_num(s.ws, r, col, lxw_row_t(c.arrayLastRow - 1), lxw_col_t(c.arrayLastCol - 1),
                                                  f.constData(), fmt, result)
                == LXW_NO_ERROR)
                return true;
            ++s.layoutFailures; // written as a plain formula instead
        }
        if (!c.formula.isEmpty()) {
            const QByteArray f = c.formula.toUtf8();
            if (c.type == XlsxCell::String || c.type == XlsxCell::Error)
                return worksheet_write_formula_str(s.ws, r, col, f.constData(), fmt, c.text.toUtf8().constData()) == LXW_NO_ERROR;
            return worksheet_write_formula_num(s.ws, r, col, f.constData(), fmt, writable(c.number, c.row)) == LXW_NO_ERROR;
        }
        switch (c.type) {
        case XlsxCell::Number:
            return worksheet_write_number(s.ws, r, col, writable(c.number, c.row), fmt) == LXW_NO_ERROR;
        case XlsxCell::Boolean:
            return worksheet_write_boolean(s.ws, r, col, c.number != 0, fmt) == LXW_NO_ERROR;
        case XlsxCell::Error:
            ++s.errorsAsText; // the writer has no error values: "#N/A" stays as its text
            return writeString(s, r, col, c.text, fmt);
        case XlsxCell::String:
            return writeString(s, r, col, c.text, fmt);
        case XlsxCell::Empty:
            return worksheet_write_blank(s.ws, r, col, fmt ? fmt : plainFormat()) == LXW_NO_ERROR;
        }
        return true;
    }

    // Text that reads like one of the _xHHHH_ escapes control characters are stored as
    // keeps its underscore escaped, so that it does not come back as that character. The
    // characters no XML may hold and the writer leaves as they are (NUL, which would end
    // its text, U+FFFE and U+FFFF) are stored as such escapes themselves.
    static QString escapedLikeControl(const QString& text)
    {
        static const QRegularExpression escape(QStringLiteral("_(?=x[0-9A-Fa-f]{4}_)"));
        // Most text has neither an underscore nor such a character: one quick look.
        bool unfit = false;
        int at = -1;
        for (int i = 0; i < text.size() && !unfit; ++i) {
            const ushort u = text.at(i).unicode();
            unfit = u == 0 || u == 0xFFFE || u == 0xFFFF;
            if (u == '_' && at < 0)
                at = i;
        }
        if (!unfit && (at < 0 || text.indexOf(escape, at) < 0))
            return text;
        QString escaped = text;
        escaped.replace(escape, QStringLiteral("_x005F_"));
        if (unfit) {
            escaped.replace(QChar(0), QStringLiteral("_x0000_"));
            escaped.replace(QChar(0xFFFE), QStringLiteral("_xFFFE_"));
            escaped.replace(QChar(0xFFFF), QStringLiteral("_xFFFF_"));
        }
        return escaped;
    }

    bool writeString(Sheet& s, lxw_row_t r, lxw_col_t col, const QString& given, lxw_format* fmt)
    {
        // An empty text is still a cell: it counts for the sheet's width and last row.
        if (given.isEmpty())
            return worksheet_write_blank(s.ws, r, col, fmt ? fmt : plainFormat()) == LXW_NO_ERROR;
        // Text far beyond what a cell holds loses its tail before it is escaped: escapes
        // may make it seven times as long, past what a string can be, and only its first
        // 32 767 characters are kept below. Twice that many UTF-16 units, and the few an
        // escape looks ahead, leave those characters as they were.
        constexpr int kKeptUnits = 2 * 32767 + 8;
        const QString text = escapedLikeControl(given.size() > kKeptUnits ? given.left(kKeptUnits) : given);
        QByteArray utf8 = text.toUtf8();
        lxw_error e = worksheet_write_string(s.ws, r, col, utf8.constData(), fmt);
        if (e == LXW_ERROR_MAX_STRING_LENGTH_EXCEEDED) {
            // A cell holds at most 32 767 characters; the rest is cut.
            qCWarning(lcTables).noquote() << "XlsxDocument::write" << "cell text cut to 32767 characters at row" << r + 1;
            utf8 = text.left(32767).toUtf8();
            e = worksheet_write_string(s.ws, r, col, utf8.constData(), fmt);
        }
        return e == LXW_NO_ERROR;
    }

    void noteRow(Sheet& s, int row)
    {
        if (s.maxRow < s.minRow) {
            s.minRow = row;
            s.maxRow = row;
        } else {
            s.minRow = qMin(s.minRow, row);
            s.maxRow = qMax(s.maxRow, row);
        }
    }

    // Hands one new cell to the writer, after the old sheet's rows up to its own.
    bool writeCell(Sheet& s, int row, int col, const QVariant& value, lxw_format* fmt)
    {
        flushOld(s, row);
        s.currentRow = row;
        noteRow(s, row);
        const lxw_row_t r = lxw_row_t(row - 1);
        const lxw_col_t c = lxw_col_t(col - 1);
        if (value.userType() == QMetaType::QString)
            return writeString(s, r, c, value.toString(), fmt);
        return worksheet_write_number(s.ws, r, c, writable(value.toDouble(), row), fmt) == LXW_NO_ERROR;
    }

    // A number as the writer can store it. It prints 16 significant digits, which round
    // the largest doubles up past the largest one: those are stored as the largest that
    // prints within range. A NaN or an infinity has no form in a workbook and becomes 0.
    static double writable(double number, int row)
    {
        constexpr double kLargest = 1.797693134862315e308;
        if (!std::isfinite(number)) {
            qCWarning(lcTables).noquote() << "XlsxDocument::write" << "a number that is not finite is written as 0 at row" << row;
            return 0;
        }
        if (std::fabs(number) > kLargest)
            return std::copysign(kLargest, number);
        return number;
    }

    void releaseHeld(Sheet& s)
    {
        for (const auto& cell : s.heldCells)
            writeCell(s, cell.first.first, cell.first.second, cell.second.value,
                      cell.second.format.isValid() ? format(cell.second.format) : plainFormat());
        s.heldCells.clear();
    }

    // A column's format: the one given since, else the sheet's own.
    lxw_format* columnFormat(Sheet& s, int col)
    {
        if (!s.columnFormatCacheValid) {
            s.columnFormatCache.clear();
            auto put = [&s](int c, lxw_format* fmt) {
                if (s.columnFormatCache.size() < c)
                    s.columnFormatCache.resize(c);
                s.columnFormatCache[c - 1] = fmt;
            };
            for (const XlsxSheetLayout::Column& span : s.layout.columns()) {
                lxw_format* fmt = oldFormat(span.style);
                for (int c = span.first; c <= span.last; ++c)
                    put(c, fmt);
            }
            for (auto it = s.columnFormats.cbegin(); it != s.columnFormats.cend(); ++it)
                put(it.key(), format(it.value()));
            s.columnFormatCacheValid = true;
        }
        return col <= s.columnFormatCache.size() ? s.columnFormatCache.at(col - 1) : nullptr;
    }

    // The format a new cell without one of its own takes, in every row alike: its row's
    // format, else its column's; null for none.
    lxw_format* defaultFormat(Sheet& s, int row, int col)
    {
        const std::vector<XlsxSheetLayout::Row>& rows = s.layout.rows();
        const auto at = std::upper_bound(rows.begin(), rows.end(), row,
                                         [](int r, const XlsxSheetLayout::Row& given) { return r < given.row; });
        if (at != rows.begin() && std::prev(at)->row == row) {
            if (lxw_format* fmt = oldFormat(std::prev(at)->style))
                return fmt;
        }
        return columnFormat(s, col);
    }

    void setRow(Sheet& s, const XlsxSheetLayout::Row& row)
    {
        lxw_row_col_options options = {};
        options.hidden = row.hidden;
        options.level = row.level;
        options.collapsed = row.collapsed;
        const double height = row.height > 0 ? row.height : LXW_DEF_ROW_HEIGHT;
        if (worksheet_set_row_opt(s.ws, lxw_row_t(row.row - 1), height, oldFormat(row.style), &options) != LXW_NO_ERROR)
            ++s.layoutFailures;
    }

    void writeLink(Sheet& s, const XlsxSheetLayout::Hyperlink& link)
    {
        QString url;
        if (link.target.isEmpty())
            url = QLatin1String("internal:") + link.location;
        else if (link.target.startsWith(QLatin1Char('#'))) // a place in this workbook, named as a target
            url = QLatin1String("internal:") + (link.location.isEmpty() ? link.target.mid(1) : link.location);
        else if (link.location.isEmpty())
            url = link.target;
        else
            url = link.target + QLatin1Char('#') + link.location;
        const QByteArray address = url.toUtf8();
        const QByteArray display = link.display.toUtf8();
        const QByteArray tooltip = link.tooltip.toUtf8();
        const lxw_error e = worksheet_write_url_opt(s.ws, lxw_row_t(link.row - 1), lxw_col_t(link.col - 1), address.constData(),
                                                    nullptr, display.isEmpty() ? nullptr : display.constData(),
                                                    tooltip.isEmpty() ? nullptr : tooltip.constData());
        if (e != LXW_NO_ERROR)
            ++s.layoutFailures;
    }

    // Hands the old sheet's rows up to `uptoRow` to the writer in ascending order, each
    // row's options first (the writer takes them only before the row's cells), then its
    // hyperlinks (which write their cell), then its cells over them.
    void flushOld(Sheet& s, int uptoRow)
    {
        const std::vector<XlsxSheetLayout::Row>& rows = s.layout.rows();
        const std::vector<XlsxSheetLayout::Hyperlink>& links = s.layout.hyperlinks();
        for (;;) {
            int next = INT_MAX;
            if (s.oldNext < s.oldCells.size())
                next = s.oldCells[s.oldNext].row;
            if (s.rowNext < rows.size())
                next = qMin(next, rows[s.rowNext].row);
            if (s.linkNext < links.size())
                next = qMin(next, links[s.linkNext].row);
            if (next == INT_MAX || next > uptoRow)
                return;
            s.rowFormatted = false;
            while (s.rowNext < rows.size() && rows[s.rowNext].row == next) {
                s.rowFormatted = s.rowFormatted || oldFormat(rows[s.rowNext].style);
                setRow(s, rows[s.rowNext++]);
            }
            if (s.linkNext < links.size() && links[s.linkNext].row == next) {
                const auto rowBegin = s.oldCells.begin() + std::ptrdiff_t(s.oldNext);
                const auto rowEnd = std::upper_bound(rowBegin, s.oldCells.end(), next,
                                                     [](int row, const OldCell& c) { return row < c.row; });
                while (s.linkNext < links.size() && links[s.linkNext].row == next) {
                    const XlsxSheetLayout::Hyperlink& link = links[s.linkNext++];
                    writeLink(s, link);
                    // A link on a cell that had nothing leaves it empty, not showing the address.
                    const bool hasCell = std::binary_search(rowBegin, rowEnd, link.col, ColumnOrder());
                    if (!hasCell)
                        worksheet_write_blank(s.ws, lxw_row_t(next - 1), lxw_col_t(link.col - 1), plainFormat());
                }
            }
            while (s.oldNext < s.oldCells.size() && s.oldCells[s.oldNext].row == next)
                writeOld(s, s.oldCells[s.oldNext++]);
            s.currentRow = qMax(s.currentRow, next);
        }
    }

    // How the old sheet was shown and printed.
    void setPage(Sheet& s)
    {
        const XlsxSheetLayout::Page& page = s.layout.page();
        if (page.tabColor >= 0)
            worksheet_set_tab_color(s.ws, lxw_color_t(page.tabColor));
        if (page.zoom > 0)
            worksheet_set_zoom(s.ws, uint16_t(page.zoom));
        // The writer's option adds gridlines; hiding those on screen takes hiding all first.
        if (!page.screenGridlines)
            worksheet_gridlines(s.ws, LXW_HIDE_ALL_GRIDLINES);
        if (page.printGridlines)
            worksheet_gridlines(s.ws, page.screenGridlines ? LXW_SHOW_ALL_GRIDLINES : LXW_SHOW_PRINT_GRIDLINES);
        const std::pair<bool, void (*)(lxw_worksheet*)> switches[] = {
            {page.rightToLeft, worksheet_right_to_left},
            {page.hideZeros, worksheet_hide_zero},
            {page.printHeadings, worksheet_print_row_col_headers},
            {page.centerHorizontally, worksheet_center_horizontally},
            {page.centerVertically, worksheet_center_vertically},
            {page.landscape, worksheet_set_landscape}};
        for (const auto& [on, set] : switches) {
            if (on)
                set(s.ws);
        }
        if (page.paperSize > 0)
            worksheet_set_paper(s.ws, uint8_t(page.paperSize));
        if (page.fitToPage)
            worksheet_fit_to_pages(s.ws, uint16_t(page.fitWidth), uint16_t(page.fitHeight));
        else if (page.scale > 0)
            worksheet_set_print_scale(s.ws, uint16_t(page.scale));
        worksheet_set_margins(s.ws, page.margins[0], page.margins[1], page.margins[2], page.margins[3]);
        // The height of rows that have none of their own, when it is not the usual one.
        if (page.defaultRowHeight > 0
            && (page.customDefaultHeight || std::fabs(page.defaultRowHeight - LXW_DEF_ROW_HEIGHT) > 1e-9))
            worksheet_set_default_row(s.ws, page.defaultRowHeight, page.hideUnusedRows);
        else if (page.hideUnusedRows)
            worksheet_set_default_row(s.ws, LXW_DEF_ROW_HEIGHT, LXW_TRUE);
        const QByteArray texts[2] = {s.layout.header().toUtf8(), s.layout.footer().toUtf8()};
        for (int i = 0; i < 2; ++i) {
            if (texts[i].isEmpty())
                continue;
            lxw_header_footer_options options = {};
            options.margin = page.margins[4 + i] > 0 ? page.margins[4 + i] : 0.3;
            const lxw_error e = i == 0 ? worksheet_set_header_opt(s.ws, texts[i].constData(), &options)
                                       : worksheet_set_footer_opt(s.ws, texts[i].constData(), &options);
            if (e != LXW_NO_ERROR)
                ++s.layoutFailures;
        }
    }

    // What the writer needs to know before any row: merged ranges (the writer takes a
    // range only while its last row is still to come) and the frozen pane.
    void startLayout(Sheet& s)
    {
        for (const XlsxSheetLayout::Range& r : s.layout.merges()) {
            // An empty text and no format: the range is registered and its cells are left
            // to the old cells that follow.
            if (worksheet_merge_range(s.ws, lxw_row_t(r.firstRow - 1), lxw_col_t(r.firstCol - 1), lxw_row_t(r.lastRow - 1),
                                      lxw_col_t(r.lastCol - 1), "", nullptr)
                != LXW_NO_ERROR)
                ++s.layoutFailures;
        }
        setPage(s);
        const XlsxSheetLayout::Pane& pane = s.layout.pane();
        if (pane.rows > 0 || pane.cols > 0)
            worksheet_freeze_panes_opt(s.ws, lxw_row_t(pane.rows), lxw_col_t(pane.cols), lxw_row_t(pane.topRow - 1),
                                       lxw_col_t(pane.leftCol - 1), 0);
    }

    // Column widths, formats and visibility: the old sheet's spans with the widths and
    // formats given since laid over them, written as runs of equal columns.
    void writeColumns(Sheet& s)
    {
        const std::vector<XlsxSheetLayout::Column>& spans = s.layout.columns();
        // A sheet's own default width reaches every column that has none of its own.
        const double storedDefault = s.layout.page().defaultColWidth;
        const bool ownDefault = storedDefault >= 0 && std::fabs(givenWidthFromStored(storedDefault) - LXW_DEF_COL_WIDTH) > 0.005;
        const double defaultWidth = ownDefault ? givenWidthFromStored(storedDefault) : LXW_DEF_COL_WIDTH;
        int maxCol = ownDefault ? XlsxWorkbookReader::kMaxColumns : 0;
        for (const XlsxSheetLayout::Column& span : spans)
            maxCol = qMax(maxCol, span.last);
        if (!s.widths.isEmpty())
            maxCol = qMax(maxCol, s.widths.lastKey());
        if (!s.columnFormats.isEmpty())
            maxCol = qMax(maxCol, s.columnFormats.lastKey());
        maxCol = qMin(maxCol, XlsxWorkbookReader::kMaxColumns);
        if (maxCol <= 0)
            return;
        std::vector<int> owner(size_t(maxCol) + 1, -1); // the span that has the last word on a column
        for (size_t i = 0; i < spans.size(); ++i) {
            for (int c = spans[i].first; c <= qMin(spans[i].last, maxCol); ++c)
                owner[size_t(c)] = int(i);
        }
        struct Col {
            bool any = false;
            double width = 0;
            lxw_format* fmt = nullptr;
            lxw_row_col_options options = {};
            bool operator==(const Col& o) const
            {
                return any == o.any && width == o.width && fmt == o.fmt && options.hidden == o.options.hidden
                    && options.level == o.options.level && options.collapsed == o.options.collapsed;
            }
        };
        auto columnAt = [&](int c) {
            Col col;
            col.any = ownDefault;
            col.width = defaultWidth;
            const XlsxSheetLayout::Column* span = owner[size_t(c)] >= 0 ? &spans[size_t(owner[size_t(c)])] : nullptr;
            if (span) {
                col.any = true;
                if (span->width >= 0)
                    col.width = givenWidthFromStored(span->width);
                col.fmt = oldFormat(span->style);
                col.options.hidden = span->hidden;
                col.options.level = span->level;
                col.options.collapsed = span->collapsed;
            }
            auto width = s.widths.constFind(c);
            if (width != s.widths.constEnd()) {
                col.any = true;
                col.width = givenWidthFromStored(width.value());
            }
            auto format = s.columnFormats.constFind(c);
            if (format != s.columnFormats.constEnd()) {
                col.any = true;
                col.fmt = this->format(format.value());
            }
            return col;
        };
        for (int c = 1; c <= maxCol;) {
            const Col col = columnAt(c);
            int end = c;
            while (end < maxCol && columnAt(end + 1) == col)
                ++end;
            if (col.any) {
                Col copy = col;
                worksheet_set_column_opt(s.ws, lxw_col_t(c - 1), lxw_col_t(end - 1), copy.width, copy.fmt, &copy.options);
            }
            c = end + 1;
        }
    }

    bool materialize(int index, const QString& target)
    {
        Sheet& s = sheets[size_t(index)];
        if (s.materialized)
            return s.ws != nullptr;
        if (!ensureWorkbook(target))
            return false;
        // Sheets keep their order: every sheet before this one is laid down first.
        for (int i = 0; i < index; ++i) {
            if (!sheets[size_t(i)].materialized)
                materialize(i, target);
        }
        s.materialized = true;
        const QByteArray name = s.name.toUtf8();
        s.ws = workbook_add_worksheet(wb, name.constData());
        if (!s.ws) {
            qCWarning(lcTables).noquote() << "XlsxDocument::addSheet" << "the sheet name is not acceptable:" << s.name;
            return false;
        }
        startLayout(s);
        return true;
    }

    bool visible(const Sheet& s) const { return s.visibility == XlsxWorkbookReader::SheetInfo::Visible; }

    // Hidden sheets stay hidden, and the workbook opens on the sheet it opened on, with
    // the same tab first in the tab bar. It always opens on a visible sheet: the first one
    // when that sheet is hidden or gone, and if every sheet is hidden the one it opened on
    // is shown again.
    void writeWorkbookView()
    {
        if (sheets.empty())
            return; // the writer gives the workbook its one empty sheet
        int active = -1;
        for (size_t i = 0; i < sheets.size() && active < 0; ++i) {
            if (sheets[i].opensOn && visible(sheets[i]))
                active = int(i);
        }
        for (size_t i = 0; i < sheets.size() && active < 0; ++i) {
            if (visible(sheets[i]))
                active = int(i);
        }
        if (active < 0) {
            active = 0;
            for (size_t i = 0; i < sheets.size(); ++i) {
                if (sheets[i].opensOn)
                    active = int(i);
            }
            qCWarning(lcTables).noquote() << "XlsxDocument::save" << "every sheet is hidden; sheet"
                                          << sheets[size_t(active)].name << "is shown";
            sheets[size_t(active)].visibility = XlsxWorkbookReader::SheetInfo::Visible;
        }
        for (Sheet& s : sheets) {
            if (visible(s))
                continue;
            if (s.visibility == XlsxWorkbookReader::SheetInfo::VeryHidden)
                qCDebug(lcTables).noquote() << "XlsxDocument::save" << "sheet" << s.name
                                            << "is hidden as an ordinary hidden sheet: the writer has no other kind";
            worksheet_hide(s.ws);
        }
        worksheet_activate(sheets[size_t(active)].ws);
        // A hidden first tab hands its place on to the next visible one.
        bool first = false;
        for (Sheet& s : sheets) {
            first = first || s.firstTab;
            if (first && visible(s)) {
                worksheet_set_first_sheet(s.ws);
                break;
            }
        }
    }

    void writeNames()
    {
        int refused = 0;
        auto define = [&](lxw_worksheet* ws, const QString& sheet, const XlsxWorkbookReader::DefinedName& name) {
            QString why;
            const XlsxNameWriter::Outcome outcome = XlsxNameWriter::define(wb, ws, sheet, name, why);
            if (outcome == XlsxNameWriter::BuiltInLeftOut) {
                qCDebug(lcTables).noquote() << "XlsxDocument::save" << "built-in name left out:" << name.name << name.formula
                                            << "-" << why;
            } else if (outcome == XlsxNameWriter::Refused && ++refused <= kNamesLogged) {
                const QString scope = sheet.isEmpty() ? QString() : QStringLiteral(" of sheet ") + sheet;
                qCWarning(lcTables).noquote() << "XlsxDocument::save" << "defined name left out:" << name.name + scope << "-"
                                              << why;
            }
        };
        for (Sheet& s : sheets) {
            for (const XlsxWorkbookReader::DefinedName& name : s.names)
                define(s.ws, s.name, name);
        }
        for (const XlsxWorkbookReader::DefinedName& name : names)
            define(nullptr, QString(), name);
        if (refused > kNamesLogged)
            qCWarning(lcTables).noquote() << "XlsxDocument::save" << refused - kNamesLogged << "more defined names left out";
    }
    static constexpr int kNamesLogged = 20;

    void finishSheet(Sheet& s)
    {
        if (!s.ws)
            return;
        flushOld(s, INT_MAX);
        writeColumns(s);
        if (s.layoutFailures > 0)
            qCWarning(lcTables).noquote() << "XlsxDocument::save" << s.layoutFailures
                                          << "row options, merged ranges, hyperlinks, array ranges, headers or footers the writer refused are left out of sheet"
                                          << s.name;
        if (s.errorsAsText > 0)
            qCWarning(lcTables).noquote() << "XlsxDocument::save" << "sheet" << s.name << "keeps" << s.errorsAsText
                                          << "error values (such as #N/A) as text";
    }
};

XlsxDocument::XlsxDocument(const QString& fileName, bool loadExisting)
    : d(std::make_unique<Private>())
    , m_fileName(fileName)
{
    const QFileInfo info(fileName);
    if (loadExisting && info.exists() && info.size() > 0) {
        XlsxWorkbookReader reader;
        QString err;
        if (!reader.open(fileName, err)) {
            m_loadError = err;
            return;
        }
        d->oldStyles = reader.styles();
        std::vector<std::vector<XlsxWorkbookReader::DefinedName>> localNames(size_t(reader.sheets().size()));
        for (const XlsxWorkbookReader::DefinedName& name : reader.definedNames()) {
            if (name.sheet < 0)
                d->names.push_back(name);
            else
                localNames[size_t(name.sheet)].push_back(name);
        }
        bool firstTabPending = false;
        for (int i = 0; i < reader.sheets().size(); ++i) {
            const XlsxWorkbookReader::SheetInfo& info = reader.sheets().at(i);
            firstTabPending = firstTabPending || i == reader.firstTab();
            if (info.chart) {
                qCWarning(lcTables).noquote() << "XlsxDocument::XlsxDocument" << "chart sheet not kept:" << info.name;
                if (!localNames[size_t(i)].empty())
                    qCDebug(lcTables).noquote() << "XlsxDocument::XlsxDocument" << "names local to chart sheet" << info.name
                                                << "left out:" << localNames[size_t(i)].size();
                continue;
            }
            XlsxOldCells visitor(d->oldStyles);
            Private::Sheet sheet;
            sheet.name = info.name;
            sheet.visibility = info.visibility;
            sheet.opensOn = i == reader.currentSheet();
            sheet.firstTab = firstTabPending;
            firstTabPending = false;
            sheet.names = std::move(localNames[size_t(i)]);
            if (!reader.readSheet(i, visitor, err, &sheet.layout)) {
                m_loadError = err;
                d->sheets.clear();
                return;
            }
            sheet.oldCells = visitor.take(reader.is1904());
            if (!sheet.oldCells.empty()) {
                sheet.minRow = sheet.oldCells.front().row;
                sheet.maxRow = sheet.oldCells.back().row;
            }
            d->sheets.push_back(std::move(sheet));
        }
        d->current = 0;
        for (size_t i = 0; i < d->sheets.size(); ++i) {
            if (d->sheets[i].opensOn)
                d->current = int(i);
        }
        if (reader.richSharedStrings() > 0)
            qCWarning(lcTables).noquote() << "XlsxDocument::XlsxDocument" << reader.richSharedStrings()
                                          << "texts of mixed formatting keep their text and lose the formatting of their parts";
    }
    if (d->sheets.empty()) {
        Private::Sheet sheet;
        sheet.name = QStringLiteral("Sheet1");
        d->sheets.push_back(std::move(sheet));
        d->current = 0;
    }
}

XlsxDocument::~XlsxDocument() = default;

QStringList XlsxDocument::sheetNames() const
{
    QStringList names;
    for (const auto& s : d->sheets)
        names.append(s.name);
    return names;
}

bool XlsxDocument::addSheet(const QString& name)
{
    if (d->indexOf(name) >= 0)
        return false;
    Private::Sheet sheet;
    sheet.name = safeSheetName(name);
    d->sheets.push_back(std::move(sheet));
    d->current = int(d->sheets.size()) - 1;
    return true;
}

bool XlsxDocument::selectSheet(const QString& name)
{
    const int i = d->indexOf(name);
    if (i < 0)
        return false;
    d->current = i;
    return true;
}

bool XlsxDocument::deleteSheet(const QString& name)
{
    const int i = d->indexOf(name);
    if (i < 0 || d->sheets[size_t(i)].materialized)
        return false;
    d->sheets.erase(d->sheets.begin() + i);
    if (d->current >= int(d->sheets.size()))
        d->current = int(d->sheets.size()) - 1;
    return true;
}

QString XlsxDocument::currentSheetName() const
{
    return d->current >= 0 ? d->sheets[size_t(d->current)].name : QString();
}

int XlsxDocument::firstRow() const
{
    return d->current >= 0 ? d->sheets[size_t(d->current)].minRow : 0;
}

int XlsxDocument::lastRow() const
{
    return d->current >= 0 ? d->sheets[size_t(d->current)].maxRow : -1;
}

void XlsxDocument::setColumnFormat(int col, const XlsxWriteFormat& format)
{
    if (d->current >= 0 && col >= 1 && col <= XlsxWorkbookReader::kMaxColumns) {
        d->sheets[size_t(d->current)].columnFormats.insert(col, format);
        d->sheets[size_t(d->current)].columnFormatCacheValid = false;
    }
}

void XlsxDocument::setColumnWidth(int col, double width)
{
    if (d->current >= 0 && col >= 1 && col <= XlsxWorkbookReader::kMaxColumns)
        d->sheets[size_t(d->current)].widths.insert(col, width);
}

bool XlsxDocument::write(int row, int col, const QVariant& value, const XlsxWriteFormat& format)
{
    const CNumbersOnThisThread numbers;
    if (d->current < 0 || row < 1 || col < 1 || row > XlsxWorkbookReader::kMaxRows || col > XlsxWorkbookReader::kMaxColumns)
        return false;
    if (!d->materialize(d->current, m_fileName))
        return false;
    Private::Sheet& s = d->sheets[size_t(d->current)];
    if (s.held) {
        // The cell's format is settled now, as for a cell written at once.
        Private::Sheet::HeldCell cell{value, format.isValid() ? format : s.columnFormats.value(col)};
        const auto at = s.heldCells.find({row, col});
        if (at != s.heldCells.end())
            at->second = std::move(cell);
        else
            s.heldCells.emplace(std::make_pair(row, col), std::move(cell));
        d->noteRow(s, row);
        return true;
    }
    if (row < s.currentRow) {
        qCWarning(lcTables).noquote() << "XlsxDocument::write" << "row" << row << "comes after row" << s.currentRow
                                      << "of sheet" << s.name << "and is dropped";
        return false;
    }
    return d->writeCell(s, row, col, value, format.isValid() ? d->format(format) : d->defaultFormat(s, row, col));
}

void XlsxDocument::holdCurrentSheet()
{
    if (d->current >= 0)
        d->sheets[size_t(d->current)].held = true;
}

bool XlsxDocument::save()
{
    const CNumbersOnThisThread numbers;
    if (loadFailed())
        return false;
    for (size_t i = 0; i < d->sheets.size(); ++i) {
        if (!d->sheets[i].materialized && !d->materialize(int(i), m_fileName))
            return false;
    }
    if (!d->ensureWorkbook(m_fileName))
        return false;
    bool ok = true;
    for (auto& s : d->sheets) {
        if (!s.ws)
            ok = false;
        else
            d->releaseHeld(s);
        d->finishSheet(s);
    }
    if (ok) {
        d->writeWorkbookView();
        d->writeNames();
    }
    lxw_error e;
    {
        // libxlsxwriter stamps the workbook's creation time through gmtime(), whose one
        // result buffer every thread shares, so workbooks are closed one at a time.
        static QMutex closing;
        QMutexLocker locker(&closing);
        e = workbook_close(d->wb);
    }
    d->wb = nullptr;
    if (e != LXW_NO_ERROR) {
        qCWarning(lcTables).noquote() << "XlsxDocument::save" << lxw_strerror(e);
        return false;
    }
    if (!ok)
        return false;
    if (!d->temp->commit()) {
        qCWarning(lcTables).noquote() << "XlsxDocument::save" << "cannot replace" << m_fileName;
        return false;
    }
    return true;
}
