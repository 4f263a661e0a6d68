// Workbooks whose XML is well-formed but laid out the way no spreadsheet program writes
// it: the readers and the appending writer get through them and keep what makes sense.
#include "VantorUtils.h"
#include "tables/XlsxWorkbookReader.h"

#include <QMap>
#include <QTemporaryDir>
#include <QtTest>

#include "xlsx_package.h"

using Table = QList<QStringList>;

namespace {
const char kOneCell[] = "<worksheet><sheetData><row r=\"1\"><c r=\"A1\" s=\"0\"><v>7</v></c></row></sheetData></worksheet>";
} // namespace

class TestXlsxParts : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;

private slots:
    void initTestCase()
    {
        QLoggingCategory::setFilterRules(QStringLiteral("vantor.*=false"));
    }

    void strayListNamesInStyles_data()
    {
        // Each stylesheet closes a list early with an element named after another list,
        // while one of its items is still open, then puts entries in a list that has none
        // yet. Those entries belong to no item; the one proper cell format stays as it is.
        QTest::addColumn<QByteArray>("styles");
        QTest::newRow("font open, alignment in cell formats")
            << QByteArray("<fonts><font><fills/><cellXfs><alignment horizontal=\"center\"/><protection locked=\"0\"/>"
                          "<xf numFmtId=\"2\"/></cellXfs></font></fonts>");
        QTest::newRow("font open, edge in borders")
            << QByteArray("<fonts><font><fills/><borders><left style=\"thin\"/></borders></font></fonts>"
                          "<cellXfs><xf numFmtId=\"2\"/></cellXfs>");
        QTest::newRow("fill open, bold in fonts")
            << QByteArray("<fills><fill><fonts/><fonts><b/></fonts></fill></fills><cellXfs><xf numFmtId=\"2\"/></cellXfs>");
        QTest::newRow("border edge open, colour in fills")
            << QByteArray("<borders><border><left><fonts/><fills><fgColor rgb=\"FF00FF00\"/></fills></left></border>"
                          "</borders><cellXfs><xf numFmtId=\"2\"/></cellXfs>");
    }

    void strayListNamesInStyles()
    {
        QFETCH(QByteArray, styles);
        const QString path = m_dir.filePath(QStringLiteral("stray.xlsx"));
        QVERIFY(XlsxPackage::write(path, {{"xl/styles.xml", "<styleSheet>" + styles + "</styleSheet>"},
                                    {"xl/worksheets/sheet1.xml", kOneCell}}));

        XlsxWorkbookReader reader;
        QString err;
        QVERIFY2(reader.open(path, err), qPrintable(err));
        QCOMPARE(reader.styles().count(), 1);
        const XlsxCellStyle& s = reader.styles().style(0);
        QCOMPARE(s.numFmtId, 2);
        QVERIFY(!s.bold);
        QCOMPARE(int(s.look.horizontal), 0);
        QVERIFY(!s.look.unlocked);
        QCOMPARE(int(s.look.border[XlsxCellLook::Left]), 0);
        QCOMPARE(s.look.fgColor, -1);

        // The workbook still reads, and takes an append below its row.
        QCOMPARE(VantorUtils::ReadMultiSheetTables(path, ReadAllRows).value(0).second, (Table{{"7"}}));
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
        QTest::newRow("broken part") << QByteArray("<a:theme><a:clrScheme><a:dk1><a:srgbClr val=\"FF0000\"/></a:dk1>") << QByteArray("theme=\"1\"") << 0x000000;
        QTest::newRow("named part missing") << QByteArray() << QByteArray("theme=\"10\" tint=\"-1\"") << 0x000000;
    }

    void themeColours()
    {
        QFETCH(QByteArray, theme);
        QFETCH(QByteArray, color);
        QFETCH(int, rgb);
        const QString path = m_dir.filePath(QStringLiteral("theme.xlsx"));
        QByteArray rels(XlsxPackage::kWorkbookRels);
        if (!theme.isNull() || QByteArray(QTest::currentDataTag()) == "named part missing")
            rels.replace("</Relationships>", "<Relationship Id=\"rId9\" Target=\"theme/theme1.xml\" Type=\"http://"
                                             "schemas.openxmlformats.org/officeDocument/2006/relationships/theme\"/>"
                                             "</Relationships>");
        const QByteArray styles = "<styleSheet><fonts><font><color " + color + "/></font></fonts><fills><fill>"
            "<patternFill patternType=\"solid\"><fgColor " + color + "/></patternFill></fill></fills><borders><border>"
            "<left style=\"thin\"><color " + color + "/></left></border></borders><cellXfs><xf/></cellXfs></styleSheet>";
        QVERIFY(XlsxPackage::write(path, {{"xl/_rels/workbook.xml.rels", rels}, {"xl/theme/theme1.xml", theme},
                                          {"xl/styles.xml", styles}, {"xl/worksheets/sheet1.xml", kOneCell}}));
        XlsxWorkbookReader reader;
        QString err;
        QVERIFY2(reader.open(path, err), qPrintable(err));
        const XlsxCellLook& look = reader.styles().style(0).look;
        QCOMPARE(look.fontColor, rgb);
        QCOMPARE(look.fgColor, rgb);
        QCOMPARE(look.borderColor[XlsxCellLook::Left], rgb);
    }

    void cellsOutsideTheSheet_data()
    {
        // The cell is refused as it opens; nothing of it may reach the table afterwards.
        QTest::addColumn<QByteArray>("sheetData");
        QTest::newRow("column past the last, before any row") << QByteArray("<c r=\"XFE1\" t=\"s\"/>");
        QTest::newRow("row past the last") << QByteArray("<row r=\"1\"><c r=\"A1048577\"><v>1</v></c></row>");
        QTest::newRow("after a good cell") << QByteArray("<row r=\"1\"><c r=\"A1\"><v>1</v></c><c r=\"rightC2\"/></row>");
    }

    void cellsOutsideTheSheet()
    {
        QFETCH(QByteArray, sheetData);
        const QString path = m_dir.filePath(QStringLiteral("outside.xlsx"));
        QVERIFY(XlsxPackage::write(path, {{"xl/worksheets/sheet1.xml", "<worksheet><sheetData>" + sheetData + "</sheetData></worksheet>"}}));
        QString err;
        QVERIFY(VantorUtils::ReadTableData(path, ReadAllRows, err).isEmpty());
        QCOMPARE(err, QStringLiteral("Excel文件的行数或列数超出上限，请检查文件！"));
    }
};

QTEST_GUILESS_MAIN(TestXlsxParts)
#include "tst_xlsxparts.moc"
