#ifndef VEXADELIVERY_P_H
#define VEXADELIVERY_P_H

//
// Not API: which packet deliveries are running, so that unlinking and
// destroying can wait for them.
//

#include <atomic>

#include <QtGlobal>

class VexaObject;

/**
 * Keeps, per thread, the stack of sources whose packets that thread is
 * delivering right now (sendPacketA/V emitting into direct links; a relay
 * sending from its packet hook nests one level deeper), and lets another
 * thread wait until every delivery from one source that may still reach a
 * receiver it just disconnected has returned.
 *
 * The sending side only writes its own thread's record (no read-modify-write,
 * no lock): a send costs a few plain stores. The waiting side makes the
 * senders' stores visible with a process-wide memory barrier (membarrier);
 * where the kernel lacks it, senders issue a full fence themselves.
 */
class VexaDelivery
{
public:
    // Sources recorded per thread; deeper nesting is counted but not
    // recorded, and a waiter then waits for the thread's whole delivery.
    static constexpr int MaxDepth = 32;
    static constexpr int DepthBits = 16;
    static constexpr quint64 DepthMask = (quint64(1) << DepthBits) - 1;

    // One per thread that ever sent a packet; never freed, taken over by a
    // later thread once its own thread has ended.
    struct ThreadRecord {
        // serial << DepthBits | depth. The serial counts the thread's
        // outermost deliveries; depth 0: not delivering.
        std::atomic<quint64> state{0};
        // A copy of the process-wide choice, next to the state the send
        // writes anyway.
        bool fence = true;
        std::atomic<bool> inUse{true};
        ThreadRecord *next = nullptr;
        std::atomic<const VexaObject *> sources[MaxDepth];
    };

    /** Marks the calling thread as delivering packets from @p source for the scope's lifetime. */
    class Scope
    {
    public:
        explicit Scope(const VexaObject *source)
        {
            ThreadRecord *r = current;
            if (Q_UNLIKELY(!r))
                r = attach();
            record = r;
            // Only this thread writes its state: no read-modify-write.
            const quint64 s = r->state.load(std::memory_order_relaxed);
            const quint64 depth = s & DepthMask;
            if (Q_LIKELY(depth < MaxDepth))
                r->sources[depth].store(source, std::memory_order_relaxed);
            pushed = s + 1;
            if (depth == 0)
                pushed += quint64(1) << DepthBits;
            r->state.store(pushed, std::memory_order_release);
            // The record must be visible before the connection list is read.
            if (Q_UNLIKELY(r->fence))
                fullFence();
            else
                std::atomic_signal_fence(std::memory_order_seq_cst);
        }
        ~Scope() { record->state.store(pushed - 1, std::memory_order_release); }
        Q_DISABLE_COPY(Scope)

    private:
        ThreadRecord *record;
        quint64 pushed;
    };

    /**
     * Returns once no thread but the caller is inside a delivery from
     * @p source that began before this call. Call it after disconnecting:
     * deliveries that begin later no longer see the connection. A delivery
     * that the calling thread itself is inside (unlinking from within a
     * packet hook) cannot be waited for and is not.
     */
    static void waitForDeliveries(const VexaObject *source);

    /** A full memory fence, in a form ThreadSanitizer understands too. */
    static void fullFence()
    {
#if defined(__SANITIZE_THREAD__)
        fenceWord.fetch_add(0, std::memory_order_seq_cst);
#else
        std::atomic_thread_fence(std::memory_order_seq_cst);
#endif
    }

private:
    static ThreadRecord *attach();
#if defined(__SANITIZE_THREAD__)
    static inline std::atomic<int> fenceWord{0};
#endif

    // Constant-initialised here, so reading it needs no per-access check.
    static inline thread_local ThreadRecord *current __attribute__((tls_model("initial-exec"))) = nullptr;
    static std::atomic<bool> sendersFence;
};

#endif // VEXADELIVERY_P_H
