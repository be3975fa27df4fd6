#ifndef VEXAOUTPUTNET_H
#define VEXAOUTPUTNET_H

#include <QAtomicInteger>
#include <QMutex>
#include <QWaitCondition>

#include <cstdint>
#include <limits>
#include <memory>

extern "C" {
#include <libavutil/rational.h>
}

#include "vexamediasink.h"
#include "vexapacketqueue.h"
#include "vexapayloadpool.h"
#include "vexaexamplemodules_export.h"

struct AVBufferRef;
struct AVDictionary;
struct AVFormatContext;
struct AVPacket;
class QThread;
class VexaIoDeadline;

/**
 * Sink module: publishes the audio and video packets it receives to a
 * network destination with libavformat.
 *
 * URLs ("url"): udp://, srt:// and tcp:// carry MPEG-TS, rtsp:// publishes
 * to an RTSP server (ANNOUNCE, then RECORD over "transport" tcp or udp) and
 * rtmp:// carries FLV. "format" names another container. With "listen"
 * (tcp://, srt://) the module waits for the receiver to connect instead of
 * connecting itself.
 *
 * Sending: each packet goes out as soon as it arrives, through the muxer's
 * interleaving, on a sending thread of the module's own; the source sets the
 * pace (a network source, or an InputFile with "realtime"). When the
 * network is slower than the stream the queue fills: with "overflow" "drop"
 * (the default, as a live destination wants) the oldest queued packet of
 * that kind is dropped, counted in stats() ("dropped", "droppedA",
 * "droppedV", with "dropping" true) and reported when the module stops;
 * with "wait" the sending module is held back until there is room, and gives
 * up (the packet is counted as dropped) once this module is stopped.
 * "bufLenA"/"bufLenV" bound the queues (at least 2).
 *
 * Until the destination is open (connecting, or waiting for a receiver
 * with "listen"), "drop" holds what arrives from the first keyframe on, up
 * to 1024 packets of each kind (beyond that, the oldest group of pictures
 * goes), so that a relay starts with the first keyframe it received; a
 * listening output keeps only the latest group of pictures, so that the
 * receiver starts at the most recent keyframe.
 *
 * A listening output whose receiver goes away (the connection breaks)
 * listens again, for as long as the module runs, and the next receiver
 * gets the stream from a keyframe; other outputs report "error".
 *
 * Timeouts: connecting and writing the header may take "openTimeout"
 * seconds, one write "writeTimeout" seconds; then the destination counts as
 * gone and the module reports "error". At stop, what is queued is still
 * sent, for at most "writeTimeout" seconds, then the trailer. Stopped while
 * waiting for a receiver ("listen"), the module gives up at once and
 * reports nothing: there is nobody to finish the stream for.
 *
 * Stream descriptions (VexaMedia) make the output streams; the header is
 * written once both kinds are described, or once one kind is and enough of
 * its packets wait, or at stop. A description that changes after the header
 * is ignored (with a debug line).
 *
 * Events: "done" (value: the counters of stats()) after the trailer;
 * "error" (value: a message) when the destination cannot be reached or
 * written to.
 *
 * Thread: onNewPacketA/V copy the payload (or keep the buffer the sender
 * lends, VexaPayloadLend) and hand the packet over in the sender's thread
 * through a VexaPacketQueue; the destination is written in the module's
 * sending thread, started by onStart and joined by onStop, which takes
 * whole batches.
 */
class VEXAEXAMPLEMODULES_EXPORT VexaOutputNet : public VexaMediaSink
{
    Q_OBJECT
    Q_CLASSINFO("setting:url", "string; destination (udp, srt, tcp: MPEG-TS; rtsp: RTSP publishing; rtmp: FLV)")
    Q_CLASSINFO("setting:format", "string; container short name (default: from the URL)")
    Q_CLASSINFO("setting:transport", "enum(tcp|udp)=tcp; RTSP media transport")
    Q_CLASSINFO("setting:listen", "bool=false; wait for the receiver to connect (tcp, srt)")
    Q_CLASSINFO("setting:overflow", "enum(drop|wait)=drop; drop: a slow network drops the oldest packets, wait: hold the sender back")
    Q_CLASSINFO("setting:openTimeout", "number=5; seconds allowed to reach the destination")
    Q_CLASSINFO("setting:writeTimeout", "number=5; seconds one write may block before the destination counts as gone")
    Q_CLASSINFO("sends", "events")
    Q_CLASSINFO("accepts", "audio video")
    Q_CLASSINFO("event:done", "the stream was finished (value: counters)")
    Q_CLASSINFO("event:error", "the destination could not be reached or written to (value: message)")

public:
    Q_INVOKABLE explicit VexaOutputNet(QObject *parent = nullptr);
    ~VexaOutputNet() override;

protected:
    void onStart() override;
    void onStop() override;

private:
    struct Track {
        int index = -1;
        AVRational sourceTimeBase{0, 1};
        bool flagsInTag = false;
        bool durationInTag = false;
        int64_t lastDts = std::numeric_limits<int64_t>::min();
    };
    enum Phase { Idle = 0, Running = 1, Closing = 2 };

    void accept(const Packet &pkt, bool video) override;
    void described(const StreamInfo &info, bool video) override;
    void run();
    bool waitForDescriptions(StreamInfo infos[2]);
    void setUpTracks(const StreamInfo infos[2]);
    bool openFailed(const QString &error, bool again);
    int sendWhileOpen();
    bool sendFailed(int r);
    bool openDestination(QString *error);
    bool createMuxer(const QByteArray &format, QString *error);
    bool addStreams(QString *error);
    AVDictionary *destinationOptions(const QString &scheme, const QByteArray &format) const;
    bool writeHeader(AVDictionary **opts, QString *error);
    int writeOne(const Packet &p, bool video);
    int writeQueued(bool latestKey);
    void setQueueBounds(bool open);
    void startAtKeyframe(QVector<Packet> *batch, bool latest);
    bool isKey(const Packet &p) const;
    void finish();
    void closeMuxer();
    void fail(const QString &message);
    void dropList(QVector<Packet> &list, bool video);
    static void releaseBlock(void *opaque, uint8_t *data);

    // Shared by the senders, the worker and the sending thread; guarded by gate.
    QMutex gate;
    QWaitCondition changed;     // a batch of packets, a description or a phase change
    StreamInfo descriptions[2];    // audio, video: copies of inInfoA/V
    int phase = Idle;
    bool dropMode = true;
    int bounds[2] = {20, 20};   // -1: none
    bool opened = false;        // the destination is open
    bool listening = false;     // "listen": wait for the receiver, again once it left
    bool keyFlags = false;      // video packets carry the key flag in their tag

    // Payloads of the queued packets and of those the muxer holds: copies
    // from the heap (no ring), or the sender's own buffers where it lends them.
    VexaPayloadPool pool;
    // From the senders' threads to the sending thread; owns what it holds.
    VexaPacketQueue queue;

    const std::unique_ptr<VexaIoDeadline> io;     // when blocking calls give up
    QThread *sender = nullptr;  // worker thread only

    // Sending thread only.
    bool keyFlagsAtOpen = false;
    bool waitKey = false;       // video starts at its next keyframe
    AVFormatContext *oc = nullptr;
    AVPacket *avpkt = nullptr;
    Track tracks[2];
    qint64 firstDts = std::numeric_limits<qint64>::min();
    qint64 openTimeoutMs = 0;
    qint64 writeTimeoutMs = 0;
    QString url;
    QAtomicInt extraSkipped = 0;     // packets of a source's extra streams, not sent
};

#endif // VEXAOUTPUTNET_H
