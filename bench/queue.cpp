// Packet queue benchmark (VexaPacketQueue), in one run:
//
// 1. Flood: one producer thread pushes as fast as it can into a queue in
//    hold-back mode; one consumer takes whole batches. Two consumers: a
//    thread of its own sleeping in waitAndTake(), and a module's Qt worker
//    thread woken by a posted drain (the pattern of the example modules).
//    Delivered packets per second, checked lossless and in order, against
//    the pipeline framework's queue element measured in the same run with
//    the same bound (`gst-launch-1.0 fakesrc num-buffers=N ! queue
//    max-size-buffers=B ! fakesink`; 200 is the element's default), at two
//    lengths, so that the process start-up cancels out.
// 2. Paced: 10,000 packets per second in drop-oldest mode with a bound of
//    20 packets into the same two consumers, and for comparison into the
//    base class's queue (bufferPacketV, bound 20) drained by a polling
//    thread: drops and the hand-over latency (push to take) p50/p99/max.
//
//   vexa_bench_queue [--quick]

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <vector>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QProcess>
#include <QStandardPaths>
#include <QThread>

#include <Vexa>
#include <VexaObject>
#include <VexaPacketQueue>

using Clock = std::chrono::steady_clock;
using Packet = VexaObject::Packet;
using Queue = VexaPacketQueue;

static qint64 nowNs()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch()).count();
}

// A module that takes its packets in its own Qt thread, woken by a posted
// drain per batch.
class BenchSink : public VexaObject
{
public:
    BenchSink()
    {
        threadName = QStringLiteral("bench_queue_sink");
        queue.setWakeHandler([this] {
            QMetaObject::invokeMethod(this, [this] { drain(); }, Qt::QueuedConnection);
        });
    }
    void drain()
    {
        queue.take(&batch);
        const qint64 now = nowNs();
        for (const Packet &p : qAsConst(batch.video)) {
            inOrder &= p.altPts == expected;
            expected = p.altPts + 1;
            if (latencies)
                latencies->push_back(now - p.pts);
        }
        delivered.fetch_add(batch.video.size(), std::memory_order_release);
    }

    Queue queue{this};
    Queue::Batch batch;
    std::atomic<qint64> delivered{0};
    qint64 expected = 0;
    bool inOrder = true;
    std::vector<qint64> *latencies = nullptr;
};

struct Flood {
    double perSecond;
    bool lossless;
};

// Packets per second through a queue into a thread waiting in waitAndTake().
static Flood floodThread(qint64 packets, int bound)
{
    Queue q;
    q.setLimits(Queue::Video, {bound, -1, -1});
    qint64 delivered = 0;
    bool inOrder = true;
    QThread *consumer = QThread::create([&] {
        Queue::Batch b;
        while (q.waitAndTake(&b) || q.isOpen()) {
            for (const Packet &p : qAsConst(b.video))
                inOrder &= p.altPts == delivered++;
        }
    });
    consumer->start();
    Packet p;
    p.tag = 0;
    const qint64 t0 = nowNs();
    for (qint64 i = 0; i < packets; ++i) {
        p.altPts = i;
        q.push(p, Queue::Video);
    }
    q.close();
    consumer->wait();
    const qint64 t1 = nowNs();
    delete consumer;
    return {double(packets) * 1e9 / double(t1 - t0), inOrder && delivered == packets && q.dropped(Queue::Video) == 0};
}

// The same into a module's Qt thread.
static Flood floodModule(qint64 packets, int bound)
{
    auto *sink = new BenchSink;
    sink->start();
    sink->queue.setLimits(Queue::Video, {bound, -1, -1});
    Packet p;
    p.tag = 0;
    const qint64 t0 = nowNs();
    for (qint64 i = 0; i < packets; ++i) {
        p.altPts = i;
        sink->queue.push(p, Queue::Video);
    }
    while (sink->delivered.load(std::memory_order_acquire) < packets - sink->queue.dropped(Queue::Video))
        QThread::usleep(100);
    const qint64 t1 = nowNs();
    QMetaObject::invokeMethod(sink, [] {}, Qt::BlockingQueuedConnection);   // the last drain has returned
    const Flood f{double(packets) * 1e9 / double(t1 - t0),
                  sink->inOrder && sink->delivered.load() == packets && sink->queue.dropped(Queue::Video) == 0};
    sink->destroy();
    return f;
}

// Seconds `gst-launch-1.0` takes for @p buffers buffers through a queue; -1 when it cannot run.
static double gstSeconds(const QString &tool, qint64 buffers, int bound)
{
    QProcess proc;
    QElapsedTimer t;
    t.start();
    proc.start(tool, {QStringLiteral("-q"), QStringLiteral("fakesrc"), QStringLiteral("num-buffers=%1").arg(buffers),
                      QStringLiteral("!"), QStringLiteral("queue"), QStringLiteral("max-size-buffers=%1").arg(bound),
                      QStringLiteral("!"), QStringLiteral("fakesink")});
    if (!proc.waitForFinished(600000) || proc.exitStatus() != QProcess::NormalExit || proc.exitCode() != 0)
        return -1;
    return t.nsecsElapsed() / 1e9;
}

static qint64 percentile(std::vector<qint64> v, double q)
{
    if (v.empty())
        return 0;
    std::sort(v.begin(), v.end());
    return v[std::min(v.size() - 1, size_t(q * double(v.size())))];
}

// The base class's queue (bufferPacketV, bound 20 by default) drained by a
// thread that polls it, as modules did before VexaPacketQueue.
class BaseSink : public VexaObject
{
public:
    using VexaObject::takePacketsV;
};

struct Paced {
    qint64 dropped;
    std::vector<qint64> latencies;
};

// @p packets at 10,000 per second into a drop-oldest queue of 20, taken by
// a module's Qt thread (@p module) or a thread waiting in waitAndTake().
static Paced pacedBase(int packets)
{
    Paced result{0, {}};
    result.latencies.reserve(size_t(packets));
    auto *sink = new BaseSink;
    sink->start();
    std::atomic<bool> done{false};
    QThread *consumer = QThread::create([&] {
        for (;;) {
            const bool last = done.load(std::memory_order_acquire);
            const QList<Packet> batch = sink->takePacketsV();
            const qint64 now = nowNs();
            for (const Packet &p : batch)
                result.latencies.push_back(now - p.pts);
            if (last)
                break;
            if (batch.isEmpty())
                QThread::yieldCurrentThread();
        }
    });
    consumer->start();
    QThread::msleep(50);
    Packet p;
    p.tag = 0;
    timespec next;
    clock_gettime(CLOCK_MONOTONIC, &next);
    for (int i = 0; i < packets; ++i) {
        next.tv_nsec += 100000;
        if (next.tv_nsec >= 1000000000) {
            next.tv_nsec -= 1000000000;
            ++next.tv_sec;
        }
        clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &next, nullptr);
        p.pts = nowNs();
        if (!sink->bufferPacketV(p))
            ++result.dropped;
    }
    done.store(true, std::memory_order_release);
    consumer->wait();
    delete consumer;
    sink->destroy();
    return result;
}

static Paced pacedRun(int packets, bool module)
{
    Paced result{0, {}};
    result.latencies.reserve(size_t(packets));
    BenchSink *sink = nullptr;
    Queue own;
    Queue *q = &own;
    QThread *consumer = nullptr;
    if (module) {
        sink = new BenchSink;
        sink->latencies = &result.latencies;
        sink->start();
        q = &sink->queue;
    } else {
        consumer = QThread::create([&] {
            Queue::Batch b;
            while (own.waitAndTake(&b) || own.isOpen()) {
                const qint64 now = nowNs();
                for (const Packet &p : qAsConst(b.video))
                    result.latencies.push_back(now - p.pts);
            }
        });
        consumer->start();
    }
    q->setOverflow(Queue::DropOldest);
    q->setLimits(Queue::Video, {20, -1, -1});
    QThread::msleep(50);
    Packet p;
    p.tag = 0;
    timespec next;
    clock_gettime(CLOCK_MONOTONIC, &next);
    for (int i = 0; i < packets; ++i) {
        next.tv_nsec += 100000;
        if (next.tv_nsec >= 1000000000) {
            next.tv_nsec -= 1000000000;
            ++next.tv_sec;
        }
        clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &next, nullptr);
        p.altPts = i;
        p.pts = nowNs();
        q->push(p, Queue::Video);
    }
    result.dropped = q->dropped(Queue::Video);
    if (module) {
        while (sink->delivered.load(std::memory_order_acquire) < packets - result.dropped)
            QThread::usleep(100);
        QMetaObject::invokeMethod(sink, [] {}, Qt::BlockingQueuedConnection);
        sink->destroy();
    } else {
        own.close();
        consumer->wait();
        delete consumer;
    }
    return result;
}

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    Vexa::init(false);
    const bool quick = app.arguments().contains(QStringLiteral("--quick"));
    const qint64 flood = quick ? 200000 : 2000000;
    const int rounds = quick ? 1 : 3;

    std::printf("1. Flood, hold-back, one producer into one consumer (%lld packets)\n", static_cast<long long>(flood));
    const QString gst = QStandardPaths::findExecutable(QStringLiteral("gst-launch-1.0"));
    for (int r = 0; r < rounds; ++r) {
        for (int bound : {20, 200}) {
            const Flood t = floodThread(flood, bound);
            const Flood m = floodModule(flood, bound);
            std::printf("   bound %3d: consumer thread %.0f/s %s, module thread %.0f/s %s\n", bound,
                        t.perSecond, t.lossless ? "lossless" : "LOST OR REORDERED",
                        m.perSecond, m.lossless ? "lossless" : "LOST OR REORDERED");
            if (!gst.isEmpty()) {
                const double small = gstSeconds(gst, flood / 10, bound);
                const double big = gstSeconds(gst, flood, bound);
                if (small > 0 && big > small) {
                    const double rate = double(flood - flood / 10) / (big - small);
                    std::printf("              queue element, max-size-buffers=%d (start-up taken out): %.0f/s; ratio thread %.2f, module %.2f\n",
                                bound, rate, t.perSecond / rate, m.perSecond / rate);
                }
            }
        }
    }
    if (gst.isEmpty())
        std::printf("   gst-launch-1.0 not found (Debian package gstreamer1.0-tools): no comparison\n");

    const int paced = quick ? 5000 : 30000;
    std::printf("2. Paced 10,000 packets/s, drop-oldest, bound 20 (%d packets)\n", paced);
    for (int r = 0; r < rounds; ++r) {
        for (int variant = 0; variant < 3; ++variant) {
            const Paced p = variant < 2 ? pacedRun(paced, variant == 0) : pacedBase(paced);
            static const char *const names[] = {"module thread       ", "consumer thread     ", "base queue, polling "};
            std::printf("   %s: dropped %lld, p50 %.1f us, p99 %.1f us, max %.1f us\n", names[variant],
                        static_cast<long long>(p.dropped), percentile(p.latencies, 0.5) / 1e3,
                        percentile(p.latencies, 0.99) / 1e3, percentile(p.latencies, 1.0) / 1e3);
        }
    }
    return 0;
}
