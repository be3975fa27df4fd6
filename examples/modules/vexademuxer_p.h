#ifndef VEXADEMUXER_P_H
#define VEXADEMUXER_P_H

// Not API: shared by the example modules' sources only.

#include <QAtomicInteger>
#include <QElapsedTimer>
#include <QVariantMap>

#include <QVector>

#include <functional>

#include "vexaobject.h"

struct AVFormatContext;
struct AVPacket;
struct AVStream;
class QTimer;

/*
 * The demuxing half of a source module (a file or a network stream read
 * with libavformat): the format context, the best video and audio streams,
 * their descriptions, the packet read and not yet sent, pacing by the
 * timestamps, and sending with the counters every source reports.
 *
 * The owner opens fmt itself (avformat_open_input, with its own options
 * and interrupt callback), then calls findStreams(); it turns each packet's
 * timestamps into its own time line and calls send().
 *
 * Thread: the module's worker thread, except the counters (atomics) and
 * counters(), which any thread may call.
 */
class VexaDemuxer
{
public:
    /** @p read reads a batch of packets in the thread of @p module (see scheduleRead()). */
    VexaDemuxer(VexaObject *module, std::function<void()> read);
    ~VexaDemuxer();

    /**
     * Has the reader called in the module's thread: after a posted call when
     * @p delayMs is 0 (once, however often asked before it runs), else after
     * @p delayMs milliseconds. Called in the module's thread.
     */
    void scheduleRead(int delayMs);
    /** A delayed read asked for does not happen. */
    void cancelRead();

    /**
     * After the owner opened fmt: picks the best video and audio streams,
     * and with @p all every other stream as an extra stream (sent on A, see
     * VexaMedia::TagExtraStream). False, with *error saying why in terms of
     * @p source, when there is no stream to send.
     */
    bool findStreams(const QString &source, QString *error, bool all = false);
    /**
     * The description of the chosen video or audio stream, sent by
     * @p sender; type 0 when none. The audio one lists the extra streams in
     * "extraStreams" (each description with its "stream" number); with
     * extra streams but no audio its "kind" is "none".
     */
    VexaObject::StreamInfo describe(bool video, VexaObject *sender) const;
    /** Drops the packet held and closes fmt. */
    void close();

    /**
     * Reads the next packet of the chosen streams into pkt unless one is
     * held already: 0 when pkt holds one (isHolding()), else av_read_frame's
     * error (EAGAIN, EOF, ...).
     */
    int readNext();
    bool isHolding() const { return holding; }
    /** Moves the packet held into @p to (an allocated, empty packet); nothing is held after. */
    void park(AVPacket *to);
    /** Holds @p from (moved in, left empty), a packet read from fmt earlier; nothing may be held. */
    void unpark(AVPacket *from);
    /** The stream of the packet held. */
    const AVStream *stream() const;
    bool isVideo() const;
    /** The extra stream number of the packet held, -1 when it is of the chosen video or audio stream. */
    int extraStream() const;

    /** Pacing starts again from the next packet (realtime sources). */
    void restartPace() { paceStarted = false; }
    /**
     * Milliseconds to wait before the packet held is due (at most a second,
     * so that a jump in the timestamps is looked at again), 0 when it is due
     * or has no timestamp; @p shiftUs is added to its timestamp.
     */
    int paceDelayMs(qint64 shiftUs);

    /**
     * The record of the packet held: payload, flags and duration in the tag
     * (see VexaMedia; with the side-data flag when @p markSideData), no
     * timestamps.
     */
    VexaObject::Packet packet(bool markSideData) const;
    /**
     * Counts @p out and sends it on V or A of the module, then lets go of the
     * packet held (receivers keep what they need while the call runs).
     */
    void send(const VexaObject::Packet &out);
    /** Raises the media time sent to @p us when later. */
    void reachedMedia(qint64 us);

    /** "packetsA", "packetsV", "bytesA", "bytesV", "dropped" (always 0), "mediaUs". */
    QVariantMap counters() const;

    AVFormatContext *fmt = nullptr;
    AVPacket *pkt = nullptr;
    int videoIndex = -1;
    int audioIndex = -1;
    QVector<int> extraNumber;       // by stream index: extra stream number, or -1
    int extraCount = 0;

private:
    VexaObject *module;
    std::function<void()> read;
    QTimer *readTimer = nullptr;    // created in the module's thread, its child
    bool readPosted = false;
    bool holding = false;
    bool paceStarted = false;
    qint64 paceOrigin = 0;          // timestamp that maps to paceClock 0
    QElapsedTimer paceClock;

    QAtomicInteger<qint64> sentPacketsA = 0;   // packets sent on A; not the base class queue
    QAtomicInteger<qint64> sentPacketsV = 0;
    QAtomicInteger<qint64> bytesA = 0;
    QAtomicInteger<qint64> bytesV = 0;
    QAtomicInteger<qint64> mediaUs = 0;
};

#endif // VEXADEMUXER_P_H
