#pragma once

#include <QHash>
#include <QString>

#include <vector>

// What a sheet holds besides its cells that a rewrite carries over: custom row heights,
// hidden and grouped rows and columns, column widths and formats, merged ranges, the
// frozen pane, hyperlinks, the header and footer of the printed pages and how the sheet
// is shown and printed. Filled while the sheet's XML streams past. Every list is
// bounded, and entries that make no sense are left out (finish() reports how many).
class XlsxSheetLayout
{
public:
    struct Row {
        int row = 0;          // 1-based
        double height = 0;    // points; 0: the default height
        int style = -1;       // the row's cell format, -1 for none
        bool hidden = false;
        quint8 level = 0;     // outline level
        bool collapsed = false;
    };
    struct Column {
        int first = 0;        // 1-based, inclusive
        int last = 0;
        double width = -1;    // as stored (character units with the padding); -1 when not given
        int style = -1;
        bool hidden = false;
        quint8 level = 0;
        bool collapsed = false;
    };
    struct Range {
        int firstRow = 0;     // 1-based, inclusive
        int firstCol = 0;
        int lastRow = 0;
        int lastCol = 0;
        qint64 cells() const { return qint64(lastRow - firstRow + 1) * (lastCol - firstCol + 1); }
    };
    struct Pane {
        int rows = 0;         // frozen rows at the top; 0 with cols 0: no frozen pane
        int cols = 0;
        int topRow = 0;       // first row shown below the frozen part, 1-based
        int leftCol = 0;
    };
    // How the sheet is shown and printed.
    struct Page {
        int tabColor = -1;            // 0xRRGGBB; -1 for none
        int zoom = 0;                 // percent; 0 for the default
        bool screenGridlines = true;
        bool rightToLeft = false;
        bool hideZeros = false;
        bool printGridlines = false;
        bool printHeadings = false;
        bool centerHorizontally = false;
        bool centerVertically = false;
        bool landscape = false;
        int paperSize = 0;            // Excel's paper number; 0 for the printer's own
        int scale = 0;                // printed size in percent; 0 for the default
        bool fitToPage = false;
        int fitWidth = 1;             // pages across when fitted; 0: as many as needed
        int fitHeight = 1;
        double margins[6] = {-1, -1, -1, -1, -1, -1}; // left, right, top, bottom, header, footer (inches); -1: not given
        double defaultColWidth = -1;  // as stored, like a column's width; -1: not given
        double defaultRowHeight = -1; // points; -1: not given
        bool customDefaultHeight = false;
        bool hideUnusedRows = false;  // rows without a height of their own are hidden
    };
    struct Hyperlink {
        int row = 0;
        int col = 0;
        QString relId;        // names the external target in the sheet's relationships
        QString target;       // the external address, once resolved
        QString location;     // a place in this workbook, or the anchor of an external address
        QString display;
        QString tooltip;
    };

    // Element handlers; `atts` as the XML reader gives them.
    void addRow(int row, const char** atts);
    void addColumn(int first, int last, const char** atts);
    void addMerge(const char** atts);
    void setPane(const char** atts);
    void addHyperlink(const char** atts);
    // An element of the sheet outside its cells: takes how the sheet is shown and printed,
    // and notes what a rewrite leaves out.
    void noteElement(const char* name, const char** atts);
    // The header or footer of the printed pages, in the codes Excel writes them in.
    void setHeaderFooter(bool footer, const QString& text) { (footer ? m_footer : m_header) = text; }
    // External targets of the sheet's relationships, by id. Links that name a missing
    // relationship and have no place in the workbook either are dropped.
    void resolveTargets(const QHash<QString, QString>& externalTargets);
    // Sorts rows and hyperlinks by position and logs what was left out, and what the
    // sheet has that a rewrite does not keep; `sheet` names the sheet in those lines.
    void finish(const QString& sheet);

    bool isEmpty() const;
    const std::vector<Row>& rows() const { return m_rows; }
    const std::vector<Column>& columns() const { return m_columns; }
    const std::vector<Range>& merges() const { return m_merges; }
    const std::vector<Hyperlink>& hyperlinks() const { return m_links; }
    const Pane& pane() const { return m_pane; }
    const Page& page() const { return m_page; }
    const QString& header() const { return m_header; }
    const QString& footer() const { return m_footer; }

    // "B3" or "A1:C4" (either corner order); false when malformed or out of the sheet.
    static bool parseRange(const char* ref, Range& range);

    // The writer counts merged ranges in 16 bits and visits every cell of each one.
    static constexpr int kMaxMerges = 65535;
    static constexpr qint64 kMaxMergedCells = 50000000;
    static constexpr int kMaxHyperlinks = 65530;
    static constexpr int kMaxColumnSpans = 1024;
    static constexpr double kMaxRowHeight = 409;

private:
    std::vector<Row> m_rows;
    std::vector<Column> m_columns;
    std::vector<Range> m_merges;
    std::vector<Hyperlink> m_links;
    Pane m_pane;
    Page m_page;
    bool m_viewSeen = false;
    QString m_header;
    QString m_footer;
    bool m_paneSeen = false;
    qint64 m_mergedCells = 0;
    int m_skipped = 0;
    quint32 m_notKept = 0; // bits of the sheet's features that a rewrite leaves out
};
