#ifndef VX_MPI_SYS_P_H
#define VX_MPI_SYS_P_H

//
// Not API: the media platform's bring-up, behind Vexa::initSys.
//

#include <QVariantMap>

/**
 * Tears down whatever an earlier run left of the SYS and VB modules, then
 * brings them up again from the board configuration's "videoBuffer" section
 * ("sys": common pools, "dec": the decoder's pools) and sets the encoder,
 * capture and decoder module parameters the framework relies on. Returns
 * false after a debug message naming the failing call when the pools or the
 * system cannot be (re)initialised; a refused pool configuration is logged
 * and survived.
 * Thread: main thread, at start-up.
 */
bool vx_mpi_sys_init(const QVariantMap &config);

#endif // VX_MPI_SYS_P_H
