#include "vexamediasink.h"

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
