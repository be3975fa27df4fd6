#ifndef VEXAENCODER_H
#define VEXAENCODER_H

#include <QAtomicInteger>
#include <QByteArray>
#include <QElapsedTimer>

#include "vexaobject.h"
#include "vexaboardmodules_export.h"

class QSocketNotifier;
class QTimer;
class VexaTeeChn;

/**
 * Encoder module: a VENC channel fed from a channel of the tee its V input
 * describes (VexaBoard::PictureStream), bound with VexaHi::bindFromTee.
 *
 * Settings: "codec" (h264, h265, mjpeg, or jpeg for snapshots), "width" and
 * "height" (0: the source's size; the tee channel scales), "fps" (0: the
 * source's), "bitrate" (kb/s), "rcmode" (cbr, vbr, avbr, fixqp), "gop"
 * (pictures from one IDR to the next; 0: two seconds), "profile" (baseline,
 * main, high), "minqp"/"maxqp" (vbr), "qp" (fixqp; JPEG quality factor for
 * mjpeg fixqp), "vui" (false leaves the video-signal description out),
 * "channel" (-1: the first free).
 *
 * Each access unit goes out on V as one packet: Annex-B bytes, pts in
 * microseconds from the first picture, keyframe flag in tag; the V
 * description (VexaBoard::CompressedStream) carries the codec, size, frame
 * rate and the parameter sets as extradata, as the file and network
 * modules expect. With "snapshot" > 0 and codec jpeg it sends nothing and
 * writes one JPEG picture every "snapshot" seconds to "path" (%1: the
 * picture's number).
 *
 * The channel's descriptor is watched in the module's thread; the channel
 * is made when the tee is known and given back (unbound, stopped,
 * destroyed, tee channel released) on unlink, on a description without a
 * tee, and on stop.
 *
 * Events: receives "keyframe" (the next picture is an IDR picture); sends
 * "snapshot" (value: the file written) and "error" (value: a message).
 *
 * Thread: everything but stats() runs in the module's worker thread.
 */
class VEXABOARDMODULES_EXPORT VexaEncoder : public VexaObject
{
    Q_OBJECT
    Q_CLASSINFO("setting:codec", "enum(h264|h265|mjpeg|jpeg)=h264; what to encode to (jpeg: snapshots)")
    Q_CLASSINFO("setting:width", "int=0; coded width (0: the source's)")
    Q_CLASSINFO("setting:height", "int=0; coded height (0: the source's)")
    Q_CLASSINFO("setting:fps", "int=0; pictures per second (0: the source's)")
    Q_CLASSINFO("setting:bitrate", "int=2000; rate in kb/s (cbr target, vbr and avbr ceiling)")
    Q_CLASSINFO("setting:rcmode", "enum(cbr|vbr|avbr|fixqp)=cbr; rate control")
    Q_CLASSINFO("setting:gop", "int=0; pictures from one IDR picture to the next (0: two seconds)")
    Q_CLASSINFO("setting:profile", "enum(baseline|main|high)=main; H.264 profile (H.265: main only)")
    Q_CLASSINFO("setting:minqp", "int=16; smallest QP (vbr)")
    Q_CLASSINFO("setting:maxqp", "int=48; largest QP (vbr)")
    Q_CLASSINFO("setting:qp", "int=30; QP of fixqp (mjpeg: quality factor 1-99)")
    Q_CLASSINFO("setting:vui", "bool=true; write the video-signal description into the stream")
    Q_CLASSINFO("setting:snapshot", "number=0; seconds between JPEG snapshots (codec jpeg)")
    Q_CLASSINFO("setting:path", "string=snapshot-%1.jpg; snapshot files (%1: the number)")
    Q_CLASSINFO("setting:channel", "int=-1; VENC channel (-1: the first free)")
    Q_CLASSINFO("sends", "video events")
    Q_CLASSINFO("accepts", "video events")
    Q_CLASSINFO("videoInput", "tee")
    Q_CLASSINFO("event:keyframe", "received: the next picture is an IDR picture")
    Q_CLASSINFO("event:snapshot", "a snapshot was written (value: file)")
    Q_CLASSINFO("event:error", "the encoder could not be set up (value: message)")

public:
    Q_INVOKABLE explicit VexaEncoder(QObject *parent = nullptr);
    ~VexaEncoder() override;

    /** "packetsV", "bytesV", "dropped" (0), "keyframes", "snapshots", "channel", "mediaUs". Thread: thread-safe. */
    Q_INVOKABLE QVariant stats();
    /** Why @p settings cannot work, or an empty string. */
    Q_INVOKABLE QString checkSetup(QVariantMap settings, QVariantMap links);

protected:
    void onStart() override;
    void onStop() override;
    void onSetData(QVariantMap data) override;
    void onNewInfoV(StreamInfo info) override;
    void onUnLinkV(StreamInfo info) override;
    void onNewEvent(QString type, QVariant value) override;

private:
    bool attach(const QVariantMap &source);
    void detach();
    void fail(const QString &message);
    void readStreams();
    bool readOne();
    void snapshotDue();
    void describe(const QByteArray &parameterSets);

    QString codec;
    bool snapshots = false;
    int chn = -1;
    bool created = false;
    VexaTeeChn *teeChn = nullptr;
    QSocketNotifier *notifier = nullptr;
    QTimer *snapshotTimer = nullptr;
    int fd = -1;
    int width = 0, height = 0, fps = 0;
    qint64 firstPts = -1;
    int snapshotNumber = 0;
    bool described = false;
    QVariantMap attachedTo; // the tee description the channel was made for
    QByteArray frame;

    QAtomicInteger<qint64> packets = 0, bytes = 0, keyframes = 0, snaps = 0, mediaUs = 0;
    QAtomicInteger<int> channelNumber = -1;
};

#endif // VEXAENCODER_H
