#include "vexapacketqueue.h"

#include <QDeadlineTimer>
#include <QHash>
#include <QMutexLocker>
#include <QThread>

#include "vexapayloadpool.h"

namespace {

// The queues of each owner, for its start() and stop(). Never destroyed: a
// worker thread may still stop an owner while the process exits.
struct Registry {
    QMutex mutex;
    QMultiHash<const VexaObject *, VexaPacketQueue *> queues;
};
Registry &registry()
{
    static Registry *const r = new Registry;
    return *r;
}

// b - a, or 0 when it does not fit in 64 bits (a timestamp meaning "none").
qint64 span(qint64 a, qint64 b)
{
    qint64 d;
    return __builtin_sub_overflow(b, a, &d) ? 0 : d;
}

} // namespace

VexaPacketQueue::VexaPacketQueue(VexaObject *owner)
    : owner(owner)
{
    if (owner) {
        QMutexLocker locker(&registry().mutex);
        registry().queues.insert(owner, this);
        closed = owner->getState() != QLatin1String("started");
    }
}

VexaPacketQueue::~VexaPacketQueue()
{
    if (owner) {
        QMutexLocker locker(&registry().mutex);
        registry().queues.remove(owner, this);
    }
    close();
    clear();
}

void VexaPacketQueue::ownerRunning(const VexaObject *owner, bool running)
{
    QMutexLocker locker(&registry().mutex);
    const auto range = registry().queues.equal_range(owner);
    for (auto it = range.first; it != range.second; ++it)
        running ? it.value()->open() : it.value()->close();
}

void VexaPacketQueue::setLimits(Kind kind, const Limits &limits)
{
    QMutexLocker locker(&mutex);
    lanes[kind].limits = limits;
    // Looser bounds may let held-back senders go on.
    room.wakeAll();
}

VexaPacketQueue::Limits VexaPacketQueue::limits(Kind kind) const
{
    QMutexLocker locker(&mutex);
    return lanes[kind].limits;
}

void VexaPacketQueue::setOverflow(Overflow overflow)
{
    QMutexLocker locker(&mutex);
    rule = overflow;
    room.wakeAll();
}

VexaPacketQueue::Overflow VexaPacketQueue::overflow() const
{
    QMutexLocker locker(&mutex);
    return rule;
}

void VexaPacketQueue::setHoldBackTimeout(int ms)
{
    QMutexLocker locker(&mutex);
    holdBackMs = ms;
}

void VexaPacketQueue::setWakeHandler(std::function<void()> handler)
{
    QMutexLocker locker(&mutex);
    onWake = std::move(handler);
}

void VexaPacketQueue::setWakeThreshold(int packets)
{
    QMutexLocker locker(&mutex);
    wakeThreshold = qMax(1, packets);
}

void VexaPacketQueue::setDropHandler(std::function<void(const Packet &, Kind)> handler)
{
    QMutexLocker locker(&mutex);
    onDrop = std::move(handler);
}

void VexaPacketQueue::setPayloadPool(VexaPayloadPool *p)
{
    QMutexLocker locker(&mutex);
    pool = p;
}

void VexaPacketQueue::setConsumerThread(QThread *thread)
{
    QMutexLocker locker(&mutex);
    consumer = thread;
}

// With the lock held: whether @p pkt may join @p lane within its bounds.
bool VexaPacketQueue::fits(const Lane &lane, const Packet &pkt) const
{
    const Limits &l = lane.limits;
    const int n = lane.size();
    if (l.packets >= 0 && n >= l.packets)
        return false;
    if (n == 0)
        return true;   // a packet larger than the byte or time bound alone
    if (l.bytes >= 0 && lane.bytes + qMax(0, pkt.len) > l.bytes)
        return false;
    if (l.duration >= 0 && span(lane.items.at(lane.head).pts, pkt.pts) > l.duration)
        return false;
    return true;
}

bool VexaPacketQueue::consumerThreadIsCurrent() const
{
    QThread *const current = QThread::currentThread();
    if (consumer)
        return consumer == current;
    return owner && owner->thread() == current;
}

// With the lock held: whether the wake handler is to be called now (@p full:
// a sender found the queue of @p lane full); marks it called until the next take.
bool VexaPacketQueue::wakeDue(bool full, const Lane &lane)
{
    if (signalled || (!full && lane.size() < wakeThreshold))
        return false;
    signalled = true;
    return true;
}

bool VexaPacketQueue::push(const Packet &pkt, Kind kind)
{
    QVector<Packet> gone;   // dropped here, handed on without the lock
    bool queued = false;
    bool wake = false;
    {
        QMutexLocker locker(&mutex);
        Lane &lane = lanes[kind];
        // A packet bound of 0 keeps nothing: every packet is dropped at once,
        // whatever the rule (a sender held back would wait for ever).
        if (!closed && !fits(lane, pkt) && lane.limits.packets != 0) {
            wake = wakeDue(true, lane);
            switch (rule) {
            case DropNewest:
                break;
            case DropOldest:
                while (lane.size() > 0 && !fits(lane, pkt)) {
                    const Packet &old = lane.items.at(lane.head++);
                    lane.bytes -= qMax(0, old.len);
                    gone.append(old);
                }
                break;
            case HoldBack:
                if (consumerThreadIsCurrent()) {
                    // Waiting here would wait for ourselves: let the consumer
                    // drain in our place, then queue whatever room it made.
                    signalled = true;
                    wake = false;
                    locker.unlock();
                    if (onWake)
                        onWake();
                    locker.relock();
                    if (!closed) {
                        lane.items.append(pkt);
                        lane.bytes += qMax(0, pkt.len);
                        queued = true;
                    }
                    break;
                }
                {
                    QDeadlineTimer deadline(holdBackMs < 0 ? QDeadlineTimer::Forever : QDeadlineTimer(holdBackMs));
                    ++waitingSenders;
                    while (!closed && rule == HoldBack && !fits(lane, pkt) && !deadline.hasExpired()) {
                        if (wake || wakeDue(true, lane)) {
                            // The consumer must come before we wait for it.
                            wake = false;
                            locker.unlock();
                            if (onWake)
                                onWake();
                            locker.relock();
                            continue;
                        }
                        room.wait(&mutex, deadline);
                    }
                    --waitingSenders;
                    if (!closed && rule == DropOldest) {
                        while (lane.size() > 0 && !fits(lane, pkt)) {
                            const Packet &old = lane.items.at(lane.head++);
                            lane.bytes -= qMax(0, old.len);
                            gone.append(old);
                        }
                    }
                }
                break;
            }
        }
        if (!queued && !closed && fits(lane, pkt)) {
            lane.items.append(pkt);
            lane.bytes += qMax(0, pkt.len);
            queued = true;
        }
        if (queued) {
            if (waitingConsumers > 0)
                work.wakeOne();
            wake = wakeDue(false, lane) || wake;
        }
        lane.dropped += gone.size() + (queued ? 0 : 1);
    }
    if (!queued)
        gone.append(pkt);
    if (!gone.isEmpty())
        dropped(gone, kind);
    if (wake && onWake)
        onWake();
    return queued;
}

void VexaPacketQueue::dropped(QVector<Packet> &packets, Kind kind)
{
    for (const Packet &p : qAsConst(packets)) {
        if (onDrop)
            onDrop(p, kind);
        if (pool)
            pool->release(p.data);
    }
}

void VexaPacketQueue::takeLane(Lane &lane, QVector<Packet> *out)
{
    out->clear();
    if (lane.head > 0)
        lane.items.remove(0, lane.head);
    lane.head = 0;
    lane.bytes = 0;
    // The consumer's emptied vector comes back to be filled again: no
    // allocation per batch once both have grown.
    out->swap(lane.items);
}

void VexaPacketQueue::take(Batch *batch)
{
    QMutexLocker locker(&mutex);
    takeLane(lanes[Audio], &batch->audio);
    takeLane(lanes[Video], &batch->video);
    signalled = false;
    if (waitingSenders > 0 && !batch->isEmpty())
        room.wakeAll();
}

bool VexaPacketQueue::waitAndTake(Batch *batch, int timeoutMs)
{
    {
        QMutexLocker locker(&mutex);
        QDeadlineTimer deadline(timeoutMs < 0 ? QDeadlineTimer::Forever : QDeadlineTimer(timeoutMs));
        ++waitingConsumers;
        while (!closed && lanes[Audio].size() == 0 && lanes[Video].size() == 0 && !deadline.hasExpired())
            work.wait(&mutex, deadline);
        --waitingConsumers;
    }
    take(batch);
    return !batch->isEmpty();
}

void VexaPacketQueue::clear()
{
    Batch batch;
    take(&batch);
    {
        QMutexLocker locker(&mutex);
        lanes[Audio].dropped += batch.audio.size();
        lanes[Video].dropped += batch.video.size();
    }
    dropped(batch.audio, Audio);
    dropped(batch.video, Video);
}

void VexaPacketQueue::close()
{
    QMutexLocker locker(&mutex);
    closed = true;
    room.wakeAll();
    work.wakeAll();
}

void VexaPacketQueue::open()
{
    QMutexLocker locker(&mutex);
    closed = false;
}

bool VexaPacketQueue::isOpen() const
{
    QMutexLocker locker(&mutex);
    return !closed;
}

int VexaPacketQueue::count(Kind kind) const
{
    QMutexLocker locker(&mutex);
    return lanes[kind].size();
}

qint64 VexaPacketQueue::dropped(Kind kind) const
{
    QMutexLocker locker(&mutex);
    return lanes[kind].dropped;
}
