#include "vexapacketstats.h"

#include <QTimer>

VexaPacketStats::VexaPacketStats(QObject *parent)
    : VexaObject(parent)
{
    directInvokeNames << QStringLiteral("stats");
}

QVariant VexaPacketStats::stats()
{
    QVariantMap m;
    m["packetsA"] = qint64(receivedPacketsA.loadAcquire());
    m["bytesA"] = qint64(bytesA.loadAcquire());
    m["packetsV"] = qint64(receivedPacketsV.loadAcquire());
    m["bytesV"] = qint64(bytesV.loadAcquire());
    m["events"] = qint64(receivedEvents.loadAcquire());
    m["dropped"] = qint64(0);
    return m;
}

void VexaPacketStats::onNewPacketA(Packet pkt)
{
    receivedPacketsA.fetchAndAddRelaxed(1);
    bytesA.fetchAndAddRelaxed(qMax(pkt.len, 0));
}

void VexaPacketStats::onNewPacketV(Packet pkt)
{
    receivedPacketsV.fetchAndAddRelaxed(1);
    bytesV.fetchAndAddRelaxed(qMax(pkt.len, 0));
}

void VexaPacketStats::onNewEvent(QString, QVariant)
{
    receivedEvents.fetchAndAddRelaxed(1);
}

void VexaPacketStats::onStart()
{
    if (!timer) {
        timer = new QTimer(this);
        connect(timer, &QTimer::timeout, this, [this] { report(false); });
    }
    const int interval = settings.value("interval", 1000).toInt();
    if (interval > 0)
        timer->start(interval);
    else
        timer->stop();
}

void VexaPacketStats::onSetData(QVariantMap data)
{
    if (timer && data.contains("interval")) {
        const int interval = data.value("interval").toInt();
        if (interval > 0)
            timer->start(interval);
        else
            timer->stop();
    }
}

void VexaPacketStats::onStop()
{
    if (timer)
        timer->stop();
    report(true);
}

void VexaPacketStats::report(bool always)
{
    const QVariantMap m = stats().toMap();
    const qint64 total = m.value("packetsA").toLongLong() + m.value("packetsV").toLongLong();
    if (!always && total == lastTotal)
        return;
    lastTotal = total;
    sendEvent(QStringLiteral("stats"), m);
}
