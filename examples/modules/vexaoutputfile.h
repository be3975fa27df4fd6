#ifndef VEXAOUTPUTFILE_H
#define VEXAOUTPUTFILE_H

#include <QAtomicInteger>
#include <QHash>
#include <QMutex>
#include <QWaitCondition>

#include <cstdint>
#include <limits>
#include <memory>
#include <vector>

extern "C" {
#include <libavutil/rational.h>
}

#include "vexamediasink.h"
#include "vexapacketqueue.h"
#include "vexapayloadpool.h"
#include "vexaexamplemodules_export.h"

struct AVFormatContext;
struct AVPacket;
struct AVStream;

/**
 * Sink module: remuxes the audio and video packets it receives into a file
 * with libavformat.
 *
 * Settings: "path" (file to write), "format" (container short name; default:
 * guessed from the extension of path), "overflow" ("wait", the default:
 * a full queue or payload ring holds the sending thread back until the writer
 * has made room, so nothing is lost; "drop": for live sources, a full queue
 * drops its oldest packet and a full ring drops the new one), "memSize"
 * (payload ring in bytes, default 2 MiB: it holds every queued packet and
 * what the muxer keeps back to interleave; a packet larger than the ring gets
 * a copy of its own instead), "overwrite" (replace an existing file; default
 * false: the module fails at start rather than destroy a file),
 * "bufLenA"/"bufLenV" (queue bounds, default 20; a bound below 2 is raised
 * to 2).
 *
 * The file is created when the header is written, so that nothing is left
 * behind when the source cannot open its input.
 *
 * One output stream is created per incoming description (VexaMedia
 * parameters), and one per extra stream that a source sends on A (see
 * VexaMedia::TagExtraStream; in the source's input order then, as `ffmpeg
 * -map 0` keeps them; an extra stream the container cannot hold is left
 * out with a warning and its packets counted as dropped). The header is written once both kinds are described, or once
 * one kind is described and enough of its packets wait (the other kind is
 * then left out), or at stop. Packets are written interleaved by decode time;
 * the trailer is written on stop, after every queued packet. The muxer gets
 * references to the ring copies, not copies of its own; it keeps back at
 * most one second of media to interleave, and is flushed when a sender finds
 * the ring full.
 *
 * What the muxer gets is what `ffmpeg -c copy` gives it: timestamps through
 * the source stream's own ticks (audio times by its samples when the source
 * time base is coarse), packet durations and side data (asked of the sender,
 * see VexaMedia::TagSideData), the source codec tag where the
 * container takes it, stream side data and disposition, and ffmpeg's muxing
 * delay (0.7 s). A packet without a decode time (the first frames of a
 * Matroska stream with B-frames) gets the one `ffmpeg` predicts: the first
 * presentation time less the reorder delay at the average frame rate, then
 * each packet's duration on. A decode time that would go backwards is moved, as ffmpeg
 * moves it, rather than have the muxer refuse the packet; a packet the
 * muxer still refuses is counted in "rejected".
 *
 * Events: "done" (value: the counters of stats()) after the trailer; "error"
 * (value: a message) when the file cannot be created or written.
 *
 * Thread: onNewPacketA/V copy the payload into a VexaPayloadPool (which
 * knows which copies are still queued or held by the muxer) and hand the
 * packet over in the sending thread through a VexaPacketQueue; the file is
 * written in the module's worker thread, woken by a posted call per batch,
 * which takes both whole queues at once. In "wait" mode the worker is woken
 * once half a queue bound of packets of one kind has arrived (or a queue or
 * the ring is full), so a source that pauses leaves up to that many packets
 * queued until it goes on or the module stops; in "drop" mode at every
 * batch. A sender that runs in the module's own worker thread (both started
 * with one thread name) never waits for the worker: it writes the batch, or
 * makes room, itself. A payload the sender lends (VexaPayloadLend) is kept
 * by reference.
 */
class VEXAEXAMPLEMODULES_EXPORT VexaOutputFile : public VexaMediaSink
{
    Q_OBJECT
    Q_CLASSINFO("setting:path", "output; file to write")
    Q_CLASSINFO("setting:format", "string; container short name (default: from the extension of path)")
    Q_CLASSINFO("setting:overflow", "enum(wait|drop)=wait; wait: lossless back-pressure, drop: live sources may lose packets")
    Q_CLASSINFO("setting:overwrite", "bool=false; replace an existing file instead of refusing to start")
    Q_CLASSINFO("setting:memSize", "int=2097152; payload ring bytes (larger packets are copied outside it)")
    Q_CLASSINFO("sends", "events")
    Q_CLASSINFO("accepts", "audio video")
    Q_CLASSINFO("platform", "unused")
    Q_CLASSINFO("event:done", "the file is complete (value: counters)")
    Q_CLASSINFO("event:error", "the file could not be created or written (value: message)")

public:
    Q_INVOKABLE explicit VexaOutputFile(QObject *parent = nullptr);
    ~VexaOutputFile() override;

protected:
    void onStart() override;
    void onStop() override;

private:
    enum Phase { Idle = 0, Accepting = 1, Closing = 2 };
    // Per output stream, worker thread only.
    struct Track {
        AVRational sourceTimeBase{0, 1};
        bool flagsInTag = false;        // as the description at the header said
        bool durationInTag = false;
        int sampleRate = 0;             // audio: times follow the samples
        int64_t rescaleLast = INT64_MIN;
        int64_t lastDts = INT64_MIN;    // last decode time given to the muxer; INT64_MIN (AV_NOPTS_VALUE): none
        qint64 firstUs = std::numeric_limits<qint64>::min();
        // Decode times for packets that come without one, in microseconds.
        bool predicting = false;        // a packet has been seen
        qint64 nextDtsUs = std::numeric_limits<qint64>::min();
        int videoDelay = 0;             // frames of reordering
        AVRational frameRate{0, 1};     // average
        int index = -1;                 // output stream
    };

    void accept(const Packet &pkt, bool video) override;
    void described(const StreamInfo &info, bool video) override;
    void release(const QVector<Packet> &packets);
    void dropped(const Packet &p, bool video);
    static void releaseBlock(void *opaque, uint8_t *data);
    void wake();
    void drain();
    bool tryWriteHeader(bool force);
    void writePending();
    bool writeOne(const Packet &pkt, bool video);
    void finish();
    void fail(const QString &message);
    void closeMuxer();
    bool offersSideData(VexaObject *sender);
    void keepDecodeOrder(Track &t, int formatFlags);
    qint64 followDecodeTime(Track &t, const Packet &pkt, qint64 dts);

    // Shared by the producers and the worker; guarded by gate.
    QMutex gate;
    QWaitCondition changed;         // a phase change
    QAtomicInt phase = Idle;        // written under gate
    bool dropMode = false;
    QAtomicInt ringStarved = 0;     // a sender found the ring full since the last drain
    QHash<char *, QVariantMap> sideData;  // packet side data by payload copy, until written or released
    QAtomicInt sideDataCount = 0;   // sideData.size(), read without gate
    VexaObject *sideDataSender = nullptr;
    bool sideDataOffered = false;

    // Payload copies of every queued packet and of those the muxer holds.
    VexaPayloadPool pool;
    // From the senders' threads to the worker; owns the copies it holds.
    // Declared after what its drop handler uses, so that it goes first.
    VexaPacketQueue queue;

    QAtomicInt wakePending = 0;

    // Worker thread only.
    AVFormatContext *oc = nullptr;
    AVPacket *avpkt = nullptr;
    bool headerWritten = false;
    int streamA = -1;
    int streamV = -1;
    VexaPacketQueue::Batch batch;
    QVector<Packet> pendingA;
    QVector<Packet> pendingV;
    Track tracks[2];                // audio, video
    std::vector<Track> extraTracks;     // by the source's extra stream number; index -1: left out
};

#endif // VEXAOUTPUTFILE_H
