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

/* Pack types: the NAL unit type of an H.264 or H.265 pack, the part of a
 * JPEG picture. */
typedef enum {
    OT_VENC_H264_NALU_B_SLICE = 0,
    OT_VENC_H264_NALU_P_SLICE = 1,
    OT_VENC_H264_NALU_I_SLICE = 2,
    OT_VENC_H264_NALU_IDR_SLICE = 5,
    OT_VENC_H264_NALU_SEI = 6,
    OT_VENC_H264_NALU_SPS = 7,
    OT_VENC_H264_NALU_PPS = 8,
    OT_VENC_H264_NALU_BUTT
} ot_venc_h264_nalu_type;

typedef enum {
    OT_VENC_H265_NALU_B_SLICE = 0,
    OT_VENC_H265_NALU_P_SLICE = 1,
    OT_VENC_H265_NALU_I_SLICE = 2,
    OT_VENC_H265_NALU_IDR_SLICE = 19,
    OT_VENC_H265_NALU_VPS = 32,
    OT_VENC_H265_NALU_SPS = 33,
    OT_VENC_H265_NALU_PPS = 34,
    OT_VENC_H265_NALU_SEI = 39,
    OT_VENC_H265_NALU_ENHANCE = 64,
    OT_VENC_H265_NALU_BUTT
} ot_venc_h265_nalu_type;

typedef enum {
    OT_VENC_JPEG_PACK_ECS = 5,
    OT_VENC_JPEG_PACK_APP = 6,
    OT_VENC_JPEG_PACK_VDO = 7,
    OT_VENC_JPEG_PACK_PIC = 8,
    OT_VENC_JPEG_PACK_DCF = 9,
    OT_VENC_JPEG_PACK_DCF_PIC = 10,
    OT_VENC_JPEG_PACK_BUTT
} ot_venc_jpege_pack_type;

typedef enum {
    OT_VENC_PRORES_PACK_PIC = 1,
    OT_VENC_PRORES_PACK_BUTT
} ot_venc_prores_pack_type;

typedef union {
    ot_venc_h264_nalu_type h264_type;
    ot_venc_jpege_pack_type jpeg_type;
    ot_venc_h265_nalu_type h265_type;
    ot_venc_prores_pack_type prores_type;
} ot_venc_data_type;

typedef struct {
    ot_venc_data_type pack_type;
    td_u32 pack_offset;
    td_u32 pack_len;
} ot_venc_pack_info;

/* One pack of a stream: Annex B bytes from addr + offset to addr + len. */
typedef struct {
    td_phys_addr_t phys_addr;
    td_u8 ATTRIBUTE *addr;
    td_u32 ATTRIBUTE len;
    td_u64 pts;
    td_bool is_frame_end;
    ot_venc_data_type data_type;
    td_u32 offset;
    td_u32 data_num;
    ot_venc_pack_info pack_info[8];
} ot_venc_pack;

typedef enum {
    OT_VENC_BASE_IDR_SLICE = 0,
    OT_VENC_BASE_P_SLICE_REF_TO_IDR,
    OT_VENC_BASE_P_SLICE_REF_BY_BASE,
    OT_VENC_BASE_P_SLICE_REF_BY_ENHANCE,
    OT_VENC_ENHANCE_P_SLICE_REF_BY_ENHANCE,
    OT_VENC_ENHANCE_P_SLICE_NOT_FOR_REF,
    OT_VENC_REF_TYPE_BUTT
} ot_venc_ref_type;

typedef struct {
    td_u32 pic_bytes;
    td_u32 inter16x16_mb_num;
    td_u32 inter8x8_mb_num;
    td_u32 intra16_mb_num;
    td_u32 intra8_mb_num;
    td_u32 intra4_mb_num;
    ot_venc_ref_type ref_type;
    td_u32 update_attr_cnt;
    td_u32 start_qp;
    td_u32 mean_qp;
    td_bool is_p_skip;
} ot_venc_h264_stream_info;

typedef struct {
    td_u32 pic_bytes;
    td_u32 inter64x64_cu_num;
    td_u32 inter32x32_cu_num;
    td_u32 inter16x16_cu_num;
    td_u32 inter8x8_cu_num;
    td_u32 intra32x32_cu_num;
    td_u32 intra16x16_cu_num;
    td_u32 intra8x8_cu_num;
    td_u32 intra4x4_cu_num;
    ot_venc_ref_type ref_type;
    td_u32 update_attr_cnt;
    td_u32 start_qp;
    td_u32 mean_qp;
    td_bool is_p_skip;
} ot_venc_h265_stream_info;

typedef struct {
    td_u32 pic_bytes;
    td_u32 update_attr_cnt;
    td_u32 qfactor;
} ot_venc_jpeg_stream_info;

typedef struct {
    td_u32 pic_bytes;
    td_u32 update_attr_cnt;
} ot_venc_prores_stream_info;

/* Per-picture encoder statistics. The model fills none of them; the leading
 * fields are named, the rest of the board's record is kept as reserved
 * space so that the record has the board's size. */
typedef struct {
    td_u32 residual_bits;
    td_u32 head_bits;
    td_u32 madi_val;
    td_u32 madp_val;
    td_double psnr_val;
    td_u32 reserved[92];
} ot_venc_h264_adv_stream_info;

typedef ot_venc_h264_adv_stream_info ot_venc_h265_adv_stream_info;

/* One encoded picture: the caller provides pack[] with room for pack_cnt packs. */
typedef struct {
    ot_venc_pack ATTRIBUTE *pack;
    td_u32 ATTRIBUTE pack_cnt;
    td_u32 seq;
    union {
        ot_venc_h264_stream_info h264_info;
        ot_venc_jpeg_stream_info jpeg_info;
        ot_venc_h265_stream_info h265_info;
        ot_venc_prores_stream_info prores_info;
    };
    union {
        ot_venc_h264_adv_stream_info h264_adv_info;
        ot_venc_h265_adv_stream_info h265_adv_info;
    };
} ot_venc_stream;

typedef struct {
    ot_venc_ref_type ref_type;
    td_u32 pic_bytes;
    td_u32 pic_cnt;
    td_u32 start_qp;
    td_u32 mean_qp;
    td_bool is_p_skip;
    td_u32 residual_bits;
    td_u32 head_bits;
    td_u32 madi_val;
    td_u32 madp_val;
    td_u64 sse_sum;
    td_u32 sse_lcu_cnt;
    td_double psnr_val;
} ot_venc_stream_info;

typedef struct {
    td_u32 left_pics;
    td_u32 left_stream_bytes;
    td_u32 left_stream_frames;
    td_u32 cur_packs;
    td_u32 left_recv_pics;
    td_u32 left_enc_pics;
    td_bool is_jpeg_snap_end;
    td_u64 release_pic_pts;
    td_s64 cvbr_bytes_saving;
    ot_venc_stream_info stream_info;
    td_u32 discard_pics;
    td_u32 stream_buf_full_cnt;
} ot_venc_chn_status;

typedef struct {
    td_bool rcn_ref_share_buf_en;
    td_u32 frame_buf_ratio;
} ot_venc_h264_attr;

typedef struct {
    td_bool rcn_ref_share_buf_en;
    td_u32 frame_buf_ratio;
} ot_venc_h265_attr;

typedef struct {
    td_u8 large_thumbnail_num;
    ot_size large_thumbnail_size[2];
} ot_venc_mpf_cfg;

typedef enum {
    OT_VENC_PIC_RECV_SINGLE = 0,
    OT_VENC_PIC_RECV_MULTI,
    OT_VENC_PIC_RECV_BUTT
} ot_venc_pic_recv_mode;

typedef struct {
    td_bool dcf_en;
    ot_venc_mpf_cfg mpf_cfg;
    ot_venc_pic_recv_mode recv_mode;
} ot_venc_jpeg_attr;

/* profile: H.264 0 baseline, 1 main, 2 high; H.265 0 main. buf_size: bytes
 * of the channel's stream buffer. */
typedef struct {
    ot_payload_type type;
    td_u32 max_pic_width;
    td_u32 max_pic_height;
    td_u32 buf_size;
    td_u32 profile;
    td_bool is_by_frame;
    td_u32 pic_width;
    td_u32 pic_height;
    union {
        ot_venc_h264_attr h264_attr;
        ot_venc_h265_attr h265_attr;
        ot_venc_jpeg_attr jpeg_attr;
    };
} ot_venc_attr;

typedef enum {
    OT_VENC_GOP_MODE_NORMAL_P = 0,
    OT_VENC_GOP_MODE_DUAL_P,
    OT_VENC_GOP_MODE_SMART_P,
    OT_VENC_GOP_MODE_ADV_SMART_P,
    OT_VENC_GOP_MODE_BIPRED_B,
    OT_VENC_GOP_MODE_LOW_DELAY_B,
    OT_VENC_GOP_MODE_SINGLE_SP,
    OT_VENC_GOP_MODE_BUTT
} ot_venc_gop_mode;

typedef struct {
    td_s32 ip_qp_delta;
} ot_venc_gop_normal_p;

typedef struct {
    td_u32 sp_interval;
    td_s32 sp_qp_delta;
    td_s32 ip_qp_delta;
} ot_venc_gop_dual_p;

typedef struct {
    td_u32 bg_interval;
    td_s32 bg_qp_delta;
    td_s32 vi_qp_delta;
} ot_venc_gop_smart_p;

typedef struct {
    td_u32 bg_interval;
    td_s32 bg_qp_delta;
    td_s32 vi_qp_delta;
} ot_venc_gop_adv_smart_p;

typedef struct {
    td_u32 b_frame_num;
    td_s32 b_qp_delta;
    td_s32 ip_qp_delta;
} ot_venc_gop_bipred_b;

typedef struct {
    ot_venc_gop_mode gop_mode;
    union {
        ot_venc_gop_normal_p normal_p;
        ot_venc_gop_dual_p dual_p;
        ot_venc_gop_smart_p smart_p;
        ot_venc_gop_adv_smart_p adv_smart_p;
        ot_venc_gop_bipred_b bipred_b;
    };
} ot_venc_gop_attr;

typedef struct {
    ot_venc_attr venc_attr;
    ot_venc_rc_attr rc_attr;
    ot_venc_gop_attr gop_attr;
} ot_venc_chn_attr;

#define OT_ERR_VENC_INVALID_CHN_ID OT_DEFINE_ERR(OT_ID_VENC, OT_ERR_LEVEL_ERROR, OT_ERR_INVALID_CHN_ID)
#define OT_ERR_VENC_ILLEGAL_PARAM OT_DEFINE_ERR(OT_ID_VENC, OT_ERR_LEVEL_ERROR, OT_ERR_ILLEGAL_PARAM)
#define OT_ERR_VENC_NULL_PTR OT_DEFINE_ERR(OT_ID_VENC, OT_ERR_LEVEL_ERROR, OT_ERR_NULL_PTR)
#define OT_ERR_VENC_NOT_PERM OT_DEFINE_ERR(OT_ID_VENC, OT_ERR_LEVEL_ERROR, OT_ERR_NOT_PERM)
#define OT_ERR_VENC_EXIST OT_DEFINE_ERR(OT_ID_VENC, OT_ERR_LEVEL_ERROR, OT_ERR_EXIST)
#define OT_ERR_VENC_UNEXIST OT_DEFINE_ERR(OT_ID_VENC, OT_ERR_LEVEL_ERROR, OT_ERR_UNEXIST)
#define OT_ERR_VENC_NOT_CFG OT_DEFINE_ERR(OT_ID_VENC, OT_ERR_LEVEL_ERROR, OT_ERR_NOT_CFG)
#define OT_ERR_VENC_NOT_SUPPORT OT_DEFINE_ERR(OT_ID_VENC, OT_ERR_LEVEL_ERROR, OT_ERR_NOT_SUPPORT)
#define OT_ERR_VENC_NO_MEM OT_DEFINE_ERR(OT_ID_VENC, OT_ERR_LEVEL_ERROR, OT_ERR_NO_MEM)
#define OT_ERR_VENC_NO_BUF OT_DEFINE_ERR(OT_ID_VENC, OT_ERR_LEVEL_ERROR, OT_ERR_NO_BUF)
#define OT_ERR_VENC_BUF_EMPTY OT_DEFINE_ERR(OT_ID_VENC, OT_ERR_LEVEL_ERROR, OT_ERR_BUF_EMPTY)
#define OT_ERR_VENC_BUF_FULL OT_DEFINE_ERR(OT_ID_VENC, OT_ERR_LEVEL_ERROR, OT_ERR_BUF_FULL)
#define OT_ERR_VENC_BUSY OT_DEFINE_ERR(OT_ID_VENC, OT_ERR_LEVEL_ERROR, OT_ERR_BUSY)
#define OT_ERR_VENC_SIZE_NOT_ENOUGH OT_DEFINE_ERR(OT_ID_VENC, OT_ERR_LEVEL_ERROR, OT_ERR_SIZE_NOT_ENOUGH)
#define OT_ERR_VENC_SYS_NOT_READY OT_DEFINE_ERR(OT_ID_VENC, OT_ERR_LEVEL_ERROR, OT_ERR_NOT_READY)

#ifdef __cplusplus
}
#endif

#endif /* OT_COMMON_VENC_H */
