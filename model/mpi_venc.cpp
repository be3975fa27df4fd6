// VENC module of the software model: module parameters and, per channel,
// rate control, VUI, channel parameters and picture reception. Channels
// exist for every valid number: the model has no channel creation.

#include "hi_mpi_venc.h"

#include "model_p.h"

static VxVencChn *channel(VxState &s, hi_venc_chn chn)
{
    return chn >= 0 && chn < HI_VENC_MAX_CHN_NUM ? &s.venc[chn] : nullptr;
}

hi_s32 hi_mpi_venc_get_mod_param(hi_venc_mod_param *mod_param)
{
    VX_CALL(vxStatus, "%d", mod_param ? vxInt(mod_param->mod_type) : -1);
    if (!mod_param)
        return HI_ERR_VENC_NULL_PTR;
    if (vxInt(mod_param->mod_type) < HI_VENC_MOD_VENC || vxInt(mod_param->mod_type) > HI_VENC_MOD_RC)
        return HI_ERR_VENC_ILLEGAL_PARAM;
    *mod_param = s.vencMod[mod_param->mod_type];
    return HI_SUCCESS;
}

hi_s32 hi_mpi_venc_set_mod_param(const hi_venc_mod_param *mod_param)
{
    VX_CALL(vxStatus, "%d", mod_param ? vxInt(mod_param->mod_type) : -1);
    if (!mod_param)
        return HI_ERR_VENC_NULL_PTR;
    if (vxInt(mod_param->mod_type) < HI_VENC_MOD_VENC || vxInt(mod_param->mod_type) > HI_VENC_MOD_RC)
        return HI_ERR_VENC_ILLEGAL_PARAM;
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
    VxVencChn *c = channel(s, chn);
    if (!c)
        return HI_ERR_VENC_INVALID_CHN_ID;
    if (!rc_param)
        return HI_ERR_VENC_NULL_PTR;
    *rc_param = c->rc;
    return HI_SUCCESS;
}

hi_s32 hi_mpi_venc_set_rc_param(hi_venc_chn chn, const hi_venc_rc_param *rc_param)
{
    VX_CALL(vxStatus, "%d", chn);
    VxVencChn *c = channel(s, chn);
    if (!c)
        return HI_ERR_VENC_INVALID_CHN_ID;
    if (!rc_param)
        return HI_ERR_VENC_NULL_PTR;
    c->rc = *rc_param;
    return HI_SUCCESS;
}

hi_s32 hi_mpi_venc_get_h264_vui(hi_venc_chn chn, hi_venc_h264_vui *h264_vui)
{
    VX_CALL(vxStatus, "%d", chn);
    VxVencChn *c = channel(s, chn);
    if (!c)
        return HI_ERR_VENC_INVALID_CHN_ID;
    if (!h264_vui)
        return HI_ERR_VENC_NULL_PTR;
    *h264_vui = c->vui264;
    return HI_SUCCESS;
}

hi_s32 hi_mpi_venc_set_h264_vui(hi_venc_chn chn, const hi_venc_h264_vui *h264_vui)
{
    VX_CALL(vxStatus, "%d", chn);
    VxVencChn *c = channel(s, chn);
    if (!c)
        return HI_ERR_VENC_INVALID_CHN_ID;
    if (!h264_vui)
        return HI_ERR_VENC_NULL_PTR;
    c->vui264 = *h264_vui;
    return HI_SUCCESS;
}

hi_s32 hi_mpi_venc_get_h265_vui(hi_venc_chn chn, hi_venc_h265_vui *h265_vui)
{
    VX_CALL(vxStatus, "%d", chn);
    VxVencChn *c = channel(s, chn);
    if (!c)
        return HI_ERR_VENC_INVALID_CHN_ID;
    if (!h265_vui)
        return HI_ERR_VENC_NULL_PTR;
    *h265_vui = c->vui265;
    return HI_SUCCESS;
}

hi_s32 hi_mpi_venc_set_h265_vui(hi_venc_chn chn, const hi_venc_h265_vui *h265_vui)
{
    VX_CALL(vxStatus, "%d", chn);
    VxVencChn *c = channel(s, chn);
    if (!c)
        return HI_ERR_VENC_INVALID_CHN_ID;
    if (!h265_vui)
        return HI_ERR_VENC_NULL_PTR;
    c->vui265 = *h265_vui;
    return HI_SUCCESS;
}

hi_s32 hi_mpi_venc_start_chn(hi_venc_chn chn, const hi_venc_start_param *recv_param)
{
    VX_CALL(vxStatus, "%d,%d", chn, recv_param ? recv_param->recv_pic_num : 0);
    VxVencChn *c = channel(s, chn);
    if (!c)
        return HI_ERR_VENC_INVALID_CHN_ID;
    if (!recv_param)
        return HI_ERR_VENC_NULL_PTR;
    // -1 receives without end; any other count must be positive.
    if (recv_param->recv_pic_num == 0 || recv_param->recv_pic_num < -1)
        return HI_ERR_VENC_ILLEGAL_PARAM;
    c->started = true;
    c->recvPicNum = recv_param->recv_pic_num;
    return HI_SUCCESS;
}

hi_s32 hi_mpi_venc_stop_chn(hi_venc_chn chn)
{
    VX_CALL(vxStatus, "%d", chn);
    VxVencChn *c = channel(s, chn);
    if (!c)
        return HI_ERR_VENC_INVALID_CHN_ID;
    c->started = false;
    return HI_SUCCESS;
}

hi_s32 hi_mpi_venc_get_chn_param(hi_venc_chn chn, hi_venc_chn_param *chn_param)
{
    VX_CALL(vxStatus, "%d", chn);
    VxVencChn *c = channel(s, chn);
    if (!c)
        return HI_ERR_VENC_INVALID_CHN_ID;
    if (!chn_param)
        return HI_ERR_VENC_NULL_PTR;
    *chn_param = c->param;
    return HI_SUCCESS;
}

hi_s32 hi_mpi_venc_set_chn_param(hi_venc_chn chn, const hi_venc_chn_param *chn_param)
{
    VX_CALL(vxStatus, "%d,%u", chn, chn_param ? chn_param->max_stream_cnt : 0);
    VxVencChn *c = channel(s, chn);
    if (!c)
        return HI_ERR_VENC_INVALID_CHN_ID;
    if (!chn_param)
        return HI_ERR_VENC_NULL_PTR;
    if (chn_param->max_stream_cnt < 1)
        return HI_ERR_VENC_ILLEGAL_PARAM;
    c->param = *chn_param;
    return HI_SUCCESS;
}
