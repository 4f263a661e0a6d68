// Throughput of the order-push dispatch and of the statistics window.
//
//   bench_timing [seconds per figure, default 1]
//
// Prints pushes/s of VantorUtils::ProcessEntrustPush with 10 callbacks registered, and
// appends/s of VantorStatisticAssist::AppendData on a 1000-sample window, for random
// samples and for a decreasing series (every append drops the maximum and rescans).

#include <VantorStatisticAssist.h>
#include <VantorUtils.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QRandomGenerator>

#include <atomic>
#include <cstdio>
#include <vector>

namespace {

using Push = QMap<QString, QVariant>;

std::atomic<long long> g_sink{0};

// Ten distinct plain functions: lambdas would all count as the same callback.
template <int N>
void onPush(const Push& push)
{
    g_sink.fetch_add(push.size() + N, std::memory_order_relaxed);
}

template <typename Body>
double perSecond(double seconds, long long batch, Body body)
{
    long long done = 0;
    QElapsedTimer clock;
    clock.start();
    do {
        body(batch);
        done += batch;
    } while (clock.nsecsElapsed() < qint64(seconds * 1e9));
    return done / (clock.nsecsElapsed() / 1e9);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const double seconds = argc > 1 ? std::max(0.1, QByteArray(argv[1]).toDouble()) : 1.0;

    VantorUtils::RegisterEntrustPushFunc(onPush<0>, true);
    VantorUtils::RegisterEntrustPushFunc(onPush<1>, true);
    VantorUtils::RegisterEntrustPushFunc(onPush<2>, true);
    VantorUtils::RegisterEntrustPushFunc(onPush<3>, true);
    VantorUtils::RegisterEntrustPushFunc(onPush<4>, true);
    VantorUtils::RegisterEntrustPushFunc(onPush<5>, true);
    VantorUtils::RegisterEntrustPushFunc(onPush<6>, true);
    VantorUtils::RegisterEntrustPushFunc(onPush<7>, true);
    VantorUtils::RegisterEntrustPushFunc(onPush<8>, true);
    VantorUtils::RegisterEntrustPushFunc(onPush<9>, true);
    const Push push{{"orderID", "10086"}, {"orderStatus", "filled"}, {"cumQty", 300}};
    const double pushes = perSecond(seconds, 10000, [&](long long n) {
        for (long long i = 0; i < n; ++i)
            VantorUtils::ProcessEntrustPush(push);
    });
    std::printf("ProcessEntrustPush, 10 callbacks:           %12.0f pushes/s\n", pushes);

    constexpr int window = 1000;
    std::vector<double> random(1 << 16);
    QRandomGenerator rng(42);
    for (double& v : random)
        v = rng.generateDouble() * 100.0;
    VantorStatisticAssist randomStat(window);
    size_t next = 0;
    const double randomRate = perSecond(seconds, 100000, [&](long long n) {
        for (long long i = 0; i < n; ++i) {
            randomStat.AppendData(random[next]);
            next = (next + 1) & (random.size() - 1);
        }
    });
    std::printf("AppendData, 1000-sample window, random:     %12.0f appends/s\n", randomRate);

    VantorStatisticAssist decreasingStat(window);
    double value = 1e12;
    const double decreasingRate = perSecond(seconds, 10000, [&](long long n) {
        for (long long i = 0; i < n; ++i)
            decreasingStat.AppendData(value -= 1.0);
    });
    std::printf("AppendData, 1000-sample window, decreasing: %12.0f appends/s\n", decreasingRate);

    std::fflush(stdout);
    // Keep the results observable.
    if (g_sink.load() == -1 || randomStat.GetAvgData() < -1 || decreasingStat.GetMaxData() < -1e300)
        std::printf("\n");
    return 0;
}
