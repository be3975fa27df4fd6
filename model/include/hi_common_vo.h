#ifndef HI_COMMON_VO_H
#define HI_COMMON_VO_H

#include "hi_common.h"
#include "hi_common_video.h"
#include "ot_common_vo.h"

typedef ot_vo_clk_edge hi_vo_clk_edge;
typedef ot_vo_partition_mode hi_vo_partition_mode;
typedef ot_vo_bt_param hi_vo_bt_param;
typedef ot_vo_video_layer_attr hi_vo_video_layer_attr;

#define HI_VO_MAX_DEV_NUM OT_VO_MAX_DEV_NUM
#define HI_VO_MAX_LAYER_NUM OT_VO_MAX_LAYER_NUM
#define HI_VO_CLK_EDGE_SINGLE OT_VO_CLK_EDGE_SINGLE
#define HI_VO_CLK_EDGE_DUAL OT_VO_CLK_EDGE_DUAL
#define HI_VO_PARTITION_MODE_SINGLE OT_VO_PARTITION_MODE_SINGLE
#define HI_VO_PARTITION_MODE_MULTI OT_VO_PARTITION_MODE_MULTI
#define HI_ERR_VO_INVALID_DEV_ID OT_ERR_VO_INVALID_DEV_ID
#define HI_ERR_VO_INVALID_LAYER_ID OT_ERR_VO_INVALID_LAYER_ID
#define HI_ERR_VO_ILLEGAL_PARAM OT_ERR_VO_ILLEGAL_PARAM
#define HI_ERR_VO_NULL_PTR OT_ERR_VO_NULL_PTR

#endif /* HI_COMMON_VO_H */
