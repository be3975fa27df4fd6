// VDEC and VI module parameters, VO device settings and the 2D engine
// (TDE) of the software model.

#include "hi_mpi_tde.h"
#include "hi_mpi_vdec.h"
#include "hi_mpi_vi.h"
#include "hi_mpi_vo.h"

#include "model_p.h"

static bool validVoDev(hi_vo_dev dev)
{
    return dev >= 0 && dev < HI_VO_MAX_DEV_NUM;
}

hi_s32 hi_mpi_vdec_get_mod_param(hi_vdec_mod_param *mod_param)
{
    VX_CALL(vxStatus, "%s", "");
    return vxCopyOut(s.vdecMod, mod_param, HI_ERR_VDEC_NULL_PTR);
}

hi_s32 hi_mpi_vdec_set_mod_param(const hi_vdec_mod_param *mod_param)
{
    VX_CALL(vxStatus, "%d", mod_param ? vxInt(mod_param->vb_src) : -1);
    return vxCopyIn(s.vdecMod, mod_param, HI_ERR_VDEC_NULL_PTR,
                    [](const hi_vdec_mod_param &param, const hi_vdec_mod_param &) -> hi_s32 {
                        // The decoder takes module, private or user pools, not common ones.
                        if (vxInt(param.vb_src) < HI_VB_SRC_MOD || vxInt(param.vb_src) > HI_VB_SRC_USER)
                            return HI_ERR_VDEC_ILLEGAL_PARAM;
                        return HI_SUCCESS;
                    });
}

hi_s32 hi_mpi_vi_get_mod_param(hi_vi_mod_param *mod_param)
{
    VX_CALL(vxStatus, "%s", "");
    return vxCopyOut(s.viMod, mod_param, HI_ERR_VI_NULL_PTR);
}

hi_s32 hi_mpi_vi_set_mod_param(const hi_vi_mod_param *mod_param)
{
    VX_CALL(vxStatus, "%d", mod_param ? mod_param->detect_err_frame : 0);
    return vxCopyIn(s.viMod, mod_param, HI_ERR_VI_NULL_PTR);
}

hi_s32 hi_mpi_vi_set_frame_depth(hi_vi_pipe vi_pipe, hi_vi_chn vi_chn, hi_u32 depth)
{
    VX_CALL(vxStatus, "%d,%d,%u", vi_pipe, vi_chn, depth);
    if (vi_pipe < 0 || vi_pipe >= HI_VI_MAX_PIPE_NUM)
        return HI_ERR_VI_INVALID_PIPE_ID;
    if (vi_chn < 0 || vi_chn >= HI_VI_MAX_CHN_NUM)
        return HI_ERR_VI_INVALID_CHN_ID;
    if (depth > OT_VI_MAX_FRAME_DEPTH)
        return HI_ERR_VI_ILLEGAL_PARAM;
    // The user queue's depth, as the channel attribute's depth field sets it.
    s.viPipe[vi_pipe].chn[vi_chn].attr.depth = depth;
    return HI_SUCCESS;
}

hi_s32 hi_mpi_vo_set_vtth(hi_vo_dev dev, hi_u32 vtth)
{
    VX_CALL(vxStatus, "%d,%u", dev, vtth);
    if (!validVoDev(dev))
        return HI_ERR_VO_INVALID_DEV_ID;
    s.vtth[dev] = vtth;
    return HI_SUCCESS;
}

hi_s32 hi_mpi_vo_get_vtth(hi_vo_dev dev, hi_u32 *vtth)
{
    VX_CALL(vxStatus, "%d", dev);
    if (!validVoDev(dev))
        return HI_ERR_VO_INVALID_DEV_ID;
    return vxCopyOut(s.vtth[dev], vtth, HI_ERR_VO_NULL_PTR);
}

hi_s32 hi_mpi_vo_set_bt_param(hi_vo_dev dev, const hi_vo_bt_param *bt_param)
{
    VX_CALL(vxStatus, "%d,%d,%d,%d", dev, bt_param ? vxInt(bt_param->yc_inverted_en) : -1,
            bt_param ? vxInt(bt_param->bit_inverted_en) : -1,
            bt_param ? vxInt(bt_param->clk_edge) : -1);
    if (!validVoDev(dev))
        return HI_ERR_VO_INVALID_DEV_ID;
    return vxCopyIn(s.bt[dev], bt_param, HI_ERR_VO_NULL_PTR,
                    [](const hi_vo_bt_param &param, const hi_vo_bt_param &) -> hi_s32 {
                        if (vxInt(param.yc_inverted_en) > HI_TRUE || vxInt(param.bit_inverted_en) > HI_TRUE
                            || vxInt(param.clk_edge) < 0 || vxInt(param.clk_edge) >= OT_VO_CLK_EDGE_BUTT)
                            return HI_ERR_VO_ILLEGAL_PARAM;
                        return HI_SUCCESS;
                    });
}

hi_s32 hi_mpi_vo_get_bt_param(hi_vo_dev dev, hi_vo_bt_param *bt_param)
{
    VX_CALL(vxStatus, "%d", dev);
    if (!validVoDev(dev))
        return HI_ERR_VO_INVALID_DEV_ID;
    return vxCopyOut(s.bt[dev], bt_param, HI_ERR_VO_NULL_PTR);
}

hi_s32 hi_mpi_vo_set_video_layer_attr(hi_vo_layer layer, const hi_vo_video_layer_attr *layer_attr)
{
    VX_CALL(vxStatus, "%d", layer);
    if (layer < 0 || layer >= HI_VO_MAX_LAYER_NUM)
        return HI_ERR_VO_INVALID_LAYER_ID;
    return vxCopyIn(s.layer[layer], layer_attr, HI_ERR_VO_NULL_PTR,
                    [](const hi_vo_video_layer_attr &attr, const hi_vo_video_layer_attr &) -> hi_s32 {
                        if (attr.display_buf_len > 15 || vxInt(attr.partition_mode) < 0
                            || vxInt(attr.partition_mode) >= OT_VO_PARTITION_MODE_BUTT)
                            return HI_ERR_VO_ILLEGAL_PARAM;
                        return HI_SUCCESS;
                    });
}

hi_s32 hi_mpi_vo_get_video_layer_attr(hi_vo_layer layer, hi_vo_video_layer_attr *layer_attr)
{
    VX_CALL(vxStatus, "%d", layer);
    if (layer < 0 || layer >= HI_VO_MAX_LAYER_NUM)
        return HI_ERR_VO_INVALID_LAYER_ID;
    return vxCopyOut(s.layer[layer], layer_attr, HI_ERR_VO_NULL_PTR);
}

hi_s32 hi_tde_open(hi_void)
{
    VX_CALL(vxStatus, "%s", "");
    s.tdeOpen = true;
    return HI_SUCCESS;
}

hi_void hi_tde_close(hi_void)
{
    std::lock_guard<std::mutex> guard(vxModel().mutex);
    VxState &s = vxModel().s;
    hi_s32 ignored = 0;
    vxEnter(s, __func__, "", &ignored);
    s.tdeOpen = false;
    s.tdeJobs.clear();
}

hi_s32 hi_tde_begin_job(hi_void)
{
    VX_CALL(vxStatus, "%s", "");
    if (!s.tdeOpen)
        return HI_ERR_TDE_DEV_NOT_OPEN;
    const hi_s32 handle = s.nextTdeJob++;
    s.tdeJobs.insert(handle);
    return handle;
}

hi_s32 hi_tde_end_job(hi_s32 handle, hi_bool is_sync, hi_bool is_block, hi_u32 time_out)
{
    VX_CALL(vxStatus, "%d,%d,%d,%u", handle, vxInt(is_sync), vxInt(is_block), time_out);
    if (!s.tdeOpen)
        return HI_ERR_TDE_DEV_NOT_OPEN;
    if (!s.tdeJobs.erase(handle))
        return HI_ERR_TDE_INVALID_HANDLE;
    return HI_SUCCESS;
}

hi_s32 hi_tde_bit_blit(hi_s32 handle, const hi_tde_double_src *double_src, const hi_tde_opt *opt)
{
    VX_CALL(vxStatus, "%d", handle);
    if (!s.tdeOpen)
        return HI_ERR_TDE_DEV_NOT_OPEN;
    if (!double_src || !opt || !double_src->bg_surface || !double_src->fg_surface || !double_src->dst_surface
        || !double_src->bg_rect || !double_src->fg_rect || !double_src->dst_rect)
        return HI_ERR_TDE_NULL_PTR;
    if (!s.tdeJobs.count(handle))
        return HI_ERR_TDE_INVALID_HANDLE;
    const hi_tde_rect *rects[] = {double_src->bg_rect, double_src->fg_rect, double_src->dst_rect};
    for (const hi_tde_rect *r : rects) {
        if (r->width == 0 || r->height == 0)
            return HI_ERR_TDE_INVALID_PARA;
    }
    vx_model_blit &b = s.lastBlit;
    b.handle = handle;
    b.bg = *double_src->bg_surface;
    b.fg = *double_src->fg_surface;
    b.dst = *double_src->dst_surface;
    b.bgRect = *double_src->bg_rect;
    b.fgRect = *double_src->fg_rect;
    b.dstRect = *double_src->dst_rect;
    b.opt = *opt;
    b.bgIsDst = double_src->bg_surface == double_src->dst_surface;
    b.bgRectIsDstRect = double_src->bg_rect == double_src->dst_rect;
    s.haveBlit = true;
    return HI_SUCCESS;
}
