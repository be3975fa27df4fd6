#include "vexaoutputnet.h"

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

} // namespace

VexaOutputNet::VexaOutputNet(QObject *parent)
    : VexaMediaSink(parent)
    , io(new VexaIoDeadline)
{
    counts->setDropping(true);
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
        sender->wait();
        delete sender;
    }
    closeMuxer();
    av_packet_free(&avpkt);
    unref(queues[0]);
    unref(queues[1]);
}

void VexaOutputNet::unref(QList<Queued> &list)
{
    for (Queued &q : list)
        av_buffer_unref(&q.buf);
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
    // A reference to the source's buffer where it lends one, else a copy
    // made outside the lock; the muxer takes either as it is.
    Queued q;
    q.meta = in;
    q.video = video;
    q.buf = VexaMedia::borrow(in.data, in.len, AV_INPUT_BUFFER_PADDING_SIZE);
    if (!q.buf) {
        q.buf = av_buffer_alloc(size_t(in.len) + AV_INPUT_BUFFER_PADDING_SIZE);
        if (!q.buf) {
            c.dropped.fetchAndAddRelaxed(1);
            return;
        }
        if (in.len > 0)
            memcpy(q.buf->data, in.data, size_t(in.len));
        memset(q.buf->data + in.len, 0, AV_INPUT_BUFFER_PADDING_SIZE);
        q.meta.data = reinterpret_cast<char *>(q.buf->data);
    }

    QList<Queued> old;
    {
        QMutexLocker locker(&gate);
        QList<Queued> &queue = queues[video ? 1 : 0];
        const int bound = bounds[video ? 1 : 0];
        if (!dropMode) {
            // Held back while the network is slower than the stream; gives up
            // once the module is stopped (the state changes before onStop
            // runs, so it is looked at too) or the destination failed.
            while (phase == Running && queue.size() >= bound && getState() == QLatin1String("started"))
                changed.wait(&gate, holdBackSliceMs);
        }
        if (phase != Running) {
            locker.unlock();
            av_buffer_unref(&q.buf);
            c.dropped.fetchAndAddRelaxed(1);
            return;
        }
        if (dropMode && !opened) {
            // Held until the destination is open, from a keyframe on.
            const bool key = isKey(q);
            if (video && !key && needKey) {
                locker.unlock();
                av_buffer_unref(&q.buf);
                c.dropped.fetchAndAddRelaxed(1);
                return;
            }
            if (video && key)
                needKey = false;
            queue.append(q);
            if (video && key && listening) {
                // A receiver yet to come starts at the latest keyframe.
                trimToKeyframe(&old);
            }
            while (queue.size() > holdPackets) {
                old.append(queue.takeFirst());
                // Video goes a whole group of pictures at a time.
                while (video && !queue.isEmpty() && !isKey(queue.first()))
                    old.append(queue.takeFirst());
            }
            changed.wakeAll();
        } else {
            while (queue.size() >= bound)
                old.append(queue.takeFirst());
            queue.append(q);
            changed.wakeAll();
        }
    }
    if (!old.isEmpty())
        dropList(old);
}

void VexaOutputNet::dropList(QList<Queued> &list)
{
    for (const Queued &o : qAsConst(list))
        counts->of(o.video).dropped.fetchAndAddRelaxed(1);
    unref(list);
}

bool VexaOutputNet::isKey(const Queued &q) const
{
    // Called with gate held. Without key flags every packet counts as one:
    // nothing waits for them.
    return !keyFlags || (q.meta.tag & AV_PKT_FLAG_KEY) != 0;
}

void VexaOutputNet::trimToKeyframe(QList<Queued> *old)
{
    // Called with gate held. The video from its latest keyframe on, and the
    // audio from that time on; without a keyframe, nothing.
    QList<Queued> &video = queues[1];
    int key = video.size() - 1;
    while (key >= 0 && !isKey(video.at(key)))
        --key;
    if (key < 0) {
        old->append(video);
        video.clear();
        old->append(queues[0]);
        queues[0].clear();
        needKey = descriptions[1].type != 0;
        return;
    }
    for (int i = 0; i < key; ++i)
        old->append(video.takeFirst());
    const qint64 start = VexaMedia::orderTime(video.first().meta);
    QList<Queued> &audio = queues[0];
    while (!audio.isEmpty() && VexaMedia::orderTime(audio.first().meta) < start)
        old->append(audio.takeFirst());
    needKey = false;
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
        bounds[0] = bufLenA < 0 ? std::numeric_limits<int>::max() : qMax(2, int(bufLenA));
        bounds[1] = bufLenV < 0 ? std::numeric_limits<int>::max() : qMax(2, int(bufLenV));
        descriptions[0] = inInfoA;
        descriptions[1] = inInfoV;
        keyFlags = inInfoV.params.value("packetFlags").toString() == QLatin1String("tag");
        const QString scheme = url.section(QLatin1String("://"), 0, 0).toLower();
        listening = settings.value("listen").toBool() && (scheme == QLatin1String("tcp") || scheme == QLatin1String("srt"));
        opened = false;
        needKey = true;
        phase = Running;
        changed.wakeAll();
    }
    io->reset();
    sender = QThread::create([this] { run(); });
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
    // Wait for the descriptions (or enough packets of one kind, or stop).
    StreamInfo infos[2];
    {
        QMutexLocker locker(&gate);
        for (;;) {
            const bool haveA = descriptions[0].type != 0;
            const bool haveV = descriptions[1].type != 0;
            // One kind described: go without the other once its packets
            // would soon fill their queue.
            const bool enough = queues[0].size() >= qMin(headerWaitPackets, bounds[0]) - 1
                    || queues[1].size() >= qMin(headerWaitPackets, bounds[1]) - 1;
            if ((haveA && haveV) || ((haveA || haveV) && enough))
                break;
            if (phase != Running) {
                if (haveA || haveV)
                    break;
                // Nothing was described: nothing to publish.
                QList<Queued> rest[2] = {queues[0], queues[1]};
                queues[0].clear();
                queues[1].clear();
                locker.unlock();
                for (int k = 0; k < 2; ++k) {
                    counts->of(k == 1).dropped.fetchAndAddRelaxed(rest[k].size());
                    unref(rest[k]);
                }
                return;
            }
            changed.wait(&gate);
        }
        infos[0] = descriptions[0];
        infos[1] = descriptions[1];
    }

    QString error;
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
    // A listening output listens again when its receiver goes away, as
    // long as the module runs; the next receiver starts at a keyframe.
    bool again = false;
    for (;;) {
        if (!openDestination(&error)) {
            bool stopped;
            {
                QMutexLocker locker(&gate);
                stopped = phase != Running;
                if (!stopped && again)
                    io->reset();
            }
            if (stopped && listening) {
                // Stopped before a receiver came: nothing to finish.
                dropQueued();
                return;
            }
            if (again)
                continue;   // nobody came within openTimeout: listen on
            fail(error);
            return;
        }
        {
            QMutexLocker locker(&gate);
            opened = true;
        }
        const int r = writeQueued();
        if (r == 0)
            break;
        const bool gone = r == AVERROR(EPIPE) || r == AVERROR(ECONNRESET) || r == AVERROR(EIO);
        if (listening && gone) {
            closeMuxer();
            QList<Queued> old;
            bool stopped;
            {
                QMutexLocker locker(&gate);
                opened = false;
                stopped = phase != Running;
                if (!stopped) {
                    if (dropMode)
                        trimToKeyframe(&old);
                    io->reset();
                }
            }
            dropList(old);
            if (stopped) {
                dropQueued();
                return;
            }
            qCDebug(lcExamples).noquote() << QStringLiteral("[%1] the receiver of %2 went away (%3); listening again")
                                             .arg(name(), url, VexaMedia::errorText(r));
            again = true;
            continue;
        }
        const bool late = r == AVERROR_EXIT && !io->aborted();
        fail(late ? QStringLiteral("%1 took no data for %2 s").arg(url).arg(writeTimeoutMs / 1000.0)
                  : QStringLiteral("cannot send to %1: %2").arg(url, VexaMedia::errorText(r)));
        return;
    }
    finish();
}

int VexaOutputNet::writeQueued()
{
    bool closing = false;
    qint64 flushDeadline = 0;
    while (oc) {
        QList<Queued> batch[2];
        {
            QMutexLocker locker(&gate);
            while (phase == Running && queues[0].isEmpty() && queues[1].isEmpty())
                changed.wait(&gate);
            batch[0].swap(queues[0]);
            batch[1].swap(queues[1]);
            closing = phase != Running;
            // Senders held back may go on.
            changed.wakeAll();
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
                k = VexaMedia::orderTime(batch[1].at(i[1]).meta) <= VexaMedia::orderTime(batch[0].at(i[0]).meta) ? 1 : 0;
            if (closing)
                io->armAt(flushDeadline);
            else
                io->arm(writeTimeoutMs);
            const int r = writeOne(batch[k].at(i[k]++), k == 1);
            if (r < 0) {
                io->disarm();
                for (int j = 0; j < 2; ++j) {
                    // What the failure left unwritten.
                    counts->of(j == 1).dropped.fetchAndAddRelaxed(batch[j].size() - i[j]);
                    unref(batch[j]);
                }
                return r;
            }
        }
        io->disarm();
        for (int k = 0; k < 2; ++k) {
            // What a failure left unwritten.
            counts->of(k == 1).dropped.fetchAndAddRelaxed(batch[k].size() - i[k]);
            unref(batch[k]);
        }
        if (closing && batch[0].isEmpty() && batch[1].isEmpty())
            break;
        if (closing) {
            QMutexLocker locker(&gate);
            if (queues[0].isEmpty() && queues[1].isEmpty())
                break;
        }
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
    const char *format = named.isEmpty() ? guessed : named.constData();
    const QByteArray u = url.toUtf8();
    int r = avformat_alloc_output_context2(&oc, nullptr, format, u.constData());
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

    AVDictionary *opts = nullptr;
    const bool listen = settings.value("listen").toBool();
    if (scheme == QLatin1String("rtsp"))
        av_dict_set(&opts, "rtsp_transport", settings.value("transport", QStringLiteral("tcp")).toString().toLatin1().constData(), 0);
    else if (scheme == QLatin1String("tcp") && listen)
        av_dict_set(&opts, "listen", "1", 0);
    else if (scheme == QLatin1String("srt")) {
        av_dict_set(&opts, "mode", listen ? "listener" : "caller", 0);
        // Closing waits for what is still in flight instead of dropping it.
        av_dict_set(&opts, "linger", QByteArray::number(qMax<qint64>(1, (writeTimeoutMs + 999) / 1000)).constData(), 0);
    }
    if ((scheme == QLatin1String("srt") || scheme == QLatin1String("udp")) && !strcmp(format, "mpegts"))
        av_dict_set(&opts, "pkt_size", datagramSize, 0);

    io->arm(openTimeoutMs);
    if (!(oc->oformat->flags & AVFMT_NOFILE)) {
        r = avio_open2(&oc->pb, u.constData(), AVIO_FLAG_WRITE, &oc->interrupt_callback, &opts);
        if (r < 0) {
            io->check();
            io->disarm();
            av_dict_free(&opts);
            *error = io->timedOut()
                    ? QStringLiteral("cannot reach %1 within %2 s").arg(url).arg(openTimeoutMs / 1000.0)
                    : QStringLiteral("cannot open %1: %2").arg(url, VexaMedia::errorText(r));
            closeMuxer();
            return false;
        }
    }
    r = avformat_write_header(oc, &opts);
    io->check();
    const bool late = io->timedOut();
    io->disarm();
    av_dict_free(&opts);
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

int VexaOutputNet::writeOne(const Queued &q, bool video)
{
    VexaSinkCounters::Kind &c = counts->of(video);
    Track &t = tracks[video ? 1 : 0];
    if (t.index < 0) {
        c.dropped.fetchAndAddRelaxed(1);
        return 0;
    }
    const AVStream *st = oc->streams[t.index];
    const Packet &p = q.meta;
    avpkt->buf = av_buffer_ref(q.buf);
    if (!avpkt->buf) {
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
    closeMuxer();
    if (r < 0) {
        fail(QStringLiteral("cannot finish the stream to %1: %2").arg(url, VexaMedia::errorText(r)));
        return;
    }
    sendEvent(QStringLiteral("done"), stats());
}

void VexaOutputNet::fail(const QString &message)
{
    closeMuxer();
    QList<Queued> rest[2];
    {
        // Senders stop waiting and drop until the module is stopped.
        QMutexLocker locker(&gate);
        phase = Closing;
        rest[0].swap(queues[0]);
        rest[1].swap(queues[1]);
        changed.wakeAll();
    }
    for (int k = 0; k < 2; ++k) {
        counts->of(k == 1).dropped.fetchAndAddRelaxed(rest[k].size());
        unref(rest[k]);
    }
    // Whoever receives the module's events (vexa-launch) reports the error
    // itself; the log has it only when no one does, so it shows once.
    if (debugLevel > 0 || !isSignalConnected(QMetaMethod::fromSignal(&VexaObject::newEvent)))
        qCDebug(lcExamples).noquote() << QStringLiteral("[%1] %2").arg(name(), message);
    sendEvent(QStringLiteral("error"), message);
}

void VexaOutputNet::dropQueued()
{
    QList<Queued> rest[2];
    {
        QMutexLocker locker(&gate);
        rest[0].swap(queues[0]);
        rest[1].swap(queues[1]);
        changed.wakeAll();
    }
    dropList(rest[0]);
    dropList(rest[1]);
}

void VexaOutputNet::closeMuxer()
{
    VexaMedia::closeOutput(&oc);
}
