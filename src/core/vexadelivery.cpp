#include "vexadelivery_p.h"

#include <linux/membarrier.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <QThread>
#include <QVarLengthArray>

namespace {

std::atomic<VexaDelivery::ThreadRecord *> records{nullptr};

long membarrier(int cmd)
{
    return syscall(__NR_membarrier, cmd, 0, 0);
}

// With the kernel's expedited process-wide barrier, senders need no fence of
// their own: the waiter forces one on every running thread of the process.
bool expeditedBarrier()
{
    const long supported = membarrier(MEMBARRIER_CMD_QUERY);
    return supported > 0 && (supported & MEMBARRIER_CMD_PRIVATE_EXPEDITED)
        && membarrier(MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED) == 0;
}

// Gives the thread's record back when the thread ends.
struct ThreadExit {
    VexaDelivery::ThreadRecord *record = nullptr;
    ~ThreadExit()
    {
        if (record)
            record->inUse.store(false, std::memory_order_release);
    }
};

thread_local ThreadExit threadExit;

} // namespace

// Decided when the library is loaded, before any packet is sent.
std::atomic<bool> VexaDelivery::sendersFence{!expeditedBarrier()};

VexaDelivery::ThreadRecord *VexaDelivery::attach()
{
    ThreadRecord *r = records.load(std::memory_order_acquire);
    for (; r; r = r->next) {
        bool idle = false;
        if (r->inUse.compare_exchange_strong(idle, true, std::memory_order_acq_rel))
            break;
    }
    if (!r) {
        r = new ThreadRecord;
        r->next = records.load(std::memory_order_relaxed);
        while (!records.compare_exchange_weak(r->next, r, std::memory_order_release, std::memory_order_relaxed)) {
        }
    }
    r->fence = sendersFence.load(std::memory_order_relaxed);
    threadExit.record = r;
    current = r;
    return r;
}

void VexaDelivery::waitForDeliveries(const VexaObject *source)
{
    // Makes every sender's frames visible here, and the caller's disconnect
    // visible to every delivery that starts from now on.
    if (sendersFence.load(std::memory_order_relaxed) || membarrier(MEMBARRIER_CMD_PRIVATE_EXPEDITED) != 0)
        fullFence();

    struct Pending {
        const ThreadRecord *record;
        quint64 serial;
    };
    QVarLengthArray<Pending, 8> pending;
    for (ThreadRecord *r = records.load(std::memory_order_acquire); r; r = r->next) {
        if (r == current || !r->inUse.load(std::memory_order_acquire))
            continue;
        const quint64 state = r->state.load(std::memory_order_acquire);
        const quint64 depth = state & DepthMask;
        bool involved = depth > quint64(MaxDepth); // unrecorded levels may hold it
        for (quint64 i = 0; i < depth && i < quint64(MaxDepth) && !involved; ++i)
            involved = r->sources[i].load(std::memory_order_relaxed) == source;
        if (involved)
            pending.append({r, state >> DepthBits});
    }

    // The outermost delivery that contains the source's has returned once
    // the thread is at depth 0 or another outermost delivery began.
    for (const Pending &p : pending) {
        for (int spins = 0;; ++spins) {
            const quint64 state = p.record->state.load(std::memory_order_acquire);
            if ((state & DepthMask) == 0 || (state >> DepthBits) != p.serial)
                break;
            if (spins < 64)
                QThread::yieldCurrentThread();
            else
                usleep(50);
        }
    }
}
