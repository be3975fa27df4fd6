#include "vexapayloadpool.h"

#include <QMutexLocker>

#include <cstdlib>
#include <cstring>

VexaPayloadPool::VexaPayloadPool(qint32 size)
{
    setSize(size);
}

VexaPayloadPool::~VexaPayloadPool()
{
    std::free(base);
    for (char *b : qAsConst(heapBlocks))
        std::free(b);
    for (const auto &l : lentBlocks)
        l.second.unref(l.second.opaque);
}

bool VexaPayloadPool::setSize(qint32 size)
{
    QMutexLocker locker(&mutex);
    if (!blocks.isEmpty() || !heapBlocks.isEmpty() || !lentBlocks.empty())
        return false;
    char *ring = nullptr;
    if (size > 0) {
        ring = static_cast<char *>(std::malloc(size_t(size)));
        if (!ring)
            return false;
    }
    std::free(base);
    base = ring;
    ringSize = ring ? size : 0;
    pos = base;
    used = 0;
    return true;
}

qint32 VexaPayloadPool::size() const
{
    QMutexLocker locker(&mutex);
    return ringSize;
}

// With the lock held: a place for len bytes at the current position or, when
// they would run past the end, at the base, that covers no block in use.
bool VexaPayloadPool::findRoom(qint64 len, char **start) const
{
    char *s = pos + len <= base + ringSize ? pos : base;
    char *e = s + len;
    for (const Block &b : blocks) {
        if (!b.done && s < b.end && b.start < e)
            return false;
    }
    *start = s;
    return true;
}

char *VexaPayloadPool::acquire(const char *src, int len, int padding, Wait wait)
{
    if (len < 0 || padding < 0)
        return nullptr;
    const qint64 total = qint64(len) + padding;
    char *block = nullptr;
    {
        QMutexLocker locker(&mutex);
        if (closed)
            return nullptr;
        if (total > ringSize) {
            // Larger than the whole ring: a block of its own.
            block = static_cast<char *>(std::malloc(size_t(qMax<qint64>(total, 1))));
            if (!block)
                return nullptr;
            heapBlocks.insert(block);
        } else {
            bool toldFull = false;
            while (!findRoom(total, &block)) {
                if (wait == NoWait)
                    return nullptr;
                if (!toldFull && onFull) {
                    toldFull = true;
                    const std::function<void()> handler = onFull;
                    locker.unlock();
                    handler();
                    locker.relock();
                } else {
                    freed.wait(&mutex);
                }
                if (closed)
                    return nullptr;
            }
            pos = block + total;
            used += total;
            blocks.append(Block{block, block + total, false});
        }
    }
    // The block is the caller's alone until it is released: copy without
    // the lock, so that releases from other threads are not held up.
    if (src && len > 0)
        std::memcpy(block, src, size_t(len));
    if (padding > 0)
        std::memset(block + len, 0, size_t(padding));
    return block;
}

char *VexaPayloadPool::adopt(char *data, void (*unref)(void *), void *opaque)
{
    QMutexLocker locker(&mutex);
    if (closed || !data)
        return nullptr;
    lentBlocks.emplace(data, Lent{unref, opaque, nullptr});
    return data;
}

char *VexaPayloadPool::adopt(char *data, const VexaPayloadLend::Lender *lender, void *reference)
{
    if (!lender)
        return nullptr;
    QMutexLocker locker(&mutex);
    if (closed || !data)
        return nullptr;
    lentBlocks.emplace(data, Lent{lender->unref, reference, lender});
    return data;
}

char *VexaPayloadPool::keep(const char *src, int len, int padding, Wait wait)
{
    const VexaPayloadLend::Lender *lender = nullptr;
    if (void *reference = VexaPayloadLend::borrow(src, len, padding, &lender)) {
        // Nothing is written into a borrowed payload: the block is the
        // sender's bytes themselves.
        char *block = adopt(const_cast<char *>(src), lender, reference);
        if (!block)
            lender->unref(reference);
        return block;
    }
    return acquire(src, len, padding, wait);
}

void VexaPayloadPool::release(char *block)
{
    if (!block)
        return;
    QMutexLocker locker(&mutex);
    if (heapBlocks.remove(block)) {
        std::free(block);
        return;
    }
    if (!lentBlocks.empty()) {
        const auto it = lentBlocks.find(block);
        if (it != lentBlocks.end()) {
            const Lent lent = it->second;
            lentBlocks.erase(it);
            // The owner's release may free memory: not under the lock.
            locker.unlock();
            lent.unref(lent.opaque);
            return;
        }
    }
    for (Block &b : blocks) {
        if (b.start == block && !b.done) {
            b.done = true;
            used -= b.end - b.start;
            break;
        }
    }
    while (!blocks.isEmpty() && blocks.first().done)
        blocks.removeFirst();
    if (blocks.isEmpty())
        pos = base; // an empty ring starts over, the largest room there is
    freed.wakeAll();
}

void *VexaPayloadPool::disown(char *block, const VexaPayloadLend::Lender *by)
{
    QMutexLocker locker(&mutex);
    if (!block || lentBlocks.empty())
        return nullptr;
    const auto it = lentBlocks.find(block);
    if (it == lentBlocks.end() || (by && it->second.lender != by))
        return nullptr;
    void *opaque = it->second.opaque;
    lentBlocks.erase(it);
    return opaque;
}

qint64 VexaPayloadPool::usedBytes() const
{
    QMutexLocker locker(&mutex);
    return used;
}

int VexaPayloadPool::blockCount() const
{
    QMutexLocker locker(&mutex);
    int n = heapBlocks.size() + int(lentBlocks.size());
    for (const Block &b : blocks)
        n += b.done ? 0 : 1;
    return n;
}

void VexaPayloadPool::setFullHandler(std::function<void()> handler)
{
    QMutexLocker locker(&mutex);
    onFull = std::move(handler);
}

void VexaPayloadPool::close()
{
    QMutexLocker locker(&mutex);
    closed = true;
    freed.wakeAll();
}

void VexaPayloadPool::open()
{
    QMutexLocker locker(&mutex);
    closed = false;
}
