// Compile-time checks that the model's records have the board's layout:
// code built against the model must fill the same bytes on the board.

#include <cstddef>

#include "hi_common_tde.h"
#include "hi_common_vb.h"
#include "hi_common_vdec.h"
#include "hi_common_venc.h"
#include "hi_common_vo.h"
#include "hi_common_vpss.h"

// 64-bit members are 8-aligned in records on ARM EABI and on 64-bit hosts,
// not on i386: records with such members are checked only where they are.
struct VxAlignProbe {
    char c;
    hi_u64 v;
};
static constexpr bool kU64Aligned8 = offsetof(VxAlignProbe, v) == 8;

static_assert(sizeof(hi_mpp_chn) == 12, "mpp channel");
static_assert(!kU64Aligned8 || (sizeof(hi_vb_pool_cfg) == 48 && sizeof(hi_vb_cfg) == 776), "vb config");
static_assert(sizeof(hi_vpss_grp_attr) == 72 && offsetof(hi_vpss_grp_attr, dci_en) == 8
                  && offsetof(hi_vpss_grp_attr, max_width) == 20 && offsetof(hi_vpss_grp_attr, dei_mode) == 44
                  && offsetof(hi_vpss_grp_attr, frame_rate) == 64,
              "vpss group attribute");
static_assert(sizeof(hi_vpss_chn_attr) == 96 && offsetof(hi_vpss_chn_attr, chn_mode) == 24
                  && offsetof(hi_vpss_chn_attr, frame_rate) == 44 && offsetof(hi_vpss_chn_attr, aspect_ratio) == 72,
              "vpss channel attribute");
static_assert(sizeof(hi_vpss_crop_info) == 24 && sizeof(hi_rotation_attr) == 32, "vpss crop and rotation");
static_assert(sizeof(hi_venc_rc_param) == 272 && offsetof(hi_venc_rc_param, h264_cbr_param) == 212
                  && offsetof(hi_venc_rc_param, h264_avbr_param.save_bitrate_en) == 268
                  && offsetof(hi_venc_rc_param, h265_vbr_param.max_qp) == 228,
              "rate-control parameter");
static_assert(sizeof(hi_venc_h264_vui) == 28 && offsetof(hi_venc_h264_vui, vui_video_signal) == 20, "h264 vui");
static_assert(sizeof(hi_venc_h265_vui) == 32 && offsetof(hi_venc_h265_vui, vui_video_signal) == 24, "h265 vui");
static_assert(sizeof(hi_venc_chn_param) == 44 && offsetof(hi_venc_chn_param, max_stream_cnt) == 8, "venc chn param");
static_assert(sizeof(hi_venc_mod_param) == 28, "venc mod param");
static_assert(sizeof(hi_venc_attr) == 60 && sizeof(hi_venc_rc_attr) == 40 && sizeof(hi_venc_gop_attr) == 16
                  && sizeof(hi_venc_chn_attr) == 116 && offsetof(hi_venc_chn_attr, rc_attr.h264_cbr.bit_rate) == 80
                  && offsetof(hi_venc_chn_attr, gop_attr) == 100,
              "venc channel attribute");
static_assert(!kU64Aligned8 || (sizeof(hi_venc_chn_status) == 120 && offsetof(hi_venc_chn_status, release_pic_pts) == 32
                  && offsetof(hi_venc_chn_status, stream_info.psnr_val) == 104
                  && offsetof(hi_venc_chn_status, discard_pics) == 112),
              "venc channel status");
static_assert(sizeof(hi_vdec_mod_param) == 44, "vdec mod param");
static_assert(sizeof(hi_vo_bt_param) == 12 && sizeof(hi_vo_video_layer_attr) == 56
                  && offsetof(hi_vo_video_layer_attr, display_buf_len) == 44,
              "vo records");
static_assert(sizeof(hi_vo_sync_info) == 48 && offsetof(hi_vo_sync_info, vact) == 10
                  && offsetof(hi_vo_sync_info, idv) == 36 && sizeof(hi_vo_pub_attr) == 60
                  && offsetof(hi_vo_pub_attr, sync_info) == 12 && sizeof(hi_vo_chn_attr) == 24
                  && offsetof(hi_vo_chn_attr, deflicker_en) == 20,
              "vo device and channel records");
static_assert(sizeof(hi_tde_surface) == 60 && offsetof(hi_tde_surface, cbcr_phys_addr) == 40, "tde surface");
static_assert(sizeof(hi_tde_opt) == 168 && offsetof(hi_tde_opt, blend_opt) == 100
                  && offsetof(hi_tde_opt, is_compress) == 160,
              "tde options");

#if __SIZEOF_POINTER__ == 4
// Records holding pointers: only a 32-bit build has the board's layout.
static_assert(!kU64Aligned8 || (sizeof(hi_video_frame) == 176 && offsetof(hi_video_frame, virt_addr) == 72
                  && offsetof(hi_video_frame, pts) == 88 && offsetof(hi_video_frame, supplement) == 116),
              "video frame");
static_assert(!kU64Aligned8 || (offsetof(hi_video_frame_info, pool_id) == 176 && sizeof(hi_video_frame_info) == 184),
              "frame info");
static_assert(sizeof(hi_vdec_chn_attr) == 40 && offsetof(hi_vdec_chn_attr, video_attr.tmv_buf_size) == 36, "vdec chn attr");
static_assert(sizeof(hi_vdec_chn_status) == 80 && offsetof(hi_vdec_chn_status, dec_err) == 28
                  && offsetof(hi_vdec_chn_status, width) == 64 && offsetof(hi_vdec_chn_status, latest_frame_pts) == 72,
              "vdec chn status");
static_assert(sizeof(hi_vdec_chn_param) == 40 && offsetof(hi_vdec_chn_param, video_param.quick_mark_mode) == 36
                  && offsetof(hi_vdec_chn_param, pic_param.alpha) == 12,
              "vdec chn param");
static_assert(sizeof(hi_vdec_supplement_info) == 8, "vdec supplement info");
static_assert(!kU64Aligned8 || (sizeof(hi_vdec_stream) == 40 && offsetof(hi_vdec_stream, addr) == 36), "vdec stream");
static_assert(sizeof(hi_tde_double_src) == 24, "tde double source");
static_assert(sizeof(hi_tde_single_src) == 16 && offsetof(hi_tde_single_src, src_rect) == 8
                  && sizeof(hi_tde_none_src) == 8,
              "tde single and no source");
static_assert(!kU64Aligned8 || (sizeof(hi_venc_pack) == 136 && offsetof(hi_venc_pack, pts) == 16
                  && offsetof(hi_venc_pack, data_type) == 28 && offsetof(hi_venc_pack, pack_info) == 40),
              "venc pack");
static_assert(!kU64Aligned8 || (sizeof(hi_venc_stream) == 464 && offsetof(hi_venc_stream, h264_info) == 12
                  && offsetof(hi_venc_stream, h264_adv_info) == 72),
              "venc stream");
#endif
