#ifndef OT_COMMON_VI_H
#define OT_COMMON_VI_H

#include "ot_common.h"
#include "ot_common_video.h"

#ifdef __cplusplus
extern "C" {
#endif

#define OT_VI_MAX_PIPE_NUM 16
#define OT_VI_MAX_CHN_NUM 8
#define OT_VI_MAX_FRAME_DEPTH 8
#define OT_VI_MAX_AD_CHN_NUM 4
#define OT_VI_COMPONENT_MASK_NUM 2

typedef struct {
    td_s32 detect_err_frame;
    td_u32 drop_err_frame;
} ot_vi_mod_param;

typedef enum {
    OT_VI_INTF_MODE_BT656 = 0,
    OT_VI_INTF_MODE_BT601,
    OT_VI_INTF_MODE_DC,
    OT_VI_INTF_MODE_BT1120,
    OT_VI_INTF_MODE_MIPI,
    OT_VI_INTF_MODE_MIPI_YUV420_NORM,
    OT_VI_INTF_MODE_MIPI_YUV420_LEGACY,
    OT_VI_INTF_MODE_MIPI_YUV422,
    OT_VI_INTF_MODE_THERMO,
    OT_VI_INTF_MODE_BUTT
} ot_vi_intf_mode;

typedef enum {
    OT_VI_WORK_MODE_MULTIPLEX_1 = 0,
    OT_VI_WORK_MODE_MULTIPLEX_2,
    OT_VI_WORK_MODE_MULTIPLEX_4,
    OT_VI_WORK_MODE_BUTT
} ot_vi_work_mode;

typedef enum {
    OT_VI_SCAN_PROGRESSIVE = 0,
    OT_VI_SCAN_INTERLACED,
    OT_VI_SCAN_BUTT
} ot_vi_scan_mode;

typedef enum {
    OT_VI_DATA_SEQ_VUVU = 0,
    OT_VI_DATA_SEQ_UVUV,
    OT_VI_DATA_SEQ_UYVY,
    OT_VI_DATA_SEQ_VYUY,
    OT_VI_DATA_SEQ_YUYV,
    OT_VI_DATA_SEQ_YVYU,
    OT_VI_DATA_SEQ_BUTT
} ot_vi_data_seq;

typedef enum { OT_VI_VSYNC_FIELD = 0, OT_VI_VSYNC_PULSE, OT_VI_VSYNC_BUTT } ot_vi_vsync;
typedef enum { OT_VI_VSYNC_NEG_HIGH = 0, OT_VI_VSYNC_NEG_LOW, OT_VI_VSYNC_NEG_BUTT } ot_vi_vsync_neg;
typedef enum { OT_VI_HSYNC_VALID_SIG = 0, OT_VI_HSYNC_PULSE, OT_VI_HSYNC_BUTT } ot_vi_hsync;
typedef enum { OT_VI_HSYNC_NEG_HIGH = 0, OT_VI_HSYNC_NEG_LOW, OT_VI_HSYNC_NEG_BUTT } ot_vi_hsync_neg;
typedef enum { OT_VI_VSYNC_NORM_PULSE = 0, OT_VI_VSYNC_VALID_SIG, OT_VI_VSYNC_VALID_BUTT } ot_vi_vsync_valid;
typedef enum {
    OT_VI_VSYNC_VALID_NEG_HIGH = 0,
    OT_VI_VSYNC_VALID_NEG_LOW,
    OT_VI_VSYNC_VALID_NEG_BUTT
} ot_vi_vsync_valid_neg;

typedef struct {
    td_u32 hsync_hfb;
    td_u32 hsync_act;
    td_u32 hsync_hbb;
    td_u32 vsync_vfb;
    td_u32 vsync_vact;
    td_u32 vsync_vbb;
    td_u32 vsync_vbfb;
    td_u32 vsync_vbact;
    td_u32 vsync_vbbb;
} ot_vi_timing_blank;

typedef struct {
    ot_vi_vsync vsync;
    ot_vi_vsync_neg vsync_neg;
    ot_vi_hsync hsync;
    ot_vi_hsync_neg hsync_neg;
    ot_vi_vsync_valid vsync_valid;
    ot_vi_vsync_valid_neg vsync_valid_neg;
    ot_vi_timing_blank timing_blank;
} ot_vi_sync_cfg;

typedef enum { OT_VI_DATA_TYPE_RAW = 0, OT_VI_DATA_TYPE_YUV, OT_VI_DATA_TYPE_BUTT } ot_vi_data_type;
typedef enum { OT_DATA_RATE_X1 = 0, OT_DATA_RATE_X2, OT_DATA_RATE_BUTT } ot_data_rate;

typedef struct {
    ot_vi_intf_mode intf_mode;
    ot_vi_work_mode work_mode;
    td_u32 component_mask[OT_VI_COMPONENT_MASK_NUM];
    ot_vi_scan_mode scan_mode;
    td_s32 ad_chn_id[OT_VI_MAX_AD_CHN_NUM];
    ot_vi_data_seq data_seq;
    ot_vi_sync_cfg sync_cfg;
    ot_vi_data_type data_type;
    td_bool data_reverse;
    ot_size in_size;
    ot_data_rate data_rate;
} ot_vi_dev_attr;

typedef enum {
    OT_VI_PIPE_BYPASS_NONE = 0,
    OT_VI_PIPE_BYPASS_FE,
    OT_VI_PIPE_BYPASS_BE,
    OT_VI_PIPE_BYPASS_BUTT
} ot_vi_pipe_bypass_mode;

typedef enum {
    OT_VI_BIT_ALIGN_MODE_HIGH = 0,
    OT_VI_BIT_ALIGN_MODE_LOW,
    OT_VI_BIT_ALIGN_MODE_BUTT
} ot_vi_bit_align_mode;

typedef enum {
    OT_VI_PIPE_FRAME_SOURCE_FE = 0,
    OT_VI_PIPE_FRAME_SOURCE_USER,
    OT_VI_PIPE_FRAME_SOURCE_BUTT
} ot_vi_pipe_frame_source;

typedef struct {
    ot_vi_pipe_bypass_mode pipe_bypass_mode;
    td_bool isp_bypass;
    ot_size size;
    ot_pixel_format pixel_format;
    ot_compress_mode compress_mode;
    ot_data_bit_width bit_width;
    ot_vi_bit_align_mode bit_align_mode;
    ot_frame_rate_ctrl frame_rate_ctrl;
} ot_vi_pipe_attr;

typedef struct {
    ot_size size;
    ot_pixel_format pixel_format;
    ot_dynamic_range dynamic_range;
    ot_video_format video_format;
    ot_compress_mode compress_mode;
    td_bool mirror_en;
    td_bool flip_en;
    td_u32 depth;
    ot_frame_rate_ctrl frame_rate_ctrl;
} ot_vi_chn_attr;

typedef struct {
    td_bool enable;
    td_u32 frame_rate;
    td_u32 lost_frame_cnt;
    td_u32 vb_fail_cnt;
    ot_size size;
} ot_vi_chn_status;

#define OT_ERR_VI_INVALID_DEV_ID OT_DEFINE_ERR(OT_ID_VI, OT_ERR_LEVEL_ERROR, OT_ERR_INVALID_DEV_ID)
#define OT_ERR_VI_INVALID_PIPE_ID OT_DEFINE_ERR(OT_ID_VI, OT_ERR_LEVEL_ERROR, OT_ERR_INVALID_PIPE_ID)
#define OT_ERR_VI_INVALID_CHN_ID OT_DEFINE_ERR(OT_ID_VI, OT_ERR_LEVEL_ERROR, OT_ERR_INVALID_CHN_ID)
#define OT_ERR_VI_ILLEGAL_PARAM OT_DEFINE_ERR(OT_ID_VI, OT_ERR_LEVEL_ERROR, OT_ERR_ILLEGAL_PARAM)
#define OT_ERR_VI_NULL_PTR OT_DEFINE_ERR(OT_ID_VI, OT_ERR_LEVEL_ERROR, OT_ERR_NULL_PTR)
#define OT_ERR_VI_NOT_CFG OT_DEFINE_ERR(OT_ID_VI, OT_ERR_LEVEL_ERROR, OT_ERR_NOT_CFG)
#define OT_ERR_VI_NOT_SUPPORT OT_DEFINE_ERR(OT_ID_VI, OT_ERR_LEVEL_ERROR, OT_ERR_NOT_SUPPORT)
#define OT_ERR_VI_NOT_PERM OT_DEFINE_ERR(OT_ID_VI, OT_ERR_LEVEL_ERROR, OT_ERR_NOT_PERM)
#define OT_ERR_VI_NOT_ENABLE OT_DEFINE_ERR(OT_ID_VI, OT_ERR_LEVEL_ERROR, OT_ERR_NOT_ENABLE)
#define OT_ERR_VI_NOT_DISABLE OT_DEFINE_ERR(OT_ID_VI, OT_ERR_LEVEL_ERROR, OT_ERR_NOT_DISABLE)
#define OT_ERR_VI_NO_MEM OT_DEFINE_ERR(OT_ID_VI, OT_ERR_LEVEL_ERROR, OT_ERR_NO_MEM)
#define OT_ERR_VI_BUF_EMPTY OT_DEFINE_ERR(OT_ID_VI, OT_ERR_LEVEL_ERROR, OT_ERR_BUF_EMPTY)
#define OT_ERR_VI_BUF_FULL OT_DEFINE_ERR(OT_ID_VI, OT_ERR_LEVEL_ERROR, OT_ERR_BUF_FULL)
#define OT_ERR_VI_NOT_READY OT_DEFINE_ERR(OT_ID_VI, OT_ERR_LEVEL_ERROR, OT_ERR_NOT_READY)
#define OT_ERR_VI_TIMEOUT OT_DEFINE_ERR(OT_ID_VI, OT_ERR_LEVEL_ERROR, OT_ERR_TIMEOUT)
#define OT_ERR_VI_BUSY OT_DEFINE_ERR(OT_ID_VI, OT_ERR_LEVEL_ERROR, OT_ERR_BUSY)
#define OT_ERR_VI_NOT_BINDED OT_DEFINE_ERR(OT_ID_VI, OT_ERR_LEVEL_ERROR, OT_ERR_NOT_BINDED)
#define OT_ERR_VI_BINDED OT_DEFINE_ERR(OT_ID_VI, OT_ERR_LEVEL_ERROR, OT_ERR_BINDED)

#ifdef __cplusplus
}
#endif

#endif /* OT_COMMON_VI_H */
