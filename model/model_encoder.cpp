// The encoder behind a VENC channel: libavcodec's libx264 and libx265
// wrappers, set up from the channel attribute, the rate-control parameters
// and the VUI records. Pictures come out one per frame, in order, with
// their parameter sets before every IDR picture, as the board's encoder
// puts them out.

#include "model_encoder_p.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/opt.h>
}

// Spreads of the encoder's speed against its quality: the model favours
// speed (it must keep up with the sensor on a small host).
static const char *const kPreset = "veryfast";

VxEncoder::~VxEncoder()
{
    close();
}

void VxEncoder::close()
{
    avcodec_free_context(&ctx_);
    av_frame_free(&frame_);
    av_frame_free(&wrapped_);
    av_packet_free(&packet_);
    next_ = 0;
}

bool VxEncoder::rateOf(const hi_venc_rc_attr &rc, hi_u32 *gop, hi_u32 *srcFps, hi_u32 *dstFps)
{
    switch (vxInt(rc.rc_mode)) {
    case HI_VENC_RC_MODE_H264_CBR:
    case HI_VENC_RC_MODE_H264_VBR:
    case HI_VENC_RC_MODE_H264_AVBR:
    case HI_VENC_RC_MODE_H264_QVBR:
    case HI_VENC_RC_MODE_H264_CVBR:
    case HI_VENC_RC_MODE_H265_CBR:
    case HI_VENC_RC_MODE_H265_VBR:
    case HI_VENC_RC_MODE_H265_AVBR:
    case HI_VENC_RC_MODE_H265_QVBR:
    case HI_VENC_RC_MODE_H265_CVBR:
        // These records all start with gop, stats_time, src and dst rate.
        *gop = rc.h264_cbr.gop;
        *srcFps = rc.h264_cbr.src_frame_rate;
        *dstFps = rc.h264_cbr.dst_frame_rate;
        return true;
    case HI_VENC_RC_MODE_H264_FIXQP:
    case HI_VENC_RC_MODE_H265_FIXQP:
        *gop = rc.h264_fixqp.gop;
        *srcFps = rc.h264_fixqp.src_frame_rate;
        *dstFps = rc.h264_fixqp.dst_frame_rate;
        return true;
    case HI_VENC_RC_MODE_MJPEG_CBR:
    case HI_VENC_RC_MODE_MJPEG_VBR:
        *gop = 1;
        *srcFps = rc.mjpeg_cbr.src_frame_rate;
        *dstFps = rc.mjpeg_cbr.dst_frame_rate;
        return true;
    case HI_VENC_RC_MODE_MJPEG_FIXQP:
        *gop = 1;
        *srcFps = rc.mjpeg_fixqp.src_frame_rate;
        *dstFps = rc.mjpeg_fixqp.dst_frame_rate;
        return true;
    default:
        return false;
    }
}

// The JPEG quantiser scale (1 finest, 31 coarsest) of a quality factor (1 to 99).
static int qscaleOf(hi_u32 qfactor)
{
    const int q = static_cast<int>(std::min<hi_u32>(std::max<hi_u32>(qfactor, 1), 99));
    return 1 + (99 - q) * 30 / 98;
}

// Sets up FFmpeg's JPEG encoder: every picture a key picture, quality from
// the MJPEG rate control (snapshots: quality factor 90).
static void setUpJpeg(AVCodecContext *ctx, const hi_venc_rc_attr &rc, bool motion)
{
    ctx->pix_fmt = AV_PIX_FMT_YUVJ420P;
    ctx->color_range = AVCOL_RANGE_JPEG;
    const int mode = motion ? vxInt(rc.rc_mode) : HI_VENC_RC_MODE_MJPEG_FIXQP;
    if (mode == HI_VENC_RC_MODE_MJPEG_CBR || mode == HI_VENC_RC_MODE_MJPEG_VBR) {
        ctx->bit_rate = static_cast<int64_t>(rc.mjpeg_cbr.bit_rate) * 1000;
        ctx->rc_max_rate = ctx->bit_rate;
        ctx->rc_buffer_size = static_cast<int>(std::min<int64_t>(ctx->bit_rate * std::max<hi_u32>(rc.mjpeg_cbr.stats_time, 1), INT32_MAX));
        ctx->qmin = 1;
        ctx->qmax = 31;
    } else {
        ctx->flags |= AV_CODEC_FLAG_QSCALE;
        ctx->global_quality = FF_QP2LAMBDA * qscaleOf(motion ? rc.mjpeg_fixqp.qfactor : 90);
    }
}

// The QP limits of the rate-control parameter record for @p mode, as
// min/max pairs (I-frame limits are not separate in x264 and x265: the
// wider of the two ranges is used).
static void qpLimits(const hi_venc_rc_param &rc, int mode, hi_u32 *minQp, hi_u32 *maxQp)
{
    hi_u32 lo = 0, hi = 51, loI = 0, hiI = 51;
    switch (mode) {
    case HI_VENC_RC_MODE_H264_CBR:
        lo = rc.h264_cbr_param.min_qp, hi = rc.h264_cbr_param.max_qp;
        loI = rc.h264_cbr_param.min_i_qp, hiI = rc.h264_cbr_param.max_i_qp;
        break;
    case HI_VENC_RC_MODE_H264_VBR:
        lo = rc.h264_vbr_param.min_qp, hi = rc.h264_vbr_param.max_qp;
        loI = rc.h264_vbr_param.min_i_qp, hiI = rc.h264_vbr_param.max_i_qp;
        break;
    case HI_VENC_RC_MODE_H264_AVBR:
        lo = rc.h264_avbr_param.min_qp, hi = rc.h264_avbr_param.max_qp;
        loI = rc.h264_avbr_param.min_i_qp, hiI = rc.h264_avbr_param.max_i_qp;
        break;
    case HI_VENC_RC_MODE_H265_CBR:
        lo = rc.h265_cbr_param.min_qp, hi = rc.h265_cbr_param.max_qp;
        loI = rc.h265_cbr_param.min_i_qp, hiI = rc.h265_cbr_param.max_i_qp;
        break;
    case HI_VENC_RC_MODE_H265_VBR:
        lo = rc.h265_vbr_param.min_qp, hi = rc.h265_vbr_param.max_qp;
        loI = rc.h265_vbr_param.min_i_qp, hiI = rc.h265_vbr_param.max_i_qp;
        break;
    case HI_VENC_RC_MODE_H265_AVBR:
        lo = rc.h265_avbr_param.min_qp, hi = rc.h265_avbr_param.max_qp;
        loI = rc.h265_avbr_param.min_i_qp, hiI = rc.h265_avbr_param.max_i_qp;
        break;
    default:
        break;
    }
    *minQp = std::min(std::min(lo, loI), 51u);
    *maxQp = std::min(std::max(hi, hiI), 51u);
    if (*maxQp < *minQp)
        *maxQp = *minQp;
}

// The encoder's options for the rate-control attribute and parameters.
static std::string rateOptions(const VxEncoderSetup &setup)
{
    const hi_venc_rc_attr &rc = setup.attr.rc_attr;
    const int mode = vxInt(rc.rc_mode);
    char buf[160];
    switch (mode) {
    case HI_VENC_RC_MODE_H264_FIXQP:
    case HI_VENC_RC_MODE_H265_FIXQP: {
        // The I-frame QP is the P-frame QP less 6 log2 of the I/P ratio.
        const double ratio = std::pow(2.0, (static_cast<double>(rc.h264_fixqp.p_qp) - rc.h264_fixqp.i_qp) / 6.0);
        snprintf(buf, sizeof(buf), "qp=%u:ipratio=%.4f", std::min(rc.h264_fixqp.p_qp, 51u), ratio);
        return buf;
    }
    default:
        break;
    }
    hi_u32 minQp = 0, maxQp = 51;
    qpLimits(setup.rc, mode, &minQp, &maxQp);
    const hi_u32 stats = std::max<hi_u32>(rc.h264_cbr.stats_time, 1);
    const hi_u32 kbps = rc.h264_cbr.bit_rate; // bit_rate or max_bit_rate, same place
    if (mode == HI_VENC_RC_MODE_H264_CBR || mode == HI_VENC_RC_MODE_H265_CBR) {
        // Constant rate: the target is also the ceiling over the statistics window.
        snprintf(buf, sizeof(buf), "bitrate=%u:vbv-maxrate=%u:vbv-bufsize=%u:qpmin=%u:qpmax=%u", kbps, kbps,
                 kbps * stats, minQp, maxQp);
    } else {
        // Variable rates: constant quality under the ceiling of the maximum rate.
        snprintf(buf, sizeof(buf), "crf=23:vbv-maxrate=%u:vbv-bufsize=%u:qpmin=%u:qpmax=%u", kbps, kbps * stats,
                 minQp, maxQp);
    }
    return buf;
}

static const char *videoFormatName(int format)
{
    static const char *const names[] = {"component", "pal", "ntsc", "secam", "mac", "undef"};
    return format >= 0 && format <= 5 ? names[format] : "undef";
}

// Applies the VUI record's video signal description to @p ctx and @p params.
static void applySignal(AVCodecContext *ctx, const hi_venc_vui_video_signal &signal, std::string *params)
{
    if (!signal.video_signal_type_present_flag)
        return;
    *params += std::string(":videoformat=") + videoFormatName(signal.video_format);
    ctx->color_range = signal.video_full_range_flag ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
    if (signal.colour_description_present_flag) {
        ctx->color_primaries = static_cast<AVColorPrimaries>(signal.colour_primaries);
        ctx->color_trc = static_cast<AVColorTransferCharacteristic>(signal.transfer_characteristics);
        ctx->colorspace = static_cast<AVColorSpace>(signal.matrix_coefficients);
    }
}

bool VxEncoder::open(const VxEncoderSetup &setup, std::string *error)
{
    close();
    const hi_venc_attr &va = setup.attr.venc_attr;
    const int type = vxInt(va.type);
    hevc_ = type == HI_PT_H265;
    jpeg_ = type == HI_PT_JPEG || type == HI_PT_MJPEG;
    const char *name = hevc_ ? "libx265" : type == HI_PT_H264 ? "libx264" : jpeg_ ? "mjpeg" : nullptr;
    const AVCodec *codec = name ? avcodec_find_encoder_by_name(name) : nullptr;
    hi_u32 gop = 1, srcFps = 0, dstFps = 0;
    // Snapshot channels take no rate control.
    if (!codec || (type != HI_PT_JPEG && !rateOf(setup.attr.rc_attr, &gop, &srcFps, &dstFps))) {
        *error = std::string("no encoder for payload ") + std::to_string(vxInt(va.type)) + " and rate-control mode "
            + std::to_string(vxInt(setup.attr.rc_attr.rc_mode)) + (name ? std::string(" (") + name + ")" : "");
        return false;
    }
    const int fps = static_cast<int>(dstFps ? dstFps : srcFps ? srcFps : 30);
    gop = std::max<hi_u32>(gop, 1);

    ctx_ = avcodec_alloc_context3(codec);
    frame_ = av_frame_alloc();
    wrapped_ = av_frame_alloc();
    packet_ = av_packet_alloc();
    if (!ctx_ || !frame_ || !wrapped_ || !packet_) {
        *error = "out of memory";
        close();
        return false;
    }
    ctx_->width = static_cast<int>(va.pic_width);
    ctx_->height = static_cast<int>(va.pic_height);
    // libx264 reads the board's semi-planar layout (V first) as it lies in
    // the block; libx265 takes planar pictures only.
    ctx_->pix_fmt = type == HI_PT_H264 ? AV_PIX_FMT_NV21 : AV_PIX_FMT_YUV420P;
    ctx_->time_base = AVRational{1, fps};
    ctx_->framerate = AVRational{fps, 1};
    ctx_->gop_size = static_cast<int>(gop);
    ctx_->max_b_frames = 0;
    ctx_->bit_rate = 0;
    // One thread: the channel's own thread is the encoder's.
    ctx_->thread_count = 1;
    if (jpeg_) {
        setUpJpeg(ctx_, setup.attr.rc_attr, type == HI_PT_MJPEG);
        return openCodec(codec, name, std::string(), error);
    }

    // A fixed GOP of IDR pictures with the parameter sets in front of each.
    std::string params = "keyint=" + std::to_string(gop) + ":min-keyint=" + std::to_string(gop)
        + ":scenecut=0:bframes=0:repeat-headers=1:" + rateOptions(setup);
    if (hevc_) {
        params += ":open-gop=0:pools=none:frame-threads=1:log-level=error:info=0";
        if (!setup.vui265.vui_time_info.timing_info_present_flag)
            params += ":vui-timing-info=0";
        applySignal(ctx_, setup.vui265.vui_video_signal, &params);
    } else {
        params += ":log=0";
        applySignal(ctx_, setup.vui264.vui_video_signal, &params);
    }
    static const char *const h264Profiles[] = {"baseline", "main", "high"};
    const char *profile = hevc_ ? "main" : h264Profiles[std::min<hi_u32>(va.profile, 2)];

    av_opt_set(ctx_->priv_data, "preset", kPreset, 0);
    av_opt_set(ctx_->priv_data, "tune", "zerolatency", 0);
    av_opt_set(ctx_->priv_data, "profile", profile, 0);
    av_opt_set_int(ctx_->priv_data, "forced-idr", 1, 0);
    av_opt_set(ctx_->priv_data, hevc_ ? "x265-params" : "x264-params", params.c_str(), 0);
    return openCodec(codec, name, params, error);
}

bool VxEncoder::openCodec(const AVCodec *codec, const char *name, const std::string &params, std::string *error)
{
    const int ret = avcodec_open2(ctx_, codec, nullptr);
    if (ret < 0) {
        char text[AV_ERROR_MAX_STRING_SIZE] = {};
        av_strerror(ret, text, sizeof(text));
        *error = std::string(name) + " refused the channel's settings (" + params + "): " + text;
        close();
        return false;
    }
    frame_->format = ctx_->pix_fmt;
    frame_->width = ctx_->width;
    frame_->height = ctx_->height;
    if (av_frame_get_buffer(frame_, 0) < 0) {
        *error = "out of memory";
        close();
        return false;
    }
    return true;
}

// Copies a semi-planar 4:2:0 picture into a frame with V first (the H.264
// encoder's input when the picture has U first).
static void toVFirst(const VxPicture &pic, AVFrame *frame)
{
    for (hi_u32 y = 0; y < pic.height; ++y)
        std::copy_n(pic.plane[0] + y * pic.stride[0], pic.width, frame->data[0] + y * frame->linesize[0]);
    for (hi_u32 y = 0; y < pic.height / 2; ++y) {
        const unsigned char *c = pic.plane[1] + y * pic.stride[1];
        unsigned char *row = frame->data[1] + y * frame->linesize[1];
        for (hi_u32 x = 0; x < pic.width / 2; ++x) {
            row[2 * x] = c[2 * x + 1];
            row[2 * x + 1] = c[2 * x];
        }
    }
}

static void keepBlock(void *, uint8_t *)
{
    // The block belongs to the model; the encoder thread holds it while it encodes.
}

// Points @p frame at a semi-planar picture with V first, without copying:
// a reference-counted buffer over the block, so that libavcodec takes a
// reference rather than a copy.
static bool wrap(const VxPicture &pic, AVFrame *frame)
{
    av_frame_unref(frame);
    frame->format = AV_PIX_FMT_NV21;
    frame->width = static_cast<int>(pic.width);
    frame->height = static_cast<int>(pic.height);
    frame->buf[0] = av_buffer_create(pic.plane[0], static_cast<size_t>(pic.stride[0]) * pic.height, keepBlock,
                                     nullptr, AV_BUFFER_FLAG_READONLY);
    if (!frame->buf[0])
        return false;
    frame->data[0] = pic.plane[0];
    frame->data[1] = pic.plane[1];
    frame->linesize[0] = static_cast<int>(pic.stride[0]);
    frame->linesize[1] = static_cast<int>(pic.stride[1]);
    return true;
}

// Copies a semi-planar picture into the planar frame the encoder takes.
static void toPlanar(const VxPicture &pic, AVFrame *frame)
{
    for (hi_u32 y = 0; y < pic.height; ++y)
        std::copy_n(pic.plane[0] + y * pic.stride[0], pic.width, frame->data[0] + y * frame->linesize[0]);
    // Semi-planar 4:2:0 with V first (28) or U first (31).
    const bool vFirst = pic.format != HI_PIXEL_FORMAT_YUV_SEMIPLANAR_420;
    unsigned char *u = frame->data[1], *v = frame->data[2];
    for (hi_u32 y = 0; y < pic.height / 2; ++y) {
        const unsigned char *c = pic.plane[1] + y * pic.stride[1];
        unsigned char *uRow = u + y * frame->linesize[1], *vRow = v + y * frame->linesize[2];
        for (hi_u32 x = 0; x < pic.width / 2; ++x) {
            uRow[x] = c[2 * x + (vFirst ? 1 : 0)];
            vRow[x] = c[2 * x + (vFirst ? 0 : 1)];
        }
    }
}

// Splits Annex B bytes at their start codes into NAL units.
static void splitNals(const std::vector<unsigned char> &b, bool hevc, std::vector<VxNal> *nals)
{
    std::vector<size_t> starts; // where each start code begins
    for (size_t i = 0; i + 3 <= b.size(); ++i) {
        if (b[i] == 0 && b[i + 1] == 0 && b[i + 2] == 1) {
            starts.push_back(i > 0 && b[i - 1] == 0 ? i - 1 : i);
            i += 2;
        }
    }
    for (size_t k = 0; k < starts.size(); ++k) {
        VxNal nal;
        nal.offset = starts[k];
        nal.len = (k + 1 < starts.size() ? starts[k + 1] : b.size()) - starts[k];
        size_t head = starts[k];
        while (head < b.size() && b[head] == 0)
            ++head;
        ++head; // past the 1 of the start code
        if (head < b.size())
            nal.type = hevc ? (b[head] >> 1) & 0x3f : b[head] & 0x1f;
        nals->push_back(nal);
    }
}

bool VxEncoder::encode(const VxPicture &pic, bool idr, VxEncoded *out)
{
    if (!ctx_ || static_cast<int>(pic.width) != ctx_->width || static_cast<int>(pic.height) != ctx_->height)
        return false;
    AVFrame *in = frame_;
    if (ctx_->pix_fmt == AV_PIX_FMT_NV21 && pic.format == HI_PIXEL_FORMAT_YVU_SEMIPLANAR_420) {
        if (!wrap(pic, wrapped_))
            return false;
        in = wrapped_;
    } else {
        if (av_frame_make_writable(frame_) < 0)
            return false;
        if (ctx_->pix_fmt == AV_PIX_FMT_NV21)
            toVFirst(pic, frame_);
        else
            toPlanar(pic, frame_);
        vxCountFrameCopy();
    }
    in->pts = next_++;
    in->pict_type = idr ? AV_PICTURE_TYPE_I : AV_PICTURE_TYPE_NONE;
    const int sent = avcodec_send_frame(ctx_, in);
    av_frame_unref(wrapped_); // the block is the caller's again
    if (sent < 0)
        return false;
    *out = VxEncoded();
    bool got = false;
    while (avcodec_receive_packet(ctx_, packet_) == 0) {
        out->bytes.insert(out->bytes.end(), packet_->data, packet_->data + packet_->size);
        out->key = out->key || (packet_->flags & AV_PKT_FLAG_KEY);
        size_t statsSize = 0;
        if (const uint8_t *stats = av_packet_get_side_data(packet_, AV_PKT_DATA_QUALITY_STATS, &statsSize)) {
            if (statsSize >= 4)
                out->qp = static_cast<int>((stats[0] | stats[1] << 8 | stats[2] << 16 | stats[3] << 24) / FF_QP2LAMBDA);
        }
        got = true;
        av_packet_unref(packet_);
    }
    if (got && jpeg_) {
        // A JPEG picture is one pack.
        VxNal whole;
        whole.type = HI_VENC_JPEG_PACK_PIC;
        whole.len = out->bytes.size();
        out->nals.push_back(whole);
        out->key = true;
    } else if (got) {
        splitNals(out->bytes, hevc_, &out->nals);
    }
    return got && !out->nals.empty();
}
