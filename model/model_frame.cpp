// Frames of the software model: their layout in VB blocks, the holders of
// a block, the queues frames wait in and their way along the bindings.

#include <algorithm>
#include <ctime>

#include "model_p.h"

bool VxRateCtrl::pass(const hi_frame_rate_ctrl &rate)
{
    if (rate.src_frame_rate <= 0 || rate.dst_frame_rate <= 0 || rate.dst_frame_rate >= rate.src_frame_rate)
        return true;
    ++seen;
    // Pass a frame whenever dst/src of the frames seen so far reaches the next whole one.
    const hi_u64 due = seen * static_cast<hi_u64>(rate.dst_frame_rate) / static_cast<hi_u64>(rate.src_frame_rate);
    if (due <= passed)
        return false;
    passed = due;
    return true;
}

hi_u32 vxStride(hi_u32 width)
{
    return (width + OT_DEFAULT_ALIGN - 1) / OT_DEFAULT_ALIGN * OT_DEFAULT_ALIGN;
}

hi_u64 vxFrameBytes(hi_u32 width, hi_u32 height, int pixelFormat)
{
    const hi_u64 luma = static_cast<hi_u64>(vxStride(width)) * ((height + 1) & ~1u);
    switch (pixelFormat) {
    case HI_PIXEL_FORMAT_YVU_SEMIPLANAR_420:
    case HI_PIXEL_FORMAT_YUV_SEMIPLANAR_420:
        return luma * 3 / 2;
    case HI_PIXEL_FORMAT_YVU_SEMIPLANAR_422:
    case HI_PIXEL_FORMAT_YUV_SEMIPLANAR_422:
        return luma * 2;
    case HI_PIXEL_FORMAT_YUV_400:
        return luma;
    default:
        return 0;
    }
}

bool vxNewFrame(VxState &s, hi_u32 width, hi_u32 height, int pixelFormat, hi_mod_id mod, VxFrameRef *out,
                hi_vb_pool pool)
{
    const hi_u64 bytes = vxFrameBytes(width, height, pixelFormat);
    if (!bytes)
        return false;
    const hi_vb_blk blk = vxTakeBlock(s, bytes, pool);
    if (blk == HI_VB_INVALID_HANDLE)
        return false;
    const hi_u32 from = blk >> 16;
    const hi_phys_addr_t phys = static_cast<hi_phys_addr_t>(s.pools[from].base + (blk & 0xffff) * s.pools[from].blkSize);
    unsigned char *virt = nullptr;
    hi_u32 offset = 0;
    if (VxRegion *region = vxRegionAt(s, phys, bytes, &offset))
        virt = region->data() + offset;

    *out = VxFrameRef();
    out->blk = blk;
    hi_video_frame &f = out->info.video_frame;
    const hi_u32 stride = vxStride(width);
    const hi_u32 luma = stride * ((height + 1) & ~1u);
    f.width = width;
    f.height = height;
    f.field = HI_VIDEO_FIELD_FRAME;
    f.pixel_format = static_cast<hi_pixel_format>(pixelFormat);
    f.video_format = HI_VIDEO_FORMAT_LINEAR;
    f.compress_mode = HI_COMPRESS_MODE_NONE;
    f.dynamic_range = HI_DYNAMIC_RANGE_SDR8;
    f.color_gamut = HI_COLOR_GAMUT_BT709;
    f.stride[0] = stride;
    f.phys_addr[0] = phys;
    f.virt_addr[0] = virt;
    if (pixelFormat != HI_PIXEL_FORMAT_YUV_400) {
        f.stride[1] = stride;
        f.phys_addr[1] = phys + luma;
        f.virt_addr[1] = virt + luma;
    }
    out->info.pool_id = from;
    out->info.mod_id = mod;
    return true;
}

void vxUnrefAll(VxState &s, std::deque<VxFrameRef> &frames)
{
    for (const VxFrameRef &f : frames)
        vxUnref(s, f.blk);
    frames.clear();
}

void vxUnrefAll(VxState &s, std::vector<VxFrameRef> &frames)
{
    for (const VxFrameRef &f : frames)
        vxUnref(s, f.blk);
    frames.clear();
}

std::shared_ptr<VxBytes> vxFrameBytesOf(VxState &s, const VxFrameRef &frame, unsigned char **data)
{
    hi_u32 offset = 0;
    const hi_video_frame &f = frame.info.video_frame;
    VxRegion *region = vxRegionAt(s, f.phys_addr[0], 1, &offset);
    if (!region) {
        *data = nullptr;
        return nullptr;
    }
    *data = region->data() + offset;
    return region->mem;
}

hi_u64 vxNow(const VxState &s)
{
    if (s.ptsFixed)
        return s.pts;
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<hi_u64>(ts.tv_sec) * 1000000u + static_cast<hi_u64>(ts.tv_nsec / 1000);
}

void vxKeepNewest(VxState &s, VxFrameQueue &queue, hi_u32 depth, const VxFrameRef &frame)
{
    if (depth == 0 || !vxRef(s, frame.blk))
        return;
    while (queue.frames.size() >= depth) {
        vxUnref(s, queue.frames.front().blk);
        queue.frames.pop_front();
        ++queue.dropped;
    }
    queue.frames.push_back(frame);
    vxModel().changed.notify_all();
}

void vxDeliver(VxState &s, const hi_mpp_chn &src, const VxFrameRef &frame)
{
    for (const auto &bind : s.binds) {
        const hi_mpp_chn &from = bind.second;
        if (vxInt(from.mod_id) != vxInt(src.mod_id) || from.dev_id != src.dev_id || from.chn_id != src.chn_id)
            continue;
        const int mod = std::get<0>(bind.first), dev = std::get<1>(bind.first);
        if (mod == HI_ID_VPSS && dev >= 0 && dev < HI_VPSS_MAX_GRP_NUM && s.vpss[dev].started) {
            s.vpss[dev].stage.offer(s, bind.first, frame);
        } else if (mod == HI_ID_VENC) {
            vxVencReceive(s, bind.first, frame);
        } else if (mod == HI_ID_VO) {
            vxVoReceive(s, bind.first, frame);
        }
    }
}

void vxHandOut(VxFrameQueue &user, std::vector<VxFrameRef> &held, hi_video_frame_info *out)
{
    held.push_back(user.frames.front());
    user.frames.pop_front();
    *out = held.back().info;
}

bool vxTakeBack(VxState &s, std::vector<VxFrameRef> &held, const hi_video_frame_info *info)
{
    auto it = std::find_if(held.begin(), held.end(), [info](const VxFrameRef &f) {
        return f.info.video_frame.phys_addr[0] == info->video_frame.phys_addr[0];
    });
    if (it == held.end())
        return false;
    vxUnref(s, it->blk);
    held.erase(it);
    vxModel().changed.notify_all();
    return true;
}

// True when [phys, phys + bytes) lies inside block @p blk.
static bool inBlock(const VxState &s, hi_vb_blk blk, hi_phys_addr_t phys, hi_u64 bytes)
{
    const VxPool &pool = s.pools[blk >> 16];
    const hi_u64 start = pool.base + static_cast<hi_u64>(blk & 0xffff) * pool.blkSize;
    return phys >= start && phys + bytes <= start + pool.blkSize;
}

bool vxFrameInBlock(const VxState &s, hi_vb_blk blk, const hi_video_frame &f)
{
    if (blk == HI_VB_INVALID_HANDLE || f.stride[0] < f.width
        || !inBlock(s, blk, f.phys_addr[0], static_cast<hi_u64>(f.stride[0]) * f.height))
        return false;
    if (vxInt(f.pixel_format) == HI_PIXEL_FORMAT_YUV_400)
        return true;
    const hi_u32 rows = vxInt(f.pixel_format) == HI_PIXEL_FORMAT_YUV_SEMIPLANAR_422 ? f.height : f.height / 2;
    return f.stride[1] >= f.width && f.phys_addr[1] >= f.phys_addr[0]
        && inBlock(s, blk, f.phys_addr[1], static_cast<hi_u64>(f.stride[1]) * rows);
}
