#include "vexasinkcounters_p.h"

#include "vexaexamples_p.h"
#include "vexamedia.h"
#include "vexaobject.h"

namespace {
// Rejected packets said one by one; the rest only in the counters.
const int maxRejectLines = 5;
}

void VexaSinkCounters::wrote(bool video, qint64 bytes)
{
    Kind &k = of(video);
    k.written.fetchAndAddRelaxed(1);
    k.bytes.fetchAndAddRelaxed(bytes);
}

void VexaSinkCounters::reachedMedia(qint64 us)
{
    if (us > mediaUs.loadRelaxed())
        mediaUs.storeRelease(us);
}

void VexaSinkCounters::rejected(VexaObject *module, bool video, qint64 pts, int error)
{
    Kind &k = of(video);
    k.dropped.fetchAndAddRelaxed(1);
    k.rejected.fetchAndAddRelaxed(1);
    if (rejectLines++ < maxRejectLines)
        qCDebug(lcExamples).noquote() << QStringLiteral("[%1] %2 packet at %3 us rejected: %4")
                                         .arg(module->name(), video ? "video" : "audio")
                                         .arg(static_cast<long long>(pts)).arg(VexaMedia::errorText(error));
}

QVariantMap VexaSinkCounters::toMap() const
{
    const Kind &a = kinds[0];
    const Kind &v = kinds[1];
    QVariantMap m;
    m["packetsA"] = qint64(a.written.loadAcquire());
    m["packetsV"] = qint64(v.written.loadAcquire());
    m["bytesA"] = qint64(a.bytes.loadAcquire());
    m["bytesV"] = qint64(v.bytes.loadAcquire());
    m["receivedA"] = qint64(a.received.loadAcquire());
    m["receivedV"] = qint64(v.received.loadAcquire());
    m["droppedA"] = qint64(a.dropped.loadAcquire());
    m["droppedV"] = qint64(v.dropped.loadAcquire());
    m["dropped"] = qint64(a.dropped.loadAcquire() + v.dropped.loadAcquire());
    m["rejected"] = qint64(a.rejected.loadAcquire() + v.rejected.loadAcquire());
    m["dropping"] = dropping.loadAcquire() != 0;
    m["mediaUs"] = qint64(mediaUs.loadAcquire());
    return m;
}
