#ifndef HI_MPI_VDEC_H
#define HI_MPI_VDEC_H

#include "hi_common_vdec.h"

#ifdef __cplusplus
extern "C" {
#endif

hi_s32 hi_mpi_vdec_get_mod_param(hi_vdec_mod_param *mod_param);
hi_s32 hi_mpi_vdec_set_mod_param(const hi_vdec_mod_param *mod_param);

#ifdef __cplusplus
}
#endif

#endif /* HI_MPI_VDEC_H */
