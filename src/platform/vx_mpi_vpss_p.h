#ifndef VX_MPI_VPSS_P_H
#define VX_MPI_VPSS_P_H

//
// Not API: VPSS settings shared by HiVpss and VexaTeeChn.
//

#include "hi_common.h"

/**
 * Sets a fixed rotation of @p degrees (a multiple of 90; 0 turns rotation
 * off) on channel @p chn of group @p grp. Returns the platform's status.
 * Thread: takes no lock.
 */
hi_s32 vx_mpi_vpss_set_rotation(int grp, int chn, int degrees);

#endif // VX_MPI_VPSS_P_H
