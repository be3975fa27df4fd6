#ifndef OT_COMMON_VIDEO_H
#define OT_COMMON_VIDEO_H

#include "ot_common.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef enum {
    OT_PIXEL_FORMAT_RGB_444 = 0,
    OT_PIXEL_FORMAT_RGB_555 = 1,
    OT_PIXEL_FORMAT_RGB_565 = 2,
    OT_PIXEL_FORMAT_RGB_888 = 3,
    OT_PIXEL_FORMAT_BGR_444 = 4,
    OT_PIXEL_FORMAT_BGR_555 = 5,
    OT_PIXEL_FORMAT_BGR_565 = 6,
    OT_PIXEL_FORMAT_BGR_888 = 7,
    OT_PIXEL_FORMAT_ARGB_1555 = 8,
    OT_PIXEL_FORMAT_ARGB_4444 = 9,
    OT_PIXEL_FORMAT_ARGB_8565 = 10,
    OT_PIXEL_FORMAT_ARGB_8888 = 11,
    OT_PIXEL_FORMAT_ARGB_2BPP = 12,
    OT_PIXEL_FORMAT_ARGB_CLUT2 = 13,
    OT_PIXEL_FORMAT_ARGB_CLUT4 = 14,
    OT_PIXEL_FORMAT_ABGR_1555 = 15,
    OT_PIXEL_FORMAT_ABGR_4444 = 16,
    OT_PIXEL_FORMAT_ABGR_8565 = 17,
    OT_PIXEL_FORMAT_ABGR_8888 = 18,
    OT_PIXEL_FORMAT_RGB_BAYER_8BPP = 19,
    OT_PIXEL_FORMAT_RGB_BAYER_10BPP = 20,
    OT_PIXEL_FORMAT_RGB_BAYER_12BPP = 21,
    OT_PIXEL_FORMAT_RGB_BAYER_14BPP = 22,
    OT_PIXEL_FORMAT_RGB_BAYER_16BPP = 23,
    OT_PIXEL_FORMAT_YVU_PLANAR_422 = 24,
    OT_PIXEL_FORMAT_YVU_PLANAR_420 = 25,
    OT_PIXEL_FORMAT_YVU_PLANAR_444 = 26,
    OT_PIXEL_FORMAT_YVU_SEMIPLANAR_422 = 27,
    OT_PIXEL_FORMAT_YVU_SEMIPLANAR_420 = 28,
    OT_PIXEL_FORMAT_YVU_SEMIPLANAR_444 = 29,
    OT_PIXEL_FORMAT_YUV_SEMIPLANAR_422 = 30,
    OT_PIXEL_FORMAT_YUV_SEMIPLANAR_420 = 31,
    OT_PIXEL_FORMAT_YUV_SEMIPLANAR_444 = 32,
    OT_PIXEL_FORMAT_YUYV_PACKAGE_422 = 33,
    OT_PIXEL_FORMAT_YVYU_PACKAGE_422 = 34,
    OT_PIXEL_FORMAT_UYVY_PACKAGE_422 = 35,
    OT_PIXEL_FORMAT_VYUY_PACKAGE_422 = 36,
    OT_PIXEL_FORMAT_YYUV_PACKAGE_422 = 37,
    OT_PIXEL_FORMAT_YYVU_PACKAGE_422 = 38,
    OT_PIXEL_FORMAT_UVYY_PACKAGE_422 = 39,
    OT_PIXEL_FORMAT_VUYY_PACKAGE_422 = 40,
    OT_PIXEL_FORMAT_VY1UY0_PACKAGE_422 = 41,
    OT_PIXEL_FORMAT_YUV_400 = 42,
    OT_PIXEL_FORMAT_UV_420 = 43,
    OT_PIXEL_FORMAT_BGR_888_PLANAR = 44,
    OT_PIXEL_FORMAT_HSV_888_PACKAGE = 45,
    OT_PIXEL_FORMAT_HSV_888_PLANAR = 46,
    OT_PIXEL_FORMAT_LAB_888_PACKAGE = 47,
    OT_PIXEL_FORMAT_LAB_888_PLANAR = 48,
    OT_PIXEL_FORMAT_S8C1 = 49,
    OT_PIXEL_FORMAT_S8C2_PACKAGE = 50,
    OT_PIXEL_FORMAT_S8C2_PLANAR = 51,
    OT_PIXEL_FORMAT_S8C3_PLANAR = 52,
    OT_PIXEL_FORMAT_S16C1 = 53,
    OT_PIXEL_FORMAT_U8C1 = 54,
    OT_PIXEL_FORMAT_U16C1 = 55,
    OT_PIXEL_FORMAT_S32C1 = 56,
    OT_PIXEL_FORMAT_U32C1 = 57,
    OT_PIXEL_FORMAT_U64C1 = 58,
    OT_PIXEL_FORMAT_S64C1 = 59,
    OT_PIXEL_FORMAT_BUTT = 60,
} ot_pixel_format;

typedef enum {
    OT_VIDEO_FIELD_TOP = 1,
    OT_VIDEO_FIELD_BOTTOM = 2,
    OT_VIDEO_FIELD_INTERLACED = 3,
    OT_VIDEO_FIELD_FRAME = 4,
    OT_VIDEO_FIELD_BUTT
} ot_video_field;

typedef enum {
    OT_VIDEO_FORMAT_LINEAR = 0,
    OT_VIDEO_FORMAT_TILE_64x16,
    OT_VIDEO_FORMAT_TILE_16x8,
    OT_VIDEO_FORMAT_BUTT
} ot_video_format;

typedef enum {
    OT_COMPRESS_MODE_NONE = 0,
    OT_COMPRESS_MODE_SEG,
    OT_COMPRESS_MODE_SEG_COMPACT,
    OT_COMPRESS_MODE_TILE,
    OT_COMPRESS_MODE_LINE,
    OT_COMPRESS_MODE_FRAME,
    OT_COMPRESS_MODE_BUTT
} ot_compress_mode;

typedef enum {
    OT_DYNAMIC_RANGE_SDR8 = 0,
    OT_DYNAMIC_RANGE_SDR10,
    OT_DYNAMIC_RANGE_HDR10,
    OT_DYNAMIC_RANGE_HLG,
    OT_DYNAMIC_RANGE_SLF,
    OT_DYNAMIC_RANGE_XDR,
    OT_DYNAMIC_RANGE_BUTT
} ot_dynamic_range;

typedef enum {
    OT_COLOR_GAMUT_BT601 = 0,
    OT_COLOR_GAMUT_BT709,
    OT_COLOR_GAMUT_BT2020,
    OT_COLOR_GAMUT_USER,
    OT_COLOR_GAMUT_BUTT
} ot_color_gamut;

typedef enum {
    OT_ASPECT_RATIO_NONE = 0,
    OT_ASPECT_RATIO_AUTO,
    OT_ASPECT_RATIO_MANUAL,
    OT_ASPECT_RATIO_BUTT
} ot_aspect_ratio_type;

typedef enum {
    OT_ROTATION_0 = 0,
    OT_ROTATION_90,
    OT_ROTATION_180,
    OT_ROTATION_270,
    OT_ROTATION_BUTT
} ot_rotation;

typedef enum {
    OT_ROTATION_ANG_FIXED = 0,
    OT_ROTATION_ANG_FREE,
    OT_ROTATION_ANG_BUTT
} ot_rotation_type;

typedef enum {
    OT_ROTATION_VIEW_TYPE_ALL = 0,
    OT_ROTATION_VIEW_TYPE_TYPICAL,
    OT_ROTATION_VIEW_TYPE_INSIDE,
    OT_ROTATION_VIEW_TYPE_BUTT
} ot_rotation_view_type;

typedef enum {
    OT_COORD_ABS = 0,
    OT_COORD_RATIO,
    OT_COORD_BUTT
} ot_coord;

typedef enum {
    OT_DATA_BIT_WIDTH_8 = 0,
    OT_DATA_BIT_WIDTH_10,
    OT_DATA_BIT_WIDTH_12,
    OT_DATA_BIT_WIDTH_14,
    OT_DATA_BIT_WIDTH_16,
    OT_DATA_BIT_WIDTH_BUTT
} ot_data_bit_width;

typedef struct {
    td_s32 x;
    td_s32 y;
    td_u32 width;
    td_u32 height;
} ot_rect;

typedef struct {
    td_u32 width;
    td_u32 height;
} ot_size;

typedef struct {
    td_s32 src_frame_rate;
    td_s32 dst_frame_rate;
} ot_frame_rate_ctrl;

typedef struct {
    td_u32 top_width;
    td_u32 bottom_width;
    td_u32 left_width;
    td_u32 right_width;
    td_u32 color;
} ot_border;

typedef struct {
    ot_aspect_ratio_type mode;
    td_u32 bg_color;
    ot_rect video_rect;
} ot_aspect_ratio;

typedef struct {
    td_bool enable;
    ot_rect rect;
} ot_crop_info;

typedef struct {
    ot_rotation_view_type view_type;
    td_u32 angle;
    td_s32 center_x_offset;
    td_s32 center_y_offset;
    ot_size dst_size;
} ot_free_rotation_attr;

typedef struct {
    td_bool enable;
    ot_rotation_type rotation_type;
    union {
        ot_rotation rotation_fixed;
        ot_free_rotation_attr rotation_free;
    };
} ot_rotation_attr;

typedef struct {
    td_phys_addr_t misc_info_phys_addr;
    td_phys_addr_t jpeg_dcf_phys_addr;
    td_phys_addr_t isp_info_phys_addr;
    td_phys_addr_t low_delay_phys_addr;
    td_phys_addr_t bnr_rnt_phys_addr;
    td_phys_addr_t motion_data_phys_addr;
    td_phys_addr_t frame_dng_phys_addr;

    td_void *misc_info_virt_addr ATTRIBUTE;
    td_void *jpeg_dcf_virt_addr ATTRIBUTE;
    td_void *isp_info_virt_addr ATTRIBUTE;
    td_void *low_delay_virt_addr ATTRIBUTE;
    td_void *bnr_mot_virt_addr ATTRIBUTE;
    td_void *motion_data_virt_addr ATTRIBUTE;
    td_void *frame_dng_virt_addr ATTRIBUTE;
} ot_video_supplement;

typedef struct {
    td_u32 width;
    td_u32 height;
    ot_video_field field;
    ot_pixel_format pixel_format;
    ot_video_format video_format;
    ot_compress_mode compress_mode;
    ot_dynamic_range dynamic_range;
    ot_color_gamut color_gamut;

    td_u32 header_stride[OT_MAX_COLOR_COMPONENT];
    td_u32 stride[OT_MAX_COLOR_COMPONENT];
    td_phys_addr_t header_phys_addr[OT_MAX_COLOR_COMPONENT];
    td_phys_addr_t phys_addr[OT_MAX_COLOR_COMPONENT];
    td_void *header_virt_addr[OT_MAX_COLOR_COMPONENT] ATTRIBUTE;
    td_void *virt_addr[OT_MAX_COLOR_COMPONENT] ATTRIBUTE;

    td_u32 time_ref;
    td_u64 pts;
    td_u64 user_data[OT_MAX_USER_DATA_NUM];
    td_u32 frame_flag;
    ot_video_supplement supplement;
} ot_video_frame;

typedef struct {
    ot_video_frame video_frame;
    td_u32 pool_id;
    ot_mod_id mod_id;
} ot_video_frame_info;

#ifdef __cplusplus
}
#endif

#endif /* OT_COMMON_VIDEO_H */
