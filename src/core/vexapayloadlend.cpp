#include "vexapayloadlend.h"

namespace {

// The innermost lend of this thread; null when nothing is lent.
thread_local const VexaPayloadLend *current = nullptr;

} // namespace

VexaPayloadLend::VexaPayloadLend(const Lender *lender, void *owner, const char *begin, qint64 size)
    : previous(current)
    , lender(lender)
    , owner(owner)
    , begin(begin)
    , size(size)
{
    current = this;
}

VexaPayloadLend::~VexaPayloadLend()
{
    current = previous;
}

void *VexaPayloadLend::borrow(const char *data, int len, int padding, const Lender **lender)
{
    const VexaPayloadLend *l = current;
    if (!l || !l->lender || !data || !l->begin || len < 0 || padding < 0)
        return nullptr;
    // Compared as addresses: the payload may lie in any buffer.
    const quintptr at = quintptr(data);
    const quintptr from = quintptr(l->begin);
    if (at < from || at - from + quint64(len) + quint64(padding) > quint64(qMax<qint64>(0, l->size)))
        return nullptr;
    void *reference = l->lender->ref(l->owner);
    if (reference && lender)
        *lender = l->lender;
    return reference;
}
