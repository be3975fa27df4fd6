// 2D-engine helpers.

#include "vx_mpi.h"

#include "hi_mpi_tde.h"

int vx_tde_bit_blit(int handle, ot_tde_surface src, ot_tde_surface dst, ot_tde_rect srcRect, ot_tde_rect dstRect,
                    ot_tde_opt opt)
{
    // The destination is also the background: the source is composed over
    // the destination's own content.
    hi_tde_double_src job;
    job.bg_surface = &dst;
    job.fg_surface = &src;
    job.dst_surface = &dst;
    job.bg_rect = &dstRect;
    job.fg_rect = &srcRect;
    job.dst_rect = &dstRect;
    return hi_tde_bit_blit(handle, &job, &opt);
}
