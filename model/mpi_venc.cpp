// VENC module of the software model: module parameters and, per channel,
// rate control, VUI, channel parameters and picture reception. Channels
// exist for every valid number: the model has no channel creation.

#include "hi_mpi_venc.h"

#include "model_p.h"

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
    return onChannel(s, chn,
                     [&](VxVencChn &c) { return vxCopyIn(c.*member, in, HI_ERR_VENC_NULL_PTR, check...); });
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

hi_s32 hi_mpi_venc_start_chn(hi_venc_chn chn, const hi_venc_start_param *recv_param)
{
    VX_CALL(vxStatus, "%d,%d", chn, recv_param ? recv_param->recv_pic_num : 0);
    return onChannel(s, chn, [recv_param](VxVencChn &c) -> hi_s32 {
        if (!recv_param)
            return HI_ERR_VENC_NULL_PTR;
        // -1 receives without end; any other count must be positive.
        if (recv_param->recv_pic_num == 0 || recv_param->recv_pic_num < -1)
            return HI_ERR_VENC_ILLEGAL_PARAM;
        c.started = true;
        c.recvPicNum = recv_param->recv_pic_num;
        return HI_SUCCESS;
    });
}

hi_s32 hi_mpi_venc_stop_chn(hi_venc_chn chn)
{
    VX_CALL(vxStatus, "%d", chn);
    return onChannel(s, chn, [](VxVencChn &c) -> hi_s32 {
        c.started = false;
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
