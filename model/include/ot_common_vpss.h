#ifndef OT_COMMON_VPSS_H
#define OT_COMMON_VPSS_H

#include "ot_common.h"
#include "ot_common_video.h"

#ifdef __cplusplus
extern "C" {
#endif

#define OT_VPSS_MAX_GRP_NUM 256
#define OT_VPSS_MAX_PHYS_CHN_NUM 4
#define OT_VPSS_MAX_CHN_NUM OT_VPSS_MAX_PHYS_CHN_NUM
#define OT_VPSS_CHN0 0
#define OT_VPSS_CHN1 1
#define OT_VPSS_CHN2 2
#define OT_VPSS_CHN3 3
#define OT_VPSS_INVALID_CHN (-1)

typedef enum {
    OT_VPSS_CHN_MODE_AUTO = 0,
    OT_VPSS_CHN_MODE_USER = 1,
    OT_VPSS_CHN_MODE_BUTT
} ot_vpss_chn_mode;

typedef enum {
    OT_VPSS_DEI_MODE_OFF = 0,
    OT_VPSS_DEI_MODE_ON,
    OT_VPSS_DEI_MODE_AUTO,
    OT_VPSS_DEI_MODE_BUTT
} ot_vpss_dei_mode;

typedef enum {
    OT_VPSS_NR_TYPE_VIDEO_NORM = 0,
    OT_VPSS_NR_TYPE_SNAP_NORM,
    OT_VPSS_NR_TYPE_VIDEO_SPATIAL,
    OT_VPSS_NR_TYPE_VIDEO_ENHANCE,
    OT_VPSS_NR_TYPE_BUTT
} ot_vpss_nr_type;

typedef enum {
    OT_VPSS_NR_MOTION_MODE_NORM = 0,
    OT_VPSS_NR_MOTION_MODE_COMPENSATION,
    OT_VPSS_NR_MOTION_MODE_BUTT
} ot_vpss_nr_motion_mode;

typedef struct {
    ot_vpss_nr_type nr_type;
    ot_compress_mode compress_mode;
    ot_vpss_nr_motion_mode nr_motion_mode;
} ot_vpss_nr_attr;

typedef struct {
    td_bool nr_en;
    td_bool ie_en;
    td_bool dci_en;
    td_bool buf_share_en;
    td_bool mcf_en;
    td_u32 max_width;
    td_u32 max_height;
    td_u32 max_dei_width;
    td_u32 max_dei_height;
    ot_dynamic_range dynamic_range;
    ot_pixel_format pixel_format;
    ot_vpss_dei_mode dei_mode;
    ot_vpss_chn buf_share_chn;
    ot_vpss_nr_attr nr_attr;
    ot_frame_rate_ctrl frame_rate;
} ot_vpss_grp_attr;

typedef struct {
    td_bool mirror_en;
    td_bool flip_en;
    td_bool border_en;
    td_u32 width;
    td_u32 height;
    td_u32 depth;
    ot_vpss_chn_mode chn_mode;
    ot_video_format video_format;
    ot_dynamic_range dynamic_range;
    ot_pixel_format pixel_format;
    ot_compress_mode compress_mode;
    ot_frame_rate_ctrl frame_rate;
    ot_border border_attr;
    ot_aspect_ratio aspect_ratio;
} ot_vpss_chn_attr;

typedef struct {
    td_bool enable;
    ot_coord crop_mode;
    ot_rect crop_rect;
} ot_vpss_crop_info;

/* Noise-reduction tuning block: opaque to everything in this project. */
typedef struct {
    td_u32 data[133];
} ot_vpss_grp_nrx_param;

typedef struct {
    td_u32 contrast;
    td_u32 ie_strength;
    ot_vpss_grp_nrx_param nrx_param;
} ot_vpss_grp_param;

#define OT_ERR_VPSS_INVALID_DEV_ID OT_DEFINE_ERR(OT_ID_VPSS, OT_ERR_LEVEL_ERROR, OT_ERR_INVALID_DEV_ID)
#define OT_ERR_VPSS_INVALID_CHN_ID OT_DEFINE_ERR(OT_ID_VPSS, OT_ERR_LEVEL_ERROR, OT_ERR_INVALID_CHN_ID)
#define OT_ERR_VPSS_ILLEGAL_PARAM OT_DEFINE_ERR(OT_ID_VPSS, OT_ERR_LEVEL_ERROR, OT_ERR_ILLEGAL_PARAM)
#define OT_ERR_VPSS_EXIST OT_DEFINE_ERR(OT_ID_VPSS, OT_ERR_LEVEL_ERROR, OT_ERR_EXIST)
#define OT_ERR_VPSS_UNEXIST OT_DEFINE_ERR(OT_ID_VPSS, OT_ERR_LEVEL_ERROR, OT_ERR_UNEXIST)
#define OT_ERR_VPSS_NULL_PTR OT_DEFINE_ERR(OT_ID_VPSS, OT_ERR_LEVEL_ERROR, OT_ERR_NULL_PTR)
#define OT_ERR_VPSS_NOT_SUPPORT OT_DEFINE_ERR(OT_ID_VPSS, OT_ERR_LEVEL_ERROR, OT_ERR_NOT_SUPPORT)
#define OT_ERR_VPSS_NOT_PERM OT_DEFINE_ERR(OT_ID_VPSS, OT_ERR_LEVEL_ERROR, OT_ERR_NOT_PERM)
#define OT_ERR_VPSS_NOT_READY OT_DEFINE_ERR(OT_ID_VPSS, OT_ERR_LEVEL_ERROR, OT_ERR_NOT_READY)
#define OT_ERR_VPSS_NO_MEM OT_DEFINE_ERR(OT_ID_VPSS, OT_ERR_LEVEL_ERROR, OT_ERR_NO_MEM)
#define OT_ERR_VPSS_BUSY OT_DEFINE_ERR(OT_ID_VPSS, OT_ERR_LEVEL_ERROR, OT_ERR_BUSY)
#define OT_ERR_VPSS_NO_BUF OT_DEFINE_ERR(OT_ID_VPSS, OT_ERR_LEVEL_ERROR, OT_ERR_NO_BUF)
#define OT_ERR_VPSS_BUF_EMPTY OT_DEFINE_ERR(OT_ID_VPSS, OT_ERR_LEVEL_ERROR, OT_ERR_BUF_EMPTY)
#define OT_ERR_VPSS_SIZE_NOT_ENOUGH OT_DEFINE_ERR(OT_ID_VPSS, OT_ERR_LEVEL_ERROR, OT_ERR_SIZE_NOT_ENOUGH)

#ifdef __cplusplus
}
#endif

#endif /* OT_COMMON_VPSS_H */
