#ifndef HI_COMMON_VENC_H
#define HI_COMMON_VENC_H

#include "hi_common.h"
#include "hi_common_video.h"
#include "hi_common_vb.h"
#include "ot_common_venc.h"

typedef ot_venc_rc_qpmap_mode hi_venc_rc_qpmap_mode;
typedef ot_venc_h264_cbr_param hi_venc_h264_cbr_param;
typedef ot_venc_h264_vbr_param hi_venc_h264_vbr_param;
typedef ot_venc_h264_avbr_param hi_venc_h264_avbr_param;
typedef ot_venc_h265_cbr_param hi_venc_h265_cbr_param;
typedef ot_venc_h265_vbr_param hi_venc_h265_vbr_param;
typedef ot_venc_h265_avbr_param hi_venc_h265_avbr_param;
typedef ot_venc_rc_param hi_venc_rc_param;
typedef ot_venc_mod_type hi_venc_mod_type;
typedef ot_venc_mod_param hi_venc_mod_param;
typedef ot_venc_h264_vui hi_venc_h264_vui;
typedef ot_venc_h265_vui hi_venc_h265_vui;
typedef ot_venc_start_param hi_venc_start_param;
typedef ot_venc_chn_param hi_venc_chn_param;

#define HI_VENC_MAX_CHN_NUM OT_VENC_MAX_CHN_NUM
#define HI_VENC_MOD_VENC OT_VENC_MOD_VENC
#define HI_VENC_MOD_H264 OT_VENC_MOD_H264
#define HI_VENC_MOD_H265 OT_VENC_MOD_H265
#define HI_VENC_MOD_JPEG OT_VENC_MOD_JPEG
#define HI_VENC_MOD_RC OT_VENC_MOD_RC

#define HI_ERR_VENC_INVALID_CHN_ID OT_ERR_VENC_INVALID_CHN_ID
#define HI_ERR_VENC_ILLEGAL_PARAM OT_ERR_VENC_ILLEGAL_PARAM
#define HI_ERR_VENC_NULL_PTR OT_ERR_VENC_NULL_PTR
#define HI_ERR_VENC_NOT_PERM OT_ERR_VENC_NOT_PERM

#endif /* HI_COMMON_VENC_H */
