#include "vexainterruptthreads_p.h"

#include <dlfcn.h>

#include <atomic>

#include <QThread>

// VexaInputNet::timerThread under its linker name, referenced weakly: its
// address is null when no library loaded with the application defines it.
extern QThread vexaNetTimerThread __asm__("_ZN12VexaInputNet11timerThreadE") __attribute__((weak));

namespace {

constexpr int maxThreads = 16;
std::atomic<QThread *> registered[maxThreads];

bool isRegistered(const QThread *thread)
{
    for (const auto &slot : registered) {
        if (slot.load(std::memory_order_acquire) == thread)
            return true;
    }
    return false;
}

// The static thread object is destroyed at exit, which aborts the process
// while the thread still runs.
bool stop(QThread *thread)
{
    if (thread == QThread::currentThread())
        return false;
    thread->quit();
    return thread->wait(1000);
}

} // namespace

bool vexaAddInterruptThread(QThread *thread)
{
    if (!thread || isRegistered(thread))
        return thread != nullptr;
    for (auto &slot : registered) {
        QThread *empty = nullptr;
        if (slot.compare_exchange_strong(empty, thread, std::memory_order_acq_rel))
            return true;
    }
    return false;
}

void vexaRemoveInterruptThread(QThread *thread)
{
    for (auto &slot : registered) {
        QThread *expected = thread;
        slot.compare_exchange_strong(expected, nullptr, std::memory_order_acq_rel);
    }
}

bool vexaStopInterruptThreads()
{
    bool stopped = true;
    for (auto &slot : registered) {
        if (QThread *thread = slot.load(std::memory_order_acquire))
            stopped = stop(thread) && stopped;
    }
    // A module library that does not register its timer thread is found by
    // the thread's linker name.
    QThread *timer = &vexaNetTimerThread;
    if (!timer)
        timer = static_cast<QThread *>(dlsym(RTLD_DEFAULT, "_ZN12VexaInputNet11timerThreadE"));
    if (timer && !isRegistered(timer))
        stopped = stop(timer) && stopped;
    return stopped;
}
