// What a plug-in of the client does with the library, against a running gateway
// (VANTOR_GATEWAY=host:port): reads funds, pages through orders and positions, exports
// the orders to CSV and to a workbook and reads them back, then places an order and
// follows its state pushes.
#include <VantorBusiUtils.h>
#include <VantorTypes.h>
#include <VantorUtils.h>

#include <CUnPackMessageCommon.h>
#include <LmPresenterClass.h>
#include <ZentraFields.h>

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QTextStream>
#include <QTimer>

namespace {
QTextStream& out()
{
    static QTextStream stream(stdout);
    return stream;
}

// The orders as a table: a header row, then one row per order.
QList<QStringList> ordersTable(const QList<QMap<QString, QVariant>>& orders, QMap<int, ExportFormat>& formats)
{
    namespace S = Zentra_Fields::Security;
    const QStringList keys{S::orderID, S::symbol, S::side, S::price, S::orderQty, S::cumQty, S::orderStatus};
    const QStringList header{"委托编号", "证券代码", "买卖方向", "委托价格", "委托数量", "成交数量", "委托状态"};
    formats = {{3, ExportFormatNumber}, {4, ExportFormatNumber}, {5, ExportFormatNumber}};
    QList<QStringList> table{header};
    table.reserve(orders.size() + 1);
    for (const auto& order : orders) {
        QStringList row;
        for (const QString& key : keys)
            row << order.value(key).toString();
        table << row;
    }
    return table;
}
} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    const QString outDir = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QString();
    QTemporaryDir scratch;
    const QDir dir(outDir.isEmpty() ? scratch.path() : outDir);
    QDir().mkpath(dir.path());

    LmPresenterClass presenter(QStringLiteral("examplePlugin"));
    out() << "plug-in " << presenter.pluginPid() << ", gateway " << qEnvironmentVariable("VANTOR_GATEWAY") << "\n";

    QString err;
    const auto funds = VantorUtils::QueryDatasFromServer(&presenter, Zentra_Values::FunctionId::funds, {},
                                                         QueryDataList, err);
    if (!err.isEmpty()) {
        out() << "funds: " << err << "\n";
        return 1;
    }
    out() << "funds: " << funds.size() << " row(s)\n";

    QElapsedTimer timer;
    timer.start();
    const auto orders = VantorUtils::QueryDatasFromServerByPage(&presenter, Zentra_Values::FunctionId::orders, {}, err);
    out() << "orders: " << orders.size() << " rows by page number in " << timer.elapsed() << " ms" << (err.isEmpty() ? "" : "，") << err << "\n";
    timer.restart();
    const auto positions = VantorUtils::QueryDatasFromServerByPos(&presenter, Zentra_Values::FunctionId::positions, {}, err);
    out() << "positions: " << positions.size() << " rows by position string in " << timer.elapsed() << " ms" << (err.isEmpty() ? "" : "，") << err << "\n";

    QMap<int, ExportFormat> formats;
    const QList<QStringList> table = ordersTable(orders, formats);
    for (const QString name : {QStringLiteral("orders.csv"), QStringLiteral("orders.xlsx")}) {
        const QString path = dir.filePath(name);
        timer.restart();
        if (!VantorUtils::WriteTableData(table, path, formats, false, ExportFileCodeUtf8, false, err)) {
            out() << "export " << name << ": " << err << "\n";
            return 1;
        }
        const qint64 wrote = timer.restart();
        const auto back = VantorUtils::ReadTableData(path, ReadAllRows, err);
        out() << "export " << path << ": " << table.size() << " rows written in " << wrote << " ms, " << back.size()
              << " read back in " << timer.elapsed() << " ms" << (back == table ? "" : " (differs)") << "\n";
    }

    out() << "symbol of 600000 on sh: " << VantorBusiUtils::AssembleSymbolBySecurityIDAndExchange("600000", "sh")
          << " (" << VantorBusiUtils::GetExchangeName("SH") << ")\n";
    out().flush();

    // Order pushes reach the library's push entry point; the plug-in's callback follows them.
    QStringList states;
    QEventLoop loop;
    QObject::connect(&presenter, &LmPresenterClass::pushReceived, &presenter,
                     [](const QString&, const QVariant& msg) {
                         CUnPackMessageCommon unpack;
                         unpack.SetUnPackMsg(msg, false);
                         VantorUtils::ProcessEntrustPush(unpack.GetRowValue());
                     });
    VantorUtils::RegisterEntrustPushFunc([&](const QMap<QString, QVariant>& push) {
        const QString state = push.value(Zentra_Fields::Security::orderStatus).toString();
        QMetaObject::invokeMethod(&loop, [&, state] {
            states << state;
            if (state == QLatin1String(Zentra_Values::OrderStatus::filled))
                loop.quit();
        });
    }, true);
    namespace S = Zentra_Fields::Security;
    QList<QMap<QString, QVariant>> reply;
    const QString status = VantorUtils::SendRequestToServer(
        &presenter, Zentra_Values::FunctionId::placeOrder,
        {{S::symbol, "600000.SH"}, {S::exchange, "SH"}, {S::side, Zentra_Values::Side::buy}, {S::price, 10.5}, {S::orderQty, 1000}},
        QueryDataList, err, reply);
    out() << "place order: " << status << (err.isEmpty() ? "" : "，") << err << "\n";
    if (status != QLatin1String(Zentra_Values::RequestExeStatus::success))
        return 1;
    QTimer::singleShot(10000, &loop, &QEventLoop::quit);
    loop.exec();
    out() << "order states pushed: " << states.join(" -> ") << "\n";
    return states.endsWith(QLatin1String(Zentra_Values::OrderStatus::filled)) ? 0 : 1;
}
