// A process that raises SIGINT with media memory allocated and, depending on
// how it was built and the mode given, the network-input timer thread
// running from a module library that is linked, opened through QLibrary with
// global symbols, opened with dlopen(RTLD_GLOBAL), absent, or replaced by a
// thread of the program's own registered with Vexa::addInterruptThread.
// At exit it prints "mmz left N, timer stopped|running|absent" without
// waiting for anything itself: the handler must have stopped the thread.
//   sigint_child[_linked] MODE BOARD [LIBRARY]

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>

#include <QCoreApplication>
#include <QLibrary>

#include "vx_mpi_model.h"

#include <Vexa>
#include <vexahi.h>

#ifdef VEXA_TIMER_LINKED
extern "C" QThread *netInputTimer();
#endif

static QThread *timer = nullptr;
// A module library's own static thread, registered with the handler.
static QThread registeredThread;

int main(int argc, char **argv)
{
    if (argc < 3)
        return 2;
    const QByteArray mode = argv[1];
    QCoreApplication app(argc, argv); // the timer thread runs an event loop
    using TimerFn = QThread *(*)();
#ifdef VEXA_TIMER_LINKED
    if (mode == "linked")
        timer = netInputTimer();
#endif
    if (mode == "qlibrary" && argc >= 4) {
        QLibrary lib(QString::fromLocal8Bit(argv[3]));
        lib.setLoadHints(QLibrary::ExportExternalSymbolsHint);
        if (auto fn = reinterpret_cast<TimerFn>(lib.resolve("netInputTimer")))
            timer = fn();
    } else if (mode == "dlopen" && argc >= 4) {
        if (void *lib = dlopen(argv[3], RTLD_NOW | RTLD_GLOBAL)) {
            if (auto fn = reinterpret_cast<TimerFn>(dlsym(lib, "netInputTimer")))
                timer = fn();
        }
    }
    if (mode == "registered" && Vexa::addInterruptThread(&registeredThread))
        timer = &registeredThread;
    if (mode != "none" && !timer)
        return 4; // the library did not load

    Vexa::setConfig(QString::fromLocal8Bit(argv[2]));
    Vexa::init(true);
    unsigned int phys = 0;
    void *virt = nullptr;
    VexaHi::mmzAlloc(&phys, &virt, 4096, false, "a", nullptr);
    VexaHi::mmzAlloc(&phys, &virt, 8192, true, "b", nullptr);
    if (timer)
        timer->start();
    // Registered after the library's static objects: runs before the timer
    // thread object is destroyed.
    std::atexit([] {
        const char *state = !timer ? "absent" : timer->isRunning() ? "running" : "stopped";
        std::printf("mmz left %d, timer %s\n", vx_model_mmz_count(), state);
        std::fflush(stdout);
    });
    std::raise(SIGINT);
    return 3; // not reached: the handler exits
}
