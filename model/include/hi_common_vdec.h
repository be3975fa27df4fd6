#ifndef HI_COMMON_VDEC_H
#define HI_COMMON_VDEC_H

#include "hi_common.h"
#include "hi_common_vb.h"
#include "ot_common_vdec.h"

typedef ot_vdec_video_mod_param hi_vdec_video_mod_param;
typedef ot_vdec_pic_mod_param hi_vdec_pic_mod_param;
typedef ot_vdec_mod_param hi_vdec_mod_param;
typedef ot_vdec_stream hi_vdec_stream;

#define HI_ERR_VDEC_NULL_PTR OT_ERR_VDEC_NULL_PTR
#define HI_ERR_VDEC_ILLEGAL_PARAM OT_ERR_VDEC_ILLEGAL_PARAM

#endif /* HI_COMMON_VDEC_H */
