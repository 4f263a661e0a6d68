#pragma once

#include "VantorGlobal.h"
#include "VantorTypes.h"

class LmPresenterClass;
class LmPluginBaseWidget;
class QWidget;

// The library's front door for plug-ins: static functions that forward to the private
// singleton. Nothing here throws; failures come back as return values and error texts.
class VANTORUTILS_EXPORT VantorUtils
{
public:
    // ---- Server requests ----

    // ---- Events, business messages and order pushes ----

    // ---- Once timers ----

    // ---- Table files ----
    static QList<QStringList> ReadTableData(const QString& fileName);
    static QList<QStringList> ReadTableData(const QString& fileName, ReadTableCfg cfg, QString& err);
    static QList<QPair<QString, QList<QStringList>>> ReadMultiSheetTables(const QString& fileName, ReadTableCfg cfg);
    static bool WriteTableData(const QList<QStringList>& data, const QString& fileName,
                               const QMap<int, ExportFormat>& formats, bool showMessageBox, ExportFileCode code,
                               bool append);
    static bool WriteTableData(const QList<QStringList>& data, const QString& fileName,
                               const QMap<int, ExportFormat>& formats, bool showMessageBox, ExportFileCode code,
                               bool append, QString& err);
    static bool WriteTableDatas(const QString& fileName, const QList<QPair<QString, QList<QStringList>>>& sheets,
                                const QMap<QString, QMap<int, ExportFormat>>& formats);
    static bool WriteTableDatas(const QString& fileName, const QList<QPair<QString, QList<QStringList>>>& sheets,
                                const QMap<QString, QMap<int, ExportFormat>>& formats, QString& err);
    static QString ChargeFileCodec(const QString& fileName);
    static QList<QStringList> GetCsvContentFromLmTable(const QList<QMap<QString, QVariant>>& heads,
                                                       const QList<QMap<int, QMap<QString, QVariant>>>& rows,
                                                       bool allColumns, const QList<int>& columns);
    static QList<QStringList> GetCsvContentFromLmTree(const QList<QMap<QString, QVariant>>& heads,
                                                      const QList<QMap<int, QMap<QString, QVariant>>>& rows,
                                                      int column, int mode, bool allColumns);
    static QMap<int, ExportFormat> GetColumnFormatFromHead(const QList<QMap<QString, QVariant>>& heads,
                                                           bool allColumns);

    // ---- Numbers, formulas, maps and strings ----

    // ---- Screens, passwords, versions, paths and downloads ----
};
