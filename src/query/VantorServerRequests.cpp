#include "VantorServerRequests.h"

#include "NonPageQueryExecuteItem.h"
#include "PageQueryExecuteItem.h"
#include "PosQueryExecuteItem.h"
#include "RequestListSendExecuteItem.h"
#include "RequestSendExecuteItem.h"
#include "VantorLogging.h"
#include "VantorUtils_p.h"

#include <VantorFields.h>
#include <ZentraFields.h>

#include <memory>

namespace {
using Row = QMap<QString, QVariant>;
using Rows = QList<QMap<QString, QVariant>>;

LmPresenterClass* presenterOrDefault(LmPresenterClass* presenter)
{
    return presenter ? presenter : VantorUtils_p::instance()->defaultPresenter();
}

void runExecutor(IVantorQueryExecuteItem& executor, const VantorServerRequests::ExecutorObserver& started)
{
    if (started)
        started(&executor);
    executor.run();
}

// The rows a single query or a send returns for the mode.
void appendByMode(Rows& out, QueryDataMode mode, const Row& headLine, const Rows& data)
{
    if (mode == QueryDataList) {
        out.append(data);
        return;
    }
    if (!headLine.isEmpty())
        out.append(headLine);
    if (mode != QueryHeadLine)
        out.append(data);
}

// Code 3 (an external stop) is reported with the total-time text; a real total
// time-out (code 4) keeps the executor's own text. Kept so for the plug-ins that
// compare with these texts.
void queryErrorText(const IVantorQueryExecuteItem& executor, int seconds, QString& errorText)
{
    switch (executor.errorCode()) {
    case IVantorQueryExecuteItem::StoppedError:
        errorText = QStringLiteral("总查询时间超过%1秒，停止查询！").arg(seconds);
        break;
    case IVantorQueryExecuteItem::NoError:
        errorText.clear();
        break;
    default:
        errorText = executor.errorString();
        break;
    }
}

QString sendStatus(const NonPageQueryExecuteItem& executor, QueryDataMode mode, QString& errorText, Rows& rows)
{
    switch (executor.errorCode()) {
    case IVantorQueryExecuteItem::NoError:
        errorText.clear();
        appendByMode(rows, mode, executor.headLine(), executor.dataList());
        return QString::fromLatin1(Zentra_Values::RequestExeStatus::success);
    case IVantorQueryExecuteItem::TimeoutError:
        errorText = executor.errorString();
        return QString::fromLatin1(Vantor_Values::RequestExeStatus::timeout);
    default:
        errorText = executor.errorString();
        return QString::fromLatin1(Zentra_Values::RequestExeStatus::fail);
    }
}

QString sendResultText(const QString& errorText)
{
    return errorText.isEmpty() ? QStringLiteral("成功") : errorText;
}
} // namespace

Rows VantorServerRequests::queryDatasFromServer(LmPresenterClass* presenter, const QString& functionId,
                                                const Row& condition, QueryDataMode mode, QString& errorText,
                                                const ExecutorObserver& started)
{
    presenter = presenterOrDefault(presenter);
    qCInfo(lcQuery).noquote() << "VantorUtils::QueryDatasFromServer"
                              << QStringLiteral("单次查询%1功能号，查询条件：").arg(functionId) << condition;

    auto executor = std::make_unique<NonPageQueryExecuteItem>(nullptr);
    executor->setPrensenter(presenter);
    executor->setFunctionId(functionId);
    executor->setQueryCondition(condition);
    executor->setTotalTimeOut(DefaultTotalTimeOut);
    runExecutor(*executor, started);

    Rows rows;
    appendByMode(rows, mode, executor->headLine(), executor->dataList());
    queryErrorText(*executor, DefaultTotalTimeOut / 1000, errorText);

    qCInfo(lcQuery).noquote() << "VantorUtils::QueryDatasFromServer"
                              << QStringLiteral("单次查询%1功能号，查询结束，结果：%2，原因：%3")
                                     .arg(functionId, QString::number(executor->errorCode()), errorText);
    return rows;
}

Rows VantorServerRequests::queryDatasFromServerByPage(LmPresenterClass* presenter, const QString& functionId,
                                                      const Row& condition, QString& errorText, int pageSize,
                                                      int startPageNo, int singleQueryMinInterval, int totalTimeOut,
                                                      const ExecutorObserver& started)
{
    presenter = presenterOrDefault(presenter);
    qCInfo(lcQuery).noquote() << "VantorUtils::QueryDatasFromServerByPage"
                              << QStringLiteral("按页码查询%1功能号，查询条件：").arg(functionId) << condition;

    const int effectiveTotalTimeOut = totalTimeOut > 0 ? totalTimeOut : DefaultTotalTimeOut;
    auto executor = std::make_unique<PageQueryExecuteItem>(nullptr);
    executor->setPrensenter(presenter);
    executor->setFunctionId(functionId);
    executor->setPageSize(pageSize);
    executor->setStartPageNo(startPageNo);
    executor->setQueryCondition(condition);
    executor->setSingleQueryMinInterval(singleQueryMinInterval);
    executor->setTotalTimeOut(effectiveTotalTimeOut);
    runExecutor(*executor, started);

    const Rows rows = executor->dataList();
    queryErrorText(*executor, effectiveTotalTimeOut / 1000, errorText);

    qCInfo(lcQuery).noquote() << "VantorUtils::QueryDatasFromServerByPage"
                              << QStringLiteral("按页码查询%1功能号，查询结束，结果：%2，原因：%3，结果集长度：%4")
                                     .arg(functionId, QString::number(executor->errorCode()), errorText,
                                          QString::number(rows.size()));
    return rows;
}

Rows VantorServerRequests::queryDatasFromServerByPos(LmPresenterClass* presenter, const QString& functionId,
                                                     const Row& condition, QString& errorText, int pageSize,
                                                     const QString& startPosStr, int singleQueryMinInterval,
                                                     const ExecutorObserver& started)
{
    presenter = presenterOrDefault(presenter);
    qCInfo(lcQuery).noquote() << "VantorUtils::QueryDatasFromServerByPos"
                              << QStringLiteral("按定位串查询%1功能号，查询条件：").arg(functionId) << condition;

    auto executor = std::make_unique<PosQueryExecuteItem>(nullptr);
    executor->setPrensenter(presenter);
    executor->setFunctionId(functionId);
    executor->setPageSize(pageSize);
    executor->setStartPosStr(startPosStr);
    executor->setQueryCondition(condition);
    executor->setSingleQueryMinInterval(singleQueryMinInterval);
    runExecutor(*executor, started);

    const Rows rows = executor->dataList();
    // This query sets no total limit, yet a stop is still reported with the 60 s text.
    queryErrorText(*executor, DefaultTotalTimeOut / 1000, errorText);

    qCInfo(lcQuery).noquote() << "VantorUtils::QueryDatasFromServerByPos"
                              << QStringLiteral("按定位串查询%1功能号，查询结束，结果：%2，原因：%3，结果集长度：%4")
                                     .arg(functionId, QString::number(executor->errorCode()), errorText,
                                          QString::number(rows.size()));
    return rows;
}

QString VantorServerRequests::sendRequestToServer(LmPresenterClass* presenter, const QString& functionId,
                                                  const Row& condition, QueryDataMode mode, QString& errorText,
                                                  Rows& rows, bool msgPackGroup, bool msgUnpackGroup,
                                                  const ExecutorObserver& started)
{
    presenter = presenterOrDefault(presenter);
    qCInfo(lcQuery).noquote() << "VantorUtils::SendRequestToServer"
                              << QStringLiteral("单次发送%1功能号，请求内容：").arg(functionId) << condition;

    auto executor = std::make_unique<RequestSendExecuteItem>(nullptr);
    executor->setPrensenter(presenter);
    executor->setFunctionId(functionId);
    executor->setQueryCondition(condition);
    executor->setMsgPackGroup(msgPackGroup);
    executor->setMsgUnpackGroup(msgUnpackGroup);
    runExecutor(*executor, started);

    const QString status = sendStatus(*executor, mode, errorText, rows);
    qCInfo(lcQuery).noquote() << "VantorUtils::SendRequestToServer"
                              << QStringLiteral("单次发送%1功能号，请求结果：%2").arg(functionId, sendResultText(errorText));
    return status;
}

QString VantorServerRequests::sendRequestListToServer(LmPresenterClass* presenter, const QString& functionId,
                                                      const Rows& conditions, QueryDataMode mode, QString& errorText,
                                                      Rows& rows, bool msgPackGroup, bool msgUnpackGroup,
                                                      const ExecutorObserver& started)
{
    presenter = presenterOrDefault(presenter);
    qCInfo(lcQuery).noquote() << "VantorUtils::SendRequestListToServer"
                              << QStringLiteral("单次发送%1功能号，请求内容列表长度：").arg(functionId) << conditions.size();

    auto executor = std::make_unique<RequestListSendExecuteItem>(nullptr);
    executor->setPrensenter(presenter);
    executor->setFunctionId(functionId);
    executor->setQueryListCondition(conditions);
    executor->setMsgPackGroup(msgPackGroup);
    executor->setMsgUnpackGroup(msgUnpackGroup);
    runExecutor(*executor, started);

    const QString status = sendStatus(*executor, mode, errorText, rows);
    qCInfo(lcQuery).noquote() << "VantorUtils::SendRequestListToServer"
                              << QStringLiteral("单次发送%1功能号，请求结果：%2").arg(functionId, sendResultText(errorText));
    return status;
}
