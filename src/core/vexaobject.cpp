#include "vexaobject.h"

#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include <QCoreApplication>
#include <QDebug>
#include <QMetaEnum>

#include "vexa.h"
#include "vexadelivery_p.h"
#include "vexahop_p.h"
#include "vexajson.h"
#include "vexalinktable_p.h"
#include "vexalog_p.h"
#include "vexapacketqueue.h"
#include "vexathreaduses_p.h"

namespace {

// Takes a queue lock for writing without ever blocking inside the lock call:
// producers run in other modules' threads (packets are delivered directly),
// and a short sleep between attempts keeps them from stalling on a consumer
// that holds the lock while draining.
void lockForWriteByPolling(QReadWriteLock &lock)
{
    while (!lock.tryLockForWrite())
        usleep(1);
}

// Appends a packet to a bounded queue. The bound counts the new packet; a
// full queue loses its oldest packet (one per call), reports it when the
// framework's debug switch is on, and the call returns false. -1: no bound.
template<typename Report>
bool appendBounded(QReadWriteLock &lock, QList<VexaObject::Packet> &queue, qint32 bound,
                   const VexaObject::Packet &pkt, Report reportFull)
{
    lockForWriteByPolling(lock);
    queue.append(pkt);
    if (bound == -1 || queue.size() < bound) {
        lock.unlock();
        return true;
    }
    if (Vexa::debug)
        reportFull(bound);
    queue.removeFirst();
    lock.unlock();
    return false;
}

// Decides whether an incoming description differs from the current one and
// takes it over if so. Only the keys the incoming description carries are
// compared (a key that disappeared alone is no change); another sender always
// counts as a change. The lookup in current.params inserts missing keys with
// a null value, as the comparison has always done.
bool acceptInfo(VexaObject::StreamInfo &current, const VexaObject::StreamInfo &info)
{
    bool changed = false;
    for (auto it = info.params.constBegin(); it != info.params.constEnd(); ++it) {
        if (current.params[it.key()] != it.value()) {
            changed = true;
            break;
        }
    }
    if (current.sender == info.sender) {
        if (current.type != info.type)
            changed = true;
        if (!changed)
            return false;
    }
    current.type = info.type;
    current.params = info.params;
    current.sender = info.sender;
    return true;
}

// The queue bounds are set in the module's thread and read by the senders'
// threads: one word, read and written whole.
qint32 loadBound(const qint32 &bound)
{
    return __atomic_load_n(&bound, __ATOMIC_RELAXED);
}

void storeBound(qint32 &bound, qint32 value)
{
    __atomic_store_n(&bound, value, __ATOMIC_RELAXED);
}


} // namespace

VexaObject::State VexaObject::loadState() const
{
    return __atomic_load_n(&state, __ATOMIC_ACQUIRE);
}

void VexaObject::storeState(State s)
{
    __atomic_store_n(&state, s, __ATOMIC_RELEASE);
}

VexaObject::VexaObject(QObject *parent)
    : QObject(parent)
{
    // A copy of a queue is always a deep copy, so a module that snapshots
    // its queue under the lock never shares the list with the producers.
    packetsA.setSharable(false);
    packetsV.setSharable(false);
    // Nothing leaves a module before its first start.
    blockSignals(true);
}

// Only a ring that destroy() handed over is released here; an object deleted
// without destroy() keeps its ring, as it always has.
VexaObject::~VexaObject()
{
    VexaLinkTable::forget(this);
    VexaThreadUses::takeAll(this);
    if (payloadArena.releaseOnDelete)
        std::free(payloadArena.base);
}

bool VexaObject::setData(QString json)
{
    return setData(Json::decode(json).toMap());
}

bool VexaObject::setData(QVariantMap data)
{
    if (loadState() != started) {
        for (auto it = data.constBegin(); it != data.constEnd(); ++it)
            pendingData.insert(it.key(), it.value());
        return true;
    }
    if (VexaHop::hasEventLoop())
        QMetaObject::invokeMethod(this, "onSetDataPriv", Qt::QueuedConnection, Q_ARG(QVariantMap, data));
    else
        onSetDataPriv(data);
    return true;
}

void VexaObject::onSetDataPriv(QVariantMap data)
{
    const QStringList keys = data.keys();
    for (const QString &key : keys) {
        // Inserting lookup: a key the module never had compares as an
        // invalid variant, i.e. unequal to any real value.
        QVariant &current = settings[key];
        const QVariant value = data.value(key);
        if (current == value) {
            data.remove(key);
        } else {
            current = value;
            userData.insert(key, value);
        }
    }
    if (data.contains(QStringLiteral("bufLenA")))
        storeBound(bufLenA, data.value(QStringLiteral("bufLenA")).toInt());
    if (data.contains(QStringLiteral("bufLenV")))
        storeBound(bufLenV, data.value(QStringLiteral("bufLenV")).toInt());
    if (data.contains(QStringLiteral("debugLevel")))
        debugLevel = data.value(QStringLiteral("debugLevel")).toInt();
    if (data.isEmpty())
        return;
    onSetData(data);
}

QVariantMap VexaObject::getData()
{
    QVariantMap result;
    // Without an application object nothing was moved and there is no event
    // loop to hop through: read in the caller, as in the object's own thread.
    const bool hop = loadState() == started && !VexaHop::runsHere(this);
    QMetaObject::invokeMethod(this, "doGetData", hop ? Qt::BlockingQueuedConnection : Qt::DirectConnection,
                              Q_RETURN_ARG(QVariantMap, result));
    return result;
}

QVariantMap VexaObject::doGetData()
{
    return settings;
}

QVariantMap VexaObject::getUserData()
{
    return userData;
}

bool VexaObject::start()
{
    const State from = loadState();
    if (from == started)
        return false;
    if (from == created)
        settleBounds();

    storeState(started);
    blockSignals(false);
    // The module's packet queues take packets again.
    VexaPacketQueue::ownerRunning(this, true);

    if (!VexaHop::hasEventLoop()) {
        if (!pendingData.isEmpty()) {
            onSetDataPriv(pendingData);
            pendingData.clear();
        }
        onStart();
    } else {
        moveToWorkerThread();
        if (!pendingData.isEmpty()) {
            QMetaObject::invokeMethod(this, "onSetDataPriv", Qt::QueuedConnection, Q_ARG(QVariantMap, pendingData));
            pendingData.clear();
        }
        QMetaObject::invokeMethod(this, "onStart", Qt::QueuedConnection);
    }
    replayParkedInfo();
    return true;
}

// The queue bounds and the payload ring are settled once, at the first
// start; a restart keeps them.
void VexaObject::settleBounds()
{
    for (const char *key : {"bufLenA", "bufLenV", "memSize"}) {
        const QString k = QLatin1String(key);
        if (pendingData.contains(k))
            settings.insert(k, pendingData.value(k));
    }
    storeBound(bufLenA, settings.contains(QStringLiteral("bufLenA")) ? settings.value(QStringLiteral("bufLenA")).toInt() : 20);
    storeBound(bufLenV, settings.contains(QStringLiteral("bufLenV")) ? settings.value(QStringLiteral("bufLenV")).toInt() : 20);
    memInit(settings.contains(QStringLiteral("memSize")) ? settings.value(QStringLiteral("memSize")).toInt() : 0);
}

// The thread the object lives in from its start: the main thread, a shared
// one by threadName, or one of its own. Each use of a registry thread taken
// here is given back by destroy().
void VexaObject::moveToWorkerThread()
{
    if (threadName == QLatin1String("main")) {
        moveToThread(QCoreApplication::instance()->thread());
    } else if (threadName.isEmpty()) {
        QString own = name();
        moveToThread(Vexa::newThread(own, threadPriority));
        VexaThreadUses::took(this, own);
    } else {
        moveToThread(Vexa::newThread(threadName, threadPriority));
        VexaThreadUses::took(this, threadName);
    }
}

// Descriptions that arrived before the start reach the module after onStart,
// once each (the last one of each kind); directly when there is no event
// loop to post to.
void VexaObject::replayParkedInfo()
{
    for (const bool video : {false, true}) {
        StreamInfo &pending = video ? pendingInfoV : pendingInfoA;
        if (pending.type != 0) {
            const StreamInfo parked = pending;
            pending.type = 0;
            postInfo(video, parked);
        }
    }
}

bool VexaObject::start(QVariantMap data)
{
    return setData(data) ? start() : false;
}

bool VexaObject::start(QString json)
{
    return setData(json) ? start() : false;
}

bool VexaObject::stop(bool block)
{
    if (loadState() != started)
        return false;
    storeState(stoped);
    // Senders held back by the module's packet queues return now, not once
    // onStop has run, and what they send from here on is dropped.
    VexaPacketQueue::ownerRunning(this, false);
    if (!VexaHop::hasEventLoop()) {
        onStop();
        return true;
    }
    // A blocking stop from the object's own thread runs onStop at once:
    // waiting for its own event loop would never end.
    const Qt::ConnectionType type = !block                   ? Qt::QueuedConnection
                                   : VexaHop::runsHere(this) ? Qt::DirectConnection
                                                             : Qt::BlockingQueuedConnection;
    QMetaObject::invokeMethod(this, "onStop", type);
    return true;
}

void VexaObject::setThreadName(const QString &name)
{
    threadName = name;
}

QString VexaObject::name()
{
    return property("name").toString();
}

QString VexaObject::getState()
{
    const QMetaEnum e = staticMetaObject.enumerator(staticMetaObject.indexOfEnumerator("State"));
    return QString::fromLatin1(e.valueToKey(loadState()));
}

void VexaObject::destroy()
{
    if (loadState() == started)
        stop(false);
    storeState(destroyed);
    // Give back the thread uses this object's starts took. Network inputs
    // ("InputRtsp...") keep theirs for good: their sessions may still deliver
    // into the thread after the module is gone.
    QStringList uses = VexaThreadUses::takeAll(this);
    if (name().startsWith(QLatin1String("InputRtsp")))
        uses.clear();
    Vexa::delObject(this);
    // No link delivers into the object from here on, and no delivery that
    // began earlier is still running in it.
    VexaLinkTable::cutInto(this);
    // The payload ring goes with the object, after onStop: a module that
    // flushes queued payloads in onStop never reads freed memory.
    payloadArena.releaseOnDelete = true;
    if (!VexaHop::hasEventLoop()) {
        // onStop has run in stop(), and no event loop would ever run a
        // deferred delete.
        delete this;
        return;
    }
    // Another thread may delete this object as soon as deleteLater() is
    // called: touch nothing of it afterwards. The deferred delete is posted
    // before the threads are released: a last release quits the thread,
    // which then runs only what was posted before it finished.
    deleteLater();
    for (const QString &thread : qAsConst(uses))
        Vexa::delThread(thread);
}

void VexaObject::memInit(int size)
{
    if (size < 1 || payloadArena.base)
        return;
    payloadArena.base = static_cast<char *>(std::malloc(size));
    if (!payloadArena.base)
        return;
    payloadArena.pos = payloadArena.base;
    payloadArena.size = size;
}

char *VexaObject::bufferData(char *src, int len, int headroom)
{
    if (!payloadArena.base || len < 0 || headroom < 0)
        return nullptr;
    const qint32 total = len + headroom;
    if (total > payloadArena.size)
        return nullptr;
    // A block never wraps: if it would reach the end of the ring, it starts
    // again at the base.
    char *block = payloadArena.pos + total < payloadArena.base + payloadArena.size ? payloadArena.pos
                                                                                 : payloadArena.base;
    payloadArena.pos = block + total;
    char *out = block + headroom;
    if (src)
        std::memcpy(out, src, len);
    return out;
}

QVariant VexaObject::invoke(QString name, QVariant arg)
{
    QVariant result;
    if (loadState() != started)
        return result;
    // Called from the object's own thread, a blocking call would wait for
    // itself: it runs directly, as a listed name does.
    const Qt::ConnectionType type = VexaHop::runsHere(this) || directInvokeNames.contains(name)
        ? Qt::DirectConnection
        : Qt::BlockingQueuedConnection;
    const QByteArray method = name.toLatin1();
    if (arg.isValid())
        QMetaObject::invokeMethod(this, method.constData(), type, Q_RETURN_ARG(QVariant, result), Q_ARG(QVariant, arg));
    else
        QMetaObject::invokeMethod(this, method.constData(), type, Q_RETURN_ARG(QVariant, result));
    return result;
}

// The delivery scope lets an unlink or a destroy in another thread wait until
// the linked receivers' hooks running from this send have returned. The
// packet is handed to the signal by address, as the generated signal body
// does, so that it is not copied once more on this hot path; the signals'
// indices are fixed by the published meta-interface.
void VexaObject::sendPacketA(Packet pkt)
{
    pkt.sender = this;
    VexaDelivery::Scope delivering(this);
    void *args[] = {nullptr, &pkt};
    QMetaObject::activate(this, &staticMetaObject, 1, args); // newPacketA(Packet)
}

void VexaObject::sendPacketV(Packet pkt)
{
    pkt.sender = this;
    VexaDelivery::Scope delivering(this);
    void *args[] = {nullptr, &pkt};
    QMetaObject::activate(this, &staticMetaObject, 2, args); // newPacketV(Packet)
}

bool VexaObject::bufferPacketA(Packet pkt)
{
    return appendBounded(lockA, packetsA, loadBound(bufLenA), pkt, [this](qint32 bound) {
        qCDebug(lcVexaCore, "[%s] bufA full %d", qUtf8Printable(name()), bound);
    });
}

bool VexaObject::bufferPacketV(Packet pkt)
{
    return appendBounded(lockV, packetsV, loadBound(bufLenV), pkt, [this](qint32 bound) {
        // settings["path"] is an inserting lookup: after the first report an
        // object without a "path" setting has one with a null value. Modules
        // have long relied on the key being there, so it stays that way, also
        // when the category's debug level is switched off. The name is
        // printed as it is, whatever characters it holds.
        QDebug line = QMessageLogger(QT_MESSAGELOG_FILE, QT_MESSAGELOG_LINE, QT_MESSAGELOG_FUNC).debug(lcVexaCore());
        line.noquote() << QLatin1Char('[') + name() + QLatin1String("] bufV full ") + QString::number(bound);
        line.quote() << settings[QStringLiteral("path")].toString();
    });
}

void VexaObject::sendInfoA(StreamInfo info)
{
    info.sender = this;
    emit newInfoA(info);
}

void VexaObject::sendInfoV(StreamInfo info)
{
    info.sender = this;
    emit newInfoV(info);
}

bool VexaObject::invokeInfoA(StreamInfo info)
{
    return postInfo(false, info);
}

bool VexaObject::invokeInfoV(StreamInfo info)
{
    return postInfo(true, info);
}

// Without an application object there is no event loop to queue to: the
// description is handled at once.
bool VexaObject::postInfo(bool video, const StreamInfo &info)
{
    if (!VexaHop::hasEventLoop()) {
        takeInfo(video, info);
        return true;
    }
    return QMetaObject::invokeMethod(this, video ? "onNewInfoVPriv" : "onNewInfoAPriv", Qt::QueuedConnection,
                                     Q_ARG(StreamInfo, info));
}

void VexaObject::onNewInfoAPriv(StreamInfo info)
{
    takeInfo(false, info);
}

void VexaObject::onNewInfoVPriv(StreamInfo info)
{
    takeInfo(true, info);
}

// Parked until start; accepted once started, and handed to the module when
// it is a change.
void VexaObject::takeInfo(bool video, const StreamInfo &info)
{
    if (loadState() != started) {
        (video ? pendingInfoV : pendingInfoA) = info;
        return;
    }
    StreamInfo &current = video ? inInfoV : inInfoA;
    if (acceptInfo(current, info))
        video ? onNewInfoV(current) : onNewInfoA(current);
}

VexaObject::StreamInfo VexaObject::getStreamInfoA()
{
    return outInfoA;
}

VexaObject::StreamInfo VexaObject::getStreamInfoV()
{
    return outInfoV;
}

void VexaObject::sendEvent(QString type, QVariant value)
{
    emit newEvent(type, value);
}

void VexaObject::onUnLinkAPriv(StreamInfo info)
{
    // Only the departing current source clears the input format; its
    // parameters stay for the module to look at.
    if (inInfoA.sender == info.sender)
        inInfoA.type = 0;
    onUnLinkA(info);
}

void VexaObject::onUnLinkVPriv(StreamInfo info)
{
    if (inInfoV.sender == info.sender)
        inInfoV.type = 0;
    onUnLinkV(info);
}

VexaObject *VexaObject::linkA(VexaObject *dst)
{
    return Vexa::linkA(this, dst);
}

VexaObject *VexaObject::linkV(VexaObject *dst)
{
    return Vexa::linkV(this, dst);
}

VexaObject *VexaObject::linkE(VexaObject *dst)
{
    return Vexa::linkE(this, dst);
}

VexaObject *VexaObject::unLinkA(VexaObject *dst)
{
    Vexa::unLinkA(this, dst);
    return dst;
}

VexaObject *VexaObject::unLinkV(VexaObject *dst)
{
    Vexa::unLinkV(this, dst);
    return dst;
}

VexaObject *VexaObject::unLinkE(VexaObject *dst)
{
    Vexa::unLinkE(this, dst);
    return dst;
}

// Module hooks: empty here, overridden by modules.
void VexaObject::onNewPacketA(Packet) {}
void VexaObject::onNewPacketV(Packet) {}
void VexaObject::onUnLinkA(StreamInfo) {}
void VexaObject::onUnLinkV(StreamInfo) {}
void VexaObject::onNewEvent(QString, QVariant) {}
void VexaObject::onNewInfoA(StreamInfo) {}
void VexaObject::onNewInfoV(StreamInfo) {}
void VexaObject::onSetData(QVariantMap) {}
void VexaObject::onStart() {}
void VexaObject::onStop() {}

namespace {

// The queue is swapped out, not copied; the list left behind is made
// unsharable again, as the constructor makes it.
QList<VexaObject::Packet> takeAll(QReadWriteLock &lock, QList<VexaObject::Packet> &queue)
{
    QList<VexaObject::Packet> taken;
    lock.lockForWrite();
    taken.swap(queue);
    queue.setSharable(false);
    lock.unlock();
    return taken;
}

} // namespace

QList<VexaObject::Packet> VexaObject::takePacketsA()
{
    return takeAll(lockA, packetsA);
}

QList<VexaObject::Packet> VexaObject::takePacketsV()
{
    return takeAll(lockV, packetsV);
}
