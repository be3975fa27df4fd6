#ifndef TESTMODULES_H
#define TESTMODULES_H

// Helper modules for the example module tests: a source the test drives by
// hand and a sink that records what reaches it.

#include <QCryptographicHash>
#include <QMutex>
#include <QMutexLocker>

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
    struct Seen {
        bool video;
        qint64 pts;
        qint64 altPts;
        int len;
        int tag;
        QByteArray md5;
    };

    Q_INVOKABLE explicit VexaTestSink(QObject *parent = nullptr) : VexaObject(parent) {}

    void onNewPacketA(Packet p) override { record(p, false); }
    void onNewPacketV(Packet p) override { record(p, true); }

    QList<Seen> packets() { QMutexLocker l(&mutex); return seen; }
    int packetCount() { QMutexLocker l(&mutex); return seen.size(); }
    QList<QPair<QString, QVariant>> events() { QMutexLocker l(&mutex); return eventList; }
    bool hasEvent(const QString &type) {
        QMutexLocker l(&mutex);
        for (const auto &e : qAsConst(eventList))
            if (e.first == type)
                return true;
        return false;
    }
    StreamInfo infoA() { QMutexLocker l(&mutex); return lastA; }
    StreamInfo infoV() { QMutexLocker l(&mutex); return lastV; }

protected:
    void onNewEvent(QString type, QVariant value) override { QMutexLocker l(&mutex); eventList.append({type, value}); }
    void onNewInfoA(StreamInfo info) override { QMutexLocker l(&mutex); lastA = info; }
    void onNewInfoV(StreamInfo info) override { QMutexLocker l(&mutex); lastV = info; }

private:
    void record(const Packet &p, bool video)
    {
        const QByteArray md5 = QCryptographicHash::hash(QByteArray::fromRawData(p.data, p.len), QCryptographicHash::Md5).toHex();
        QMutexLocker l(&mutex);
        seen.append(Seen{video, p.pts, p.altPts, p.len, p.tag, md5});
    }

    QMutex mutex;
    QList<Seen> seen;
    QList<QPair<QString, QVariant>> eventList;
    StreamInfo lastA;
    StreamInfo lastV;
};

#endif // TESTMODULES_H
