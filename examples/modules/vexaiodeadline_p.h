#ifndef VEXAIODEADLINE_P_H
#define VEXAIODEADLINE_P_H

// Not API: shared by the example modules' sources only.

#include <QAtomicInteger>

struct AVIOInterruptCB;

/*
 * When a module's blocking libavformat calls (connecting, reading, writing)
 * give up: once the deadline armed for the call has passed, or once the
 * module aborted them all (it is stopping). A call that gave up for its
 * deadline marks the I/O as timed out, and from then on every call gives up
 * at once too (closing a dead connection must not block either) until
 * reset(), which a module calls before it connects again.
 *
 * install() makes a format context's I/O ask interrupted().
 *
 * Thread: thread-safe (atomics); the watching thread may abort() while the
 * module's thread is inside a call.
 */
class VexaIoDeadline
{
public:
    /** Milliseconds of the steady clock, the time base of the deadlines. */
    static qint64 nowMs();

    /** Calls give up @p timeoutMs milliseconds from now. */
    void arm(qint64 timeoutMs) { deadlineMs.storeRelease(nowMs() + timeoutMs); }
    /** Calls give up at @p steadyMs (a time of nowMs()). */
    void armAt(qint64 steadyMs) { deadlineMs.storeRelease(steadyMs); }
    /** No deadline (abort() and a time-out already seen still hold). */
    void disarm() { deadlineMs.storeRelease(0); }
    /** Every call gives up until reset(). */
    void abort() { aborted_.storeRelease(1); }
    /** Calls run again: no abort, no time-out seen, no deadline. */
    void reset();

    bool aborted() const { return aborted_.loadAcquire() != 0; }
    /** A call gave up because its deadline passed (and not because of abort()). */
    bool timedOut() const { return timedOut_.loadAcquire() != 0 && !aborted(); }

    /** Whether a call must give up now; notes a passed deadline as a time-out. */
    bool check();
    /** Makes @p cb ask check() of this object. */
    void install(AVIOInterruptCB *cb);

private:
    static int interrupted(void *opaque);

    QAtomicInt aborted_ = 0;
    QAtomicInt timedOut_ = 0;
    QAtomicInteger<qint64> deadlineMs = 0;   // 0: none
};

#endif // VEXAIODEADLINE_P_H
