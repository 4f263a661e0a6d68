// Workbooks written and read through the library's table functions: what another reader
// (openpyxl) sees in them and what the library reads in openpyxl's, appending, sheets and
// their names, numbers and texts, file names and the file the user sees, bad packages,
// several threads at once, and workbooks from many producers.
#include "VantorUtils.h"
#include "tables/XlsxWorkbookReader.h"
#include "tables/XlsxZipArchive.h"

#include <QDirIterator>
#include <QLoggingCategory>
#include <QTemporaryDir>
#include <QTextCodec>
#include <QtTest>

#include <sys/stat.h>

#include <thread>
#include <vector>

#include "xlsx_package.h"
#include "xlsx_probe.h"

using Table = QList<QStringList>;
using Sheets = QList<QPair<QString, Table>>;
using XlsxProbe::probe;

namespace {
const QString kCorpus = QStringLiteral(VANTOR_SOURCE_ROOT "/../shared/corpus/xlsx");

bool write(const Table& data, const QString& path, bool append = false, QString* err = nullptr,
           const QMap<int, ExportFormat>& formats = {})
{
    QString e;
    return VantorUtils::WriteTableData(data, path, formats, false, ExportFileCodeUtf8, append, err ? *err : e);
}
Table read(const QString& path, ReadTableCfg cfg = ReadAllRows)
{
    QString err;
    return VantorUtils::ReadTableData(path, cfg, err);
}
} // namespace

class TestTableXlsx : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;
    bool m_haveProbe = false;

private slots:
    void initTestCase()
    {
        m_haveProbe = XlsxProbe::python({XlsxProbe::script(), QStringLiteral("make"), m_dir.path()});
        if (!m_haveProbe)
            qWarning() << "openpyxl cross-checks skipped";
    }

    void writtenWorkbookSeenByOpenpyxl()
    {
        if (!m_haveProbe)
            QSKIP("python3-openpyxl is not available");
        const QString path = m_dir.filePath("written.xlsx");
        const Table data{{"名称", "比例", "价格", "数量"}, {"甲", "12.5%", "1.123456", "1,000"}, {"乙", "3%", "2", "2 000"}, {"丙", "", "x", "7"}};
        QVERIFY(VantorUtils::WriteTableData(data, path, {{1, ExportFormatNumber}, {2, ExportFormatNumber}, {3, ExportFormatNumber}},
                                            false, ExportFileCodeGb18030, false));
        const QJsonObject sheet = probe("dump", path).value("sheets").toArray().first().toObject();
        QCOMPARE(sheet.value("name").toString(), QStringLiteral("Sheet1"));
        QCOMPARE(XlsxProbe::compact(sheet.value("widths")), QStringLiteral(R"([{"A":30,"B":30,"C":30,"D":30}])"));
        QStringList cells;
        for (const QJsonValue& v : sheet.value("cells").toArray()) {
            const QJsonObject c = v.toObject();
            cells.append(QStringLiteral("%1 %2 %3%4").arg(c.value("ref").toString(), c.value("value").toVariant().toString(),
                                                         c.value("format").toString(), c.value("bold").toBool() ? " bold" : "")
                         + (c.value("size").toDouble() == 14 ? " 14" : ""));
        }
        // The header is bold at size 14; numbers take their column's format: percentages,
        // decimals up to five places, integers.
        QCOMPARE(cells, (QStringList{"A1 名称 General bold 14", "B1 比例 General bold 14", "C1 价格 General bold 14",
                                     "D1 数量 General bold 14", "A2 甲 General", "B2 0.125 0.0 %", "C2 1.123456 0.00000", "D2 1000 0",
                                     "A3 乙 General", "B3 0.03 0.0 %", "C3 2 0.00000", "D3 2000 0", "A4 丙 General", "B4 0 0.0 %",
                                     "C4 0 0.00000", "D4 7 0"}));
        // And the library reads its own workbook back (inline strings of a streamed write).
        QCOMPARE(read(path), (Table{{"名称", "比例", "价格", "数量"}, {"甲", "0.125", "1.123456", "1000"},
                                    {"乙", "0.03", "2", "2000"}, {"丙", "0", "0", "7"}}));
    }

    void appendGoesAfterExistingRows()
    {
        const QString path = m_dir.filePath("append.xlsx");
        Table first{{"h1", "h2"}};
        for (int i = 1; i < 10; ++i)
            first.append({QString::number(i), QStringLiteral("行%1").arg(i)});
        QVERIFY(write(first, path, false, nullptr, {{0, ExportFormatNumber}}));
        QVERIFY(write({{"h1", "h2"}, {"10", "新"}, {"11", "新2"}}, path, true, nullptr, {{0, ExportFormatNumber}}));
        QCOMPARE(read(path), (first + Table{{"10", "新"}, {"11", "新2"}}));
        if (m_haveProbe) { // the old header keeps its format
            QCOMPARE(XlsxProbe::cells(path).value("A1").value("bold").toBool(), true);
            QCOMPARE(probe("dump", path).value("sheets").toArray().first().toObject().value("widths").toObject().value("A").toDouble(), 30.0);
        }
        // Empty texts are cells too: they keep the table as wide as written and count as
        // rows when appending.
        const QString blanks = m_dir.filePath("blanks.xlsx");
        QVERIFY(write({{"h"}, {"1", ""}, {""}}, blanks));
        QVERIFY(write({{"h"}, {"2"}}, blanks, true));
        QCOMPARE(read(blanks), (Table{{"h", ""}, {"1", ""}, {"", ""}, {"2", ""}}));
    }

    // A workbook is written beside its target and renamed over it; the file the user sees
    // must still be what it was: made under the user's umask, its permissions kept on an
    // append, a symbolic link left a link to the rewritten file, one made read-only refused.
    void rewrittenWorkbookKeepsItsFile()
    {
        const QString book = m_dir.filePath("shared-book.xlsx");
        const mode_t oldMask = umask(027);
        const bool written = write({{"h"}, {"1"}}, book);
        umask(oldMask);
        QVERIFY(written);
        struct stat st;
        QCOMPARE(stat(QFile::encodeName(book).constData(), &st), 0);
        QCOMPARE(int(st.st_mode & 0777), 0640);
        QCOMPARE(chmod(QFile::encodeName(book).constData(), 0664), 0);
        const QString link = m_dir.filePath("link-to-book.xlsx");
        QVERIFY(QFile::link(QStringLiteral("shared-book.xlsx"), link)); // relative, as users make them
        QVERIFY(write({{"h"}, {"2"}}, link, true));
        QVERIFY(QFileInfo(link).isSymLink());
        QCOMPARE(stat(QFile::encodeName(book).constData(), &st), 0);
        QCOMPARE(int(st.st_mode & 0777), 0664);
        QCOMPARE(read(book), (Table{{"h"}, {"1"}, {"2"}}));
        QCOMPARE(QDir(m_dir.path()).entryList({".shared-book*", ".link-to-book*"}, QDir::Hidden | QDir::Files), QStringList());

        QCOMPARE(chmod(QFile::encodeName(book).constData(), 0444), 0);
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("the file is read-only")));
        QString err;
        QVERIFY(!write({{"h"}, {"3"}}, book, true, &err));
        QCOMPARE(err, QStringLiteral("Excel文件保存失败！"));
        QCOMPARE(read(book), (Table{{"h"}, {"1"}, {"2"}}));
    }

    void fileNames_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("gbLocale");
        QTest::newRow("as long as a file name may be") << QString(83, QChar(0x957F)) + QStringLiteral("x.xlsx") << false;
        // Under a locale whose file names are not UTF-8 the workbook still lands under the
        // name the caller gave, like every file Qt opens.
        QTest::newRow("locale with GB18030 names") << QStringLiteral("导出表.xlsx") << true;
    }

    void fileNames()
    {
        // Written, appended to and written with several sheets like any other name.
        QFETCH(QString, name);
        QFETCH(bool, gbLocale);
        QTextCodec* const before = QTextCodec::codecForLocale();
        if (gbLocale)
            QTextCodec::setCodecForLocale(QTextCodec::codecForName("GB18030"));
        const QString path = m_dir.filePath(name);
        QString err;
        const bool written = write({{"h"}, {"1"}}, path, false, &err) && write({{"h"}, {"2"}}, path, true, &err);
        const Table back = read(path);
        const bool several = VantorUtils::WriteTableDatas(path, {{"s", {{"h"}, {"3"}}}}, {}, err);
        const Table again = read(path);
        const QStringList files = QDir(m_dir.path()).entryList({"*" + name.left(3) + "*"}, QDir::Files | QDir::Hidden);
        QFile::remove(path); // under the same locale, or its name would not decode when the folder goes
        QTextCodec::setCodecForLocale(before);
        QVERIFY(gbLocale || QFile::encodeName(name).size() == 255);
        QVERIFY2(written && several, qPrintable(err));
        QCOMPARE(back, (Table{{"h"}, {"1"}, {"2"}}));
        QCOMPARE(again, (Table{{"h"}, {"3"}}));
        QCOMPARE(files, QStringList{name});
    }

    // Sheets come back in the order written, under names the file format takes; a sheet
    // named twice takes its second table over its first.
    void sheetsInOrder_data()
    {
        QTest::addColumn<Sheets>("sheets");
        QTest::addColumn<Sheets>("expected");
        QTest::newRow("order kept, a made name") << Sheets{{"乙", {{"b"}, {"2"}}}, {"甲", {{"a"}, {"1"}}}, {"", {{"c"}}}}
                                                 << Sheets{{"乙", {{"b"}, {"2"}}}, {"甲", {{"a"}, {"1"}}}, {"Sheet3", {{"c"}}}};
        QTest::newRow("no sheets: the one empty sheet") << Sheets{} << Sheets{{"Sheet1", {}}};
        const auto named = [](const char* tag, const QStringList& given, const QStringList& written) {
            Sheets sheets;
            Sheets expected;
            for (int i = 0; i < given.size(); ++i) {
                sheets.append({given.at(i), {{"h"}, {QString::number(i)}}});
                expected.append({written.at(i), sheets.last().second});
            }
            QTest::newRow(tag) << sheets << expected;
        };
        named("a date with slashes", {"2024/01/02"}, {"2024 01 02"});
        named("every refused character", {"a\\b?c*d[e]f:g"}, {"a b c d e f g"});
        named("in apostrophes", {"'持仓'"}, {"持仓"});
        named("apostrophe at either end", {"'a", "b'"}, {" a", "b "});
        named("longer than 31 characters", {QString(40, QChar(0x957F))}, {QString(31, QChar(0x957F))});
        named("cut before an apostrophe", {QString(30, 'x') + "'yz"}, {QString(30, 'x') + " "});
        named("a character beyond the BMP is not split", {QString(30, 'x') + QString::fromUtf8("\xF0\x9F\x98\x80") + "z"},
              {QString(30, 'x') + QString::fromUtf8("\xF0\x9F\x98\x80")});
        named("control characters", {"a\tb\nc", QString("d") + QChar(1) + "e"}, {"a b c", "d e"});
        const Table wide{{"a", "b", "c"}, {"1", "2", "3"}, {"4", "5", "6"}, {"7", "8", "9"}};
        const Table narrow{{"x"}, {"y"}};
        const Table over{{"x", "b", "c"}, {"y", "2", "3"}, {"4", "5", "6"}, {"7", "8", "9"}};
        // A NUL does not cut the name, so it does not clash with another.
        QTest::newRow("a NUL in a name") << Sheets{{QString("x") + QChar(0) + "y", narrow}, {"x", wide}}
                                         << Sheets{{"x y", narrow}, {"x", wide}};
        QTest::newRow("same name") << Sheets{{"持仓", wide}, {"委托", {{"z"}}}, {"持仓", narrow}}
                                   << Sheets{{"持仓", over}, {"委托", {{"z"}}}};
        QTest::newRow("names differing in case") << Sheets{{"Book", wide}, {"BOOK", narrow}} << Sheets{{"Book", over}};
        QTest::newRow("a made name that is taken") << Sheets{{"Sheet2", wide}, {"", narrow}} << Sheets{{"Sheet2", over}};
        QTest::newRow("same name once mended") << Sheets{{"a/b", wide}, {"a:b", narrow}} << Sheets{{"a b", over}};
        QTest::newRow("longer second table") << Sheets{{"s", narrow}, {"s", wide}} << Sheets{{"s", wide}};
    }

    void sheetsInOrder()
    {
        QFETCH(Sheets, sheets);
        QFETCH(Sheets, expected);
        const QString path = m_dir.filePath("sheets.xlsx");
        QString err = "stale";
        QVERIFY(VantorUtils::WriteTableDatas(path, sheets, {}, err));
        QVERIFY(err.isEmpty());
        QCOMPARE(VantorUtils::ReadMultiSheetTables(path, ReadAllRows), expected);
    }

    void severalSheetsQuirks()
    {
        const QString path = m_dir.filePath("multi.xlsx");
        QVERIFY(VantorUtils::WriteTableDatas(path, {{"s", {{"h"}}}}, {}));
        // The multi-sheet reader wants the lower-case extension exactly.
        QVERIFY(QFile::copy(path, m_dir.filePath("multi.XLSX")));
        QVERIFY(VantorUtils::ReadMultiSheetTables(m_dir.filePath("multi.XLSX"), ReadAllRows).isEmpty());
        // The save result is deliberately not looked at: a folder that does not exist still "succeeds".
        QVERIFY(VantorUtils::WriteTableDatas(m_dir.filePath("nowhere/x.xlsx"), {{"s", {{"h"}}}}, {}));
        QVERIFY(!QFile::exists(m_dir.filePath("nowhere/x.xlsx")));
        // A sheet named twice: each table's cells keep the number format their own column had.
        QVERIFY(VantorUtils::WriteTableDatas(path, {{"s", {{"n"}, {"1.5"}, {"2.25"}, {"3"}}}, {"s", {{"n"}, {"7"}}}},
                                             {{"s", {{0, ExportFormatNumber}}}}));
        const auto cells = XlsxProbe::cells(path);
        if (cells.isEmpty())
            QSKIP("python3-openpyxl is not available");
        QCOMPARE(cells.value("A2").value("value").toDouble(), 7.0);
        QCOMPARE(cells.value("A2").value("format").toString(), QStringLiteral("0"));
        QCOMPARE(cells.value("A3").value("value").toDouble(), 2.25);
        QCOMPARE(cells.value("A3").value("format").toString(), QStringLiteral("0.00"));
    }

    // A cell written afresh, then rewritten by an append that adds the same cell again,
    // reads back as it should.
    void cellsReadBack_data()
    {
        QTest::addColumn<QString>("cell");
        QTest::addColumn<bool>("numeric");
        QTest::addColumn<QString>("back");
        const auto same = [](const char* tag, const QString& cell) { QTest::newRow(tag) << cell << false << cell; };
        const auto number = [](const char* tag, const char* cell, const char* back) { QTest::newRow(tag) << cell << true << back; };
        number("percentage is the nearest double", "8.9%", "0.089");
        number("small percentage", "0.07%", "0.0007");
        number("whole percentage", "100 %", "1");
        number("percentage with separators", "-1,250.5%", "-12.505");
        number("percentage in exponent form", "1e3%", "10");
        number("separators", "1,234.5", "1234.5");
        number("no number", "x", "0");
        // Printed with 16 digits, the largest doubles would round past the range.
        number("largest double", "1.7976931348623157e308", "1.797693134862315e+308");
        number("lowest double", "-1.7976931348623157e308", "-1.797693134862315e+308");
        // Control characters are stored as _xHHHH_; text that merely looks like that is kept
        // apart from them. So are characters no XML may hold, and a leading byte-order mark.
        same("crlf", "a\r\nb");
        same("carriage return", "c\rd");
        same("control characters", "x\x01y\x1f");
        same("looks like an escape", "lit_x0041_");
        same("control character, then a look-alike", "a\x01_x0001_");
        same("escaped underscore look-alike", "_x005F_");
        same("short look-alike", "_x12_");
        same("byte-order mark", QString(QChar(0xFEFF)) + QStringLiteral("bom"));
        same("characters XML cannot hold", QStringLiteral("n") + QChar(0) + QStringLiteral("ul") + QChar(0xFFFE) + QChar(0xFFFF));
        // What a cell holds is kept, counted in characters; an escape is cut with the text.
        QTest::newRow("plain text past the limit") << QString(40000, 'a') << false << QString(32767, 'a');
        const QVector<uint> faces(20000, 0x1F600);
        same("40000 units, 20000 characters", QString::fromUcs4(faces.constData(), faces.size()));
        QTest::newRow("escape at the cut") << QString(32762, 'a') + QStringLiteral("_x0041_") + QString(40000, 'b') << false
                                           << QString(32762, 'a') + QStringLiteral("_x005");
        // Each NUL is stored as a seven-character escape: more than a string can hold.
        QTest::newRow("NULs escaped past what a string holds") << QString(154000000, QChar(0)) << false << QString(32767 / 7, QChar(0));
    }

    void cellsReadBack()
    {
        QFETCH(QString, cell);
        QFETCH(bool, numeric);
        QFETCH(QString, back);
        const QString path = m_dir.filePath("cells.xlsx");
        const QMap<int, ExportFormat> formats{{0, numeric ? ExportFormatNumber : ExportFormatText}};
        QVERIFY(write({{"h"}, {cell}}, path, false, nullptr, formats));
        QCOMPARE(read(path), (Table{{"h"}, {back}}));
        QVERIFY(write({{"h"}, {cell}}, path, true, nullptr, formats));
        QCOMPARE(read(path), (Table{{"h"}, {back}, {back}}));
    }

    // Plug-ins export from worker threads: each thread writes, appends and reads its own
    // files while the others do the same (run under TSan as well).
    void tableFilesOnSeveralThreads()
    {
        constexpr int kThreads = 4;
        QString failures[kThreads];
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t) {
            threads.emplace_back([this, t, &failures] {
                const QString base = m_dir.filePath(QStringLiteral("thread%1").arg(t));
                Table rows{{"名称", "数量"}};
                for (int r = 1; r <= 300; ++r)
                    rows.append({QStringLiteral("线程%1行%2").arg(t).arg(r), QString::number(r * (t + 1))});
                const QMap<int, ExportFormat> formats{{1, ExportFormatNumber}};
                const Sheets sheets{{"甲", rows}, {"乙", rows.mid(0, 2)}};
                const ExportFileCode code = t % 2 ? ExportFileCodeUtf8 : ExportFileCodeGb18030;
                for (int round = 0; round < 3 && failures[t].isEmpty(); ++round) {
                    QString err;
                    for (const QString& file : {base + ".csv", base + ".xlsx"}) {
                        if (!VantorUtils::WriteTableData(rows, file, formats, false, code, false, err)
                            || !VantorUtils::WriteTableData(rows, file, formats, false, code, true, err))
                            failures[t] = QStringLiteral("write failed: ") + err;
                        else if (VantorUtils::ReadTableData(file, ReadAllRows, err) != rows + rows.mid(1))
                            failures[t] = file + QStringLiteral(" read back differs");
                    }
                    if (!VantorUtils::WriteTableDatas(base + "-multi.xlsx", sheets, {{"甲", formats}}, err)
                        || VantorUtils::ReadMultiSheetTables(base + "-multi.xlsx", ReadAllRows) != sheets)
                        failures[t] = QStringLiteral("sheets differ: ") + err;
                }
            });
        }
        for (std::thread& thread : threads)
            thread.join();
        for (int t = 0; t < kThreads; ++t)
            QVERIFY2(failures[t].isEmpty(), qPrintable(QStringLiteral("thread %1: %2").arg(t).arg(failures[t])));
    }

    void workbookFromOpenpyxl()
    {
        // Shared strings, numbers, booleans, dates and times, a formula and empty rows, as
        // openpyxl writes them.
        if (!m_haveProbe)
            QSKIP("python3-openpyxl is not available");
        const QString path = m_dir.filePath("openpyxl.xlsx");
        QString err;
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("公式：=?SUM\\(C2:C4\\)")));
        // The formula cell reads as empty and the table is still returned; text is trimmed.
        QCOMPARE(VantorUtils::ReadTableData(path, ReadAllRows, err),
                 (Table{{"代码", "名称", "数量", "开关"}, {"600000", "浦发银行", "1200", "true"}, {"", "", "", ""},
                        {"000001", "平安银行", "3.25", "false"}, {"", "", "", ""},
                        {"2024-01-02", "2024-01-02T03:04:05.000", "13:30:00.000", "0.125"}}));
        QCOMPARE(err, QStringLiteral("Excel文件中存在公式，Korvo目前不支持Excel公式的导入，请检查！"));
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("公式")));
        const Table kept = read(path, SkipEmptyRows);
        QCOMPARE(kept.size(), 4); // the empty row and the formula-only row are dropped
        QCOMPARE(kept.at(3).first(), QStringLiteral("2024-01-02"));
        const Sheets sheets = VantorUtils::ReadMultiSheetTables(path, ReadAllRows);
        QCOMPARE(sheets.size(), 2);
        QCOMPARE(sheets.at(1), (QPair<QString, Table>{QStringLiteral("第二页"), {{"x"}}}));
    }

    // Each ends with its error text and no rows, in bounded time and memory (the bench
    // measures how long), and without a crash when read as several sheets.
    void badFilesEndWithAnError_data()
    {
        QTest::addColumn<Parts>("parts"); // empty: no file
        QTest::addColumn<QString>("err");
        const auto sheet = [](const QByteArray& body) -> Parts {
            return {{"xl/worksheets/sheet1.xml", "<worksheet><sheetData>" + body + "</sheetData></worksheet>"}};
        };
        const QByteArray ok = "<row r=\"1\"><c r=\"A1\" t=\"inlineStr\"><is><t>ok</t></is></c></row>";
        QTest::newRow("truncated") << sheet(ok) << QStringLiteral("Excel文件无法打开或已损坏，请检查文件后再试！");
        QTest::newRow("missing sheet part") << Parts{{"xl/worksheets/sheet1.xml", {}}}
                                            << QStringLiteral("Excel文件缺少工作表内容，请检查文件后再试！");
        // An entry that inflates far past what its compressed size allows (spaces added below).
        QTest::newRow("zip bomb") << sheet(" ") << QStringLiteral("Excel文件解压后的内容超出上限，文件可能已损坏，请检查文件！");
        QByteArray laughs = "<!DOCTYPE lolz [<!ENTITY lol0 \"lol\">";
        for (int i = 1; i < 10; ++i)
            laughs += "<!ENTITY lol" + QByteArray::number(i) + " \"" + ("&lol" + QByteArray::number(i - 1) + ";").repeated(10) + "\">";
        QTest::newRow("entity expansion")
            << Parts{{"xl/worksheets/sheet1.xml", laughs + "]>" + sheet(QByteArray(ok).replace(">ok<", ">&lol9;<")).first()}}
            << QStringLiteral("Excel文件中的内容格式错误，请检查文件并重新编辑保存后再试！");
        QTest::newRow("million columns") << sheet("<row r=\"1\"><c r=\"A1\"><v>1</v></c><c r=\"BDWGN1\"><v>2</v></c></row>")
                                         << QStringLiteral("Excel文件的行数或列数超出上限，请检查文件！");
        // A name that is no file reads as a new, empty workbook would.
        const QString noCells = QStringLiteral("获取到的行数或列数小于等于0，请检查文件并重新编辑保存后再试，如仍有问题，请联系KORVO技术支持获取帮助。");
        QTest::newRow("no cells") << sheet("") << noCells;
        QTest::newRow("no such file") << Parts() << noCells;
    }

    void badFilesEndWithAnError()
    {
        QFETCH(Parts, parts);
        QFETCH(QString, err);
        const QByteArray tag = QTest::currentDataTag();
        const QString path = m_dir.filePath("bad-" + tag + ".xlsx");
        if (tag == "zip bomb")
            parts.first().replace(" ", QByteArray(100 << 20, ' '));
        if (!parts.isEmpty())
            QVERIFY(XlsxPackage::write(path, parts, true));
        if (tag == "truncated")
            QVERIFY(QFile::resize(path, QFileInfo(path).size() / 2));
        QString got;
        QVERIFY(VantorUtils::ReadTableData(path, ReadAllRows, got).isEmpty());
        QCOMPARE(got, err);
        const Sheets sheets = VantorUtils::ReadMultiSheetTables(path, ReadAllRows);
        QVERIFY(!parts.isEmpty() || sheets.isEmpty());
    }

    void largeSheetParsedAlongside()
    {
        // A sheet this large is parsed on a second thread and handed over in batches:
        // every cell arrives, in order, and a damaged package still ends with an error.
        QLoggingCategory::setFilterRules(QStringLiteral("vantor.tables.debug=false"));
        Table data{{"编号", "名称", "金额", "备注"}};
        for (int r = 1; r <= 40000; ++r)
            data.append({QString::number(r), QStringLiteral("证券%1").arg(r % 97), QString::number(r * 1.25), r % 3 ? QStringLiteral("已成") : QString()});
        const QString path = m_dir.filePath("large.xlsx");
        QVERIFY(VantorUtils::WriteTableData(data, path, {{0, ExportFormatNumber}, {2, ExportFormatNumber}}, false, ExportFileCodeGb18030, false));
        QString err;
        {
            XlsxZipArchive zip;
            QVERIFY(zip.open(path, err) && zip.partSize(QStringLiteral("xl/worksheets/sheet1.xml")) >= XlsxWorkbookReader::kPipelineBytes);
        }
        QCOMPARE(VantorUtils::ReadTableData(path, ReadAllRows, err), data);
        QVERIFY(err.isEmpty());

        QFile f(path);
        QVERIFY(f.open(QIODevice::ReadWrite));
        QByteArray bytes = f.readAll();
        for (int i = bytes.size() / 2; i < bytes.size() / 2 + 64; ++i)
            bytes[i] = char(bytes[i] ^ 0x5A);
        QVERIFY(f.seek(0) && f.write(bytes) == bytes.size());
        f.close();
        QVERIFY(VantorUtils::ReadTableData(path, ReadAllRows, err).isEmpty());
        QVERIFY(!err.isEmpty());
        QLoggingCategory::setFilterRules(QStringLiteral("vantor.tables.debug=true"));
    }

    // A few telling cells of workbooks from many producers, as the producer's own
    // application shows them (texts written out here, checked against openpyxl once).
    void corpusCellsReadAsWritten_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QStringList>("sheets");
        QTest::addColumn<QString>("sheet");
        QTest::addColumn<int>("rows");
        QTest::addColumn<QString>("cell");
        QTest::addColumn<QString>("text");
        const QStringList one{"Sheet1"};
        QTest::newRow("long number as text") << "v3.xlsx" << QStringList{"源数据", "规则", "示例1", "示例2", "示例3"} << "示例3" << 9 << "B9" << "123456789012345678";
        QTest::newRow("rich inline string") << "inlineStrings.xlsx" << QStringList{"Activity by Day"} << "Activity by Day" << 38
                                            << "B1" << "HL Retail - North America - Activity by Day - MTD";
        QTest::newRow("cell types") << "testcelltypes.xlsx" << one << "Sheet1" << 8 << "A6" << "true";
        QTest::newRow("chart sheet kept in order") << "testchartsheet.xlsx" << QStringList{"Chart1", "Sheet1"} << "Sheet1" << 5 << "A5" << "4";
        QTest::newRow("31-character name") << "max_sheet_name_length.xlsx" << QStringList{"αααααβββββγγγγγδδδδδεεεεεζζζζζη", "Sheet2", "Sheet3"}
                                           << "αααααβββββγγγγγδδδδδεεεεεζζζζζη" << 1 << "A1" << "This file was created by Microsoft Excel 2007";
        QTest::newRow("no styles, no shared strings") << "noStylesAndSharedStringsTest.xlsx" << QStringList{"10 Aug 2013 19_11_21"}
                                                      << "10 Aug 2013 19_11_21" << 2606 << "W1" << "Move samples";
        QTest::newRow("merged, covered") << "merged_cells2.xlsx" << QStringList{"Sheet 1"} << "Sheet 1" << 3 << "C2" << "";
        QTest::newRow("WPS blank lines") << "wpsBlankLineTest.xlsx" << one << "Sheet1" << 5 << "C5" << "编号";
        QTest::newRow("empty rows and columns") << "empty_rows.xlsx" << QStringList{"EmptyRows", "EmptyCols", "EmptyRowsAndCols"}
                                                << "EmptyRowsAndCols" << 4 << "C3" << "C3";
        QTest::newRow("namespaced XML") << "namespaced.xlsx" << one << "Sheet1" << 3 << "L2" << "w";
        QTest::newRow("date in a formula sheet") << "samplefile.xlsx" << QStringList{"Sample", "Cities"} << "Sample" << 1000 << "B2" << "2020-03-20";
        QTest::newRow("text-formatted column") << "panic_test.xlsx" << QStringList{"上传模板"} << "上传模板" << 9884 << "D5" << "11010419890429042x";
        QTest::newRow("Numbers") << "macNumbersTest.xlsx" << QStringList{"主动技能"} << "主动技能" << 123 << "A1" << "编号";
        QTest::newRow("Google Docs") << "googleDocsTest.xlsx" << one << "Sheet1" << 2 << "B2" << "hello hello";
    }

    void corpusCellsReadAsWritten()
    {
        QFETCH(QString, file);
        QFETCH(QStringList, sheets);
        QFETCH(QString, sheet);
        QFETCH(int, rows);
        QFETCH(QString, cell);
        QFETCH(QString, text);
        if (!QDir(kCorpus).exists())
            QSKIP("the workbook corpus is not present");
        QStringList names;
        Table found;
        for (const auto& s : VantorUtils::ReadMultiSheetTables(kCorpus + "/" + file, ReadAllRows)) {
            names.append(s.first);
            if (s.first == sheet)
                found = s.second;
        }
        QCOMPARE(names, sheets);
        QCOMPARE(found.size(), rows);
        const int col = cell.at(0).unicode() - 'A';
        const int row = cell.midRef(1).toInt() - 1;
        QCOMPARE(found.value(row).value(col, QStringLiteral("(none)")), text);
    }
};

QTEST_GUILESS_MAIN(TestTableXlsx)
#include "tst_tablexlsx.moc"
