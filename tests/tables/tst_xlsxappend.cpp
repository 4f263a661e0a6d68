// Appending rewrites a workbook: what the old sheets and the workbook hold stays as it was
// (looks, layout, page settings, theme colours, hidden sheets, defined names, print
// settings, array and shared formulas, dates of either date system), and what cannot be kept
// is left out or logged. Workbooks are built by hand or with openpyxl, which checks them.
#include "VantorUtils.h"
#include "tables/XlsxNameWriter.h"
#include "tables/XlsxSheetLayout.h"
#include "tables/XlsxWorkbookReader.h"

#include <QDirIterator>
#include <QTemporaryDir>
#include <QtTest>

#include "xlsx_package.h"
#include "xlsx_probe.h"

using Table = QList<QStringList>;
using XlsxProbe::compact;
using XlsxProbe::probe;
using XlsxProbe::python;

namespace {
const QString kCorpus = QStringLiteral(VANTOR_SOURCE_ROOT "/../shared/corpus/xlsx");
const Table kAppended{{"代码", "名称", "金额"}, {"600036", "招商银行", "8.5"}, {"601398", "工商银行", "5"}};

bool append(const QString& path, const Table& table = kAppended, const QMap<int, ExportFormat>& formats = {{2, ExportFormatNumber}})
{
    QString err;
    const bool ok = VantorUtils::WriteTableData(table, path, formats, false, ExportFileCodeUtf8, true, err);
    if (!ok)
        qWarning() << "append failed:" << err;
    return ok;
}

struct NoCells : XlsxCellVisitor {
    void cell(const XlsxCell&) override {}
};
XlsxSheetLayout layoutOf(const QString& path)
{
    XlsxWorkbookReader reader;
    XlsxSheetLayout layout;
    NoCells cells;
    QString err;
    if (!reader.open(path, err) || !reader.readSheet(0, cells, err, &layout))
        qWarning() << "cannot read" << path << err;
    return layout;
}
} // namespace

class TestXlsxAppend : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;
    bool m_haveProbe = false;
    QHash<QString, QPair<QJsonObject, QJsonObject>> m_probes; // by workbook: the report before and after an append
    int m_files = 0;

    QString package(const Parts& parts)
    {
        const QString path = m_dir.filePath(QStringLiteral("book%1.xlsx").arg(++m_files));
        if (!XlsxPackage::write(path, parts))
            qWarning() << "cannot write" << path;
        return path;
    }

    // The probe's report on one of the workbooks openpyxl made, before and after rows are appended.
    const QPair<QJsonObject, QJsonObject>& appended(const QString& file)
    {
        QPair<QJsonObject, QJsonObject>& probes = m_probes[file];
        if (probes.second.isEmpty()) {
            probes.first = probe("book", m_dir.filePath(file));
            append(m_dir.filePath(file));
            probes.second = probe("book", m_dir.filePath(file));
        }
        return probes;
    }

private slots:
    void initTestCase()
    {
        QLoggingCategory::setFilterRules(QStringLiteral("vantor.*.debug=false"));
        m_haveProbe = python({XlsxProbe::script(), QStringLiteral("make"), m_dir.path()});
        if (!m_haveProbe)
            qWarning() << "openpyxl cross-checks skipped";
    }

    void appendKeeps_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QString>("fact");
        // empty: as before (entries of an object as before, new ones may come); "+{...}": so,
        // and these entries are there (null: absent); else the fact after the append.
        QTest::addColumn<QString>("expected");
        // A sheet laid out by hand in another program.
        QTest::newRow("fonts, fills, borders, alignment, number formats") << "styled.xlsx" << "looks" << "";
        QTest::newRow("values, old and appended") << "styled.xlsx" << "values"
                                                  << R"(+{"A7":"600036","B8":"工商银行","C8":5,"A9":null})";
        QTest::newRow("merged ranges") << "styled.xlsx" << "merges" << "";
        QTest::newRow("row heights and hidden rows") << "styled.xlsx" << "rows" << "";
        QTest::newRow("hidden columns") << "styled.xlsx" << "hiddenColumns" << "";
        QTest::newRow("frozen pane") << "styled.xlsx" << "pane" << "";
        QTest::newRow("hyperlinks") << "styled.xlsx" << "links" << "";
        QTest::newRow("view, print settings, header and footer") << "styled.xlsx" << "page" << "";
        // What the workbook holds besides its cells.
        QTest::newRow("defined names, of the workbook and of sheets") << "state.xlsx" << "names" << "";
        QTest::newRow("array formulas over their ranges") << "state.xlsx" << "arrays" << "";
        QTest::newRow("the sheet it opens on") << "state.xlsx" << "active" << "";
        QTest::newRow("old values and new rows") << "state.xlsx" << "values" << R"(+{"A4":"600036","C5":5,"A6":null})";
        // The writer knows one kind of hidden sheet: a very hidden one is an ordinary hidden one.
        QTest::newRow("hidden sheets") << "state.xlsx" << "sheets"
                                       << R"([["Sheet1","visible"],["参数","hidden"],["内部","hidden"],["My Data","visible"],)"
                                          R"(["尾页","visible"],["2020","visible"]])";
        // The first tab was the very hidden sheet: the next visible one takes its place.
        QTest::newRow("the first tab") << "state.xlsx" << "firstSheet" << "3";
        // The same rows and columns ("1:1" and "A:B" before); the rewrite spells them with
        // "$", except on the sheet whose name needs quotes, whose ranges go over as written.
        QTest::newRow("print area and titles") << "state.xlsx" << "print"
                                               << R"({"Sheet1":[["$A$1:$C$20"],"$1:$1",null],"My Data":[null,null,"$A:$B"],)"
                                                  R"("2020":[["$A$1:$C$3"],"1:2",null]})";
    }

    void appendKeeps()
    {
        QFETCH(QString, file);
        QFETCH(QString, fact);
        QFETCH(QString, expected);
        if (!m_haveProbe)
            QSKIP("python3-openpyxl is not available");
        const auto& probes = appended(file);
        QVERIFY(!probes.second.isEmpty());
        const QJsonValue before = probes.first.value(fact);
        const QJsonValue after = probes.second.value(fact);
        QVERIFY2(!before.isNull() && !(before.isObject() && before.toObject().isEmpty())
                     && !(before.isArray() && before.toArray().isEmpty()),
                 "the workbook built for the test lacks this");
        const bool extends = expected.startsWith('+') || expected.isEmpty();
        if (!extends) {
            QCOMPARE(compact(after), compact(QJsonDocument::fromJson("[" + expected.toUtf8() + "]").array().at(0)));
        } else if (before.isObject()) {
            const QJsonObject now = after.toObject();
            QJsonObject want = before.toObject();
            const QJsonObject more = QJsonDocument::fromJson(expected.mid(1).toUtf8()).object();
            for (auto it = more.begin(); it != more.end(); ++it)
                want.insert(it.key(), it.value());
            for (auto it = want.begin(); it != want.end(); ++it)
                QCOMPARE(it.key() + compact(now.value(it.key())), it.key() + compact(it.value()));
        } else {
            QCOMPARE(compact(after), compact(before));
        }
    }

    void appendKeepsThemeColours_data()
    {
        // Colours the old cells take from the workbook's theme come back as RGB values.
        QTest::addColumn<QString>("cell");
        QTest::addColumn<QString>("fact");
        QTest::addColumn<QString>("expected");
        QTest::newRow("white on dark 2: fill") << "A1" << "fill" << R"([["solid","1F497D",null]])";
        QTest::newRow("the theme's hyperlink colour") << "B1" << "font" << R"(["0563C1"])";
        QTest::newRow("darkened accent border") << "C1" << "border" << R"([{"bottom":["thin","953735"]}])";
        QTest::newRow("no such theme colour: no black fill") << "D1" << "fill" << "[null]";
    }

    void appendKeepsThemeColours()
    {
        QFETCH(QString, cell);
        QFETCH(QString, fact);
        QFETCH(QString, expected);
        if (!m_haveProbe)
            QSKIP("python3-openpyxl is not available");
        const QJsonValue value = appended("themed.xlsx").second.value("looks").toObject().value(cell).toObject().value(fact);
        QCOMPARE(compact(fact == QLatin1String("font") ? value.toArray().at(6) : value), expected);
    }

    void appendSurvivesBrokenLayout()
    {
        // Absurd merges, heights, panes, links and colours are left out; the sane ones stay.
        const QString junk = package(
            {{"xl/styles.xml",
              "<styleSheet><fonts count=\"3\"><font><sz val=\"11\"/><name val=\"Calibri\"/></font>"
              "<font><b/><color rgb=\"GG0000\"/><name val=\"Calibri\"/></font>"
              "<font><i/><color indexed=\"99999\"/><sz val=\"1e999\"/><name val=\"Calibri\"/></font></fonts>"
              "<fills count=\"1\"><fill><patternFill patternType=\"bogus\"><fgColor rgb=\"FF12\"/></patternFill></fill></fills>"
              "<borders count=\"1\"><border><left style=\"thick\"><color rgb=\"zzzzzzzz\"/></left></border></borders>"
              "<cellXfs count=\"3\"><xf fontId=\"0\"/><xf fontId=\"1\" borderId=\"0\" fillId=\"0\"/><xf fontId=\"2\" fillId=\"7\""
              " borderId=\"-3\" numFmtId=\"999999\"><alignment textRotation=\"999\" indent=\"-4\" horizontal=\"sideways\"/></xf>"
              "</cellXfs><colors><indexedColors><rgbColor rgb=\"nonsense\"/></indexedColors></colors></styleSheet>"},
             {"xl/worksheets/sheet1.xml",
              "<worksheet xmlns:r=\"http://schemas.openxmlformats.org/officeDocument/2006/relationships\"><sheetViews>"
              "<sheetView workbookViewId=\"0\"><pane xSplit=\"-1\" ySplit=\"99999999\" state=\"frozen\"/></sheetView></sheetViews>"
              "<cols><col min=\"3\" max=\"1\" width=\"inf\" hidden=\"1\"/><col min=\"0\" max=\"99999\" style=\"123456\"/>"
              "<col min=\"2\" max=\"2\" width=\"-7\"/></cols><sheetData>"
              "<row r=\"1\" ht=\"1e400\" customHeight=\"1\"><c r=\"A1\" s=\"1\" t=\"inlineStr\"><is><t>a</t></is></c></row>"
              "<row r=\"2\" ht=\"-5\" customHeight=\"1\" hidden=\"1\"><c r=\"A2\" s=\"2\"><v>2</v></c></row>"
              "<row r=\"3\" ht=\"nan\" customHeight=\"1\" outlineLevel=\"99\"><c r=\"A3\" s=\"77\"><v>3</v></c></row>"
              "<row r=\"4\" ht=\"24\" customHeight=\"1\"><c r=\"A4\"><v>4</v></c><c r=\"B4\"><v>5</v></c></row></sheetData>"
              "<mergeCells><mergeCell ref=\"A1:XFD1048576\"/><mergeCell ref=\"ZZZZ1:A1\"/><mergeCell ref=\"A0:B2\"/>"
              "<mergeCell ref=\"B2:A\"/><mergeCell/><mergeCell ref=\"A4:B4\"/></mergeCells><hyperlinks>"
              "<hyperlink ref=\"A1\" r:id=\"rId404\"/><hyperlink ref=\"!!\"/><hyperlink ref=\"A2\"/>"
              "<hyperlink ref=\"A3:B4\" location=\"S!A4\"/></hyperlinks></worksheet>"}});
        QVERIFY(append(junk, {{"h"}, {"new"}}, {}));
        QString err;
        QCOMPARE(VantorUtils::ReadTableData(junk, ReadAllRows, err), (Table{{"a", ""}, {"2", ""}, {"3", ""}, {"4", "5"}, {"new", ""}}));
        const XlsxSheetLayout kept = layoutOf(junk);
        QCOMPARE(int(kept.merges().size()), 1);
        QCOMPARE(kept.merges().front().firstRow, 4);
        QCOMPARE(kept.merges().front().lastCol, 2);
        QCOMPARE(int(kept.hyperlinks().size()), 4); // a link over A3:B4 stays on each of its cells
        QCOMPARE(kept.hyperlinks().back().location, QStringLiteral("S!A4"));
        QCOMPARE(kept.hyperlinks().back().row, 4);
        QCOMPARE(kept.hyperlinks().back().col, 2);
        QCOMPARE(kept.pane().rows + kept.pane().cols, 0);
        bool row4 = false;
        for (const XlsxSheetLayout::Row& r : kept.rows()) {
            QVERIFY(r.height <= XlsxSheetLayout::kMaxRowHeight);
            row4 = row4 || (r.row == 4 && r.height == 24);
        }
        QVERIFY(row4);
        QVERIFY(!m_haveProbe || !probe("dump", junk).isEmpty()); // and another program still opens it

        // More merged ranges than a sheet can hold: the first ones are kept.
        QByteArray merges;
        for (int r = 1; r <= 1000000; ++r)
            merges += "<mergeCell ref=\"A" + QByteArray::number(r) + ":B" + QByteArray::number(r) + "\"/>";
        const QString many = package({{"xl/worksheets/sheet1.xml", "<worksheet><sheetData><row r=\"1\"><c r=\"A1\"><v>1</v></c></row>"
                                                                    "</sheetData><mergeCells>" + merges + "</mergeCells></worksheet>"}});
        QVERIFY(append(many, {{"h"}, {"2"}}, {}));
        const XlsxSheetLayout merged = layoutOf(many);
        QCOMPARE(int(merged.merges().size()), XlsxSheetLayout::kMaxMerges);
        QCOMPARE(merged.merges().back().lastRow, XlsxSheetLayout::kMaxMerges);
    }

    // Sheets as other programs store them take appended rows after their last row; the
    // rewrite keeps the old cells, their formats and formulas, and logs what it cannot keep.
    void appendToPackage_data()
    {
        QTest::addColumn<Parts>("parts");
        QTest::addColumn<Table>("table"); // appended, header first; the first column numeric
        QTest::addColumn<QStringList>("warnings");
        QTest::addColumn<Table>("after"); // empty rows skipped
        QTest::addColumn<QStringList>("seen"); // "ref field value" as openpyxl sees the cell
        const auto sheet = [](const QByteArray& rows, const QByteArray& tail = {}) -> Parts {
            return {{"xl/worksheets/sheet1.xml", "<worksheet><sheetData>" + rows + "</sheetData>" + tail + "</worksheet>"}};
        };
        const QByteArray below = "<row r=\"3\"><c r=\"B3\" t=\"inlineStr\"><is><t>b3</t></is></c><c r=\"C3\" t=\"inlineStr\"><is><t>c3</t></is></c></row>"
                                 "<row r=\"5\"><c r=\"B5\" t=\"inlineStr\"><is><t>b5</t></is></c><c r=\"C5\" t=\"inlineStr\"><is><t>c5</t></is></c></row>";
        // Three rows are there (3 to 5), so the new ones start at row 4, over what row 5 held.
        QTest::newRow("below the first row") << sheet(below) << Table{{"h1", "h2"}, {"1", "m1"}, {"2"}, {"3"}} << QStringList()
                                             << Table{{"", "b3", "c3"}, {"1", "m1", ""}, {"2", "b5", "c5"}, {"3", "", ""}} << QStringList();
        // Rows and cells stored out of order are written again in order.
        QTest::newRow("stored out of order")
            << sheet("<row r=\"2\"><c r=\"B2\"><v>4</v></c><c r=\"A2\"><v>3</v></c></row><row r=\"1\">"
                     "<c r=\"B1\" t=\"inlineStr\"><is><t>b</t></is></c><c r=\"A1\" t=\"inlineStr\"><is><t>a</t></is></c></row>")
            << Table{{"a", "b"}, {"5", "6"}} << QStringList() << Table{{"a", "b"}, {"3", "4"}, {"5", "6"}} << QStringList();
        // A sheet that reaches its next-to-last row takes one more; the rest are left out.
        QTest::newRow("rows beyond the sheet")
            << sheet("<row r=\"1\"><c r=\"A1\"><v>0</v></c></row><row r=\"1048575\"><c r=\"A1048575\"><v>1</v></c></row>")
            << Table{{"h"}, {"2"}, {"3"}, {"4"}} << QStringList{"ends at row 1048576 and leaves out 2 rows"}
            << Table{{"0"}, {"1"}, {"2"}} << QStringList();
        // A new cell with no format of its own shows its row's format, else its column's, in
        // every row alike; an old cell that names none keeps showing none.
        Parts dressed = sheet("<row r=\"1\"><c r=\"A1\" t=\"inlineStr\"><is><t>h</t></is></c></row><row r=\"2\"><c r=\"A2\"><v>1</v></c>"
                              "<c r=\"B2\"><v>2</v></c></row><row r=\"4\" s=\"2\" customFormat=\"1\"/>");
        dressed["xl/worksheets/sheet1.xml"].replace("<sheetData>", "<cols><col min=\"2\" max=\"2\" style=\"1\"/></cols><sheetData>");
        dressed["xl/styles.xml"] = "<styleSheet><numFmts><numFmt numFmtId=\"164\" formatCode=\"0.00\"/></numFmts><fonts><font>"
                                   "<sz val=\"11\"/></font><font><b/><sz val=\"11\"/></font></fonts><cellXfs><xf numFmtId=\"0\"/>"
                                   "<xf numFmtId=\"164\"/><xf numFmtId=\"0\" fontId=\"1\"/></cellXfs></styleSheet>";
        QTest::newRow("row and column formats")
            << dressed << Table{{"h", "b"}, {"3", "x"}, {"4", "y"}, {"5", "z"}} << QStringList()
            << Table{{"h", ""}, {"1", "2"}, {"3", "x"}, {"4", "y"}, {"5", "z"}}
            << QStringList{"A2 format General", "B2 format General", "A3 format 0", "B3 format 0.00", "A4 format General", "A4 bold true",
                           "B4 format General", "B4 bold true", "A5 format 0", "B5 format 0.00", "B5 bold false"};
        QTest::newRow("what the rewrite cannot keep")
            << Parts{{"xl/worksheets/sheet1.xml",
                      "<worksheet><sheetData><row r=\"1\"><c r=\"A1\"><v>1</v></c><c r=\"B1\" t=\"e\"><v>#N/A</v></c>"
                      "<c r=\"C1\" t=\"s\"><v>0</v></c></row></sheetData><autoFilter ref=\"A1:A1\"/><conditionalFormatting sqref=\"A1\">"
                      "<cfRule type=\"expression\" priority=\"1\"><formula>1</formula></cfRule></conditionalFormatting>"
                      "<headerFooter differentOddEven=\"1\"><oddHeader>&amp;C&amp;A</oddHeader><evenHeader>even</evenHeader>"
                      "</headerFooter><legacyDrawing id=\"rId9\"/><extLst><ext><conditionalFormattings/><sparklineGroups/></ext>"
                      "</extLst></worksheet>"},
                     {"xl/sharedStrings.xml", "<sst><si><r><rPr><b/></rPr><t>粗</t></r><r><t>细</t></r></si></sst>"}}
            << Table{{"h"}, {"2"}}
            << QStringList{"sheet Sheet1 loses what the rewrite cannot keep: conditional formats, the auto filter, comments, "
                           "headers and footers of even or first pages, sparklines$",
                           "sheet Sheet1 keeps 1 error values", "1 texts of mixed formatting keep their text"}
            << Table{{"1", "#N/A", "粗细"}, {"2", "", ""}} << QStringList();
        // Dates stored as ISO text stay dates, stored as day numbers; one before 1900 has no
        // day number, and a cell without a date format nothing to show one with: both stay text.
        QTest::newRow("dates stored as text")
            << Parts{{"xl/styles.xml", "<styleSheet><numFmts><numFmt numFmtId=\"164\" formatCode=\"yyyy-mm-dd\"/></numFmts>"
                                       "<cellXfs><xf numFmtId=\"0\"/><xf numFmtId=\"164\"/><xf numFmtId=\"22\"/></cellXfs></styleSheet>"},
                     {"xl/worksheets/sheet1.xml",
                      "<worksheet><sheetData><row r=\"1\"><c r=\"A1\" t=\"d\" s=\"1\"><v>2023-03-15</v></c>"
                      "<c r=\"B1\" t=\"d\" s=\"2\"><v>1900-02-28T18:00:00</v></c><c r=\"C1\" t=\"d\" s=\"2\"><v>1899-12-31</v></c>"
                      "<c r=\"D1\" t=\"d\"><v>2023-03-15</v></c></row></sheetData></worksheet>"}}
            << Table{{"h"}, {"1"}} << QStringList()
            << Table{{"2023-03-15", "1900-02-28T18:00:00.000", "1899-12-31", "2023-03-15"}, {"1", "", "", ""}}
            << QStringList{"A1 value 2023-03-15 00:00:00", "C1 value 1899-12-31"};
        // B2:B4 and C2:D2 are each one formula filled over the range: each cell keeps its own,
        // moved, references.
        QTest::newRow("formulas filled over a range")
            << sheet("<row r=\"1\"><c r=\"A1\" t=\"inlineStr\"><is><t>n</t></is></c></row><row r=\"2\"><c r=\"A2\"><v>1</v></c>"
                     "<c r=\"B2\"><f t=\"shared\" ref=\"B2:B4\" si=\"0\">A2*2+$A$2</f><v>3</v></c><c r=\"C2\"><f t=\"shared\" "
                     "ref=\"C2:D2\" si=\"1\">SUM(A2:A$4)&amp;\"A2\"</f><v>6</v></c><c r=\"D2\"><f t=\"shared\" si=\"1\"/><v>6</v></c>"
                     "</row><row r=\"3\"><c r=\"A3\"><v>2</v></c><c r=\"B3\"><f t=\"shared\" si=\"0\"/><v>5</v></c></row>"
                     "<row r=\"4\"><c r=\"A4\"><v>3</v></c><c r=\"B4\"><f t=\"shared\" si=\"0\"/><v>7</v></c></row>")
            << Table{{"n"}, {"9"}} << QStringList{"公式", "公式", "公式", "公式", "公式"} << Table{{"n", "", "", ""}, {"1", "", "", ""}, {"2", "", "", ""}, {"3", "", "", ""}, {"9", "", "", ""}}
            << QStringList{"B2 value =A2*2+$A$2", "B3 value =A3*2+$A$2", "B4 value =A4*2+$A$2", "C2 value =SUM(A2:A$4)&\"A2\"",
                           "D2 value =SUM(B2:B$4)&\"A2\"", "A5 value 9"};
        // The formula's own cell keeps its cached number, the rest of its range their values.
        QTest::newRow("array formula results")
            << sheet("<row r=\"1\"><c r=\"A1\"><v>1</v></c><c r=\"B1\"><f t=\"array\" ref=\"B1:C2\">A1:A2*{1,10}</f><v>1</v></c>"
                     "<c r=\"C1\"><v>10</v></c><c r=\"D1\"><f t=\"array\" ref=\"D1\">SUM(A1:A2*2)</f><v>6</v></c></row>"
                     "<row r=\"2\"><c r=\"A2\"><v>2</v></c><c r=\"B2\"><v>2</v></c><c r=\"C2\"><v>20</v></c></row>")
            << Table{{"h"}, {"3"}} << QStringList{"公式", "公式"} << Table{{"1", "", "10", ""}, {"2", "2", "20", ""}, {"3", "", "", ""}}
            << QStringList{"B1 value =A1:A2*{1,10}", "B1 array B1:C2", "B1 cached 1", "C2 cached 20", "D1 array D1", "D1 cached 6"};

        // Workbooks whose sheets all show the one sheet part; rows go to the first sheet.
        const auto book = [](const QString& sheets, int activeTab, int firstSheet, const QByteArray& names = {}) -> Parts {
            QByteArray list;
            QByteArray rels = "<Relationships xmlns=\"http://schemas.openxmlformats.org/package/2006/relationships\">";
            const QStringList given = sheets.split(',');
            for (int i = 0; i < given.size(); ++i) {
                list += QStringLiteral("<sheet name=\"%1\" sheetId=\"%2\" state=\"%3\" r:id=\"rId%2\"/>")
                            .arg(given.at(i).section(':', 0, 0)).arg(i + 1).arg(given.at(i).section(':', 1, 1, QString::SectionSkipEmpty)).toUtf8();
                rels += "<Relationship Id=\"rId" + QByteArray::number(i + 1) + "\" Type=\"http://schemas.openxmlformats.org/"
                        "officeDocument/2006/relationships/worksheet\" Target=\"worksheets/sheet1.xml\"/>";
            }
            return {{"xl/workbook.xml", "<workbook xmlns:r=\"http://schemas.openxmlformats.org/officeDocument/2006/relationships\">"
                                        "<bookViews><workbookView activeTab=\"" + QByteArray::number(activeTab) + "\" firstSheet=\""
                                        + QByteArray::number(firstSheet) + "\"/></bookViews><sheets>" + list + "</sheets>"
                                        + (names.isEmpty() ? QByteArray() : "<definedNames>" + names + "</definedNames>") + "</workbook>"},
                    {"xl/_rels/workbook.xml.rels", rels + "</Relationships>"},
                    {"xl/worksheets/sheet1.xml", "<worksheet><sheetData><row r=\"1\"><c r=\"A1\"><v>1</v></c></row></sheetData></worksheet>"}};
        };
        // The workbook opens on a visible sheet, its first tab one too. Sheets are named
        // Sheet0, Sheet1, ... and rows appended to Sheet1.
        const auto tabs = [&](const char* tag, const QString& states, int activeTab, int firstSheet, const QString& statesAfter,
                              int activeAfter, int firstAfter) {
            QStringList sheets;
            QJsonArray after;
            for (const QString& state : states.split(' '))
                sheets.append(QStringLiteral("Sheet%1:").arg(sheets.size()) + state);
            for (const QString& state : statesAfter.split(' '))
                after.append(QJsonArray{QStringLiteral("Sheet%1").arg(after.size()), state});
            QTest::newRow(tag) << book(sheets.join(','), activeTab, firstSheet) << Table{{"h"}, {"2"}} << QStringList() << Table()
                               << QStringList{"book sheets " + compact(after), QStringLiteral("book active [\"Sheet%1\"]").arg(activeAfter),
                                              QStringLiteral("book firstSheet [%1]").arg(firstAfter)};
        };
        tabs("the first sheet hidden", "hidden visible", 1, 0, "hidden visible", 1, 1);
        tabs("opened on a hidden sheet", "visible visible hidden", 2, 0, "visible visible hidden", 0, 0);
        tabs("every sheet hidden", "veryHidden hidden", 1, 0, "hidden visible", 1, 1);
        tabs("a later first tab", "visible visible visible", 2, 1, "visible visible visible", 2, 1);
        tabs("appended to a hidden sheet", "visible hidden", 0, 0, "visible hidden", 0, 0);
        // Defined names the writer cannot hold are left out; the save goes on, the others stay.
        const auto names = [&](const char* tag, const QString& second, const QByteArray& name, const QString& namesAfter) {
            QTest::newRow(tag) << book("Sheet1:visible," + second + ":visible", 0, 0,
                                       "<definedName name=\"Kept\">Sheet1!$A$1</definedName>" + name)
                               << Table{{"h"}, {"2"}} << QStringList() << Table{{"1"}, {"2"}}
                               << QStringList{"book names " + namesAfter, "book print [{}]"};
        };
        const QString kept = R"([[["Kept",null,"Sheet1!$A$1"]]])";
        names("a formula too long for the writer", "B",
              "<definedName name=\"Long\">" + QByteArray("Sheet1!$A$1+").repeated(12) + "1</definedName>", kept);
        names("local to a sheet with ! in its name", "a!b", "<definedName name=\"Here\" localSheetId=\"1\">1</definedName>", kept);
        names("a name read as a cell", "B", "<definedName name=\"AB12\">1</definedName>", kept);
        names("a print area of two areas", "B", "<definedName name=\"_xlnm.Print_Area\" localSheetId=\"0\">"
                                                "Sheet1!$A$1:$B$2,Sheet1!$D$1:$E$2</definedName>", kept);
        names("the filter range", "B", "<definedName name=\"_xlnm._FilterDatabase\" localSheetId=\"0\">Sheet1!$A$1:$B$3</definedName>", kept);
        names("local to a sheet that is not there", "B", "<definedName name=\"Gone\" localSheetId=\"7\">1</definedName>", kept);
        names("local to a sheet named with an apostrophe", "It's 表",
              "<definedName name=\"Here\" localSheetId=\"1\">'It''s 表'!$A$1</definedName>",
              R"([[["Here",1,"'It''s 表'!$A$1"],["Kept",null,"Sheet1!$A$1"]]])");
        names("a Chinese name", "B", "<definedName name=\"汇率\">0.96</definedName>", R"([[["Kept",null,"Sheet1!$A$1"],["汇率",null,"0.96"]]])");
    }

    void appendToPackage()
    {
        QFETCH(Parts, parts);
        QFETCH(Table, table);
        QFETCH(QStringList, warnings);
        QFETCH(Table, after);
        QFETCH(QStringList, seen);
        const QString path = package(parts);
        for (const QString& w : warnings)
            QTest::ignoreMessage(QtWarningMsg, QRegularExpression(w));
        QVERIFY(append(path, table, {{0, ExportFormatNumber}}));
        QString err;
        if (!after.isEmpty())
            QCOMPARE(VantorUtils::ReadTableData(path, SkipEmptyRows, err), after);
        if (seen.isEmpty())
            return;
        if (!m_haveProbe)
            QSKIP("python3-openpyxl is not available");
        const auto cells = XlsxProbe::cells(path);
        const QJsonObject book = probe("book", path);
        for (const QString& s : seen) {
            const QString ref = s.section(' ', 0, 0);
            const QString field = s.section(' ', 1, 1);
            if (ref == "book")
                QCOMPARE(ref + ' ' + field + ' ' + compact(book.value(field)), s);
            else
                QCOMPARE(ref + ' ' + field + ' ' + cells.value(ref).value(field).toVariant().toString(), s);
        }
    }

    void appendTo1904WorkbookKeepsItsDates()
    {
        // The rewritten workbook counts from 1900: old dates move with it, times of day and
        // elapsed times do not.
        if (!m_haveProbe)
            QSKIP("python3-openpyxl is not available");
        const QString path = m_dir.filePath("mac1904.xlsx");
        QString err;
        const Table before = VantorUtils::ReadTableData(path, ReadAllRows, err);
        QCOMPARE(before.mid(0, 2), (Table{{"2024-01-02"}, {"2024-01-02T06:00:00.000"}}));
        QVERIFY(append(path, {{"h"}, {"new"}}, {}));
        const Table after = VantorUtils::ReadTableData(path, ReadAllRows, err);
        QCOMPARE(after.size(), 6);
        QCOMPARE(after.mid(0, 3), before.mid(0, 3));
        QCOMPARE(after.at(4), before.at(4));
        QCOMPARE(after.at(5), QStringList{"new"});
        const auto cells = XlsxProbe::cells(path);
        QCOMPARE(cells.value("A1").value("value").toString(), QStringLiteral("2024-01-02 00:00:00"));
        QCOMPARE(cells.value("A5").value("value").toDouble(), 12.5);
    }

    void printRanges_data()
    {
        QTest::addColumn<QString>("formula");
        QTest::addColumn<bool>("isArea");
        QTest::addColumn<QList<int>>("area"); // first row, first column, last row, last column
        QTest::addColumn<bool>("isTitles");
        QTest::addColumn<QList<int>>("titles"); // rows first..last, columns first..last (0: none)
        const int maxRow = XlsxWorkbookReader::kMaxRows;
        const int maxCol = XlsxWorkbookReader::kMaxColumns;
        QTest::newRow("cells") << "Sheet1!$B$2:$D$20" << true << QList<int>{2, 2, 20, 4} << false << QList<int>{};
        QTest::newRow("whole rows") << "'My, data'!$1:$2" << true << QList<int>{1, 1, 2, maxCol} << true << QList<int>{1, 2, 0, 0};
        QTest::newRow("whole columns") << "Sheet1!A:B" << true << QList<int>{1, 1, maxRow, 2} << true << QList<int>{0, 0, 1, 2};
        QTest::newRow("columns and rows") << "'a!b'!$A:$A,'a!b'!$1:$3" << false << QList<int>{} << true << QList<int>{1, 3, 1, 1};
        QTest::newRow("two areas") << "S!$A$1:$B$2,S!$D$1:$E$2" << false << QList<int>{} << false << QList<int>{};
        QTest::newRow("row 0") << "S!$A$0:$B$2" << false << QList<int>{} << false << QList<int>{};
        QTest::newRow("half a column") << "S!$A:$B2" << false << QList<int>{} << false << QList<int>{};
    }

    void printRanges()
    {
        QFETCH(QString, formula);
        QFETCH(bool, isArea);
        QFETCH(QList<int>, area);
        QFETCH(bool, isTitles);
        QFETCH(QList<int>, titles);
        XlsxNameWriter::Area a;
        QCOMPARE(XlsxNameWriter::parseArea(formula, a), isArea);
        if (isArea)
            QCOMPARE((QList<int>{a.firstRow, a.firstCol, a.lastRow, a.lastCol}), area);
        XlsxNameWriter::Area rows;
        XlsxNameWriter::Area cols;
        QCOMPARE(XlsxNameWriter::parseTitles(formula, rows, cols), isTitles);
        if (isTitles)
            QCOMPARE((QList<int>{rows.firstRow, rows.lastRow, cols.firstCol, cols.lastCol}), titles);
    }

    // Every workbook of the corpus reads without a crash and survives an append. The
    // rewrite keeps each old cell's value and number format, also that of a cell that names
    // no format in a column that has one.
    void corpusAppendKeepsOldCells_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<bool>("compared");
        if (!QDir(kCorpus).exists())
            QSKIP("the workbook corpus is not present");
        const QStringList compared{"panic_test.xlsx", "v3.xlsx", "testcelltypes.xlsx", "samplefile.xlsx", "empty_rows.xlsx", "merged_cells.xlsx"};
        for (QDirIterator it(kCorpus, {"*.xlsx"}, QDir::Files); it.hasNext();) {
            const QString file = it.next().section('/', -1);
            QTest::newRow(qPrintable(file)) << file << compared.contains(file);
        }
    }

    void corpusAppendKeepsOldCells()
    {
        QFETCH(QString, file);
        QFETCH(bool, compared);
        QString err;
        VantorUtils::ReadTableData(kCorpus + "/" + file, SkipEmptyRows, err);
        VantorUtils::ReadMultiSheetTables(kCorpus + "/" + file, ReadAllRows);
        const QString copy = m_dir.filePath("append-" + file);
        QVERIFY(QFile::copy(kCorpus + "/" + file, copy));
        QFile::setPermissions(copy, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
        if (!compared || !m_haveProbe) {
            append(copy, {{"h"}, {"appended"}}, {});
            return;
        }
        const QJsonArray before = probe("dump", copy).value("sheets").toArray();
        QVERIFY(!before.isEmpty());
        QVERIFY(append(copy, {{"h"}, {"追加"}}, {}));
        const QJsonArray after = probe("dump", copy).value("sheets").toArray();
        QVERIFY(after.size() >= before.size());
        for (int i = 0; i < before.size(); ++i) {
            const QJsonObject was = before.at(i).toObject();
            const QJsonObject now = after.at(i).toObject();
            QCOMPARE(now.value("name").toString(), was.value("name").toString());
            QHash<QString, QString> kept;
            const auto look = [](const QJsonValue& c) {
                return compact(c.toObject().value("value")) + " " + c.toObject().value("format").toString();
            };
            for (const QJsonValue& c : now.value("cells").toArray())
                kept.insert(c.toObject().value("ref").toString(), look(c));
            for (const QJsonValue& c : was.value("cells").toArray()) {
                const QString ref = was.value("name").toString() + "!" + c.toObject().value("ref").toString() + " ";
                QCOMPARE(ref + kept.value(c.toObject().value("ref").toString()), ref + look(c));
            }
        }
    }
};

QTEST_GUILESS_MAIN(TestXlsxAppend)
#include "tst_xlsxappend.moc"
