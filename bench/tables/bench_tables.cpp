// Writes and reads 200 000 rows x 10 columns (five numeric, five Chinese text) as a
// workbook and as CSV through the library, and the same CSV through the straightforward
// QTextStream reader and writer. Each case runs in a child process so that its time and
// peak memory (VmHWM) are its own. The floors run on the same data in the same run:
// libxlsxwriter alone writing the same cells, and a bare libzip + expat pass that only
// collects the cells of the workbook the library wrote. The append case adds ten rows to
// a copy of the workbook the library wrote.
//
//   bench_tables [rows] [--repeat n] [--dir kept-files-dir]
//   bench_tables --case <case> <dir> <rows>     (one case, e.g. under callgrind)
#include "BenchFloors.h"
#include "BenchMemory.h"
#include "VantorUtils.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTextCodec>
#include <QTextStream>

#include <malloc.h>

#include <cstdio>

namespace {

QList<QStringList> makeTable(int rows)
{
    static const QStringList words{QStringLiteral("浦发银行"), QStringLiteral("平安银行"), QStringLiteral("招商证券"),
                                   QStringLiteral("中国石油化工"), QStringLiteral("贵州茅台酒"), QStringLiteral("上海机场")};
    QList<QStringList> table;
    table.reserve(rows + 1);
    table.append({QStringLiteral("数量"), QStringLiteral("价格"), QStringLiteral("金额"), QStringLiteral("比例"),
                  QStringLiteral("编号"), QStringLiteral("名称"), QStringLiteral("市场"), QStringLiteral("方向"),
                  QStringLiteral("状态"), QStringLiteral("备注")});
    for (int r = 1; r <= rows; ++r) {
        QStringList row;
        row.reserve(10);
        row << QString::number(r * 100) << QString::number(10 + (r % 997) / 100.0, 'f', 2)
            << QString::number(r * 12.345, 'f', 3) << QString::number((r % 1000) / 10.0, 'f', 1)
            << QString::number(600000 + r);
        row << words.at(r % 6) + QString::number(r % 50) << words.at((r + 1) % 6) << words.at((r + 2) % 6).left(2)
            << words.at((r + 3) % 6) + QStringLiteral("已成") << words.at((r + 4) % 6) + QString::number(r);
        table.append(row);
    }
    return table;
}

QMap<int, ExportFormat> numericFormats()
{
    return {{0, ExportFormatNumber}, {1, ExportFormatNumber}, {2, ExportFormatNumber}, {3, ExportFormatNumber},
            {4, ExportFormatNumber}};
}

bool qtPeerWrite(const QList<QStringList>& table, const QString& path)
{
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly))
        return false;
    QTextStream out(&f);
    out.setCodec("GB18030");
    for (const QStringList& row : table) {
        QStringList cells;
        for (const QString& c : row)
            cells << QLatin1Char('"') + c + QLatin1Char('"');
        out << cells.join(QLatin1Char(',')) << "\r\n";
    }
    return true;
}

QList<QStringList> qtPeerRead(const QString& path)
{
    QList<QStringList> rows;
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly | QIODevice::Text))
        return rows;
    QTextStream in(&f);
    in.setCodec("GB18030");
    while (!in.atEnd()) {
        QStringList cells = in.readLine().split(QLatin1Char(','));
        for (QString& c : cells)
            c = c.remove(QLatin1Char('"')).trimmed();
        rows.append(cells);
    }
    return rows;
}

// Runs one case in this process and prints "<ms> <peak-beyond-start KB> <result KB>".
int runCase(const QString& name, const QString& dir, int rows)
{
    QList<QStringList> table;
    const bool writes = name.endsWith(QLatin1String("write"));
    if (writes)
        table = makeTable(rows);
    const bool appends = name == "xlsx-append";
    BenchFloors::PreparedTable* prepared = nullptr;
    if (name == "floor-xlsx-write")
        prepared = BenchFloors::prepare(table, {0, 1, 2, 3, 4});
    if (appends) {
        table = makeTable(10);
        QFile::remove(dir + "/a.xlsx");
        if (!QFile::copy(dir + "/t.xlsx", dir + "/a.xlsx"))
            return 1;
    }
    malloc_trim(0);
    const qint64 before = BenchMemory::statusKb("VmRSS:");
    QElapsedTimer timer;
    timer.start();
    QList<QStringList> result;
    bool ok = true;
    QString err;
    if (name == "xlsx-write")
        ok = VantorUtils::WriteTableData(table, dir + "/t.xlsx", numericFormats(), false, ExportFileCodeGb18030, false, err);
    else if (appends)
        ok = VantorUtils::WriteTableData(table, dir + "/a.xlsx", numericFormats(), false, ExportFileCodeGb18030, true, err);
    else if (name == "csv-write")
        ok = VantorUtils::WriteTableData(table, dir + "/t.csv", numericFormats(), false, ExportFileCodeGb18030, false, err);
    else if (name == "qt-csv-write")
        ok = qtPeerWrite(table, dir + "/peer.csv");
    else if (name == "floor-xlsx-write")
        ok = BenchFloors::writeWorkbook(prepared, dir + "/floor.xlsx");
    else if (name == "xlsx-read")
        result = VantorUtils::ReadTableData(dir + "/t.xlsx", ReadAllRows, err);
    else if (name == "floor-xlsx-read")
        result = BenchFloors::readWorkbook(dir + "/t.xlsx");
    else if (name == "csv-read")
        result = VantorUtils::ReadTableData(dir + "/t.csv", ReadAllRows, err);
    else if (name == "qt-csv-read")
        result = qtPeerRead(dir + "/peer.csv");
    const qint64 ms = timer.elapsed();
    const qint64 peak = BenchMemory::statusKb("VmHWM:");
    const qint64 after = BenchMemory::statusKb("VmRSS:");
    if (!writes && !appends && result.size() != rows + 1)
        ok = false;
    BenchFloors::release(prepared);
    std::printf("%lld %lld %lld %d\n", (long long)ms, (long long)(peak - before), (long long)(after - before), ok ? 1 : 0);
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() >= 5 && args.at(1) == "--case")
        return runCase(args.at(2), args.at(3), args.at(4).toInt());
    qputenv("QT_LOGGING_RULES", "vantor.*=false");
    int rows = 200000;
    int repeat = 1;
    QString keptDir;
    for (int i = 1; i < args.size(); ++i) {
        if (args.at(i) == "--repeat" && i + 1 < args.size())
            repeat = qMax(1, args.at(++i).toInt());
        else if (args.at(i) == "--dir" && i + 1 < args.size())
            keptDir = args.at(++i);
        else
            rows = args.at(i).toInt();
    }
    QTemporaryDir tempDir;
    const QString dirPath = keptDir.isEmpty() ? tempDir.path() : keptDir;
    QDir().mkpath(dirPath);
    std::printf("%d rows x 10 columns (5 numeric, 5 Chinese text); memory figures are beyond the process's own start;\n"
                "times are the best of %d run(s)\n", rows, repeat);
    std::printf("%-17s %9s %12s %12s %s\n", "case", "time ms", "peak MB", "result MB", "ok");
    QMap<QString, qint64> times;
    for (const char* c : {"xlsx-write", "floor-xlsx-write", "xlsx-read", "floor-xlsx-read", "xlsx-append", "csv-write",
                          "csv-read", "qt-csv-write", "qt-csv-read"}) {
        QList<QByteArray> best;
        QByteArray failure;
        for (int k = 0; k < repeat; ++k) {
            QProcess p;
            p.start(app.applicationFilePath(), {"--case", c, dirPath, QString::number(rows)});
            p.waitForFinished(-1);
            const QList<QByteArray> f = p.readAllStandardOutput().trimmed().split(' ');
            if (f.size() < 4) {
                failure = p.readAllStandardError();
                continue;
            }
            if (best.isEmpty() || f.at(0).toLongLong() < best.at(0).toLongLong())
                best = f;
        }
        if (best.isEmpty()) {
            std::printf("%-17s failed: %s\n", c, failure.constData());
            continue;
        }
        times.insert(c, best.at(0).toLongLong());
        const double peakMb = best.at(1).toLongLong() / 1024.0;
        const double resultMb = best.at(2).toLongLong() / 1024.0;
        std::printf("%-17s %9lld %12.1f %12.1f %s", c, best.at(0).toLongLong(), peakMb, resultMb,
                    best.at(3) == "1" ? "yes" : "NO");
        if (QByteArray(c).endsWith("read") && resultMb > 0)
            std::printf("   peak/result %.2f", peakMb / resultMb);
        std::printf("\n");
    }
    auto ratio = [&](const char* ours, const char* other) {
        return times.value(other) > 0 ? double(times.value(ours)) / times.value(other) : 0.0;
    };
    std::printf("xlsx write: %lld ms against the floor's %lld ms, ratio %.2f (target <= 2000 ms)\n",
                times.value("xlsx-write"), times.value("floor-xlsx-write"), ratio("xlsx-write", "floor-xlsx-write"));
    std::printf("xlsx read:  %lld ms against the floor's %lld ms, ratio %.2f (target <= 1200 ms, peak/result <= 1.5)\n",
                times.value("xlsx-read"), times.value("floor-xlsx-read"), ratio("xlsx-read", "floor-xlsx-read"));
    std::printf("xlsx append: %lld ms to add 10 rows to the written workbook, which is read and written again\n",
                times.value("xlsx-append"));
    if (times.value("csv-read") > 0 && times.value("csv-write") > 0) {
        std::printf("csv read  speed-up over the Qt peer: %.2fx (target >= 2)\n", ratio("qt-csv-read", "csv-read"));
        std::printf("csv write speed-up over the Qt peer: %.2fx (target >= 2)\n", ratio("qt-csv-write", "csv-write"));
    }
    std::printf("csv file %.1f MB, workbook %.1f MB\n", QFileInfo(dirPath + "/t.csv").size() / 1048576.0,
                QFileInfo(dirPath + "/t.xlsx").size() / 1048576.0);
    return 0;
}
