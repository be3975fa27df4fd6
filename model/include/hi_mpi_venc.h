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

#ifdef __cplusplus
}
#endif

#endif /* HI_MPI_VENC_H */
