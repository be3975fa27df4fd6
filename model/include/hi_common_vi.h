#ifndef HI_COMMON_VI_H
#define HI_COMMON_VI_H

#include "hi_common.h"
#include "ot_common_vi.h"

typedef ot_vi_mod_param hi_vi_mod_param;

#define HI_VI_MAX_PIPE_NUM OT_VI_MAX_PIPE_NUM
#define HI_VI_MAX_CHN_NUM OT_VI_MAX_CHN_NUM
#define HI_ERR_VI_INVALID_PIPE_ID OT_ERR_VI_INVALID_PIPE_ID
#define HI_ERR_VI_INVALID_CHN_ID OT_ERR_VI_INVALID_CHN_ID
#define HI_ERR_VI_ILLEGAL_PARAM OT_ERR_VI_ILLEGAL_PARAM
#define HI_ERR_VI_NULL_PTR OT_ERR_VI_NULL_PTR

#endif /* HI_COMMON_VI_H */
