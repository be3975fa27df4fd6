#ifndef OT_COMMON_VI_H
#define OT_COMMON_VI_H

#include "ot_common.h"

#ifdef __cplusplus
extern "C" {
#endif

#define OT_VI_MAX_PIPE_NUM 16
#define OT_VI_MAX_CHN_NUM 8
#define OT_VI_MAX_FRAME_DEPTH 8

typedef struct {
    td_s32 detect_err_frame;
    td_u32 drop_err_frame;
} ot_vi_mod_param;

#define OT_ERR_VI_INVALID_PIPE_ID OT_DEFINE_ERR(OT_ID_VI, OT_ERR_LEVEL_ERROR, OT_ERR_INVALID_PIPE_ID)
#define OT_ERR_VI_INVALID_CHN_ID OT_DEFINE_ERR(OT_ID_VI, OT_ERR_LEVEL_ERROR, OT_ERR_INVALID_CHN_ID)
#define OT_ERR_VI_ILLEGAL_PARAM OT_DEFINE_ERR(OT_ID_VI, OT_ERR_LEVEL_ERROR, OT_ERR_ILLEGAL_PARAM)
#define OT_ERR_VI_NULL_PTR OT_DEFINE_ERR(OT_ID_VI, OT_ERR_LEVEL_ERROR, OT_ERR_NULL_PTR)

#ifdef __cplusplus
}
#endif

#endif /* OT_COMMON_VI_H */
