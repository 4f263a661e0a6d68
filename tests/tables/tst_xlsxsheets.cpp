// Workbook writing: the names sheets get, a sheet that takes two tables, and appending to
// sheets that do not start at the first row or count their dates from 1904.
#include "VantorUtils.h"
#include "tables/XlsxDocument.h"
#include "xlsx_package.h"
#include "xlsx_probe.h"

#include <QTemporaryDir>
#include <QtTest>

using Table = QList<QStringList>;
using Sheets = QList<QPair<QString, Table>>;

class TestXlsxSheets : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;

    static QJsonArray dumpSheets(const QString& path) { return XlsxProbe::probe("dump", path).value("sheets").toArray(); }

    static QStringList namesOf(const QList<QPair<QString, Table>>& sheets)
    {
        QStringList names;
        for (const auto& s : sheets)
            names.append(s.first);
        return names;
    }

private slots:
    void sheetNamesMadeAcceptable_data()
    {
        QTest::addColumn<QStringList>("given");
        QTest::addColumn<QStringList>("written");
        QTest::newRow("a date with slashes") << QStringList{"2024/01/02"} << QStringList{"2024 01 02"};
        QTest::newRow("every refused character")
            << QStringList{"a\\b?c*d[e]f:g"} << QStringList{"a b c d e f g"};
        QTest::newRow("in apostrophes") << QStringList{"'持仓'"} << QStringList{"持仓"};
        QTest::newRow("apostrophe at either end") << QStringList{"'a", "b'"} << QStringList{" a", "b "};
        QTest::newRow("longer than 31 characters") << QStringList{QString(40, QChar(0x957F))}
                                                   << QStringList{QString(31, QChar(0x957F))};
        QTest::newRow("cut before an apostrophe") << QStringList{QString(30, 'x') + "'yz"}
                                                  << QStringList{QString(30, 'x') + " "};
        QTest::newRow("a character beyond the BMP is not split")
            << QStringList{QString(30, 'x') + QString::fromUtf8("\xF0\x9F\x98\x80") + "z"}
            << QStringList{QString(30, 'x') + QString::fromUtf8("\xF0\x9F\x98\x80")};
        QTest::newRow("control characters") << QStringList{"a\tb\nc", QString("d") + QChar(1) + "e"}
                                            << QStringList{"a b c", "d e"};
        QTest::newRow("a NUL does not cut the name") << QStringList{QString("x") + QChar(0) + "y", "x"}
                                                     << QStringList{"x y", "x"};
    }

    void sheetNamesMadeAcceptable()
    {
        // Names the file format refuses are mended instead of losing the whole export.
        QFETCH(QStringList, given);
        QFETCH(QStringList, written);
        Sheets sheets;
        for (int i = 0; i < given.size(); ++i)
            sheets.append({given.at(i), {{"h"}, {QString::number(i)}}});
        const QString path = m_dir.filePath("names.xlsx");
        QString err;
        QVERIFY(VantorUtils::WriteTableDatas(path, sheets, {}, err));
        const auto back = VantorUtils::ReadMultiSheetTables(path, ReadAllRows);
        QCOMPARE(namesOf(back), written);
        for (int i = 0; i < back.size(); ++i)
            QCOMPARE(back.at(i).second, (Table{{"h"}, {QString::number(i)}}));
    }

    void sheetNamedTwiceTakesTheSecondTableOverTheFirst_data()
    {
        QTest::addColumn<Sheets>("sheets");
        QTest::addColumn<QStringList>("names");
        QTest::addColumn<QList<Table>>("tables");
        const Table wide{{"a", "b", "c"}, {"1", "2", "3"}, {"4", "5", "6"}, {"7", "8", "9"}};
        const Table narrow{{"x"}, {"y"}};
        const Table over{{"x", "b", "c"}, {"y", "2", "3"}, {"4", "5", "6"}, {"7", "8", "9"}};
        QTest::newRow("same name") << Sheets{{"持仓", wide}, {"委托", {{"z"}}}, {"持仓", narrow}}
                                   << QStringList{"持仓", "委托"} << QList<Table>{over, {{"z"}}};
        QTest::newRow("names differing in case") << Sheets{{"Book", wide}, {"BOOK", narrow}} << QStringList{"Book"}
                                                 << QList<Table>{over};
        QTest::newRow("a made name that is taken") << Sheets{{"Sheet2", wide}, {"", narrow}} << QStringList{"Sheet2"}
                                                   << QList<Table>{over};
        QTest::newRow("same name once mended") << Sheets{{"a/b", wide}, {"a:b", narrow}} << QStringList{"a b"}
                                               << QList<Table>{over};
        QTest::newRow("longer second table") << Sheets{{"s", narrow}, {"s", wide}} << QStringList{"s"}
                                             << QList<Table>{wide};
    }

    void sheetNamedTwiceTakesTheSecondTableOverTheFirst()
    {
        QFETCH(Sheets, sheets);
        QFETCH(QStringList, names);
        QFETCH(QList<Table>, tables);
        const QString path = m_dir.filePath("twice.xlsx");
        QString err;
        QVERIFY(VantorUtils::WriteTableDatas(path, sheets, {}, err));
        const auto back = VantorUtils::ReadMultiSheetTables(path, ReadAllRows);
        QCOMPARE(namesOf(back), names);
        for (int i = 0; i < back.size(); ++i)
            QCOMPARE(back.at(i).second, tables.at(i));
    }

    void sheetNamedTwiceKeepsEachTablesFormats()
    {
        // Each table's cells keep the number format their own column had when written.
        const QString path = m_dir.filePath("twice-formats.xlsx");
        const Sheets sheets{{"s", {{"n"}, {"1.5"}, {"2.25"}, {"3"}}}, {"s", {{"n"}, {"7"}}}};
        QString err;
        QVERIFY(VantorUtils::WriteTableDatas(path, sheets, {{"s", {{0, ExportFormatNumber}}}}, err));
        const QJsonArray dumped = dumpSheets(path);
        if (dumped.isEmpty())
            QSKIP("python3-openpyxl is not available");
        QHash<QString, QString> formats;
        QHash<QString, double> values;
        for (const QJsonValue& v : dumped.first().toObject().value("cells").toArray()) {
            formats.insert(v.toObject().value("ref").toString(), v.toObject().value("format").toString());
            values.insert(v.toObject().value("ref").toString(), v.toObject().value("value").toDouble());
        }
        QCOMPARE(values.value("A2"), 7.0);
        QCOMPARE(formats.value("A2"), QStringLiteral("0"));
        QCOMPARE(values.value("A3"), 2.25);
        QCOMPARE(formats.value("A3"), QStringLiteral("0.00"));
    }

    void appendToSheetBelowTheFirstRow()
    {
        // The rows already there are counted from the sheet's first row to its last, and the
        // table is read from row and column 1 whatever the sheet's first cell.
        const QString path = m_dir.filePath("offset.xlsx");
        {
            XlsxDocument doc(path);
            for (int r = 3; r <= 5; ++r) {
                QVERIFY(doc.write(r, 2, QStringLiteral("b%1").arg(r), {}));
                QVERIFY(doc.write(r, 3, QStringLiteral("c%1").arg(r), {}));
            }
            QVERIFY(doc.save());
        }
        QString err;
        QCOMPARE(VantorUtils::ReadTableData(path, ReadAllRows, err),
                 (Table{{"", "", ""}, {"", "", ""}, {"", "b3", "c3"}, {"", "b4", "c4"}, {"", "b5", "c5"}}));
        // Three rows were there, so the new ones start at row 4, over what rows 4 and 5 held.
        QVERIFY(VantorUtils::WriteTableData({{"h1", "h2"}, {"n1", "m1"}, {"n2"}, {"n3"}}, path, {}, false,
                                            ExportFileCodeUtf8, true, err));
        QCOMPARE(VantorUtils::ReadTableData(path, SkipEmptyRows, err),
                 (Table{{"", "b3", "c3"}, {"n1", "m1", "c4"}, {"n2", "b5", "c5"}, {"n3", "", ""}}));
    }

    void appendToSheetStoredOutOfOrder()
    {
        // Rows and cells a program stored out of order are written again in order.
        const QString path = m_dir.filePath("unordered.xlsx");
        QVERIFY(XlsxPackage::write(
            path, {{"xl/worksheets/sheet1.xml",
                    "<worksheet><sheetData>"
                    "<row r=\"2\"><c r=\"B2\"><v>4</v></c><c r=\"A2\"><v>3</v></c></row>"
                    "<row r=\"1\"><c r=\"B1\" t=\"inlineStr\"><is><t>b</t></is></c>"
                    "<c r=\"A1\" t=\"inlineStr\"><is><t>a</t></is></c></row>"
                    "</sheetData></worksheet>"}}));
        QString err;
        QVERIFY(VantorUtils::WriteTableData({{"a", "b"}, {"5", "6"}}, path, {}, false, ExportFileCodeUtf8, true, err));
        QCOMPARE(VantorUtils::ReadTableData(path, ReadAllRows, err), (Table{{"a", "b"}, {"3", "4"}, {"5", "6"}}));
    }

    void appendedCellsTakeTheirRowsAndColumnsFormats()
    {
        // A new cell with no format of its own shows its row's format, else its column's,
        // in every row alike (the last row included).
        const QString path = m_dir.filePath("dressed.xlsx");
        QVERIFY(XlsxPackage::write(
            path, {{"xl/styles.xml", "<styleSheet><numFmts><numFmt numFmtId=\"164\" formatCode=\"0.00\"/></numFmts>"
                                     "<fonts><font><sz val=\"11\"/></font><font><b/><sz val=\"11\"/></font></fonts>"
                                     "<cellXfs><xf numFmtId=\"0\"/><xf numFmtId=\"164\"/><xf numFmtId=\"0\" fontId=\"1\"/></cellXfs>"
                                     "</styleSheet>"},
                   {"xl/worksheets/sheet1.xml",
                    "<worksheet><cols><col min=\"2\" max=\"2\" style=\"1\"/></cols><sheetData>"
                    "<row r=\"1\"><c r=\"A1\" t=\"inlineStr\"><is><t>h</t></is></c></row>"
                    "<row r=\"2\"><c r=\"A2\"><v>1</v></c></row><row r=\"4\" s=\"2\" customFormat=\"1\"/>"
                    "</sheetData></worksheet>"}}));
        QString err;
        QVERIFY(VantorUtils::WriteTableData({{"h", "b"}, {"3", "x"}, {"4", "y"}, {"5", "z"}}, path,
                                            {{0, ExportFormatNumber}}, false, ExportFileCodeUtf8, true, err));
        const QJsonArray dumped = dumpSheets(path);
        if (dumped.isEmpty())
            QSKIP("python3-openpyxl is not available");
        QStringList looks;
        for (const QJsonValue& v : dumped.first().toObject().value("cells").toArray()) {
            const QJsonObject c = v.toObject();
            looks << c.value("ref").toString() + " " + c.value("format").toString() + (c.value("bold").toBool() ? " bold" : "");
        }
        QCOMPARE(looks, (QStringList{"A1 General", "A2 General", "A3 0", "B3 0.00", "A4 General bold", "B4 General bold",
                                     "A5 0", "B5 0.00"}));
    }

    void appendNamesWhatItCannotKeep()
    {
        // The rewrite has no place for some of what a sheet holds; the log says what goes.
        const QString path = m_dir.filePath("rich.xlsx");
        QVERIFY(XlsxPackage::write(
            path, {{"xl/worksheets/sheet1.xml",
                    "<worksheet><sheetData><row r=\"1\"><c r=\"A1\"><v>1</v></c><c r=\"B1\" t=\"e\"><v>#N/A</v></c>"
                    "<c r=\"C1\" t=\"s\"><v>0</v></c></row></sheetData>"
                    "<autoFilter ref=\"A1:A1\"/><conditionalFormatting sqref=\"A1\"><cfRule type=\"expression\" priority=\"1\">"
                    "<formula>1</formula></cfRule></conditionalFormatting><headerFooter differentOddEven=\"1\">"
                    "<oddHeader>&amp;C&amp;A</oddHeader><evenHeader>even</evenHeader></headerFooter>"
                    "<legacyDrawing id=\"rId9\"/><extLst><ext><conditionalFormattings/><sparklineGroups/></ext></extLst>"
                    "</worksheet>"},
                   {"xl/sharedStrings.xml", "<sst><si><r><rPr><b/></rPr><t>粗</t></r><r><t>细</t></r></si></sst>"}}));
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral(
                                               "sheet Sheet1 loses what the rewrite cannot keep: conditional formats, the auto "
                                               "filter, comments, headers and footers of even or first pages, sparklines$")));
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("sheet Sheet1 keeps 1 error values")));
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("1 texts of mixed formatting keep their text")));
        QString err;
        QVERIFY(VantorUtils::WriteTableData({{"h"}, {"2"}}, path, {}, false, ExportFileCodeUtf8, true, err));
        QCOMPARE(VantorUtils::ReadTableData(path, ReadAllRows, err), (Table{{"1", "#N/A", "粗细"}, {"2", "", ""}}));
    }

    void appendTo1904WorkbookKeepsItsDates()
    {
        // The rewritten workbook counts from 1900: old dates move with it, times of day and
        // elapsed times do not.
        const QString path = m_dir.filePath("epoch1904.xlsx");
        const bool made = XlsxProbe::python({QStringLiteral("-c"),
                                             QStringLiteral("import datetime,sys,openpyxl\n"
                                                            "wb=openpyxl.Workbook(); wb.epoch=openpyxl.utils.datetime.CALENDAR_MAC_1904\n"
                                                            "ws=wb.active; ws.title='Sheet1'\n"
                                                            "ws['A1']=datetime.date(2024,1,2)\n"
                                                            "ws['A2']=datetime.datetime(2024,1,2,6,0,0)\n"
                                                            "ws['A3']=datetime.time(13,30)\n"
                                                            "ws['A4']=1.5; ws['A4'].number_format='[h]:mm'\n"
                                                            "ws['A5']=12.5\n"
                                                            "wb.save(sys.argv[1])\n"),
                                             path});
        if (!made)
            QSKIP("python3-openpyxl is not available");
        QString err;
        const Table before = VantorUtils::ReadTableData(path, ReadAllRows, err);
        QCOMPARE(before.at(0).first(), QStringLiteral("2024-01-02"));
        QVERIFY(VantorUtils::WriteTableData({{"h"}, {"new"}}, path, {}, false, ExportFileCodeUtf8, true, err));
        const Table after = VantorUtils::ReadTableData(path, ReadAllRows, err);
        QCOMPARE(after.size(), 6);
        QCOMPARE(after.mid(0, 3), before.mid(0, 3));
        QCOMPARE(after.at(4), before.at(4));
        QCOMPARE(after.at(5), QStringList{"new"});
        const QJsonArray cells = dumpSheets(path).first().toObject().value("cells").toArray();
        QCOMPARE(cells.at(0).toObject().value("value").toString(), QStringLiteral("2024-01-02 00:00:00"));
        QCOMPARE(cells.at(4).toObject().value("value").toDouble(), 12.5);
    }

    void appendKeepsIsoDatesAsDates()
    {
        // Dates a program stored as ISO text stay dates; the writer stores them as numbers.
        const QString path = m_dir.filePath("iso.xlsx");
        QVERIFY(XlsxPackage::write(
            path, {{"xl/styles.xml", "<styleSheet><numFmts><numFmt numFmtId=\"164\" formatCode=\"yyyy-mm-dd\"/></numFmts>"
                                     "<cellXfs><xf numFmtId=\"0\"/><xf numFmtId=\"164\"/><xf numFmtId=\"22\"/></cellXfs></styleSheet>"},
                   {"xl/worksheets/sheet1.xml",
                    "<worksheet><sheetData><row r=\"1\">"
                    "<c r=\"A1\" t=\"d\" s=\"1\"><v>2023-03-15</v></c>"
                    "<c r=\"B1\" t=\"d\" s=\"2\"><v>1900-02-28T18:00:00</v></c>"
                    "<c r=\"C1\" t=\"d\" s=\"2\"><v>1899-12-31</v></c>"
                    "<c r=\"D1\" t=\"d\"><v>2023-03-15</v></c>"
                    "</row></sheetData></worksheet>"}}));
        QString err;
        const Table before = VantorUtils::ReadTableData(path, ReadAllRows, err);
        QCOMPARE(before, (Table{{"2023-03-15", "1900-02-28T18:00:00.000", "1899-12-31", "2023-03-15"}}));
        QVERIFY(VantorUtils::WriteTableData({{"h"}, {"new"}}, path, {}, false, ExportFileCodeUtf8, true, err));
        // A date before 1900 has no day number, and a cell without a date format has nothing
        // to show one with: both stay text.
        QCOMPARE(VantorUtils::ReadTableData(path, ReadAllRows, err),
                 (Table{{"2023-03-15", "1900-02-28T18:00:00.000", "1899-12-31", "2023-03-15"}, {"new", "", "", ""}}));
        const QJsonArray cells = dumpSheets(path).first().toObject().value("cells").toArray();
        if (!cells.isEmpty()) {
            QCOMPARE(cells.at(0).toObject().value("value").toString(), QStringLiteral("2023-03-15 00:00:00"));
            QCOMPARE(cells.at(2).toObject().value("value").toString(), QStringLiteral("1899-12-31"));
        }
    }

    void textLikeAnEscapeReadsBack()
    {
        // Control characters are stored as _xHHHH_ and come back as they were; text that
        // merely looks like that is kept apart from them, in new cells and in old ones
        // rewritten by an append.
        const QString path = m_dir.filePath("lookalike.xlsx");
        // Also characters no XML may hold, and a leading byte-order mark, which is text too.
        const QString unfit = QStringLiteral("n") + QChar(0) + QStringLiteral("ul") + QChar(0xFFFE) + QChar(0xFFFF);
        const Table data{{"h1", "h2"}, {"a\r\nb", "x\x01y"}, {"c\rd", "e\x1f"},
                         {"lit_x0041_", "a\x01_x0001_"}, {"_x005F_", "_x12_"},
                         {QString(QChar(0xFEFF)) + QStringLiteral("bom"), unfit}};
        QString err;
        QVERIFY(VantorUtils::WriteTableData(data, path, {}, false, ExportFileCodeUtf8, false, err));
        QCOMPARE(VantorUtils::ReadTableData(path, ReadAllRows, err), data);
        QVERIFY(VantorUtils::WriteTableData({{"h1"}, {"_x0042_"}}, path, {}, false, ExportFileCodeUtf8, true, err));
        QCOMPARE(VantorUtils::ReadTableData(path, ReadAllRows, err), (data + Table{{"_x0042_", ""}}));
    }

    void longTextKeepsWhatACellHolds_data()
    {
        QTest::addColumn<QString>("cell");
        QTest::addColumn<QString>("kept");
        QTest::newRow("plain text past the limit") << QString(40000, 'a') << QString(32767, 'a');
        const QVector<uint> faces(20000, 0x1F600);
        const QString astral = QString::fromUcs4(faces.constData(), faces.size());
        QTest::newRow("40000 units, 20000 characters: whole") << astral << astral;
        // The underscore is escaped, and the escape is cut with the text.
        const QString lookalike = QString(32762, 'a') + QStringLiteral("_x0041_");
        QTest::newRow("escape at the cut") << lookalike + QString(40000, 'b') << QString(32762, 'a') + QStringLiteral("_x005");
        // Each NUL is stored as a seven-character escape: more than a string can hold.
        QTest::newRow("NULs escaped past what a string holds") << QString(154000000, QChar(0)) << QString(32767 / 7, QChar(0));
    }

    void longTextKeepsWhatACellHolds()
    {
        QFETCH(QString, cell);
        QFETCH(QString, kept);
        const QString path = m_dir.filePath("long-text.xlsx");
        QString err;
        QVERIFY(VantorUtils::WriteTableData({{"h"}, {cell}}, path, {}, false, ExportFileCodeUtf8, false, err));
        QCOMPARE(VantorUtils::ReadTableData(path, ReadAllRows, err), (Table{{"h"}, {kept}}));
    }
};

QTEST_GUILESS_MAIN(TestXlsxSheets)
#include "tst_xlsxsheets.moc"
