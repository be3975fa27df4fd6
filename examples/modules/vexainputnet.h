#ifndef VEXAINPUTNET_H
#define VEXAINPUTNET_H

#include <QAtomicInteger>
#include <QThread>

#include <limits>
#include <memory>

#include "vexaobject.h"
#include "vexaexamplemodules_export.h"

struct AVPacket;
class VexaDemuxer;
class VexaIoDeadline;
class VexaNetWatch;

/**
 * Source module: receives a live stream with libavformat and sends its best
 * video stream on V and its best audio stream on A.
 *
 * URLs ("url"): rtsp:// (over TCP or UDP, "transport"), rtp:// and udp://
 * carrying MPEG-TS, srt://, tcp:// (MPEG-TS), http(s):// and rtmp:// (playing
 * from a server). With "listen"
 * the module waits for the peer to connect and publish to it (tcp://,
 * srt://, rtsp:// taking ANNOUNCE/RECORD) instead of connecting itself.
 *
 * Timeouts: opening (connect and reading the stream parameters) may take
 * "openTimeout" seconds, and a source that sends nothing for "readTimeout"
 * seconds counts as gone. Both are kept by a watchdog on timerThread, which
 * also breaks a blocking read once the module is stopped.
 *
 * Reconnection: a source that goes away after it was connected (end of the
 * stream, a read error, the read timeout) is reported with the event
 * "disconnected" (value: the reason); with "reconnect" (default true) the
 * module opens the URL again after "reconnectDelay" seconds, doubling the
 * delay after every failed attempt up to "reconnectMaxDelay", and reports
 * "connected" (value: the URL) when the stream is back. "reconnectAttempts"
 * (default 0: no limit) bounds the failed attempts in a row; then the module
 * reports "error". Without "reconnect" the source going away ends the stream
 * ("eos"). A URL that cannot be opened the first time is an "error" at once:
 * a wrong address is not a source that went away; nor is one that opens but
 * ends before its first packet (an MP4 served over HTTP that cannot be read
 * without seeking). A file of known length over HTTP is not a live source:
 * its end is the end of the stream ("eos") and it is never fetched again,
 * whatever "reconnect" says. An open or read broken
 * off because the module was stopped (Ctrl-C while a listening input waits
 * for its publisher) is no error and reports nothing.
 *
 * Timestamps: microseconds, starting at 0. A packet that arrives without
 * timestamps (the first keyframe of an RTSP stream, before the first
 * sender report) gets those the stream implies: the next decode time of its
 * stream less the durations in between, or the previous one plus its
 * duration. For the first packets of a stream the module reads ahead (at
 * most 128 packets) until that next decode time comes, and gives the
 * packets before it their decode times too. After a
 * reconnection they go on
 * from the last one sent plus the time the source was away, and never go
 * back within a stream, whatever the new connection's own timestamps are.
 * Descriptions (VexaMedia::describe) are sent before the first packet and
 * again after a reconnection only when the stream really changed (another
 * codec, size, rate or extradata).
 *
 * "realtime" paces the packets by their timestamps, for sources that send
 * faster than real time (a file served over HTTP); a live source paces itself.
 *
 * Events: "connected", "disconnected", "error" (value: a message), "eos"
 * (value: the module's name) when the source goes away and "reconnect" is
 * false.
 *
 * Thread: the stream is read in the module's worker thread, one packet per
 * read, up to a batch per posted call; the watchdog and the reconnection
 * timers run on timerThread, which the first module starts and the last one
 * destroyed quits and waits for.
 */
class VEXAEXAMPLEMODULES_EXPORT VexaInputNet : public VexaObject
{
    Q_OBJECT
    Q_CLASSINFO("setting:url", "string; stream to receive (rtsp, rtp, udp, srt, tcp, http, https, rtmp)")
    Q_CLASSINFO("setting:transport", "enum(tcp|udp|auto)=tcp; RTSP media transport")
    Q_CLASSINFO("setting:listen", "bool=false; wait for the peer to connect and publish (tcp, srt, rtsp)")
    Q_CLASSINFO("setting:openTimeout", "number=5; seconds allowed to connect and read the stream parameters")
    Q_CLASSINFO("setting:readTimeout", "number=5; seconds without data after which the source counts as gone")
    Q_CLASSINFO("setting:reconnect", "bool=true; open the stream again when the source goes away")
    Q_CLASSINFO("setting:reconnectDelay", "number=0.5; seconds before the first new attempt")
    Q_CLASSINFO("setting:reconnectMaxDelay", "number=8; longest wait between attempts, seconds (the wait doubles)")
    Q_CLASSINFO("setting:reconnectAttempts", "int=0; failed attempts in a row before giving up (0: no limit)")
    Q_CLASSINFO("setting:realtime", "bool=false; pace packets by their timestamps (sources faster than real time)")
    Q_CLASSINFO("sends", "audio video events")
    Q_CLASSINFO("accepts", "none")
    Q_CLASSINFO("event:connected", "the stream is received (again) (value: url)")
    Q_CLASSINFO("event:disconnected", "the source went away (value: reason)")
    Q_CLASSINFO("event:eos", "the source went away and reconnect is off (value: module name)")
    Q_CLASSINFO("event:error", "the stream could not be opened or was lost for good (value: message)")

public:
    Q_INVOKABLE explicit VexaInputNet(QObject *parent = nullptr);
    ~VexaInputNet() override;

    /**
     * The thread the watchdog and reconnection timers of every VexaInputNet
     * run on. Started by the first module that starts, quit and waited for
     * when the last module is destroyed; the framework's SIGINT handler
     * quits it too.
     */
    static QThread timerThread;

    /**
     * Counters: "packetsA", "packetsV", "bytesA", "bytesV", "dropped" (always
     * 0), "connected" (bool), "disconnects", "reconnects", "mediaUs".
     * Thread: thread-safe (called directly through invoke()).
     */
    Q_INVOKABLE QVariant stats();

protected:
    void onStart() override;
    void onStop() override;

private:
    friend class VexaNetWatch;

    bool open(QString *error);
    void close();
    void readSome();
    void sourceLost(const QString &reason);
    void tryReconnect();
    void fail(const QString &message);
    void sendCurrent();
    bool holdForTimestamps();
    void fillBackwards(int kind);
    void sendPending();
    void dropPending();
    qint64 durationTicks(const AVPacket *pkt) const;
    void describeStreams(bool again);

    // When blocking calls give up; shared with the watchdog.
    const std::unique_ptr<VexaIoDeadline> io;

    VexaNetWatch *watch = nullptr;

    // Worker thread only, but the demuxer's counters.
    const std::unique_ptr<VexaDemuxer> demux;
    bool running = false;
    bool everConnected = false;
    bool everRead = false;      // a packet was sent since the start
    bool finite = false;        // the connection serves a file of known length (HTTP)
    bool realtime = false;
    int failedAttempts = 0;
    qint64 retryDelayMs = 0;
    qint64 openTimeoutMs = 0;
    qint64 readTimeoutMs = 0;
    QString url;

    // Sent = the connection's own + offset; offset unknown until the first
    // packet of a connection (NoOffset).
    static constexpr qint64 NoOffset = std::numeric_limits<qint64>::min();
    qint64 offset = NoOffset;
    qint64 lastEnd = std::numeric_limits<qint64>::min();  // latest timestamp + duration sent
    qint64 lostAtMs = 0;                 // steady clock when the source went away
    qint64 lastDts[2] = {std::numeric_limits<qint64>::min(), std::numeric_limits<qint64>::min()};

    // Packets read, in order, while the first packets of a stream that came
    // without timestamps wait for the next one of that stream that has them;
    // ready once every such packet has its timestamps (or the bound is hit).
    QList<AVPacket *> pending;
    bool pendingReady = false;
    int untimedWaiting[2] = {0, 0};     // per kind (0 audio, 1 video): without timestamps, still unknown
    bool pendingTimed[2] = {false, false};  // per kind: a decode time came
    bool timed[2] = {false, false};     // this connection gave the kind a timestamp

    QAtomicInt connectedNow = 0;
    QAtomicInt disconnects = 0;
    QAtomicInt reconnects = 0;
};

#endif // VEXAINPUTNET_H
