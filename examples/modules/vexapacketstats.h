#ifndef VEXAPACKETSTATS_H
#define VEXAPACKETSTATS_H

#include <QAtomicInteger>

#include "vexaobject.h"
#include "vexaexamplemodules_export.h"

class QTimer;

/**
 * Sink module: counts the packets and payload bytes it receives per stream
 * kind, and the events it receives, and reports them as the event "stats"
 * (value: the map of stats()).
 *
 * Settings: "interval" (milliseconds between reports, default 1000; 0 reports
 * only at stop). A report is sent only when a counter changed since the last
 * one, and always once at stop.
 *
 * Thread: counting happens in the sending threads with atomic counters; the
 * reports come from the module's worker thread.
 */
class VEXAEXAMPLEMODULES_EXPORT VexaPacketStats : public VexaObject
{
    Q_OBJECT
    Q_CLASSINFO("setting:interval", "int=1000; milliseconds between \"stats\" events (0: only at stop)")
    Q_CLASSINFO("sends", "events")
    Q_CLASSINFO("accepts", "audio video events")
    Q_CLASSINFO("platform", "unused")
    Q_CLASSINFO("event:stats", "counters: packetsA, bytesA, packetsV, bytesV, events")

public:
    Q_INVOKABLE explicit VexaPacketStats(QObject *parent = nullptr);

    /** "packetsA", "bytesA", "packetsV", "bytesV", "events" (received on E links), "dropped" (always 0). Thread: thread-safe. */
    Q_INVOKABLE QVariant stats();

    void onNewPacketA(Packet pkt) override;
    void onNewPacketV(Packet pkt) override;
    void onNewEvent(QString type, QVariant value) override;

protected:
    void onStart() override;
    void onStop() override;
    void onSetData(QVariantMap data) override;

private:
    void report(bool always);

    QTimer *timer = nullptr;        // worker thread only
    qint64 lastTotal = -1;
    QAtomicInteger<qint64> receivedPacketsA = 0;   // not the base class queue
    QAtomicInteger<qint64> bytesA = 0;
    QAtomicInteger<qint64> receivedPacketsV = 0;
    QAtomicInteger<qint64> bytesV = 0;
    QAtomicInteger<qint64> receivedEvents = 0;
};

#endif // VEXAPACKETSTATS_H
