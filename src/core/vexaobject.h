#ifndef VEXAOBJECT_H
#define VEXAOBJECT_H

#include <QList>
#include <QObject>
#include <QReadWriteLock>
#include <QStringList>
#include <QThread>
#include <QVariant>
#include <QVariantMap>

#include "vexabase_export.h"

/**
 * Base class of every media module.
 *
 * A module is created by class name through Vexa::create(), configured with
 * setData(), started into its worker thread with start() and linked to other
 * modules with linkA()/linkV()/linkE(). Modules override the virtual hooks
 * (onStart, onStop, onSetData, onNewPacketA, ...) and talk to each other only
 * through the Packet and StreamInfo records, the signals and the slots below.
 *
 * The order of the signals and slots below is the published meta-interface:
 * callers look methods up by index and by signature string, so never reorder
 * them, rename them or change a parameter.
 *
 * What a module uses:
 * - public: the slots below, invoke(), sendPacketA/V(), bufferPacketA/V(),
 *   sendInfoA/V(), invokeInfoA/V(), getStreamInfoA/V(), sendEvent(), the link
 *   forwards, bufferData(), memInit() and destroy();
 * - protected members: settings, inInfoA/V, outInfoA/V, lockA/V, packetsA/V,
 *   bufLenA/V, directInvokeNames, threadName, threadPriority, debugLevel.
 *   Set threadName, threadPriority and directInvokeNames in the module's
 *   constructor; set outInfoA/V when the output format is known.
 * The state, the parked settings and descriptions, userData and the payload
 * ring are private: the framework alone changes them.
 *
 * Thread: start(), stop(), setData(), getData(), invoke() and destroy() are
 * thread-safe entry points; configure and start one object from one thread.
 */
class VEXABASE_EXPORT VexaObject : public QObject
{
    Q_OBJECT

public:
    /**
     * One unit of media. The record does not own data: every copy points at
     * the same payload bytes, which the producer keeps alive.
     * tag is deliberately left uninitialised: it belongs to the producing and
     * consuming modules, the framework never reads or writes it.
     */
    struct Packet {
        char *data = nullptr;
        qint32 len = 0;
        qint64 pts = 0;
        qint64 altPts = -1; // -1: not set
        qint32 tag;         // no initialiser on purpose
        VexaObject *sender = nullptr;
    };

    /**
     * Description of an audio or video stream. type 0 means empty. params is
     * implicitly shared: copies are cheap and detach on write.
     */
    struct StreamInfo {
        qint32 type = 0;
        QVariantMap params;
        VexaObject *sender = nullptr;
    };

    /**
     * Lifecycle state. "stoped" is spelt with one p on purpose: getState()
     * returns the key text and applications compare against it.
     */
    enum State { created = 0, started = 1, stoped = 2, destroyed = 3 };
    Q_ENUM(State)

    explicit VexaObject(QObject *parent = nullptr);
    ~VexaObject() override;

    /**
     * Calls the slot or invokable method @p name of this object with one
     * QVariant argument (none when @p arg is invalid) and returns its QVariant
     * result. Invalid result when the object is not started, the name is
     * unknown or the signature does not match.
     * Thread: thread-safe; blocks until the object's thread ran the call,
     * unless the name is listed in directInvokeNames.
     */
    QVariant invoke(QString name, QVariant arg = QVariant());

    /** Stamps sender and emits newPacketA; linked consumers run in this thread. */
    void sendPacketA(Packet pkt);
    void sendPacketV(Packet pkt);

    /**
     * Appends a packet to packetsA for this module's own worker. The bound
     * counts the new packet; when the queue is full the oldest packet is
     * dropped and false is returned. bufLenA -1 means no bound.
     * Thread: thread-safe (takes lockA for writing, polling).
     */
    bool bufferPacketA(Packet pkt);
    bool bufferPacketV(Packet pkt);

    /** Stamps sender and emits newInfoA; outInfoA is not changed. */
    void sendInfoA(StreamInfo info);
    void sendInfoV(StreamInfo info);
    /** Queues onNewInfoAPriv(info) on this object; false when Qt cannot queue it. */
    bool invokeInfoA(StreamInfo info);
    bool invokeInfoV(StreamInfo info);
    /** A copy of this object's own outgoing description. */
    StreamInfo getStreamInfoA();
    StreamInfo getStreamInfoV();

    /** Emits newEvent(type, value); event links deliver it queued. */
    void sendEvent(QString type, QVariant value);

    /** Link forwards: Vexa::linkA(this, dst) and so on; each returns dst so links chain. */
    VexaObject *linkA(VexaObject *dst);
    VexaObject *linkV(VexaObject *dst);
    VexaObject *linkE(VexaObject *dst);
    VexaObject *unLinkA(VexaObject *dst);
    VexaObject *unLinkV(VexaObject *dst);
    VexaObject *unLinkE(VexaObject *dst);

    /**
     * Reserves headroom + len bytes in the payload ring and copies len bytes
     * from src (when src is not null) behind the headroom. Returns the copy,
     * or null when the request is larger than the ring or there is no ring.
     * The ring does not track readers: old payloads are overwritten.
     * Thread: not thread-safe; call it from one thread per object.
     */
    char *bufferData(char *src, int len, int headroom);

    /** Creates the payload ring of @p size bytes once; never resizes it. */
    void memInit(int size);

    /**
     * Stops if started, gives back the worker-thread uses its start() calls
     * took, unregisters the object, cuts every audio and video link into it
     * and waits for the packet deliveries to it that were running, then
     * deletes it later in its own thread (at once when there is no
     * application object, onStop having run). The object must not be used
     * after. A module must not destroy an object from inside a packet
     * delivery to that same object.
     */
    void destroy();

    /**
     * Takes every packet queued in packetsA (packetsV) out at once, oldest
     * first, under lockA (lockV): a worker's whole batch in one short
     * critical section. The queue is left empty.
     * Thread: thread-safe.
     */
    QList<Packet> takePacketsA();
    QList<Packet> takePacketsV();

    /**
     * Chooses the worker thread of the next start(), as threadName does:
     * "main", a shared name (objects started with the same name run in one
     * thread), or empty for a thread of the object's own. For tools that
     * place modules written elsewhere; a module states its own choice in
     * its constructor. A module that receives packets from a sender in its
     * own thread must not wait for its worker there (see
     * docs/writing-a-module.md). Thread: before start(), from the thread
     * that starts the object.
     */
    void setThreadName(const QString &name);

signals:
    void newEvent(QString type, QVariant msg);
    void newPacketA(Packet pkt);
    void newPacketV(Packet pkt);
    void newInfoA(StreamInfo info);
    void newInfoV(StreamInfo info);

public slots:
    /** Settings as JSON object text; not an object gives no change. Always true. */
    bool setData(QString json);
    /** Parks the settings before start, applies them in the object's thread after. Always true. */
    bool setData(QVariantMap data);
    /** The applied settings. Blocks on the object's thread when called from another thread while started. */
    QVariantMap getData();
    /** Every setting that changed something, with its last value. */
    QVariantMap getUserData();
    /** Starts the object. Returns before onStart has run; false when already started. */
    bool start();
    bool start(QVariantMap data);
    bool start(QString json);
    /** Posts onStop (waits for it when block is true); false when not started. */
    bool stop(bool block = false);
    QString name();
    /** "created", "started", "stoped" or "destroyed". */
    QString getState();

    virtual void onNewPacketA(Packet);
    virtual void onNewPacketV(Packet);
    virtual void onUnLinkA(StreamInfo);
    virtual void onUnLinkV(StreamInfo);
    void onUnLinkAPriv(StreamInfo info);
    void onUnLinkVPriv(StreamInfo info);
    virtual void onNewEvent(QString type, QVariant info);

private slots:
    void onNewInfoAPriv(StreamInfo info);
    void onNewInfoVPriv(StreamInfo info);
    void onSetDataPriv(QVariantMap data);
    QVariantMap doGetData();
    virtual void onNewInfoA(StreamInfo);
    virtual void onNewInfoV(StreamInfo);
    virtual void onSetData(QVariantMap);
    virtual void onStart();
    virtual void onStop();

private:
    friend class Vexa;
    friend class VexaLinkTable;

    // The state is written by the thread that starts, stops or destroys the
    // object and read by senders and callers in others: always through these.
    State loadState() const;
    void storeState(State s);
    // The audio and video halves of the description path, by kind.
    bool postInfo(bool video, const StreamInfo &info);
    void takeInfo(bool video, const StreamInfo &info);
    // The parts of start(): the bounds of the first start, the worker thread,
    // the descriptions parked before it.
    void settleBounds();
    void moveToWorkerThread();
    void replayParkedInfo();

    State state = created;

protected:
    /** Applied settings. Thread: changed only in the object's thread once started. */
    QVariantMap settings;

private:
    QVariantMap pendingData; // no lock: set up from one thread before start
    QVariantMap userData;    // no lock: written in the object's thread

protected:
    /** Last accepted incoming descriptions. Thread: the object's thread only. */
    StreamInfo inInfoA;
    StreamInfo inInfoV;
    /** This module's outgoing descriptions, sent to every new destination by the link operations. */
    StreamInfo outInfoA;
    StreamInfo outInfoV;

    /**
     * The incoming description parked because it arrived while the object
     * was not started (type 0: none). A description its source sent just
     * before the object's stop() reaches the object's thread after the state
     * has changed, and is parked instead of accepted: onStop() can still take
     * it from here for the packets it describes. Thread: the object's thread.
     */
    StreamInfo parkedInfoA() const { return pendingInfoA; }
    StreamInfo parkedInfoV() const { return pendingInfoV; }

private:
    StreamInfo pendingInfoA; // parked until start, in the object's thread
    StreamInfo pendingInfoV;

protected:
    /** Recursive lock guarding packetsA. */
    QReadWriteLock lockA{QReadWriteLock::Recursive};
    /** Audio packet queue, oldest first; guarded by lockA. */
    QList<Packet> packetsA;
    /** Bound of packetsA, -1 for none; set at the first start. */
    qint32 bufLenA;
    QReadWriteLock lockV{QReadWriteLock::Recursive};
    QList<Packet> packetsV; // guarded by lockV
    qint32 bufLenV;

    /** Names that invoke() calls directly in the caller's thread. Set by the module before start. */
    QStringList directInvokeNames;
    /** Worker thread to start in: "main", a shared name, or empty for a thread named after the object. */
    QString threadName;
    /** Priority of a newly created worker thread. */
    QThread::Priority threadPriority = QThread::InheritPriority;
    /** Verbosity for the module's own diagnostics ("debugLevel" setting). */
    qint32 debugLevel = 0;

private:
    // Payload ring of bufferData(); no lock: one writer per object.
    struct {
        char *base = nullptr;
        char *pos;
        qint32 size = 0;
        bool releaseOnDelete = false; // set by destroy(): freed at the deferred delete
    } payloadArena;

    Q_DISABLE_COPY(VexaObject)
};

Q_DECLARE_METATYPE(VexaObject::Packet)
Q_DECLARE_METATYPE(VexaObject::StreamInfo)

#endif // VEXAOBJECT_H
