#ifndef VEXAPACKETQUEUE_H
#define VEXAPACKETQUEUE_H

#include <QMutex>
#include <QVector>
#include <QWaitCondition>

#include <functional>

#include "vexaobject.h"
#include "vexabase_export.h"

class QThread;
class VexaPayloadPool;

/**
 * The hand-over of packets from the threads that send them to a module's
 * own thread: a sender calls push() from the module's onNewPacketA/V, the
 * module's consumer takes every queued packet at once with take() or
 * waitAndTake(), without polling.
 *
 * Bounds, per kind (audio, video), any of them: packets, payload bytes and
 * media time (the pts of the newest queued packet minus that of the oldest,
 * in the packets' own unit). A packet that alone exceeds the byte or time
 * bound is still taken when its kind's queue is empty.
 *
 * When a kind is full, the overflow rule decides:
 * - HoldBack: the sender waits for room, for at most the hold-back timeout,
 *   and is released at once when the queue closes (the owner stops or is
 *   destroyed); what it could not queue is dropped;
 * - DropOldest: the oldest packets of that kind go until the new one fits;
 * - DropNewest: the new packet goes.
 * Every packet dropped, for whatever reason, is counted per kind
 * (dropped()), given to the drop handler and its payload released to the
 * payload pool when one is set: once push() is called, the queue owns the
 * packet's payload until take() hands it to the consumer.
 *
 * A sender running in the consumer's thread never waits for itself: the
 * wake handler is called in its place (a consumer that drains there makes
 * room), and in HoldBack the packet is queued beyond the bound rather than
 * lost when no room was made.
 *
 * With an owner, the queue follows the owner's lifecycle: it takes packets
 * while the owner is started; stop() and destroy() close it (held-back
 * senders return at once and later packets are dropped, while what was
 * queued before can still be taken, in onStop for instance) and start()
 * opens it again. Without an owner, close() and open() do that by hand.
 *
 * @code
 *   // constructor
 *   queue.setPayloadPool(&pool);
 *   queue.setWakeHandler([this] {
 *       if (QThread::currentThread() == thread()) drain();                  // a sender in our thread
 *       else QMetaObject::invokeMethod(this, [this] { drain(); }, Qt::QueuedConnection);
 *   });
 *   // onStart
 *   queue.setLimits(VexaPacketQueue::Video, {settings.value("bufLenV", 20).toInt(), -1, -1});
 *   // onNewPacketV, in the sender's thread
 *   pkt.data = pool.keep(pkt.data, pkt.len);                                // the copy the queue owns
 *   queue.push(pkt, VexaPacketQueue::Video);
 *   // drain, in the module's thread
 *   VexaPacketQueue::Batch batch;
 *   queue.take(&batch);
 *   for (const Packet &p : batch.video) { use(p); pool.release(p.data); }
 * @endcode
 *
 * Thread: thread-safe. The handlers are called without the queue's lock, in
 * the sender's thread (wake, drop), or for drop in the thread that calls
 * clear() or destroys the queue.
 */
class VEXABASE_EXPORT VexaPacketQueue
{
public:
    using Packet = VexaObject::Packet;

    enum Kind { Audio = 0, Video = 1 };
    enum Overflow { HoldBack, DropOldest, DropNewest };

    /**
     * Bounds of one kind; -1 (or any negative value) means no bound of that
     * sort. A packet bound of 0 keeps nothing: every packet of that kind is
     * dropped at once.
     */
    struct Limits {
        qint32 packets = -1;
        qint64 bytes = -1;
        qint64 duration = -1;   // newest pts - oldest pts
    };

    /** What one take() hands over, oldest first per kind. */
    struct Batch {
        QVector<Packet> audio;
        QVector<Packet> video;
        bool isEmpty() const { return audio.isEmpty() && video.isEmpty(); }
        int size() const { return audio.size() + video.size(); }
    };

    /**
     * A queue for @p owner's consumer (none: a queue of its own, open until
     * close()). The owner's thread is the consumer's thread unless
     * setConsumerThread() names another.
     */
    explicit VexaPacketQueue(VexaObject *owner = nullptr);
    /** Closes the queue and drops what it still holds. No sender may be inside push(). */
    ~VexaPacketQueue();

    void setLimits(Kind kind, const Limits &limits);
    Limits limits(Kind kind) const;
    /** The rule for a full kind; HoldBack by default. */
    void setOverflow(Overflow overflow);
    Overflow overflow() const;
    /** How long a held-back sender waits, in milliseconds; -1 (the default): until room or close. */
    void setHoldBackTimeout(int ms);

    /**
     * Called in a sender's thread once per batch, not per packet: when, since
     * the last take, a kind's queue reaches the wake threshold or a sender
     * finds its kind full; and whenever a sender in the consumer's
     * thread finds its kind full. A consumer in a Qt thread posts its drain
     * there; one that waits on a descriptor writes to it. Set the handlers
     * before packets flow.
     */
    void setWakeHandler(std::function<void()> handler);
    /**
     * Packets of one kind queued since the last take that make a wake-up
     * worth it (each is a thread switch); 1 by default. Above 1, a sender
     * that pauses may leave fewer packets queued until it goes on or the
     * consumer takes for another reason.
     */
    void setWakeThreshold(int packets);
    /** Called for each packet dropped (before its payload goes back to the pool). */
    void setDropHandler(std::function<void(const Packet &, Kind)> handler);
    /** Payloads of dropped packets are released to @p pool; null: the drop handler's business. */
    void setPayloadPool(VexaPayloadPool *pool);
    /** The consumer's thread, when it is not the owner's (a sending thread of the module's own). */
    void setConsumerThread(QThread *thread);

    /**
     * Queues @p pkt under @p kind by the overflow rule. True when it was
     * queued, false when it was dropped (full, timed out, closed).
     */
    bool push(const Packet &pkt, Kind kind);

    /** Moves every queued packet into @p batch (replacing what it held) without waiting. */
    void take(Batch *batch);
    /**
     * Sleeps until a packet is queued, the queue closes or @p timeoutMs
     * pass (-1: no limit), then takes as take() does. False when it took
     * nothing.
     */
    bool waitAndTake(Batch *batch, int timeoutMs = -1);
    /** Drops everything queued (counted, handed to the drop handler). */
    void clear();

    /** Ends every hold-back and wait; later pushes are dropped. Queued packets stay takeable. */
    void close();
    void open();
    bool isOpen() const;

    /** Packets queued now, of @p kind. */
    int count(Kind kind) const;
    /** Packets of @p kind dropped since the queue was made. */
    qint64 dropped(Kind kind) const;

private:
    struct Lane {
        QVector<Packet> items;   // from head on, oldest first
        int head = 0;
        qint64 bytes = 0;
        Limits limits;
        qint64 dropped = 0;
        int size() const { return items.size() - head; }
    };
    bool fits(const Lane &lane, const Packet &pkt) const;
    bool consumerThreadIsCurrent() const;
    bool wakeDue(bool full, const Lane &lane);
    void dropped(QVector<Packet> &packets, Kind kind);
    static void takeLane(Lane &lane, QVector<Packet> *out);

    friend class VexaObject;
    // The owner's start() opens, its stop() closes every queue it owns.
    static void ownerRunning(const VexaObject *owner, bool running);

    VexaObject *const owner;
    mutable QMutex mutex;
    QWaitCondition work;     // a packet queued, or closed
    QWaitCondition room;     // a take, or closed
    Lane lanes[2];
    Overflow rule = HoldBack;
    int holdBackMs = -1;
    bool closed = false;
    bool signalled = false;  // the wake handler was called since the last take
    int waitingSenders = 0;
    int waitingConsumers = 0;
    int wakeThreshold = 1;
    QThread *consumer = nullptr;
    VexaPayloadPool *pool = nullptr;
    std::function<void()> onWake;
    std::function<void(const Packet &, Kind)> onDrop;

    Q_DISABLE_COPY(VexaPacketQueue)
};

#endif // VEXAPACKETQUEUE_H
