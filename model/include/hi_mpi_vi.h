#ifndef HI_MPI_VI_H
#define HI_MPI_VI_H

#include "hi_common_vi.h"

#ifdef __cplusplus
extern "C" {
#endif

hi_s32 hi_mpi_vi_get_mod_param(hi_vi_mod_param *mod_param);
hi_s32 hi_mpi_vi_set_mod_param(const hi_vi_mod_param *mod_param);
/* Pipe, channel and depth: the form this project's boards use. */
hi_s32 hi_mpi_vi_set_frame_depth(hi_vi_pipe vi_pipe, hi_vi_chn vi_chn, hi_u32 depth);

hi_s32 hi_mpi_vi_set_dev_attr(hi_vi_dev vi_dev, const hi_vi_dev_attr *dev_attr);
hi_s32 hi_mpi_vi_get_dev_attr(hi_vi_dev vi_dev, hi_vi_dev_attr *dev_attr);
hi_s32 hi_mpi_vi_enable_dev(hi_vi_dev vi_dev);
hi_s32 hi_mpi_vi_disable_dev(hi_vi_dev vi_dev);
hi_s32 hi_mpi_vi_bind(hi_vi_dev vi_dev, hi_vi_pipe vi_pipe);
hi_s32 hi_mpi_vi_unbind(hi_vi_dev vi_dev, hi_vi_pipe vi_pipe);

hi_s32 hi_mpi_vi_create_pipe(hi_vi_pipe vi_pipe, const hi_vi_pipe_attr *pipe_attr);
hi_s32 hi_mpi_vi_destroy_pipe(hi_vi_pipe vi_pipe);
hi_s32 hi_mpi_vi_start_pipe(hi_vi_pipe vi_pipe);
hi_s32 hi_mpi_vi_stop_pipe(hi_vi_pipe vi_pipe);

hi_s32 hi_mpi_vi_set_chn_attr(hi_vi_pipe vi_pipe, hi_vi_chn vi_chn, const hi_vi_chn_attr *chn_attr);
hi_s32 hi_mpi_vi_get_chn_attr(hi_vi_pipe vi_pipe, hi_vi_chn vi_chn, hi_vi_chn_attr *chn_attr);
hi_s32 hi_mpi_vi_enable_chn(hi_vi_pipe vi_pipe, hi_vi_chn vi_chn);
hi_s32 hi_mpi_vi_disable_chn(hi_vi_pipe vi_pipe, hi_vi_chn vi_chn);
hi_s32 hi_mpi_vi_get_chn_frame(hi_vi_pipe vi_pipe, hi_vi_chn vi_chn, hi_video_frame_info *frame_info,
                               hi_s32 milli_sec);
hi_s32 hi_mpi_vi_release_chn_frame(hi_vi_pipe vi_pipe, hi_vi_chn vi_chn, const hi_video_frame_info *frame_info);
hi_s32 hi_mpi_vi_query_chn_status(hi_vi_pipe vi_pipe, hi_vi_chn vi_chn, hi_vi_chn_status *chn_status);

#ifdef __cplusplus
}
#endif

#endif /* HI_MPI_VI_H */
