#ifndef OT_COMMON_VENC_H
#define OT_COMMON_VENC_H

#include "ot_common.h"
#include "ot_common_video.h"
#include "ot_common_vb.h"
#include "ot_common_rc.h"

#ifdef __cplusplus
extern "C" {
#endif

#define OT_VENC_MAX_CHN_NUM 64

typedef enum {
    OT_VENC_MOD_VENC = 1,
    OT_VENC_MOD_H264,
    OT_VENC_MOD_H265,
    OT_VENC_MOD_JPEG,
    OT_VENC_MOD_RC,
    OT_VENC_MOD_BUTT
} ot_venc_mod_type;

typedef struct {
    td_u32 buf_cache;
    td_u32 frame_buf_recycle;
} ot_venc_venc_mod_param;

typedef struct {
    td_u32 one_stream_buf;
    td_u32 mini_buf_mode;
    td_u32 low_power_mode;
    ot_vb_src vb_src;
    td_bool qp_hist_en;
    td_u32 max_user_data_len;
} ot_venc_h264_mod_param;

typedef struct {
    td_u32 one_stream_buf;
    td_u32 mini_buf_mode;
    td_u32 low_power_mode;
    ot_vb_src vb_src;
    td_bool qp_hist_en;
    td_u32 max_user_data_len;
} ot_venc_h265_mod_param;

typedef struct {
    td_u32 one_stream_buf;
    td_u32 mini_buf_mode;
    td_u32 clear_stream_buf;
    td_u32 dering_mode;
} ot_venc_jpeg_mod_param;

typedef struct {
    ot_venc_mod_type mod_type;
    union {
        ot_venc_venc_mod_param venc_mod_param;
        ot_venc_h264_mod_param h264_mod_param;
        ot_venc_h265_mod_param h265_mod_param;
        ot_venc_jpeg_mod_param jpeg_mod_param;
    };
} ot_venc_mod_param;

typedef struct {
    td_u8 aspect_ratio_info_present_flag;
    td_u8 aspect_ratio_idc;
    td_u8 overscan_info_present_flag;
    td_u8 overscan_appropriate_flag;
    td_u16 sar_width;
    td_u16 sar_height;
} ot_venc_vui_aspect_ratio;

typedef struct {
    td_u8 timing_info_present_flag;
    td_u8 fixed_frame_rate_flag;
    td_u32 num_units_in_tick;
    td_u32 time_scale;
} ot_venc_h264_vui_time_info;

typedef struct {
    td_u32 timing_info_present_flag;
    td_u32 num_units_in_tick;
    td_u32 time_scale;
    td_u32 num_ticks_poc_diff_one_minus1;
} ot_venc_h265_vui_time_info;

typedef struct {
    td_u8 video_signal_type_present_flag;
    td_u8 video_format;
    td_u8 video_full_range_flag;
    td_u8 colour_description_present_flag;
    td_u8 colour_primaries;
    td_u8 transfer_characteristics;
    td_u8 matrix_coefficients;
} ot_venc_vui_video_signal;

typedef struct {
    td_u8 bitstream_restriction_flag;
} ot_venc_vui_bitstream_restric;

typedef struct {
    ot_venc_vui_aspect_ratio vui_aspect_ratio;
    ot_venc_h264_vui_time_info vui_time_info;
    ot_venc_vui_video_signal vui_video_signal;
    ot_venc_vui_bitstream_restric vui_bitstream_restric;
} ot_venc_h264_vui;

typedef struct {
    ot_venc_vui_aspect_ratio vui_aspect_ratio;
    ot_venc_h265_vui_time_info vui_time_info;
    ot_venc_vui_video_signal vui_video_signal;
    ot_venc_vui_bitstream_restric vui_bitstream_restric;
} ot_venc_h265_vui;

typedef struct {
    td_s32 recv_pic_num;
} ot_venc_start_param;

typedef struct {
    td_bool color_to_grey_en;
    td_u32 priority;
    td_u32 max_stream_cnt;
    td_u32 poll_wake_up_frame_cnt;
    ot_crop_info crop_info;
    ot_frame_rate_ctrl frame_rate;
} ot_venc_chn_param;

#define OT_ERR_VENC_INVALID_CHN_ID OT_DEFINE_ERR(OT_ID_VENC, OT_ERR_LEVEL_ERROR, OT_ERR_INVALID_CHN_ID)
#define OT_ERR_VENC_ILLEGAL_PARAM OT_DEFINE_ERR(OT_ID_VENC, OT_ERR_LEVEL_ERROR, OT_ERR_ILLEGAL_PARAM)
#define OT_ERR_VENC_NULL_PTR OT_DEFINE_ERR(OT_ID_VENC, OT_ERR_LEVEL_ERROR, OT_ERR_NULL_PTR)
#define OT_ERR_VENC_NOT_PERM OT_DEFINE_ERR(OT_ID_VENC, OT_ERR_LEVEL_ERROR, OT_ERR_NOT_PERM)

#ifdef __cplusplus
}
#endif

#endif /* OT_COMMON_VENC_H */
