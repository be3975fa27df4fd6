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

#ifdef __cplusplus
}
#endif

#endif /* HI_MPI_VI_H */
