#ifndef OT_COMMON_VO_H
#define OT_COMMON_VO_H

#include "ot_common.h"
#include "ot_common_video.h"

#ifdef __cplusplus
extern "C" {
#endif

#define OT_VO_MAX_DEV_NUM 4
#define OT_VO_MAX_LAYER_NUM 8
#define OT_VO_MAX_CHN_NUM 64

/* Interface bits of ot_vo_pub_attr.intf_type. */
typedef td_u32 ot_vo_intf_type;
#define OT_VO_INTF_CVBS (0x01U << 0)
#define OT_VO_INTF_VGA (0x01U << 1)
#define OT_VO_INTF_BT656 (0x01U << 2)
#define OT_VO_INTF_BT1120 (0x01U << 3)
#define OT_VO_INTF_HDMI (0x01U << 4)
#define OT_VO_INTF_RGB_6BIT (0x01U << 5)
#define OT_VO_INTF_RGB_8BIT (0x01U << 6)
#define OT_VO_INTF_RGB_16BIT (0x01U << 7)
#define OT_VO_INTF_RGB_18BIT (0x01U << 8)
#define OT_VO_INTF_RGB_24BIT (0x01U << 9)
#define OT_VO_INTF_MIPI (0x01U << 10)
#define OT_VO_INTF_MIPI_SLAVE (0x01U << 11)
#define OT_VO_INTF_HDMI1 (0x01U << 12)

typedef enum {
    OT_VO_OUT_PAL = 0,
    OT_VO_OUT_NTSC = 1,
    OT_VO_OUT_640x480_60 = 4,
    OT_VO_OUT_480P60 = 5,
    OT_VO_OUT_576P50 = 6,
    OT_VO_OUT_800x600_60 = 7,
    OT_VO_OUT_1024x768_60 = 8,
    OT_VO_OUT_720P50 = 9,
    OT_VO_OUT_720P60 = 10,
    OT_VO_OUT_1280x1024_60 = 12,
    OT_VO_OUT_1080P24 = 17,
    OT_VO_OUT_1080P25 = 18,
    OT_VO_OUT_1080P30 = 19,
    OT_VO_OUT_1080I50 = 20,
    OT_VO_OUT_1080I60 = 21,
    OT_VO_OUT_1080P50 = 22,
    OT_VO_OUT_1080P60 = 23,
    OT_VO_OUT_1920x1200_60 = 25,
    OT_VO_OUT_3840x2160_30 = 32,
    OT_VO_OUT_3840x2160_60 = 34,
    OT_VO_OUT_USER = 48
} ot_vo_intf_sync;

typedef struct {
    td_bool syncm;
    td_bool iop;
    td_u8 intfb;
    td_u16 vact;
    td_u16 vbb;
    td_u16 vfb;
    td_u16 hact;
    td_u16 hbb;
    td_u16 hfb;
    td_u16 hmid;
    td_u16 bvact;
    td_u16 bvbb;
    td_u16 bvfb;
    td_u16 hpw;
    td_u16 vpw;
    td_bool idv;
    td_bool ihs;
    td_bool ivs;
} ot_vo_sync_info;

typedef struct {
    td_u32 bg_color;
    ot_vo_intf_type intf_type;
    ot_vo_intf_sync intf_sync;
    ot_vo_sync_info sync_info;
} ot_vo_pub_attr;

typedef struct {
    td_u32 priority;
    ot_rect rect;
    td_bool deflicker_en;
} ot_vo_chn_attr;

typedef struct {
    ot_aspect_ratio aspect_ratio;
} ot_vo_chn_param;

typedef struct {
    td_u32 chn_buf_used;
} ot_vo_chn_status;

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
#define OT_ERR_VO_INVALID_CHN_ID OT_DEFINE_ERR(OT_ID_VO, OT_ERR_LEVEL_ERROR, OT_ERR_INVALID_CHN_ID)
#define OT_ERR_VO_NOT_CFG OT_DEFINE_ERR(OT_ID_VO, OT_ERR_LEVEL_ERROR, OT_ERR_NOT_CFG)
#define OT_ERR_VO_NOT_SUPPORT OT_DEFINE_ERR(OT_ID_VO, OT_ERR_LEVEL_ERROR, OT_ERR_NOT_SUPPORT)
#define OT_ERR_VO_NOT_PERM OT_DEFINE_ERR(OT_ID_VO, OT_ERR_LEVEL_ERROR, OT_ERR_NOT_PERM)
#define OT_ERR_VO_NOT_ENABLE OT_DEFINE_ERR(OT_ID_VO, OT_ERR_LEVEL_ERROR, OT_ERR_NOT_ENABLE)
#define OT_ERR_VO_NOT_DISABLE OT_DEFINE_ERR(OT_ID_VO, OT_ERR_LEVEL_ERROR, OT_ERR_NOT_DISABLE)
#define OT_ERR_VO_NO_MEM OT_DEFINE_ERR(OT_ID_VO, OT_ERR_LEVEL_ERROR, OT_ERR_NO_MEM)
#define OT_ERR_VO_NOT_READY OT_DEFINE_ERR(OT_ID_VO, OT_ERR_LEVEL_ERROR, OT_ERR_NOT_READY)
#define OT_ERR_VO_TIMEOUT OT_DEFINE_ERR(OT_ID_VO, OT_ERR_LEVEL_ERROR, OT_ERR_TIMEOUT)
#define OT_ERR_VO_BUSY OT_DEFINE_ERR(OT_ID_VO, OT_ERR_LEVEL_ERROR, OT_ERR_BUSY)
#define OT_ERR_VO_NOT_BINDED OT_DEFINE_ERR(OT_ID_VO, OT_ERR_LEVEL_ERROR, OT_ERR_NOT_BINDED)
#define OT_ERR_VO_BINDED OT_DEFINE_ERR(OT_ID_VO, OT_ERR_LEVEL_ERROR, OT_ERR_BINDED)

#ifdef __cplusplus
}
#endif

#endif /* OT_COMMON_VO_H */
