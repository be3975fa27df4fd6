// Example-module benchmark (not a test).
//
// 1. Hand-over latency the way the example modules take packets: the
//    sending thread pushes into a VexaPacketQueue (drop-oldest, bound 20),
//    which posts one drain per batch to the module's thread; the drain
//    takes the whole queue at once. A producer paces 10,000 packets per
//    second; printed are drops and the latency from sendPacketV to the
//    drained packet (p50, p99, max). Targets: no drops, p50 <= 50 us,
//    p99 <= 150 us.
// 2. Idle cost: a started pipeline of three modules (a source that sends
//    nothing, VexaOutputFile and VexaPacketStats) left alone for a few
//    seconds; printed is the CPU time used as a share of one core.
//    Target: under 1%.
//
//   vexa_bench_modules [seconds]

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <thread>
#include <vector>

#include <sys/resource.h>

#include <QCoreApplication>
#include <QDir>
#include <QSysInfo>
#include <QTemporaryDir>
#include <QThread>

#include <Vexa>
#include <VexaObject>
#include <VexaPacketQueue>

#include "vexaexamplemodules.h"

using Clock = std::chrono::steady_clock;
using Packet = VexaObject::Packet;

static qint64 nowNs()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch()).count();
}

// A source that only sends what the benchmark hands it.
class VexaBenchSource : public VexaObject
{
    Q_OBJECT
public:
    Q_INVOKABLE explicit VexaBenchSource(QObject *parent = nullptr)
        : VexaObject(parent)
    {
    }
};

// A sink with the example modules' hand-over: a VexaPacketQueue dropping
// its oldest packet beyond 20, a drain posted to the module's own thread
// once per batch, the whole queue taken there at once.
class VexaBenchSink : public VexaObject
{
    Q_OBJECT
public:
    Q_INVOKABLE explicit VexaBenchSink(QObject *parent = nullptr)
        : VexaObject(parent)
    {
        queue.setOverflow(VexaPacketQueue::DropOldest);
        queue.setLimits(VexaPacketQueue::Video, {20, -1, -1});
        queue.setWakeHandler([this] { QMetaObject::invokeMethod(this, [this] { drain(); }, Qt::QueuedConnection); });
    }

    qint64 drops() const { return queue.dropped(VexaPacketQueue::Video); }
    std::vector<qint64> latencies; // the sink's thread only

    void onNewPacketV(Packet p) override { queue.push(p, VexaPacketQueue::Video); }

private:
    void drain()
    {
        queue.take(&batch);
        const qint64 now = nowNs();
        for (const Packet &p : qAsConst(batch.video))
            latencies.push_back(now - p.pts);
    }

    VexaPacketQueue queue{this};
    VexaPacketQueue::Batch batch;
};

static double cpuSeconds()
{
    rusage use;
    getrusage(RUSAGE_SELF, &use);
    return use.ru_utime.tv_sec + use.ru_stime.tv_sec + (use.ru_utime.tv_usec + use.ru_stime.tv_usec) / 1e6;
}

static void latency(double seconds)
{
    auto *source = static_cast<VexaBenchSource *>(Vexa::create("BenchSource"));
    auto *sink = static_cast<VexaBenchSink *>(Vexa::create("BenchSink"));
    source->linkV(sink);
    sink->start();
    source->start();

    const int rate = 10000;
    const int warmup = rate / 5;
    const int total = warmup + int(seconds * rate);
    std::thread producer([&] {
        const Clock::time_point begin = Clock::now();
        for (int i = 0; i < total; ++i) {
            std::this_thread::sleep_until(begin + std::chrono::microseconds(100LL * i));
            Packet p;
            p.pts = nowNs();
            p.tag = i;
            source->sendPacketV(p);
        }
    });
    producer.join();

    std::vector<qint64> lat;
    QThread::msleep(100);
    QMetaObject::invokeMethod(sink, [&] { lat = sink->latencies; }, Qt::BlockingQueuedConnection);
    const qint64 drops = sink->drops();
    lat.erase(lat.begin(), lat.begin() + std::min<size_t>(lat.size(), warmup));
    std::sort(lat.begin(), lat.end());
    const auto pct = [&](double q) { return lat.empty() ? 0.0 : lat[size_t(q * (lat.size() - 1))] / 1000.0; };
    std::printf("hand-over at %d packets/s, bound 20, %d packets: drops %lld, latency p50 %.1f us, p99 %.1f us, max %.1f us"
                " (targets: 0 drops, p50 <= 50 us, p99 <= 150 us)\n",
                rate, total, static_cast<long long>(drops), pct(0.5), pct(0.99), pct(1.0));
    source->stop(true);
    sink->stop(true);
}

static void idle(double seconds)
{
    QTemporaryDir dir;
    VexaObject *source = Vexa::create("BenchSource");
    VexaObject *out = Vexa::create("OutputFile");
    VexaObject *stats = Vexa::create("PacketStats");
    out->setData(QVariantMap{{"path", dir.filePath("idle.mkv")}});
    source->linkV(out);
    source->linkA(out);
    source->linkV(stats);
    stats->start();
    out->start();
    source->start();
    QThread::msleep(500); // start-up is not idle time

    const double cpu0 = cpuSeconds();
    const qint64 t0 = nowNs();
    QThread::msleep(static_cast<unsigned long>(seconds * 1000));
    const double share = (cpuSeconds() - cpu0) / ((nowNs() - t0) / 1e9);
    std::printf("idle pipeline of three started modules for %.0f s: %.2f%% of one core (target: under 1%%)\n",
                seconds, share * 100.0);
    for (VexaObject *o : {source, out, stats})
        o->stop(true);
}

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const double seconds = argc > 1 ? QString::fromLocal8Bit(argv[1]).toDouble() : 3.0;
    if (seconds <= 0) {
        std::fprintf(stderr, "usage: vexa_bench_modules [seconds > 0]\n");
        return 2;
    }
    qputenv("QT_LOGGING_RULES", "*.debug=false");
    Vexa::init(false);
    vexaRegisterExampleModules();
    qRegisterMetaType<VexaBenchSource *>("VexaBenchSource");
    qRegisterMetaType<VexaBenchSink *>("VexaBenchSink");
    std::printf("%s, %d cores, Qt %s\n", qPrintable(QSysInfo::prettyProductName()), QThread::idealThreadCount(), qVersion());
    latency(seconds);
    idle(seconds);
    return 0;
}

#include "modules.moc"
