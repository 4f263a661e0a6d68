#include "VantorUtils.h"

#include <GatewayServer.h>
#include <LmPresenterClass.h>
#include <TcpTransport.h>
#include <VantorFields.h>
#include <ZentraFields.h>

#include <QtTest>

#include <memory>
#include <thread>

namespace {
using Rows = QList<QMap<QString, QVariant>>;

constexpr int RowCount = 25000;

QString text(const char* name)
{
    return QString::fromLatin1(name);
}

// A gateway simulator of RowCount rows on a loopback port, and a presenter talking to it.
struct Gateway {
    explicit Gateway(quint32 seed)
        : server([seed] {
            GatewayOptions options;
            options.rows = RowCount;
            options.seed = seed;
            return options;
        }())
    {
        presenter.setTransport(std::make_shared<TcpTransport>(server.start() ? server.address() : QString()));
    }
    GatewayServer server;
    LmPresenterClass presenter{QStringLiteral("queryIntegration")};
};
} // namespace

class TestQueryGateway : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<Gateway> m_gateway;

    // Sets the fault rates of one function through the gateway's control function.
    void setFaults(const QString& functionId, double failRate, double noreplyRate)
    {
        namespace Ctl = Vantor_Fields::GatewayControl;
        const QMap<QString, QVariant> control{{text(Ctl::targetFunction), functionId},
                                              {text(Ctl::failRate), failRate},
                                              {text(Ctl::noreplyRate), noreplyRate}};
        Rows rows;
        QString errorText;
        QCOMPARE(VantorUtils::SendRequestToServer(&m_gateway->presenter, text(Zentra_Values::FunctionId::gatewayControl),
                                                  control, QueryDataList, errorText, rows),
                 text(Zentra_Values::RequestExeStatus::success));
    }

private slots:
    void initTestCase()
    {
        m_gateway = std::make_unique<Gateway>(11);
        QVERIFY2(m_gateway->server.isRunning(), qPrintable(m_gateway->server.errorString()));
    }

    void cleanup() { qunsetenv("VANTOR_REQUEST_TIMEOUT_MS"); }

    void cleanupTestCase() { m_gateway.reset(); }

    void everyRowOnceInOrder_data()
    {
        QTest::addColumn<bool>("byPosition");
        QTest::addColumn<double>("failRate");
        QTest::addColumn<double>("noreplyRate");

        QTest::newRow("orders by page number") << false << 0.0 << 0.0;
        QTest::newRow("positions by position string") << true << 0.0 << 0.0;
        QTest::newRow("orders by page number, faulty gateway") << false << 0.2 << 0.05;
        QTest::newRow("positions by position string, faulty gateway") << true << 0.2 << 0.05;
    }

    void everyRowOnceInOrder()
    {
        QFETCH(bool, byPosition);
        QFETCH(double, failRate);
        QFETCH(double, noreplyRate);

        using namespace Zentra_Values::FunctionId;
        const QString functionId = text(byPosition ? positions : orders);
        setFaults(functionId, failRate, noreplyRate);
        // A request the gateway leaves unanswered is given up quickly and asked again.
        qputenv("VANTOR_REQUEST_TIMEOUT_MS", "300");
        QString errorText = QStringLiteral("left over");
        LmPresenterClass* presenter = &m_gateway->presenter;
        const Rows rows = byPosition ? VantorUtils::QueryDatasFromServerByPos(presenter, functionId, {}, errorText, 1000)
                                     : VantorUtils::QueryDatasFromServerByPage(presenter, functionId, {}, errorText, 1000);
        setFaults(functionId, 0, 0);

        QCOMPARE(errorText, QString());
        QCOMPARE(rows.size(), RowCount);
        // Strictly increasing keys: in the gateway's order, none twice, none empty.
        const QString keyField = text(byPosition ? Zentra_Fields::System::positionStr : Zentra_Fields::Security::orderID);
        QVERIFY(!rows.first().value(keyField).toString().isEmpty());
        for (int i = 1; i < rows.size(); ++i) {
            const QString previous = rows.at(i - 1).value(keyField).toString();
            const QString current = rows.at(i).value(keyField).toString();
            QVERIFY2(previous < current, qPrintable(QStringLiteral("row %1: %2 after %3").arg(i).arg(current, previous)));
        }
    }

    void gatewayDiesMidQuery()
    {
        Gateway dying(12);
        QVERIFY2(dying.server.isRunning(), qPrintable(dying.server.errorString()));
        qputenv("VANTOR_REQUEST_TIMEOUT_MS", "1000");

        // Small, spaced pages keep the query going for seconds.
        const QString orders = text(Zentra_Values::FunctionId::orders);
        Rows rows{{{"stale", 1}}};
        QString errorText;
        std::thread query([&] {
            rows = VantorUtils::QueryDatasFromServerByPage(&dying.presenter, orders, {}, errorText, 100, 0, 20);
        });
        QTest::qWait(300);
        dying.server.stop();
        query.join();

        QVERIFY(rows.isEmpty());
        // The call ends with the transport's own account of the lost gateway.
        QVariant reply;
        QCOMPARE(dying.presenter.transport()->request(orders, QStringLiteral("probe"), QVariantList{QVariantMap()}, reply, 1000),
                 2);
        const QString lost = reply.toList().value(0).toMap().value(text(Zentra_Fields::System::textDescription)).toString();
        QVERIFY(!lost.isEmpty());
        QCOMPARE(errorText, lost);
    }
};

QTEST_GUILESS_MAIN(TestQueryGateway)
#include "tst_query_gateway.moc"
