#ifndef VX_MPI_H
#define VX_MPI_H

// Helpers that fill the platform's configuration records for the encoder,
// decoder, video output, 2D engine and capture modules. Each is a fixed
// recipe: read the record where needed, set the fields that matter, write it
// back and return the platform's status unchanged. None of them locks or
// keeps state. Thread: thread-safe as far as the platform calls are.

#include <QMap>
#include <QString>
#include <QVariant>

#include "hi_common_tde.h"
#include "hi_common_vdec.h"
#include "hi_common_vo.h"
#include "vexabase_export.h"
#include "vexaobject.h"

/**
 * Adjusts the QP limits of a running encoder channel from a module's
 * settings: "codec" ("h264" or "h265", anything else does nothing at all),
 * "rcmode" ("vbr": "minqp"/"maxqp" for the frame and I-frame limits; "cbr"
 * and "avbr": minimum QP 16 whatever the settings say; other modes change
 * nothing). The record is written back in every case; a failed write is
 * logged as "hi_mpi_venc_set_rc_param [%d] faild with %#x".
 */
VEXABASE_EXPORT void vx_mpi_venc_set_rc_param(int chn, QMap<QString, QVariant> settings);
/** Clears the video-signal-type flag of the channel's H.264 or H.265 VUI ("codec"). */
VEXABASE_EXPORT void vx_mpi_venc_vui_disable(int chn, QMap<QString, QVariant> settings);

/** Starts receiving pictures without end (count -1). */
VEXABASE_EXPORT int vx_mpi_venc_start_chn(int chn);
/** Starts receiving; a positive @p count stops the encoder after that many pictures. */
VEXABASE_EXPORT int vx_mpi_venc_start_chn_ex(int chn, int count);
/** Caps the channel's stream buffers at @p count; returns the status of the write. */
VEXABASE_EXPORT int vx_mpi_venc_set_max_stream(int chn, int count);

/**
 * A decoder stream record for one packet: its data and length, a whole
 * frame to display; the PTS is altPts when set (not -1) and different from
 * pts, else pts. The packet's data is not copied.
 */
VEXABASE_EXPORT hi_vdec_stream vx_vdec_stream_init(VexaObject::Packet pkt);

/** VTTH 2 on the device; display buffer length 3, single partition in @p attr (applied by the caller). */
VEXABASE_EXPORT int vx_mpi_vo_set_low_Latency(ot_vo_video_layer_attr &attr, int dev);
/** Display buffer length 4, single partition in @p attr; the device is not touched. */
VEXABASE_EXPORT void vx_mpi_vo_set_normal_Latency(ot_vo_video_layer_attr &attr, int dev);
/** YC inversion (@p first) and dual clock edge (@p second) of the device's BT output. */
VEXABASE_EXPORT int vx_mpi_vo_bt_set_param(int dev, bool first, bool second);

/**
 * Composes @p srcRect of @p src over @p dstRect of @p dst, in place, as
 * @p opt says (blending, colour key, ...). The job @p handle is begun and
 * ended by the caller.
 */
VEXABASE_EXPORT int vx_tde_bit_blit(int handle, ot_tde_surface src, ot_tde_surface dst, ot_tde_rect srcRect,
                                    ot_tde_rect dstRect, ot_tde_opt opt);

/** Frames the capture channel keeps for readers. */
VEXABASE_EXPORT int vx_mpi_vi_set_frame_depth(int pipe, int chn, int depth);

#endif // VX_MPI_H
