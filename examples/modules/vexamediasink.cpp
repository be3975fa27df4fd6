#include "vexamediasink.h"

#include <QMutex>
#include <QThread>
#include <QWaitCondition>

#include "vexasinkcounters_p.h"

VexaMediaSink::VexaMediaSink(QObject *parent)
    : VexaObject(parent)
    , counts(new VexaSinkCounters)
{
    directInvokeNames << QStringLiteral("stats");
}

VexaMediaSink::~VexaMediaSink() = default;

QVariant VexaMediaSink::stats()
{
    return counts->toMap();
}

void VexaMediaSink::onNewPacketA(Packet pkt)
{
    accept(pkt, false);
}

void VexaMediaSink::onNewPacketV(Packet pkt)
{
    accept(pkt, true);
}

void VexaMediaSink::onNewInfoA(StreamInfo info)
{
    described(info, false);
}

void VexaMediaSink::onNewInfoV(StreamInfo info)
{
    described(info, true);
}

bool VexaMediaSink::waitForWorker(QMutex *gate, QWaitCondition *changed, const std::function<bool()> &idle)
{
    const bool own = QThread::currentThread() == thread();
    while (idle()) {
        if (own || getState() != QLatin1String("started"))
            return false;
        // Also wakes now and then: a stop in between does not wake it.
        changed->wait(gate, 100);
    }
    return true;
}
