#ifndef VEXAPAYLOADPOOL_H
#define VEXAPAYLOADPOOL_H

#include <QList>
#include <QMutex>
#include <QSet>
#include <QWaitCondition>

#include <functional>
#include <unordered_map>

#include "vexapayloadlend.h"
#include "vexabase_export.h"

/**
 * Payload copies for a module that must not lose packets: a ring of memory
 * that, unlike the base class's bufferData() ring, knows which blocks are
 * still in use, so a new copy never lands on a payload that is still queued
 * or held by a muxer.
 *
 * A module copies a payload in with acquire() (or keeps a lent one with
 * keep(), see VexaPayloadLend) in the sending thread, queues
 * the packet with the block's address, and gives the block back with
 * release() once it is done with it (in any order, from any thread). A
 * payload larger than the whole ring gets a block of its own from the heap,
 * so no packet is refused for its size. When the ring is full, acquire()
 * either waits until a block is released (back-pressure, lossless) or
 * returns null at once (for live sources that rather drop).
 *
 * @code
 *   pool.setSize(settings.value("memSize").toInt());          // onStart
 *   char *copy = pool.acquire(pkt.data, pkt.len);             // onNewPacketV
 *   if (copy) { pkt.data = copy; bufferPacketV(pkt); }
 *   ...
 *   for (const Packet &p : takePacketsV()) { use(p); pool.release(p.data); }   // worker
 * @endcode
 *
 * Thread: thread-safe.
 */
class VEXABASE_EXPORT VexaPayloadPool
{
public:
    enum Wait { WaitForRoom, NoWait };

    /** A pool with a ring of @p size bytes (none when @p size < 1: every block then comes from the heap). */
    explicit VexaPayloadPool(qint32 size = 0);
    /** Frees the ring and every block not released. Blocks must not be used after. */
    ~VexaPayloadPool();

    /**
     * Replaces the ring by one of @p size bytes. False (nothing changed)
     * when a block is still in use or the memory cannot be had.
     */
    bool setSize(qint32 size);
    qint32 size() const;

    /**
     * A block of @p len + @p padding bytes: @p len bytes copied from @p src
     * (when not null), then @p padding zero bytes. From the ring when the
     * block fits in it, else from the heap. When the ring has no room now,
     * WaitForRoom waits for a release (calling the full handler first) and
     * NoWait returns null. Null also when the pool is closed or memory runs
     * out. The copy is made outside the pool's lock.
     */
    char *acquire(const char *src, int len, int padding = 0, Wait wait = WaitForRoom);
    /**
     * Keeps a payload without copying it: a block that its owner lends for
     * as long as the pool holds it (a reference-counted buffer, for
     * instance). Returns @p data, to queue and release() like a block from
     * acquire(); the release calls @p unref(@p opaque) instead of freeing.
     * Counted in blockCount(), not in usedBytes() (the memory is not the
     * ring's). Null when the pool is closed or @p data is null: the caller
     * then still holds what @p opaque stands for.
     */
    char *adopt(char *data, void (*unref)(void *opaque), void *opaque);
    /** adopt() of a reference that @p lender gave (VexaPayloadLend::borrow()). */
    char *adopt(char *data, const VexaPayloadLend::Lender *lender, void *reference);
    /**
     * What a receiver keeps of a payload while sendPacketA/V runs: the
     * sender's own buffer, adopted, when it lends one that holds @p len
     * bytes at @p src and @p padding bytes behind them (VexaPayloadLend),
     * else a copy as acquire() makes it (@p wait applies to the copy only).
     * Null as acquire() and adopt() give it. Release it like any block.
     */
    char *keep(const char *src, int len, int padding = 0, Wait wait = WaitForRoom);
    /** Gives back a block from acquire() or adopt(); null is ignored. */
    void release(char *block);
    /**
     * Lets go of a block from adopt() without calling its unref: the caller
     * takes over what the opaque pointer stands for (hands the owner's
     * reference on to a muxer, for instance) and must not release() the
     * block. Returns that opaque pointer, or null (nothing changed) when
     * @p block is not an adopted block, or when @p by is given and the block
     * is not a reference that lender gave (the caller knows only its kind).
     */
    void *disown(char *block, const VexaPayloadLend::Lender *by = nullptr);

    /** Bytes of ring blocks in use. */
    qint64 usedBytes() const;
    /** Blocks in use, ring and heap. */
    int blockCount() const;

    /**
     * Called, without the pool's lock, each time an acquire() starts waiting
     * for room: the owner can make whoever holds blocks let go (a muxer
     * keeping packets back to interleave them).
     */
    void setFullHandler(std::function<void()> handler);

    /** Ends every wait in acquire() and makes it return null until open(). */
    void close();
    /** Lets acquire() hand out blocks again (a new pool is open). */
    void open();

private:
    struct Block {
        char *start;
        char *end;
        bool done;
    };
    bool findRoom(qint64 len, char **start) const;

    mutable QMutex mutex;
    QWaitCondition freed;
    char *base = nullptr;       // guarded by mutex
    qint32 ringSize = 0;
    char *pos = nullptr;        // where the next block starts
    QList<Block> blocks;        // ring blocks in allocation order, until the oldest is done
    qint64 used = 0;
    QSet<char *> heapBlocks;
    struct Lent {
        void (*unref)(void *);
        void *opaque;
        const VexaPayloadLend::Lender *lender;   // null: adopted with an unref of its own
    };
    std::unordered_multimap<char *, Lent> lentBlocks;   // adopted; one entry per adopt()
    bool closed = false;
    std::function<void()> onFull;

    Q_DISABLE_COPY(VexaPayloadPool)
};

#endif // VEXAPAYLOADPOOL_H
