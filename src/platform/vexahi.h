#ifndef VEXAHI_H
#define VEXAHI_H

#include <QMap>
#include <QMutex>
#include <QObject>

#include "hi_common_video.h"
#include "vexabase_export.h"
#include "vx_mpp_chn.h"

class VexaTee;
class VexaTeeChn;

/**
 * Static facade over the media platform for the services every module
 * shares: channel binding, the presentation-time clock with a process-wide
 * offset, blank video frames, media memory (MMZ) with a registry that can
 * free everything at exit, and the registry of VPSS tees.
 *
 * No instance is ever needed: all operations and all state are static.
 */
class VEXABASE_EXPORT VexaHi : public QObject
{
    Q_OBJECT

public:
    /**
     * Binds the source channel's output to the destination channel's input.
     * A destination has one source: whatever fed it before is unbound first,
     * and binding the source it already has changes nothing. Source module
     * 87 only clears the destination's binding.
     * Returns true when the binding stands; false after the debug message
     * "HI_MPI_SYS_Bind failed with ..." when the platform refuses it.
     * Thread: takes no lock; callers must not re-bind one destination from
     * two threads at once.
     */
    static bool bind(int srcMod, int srcDev, int srcChn, int dstMod, int dstDev, int dstChn);

    /** Binds VPSS channel @p chn of a tee to the destination, as bind(). False for a null channel. */
    static bool bindFromTee(VexaTeeChn *chn, int dstMod, int dstDev, int dstChn);

    /**
     * Reads the platform clock (microseconds) into the unsigned 64-bit value
     * at @p pts, adding timeOffset when @p withOffset is set and absPTS is
     * not. Thread: thread-safe (lockPTS covers the read and the addition).
     */
    static void getPTS(void *pts, bool withOffset);
    /** Thread: thread-safe (lockPTS). */
    static qint64 getPTSOffset();
    /** Thread: thread-safe (lockPTS). */
    static void setPTSOffset(qint64 offset);

    /**
     * A uniform mid-grey semi-planar 4:2:0 frame of @p width x @p height in
     * a block of any common VB pool (stride rounded up to 16). The block
     * handle goes to @p blk (may be null) as soon as the block is taken; the
     * caller owns the block and the mapping.
     * Returns a zeroed record (width 0, null addresses) after a debug
     * message naming the failing call.
     * Thread: thread-safe (no shared state of its own).
     */
    static hi_video_frame_info makeFrame(int width, int height, unsigned int *blk);

    /**
     * Allocates @p size bytes of media memory (cached or not) and records
     * the block in mmzMap, even when the platform fails (the entry then
     * holds what the outputs hold). Returns the platform's status.
     * Thread: not thread-safe (mmzMap has no lock); call from one thread.
     */
    static int mmzAlloc(unsigned int *phys, void **virt, unsigned int size, bool cached, const char *mmbName,
                        const char *zoneName);
    /** Frees the block and drops it from mmzMap whatever the status; returns the status. */
    static int mmzFree(unsigned int phys, void *virt);
    /** Frees every block still in mmzMap (results ignored) and empties it. Used at exit. */
    static void mmzClear();

    /**
     * Creates a tee fed from (@p srcMod, @p srcDev, @p srcChn), registered
     * under its id; an earlier tee under the same id is replaced, not
     * deleted. Thread: thread-safe (lockTee, then VexaTee::mutex).
     */
    static VexaTee *newTee(int srcMod, int srcDev, int srcChn);
    static VexaTee *newTee(vx_mpp_chn src);
    /** The tee registered under @p id, or null. Thread: thread-safe (lockTee). */
    static VexaTee *getTee(int id);
    /**
     * Unregisters and destroys @p tee; a tee that is not registered is left
     * alone. Destroy the tee's channels first. Thread: thread-safe (lockTee).
     */
    static void delTee(VexaTee *tee);

    /** When true, getPTS ignores the offset. Set by the embedding application. */
    static bool absPTS;
    /** Added to the platform clock by getPTS; guarded by lockPTS. */
    static qint64 timeOffset;
    static QMutex lockPTS;
    /** Physical -> virtual address of every block from mmzAlloc not yet freed. No lock: one thread. */
    static QMap<unsigned int, void *> mmzMap;
    /** Tee id -> tee; owns the tees. Guarded by lockTee. */
    static QMap<int, VexaTee *> teeMap;
    /** Taken before VexaTee::mutex, never after it. */
    static QMutex lockTee;
};

#endif // VEXAHI_H
