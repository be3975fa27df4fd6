// VDEC and VI module parameters of the software model.

#include "hi_mpi_vdec.h"
#include "hi_mpi_vi.h"

#include "model_p.h"

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
