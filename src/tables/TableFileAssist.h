#pragma once

#include "VantorTypes.h"

#include <QList>
#include <QMap>
#include <QMutex>
#include <QObject>
#include <QPair>
#include <QString>
#include <QStringList>
#include <QVector>

class XlsxDocument;
class XlsxWorkbookReader;

// Reads table files (CSV and workbooks) into rows of text and writes rows of text back
// as CSV files or workbooks. One instance lives in the private singleton; every table
// import and export of the library goes through it.
class TableFileAssist : public QObject
{
    Q_OBJECT

public:
    explicit TableFileAssist(QObject* parent = nullptr);
    ~TableFileAssist() override;

    QList<QStringList> ReadTableData(const QString& fileName, ReadTableCfg cfg, QString& err);
    QList<QPair<QString, QList<QStringList>>> ReadMultiSheetTables(const QString& fileName, ReadTableCfg cfg);
    bool WriteTableData(const QList<QStringList>& data, const QString& fileName,
                        const QMap<int, ExportFormat>& formats, bool showMessageBox, ExportFileCode code,
                        bool append, QString& err);
    bool WriteTableDatas(const QString& fileName, const QList<QPair<QString, QList<QStringList>>>& sheets,
                         const QMap<QString, QMap<int, ExportFormat>>& formats, QString& err);

    // "UTF-8" or "GB18030", whichever decodes the whole file cleanly first; empty when
    // neither does or the file cannot be read.
    static QString ChargeFileCodec(const QString& fileName);

    // The number format of each numeric column: "0", or "0." and up to five zeros, with
    // " %" appended for a column of percentages.
    static QMap<int, QString> buildColumnNumberFormats(const QList<QStringList>& data,
                                                       const QMap<int, ExportFormat>& formats);

private:
    // The length of the longest row.
    static int tableWidth(const QList<QStringList>& data);
    // Per column (0-based), whether `formats` makes it numeric; as long as the widest row
    // and at most `limit`: a column no cell reaches needs no entry.
    static QVector<bool> numericColumns(const QList<QStringList>& data, const QMap<int, ExportFormat>& formats,
                                        int limit);
    QList<QStringList> readCsvFile(const QString& fileName, const QString& codec, ReadTableCfg cfg);
    QList<QStringList> readDetectedCsvFile(const QString& fileName, ReadTableCfg cfg, QString& err);
    QList<QStringList> readXslFile(const QString& fileName, ReadTableCfg cfg, QString& err);
    QList<QStringList> readSheet(XlsxWorkbookReader& book, int sheet, const QString& fileName, ReadTableCfg cfg,
                                 QString& err);
    bool writeCsvFile(const QList<QStringList>& data, const QString& fileName, const QString& codec,
                      bool quoteFields, const QMap<int, ExportFormat>& formats, bool append, QString& err);
    bool writeXlsxFile(const QList<QStringList>& data, const QString& fileName,
                       const QMap<int, ExportFormat>& formats, bool append, QString& err);
    bool writeSheet(XlsxDocument* doc, const QString& sheetName, const QList<QStringList>& data,
                    const QMap<int, ExportFormat>& formats, bool append);

    QMutex m_saveMutex;
};
