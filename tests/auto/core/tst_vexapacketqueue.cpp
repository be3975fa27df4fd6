// VexaPacketQueue: the bounds and overflow rules, exact accounting with
// several senders (nothing lost or delivered twice, nothing delivered after
// stop, payloads all back in the pool), held-back senders released by stop,
// destroy and close, and a sender in the consumer's own thread.

#include <QAtomicInt>
#include <QSet>
#include <QThread>
#include <QtTest>

#include <atomic>

#include "vexa.h"
#include "vexaobject.h"
#include "vexapacketqueue.h"
#include "vexapayloadpool.h"

using Packet = VexaObject::Packet;
using Queue = VexaPacketQueue;
Q_DECLARE_METATYPE(Queue::Overflow)

namespace {

Packet packet(qint64 pts, int len = 0, char *data = nullptr)
{
    Packet p;
    p.pts = pts;
    p.len = len;
    p.data = data;
    p.tag = 0;
    return p;
}

// A module whose packet hook hands audio packets to its queue.
class Owner : public VexaObject
{
public:
    Queue queue{this};
    void onNewPacketA(Packet p) override { queue.push(p, Queue::Audio); }
};

} // namespace

class tst_VexaPacketQueue : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { Vexa::init(false); }

    // One kind, packets of (pts, len) pushed in order: what stays queued,
    // what each push returned, how many were dropped.
    void bounds_data()
    {
        QTest::addColumn<Queue::Overflow>("rule");
        QTest::addColumn<QList<qint64>>("limits");    // packets, bytes, duration
        QTest::addColumn<QList<int>>("lens");          // pts = 10 * index
        QTest::addColumn<QList<qint64>>("kept");       // pts left queued
        QTest::addColumn<QString>("results");          // per push: 1 queued, 0 dropped

        const QList<int> five{10, 10, 10, 10, 10};
        QTest::newRow("packets, drop oldest") << Queue::DropOldest << QList<qint64>{3, -1, -1} << five << QList<qint64>{20, 30, 40} << "11111";
        QTest::newRow("packets, drop newest") << Queue::DropNewest << QList<qint64>{3, -1, -1} << five << QList<qint64>{0, 10, 20} << "11100";
        QTest::newRow("packets, hold back times out") << Queue::HoldBack << QList<qint64>{2, -1, -1} << five << QList<qint64>{0, 10} << "11000";
        QTest::newRow("bound 0 keeps nothing, even holding back") << Queue::HoldBack << QList<qint64>{0, -1, -1} << QList<int>{1, 1} << QList<qint64>{} << "00";
        QTest::newRow("bytes, drop oldest several") << Queue::DropOldest << QList<qint64>{-1, 100, -1} << QList<int>{40, 40, 10, 90} << QList<qint64>{20, 30} << "1111";
        QTest::newRow("bytes, one larger packet alone") << Queue::DropNewest << QList<qint64>{-1, 10, -1} << QList<int>{50, 1} << QList<qint64>{0} << "10";
        QTest::newRow("time, drop newest") << Queue::DropNewest << QList<qint64>{-1, -1, 20} << five << QList<qint64>{0, 10, 20} << "11100";
        QTest::newRow("time, drop oldest") << Queue::DropOldest << QList<qint64>{-1, -1, 15} << five << QList<qint64>{30, 40} << "11111";
    }
    void bounds()
    {
        QFETCH(Queue::Overflow, rule);
        QFETCH(QList<qint64>, limits);
        QFETCH(QList<int>, lens);
        QFETCH(QList<qint64>, kept);
        QFETCH(QString, results);
        Queue q;
        q.setOverflow(rule);
        // A bound of 0 must drop at once, not hold the sender back for a minute.
        q.setHoldBackTimeout(QByteArray(QTest::currentDataTag()).startsWith("bound 0") ? 60000 : 0);
        q.setLimits(Queue::Video, {qint32(limits[0]), limits[1], limits[2]});
        int drops = 0;
        q.setDropHandler([&](const Packet &, Queue::Kind k) { drops += k == Queue::Video ? 1 : 100; });
        QString got;
        for (int i = 0; i < lens.size(); ++i)
            got += q.push(packet(10 * i, lens[i]), Queue::Video) ? '1' : '0';
        QCOMPARE(got, results);
        Queue::Batch b;
        q.take(&b);
        QVERIFY(b.audio.isEmpty());
        QList<qint64> pts;
        for (const Packet &p : qAsConst(b.video))
            pts << p.pts;
        QCOMPARE(pts, kept);
        QCOMPARE(drops, lens.size() - kept.size());
        QCOMPARE(q.dropped(Queue::Video), qint64(drops));
        QCOMPARE(q.dropped(Queue::Audio), qint64(0));
    }

    // Four senders of both kinds into a consumer thread while the owner is
    // stopped in the middle: sent = delivered + dropped per kind, no packet
    // twice, none whose push began after stop() returned is delivered, and
    // every payload is back in the pool.
    void accounting_data()
    {
        QTest::addColumn<Queue::Overflow>("rule");
        QTest::newRow("hold back") << Queue::HoldBack;
        QTest::newRow("drop oldest") << Queue::DropOldest;
        QTest::newRow("drop newest") << Queue::DropNewest;
    }
    void accounting()
    {
        QFETCH(Queue::Overflow, rule);
        const int senders = 4;
        const int each = 4000;
        VexaPayloadPool pool(4096);
        auto *owner = new Owner;
        owner->start();
        Queue &q = owner->queue;
        q.setOverflow(rule);
        q.setPayloadPool(&pool);
        q.setLimits(Queue::Audio, {7, -1, -1});
        q.setLimits(Queue::Video, {-1, 64, -1});
        std::atomic<bool> stopped{false};
        QSet<qint64> lateIds;           // pushes that began after stop
        QMutex lateMutex;

        QSet<qint64> seen[2];
        bool twice = false;
        QThread *consumer = QThread::create([&] {
            Queue::Batch b;
            const auto note = [&] {
                for (int k = 0; k < 2; ++k) {
                    for (const Packet &p : qAsConst(k ? b.video : b.audio)) {
                        twice |= seen[k].contains(p.pts);
                        seen[k].insert(p.pts);
                        pool.release(p.data);
                    }
                }
            };
            while (q.waitAndTake(&b) || q.isOpen())
                note();
            q.take(&b);   // what was queued before the stop
            note();
        });
        consumer->start();
        QList<QThread *> threads;
        for (int s = 0; s < senders; ++s) {
            threads << QThread::create([&, s] {
                for (int i = 0; i < each; ++i) {
                    const qint64 id = qint64(s) * each + i;
                    const bool late = stopped.load();
                    char byte = char(i);
                    char *data = pool.acquire(&byte, 1, 0, VexaPayloadPool::NoWait);
                    if (!data)
                        data = pool.acquire(&byte, 1, 0);
                    q.push(packet(id, 1, data), i % 2 ? Queue::Video : Queue::Audio);
                    if (late) {
                        QMutexLocker l(&lateMutex);
                        lateIds.insert(id);
                    }
                }
            });
            threads.last()->start();
        }
        QTest::qWait(5);
        owner->stop();
        stopped = true;
        for (QThread *t : qAsConst(threads)) {
            QVERIFY(t->wait(30000));
            delete t;
        }
        QVERIFY(consumer->wait(30000));
        delete consumer;
        QVERIFY(!twice);
        const qint64 sent = qint64(senders) * each / 2;
        QCOMPARE(seen[0].size() + q.dropped(Queue::Audio), sent);
        QCOMPARE(seen[1].size() + q.dropped(Queue::Video), sent);
        for (qint64 id : qAsConst(lateIds))
            QVERIFY2(!seen[0].contains(id) && !seen[1].contains(id), qPrintable(QString::number(id)));
        QCOMPARE(pool.blockCount(), 0);
        owner->destroy();
    }

    // A sender held back by a full queue, inside a packet delivery, returns
    // (its packet dropped) when the owner stops, is destroyed or the queue
    // closes.
    void holdBackReleased_data()
    {
        QTest::addColumn<QString>("how");
        QTest::newRow("stop") << "stop";
        QTest::newRow("destroy") << "destroy";
        QTest::newRow("close") << "close";
    }
    void holdBackReleased()
    {
        QFETCH(QString, how);
        auto *source = new VexaObject;
        auto *owner = new Owner;
        owner->queue.setLimits(Queue::Audio, {1, -1, -1});
        source->start();
        owner->start();
        source->linkA(owner);
        std::atomic<int> sent{0};
        QThread *sender = QThread::create([&] {
            for (int i = 0; i < 2; ++i, ++sent)
                source->sendPacketA(packet(i));
        });
        sender->start();
        QTRY_COMPARE(sent.load(), 1);
        QVERIFY(!sender->wait(50));   // the second waits for room
        if (how == "stop")
            owner->stop();
        else if (how == "destroy")
            owner->destroy();
        else
            owner->queue.close();
        QVERIFY(sender->wait(10000));
        delete sender;
        if (how != "destroy") {
            QCOMPARE(owner->queue.dropped(Queue::Audio), qint64(1));
            QCOMPARE(owner->queue.count(Queue::Audio), 1);
            owner->destroy();
        }
        source->destroy();
    }

    // A sender in the consumer's thread is never held back: the wake
    // handler runs in its place (once per batch otherwise), and what it did
    // not make room for is queued beyond the bound.
    void senderInConsumerThread_data()
    {
        QTest::addColumn<bool>("drains");
        QTest::addColumn<int>("maxQueued");
        QTest::newRow("handler drains") << true << 0;
        QTest::newRow("handler only wakes") << false << 6;
    }
    void senderInConsumerThread()
    {
        QFETCH(bool, drains);
        QFETCH(int, maxQueued);
        Queue q;
        q.setConsumerThread(QThread::currentThread());
        q.setLimits(Queue::Audio, {2, -1, -1});
        int wakes = 0;
        int taken = 0;
        Queue::Batch b;
        q.setWakeHandler([&] {
            ++wakes;
            if (drains) {
                q.take(&b);
                taken += b.size();
            }
        });
        int most = 0;
        for (int i = 0; i < 6; ++i) {
            QVERIFY(q.push(packet(i), Queue::Audio));
            most = qMax(most, q.count(Queue::Audio));
        }
        QCOMPARE(most, maxQueued);
        QCOMPARE(taken + q.count(Queue::Audio), 6);
        QCOMPARE(q.dropped(Queue::Audio), qint64(0));
        // Draining: a wake per packet (each takes); else the first, then
        // one per push that found the queue full.
        QCOMPARE(wakes, drains ? 6 : 5);
    }
};

QTEST_GUILESS_MAIN(tst_VexaPacketQueue)
#include "tst_vexapacketqueue.moc"
