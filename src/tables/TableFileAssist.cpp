#include "TableFileAssist.h"

#include "CsvTableReader.h"
#include "CsvTableWriter.h"
#include "TableFileSeam.h"
#include "TableTextDecoder.h"
#include "VantorLogging.h"
#include "XlsxDocument.h"
#include "XlsxErrors.h"
#include "XlsxTableCollector.h"
#include "XlsxWorkbookReader.h"

#include <LmMessageBox.h>

#include <QFile>
#include <QFileInfo>
#include <QMutexLocker>
#include <QSaveFile>

#include <charconv>
#include <climits>
#include <cstring>

namespace {

const QStringList& codecCandidates()
{
    static const QStringList candidates = QStringLiteral("UTF-8;GB18030").split(QLatin1Char(';'));
    return candidates;
}

// The number a numeric cell's text stands for once thousands separators and spaces are
// left out; 0 when it is no number. A percentage ("8.9%") is a hundredth of its digits,
// taken as the decimal exponent moved by two, so that it is the double nearest to 0.089
// rather than 8.9 / 100 (0.08900000000000001). Plain decimals are converted straight from
// their digits, anything else the way QString does.
double numberFromText(const QString& text, bool percent)
{
    char buffer[72];
    constexpr int kMaxDigits = 64;
    int n = 0;
    bool plain = text.size() < kMaxDigits;
    for (int i = 0; plain && i < text.size(); ++i) {
        const ushort u = text.at(i).unicode();
        if (u == ',' || u == ' ' || (percent && u == '%'))
            continue;
        if ((u >= '0' && u <= '9') || u == '.' || (u == '-' && n == 0))
            buffer[n++] = char(u);
        else
            plain = false;
    }
    if (plain && n > 0) {
        if (percent) {
            std::memcpy(buffer + n, "e-2", 3);
            n += 3;
        }
        double value = 0;
        const std::from_chars_result r = std::from_chars(buffer, buffer + n, value);
        if (r.ec == std::errc() && r.ptr == buffer + n)
            return value;
    }
    QString digits = text;
    if (percent)
        digits.remove(QLatin1Char('%'));
    digits.remove(QLatin1Char(',')).remove(QLatin1Char(' '));
    return percent ? digits.toDouble() / 100.0 : digits.toDouble();
}

// A sheet without rows or columns; also what a workbook name that is no file reads as,
// an empty sheet.
QString noRowsOrColumns()
{
    return QStringLiteral("获取到的行数或列数小于等于0，请检查文件并重新编辑保存后再试，如仍有问题，请联系KORVO技术支持获取帮助。");
}

// The line every successful CSV read leaves in the log.
void logCsvRead(const QString& fileName, const CsvTableReader::Result& result, ReadTableCfg cfg)
{
    qCInfo(lcTables).noquote() << "TableFileAssist::readCsvFile"
                               << QStringLiteral("读取csv文件，文件名：%1，共计：%2行，读取配置项：%3，去除空行后共计：%4行")
                                      .arg(fileName, QString::number(result.linesRead), QString::number(int(cfg)),
                                           QString::number(result.rows.size()));
}

// Removes the file that a fresh write replaces; false only when it is still there (held
// open, say). A file that another writer removed first is gone all the same.
bool removeOldFile(const QString& fileName)
{
    if (!QFile::exists(fileName))
        return true;
    TableFileSeam::reach(TableFileSeam::RemovingOldFile, fileName);
    return QFile::remove(fileName) || !QFile::exists(fileName);
}
} // namespace

TableFileAssist::TableFileAssist(QObject* parent)
    : QObject(parent)
{
}

TableFileAssist::~TableFileAssist() = default;

QString TableFileAssist::ChargeFileCodec(const QString& fileName)
{
    QFile file(fileName);
    if (file.open(QIODevice::ReadOnly)) {
        QByteArray chunk(1 << 20, Qt::Uninitialized);
        for (const QString& candidate : codecCandidates()) {
            file.seek(0);
            TableTextDecoder decoder(candidate.toLatin1(), true);
            bool clean = true;
            QString sink;
            for (;;) {
                const qint64 got = file.read(chunk.data(), chunk.size());
                if (got <= 0) {
                    clean = got == 0;
                    break;
                }
                sink.clear();
                if (!decoder.decode(chunk.constData(), int(got), sink)) {
                    clean = false;
                    break;
                }
            }
            if (clean && decoder.finish())
                return candidate;
        }
        file.close();
    }
    qCWarning(lcTables).noquote() << "TableFileAssist::ChargeFileCodec"
                                  << QStringLiteral("不支持的文件编码格式，文件名：%1").arg(fileName);
    return QString();
}

QList<QStringList> TableFileAssist::ReadTableData(const QString& fileName, ReadTableCfg cfg, QString& err)
{
    if (fileName.isEmpty()) {
        err = QStringLiteral("文件名为空，请重新选择！");
        return {};
    }
    if (fileName.toLower().endsWith(QLatin1String(".csv")))
        return readDetectedCsvFile(fileName, cfg, err);
    // ".xls" is compared as given: a name ending in upper-case XLS is refused while
    // upper-case XLSX is read, as the client always did.
    if (fileName.toLower().endsWith(QLatin1String(".xlsx")) || fileName.endsWith(QLatin1String(".xls")))
        return readXslFile(fileName, cfg, err);
    const int dot = fileName.lastIndexOf(QLatin1Char('.'));
    if (dot < 1)
        err = QStringLiteral("找不到文件扩展名！");
    else
        err = QStringLiteral("不支持的文件扩展名:%1！").arg(fileName.mid(dot + 1));
    return {};
}

QList<QStringList> TableFileAssist::readDetectedCsvFile(const QString& fileName, ReadTableCfg cfg, QString& err)
{
    // The codec is found while reading: each candidate in turn reads the file and gives
    // up at its first byte it cannot decode, so a clean file is decoded only once.
    for (const QString& candidate : codecCandidates()) {
        CsvTableReader::Result result;
        const CsvTableReader::Status status = CsvTableReader::read(fileName, candidate.toLatin1(), true, cfg, result);
        if (status == CsvTableReader::OpenFailed)
            break;
        if (status == CsvTableReader::Ok) {
            logCsvRead(fileName, result, cfg);
            return result.rows;
        }
    }
    qCWarning(lcTables).noquote() << "TableFileAssist::ChargeFileCodec"
                                  << QStringLiteral("不支持的文件编码格式，文件名：%1").arg(fileName);
    err = QStringLiteral("不支持的文件编码方式，请使用UTF-8或者GB2312编码！");
    return {};
}

QList<QStringList> TableFileAssist::readCsvFile(const QString& fileName, const QString& codec, ReadTableCfg cfg)
{
    CsvTableReader::Result result;
    if (CsvTableReader::read(fileName, codec.toLatin1(), false, cfg, result) != CsvTableReader::Ok)
        return {};
    logCsvRead(fileName, result, cfg);
    return result.rows;
}

QList<QStringList> TableFileAssist::readXslFile(const QString& fileName, ReadTableCfg cfg, QString& err)
{
    qCInfo(lcTables).noquote() << "TableFileAssist::readXslFile" << QStringLiteral("读取单sheet文件：%1").arg(fileName);
    XlsxWorkbookReader book;
    if (!QFileInfo::exists(fileName)) {
        err = noRowsOrColumns();
        return {};
    }
    if (!book.open(fileName, err))
        return {};
    if (book.currentSheet() < 0) {
        err = noRowsOrColumns();
        return {};
    }
    return readSheet(book, book.currentSheet(), fileName, cfg, err);
}

QList<QStringList> TableFileAssist::readSheet(XlsxWorkbookReader& book, int sheet, const QString& fileName,
                                              ReadTableCfg cfg, QString& err)
{
    QList<QStringList> rows;
    XlsxTableCollector collector(book, cfg, rows);
    QString readErr;
    if (!book.readSheet(sheet, collector, readErr)) {
        err = readErr;
        return {};
    }
    if (!collector.finish()) {
        qCWarning(lcTables).noquote() << "TableFileAssist::readSheet" << collector.lastRow << " * " << collector.lastCol
                                      << "cells refused";
        err = XlsxErrors::tooManyCells();
        return {};
    }
    const int lastRow = collector.lastRow;
    const int lastCol = collector.lastCol;
    qCDebug(lcTables).noquote() << "TableFileAssist::readSheet" << lastRow << " * " << lastCol;
    if (lastRow < 1 || lastCol < 1) {
        err = noRowsOrColumns();
        return {};
    }
    if (!collector.formulaError.isEmpty())
        err = collector.formulaError;
    qCInfo(lcTables).noquote() << "TableFileAssist::readSheet"
                               << QStringLiteral("读取Excel文件，文件名：%1，当前sheet：%5，共计：%2行，读取配置项：%3，去除空行后共计：%4行")
                                      .arg(fileName, QString::number(lastRow), QString::number(int(cfg)),
                                           QString::number(rows.size()), book.sheets().at(sheet).name);
    return rows;
}

QList<QPair<QString, QList<QStringList>>> TableFileAssist::ReadMultiSheetTables(const QString& fileName, ReadTableCfg cfg)
{
    QList<QPair<QString, QList<QStringList>>> result;
    if (fileName.isEmpty() || !fileName.endsWith(QLatin1String(".xlsx")))
        return result;
    XlsxWorkbookReader book;
    QString err;
    if (!QFileInfo::exists(fileName)) {
        qCInfo(lcTables).noquote() << "TableFileAssist::ReadMultiSheetTables"
                                   << QStringLiteral("读取多sheet表格文件，文件名：%1，sheet数目：%2").arg(fileName, QStringLiteral("0"));
        return result;
    }
    if (!book.open(fileName, err)) {
        qCWarning(lcTables).noquote() << "TableFileAssist::ReadMultiSheetTables" << fileName << err;
        return result;
    }
    qCInfo(lcTables).noquote() << "TableFileAssist::ReadMultiSheetTables"
                               << QStringLiteral("读取多sheet表格文件，文件名：%1，sheet数目：%2")
                                      .arg(fileName, QString::number(book.sheets().size()));
    for (int i = 0; i < book.sheets().size(); ++i) {
        QString localErr;
        const QList<QStringList> rows = book.sheets().at(i).chart ? QList<QStringList>()
                                                                   : readSheet(book, i, fileName, cfg, localErr);
        result.append(qMakePair(book.sheets().at(i).name, rows));
    }
    return result;
}

bool TableFileAssist::WriteTableData(const QList<QStringList>& data, const QString& fileName,
                                     const QMap<int, ExportFormat>& formats, bool showMessageBox, ExportFileCode code,
                                     bool append, QString& err)
{
    qCInfo(lcTables).noquote() << "TableFileAssist::WriteTableData"
                               << QStringLiteral("导出文件：%1，记录行数：%2，是否追加：%3")
                                      .arg(fileName, QString::number(data.size()), QString::number(append ? 1 : 0));
    if (data.isEmpty()) {
        err = QStringLiteral("无数据可写入！");
        return false;
    }
    const bool csv = fileName.endsWith(QLatin1String(".csv"));
    // A row too long for one line is refused before the old file goes.
    for (int i = 0; csv && i < data.size(); ++i) {
        if (!CsvTableWriter::lineFits(data.at(i), true)) {
            qCWarning(lcTables).noquote() << "TableFileAssist::WriteTableData" << "row" << i
                                          << "is too long for one line of a CSV file:" << fileName;
            err = QStringLiteral("文件写入失败！");
            return false;
        }
    }
    if (!append && !removeOldFile(fileName)) {
        const QString text = QStringLiteral("文件已经打开无法重写 请关闭文件后再试");
        if (showMessageBox) {
            LmMessageBox box(QStringLiteral("导出文件"), text, 1, nullptr, 0);
            box.exec();
        }
        qCWarning(lcTables).noquote() << "TableFileAssist::WriteTableData" << QStringLiteral("文件已打开");
        err = text;
        return false;
    }
    if (!append)
        TableFileSeam::reach(TableFileSeam::OldFileRemoved, fileName);
    const QString codec = code == ExportFileCodeUtf8 ? QStringLiteral("UTF-8") : QStringLiteral("GB18030");
    if (csv)
        return writeCsvFile(data, fileName, codec, true, formats, append, err);
    return writeXlsxFile(data, fileName, formats, append, err);
}

bool TableFileAssist::writeCsvFile(const QList<QStringList>& data, const QString& fileName, const QString& codec,
                                   bool quoteFields, const QMap<int, ExportFormat>& formats, bool append, QString& err)
{
    // A fresh file is written beside the target and renamed over it; an append goes
    // straight to the end of the existing file.
    QFile appendFile(fileName);
    QSaveFile freshFile(fileName);
    QIODevice* device = nullptr;
    qint64 position = 0;
    if (append) {
        if (!appendFile.open(QIODevice::WriteOnly | QIODevice::Append)) {
            err = QStringLiteral("文件打开失败！");
            return false;
        }
        position = appendFile.size();
        device = &appendFile;
    } else {
        if (!freshFile.open(QIODevice::WriteOnly)) {
            err = QStringLiteral("文件打开失败！");
            return false;
        }
        device = &freshFile;
    }
    qCDebug(lcTables).noquote() << "TableFileAssist::writeCsvFile" << "CsvCurPos:" << position;
    // Appending to a file that has content leaves out the header row.
    const int first = (append && position >= 1) ? 1 : 0;
    CsvTableWriter writer(device, codec.toLatin1(), quoteFields, numericColumns(data, formats, INT_MAX));
    bool ok = true;
    for (int i = first; i < data.size() && ok; ++i)
        ok = writer.writeRow(data.at(i));
    ok = ok && writer.flush();
    if (!append)
        ok = ok && freshFile.commit();
    if (!ok) {
        qCWarning(lcTables).noquote() << "TableFileAssist::writeCsvFile" << "write failed:" << fileName
                                      << device->errorString();
        err = QStringLiteral("文件写入失败！");
        return false;
    }
    return true;
}

int TableFileAssist::tableWidth(const QList<QStringList>& data)
{
    int width = 0;
    for (const QStringList& row : data)
        width = qMax(width, row.size());
    return width;
}

QVector<bool> TableFileAssist::numericColumns(const QList<QStringList>& data, const QMap<int, ExportFormat>& formats,
                                              int limit)
{
    const int width = qMin(tableWidth(data), limit);
    QVector<bool> numeric;
    for (auto it = formats.cbegin(); it != formats.cend() && it.key() < width; ++it) {
        if (it.value() != ExportFormatNumber || it.key() < 0)
            continue;
        if (numeric.size() <= it.key())
            numeric.resize(it.key() + 1);
        numeric[it.key()] = true;
    }
    return numeric;
}

QMap<int, QString> TableFileAssist::buildColumnNumberFormats(const QList<QStringList>& data,
                                                             const QMap<int, ExportFormat>& formats)
{
    QMap<int, QString> result;
    for (auto it = formats.cbegin(); it != formats.cend(); ++it) {
        if (it.value() != ExportFormatNumber)
            continue;
        const int col = it.key();
        bool percent = false;
        int decimals = 0;
        for (int r = 1; r < data.size(); ++r) {
            const QStringList& row = data.at(r);
            if (col < 0 || col >= row.size())
                continue;
            // Spaces and commas do not count, nor percent signs once the column is a
            // percentage: the decimals are the other characters after the last dot.
            const QString& text = row.at(col);
            const QChar* p = text.constData();
            int last = text.size() - 1;
            while (last >= 0 && (p[last].unicode() == ' ' || p[last].unicode() == ','))
                --last;
            if (last >= 0 && p[last].unicode() == '%')
                percent = true;
            int count = 0;
            bool dot = false;
            for (int i = last; i >= 0 && !dot; --i) {
                const ushort u = p[i].unicode();
                if (u == '.')
                    dot = true;
                else if (u != ' ' && u != ',' && !(percent && u == '%'))
                    ++count;
            }
            decimals = qMax(decimals, qMin(dot ? count : 0, 5));
        }
        QString format = decimals < 1 ? QStringLiteral("0") : QStringLiteral("0.") + QString(decimals, QLatin1Char('0'));
        if (percent)
            format += QLatin1String(" %");
        result.insert(col, format);
    }
    return result;
}

bool TableFileAssist::writeXlsxFile(const QList<QStringList>& data, const QString& fileName,
                                    const QMap<int, ExportFormat>& formats, bool append, QString& err)
{
    // Only an append takes in the workbook there: a fresh write removed the old one, and
    // whatever another writer saved since is no part of this table.
    XlsxDocument doc(fileName, append);
    if (doc.loadFailed()) {
        // The existing workbook cannot be read; it is left exactly as it is.
        qCWarning(lcTables).noquote() << "TableFileAssist::writeXlsxFile" << fileName << doc.loadError();
        err = doc.loadError();
        return false;
    }
    writeSheet(&doc, QStringLiteral("Sheet1"), data, formats, append);
    QMutexLocker locker(&m_saveMutex);
    const bool saved = doc.save();
    locker.unlock();
    if (!saved)
        err = QStringLiteral("Excel文件保存失败！");
    return saved;
}

bool TableFileAssist::writeSheet(XlsxDocument* doc, const QString& sheetName, const QList<QStringList>& data,
                                 const QMap<int, ExportFormat>& formats, bool append)
{
    if (!doc)
        return false;
    const QString name = sheetName.isEmpty() ? QStringLiteral("Sheet%1").arg(doc->sheetNames().size() + 1) : sheetName;
    doc->addSheet(name); // an existing sheet of that name is simply reused
    doc->selectSheet(name);

    XlsxWriteFormat headerFormat;
    headerFormat.bold = true;
    headerFormat.fontSize = 14;

    const QMap<int, QString> numberFormats = buildColumnNumberFormats(data, formats);
    for (auto it = numberFormats.cbegin(); it != numberFormats.cend(); ++it) {
        if (it.key() < 0 || it.key() >= XlsxWorkbookReader::kMaxColumns)
            continue; // no such column in a sheet
        XlsxWriteFormat f;
        f.numFmt = it.value();
        doc->setColumnFormat(it.key() + 1, f);
    }

    const int existing = append ? qMax(0, doc->lastRow() - doc->firstRow() + 1) : 0;
    const bool skipHeader = append && existing > 0;
    int base = existing;
    if (!skipHeader && !data.isEmpty()) {
        const QStringList& header = data.first();
        for (int i = 0; i < header.size(); ++i) {
            doc->setColumnWidth(i + 1, 30.0);
            doc->write(1, i + 1, header.at(i), headerFormat);
        }
        base = existing + 1;
    }

    const QVector<bool> numeric = numericColumns(data, formats, XlsxWorkbookReader::kMaxColumns);
    const XlsxWriteFormat none;
    bool ok = true;
    // A sheet ends at row 1 048 576 and column 16 384: what lies beyond is left out, and
    // the log says so.
    constexpr int kMaxRows = XlsxWorkbookReader::kMaxRows;
    constexpr int kMaxColumns = XlsxWorkbookReader::kMaxColumns;
    const int rows = int(qMin<qint64>(data.size(), qint64(kMaxRows) - base + 1));
    if (rows < data.size())
        qCWarning(lcTables).noquote() << "TableFileAssist::writeSheet" << "sheet" << name << "ends at row" << kMaxRows
                                      << "and leaves out" << data.size() - qMax(rows, 1) << "rows";
    if (tableWidth(data) > kMaxColumns)
        qCWarning(lcTables).noquote() << "TableFileAssist::writeSheet" << "sheet" << name << "ends at column"
                                      << kMaxColumns << "and leaves out the cells beyond it";
    for (int k = 1; k < rows; ++k) {
        const QStringList& row = data.at(k);
        const int columns = qMin(row.size(), kMaxColumns);
        for (int i = 0; i < columns; ++i) {
            const QString& text = row.at(i);
            if (i < numeric.size() && numeric.at(i)) {
                const double value = numberFromText(text, text.endsWith(QLatin1Char('%')));
                ok = doc->write(base + k, i + 1, value, none) && ok;
            } else {
                ok = doc->write(base + k, i + 1, text, none) && ok;
            }
        }
    }
    return ok;
}

bool TableFileAssist::WriteTableDatas(const QString& fileName, const QList<QPair<QString, QList<QStringList>>>& sheets,
                                      const QMap<QString, QMap<int, ExportFormat>>& formats, QString& err)
{
    err.clear();
    if (fileName.endsWith(QLatin1String(".csv")) || fileName.endsWith(QLatin1String(".txt"))) {
        err = QStringLiteral("多表格导出功能不支持csv格式导出");
        qCWarning(lcTables).noquote() << "TableFileAssist::WriteTableDatas" << QStringLiteral("WriteTableDatas不支持csv格式导出");
        return false;
    }
    if (!removeOldFile(fileName)) {
        err = QStringLiteral("文件导出失败，文件名：") + fileName;
        qCWarning(lcTables).noquote() << "TableFileAssist::WriteTableDatas" << err;
        return false;
    }
    TableFileSeam::reach(TableFileSeam::OldFileRemoved, fileName);
    XlsxDocument doc(fileName, false);
    doc.deleteSheet(QStringLiteral("Sheet1"));
    // The sheets are made first, in order, so that a sheet named twice is known before any
    // row is written: its second table is written over its first, so it is held whole
    // until the save.
    QStringList names;
    for (const auto& sheet : sheets) {
        const QString name = sheet.first.isEmpty() ? QStringLiteral("Sheet%1").arg(doc.sheetNames().size() + 1) : sheet.first;
        if (!doc.addSheet(name) && doc.selectSheet(name))
            doc.holdCurrentSheet();
        names.append(name);
    }
    for (int i = 0; i < sheets.size(); ++i)
        writeSheet(&doc, names.at(i), sheets.at(i).second, formats.value(sheets.at(i).first), false);
    // The save result is not looked at here, unlike a single-table save.
    doc.save();
    return true;
}
