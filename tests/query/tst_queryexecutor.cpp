#include "QueryTestSupport.h"

#include "query/PageQueryExecuteItem.h"
#include "query/PosQueryExecuteItem.h"

#include <LmPresenterClass.h>
#include <ScriptedTransport.h>
#include <ZentraFields.h>

#include <QElapsedTimer>
#include <QThreadPool>
#include <QtTest>

#include <atomic>
#include <climits>
#include <memory>

using namespace QueryTest;

namespace {
// A page-number executor whose hooks can be steered and watched.
class ProbeItem : public PageQueryExecuteItem
{
public:
    bool memoryReady = true;
    int postProcessCalls = 0;
    QList<QMap<QString, QVariant>> failureReplies;

    bool prepareMemory() override { return memoryReady; }
    bool processFailure(const QMap<QString, QVariant>& reply) override
    {
        failureReplies.append(reply);
        return PageQueryExecuteItem::processFailure(reply);
    }
    bool postProcessDataList(QList<QMap<QString, QVariant>>& rows) override
    {
        ++postProcessCalls;
        return PageQueryExecuteItem::postProcessDataList(rows);
    }
};

// Notes the reads of its function id made after the run has said it is over.
class EndWatchItem : public PageQueryExecuteItem
{
public:
    mutable std::atomic<int> readsAfterEnd{0};

    QString functionId() const override
    {
        if (!isRunning())
            ++readsAfterEnd;
        return PageQueryExecuteItem::functionId();
    }
};
} // namespace

class TestQueryExecutor : public QObject
{
    Q_OBJECT

private:
    std::shared_ptr<ScriptedTransport> m_transport;
    std::unique_ptr<LmPresenterClass> m_presenter;

    QList<QVariantMap> heads() const
    {
        QList<QVariantMap> out;
        const auto requests = m_transport->requests();
        for (const auto& r : requests)
            out.append(requestHead(r));
        return out;
    }

    // Points an executor at the scripted presenter, asking for pages of `pageSize` rows
    // (INT_MIN: the executor's own page size).
    template <class Item>
    void aim(Item& item, const QString& functionId = "10003", int pageSize = INT_MIN)
    {
        item.setPrensenter(m_presenter.get());
        item.setFunctionId(functionId);
        if (pageSize != INT_MIN)
            item.setPageSize(pageSize);
    }

private slots:
    void init()
    {
        m_transport = std::make_shared<ScriptedTransport>();
        m_presenter = std::make_unique<LmPresenterClass>(QStringLiteral("tester"));
        m_presenter->setTransport(m_transport);
    }

    void pagingStopRule_data()
    {
        QTest::addColumn<int>("mode"); // 0 page number, 1 position string
        QTest::addColumn<int>("pageSize");
        QTest::addColumn<int>("startPage");
        QTest::addColumn<QStringList>("pages");
        QTest::addColumn<int>("totalSize");
        QTest::addColumn<QVariantList>("expectedCursor"); // pageNo or positionStr of each request
        QTest::addColumn<int>("expectedRows");

        QTest::newRow("page: server holds nothing") << 0 << 10 << 0 << QStringList{"rows:0"} << 0 << QVariantList{0} << 0;
        QTest::newRow("page: totalSize 0 ends after the first page")
            << 0 << 10 << 0 << QStringList{"rows:10", "rows:10"} << 0 << QVariantList{0} << 10;
        QTest::newRow("page: asks until totalSize is reached")
            << 0 << 10 << 0 << QStringList{"rows:10", "rows:10", "rows:5"} << 25 << QVariantList{0, 1, 2} << 25;
        QTest::newRow("page: exact multiple needs no extra page")
            << 0 << 10 << 0 << QStringList{"rows:10", "rows:10"} << 20 << QVariantList{0, 1} << 20;
        QTest::newRow("page: from a later start page")
            << 0 << 10 << 7 << QStringList{"rows:10", "rows:2"} << 12 << QVariantList{7, 8} << 12;
        QTest::newRow("pos: short page ends")
            << 1 << 10 << 0 << QStringList{"rows:10", "rows:10", "rows:3"} << 0 << QVariantList{"", "p9", "p19"} << 23;
        QTest::newRow("pos: full last page costs one more request")
            << 1 << 10 << 0 << QStringList{"rows:10", "rows:10", "rows:0"} << 0 << QVariantList{"", "p9", "p19"} << 20;
        QTest::newRow("pos: first short page ends at once") << 1 << 10 << 0 << QStringList{"rows:9"} << 0 << QVariantList{""} << 9;
    }

    void pagingStopRule()
    {
        QFETCH(int, mode);
        QFETCH(int, pageSize);
        QFETCH(int, startPage);
        QFETCH(QStringList, pages);
        QFETCH(int, totalSize);
        QFETCH(QVariantList, expectedCursor);
        QFETCH(int, expectedRows);

        int nextId = 0;
        script(*m_transport, pages, totalSize, nextId);

        std::unique_ptr<IVantorQueryExecuteItem> item;
        const QList<QMap<QString, QVariant>>* data = nullptr;
        if (mode == 0) {
            auto page = std::make_unique<PageQueryExecuteItem>();
            page->setPageSize(pageSize);
            page->setStartPageNo(startPage);
            data = &page->dataList();
            item = std::move(page);
        } else {
            auto pos = std::make_unique<PosQueryExecuteItem>();
            pos->setPageSize(pageSize);
            data = &pos->dataList();
            item = std::move(pos);
        }
        item->setPrensenter(m_presenter.get());
        item->setFunctionId("10003");
        item->setQueryCondition({{"account", "A1"}});
        item->run();

        QCOMPARE(item->errorCode(), 0);
        QVERIFY(!item->isRunning());
        QCOMPARE(ids(*data), range(0, expectedRows));

        const QList<QVariantMap> sent = heads();
        QCOMPARE(sent.size(), expectedCursor.size());
        for (int i = 0; i < sent.size(); ++i) {
            const QVariantMap& head = sent.at(i);
            QCOMPARE(head.value(key(Zentra_Fields::System::msgType)).toString(), QStringLiteral("10003"));
            QCOMPARE(head.value("account").toString(), QStringLiteral("A1"));
            if (mode == 0) {
                QCOMPARE(head.value(key(Zentra_Fields::System::pageNo)), expectedCursor.at(i));
                QCOMPARE(head.value(key(Zentra_Fields::System::pageSize)).toInt(), pageSize);
                QVERIFY(!head.contains(key(Zentra_Fields::System::positionStr)));
            } else {
                QCOMPARE(head.value(key(Zentra_Fields::System::positionStr)).toString(), expectedCursor.at(i).toString());
                QCOMPARE(head.value(key(Zentra_Fields::System::requestNumber)).toInt(), pageSize);
                QVERIFY(!head.contains(key(Zentra_Fields::System::pageNo)));
            }
        }
    }

    void retryCounter_data()
    {
        QTest::addColumn<bool>("stopAtFail");
        QTest::addColumn<QStringList>("outcomes");
        QTest::addColumn<int>("expectedCode");
        QTest::addColumn<QString>("expectedError");
        QTest::addColumn<int>("expectedRows");

        const QString none;
        QTest::newRow("four failures of any kind, then success")
            << true << QStringList{"rows:10", "fail", "timeout", "tfail", "raw:7", "rows:10"} << 0 << none << 20;
        QTest::newRow("a successful page resets the count")
            << true << QStringList{"fail", "timeout", "fail", "timeout", "rows:10", "tfail", "timeout", "fail", "fail", "rows:10"}
            << 0 << none << 20;
        QTest::newRow("fifth time-out exhausts")
            << true << QStringList{"rows:10", "timeout", "timeout", "timeout", "timeout", "timeout"} << 1
            << QStringLiteral("查询超时") << 0;
        QTest::newRow("time-outs and failures share one counter")
            << true << QStringList{"timeout", "fail", "timeout", "timeout", "fail"} << 2 << QStringLiteral("服务端拒绝") << 0;
        QTest::newRow("transport failure text")
            << true << QStringList{"tfail", "tfail", "tfail", "tfail", "tfail"} << 2 << QStringLiteral("连接已断开") << 0;
        QTest::newRow("unknown send result")
            << true << QStringList{"raw:7", "raw:-3", "raw:7", "raw:7", "raw:7"} << 2 << QStringLiteral("未知错误") << 0;
        QTest::newRow("run goes on: earlier rows kept, code 5")
            << false << QStringList{"rows:10", "fail", "fail", "timeout", "fail", "fail"} << 5
            << QStringLiteral("存在部分数据查询失败") << 10;
        QTest::newRow("run goes on but recovers: code 0")
            << false << QStringList{"rows:10", "fail", "fail", "fail", "fail", "rows:10"} << 0 << none << 20;
    }

    void retryCounter()
    {
        QFETCH(bool, stopAtFail);
        QFETCH(QStringList, outcomes);
        QFETCH(int, expectedCode);
        QFETCH(QString, expectedError);
        QFETCH(int, expectedRows);

        int nextId = 0;
        script(*m_transport, outcomes, 20, nextId);
        PageQueryExecuteItem item;
        aim(item, "10003", 10);
        item.setStopAtFailOrTimeout(stopAtFail);
        item.run();

        QCOMPARE(item.errorCode(), expectedCode);
        QCOMPARE(item.errorString(), expectedError);
        QCOMPARE(ids(item.dataList()), range(0, expectedRows));
        QVERIFY(!item.isRunning());
        // Every scripted outcome was asked for, and a failed page is asked for again.
        const QList<QVariantMap> sent = heads();
        QCOMPARE(sent.size(), outcomes.size());
        int pagesDone = 0;
        for (int i = 0; i < sent.size(); ++i) {
            QCOMPARE(sent.at(i).value(key(Zentra_Fields::System::pageNo)).toInt(), pagesDone);
            if (outcomes.at(i).startsWith("rows"))
                ++pagesDone;
        }
    }

    void earlyEnds_data()
    {
        QTest::addColumn<bool>("withPresenter");
        QTest::addColumn<QString>("functionId");
        QTest::addColumn<bool>("memoryReady");
        QTest::addColumn<int>("expectedPostProcessCalls");

        QTest::newRow("no presenter ends silently") << false << "10003" << true << 0;
        QTest::newRow("memory not ready ends silently") << true << "10003" << false << 0;
        QTest::newRow("empty function id delivers an empty list") << true << "" << true << 1;
    }

    void earlyEnds()
    {
        QFETCH(bool, withPresenter);
        QFETCH(QString, functionId);
        QFETCH(bool, memoryReady);
        QFETCH(int, expectedPostProcessCalls);

        ProbeItem item;
        if (withPresenter)
            item.setPrensenter(m_presenter.get());
        item.setFunctionId(functionId);
        item.memoryReady = memoryReady;
        item.run();
        QCOMPARE(m_transport->requestCount(), 0);
        QCOMPARE(item.errorCode(), 0);
        QCOMPARE(item.postProcessCalls, expectedPostProcessCalls);
        QVERIFY(item.dataList().isEmpty());
        QVERIFY(!item.isRunning());
    }

    void extremeCountsDoNotOverflow_data()
    {
        QTest::addColumn<int>("pageSize");
        QTest::addColumn<int>("startPage");
        QTest::addColumn<int>("totalSize");
        QTest::addColumn<int>("announced"); // subGroupNumber of the second page
        QTest::addColumn<int>("expectedRequests");

        // A failed first page is asked again even when a page is as large as an int goes.
        QTest::newRow("largest page size, first page refused") << INT_MAX << 0 << 13 << 3 << 3;
        // A server announcing absurd counts ends the query instead of wrapping around.
        QTest::newRow("absurd row count after a page") << 10 << 0 << 100 << INT_MAX << 2;
        // The page after the last page number an int holds is not a negative one.
        QTest::newRow("largest start page") << 10 << INT_MAX << 13 << 3 << 2;
    }

    void extremeCountsDoNotOverflow()
    {
        QFETCH(int, pageSize);
        QFETCH(int, startPage);
        QFETCH(int, totalSize);
        QFETCH(int, announced);
        QFETCH(int, expectedRequests);
        const QString subGroup = key(Zentra_Fields::System::subGroupNumber);
        if (pageSize == INT_MAX)
            m_transport->queueServerFailure(QStringLiteral("忙"));
        if (announced > 3) // rows announced but not sent are not invented, and the log says so
            QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("应答声明%1行数据，实际只有3行").arg(announced)));
        m_transport->queueRows(numberedRows(0, 10), totalSize, {{subGroup, 10}});
        m_transport->queueRows(numberedRows(10, 3), totalSize, {{subGroup, announced}});
        PageQueryExecuteItem item;
        aim(item, "10003", pageSize);
        item.setStartPageNo(startPage);
        item.run();
        QCOMPARE(m_transport->requestCount(), expectedRequests);
        QCOMPARE(ids(item.dataList()), range(0, 13));
        for (const QVariantMap& head : heads())
            QVERIFY(head.value(key(Zentra_Fields::System::pageNo)).toInt() >= startPage);
    }

    void presenterHolderGoesWithTheParent()
    {
        // The presenter holder is made with the executor's parent: an executor taken away
        // from that parent survives its deletion, and a later run or delete stays safe.
        auto* parent = new QObject;
        auto* item = new PageQueryExecuteItem(parent);
        item->setPrensenter(m_presenter.get());
        item->setParent(nullptr);
        delete parent;
        item->setPrensenter(m_presenter.get());
        item->setFunctionId("10003");
        item->run();
        QCOMPARE(m_transport->requestCount(), 0); // no presenter left: ends at once
        delete item;

        // The usual way: the parent takes the executor and the holder, each once.
        auto* owner = new QObject;
        new PageQueryExecuteItem(owner);
        delete owner;
    }

    void pooledRunWatchedByItsOwner()
    {
        // Handed to a pool: the owner may set the presenter again while the run begins, and
        // once it sees the run over it reads the outcome without any further wait.
        m_transport->queueRows(numberedRows(0, 10), 12);
        m_transport->queueRows(numberedRows(10, 2), 12);
        EndWatchItem item;
        aim(item, "10003", 10);
        QThreadPool pool;
        pool.start(&item);
        item.setPrensenter(m_presenter.get());
        QTRY_COMPARE_WITH_TIMEOUT(m_transport->requestCount(), 2, 10000);
        QTRY_VERIFY_WITH_TIMEOUT(!item.isRunning(), 10000);
        QCOMPARE(item.errorCode(), 0);
        QCOMPARE(ids(item.dataList()), range(0, 12));
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
            const QVariantMap head{{key(Zentra_Fields::System::requestExeStatus), "success"},
                                   {key(Zentra_Fields::System::subGroupNumber), 0}};
            return ScriptedTransport::Outcome{0, ScriptedTransport::packRows(head, {}), 0};
        });
        aim(item, "10002", pageSize);
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
                                 << "IVantorQueryExecuteItem::processFailure 功能号7%2查询请求错误第1次，错误原因：服务端拒绝";
        QTest::newRow("total time-out") << "slow" << 5
                                        << "IVantorQueryExecuteItem::run 功能号7%2数据查询数据量大，超过了指定时长5ms";
    }

    void attemptLinesKeepTheFunctionId()
    {
        QFETCH(QString, outcome);
        QFETCH(int, totalTimeOut);
        QFETCH(QString, expectedLine);

        int nextId = 0;
        if (outcome == "slow")
            m_transport->queueRows(numberedRows(0, 10), 100, {}, 20);
        else
            script(*m_transport, {outcome, "rows:1"}, 1, nextId);
        QTest::ignoreMessage(QtInfoMsg, qPrintable(expectedLine));
        PageQueryExecuteItem item;
        aim(item, "7%2", 10);
        item.setTotalTimeOut(totalTimeOut);
        item.run();
    }

    void stopBeforeRunIsForgotten()
    {
        m_transport->queueRows(numberedRows(0, 6), 6);
        PageQueryExecuteItem item;
        aim(item);
        item.stop();
        item.run();
        QCOMPARE(item.errorCode(), 0);
        QCOMPARE(ids(item.dataList()), range(0, 6));
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
        QTest::addColumn<QStringList>("outcomes");
        QTest::addColumn<int>("totalSize");
        QTest::addColumn<unsigned long>("replyDelay");

        QTest::newRow("pages") << QStringList{"rows:10", "rows:10", "rows:5"} << 25 << 0ul;
        QTest::newRow("retries") << QStringList{"timeout", "fail", "rows:5"} << 5 << 0ul;
        QTest::newRow("slow replies") << QStringList{"rows:10", "rows:5"} << 15 << 15ul;
    }

    void minIntervalSpacesAttempts()
    {
        QFETCH(QStringList, outcomes);
        QFETCH(int, totalSize);
        QFETCH(unsigned long, replyDelay);

        const int interval = 40;
        int nextId = 0;
        script(*m_transport, outcomes, totalSize, nextId);
        QElapsedTimer clock;
        QList<qint64> sentAt;
        // Delays each scripted outcome and notes when each request left.
        auto recorder = std::make_shared<ScriptedTransport>();
        recorder->setHandler([&](const ScriptedTransport::Request& r) {
            sentAt.append(clock.elapsed());
            QVariant reply;
            ScriptedTransport::Outcome o;
            o.result = m_transport->request(r.type, r.srcId, r.msg, reply, r.timeoutMs);
            o.reply = reply;
            o.delayMs = replyDelay;
            return o;
        });
        m_presenter->setTransport(recorder);

        PageQueryExecuteItem item;
        aim(item, "10003", 10);
        item.setSingleQueryMinInterval(interval);
        clock.start();
        item.run();
        const qint64 total = clock.elapsed();

        QCOMPARE(item.errorCode(), 0);
        QCOMPARE(sentAt.size(), outcomes.size());
        for (int i = 1; i < sentAt.size(); ++i)
            QVERIFY2(sentAt.at(i) - sentAt.at(i - 1) >= interval - 1,
                     qPrintable(QStringLiteral("gap %1 ms").arg(sentAt.at(i) - sentAt.at(i - 1))));
        // The last attempt is spaced too.
        QVERIFY2(total - sentAt.last() >= interval - 1, qPrintable(QString::number(total - sentAt.last())));
    }
};

QTEST_GUILESS_MAIN(TestQueryExecutor)
#include "tst_queryexecutor.moc"
