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

// The key of each row in the order received.
QStringList keys(const Rows& rows, const QString& keyField)
{
    QStringList out;
    out.reserve(rows.size());
    for (const auto& row : rows)
        out.append(row.value(keyField).toString());
    return out;
}
} // namespace

class TestQueryGateway : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<GatewayServer> m_gateway;
    std::unique_ptr<LmPresenterClass> m_presenter;

    std::unique_ptr<LmPresenterClass> presenterFor(const GatewayServer& gateway)
    {
        auto presenter = std::make_unique<LmPresenterClass>(QStringLiteral("queryIntegration"));
        presenter->setTransport(std::make_shared<TcpTransport>(gateway.address()));
        return presenter;
    }

    // Sets the fault rates of one function through the gateway's control function.
    void setFaults(const QString& functionId, double failRate, double noreplyRate)
    {
        namespace Ctl = Vantor_Fields::GatewayControl;
        const QMap<QString, QVariant> control{{text(Ctl::targetFunction), functionId},
                                              {text(Ctl::failRate), failRate},
                                              {text(Ctl::noreplyRate), noreplyRate}};
        Rows rows;
        QString errorText;
        const QString status = VantorUtils::SendRequestToServer(m_presenter.get(), text(Zentra_Values::FunctionId::gatewayControl),
                                                                control, QueryDataList, errorText, rows);
        QCOMPARE(status, text(Zentra_Values::RequestExeStatus::success));
    }

private slots:
    void initTestCase()
    {
        GatewayOptions options;
        options.rows = RowCount;
        options.seed = 11;
        m_gateway = std::make_unique<GatewayServer>(options);
        QVERIFY2(m_gateway->start(), qPrintable(m_gateway->errorString()));
        m_presenter = presenterFor(*m_gateway);
    }

    void cleanup() { qunsetenv("VANTOR_REQUEST_TIMEOUT_MS"); }

    void cleanupTestCase()
    {
        m_presenter.reset();
        m_gateway.reset();
    }

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

        const QString functionId = text(byPosition ? Zentra_Values::FunctionId::positions : Zentra_Values::FunctionId::orders);
        setFaults(functionId, failRate, noreplyRate);
        // A request the gateway leaves unanswered is given up quickly and asked again.
        qputenv("VANTOR_REQUEST_TIMEOUT_MS", "300");

        QString errorText = QStringLiteral("left over");
        const Rows rows = byPosition
                              ? VantorUtils::QueryDatasFromServerByPos(m_presenter.get(), functionId, {}, errorText, 1000)
                              : VantorUtils::QueryDatasFromServerByPage(m_presenter.get(), functionId, {}, errorText, 1000);
        setFaults(functionId, 0, 0);

        QCOMPARE(errorText, QString());
        QCOMPARE(rows.size(), RowCount);
        const QStringList received =
            keys(rows, text(byPosition ? Zentra_Fields::System::positionStr : Zentra_Fields::Security::orderID));
        // Strictly increasing keys: in the gateway's order, none twice, none empty.
        QVERIFY(!received.first().isEmpty());
        for (int i = 1; i < received.size(); ++i)
            QVERIFY2(received.at(i - 1) < received.at(i),
                     qPrintable(QStringLiteral("row %1: %2 after %3").arg(i).arg(received.at(i), received.at(i - 1))));
    }

    void gatewayDiesMidQuery()
    {
        GatewayOptions options;
        options.rows = RowCount;
        options.seed = 12;
        GatewayServer dying(options);
        QVERIFY2(dying.start(), qPrintable(dying.errorString()));
        const auto presenter = presenterFor(dying);
        qputenv("VANTOR_REQUEST_TIMEOUT_MS", "1000");

        // Small, spaced pages keep the query going for seconds.
        Rows rows{{{"stale", 1}}};
        QString errorText;
        std::thread query([&] {
            rows = VantorUtils::QueryDatasFromServerByPage(presenter.get(), text(Zentra_Values::FunctionId::orders), {},
                                                           errorText, 100, 0, 20);
        });
        QTest::qWait(300);
        dying.stop();
        query.join();

        QVERIFY(rows.isEmpty());
        // The call ends with the transport's own account of the lost gateway.
        QVariant reply;
        QCOMPARE(presenter->transport()->request(text(Zentra_Values::FunctionId::orders), QStringLiteral("probe"),
                                                 QVariantList{QVariantMap()}, reply, 1000),
                 2);
        const QString lost = reply.toList().value(0).toMap().value(text(Zentra_Fields::System::textDescription)).toString();
        QVERIFY(!lost.isEmpty());
        QCOMPARE(errorText, lost);
    }
};

QTEST_GUILESS_MAIN(TestQueryGateway)
#include "tst_query_gateway.moc"
