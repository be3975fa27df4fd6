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

thread_local VexaDelivery::ThreadRecord *VexaDelivery::current = nullptr;
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
    threadExit.record = r;
    current = r;
    return r;
}

void VexaDelivery::waitForDeliveries(const VexaObject *source)
{
    // Makes every sender's frames visible here, and the caller's disconnect
    // visible to every delivery that starts from now on.
    if (sendersFence.load(std::memory_order_relaxed) || membarrier(MEMBARRIER_CMD_PRIVATE_EXPEDITED) != 0) {
        sendersFence.store(true, std::memory_order_relaxed);
        std::atomic_thread_fence(std::memory_order_seq_cst);
    }

    struct Pending {
        const Frame *frame;
        quint64 word;
    };
    QVarLengthArray<Pending, 8> pending;
    for (ThreadRecord *r = records.load(std::memory_order_acquire); r; r = r->next) {
        if (r == current || !r->inUse.load(std::memory_order_acquire))
            continue;
        // The outermost running delivery from the source contains any deeper
        // one; with every recorded level taken, the deepest one may contain
        // unrecorded deliveries from it.
        for (int i = 0; i < MaxDepth; ++i) {
            const Frame &f = r->frames[i];
            const quint64 word = f.word.load(std::memory_order_acquire);
            if (!(word & 1))
                break;
            if (f.source.load(std::memory_order_relaxed) == source || i == MaxDepth - 1) {
                pending.append({&f, word});
                break;
            }
        }
    }

    // A delivery has returned once its frame's word changed: it was popped,
    // or another delivery took its place.
    for (const Pending &p : pending) {
        for (int spins = 0; p.frame->word.load(std::memory_order_acquire) == p.word; ++spins) {
            if (spins < 64)
                QThread::yieldCurrentThread();
            else
                usleep(50);
        }
    }
}
