#ifndef VEXAPAYLOADLEND_H
#define VEXAPAYLOADLEND_H

#include <QtGlobal>

#include "vexabase_export.h"

/**
 * Lending a payload instead of having it copied. A packet's payload is
 * valid only while sendPacketA/V runs, so a receiver that keeps it copies
 * it. A sender whose payload lies in a reference-counted buffer lends the
 * buffer for the call instead, with a VexaPayloadLend on the stack around
 * sendPacketA/V; a receiver running in the sending thread during the call
 * then keeps the payload by taking a reference (borrow(), or
 * VexaPayloadPool::keep(), which borrows or copies), no copy made.
 * Receivers must not write into a borrowed payload.
 *
 * The kind of buffer is told by a Lender: how a reference is taken and let
 * go. A receiver that wants to hand the reference itself on (to a library
 * that takes that kind of buffer) asks the pool for it by that lender
 * (VexaPayloadPool::disown()).
 *
 * @code
 *   { const VexaPayloadLend lend(&lender, buffer, data, size); sendPacketV(pkt); }   // sender
 *   char *kept = pool.keep(pkt.data, pkt.len);                                        // receiver
 * @endcode
 *
 * Thread: a lend holds for the thread that made it, until it ends; lends
 * nest (the inner one counts until it ends).
 */
class VEXABASE_EXPORT VexaPayloadLend
{
public:
    /** How references to one kind of buffer are taken and let go. */
    struct Lender {
        void *(*ref)(void *owner);       // a new reference to what owner stands for; null when none can be had
        void (*unref)(void *reference);  // lets go of a reference from ref
    };

    /**
     * Lends the @p size bytes at @p begin, which @p owner holds, to the
     * receivers this thread calls until the lend ends.
     */
    VexaPayloadLend(const Lender *lender, void *owner, const char *begin, qint64 size);
    ~VexaPayloadLend();

    /**
     * A new reference to the buffer lent in this thread when it holds
     * @p len bytes at @p data followed by @p padding bytes, else null (copy
     * then). The caller lets it go with (*lender)->unref; @p lender receives
     * the lender (null: not wanted).
     */
    static void *borrow(const char *data, int len, int padding, const Lender **lender);

private:
    const VexaPayloadLend *previous;
    const Lender *lender;
    void *owner;
    const char *begin;
    qint64 size;

    Q_DISABLE_COPY(VexaPayloadLend)
};

#endif // VEXAPAYLOADLEND_H
