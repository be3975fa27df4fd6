#ifndef VEXARTSPSERVER_H
#define VEXARTSPSERVER_H

#include <QMutex>

#include <memory>

#include "vexamediasink.h"
#include "vexaexamplemodules_export.h"

class VexaRtspService;

/**
 * Sink module: an RTSP server that serves the audio and video packets it
 * receives at "url" (rtsp://address:port/path) to any number of viewers, as
 * an IP camera does. Viewers use DESCRIBE, SETUP, PLAY and TEARDOWN, with
 * RTP over UDP or interleaved in the RTSP connection (TCP).
 *
 * The address of "url" is where the server listens: 127.0.0.1 for this
 * machine only, 0.0.0.0 for every interface, or one address of this
 * machine; without a port, 554. "maxViewers" bounds the viewers served at
 * once (0: no bound); one more is answered "503 Service Unavailable".
 *
 * Codecs: H.264 and H.265 video, AAC audio; the parameter sets may come in
 * the description's extradata (avcC/hvcC or Annex B) or in the stream.
 * Another video codec is an error; another audio codec is left out (with a
 * debug line), its packets counted as dropped.
 *
 * Viewers: each viewer gets the stream from a keyframe: a viewer joining
 * late starts with the latest group of pictures, which the module keeps,
 * then goes on live. Each viewer has a sending pipeline of its own, fed the
 * same payload buffers (no copy per viewer), so a viewer that leaves, or
 * reads slowly, changes nothing for the others; a slow viewer loses
 * packets of its own. The path is served once the streams are described (both
 * kinds, or one kind and some of its packets); until then a viewer is
 * answered "404 Not Found".
 *
 * Settings are read at start; bad ones, a port already in use or a missing
 * media plugin make the start fail: the module sends "error" and serves
 * nothing until it is started again.
 *
 * Events: "error" (value: a message). stats(): the counters of every output
 * ("packetsA"/"packetsV" are the packets served), with "viewers" (the
 * viewers being served) and "dropping" true (slow viewers lose packets).
 *
 * Thread: onNewPacketA/V hand each packet to the viewers in the sender's
 * thread; the server runs its own threads, started by onStart and ended by
 * onStop (within a few seconds, whatever the viewers do).
 */
class VEXAEXAMPLEMODULES_EXPORT VexaRtspServer : public VexaMediaSink
{
    Q_OBJECT
    Q_CLASSINFO("setting:url", "string=rtsp://127.0.0.1:8554/live; where to serve: rtsp://address:port/path (address 0.0.0.0: every interface)")
    Q_CLASSINFO("setting:maxViewers", "int=0; viewers served at once, 0 for no bound")
    Q_CLASSINFO("sends", "events")
    Q_CLASSINFO("accepts", "audio video")
    Q_CLASSINFO("platform", "unused")
    Q_CLASSINFO("event:error", "the server could not start, or cannot serve the stream (value: message)")

public:
    Q_INVOKABLE explicit VexaRtspServer(QObject *parent = nullptr);
    ~VexaRtspServer() override;

    /**
     * The counters of VexaMediaSink::stats() and "viewers", the viewers
     * being served now. Thread: thread-safe (called directly through invoke()).
     */
    Q_INVOKABLE QVariant stats();

protected:
    void onStart() override;
    void onStop() override;

private:
    void accept(const Packet &pkt, bool video) override;
    void described(const StreamInfo &info, bool video) override;
    void serveWhenDescribed();
    bool videoServable(const StreamInfo &info);
    void fail(const QString &message);

    // Shared by the senders and the worker; guarded by gate.
    QMutex gate;
    StreamInfo descriptions[2];     // audio, video
    int waiting[2] = {0, 0};        // packets received before the path is served
    bool running = false;           // started and not failed
    bool served = false;            // the path is served
    bool serving[2] = {false, false};   // the kinds in the served stream
    bool keyFlags = false;          // video packets carry the key flag in their tag
    qint64 firstTime = 0;           // of the first packet served, for the media time

    const std::unique_ptr<VexaRtspService> service;   // opened by onStart, closed by onStop
};

#endif // VEXARTSPSERVER_H
