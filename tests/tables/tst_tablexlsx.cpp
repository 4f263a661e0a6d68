#include "VantorUtils.h"
#include "tables/TableFileSeam.h"
#include "tables/XlsxDocument.h"
#include "tables/XlsxSheetLayout.h"
#include "tables/XlsxWorkbookReader.h"
#include "tables/XlsxZipArchive.h"

#include <QDirIterator>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLoggingCategory>
#include <QProcess>
#include <QTemporaryDir>
#include <QTextCodec>
#include <QtTest>

#include <sys/stat.h>

#include <clocale>
#include <cstdio>
#include <thread>
#include <vector>

#include "xlsx_package.h"
#include "xlsx_probe.h"

using Table = QList<QStringList>;
using XlsxProbe::compact;
using XlsxProbe::probe;

namespace {
const QString kCorpus = QStringLiteral(VANTOR_SOURCE_ROOT "/../shared/corpus/xlsx");

bool g_otherWriterSaved = false;

// Another writer saves its own, larger workbook at the name just after the old file was
// removed for a fresh write (once).
void otherWriterSavesMeanwhile(TableFileSeam::Point point, const QString& fileName)
{
    if (point != TableFileSeam::OldFileRemoved)
        return;
    TableFileSeam::setHook(nullptr);
    g_otherWriterSaved = true;
    const Table x{{"x1", "x2", "x3"}, {"x"}, {"x"}, {"x"}, {"x"}};
    VantorUtils::WriteTableDatas(fileName, {{"Sheet1", x}, {"s", x}, {"other", {{"z"}}}}, {});
}
} // namespace

class TestTableXlsx : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;
    bool m_haveProbe = false;
    QJsonObject m_styledBefore;
    QJsonObject m_styledAfter;
    QJsonObject m_themedAfter;

    struct NoCells : XlsxCellVisitor {
        void cell(const XlsxCell&) override {}
    };

    static XlsxSheetLayout layoutOf(const QString& path)
    {
        XlsxWorkbookReader reader;
        XlsxSheetLayout layout;
        NoCells cells;
        QString err;
        if (!reader.open(path, err) || !reader.readSheet(0, cells, err, &layout))
            qWarning() << "cannot read" << path << err;
        return layout;
    }

    static QJsonObject cellAt(const QJsonObject& sheet, const QString& ref)
    {
        for (const QJsonValue& v : sheet.value("cells").toArray()) {
            if (v.toObject().value("ref").toString() == ref)
                return v.toObject();
        }
        return {};
    }

    Table read(const QString& path, ReadTableCfg cfg, QString& err)
    {
        err.clear();
        return VantorUtils::ReadTableData(path, cfg, err);
    }

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
        const Table data{{"名称", "比例", "价格", "数量"},
                         {"甲", "12.5%", "1.123456", "1,000"},
                         {"乙", "3%", "2", "2 000"},
                         {"丙", "", "x", "7"}};
        const QMap<int, ExportFormat> formats{{1, ExportFormatNumber}, {2, ExportFormatNumber}, {3, ExportFormatNumber}};
        QString err;
        QVERIFY(VantorUtils::WriteTableData(data, path, formats, false, ExportFileCodeGb18030, false, err));
        const QJsonObject sheet = probe("dump", path).value("sheets").toArray().first().toObject();
        QCOMPARE(sheet.value("name").toString(), QStringLiteral("Sheet1"));

        const QJsonObject header = cellAt(sheet, "B1");
        QCOMPARE(header.value("value").toString(), QStringLiteral("比例"));
        QVERIFY(header.value("bold").toBool());
        QCOMPARE(header.value("size").toDouble(), 14.0);
        for (const char* col : {"A", "B", "C", "D"})
            QCOMPARE(sheet.value("widths").toObject().value(col).toDouble(), 30.0);

        struct Expect { const char* ref; double value; const char* format; };
        const Expect expects[] = {{"B2", 0.125, "0.0 %"}, {"B3", 0.03, "0.0 %"}, {"C2", 1.123456, "0.00000"},
                                  {"C3", 2, "0.00000"}, {"C4", 0, "0.00000"}, {"D2", 1000, "0"}, {"D3", 2000, "0"}};
        for (const Expect& e : expects) {
            const QJsonObject c = cellAt(sheet, e.ref);
            QVERIFY2(qFuzzyCompare(1 + c.value("value").toDouble(), 1 + e.value), e.ref);
            QCOMPARE(c.value("format").toString(), QString::fromLatin1(e.format));
        }
        QCOMPARE(cellAt(sheet, "A4").value("value").toString(), QStringLiteral("丙"));

        // And the library reads its own workbook back (inline strings of a streamed write).
        QCOMPARE(read(path, ReadAllRows, err), (Table{{"名称", "比例", "价格", "数量"}, {"甲", "0.125", "1.123456", "1000"},
                                                     {"乙", "0.03", "2", "2000"}, {"丙", "0", "0", "7"}}));
        QVERIFY(err.isEmpty());
    }

    void appendGoesAfterExistingRows()
    {
        const QString path = m_dir.filePath("append.xlsx");
        Table first{{"h1", "h2"}};
        for (int i = 1; i < 10; ++i)
            first.append({QString::number(i), QStringLiteral("行%1").arg(i)});
        QVERIFY(VantorUtils::WriteTableData(first, path, {{0, ExportFormatNumber}}, false, ExportFileCodeUtf8, false));
        QVERIFY(VantorUtils::WriteTableData({{"h1", "h2"}, {"10", "新"}, {"11", "新2"}}, path, {{0, ExportFormatNumber}},
                                            false, ExportFileCodeUtf8, true));
        QString err;
        QCOMPARE(read(path, ReadAllRows, err), (first + Table{{"10", "新"}, {"11", "新2"}}));
        if (m_haveProbe) {
            const QJsonObject sheet = probe("dump", path).value("sheets").toArray().first().toObject();
            QVERIFY(cellAt(sheet, "A1").value("bold").toBool()); // the old header keeps its format
            QCOMPARE(sheet.value("widths").toObject().value("A").toDouble(), 30.0);
        }

        // Empty texts are cells too: they keep the table as wide as written and count as
        // rows when appending.
        const QString blanks = m_dir.filePath("blanks.xlsx");
        QVERIFY(VantorUtils::WriteTableData({{"h"}, {"1", ""}, {""}}, blanks, {}, false, ExportFileCodeUtf8, false));
        QVERIFY(VantorUtils::WriteTableData({{"h"}, {"2"}}, blanks, {}, false, ExportFileCodeUtf8, true));
        QCOMPARE(read(blanks, ReadAllRows, err), (Table{{"h", ""}, {"1", ""}, {"", ""}, {"2", ""}}));

        // Appending to a workbook that cannot be read leaves it untouched.
        const QString broken = m_dir.filePath("broken.xlsx");
        QFile f(broken);
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write("not a workbook");
        f.close();
        QVERIFY(!VantorUtils::WriteTableData({{"a"}, {"1"}}, broken, {}, false, ExportFileCodeUtf8, true, err));
        QVERIFY(!err.isEmpty());
        QCOMPARE(QFileInfo(broken).size(), qint64(14));
    }

    // A workbook is written beside its target and renamed over it; the file the user sees
    // must still be what it was: made under the user's umask, its permissions kept on an
    // append, and a symbolic link left a link to the rewritten file.
    void rewrittenWorkbookKeepsItsFile()
    {
        const QString book = m_dir.filePath("shared-book.xlsx");
        const mode_t oldMask = umask(027);
        const bool written = VantorUtils::WriteTableData({{"h"}, {"1"}}, book, {}, false, ExportFileCodeUtf8, false);
        umask(oldMask);
        QVERIFY(written);
        struct stat st;
        QCOMPARE(stat(QFile::encodeName(book).constData(), &st), 0);
        QCOMPARE(int(st.st_mode & 0777), 0640);

        QCOMPARE(chmod(QFile::encodeName(book).constData(), 0664), 0);
        const QString link = m_dir.filePath("link-to-book.xlsx");
        QVERIFY(QFile::link(QStringLiteral("shared-book.xlsx"), link)); // relative, as users make them
        QVERIFY(VantorUtils::WriteTableData({{"h"}, {"2"}}, link, {}, false, ExportFileCodeUtf8, true));
        QVERIFY(QFileInfo(link).isSymLink());
        QCOMPARE(stat(QFile::encodeName(book).constData(), &st), 0);
        QCOMPARE(int(st.st_mode & 0777), 0664);
        QString err;
        QCOMPARE(read(book, ReadAllRows, err), (Table{{"h"}, {"1"}, {"2"}}));
        QCOMPARE(QDir(m_dir.path()).entryList({".shared-book*", ".link-to-book*"}, QDir::Hidden | QDir::Files),
                 QStringList());

        // A workbook made read-only is not appended to.
        QCOMPARE(chmod(QFile::encodeName(book).constData(), 0444), 0);
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("the file is read-only")));
        QVERIFY(!VantorUtils::WriteTableData({{"h"}, {"3"}}, book, {}, false, ExportFileCodeUtf8, true, err));
        QCOMPARE(err, QStringLiteral("Excel文件保存失败！"));
        QCOMPARE(read(book, ReadAllRows, err), (Table{{"h"}, {"1"}, {"2"}}));
    }

    // Plug-ins run under the user's locale. One with a decimal comma must reach neither
    // the numbers a workbook stores nor the widths, heights and font sizes it reads.
    void decimalCommaLocale()
    {
        QTemporaryDir locales;
        QProcess make;
        make.start(QStringLiteral("localedef"), {"-i", "de_DE", "-f", "UTF-8", locales.filePath("de_DE.UTF-8")});
        if (!make.waitForFinished(60000) || make.exitStatus() != QProcess::NormalExit || make.exitCode() != 0)
            QSKIP("no locale with a decimal comma can be made here (Debian's locales package)");
        const QString sheet = m_dir.filePath("komma.xlsx");
        QVERIFY(XlsxPackage::write(
            sheet, {{"xl/styles.xml", "<styleSheet><fonts><font><sz val=\"10.5\"/></font></fonts>"
                                      "<cellXfs><xf numFmtId=\"0\" fontId=\"0\"/></cellXfs></styleSheet>"},
                    {"xl/worksheets/sheet1.xml",
                     "<worksheet><cols><col min=\"1\" max=\"1\" width=\"12.5703125\" customWidth=\"1\"/></cols><sheetData>"
                     "<row r=\"1\" ht=\"20.25\" customHeight=\"1\"><c r=\"A1\"><v>0.5</v></c></row></sheetData></worksheet>"}}));
        qputenv("LOCPATH", QFile::encodeName(locales.path()));
        const QByteArray before = setlocale(LC_NUMERIC, nullptr);
        QVERIFY(setlocale(LC_NUMERIC, "de_DE.UTF-8"));
        char printed[16];
        std::snprintf(printed, sizeof printed, "%.2f", 1.5);
        QString err;
        // The rewrite prints the old numbers and the new one.
        const bool written = VantorUtils::WriteTableData({{"n"}, {"2.5"}}, sheet, {}, false, ExportFileCodeUtf8, true, err);
        setlocale(LC_NUMERIC, before.constData());
        qunsetenv("LOCPATH");

        QCOMPARE(QByteArray(printed), QByteArray("1,50")); // the locale was in force
        QVERIFY2(written, qPrintable(err));
        QCOMPARE(read(sheet, ReadAllRows, err), (Table{{"0.5"}, {"2.5"}}));
        const XlsxSheetLayout layout = layoutOf(sheet);
        QCOMPARE(layout.columns().size(), size_t(1));
        QCOMPARE(layout.columns().front().width, 12.5703125);
        QCOMPARE(layout.rows().size(), size_t(1));
        QCOMPARE(layout.rows().front().height, 20.25);
        XlsxWorkbookReader reader;
        QVERIFY(reader.open(sheet, err));
        QStringList sizes;
        for (int i = 0; i < reader.styles().count(); ++i)
            sizes.append(QString::number(reader.styles().style(i).fontSize));
        QVERIFY2(sizes.contains(QStringLiteral("10.5")), qPrintable(sizes.join(QLatin1Char(' '))));
    }

    // Under a locale whose file names are not UTF-8 (zh_CN.GB18030), the workbook lands
    // under the name the caller gave, like every file Qt opens.
    void fileNameInTheLocalesEncoding()
    {
        QTextCodec* const before = QTextCodec::codecForLocale();
        QTextCodec::setCodecForLocale(QTextCodec::codecForName("GB18030"));
        const QString path = m_dir.filePath(QStringLiteral("导出表.xlsx"));
        QString err;
        const bool written = VantorUtils::WriteTableData({{"h"}, {"1"}}, path, {}, false, ExportFileCodeUtf8, false, err)
            && VantorUtils::WriteTableData({{"h"}, {"2"}}, path, {}, false, ExportFileCodeUtf8, true, err);
        const Table back = read(path, ReadAllRows, err);
        const QStringList files = QDir(m_dir.path()).entryList({QStringLiteral("*导出表*")}, QDir::Files | QDir::Hidden);
        // Removed under the same locale, or its name would not decode when the folder goes.
        QFile::remove(path);
        QTextCodec::setCodecForLocale(before);
        QVERIFY2(written, qPrintable(err));
        QCOMPARE(back, (Table{{"h"}, {"1"}, {"2"}}));
        QCOMPARE(files, QStringList{QStringLiteral("导出表.xlsx")});
    }

    // A name as long as a file name may be (255 bytes) is written, appended to and
    // written with several sheets like any other.
    void longestFileName()
    {
        const QString path = m_dir.filePath(QString(83, QChar(0x957F)) + QStringLiteral("x.xlsx"));
        QCOMPARE(QFile::encodeName(QFileInfo(path).fileName()).size(), 255);
        QString err;
        QVERIFY2(VantorUtils::WriteTableData({{"h"}, {"1"}}, path, {}, false, ExportFileCodeUtf8, false, err), qPrintable(err));
        QVERIFY2(VantorUtils::WriteTableData({{"h"}, {"2"}}, path, {}, false, ExportFileCodeUtf8, true, err), qPrintable(err));
        QCOMPARE(read(path, ReadAllRows, err), (Table{{"h"}, {"1"}, {"2"}}));
        QVERIFY(VantorUtils::WriteTableDatas(path, {{"s", {{"h"}, {"3"}}}}, {}, err));
        QCOMPARE(read(path, ReadAllRows, err), (Table{{"h"}, {"3"}}));
    }

    void numericCellsReadBack_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("back");
        QTest::newRow("percentage is the nearest double") << "8.9%" << "0.089";
        QTest::newRow("small percentage") << "0.07%" << "0.0007";
        QTest::newRow("negative percentage") << "-3%" << "-0.03";
        QTest::newRow("whole percentage") << "100 %" << "1";
        QTest::newRow("percentage with separators") << "1,250.5%" << "12.505";
        QTest::newRow("percentage in exponent form") << "1e3%" << "10";
        QTest::newRow("separators") << "1,234.5" << "1234.5";
        QTest::newRow("no number") << "x" << "0";
        // The writer prints 16 digits, which would round the largest doubles past the range.
        QTest::newRow("largest double") << "1.7976931348623157e308" << "1.797693134862315e+308";
        QTest::newRow("lowest double") << "-1.7976931348623157e308" << "-1.797693134862315e+308";
    }

    void numericCellsReadBack()
    {
        QFETCH(QString, text);
        QFETCH(QString, back);
        const QString path = m_dir.filePath("numbers.xlsx");
        QString err;
        QVERIFY(VantorUtils::WriteTableData({{"v"}, {text}}, path, {{0, ExportFormatNumber}}, false, ExportFileCodeUtf8, false, err));
        QCOMPARE(read(path, ReadAllRows, err), (Table{{"v"}, {back}}));
    }

    void rowsBeyondTheSheetAreReported()
    {
        // A sheet that already reaches its next-to-last row takes one more appended row;
        // the rest are left out and the log says so.
        const QString path = m_dir.filePath("full.xlsx");
        {
            XlsxDocument doc(path);
            QVERIFY(doc.write(1, 1, QStringLiteral("h"), XlsxWriteFormat()));
            QVERIFY(doc.write(XlsxWorkbookReader::kMaxRows - 1, 1, QStringLiteral("old"), XlsxWriteFormat()));
            QVERIFY(doc.save());
        }
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("ends at row 1048576 and leaves out 2 rows"));
        QString err;
        QVERIFY(VantorUtils::WriteTableData({{"h"}, {"a"}, {"b"}, {"c"}}, path, {}, false, ExportFileCodeUtf8, true, err));
        QCOMPARE(read(path, SkipEmptyRows, err), (Table{{"h"}, {"old"}, {"a"}}));
    }

    void appendKeepsSheetLayout_data()
    {
        QTest::addColumn<QString>("fact");
        QTest::newRow("fonts, fills, borders, alignment, number formats") << "looks";
        QTest::newRow("values, old and appended") << "values";
        QTest::newRow("merged ranges") << "merges";
        QTest::newRow("row heights and hidden rows") << "rows";
        QTest::newRow("hidden columns") << "hiddenColumns";
        QTest::newRow("frozen pane") << "pane";
        QTest::newRow("hyperlinks") << "links";
        QTest::newRow("view, print settings, header and footer") << "page";
    }

    void appendKeepsSheetLayout()
    {
        // A sheet laid out by hand in another program keeps all of it when rows are appended.
        QFETCH(QString, fact);
        if (!m_haveProbe)
            QSKIP("python3-openpyxl is not available");
        if (m_styledAfter.isEmpty()) {
            const QString path = m_dir.filePath("styled.xlsx");
            m_styledBefore = probe("layout", path);
            QString err;
            QVERIFY(VantorUtils::WriteTableData({{"代码", "名称", "金额"}, {"600036", "招商银行", "8.5"}, {"601398", "工商银行", "5"}},
                                                path, {{2, ExportFormatNumber}}, false, ExportFileCodeUtf8, true, err));
            m_styledAfter = probe("layout", path);
            QVERIFY(!m_styledAfter.isEmpty());
        }
        const QJsonValue before = m_styledBefore.value(fact);
        const QJsonValue after = m_styledAfter.value(fact);
        QVERIFY2(!before.isNull() && !(before.isObject() && before.toObject().isEmpty())
                     && !(before.isArray() && before.toArray().isEmpty()),
                 "the workbook built for the test lacks this");
        if (before.isObject()) {
            // The appended cells add entries; each old one is as it was.
            const QJsonObject old = before.toObject();
            for (auto it = old.begin(); it != old.end(); ++it)
                QCOMPARE(compact(after.toObject().value(it.key())), compact(it.value()));
        } else {
            QCOMPARE(compact(after), compact(before));
        }
        if (fact == QLatin1String("values")) {
            const QJsonObject values = after.toObject();
            QCOMPARE(values.value("A7").toString(), QStringLiteral("600036"));
            QCOMPARE(values.value("B8").toString(), QStringLiteral("工商银行"));
            QCOMPARE(values.value("C8").toDouble(), 5.0);
            QVERIFY(!values.contains("A9"));
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
        if (m_themedAfter.isEmpty()) {
            const QString path = m_dir.filePath("themed.xlsx");
            QString err;
            QVERIFY2(VantorUtils::WriteTableData({{"h"}, {"x"}}, path, {}, false, ExportFileCodeUtf8, true, err), qPrintable(err));
            m_themedAfter = probe("layout", path).value("looks").toObject();
            QVERIFY(!m_themedAfter.isEmpty());
        }
        const QJsonValue value = m_themedAfter.value(cell).toObject().value(fact);
        QCOMPARE(compact(fact == QLatin1String("font") ? value.toArray().at(6) : value), expected);
    }

    void appendSurvivesBrokenLayout()
    {
        // Absurd merges, heights, panes, links and colours are left out; the sane ones stay.
        if (!m_haveProbe)
            QSKIP("python3 is not available to build the packages");
        const QString junk = m_dir.filePath("layout-junk.xlsx");
        QString err;
        QVERIFY(VantorUtils::WriteTableData({{"h"}, {"new"}}, junk, {}, false, ExportFileCodeUtf8, true, err));
        QCOMPARE(read(junk, ReadAllRows, err), (Table{{"a", ""}, {"2", ""}, {"3", ""}, {"4", "5"}}));
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
        QVERIFY(!probe("dump", junk).isEmpty()); // and another program still opens it

        // More merged ranges than a sheet can hold: the first ones are kept.
        const QString many = m_dir.filePath("million-merges.xlsx");
        QVERIFY(VantorUtils::WriteTableData({{"h"}, {"2"}}, many, {}, false, ExportFileCodeUtf8, true, err));
        const XlsxSheetLayout merged = layoutOf(many);
        QCOMPARE(int(merged.merges().size()), XlsxSheetLayout::kMaxMerges);
        QCOMPARE(merged.merges().back().lastRow, XlsxSheetLayout::kMaxMerges);
    }

    void severalSheetsInOrder()
    {
        const QString path = m_dir.filePath("multi.xlsx");
        const QList<QPair<QString, Table>> sheets{{"乙", {{"b"}, {"2"}}}, {"甲", {{"a"}, {"1"}}}, {"", {{"c"}}}};
        QString err = "stale";
        QVERIFY(VantorUtils::WriteTableDatas(path, sheets, {{"甲", {{0, ExportFormatNumber}}}}, err));
        QVERIFY(err.isEmpty());
        QCOMPARE(VantorUtils::ReadMultiSheetTables(path, ReadAllRows),
                 (QList<QPair<QString, Table>>{{"乙", {{"b"}, {"2"}}}, {"甲", {{"a"}, {"1"}}}, {"Sheet3", {{"c"}}}}));
        // The multi-sheet reader wants the lower-case extension exactly.
        QFile::copy(path, m_dir.filePath("multi.XLSX"));
        QVERIFY(VantorUtils::ReadMultiSheetTables(m_dir.filePath("multi.XLSX"), ReadAllRows).isEmpty());
        // No sheets at all: the workbook still has its one empty sheet.
        const QString none = m_dir.filePath("no-sheets.xlsx");
        QVERIFY(VantorUtils::WriteTableDatas(none, {}, {}, err));
        QCOMPARE(VantorUtils::ReadMultiSheetTables(none, ReadAllRows).size(), 1);
        // The save result is deliberately not looked at: a folder that does not exist still "succeeds".
        QVERIFY(VantorUtils::WriteTableDatas(m_dir.filePath("nowhere/x.xlsx"), sheets, {}, err));
        QVERIFY(!QFile::exists(m_dir.filePath("nowhere/x.xlsx")));
    }

    // A workbook written afresh holds only what this write gave, even when another writer
    // saved its own workbook at the name between the removal of the old one and this save.
    void freshWriteIgnoresAnotherWritersWorkbook_data()
    {
        QTest::addColumn<bool>("severalSheets");
        QTest::newRow("one table") << false;
        QTest::newRow("several tables") << true;
    }

    void freshWriteIgnoresAnotherWritersWorkbook()
    {
        QFETCH(bool, severalSheets);
        const QString path = m_dir.filePath(QStringLiteral("raced%1.xlsx").arg(severalSheets));
        const QList<QPair<QString, Table>> mine{{severalSheets ? "s" : "Sheet1", {{"h"}, {"1"}}}};
        QVERIFY(VantorUtils::WriteTableDatas(path, {{"old", {{"o"}}}}, {}));
        g_otherWriterSaved = false;
        TableFileSeam::setHook(&otherWriterSavesMeanwhile);
        QString err;
        const bool written = severalSheets ? VantorUtils::WriteTableDatas(path, mine, {}, err)
                                           : VantorUtils::WriteTableData(mine.first().second, path, {}, false,
                                                                         ExportFileCodeUtf8, false, err);
        TableFileSeam::setHook(nullptr);
        QVERIFY(g_otherWriterSaved);
        QVERIFY2(written, qPrintable(err));
        QCOMPARE(VantorUtils::ReadMultiSheetTables(path, ReadAllRows), mine);
    }

    // Names holding %1-like marks appear in the read logs as they are.
    void readLogsNameTheFileAndSheet()
    {
        const QString path = m_dir.filePath(QStringLiteral("涨幅%2前%5.xlsx"));
        QVERIFY(VantorUtils::WriteTableDatas(path, {{"s%1", {{"h"}, {"1"}}}}, {}));
        auto expect = [](const QString& line) {
            QTest::ignoreMessage(QtInfoMsg, QRegularExpression(QLatin1Char('^') + QRegularExpression::escape(line) + QLatin1Char('$')));
        };
        const QString sheetLine = QStringLiteral(
            "TableFileAssist::readSheet 读取Excel文件，文件名：%1，当前sheet：s%1，共计：2行，读取配置项：0，去除空行后共计：2行");
        expect(QStringLiteral("TableFileAssist::readXslFile 读取单sheet文件：%1").arg(path));
        expect(QString(sheetLine).replace(QStringLiteral("文件名：%1"), QStringLiteral("文件名：") + path));
        QCOMPARE(VantorUtils::ReadTableData(path).size(), 2);
        expect(QStringLiteral("TableFileAssist::ReadMultiSheetTables 读取多sheet表格文件，文件名：%1，sheet数目：1").arg(path));
        expect(QString(sheetLine).replace(QStringLiteral("文件名：%1"), QStringLiteral("文件名：") + path));
        QCOMPARE(VantorUtils::ReadMultiSheetTables(path, ReadAllRows).size(), 1);
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
                for (int round = 0; round < 3 && failures[t].isEmpty(); ++round) {
                    QString err;
                    const ExportFileCode code = t % 2 ? ExportFileCodeUtf8 : ExportFileCodeGb18030;
                    const bool written = VantorUtils::WriteTableData(rows, base + ".csv", formats, false, code, false, err)
                        && VantorUtils::WriteTableData(rows, base + ".csv", formats, false, code, true, err)
                        && VantorUtils::WriteTableData(rows, base + ".xlsx", formats, false, code, false, err)
                        && VantorUtils::WriteTableData(rows, base + ".xlsx", formats, false, code, true, err)
                        && VantorUtils::WriteTableDatas(base + "-multi.xlsx", {{"甲", rows}, {"乙", rows.mid(0, 2)}},
                                                        {{"甲", formats}}, err);
                    const Table twice = rows + rows.mid(1);
                    if (!written)
                        failures[t] = QStringLiteral("write failed: ") + err;
                    else if (VantorUtils::ReadTableData(base + ".csv", ReadAllRows, err) != twice)
                        failures[t] = QStringLiteral("csv read back differs");
                    else if (VantorUtils::ReadTableData(base + ".xlsx", ReadAllRows, err) != twice)
                        failures[t] = QStringLiteral("workbook read back differs");
                    else if (VantorUtils::ReadMultiSheetTables(base + "-multi.xlsx", ReadAllRows)
                             != (QList<QPair<QString, Table>>{{"甲", rows}, {"乙", rows.mid(0, 2)}}))
                        failures[t] = QStringLiteral("sheets read back differ");
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
        if (!m_haveProbe)
            QSKIP("python3-openpyxl is not available");
        const QString path = m_dir.filePath("openpyxl.xlsx");
        QString err;
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("公式：=?SUM\\(C2:C4\\)")));
        // The formula cell reads as empty; text is trimmed.
        QCOMPARE(read(path, ReadAllRows, err),
                 (Table{{"代码", "名称", "数量", "开关"}, {"600000", "浦发银行", "1200", "true"}, {"", "", "", ""},
                        {"000001", "平安银行", "3.25", "false"}, {"", "", "", ""},
                        {"2024-01-02", "2024-01-02T03:04:05.000", "13:30:00.000", "0.125"}}));
        QCOMPARE(err, QStringLiteral("Excel文件中存在公式，Korvo目前不支持Excel公式的导入，请检查！"));

        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("公式")));
        const Table kept = read(path, SkipEmptyRows, err);
        QCOMPARE(kept.size(), 4); // the empty row and the formula-only row are dropped
        QCOMPARE(kept.at(3).first(), QStringLiteral("2024-01-02"));

        const auto sheets = VantorUtils::ReadMultiSheetTables(path, ReadAllRows);
        QCOMPARE(sheets.size(), 2);
        QCOMPARE(sheets.at(1).first, QStringLiteral("第二页"));
        QCOMPARE(sheets.at(1).second, (Table{{"x"}}));

        const Table mac = read(m_dir.filePath("mac1904.xlsx"), ReadAllRows, err);
        QCOMPARE(mac, (Table{{"2024-01-02"}, {"2024-01-02T06:00:00.000"}}));
    }

    void badFilesEndWithAnError_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QString>("err");
        QTest::newRow("truncated") << "truncated.xlsx" << QStringLiteral("Excel文件无法打开或已损坏，请检查文件后再试！");
        QTest::newRow("missing sheet part") << "missing-sheet.xlsx" << QStringLiteral("Excel文件缺少工作表内容，请检查文件后再试！");
        QTest::newRow("zip bomb") << "bomb.xlsx" << QStringLiteral("Excel文件解压后的内容超出上限，文件可能已损坏，请检查文件！");
        QTest::newRow("entity expansion") << "entities.xlsx" << QStringLiteral("Excel文件中的内容格式错误，请检查文件并重新编辑保存后再试！");
        QTest::newRow("million columns") << "million-columns.xlsx" << QStringLiteral("Excel文件的行数或列数超出上限，请检查文件！");
        // A name that is no file reads as a new, empty workbook would.
        const QString noCells = QStringLiteral("获取到的行数或列数小于等于0，请检查文件并重新编辑保存后再试，如仍有问题，请联系KORVO技术支持获取帮助。");
        QTest::newRow("no cells") << "empty" << noCells;
        QTest::newRow("no such file") << "absent.xlsx" << noCells;
    }

    void badFilesEndWithAnError()
    {
        QFETCH(QString, file);
        QFETCH(QString, err);
        QString path = m_dir.filePath(file);
        if (file == "empty") {
            path = m_dir.filePath("empty.xlsx");
            QVERIFY(VantorUtils::WriteTableDatas(path, {{"空", {}}}, {}));
        } else if (file != "absent.xlsx" && !m_haveProbe) {
            QSKIP("python3 is not available to build the broken packages");
        }
        QElapsedTimer timer;
        timer.start();
        QString got;
        const Table rows = read(path, ReadAllRows, got);
        QCOMPARE(got, err);
        QVERIFY(rows.isEmpty());
        QVERIFY2(timer.elapsed() < 5000, "a bad file must not keep the reader busy");
        const auto sheets = VantorUtils::ReadMultiSheetTables(path, ReadAllRows); // no crash either way
        if (file == "absent.xlsx")
            QVERIFY(sheets.isEmpty());
    }

    void largeSheetParsedAlongside()
    {
        // A sheet this large is parsed on a second thread and handed over in batches:
        // every cell arrives, in order, and a damaged package still ends with an error.
        QLoggingCategory::setFilterRules(QStringLiteral("vantor.tables.debug=false"));
        Table data{{"编号", "名称", "金额", "备注"}};
        for (int r = 1; r <= 40000; ++r)
            data.append({QString::number(r), QStringLiteral("证券%1").arg(r % 97), QString::number(r * 1.25),
                         r % 3 ? QStringLiteral("已成") : QString()});
        const QString path = m_dir.filePath("large.xlsx");
        QString err;
        QVERIFY(VantorUtils::WriteTableData(data, path, {{0, ExportFormatNumber}, {2, ExportFormatNumber}}, false,
                                            ExportFileCodeGb18030, false, err));
        {
            XlsxZipArchive zip;
            QVERIFY(zip.open(path, err));
            QVERIFY(zip.partSize(QStringLiteral("xl/worksheets/sheet1.xml")) >= XlsxWorkbookReader::kPipelineBytes);
        }
        QCOMPARE(read(path, ReadAllRows, err), data);
        QVERIFY(err.isEmpty());

        QFile f(path);
        QVERIFY(f.open(QIODevice::ReadWrite));
        QByteArray bytes = f.readAll();
        for (int i = bytes.size() / 2; i < bytes.size() / 2 + 64; ++i)
            bytes[i] = char(bytes[i] ^ 0x5A);
        f.seek(0);
        f.write(bytes);
        f.close();
        QVERIFY(read(path, ReadAllRows, err).isEmpty());
        QVERIFY(!err.isEmpty());
        QLoggingCategory::setFilterRules(QStringLiteral("vantor.tables.debug=true"));
    }

    void numberTextMatchesVariantText()
    {
        // The reader's short cut for plain decimals prints exactly what a double would.
        const char* samples[] = {"0", "1", "7", "42", "100", "10", "1200000", "99999999", "123456789012345",
                                 "1234567890123456", "0.5", "-0.5", "0.0001", "0.00001", "0.000123", "12.5",
                                 "1200.5", "3.25", "1.123456", "-17.75", "1E-3", "1e10", "2.50", "007", "-0",
                                 "0.1000000000000000055511151231257827", "123456789.123456789", "100000",
                                 "2000000", "-3000000", "12300000", "1230000000", "12345000000", "-9000000000"};
        for (const char* s : samples) {
            const QByteArray raw(s);
            QCOMPARE(XlsxWorkbookReader::numberText(raw), QVariant(raw.toDouble()).toString());
        }
        QRandomGenerator rng(7);
        for (int i = 0; i < 20000; ++i) {
            const double d = double(rng.bounded(2000000000)) / std::pow(10.0, rng.bounded(9)) - 1000.0;
            const QByteArray raw = QByteArray::number(d, 'g', 15);
            QCOMPARE(XlsxWorkbookReader::numberText(raw), QVariant(raw.toDouble()).toString());
            // Round integers: trailing zeros decide between the plain and the exponent form.
            const QByteArray round = QByteArray::number(rng.bounded(100000)) + QByteArray(rng.bounded(12), '0');
            QCOMPARE(XlsxWorkbookReader::numberText(round), QVariant(round.toDouble()).toString());
        }
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

    void corpusReadsWithoutCrashing()
    {
        if (!QDir(kCorpus).exists())
            QSKIP("the workbook corpus is not present");
        int files = 0;
        int withRows = 0;
        QDirIterator it(kCorpus, {"*.xlsx"}, QDir::Files);
        while (it.hasNext()) {
            const QString path = it.next();
            ++files;
            QString err;
            const Table rows = VantorUtils::ReadTableData(path, SkipEmptyRows, err);
            if (!rows.isEmpty())
                ++withRows;
            VantorUtils::ReadMultiSheetTables(path, ReadAllRows);
            // Appending rewrites the workbook; it must survive that too.
            const QString copy = m_dir.filePath("corpus-copy.xlsx");
            QFile::remove(copy);
            QFile::copy(path, copy);
            QFile::setPermissions(copy, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
            VantorUtils::WriteTableData({{"h"}, {"appended"}}, copy, {}, false, ExportFileCodeUtf8, true, err);
        }
        QVERIFY(files >= 20);
        QVERIFY(withRows >= files - 4);
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
        const QStringList v3{"源数据", "规则", "示例1", "示例2", "示例3"};
        QTest::newRow("sheet order, Chinese names") << "v3.xlsx" << v3 << "规则" << 10 << "F7" << "填写前请仔细阅读规则和示例";
        QTest::newRow("long number as text") << "v3.xlsx" << v3 << "示例3" << 9 << "B9" << "123456789012345678";
        QTest::newRow("rich inline string") << "inlineStrings.xlsx" << QStringList{"Activity by Day"} << "Activity by Day" << 38
                                            << "B1" << "HL Retail - North America - Activity by Day - MTD";
        QTest::newRow("date by number format") << "testcelltypes.xlsx" << QStringList{"Sheet1"} << "Sheet1" << 8 << "A5" << "2015-01-01";
        QTest::newRow("boolean") << "testcelltypes.xlsx" << QStringList{"Sheet1"} << "Sheet1" << 8 << "A6" << "true";
        QTest::newRow("formula") << "testcelltypes.xlsx" << QStringList{"Sheet1"} << "Sheet1" << 8 << "A7" << "";
        QTest::newRow("decimal") << "testcelltypes.xlsx" << QStringList{"Sheet1"} << "Sheet1" << 8 << "A4" << "1.024";
        QTest::newRow("chart sheet kept in order") << "testchartsheet.xlsx" << QStringList{"Chart1", "Sheet1"} << "Sheet1" << 5
                                                   << "A5" << "4";
        QTest::newRow("31-character name") << "max_sheet_name_length.xlsx"
                                           << QStringList{"αααααβββββγγγγγδδδδδεεεεεζζζζζη", "Sheet2", "Sheet3"}
                                           << "αααααβββββγγγγγδδδδδεεεεεζζζζζη" << 1 << "A1"
                                           << "This file was created by Microsoft Excel 2007";
        QTest::newRow("no styles, no shared strings") << "noStylesAndSharedStringsTest.xlsx" << QStringList{"10 Aug 2013 19_11_21"}
                                                      << "10 Aug 2013 19_11_21" << 2606 << "W1" << "Move samples";
        QTest::newRow("merged, top left") << "merged_cells2.xlsx" << QStringList{"Sheet 1"} << "Sheet 1" << 3 << "D1" << "D0E0D1E1";
        QTest::newRow("merged, covered") << "merged_cells2.xlsx" << QStringList{"Sheet 1"} << "Sheet 1" << 3 << "C2" << "";
        QTest::newRow("WPS blank lines") << "wpsBlankLineTest.xlsx" << QStringList{"Sheet1"} << "Sheet1" << 5 << "C5" << "编号";
        QTest::newRow("empty rows and columns") << "empty_rows.xlsx" << QStringList{"EmptyRows", "EmptyCols", "EmptyRowsAndCols"}
                                                << "EmptyRowsAndCols" << 4 << "C3" << "C3";
        QTest::newRow("namespaced XML") << "namespaced.xlsx" << QStringList{"Sheet1"} << "Sheet1" << 3 << "L2" << "w";
        QTest::newRow("formula column") << "samplefile.xlsx" << QStringList{"Sample", "Cities"} << "Sample" << 1000 << "D2" << "";
        QTest::newRow("date in a formula sheet") << "samplefile.xlsx" << QStringList{"Sample", "Cities"} << "Sample" << 1000 << "B2"
                                                 << "2020-03-20";
        QTest::newRow("text-formatted column") << "panic_test.xlsx" << QStringList{"上传模板"} << "上传模板" << 9884 << "D5"
                                               << "11010419890429042x";
        QTest::newRow("Numbers") << "macNumbersTest.xlsx" << QStringList{"主动技能"} << "主动技能" << 123 << "A1"
                                 << "编号";
        QTest::newRow("Google Docs") << "googleDocsTest.xlsx" << QStringList{"Sheet1"} << "Sheet1" << 2 << "B2" << "hello hello";
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
        QLoggingCategory::setFilterRules(QStringLiteral("vantor.tables.debug=false"));
        const auto book = VantorUtils::ReadMultiSheetTables(kCorpus + "/" + file, ReadAllRows);
        QStringList names;
        Table found;
        for (const auto& s : book) {
            names.append(s.first);
            if (s.first == sheet)
                found = s.second;
        }
        QCOMPARE(names, sheets);
        QCOMPARE(found.size(), rows);
        const int col = cell.at(0).unicode() - 'A';
        const int row = cell.midRef(1).toInt() - 1;
        QVERIFY(row < found.size() && col < found.at(row).size());
        QCOMPARE(found.at(row).at(col), text);
    }

    // Appending a row rewrites the workbook: every old cell keeps its value and number
    // format, also a cell that names no format in a column that has one.
    void corpusAppendKeepsOldCells_data()
    {
        QTest::addColumn<QString>("file");
        QTest::newRow("formatted columns") << "panic_test.xlsx";
        QTest::newRow("five sheets") << "v3.xlsx";
        QTest::newRow("cell types") << "testcelltypes.xlsx";
        QTest::newRow("shared formulas") << "samplefile.xlsx";
        QTest::newRow("sheet font") << "empty_rows.xlsx";
        QTest::newRow("merged") << "merged_cells.xlsx";
    }

    void corpusAppendKeepsOldCells()
    {
        QFETCH(QString, file);
        if (!QDir(kCorpus).exists() || !m_haveProbe)
            QSKIP("the workbook corpus or openpyxl is not present");
        const QString copy = m_dir.filePath("append-" + file);
        QFile::remove(copy);
        QVERIFY(QFile::copy(kCorpus + "/" + file, copy));
        QFile::setPermissions(copy, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
        const QJsonArray before = probe("dump", copy).value("sheets").toArray();
        QVERIFY(!before.isEmpty());
        QString err;
        QLoggingCategory::setFilterRules(QStringLiteral("vantor.tables.debug=false"));
        QVERIFY2(VantorUtils::WriteTableData({{"h"}, {"追加"}}, copy, {}, false, ExportFileCodeUtf8, true, err), qPrintable(err));
        const QJsonArray after = probe("dump", copy).value("sheets").toArray();
        QVERIFY(after.size() >= before.size());
        for (int i = 0; i < before.size(); ++i) {
            const QJsonObject was = before.at(i).toObject();
            const QJsonObject now = after.at(i).toObject();
            QCOMPARE(now.value("name").toString(), was.value("name").toString());
            QHash<QString, QString> kept;
            for (const QJsonValue& c : now.value("cells").toArray())
                kept.insert(c.toObject().value("ref").toString(), compact(c.toObject().value("value")) + " " + c.toObject().value("format").toString());
            for (const QJsonValue& c : was.value("cells").toArray()) {
                const QString ref = c.toObject().value("ref").toString();
                QCOMPARE(was.value("name").toString() + "!" + ref + " " + kept.value(ref),
                         was.value("name").toString() + "!" + ref + " " + compact(c.toObject().value("value")) + " "
                             + c.toObject().value("format").toString());
            }
        }
    }
};

QTEST_GUILESS_MAIN(TestTableXlsx)
#include "tst_tablexlsx.moc"
