#include "launcher.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QMetaObject>
#include <QProcess>
#include <QSocketNotifier>
#include <QStandardPaths>
#include <QTextStream>
#include <QThread>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <memory>
#include <thread>

#include <fcntl.h>
#include <unistd.h>

#include "vexa.h"
#include "vexaobject.h"
#include "vexamodulecatalog.h"

#if __has_include(<vexahi.h>)
#include <vexahi.h>
#define VEXA_LAUNCH_HAVE_MMZ 1
#endif

namespace {

// The signal handler only writes the signal's number into signalPipe; the
// signal watcher thread reads it there and hands the first signal to the
// launcher's event loop through interruptPipe.
int signalPipe[2] = {-1, -1};
int interruptPipe[2] = {-1, -1};

// Signals counted by the watcher, from which the third ends the process.
constexpr int signalsToEndAtOnce = 3;

void releaseMediaMemory()
{
#ifdef VEXA_LAUNCH_HAVE_MMZ
    VexaHi::mmzClear();
#endif
}

// Does only what is safe in a signal handler: one write() into a pipe whose
// writing end never blocks, errno left as it was.
void onInterrupt(int sig)
{
    const int savedErrno = errno;
    const char byte = char(sig);
    const ssize_t n = write(signalPipe[1], &byte, 1);
    (void)n;
    errno = savedErrno;
}

const char *signalName(int sig)
{
    switch (sig) {
    case SIGINT: return "SIGINT";
    case SIGTERM: return "SIGTERM";
    case SIGHUP: return "SIGHUP";
    default: return "signal";
    }
}

// The signal watcher thread. The first signal asks for an orderly stop: every
// output finishes its file. A second one during that stop changes nothing but
// says how to end at once; the third ends the process at once, even when the
// stop itself is stuck, and the outputs may then be incomplete.
void watchSignals()
{
    int count = 0;
    for (;;) {
        char byte = 0;
        const ssize_t n = read(signalPipe[0], &byte, 1);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return;
        const int sig = byte;
        ++count;
        if (count == 1) {
            const ssize_t w = write(interruptPipe[1], &byte, 1);
            (void)w;
        } else if (count < signalsToEndAtOnce) {
            fprintf(stderr, "vexa-launch: %s again: still stopping in order so that the outputs are complete; "
                            "signal once more to end at once\n", signalName(sig));
            fflush(stderr);
        } else {
            fprintf(stderr, "vexa-launch: %s again: ending at once, outputs may be incomplete\n", signalName(sig));
            fflush(stderr);
            releaseMediaMemory();
            _exit(ExitSignal + sig);
        }
    }
}

QString signalText(int sig)
{
    switch (sig) {
    case SIGINT: return QStringLiteral("interrupted");
    case SIGTERM: return QStringLiteral("interrupted by SIGTERM");
    case SIGHUP: return QStringLiteral("interrupted by SIGHUP");
    default: return QStringLiteral("interrupted by signal %1").arg(sig);
    }
}

QString dotQuoted(const QString &s)
{
    QString r = s;
    r.replace(QLatin1Char('\\'), QLatin1String("\\\\"));
    r.replace(QLatin1Char('"'), QLatin1String("\\\""));
    r.replace(QLatin1Char('\n'), QLatin1String("\\n"));
    return QLatin1Char('"') + r + QLatin1Char('"');
}

qint64 packetsIn(const QVariantMap &s)
{
    return s.value("packetsA").toLongLong() + s.value("packetsV").toLongLong();
}

// "00:01:02.34", as ffmpeg's time=.
QString mediaTimeText(qint64 us)
{
    const qint64 cs = qMax<qint64>(0, us) / 10000;
    return QStringLiteral("%1:%2:%3.%4").arg(cs / 360000, 2, 10, QLatin1Char('0')).arg(cs / 6000 % 60, 2, 10, QLatin1Char('0'))
        .arg(cs / 100 % 60, 2, 10, QLatin1Char('0')).arg(cs % 100, 2, 10, QLatin1Char('0'));
}

QString speedText(qint64 mediaUs, qint64 wallMs)
{
    if (wallMs <= 0)
        return QStringLiteral("N/A");
    return QStringLiteral("%1x").arg(mediaUs / 1000.0 / wallMs, 0, 'f', mediaUs / 1000.0 / wallMs < 10 ? 2 : 1);
}

} // namespace

Launcher::Launcher(const Pipeline &p, const LaunchOptions &o, QObject *parent)
    : QObject(parent), pipeline(p), options(o)
{
    tty = isatty(fileno(stderr));
    progressTimer.setInterval(qMax(100, options.interval));
    connect(&progressTimer, &QTimer::timeout, this, [this] { showProgress(false); });
    durationTimer.setSingleShot(true);
    connect(&durationTimer, &QTimer::timeout, this, [this] {
        shutdown(ExitOk, QStringLiteral("duration reached"));
    });
    if (interruptPipe[0] >= 0) {
        interruptNotifier = new QSocketNotifier(interruptPipe[0], QSocketNotifier::Read, this);
        connect(interruptNotifier, &QSocketNotifier::activated, this, [this] {
            char buf[16];
            int sig = 0;
            ssize_t n;
            while ((n = read(interruptPipe[0], buf, sizeof(buf))) > 0) {
                if (!sig)
                    sig = buf[0];
            }
            if (!sig)
                return;
            shutdown(ExitSignal + sig, signalText(sig));
        });
    }
}

bool Launcher::installInterruptHandler()
{
    // The handler's end never blocks (a full pipe loses a signal, never the
    // process); the watcher's end blocks, so that the watcher sleeps.
    if (pipe2(signalPipe, O_CLOEXEC) != 0 || pipe2(interruptPipe, O_CLOEXEC | O_NONBLOCK) != 0
        || fcntl(signalPipe[1], F_SETFL, O_NONBLOCK) != 0)
        return false;
    // Lives as long as the process; nothing waits for it at exit.
    std::thread(watchSignals).detach();
    struct sigaction sa = {};
    sa.sa_handler = onInterrupt;
    sigemptyset(&sa.sa_mask);
    sa.sa_flags = SA_RESTART;
    return sigaction(SIGINT, &sa, nullptr) == 0 && sigaction(SIGTERM, &sa, nullptr) == 0
        && sigaction(SIGHUP, &sa, nullptr) == 0;
}

void Launcher::message(const QString &text, bool error)
{
    if (options.silent || (options.quiet && !error))
        return;
    if (progressShown && tty)
        fputs("\r\033[K", stderr);
    fprintf(stderr, "vexa-launch: %s\n", qPrintable(text));
    fflush(stderr);
}

bool Launcher::start()
{
    for (const PipelineModule &m : qAsConst(pipeline.modules)) {
        VexaObject *obj = Vexa::create(m.className, m.name);
        if (!obj || obj->name() != m.name) {
            message(QStringLiteral("cannot create module \"%1\" of class %2").arg(m.name, m.className), true);
            code = ExitBadPipeline;
            return false;
        }
        objects << obj;
        if (!m.thread.isEmpty())
            obj->setThreadName(m.thread);
        obj->setData(m.settings);
        const QString name = m.name;
        connect(obj, &VexaObject::newEvent, this, [this, name](QString type, QVariant value) {
            onModuleEvent(name, type, value);
        }, Qt::QueuedConnection);
    }
    for (const PipelineLink &l : qAsConst(pipeline.links)) {
        VexaObject *src = objects.at(pipeline.indexOf(l.from));
        VexaObject *dst = objects.at(pipeline.indexOf(l.to));
        if (l.kind == QLatin1Char('A'))
            Vexa::linkA(src, dst);
        else if (l.kind == QLatin1Char('V'))
            Vexa::linkV(src, dst);
        else
            Vexa::linkE(src, dst);
    }
    for (int i : pipeline.sources())
        sourcesLeft.insert(i);

    // Receivers first, so that nothing a source sends finds its receiver not started.
    const QList<int> order = pipeline.upstreamOrder();
    for (auto it = order.crbegin(); it != order.crend(); ++it)
        objects.at(*it)->start();

    clock.start();
    message(QStringLiteral("running %1 modules (Ctrl-C to stop)").arg(objects.size()));
    if (!options.quiet)
        progressTimer.start();
    if (options.duration > 0)
        durationTimer.start(int(options.duration * 1000));
    if (!options.graph.isEmpty())
        graphNow();
    return true;
}

void Launcher::onModuleEvent(const QString &module, const QString &type, const QVariant &value)
{
    if (stopping) {
        // A module that fails while stopping (an output that cannot finish
        // its file) still fails the run.
        if (type == QLatin1String("error")) {
            message(QStringLiteral("error: %1: %2").arg(module, value.toString()), true);
            if (code == ExitOk || code > ExitSignal)
                code = ExitModuleError;
        }
        return;
    }
    const int i = pipeline.indexOf(module);
    if (type == QLatin1String("error")) {
        shutdown(ExitModuleError, QStringLiteral("%1: %2").arg(module, value.toString()));
        return;
    }
    if (type == QLatin1String("eos") && sourcesLeft.remove(i) && sourcesLeft.isEmpty())
        shutdown(ExitOk, QString());
}

QVariantMap Launcher::statsOf(VexaObject *obj, bool running)
{
    if (!obj || obj->metaObject()->indexOfMethod("stats()") < 0)
        return {};
    if (running)
        return obj->invoke(QStringLiteral("stats")).toMap();
    // Stopped modules refuse invoke(); their counters no longer move.
    QVariant result;
    QMetaObject::invokeMethod(obj, "stats", Qt::DirectConnection, Q_RETURN_ARG(QVariant, result));
    return result.toMap();
}

void Launcher::showProgress(bool last)
{
    const qint64 now = clock.elapsed();
    const double span = qMax<qint64>(1, now - lastTick) / 1000.0;
    QStringList parts;
    qint64 media = -1;
    for (int i = 0; i < objects.size(); ++i) {
        const QVariantMap s = statsOf(objects.at(i), !last);
        if (s.isEmpty())
            continue;
        if (s.contains("mediaUs"))
            media = media < 0 ? s.value("mediaUs").toLongLong() : qMin(media, s.value("mediaUs").toLongLong());
        const qint64 packets = packetsIn(s);
        const qint64 rate = qint64((packets - lastPackets.value(i)) / span + 0.5);
        lastPackets[i] = packets;
        QString part = QStringLiteral("%1 %2 pkt/s").arg(pipeline.modules.at(i).name).arg(static_cast<long long>(rate));
        const qint64 dropped = s.value("dropped").toLongLong();
        part += QStringLiteral(" drop %1").arg(static_cast<long long>(dropped));
        parts << part;
    }
    lastTick = now;
    // The media time that has gone all the way through: the least of the
    // modules' (an output's lags its source's).
    if (media >= 0)
        parts.prepend(QStringLiteral("time=%1 speed=%2").arg(mediaTimeText(media), speedText(media, now)));
    const QString line = QStringLiteral("[%1s] %2").arg(now / 1000.0, 0, 'f', 1).arg(parts.join(QLatin1String(" | ")));
    if (tty) {
        fprintf(stderr, "\r\033[K%s", qPrintable(line));
        progressShown = true;
    } else {
        fprintf(stderr, "%s\n", qPrintable(line));
    }
    fflush(stderr);
}

void Launcher::graphNow()
{
    QHash<QString, QString> states;
    QHash<QString, QVariantMap> stats;
    for (int i = 0; i < objects.size(); ++i) {
        states.insert(pipeline.modules.at(i).name, objects.at(i)->getState());
        stats.insert(pipeline.modules.at(i).name, statsOf(objects.at(i), !stopping));
    }
    QString msg;
    if (!writeGraph(pipeline, options.graph, states, stats, &msg))
        message(msg, true);
}

void Launcher::shutdown(int exitCode, const QString &why)
{
    if (stopping)
        return;
    stopping = true;
    code = exitCode;
    progressTimer.stop();
    durationTimer.stop();
    if (progressShown && tty)
        fputs("\n", stderr);
    progressShown = false;
    if (!why.isEmpty()) {
        const bool error = exitCode != ExitOk && exitCode < ExitSignal;
        message(error ? QStringLiteral("error: ") + why : why, error);
    }

    // Upstream first: a receiver stops after everything sent to it has arrived,
    // and writes what it queued before its onStop returns.
    const QList<int> order = pipeline.upstreamOrder();
    for (int i : order) {
        VexaObject *obj = objects.at(i);
        if (obj->getState() == QLatin1String("started"))
            obj->stop(true);
    }
    // Events sent while stopping ("done", last "stats", late "error") are still
    // delivered, before the summary and the exit status.
    deliverModuleEvents();

    // Summary table.
    QTextStream out(stdout);
    const QString header = QStringLiteral("%1 %2 %3 %4 %5 %6 %7")
            .arg(QStringLiteral("module"), -16).arg(QStringLiteral("class"), -16).arg(QStringLiteral("state"), -8)
            .arg(QStringLiteral("packets A"), 10).arg(QStringLiteral("packets V"), 10)
            .arg(QStringLiteral("bytes"), 12).arg(QStringLiteral("dropped"), 8);
    out << header << '\n';
    for (int i = 0; i < objects.size(); ++i) {
        VexaObject *obj = objects.at(i);
        const QVariantMap s = statsOf(obj, false);
        auto num = [&s](const char *key, int width) {
            return s.contains(key) ? QString::number(s.value(key).toLongLong()).rightJustified(width)
                                   : QStringLiteral("-").rightJustified(width);
        };
        const QString bytes = s.isEmpty() ? QStringLiteral("-")
                                          : QString::number(s.value("bytesA").toLongLong() + s.value("bytesV").toLongLong());
        out << QStringLiteral("%1 %2 %3 ").arg(pipeline.modules.at(i).name, -16)
                   .arg(VexaModuleCatalog::shortName(QString::fromLatin1(obj->metaObject()->className())), -16)
                   .arg(obj->getState(), -8)
            << num("packetsA", 10) << ' ' << num("packetsV", 10) << ' ' << bytes.rightJustified(12) << ' '
            << num("dropped", 8) << '\n';
    }
    // Media time, speed and packet rate of the whole run, as the last line.
    const qint64 wallMs = qMax<qint64>(1, clock.elapsed());
    qint64 media = -1;
    qint64 packets = 0;
    for (VexaObject *obj : qAsConst(objects)) {
        const QVariantMap s = statsOf(obj, false);
        if (s.contains("mediaUs"))
            media = media < 0 ? s.value("mediaUs").toLongLong() : qMin(media, s.value("mediaUs").toLongLong());
        packets = qMax(packets, packetsIn(s));
    }
    out << QStringLiteral("time=%1 speed=%2 in %3 s, %4 pkt/s")
               .arg(mediaTimeText(qMax<qint64>(0, media)), media < 0 ? QStringLiteral("N/A") : speedText(media, wallMs))
               .arg(wallMs / 1000.0, 0, 'f', 3).arg(qint64(packets * 1000.0 / wallMs + 0.5))
        << '\n';
    out.flush();
    // Losing data matters more than how the run ended; a module error is
    // reported as such.
    if (reportLosses() && code != ExitModuleError)
        code = ExitDataLost;
    if (!options.graph.isEmpty())
        graphNow();

    // Destroy in the same order and wait until the objects are gone, so that
    // nothing runs in a worker thread while the process exits.
    // Counted down in the modules' threads, possibly after a timeout here.
    auto alive = std::make_shared<QAtomicInt>(objects.size());
    for (VexaObject *obj : qAsConst(objects))
        connect(obj, &QObject::destroyed, this, [alive] { alive->deref(); }, Qt::DirectConnection);
    // destroy() gives back the worker threads the modules' starts took.
    for (int i : order)
        objects.at(i)->destroy();
    QElapsedTimer wait;
    wait.start();
    // Normally milliseconds; the bound only keeps a module that never goes
    // from holding the exit up for good (an emulator on a loaded machine
    // can take seconds).
    while (alive->loadAcquire() > 0 && wait.elapsed() < 30000) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QThread::msleep(1);
    }
    // An error sent while the modules went away still decides the status.
    deliverModuleEvents();
    objects.clear();
    releaseMediaMemory();
    emit finished(code);
}

// The shutdown usually runs inside an event handler of the launcher's own (a
// module's "eos" or "error"), where a nested processEvents() does not reliably
// deliver the events posted to the launcher meanwhile: they are sent here.
void Launcher::deliverModuleEvents()
{
    QCoreApplication::processEvents();
    QCoreApplication::sendPostedEvents(this, QEvent::MetaCall);
}

bool Launcher::reportLosses()
{
    bool any = false;
    for (int i = 0; i < objects.size(); ++i) {
        const QVariantMap s = statsOf(objects.at(i), false);
        const qint64 dropped = s.value("dropped").toLongLong();
        const qint64 rejected = s.value("rejected").toLongLong();
        // A module told to drop (a live source's output) may drop; what the
        // muxer refused is lost either way.
        const qint64 lost = s.value("dropping").toBool() ? rejected : dropped;
        if (lost <= 0) {
            if (dropped > 0)
                message(QStringLiteral("%1 dropped %2 packets, as its settings allow").arg(pipeline.modules.at(i).name).arg(dropped));
            continue;
        }
        any = true;
        QString detail;
        if (s.contains("droppedA") || s.contains("droppedV"))
            detail = QStringLiteral("%1 audio, %2 video").arg(s.value("droppedA").toLongLong()).arg(s.value("droppedV").toLongLong());
        if (rejected > 0)
            detail += QStringLiteral("%1%2 rejected by the muxer").arg(detail.isEmpty() ? "" : "; ").arg(rejected);
        message(QStringLiteral("error: %1 lost %2 packets%3").arg(pipeline.modules.at(i).name).arg(lost)
                    .arg(detail.isEmpty() ? QString() : QStringLiteral(" (%1)").arg(detail)), true);
    }
    return any;
}

bool Launcher::writeGraph(const Pipeline &p, const QString &path, const QHash<QString, QString> &states,
                          const QHash<QString, QVariantMap> &stats, QString *message)
{
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Text)) {
        *message = QStringLiteral("cannot write graph %1: %2").arg(path, f.errorString());
        return false;
    }
    QTextStream ts(&f);
    ts << "digraph pipeline {\n"
       << "    rankdir=LR;\n"
       << "    node [shape=box, style=\"rounded,filled\", fontname=\"Helvetica\", fillcolor=\"#ffffff\"];\n"
       << "    edge [fontname=\"Helvetica\"];\n";
    for (const PipelineModule &m : p.modules) {
        const QString state = states.value(m.name, QStringLiteral("not created"));
        QString label = m.name + QLatin1Char('\n') + VexaModuleCatalog::shortName(m.className) + QLatin1Char('\n') + state;
        const QVariantMap s = stats.value(m.name);
        if (!s.isEmpty())
            label += QStringLiteral("\n%1 packets, %2 dropped").arg(packetsIn(s)).arg(s.value("dropped").toLongLong());
        const char *fill = state == QLatin1String("started") ? "#c8f0c8"
                         : state == QLatin1String("stoped") ? "#e0e0e0"
                         : state == QLatin1String("destroyed") ? "#f0c8c8" : "#ffffff";
        ts << "    " << dotQuoted(m.name) << " [label=" << dotQuoted(label) << ", fillcolor=\"" << fill << "\"];\n";
    }
    for (const PipelineLink &l : p.links) {
        const char *style = l.kind == QLatin1Char('A') ? "color=\"#c03030\", fontcolor=\"#c03030\""
                          : l.kind == QLatin1Char('V') ? "color=\"#3050c0\", fontcolor=\"#3050c0\", penwidth=2"
                                                       : "color=\"#707070\", fontcolor=\"#707070\", style=dashed";
        ts << "    " << dotQuoted(l.from) << " -> " << dotQuoted(l.to) << " [label=\"" << l.kind << "\", " << style << "];\n";
    }
    ts << "}\n";
    ts.flush();
    f.close();
    if (f.error() != QFile::NoError) {
        *message = QStringLiteral("cannot write graph %1: %2").arg(path, f.errorString());
        return false;
    }

    const QString dot = QStandardPaths::findExecutable(QStringLiteral("dot"));
    if (dot.isEmpty())
        return true;
    QString svg = path;
    if (svg.endsWith(QLatin1String(".dot")))
        svg.chop(4);
    svg += QLatin1String(".svg");
    QProcess proc;
    proc.start(dot, {QStringLiteral("-Tsvg"), QStringLiteral("-o"), svg, path});
    if (!proc.waitForFinished(30000) || proc.exitStatus() != QProcess::NormalExit || proc.exitCode() != 0) {
        *message = QStringLiteral("dot could not draw %1: %2").arg(svg, QString::fromLocal8Bit(proc.readAllStandardError()).trimmed());
        return false;
    }
    return true;
}
