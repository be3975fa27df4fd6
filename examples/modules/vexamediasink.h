#ifndef VEXAMEDIASINK_H
#define VEXAMEDIASINK_H

#include <functional>
#include <memory>

#include "vexaobject.h"
#include "vexaexamplemodules_export.h"

class QMutex;
class QWaitCondition;
class VexaSinkCounters;

/**
 * Base of the example modules that write what they receive through a muxer
 * (VexaOutputFile, VexaOutputNet): every packet of A and V goes to accept()
 * in the sender's thread, every description to described(), and the counters every such output reports are
 * kept here.
 *
 * Thread: onNewPacketA/V and stats() are thread-safe.
 */
class VEXAEXAMPLEMODULES_EXPORT VexaMediaSink : public VexaObject
{
    Q_OBJECT

public:
    ~VexaMediaSink() override;

    /**
     * Counters: "packetsA"/"packetsV" and "bytesA"/"bytesV" written,
     * "receivedA"/"receivedV", "droppedA"/"droppedV" and "dropped" (their
     * sum: whatever was not written, for any reason), "rejected" (of those,
     * refused by the muxer), "dropping" (true when "overflow" is "drop", so
     * drops were asked for) and "mediaUs" (media time written).
     * Thread: thread-safe (called directly through invoke()).
     */
    Q_INVOKABLE QVariant stats();

    void onNewPacketA(Packet pkt) final;
    void onNewPacketV(Packet pkt) final;

protected:
    explicit VexaMediaSink(QObject *parent = nullptr);

    /** A packet received on V (@p video) or A, in the sender's thread while its sendPacket runs. */
    virtual void accept(const Packet &pkt, bool video) = 0;
    /** A description received on V (@p video) or A (inInfoV/A already hold it), in the module's thread. */
    virtual void described(const StreamInfo &info, bool video) = 0;

    /**
     * Call with @p gate held, from accept(): waits while the module is
     * started but its worker has not run onStart yet (@p idle says so), so
     * that what a source started right after it sends is not lost. Start
     * queues onStart into the worker's thread, and the pipeline starts the
     * sources while the receivers' onStart may still be waiting there. A
     * sender in the worker's own thread cannot wait for it, nor can anyone
     * for a module that is not started: false then, and the packet is the
     * caller's to drop. @p changed is woken when onStart has run.
     */
    bool waitForWorker(QMutex *gate, QWaitCondition *changed, const std::function<bool()> &idle);

    void onNewInfoA(StreamInfo info) final;
    void onNewInfoV(StreamInfo info) final;

    const std::unique_ptr<VexaSinkCounters> counts;
};

#endif // VEXAMEDIASINK_H
