#pragma once

#include "VantorTypes.h"

#include "query/VantorEntrustPushHub.h"
#include "query/VantorEventIdRegistry.h"

#include <memory>

class LmPresenterClass;
class TableFileAssist;

// The process-wide private singleton behind VantorUtils. Created on first use; owns the
// default presenter "globalQuery" and the state that the forwarders share.
class VantorUtils_p
{
public:
    static VantorUtils_p* instance();
    ~VantorUtils_p();

    // The presenter used when a caller passes none.
    LmPresenterClass* defaultPresenter() const { return m_defaultPresenter.get(); }

    // ---- Table files ----
    // The reader and writer of table files, created with the singleton.
    TableFileAssist* tableFileAssist() const { return m_tableFileAssist.get(); }
    QList<QStringList> GetCsvContentFromLmTable(const QList<QMap<QString, QVariant>>& heads,
                                                const QList<QMap<int, QMap<QString, QVariant>>>& rows,
                                                bool allColumns, const QList<int>& columns);
    QList<QStringList> GetCsvContentFromLmTree(const QList<QMap<QString, QVariant>>& heads,
                                               const QList<QMap<int, QMap<QString, QVariant>>>& rows, int column,
                                               int mode, bool allColumns);
    QMap<int, ExportFormat> GetColumnFormatFromHead(const QList<QMap<QString, QVariant>>& heads, bool allColumns);

    // ---- Events and order pushes ----
    // Ids of named events, and the receivers of order pushes.
    VantorEventIdRegistry& eventIds() { return m_eventIds; }
    VantorEntrustPushHub& entrustPushes() { return m_entrustPushes; }

    VantorUtils_p(const VantorUtils_p&) = delete;
    VantorUtils_p& operator=(const VantorUtils_p&) = delete;

private:
    VantorUtils_p();

    std::unique_ptr<LmPresenterClass> m_defaultPresenter;
    std::unique_ptr<TableFileAssist> m_tableFileAssist;
    VantorEventIdRegistry m_eventIds;
    VantorEntrustPushHub m_entrustPushes;
};
