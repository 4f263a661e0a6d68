#include <CPackMessageCommon.h>
#include <GatewayServer.h>
#include <LmPresenterClass.h>
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

#include <algorithm>
#include <atomic>
#include <limits>
#include <mutex>
#include <netinet/in.h>
#include <optional>
#include <poll.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace Sys = Zentra_Fields::System;
namespace S = Zentra_Fields::Security;
namespace Fn = Zentra_Values::FunctionId;
namespace Ctl = Vantor_Fields::GatewayControl;

namespace {
constexpr unsigned long patient = 30000; // generous: the machine is shared
const QVariantMap anOrder{{S::symbol, "600000"}, {S::side, "buy"}, {S::price, 10.5}, {S::orderQty, 100}};

struct Answer {
    int result = -1;
    QVariantMap head;
    QList<QVariantMap> rows;
    QString status() const { return head.value(Sys::requestExeStatus).toString(); }
    QString text() const { return head.value(Sys::textDescription).toString(); }
    bool ok() const { return result == 0 && status() == QLatin1String(Zentra_Values::RequestExeStatus::success); }
};

Answer call(IPresenterTransport& transport, const QString& function, const QVariantList& rows = {QVariantMap()},
            unsigned long timeoutMs = patient, bool grouped = false)
{
    CPackMessageCommon pack;
    for (int i = 0; i < rows.size(); ++i) {
        if (i > 0)
            pack.AddRow();
        pack.AddRowVaule(rows.at(i).toMap());
    }
    QVariant reply;
    Answer a;
    a.result = transport.request(function, QStringLiteral("tst"), pack.GetPackedMsg(grouped), reply, timeoutMs);
    const QVariantList replyRows = reply.toList();
    a.head = replyRows.value(0).toMap();
    for (int i = 1; i < replyRows.size(); ++i)
        a.rows.append(replyRows.at(i).toMap());
    return a;
}

QString key(int n)
{
    return QStringLiteral("%1").arg(n, 10, 10, QLatin1Char('0'));
}

QByteArray fileBytes(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

// Names the gateway presenters find by configuration while it lives.
struct GatewayEnv {
    explicit GatewayEnv(const QString& address) { qputenv("VANTOR_GATEWAY", address.toUtf8()); }
    ~GatewayEnv() { qunsetenv("VANTOR_GATEWAY"); }
};

// A loopback peer that listens but never accepts: a connection it takes is never read, and
// once its queue is full (`fill` connections with a backlog of 0), connections never complete.
struct SilentPeer {
    int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in at = {};
    std::vector<int> fillers;
    explicit SilentPeer(int backlog, int fill = 0)
    {
        at.sin_family = AF_INET;
        at.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t len = sizeof at;
        ::bind(fd, reinterpret_cast<sockaddr*>(&at), len);
        ::listen(fd, backlog);
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&at), &len); // port 0 when any of it failed
        for (int i = 0; i < fill; ++i) {
            fillers.push_back(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
            ::connect(fillers.back(), reinterpret_cast<sockaddr*>(&at), len);
        }
    }
    ~SilentPeer() { close(); }
    void close() // resets the connections it took
    {
        for (int c : fillers)
            ::close(c);
        fillers.clear();
        ::close(std::exchange(fd, -1));
    }
    quint16 port() const { return ntohs(at.sin_port); }
    QString address() const { return QStringLiteral("127.0.0.1:%1").arg(port()); }
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
        QTest::addColumn<bool>("byPosition"); // position strings, else page numbers
        QTest::addColumn<int>("pageSize");
        QTest::addColumn<QString>("keyField");
        QTest::addColumn<int>("expectedRequests");
        QTest::newRow("orders by page") << Fn::orders << false << 7 << S::orderID << 8;
        QTest::newRow("trades by page") << Fn::trades << false << 7 << S::tradeID << 8;
        QTest::newRow("trades, one page holds all") << Fn::trades << false << 1000 << S::tradeID << 1;
        QTest::newRow("positions by position") << Fn::positions << true << 7 << Sys::positionStr << 8;
        // 50 rows in full pages of 10: the empty page after the last full one ends it.
        QTest::newRow("positions, full last page") << Fn::positions << true << 10 << Sys::positionStr << 6;
        QTest::newRow("positions, one row a page") << Fn::positions << true << 1 << Sys::positionStr << 51;
    }

    void pagingGivesEveryRowOnce()
    {
        QFETCH(QString, function);
        QFETCH(bool, byPosition);
        QFETCH(int, pageSize);
        QFETCH(QString, keyField);
        QFETCH(int, expectedRequests);
        // Through the transport a presenter finds by the configured gateway address.
        const GatewayEnv env(m_gateway->address());
        const auto transport = LmPresenterClass(QStringLiteral("pager")).transport();
        QStringList keys;
        QString position;
        int requests = 0;
        for (int pageNo = 0; requests < 100; ++pageNo) {
            const Answer a = call(*transport, function,
                                  {byPosition ? QVariantMap{{Sys::positionStr, position}, {Sys::requestNumber, pageSize}}
                                              : QVariantMap{{Sys::pageNo, pageNo}, {Sys::pageSize, pageSize}}});
            ++requests;
            QVERIFY(a.ok());
            QCOMPARE(a.head.value(Sys::totalSize).toInt(), 50);
            QCOMPARE(a.rows.size(), a.head.value(Sys::subGroupNumber).toInt());
            for (const QVariantMap& row : a.rows) {
                QVERIFY(row.size() >= 10);
                keys << row.value(keyField).toString();
                if (byPosition)
                    QCOMPARE(row.value(Sys::positionStr).toString(), keys.last());
            }
            position = a.head.value(Sys::positionStr, position).toString();
            if (byPosition ? a.rows.size() < pageSize : keys.size() >= 50)
                break;
        }
        QCOMPARE(requests, expectedRequests);
        QStringList expected;
        for (int i = 1; i <= 50; ++i)
            expected << key(i);
        QCOMPARE(keys, expected);
    }

    // Rows and fault draws follow the seed: the same seed gives the same of both, another
    // seed others.
    void dataAndFaultsFollowTheSeed()
    {
        struct Seen {
            QList<QList<QVariantMap>> rows; // funds, positions, orders, trades
            QString draws;
        };
        auto observe = [](quint32 seed) {
            GatewayServer gateway(options(50, seed));
            gateway.start();
            TcpTransport transport(gateway.address());
            Seen seen;
            for (const char* function : {Fn::funds, Fn::positions, Fn::orders, Fn::trades})
                seen.rows << call(transport, function).rows;
            call(transport, Fn::gatewayControl, {QVariantMap{{Ctl::targetFunction, Fn::funds}, {Ctl::failRate, 0.5}}});
            for (int i = 0; i < 40; ++i)
                seen.draws += call(transport, Fn::funds).ok() ? '+' : '-';
            return seen;
        };
        const Seen first = observe(11);
        const Seen again = observe(11);
        const Seen other = observe(12);
        QCOMPARE(first.rows.first().size(), 1); // funds: a single row
        QCOMPARE(again.rows, first.rows);
        QCOMPARE(again.draws, first.draws);
        QVERIFY(first.draws.contains('+') && first.draws.contains('-'));
        for (int f = 0; f < 4; ++f)
            QVERIFY2(other.rows.at(f) != first.rows.at(f), qPrintable(QString::number(f)));
        QVERIFY(other.draws != first.draws);
    }

    void databaseOfSomeoneElseIsLeftAlone()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("mine.sqlite"));
        {
            QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("someone"));
            db.setDatabaseName(path);
            QVERIFY(db.open());
            QVERIFY(QSqlQuery(db).exec(QStringLiteral("CREATE TABLE orders (note TEXT)")));
            QVERIFY(QSqlQuery(db).exec(QStringLiteral("INSERT INTO orders VALUES ('keep me')")));
            db.close();
        }
        QSqlDatabase::removeDatabase(QStringLiteral("someone"));
        const QByteArray before = fileBytes(path);
        QVERIFY(!before.isEmpty());
        GatewayOptions o = options(5);
        o.dbPath = path;
        GatewayServer gateway(o);
        QVERIFY(!gateway.start());
        QVERIFY2(gateway.errorString().contains(QStringLiteral("did not make")), qPrintable(gateway.errorString()));
        QCOMPARE(fileBytes(path), before);
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
            QVERIFY(call(transport, Fn::placeOrder, {anOrder}).ok());
            const auto open = std::find_if(all.rows.cbegin(), all.rows.cend(), [](const QVariantMap& order) {
                const QString status = order.value(S::orderStatus).toString();
                return status == Zentra_Values::OrderStatus::newOrder || status == Zentra_Values::OrderStatus::partiallyFilled;
            });
            if (open != all.rows.cend())
                QVERIFY(call(transport, Fn::cancelOrder, {QVariantMap{{S::orderID, open->value(S::orderID)}}}).ok());
        }
    }

    void catalogueRefusals_data()
    {
        QTest::addColumn<QString>("function");
        QTest::addColumn<QVariantList>("rows");
        QTest::addColumn<int>("result");
        QTest::addColumn<QString>("text");
        QVariantMap noQty = anOrder;
        noQty.insert(S::orderQty, 0);
        QVariantMap nanPrice = anOrder;
        nanPrice.insert(S::price, std::numeric_limits<double>::quiet_NaN());
        auto control = [](const char* key, const QVariant& value) {
            return QVariantList{QVariantMap{{Ctl::targetFunction, "12345"}, {key, value}}};
        };
        auto positions = [](int n) { return QVariantList{QVariantMap{{Sys::requestNumber, n}}}; };
        QTest::newRow("unknown function") << "12345" << QVariantList{QVariantMap()} << 2 << "不支持的功能号";
        QTest::newRow("empty function") << "" << QVariantList{QVariantMap()} << 2 << "不支持的功能号";
        QTest::newRow("zero quantity") << Fn::placeOrder << QVariantList{noQty} << 0 << "委托数量必须大于0";
        QTest::newRow("price not a number") << Fn::placeOrder << QVariantList{nanPrice} << 0 << "委托价格无效";
        QTest::newRow("no symbol") << Fn::placeOrder << QVariantList{QVariantMap{{S::price, 1}, {S::orderQty, 100}}} << 0
                                   << "证券代码不能为空";
        QTest::newRow("positions, none asked") << Fn::positions << positions(0) << 0 << "请求条数0无效，应在1到100000之间";
        QTest::newRow("positions, more than a page holds") << Fn::positions << positions(100001) << 0
                                                           << "请求条数100001无效，应在1到100000之间";
        QTest::newRow("control, rate no number") << Fn::gatewayControl << control(Ctl::failRate, "50%") << 0
                                                 << "failRate无效：50%，应为0到1之间的数";
        QTest::newRow("control, rate above one") << Fn::gatewayControl << control(Ctl::dropRate, 1.5) << 0
                                                 << "dropRate无效：1.5，应为0到1之间的数";
        QTest::newRow("control, negative latency") << Fn::gatewayControl << control(Ctl::latencyMs, -5) << 0
                                                   << "latencyMs无效：-5，应为不小于0的毫秒数";
        QTest::newRow("cancel unknown") << Fn::cancelOrder << QVariantList{QVariantMap{{S::orderID, "nope"}}} << 0 << "委托不存在";
        QTest::newRow("batch count mismatch") << Fn::batchOrder << QVariantList{QVariantMap{{Sys::subGroupNumber, 3}}, anOrder, anOrder}
                                              << 0 << "批量委托笔数不符：声明3笔，收到2笔";
        QTest::newRow("batch with a bad order") << Fn::batchOrder << QVariantList{QVariantMap{{Sys::subGroupNumber, 2}}, anOrder, noQty}
                                                << 0 << "第2笔委托：委托数量必须大于0";
    }

    void catalogueRefusals()
    {
        QFETCH(QString, function);
        QFETCH(QVariantList, rows);
        QFETCH(int, result);
        QFETCH(QString, text);
        const Answer a = call(*m_transport, function, rows);
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

    // The application listens on one presenter; a plug-in places orders through its own,
    // on the connection they share.
    void placedOrdersPushTheirStatesInOrder()
    {
        QFETCH(int, count);
        GatewayServer gateway(options(5));
        QVERIFY(gateway.start());
        const GatewayEnv env(gateway.address());
        LmPresenterClass listener(QStringLiteral("listener"));
        std::mutex mutex; // pushes arrive on the transport's I/O thread
        QHash<QString, QStringList> states;
        QStringList types;
        connect(
            &listener, &LmPresenterClass::pushReceived, this,
            [&](const QString& type, const QVariant& msg) {
                const QVariantMap row = msg.toList().value(0).toMap();
                std::lock_guard<std::mutex> lock(mutex);
                types << type;
                states[row.value(S::orderID).toString()] << row.value(S::orderStatus).toString();
            },
            Qt::DirectConnection);
        auto pushCount = [&] {
            std::lock_guard<std::mutex> lock(mutex);
            return types.size();
        };

        QVariantList orders;
        if (count > 1)
            orders << QVariantMap{{Zentra_Fields::UserAccount::tradingAccount, "880000001"}, {Sys::subGroupNumber, count}};
        for (int i = 0; i < count; ++i)
            orders << QVariantMap{{S::symbol, "60000" + QString::number(i)}, {S::side, "sell"}, {S::price, 9.9}, {S::orderQty, 300}};
        const auto trader = LmPresenterClass(QStringLiteral("trader")).transport();
        // A batch travels grouped.
        const Answer placed = call(*trader, count > 1 ? Fn::batchOrder : Fn::placeOrder, orders, patient, count > 1);
        QVERIFY(placed.ok());
        QCOMPARE(placed.head.value(Sys::subGroupNumber).toInt(), count);
        QStringList ids;
        for (const QVariantMap& row : placed.rows)
            ids << row.value(S::orderID).toString();
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
        QVERIFY(call(*presenter->transport(), Fn::placeOrder, {anOrder}).ok());
        sent = true;
        QTRY_VERIFY_WITH_TIMEOUT(deleted.load(), 30000);
        TcpTransport other(gateway.address());
        QVERIFY(call(other, Fn::funds).ok());
    }

    void faultsGiveTheirOutcome_data()
    {
        QTest::addColumn<bool>("byControl"); // the control function, for orders only; else a gateway option
        QTest::addColumn<QString>("fault");
        QTest::addColumn<int>("timeoutMs");
        QTest::addColumn<int>("result"); // of the orders query
        QTest::addColumn<QString>("text"); // in the failure's reason
        for (bool byControl : {false, true}) {
            const char* how = byControl ? "control" : "flag";
            QTest::addRow("%s fail", how) << byControl << "fail" << int(patient) << 0 << "故障";
            QTest::addRow("%s noreply", how) << byControl << "noreply" << 300 << 1 << "";
            QTest::addRow("%s drop", how) << byControl << "drop" << int(patient) << 2 << "连接";
            QTest::addRow("%s latency", how) << byControl << "latency" << 100 << 1 << ""; // answered only after 3 s
        }
    }

    void faultsGiveTheirOutcome()
    {
        QFETCH(bool, byControl);
        QFETCH(QString, fault);
        QFETCH(int, timeoutMs);
        QFETCH(int, result);
        QFETCH(QString, text);
        GatewayFaultRates rates;
        rates.failRate = fault == "fail" ? 1 : 0;
        rates.noreplyRate = fault == "noreply" ? 1 : 0;
        rates.dropRate = fault == "drop" ? 1 : 0;
        rates.latencyMs = fault == "latency" ? 3000 : 0;
        GatewayServer gateway(options(5, 7, byControl ? GatewayFaultRates() : rates));
        QVERIFY(gateway.start());
        TcpTransport transport(gateway.address());
        const QVariantMap page{{Sys::pageNo, 0}, {Sys::pageSize, 5}};
        if (byControl) {
            const QVariantMap set{{Ctl::targetFunction, Fn::orders}, {Ctl::latencyMs, rates.latencyMs},
                                  {Ctl::failRate, rates.failRate}, {Ctl::noreplyRate, rates.noreplyRate},
                                  {Ctl::dropRate, rates.dropRate}};
            QVERIFY(call(transport, Fn::gatewayControl, {set}).ok());
            QVERIFY(call(transport, Fn::trades, {page}).ok());
        }
        const Answer a = call(transport, Fn::orders, {page}, timeoutMs);
        QCOMPARE(a.result, result);
        if (!text.isEmpty()) {
            QVERIFY(a.status() != QLatin1String(Zentra_Values::RequestExeStatus::success));
            QVERIFY2(a.text().contains(text), qPrintable(a.text()));
        }
        if (fault == "latency")
            QVERIFY(call(transport, Fn::orders, {page}).ok());
        if (byControl) { // lifted again
            QVERIFY(call(transport, Fn::gatewayControl, {QVariantMap{{Ctl::reset, true}}}).ok());
            QVERIFY(call(transport, Fn::orders, {page}).ok());
        }
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
        QTest::addColumn<QString>("address"); // empty: a gateway whose connections never complete
        QTest::addColumn<QString>("text");
        quint16 closedPort = 0;
        {
            QTcpServer probe;
            probe.listen(QHostAddress::LocalHost);
            closedPort = probe.serverPort();
        }
        QTest::newRow("nobody listens") << QStringLiteral("127.0.0.1:%1").arg(closedPort) << "无法连接交易网关";
        QTest::newRow("connection never completes") << QString() << "无法连接交易网关";
        QTest::newRow("no port") << "127.0.0.1" << "交易网关地址无效";
        QTest::newRow("port out of range") << "127.0.0.1:70000" << "交易网关地址无效";
    }

    // Every caller, the one connecting and those waiting behind it, learns that the gateway
    // cannot be reached (none that it timed out), and so does each next attempt.
    void unreachableGatewayFailsInChinese()
    {
        QFETCH(QString, address);
        QFETCH(QString, text);
        std::optional<SilentPeer> hanging;
        if (address.isEmpty()) {
            hanging.emplace(0, 4);
            QVERIFY(hanging->port() != 0);
            address = hanging->address();
        }
        TcpTransport transport(address);
        std::vector<Answer> answers(8);
        std::vector<std::thread> callers;
        for (size_t i = 0; i < answers.size(); i += 2)
            callers.emplace_back([&, i] {
                answers[i] = call(transport, Fn::funds, {QVariantMap()}, 1500);
                answers[i + 1] = call(transport, Fn::funds, {QVariantMap()}, 1500);
            });
        for (std::thread& th : callers)
            th.join();
        hanging.reset();
        for (const Answer& a : answers) {
            QCOMPARE(a.result, 2);
            QVERIFY2(a.text().startsWith(text), qPrintable(a.text()));
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

    void badReplyClosesTheConnection()
    {
        // A peer that answers a request with bytes that are no frame.
        QTcpServer fake;
        QVERIFY(fake.listen(QHostAddress::LocalHost));
        TcpTransport transport(QStringLiteral("127.0.0.1:%1").arg(fake.serverPort()));
        Answer a;
        std::atomic<bool> answered{false};
        std::thread caller([&] {
            a = call(transport, Fn::funds);
            answered = true;
        });
        QTRY_VERIFY_WITH_TIMEOUT(fake.hasPendingConnections(), 20000);
        QTcpSocket* socket = fake.nextPendingConnection();
        QTRY_VERIFY_WITH_TIMEOUT(socket->bytesAvailable() > 0, 20000);
        socket->write(QByteArray::fromHex("00000003ffffff"));
        QTRY_VERIFY_WITH_TIMEOUT(answered.load(), 20000);
        caller.join();
        QCOMPARE(a.result, 2);
        QVERIFY(a.text().contains(QStringLiteral("无法解析")));
        QTRY_COMPARE_WITH_TIMEOUT(socket->state(), QAbstractSocket::UnconnectedState, 20000);
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
        SilentPeer peer(4);
        QVERIFY(peer.port() != 0);
        TcpTransport transport(peer.address());
        const QVariantMap big{{QStringLiteral("blob"), QByteArray(40 * 1024 * 1024, 'x')}};
        std::atomic<int> writer{-1};
        std::thread first([&] { writer = call(transport, Fn::funds, {big}, 15000).result; });
        pollfd p = {peer.fd, POLLIN, 0};
        QCOMPARE(::poll(&p, 1, 20000), 1); // connected: the writer holds the connection

        QElapsedTimer timer;
        timer.start();
        const Answer a = call(transport, Fn::funds, {QVariantMap()}, 300);
        const qint64 waited = timer.elapsed();
        peer.close(); // resets the connection, which ends the writer
        first.join();
        QCOMPARE(a.result, 1);
        QVERIFY2(waited < 10000, qPrintable(QString::number(waited)));
        QVERIFY(writer.load() != 0);
    }

    void executableArguments_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("error"); // empty: it serves until SIGTERM
        QTest::newRow("serves") << QStringList{"--listen", "127.0.0.1:0", "--rows", "20", "--seed", "3", "--fail-rate", "1"} << "";
        QTest::newRow("rate that is no number") << QStringList{"--fail-rate", "nan"} << "rates are numbers between 0 and 1";
        QTest::newRow("rate above one") << QStringList{"--drop-rate", "1.5"} << "rates are numbers between 0 and 1";
        QTest::newRow("negative rows") << QStringList{"--rows", "-1"} << "--rows must be a number of rows";
        QTest::newRow("address without a port") << QStringList{"--listen", "localhost"} << "--listen takes HOST:PORT";
        QTest::newRow("stray argument") << QStringList{"extra"} << "unexpected argument: extra";
    }

    void executableArguments()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QString, error);
        QProcess gateway;
        gateway.start(QStringLiteral(VANTOR_GATEWAY_EXE), arguments);
        if (!error.isEmpty()) {
            QVERIFY(gateway.waitForFinished(30000));
            QCOMPARE(gateway.exitCode(), 2);
            QVERIFY2(gateway.readAllStandardError().contains(error.toUtf8()), qPrintable(error));
            QVERIFY(gateway.readAllStandardOutput().isEmpty()); // never listened
            return;
        }
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
};

QTEST_MAIN(TestGateway)
#include "tst_gateway.moc"
