// Reads broken and hostile table files and prints, for each, how long the reader took to
// give up, the peak memory it used beyond the process's start and the error it gave:
// a truncated workbook, a workbook missing its sheet part, a zip bomb (a sheet entry that
// inflates to 1 GiB of spaces; once as it is, once with headers that claim 4 MB), an XML
// entity-expansion attack, a sheet claiming a
// million columns, and 20 MB CSV files holding a NUL byte or a byte no codec reads.
// Each case runs in a child process so that its time and peak memory are its own.
// Target: every case ends with an error within a second, in bounded memory.
//
//   bench_badfiles [--dir kept-files-dir]
//   bench_badfiles --case <file>     (one case)
#include "BenchMemory.h"
#include "VantorUtils.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QTextCodec>

#include <zip.h>

#include "xlsx_package.h" // the minimal package parts the table tests build on

#include <cstdio>
#include <cstring>

namespace {

const char kSheetHead[] = "<worksheet xmlns=\"http://schemas.openxmlformats.org/spreadsheetml/2006/main\"><sheetData>";
const char kSheetTail[] = "</sheetData></worksheet>";

QByteArray sheet(const QByteArray& rows)
{
    return QByteArray(kSheetHead) + rows + kSheetTail;
}

// The sheet part of the zip bomb, made as it is read: its head, 1 GiB of spaces, its tail.
struct BombSource {
    static constexpr qint64 kSpaces = qint64(1) << 30;
    qint64 at = 0;
    QByteArray head = kSheetHead;
    QByteArray tail = kSheetTail;

    qint64 size() const { return head.size() + kSpaces + tail.size(); }

    zip_int64_t read(char* out, zip_uint64_t len)
    {
        qint64 n = 0;
        while (n < qint64(len) && at < size()) {
            if (at < head.size()) {
                out[n++] = head.at(int(at++));
            } else if (at < head.size() + kSpaces) {
                const qint64 run = qMin(qint64(len) - n, head.size() + kSpaces - at);
                std::memset(out + n, ' ', size_t(run));
                n += run;
                at += run;
            } else {
                out[n++] = tail.at(int(at++ - head.size() - kSpaces));
            }
        }
        return n;
    }

    static zip_int64_t callback(void* state, void* data, zip_uint64_t len, zip_source_cmd_t cmd)
    {
        auto* self = static_cast<BombSource*>(state);
        switch (cmd) {
        case ZIP_SOURCE_OPEN:
            self->at = 0;
            return 0;
        case ZIP_SOURCE_READ:
            return self->read(static_cast<char*>(data), len);
        case ZIP_SOURCE_CLOSE:
            return 0;
        case ZIP_SOURCE_STAT: {
            auto* st = static_cast<zip_stat_t*>(data);
            zip_stat_init(st);
            st->size = zip_uint64_t(self->size());
            st->valid |= ZIP_STAT_SIZE;
            return sizeof(*st);
        }
        case ZIP_SOURCE_ERROR:
            return 2 * sizeof(int);
        case ZIP_SOURCE_FREE:
            return 0;
        case ZIP_SOURCE_SUPPORTS:
            return zip_source_make_command_bitmap(ZIP_SOURCE_OPEN, ZIP_SOURCE_READ, ZIP_SOURCE_CLOSE, ZIP_SOURCE_STAT,
                                                  ZIP_SOURCE_ERROR, ZIP_SOURCE_FREE, -1);
        default:
            return -1;
        }
    }
};

// Writes a deflated workbook package from the minimal parts, `sheetXml` as its sheet (none
// when null); `bomb` makes the sheet the 1 GiB entry instead.
bool writePackage(const QString& path, const QByteArray& sheetXml, bool bomb = false)
{
    QList<QPair<QByteArray, QByteArray>> parts{{"[Content_Types].xml", XlsxPackage::kContentTypes},
                                               {"_rels/.rels", XlsxPackage::kPackageRels},
                                               {"xl/_rels/workbook.xml.rels", XlsxPackage::kWorkbookRels},
                                               {"xl/workbook.xml", XlsxPackage::kWorkbook}};
    if (!sheetXml.isNull())
        parts.append({"xl/worksheets/sheet1.xml", sheetXml});
    int error = 0;
    zip_t* za = zip_open(QFile::encodeName(path).constData(), ZIP_CREATE | ZIP_TRUNCATE, &error);
    if (!za)
        return false;
    BombSource bombSource;
    bool ok = true;
    for (const auto& part : qAsConst(parts)) {
        zip_source_t* src = zip_source_buffer(za, part.second.constData(), zip_uint64_t(part.second.size()), 0);
        ok = ok && src && zip_file_add(za, part.first.constData(), src, ZIP_FL_OVERWRITE) >= 0;
    }
    if (bomb) {
        zip_source_t* src = zip_source_function(za, &BombSource::callback, &bombSource);
        const zip_int64_t index = src ? zip_file_add(za, "xl/worksheets/sheet1.xml", src, ZIP_FL_OVERWRITE) : -1;
        ok = ok && index >= 0 && zip_set_file_compression(za, zip_uint64_t(index), ZIP_CM_DEFLATE, 9) == 0;
    }
    if (!ok) {
        zip_discard(za);
        return false;
    }
    return zip_close(za) == 0;
}

bool writeFile(const QString& path, const QByteArray& bytes)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size();
}

void putLe32(QByteArray& bytes, int at, quint32 value)
{
    for (int i = 0; i < 4; ++i)
        bytes[at + i] = char((value >> (8 * i)) & 0xFF);
}

quint32 le(const QByteArray& bytes, int at, int width)
{
    quint32 value = 0;
    for (int i = width - 1; i >= 0; --i)
        value = (value << 8) | quint8(bytes.at(at + i));
    return value;
}

// A copy of the bomb whose headers claim that its sheet inflates to `claimed` bytes only:
// the reader must count what it inflates, not trust what the archive says.
QByteArray lyingBomb(QByteArray zip, quint32 claimed)
{
    const QByteArray name = "xl/worksheets/sheet1.xml";
    for (int at = zip.indexOf("PK\x01\x02"); at >= 0 && at + 46 <= zip.size(); at = zip.indexOf("PK\x01\x02", at + 4)) {
        if (zip.mid(at + 46, int(le(zip, at + 28, 2))) != name)
            continue;
        putLe32(zip, at + 24, claimed); // central directory entry
        const int local = int(le(zip, at + 42, 4));
        if (local >= 0 && local + 26 <= zip.size())
            putLe32(zip, local + 22, claimed); // its local header
    }
    return zip;
}

// About 20 MB of GB18030 CSV lines, with `bad` put in at three quarters of the way.
QByteArray bigCsv(const QByteArray& bad)
{
    QByteArray line = QTextCodec::codecForName("GB18030")->fromUnicode(
        QStringLiteral("\"600000\",\"浦发银行\",\"10.25\",\"买入\",\"已成\",\"1000\",\"备注文字\"\r\n"));
    QByteArray csv;
    const int lines = (20 << 20) / line.size();
    csv.reserve(lines * line.size() + bad.size());
    for (int i = 0; i < lines; ++i) {
        if (i == lines * 3 / 4)
            csv.append(bad);
        csv.append(line);
    }
    return csv;
}

bool makeFiles(const QString& dir)
{
    const QByteArray good = sheet("<row r=\"1\"><c r=\"A1\" t=\"inlineStr\"><is><t>ok</t></is></c></row>");
    bool ok = writePackage(dir + "/good.xlsx", good);
    QFile goodFile(dir + "/good.xlsx");
    ok = ok && goodFile.open(QIODevice::ReadOnly);
    const QByteArray packed = goodFile.readAll();
    ok = ok && writeFile(dir + "/truncated.xlsx", packed.left(packed.size() / 2));
    ok = ok && writePackage(dir + "/missing-sheet.xlsx", QByteArray());
    ok = ok && writePackage(dir + "/million-columns.xlsx",
                            sheet("<row r=\"1\"><c r=\"A1\"><v>1</v></c><c r=\"BDWGN1\"><v>2</v></c></row>"));
    QByteArray laughs = "<?xml version=\"1.0\"?><!DOCTYPE lolz [<!ENTITY lol \"lol\">";
    for (int i = 1; i < 10; ++i) {
        const QByteArray previous = i > 1 ? "&lol" + QByteArray::number(i - 1) + ";" : QByteArray("&lol;");
        laughs += "<!ENTITY lol" + QByteArray::number(i) + " \"" + previous.repeated(10) + "\">";
    }
    laughs += "]>";
    ok = ok && writePackage(dir + "/entities.xlsx",
                            laughs + sheet("<row r=\"1\"><c r=\"A1\" t=\"inlineStr\"><is><t>&lol9;</t></is></c></row>"));
    ok = ok && writePackage(dir + "/bomb.xlsx", QByteArray(), true);
    QFile bomb(dir + "/bomb.xlsx");
    ok = ok && bomb.open(QIODevice::ReadOnly);
    ok = ok && writeFile(dir + "/bomb-lying-size.xlsx", lyingBomb(bomb.readAll(), 4 << 20));
    ok = ok && writeFile(dir + "/nul.csv", bigCsv(QByteArray("\"a\0b\"\r\n", 7)));
    ok = ok && writeFile(dir + "/invalid.csv", bigCsv("\"\xFF\xFE\x80\"\r\n"));
    return ok;
}

// Reads one file in this process and prints "<ms> <peak-beyond-start KB>" and the error.
int runCase(const QString& path)
{
    const qint64 before = BenchMemory::statusKb("VmRSS:");
    QElapsedTimer timer;
    timer.start();
    QString err;
    const QList<QStringList> rows = VantorUtils::ReadTableData(path, ReadAllRows, err);
    const qint64 ms = timer.elapsed();
    const qint64 peak = BenchMemory::statusKb("VmHWM:");
    std::printf("%lld %lld %d\n%s\n", (long long)ms, (long long)(peak - before), int(rows.size()), err.toUtf8().constData());
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() >= 3 && args.at(1) == "--case")
        return runCase(args.at(2));
    qputenv("QT_LOGGING_RULES", "vantor.*=false");
    QTemporaryDir tempDir;
    QString dir = tempDir.path();
    if (args.size() >= 3 && args.at(1) == "--dir") {
        dir = args.at(2);
        QDir().mkpath(dir);
    }
    if (!makeFiles(dir)) {
        std::fprintf(stderr, "cannot make the files in %s\n", qPrintable(dir));
        return 1;
    }
    std::printf("memory figures are beyond the process's own start; target: an error within 1000 ms\n");
    std::printf("%-22s %9s %9s %8s %s\n", "file", "time ms", "peak MB", "size MB", "error");
    bool allOk = true;
    for (const char* name : {"truncated.xlsx", "missing-sheet.xlsx", "bomb.xlsx", "bomb-lying-size.xlsx", "entities.xlsx",
                             "million-columns.xlsx", "nul.csv", "invalid.csv"}) {
        const QString path = dir + "/" + name;
        QProcess p;
        p.start(app.applicationFilePath(), {"--case", path});
        p.waitForFinished(-1);
        const QList<QByteArray> lines = p.readAllStandardOutput().split('\n');
        const QList<QByteArray> f = lines.value(0).split(' ');
        if (f.size() < 3) {
            std::printf("%-22s failed: %s\n", name, p.readAllStandardError().constData());
            allOk = false;
            continue;
        }
        const qint64 ms = f.at(0).toLongLong();
        const QByteArray err = lines.value(1);
        const bool ok = ms <= 1000 && f.at(2) == "0" && !err.isEmpty();
        allOk = allOk && ok;
        std::printf("%-22s %9lld %9.1f %8.1f %s%s\n", name, ms, f.at(1).toLongLong() / 1024.0,
                    QFileInfo(path).size() / 1048576.0, err.constData(), ok ? "" : "   <- MISSED");
    }
    return allOk ? 0 : 2;
}
