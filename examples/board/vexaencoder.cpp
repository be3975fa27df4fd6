#include "vexaencoder.h"

#include <QDebug>
#include <QFile>
#include <QSocketNotifier>
#include <QTimer>

#include <poll.h>

extern "C" {
#include <libavcodec/codec_id.h>
}

#include "hi_mpi_venc.h"
#include "vexaboard.h"
#include "vexahi.h"
#include "vexatee.h"
#include "vexateechn.h"
#include "vx_mpi.h"

namespace {

const char *const codecs[] = {"h264", "h265", "mjpeg", "jpeg"};

QString hex(hi_s32 status)
{
    return QStringLiteral("%1").arg(uint(status), 0, 16).prepend("0x");
}

// The payload and rate-control mode of the settings; false when they do not fit.
bool rateControl(const QString &codec, const QString &mode, hi_payload_type *type, hi_venc_rc_mode *rc)
{
    const int m = mode == "cbr" ? 0 : mode == "vbr" ? 1 : mode == "avbr" ? 2 : mode == "fixqp" ? 3 : -1;
    if (m < 0)
        return false;
    if (codec == "h264") {
        *type = HI_PT_H264;
        const hi_venc_rc_mode modes[] = {HI_VENC_RC_MODE_H264_CBR, HI_VENC_RC_MODE_H264_VBR, HI_VENC_RC_MODE_H264_AVBR,
                                         HI_VENC_RC_MODE_H264_FIXQP};
        *rc = modes[m];
    } else if (codec == "h265") {
        *type = HI_PT_H265;
        const hi_venc_rc_mode modes[] = {HI_VENC_RC_MODE_H265_CBR, HI_VENC_RC_MODE_H265_VBR, HI_VENC_RC_MODE_H265_AVBR,
                                         HI_VENC_RC_MODE_H265_FIXQP};
        *rc = modes[m];
    } else if (codec == "mjpeg") {
        *type = HI_PT_MJPEG;
        if (m == 2)
            return false;
        const hi_venc_rc_mode modes[] = {HI_VENC_RC_MODE_MJPEG_CBR, HI_VENC_RC_MODE_MJPEG_VBR, HI_VENC_RC_MODE_MJPEG_CBR,
                                         HI_VENC_RC_MODE_MJPEG_FIXQP};
        *rc = modes[m];
    } else if (codec == "jpeg") {
        *type = HI_PT_JPEG;
        *rc = HI_VENC_RC_MODE_MJPEG_FIXQP;
    } else {
        return false;
    }
    return true;
}

// Whether an H.264 or H.265 NAL unit (first byte after the start code) is a parameter set.
bool parameterSet(bool hevc, hi_u8 first)
{
    if (hevc) {
        const int t = (first >> 1) & 0x3f;
        return t == 32 || t == 33 || t == 34;
    }
    const int t = first & 0x1f;
    return t == 7 || t == 8;
}

} // namespace

VexaEncoder::VexaEncoder(QObject *parent)
    : VexaObject(parent)
{
    directInvokeNames << "stats";
}

VexaEncoder::~VexaEncoder()
{
    detach();
}

QVariant VexaEncoder::stats()
{
    return QVariantMap{{"packetsV", packets.loadRelaxed()}, {"bytesV", bytes.loadRelaxed()}, {"dropped", 0},
                       {"keyframes", keyframes.loadRelaxed()}, {"snapshots", snaps.loadRelaxed()},
                       {"channel", channelNumber.loadRelaxed()}, {"mediaUs", mediaUs.loadRelaxed()}};
}

QString VexaEncoder::checkSetup(QVariantMap s, QVariantMap)
{
    const QString c = s.value("codec", "h264").toString();
    hi_payload_type type;
    hi_venc_rc_mode rc;
    if (!rateControl(c, s.value("rcmode", "cbr").toString(), &type, &rc))
        return QStringLiteral("the encoder cannot do codec \"%1\" with rate control \"%2\"").arg(c, s.value("rcmode", "cbr").toString());
    const int w = s.value("width", 0).toInt(), h = s.value("height", 0).toInt();
    const bool sourceSize = w == 0 && h == 0;
    const int limit = c == "h264" ? 4096 : 8192;
    if (!sourceSize && (w < 64 || h < 64 || w > limit || h > limit || w % 2 || h % 2))
        return QStringLiteral("the encoder cannot do %1x%2 in %3 (even sizes from 64x64 to %4x%4, or 0x0 for the source's)")
            .arg(w).arg(h).arg(c).arg(limit);
    const QString profile = s.value("profile", "main").toString();
    if (c == "h265" && profile != "main")
        return QStringLiteral("the encoder cannot do the %1 profile in h265 (main only)").arg(profile);
    if (s.value("fps", 0).toInt() < 0 || s.value("fps", 0).toInt() > 240)
        return QStringLiteral("fps %1 is outside 0-240").arg(s.value("fps").toInt());
    if (s.value("bitrate", 2000).toInt() <= 0)
        return QStringLiteral("bitrate %1 is not positive").arg(s.value("bitrate").toInt());
    const double snap = s.value("snapshot", 0).toDouble();
    if (snap < 0 || (snap > 0 && c != "jpeg"))
        return QStringLiteral("snapshots need codec jpeg and a positive number of seconds");
    return QString();
}

void VexaEncoder::onStart()
{
    const QString problem = checkSetup(settings, {});
    if (!problem.isEmpty()) {
        sendEvent("error", problem);
        return;
    }
    codec = settings.value("codec", "h264").toString();
    snapshots = codec == "jpeg";
    if (inInfoV.type == VexaBoard::PictureStream)
        attach(inInfoV.params);
}

void VexaEncoder::onStop()
{
    // Pictures already on their way are still taken and sent.
    // A source stopped before (as vexa-launch stops upstream first) lets the
    // last pictures through its tee; a running one is cut off after two
    // seconds.
    if (created && !snapshots) {
        QElapsedTimer quiet, total;
        quiet.start();
        total.start();
        while (quiet.elapsed() < 200 && total.elapsed() < 2000) {
            pollfd p = {fd, POLLIN, 0};
            if (poll(&p, 1, 20) > 0 && readOne())
                quiet.restart();
        }
    }
    detach();
}

void VexaEncoder::onSetData(QVariantMap data)
{
    // QP limits change on the running channel; everything else at the next attach.
    if (created && (data.contains("minqp") || data.contains("maxqp")))
        vx_mpi_venc_set_rc_param(chn, settings);
}

void VexaEncoder::onNewInfoV(StreamInfo info)
{
    if (getState() != QLatin1String("started"))
        return;
    // The description taken at start can arrive once more (parked before start).
    if (created && info.type == VexaBoard::PictureStream && info.params == attachedTo)
        return;
    detach();
    if (info.type == VexaBoard::PictureStream)
        attach(info.params);
    else if (info.type != 0)
        fail(QStringLiteral("its video input offers no tee (a compressed stream): link a capture or a decoder to it"));
}

void VexaEncoder::onUnLinkV(StreamInfo)
{
    detach();
}

void VexaEncoder::onNewEvent(QString type, QVariant)
{
    if (type == QLatin1String("keyframe") && created)
        hi_mpi_venc_request_idr(chn, HI_TRUE);
}

void VexaEncoder::fail(const QString &message)
{
    qDebug("%s: %s", qPrintable(name()), qPrintable(message));
    sendEvent("error", message);
}

bool VexaEncoder::attach(const QVariantMap &source)
{
    VexaTee *tee = VexaHi::getTee(source.value("tee", -1).toInt());
    if (!tee) {
        fail(QStringLiteral("tee %1 does not exist").arg(source.value("tee", -1).toInt()));
        return false;
    }
    const int srcFps = qMax(1, source.value("fps").toInt());
    width = settings.value("width", 0).toInt();
    height = settings.value("height", 0).toInt();
    if (width == 0 && height == 0) {
        width = source.value("width").toInt();
        height = source.value("height").toInt();
    }
    fps = settings.value("fps", 0).toInt();
    if (fps <= 0 || fps > srcFps)
        fps = srcFps;
    const hi_u32 gop = hi_u32(settings.value("gop", 0).toInt() > 0 ? settings.value("gop").toInt() : 2 * fps);
    const hi_u32 rate = hi_u32(settings.value("bitrate", 2000).toInt());
    const hi_u32 qp = hi_u32(settings.value("qp", 30).toInt());
    hi_payload_type type;
    hi_venc_rc_mode mode;
    rateControl(codec, settings.value("rcmode", "cbr").toString(), &type, &mode);

    chn = VexaBoard::takeChannel(VexaBoard::Encoder, settings.value("channel", -1).toInt());
    if (chn < 0) {
        fail(QStringLiteral("no free encoder channel"));
        return false;
    }
    channelNumber = chn;

    hi_venc_chn_attr attr = {};
    attr.venc_attr.type = type;
    attr.venc_attr.max_pic_width = attr.venc_attr.pic_width = hi_u32(width);
    attr.venc_attr.max_pic_height = attr.venc_attr.pic_height = hi_u32(height);
    attr.venc_attr.buf_size = hi_u32(width * height * 2);
    const QString profile = settings.value("profile", "main").toString();
    attr.venc_attr.profile = type == HI_PT_H264 ? (profile == "baseline" ? 0 : profile == "high" ? 2 : 1) : 0;
    attr.venc_attr.is_by_frame = HI_TRUE;
    attr.rc_attr.rc_mode = mode;
    const hi_u32 src = hi_u32(srcFps), dst = hi_u32(fps);
    switch (mode) {
    case HI_VENC_RC_MODE_H264_CBR:
    case HI_VENC_RC_MODE_H265_CBR:
        attr.rc_attr.h264_cbr = {gop, 1, src, dst, rate};
        break;
    case HI_VENC_RC_MODE_H264_VBR:
    case HI_VENC_RC_MODE_H265_VBR:
    case HI_VENC_RC_MODE_H264_AVBR:
    case HI_VENC_RC_MODE_H265_AVBR:
        attr.rc_attr.h264_vbr = {gop, 1, src, dst, rate};
        break;
    case HI_VENC_RC_MODE_H264_FIXQP:
    case HI_VENC_RC_MODE_H265_FIXQP:
        attr.rc_attr.h264_fixqp = {gop, src, dst, qp, qp, qp};
        break;
    case HI_VENC_RC_MODE_MJPEG_CBR:
    case HI_VENC_RC_MODE_MJPEG_VBR:
        attr.rc_attr.mjpeg_cbr = {1, src, dst, rate};
        break;
    default:
        attr.rc_attr.mjpeg_fixqp = {src, dst, qBound(1u, qp, 99u)};
        break;
    }
    attr.gop_attr.gop_mode = HI_VENC_GOP_MODE_NORMAL_P;

    const hi_s32 ret = hi_mpi_venc_create_chn(chn, &attr);
    if (ret != 0) {
        VexaBoard::releaseChannel(VexaBoard::Encoder, chn);
        chn = -1;
        fail(QStringLiteral("hi_mpi_venc_create_chn %1x%2 %3 failed with %4").arg(width).arg(height).arg(codec, hex(ret)));
        return false;
    }
    created = true;
    // The library's recipes: QP limits of the mode, the VUI, the stream count.
    vx_mpi_venc_set_rc_param(chn, settings);
    if (!settings.value("vui", true).toBool())
        vx_mpi_venc_vui_disable(chn, settings);
    vx_mpi_venc_set_max_stream(chn, 8);

    teeChn = tee->newChn();
    if (!teeChn || !teeChn->resizeChn(width, height, false) || !VexaHi::bindFromTee(teeChn, HI_ID_VENC, 0, chn)) {
        fail(QStringLiteral("tee %1 gave no channel for %2x%3").arg(tee->getId()).arg(width).arg(height));
        detach();
        return false;
    }
    fd = hi_mpi_venc_get_fd(chn);
    if (fd < 0) {
        fail(QStringLiteral("hi_mpi_venc_get_fd failed with %1").arg(hex(fd)));
        detach();
        return false;
    }
    notifier = new QSocketNotifier(fd, QSocketNotifier::Read, this);
    connect(notifier, &QSocketNotifier::activated, this, &VexaEncoder::readStreams);
    firstPts = -1;
    described = false;
    attachedTo = source;
    qDebug("%s: VENC channel %d, %s %dx%d at %d fps, from tee %d", qPrintable(name()), chn, qPrintable(codec), width, height, fps,
           tee->getId());
    if (snapshots) {
        snapshotTimer = new QTimer(this);
        snapshotTimer->setInterval(int(settings.value("snapshot", 0).toDouble() * 1000));
        connect(snapshotTimer, &QTimer::timeout, this, &VexaEncoder::snapshotDue);
        if (snapshotTimer->interval() > 0)
            snapshotTimer->start();
        snapshotDue();
    } else {
        vx_mpi_venc_start_chn(chn);
    }
    return true;
}

void VexaEncoder::detach()
{
    delete notifier;
    notifier = nullptr;
    delete snapshotTimer;
    snapshotTimer = nullptr;
    if (created) {
        // Unbind first, so that no picture arrives while the channel goes.
        VexaHi::bind(HI_ID_BUTT, 0, 0, HI_ID_VENC, 0, chn);
        hi_mpi_venc_stop_chn(chn);
        if (fd >= 0)
            hi_mpi_venc_close_fd(chn);
        hi_mpi_venc_destroy_chn(chn);
        created = false;
    }
    fd = -1;
    VexaBoard::releaseTeeChn(teeChn);
    if (chn >= 0)
        VexaBoard::releaseChannel(VexaBoard::Encoder, chn);
    chn = -1;
    channelNumber = -1;
}

void VexaEncoder::snapshotDue()
{
    // One picture per snapshot: the channel stops receiving after it.
    if (created)
        vx_mpi_venc_start_chn_ex(chn, 1);
}

void VexaEncoder::readStreams()
{
    while (created && readOne()) {
    }
}

bool VexaEncoder::readOne()
{
    hi_venc_chn_status status = {};
    if (hi_mpi_venc_query_status(chn, &status) != 0 || status.cur_packs == 0)
        return false;
    QVector<hi_venc_pack> packs(int(status.cur_packs));
    hi_venc_stream stream = {};
    stream.pack = packs.data();
    stream.pack_cnt = status.cur_packs;
    if (hi_mpi_venc_get_stream(chn, &stream, 0) != 0)
        return false;
    const bool hevc = codec == "h265";
    frame.clear();
    QByteArray sets;
    bool key = codec == "jpeg" || codec == "mjpeg";
    for (hi_u32 i = 0; i < stream.pack_cnt; ++i) {
        const hi_venc_pack &p = packs[int(i)];
        const char *data = reinterpret_cast<const char *>(p.addr + p.offset);
        const int len = int(p.len - p.offset);
        frame.append(data, len);
        if (hevc ? p.data_type.h265_type == HI_VENC_H265_NALU_IDR_SLICE : p.data_type.h264_type == HI_VENC_H264_NALU_IDR_SLICE)
            key = true;
        // Parameter sets: the start code, then the NAL header.
        const int at = len > 4 && data[2] == 0 ? 4 : 3;
        if (!described && codec != "jpeg" && codec != "mjpeg" && len > at && parameterSet(hevc, hi_u8(data[at])))
            sets.append(data, len);
    }
    const qint64 pts = qint64(packs[0].pts);
    hi_mpi_venc_release_stream(chn, &stream);

    if (snapshots) {
        const QString path = settings.value("path", "snapshot-%1.jpg").toString().arg(++snapshotNumber);
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly) || file.write(frame) != frame.size()) {
            fail(QStringLiteral("cannot write snapshot %1: %2").arg(path, file.errorString()));
            return true;
        }
        snaps.ref();
        sendEvent("snapshot", path);
        return true;
    }
    // A stream starts at its first IDR picture, described by its parameter sets.
    if (!described) {
        if (!key)
            return true;
        describe(sets);
    }
    if (firstPts < 0)
        firstPts = pts;
    Packet pkt;
    pkt.data = frame.data();
    pkt.len = frame.size();
    pkt.pts = pts - firstPts;
    pkt.altPts = -1;
    pkt.tag = key ? 1 : 0;
    packets.ref();
    bytes.fetchAndAddRelaxed(frame.size());
    if (key)
        keyframes.ref();
    mediaUs = pkt.pts;
    sendPacketV(pkt);
    return true;
}

void VexaEncoder::describe(const QByteArray &parameterSets)
{
    const bool hevc = codec == "h265";
    const QString profile = settings.value("profile", "main").toString();
    QVariantMap p{{"kind", "video"},
                  {"codecId", int(hevc ? AV_CODEC_ID_HEVC : codec == "h264" ? AV_CODEC_ID_H264 : AV_CODEC_ID_MJPEG)},
                  {"codecName", hevc ? "hevc" : codec == "h264" ? "h264" : "mjpeg"},
                  {"timeBaseNum", 1}, {"timeBaseDen", int(VexaBoard::TimeBase)},
                  {"width", width}, {"height", height}, {"pixelFormat", 0},
                  {"frameRateNum", fps}, {"frameRateDen", 1}, {"realFrameRateNum", fps}, {"realFrameRateDen", 1},
                  {"bitRate", qint64(settings.value("bitrate", 2000).toInt()) * 1000},
                  {"packetFlags", "tag"}};
    if (codec == "h264")
        p.insert("profile", profile == "baseline" ? 66 : profile == "high" ? 100 : 77);
    else if (hevc)
        p.insert("profile", 1);
    if (!parameterSets.isEmpty())
        p.insert("extradata", parameterSets);
    outInfoV.type = VexaBoard::CompressedStream;
    outInfoV.params = p;
    described = true;
    sendInfoV(outInfoV);
}
