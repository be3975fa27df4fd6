// VPSS module of the software model: groups with their attributes, crop,
// parameters and delay, and four physical channels per group. A started
// group runs a thread that takes frames from its input queue (sent or bound
// frames), crops them and makes each enabled channel's picture in a new VB
// block: to the channel's user queue (its depth) and to every receiver
// bound to the channel.

#include "hi_mpi_vpss.h"

#include <algorithm>

#include "model_pixels_p.h"

// Largest picture the VPSS of the board handles, and the smallest.
static const hi_u32 kMaxSize = 8192;
static const hi_u32 kMinSize = 64;

static bool validFrameRate(const hi_frame_rate_ctrl &rate)
{
    if (rate.src_frame_rate == -1 && rate.dst_frame_rate == -1)
        return true;
    return rate.src_frame_rate > 0 && rate.dst_frame_rate > 0 && rate.dst_frame_rate <= rate.src_frame_rate;
}

static bool validPixelFormat(hi_pixel_format format)
{
    return vxInt(format) >= 0 && vxInt(format) < HI_PIXEL_FORMAT_BUTT;
}

static bool validGrpAttr(const hi_vpss_grp_attr &attr)
{
    return attr.max_width >= kMinSize && attr.max_width <= kMaxSize && attr.max_height >= kMinSize
        && attr.max_height <= kMaxSize && validPixelFormat(attr.pixel_format) && vxInt(attr.dei_mode) >= 0
        && vxInt(attr.dei_mode) < OT_VPSS_DEI_MODE_BUTT && validFrameRate(attr.frame_rate);
}

// The group @p grp when it exists; otherwise @p status says why not.
static VxVpssGrp *group(VxState &s, hi_vpss_grp grp, hi_s32 *status)
{
    if (grp < 0 || grp >= HI_VPSS_MAX_GRP_NUM) {
        *status = HI_ERR_VPSS_INVALID_DEV_ID;
        return nullptr;
    }
    if (!s.vpss[grp].exists) {
        *status = HI_ERR_VPSS_UNEXIST;
        return nullptr;
    }
    return &s.vpss[grp];
}

static VxVpssChn *channel(VxState &s, hi_vpss_grp grp, hi_vpss_chn chn, hi_s32 *status)
{
    VxVpssGrp *g = group(s, grp, status);
    if (!g)
        return nullptr;
    if (chn < 0 || chn >= HI_VPSS_MAX_PHYS_CHN_NUM) {
        *status = HI_ERR_VPSS_INVALID_CHN_ID;
        return nullptr;
    }
    return &g->chn[chn];
}

// Calls @p fn with group @p grp when it exists; otherwise returns why not.
template <typename Fn>
static hi_s32 onGroup(VxState &s, hi_vpss_grp grp, Fn fn)
{
    hi_s32 status = HI_SUCCESS;
    VxVpssGrp *g = group(s, grp, &status);
    return g ? fn(*g) : status;
}

// Calls @p fn with channel @p chn of group @p grp when it exists; otherwise
// returns why not.
template <typename Fn>
static hi_s32 onChannel(VxState &s, hi_vpss_grp grp, hi_vpss_chn chn, Fn fn)
{
    hi_s32 status = HI_SUCCESS;
    VxVpssChn *c = channel(s, grp, chn, &status);
    return c ? fn(*c) : status;
}

// The group's crop window on a @p w x @p h picture.
static hi_rect cropWindow(const hi_vpss_crop_info &crop, hi_u32 w, hi_u32 h)
{
    hi_rect r = {0, 0, w, h};
    if (vxInt(crop.enable) != HI_TRUE)
        return r;
    const hi_rect &c = crop.crop_rect;
    if (vxInt(crop.crop_mode) == HI_COORD_RATIO) {
        // Per-mille of the picture.
        r.x = static_cast<hi_s32>(static_cast<hi_u64>(c.x) * w / 1000);
        r.y = static_cast<hi_s32>(static_cast<hi_u64>(c.y) * h / 1000);
        r.width = static_cast<hi_u32>(static_cast<hi_u64>(c.width) * w / 1000);
        r.height = static_cast<hi_u32>(static_cast<hi_u64>(c.height) * h / 1000);
    } else {
        r = c;
    }
    // What lies outside the picture is left out.
    r.x = std::min<hi_s32>(std::max<hi_s32>(r.x, 0), static_cast<hi_s32>(w) - 2);
    r.y = std::min<hi_s32>(std::max<hi_s32>(r.y, 0), static_cast<hi_s32>(h) - 2);
    r.width = std::max<hi_u32>(std::min<hi_u32>(r.width, w - static_cast<hi_u32>(r.x)), 2);
    r.height = std::max<hi_u32>(std::min<hi_u32>(r.height, h - static_cast<hi_u32>(r.y)), 2);
    return r;
}

// The thread of a started group: one input frame at a time.
static void groupThread(hi_vpss_grp grp, VxWorker *worker)
{
    struct Job {
        hi_vpss_chn chn;
        VxFrameRef frame;
        std::shared_ptr<VxBytes> keep;
        unsigned char *data;
        hi_aspect_ratio aspect;
        bool mirror, flip;
        int turn; // quarter turns clockwise: 1 or 3 (a half turn is a mirror and a flip)
    };
    VxScaler scalers[HI_VPSS_MAX_PHYS_CHN_NUM];
    // The picture of a turned channel before its turn.
    VxBytes unturned[HI_VPSS_MAX_PHYS_CHN_NUM];
    std::unique_lock<std::mutex> lock(vxModel().mutex);
    VxState &s = vxModel().s;
    VxVpssGrp &g = s.vpss[grp];
    VxFrameRef in;
    while (g.stage.next(lock, worker, [&g] { return !g.paused; }, &in)) {
        if (!g.rate.pass(g.attr.frame_rate)) {
            vxUnref(s, in.blk);
            continue;
        }
        unsigned char *inData = nullptr;
        std::shared_ptr<VxBytes> inKeep = vxFrameBytesOf(s, in, &inData);
        const hi_video_frame &src = in.info.video_frame;
        const hi_rect crop = cropWindow(g.crop, src.width, src.height);
        std::vector<Job> jobs;
        for (hi_vpss_chn c = 0; c < HI_VPSS_MAX_PHYS_CHN_NUM && inData; ++c) {
            VxVpssChn &chn = g.chn[c];
            if (!chn.enabled || !chn.rate.pass(chn.attr.frame_rate))
                continue;
            bool mirror = chn.attr.mirror_en == HI_TRUE, flip = chn.attr.flip_en == HI_TRUE;
            const int format = vxInt(chn.attr.pixel_format);
            int turn = 0;
            if (vxInt(chn.rotation.enable) == HI_TRUE && vxInt(chn.rotation.rotation_type) == HI_ROTATION_ANG_FIXED)
                turn = vxInt(chn.rotation.rotation_fixed);
            if (turn == HI_ROTATION_180) { // a half turn is a mirror and a flip
                mirror = !mirror;
                flip = !flip;
                turn = 0;
            } else if (turn != HI_ROTATION_90 && turn != HI_ROTATION_270) {
                turn = 0;
            } else if (format == HI_PIXEL_FORMAT_YUV_SEMIPLANAR_422 || format == HI_PIXEL_FORMAT_YVU_SEMIPLANAR_422) {
                turn = 0; // quarter turns of 4:2:2 are not modelled
            }
            // A quarter turn swaps the output's width and height, as the board does.
            const hi_u32 w = turn ? chn.attr.height : chn.attr.width, h = turn ? chn.attr.width : chn.attr.height;
            Job job{c, VxFrameRef(), nullptr, nullptr, chn.attr.aspect_ratio, mirror, flip, turn};
            if (!vxCanProcess(format) || !vxNewFrame(s, w, h, format, HI_ID_VPSS, &job.frame)) {
                ++chn.vbFail;
                continue;
            }
            job.frame.info.video_frame.pts = src.pts;
            job.frame.info.video_frame.time_ref = src.time_ref;
            job.keep = vxFrameBytesOf(s, job.frame, &job.data);
            jobs.push_back(job);
        }
        lock.unlock();
        const VxPicture srcPic = vxPictureOf(src, inData);
        for (const Job &job : jobs) {
            const VxPicture out = vxPictureOf(job.frame.info.video_frame, job.data);
            if (!job.turn) {
                vxProcess(scalers[job.chn], srcPic, crop, out, job.aspect, job.mirror, job.flip);
                continue;
            }
            VxPicture flat = out;
            flat.width = out.height;
            flat.height = out.width;
            flat.stride[0] = flat.stride[1] = vxStride(flat.width);
            VxBytes &scratch = unturned[job.chn];
            scratch.resize(vxFrameBytes(flat.width, flat.height, flat.format));
            flat.plane[0] = scratch.data();
            flat.plane[1] = out.plane[1] ? scratch.data() + static_cast<size_t>(flat.stride[0]) * flat.height : nullptr;
            vxProcess(scalers[job.chn], srcPic, crop, flat, job.aspect, job.mirror, job.flip);
            vxQuarterTurn(flat, out, job.turn == HI_ROTATION_90);
        }
        lock.lock();
        for (const Job &job : jobs) {
            VxVpssChn &chn = g.chn[job.chn];
            if (!worker->stop && chn.enabled) {
                vxKeepNewest(s, chn.user, chn.attr.depth, job.frame);
                vxDeliver(s, hi_mpp_chn{HI_ID_VPSS, grp, job.chn}, job.frame);
            }
            vxUnref(s, job.frame.blk);
        }
        vxUnref(s, in.blk);
    }
}

// Copies @p member of group @p grp out to the caller.
template <typename Record>
static hi_s32 getGrp(VxState &s, hi_vpss_grp grp, Record VxVpssGrp::*member, Record *out)
{
    return onGroup(s, grp, [&](VxVpssGrp &g) { return vxCopyOut(g.*member, out, HI_ERR_VPSS_NULL_PTR); });
}

// Stores the caller's record as @p member of group @p grp once @p check passes.
template <typename Record, typename Check>
static hi_s32 setGrp(VxState &s, hi_vpss_grp grp, Record VxVpssGrp::*member, const Record *in, Check check)
{
    return onGroup(s, grp, [&](VxVpssGrp &g) { return vxCopyIn(g.*member, in, HI_ERR_VPSS_NULL_PTR, check); });
}

// getGrp() and setGrp() for a member of channel @p chn of group @p grp.
template <typename Record>
static hi_s32 getChn(VxState &s, hi_vpss_grp grp, hi_vpss_chn chn, Record VxVpssChn::*member, Record *out)
{
    return onChannel(s, grp, chn, [&](VxVpssChn &c) { return vxCopyOut(c.*member, out, HI_ERR_VPSS_NULL_PTR); });
}

template <typename Record, typename Check>
static hi_s32 setChn(VxState &s, hi_vpss_grp grp, hi_vpss_chn chn, Record VxVpssChn::*member, const Record *in,
                     Check check)
{
    return onChannel(s, grp, chn,
                     [&](VxVpssChn &c) { return vxCopyIn(c.*member, in, HI_ERR_VPSS_NULL_PTR, check); });
}

hi_s32 hi_mpi_vpss_create_grp(hi_vpss_grp grp, const hi_vpss_grp_attr *grp_attr)
{
    VX_CALL(vxStatus, "%d,%u,%u", grp, grp_attr ? grp_attr->max_width : 0, grp_attr ? grp_attr->max_height : 0);
    if (grp < 0 || grp >= HI_VPSS_MAX_GRP_NUM)
        return HI_ERR_VPSS_INVALID_DEV_ID;
    if (!grp_attr)
        return HI_ERR_VPSS_NULL_PTR;
    if (!s.sysReady)
        return HI_ERR_VPSS_NOT_READY;
    if (s.vpss[grp].exists)
        return HI_ERR_VPSS_EXIST;
    if (!validGrpAttr(*grp_attr))
        return HI_ERR_VPSS_ILLEGAL_PARAM;
    VxVpssGrp fresh;
    fresh.exists = true;
    fresh.attr = *grp_attr;
    for (VxVpssChn &chn : fresh.chn) {
        chn.attr.frame_rate.src_frame_rate = -1;
        chn.attr.frame_rate.dst_frame_rate = -1;
        chn.attr.pixel_format = HI_PIXEL_FORMAT_YVU_SEMIPLANAR_420;
    }
    s.vpss[grp] = std::move(fresh);
    return HI_SUCCESS;
}

hi_s32 hi_mpi_vpss_destroy_grp(hi_vpss_grp grp)
{
    VX_CALL(vxStatus, "%d", grp);
    return onGroup(s, grp, [&s](VxVpssGrp &g) -> hi_s32 {
        // A running group must be stopped before it can go.
        if (g.started)
            return HI_ERR_VPSS_NOT_PERM;
        // Frames still queued or held by the user go back to their pools.
        vxUnrefAll(s, g.stage.input.frames);
        for (VxVpssChn &chn : g.chn) {
            vxUnrefAll(s, chn.user.frames);
            vxUnrefAll(s, chn.held);
        }
        g = VxVpssGrp();
        vxModel().changed.notify_all();
        return HI_SUCCESS;
    });
}

hi_s32 hi_mpi_vpss_start_grp(hi_vpss_grp grp)
{
    VX_CALL(vxStatus, "%d", grp);
    return onGroup(s, grp, [grp](VxVpssGrp &g) -> hi_s32 {
        g.started = true;
        g.stage.start(groupThread, grp);
        return HI_SUCCESS;
    });
}

hi_s32 hi_mpi_vpss_stop_grp(hi_vpss_grp grp)
{
    VX_CALL(vxStatus, "%d", grp);
    hi_s32 status = HI_SUCCESS;
    VxVpssGrp *g = group(s, grp, &status);
    if (!g)
        return status;
    g->started = false;
    // What waited at the input is not processed any more.
    g->stage.stop(s, vxLock);
    vxModel().changed.notify_all();
    return HI_SUCCESS;
}

hi_s32 hi_mpi_vpss_get_grp_attr(hi_vpss_grp grp, hi_vpss_grp_attr *grp_attr)
{
    VX_CALL(vxStatus, "%d", grp);
    return getGrp(s, grp, &VxVpssGrp::attr, grp_attr);
}

hi_s32 hi_mpi_vpss_set_grp_attr(hi_vpss_grp grp, const hi_vpss_grp_attr *grp_attr)
{
    VX_CALL(vxStatus, "%d", grp);
    return setGrp(s, grp, &VxVpssGrp::attr, grp_attr,
                  [](const hi_vpss_grp_attr &attr, const hi_vpss_grp_attr &current) -> hi_s32 {
                      if (!validGrpAttr(attr))
                          return HI_ERR_VPSS_ILLEGAL_PARAM;
                      // The maximum size is fixed when the group is created.
                      if (attr.max_width != current.max_width || attr.max_height != current.max_height)
                          return HI_ERR_VPSS_NOT_SUPPORT;
                      return HI_SUCCESS;
                  });
}

hi_s32 hi_mpi_vpss_get_grp_crop(hi_vpss_grp grp, hi_vpss_crop_info *crop_info)
{
    VX_CALL(vxStatus, "%d", grp);
    return getGrp(s, grp, &VxVpssGrp::crop, crop_info);
}

static hi_s32 checkCrop(const hi_vpss_crop_info &crop_info, const hi_vpss_crop_info &)
{
    if (vxInt(crop_info.enable) == HI_FALSE)
        return HI_SUCCESS;
    const hi_rect &r = crop_info.crop_rect;
    if (vxInt(crop_info.crop_mode) == HI_COORD_RATIO) {
        // Per-mille of the picture.
        if (r.x < 0 || r.y < 0 || r.width == 0 || r.height == 0 || r.x + r.width > 1000 || r.y + r.height > 1000)
            return HI_ERR_VPSS_ILLEGAL_PARAM;
    } else if (vxInt(crop_info.crop_mode) == HI_COORD_ABS) {
        if (r.x < 0 || r.y < 0 || r.width < kMinSize || r.height < kMinSize)
            return HI_ERR_VPSS_ILLEGAL_PARAM;
    } else {
        return HI_ERR_VPSS_ILLEGAL_PARAM;
    }
    return HI_SUCCESS;
}

hi_s32 hi_mpi_vpss_set_grp_crop(hi_vpss_grp grp, const hi_vpss_crop_info *crop_info)
{
    VX_CALL(vxStatus, "%d,%d", grp, crop_info ? vxInt(crop_info->enable) : -1);
    return setGrp(s, grp, &VxVpssGrp::crop, crop_info, checkCrop);
}

hi_s32 hi_mpi_vpss_get_grp_param(hi_vpss_grp grp, hi_vpss_grp_param *grp_param)
{
    VX_CALL(vxStatus, "%d", grp);
    return getGrp(s, grp, &VxVpssGrp::param, grp_param);
}

hi_s32 hi_mpi_vpss_set_grp_param(hi_vpss_grp grp, const hi_vpss_grp_param *grp_param)
{
    VX_CALL(vxStatus, "%d,%u", grp, grp_param ? grp_param->contrast : 0);
    return setGrp(s, grp, &VxVpssGrp::param, grp_param,
                  [](const hi_vpss_grp_param &param, const hi_vpss_grp_param &) -> hi_s32 {
                      return param.contrast > 64 ? HI_ERR_VPSS_ILLEGAL_PARAM : HI_SUCCESS;
                  });
}

hi_s32 hi_mpi_vpss_set_grp_delay(hi_vpss_grp grp, hi_u32 delay)
{
    VX_CALL(vxStatus, "%d,%u", grp, delay);
    return onGroup(s, grp, [delay](VxVpssGrp &g) -> hi_s32 {
        if (delay > 1000000)
            return HI_ERR_VPSS_ILLEGAL_PARAM;
        g.delay = delay;
        return HI_SUCCESS;
    });
}

hi_s32 hi_mpi_vpss_get_grp_delay(hi_vpss_grp grp, hi_u32 *delay)
{
    VX_CALL(vxStatus, "%d", grp);
    return getGrp(s, grp, &VxVpssGrp::delay, delay);
}

hi_s32 hi_mpi_vpss_get_chn_attr(hi_vpss_grp grp, hi_vpss_chn chn, hi_vpss_chn_attr *chn_attr)
{
    VX_CALL(vxStatus, "%d,%d", grp, chn);
    return getChn(s, grp, chn, &VxVpssChn::attr, chn_attr);
}

hi_s32 hi_mpi_vpss_set_chn_attr(hi_vpss_grp grp, hi_vpss_chn chn, const hi_vpss_chn_attr *chn_attr)
{
    VX_CALL(vxStatus, "%d,%d,%u,%u", grp, chn, chn_attr ? chn_attr->width : 0, chn_attr ? chn_attr->height : 0);
    return setChn(s, grp, chn, &VxVpssChn::attr, chn_attr,
                  [&s, grp](const hi_vpss_chn_attr &attr, const hi_vpss_chn_attr &) -> hi_s32 {
                      const hi_vpss_grp_attr &grpAttr = s.vpss[grp].attr;
                      // A channel cannot put out more than its group was created to carry.
                      if (attr.width < kMinSize || attr.height < kMinSize || attr.width > grpAttr.max_width
                          || attr.height > grpAttr.max_height)
                          return HI_ERR_VPSS_ILLEGAL_PARAM;
                      if (vxInt(attr.chn_mode) < 0 || vxInt(attr.chn_mode) >= OT_VPSS_CHN_MODE_BUTT
                          || attr.depth > 8 || !validPixelFormat(attr.pixel_format)
                          || vxInt(attr.aspect_ratio.mode) < 0
                          || vxInt(attr.aspect_ratio.mode) >= OT_ASPECT_RATIO_BUTT
                          || !validFrameRate(attr.frame_rate))
                          return HI_ERR_VPSS_ILLEGAL_PARAM;
                      return HI_SUCCESS;
                  });
}

hi_s32 hi_mpi_vpss_enable_chn(hi_vpss_grp grp, hi_vpss_chn chn)
{
    VX_CALL(vxStatus, "%d,%d", grp, chn);
    return onChannel(s, grp, chn, [](VxVpssChn &c) -> hi_s32 {
        // A channel needs its attribute before it can run.
        if (c.attr.width == 0)
            return HI_ERR_VPSS_NOT_PERM;
        c.enabled = true;
        return HI_SUCCESS;
    });
}

hi_s32 hi_mpi_vpss_disable_chn(hi_vpss_grp grp, hi_vpss_chn chn)
{
    VX_CALL(vxStatus, "%d,%d", grp, chn);
    return onChannel(s, grp, chn, [&s](VxVpssChn &c) -> hi_s32 {
        c.enabled = false;
        vxUnrefAll(s, c.user.frames);
        vxModel().changed.notify_all();
        return HI_SUCCESS;
    });
}

hi_s32 hi_mpi_vpss_set_chn_rotation(hi_vpss_grp grp, hi_vpss_chn chn, const hi_rotation_attr *rotation_attr)
{
    VX_CALL(vxStatus, "%d,%d,%d,%d", grp, chn, rotation_attr ? vxInt(rotation_attr->enable) : -1,
            rotation_attr ? vxInt(rotation_attr->rotation_fixed) : -1);
    return setChn(s, grp, chn, &VxVpssChn::rotation, rotation_attr,
                  [](const hi_rotation_attr &rotation, const hi_rotation_attr &) -> hi_s32 {
                      if (vxInt(rotation.rotation_type) == HI_ROTATION_ANG_FIXED) {
                          if (vxInt(rotation.rotation_fixed) < 0 || vxInt(rotation.rotation_fixed) >= OT_ROTATION_BUTT)
                              return HI_ERR_VPSS_ILLEGAL_PARAM;
                      } else if (vxInt(rotation.rotation_type) != HI_ROTATION_ANG_FREE) {
                          return HI_ERR_VPSS_ILLEGAL_PARAM;
                      }
                      return HI_SUCCESS;
                  });
}

hi_s32 hi_mpi_vpss_get_chn_rotation(hi_vpss_grp grp, hi_vpss_chn chn, hi_rotation_attr *rotation_attr)
{
    VX_CALL(vxStatus, "%d,%d", grp, chn);
    return getChn(s, grp, chn, &VxVpssChn::rotation, rotation_attr);
}

hi_s32 hi_mpi_vpss_send_frame(hi_vpss_grp grp, const hi_video_frame_info *frame_info, hi_s32 milli_sec)
{
    VX_CALL(vxStatus, "%d,0x%x,%d", grp, frame_info ? frame_info->video_frame.phys_addr[0] : 0, milli_sec);
    hi_s32 status = HI_SUCCESS;
    VxVpssGrp *g = group(s, grp, &status);
    if (!g)
        return status;
    if (!frame_info)
        return HI_ERR_VPSS_NULL_PTR;
    if (!g->started)
        return HI_ERR_VPSS_NOT_PERM;
    const hi_video_frame &f = frame_info->video_frame;
    if (f.width < kMinSize || f.height < kMinSize || f.width > g->attr.max_width || f.height > g->attr.max_height
        || f.stride[0] < f.width)
        return HI_ERR_VPSS_ILLEGAL_PARAM;
    if (!vxCanProcess(vxInt(f.pixel_format)) || vxInt(f.compress_mode) != HI_COMPRESS_MODE_NONE)
        return HI_ERR_VPSS_NOT_SUPPORT;
    // The frame must lie in one VB block, both planes whole, as its strides say.
    const hi_vb_blk blk = vxBlockAt(s, f.phys_addr[0]);
    if (!vxFrameInBlock(s, blk, f))
        return HI_ERR_VPSS_ILLEGAL_PARAM;
    auto room = [&s, grp] {
        const VxVpssGrp &now = s.vpss[grp];
        return !now.started || !now.stage.full();
    };
    if (!vxWait(vxLock, milli_sec, room))
        return HI_ERR_VPSS_BUSY;
    g = group(s, grp, &status);
    if (!g)
        return status;
    if (!g->started)
        return HI_ERR_VPSS_NOT_PERM;
    if (!vxRef(s, blk))
        return HI_ERR_VPSS_ILLEGAL_PARAM; // released while the call waited
    VxFrameRef frame;
    frame.info = *frame_info;
    frame.blk = blk;
    g->stage.push(frame);
    return HI_SUCCESS;
}

hi_s32 hi_mpi_vpss_get_chn_frame(hi_vpss_grp grp, hi_vpss_chn chn, hi_video_frame_info *frame_info,
                                 hi_s32 milli_sec)
{
    VX_CALL(vxStatus, "%d,%d,%d", grp, chn, milli_sec);
    hi_s32 status = HI_SUCCESS;
    VxVpssChn *c = channel(s, grp, chn, &status);
    if (!c)
        return status;
    if (!frame_info)
        return HI_ERR_VPSS_NULL_PTR;
    if (!c->enabled || c->attr.depth == 0)
        return HI_ERR_VPSS_NOT_PERM; // nothing is kept for the user
    // The channel may go while the call waits: look it up again each time.
    auto ready = [&s, grp, chn] {
        const VxVpssGrp &g = s.vpss[grp];
        return !g.exists || !g.chn[chn].enabled || !g.chn[chn].user.frames.empty();
    };
    if (!vxWait(vxLock, milli_sec, ready))
        return HI_ERR_VPSS_BUF_EMPTY;
    c = channel(s, grp, chn, &status);
    if (!c)
        return status;
    if (!c->enabled)
        return HI_ERR_VPSS_NOT_PERM;
    vxHandOut(c->user, c->held, frame_info);
    return HI_SUCCESS;
}

hi_s32 hi_mpi_vpss_release_chn_frame(hi_vpss_grp grp, hi_vpss_chn chn, const hi_video_frame_info *frame_info)
{
    VX_CALL(vxStatus, "%d,%d,0x%x", grp, chn, frame_info ? frame_info->video_frame.phys_addr[0] : 0);
    hi_s32 status = HI_SUCCESS;
    VxVpssChn *c = channel(s, grp, chn, &status);
    if (!c)
        return status;
    if (!frame_info)
        return HI_ERR_VPSS_NULL_PTR;
    return vxTakeBack(s, c->held, frame_info) ? HI_SUCCESS : HI_ERR_VPSS_ILLEGAL_PARAM;
}
