// Fetches the gateway's orders in pages through QueryDatasFromServerByPage and through a
// bare loop over the same transport, in one run, and prints both rates and their ratio.
//
//   bench_query [rows=100000] [pageSize=1000] [rounds=6]

#include "VantorUtils.h"

#include <GatewayServer.h>
#include <LmPresenterClass.h>
#include <TcpTransport.h>
#include <ZentraFields.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QLoggingCategory>

#include <cstdio>
#include <memory>

namespace {
using Rows = QList<QMap<QString, QVariant>>;

QString text(const char* name)
{
    return QString::fromLatin1(name);
}

// What an application would write without the library: ask page after page until the
// rows received reach the total the gateway reports, keeping every row.
Rows bareLoop(IPresenterTransport& transport, const QString& functionId, int pageSize)
{
    const QString status = text(Zentra_Fields::System::requestExeStatus);
    const QString totalKey = text(Zentra_Fields::System::totalSize);
    Rows rows;
    int total = pageSize + 1;
    for (int pageNo = 0; rows.size() < total; ++pageNo) {
        const QVariantMap head{{text(Zentra_Fields::System::msgType), functionId},
                               {text(Zentra_Fields::System::pageNo), pageNo},
                               {text(Zentra_Fields::System::pageSize), pageSize}};
        QVariant reply;
        if (transport.request(functionId, QStringLiteral("bench"), QVariantList{head}, reply, 10000) != 0)
            return {};
        const QVariantList list = reply.toList();
        const QVariantMap replyHead = list.value(0).toMap();
        if (replyHead.value(status).toString() != text(Zentra_Values::RequestExeStatus::success))
            return {};
        total = replyHead.value(totalKey).toInt();
        for (int i = 1; i < list.size(); ++i)
            rows.append(list.at(i).toMap());
        if (list.size() <= 1)
            break;
    }
    return rows;
}

double rate(int rows, qint64 ns)
{
    return ns > 0 ? rows * 1e9 / double(ns) : 0;
}
} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QLoggingCategory::setFilterRules(QStringLiteral("*.debug=false\n*.info=false"));
    const QStringList args = app.arguments();
    const int rowCount = args.value(1, "100000").toInt();
    const int pageSize = args.value(2, "1000").toInt();
    const int rounds = qMax(1, args.value(3, "6").toInt());
    const QString functionId = text(Zentra_Values::FunctionId::orders);

    GatewayOptions options;
    options.rows = rowCount;
    GatewayServer gateway(options);
    if (!gateway.start()) {
        std::fprintf(stderr, "gateway did not start: %s\n", qPrintable(gateway.errorString()));
        return 1;
    }
    auto transport = std::make_shared<TcpTransport>(gateway.address());
    LmPresenterClass presenter(QStringLiteral("bench"));
    presenter.setTransport(transport);

    // Warm up the connection and the gateway's page cache.
    bareLoop(*transport, functionId, pageSize);

    // Each fetch is timed on its own and its rows are freed before the next one starts;
    // the two take turns going first, so neither always meets the heap the other left.
    const auto viaLibrary = [&]() -> qint64 {
        QElapsedTimer timer;
        timer.start();
        QString errorText;
        const Rows rows = VantorUtils::QueryDatasFromServerByPage(&presenter, functionId, {}, errorText, pageSize);
        const qint64 ns = timer.nsecsElapsed();
        if (rows.size() != rowCount || !errorText.isEmpty()) {
            std::fprintf(stderr, "library fetched %d rows (%s)\n", int(rows.size()), qPrintable(errorText));
            return -1;
        }
        return ns;
    };
    const auto viaBare = [&]() -> qint64 {
        QElapsedTimer timer;
        timer.start();
        const Rows rows = bareLoop(*transport, functionId, pageSize);
        const qint64 ns = timer.nsecsElapsed();
        if (rows.size() != rowCount) {
            std::fprintf(stderr, "bare loop fetched %d rows\n", int(rows.size()));
            return -1;
        }
        return ns;
    };

    qint64 bestLibrary = -1;
    qint64 bestBare = -1;
    for (int round = 0; round < rounds; ++round) {
        qint64 libraryNs = 0;
        qint64 bareNs = 0;
        if (round % 2 == 0) {
            libraryNs = viaLibrary();
            bareNs = viaBare();
        } else {
            bareNs = viaBare();
            libraryNs = viaLibrary();
        }
        if (libraryNs < 0 || bareNs < 0)
            return 1;
        std::printf("round %d: library %.0f rows/s, bare loop %.0f rows/s\n", round + 1,
                    rate(rowCount, libraryNs), rate(rowCount, bareNs));
        if (bestLibrary < 0 || libraryNs < bestLibrary)
            bestLibrary = libraryNs;
        if (bestBare < 0 || bareNs < bestBare)
            bestBare = bareNs;
    }

    std::printf("orders: %d rows in %d-row pages, best of %d rounds\n", rowCount, pageSize, rounds);
    std::printf("QueryDatasFromServerByPage: %.0f rows/s (%.1f ms)\n", rate(rowCount, bestLibrary), bestLibrary / 1e6);
    std::printf("bare transport loop:        %.0f rows/s (%.1f ms)\n", rate(rowCount, bestBare), bestBare / 1e6);
    std::printf("library / bare time ratio:  %.3f (target <= 1.25)\n", double(bestLibrary) / double(bestBare));
    return 0;
}
