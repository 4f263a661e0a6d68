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
