// Tells ThreadSanitizer what Qt's synchronisation does.
//
// Qt is not built with the sanitizer: its mutexes take a lock-free fast path
// and sleep on futexes, and its posted events cross threads through queues
// it guards the same way, so the sanitizer sees none of the ordering they
// give and would report every access they protect. This library defines the
// exported Qt functions that the project's code calls (lock and unlock of
// QMutex, QRecursiveMutex and QReadWriteLock, QWaitCondition, QSemaphore,
// QThread::wait, the ways of posting an event), calls Qt's own definition
// and reports the lock, unlock, release or acquire it stands for. It is
// linked first into every executable of a ThreadSanitizer build, so that the
// dynamic linker binds those calls here before Qt.
//
// Posted events: what a thread did before it posted an event to an object
// happens before every later delivery in that object's thread (Qt's post
// queue of the thread orders them); what a thread did before it emitted a
// signal happens before the queued calls of that signal; what a delivery
// did happens before a blocking caller goes on; what a QThread did before
// it finished happens before QThread::wait() returns.
//
// A queued signal copies its arguments in the emitting thread; for the
// project's own types the copy runs the project's copy constructor, which is
// instrumented, while the emission is still going on. Those copies, and only
// those (inside an emission, between its slots), are made with the sanitizer
// looking away: the receiver's reads of a fresh copy have nothing to race
// with, and the copy is ordered after the emission's start.
//
// What Qt itself does to memory through the C library (allocating and
// freeing events, copying arguments, reading and writing its wake-up file
// descriptors) is left out by running with ignore_noninstrumented_modules=1
// (scripts/run-tests.sh): the sanitizer cannot see Qt's own loads and stores
// anyway, so it cannot order them.
#include <QByteArray>
#include <QDeadlineTimer>
#include <QMetaObject>
#include <QMetaType>
#include <QMutex>
#include <QObject>
#include <QReadWriteLock>
#include <QSemaphore>
#include <QThread>
#include <QWaitCondition>
#include <QCoreApplication>
#include <QtCore/private/qobject_p.h>  // QMetaCallEvent, the signal callbacks

#include <sanitizer/tsan_interface.h>

#include <dlfcn.h>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <unordered_map>
#include <utility>
#include <vector>



namespace {

char noThread;  // stands for the thread of objects that have none

// Parts of the sanitizer runtime's interface without a header in gcc's set.
extern "C" void __tsan_ignore_thread_begin();
extern "C" void __tsan_ignore_thread_end();

// The synchronisation point of the events of @p thread's queue.
const void *queueOf(QThread *thread) { return thread ? static_cast<const void *>(thread) : &noThread; }
const void *queueOf(QObject *receiver) { return queueOf(receiver ? receiver->thread() : nullptr); }

void releaseTo(QObject *receiver) { __tsan_release(const_cast<void *>(queueOf(receiver))); }
void acquireFrom(QObject *receiver) { __tsan_acquire(const_cast<void *>(queueOf(receiver))); }
void acquireOwnQueue() { __tsan_acquire(const_cast<void *>(queueOf(QThread::currentThread()))); }
void releaseOwnQueue() { __tsan_release(const_cast<void *>(queueOf(QThread::currentThread()))); }

/** Qt's own definition of the mangled @p name, or abort. */
void *qtSymbol(const char *name)
{
    void *p = dlvsym(RTLD_NEXT, name, "Qt_5");
    if (!p) {
        std::fprintf(stderr, "qtannotations: QtCore has no %s\n", name);
        std::abort();
    }
    return p;
}

template<typename F>
F qt(const char *name)
{
    return reinterpret_cast<F>(qtSymbol(name));
}

// Read or write mode of each QReadWriteLock the thread holds, innermost last,
// so that unlock() and a wait report the right kind of release.
thread_local std::unordered_map<const void *, std::vector<bool>> readLocksHeld;

void noteLocked(const void *lock, bool read) { readLocksHeld[lock].push_back(read); }

bool noteUnlocked(const void *lock)
{
    auto it = readLocksHeld.find(lock);
    if (it == readLocksHeld.end() || it->second.empty())
        return false;
    const bool read = it->second.back();
    it->second.pop_back();
    if (it->second.empty())
        readLocksHeld.erase(it);
    return read;
}

bool heldForRead(const void *lock)
{
    auto it = readLocksHeld.find(lock);
    return it != readLocksHeld.end() && !it->second.empty() && it->second.back();
}

// Delivery of any event: what was posted to this thread before is visible,
// and so is what the sender of a queued signal did before emitting it.
bool onEventNotify(void **data)
{
    acquireOwnQueue();
    auto *event = static_cast<QEvent *>(data[1]);
    // Reading the event is part of the hand-over, not an access of the program's.
    __tsan_ignore_thread_begin();
    if (event && event->type() == QEvent::MetaCall) {
        if (auto *call = dynamic_cast<QMetaCallEvent *>(event)) {
            if (call->sender())
                __tsan_acquire(const_cast<QObject *>(call->sender()));
        }
    }
    __tsan_ignore_thread_end();
    return false;
}

// Whether a call of this type runs later in another thread (the caller only
// posts it) rather than at once in the caller's.
bool isPosted(QObject *receiver, Qt::ConnectionType type)
{
    switch (type) {
    case Qt::QueuedConnection:
    case Qt::BlockingQueuedConnection:
        return true;
    case Qt::AutoConnection:
        return receiver && receiver->thread() != QThread::currentThread();
    default:
        return false;
    }
}

// Runs @p post, which only posts: Qt's own work on the event and on the
// slot object it shares with the receiving thread (counted references Qt
// drops in either thread) is hidden, the rest of the hand-over is annotated.
template<typename Post>
bool posting(QObject *receiver, Post post, bool blocking = false)
{
    releaseTo(receiver);
    __tsan_ignore_thread_begin();
    const bool ok = post();
    __tsan_ignore_thread_end();
    if (blocking)
        acquireFrom(receiver);  // the call ran there and is over
    return ok;
}

// The synchronisation point of the connections made to @p receiver: one of
// its own, so that a delivery into it is not ordered after what the
// receiver's thread did before emitting signals of its own (that would hide
// exactly the races between a receiver's thread and its senders).
void *connectionsTo(const QObject *receiver)
{
    return const_cast<char *>(reinterpret_cast<const char *>(receiver)) + 1;
}

// Emissions of module objects on this thread, innermost last: whether the
// sanitizer looks away between their slots.
thread_local std::vector<bool> lookingAway;

// Emissions of any object on this thread, innermost last: whether the
// emission is between its slots (where Qt copies the arguments of queued
// connections) rather than inside one.
thread_local std::vector<bool> betweenSlots;

// Between the start of an emission and its first slot, and between slots, Qt
// reads the connection list and each receiver (its meta-object, through the
// receiver's own instrumented code) with ordering it gives through its own
// atomics: a receiver linked a moment ago by another thread is read there
// with nothing the sanitizer can see ordering it. For the emissions of
// module objects (the packet, description and event links) the sanitizer
// looks away there; the slots themselves run watched, after the
// connection's release (onSlotBegin). Slots connected as functors or
// member-function pointers get no slot callbacks from Qt and so run unwatched
// inside such an emission; the links never use them.
bool isModule(const QObject *obj) { return obj && obj->inherits("VexaObject"); }

// Released before the emission for what the sender did, and again after it
// for the argument copies the emission made for queued connections.
void onSignalBegin(QObject *sender, int, void **)
{
    __tsan_release(sender);
    betweenSlots.push_back(true);
    lookingAway.push_back(isModule(sender));
    if (lookingAway.back())
        __tsan_ignore_thread_begin();
}

void onSignalEnd(QObject *sender, int)
{
    if (!lookingAway.empty()) {
        if (lookingAway.back())
            __tsan_ignore_thread_end();
        lookingAway.pop_back();
    }
    if (!betweenSlots.empty())
        betweenSlots.pop_back();
    __tsan_release(sender);
}

// A direct call into a receiver runs after the connection that leads to it
// was made: Qt publishes connections with atomics of its own.
void onSlotBegin(QObject *receiver, int, void **)
{
    if (!betweenSlots.empty())
        betweenSlots.back() = false;
    if (!lookingAway.empty() && lookingAway.back())
        __tsan_ignore_thread_end();
    __tsan_acquire(connectionsTo(receiver));
}

void onSlotEnd(QObject *, int)
{
    if (!betweenSlots.empty())
        betweenSlots.back() = true;
    if (!lookingAway.empty() && lookingAway.back())
        __tsan_ignore_thread_begin();
}

QSignalSpyCallbackSet signalCallbacks = {onSignalBegin, onSlotBegin, onSignalEnd, onSlotEnd};

__attribute__((constructor)) void installCallbacks()
{
    QInternal::registerCallback(QInternal::EventNotifyCallback, onEventNotify);
    qt_register_signal_spy_callbacks(&signalCallbacks);
}

} // namespace

// --- QMutex, QRecursiveMutex -------------------------------------------------

QMutex::QMutex(RecursionMode mode)
{
    static auto real = qt<void (*)(QMutex *, RecursionMode)>("_ZN6QMutexC1ENS_13RecursionModeE");
    real(this, mode);
    __tsan_mutex_create(this, mode == Recursive ? __tsan_mutex_write_reentrant : 0);
}

QMutex::~QMutex()
{
    static auto real = qt<void (*)(QMutex *)>("_ZN6QMutexD1Ev");
    __tsan_mutex_destroy(this, 0);
    real(this);
}

QRecursiveMutex::QRecursiveMutex()
{
    static auto real = qt<void (*)(QRecursiveMutex *)>("_ZN15QRecursiveMutexC1Ev");
    real(this);
    __tsan_mutex_create(this, __tsan_mutex_write_reentrant);
}

// ~QRecursiveMutex() is left to Qt: its base part is ~QMutex() above, which
// ends the mutex for the sanitizer too.

void QMutex::lock() QT_MUTEX_LOCK_NOEXCEPT
{
    static auto real = qt<void (*)(QMutex *)>("_ZN6QMutex4lockEv");
    __tsan_mutex_pre_lock(this, 0);
    real(this);
    __tsan_mutex_post_lock(this, 0, 0);
}

bool QMutex::tryLock(int timeout) QT_MUTEX_LOCK_NOEXCEPT
{
    static auto real = qt<bool (*)(QMutex *, int)>("_ZN6QMutex7tryLockEi");
    __tsan_mutex_pre_lock(this, __tsan_mutex_try_lock);
    const bool locked = real(this, timeout);
    __tsan_mutex_post_lock(this, __tsan_mutex_try_lock | (locked ? 0 : __tsan_mutex_try_lock_failed), 0);
    return locked;
}

void QMutex::unlock() noexcept
{
    static auto real = qt<void (*)(QMutex *)>("_ZN6QMutex6unlockEv");
    __tsan_mutex_pre_unlock(this, 0);
    real(this);
    __tsan_mutex_post_unlock(this, 0);
}

// --- QReadWriteLock ----------------------------------------------------------

QReadWriteLock::QReadWriteLock(RecursionMode mode)
{
    static auto real = qt<void (*)(QReadWriteLock *, RecursionMode)>("_ZN14QReadWriteLockC1ENS_13RecursionModeE");
    real(this, mode);
    __tsan_mutex_create(this, mode == Recursive ? __tsan_mutex_write_reentrant | __tsan_mutex_read_reentrant : 0);
}

QReadWriteLock::~QReadWriteLock()
{
    static auto real = qt<void (*)(QReadWriteLock *)>("_ZN14QReadWriteLockD1Ev");
    __tsan_mutex_destroy(this, 0);
    real(this);
}

void QReadWriteLock::lockForRead()
{
    static auto real = qt<void (*)(QReadWriteLock *)>("_ZN14QReadWriteLock11lockForReadEv");
    __tsan_mutex_pre_lock(this, __tsan_mutex_read_lock);
    real(this);
    __tsan_mutex_post_lock(this, __tsan_mutex_read_lock, 0);
    noteLocked(this, true);
}

void QReadWriteLock::lockForWrite()
{
    static auto real = qt<void (*)(QReadWriteLock *)>("_ZN14QReadWriteLock12lockForWriteEv");
    __tsan_mutex_pre_lock(this, 0);
    real(this);
    __tsan_mutex_post_lock(this, 0, 0);
    noteLocked(this, false);
}

namespace {
template<typename Try>
bool tryLockRw(QReadWriteLock *lock, bool read, Try attempt)
{
    const unsigned mode = read ? __tsan_mutex_read_lock : 0;
    __tsan_mutex_pre_lock(lock, mode | __tsan_mutex_try_lock);
    const bool locked = attempt();
    __tsan_mutex_post_lock(lock, mode | __tsan_mutex_try_lock | (locked ? 0 : __tsan_mutex_try_lock_failed), 0);
    if (locked)
        noteLocked(lock, read);
    return locked;
}
} // namespace

bool QReadWriteLock::tryLockForRead()
{
    static auto real = qt<bool (*)(QReadWriteLock *)>("_ZN14QReadWriteLock14tryLockForReadEv");
    return tryLockRw(this, true, [this] { return real(this); });
}

bool QReadWriteLock::tryLockForRead(int timeout)
{
    static auto real = qt<bool (*)(QReadWriteLock *, int)>("_ZN14QReadWriteLock14tryLockForReadEi");
    return tryLockRw(this, true, [this, timeout] { return real(this, timeout); });
}

bool QReadWriteLock::tryLockForWrite()
{
    static auto real = qt<bool (*)(QReadWriteLock *)>("_ZN14QReadWriteLock15tryLockForWriteEv");
    return tryLockRw(this, false, [this] { return real(this); });
}

bool QReadWriteLock::tryLockForWrite(int timeout)
{
    static auto real = qt<bool (*)(QReadWriteLock *, int)>("_ZN14QReadWriteLock15tryLockForWriteEi");
    return tryLockRw(this, false, [this, timeout] { return real(this, timeout); });
}

void QReadWriteLock::unlock()
{
    static auto real = qt<void (*)(QReadWriteLock *)>("_ZN14QReadWriteLock6unlockEv");
    const unsigned mode = noteUnlocked(this) ? __tsan_mutex_read_lock : 0;
    __tsan_mutex_pre_unlock(this, mode);
    real(this);
    __tsan_mutex_post_unlock(this, mode);
}

// --- QWaitCondition: the lock is given up for the wait and taken again -------

namespace {
template<typename Wait>
bool waitOn(QWaitCondition *cond, QMutex *mutex, Wait wait)
{
    __tsan_mutex_pre_unlock(mutex, 0);
    __tsan_mutex_post_unlock(mutex, 0);
    const bool woken = wait();
    __tsan_mutex_pre_lock(mutex, 0);
    __tsan_mutex_post_lock(mutex, 0, 0);
    __tsan_acquire(cond);
    return woken;
}

template<typename Wait>
bool waitOn(QWaitCondition *cond, QReadWriteLock *lock, Wait wait)
{
    const unsigned mode = heldForRead(lock) ? __tsan_mutex_read_lock : 0;
    __tsan_mutex_pre_unlock(lock, mode);
    __tsan_mutex_post_unlock(lock, mode);
    const bool woken = wait();
    __tsan_mutex_pre_lock(lock, mode);
    __tsan_mutex_post_lock(lock, mode, 0);
    __tsan_acquire(cond);
    return woken;
}
} // namespace

bool QWaitCondition::wait(QMutex *lockedMutex, QDeadlineTimer deadline)
{
    static auto real = qt<bool (*)(QWaitCondition *, QMutex *, QDeadlineTimer)>("_ZN14QWaitCondition4waitEP6QMutex14QDeadlineTimer");
    return waitOn(this, lockedMutex, [&] { return real(this, lockedMutex, deadline); });
}

bool QWaitCondition::wait(QMutex *lockedMutex, unsigned long time)
{
    static auto real = qt<bool (*)(QWaitCondition *, QMutex *, unsigned long)>("_ZN14QWaitCondition4waitEP6QMutexm");
    return waitOn(this, lockedMutex, [&] { return real(this, lockedMutex, time); });
}

bool QWaitCondition::wait(QReadWriteLock *lockedReadWriteLock, QDeadlineTimer deadline)
{
    static auto real = qt<bool (*)(QWaitCondition *, QReadWriteLock *, QDeadlineTimer)>("_ZN14QWaitCondition4waitEP14QReadWriteLock14QDeadlineTimer");
    return waitOn(this, lockedReadWriteLock, [&] { return real(this, lockedReadWriteLock, deadline); });
}

bool QWaitCondition::wait(QReadWriteLock *lockedReadWriteLock, unsigned long time)
{
    static auto real = qt<bool (*)(QWaitCondition *, QReadWriteLock *, unsigned long)>("_ZN14QWaitCondition4waitEP14QReadWriteLockm");
    return waitOn(this, lockedReadWriteLock, [&] { return real(this, lockedReadWriteLock, time); });
}

void QWaitCondition::wakeOne()
{
    static auto real = qt<void (*)(QWaitCondition *)>("_ZN14QWaitCondition7wakeOneEv");
    __tsan_release(this);
    real(this);
}

void QWaitCondition::wakeAll()
{
    static auto real = qt<void (*)(QWaitCondition *)>("_ZN14QWaitCondition7wakeAllEv");
    __tsan_release(this);
    real(this);
}

// --- QSemaphore ----------------------------------------------------------------

void QSemaphore::acquire(int n)
{
    static auto real = qt<void (*)(QSemaphore *, int)>("_ZN10QSemaphore7acquireEi");
    real(this, n);
    __tsan_acquire(this);
}

bool QSemaphore::tryAcquire(int n)
{
    static auto real = qt<bool (*)(QSemaphore *, int)>("_ZN10QSemaphore10tryAcquireEi");
    const bool got = real(this, n);
    if (got)
        __tsan_acquire(this);
    return got;
}

bool QSemaphore::tryAcquire(int n, int timeout)
{
    static auto real = qt<bool (*)(QSemaphore *, int, int)>("_ZN10QSemaphore10tryAcquireEii");
    const bool got = real(this, n, timeout);
    if (got)
        __tsan_acquire(this);
    return got;
}

void QSemaphore::release(int n)
{
    static auto real = qt<void (*)(QSemaphore *, int)>("_ZN10QSemaphore7releaseEi");
    __tsan_release(this);
    real(this, n);
}

// --- QThread::wait: what the thread did happens before wait() returns --------

bool QThread::wait(QDeadlineTimer deadline)
{
    static auto real = qt<bool (*)(QThread *, QDeadlineTimer)>("_ZN7QThread4waitE14QDeadlineTimer");
    const bool finished = real(this, deadline);
    __tsan_acquire(this);  // released by its finished() signal
    return finished;
}

bool QThread::wait(unsigned long time)
{
    static auto real = qt<bool (*)(QThread *, unsigned long)>("_ZN7QThread4waitEm");
    const bool finished = real(this, time);
    __tsan_acquire(this);
    return finished;
}

// --- Posted events -----------------------------------------------------------

void QCoreApplication::postEvent(QObject *receiver, QEvent *event, int priority)
{
    static auto real = qt<void (*)(QObject *, QEvent *, int)>("_ZN16QCoreApplication9postEventEP7QObjectP6QEventi");
    posting(receiver, [&] {
        real(receiver, event, priority);
        return true;
    });
}

void QObject::deleteLater()
{
    static auto real = qt<void (*)(QObject *)>("_ZN7QObject11deleteLaterEv");
    posting(this, [&] {
        real(this);
        return true;
    });
}

bool QMetaObject::invokeMethodImpl(QObject *object, QtPrivate::QSlotObjectBase *slot, Qt::ConnectionType type, void *ret)
{
    static auto real = qt<bool (*)(QObject *, QtPrivate::QSlotObjectBase *, Qt::ConnectionType, void *)>(
        "_ZN11QMetaObject16invokeMethodImplEP7QObjectPN9QtPrivate15QSlotObjectBaseEN2Qt14ConnectionTypeEPv");
    if (isPosted(object, type))
        return posting(object, [&] { return real(object, slot, type, ret); }, type == Qt::BlockingQueuedConnection);
    return real(object, slot, type, ret);
}

bool QMetaObject::invokeMethod(QObject *obj, const char *member, Qt::ConnectionType type,
                               QGenericReturnArgument ret, QGenericArgument val0, QGenericArgument val1,
                               QGenericArgument val2, QGenericArgument val3, QGenericArgument val4,
                               QGenericArgument val5, QGenericArgument val6, QGenericArgument val7,
                               QGenericArgument val8, QGenericArgument val9)
{
    using Real = bool (*)(QObject *, const char *, Qt::ConnectionType, QGenericReturnArgument, QGenericArgument,
                          QGenericArgument, QGenericArgument, QGenericArgument, QGenericArgument, QGenericArgument,
                          QGenericArgument, QGenericArgument, QGenericArgument, QGenericArgument);
    static auto real = qt<Real>(
        "_ZN11QMetaObject12invokeMethodEP7QObjectPKcN2Qt14ConnectionTypeE22QGenericReturnArgument16QGenericArgument"
        "S7_S7_S7_S7_S7_S7_S7_S7_S7_");
    const auto call = [&] { return real(obj, member, type, ret, val0, val1, val2, val3, val4, val5, val6, val7, val8, val9); };
    if (isPosted(obj, type))
        return posting(obj, call, type == Qt::BlockingQueuedConnection);
    return call();
}

// The project's classes reach QObject::event() through their own virtual
// tables, so delivery of queued calls to them passes through here: the slot's
// effects are released before a blocking caller is let go.
bool QObject::event(QEvent *e)
{
    static auto real = qt<bool (*)(QObject *, QEvent *)>("_ZN7QObject5eventEP6QEvent");
    const bool handled = real(this, e);
    releaseOwnQueue();
    return handled;
}

// --- Copies of the project's metatypes ---------------------------------------

namespace {

using Constructor = QMetaType::Constructor;
constexpr size_t constructorSlots = 64;
std::atomic<Constructor> registeredConstructors[constructorSlots];
std::mutex constructorsLock;
size_t constructorsUsed = 0;

// Quiet only where Qt copies a queued connection's arguments: inside an
// emission, outside its slots. Every other copy (a QVariant made of a
// Packet, the arguments of a queued invokeMethod(), a slot's own copies) is
// watched as any code of the project's.
template<size_t N>
void *quietConstructor(void *where, const void *copy)
{
    const Constructor construct = registeredConstructors[N].load(std::memory_order_acquire);
    if (betweenSlots.empty() || !betweenSlots.back())
        return construct(where, copy);
    __tsan_ignore_thread_begin();
    void *object = construct(where, copy);
    __tsan_ignore_thread_end();
    return object;
}

template<size_t... N>
constexpr std::array<Constructor, sizeof...(N)> quietConstructorTable(std::index_sequence<N...>)
{
    return {{&quietConstructor<N>...}};
}

const auto quietConstructors = quietConstructorTable(std::make_index_sequence<constructorSlots>());

// The copy constructor that runs @p constructor quietly; @p constructor
// itself when every slot is taken.
Constructor quieted(Constructor constructor)
{
    if (!constructor)
        return constructor;
    std::lock_guard<std::mutex> locker(constructorsLock);
    for (size_t i = 0; i < constructorsUsed; ++i) {
        if (registeredConstructors[i].load(std::memory_order_relaxed) == constructor)
            return quietConstructors[i];
    }
    if (constructorsUsed == constructorSlots)
        return constructor;
    registeredConstructors[constructorsUsed].store(constructor, std::memory_order_release);
    return quietConstructors[constructorsUsed++];
}

} // namespace

int QMetaType::registerNormalizedType(const ::QByteArray &normalizedTypeName, Destructor destructor,
                                      Constructor constructor, int size, QMetaType::TypeFlags flags,
                                      const QMetaObject *metaObject)
{
    using Real = int (*)(const ::QByteArray &, Destructor, Constructor, int, QMetaType::TypeFlags, const QMetaObject *);
    static auto real = qt<Real>("_ZN9QMetaType22registerNormalizedTypeERK10QByteArrayPFvPvEPFS3_S3_PKvEi6QFlagsINS_8TypeFlagEEPK11QMetaObject");
    return real(normalizedTypeName, destructor, quieted(constructor), size, flags, metaObject);
}

// --- Connections ---------------------------------------------------------------

// What a thread did before it connected a receiver (building it, for one)
// happens before the receiver's slots run through that connection, in any
// thread. Released before Qt publishes the connection: a thread that sees
// it may call the slot at once.
QMetaObject::Connection QObject::connect(const QObject *sender, const char *signal, const QObject *receiver,
                                         const char *method, Qt::ConnectionType type)
{
    static auto real = qt<QMetaObject::Connection (*)(const QObject *, const char *, const QObject *, const char *,
                                                      Qt::ConnectionType)>(
        "_ZN7QObject7connectEPKS_PKcS1_S3_N2Qt14ConnectionTypeE");
    if (receiver)
        __tsan_release(connectionsTo(receiver));
    return real(sender, signal, receiver, method, type);
}
