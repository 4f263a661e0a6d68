#include "VantorUtils.h"

#include "VantorUtils_p.h"
#include "business/VantorQuantityRules.h"
#include "query/VantorEventPublisher.h"
#include "query/VantorServerRequests.h"
#include "tables/TableFileAssist.h"
#include "timing/OnceTimerManager.h"

// ---- Server requests ----

QList<QMap<QString, QVariant>> VantorUtils::QueryDatasFromServer(LmPresenterClass* presenter,
                                                                 const QString& functionId,
                                                                 const QMap<QString, QVariant>& condition,
                                                                 QueryDataMode mode, QString& errorText)
{
    return VantorServerRequests::queryDatasFromServer(presenter, functionId, condition, mode, errorText);
}

QList<QMap<QString, QVariant>> VantorUtils::QueryDatasFromServerByPage(LmPresenterClass* presenter,
                                                                       const QString& functionId,
                                                                       const QMap<QString, QVariant>& condition,
                                                                       QString& errorText, int pageSize,
                                                                       int startPageNo, int singleQueryMinInterval,
                                                                       int totalTimeOut)
{
    return VantorServerRequests::queryDatasFromServerByPage(presenter, functionId, condition, errorText, pageSize,
                                                            startPageNo, singleQueryMinInterval, totalTimeOut);
}

QList<QMap<QString, QVariant>> VantorUtils::QueryDatasFromServerByPos(LmPresenterClass* presenter,
                                                                      const QString& functionId,
                                                                      const QMap<QString, QVariant>& condition,
                                                                      QString& errorText, int pageSize,
                                                                      QString startPosStr, int singleQueryMinInterval)
{
    return VantorServerRequests::queryDatasFromServerByPos(presenter, functionId, condition, errorText, pageSize,
                                                           startPosStr, singleQueryMinInterval);
}

QString VantorUtils::SendRequestToServer(LmPresenterClass* presenter, const QString& functionId,
                                         const QMap<QString, QVariant>& condition, QueryDataMode mode,
                                         QString& errorText, QList<QMap<QString, QVariant>>& rows, bool msgPackGroup,
                                         bool msgUnpackGroup)
{
    return VantorServerRequests::sendRequestToServer(presenter, functionId, condition, mode, errorText, rows,
                                                     msgPackGroup, msgUnpackGroup);
}

QString VantorUtils::SendRequestListToServer(LmPresenterClass* presenter, const QString& functionId,
                                             const QList<QMap<QString, QVariant>>& conditions, QueryDataMode mode,
                                             QString& errorText, QList<QMap<QString, QVariant>>& rows,
                                             bool msgPackGroup, bool msgUnpackGroup)
{
    return VantorServerRequests::sendRequestListToServer(presenter, functionId, conditions, mode, errorText, rows,
                                                         msgPackGroup, msgUnpackGroup);
}

QList<int> VantorUtils::SplitBigNumIntoSmallNumList(qint64 total, int maxPiece, int minPiece)
{
    return VantorQuantityRules::SplitBigNumIntoSmallNumList(total, maxPiece, minPiece);
}

// ---- Events, business messages and order pushes ----

int VantorUtils::GetKorvoEventMsgIdByStr(const QString& key)
{
    return VantorUtils_p::instance()->eventIds().GetKorvoEventMsgIdByStr(key);
}

int VantorUtils::SendEventMsg(LmPresenterClass* presenter, int msgId, const QVariant& data)
{
    return VantorEventPublisher::SendEventMsg(presenter, msgId, data);
}

int VantorUtils::SendEventMsg(LmPresenterClass* presenter, const QString& key, const QVariant& data)
{
    return VantorEventPublisher::SendEventMsg(presenter, key, data);
}

void VantorUtils::PutBusiMsg(LmPresenterClass* presenter, const QString& level, const QString& text,
                             const QString& type, const QString& subType, const QString& itemName,
                             const QString& itemValue, const QString& tradingAccount)
{
    VantorEventPublisher::PutBusiMsg(presenter, level, text, type, subType, itemName, itemValue, tradingAccount);
}

void VantorUtils::RecordWidgetOperation(const QString& object, const QString& type, const QString& text,
                                        const QString& status, const QString& menu)
{
    VantorEventPublisher::RecordWidgetOperation(object, type, text, status, menu);
}

bool VantorUtils::RegisterEntrustPushFunc(std::function<void(const QMap<QString, QVariant>&)> func, bool add)
{
    return VantorUtils_p::instance()->entrustPushes().RegisterEntrustPushFunc(std::move(func), add);
}

void VantorUtils::RegisterFileTraderEntrustPushFunc(std::function<void(const QMap<QString, QVariant>&)> entrust,
                                                    std::function<void(const QVariant&)> orderResponse)
{
    VantorUtils_p::instance()->entrustPushes().RegisterFileTraderEntrustPushFunc(std::move(entrust),
                                                                                 std::move(orderResponse));
}

void VantorUtils::RegisterMQEntrustPushFunc(std::function<void(const QMap<QString, QVariant>&)> entrust,
                                            std::function<void(const QVariant&)> orderResponse)
{
    VantorUtils_p::instance()->entrustPushes().RegisterMQEntrustPushFunc(std::move(entrust), std::move(orderResponse));
}

void VantorUtils::RegisterMQNetDataFunc(std::function<void(const QString&, const QVariant&, const QVariant&)> func)
{
    VantorUtils_p::instance()->entrustPushes().RegisterMQNetDataFunc(std::move(func));
}

void VantorUtils::ProcessEntrustPush(const QMap<QString, QVariant>& push)
{
    VantorUtils_p::instance()->entrustPushes().ProcessEntrustPush(push);
}

void VantorUtils::ProcessEntrustPushToMQ(const QMap<QString, QVariant>& push)
{
    VantorUtils_p::instance()->entrustPushes().ProcessEntrustPushToMQ(push);
}

void VantorUtils::ProcessOrderResponsePushToMQ(const QVariant& response)
{
    VantorUtils_p::instance()->entrustPushes().ProcessOrderResponsePushToMQ(response);
}

void VantorUtils::SendMQNetData(const QString& a, const QVariant& b, const QVariant& c)
{
    VantorUtils_p::instance()->entrustPushes().SendMQNetData(a, b, c);
}

// ---- Once timers ----

void VantorUtils::OnceTimer(int msec, IOnceTimerBase* obj, QString& timerId)
{
    OnceTimerManager::instance()->OnceTimer(msec, obj, timerId);
}

bool VantorUtils::StopOnceTimer(IOnceTimerBase* obj, const QString& timerId)
{
    return OnceTimerManager::instance()->StopOnceTimer(obj, timerId);
}

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
