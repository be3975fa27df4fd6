#ifndef HI_MPI_VPSS_H
#define HI_MPI_VPSS_H

#include "hi_common_vpss.h"

#ifdef __cplusplus
extern "C" {
#endif

hi_s32 hi_mpi_vpss_create_grp(hi_vpss_grp grp, const hi_vpss_grp_attr *grp_attr);
hi_s32 hi_mpi_vpss_destroy_grp(hi_vpss_grp grp);
hi_s32 hi_mpi_vpss_start_grp(hi_vpss_grp grp);
hi_s32 hi_mpi_vpss_stop_grp(hi_vpss_grp grp);

hi_s32 hi_mpi_vpss_get_grp_attr(hi_vpss_grp grp, hi_vpss_grp_attr *grp_attr);
hi_s32 hi_mpi_vpss_set_grp_attr(hi_vpss_grp grp, const hi_vpss_grp_attr *grp_attr);
hi_s32 hi_mpi_vpss_get_grp_crop(hi_vpss_grp grp, hi_vpss_crop_info *crop_info);
hi_s32 hi_mpi_vpss_set_grp_crop(hi_vpss_grp grp, const hi_vpss_crop_info *crop_info);
hi_s32 hi_mpi_vpss_get_grp_param(hi_vpss_grp grp, hi_vpss_grp_param *grp_param);
hi_s32 hi_mpi_vpss_set_grp_param(hi_vpss_grp grp, const hi_vpss_grp_param *grp_param);
hi_s32 hi_mpi_vpss_set_grp_delay(hi_vpss_grp grp, hi_u32 delay);
hi_s32 hi_mpi_vpss_get_grp_delay(hi_vpss_grp grp, hi_u32 *delay);

hi_s32 hi_mpi_vpss_get_chn_attr(hi_vpss_grp grp, hi_vpss_chn chn, hi_vpss_chn_attr *chn_attr);
hi_s32 hi_mpi_vpss_set_chn_attr(hi_vpss_grp grp, hi_vpss_chn chn, const hi_vpss_chn_attr *chn_attr);
hi_s32 hi_mpi_vpss_enable_chn(hi_vpss_grp grp, hi_vpss_chn chn);
hi_s32 hi_mpi_vpss_disable_chn(hi_vpss_grp grp, hi_vpss_chn chn);
hi_s32 hi_mpi_vpss_set_chn_rotation(hi_vpss_grp grp, hi_vpss_chn chn, const hi_rotation_attr *rotation_attr);
hi_s32 hi_mpi_vpss_get_chn_rotation(hi_vpss_grp grp, hi_vpss_chn chn, hi_rotation_attr *rotation_attr);

hi_s32 hi_mpi_vpss_send_frame(hi_vpss_grp grp, const hi_video_frame_info *frame_info, hi_s32 milli_sec);
hi_s32 hi_mpi_vpss_get_chn_frame(hi_vpss_grp grp, hi_vpss_chn chn, hi_video_frame_info *frame_info,
                                 hi_s32 milli_sec);
hi_s32 hi_mpi_vpss_release_chn_frame(hi_vpss_grp grp, hi_vpss_chn chn, const hi_video_frame_info *frame_info);

#ifdef __cplusplus
}
#endif

#endif /* HI_MPI_VPSS_H */
