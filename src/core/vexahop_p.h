#ifndef VEXAHOP_P_H
#define VEXAHOP_P_H

//
// Not API: how a call reaches another object's thread.
//
// Without an application object no event loop runs anywhere: a call that
// would be queued into another object's thread is then made directly, and
// objects and thread objects stay in the thread that made them.
//

#include <QCoreApplication>
#include <QThread>

namespace VexaHop {

/** Whether there is an event loop to queue calls to (an application object exists). */
inline bool hasEventLoop()
{
    return QCoreApplication::instance() != nullptr;
}

/** The connection for a call into another object's thread: queued, or direct without an event loop. */
inline Qt::ConnectionType queued()
{
    return hasEventLoop() ? Qt::QueuedConnection : Qt::DirectConnection;
}

/**
 * True when a call from the current thread into @p obj must not wait for
 * obj's event loop: there is none, or the caller is that loop's own thread.
 */
inline bool runsHere(const QObject *obj)
{
    return !hasEventLoop() || obj->thread() == QThread::currentThread();
}

} // namespace VexaHop

#endif // VEXAHOP_P_H
