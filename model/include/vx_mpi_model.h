#ifndef VX_MPI_MODEL_H
#define VX_MPI_MODEL_H

/*
 * Controls of the software model of the media platform, for tests and for
 * host-side tools. Not part of the chip's interface: nothing in the library
 * may call these.
 *
 * The model keeps the state a real board would keep (VB pools, media memory,
 * bindings, VPSS groups and channels, encoder channels, device settings),
 * checks arguments the way the platform does, and records every platform
 * call it receives, so that a test can compare the calls made by the code
 * under test with the expected sequence.
 *
 * Call log entries read "function(arguments)": integers in decimal, channel
 * addresses as {mod,dev,chn}, physical addresses in hex (0x...), absent
 * pointers as null. Record arguments are logged by their key fields only;
 * read the records back through the platform's own get functions.
 *
 * Thread: every function here and every platform function of the model is
 * thread-safe (one lock around the whole model).
 */

#include <string>
#include <vector>

#include "hi_common_tde.h"
#include "hi_common_vb.h"
#include "hi_common_venc.h"
#include "hi_common_vpss.h"

/** Back to power-on: nothing initialised, no memory, empty log, no faults. */
void vx_model_reset();

/**
 * Brings the platform up as start-up code does: VB configuration (@p cfg,
 * or one common pool of eight 1920x1088 semi-planar 4:2:0 blocks when
 * null), VB init and SYS init. Not logged. Returns the first failing status.
 */
hi_s32 vx_model_boot(const hi_vb_cfg *cfg = nullptr);

/** The platform calls received since the last reset or clear, oldest first. */
std::vector<std::string> vx_model_calls();
void vx_model_clear_calls();

/**
 * Makes the next @p times calls of @p function (its platform name, e.g.
 * "hi_mpi_sys_bind") fail with @p status without any effect; a negative
 * @p times fails every call until reset. Functions that return no status
 * fail with their failure value instead (null mapping, invalid handle,
 * invalid pool, physical address 0). The failed calls are logged.
 */
void vx_model_fail(const char *function, hi_s32 status, int times = 1);

/** Fixes the value that hi_mpi_sys_get_cur_pts reports. */
void vx_model_set_cur_pts(hi_u64 pts);
/** Lets hi_mpi_sys_get_cur_pts follow the host's monotonic clock (the default). */
void vx_model_use_clock();

bool vx_model_vpss_grp_exists(hi_vpss_grp grp);
bool vx_model_vpss_grp_started(hi_vpss_grp grp);
bool vx_model_vpss_chn_enabled(hi_vpss_grp grp, hi_vpss_chn chn);

/** Free blocks of common pool @p pool, or -1 when there is no such pool. */
int vx_model_vb_free_blocks(hi_vb_pool pool);
/** Media-memory blocks allocated with mmz_alloc and not yet freed. */
int vx_model_mmz_count();

/** True while channel @p chn receives pictures; its receive count in @p recvPicNum. */
bool vx_model_venc_started(hi_venc_chn chn, hi_s32 *recvPicNum = nullptr);

/** Copies of what the last successful hi_tde_bit_blit was given. */
struct vx_model_blit {
    hi_s32 handle;
    hi_tde_surface bg;
    hi_tde_surface fg;
    hi_tde_surface dst;
    hi_tde_rect bgRect;
    hi_tde_rect fgRect;
    hi_tde_rect dstRect;
    hi_tde_opt opt;
    bool bgIsDst;       // the background and destination surfaces were one record
    bool bgRectIsDstRect;
};
bool vx_model_last_blit(vx_model_blit *out);

#endif /* VX_MPI_MODEL_H */
