#ifndef VEXADECODER_H
#define VEXADECODER_H

#include <QAtomicInteger>
#include <QByteArray>

#include "vexaobject.h"
#include "vexapacketqueue.h"
#include "vexapayloadpool.h"
#include "vexaboardmodules_export.h"

class VexaTee;

/**
 * Decoder module: takes a compressed H.264, H.265 or MJPEG stream on V (as
 * the file and network modules send it), feeds a VDEC channel one record
 * per packet (vx_vdec_stream_init) and offers the pictures through a tee of
 * its own, described on V as a capture describes its tee
 * (VexaBoard::PictureStream). Streams whose parameter sets travel out of
 * band (MP4, Matroska: avcC/hvcC extradata and length-prefixed NAL units)
 * are turned into start-code form first.
 *
 * Packets are handed to the module's thread through a VexaPacketQueue that
 * holds the sender back when full (a file is decoded whole). Stop decodes
 * what was queued, ends the stream and waits (at most a few seconds) until
 * the channel has handed on every picture, then destroys tee and channel.
 *
 * Settings: "channel" (-1: the first free VDEC channel), "pictures"
 * (picture buffers of the channel).
 *
 * Events: "error" (value: a message) for a codec the decoder cannot take
 * or a channel the platform refuses.
 *
 * Thread: onNewPacketV runs in the sender's thread; the rest in the
 * module's worker thread.
 */
class VEXABOARDMODULES_EXPORT VexaDecoder : public VexaObject
{
    Q_OBJECT
    Q_CLASSINFO("setting:channel", "int=-1; VDEC channel (-1: the first free)")
    Q_CLASSINFO("setting:pictures", "int=4; picture buffers of the channel")
    Q_CLASSINFO("sends", "video events")
    Q_CLASSINFO("accepts", "video")
    Q_CLASSINFO("videoForm", "tee")
    Q_CLASSINFO("event:error", "the stream cannot be decoded (value: message)")

public:
    Q_INVOKABLE explicit VexaDecoder(QObject *parent = nullptr);
    ~VexaDecoder() override;

    /** "packetsV", "bytesV", "dropped", "tee", "channel". Thread: thread-safe. */
    Q_INVOKABLE QVariant stats();

    void onNewPacketV(Packet pkt) override;

protected:
    void onStart() override;
    void onStop() override;
    void onNewInfoV(StreamInfo info) override;
    void onUnLinkV(StreamInfo info) override;

private:
    bool open(const QVariantMap &params);
    void close(bool finish, bool announce = true);
    void drain();
    void feed(const Packet &p);
    void fail(const QString &message);

    VexaPayloadPool pool;   // before the queue: the queue goes first
    VexaPacketQueue queue{this};
    VexaPacketQueue::Batch batch;

    int chn = -1;
    bool created = false;
    VexaTee *tee = nullptr;
    int lengthSize = 0;     // NAL length prefix of the input, 0: start codes
    QByteArray headers;     // parameter sets in start-code form, sent before the first packet
    QByteArray annexB;
    bool failed = false;
    QVariantMap openedWith; // the description the channel was made for

    QAtomicInteger<qint64> packets = 0, bytes = 0;
    QAtomicInteger<int> teeId = -1, channelNumber = -1;
};

#endif // VEXADECODER_H
