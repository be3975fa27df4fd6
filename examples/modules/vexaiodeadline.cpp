#include "vexaiodeadline_p.h"

#include <chrono>

extern "C" {
#include <libavformat/avio.h>
}

qint64 VexaIoDeadline::nowMs()
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::steady_clock::now().time_since_epoch()).count();
}

void VexaIoDeadline::reset()
{
    deadlineMs.storeRelease(0);
    timedOut_.storeRelease(0);
    aborted_.storeRelease(0);
}

bool VexaIoDeadline::check()
{
    if (aborted_.loadAcquire() || timedOut_.loadAcquire())
        return true;
    const qint64 deadline = deadlineMs.loadAcquire();
    if (deadline > 0 && nowMs() > deadline) {
        timedOut_.storeRelease(1);
        return true;
    }
    return false;
}

void VexaIoDeadline::install(AVIOInterruptCB *cb)
{
    cb->callback = &VexaIoDeadline::interrupted;
    cb->opaque = this;
}

int VexaIoDeadline::interrupted(void *opaque)
{
    return static_cast<VexaIoDeadline *>(opaque)->check() ? 1 : 0;
}
