#include "VantorUtils.h"
#include "tables/CsvTableReader.h"
#include "tables/TableFileAssist.h"
#include "tables/TableFileSeam.h"

#include <LmMessageBox.h>

#include <QTemporaryDir>
#include <QTextCodec>
#include <QtTest>

#include <cstdio>

using Table = QList<QStringList>;
using Heads = QList<QMap<QString, QVariant>>;
using Rows = QList<QMap<int, QMap<QString, QVariant>>>;

namespace {
QByteArray g_replacement;
bool g_hookRan = false;

// Another writer renames a new file over the name while a reader is between opening the
// old one and reading its rows (once).
void replaceWhileRead(TableFileSeam::Point point, const QString& fileName)
{
    if (point != TableFileSeam::CsvSizeTaken)
        return;
    TableFileSeam::setHook(nullptr);
    g_hookRan = true;
    QFile next(fileName + ".next");
    if (next.open(QIODevice::WriteOnly) && next.write(g_replacement) == g_replacement.size()) {
        next.close();
        std::rename(QFile::encodeName(next.fileName()).constData(), QFile::encodeName(fileName).constData());
    }
}

// Another writer removes the old file just before this writer does (once).
void removeFirst(TableFileSeam::Point point, const QString& fileName)
{
    if (point != TableFileSeam::RemovingOldFile)
        return;
    TableFileSeam::setHook(nullptr);
    g_hookRan = QFile::remove(fileName);
}
} // namespace

class TestTableCsv : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;

    QString writeBytes(const QString& name, const QByteArray& bytes)
    {
        const QString path = m_dir.filePath(name);
        QFile f(path);
        f.open(QIODevice::WriteOnly | QIODevice::Truncate);
        f.write(bytes);
        return path;
    }
    static QByteArray readBytes(const QString& path)
    {
        QFile f(path);
        f.open(QIODevice::ReadOnly);
        return f.readAll();
    }
    static QByteArray gb(const QString& s) { return QTextCodec::codecForName("GB18030")->fromUnicode(s); }

private slots:
    void readSplitsNaively_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<int>("cfg");
        QTest::addColumn<Table>("expected");
        QTest::newRow("quoted comma splits") << QByteArray("a,\"b,c\",d\n") << 0 << Table{{"a", "b", "c", "d"}};
        QTest::newRow("quotes dropped then trimmed") << QByteArray("\" x \",  y  ,\"\"\n") << 0 << Table{{"x", "y", ""}};
        QTest::newRow("commas only kept") << QByteArray("1,2\n,,\n") << 0 << Table{{"1", "2"}, {"", "", ""}};
        QTest::newRow("commas only skipped") << QByteArray("1,2\n,,\n") << 1 << Table{{"1", "2"}};
        QTest::newRow("empty line kept as one cell") << QByteArray("a\n\nb") << 0 << Table{{"a"}, {""}, {"b"}};
        QTest::newRow("empty line skipped") << QByteArray("a\n\nb") << 1 << Table{{"a"}, {"b"}};
        QTest::newRow("crlf and stray cr") << QByteArray("a,b\r\nc\rd,e\r\n") << 0 << Table{{"a", "b"}, {"cd", "e"}};
        QTest::newRow("utf-8 bom dropped") << QByteArray("\xEF\xBB\xBFh1,h2\n") << 0 << Table{{"h1", "h2"}};
        QTest::newRow("empty file") << QByteArray() << 0 << Table{};
        QTest::newRow("byte-order mark alone") << QByteArray("\xEF\xBB\xBF") << 0 << Table{{""}};
        QTest::newRow("carriage returns alone") << QByteArray("\r\r") << 0 << Table{{""}};
        QTest::newRow("carriage returns alone skipped") << QByteArray("\r\r") << 1 << Table{};
        QTest::newRow("ideographic space trimmed") << QString::fromUtf8("\u3000中文\u3000,x").toUtf8() << 0
                                                   << Table{{QString::fromUtf8("中文"), "x"}};
    }

    void readSplitsNaively()
    {
        QFETCH(QByteArray, content);
        QFETCH(int, cfg);
        QFETCH(Table, expected);
        const QString path = writeBytes("naive.csv", content);
        QString err;
        QCOMPARE(VantorUtils::ReadTableData(path, ReadTableCfg(cfg), err), expected);
        QVERIFY(err.isEmpty());
    }

    void readLongFileAcrossChunks()
    {
        // Multi-byte characters straddle the reader's block boundaries, and the file is
        // large enough to be read in two halves. In UTF-8 every line starts with a
        // zero-width no-break space: only the file's first one is a byte-order mark.
        for (const char* codec : {"UTF-8", "GB18030"}) {
            const QString mark = qstrcmp(codec, "UTF-8") == 0 ? QStringLiteral("\uFEFF") : QString();
            QString text;
            Table expected;
            for (int i = 0; i < 250000; ++i) {
                const QString a = QStringLiteral("名称%1").arg(i);
                text += mark + a + QLatin1Char(',') + QString::number(i * 3) + QLatin1String("\r\n");
                expected.append({i == 0 ? a : mark + a, QString::number(i * 3)});
            }
            const QString path = writeBytes(QStringLiteral("long-%1.csv").arg(codec),
                                            QTextCodec::codecForName(codec)->fromUnicode(text));
            QVERIFY(QFileInfo(path).size() > 4 << 20);
            QCOMPARE(VantorUtils::ChargeFileCodec(path), QString::fromLatin1(codec));
            QString err;
            QCOMPARE(VantorUtils::ReadTableData(path, ReadAllRows, err), expected);
        }
    }

    void largeFileReadInPieces_data()
    {
        QTest::addColumn<int>("cfg");
        QTest::addColumn<QByteArray>("tail");
        QTest::addColumn<Table>("tailRows");
        QTest::newRow("all rows") << int(ReadAllRows) << QByteArray() << Table();
        QTest::newRow("empty rows skipped") << int(SkipEmptyRows) << QByteArray() << Table();
        QTest::newRow("bad byte in the last piece") << int(ReadAllRows) << QByteArray("\xFF\n") << Table();
        // A line of carriage returns, then carriage returns up to the end, sized so that
        // the last piece holds nothing but those: they are no line, as in a file read whole.
        const QByteArray crs = QByteArray(int(CsvTableReader::kPieceBytes) - 1, '\r') + '\n'
            + QByteArray(int(CsvTableReader::kPieceBytes / 2), '\r');
        QTest::newRow("carriage returns fill the last piece") << int(ReadAllRows) << crs << Table{{""}};
    }

    void largeFileReadInPieces()
    {
        // A file read in pieces on several threads gives its rows in order, drops empty
        // rows in every piece, and fails whole when any piece holds a byte no codec reads.
        QFETCH(int, cfg);
        QFETCH(QByteArray, tail);
        QFETCH(Table, tailRows);
        const bool badByteAtEnd = tail.contains('\xFF');
        QByteArray bytes;
        Table expected;
        for (int i = 0; i < 300000; ++i) {
            if (i % 1000 == 999) {
                bytes += " , \n";
                if (cfg == ReadAllRows)
                    expected.append(QStringList{"", ""});
                continue;
            }
            bytes += "\"" + QByteArray::number(i) + "\",\"row\"\r\n";
            expected.append({QString::number(i), "row"});
        }
        bytes += tail;
        expected += tailRows;
        const QString path = writeBytes("pieces.csv", bytes);
        QVERIFY(QFileInfo(path).size() > 4 << 20);
        QString err;
        const Table rows = VantorUtils::ReadTableData(path, ReadTableCfg(cfg), err);
        if (badByteAtEnd) {
            QVERIFY(rows.isEmpty());
            QCOMPARE(err, QStringLiteral("不支持的文件编码方式，请使用UTF-8或者GB2312编码！"));
        } else {
            QCOMPARE(rows, expected);
        }
    }

    // A reader gives the rows of the file it opened, whole, even when a writer renames
    // another file over the name while it reads.
    void readWhileReplaced_data()
    {
        QTest::addColumn<int>("lines");
        QTest::newRow("read whole") << 20;
        QTest::newRow("read in pieces") << 400000;
    }

    void readWhileReplaced()
    {
        QFETCH(int, lines);
        QByteArray bytes;
        Table expected;
        g_replacement.clear();
        for (int i = 0; i < lines; ++i) {
            bytes += QByteArray::number(i) + ",old\n";
            expected.append({QString::number(i), "old"});
            g_replacement += "new," + QByteArray::number(i * 7) + ",x\n";
        }
        const QString path = writeBytes("replaced.csv", bytes);
        g_hookRan = false;
        TableFileSeam::setHook(&replaceWhileRead);
        QString err;
        const Table rows = VantorUtils::ReadTableData(path, ReadAllRows, err);
        TableFileSeam::setHook(nullptr);
        QVERIFY(g_hookRan);
        QCOMPARE(readBytes(path), g_replacement);
        QCOMPARE(rows.size(), expected.size());
        QCOMPARE(rows, expected);
    }

    void everyTwoByteGb18030Character()
    {
        // The reader decodes two-byte characters through its own table: it must agree
        // with the codec on each of them.
        QByteArray bytes;
        for (int lead = 0x81; lead <= 0xFE; ++lead) {
            for (int trail = 0x40; trail <= 0xFE; ++trail) {
                if (trail == 0x7F)
                    continue;
                bytes.append(char(lead)).append(char(trail));
            }
            bytes.append("\n");
        }
        Table expected;
        for (const QString& line : QTextCodec::codecForName("GB18030")->toUnicode(bytes).split(QLatin1Char('\n')))
            expected.append({line.trimmed()});
        expected.removeLast();
        QString err;
        QCOMPARE(VantorUtils::ReadTableData(writeBytes("all-gb.csv", bytes), ReadAllRows, err), expected);
    }

    void repeatedValuesStayApart()
    {
        // Cells of a column that repeat a few values share them; values that merely
        // look alike (same length, same hash slot by chance) must not.
        QByteArray text;
        Table expected;
        for (int i = 0; i < 3000; ++i) {
            const QString a = QStringLiteral("状态%1").arg(i % 7);
            const QString b = QString::number(i % 2 ? i : i % 5);
            const QString c = i % 3 ? QStringLiteral("ab") : QStringLiteral("ba");
            text += (QLatin1Char('"') + a + QLatin1String("\", ") + b + QLatin1Char(',') + c + QLatin1String("\r\n")).toUtf8();
            expected.append({a, b, c});
        }
        QString err;
        QCOMPARE(VantorUtils::ReadTableData(writeBytes("repeats.csv", text), ReadAllRows, err), expected);
    }

    void codecDetection_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QString>("codec");
        QTest::newRow("ascii is utf-8") << QByteArray("a,b\n1,2\n") << "UTF-8";
        QTest::newRow("utf-8 chinese") << QString::fromUtf8("代码,名称\n").toUtf8() << "UTF-8";
        QTest::newRow("gbk chinese") << gb(QString::fromUtf8("代码,名称\n")) << "GB18030";
        QTest::newRow("gb18030 four-byte") << gb(QString::fromUtf8("€\u00e9\U0001F600\n")) << "GB18030";
        QTest::newRow("utf-8 that is also gb18030") << QByteArray("\xC3\xA9\xC3\xA9") << "UTF-8";
        QTest::newRow("invalid in both") << QByteArray("a,\xFF\xFF\n") << "";
        QTest::newRow("gb18030 last bmp form") << QByteArray("a,\x84\x31\xA4\x39\n") << "GB18030";
        QTest::newRow("gb18030 past the bmp") << QByteArray("a,\x84\x31\xA5\x30\n") << "";
        QTest::newRow("gb18030 last supplementary form") << QByteArray("a,\xE3\x32\x9A\x35\n") << "GB18030";
        QTest::newRow("gb18030 past U+10FFFF") << QByteArray("a,\xE3\x32\x9A\x36\n") << "";
        // A character cut off by the end of the file is not invalid: the codec would still be
        // waiting for the rest of it.
        QTest::newRow("gbk cut at the end") << QByteArray("ab\xB4") << "GB18030";
        QTest::newRow("utf-8 cut at the end") << QByteArray("a,\xE4\xB8") << "UTF-8";
        QTest::newRow("stray utf-8 continuation at the end") << QByteArray("a,\x80") << "";
        QTest::newRow("nul bytes") << QByteArray("a,b\n\0\0c\n", 8) << "";
    }

    void codecDetection()
    {
        QFETCH(QByteArray, content);
        QFETCH(QString, codec);
        const QString path = writeBytes("codec.csv", content);
        QCOMPARE(VantorUtils::ChargeFileCodec(path), codec);
        QString err;
        const Table rows = VantorUtils::ReadTableData(path, ReadAllRows, err);
        if (codec.isEmpty()) {
            QCOMPARE(err, QStringLiteral("不支持的文件编码方式，请使用UTF-8或者GB2312编码！"));
            QVERIFY(rows.isEmpty());
        } else {
            QVERIFY2(err.isEmpty(), qPrintable(err));
        }
    }

    void missingFileHasNoCodec()
    {
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("不支持的文件编码格式")));
        QCOMPARE(VantorUtils::ChargeFileCodec(m_dir.filePath("absent.csv")), QString());
    }

    void dispatchByExtension_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("err");
        QTest::newRow("empty name") << "" << QStringLiteral("文件名为空，请重新选择！");
        QTest::newRow("upper CSV read") << "DATA.CSV" << "";
        QTest::newRow("only the extension") << ".csv" << "";
        QTest::newRow("mixed Xlsx read") << "Data.Xlsx" << "";
        QTest::newRow("upper XLS refused") << "DATA.XLS" << QStringLiteral("不支持的文件扩展名:XLS！");
        QTest::newRow("no dot") << "data" << QStringLiteral("找不到文件扩展名！");
        QTest::newRow("leading dot only") << ".txt" << QStringLiteral("找不到文件扩展名！");
        QTest::newRow("other extension") << "table.txt" << QStringLiteral("不支持的文件扩展名:txt！");
    }

    void dispatchByExtension()
    {
        QFETCH(QString, name);
        QFETCH(QString, err);
        QString path = name;
        if (err.isEmpty()) {
            path = m_dir.filePath(name);
            if (name.endsWith(QLatin1String("CSV"), Qt::CaseInsensitive))
                writeBytes(name, "h\n1\n");
            else if (name.endsWith(QLatin1String("xlsx"), Qt::CaseInsensitive))
                QVERIFY(VantorUtils::WriteTableData({{"h"}, {"1"}}, path, {}, false, ExportFileCodeUtf8, false));
        }
        QString got;
        const Table rows = VantorUtils::ReadTableData(path, ReadAllRows, got);
        QCOMPARE(got, err);
        if (err.isEmpty())
            QCOMPARE(rows, (Table{{"h"}, {"1"}}));
    }

    void writeCsvCells_data()
    {
        QTest::addColumn<QString>("cell");
        QTest::addColumn<bool>("numeric");
        QTest::addColumn<QByteArray>("line");
        QTest::newRow("numeric loses separators") << "1,234.50" << true << QByteArray("\"1234.50\"");
        QTest::newRow("numeric loses spaces") << "1 234" << true << QByteArray("\"1234\"");
        QTest::newRow("plain quoted, utf-8 without a byte-order mark")
            << QStringLiteral("名称") << false << QStringLiteral("\"名称\"").toUtf8();
        QTest::newRow("quote becomes backquote") << "say \"hi\"" << false << QByteArray("say `hi`");
        QTest::newRow("comma and quote kept") << "a,\"b\"" << false << QByteArray("\"a,\"b\"\"");
        QTest::newRow("crlf quoted") << "a\r\nb" << false << QByteArray("\"a\r\nb\"");
        QTest::newRow("numeric crlf once separators are gone")
            << "\"1\r ,\n2" << true << QByteArray("\"\"1\r\n2\"");
        QTest::newRow("empty cell") << "" << false << QByteArray("\"\"");
    }

    void writeCsvCells()
    {
        QFETCH(QString, cell);
        QFETCH(bool, numeric);
        QFETCH(QByteArray, line);
        const QString path = m_dir.filePath("cells.csv");
        QMap<int, ExportFormat> formats;
        if (numeric)
            formats.insert(1, ExportFormatNumber);
        QString err;
        QVERIFY(VantorUtils::WriteTableData({{"k", "v"}, {"x", cell}}, path, formats, false, ExportFileCodeUtf8, false, err));
        QCOMPARE(readBytes(path), QByteArray("\"k\",\"v\"\r\n\"x\",") + line + "\r\n");
    }

    void formatKeysBeyondTheTable_data()
    {
        QTest::addColumn<QString>("name");
        QTest::newRow("csv") << "keys.csv";
        QTest::newRow("workbook") << "keys.xlsx";
    }

    void formatKeysBeyondTheTable()
    {
        // Columns no row reaches, however far, cost nothing and leave the others alone.
        QFETCH(QString, name);
        const QString path = m_dir.filePath(name);
        const QMap<int, ExportFormat> formats{
            {-1, ExportFormatNumber}, {1, ExportFormatNumber}, {1 << 30, ExportFormatNumber}, {INT_MAX, ExportFormatNumber}};
        QString err;
        QVERIFY(VantorUtils::WriteTableData({{"k", "v"}, {"x", "1,234.5"}}, path, formats, false, ExportFileCodeUtf8, false, err));
        QCOMPARE(VantorUtils::ReadTableData(path, ReadAllRows, err), (Table{{"k", "v"}, {"x", "1234.5"}}));
        QVERIFY(err.isEmpty());
    }

    void everyBmpCharacterWrittenAsTheCodecDoes()
    {
        // The writer encodes GB18030 through its own table; every character must come out
        // as the codec writes it, and a block holding a surrogate pair or a stray
        // surrogate as well.
        Table data;
        QString cell;
        for (int u = 1; u <= 0xFFFF; ++u) {
            if (QChar::isSurrogate(uint(u)) || u == '"' || u == ',' || u == '\r')
                continue;
            cell.append(QChar(ushort(u)));
            if (cell.size() == 512) {
                data.append({cell});
                cell.clear();
            }
        }
        data.append({cell});
        const QString path = m_dir.filePath("all-bmp.csv");
        for (const QString& extra : {QString(), QString::fromUtf8("笑\U0001F600脸"), QString(QChar(0xD83D)) + "a"}) {
            if (!extra.isEmpty())
                data.append({extra});
            QString text;
            for (const QStringList& row : qAsConst(data))
                text += QLatin1Char('"') + row.first() + QLatin1String("\"\r\n");
            QVERIFY(VantorUtils::WriteTableData(data, path, {}, false, ExportFileCodeGb18030, false));
            QCOMPARE(readBytes(path), gb(text));
        }
    }

    void appendCsvDropsHeaderOnlyWhenFileHasContent_data()
    {
        QTest::addColumn<QByteArray>("before");
        QTest::addColumn<bool>("exists");
        QTest::addColumn<QByteArray>("after");
        QTest::newRow("non-empty") << QByteArray("\"h\"\r\n\"1\"\r\n") << true << QByteArray("\"h\"\r\n\"1\"\r\n\"2\"\r\n");
        QTest::newRow("empty") << QByteArray() << true << QByteArray("\"h\"\r\n\"2\"\r\n");
        QTest::newRow("new") << QByteArray() << false << QByteArray("\"h\"\r\n\"2\"\r\n");
    }

    void appendCsvDropsHeaderOnlyWhenFileHasContent()
    {
        QFETCH(QByteArray, before);
        QFETCH(bool, exists);
        QFETCH(QByteArray, after);
        const QString path = m_dir.filePath("append.csv");
        QFile::remove(path);
        if (exists)
            writeBytes("append.csv", before);
        QVERIFY(VantorUtils::WriteTableData({{"h"}, {"2"}}, path, {}, false, ExportFileCodeUtf8, true));
        QCOMPARE(readBytes(path), after);
    }

    void writeFailures()
    {
        const QString untouched = m_dir.filePath("untouched.csv");
        QString err;
        QVERIFY(!VantorUtils::WriteTableData({}, untouched, {}, false, ExportFileCodeUtf8, false, err));
        QCOMPARE(err, QStringLiteral("无数据可写入！"));
        QVERIFY(!QFile::exists(untouched));

        err.clear();
        QVERIFY(!VantorUtils::WriteTableData({{"a"}}, m_dir.filePath("no/such/dir/x.csv"), {}, false, ExportFileCodeUtf8,
                                             false, err));
        QCOMPARE(err, QStringLiteral("文件打开失败！"));

        QVERIFY(!VantorUtils::WriteTableDatas(m_dir.filePath("multi.txt"), {{"s", {{"a"}}}}, {}, err));
        QCOMPARE(err, QStringLiteral("多表格导出功能不支持csv格式导出"));
    }

    void lineTooLongIsRefusedAndLosesNothing_data()
    {
        QTest::addColumn<bool>("append");
        QTest::newRow("fresh") << false;
        QTest::newRow("append") << true;
    }

    void lineTooLongIsRefusedAndLosesNothing()
    {
        // One shared text 1100 times: little to hold, but a line longer than a string can be.
        QFETCH(bool, append);
        const QString path = m_dir.filePath("long-line.csv");
        writeBytes("long-line.csv", "\"h\"\r\n\"1\"\r\n");
        const QStringList row(QVector<QString>(1100, QString(1 << 20, QLatin1Char('x'))).toList());
        QString err;
        QVERIFY(!VantorUtils::WriteTableData({{"h"}, {"2"}, row}, path, {}, false, ExportFileCodeUtf8, append, err));
        QCOMPARE(err, QStringLiteral("文件写入失败！"));
        QCOMPARE(readBytes(path), QByteArray("\"h\"\r\n\"1\"\r\n"));
    }

    // The export's log line names the file as it was given, percent signs and all.
    void exportLogNamesTheFile() // and so does the read log
    {
        const QString path = m_dir.filePath(QStringLiteral("涨幅%2前%3.csv"));
        const QString line = QStringLiteral("TableFileAssist::WriteTableData 导出文件：%1，记录行数：2，是否追加：0").arg(path);
        QTest::ignoreMessage(QtInfoMsg, QRegularExpression(QLatin1Char('^') + QRegularExpression::escape(line) + QLatin1Char('$')));
        QVERIFY(VantorUtils::WriteTableData({{"h"}, {"1"}}, path, {}, false, ExportFileCodeUtf8, false));
        const QString read = QStringLiteral("TableFileAssist::readCsvFile 读取csv文件，文件名：%1，共计：2行，读取配置项：0，去除空行后共计：2行").arg(path);
        QTest::ignoreMessage(QtInfoMsg, QRegularExpression(QLatin1Char('^') + QRegularExpression::escape(read) + QLatin1Char('$')));
        QCOMPARE(VantorUtils::ReadTableData(path).size(), 2);
    }

    // Writing looks at the name's case, unlike reading: only a lower-case ".csv" is text,
    // and only lower-case ".csv" and ".txt" refuse several tables.
    void writeDispatchIsCaseSensitive_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QByteArray>("magic");
        QTest::addColumn<bool>("severalWritten");
        QTest::newRow("csv") << "w.csv" << QByteArray("\"h\"") << false;
        QTest::newRow("upper CSV is a workbook") << "W.CSV" << QByteArray("PK") << true;
        QTest::newRow("upper TXT is a workbook") << "W.TXT" << QByteArray("PK") << true;
        QTest::newRow("txt") << "w.txt" << QByteArray("PK") << false;
    }

    void writeDispatchIsCaseSensitive()
    {
        QFETCH(QString, name);
        QFETCH(QByteArray, magic);
        QFETCH(bool, severalWritten);
        const QString path = m_dir.filePath(name);
        QVERIFY(VantorUtils::WriteTableData({{"h"}, {"1"}}, path, {}, false, ExportFileCodeUtf8, false));
        QCOMPARE(readBytes(path).left(magic.size()), magic);
        QString err;
        QCOMPARE(VantorUtils::WriteTableDatas(m_dir.filePath("several-" + name), {{"s", {{"a"}}}}, {}, err), severalWritten);
        QCOMPARE(QFile::exists(m_dir.filePath("several-" + name)), severalWritten);
    }

    void fileThatCannotBeRemovedIsReported()
    {
        // A folder where the file should be cannot be removed, like a file held open.
        QTemporaryDir dir;
        const QString path = dir.filePath("held.csv");
        QVERIFY(QDir(dir.path()).mkpath("held.csv/inner"));
        QList<LmMessageBox::Shown> shown;
        LmMessageBox::setAnswerHook([&](const LmMessageBox::Shown& s) { shown.append(s); return 0; });
        QString err;
        const bool ok = VantorUtils::WriteTableData({{"a"}}, path, {}, true, ExportFileCodeUtf8, false, err);
        const bool quiet = VantorUtils::WriteTableData({{"a"}}, path, {}, false, ExportFileCodeUtf8, false);
        LmMessageBox::clearAnswerHook();
        QVERIFY(!ok);
        QVERIFY(!quiet);
        QCOMPARE(err, QStringLiteral("文件已经打开无法重写 请关闭文件后再试"));
        QCOMPARE(shown.size(), 1);
        QCOMPARE(shown.first().title, QStringLiteral("导出文件"));
        QCOMPARE(shown.first().text, err);
        QCOMPARE(shown.first().type, 1);
        QVERIFY(QFileInfo(dir.filePath("held.csv/inner")).isDir());

        QVERIFY(QDir(dir.path()).mkpath("held.xlsx/inner"));
        QVERIFY(!VantorUtils::WriteTableDatas(dir.filePath("held.xlsx"), {{"s", {{"a"}}}}, {}, err));
        QCOMPARE(err, QStringLiteral("文件导出失败，文件名：") + dir.filePath("held.xlsx"));
    }

    // The old file is already gone when this writer comes to remove it (another writer
    // removed it first): nothing is held open, and the table is written.
    void oldFileRemovedByAnotherWriter_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("severalSheets");
        QTest::newRow("csv") << "gone.csv" << false;
        QTest::newRow("workbook") << "gone.xlsx" << false;
        QTest::newRow("several sheets") << "gone-several.xlsx" << true;
    }

    void oldFileRemovedByAnotherWriter()
    {
        QFETCH(QString, name);
        QFETCH(bool, severalSheets);
        const QString path = m_dir.filePath(name);
        const Table table{{"h"}, {"1"}};
        QVERIFY(VantorUtils::WriteTableDatas(m_dir.filePath("old.xlsx"), {{"Sheet1", {{"old"}}}}, {}));
        QVERIFY(QFile::copy(m_dir.filePath("old.xlsx"), path));
        int shown = 0;
        LmMessageBox::setAnswerHook([&](const LmMessageBox::Shown&) { ++shown; return 0; });
        g_hookRan = false;
        TableFileSeam::setHook(&removeFirst);
        QString err;
        const bool written = severalSheets
            ? VantorUtils::WriteTableDatas(path, {{"Sheet1", table}}, {}, err)
            : VantorUtils::WriteTableData(table, path, {}, true, ExportFileCodeUtf8, false, err);
        TableFileSeam::setHook(nullptr);
        LmMessageBox::clearAnswerHook();
        QVERIFY(g_hookRan);
        QVERIFY2(written, qPrintable(err));
        QCOMPARE(shown, 0);
        QCOMPARE(VantorUtils::ReadTableData(path, ReadAllRows, err), table);
    }

    void freshWriteLeavesNoTemporaryFiles()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath("t.csv");
        QVERIFY(VantorUtils::WriteTableData({{"a"}, {"b"}}, path, {}, false, ExportFileCodeUtf8, false));
        QVERIFY(VantorUtils::WriteTableData({{"a"}, {"b"}}, dir.filePath("t.xlsx"), {}, false, ExportFileCodeUtf8, false));
        QCOMPARE(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden).size(), 2);
    }

    // ---- rows from on-screen tables and trees ----

    void tableContent_data()
    {
        QTest::addColumn<Heads>("heads");
        QTest::addColumn<Rows>("rows");
        QTest::addColumn<bool>("allColumns");
        QTest::addColumn<QList<int>>("columns");
        QTest::addColumn<Table>("expected");

        const Heads heads{{{"Head_DisplayRole", "A"}, {"Head_ColumnIndex", 0}},
                          {{"Head_DisplayRole", "B"}, {"Head_ColumnIndex", 1}, {"Head_ShowRole", false}},
                          {{"Head_DisplayRole", "C"}, {"Head_ColumnIndex", 2}}};
        const Rows rows{{{0, {{"0", "a0"}}}, {1, {{"0", "b0"}, {"257", "b1"}}}, {2, {{"0", "x"}, {"257", "y"}, {"259", "z"}}}},
                        {{0, {}}}};
        QTest::newRow("hidden column left out") << heads << rows << false << QList<int>{}
                                                << Table{{"A", "C"}, {"a0", "z"}, {"", ""}};
        QTest::newRow("all columns") << heads << rows << true << QList<int>{}
                                     << Table{{"A", "B", "C"}, {"a0", "b1", "z"}, {"", "", ""}};
        QTest::newRow("explicit order, out of range ignored") << heads << rows << false << QList<int>{2, 0, 3, -1}
                                                              << Table{{"C", "A"}, {"z", "a0"}, {"", ""}};
        QTest::newRow("no rows gives the header") << heads << Rows{} << false << QList<int>{} << Table{{"A", "C"}};
        const Heads mixed{{{"Head_DisplayRole", "U"}, {"Head_UserRole", 5}},
                          {{"Head_DisplayRole", "N0"}},
                          {{"Head_DisplayRole", "I"}, {"Head_ColumnIndex", 0}},
                          {{"Head_DisplayRole", "N1"}}};
        QTest::newRow("keys fall through to a running number")
            << mixed << Rows{{{0, {{"0", "zero"}}}, {1, {{"0", "one"}}}, {5, {{"0", "five"}}}}} << false << QList<int>{}
            << Table{{"U", "N0", "I", "N1"}, {"five", "zero", "zero", "one"}};
    }

    void tableContent()
    {
        QFETCH(Heads, heads);
        QFETCH(Rows, rows);
        QFETCH(bool, allColumns);
        QFETCH(QList<int>, columns);
        QFETCH(Table, expected);
        QCOMPARE(VantorUtils::GetCsvContentFromLmTable(heads, rows, allColumns, columns), expected);
    }

    void treeContent_data()
    {
        QTest::addColumn<int>("mode");
        QTest::addColumn<QStringList>("names");
        QTest::newRow("all rows") << 255 << QStringList{"marked", "plain", "nocol", "empty"};
        QTest::newRow("marked rows") << 2 << QStringList{"marked"};
        QTest::newRow("unmarked rows") << 0 << QStringList{"plain", "nocol", "empty"};
        QTest::newRow("other mode like unmarked") << 1 << QStringList{"plain", "nocol", "empty"};
    }

    void treeContent()
    {
        QFETCH(int, mode);
        QFETCH(QStringList, names);
        const Heads heads{{{"Head_DisplayRole", "Name"}, {"Head_ColumnIndex", 0}}};
        const Rows rows{{{0, {{"0", "marked"}}}, {1, {{"256", "x"}}}},
                        {{0, {{"0", "plain"}}}, {1, {{"256", ""}}}},
                        {{0, {{"0", "nocol"}}}},
                        {}};
        const Table table = VantorUtils::GetCsvContentFromLmTree(heads, rows, 1, mode, false);
        QStringList got;
        for (int i = 1; i < table.size(); ++i)
            got.append(table.at(i).first().isEmpty() ? QStringLiteral("empty") : table.at(i).first());
        QCOMPARE(got, names);
    }

    void columnFormats()
    {
        const Heads heads{{{"Head_FormatRole", 1}},
                          {{"Head_FormatRole", 1}, {"Head_ShowRole", false}},
                          {},
                          {{"Head_FormatRole", 7}}};
        QCOMPARE(VantorUtils::GetColumnFormatFromHead(heads, false),
                 (QMap<int, ExportFormat>{{0, ExportFormatNumber}, {1, ExportFormatText}, {2, ExportFormat(7)}}));
        QCOMPARE(VantorUtils::GetColumnFormatFromHead(heads, true),
                 (QMap<int, ExportFormat>{{0, ExportFormatNumber}, {1, ExportFormatNumber}, {2, ExportFormatText}, {3, ExportFormat(7)}}));
    }
};

QTEST_GUILESS_MAIN(TestTableCsv)
#include "tst_tablecsv.moc"
