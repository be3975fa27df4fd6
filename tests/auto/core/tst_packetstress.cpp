// Several producer modules, each in its own thread, feed one consumer's
// bounded queue through video links while the consumer's thread drains it
// under lockV. Every packet sent is either drained exactly once or counted
// as dropped by a false return (which drops the oldest queued packet, not
// necessarily the sender's own), and each producer's packets are drained in
// the order they were sent.

#include <QHash>
#include <QVector>
#include <QtTest>

#include "vexaprobe.h"

class tst_PacketStress : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        Vexa::init(false);
        registerProbe();
    }

    void producersAndDrainer_data()
    {
        QTest::addColumn<int>("bound");
        QTest::newRow("bound 20") << 20;
        QTest::newRow("bound 3") << 3;
        QTest::newRow("unbounded") << -1;
    }
    void producersAndDrainer()
    {
        QFETCH(int, bound);
        const int producers = 4;
        const int perProducer = 20000;

        auto *consumer = qobject_cast<VexaProbe *>(Vexa::create(QStringLiteral("Probe"), QStringLiteral("stress_consumer")));
        consumer->threadName = QStringLiteral("stress_consumer");
        consumer->mode = VexaProbe::Queue;
        QVERIFY(consumer->start(QVariantMap{{"bufLenV", bound}}));
        consumer->getData(); // the bound is set

        // The drain loop runs in the consumer's thread until `stop`, then
        // empties the queue once more.
        QAtomicInt stop, drainDone, producing;
        QVector<qint64> drained; // read after drainDone
        QMetaObject::invokeMethod(consumer, [&] {
            for (bool last = false; !last;) {
                last = stop.loadAcquire();
                consumer->lockV.lockForWrite();
                while (!consumer->packetsV.isEmpty())
                    drained << consumer->packetsV.takeFirst().pts;
                consumer->lockV.unlock();
                QThread::yieldCurrentThread();
            }
            drainDone.storeRelease(1);
        });

        QList<VexaProbe *> all{consumer};
        for (int id = 0; id < producers; ++id) {
            const QString name = QStringLiteral("stress_producer_%1").arg(id);
            auto *p = qobject_cast<VexaProbe *>(Vexa::create(QStringLiteral("Probe"), name));
            p->threadName = name;
            p->linkV(consumer);
            QVERIFY(p->start());
            all << p;
            // Packet ids: producer number in the high half, sequence in the low one.
            QMetaObject::invokeMethod(p, [p, id, &producing] {
                VexaObject::Packet packet;
                for (qint64 i = 0; i < perProducer; ++i) {
                    packet.pts = (qint64(id) << 32) | i;
                    p->sendPacketV(packet);
                }
                producing.ref();
            });
        }
        QTRY_VERIFY_WITH_TIMEOUT(producing.loadAcquire() == producers, 300000);
        stop.storeRelease(1);
        QTRY_VERIFY_WITH_TIMEOUT(drainDone.loadAcquire(), 60000);

        const int dropped = consumer->dropped.loadAcquire();
        QCOMPARE(drained.size() + dropped, producers * perProducer);
        if (bound == -1)
            QCOMPARE(dropped, 0);
        QHash<int, qint64> lastSeq;
        for (qint64 id : drained) {
            const int producer = int(id >> 32);
            const qint64 seq = id & 0xffffffff;
            QVERIFY(producer >= 0 && producer < producers);
            // Strictly increasing per producer: no duplicates, no reordering.
            QVERIFY2(seq > lastSeq.value(producer, -1), qPrintable(QStringLiteral("producer %1 seq %2").arg(producer).arg(seq)));
            lastSeq.insert(producer, seq);
        }
        QVERIFY(consumer->packetsV.isEmpty());
        QVERIFY(retire(all));
    }
};

QTEST_GUILESS_MAIN(tst_PacketStress)
#include "tst_packetstress.moc"
