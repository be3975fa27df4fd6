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
 * delivering right now (sendPacketA/V emitting into direct links), and lets
 * another thread wait until every delivery from one source that may still
 * reach a receiver it just disconnected has returned.
 *
 * The sending side only writes its own thread's record (no read-modify-write,
 * no lock): a send costs a few plain stores. The waiting side makes the
 * senders' stores visible with a process-wide memory barrier (membarrier);
 * where the kernel lacks it, senders issue a full fence themselves.
 */
class VexaDelivery
{
public:
    // Deeper chains (a relay inside a relay ...) than this are not recorded
    // one by one: a waiter then waits for the deepest recorded delivery,
    // which contains them.
    static constexpr int MaxDepth = 32;

    struct Frame {
        std::atomic<const VexaObject *> source{nullptr};
        // serial << 1 | 1 while the delivery runs, serial << 1 once it returned.
        std::atomic<quint64> word{0};
    };

    // One per thread that ever sent a packet; never freed, taken over by a
    // later thread once its own thread has ended.
    struct ThreadRecord {
        int depth = 0;      // the owning thread's only
        quint64 pushes = 0; // the owning thread's only
        std::atomic<bool> inUse{true};
        ThreadRecord *next = nullptr;
        Frame frames[MaxDepth];
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
            level = r->depth++;
            if (Q_LIKELY(level < MaxDepth)) {
                word = ++r->pushes << 1;
                r->frames[level].source.store(source, std::memory_order_relaxed);
                r->frames[level].word.store(word | 1, std::memory_order_release);
            }
            // The frame must be visible before the connection list is read.
            if (Q_UNLIKELY(sendersFence.load(std::memory_order_relaxed)))
                std::atomic_thread_fence(std::memory_order_seq_cst);
            else
                std::atomic_signal_fence(std::memory_order_seq_cst);
        }
        ~Scope()
        {
            if (Q_LIKELY(level < MaxDepth))
                record->frames[level].word.store(word, std::memory_order_release);
            record->depth = level;
        }
        Q_DISABLE_COPY(Scope)

    private:
        ThreadRecord *record;
        int level;
        quint64 word = 0;
    };

    /**
     * Returns once no thread but the caller is inside a delivery from
     * @p source that began before this call. Call it after disconnecting:
     * deliveries that begin later no longer see the connection. A delivery
     * that the calling thread itself is inside (unlinking from within a
     * packet hook) cannot be waited for and is not.
     */
    static void waitForDeliveries(const VexaObject *source);

private:
    static ThreadRecord *attach();

    static thread_local ThreadRecord *current __attribute__((tls_model("initial-exec")));
    static std::atomic<bool> sendersFence;
};

#endif // VEXADELIVERY_P_H
