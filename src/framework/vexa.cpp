#include "vexa.h"

#include <csignal>
#include <dlfcn.h>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <thread>

#include <QCoreApplication>
#include <QFile>
#include <QMetaType>

extern "C" {
#include <libavdevice/version.h>
#include <libavformat/avformat.h>
}

#include "vexabase_version.h"
#include "vexahi.h"
#include "vexahop_p.h"
#include "vexainterruptthreads_p.h"
#include "vexajson.h"
#include "vexalinktable_p.h"
#include "vexalog_p.h"
#include "vexanames.h"
#include "vexaobject.h"
#include "vx_mpi_sys_p.h"

QMap<QString, VexaObject *> Vexa::objectMap;
QMap<QString, int> Vexa::classCount;
QMap<QString, QThread *> Vexa::threadMap;
QMap<QString, int> Vexa::threadCount;
QMutex Vexa::lockThread;
QVariantMap Vexa::Config;
bool Vexa::debug = false;

// Set before init(); read by init() in the same thread.
static bool devicesOnDemand = false;

namespace {

// The slots take the record under its short registered name.
QGenericArgument streamInfoArg(const VexaObject::StreamInfo &info)
{
    return QArgument<VexaObject::StreamInfo>("StreamInfo", info);
}

// The unlink notice reaches the receiver whether or not a link existed,
// behind any description the same source queued before.
void noticeUnlink(VexaObject *dst, const char *slot, const VexaObject::StreamInfo &info)
{
    QMetaObject::invokeMethod(dst, slot, VexaHop::queued(), streamInfoArg(info));
}

// A source's outgoing description as a destination receives it.
VexaObject::StreamInfo fromSource(VexaObject::StreamInfo info, VexaObject *src)
{
    info.sender = src;
    return info;
}

} // namespace

Vexa::Vexa(QObject *parent)
    : QObject(parent)
{
}

// Factory and registry ------------------------------------------------------

VexaObject *Vexa::create(QString className, QString name)
{
    className = VexaNames::fullClassName(className);
    const QByteArray cls = className.toLatin1();

    const int id = QMetaType::type(cls.constData());
    if (id == 0)
        qFatal("Can not find class name %s", cls.constData());
    // A registered name that is no module class, or a module class without an
    // invokable constructor callable with no arguments, is a programming
    // error of the module library: it ends the process like an unknown class.
    const QMetaObject *meta = QMetaType::metaObjectForType(id);
    QObject *instance = meta ? meta->newInstance() : nullptr;
    VexaObject *obj = qobject_cast<VexaObject *>(instance);
    if (!obj) {
        delete instance;
        qFatal("Can not create class name %s", cls.constData());
    }

    const int count = classCount.value(className, 0) + 1;
    classCount.insert(className, count);

    if (name.isEmpty())
        name = VexaNames::generatedObjectName(cls, count);

    // Suffixes go on the base name, never on an already suffixed one.
    const QByteArray base = name.toLatin1();
    for (int i = 1; objectMap.contains(name); ++i)
        name = QString::asprintf("%s_%d", base.constData(), i);

    obj->setProperty("name", name);
    objectMap.insert(name, obj);
    return obj;
}

VexaObject *Vexa::find(QString name)
{
    return objectMap.value(name, nullptr);
}

void Vexa::delObject(VexaObject *obj)
{
    if (obj)
        objectMap.remove(obj->name());
}

QHash<QString, VexaObject *(*)(QObject *)> &Vexa::constructors()
{
    static QHash<QString, VexaObject *(*)(QObject *)> table;
    return table;
}

// Worker threads --------------------------------------------------------------

QThread *Vexa::newThread(QString &name, QThread::Priority priority)
{
    QMutexLocker locker(&lockThread);
    if (name.isEmpty()) {
        for (int i = 0;; ++i) {
            const QString candidate = QString::asprintf("oneself_%d", i);
            if (!threadMap.contains(candidate)) {
                name = candidate;
                break;
            }
        }
    }
    if (!threadMap.contains(name)) {
        QThread *thread = new QThread();
        // The thread object lives in the application thread, whose event loop
        // deletes it once it has finished, whichever thread released it last.
        if (VexaHop::hasEventLoop())
            thread->moveToThread(QCoreApplication::instance()->thread());
        threadMap.insert(name, thread);
        thread->setObjectName(name);
        thread->start(priority);
        threadCount.insert(name, 0);
    }
    threadCount[name] += 1;
    return threadMap.value(name);
}

void Vexa::delThread(QString name)
{
    QMutexLocker locker(&lockThread);
    if (!threadMap.contains(name))
        return;
    const int count = threadCount.value(name, 0) - 1;
    threadCount.insert(name, count);
    if (count != 0)
        return;

    QThread *thread = threadMap.value(name);
    thread->requestInterruption();
    if (!VexaHop::hasEventLoop()) {
        // No event loop delivers posted calls: quit at once, and free the
        // thread object from a helper that waits for the thread to end.
        thread->quit();
        std::thread([thread] {
            thread->wait();
            delete thread;
        }).detach();
    } else if (thread->isFinished()) {
        thread->deleteLater();
    } else {
        // Deleting a QThread that still runs aborts the process, and quit()
        // only asks the event loop to end: the object goes once the thread
        // finished, in the thread it lives in (the application thread). It
        // may go as soon as the quit below is posted: nothing here touches it
        // after that.
        QObject::connect(thread, &QThread::finished, thread, &QObject::deleteLater);
        // A direct quit() ends the event loop at its next turn and drops the
        // calls already queued for the thread's objects (the onStop and the
        // deferred delete that destroy() posted): the quit is queued behind
        // them instead.
        //
        // Posting wakes the thread only after the event is already in its
        // queue and the queue's lock is released. A thread that is busy
        // takes the quit in that moment, finishes and deletes its event
        // dispatcher, and the wake-up then runs on freed memory. The gate
        // holds the quit back until the post has returned.
        auto gate = std::make_shared<std::mutex>();
        std::unique_lock<std::mutex> posting(*gate);
        QObject *quitter = new QObject;
        quitter->moveToThread(thread);
        QMetaObject::invokeMethod(quitter, [thread, quitter, gate] {
            std::lock_guard<std::mutex> posted(*gate);
            quitter->deleteLater();
            thread->quit();
        }, Qt::QueuedConnection);
    }
    threadCount.remove(name);
    threadMap.remove(name);
}

// Links -----------------------------------------------------------------------

VexaObject *Vexa::linkA(VexaObject *src, VexaObject *dst)
{
    if (VexaLinkTable::link(src, dst, VexaLinkTable::Audio) && src->outInfoA.type != 0)
        dst->invokeInfoA(fromSource(src->outInfoA, src));
    return dst;
}

VexaObject *Vexa::linkV(VexaObject *src, VexaObject *dst)
{
    if (VexaLinkTable::link(src, dst, VexaLinkTable::Video) && src->outInfoV.type != 0)
        dst->invokeInfoV(fromSource(src->outInfoV, src));
    return dst;
}

VexaObject *Vexa::linkE(VexaObject *src, VexaObject *dst)
{
    QObject::connect(src, SIGNAL(newEvent(QString,QVariant)), dst, SLOT(onNewEvent(QString,QVariant)),
                     Qt::ConnectionType(Qt::UniqueConnection | VexaHop::queued()));
    return dst;
}

void Vexa::unLinkA(VexaObject *src, VexaObject *dst)
{
    VexaLinkTable::unlink(src, dst, VexaLinkTable::Audio);
    noticeUnlink(dst, "onUnLinkAPriv", fromSource(src->outInfoA, src));
}

void Vexa::unLinkV(VexaObject *src, VexaObject *dst)
{
    VexaLinkTable::unlink(src, dst, VexaLinkTable::Video);
    noticeUnlink(dst, "onUnLinkVPriv", fromSource(src->outInfoV, src));
}

bool Vexa::unLinkE(VexaObject *src, VexaObject *dst)
{
    return QObject::disconnect(src, SIGNAL(newEvent(QString,QVariant)), dst, SLOT(onNewEvent(QString,QVariant)));
}

QVariant Vexa::o2v(VexaObject *obj)
{
    return QVariant(QMetaType::VoidStar, &obj);
}

VexaObject *Vexa::v2o(QVariant v)
{
    if (v.userType() == QMetaType::VoidStar)
        return static_cast<VexaObject *>(v.value<void *>());
    if (v.convert(QMetaType::VoidStar))
        return static_cast<VexaObject *>(v.value<void *>());
    return nullptr;
}

// Start-up, configuration and version --------------------------------------------

bool Vexa::init(bool full)
{
    qCDebug(lcVexaFramework, "VexaSDK %s build %s_%d", VEXA_VERSION_STRING, VEXA_BUILD_DATE, VEXA_BUILD_NUMBER);

    // Queued links and invocations carry the records under these short names.
    qRegisterMetaType<VexaObject::Packet>("Packet");
    qRegisterMetaType<VexaObject::StreamInfo>("StreamInfo");

    // A configuration set before init (another board file) is kept.
    if (Config.isEmpty())
        setConfig(VexaNames::boardFile());

    if (full) {
        if (!initSys())
            qFatal("init system failed");
        signal(SIGINT, signalHandler);
    }

    avformat_network_init();
    if (!devicesOnDemand)
        initDevices();
    return true;
}

bool Vexa::addInterruptThread(QThread *thread)
{
    return vexaAddInterruptThread(thread);
}

void Vexa::removeInterruptThread(QThread *thread)
{
    vexaRemoveInterruptThread(thread);
}

void Vexa::setDevicesOnDemand(bool onDemand)
{
    devicesOnDemand = onDemand;
}

bool Vexa::initDevices()
{
    // Opened rather than linked, so that a program that never uses a device
    // does not load the device layer's libraries. Never closed: libavformat
    // keeps pointers to the devices it registers.
    static bool loaded = false;
    static std::once_flag once;
    std::call_once(once, [] {
        const QByteArray soname = QByteArrayLiteral("libavdevice.so.") + QByteArray::number(LIBAVDEVICE_VERSION_MAJOR);
        void *lib = dlopen(soname.constData(), RTLD_NOW | RTLD_LOCAL);
        auto registerAll = lib ? reinterpret_cast<void (*)()>(dlsym(lib, "avdevice_register_all")) : nullptr;
        if (!registerAll) {
            const char *why = dlerror();
            qCWarning(lcVexaFramework, "cannot load %s (%s): no capture or playback devices",
                      soname.constData(), why ? why : "no avdevice_register_all");
            return;
        }
        registerAll();
        loaded = true;
    });
    return loaded;
}

bool Vexa::initSys()
{
    if (!vx_mpi_sys_init(Config))
        return false;
    qCDebug(lcVexaFramework, "init done");
    return true;
}

QVariantMap Vexa::getConfig()
{
    if (Config.isEmpty())
        qFatal("Config file didn't load");
    return Config;
}

bool Vexa::setConfig(QString path)
{
    if (!QFile::exists(path))
        return false;
    // A file that holds no JSON object leaves an empty configuration.
    Config = Json::loadFile(path).toMap();
    return true;
}

QVariantMap Vexa::getVersion()
{
    QVariantMap version;
    version.insert(QStringLiteral("version"), QStringLiteral(VEXA_VERSION_STRING));
    version.insert(QStringLiteral("date"), QStringLiteral(VEXA_BUILD_DATE));
    version.insert(QStringLiteral("build"), int(VEXA_BUILD_NUMBER));
    return version;
}

void signalHandler(int)
{
    const bool timerStopped = vexaStopInterruptThreads();
    VexaHi::mmzClear();
    if (!timerStopped) {
        // Destroying the still running static timer thread at exit would
        // abort: end without static destructors, output flushed.
        std::fflush(nullptr);
        std::_Exit(0);
    }
    std::exit(0);
}
