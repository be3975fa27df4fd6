#ifndef HI_MPI_VB_H
#define HI_MPI_VB_H

#include "hi_common_vb.h"

#ifdef __cplusplus
extern "C" {
#endif

hi_s32 hi_mpi_vb_set_cfg(const hi_vb_cfg *vb_cfg);
hi_s32 hi_mpi_vb_get_cfg(hi_vb_cfg *vb_cfg);
hi_s32 hi_mpi_vb_init(hi_void);
hi_s32 hi_mpi_vb_exit(hi_void);

hi_s32 hi_mpi_vb_set_mod_pool_cfg(hi_vb_uid vb_uid, const hi_vb_cfg *vb_cfg);
hi_s32 hi_mpi_vb_init_mod_common_pool(hi_vb_uid vb_uid);
hi_s32 hi_mpi_vb_exit_mod_common_pool(hi_vb_uid vb_uid);

hi_vb_pool hi_mpi_vb_create_pool(const hi_vb_pool_cfg *vb_pool_cfg);
hi_s32 hi_mpi_vb_destroy_pool(hi_vb_pool pool);

hi_vb_blk hi_mpi_vb_get_blk(hi_vb_pool pool, hi_u64 blk_size, const hi_char *mmz_name);
hi_s32 hi_mpi_vb_release_blk(hi_vb_blk vb_blk);
hi_vb_pool hi_mpi_vb_handle_to_pool_id(hi_vb_blk vb_blk);
hi_phys_addr_t hi_mpi_vb_handle_to_phys_addr(hi_vb_blk vb_blk);
hi_vb_blk hi_mpi_vb_phys_addr_to_handle(hi_phys_addr_t phys_addr);
/* The number of holders of the block (a status code when there is no such block). */
hi_s32 hi_mpi_vb_inquire_user_cnt(hi_vb_blk vb_blk);

#ifdef __cplusplus
}
#endif

#endif /* HI_MPI_VB_H */
