// Packet-hop benchmark.
//
// 1. Cost per packet per hop of a chain of K linked module relays (each
//    onNewPacketV calls sendPacketV) against the same chain of plain QObjects
//    with the same signal signature and a direct connection, the floor this
//    design can reach. The two are interleaved over several rounds; medians
//    and their ratio are printed.
// 2. Cross-thread hand-over through bufferPacketV to a consumer thread that
//    drains packetsV under lockV: delivered packets per second and drop share
//    under a flood, and latency p50/p99 at a paced 10,000 packets per second
//    with the default bound of 20.
//
// 3. With --callgrind, only the hop loops of 1. for K = 4 and 16, each
//    bracketed by callgrind client requests, for an instruction count that
//    does not swing with the machine's load: run it through
//    bench/hop-callgrind.sh, which prints instructions per hop and ratios.
//
//   vexa_bench_hop [--quick | --callgrind]

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>
#include <type_traits>
#include <vector>

#include <QCoreApplication>
#include <QSysInfo>
#include <QThread>

#include <Vexa>
#include <VexaObject>

#if __has_include(<valgrind/callgrind.h>)
#include <valgrind/callgrind.h>
#else
#define CALLGRIND_ZERO_STATS
#define CALLGRIND_DUMP_STATS_AT(label) ((void)(label))
#endif

using Clock = std::chrono::steady_clock;
using Packet = VexaObject::Packet;

static qint64 nowNs()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch()).count();
}

// A module that passes every packet on.
class VexaBenchRelay : public VexaObject
{
    Q_OBJECT
public:
    Q_INVOKABLE explicit VexaBenchRelay(QObject *parent = nullptr)
        : VexaObject(parent)
    {
        threadName = QStringLiteral("main");
    }
    void onNewPacketV(Packet p) override { sendPacketV(p); }
};

// The same module relay emitting its signal without sendPacketV's delivery
// record: what a module hop costs without the tracking that lets links be
// broken and receivers destroyed while packets flow (instruction counts
// only; such a chain is not safe to change while it runs).
class VexaBenchBareRelay : public VexaObject
{
    Q_OBJECT
public:
    Q_INVOKABLE explicit VexaBenchBareRelay(QObject *parent = nullptr)
        : VexaObject(parent)
    {
        threadName = QStringLiteral("main");
    }
    void onNewPacketV(Packet p) override
    {
        p.sender = this;
        emit newPacketV(p);
    }
};

// The same relay as a plain QObject: same signature, same work.
class RawRelay : public QObject
{
    Q_OBJECT
public:
    void send(Packet p)
    {
        p.sender = nullptr;
        emit newPacketV(p);
    }
signals:
    void newPacketV(Packet pkt);
public slots:
    void onNewPacketV(Packet p) { send(p); }
};

// A module that hands packets to its own thread through its bounded queue.
class VexaBenchConsumer : public VexaObject
{
    Q_OBJECT
public:
    Q_INVOKABLE explicit VexaBenchConsumer(QObject *parent = nullptr)
        : VexaObject(parent)
    {
        threadName = QStringLiteral("bench_consumer");
    }
    void onNewPacketV(Packet p) override
    {
        if (!bufferPacketV(p))
            dropped.fetch_add(1, std::memory_order_relaxed);
    }

    // Runs in the consumer's thread: drains until told to stop and records
    // the latency of every packet when asked to.
    Q_INVOKABLE void drain()
    {
        draining.store(true, std::memory_order_release);
        QList<Packet> batch;
        for (;;) {
            const bool last = stopping.load(std::memory_order_acquire);
            if (polling) {
                while (!lockV.tryLockForWrite())
                    QThread::yieldCurrentThread();
            } else {
                lockV.lockForWrite();
            }
            while (!packetsV.isEmpty())
                batch.append(packetsV.takeFirst());
            lockV.unlock();
            const qint64 now = nowNs();
            for (const Packet &p : batch) {
                if (latencies)
                    latencies->push_back(now - p.pts);
                ++delivered;
            }
            batch.clear();
            if (last)
                break;
            QThread::yieldCurrentThread();
        }
        finished.store(true, std::memory_order_release);
    }

    std::atomic<int> dropped{0};
    std::atomic<bool> stopping{false};
    bool polling = false; // drain with tryLockForWrite() instead of lockForWrite()
    std::atomic<bool> draining{false};
    std::atomic<bool> finished{false};
    std::vector<qint64> *latencies = nullptr;
    qint64 delivered = 0;
};

class VexaBenchSource : public VexaObject
{
    Q_OBJECT
public:
    Q_INVOKABLE explicit VexaBenchSource(QObject *parent = nullptr)
        : VexaObject(parent)
    {
        threadName = QStringLiteral("main");
    }
};

static double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

static double least(const std::vector<double> &v)
{
    return *std::min_element(v.begin(), v.end());
}

// Names the callgrind dump of the hop loop about to run; empty: no dump.
static const char *dumpLabel = "";

static void loopStarts()
{
    if (*dumpLabel)
        CALLGRIND_ZERO_STATS;
}

static void loopEnded()
{
    if (*dumpLabel)
        CALLGRIND_DUMP_STATS_AT(dumpLabel);
}

// ns per packet per hop through K module relays (Relay: VexaBenchRelay, or
// VexaBenchBareRelay with a source that emits directly too).
template <typename Relay = VexaBenchRelay>
static double runVexa(int k, int packets)
{
    constexpr bool bare = std::is_same_v<Relay, VexaBenchBareRelay>;
    std::vector<Relay *> chain;
    VexaBenchSource source;
    source.start();
    VexaObject *prev = &source;
    for (int i = 0; i < k; ++i) {
        chain.push_back(new Relay);
        prev = prev->linkV(chain.back());
        chain.back()->start();
    }
    Packet p;
    p.tag = 0;
    loopStarts();
    const qint64 t0 = nowNs();
    for (int i = 0; i < packets; ++i) {
        p.pts = i;
        if constexpr (bare) {
            p.sender = &source;
            emit source.newPacketV(p);
        } else {
            source.sendPacketV(p);
        }
    }
    const qint64 t1 = nowNs();
    loopEnded();
    for (Relay *r : chain)
        delete r;
    return double(t1 - t0) / packets / k;
}

// ns per packet per hop through K plain QObject relays.
static double runRaw(int k, int packets)
{
    std::vector<RawRelay *> chain;
    RawRelay source;
    QObject *prev = &source;
    for (int i = 0; i < k; ++i) {
        chain.push_back(new RawRelay);
        QObject::connect(prev, SIGNAL(newPacketV(Packet)), chain.back(), SLOT(onNewPacketV(Packet)), Qt::DirectConnection);
        prev = chain.back();
    }
    Packet p;
    p.tag = 0;
    loopStarts();
    const qint64 t0 = nowNs();
    for (int i = 0; i < packets; ++i) {
        p.pts = i;
        source.send(p);
    }
    const qint64 t1 = nowNs();
    loopEnded();
    for (RawRelay *r : chain)
        delete r;
    return double(t1 - t0) / packets / k;
}

struct HandOver {
    double seconds;
    qint64 sent;
    qint64 delivered;
    int dropped;
    std::vector<qint64> latencies;
};

// Sends @p count packets from this thread to a consumer draining in its own
// thread; @p intervalNs 0 floods, otherwise packets are paced.
static HandOver runHandOver(int count, qint64 intervalNs, bool polling)
{
    VexaBenchSource source;
    auto *consumer = new VexaBenchConsumer;
    consumer->polling = polling;
    source.linkV(consumer);
    source.start();
    consumer->start(); // default bound 20
    HandOver r{};
    if (intervalNs) {
        r.latencies.reserve(count);
        consumer->latencies = &r.latencies;
    }
    QMetaObject::invokeMethod(consumer, "drain", Qt::QueuedConnection);
    while (!consumer->draining.load(std::memory_order_acquire))
        std::this_thread::sleep_for(std::chrono::microseconds(100));

    Packet p;
    p.tag = 0;
    const qint64 t0 = nowNs();
    for (int i = 0; i < count; ++i) {
        if (intervalNs) {
            const qint64 due = t0 + i * intervalNs;
            while (nowNs() < due)
                std::this_thread::sleep_for(std::chrono::microseconds(20));
        }
        p.pts = nowNs();
        source.sendPacketV(p);
    }
    consumer->stopping.store(true, std::memory_order_release);
    while (!consumer->finished.load(std::memory_order_acquire))
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    const qint64 t1 = nowNs();
    r.seconds = double(t1 - t0) / 1e9;
    r.sent = count;
    r.delivered = consumer->delivered;
    r.dropped = consumer->dropped.load();
    consumer->destroy();
    return r;
}

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const bool quick = argc > 1 && std::strcmp(argv[1], "--quick") == 0;
    Vexa::init(false);

    if (argc > 1 && std::strcmp(argv[1], "--callgrind") == 0) {
        // Dumps named "<chain> K=<k> packets=<n>"; the loops run once warm.
        const int packets = 20000;
        static char label[64];
        for (int k : {4, 16}) {
            runVexa(k, packets / 10);
            runRaw(k, packets / 10);
            std::snprintf(label, sizeof label, "module K=%d packets=%d", k, packets);
            dumpLabel = label;
            runVexa(k, packets);
            std::snprintf(label, sizeof label, "plain K=%d packets=%d", k, packets);
            runRaw(k, packets);
            dumpLabel = "";
            runVexa<VexaBenchBareRelay>(k, packets / 10);
            std::snprintf(label, sizeof label, "untracked K=%d packets=%d", k, packets);
            dumpLabel = label;
            runVexa<VexaBenchBareRelay>(k, packets);
            dumpLabel = "";
        }
        return 0;
    }

    std::printf("machine: %s, %s, %d hardware threads\n", qPrintable(QSysInfo::prettyProductName()),
                qPrintable(QSysInfo::currentCpuArchitecture()), QThread::idealThreadCount());

    const int rounds = quick ? 3 : 21;
    const int packets = quick ? 50000 : 200000;
    std::printf("\nhop cost: ns per packet per hop over %d interleaved rounds of %d packets (median, and least)\n",
                rounds, packets);
    std::printf("%4s %12s %12s %8s %12s %12s %8s\n", "K", "module", "plain Qt", "ratio", "module min", "Qt min", "ratio");
    for (int k : {1, 4, 16}) {
        runVexa(k, packets / 10); // warm up
        runRaw(k, packets / 10);
        std::vector<double> vexa, raw;
        for (int r = 0; r < rounds; ++r) {
            if (r % 2) {
                raw.push_back(runRaw(k, packets));
                vexa.push_back(runVexa(k, packets));
            } else {
                vexa.push_back(runVexa(k, packets));
                raw.push_back(runRaw(k, packets));
            }
        }
        const double mv = median(vexa), mr = median(raw);
        std::printf("%4d %12.1f %12.1f %8.3f %12.1f %12.1f %8.3f\n", k, mv, mr, mv / mr, least(vexa), least(raw),
                    least(vexa) / least(raw));
    }

    const int flood = quick ? 2000000 : 20000000;
    const int paced = quick ? 5000 : 30000;
    for (bool polling : {false, true}) {
        std::printf("\nconsumer drains with %s\n", polling ? "tryLockForWrite() polling" : "lockForWrite()");
        const HandOver f = runHandOver(flood, 0, polling);
        std::printf("  flood, bound 20: %lld sent in %.3f s (%.0f sent/s), %.0f delivered/s, drop share %.1f %%\n",
                    (long long)f.sent, f.seconds, f.sent / f.seconds, f.delivered / f.seconds, 100.0 * f.dropped / f.sent);
        HandOver l = runHandOver(paced, 100000, polling);
        std::sort(l.latencies.begin(), l.latencies.end());
        const auto pct = [&](double q) { return l.latencies.empty() ? 0 : l.latencies[size_t(q * (l.latencies.size() - 1))]; };
        std::printf("  paced 10000/s, bound 20: %lld sent, %lld delivered, %d dropped, latency p50 %.1f us, p99 %.1f us, max %.1f us\n",
                    (long long)l.sent, (long long)l.delivered, l.dropped, pct(0.50) / 1e3, pct(0.99) / 1e3, pct(1.0) / 1e3);
    }
    return 0;
}

#include "hop.moc"
