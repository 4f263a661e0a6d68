// Workbooks as other programs write them: date systems, escaped characters, rows stored
// out of order, unusual part names and encodings, date cells, formulas filled over a
// range, array formulas, and numbers read under a locale that writes decimals with a comma.
#include "VantorUtils.h"
#include "tables/XlsxWorkbookReader.h"

#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QtTest>

#include <clocale>

#include "xlsx_package.h"
#include "xlsx_probe.h"

using Table = QList<QStringList>;

namespace {

const char kDateStyles[] =
    "<styleSheet><numFmts><numFmt numFmtId=\"164\" formatCode=\"yyyy-mm-dd\"/></numFmts>"
    "<cellXfs><xf numFmtId=\"0\"/><xf numFmtId=\"164\" applyNumberFormat=\"1\"/><xf numFmtId=\"22\"/></cellXfs></styleSheet>";

QByteArray sheet(const QByteArray& rows)
{
    return "<worksheet><sheetData>" + rows + "</sheetData></worksheet>";
}

QByteArray workbook(const QByteArray& properties)
{
    return "<workbook xmlns:r=\"http://schemas.openxmlformats.org/officeDocument/2006/relationships\">" + properties
        + "<sheets><sheet name=\"Sheet1\" sheetId=\"1\" r:id=\"rId1\"/></sheets></workbook>";
}

QByteArray workbookRels(const QByteArray& sheetTarget)
{
    QByteArray rels = XlsxPackage::kWorkbookRels;
    return rels.replace("worksheets/sheet1.xml", sheetTarget);
}

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

    Table read(const Parts& parts, ReadTableCfg cfg = ReadAllRows)
    {
        QString err;
        return VantorUtils::ReadTableData(package(parts), cfg, err);
    }

private slots:
    void initTestCase()
    {
        QLoggingCategory::setFilterRules(QStringLiteral("vantor.*.debug=false\nvantor.*.info=false"));
    }

    void dateSystem_data()
    {
        QTest::addColumn<QByteArray>("properties");
        QTest::addColumn<QString>("date");
        const QByteArray ext = "<extLst><ext uri=\"{140A7094-0E35-4892-8432-C4D2E57EDEB5}\" "
                               "xmlns:x15=\"http://schemas.microsoft.com/office/spreadsheetml/2010/11/main\">"
                               "<x15:workbookPr chartTrackingRefBase=\"1\"/></ext></extLst>";
        QTest::newRow("1900") << QByteArray("<workbookPr defaultThemeVersion=\"124226\"/>") << "2010-12-31";
        QTest::newRow("1904") << QByteArray("<workbookPr date1904=\"1\"/>") << "2015-01-01";
        QTest::newRow("1904 written as true") << QByteArray("<workbookPr date1904=\"true\"/>") << "2015-01-01";
        QTest::newRow("1904, then extension properties") << "<workbookPr date1904=\"1\"/>" + ext << "2015-01-01";
        QTest::newRow("1900, then extension properties claiming 1904")
            << "<workbookPr date1904=\"0\"/>" + QByteArray(ext).replace("chartTrackingRefBase", "date1904") << "2010-12-31";
    }

    void dateSystem()
    {
        QFETCH(QByteArray, properties);
        QFETCH(QString, date);
        const Table rows = read({{"xl/workbook.xml", workbook(properties)},
                                 {"xl/styles.xml", kDateStyles},
                                 {"xl/worksheets/sheet1.xml", sheet("<row r=\"1\"><c r=\"A1\" s=\"1\"><v>40543</v></c></row>")}});
        QCOMPARE(rows, (Table{{date}}));
    }

    void escapedCharacters_data()
    {
        QTest::addColumn<QByteArray>("stored");
        QTest::addColumn<QString>("text");
        QTest::newRow("carriage return") << QByteArray("a_x000D_\nb") << QStringLiteral("a\r\nb");
        QTest::newRow("control character") << QByteArray("x_x0001_y") << QStringLiteral("x\x01y");
        QTest::newRow("lower-case digits") << QByteArray("a_x000d_b") << QStringLiteral("a\rb");
        QTest::newRow("escaped underscore") << QByteArray("_x005F_x0041_") << QStringLiteral("_x0041_");
        QTest::newRow("underscore before an escape") << QByteArray("__x0042_") << QStringLiteral("_B");
        QTest::newRow("surrogate pair") << QByteArray("_xD83D__xDE00_") << QString::fromUtf8("\xF0\x9F\x98\x80");
        QTest::newRow("not hex") << QByteArray("_x00G1_") << QStringLiteral("_x00G1_");
        QTest::newRow("unterminated") << QByteArray("v_x0041") << QStringLiteral("v_x0041");
        QTest::newRow("upper-case x") << QByteArray("_X0041_") << QStringLiteral("_X0041_");
    }

    void escapedCharacters()
    {
        QFETCH(QByteArray, stored);
        QFETCH(QString, text);
        const Table rows = read({{"xl/sharedStrings.xml", "<sst><si><t>" + stored + "</t></si></sst>"},
                                 {"xl/worksheets/sheet1.xml",
                                  sheet("<row r=\"1\"><c r=\"A1\" t=\"s\"><v>0</v></c><c r=\"B1\" t=\"inlineStr\"><is><t>" + stored
                                        + "</t></is></c><c r=\"C1\" t=\"str\"><v>" + stored + "</v></c></row>")}});
        // Shared, inline and in-cell text (some writers keep every text in the cell) alike.
        QCOMPARE(rows, (Table{{text, text, text}}));
    }

    void rowsOutOfOrder_data()
    {
        QTest::addColumn<QByteArray>("rows");
        QTest::addColumn<int>("cfg");
        QTest::addColumn<Table>("table");
        const auto num = [](const char* ref, const char* v) {
            return QByteArray("<c r=\"") + ref + "\"><v>" + v + "</v></c>";
        };
        const auto str = [](const char* ref, const char* v) {
            return QByteArray("<c r=\"") + ref + "\" t=\"inlineStr\"><is><t>" + v + "</t></is></c>";
        };
        const auto row = [](int r, const QByteArray& cells) {
            return "<row r=\"" + QByteArray::number(r) + "\">" + cells + "</row>";
        };
        QTest::newRow("reversed") << row(2, num("A2", "2")) + row(1, num("A1", "1")) << int(ReadAllRows)
                                  << Table{{"1"}, {"2"}};
        const QByteArray revisit = row(1, num("A1", "1")) + row(3, num("A3", "3")) + row(1, str("B1", "b"));
        QTest::newRow("row revisited") << revisit << int(ReadAllRows) << Table{{"1", "b"}, {"", ""}, {"3", ""}};
        QTest::newRow("row revisited, empty rows skipped") << revisit << int(SkipEmptyRows) << Table{{"1", "b"}, {"3", ""}};
        QTest::newRow("empty row filled late")
            << row(1, num("A1", "1")) + row(2, str("A2", "")) + row(3, num("A3", "3")) + row(2, str("B2", "x"))
            << int(SkipEmptyRows) << Table{{"1", ""}, {"", "x"}, {"3", ""}};
        const QByteArray emptyLate = row(2, num("A2", "2")) + row(1, str("A1", " "));
        QTest::newRow("late empty row") << emptyLate << int(ReadAllRows) << Table{{""}, {"2"}};
        QTest::newRow("late empty row, skipped") << emptyLate << int(SkipEmptyRows) << Table{{"2"}};
        QTest::newRow("later cell wins")
            << row(2, str("A2", "old")) + row(1, num("A1", "1")) + row(2, str("A2", "new")) << int(ReadAllRows)
            << Table{{"1"}, {"new"}};
        QTest::newRow("late rows beyond the last")
            << row(3, num("A3", "3")) + row(1, num("A1", "1")) + row(5, num("B5", "5")) << int(ReadAllRows)
            << Table{{"1", ""}, {"", ""}, {"3", ""}, {"", ""}, {"", "5"}};
        QTest::newRow("columns out of order") << row(1, str("C1", "c") + str("A1", "a")) << int(ReadAllRows)
                                              << Table{{"a", "", "c"}};
    }

    void rowsOutOfOrder()
    {
        QFETCH(QByteArray, rows);
        QFETCH(int, cfg);
        QFETCH(Table, table);
        QCOMPARE(read({{"xl/worksheets/sheet1.xml", sheet(rows)}}, ReadTableCfg(cfg)), table);
    }

    void partNames_data()
    {
        QTest::addColumn<Parts>("parts");
        const QByteArray oneCell = sheet("<row r=\"1\"><c r=\"A1\"><v>1</v></c></row>");
        QTest::newRow("entry named with backslashes")
            << Parts{{"xl/worksheets/sheet1.xml", QByteArray()}, {"xl\\worksheets\\sheet1.xml", oneCell}};
        QTest::newRow("every entry named with backslashes")
            << Parts{{"xl/worksheets/sheet1.xml", QByteArray()}, {"xl\\worksheets\\sheet1.xml", oneCell},
                     {"xl/workbook.xml", QByteArray()}, {"xl\\workbook.xml", XlsxPackage::kWorkbook},
                     {"xl/_rels/workbook.xml.rels", QByteArray()}, {"xl\\_rels\\workbook.xml.rels", XlsxPackage::kWorkbookRels},
                     {"_rels/.rels", QByteArray()}, {"_rels\\.rels", XlsxPackage::kPackageRels}};
        QTest::newRow("target with backslashes")
            << Parts{{"xl/_rels/workbook.xml.rels", workbookRels("worksheets\\sheet1.xml")}, {"xl/worksheets/sheet1.xml", oneCell}};
        QTest::newRow("percent-encoded target")
            << Parts{{"xl/_rels/workbook.xml.rels", workbookRels("worksheets/sheet%201.xml")},
                     {"xl/worksheets/sheet 1.xml", oneCell}};
        QTest::newRow("percent sign in the entry name")
            << Parts{{"xl/_rels/workbook.xml.rels", workbookRels("worksheets/sheet%201.xml")},
                     {"xl/worksheets/sheet%201.xml", oneCell}};
        QTest::newRow("absolute target")
            << Parts{{"xl/_rels/workbook.xml.rels", workbookRels("/xl/worksheets/sheet1.xml")}, {"xl/worksheets/sheet1.xml", oneCell}};
    }

    void partNames()
    {
        QFETCH(Parts, parts);
        QCOMPARE(read(parts), (Table{{"1"}}));
    }

    void partEncodings_data()
    {
        QTest::addColumn<QByteArray>("part");
        QTest::addColumn<QString>("text");
        const QString cafe = QString::fromUtf8("caf\xC3\xA9");
        const QByteArray body = sheet("<row r=\"1\"><c r=\"A1\" t=\"inlineStr\"><is><t>caf\xC3\xA9</t></is></c></row>");
        QTest::newRow("UTF-8") << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>" + body << cafe;
        QTest::newRow("ISO-8859-1") << QByteArray("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>")
                                           + QByteArray(body).replace("\xC3\xA9", "\xE9")
                                    << cafe;
        QTest::newRow("US-ASCII with a character reference")
            << QByteArray("<?xml version=\"1.0\" encoding=\"US-ASCII\"?>") + QByteArray(body).replace("\xC3\xA9", "&#233;")
            << cafe;
        const QString decl = QStringLiteral("<?xml version=\"1.0\" encoding=\"UTF-16\"?>") + QString::fromUtf8(body);
        QByteArray le("\xFF\xFE", 2);
        QByteArray be("\xFE\xFF", 2);
        for (const QChar ch : decl) {
            le.append(char(ch.unicode() & 0xFF)).append(char(ch.unicode() >> 8));
            be.append(char(ch.unicode() >> 8)).append(char(ch.unicode() & 0xFF));
        }
        QTest::newRow("UTF-16LE") << le << cafe;
        QTest::newRow("UTF-16BE") << be << cafe;
        QTest::newRow("an encoding the parser does not know")
            << "<?xml version=\"1.0\" encoding=\"GB2312\"?>" + body
            << QStringLiteral("Excel文件中的内容格式错误，请检查文件并重新编辑保存后再试！");
    }

    void partEncodings()
    {
        QFETCH(QByteArray, part);
        QFETCH(QString, text);
        QString err;
        const Table rows = VantorUtils::ReadTableData(package({{"xl/worksheets/sheet1.xml", part}}), ReadAllRows, err);
        QCOMPARE(rows.isEmpty() ? err : rows.value(0).value(0), text);
    }

    void dateCells_data()
    {
        QTest::addColumn<QByteArray>("cell");
        QTest::addColumn<QString>("text");
        QTest::newRow("negative number in a date format") << QByteArray("s=\"1\"><v>-5</v>") << "-5";
        QTest::newRow("negative fraction in a date-time format") << QByteArray("s=\"2\"><v>-0.25</v>") << "-0.25";
        QTest::newRow("number of a date and time") << QByteArray("s=\"2\"><v>45000.5</v>") << "2023-03-15T12:00:00.000";
        QTest::newRow("ISO date and time") << QByteArray("t=\"d\"><v>2023-03-15T12:00:00</v>") << "2023-03-15T12:00:00.000";
        QTest::newRow("ISO date and time in a date format") << QByteArray("t=\"d\" s=\"1\"><v>2023-03-15T12:00:00</v>")
                                                            << "2023-03-15T12:00:00.000";
        QTest::newRow("ISO date") << QByteArray("t=\"d\"><v>2023-03-15</v>") << "2023-03-15";
        QTest::newRow("ISO midnight") << QByteArray("t=\"d\"><v>2023-03-15T00:00:00</v>") << "2023-03-15";
        QTest::newRow("ISO time") << QByteArray("t=\"d\"><v>12:30:00</v>") << "12:30:00.000";
        QTest::newRow("ISO with milliseconds and zone") << QByteArray("t=\"d\"><v>2023-03-15T12:00:00.250Z</v>")
                                                        << "2023-03-15T12:00:00.250";
        QTest::newRow("ISO nonsense stays text") << QByteArray("t=\"d\"><v>soon</v>") << "soon";
    }

    void dateCells()
    {
        QFETCH(QByteArray, cell);
        QFETCH(QString, text);
        const Parts parts{{"xl/styles.xml", kDateStyles},
                          {"xl/worksheets/sheet1.xml", sheet("<row r=\"1\"><c r=\"A1\" " + cell + "</c></row>")}};
        QCOMPARE(read(parts), (Table{{text}}));
        QCOMPARE(read(parts, SkipEmptyRows), (Table{{text}})); // the cell is not empty
    }

    // Cells that carry no value: each reads as its own nothing, and one in a date format as
    // the number 0, midnight, while its row still counts as empty.
    void cellsWithoutValue_data()
    {
        QTest::addColumn<QByteArray>("rows");
        QTest::addColumn<Table>("all");
        QTest::addColumn<Table>("nonEmpty");
        const QByteArray x = "<c r=\"B1\" t=\"inlineStr\"><is><t>x</t></is></c>";
        QTest::newRow("inline string without its text")
            << QByteArray("<row r=\"1\"><c r=\"A1\" t=\"inlineStr\"><is><t>first</t></is></c><c r=\"B1\" t=\"inlineStr\"/>"
                          "<c r=\"C1\" t=\"inlineStr\"></c></row>")
            << Table{{"first", "", ""}} << Table{{"first", "", ""}};
        QTest::newRow("blank in a date format")
            << "<row r=\"1\"><c r=\"A1\" s=\"1\"/>" + x + "</row><row r=\"2\"><c r=\"A2\" s=\"2\"/></row>"
            << Table{{"00:00:00.000", "x"}, {"00:00:00.000", ""}} << Table{{"00:00:00.000", "x"}};
        QTest::newRow("formula never calculated, in a date format")
            << "<row r=\"1\"><c r=\"A1\" s=\"1\"><f>TODAY()</f></c>" + x + "</row>" << Table{{"00:00:00.000", "x"}}
            << Table{{"00:00:00.000", "x"}};
        QTest::newRow("blank in a plain format") << "<row r=\"1\"><c r=\"A1\" s=\"0\"/>" + x + "</row>"
                                                 << Table{{"", "x"}} << Table{{"", "x"}};
    }

    void cellsWithoutValue()
    {
        QFETCH(QByteArray, rows);
        QFETCH(Table, all);
        QFETCH(Table, nonEmpty);
        const Parts parts{{"xl/styles.xml", kDateStyles}, {"xl/worksheets/sheet1.xml", sheet(rows)}};
        QCOMPARE(read(parts), all);
        QCOMPARE(read(parts, SkipEmptyRows), nonEmpty);
    }

    void millisecondsRoundTrip()
    {
        // A moment stored as a fraction of a day reads back to the very millisecond.
        QRandomGenerator rng(11);
        for (int i = 0; i < 20000; ++i) {
            const qint64 ms = rng.bounded(86400000);
            const int day = 61 + rng.bounded(2900000);
            const double number = day + double(ms) / 86400000.0;
            const QVariant v = XlsxWorkbookReader::dateTimeFromNumber(number, false);
            const QTime time = ms == 0 ? QTime(0, 0) : v.toDateTime().time();
            QCOMPARE(time.msecsSinceStartOfDay(), int(ms));
        }
    }

    void sharedFormulas()
    {
        // B2:B4 and C2:D2 are each one formula filled over the range.
        const QByteArray rows =
            "<row r=\"1\"><c r=\"A1\" t=\"inlineStr\"><is><t>n</t></is></c></row>"
            "<row r=\"2\"><c r=\"A2\"><v>1</v></c><c r=\"B2\"><f t=\"shared\" ref=\"B2:B4\" si=\"0\">A2*2+$A$2</f><v>3</v></c>"
            "<c r=\"C2\"><f t=\"shared\" ref=\"C2:D2\" si=\"1\">SUM(A2:A$4)&amp;\"A2\"</f><v>6</v></c>"
            "<c r=\"D2\"><f t=\"shared\" si=\"1\"/><v>6</v></c></row>"
            "<row r=\"3\"><c r=\"A3\"><v>2</v></c><c r=\"B3\"><f t=\"shared\" si=\"0\"/><v>5</v></c></row>"
            "<row r=\"4\"><c r=\"A4\"><v>3</v></c><c r=\"B4\"><f t=\"shared\" si=\"0\"/><v>7</v></c></row>";
        const QString path = package({{"xl/worksheets/sheet1.xml", sheet(rows)}});
        const char* formulas[] = {"A2*2+$A$2", "SUM(A2:A$4)&\"A2\"", "SUM(B2:B$4)&\"A2\"", "A3*2+$A$2", "A4*2+$A$2"};
        for (const char* f : formulas)
            QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("公式：") + QRegularExpression::escape(f) + "$"));
        QString err;
        const Table table = VantorUtils::ReadTableData(path, ReadAllRows, err);
        QCOMPARE(table.size(), 4);
        QVERIFY(!err.isEmpty());

        // Appending keeps every one of them a formula, each with its own references.
        QVERIFY(VantorUtils::WriteTableData({{"n"}, {"9"}}, path, {}, false, ExportFileCodeUtf8, true, err));
        const QJsonObject dump = XlsxProbe::probe("dump", path);
        if (dump.isEmpty())
            QSKIP("python3-openpyxl is not available");
        QMap<QString, QString> values;
        for (const QJsonValue& c : dump.value("sheets").toArray().first().toObject().value("cells").toArray())
            values.insert(c.toObject().value("ref").toString(), c.toObject().value("value").toVariant().toString());
        QCOMPARE(values.value("B2"), QStringLiteral("=A2*2+$A$2"));
        QCOMPARE(values.value("B3"), QStringLiteral("=A3*2+$A$2"));
        QCOMPARE(values.value("B4"), QStringLiteral("=A4*2+$A$2"));
        QCOMPARE(values.value("D2"), QStringLiteral("=SUM(B2:B$4)&\"A2\""));
        QCOMPARE(values.value("A5"), QStringLiteral("9"));
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
            void cell(const XlsxCell& c) override
            {
                byCell.insert(QStringLiteral("%1,%2").arg(c.row).arg(c.col), {c.arrayLastRow, c.arrayLastCol});
            }
        };
        for (const int padding : {0, int(XlsxWorkbookReader::kPipelineBytes)}) {
            const QString path = package(
                {{"xl/worksheets/sheet1.xml",
                  sheet("<row r=\"1\"><c r=\"A1\"><v>1</v></c></row>" + QByteArray(padding, ' ') + "<row r=\"2\"><c r=\"C2\">"
                        + formula + "<v>2</v></c><c r=\"D2\"><v>3</v></c></row>")}});
            XlsxWorkbookReader reader;
            Ranges ranges;
            QString err;
            QVERIFY(reader.open(path, err));
            QVERIFY(reader.readSheet(0, ranges, err));
            QCOMPARE(ranges.byCell.value("2,3"), qMakePair(lastRow, lastCol));
            QCOMPARE(ranges.byCell.value("2,4"), qMakePair(0, 0));
        }
    }

    void numbersIgnoreTheLocale()
    {
        // Under a locale that writes "1,5", stored numbers still use the point.
        const QString locales = m_dir.filePath(QStringLiteral("locales"));
        QDir().mkpath(locales);
        QProcess def;
        def.start(QStringLiteral("localedef"), {"-i", "de_DE", "-f", "UTF-8", locales + "/de_DE.UTF-8"});
        def.waitForFinished(60000);
        qputenv("LOCPATH", QFile::encodeName(locales));
        const QByteArray saved = std::setlocale(LC_ALL, nullptr);
        if (!std::setlocale(LC_ALL, "de_DE.UTF-8"))
            QSKIP("no locale with a decimal comma can be made here");
        const Table rows = read({{"xl/styles.xml", kDateStyles},
                                 {"xl/worksheets/sheet1.xml",
                                  sheet("<row r=\"1\"><c r=\"A1\" s=\"2\"><v>45000.5</v></c><c r=\"B1\"><v>2.50</v></c>"
                                        "<c r=\"C1\"><v>1.5E-3</v></c></row>")}});
        std::setlocale(LC_ALL, saved.constData());
        qunsetenv("LOCPATH");
        QCOMPARE(rows, (Table{{"2023-03-15T12:00:00.000", "2.5", "0.0015"}}));
    }
};

QTEST_GUILESS_MAIN(TestXlsxReading)
#include "tst_xlsxreading.moc"
