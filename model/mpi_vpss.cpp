// VPSS module of the software model: groups with their attributes, crop,
// parameters and delay, and four physical channels per group.

#include "hi_mpi_vpss.h"

#include "model_p.h"

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

// Starts or stops group @p grp.
static hi_s32 runGroup(VxState &s, hi_vpss_grp grp, bool started)
{
    return onGroup(s, grp, [started](VxVpssGrp &g) -> hi_s32 {
        g.started = started;
        return HI_SUCCESS;
    });
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
    s.vpss[grp] = fresh;
    return HI_SUCCESS;
}

hi_s32 hi_mpi_vpss_destroy_grp(hi_vpss_grp grp)
{
    VX_CALL(vxStatus, "%d", grp);
    return onGroup(s, grp, [](VxVpssGrp &g) -> hi_s32 {
        // A running group must be stopped before it can go.
        if (g.started)
            return HI_ERR_VPSS_NOT_PERM;
        g = VxVpssGrp();
        return HI_SUCCESS;
    });
}

hi_s32 hi_mpi_vpss_start_grp(hi_vpss_grp grp)
{
    VX_CALL(vxStatus, "%d", grp);
    return runGroup(s, grp, true);
}

hi_s32 hi_mpi_vpss_stop_grp(hi_vpss_grp grp)
{
    VX_CALL(vxStatus, "%d", grp);
    return runGroup(s, grp, false);
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
    return onChannel(s, grp, chn, [](VxVpssChn &c) -> hi_s32 {
        c.enabled = false;
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
