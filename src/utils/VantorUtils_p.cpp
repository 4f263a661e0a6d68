#include "VantorUtils_p.h"

#include "VantorLogging.h"

#include "tables/TableFileAssist.h"
#include "tables/TableModelContent.h"

#include <LmPresenterClass.h>

VantorUtils_p* VantorUtils_p::instance()
{
    static VantorUtils_p instance;
    return &instance;
}

VantorUtils_p::VantorUtils_p()
    : m_defaultPresenter(std::make_unique<LmPresenterClass>(QStringLiteral("globalQuery"), nullptr, 2))
    , m_tableFileAssist(std::make_unique<TableFileAssist>(nullptr))
{
}

VantorUtils_p::~VantorUtils_p()
{
    qCInfo(lcUtils).noquote() << "VantorUtils_p::~VantorUtils_p" << "通用查询模块开始析构！";
}

QList<QStringList> VantorUtils_p::GetCsvContentFromLmTable(const QList<QMap<QString, QVariant>>& heads,
                                                           const QList<QMap<int, QMap<QString, QVariant>>>& rows,
                                                           bool allColumns, const QList<int>& columns)
{
    return TableModelContent::fromTable(heads, rows, allColumns, columns);
}

QList<QStringList> VantorUtils_p::GetCsvContentFromLmTree(const QList<QMap<QString, QVariant>>& heads,
                                                          const QList<QMap<int, QMap<QString, QVariant>>>& rows,
                                                          int column, int mode, bool allColumns)
{
    return TableModelContent::fromTree(heads, rows, column, mode, allColumns);
}

QMap<int, ExportFormat> VantorUtils_p::GetColumnFormatFromHead(const QList<QMap<QString, QVariant>>& heads,
                                                               bool allColumns)
{
    return TableModelContent::columnFormats(heads, allColumns);
}
