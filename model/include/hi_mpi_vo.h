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

hi_s32 hi_mpi_vo_set_pub_attr(hi_vo_dev dev, const hi_vo_pub_attr *pub_attr);
hi_s32 hi_mpi_vo_get_pub_attr(hi_vo_dev dev, hi_vo_pub_attr *pub_attr);
hi_s32 hi_mpi_vo_enable(hi_vo_dev dev);
hi_s32 hi_mpi_vo_disable(hi_vo_dev dev);
hi_s32 hi_mpi_vo_enable_video_layer(hi_vo_layer layer);
hi_s32 hi_mpi_vo_disable_video_layer(hi_vo_layer layer);
hi_s32 hi_mpi_vo_bind_layer(hi_vo_layer layer, hi_vo_dev dev);
hi_s32 hi_mpi_vo_unbind_layer(hi_vo_layer layer, hi_vo_dev dev);
hi_s32 hi_mpi_vo_set_chn_attr(hi_vo_layer layer, hi_vo_chn chn, const hi_vo_chn_attr *chn_attr);
hi_s32 hi_mpi_vo_get_chn_attr(hi_vo_layer layer, hi_vo_chn chn, hi_vo_chn_attr *chn_attr);
hi_s32 hi_mpi_vo_enable_chn(hi_vo_layer layer, hi_vo_chn chn);
hi_s32 hi_mpi_vo_disable_chn(hi_vo_layer layer, hi_vo_chn chn);
hi_s32 hi_mpi_vo_send_frame(hi_vo_layer layer, hi_vo_chn chn, hi_video_frame_info *frame_info, hi_s32 milli_sec);
hi_s32 hi_mpi_vo_clear_chn_buf(hi_vo_layer layer, hi_vo_chn chn, hi_bool is_clear_all);
hi_s32 hi_mpi_vo_query_chn_status(hi_vo_layer layer, hi_vo_chn chn, hi_vo_chn_status *status);

#ifdef __cplusplus
}
#endif

#endif /* HI_MPI_VO_H */
