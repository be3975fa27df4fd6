// VexaPayloadPool: copies never land on a block in use, larger-than-ring
// payloads get blocks of their own, a full ring holds a sender back until a
// release (or refuses at once), close() ends a wait, a lent payload is kept
// without a copy; and the whole-queue take of VexaObject.

#include <QAtomicInt>
#include <QScopeGuard>
#include <QThread>
#include <QtTest>

#include "vexaobject.h"
#include "vexapayloadlend.h"
#include "vexapayloadpool.h"

namespace {

QByteArray pattern(int seed, int size)
{
    QByteArray b(size, Qt::Uninitialized);
    for (int i = 0; i < size; ++i)
        b[i] = char(seed * 31 + i);
    return b;
}

class Queueing : public VexaObject
{
public:
    using VexaObject::VexaObject;
    void bound(int n) { bufLenA = bufLenV = n; }
    int queuedA() { QReadLocker l(&lockA); return packetsA.size(); }
};

} // namespace

class tst_VexaPayloadPool : public QObject
{
    Q_OBJECT

private slots:
    // Sizes acquired in order, which are released (by index) before the
    // next; every live block keeps its bytes, and the padding is zero.
    void blocksStayIntact_data()
    {
        QTest::addColumn<QList<int>>("sizes");
        QTest::addColumn<QStringList>("releaseBefore"); // indexes released before acquiring sizes[i]

        QTest::newRow("fill exactly") << QList<int>{250, 250, 250, 250} << QStringList{"", "", "", ""};
        QTest::newRow("wrap after the oldest went") << QList<int>{400, 400, 300} << QStringList{"", "", "0"};
        // The block at the base goes last; the newer one first.
        QTest::newRow("out of order releases") << QList<int>{300, 300, 300, 600} << QStringList{"", "", "", "1,0"};
        QTest::newRow("larger than the ring") << QList<int>{200, 5000, 200} << QStringList{"", "", ""};
        QTest::newRow("empty payload") << QList<int>{0, 100} << QStringList{"", ""};
    }
    void blocksStayIntact()
    {
        QFETCH(QList<int>, sizes);
        QFETCH(QStringList, releaseBefore);
        const int padding = 8;
        VexaPayloadPool pool(1000 + 4 * padding);
        QList<char *> blocks;
        QList<bool> live;
        for (int i = 0; i < sizes.size(); ++i) {
            for (const QString &k : releaseBefore.at(i).split(',', Qt::SkipEmptyParts)) {
                pool.release(blocks.at(k.toInt()));
                live[k.toInt()] = false;
            }
            const QByteArray data = pattern(i, sizes.at(i));
            char *b = pool.acquire(data.constData(), data.size(), padding, VexaPayloadPool::NoWait);
            QVERIFY2(b, qPrintable(QStringLiteral("block %1").arg(i)));
            blocks << b;
            live << true;
            for (int k = 0; k <= i; ++k) {
                if (!live.at(k))
                    continue;
                QCOMPARE(QByteArray(blocks.at(k), sizes.at(k)), pattern(k, sizes.at(k)));
                QCOMPARE(QByteArray(blocks.at(k) + sizes.at(k), padding), QByteArray(padding, '\0'));
            }
        }
        QCOMPARE(pool.blockCount(), int(live.count(true)));
        qint64 inRing = 0;
        for (int i = 0; i < sizes.size(); ++i)
            inRing += live.at(i) && sizes.at(i) + padding <= pool.size() ? sizes.at(i) + padding : 0;
        QCOMPARE(pool.usedBytes(), inRing);
        for (int i = 0; i < blocks.size(); ++i) {
            if (live.at(i))
                pool.release(blocks.at(i));
        }
        QCOMPARE(pool.blockCount(), 0);
        QCOMPARE(pool.usedBytes(), qint64(0));
    }

    // A full ring: NoWait refuses, WaitForRoom waits for a release (telling
    // the full handler once) or for close().
    void fullRing_data()
    {
        QTest::addColumn<bool>("closeInstead");
        QTest::newRow("release lets the sender go on") << false;
        QTest::newRow("close ends the wait") << true;
    }
    void fullRing()
    {
        QFETCH(bool, closeInstead);
        VexaPayloadPool pool(1000);
        QAtomicInt told;
        pool.setFullHandler([&told] { told.ref(); });
        char *first = pool.acquire(nullptr, 600);
        QVERIFY(first);
        QVERIFY(!pool.acquire(nullptr, 600, 0, VexaPayloadPool::NoWait));
        QCOMPARE(told.loadAcquire(), 0);

        QAtomicPointer<char> got;
        QAtomicInt done;
        QScopedPointer<QThread> sender(QThread::create([&] {
            got.storeRelease(pool.acquire(nullptr, 600));
            done.storeRelease(1);
        }));
        sender->start();
        auto cleanup = qScopeGuard([&] { pool.close(); sender->wait(); });
        QTRY_COMPARE(told.loadAcquire(), 1);
        QCOMPARE(done.loadAcquire(), 0);
        if (closeInstead)
            pool.close();
        else
            pool.release(first);
        QVERIFY(sender->wait(30000));
        QCOMPARE(got.loadAcquire() == nullptr, closeInstead);
        QCOMPARE(told.loadAcquire(), 1);
        if (closeInstead) {
            QVERIFY(!pool.acquire(nullptr, 10));
            pool.open();
            pool.release(first);
        }
        pool.release(got.loadAcquire());
        QVERIFY(pool.acquire(nullptr, 10) != nullptr);
    }

    void resize()
    {
        VexaPayloadPool pool;
        QCOMPARE(pool.size(), 0);
        // No ring: every block is a heap block.
        char *b = pool.acquire("abc", 3);
        QVERIFY(b);
        QVERIFY(!pool.setSize(100)); // a block is out
        pool.release(b);
        QVERIFY(pool.setSize(100));
        QCOMPARE(pool.size(), 100);
    }

    // Adopted blocks: no copy, released through their owner's call (one
    // per adopt, also for the same address twice), refused when closed, and
    // given back by the pool's end.
    void adoptedBlocks()
    {
        static QAtomicInt unrefs;
        unrefs.storeRelaxed(0);
        auto unref = [](void *opaque) { unrefs.fetchAndAddRelaxed(*static_cast<int *>(opaque)); };
        char lent[16] = "lent";
        int one = 1;
        int ten = 10;
        int first = 0;
        {
            VexaPayloadPool pool(100);
            QCOMPARE(pool.adopt(lent, unref, &one), lent);
            QCOMPARE(pool.adopt(lent, unref, &ten), lent);
            QCOMPARE(pool.blockCount(), 2);
            QCOMPARE(pool.usedBytes(), qint64(0));
            QVERIFY(!pool.setSize(200));
            pool.release(lent);
            QCOMPARE(pool.blockCount(), 1);
            first = unrefs.loadRelaxed();
            QVERIFY(first == 1 || first == 10);
            // The other one is handed on: not unref'd, no longer the pool's.
            void *handedOn = pool.disown(lent);
            QVERIFY(handedOn);
            QCOMPARE(*static_cast<int *>(handedOn), 11 - first);
            QCOMPARE(pool.blockCount(), 0);
            QVERIFY(!pool.disown(lent));
            char *ring = pool.acquire("abc", 3);
            QVERIFY(ring && !pool.disown(ring));
            QCOMPARE(pool.blockCount(), 1);
            pool.release(ring);
            pool.close();
            QVERIFY(!pool.adopt(lent, unref, &one));
            pool.open();
            QCOMPARE(pool.adopt(lent, unref, &ten), lent);
        }
        // The block adopted last and never released goes with the pool.
        QCOMPARE(unrefs.loadRelaxed(), first + 10);
    }

    // keep(): a payload the sending thread lends, with room for the padding
    // behind it, is adopted as it is (and given back by disown() to its own
    // lender only); anything else is copied. An inner lend of nothing hides
    // the outer one.
    void keepLent_data()
    {
        QTest::addColumn<int>("offset");   // into a 200-byte array; bytes 50 to 149 are lent
        QTest::addColumn<int>("len");
        QTest::addColumn<int>("padding");
        QTest::addColumn<int>("lends");    // 0: none, 1: the lend, 2: a lend of nothing inside it
        QTest::addColumn<bool>("adopted");
        QTest::newRow("inside, padding to the end") << 60 << 50 << 40 << 1 << true;
        QTest::newRow("no room for the padding") << 60 << 50 << 41 << 1 << false;
        QTest::newRow("starts before the lent bytes") << 40 << 20 << 0 << 1 << false;
        QTest::newRow("nothing lent") << 60 << 10 << 0 << 0 << false;
        QTest::newRow("inner lend of nothing") << 60 << 10 << 0 << 2 << false;
    }
    void keepLent()
    {
        QFETCH(int, offset);
        QFETCH(int, len);
        QFETCH(int, padding);
        QFETCH(int, lends);
        QFETCH(bool, adopted);
        static QAtomicInt refs;
        static const VexaPayloadLend::Lender lender{[](void *owner) { refs.ref(); return owner; },
                                                    [](void *) { refs.deref(); }};
        static const VexaPayloadLend::Lender other{lender.ref, lender.unref};
        refs.storeRelaxed(0);
        QByteArray bytes = pattern(3, 200);
        VexaPayloadPool pool(1000);
        char *kept = nullptr;
        {
            QScopedPointer<VexaPayloadLend> outer(lends > 0 ? new VexaPayloadLend(&lender, &bytes, bytes.constData() + 50, 100) : nullptr);
            QScopedPointer<VexaPayloadLend> inner(lends > 1 ? new VexaPayloadLend(nullptr, nullptr, nullptr, 0) : nullptr);
            kept = pool.keep(bytes.constData() + offset, len, padding);
        }
        QVERIFY(kept);
        QCOMPARE(kept == bytes.constData() + offset, adopted);
        QCOMPARE(QByteArray(kept, len), bytes.mid(offset, len));
        QCOMPARE(refs.loadRelaxed(), adopted ? 1 : 0);
        QVERIFY(!pool.disown(kept, &other));
        if (adopted) {
            QCOMPARE(pool.disown(kept, &lender), static_cast<void *>(&bytes));
            lender.unref(&bytes);
        } else {
            pool.release(kept);
        }
        QCOMPARE(refs.loadRelaxed(), 0);
        QCOMPARE(pool.blockCount(), 0);
    }

    // The whole queue in one call, oldest first; the queue is left empty and
    // keeps its bound behaviour.
    void takeWholeQueue()
    {
        Queueing obj;
        obj.bound(-1);
        QVERIFY(obj.takePacketsA().isEmpty());
        for (int i = 0; i < 5; ++i) {
            VexaObject::Packet p;
            p.pts = i;
            QVERIFY(obj.bufferPacketA(p));
        }
        const QList<VexaObject::Packet> taken = obj.takePacketsA();
        QCOMPARE(taken.size(), 5);
        for (int i = 0; i < 5; ++i)
            QCOMPARE(taken.at(i).pts, qint64(i));
        QCOMPARE(obj.queuedA(), 0);
        QVERIFY(obj.takePacketsV().isEmpty());
        obj.bound(2);
        VexaObject::Packet p;
        QVERIFY(obj.bufferPacketA(p));
        QVERIFY(!obj.bufferPacketA(p));
        QCOMPARE(obj.takePacketsA().size(), 1);
    }
};

QTEST_GUILESS_MAIN(tst_VexaPayloadPool)
#include "tst_vexapayloadpool.moc"
