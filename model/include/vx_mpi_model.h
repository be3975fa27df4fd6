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
#include "hi_common_vi.h"
#include "hi_common_vo.h"
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

/**
 * Picks the picture source of the virtual sensor behind VI device @p dev,
 * read when the device is enabled: "pattern" (the default), a media file
 * decoded and looped ("file:<path>") or a V4L2 camera ("camera" for
 * /dev/video0, "camera:<device>"), each optionally followed by "@<fps>"
 * (1 to 240 frames per second; without it 30, or a file's own rate).
 * Without a choice here the environment variable VEXA_TWIN_VI<dev>
 * (VEXA_TWIN_VI0...) is read. An unknown source, or a file or camera that
 * cannot be opened, makes hi_mpi_vi_enable_dev fail with
 * HI_ERR_VI_NOT_SUPPORT after a message on stderr. A null or empty
 * @p source goes back to the default.
 *
 * The test pattern: the top eighth of the picture is a strip of 18 equal
 * cells, white, then the frame number's 16 low bits (most significant
 * first, white 1, black 0), then black; below it a white bar a sixteenth of
 * the width wide moves a 64th of the width per frame over a horizontal
 * ramp, and the bottom quarter is red. Mirrored and flipped channels show it
 * mirrored and flipped.
 */
void vx_model_vi_source(hi_vi_dev dev, const char *source);

/**
 * Frames a bound receiver lost because its input queue was full (VPSS
 * groups keep four), counted per receiver @p dst as bound (module, device,
 * channel) since the last reset.
 */
unsigned long long vx_model_bind_drops(const hi_mpp_chn *dst);

/**
 * Whole-frame pixel copies the model made to carry a frame from one stage
 * to the next (bindings, queues, an encoder's input) since the last reset.
 * Frames move by block handle, and H.264 channels encode straight from the
 * block when it is semi-planar with V first; H.265 and JPEG channels copy
 * each picture into their encoder's planar layout.
 */
unsigned long long vx_model_frame_copies();

/**
 * Holds (@p paused true) or lets go the thread of VPSS group @p grp: a held
 * group takes no frame from its input queue, as a consumer that cannot keep
 * up. False when there is no such group.
 */
bool vx_model_vpss_pause(hi_vpss_grp grp, bool paused);

/** True while channel @p chn receives pictures; its receive count in @p recvPicNum. */
bool vx_model_venc_started(hi_venc_chn chn, hi_s32 *recvPicNum = nullptr);

/**
 * Picks the file the screen of VO device @p dev is written to, read when
 * the device is enabled. The name's ending picks the kind: ".yuv" or
 * ".nv21" gives raw semi-planar 4:2:0 pictures (V before U) one after the
 * other; any other name a container that libavformat knows by its ending
 * (".mkv", ".nut", ".avi") holding lossless FFV1 video at the display
 * frame rate, which ffprobe and ffmpeg read. Without a choice here the
 * environment variable VEXA_TWIN_VO<dev> (VEXA_TWIN_VO0...) is read;
 * without either, the screen is composed and not kept. A null or empty
 * @p path goes back to that. A file that cannot be written gives a message
 * on stderr; the device works on without it.
 */
void vx_model_vo_screen(hi_vo_dev dev, const char *path);

/**
 * Screens VO device @p dev composed since it was enabled (one per display
 * period), or 0 when there is no such device.
 */
unsigned long long vx_model_vo_screens(hi_vo_dev dev);

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
