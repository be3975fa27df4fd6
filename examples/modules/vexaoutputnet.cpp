#include "vexaoutputnet.h"

#include <QElapsedTimer>
#include <QMetaMethod>
#include <QMutexLocker>
#include <QThread>

#include <cstring>

#include "vexaexamples_p.h"
#include "vexaiodeadline_p.h"
#include "vexamedia.h"
#include "vexasinkcounters_p.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/error.h>
#include <libavutil/mathematics.h>
}

namespace {

const AVRational usTimeBase{1, int(VexaMedia::TimeBase)};
// Packets that may wait for the second description before the header is
// written with the streams known so far.
const int headerWaitPackets = 64;
// The muxer's interleaving delay, as `ffmpeg` sets it by default.
const int muxDelayUs = 700000;
// How long a sender held back by a full queue sleeps before it looks at the
// module's state again.
const int holdBackSliceMs = 100;
// Packets of each kind held until the destination is open ("drop").
const int holdPackets = 1024;
// How long the header waits for the description of a kind whose packets
// already came.
const qint64 describeWaitMs = 2000;
// MPEG-TS over datagrams: seven 188-byte packets per datagram.
const char *const datagramSize = "1316";

// The container a URL's scheme carries; null for a scheme not published to.
const char *formatForScheme(const QString &scheme)
{
    if (scheme == QLatin1String("udp") || scheme == QLatin1String("srt") || scheme == QLatin1String("tcp"))
        return "mpegts";
    if (scheme == QLatin1String("rtsp"))
        return "rtsp";
    if (scheme == QLatin1String("rtmp"))
        return "flv";
    return nullptr;
}

// How long a finished SRT stream stays open before it is closed: several
// times the receiver's default latency window, for a busy machine.
constexpr unsigned long srtCloseGraceMs = 500;

// The peer closed the connection (a receiver that went away).
bool receiverGone(int r)
{
    return r == AVERROR(EPIPE) || r == AVERROR(ECONNRESET) || r == AVERROR(EIO);
}

} // namespace

VexaOutputNet::VexaOutputNet(QObject *parent)
    : VexaMediaSink(parent)
    , queue(this)
    , io(new VexaIoDeadline)
{
    counts->setDropping(true);
    // The sending thread is the consumer. It sleeps in waitAndTake() while
    // streaming; before the header it waits on gate for the descriptions
    // too, so a batch of packets also wakes it there.
    queue.setPayloadPool(&pool);
    queue.setDropHandler([this](const Packet &, VexaPacketQueue::Kind kind) {
        counts->of(kind == VexaPacketQueue::Video).dropped.fetchAndAddRelaxed(1);
    });
    queue.setWakeHandler([this] {
        QMutexLocker locker(&gate);
        changed.wakeAll();
    });
}

VexaOutputNet::~VexaOutputNet()
{
    if (sender) {
        io->abort();
        {
            QMutexLocker locker(&gate);
            phase = Closing;
            changed.wakeAll();
        }
        queue.close();
        sender->wait();
        delete sender;
    }
    closeMuxer();
    av_packet_free(&avpkt);
    queue.clear();
}

void VexaOutputNet::releaseBlock(void *opaque, uint8_t *data)
{
    static_cast<VexaOutputNet *>(opaque)->pool.release(reinterpret_cast<char *>(data));
}

void VexaOutputNet::dropList(QVector<Packet> &list, bool video)
{
    counts->of(video).dropped.fetchAndAddRelaxed(list.size());
    for (const Packet &p : qAsConst(list))
        pool.release(p.data);
    list.clear();
}

// Producer side ---------------------------------------------------------------

void VexaOutputNet::accept(const Packet &in, bool video)
{
    // The extra streams of a source that sends every stream of its input
    // are not carried over the network: the stream keeps its best audio and
    // video, as a live peer expects.
    if (!video && VexaMedia::extraStream(in) != -1) {
        if (extraSkipped.fetchAndAddRelaxed(1) == 0)
            qCWarning(lcExamples).noquote() << QStringLiteral("[%1] the source's extra streams are not sent (only its best audio and video)").arg(name());
        return;
    }
    VexaSinkCounters::Kind &c = counts->of(video);
    c.received.fetchAndAddRelaxed(1);
    if (in.len < 0 || (in.len > 0 && !in.data)) {
        c.dropped.fetchAndAddRelaxed(1);
        return;
    }
    {
        QMutexLocker locker(&gate);
        if (!waitForWorker(&gate, &changed, [this] { return phase == Idle; }) || phase != Running) {
            c.dropped.fetchAndAddRelaxed(1);
            return;
        }
    }
    // A reference to the source's buffer where it lends one, else a copy
    // (with the padding the muxer expects); the muxer takes either as it is.
    Packet p = in;
    p.data = pool.keep(in.data, in.len, AV_INPUT_BUFFER_PADDING_SIZE);
    if (!p.data) {
        c.dropped.fetchAndAddRelaxed(1);
        return;
    }
    // "drop": a full queue drops its oldest packet; "wait": the sender is
    // held back until there is room, and gives up once the module is
    // stopped or the destination failed. Either way the queue counts it.
    queue.push(p, video ? VexaPacketQueue::Video : VexaPacketQueue::Audio);
}

bool VexaOutputNet::isKey(const Packet &p) const
{
    // Sending thread. Without key flags every packet counts as one: nothing
    // waits for them.
    return !keyFlagsAtOpen || (p.tag & AV_PKT_FLAG_KEY) != 0;
}

// Sending thread: what a destination that was not open held, made to start
// at a keyframe (drop mode). A listening output's next receiver starts at
// the latest keyframe, with the audio from that time on; others start at
// the first. Without a keyframe yet, the video waits for one.
void VexaOutputNet::startAtKeyframe(QVector<Packet> *batch, bool latest)
{
    QVector<Packet> &video = batch[1];
    QVector<Packet> &audio = batch[0];
    QVector<Packet> old[2];
    int key = -1;
    if (latest) {
        key = video.size() - 1;
        while (key >= 0 && !isKey(video.at(key)))
            --key;
    } else {
        key = 0;
        while (key < video.size() && !isKey(video.at(key)))
            ++key;
        if (key == video.size())
            key = -1;
    }
    if (key < 0) {
        old[1] = video;
        video.clear();
        if (latest) {
            old[0] = audio;
            audio.clear();
        }
        waitKey = true;
    } else {
        old[1] = video.mid(0, key);
        video.remove(0, key);
        waitKey = false;
        if (latest) {
            const qint64 start = VexaMedia::orderTime(video.first());
            int a = 0;
            while (a < audio.size() && VexaMedia::orderTime(audio.at(a)) < start)
                ++a;
            old[0] = audio.mid(0, a);
            audio.remove(0, a);
        }
    }
    dropList(old[0], false);
    dropList(old[1], true);
}

// Worker side -------------------------------------------------------------------

void VexaOutputNet::onStart()
{
    if (sender) {
        sender->wait();
        delete sender;
        sender = nullptr;
    }
    closeMuxer();
    url = settings.value("url").toString();
    openTimeoutMs = qint64(qMax(0.0, settings.value("openTimeout", 5.0).toDouble()) * 1000);
    writeTimeoutMs = qint64(qMax(0.0, settings.value("writeTimeout", 5.0).toDouble()) * 1000);
    counts->resetLines();
    firstDts = VexaMedia::NoPts;
    if (!avpkt)
        avpkt = av_packet_alloc();
    {
        QMutexLocker locker(&gate);
        dropMode = settings.value("overflow", QStringLiteral("drop")).toString() != QLatin1String("wait");
        counts->setDropping(dropMode);
        for (int k = 0; k < 2; ++k) {
            const int bound = settings.value(QLatin1String(k ? "bufLenV" : "bufLenA"), 20).toInt();
            bounds[k] = bound < 0 ? -1 : qMax(2, bound);
        }
        descriptions[0] = inInfoA;
        descriptions[1] = inInfoV;
        keyFlags = inInfoV.params.value("packetFlags").toString() == QLatin1String("tag");
        const QString scheme = url.section(QLatin1String("://"), 0, 0).toLower();
        listening = settings.value("listen").toBool() && (scheme == QLatin1String("tcp") || scheme == QLatin1String("srt"));
        phase = Running;
        changed.wakeAll();
    }
    queue.setOverflow(dropMode ? VexaPacketQueue::DropOldest : VexaPacketQueue::HoldBack);
    setQueueBounds(false);
    // Before the header the sending thread is woken when a kind has nearly
    // filled its queue (then the header goes without the other kind).
    queue.setWakeThreshold(qMax(1, qMin(headerWaitPackets, qMin(bounds[0] < 0 ? headerWaitPackets : bounds[0],
                                                                 bounds[1] < 0 ? headerWaitPackets : bounds[1])) - 1));
    io->reset();
    sender = QThread::create([this] { run(); });
    // A sender in the module's worker thread may wait for the sending thread.
    queue.setConsumerThread(sender);
    sender->setObjectName(name() + QStringLiteral("-send"));
    sender->start();
}

void VexaOutputNet::onStop()
{
    {
        QMutexLocker locker(&gate);
        if (phase == Running)
            phase = Closing;
        // Still waiting for a receiver: give up at once (a destination being
        // connected to still gets what is queued, within openTimeout).
        if (!opened && listening)
            io->abort();
        changed.wakeAll();
    }
    if (sender) {
        sender->wait();
        delete sender;
        sender = nullptr;
    }
    {
        QMutexLocker locker(&gate);
        phase = Idle;
    }
    const QVariantMap s = stats().toMap();
    if (debugLevel > 0 || s.value("dropped").toLongLong() > 0)
        qCDebug(lcExamples).noquote() << QStringLiteral("[%1] sent %2 audio and %3 video packets, dropped %4 (%5 audio, %6 video)")
                                         .arg(name())
                                         .arg(s.value("packetsA").toLongLong())
                                         .arg(s.value("packetsV").toLongLong())
                                         .arg(s.value("dropped").toLongLong())
                                         .arg(s.value("droppedA").toLongLong())
                                         .arg(s.value("droppedV").toLongLong());
}

// The queue's bounds: "bufLenA"/"bufLenV" while the destination is open
// (@p open) or in "wait" mode; until it opens, "drop" holds up to
// holdPackets of each kind.
void VexaOutputNet::setQueueBounds(bool open)
{
    for (int k = 0; k < 2; ++k) {
        const int bound = dropMode && !open ? holdPackets : bounds[k];
        queue.setLimits(k ? VexaPacketQueue::Video : VexaPacketQueue::Audio, {bound, -1, -1});
    }
}

void VexaOutputNet::described(const StreamInfo &info, bool video)
{
    QMutexLocker locker(&gate);
    descriptions[video ? 1 : 0] = info;
    if (video)
        keyFlags = info.params.value("packetFlags").toString() == QLatin1String("tag");
    changed.wakeAll();
}

// Sending thread ----------------------------------------------------------------

void VexaOutputNet::run()
{
    StreamInfo infos[2];
    if (!waitForDescriptions(infos))
        return;
    setUpTracks(infos);
    // A listening output listens again when its receiver goes away, as
    // long as the module runs; the next receiver starts at a keyframe.
    bool again = false;
    for (;;) {
        QString error;
        if (!openDestination(&error)) {
            if (openFailed(error, again))
                continue;
            return;
        }
        const int r = sendWhileOpen();
        if (r == 0)
            break;
        if (!sendFailed(r))
            return;
        again = true;
    }
    finish();
}

// Waits for the descriptions (or enough packets of one kind, or stop) and
// copies them to @p infos; false when the module stopped with nothing
// described: nothing to publish.
bool VexaOutputNet::waitForDescriptions(StreamInfo infos[2])
{
    QMutexLocker locker(&gate);
    QElapsedTimer waiting;
    waiting.start();
    for (;;) {
        const bool haveA = descriptions[0].type != 0;
        const bool haveV = descriptions[1].type != 0;
        // One kind described: go without the other once its packets
        // would soon fill their queue.
        bool enough = false;
        for (int k = 0; k < 2; ++k) {
            const int least = bounds[k] < 0 ? headerWaitPackets : qMin(headerWaitPackets, bounds[k]);
            enough |= queue.count(k ? VexaPacketQueue::Video : VexaPacketQueue::Audio) >= least - 1;
        }
        // Unless packets of the other kind came too: its description is on
        // its way (descriptions come through the module's thread, packets
        // at once from the sender's), a while at most.
        const VexaPacketQueue::Kind other = haveA ? VexaPacketQueue::Video : VexaPacketQueue::Audio;
        const bool otherComing = haveA != haveV && queue.count(other) > 0 && waiting.elapsed() < describeWaitMs;
        if ((haveA && haveV) || ((haveA || haveV) && enough && !otherComing))
            break;
        if (phase != Running) {
            if (haveA || haveV)
                break;
            locker.unlock();
            queue.clear();
            return false;
        }
        if (otherComing)
            changed.wait(&gate, 20);
        else
            changed.wait(&gate);
    }
    infos[0] = descriptions[0];
    infos[1] = descriptions[1];
    return true;
}

// How each described kind's packets are read: flags and durations in the
// tag, and their time base.
void VexaOutputNet::setUpTracks(const StreamInfo infos[2])
{
    for (int k = 0; k < 2; ++k) {
        tracks[k] = Track();
        if (infos[k].type == 0)
            continue;
        const QVariantMap &params = infos[k].params;
        tracks[k].flagsInTag = params.value("packetFlags").toString() == QLatin1String("tag");
        tracks[k].durationInTag = params.value("packetDuration").toString() == QLatin1String("tag");
        const int num = params.value("timeBaseNum").toInt();
        const int den = params.value("timeBaseDen").toInt();
        tracks[k].sourceTimeBase = num > 0 && den > 0 ? AVRational{num, den} : usTimeBase;
    }
}

// After the destination could not be opened: true to listen on (nobody came
// within openTimeout after a receiver left), false when the thread ends,
// with @p error reported unless the module stopped while listening.
bool VexaOutputNet::openFailed(const QString &error, bool again)
{
    bool stopped;
    {
        QMutexLocker locker(&gate);
        stopped = phase != Running;
        if (!stopped && again)
            io->reset();
    }
    if (stopped && listening) {
        // Stopped before a receiver came: nothing to finish.
        queue.clear();
        return false;
    }
    if (again)
        return true;
    fail(error);
    return false;
}

// The destination is open: sends what was held and what comes, until the
// module stops (0) or a write fails (its error).
int VexaOutputNet::sendWhileOpen()
{
    {
        QMutexLocker locker(&gate);
        opened = true;
        keyFlagsAtOpen = keyFlags;
    }
    // From here on packets go out as they come: the usual bounds, and a
    // wake-up per batch.
    setQueueBounds(true);
    queue.setWakeThreshold(1);
    // What was held starts at a keyframe ("drop"): the latest one for
    // a listening output's receiver.
    waitKey = dropMode && keyFlagsAtOpen;
    return writeQueued(dropMode && listening);
}

// After write error @p r: true to listen again (a listening output's
// receiver went away and the module still runs), false when the thread
// ends, with the error reported unless the module stopped.
bool VexaOutputNet::sendFailed(int r)
{
    if (listening && receiverGone(r)) {
        closeMuxer();
        setQueueBounds(false);
        bool stopped;
        {
            QMutexLocker locker(&gate);
            opened = false;
            stopped = phase != Running;
            if (!stopped)
                io->reset();
        }
        if (stopped) {
            queue.clear();
            return false;
        }
        qCDebug(lcExamples).noquote() << QStringLiteral("[%1] the receiver of %2 went away (%3); listening again")
                                         .arg(name(), url, VexaMedia::errorText(r));
        return true;
    }
    const bool late = r == AVERROR_EXIT && !io->aborted();
    fail(late ? QStringLiteral("%1 took no data for %2 s").arg(url).arg(writeTimeoutMs / 1000.0)
              : QStringLiteral("cannot send to %1: %2").arg(url, VexaMedia::errorText(r)));
    return false;
}

// Writes batches as they come until the module stops (then what is still
// queued, within writeTimeout) or a write fails (its error). The first batch
// starts at the latest keyframe when @p latestKey, else at the first while
// waitKey is set.
int VexaOutputNet::writeQueued(bool latestKey)
{
    bool closing = false;
    bool first = true;
    qint64 flushDeadline = 0;
    VexaPacketQueue::Batch taken;
    while (oc) {
        queue.waitAndTake(&taken);
        {
            QMutexLocker locker(&gate);
            closing = phase != Running || !queue.isOpen();
        }
        QVector<Packet> batch[2] = {taken.audio, taken.video};
        if (first && latestKey && !batch[1].isEmpty()) {
            startAtKeyframe(batch, true);
            first = false;
        } else if (waitKey) {
            startAtKeyframe(batch, false);
        }
        if (closing && flushDeadline == 0)
            flushDeadline = VexaIoDeadline::nowMs() + writeTimeoutMs;
        // Merge by decode time; the muxer's interleaving does the rest.
        int i[2] = {0, 0};
        while (oc && (i[0] < batch[0].size() || i[1] < batch[1].size())) {
            int k;
            if (i[0] >= batch[0].size())
                k = 1;
            else if (i[1] >= batch[1].size())
                k = 0;
            else
                k = VexaMedia::orderTime(batch[1].at(i[1])) <= VexaMedia::orderTime(batch[0].at(i[0])) ? 1 : 0;
            if (closing)
                io->armAt(flushDeadline);
            else
                io->arm(writeTimeoutMs);
            const int r = writeOne(batch[k].at(i[k]++), k == 1);
            if (r < 0) {
                io->disarm();
                for (int j = 0; j < 2; ++j) {
                    // What the failure left unwritten.
                    QVector<Packet> rest = batch[j].mid(i[j]);
                    dropList(rest, j == 1);
                }
                return r;
            }
        }
        io->disarm();
        for (int k = 0; k < 2; ++k) {
            // What a failure left unwritten.
            QVector<Packet> rest = batch[k].mid(i[k]);
            dropList(rest, k == 1);
        }
        if (closing && queue.count(VexaPacketQueue::Audio) == 0 && queue.count(VexaPacketQueue::Video) == 0)
            break;
    }
    return 0;
}

bool VexaOutputNet::openDestination(QString *error)
{
    const int colon = url.indexOf(QLatin1String("://"));
    const QString scheme = colon > 0 ? url.left(colon).toLower() : QString();
    if (url.isEmpty()) {
        *error = QStringLiteral("no \"url\" setting");
        return false;
    }
    const char *guessed = formatForScheme(scheme);
    if (!guessed) {
        *error = QStringLiteral("unsupported URL scheme in %1 (use udp, srt, tcp, rtsp or rtmp)").arg(url);
        return false;
    }
    const QByteArray named = settings.value("format").toString().toLatin1();
    const QByteArray format = named.isEmpty() ? QByteArray(guessed) : named;
    if (!createMuxer(format, error) || !addStreams(error))
        return false;
    AVDictionary *opts = destinationOptions(scheme, format);
    return writeHeader(&opts, error);
}

// The muxer for @p format, writing every packet at once.
bool VexaOutputNet::createMuxer(const QByteArray &format, QString *error)
{
    const int r = avformat_alloc_output_context2(&oc, nullptr, format.constData(), url.toUtf8().constData());
    if (r < 0 || !oc) {
        *error = QStringLiteral("unknown container \"%1\"").arg(QString::fromLatin1(format));
        oc = nullptr;
        return false;
    }
    io->install(&oc->interrupt_callback);
    // Every packet goes out at once rather than when the I/O buffer fills.
    oc->flags |= AVFMT_FLAG_FLUSH_PACKETS;
    oc->max_interleave_delta = VexaMedia::TimeBase;
    oc->max_delay = muxDelayUs;
    return true;
}

// An output stream for each described kind, video first; a description the
// muxer cannot take is left out. False when none is left.
bool VexaOutputNet::addStreams(QString *error)
{
    for (int k : {1, 0}) {
        if (tracks[k].sourceTimeBase.num == 0)
            continue;
        QVariantMap params;
        {
            QMutexLocker locker(&gate);
            params = descriptions[k].params;
        }
        const AVStream *st = VexaMedia::addStream(oc, params);
        if (!st) {
            qCDebug(lcExamples).noquote() << QStringLiteral("[%1] cannot describe %2 stream (codec %3); left out")
                                             .arg(name(), k == 1 ? "video" : "audio", params.value("codecName").toString());
            continue;
        }
        tracks[k].sourceTimeBase = st->time_base;
        tracks[k].index = st->index;
    }
    if (oc->nb_streams == 0) {
        *error = QStringLiteral("no usable stream description received for %1").arg(url);
        closeMuxer();
        return false;
    }
    return true;
}

// The protocol's and the container's options for the URL's @p scheme.
AVDictionary *VexaOutputNet::destinationOptions(const QString &scheme, const QByteArray &format) const
{
    AVDictionary *opts = nullptr;
    const bool listen = settings.value("listen").toBool();
    if (scheme == QLatin1String("rtsp"))
        av_dict_set(&opts, "rtsp_transport", settings.value("transport", QStringLiteral("tcp")).toString().toLatin1().constData(), 0);
    else if (scheme == QLatin1String("tcp") && listen)
        av_dict_set(&opts, "listen", "1", 0);
    else if (scheme == QLatin1String("srt")) {
        av_dict_set(&opts, "mode", listen ? "listener" : "caller", 0);
        // A caller keeps trying for the whole "openTimeout", not for the
        // library's own three seconds: a receiver that comes late still gets
        // what was held for it.
        if (!listen && openTimeoutMs > 0)
            av_dict_set(&opts, "connect_timeout", QByteArray::number(openTimeoutMs).constData(), 0);
        // Closing waits for what is still in flight instead of dropping it.
        av_dict_set(&opts, "linger", QByteArray::number(qMax<qint64>(1, (writeTimeoutMs + 999) / 1000)).constData(), 0);
    }
    if ((scheme == QLatin1String("srt") || scheme == QLatin1String("udp")) && format == "mpegts")
        av_dict_set(&opts, "pkt_size", datagramSize, 0);
    return opts;
}

// Reaches the destination and writes the header, within openTimeout; frees
// @p opts. On failure the muxer is closed.
bool VexaOutputNet::writeHeader(AVDictionary **opts, QString *error)
{
    io->arm(openTimeoutMs);
    if (!(oc->oformat->flags & AVFMT_NOFILE)) {
        const int r = avio_open2(&oc->pb, url.toUtf8().constData(), AVIO_FLAG_WRITE, &oc->interrupt_callback, opts);
        if (r < 0) {
            io->check();
            io->disarm();
            av_dict_free(opts);
            *error = io->timedOut()
                    ? QStringLiteral("cannot reach %1 within %2 s").arg(url).arg(openTimeoutMs / 1000.0)
                    : QStringLiteral("cannot open %1: %2").arg(url, VexaMedia::errorText(r));
            closeMuxer();
            return false;
        }
    }
    const int r = avformat_write_header(oc, opts);
    io->check();
    const bool late = io->timedOut();
    io->disarm();
    av_dict_free(opts);
    if (r < 0) {
        *error = late ? QStringLiteral("cannot reach %1 within %2 s").arg(url).arg(openTimeoutMs / 1000.0)
                      : QStringLiteral("cannot start the stream to %1: %2").arg(url, VexaMedia::errorText(r));
        closeMuxer();
        return false;
    }
    if (debugLevel > 0)
        qCDebug(lcExamples).noquote() << name() << "publishing to" << url << "as" << oc->oformat->name;
    return true;
}

int VexaOutputNet::writeOne(const Packet &p, bool video)
{
    VexaSinkCounters::Kind &c = counts->of(video);
    Track &t = tracks[video ? 1 : 0];
    if (t.index < 0) {
        pool.release(p.data);
        c.dropped.fetchAndAddRelaxed(1);
        return 0;
    }
    const AVStream *st = oc->streams[t.index];
    // The muxer gets a reference instead of a copy: the source's own buffer
    // when it was lent (the pool hands its reference on), else one to the
    // pool's block, released when the muxer lets go of it.
    if (void *lent = pool.disown(p.data, &VexaMedia::bufferLender))
        avpkt->buf = static_cast<AVBufferRef *>(lent);
    else
        avpkt->buf = av_buffer_create(reinterpret_cast<uint8_t *>(p.data), p.len + AV_INPUT_BUFFER_PADDING_SIZE,
                                      &VexaOutputNet::releaseBlock, this, 0);
    if (!avpkt->buf) {
        pool.release(p.data);
        c.dropped.fetchAndAddRelaxed(1);
        return 0;
    }
    avpkt->data = reinterpret_cast<uint8_t *>(p.data);
    avpkt->size = p.len;
    avpkt->stream_index = t.index;
    const qint64 dts = VexaMedia::decodeTime(p);
    avpkt->pts = VexaMedia::toStreamTime(p.pts, t.sourceTimeBase, st->time_base);
    avpkt->dts = VexaMedia::toStreamTime(dts, t.sourceTimeBase, st->time_base);
    avpkt->flags = t.flagsInTag ? (p.tag & (AV_PKT_FLAG_KEY | AV_PKT_FLAG_DISCARD | AV_PKT_FLAG_DISPOSABLE)) : 0;
    avpkt->duration = t.flagsInTag && t.durationInTag
            ? av_rescale_q(VexaMedia::tagDuration(p.tag), t.sourceTimeBase, st->time_base) : 0;
    avpkt->pos = -1;
    // Decode times must rise for the muxer: a repeated or earlier one (a
    // source that restarted) is moved just past the last.
    if (avpkt->dts != AV_NOPTS_VALUE && t.lastDts != std::numeric_limits<int64_t>::min() && avpkt->dts <= t.lastDts) {
        const int64_t least = t.lastDts + 1;
        if (avpkt->pts != AV_NOPTS_VALUE && avpkt->pts < least)
            avpkt->pts = least;
        avpkt->dts = least;
    }
    if (avpkt->dts != AV_NOPTS_VALUE)
        t.lastDts = avpkt->dts;
    if (dts != VexaMedia::NoPts) {
        if (firstDts == VexaMedia::NoPts)
            firstDts = dts;
        counts->reachedMedia(dts - firstDts);
    }
    const int r = av_interleaved_write_frame(oc, avpkt);
    if (r < 0) {
        if (r == AVERROR_EXIT || r == AVERROR(EPIPE) || r == AVERROR(ECONNRESET) || r == AVERROR(EIO)
                || r == AVERROR(ETIMEDOUT) || r == AVERROR(ECONNREFUSED)) {
            c.dropped.fetchAndAddRelaxed(1);
            return r;
        }
        counts->rejected(this, video, p.pts, r);
        return 0;
    }
    counts->wrote(video, p.len);
    return 0;
}

void VexaOutputNet::finish()
{
    if (!oc)
        return;
    io->arm(writeTimeoutMs);
    av_interleaved_write_frame(oc, nullptr);
    const int r = av_write_trailer(oc);
    io->disarm();
    // An SRT receiver plays each packet a latency window after it was sent
    // and forgets what it has not played yet when the sender closes: what
    // went out last (a held backlog goes out at once) stays reachable for a
    // while first. The window is 120 ms unless the receiver asks for more.
    if (r >= 0 && url.startsWith(QLatin1String("srt:"), Qt::CaseInsensitive))
        QThread::msleep(srtCloseGraceMs);
    closeMuxer();
    // A listening output's receiver that left just before the stop had what
    // was written up to then, as every receiver that leaves has.
    if (r < 0 && !(listening && receiverGone(r))) {
        fail(QStringLiteral("cannot finish the stream to %1: %2").arg(url, VexaMedia::errorText(r)));
        return;
    }
    sendEvent(QStringLiteral("done"), stats());
}

void VexaOutputNet::fail(const QString &message)
{
    closeMuxer();
    {
        QMutexLocker locker(&gate);
        phase = Closing;
        changed.wakeAll();
    }
    // Senders stop waiting and drop until the module starts again.
    queue.close();
    queue.clear();
    // Whoever receives the module's events (vexa-launch) reports the error
    // itself; the log has it only when no one does, so it shows once.
    if (debugLevel > 0 || !isSignalConnected(QMetaMethod::fromSignal(&VexaObject::newEvent)))
        qCDebug(lcExamples).noquote() << QStringLiteral("[%1] %2").arg(name(), message);
    sendEvent(QStringLiteral("error"), message);
}


void VexaOutputNet::closeMuxer()
{
    VexaMedia::closeOutput(&oc);
}
