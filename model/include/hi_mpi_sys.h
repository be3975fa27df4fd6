#ifndef HI_MPI_SYS_H
#define HI_MPI_SYS_H

#include "hi_common_sys.h"

#ifdef __cplusplus
extern "C" {
#endif

hi_s32 hi_mpi_sys_init(hi_void);
hi_s32 hi_mpi_sys_exit(hi_void);

hi_s32 hi_mpi_sys_bind(const hi_mpp_chn *src_chn, const hi_mpp_chn *dst_chn);
hi_s32 hi_mpi_sys_unbind(const hi_mpp_chn *src_chn, const hi_mpp_chn *dst_chn);
hi_s32 hi_mpi_sys_get_bind_by_dst(const hi_mpp_chn *dst_chn, hi_mpp_chn *src_chn);

hi_s32 hi_mpi_sys_get_cur_pts(hi_u64 *cur_pts);

hi_void *hi_mpi_sys_mmap(hi_phys_addr_t phys_addr, hi_u32 size);
hi_void *hi_mpi_sys_mmap_cached(hi_phys_addr_t phys_addr, hi_u32 size);
hi_s32 hi_mpi_sys_munmap(const hi_void *virt_addr, hi_u32 size);

hi_s32 hi_mpi_sys_mmz_alloc(hi_phys_addr_t *phys_addr, hi_void **virt_addr,
                            const hi_char *mmb, const hi_char *zone, hi_u32 len);
hi_s32 hi_mpi_sys_mmz_alloc_cached(hi_phys_addr_t *phys_addr, hi_void **virt_addr,
                                   const hi_char *mmb, const hi_char *zone, hi_u32 len);
hi_s32 hi_mpi_sys_mmz_free(hi_phys_addr_t phys_addr, const hi_void *virt_addr);

#ifdef __cplusplus
}
#endif

#endif /* HI_MPI_SYS_H */
