#ifndef OT_COMMON_VO_H
#define OT_COMMON_VO_H

#include "ot_common.h"
#include "ot_common_video.h"

#ifdef __cplusplus
extern "C" {
#endif

#define OT_VO_MAX_DEV_NUM 4
#define OT_VO_MAX_LAYER_NUM 8

typedef enum {
    OT_VO_CLK_EDGE_SINGLE = 0,
    OT_VO_CLK_EDGE_DUAL,
    OT_VO_CLK_EDGE_BUTT
} ot_vo_clk_edge;

typedef enum {
    OT_VO_PARTITION_MODE_SINGLE = 0,
    OT_VO_PARTITION_MODE_MULTI,
    OT_VO_PARTITION_MODE_BUTT
} ot_vo_partition_mode;

typedef struct {
    td_bool yc_inverted_en;
    td_bool bit_inverted_en;
    ot_vo_clk_edge clk_edge;
} ot_vo_bt_param;

typedef struct {
    ot_rect display_rect;
    ot_size img_size;
    td_u32 display_frame_rate;
    ot_pixel_format pixel_format;
    td_bool double_frame_en;
    td_bool cluster_mode_en;
    ot_dynamic_range dst_dynamic_range;
    td_u32 display_buf_len;
    ot_vo_partition_mode partition_mode;
    ot_compress_mode compress_mode;
} ot_vo_video_layer_attr;

#define OT_ERR_VO_INVALID_DEV_ID OT_DEFINE_ERR(OT_ID_VO, OT_ERR_LEVEL_ERROR, OT_ERR_INVALID_DEV_ID)
#define OT_ERR_VO_INVALID_LAYER_ID OT_DEFINE_ERR(OT_ID_VO, OT_ERR_LEVEL_ERROR, OT_ERR_INVALID_LAYER_ID)
#define OT_ERR_VO_ILLEGAL_PARAM OT_DEFINE_ERR(OT_ID_VO, OT_ERR_LEVEL_ERROR, OT_ERR_ILLEGAL_PARAM)
#define OT_ERR_VO_NULL_PTR OT_DEFINE_ERR(OT_ID_VO, OT_ERR_LEVEL_ERROR, OT_ERR_NULL_PTR)

#ifdef __cplusplus
}
#endif

#endif /* OT_COMMON_VO_H */
