#ifndef VEXASINKCOUNTERS_P_H
#define VEXASINKCOUNTERS_P_H

// Not API: shared by the example modules' sources only.

#include <QAtomicInteger>
#include <QVariantMap>

class VexaObject;

/*
 * What an output module counts, per kind (audio, video): packets received,
 * written, their bytes, dropped (for any reason) and, of those, rejected by
 * the muxer; whether drops were asked for ("overflow" "drop"); the media
 * time written. toMap() is the module's stats().
 *
 * Thread: the counters are atomics, updated from the senders' threads and
 * the writing thread; rejected() is called from the writing thread only.
 */
class VexaSinkCounters
{
public:
    struct Kind {
        QAtomicInteger<qint64> received = 0;
        QAtomicInteger<qint64> written = 0;
        QAtomicInteger<qint64> bytes = 0;
        QAtomicInteger<qint64> dropped = 0;
        QAtomicInteger<qint64> rejected = 0;   // counted in dropped too
    };

    Kind &of(bool video) { return kinds[video ? 1 : 0]; }

    void setDropping(bool on) { dropping.storeRelease(on ? 1 : 0); }
    /** A packet of @p bytes written. */
    void wrote(bool video, qint64 bytes);
    /** Raises the media time written to @p us when later. */
    void reachedMedia(qint64 us);
    /**
     * A packet the muxer refused with @p error: counted as dropped and
     * rejected; the first few are said in a debug line of @p module.
     */
    void rejected(VexaObject *module, bool video, qint64 pts, int error);
    /** Starts the count of rejection lines again (a new run). */
    void resetLines() { rejectLines = 0; }

    /**
     * "packetsA"/"packetsV", "bytesA"/"bytesV", "receivedA"/"receivedV",
     * "droppedA"/"droppedV", "dropped", "rejected", "dropping", "mediaUs".
     */
    QVariantMap toMap() const;

private:
    Kind kinds[2];              // audio, video
    QAtomicInt dropping = 0;
    QAtomicInteger<qint64> mediaUs = 0;
    int rejectLines = 0;
};

#endif // VEXASINKCOUNTERS_P_H
