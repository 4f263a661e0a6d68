#include "XlsxSheetLayout.h"

#include "VantorLogging.h"
#include "XlsxStyles.h"
#include "XlsxWorkbookReader.h"
#include "XlsxXmlReader.h"

#include <QStringList>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>

namespace {

bool isTrue(const char* v)
{
    return v && (std::strcmp(v, "1") == 0 || std::strcmp(v, "true") == 0);
}

// A small non-negative whole number; -1 when the text is anything else.
int smallNumber(const char* v, int max)
{
    if (!v || !*v)
        return -1;
    long n = 0;
    for (const char* p = v; *p; ++p) {
        if (*p < '0' || *p > '9')
            return -1;
        n = n * 10 + (*p - '0');
        if (n > max)
            return -1;
    }
    return int(n);
}

// "C12" (optionally with '$' markers) to row 12, column 3; advances `p` past it.
bool parseCell(const char*& p, int& row, int& col)
{
    if (*p == '$')
        ++p;
    int c = 0;
    int letters = 0;
    while ((*p >= 'A' && *p <= 'Z') || (*p >= 'a' && *p <= 'z')) {
        if (++letters > 3)
            return false;
        c = c * 26 + ((*p | 0x20) - 'a' + 1);
        ++p;
    }
    if (*p == '$')
        ++p;
    long r = 0;
    int digits = 0;
    while (*p >= '0' && *p <= '9') {
        if (++digits > 7)
            return false;
        r = r * 10 + (*p - '0');
        ++p;
    }
    if (letters == 0 || digits == 0 || c > XlsxWorkbookReader::kMaxColumns || r < 1 || r > XlsxWorkbookReader::kMaxRows)
        return false;
    row = int(r);
    col = c;
    return true;
}

} // namespace

bool XlsxSheetLayout::parseRange(const char* ref, Range& range)
{
    if (!ref)
        return false;
    const char* p = ref;
    int r1 = 0, c1 = 0;
    if (!parseCell(p, r1, c1))
        return false;
    int r2 = r1, c2 = c1;
    if (*p == ':') {
        ++p;
        if (!parseCell(p, r2, c2))
            return false;
    }
    if (*p != '\0')
        return false;
    range.firstRow = std::min(r1, r2);
    range.lastRow = std::max(r1, r2);
    range.firstCol = std::min(c1, c2);
    range.lastCol = std::max(c1, c2);
    return true;
}

void XlsxSheetLayout::addRow(int row, const char** atts)
{
    Row r;
    r.row = row;
    bool customHeight = false;
    bool customFormat = false;
    const char* height = nullptr;
    const char* style = nullptr;
    for (const char** a = atts; *a; a += 2) {
        const char* name = XlsxXmlReader::localName(a[0]);
        if (std::strcmp(name, "ht") == 0)
            height = a[1];
        else if (std::strcmp(name, "customHeight") == 0)
            customHeight = isTrue(a[1]);
        else if (std::strcmp(name, "hidden") == 0)
            r.hidden = isTrue(a[1]);
        else if (std::strcmp(name, "s") == 0)
            style = a[1];
        else if (std::strcmp(name, "customFormat") == 0)
            customFormat = isTrue(a[1]);
        else if (std::strcmp(name, "outlineLevel") == 0)
            r.level = quint8(std::max(0, smallNumber(a[1], 7)));
        else if (std::strcmp(name, "collapsed") == 0)
            r.collapsed = isTrue(a[1]);
    }
    // A height the file did not mark as custom follows the row's content; it is not kept.
    if (customHeight && height) {
        bool ok = false;
        const double h = XlsxWorkbookReader::toDouble(height, int(std::strlen(height)), &ok);
        if (ok && std::isfinite(h) && h >= 0 && h <= kMaxRowHeight) {
            r.height = h;
            r.hidden = r.hidden || h == 0; // a row squeezed to nothing is a hidden row
        }
        else
            ++m_skipped;
    }
    if (customFormat && style)
        r.style = smallNumber(style, 1 << 30);
    if (r.height > 0 || r.hidden || r.style >= 0 || r.level > 0 || r.collapsed)
        m_rows.push_back(r);
}

void XlsxSheetLayout::addColumn(int first, int last, const char** atts)
{
    Column c;
    c.first = first;
    c.last = last;
    if (const char* width = XlsxXmlReader::attribute(atts, "width")) {
        bool ok = false;
        const double w = XlsxWorkbookReader::toDouble(width, int(std::strlen(width)), &ok);
        if (ok && std::isfinite(w) && w >= 0 && w <= 255)
            c.width = w;
        else
            ++m_skipped;
    }
    c.hidden = isTrue(XlsxXmlReader::attribute(atts, "hidden"));
    c.style = smallNumber(XlsxXmlReader::attribute(atts, "style"), 1 << 30);
    c.level = quint8(std::max(0, smallNumber(XlsxXmlReader::attribute(atts, "outlineLevel"), 7)));
    c.collapsed = isTrue(XlsxXmlReader::attribute(atts, "collapsed"));
    if (c.width < 0 && !c.hidden && c.style < 0 && c.level == 0 && !c.collapsed)
        return;
    if (int(m_columns.size()) >= kMaxColumnSpans) {
        ++m_skipped;
        return;
    }
    m_columns.push_back(c);
}

void XlsxSheetLayout::addMerge(const char** atts)
{
    Range r;
    if (!parseRange(XlsxXmlReader::attribute(atts, "ref"), r)) {
        ++m_skipped;
        return;
    }
    if (r.cells() < 2)
        return; // a single cell is not merged with anything
    if (int(m_merges.size()) >= kMaxMerges || m_mergedCells + r.cells() > kMaxMergedCells) {
        ++m_skipped;
        return;
    }
    m_mergedCells += r.cells();
    m_merges.push_back(r);
}

void XlsxSheetLayout::setPane(const char** atts)
{
    if (m_paneSeen)
        return; // only the first view of the sheet counts
    m_paneSeen = true;
    const char* state = XlsxXmlReader::attribute(atts, "state");
    // A split that is not frozen is measured in the viewer's units; it is not kept.
    if (!state || (std::strcmp(state, "frozen") != 0 && std::strcmp(state, "frozenSplit") != 0))
        return;
    const char* x = XlsxXmlReader::attribute(atts, "xSplit");
    const char* y = XlsxXmlReader::attribute(atts, "ySplit");
    const int cols = x ? smallNumber(x, XlsxWorkbookReader::kMaxColumns - 1) : 0;
    const int rows = y ? smallNumber(y, XlsxWorkbookReader::kMaxRows - 1) : 0;
    if (cols < 0 || rows < 0) {
        ++m_skipped;
        return;
    }
    Pane pane;
    pane.rows = rows;
    pane.cols = cols;
    pane.topRow = rows + 1;
    pane.leftCol = cols + 1;
    Range topLeft;
    if (parseRange(XlsxXmlReader::attribute(atts, "topLeftCell"), topLeft) && topLeft.firstRow > rows
        && topLeft.firstCol > cols) {
        pane.topRow = topLeft.firstRow;
        pane.leftCol = topLeft.firstCol;
    }
    m_pane = pane;
}

void XlsxSheetLayout::addHyperlink(const char** atts)
{
    Range r;
    if (!parseRange(XlsxXmlReader::attribute(atts, "ref"), r) || int(m_links.size()) >= kMaxHyperlinks) {
        ++m_skipped;
        return;
    }
    Hyperlink link;
    if (const char* id = XlsxXmlReader::attribute(atts, "id"))
        link.relId = QString::fromUtf8(id);
    if (const char* location = XlsxXmlReader::attribute(atts, "location"))
        link.location = QString::fromUtf8(location);
    if (const char* display = XlsxXmlReader::attribute(atts, "display"))
        link.display = QString::fromUtf8(display);
    if (const char* tooltip = XlsxXmlReader::attribute(atts, "tooltip"))
        link.tooltip = QString::fromUtf8(tooltip);
    if (link.relId.isEmpty() && link.location.isEmpty()) {
        ++m_skipped;
        return;
    }
    // The writer links single cells: a link over a range is given to each of its cells,
    // as far as the bound on links allows.
    for (int row = r.firstRow; row <= r.lastRow; ++row) {
        for (int col = r.firstCol; col <= r.lastCol; ++col) {
            if (int(m_links.size()) >= kMaxHyperlinks) {
                ++m_skipped;
                return;
            }
            link.row = row;
            link.col = col;
            m_links.push_back(link);
        }
    }
}

void XlsxSheetLayout::resolveTargets(const QHash<QString, QString>& externalTargets)
{
    std::vector<Hyperlink> kept;
    kept.reserve(m_links.size());
    for (Hyperlink& link : m_links) {
        if (!link.relId.isEmpty())
            link.target = externalTargets.value(link.relId);
        // A link whose relationship names no target still leads to its place, if it has one.
        if (!link.relId.isEmpty() && link.target.isEmpty() && link.location.isEmpty()) {
            ++m_skipped;
            continue;
        }
        kept.push_back(std::move(link));
    }
    m_links.swap(kept);
}

namespace {

// What a sheet may hold that the writer cannot be given again, by the element that
// holds it (the ones of Excel's extensions included).
struct NotKept {
    const char* element;
    const char* what;
};
const NotKept kNotKept[] = {
    {"conditionalFormatting", "conditional formats"},
    {"dataValidations", "data validations"},
    {"autoFilter", "the auto filter"},
    {"sheetProtection", "sheet protection"},
    {"protectedRanges", "protected ranges"},
    {"drawing", "pictures and charts"},
    {"legacyDrawing", "comments"},
    {"tableParts", "tables"},
    {"evenHeader", "headers and footers of even or first pages"},
    {"evenFooter", "headers and footers of even or first pages"},
    {"firstHeader", "headers and footers of even or first pages"},
    {"firstFooter", "headers and footers of even or first pages"},
    {"rowBreaks", "page breaks"},
    {"colBreaks", "page breaks"},
    {"conditionalFormattings", "conditional formats"},
    {"sparklineGroups", "sparklines"},
    {"slicerList", "slicers"},
};

// A number within [low, high]; `fallback` for anything else.
double numberIn(const char* v, double low, double high, double fallback)
{
    bool ok = false;
    const double d = v ? XlsxWorkbookReader::toDouble(v, int(std::strlen(v)), &ok) : 0;
    return ok && d >= low && d <= high ? d : fallback;
}

bool isFalse(const char* v)
{
    return v && (std::strcmp(v, "0") == 0 || std::strcmp(v, "false") == 0);
}

} // namespace

void XlsxSheetLayout::noteElement(const char* name, const char** atts)
{
    const auto attribute = [atts](const char* key) { return XlsxXmlReader::attribute(atts, key); };
    if (std::strcmp(name, "tabColor") == 0) {
        // "FFRRGGBB"; a theme or palette colour is not carried over.
        m_page.tabColor = XlsxStyles::parseRgb(attribute("rgb"));
    } else if (std::strcmp(name, "sheetFormatPr") == 0) {
        m_page.defaultColWidth = numberIn(attribute("defaultColWidth"), 0, 255, -1);
        m_page.defaultRowHeight = numberIn(attribute("defaultRowHeight"), 0, 409, -1);
        m_page.customDefaultHeight = isTrue(attribute("customHeight"));
        m_page.hideUnusedRows = isTrue(attribute("zeroHeight"));
    } else if (std::strcmp(name, "pageSetUpPr") == 0) {
        m_page.fitToPage = isTrue(attribute("fitToPage"));
    } else if (std::strcmp(name, "sheetView") == 0) {
        if (m_viewSeen)
            return; // the first window's view is the one kept
        m_viewSeen = true;
        m_page.zoom = int(numberIn(attribute("zoomScale"), 10, 400, 0));
        m_page.screenGridlines = !isFalse(attribute("showGridLines"));
        m_page.rightToLeft = isTrue(attribute("rightToLeft"));
        m_page.hideZeros = isFalse(attribute("showZeros"));
    } else if (std::strcmp(name, "printOptions") == 0) {
        m_page.printGridlines = isTrue(attribute("gridLines"));
        m_page.printHeadings = isTrue(attribute("headings"));
        m_page.centerHorizontally = isTrue(attribute("horizontalCentered"));
        m_page.centerVertically = isTrue(attribute("verticalCentered"));
    } else if (std::strcmp(name, "pageMargins") == 0) {
        static const char* const sides[] = {"left", "right", "top", "bottom", "header", "footer"};
        for (int i = 0; i < 6; ++i)
            m_page.margins[i] = numberIn(attribute(sides[i]), 0, 49, -1);
    } else if (std::strcmp(name, "pageSetup") == 0) {
        const char* orientation = attribute("orientation");
        m_page.landscape = orientation && std::strcmp(orientation, "landscape") == 0;
        m_page.paperSize = std::max(0, smallNumber(attribute("paperSize"), 255));
        m_page.scale = int(numberIn(attribute("scale"), 10, 400, 0));
        m_page.fitWidth = int(numberIn(attribute("fitToWidth"), 0, 32767, 1));
        m_page.fitHeight = int(numberIn(attribute("fitToHeight"), 0, 32767, 1));
    }
    for (size_t i = 0; i < sizeof(kNotKept) / sizeof(kNotKept[0]); ++i) {
        if (std::strcmp(name, kNotKept[i].element) == 0)
            m_notKept |= 1u << i;
    }
}

void XlsxSheetLayout::finish(const QString& sheet)
{
    std::stable_sort(m_rows.begin(), m_rows.end(), [](const Row& a, const Row& b) { return a.row < b.row; });
    std::stable_sort(m_links.begin(), m_links.end(), [](const Hyperlink& a, const Hyperlink& b) {
        return a.row < b.row || (a.row == b.row && a.col < b.col);
    });
    // One link per cell: the first one given.
    m_links.erase(std::unique(m_links.begin(), m_links.end(),
                              [](const Hyperlink& a, const Hyperlink& b) { return a.row == b.row && a.col == b.col; }),
                  m_links.end());
    if (m_skipped > 0)
        qCWarning(lcTables).noquote() << "XlsxSheetLayout::finish" << m_skipped << "malformed or excess layout entries of sheet"
                                      << sheet << "are left out";
    QStringList notKept;
    for (size_t i = 0; i < sizeof(kNotKept) / sizeof(kNotKept[0]); ++i) {
        const QString what = QLatin1String(kNotKept[i].what);
        if ((m_notKept & (1u << i)) && !notKept.contains(what))
            notKept.append(what);
    }
    if (!notKept.isEmpty())
        qCWarning(lcTables).noquote() << "XlsxSheetLayout::finish" << "sheet" << sheet
                                      << "loses what the rewrite cannot keep:" << notKept.join(QLatin1String(", "));
}

bool XlsxSheetLayout::isEmpty() const
{
    return m_rows.empty() && m_columns.empty() && m_merges.empty() && m_links.empty() && m_pane.rows == 0
        && m_pane.cols == 0 && m_header.isEmpty() && m_footer.isEmpty();
}
