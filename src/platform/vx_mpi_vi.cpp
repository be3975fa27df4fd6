// Capture helpers.

#include "vx_mpi.h"

#include "hi_mpi_vi.h"

int vx_mpi_vi_set_frame_depth(int pipe, int chn, int depth)
{
    return hi_mpi_vi_set_frame_depth(pipe, chn, static_cast<hi_u32>(depth));
}
