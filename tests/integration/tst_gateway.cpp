#include <CMessageCommon.h>
#include <CPackMessageCommon.h>
#include <CUnPackMessageCommon.h>
#include <GatewayServer.h>
#include <LmPresenterClass.h>
#include <PresenterTransports.h>
#include <TcpTransport.h>
#include <VantorFields.h>
#include <WireFrameCodec.h>
#include <ZentraFields.h>

#include <QProcess>
#include <QRegularExpression>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTcpServer>
#include <QTcpSocket>
#include <QtTest>

#include <atomic>
#include <limits>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <mutex>
#include <thread>
#include <vector>

namespace Sys = Zentra_Fields::System;
namespace S = Zentra_Fields::Security;
namespace Fn = Zentra_Values::FunctionId;
namespace Ctl = Vantor_Fields::GatewayControl;

namespace {
constexpr unsigned long patient = 30000; // generous: the machine is shared

struct Answer {
    int result = -1;
    QVariantMap head;
    QList<QVariantMap> rows;
    QString status() const { return head.value(Sys::requestExeStatus).toString(); }
    QString text() const { return head.value(Sys::textDescription).toString(); }
    bool ok() const { return result == 0 && status() == QLatin1String(Zentra_Values::RequestExeStatus::success); }
};

Answer call(IPresenterTransport& transport, const QString& function, const QList<QVariantMap>& rows = {QVariantMap()},
            unsigned long timeoutMs = patient)
{
    CPackMessageCommon pack;
    for (int i = 0; i < rows.size(); ++i) {
        if (i > 0)
            pack.AddRow();
        pack.AddRowVaule(rows.at(i));
    }
    QVariant reply;
    Answer a;
    a.result = transport.request(function, QStringLiteral("tst"), pack.GetPackedMsg(false), reply, timeoutMs);
    CUnPackMessageCommon unpack;
    unpack.SetUnPackMsg(reply, false);
    for (int i = 0; i < unpack.GetRowCount(); ++i) {
        unpack.SetCurrentRow(i);
        if (i == 0)
            a.head = unpack.GetRowValue();
        else
            a.rows.append(unpack.GetRowValue());
    }
    return a;
}

QString key(int n)
{
    return QStringLiteral("%1").arg(n, 10, 10, QLatin1Char('0'));
}

// Sends a packed message through a presenter, as a plug-in does.
int send(LmPresenterClass& presenter, const QString& function, const QVariant& packed, QVariant& reply)
{
    auto* msg = new CMessageCommon;
    msg->SetMsg(packed);
    msg->SetType(function);
    msg->SetSrcid(presenter.pluginPid());
    return presenter.sendRequest_Sync_Block(msg, reply, patient);
}

// Names the gateway presenters find by configuration while it lives.
struct GatewayEnv {
    explicit GatewayEnv(const QString& address) { qputenv("VANTOR_GATEWAY", address.toUtf8()); }
    ~GatewayEnv() { qunsetenv("VANTOR_GATEWAY"); }
};

GatewayOptions options(int rows, quint32 seed = 7, GatewayFaultRates faults = {})
{
    GatewayOptions o;
    o.rows = rows;
    o.seed = seed;
    o.faults = faults;
    o.pushIntervalMs = 5;
    return o;
}
} // namespace

class TestGateway : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<GatewayServer> m_gateway; // 50 rows, no faults
    std::shared_ptr<IPresenterTransport> m_transport;

private slots:
    void initTestCase()
    {
        m_gateway = std::make_unique<GatewayServer>(options(50));
        QVERIFY2(m_gateway->start(), qPrintable(m_gateway->errorString()));
        QVERIFY(m_gateway->port() != 0);
        m_transport = std::make_shared<TcpTransport>(m_gateway->address());
    }

    void cleanupTestCase()
    {
        m_transport.reset();
        m_gateway.reset();
    }

    void pagingGivesEveryRowOnce_data()
    {
        QTest::addColumn<QString>("function");
        QTest::addColumn<int>("mode"); // 0 page numbers, 1 position strings
        QTest::addColumn<int>("pageSize");
        QTest::addColumn<QString>("keyField");
        QTest::addColumn<int>("expectedRequests");
        QTest::newRow("orders by page") << Fn::orders << 0 << 7 << S::orderID << 8;
        QTest::newRow("trades by page") << Fn::trades << 0 << 7 << S::tradeID << 8;
        QTest::newRow("trades, one page holds all") << Fn::trades << 0 << 1000 << S::tradeID << 1;
        QTest::newRow("positions by position") << Fn::positions << 1 << 7 << Sys::positionStr << 8;
        // 50 rows in full pages of 10: the empty page after the last full one ends it.
        QTest::newRow("positions, full last page") << Fn::positions << 1 << 10 << Sys::positionStr << 6;
        QTest::newRow("positions, one row a page") << Fn::positions << 1 << 1 << Sys::positionStr << 51;
    }

    void pagingGivesEveryRowOnce()
    {
        QFETCH(QString, function);
        QFETCH(int, mode);
        QFETCH(int, pageSize);
        QFETCH(QString, keyField);
        QFETCH(int, expectedRequests);

        // Through a presenter that finds its transport by the configured gateway address.
        const GatewayEnv env(m_gateway->address());
        LmPresenterClass presenter(QStringLiteral("pager"));
        QStringList keys;
        int pageNo = 0;
        QString position;
        int requests = 0;
        for (;;) {
            CPackMessageCommon pack;
            pack.AddVaule(Sys::msgType, function);
            if (mode == 0) {
                pack.AddVaule(Sys::pageNo, pageNo);
                pack.AddVaule(Sys::pageSize, pageSize);
            } else {
                pack.AddVaule(Sys::positionStr, position);
                pack.AddVaule(Sys::requestNumber, pageSize);
            }
            QVariant reply;
            QCOMPARE(send(presenter, function, pack.GetPackedMsg(false), reply), 0);
            ++requests;
            QVERIFY(requests < 100);
            CUnPackMessageCommon unpack;
            QVERIFY(unpack.SetUnPackMsg(reply, false));
            QCOMPARE(unpack.GetValue(Sys::requestExeStatus).toString(), QString(Zentra_Values::RequestExeStatus::success));
            QCOMPARE(unpack.GetValue(Sys::totalSize).toInt(), 50);
            const int rows = unpack.GetValue(Sys::subGroupNumber).toInt();
            QCOMPARE(unpack.GetRowCount(), rows + 1);
            if (mode == 1)
                position = unpack.GetValue(Sys::positionStr, position).toString();
            for (int r = 1; r <= rows; ++r) {
                unpack.SetCurrentRow(r);
                QVERIFY(unpack.GetRowValue().size() >= 10);
                keys << unpack.GetValue(keyField).toString();
                if (mode == 1)
                    QCOMPARE(unpack.GetValue(Sys::positionStr).toString(), keys.last());
            }
            if (mode == 0 ? keys.size() >= 50 : rows < pageSize)
                break;
            ++pageNo;
        }
        QCOMPARE(requests, expectedRequests);
        QStringList expected;
        for (int i = 1; i <= 50; ++i)
            expected << key(i);
        QCOMPARE(keys, expected);
    }

    void dataFollowSeedAndRows()
    {
        GatewayServer same(options(50, 7));
        GatewayServer other(options(50, 8));
        QVERIFY(same.start());
        QVERIFY(other.start());
        TcpTransport toSame(same.address());
        TcpTransport toOther(other.address());
        for (const char* function : {Fn::funds, Fn::positions, Fn::orders, Fn::trades}) {
            const Answer mine = call(*m_transport, function);
            QVERIFY(mine.ok());
            QCOMPARE(call(toSame, function).rows, mine.rows);
            QVERIFY2(call(toOther, function).rows != mine.rows, function);
        }
        QCOMPARE(call(*m_transport, Fn::funds).rows.size(), 1);
    }

    void databaseOfSomeoneElseIsLeftAlone()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("mine.sqlite"));
        {
            QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("someone"));
            db.setDatabaseName(path);
            QVERIFY(db.open());
            QSqlQuery q(db);
            QVERIFY(q.exec(QStringLiteral("CREATE TABLE orders (note TEXT)")));
            QVERIFY(q.exec(QStringLiteral("INSERT INTO orders VALUES ('keep me')")));
            db.close();
        }
        QSqlDatabase::removeDatabase(QStringLiteral("someone"));
        auto readAll = [](const QString& file) {
            QFile f(file);
            return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
        };
        const QByteArray before = readAll(path);
        QVERIFY(!before.isEmpty());
        GatewayOptions o = options(5);
        o.dbPath = path;
        GatewayServer gateway(o);
        QVERIFY(!gateway.start());
        QVERIFY2(gateway.errorString().contains(QStringLiteral("did not make")), qPrintable(gateway.errorString()));
        QCOMPARE(readAll(path), before);
    }

    void reusedDatabaseHoldsTheGeneratedDataOnly()
    {
        // Orders placed or cancelled in one run do not stay in the file for the next one.
        QTemporaryDir dir;
        GatewayOptions o = options(5);
        o.dbPath = dir.filePath(QStringLiteral("gateway.sqlite"));
        QList<QVariantMap> generated;
        for (int run = 0; run < 3; ++run) {
            GatewayServer gateway(o);
            QVERIFY2(gateway.start(), qPrintable(QString::number(run) + gateway.errorString()));
            TcpTransport transport(gateway.address());
            const Answer all = call(transport, Fn::orders);
            QVERIFY(all.ok());
            QCOMPARE(all.head.value(Sys::totalSize).toInt(), 5);
            if (run == 0)
                generated = all.rows;
            QCOMPARE(all.rows, generated);
            const QVariantMap order{{S::symbol, "600000"}, {S::side, "buy"}, {S::price, 10.5}, {S::orderQty, 100}};
            QVERIFY(call(transport, Fn::placeOrder, {order}).ok());
            for (const QVariantMap& row : all.rows) {
                const QString status = row.value(S::orderStatus).toString();
                if (status == QLatin1String(Zentra_Values::OrderStatus::newOrder)
                    || status == QLatin1String(Zentra_Values::OrderStatus::partiallyFilled)) {
                    QVERIFY(call(transport, Fn::cancelOrder, {QVariantMap{{S::orderID, row.value(S::orderID)}}}).ok());
                    break;
                }
            }
        }
    }

    void catalogueAnswers_data()
    {
        QTest::addColumn<QString>("function");
        QTest::addColumn<QVariantList>("rows");
        QTest::addColumn<int>("result");
        QTest::addColumn<QString>("text"); // empty: success
        const QVariantMap order{{S::symbol, "600000"}, {S::side, "buy"}, {S::price, 10.5}, {S::orderQty, 200}};
        QVariantMap noQty = order;
        noQty.insert(S::orderQty, 0);
        QTest::newRow("unknown function") << "12345" << QVariantList{QVariantMap()} << 2 << "不支持的功能号";
        QTest::newRow("empty function") << "" << QVariantList{QVariantMap()} << 2 << "不支持的功能号";
        QTest::newRow("zero quantity") << Fn::placeOrder << QVariantList{noQty} << 0 << "委托数量必须大于0";
        QVariantMap nanPrice = order;
        nanPrice.insert(S::price, std::numeric_limits<double>::quiet_NaN());
        QTest::newRow("price not a number") << Fn::placeOrder << QVariantList{nanPrice} << 0 << "委托价格无效";
        QTest::newRow("no symbol") << Fn::placeOrder << QVariantList{QVariantMap{{S::price, 1}, {S::orderQty, 100}}} << 0
                                   << "证券代码不能为空";
        QTest::newRow("positions, none asked") << Fn::positions << QVariantList{QVariantMap{{Sys::requestNumber, 0}}} << 0
                                               << "请求条数0无效，应在1到100000之间";
        QTest::newRow("positions, more than a page holds")
            << Fn::positions << QVariantList{QVariantMap{{Sys::requestNumber, 100001}}} << 0 << "请求条数100001无效，应在1到100000之间";
        auto control = [](const char* key, const QVariant& value) {
            return QVariantList{QVariantMap{{Ctl::targetFunction, "12345"}, {key, value}}};
        };
        QTest::newRow("control, rate no number") << Fn::gatewayControl << control(Ctl::failRate, "50%") << 0
                                                 << "failRate无效：50%，应为0到1之间的数";
        QTest::newRow("control, rate above one") << Fn::gatewayControl << control(Ctl::dropRate, 1.5) << 0
                                                 << "dropRate无效：1.5，应为0到1之间的数";
        QTest::newRow("control, negative latency") << Fn::gatewayControl << control(Ctl::latencyMs, -5) << 0
                                                   << "latencyMs无效：-5，应为不小于0的毫秒数";
        QTest::newRow("cancel unknown") << Fn::cancelOrder << QVariantList{QVariantMap{{S::orderID, "nope"}}} << 0 << "委托不存在";
        QTest::newRow("cancel filled") << Fn::cancelOrder << QVariantList{QVariantMap{{S::orderID, key(50)}}} << -1 << "";
        QTest::newRow("batch count mismatch") << Fn::batchOrder
                                              << QVariantList{QVariantMap{{Sys::subGroupNumber, 3}}, order, order} << 0
                                              << "批量委托笔数不符：声明3笔，收到2笔";
        QTest::newRow("batch with a bad order")
            << Fn::batchOrder << QVariantList{QVariantMap{{Sys::subGroupNumber, 2}}, order, noQty} << 0
            << "第2笔委托：委托数量必须大于0";
    }

    void catalogueAnswers()
    {
        QFETCH(QString, function);
        QFETCH(QVariantList, rows);
        QFETCH(int, result);
        QFETCH(QString, text);
        QList<QVariantMap> maps;
        for (const QVariant& r : rows)
            maps << r.toMap();
        if (result < 0) { // whatever the generated order's state, cancelling must agree with it
            const Answer orders = call(*m_transport, Fn::orders, {QVariantMap{{Sys::pageNo, 49}, {Sys::pageSize, 1}}});
            const QString status = orders.rows.value(0).value(S::orderStatus).toString();
            const Answer a = call(*m_transport, function, maps);
            const bool open = status == QLatin1String(Zentra_Values::OrderStatus::newOrder)
                || status == QLatin1String(Zentra_Values::OrderStatus::partiallyFilled);
            QCOMPARE(a.ok(), open);
            if (!open)
                QCOMPARE(a.text(), QStringLiteral("委托已结束，不能撤单"));
            return;
        }
        const Answer a = call(*m_transport, function, maps);
        QCOMPARE(a.result, result);
        QCOMPARE(a.status(), QString(Zentra_Values::RequestExeStatus::fail));
        QCOMPARE(a.text(), text);
        QVERIFY(a.head.contains(Sys::totalSize) && a.head.contains(Sys::subGroupNumber) && a.head.contains(Sys::positionStr));
        QVERIFY(a.rows.isEmpty());
    }

    void placedOrdersPushTheirStatesInOrder_data()
    {
        QTest::addColumn<int>("count"); // 1: place order, more: batch order
        QTest::newRow("single") << 1;
        QTest::newRow("batch of three") << 3;
    }

    void placedOrdersPushTheirStatesInOrder()
    {
        QFETCH(int, count);
        GatewayServer gateway(options(5));
        QVERIFY(gateway.start());
        LmPresenterClass presenter(QStringLiteral("trader"));
        presenter.setTransport(std::make_shared<TcpTransport>(gateway.address()));
        // Pushes arrive on the transport's I/O thread.
        std::mutex mutex;
        QHash<QString, QStringList> states;
        int pushes = 0;
        QStringList types;
        connect(
            &presenter, &LmPresenterClass::pushReceived, this,
            [&](const QString& type, const QVariant& msg) {
                const QVariantMap row = msg.toList().value(0).toMap();
                std::lock_guard<std::mutex> lock(mutex);
                types << type;
                states[row.value(S::orderID).toString()] << row.value(S::orderStatus).toString();
                ++pushes;
            },
            Qt::DirectConnection);
        auto pushCount = [&] {
            std::lock_guard<std::mutex> lock(mutex);
            return pushes;
        };

        CPackMessageCommon pack;
        if (count > 1)
            pack.AddRowVaule({{Zentra_Fields::UserAccount::tradingAccount, "880000001"}, {Sys::subGroupNumber, count}});
        for (int i = 0; i < count; ++i) {
            if (count > 1)
                pack.AddRow();
            pack.AddRowVaule({{S::symbol, "60000" + QString::number(i)}, {S::side, "sell"}, {S::price, 9.9}, {S::orderQty, 300}});
        }
        const QString function = count > 1 ? Fn::batchOrder : Fn::placeOrder;
        QVariant reply;
        QCOMPARE(send(presenter, function, pack.GetPackedMsg(count > 1), reply), 0); // a batch travels grouped
        CUnPackMessageCommon unpack;
        unpack.SetUnPackMsg(reply, false);
        QCOMPARE(unpack.GetValue(Sys::subGroupNumber).toInt(), count);
        QStringList ids;
        for (int i = 1; i <= count; ++i) {
            unpack.SetCurrentRow(i);
            ids << unpack.GetValue(S::orderID).toString();
        }
        QCOMPARE(QSet<QString>(ids.begin(), ids.end()).size(), count);
        // Read while the states still change, so that later reads must not answer these.
        TcpTransport reader(gateway.address());
        QCOMPARE(call(reader, Fn::orders).rows.size(), 5 + count);

        QTRY_COMPARE_WITH_TIMEOUT(pushCount(), 4 * count, 30000);
        std::lock_guard<std::mutex> lock(mutex);
        QCOMPARE(types, QStringList(QVector<QString>(4 * count, Zentra_Values::PushType::orderState).toList()));
        const QStringList expected{Zentra_Values::OrderStatus::pendingNew, Zentra_Values::OrderStatus::newOrder,
                                   Zentra_Values::OrderStatus::partiallyFilled, Zentra_Values::OrderStatus::filled};
        for (const QString& id : ids)
            QCOMPARE(states.value(id), expected);

        // Stored: the orders read back filled, and a filled order cannot be cancelled.
        const Answer all = call(reader, Fn::orders);
        QCOMPARE(all.head.value(Sys::totalSize).toInt(), 5 + count);
        for (int i = 0; i < count; ++i)
            QCOMPARE(all.rows.at(5 + i).value(S::orderStatus).toString(), QString(Zentra_Values::OrderStatus::filled));
        QCOMPARE(call(reader, Fn::cancelOrder, {QVariantMap{{S::orderID, ids.first()}}}).text(),
                 QStringLiteral("委托已结束，不能撤单"));
    }

    void pushesReachEveryListeningPresenterOfTheAddress()
    {
        // The application listens on one presenter; a plug-in places the order through its own.
        GatewayServer gateway(options(5));
        QVERIFY(gateway.start());
        const GatewayEnv env(gateway.address());
        LmPresenterClass listener(QStringLiteral("listener"));
        std::atomic<int> pushes{0};
        connect(&listener, &LmPresenterClass::pushReceived, this, [&] { ++pushes; }, Qt::DirectConnection);

        LmPresenterClass trader(QStringLiteral("trader"));
        CPackMessageCommon pack;
        pack.AddRowVaule({{S::symbol, "600000"}, {S::side, "buy"}, {S::price, 10.5}, {S::orderQty, 100}});
        QVariant reply;
        QCOMPARE(send(trader, Fn::placeOrder, pack.GetPackedMsg(false), reply), 0);
        QTRY_COMPARE_WITH_TIMEOUT(pushes.load(), 4, 30000);
    }

    // A listener may delete the presenter whose push it is handling, the presenter holding the
    // last hold on its transport: the transport then ends on the thread that delivers the push.
    void listenerMayDeleteThePresenterOfItsOwnTransport()
    {
        GatewayServer gateway(options(5));
        QVERIFY(gateway.start());
        auto* presenter = new LmPresenterClass(QStringLiteral("short-lived"));
        presenter->setTransport(std::make_shared<TcpTransport>(gateway.address()));
        std::atomic<bool> sent{false};
        std::atomic<bool> deleted{false};
        connect(presenter, &LmPresenterClass::pushReceived, presenter, [&] {
            while (!sent) // the sender lets go of the transport first
                QThread::yieldCurrentThread();
            delete presenter;
            deleted = true;
        }, Qt::DirectConnection);
        CPackMessageCommon pack;
        pack.AddRowVaule({{S::symbol, "600000"}, {S::side, "buy"}, {S::price, 10.5}, {S::orderQty, 100}});
        QVariant reply;
        QCOMPARE(send(*presenter, Fn::placeOrder, pack.GetPackedMsg(false), reply), 0);
        sent = true;
        QTRY_VERIFY_WITH_TIMEOUT(deleted.load(), 30000);
        TcpTransport other(gateway.address());
        QVERIFY(call(other, Fn::funds).ok());
    }

    void faultsGiveTheirOutcome_data()
    {
        QTest::addColumn<QString>("how"); // "flag": gateway option; "control": the control function
        QTest::addColumn<QString>("fault");
        for (const char* how : {"flag", "control"}) {
            for (const char* fault : {"fail", "noreply", "drop", "latency"})
                QTest::newRow(qPrintable(QStringLiteral("%1 %2").arg(how, fault))) << QString(how) << QString(fault);
        }
    }

    void faultsGiveTheirOutcome()
    {
        QFETCH(QString, how);
        QFETCH(QString, fault);
        GatewayFaultRates rates;
        if (fault == "fail")
            rates.failRate = 1;
        else if (fault == "noreply")
            rates.noreplyRate = 1;
        else if (fault == "drop")
            rates.dropRate = 1;
        else
            rates.latencyMs = 3000;
        GatewayServer gateway(options(5, 7, how == "flag" ? rates : GatewayFaultRates()));
        QVERIFY(gateway.start());
        TcpTransport transport(gateway.address());
        const QVariantMap page{{Sys::pageNo, 0}, {Sys::pageSize, 5}};
        if (how == "control") {
            // Only the orders function is affected.
            const QVariantMap set{{Ctl::targetFunction, Fn::orders}, {Ctl::latencyMs, rates.latencyMs},
                                  {Ctl::failRate, rates.failRate}, {Ctl::noreplyRate, rates.noreplyRate},
                                  {Ctl::dropRate, rates.dropRate}};
            QVERIFY(call(transport, Fn::gatewayControl, {set}).ok());
            QVERIFY(call(transport, Fn::trades, {page}).ok());
        }
        if (fault == "fail") {
            const Answer a = call(transport, Fn::orders, {page});
            QCOMPARE(a.result, 0);
            QVERIFY(a.status() != QLatin1String(Zentra_Values::RequestExeStatus::success));
            QVERIFY(!a.text().isEmpty());
        } else if (fault == "noreply") {
            QCOMPARE(call(transport, Fn::orders, {page}, 300).result, 1);
        } else if (fault == "drop") {
            const Answer a = call(transport, Fn::orders, {page});
            QCOMPARE(a.result, 2);
            QVERIFY(a.text().contains(QStringLiteral("连接")));
        } else {
            QCOMPARE(call(transport, Fn::orders, {page}, 100).result, 1); // answered only after 3 s
            QVERIFY(call(transport, Fn::orders, {page}).ok());
        }
        if (how == "control") { // lifted again
            QVERIFY(call(transport, Fn::gatewayControl, {QVariantMap{{Ctl::reset, true}}}).ok());
            QVERIFY(call(transport, Fn::orders, {page}).ok());
        }
    }

    void faultDrawsFollowTheSeed()
    {
        GatewayFaultRates half;
        half.failRate = 0.5;
        auto outcomes = [&](quint32 seed) {
            GatewayServer gateway(options(5, seed, half));
            gateway.start();
            TcpTransport transport(gateway.address());
            QString seen;
            for (int i = 0; i < 40; ++i)
                seen += call(transport, Fn::funds).ok() ? '+' : '-';
            return seen;
        };
        const QString first = outcomes(11);
        QCOMPARE(outcomes(11), first);
        QVERIFY(first.contains('+') && first.contains('-'));
        QVERIFY(outcomes(12) != first);
    }

    void concurrentCallersGetTheirOwnReplies()
    {
        TcpTransport transport(m_gateway->address());
        std::atomic<int> wrong{0};
        std::atomic<int> failed{0};
        std::vector<std::thread> threads;
        for (int t = 0; t < 8; ++t) {
            threads.emplace_back([&, t] {
                for (int i = 0; i < 500; ++i) {
                    const int pageNo = (t * 500 + i) % 50;
                    const Answer a = call(transport, Fn::orders, {QVariantMap{{Sys::pageNo, pageNo}, {Sys::pageSize, 1}}});
                    if (!a.ok())
                        ++failed;
                    else if (a.rows.size() != 1 || a.rows.first().value(S::orderID).toString() != key(pageNo + 1))
                        ++wrong;
                }
            });
        }
        for (auto& th : threads)
            th.join();
        QCOMPARE(failed.load(), 0);
        QCOMPARE(wrong.load(), 0);
    }

    void unreachableGatewayFailsInChinese_data()
    {
        QTest::addColumn<QString>("address");
        QTest::addColumn<QString>("text");
        quint16 closedPort = 0;
        {
            QTcpServer probe;
            probe.listen(QHostAddress::LocalHost);
            closedPort = probe.serverPort();
        }
        QTest::newRow("nobody listens") << QStringLiteral("127.0.0.1:%1").arg(closedPort) << "无法连接交易网关";
        QTest::newRow("no port") << "127.0.0.1" << "交易网关地址无效";
        QTest::newRow("port out of range") << "127.0.0.1:70000" << "交易网关地址无效";
    }

    void unreachableGatewayFailsInChinese()
    {
        QFETCH(QString, address);
        QFETCH(QString, text);
        TcpTransport transport(address);
        for (int attempt = 0; attempt < 2; ++attempt) {
            const Answer a = call(transport, Fn::funds, {QVariantMap()}, 10000);
            QCOMPARE(a.result, 2);
            QVERIFY2(a.text().startsWith(text), qPrintable(a.text()));
        }
    }

    // A gateway that never completes the connection: every caller, the one connecting and
    // those waiting behind it, learns that it cannot be reached, none that it timed out.
    void unansweredConnectFailsEveryCaller()
    {
        const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in at = {};
        at.sin_family = AF_INET;
        at.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t len = sizeof at;
        QVERIFY(::bind(listener, reinterpret_cast<sockaddr*>(&at), len) == 0);
        QVERIFY(::listen(listener, 0) == 0); // never accepted: once the queue is full, connects hang
        QVERIFY(::getsockname(listener, reinterpret_cast<sockaddr*>(&at), &len) == 0);
        std::vector<int> fillers;
        for (int i = 0; i < 4; ++i) {
            const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
            ::connect(fd, reinterpret_cast<sockaddr*>(&at), len);
            fillers.push_back(fd);
        }
        TcpTransport transport(QStringLiteral("127.0.0.1:%1").arg(ntohs(at.sin_port)));
        std::vector<Answer> answers(4);
        std::vector<std::thread> callers;
        for (size_t i = 0; i < answers.size(); ++i)
            callers.emplace_back([&, i] { answers[i] = call(transport, Fn::funds, {QVariantMap()}, 1500); });
        for (std::thread& th : callers)
            th.join();
        for (int fd : fillers)
            ::close(fd);
        ::close(listener);
        for (const Answer& a : answers) {
            QCOMPARE(a.result, 2);
            QVERIFY2(a.text().startsWith(QStringLiteral("无法连接交易网关")), qPrintable(a.text()));
        }
    }

    // A connection the gateway dropped comes back on the next send ("control drop" above);
    // so does one whose gateway went away and came back on the same port.
    void droppedConnectionComesBackOnNextSend()
    {
        GatewayServer gateway(options(5));
        QVERIFY(gateway.start());
        const quint16 port = gateway.port();
        TcpTransport again(gateway.address());
        QVERIFY(call(again, Fn::funds).ok());
        gateway.stop();
        QCOMPARE(call(again, Fn::funds).result, 2);
        if (!gateway.start(QStringLiteral("127.0.0.1"), port))
            QSKIP("the port was taken meanwhile");
        QVERIFY(call(again, Fn::funds).ok());
    }

    // Every malformed frame is the decoder's to find; one refused from its length alone and
    // one refused after its body arrived show that the gateway drops only that connection.
    void badFrameClosesOnlyThatConnection_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("over 64 MiB") << QByteArray::fromHex("04000001");
        QTest::newRow("unknown kind") << QByteArray::fromHex("0000000e" "a262696401646b696e6463666f6f");
    }

    void badFrameClosesOnlyThatConnection()
    {
        QFETCH(QByteArray, bytes);
        TcpTransport good(m_gateway->address());
        QVERIFY(call(good, Fn::funds).ok());
        QTcpSocket bad;
        bad.connectToHost(QHostAddress::LocalHost, m_gateway->port());
        QVERIFY(bad.waitForConnected(10000));
        bad.write(bytes);
        QTRY_COMPARE_WITH_TIMEOUT(bad.state(), QAbstractSocket::UnconnectedState, 20000);
        QVERIFY(call(good, Fn::funds).ok());
    }

    void oversizedRequestFailsAloneAndKeepsTheConnection_data()
    {
        QTest::addColumn<QVariant>("blob");
        QTest::newRow("64 MiB of bytes") << QVariant(QByteArray(int(WireFrameCodec::maxFrameSize), 'x'));
        // Little to hold, but more than a byte array takes once encoded.
        const QString text(1 << 20, QLatin1Char('x'));
        QTest::newRow("one text 2100 times") << QVariant(QStringList(QVector<QString>(2100, text).toList()));
    }

    void oversizedRequestFailsAloneAndKeepsTheConnection()
    {
        QFETCH(QVariant, blob);
        GatewayFaultRates slow;
        slow.latencyMs = 1500;
        GatewayServer gateway(options(5, 7, slow));
        QVERIFY(gateway.start());
        TcpTransport transport(gateway.address());
        QVERIFY(call(transport, Fn::funds).ok()); // the connection is open
        std::atomic<int> inFlight{-1};
        std::thread other([&] { inFlight = call(transport, Fn::funds).ok() ? 1 : 0; });
        const Answer a = call(transport, Fn::funds, {QVariantMap{{QStringLiteral("blob"), blob}}});
        other.join();
        QCOMPARE(a.result, 2);
        QVERIFY2(a.text().contains(QStringLiteral("过大")), qPrintable(a.text()));
        QCOMPARE(inFlight.load(), 1);
    }

    void callerBehindABlockedWriteKeepsItsTimeout()
    {
        // A peer that takes the connection but never reads: a large frame fills the socket
        // buffers and its writer waits for its whole time-out.
        const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        QVERIFY(listener >= 0);
        sockaddr_in addr = {};
        addr.sin_family = AF_INET;
        addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t len = sizeof addr;
        QVERIFY(::bind(listener, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0);
        QVERIFY(::listen(listener, 4) == 0);
        QVERIFY(::getsockname(listener, reinterpret_cast<sockaddr*>(&addr), &len) == 0);
        TcpTransport transport(QStringLiteral("127.0.0.1:%1").arg(ntohs(addr.sin_port)));

        const QVariantMap big{{QStringLiteral("blob"), QByteArray(40 * 1024 * 1024, 'x')}};
        std::atomic<int> writer{-1};
        std::thread first([&] { writer = call(transport, Fn::funds, {big}, 15000).result; });
        pollfd p = {listener, POLLIN, 0};
        QCOMPARE(::poll(&p, 1, 20000), 1); // connected: the writer holds the connection

        QElapsedTimer timer;
        timer.start();
        const Answer a = call(transport, Fn::funds, {QVariantMap()}, 300);
        const qint64 waited = timer.elapsed();
        ::close(listener); // resets the connection, which ends the writer
        first.join();
        QCOMPARE(a.result, 1);
        QVERIFY2(waited < 10000, qPrintable(QString::number(waited)));
        QVERIFY(writer.load() != 0);
    }

    void badReplyClosesTheConnection()
    {
        // A peer that answers every request with bytes that are no frame.
        QTcpServer fake;
        QVERIFY(fake.listen(QHostAddress::LocalHost));
        TcpTransport transport(QStringLiteral("127.0.0.1:%1").arg(fake.serverPort()));
        std::atomic<int> result{-1};
        QString text;
        std::thread caller([&] {
            const Answer a = call(transport, Fn::funds, {QVariantMap()}, patient);
            text = a.text();
            result = a.result;
        });
        QTRY_VERIFY_WITH_TIMEOUT(fake.hasPendingConnections(), 20000);
        QTcpSocket* socket = fake.nextPendingConnection();
        QTRY_VERIFY_WITH_TIMEOUT(socket->bytesAvailable() > 0, 20000);
        socket->write(QByteArray::fromHex("00000003ffffff"));
        QTRY_VERIFY_WITH_TIMEOUT(result.load() != -1, 20000);
        caller.join();
        QCOMPARE(result.load(), 2);
        QVERIFY(text.contains(QStringLiteral("无法解析")));
        QTRY_COMPARE_WITH_TIMEOUT(socket->state(), QAbstractSocket::UnconnectedState, 20000);
    }

    void executableServesAndStopsOnSignal()
    {
        QProcess gateway;
        gateway.start(QStringLiteral(VANTOR_GATEWAY_EXE),
                      {"--listen", "127.0.0.1:0", "--rows", "20", "--seed", "3", "--fail-rate", "1"});
        QVERIFY(gateway.waitForStarted(20000));
        QTRY_VERIFY_WITH_TIMEOUT(gateway.canReadLine(), 30000);
        const QString line = QString::fromUtf8(gateway.readLine()).trimmed();
        const auto match = QRegularExpression(QStringLiteral("^listening on 127\\.0\\.0\\.1:(\\d+)$")).match(line);
        QVERIFY2(match.hasMatch(), qPrintable(line));
        TcpTransport transport(QStringLiteral("127.0.0.1:") + match.captured(1));
        const Answer a = call(transport, Fn::orders);
        QCOMPARE(a.result, 0);
        QCOMPARE(a.status(), QString(Zentra_Values::RequestExeStatus::fail));
        gateway.terminate(); // SIGTERM
        QVERIFY(gateway.waitForFinished(30000));
        QCOMPARE(gateway.exitStatus(), QProcess::NormalExit);
        QCOMPARE(gateway.exitCode(), 0);
    }

    void executableRefusesBadArguments_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("error");
        QTest::newRow("rate that is no number") << QStringList{"--fail-rate", "nan"} << "rates are numbers between 0 and 1";
        QTest::newRow("rate above one") << QStringList{"--drop-rate", "1.5"} << "rates are numbers between 0 and 1";
        QTest::newRow("negative rows") << QStringList{"--rows", "-1"} << "--rows must be a number of rows";
        QTest::newRow("address without a port") << QStringList{"--listen", "localhost"} << "--listen takes HOST:PORT";
        QTest::newRow("stray argument") << QStringList{"extra"} << "unexpected argument: extra";
    }

    void executableRefusesBadArguments()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QString, error);
        QProcess gateway;
        gateway.start(QStringLiteral(VANTOR_GATEWAY_EXE), arguments);
        QVERIFY(gateway.waitForFinished(30000));
        QCOMPARE(gateway.exitCode(), 2);
        QVERIFY2(gateway.readAllStandardError().contains(error.toUtf8()), qPrintable(error));
        QVERIFY(gateway.readAllStandardOutput().isEmpty()); // never listened
    }
};

QTEST_MAIN(TestGateway)
#include "tst_gateway.moc"
