#include "vexadecoder.h"

#include <QDebug>
#include <QElapsedTimer>
#include <QThread>

extern "C" {
#include <libavcodec/codec_id.h>
}

#include "hi_mpi_vdec.h"
#include "vexaboard.h"
#include "vexahi.h"
#include "vexatee.h"
#include "vx_mpi.h"

namespace {

const char startCode[] = {0, 0, 0, 1};

quint32 bigEndian(const uchar *p, int n)
{
    quint32 v = 0;
    for (int i = 0; i < n; ++i)
        v = (v << 8) | p[i];
    return v;
}

// Parameter sets of avcC or hvcC extradata in start-code form, and the
// length-prefix size of the packets; false when @p extra is neither.
bool unpackConfig(const QByteArray &extra, bool hevc, QByteArray *sets, int *lengthSize)
{
    const auto *p = reinterpret_cast<const uchar *>(extra.constData());
    const int n = extra.size();
    if (n < 7 || p[0] != 1)
        return false;
    int at = 0;
    auto take = [&](int count) {
        for (int i = 0; i < count; ++i) {
            if (at + 2 > n)
                return false;
            const int len = int(bigEndian(p + at, 2));
            at += 2;
            if (at + len > n)
                return false;
            sets->append(startCode, 4).append(extra.constData() + at, len);
            at += len;
        }
        return true;
    };
    if (!hevc) {
        *lengthSize = (p[4] & 3) + 1;
        at = 6;
        if (!take(p[5] & 0x1f) || at >= n)
            return false;
        const int pps = p[at++];
        return take(pps);
    }
    if (n < 23)
        return false;
    *lengthSize = (p[21] & 3) + 1;
    const int arrays = p[22];
    at = 23;
    for (int a = 0; a < arrays; ++a) {
        if (at + 3 > n)
            return false;
        const int count = int(bigEndian(p + at + 1, 2));
        at += 3;
        if (!take(count))
            return false;
    }
    return true;
}

} // namespace

VexaDecoder::VexaDecoder(QObject *parent)
    : VexaObject(parent)
{
    directInvokeNames << "stats";
    queue.setPayloadPool(&pool);
    queue.setWakeHandler([this] {
        if (QThread::currentThread() == thread())
            drain();
        else
            QMetaObject::invokeMethod(this, [this] { drain(); }, Qt::QueuedConnection);
    });
}

VexaDecoder::~VexaDecoder()
{
    close(false, false);
}

QVariant VexaDecoder::stats()
{
    return QVariantMap{{"packetsV", packets.loadRelaxed()}, {"bytesV", bytes.loadRelaxed()},
                       {"dropped", queue.dropped(VexaPacketQueue::Video)}, {"tee", teeId.loadRelaxed()},
                       {"channel", channelNumber.loadRelaxed()}};
}

void VexaDecoder::onStart()
{
    pool.setSize(settings.value("memSize", 8 << 20).toInt());
    queue.setOverflow(VexaPacketQueue::HoldBack);
    queue.setLimits(VexaPacketQueue::Video, {settings.value("bufLenV", 20).toInt(), -1, -1});
    failed = false;
    if (inInfoV.type == VexaBoard::CompressedStream)
        open(inInfoV.params);
}

void VexaDecoder::onStop()
{
    drain();
    close(true);
}

void VexaDecoder::onNewInfoV(StreamInfo info)
{
    // The description taken at start can arrive once more (parked before
    // start), and a source may refine one (a bit rate, a frame rate): the
    // channel changes only for another codec, size or parameter sets.
    const auto same = [this](const QVariantMap &p) {
        for (const char *key : {"codecId", "width", "height", "extradata"}) {
            if (p.value(key) != openedWith.value(key))
                return false;
        }
        return true;
    };
    if (created && info.type == VexaBoard::CompressedStream && same(info.params))
        return;
    drain();
    close(true);
    failed = false;
    if (info.type == VexaBoard::CompressedStream)
        open(info.params);
}

void VexaDecoder::onUnLinkV(StreamInfo)
{
    drain();
    close(true);
}

void VexaDecoder::onNewPacketV(Packet pkt)
{
    pkt.data = pool.keep(pkt.data, pkt.len);
    if (pkt.data)
        queue.push(pkt, VexaPacketQueue::Video);
}

void VexaDecoder::fail(const QString &message)
{
    failed = true;
    qDebug("%s: %s", qPrintable(name()), qPrintable(message));
    sendEvent("error", message);
}

bool VexaDecoder::open(const QVariantMap &params)
{
    const int codec = params.value("codecId").toInt();
    const hi_payload_type type = codec == AV_CODEC_ID_H264 ? HI_PT_H264
                               : codec == AV_CODEC_ID_HEVC ? HI_PT_H265
                               : HI_PT_MJPEG;
    const bool known = codec == AV_CODEC_ID_H264 || codec == AV_CODEC_ID_HEVC || codec == AV_CODEC_ID_MJPEG;
    const int width = params.value("width").toInt(), height = params.value("height").toInt();
    if (!known) {
        fail(QStringLiteral("the decoder cannot take codec \"%1\" (h264, hevc, mjpeg)").arg(params.value("codecName").toString()));
        return false;
    }
    headers.clear();
    lengthSize = 0;
    const QByteArray extra = params.value("extradata").toByteArray();
    if (type != HI_PT_MJPEG && !extra.isEmpty() && !unpackConfig(extra, type == HI_PT_H265, &headers, &lengthSize))
        headers = extra; // already in start-code form

    chn = VexaBoard::takeChannel(VexaBoard::Decoder, settings.value("channel", -1).toInt());
    if (chn < 0) {
        fail(QStringLiteral("no free decoder channel"));
        return false;
    }
    channelNumber = chn;
    hi_vdec_chn_attr attr = {};
    attr.type = type;
    attr.mode = HI_VDEC_SEND_MODE_FRAME;
    attr.pic_width = hi_u32(width);
    attr.pic_height = hi_u32(height);
    attr.stream_buf_size = hi_u32(qMax(width * height * 3 / 2, 1 << 20));
    attr.frame_buf_cnt = hi_u32(qMax(2, settings.value("pictures", 4).toInt()));
    attr.video_attr.ref_frame_num = 4;
    hi_s32 ret = hi_mpi_vdec_create_chn(chn, &attr);
    if (ret == 0) {
        created = true;
        ret = hi_mpi_vdec_start_recv_stream(chn);
    }
    if (ret != 0) {
        fail(QStringLiteral("VDEC channel %1 (%2x%3) failed with %4").arg(chn).arg(width).arg(height)
                 .arg(QString::number(uint(ret), 16).prepend("0x")));
        close(false);
        return false;
    }
    openedWith = params;
    tee = VexaHi::newTee(HI_ID_VDEC, 0, chn);
    teeId = tee->getId();
    int fps = 25;
    if (params.value("frameRateNum").toInt() > 0 && params.value("frameRateDen").toInt() > 0)
        fps = qMax(1, qRound(params.value("frameRateNum").toDouble() / params.value("frameRateDen").toDouble()));
    outInfoV.type = VexaBoard::PictureStream;
    outInfoV.params = VexaBoard::pictureParams(tee->getId(), width, height, fps);
    sendInfoV(outInfoV);
    return true;
}

void VexaDecoder::close(bool finish, bool announce)
{
    if (created && finish) {
        // The end of the stream drains the decoder; wait until every picture went on.
        hi_vdec_stream end = {};
        end.end_of_stream = HI_TRUE;
        hi_mpi_vdec_send_stream(chn, &end, 1000);
        QElapsedTimer timer;
        timer.start();
        hi_vdec_chn_status status = {};
        while (timer.elapsed() < 5000 && hi_mpi_vdec_query_status(chn, &status) == 0
               && (status.left_stream_bytes > 0 || status.left_decoded_frames > 0 || status.left_stream_frames > 0))
            QThread::msleep(10);
    }
    if (tee) {
        VexaBoard::releasePictureTee(tee);
        teeId = -1;
    }
    if (created) {
        hi_mpi_vdec_stop_recv_stream(chn);
        hi_mpi_vdec_destroy_chn(chn);
        created = false;
    }
    if (chn >= 0)
        VexaBoard::releaseChannel(VexaBoard::Decoder, chn);
    chn = -1;
    channelNumber = -1;
    // Receivers learn that the tee is gone.
    if (outInfoV.type && announce) {
        outInfoV = StreamInfo();
        sendInfoV(outInfoV);
    }
}

void VexaDecoder::drain()
{
    queue.take(&batch);
    for (const Packet &p : qAsConst(batch.video)) {
        if (created && !failed)
            feed(p);
        pool.release(p.data);
    }
    batch.video.clear();
}

void VexaDecoder::feed(const Packet &in)
{
    Packet p = in;
    p.altPts = -1; // pictures carry their presentation time
    annexB.clear();
    if (!headers.isEmpty()) {
        annexB = headers;
        headers.clear();
    }
    if (lengthSize > 0) {
        const auto *d = reinterpret_cast<const uchar *>(p.data);
        int at = 0;
        while (at + lengthSize <= p.len) {
            const int len = int(bigEndian(d + at, lengthSize));
            at += lengthSize;
            if (len < 0 || at + len > p.len)
                break;
            annexB.append(startCode, 4).append(p.data + at, len);
            at += len;
        }
    } else if (!annexB.isEmpty()) {
        annexB.append(p.data, p.len);
    }
    if (!annexB.isEmpty()) {
        p.data = annexB.data();
        p.len = annexB.size();
    }
    hi_vdec_stream stream = vx_vdec_stream_init(p);
    hi_s32 ret;
    // The channel's buffer frees as it decodes; a stop ends the wait.
    while ((ret = hi_mpi_vdec_send_stream(chn, &stream, 200)) == HI_ERR_VDEC_BUF_FULL && getState() == QLatin1String("started")) {
    }
    if (ret != 0 && ret != HI_ERR_VDEC_BUF_FULL) {
        fail(QStringLiteral("hi_mpi_vdec_send_stream failed with %1").arg(QString::number(uint(ret), 16).prepend("0x")));
        return;
    }
    packets.ref();
    bytes.fetchAndAddRelaxed(in.len);
}
