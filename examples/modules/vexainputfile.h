#ifndef VEXAINPUTFILE_H
#define VEXAINPUTFILE_H

#include <QAtomicInteger>

#include <limits>
#include <memory>

#include "vexaobject.h"
#include "vexaexamplemodules_export.h"

struct AVStream;
class VexaDemuxer;

/**
 * Source module: demuxes a media file with libavformat and sends the best
 * video stream on V and the best audio stream on A. Other streams are
 * skipped, unless "streams" is "all": then they are sent on A too, as the
 * "extraStreams" of the A description, each packet marked with
 * VexaMedia::TagExtraStream (what `ffmpeg -map 0 -c copy` carries; an
 * output that takes them writes them, other receivers skip them).
 *
 * Settings: "path" (file to read), "loop" (restart at the end, timestamps keep
 * counting up; default false), "realtime" (pace packets by their decode
 * timestamps; default false: as fast as the receivers take them),
 * "copyTimestamps" (default false: timestamps are moved so that the file
 * starts at 0, and in containers whose timestamps may restart, such as
 * MPEG-TS files joined end to end, a restart is taken out, as a remux by
 * `ffmpeg -c copy` does; true: the file's own timestamps).
 *
 * Before the first packet, outInfoA/outInfoV are set to the streams'
 * descriptions (VexaMedia::describe) and sent. Packets carry timestamps in
 * microseconds, the packet flags and the duration in tag (see VexaMedia). The payload
 * belongs to the module and is valid only while sendPacketA/V runs.
 *
 * Events: "eos" (value: the module's name) at the end of the file unless
 * looping; "error" (value: a message) when the file cannot be opened or read.
 *
 * Thread: the file is read in the module's worker thread, a batch of packets
 * per posted call, so stop and settings are handled between batches.
 */
class VEXAEXAMPLEMODULES_EXPORT VexaInputFile : public VexaObject
{
    Q_OBJECT
    Q_CLASSINFO("setting:path", "input; media file to read")
    Q_CLASSINFO("setting:loop", "bool=false; restart at the end of the file, timestamps keep counting up")
    Q_CLASSINFO("setting:realtime", "bool=false; pace packets by their timestamps (live-source behaviour)")
    Q_CLASSINFO("setting:copyTimestamps", "bool=false; send the file's own timestamps (default: start at 0, restarts taken out)")
    Q_CLASSINFO("setting:streams", "enum(best|all)=best; best: the best video on V and audio on A; all: every other stream of the file too, on A")
    Q_CLASSINFO("sends", "audio video events")
    Q_CLASSINFO("accepts", "none")
    Q_CLASSINFO("platform", "unused")
    Q_CLASSINFO("event:eos", "the file ended (value: module name)")
    Q_CLASSINFO("event:error", "the file could not be opened or read (value: message)")

public:
    Q_INVOKABLE explicit VexaInputFile(QObject *parent = nullptr);
    ~VexaInputFile() override;

    /**
     * Counters: "packetsA", "packetsV", "bytesA", "bytesV", "dropped" (always 0),
     * "loops", "mediaUs" (media time sent so far). Thread: thread-safe (called directly through invoke()).
     */
    Q_INVOKABLE QVariant stats();

    /**
     * The side data of the packet being sent (see VexaMedia::TagSideData):
     * bytes by AVPacketSideDataType number. Thread: only in the sending
     * thread while sendPacketA/V runs (called directly through invoke()).
     */
    Q_INVOKABLE QVariant packetSideData();
    /**
     * The extra stream number of the packet being sent (see
     * VexaMedia::TagExtraStream), -1 for the best audio or video stream.
     * Thread: only in the sending thread while sendPacketA runs (called
     * directly through invoke()).
     */
    Q_INVOKABLE QVariant packetStream();

protected:
    void onStart() override;
    void onStop() override;
    void onSetData(QVariantMap data) override;

private:
    bool openFile();
    void closeFile();
    void readSome();
    bool rewind();
    void fail(const QString &message);
    void sendCurrent();
    void followDecodeTime(bool video, const AVStream *st, qint64 *pts, qint64 *dts);

    const std::unique_ptr<VexaDemuxer> demux;  // worker thread only, but its counters
    bool running = false;
    bool loop = false;
    bool realtime = false;
    bool copyTimestamps = false;
    bool allStreams = false;

    // Timestamps sent = the file's + startShift + discontShift + loopOffset, us.
    qint64 startShift = 0;          // minus the file's start time
    qint64 discontShift = 0;        // restarts taken out so far in this pass
    bool canRestartTimestamps = false;
    qint64 lastDecodeTime = 0;      // of any stream, as sent
    struct Track {
        qint64 lastDts = std::numeric_limits<qint64>::min();
        qint64 nextDts = std::numeric_limits<qint64>::min();  // predicted; min: none yet
    };
    Track tracks[2];                // audio, video

    qint64 firstTs = 0;             // smallest first timestamp of the file, us
    bool firstTsKnown = false;
    qint64 loopOffset = 0;          // added to every timestamp of the current pass, us
    qint64 passEnd = 0;             // latest timestamp + duration sent, us, offset included
    qint64 passPackets = 0;         // packets sent in the current pass

    QAtomicInteger<qint32> loops = 0;
};

#endif // VEXAINPUTFILE_H
