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
