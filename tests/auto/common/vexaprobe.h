#ifndef VEXAPROBE_H
#define VEXAPROBE_H

// A module for the tests: records every hook it runs (with the thread it ran
// in), can relay the packets it receives, and exposes the protected members
// a test needs.

#include <algorithm>
#include <cstring>

#include <QCoreApplication>
#include <QMutex>
#include <QPointer>
#include <QSemaphore>
#include <QTest>
#include <QThread>

#include <Vexa>
#include <VexaObject>

// What happened to objects that may be gone; written by their threads.
struct Trail {
    void add(const QString &s) { QMutexLocker locker(&mutex); items << s; }
    QStringList get() const { QMutexLocker locker(&mutex); return items; }
    mutable QMutex mutex;
    QStringList items;
};

class VexaProbe : public VexaObject
{
    Q_OBJECT

public:
    struct Entry {
        QString what;
        QThread *thread;
    };
    enum PacketMode { Record, Relay };

    Q_INVOKABLE explicit VexaProbe(QObject *parent = nullptr) : VexaObject(parent) {}
    ~VexaProbe() override { note(thread() == QThread::currentThread() ? "dtor in own thread" : "dtor elsewhere"); }

    using VexaObject::bufLenA;
    using VexaObject::bufLenV;
    using VexaObject::directInvokeNames;
    using VexaObject::outInfoV;
    using VexaObject::packetsA;
    using VexaObject::packetsV;
    using VexaObject::threadName;

    int linksOf(const char *signal) { return receivers(signal); }
    QList<Entry> entries() const { QMutexLocker locker(&mutex); return log; }
    QStringList hooks() const // the hook names, in the order they ran
    {
        QStringList names;
        for (const Entry &e : entries())
            names << e.what;
        return names;
    }
    QList<Packet> packetsSeen() const { QMutexLocker locker(&mutex); return seen; }

    PacketMode mode = Record;
    QSemaphore *holdStop = nullptr; // onStop waits on it when set
    Trail *trail = nullptr;         // outlives the object: gets every hook name

    // Called through invoke().
    Q_INVOKABLE QVariant ping(QVariant v) { return v; }
    Q_INVOKABLE QVariant ping() { return QStringLiteral("no argument"); }
    Q_INVOKABLE QVariant where() { return QVariant::fromValue<void *>(QThread::currentThread()); }
    Q_INVOKABLE QVariant whereDirect() { return where(); }
    Q_INVOKABLE QVariant twice(int v) { return v * 2; }
    Q_INVOKABLE int count(QVariant) { return 1; }
    Q_INVOKABLE QVariant currentInV() // {type, sender, params}
    {
        return QVariantList{inInfoV.type, QVariant::fromValue<void *>(inInfoV.sender), inInfoV.params};
    }
    Q_INVOKABLE QVariant sendV(QVariant pts) // a packet with this pts, sent from the object's thread
    {
        Packet p;
        p.pts = pts.toLongLong();
        sendPacketV(p);
        return true;
    }

protected:
    void onNewPacketV(Packet p) override
    {
        note(name() + QStringLiteral(":packetV"), &p);
        if (mode == Relay)
            sendPacketV(p);
    }
    void onUnLinkV(StreamInfo i) override { note(QStringLiteral("unlinkV:%1").arg(i.type)); }
    void onNewEvent(QString type, QVariant v) override { note(QStringLiteral("event:%1=%2").arg(type, v.toString())); }
    void onNewInfoA(StreamInfo i) override { noteInfo(QStringLiteral("infoA"), i); }
    void onNewInfoV(StreamInfo i) override { noteInfo(QStringLiteral("infoV"), i); }
    void onSetData(QVariantMap m) override { note(QStringLiteral("setData:") + QStringList(m.keys()).join(QLatin1Char(','))); }
    void onStart() override
    {
        // With a payload ring, keep one payload in it until onStop.
        ringPayload = bufferData(const_cast<char *>("payload"), 8, 0);
        note(QStringLiteral("start"));
    }
    void onStop() override
    {
        if (holdStop)
            holdStop->acquire();
        if (ringPayload)
            note(std::memcmp(ringPayload, "payload", 8) == 0 ? QStringLiteral("ring intact") : QStringLiteral("ring lost"));
        note(QStringLiteral("stop"));
    }

private:
    void note(const QString &what, const Packet *p = nullptr)
    {
        QMutexLocker locker(&mutex);
        log << Entry{what, QThread::currentThread()};
        if (p)
            seen << *p;
        if (trail)
            trail->add(what);
    }
    // "infoV:<type>:<sender name or ->:<param keys>"
    void noteInfo(const QString &kind, const StreamInfo &i)
    {
        const QString from = i.sender ? i.sender->name() : QStringLiteral("-");
        note(QStringLiteral("%1:%2:%3:%4").arg(kind).arg(i.type).arg(from, QStringList(i.params.keys()).join(QLatin1Char(','))));
    }

    char *ringPayload = nullptr;
    mutable QMutex mutex;
    QList<Entry> log;
    QList<Packet> seen;
};

inline VexaObject::StreamInfo makeInfo(int type, const QVariantMap &params = {}, VexaObject *sender = nullptr)
{
    VexaObject::StreamInfo i;
    i.type = type;
    i.params = params;
    i.sender = sender;
    return i;
}

// Destroys the objects, releases the threads named after them (destroy()
// leaves those) and waits until every worker thread they used is gone.
inline bool retire(const QList<VexaProbe *> &objects)
{
    const auto registered = [](const QString &name) {
        QMutexLocker locker(&Vexa::lockThread);
        return Vexa::threadMap.contains(name);
    };
    QList<QPointer<QThread>> workers;
    for (VexaProbe *p : objects) {
        if (p->thread() != QCoreApplication::instance()->thread())
            workers << p->thread();
        const QString own = p->threadName.isEmpty() ? p->name() : QString();
        p->destroy();
        while (!own.isEmpty() && registered(own))
            Vexa::delThread(own);
    }
    return QTest::qWaitFor([&] { return std::none_of(workers.begin(), workers.end(), [](const QPointer<QThread> &t) { return !t.isNull(); }); }, 30000);
}

inline void registerProbe() { qRegisterMetaType<VexaProbe *>("VexaProbe"); }

// A probe created through the factory; @p threadName as given ("main": the
// application thread, empty: a thread named after the object).
inline VexaProbe *makeProbe(const QString &name, const QString &threadName = QString())
{
    auto *p = qobject_cast<VexaProbe *>(Vexa::create(QStringLiteral("Probe"), name));
    p->threadName = threadName;
    return p;
}

#endif // VEXAPROBE_H
