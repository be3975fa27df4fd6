#include "vexainputfile.h"

#include <QMetaMethod>

#include "vexademuxer_p.h"
#include "vexaexamples_p.h"
#include "vexamedia.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/error.h>
}

namespace {

const AVRational usTimeBase{1, int(VexaMedia::TimeBase)};
// Packets sent per posted call when running as fast as possible: long enough
// to amortise the hop through the event loop, short enough to see stop soon.
const int readBatch = 64;
// A decode-time jump larger than this in a container whose timestamps may
// restart (MPEG-TS) is a discontinuity, taken out of what is sent.
const qint64 discontinuityThreshold = 10 * VexaMedia::TimeBase;

} // namespace

VexaInputFile::VexaInputFile(QObject *parent)
    : VexaObject(parent)
    , demux(new VexaDemuxer(this, [this] { readSome(); }))
{
    directInvokeNames << QStringLiteral("stats") << QStringLiteral("packetSideData") << QStringLiteral("packetStream");
}

VexaInputFile::~VexaInputFile()
{
    closeFile();
}

QVariant VexaInputFile::stats()
{
    QVariantMap m = demux->counters();
    m["loops"] = int(loops.loadAcquire());
    return m;
}

QVariant VexaInputFile::packetSideData()
{
    QVariantMap m;
    if (!demux->isHolding())
        return m;
    const AVPacket *pkt = demux->pkt;
    for (int i = 0; i < pkt->side_data_elems; ++i) {
        const AVPacketSideData &sd = pkt->side_data[i];
        m.insert(QString::number(int(sd.type)), QByteArray(reinterpret_cast<const char *>(sd.data), int(sd.size)));
    }
    return m;
}

QVariant VexaInputFile::packetStream()
{
    return demux->extraStream();
}

void VexaInputFile::onSetData(QVariantMap data)
{
    if (data.contains("loop"))
        loop = data.value("loop").toBool();
    if (data.contains("realtime")) {
        realtime = data.value("realtime").toBool();
        demux->restartPace();
    }
    // A new path takes effect at the next start.
}

void VexaInputFile::onStart()
{
    loop = settings.value("loop").toBool();
    realtime = settings.value("realtime").toBool();
    copyTimestamps = settings.value("copyTimestamps").toBool();
    allStreams = settings.value("streams").toString() == QLatin1String("all");
    closeFile();
    if (!openFile())
        return;
    running = true;
    demux->scheduleRead(0);
}

void VexaInputFile::onStop()
{
    running = false;
    demux->cancelRead();
    closeFile();
}

bool VexaInputFile::openFile()
{
    const QString path = settings.value("path").toString();
    if (path.isEmpty()) {
        fail(QStringLiteral("no \"path\" setting"));
        return false;
    }
    const QByteArray local = path.toLocal8Bit();
    int r = avformat_open_input(&demux->fmt, local.constData(), nullptr, nullptr);
    if (r < 0) {
        fail(QStringLiteral("cannot open %1: %2").arg(path, VexaMedia::errorText(r)));
        return false;
    }
    r = avformat_find_stream_info(demux->fmt, nullptr);
    if (r < 0) {
        fail(QStringLiteral("cannot read stream parameters of %1: %2").arg(path, VexaMedia::errorText(r)));
        closeFile();
        return false;
    }
    QString error;
    if (!demux->findStreams(path, &error, allStreams)) {
        fail(error);
        closeFile();
        return false;
    }
    const AVFormatContext *fmt = demux->fmt;

    firstTsKnown = false;
    loopOffset = 0;
    // As a remux by `ffmpeg -c copy` does, the file's start time becomes 0.
    startShift = !copyTimestamps && fmt->start_time != AV_NOPTS_VALUE ? -qint64(fmt->start_time) : 0;
    discontShift = 0;
    canRestartTimestamps = !copyTimestamps && (fmt->iformat->flags & AVFMT_TS_DISCONT);
    lastDecodeTime = VexaMedia::NoPts;
    for (Track &t : tracks)
        t = Track();
    passEnd = VexaMedia::NoPts;
    passPackets = 0;

    // Descriptions go out before the first packet; outInfoA/V make later
    // links receive them too.
    outInfoV = demux->describe(true, this);
    if (outInfoV.type != 0)
        sendInfoV(outInfoV);
    outInfoA = demux->describe(false, this);
    if (outInfoA.type != 0)
        sendInfoA(outInfoA);
    if (debugLevel > 0)
        qCDebug(lcExamples).noquote() << name() << "opened" << path << "video" << demux->videoIndex
                                      << "audio" << demux->audioIndex << "extra streams" << demux->extraCount;
    return true;
}

void VexaInputFile::closeFile()
{
    demux->close();
}

void VexaInputFile::fail(const QString &message)
{
    running = false;
    // Whoever receives the module's events (vexa-launch) reports the error
    // itself; the log has it only when no one does, so it shows once.
    if (debugLevel > 0 || !isSignalConnected(QMetaMethod::fromSignal(&VexaObject::newEvent)))
        qCDebug(lcExamples).noquote() << QStringLiteral("[%1] %2").arg(name(), message);
    sendEvent(QStringLiteral("error"), message);
}

bool VexaInputFile::rewind()
{
    // The next pass starts where this one ended, so timestamps keep rising.
    loopOffset = passEnd - firstTs;
    discontShift = 0;
    AVFormatContext *fmt = demux->fmt;
    const int r = av_seek_frame(fmt, -1, fmt->start_time != AV_NOPTS_VALUE ? fmt->start_time : 0,
                                AVSEEK_FLAG_BACKWARD);
    if (r < 0) {
        fail(QStringLiteral("cannot rewind %1: %2").arg(settings.value("path").toString(), VexaMedia::errorText(r)));
        return false;
    }
    loops.fetchAndAddRelaxed(1);
    passPackets = 0;
    return true;
}

void VexaInputFile::readSome()
{
    for (int n = 0; running && n < readBatch; ++n) {
        const int r = demux->readNext();
        if (r == AVERROR(EAGAIN)) {
            demux->scheduleRead(10);
            return;
        }
        if (r == AVERROR_EOF) {
            if (loop && passPackets > 0 && firstTsKnown && passEnd > firstTs) {
                if (!rewind())
                    return;
                continue;
            }
            running = false;
            if (debugLevel > 0)
                qCDebug(lcExamples).noquote() << name() << "end of file";
            sendEvent(QStringLiteral("eos"), name());
            return;
        }
        if (r < 0) {
            fail(QStringLiteral("cannot read %1: %2").arg(settings.value("path").toString(), VexaMedia::errorText(r)));
            return;
        }
        if (realtime) {
            const int delay = demux->paceDelayMs(loopOffset + startShift + discontShift);
            if (delay > 0) {
                demux->scheduleRead(delay);
                return;
            }
        }
        sendCurrent();
    }
    if (running)
        demux->scheduleRead(0);
}

// Takes a restart of the timestamps out of what is sent, as `ffmpeg -c copy`
// does for containers that allow one: a decode time that jumps by more than
// the threshold from the one predicted, or goes back before the last one,
// moves every later timestamp of the file by the jump.
void VexaInputFile::followDecodeTime(bool video, const AVStream *st, qint64 *pts, qint64 *dts)
{
    Track &t = tracks[video ? 1 : 0];
    if (canRestartTimestamps) {
        qint64 jump = 0;
        if (t.nextDts == VexaMedia::NoPts) {
            if (lastDecodeTime != VexaMedia::NoPts && qAbs(*dts - lastDecodeTime) > discontinuityThreshold)
                jump = *dts - lastDecodeTime;
        } else {
            const qint64 d = *dts - t.nextDts;
            if (qAbs(d) > discontinuityThreshold || *dts + VexaMedia::TimeBase / 10 < t.lastDts)
                jump = d;
        }
        if (jump != 0) {
            discontShift -= jump;
            *dts -= jump;
            if (*pts != VexaMedia::NoPts)
                *pts -= jump;
            if (debugLevel > 0)
                qCDebug(lcExamples).noquote() << QStringLiteral("[%1] timestamp discontinuity of %2 us taken out")
                                                 .arg(name()).arg(static_cast<long long>(jump));
        }
    }
    // The next decode time expected: by the codec's frame size for audio, else
    // the packet's duration, else the frame rate.
    const AVCodecParameters *par = st->codecpar;
    qint64 step = 0;
    if (par->codec_type == AVMEDIA_TYPE_AUDIO && par->sample_rate > 0 && par->frame_size > 0)
        step = VexaMedia::TimeBase * par->frame_size / par->sample_rate;
    else if (demux->pkt->duration > 0)
        step = av_rescale_q(demux->pkt->duration, st->time_base, usTimeBase);
    else if (st->avg_frame_rate.num > 0 && st->avg_frame_rate.den > 0)
        step = av_rescale_q(1, av_inv_q(st->avg_frame_rate), usTimeBase);
    t.lastDts = *dts;
    t.nextDts = *dts + step;
    lastDecodeTime = *dts;
}

void VexaInputFile::sendCurrent()
{
    const AVPacket *pkt = demux->pkt;
    const AVStream *st = demux->stream();
    const bool video = demux->isVideo();

    Packet out = demux->packet(true);
    const qint64 shift = startShift + discontShift + loopOffset;
    qint64 pts = VexaMedia::NoPts;
    qint64 dts = VexaMedia::NoPts;
    if (pkt->pts != AV_NOPTS_VALUE)
        pts = av_rescale_q(pkt->pts, st->time_base, usTimeBase) + shift;
    if (pkt->dts != AV_NOPTS_VALUE)
        dts = av_rescale_q(pkt->dts, st->time_base, usTimeBase) + shift;
    // Extra streams keep their own times (moved as the others are).
    if (dts != VexaMedia::NoPts && demux->extraStream() < 0)
        followDecodeTime(video, st, &pts, &dts);
    out.pts = pts;
    // altPts stays -1 when decode and presentation time agree; a missing
    // decode time is sent as NoPts so that the receiver does not take pts for it.
    if (dts != pts)
        out.altPts = dts;

    const qint64 ts = dts != VexaMedia::NoPts ? dts : pts;
    if (ts != VexaMedia::NoPts) {
        if (!firstTsKnown || (loopOffset == 0 && ts < firstTs)) {
            firstTs = ts;
            firstTsKnown = true;
        }
        const qint64 dur = pkt->duration > 0 ? av_rescale_q(pkt->duration, st->time_base, usTimeBase) : 1;
        passEnd = qMax(passEnd, qMax(ts, pts) + dur);
        demux->reachedMedia(qMax(ts, pts) - firstTs);
    }

    ++passPackets;
    demux->send(out);
}
