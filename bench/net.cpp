// Live network benchmark (not a test); the figures are in net-results.md.
//
// 1. End-to-end latency over loopback TCP: VexaInputFile paces a 25 frames/s
//    clip (H.264 without B-frames and AAC, MPEG-TS) into VexaOutputNet,
//    which publishes it to tcp://127.0.0.1:<free port>; VexaInputNet in the
//    same process receives it. A tap beside the publisher and one after the
//    receiver stamp every video packet in their onNewPacketV; the n-th
//    packet sent is the n-th received (TCP, lossless "wait" setting).
//    Printed: p50, p99 and max of the difference.
// 2. CPU per received packet: the same clip published by `ffmpeg -re` over
//    TCP is received (a) by vexa-launch running VexaInputNet into
//    VexaPacketStats, (b) by `ffmpeg -i <url> -c copy -f null -`. Printed:
//    user + system CPU time of the receiving process (its rusage) per packet
//    of the stream, whole and marginal (start-up left out by also receiving
//    a 2 s stream), and the ratio. Target: within 1.10x.
//
//   vexa_bench_net [seconds] [path-to-vexa-launch]

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <vector>

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QMutex>
#include <QProcess>
#include <QSysInfo>
#include <QTemporaryDir>
#include <QThread>

#include <Vexa>
#include <VexaObject>

#include "vexaexamplemodules.h"

static qint64 nowNs()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch()).count();
}

// Stamps every video packet it receives, in the sender's thread.
class VexaBenchTap : public VexaObject
{
    Q_OBJECT
public:
    Q_INVOKABLE explicit VexaBenchTap(QObject *parent = nullptr)
        : VexaObject(parent)
    {
    }
    void onNewPacketV(Packet) override
    {
        QMutexLocker locker(&mutex);
        stamps.push_back(nowNs());
    }
    std::vector<qint64> taken()
    {
        QMutexLocker locker(&mutex);
        return stamps;
    }

private:
    QMutex mutex;
    std::vector<qint64> stamps;
};

static int freePort()
{
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof(a);
    int port = -1;
    if (::bind(fd, reinterpret_cast<sockaddr *>(&a), sizeof(a)) == 0
            && ::getsockname(fd, reinterpret_cast<sockaddr *>(&a), &len) == 0)
        port = ntohs(a.sin_port);
    ::close(fd);
    return port;
}

static bool ffmpeg(const QStringList &args)
{
    QProcess p;
    p.start("ffmpeg", QStringList{"-hide_banner", "-nostdin", "-loglevel", "error", "-y"} + args);
    return p.waitForFinished(300000) && p.exitCode() == 0;
}

static void pump(const std::function<bool()> &done, int timeoutMs)
{
    QElapsedTimer t;
    t.start();
    while (!done() && t.elapsed() < timeoutMs) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QThread::msleep(5);
    }
}

static qint64 percentile(std::vector<qint64> v, double p)
{
    std::sort(v.begin(), v.end());
    return v.empty() ? 0 : v[std::min(v.size() - 1, size_t(p * double(v.size() - 1) + 0.5))];
}

// CPU seconds (user + system) of a receiving command, from its rusage.
static double receiveCpu(const QString &clip, const QStringList &receiver, int port)
{
    QProcess publisher;
    publisher.start("ffmpeg", {"-hide_banner", "-nostdin", "-loglevel", "error", "-re", "-i", clip, "-c", "copy",
                               "-f", "mpegts", QStringLiteral("tcp://127.0.0.1:%1?listen=1").arg(port)});
    publisher.waitForStarted();
    QThread::msleep(500);
    std::vector<QByteArray> args;
    for (const QString &a : receiver)
        args.push_back(a.toLocal8Bit());
    std::vector<char *> argv;
    for (QByteArray &a : args)
        argv.push_back(a.data());
    argv.push_back(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        const int null = ::open("/dev/null", O_WRONLY);
        dup2(null, 1);
        dup2(null, 2);
        execvp(argv[0], argv.data());
        _exit(127);
    }
    int status = 0;
    rusage ru{};
    wait4(pid, &status, 0, &ru);
    publisher.waitForFinished(30000);
    return double(ru.ru_utime.tv_sec + ru.ru_stime.tv_sec) + double(ru.ru_utime.tv_usec + ru.ru_stime.tv_usec) / 1e6;
}

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const int seconds = argc > 1 ? atoi(argv[1]) : 30;
    const QString launcher = argc > 2 ? QString::fromLocal8Bit(argv[2]) : QStringLiteral("tools/vexa-launch");
    QTemporaryDir dir;
    const QString clip = dir.filePath("clip.ts");
    if (!ffmpeg({"-f", "lavfi", "-i", "testsrc=size=640x360:rate=25", "-f", "lavfi", "-i", "sine=sample_rate=48000",
                 "-t", QString::number(seconds), "-c:v", "libx264", "-preset", "veryfast", "-bf", "0", "-g", "50",
                 "-pix_fmt", "yuv420p", "-c:a", "aac", "-b:a", "96k", "-shortest", "-muxdelay", "0", clip})
            || !ffmpeg({"-i", clip, "-t", "2", "-c", "copy", "-muxdelay", "0", dir.filePath("short.ts")})) {
        fprintf(stderr, "cannot make the clip with ffmpeg\n");
        return 1;
    }
    const auto countPackets = [](const QString &path) {
        QProcess count;
        count.start("ffprobe", {"-v", "error", "-count_packets", "-show_entries", "stream=nb_read_packets", "-of", "csv=p=0", path});
        count.waitForFinished();
        qint64 n = 0;
        for (const QByteArray &l : count.readAllStandardOutput().split('\n'))
            n += l.trimmed().toLongLong();
        return n;
    };
    const qint64 packets = countPackets(clip);
    const qint64 shortPackets = countPackets(dir.filePath("short.ts"));

    printf("machine: %s, %s, %d cores\n", qPrintable(QSysInfo::prettyProductName()), qPrintable(QSysInfo::currentCpuArchitecture()),
           QThread::idealThreadCount());
    printf("stream: %d s at 25 frames/s, 640x360 H.264 + AAC in MPEG-TS, %lld packets\n", seconds, static_cast<long long>(packets));

    // 1. Latency.
    Vexa::init(false);
    vexaRegisterExampleModules();
    qRegisterMetaType<VexaBenchTap *>("VexaBenchTap");
    const int port = freePort();
    const QString url = QStringLiteral("tcp://127.0.0.1:%1").arg(port);
    VexaObject *file = Vexa::create("InputFile", "file");
    VexaObject *out = Vexa::create("OutputNet", "publish");
    auto *sent = static_cast<VexaBenchTap *>(Vexa::create("BenchTap", "sent"));
    VexaObject *in = Vexa::create("InputNet", "receive");
    auto *received = static_cast<VexaBenchTap *>(Vexa::create("BenchTap", "received"));
    Vexa::linkV(in, received);
    Vexa::linkA(file, out);
    Vexa::linkV(file, out);
    Vexa::linkV(file, sent);
    received->start();
    in->start(QVariantMap{{"url", url}, {"listen", true}, {"reconnect", false}, {"openTimeout", 30}});
    QThread::msleep(300);
    sent->start();
    out->start(QVariantMap{{"url", url}, {"overflow", "wait"}});
    file->start(QVariantMap{{"path", clip}, {"realtime", true}});
    pump([&] { return file->getState() != QLatin1String("started") || sent->taken().size() >= size_t(seconds * 25 - 1); },
         (seconds + 30) * 1000);
    pump([&] { return received->taken().size() >= sent->taken().size(); }, 10000);
    file->stop(true);
    out->stop(true);
    pump([&] { return false; }, 500);
    const std::vector<qint64> a = sent->taken();
    const std::vector<qint64> b = received->taken();
    std::vector<qint64> lat;
    std::vector<qint64> steady;
    const size_t n = std::min(a.size(), b.size());
    for (size_t i = 0; i < n; ++i) {
        lat.push_back(b[i] - a[i]);
        // Past the first 2 s (the receiver reads the stream parameters from
        // the first packets and then hands them on at once) and before the
        // last packet (the demuxer completes a PES packet when the next one
        // starts, or at the end of the stream).
        if (i >= 50 && i + 1 < n)
            steady.push_back(b[i] - a[i]);
    }
    printf("\n1. latency, publisher's onNewPacketV to receiver's onNewPacketV, loopback TCP, %zu of %zu video packets:\n",
           b.size(), a.size());
    printf("   all packets:   p50 %.2f ms   p99 %.2f ms   max %.2f ms\n", percentile(lat, 0.5) / 1e6,
           percentile(lat, 0.99) / 1e6, lat.empty() ? 0.0 : *std::max_element(lat.begin(), lat.end()) / 1e6);
    printf("   steady state:  p50 %.2f ms   p99 %.2f ms   max %.2f ms\n", percentile(steady, 0.5) / 1e6,
           percentile(steady, 0.99) / 1e6, steady.empty() ? 0.0 : *std::max_element(steady.begin(), steady.end()) / 1e6);
    in->stop(true);
    for (VexaObject *o : std::initializer_list<VexaObject *>{file, out, sent, in, received})
        o->destroy();
    pump([&] { return false; }, 300);

    // 2. CPU per received packet.
    const QString pipeline = dir.filePath("receive.json");
    QFile f(pipeline);
    f.open(QIODevice::WriteOnly);
    f.write(QStringLiteral(R"({"modules": [{"class": "InputNet", "name": "in", "settings": {"url": "tcp://127.0.0.1:@P@", "reconnect": false}},)"
                           R"( {"class": "PacketStats", "name": "s", "settings": {"interval": 0}}],)"
                           R"( "links": [{"from": "in", "to": "s", "kind": "AV"}]})").toUtf8());
    f.close();
    printf("\n2. CPU per received packet (user + system of the receiving process), 3 runs each;\n"
           "   marginal: (CPU of the %d s stream - CPU of a 2 s stream) / (packets - packets), which leaves out start-up\n",
           seconds);
    double least[2][2] = {{1e9, 1e9}, {1e9, 1e9}};   // [receiver][long, short]
    for (int run = 0; run < 3; ++run) {
        for (int k = 0; k < 2; ++k) {
            for (int len = 0; len < 2; ++len) {
                const int p = freePort();
                QStringList cmd;
                if (k == 0) {
                    QFile pf(pipeline);
                    pf.open(QIODevice::ReadOnly);
                    QByteArray text = pf.readAll();
                    pf.close();
                    const QString perRun = dir.filePath(QStringLiteral("receive-%1.json").arg(p));
                    QFile w(perRun);
                    w.open(QIODevice::WriteOnly);
                    w.write(text.replace("@P@", QByteArray::number(p)));
                    w.close();
                    cmd = QStringList{launcher, perRun, "--quiet", "--no-platform"};
                } else {
                    cmd = QStringList{"ffmpeg", "-hide_banner", "-nostdin", "-loglevel", "error", "-i",
                                      QStringLiteral("tcp://127.0.0.1:%1").arg(p), "-c", "copy", "-f", "null", "-"};
                }
                const double cpu = receiveCpu(len == 0 ? clip : dir.filePath("short.ts"), cmd, p);
                least[k][len] = std::min(least[k][len], cpu);
                printf("   %-9s run %d, %2d s stream: %.3f s CPU\n", k == 0 ? "InputNet" : "ffmpeg", run + 1,
                       len == 0 ? seconds : 2, cpu);
            }
        }
    }
    double per[2];
    for (int k = 0; k < 2; ++k) {
        per[k] = (least[k][0] - least[k][1]) * 1e6 / double(packets - shortPackets);
        printf("   %-9s least: %.3f s (%d s), %.3f s (2 s); whole run %.1f us per packet, marginal %.1f us per packet\n",
               k == 0 ? "InputNet" : "ffmpeg", least[k][0], seconds, least[k][1], least[k][0] * 1e6 / double(packets), per[k]);
    }
    printf("   ratio InputNet / ffmpeg: whole run %.2fx, marginal %.2fx\n", least[0][0] / least[1][0], per[0] / per[1]);
    return 0;
}

#include "net.moc"
