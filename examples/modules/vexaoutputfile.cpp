#include "vexaoutputfile.h"

#include <QMetaMethod>
#include <QFile>
#include <QFileInfo>
#include <QMutexLocker>
#include <QThread>

#include <algorithm>
#include <cstring>

#include "vexaexamples_p.h"
#include "vexamedia.h"
#include "vexasinkcounters_p.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/error.h>
#include <libavutil/mathematics.h>
#include <libavutil/mem.h>
}

namespace {

const AVRational usTimeBase{1, int(VexaMedia::TimeBase)};
const int defaultMemSize = 2 * 1024 * 1024;
// Packets that may wait for the second stream description before the header
// is written with the streams known so far.
const int headerWaitPackets = 64;
// How long the muxer may hold a packet before writing it, as `ffmpeg` sets
// it by default (-muxdelay 0.7): MPEG-TS packs audio frames into PES
// packets up to this delay and starts its timestamps at twice it.
const int muxDelayUs = 700000;
// The key of a packet's extra stream number among its side data (which is
// keyed by AVPacketSideDataType numbers).
const QString extraStreamKey = QStringLiteral("stream");
// Zeroed bytes behind each payload copy, as FFmpeg expects of packet buffers.
const int padding = AV_INPUT_BUFFER_PADDING_SIZE;

} // namespace

VexaOutputFile::VexaOutputFile(QObject *parent)
    : VexaMediaSink(parent)
    , queue(this)
{
    // Parked until start; a "memSize" given later replaces it.
    setData(QVariantMap{{QStringLiteral("memSize"), defaultMemSize}});
    // A sender that finds the ring full asks the worker to make the muxer
    // let go of the packets it keeps back, or senders could wait for ever.
    pool.setFullHandler([this] {
        ringStarved.storeRelease(1);
        wake();
    });
    // The queue wakes the worker; a sender in the worker's own thread (both
    // started with one thread name) writes the batch itself.
    queue.setWakeHandler([this] {
        if (QThread::currentThread() == thread())
            drain();
        else
            wake();
    });
    queue.setPayloadPool(&pool);
    queue.setDropHandler([this](const Packet &p, VexaPacketQueue::Kind kind) {
        dropped(p, kind == VexaPacketQueue::Video);
    });
    queue.setLimits(VexaPacketQueue::Audio, {19, -1, -1});
    queue.setLimits(VexaPacketQueue::Video, {19, -1, -1});
}

VexaOutputFile::~VexaOutputFile()
{
    closeMuxer();
    av_packet_free(&avpkt);
}

// Producer side ---------------------------------------------------------------

void VexaOutputFile::accept(const Packet &in, bool video)
{
    VexaSinkCounters::Kind &c = counts->of(video);
    c.received.fetchAndAddRelaxed(1);
    if (in.len < 0 || (in.len > 0 && !in.data)) {
        c.dropped.fetchAndAddRelaxed(1);
        return;
    }

    // A sender running in this module's own worker thread (modules started
    // with one thread name) cannot wait for the worker: it drains in its place.
    const bool own = QThread::currentThread() == thread();
    bool drop;
    {
        QMutexLocker locker(&gate);
        if (!waitForWorker(&gate, &changed, [this] { return phase.loadAcquire() == Idle; })
                || phase.loadAcquire() != Accepting) {
            c.dropped.fetchAndAddRelaxed(1);
            return;
        }
        drop = dropMode;
    }

    // The copy: from the pool's ring, or a block of its own when larger than
    // the ring. A full ring holds the sender back (or drops, when told to),
    // so that the worker can write and release meanwhile.
    Packet p = in;
    p.data = nullptr;
    if (in.len > 0) {
        // A source that lends its buffer is kept by reference.
        p.data = pool.keep(in.data, in.len, padding, drop || own ? VexaPayloadPool::NoWait : VexaPayloadPool::WaitForRoom);
        if (!p.data && own && !drop) {
            // The ring is full of blocks queued here or kept by the muxer:
            // write them (making the muxer let go) and try again.
            ringStarved.storeRelease(1);
            drain();
            p.data = pool.keep(in.data, in.len, padding, VexaPayloadPool::NoWait);
        }
        if (!p.data) {
            c.dropped.fetchAndAddRelaxed(1);
            return;
        }
    }

    // Side data is asked of the sender while its sendPacket runs, only for
    // packets it marks (and only of senders that offer it: the tag of
    // others need not be set).
    QVariantMap side;
    if (p.data && in.sender && (in.tag & VexaMedia::TagSideData) && offersSideData(in.sender))
        side = in.sender->invoke(QStringLiteral("packetSideData")).toMap();
    // A packet of one of the source's extra streams remembers which, beside
    // its side data; one that cannot (no payload to remember it by, or the
    // sender could not say) is not written into the audio stream.
    if (!video) {
        const int extra = VexaMedia::extraStream(in);
        if (extra == VexaMedia::UnknownExtraStream || (extra >= 0 && !p.data)) {
            pool.release(p.data);
            c.dropped.fetchAndAddRelaxed(1);
            return;
        }
        if (extra >= 0)
            side.insert(extraStreamKey, extra);
    }
    if (!side.isEmpty()) {
        QMutexLocker locker(&gate);
        sideData.insert(p.data, side);
        sideDataCount.storeRelease(sideData.size());
    }

    // The queue owns the copy from here: a packet it drops ("drop": the
    // oldest of a full queue; any once the module stops) is counted and its
    // block released by the drop handler and the pool.
    queue.push(p, video ? VexaPacketQueue::Video : VexaPacketQueue::Audio);
}

void VexaOutputFile::releaseBlock(void *opaque, uint8_t *data)
{
    static_cast<VexaOutputFile *>(opaque)->pool.release(reinterpret_cast<char *>(data));
}

void VexaOutputFile::release(const QVector<Packet> &packets)
{
    if (sideDataCount.loadAcquire() > 0) {
        QMutexLocker locker(&gate);
        for (const Packet &p : packets)
            sideData.remove(p.data);
        sideDataCount.storeRelease(sideData.size());
    }
    for (const Packet &p : packets)
        pool.release(p.data);
}

// A packet the queue dropped: counted, its side data forgotten (the queue
// then releases its block to the pool).
void VexaOutputFile::dropped(const Packet &p, bool video)
{
    counts->of(video).dropped.fetchAndAddRelaxed(1);
    if (p.data && sideDataCount.loadAcquire() > 0) {
        QMutexLocker locker(&gate);
        sideData.remove(p.data);
        sideDataCount.storeRelease(sideData.size());
    }
}

// Whether @p sender offers packetSideData(); remembered for the last sender.
bool VexaOutputFile::offersSideData(VexaObject *sender)
{
    QMutexLocker locker(&gate);
    if (sender != sideDataSender) {
        sideDataSender = sender;
        sideDataOffered = sender->metaObject()->indexOfMethod("packetSideData()") >= 0;
    }
    return sideDataOffered;
}

void VexaOutputFile::wake()
{
    if (wakePending.testAndSetOrdered(0, 1))
        QMetaObject::invokeMethod(this, [this] { drain(); }, Qt::QueuedConnection);
}

// Worker side -------------------------------------------------------------------

void VexaOutputFile::onStart()
{
    closeMuxer();
    counts->resetLines();
    if (!avpkt)
        avpkt = av_packet_alloc();
    {
        QMutexLocker locker(&gate);
        dropMode = settings.value("overflow").toString() == QLatin1String("drop");
        counts->setDropping(dropMode);
    }
    // "bufLenA"/"bufLenV" count the incoming packet, as the base class's
    // bound does: a queue holds one packet fewer, and at least one.
    const auto held = [this](const char *key) {
        const int bound = settings.value(QLatin1String(key), 20).toInt();
        return bound < 0 ? -1 : qMax(1, bound - 1);
    };
    const qint32 heldA = held("bufLenA");
    const qint32 heldV = held("bufLenV");
    queue.setLimits(VexaPacketQueue::Audio, {heldA, -1, -1});
    queue.setLimits(VexaPacketQueue::Video, {heldV, -1, -1});
    queue.setOverflow(dropMode ? VexaPacketQueue::DropOldest : VexaPacketQueue::HoldBack);
    // Lossless: woken once half the smaller queue has arrived, not for every
    // packet (each wake-up is a thread switch); a full queue wakes it anyway.
    // Dropping (a live source): at once.
    const qint32 least = heldA < 0 ? (heldV < 0 ? 32 : heldV) : (heldV < 0 ? heldA : qMin(heldA, heldV));
    queue.setWakeThreshold(dropMode ? 1 : qMax(1, least / 2));
    const int memSize = settings.value("memSize").toInt();
    // Sized once; a pool with blocks still out keeps its size.
    if (memSize > 0 && pool.size() != memSize)
        pool.setSize(memSize);
    pool.open();
    if (memSize <= 0 || pool.size() <= 0) {
        fail(QStringLiteral("\"memSize\" must be a positive number of bytes"));
        return;
    }
    const QString path = settings.value("path").toString();
    if (path.isEmpty()) {
        fail(QStringLiteral("no \"path\" setting"));
        return;
    }
    if (!settings.value("overwrite").toBool() && QFileInfo::exists(path)) {
        fail(QStringLiteral("%1 already exists; not replaced unless \"overwrite\" is set").arg(path));
        return;
    }
    const QByteArray localPath = path.toLocal8Bit();
    const QByteArray format = settings.value("format").toString().toLatin1();
    int r = avformat_alloc_output_context2(&oc, nullptr, format.isEmpty() ? nullptr : format.constData(),
                                           localPath.constData());
    if (r < 0 || !oc) {
        fail(format.isEmpty() ? QStringLiteral("cannot choose a container for %1 (set \"format\")").arg(path)
                              : QStringLiteral("unknown container format \"%1\"").arg(QString::fromLatin1(format)));
        return;
    }
    // The file itself is created with the header, once a source has
    // described its streams: a source that cannot open its input leaves no
    // empty output behind.
    headerWritten = false;
    streamA = streamV = -1;
    {
        QMutexLocker locker(&gate);
        phase.storeRelease(Accepting);
        changed.wakeAll();
    }
    drain();
}

void VexaOutputFile::onStop()
{
    finish();
}

void VexaOutputFile::described(const StreamInfo &, bool video)
{
    if (!headerWritten)
        drain();
    else if (debugLevel > 0)
        qCDebug(lcExamples).noquote() << name() << (video ? "video" : "audio") << "description changed after the header; ignored";
}

void VexaOutputFile::drain()
{
    wakePending.storeRelease(0);
    // The whole batch at once; senders held back by a full queue go on.
    queue.take(&batch);
    const bool starved = ringStarved.fetchAndStoreAcquire(0) != 0;
    if (pendingA.isEmpty())
        pendingA.swap(batch.audio);
    else
        pendingA += batch.audio;
    if (pendingV.isEmpty())
        pendingV.swap(batch.video);
    else
        pendingV += batch.video;

    if (!oc) {
        // Failed or not open: nothing can be written.
        counts->of(false).dropped.fetchAndAddRelaxed(pendingA.size());
        counts->of(true).dropped.fetchAndAddRelaxed(pendingV.size());
        release(pendingA + pendingV);
        pendingA.clear();
        pendingV.clear();
        return;
    }
    if (!headerWritten && !tryWriteHeader(starved))
        return;
    writePending();
    if (starved && oc)
        av_interleaved_write_frame(oc, nullptr);
}

bool VexaOutputFile::tryWriteHeader(bool force)
{
    if (!oc)
        return false;
    const bool haveV = inInfoV.type != 0;
    const bool haveA = inInfoA.type != 0;
    bool go = (haveV && haveA) || force;
    if (!go && (haveV || haveA)) {
        go = pendingA.size() + pendingV.size() >= headerWaitPackets || pool.usedBytes() * 2 >= pool.size();
    }
    if (!go)
        return false;

    // The streams in the order of the source's input when it sends extra
    // streams (as `ffmpeg -map 0` keeps them), else video, then audio.
    struct Wanted {
        QVariantMap params;
        int kind;                   // 1: video, 0: audio, 2: extra
        int extra;                  // extra stream number
    };
    QList<Wanted> wanted;
    if (haveV)
        wanted.append({inInfoV.params, 1, -1});
    if (haveA && inInfoA.params.value("kind").toString() != QLatin1String("none"))
        wanted.append({inInfoA.params, 0, -1});
    const QVariantList extras = haveA ? inInfoA.params.value("extraStreams").toList() : QVariantList();
    for (const QVariant &e : extras) {
        const QVariantMap m = e.toMap();
        wanted.append({m, 2, m.value("stream").toInt()});
    }
    if (!extras.isEmpty()) {
        std::stable_sort(wanted.begin(), wanted.end(), [](const Wanted &a, const Wanted &b) {
            return a.params.value("index").toInt() < b.params.value("index").toInt();
        });
    }
    extraTracks.clear();
    for (const Wanted &w : qAsConst(wanted)) {
        const QVariantMap &params = w.params;
        const QString kind = params.value("kind").toString();
        if (w.kind == 2) {
            // A stream the container cannot hold is left out, and said,
            // rather than have the whole header refused.
            const auto id = AVCodecID(params.value("codecId").toInt());
            if (w.extra < 0 || w.extra > 1024 || avformat_query_codec(oc->oformat, id, FF_COMPLIANCE_NORMAL) == 0) {
                qCWarning(lcExamples).noquote() << QStringLiteral("[%1] %2 stream %3 (%4) left out: %5 cannot hold it")
                                                   .arg(name(), kind, params.value("index").toString(),
                                                        params.value("codecName").toString(), QString::fromLatin1(oc->oformat->name));
                continue;
            }
        }
        const AVStream *st = VexaMedia::addStream(oc, params);
        if (!st) {
            if (w.kind == 2)
                qCWarning(lcExamples).noquote() << QStringLiteral("[%1] %2 stream %3 (%4) left out: no codec to describe it")
                                                   .arg(name(), kind, params.value("index").toString(), params.value("codecName").toString());
            else
                qCDebug(lcExamples).noquote() << QStringLiteral("[%1] cannot describe %2 stream (codec %3); left out")
                                      .arg(name(), w.kind == 1 ? "video" : "audio", params.value("codecName").toString());
            continue;
        }
        Track fresh;
        fresh.sourceTimeBase = st->time_base;
        fresh.flagsInTag = params.value("packetFlags").toString() == QLatin1String("tag");
        fresh.durationInTag = params.value("packetDuration").toString() == QLatin1String("tag");
        fresh.sampleRate = kind == QLatin1String("audio") ? params.value("sampleRate").toInt() : 0;
        fresh.videoDelay = params.value("videoDelay").toInt();
        fresh.frameRate = AVRational{params.value("frameRateNum").toInt(), params.value("frameRateDen").toInt()};
        fresh.index = st->index;
        if (w.kind == 2) {
            if (extraTracks.size() <= size_t(w.extra))
                extraTracks.resize(size_t(w.extra) + 1);
            extraTracks[size_t(w.extra)] = fresh;
        } else {
            tracks[w.kind] = fresh;
            (w.kind == 1 ? streamV : streamA) = st->index;
        }
    }
    if (oc->nb_streams == 0) {
        fail(QStringLiteral("no usable stream description received for %1").arg(settings.value("path").toString()));
        return false;
    }
    // Bounds how much media the muxer keeps back to interleave, and so how
    // much of the ring it holds.
    oc->max_interleave_delta = VexaMedia::TimeBase;
    oc->max_delay = muxDelayUs;
    const QString path = settings.value("path").toString();
    if (!(oc->oformat->flags & AVFMT_NOFILE) && !oc->pb) {
        const int r = avio_open(&oc->pb, path.toLocal8Bit().constData(), AVIO_FLAG_WRITE);
        if (r < 0) {
            fail(QStringLiteral("cannot create %1: %2").arg(path, VexaMedia::errorText(r)));
            return false;
        }
    }
    const int r = avformat_write_header(oc, nullptr);
    if (r < 0) {
        // Nothing usable was written: leave no broken file behind.
        const bool created = oc->pb != nullptr;
        closeMuxer();
        if (created)
            QFile::remove(path);
        fail(QStringLiteral("cannot write the header of %1: %2").arg(settings.value("path").toString(), VexaMedia::errorText(r)));
        return false;
    }
    headerWritten = true;
    if (debugLevel > 0)
        qCDebug(lcExamples).noquote() << name() << "header written, video stream" << streamV << "audio stream" << streamA;
    return true;
}

void VexaOutputFile::writePending()
{
    // Packets the muxer took are released by it (releaseBlock); the others here.
    QVector<Packet> unwritten;
    int ia = 0;
    int iv = 0;
    // Merge by decode time; the muxer's own interleaving does the rest.
    while (oc && (ia < pendingA.size() || iv < pendingV.size())) {
        bool takeVideo;
        if (ia >= pendingA.size())
            takeVideo = true;
        else if (iv >= pendingV.size())
            takeVideo = false;
        else
            takeVideo = VexaMedia::orderTime(pendingV.at(iv)) <= VexaMedia::orderTime(pendingA.at(ia));
        const Packet &p = takeVideo ? pendingV.at(iv++) : pendingA.at(ia++);
        if (!writeOne(p, takeVideo))
            unwritten.append(p);
    }
    if (!oc) {
        // Failed while writing: the rest is lost.
        for (; ia < pendingA.size(); ++ia) {
            counts->of(false).dropped.fetchAndAddRelaxed(1);
            unwritten.append(pendingA.at(ia));
        }
        for (; iv < pendingV.size(); ++iv) {
            counts->of(true).dropped.fetchAndAddRelaxed(1);
            unwritten.append(pendingV.at(iv));
        }
    }
    pendingA.clear();
    pendingV.clear();
    release(unwritten);
}

bool VexaOutputFile::writeOne(const Packet &pkt, bool video)
{
    VexaSinkCounters::Kind &c = counts->of(video);
    // Side data, and the extra stream of a packet that came on A marked as one.
    QVariantMap side;
    if (pkt.data && sideDataCount.loadAcquire() > 0) {
        QMutexLocker locker(&gate);
        side = sideData.take(pkt.data);
        sideDataCount.storeRelease(sideData.size());
    }
    Track *track = &tracks[video ? 1 : 0];
    int index = video ? streamV : streamA;
    const QVariant extra = side.take(extraStreamKey);
    if (extra.isValid()) {
        const int n = extra.toInt();
        track = n >= 0 && size_t(n) < extraTracks.size() ? &extraTracks[size_t(n)] : nullptr;
        index = track ? track->index : -1;
    }
    if (index < 0) {
        c.dropped.fetchAndAddRelaxed(1);
        return false;
    }
    Track &t = *track;
    const AVStream *st = oc->streams[index];

    // The muxer gets a reference instead of a copy: the source's own buffer
    // when it was lent (the pool hands its reference on), else one to the
    // ring block, released when the muxer lets go of it (it may keep
    // packets to interleave them).
    if (pkt.data) {
        if (void *lent = pool.disown(pkt.data, &VexaMedia::bufferLender))
            avpkt->buf = static_cast<AVBufferRef *>(lent);
        else
            avpkt->buf = av_buffer_create(reinterpret_cast<uint8_t *>(pkt.data), pkt.len + padding,
                                          &VexaOutputFile::releaseBlock, this, 0);
        if (!avpkt->buf) {
            c.dropped.fetchAndAddRelaxed(1);
            return false;
        }
    }
    avpkt->data = reinterpret_cast<uint8_t *>(pkt.data);
    avpkt->size = pkt.len;
    avpkt->stream_index = index;
    avpkt->pts = VexaMedia::toStreamTime(pkt.pts, t.sourceTimeBase, st->time_base);
    qint64 dts = VexaMedia::decodeTime(pkt);
    avpkt->dts = VexaMedia::toStreamTime(dts, t.sourceTimeBase, st->time_base);
    if (video || (extra.isValid() && st->codecpar->codec_type == AVMEDIA_TYPE_VIDEO)) {
        const bool known = dts != VexaMedia::NoPts;
        dts = followDecodeTime(t, pkt, dts);
        // A predicted time is not on the source's ticks: straight from
        // microseconds, as `ffmpeg` converts its own prediction.
        if (!known && dts != VexaMedia::NoPts)
            avpkt->dts = av_rescale_q(dts, usTimeBase, st->time_base);
    }
    if (t.sampleRate > 0 && dts != VexaMedia::NoPts && t.sourceTimeBase.num > 0) {
        // Audio times follow the samples, not the rounding of a coarse
        // source time base (milliseconds in Matroska and FLV), as `ffmpeg
        // -c copy` writes them; presentation time is the decode time.
        int samples = av_get_audio_frame_duration2(st->codecpar, pkt.len);
        if (samples <= 0)
            samples = st->codecpar->frame_size;
        if (samples > 0) {
            const int64_t ticks = av_rescale_q(dts, usTimeBase, t.sourceTimeBase);
            avpkt->dts = av_rescale_delta(t.sourceTimeBase, ticks, AVRational{1, t.sampleRate}, samples,
                                          &t.rescaleLast, st->time_base);
            avpkt->pts = avpkt->dts;
        }
    }
    avpkt->flags = t.flagsInTag ? (pkt.tag & (AV_PKT_FLAG_KEY | AV_PKT_FLAG_DISCARD | AV_PKT_FLAG_DISPOSABLE)) : 0;
    avpkt->duration = t.flagsInTag && t.durationInTag
            ? av_rescale_q(VexaMedia::tagDuration(pkt.tag), t.sourceTimeBase, st->time_base) : 0;
    avpkt->pos = -1;
    keepDecodeOrder(t, oc->oformat->flags);
    for (auto it = side.constBegin(); it != side.constEnd(); ++it) {
        const QByteArray bytes = it.value().toByteArray();
        uint8_t *d = av_packet_new_side_data(avpkt, AVPacketSideDataType(it.key().toInt()), size_t(bytes.size()));
        if (d)
            memcpy(d, bytes.constData(), size_t(bytes.size()));
    }
    if (dts != VexaMedia::NoPts) {
        counts->reachedMedia(dts - (t.firstUs == VexaMedia::NoPts ? (t.firstUs = dts) : t.firstUs));
    }
    // Takes the reference, also on failure.
    const int r = av_interleaved_write_frame(oc, avpkt);
    if (r < 0) {
        counts->rejected(this, video, pkt.pts, r);
        if (r == AVERROR(EIO) || r == AVERROR(ENOSPC))
            fail(QStringLiteral("cannot write %1: %2").arg(settings.value("path").toString(), VexaMedia::errorText(r)));
        return true;
    }
    counts->wrote(video, pkt.len);
    return true;
}

// The decode time of the video packet @p pkt, @p dts when it has one, else the one predicted
// from the packets before it as `ffmpeg -c copy` predicts it; remembers what
// the next packet's would be. Microseconds; NoPts when nothing is known yet.
qint64 VexaOutputFile::followDecodeTime(Track &t, const Packet &pkt, qint64 dts)
{
    if (!t.predicting) {
        t.predicting = true;
        // Before the first packet: the reorder delay in frames of the average
        // rate ahead of its presentation time.
        qint64 start = 0;
        if (t.frameRate.num > 0 && t.frameRate.den > 0)
            start = qint64(-t.videoDelay * double(VexaMedia::TimeBase) / av_q2d(t.frameRate));
        if (pkt.pts != VexaMedia::NoPts)
            start += pkt.pts;
        t.nextDtsUs = start;
    }
    if (dts == VexaMedia::NoPts)
        dts = t.nextDtsUs;
    const qint64 duration = t.flagsInTag && t.durationInTag ? VexaMedia::tagDuration(pkt.tag) : 0;
    if (dts != VexaMedia::NoPts && duration > 0)
        t.nextDtsUs = dts + av_rescale_q(duration, t.sourceTimeBase, usTimeBase);
    else
        t.nextDtsUs = dts;
    return dts;
}

// As `ffmpeg` does before the muxer: a decode time after the presentation
// time, or one not after the previous packet's (equal is allowed where the
// container allows it), is moved rather than have the muxer refuse the
// packet.
void VexaOutputFile::keepDecodeOrder(Track &t, int formatFlags)
{
    if (formatFlags & AVFMT_NOTIMESTAMPS)
        return;
    if (avpkt->dts != AV_NOPTS_VALUE && avpkt->pts != AV_NOPTS_VALUE && avpkt->dts > avpkt->pts) {
        const int64_t next = t.lastDts == AV_NOPTS_VALUE ? avpkt->dts : t.lastDts + 1;
        const int64_t a = avpkt->pts, b = avpkt->dts;
        avpkt->pts = avpkt->dts = a + b + next - qMin(qMin(a, b), next) - qMax(qMax(a, b), next);
    }
    if (avpkt->dts != AV_NOPTS_VALUE && t.lastDts != AV_NOPTS_VALUE) {
        const int64_t least = t.lastDts + ((formatFlags & AVFMT_TS_NONSTRICT) ? 0 : 1);
        if (avpkt->dts < least) {
            if (debugLevel > 0)
                qCDebug(lcExamples).noquote() << QStringLiteral("[%1] decode time %2 not after %3; moved to %4")
                                                 .arg(name()).arg(avpkt->dts).arg(t.lastDts).arg(least);
            if (avpkt->pts != AV_NOPTS_VALUE && avpkt->pts >= avpkt->dts)
                avpkt->pts = qMax<int64_t>(avpkt->pts, least);
            avpkt->dts = least;
        }
    }
    t.lastDts = avpkt->dts;
}

void VexaOutputFile::finish()
{
    {
        QMutexLocker locker(&gate);
        phase.storeRelease(Closing);
        changed.wakeAll();
    }
    // Senders waiting for ring room give up; what is queued is still written.
    pool.close();
    // Everything queued before stop still goes into the file, and so does a
    // stream whose description reached this thread only after the state
    // had changed (the source described it just before the stop).
    if (inInfoA.type == 0)
        inInfoA = parkedInfoA();
    if (inInfoV.type == 0)
        inInfoV = parkedInfoV();
    drain();
    if (oc && !headerWritten && inInfoA.type == 0 && inInfoV.type == 0 && pendingA.isEmpty() && pendingV.isEmpty()) {
        // Nothing arrived: no streams to write, which is not a failure; no
        // file is created.
        if (debugLevel > 0)
            qCDebug(lcExamples).noquote() << name() << "received nothing; no file written";
        closeMuxer();
    }
    if (oc && !headerWritten)
        tryWriteHeader(true);
    if (oc && headerWritten) {
        writePending();
        if (oc) {
            av_interleaved_write_frame(oc, nullptr);
            const int r = av_write_trailer(oc);
            if (r < 0)
                fail(QStringLiteral("cannot finish %1: %2").arg(settings.value("path").toString(), VexaMedia::errorText(r)));
        }
    }
    if (!pendingA.isEmpty() || !pendingV.isEmpty()) {
        counts->of(false).dropped.fetchAndAddRelaxed(pendingA.size());
        counts->of(true).dropped.fetchAndAddRelaxed(pendingV.size());
        release(pendingA + pendingV);
        pendingA.clear();
        pendingV.clear();
    }
    const bool complete = oc != nullptr;
    closeMuxer();
    {
        QMutexLocker locker(&gate);
        phase.storeRelease(Idle);
        changed.wakeAll();
    }
    const QVariantMap s = stats().toMap();
    if (debugLevel > 0 || s.value("dropped").toLongLong() > 0)
        qCDebug(lcExamples).noquote() << QStringLiteral("[%1] wrote %2 audio and %3 video packets, dropped %4")
                              .arg(name())
                              .arg(s.value("packetsA").toLongLong())
                              .arg(s.value("packetsV").toLongLong())
                              .arg(s.value("dropped").toLongLong());
    if (complete)
        sendEvent(QStringLiteral("done"), s);
}

void VexaOutputFile::fail(const QString &message)
{
    // Whoever receives the module's events (vexa-launch) reports the error
    // itself; the log has it only when no one does, so it shows once.
    if (debugLevel > 0 || !isSignalConnected(QMetaMethod::fromSignal(&VexaObject::newEvent)))
        qCDebug(lcExamples).noquote() << QStringLiteral("[%1] %2").arg(name(), message);
    closeMuxer();
    {
        // Senders stop waiting and drop until the module is stopped.
        QMutexLocker locker(&gate);
        phase.storeRelease(Closing);
        changed.wakeAll();
    }
    // Senders waiting for ring or queue room give up, and later packets are
    // dropped until the module starts again.
    pool.close();
    queue.close();
    sendEvent(QStringLiteral("error"), message);
}

void VexaOutputFile::closeMuxer()
{
    VexaMedia::closeOutput(&oc);
    headerWritten = false;
}
