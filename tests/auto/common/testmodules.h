#ifndef TESTMODULES_H
#define TESTMODULES_H

// Helper modules for the tests of the example modules: a source the test
// drives by hand and a sink that counts packets and records events.

#include <QAtomicInt>
#include <QMutex>
#include <QMutexLocker>

#include "vexa.h"
#include "vexaexamplemodules.h"
#include "vexaobject.h"

class VexaTestSource : public VexaObject
{
    Q_OBJECT
public:
    Q_INVOKABLE explicit VexaTestSource(QObject *parent = nullptr) : VexaObject(parent) {}
    void setOutInfoA(const StreamInfo &info) { outInfoA = info; }
    void setOutInfoV(const StreamInfo &info) { outInfoV = info; }
};

class VexaTestSink : public VexaObject
{
    Q_OBJECT
public:
    Q_INVOKABLE explicit VexaTestSink(QObject *parent = nullptr) : VexaObject(parent) {}
    int packets() const { return count.loadAcquire(); }
    QList<QPair<QString, QVariant>> events() const { QMutexLocker l(&mutex); return eventList; }

protected:
    void onNewPacketA(Packet) override { count.ref(); }
    void onNewPacketV(Packet) override { count.ref(); }
    void onNewEvent(QString type, QVariant value) override { QMutexLocker l(&mutex); eventList.append({type, value}); }

private:
    QAtomicInt count;
    mutable QMutex mutex;
    QList<QPair<QString, QVariant>> eventList;
};

// The framework on its short path, with the example modules and these.
inline void registerTestModules()
{
    Vexa::init(false);
    vexaRegisterExampleModules();
    qRegisterMetaType<VexaTestSource *>("VexaTestSource");
    qRegisterMetaType<VexaTestSink *>("VexaTestSink");
}

#endif // TESTMODULES_H
