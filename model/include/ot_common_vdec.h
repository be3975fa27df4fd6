#ifndef OT_COMMON_VDEC_H
#define OT_COMMON_VDEC_H

#include "ot_common.h"
#include "ot_common_vb.h"
#include "ot_common_video.h"

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

typedef enum {
    OT_VDEC_SEND_MODE_STREAM = 0,
    OT_VDEC_SEND_MODE_FRAME,
    OT_VDEC_SEND_MODE_COMPAT,
    OT_VDEC_SEND_MODE_BUTT
} ot_vdec_send_mode;

typedef struct {
    td_u32 ref_frame_num;
    td_bool temporal_mvp_en;
    td_u32 tmv_buf_size;
} ot_vdec_video_attr;

typedef struct {
    ot_payload_type type;
    ot_vdec_send_mode mode;
    td_u32 pic_width;
    td_u32 pic_height;
    td_u32 stream_buf_size;
    td_u32 frame_buf_size;
    td_u32 frame_buf_cnt;
    union {
        ot_vdec_video_attr video_attr;
    };
} ot_vdec_chn_attr;

typedef struct {
    td_s32 set_pic_size_err;
    td_s32 set_protocol_num_err;
    td_s32 set_ref_num_err;
    td_s32 set_pic_buf_size_err;
    td_s32 format_err;
    td_s32 stream_unsupport;
    td_s32 pack_err;
    td_s32 stream_size_over;
    td_s32 stream_not_release;
} ot_vdec_dec_err;

typedef struct {
    ot_payload_type type;
    td_u32 left_stream_bytes;
    td_u32 left_stream_frames;
    td_u32 left_decoded_frames;
    td_bool is_started;
    td_u32 recv_stream_frames;
    td_u32 dec_stream_frames;
    ot_vdec_dec_err dec_err;
    td_u32 width;
    td_u32 height;
    td_u64 latest_frame_pts;
} ot_vdec_chn_status;

typedef enum {
    OT_VIDEO_DEC_MODE_IPB = 0,
    OT_VIDEO_DEC_MODE_IP,
    OT_VIDEO_DEC_MODE_I,
    OT_VIDEO_DEC_MODE_BUTT
} ot_video_dec_mode;

typedef enum {
    OT_VIDEO_OUT_ORDER_DISPLAY = 0,
    OT_VIDEO_OUT_ORDER_DEC,
    OT_VIDEO_OUT_ORDER_BUTT
} ot_video_out_order;

typedef enum {
    OT_QUICK_MARK_ADAPT = 0,
    OT_QUICK_MARK_FORCE,
    OT_QUICK_MARK_NONE,
    OT_QUICK_MARK_BUTT
} ot_quick_mark_mode;

typedef struct {
    td_bool composite_dec_en;
    td_bool slice_input_en;
    td_s32 err_threshold;
    ot_video_dec_mode dec_mode;
    ot_video_out_order out_order;
    ot_compress_mode compress_mode;
    ot_video_format video_format;
    ot_quick_mark_mode quick_mark_mode;
} ot_vdec_video_param;

typedef struct {
    ot_pixel_format pixel_format;
    td_u32 alpha;
} ot_vdec_pic_param;

typedef struct {
    ot_payload_type type;
    td_u32 display_frame_num;
    union {
        ot_vdec_video_param video_param;
        ot_vdec_pic_param pic_param;
    };
} ot_vdec_chn_param;

typedef enum {
    OT_VIDEO_FRAME_TYPE_I = 0,
    OT_VIDEO_FRAME_TYPE_P,
    OT_VIDEO_FRAME_TYPE_B,
    OT_VIDEO_FRAME_TYPE_BUTT
} ot_video_frame_type;

typedef struct {
    ot_payload_type type;
    union {
        ot_video_frame_type frame_type;
        td_u32 err_rate;
        td_u32 poc;
    };
} ot_vdec_supplement_info;

typedef struct {
    ot_vb_pool pic_vb_pool;
    ot_vb_pool tmv_vb_pool;
} ot_vdec_chn_pool;

#define OT_ERR_VDEC_INVALID_CHN_ID OT_DEFINE_ERR(OT_ID_VDEC, OT_ERR_LEVEL_ERROR, OT_ERR_INVALID_CHN_ID)
#define OT_ERR_VDEC_ILLEGAL_PARAM OT_DEFINE_ERR(OT_ID_VDEC, OT_ERR_LEVEL_ERROR, OT_ERR_ILLEGAL_PARAM)
#define OT_ERR_VDEC_EXIST OT_DEFINE_ERR(OT_ID_VDEC, OT_ERR_LEVEL_ERROR, OT_ERR_EXIST)
#define OT_ERR_VDEC_UNEXIST OT_DEFINE_ERR(OT_ID_VDEC, OT_ERR_LEVEL_ERROR, OT_ERR_UNEXIST)
#define OT_ERR_VDEC_NULL_PTR OT_DEFINE_ERR(OT_ID_VDEC, OT_ERR_LEVEL_ERROR, OT_ERR_NULL_PTR)
#define OT_ERR_VDEC_NOT_CFG OT_DEFINE_ERR(OT_ID_VDEC, OT_ERR_LEVEL_ERROR, OT_ERR_NOT_CFG)
#define OT_ERR_VDEC_NOT_SUPPORT OT_DEFINE_ERR(OT_ID_VDEC, OT_ERR_LEVEL_ERROR, OT_ERR_NOT_SUPPORT)
#define OT_ERR_VDEC_NOT_PERM OT_DEFINE_ERR(OT_ID_VDEC, OT_ERR_LEVEL_ERROR, OT_ERR_NOT_PERM)
#define OT_ERR_VDEC_NO_MEM OT_DEFINE_ERR(OT_ID_VDEC, OT_ERR_LEVEL_ERROR, OT_ERR_NO_MEM)
#define OT_ERR_VDEC_NO_BUF OT_DEFINE_ERR(OT_ID_VDEC, OT_ERR_LEVEL_ERROR, OT_ERR_NO_BUF)
#define OT_ERR_VDEC_BUF_EMPTY OT_DEFINE_ERR(OT_ID_VDEC, OT_ERR_LEVEL_ERROR, OT_ERR_BUF_EMPTY)
#define OT_ERR_VDEC_BUF_FULL OT_DEFINE_ERR(OT_ID_VDEC, OT_ERR_LEVEL_ERROR, OT_ERR_BUF_FULL)
#define OT_ERR_VDEC_BAD_ADDR OT_DEFINE_ERR(OT_ID_VDEC, OT_ERR_LEVEL_ERROR, OT_ERR_BAD_ADDR)
#define OT_ERR_VDEC_BUSY OT_DEFINE_ERR(OT_ID_VDEC, OT_ERR_LEVEL_ERROR, OT_ERR_BUSY)
#define OT_ERR_VDEC_SYS_NOT_READY OT_DEFINE_ERR(OT_ID_VDEC, OT_ERR_LEVEL_ERROR, OT_ERR_NOT_READY)

#ifdef __cplusplus
}
#endif

#endif /* OT_COMMON_VDEC_H */
