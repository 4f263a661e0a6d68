#include "VantorUtils.h"

#include "VantorUtils_p.h"
#include "business/VantorQuantityRules.h"
#include "query/VantorServerRequests.h"

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
