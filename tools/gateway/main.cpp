// vantor-gateway: the trading-gateway simulator on a TCP port.

#include "GatewayServer.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QSocketNotifier>

#include <csignal>
#include <cstdio>
#include <sys/socket.h>
#include <unistd.h>

namespace {
int signalPipe[2] = {-1, -1};

void onSignal(int)
{
    const char c = 1;
    [[maybe_unused]] const ssize_t n = ::write(signalPipe[1], &c, 1);
}

bool parseRate(const QString& text, double* rate)
{
    bool ok = false;
    const double v = text.toDouble(&ok);
    if (!ok || !(v >= 0 && v <= 1)) // NaN is no rate either
        return false;
    *rate = v;
    return true;
}
} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("vantor-gateway"));

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Trading-gateway simulator: answers function numbers from a "
                                                    "SQLite database of synthetic data, with injectable faults."));
    parser.addHelpOption();
    const QCommandLineOption listen(QStringLiteral("listen"), QStringLiteral("Address to listen on (default 127.0.0.1:0)."),
                                    QStringLiteral("HOST:PORT"), QStringLiteral("127.0.0.1:0"));
    const QCommandLineOption rows(QStringLiteral("rows"), QStringLiteral("Positions, orders and trades to generate."),
                                  QStringLiteral("N"), QStringLiteral("1000"));
    const QCommandLineOption seed(QStringLiteral("seed"), QStringLiteral("Seed of the data and the fault draws."),
                                  QStringLiteral("S"), QStringLiteral("1"));
    const QCommandLineOption db(QStringLiteral("db"), QStringLiteral("SQLite file (default: a fresh temporary file)."),
                                QStringLiteral("PATH"));
    const QCommandLineOption latency(QStringLiteral("latency-ms"), QStringLiteral("Delay before every answer."),
                                     QStringLiteral("MS"), QStringLiteral("0"));
    const QCommandLineOption failRate(QStringLiteral("fail-rate"), QStringLiteral("Share of requests answered with a failure."),
                                      QStringLiteral("RATE"), QStringLiteral("0"));
    const QCommandLineOption noreplyRate(QStringLiteral("noreply-rate"), QStringLiteral("Share of requests left unanswered."),
                                         QStringLiteral("RATE"), QStringLiteral("0"));
    const QCommandLineOption dropRate(QStringLiteral("drop-rate"), QStringLiteral("Share of requests that close the connection."),
                                      QStringLiteral("RATE"), QStringLiteral("0"));
    parser.addOptions({listen, rows, seed, db, latency, failRate, noreplyRate, dropRate});
    parser.process(app);

    auto fail = [](const QString& text) {
        std::fprintf(stderr, "vantor-gateway: %s\n", qPrintable(text));
        return 2;
    };

    if (!parser.positionalArguments().isEmpty())
        return fail(QStringLiteral("unexpected argument: %1").arg(parser.positionalArguments().first()));

    GatewayOptions options;
    bool ok = false;
    options.rows = parser.value(rows).toInt(&ok);
    if (!ok || options.rows < 0)
        return fail(QStringLiteral("--rows must be a number of rows"));
    options.seed = parser.value(seed).toUInt(&ok);
    if (!ok)
        return fail(QStringLiteral("--seed must be a non-negative number"));
    options.dbPath = parser.value(db);
    options.faults.latencyMs = parser.value(latency).toInt(&ok);
    if (!ok || options.faults.latencyMs < 0)
        return fail(QStringLiteral("--latency-ms must be a number of milliseconds"));
    if (!parseRate(parser.value(failRate), &options.faults.failRate)
        || !parseRate(parser.value(noreplyRate), &options.faults.noreplyRate)
        || !parseRate(parser.value(dropRate), &options.faults.dropRate))
        return fail(QStringLiteral("rates are numbers between 0 and 1"));

    const QString listenAt = parser.value(listen);
    const int colon = listenAt.lastIndexOf(QLatin1Char(':'));
    const uint port = colon > 0 ? listenAt.mid(colon + 1).toUInt(&ok) : 0;
    if (colon <= 0 || !ok || port > 65535)
        return fail(QStringLiteral("--listen takes HOST:PORT"));

    // SIGINT and SIGTERM end the event loop through a pipe, so that the gateway stops cleanly.
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, signalPipe) != 0)
        return fail(QStringLiteral("cannot set up signal handling"));
    QSocketNotifier notifier(signalPipe[0], QSocketNotifier::Read);
    QObject::connect(&notifier, &QSocketNotifier::activated, &app, [&] {
        char c;
        [[maybe_unused]] const ssize_t n = ::read(signalPipe[0], &c, 1);
        QCoreApplication::quit();
    });
    struct sigaction sa = {};
    sa.sa_handler = onSignal;
    sigemptyset(&sa.sa_mask);
    sa.sa_flags = SA_RESTART;
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);

    GatewayServer server(options);
    if (!server.start(listenAt.left(colon), quint16(port)))
        return fail(server.errorString());
    std::printf("listening on %s\n", qPrintable(server.address()));
    std::fflush(stdout);

    const int rc = app.exec();
    server.stop();
    return rc;
}
