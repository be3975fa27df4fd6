#ifndef HI_MPI_VO_H
#define HI_MPI_VO_H

#include "hi_common_vo.h"

#ifdef __cplusplus
extern "C" {
#endif

hi_s32 hi_mpi_vo_set_vtth(hi_vo_dev dev, hi_u32 vtth);
hi_s32 hi_mpi_vo_get_vtth(hi_vo_dev dev, hi_u32 *vtth);
hi_s32 hi_mpi_vo_set_bt_param(hi_vo_dev dev, const hi_vo_bt_param *bt_param);
hi_s32 hi_mpi_vo_get_bt_param(hi_vo_dev dev, hi_vo_bt_param *bt_param);
hi_s32 hi_mpi_vo_set_video_layer_attr(hi_vo_layer layer, const hi_vo_video_layer_attr *layer_attr);
hi_s32 hi_mpi_vo_get_video_layer_attr(hi_vo_layer layer, hi_vo_video_layer_attr *layer_attr);

#ifdef __cplusplus
}
#endif

#endif /* HI_MPI_VO_H */
