#include "vexaobject.h"

#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include <QCoreApplication>
#include <QDebug>
#include <QMetaEnum>

#include "vexa.h"
#include "vexajson.h"

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
        reportFull();
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

} // namespace

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
    if (payloadArena.releaseOnDelete)
        std::free(payloadArena.base);
}

bool VexaObject::setData(QString json)
{
    return setData(Json::decode(json).toMap());
}

bool VexaObject::setData(QVariantMap data)
{
    if (state != started) {
        for (auto it = data.constBegin(); it != data.constEnd(); ++it)
            pendingData.insert(it.key(), it.value());
        return true;
    }
    if (QCoreApplication::instance())
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
        bufLenA = data.value(QStringLiteral("bufLenA")).toInt();
    if (data.contains(QStringLiteral("bufLenV")))
        bufLenV = data.value(QStringLiteral("bufLenV")).toInt();
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
    // loop to hop through: read in the caller.
    const bool hop = state == started && QCoreApplication::instance()
        && thread() != QThread::currentThread();
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
    if (state == started)
        return false;

    if (state == created) {
        // The queue bounds and the payload ring are settled once, at the
        // first start; a restart keeps them.
        for (const char *key : {"bufLenA", "bufLenV", "memSize"}) {
            const QString k = QLatin1String(key);
            if (pendingData.contains(k))
                settings.insert(k, pendingData.value(k));
        }
        bufLenA = settings.contains(QStringLiteral("bufLenA")) ? settings.value(QStringLiteral("bufLenA")).toInt() : 20;
        bufLenV = settings.contains(QStringLiteral("bufLenV")) ? settings.value(QStringLiteral("bufLenV")).toInt() : 20;
        memInit(settings.contains(QStringLiteral("memSize")) ? settings.value(QStringLiteral("memSize")).toInt() : 0);
    }

    state = started;
    blockSignals(false);

    if (!QCoreApplication::instance()) {
        if (!pendingData.isEmpty()) {
            onSetDataPriv(pendingData);
            pendingData.clear();
        }
        onStart();
    } else {
        if (threadName == QLatin1String("main")) {
            moveToThread(QCoreApplication::instance()->thread());
        } else if (threadName.isEmpty()) {
            QString own = name();
            moveToThread(Vexa::newThread(own, threadPriority));
        } else {
            moveToThread(Vexa::newThread(threadName, threadPriority));
        }
        if (!pendingData.isEmpty()) {
            QMetaObject::invokeMethod(this, "onSetDataPriv", Qt::QueuedConnection, Q_ARG(QVariantMap, pendingData));
            pendingData.clear();
        }
        QMetaObject::invokeMethod(this, "onStart", Qt::QueuedConnection);
    }

    // Descriptions that arrived before the start reach the module after
    // onStart, once each (the last one of each kind).
    if (pendingInfoA.type != 0) {
        QMetaObject::invokeMethod(this, "onNewInfoAPriv", Qt::QueuedConnection, Q_ARG(StreamInfo, pendingInfoA));
        pendingInfoA.type = 0;
    }
    if (pendingInfoV.type != 0) {
        QMetaObject::invokeMethod(this, "onNewInfoVPriv", Qt::QueuedConnection, Q_ARG(StreamInfo, pendingInfoV));
        pendingInfoV.type = 0;
    }
    return true;
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
    if (state != started)
        return false;
    state = stoped;
    if (QCoreApplication::instance()) {
        QMetaObject::invokeMethod(this, "onStop", block ? Qt::BlockingQueuedConnection : Qt::QueuedConnection);
        return true;
    }
    onStop();
    return true;
}

QString VexaObject::name()
{
    return property("name").toString();
}

QString VexaObject::getState()
{
    const QMetaEnum e = staticMetaObject.enumerator(staticMetaObject.indexOfEnumerator("State"));
    return QString::fromLatin1(e.valueToKey(state));
}

void VexaObject::destroy()
{
    if (state == started)
        stop(false);
    state = destroyed;
    // Network inputs ("InputRtsp...") keep their named thread for good: their
    // sessions may still deliver into it after the module is gone.
    const bool release = !name().startsWith(QLatin1String("InputRtsp")) && !threadName.isEmpty();
    const QString thread = threadName;
    Vexa::delObject(this);
    // The payload ring goes with the object. With an event loop it is freed
    // when the object is deleted in its own thread, after the onStop posted
    // above, so a module that flushes queued payloads in onStop never reads
    // freed memory; without one, onStop has already run and it goes at once.
    const bool freeNow = payloadArena.base && !QCoreApplication::instance();
    char *arena = payloadArena.base;
    payloadArena.releaseOnDelete = !freeNow;
    // Another thread may delete this object as soon as deleteLater() is
    // called: take what is needed first and touch nothing of it afterwards.
    // The deferred delete is posted before the thread is released: a last
    // release quits the thread, which then deletes only what was posted
    // before it finished; posted after, the object would never be deleted.
    deleteLater();
    if (release)
        Vexa::delThread(thread);
    if (freeNow)
        std::free(arena);
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
    if (state != started)
        return result;
    const Qt::ConnectionType type = !QCoreApplication::instance() || directInvokeNames.contains(name)
        ? Qt::DirectConnection
        : Qt::BlockingQueuedConnection;
    const QByteArray method = name.toLatin1();
    if (arg.isValid())
        QMetaObject::invokeMethod(this, method.constData(), type, Q_RETURN_ARG(QVariant, result), Q_ARG(QVariant, arg));
    else
        QMetaObject::invokeMethod(this, method.constData(), type, Q_RETURN_ARG(QVariant, result));
    return result;
}

void VexaObject::sendPacketA(Packet pkt)
{
    pkt.sender = this;
    emit newPacketA(pkt);
}

void VexaObject::sendPacketV(Packet pkt)
{
    pkt.sender = this;
    emit newPacketV(pkt);
}

bool VexaObject::bufferPacketA(Packet pkt)
{
    return appendBounded(lockA, packetsA, bufLenA, pkt, [this] {
        qDebug("[%s] bufA full %d", qUtf8Printable(name()), bufLenA);
    });
}

bool VexaObject::bufferPacketV(Packet pkt)
{
    return appendBounded(lockV, packetsV, bufLenV, pkt, [this] {
        // settings["path"] is an inserting lookup: after the first report an
        // object without a "path" setting has one with a null value. Modules
        // have long relied on the key being there, so it stays that way.
        QDebug line = qDebug();
        line.noquote() << QStringLiteral("[%1] bufV full %2").arg(name()).arg(bufLenV);
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
    return QMetaObject::invokeMethod(this, "onNewInfoAPriv", Qt::QueuedConnection, Q_ARG(StreamInfo, info));
}

bool VexaObject::invokeInfoV(StreamInfo info)
{
    return QMetaObject::invokeMethod(this, "onNewInfoVPriv", Qt::QueuedConnection, Q_ARG(StreamInfo, info));
}

void VexaObject::onNewInfoAPriv(StreamInfo info)
{
    if (state != started) {
        pendingInfoA = info;
        return;
    }
    if (acceptInfo(inInfoA, info))
        onNewInfoA(inInfoA);
}

void VexaObject::onNewInfoVPriv(StreamInfo info)
{
    if (state != started) {
        pendingInfoV = info;
        return;
    }
    if (acceptInfo(inInfoV, info))
        onNewInfoV(inInfoV);
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
