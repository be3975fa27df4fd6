#ifndef VEXA_H
#define VEXA_H

#include <QHash>
#include <QMap>
#include <QMutex>
#include <QObject>
#include <QString>
#include <QThread>
#include <QVariant>
#include <QVariantMap>

#include "vexabase_export.h"

class VexaObject;

/**
 * Static services of the framework: the object factory and registry, shared
 * worker threads, links between modules, start-up of the media platform, the
 * board configuration and the version record. No instance is needed.
 */
class VEXABASE_EXPORT Vexa : public QObject
{
    Q_OBJECT

public:
    explicit Vexa(QObject *parent = nullptr);

    // Factory and registry --------------------------------------------------

    /**
     * Creates an object of class @p className ("Encoder" and "VexaEncoder" are
     * the same class) and registers it under @p name, or under a generated
     * name ("Encoder_1") when @p name is empty; a taken name gets a "_N" suffix.
     * An unknown class ends the process with "Can not find class name %s"; a
     * registered name that is no VexaObject class, or a class without an
     * invokable constructor callable with no arguments, ends it with
     * "Can not create class name %s" (a programming error of the module
     * library, never a null result).
     * Thread: not thread-safe; serialise create(), find() and delObject().
     */
    static VexaObject *create(QString className, QString name = QString());
    /** The registered object named exactly @p name, or null. */
    static VexaObject *find(QString name);
    /** Removes the registry entry of the object's current name; nothing else. */
    static void delObject(VexaObject *obj);
    /** A hook for module libraries that keep creator functions; unused by the library. */
    static QHash<QString, VexaObject *(*)(QObject *)> &constructors();

    /** Object name to object; not owning. No lock: see create(). */
    static QMap<QString, VexaObject *> objectMap;
    /** Full class name to the number of create() calls for it; only grows. */
    static QMap<QString, int> classCount;

    // Worker threads --------------------------------------------------------

    /**
     * Returns the running thread named @p name, creating and starting it at
     * @p priority when there is none. An empty @p name gets the first free
     * "oneself_N", written back into the caller's string.
     * Thread: thread-safe (lockThread).
     */
    static QThread *newThread(QString &name, QThread::Priority priority = QThread::InheritPriority);
    /**
     * Releases one use of the thread @p name; the last release asks the thread
     * to stop (behind the calls already queued for it; at once when there is
     * no application object) and frees its QThread once it has finished,
     * whichever thread released it. Unknown names are ignored.
     * VexaObject::destroy() releases the uses its object's start() took.
     * Thread: thread-safe (lockThread); never waits.
     */
    static void delThread(QString name);

    /** Thread name to thread; guarded by lockThread. */
    static QMap<QString, QThread *> threadMap;
    /** Thread name to outstanding newThread() uses; guarded by lockThread. */
    static QMap<QString, int> threadCount;
    static QMutex lockThread;

    // Links ----------------------------------------------------------------

    /**
     * Links src's audio output to dst: descriptions arrive queued in dst's
     * thread (directly without an application object), packets directly in
     * the sender's thread. A link that exists is left alone and sends
     * nothing; a new one receives src's current outInfoA. A destroyed dst is
     * not linked. Returns dst. Thread: thread-safe.
     */
    static VexaObject *linkA(VexaObject *src, VexaObject *dst);
    static VexaObject *linkV(VexaObject *src, VexaObject *dst);
    /** Links src's events to dst's onNewEvent (queued). Returns dst. */
    static VexaObject *linkE(VexaObject *src, VexaObject *dst);
    /**
     * Breaks the audio link, waits until no packet delivery from src into
     * dst is running (one the calling thread is inside excepted), then always
     * queues onUnLinkAPriv at dst (calls it directly without an application
     * object). Never call it from a packet hook of dst while src delivers.
     */
    static void unLinkA(VexaObject *src, VexaObject *dst);
    static void unLinkV(VexaObject *src, VexaObject *dst);
    /** Breaks the event link; true when a connection was removed. */
    static bool unLinkE(VexaObject *src, VexaObject *dst);

    /** Wraps an object pointer in a QVariant of type QMetaType::VoidStar. */
    static QVariant o2v(VexaObject *obj);
    /** Unwraps o2v(); null when the variant holds no pointer. */
    static VexaObject *v2o(QVariant v);

    // Start-up, configuration and version -----------------------------------

    /**
     * Prints the version banner, registers "Packet" and "StreamInfo", loads
     * "/vexa/config/board.json" unless a configuration was set, and on the
     * full path brings up the media platform (fatal "init system failed" when
     * that fails) and installs the SIGINT handler; then initialises FFmpeg's
     * network and device layers (the devices later, see setDevicesOnDemand()).
     * Returns true.
     * Thread: call once from the main thread before creating modules.
     */
    static bool init(bool full = true);
    /** (Re)initialises the video-buffer pools and the media system from Config; false on failure. */
    static bool initSys();
    /** A copy of the board configuration; fatal "Config file didn't load" when empty. */
    static QVariantMap getConfig();
    /** Replaces the configuration with the JSON file at @p path; false when it does not exist. */
    static bool setConfig(QString path);
    /** {"version": "3.5.1", "date": "20241031", "build": 29856}. */
    static QVariantMap getVersion();

    /**
     * A static thread of a module library that the SIGINT handler quits and
     * waits for (up to about a second) before the process exits: a thread
     * object destroyed at exit while its thread runs aborts the process.
     * Up to 16 threads; false when none is left (or @p thread is null).
     * Remove it before the thread object is destroyed.
     * Thread: thread-safe.
     */
    static bool addInterruptThread(QThread *thread);
    static void removeInterruptThread(QThread *thread);

    /**
     * FFmpeg's device layer (cameras, screens, sound cards) is a library of
     * its own that brings about eighty more libraries with it; loading them
     * is most of a short program's start-up. By default init() loads it and
     * registers the devices. An application whose pipelines seldom use a
     * device calls setDevicesOnDemand(true) before init(), and whatever
     * opens a device calls initDevices() first.
     * Thread: before init(), from the thread that calls it.
     */
    static void setDevicesOnDemand(bool onDemand);
    /**
     * Loads FFmpeg's device layer and registers its devices with libavformat,
     * once per process; later calls return the first result. False, with a
     * warning naming the library, when it cannot be loaded.
     * Thread: thread-safe.
     */
    static bool initDevices();

    /** Board configuration (top-level object of the board file). No lock: set up at start-up. */
    static QVariantMap Config;
    /** Extra diagnostics of the packet queues ("bufA full"); off by default. */
    static bool debug;
};

/** SIGINT handler: stops the network-input timer thread and the threads of addInterruptThread(), frees media memory, exit(0). */
VEXABASE_EXPORT void signalHandler(int);

#endif // VEXA_H
