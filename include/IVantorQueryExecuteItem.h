#pragma once

#include "VantorGlobal.h"
#include "VantorTypes.h"

#include <QElapsedTimer>
#include <QList>
#include <QMap>
#include <QObject>
#include <QPointer>
#include <QRunnable>
#include <QString>
#include <QVariant>

#include <atomic>
#include <memory>

class CPackMessageCommon;
class LmPresenterClass;
class LmPresenterClassMgr;

// Runs one server function on the calling thread: packs the request, sends it through
// the presenter, pages through the reply, retries failures and time-outs, honours a
// total time limit and an external stop, and hands the rows to postProcessDataList().
//
// Concrete executors override the small virtual operations below. run() may be called
// directly or by a thread pool (auto-deletion is off: the creator owns the executor);
// stop() and isRunning() may be called from any other thread.
class VANTORUTILS_EXPORT IVantorQueryExecuteItem : public QObject, public QRunnable
{
    Q_OBJECT
public:
    enum QueryErrorCode {
        NoError = 0,
        TimeoutError = 1,
        FailureError = 2,
        StoppedError = 3,
        TotalTimeoutError = 4,
        PartCondFailureError = 5,
    };

    explicit IVantorQueryExecuteItem(QObject* parent = nullptr);
    ~IVantorQueryExecuteItem() override;

    // Overridable steps of a run.
    virtual void setQueryCondition(const QMap<QString, QVariant>& condition);
    virtual void setQueryListCondition(const QList<QMap<QString, QVariant>>& conditions);
    virtual QString functionId() const;
    // Puts the condition (or the rows of the list condition) into the request.
    virtual void packageSingleQueryRequest(CPackMessageCommon& packer);
    virtual QMap<QString, QVariant> singleQueryCondition() const;
    virtual QList<QMap<QString, QVariant>> singleQueryListCondition() const;
    virtual bool IsQueryCondList() const;
    virtual bool isPaged() const;
    // -1 single request, 0 paging by page number, 1 paging by position string.
    virtual int pageMode() const;
    virtual int pageSize() const;
    virtual int startPageNo() const;
    virtual QString startPosStr() const;
    // Sees the head row (status, totals) of each successful reply.
    virtual void processDataHeadLine(QMap<QString, QVariant>& headLine);
    // Returns false to drop the data row.
    virtual bool preProcessData(QMap<QString, QVariant>& row);
    virtual int retryTimeLimit() const;
    virtual void resetQueryStatus();
    // Both return true once the failures and time-outs of the group reach the limit.
    virtual bool processTimeout();
    virtual bool processFailure(const QMap<QString, QVariant>& reply);
    virtual void processPartCondFailure();
    virtual void processStop();
    virtual void processTotalTimeOut();
    // Whether every condition group has been run.
    virtual bool isFinished();
    // Whether the current group needs no further page.
    virtual bool isSingleQueryFinished(int rowsThisPage, int rowsSoFar, int totalSize);
    // Returning false ends run() before the first request.
    virtual bool prepareMemory();
    // Receives the rows of a completed run; false reports a conversion failure.
    virtual bool postProcessDataList(QList<QMap<QString, QVariant>>& rows);
    // Asks a running query to end after its current attempt.
    virtual void stop();

    // Runs the query to its end on the calling thread.
    void run() override;

    void setFunctionId(const QString& functionId);
    int errorCode() const;
    void setErrorCode(QueryErrorCode code);
    QString errorString() const;
    void setErrorString(const QString& text);
    bool isRunning() const;
    void setPrensenter(LmPresenterClass* presenter);
    void setMsgPackGroup(bool group);
    void setMsgUnpackGroup(bool group);
    void setSingleQueryMinInterval(int ms);
    int singleQueryMinInterval() const;
    void setStopAtFailOrTimeout(bool stop);
    bool stopAtFailOrTimeout() const;
    void setTotalTimeOut(int ms);
    int totalTimeOut() const;

private:
    Q_DISABLE_COPY(IVantorQueryExecuteItem)

    // Both flags are written by one thread and read by another once per attempt. The run
    // clears `running` after its last write, so whoever sees it false may read the outcome.
    std::atomic<bool> m_stopped{false};
    std::atomic<bool> m_running{false};
    // Made with the executor's parent, which may delete it first; the executor deletes it
    // when it is still there.
    QPointer<LmPresenterClassMgr> m_presenterMgr;
    QMap<QString, QVariant> m_queryCondition;
    QList<QMap<QString, QVariant>> m_queryListCondition;
    int m_retryCount = 0;
    QString m_functionId;
    int m_errorCode = NoError;
    QString m_errorString;
    QElapsedTimer m_totalTimer;
    int m_totalTimeOut = 0;
    int m_singleQueryMinInterval = 0;
    bool m_msgPackGroup = false;
    bool m_msgUnpackGroup = false;
    bool m_stopAtFailOrTimeout = true;
    bool m_partFailure = false;
};
