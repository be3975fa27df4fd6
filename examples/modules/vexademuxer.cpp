#include "vexademuxer_p.h"

#include <QTimer>

#include "vexamedia.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace {
const AVRational usTimeBase{1, int(VexaMedia::TimeBase)};
// Packet durations up to this many stream ticks travel in the tag.
const qint64 maxTagDuration = 0xffffff;
}

VexaDemuxer::VexaDemuxer(VexaObject *module, std::function<void()> read)
    : pkt(av_packet_alloc())
    , module(module)
    , read(std::move(read))
{
}

void VexaDemuxer::scheduleRead(int delayMs)
{
    if (delayMs > 0) {
        if (!readTimer) {
            readTimer = new QTimer(module);
            readTimer->setSingleShot(true);
            readTimer->setTimerType(Qt::PreciseTimer);
            QObject::connect(readTimer, &QTimer::timeout, module, [this] { read(); });
        }
        readTimer->start(delayMs);
        return;
    }
    if (readPosted)
        return;
    readPosted = true;
    QMetaObject::invokeMethod(module, [this] {
        readPosted = false;
        read();
    }, Qt::QueuedConnection);
}

void VexaDemuxer::cancelRead()
{
    if (readTimer)
        readTimer->stop();
}

VexaDemuxer::~VexaDemuxer()
{
    close();
    av_packet_free(&pkt);
}

bool VexaDemuxer::findStreams(const QString &source, QString *error, bool all)
{
    videoIndex = av_find_best_stream(fmt, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    audioIndex = av_find_best_stream(fmt, AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
    extraNumber.fill(-1, int(fmt->nb_streams));
    extraCount = 0;
    for (int i = 0; all && i < int(fmt->nb_streams); ++i) {
        if (i != videoIndex && i != audioIndex)
            extraNumber[i] = extraCount++;
    }
    if (videoIndex < 0 && audioIndex < 0 && extraCount == 0) {
        *error = QStringLiteral("%1 holds no audio or video stream").arg(source);
        return false;
    }
    holding = false;
    paceStarted = false;
    return true;
}

VexaObject::StreamInfo VexaDemuxer::describe(bool video, VexaObject *sender) const
{
    VexaObject::StreamInfo info;
    const int index = video ? videoIndex : audioIndex;
    if (index >= 0) {
        info.type = VexaMedia::CompressedStream;
        info.params = VexaMedia::describe(fmt->streams[index]);
        // The file starts at 0, and so do its chapters.
        VexaMedia::describeContainer(fmt, fmt->start_time != AV_NOPTS_VALUE ? -fmt->start_time : 0, &info.params);
        info.sender = sender;
    }
    if (!video && extraCount > 0) {
        QVariantList extras;
        for (int i = 0; i < extraNumber.size(); ++i) {
            if (extraNumber.at(i) < 0)
                continue;
            QVariantMap p = VexaMedia::describe(fmt->streams[i]);
            p["stream"] = extraNumber.at(i);
            extras << p;
        }
        if (info.type == 0) {
            info.type = VexaMedia::CompressedStream;
            info.params["kind"] = QStringLiteral("none");
            VexaMedia::describeContainer(fmt, fmt->start_time != AV_NOPTS_VALUE ? -fmt->start_time : 0, &info.params);
            info.sender = sender;
        }
        info.params["extraStreams"] = extras;
    }
    return info;
}

void VexaDemuxer::close()
{
    if (pkt && holding)
        av_packet_unref(pkt);
    holding = false;
    if (fmt)
        avformat_close_input(&fmt);
    videoIndex = audioIndex = -1;
    extraNumber.clear();
    extraCount = 0;
}

int VexaDemuxer::readNext()
{
    while (!holding) {
        const int r = av_read_frame(fmt, pkt);
        if (r < 0)
            return r;
        if (pkt->stream_index == videoIndex || pkt->stream_index == audioIndex
            || extraNumber.value(pkt->stream_index, -1) >= 0)
            holding = true;
        else
            av_packet_unref(pkt);
    }
    return 0;
}

void VexaDemuxer::park(AVPacket *to)
{
    av_packet_move_ref(to, pkt);
    holding = false;
}

void VexaDemuxer::unpark(AVPacket *from)
{
    av_packet_move_ref(pkt, from);
    holding = true;
}

const AVStream *VexaDemuxer::stream() const
{
    return fmt->streams[pkt->stream_index];
}

int VexaDemuxer::extraStream() const
{
    return holding ? extraNumber.value(pkt->stream_index, -1) : -1;
}

bool VexaDemuxer::isVideo() const
{
    return pkt->stream_index == videoIndex;
}

int VexaDemuxer::paceDelayMs(qint64 shiftUs)
{
    const int64_t ts = pkt->dts != AV_NOPTS_VALUE ? pkt->dts : pkt->pts;
    if (ts == AV_NOPTS_VALUE)
        return 0;
    const qint64 us = av_rescale_q(ts, stream()->time_base, usTimeBase) + shiftUs;
    if (!paceStarted) {
        paceStarted = true;
        paceOrigin = us;
        paceClock.start();
    }
    const qint64 dueUs = us - paceOrigin - paceClock.nsecsElapsed() / 1000;
    return dueUs > 1000 ? int(qMin<qint64>(dueUs / 1000, 1000)) : 0;
}

VexaObject::Packet VexaDemuxer::packet(bool markSideData) const
{
    VexaObject::Packet out;
    out.data = reinterpret_cast<char *>(pkt->data);
    out.len = pkt->size;
    // Flags in the low byte, the duration in stream ticks above (see VexaMedia).
    out.tag = pkt->flags & VexaMedia::TagFlagsMask & ~(VexaMedia::TagSideData | VexaMedia::TagExtraStream);
    if (markSideData && pkt->side_data_elems > 0)
        out.tag |= VexaMedia::TagSideData;
    if (extraStream() >= 0)
        out.tag |= VexaMedia::TagExtraStream;
    if (pkt->duration > 0 && pkt->duration <= maxTagDuration)
        out.tag = qint32(quint32(out.tag) | (quint32(pkt->duration) << VexaMedia::TagDurationShift));
    return out;
}

void VexaDemuxer::send(const VexaObject::Packet &out)
{
    // Receivers in this thread keep the payload by reference, not by copy.
    const VexaPayloadLend lend = VexaMedia::lend(pkt->buf);
    if (isVideo()) {
        sentPacketsV.fetchAndAddRelaxed(1);
        bytesV.fetchAndAddRelaxed(pkt->size);
        module->sendPacketV(out);
    } else {
        sentPacketsA.fetchAndAddRelaxed(1);
        bytesA.fetchAndAddRelaxed(pkt->size);
        module->sendPacketA(out);
    }
    av_packet_unref(pkt);
    holding = false;
}

void VexaDemuxer::reachedMedia(qint64 us)
{
    if (us > mediaUs.loadRelaxed())
        mediaUs.storeRelease(us);
}

QVariantMap VexaDemuxer::counters() const
{
    QVariantMap m;
    m["packetsA"] = qint64(sentPacketsA.loadAcquire());
    m["packetsV"] = qint64(sentPacketsV.loadAcquire());
    m["bytesA"] = qint64(bytesA.loadAcquire());
    m["bytesV"] = qint64(bytesV.loadAcquire());
    m["dropped"] = qint64(0);
    m["mediaUs"] = qint64(mediaUs.loadAcquire());
    return m;
}
