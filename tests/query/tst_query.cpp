#include "VantorUtils.h"
#include "query/PageQueryExecuteItem.h"
#include "query/PosQueryExecuteItem.h"
#include "query/VantorServerRequests.h"

#include <CUnPackMessageCommon.h>
#include <LmPresenterClass.h>
#include <PresenterTransports.h>
#include <ScriptedTransport.h>
#include <VantorFields.h>
#include <ZentraFields.h>

#include <QElapsedTimer>
#include <QThreadPool>
#include <QtTest>

#include <atomic>
#include <climits>
#include <memory>
#include <thread>

namespace {
using Rows = QList<QMap<QString, QVariant>>;

QString key(const char* name)
{
    return QString::fromLatin1(name);
}

// Data rows numbered from `first`, each with its own position string.
QList<QVariantMap> numberedRows(int first, int count)
{
    QList<QVariantMap> rows;
    for (int i = first; i < first + count; ++i)
        rows.append(QVariantMap{{"id", i}, {key(Zentra_Fields::System::positionStr), QStringLiteral("p%1").arg(i)}});
    return rows;
}

// Marks each row a call returned: "head" for a head line, otherwise its id.
QStringList shape(const Rows& rows)
{
    QStringList out;
    for (const auto& row : rows)
        out << (row.contains(key(Zentra_Fields::System::requestExeStatus)) ? QStringLiteral("head")
                                                                            : row.value("id").toString());
    return out;
}

// The ids from `first` on, as shape() gives them.
QStringList range(int first, int count)
{
    QStringList out;
    for (int i = first; i < first + count; ++i)
        out << QString::number(i);
    return out;
}

// A successful reply of `count` numbered rows from `first`, announcing `total` on the server.
QVariant successReply(int total, int first, int count)
{
    const QVariantMap head{{key(Zentra_Fields::System::requestExeStatus), "success"},
                           {key(Zentra_Fields::System::totalSize), total},
                           {key(Zentra_Fields::System::subGroupNumber), count}};
    return ScriptedTransport::packRows(head, numberedRows(first, count));
}

// Scripts the outcomes given as words, each answered after `delayMs`:
//   "rows:N"   a successful page of the next N numbered rows, announcing `totalSize`
//   "rows:N/M" the same, its head line announcing M rows (the log then warns of those missing)
//   "fail"     a reply whose status is not success, with a text holding a place marker
//   "timeout"  the transport gives up waiting
//   "tfail"    the transport fails ("连接已断开")
//   "raw:N"    a send result N that no real transport gives
void script(ScriptedTransport& transport, const QString& outcomes, int totalSize, unsigned long delayMs = 0)
{
    int nextId = 0;
    for (const QString& word : outcomes.split(' ', Qt::SkipEmptyParts)) {
        const QString kind = word.section(':', 0, 0);
        const QString count = word.section(':', 1);
        const int n = count.section('/', 0, 0).toInt();
        if (kind == "rows") {
            const int announced = count.contains('/') ? count.section('/', 1).toInt() : n;
            if (announced > n)
                QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("应答声明%1行数据，实际只有%2行$").arg(announced).arg(n)));
            transport.queueRows(numberedRows(nextId, n), totalSize, {{key(Zentra_Fields::System::subGroupNumber), announced}},
                                delayMs);
            nextId += n;
        } else if (kind == "fail") {
            transport.queueServerFailure(QStringLiteral("服务端拒绝%1"), delayMs);
        } else if (kind == "timeout") {
            transport.queueTimeout(delayMs);
        } else if (kind == "tfail") {
            transport.queueTransportFailure(QStringLiteral("连接已断开"), delayMs);
        } else if (kind == "raw") {
            transport.queueOutcome({n, QVariant(), delayMs});
        }
    }
}

// Runs one of the five entry points by name, with the condition account A1 (twice for the
// list send). A query's rows are appended to `rows` as a send's are; a send's status is
// returned.
QString runEntry(const QString& entry, LmPresenterClass* presenter, QString& errorText, Rows& rows,
                 const QString& id = "10001", int mode = QueryHeadAndData,
                 const VantorServerRequests::ExecutorObserver& started = {}, int totalTimeOut = 0)
{
    const QMap<QString, QVariant> condition{{"account", "A1"}};
    const auto m = static_cast<QueryDataMode>(mode);
    if (entry == "single")
        rows += VantorServerRequests::queryDatasFromServer(presenter, id, condition, m, errorText, started);
    else if (entry == "page")
        rows += VantorServerRequests::queryDatasFromServerByPage(presenter, id, condition, errorText, 10, 0, 0,
                                                                 totalTimeOut, started);
    else if (entry == "pos")
        rows += VantorServerRequests::queryDatasFromServerByPos(presenter, id, condition, errorText, 10, QString(), 0,
                                                                started);
    else if (entry == "send")
        return VantorServerRequests::sendRequestToServer(presenter, id, condition, m, errorText, rows, false, false,
                                                         started);
    else if (entry == "list")
        return VantorServerRequests::sendRequestListToServer(presenter, id, {condition, condition}, m, errorText, rows,
                                                             false, false, started);
    return QString();
}

// A page-number executor whose hooks can be steered and watched.
class ProbeItem : public PageQueryExecuteItem
{
public:
    using PageQueryExecuteItem::PageQueryExecuteItem;
    bool memoryReady = true;
    int postProcessCalls = 0;
    Rows failureReplies;
    mutable std::atomic<int> readsAfterEnd{0}; // of the function id, after the run said it was over

    bool prepareMemory() override { return memoryReady; }
    bool processFailure(const QMap<QString, QVariant>& reply) override
    {
        failureReplies.append(reply);
        return PageQueryExecuteItem::processFailure(reply);
    }
    bool postProcessDataList(Rows& rows) override
    {
        ++postProcessCalls;
        return PageQueryExecuteItem::postProcessDataList(rows);
    }
    QString functionId() const override
    {
        if (!isRunning())
            ++readsAfterEnd;
        return PageQueryExecuteItem::functionId();
    }
};
} // namespace

class TestQuery : public QObject
{
    Q_OBJECT

private:
    std::shared_ptr<ScriptedTransport> m_transport;
    std::unique_ptr<LmPresenterClass> m_presenter;

    // Row 0 of each request sent.
    QList<QVariantMap> heads() const
    {
        QList<QVariantMap> out;
        for (const auto& r : m_transport->requests())
            out.append(r.msg.toList().value(0).toMap());
        return out;
    }

    // Points an executor at the scripted presenter, asking for pages of `pageSize` rows.
    template <class Item>
    void aim(Item& item, int pageSize = 10, const QString& functionId = "10003")
    {
        item.setPrensenter(m_presenter.get());
        item.setFunctionId(functionId);
        item.setPageSize(pageSize);
    }

private slots:
    void init()
    {
        m_transport = std::make_shared<ScriptedTransport>();
        m_presenter = std::make_unique<LmPresenterClass>(QStringLiteral("tester"));
        m_presenter->setTransport(m_transport);
    }

    void cleanup() { PresenterTransports::setOverride(nullptr); }

    void paging_data()
    {
        QTest::addColumn<int>("mode"); // 0 page number, 1 position string
        QTest::addColumn<int>("pageSize");
        QTest::addColumn<int>("startPage");
        QTest::addColumn<QString>("pages");
        QTest::addColumn<int>("totalSize");
        QTest::addColumn<QString>("cursors"); // pageNo or positionStr of each request
        QTest::addColumn<int>("expectedRows");

        QTest::newRow("page: server holds nothing") << 0 << 10 << 0 << "rows:0" << 0 << "0" << 0;
        QTest::newRow("page: totalSize 0 ends after the first page") << 0 << 10 << 0 << "rows:10 rows:10" << 0 << "0" << 10;
        QTest::newRow("page: asks until totalSize is reached") << 0 << 10 << 0 << "rows:10 rows:10 rows:5" << 25 << "0,1,2" << 25;
        QTest::newRow("page: exact multiple needs no extra page") << 0 << 10 << 0 << "rows:10 rows:10" << 20 << "0,1" << 20;
        QTest::newRow("page: from a later start page") << 0 << 10 << 7 << "rows:10 rows:2" << 12 << "7,8" << 12;
        QTest::newRow("pos: short page ends") << 1 << 10 << 0 << "rows:10 rows:10 rows:3" << 0 << ",p9,p19" << 23;
        QTest::newRow("pos: full last page costs one more request")
            << 1 << 10 << 0 << "rows:10 rows:10 rows:0" << 0 << ",p9,p19" << 20;
        QTest::newRow("pos: first short page ends at once") << 1 << 10 << 0 << "rows:9" << 0 << "" << 9;
        // Counts do not wrap around: a failed first page is asked again even when a page is as
        // large as an int goes; a server announcing absurd counts ends the query; the page after
        // the last page number an int holds is not a negative one.
        QTest::newRow("page: largest page size, first page refused")
            << 0 << INT_MAX << 0 << "fail rows:10 rows:3" << 13 << "0,0,1" << 13;
        QTest::newRow("page: absurd row count") << 0 << 10 << 0 << "rows:10 rows:3/2147483647" << 100 << "0,1" << 13;
        QTest::newRow("page: largest start page") << 0 << 10 << INT_MAX << "rows:10 rows:3" << 13 << "2147483647,2147483647" << 13;
    }

    void paging()
    {
        QFETCH(int, mode);
        QFETCH(int, pageSize);
        QFETCH(int, startPage);
        QFETCH(QString, pages);
        QFETCH(int, totalSize);
        QFETCH(QString, cursors);
        QFETCH(int, expectedRows);

        script(*m_transport, pages, totalSize);
        PageQueryExecuteItem page;
        PosQueryExecuteItem pos;
        aim(page, pageSize);
        aim(pos, pageSize);
        page.setStartPageNo(startPage);
        IVantorQueryExecuteItem& item = mode == 0 ? static_cast<IVantorQueryExecuteItem&>(page) : pos;
        item.setQueryCondition({{"account", "A1"}});
        item.stop(); // a stop asked before the run is forgotten
        item.run();

        QCOMPARE(item.errorCode(), 0);
        QVERIFY(!item.isRunning());
        QCOMPARE(shape(mode == 0 ? page.dataList() : pos.dataList()), range(0, expectedRows));
        // Each mode sends its own cursor and count, and not the other mode's cursor.
        using namespace Zentra_Fields::System;
        const QString cursorKey = key(mode == 0 ? pageNo : positionStr);
        const QString countKey = key(mode == 0 ? Zentra_Fields::System::pageSize : requestNumber);
        const QString otherKey = key(mode == 0 ? positionStr : pageNo);
        const QList<QVariantMap> sent = heads();
        QCOMPARE(sent.size(), cursors.split(',').size());
        for (int i = 0; i < sent.size(); ++i) {
            const QVariantMap& head = sent.at(i);
            QCOMPARE(head.value(key(msgType)).toString(), QStringLiteral("10003"));
            QCOMPARE(head.value("account").toString(), QStringLiteral("A1"));
            QCOMPARE(head.value(cursorKey).toString(), cursors.split(',').at(i));
            QCOMPARE(head.value(countKey).toInt(), pageSize);
            QVERIFY(!head.contains(otherKey));
        }
    }

    void retryCounter_data()
    {
        QTest::addColumn<bool>("stopAtFail");
        QTest::addColumn<QString>("outcomes");
        QTest::addColumn<int>("errorCode");
        QTest::addColumn<QString>("errorString");
        QTest::addColumn<int>("expectedRows");

        QTest::newRow("four failures of any kind, then success")
            << true << "rows:10 fail timeout tfail raw:7 rows:10" << 0 << "" << 20;
        QTest::newRow("a successful page resets the count")
            << true << "fail timeout fail timeout rows:10 tfail timeout fail fail rows:10" << 0 << "" << 20;
        QTest::newRow("fifth time-out exhausts")
            << true << "rows:10 timeout timeout timeout timeout timeout" << 1 << "查询超时" << 0;
        QTest::newRow("time-outs and failures share one counter")
            << true << "timeout fail timeout timeout fail" << 2 << "服务端拒绝%1" << 0;
        QTest::newRow("transport failure text") << true << "tfail tfail tfail tfail tfail" << 2 << "连接已断开" << 0;
        QTest::newRow("unknown send result") << true << "raw:7 raw:-3 raw:7 raw:7 raw:7" << 2 << "未知错误" << 0;
        QTest::newRow("run goes on: earlier rows kept, code 5")
            << false << "rows:10 fail fail timeout fail fail" << 5 << "存在部分数据查询失败" << 10;
        QTest::newRow("run goes on but recovers: code 0") << false << "rows:10 fail fail fail fail rows:10" << 0 << "" << 20;
    }

    void retryCounter()
    {
        QFETCH(bool, stopAtFail);
        QFETCH(QString, outcomes);
        QFETCH(int, expectedRows);

        script(*m_transport, outcomes, 20);
        PageQueryExecuteItem item;
        aim(item);
        item.setStopAtFailOrTimeout(stopAtFail);
        item.run();

        QTEST(item.errorCode(), "errorCode");
        QTEST(item.errorString(), "errorString");
        QCOMPARE(shape(item.dataList()), range(0, expectedRows));
        QVERIFY(!item.isRunning());
        // Every scripted outcome was asked for, and a failed page is asked for again.
        const QStringList words = outcomes.split(' ');
        const QList<QVariantMap> sent = heads();
        QCOMPARE(sent.size(), words.size());
        int pagesDone = 0;
        for (int i = 0; i < sent.size(); ++i) {
            QCOMPARE(sent.at(i).value(key(Zentra_Fields::System::pageNo)).toInt(), pagesDone);
            pagesDone += words.at(i).startsWith("rows");
        }
    }

    // Runs that end before any request, silently: no error, no rows.
    void earlyEnds_data()
    {
        QTest::addColumn<QString>("presenter"); // "set", "none", or "gone" with the parent the executor was made with
        QTest::addColumn<QString>("functionId");
        QTest::addColumn<bool>("memoryReady");
        QTest::addColumn<int>("postProcessCalls");

        QTest::newRow("no presenter") << "none" << "10003" << true << 0;
        QTest::newRow("presenter holder gone with the parent") << "gone" << "10003" << true << 0;
        QTest::newRow("memory not ready") << "set" << "10003" << false << 0;
        QTest::newRow("empty function id delivers an empty list") << "set" << "" << true << 1;
    }

    void earlyEnds()
    {
        QFETCH(QString, presenter);
        QFETCH(QString, functionId);
        QFETCH(bool, memoryReady);

        // The presenter holder is made with the executor's parent: an executor taken away
        // from that parent survives the parent's deletion, and a later run or delete is safe.
        auto parent = std::make_unique<QObject>();
        ProbeItem item(parent.get());
        item.setParent(nullptr);
        new PageQueryExecuteItem(parent.get()); // the usual way: the parent deletes it and its holder, each once
        if (presenter == "gone")
            parent.reset();
        if (presenter != "none")
            item.setPrensenter(m_presenter.get());
        item.setFunctionId(functionId);
        item.memoryReady = memoryReady;
        item.run();
        QCOMPARE(m_transport->requestCount(), 0);
        QCOMPARE(item.errorCode(), 0);
        QTEST(item.postProcessCalls, "postProcessCalls");
        QVERIFY(item.dataList().isEmpty());
        QVERIFY(!item.isRunning());
    }

    void pooledRunWatchedByItsOwner()
    {
        // Handed to a pool: the owner may set the presenter again while the run begins, and
        // once it sees the run over it reads the outcome without any further wait.
        m_transport->queueRows(numberedRows(0, 10), 12);
        m_transport->queueRows(numberedRows(10, 2), 12);
        ProbeItem item;
        aim(item);
        QThreadPool pool;
        pool.start(&item);
        item.setPrensenter(m_presenter.get());
        QTRY_COMPARE_WITH_TIMEOUT(m_transport->requestCount(), 2, 10000);
        QTRY_VERIFY_WITH_TIMEOUT(!item.isRunning(), 10000);
        QCOMPARE(item.errorCode(), 0);
        QCOMPARE(shape(item.dataList()), range(0, 12));
        pool.waitForDone();
        // The owner may also delete the executor at that moment: the run must not touch it
        // any more once it has said it is over.
        QCOMPARE(item.readsAfterEnd.load(), 0);
    }

    void positionPagingWithoutPageSizeEndsOnlyFromOutside_data()
    {
        QTest::addColumn<int>("pageSize");
        QTest::newRow("page size 0") << 0;
        QTest::newRow("negative page size") << -5;
    }

    void positionPagingWithoutPageSizeEndsOnlyFromOutside()
    {
        // No page is shorter than such a page size: empty pages keep the query asking until
        // it is stopped.
        QFETCH(int, pageSize);
        PosQueryExecuteItem item;
        m_transport->setHandler([&](const ScriptedTransport::Request&) {
            if (m_transport->requestCount() == 20)
                item.stop();
            return ScriptedTransport::Outcome{0, successReply(0, 0, 0), 0};
        });
        aim(item, pageSize, "10002");
        item.run();
        QCOMPARE(m_transport->requestCount(), 20);
        QCOMPARE(item.errorCode(), int(IVantorQueryExecuteItem::StoppedError));
    }

    void attemptLinesKeepTheFunctionId_data()
    {
        QTest::addColumn<QString>("outcome");
        QTest::addColumn<int>("totalTimeOut");
        QTest::addColumn<QString>("expectedLine");

        // A function id that looks like a place marker stays as it is in the line.
        QTest::newRow("time-out") << "timeout" << 0 << "IVantorQueryExecuteItem::processTimeout 功能号7%2查询请求超时1次";
        QTest::newRow("failure") << "fail" << 0
                                 << "IVantorQueryExecuteItem::processFailure 功能号7%2查询请求错误第1次，错误原因：服务端拒绝%1";
        QTest::newRow("total time-out") << "slow" << 5
                                        << "IVantorQueryExecuteItem::run 功能号7%2数据查询数据量大，超过了指定时长5ms";
    }

    void attemptLinesKeepTheFunctionId()
    {
        QFETCH(QString, outcome);
        QFETCH(int, totalTimeOut);
        QFETCH(QString, expectedLine);

        if (outcome == "slow")
            m_transport->queueRows(numberedRows(0, 10), 100, {}, 20);
        else
            script(*m_transport, outcome + " rows:1", 1);
        QTest::ignoreMessage(QtInfoMsg, qPrintable(expectedLine));
        PageQueryExecuteItem item;
        aim(item, 10, "7%2");
        item.setTotalTimeOut(totalTimeOut);
        item.run();
    }

    void failedSendIsReadWithoutGroup_data()
    {
        QTest::addColumn<int>("result");
        QTest::addColumn<bool>("groupRowsSeen"); // whether the failure's head row still nests its rows

        QTest::newRow("refused reply: read with the configured group flag") << 0 << false;
        QTest::newRow("failed send: always read ungrouped") << 2 << true;
    }

    void failedSendIsReadWithoutGroup()
    {
        QFETCH(int, result);
        QFETCH(bool, groupRowsSeen);

        const QString groupRows = key(Zentra_Fields::System::groupRows);
        QVariantMap head = ScriptedTransport::failureReply("拒绝").toList().first().toMap();
        head.insert(groupRows, QVariantList{QVariantMap{{"id", 1}}});
        for (int i = 0; i < 5; ++i)
            m_transport->queueOutcome({result, QVariantList{head}, 0});

        ProbeItem item;
        aim(item);
        item.setMsgUnpackGroup(true);
        item.run();
        QCOMPARE(item.errorCode(), 2);
        QCOMPARE(item.errorString(), QStringLiteral("拒绝"));
        QCOMPARE(item.failureReplies.size(), 5);
        QCOMPARE(item.failureReplies.first().contains(groupRows), groupRowsSeen);
    }

    void minIntervalSpacesAttempts_data()
    {
        QTest::addColumn<QString>("outcomes");
        QTest::addColumn<int>("totalSize");
        QTest::addColumn<unsigned long>("replyDelay");

        QTest::newRow("pages") << "rows:10 rows:10 rows:5" << 25 << 0ul;
        QTest::newRow("retries") << "timeout fail rows:5" << 5 << 0ul;
        QTest::newRow("slow replies") << "rows:10 rows:5" << 15 << 15ul;
    }

    void minIntervalSpacesAttempts()
    {
        QFETCH(QString, outcomes);
        QFETCH(int, totalSize);
        QFETCH(unsigned long, replyDelay);

        const int interval = 40;
        script(*m_transport, outcomes, totalSize, replyDelay);
        PageQueryExecuteItem item;
        aim(item);
        item.setSingleQueryMinInterval(interval);
        QElapsedTimer clock;
        clock.start();
        item.run();
        const qint64 elapsed = clock.elapsed();
        QCOMPARE(item.errorCode(), 0);
        // Every attempt, the last one too, takes the interval at least, its reply included.
        const int attempts = m_transport->requestCount();
        QCOMPARE(attempts, outcomes.split(' ').size());
        QVERIFY2(elapsed >= attempts * (interval - 1), qPrintable(QStringLiteral("%1 ms").arg(elapsed)));
    }

    // Rows by mode, added to what the caller had; the requests made (a single request is
    // never repeated); status, error text, and the end line, which keeps a server text
    // holding %1 as it is.
    void entryOutcomes_data()
    {
        QTest::addColumn<QString>("entry");
        QTest::addColumn<QString>("functionId");
        QTest::addColumn<int>("mode");
        QTest::addColumn<QString>("outcomes");
        QTest::addColumn<QString>("expectedRows"); // after the row the caller already had
        QTest::addColumn<QString>("status");
        QTest::addColumn<QString>("error");

        const QString ok = Zentra_Values::RequestExeStatus::success;
        const QString fail = Zentra_Values::RequestExeStatus::fail;
        const QString timeout = Vantor_Values::RequestExeStatus::timeout;
        const QString refusals = "fail fail fail fail fail";
        QTest::newRow("single, head line") << "single" << "10001" << 0 << "rows:2" << "head" << "" << "";
        QTest::newRow("single, data rows") << "single" << "10001" << 1 << "rows:2" << "0 1" << "" << "";
        QTest::newRow("single, head and data") << "single" << "10001" << 2 << "rows:2" << "head 0 1" << "" << "";
        QTest::newRow("single, other value as head and data") << "single" << "10001" << 9 << "rows:2" << "head 0 1" << "" << "";
        QTest::newRow("single, empty head line gives nothing") << "single" << "" << 0 << "" << "" << "" << "";
        QTest::newRow("single, refusal") << "single" << "10001" << 2 << "fail" << "" << "" << "服务端拒绝%1";
        QTest::newRow("single, time-out") << "single" << "10001" << 2 << "timeout" << "" << "" << "查询超时";
        QTest::newRow("page, refused every time") << "page" << "10003" << 2 << refusals << "" << "" << "服务端拒绝%1";
        QTest::newRow("position, refused every time") << "pos" << "10002" << 2 << refusals << "" << "" << "服务端拒绝%1";
        QTest::newRow("send, data rows") << "send" << "20001" << 1 << "rows:2" << "0 1" << ok << "";
        QTest::newRow("send, head line") << "send" << "20001" << 0 << "rows:2" << "head" << ok << "";
        QTest::newRow("send, time-out") << "send" << "20001" << 2 << "timeout" << "" << timeout << "查询超时";
        QTest::newRow("send, refused") << "send" << "20001" << 2 << "fail" << "" << fail << "服务端拒绝%1";
        QTest::newRow("send, transport failure") << "send" << "20001" << 2 << "tfail" << "" << fail << "连接已断开";
        QTest::newRow("list, data rows") << "list" << "20002" << 1 << "rows:1" << "0" << ok << "";
        QTest::newRow("list, time-out") << "list" << "20002" << 2 << "timeout" << "" << timeout << "查询超时";
    }

    void entryOutcomes()
    {
        QFETCH(QString, entry);
        QFETCH(QString, functionId);
        QFETCH(int, mode);
        QFETCH(QString, outcomes);
        QFETCH(QString, expectedRows);
        QFETCH(QString, error);

        script(*m_transport, outcomes + " rows:1", 2); // the last page would answer a request too many
        const QMap<QString, QString> endLines{
            {"single", "QueryDatasFromServer 单次查询%1功能号，查询结束，结果：\\d，原因：%2"},
            {"page", "QueryDatasFromServerByPage 按页码查询%1功能号，查询结束，结果：\\d，原因：%2，结果集长度：0"},
            {"pos", "QueryDatasFromServerByPos 按定位串查询%1功能号，查询结束，结果：\\d，原因：%2，结果集长度：0"},
            {"send", "SendRequestToServer 单次发送%1功能号，请求结果：%2"},
            {"list", "SendRequestListToServer 单次发送%1功能号，请求结果：%2"}};
        const bool send = entry == "send" || entry == "list";
        const QString result = send && error.isEmpty() ? QStringLiteral("成功") : error;
        QTest::ignoreMessage(QtInfoMsg, QRegularExpression(QStringLiteral("^VantorUtils::%1$").arg(
                                            endLines[entry].arg(functionId, QRegularExpression::escape(result)))));
        Rows rows{{{"id", 99}}};
        QString errorText = "left over";
        QTEST(runEntry(entry, m_presenter.get(), errorText, rows, functionId, mode), "status");
        QCOMPARE(errorText, error);
        QCOMPARE(shape(rows).join(' '), ("99 " + expectedRows).trimmed());
        QCOMPARE(m_transport->requestCount(), outcomes.split(' ', Qt::SkipEmptyParts).size());
    }

    void listSendCountsFollowingRows_data()
    {
        QTest::addColumn<QString>("conditions"); // a symbol per row, "symbol:n" where the caller sets subGroupNumber
        QTest::addColumn<bool>("packGroup");
        QTest::addColumn<QString>("expectedSubGroup"); // subGroupNumber of each request row, "-" where absent

        QTest::newRow("three rows") << "600000 000001 000002" << false << "2 - -";
        QTest::newRow("one row") << "600000" << false << "0";
        QTest::newRow("caller's count kept") << "600000:9 000001" << false << "9 -";
        QTest::newRow("only the first row counts") << "600000 000001:4" << false << "1 4";
        QTest::newRow("grouped request") << "600000 000001 000002" << true << "2 - -";
    }

    void listSendCountsFollowingRows()
    {
        QFETCH(QString, conditions);
        QFETCH(bool, packGroup);
        QFETCH(QString, expectedSubGroup);

        const QString subGroup = key(Zentra_Fields::System::subGroupNumber);
        Rows list;
        for (const QString& c : conditions.split(' ')) {
            list.append({{"symbol", c.section(':', 0, 0)}});
            if (c.contains(':'))
                list.last().insert(subGroup, c.section(':', 1).toInt());
        }
        m_transport->queueRows({});
        Rows rows;
        QString errorText;
        VantorUtils::SendRequestListToServer(m_presenter.get(), "20002", list, QueryDataList, errorText, rows, packGroup,
                                             false);
        QCOMPARE(m_transport->requestCount(), 1);
        const QVariant packed = m_transport->requests().first().msg;
        QCOMPARE(packed.toList().size(), packGroup ? 1 : list.size());

        CUnPackMessageCommon unpacker;
        unpacker.SetUnPackMsg(packed, packGroup);
        QCOMPARE(unpacker.GetRowCount(), list.size());
        for (int i = 0; i < list.size(); ++i) {
            unpacker.SetCurrentRow(i);
            QCOMPARE(unpacker.GetValue("symbol"), list.at(i).value("symbol"));
            const QVariant count = unpacker.GetValue(subGroup);
            QCOMPARE(count.isValid() ? count.toString() : "-", expectedSubGroup.section(' ', i, i));
            QCOMPARE(unpacker.GetValue(key(Zentra_Fields::System::msgType)).toString(),
                     i == 0 ? QStringLiteral("20002") : QString());
        }
    }

    // An external stop is reported with the total-time text, and a real total time-out with
    // the executor's own text. Either way no data rows come back.
    void stopAndTotalTimeOut_data()
    {
        QTest::addColumn<QString>("entry");
        QTest::addColumn<bool>("stop"); // from another thread while the first page is on its way
        QTest::addColumn<int>("totalTimeOut");
        QTest::addColumn<QString>("error");

        QTest::newRow("page stopped, own limit") << "page" << true << 7999 << "总查询时间超过7秒，停止查询！";
        QTest::newRow("page stopped, default limit") << "page" << true << 0 << "总查询时间超过60秒，停止查询！";
        QTest::newRow("position stopped, no limit") << "pos" << true << 0 << "总查询时间超过60秒，停止查询！";
        QTest::newRow("single stopped") << "single" << true << 0 << "总查询时间超过60秒，停止查询！";
        QTest::newRow("page past its own limit") << "page" << false << 90 << "数据量过大，停止查询";
    }

    void stopAndTotalTimeOut()
    {
        QFETCH(QString, entry);
        QFETCH(bool, stop);
        QFETCH(int, totalTimeOut);

        IVantorQueryExecuteItem* running = nullptr;
        bool seenRunning = false;
        int page = 0;
        // Slow full pages of a large result.
        m_transport->setHandler([&](const ScriptedTransport::Request&) {
            if (stop && page == 0) {
                std::thread other([&] {
                    seenRunning = running->isRunning();
                    running->stop();
                });
                other.join();
            }
            return ScriptedTransport::Outcome{0, successReply(1000000, 10 * page++, 10), 20};
        });

        Rows rows;
        QString errorText;
        runEntry(entry, m_presenter.get(), errorText, rows, "10001", QueryHeadAndData,
                 [&](IVantorQueryExecuteItem* e) { running = e; }, totalTimeOut);
        QCOMPARE(seenRunning, stop);
        QTEST(errorText, "error");
        QCOMPARE(m_transport->requestCount() == 1, stop); // a stop ends the run after its attempt
        // A single query may still show its head line.
        QCOMPARE(shape(rows), entry == "single" ? QStringList{"head"} : QStringList{});
    }

    void nullPresenterUsesDefault_data()
    {
        QTest::addColumn<QString>("entry");
        for (const char* entry : {"single", "page", "pos", "send", "list"})
            QTest::newRow(entry) << QString::fromLatin1(entry);
    }

    void nullPresenterUsesDefault()
    {
        QFETCH(QString, entry);
        PresenterTransports::setOverride(m_transport);
        m_transport->queueRows(numberedRows(0, 1), 1);
        Rows rows;
        QString errorText;
        runEntry(entry, nullptr, errorText, rows);
        QCOMPARE(errorText, QString());
        QCOMPARE(m_transport->requestCount(), 1);
        QCOMPARE(m_transport->requests().first().srcId, QStringLiteral("globalQuery"));
        QCOMPARE(shape(rows).last(), QStringLiteral("0"));
    }
};

QTEST_GUILESS_MAIN(TestQuery)
#include "tst_query.moc"
