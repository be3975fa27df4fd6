// A module library as a third party would write one, loaded by the tools
// tests with -l: a sink that loses packets on purpose (for the launcher's
// loss report and exit code; it can also be slow to stop) and a sink that
// declares nothing (whose settings and links are not checked).

#include <QAtomicInteger>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QMetaType>
#include <QThread>

#include "vexaobject.h"

class VexaLossySink : public VexaObject
{
    Q_OBJECT
    Q_CLASSINFO("setting:keepEvery", "int=2; keep one packet in this many, drop the others")
    Q_CLASSINFO("setting:dropping", "bool=false; report the drops as asked for")
    Q_CLASSINFO("setting:stopDelayMs", "int=0; how long stopping takes, in milliseconds (at most, with stopUntil)")
    Q_CLASSINFO("setting:stopUntil", "string; stopping lasts until this file exists (or stopDelayMs has passed)")
    Q_CLASSINFO("sends", "events")
    Q_CLASSINFO("accepts", "audio video")

public:
    Q_INVOKABLE explicit VexaLossySink(QObject *parent = nullptr) : VexaObject(parent)
    {
        directInvokeNames << QStringLiteral("stats");
    }
    Q_INVOKABLE QVariant stats()
    {
        return QVariantMap{{"packetsA", qint64(kept[0].loadAcquire())}, {"packetsV", qint64(kept[1].loadAcquire())},
                           {"droppedA", qint64(lost[0].loadAcquire())}, {"droppedV", qint64(lost[1].loadAcquire())},
                           {"dropped", qint64(lost[0].loadAcquire() + lost[1].loadAcquire())},
                           {"dropping", dropping.loadAcquire() != 0}};
    }
    void onNewPacketA(Packet) override { count(0); }
    void onNewPacketV(Packet) override { count(1); }

protected:
    void onStart() override
    {
        every.storeRelease(qMax(1, settings.value("keepEvery", 2).toInt()));
        dropping.storeRelease(settings.value("dropping").toBool() ? 1 : 0);
    }
    void onStop() override
    {
        QElapsedTimer held;
        held.start();
        const qint64 limit = qMax(0, settings.value("stopDelayMs").toInt());
        const QString until = settings.value("stopUntil").toString();
        while (held.elapsed() < limit && (until.isEmpty() || !QFileInfo::exists(until)))
            QThread::msleep(until.isEmpty() ? quint32(limit - held.elapsed()) : 10);
    }

private:
    void count(int k)
    {
        if (seen[k].fetchAndAddRelaxed(1) % every.loadAcquire() == 0)
            kept[k].ref();
        else
            lost[k].ref();
    }
    QAtomicInteger<qint64> seen[2];
    QAtomicInteger<qint64> kept[2];
    QAtomicInteger<qint64> lost[2];
    QAtomicInt every = 2;
    QAtomicInt dropping = 0;
};

class VexaPlainSink : public VexaObject
{
    Q_OBJECT

public:
    Q_INVOKABLE explicit VexaPlainSink(QObject *parent = nullptr) : VexaObject(parent) {}
};

extern "C" Q_DECL_EXPORT int vexaRegisterModules()
{
    qRegisterMetaType<VexaLossySink *>("VexaLossySink");
    qRegisterMetaType<VexaPlainSink *>("VexaPlainSink");
    return 2;
}

#include "lossymodules.moc"
