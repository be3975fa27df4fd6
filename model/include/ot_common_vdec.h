#ifndef OT_COMMON_VDEC_H
#define OT_COMMON_VDEC_H

#include "ot_common.h"
#include "ot_common_vb.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef enum {
    OT_VDEC_CAPACITY_STRATEGY_BY_MOD = 0,
    OT_VDEC_CAPACITY_STRATEGY_BY_CHN,
    OT_VDEC_CAPACITY_STRATEGY_BUTT
} ot_vdec_capacity_strategy;

typedef struct {
    td_u32 max_pic_width;
    td_u32 max_pic_height;
    td_u32 max_slice_num;
    td_u32 vdh_msg_num;
} ot_vdec_video_mod_param;

typedef struct {
    td_u32 max_pic_width;
    td_u32 max_pic_height;
    td_bool progressive_en;
    td_bool dynamic_alloc_en;
    ot_vdec_capacity_strategy capacity_strategy;
} ot_vdec_pic_mod_param;

typedef struct {
    ot_vb_src vb_src;
    td_u32 mini_buf_mode;
    ot_vdec_video_mod_param video_mod_param;
    ot_vdec_pic_mod_param pic_mod_param;
} ot_vdec_mod_param;

typedef struct {
    td_bool end_of_frame;
    td_bool end_of_stream;
    td_bool need_display;
    td_u64 pts;
    td_u64 private_data;
    td_u32 len;
    td_u8 *addr ATTRIBUTE;
} ot_vdec_stream;

#define OT_ERR_VDEC_NULL_PTR OT_DEFINE_ERR(OT_ID_VDEC, OT_ERR_LEVEL_ERROR, OT_ERR_NULL_PTR)
#define OT_ERR_VDEC_ILLEGAL_PARAM OT_DEFINE_ERR(OT_ID_VDEC, OT_ERR_LEVEL_ERROR, OT_ERR_ILLEGAL_PARAM)

#ifdef __cplusplus
}
#endif

#endif /* OT_COMMON_VDEC_H */
