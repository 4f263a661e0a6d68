#pragma once

#include "VantorTypes.h"

#include <functional>

class IVantorQueryExecuteItem;
class LmPresenterClass;

// The five server request entry points behind VantorUtils. Each builds its executor,
// runs it to the end on the calling thread, turns the outcome into rows and an error
// text, logs before and after, and deletes the executor.
//
// `started`, when given, sees the executor just before it runs (for instance to keep a
// pointer through which another thread may stop it); it must not keep it past the call.
class VantorServerRequests
{
public:
    using ExecutorObserver = std::function<void(IVantorQueryExecuteItem*)>;

    static QList<QMap<QString, QVariant>> queryDatasFromServer(LmPresenterClass* presenter, const QString& functionId,
                                                               const QMap<QString, QVariant>& condition,
                                                               QueryDataMode mode, QString& errorText,
                                                               const ExecutorObserver& started = {});

    static QList<QMap<QString, QVariant>> queryDatasFromServerByPage(LmPresenterClass* presenter,
                                                                     const QString& functionId,
                                                                     const QMap<QString, QVariant>& condition,
                                                                     QString& errorText, int pageSize,
                                                                     int startPageNo, int singleQueryMinInterval,
                                                                     int totalTimeOut,
                                                                     const ExecutorObserver& started = {});

    static QList<QMap<QString, QVariant>> queryDatasFromServerByPos(LmPresenterClass* presenter,
                                                                    const QString& functionId,
                                                                    const QMap<QString, QVariant>& condition,
                                                                    QString& errorText, int pageSize,
                                                                    const QString& startPosStr,
                                                                    int singleQueryMinInterval,
                                                                    const ExecutorObserver& started = {});

    static QString sendRequestToServer(LmPresenterClass* presenter, const QString& functionId,
                                       const QMap<QString, QVariant>& condition, QueryDataMode mode,
                                       QString& errorText, QList<QMap<QString, QVariant>>& rows, bool msgPackGroup,
                                       bool msgUnpackGroup, const ExecutorObserver& started = {});

    static QString sendRequestListToServer(LmPresenterClass* presenter, const QString& functionId,
                                           const QList<QMap<QString, QVariant>>& conditions, QueryDataMode mode,
                                           QString& errorText, QList<QMap<QString, QVariant>>& rows,
                                           bool msgPackGroup, bool msgUnpackGroup,
                                           const ExecutorObserver& started = {});

    // Total time limit of the queries that set one, in milliseconds.
    static constexpr int DefaultTotalTimeOut = 60000;
};
