#ifndef VEXAINPUTFILE_H
#define VEXAINPUTFILE_H

#include <QAtomicInteger>
#include <QElapsedTimer>

#include "vexaobject.h"
#include "vexaexamplemodules_export.h"

struct AVFormatContext;
struct AVPacket;
class QTimer;

/**
 * Source module: demuxes a media file with libavformat and sends the best
 * video stream on V and the best audio stream on A. Other streams are skipped.
 *
 * Settings: "path" (file to read), "loop" (restart at the end, timestamps keep
 * counting up; default false), "realtime" (pace packets by their decode
 * timestamps; default false: as fast as the receivers take them).
 *
 * Before the first packet, outInfoA/outInfoV are set to the streams'
 * descriptions (VexaMedia::describe) and sent. Packets carry timestamps in
 * microseconds and the keyframe flag in tag (see VexaMedia). The payload
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
    Q_CLASSINFO("sends", "audio video events")
    Q_CLASSINFO("accepts", "none")
    Q_CLASSINFO("event:eos", "the file ended (value: module name)")
    Q_CLASSINFO("event:error", "the file could not be opened or read (value: message)")

public:
    Q_INVOKABLE explicit VexaInputFile(QObject *parent = nullptr);
    ~VexaInputFile() override;

    /**
     * Counters: "packetsA", "packetsV", "bytesA", "bytesV", "dropped" (always 0),
     * "loops". Thread: thread-safe (called directly through invoke()).
     */
    Q_INVOKABLE QVariant stats();

protected:
    void onStart() override;
    void onStop() override;
    void onSetData(QVariantMap data) override;

private:
    bool openFile();
    void closeFile();
    void readSome();
    void scheduleRead(int delayMs);
    bool rewind();
    void fail(const QString &message);
    void sendCurrent();

    AVFormatContext *fmt = nullptr; // worker thread only
    AVPacket *pkt = nullptr;
    bool havePacket = false;        // pkt holds a packet read but not yet sent (realtime wait)
    int videoIndex = -1;
    int audioIndex = -1;
    bool running = false;
    bool loop = false;
    bool realtime = false;
    bool readPosted = false;

    qint64 firstTs = 0;             // smallest first timestamp of the file, us
    bool firstTsKnown = false;
    qint64 loopOffset = 0;          // added to every timestamp of the current pass, us
    qint64 passEnd = 0;             // latest timestamp + duration sent, us, offset included
    qint64 passPackets = 0;         // packets sent in the current pass
    qint64 paceOrigin = 0;          // timestamp that maps to paceClock 0
    bool paceStarted = false;
    QElapsedTimer paceClock;
    QTimer *paceTimer = nullptr;

    QAtomicInteger<qint64> sentPacketsA = 0;   // packets sent on A; not the base class queue
    QAtomicInteger<qint64> sentPacketsV = 0;
    QAtomicInteger<qint64> bytesA = 0;
    QAtomicInteger<qint64> bytesV = 0;
    QAtomicInteger<qint32> loops = 0;
};

#endif // VEXAINPUTFILE_H
