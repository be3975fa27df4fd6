#include "vexainputnet.h"
#include "vexa.h"

#include <QMetaMethod>
#include <QMutex>
#include <QMutexLocker>
#include <QTimer>

#include "vexademuxer_p.h"
#include "vexaexamples_p.h"
#include "vexaiodeadline_p.h"
#include "vexamedia.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/error.h>
}

QThread VexaInputNet::timerThread;

namespace {
// Registers timerThread with the framework's SIGINT handler, which stops it
// before the process exits. Destroyed before timerThread (defined after it):
// a program that ends without destroying its last VexaInputNet still stops
// the thread first instead of destroying it while it runs.
struct TimerThreadGuard {
    TimerThreadGuard() { Vexa::addInterruptThread(&VexaInputNet::timerThread); }
    ~TimerThreadGuard()
    {
        Vexa::removeInterruptThread(&VexaInputNet::timerThread);
        // The thread only runs timers and ends at once on a real board; an
        // emulator on a loaded machine may take seconds.
        if (VexaInputNet::timerThread.isRunning()) {
            VexaInputNet::timerThread.quit();
            VexaInputNet::timerThread.wait(30000);
        }
    }
} timerThreadGuard;
} // namespace

namespace {

const AVRational usTimeBase{1, int(VexaMedia::TimeBase)};
// Packets read per posted call: a live source blocks in the read between
// packets, so this only bounds how long settings wait behind a burst.
const int readBatch = 32;
// How often the watchdog looks at the deadlines and the module's state. A
// blocking call also looks at its deadline itself, each time libavformat
// asks whether to give up, so this only bounds how soon a stop is seen.
const int watchIntervalMs = 250;
// Packets read ahead at most while the first ones of a stream wait for a
// timestamp; the rest then go on as they are.
const int maxPending = 128;
const char *const schemes[] = {"rtsp", "rtp", "udp", "srt", "tcp", "http", "https", "rtmp"};

// Modules alive, guarded by usersLock: the last one destroyed stops timerThread.
QMutex usersLock;
int users = 0;

qint64 secondsToMs(const QVariant &v, double fallback)
{
    const double s = v.isValid() ? v.toDouble() : fallback;
    return qint64(qMax(0.0, s) * 1000.0);
}

// The description without what a new connection may report differently for
// the same stream (the bit rate is an estimate).
QVariantMap essentials(QVariantMap params)
{
    params.remove(QStringLiteral("bitRate"));
    return params;
}

} // namespace

/*
 * One module's watchdog and reconnection timer, living on timerThread. The
 * tick breaks a blocking libavformat call (through the module's
 * VexaIoDeadline, which the interrupt callback asks) when its deadline has
 * passed or the module is no longer started; the retry timer posts the next
 * connection attempt to the module's worker.
 */
class VexaNetWatch : public QObject
{
public:
    explicit VexaNetWatch(VexaInputNet *owner)
        : owner(owner)
    {
        tick.setInterval(watchIntervalMs);
        retry.setSingleShot(true);
        QObject::connect(&tick, &QTimer::timeout, this, [this] { check(); });
        QObject::connect(&retry, &QTimer::timeout, this, [this] {
            VexaInputNet *m = this->owner;
            QMetaObject::invokeMethod(m, [m] { m->tryReconnect(); }, Qt::QueuedConnection);
        });
    }

    void check()
    {
        if (owner->getState() != QLatin1String("started"))
            owner->io->abort();
        else
            owner->io->check();
    }

    VexaInputNet *owner;
    QTimer tick{this};
    QTimer retry{this};
};

VexaInputNet::VexaInputNet(QObject *parent)
    : VexaObject(parent)
    , io(new VexaIoDeadline)
    , demux(new VexaDemuxer(this, [this] { readSome(); }))
{
    directInvokeNames << QStringLiteral("stats");
    QMutexLocker locker(&usersLock);
    ++users;
}

VexaInputNet::~VexaInputNet()
{
    close();
    if (watch) {
        // The watch looks at this object: it goes first, on its own thread.
        if (timerThread.isRunning() && QThread::currentThread() != &timerThread) {
            VexaNetWatch *w = watch;
            QMetaObject::invokeMethod(w, [w] { delete w; }, Qt::BlockingQueuedConnection);
        } else {
            delete watch;
        }
        watch = nullptr;
    }
    QMutexLocker locker(&usersLock);
    if (--users == 0 && timerThread.isRunning() && QThread::currentThread() != &timerThread) {
        timerThread.quit();
        timerThread.wait();
        if (debugLevel > 0)
            qCDebug(lcExamples).noquote() << name() << "timer thread stopped";
    }
}

QVariant VexaInputNet::stats()
{
    QVariantMap m = demux->counters();
    m["connected"] = connectedNow.loadAcquire() != 0;
    m["disconnects"] = disconnects.loadAcquire();
    m["reconnects"] = reconnects.loadAcquire();
    return m;
}

void VexaInputNet::onStart()
{
    url = settings.value("url").toString();
    realtime = settings.value("realtime").toBool();
    openTimeoutMs = secondsToMs(settings.value("openTimeout"), 5);
    readTimeoutMs = secondsToMs(settings.value("readTimeout"), 5);
    {
        QMutexLocker locker(&usersLock);
        if (!timerThread.isRunning()) {
            timerThread.setObjectName(QStringLiteral("VexaNetTimer"));
            timerThread.start();
        }
    }
    if (!watch) {
        watch = new VexaNetWatch(this);
        watch->moveToThread(&timerThread);
    }
    VexaNetWatch *w = watch;
    QMetaObject::invokeMethod(w, [w] { w->tick.start(); }, Qt::QueuedConnection);

    close();
    offset = NoOffset;
    lastEnd = std::numeric_limits<qint64>::min();
    lastDts[0] = lastDts[1] = std::numeric_limits<qint64>::min();
    everConnected = false;
    everRead = false;
    failedAttempts = 0;
    running = true;
    QString error;
    if (!open(&error)) {
        // Stopped while it waited for the peer (a listening input nobody
        // published to yet): the run ends as asked, nothing failed.
        if (getState() != QLatin1String("started")) {
            running = false;
            return;
        }
        fail(error);
        return;
    }
    everConnected = true;
    connectedNow.storeRelease(1);
    sendEvent(QStringLiteral("connected"), url);
    demux->scheduleRead(0);
}

void VexaInputNet::onStop()
{
    running = false;
    if (watch) {
        VexaNetWatch *w = watch;
        QMetaObject::invokeMethod(w, [w] {
            w->tick.stop();
            w->retry.stop();
        }, Qt::QueuedConnection);
    }
    close();
    connectedNow.storeRelease(0);
}

bool VexaInputNet::open(QString *error)
{
    const int colon = url.indexOf(QLatin1String("://"));
    const QString scheme = colon > 0 ? url.left(colon).toLower() : QString();
    bool known = false;
    for (const char *s : schemes)
        known = known || scheme == QLatin1String(s);
    if (url.isEmpty()) {
        *error = QStringLiteral("no \"url\" setting");
        return false;
    }
    if (!known) {
        *error = QStringLiteral("unsupported URL scheme in %1 (use rtsp, rtp, udp, srt, tcp, http, https or rtmp)").arg(url);
        return false;
    }

    AVDictionary *opts = nullptr;
    const bool listen = settings.value("listen").toBool();
    if (scheme == QLatin1String("rtsp")) {
        const QString transport = settings.value("transport", QStringLiteral("tcp")).toString();
        if (transport != QLatin1String("auto"))
            av_dict_set(&opts, "rtsp_transport", transport.toLatin1().constData(), 0);
        if (listen)
            av_dict_set(&opts, "rtsp_flags", "listen", 0);
    } else if (scheme == QLatin1String("tcp") && listen) {
        av_dict_set(&opts, "listen", "1", 0);
    } else if (scheme == QLatin1String("srt") && listen) {
        av_dict_set(&opts, "mode", "listener", 0);
    } else if (scheme == QLatin1String("srt")) {
        // A caller keeps trying for the whole "openTimeout", not for the
        // library's own three seconds.
        if (openTimeoutMs > 0)
            av_dict_set(&opts, "connect_timeout", QByteArray::number(openTimeoutMs).constData(), 0);
    } else if (scheme == QLatin1String("udp") || scheme == QLatin1String("rtp")) {
        // A burst must not be lost to a small socket buffer, nor end the read.
        av_dict_set(&opts, "buffer_size", "4194304", 0);
        av_dict_set(&opts, "overrun_nonfatal", "1", 0);
    }

    demux->fmt = avformat_alloc_context();
    io->install(&demux->fmt->interrupt_callback);
    io->reset();
    io->arm(openTimeoutMs);
    const QByteArray u = url.toUtf8();
    int r = avformat_open_input(&demux->fmt, u.constData(), nullptr, &opts);
    av_dict_free(&opts);
    if (r >= 0)
        r = avformat_find_stream_info(demux->fmt, nullptr);
    io->disarm();
    if (r < 0) {
        if (io->timedOut() && getState() == QLatin1String("started"))
            *error = QStringLiteral("cannot open %1: no stream within %2 s").arg(url).arg(openTimeoutMs / 1000.0);
        else
            *error = QStringLiteral("cannot open %1: %2").arg(url, VexaMedia::errorText(r));
        close();
        return false;
    }
    if (!demux->findStreams(url, error)) {
        close();
        return false;
    }
    describeStreams(everConnected);
    // A resource of known length over HTTP is a file, not a live stream.
    finite = (scheme == QLatin1String("http") || scheme == QLatin1String("https")) && demux->fmt->pb
            && avio_size(demux->fmt->pb) > 0;
    offset = NoOffset;
    timed[0] = timed[1] = false;
    if (debugLevel > 0)
        qCDebug(lcExamples).noquote() << name() << "opened" << url << "video" << demux->videoIndex
                                      << "audio" << demux->audioIndex;
    return true;
}

void VexaInputNet::describeStreams(bool again)
{
    const StreamInfo v = demux->describe(true, this);
    const StreamInfo a = demux->describe(false, this);
    // After a reconnection the same stream keeps its description: receivers
    // such as a muxer cannot take a new one in the middle of a file.
    const bool changedV = !again || essentials(v.params) != essentials(outInfoV.params);
    const bool changedA = !again || essentials(a.params) != essentials(outInfoA.params);
    if (changedV) {
        outInfoV = v;
        if (v.type != 0)
            sendInfoV(outInfoV);
    }
    if (changedA) {
        outInfoA = a;
        if (a.type != 0)
            sendInfoA(outInfoA);
    }
    if (again && (changedV || changedA))
        qCDebug(lcExamples).noquote() << QStringLiteral("[%1] the stream changed after reconnecting; new descriptions sent")
                                         .arg(name());
}

void VexaInputNet::close()
{
    dropPending();
    demux->close();
}

void VexaInputNet::dropPending()
{
    for (AVPacket *p : qAsConst(pending)) {
        AVPacket *q = p;
        av_packet_free(&q);
    }
    pending.clear();
    pendingReady = false;
    untimedWaiting[0] = untimedWaiting[1] = 0;
    pendingTimed[0] = pendingTimed[1] = false;
}

qint64 VexaInputNet::durationTicks(const AVPacket *pkt) const
{
    if (pkt->duration > 0)
        return pkt->duration;
    const AVStream *st = demux->fmt->streams[pkt->stream_index];
    const AVCodecParameters *par = st->codecpar;
    const AVRational rate = st->avg_frame_rate.num > 0 && st->avg_frame_rate.den > 0 ? st->avg_frame_rate : st->r_frame_rate;
    if (par->codec_type == AVMEDIA_TYPE_VIDEO && rate.num > 0 && rate.den > 0)
        return qMax<qint64>(1, av_rescale_q(1, av_inv_q(rate), st->time_base));
    if (par->codec_type == AVMEDIA_TYPE_AUDIO && par->frame_size > 0 && par->sample_rate > 0)
        return qMax<qint64>(1, av_rescale_q(par->frame_size, AVRational{1, par->sample_rate}, st->time_base));
    return 1;
}

bool VexaInputNet::holdForTimestamps()
{
    const AVPacket *pkt = demux->pkt;
    const int kind = demux->isVideo() ? 1 : 0;
    const bool untimed = pkt->pts == AV_NOPTS_VALUE && pkt->dts == AV_NOPTS_VALUE;
    // Later packets without timestamps follow the previous one (sendCurrent).
    if (pending.isEmpty() && !(untimed && !timed[kind]))
        return false;
    AVPacket *parked = av_packet_alloc();
    if (!parked)
        return false;   // goes on as it is
    demux->park(parked);
    pending.append(parked);
    if (parked->dts != AV_NOPTS_VALUE) {
        if (untimedWaiting[kind] > 0)
            fillBackwards(kind);
        pendingTimed[kind] = true;
    } else if (untimed && !pendingTimed[kind] && !timed[kind]) {
        ++untimedWaiting[kind];
    }
    pendingReady = (untimedWaiting[0] == 0 && untimedWaiting[1] == 0) || pending.size() >= maxPending;
    return true;
}

void VexaInputNet::fillBackwards(int kind)
{
    // The last packet parked is the first of its kind with a decode time:
    // the ones before it decode one after the other up to it. One without
    // any timestamp (a keyframe) is shown one frame before the earliest
    // presentation time after it, and never before it is decoded.
    const AVPacket *next = pending.last();
    int64_t t = next->dts;
    int64_t earliest = next->pts != AV_NOPTS_VALUE ? next->pts : next->dts;
    for (int i = pending.size() - 2; i >= 0; --i) {
        AVPacket *p = pending.at(i);
        if ((p->stream_index == demux->videoIndex ? 1 : 0) != kind)
            continue;
        const int64_t duration = durationTicks(p);
        t -= duration;
        if (p->dts == AV_NOPTS_VALUE)
            p->dts = t;
        if (p->pts == AV_NOPTS_VALUE)
            p->pts = qMax(p->dts, earliest - duration);
        earliest = qMin(earliest, p->pts);
    }
    untimedWaiting[kind] = 0;
}

void VexaInputNet::sendPending()
{
    pendingReady = true;
    while (!pending.isEmpty() && !demux->isHolding()) {
        AVPacket *p = pending.takeFirst();
        demux->unpark(p);
        av_packet_free(&p);
        sendCurrent();
    }
    dropPending();
}

void VexaInputNet::fail(const QString &message)
{
    running = false;
    close();
    connectedNow.storeRelease(0);
    // Whoever receives the module's events (vexa-launch) reports the error
    // itself; the log has it only when no one does, so it shows once.
    if (debugLevel > 0 || !isSignalConnected(QMetaMethod::fromSignal(&VexaObject::newEvent)))
        qCDebug(lcExamples).noquote() << QStringLiteral("[%1] %2").arg(name(), message);
    sendEvent(QStringLiteral("error"), message);
}

void VexaInputNet::readSome()
{
    for (int n = 0; running && demux->fmt && n < readBatch; ++n) {
        if (!demux->isHolding() && pendingReady) {
            AVPacket *p = pending.takeFirst();
            demux->unpark(p);
            av_packet_free(&p);
            if (pending.isEmpty())
                dropPending();
        }
        if (!demux->isHolding()) {
            io->arm(readTimeoutMs);
            const int r = demux->readNext();
            if (r == AVERROR(EAGAIN)) {
                demux->scheduleRead(5);
                return;
            }
            if (r < 0) {
                io->disarm();
                if (getState() != QLatin1String("started"))
                    return;    // stopped: onStop is queued behind this call
                QString reason;
                if (r == AVERROR_EOF)
                    reason = QStringLiteral("end of stream");
                else if (io->timedOut())
                    reason = QStringLiteral("no data for %1 s").arg(readTimeoutMs / 1000.0);
                else
                    reason = VexaMedia::errorText(r);
                // What was read ahead goes out with what is known.
                sendPending();
                if (!everRead) {
                    // Opened, but not one packet could be read (an MP4 whose
                    // index sits at the end, served without seeking): not a
                    // source that went away.
                    fail(QStringLiteral("cannot read %1: %2").arg(url, reason));
                    return;
                }
                if (finite) {
                    // A file of known length served over HTTP ends; it is
                    // never fetched again from its start.
                    close();
                    connectedNow.storeRelease(0);
                    running = false;
                    if (r != AVERROR_EOF) {
                        fail(QStringLiteral("cannot read %1 to its end: %2").arg(url, reason));
                        return;
                    }
                    qCDebug(lcExamples).noquote() << QStringLiteral("[%1] end of %2").arg(name(), url);
                    sendEvent(QStringLiteral("eos"), name());
                    return;
                }
                sourceLost(reason);
                return;
            }
            // Sending may be held back by a slow receiver ("wait"): that is
            // not the source going quiet.
            io->disarm();
            if (holdForTimestamps())
                continue;
        }
        if (realtime) {
            const int delay = demux->paceDelayMs(0);
            if (delay > 0) {
                demux->scheduleRead(delay);
                return;
            }
        }
        sendCurrent();
    }
    if (running && demux->fmt)
        demux->scheduleRead(0);
}

void VexaInputNet::sourceLost(const QString &reason)
{
    close();
    connectedNow.storeRelease(0);
    disconnects.fetchAndAddRelaxed(1);
    lostAtMs = VexaIoDeadline::nowMs();
    qCDebug(lcExamples).noquote() << QStringLiteral("[%1] disconnected from %2: %3").arg(name(), url, reason);
    sendEvent(QStringLiteral("disconnected"), reason);
    if (!settings.value("reconnect", true).toBool()) {
        // Without reconnection the source going away is the end of the
        // stream, whichever way it went (SRT and UDP have no clean end).
        running = false;
        sendEvent(QStringLiteral("eos"), name());
        return;
    }
    failedAttempts = 0;
    retryDelayMs = secondsToMs(settings.value("reconnectDelay"), 0.5);
    VexaNetWatch *w = watch;
    const int delay = int(retryDelayMs);
    QMetaObject::invokeMethod(w, [w, delay] { w->retry.start(delay); }, Qt::QueuedConnection);
}

void VexaInputNet::tryReconnect()
{
    if (!running)
        return;
    QString error;
    if (open(&error)) {
        reconnects.fetchAndAddRelaxed(1);
        connectedNow.storeRelease(1);
        qCDebug(lcExamples).noquote() << QStringLiteral("[%1] connected again to %2").arg(name(), url);
        sendEvent(QStringLiteral("connected"), url);
        demux->scheduleRead(0);
        return;
    }
    if (!running || getState() != QLatin1String("started"))
        return;
    ++failedAttempts;
    const int limit = settings.value("reconnectAttempts").toInt();
    if (limit > 0 && failedAttempts >= limit) {
        fail(QStringLiteral("gave up after %1 attempts: %2").arg(failedAttempts).arg(error));
        return;
    }
    const qint64 maxDelay = secondsToMs(settings.value("reconnectMaxDelay"), 8);
    retryDelayMs = qMin(qMax<qint64>(retryDelayMs * 2, 1), qMax<qint64>(maxDelay, 1));
    if (debugLevel > 0)
        qCDebug(lcExamples).noquote() << QStringLiteral("[%1] %2; next attempt in %3 ms").arg(name(), error).arg(retryDelayMs);
    VexaNetWatch *w = watch;
    const int delay = int(retryDelayMs);
    QMetaObject::invokeMethod(w, [w, delay] { w->retry.start(delay); }, Qt::QueuedConnection);
}

void VexaInputNet::sendCurrent()
{
    const AVPacket *pkt = demux->pkt;
    const AVStream *st = demux->stream();
    const bool video = demux->isVideo();

    Packet out = demux->packet(false);
    qint64 pts = pkt->pts != AV_NOPTS_VALUE ? av_rescale_q(pkt->pts, st->time_base, usTimeBase) : VexaMedia::NoPts;
    qint64 dts = pkt->dts != AV_NOPTS_VALUE ? av_rescale_q(pkt->dts, st->time_base, usTimeBase) : VexaMedia::NoPts;
    const int kind = video ? 1 : 0;
    if (pts == VexaMedia::NoPts && dts == VexaMedia::NoPts && timed[kind] && offset != NoOffset
            && lastDts[kind] != std::numeric_limits<qint64>::min()) {
        // Without timestamps in the middle of a stream: the previous one's
        // plus this packet's duration.
        pts = dts = lastDts[kind] - offset + av_rescale_q(durationTicks(pkt), st->time_base, usTimeBase);
    }
    const qint64 ts = dts != VexaMedia::NoPts ? dts : pts;
    if (ts != VexaMedia::NoPts)
        timed[kind] = true;

    if (ts != VexaMedia::NoPts) {
        if (offset == NoOffset) {
            // The connection's start (the earliest first timestamp of its
            // streams) maps to 0 at first, after a reconnection to where the
            // last one ended plus the time the source was away.
            const AVFormatContext *fmt = demux->fmt;
            const qint64 start = fmt->start_time != AV_NOPTS_VALUE ? qMin<qint64>(fmt->start_time, ts) : ts;
            if (lastEnd == std::numeric_limits<qint64>::min())
                offset = -start;
            else
                offset = lastEnd + qMax<qint64>(0, VexaIoDeadline::nowMs() - lostAtMs) * 1000 - start;
        }
        qint64 &last = lastDts[video ? 1 : 0];
        if (last != std::numeric_limits<qint64>::min() && ts + offset <= last) {
            // Never back within a stream: every later timestamp moves on.
            offset += last + 1 - (ts + offset);
        }
        last = ts + offset;
        if (pts != VexaMedia::NoPts)
            pts += offset;
        if (dts != VexaMedia::NoPts)
            dts += offset;
        const qint64 dur = pkt->duration > 0 ? av_rescale_q(pkt->duration, st->time_base, usTimeBase) : 1;
        lastEnd = qMax(lastEnd, qMax(last, pts) + dur);
        demux->reachedMedia(last);
    }
    out.pts = pts;
    if (dts != pts)
        out.altPts = dts;

    everRead = true;
    demux->send(out);
}
