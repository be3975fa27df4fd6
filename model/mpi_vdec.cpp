// VDEC channels of the software model. A created channel keeps the stream
// pieces sent to it; once it receives, a thread of its own decodes them
// with libavcodec into frames in VB blocks (semi-planar 4:2:0, V first),
// in display order with the timestamps the stream carried, for bound
// receivers or for hi_mpi_vdec_get_frame.

#include "hi_mpi_vdec.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <sys/eventfd.h>
#include <unistd.h>

#include "model_decoder_p.h"
#include "model_pixels_p.h"

// Smallest and largest pictures a channel takes.
static const hi_u32 kMinSize = 32;
static const hi_u32 kMaxSize = 8192;

static VxVdecChn *channel(VxState &s, hi_vdec_chn chn)
{
    return chn >= 0 && chn < VX_VDEC_CHN_NUM ? &s.vdec[chn] : nullptr;
}

// Calls @p fn with channel @p chn when it was created; otherwise returns why not.
template <typename Fn>
static hi_s32 onCreated(VxState &s, hi_vdec_chn chn, Fn fn)
{
    VxVdecChn *c = channel(s, chn);
    if (!c)
        return HI_ERR_VDEC_INVALID_CHN_ID;
    if (!c->exists)
        return HI_ERR_VDEC_UNEXIST;
    return fn(*c);
}

static bool decodable(int type)
{
    return type == HI_PT_H264 || type == HI_PT_H265 || type == HI_PT_JPEG || type == HI_PT_MJPEG;
}

static hi_s32 checkAttr(const hi_vdec_chn_attr &attr)
{
    if (!decodable(vxInt(attr.type)))
        return HI_ERR_VDEC_NOT_SUPPORT;
    if (vxInt(attr.mode) < HI_VDEC_SEND_MODE_STREAM || vxInt(attr.mode) > HI_VDEC_SEND_MODE_COMPAT)
        return HI_ERR_VDEC_ILLEGAL_PARAM;
    if (attr.pic_width < kMinSize || attr.pic_width > kMaxSize || attr.pic_height < kMinSize
        || attr.pic_height > kMaxSize || attr.stream_buf_size == 0 || attr.frame_buf_cnt == 0)
        return HI_ERR_VDEC_ILLEGAL_PARAM;
    return HI_SUCCESS;
}

// Pictures the user queue keeps: the channel's frame buffers less those the
// decoder keeps for display, at least one.
static size_t userDepth(const VxVdecChn &c)
{
    return std::max<size_t>(1, c.attr.frame_buf_cnt);
}

static bool bound(const VxState &s, hi_vdec_chn chn)
{
    for (const auto &bind : s.binds) {
        if (vxInt(bind.second.mod_id) == HI_ID_VDEC && bind.second.chn_id == chn)
            return true;
    }
    return false;
}

// True when the channel can hand out its next picture: room in its user
// queue, or, when bound, room in every VO channel bound to it (a display
// holds the decoder back as the board's frame buffers do; other receivers
// lose what they have no room for).
static bool canOutput(const VxState &s, hi_vdec_chn chn, const VxVdecChn &c)
{
    if (!bound(s, chn))
        return c.user.frames.size() < userDepth(c);
    for (const auto &bind : s.binds) {
        if (vxInt(bind.second.mod_id) == HI_ID_VDEC && bind.second.chn_id == chn
            && std::get<0>(bind.first) == HI_ID_VO && !vxVoHasRoom(s, bind.first))
            return false;
    }
    return true;
}

// Adds @p n pictures to (n < 0: takes them from) the count the channel's
// event descriptor holds; INT32_MIN empties it.
static void signalReady(VxVdecChn &c, int n)
{
    if (c.fd < 0)
        return;
    if (n > 0) {
        const uint64_t add = static_cast<uint64_t>(n);
        if (write(c.fd, &add, sizeof(add)) != sizeof(add))
            perror("vexa twin: vdec eventfd");
        return;
    }
    uint64_t one = 0;
    for (int i = 0; (n == INT32_MIN || i < -n) && read(c.fd, &one, sizeof(one)) == sizeof(one); ++i) {
    }
}

void vxVdecCloseAll(VxState &s)
{
    for (VxVdecChn &c : s.vdec) {
        if (c.fd >= 0)
            ::close(c.fd);
        c.fd = -1;
    }
}

// Puts one decoded picture into a VB frame and hands it on.
static void output(VxState &s, hi_vdec_chn chn, VxVdecChn &c, const VxDecoded &d)
{
    VxFrameRef frame;
    if (!vxNewFrame(s, d.width, d.height, HI_PIXEL_FORMAT_YVU_SEMIPLANAR_420, HI_ID_VDEC, &frame, c.picPool)) {
        ++c.vbFail;
        return;
    }
    hi_video_frame &f = frame.info.video_frame;
    unsigned char *data = nullptr;
    std::shared_ptr<VxBytes> keep = vxFrameBytesOf(s, frame, &data);
    if (data) {
        const VxPicture pic = vxPictureOf(f, data);
        for (hi_u32 y = 0; y < d.height; ++y)
            std::memcpy(pic.plane[0] + size_t(y) * pic.stride[0], &d.luma[size_t(y) * d.width], d.width);
        const size_t chromaRow = d.chroma.size() / ((d.height + 1) / 2);
        for (hi_u32 y = 0; y < (d.height + 1) / 2; ++y)
            std::memcpy(pic.plane[1] + size_t(y) * pic.stride[1], &d.chroma[y * chromaRow], chromaRow);
    }
    f.pts = d.pts;
    f.time_ref = 2 * c.decoded;
    ++c.decoded;
    c.width = d.width;
    c.height = d.height;
    c.latestPts = d.pts;
    const hi_mpp_chn src = {HI_ID_VDEC, 0, chn};
    if (bound(s, chn)) {
        vxDeliver(s, src, frame);
        vxUnref(s, frame.blk);
        return;
    }
    c.user.frames.push_back(frame);
    c.userTypes.push_back(d.frameType);
    signalReady(c, 1);
    vxModel().changed.notify_all();
}

// The thread of a receiving channel: one sent piece at a time through the decoder.
static void decodeThread(hi_vdec_chn chn, VxWorker *worker)
{
    VxDecoder decoder;
    std::unique_lock<std::mutex> lock(vxModel().mutex);
    VxState &s = vxModel().s;
    VxVdecChn &c = s.vdec[chn];
    std::string error;
    const int type = vxInt(c.attr.type);
    lock.unlock();
    const bool opened = decoder.open(type, &error);
    if (!opened)
        fprintf(stderr, "vexa twin: vdec channel %d cannot decode: %s\n", chn, error.c_str());
    lock.lock();
    for (;;) {
        vxModel().changed.wait(lock, [worker, &c] { return worker->stop || !c.input.empty(); });
        if (worker->stop)
            break;
        VxVdecInput in = std::move(c.input.front());
        c.input.pop_front();
        c.inputBytes -= static_cast<hi_u32>(in.bytes.size());
        c.busy = true;
        vxModel().changed.notify_all(); // room for a waiting sender
        lock.unlock();
        std::vector<VxDecoded> pictures;
        const int failed = opened ? decoder.decode(in.bytes.data(), in.bytes.size(), in.pts, in.end, &pictures) : 1;
        lock.lock();
        c.busy = false;
        c.formatErrors += static_cast<hi_u32>(failed);
        for (const VxDecoded &d : pictures) {
            // A full user queue holds the decoder back, as the hardware waits for a free frame buffer.
            vxModel().changed.wait(lock, [worker, &s, chn, &c] { return worker->stop || canOutput(s, chn, c); });
            if (worker->stop)
                break;
            output(s, chn, c, d);
        }
        vxModel().changed.notify_all();
    }
}

hi_s32 hi_mpi_vdec_create_chn(hi_vdec_chn chn, const hi_vdec_chn_attr *attr)
{
    VX_CALL(vxStatus, "%d,%d,%u,%u", chn, attr ? vxInt(attr->type) : -1, attr ? attr->pic_width : 0,
            attr ? attr->pic_height : 0);
    VxVdecChn *c = channel(s, chn);
    if (!c)
        return HI_ERR_VDEC_INVALID_CHN_ID;
    if (!attr)
        return HI_ERR_VDEC_NULL_PTR;
    if (!s.sysReady)
        return HI_ERR_VDEC_SYS_NOT_READY;
    if (c->exists)
        return HI_ERR_VDEC_EXIST;
    const hi_s32 status = checkAttr(*attr);
    if (status != HI_SUCCESS)
        return status;
    *c = VxVdecChn();
    c->exists = true;
    c->attr = *attr;
    c->param.type = attr->type;
    c->param.display_frame_num = 2;
    if (vxInt(attr->type) == HI_PT_JPEG || vxInt(attr->type) == HI_PT_MJPEG) {
        c->param.pic_param.pixel_format = HI_PIXEL_FORMAT_YVU_SEMIPLANAR_420;
        c->param.pic_param.alpha = 255;
    } else {
        c->param.video_param.err_threshold = 100;
    }
    return HI_SUCCESS;
}

// Stops the thread of @p c and gives back every frame it holds or queued.
static void stopAndDrop(std::unique_lock<std::mutex> &lock, VxState &s, hi_vdec_chn chn)
{
    vxStopWorker(lock, s.vdec[chn].worker);
    VxVdecChn &c = s.vdec[chn];
    c.input.clear();
    c.inputBytes = 0;
    vxUnrefAll(s, c.user.frames);
    vxUnrefAll(s, c.held);
    c.userTypes.clear();
    signalReady(c, INT32_MIN);
    vxModel().changed.notify_all();
}

hi_s32 hi_mpi_vdec_destroy_chn(hi_vdec_chn chn)
{
    VX_CALL(vxStatus, "%d", chn);
    const hi_s32 status = onCreated(s, chn, [](VxVdecChn &c) -> hi_s32 {
        // A channel that receives must be stopped first.
        return c.started ? HI_ERR_VDEC_NOT_PERM : HI_SUCCESS;
    });
    if (status != HI_SUCCESS)
        return status;
    stopAndDrop(vxLock, s, chn);
    if (s.vdec[chn].fd >= 0)
        ::close(s.vdec[chn].fd);
    s.vdec[chn] = VxVdecChn();
    vxModel().changed.notify_all(); // a get_frame waiting on the channel returns
    return HI_SUCCESS;
}

hi_s32 hi_mpi_vdec_reset_chn(hi_vdec_chn chn)
{
    VX_CALL(vxStatus, "%d", chn);
    const hi_s32 status = onCreated(s, chn, [](VxVdecChn &c) -> hi_s32 {
        return c.started ? HI_ERR_VDEC_NOT_PERM : HI_SUCCESS;
    });
    if (status != HI_SUCCESS)
        return status;
    stopAndDrop(vxLock, s, chn);
    VxVdecChn &c = s.vdec[chn];
    c.received = c.decoded = c.formatErrors = c.vbFail = 0;
    c.width = c.height = 0;
    c.latestPts = 0;
    return HI_SUCCESS;
}

hi_s32 hi_mpi_vdec_set_chn_attr(hi_vdec_chn chn, const hi_vdec_chn_attr *attr)
{
    VX_CALL(vxStatus, "%d", chn);
    return onCreated(s, chn, [attr](VxVdecChn &c) -> hi_s32 {
        if (!attr)
            return HI_ERR_VDEC_NULL_PTR;
        if (c.started)
            return HI_ERR_VDEC_NOT_PERM;
        if (vxInt(attr->type) != vxInt(c.attr.type))
            return HI_ERR_VDEC_NOT_PERM; // the payload type is fixed at creation
        const hi_s32 status = checkAttr(*attr);
        if (status == HI_SUCCESS)
            c.attr = *attr;
        return status;
    });
}

hi_s32 hi_mpi_vdec_get_chn_attr(hi_vdec_chn chn, hi_vdec_chn_attr *attr)
{
    VX_CALL(vxStatus, "%d", chn);
    return onCreated(s, chn, [attr](VxVdecChn &c) { return vxCopyOut(c.attr, attr, HI_ERR_VDEC_NULL_PTR); });
}

hi_s32 hi_mpi_vdec_set_chn_param(hi_vdec_chn chn, const hi_vdec_chn_param *param)
{
    VX_CALL(vxStatus, "%d", chn);
    return onCreated(s, chn, [param](VxVdecChn &c) -> hi_s32 {
        if (!param)
            return HI_ERR_VDEC_NULL_PTR;
        if (c.started)
            return HI_ERR_VDEC_NOT_PERM;
        if (vxInt(param->type) != vxInt(c.attr.type))
            return HI_ERR_VDEC_ILLEGAL_PARAM;
        c.param = *param;
        return HI_SUCCESS;
    });
}

hi_s32 hi_mpi_vdec_get_chn_param(hi_vdec_chn chn, hi_vdec_chn_param *param)
{
    VX_CALL(vxStatus, "%d", chn);
    return onCreated(s, chn, [param](VxVdecChn &c) { return vxCopyOut(c.param, param, HI_ERR_VDEC_NULL_PTR); });
}

hi_s32 hi_mpi_vdec_start_recv_stream(hi_vdec_chn chn)
{
    VX_CALL(vxStatus, "%d", chn);
    return onCreated(s, chn, [chn](VxVdecChn &c) -> hi_s32 {
        c.started = true;
        if (!c.worker) {
            c.worker.reset(new VxWorker);
            c.worker->thread = std::thread(decodeThread, chn, c.worker.get());
        }
        return HI_SUCCESS;
    });
}

hi_s32 hi_mpi_vdec_stop_recv_stream(hi_vdec_chn chn)
{
    VX_CALL(vxStatus, "%d", chn);
    // Pieces already sent are still decoded; the channel takes no more.
    return onCreated(s, chn, [](VxVdecChn &c) -> hi_s32 {
        c.started = false;
        vxModel().changed.notify_all();
        return HI_SUCCESS;
    });
}

hi_s32 hi_mpi_vdec_query_status(hi_vdec_chn chn, hi_vdec_chn_status *status)
{
    VX_CALL(vxStatus, "%d", chn);
    return onCreated(s, chn, [status](VxVdecChn &c) -> hi_s32 {
        if (!status)
            return HI_ERR_VDEC_NULL_PTR;
        std::memset(status, 0, sizeof(*status));
        status->type = c.attr.type;
        status->left_stream_bytes = c.inputBytes;
        status->left_stream_frames = static_cast<hi_u32>(c.input.size()) + (c.busy ? 1 : 0);
        status->left_decoded_frames = static_cast<hi_u32>(c.user.frames.size());
        status->is_started = c.started ? HI_TRUE : HI_FALSE;
        status->recv_stream_frames = c.received;
        status->dec_stream_frames = c.decoded;
        status->dec_err.format_err = static_cast<hi_s32>(c.formatErrors);
        status->width = c.width;
        status->height = c.height;
        status->latest_frame_pts = c.latestPts;
        return HI_SUCCESS;
    });
}

hi_s32 hi_mpi_vdec_send_stream(hi_vdec_chn chn, const hi_vdec_stream *stream, hi_s32 milli_sec)
{
    VX_CALL(vxStatus, "%d,%u,%llu,%d,%d", chn, stream ? stream->len : 0,
            stream ? static_cast<unsigned long long>(stream->pts) : 0ULL, stream ? int(stream->end_of_stream) : 0,
            milli_sec);
    VxVdecChn *c = channel(s, chn);
    if (!c)
        return HI_ERR_VDEC_INVALID_CHN_ID;
    if (!stream)
        return HI_ERR_VDEC_NULL_PTR;
    if (!c->exists)
        return HI_ERR_VDEC_UNEXIST;
    if (!c->started)
        return HI_ERR_VDEC_NOT_PERM;
    if (stream->len > 0 && !stream->addr)
        return HI_ERR_VDEC_NULL_PTR;
    if (stream->len == 0 && !stream->end_of_stream)
        return HI_ERR_VDEC_ILLEGAL_PARAM;
    if (stream->len > c->attr.stream_buf_size)
        return HI_ERR_VDEC_ILLEGAL_PARAM; // never fits the stream buffer
    const hi_u32 len = stream->len;
    const bool room = vxWait(vxLock, milli_sec, [c, len] {
        return !c->exists || !c->started || c->inputBytes + len <= c->attr.stream_buf_size;
    });
    if (!c->exists)
        return HI_ERR_VDEC_UNEXIST;
    if (!c->started)
        return HI_ERR_VDEC_NOT_PERM;
    if (!room)
        return HI_ERR_VDEC_BUF_FULL;
    VxVdecInput in;
    in.bytes.assign(stream->addr, stream->addr + len);
    in.pts = stream->pts;
    in.end = stream->end_of_stream != HI_FALSE;
    c->inputBytes += len;
    c->input.push_back(std::move(in));
    ++c->received;
    vxModel().changed.notify_all();
    return HI_SUCCESS;
}

hi_s32 hi_mpi_vdec_get_frame(hi_vdec_chn chn, hi_video_frame_info *frame_info, hi_vdec_supplement_info *supplement,
                             hi_s32 milli_sec)
{
    VX_CALL(vxStatus, "%d,%d", chn, milli_sec);
    VxVdecChn *c = channel(s, chn);
    if (!c)
        return HI_ERR_VDEC_INVALID_CHN_ID;
    if (!frame_info)
        return HI_ERR_VDEC_NULL_PTR;
    if (!c->exists)
        return HI_ERR_VDEC_UNEXIST;
    if (!vxWait(vxLock, milli_sec, [c] { return !c->exists || !c->user.frames.empty(); }) || !c->exists)
        return c->exists ? HI_ERR_VDEC_BUF_EMPTY : HI_ERR_VDEC_UNEXIST;
    const int type = c->userTypes.front();
    c->userTypes.pop_front();
    vxHandOut(c->user, c->held, frame_info);
    signalReady(*c, -1);
    if (supplement) {
        std::memset(supplement, 0, sizeof(*supplement));
        supplement->type = c->attr.type;
        supplement->frame_type = static_cast<hi_video_frame_type>(type);
    }
    vxModel().changed.notify_all(); // room for the decoder
    return HI_SUCCESS;
}

hi_s32 hi_mpi_vdec_release_frame(hi_vdec_chn chn, const hi_video_frame_info *frame_info)
{
    VX_CALL(vxStatus, "%d", chn);
    return onCreated(s, chn, [&s, frame_info](VxVdecChn &c) -> hi_s32 {
        if (!frame_info)
            return HI_ERR_VDEC_NULL_PTR;
        return vxTakeBack(s, c.held, frame_info) ? HI_SUCCESS : HI_ERR_VDEC_ILLEGAL_PARAM;
    });
}

hi_s32 hi_mpi_vdec_get_fd(hi_vdec_chn chn)
{
    VX_CALL(vxStatus, "%d", chn);
    return onCreated(s, chn, [](VxVdecChn &c) -> hi_s32 {
        if (c.fd < 0) {
            // Readable while a decoded picture waits: one count per picture.
            c.fd = eventfd(static_cast<unsigned>(c.user.frames.size()), EFD_CLOEXEC | EFD_NONBLOCK | EFD_SEMAPHORE);
            if (c.fd < 0)
                return HI_ERR_VDEC_NO_MEM;
        }
        return c.fd;
    });
}

hi_s32 hi_mpi_vdec_close_fd(hi_vdec_chn chn)
{
    VX_CALL(vxStatus, "%d", chn);
    return onCreated(s, chn, [](VxVdecChn &c) -> hi_s32 {
        if (c.fd >= 0)
            ::close(c.fd);
        c.fd = -1;
        return HI_SUCCESS;
    });
}

hi_s32 hi_mpi_vdec_attach_vb_pool(hi_vdec_chn chn, const hi_vdec_chn_pool *pool)
{
    VX_CALL(vxStatus, "%d,%u", chn, pool ? pool->pic_vb_pool : HI_VB_INVALID_POOL_ID);
    return onCreated(s, chn, [&s, pool](VxVdecChn &c) -> hi_s32 {
        if (!pool)
            return HI_ERR_VDEC_NULL_PTR;
        if (c.started)
            return HI_ERR_VDEC_NOT_PERM;
        // The pictures' pool must be one the user made; the motion-vector
        // pool is kept only (the model keeps no motion vectors).
        if (pool->pic_vb_pool >= s.pools.size() || !s.pools[pool->pic_vb_pool].exists
            || s.pools[pool->pic_vb_pool].common)
            return HI_ERR_VDEC_ILLEGAL_PARAM;
        c.picPool = pool->pic_vb_pool;
        return HI_SUCCESS;
    });
}

hi_s32 hi_mpi_vdec_detach_vb_pool(hi_vdec_chn chn)
{
    VX_CALL(vxStatus, "%d", chn);
    return onCreated(s, chn, [](VxVdecChn &c) -> hi_s32 {
        if (c.started)
            return HI_ERR_VDEC_NOT_PERM;
        if (c.picPool == HI_VB_INVALID_POOL_ID)
            return HI_ERR_VDEC_NOT_PERM;
        c.picPool = HI_VB_INVALID_POOL_ID;
        return HI_SUCCESS;
    });
}
