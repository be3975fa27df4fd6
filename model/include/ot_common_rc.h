#ifndef OT_COMMON_RC_H
#define OT_COMMON_RC_H

#include "ot_common.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef enum {
    OT_VENC_RC_QPMAP_MODE_MEAN_QP = 0,
    OT_VENC_RC_QPMAP_MODE_MIN_QP,
    OT_VENC_RC_QPMAP_MODE_MAX_QP,
    OT_VENC_RC_QPMAP_MODE_BUTT
} ot_venc_rc_qpmap_mode;

typedef struct {
    td_u32 max_i_proportion;
    td_u32 min_i_proportion;
    td_u32 max_qp;
    td_u32 min_qp;
    td_u32 max_i_qp;
    td_u32 min_i_qp;
    td_s32 max_reencode_times;
    td_bool qpmap_en;
} ot_venc_h264_cbr_param;

typedef struct {
    td_s32 chg_pos;
    td_u32 max_i_proportion;
    td_u32 min_i_proportion;
    td_s32 max_reencode_times;
    td_bool qpmap_en;
    td_u32 max_qp;
    td_u32 min_qp;
    td_u32 max_i_qp;
    td_u32 min_i_qp;
} ot_venc_h264_vbr_param;

typedef struct {
    td_s32 chg_pos;
    td_u32 max_i_proportion;
    td_u32 min_i_proportion;
    td_s32 max_reencode_times;
    td_bool qpmap_en;
    td_s32 min_still_percent;
    td_u32 max_still_qp;
    td_u32 min_still_psnr;
    td_u32 max_qp;
    td_u32 min_qp;
    td_u32 max_i_qp;
    td_u32 min_i_qp;
    td_u32 min_qp_delta;
    td_u32 motion_sensitivity;
    td_bool save_bitrate_en;
} ot_venc_h264_avbr_param;

typedef struct {
    td_u32 max_i_proportion;
    td_u32 min_i_proportion;
    td_u32 max_qp;
    td_u32 min_qp;
    td_u32 max_i_qp;
    td_u32 min_i_qp;
    td_s32 max_reencode_times;
    td_bool qpmap_en;
    ot_venc_rc_qpmap_mode qpmap_mode;
} ot_venc_h265_cbr_param;

typedef struct {
    td_s32 chg_pos;
    td_u32 max_i_proportion;
    td_u32 min_i_proportion;
    td_s32 max_reencode_times;
    td_u32 max_qp;
    td_u32 min_qp;
    td_u32 max_i_qp;
    td_u32 min_i_qp;
    td_bool qpmap_en;
    ot_venc_rc_qpmap_mode qpmap_mode;
} ot_venc_h265_vbr_param;

typedef struct {
    td_s32 chg_pos;
    td_u32 max_i_proportion;
    td_u32 min_i_proportion;
    td_s32 max_reencode_times;
    td_s32 min_still_percent;
    td_u32 max_still_qp;
    td_u32 min_still_psnr;
    td_u32 max_qp;
    td_u32 min_qp;
    td_u32 max_i_qp;
    td_u32 min_i_qp;
    td_u32 min_qp_delta;
    td_u32 motion_sensitivity;
    td_bool qpmap_en;
    ot_venc_rc_qpmap_mode qpmap_mode;
} ot_venc_h265_avbr_param;

typedef enum {
    OT_VENC_RC_MODE_H264_CBR = 1,
    OT_VENC_RC_MODE_H264_VBR,
    OT_VENC_RC_MODE_H264_AVBR,
    OT_VENC_RC_MODE_H264_QVBR,
    OT_VENC_RC_MODE_H264_CVBR,
    OT_VENC_RC_MODE_H264_FIXQP,
    OT_VENC_RC_MODE_H264_QPMAP,
    OT_VENC_RC_MODE_MJPEG_CBR,
    OT_VENC_RC_MODE_MJPEG_VBR,
    OT_VENC_RC_MODE_MJPEG_FIXQP,
    OT_VENC_RC_MODE_H265_CBR,
    OT_VENC_RC_MODE_H265_VBR,
    OT_VENC_RC_MODE_H265_AVBR,
    OT_VENC_RC_MODE_H265_QVBR,
    OT_VENC_RC_MODE_H265_CVBR,
    OT_VENC_RC_MODE_H265_FIXQP,
    OT_VENC_RC_MODE_H265_QPMAP,
    OT_VENC_RC_MODE_BUTT
} ot_venc_rc_mode;

/* Bit rates in kbit/s; stats_time in seconds. */
typedef struct {
    td_u32 gop;
    td_u32 stats_time;
    td_u32 src_frame_rate;
    td_u32 dst_frame_rate;
    td_u32 bit_rate;
} ot_venc_h264_cbr;

typedef struct {
    td_u32 gop;
    td_u32 stats_time;
    td_u32 src_frame_rate;
    td_u32 dst_frame_rate;
    td_u32 max_bit_rate;
} ot_venc_h264_vbr;

typedef ot_venc_h264_vbr ot_venc_h264_avbr;

typedef struct {
    td_u32 gop;
    td_u32 stats_time;
    td_u32 src_frame_rate;
    td_u32 dst_frame_rate;
    td_u32 target_bit_rate;
} ot_venc_h264_qvbr;

typedef struct {
    td_u32 gop;
    td_u32 stats_time;
    td_u32 src_frame_rate;
    td_u32 dst_frame_rate;
    td_u32 max_bit_rate;
    td_u32 short_term_stats_time;
    td_u32 long_term_stats_time;
    td_u32 long_term_max_bit_rate;
    td_u32 long_term_min_bit_rate;
} ot_venc_h264_cvbr;

typedef struct {
    td_u32 gop;
    td_u32 src_frame_rate;
    td_u32 dst_frame_rate;
    td_u32 i_qp;
    td_u32 p_qp;
    td_u32 b_qp;
} ot_venc_h264_fixqp;

typedef struct {
    td_u32 gop;
    td_u32 stats_time;
    td_u32 src_frame_rate;
    td_u32 dst_frame_rate;
} ot_venc_h264_qpmap;

typedef ot_venc_h264_cbr ot_venc_h265_cbr;
typedef ot_venc_h264_vbr ot_venc_h265_vbr;
typedef ot_venc_h264_avbr ot_venc_h265_avbr;
typedef ot_venc_h264_qvbr ot_venc_h265_qvbr;
typedef ot_venc_h264_cvbr ot_venc_h265_cvbr;
typedef ot_venc_h264_fixqp ot_venc_h265_fixqp;

typedef struct {
    td_u32 gop;
    td_u32 stats_time;
    td_u32 src_frame_rate;
    td_u32 dst_frame_rate;
    ot_venc_rc_qpmap_mode qpmap_mode;
} ot_venc_h265_qpmap;

typedef struct {
    td_u32 stats_time;
    td_u32 src_frame_rate;
    td_u32 dst_frame_rate;
    td_u32 bit_rate;
} ot_venc_mjpeg_cbr;

typedef struct {
    td_u32 stats_time;
    td_u32 src_frame_rate;
    td_u32 dst_frame_rate;
    td_u32 max_bit_rate;
} ot_venc_mjpeg_vbr;

typedef struct {
    td_u32 src_frame_rate;
    td_u32 dst_frame_rate;
    td_u32 qfactor;
} ot_venc_mjpeg_fixqp;

typedef struct {
    ot_venc_rc_mode rc_mode;
    union {
        ot_venc_h264_cbr h264_cbr;
        ot_venc_h264_vbr h264_vbr;
        ot_venc_h264_avbr h264_avbr;
        ot_venc_h264_qvbr h264_qvbr;
        ot_venc_h264_cvbr h264_cvbr;
        ot_venc_h264_fixqp h264_fixqp;
        ot_venc_h264_qpmap h264_qpmap;
        ot_venc_mjpeg_cbr mjpeg_cbr;
        ot_venc_mjpeg_vbr mjpeg_vbr;
        ot_venc_mjpeg_fixqp mjpeg_fixqp;
        ot_venc_h265_cbr h265_cbr;
        ot_venc_h265_vbr h265_vbr;
        ot_venc_h265_avbr h265_avbr;
        ot_venc_h265_qvbr h265_qvbr;
        ot_venc_h265_cvbr h265_cvbr;
        ot_venc_h265_fixqp h265_fixqp;
        ot_venc_h265_qpmap h265_qpmap;
    };
} ot_venc_rc_attr;

typedef struct {
    td_bool detect_en;
    td_bool adapt_insert_idr_frame_en;
} ot_venc_scene_chg_detect;

/* Only the per-mode members this project touches are modelled in the union;
 * it keeps the size of the largest of them, as on the board. */
typedef struct {
    td_u32 threshold_i[16];
    td_u32 threshold_p[16];
    td_u32 threshold_b[16];
    td_u32 direction;
    td_u32 row_qp_delta;
    td_s32 first_frame_start_qp;
    ot_venc_scene_chg_detect scene_chg_detect;
    union {
        ot_venc_h264_cbr_param h264_cbr_param;
        ot_venc_h264_vbr_param h264_vbr_param;
        ot_venc_h264_avbr_param h264_avbr_param;
        ot_venc_h265_cbr_param h265_cbr_param;
        ot_venc_h265_vbr_param h265_vbr_param;
        ot_venc_h265_avbr_param h265_avbr_param;
    };
} ot_venc_rc_param;

#ifdef __cplusplus
}
#endif

#endif /* OT_COMMON_RC_H */
