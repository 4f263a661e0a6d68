// CSV files, codec detection, the choice of reader and writer by name, what a failed or
// disturbed write leaves behind, and the rows made from on-screen tables and trees.
#include "VantorUtils.h"
#include "tables/CsvTableReader.h"
#include "tables/TableFileSeam.h"

#include <LmMessageBox.h>

#include <QTemporaryDir>
#include <QTextCodec>
#include <QtTest>

#include <cstdio>
#include <functional>

using Table = QList<QStringList>;
using Sheets = QList<QPair<QString, Table>>;
using Heads = QList<QMap<QString, QVariant>>;
using Rows = QList<QMap<int, QMap<QString, QVariant>>>;

namespace {
const QString kBadCodec = QStringLiteral("不支持的文件编码方式，请使用UTF-8或者GB2312编码！");

// Another writer's move on the file, made once when the table code reaches a point.
TableFileSeam::Point g_point;
std::function<void(const QString&)> g_move;
bool g_moved = false;
void otherWriter(TableFileSeam::Point point, const QString& fileName)
{
    if (point != g_point)
        return;
    TableFileSeam::setHook(nullptr);
    g_moved = true;
    g_move(fileName);
}
template <typename F>
auto meanwhile(TableFileSeam::Point point, std::function<void(const QString&)> move, F action)
{
    g_point = point;
    g_move = std::move(move);
    g_moved = false;
    TableFileSeam::setHook(&otherWriter);
    const auto result = action();
    TableFileSeam::setHook(nullptr);
    return result;
}

void expectLog(QtMsgType type, const QString& line)
{
    QTest::ignoreMessage(type, QRegularExpression(QLatin1Char('^') + QRegularExpression::escape(line) + QLatin1Char('$')));
}
} // namespace

class TestTableCsv : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;

    static QString put(const QString& path, const QByteArray& bytes)
    {
        QFile f(path);
        f.open(QIODevice::WriteOnly | QIODevice::Truncate);
        f.write(bytes);
        return path;
    }
    QString writeBytes(const QString& name, const QByteArray& bytes) { return put(m_dir.filePath(name), bytes); }
    static QByteArray readBytes(const QString& path)
    {
        QFile f(path);
        f.open(QIODevice::ReadOnly);
        return f.readAll();
    }
    static QByteArray gb(const QString& s) { return QTextCodec::codecForName("GB18030")->fromUnicode(s); }
    static bool write(const Table& data, const QString& path, bool append = false, QString* err = nullptr,
                      const QMap<int, ExportFormat>& formats = {})
    {
        QString e;
        return VantorUtils::WriteTableData(data, path, formats, false, ExportFileCodeUtf8, append, err ? *err : e);
    }

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
        QString err;
        QCOMPARE(VantorUtils::ReadTableData(writeBytes("naive.csv", content), ReadTableCfg(cfg), err), expected);
        QVERIFY(err.isEmpty());
    }

    void largeFileReadInPieces_data()
    {
        QTest::addColumn<QByteArray>("codec");
        QTest::addColumn<int>("cfg");
        QTest::addColumn<QByteArray>("tail");
        QTest::addColumn<Table>("tailRows");
        QTest::newRow("utf-8") << QByteArray("UTF-8") << int(ReadAllRows) << QByteArray() << Table();
        QTest::newRow("gb18030") << QByteArray("GB18030") << int(ReadAllRows) << QByteArray() << Table();
        QTest::newRow("empty rows skipped") << QByteArray("UTF-8") << int(SkipEmptyRows) << QByteArray() << Table();
        QTest::newRow("bad byte in the last piece") << QByteArray("UTF-8") << int(ReadAllRows) << QByteArray("\xFF\n") << Table();
        // A line of carriage returns, then carriage returns up to the end, sized so that
        // the last piece holds nothing but those: they are no line, as in a file read whole.
        const QByteArray crs = QByteArray(int(CsvTableReader::kPieceBytes) - 1, '\r') + '\n'
            + QByteArray(int(CsvTableReader::kPieceBytes / 2), '\r');
        QTest::newRow("carriage returns fill the last piece") << QByteArray("UTF-8") << int(ReadAllRows) << crs << Table{{""}};
    }

    void largeFileReadInPieces()
    {
        // Read in pieces on several threads: rows in order, empty rows dropped in every
        // piece, multi-byte characters across piece ends, and the whole read failed by a
        // byte no codec reads. In UTF-8 every line starts with a zero-width no-break space:
        // only the file's first one is a byte-order mark.
        QFETCH(QByteArray, codec);
        QFETCH(int, cfg);
        QFETCH(QByteArray, tail);
        QFETCH(Table, tailRows);
        const QString mark = codec == "UTF-8" ? QStringLiteral("\uFEFF") : QString();
        QString text;
        Table expected;
        for (int i = 0; i < 300000; ++i) {
            if (i % 1000 == 999) {
                text += QLatin1String(" , \n");
                if (cfg == ReadAllRows)
                    expected.append(QStringList{"", ""});
                continue;
            }
            const QString name = QStringLiteral("名称%1").arg(i);
            text += mark + name + QLatin1String(",\"") + QString::number(i) + QLatin1String("\"\r\n");
            expected.append({i == 0 ? name : mark + name, QString::number(i)});
        }
        const QString path = writeBytes("pieces.csv", QTextCodec::codecForName(codec)->fromUnicode(text) + tail);
        QVERIFY(QFileInfo(path).size() > CsvTableReader::kSplitBytes);
        const bool bad = tail.contains('\xFF');
        QCOMPARE(VantorUtils::ChargeFileCodec(path), bad ? QString() : QString::fromLatin1(codec));
        QString err;
        const Table rows = VantorUtils::ReadTableData(path, ReadTableCfg(cfg), err);
        QCOMPARE(err, bad ? kBadCodec : QString());
        QCOMPARE(rows, bad ? Table() : expected + tailRows);
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
        QByteArray replacement;
        Table expected;
        for (int i = 0; i < lines; ++i) {
            bytes += QByteArray::number(i) + ",old\n";
            expected.append({QString::number(i), "old"});
            replacement += "new," + QByteArray::number(i * 7) + ",x\n";
        }
        const QString path = writeBytes("replaced.csv", bytes);
        const Table rows = meanwhile(TableFileSeam::CsvSizeTaken, [&](const QString& name) {
            QFile next(name + ".next");
            if (next.open(QIODevice::WriteOnly) && next.write(replacement) == replacement.size() && next.flush())
                std::rename(QFile::encodeName(next.fileName()).constData(), QFile::encodeName(name).constData());
        }, [&] { return VantorUtils::ReadTableData(path); });
        QVERIFY(g_moved);
        QCOMPARE(readBytes(path), replacement);
        QCOMPARE(rows, expected);
    }

    void everyTwoByteGb18030Character()
    {
        // Two-byte characters are decoded through the reader's own table: it must agree
        // with the codec on each of them.
        QByteArray bytes;
        for (int lead = 0x81; lead <= 0xFE; ++lead) {
            for (int trail = 0x40; trail <= 0xFE; ++trail) {
                if (trail != 0x7F)
                    bytes.append(char(lead)).append(char(trail));
            }
            bytes.append("\n");
        }
        Table expected;
        for (const QString& line : QTextCodec::codecForName("GB18030")->toUnicode(bytes.chopped(1)).split(QLatin1Char('\n')))
            expected.append({line.trimmed()});
        QCOMPARE(VantorUtils::ReadTableData(writeBytes("all-gb.csv", bytes)), expected);
    }

    void repeatedValuesStayApart()
    {
        // Cells of a column that repeat a few values share them; values that merely look
        // alike (same length, same hash slot by chance) must not.
        QByteArray text;
        Table expected;
        for (int i = 0; i < 3000; ++i) {
            const QStringList row{QStringLiteral("状态%1").arg(i % 7), QString::number(i % 2 ? i : i % 5), i % 3 ? "ab" : "ba"};
            text += (QLatin1Char('"') + row.join(QLatin1String("\",\"")) + QLatin1String("\"\r\n")).toUtf8();
            expected.append(row);
        }
        QCOMPARE(VantorUtils::ReadTableData(writeBytes("repeats.csv", text)), expected);
    }

    void codecDetection_data()
    {
        QTest::addColumn<QByteArray>("content"); // null: no such file
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
        QTest::newRow("no such file") << QByteArray() << "";
    }

    void codecDetection()
    {
        QFETCH(QByteArray, content);
        QFETCH(QString, codec);
        const QString path = content.isNull() ? m_dir.filePath("absent.csv") : writeBytes("codec.csv", content);
        QCOMPARE(VantorUtils::ChargeFileCodec(path), codec);
        QString err;
        const Table rows = VantorUtils::ReadTableData(path, ReadAllRows, err);
        QCOMPARE(err, codec.isEmpty() ? kBadCodec : QString());
        QCOMPARE(rows.isEmpty(), codec.isEmpty());
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
        const QString path = err.isEmpty() ? m_dir.filePath(name) : name;
        if (name.endsWith(QLatin1String("CSV"), Qt::CaseInsensitive))
            writeBytes(name, "h\n1\n");
        else if (name.endsWith(QLatin1String("xlsx"), Qt::CaseInsensitive))
            QVERIFY(write({{"h"}, {"1"}}, path));
        QString got;
        const Table rows = VantorUtils::ReadTableData(path, ReadAllRows, got);
        QCOMPARE(got, err);
        QCOMPARE(rows, err.isEmpty() ? (Table{{"h"}, {"1"}}) : Table());
    }

    // Writing looks at the name's case, unlike reading: only a lower-case ".csv" is text,
    // and only lower-case ".csv" and ".txt" refuse several tables. Nothing but the file
    // written is left in the folder.
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
        QTemporaryDir dir;
        QVERIFY(write({{"h"}, {"1"}}, dir.filePath(name)));
        QCOMPARE(readBytes(dir.filePath(name)).left(magic.size()), magic);
        QString err;
        QCOMPARE(VantorUtils::WriteTableDatas(dir.filePath("several-" + name), {{"s", {{"a"}}}}, {}, err), severalWritten);
        QCOMPARE(QFile::exists(dir.filePath("several-" + name)), severalWritten);
        QCOMPARE(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden).size(), severalWritten ? 2 : 1);
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
        QTest::newRow("numeric crlf once separators are gone") << "\"1\r ,\n2" << true << QByteArray("\"\"1\r\n2\"");
        QTest::newRow("empty cell") << "" << false << QByteArray("\"\"");
    }

    void writeCsvCells()
    {
        QFETCH(QString, cell);
        QFETCH(bool, numeric);
        QFETCH(QByteArray, line);
        const QString path = m_dir.filePath("cells.csv");
        QVERIFY(write({{"k", "v"}, {"x", cell}}, path, false, nullptr, {{1, numeric ? ExportFormatNumber : ExportFormatText}}));
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
        QVERIFY(write({{"k", "v"}, {"x", "1,234.5"}}, path, false, nullptr,
                      {{-1, ExportFormatNumber}, {1, ExportFormatNumber}, {1 << 30, ExportFormatNumber}, {INT_MAX, ExportFormatNumber}}));
        QCOMPARE(VantorUtils::ReadTableData(path), (Table{{"k", "v"}, {"x", "1234.5"}}));
    }

    void everyBmpCharacterWrittenAsTheCodecDoes()
    {
        // GB18030 is encoded through the writer's own table; every character must come out
        // as the codec writes it, and a block holding a surrogate pair or a stray surrogate
        // as well.
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
        QTest::addColumn<QByteArray>("before"); // null: no file
        QTest::addColumn<QByteArray>("after");
        QTest::newRow("non-empty") << QByteArray("\"h\"\r\n\"1\"\r\n") << QByteArray("\"h\"\r\n\"1\"\r\n\"2\"\r\n");
        QTest::newRow("empty") << QByteArray("") << QByteArray("\"h\"\r\n\"2\"\r\n");
        QTest::newRow("new") << QByteArray() << QByteArray("\"h\"\r\n\"2\"\r\n");
    }

    void appendCsvDropsHeaderOnlyWhenFileHasContent()
    {
        QFETCH(QByteArray, before);
        QFETCH(QByteArray, after);
        const QString path = m_dir.filePath("append.csv");
        QFile::remove(path);
        if (!before.isNull())
            writeBytes("append.csv", before);
        QVERIFY(write({{"h"}, {"2"}}, path, true));
        QCOMPARE(readBytes(path), after);
    }

    // A write that fails says why and leaves the folder as it was: the old file whole, no
    // new or temporary file. A file that cannot be removed (a folder in its place here, like
    // a file held open) is also shown in a message box when asked for.
    void writeFailures_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<Table>("data");
        QTest::addColumn<bool>("append");
        QTest::addColumn<QByteArray>("before"); // null: no file; "dir": a folder in its place
        QTest::addColumn<QString>("err");
        const QByteArray old("\"h\"\r\n\"1\"\r\n");
        // One shared text 1100 times: little to hold, but a line longer than a string can be.
        const Table tooLong{{"h"}, {"2"}, QVector<QString>(1100, QString(1 << 20, QLatin1Char('x'))).toList()};
        QTest::newRow("no rows") << "none.csv" << Table() << false << QByteArray() << QStringLiteral("无数据可写入！");
        QTest::newRow("no such folder") << "no/such/dir/x.csv" << Table{{"a"}} << false << QByteArray()
                                        << QStringLiteral("文件打开失败！");
        QTest::newRow("line too long") << "long.csv" << tooLong << false << old << QStringLiteral("文件写入失败！");
        QTest::newRow("line too long, appended") << "long.csv" << tooLong << true << old << QStringLiteral("文件写入失败！");
        QTest::newRow("append to what is no workbook") << "broken.xlsx" << Table{{"a"}, {"1"}} << true << QByteArray("not a workbook")
                                                       << QStringLiteral("Excel文件无法打开或已损坏，请检查文件后再试！");
        QTest::newRow("held csv") << "held.csv" << Table{{"a"}} << false << QByteArray("dir")
                                  << QStringLiteral("文件已经打开无法重写 请关闭文件后再试");
        QTest::newRow("held workbook") << "held.xlsx" << Table{{"a"}} << false << QByteArray("dir")
                                       << QStringLiteral("文件已经打开无法重写 请关闭文件后再试");
        QTest::newRow("several tables to txt") << "multi.txt" << Table() << false << QByteArray()
                                               << QStringLiteral("多表格导出功能不支持csv格式导出");
        QTest::newRow("several tables, held") << "held-several.xlsx" << Table() << false << QByteArray("dir")
                                              << QStringLiteral("文件导出失败，文件名：%1");
    }

    void writeFailures()
    {
        QFETCH(QString, name);
        QFETCH(Table, data);
        QFETCH(bool, append);
        QFETCH(QByteArray, before);
        QFETCH(QString, err);
        QTemporaryDir dir;
        const QString path = dir.filePath(name);
        if (before == "dir")
            QVERIFY(QDir(dir.path()).mkpath(name + "/inner"));
        else if (!before.isNull())
            put(path, before);
        QList<LmMessageBox::Shown> shown;
        LmMessageBox::setAnswerHook([&](const LmMessageBox::Shown& s) { shown.append(s); return 0; });
        QString got;
        QString quiet;
        const bool several = QByteArray(QTest::currentDataTag()).startsWith("several");
        const bool written = several ? VantorUtils::WriteTableDatas(path, {{"s", {{"a"}}}}, {}, got)
                                     : VantorUtils::WriteTableData(data, path, {}, false, ExportFileCodeUtf8, append, quiet)
                                           || VantorUtils::WriteTableData(data, path, {}, true, ExportFileCodeUtf8, append, got);
        LmMessageBox::clearAnswerHook();
        QVERIFY(!written);
        QCOMPARE(got, err.contains("%1") ? err.arg(path) : err);
        QCOMPARE(quiet, several ? QString() : got);
        if (before == "dir") {
            QVERIFY(QFileInfo(path + "/inner").isDir());
        } else {
            QCOMPARE(readBytes(path), before.isNull() ? QByteArray() : before);
            QCOMPARE(QFileInfo::exists(path), !before.isNull());
        }
        QCOMPARE(QDir(dir.path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot).size(),
                 before.isNull() ? 0 : 1);
        QCOMPARE(shown.size(), before == "dir" && !several ? 1 : 0);
        for (const LmMessageBox::Shown& s : shown) {
            QCOMPARE(s.title, QStringLiteral("导出文件"));
            QCOMPARE(s.text, got);
            QCOMPARE(s.type, 1);
        }
    }

    // Another writer meddles with the name while this one writes afresh: it removed the old
    // file first (nothing is held open, the table is written), or it saved its own workbook
    // after the old one was removed (the workbook holds only what this write gave).
    void anotherWriterMeanwhile_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("several");
        QTest::addColumn<int>("point");
        QTest::newRow("old csv removed") << "gone.csv" << false << int(TableFileSeam::RemovingOldFile);
        QTest::newRow("old workbook removed") << "gone.xlsx" << false << int(TableFileSeam::RemovingOldFile);
        QTest::newRow("several sheets, old removed") << "gone-several.xlsx" << true << int(TableFileSeam::RemovingOldFile);
        QTest::newRow("workbook saved meanwhile") << "raced.xlsx" << false << int(TableFileSeam::OldFileRemoved);
        QTest::newRow("several sheets, saved meanwhile") << "raced-several.xlsx" << true << int(TableFileSeam::OldFileRemoved);
    }

    void anotherWriterMeanwhile()
    {
        QFETCH(QString, name);
        QFETCH(bool, several);
        QFETCH(int, point);
        const QString path = writeBytes(name, "old");
        const Table table{{"h"}, {"1"}};
        const QString sheet = several ? "s" : "Sheet1";
        int shown = 0;
        LmMessageBox::setAnswerHook([&](const LmMessageBox::Shown&) { ++shown; return 0; });
        QString err;
        const bool written = meanwhile(TableFileSeam::Point(point), [](const QString& file) {
            if (g_point == TableFileSeam::RemovingOldFile) {
                QFile::remove(file);
            } else {
                const Table x{{"x1", "x2", "x3"}, {"x"}, {"x"}, {"x"}, {"x"}};
                VantorUtils::WriteTableDatas(file, {{"Sheet1", x}, {"s", x}, {"other", {{"z"}}}}, {});
            }
        }, [&] {
            return several ? VantorUtils::WriteTableDatas(path, {{sheet, table}}, {}, err)
                           : VantorUtils::WriteTableData(table, path, {}, true, ExportFileCodeUtf8, false, err);
        });
        LmMessageBox::clearAnswerHook();
        QVERIFY(g_moved);
        QVERIFY2(written, qPrintable(err));
        QCOMPARE(shown, 0);
        if (name.endsWith(".csv"))
            QCOMPARE(VantorUtils::ReadTableData(path), table);
        else
            QCOMPARE(VantorUtils::ReadMultiSheetTables(path, ReadAllRows), (Sheets{{sheet, table}}));
    }

    // Logs name files and sheets as given, even when the names hold %1-like marks.
    void logsNameFilesAsGiven()
    {
        const QString csv = m_dir.filePath(QStringLiteral("涨幅%2前%3.csv"));
        expectLog(QtInfoMsg, QStringLiteral("TableFileAssist::WriteTableData 导出文件：%1，记录行数：2，是否追加：0").arg(csv));
        QVERIFY(write({{"h"}, {"1"}}, csv));
        expectLog(QtInfoMsg, QStringLiteral("TableFileAssist::readCsvFile 读取csv文件，文件名：%1，共计：2行，读取配置项：0，去除空行后共计：2行").arg(csv));
        QCOMPARE(VantorUtils::ReadTableData(csv).size(), 2);

        const QString book = m_dir.filePath(QStringLiteral("涨幅%2前%5.xlsx"));
        QVERIFY(VantorUtils::WriteTableDatas(book, {{"s%1", {{"h"}, {"1"}}}}, {}));
        const QString sheetLine = QStringLiteral("TableFileAssist::readSheet 读取Excel文件，文件名：") + book
            + QStringLiteral("，当前sheet：s%1，共计：2行，读取配置项：0，去除空行后共计：2行");
        expectLog(QtInfoMsg, QStringLiteral("TableFileAssist::readXslFile 读取单sheet文件：%1").arg(book));
        expectLog(QtInfoMsg, sheetLine);
        QCOMPARE(VantorUtils::ReadTableData(book).size(), 2);
        expectLog(QtInfoMsg, QStringLiteral("TableFileAssist::ReadMultiSheetTables 读取多sheet表格文件，文件名：%1，sheet数目：1").arg(book));
        expectLog(QtInfoMsg, sheetLine);
        QCOMPARE(VantorUtils::ReadMultiSheetTables(book, ReadAllRows).size(), 1);
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
        QTest::addColumn<Table>("expected");
        QTest::newRow("all rows") << 255 << Table{{"Name"}, {"marked"}, {"plain"}, {"nocol"}, {""}};
        QTest::newRow("marked rows") << 2 << Table{{"Name"}, {"marked"}};
        QTest::newRow("unmarked rows") << 0 << Table{{"Name"}, {"plain"}, {"nocol"}, {""}};
        QTest::newRow("other mode like unmarked") << 1 << Table{{"Name"}, {"plain"}, {"nocol"}, {""}};
    }

    void treeContent()
    {
        QFETCH(int, mode);
        QFETCH(Table, expected);
        const Heads heads{{{"Head_DisplayRole", "Name"}, {"Head_ColumnIndex", 0}}};
        const Rows rows{{{0, {{"0", "marked"}}}, {1, {{"256", "x"}}}},
                        {{0, {{"0", "plain"}}}, {1, {{"256", ""}}}},
                        {{0, {{"0", "nocol"}}}},
                        {}};
        QCOMPARE(VantorUtils::GetCsvContentFromLmTree(heads, rows, 1, mode, false), expected);
    }

    void columnFormats()
    {
        const Heads heads{{{"Head_FormatRole", 1}}, {{"Head_FormatRole", 1}, {"Head_ShowRole", false}}, {}, {{"Head_FormatRole", 7}}};
        QCOMPARE(VantorUtils::GetColumnFormatFromHead(heads, false),
                 (QMap<int, ExportFormat>{{0, ExportFormatNumber}, {1, ExportFormatText}, {2, ExportFormat(7)}}));
        QCOMPARE(VantorUtils::GetColumnFormatFromHead(heads, true),
                 (QMap<int, ExportFormat>{{0, ExportFormatNumber}, {1, ExportFormatNumber}, {2, ExportFormatText}, {3, ExportFormat(7)}}));
    }
};

QTEST_GUILESS_MAIN(TestTableCsv)
#include "tst_tablecsv.moc"
