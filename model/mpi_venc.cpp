// VENC module of the software model: module parameters and, per channel,
// rate control, VUI, channel parameters and picture reception. A created
// and started channel runs a thread that encodes the frames of its input
// queue (sent or bound) with libx264, libx265 or FFmpeg's JPEG encoder into
// its stream buffer, one pack per NAL unit (per picture for JPEG), and
// signals its event descriptor for each picture.
// Channels that were never created keep their records and receive nothing.

#include "hi_mpi_venc.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <type_traits>
#include <sys/eventfd.h>
#include <unistd.h>

#include "model_encoder_p.h"

// Smallest and largest pictures the encoder takes.
static const hi_u32 kMinSize = 32;
static const hi_u32 kMaxSize = 8192;

static VxVencChn *channel(VxState &s, hi_venc_chn chn)
{
    return chn >= 0 && chn < HI_VENC_MAX_CHN_NUM ? &s.venc[chn] : nullptr;
}

// Why @p mod_param cannot be used, or HI_SUCCESS when its module type is known.
static hi_s32 checkModParam(const hi_venc_mod_param *mod_param)
{
    if (!mod_param)
        return HI_ERR_VENC_NULL_PTR;
    if (vxInt(mod_param->mod_type) < HI_VENC_MOD_VENC || vxInt(mod_param->mod_type) > HI_VENC_MOD_RC)
        return HI_ERR_VENC_ILLEGAL_PARAM;
    return HI_SUCCESS;
}

// Calls @p fn with channel @p chn when the number is valid.
template <typename Fn>
static hi_s32 onChannel(VxState &s, hi_venc_chn chn, Fn fn)
{
    VxVencChn *c = channel(s, chn);
    return c ? fn(*c) : HI_ERR_VENC_INVALID_CHN_ID;
}

// Copies @p member of channel @p chn out to the caller.
template <typename Record>
static hi_s32 getChn(VxState &s, hi_venc_chn chn, Record VxVencChn::*member, Record *out)
{
    return onChannel(s, chn, [&](VxVencChn &c) { return vxCopyOut(c.*member, out, HI_ERR_VENC_NULL_PTR); });
}

// Stores the caller's record as @p member of channel @p chn.
template <typename Record, typename... Check>
static hi_s32 setChn(VxState &s, hi_venc_chn chn, Record VxVencChn::*member, const Record *in, Check... check)
{
    return onChannel(s, chn, [&](VxVencChn &c) {
        const hi_s32 status = vxCopyIn(c.*member, in, HI_ERR_VENC_NULL_PTR, check...);
        // A running encoder picks the new record up with its next picture.
        if (status == HI_SUCCESS && !std::is_same<Record, hi_venc_chn_param>::value)
            ++c.generation;
        return status;
    });
}

hi_s32 hi_mpi_venc_get_mod_param(hi_venc_mod_param *mod_param)
{
    VX_CALL(vxStatus, "%d", mod_param ? vxInt(mod_param->mod_type) : -1);
    const hi_s32 status = checkModParam(mod_param);
    if (status != HI_SUCCESS)
        return status;
    *mod_param = s.vencMod[mod_param->mod_type];
    return HI_SUCCESS;
}

hi_s32 hi_mpi_venc_set_mod_param(const hi_venc_mod_param *mod_param)
{
    VX_CALL(vxStatus, "%d", mod_param ? vxInt(mod_param->mod_type) : -1);
    const hi_s32 status = checkModParam(mod_param);
    if (status != HI_SUCCESS)
        return status;
    // Module parameters are fixed once any channel receives pictures.
    for (const VxVencChn &chn : s.venc) {
        if (chn.started)
            return HI_ERR_VENC_NOT_PERM;
    }
    s.vencMod[mod_param->mod_type] = *mod_param;
    return HI_SUCCESS;
}

hi_s32 hi_mpi_venc_get_rc_param(hi_venc_chn chn, hi_venc_rc_param *rc_param)
{
    VX_CALL(vxStatus, "%d", chn);
    return getChn(s, chn, &VxVencChn::rc, rc_param);
}

hi_s32 hi_mpi_venc_set_rc_param(hi_venc_chn chn, const hi_venc_rc_param *rc_param)
{
    VX_CALL(vxStatus, "%d", chn);
    return setChn(s, chn, &VxVencChn::rc, rc_param);
}

hi_s32 hi_mpi_venc_get_h264_vui(hi_venc_chn chn, hi_venc_h264_vui *h264_vui)
{
    VX_CALL(vxStatus, "%d", chn);
    return getChn(s, chn, &VxVencChn::vui264, h264_vui);
}

hi_s32 hi_mpi_venc_set_h264_vui(hi_venc_chn chn, const hi_venc_h264_vui *h264_vui)
{
    VX_CALL(vxStatus, "%d", chn);
    return setChn(s, chn, &VxVencChn::vui264, h264_vui);
}

hi_s32 hi_mpi_venc_get_h265_vui(hi_venc_chn chn, hi_venc_h265_vui *h265_vui)
{
    VX_CALL(vxStatus, "%d", chn);
    return getChn(s, chn, &VxVencChn::vui265, h265_vui);
}

hi_s32 hi_mpi_venc_set_h265_vui(hi_venc_chn chn, const hi_venc_h265_vui *h265_vui)
{
    VX_CALL(vxStatus, "%d", chn);
    return setChn(s, chn, &VxVencChn::vui265, h265_vui);
}

// The channel @p chn when it was created; otherwise @p status says why not.
static VxVencChn *created(VxState &s, hi_venc_chn chn, hi_s32 *status)
{
    VxVencChn *c = channel(s, chn);
    if (!c) {
        *status = HI_ERR_VENC_INVALID_CHN_ID;
        return nullptr;
    }
    if (!c->exists) {
        *status = HI_ERR_VENC_UNEXIST;
        return nullptr;
    }
    return c;
}

// Calls @p fn with channel @p chn when it was created; otherwise returns why not.
template <typename Fn>
static hi_s32 onCreated(VxState &s, hi_venc_chn chn, Fn fn)
{
    hi_s32 status = HI_SUCCESS;
    VxVencChn *c = created(s, chn, &status);
    return c ? fn(*c) : status;
}

// Why the model cannot encode with @p attr, or HI_SUCCESS.
static hi_s32 checkAttr(const hi_venc_chn_attr &attr)
{
    const hi_venc_attr &va = attr.venc_attr;
    const int type = vxInt(va.type);
    if (type == HI_PT_PRORES)
        return HI_ERR_VENC_NOT_SUPPORT;
    if (type != HI_PT_H264 && type != HI_PT_H265 && type != HI_PT_JPEG && type != HI_PT_MJPEG)
        return HI_ERR_VENC_ILLEGAL_PARAM;
    if (va.pic_width < kMinSize || va.pic_height < kMinSize || va.pic_width > va.max_pic_width
        || va.pic_height > va.max_pic_height || va.max_pic_width > kMaxSize || va.max_pic_height > kMaxSize
        || va.pic_width % 2 || va.pic_height % 2)
        return HI_ERR_VENC_ILLEGAL_PARAM;
    if (va.profile > (type == HI_PT_H264 ? 2u : 0u))
        return HI_ERR_VENC_ILLEGAL_PARAM;
    // Snapshot channels take no rate control.
    if (type == HI_PT_JPEG)
        return HI_SUCCESS;
    // The rate-control mode must belong to the payload.
    const int mode = vxInt(attr.rc_attr.rc_mode);
    const bool h264Mode = mode >= HI_VENC_RC_MODE_H264_CBR && mode <= HI_VENC_RC_MODE_H264_QPMAP;
    const bool h265Mode = mode >= HI_VENC_RC_MODE_H265_CBR && mode <= HI_VENC_RC_MODE_H265_QPMAP;
    const bool mjpegMode = mode >= HI_VENC_RC_MODE_MJPEG_CBR && mode <= HI_VENC_RC_MODE_MJPEG_FIXQP;
    if ((type == HI_PT_H264 && !h264Mode) || (type == HI_PT_H265 && !h265Mode) || (type == HI_PT_MJPEG && !mjpegMode))
        return HI_ERR_VENC_ILLEGAL_PARAM;
    hi_u32 gop = 0, srcFps = 0, dstFps = 0;
    if (!VxEncoder::rateOf(attr.rc_attr, &gop, &srcFps, &dstFps))
        return HI_ERR_VENC_NOT_SUPPORT; // QP maps
    if (gop == 0 || srcFps == 0 || dstFps == 0 || dstFps > srcFps || srcFps > 240)
        return HI_ERR_VENC_ILLEGAL_PARAM;
    if (vxInt(attr.gop_attr.gop_mode) < 0 || vxInt(attr.gop_attr.gop_mode) >= HI_VENC_GOP_MODE_BUTT)
        return HI_ERR_VENC_ILLEGAL_PARAM;
    return HI_SUCCESS;
}

// What a freshly created channel reports before anyone changed it.
static void setDefaults(VxVencChn &c, hi_u32 fps)
{
    c.rc = hi_venc_rc_param();
    c.param = hi_venc_chn_param();
    c.param.max_stream_cnt = 3;
    c.param.frame_rate = {-1, -1};
    // Timing information and a BT.709 colour description in the VUI.
    c.vui264 = hi_venc_h264_vui();
    c.vui264.vui_time_info = {1, 0, 1, 2 * fps};
    c.vui265 = hi_venc_h265_vui();
    c.vui265.vui_time_info = {1, 1, fps, 0};
    for (hi_venc_vui_video_signal *v : {&c.vui264.vui_video_signal, &c.vui265.vui_video_signal})
        *v = {1, 5, 0, 1, 1, 1, 1};
}

// Fills the rate-control parameters of the channel's own mode.
static void fillRcDefaults(VxVencChn &c)
{
    hi_venc_rc_param &rc = c.rc;
    auto set = [](auto &p) {
        p.max_qp = p.max_i_qp = 51;
        p.min_qp = p.min_i_qp = 10;
        p.max_i_proportion = 100;
        p.min_i_proportion = 1;
    };
    switch (vxInt(c.attr.rc_attr.rc_mode)) {
    case HI_VENC_RC_MODE_H264_VBR: set(rc.h264_vbr_param); break;
    case HI_VENC_RC_MODE_H264_AVBR: set(rc.h264_avbr_param); break;
    case HI_VENC_RC_MODE_H265_CBR: set(rc.h265_cbr_param); break;
    case HI_VENC_RC_MODE_H265_VBR: set(rc.h265_vbr_param); break;
    case HI_VENC_RC_MODE_H265_AVBR: set(rc.h265_avbr_param); break;
    default: set(rc.h264_cbr_param); break;
    }
}

// Signals @p n more ready streams on the channel's descriptor (n < 0 takes
// them back; INT32_MIN takes all).
static void signalReady(VxVencChn &c, int n)
{
    if (c.fd < 0)
        return;
    if (n > 0) {
        const uint64_t add = static_cast<uint64_t>(n);
        if (write(c.fd, &add, sizeof(add)) != sizeof(add))
            perror("vexa twin: venc eventfd");
        return;
    }
    uint64_t one = 0;
    for (int i = 0; (n == INT32_MIN || i < -n) && read(c.fd, &one, sizeof(one)) == sizeof(one); ++i) {
    }
}

// Room for @p bytes in the stream buffer: the offset, or false when the
// live streams leave none.
static bool allocate(VxVencChn &c, hi_u32 bytes, hi_u32 *offset)
{
    if (bytes > c.bufSize)
        return false;
    if (c.used.empty()) {
        *offset = 0;
    } else {
        const hi_u32 first = c.used.front().first;
        const hi_u32 tail = c.used.back().first + c.used.back().second;
        const bool wrapped = c.used.back().first < first;
        if (!wrapped && tail + bytes <= c.bufSize)
            *offset = tail;
        else if (!wrapped && bytes <= first)
            *offset = 0;
        else if (wrapped && tail + bytes <= first)
            *offset = tail;
        else
            return false;
    }
    c.used.emplace_back(*offset, bytes);
    return true;
}

// Gives back the stretch of a stream (streams may be released in any order).
static void deallocate(VxVencChn &c, hi_u32 offset)
{
    for (auto &u : c.used) {
        if (u.first == offset && u.second) {
            u.second = 0; // released; the stretch goes once the older ones have
            break;
        }
    }
    while (!c.used.empty() && c.used.front().second == 0)
        c.used.pop_front();
}

// Drops every stream, queued or held, and every waiting frame. Streams the
// user holds keep their bytes: the buffer is retired (its region stays until
// they are released) and the channel gets a fresh one when it goes on.
static void dropAll(VxState &s, VxVencChn &c, hi_venc_chn chn, bool keepChannel)
{
    if (!c.held.empty()) {
        VxVencRetired retired;
        retired.chn = chn;
        retired.phys = c.bufPhys;
        retired.size = c.bufSize;
        for (const VxVencStream &st : c.held)
            retired.seqs.push_back(st.seq);
        s.vencRetired.push_back(retired);
        if (keepChannel) {
            VxRegion region;
            region.mem->assign(c.bufSize, 0);
            c.bufPhys = vxReserve(s, c.bufSize);
            s.regions[c.bufPhys] = std::move(region);
        }
    } else if (!keepChannel) {
        s.regions.erase(c.bufPhys);
    }
    vxUnrefAll(s, c.stage.input.frames);
    c.ready.clear();
    c.held.clear();
    c.used.clear();
    signalReady(c, INT32_MIN);
    vxModel().changed.notify_all();
}

static unsigned char *bufferData(VxState &s, const VxVencChn &c)
{
    hi_u32 offset = 0;
    VxRegion *region = vxRegionAt(s, c.bufPhys, c.bufSize, &offset);
    return region ? region->data() + offset : nullptr;
}

// The thread of a started channel: one input frame at a time through the encoder.
static void encodeThread(hi_venc_chn chn, VxWorker *worker)
{
    VxEncoder encoder;
    hi_u32 openedFor = 0;
    bool failed = false;
    std::unique_lock<std::mutex> lock(vxModel().mutex);
    VxState &s = vxModel().s;
    VxVencChn &c = s.venc[chn];
    openedFor = c.generation - 1;
    VxFrameRef in;
    while (c.stage.next(lock, worker, [] { return true; }, &in)) {
        hi_u32 gop = 0, srcFps = 0, dstFps = 0;
        if (vxInt(c.attr.venc_attr.type) == HI_PT_JPEG)
            srcFps = dstFps = 1; // snapshots: every picture received
        else
            VxEncoder::rateOf(c.attr.rc_attr, &gop, &srcFps, &dstFps);
        const hi_frame_rate_ctrl rate = {static_cast<hi_s32>(srcFps), static_cast<hi_s32>(dstFps)};
        // The user's streams plus the queued ones may not pass the channel's maximum.
        if (!c.rate.pass(rate) || c.ready.size() + c.held.size() >= c.param.max_stream_cnt) {
            if (c.ready.size() + c.held.size() >= c.param.max_stream_cnt)
                ++c.discarded;
            vxUnref(s, in.blk);
            continue;
        }
        VxEncoderSetup setup;
        const bool reopen = openedFor != c.generation;
        if (reopen) {
            setup.attr = c.attr;
            setup.rc = c.rc;
            setup.vui264 = c.vui264;
            setup.vui265 = c.vui265;
            openedFor = c.generation;
        }
        const bool idr = c.idr;
        c.idr = false;
        unsigned char *data = nullptr;
        std::shared_ptr<VxBytes> keep = vxFrameBytesOf(s, in, &data);
        lock.unlock();
        std::string error;
        if (reopen) {
            failed = !encoder.open(setup, &error);
            if (failed)
                fprintf(stderr, "vexa twin: venc channel %d cannot encode: %s\n", chn, error.c_str());
        }
        VxEncoded out;
        const bool ok = !failed && data && encoder.encode(vxPictureOf(in.info.video_frame, data), idr, &out);
        lock.lock();
        vxUnref(s, in.blk);
        if (!ok) {
            ++c.discarded;
            continue;
        }
        VxVencStream st;
        st.pts = in.info.video_frame.pts;
        st.key = out.key;
        st.qp = out.qp;
        st.bytes = static_cast<hi_u32>(out.bytes.size());
        unsigned char *buf = bufferData(s, c);
        if (!buf || !allocate(c, st.bytes, &st.offset)) {
            ++c.bufFull;
            ++c.discarded;
            c.idr = true; // the stream lost a reference picture: start again with an IDR
            continue;
        }
        std::copy(out.bytes.begin(), out.bytes.end(), buf + st.offset);
        for (const VxNal &nal : out.nals)
            st.nals.emplace_back(nal.type, std::make_pair(static_cast<hi_u32>(nal.offset), static_cast<hi_u32>(nal.len)));
        st.seq = c.seq++;
        ++c.encoded;
        c.last = st;
        c.ready.push_back(st);
        signalReady(c, 1);
        vxModel().changed.notify_all();
    }
}


void vxVencReceive(VxState &s, const std::tuple<int, int, int> &receiver, const VxFrameRef &frame)
{
    const int chn = std::get<2>(receiver);
    if (std::get<1>(receiver) != 0 || chn < 0 || chn >= HI_VENC_MAX_CHN_NUM)
        return;
    VxVencChn &c = s.venc[chn];
    if (!c.exists || !c.started || (c.recvPicNum > 0 && c.received >= static_cast<hi_u32>(c.recvPicNum)))
        return;
    const hi_video_frame &f = frame.info.video_frame;
    if (f.width != c.attr.venc_attr.pic_width || f.height != c.attr.venc_attr.pic_height) {
        ++c.discarded; // the encoder takes pictures of its own size only
        return;
    }
    if (c.stage.offer(s, receiver, frame))
        ++c.received;
}

void vxVencCloseAll(VxState &s)
{
    for (VxVencChn &c : s.venc) {
        if (c.fd >= 0)
            ::close(c.fd);
        c.fd = -1;
    }
}

hi_s32 hi_mpi_venc_create_chn(hi_venc_chn chn, const hi_venc_chn_attr *attr)
{
    VX_CALL(vxStatus, "%d,%d,%u,%u", chn, attr ? vxInt(attr->venc_attr.type) : -1,
            attr ? attr->venc_attr.pic_width : 0, attr ? attr->venc_attr.pic_height : 0);
    VxVencChn *c = channel(s, chn);
    if (!c)
        return HI_ERR_VENC_INVALID_CHN_ID;
    if (!attr)
        return HI_ERR_VENC_NULL_PTR;
    if (!s.sysReady)
        return HI_ERR_VENC_SYS_NOT_READY;
    if (c->exists)
        return HI_ERR_VENC_EXIST;
    const hi_s32 status = checkAttr(*attr);
    if (status != HI_SUCCESS)
        return status;
    const hi_venc_attr &va = attr->venc_attr;
    // The stream buffer holds at least a few pictures of the channel's size.
    const hi_u32 size = std::max<hi_u32>(va.buf_size, va.pic_width * va.pic_height * 3 / 2);
    VxRegion region;
    try {
        region.mem->assign(size, 0);
    } catch (const std::bad_alloc &) {
        return HI_ERR_VENC_NO_MEM;
    }
    hi_u32 gop = 0, srcFps = 0, dstFps = 30;
    VxEncoder::rateOf(attr->rc_attr, &gop, &srcFps, &dstFps);
    *c = VxVencChn();
    c->exists = true;
    c->attr = *attr;
    setDefaults(*c, dstFps);
    fillRcDefaults(*c);
    c->bufPhys = vxReserve(s, size);
    c->bufSize = size;
    s.regions[c->bufPhys] = std::move(region);
    return HI_SUCCESS;
}

hi_s32 hi_mpi_venc_destroy_chn(hi_venc_chn chn)
{
    VX_CALL(vxStatus, "%d", chn);
    return onCreated(s, chn, [&s, chn](VxVencChn &c) -> hi_s32 {
        // A channel that receives must be stopped first.
        if (c.started)
            return HI_ERR_VENC_NOT_PERM;
        dropAll(s, c, chn, false);
        if (c.fd >= 0)
            ::close(c.fd);
        c = VxVencChn();
        c.param.max_stream_cnt = 3; // as the records of a channel never created
        return HI_SUCCESS;
    });
}

hi_s32 hi_mpi_venc_reset_chn(hi_venc_chn chn)
{
    VX_CALL(vxStatus, "%d", chn);
    return onCreated(s, chn, [&s, chn](VxVencChn &c) -> hi_s32 {
        if (c.started)
            return HI_ERR_VENC_NOT_PERM;
        dropAll(s, c, chn, true);
        c.seq = 0;
        c.encoded = 0;
        c.discarded = 0;
        c.bufFull = 0;
        c.last = VxVencStream();
        c.rate = VxRateCtrl();
        ++c.generation;
        return HI_SUCCESS;
    });
}

hi_s32 hi_mpi_venc_set_chn_attr(hi_venc_chn chn, const hi_venc_chn_attr *chn_attr)
{
    VX_CALL(vxStatus, "%d", chn);
    return onCreated(s, chn, [chn_attr](VxVencChn &c) -> hi_s32 {
        if (!chn_attr)
            return HI_ERR_VENC_NULL_PTR;
        const hi_s32 status = checkAttr(*chn_attr);
        if (status != HI_SUCCESS)
            return status;
        const hi_venc_attr &now = c.attr.venc_attr, &next = chn_attr->venc_attr;
        // Payload and buffers are fixed at creation; the picture size while the channel receives.
        if (vxInt(now.type) != vxInt(next.type) || now.max_pic_width != next.max_pic_width
            || now.max_pic_height != next.max_pic_height || now.buf_size != next.buf_size
            || (c.started && (now.pic_width != next.pic_width || now.pic_height != next.pic_height)))
            return HI_ERR_VENC_NOT_PERM;
        c.attr = *chn_attr;
        ++c.generation;
        return HI_SUCCESS;
    });
}

hi_s32 hi_mpi_venc_get_chn_attr(hi_venc_chn chn, hi_venc_chn_attr *chn_attr)
{
    VX_CALL(vxStatus, "%d", chn);
    return onCreated(s, chn, [chn_attr](VxVencChn &c) { return vxCopyOut(c.attr, chn_attr, HI_ERR_VENC_NULL_PTR); });
}

hi_s32 hi_mpi_venc_start_chn(hi_venc_chn chn, const hi_venc_start_param *recv_param)
{
    VX_CALL(vxStatus, "%d,%d", chn, recv_param ? recv_param->recv_pic_num : 0);
    return onChannel(s, chn, [chn, recv_param](VxVencChn &c) -> hi_s32 {
        if (!recv_param)
            return HI_ERR_VENC_NULL_PTR;
        // -1 receives without end; any other count must be positive.
        if (recv_param->recv_pic_num == 0 || recv_param->recv_pic_num < -1)
            return HI_ERR_VENC_ILLEGAL_PARAM;
        c.started = true;
        c.recvPicNum = recv_param->recv_pic_num;
        c.received = 0;
        if (c.exists)
            c.stage.start(encodeThread, chn);
        return HI_SUCCESS;
    });
}

hi_s32 hi_mpi_venc_stop_chn(hi_venc_chn chn)
{
    VX_CALL(vxStatus, "%d", chn);
    VxVencChn *c = channel(s, chn);
    if (!c)
        return HI_ERR_VENC_INVALID_CHN_ID;
    c->started = false;
    // Frames not encoded yet are not encoded any more; streams stay for the user.
    c->stage.stop(s, vxLock);
    vxModel().changed.notify_all();
    return HI_SUCCESS;
}

hi_s32 hi_mpi_venc_query_status(hi_venc_chn chn, hi_venc_chn_status *status)
{
    VX_CALL(vxStatus, "%d", chn);
    return onCreated(s, chn, [status](VxVencChn &c) -> hi_s32 {
        if (!status)
            return HI_ERR_VENC_NULL_PTR;
        *status = hi_venc_chn_status();
        status->left_pics = static_cast<hi_u32>(c.stage.input.frames.size());
        status->left_enc_pics = status->left_pics;
        for (const VxVencStream &st : c.ready)
            status->left_stream_bytes += st.bytes;
        status->left_stream_frames = static_cast<hi_u32>(c.ready.size());
        status->cur_packs = c.ready.empty() ? 0 : static_cast<hi_u32>(c.ready.front().nals.size());
        status->left_recv_pics = c.recvPicNum > 0 ? static_cast<hi_u32>(c.recvPicNum) - std::min<hi_u32>(c.received, c.recvPicNum) : 0;
        status->release_pic_pts = c.last.pts;
        status->stream_info.ref_type = c.last.key ? HI_VENC_BASE_IDR_SLICE : HI_VENC_BASE_P_SLICE_REF_BY_BASE;
        status->stream_info.pic_bytes = c.last.bytes;
        status->stream_info.pic_cnt = c.encoded;
        status->stream_info.start_qp = status->stream_info.mean_qp = static_cast<hi_u32>(c.last.qp);
        status->discard_pics = c.discarded;
        status->stream_buf_full_cnt = c.bufFull;
        return HI_SUCCESS;
    });
}

// The platform's pack type of a NAL unit type.
static int packType(bool hevc, int nal)
{
    if (!hevc)
        return nal;
    switch (nal) {
    case 20: // IDR without leading pictures
        return HI_VENC_H265_NALU_IDR_SLICE;
    case 0: // trailing pictures
        return HI_VENC_H265_NALU_P_SLICE;
    case 40: // suffix SEI
        return HI_VENC_H265_NALU_SEI;
    default:
        return nal;
    }
}

hi_s32 hi_mpi_venc_get_stream(hi_venc_chn chn, hi_venc_stream *stream, hi_s32 milli_sec)
{
    VX_CALL(vxStatus, "%d,%d", chn, milli_sec);
    hi_s32 status = HI_SUCCESS;
    VxVencChn *c = created(s, chn, &status);
    if (!c)
        return status;
    if (!stream || !stream->pack)
        return HI_ERR_VENC_NULL_PTR;
    // The channel may go while the call waits: look it up again.
    auto ready = [&s, chn] { return !s.venc[chn].exists || !s.venc[chn].ready.empty(); };
    if (!vxWait(vxLock, milli_sec, ready))
        return HI_ERR_VENC_BUF_EMPTY;
    c = created(s, chn, &status);
    if (!c)
        return status;
    const VxVencStream &st = c->ready.front();
    if (stream->pack_cnt < st.nals.size())
        return HI_ERR_VENC_ILLEGAL_PARAM; // query_status says how many packs to provide
    unsigned char *buf = bufferData(s, *c);
    const int type = vxInt(c->attr.venc_attr.type);
    const bool hevc = type == HI_PT_H265, jpeg = type == HI_PT_JPEG || type == HI_PT_MJPEG;
    for (size_t i = 0; i < st.nals.size(); ++i) {
        hi_venc_pack &pack = stream->pack[i];
        pack = hi_venc_pack();
        const hi_u32 at = st.offset + st.nals[i].second.first;
        pack.phys_addr = c->bufPhys + at;
        pack.addr = buf + at;
        pack.len = st.nals[i].second.second;
        pack.pts = st.pts;
        pack.is_frame_end = i + 1 == st.nals.size() ? HI_TRUE : HI_FALSE;
        if (jpeg)
            pack.data_type.jpeg_type = static_cast<hi_venc_jpege_pack_type>(st.nals[i].first);
        else if (hevc)
            pack.data_type.h265_type = static_cast<hi_venc_h265_nalu_type>(packType(true, st.nals[i].first));
        else
            pack.data_type.h264_type = static_cast<hi_venc_h264_nalu_type>(packType(false, st.nals[i].first));
    }
    stream->pack_cnt = static_cast<hi_u32>(st.nals.size());
    stream->seq = st.seq;
    std::memset(&stream->h265_info, 0, sizeof(stream->h265_info));
    std::memset(&stream->h264_adv_info, 0, sizeof(stream->h264_adv_info));
    const hi_venc_ref_type ref = st.key ? HI_VENC_BASE_IDR_SLICE : HI_VENC_BASE_P_SLICE_REF_BY_BASE;
    if (jpeg) {
        stream->jpeg_info.pic_bytes = st.bytes;
    } else if (hevc) {
        stream->h265_info.pic_bytes = st.bytes;
        stream->h265_info.ref_type = ref;
        stream->h265_info.start_qp = stream->h265_info.mean_qp = static_cast<hi_u32>(st.qp);
    } else {
        stream->h264_info.pic_bytes = st.bytes;
        stream->h264_info.ref_type = ref;
        stream->h264_info.start_qp = stream->h264_info.mean_qp = static_cast<hi_u32>(st.qp);
    }
    c->held.push_back(st);
    c->ready.pop_front();
    signalReady(*c, -1);
    return HI_SUCCESS;
}

// Releases @p stream when it lies in a buffer retired by destroy or reset;
// the buffer goes with its last held stream.
static bool releaseRetired(VxState &s, hi_venc_chn chn, const hi_venc_stream *stream)
{
    if (!stream || !stream->pack || !stream->pack_cnt)
        return false;
    const hi_phys_addr_t at = stream->pack[0].phys_addr;
    for (auto it = s.vencRetired.begin(); it != s.vencRetired.end(); ++it) {
        if (it->chn != chn || at < it->phys || at >= it->phys + it->size)
            continue;
        auto seq = std::find(it->seqs.begin(), it->seqs.end(), stream->seq);
        if (seq == it->seqs.end())
            return false;
        it->seqs.erase(seq);
        if (it->seqs.empty()) {
            s.regions.erase(it->phys);
            s.vencRetired.erase(it);
        }
        return true;
    }
    return false;
}

hi_s32 hi_mpi_venc_release_stream(hi_venc_chn chn, const hi_venc_stream *stream)
{
    VX_CALL(vxStatus, "%d,%u", chn, stream ? stream->seq : 0);
    if (releaseRetired(s, chn, stream))
        return HI_SUCCESS;
    return onCreated(s, chn, [stream](VxVencChn &c) -> hi_s32 {
        if (!stream)
            return HI_ERR_VENC_NULL_PTR;
        auto it = std::find_if(c.held.begin(), c.held.end(),
                               [stream](const VxVencStream &st) { return st.seq == stream->seq; });
        if (it == c.held.end())
            return HI_ERR_VENC_ILLEGAL_PARAM; // not a stream the user holds
        deallocate(c, it->offset);
        c.held.erase(it);
        vxModel().changed.notify_all();
        return HI_SUCCESS;
    });
}

hi_s32 hi_mpi_venc_send_frame(hi_venc_chn chn, const hi_video_frame_info *frame, hi_s32 milli_sec)
{
    VX_CALL(vxStatus, "%d,0x%x,%d", chn, frame ? frame->video_frame.phys_addr[0] : 0, milli_sec);
    hi_s32 status = HI_SUCCESS;
    VxVencChn *c = created(s, chn, &status);
    if (!c)
        return status;
    if (!frame)
        return HI_ERR_VENC_NULL_PTR;
    if (!c->started || (c->recvPicNum > 0 && c->received >= static_cast<hi_u32>(c->recvPicNum)))
        return HI_ERR_VENC_NOT_PERM;
    const hi_video_frame &f = frame->video_frame;
    const int format = vxInt(f.pixel_format);
    if (format != HI_PIXEL_FORMAT_YVU_SEMIPLANAR_420 && format != HI_PIXEL_FORMAT_YUV_SEMIPLANAR_420)
        return HI_ERR_VENC_NOT_SUPPORT;
    if (f.width != c->attr.venc_attr.pic_width || f.height != c->attr.venc_attr.pic_height)
        return HI_ERR_VENC_ILLEGAL_PARAM;
    const hi_vb_blk blk = vxBlockAt(s, f.phys_addr[0]);
    if (!vxFrameInBlock(s, blk, f))
        return HI_ERR_VENC_ILLEGAL_PARAM;
    auto room = [&s, chn] { return !s.venc[chn].started || !s.venc[chn].stage.full(); };
    if (!vxWait(vxLock, milli_sec, room))
        return HI_ERR_VENC_BUF_FULL;
    c = created(s, chn, &status);
    if (!c)
        return status;
    if (!c->started)
        return HI_ERR_VENC_NOT_PERM;
    if (!vxRef(s, blk))
        return HI_ERR_VENC_ILLEGAL_PARAM; // released while the call waited
    VxFrameRef ref;
    ref.info = *frame;
    ref.blk = blk;
    ++c->received;
    c->stage.push(ref);
    return HI_SUCCESS;
}

hi_s32 hi_mpi_venc_request_idr(hi_venc_chn chn, hi_bool instant)
{
    VX_CALL(vxStatus, "%d,%d", chn, vxInt(instant));
    return onCreated(s, chn, [](VxVencChn &c) -> hi_s32 {
        c.idr = true;
        return HI_SUCCESS;
    });
}

hi_s32 hi_mpi_venc_get_fd(hi_venc_chn chn)
{
    VX_CALL(vxStatus, "%d", chn);
    return onCreated(s, chn, [](VxVencChn &c) -> hi_s32 {
        if (c.fd < 0) {
            // Readable while a stream is ready: one count per ready stream.
            c.fd = eventfd(static_cast<unsigned>(c.ready.size()), EFD_CLOEXEC | EFD_NONBLOCK | EFD_SEMAPHORE);
            if (c.fd < 0)
                return HI_ERR_VENC_NO_MEM;
        }
        return c.fd;
    });
}

hi_s32 hi_mpi_venc_close_fd(hi_venc_chn chn)
{
    VX_CALL(vxStatus, "%d", chn);
    return onCreated(s, chn, [](VxVencChn &c) -> hi_s32 {
        if (c.fd >= 0)
            ::close(c.fd);
        c.fd = -1;
        return HI_SUCCESS;
    });
}

hi_s32 hi_mpi_venc_get_chn_param(hi_venc_chn chn, hi_venc_chn_param *chn_param)
{
    VX_CALL(vxStatus, "%d", chn);
    return getChn(s, chn, &VxVencChn::param, chn_param);
}

hi_s32 hi_mpi_venc_set_chn_param(hi_venc_chn chn, const hi_venc_chn_param *chn_param)
{
    VX_CALL(vxStatus, "%d,%u", chn, chn_param ? chn_param->max_stream_cnt : 0);
    return setChn(s, chn, &VxVencChn::param, chn_param,
                  [](const hi_venc_chn_param &param, const hi_venc_chn_param &) -> hi_s32 {
                      return param.max_stream_cnt < 1 ? HI_ERR_VENC_ILLEGAL_PARAM : HI_SUCCESS;
                  });
}
