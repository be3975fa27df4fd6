// Several producer threads feed one module's video queue through
// bufferPacketV while a consumer thread drains it, the way a module's worker
// does. Every packet carries a unique number (producer, sequence) in its pts;
// at the end every packet sent is accounted for exactly once: drained, or
// dropped by the bound (counted by bufferPacketV returning false). None is
// drained twice, and each producer's packets are drained in the order sent.

#include <QtTest>

#include <atomic>
#include <thread>
#include <vector>

#include <VexaObject>

#include "vexatest.h"

namespace {

class Sink : public VexaObject
{
    Q_OBJECT

public:
    using VexaObject::bufLenV;
    using VexaObject::lockV;
    using VexaObject::packetsV;
    using VexaObject::threadName;

    /** Takes everything queued, oldest first, as the module's worker would. */
    QList<Packet> takeAll()
    {
        lockV.lockForWrite();
        QList<Packet> taken;
        taken.swap(packetsV);
        lockV.unlock();
        return taken;
    }
};

constexpr int producerBits = 8;  // pts = sequence << producerBits | producer

// Packets per run: VEXA_STRESS_PACKETS, else 2,000,000 scaled by
// VexaTest::stressScale().
qint64 packetsPerRun()
{
    bool ok = false;
    const qint64 fixed = qEnvironmentVariable("VEXA_STRESS_PACKETS").toLongLong(&ok);
    if (ok && fixed > 0)
        return fixed;
    return qMax<qint64>(1000, qint64(2000000 * VexaTest::stressScale()));
}

} // namespace

class tst_PacketStress : public QObject
{
    Q_OBJECT

private slots:
    void exactAccounting_data()
    {
        QTest::addColumn<int>("bound");
        QTest::addColumn<int>("producers");
        QTest::addColumn<bool>("rebound"); // the module changes its bound while they send
        QTest::newRow("bound 20, 4 producers") << 20 << 4 << false;
        QTest::newRow("bound 20, 1 producer") << 20 << 1 << false;
        QTest::newRow("bound 2, 4 producers") << 2 << 4 << false;
        QTest::newRow("unbounded, 4 producers") << -1 << 4 << false;
        QTest::newRow("bound changed while sending") << 20 << 4 << true;
    }

    void exactAccounting()
    {
        QFETCH(int, bound);
        QFETCH(int, producers);
        QFETCH(bool, rebound);
        const qint64 perProducer = packetsPerRun() / producers;
        const qint64 sent = perProducer * producers;

        Sink sink;
        sink.bufLenV = bound; // set before any producer runs
        if (rebound) {
            // Started in this thread: its settings change here, through the
            // module's own path, while the producers read the bound.
            sink.threadName = QStringLiteral("main");
            sink.start(QVariantMap{{"bufLenV", bound}});
        }

        std::atomic<int> running{producers};
        std::vector<qint64> dropped(producers, 0);
        std::vector<std::thread> threads;
        for (int p = 0; p < producers; ++p) {
            threads.emplace_back([&, p] {
                VexaObject::Packet pkt;
                pkt.tag = p;
                for (qint64 seq = 0; seq < perProducer; ++seq) {
                    pkt.pts = seq << producerBits | p;
                    if (!sink.bufferPacketV(pkt))
                        ++dropped[p];
                }
                running.fetch_sub(1);
            });
        }

        // The consumer, in this thread: drain until the producers are done
        // and the queue is empty, checking as it goes.
        std::vector<quint8> seen(size_t(sent), 0);
        std::vector<qint64> lastSeq(producers, -1);
        qint64 drained = 0;
        qint64 twice = 0;
        qint64 outOfOrder = 0;
        qint64 foreign = 0;
        int longestDrain = 0;
        int rounds = 0;
        for (;;) {
            const bool last = running.load() == 0;
            const QList<VexaObject::Packet> batch = sink.takeAll();
            longestDrain = qMax(longestDrain, int(batch.size()));
            for (const VexaObject::Packet &pkt : batch) {
                const int p = int(pkt.pts & ((1 << producerBits) - 1));
                const qint64 seq = pkt.pts >> producerBits;
                if (p >= producers || seq < 0 || seq >= perProducer || pkt.tag != p) {
                    ++foreign;
                    continue;
                }
                quint8 &mark = seen[size_t(p * perProducer + seq)];
                if (mark)
                    ++twice;
                mark = 1;
                if (seq <= lastSeq[p])
                    ++outOfOrder;
                lastSeq[p] = seq;
                ++drained;
            }
            if (rebound && ++rounds % 64 == 0) {
                sink.setData(QVariantMap{{"bufLenV", rounds % 128 ? 3 : bound}});
                QCoreApplication::processEvents();
            }
            if (last && batch.isEmpty())
                break;
            if (batch.isEmpty())
                std::this_thread::yield();
        }
        for (std::thread &t : threads)
            t.join();

        qint64 totalDropped = 0;
        for (qint64 d : dropped)
            totalDropped += d;
        QCOMPARE(foreign, 0);
        QCOMPARE(twice, 0);
        QCOMPARE(outOfOrder, 0);
        QCOMPARE(drained + totalDropped, sent);
        QVERIFY(sink.packetsV.isEmpty());
        if (bound == -1)
            QCOMPARE(totalDropped, 0);
        else
            QVERIFY2(longestDrain < bound, "the queue held more than its bound allows");
    }
};

QTEST_GUILESS_MAIN(tst_PacketStress)
#include "tst_packetstress.moc"
