#include "vexainputnet_p.h"

#include <dlfcn.h>

#include <QThread>

// VexaInputNet::timerThread under its linker name, referenced weakly: its
// address is null when no library loaded with the application defines it.
extern QThread vexaNetTimerThread __asm__("_ZN12VexaInputNet11timerThreadE") __attribute__((weak));

bool vexaStopNetTimer()
{
    QThread *timer = &vexaNetTimerThread;
    // A module library opened later with global symbols is found by name.
    if (!timer)
        timer = static_cast<QThread *>(dlsym(RTLD_DEFAULT, "_ZN12VexaInputNet11timerThreadE"));
    if (!timer)
        return true;
    timer->quit();
    // The static thread object is destroyed at exit, which aborts the
    // process while the thread still runs.
    return timer->wait(1000);
}
