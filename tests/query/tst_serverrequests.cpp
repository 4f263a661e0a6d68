#include "QueryTestSupport.h"

#include "VantorUtils.h"
#include "query/VantorServerRequests.h"

#include <CUnPackMessageCommon.h>
#include <IVantorQueryExecuteItem.h>
#include <LmPresenterClass.h>
#include <PresenterTransports.h>
#include <ScriptedTransport.h>
#include <VantorFields.h>
#include <ZentraFields.h>

#include <QtTest>

#include <memory>
#include <thread>

using namespace QueryTest;

namespace {
using Rows = QList<QMap<QString, QVariant>>;

// Marks each returned row: "head" for a head line, otherwise its id.
QStringList shape(const Rows& rows)
{
    QStringList out;
    for (const auto& row : rows)
        out << (row.contains(key(Zentra_Fields::System::requestExeStatus)) ? QStringLiteral("head")
                                                                            : row.value("id").toString());
    return out;
}

// Runs one of the five entry points by name with fixed arguments.
QString runEntry(const QString& entry, LmPresenterClass* presenter, QString& errorText, Rows& rows,
                 const VantorServerRequests::ExecutorObserver& started = {}, int totalTimeOut = 0)
{
    const QMap<QString, QVariant> condition{{"account", "A1"}};
    if (entry == "single")
        rows = VantorServerRequests::queryDatasFromServer(presenter, "10001", condition, QueryHeadAndData, errorText,
                                                          started);
    else if (entry == "page")
        rows = VantorServerRequests::queryDatasFromServerByPage(presenter, "10003", condition, errorText, 10, 0, 0,
                                                                totalTimeOut, started);
    else if (entry == "pos")
        rows = VantorServerRequests::queryDatasFromServerByPos(presenter, "10002", condition, errorText, 10, QString(),
                                                               0, started);
    else if (entry == "send")
        return VantorServerRequests::sendRequestToServer(presenter, "20001", condition, QueryDataList, errorText, rows,
                                                         false, false, started);
    else if (entry == "list")
        return VantorServerRequests::sendRequestListToServer(presenter, "20002", {condition, condition}, QueryDataList,
                                                             errorText, rows, false, false, started);
    return QString();
}
} // namespace

class TestServerRequests : public QObject
{
    Q_OBJECT

private:
    std::shared_ptr<ScriptedTransport> m_transport;
    std::unique_ptr<LmPresenterClass> m_presenter;

private slots:
    void init()
    {
        m_transport = std::make_shared<ScriptedTransport>();
        m_presenter = std::make_unique<LmPresenterClass>(QStringLiteral("tester"));
        m_presenter->setTransport(m_transport);
    }

    void cleanup() { PresenterTransports::setOverride(nullptr); }

    void singleQueryModes_data()
    {
        QTest::addColumn<QString>("functionId");
        QTest::addColumn<int>("mode");
        QTest::addColumn<QString>("outcome");
        QTest::addColumn<QStringList>("expected");
        QTest::addColumn<QString>("expectedError");
        QTest::addColumn<int>("expectedRequests");

        const QStringList all{"head", "0", "1"};
        QTest::newRow("head line") << "10001" << 0 << "rows:2" << QStringList{"head"} << "" << 1;
        QTest::newRow("data rows") << "10001" << 1 << "rows:2" << QStringList{"0", "1"} << "" << 1;
        QTest::newRow("head and data") << "10001" << 2 << "rows:2" << all << "" << 1;
        QTest::newRow("other value as head and data") << "10001" << 9 << "rows:2" << all << "" << 1;
        QTest::newRow("empty head line gives nothing") << "" << 0 << "rows:2" << QStringList{} << "" << 0;
        QTest::newRow("refusal is not retried") << "10001" << 2 << "fail" << QStringList{} << "服务端拒绝" << 1;
        QTest::newRow("time-out is not retried") << "10001" << 2 << "timeout" << QStringList{} << "查询超时" << 1;
    }

    void singleQueryModes()
    {
        QFETCH(QString, functionId);
        QFETCH(int, mode);
        QFETCH(QString, outcome);
        QFETCH(QStringList, expected);
        QFETCH(QString, expectedError);
        QFETCH(int, expectedRequests);

        int nextId = 0;
        script(*m_transport, {outcome}, 2, nextId);
        QString errorText = "left over";
        const Rows rows = VantorUtils::QueryDatasFromServer(m_presenter.get(), functionId, {{"account", "A1"}},
                                                            static_cast<QueryDataMode>(mode), errorText);
        QCOMPARE(shape(rows), expected);
        QCOMPARE(errorText, expectedError);
        QCOMPARE(m_transport->requestCount(), expectedRequests);
    }

    void sends_data()
    {
        QTest::addColumn<QString>("entry");
        QTest::addColumn<QString>("outcome");
        QTest::addColumn<int>("mode");
        QTest::addColumn<QString>("expectedStatus");
        QTest::addColumn<QString>("expectedError");
        QTest::addColumn<QStringList>("expectedRows"); // after the row the caller already had
        QTest::addColumn<QString>("endLog");

        const QString ok = Zentra_Values::RequestExeStatus::success;
        const QString fail = Zentra_Values::RequestExeStatus::fail;
        const QString timeout = Vantor_Values::RequestExeStatus::timeout;
        QTest::newRow("send, data rows") << "send" << "rows:2" << 1 << ok << "" << QStringList{"0", "1"} << "成功";
        QTest::newRow("send, head line") << "send" << "rows:2" << 0 << ok << "" << QStringList{"head"} << "成功";
        QTest::newRow("send, time-out") << "send" << "timeout" << 2 << timeout << "查询超时" << QStringList{} << "查询超时";
        QTest::newRow("send, refused") << "send" << "fail" << 2 << fail << "服务端拒绝" << QStringList{} << "服务端拒绝";
        QTest::newRow("send, transport failure") << "send" << "tfail" << 2 << fail << "连接已断开" << QStringList{}
                                                 << "连接已断开";
        QTest::newRow("list, data rows") << "list" << "rows:1" << 1 << ok << "" << QStringList{"0"} << "成功";
        QTest::newRow("list, time-out") << "list" << "timeout" << 2 << timeout << "查询超时" << QStringList{} << "查询超时";
    }

    void sends()
    {
        QFETCH(QString, entry);
        QFETCH(QString, outcome);
        QFETCH(int, mode);
        QFETCH(QString, expectedStatus);
        QFETCH(QString, expectedError);
        QFETCH(QStringList, expectedRows);
        QFETCH(QString, endLog);

        int nextId = 0;
        script(*m_transport, {outcome}, 2, nextId);
        // Anything left in the queue would answer a repeated send.
        m_transport->queueRows(numberedRows(50, 1));

        const QString functionId = entry == "send" ? "20001" : "20002";
        const QString name = entry == "send" ? "SendRequestToServer" : "SendRequestListToServer";
        QTest::ignoreMessage(QtInfoMsg,
                             qPrintable(QStringLiteral("VantorUtils::%1 单次发送%2功能号，请求结果：%3").arg(name, functionId, endLog)));

        Rows rows{{{"id", 99}}};
        QString errorText = "left over";
        const QMap<QString, QVariant> condition{{"account", "A1"}};
        const QString status =
            entry == "send"
                ? VantorUtils::SendRequestToServer(m_presenter.get(), functionId, condition,
                                                   static_cast<QueryDataMode>(mode), errorText, rows)
                : VantorUtils::SendRequestListToServer(m_presenter.get(), functionId, {condition, condition},
                                                       static_cast<QueryDataMode>(mode), errorText, rows);
        QCOMPARE(status, expectedStatus);
        QCOMPARE(errorText, expectedError);
        QCOMPARE(shape(rows), QStringList{"99"} + expectedRows);
        QCOMPARE(m_transport->requestCount(), 1);
    }

    void listSendCountsFollowingRows_data()
    {
        QTest::addColumn<QVariantList>("conditions");
        QTest::addColumn<bool>("packGroup");
        QTest::addColumn<QVariantList>("expectedSubGroup"); // subGroupNumber of each request row (null: absent)

        const QString sgn = key(Zentra_Fields::System::subGroupNumber);
        const QVariantMap a{{"symbol", "600000"}};
        const QVariantMap b{{"symbol", "000001"}};
        const QVariantMap own{{"symbol", "600000"}, {sgn, 9}};
        const QVariantMap second{{"symbol", "000001"}, {sgn, 4}};
        QTest::newRow("three rows") << QVariantList{a, b, b} << false << QVariantList{2, QVariant(), QVariant()};
        QTest::newRow("one row") << QVariantList{a} << false << QVariantList{0};
        QTest::newRow("caller's count kept") << QVariantList{own, b} << false << QVariantList{9, QVariant()};
        QTest::newRow("only the first row counts") << QVariantList{a, second} << false << QVariantList{1, 4};
        QTest::newRow("grouped request") << QVariantList{a, b, b} << true << QVariantList{2, QVariant(), QVariant()};
    }

    void listSendCountsFollowingRows()
    {
        QFETCH(QVariantList, conditions);
        QFETCH(bool, packGroup);
        QFETCH(QVariantList, expectedSubGroup);

        Rows list;
        for (const QVariant& c : conditions)
            list.append(c.toMap());
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
            QCOMPARE(unpacker.GetValue(key(Zentra_Fields::System::subGroupNumber)), expectedSubGroup.at(i));
            QCOMPARE(unpacker.GetValue(key(Zentra_Fields::System::msgType)).toString(),
                     i == 0 ? QStringLiteral("20002") : QString());
        }
    }

    void stopFromAnotherThread_data()
    {
        QTest::addColumn<QString>("entry");
        QTest::addColumn<int>("totalTimeOut");
        QTest::addColumn<QString>("expectedError");

        QTest::newRow("page, own limit") << "page" << 7999 << "总查询时间超过7秒，停止查询！";
        QTest::newRow("page, default limit") << "page" << 0 << "总查询时间超过60秒，停止查询！";
        QTest::newRow("position, no limit") << "pos" << 0 << "总查询时间超过60秒，停止查询！";
        QTest::newRow("single") << "single" << 0 << "总查询时间超过60秒，停止查询！";
    }

    void stopFromAnotherThread()
    {
        QFETCH(QString, entry);
        QFETCH(int, totalTimeOut);
        QFETCH(QString, expectedError);

        IVantorQueryExecuteItem* running = nullptr;
        bool seenRunning = false;
        int page = 0;
        // Full pages of a large result; the first one is answered after a stop from elsewhere.
        m_transport->setHandler([&](const ScriptedTransport::Request&) {
            if (page == 0) {
                std::thread other([&] {
                    seenRunning = running->isRunning();
                    running->stop();
                });
                other.join();
            }
            const QVariantMap head{{key(Zentra_Fields::System::requestExeStatus), "success"},
                                   {key(Zentra_Fields::System::totalSize), 1000},
                                   {key(Zentra_Fields::System::subGroupNumber), 10}};
            return ScriptedTransport::Outcome{0, ScriptedTransport::packRows(head, numberedRows(10 * page++, 10)), 0};
        });

        Rows rows;
        QString errorText;
        runEntry(entry, m_presenter.get(), errorText, rows, [&](IVantorQueryExecuteItem* e) { running = e; }, totalTimeOut);
        QVERIFY(seenRunning);
        QCOMPARE(errorText, expectedError);
        QCOMPARE(m_transport->requestCount(), 1);
        // A stopped query delivers no data rows; a single query may still show its head line.
        QCOMPARE(shape(rows), entry == "single" ? QStringList{"head"} : QStringList{});
    }

    void totalTimeOutKeepsExecutorText()
    {
        m_transport->setHandler([](const ScriptedTransport::Request&) {
            const QVariantMap head{{key(Zentra_Fields::System::requestExeStatus), "success"},
                                   {key(Zentra_Fields::System::totalSize), 1000000},
                                   {key(Zentra_Fields::System::subGroupNumber), 10}};
            return ScriptedTransport::Outcome{0, ScriptedTransport::packRows(head, numberedRows(0, 10)), 20};
        });
        QString errorText;
        const Rows rows = VantorUtils::QueryDatasFromServerByPage(m_presenter.get(), "10003", {}, errorText, 10, 0, 0, 90);
        QCOMPARE(errorText, QStringLiteral("数据量过大，停止查询"));
        QVERIFY(rows.isEmpty());
        QVERIFY(m_transport->requestCount() >= 2);
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

QTEST_GUILESS_MAIN(TestServerRequests)
#include "tst_serverrequests.moc"
