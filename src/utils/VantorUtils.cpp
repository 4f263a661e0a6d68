#include "VantorUtils.h"

#include "VantorUtils_p.h"

#include "tables/TableFileAssist.h"

// ---- Table files ----

QList<QStringList> VantorUtils::ReadTableData(const QString& fileName)
{
    QString err;
    return VantorUtils_p::instance()->tableFileAssist()->ReadTableData(fileName, ReadAllRows, err);
}

QList<QStringList> VantorUtils::ReadTableData(const QString& fileName, ReadTableCfg cfg, QString& err)
{
    return VantorUtils_p::instance()->tableFileAssist()->ReadTableData(fileName, cfg, err);
}

QList<QPair<QString, QList<QStringList>>> VantorUtils::ReadMultiSheetTables(const QString& fileName, ReadTableCfg cfg)
{
    return VantorUtils_p::instance()->tableFileAssist()->ReadMultiSheetTables(fileName, cfg);
}

bool VantorUtils::WriteTableData(const QList<QStringList>& data, const QString& fileName,
                                 const QMap<int, ExportFormat>& formats, bool showMessageBox, ExportFileCode code,
                                 bool append)
{
    QString err;
    return VantorUtils_p::instance()->tableFileAssist()->WriteTableData(data, fileName, formats, showMessageBox, code,
                                                                        append, err);
}

bool VantorUtils::WriteTableData(const QList<QStringList>& data, const QString& fileName,
                                 const QMap<int, ExportFormat>& formats, bool showMessageBox, ExportFileCode code,
                                 bool append, QString& err)
{
    return VantorUtils_p::instance()->tableFileAssist()->WriteTableData(data, fileName, formats, showMessageBox, code,
                                                                        append, err);
}

bool VantorUtils::WriteTableDatas(const QString& fileName, const QList<QPair<QString, QList<QStringList>>>& sheets,
                                  const QMap<QString, QMap<int, ExportFormat>>& formats)
{
    QString err;
    return VantorUtils_p::instance()->tableFileAssist()->WriteTableDatas(fileName, sheets, formats, err);
}

bool VantorUtils::WriteTableDatas(const QString& fileName, const QList<QPair<QString, QList<QStringList>>>& sheets,
                                  const QMap<QString, QMap<int, ExportFormat>>& formats, QString& err)
{
    return VantorUtils_p::instance()->tableFileAssist()->WriteTableDatas(fileName, sheets, formats, err);
}

QString VantorUtils::ChargeFileCodec(const QString& fileName)
{
    return TableFileAssist::ChargeFileCodec(fileName);
}

QList<QStringList> VantorUtils::GetCsvContentFromLmTable(const QList<QMap<QString, QVariant>>& heads,
                                                         const QList<QMap<int, QMap<QString, QVariant>>>& rows,
                                                         bool allColumns, const QList<int>& columns)
{
    return VantorUtils_p::instance()->GetCsvContentFromLmTable(heads, rows, allColumns, columns);
}

QList<QStringList> VantorUtils::GetCsvContentFromLmTree(const QList<QMap<QString, QVariant>>& heads,
                                                        const QList<QMap<int, QMap<QString, QVariant>>>& rows,
                                                        int column, int mode, bool allColumns)
{
    return VantorUtils_p::instance()->GetCsvContentFromLmTree(heads, rows, column, mode, allColumns);
}

QMap<int, ExportFormat> VantorUtils::GetColumnFormatFromHead(const QList<QMap<QString, QVariant>>& heads,
                                                             bool allColumns)
{
    return VantorUtils_p::instance()->GetColumnFormatFromHead(heads, allColumns);
}
