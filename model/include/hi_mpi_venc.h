#ifndef HI_MPI_VENC_H
#define HI_MPI_VENC_H

#include "hi_common_venc.h"

#ifdef __cplusplus
extern "C" {
#endif

hi_s32 hi_mpi_venc_get_mod_param(hi_venc_mod_param *mod_param);
hi_s32 hi_mpi_venc_set_mod_param(const hi_venc_mod_param *mod_param);

hi_s32 hi_mpi_venc_get_rc_param(hi_venc_chn chn, hi_venc_rc_param *rc_param);
hi_s32 hi_mpi_venc_set_rc_param(hi_venc_chn chn, const hi_venc_rc_param *rc_param);

hi_s32 hi_mpi_venc_get_h264_vui(hi_venc_chn chn, hi_venc_h264_vui *h264_vui);
hi_s32 hi_mpi_venc_set_h264_vui(hi_venc_chn chn, const hi_venc_h264_vui *h264_vui);
hi_s32 hi_mpi_venc_get_h265_vui(hi_venc_chn chn, hi_venc_h265_vui *h265_vui);
hi_s32 hi_mpi_venc_set_h265_vui(hi_venc_chn chn, const hi_venc_h265_vui *h265_vui);

hi_s32 hi_mpi_venc_start_chn(hi_venc_chn chn, const hi_venc_start_param *recv_param);
hi_s32 hi_mpi_venc_stop_chn(hi_venc_chn chn);

hi_s32 hi_mpi_venc_get_chn_param(hi_venc_chn chn, hi_venc_chn_param *chn_param);
hi_s32 hi_mpi_venc_set_chn_param(hi_venc_chn chn, const hi_venc_chn_param *chn_param);
hi_s32 hi_mpi_venc_create_chn(hi_venc_chn chn, const hi_venc_chn_attr *attr);
hi_s32 hi_mpi_venc_destroy_chn(hi_venc_chn chn);
hi_s32 hi_mpi_venc_reset_chn(hi_venc_chn chn);
hi_s32 hi_mpi_venc_set_chn_attr(hi_venc_chn chn, const hi_venc_chn_attr *chn_attr);
hi_s32 hi_mpi_venc_get_chn_attr(hi_venc_chn chn, hi_venc_chn_attr *chn_attr);
hi_s32 hi_mpi_venc_query_status(hi_venc_chn chn, hi_venc_chn_status *status);
hi_s32 hi_mpi_venc_get_stream(hi_venc_chn chn, hi_venc_stream *stream, hi_s32 milli_sec);
hi_s32 hi_mpi_venc_release_stream(hi_venc_chn chn, const hi_venc_stream *stream);
hi_s32 hi_mpi_venc_send_frame(hi_venc_chn chn, const hi_video_frame_info *frame, hi_s32 milli_sec);
hi_s32 hi_mpi_venc_request_idr(hi_venc_chn chn, hi_bool instant);
hi_s32 hi_mpi_venc_get_fd(hi_venc_chn chn);
hi_s32 hi_mpi_venc_close_fd(hi_venc_chn chn);

#ifdef __cplusplus
}
#endif

#endif /* HI_MPI_VENC_H */
