// Measures, over loopback against the in-process gateway:
//  - the round trip of a small request through the presenter (median, p99) beside a bare
//    blocking-socket ping-pong of the same sizes;
//  - fetching 100 000 orders in 1000-row pages through the transport (rows/s) beside
//    decoding the same pages from CBOR in memory.
// Each measure is taken in several rounds, the round trips alternating with the floor, so
// that a busy machine weighs on both alike; the median and the best round are printed.
// Run: build/default/bench/transport/bench_transport

#include <CMessageCommon.h>
#include <CPackMessageCommon.h>
#include <CUnPackMessageCommon.h>
#include <GatewayServer.h>
#include <LmPresenterClass.h>
#include <TcpTransport.h>
#include <WireFrameCodec.h>
#include <ZentraFields.h>

#include <QCoreApplication>
#include <QElapsedTimer>

#include <algorithm>
#include <arpa/inet.h>
#include <cstdio>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace Sys = Zentra_Fields::System;
namespace Fn = Zentra_Values::FunctionId;

namespace {
constexpr int rounds = 7;
constexpr int roundTrips = 1000; // a round
constexpr int warmUp = 200;
constexpr int orderRows = 100000;
constexpr int pageSize = 1000;
constexpr int fetchRounds = 5;

struct Stats {
    double median;
    double p99;
};

Stats stats(std::vector<double> us)
{
    std::sort(us.begin(), us.end());
    return {us[us.size() / 2], us[std::min(us.size() - 1, us.size() * 99 / 100)]};
}

double medianOf(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v.size() % 2 ? v[v.size() / 2] : (v[v.size() / 2 - 1] + v[v.size() / 2]) / 2;
}

// Median and best over rounds; for latencies the best is the least, for rates the most.
struct Spread {
    double median;
    double best;
};

Spread spread(const std::vector<double>& v, bool lessIsBetter)
{
    return {medianOf(v), lessIsBetter ? *std::min_element(v.begin(), v.end()) : *std::max_element(v.begin(), v.end())};
}

bool readFully(int fd, char* p, size_t n)
{
    while (n > 0) {
        const ssize_t got = ::recv(fd, p, n, 0);
        if (got <= 0)
            return false;
        p += got;
        n -= size_t(got);
    }
    return true;
}

bool writeFully(int fd, const char* p, size_t n)
{
    while (n > 0) {
        const ssize_t put = ::send(fd, p, n, 0);
        if (put <= 0)
            return false;
        p += put;
        n -= size_t(put);
    }
    return true;
}

// A blocking echo of fixed sizes: reads `request` bytes, answers `reply` bytes.
Stats barePingPong(size_t request, size_t reply, int trips, int warm)
{
    const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in addr = {};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ::bind(listener, reinterpret_cast<sockaddr*>(&addr), sizeof addr);
    ::listen(listener, 1);
    socklen_t len = sizeof addr;
    ::getsockname(listener, reinterpret_cast<sockaddr*>(&addr), &len);
    const int one = 1;

    std::thread server([&] {
        const int fd = ::accept(listener, nullptr, nullptr);
        ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
        std::vector<char> in(request), out(reply, 'x');
        while (readFully(fd, in.data(), in.size()) && writeFully(fd, out.data(), out.size())) {
        }
        ::close(fd);
    });

    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    ::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr);
    std::vector<char> out(request, 'y'), in(reply);
    std::vector<double> us;
    us.reserve(size_t(trips));
    QElapsedTimer t;
    for (int i = 0; i < warm + trips; ++i) {
        t.start();
        writeFully(fd, out.data(), out.size());
        readFully(fd, in.data(), in.size());
        if (i >= warm)
            us.push_back(double(t.nsecsElapsed()) / 1000.0);
    }
    ::close(fd);
    server.join();
    ::close(listener);
    return stats(us);
}

CMessageCommon* fundsRequest(const QString& src)
{
    CPackMessageCommon pack;
    pack.AddVaule(QLatin1String(Sys::msgType), QLatin1String(Fn::funds));
    auto* msg = new CMessageCommon;
    msg->SetMsg(pack.GetPackedMsg(false));
    msg->SetType(QLatin1String(Fn::funds));
    msg->SetSrcid(src);
    return msg;
}
} // namespace

int main(int argc, char* argv[])
{
    qputenv("QT_LOGGING_RULES", "vantor.*.info=false\nvantor.*.debug=false");
    QCoreApplication app(argc, argv);

    GatewayOptions options;
    options.rows = orderRows;
    GatewayServer gateway(options);
    if (!gateway.start()) {
        std::fprintf(stderr, "gateway: %s\n", qPrintable(gateway.errorString()));
        return 1;
    }
    std::printf("gateway on %s with %d rows each of positions, orders, trades\n", qPrintable(gateway.address()), orderRows);

    // Round trip of a small request through the presenter.
    auto transport = std::make_shared<TcpTransport>(gateway.address());
    LmPresenterClass presenter(QStringLiteral("bench"));
    presenter.setTransport(transport);
    QVariant reply;
    QElapsedTimer t;
    auto presenterRound = [&](int trips, int warm, Stats* out) {
        std::vector<double> us;
        us.reserve(size_t(trips));
        for (int i = 0; i < warm + trips; ++i) {
            t.start();
            const int rc = presenter.sendRequest_Sync_Block(fundsRequest(presenter.pluginPid()), reply, 10000);
            if (rc != 0) {
                std::fprintf(stderr, "request failed: %d\n", rc);
                return false;
            }
            if (i >= warm)
                us.push_back(double(t.nsecsElapsed()) / 1000.0);
        }
        *out = stats(us);
        return true;
    };
    Stats first;
    if (!presenterRound(1, warmUp, &first))
        return 1;

    // The bare floor with the same frame sizes.
    CPackMessageCommon pack;
    pack.AddVaule(QLatin1String(Sys::msgType), QLatin1String(Fn::funds));
    const size_t requestBytes = size_t(WireFrameCodec::encode(WireFrame{1, QLatin1String(WireKind::request), QLatin1String(Fn::funds),
                                                                        presenter.pluginPid(), pack.GetPackedMsg(false)})
                                           .size());
    const size_t replyBytes = size_t(
        WireFrameCodec::encode(WireFrame{1, QLatin1String(WireKind::reply), QLatin1String(Fn::funds), QString(), reply}).size());

    std::vector<double> ourMedians, ourP99s, bareMedians, bareP99s, ratios;
    for (int round = 0; round < rounds; ++round) {
        Stats ours;
        if (!presenterRound(roundTrips, 20, &ours))
            return 1;
        const Stats bare = barePingPong(requestBytes, replyBytes, roundTrips, 20);
        ourMedians.push_back(ours.median);
        ourP99s.push_back(ours.p99);
        bareMedians.push_back(bare.median);
        bareP99s.push_back(bare.p99);
        ratios.push_back(ours.median / bare.median);
    }
    const Spread ourMedian = spread(ourMedians, true), ourP99 = spread(ourP99s, true);
    const Spread bareMedian = spread(bareMedians, true), bareP99 = spread(bareP99s, true);
    const Spread ratio = spread(ratios, true);

    std::printf("small request (%s, %zu-byte request, %zu-byte reply), %d rounds of %d round trips, each round beside the floor:\n",
                Fn::funds, requestBytes, replyBytes, rounds, roundTrips);
    std::printf("                            median (median round / best round)   p99 (median round / best round)\n");
    std::printf("  presenter over TCP        %8.1f / %8.1f us                %8.1f / %8.1f us\n", ourMedian.median,
                ourMedian.best, ourP99.median, ourP99.best);
    std::printf("  bare blocking ping-pong   %8.1f / %8.1f us                %8.1f / %8.1f us\n", bareMedian.median,
                bareMedian.best, bareP99.median, bareP99.best);
    std::printf("  median ratio              %.2fx median rounds, %.2fx best rounds, %.2fx median of each round's ratio (target <= 3x)\n",
                ourMedian.median / bareMedian.median, ourMedian.best / bareMedian.best, ratio.median);

    // Fetching all orders in pages through the transport alone.
    QList<QVariant> pages;
    std::vector<double> rates;
    for (int run = 0; run < fetchRounds; ++run) {
        pages.clear();
        int rows = 0;
        t.start();
        for (int pageNo = 0; rows < orderRows; ++pageNo) {
            CPackMessageCommon request;
            request.AddVaule(QLatin1String(Sys::msgType), QLatin1String(Fn::orders));
            request.AddVaule(QLatin1String(Sys::pageNo), pageNo);
            request.AddVaule(QLatin1String(Sys::pageSize), pageSize);
            QVariant page;
            if (transport->request(QLatin1String(Fn::orders), QStringLiteral("bench"), request.GetPackedMsg(false), page, 30000) != 0) {
                std::fprintf(stderr, "page %d failed\n", pageNo);
                return 1;
            }
            const int got = page.toList().size() - 1;
            if (got <= 0)
                break;
            rows += got;
            pages.append(page);
        }
        const double seconds = double(t.nsecsElapsed()) / 1e9;
        rates.push_back(rows / seconds);
        std::printf("orders through the transport: round %d, %d rows in %d pages of %d, %.0f ms, %.0f rows/s\n", run + 1,
                    rows, int(pages.size()), pageSize, seconds * 1000, rows / seconds);
    }

    // Decoding the same pages from CBOR frames in memory.
    QByteArray stream;
    for (const QVariant& page : pages)
        stream += WireFrameCodec::encode(WireFrame{1, QLatin1String(WireKind::reply), QLatin1String(Fn::orders), QString(), page});
    std::vector<double> decodeRates;
    for (int run = 0; run < fetchRounds; ++run) {
        WireFrameCodec codec;
        t.start();
        codec.append(stream);
        WireFrame frame;
        qint64 rows = 0;
        while (codec.next(frame) == WireFrameCodec::Ready)
            rows += frame.msg.toList().size() - 1;
        const double seconds = double(t.nsecsElapsed()) / 1e9;
        decodeRates.push_back(rows / seconds);
    }
    const Spread rate = spread(rates, false), decode = spread(decodeRates, false);
    std::printf("                              median round / best round\n");
    std::printf("  through the transport       %10.0f / %10.0f rows/s (target >= 200000)\n", rate.median, rate.best);
    std::printf("  decode only, in memory      %10.0f / %10.0f rows/s (%.1f MB of frames)\n", decode.median, decode.best,
                stream.size() / 1e6);
    return 0;
}
