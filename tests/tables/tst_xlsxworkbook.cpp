// Appending to a workbook keeps what belongs to the workbook rather than to a sheet's
// cells: hidden sheets, the sheet it opens on, defined names, print settings and array
// formulas. Workbooks are built and checked with openpyxl.
#include "VantorUtils.h"
#include "tables/XlsxNameWriter.h"
#include "tables/XlsxWorkbookReader.h"
#include "xlsx_package.h"
#include "xlsx_probe.h"

#include <QTemporaryDir>
#include <QtTest>

using Table = QList<QStringList>;
using XlsxProbe::compact;
using XlsxProbe::probe;
using XlsxProbe::python;

namespace {
// A workbook.xml over sheets that all show the one sheet part; `states` gives each
// sheet's state ("visible", "hidden", "veryHidden"), the sheets are named Sheet0, Sheet1, ...
Parts sheetsPackage(const QStringList& states, int activeTab, int firstSheet)
{
    QByteArray sheets;
    QByteArray rels = "<Relationships xmlns=\"http://schemas.openxmlformats.org/package/2006/relationships\">";
    for (int i = 0; i < states.size(); ++i) {
        sheets += QStringLiteral("<sheet name=\"Sheet%1\" sheetId=\"%2\" state=\"%3\" r:id=\"rId%2\"/>")
                      .arg(i)
                      .arg(i + 1)
                      .arg(states.at(i))
                      .toUtf8();
        rels += QStringLiteral("<Relationship Id=\"rId%1\" Type=\"http://schemas.openxmlformats.org/officeDocument/2006/"
                               "relationships/worksheet\" Target=\"worksheets/sheet1.xml\"/>")
                    .arg(i + 1)
                    .toUtf8();
    }
    const QByteArray workbook =
        QStringLiteral("<workbook xmlns:r=\"http://schemas.openxmlformats.org/officeDocument/2006/relationships\">"
                       "<bookViews><workbookView activeTab=\"%1\" firstSheet=\"%2\"/></bookViews><sheets>")
            .arg(activeTab)
            .arg(firstSheet)
            .toUtf8()
        + sheets + "</sheets></workbook>";
    return {{"xl/workbook.xml", workbook},
            {"xl/_rels/workbook.xml.rels", rels + "</Relationships>"},
            {"xl/worksheets/sheet1.xml", "<worksheet><sheetData><row r=\"1\"><c r=\"A1\"><v>1</v></c></row></sheetData></worksheet>"}};
}
} // namespace

class TestXlsxWorkbook : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;
    bool m_haveOpenpyxl = false;
    QJsonObject m_before;
    QJsonObject m_after;
    int m_files = 0;

    QString nextPath() { return m_dir.filePath(QStringLiteral("book%1.xlsx").arg(++m_files)); }

    static bool append(const QString& path)
    {
        QString err;
        return VantorUtils::WriteTableData({{"代码", "数量"}, {"601398", "5"}}, path, {}, false, ExportFileCodeUtf8, true, err);
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_dir.isValid());
        m_haveOpenpyxl = python({QStringLiteral("-c"), QStringLiteral("import openpyxl")});
    }

    void appendKeepsWorkbookState_data()
    {
        QTest::addColumn<QString>("fact");
        QTest::newRow("defined names, of the workbook and of sheets") << "names";
        QTest::newRow("print area and titles") << "print";
        QTest::newRow("array formulas over their ranges") << "arrays";
        QTest::newRow("hidden sheets") << "sheets";
        QTest::newRow("the sheet it opens on") << "active";
        QTest::newRow("the first tab") << "firstSheet";
        QTest::newRow("old values and new rows") << "values";
    }

    void appendKeepsWorkbookState()
    {
        QFETCH(QString, fact);
        if (!m_haveOpenpyxl)
            QSKIP("python3-openpyxl is not available");
        if (m_after.isEmpty()) {
            const QString path = m_dir.filePath(QStringLiteral("state.xlsx"));
            QVERIFY(python({XlsxProbe::script(), QStringLiteral("make-book"), path}));
            m_before = probe("book", path);
            QVERIFY(append(path));
            m_after = probe("book", path);
            QVERIFY(!m_after.isEmpty());
        }
        const QJsonValue before = m_before.value(fact);
        const QJsonValue after = m_after.value(fact);
        if (fact == QLatin1String("sheets")) {
            // The writer knows one kind of hidden sheet: a very hidden one is an ordinary hidden one.
            QCOMPARE(compact(after), compact(QJsonArray{QJsonArray{"Sheet1", "visible"}, QJsonArray{"参数", "hidden"},
                                                        QJsonArray{"内部", "hidden"}, QJsonArray{"My Data", "visible"},
                                                        QJsonArray{"尾页", "visible"}, QJsonArray{"2020", "visible"}}));
        } else if (fact == QLatin1String("firstSheet")) {
            // The first tab was the very hidden sheet: the next visible one takes its place.
            QCOMPARE(before.toInt(), 2);
            QCOMPARE(after.toInt(), 3);
        } else if (fact == QLatin1String("print")) {
            // The same rows and columns; the rewrite spells them with "$", except on the sheet
            // whose name needs quotes, whose ranges go over as written.
            const QJsonArray year{QJsonArray{"$A$1:$C$3"}, "1:2", QJsonValue()};
            QCOMPARE(compact(after),
                     compact(QJsonObject{{"Sheet1", QJsonArray{QJsonArray{"$A$1:$C$20"}, "$1:$1", QJsonValue()}},
                                         {"My Data", QJsonArray{QJsonValue(), QJsonValue(), "$A:$B"}}, {"2020", year}}));
            QCOMPARE(compact(before),
                     compact(QJsonObject{{"Sheet1", QJsonArray{QJsonArray{"$A$1:$C$20"}, "1:1", QJsonValue()}},
                                         {"My Data", QJsonArray{QJsonValue(), QJsonValue(), "A:B"}}, {"2020", year}}));
        } else if (fact == QLatin1String("values")) {
            const QJsonObject values = after.toObject();
            QCOMPARE(values.value("C2").toString(), QStringLiteral("=B2:B3*2"));
            QCOMPARE(values.value("C3").toDouble(), 6.0);
            QCOMPARE(values.value("A4").toString(), QStringLiteral("601398"));
            QCOMPARE(values.value("B4").toString(), QStringLiteral("5"));
            QVERIFY(!values.contains("A5"));
        } else {
            QVERIFY2(!before.isNull() && !(before.isObject() && before.toObject().isEmpty())
                         && !(before.isArray() && before.toArray().isEmpty()),
                     "the workbook built for the test lacks this");
            QCOMPARE(compact(after), compact(before));
        }
    }

    void appendKeepsArrayResults()
    {
        // The formula's own cell keeps its cached number, the rest of its range their values.
        if (!m_haveOpenpyxl)
            QSKIP("python3-openpyxl is not available");
        const QString path = nextPath();
        QVERIFY(XlsxPackage::write(
            path, {{"xl/worksheets/sheet1.xml",
                    "<worksheet><sheetData>"
                    "<row r=\"1\"><c r=\"A1\"><v>1</v></c><c r=\"B1\"><f t=\"array\" ref=\"B1:C2\">A1:A2*{1,10}</f><v>1</v></c>"
                    "<c r=\"C1\"><v>10</v></c><c r=\"D1\"><f t=\"array\" ref=\"D1\">SUM(A1:A2*2)</f><v>6</v></c></row>"
                    "<row r=\"2\"><c r=\"A2\"><v>2</v></c><c r=\"B2\"><v>2</v></c><c r=\"C2\"><v>20</v></c></row>"
                    "</sheetData></worksheet>"}}));
        QVERIFY(append(path));
        const QJsonObject after = probe("book", path);
        QCOMPARE(compact(after.value("arrays")), compact(QJsonObject{{"Sheet1!B1", "B1:C2"}, {"Sheet1!D1", "D1"}}));
        QCOMPARE(after.value("values").toObject().value("B1").toString(), QStringLiteral("=A1:A2*{1,10}"));
        const QJsonObject cached = after.value("cached").toObject();
        QCOMPARE(cached.value("B1").toDouble(), 1.0);
        QCOMPARE(cached.value("C2").toDouble(), 20.0);
        QCOMPARE(cached.value("D1").toDouble(), 6.0);
        QCOMPARE(cached.value("A3").toString(), QStringLiteral("601398"));
    }

    void workbookOpensOnAVisibleSheet_data()
    {
        QTest::addColumn<QStringList>("states");
        QTest::addColumn<int>("activeTab");
        QTest::addColumn<int>("firstSheet");
        QTest::addColumn<QStringList>("statesAfter");
        QTest::addColumn<QString>("activeAfter");
        QTest::addColumn<int>("firstSheetAfter");
        // Rows are appended to Sheet1.
        QTest::newRow("the first sheet hidden") << QStringList{"hidden", "visible"} << 1 << 0
                                                << QStringList{"hidden", "visible"} << "Sheet1" << 1;
        QTest::newRow("opened on a hidden sheet") << QStringList{"visible", "visible", "hidden"} << 2 << 0
                                                  << QStringList{"visible", "visible", "hidden"} << "Sheet0" << 0;
        QTest::newRow("every sheet hidden") << QStringList{"veryHidden", "hidden"} << 1 << 0
                                            << QStringList{"hidden", "visible"} << "Sheet1" << 1;
        QTest::newRow("a later first tab") << QStringList{"visible", "visible", "visible"} << 2 << 1
                                           << QStringList{"visible", "visible", "visible"} << "Sheet2" << 1;
        QTest::newRow("appended to a hidden sheet") << QStringList{"visible", "hidden"} << 0 << 0
                                                    << QStringList{"visible", "hidden"} << "Sheet0" << 0;
    }

    void workbookOpensOnAVisibleSheet()
    {
        QFETCH(QStringList, states);
        QFETCH(int, activeTab);
        QFETCH(int, firstSheet);
        QFETCH(QStringList, statesAfter);
        QFETCH(QString, activeAfter);
        QFETCH(int, firstSheetAfter);
        if (!m_haveOpenpyxl)
            QSKIP("python3-openpyxl is not available");
        const QString path = nextPath();
        QVERIFY(XlsxPackage::write(path, sheetsPackage(states, activeTab, firstSheet)));
        QVERIFY(append(path));
        const QJsonObject after = probe("book", path);
        QStringList got;
        for (const QJsonValue& s : after.value("sheets").toArray())
            got.append(s.toArray().at(1).toString());
        QCOMPARE(got, statesAfter);
        QCOMPARE(after.value("active").toString(), activeAfter);
        QCOMPARE(after.value("firstSheet").toInt(), firstSheetAfter);
    }

    void namesTheWriterCannotHoldAreLeftOut_data()
    {
        QTest::addColumn<QString>("sheet"); // a second sheet, local names refer to it
        QTest::addColumn<QString>("name");
        QTest::addColumn<int>("local");     // localSheetId, -1 for none
        QTest::addColumn<QString>("formula");
        QTest::addColumn<bool>("kept");
        QTest::newRow("a formula too long for the writer")
            << "B" << "Long" << -1 << QString("Sheet1!$A$1+").repeated(12) + "1" << false;
        QTest::newRow("local to a sheet with ! in its name") << "a!b" << "Here" << 1 << "1" << false;
        QTest::newRow("a name read as a cell") << "B" << "AB12" << -1 << "1" << false;
        QTest::newRow("a print area of two areas")
            << "B" << "_xlnm.Print_Area" << 0 << "Sheet1!$A$1:$B$2,Sheet1!$D$1:$E$2" << false;
        QTest::newRow("the filter range") << "B" << "_xlnm._FilterDatabase" << 0 << "Sheet1!$A$1:$B$3" << false;
        QTest::newRow("local to a sheet that is not there") << "B" << "Gone" << 7 << "1" << false;
        QTest::newRow("local to a sheet named with an apostrophe") << "It's 表" << "Here" << 1 << "'It''s 表'!$A$1" << true;
        QTest::newRow("a Chinese name") << "B" << "汇率" << -1 << "0.96" << true;
    }

    void namesTheWriterCannotHoldAreLeftOut()
    {
        // The save goes on without them; the other names stay.
        QFETCH(QString, sheet);
        QFETCH(QString, name);
        QFETCH(int, local);
        QFETCH(QString, formula);
        QFETCH(bool, kept);
        if (!m_haveOpenpyxl)
            QSKIP("python3-openpyxl is not available");
        const QString path = nextPath();
        QVERIFY(python({QStringLiteral("-c"),
                        QStringLiteral("import sys,openpyxl\n"
                                       "from openpyxl.workbook.defined_name import DefinedName as N\n"
                                       "wb=openpyxl.Workbook(); wb.active.title='Sheet1'; wb.active['A1']=1\n"
                                       "wb.create_sheet(sys.argv[2])\n"
                                       "wb.defined_names.append(N('Kept',attr_text='Sheet1!$A$1'))\n"
                                       "local=int(sys.argv[4])\n"
                                       "wb.defined_names.append(N(sys.argv[3],attr_text=sys.argv[5],"
                                       "localSheetId=None if local<0 else local))\n"
                                       "wb.save(sys.argv[1])\n"),
                        path, sheet, name, QString::number(local), formula}));
        QVERIFY(append(path));
        const QJsonObject after = probe("book", path);
        QCOMPARE(after.value("values").toObject().value("A2").toString(), QStringLiteral("601398"));
        QStringList names;
        for (const QJsonValue& n : after.value("names").toArray())
            names.append(n.toArray().at(0).toString());
        names.sort();
        QStringList expected{"Kept"};
        if (kept)
            expected.append(name);
        expected.sort();
        QCOMPARE(names, expected);
        QVERIFY(after.value("print").toObject().isEmpty());
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
        QTest::newRow("whole rows") << "'My, data'!$1:$2" << true << QList<int>{1, 1, 2, maxCol} << true
                                    << QList<int>{1, 2, 0, 0};
        QTest::newRow("whole columns") << "Sheet1!A:B" << true << QList<int>{1, 1, maxRow, 2} << true
                                       << QList<int>{0, 0, 1, 2};
        QTest::newRow("columns and rows") << "'a!b'!$A:$A,'a!b'!$1:$3" << false << QList<int>{} << true
                                          << QList<int>{1, 3, 1, 1};
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
};

QTEST_GUILESS_MAIN(TestXlsxWorkbook)
#include "tst_xlsxworkbook.moc"
