#include "vexainputnet_p.h"

#include <QThread>

// VexaInputNet::timerThread under its linker name, referenced weakly: its
// address is null when no loaded library defines it.
extern QThread vexaNetTimerThread __asm__("_ZN12VexaInputNet11timerThreadE") __attribute__((weak));

void vexaQuitNetTimer()
{
    QThread *timer = &vexaNetTimerThread;
    if (timer)
        timer->quit();
}
