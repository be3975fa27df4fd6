#include "vexainputfile.h"

#include <QTimer>

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
// Packet durations up to this many stream ticks travel in the tag.
const qint64 maxTagDuration = 0xffffff;

QString avError(int code)
{
    char text[AV_ERROR_MAX_STRING_SIZE] = {0};
    av_strerror(code, text, sizeof(text));
    return QString::fromLocal8Bit(text);
}

} // namespace

VexaInputFile::VexaInputFile(QObject *parent)
    : VexaObject(parent)
{
    directInvokeNames << QStringLiteral("stats") << QStringLiteral("packetSideData");
}

VexaInputFile::~VexaInputFile()
{
    closeFile();
    av_packet_free(&pkt);
}

QVariant VexaInputFile::stats()
{
    QVariantMap m;
    m["packetsA"] = qint64(sentPacketsA.loadAcquire());
    m["packetsV"] = qint64(sentPacketsV.loadAcquire());
    m["bytesA"] = qint64(bytesA.loadAcquire());
    m["bytesV"] = qint64(bytesV.loadAcquire());
    m["dropped"] = qint64(0);
    m["loops"] = int(loops.loadAcquire());
    m["mediaUs"] = qint64(mediaUs.loadAcquire());
    return m;
}

QVariant VexaInputFile::packetSideData()
{
    QVariantMap m;
    if (!pkt || !havePacket)
        return m;
    for (int i = 0; i < pkt->side_data_elems; ++i) {
        const AVPacketSideData &sd = pkt->side_data[i];
        m.insert(QString::number(int(sd.type)), QByteArray(reinterpret_cast<const char *>(sd.data), int(sd.size)));
    }
    return m;
}

void VexaInputFile::onSetData(QVariantMap data)
{
    if (data.contains("loop"))
        loop = data.value("loop").toBool();
    if (data.contains("realtime")) {
        realtime = data.value("realtime").toBool();
        paceStarted = false;
    }
    // A new path takes effect at the next start.
}

void VexaInputFile::onStart()
{
    loop = settings.value("loop").toBool();
    realtime = settings.value("realtime").toBool();
    copyTimestamps = settings.value("copyTimestamps").toBool();
    if (!pkt)
        pkt = av_packet_alloc();
    if (!paceTimer) {
        paceTimer = new QTimer(this);
        paceTimer->setSingleShot(true);
        paceTimer->setTimerType(Qt::PreciseTimer);
        connect(paceTimer, &QTimer::timeout, this, [this] { readSome(); });
    }
    closeFile();
    if (!openFile())
        return;
    running = true;
    scheduleRead(0);
}

void VexaInputFile::onStop()
{
    running = false;
    if (paceTimer)
        paceTimer->stop();
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
    int r = avformat_open_input(&fmt, local.constData(), nullptr, nullptr);
    if (r < 0) {
        fail(QStringLiteral("cannot open %1: %2").arg(path, avError(r)));
        return false;
    }
    r = avformat_find_stream_info(fmt, nullptr);
    if (r < 0) {
        fail(QStringLiteral("cannot read stream parameters of %1: %2").arg(path, avError(r)));
        closeFile();
        return false;
    }
    videoIndex = av_find_best_stream(fmt, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    audioIndex = av_find_best_stream(fmt, AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
    if (videoIndex < 0 && audioIndex < 0) {
        fail(QStringLiteral("%1 holds no audio or video stream").arg(path));
        closeFile();
        return false;
    }

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
    paceStarted = false;
    havePacket = false;

    // Descriptions go out before the first packet; outInfoA/V make later
    // links receive them too.
    if (videoIndex >= 0) {
        outInfoV.type = VexaMedia::CompressedStream;
        outInfoV.params = VexaMedia::describe(fmt->streams[videoIndex]);
        outInfoV.sender = this;
        sendInfoV(outInfoV);
    } else {
        outInfoV = StreamInfo();
    }
    if (audioIndex >= 0) {
        outInfoA.type = VexaMedia::CompressedStream;
        outInfoA.params = VexaMedia::describe(fmt->streams[audioIndex]);
        outInfoA.sender = this;
        sendInfoA(outInfoA);
    } else {
        outInfoA = StreamInfo();
    }
    if (debugLevel > 0)
        qCDebug(lcExamples).noquote() << name() << "opened" << path << "video" << videoIndex << "audio" << audioIndex;
    return true;
}

void VexaInputFile::closeFile()
{
    if (pkt && havePacket)
        av_packet_unref(pkt);
    havePacket = false;
    if (fmt)
        avformat_close_input(&fmt);
    videoIndex = audioIndex = -1;
}

void VexaInputFile::fail(const QString &message)
{
    running = false;
    qCDebug(lcExamples).noquote() << QStringLiteral("[%1] %2").arg(name(), message);
    sendEvent(QStringLiteral("error"), message);
}

void VexaInputFile::scheduleRead(int delayMs)
{
    if (delayMs > 0) {
        paceTimer->start(delayMs);
        return;
    }
    if (readPosted)
        return;
    readPosted = true;
    QMetaObject::invokeMethod(this, [this] {
        readPosted = false;
        readSome();
    }, Qt::QueuedConnection);
}

bool VexaInputFile::rewind()
{
    // The next pass starts where this one ended, so timestamps keep rising.
    loopOffset = passEnd - firstTs;
    discontShift = 0;
    const int r = av_seek_frame(fmt, -1, fmt->start_time != AV_NOPTS_VALUE ? fmt->start_time : 0,
                                AVSEEK_FLAG_BACKWARD);
    if (r < 0) {
        fail(QStringLiteral("cannot rewind %1: %2").arg(settings.value("path").toString(), avError(r)));
        return false;
    }
    loops.fetchAndAddRelaxed(1);
    passPackets = 0;
    return true;
}

void VexaInputFile::readSome()
{
    for (int n = 0; running && n < readBatch; ++n) {
        if (!havePacket) {
            const int r = av_read_frame(fmt, pkt);
            if (r == AVERROR(EAGAIN)) {
                scheduleRead(10);
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
                fail(QStringLiteral("cannot read %1: %2").arg(settings.value("path").toString(), avError(r)));
                return;
            }
            if (pkt->stream_index != videoIndex && pkt->stream_index != audioIndex) {
                av_packet_unref(pkt);
                continue;
            }
            havePacket = true;
        }

        if (realtime) {
            const AVRational tb = fmt->streams[pkt->stream_index]->time_base;
            const int64_t ts = pkt->dts != AV_NOPTS_VALUE ? pkt->dts : pkt->pts;
            if (ts != AV_NOPTS_VALUE) {
                const qint64 us = av_rescale_q(ts, tb, usTimeBase) + loopOffset + startShift + discontShift;
                if (!paceStarted) {
                    paceStarted = true;
                    paceOrigin = us;
                    paceClock.start();
                }
                const qint64 dueUs = us - paceOrigin - paceClock.nsecsElapsed() / 1000;
                if (dueUs > 1000) {
                    // Wait at most a second at a time and look again, so
                    // that a jump in the timestamps cannot overflow the delay.
                    scheduleRead(int(qMin<qint64>(dueUs / 1000, 1000)));
                    return;
                }
            }
        }
        sendCurrent();
    }
    if (running)
        scheduleRead(0);
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
    else if (pkt->duration > 0)
        step = av_rescale_q(pkt->duration, st->time_base, usTimeBase);
    else if (st->avg_frame_rate.num > 0 && st->avg_frame_rate.den > 0)
        step = av_rescale_q(1, av_inv_q(st->avg_frame_rate), usTimeBase);
    t.lastDts = *dts;
    t.nextDts = *dts + step;
    lastDecodeTime = *dts;
}

void VexaInputFile::sendCurrent()
{
    const AVStream *st = fmt->streams[pkt->stream_index];
    const bool video = pkt->stream_index == videoIndex;

    Packet out;
    out.data = reinterpret_cast<char *>(pkt->data);
    out.len = pkt->size;
    // Flags in the low byte, the duration in stream ticks above (see VexaMedia).
    out.tag = pkt->flags & VexaMedia::TagFlagsMask & ~VexaMedia::TagSideData;
    if (pkt->side_data_elems > 0)
        out.tag |= VexaMedia::TagSideData;
    if (pkt->duration > 0 && pkt->duration <= maxTagDuration)
        out.tag = qint32(quint32(out.tag) | (quint32(pkt->duration) << VexaMedia::TagDurationShift));
    const qint64 shift = startShift + discontShift + loopOffset;
    qint64 pts = VexaMedia::NoPts;
    qint64 dts = VexaMedia::NoPts;
    if (pkt->pts != AV_NOPTS_VALUE)
        pts = av_rescale_q(pkt->pts, st->time_base, usTimeBase) + shift;
    if (pkt->dts != AV_NOPTS_VALUE)
        dts = av_rescale_q(pkt->dts, st->time_base, usTimeBase) + shift;
    if (dts != VexaMedia::NoPts)
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
        const qint64 media = qMax(ts, pts) - firstTs;
        if (media > mediaUs.loadRelaxed())
            mediaUs.storeRelease(media);
    }

    ++passPackets;
    if (video) {
        sentPacketsV.fetchAndAddRelaxed(1);
        bytesV.fetchAndAddRelaxed(pkt->size);
        sendPacketV(out);
    } else {
        sentPacketsA.fetchAndAddRelaxed(1);
        bytesA.fetchAndAddRelaxed(pkt->size);
        sendPacketA(out);
    }
    // Receivers copied what they keep while sendPacket ran.
    av_packet_unref(pkt);
    havePacket = false;
}
