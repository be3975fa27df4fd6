#ifndef NETPEER_H
#define NETPEER_H

// The far end of the network tests: free loopback ports, an `ffmpeg` peer
// that publishes or receives, small socket peers that misbehave (silent,
// garbage, never reading), a plain HTTP file server and nginx as an RTMP
// server. Everything stays on 127.0.0.1.

#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QString>
#include <QStringList>
#include <QtTest>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <vector>
#include <thread>

namespace NetPeer {

// Scales waits and clip lengths under an emulator, where everything of ours
// runs many times slower than the ffmpeg peer.
inline int scaled(int ms)
{
#ifdef VEXA_TEST_EMULATOR
    return ms * 8;
#else
    return ms;
#endif
}

// A port that was free a moment ago: bound to 127.0.0.1:0, then released.
inline int freePort(bool udp = false)
{
    const int fd = ::socket(AF_INET, udp ? SOCK_DGRAM : SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    a.sin_port = 0;
    socklen_t len = sizeof(a);
    int port = -1;
    if (fd >= 0 && ::bind(fd, reinterpret_cast<sockaddr *>(&a), sizeof(a)) == 0
            && ::getsockname(fd, reinterpret_cast<sockaddr *>(&a), &len) == 0)
        port = ntohs(a.sin_port);
    if (fd >= 0)
        ::close(fd);
    return port;
}

// Sockets on this machine bound to the local @p port: TCP ones in the
// kernel's @p state ("0A" listening, "01" established), any UDP one. Read
// from the kernel's socket tables, so that no probing connection is taken
// for the peer.
inline int sockets(int port, bool udp, const char *state = "0A")
{
    QFile f(QString::fromLatin1(udp ? "/proc/net/udp" : "/proc/net/tcp"));
    if (!f.open(QIODevice::ReadOnly))
        return 0;
    const QString want = QStringLiteral(":%1").arg(port, 4, 16, QLatin1Char('0')).toUpper();
    int n = 0;
    for (const QByteArray &line : f.readAll().split('\n')) {
        const QStringList cols = QString::fromLatin1(line).simplified().split(QLatin1Char(' '));
        if (cols.size() > 3 && cols.at(1).endsWith(want) && (udp || cols.at(3) == QLatin1String(state)))
            ++n;
    }
    return n;
}

// True once something on this machine listens on the TCP port (or has the
// UDP port bound).
inline bool bound(int port, bool udp)
{
    return sockets(port, udp) > 0;
}

inline bool waitBound(int port, bool udp, int timeoutMs = 20000)
{
    return QTest::qWaitFor([&] { return bound(port, udp); }, scaled(timeoutMs));
}

// An ffmpeg process that is killed when it goes out of scope.
class Ffmpeg
{
public:
    ~Ffmpeg() { stop(); }
    void start(const QStringList &args)
    {
        proc.start(QStringLiteral("ffmpeg"), QStringList{"-hide_banner", "-nostdin", "-loglevel", "error", "-y"} + args);
        proc.waitForStarted(10000);
    }
    // Waits for the end by itself; false (and killed) when it did not end in time.
    bool wait(int timeoutMs)
    {
        if (proc.state() == QProcess::NotRunning)
            return true;
        if (proc.waitForFinished(scaled(timeoutMs)))
            return true;
        stop();
        return false;
    }
    void stop()
    {
        if (proc.state() != QProcess::NotRunning) {
            proc.kill();
            proc.waitForFinished(10000);
        }
    }
    QString errors() { return QString::fromLocal8Bit(proc.readAllStandardError()); }
    QProcess proc;
};

// A TCP socket listening on a free port of 127.0.0.1 and a thread that
// hands @p serve each connection it accepts, and runs @p idle when none came
// within @p sliceUs; both end when the object goes out of scope, and so do
// the connections kept in clients.
class Listener
{
public:
    Listener(int receiveBuffer, long sliceUs, std::function<void(int)> serve, std::function<void()> idle = {})
    {
        fd = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t len = sizeof(a);
        if (receiveBuffer > 0)
            ::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof(receiveBuffer));
        if (::bind(fd, reinterpret_cast<sockaddr *>(&a), sizeof(a)) != 0 || ::listen(fd, 4) != 0
                || ::getsockname(fd, reinterpret_cast<sockaddr *>(&a), &len) != 0)
            return;
        port = ntohs(a.sin_port);
        worker = std::thread([this, sliceUs, serve, idle] {
            while (!done.load()) {
                timeval tv{0, sliceUs};
                fd_set set;
                FD_ZERO(&set);
                FD_SET(fd, &set);
                if (::select(fd + 1, &set, nullptr, nullptr, &tv) <= 0) {
                    if (idle)
                        idle();
                    continue;
                }
                const int c = ::accept(fd, nullptr, nullptr);
                if (c >= 0)
                    serve(c);
            }
        });
    }
    ~Listener()
    {
        done.store(true);
        if (worker.joinable())
            worker.join();
        for (int c : clients)
            ::close(c);
        if (fd >= 0)
            ::close(fd);
    }
    int port = -1;
    std::atomic<bool> done{false};
    std::vector<int> clients;   // the worker's, then the destructor's

private:
    int fd = -1;
    std::thread worker;
};

// A TCP peer on a free port that accepts one connection and then either
// sends garbage, stays silent, or never reads what it is sent; it ends when
// the object goes out of scope.
class SocketPeer
{
public:
    // Garbage: sends 256 KiB of noise and hangs up; Silent: neither sends
    // nor reads; Slow: reads 16 KiB every 20 ms or so. The receive buffer is
    // small: a peer that never reads fills it soon.
    enum Mode { Garbage, Silent, Slow };
    explicit SocketPeer(Mode mode)
        : listener(4096, mode == Slow ? 20000 : 100000, [this, mode](int c) {
              listener.clients.push_back(c);
              if (mode != Garbage)
                  return;
              char junk[4096];
              for (size_t i = 0; i < sizeof(junk); ++i)
                  junk[i] = char((i * 7919u + 13u) % 251u);
              for (int n = 0; n < 64 && !listener.done.load(); ++n)
                  if (::send(c, junk, sizeof(junk), MSG_NOSIGNAL) < 0)
                      break;
              ::shutdown(c, SHUT_RDWR);
          }, [this, mode] {
              char buf[16384];
              for (int c : mode == Slow ? listener.clients : std::vector<int>())
                  ::recv(c, buf, sizeof(buf), MSG_DONTWAIT);
          })
    {
    }
    Listener listener;
    const int port = listener.port;
};

// An HTTP server on a free port that answers every request with one file,
// with its length, as a plain web server serves a recording; counts the
// requests it answered.
class HttpFilePeer
{
public:
    explicit HttpFilePeer(const QByteArray &body)
        : listener(0, 100000, [this, body](int c) {
              char request[4096];
              ::recv(c, request, sizeof(request), 0);
              const QByteArray reply = "HTTP/1.0 200 OK\r\nContent-Type: video/mp4\r\nContent-Length: "
                  + QByteArray::number(body.size()) + "\r\nConnection: close\r\n\r\n" + body;
              for (qint64 sent = 0; sent < reply.size() && !listener.done.load();) {
                  const ssize_t n = ::send(c, reply.constData() + sent, size_t(reply.size() - sent), MSG_NOSIGNAL);
                  if (n <= 0)
                      break;
                  sent += n;
              }
              ::close(c);
              ++requests;
          })
    {
    }
    std::atomic<int> requests{0};   // before the listener: its thread counts here until it ends
    Listener listener;
    const int port = listener.port;
};

// nginx with its RTMP module as a media server of its own: a configuration
// and prefix in @p dir, one application "live" on a free port of
// 127.0.0.1, in the foreground, killed when the object goes out of scope.
// Empty program() when nginx or the module is not installed.
class NginxRtmp
{
public:
    static QString program() { return QStandardPaths::findExecutable(QStringLiteral("nginx"), {"/usr/sbin", "/usr/bin"}); }
    static QString module() { return QStringLiteral("/usr/lib/nginx/modules/ngx_rtmp_module.so"); }
    static bool available() { return !program().isEmpty() && QFile::exists(module()); }

    ~NginxRtmp()
    {
        if (proc.state() != QProcess::NotRunning) {
            proc.kill();
            proc.waitForFinished(10000);
        }
    }
    // True once the server listens.
    bool start(const QString &dir)
    {
        port = freePort();
        const QString conf = dir + QStringLiteral("/nginx.conf");
        QFile f(conf);
        if (port <= 0 || !f.open(QIODevice::WriteOnly | QIODevice::Truncate))
            return false;
        f.write(QStringLiteral("daemon off;\nmaster_process off;\nworker_processes 1;\npid %1/nginx.pid;\n"
                               "error_log %1/error.log info;\nload_module %2;\nevents { worker_connections 64; }\n"
                               "rtmp { server { listen 127.0.0.1:%3; application live { live on; record off; } } }\n")
                    .arg(dir, module()).arg(port).toUtf8());
        f.close();
        proc.start(program(), {"-p", dir, "-e", dir + QStringLiteral("/error.log"), "-c", conf});
        return proc.waitForStarted(10000) && waitBound(port, false);
    }
    QString errors() const
    {
        QFile f(proc.workingDirectory() + QStringLiteral("/error.log"));
        return f.open(QIODevice::ReadOnly) ? QString::fromUtf8(f.readAll()) : QString();
    }
    int port = -1;
    QProcess proc;
};

} // namespace NetPeer

#endif // NETPEER_H
