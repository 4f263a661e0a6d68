#pragma once

#include "VantorGlobal.h"
#include "VantorTypes.h"

#include <functional>

class LmPresenterClass;
class LmPluginBaseWidget;
class QWidget;

// The library's front door for plug-ins: static functions that forward to the private
// singleton. Nothing here throws; failures come back as return values and error texts.
class VANTORUTILS_EXPORT VantorUtils
{
public:
    // ---- Server requests ----
    // Each call runs to its end on the calling thread, retries and pauses included. A null
    // presenter means the library's default presenter "globalQuery". Failures come back as
    // errorText (empty on success) with the rows gathered, never as exceptions.

    // One request; returns the head line and/or the data rows as `mode` says.
    static QList<QMap<QString, QVariant>> QueryDatasFromServer(LmPresenterClass* presenter, const QString& functionId,
                                                               const QMap<QString, QVariant>& condition,
                                                               QueryDataMode mode, QString& errorText);
    // Pages by page number from startPageNo; totalTimeOut <= 0 means 60 000 ms.
    static QList<QMap<QString, QVariant>> QueryDatasFromServerByPage(LmPresenterClass* presenter,
                                                                     const QString& functionId,
                                                                     const QMap<QString, QVariant>& condition,
                                                                     QString& errorText, int pageSize = 1000,
                                                                     int startPageNo = 0,
                                                                     int singleQueryMinInterval = 0,
                                                                     int totalTimeOut = 0);
    // Pages by position string from startPosStr, without a total time limit.
    static QList<QMap<QString, QVariant>> QueryDatasFromServerByPos(LmPresenterClass* presenter,
                                                                    const QString& functionId,
                                                                    const QMap<QString, QVariant>& condition,
                                                                    QString& errorText, int pageSize = 1000,
                                                                    QString startPosStr = QString(),
                                                                    int singleQueryMinInterval = 0);
    // Sends one request, never repeated. Returns the request status (success, timeout or
    // fail); on success appends the rows that `mode` chooses to `rows`.
    static QString SendRequestToServer(LmPresenterClass* presenter, const QString& functionId,
                                       const QMap<QString, QVariant>& condition, QueryDataMode mode,
                                       QString& errorText, QList<QMap<QString, QVariant>>& rows,
                                       bool msgPackGroup = false, bool msgUnpackGroup = false);
    // Sends the conditions as the rows of one request; otherwise as SendRequestToServer.
    static QString SendRequestListToServer(LmPresenterClass* presenter, const QString& functionId,
                                           const QList<QMap<QString, QVariant>>& conditions, QueryDataMode mode,
                                           QString& errorText, QList<QMap<QString, QVariant>>& rows,
                                           bool msgPackGroup = false, bool msgUnpackGroup = false);

    // ---- Events, business messages and order pushes ----
    // Events go onto the client's event bus through a presenter (null: the default one).
    // Order pushes travel the other way: plug-ins register callbacks, and the push entry
    // points call them on the calling thread.

    // The id of a named event, handed out on first use (the first after the client's
    // event-id base + 1) and kept for the life of the process.
    static int GetKorvoEventMsgIdByStr(const QString& key);
    // Puts an event of type `msgId` carrying `data`; answers 0.
    static int SendEventMsg(LmPresenterClass* presenter, int msgId, const QVariant& data);
    static int SendEventMsg(LmPresenterClass* presenter, const QString& key, const QVariant& data);
    // Puts a message for the message centre; an empty trading account is left out.
    static void PutBusiMsg(LmPresenterClass* presenter, const QString& level, const QString& text,
                           const QString& type, const QString& subType, const QString& itemName,
                           const QString& itemValue, const QString& tradingAccount = QString());
    // Records a user operation (through the default presenter); an empty menu means the
    // client's current menu, an empty status is left out.
    static void RecordWidgetOperation(const QString& object, const QString& type, const QString& text,
                                      const QString& status = QString(), const QString& menu = QString());

    // Adds (add true) or removes an entrust push callback. Callbacks wrapping the same
    // plain function are the same; all other callbacks (lambdas, bound objects) count as
    // one and the same, so only one of them can be registered. Adding one that is there
    // answers false; removing drops every equal one and answers true.
    static bool RegisterEntrustPushFunc(std::function<void(const QMap<QString, QVariant>&)> func, bool add);
    // Each non-empty argument replaces its slot; an empty one leaves the slot as it was.
    static void RegisterFileTraderEntrustPushFunc(std::function<void(const QMap<QString, QVariant>&)> entrust,
                                                  std::function<void(const QVariant&)> orderResponse);
    static void RegisterMQEntrustPushFunc(std::function<void(const QMap<QString, QVariant>&)> entrust,
                                          std::function<void(const QVariant&)> orderResponse);
    static void RegisterMQNetDataFunc(std::function<void(const QString&, const QVariant&, const QVariant&)> func);
    // Calls every entrust push callback, in registration order.
    static void ProcessEntrustPush(const QMap<QString, QVariant>& push);
    // Calls the MQ entrust slot, then the file-trader one, each only once it was set.
    static void ProcessEntrustPushToMQ(const QMap<QString, QVariant>& push);
    static void ProcessOrderResponsePushToMQ(const QVariant& response);
    // Calls the MQ net data function. The one call here that can throw: without a
    // registered function it raises std::bad_function_call, as the MQ bridge always has.
    static void SendMQNetData(const QString& a, const QVariant& b, const QVariant& c);

    // ---- Once timers ----

    // Creates a one-shot timer for `obj` when `timerId` is empty and writes its id ("0",
    // "1", ... per object) into `timerId`; then starts the named timer for `msec` unless it
    // is already running (a running timer keeps its first deadline). `obj` must also be a
    // QObject; the timer is its child and fires on its thread. Called from another thread,
    // both functions answer at once and the object's thread makes, starts or stops the
    // timer when it next handles its events (nothing happens if the object is gone by then).
    static void OnceTimer(int msec, IOnceTimerBase* obj, QString& timerId);
    // Stops the named timer of `obj`; true if such a timer was found.
    static bool StopOnceTimer(IOnceTimerBase* obj, const QString& timerId);

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

    // Splits a large order quantity into child quantities of at most maxPiece, in order,
    // with no last piece below minPiece when that can be avoided: (1050, 500, 100) gives
    // 500, 450, 100. A maxPiece that is not positive leaves the total in one piece.
    static QList<int> SplitBigNumIntoSmallNumList(qint64 total, int maxPiece, int minPiece);

    // ---- Screens, passwords, versions, paths and downloads ----
};
