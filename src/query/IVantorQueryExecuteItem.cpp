#include "IVantorQueryExecuteItem.h"

#include "LmPresenterClassMgr.h"
#include "VantorLogging.h"

#include <CMessageCommon.h>
#include <CPackMessageCommon.h>
#include <CUnPackMessageCommon.h>
#include <ZentraFields.h>

#include <QThread>

#include <climits>

namespace {
inline QString field(const char* name)
{
    return QString::fromLatin1(name);
}

// Counts from the server are trusted only as far as an int goes.
inline int saturated(qint64 value)
{
    return int(qBound(qint64(INT_MIN), value, qint64(INT_MAX)));
}
} // namespace

IVantorQueryExecuteItem::IVantorQueryExecuteItem(QObject* parent)
    : QObject(parent)
    , m_presenterMgr(new LmPresenterClassMgr(parent))
{
    setAutoDelete(false);
}

IVantorQueryExecuteItem::~IVantorQueryExecuteItem()
{
    delete m_presenterMgr.data();
}

void IVantorQueryExecuteItem::run()
{
    m_running.store(true, std::memory_order_relaxed);
    qCDebug(lcQuery).noquote() << "IVantorQueryExecuteItem::run" << objectName() << " start query";
    // The holder is gone when the parent it was made with was deleted before this executor.
    LmPresenterClassMgr* const presenterMgr = m_presenterMgr.data();
    if (!presenterMgr || !presenterMgr->presenterUnlocked() || !prepareMemory()) {
        m_running.store(false, std::memory_order_release);
        return;
    }

    // A stop asked for before the run began is forgotten.
    m_stopped.store(false, std::memory_order_relaxed);
    m_totalTimer.start();
    QList<QMap<QString, QVariant>> rows;

    const QString msgTypeKey = field(Zentra_Fields::System::msgType);
    const QString pageNoKey = field(Zentra_Fields::System::pageNo);
    const QString pageSizeKey = field(Zentra_Fields::System::pageSize);
    const QString positionKey = field(Zentra_Fields::System::positionStr);
    const QString requestNumberKey = field(Zentra_Fields::System::requestNumber);
    const QString statusKey = field(Zentra_Fields::System::requestExeStatus);
    const QString totalSizeKey = field(Zentra_Fields::System::totalSize);
    const QString subGroupKey = field(Zentra_Fields::System::subGroupNumber);
    const QString textKey = field(Zentra_Fields::System::textDescription);
    const QString success = field(Zentra_Values::RequestExeStatus::success);

    while (!functionId().isEmpty()) {
        const QString id = functionId();
        const int mode = pageMode();
        int pageNo = startPageNo();
        QString position = startPosStr();
        // One more than a page, so that the first check never ends a page-number query.
        int totalSize = saturated(qint64(pageSize()) + 1);
        int rowsSoFar = 0;
        int rowsThisPage = pageSize();
        m_retryCount = 0;
        qCInfo(lcQuery).noquote() << "IVantorQueryExecuteItem::run" << QStringLiteral("开始查询功能号%1数据").arg(id);

        QString exhausted;
        for (;;) {
            QElapsedTimer attempt;
            attempt.start();
            qCDebug(lcQuery).noquote() << "IVantorQueryExecuteItem::run" << QStringLiteral("开始单组查询功能号%1数据").arg(id);

            CPackMessageCommon packer;
            packageSingleQueryRequest(packer);
            packer.SetCurrentRow(0);
            packer.AddVaule(msgTypeKey, id);
            if (isPaged()) {
                if (mode == 1) {
                    packer.AddVaule(positionKey, position);
                    packer.AddVaule(requestNumberKey, pageSize());
                } else if (mode == 0) {
                    packer.AddVaule(pageNoKey, pageNo);
                    packer.AddVaule(pageSizeKey, pageSize());
                }
            }

            // The presenter takes the envelope.
            auto* msg = new CMessageCommon;
            msg->SetMsg(packer.GetPackedMsg(m_msgPackGroup));
            msg->SetType(id);
            msg->SetSrcid(presenterMgr->pluginPid());
            QVariant reply;
            const int result = presenterMgr->sendRequest(msg, reply, 0);

            CUnPackMessageCommon unpacker;
            switch (result) {
            case 0:
                unpacker.SetUnPackMsg(reply, m_msgUnpackGroup);
                unpacker.SetCurrentRow(0);
                if (unpacker.GetValue(statusKey, QString()).toString() != success) {
                    if (processFailure(unpacker.GetRowValue()))
                        exhausted = QStringLiteral("功能号%1数据查询失败次数超过指定次数");
                    break;
                }
                {
                    QMap<QString, QVariant> head = unpacker.GetRowValue();
                    processDataHeadLine(head);
                    totalSize = unpacker.GetValue(totalSizeKey, 0).toInt();
                    rowsThisPage = unpacker.GetValue(subGroupKey, 0).toInt();
                    if (mode == 1 && head.contains(positionKey))
                        position = head.value(positionKey).toString();
                    // Rows the head line announces but the reply lacks are not invented.
                    const int present = qMin(rowsThisPage, unpacker.GetRowCount() - 1);
                    if (present < rowsThisPage) {
                        qCWarning(lcQuery).noquote() << "IVantorQueryExecuteItem::run"
                                                     << QStringLiteral("功能号%1应答声明%2行数据，实际只有%3行")
                                                            .arg(id, QString::number(rowsThisPage),
                                                                 QString::number(qMax(present, 0)));
                    }
                    for (int i = 1; i <= present; ++i) {
                        unpacker.SetCurrentRow(i);
                        QMap<QString, QVariant> row = unpacker.GetRowValue();
                        if (mode == 1) {
                            const auto it = row.constFind(positionKey);
                            if (it != row.constEnd())
                                position = it.value().toString();
                        }
                        if (preProcessData(row))
                            rows.append(row);
                    }
                    rowsSoFar = saturated(qint64(rowsSoFar) + rowsThisPage);
                    if (mode == 0)
                        pageNo = saturated(qint64(pageNo) + 1);
                    resetQueryStatus();
                }
                break;
            case 1:
                if (processTimeout())
                    exhausted = QStringLiteral("功能号%1数据查询超时次数超过指定次数");
                break;
            case 2:
                // A failed send is read without the group flag, whatever the configuration.
                unpacker.SetUnPackMsg(reply, false);
                unpacker.SetCurrentRow(0);
                if (processFailure(unpacker.GetRowValue()))
                    exhausted = QStringLiteral("功能号%1数据查询失败次数超过指定次数");
                break;
            default: {
                QMap<QString, QVariant> unknown;
                unknown.insert(textKey, QStringLiteral("未知错误"));
                if (processFailure(unknown))
                    exhausted = QStringLiteral("功能号%1数据查询失败次数超过指定次数");
                break;
            }
            }
            if (!exhausted.isEmpty())
                break;

            if (m_totalTimeOut > 0 && m_totalTimer.elapsed() > m_totalTimeOut) {
                processTotalTimeOut();
                qCInfo(lcQuery).noquote() << "IVantorQueryExecuteItem::run"
                                          << QStringLiteral("功能号%1数据查询数据量大，超过了指定时长%2ms")
                                                 .arg(id, QString::number(m_totalTimeOut));
                m_running.store(false, std::memory_order_release);
                return;
            }
            if (m_stopped.load(std::memory_order_relaxed)) {
                processStop();
                qCInfo(lcQuery).noquote() << "IVantorQueryExecuteItem::run"
                                          << QStringLiteral("功能号%1数据查询被外部终止").arg(id);
                m_running.store(false, std::memory_order_release);
                return;
            }
            if (m_singleQueryMinInterval > 0) {
                // Spaces the attempts, the last one included.
                const qint64 took = attempt.elapsed();
                qCDebug(lcQuery).noquote() << "IVantorQueryExecuteItem::run" << took << m_singleQueryMinInterval
                                           << m_singleQueryMinInterval - took;
                if (took < m_singleQueryMinInterval)
                    QThread::msleep(static_cast<unsigned long>(m_singleQueryMinInterval - took));
            }
            // A failure that is not yet exhausted leaves the counters alone: a paged query
            // asks for the same page again, a single request is finished.
            if (isSingleQueryFinished(rowsThisPage, rowsSoFar, totalSize))
                break;
        }

        if (!exhausted.isEmpty()) {
            qCWarning(lcQuery).noquote() << "IVantorQueryExecuteItem::run" << exhausted.arg(id);
            if (m_stopAtFailOrTimeout) {
                m_running.store(false, std::memory_order_release);
                return;
            }
            m_partFailure = true;
        }
        if (isFinished())
            break;
    }

    if (postProcessDataList(rows)) {
        if (m_partFailure)
            processPartCondFailure();
        // Read before the run says it is over: the owner may delete the executor then.
        const QString id = functionId();
        m_running.store(false, std::memory_order_release);
        qCInfo(lcQuery).noquote() << "IVantorQueryExecuteItem::run" << QStringLiteral("结束查询功能号%1数据").arg(id);
    } else {
        qCWarning(lcQuery).noquote() << "IVantorQueryExecuteItem::run"
                                     << QStringLiteral("功能号%1数据查询后转换失败").arg(functionId());
        m_running.store(false, std::memory_order_release);
    }
}

void IVantorQueryExecuteItem::setQueryCondition(const QMap<QString, QVariant>& condition)
{
    qCDebug(lcQuery).noquote() << "IVantorQueryExecuteItem::setQueryCondition" << QStringLiteral("通用查询设置查询条件：")
                               << condition;
    m_queryCondition = condition;
}

void IVantorQueryExecuteItem::setQueryListCondition(const QList<QMap<QString, QVariant>>& conditions)
{
    qCDebug(lcQuery).noquote() << "IVantorQueryExecuteItem::setQueryListCondition"
                               << QStringLiteral("设置通用查询条件，列表长度：%1").arg(conditions.size());
    m_queryListCondition = conditions;
}

QString IVantorQueryExecuteItem::functionId() const
{
    return m_functionId;
}

void IVantorQueryExecuteItem::packageSingleQueryRequest(CPackMessageCommon& packer)
{
    if (!IsQueryCondList()) {
        packer.AddRowVaule(singleQueryCondition());
        return;
    }
    const QList<QMap<QString, QVariant>> conditions = singleQueryListCondition();
    const QString subGroupNumber = field(Zentra_Fields::System::subGroupNumber);
    for (int i = 0; i < conditions.size(); ++i) {
        const QMap<QString, QVariant>& row = conditions.at(i);
        packer.AddRowVaule(row);
        // The first row tells the server how many rows follow, unless the caller said so.
        if (i == 0 && !row.contains(subGroupNumber))
            packer.AddVaule(subGroupNumber, conditions.size() - 1);
        if (i < conditions.size() - 1)
            packer.AddRow();
    }
}

QMap<QString, QVariant> IVantorQueryExecuteItem::singleQueryCondition() const
{
    return m_queryCondition;
}

QList<QMap<QString, QVariant>> IVantorQueryExecuteItem::singleQueryListCondition() const
{
    return m_queryListCondition;
}

bool IVantorQueryExecuteItem::IsQueryCondList() const
{
    return false;
}

bool IVantorQueryExecuteItem::isPaged() const
{
    return false;
}

int IVantorQueryExecuteItem::pageMode() const
{
    return -1;
}

int IVantorQueryExecuteItem::pageSize() const
{
    return 1000;
}

int IVantorQueryExecuteItem::startPageNo() const
{
    return 0;
}

QString IVantorQueryExecuteItem::startPosStr() const
{
    return QString();
}

void IVantorQueryExecuteItem::processDataHeadLine(QMap<QString, QVariant>&)
{
}

bool IVantorQueryExecuteItem::preProcessData(QMap<QString, QVariant>&)
{
    return true;
}

int IVantorQueryExecuteItem::retryTimeLimit() const
{
    return 5;
}

void IVantorQueryExecuteItem::resetQueryStatus()
{
    m_errorCode = NoError;
    m_errorString.clear();
    m_retryCount = 0;
}

bool IVantorQueryExecuteItem::processTimeout()
{
    m_errorCode = TimeoutError;
    m_errorString = QStringLiteral("查询超时");
    ++m_retryCount;
    qCInfo(lcQuery).noquote() << "IVantorQueryExecuteItem::processTimeout"
                              << QStringLiteral("功能号%1查询请求超时%2次")
                                     .arg(functionId(), QString::number(m_retryCount));
    return m_retryCount >= retryTimeLimit();
}

bool IVantorQueryExecuteItem::processFailure(const QMap<QString, QVariant>& reply)
{
    m_errorCode = FailureError;
    m_errorString = reply.value(field(Zentra_Fields::System::textDescription)).toString();
    ++m_retryCount;
    qCInfo(lcQuery).noquote() << "IVantorQueryExecuteItem::processFailure"
                              << QStringLiteral("功能号%1查询请求错误第%2次，错误原因：%3")
                                     .arg(functionId(), QString::number(m_retryCount), m_errorString);
    return m_retryCount >= retryTimeLimit();
}

void IVantorQueryExecuteItem::processPartCondFailure()
{
    m_errorCode = PartCondFailureError;
    m_errorString = QStringLiteral("存在部分数据查询失败");
}

void IVantorQueryExecuteItem::processStop()
{
    m_errorCode = StoppedError;
    m_errorString = QStringLiteral("查询被外部终止");
}

void IVantorQueryExecuteItem::processTotalTimeOut()
{
    m_errorCode = TotalTimeoutError;
    m_errorString = QStringLiteral("数据量过大，停止查询");
}

bool IVantorQueryExecuteItem::isFinished()
{
    return true;
}

bool IVantorQueryExecuteItem::isSingleQueryFinished(int rowsThisPage, int rowsSoFar, int totalSize)
{
    switch (pageMode()) {
    case 0:
        qCDebug(lcQuery).noquote() << "IVantorQueryExecuteItem::isSingleQueryFinished"
                                   << QStringLiteral("按页码查询，总长度：%1，已查询总长度：%2").arg(totalSize).arg(rowsSoFar);
        return rowsSoFar >= totalSize;
    case 1:
        qCDebug(lcQuery).noquote() << "IVantorQueryExecuteItem::isSingleQueryFinished"
                                   << QStringLiteral("按定位串查询，页长：%1，当前返回长度：%2").arg(pageSize()).arg(rowsThisPage);
        return rowsThisPage < pageSize();
    default:
        qCDebug(lcQuery).noquote() << "IVantorQueryExecuteItem::isSingleQueryFinished"
                                   << QStringLiteral("单次查询，不查下一页");
        return true;
    }
}

bool IVantorQueryExecuteItem::prepareMemory()
{
    return true;
}

bool IVantorQueryExecuteItem::postProcessDataList(QList<QMap<QString, QVariant>>&)
{
    return true;
}

void IVantorQueryExecuteItem::stop()
{
    qCDebug(lcQuery).noquote() << "IVantorQueryExecuteItem::stop";
    m_stopped.store(true, std::memory_order_relaxed);
}

void IVantorQueryExecuteItem::setFunctionId(const QString& functionId)
{
    m_functionId = functionId;
}

int IVantorQueryExecuteItem::errorCode() const
{
    return m_errorCode;
}

void IVantorQueryExecuteItem::setErrorCode(QueryErrorCode code)
{
    m_errorCode = code;
}

QString IVantorQueryExecuteItem::errorString() const
{
    return m_errorString;
}

void IVantorQueryExecuteItem::setErrorString(const QString& text)
{
    m_errorString = text;
}

bool IVantorQueryExecuteItem::isRunning() const
{
    return m_running.load(std::memory_order_acquire);
}

void IVantorQueryExecuteItem::setPrensenter(LmPresenterClass* presenter)
{
    if (m_presenterMgr)
        m_presenterMgr->setPresenter(presenter);
}

void IVantorQueryExecuteItem::setMsgPackGroup(bool group)
{
    m_msgPackGroup = group;
}

void IVantorQueryExecuteItem::setMsgUnpackGroup(bool group)
{
    m_msgUnpackGroup = group;
}

void IVantorQueryExecuteItem::setSingleQueryMinInterval(int ms)
{
    m_singleQueryMinInterval = ms;
}

int IVantorQueryExecuteItem::singleQueryMinInterval() const
{
    return m_singleQueryMinInterval;
}

void IVantorQueryExecuteItem::setStopAtFailOrTimeout(bool stop)
{
    m_stopAtFailOrTimeout = stop;
}

bool IVantorQueryExecuteItem::stopAtFailOrTimeout() const
{
    return m_stopAtFailOrTimeout;
}

void IVantorQueryExecuteItem::setTotalTimeOut(int ms)
{
    m_totalTimeOut = ms;
}

int IVantorQueryExecuteItem::totalTimeOut() const
{
    return m_totalTimeOut;
}
