// Workbooks built part by part, as other programs write them (or as none would): date
// systems, escaped characters, rows out of order, unusual part names and encodings, cells
// without values, stylesheets and theme colours, array formula ranges, numbers under
// a locale with a decimal comma; and the reader's number, date and formula helpers.
#include "VantorUtils.h"
#include "tables/XlsxFormulaShift.h"
#include "tables/XlsxSheetLayout.h"
#include "tables/XlsxWorkbookReader.h"

#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QtTest>

#include <clocale>

#include "xlsx_package.h"

using Table = QList<QStringList>;

namespace {
const char kDateStyles[] =
    "<styleSheet><numFmts><numFmt numFmtId=\"164\" formatCode=\"yyyy-mm-dd\"/></numFmts>"
    "<cellXfs><xf numFmtId=\"0\"/><xf numFmtId=\"164\" applyNumberFormat=\"1\"/><xf numFmtId=\"22\"/></cellXfs></styleSheet>";

QByteArray sheet(const QByteArray& rows) { return "<worksheet><sheetData>" + rows + "</sheetData></worksheet>"; }
QByteArray row(int r, const QByteArray& cells) { return "<row r=\"" + QByteArray::number(r) + "\">" + cells + "</row>"; }
QByteArray num(const char* ref, const char* v) { return QByteArray("<c r=\"") + ref + "\"><v>" + v + "</v></c>"; }
QByteArray str(const char* ref, const QByteArray& v) { return QByteArray("<c r=\"") + ref + "\" t=\"inlineStr\"><is><t>" + v + "</t></is></c>"; }
Parts sheetPart(const QByteArray& rows) { return {{"xl/worksheets/sheet1.xml", sheet(rows)}}; }
QByteArray workbookRels(const QByteArray& sheetTarget) { return QByteArray(XlsxPackage::kWorkbookRels).replace("worksheets/sheet1.xml", sheetTarget); }

struct NoCells : XlsxCellVisitor {
    void cell(const XlsxCell&) override {}
};
} // namespace

class TestXlsxReading : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;
    int m_files = 0;

    QString package(const Parts& parts)
    {
        const QString path = m_dir.filePath(QStringLiteral("book%1.xlsx").arg(++m_files));
        if (!XlsxPackage::write(path, parts))
            qWarning() << "cannot write" << path;
        return path;
    }

private slots:
    void initTestCase() { QLoggingCategory::setFilterRules(QStringLiteral("vantor.*.debug=false\nvantor.*.info=false")); }

    void readsAsMeant_data()
    {
        QTest::addColumn<Parts>("parts");
        QTest::addColumn<int>("cfg");
        QTest::addColumn<Table>("expected"); // a package that cannot be read: its error text
        const auto add = [](const char* tag, const Parts& parts, const Table& expected, ReadTableCfg cfg = ReadAllRows) {
            QTest::newRow(tag) << parts << int(cfg) << expected;
        };
        // The workbook's date system; a later extension's properties do not change it.
        const QByteArray ext = "<extLst><ext uri=\"{140A7094-0E35-4892-8432-C4D2E57EDEB5}\" "
                               "xmlns:x15=\"http://schemas.microsoft.com/office/spreadsheetml/2010/11/main\">"
                               "<x15:workbookPr chartTrackingRefBase=\"1\"/></ext></extLst>";
        const auto dated = [&](const char* tag, const QByteArray& properties, const char* date) {
            QByteArray book(XlsxPackage::kWorkbook);
            add(tag, {{"xl/workbook.xml", book.replace("<sheets>", properties + "<sheets>")}, {"xl/styles.xml", kDateStyles},
                      {"xl/worksheets/sheet1.xml", sheet(row(1, "<c r=\"A1\" s=\"1\"><v>40543</v></c>"))}}, {{date}});
        };
        dated("1900", "<workbookPr defaultThemeVersion=\"124226\"/>", "2010-12-31");
        dated("1904", "<workbookPr date1904=\"1\"/>", "2015-01-01");
        dated("1904 written as true", "<workbookPr date1904=\"true\"/>", "2015-01-01");
        dated("1904, then extension properties", "<workbookPr date1904=\"1\"/>" + ext, "2015-01-01");
        dated("1900, then extension properties claiming 1904",
              "<workbookPr date1904=\"0\"/>" + QByteArray(ext).replace("chartTrackingRefBase", "date1904"), "2010-12-31");

        // _xHHHH_ escapes in shared, inline and in-cell text (some writers keep every text in the cell).
        const auto escaped = [&](const char* tag, const QByteArray& stored, const QString& text) {
            add(tag, {{"xl/sharedStrings.xml", "<sst><si><t>" + stored + "</t></si></sst>"},
                      {"xl/worksheets/sheet1.xml", sheet(row(1, "<c r=\"A1\" t=\"s\"><v>0</v></c>" + str("B1", stored)
                                                                    + "<c r=\"C1\" t=\"str\"><v>" + stored + "</v></c>"))}},
                {{text, text, text}});
        };
        escaped("carriage return", "a_x000D_\nb", QStringLiteral("a\r\nb"));
        escaped("control character", "x_x0001_y", QStringLiteral("x\x01y"));
        escaped("lower-case digits", "a_x000d_b", QStringLiteral("a\rb"));
        escaped("escaped underscore", "_x005F_x0041_", QStringLiteral("_x0041_"));
        escaped("underscore before an escape", "__x0042_", QStringLiteral("_B"));
        escaped("surrogate pair", "_xD83D__xDE00_", QString::fromUtf8("\xF0\x9F\x98\x80"));
        escaped("not hex", "_x00G1_", QStringLiteral("_x00G1_"));
        escaped("unterminated", "v_x0041", QStringLiteral("v_x0041"));
        escaped("upper-case x", "_X0041_", QStringLiteral("_X0041_"));

        // Rows and cells stored out of order are put in place.
        add("reversed", sheetPart(row(2, num("A2", "2")) + row(1, num("A1", "1"))), {{"1"}, {"2"}});
        const QByteArray revisit = row(1, num("A1", "1")) + row(3, num("A3", "3")) + row(1, str("B1", "b"));
        add("row revisited", sheetPart(revisit), {{"1", "b"}, {"", ""}, {"3", ""}});
        add("row revisited, empty rows skipped", sheetPart(revisit), {{"1", "b"}, {"3", ""}}, SkipEmptyRows);
        add("empty row filled late",
            sheetPart(row(1, num("A1", "1")) + row(2, str("A2", "")) + row(3, num("A3", "3")) + row(2, str("B2", "x"))),
            {{"1", ""}, {"", "x"}, {"3", ""}}, SkipEmptyRows);
        const QByteArray emptyLate = row(2, num("A2", "2")) + row(1, str("A1", " "));
        add("late empty row", sheetPart(emptyLate), {{""}, {"2"}});
        add("late empty row, skipped", sheetPart(emptyLate), {{"2"}}, SkipEmptyRows);
        add("later cell wins", sheetPart(row(2, str("A2", "old")) + row(1, num("A1", "1")) + row(2, str("A2", "new"))),
            {{"1"}, {"new"}});
        add("late rows beyond the last", sheetPart(row(3, num("A3", "3")) + row(1, num("A1", "1")) + row(5, num("B5", "5"))),
            {{"1", ""}, {"", ""}, {"3", ""}, {"", ""}, {"", "5"}});
        add("columns out of order", sheetPart(row(1, str("C1", "c") + str("A1", "a"))), {{"a", "", "c"}});

        // Part names and targets with backslashes or percent escapes are found.
        const QByteArray oneCell = sheet(row(1, num("A1", "1")));
        add("entry named with backslashes", {{"xl/worksheets/sheet1.xml", {}}, {"xl\\worksheets\\sheet1.xml", oneCell}}, {{"1"}});
        add("every entry named with backslashes",
            {{"xl/worksheets/sheet1.xml", {}}, {"xl\\worksheets\\sheet1.xml", oneCell}, {"xl/workbook.xml", {}},
             {"xl\\workbook.xml", XlsxPackage::kWorkbook}, {"xl/_rels/workbook.xml.rels", {}},
             {"xl\\_rels\\workbook.xml.rels", XlsxPackage::kWorkbookRels}, {"_rels/.rels", {}}, {"_rels\\.rels", XlsxPackage::kPackageRels}},
            {{"1"}});
        add("target with backslashes",
            {{"xl/_rels/workbook.xml.rels", workbookRels("worksheets\\sheet1.xml")}, {"xl/worksheets/sheet1.xml", oneCell}}, {{"1"}});
        add("percent-encoded target",
            {{"xl/_rels/workbook.xml.rels", workbookRels("worksheets/sheet%201.xml")}, {"xl/worksheets/sheet 1.xml", oneCell}}, {{"1"}});
        add("percent sign in the entry name",
            {{"xl/_rels/workbook.xml.rels", workbookRels("worksheets/sheet%201.xml")}, {"xl/worksheets/sheet%201.xml", oneCell}}, {{"1"}});
        add("absolute target",
            {{"xl/_rels/workbook.xml.rels", workbookRels("/xl/worksheets/sheet1.xml")}, {"xl/worksheets/sheet1.xml", oneCell}}, {{"1"}});

        // Parts in any encoding the parser knows.
        const QByteArray body = sheet(row(1, str("A1", "caf\xC3\xA9")));
        const QString cafe = QString::fromUtf8("caf\xC3\xA9");
        const QByteArray decl = "<?xml version=\"1.0\" encoding=\"";
        add("UTF-8", {{"xl/worksheets/sheet1.xml", decl + "UTF-8\"?>" + body}}, {{cafe}});
        add("ISO-8859-1", {{"xl/worksheets/sheet1.xml", decl + "ISO-8859-1\"?>" + QByteArray(body).replace("\xC3\xA9", "\xE9")}}, {{cafe}});
        add("US-ASCII with a character reference",
            {{"xl/worksheets/sheet1.xml", decl + "US-ASCII\"?>" + QByteArray(body).replace("\xC3\xA9", "&#233;")}}, {{cafe}});
        QByteArray le("\xFF\xFE", 2);
        QByteArray be("\xFE\xFF", 2);
        for (const QChar ch : QString::fromUtf8(decl + "UTF-16\"?>" + body)) {
            le.append(char(ch.unicode() & 0xFF)).append(char(ch.unicode() >> 8));
            be.append(char(ch.unicode() >> 8)).append(char(ch.unicode() & 0xFF));
        }
        add("UTF-16LE", {{"xl/worksheets/sheet1.xml", le}}, {{cafe}});
        add("UTF-16BE", {{"xl/worksheets/sheet1.xml", be}}, {{cafe}});
        add("an encoding the parser does not know", {{"xl/worksheets/sheet1.xml", decl + "GB2312\"?>" + body}},
            {{QStringLiteral("Excel文件中的内容格式错误，请检查文件并重新编辑保存后再试！")}});

        // Date cells, by number format or stored as ISO text; each makes its row non-empty.
        const auto date = [&](const char* tag, const QByteArray& cell, const char* text) {
            add(tag, {{"xl/styles.xml", kDateStyles}, {"xl/worksheets/sheet1.xml", sheet(row(1, "<c r=\"A1\" " + cell + "</c>"))}},
                {{text}}, SkipEmptyRows);
        };
        date("negative number in a date format", "s=\"1\"><v>-5</v>", "-5");
        date("negative fraction in a date-time format", "s=\"2\"><v>-0.25</v>", "-0.25");
        date("number of a date and time", "s=\"2\"><v>45000.5</v>", "2023-03-15T12:00:00.000");
        date("ISO date and time", "t=\"d\"><v>2023-03-15T12:00:00</v>", "2023-03-15T12:00:00.000");
        date("ISO date and time in a date format", "t=\"d\" s=\"1\"><v>2023-03-15T12:00:00</v>", "2023-03-15T12:00:00.000");
        date("ISO date", "t=\"d\"><v>2023-03-15</v>", "2023-03-15");
        date("ISO midnight", "t=\"d\"><v>2023-03-15T00:00:00</v>", "2023-03-15");
        date("ISO time", "t=\"d\"><v>12:30:00</v>", "12:30:00.000");
        date("ISO with milliseconds and zone", "t=\"d\"><v>2023-03-15T12:00:00.250Z</v>", "2023-03-15T12:00:00.250");
        date("ISO nonsense stays text", "t=\"d\"><v>soon</v>", "soon");

        // Cells that carry no value read as their own nothing; one in a date format as the
        // number 0, midnight, while its row still counts as empty.
        const QByteArray x = str("B1", "x");
        const auto blank = [&](const char* tag, const QByteArray& rows, const Table& expected, ReadTableCfg cfg) {
            add(tag, {{"xl/styles.xml", kDateStyles}, {"xl/worksheets/sheet1.xml", sheet(rows)}}, expected, cfg);
        };
        blank("inline string without its text",
              row(1, str("A1", "first") + "<c r=\"B1\" t=\"inlineStr\"/><c r=\"C1\" t=\"inlineStr\"></c>"), {{"first", "", ""}}, ReadAllRows);
        const QByteArray dateBlanks = row(1, "<c r=\"A1\" s=\"1\"/>" + x) + row(2, "<c r=\"A2\" s=\"2\"/>");
        blank("blank in a date format", dateBlanks, {{"00:00:00.000", "x"}, {"00:00:00.000", ""}}, ReadAllRows);
        blank("blank in a date format, skipped", dateBlanks, {{"00:00:00.000", "x"}}, SkipEmptyRows);
        blank("formula never calculated, in a date format", row(1, "<c r=\"A1\" s=\"1\"><f>TODAY()</f></c>" + x),
              {{"00:00:00.000", "x"}}, SkipEmptyRows);
        blank("blank in a plain format", row(1, "<c r=\"A1\" s=\"0\"/>" + x), {{"", "x"}}, SkipEmptyRows);

        // A cell outside the sheet is refused as it opens; nothing of it reaches the table.
        const Table outside{{QStringLiteral("Excel文件的行数或列数超出上限，请检查文件！")}};
        add("column past the last, before any row", sheetPart("<c r=\"XFE1\" t=\"s\"/>"), outside);
        add("row past the last", sheetPart(row(1, num("A1048577", "1"))), outside);
        add("after a good cell", sheetPart(row(1, num("A1", "1") + "<c r=\"rightC2\"/>")), outside);
    }

    void readsAsMeant()
    {
        QFETCH(Parts, parts);
        QFETCH(int, cfg);
        QFETCH(Table, expected);
        QString err;
        const Table rows = VantorUtils::ReadTableData(package(parts), ReadTableCfg(cfg), err);
        QCOMPARE(rows.isEmpty() && !err.isEmpty() ? Table{{err}} : rows, expected);
    }

    void arrayFormulaRanges_data()
    {
        QTest::addColumn<QByteArray>("formula"); // the formula element of C2
        QTest::addColumn<int>("lastRow");
        QTest::addColumn<int>("lastCol");
        QTest::newRow("a range") << QByteArray("<f t=\"array\" ref=\"C2:D4\">A1:B3*2</f>") << 4 << 4;
        QTest::newRow("its own cell") << QByteArray("<f t=\"array\" ref=\"C2\">SUM(A1:A3*2)</f>") << 2 << 3;
        QTest::newRow("no range given") << QByteArray("<f t=\"array\">A1</f>") << 2 << 3;
        QTest::newRow("a range that starts elsewhere") << QByteArray("<f t=\"array\" ref=\"B1:D4\">A1</f>") << 2 << 3;
        QTest::newRow("a malformed range") << QByteArray("<f t=\"array\" ref=\"C2:\">A1</f>") << 2 << 3;
        QTest::newRow("a shared formula") << QByteArray("<f t=\"shared\" ref=\"C2:C4\" si=\"0\">A1</f>") << 0 << 0;
        QTest::newRow("a plain formula") << QByteArray("<f>A1</f>") << 0 << 0;
    }

    void arrayFormulaRanges()
    {
        // The range reaches the cell whether the sheet is parsed in place or alongside, and
        // the next cell is a plain one again.
        QFETCH(QByteArray, formula);
        QFETCH(int, lastRow);
        QFETCH(int, lastCol);
        struct Ranges : XlsxCellVisitor {
            QMap<QString, QPair<int, int>> byCell;
            void cell(const XlsxCell& c) override { byCell.insert(QStringLiteral("%1,%2").arg(c.row).arg(c.col), {c.arrayLastRow, c.arrayLastCol}); }
        };
        for (const int padding : {0, int(XlsxWorkbookReader::kPipelineBytes)}) {
            const QString path = package(sheetPart(row(1, num("A1", "1")) + QByteArray(padding, ' ')
                                                   + row(2, "<c r=\"C2\">" + formula + "<v>2</v></c>" + num("D2", "3"))));
            XlsxWorkbookReader reader;
            Ranges ranges;
            QString err;
            QVERIFY(reader.open(path, err) && reader.readSheet(0, ranges, err));
            QCOMPARE(ranges.byCell.value("2,3"), qMakePair(lastRow, lastCol));
            QCOMPARE(ranges.byCell.value("2,4"), qMakePair(0, 0));
        }
    }

    // Plug-ins run under the user's locale. One with a decimal comma must reach neither the
    // numbers read and stored again, nor the widths, heights and font sizes an append keeps.
    void decimalCommaLocale()
    {
        QTemporaryDir locales;
        QProcess make;
        make.start(QStringLiteral("localedef"), {"-i", "de_DE", "-f", "UTF-8", locales.filePath("de_DE.UTF-8")});
        if (!make.waitForFinished(60000) || make.exitStatus() != QProcess::NormalExit || make.exitCode() != 0)
            QSKIP("no locale with a decimal comma can be made here (Debian's locales package)");
        const QString path = package(
            {{"xl/styles.xml", "<styleSheet><fonts><font><sz val=\"10.5\"/></font></fonts>"
                               "<cellXfs><xf numFmtId=\"0\" fontId=\"0\"/><xf numFmtId=\"22\"/></cellXfs></styleSheet>"},
             {"xl/worksheets/sheet1.xml",
              "<worksheet><cols><col min=\"1\" max=\"1\" width=\"12.5703125\" customWidth=\"1\"/></cols><sheetData>"
              "<row r=\"1\" ht=\"20.25\" customHeight=\"1\"><c r=\"A1\" s=\"1\"><v>45000.5</v></c><c r=\"B1\"><v>2.50</v></c>"
              "<c r=\"C1\"><v>1.5E-3</v></c></row></sheetData></worksheet>"}});
        qputenv("LOCPATH", QFile::encodeName(locales.path()));
        const QByteArray before = std::setlocale(LC_ALL, nullptr);
        QVERIFY(std::setlocale(LC_ALL, "de_DE.UTF-8"));
        char printed[16];
        std::snprintf(printed, sizeof printed, "%.2f", 1.5);
        QString err;
        const Table read = VantorUtils::ReadTableData(path, ReadAllRows, err);
        const bool written = VantorUtils::WriteTableData({{"n"}, {"2.5"}}, path, {}, false, ExportFileCodeUtf8, true, err);
        std::setlocale(LC_ALL, before.constData());
        qunsetenv("LOCPATH");

        QCOMPARE(QByteArray(printed), QByteArray("1,50")); // the locale was in force
        const QStringList old{"2023-03-15T12:00:00.000", "2.5", "0.0015"};
        QCOMPARE(read, Table{old});
        QVERIFY2(written, qPrintable(err));
        QCOMPARE(VantorUtils::ReadTableData(path, ReadAllRows, err), (Table{old, {"2.5", "", ""}}));
        XlsxWorkbookReader reader;
        XlsxSheetLayout layout;
        NoCells cells;
        QVERIFY(reader.open(path, err) && reader.readSheet(0, cells, err, &layout));
        QCOMPARE(layout.columns().size(), size_t(1));
        QCOMPARE(layout.columns().front().width, 12.5703125);
        QCOMPARE(layout.rows().size(), size_t(1));
        QCOMPARE(layout.rows().front().height, 20.25);
        QStringList sizes;
        for (int i = 0; i < reader.styles().count(); ++i)
            sizes.append(QString::number(reader.styles().style(i).fontSize));
        QVERIFY2(sizes.contains(QStringLiteral("10.5")), qPrintable(sizes.join(QLatin1Char(' '))));
    }

    void stylesheetListClosedEarly_data()
    {
        // Each stylesheet closes a list early with an element named after another list,
        // while one of its items is still open, then puts entries in a list that has none
        // yet. Those entries belong to no item; the one proper cell format stays as it is.
        QTest::addColumn<QByteArray>("styles");
        QTest::newRow("font open, alignment in cell formats")
            << QByteArray("<fonts><font><fills/><cellXfs><alignment horizontal=\"center\"/><protection locked=\"0\"/>"
                          "<xf numFmtId=\"2\"/></cellXfs></font></fonts>");
        QTest::newRow("font open, edge in borders")
            << QByteArray("<fonts><font><fills/><borders><left style=\"thin\"/></borders></font></fonts><cellXfs><xf numFmtId=\"2\"/></cellXfs>");
        QTest::newRow("fill open, bold in fonts")
            << QByteArray("<fills><fill><fonts/><fonts><b/></fonts></fill></fills><cellXfs><xf numFmtId=\"2\"/></cellXfs>");
        QTest::newRow("border edge open, colour in fills")
            << QByteArray("<borders><border><left><fonts/><fills><fgColor rgb=\"FF00FF00\"/></fills></left></border>"
                          "</borders><cellXfs><xf numFmtId=\"2\"/></cellXfs>");
    }

    void stylesheetListClosedEarly()
    {
        QFETCH(QByteArray, styles);
        const QString path = package({{"xl/styles.xml", "<styleSheet>" + styles + "</styleSheet>"},
                                      {"xl/worksheets/sheet1.xml", sheet(row(1, num("A1", "7")))}});
        XlsxWorkbookReader reader;
        QString err;
        QVERIFY2(reader.open(path, err), qPrintable(err));
        QCOMPARE(reader.styles().count(), 1);
        const XlsxCellStyle& s = reader.styles().style(0);
        QCOMPARE(s.numFmtId, 2);
        QVERIFY(!s.bold && !s.look.unlocked);
        QCOMPARE(int(s.look.horizontal), 0);
        QCOMPARE(int(s.look.border[XlsxCellLook::Left]), 0);
        QCOMPARE(s.look.fgColor, -1);
        // The workbook still takes an append below its row.
        QVERIFY(VantorUtils::WriteTableData({{"h"}, {"new"}}, path, {}, false, ExportFileCodeUtf8, true, err));
        QCOMPARE(VantorUtils::ReadTableData(path, ReadAllRows, err), (Table{{"7"}, {"new"}}));
    }

    void themeColours_data()
    {
        // One colour, given as a format would give it, is the font colour, the solid fill's
        // colour and the left border's colour of the workbook's only cell format.
        QTest::addColumn<QByteArray>("theme"); // the theme part; null: the workbook names none
        QTest::addColumn<QByteArray>("color");
        QTest::addColumn<int>("rgb");
        const QByteArray none;
        const QByteArray scheme("<a:theme xmlns:a=\"http://schemas.openxmlformats.org/drawingml/2006/main\">"
                                "<a:themeElements><a:clrScheme name=\"x\">"
                                "<a:dk1><a:sysClr val=\"windowText\" lastClr=\"112233\"/></a:dk1>"
                                "<a:lt1><a:sysClr val=\"window\"/></a:lt1>"
                                "<a:accent1><a:srgbClr val=\"5B9BD5\"><a:lumMod val=\"50000\"/></a:srgbClr></a:accent1>"
                                "<a:hlink><a:srgbClr val=\"0563C1\"/></a:hlink>"
                                "</a:clrScheme></a:themeElements>"
                                "<a:extraClrSchemeLst><a:extraClrScheme><a:clrScheme name=\"y\">"
                                "<a:hlink><a:srgbClr val=\"ABCDEF\"/></a:hlink></a:clrScheme></a:extraClrScheme>"
                                "</a:extraClrSchemeLst></a:theme>");
        QTest::newRow("lightened accent") << none << QByteArray("theme=\"4\" tint=\"0.3999\"") << 0x95B3D7;
        QTest::newRow("darkened white") << none << QByteArray("rgb=\"FFFFFFFF\" tint=\"-0.25\"") << 0xBFBFBF;
        QTest::newRow("lightened palette red") << none << QByteArray("indexed=\"2\" tint=\"0.6\"") << 0xFF9999;
        QTest::newRow("0 is light 1") << none << QByteArray("theme=\"0\"") << 0xFFFFFF;
        QTest::newRow("1 is dark 1") << none << QByteArray("theme=\"1\"") << 0x000000;
        QTest::newRow("past the scheme") << none << QByteArray("theme=\"12\"") << -1;
        QTest::newRow("system colour of the part") << scheme << QByteArray("theme=\"1\"") << 0x112233;
        QTest::newRow("system colour without its value") << scheme << QByteArray("theme=\"0\"") << 0xFFFFFF;
        QTest::newRow("colour of the part") << scheme << QByteArray("theme=\"10\"") << 0x0563C1;
        QTest::newRow("colour the part lacks") << scheme << QByteArray("theme=\"5\"") << 0xC0504D;
        QTest::newRow("broken part") << QByteArray("<a:theme><a:clrScheme><a:dk1><a:srgbClr val=\"FF0000\"/></a:dk1>")
                                     << QByteArray("theme=\"1\"") << 0x000000;
        QTest::newRow("named part missing") << QByteArray() << QByteArray("theme=\"10\" tint=\"-1\"") << 0x000000;
    }

    void themeColours()
    {
        QFETCH(QByteArray, theme);
        QFETCH(QByteArray, color);
        QFETCH(int, rgb);
        QByteArray rels(XlsxPackage::kWorkbookRels);
        if (!theme.isNull() || QByteArray(QTest::currentDataTag()) == "named part missing")
            rels.replace("</Relationships>", "<Relationship Id=\"rId9\" Target=\"theme/theme1.xml\" Type=\"http://"
                                             "schemas.openxmlformats.org/officeDocument/2006/relationships/theme\"/></Relationships>");
        const QByteArray styles = "<styleSheet><fonts><font><color " + color + "/></font></fonts><fills><fill>"
            "<patternFill patternType=\"solid\"><fgColor " + color + "/></patternFill></fill></fills><borders><border>"
            "<left style=\"thin\"><color " + color + "/></left></border></borders><cellXfs><xf/></cellXfs></styleSheet>";
        const QString path = package({{"xl/_rels/workbook.xml.rels", rels}, {"xl/theme/theme1.xml", theme}, {"xl/styles.xml", styles}});
        XlsxWorkbookReader reader;
        QString err;
        QVERIFY2(reader.open(path, err), qPrintable(err));
        const XlsxCellLook& look = reader.styles().style(0).look;
        QCOMPARE(look.fontColor, rgb);
        QCOMPARE(look.fgColor, rgb);
        QCOMPARE(look.borderColor[XlsxCellLook::Left], rgb);
    }

    void numberTextMatchesVariantText()
    {
        // The reader's short cut for plain decimals prints exactly what a double would;
        // for round integers trailing zeros decide between the plain and the exponent form.
        QList<QByteArray> samples{"0", "1", "100", "1200000", "99999999", "123456789012345", "1234567890123456", "0.5",
                                  "-0.5", "0.0001", "0.00001", "0.000123", "1.123456", "-17.75", "1E-3", "1e10", "2.50",
                                  "007", "-0", "0.1000000000000000055511151231257827", "123456789.123456789", "-3000000",
                                  "1230000000", "12345000000", "-9000000000"};
        QRandomGenerator rng(7);
        for (int i = 0; i < 20000; ++i) {
            samples.append(QByteArray::number(double(rng.bounded(2000000000)) / std::pow(10.0, rng.bounded(9)) - 1000.0, 'g', 15));
            samples.append(QByteArray::number(rng.bounded(100000)) + QByteArray(rng.bounded(12), '0'));
        }
        for (const QByteArray& raw : qAsConst(samples))
            QCOMPARE(XlsxWorkbookReader::numberText(raw), QVariant(raw.toDouble()).toString());
    }

    void dateNumbers_data()
    {
        QTest::addColumn<double>("number");
        QTest::addColumn<bool>("is1904");
        QTest::addColumn<QString>("text");
        QTest::newRow("first day") << 1.0 << false << "1900-01-01";
        QTest::newRow("before the missing leap day") << 59.0 << false << "1900-02-28";
        QTest::newRow("after the leap-day shift") << 61.0 << false << "1900-03-01";
        QTest::newRow("time only") << 0.75 << false << "18:00:00.000";
        QTest::newRow("date and time") << 45293.5625 << false << "2024-01-02T13:30:00.000";
        // Read where clocks go forward from 02:00 to 03:00 on the second Sunday of April.
        QTest::newRow("a time summer time skips") << 33342.0 + 2.5 / 24 << false << "1991-04-14T02:30:00.000";
        QTest::newRow("last day") << 2958465.5 << false << "9999-12-31T12:00:00.000";
        QTest::newRow("past year 9999") << 2958466.0 << false << "";
        QTest::newRow("1904 last day") << 2957003.0 << true << "9999-12-31";
        QTest::newRow("1904 past year 9999") << 2957004.5 << true << "";
        QTest::newRow("absurd") << 1e300 << false << "";
    }

    void dateNumbers()
    {
        QFETCH(double, number);
        QFETCH(bool, is1904);
        QFETCH(QString, text);
        const QByteArray zone = qgetenv("TZ");
        qputenv("TZ", "CST-8CDT,M4.2.0/2,M9.2.0/3");
        tzset();
        const QVariant v = XlsxWorkbookReader::dateTimeFromNumber(number, is1904);
        const QString got = v.isValid() ? XlsxWorkbookReader::dateTimeText(v) : QString();
        if (zone.isNull())
            qunsetenv("TZ");
        else
            qputenv("TZ", zone);
        tzset();
        QCOMPARE(got, text);
    }

    void millisecondsRoundTrip()
    {
        // A moment stored as a fraction of a day reads back to the very millisecond.
        QRandomGenerator rng(11);
        for (int i = 0; i < 20000; ++i) {
            const qint64 ms = rng.bounded(86400000);
            const QVariant v = XlsxWorkbookReader::dateTimeFromNumber(61 + rng.bounded(2900000) + double(ms) / 86400000.0, false);
            QCOMPARE((ms == 0 ? QTime(0, 0) : v.toDateTime().time()).msecsSinceStartOfDay(), int(ms));
        }
    }

    // A formula filled over a range is moved to each cell of it.
    void formulaShift_data()
    {
        QTest::addColumn<QString>("formula");
        QTest::addColumn<int>("rows");
        QTest::addColumn<int>("cols");
        QTest::addColumn<QString>("expected");
        QTest::newRow("filled down") << "A2*2" << 1 << 0 << "A3*2";
        QTest::newRow("anchors stay") << "$A$2+A$2+$A2+A2" << 2 << 3 << "$A$2+D$2+$A4+D4";
        QTest::newRow("range") << "SUM(A1:B2)" << 1 << 1 << "SUM(B2:C3)";
        QTest::newRow("lower case") << "a1+b$2" << 1 << 1 << "B2+C$2";
        QTest::newRow("string literals") << "\"A1\"&A1&\"say \"\"B1\"\"\"" << 1 << 0 << "\"A1\"&A2&\"say \"\"B1\"\"\"";
        QTest::newRow("sheet names") << "Sheet1!A1+'My Sheet'!B2+'It''s A1'!C3+数据!D4" << 1 << 0
                                     << "Sheet1!A2+'My Sheet'!B3+'It''s A1'!C4+数据!D5";
        QTest::newRow("sheet range") << "SUM(Sh1:Sh3!A1)" << 1 << 0 << "SUM(Sh1:Sh3!A2)";
        QTest::newRow("functions that look like cells") << "LOG10(A1)+ATAN2(B1,C1)+_xlfn.STDEV.S(A1:A3)" << 1 << 0
                                                        << "LOG10(A2)+ATAN2(B2,C2)+_xlfn.STDEV.S(A2:A4)";
        QTest::newRow("names and constants") << "IF(TRUE,A1,FALSE)+ABCD1+XFE1+A0+名称A1+1.5E+10+{1,2;3,4}" << 1 << 0
                                             << "IF(TRUE,A2,FALSE)+ABCD1+XFE1+A0+名称A1+1.5E+10+{1,2;3,4}";
        QTest::newRow("error values") << "IFERROR(#REF!,#DIV/0!)+#N/A+A1" << 1 << 0 << "IFERROR(#REF!,#DIV/0!)+#N/A+A2";
        QTest::newRow("whole columns") << "SUM(A:A)+SUM($B:B)" << 5 << 1 << "SUM(B:B)+SUM($B:C)";
        QTest::newRow("whole rows") << "SUM(1:1)+SUM($2:2)" << 1 << 5 << "SUM(2:2)+SUM($2:3)";
        QTest::newRow("structured reference") << "Table1[[#This Row],[Col A1]]+A1" << 1 << 0 << "Table1[[#This Row],[Col A1]]+A2";
        QTest::newRow("intersection") << "A1:B2 B1:C2" << 0 << 1 << "B1:C2 C1:D2";
        QTest::newRow("above the first row") << "A1-1" << -1 << 0 << "#REF!-1";
        QTest::newRow("past the last column") << "XFD1+A1" << 0 << 1 << "#REF!+B1";
        QTest::newRow("past the last row") << "A1048576" << 1 << 0 << "#REF!";
        QTest::newRow("range leaving the sheet") << "SUM(A1:B2)" << -1 << 0 << "SUM(#REF!)";
        QTest::newRow("fixed far away") << "$A$1" << 1000 << 1000 << "$A$1";
    }

    void formulaShift()
    {
        QFETCH(QString, formula);
        QFETCH(int, rows);
        QFETCH(int, cols);
        QFETCH(QString, expected);
        QCOMPARE(QString::fromUtf8(XlsxFormulaShift::shifted(formula.toUtf8(), rows, cols)), expected);
        // Moving back undoes the move when nothing left the sheet.
        if (!expected.contains(QLatin1String("#REF!")) || formula.contains(QLatin1String("#REF!")))
            QCOMPARE(QString::fromUtf8(XlsxFormulaShift::shifted(expected.toUtf8(), -rows, -cols)),
                     formula.replace(QLatin1String("a1+b$2"), QLatin1String("A1+B$2")));
    }
};

QTEST_GUILESS_MAIN(TestXlsxReading)
#include "tst_xlsxreading.moc"
