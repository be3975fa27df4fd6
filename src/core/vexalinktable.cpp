#include "vexalinktable_p.h"

#include <QCoreApplication>

#include "vexadelivery_p.h"
#include "vexahop_p.h"
#include "vexaobject.h"

// Never destroyed: threads that ended without being joined may have used it
// last, and objects may still be deleted while the process exits.
VexaLinkTable::Table &VexaLinkTable::table()
{
    static Table *t = new Table;
    return *t;
}

namespace {

// The signatures of one stream kind's link, as SIGNAL() and SLOT() spell them.
struct Signatures {
    const char *infoSignal;
    const char *infoSlot;
    const char *packetSignal;
    const char *packetSlot;
};

const Signatures &signatures(VexaLinkTable::Kind kind)
{
    static const Signatures audio{SIGNAL(newInfoA(StreamInfo)), SLOT(onNewInfoAPriv(StreamInfo)),
                                  SIGNAL(newPacketA(Packet)), SLOT(onNewPacketA(Packet))};
    static const Signatures video{SIGNAL(newInfoV(StreamInfo)), SLOT(onNewInfoVPriv(StreamInfo)),
                                  SIGNAL(newPacketV(Packet)), SLOT(onNewPacketV(Packet))};
    return kind == VexaLinkTable::Audio ? audio : video;
}

void removeOne(QVector<VexaObject *> &list, VexaObject *obj)
{
    const int i = list.indexOf(obj);
    if (i >= 0)
        list.remove(i);
}

} // namespace

bool VexaLinkTable::link(VexaObject *src, VexaObject *dst, Kind kind)
{
    // Without an application object no event loop runs: descriptions are
    // then delivered directly, like every other hop.
    const Qt::ConnectionType hop = VexaHop::queued();
    const Signatures &s = signatures(kind);
    Table &t = table();
    QMutexLocker locker(&t.mutex);
    if (dst->loadState() == VexaObject::destroyed)
        return false;
    if (!QObject::connect(src, s.infoSignal, dst, s.infoSlot, Qt::ConnectionType(Qt::UniqueConnection | hop)))
        return false;
    QObject::connect(src, s.packetSignal, dst, s.packetSlot, Qt::ConnectionType(Qt::UniqueConnection | Qt::DirectConnection));
    t.into[dst].append({src, kind});
    t.outOf[src].append(dst);
    return true;
}

void VexaLinkTable::disconnect(VexaObject *src, VexaObject *dst, Kind kind)
{
    const Signatures &s = signatures(kind);
    QObject::disconnect(src, s.infoSignal, dst, s.infoSlot);
    QObject::disconnect(src, s.packetSignal, dst, s.packetSlot);
}

void VexaLinkTable::unlink(VexaObject *src, VexaObject *dst, Kind kind)
{
    {
        Table &t = table();
        QMutexLocker locker(&t.mutex);
        disconnect(src, dst, kind);
        auto it = t.into.find(dst);
        if (it != t.into.end()) {
            for (int i = 0; i < it->size(); ++i) {
                if (it->at(i).source == src && it->at(i).kind == kind) {
                    it->remove(i);
                    removeOne(t.outOf[src], dst);
                    break;
                }
            }
            if (it->isEmpty())
                t.into.erase(it);
        }
    }
    VexaDelivery::waitForDeliveries(src);
}

void VexaLinkTable::cutInto(VexaObject *dst)
{
    QVector<VexaObject *> sources;
    {
        Table &t = table();
        QMutexLocker locker(&t.mutex);
        const QVector<Link> links = t.into.take(dst);
        for (const Link &l : links) {
            disconnect(l.source, dst, l.kind);
            removeOne(t.outOf[l.source], dst);
            if (!sources.contains(l.source))
                sources.append(l.source);
        }
    }
    // A source deleted meanwhile is no longer sending: waiting compares its
    // address only.
    for (VexaObject *src : qAsConst(sources))
        VexaDelivery::waitForDeliveries(src);
}

void VexaLinkTable::forget(VexaObject *obj)
{
    Table &t = table();
    QMutexLocker locker(&t.mutex);
    const QVector<Link> links = t.into.take(obj);
    for (const Link &l : links)
        removeOne(t.outOf[l.source], obj);
    const QVector<VexaObject *> receivers = t.outOf.take(obj);
    for (VexaObject *dst : receivers) {
        auto it = t.into.find(dst);
        if (it == t.into.end())
            continue;
        for (int i = it->size() - 1; i >= 0; --i) {
            if (it->at(i).source == obj)
                it->remove(i);
        }
        if (it->isEmpty())
            t.into.erase(it);
    }
}
